'use strict';
// Command buffers of arithmetic, in the module that exposes them to JavaScript.
const assert = require('assert');
const { over } = require('../support/blocks');
const fs = require('fs');
const { differences, modulePath } = require('../support/host');
const { methods } = require('../support/surface');
const { runScript, assertCleanExit, assertFault, assertHostFatal } = require('../support/child');
const { collect, collectUntil } = require('../support/collect');
const { MatrixFlowWriter, matrixFlowCommands } = require('../../../lib/commands');
const { createRandom } = require('../../../bench/script/lib/random');

const nq = require(modulePath);
const path = process.env.NQ_MATRIXFLOW_MODULE;
const isBuilt = path !== undefined && fs.existsSync(path);
const suite = isBuilt ? describe : describe.skip;
const flow = isBuilt ? require(path) : null;

/** Properties of an object and of its prototype that may differ between modules. */
function shapeOf(object) {
  return [object, Object.getPrototypeOf(object)].map((owner) =>
    Reflect.ownKeys(owner).map((name) => {
      const { value, writable, enumerable, configurable } = Object.getOwnPropertyDescriptor(
        owner,
        name
      );
      const length = typeof value === 'function' ? value.length : undefined;
      return { name, type: typeof value, length, writable, enumerable, configurable };
    })
  );
}

/** One object of each class that both modules have. */
function objectsOf(module) {
  const engine = module.getEngine();
  const lists = Uint32Array.of(1, 1, 1).buffer;
  return {
    Engine: engine,
    EngineEntity: engine.createEntity(true),
    EngineComponent: engine.createComponent(1),
    EngineDataModel: engine.createDataModel(1, new ArrayBuffer(16)),
    EngineAnimationClipBinding: engine.createAnimationClipBinding(lists, 0, 1, 2, 1),
    EngineAnimatorControllerModel: engine.createAnimatorControllerModel(1),
    EngineAnimatorControllerStateModel: engine.createAnimatorControllerStateModel(1),
  };
}

describe('module without command buffers', () => {
  it('has no method to create one', () => {
    assert.strictEqual(methods.Engine.includes('createMatrixFlowCommandBuffer'), false);
    assert.strictEqual('createMatrixFlowCommandBuffer' in nq.getEngine(), false);
  });
});

suite('module with command buffers (NQ_SCRIPT_MATRIXFLOW)', () => {
  it('has one more method on Engine, the last', () => {
    const prototype = Object.getPrototypeOf(flow.getEngine());
    assert.deepStrictEqual(Reflect.ownKeys(prototype), [
      ...methods.Engine,
      'createMatrixFlowCommandBuffer',
      'constructor',
    ]);
    const method = Object.getOwnPropertyDescriptor(prototype, 'createMatrixFlowCommandBuffer');
    assert.strictEqual(method.value.name, 'createMatrixFlowCommandBuffer');
    assert.deepStrictEqual(
      [method.writable, method.enumerable, method.configurable],
      [true, true, false]
    );
  });

  it('has a class for them, with one method', () => {
    const buffer = flow.getEngine().createMatrixFlowCommandBuffer(16);
    assert.strictEqual(buffer.constructor.name, 'EngineMatrixFlowCommandBuffer');
    assert.strictEqual(
      Object.prototype.toString.call(buffer),
      differences.tagOf('EngineMatrixFlowCommandBuffer')
    );
    const prototype = Object.getPrototypeOf(buffer);
    assert.deepStrictEqual(Reflect.ownKeys(prototype), ['execute', 'constructor']);
    assert.strictEqual(prototype.execute.name, 'execute');
    assert.strictEqual(Object.getPrototypeOf(prototype), Object.prototype);
    const again = flow.getEngine().createMatrixFlowCommandBuffer(16);
    assert.strictEqual(again.constructor, buffer.constructor);
  });

  it('has no other differences', () => {
    assert.deepStrictEqual(shapeOf(flow), shapeOf(nq));
    assert.deepStrictEqual(flow.getVersion(), nq.getVersion());
    const plain = objectsOf(nq);
    const withBuffers = objectsOf(flow);
    for (const name of Object.keys(plain)) {
      assert.strictEqual(plain[name].constructor.name, name);
      assert.strictEqual(withBuffers[name].constructor.name, name);
      const [own, inherited] = shapeOf(withBuffers[name]);
      const rest = inherited.filter((one) => one.name !== 'createMatrixFlowCommandBuffer');
      assert.deepStrictEqual([own, rest], shapeOf(plain[name]), name);
    }
  });
});

