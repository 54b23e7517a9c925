'use strict';
// Bindings, animator controllers and their states, as JavaScript sees them.
const assert = require('assert');
const { over } = require('../support/blocks');
const { MessageChannel } = require('worker_threads');
const { modulePath, addonPath, sanitized } = require('../support/host');
const { collect, collectUntil } = require('../support/collect');
const {
  runScript,
  runScriptForAMoment,
  assertFailedAssertion,
  assertFault,
} = require('../support/child');
const { holdClip, randomClip } = require('../../fixtures/clips');
const { createRandom } = require('../../fixtures/world');
const {
  ControllerWorld,
  applyPose,
  none,
  playController,
  quaternionChannels,
  targetLists,
} = require('../../fixtures/controllers');

const nq = require(modulePath);
const addon = require(addonPath);

const unturned = [0, 0, 0, 1];
const additive = 1;

function position({ words }) {
  return Array.from(words.subarray(5, 8));
}

function scale({ words }) {
  return Array.from(words.subarray(8, 11));
}

function rotation({ words }) {
  return Array.from(words.subarray(1, 5));
}

function bytesOf(buffer) {
  return Buffer.from(new Uint8Array(buffer));
}

function detach(buffer) {
  const { port1 } = new MessageChannel();
  port1.postMessage(buffer, [buffer]);
  port1.close();
  assert.strictEqual(buffer.byteLength, 0);
}

/** Each value as an object whose conversion is appended to `order`. */
function noting(values, order) {
  return values.map((value, i) => ({
    valueOf() {
      order.push(i);
      return value;
    },
  }));
}

/** A value that transfers `buffer` to another thread when it is converted. */
function detaching(value, buffer) {
  return {
    valueOf() {
      detach(buffer);
      return value;
    },
  };
}

function assertNear(actual, expected, tolerance) {
  assert.strictEqual(actual.length, expected.length);
  actual.forEach((value, i) => {
    const message = `[${i}]: ${actual} is not ${expected}`;
    assert(Math.abs(value - expected[i]) <= tolerance, message);
  });
}

/** The quaternion of a rotation about z. */
function turnZ(angle) {
  return [0, 0, Math.sin(angle / 2), Math.cos(angle / 2)];
}

/** A world of one entity with one clip, one state and one layer, which tests extend. */
function playOne(channels, { mode = 1, rest = {}, state = {}, layer = {}, play = {} } = {}) {
  const world = new ControllerWorld();
  const [entity] = world.entities(1);
  const { turned = [0, 0, 0], place = [0, 0, 0], size = [1, 1, 1] } = rest;
  entity.setTransform(turned, place, size);
  const clip = world.clip(holdClip({ 0: channels }));
  const binding = world.binding([[clip, [entity.handle]]], mode);
  const made = world.state([Object.assign({ clip }, play)], state);
  const controller = world.controller(binding, [Object.assign({ states: [made] }, layer)]);
  return { world, entity, clip, binding, state: made, controller };
}

/**
 * The rest pose that a binding holds of an entity, or null. An additive layer of nothing shows it:
 * position and rotation whole, and the scale to the part that the layer's weight leaves.
 */
function restOf(binding, entity) {
  const { world } = binding;
  const still = quaternionChannels(unturned);
  const channels = Object.assign({ PositionX: 0, PositionY: 0, PositionZ: 0 }, still, {
    ScaleX: 0,
    ScaleY: 0,
    ScaleZ: 0,
  });
  const clip = world.clip(holdClip({ 0: channels }));
  const groups = Array.from(binding.lists).concat([[clip, [entity.handle]]]);
  // The bound of the lists is that of the binding's first ones, so a binding for this has room.
  if (!binding.update(groups, 0, 0, 0)) {
    throw new Error('the binding has no room for one more list');
  }
  const controller = world.controller(binding, [
    { blendMode: additive, weight: 0.5, states: [world.state([{ clip, weight: 1 }])] },
  ]);
  const kept = entity.words.slice();
  entity.words.fill(-777, 1, 11);
  controller.update();
  const found =
    entity.words[5] === -777
      ? null
      : {
          place: position(entity),
          size: scale(entity).map((x) => 2 * x),
          turned: rotation(entity),
        };
  entity.words.set(kept);
  binding.update(groups.slice(0, -1), 0, 0, 0);
  return found;
}

/** Lists of one clip that leave room for more later. */
function roomy(groups, room = 40) {
  const [buffer, , clips, words] = targetLists(groups);
  const large = new ArrayBuffer(buffer.byteLength + 4 * room);
  new Uint8Array(large).set(new Uint8Array(buffer));
  return [large, 0, clips, words + room];
}

/** A binding with room for longer lists than its first. */
function roomyBinding(world, groups, mode = 1) {
  const real = world.engine.createAnimationClipBinding;
  world.engine.createAnimationClipBinding = (...args) =>
    real.call(world.engine, ...roomy(groups), args[4]);
  try {
    return world.binding(groups, mode);
  } finally {
    delete world.engine.createAnimationClipBinding;
  }
}

