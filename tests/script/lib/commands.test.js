'use strict';
// The writers of lib/commands.js: the words that they write, what they refuse, and the effect of entity commands and
// dirty lists in the engine.
const assert = require('assert');
const { MessageChannel } = require('worker_threads');
const { over } = require('../support/blocks');
const { assertCleanExit, runScript } = require('../support/child');
const { hostileObjects } = require('../support/hostile');
const { modulePath } = require('../support/host');
const commands = require('../../../lib/commands');

const nq = require(modulePath);
const { DirtyListWriter, EntityCommandWriter, MatrixFlowWriter } = commands;

/** A poison value: words that a writer has not touched. */
const poison = 0xabababab;

const listBytes = 49152;
const last = 0xffffffff;

/** A buffer with poison bytes after a first word. */
function poisoned(bytes, first = 0) {
  const words = new Uint32Array(bytes / 4).fill(poison);
  words[0] = first;
  return words;
}

/** A fake engine; writers only use properties of an engine. */
function entityWriter(bytes = listBytes) {
  const words = poisoned(bytes);
  return { words, writer: new EntityCommandWriter({ entityCommands: words.buffer }) };
}

function listWriter(bytes = listBytes) {
  const words = poisoned(bytes);
  return { words, writer: new DirtyListWriter({ dirtyEntities: words.buffer }) };
}

function flowWriter(bytes = 256, options = undefined) {
  const words = poisoned(bytes);
  return { words, writer: new MatrixFlowWriter({ buffer: words.buffer }, options) };
}

/** Asserts that `call` throws `type` with a matching message, and leaves the buffer unchanged. */
function assertRefused(words, call, type, pattern) {
  const before = words.slice();
  assert.throws(call, (error) => {
    assert.strictEqual(error.constructor, type, error.stack);
    assert(pattern.test(error.message), error.message);
    return true;
  });
  assert.deepStrictEqual(words, before);
}

/** Commands of one buffer: method, arguments, and the words that they write. */
const entityCases = [
  ['addRoot', [4096], [1, 4096]],
  ['addChild', [4096, 8193], [2, 4096, 8193]],
  ['insertChild', [4096, 8193, 7], [3, 4096, 8193, 7]],
  ['removeFromParent', [last], [4, last]],
  ['resetSubtree', [0], [5, 0]],
  ['bindToBone', [8192, 4097], [6, 8192, 4097]],
  ['bindToBoneBatch', [[5, 6, 7], Uint32Array.of(8, 9, 10)], [7, 3, 5, 6, 7, 8, 9, 10]],
  ['unbindFromBone', [12], [8, 12]],
  ['unbindFromBoneBatch', [Uint32Array.of(3, last)], [9, 2, 3, last]],
  ['activate', [4096], [10, 4096]],
  ['deactivate', [4096], [11, 4096]],
];