suite('creation of a command buffer', () => {
  it('returns "id", "buffer" and "memoryID", and zeros', () => {
    const engine = flow.getEngine();
    const first = engine.createMatrixFlowCommandBuffer(1000);
    const second = engine.createMatrixFlowCommandBuffer(64);
    assert.deepStrictEqual(Reflect.ownKeys(first), ['id', 'buffer', 'memoryID']);
    assert.deepStrictEqual([first.id, second.id], [0x1000, 0x2000]);
    // Blocks 0 and 1 are those of the lists.
    assert.deepStrictEqual([first.memoryID, second.memoryID], [2, 3]);
    assert.strictEqual(first.buffer.byteLength, 1000);
    assert.strictEqual(second.buffer.byteLength, 64);
    for (const { buffer } of [first, second]) {
      assert(new Uint8Array(buffer).every((byte) => byte === 0));
    }
  });

  it('has the requested size', () => {
    const engine = flow.getEngine();
    const sizes = [1, 16, 17, 300, 640, 641].map(
      (size) => engine.createMatrixFlowCommandBuffer(size).buffer.byteLength
    );
    assert.deepStrictEqual(sizes, [1, 16, 17, 300, 640, 641]);
  });

  it('is refused for a size of 0', () => {
    const engine = flow.getEngine();
    const none = engine.createMatrixFlowCommandBuffer(0);
    assert.deepStrictEqual(Reflect.ownKeys(none), ['id']);
    assert.strictEqual(none.id, 0);
    assert.strictEqual(none.constructor, engine.createMatrixFlowCommandBuffer(4).constructor);
    assert.deepStrictEqual(Reflect.ownKeys(engine.createMatrixFlowCommandBuffer('x')), ['id']);
    assert.deepStrictEqual(Reflect.ownKeys(engine.createMatrixFlowCommandBuffer(undefined)), [
      'id',
    ]);
  });

  it('returns null without arguments, on any receiver', () => {
    const { createMatrixFlowCommandBuffer } = flow.getEngine();
    for (const receiver of [flow.getEngine(), {}, undefined, 7]) {
      assert.strictEqual(createMatrixFlowCommandBuffer.call(receiver), null);
    }
  });

  it('converts its size to a number', () => {
    const engine = flow.getEngine();
    const sizes = ['20', 20.9, true].map(
      (size) => engine.createMatrixFlowCommandBuffer(size).buffer.byteLength
    );
    assert.deepStrictEqual(sizes, [20, 20, 1]);
  });
});