describe('createAnimationClipBinding', () => {
  function fixture() {
    const world = new ControllerWorld();
    const [entity] = world.entities(1);
    const clip = world.clip(holdClip({ 0: { PositionX: 5 } }));
    return { world, entity, clip, engine: world.engine };
  }

  it('needs five arguments', () => {
    const { engine, clip, entity } = fixture();
    const args = [Uint32Array.of(clip, 1, entity.handle).buffer, 0, 1, 2, 1];
    for (let count = 0; count < 5; ++count) {
      assert.strictEqual(engine.createAnimationClipBinding(...args.slice(0, count)), null);
    }
    assert.strictEqual(engine.createAnimationClipBinding(...args).id, 0x1000);
    assert.strictEqual(engine.createAnimationClipBinding(...args, 9, 9).id, 0x2000);
  });

  it('creates an object with "id" only and two methods', () => {
    const { engine, clip, entity } = fixture();
    const lists = Uint32Array.of(clip, 1, entity.handle).buffer;
    const binding = engine.createAnimationClipBinding(lists, 0, 1, 2, 1);
    assert.strictEqual(binding.constructor.name, 'EngineAnimationClipBinding');
    assert.deepStrictEqual(Object.getOwnPropertyDescriptors(binding), {
      id: { value: 0x1000, writable: true, enumerable: true, configurable: true },
    });
    const prototype = Object.getPrototypeOf(binding);
    assert.deepStrictEqual(Reflect.ownKeys(prototype), [
      'updateBinding',
      'writeDefaultValues',
      'constructor',
    ]);
    assert.strictEqual(Object.getPrototypeOf(prototype), Object.prototype);
    // It took no block of shared memory: 0 and 1 are the lists, 2 is the entity's.
    assert.strictEqual(engine.createEntity().memoryID, 3);
  });

  it('accepts only an ArrayBuffer', () => {
    const { engine, clip, entity } = fixture();
    const words = Uint32Array.of(clip, 1, entity.handle);
    const shared = new SharedArrayBuffer(12);
    new Uint32Array(shared).set(words);
    for (const other of [
      words,
      over(Uint8Array, words),
      over(DataView, words),
      Buffer.from(words.buffer),
      shared,
      null,
      undefined,
      false,
      true,
      0,
      12,
      'lists',
      {},
      [clip, 1, entity.handle],
    ]) {
      assert.strictEqual(engine.createAnimationClipBinding(other, 0, 1, 2, 1), null);
    }
    const { buffer } = words;
    detach(buffer);
    assert.strictEqual(engine.createAnimationClipBinding(buffer, 0, 1, 2, 1), null);
  });

  it('refuses a buffer that ends before its lists', () => {
    const { engine, clip, entity } = fixture();
    const lists = Uint32Array.of(clip, 1, entity.handle, 0, 0).buffer;
    for (const [offset, clips, words, expected] of [
      [0, 1, 2, true],
      [8, 1, 2, true],
      [9, 1, 2, false],
      [12, 1, 2, false],
      [0, 1, 4, true],
      [0, 1, 5, false],
      [0, 4, 1, true],
      [0, 4, 2, false],
      [20, 0, 0, true],
      [21, 0, 0, false],
      // In 32 bits these sums would wrap to small numbers.
      [0xffffffff, 1, 2, false],
      [0xfffffff8, 1, 1, false],
      [0, 0x40000000, 2, false],
      [0, 1, 0x3fffffff, false],
      [0, 0x80000000, 0x80000000, false],
      [0, -1, 2, false],
    ]) {
      const made = engine.createAnimationClipBinding(lists, offset, clips, words, 0);
      assert.strictEqual(made !== null, expected, `${offset}, ${clips}, ${words}`);
    }
  });

  it('returns id 0, and uses no handle, for a count of 0', () => {
    const { engine, clip, entity } = fixture();
    const lists = Uint32Array.of(clip, 1, entity.handle).buffer;
    for (const [clips, words] of [
      [0, 0],
      [0, 2],
      [1, 0],
      [NaN, 2],
      [undefined, 2],
      ['x', 1],
      [0.9, 1],
      [1, null],
    ]) {
      const refused = engine.createAnimationClipBinding(lists, 0, clips, words, 1);
      assert.deepStrictEqual(Reflect.ownKeys(refused), ['id']);
      assert.strictEqual(refused.id, 0);
      assert.strictEqual(refused.constructor.name, 'EngineAnimationClipBinding');
      assert.strictEqual(refused.updateBinding(lists, 0, 1, 2, 0, 0, 0), false);
      assert.strictEqual(refused.writeDefaultValues(), null);
    }
    assert.strictEqual(engine.createAnimationClipBinding(lists, 0, 1, 2, 1).id, 0x1000);
  });

  it('converts its numbers by the rules of JavaScript', () => {
    const { world, entity, clip } = fixture();
    const lists = Uint32Array.of(0, clip, 1, entity.handle).buffer;
    for (const args of [
      ['4', '1', '2', '1'],
      [4.9, true, [2], 1.5],
      [0x100000004, 1, 2, 0x100000001],
    ]) {
      const object = world.keep(world.engine.createAnimationClipBinding(lists, ...args));
      const controller = world.controller(object, [{ states: [world.state([{ clip }])] }]);
      entity.words[5] = 0;
      controller.update();
      assert.strictEqual(entity.words[5], 5, String(args));
    }
  });

  it('converts each number once and in order, also if the lists are refused', () => {
    const { engine, clip, entity } = fixture();
    const lists = Uint32Array.of(clip, 1, entity.handle).buffer;
    const gone = lists.slice(0);
    detach(gone);
    for (const [buffer, words, refused] of [
      [lists, 2, false],
      [lists, 3, true],
      [gone, 2, true],
      [new ArrayBuffer(0), 2, true],
    ]) {
      const order = [];
      const args = noting([0, 1, words, 1], order);
      const made = engine.createAnimationClipBinding(buffer, ...args);
      assert.strictEqual(made === null, refused);
      assert.deepStrictEqual(order, [0, 1, 2, 3]);
    }
    const order = [];
    const { createAnimationClipBinding } = engine;
    const numbers = noting([0, 1, 2, 1], order);
    assert.strictEqual(createAnimationClipBinding.call(engine, 'lists', ...numbers), null);
    assert.strictEqual(
      createAnimationClipBinding.call(engine, lists, ...numbers.slice(0, 3)),
      null
    );
    assert.deepStrictEqual(order, []);
  });

  it('refuses a buffer that the conversion of a number detaches', () => {
    const { engine, clip, entity } = fixture();
    const words = Uint32Array.of(clip, 1, entity.handle);
    [0, 1, 2, 1].forEach((value, i, numbers) => {
      const lists = words.slice().buffer;
      const args = numbers.slice();
      args[i] = detaching(value, lists);
      assert.strictEqual(engine.createAnimationClipBinding(lists, ...args), null, `number ${i}`);
    });
    assert.strictEqual(engine.createAnimationClipBinding(words.buffer, 0, 1, 2, 1).id, 0x1000);
  });

  it('reads the lists at any offset, and does not keep the buffer', () => {
    const { world, entity, clip } = fixture();
    for (const offset of [0, 1, 2, 3, 4, 7, 4096]) {
      const bytes = new ArrayBuffer(offset + 12);
      const view = new DataView(bytes);
      [clip, 1, entity.handle].forEach((w, i) => view.setUint32(offset + 4 * i, w, true));
      const object = world.keep(world.engine.createAnimationClipBinding(bytes, offset, 1, 2, 1));
      new Uint8Array(bytes).fill(0xee);
      const controller = world.controller(object, [{ states: [world.state([{ clip }])] }]);
      entity.words[5] = 0;
      controller.update();
      assert.strictEqual(entity.words[5], 5, `offset ${offset}`);
    }
  });

  it('takes rest poses only in mode 1; without one nothing is animated', () => {
    for (const mode of [0, 2, 3, 5, 0x80000001, NaN, false, null, 'x', {}]) {
      const { entity, controller } = playOne({ PositionX: 5 }, { mode });
      entity.words[5] = -3;
      controller.update();
      assert.strictEqual(entity.words[5], -3, String(mode));
    }
    for (const mode of [1, '1', true, 1.9, [1]]) {
      const { entity, controller } = playOne({ PositionX: 5 }, { mode });
      controller.update();
      assert.strictEqual(entity.words[5], 5, String(mode));
    }
  });

  it('skips 2D entities, 0xFFFFFFFF, and unknown handles', () => {
    const world = new ControllerWorld();
    const [entity] = world.entities(1);
    const [flat] = world.add2D(1);
    const clip = world.clip(
      holdClip({
        0: { PositionX: 1 },
        1: { PositionX: 2 },
        2: { PositionX: 3 },
        3: { PositionX: 4 },
      })
    );
    flat.words.fill(-777);
    const before = bytesOf(flat.batch.buffer);
    const binding = world.binding([[clip, [none, flat.handle, 0x5000, entity.handle]]]);
    world.controller(binding, [{ states: [world.state([{ clip }], { fill: 1 })] }]).update();
    assert(bytesOf(flat.batch.buffer).equals(before));
    assert.strictEqual(entity.words[5], 4);
  });

  it('keeps the first list of a clip that is listed twice', () => {
    const world = new ControllerWorld();
    const [first, second] = world.entities(2);
    const clip = world.clip(holdClip({ 0: { PositionX: 5 } }));
    const binding = world.binding([
      [clip, [first.handle]],
      [clip, [second.handle]],
    ]);
    world.controller(binding, [{ states: [world.state([{ clip }])] }]).update();
    assert.deepStrictEqual([first.words[5], second.words[5]], [5, 0]);
    // The second list's entity is in none now, but it was resolved and has its rest pose.
    const other = world.clip(holdClip({ 0: { PositionX: 6 } }));
    assert(binding.update([[other, [second.handle]]], 0, 0, 0));
    world.controller(binding, [{ states: [world.state([{ clip: other }])] }]).update();
    assert.strictEqual(second.words[5], 6);
  });

  it('reads an entry one word past the target words, and none further', () => {
    const world = new ControllerWorld();
    const made = world.entities(3);
    const handles = made.map(({ handle }) => handle);
    const clip = world.clip(
      holdClip({ 0: { PositionX: 1 }, 1: { PositionX: 2 }, 2: { PositionX: 3 } })
    );
    const moved = (count, words) => {
      made.forEach((entity) => (entity.words[5] = 0));
      const bytes = Uint32Array.of(clip, count, ...handles).buffer;
      const object = world.keep(world.engine.createAnimationClipBinding(bytes, 0, 1, words, 1));
      assert.notStrictEqual(object.id, 0);
      world.controller(object, [{ states: [world.state([{ clip }])] }]).update();
      return made.map((entity) => entity.words[5]);
    };
    assert.deepStrictEqual(moved(3, 4), [1, 2, 3]);
    assert.deepStrictEqual(moved(3, 3), [1, 2, 3]);
    assert.deepStrictEqual(moved(3, 2), [0, 0, 0]);
    assert.deepStrictEqual(moved(2, 2), [1, 2, 0]);
    assert.deepStrictEqual(moved(2, 1), [0, 0, 0]);
    assert.deepStrictEqual(moved(1, 1), [1, 0, 0]);
  });

  it('creates a binding without lists if a clip is missing or a group is too long', () => {
    const world = new ControllerWorld();
    const [entity] = world.entities(1);
    const clip = world.clip(holdClip({ 0: { PositionX: 5 } }));
    for (const words of [
      [clip, 0x7000, 1, entity.handle, 0],
      [clip, clip, 9, entity.handle, 0],
      [clip, clip, 3, entity.handle, 0],
    ]) {
      const bytes = Uint32Array.from(words.concat(new Array(20).fill(none))).buffer;
      const object = world.keep(world.engine.createAnimationClipBinding(bytes, 0, 2, 3, 1));
      assert.notStrictEqual(object.id, 0);
      world.controller(object, [{ states: [world.state([{ clip }], { fill: 1 })] }]).update();
      assert.strictEqual(entity.words[5], 0);
      // After valid lists, the entities count as added.
      const sound = Uint32Array.of(clip, 1, entity.handle).buffer;
      assert.strictEqual(object.updateBinding(sound, 0, 1, 2, 0, 0, 1), true);
      world.controller(object, [{ states: [world.state([{ clip }])] }]).update();
      assert.strictEqual(entity.words[5], 5);
      entity.words[5] = 0;
    }
  });
});