describe('EntityCommandWriter', () => {
  for (const [method, args, expected] of entityCases) {
    it(`appends ${method}`, () => {
      const { words, writer } = entityWriter();
      assert.strictEqual(writer.addRoot(77), 4);
      assert.strictEqual(writer[method](...args), 12);
      const used = 8 + 4 * expected.length;
      assert.deepStrictEqual(Array.from(words.subarray(0, 1 + used / 4)), [
        used,
        ...[1, 77],
        ...expected,
      ]);
      assert.strictEqual(
        words.subarray(1 + used / 4).findIndex((word) => word !== poison),
        -1
      );
      assert.strictEqual(writer.used, used);
      assert.strictEqual(writer.room, 49148 - used);
      assert.strictEqual(commands.entityCommands[method], expected[0]);
    });

    it(`writes ${method} into the last bytes, but not beyond`, () => {
      const bytes = 4 * expected.length;
      const { words, writer } = entityWriter();
      words[0] = 49148 - bytes;
      assert.strictEqual(writer[method](...args), listBytes - bytes);
      assert.deepStrictEqual(Array.from(words.subarray(-expected.length)), expected);
      assert.strictEqual(words[0], 49148);
      assert.strictEqual(writer.room, 0);
      words[0] = 49148 - bytes + 4;
      const room = `EntityCommandWriter.${method}: ${bytes} bytes do not fit, the stream has room for ${
        bytes - 4
      } of its 49148: call refreshWorldTransform`;
      assertRefused(words, () => writer[method](...args), RangeError, new RegExp(room));
    });
  }

  it('has a method per command, and a number per method', () => {
    assert.deepStrictEqual(
      Object.keys(commands.entityCommands),
      entityCases.map(([method]) => method)
    );
    assert(Object.isFrozen(commands.entityCommands));
  });

  it('writes empty batches', () => {
    const { words, writer } = entityWriter();
    writer.bindToBoneBatch([], []);
    writer.unbindFromBoneBatch([]);
    assert.deepStrictEqual(Array.from(words.subarray(0, 6)), [16, 7, 0, 9, 0, poison]);
  });

  it('appends at the first word, also if others wrote it', () => {
    const { words, writer } = entityWriter();
    writer.addRoot(1);
    words[0] = 0; // as a refresh does
    writer.activate(2);
    const second = new EntityCommandWriter({ entityCommands: words.buffer });
    second.deactivate(3);
    writer.addRoot(4);
    assert.deepStrictEqual(Array.from(words.subarray(0, 7)), [24, 10, 2, 11, 3, 1, 4]);
    writer.clear();
    assert.strictEqual(words[0], 0);
    assert.strictEqual(writer.room, 49148);
  });

  it('throws if the first word is invalid', () => {
    for (const wrong of [49152, 6, last]) {
      const { words, writer } = entityWriter();
      words[0] = wrong;
      const pattern = new RegExp(
        `^EntityCommandWriter.addRoot: the first word is ${wrong}, not a valid length .*: clear it`
      );
      assertRefused(words, () => writer.addRoot(1), RangeError, pattern);
    }
  });

  for (const [method, args] of entityCases) {
    const wrongs = [
      [undefined, TypeError],
      [null, TypeError],
      ['7', TypeError],
      [{}, TypeError],
    ];
    // Elements of a batch are checked in the same way.
    const isBatch = Array.isArray(args[0]) || args[0] instanceof Uint32Array;
    wrongs.push(...[-1, 1.5, NaN, Infinity, 2 ** 32].map((value) => [value, RangeError]));
    it(`refuses arguments of ${method} that are no 32-bit words`, () => {
      const { words, writer } = entityWriter();
      args.forEach((_, i) => {
        for (const [value, type] of wrongs) {
          const changed = args.slice();
          if (isBatch) {
            changed[i] = Array.from(args[i]);
            changed[i][1] = value;
          } else {
            changed[i] = value;
          }
          const pattern = new RegExp(
            `^EntityCommandWriter.${method}: .* is .*: give a whole number`
          );
          assertRefused(words, () => writer[method](...changed), type, pattern);
        }
      });
    });
  }

  it('refuses invalid batches, and sides of different length', () => {
    const { words, writer } = entityWriter();
    for (const value of [undefined, 7, 'abc', {}, new Float32Array(2), new ArrayBuffer(8)]) {
      const pattern = /is .*: give a Uint32Array or an array of handles/;
      assertRefused(words, () => writer.unbindFromBoneBatch(value), TypeError, pattern);
      assertRefused(words, () => writer.bindToBoneBatch(value, [1]), TypeError, pattern);
      assertRefused(words, () => writer.bindToBoneBatch([1], value), TypeError, pattern);
    }
    const moved = new Uint32Array(2);
    const { port1 } = new MessageChannel();
    port1.postMessage(null, [moved.buffer]);
    port1.close();
    const detached = /is a view of a detached ArrayBuffer: give one that was not transferred/;
    assertRefused(words, () => writer.unbindFromBoneBatch(moved), RangeError, detached);
    assertRefused(words, () => writer.bindToBoneBatch(moved, []), RangeError, detached);
    assertRefused(words, () => writer.bindToBoneBatch([], moved), RangeError, detached);
    const list = listWriter();
    assertRefused(list.words, () => list.writer.appendAll(moved), RangeError, detached);
    const pattern = /^EntityCommandWriter.bindToBoneBatch: 2 entities and 3 bones: give one bone/;
    assertRefused(words, () => writer.bindToBoneBatch([1, 2], [1, 2, 3]), RangeError, pattern);
  });

  it('requires an engine', () => {
    const owners = [[0, 0, 0, 0], { [Symbol.toStringTag]: 'ArrayBuffer' }, ...hostileObjects()];
    for (const value of [
      undefined,
      7,
      {},
      ...owners.map((entityCommands) => ({ entityCommands })),
    ]) {
      assert.throws(() => new EntityCommandWriter(value), {
        name: 'TypeError',
        message: /^EntityCommandWriter: .*not an ArrayBuffer: give an engine/,
      });
    }
    const none = { entityCommands: new ArrayBuffer(3) };
    assert.throws(() => new EntityCommandWriter(none), { name: 'RangeError', message: /3 bytes/ });
  });

  it('writes into a range of a larger buffer', () => {
    const memory = new Uint32Array(16).fill(0xabababab);
    const part = new Uint8Array(memory.buffer, 12, 20);
    memory[3] = 0;
    const writer = new EntityCommandWriter({ entityCommands: part });
    assert.strictEqual(writer.room, 16);
    assert.strictEqual(writer.addRoot(4096), 4);
    assert.strictEqual(writer.activate(4097), 12);
    assert.deepStrictEqual(Array.from(memory.slice(2, 9)), [
      ...[0xabababab, 16, 1, 4096],
      ...[10, 4097, 0xabababab],
    ]);
    assert.throws(
      () => writer.addRoot(1),
      /^RangeError: EntityCommandWriter\.addRoot: 8 bytes do not/
    );

    memory[3] = 0;
    const list = new DirtyListWriter({ dirtyEntities: part });
    list.appendRange(7, 4);
    assert.deepStrictEqual(Array.from(memory.slice(3, 9)), [4, 7, 8, 9, 10, 0xabababab]);
    assert.throws(
      () => list.append(1),
      /^RangeError: DirtyListWriter\.append: 1 entries do not fit/
    );

    const off = { buffer: memory.buffer, byteOffset: 6, byteLength: 20 };
    assert.throws(() => new DirtyListWriter({ dirtyEntities: off }), {
      name: 'RangeError',
      message: /^DirtyListWriter: its block starts at byte 6 of a buffer: give one that starts/,
    });
  });

  it('keeps the engine alive that owns the memory', () => {
    const engine = nq.getEngine();
    assert.strictEqual(new EntityCommandWriter(engine).owner, engine);
    assert.strictEqual(new DirtyListWriter(engine).owner, engine);
  });
});