suite('execute', () => {
  for (const [name, stdout] of [
    ['done', ''],
    [
      'noBuffer',
      [0, 0x7000, -4096]
        .map((handle) => `[NQ_WARN][MatrixFlow]: Command buffer invalid, handler: ${handle}\n`)
        .join(''),
    ],
    ['released', '[NQ_WARN][MatrixFlow]: Command buffer invalid, handler: 12288\n'],
    ['releasedBlock', '[NQ_WARN][MatrixFlow]: Memory Error (id, offset, len) not match'],
    ['cutOff', '[NQ_WARN][MatrixFlow]: Command buffer overflow\n'.repeat(6)],
    [
      'unknownCommand',
      [0, 2, 7, 999, 1005, 2005, 3005, 4005, 5004, 6005, 7000, 8999, 9001, -1, -2147483648]
        .map((type) => `[NQ_FATAL][MatrixFlow]: Command type invalid, type: ${type}\n`)
        .join(''),
    ],
    ['outOfBlock', '[NQ_WARN][MatrixFlow]: Memory Error (id, offset, len) not match'.repeat(3)],
    ['bulk', '[NQ_WARN][MatrixFlow]: Memory Error (id, offset, len) not match'.repeat(4)],
    ['wrap', '[NQ_WARN][MatrixFlow]: Memory Error (id, offset, len) not match'],
    ['divisorTooSmall', ''],
  ]) {
    it(`returns and prints the expected result: ${name}`, () => {
      const result = runScript('matrixflow.js', name);
      assertCleanExit(result);
      assert.strictEqual(result.stdout, stdout);
    });
  }

  it('checks the bounds of each operand, to the byte', () => {
    const result = runScript('matrixflow.js', 'lastByte');
    assertCleanExit(result);
    const line = '[NQ_WARN][MatrixFlow]: Memory Error (id, offset, len) not match';
    // 7 commands of two operands, 9 of three.
    assert.strictEqual(result.stdout, `${line.repeat(41)}41 failed\n`);
  });

  for (const name of ['executeOnEmpty', 'createOnEmpty', 'createOnBuffer']) {
    it(`ends the process by a segmentation fault: ${name}`, () => {
      assertFault(runScript('matrixflow.js', name));
    });
  }

  for (const name of ['executeOnPlainObject', 'executeOnHeir', 'executeOnNothing']) {
    it(`ends the process by a fatal error of V8: ${name}`, () => {
      assertHostFatal(
        runScript('matrixflow.js', name),
        'v8::Object::SetAlignedPointerInInternalField() Internal field out of bounds'
      );
    });
  }

  for (const name of ['sizeIsSymbol', 'sizeIsBigInt']) {
    it(`ends the process by a fatal error of V8: ${name}`, () => {
      assertHostFatal(runScript('matrixflow.js', name), 'v8::FromJust Maybe value is Nothing.');
    });
  }

  it('overflows the stack, which ends the process, if buffers call each other in a cycle', () => {
    const result = runScript('matrixflow.js', 'circle');
    assert.notStrictEqual(result.status, 0);
    assert.strictEqual(result.stdout, 'about to end\n');
  });
});

/** An engine, a command buffer with a writer, and blocks to work on. */
function createScene(size = 65536) {
  const engine = flow.getEngine();
  const buffer = engine.createMatrixFlowCommandBuffer(size);
  return {
    engine,
    buffer,
    writer: new MatrixFlowWriter(buffer),
    /** A block of `floats` floats: a command buffer that is never run. */
    block(floats) {
      const object = engine.createMatrixFlowCommandBuffer(4 * floats);
      return {
        object,
        id: object.memoryID,
        floats: over(Float32Array, object),
        bytes: over(Uint8Array, object),
        at: (offset) => ({ memoryID: object.memoryID, offset }),
      };
    },
  };
}