describe('updateBinding', () => {
  function fixture() {
    const world = new ControllerWorld();
    const [first, second] = world.entities(2);
    const clip = world.clip(holdClip({ 0: { PositionX: 5 } }));
    const binding = world.binding([[clip, [first.handle, none]]]);
    return { world, first, second, clip, binding };
  }

  it('needs seven arguments, and returns false otherwise', () => {
    const { binding, clip, first } = fixture();
    const args = [Uint32Array.of(clip, 1, first.handle).buffer, 0, 1, 2, 0, 0, 0];
    for (let count = 0; count < 7; ++count) {
      assert.strictEqual(binding.object.updateBinding(...args.slice(0, count)), false);
    }
    assert.strictEqual(binding.object.updateBinding(...args), true);
    assert.strictEqual(binding.object.updateBinding(...args, 9), true);
  });

  it('returns false for other values than an ArrayBuffer, and for one that is too short', () => {
    const { binding, clip, first } = fixture();
    const words = Uint32Array.of(clip, 1, first.handle);
    const { object } = binding;
    for (const other of [words, over(DataView, words), null, undefined, false, true, 7, {}]) {
      assert.strictEqual(object.updateBinding(other, 0, 1, 2, 0, 0, 0), false);
    }
    assert.strictEqual(object.updateBinding(words.buffer, 1, 1, 2, 0, 0, 0), false);
    assert.strictEqual(object.updateBinding(words.buffer, 0, 1, 3, 0, 0, 0), false);
    assert.strictEqual(object.updateBinding(words.buffer, 0xfffffffc, 1, 2, 0, 0, 0), false);
    assert.strictEqual(object.updateBinding(words.buffer, 0, 0x40000000, 2, 0, 0, 0), false);
    detach(words.buffer);
    assert.strictEqual(object.updateBinding(words.buffer, 0, 1, 2, 0, 0, 0), false);
  });

  it('changes nothing if the lists are refused', () => {
    const { world, binding, clip, first } = fixture();
    const { object } = binding;
    const missing = Uint32Array.of(0x7000, 1, first.handle).buffer;
    const tooLong = Uint32Array.of(clip, 9, first.handle, none, none, none).buffer;
    first.words[5] = -9;
    const before = bytesOf(first.batch.buffer);
    for (const lists of [missing, tooLong]) {
      assert.strictEqual(object.updateBinding(lists, 0, 1, 2, 3, 3, 1), false);
      assert.strictEqual(object.updateBinding(lists, 0, 1, 2, 2, 2, 0), false);
    }
    assert(bytesOf(first.batch.buffer).equals(before));
    world.controller(binding, [{ states: [world.state([{ clip }])] }]).update();
    assert.strictEqual(first.words[5], 5);
  });

  it('converts each number once and in order, also if the lists are refused', () => {
    const { binding, clip, first } = fixture();
    const { object } = binding;
    const lists = Uint32Array.of(clip, 1, first.handle).buffer;
    const gone = lists.slice(0);
    detach(gone);
    for (const [buffer, words, expected] of [
      [lists, 2, true],
      [lists, 3, false],
      [gone, 2, false],
      [new ArrayBuffer(0), 2, false],
    ]) {
      const order = [];
      const args = noting([0, 1, words, 0, 0, 0], order);
      assert.strictEqual(object.updateBinding(buffer, ...args), expected);
      assert.deepStrictEqual(order, [0, 1, 2, 3, 4, 5]);
    }
    const order = [];
    const numbers = noting([0, 1, 2, 0, 0, 0], order);
    assert.strictEqual(object.updateBinding('lists', ...numbers), false);
    assert.strictEqual(object.updateBinding(lists, ...numbers.slice(0, 5)), false);
    assert.deepStrictEqual(order, []);
  });

  it('changes nothing if the conversion of a number detaches the buffer', () => {
    const { world, binding, clip, first, second } = fixture();
    const { object } = binding;
    const words = Uint32Array.of(clip, 1, second.handle);
    const before = bytesOf(first.batch.buffer);
    [0, 1, 2, 3, 3, 1].forEach((value, i, numbers) => {
      const lists = words.slice().buffer;
      const args = numbers.slice();
      args[i] = detaching(value, lists);
      assert.strictEqual(object.updateBinding(lists, ...args), false, `number ${i}`);
    });
    assert(bytesOf(first.batch.buffer).equals(before));
    world.controller(binding, [{ states: [world.state([{ clip }])] }]).update();
    assert.strictEqual(first.words[5], 5);
    assert.strictEqual(second.words[5], 0);
  });

  it('empties a binding for no clips', () => {
    const { world, binding, clip, first } = fixture();
    assert.strictEqual(binding.object.updateBinding(new ArrayBuffer(4), 0, 0, 0, 2, 0, 0), true);
    world.controller(binding, [{ states: [world.state([{ clip }])] }]).update();
    assert.strictEqual(first.words[5], 0);
  });

  it('bounds groups by the word count of creation, for any later count', () => {
    const { world, binding, clip, first, second } = fixture();
    const other = world.clip(holdClip({ 0: { PositionX: 6 }, 1: { PositionX: 7 } }));
    // At creation the area had three words.
    const { object } = binding;
    const long = Uint32Array.of(clip, other, 1, first.handle, 1, second.handle, 0, 0).buffer;
    assert.strictEqual(object.updateBinding(long, 0, 2, 6, 0, 0, 1), true);
    const longer = Uint32Array.of(clip, other, 1, first.handle, 2, second.handle, none, 0).buffer;
    assert.strictEqual(object.updateBinding(longer, 0, 2, 6, 0, 0, 1), false);
    const small = Uint32Array.of(other, 2, second.handle, first.handle).buffer;
    assert.strictEqual(object.updateBinding(small, 0, 1, 1, 0, 0, 1), true);
    world.controller(binding, [{ states: [world.state([{ clip: other }])] }]).update();
    assert.deepStrictEqual([first.words[5], second.words[5]], [7, 6]);
  });

  /**
   * Three entities at old rest poses: one that leaves, one that stays, one that comes; then new ones
   * in their records, then an update. What the records and the rest poses say after, by x.
   */
  function change(removedMode, keptMode, addedMode) {
    const world = new ControllerWorld();
    const [left, stays, comes] = world.entities(3);
    const all = [left, stays, comes];
    all.forEach((entity, i) => entity.setTransform([0, 0, 0], [i + 1, 0, 0], [2, 3, 4]));
    const clip = world.clip(holdClip({ 0: { PositionY: 1 } }));
    const binding = roomyBinding(world, [[clip, [left.handle, stays.handle]]]);
    all.forEach((entity, i) => entity.setTransform(turnZ(1), [10 * (i + 1), 0, 0], [5, 6, 7]));
    assert(
      binding.update([[clip, [stays.handle, comes.handle]]], removedMode, keptMode, addedMode)
    );
    const records = all.map((entity) => {
      const x = entity.words[5];
      // A record is entirely the old one or entirely the new one.
      assert.deepStrictEqual(scale(entity), x < 10 ? [2, 3, 4] : [5, 6, 7]);
      assert.strictEqual(entity.bytes[0], x < 10 ? 0 : 1);
      return x;
    });
    const rests = all.map((entity) => {
      const rest = restOf(binding, entity);
      if (rest === null) {
        return null;
      }
      assert.deepStrictEqual(rest.size, rest.place[0] < 10 ? [2, 3, 4] : [5, 6, 7]);
      assertNear(rest.turned, rest.place[0] < 10 ? unturned : turnZ(1), 1e-6);
      return rest.place[0];
    });
    return { records, rests };
  }

  for (const [mode, record, rest] of [
    [0, 10, 1],
    [1, 10, null],
    [2, 1, 1],
    [3, 1, null],
    [4, 10, null],
    [6, 1, null],
    [0x80000000, 10, null],
  ]) {
    it(`treats removed entities by mode ${mode}`, () => {
      const { records, rests } = change(mode, 0, 0);
      assert.deepStrictEqual([records[0], rests[0]], [record, rest]);
      assert.deepStrictEqual([records[1], rests[1], records[2], rests[2]], [20, 2, 30, null]);
    });
  }

  for (const [mode, record, rest] of [
    [0, 20, 2],
    [1, 20, 20],
    [2, 2, 2],
    [3, 2, 20],
    [4, 20, null],
    [5, 20, null],
    [6, 2, null],
    [7, 2, null],
  ]) {
    it(`treats kept entities by mode ${mode}`, () => {
      const { records, rests } = change(1, mode, 0);
      assert.deepStrictEqual([records[1], rests[1]], [record, rest]);
      assert.deepStrictEqual([records[0], rests[0], records[2], rests[2]], [10, null, 30, null]);
    });
  }

  for (const [mode, rest] of [
    [0, null],
    [1, 30],
    [2, null],
    [3, null],
    [5, null],
  ]) {
    it(`treats added entities by mode ${mode}`, () => {
      const { records, rests } = change(1, 0, mode);
      assert.deepStrictEqual([records[2], rests[2]], [30, rest]);
      assert.deepStrictEqual([records[0], rests[0], records[1], rests[1]], [10, null, 20, 2]);
    });
  }

  it('treats an entity without a rest pose as added', () => {
    const { entity, clip, binding } = playOne(
      { PositionX: 5 },
      { mode: 0, rest: { place: [1, 2, 3] } }
    );
    const groups = [[clip, [entity.handle]]];
    assert(binding.update(groups, 0, 1, 0));
    const { world } = binding;
    const controller = world.controller(binding, [{ states: [world.state([{ clip }])] }]);
    controller.update();
    assert.strictEqual(entity.words[5], 1);
    assert(binding.update(groups, 0, 0, 1));
    controller.update();
    assert.strictEqual(entity.words[5], 5);
  });

  it('marks and rebuilds the entities it writes back', () => {
    const { world, first, clip, binding } = fixture();
    world.command('addRoot', first);
    world.refresh([first]);
    first.words[5] = 9;
    world.refresh([first]);
    assert.strictEqual(first.matrix[12], 9);
    assert(binding.update([[clip, [first.handle]]], 0, 2, 0));
    assert.strictEqual(first.words[5], 0);
    world.refresh();
    assert.strictEqual(first.matrix[12], 0);
  });

  it('drops released entities', async () => {
    const { world, first, clip, binding } = fixture();
    const runtime = addon.runtimeOf(world.engine);
    const handle = (() => {
      const batch = world.engine.createEntity(true, 1);
      over(Float32Array, batch).fill(1, 8, 11);
      const lists = Uint32Array.of(clip, 2, first.handle, batch.id).buffer;
      assert(binding.object.updateBinding(lists, 0, 1, 3, 0, 0, 1));
      return [batch.id, batch.memoryID];
    })();
    assert(await collectUntil(() => !addon.hasBlock(runtime, handle[1])));
    assert(binding.update([[clip, [first.handle]]], 2, 3, 0));
    world.controller(binding, [{ states: [world.state([{ clip }], { fill: 1 })] }]).update();
    assert.strictEqual(first.words[5], 5);
  });
});

describe('writeDefaultValues', () => {
  it('returns null and writes nothing', () => {
    const { entity, binding } = playOne({ PositionX: 5 }, { rest: { place: [1, 2, 3] } });
    entity.setTransform(turnZ(2), [7, 8, 9], [4, 5, 6]);
    const before = bytesOf(entity.batch.buffer);
    assert.strictEqual(binding.object.writeDefaultValues(), null);
    assert.strictEqual(binding.object.writeDefaultValues(1, 2, 3), null);
    assert(bytesOf(entity.batch.buffer).equals(before));
    // It has a rest pose by which it could be moved.
    assert(binding.update(Array.from(binding.lists), 0, 2, 0));
    assert.deepStrictEqual(position(entity), [1, 2, 3]);
  });
});

for (const [method, className, bytesFor] of [
  ['createAnimatorControllerModel', 'EngineAnimatorControllerModel', (n) => 12 * n + 4],
  ['createAnimatorControllerStateModel', 'EngineAnimatorControllerStateModel', (n) => 20 * n + 12],
]) {
  describe(method, () => {
    it('needs one argument', () => {
      const engine = nq.getEngine();
      assert.strictEqual(engine[method](), null);
      assert.strictEqual(engine[method](undefined).id, 0);
    });

    it('creates a zeroed block of the size for its count', () => {
      const engine = nq.getEngine();
      [1, 2, 3, 100, 5000].forEach((count, i) => {
        const made = engine[method](count);
        assert.strictEqual(made.constructor.name, className);
        assert.deepStrictEqual(Reflect.ownKeys(made), ['id', 'buffer', 'memoryID']);
        assert.strictEqual(made.id, 0x1000 * (i + 1));
        assert.strictEqual(made.memoryID, 2 + i);
        assert(made.buffer instanceof ArrayBuffer);
        assert.strictEqual(made.buffer.byteLength, bytesFor(count));
        assert(over(Uint8Array, made).every((byte) => byte === 0));
      });
    });

    it('returns id 0 without a block for a count of 0, and uses no handle', () => {
      const engine = nq.getEngine();
      for (const count of [0, -0, NaN, null, false, 0.9, 'x', {}, 0x100000000]) {
        const refused = engine[method](count);
        assert.deepStrictEqual(Reflect.ownKeys(refused), ['id'], String(count));
        assert.strictEqual(refused.id, 0);
        assert.strictEqual(refused.constructor.name, className);
      }
      assert.strictEqual(engine[method](1).id, 0x1000);
    });

    it('converts by the rules of JavaScript, and ignores further arguments', () => {
      const engine = nq.getEngine();
      for (const [count, expected] of [
        ['3', 3],
        [true, 1],
        [2.9, 2],
        [[4], 4],
        [0x100000002, 2],
      ]) {
        const { byteLength } = engine[method](count, 9, 9).buffer;
        assert.strictEqual(byteLength, bytesFor(expected), String(count));
      }
    });

    it('shares handles with no other class', () => {
      const engine = nq.getEngine();
      const lists = Uint32Array.of(1, 1, 1).buffer;
      const ids = [
        engine.createAnimationClipBinding(lists, 0, 1, 2, 1).id,
        engine.createAnimatorControllerModel(1).id,
        engine.createAnimatorControllerStateModel(1).id,
        engine.createComponent(2, 1, 1).id,
        engine.createDataModel(1, lists).id,
      ];
      assert.deepStrictEqual(ids, new Array(5).fill(0x1000));
    });
  });
}

