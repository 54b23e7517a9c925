'use strict';
// Streams executed by the module, on its shared blocks. A stream is written once and executed many times, or
// rewritten before each run.
const { over } = require('../../../tests/script/support/blocks');
const fs = require('fs');
const path = require('path');
const { MatrixFlowWriter } = require('../../../lib/commands');
const { bulkWords, translationAt } = require('../lib/matrixflow-scene');

const modulePath = path.resolve(
  process.env.NQ_MATRIXFLOW_MODULE ||
    path.join(__dirname, '..', '..', '..', 'build/Release/nq_logic_matrixflow.node')
);

/** Whether there is a module with command buffers for JavaScript. */
const isBuilt = fs.existsSync(modulePath);

/** Maximum bytes of a command. */
const commandBytes = 28;

/**
 * The contender.
 * @param {import('../lib/matrixflow-scene').Stream|import('../lib/matrixflow-scene').Mix} stream
 */
function createNative(stream) {
  const engine = require(modulePath).getEngine();
  // Plain memory blocks: command buffers that are never executed.
  const objects = {};
  for (const name of Object.keys(stream.blocks)) {
    objects[name] = engine.createMatrixFlowCommandBuffer(stream.blocks[name].byteLength);
    over(Float32Array, objects[name]).set(stream.blocks[name]);
  }
  const buffer = engine.createMatrixFlowCommandBuffer(4 + commandBytes * stream.count);
  const writer = new MatrixFlowWriter(buffer);
  const idOf = (name) => objects[name].memoryID;

  function writeArithmetic() {
    const { kind, count, a, b, r } = stream;
    const [aID, bID, rID] = ['a', 'b', 'r'].map(idOf);
    for (let i = 0; i < count; ++i) {
      writer[kind](aID, 4 * a[i], bID, 4 * b[i], rID, 4 * r[i]);
    }
  }

  function writeCopies() {
    const { count, a, r } = stream;
    const [aID, rID] = ['a', 'r'].map(idOf);
    for (let i = 0; i < count; ++i) {
      writer.matrix4Copy(rID, 4 * r[i], aID, 4 * a[i]);
    }
  }

  function writeBulkCopies() {
    const { count, a, r } = stream;
    const [aID, rID] = ['a', 'r'].map(idOf);
    for (let i = 0; i < count; ++i) {
      writer.bulkCopy(bulkWords, rID, 4 * r[i], aID, 4 * a[i]);
    }
  }

  function writeMix() {
    const ids = ['rest', 'moves', 'parents', 'inverses', 'local', 'world', 'skin'].map(idOf);
    const [rest, moves, parents, inverses, local, world, skin] = ids;
    for (let i = 0; i < stream.objects; ++i) {
      const at = 64 * i;
      const place = at + 4 * translationAt;
      const move = 4 * stream.move[i];
      writer.bulkCopy(16, local, at, rest, 4 * stream.rest[i]);
      writer.vector3Add(local, place, moves, move, local, place);
      writer.vector3Add(local, place, moves, move + 12, local, place);
      writer.matrix4Mul(parents, 4 * stream.parent[i], local, at, world, at);
      writer.matrix4Mul(world, at, inverses, 4 * stream.inverse[i], skin, at);
    }
  }

  const special = { matrix4Copy: writeCopies, bulkCopy: writeBulkCopies, mix: writeMix };
  const write = special[stream.kind] || writeArithmetic;
  write();

  return {
    name: 'nq',
    /** The stream, for other readers. */
    words: over(Uint32Array, buffer),
    ids: Object.keys(objects).reduce((all, name) => Object.assign(all, { [name]: idOf(name) }), {}),
    run() {
      if (buffer.execute() !== 0) {
        throw new Error(`${stream.kind}: the stream fails`);
      }
    },
    writeAndRun() {
      writer.reset();
      write();
      this.run();
    },
    block: (name) => over(Float32Array, objects[name]),
  };
}

module.exports = { createNative, isBuilt, modulePath };