suite('command buffer', () => {
  it('can be run again, with the same result', () => {
    const { buffer, writer, block } = createScene();
    const { floats, at } = block(4);
    floats.set([1, 2]);
    writer.scalarAdd(at(0), at(4), at(0)); // accumulates
    for (let run = 1; run <= 5; ++run) {
      assert.strictEqual(buffer.execute(), 0);
      assert.strictEqual(floats[0], 1 + 2 * run);
    }
  });

  it('calls others, and continues after the call', () => {
    const scene = createScene();
    const inner = scene.engine.createMatrixFlowCommandBuffer(256);
    const innerWriter = new MatrixFlowWriter(inner);
    const { floats, at } = scene.block(4);
    floats.set([1, 10]);
    innerWriter.scalarAdd(at(0), at(4), at(0));
    scene.writer.call(inner.id);
    scene.writer.call(inner.id);
    scene.writer.scalarMul(at(0), at(4), at(8));
    assert.strictEqual(scene.buffer.execute(), 0);
    assert.deepStrictEqual(Array.from(floats), [21, 10, 210, 0]);
  });

  it('is found by any handle of its slot', () => {
    // A buffer is no batch: the element part of its handle is ignored.
    const { buffer, engine, block } = createScene();
    const { floats, at } = block(4);
    new MatrixFlowWriter(buffer).scalarAdd(at(0), at(0), at(0));
    const outer = engine.createMatrixFlowCommandBuffer(64);
    new MatrixFlowWriter(outer).call(buffer.id + 5);
    floats[0] = 2;
    assert.strictEqual(outer.execute(), 0);
    assert.strictEqual(floats[0], 4);
  });

  it('may overwrite its own later commands, which take effect at once', () => {
    const { buffer, writer, block } = createScene();
    const { floats, at } = block(8);
    const words = over(Uint32Array, floats);
    floats.set([5, 7]);
    words[2] = matrixFlowCommands.scalarMul;
    const own = (offset) => ({ memoryID: buffer.memoryID, offset });
    // The first command's target is the type of the second.
    writer.scalarCopy(own(4 + 20), at(8));
    const second = writer.scalarAdd(at(0), at(4), at(12));
    assert.strictEqual(second, 24);
    assert.strictEqual(buffer.execute(), 0);
    assert.strictEqual(floats[3], 35);
  });

  it('reads its length once per run', () => {
    const { buffer, writer, block } = createScene();
    const { floats, at } = block(8);
    floats.set([1, 1]);
    // Writes 0 to the length word, so that the next run is empty.
    writer.scalarCopy({ memoryID: buffer.memoryID, offset: 0 }, at(28));
    writer.scalarAdd(at(0), at(4), at(0));
    assert.strictEqual(buffer.execute(), 0);
    assert.strictEqual(floats[0], 2);
    assert.strictEqual(writer.used, 0);
    assert.strictEqual(buffer.execute(), 0);
    assert.strictEqual(floats[0], 2);
  });

  it('can be patched at the offsets that the writer returns', () => {
    const { buffer, writer, block } = createScene();
    const { floats, at } = block(8);
    floats.set([1, 2, 4]);
    const command = writer.scalarAdd(at(0), at(4), at(28));
    buffer.execute();
    assert.strictEqual(floats[7], 3);
    // Word 4 of a command is the offset of B.
    over(Uint32Array, buffer)[command / 4 + 4] = 8;
    buffer.execute();
    assert.strictEqual(floats[7], 5);
  });

  it('works on the records of entities', () => {
    const { engine, buffer, writer, block } = createScene();
    const { floats, at } = block(3);
    floats.set([0.5, -1, 2]);
    const entities = engine.createEntity(true, 3);
    const records = over(Float32Array, entities);
    for (let i = 0; i < 3; ++i) {
      records.set([10 * i, 20 * i, 30 * i], 27 * i + 5);
      const position = { memoryID: entities.memoryID, offset: 108 * i + 20 };
      writer.vector3Add(position, at(0), position);
    }
    assert.strictEqual(buffer.execute(), 0);
    const positions = [0, 1, 2].map((i) => Array.from(records.subarray(27 * i + 5, 27 * i + 8)));
    assert.deepStrictEqual(positions, [
      [0.5, -1, 2],
      [10.5, 19, 32],
      [20.5, 39, 62],
    ]);
  });

  it('copies short vectors past the end of a block', () => {
    // Kept on purpose: such a copy checks a scalar's four bytes. The next block of a size class is directly after the
    // last one.
    for (const [method, words] of [
      ['vector2Copy', 2],
      ['vector3Copy', 3],
    ]) {
      const { buffer, writer, block } = createScene();
      const [source, target, next] = [block(16), block(16), block(16)];
      source.floats.set([1, 2, 3]);
      next.floats.fill(9);
      writer[method](target.at(60), source.at(0));
      assert.strictEqual(buffer.execute(), 0);
      assert.strictEqual(target.floats[15], 1);
      assert.deepStrictEqual(
        Array.from(next.floats.subarray(0, 3)),
        words === 2 ? [2, 9, 9] : [2, 3, 9],
        method
      );
    }
  });

  it('continues beyond its block if its length exceeds it', () => {
    // Kept on purpose. The next block of a size class is directly after the last one.
    const { engine, block } = createScene();
    const { floats, at } = block(8);
    floats.set([20, 22]);
    const short = engine.createMatrixFlowCommandBuffer(64);
    const next = engine.createMatrixFlowCommandBuffer(64);
    const writer = new MatrixFlowWriter(short);
    for (let i = 0; i < 3; ++i) {
      writer.scalarCopy(at(0), at(0));
    }
    assert.strictEqual(writer.room, 0);
    const addition = [matrixFlowCommands.scalarAdd, at(0), at(4), at(8)].map((one) =>
      typeof one === 'number' ? one : [one.memoryID, one.offset]
    );
    over(Uint32Array, next).set([].concat(...addition));
    over(Uint32Array, short)[0] = 60 + 28;
    assert.strictEqual(short.execute(), 0);
    assert.strictEqual(floats[2], 42);
  });

  it('releases its handle when its object is collected', async () => {
    const { engine, buffer, writer } = createScene();
    const handles = (() => {
      const other = engine.createMatrixFlowCommandBuffer(64);
      return { id: other.id, memoryID: other.memoryID };
    })();
    assert.strictEqual(handles.id, 0x2000);
    const made = [];
    let again = null;
    await collectUntil(() => {
      if (again === null) {
        made.push(engine.createMatrixFlowCommandBuffer(64));
        again = made.find(({ id }) => id === handles.id) || null;
      }
      return again !== null;
    });
    assert.notStrictEqual(again, null);
    assert.notStrictEqual(again.memoryID, handles.memoryID);
    assert.strictEqual(writer.used, 0);
    assert.strictEqual(buffer.execute(), 0);
  });

  it('outlives the engine that created it', async () => {
    const [buffer, data] = (() => {
      const engine = flow.getEngine();
      return [engine.createMatrixFlowCommandBuffer(256), engine.createMatrixFlowCommandBuffer(64)];
    })();
    for (let i = 0; i < 3; ++i) {
      await collect();
    }
    const floats = over(Float32Array, data);
    floats.set([20, 22]);
    const { memoryID } = data;
    new MatrixFlowWriter(buffer).scalarAdd(memoryID, 0, memoryID, 4, memoryID, 8);
    assert.strictEqual(buffer.execute(), 0);
    assert.strictEqual(floats[2], 42);
  });
});

