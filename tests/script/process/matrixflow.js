'use strict';
// Runs of command buffers that print something, or end the process. `matrixflow.js CASE`. Results of `execute` are
// checked here; the output is checked by the parent.
const assert = require('assert');
const fs = require('fs');
const { MatrixFlowWriter } = require('../../../lib/commands');
const { collectUntil } = require('../support/collect');

const engine = require(process.env.NQ_MATRIXFLOW_MODULE).getEngine();
const make = (size = 256) => engine.createMatrixFlowCommandBuffer(size);
const buffer = make();
const writer = new MatrixFlowWriter(buffer);
const data = make(64);
const floats = new Float32Array(data.buffer);
const at = (offset) => ({ memoryID: data.memoryID, offset });
const unknownBlock = { memoryID: 12345, offset: 0 };

/** Runs a stream of raw words. */
function runWords(...words) {
  new Uint32Array(buffer.buffer).set([4 * words.length, ...words]);
  return buffer.execute();
}

const empty = new buffer.constructor();
const emptyEngine = new engine.constructor();

/** The call must end the process. */
function last(call) {
  return () => {
    fs.writeSync(1, 'about to end\n');
    call();
    fs.writeSync(1, 'went on\n');
  };
}

const cases = {
  /** An empty stream, and one that runs to its end. */
  done() {
    assert.strictEqual(buffer.execute(), 0);
    floats.set([1, 2]);
    writer.scalarAdd(at(0), at(4), at(8));
    assert.strictEqual(buffer.execute(), 0);
    assert.strictEqual(buffer.execute(1, 'ignored'), 0);
    assert.strictEqual(floats[2], 3);
  },
  /** A buffer of size 0 has handle 0; a call returns its result without logging a line of its own. */
  noBuffer() {
    assert.strictEqual(make(0).execute(), 1);
    writer.call(0x7000);
    assert.strictEqual(buffer.execute(), 1);
    writer.reset();
    writer.call(0xfffff000);
    assert.strictEqual(buffer.execute(), 1);
  },
  async released() {
    const handle = (() => make().id)();
    writer.call(handle);
    // A run that still finds the buffer logs nothing.
    let code = 0;
    await collectUntil(() => {
      code = code || buffer.execute();
      return code !== 0;
    });
    assert.strictEqual(code, 1);
  },
  /** A block is released with its object. */
  async releasedBlock() {
    const id = (() => make(64).memoryID)();
    writer.bulkCopy(0, id, 0, id, 0);
    let code = 0;
    await collectUntil(() => {
      code = code || buffer.execute();
      return code !== 0;
    });
    assert.strictEqual(code, 4);
  },
  /** Each shape, one word short of its operands. */
  cutOff() {
    assert.strictEqual(runWords(1), 2);
    assert.strictEqual(runWords(1000), 2);
    assert.strictEqual(runWords(6004, 1, 0, 1), 2);
    assert.strictEqual(runWords(6003, 1, 0, 1, 0, 1), 2);
    assert.strictEqual(runWords(9000, 0, 1, 0, 1), 2);
    // A command type is read where one byte is left.
    new Uint32Array(buffer.buffer)[0] = 1;
    assert.strictEqual(buffer.execute(), 2);
  },
  unknownCommand() {
    for (const type of [0, 2, 7, 999, 1005, 2005, 3005, 4005, 5004, 6005, 7000, 8999, 9001]) {
      assert.strictEqual(runWords(type), 3);
    }
    assert.strictEqual(runWords(0xffffffff), 3);
    assert.strictEqual(runWords(0x80000000), 3);
  },
  outOfBlock() {
    for (const operands of [
      [unknownBlock, at(0), at(0)],
      [at(0), unknownBlock, at(0)],
      [at(0), at(0), unknownBlock],
    ]) {
      writer.reset();
      writer.scalarAdd(...operands);
      assert.strictEqual(buffer.execute(), 4);
    }
  },
  /** Values that end at the last byte, and one byte past it, for each operand; effects of earlier commands remain. */
  lastByte() {
    const shapes = [
      ['scalarCopy', 4, 2],
      ['scalarAdd', 4, 3],
      ['scalarDiv', 4, 3],
      ['vector2Copy', 4, 2],
      ['vector2Sub', 8, 3],
      ['vector3Copy', 4, 2],
      ['vector3Mul', 12, 3],
      ['vector4Copy', 16, 2],
      ['vector4Div', 16, 3],
      ['matrix3Copy', 36, 2],
      ['matrix3Add', 36, 3],
      ['matrix3Mul', 36, 3],
      ['matrix4Copy', 64, 2],
      ['matrix4Sub', 64, 3],
      ['matrix4Mul', 64, 3],
      ['matrix4Invert', 64, 2],
    ];
    // Not a block size of the allocator: the requested size is the bound.
    const size = 100;
    const room = make(size);
    const bytes = new Uint8Array(room.buffer);
    assert.strictEqual(bytes.length, size);
    let failed = 0;
    for (const [method, checkedBytes, count] of shapes) {
      for (let wrong = 0; wrong < count; ++wrong) {
        for (const excess of [0, 1]) {
          // A copy that is bounds-checked for fewer bytes than it copies would write past the block.
          if (excess === 0 && checkedBytes === 4 && method.startsWith('vector')) {
            continue;
          }
          const operands = Array.from({ length: count }, (_, i) => ({
            memoryID: room.memoryID,
            offset: i === wrong ? size - checkedBytes + excess : 0,
          }));
          bytes.fill(63);
          const before = bytes.slice();
          writer.reset();
          floats[15] = floats[0] + 1;
          writer.scalarCopy(at(0), at(60));
          writer[method](...operands);
          assert.strictEqual(buffer.execute(), 4 * excess, `${method}, operand ${wrong}`);
          assert.strictEqual(floats[0], floats[15]);
          if (excess === 1) {
            ++failed;
            assert.deepStrictEqual(bytes, before, `${method}, operand ${wrong}`);
          }
        }
      }
    }
    fs.writeSync(1, `${failed} failed\n`);
  },
  bulk() {
    const run = (...args) => {
      writer.reset();
      writer.bulkCopy(...args);
      return buffer.execute();
    };
    assert.strictEqual(run(16, data.memoryID, 0, data.memoryID, 0), 0);
    assert.strictEqual(run(0, data.memoryID, 64, data.memoryID, 64), 0);
    assert.strictEqual(run(16, data.memoryID, 1, data.memoryID, 0), 4);
    assert.strictEqual(run(16, data.memoryID, 0, data.memoryID, 1), 4);
    assert.strictEqual(run(0, data.memoryID, 65, data.memoryID, 0), 4);
    assert.strictEqual(run(0, data.memoryID, 0, 12345, 0), 4);
    // Kept on purpose: a count of bytes wraps, here to 0.
    assert.strictEqual(runWords(9000, 0x40000000, data.memoryID, 0, data.memoryID, 0), 0);
  },
  /** Kept on purpose: sums wrap. A division by 0 stops after the bounds check of its result. */
  wrap() {
    floats.fill(0);
    writer.scalarDiv(at(0), at(4), at(0xfffffffc));
    assert.strictEqual(buffer.execute(), 5);
    writer.reset();
    writer.scalarDiv(at(0), at(4), at(0xfffffffb));
    assert.strictEqual(buffer.execute(), 4);
  },
  divisorTooSmall() {
    floats[0] = 2;
    for (const divisor of [0, -0, -2, 1e-39, -Infinity, 1.1754942e-38]) {
      floats[1] = divisor;
      floats[2] = 0;
      floats[3] = 77;
      writer.reset();
      writer.scalarCopy(at(8), at(0));
      writer.scalarDiv(at(0), at(4), at(12));
      writer.scalarCopy(at(16), at(0));
      assert.strictEqual(buffer.execute(), 5);
      assert.deepStrictEqual([floats[2], floats[3], floats[4]], [2, 77, 0], `${divisor}`);
    }
    // The calling buffer stops with the same result.
    const outer = make();
    const calls = new MatrixFlowWriter(outer);
    calls.call(buffer.id);
    calls.scalarCopy(at(16), at(0));
    assert.strictEqual(outer.execute(), 5);
    assert.strictEqual(floats[4], 0);
    // The smallest normal float is a valid divisor, and so is NaN.
    floats[1] = 2 ** -126;
    assert.strictEqual(buffer.execute(), 0);
    assert.strictEqual(floats[3], 2 ** 127);
    floats[1] = NaN;
    assert.strictEqual(buffer.execute(), 0);
    assert(Number.isNaN(floats[3]));
  },

  executeOnEmpty: last(() => buffer.execute.call(empty)),
  executeOnPlainObject: last(() => buffer.execute.call({})),
  executeOnHeir: last(() => buffer.execute.call(Object.create(buffer))),
  executeOnNothing: last(() => buffer.execute.call(undefined)),
  createOnEmpty: last(() => engine.createMatrixFlowCommandBuffer.call(emptyEngine, 16)),
  createOnBuffer: last(() => engine.createMatrixFlowCommandBuffer.call(buffer, 16)),
  sizeIsSymbol: last(() => make(Symbol('1'))),
  sizeIsBigInt: last(() => make(BigInt(1))),
  /** Recursion is not checked. */
  circle: last(() => {
    writer.call(buffer.id);
    buffer.execute();
  }),
};

Promise.resolve(cases[process.argv[2]]()).catch((error) => {
  console.error(error.stack);
  process.exitCode = 1;
});