describe('setMaskAtIndex', () => {
  /** Three entities whose x goes to 8 by one layer, as far as the mask lets it. */
  function fixture() {
    const world = new ControllerWorld();
    const entities = world.entities(3);
    const clip = world.clip(
      holdClip({ 0: { PositionX: 8 }, 1: { PositionX: 8 }, 2: { PositionX: 8 } })
    );
    const handles = entities.map(({ handle }) => handle);
    const binding = world.binding([[clip, handles]]);
    const controller = world.controller(binding, [{ states: [world.state([{ clip }])] }]);
    const moved = () => {
      entities.forEach((entity) => (entity.words[5] = -1));
      controller.update();
      return entities.map((entity) => entity.words[5]);
    };
    const records = (...pairs) => {
      const view = new DataView(new ArrayBuffer(8 * pairs.length));
      pairs.forEach(([handle, weight], i) => {
        view.setUint32(8 * i, handle, true);
        view.setFloat32(8 * i + 4, weight, true);
      });
      return view.buffer;
    };
    return { world, entities, handles, controller, object: controller.object, moved, records };
  }

  it('scales the effect on an entity; one that is not named has weight 1', () => {
    const { object, handles, moved, records } = fixture();
    assert.deepStrictEqual(moved(), [8, 8, 8]);
    const mask = records([handles[0], 0.5], [handles[1], 0]);
    assert.strictEqual(object.setMaskAtIndex(0, mask, 0, 2), null);
    // Half of 8, and the rest of the weight goes to the identity's 0.
    assert.deepStrictEqual(moved(), [4, -1, 8]);
    assert.strictEqual(object.setMaskAtIndex(0, records([handles[2], -0.5]), 0, 1), null);
    assert.deepStrictEqual(moved(), [8, 8, -4]);
    object.setMaskAtIndex(0, records([handles[0], 2], [0x9000, 0]), 0, 2);
    assert.deepStrictEqual(moved(), [16, 8, 8]);
  });

  it('uses the first record of an entity', () => {
    const { object, handles, moved, records } = fixture();
    const mask = records([handles[1], 0.5], [handles[0], 0], [handles[1], 0], [handles[0], 1]);
    object.setMaskAtIndex(0, mask, 0, 4);
    assert.deepStrictEqual(moved(), [-1, 4, 8]);
  });

  it('needs four arguments', () => {
    const { object, handles, moved, records } = fixture();
    const args = [0, records([handles[0], 0]), 0, 1];
    for (let count = 0; count < 4; ++count) {
      assert.strictEqual(object.setMaskAtIndex(...args.slice(0, count)), null);
      assert.deepStrictEqual(moved(), [8, 8, 8], String(count));
    }
    assert.strictEqual(object.setMaskAtIndex(...args, 9), null);
    assert.deepStrictEqual(moved(), [-1, 8, 8]);
  });

  it('accepts an ArrayBuffer that is long enough, and changes nothing otherwise', () => {
    const { object, handles, moved, records } = fixture();
    object.setMaskAtIndex(0, records([handles[0], 0.5]), 0, 1);
    const mask = records([handles[1], 0], [handles[2], 0]);
    const gone = records([handles[1], 0]);
    detach(gone);
    for (const args of [
      [0, new Uint8Array(mask), 0, 2],
      [0, new Float32Array(mask), 0, 2],
      [0, new DataView(mask), 0, 2],
      [0, null, 0, 2],
      [0, undefined, 0, 0],
      [0, true, 0, 0],
      [0, {}, 0, 0],
      [0, gone, 0, 0],
      [0, mask, 0, 3],
      [0, mask, 1, 2],
      [0, mask, 9, 1],
      [0, mask, 17, 0],
      [0, mask, 0, 0x20000000],
      [0, mask, 0, 0xffffffff],
      [0, mask, 0xffffffff, 1],
      [0, mask, -8, 1],
      [1, mask, 0, 2],
      [-1, mask, 0, 2],
      [0xffffffff, mask, 0, 0],
    ]) {
      assert.strictEqual(object.setMaskAtIndex(...args), null);
      assert.deepStrictEqual(moved(), [4, 8, 8]);
    }
  });

  it('converts each number once and in order, before it reads the memory', () => {
    const { object, handles, moved, records } = fixture();
    object.setMaskAtIndex(0, records([handles[0], 0.5]), 0, 1);
    const mask = records([handles[1], 0]);
    const order = [];
    const [index, byteOffset, count] = noting([0, 0, 2], order);
    object.setMaskAtIndex(index, mask, byteOffset, count);
    assert.deepStrictEqual(order, [0, 1, 2]);
    for (const place of [0, 2, 3]) {
      const gone = mask.slice(0);
      const args = [0, gone, 0, 1];
      args[place] = detaching(args[place], gone);
      assert.strictEqual(object.setMaskAtIndex(...args), null);
    }
    assert.deepStrictEqual(moved(), [4, 8, 8]);
  });

  it('reads records at any offset, and does not keep the buffer', () => {
    const { object, handles, moved, records } = fixture();
    for (const offset of [0, 1, 3, 8, 13]) {
      const bytes = new Uint8Array(offset + 8);
      bytes.set(new Uint8Array(records([handles[1], 0.25])), offset);
      object.setMaskAtIndex('0', bytes.buffer, String(offset), 1.5);
      bytes.fill(0);
      assert.deepStrictEqual(moved(), [8, 2, 8], `offset ${offset}`);
      object.setMaskAtIndex(0, bytes.buffer, offset, 0);
      assert.deepStrictEqual(moved(), [8, 8, 8]);
    }
    // No records at the very end of a buffer are a mask too.
    object.setMaskAtIndex(0, records([handles[0], 0]), 0, 1);
    object.setMaskAtIndex(0, new ArrayBuffer(8), 8, 0);
    assert.deepStrictEqual(moved(), [8, 8, 8]);
  });

  it('sets the mask of one layer only', () => {
    const { world, controller, handles, moved, records, object } = fixture();
    const two = world.controller(controller.binding, [
      { states: controller.layers[0].states },
      { states: controller.layers[0].states, weight: 0.5 },
    ]);
    two.object.setMaskAtIndex(1, records([handles[0], 0]), 0, 1);
    object.setMaskAtIndex(0, records([handles[1], 0]), 0, 1);
    assert.deepStrictEqual(moved(), [8, -1, 8]);
    two.update();
    // Where the second layer applies, half of the result is the rest pose.
    const shown = handles.map((handle) => world.byHandle.get(handle).words[5]);
    assert.deepStrictEqual(shown, [8, 4, 4]);
  });

  it('does nothing on a controller of no layers', () => {
    const engine = nq.getEngine();
    const nothing = engine.createAnimatorControllerModel(0);
    assert.strictEqual(nothing.setMaskAtIndex(0, new ArrayBuffer(8), 0, 1), null);
    assert.strictEqual(nothing.update(0, new ArrayBuffer(8)), null);
  });
});

describe('update', () => {
  it('needs two arguments, the second an ArrayBuffer, and reads neither', () => {
    const { entity, controller } = playOne({ PositionX: 5 });
    const { object } = controller;
    const buffer = new ArrayBuffer(8);
    for (const args of [
      [],
      [buffer],
      [buffer, undefined],
      [buffer, null],
      [buffer, true],
      [buffer, new Uint8Array(8)],
      [buffer, new DataView(buffer)],
      [buffer, new SharedArrayBuffer(8)],
      [buffer, {}],
    ]) {
      assert.strictEqual(object.update(...args), null);
      assert.strictEqual(entity.words[5], 0);
    }
    const gone = new ArrayBuffer(8);
    detach(gone);
    for (const args of [
      [null, buffer],
      [Symbol('unread'), new ArrayBuffer(0), 9],
      [undefined, gone],
    ]) {
      entity.words[5] = 0;
      assert.strictEqual(object.update(...args), null);
      assert.strictEqual(entity.words[5], 5);
    }
  });

  it('does not compute trees under no root, unlike updateAnimatorControllers', () => {
    const { world, entity, controller } = playOne({ PositionX: 5 });
    entity.matrix.fill(-777);
    controller.object.update(0, new ArrayBuffer(0));
    assert.strictEqual(entity.words[5], 5);
    assert(entity.matrix.every((value) => value === -777));
    world.refresh();
    assert(entity.matrix.every((value) => value === -777));
    controller.update();
    assert.deepStrictEqual(Array.from(entity.matrix.subarray(12, 15)), [5, 0, 0]);
  });
});

describe('updateAnimatorControllers', () => {
  /** Three controllers of an entity each that go to 5. */
  function fixture() {
    const world = new ControllerWorld();
    const clip = world.clip(holdClip({ 0: { PositionX: 5 } }));
    const parts = [0, 1, 2].map(() => {
      const [entity] = world.entities(1);
      const binding = world.binding([[clip, [entity.handle]]]);
      const controller = world.controller(binding, [{ states: [world.state([{ clip }])] }]);
      return { entity, controller };
    });
    const ids = parts.map(({ controller }) => controller.id);
    const moved = (...args) => {
      parts.forEach(({ entity }) => (entity.words[5] = 0));
      assert.strictEqual(world.engine.updateAnimatorControllers(...args), null);
      return parts.map(({ entity }) => entity.words[5]);
    };
    return { ids, moved };
  }

  it('updates as many as the first word says, on workers or not', () => {
    const { ids, moved } = fixture();
    assert.deepStrictEqual(moved(Uint32Array.of(1, ids[1])), [0, 5, 0]);
    assert.deepStrictEqual(moved(Uint32Array.of(2, ids[0], ids[2], ids[1])), [5, 0, 5]);
    assert.deepStrictEqual(moved(Uint32Array.of(3, ...ids).buffer, 9), [5, 5, 5]);
  });

  it('reads views at odd offsets', () => {
    const { ids, moved } = fixture();
    const odd = new Uint8Array(19);
    odd.set(new Uint8Array(Uint32Array.of(3, ...ids).buffer), 3);
    assert.deepStrictEqual(moved(odd.subarray(3)), [5, 5, 5]);
    assert.deepStrictEqual(moved(new DataView(odd.buffer, 3)), [5, 5, 5]);
    assert.deepStrictEqual(moved(Buffer.from(Uint32Array.of(2, ...ids).buffer)), [5, 5, 0]);
  });

  it('does nothing without arguments, for a count of 0, and for a short buffer', () => {
    const { ids, moved } = fixture();
    assert.deepStrictEqual(moved(), [0, 0, 0]);
    for (const words of [
      [0],
      [0, ids[0]],
      [1],
      [4, ...ids],
      [0x3fffffff, ...ids],
      [none, ...ids],
    ]) {
      assert.deepStrictEqual(moved(Uint32Array.from(words)), [0, 0, 0], String(words));
    }
    const bytes = Uint32Array.of(3, ...ids).buffer;
    assert.deepStrictEqual(moved(bytes.slice(0, 15)), [0, 0, 0]);
    assert.deepStrictEqual(moved(new Uint8Array(bytes, 0, 15)), [0, 0, 0]);
  });

  it('skips unknown handles', () => {
    const { ids, moved } = fixture();
    assert.deepStrictEqual(moved(Uint32Array.of(1, 0)), [0, 0, 0]);
    assert.deepStrictEqual(moved(Uint32Array.of(1, none)), [0, 0, 0]);
    const words = Uint32Array.of(6, 0, ids[0], none, 0x1001, 0x900000, ids[2]);
    assert.deepStrictEqual(moved(words), [5, 0, 5]);
  });

  for (const name of [
    'batchOfNumber',
    'batchOfUndefined',
    'batchOfEmptyBuffer',
    'batchOfDetachedView',
  ]) {
    it(`ends the process by a segmentation fault on the first word: ${name}`, () => {
      assertFault(runScript('controllers.js', name));
    });
  }

  it('computes a tree under no root, from its topmost entity', () => {
    const world = new ControllerWorld();
    const [top, middle, bone, beside] = world.entities(4);
    world.command('addChild', top, middle);
    world.command('addChild', middle, bone);
    world.command('addChild', top, beside);
    world.refresh();
    top.words[5] = 1;
    middle.words[5] = 20;
    world.refresh([top, middle, bone, beside]);
    [top, middle, bone, beside].forEach(({ matrix }) => matrix.fill(-777));
    const clip = world.clip(holdClip({ 0: { PositionX: 300 } }));
    const binding = world.binding([[clip, [bone.handle]]]);
    const controller = world.controller(binding, [{ states: [world.state([{ clip }])] }]);
    controller.update();
    assert.strictEqual(bone.matrix[12], 321);
    world.command('addRoot', top);
    world.refresh();
    bone.matrix.fill(-777);
    bone.words[5] = 0;
    controller.update();
    assert.strictEqual(bone.words[5], 300);
    assert.strictEqual(bone.matrix[12], -777);
    world.refresh();
    assert.strictEqual(bone.matrix[12], 321);
  });

  it('finds the tree by the first entry of the first list, including 0xFFFFFFFF', () => {
    const world = new ControllerWorld();
    const [first, second] = world.entities(2);
    const clips = [1, 2, 3].map((x) => world.clip(holdClip({ 0: { PositionX: x } })));
    const updated = (groups) => {
      const binding = world.binding(groups);
      const controller = world.controller(binding, [{ states: [] }]);
      // What has not changed would not be built again.
      world.refresh([first, second]);
      [first, second].forEach(({ matrix }) => matrix.fill(-777));
      controller.update();
      return [first, second].map(({ matrix }) => matrix[0] !== -777);
    };
    assert.deepStrictEqual(updated([[clips[0], [first.handle]]]), [true, false]);
    assert.deepStrictEqual(updated([[clips[0], [none, first.handle]]]), [false, false]);
    // An empty list is skipped; clips are in order of their handles, not in the order of the lists.
    assert.deepStrictEqual(
      updated([
        [clips[2], [first.handle]],
        [clips[1], [second.handle]],
        [clips[0], []],
      ]),
      [false, true]
    );
    assert.deepStrictEqual(
      updated([
        [clips[0], [none]],
        [clips[1], [second.handle]],
      ]),
      [false, false]
    );
  });
});