describe('DirtyListWriter', () => {
  it('appends one, many and ranges', () => {
    const { words, writer } = listWriter();
    writer.append(4096);
    writer.appendAll([7, last]);
    writer.appendAll(Uint32Array.of(8));
    writer.appendRange(8192, 3);
    writer.appendAll([]);
    writer.appendRange(1, 0);
    assert.deepStrictEqual(Array.from(words.subarray(0, 9)), [
      7,
      4096,
      7,
      last,
      8,
      8192,
      8193,
      8194,
      poison,
    ]);
    assert.strictEqual(writer.count, 7);
    assert.strictEqual(writer.room, 12280);
  });

  it('holds 12287 entries and refuses the next, without writing', () => {
    const { words, writer } = listWriter();
    writer.appendRange(1, 12285);
    const pattern = (method, added, room) =>
      new RegExp(
        `^DirtyListWriter.${method}: ${added} entries do not fit, the list has room for ${room} of its 12287`
      );
    assertRefused(words, () => writer.appendAll([1, 2, 3]), RangeError, pattern('appendAll', 3, 2));
    assertRefused(words, () => writer.appendRange(1, 3), RangeError, pattern('appendRange', 3, 2));
    writer.append(5);
    writer.appendAll([6]);
    assert.deepStrictEqual(Array.from(words.subarray(-3)), [12285, 5, 6]);
    assert.strictEqual(words[0], 12287);
    assert.strictEqual(writer.room, 0);
    assertRefused(words, () => writer.append(1), RangeError, pattern('append', 1, 0));
    assertRefused(words, () => writer.appendAll([1]), RangeError, pattern('appendAll', 1, 0));
    assertRefused(words, () => writer.appendRange(1, last), RangeError, /4294967295 entries/);
    writer.appendAll([]);
    writer.clear();
    assert.strictEqual(words[0], 0);
    assert.strictEqual(writer.room, 12287);
  });

  it('refuses values that are no handles', () => {
    const { words, writer } = listWriter();
    for (const [value, type] of [
      [undefined, TypeError],
      ['7', TypeError],
      [-1, RangeError],
      [0.5, RangeError],
      [2 ** 32, RangeError],
    ]) {
      const pattern = /^DirtyListWriter.append\w*: .* is .*: give a whole number/;
      assertRefused(words, () => writer.append(value), type, pattern);
      assertRefused(words, () => writer.appendAll([1, value]), type, pattern);
      assertRefused(words, () => writer.appendRange(value, 1), type, pattern);
      assertRefused(words, () => writer.appendRange(1, value), type, pattern);
    }
    assertRefused(words, () => writer.appendAll(7), TypeError, /handles is 7: give a Uint32Array/);
    assertRefused(
      words,
      () => writer.appendRange(last, 2),
      RangeError,
      /go beyond the largest one/
    );
    writer.appendRange(last, 1);
    assert.strictEqual(words[1], last);
  });

  it('throws if the first word is invalid', () => {
    const { words, writer } = listWriter();
    words[0] = 12288;
    const pattern = /the first word is 12288, not a count of at most 12287 entries: clear it/;
    assertRefused(words, () => writer.append(1), RangeError, pattern);
    assertRefused(words, () => writer.appendAll([1]), RangeError, pattern);
    assertRefused(words, () => writer.appendRange(1, 1), RangeError, pattern);
  });

  it('requires an engine', () => {
    assert.throws(() => new DirtyListWriter({}), {
      name: 'TypeError',
      message:
        /^DirtyListWriter: its dirtyEntities is undefined, not an ArrayBuffer: give an engine/,
    });
  });
});

