'use strict';
// Transfers buffers to other buffers, in each way that a host supports, while their memory is collected and reused.
//   node --expose-gc moved-buffers.js CASE WAY
// Prints "about to end" as its last line on success.
const assert = require('assert');
const { MessageChannel, receiveMessageOnPort, Worker } = require('worker_threads');
const lib = require('../../../lib');
const { differences, modulePath } = require('../support/host');

const nq = require(modulePath);

/** Each transfers a buffer and returns the new buffer over its memory, or a promise of it. */
const ways = {
  postMessage(buffer) {
    const { port1, port2 } = new MessageChannel();
    try {
      port1.postMessage(buffer, [buffer]);
      return receiveMessageOnPort(port2).message;
    } finally {
      port1.close();
    }
  },

  structuredClone: (buffer) => structuredClone(buffer, { transfer: [buffer] }),

  transfer: (buffer) => buffer.transfer(),

  byteStream(buffer) {
    const { ReadableStream } = require('stream/web');
    let controller;
    const start = (given) => {
      controller = given;
    };
    const stream = new ReadableStream({ type: 'bytes', start });
    controller.enqueue(new Uint8Array(buffer));
    const read = stream.getReader().read();
    return read.then(({ value }) => value.buffer);
  },

  // There and back, through another isolate.
  worker(buffer) {
    const source = `
      const { parentPort, workerData } = require('worker_threads');
      parentPort.postMessage(workerData, [workerData]);`;
    const worker = new Worker(source, { eval: true, workerData: buffer, transferList: [buffer] });
    return new Promise((resolve, reject) => {
      let moved;
      worker.on('message', (message) => {
        moved = message;
      });
      worker.on('error', reject);
      worker.on('exit', () => resolve(moved));
    });
  },
};

/** Fewer rounds where each starts a thread. */
const roundsOf = (way) => (way === 'worker' ? 20 : 200);

/** Scenes that are kept alive, since handles name their objects. */
const scenes = [];

/** An engine with spheres in front of a camera, and a call that finds them all. */
function scene(count) {
  const engine = nq.getEngine();
  const entities = new lib.Entity3DView(engine.createEntity(true, 1));
  entities.reset(0);
  new lib.EntityCommandWriter(engine).addRoot(entities.handle(0));
  new lib.DirtyListWriter(engine).append(entities.handle(0));
  engine.refreshWorldTransform();
  const spheres = new lib.CullingObjectsView(engine.createComponent(1, count));
  for (let i = 0; i < count; ++i) {
    spheres.setEntity(i, entities.handle(0));
    spheres.setMask(i, 1);
    spheres.setSphere(i, 0, 0, 0, 1);
    spheres.setEnabled(i, true);
  }
  const camera = [0, 0, 5, 0, 0, 0, 0, 1, 0, Math.PI / 2, 1, 0.1, 100];
  const made = { engine, entities, spheres, cull: () => engine.frustumCulling(1, ...camera) };
  scenes.push(made);
  return made;
}

const cases = {
  // Results of culling belong to JavaScript: they are unchanged in any buffer.
  async givenAway(way) {
    const count = 500;
    const { spheres, cull } = scene(count);
    const expected = Array.from({ length: count }, (_, i) => spheres.handle(i)).sort();
    let kept = [];
    for (let round = 0; round < roundsOf(way); ++round) {
      const { objects, distances } = cull();
      const movedObjects = await ways[way](objects);
      const movedDistances = await ways[way](distances);
      assert.strictEqual(movedObjects.byteLength, 4 * count);
      kept.push([movedObjects, movedDistances]);
      if (round % 10 === 9) {
        global.gc();
        await new Promise(setImmediate);
        // Blocks of the same size, so that one freed too early would be used again.
        for (let i = 0; i < 20; ++i) {
          const answer = cull();
          new Uint32Array(answer.objects).fill(0xdeadbeef);
          new Float32Array(answer.distances).fill(-1);
        }
        for (const [moved, far] of kept) {
          assert.deepStrictEqual(Array.from(new Uint32Array(moved)).sort(), expected);
          assert(new Float32Array(far).every((distance) => distance === 5));
        }
        kept = kept.slice(-3);
      }
    }
  },

  // Memory of the engine stays native: depending on the host its buffers are copied, transferred or refused, and the
  // memory behind them is still used, released and reused like any other.
  async ofEngine(way) {
    const engine = nq.getEngine();
    for (let round = 0; round < roundsOf(way); ++round) {
      let entities = engine.createEntity(true, 40);
      const { buffer, id } = entities;
      const words = new Uint32Array(buffer);
      assert(words.every((word) => word === 0));
      words.fill(round + 1);
      let moved = null;
      try {
        moved = await ways[way](buffer);
      } catch (error) {
        assert(/detach/i.test(error.message), error.message);
      }
      const outcome = differences.moveOfEngineBuffer;
      assert.strictEqual(moved === null, outcome === 'refused');
      assert.strictEqual(buffer.byteLength, outcome === 'moved' ? 0 : 40 * 108);
      if (moved !== null) {
        assert(new Uint32Array(moved).every((word) => word === round + 1));
      }
      engine.setEntityName(id, 'still there');
      engine.refreshWorldTransform();
      entities = null;
      moved = null;
      if (round % 10 === 9) {
        global.gc();
        await new Promise(setImmediate);
        global.gc();
      }
    }
  },

  // The same for the three buffers of the engine.
  async engineItself(way) {
    const { engine, entities, cull } = scene(3);
    for (const name of ['dirtyEntities', 'entityCommands', 'cullingResult']) {
      const size = engine[name].byteLength;
      let moved = null;
      try {
        moved = await ways[way](engine[name]);
      } catch (error) {
        assert(/detach/i.test(error.message), error.message);
      }
      const isMoved = differences.moveOfEngineBuffer === 'moved';
      assert.strictEqual(engine[name].byteLength, isMoved ? 0 : size, name);
      if (isMoved && name === 'dirtyEntities') {
        // Native code reads the same memory as before.
        entities.setPosition(0, 1, 2, 3);
        new Uint32Array(moved).set([1, entities.handle(0)]);
      }
    }
    engine.refreshWorldTransform();
    const x = differences.moveOfEngineBuffer === 'moved' ? 1 : 0;
    assert.strictEqual(entities.worldPosition(0, [0, 0, 0])[0], x);
    assert.strictEqual(new Uint32Array(cull().objects).length, 3);
    global.gc();
    engine.refreshWorldTransform();
  },

  // Several live buffers over one block, which comments in newer headers of V8 forbid: there is one for each engine
  // object that is published again.
  async overOneBlock() {
    const addon = require(process.env.NQ_TEST_ADDON);
    const buffers = [];
    for (let i = 0; i < 300; ++i) {
      buffers.push(addon.sameBlock());
    }
    new Uint8Array(buffers[0]).fill(7);
    assert(buffers.every((buffer) => new Uint8Array(buffer)[99] === 7));
    buffers.length = 150;
    global.gc();
    await new Promise(setImmediate);
    new Uint8Array(buffers[149]).fill(8);
    assert(buffers.every((buffer) => new Uint8Array(buffer)[0] === 8));
  },
};

const [name, way] = process.argv.slice(2);
cases[name](way).then(
  () => console.log('about to end'),
  (error) => {
    console.error(error.stack);
    process.exitCode = 1;
  }
);