describe('blocks', () => {
  it('of new objects name nothing, and move nothing', () => {
    const { world, entity, binding } = playOne({ PositionX: 5 });
    const controller = world.engine.createAnimatorControllerModel(2);
    const update = () => world.engine.updateAnimatorControllers(Uint32Array.of(1, controller.id));
    update();
    over(Uint32Array, controller)[0] = binding.id;
    update();
    const state = world.engine.createAnimatorControllerStateModel(1);
    over(Uint32Array, controller)[3] = state.id;
    update();
    over(Float32Array, state)[0] = 1;
    update();
    assert.strictEqual(entity.words[5], 0);
    over(Float32Array, state)[1] = 1;
    world.refresh();
    entity.matrix.fill(-777);
    update();
    // The state now includes all bound entities.
    assert.notStrictEqual(entity.matrix[0], -777);
  });

  it('without a binding, or with an unknown one, move nothing', () => {
    const { entity, controller } = playOne({ PositionX: 5 }, { state: { fill: 1 } });
    for (const handle of [none, 0, 0x7000]) {
      controller.words[0] = handle;
      controller.update();
      assert.strictEqual(entity.words[5], 0);
    }
    controller.words[0] = controller.binding.id;
    controller.update();
    assert.strictEqual(entity.words[5], 5);
  });

  it('switch a layer off by blend modes from 2 on, or without a first state', () => {
    const { world, entity, controller, state } = playOne({ PositionX: 5 }, { state: { fill: 1 } });
    world.refresh();
    const untouched = () => {
      entity.matrix.fill(-777);
      controller.object.update(0, new ArrayBuffer(0));
      world.refresh();
      assert.strictEqual(entity.words[5], 0);
    };
    for (const mode of [2, 3, 0x80000000, none]) {
      controller.words[1] = mode;
      untouched();
    }
    controller.words[1] = 0;
    for (const first of [none, 0, 0x7000]) {
      controller.words[3] = first;
      untouched();
    }
    controller.words[3] = state.id;
    controller.update();
    assert.strictEqual(entity.words[5], 5);
  });

  it('chain states until a handle that names none', () => {
    const { world, entity, clip, controller } = playOne({ PositionX: 8 });
    const states = [0.25, 0.25, 0.5].map((weight) => world.state([{ clip }], { weight }));
    controller.setLayer(0, { states });
    const shown = (end) => {
      states[1].words[2] = end;
      controller.update();
      return entity.words[5];
    };
    assert.strictEqual(shown(states[2].id), 8);
    assert.strictEqual(shown(none), 4);
    assert.strictEqual(shown(0), 4);
    assert.strictEqual(shown(0x7000), 4);
  });

  it('skip states of weight 0, but not of weight NaN', () => {
    const { world, entity, clip, controller } = playOne({ PositionX: 8 });
    const other = world.state([{ clip }], { weight: 0 });
    controller.setLayer(0, { states: [other, controller.layers[0].states[0]] });
    controller.update();
    assert.strictEqual(entity.words[5], 8);
    other.set({ weight: -0 });
    controller.update();
    assert.strictEqual(entity.words[5], 8);
    other.set({ weight: NaN });
    controller.update();
    assert(Number.isNaN(entity.words[5]));
  });
});

describe('a chain of states', () => {
  it('that loops is followed without an end', async () => {
    const { signal, stdout } = await runScriptForAMoment('controllers.js', 'statesInALoop');
    assert.strictEqual(stdout, 'about to end\n');
    assert.strictEqual(signal, 'SIGKILL');
  });
});

describe('a state', () => {
  it('whose clips all have weight 0 has no effect', () => {
    const { world, entity, state, controller } = playOne({ PositionX: 5 }, { play: { weight: 0 } });
    world.refresh();
    entity.words.fill(-777, 1);
    const before = bytesOf(entity.batch.buffer);
    controller.update();
    assert.deepStrictEqual(entity.words.subarray(1, 11), new Float32Array(10).fill(-777));
    // With rest poses filled in, all bound entities are built and marked, and nothing is stored.
    over(Uint8Array, entity.batch).set(before);
    entity.words.set([0, 0, 0, 1, 4, 5, 6, 1, 1, 1], 1);
    entity.bytes[0] = 1;
    state.set({ fill: 1 });
    controller.update();
    assert.deepStrictEqual(Array.from(entity.matrix.subarray(12, 15)), [4, 5, 6]);
    assert.deepStrictEqual(position(entity), [4, 5, 6]);
  });

  it('skips clips without a list in the binding, and released clips', async () => {
    const { world, entity, clip, controller } = playOne({ PositionX: 8 });
    const unlisted = world.clip(holdClip({ 0: { PositionX: 100 } }));
    const references = addon.coreReferences(world.engine);
    const gone = (() => {
      const bytes = new ArrayBuffer(44);
      new DataView(bytes).setUint32(0, 28, true);
      const model = world.engine.createDataModel(1, bytes);
      const lists = Uint32Array.of(clip, model.id, 1, entity.handle, 1).buffer;
      // The second group's only entry is read one word past the area.
      const grown = new ArrayBuffer(24);
      new Uint32Array(grown).set([...new Uint32Array(lists), entity.handle]);
      const made = world.keep(world.engine.createAnimationClipBinding(grown, 0, 2, 3, 1));
      controller.words[0] = made.id;
      return model.id;
    })();
    assert(await collectUntil(() => addon.coreReferences(world.engine) === references + 2));
    controller.setLayer(0, {
      states: [world.state([{ clip: unlisted }, { clip: gone }, { clip: 0 }, { clip }])],
    });
    controller.update();
    assert.strictEqual(entity.words[5], 8);
  });

  it('sums its clips by their weights, without clamping', () => {
    const world = new ControllerWorld();
    const [entity] = world.entities(1);
    const clips = [8, 100].map((x) => world.clip(holdClip({ 0: { PositionX: x } })));
    const binding = world.binding(clips.map((clip) => [clip, [entity.handle]]));
    const state = world.state(clips.map((clip) => ({ clip })));
    const controller = world.controller(binding, [{ states: [state] }]);
    for (const [weights, expected] of [
      [[1, 1], 108],
      [[0.5, 0.5], 54],
      [[0.25, 0.25], 27],
      [[-1, 2], 192],
      [[1, 0], 8],
    ]) {
      state.set({ plays: clips.map((clip, i) => ({ clip, weight: weights[i] })) });
      controller.update();
      assert.strictEqual(entity.words[5], expected);
    }
  });

  it('samples at its time, which wraps; below 0 it holds the first key', () => {
    const world = new ControllerWorld();
    const [entity] = world.entities(1);
    // Slopes of 1 per frame: 30 per second.
    const keys = [
      [0, 0, 30, 30],
      [10, 10, 30, 30],
    ];
    const clip = world.clip({ frameCount: 20, curves: [{ target: 0, type: 1, keys }] });
    const binding = world.binding([[clip, [entity.handle]]]);
    const state = world.state([{ clip }]);
    const controller = world.controller(binding, [{ states: [state] }]);
    for (const [time, expected] of [
      [0, 0],
      [4, 4],
      [2.5, 2.5],
      [10, 10],
      [15.5, 10],
      [20, 0],
      [22.5, 2.5],
      [63, 3],
      [-3, 0],
      [-3.5, 0],
      [-20, 0],
    ]) {
      state.set({ plays: [{ clip, time }] });
      entity.words[5] = -9;
      controller.update();
      assertNear([entity.words[5]], [expected], 1e-5);
    }
  });

  it('animates nothing by a clip of no frames', () => {
    const world = new ControllerWorld();
    const [entity] = world.entities(1);
    const clip = world.clip(Object.assign({ frameCount: 0 }, holdClip({ 0: { PositionX: 5 } })));
    const binding = world.binding([[clip, [entity.handle]]]);
    world.controller(binding, [{ states: [world.state([{ clip }])] }]).update();
    assert.strictEqual(entity.words[5], 0);
  });

  it('skips a target beyond its list', () => {
    const world = new ControllerWorld();
    const [entity] = world.entities(1);
    const clip = world.clip(holdClip({ 0: { PositionX: 5 }, 7: { PositionY: 6 } }));
    const binding = world.binding([[clip, [entity.handle]]]);
    world.controller(binding, [{ states: [world.state([{ clip }])] }]).update();
    assert.deepStrictEqual(position(entity), [5, 0, 0]);
  });

  it('completes angles from the rest pose only with fillDefaults', () => {
    const channels = { EulerY: 0.5 };
    const plain = playOne(channels, { rest: { turned: [0.2, 0.3, 0.4] } });
    plain.controller.update();
    assert.strictEqual(plain.entity.bytes[0], 0);
    assertNear(rotation(plain.entity).slice(0, 3), [0.2, 0.3, 0.4], 1e-7);

    // Angles rotate about z, then x, then y.
    const about = (axis, angle) => {
      const q = [0, 0, 0, Math.cos(angle / 2)];
      q[axis] = Math.sin(angle / 2);
      return q;
    };
    const product = ([ax, ay, az, aw], [bx, by, bz, bw]) => [
      aw * bx + ax * bw + ay * bz - az * by,
      aw * by + ay * bw + az * bx - ax * bz,
      aw * bz + az * bw + ax * by - ay * bx,
      aw * bw - ax * bx - ay * by - az * bz,
    ];
    const turned = (x, y, z) => product(product(about(1, y), about(0, x)), about(2, z));
    for (const [rest, expected] of [
      [
        [0.2, 0.3, 0.4],
        [0.2, 0.5, 0.4],
      ],
      // A rest pose that is a quaternion has no angles.
      [turnZ(1), [0, 0.5, 0]],
    ]) {
      const { entity, controller } = playOne(channels, {
        rest: { turned: rest },
        state: { fill: 1 },
      });
      controller.update();
      assert.strictEqual(entity.bytes[0], 1);
      assertNear(rotation(entity), turned(...expected), 1e-6);
    }
    // None at all: the whole rest pose.
    const none = playOne({ PositionX: 1 }, { rest: { turned: turnZ(1) }, state: { fill: NaN } });
    none.entity.setTransform(unturned, [0, 0, 0], [1, 1, 1]);
    none.controller.update();
    assertNear(rotation(none.entity), turnZ(1), 1e-6);
  });

  it('has no rotation for an incomplete quaternion, even with fillDefaults', () => {
    for (const fill of [0, 1]) {
      const { entity, controller } = playOne(
        { QuaternionW: 0, QuaternionX: 1, PositionX: 3 },
        { state: { fill }, rest: { turned: turnZ(1) } }
      );
      controller.update();
      assertNear(rotation(entity), turnZ(1), 1e-7);
      assert.strictEqual(entity.words[5], 3);
    }
  });
});