// The commands in plain JavaScript: each operation rounded to a float, in the documented order.
const f = Math.fround;
const operations = {
  Add: (a, b) => f(a + b),
  Sub: (a, b) => f(a - b),
  Mul: (a, b) => f(a * b),
  Div: (a, b) => f(a / b),
};

/** Matrix product of column-major matrices, terms summed from left to right. */
function product(a, b, n) {
  const out = new Float32Array(n * n);
  for (let column = 0; column < n; ++column) {
    for (let row = 0; row < n; ++row) {
      let sum = f(a[row] * b[n * column]);
      for (let k = 1; k < n; ++k) {
        sum = f(sum + f(a[n * k + row] * b[n * column + k]));
      }
      out[n * column + row] = sum;
    }
  }
  return out;
}

const floatsOf = { scalar: 1, vector2: 2, vector3: 3, vector4: 4, matrix3: 9, matrix4: 16 };

/** Floats of a value, and number of operands, of each method. */
const commandKinds = Object.keys(matrixFlowCommands)
  .filter((method) => method !== 'call' && method !== 'bulkCopy')
  .map((method) => {
    const [, family, operation] = /^([a-z]+\d?)([A-Z][a-z]+)$/.exec(method);
    return {
      method,
      family,
      operation,
      count: floatsOf[family],
      operands: operation === 'Copy' || operation === 'Invert' ? 2 : 3,
    };
  });

/**
 * Executes a command on bytes. `at` are its operands, [bytes, offset] in the order of the stream. Returns
 * the result code.
 */
function model({ family, operation, count }, at) {
  const bytesAt = ([bytes, offset], n) => bytes.slice(offset, offset + n);
  const read = (operand) => new Float32Array(bytesAt(operand, 4 * count).buffer);
  const write = ([bytes, offset], values) => bytes.set(over(Uint8Array, values), offset);
  if (operation === 'Copy') {
    at[0][0].set(bytesAt(at[1], 4 * count), at[0][1]);
  } else if (operation === 'Invert') {
    at[1][0].set(bytesAt(at[0], 4 * count), at[1][1]);
  } else {
    const [a, b] = [read(at[0]), read(at[1])];
    if (family === 'scalar' && operation === 'Div' && b[0] < 2 ** -126) {
      return 5;
    }
    const isProduct = family.startsWith('matrix') && operation === 'Mul';
    write(
      at[2],
      isProduct
        ? product(a, b, Math.sqrt(count))
        : a.map((value, i) => operations[operation](value, b[i]))
    );
  }
  return 0;
}