describe('entity commands and dirty list in the engine', () => {
  const recordWords = 27;
  const positionAt = 5;
  const scaleAt = 8;
  const worldPositionAt = 11 + 12;

  /** A batch of 3D entities of scale 1, each with its own x, and the two writers. */
  function createScene(...xs) {
    const engine = nq.getEngine();
    const batch = engine.createEntity(true, xs.length);
    const floats = over(Float32Array, batch);
    xs.forEach((x, i) => {
      floats[i * recordWords + positionAt] = x;
      floats.fill(1, i * recordWords + scaleAt, i * recordWords + scaleAt + 3);
    });
    return {
      engine,
      h: (i) => batch.id + i,
      commands: new EntityCommandWriter(engine),
      dirty: new DirtyListWriter(engine),
      batch,
      setX(i, x) {
        floats[i * recordWords + positionAt] = x;
      },
      localX: (i) => floats[i * recordWords + positionAt],
      worldX: (i) => floats[i * recordWords + worldPositionAt],
      refresh() {
        engine.refreshWorldTransform();
      },
    };
  }

  it('links parents and children, and empties both buffers', () => {
    const s = createScene(1, 10, 100);
    s.commands.addRoot(s.h(0));
    s.commands.addChild(s.h(0), s.h(1));
    s.commands.addChild(s.h(1), s.h(2));
    s.dirty.appendRange(s.h(0), 3);
    assert.strictEqual(s.commands.used, 32);
    s.refresh();
    assert.deepStrictEqual([0, 1, 2].map(s.worldX), [1, 11, 111]);
    assert.strictEqual(s.commands.used, 0);
    assert.strictEqual(s.dirty.count, 0);
  });

  it('removes a child, and adds it as a root', () => {
    const s = createScene(1, 10);
    s.commands.addRoot(s.h(0));
    s.commands.addChild(s.h(0), s.h(1));
    s.commands.removeFromParent(s.h(1));
    s.commands.addRoot(s.h(1));
    s.dirty.appendAll([s.h(0), s.h(1)]);
    s.refresh();
    assert.deepStrictEqual([0, 1].map(s.worldX), [1, 10]);
  });

  it('does not change matrices of a subtree that was reset', () => {
    const s = createScene(1, 10, 100);
    s.commands.addRoot(s.h(0));
    s.commands.addChild(s.h(0), s.h(1));
    s.commands.addChild(s.h(1), s.h(2));
    s.dirty.appendRange(s.h(0), 3);
    s.refresh();
    s.commands.resetSubtree(s.h(1));
    s.setX(0, 2);
    s.dirty.append(s.h(0));
    s.refresh();
    assert.deepStrictEqual([0, 1, 2].map(s.worldX), [2, 11, 111]);
    // Both are free: the grandchild, too, can be a root.
    s.commands.addRoot(s.h(2));
    s.dirty.append(s.h(2));
    s.refresh();
    assert.strictEqual(s.worldX(2), 100);
  });

  it('skips inactive entities, and computes them when they are activated', () => {
    const s = createScene(1, 10);
    s.commands.addRoot(s.h(0));
    s.commands.addChild(s.h(0), s.h(1));
    s.dirty.appendRange(s.h(0), 2);
    s.refresh();
    s.commands.deactivate(s.h(1));
    s.setX(0, 2);
    s.dirty.append(s.h(0));
    s.refresh();
    assert.deepStrictEqual([0, 1].map(s.worldX), [2, 11]);
    s.commands.activate(s.h(1));
    s.refresh();
    assert.deepStrictEqual([0, 1].map(s.worldX), [2, 12]);
  });

  it('inserts at an index: traversal order is the order of children', () => {
    // Children 1, 2, 3 of root 0 have the children 4, 5, 6; 3 is inserted between the other two.
    const s = createScene(0, 1, 2, 3, 0, 0, 0);
    s.commands.addRoot(s.h(0));
    s.commands.addChild(s.h(0), s.h(1));
    s.commands.addChild(s.h(0), s.h(2));
    s.commands.insertChild(s.h(0), s.h(3), 1);
    s.commands.bindToBoneBatch([s.h(4), s.h(5), s.h(6)], [s.h(1), s.h(2), s.h(3)]);
    s.dirty.appendRange(s.h(0), 4);
    s.refresh();
    const listed = over(Uint32Array, s.engine.dirtyEntities);
    assert.deepStrictEqual(Array.from(listed.subarray(0, 4)), [3, s.h(4), s.h(6), s.h(5)]);
    assert.deepStrictEqual([4, 5, 6].map(s.localX), [1, 2, 3]);
  });

  it('appends after entries of native code', () => {
    const s = createScene(7, 0, 0);
    s.commands.addRoot(s.h(0));
    s.commands.addRoot(s.h(1));
    s.commands.addRoot(s.h(2));
    s.commands.bindToBone(s.h(1), s.h(0));
    s.dirty.append(s.h(0));
    s.refresh();
    assert.strictEqual(s.dirty.count, 1);
    s.setX(2, 5);
    s.dirty.append(s.h(2));
    const listed = over(Uint32Array, s.engine.dirtyEntities);
    assert.deepStrictEqual(Array.from(listed.subarray(0, 3)), [2, s.h(1), s.h(2)]);
    s.refresh();
    assert.deepStrictEqual([0, 1, 2].map(s.worldX), [7, 7, 5]);
  });

  it('unbinds single entities and batches', () => {
    const s = createScene(1, 0, 0, 0);
    s.commands.addRoot(s.h(0));
    s.commands.bindToBoneBatch([s.h(1), s.h(2), s.h(3)], Uint32Array.of(s.h(0), s.h(0), s.h(0)));
    s.dirty.append(s.h(0));
    s.refresh();
    assert.deepStrictEqual([1, 2, 3].map(s.localX), [1, 1, 1]);
    s.commands.unbindFromBone(s.h(2));
    s.setX(0, 2);
    s.dirty.clear();
    s.dirty.append(s.h(0));
    s.refresh();
    assert.deepStrictEqual([1, 2, 3].map(s.localX), [2, 1, 2]);
    s.commands.unbindFromBoneBatch([s.h(1), s.h(3)]);
    s.setX(0, 3);
    s.dirty.clear();
    s.dirty.append(s.h(0));
    s.refresh();
    assert.deepStrictEqual([1, 2, 3].map(s.localX), [2, 1, 2]);
    assert.strictEqual(s.dirty.count, 0);
  });

  it('executes a stream and a list that are full to the last word', () => {
    const count = 4095;
    const s = createScene(...new Array(count).fill(1));
    s.commands.addRoot(s.h(0));
    for (let i = 1; i < count; ++i) {
      s.commands.addChild(s.h(i - 1), s.h(i));
    }
    assert.strictEqual(s.commands.room, 12);
    s.commands.addChild(s.h(0), s.h(1)); // again, which changes nothing
    assert.strictEqual(s.commands.room, 0);
    assert.throws(() => s.commands.activate(s.h(0)), RangeError);
    for (let i = 0; i < 3; ++i) {
      s.dirty.appendRange(s.h(0), count);
    }
    s.dirty.appendAll([s.h(0), s.h(1)]);
    assert.strictEqual(s.dirty.room, 0);
    s.refresh();
    assert.strictEqual(s.worldX(0), 1);
    assert.strictEqual(s.worldX(count - 1), count);
    assert.strictEqual(s.commands.room, 49148);
    assert.strictEqual(s.dirty.room, 12287);
  });
});