describe('an override layer', () => {
  it('stores only the channels of its clip', () => {
    const { entity, controller } = playOne({ PositionY: 5, ScaleZ: 7 });
    entity.setTransform([0.1, 0.2, 0.3], [1, 2, 3], [4, 5, 6]);
    controller.update();
    assert.deepStrictEqual(position(entity), [1, 5, 3]);
    assert.deepStrictEqual(scale(entity), [4, 5, 7]);
    assert.strictEqual(entity.bytes[0], 0);
    assertNear(rotation(entity).slice(0, 3), [0.1, 0.2, 0.3], 1e-7);
  });

  it('sets quaternion mode when it animates a rotation', () => {
    const { entity, controller } = playOne(quaternionChannels(turnZ(1)));
    assert.strictEqual(entity.bytes[0], 0);
    controller.update();
    assert.strictEqual(entity.bytes[0], 1);
    assertNear(rotation(entity), turnZ(1), 1e-6);
  });

  it('completes weights below 1 by an identity: position 0, scale 1', () => {
    const { entity, controller } = playOne(
      { PositionX: 8, ScaleX: 8 },
      { state: { weight: 0.5 }, rest: { place: [100, 0, 0], size: [100, 1, 1] } }
    );
    controller.update();
    assert.strictEqual(entity.words[5], 4);
    assert.strictEqual(entity.words[8], 4.5);
  });

  it('blends a rotation of weight below 1 towards the identity', () => {
    const { entity, controller } = playOne(quaternionChannels(turnZ(1)), {
      state: { weight: 0.5 },
      rest: { turned: turnZ(3) },
    });
    controller.update();
    const [, , z, w] = turnZ(1);
    const length = Math.hypot(0.5 * z, 0.5 * w + 0.5);
    assertNear(rotation(entity), [0, 0, (0.5 * z) / length, (0.5 * w + 0.5) / length], 1e-6);
  });

  it('completes from the rest pose of an entity whose handle equals the blended value', () => {
    const world = new ControllerWorld();
    const [first] = world.entities(1);
    first.setTransform([0, 0, 0], [600, 0, 0], [3, 3, 3]);
    // Half of 2 x 4096 is the first entity's handle.
    assert.strictEqual(first.handle, 4096);
    const [entity] = world.entities(1);
    const clip = world.clip(holdClip({ 0: {}, 1: { PositionX: 8192, ScaleX: 8193 } }));
    const binding = world.binding([[clip, [first.handle, entity.handle]]]);
    const state = world.state([{ clip }], { weight: 0.5 });
    world.controller(binding, [{ states: [state] }]).update();
    assert.strictEqual(entity.words[5], 4096 + 300);
    assert.strictEqual(entity.words[8], 4096.5 + 1.5);
  });

  it('enters a rest pose under the blended value, which may be a handle', () => {
    const world = new ControllerWorld();
    const [first] = world.entities(1);
    const [entity] = world.entities(1);
    assert.strictEqual(first.handle, 4096);
    const clip = world.clip(holdClip({ 0: { PositionY: 7 }, 1: { PositionX: 8192 } }));
    const only = world.binding([[clip, [none, entity.handle]]]);
    const half = world.state([{ clip }], { weight: 0.5 });
    world.controller(only, [{ states: [half] }]).update();
    assert.strictEqual(first.words[6], 0);
    // In a list now, and it has a rest pose already: it is one that stays.
    assert(only.update([[clip, [first.handle, entity.handle]]], 0, 0, 0) === true);
    const whole = world.state([{ clip }]);
    world.controller(only, [{ states: [whole] }]).update();
    assert.strictEqual(first.words[6], 7);
  });

  it('blends with the rest pose by a weight below 1', () => {
    const { entity, controller } = playOne(
      Object.assign({ PositionX: 8, ScaleX: 3 }, quaternionChannels(turnZ(1))),
      { layer: { weight: 0.5 }, rest: { place: [4, 0, 0], size: [2, 1, 1], turned: turnZ(2) } }
    );
    entity.setTransform([0, 0, 0], [77, 0, 0], [77, 1, 1]);
    controller.update();
    assert.strictEqual(entity.words[5], 6);
    assert.strictEqual(entity.words[8], 2.5);
    assertNear(rotation(entity), turnZ(1.5), 1e-6);
  });

  it('chooses the sign of a quaternion for the shorter arc', () => {
    const far = turnZ(1).map((value) => -value);
    const { entity, controller } = playOne(quaternionChannels(far), {
      layer: { weight: 0.5 },
      rest: { turned: turnZ(2) },
    });
    controller.update();
    assertNear(rotation(entity), turnZ(1.5), 1e-6);
  });

  it('scales values by a weight of 1 or more, and the tangent of the half angle of rotations', () => {
    const { entity, controller } = playOne(
      Object.assign({ PositionX: 8, ScaleX: 3 }, quaternionChannels(turnZ(1))),
      { layer: { weight: 1.5 }, rest: { place: [4, 0, 0], size: [2, 1, 1], turned: turnZ(2) } }
    );
    controller.update();
    assert.deepStrictEqual([entity.words[5], entity.words[8]], [12, 4.5]);
    assertNear(rotation(entity), turnZ(2 * Math.atan(1.5 * Math.tan(0.5))), 1e-6);
    controller.floats[2] = 1;
    controller.update();
    assert.deepStrictEqual([entity.words[5], entity.words[8]], [8, 3]);
    assertNear(rotation(entity), turnZ(1), 1e-6);
    controller.floats[2] = NaN;
    controller.update();
    assert(Number.isNaN(entity.words[5]) && Number.isNaN(entity.words[1]));
  });

  it('replaces values of lower layers, channel by channel', () => {
    const world = new ControllerWorld();
    const [entity] = world.entities(1);
    entity.setTransform([0, 0, 0], [100, 200, 300], [1, 1, 1]);
    const low = world.clip(holdClip({ 0: { PositionX: 8, PositionY: 9 } }));
    const high = world.clip(holdClip({ 0: { PositionX: 20, PositionZ: 30 } }));
    const binding = world.binding([low, high].map((clip) => [clip, [entity.handle]]));
    const states = [low, high].map((clip) => world.state([{ clip }]));
    const controller = world.controller(binding, [
      { states: [states[0]] },
      { states: [states[1]], weight: 0.5 },
    ]);
    controller.update();
    assert.deepStrictEqual(position(entity), [60, 9, 165]);
    controller.floats[5] = 0;
    controller.update();
    assert.deepStrictEqual(position(entity), [100, 9, 300]);
  });

  it('is the weighted sum of states whose weights sum to 1', () => {
    const world = new ControllerWorld();
    const [entity] = world.entities(1);
    const clips = [8, 16].map((x) => world.clip(holdClip({ 0: { PositionX: x, ScaleX: x } })));
    const binding = world.binding(clips.map((clip) => [clip, [entity.handle]]));
    const states = clips.map((clip, i) => world.state([{ clip }], { weight: [0.25, 0.75][i] }));
    world.controller(binding, [{ states }]).update();
    assert.deepStrictEqual([entity.words[5], entity.words[8]], [14, 14]);
  });

  it('skips channels of weight 0 that fillDefaults includes', () => {
    const world = new ControllerWorld();
    const [entity, other] = world.entities(2);
    other.setTransform([0, 0, 0], [1, 2, 3], [4, 5, 6]);
    const clip = world.clip(holdClip({ 0: { PositionX: 8 } }));
    const binding = world.binding([[clip, [entity.handle, other.handle]]]);
    const state = world.state([{ clip }], { fill: 1 });
    const controller = world.controller(binding, [{ states: [state] }]);
    const built = () => {
      [entity, other].forEach(({ words }) => (words[5] = 55));
      world.command('addRoot', entity);
      world.command('addRoot', other);
      world.refresh();
      [entity, other].forEach(({ matrix }) => matrix.fill(-777));
      controller.update();
      world.refresh();
      return [entity, other].map(({ matrix }) => matrix[12]);
    };
    assert.deepStrictEqual(built(), [8, 55]);
    assert.deepStrictEqual(position(other), [55, 2, 3]);
    controller.mask(0, [[other.handle, 0]]);
    assert.deepStrictEqual(built(), [8, -777]);
    controller.mask(0, [[other.handle, NaN]]);
    assert.deepStrictEqual(built(), [8, 55]);
    controller.mask(0, []);
    state.set({ fill: 0 });
    assert.deepStrictEqual(built(), [8, -777]);
  });
});