/** Asserts equal bits, or that both are NaN. */
function assertSameFloats(actual, expected, said) {
  const [a, b] = [actual, expected].map(
    (one) => new Uint32Array(one.buffer, one.byteOffset, one.length)
  );
  for (let i = 0; i < expected.length; ++i) {
    if (a[i] !== b[i] && !(Number.isNaN(actual[i]) && Number.isNaN(expected[i]))) {
      assert.fail(`${said}: float ${i} is ${actual[i]}, expected ${expected[i]}`);
    }
  }
  assert.strictEqual(actual.length, expected.length);
}

const specials = [
  0,
  -0,
  1,
  -1,
  0.1,
  1e-39,
  -1e-45,
  2 ** -126,
  3e38,
  -3e38,
  Infinity,
  -Infinity,
  NaN,
];

/** Random numbers, of which one in eight is a special value. */
function createValues(random) {
  return () =>
    random() < 0.125
      ? specials[Math.floor(random() * specials.length)]
      : (random() - 0.3) * 10 ** Math.floor(random() * 6 - 2);
}

suite('commands, against plain script', () => {
  for (const kind of commandKinds) {
    const { method, operation, count, operands } = kind;

    it(`${method}: values of all kinds, at offsets of any alignment`, () => {
      const random = createRandom(0x6d0 + count * 31 + operation.length);
      const value = createValues(random);
      const { buffer, writer, block } = createScene(256);
      const blocks = Array.from({ length: operands }, () => block(count + 8));
      const target = operation === 'Copy' ? 0 : operands - 1;
      for (let round = 0; round < 200; ++round) {
        const offsets = blocks.map(() => Math.floor(random() * 32));
        blocks.forEach(({ bytes }, i) => {
          bytes.fill(0xa5);
          const values = Float32Array.from({ length: count }, value);
          bytes.set(over(Uint8Array, values), offsets[i]);
        });
        const expected = blocks.map(({ bytes }) => bytes.slice());
        const code = model(
          kind,
          expected.map((bytes, i) => [bytes, offsets[i]])
        );
        writer.reset();
        writer[method](...blocks.map(({ at }, i) => at(offsets[i])));
        assert.strictEqual(buffer.execute(), code);
        blocks.forEach(({ bytes }, i) => {
          const said = `round ${round}, operand ${i}`;
          if (i !== target) {
            assert.deepStrictEqual(bytes, expected[i], said);
            return;
          }
          // The value as floats, the bytes around it as bytes.
          const [actual, wanted] = [bytes, expected[i]].map(
            (one) => new Float32Array(one.slice(offsets[i], offsets[i] + 4 * count).buffer)
          );
          assertSameFloats(actual, wanted, said);
          bytes.set(expected[i].subarray(offsets[i], offsets[i] + 4 * count), offsets[i]);
          assert.deepStrictEqual(bytes, expected[i], said);
        });
      }
    });

    if (operands === 3) {
      it(`${method}: a result on an input, or half of it`, () => {
        const random = createRandom(0xa11 + count);
        const { buffer, writer, block } = createScene(256);
        const one = block(4 * count);
        const bytes = 4 * count;
        // Offsets of A, B and R: R on A, on B, on both, and over the end of one.
        for (const offsets of [
          [0, bytes, 0],
          [0, bytes, bytes],
          [bytes, bytes, bytes],
          [bytes, 2 * bytes, bytes + 4],
          [bytes, 2 * bytes, bytes - 4],
          [bytes, 2 * bytes, 2 * bytes - 1],
          [bytes, bytes + 2, bytes + 1],
        ]) {
          for (let i = 0; i < one.floats.length; ++i) {
            one.floats[i] = 0.5 + random();
          }
          const expected = one.bytes.slice();
          const code = model(
            kind,
            offsets.map((offset) => [expected, offset])
          );
          writer.reset();
          writer[method](...offsets.map(one.at));
          assert.strictEqual(buffer.execute(), code);
          assert.deepStrictEqual(one.bytes, expected, `${offsets}`);
        }
      });
    }
  }

  it('known products, computed by hand', () => {
    const { buffer, writer, block } = createScene(256);
    const { floats, at } = block(48);
    // [1 3] of columns (1 2), (3 4) beside a rest of the unit matrix, times [5 7] of (5 6), (7 8).
    floats.set([1, 2, 0, 3, 4, 0, 0, 0, 1]);
    floats.set([5, 6, 0, 7, 8, 0, 0, 0, 1], 9);
    writer.matrix3Mul(at(0), at(36), at(72));
    assert.strictEqual(buffer.execute(), 0);
    assert.deepStrictEqual(Array.from(floats.subarray(18, 27)), [23, 34, 0, 31, 46, 0, 0, 0, 1]);
    // A translation by (1, 2, 3) times a scaling by 2: scaled first, then translated.
    const move = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1];
    const scale = [2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1];
    floats.set([...move, ...scale]);
    writer.reset();
    writer.matrix4Mul(at(0), at(64), at(128));
    assert.strictEqual(buffer.execute(), 0);
    assert.deepStrictEqual(
      Array.from(floats.subarray(32, 48)),
      [2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 1, 2, 3, 1]
    );
    // In the other order, and into its own input: translated first.
    writer.reset();
    writer.matrix4Mul(at(64), at(0), at(64));
    assert.strictEqual(buffer.execute(), 0);
    assert.deepStrictEqual(
      Array.from(floats.subarray(16, 32)),
      [2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 2, 4, 6, 1]
    );
    // No inverse.
    writer.reset();
    writer.matrix4Invert(at(64), at(0));
    assert.strictEqual(buffer.execute(), 0);
    assert.deepStrictEqual(floats.subarray(0, 16), floats.subarray(16, 32));
  });

  it('copies words in bulk, also unaligned', () => {
    const { buffer, writer, block } = createScene(256);
    const [from, to] = [block(1000), block(1000)];
    from.bytes.forEach((_, i) => {
      from.bytes[i] = (i * 7) % 251;
    });
    for (const [n, d, s] of [
      [0, 5, 5],
      [1, 0, 3],
      [3, 1, 2],
      [17, 333, 1],
      [999, 3, 1],
      [1000, 0, 0],
    ]) {
      to.bytes.fill(0xee);
      const expected = to.bytes.slice();
      expected.set(from.bytes.subarray(s, s + 4 * n), d);
      writer.reset();
      writer.bulkCopy(n, to.at(d), from.at(s));
      assert.strictEqual(buffer.execute(), 0);
      assert.deepStrictEqual(to.bytes, expected, `${n} words`);
    }
  });

  it('programs whose results are inputs of later commands', () => {
    const seed = 0x51f7;
    const random = createRandom(seed);
    const below = (n) => Math.floor(random() * n);
    const value = createValues(random);
    const { buffer, writer, block } = createScene();
    const blocks = [block(64), block(40), block(200)];
    const place = (count) => {
      const { id, floats } = blocks[below(blocks.length)];
      return [id, 4 * below(floats.length - count + 1)];
    };
    const codes = new Set();
    for (let program = 0; program < 300; ++program) {
      blocks.forEach(({ floats }) => floats.forEach((_, i) => (floats[i] = value())));
      const expected = new Map(blocks.map(({ id, bytes }) => [id, bytes.slice()]));
      let code = 0;
      writer.reset();
      for (let n = 0; n < 40; ++n) {
        const kind = commandKinds[below(commandKinds.length)];
        const places = Array.from({ length: kind.operands }, () => place(kind.count));
        // The result of copies of overlapping ranges is undefined.
        const overlap = places[0][0] === places[1][0] && places[0][1] !== places[1][1];
        if (kind.operands === 2 && overlap) {
          continue;
        }
        writer[kind.method](...[].concat(...places));
        if (code === 0) {
          code = model(
            kind,
            places.map(([id, offset]) => [expected.get(id), offset])
          );
        }
      }
      assert.strictEqual(buffer.execute(), code, `seed ${seed}, program ${program}`);
      codes.add(code);
      for (const { id, floats } of blocks) {
        const wanted = new Float32Array(expected.get(id).buffer);
        assertSameFloats(floats, wanted, `seed ${seed}, program ${program}, block ${id}`);
      }
    }
    assert.deepStrictEqual([...codes].sort(), [0, 5]);
  });
});