/** Command types, independent of the library's. */
const families = [
  ['scalar', 1000, 4, ['Copy', 'Add', 'Sub', 'Mul', 'Div']],
  ['vector2', 2000, 8, ['Copy', 'Add', 'Sub', 'Mul', 'Div']],
  ['vector3', 3000, 12, ['Copy', 'Add', 'Sub', 'Mul', 'Div']],
  ['vector4', 4000, 16, ['Copy', 'Add', 'Sub', 'Mul', 'Div']],
  ['matrix3', 5000, 36, ['Copy', 'Add', 'Sub', 'Mul']],
  ['matrix4', 6000, 64, ['Copy', 'Add', 'Sub', 'Mul', 'Invert']],
];

/** All commands with operands only: method, type, bytes of a value, names of the operands. */
const flowCases = [].concat(
  ...families.map(([family, base, bytes, operations]) =>
    operations.map((operation, i) => ({
      method: family + operation,
      type: base + i,
      bytes,
      names: { Copy: ['D', 'S'], Invert: ['S', 'D'] }[operation] || ['A', 'B', 'R'],
    }))
  )
);

describe('MatrixFlowWriter', () => {
  const pairs = [11, 12, 13, 14, 15, last];

  for (const { method, type, bytes, names } of flowCases) {
    const flat = pairs.slice(0, 2 * names.length);
    const objects = names.map((_, i) => ({ memoryID: flat[2 * i], offset: flat[2 * i + 1] }));
    const size = 4 + 4 * flat.length;

    it(`writes ${method}, from objects and from numbers`, () => {
      const { words, writer } = flowWriter();
      assert.strictEqual(writer[method](...objects), 4);
      assert.strictEqual(writer[method](...flat), 4 + size);
      assert.deepStrictEqual(Array.from(words.subarray(0, 2 + (2 * size) / 4)), [
        2 * size,
        ...[type, ...flat],
        ...[type, ...flat],
        poison,
      ]);
      assert.strictEqual(writer.used, 2 * size);
      assert.strictEqual(writer.room, 252 - 2 * size);
      assert.strictEqual(commands.matrixFlowCommands[method], type);
    });

    it(`writes ${method} into the last bytes, but not beyond`, () => {
      const { words, writer } = flowWriter(4 + size);
      writer[method](...flat);
      assert.deepStrictEqual(Array.from(words), [size, type, ...flat]);
      const pattern = new RegExp(
        `^MatrixFlowWriter.${method}: ${size} bytes do not fit, the stream has room for 0 of its ${size}: ` +
          'execute and reset it, or make a larger command buffer'
      );
      assertRefused(words, () => writer[method](...flat), RangeError, pattern);
      const short = flowWriter(size);
      assertRefused(short.words, () => short.writer[method](...objects), RangeError, /do not fit/);
    });

    it(`refuses invalid operands of ${method}, and names them`, () => {
      const { words, writer } = flowWriter();
      names.forEach((name, i) => {
        for (const value of [undefined, null, 'x']) {
          const changed = objects.slice();
          changed[i] = value;
          const pattern = new RegExp(`^MatrixFlowWriter.${method}: operand ${name} is .*: give {`);
          assertRefused(words, () => writer[method](...changed), TypeError, pattern);
        }
        for (const [part, at] of [
          ['memoryID', 2 * i],
          ['offset', 2 * i + 1],
        ]) {
          for (const [value, error] of [
            [undefined, TypeError],
            ['1', TypeError],
            [-4, RangeError],
            [0.25, RangeError],
            [2 ** 32, RangeError],
          ]) {
            const pattern = new RegExp(
              `^MatrixFlowWriter.${method}: ${part} of operand ${name} is `
            );
            const changed = objects.slice();
            changed[i] = Object.assign({}, objects[i], { [part]: value });
            assertRefused(words, () => writer[method](...changed), error, pattern);
            // The first argument selects the form, so it can only be an invalid number there.
            if (at > 0 || typeof value === 'number') {
              const numbers = flat.slice();
              numbers[at] = value;
              assertRefused(words, () => writer[method](...numbers), error, pattern);
            }
          }
        }
      });
    });

    it(`checks ${method} against the known sizes of blocks`, () => {
      const blockSizes = new Map([[5, 100]]);
      const { words, writer } = flowWriter(256, { blockSizes });
      names.forEach((name, i) => {
        const numbers = flat.slice();
        numbers[2 * i] = 5;
        numbers[2 * i + 1] = 100 - bytes;
        writer[method](...numbers);
        assert.strictEqual(words[words[0] / 4 - flat.length + 2 * i + 2], 100 - bytes);
        numbers[2 * i + 1] += 1;
        const message =
          `MatrixFlowWriter.${method}: operand ${name}: ${bytes} bytes at offset ${101 - bytes} ` +
          `do not fit block 5 of 100: give an offset from 0 to ${100 - bytes}.`;
        const pattern = new RegExp(`^${message}$`);
        assertRefused(words, () => writer[method](...numbers), RangeError, pattern);
        blockSizes.set(5, bytes - 1);
        assertRefused(words, () => writer[method](...numbers), RangeError, /use a larger block/);
        blockSizes.set(5, 101);
        writer[method](...numbers);
        blockSizes.set(5, 100);
        writer.reset();
      });
    });
  }

  it('writes a call', () => {
    const { words, writer } = flowWriter(12);
    assert.strictEqual(writer.call(0x1000), 4);
    assert.deepStrictEqual(Array.from(words), [8, 1, 0x1000]);
    assertRefused(
      words,
      () => writer.call(1),
      RangeError,
      /^MatrixFlowWriter.call: 8 bytes do not/
    );
    writer.reset();
    for (const value of [undefined, {}, '1']) {
      assertRefused(words, () => writer.call(value), TypeError, /call: handle is /);
    }
    assertRefused(words, () => writer.call(-1), RangeError, /call: handle is -1: give a whole/);
  });

  it('writes a bulk copy', () => {
    const { words, writer } = flowWriter(52);
    assert.strictEqual(
      writer.bulkCopy(3, { memoryID: 4, offset: 5 }, { memoryID: 6, offset: 7 }),
      4
    );
    assert.strictEqual(writer.bulkCopy(0x3fffffff, 4, 5, 6, 7), 28);
    assert.deepStrictEqual(
      Array.from(words),
      [48, 9000, 3, 4, 5, 6, 7, 9000, 0x3fffffff, 4, 5, 6, 7]
    );
    const full = () => writer.bulkCopy(0, 4, 5, 6, 7);
    assertRefused(words, full, RangeError, /^MatrixFlowWriter.bulkCopy: 24 bytes do not fit/);
  });

  it('refuses bulk copies of a wrong count or wrong operands', () => {
    const blockSizes = new Map([[5, 100]]);
    const { words, writer } = flowWriter(256, { blockSizes });
    for (const value of [-1, 0.5, 0x40000000, NaN]) {
      const pattern = /count of words is .*: give a whole number from 0 to 1073741823/;
      assertRefused(words, () => writer.bulkCopy(value, 1, 2, 3, 4), RangeError, pattern);
    }
    assertRefused(
      words,
      () => writer.bulkCopy('1', 1, 2, 3, 4),
      TypeError,
      /count of words is '1'/
    );
    assertRefused(words, () => writer.bulkCopy(1, null, {}), TypeError, /operand D is null/);
    assertRefused(words, () => writer.bulkCopy(1, {}), TypeError, /operand S is undefined/);
    const broken = () => writer.bulkCopy(1, 1, 2, 3);
    assertRefused(words, broken, TypeError, /offset of operand S is undefined/);
    writer.bulkCopy(24, 5, 4, 6, 999);
    writer.bulkCopy(0, 5, 100, 5, 0);
    const past =
      /operand D: 100 bytes at offset 4 do not fit block 5 of 100: give an offset from 0 to 0/;
    assertRefused(words, () => writer.bulkCopy(25, 5, 4, 6, 0), RangeError, past);
    assertRefused(words, () => writer.bulkCopy(0, 6, 0, 5, 101), RangeError, /operand S: 0 bytes/);
  });

  it('has a method per command, and a type per method', () => {
    const expected = ['call', ...flowCases.map(({ method }) => method), 'bulkCopy'];
    assert.deepStrictEqual(Object.keys(commands.matrixFlowCommands), expected);
    assert.strictEqual(commands.matrixFlowCommands.call, 1);
    assert.strictEqual(commands.matrixFlowCommands.bulkCopy, 9000);
    assert.strictEqual(expected.length, 31);
    assert.deepStrictEqual(Object.entries(commands.matrixFlowResults), [
      ['done', 0],
      ['noBuffer', 1],
      ['cutOff', 2],
      ['unknownCommand', 3],
      ['outOfBlock', 4],
      ['divisorTooSmall', 5],
    ]);
  });

  it('does not write bytes after the last whole word', () => {
    const bytes = new Uint8Array(15).fill(0xab);
    bytes.fill(0, 0, 4);
    const writer = new MatrixFlowWriter({ buffer: bytes.buffer });
    assert.strictEqual(writer.room, 8);
    writer.call(1);
    assert.strictEqual(writer.room, 0);
    assert.deepStrictEqual(Array.from(bytes.subarray(12)), [0xab, 0xab, 0xab]);
  });

  it('requires a command buffer with memory, and sizes in a Map', () => {
    for (const value of [undefined, null, 7, { id: 0 }, new ArrayBuffer(64)]) {
      assert.throws(() => new MatrixFlowWriter(value), {
        name: 'TypeError',
        message: /^MatrixFlowWriter: .*: give what createMatrixFlowCommandBuffer made/,
      });
    }
    const buffer = new ArrayBuffer(64);
    for (const blockSizes of [{}, [], 7, ...hostileObjects()]) {
      assert.throws(() => new MatrixFlowWriter({ buffer }, { blockSizes }), {
        name: 'TypeError',
        message: /blockSizes is .*: give a Map of bytes by memoryID/,
      });
    }
  });

  it('throws if the first word is invalid, until it is reset', () => {
    const { words, writer } = flowWriter(64);
    words[0] = 64;
    assertRefused(
      words,
      () => writer.call(1),
      RangeError,
      /the first word is 64, not a valid length of/
    );
    writer.reset();
    writer.call(1);
    assert.strictEqual(words[0], 8);
  });
});

describe('writers and views created after all earlier ones were collected', () => {
  // Many times slower if V8 has discarded the optimised code of the class; the first round includes compilation, so
  // later ones should be faster.
  it('are as fast as the first ones', () => {
    const result = runScript('second-level.js');
    assertCleanExit(result);
    const times = JSON.parse(result.stdout);
    assert.strictEqual(Object.keys(times).length, 4);
    for (const name of Object.keys(times)) {
      const [first, , , ...later] = times[name];
      assert(Math.min(...later) < 2 * first, `${name}: ${times[name]} ns a call`);
    }
  });
});