describe('an additive layer', () => {
  const rest = { place: [10, 20, 30], size: [2, 2, 2], turned: turnZ(1) };

  it('in layer 0 adds the whole rest position, and a part of the rest scale', () => {
    const channels = Object.assign({ PositionX: 4, ScaleX: 6 }, quaternionChannels(turnZ(0.5)));
    const { world, entity, clip, controller } = playOne(channels, {
      rest,
      layer: { blendMode: additive },
    });
    const start = world.clip(
      holdClip({ 0: Object.assign({ PositionX: 1, ScaleX: 2 }, quaternionChannels(turnZ(0.2))) })
    );
    const binding = world.binding([clip, start].map((handle) => [handle, [entity.handle]]));
    controller.words[0] = binding.id;
    const state = controller.layers[0].states[0];
    state.set({ plays: [{ clip, referenceClip: start }] });
    controller.update();
    assert.deepStrictEqual([entity.words[5], entity.words[8]], [13, 4]);
    assertNear(rotation(entity), turnZ(1.3), 1e-6);
    entity.setTransform(turnZ(1), [10, 20, 30], [2, 2, 2]);
    controller.floats[2] = 0.5;
    controller.update();
    assert.deepStrictEqual([entity.words[5], entity.words[8]], [11.5, 3]);
    assertNear(rotation(entity), turnZ(1 + 2 * Math.atan(0.5 * Math.tan(0.15))), 1e-6);
  });

  it('without a difference keeps rest position and rotation, and halves the scale at weight 0.5', () => {
    const channels = Object.assign(
      { PositionX: 4, PositionY: 4, PositionZ: 4, ScaleX: 6, ScaleY: 6, ScaleZ: 6 },
      quaternionChannels(turnZ(0.5))
    );
    const { entity, clip, controller, state } = playOne(channels, {
      rest,
      layer: { blendMode: additive, weight: 0.5 },
    });
    for (const play of [{ clip }, { clip, time: 7, referenceClip: clip, referenceTime: 7 }]) {
      state.set({ plays: [play] });
      entity.words.fill(-777, 1, 11);
      controller.update();
      assert.deepStrictEqual(position(entity), [10, 20, 30]);
      assert.deepStrictEqual(scale(entity), [1, 1, 1]);
      assertNear(rotation(entity), turnZ(1), 1e-6);
    }
  });

  it('subtracts its own start if the binding has no list for the reference', () => {
    const world = new ControllerWorld();
    const [entity] = world.entities(1);
    const keys = [
      [0, 3, 0, 0],
      [10, 5, 0, 0],
    ];
    const clip = world.clip({ curves: [{ target: 0, type: 1, keys }] });
    const unlisted = world.clip(holdClip({ 0: { PositionX: 100 } }));
    const binding = world.binding([[clip, [entity.handle]]]);
    for (const referenceClip of [none, 0, unlisted]) {
      const state = world.state([{ clip, time: 10, referenceClip, referenceTime: 10 }]);
      world.controller(binding, [{ blendMode: additive, states: [state] }]).update();
      assert.strictEqual(entity.words[5], 2);
    }
  });

  it('above others adds to lower layers; positions start from 0 if no lower layer animates them', () => {
    const world = new ControllerWorld();
    const [entity] = world.entities(1);
    entity.setTransform(turnZ(1), [10, 20, 30], [2, 2, 2]);
    const base = world.clip(
      holdClip({ 0: Object.assign({ PositionX: 8 }, quaternionChannels(turnZ(2))) })
    );
    const start = world.clip(
      holdClip({
        0: Object.assign({ PositionX: 1, PositionY: 1, ScaleX: 1 }, quaternionChannels(unturned)),
      })
    );
    const more = world.clip(
      holdClip({
        0: Object.assign({ PositionX: 3, PositionY: 4, ScaleX: 6 }, quaternionChannels(turnZ(0.5))),
      })
    );
    const handles = [entity.handle];
    const binding = world.binding([base, start, more].map((clip) => [clip, handles]));
    const low = world.state([{ clip: base }]);
    const high = world.state([{ clip: more, referenceClip: start }]);
    const controller = world.controller(binding, [
      { states: [low] },
      { blendMode: additive, weight: 1, states: [high] },
    ]);
    controller.update();
    assert.deepStrictEqual(position(entity), [10, 3, 30]);
    assert.deepStrictEqual(scale(entity), [5, 2, 2]);
    assertNear(rotation(entity), turnZ(2.5), 1e-6);
    // The lower layer off: it still counts. Rotations alone start from the rest pose.
    controller.words[1] = 2;
    controller.update();
    assert.deepStrictEqual(position(entity), [2, 3, 30]);
    assertNear(rotation(entity), turnZ(1.5), 1e-6);
  });

  it('skips targets that are not in the reference pose', () => {
    const world = new ControllerWorld();
    const [first, second] = world.entities(2);
    const clip = world.clip(holdClip({ 0: { PositionX: 3 }, 1: { PositionX: 4 } }));
    const reference = world.clip(holdClip({ 0: { PositionX: 1 } }));
    const binding = world.binding([
      [clip, [first.handle, second.handle]],
      [reference, [second.handle]],
    ]);
    const state = world.state([{ clip, referenceClip: reference }]);
    world.controller(binding, [{ blendMode: additive, states: [state] }]).update();
    assert.deepStrictEqual([first.words[5], second.words[5]], [0, 3]);
  });

  it('uses the first of several reference samples for an entity', () => {
    const world = new ControllerWorld();
    const [entity] = world.entities(1);
    const clip = world.clip(holdClip({ 0: { PositionX: 9 } }));
    const reference = world.clip(
      holdClip({ 0: { PositionY: 1 }, 1: { PositionX: 2 }, 2: { PositionX: 3 } })
    );
    const shown = (targets) => {
      entity.words[5] = 0;
      const binding = world.binding([
        [clip, [entity.handle]],
        [reference, targets],
      ]);
      const state = world.state([{ clip, referenceClip: reference }]);
      world.controller(binding, [{ blendMode: additive, states: [state] }]).update();
      return entity.words[5];
    };
    const { handle } = entity;
    assert.strictEqual(shown([none, handle, handle]), 7);
    assert.strictEqual(shown([none, none, handle]), 6);
    // This one says nothing of x: what one side has stays as it was.
    assert.strictEqual(shown([handle, handle, handle]), 9);
  });

  it('adds a rotation that only one side has without subtraction', () => {
    const { world, entity, clip } = playOne(quaternionChannels(turnZ(0.5)), { rest });
    const reference = world.clip(holdClip({ 0: { PositionX: 1 } }));
    const binding = world.binding([clip, reference].map((handle) => [handle, [entity.handle]]));
    entity.setTransform(unturned, [0, 0, 0], [1, 1, 1]);
    const state = world.state([{ clip, referenceClip: reference }]);
    world.controller(binding, [{ blendMode: additive, states: [state] }]).update();
    // The rest pose is that of the new binding, created before the reset.
    assertNear(rotation(entity), turnZ(1.5), 1e-6);
  });

  it('scales a rotation of weight below 1 towards the identity, after weighting it', () => {
    const { entity, clip, state, controller } = playOne(quaternionChannels(turnZ(0.5)), {
      layer: { blendMode: additive },
    });
    const world = controller.world;
    const reference = world.clip(holdClip({ 0: quaternionChannels(unturned) }));
    const binding = world.binding([clip, reference].map((handle) => [handle, [entity.handle]]));
    controller.words[0] = binding.id;
    for (const [weight, share] of [
      [1, 1],
      [0.5, 0.5],
      [2, 2],
    ]) {
      state.set({ weight: 1, plays: [{ clip, weight, referenceClip: reference }] });
      controller.update();
      assertNear(rotation(entity), turnZ(2 * Math.atan(share * Math.tan(0.25))), 1e-6);
      entity.setTransform(unturned, [0, 0, 0], [1, 1, 1]);
      state.set({ weight, plays: [{ clip, referenceClip: reference }] });
      controller.update();
      assertNear(rotation(entity), turnZ(2 * Math.atan(share * Math.tan(0.25))), 1e-6);
    }
  });

  it('does not include entities without curves, even with fillDefaults', () => {
    const world = new ControllerWorld();
    const [entity, other] = world.entities(2);
    world.command('addRoot', other);
    world.refresh([other]);
    const clip = world.clip(holdClip({ 0: { PositionX: 8 } }));
    const binding = world.binding([[clip, [entity.handle, other.handle]]]);
    const state = world.state([{ clip }], { fill: 1 });
    other.matrix.fill(-777);
    world.controller(binding, [{ blendMode: additive, states: [state] }]).update();
    world.refresh();
    assert(other.matrix.every((value) => value === -777));
  });
});

describe('random controllers', () => {
  const count = sanitized ? 60 : 300;
  const frames = sanitized ? 3 : 6;

  /** A world of `count` controllers, each with its own binding and entities. Same for the same seed. */
  function build(seed) {
    const random = createRandom(seed);
    const world = new ControllerWorld();
    const clips = Array.from({ length: 40 }, () => {
      const content = randomClip(random, 1 + random.below(6));
      return { id: world.clip(content), targets: 6 };
    });
    const [root] = world.entities(1);
    world.command('addRoot', root);
    const entities = [root];
    const parts = Array.from({ length: count }, (unused, i) => {
      const own = world.entities(2 + random.below(6));
      own.forEach((entity, element) => {
        const turned = [0, 0, 0, 0].map(() => random.real(-1, 1));
        const length = Math.hypot(...turned);
        entity.setTransform(
          random.below(2) === 0 ? turned.slice(1) : turned.map((x) => x / length),
          turned.slice(1).map(() => random.real(-3, 3)),
          turned.slice(1).map(() => random.real(0.5, 2))
        );
        if (element > 0) {
          world.command('addChild', own[random.below(element)], entity);
        }
      });
      if (i % 3 === 0) {
        world.command('addRoot', own[0]);
      } else if (i % 3 === 1) {
        world.command('addChild', root, own[0]);
      }
      entities.push(...own);
      const listed = Array.from({ length: 2 + random.below(3) }, () => random.pick(clips));
      const groups = listed.map(({ id, targets }) => [
        id,
        Array.from({ length: 1 + random.below(targets) }, () =>
          random.below(10) === 0 ? none : random.pick(own).handle
        ),
      ]);
      // One clip twice would keep its first list.
      const seen = new Set();
      const binding = world.binding(
        groups.filter(([id]) => !seen.has(id) && seen.add(id)),
        random.below(12) === 0 ? 0 : 1
      );
      const layers = Array.from({ length: 1 + random.below(3) }, () => ({
        states: Array.from({ length: 1 + random.below(3) }, () =>
          world.state(Array.from({ length: 1 + random.below(3) }, () => ({ clip: none })))
        ),
      }));
      return { own, binding, controller: world.controller(binding, layers), ids: [...seen, none] };
    });
    world.refresh(entities);
    return { random, world, parts, entities };
  }

  /** What all controllers are to show next. */
  function change({ random, parts }) {
    const time = () => random.pick([random.below(90), random.real(0, 90)]);
    for (const { own, controller, ids } of parts) {
      controller.layers.forEach((layer, i) => {
        for (const state of layer.states) {
          const plays = state.plays.map(() => ({
            clip: random.pick(ids),
            time: time(),
            weight: random.pick([1, 1, 0, random.real(0, 1), random.real(-0.5, 2)]),
            referenceClip: random.pick(ids),
            referenceTime: time(),
          }));
          const weight = random.pick([1, 0, random.real(0, 1), random.real(-0.5, 2)]);
          state.set({ weight, fill: random.pick([0, 0, 1, -3]), plays });
        }
        const mask = Array.from({ length: random.pick([0, 0, 1, 3]) }, () => [
          random.pick(own).handle,
          random.pick([0, 1, random.real(0, 1), random.real(-1, 2)]),
        ]);
        controller.setLayer(i, {
          blendMode: random.pick([0, 0, 0, 1, 1, 2]),
          weight: random.pick([1, 0.5, random.real(0, 1), random.real(-0.5, 2)]),
          states: layer.states,
          mask,
        });
      });
    }
  }

  const ways = {
    'by single calls': ({ parts }) => parts.forEach(({ controller }) => controller.update()),
    'in one batch': ({ world, parts }) => {
      const ids = parts.map(({ controller }) => controller.id);
      world.engine.updateAnimatorControllers(Uint32Array.of(ids.length, ...ids));
    },
  };

  it('give the same bytes in a batch as by single calls', () => {
    const [single, batch] = Object.keys(ways).map((way) => {
      const built = build(23);
      const shown = [];
      for (let frame = 0; frame < frames; ++frame) {
        change(built);
        ways[way](built);
        shown.push(...built.entities.map((entity) => bytesOf(entity.batch.buffer)));
        built.world.refresh();
        shown.push(...built.entities.map((entity) => bytesOf(entity.batch.buffer)));
      }
      return shown;
    });
    assert.strictEqual(single.length, batch.length);
    assert(single.length > 2 * frames * 3 * count);
    single.forEach((bytes, i) => assert(bytes.equals(batch[i]), `part ${i} differs`));
    // Something moves from each frame to the next.
    const half = single.length / frames;
    const moved = single.filter((bytes, i) => i >= half && !bytes.equals(single[i - half]));
    assert(moved.length > single.length / 2);
  });

  it('store the values computed from the records, operation by operation', () => {
    const built = build(29);
    let stored = 0;
    let turned = 0;
    for (let frame = 0; frame < frames; ++frame) {
      change(built);
      built.parts.forEach(({ own, controller }, i) => {
        const expected = new Map(own.map((entity) => [entity.handle, entity.words.slice(0, 11)]));
        for (const [handle, pose] of playController(controller)) {
          if (expected.has(handle)) {
            applyPose(pose, expected.get(handle));
            stored += pose.weights.filter((weight) => !Number.isNaN(weight)).length;
            turned += Number.isNaN(pose.rotationWeight) ? 0 : 1;
          }
        }
        controller.update();
        for (const entity of own) {
          const words = expected.get(entity.handle);
          assert.strictEqual(entity.bytes[0], over(Uint8Array, words)[0]);
          for (let word = 1; word < 11; ++word) {
            // Not-a-numbers are equal here, zeros of different sign are not.
            assert(
              Object.is(entity.words[word], words[word]),
              `frame ${frame}, controller ${i}, entity ${entity.handle}, word ${word}: ` +
                `${entity.words[word]}, not ${words[word]}`
            );
          }
        }
      });
    }
    assert(stored > 5 * count * frames, `${stored} channels`);
    assert(turned > count * frames, `${turned} rotations`);
  });
});

describe('lifetime of bindings, controllers and states', () => {
  it('holds one reference per wrapper and one per native value, and releases all', async () => {
    const engine = nq.getEngine();
    const runtime = addon.runtimeOf(engine);
    const references = addon.coreReferences(engine);
    const lists = Uint32Array.of(1, 1, 1).buffer;
    const blocks = (() => {
      const made = [
        engine.createAnimationClipBinding(lists, 0, 1, 2, 1),
        engine.createAnimatorControllerModel(2),
        engine.createAnimatorControllerStateModel(3),
      ];
      assert.strictEqual(addon.coreReferences(engine), references + 6);
      return made.slice(1).map(({ memoryID }) => memoryID);
    })();
    blocks.forEach((id) => assert.strictEqual(addon.hasBlock(runtime, id), true));
    assert(await collectUntil(() => addon.coreReferences(engine) === references));
    blocks.forEach((id) => assert.strictEqual(addon.hasBlock(runtime, id), false));
    // Handles come again.
    assert.strictEqual(engine.createAnimatorControllerModel(1).id, 0x1000);
  });

  it('allows the release of everything that a controller refers to, one after the other', async () => {
    const { engine } = new ControllerWorld();
    const runtime = addon.runtimeOf(engine);
    const references = addon.coreReferences(engine);
    const entity = engine.createEntity(true, 1);
    const floats = over(Float32Array, entity);
    floats.set([1, 1, 1], 8);
    const bytes = new DataView(new ArrayBuffer(44));
    [28, 0, 10, 1, 0, 1, 1].forEach((word, i) => bytes.setUint32(4 * i, word, true));
    bytes.setFloat32(4, 30, true);
    bytes.setFloat32(32, 5, true);
    const held = { clip: engine.createDataModel(1, bytes.buffer) };
    const lists = Uint32Array.of(held.clip.id, 1, entity.id).buffer;
    held.binding = engine.createAnimationClipBinding(lists, 0, 1, 2, 1);
    held.states = [0.5, 0.5].map((weight) => {
      const state = engine.createAnimatorControllerStateModel(1);
      over(Float32Array, state)[0] = weight;
      over(Uint32Array, state)[3] = held.clip.id;
      over(Float32Array, state)[5] = 1;
      return state;
    });
    new Uint32Array(held.states[0].buffer)[2] = held.states[1].id;
    const controller = engine.createAnimatorControllerModel(1);
    const words = over(Uint32Array, controller);
    words.set([held.binding.id, 0, 0, held.states[0].id]);
    over(Float32Array, controller)[2] = 1;
    const shown = () => {
      floats[5] = -1;
      engine.updateAnimatorControllers(Uint32Array.of(1, controller.id));
      engine.updateAnimatorControllers(Uint32Array.of(2, controller.id, controller.id + 0x1000));
      return floats[5];
    };
    assert.strictEqual(shown(), 5);
    let left = addon.coreReferences(engine);
    const drop = async (release) => {
      release();
      left -= 2;
      assert(await collectUntil(() => addon.coreReferences(engine) <= left));
    };
    await drop(() => held.states.pop());
    assert.strictEqual(shown(), 2.5);
    await drop(() => delete held.clip);
    assert.strictEqual(shown(), -1);
    await drop(() => delete held.binding);
    assert.strictEqual(shown(), -1);
    await drop(() => held.states.pop());
    assert.strictEqual(shown(), -1);
    assert.strictEqual(addon.coreReferences(engine), references + 4);
    assert.strictEqual(addon.hasBlock(runtime, controller.memoryID), true);
  });

  it('skips released entities and their tree', async () => {
    const world = new ControllerWorld();
    const [entity] = world.entities(1);
    const runtime = addon.runtimeOf(world.engine);
    const clip = world.clip(holdClip({ 0: { PositionX: 5 }, 1: { PositionX: 6 } }));
    const [id, controller] = (() => {
      const batch = world.engine.createEntity(true, 1);
      const lists = Uint32Array.of(clip, 2, batch.id, entity.handle).buffer;
      const binding = world.keep(world.engine.createAnimationClipBinding(lists, 0, 1, 3, 1));
      const state = world.state([{ clip }], { fill: 1 });
      return [batch.memoryID, world.controller(binding, [{ states: [state] }])];
    })();
    assert(await collectUntil(() => !addon.hasBlock(runtime, id)));
    controller.update();
    assert.strictEqual(entity.words[5], 6);
  });

  it('keeps the engine until the last of them is released', async () => {
    let made = null;
    const runtime = (() => {
      const engine = nq.getEngine();
      const lists = Uint32Array.of(1, 1, 1).buffer;
      made = [
        engine.createAnimationClipBinding(lists, 0, 1, 2, 1),
        engine.createAnimatorControllerModel(1),
        engine.createAnimatorControllerStateModel(1),
        engine.createAnimationClipBinding(lists, 0, 0, 2, 1),
        engine.createAnimatorControllerModel(0),
      ];
      return addon.runtimeOf(engine);
    })();
    while (made.length > 0) {
      await collect();
      assert.strictEqual(addon.runtimeReferences(runtime), 2, `${made.length} left`);
      made.pop();
    }
    assert(await collectUntil(() => addon.runtimeReferences(runtime) === 1));
  });
});

describe('class records of bindings, controllers and states', () => {
  it('name BindingBase, and the base of bindings and controllers', () => {
    const engine = nq.getEngine();
    const lists = Uint32Array.of(1, 1, 1).buffer;
    for (const [object, own] of [
      [engine.createAnimationClipBinding(lists, 0, 1, 2, 1), 'BindingEngineAnimationClipBinding'],
      [engine.createAnimatorControllerModel(1), 'BindingEngineAnimatorControllerModel'],
      [engine.createAnimatorControllerStateModel(0), 'BindingEngineAnimatorControllerStateModel'],
    ]) {
      for (const name of [
        'BindingBase',
        'BindingEngineBase',
        'BindingEngine',
        'BindingEngineEntity',
        'BindingEngineComponent',
        'BindingEngineDataModel',
        'BindingEngineAnimationClipBinding',
        'BindingEngineAnimatorControllerModel',
        'BindingEngineAnimatorControllerStateModel',
        'IEntity',
      ]) {
        const expected = [own, 'BindingBase', 'BindingEngineBase'].includes(name);
        assert.strictEqual(addon.isKindOf(object, name), expected, `${own}, ${name}`);
      }
      assert.strictEqual(addon.baseCount(object), 2);
    }
  });

  it('are registered once, however often that runs', () => {
    const [first, second] = [addon.registerClasses(), addon.registerClasses()];
    for (const [name, methods] of [
      ['EngineAnimationClipBinding', ['updateBinding', 'writeDefaultValues']],
      ['EngineAnimatorControllerModel', ['update', 'setMaskAtIndex']],
      ['EngineAnimatorControllerStateModel', []],
    ]) {
      assert.strictEqual(first[name].name, name);
      assert.strictEqual(second[name], first[name]);
      assert.deepStrictEqual(Object.keys(first[name].prototype), methods);
    }
    const { bindingBases, controllerBases, stateBases } = second;
    assert.deepStrictEqual([bindingBases, controllerBases, stateBases], [2, 2, 2]);
  });

  for (const name of ['constructBinding', 'constructController', 'constructState']) {
    it(`are of classes that JavaScript can not construct: ${name}`, () => {
      const result = runScript('controllers.js', name);
      assertFailedAssertion(result, '0 && "not implement"', 'BindingTemp/BindingEngine');
      assert.strictEqual(result.stdout, 'about to end\n');
    });
  }

  it('have methods in order of installation, in writable, undeletable properties', () => {
    const engine = nq.getEngine();
    const controller = engine.createAnimatorControllerModel(1);
    const state = engine.createAnimatorControllerStateModel(1);
    const prototype = Object.getPrototypeOf(controller);
    const names = ['update', 'setMaskAtIndex'];
    assert.deepStrictEqual(Reflect.ownKeys(prototype), [...names, 'constructor']);
    assert.deepStrictEqual(Reflect.ownKeys(Object.getPrototypeOf(state)), ['constructor']);
    for (const name of names) {
      const { value, writable, enumerable, configurable } = Object.getOwnPropertyDescriptor(
        prototype,
        name
      );
      assert.strictEqual(value.name, name);
      assert.deepStrictEqual([writable, enumerable, configurable], [true, true, false]);
    }
  });
});
