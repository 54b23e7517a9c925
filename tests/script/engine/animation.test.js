'use strict';
// Data models, animators and skinning components, as JavaScript sees them.
const assert = require('assert');
const { over } = require('../support/blocks');
const { MessageChannel } = require('worker_threads');
const { modulePath, addonPath, sanitized } = require('../support/host');
const { collect, collectUntil } = require('../support/collect');
const {
  runScript,
  assertCleanExit,
  assertFailedAssertion,
  assertFault,
} = require('../support/child');
const {
  applySample,
  holdClip,
  playClips,
  randomClip,
  trackCount,
  types,
  writeClip,
} = require('../../fixtures/clips');
const { TestWorld, createRandom } = require('../../fixtures/world');

const nq = require(modulePath);
const addon = require(addonPath);

const identity = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1];

/** Operations on an animator's block. */
class Animator {
  constructor(world, clipCount, targetCount) {
    this.engine = world.engine;
    this.component = world.keep(this.engine.createComponent(2, clipCount, targetCount));
    this.id = this.component.id;
    this.words = over(Uint32Array, this.component);
    this.floats = over(Float32Array, this.component);
    this.clipCount = clipCount;
  }

  /** What to play as clip `i`. */
  play(i, { clip, time = 0, weight = 1 }) {
    this.words[3 * i] = clip;
    this.floats[3 * i + 1] = time;
    this.floats[3 * i + 2] = weight;
  }

  /** Handles of the target table. */
  target(handles) {
    this.words.set(handles, 3 * this.clipCount);
  }

  update() {
    assert.strictEqual(this.engine.updateAnimator(this.id), null);
  }

  /** Plays the first clip at a time, and updates. */
  at(time) {
    this.floats[1] = time;
    this.update();
  }
}

/** Operations on a skinning component's block. */
class Skin {
  constructor(world, count) {
    this.engine = world.engine;
    this.component = world.keep(this.engine.createComponent(3, count));
    this.id = this.component.id;
    this.words = over(Uint32Array, this.component);
    this.floats = over(Float32Array, this.component);
    this.count = count;
    this.results = this.floats.subarray(1 + 2 * count);
  }

  /** The bones: [index of matrix, handle of entity] each. */
  set(model, bones) {
    this.words[0] = model;
    bones.forEach(([index, handle], i) => {
      this.words[1 + i] = index;
      this.words[1 + this.count + i] = handle;
    });
    this.results.fill(-777);
  }

  update() {
    assert.strictEqual(this.engine.updateSkinningMatrix(this.id), null);
  }

  /** Result of bone `i`; zeros without their sign. */
  matrix(i, size = 16) {
    return Array.from(this.results.subarray(i * size, (i + 1) * size), (value) => value + 0);
  }
}

class AnimationWorld extends TestWorld {
  keep(object) {
    this.batches.push(object);
    return object;
  }

  /** Handle of a new clip: of bytes, or of what writeClip takes. */
  clip(content) {
    const bytes = content && content.curves ? writeClip(content) : content;
    return this.keep(this.engine.createDataModel(1, bytes)).id;
  }

  bones(...matrices) {
    return this.keep(this.engine.createDataModel(2, Float32Array.from([].concat(...matrices)))).id;
  }

  /** Entities at rest, of scale 1. */
  entities(count, is3D = true) {
    const made = this.create(is3D, count);
    for (const entity of made) {
      if (is3D) {
        entity.setTransform([0, 0, 0], [0, 0, 0], [1, 1, 1]);
      } else {
        entity.setTransform2D(0, [0, 0], [1, 1]);
      }
    }
    return made;
  }

  roots(count, is3D = true) {
    const made = this.entities(count, is3D);
    made.forEach((entity) => this.command('addRoot', entity));
    this.refresh(made);
    return made;
  }

  /** An animator of one clip on some entities. */
  player(clip, targets) {
    const animator = new Animator(this, 1, targets.length);
    animator.play(0, { clip: this.clip(clip) });
    animator.target(targets.map(({ handle }) => handle));
    return animator;
  }

  /** An animator of one clip that moves one fresh entity: both. */
  playOne(clip, is3D = true) {
    const [entity] = this.entities(1, is3D);
    return { entity, animator: this.player(clip, [entity]) };
  }
}

/** A clip of one channel of its first target. */
function curve(type, keys, rest = {}) {
  return Object.assign({ curves: [{ target: 0, type, keys }] }, rest);
}

/** A pose of one target that is a rotation by `angle` about z. */
function turnZ(angle) {
  return holdClip({
    0: {
      QuaternionX: 0,
      QuaternionY: 0,
      QuaternionZ: Math.sin(angle / 2),
      QuaternionW: Math.cos(angle / 2),
    },
  });
}

function position({ words }) {
  return Array.from(words.subarray(5, 8));
}

function scale({ words }) {
  return Array.from(words.subarray(8, 11));
}

function rotation({ words }) {
  return Array.from(words.subarray(1, 5));
}

/** Column 4 of a world matrix: where it places its origin. */
function origin({ matrix }) {
  return Array.from(matrix.subarray(12, 15));
}

function bytesOf(buffer) {
  return Buffer.from(new Uint8Array(buffer));
}

function assertNear(actual, expected, tolerance) {
  assert.strictEqual(actual.length, expected.length);
  actual.forEach((value, i) => {
    const message = `[${i}]: ${actual} is not ${expected}`;
    assert(Math.abs(value - expected[i]) <= tolerance, message);
  });
}

function detach(buffer) {
  const { port1 } = new MessageChannel();
  port1.postMessage(buffer, [buffer]);
  port1.close();
}

describe('createComponent of animators', () => {
  it('needs three arguments', () => {
    const engine = nq.getEngine();
    assert.strictEqual(engine.createComponent(2), null);
    assert.strictEqual(engine.createComponent(2, 3), null);
    assert.strictEqual(engine.createComponent(2, undefined, undefined).id, 0);
  });

  it('creates a zeroed block of 12 bytes per clip and 4 per entity', () => {
    const engine = nq.getEngine();
    for (const [clips, entities, bytes] of [
      [1, 1, 16],
      [3, 5, 56],
      [2, 20000, 80024],
      [5000, 1, 60004],
    ]) {
      const animator = engine.createComponent(2, clips, entities);
      assert.strictEqual(animator.constructor.name, 'EngineComponent');
      assert.deepStrictEqual(Reflect.ownKeys(animator), ['id', 'buffer', 'memoryID']);
      assert(animator.buffer instanceof ArrayBuffer);
      assert.strictEqual(animator.buffer.byteLength, bytes);
      assert(over(Uint8Array, animator).every((byte) => byte === 0));
    }
  });

  it('returns id 0 without a block for a count of 0, and uses no handle', () => {
    const engine = nq.getEngine();
    for (const counts of [
      [0, 5],
      [5, 0],
      [0, 0],
      [NaN, 1],
      [1, 'x'],
      [0.9, 1],
    ]) {
      const refused = engine.createComponent(2, ...counts);
      assert.deepStrictEqual(Reflect.ownKeys(refused), ['id'], String(counts));
      assert.strictEqual(refused.id, 0);
      assert.strictEqual(refused.constructor.name, 'EngineComponent');
    }
    assert.strictEqual(engine.createComponent(2, 1, 1).id, 0x1000);
  });

  it('converts by the rules of JavaScript, and ignores further arguments', () => {
    const engine = nq.getEngine();
    assert.strictEqual(engine.createComponent('2', '2', 3.9).buffer.byteLength, 36);
    assert.strictEqual(engine.createComponent(2.5, true, [4]).buffer.byteLength, 28);
    assert.strictEqual(engine.createComponent(2, 0x100000001, 1, 9, 9).buffer.byteLength, 16);
  });
});

describe('createComponent of skinning components', () => {
  it('needs two arguments', () => {
    const engine = nq.getEngine();
    assert.strictEqual(engine.createComponent(3), null);
    assert.strictEqual(engine.createComponent(3, undefined).id, 0);
  });

  it('creates a zeroed block of 72 bytes per bone plus 4', () => {
    const engine = nq.getEngine();
    for (const count of [1, 2, 77, 5000]) {
      const skin = engine.createComponent(3, count);
      assert.strictEqual(skin.constructor.name, 'EngineComponent');
      assert.deepStrictEqual(Reflect.ownKeys(skin), ['id', 'buffer', 'memoryID']);
      assert.strictEqual(skin.buffer.byteLength, 72 * count + 4);
      assert(over(Uint8Array, skin).every((byte) => byte === 0));
    }
  });

  it('returns id 0 without a block for a count of 0', () => {
    const engine = nq.getEngine();
    const refused = engine.createComponent(3, 0);
    assert.deepStrictEqual(Reflect.ownKeys(refused), ['id']);
    assert.strictEqual(refused.id, 0);
    assert.strictEqual(engine.createComponent(3, '1').id, 0x1000);
  });

  it('numbers the handles of each kind separately, and blocks in common', () => {
    const engine = nq.getEngine();
    const made = [
      engine.createComponent(3, 1),
      engine.createComponent(2, 1, 1),
      engine.createComponent(1, 1),
      engine.createEntity(true),
      engine.createComponent(3, 1),
      engine.createComponent(2, 1, 1),
    ];
    const ids = made.map(({ id }) => id);
    assert.deepStrictEqual(ids, [0x1000, 0x1000, 0x1000, 0x1000, 0x2000, 0x2000]);
    // Blocks 0 and 1 are the lists.
    assert.deepStrictEqual(
      made.map(({ memoryID }) => memoryID),
      [2, 3, 4, 5, 6, 7]
    );
  });

  it('shares one class with the other kinds, without methods', () => {
    const engine = nq.getEngine();
    const skin = engine.createComponent(3, 1);
    assert.strictEqual(engine.createComponent(2, 1, 1).constructor, skin.constructor);
    assert.strictEqual(engine.createComponent(1).constructor, skin.constructor);
    const prototype = Object.getPrototypeOf(skin);
    assert.deepStrictEqual(Reflect.ownKeys(prototype), ['constructor']);
    assert.strictEqual(Object.getPrototypeOf(prototype), Object.prototype);
  });
});

describe('createDataModel', () => {
  it('needs two arguments', () => {
    const engine = nq.getEngine();
    assert.strictEqual(engine.createDataModel(), null);
    assert.strictEqual(engine.createDataModel(1), null);
    assert.strictEqual(engine.createDataModel(2), null);
    assert.strictEqual(engine.createDataModel(1, undefined).id, 0x1000);
  });

  it('creates objects with "id" only', () => {
    const engine = nq.getEngine();
    for (const [kind, bytes] of [
      [1, writeClip(curve(types.PositionX, [[0, 1]]))],
      [2, new ArrayBuffer(640)],
      [7, new ArrayBuffer(64)],
    ]) {
      const model = engine.createDataModel(kind, bytes);
      assert.strictEqual(model.constructor.name, 'EngineDataModel');
      assert.deepStrictEqual(Reflect.ownKeys(model), ['id']);
      assert.deepStrictEqual(Object.getOwnPropertyDescriptor(model, 'id'), {
        value: kind === 7 ? 0 : 0x1000,
        writable: true,
        enumerable: true,
        configurable: true,
      });
    }
    const prototype = Object.getPrototypeOf(engine.createDataModel(2, new ArrayBuffer(0)));
    assert.deepStrictEqual(Reflect.ownKeys(prototype), ['constructor']);
    assert.strictEqual(Object.getPrototypeOf(prototype), Object.prototype);
    // None of them took a block of shared memory.
    assert.strictEqual(engine.createEntity().memoryID, 2);
  });

  it('numbers the handles of both kinds separately', () => {
    const engine = nq.getEngine();
    const nothing = new ArrayBuffer(0);
    const ids = [1, 2, 2, 1, 2].map((kind) => engine.createDataModel(kind, nothing).id);
    assert.deepStrictEqual(ids, [0x1000, 0x1000, 0x2000, 0x2000, 0x3000]);
  });

  it('creates no model of other kinds, and their release does not affect others', async () => {
    const world = new AnimationWorld();
    const { entity, animator } = world.playOne(curve(types.PositionX, [[0, 5]]));
    const runtime = addon.runtimeOf(world.engine);
    const references = addon.coreReferences(world.engine);
    (() => {
      for (const kind of [0, 3, 7, -1, NaN, 'x', {}, 0x80000000]) {
        assert.strictEqual(world.engine.createDataModel(kind, new ArrayBuffer(64)).id, 0);
      }
    })();
    assert(await collectUntil(() => addon.coreReferences(world.engine) === references));
    assert.strictEqual(addon.runtimeReferences(runtime), 2);
    animator.update();
    assert.deepStrictEqual(position(entity), [5, 0, 0]);
  });

  it('converts its kind by the rules of JavaScript', () => {
    const engine = nq.getEngine();
    const nothing = new ArrayBuffer(0);
    for (const kind of [1, '1', 1.9, true, 0x100000001, [1]]) {
      assert.notStrictEqual(engine.createDataModel(kind, nothing, 9).id, 0, String(kind));
    }
  });

  /** What a clip in some bytes moves: its x, and 0 if it moves nothing. */
  function playedFrom(bytes) {
    const world = new AnimationWorld();
    const [entity] = world.entities(1);
    const animator = new Animator(world, 1, 1);
    animator.play(0, { clip: world.clip(bytes) });
    animator.target([entity.handle]);
    animator.update();
    return entity.words[5];
  }

  const seven = new Uint8Array(writeClip(curve(types.PositionX, [[0, 7]])));
  /** The clip in the middle of bytes that are no clip. */
  const framed = new Uint8Array(seven.length + 80).fill(0xee);
  framed.set(seven, 40);

  it('copies the range of a view of any kind', () => {
    const { buffer } = framed;
    const { length } = seven;
    for (const view of [
      new Uint8Array(buffer, 40, length),
      new Int8Array(buffer, 40, length),
      new Uint8ClampedArray(buffer, 40, length),
      new Int16Array(buffer, 40, length / 2),
      new Uint16Array(buffer, 40, length / 2),
      new Int32Array(buffer, 40, length / 4),
      new Uint32Array(buffer, 40, length / 4),
      new Float32Array(buffer, 40, length / 4),
      new DataView(buffer, 40, length),
      Buffer.from(buffer, 40, length),
      framed.subarray(40, 40 + length),
    ]) {
      assert.strictEqual(playedFrom(view), 7, view.constructor.name);
    }
    // 48 bytes, for elements of 8.
    const wide = new Uint8Array(64);
    wide.set(seven, 8);
    assert.strictEqual(playedFrom(new Float64Array(wide.buffer, 8, 6)), 7);
  });

  it('copies views at odd offsets, and small ones that have no buffer yet', () => {
    const odd = new Uint8Array(seven.length + 1);
    odd.set(seven, 1);
    assert.strictEqual(playedFrom(odd.subarray(1)), 7);
    assert.strictEqual(playedFrom(Uint8Array.from(seven)), 7);
  });

  it('accepts a buffer with any bytes after the last key', () => {
    assert.strictEqual(playedFrom(seven.slice().buffer), 7);
    assert.strictEqual(playedFrom(framed.slice(40).buffer), 7);
  });

  it('treats other values than buffers as no bytes', () => {
    const shared = new SharedArrayBuffer(seven.length);
    new Uint8Array(shared).set(seven);
    for (const other of [undefined, null, 0, 64, 'bytes', {}, Array.from(seven), shared]) {
      assert.strictEqual(playedFrom(other), 0);
    }
  });

  it('treats a detached buffer, and a view of one, as no bytes', () => {
    const bytes = seven.slice();
    const { buffer } = bytes;
    const part = new Uint32Array(buffer, 4, 2);
    detach(buffer);
    for (const detached of [bytes, part, buffer]) {
      assert.strictEqual(playedFrom(detached), 0);
      // The old length would be no multiple of 64.
      assert.notStrictEqual(nq.getEngine().createDataModel(2, detached).id, 0);
    }
  });

  it('keeps its copy when JavaScript changes or drops the bytes', async () => {
    const world = new AnimationWorld();
    const bytes = seven.slice();
    const [entity] = world.entities(1);
    const animator = new Animator(world, 1, 1);
    animator.play(0, { clip: world.clip(bytes.buffer) });
    animator.target([entity.handle]);
    const inverse = Float32Array.from(identity);
    const bones = world.bones(Array.from(inverse));
    const own = world.keep(world.engine.createDataModel(2, inverse)).id;
    bytes.fill(0xff);
    inverse.fill(NaN);
    detach(bytes.buffer);
    await collect();
    animator.update();
    assert.deepStrictEqual(position(entity), [7, 0, 0]);
    const [bone] = world.roots(1);
    const skin = new Skin(world, 1);
    for (const model of [own, bones]) {
      skin.set(model, [[0, bone.handle]]);
      skin.update();
      assert.deepStrictEqual(skin.matrix(0), identity);
    }
  });

  it('copies the range of a view of inverse bind matrices', () => {
    const world = new AnimationWorld();
    const [bone] = world.roots(1);
    const floats = new Float32Array(48).fill(NaN);
    floats.set(
      identity.map((value) => 3 * value),
      8
    );
    const view = new Float32Array(floats.buffer, 32, 16);
    const skin = new Skin(world, 1);
    skin.set(world.keep(world.engine.createDataModel(2, view)).id, [[0, bone.handle]]);
    skin.update();
    assert.deepStrictEqual(
      skin.matrix(0),
      identity.map((value) => 3 * value)
    );
  });

  it('accepts an empty buffer as a model without matrices', () => {
    const engine = nq.getEngine();
    assert.strictEqual(engine.createDataModel(2, new ArrayBuffer(0)).id, 0x1000);
    assert.strictEqual(engine.createDataModel(2, new Uint8Array(64).subarray(64)).id, 0x2000);
  });
});

describe('clip', () => {
  // At 32 frames per second, a span of 8 frames is a quarter of a second: all numbers are exact.
  const exact = { framesPerSecond: 32, frameCount: 16 };

  /** x at some times of a clip of position x keys. */
  function xAt(keys, times, rest = exact) {
    const { entity, animator } = new AnimationWorld().playOne(curve(types.PositionX, keys, rest));
    return times.map((time) => {
      entity.words[5] = -777;
      animator.at(time);
      return entity.words[5];
    });
  }

  it('interpolates by Hermite cubics, with slopes in units per second', () => {
    // Rises by 8: without slopes, with one of 32 at the start, with one of 32 at the end, with both.
    //   4: half of the way, 8 / 2; a slope adds 32 / 4 of 1/8 of the way, or takes it
    //   2: a quarter, 8 (3/16 - 2/64) = 1.25; slopes weigh 9/64 and -3/64
    const times = [2, 4];
    assert.deepStrictEqual(
      xAt(
        [
          [0, 0, 0, 0],
          [8, 8, 0, 0],
        ],
        times
      ),
      [1.25, 4]
    );
    assert.deepStrictEqual(
      xAt(
        [
          [0, 0, 0, 32],
          [8, 8, 0, 0],
        ],
        times
      ),
      [1.25 + 72 / 64, 5]
    );
    assert.deepStrictEqual(
      xAt(
        [
          [0, 0, 0, 0],
          [8, 8, 32, 0],
        ],
        times
      ),
      [1.25 - 24 / 64, 3]
    );
    assert.deepStrictEqual(
      xAt(
        [
          [0, 0, 0, 32],
          [8, 8, 32, 0],
        ],
        times
      ),
      [2, 4]
    );
    assert.deepStrictEqual(
      xAt(
        [
          [0, 0, 99, 32],
          [8, 8, 32, 99],
        ],
        [0.5, 7.75]
      ),
      [0.5, 7.75]
    );
  });

  it('holds the first value before the first key and the last one after the last', () => {
    const keys = [
      [3, 5, 1, 2],
      [9, 6, 3, 4],
    ];
    assert.deepStrictEqual(xAt(keys, [0, 2.5, 3, 9, 9.5, 15, 15.9]), [5, 5, 5, 6, 6, 6, 6]);
    assert.deepStrictEqual(xAt([[7, 5, 1, 2]], [0, 6.5, 7, 7.5, 15]), [5, 5, 5, 5, 5]);
  });

  it('returns the exact value at a key', () => {
    const keys = [
      [0, 0.1, 0, 1e30],
      [5, 0.7, 1e30, 1e30],
      [8, -0.3, 1e30, 0],
    ];
    const values = [0.1, 0.7, -0.3].map(Math.fround);
    assert.deepStrictEqual(xAt(keys, [0, 5, 8]), values);
  });

  it('returns the first of two keys on a frame, and continues from the second', () => {
    const keys = [
      [0, 0, 0, 0],
      [4, 1, 0, 0],
      [4, 9, 0, 0],
      [12, 1, 0, 0],
    ];
    assert.deepStrictEqual(xAt(keys, [2, 4, 8, 12]), [0.5, 1, 5, 1]);
  });

  it('is constant after and before a key with an infinite out-tangent, of either sign', () => {
    for (const infinite of [Infinity, -Infinity]) {
      const keys = [
        [0, 1, 0, 0],
        [4, 2, 0, infinite],
        [8, 3, 0, 0],
        [12, 4, 0, 0],
      ];
      // The out-tangent of frame 4 makes the segments after and before it constant.
      assert.deepStrictEqual(xAt(keys, [0, 2, 4, 6, 8, 10]), [1, 1, 2, 2, 3, 3.5]);
    }
  });

  it('becomes infinite, not stepped, by an infinite in-tangent', () => {
    const keys = [
      [0, 1, 0, 0],
      [8, 2, Infinity, 0],
    ];
    assert.deepStrictEqual(xAt(keys, [0, 4, 8]), [1, -Infinity, 2]);
  });

  it('wraps at its end', () => {
    const keys = [
      [0, 0, 0, 32],
      [24, 24, 32, 0],
    ];
    const clip = { framesPerSecond: 32, frameCount: 8 };
    const times = [8, 8.5, 10, 20, 12.25, 16, 7.75];
    assert.deepStrictEqual(xAt(keys, times, clip), [0, 0.5, 2, 4, 4.25, 0, 7.75]);
  });

  it('wraps whole negative times as 32-bit numbers, and clamps others to the first value', () => {
    const keys = [
      [0, 0, 0, 32],
      [8, 8, 32, 0],
    ];
    // 2^32 is 4 more than a multiple of 7.
    const clip = { framesPerSecond: 32, frameCount: 7 };
    assert.deepStrictEqual(xAt(keys, [-1, -2, -4, -0.5, -6.5], clip), [3, 2, 0, 0, 0]);
  });

  it('drops the fraction of its rate', () => {
    const keys = [
      [0, 0, 0, 32],
      [8, 0, 0, 0],
    ];
    for (const framesPerSecond of [32, 32.9]) {
      assert.deepStrictEqual(xAt(keys, [4], { framesPerSecond, frameCount: 16 }), [1]);
    }
  });

  it('without a rate has no values between its keys', () => {
    const rest = { framesPerSecond: 0.9, frameCount: 16 };
    const still = [
      [0, 1, 0, 0],
      [8, 2, 0, 0],
    ];
    // Slopes of 0 over infinite time are NaN, which writes nothing.
    assert.deepStrictEqual(xAt(still, [0, 4, 8], rest), [1, -777, 2]);
    const rising = [
      [0, 1, 0, 4],
      [8, 2, -4, 0],
    ];
    assert.deepStrictEqual(xAt(rising, [0, 4, 8], rest), [1, Infinity, 2]);
  });

  it('of no frames has no effect, but its targets count', () => {
    const world = new AnimationWorld();
    const [first, second] = world.entities(2);
    const silent = world.clip(Object.assign(holdClip({ 0: { PositionX: 1 } }), { frameCount: 0 }));
    const loud = world.clip(holdClip({ 0: { PositionX: 2 } }));
    const animator = new Animator(world, 2, 2);
    animator.target([first.handle, second.handle]);
    for (const time of [0, 0.5]) {
      animator.play(0, { clip: silent, time });
      animator.play(1, { clip: loud, weight: 0 });
      animator.update();
      assert.deepStrictEqual(position(first), [0, 0, 0]);
      animator.play(1, { clip: loud });
      animator.update();
      assert.deepStrictEqual(
        [position(first), position(second)],
        [
          [0, 0, 0],
          [2, 0, 0],
        ]
      );
      second.words[5] = 0;
    }
  });

  it('of 16 bytes or fewer has no targets, whatever they are', () => {
    const world = new AnimationWorld();
    const [entity] = world.entities(1);
    const loud = world.clip(holdClip({ 0: { PositionX: 2 } }));
    for (const bytes of [new ArrayBuffer(0), new Uint8Array(16).fill(0xff), new Uint8Array(7)]) {
      const animator = new Animator(world, 2, 1);
      animator.play(0, { clip: world.clip(bytes) });
      animator.play(1, { clip: loud });
      animator.target([entity.handle]);
      entity.words[5] = 0;
      animator.update();
      assert.strictEqual(entity.words[5], 2);
    }
  });

  it('without curves has no targets', () => {
    const world = new AnimationWorld();
    const [entity] = world.entities(1);
    const animator = new Animator(world, 2, 1);
    const bytes = new Uint8Array(20);
    bytes.set(new Uint8Array(writeClip({ curves: [] })));
    animator.play(0, { clip: world.clip(bytes) });
    animator.play(1, { clip: world.clip(holdClip({ 0: { PositionX: 2 } })) });
    animator.target([entity.handle]);
    animator.update();
    assert.strictEqual(entity.words[5], 2);
  });

  it('counts a target once for any number of curves, including those without keys', () => {
    const world = new AnimationWorld();
    const entities = world.entities(3);
    const curves = [
      { target: 1, type: types.PositionY, keys: [] },
      { target: 0, type: types.PositionX, keys: [[0, 1]] },
      { target: 0, type: types.ScaleX, keys: [[0, 2]] },
      { target: 0, type: types.PositionX, keys: [] },
    ];
    const animator = new Animator(world, 2, 3);
    animator.play(0, { clip: world.clip({ curves }) });
    animator.play(1, { clip: world.clip(holdClip({ 0: { PositionX: 9 } })) });
    animator.target(entities.map(({ handle }) => handle));
    animator.update();
    assert.deepStrictEqual(
      entities.map(({ words }) => words[5]),
      [1, 0, 9]
    );
  });

  it('joins curves of one channel in their order', () => {
    const world = new AnimationWorld();
    const w = { target: 0, type: types.QuaternionW, keys: [[0, 1]] };
    const early = {
      target: 0,
      type: types.EulerX,
      keys: [
        [0, 0.25],
        [4, 0.5],
      ],
    };
    const late = { target: 0, type: types.QuaternionX, keys: [[8, 0.75]] };
    const inOrder = world.playOne({ curves: [early, late, w] });
    for (const [time, x] of [
      [0, 0.25],
      [4, 0.5],
      [8, 0.75],
      [50, 0.75],
    ]) {
      inOrder.animator.at(time);
      assert.deepStrictEqual(rotation(inOrder.entity), [x, 0, 0, 1]);
    }
    // Out of order, the first key that is late enough is that of frame 8.
    const reversed = world.playOne({ curves: [w, late, early] });
    for (const [time, x] of [
      [0, 0.75],
      [4, 0.75],
      [8, 0.75],
      [9, 0.5],
    ]) {
      reversed.animator.at(time);
      assert.deepStrictEqual(rotation(reversed.entity), [x, 0, 0, 1], `frame ${time}`);
    }
  });

  it('may be played by many animators, and be named by any handle of its slot', () => {
    const world = new AnimationWorld();
    const entities = world.entities(2);
    const clip = world.clip(
      curve(types.PositionX, [
        [0, 1],
        [3, 4],
      ])
    );
    entities.forEach(({ handle }, i) => {
      const animator = new Animator(world, 1, 1);
      animator.play(0, { clip: clip + 4095 * i, time: 3 * i });
      animator.target([handle]);
      animator.update();
    });
    assert.deepStrictEqual(
      entities.map(({ words }) => words[5]),
      [1, 4]
    );
  });
});

describe('updateAnimator', () => {
  it('returns null for any argument, and ignores unknown handles', () => {
    const engine = nq.getEngine();
    assert.strictEqual(engine.updateAnimator(), null);
    for (const handle of [undefined, null, 0, 1, 4095, 0x1000, 0xffffffff, -1, NaN, 'x', {}]) {
      assert.strictEqual(engine.updateAnimator(handle), null, String(handle));
      assert.strictEqual(engine.updateSkinningMatrix(handle), null, String(handle));
    }
    assert.strictEqual(engine.updateSkinningMatrix(), null);
  });

  it('finds animators only', () => {
    const engine = nq.getEngine();
    // Fresh, all of these would end the process if they were updated.
    const kept = [engine.createComponent(3, 1), engine.createComponent(3, 1)];
    kept.push(engine.createComponent(1, 1), engine.createEntity(true));
    assert.strictEqual(engine.updateAnimator(0x1000), null);
    assert.strictEqual(engine.updateAnimators(Uint32Array.of(2, 0x1000, 0x2000)), null);
    const other = nq.getEngine();
    kept.push(other.createComponent(2, 1, 1));
    assert.strictEqual(other.updateSkinningMatrix(0x1000), null);
    assert.strictEqual(other.updateSkinningMatrices(Uint32Array.of(2, 0x1000, 0x2000)), null);
    assert.strictEqual(kept.length, 5);
  });

  it('converts its handle by the rules of JavaScript', () => {
    const { entity, animator } = new AnimationWorld().playOne(holdClip({ 0: { PositionX: 3 } }));
    for (const handle of [String(animator.id), [animator.id], animator.id + 0.5, animator.id + 7]) {
      entity.words[5] = 0;
      animator.engine.updateAnimator(handle, 9);
      assert.strictEqual(entity.words[5], 3, String(handle));
    }
  });

  it('writes all channels of a 3D entity, by quaternion', () => {
    const { entity, animator } = new AnimationWorld().playOne(
      holdClip({
        0: {
          PositionX: 1,
          PositionY: 2,
          PositionZ: 3,
          ScaleX: 4,
          ScaleY: 5,
          ScaleZ: 6,
          QuaternionX: 0.1,
          QuaternionY: 0.2,
          QuaternionZ: 0.3,
          QuaternionW: 0.4,
        },
      })
    );
    animator.update();
    assert.strictEqual(entity.bytes[0], 1);
    assert.deepStrictEqual(rotation(entity), [0.1, 0.2, 0.3, 0.4].map(Math.fround));
    assert.deepStrictEqual(position(entity), [1, 2, 3]);
    assert.deepStrictEqual(scale(entity), [4, 5, 6]);
  });

  it('does not change fields without a channel, or other entities of the batch', () => {
    for (const name of Object.keys(types)) {
      const world = new AnimationWorld();
      const entities = world.entities(3);
      entities.forEach((entity) => {
        entity.setTransform([0.1, 0.2, 0.3], [1, 2, 3], [4, 5, 6]);
        entity.words[4] = 0.7;
      });
      const before = bytesOf(entities[0].words.slice(0, 11).buffer);
      world.player(holdClip({ 0: { [name]: 9 } }), [entities[1]]).update();
      for (const { words } of [entities[0], entities[2]]) {
        assert(bytesOf(words.slice(0, 11).buffer).equals(before), name);
      }
      const expected = new Float32Array(Uint8Array.from(before).buffer);
      const place = {
        Position: 5,
        Scale: 8,
        Euler: 1,
        Quaternion: 1,
      }[name.slice(0, -1)];
      expected['XYZW'.indexOf(name.slice(-1)) + place] = 9;
      if (name === 'QuaternionW') {
        over(Uint8Array, expected)[0] = 1;
      }
      assert.deepStrictEqual(entities[1].words.slice(0, 11), expected, name);
    }
  });

  it('changes the rotation mode only by the w channel', () => {
    const world = new AnimationWorld();
    const euler = holdClip({ 0: { EulerX: 0.5, EulerY: 0.25, EulerZ: 0.125 } });
    // A curve of w without keys makes no quaternion.
    euler.curves.push({ target: 0, type: types.QuaternionW, keys: [] });
    const { entity, animator } = world.playOne(euler);
    animator.update();
    assert.strictEqual(entity.bytes[0], 0);
    assert.deepStrictEqual(rotation(entity), [0.5, 0.25, 0.125, 0]);
    // Used as components of a quaternion, since the record is in quaternion mode.
    entity.setTransform([0, 0, 0, 1], [0, 0, 0], [1, 1, 1]);
    animator.update();
    assert.strictEqual(entity.bytes[0], 1);
    assert.deepStrictEqual(rotation(entity), [0.5, 0.25, 0.125, 1]);
    // Any other mode than 0 stays as it is.
    entity.bytes[0] = 7;
    animator.update();
    assert.strictEqual(entity.bytes[0], 7);
    const turned = world.player(turnZ(0), [entity]);
    turned.update();
    assert.strictEqual(entity.bytes[0], 1);
  });

  it('writes position, scale and channel 8 of a 2D entity', () => {
    const names = Object.keys(types).filter((name) => !name.startsWith('Quaternion'));
    const channels = {};
    names.forEach((name, i) => {
      channels[name] = i + 1;
    });
    const world = new AnimationWorld();
    const { entity, animator } = world.playOne(holdClip({ 0: channels }), false);
    animator.update();
    const { EulerZ, PositionX, PositionY, ScaleX, ScaleY } = channels;
    assert.deepStrictEqual(Array.from(entity.words.subarray(0, 5)), [
      EulerZ,
      PositionX,
      PositionY,
      ScaleX,
      ScaleY,
    ]);
    world.player(holdClip({ 0: { QuaternionZ: 0.25, QuaternionW: 1 } }), [entity]).update();
    assert.strictEqual(entity.words[0], 0.25);
  });

  it('applies a single clip in full, whatever its weight', () => {
    const { entity, animator } = new AnimationWorld().playOne(holdClip({ 0: { PositionX: 8 } }));
    for (const weight of [1, 0.25, 1e-30]) {
      entity.words[5] = 0;
      animator.floats[2] = weight;
      animator.update();
      assert.strictEqual(entity.words[5], 8);
    }
  });

  it('skips clips of weight 0 or above 1, but counts their targets', () => {
    const world = new AnimationWorld();
    const entities = world.entities(3);
    const two = world.clip(holdClip({ 0: { PositionX: 1 }, 1: { PositionX: 2 } }));
    const one = world.clip(holdClip({ 0: { PositionX: 3 } }));
    const animator = new Animator(world, 2, 3);
    animator.target(entities.map(({ handle }) => handle));
    animator.play(1, { clip: one });
    for (const weight of [0, -0, -0.5, NaN, 1.0000001192092896, Infinity, -Infinity]) {
      animator.play(0, { clip: two, weight });
      entities.forEach(({ words }) => {
        words[5] = 0;
      });
      animator.update();
      assert.deepStrictEqual(
        entities.map(({ words }) => words[5]),
        [0, 0, 3],
        String(weight)
      );
    }
    animator.play(1, { clip: one, weight: 0 });
    entities[2].words[5] = 0;
    animator.update();
    assert.strictEqual(entities[2].words[5], 0);
  });

  it('skips targets that are no entities', () => {
    const world = new AnimationWorld();
    const [entity] = world.entities(1);
    const targets = {};
    for (let i = 0; i < 5; ++i) {
      targets[i] = { PositionX: i + 1 };
    }
    for (const clips of [1, 2]) {
      const animator = new Animator(world, clips, 5 * clips);
      const clip = world.clip(holdClip(targets));
      const handles = [0, 0xffffffff, entity.handle + 1, 0x9000, entity.handle];
      for (let i = 0; i < clips; ++i) {
        animator.play(i, { clip, weight: 0.5 });
      }
      animator.target(clips === 1 ? handles : [...handles, ...handles]);
      entity.words[5] = 0;
      animator.update();
      assert.strictEqual(entity.words[5], 5);
      animator.target(new Array(5 * clips).fill(0x9000));
      animator.update();
    }
  });

  it('skips entities that have been released', async () => {
    const world = new AnimationWorld();
    const runtime = addon.runtimeOf(world.engine);
    const [kept] = world.entities(1);
    const [gone, memoryID] = (() => {
      const batch = world.engine.createEntity(true, 1);
      return [batch.id, batch.memoryID];
    })();
    const animator = new Animator(world, 1, 2);
    animator.play(0, { clip: world.clip(holdClip({ 0: { PositionX: 1 }, 1: { PositionX: 2 } })) });
    animator.target([gone, kept.handle]);
    animator.update();
    assert(await collectUntil(() => !addon.hasBlock(runtime, memoryID)));
    kept.words[5] = 0;
    animator.update();
    assert.strictEqual(kept.words[5], 2);
  });

  it('applies the later of two targets of one entity, in the order of indices', () => {
    const world = new AnimationWorld();
    const [entity] = world.entities(1);
    const clip = { curves: [] };
    for (const [target, x] of [
      [1, 2],
      [0, 1],
    ]) {
      clip.curves.push({ target, type: types.PositionX, keys: [[0, x]] });
    }
    clip.curves.push({ target: 0, type: types.PositionY, keys: [[0, 5]] });
    world.player(clip, [entity, entity]).update();
    assert.deepStrictEqual(position(entity), [2, 5, 0]);
  });

  it('reads the block at the time of the call', () => {
    const world = new AnimationWorld();
    const [first, second] = world.entities(2);
    const animator = world.player(
      curve(types.PositionX, [
        [0, 1],
        [5, 6],
      ]),
      [first]
    );
    animator.at(5);
    animator.target([second.handle]);
    animator.at(0);
    animator.play(0, { clip: world.clip(holdClip({ 0: { PositionY: 8 } })) });
    animator.update();
    assert.deepStrictEqual(
      [position(first), position(second)],
      [
        [6, 0, 0],
        [1, 8, 0],
      ]
    );
  });
});

describe('blend of clips', () => {
  /** An entity to which several one-target clips are applied with weights. */
  function blended(clips, weights, { is3D = true, prepare = () => {} } = {}) {
    const world = new AnimationWorld();
    const [entity] = world.entities(1, is3D);
    prepare(entity);
    const animator = new Animator(world, clips.length, clips.length);
    clips.forEach((clip, i) => {
      animator.play(i, { clip: world.clip(clip), weight: weights[i] });
    });
    animator.target(clips.map(() => entity.handle));
    animator.update();
    return entity;
  }

  it('is the weighted mean, also for weights that do not sum to 1', () => {
    const clips = [
      holdClip({ 0: { PositionX: 4, ScaleY: 8 } }),
      holdClip({ 0: { PositionX: 8, ScaleY: 4 } }),
    ];
    for (const weights of [
      [0.2, 0.6],
      [0.25, 0.75],
      [1 / 3, 1],
    ]) {
      const entity = blended(clips, weights);
      assertNear(position(entity), [7, 0, 0], 1e-6);
      assertNear(scale(entity), [1, 5, 1], 1e-6);
    }
    const three = [...clips, holdClip({ 0: { PositionX: -6, ScaleY: 2 } })];
    const entity = blended(three, [0.5, 0.25, 0.25]);
    assertNear(position(entity), [0.5 * 4 + 0.25 * 8 - 0.25 * 6, 0, 0], 1e-6);
    assertNear(scale(entity), [1, 5.5, 1], 1e-6);
  });

  it('scales a channel that only some clips have', () => {
    const x = holdClip({ 0: { PositionX: 8 } });
    const y = holdClip({ 0: { PositionY: 4 } });
    assert.deepStrictEqual(position(blended([x, y], [0.25, 0.75])), [2, 3, 0]);
    assert.deepStrictEqual(position(blended([y, x], [0.25, 0.75])), [6, 1, 0]);
  });

  it('interpolates two rotations along the shorter arc', () => {
    const angle = ({ words }) => 2 * Math.atan2(words[3], words[4]);
    for (const [from, to, weights, expected] of [
      [0, 1, [0.5, 0.5], 0.5],
      [0.4, 1.2, [0.75, 0.25], 0.6],
      [0.4, 1.2 + 2 * Math.PI, [0.75, 0.25], 0.6],
      [-2, 2.5, [0.5, 0.5], 0.25 - Math.PI],
      [1, 1.00001, [0.5, 0.5], 1.000005],
    ]) {
      const entity = blended([turnZ(from), turnZ(to)], weights);
      assert.strictEqual(entity.bytes[0], 1);
      assertNear([Math.hypot(...rotation(entity))], [1], 2e-7);
      const error = angle(entity) - expected;
      assertNear([Math.cos(error), Math.sin(error)], [1, 0], 1e-6);
    }
  });

  it('sums three and more rotations, and normalises the sum', () => {
    // Each further one is scaled by its share so far, and added.
    const angles = [0.6, 1.2, -0.8];
    const entity = blended(angles.map(turnZ), [0.5, 0.5, 0.5]);
    const sum = [0, 0];
    angles.forEach((angle, i) => {
      const half = angle / 2 / (i + 1);
      sum[0] += Math.sin(half);
      sum[1] += Math.cos(half);
    });
    const length = Math.hypot(...sum);
    assertNear(rotation(entity), [0, 0, sum[0] / length, sum[1] / length], 1e-6);
    assert.strictEqual(entity.bytes[0], 1);
  });

  it('of three loses its rotation by an identity rotation', () => {
    const last = blended([0.5, 0.5, 0].map(turnZ), [0.5, 0.5, 0.5]);
    assert.strictEqual(last.bytes[0], 0);
    assert.deepStrictEqual(rotation(last), [0, 0, 0, 0]);
    const between = blended([0.5, 0, 0.8].map(turnZ), [0.5, 0.5, 0.5]);
    assert.strictEqual(between.bytes[0], 1);
    assertNear(rotation(between), [0, 0, Math.sin(0.4), Math.cos(0.4)], 1e-6);
  });

  it('uses the rotation of the only clip that has one', () => {
    const still = holdClip({ 0: { PositionX: 1 } });
    // An absent rotation counts as w = 1: the target must have a quaternion.
    const half = holdClip({ 0: { QuaternionW: 1 } });
    for (const [clips, mode] of [
      [[turnZ(1), still], 1],
      [[turnZ(1), still, still], 1],
      [[half, turnZ(1)], 1],
      [[still, turnZ(1)], 0],
    ]) {
      const entity = blended(clips, [0.5, 0.5, 0.5]);
      assert.strictEqual(entity.bytes[0], mode);
      const expected = mode === 1 ? [0, 0, Math.sin(0.5), Math.cos(0.5)] : [0, 0, 0, 0];
      assertNear(rotation(entity), expected, 1e-7);
    }
  });

  it('drops Euler angles', () => {
    const first = holdClip({ 0: { EulerX: 0.5, EulerY: 0.5, EulerZ: 0.5, PositionX: 2 } });
    const prepare = (entity) => entity.setTransform([0.1, 0.2, 0.3], [0, 0, 0], [1, 1, 1]);
    const entity = blended([first, first], [0.5, 0.5], { prepare });
    assert.strictEqual(entity.bytes[0], 0);
    assert.deepStrictEqual(rotation(entity), [0.1, 0.2, 0.3].map(Math.fround).concat(0));
    assert.deepStrictEqual(position(entity), [2, 0, 0]);
  });

  it('does not change the angle of a 2D entity', () => {
    const clip = holdClip({ 0: { EulerZ: 0.5, PositionX: 2, ScaleY: 3 } });
    const prepare = (entity) => entity.setTransform2D(0.75, [0, 0], [1, 1]);
    const entity = blended([clip, clip], [0.5, 0.5], { is3D: false, prepare });
    assert.deepStrictEqual(Array.from(entity.words.subarray(0, 5)), [0.75, 2, 0, 1, 3]);
  });

  it('is per entity, not per target: a clip that names it twice counts twice', () => {
    const world = new AnimationWorld();
    const [entity, other] = world.entities(2);
    const animator = new Animator(world, 2, 3);
    const twice = holdClip({ 0: { PositionX: 8 }, 1: { PositionX: 4 } });
    animator.play(0, { clip: world.clip(twice), weight: 0.5 });
    animator.play(1, { clip: world.clip(holdClip({ 0: { PositionX: 1 } })), weight: 0.5 });
    animator.target([entity.handle, entity.handle, other.handle]);
    animator.update();
    assert.deepStrictEqual(
      [position(entity), position(other)],
      [
        [6, 0, 0],
        [1, 0, 0],
      ]
    );
    animator.target([0xffffffff, entity.handle, 0xffffffff]);
    animator.update();
    assert.deepStrictEqual(position(entity), [4, 0, 0]);
  });
});

describe('world matrices of animated entities', () => {
  const toX = (x) => holdClip({ 0: { PositionX: x } });

  it('are computed by the next refresh under a root, without an entry in the dirty list', () => {
    const world = new AnimationWorld();
    const [root, child] = world.roots(1).concat(world.entities(1));
    world.command('addChild', root, child);
    world.refresh([root, child]);
    world.player(toX(5), [root]).update();
    assert.deepStrictEqual(
      [origin(root), origin(child)],
      [
        [0, 0, 0],
        [0, 0, 0],
      ]
    );
    world.refresh();
    assert.deepStrictEqual(
      [origin(root), origin(child)],
      [
        [5, 0, 0],
        [5, 0, 0],
      ]
    );
    world.player(toX(2), [child]).update();
    assert.deepStrictEqual(origin(child), [5, 0, 0]);
    world.refresh();
    assert.deepStrictEqual(
      [origin(root), origin(child)],
      [
        [5, 0, 0],
        [7, 0, 0],
      ]
    );
  });

  it('are computed at once under no root, for the whole tree', () => {
    const world = new AnimationWorld();
    const [top, middle, leaf, beside] = world.entities(4);
    world.command('addChild', top, middle);
    world.command('addChild', middle, leaf);
    world.command('addChild', top, beside);
    world.refresh([top, middle, leaf, beside]);
    const animator = world.player(toX(5), [middle]);
    animator.update();
    assert.deepStrictEqual(origin(middle), [5, 0, 0]);
    assert.deepStrictEqual(origin(leaf), [5, 0, 0]);
    world.player(toX(1), [top]).update();
    assert.deepStrictEqual([top, middle, leaf, beside].map(origin), [
      [1, 0, 0],
      [6, 0, 0],
      [6, 0, 0],
      [1, 0, 0],
    ]);
  });

  it('are computed at once only for the tree of the first target', () => {
    const world = new AnimationWorld();
    const [low, high] = world.entities(2);
    world.refresh([low, high]);
    const both = holdClip({ 0: { PositionX: 5 }, 1: { PositionX: 6 } });
    const poison = () => [low, high].forEach(({ matrix }) => matrix.fill(-777));
    poison();
    // By target index for a single clip, by handle for a blend; unknown handles aren't first.
    const single = new Animator(world, 1, 2);
    single.play(0, { clip: world.clip(both) });
    single.target([high.handle, low.handle]);
    single.update();
    assert.deepStrictEqual([low, high].map(origin), [
      [-777, -777, -777],
      [5, 0, 0],
    ]);
    poison();
    single.target([0x9000, low.handle]);
    single.update();
    assert.deepStrictEqual([low, high].map(origin), [
      [6, 0, 0],
      [-777, -777, -777],
    ]);
    poison();
    const blend = new Animator(world, 2, 4);
    [0, 1].forEach((i) => blend.play(i, { clip: world.clip(both), weight: 0.5 }));
    blend.target([high.handle, low.handle, high.handle, low.handle]);
    blend.update();
    assert.deepStrictEqual([low, high].map(origin), [
      [6, 0, 0],
      [-777, -777, -777],
    ]);
  });

  it('are unchanged when no target is an entity', () => {
    const world = new AnimationWorld();
    const { entity, animator } = world.playOne(toX(5));
    animator.update();
    entity.matrix.fill(-777);
    animator.target([0x9000]);
    animator.update();
    assert(entity.matrix.every((value) => value === -777));
    // The first target of an earlier update isn't remembered.
    animator.target([entity.handle]);
    animator.floats[2] = 0;
    animator.update();
    assert(entity.matrix.every((value) => value === -777));
  });
});

describe('updateSkinningMatrix', () => {
  const translation = (x, y, z) => [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1];
  const scaling = (s) => [s, 0, 0, 0, 0, s, 0, 0, 0, 0, s, 0, 0, 0, 0, 1];

  it('with an identity returns the world matrix', () => {
    const world = new AnimationWorld();
    const [bone] = world.roots(1);
    bone.setTransform([0.3, -0.7, 1.9], [1, 2, 3], [0.5, 2, -1]);
    world.refresh([bone]);
    const skin = new Skin(world, 1);
    skin.set(world.bones(identity), [[0, bone.handle]]);
    skin.update();
    assert.deepStrictEqual(
      skin.matrix(0),
      Array.from(bone.matrix, (value) => value + 0)
    );
  });

  it('multiplies by the inverse bind matrix on the right, that of the index', () => {
    const world = new AnimationWorld();
    const [first, second] = world.roots(2);
    first.setTransform([0, 0, 0], [1, 2, 3], [2, 2, 2]);
    second.setTransform([0, 0, 0], [10, 20, 30], [1, 1, 1]);
    world.refresh([first, second]);
    const model = world.bones(identity, translation(4, 5, 6), scaling(3));
    const skin = new Skin(world, 4);
    skin.set(model, [
      [1, first.handle],
      [2, first.handle],
      [1, second.handle],
      [0, first.handle],
    ]);
    skin.update();
    const move = (matrix, x, y, z) => matrix.slice(0, 12).concat(x, y, z, 1);
    assert.deepStrictEqual(
      [0, 1, 2, 3].map((i) => skin.matrix(i)),
      [
        move(scaling(2), 9, 12, 15),
        move(scaling(6), 1, 2, 3),
        translation(14, 25, 36),
        move(scaling(2), 1, 2, 3),
      ]
    );
    // Values that JavaScript wrote are unchanged.
    assert.deepStrictEqual(Array.from(skin.words.subarray(0, 5)), [model, 1, 2, 1, 0]);
  });

  it('stores contiguous 3x3 matrices of 2D bones', () => {
    const world = new AnimationWorld();
    const bones = world.roots(2, false);
    bones[0].setTransform2D(0, [1, 2], [3, 4]);
    bones[1].setTransform2D(0, [5, 6], [7, 8]);
    world.refresh(bones);
    const skin = new Skin(world, 2);
    skin.set(world.bones(translation(10, 100, 1000)), [
      [0, bones[0].handle],
      [0, bones[1].handle],
    ]);
    skin.update();
    assert.deepStrictEqual(skin.matrix(0, 9), [3, 0, 0, 0, 4, 0, 31, 402, 1]);
    assert.deepStrictEqual(skin.matrix(1, 9), [7, 0, 0, 0, 8, 0, 75, 806, 1]);
    assert(skin.results.subarray(18).every((value) => value === -777));
    assert.strictEqual(skin.results.length, 32);
  });

  it('reads the current world matrices, and so lags without a refresh', () => {
    const world = new AnimationWorld();
    const [bone] = world.entities(1);
    world.command('addRoot', bone);
    const skin = new Skin(world, 1);
    skin.set(world.bones(identity), [[0, bone.handle]]);
    skin.update();
    assert.deepStrictEqual(skin.matrix(0), new Array(16).fill(0));
    world.refresh([bone]);
    world.player(holdClip({ 0: { PositionX: 4 } }), [bone]).update();
    skin.update();
    assert.deepStrictEqual(skin.matrix(0), identity);
    world.refresh();
    skin.update();
    assert.deepStrictEqual(skin.matrix(0), translation(4, 0, 0));
    // A matrix that JavaScript overwrites in the record is not read.
    bone.matrix.fill(9);
    skin.update();
    assert.deepStrictEqual(skin.matrix(0), translation(4, 0, 0));
  });

  it('shares models and bones, by any handle of the model', () => {
    const world = new AnimationWorld();
    const [bone] = world.roots(1);
    const model = world.bones(identity, scaling(2));
    const skins = [0, 1, 2].map((i) => {
      const skin = new Skin(world, 1);
      skin.set(model + 2047 * i, [[i === 1 ? 1 : 0, bone.handle]]);
      skin.update();
      return skin.matrix(0);
    });
    assert.deepStrictEqual(skins, [identity, scaling(2), identity]);
  });

  it('changes no entity', () => {
    const world = new AnimationWorld();
    const bones = world.roots(3);
    const before = bytesOf(bones[0].batch.buffer);
    const skin = new Skin(world, 3);
    skin.set(
      world.bones(scaling(5)),
      bones.map(({ handle }) => [0, handle])
    );
    skin.update();
    assert(bytesOf(bones[0].batch.buffer).equals(before));
  });
});

describe('batch methods', () => {
  const names = ['updateAnimators', 'updateSkinningMatrices'];

  /** Three animators and three skinning components, with checks whether they ran. */
  function three(name) {
    const world = new AnimationWorld();
    const entities = world.roots(3);
    const made = entities.map((entity) => {
      if (name === 'updateAnimators') {
        const animator = world.player(holdClip({ 0: { PositionX: 1 } }), [entity]);
        return { id: animator.id, reset: () => (entity.words[5] = 0), ran: () => entity.words[5] };
      }
      const skin = new Skin(world, 1);
      skin.set(world.bones(identity), [[0, entity.handle]]);
      return { id: skin.id, reset: () => (skin.results[15] = 0), ran: () => skin.results[15] };
    });
    const ids = made.map(({ id }) => id);
    /** Which ran, as zeros and ones. */
    const run = (buffer) => {
      made.forEach(({ reset }) => reset());
      assert.strictEqual(world.engine[name](buffer), null);
      return made.map(({ ran }) => ran());
    };
    return { world, ids, run };
  }

  for (const name of names) {
    describe(name, () => {
      it('updates none, one, or all that are listed', () => {
        const { ids, run } = three(name);
        assert.deepStrictEqual(run(Uint32Array.of(0, ...ids)), [0, 0, 0]);
        assert.deepStrictEqual(run(Uint32Array.of(1, ...ids)), [1, 0, 0]);
        assert.deepStrictEqual(run(Uint32Array.of(2, ...ids)), [1, 1, 0]);
        assert.deepStrictEqual(run(Uint32Array.of(3, ...ids)), [1, 1, 1]);
        assert.deepStrictEqual(run(Uint32Array.of(2, ids[2], ids[0]).buffer), [1, 0, 1]);
      });

      it('does nothing when the count exceeds the buffer', () => {
        const { ids, run } = three(name);
        for (const count of [4, 5, 0x40000000, 0x7fffffff, 0xffffffff]) {
          assert.deepStrictEqual(run(Uint32Array.of(count, ...ids)), [0, 0, 0], String(count));
        }
        assert.deepStrictEqual(run(Uint32Array.of(1)), [0, 0, 0]);
        assert.deepStrictEqual(
          run(new Uint8Array(Uint32Array.of(1, ids[0]).buffer, 0, 7)),
          [0, 0, 0]
        );
        const longer = Uint32Array.of(3, ...ids, 0);
        assert.deepStrictEqual(run(longer.subarray(0, 3)), [0, 0, 0]);
        assert.deepStrictEqual(run(longer.subarray(0, 4)), [1, 1, 1]);
      });

      it('reads views by their range, also at odd offsets', () => {
        const { ids, run } = three(name);
        const words = Uint32Array.of(99, 2, ids[0], ids[2], ids[1]);
        assert.deepStrictEqual(run(words.subarray(1)), [1, 0, 1]);
        assert.deepStrictEqual(run(new DataView(words.buffer, 4)), [1, 0, 1]);
        const bytes = new Uint8Array(words.byteLength + 1);
        bytes.set(over(Uint8Array, words), 1);
        assert.deepStrictEqual(run(bytes.subarray(5)), [1, 0, 1]);
      });

      it('skips unknown handles', () => {
        const { ids, run } = three(name);
        const handles = [0, 0x90000, ids[1], 0xffffffff, 5, ids[0]];
        assert.deepStrictEqual(run(Uint32Array.of(handles.length, ...handles)), [1, 1, 0]);
        assert.deepStrictEqual(run(Uint32Array.of(1, 0x90000)), [0, 0, 0]);
      });

      it('returns null without arguments', () => {
        const { world } = three(name);
        assert.strictEqual(world.engine[name](), null);
        assert.strictEqual(world.engine[name].call({}), null);
      });

      it('can be run again and again', () => {
        const { ids, run } = three(name);
        for (let i = 0; i < 500; ++i) {
          assert.deepStrictEqual(run(Uint32Array.of(3, ...ids)), [1, 1, 1]);
        }
      });
    });
  }

  for (const name of [
    'animatorsOfNumber',
    'animatorsOfUndefined',
    'skinningsOfEmptyBuffer',
    'skinningsOfDetachedView',
  ]) {
    it(`end the process by a segmentation fault on the first word: ${name}`, () => {
      assertFault(runScript('animation.js', name));
    });
  }
});

describe('random animators', () => {
  /**
   * A world of `count` animators on sets of entities of their own, some under roots, some in trees
   * of their own, and as many skinning components over all entities. The same for the same seed.
   */
  function build(seed, count) {
    const random = createRandom(seed);
    const world = new AnimationWorld();
    const clips = Array.from({ length: 40 }, () => {
      const clip = randomClip(random, 1 + random.below(6));
      return { clip, handle: world.clip(clip) };
    });
    const entities = [];
    const animators = [];
    const root = world.roots(1)[0];
    for (let i = 0; i < count; ++i) {
      const is3D = random.below(5) !== 0;
      const own = world.entities(2 + random.below(6), is3D);
      own.forEach((entity, element) => {
        Object.assign(entity, { is3D });
        if (is3D) {
          const rest = [0, 0, 0].map(() => random.real(-2, 2));
          entity.setTransform(rest, [random.real(-2, 2), 0, 1], [1, 2, 1]);
        }
        if (element > 0) {
          world.command('addChild', own[random.below(element)], entity);
        }
      });
      if (i % 3 === 0) {
        world.command('addRoot', own[0]);
      } else if (i % 3 === 1) {
        world.command('addChild', root, own[0]);
      }
      const plays = Array.from({ length: 1 + random.below(4) }, () => random.pick(clips));
      const length = plays.reduce((sum, { clip }) => sum + trackCount(clip), 0);
      const animator = new Animator(world, plays.length, length);
      const targets = Array.from({ length }, () =>
        random.below(12) === 0 ? 0xffffffff : random.pick(own).handle
      );
      animator.target(targets);
      animators.push({ animator, plays, targets });
      entities.push(...own);
    }
    world.refresh(entities);
    const flat = entities.filter(({ is3D }) => !is3D);
    const deep = entities.filter(({ is3D }) => is3D);
    const matrices = Array.from({ length: 20 }, () => identity.map(() => random.real(-2, 2)));
    const model = world.bones(...matrices);
    const skins = Array.from({ length: count }, (none, i) => {
      const from = i % 5 === 0 ? flat : deep;
      const bones = Array.from({ length: 1 + random.below(30) }, () => [
        random.below(matrices.length),
        random.pick(from).handle,
      ]);
      const skin = new Skin(world, bones.length);
      skin.set(model, bones);
      return skin;
    });
    return { world, random, entities, animators, skins };
  }

  /** What all animators are to play next. */
  function pickTimes({ random, animators }) {
    for (const entry of animators) {
      entry.now = entry.plays.map(({ clip, handle }, i) => {
        const time = [
          random.below(100),
          random.real(0, 100),
          random.real(-5, 5),
          -random.below(10),
        ][random.below(4)];
        const weight = random.pick([random.real(0.05, 1), random.real(0.05, 1), 1, 0]);
        entry.animator.play(i, { clip: handle, time, weight });
        return { clip, time, weight };
      });
    }
  }

  const count = sanitized ? 60 : 300;
  const frames = 8;

  it('give the same bytes in a batch as by single calls', () => {
    const worlds = [build(7, count), build(7, count)];
    let compared = 0;
    for (let frame = 0; frame < frames; ++frame) {
      const shown = worlds.map((built, i) => {
        const { world, animators, skins, entities } = built;
        const { engine } = world;
        pickTimes(built);
        const lists = [animators.map(({ animator }) => animator.id), skins.map(({ id }) => id)];
        const update = (name, ids) => {
          if (i === 0) {
            ids.forEach((id) => engine[name](id));
          } else {
            const plural = name === 'updateAnimator' ? 'updateAnimators' : 'updateSkinningMatrices';
            engine[plural](Uint32Array.of(ids.length, ...ids));
          }
        };
        update('updateAnimator', lists[0]);
        const before = entities.map(({ batch }) => bytesOf(batch.buffer));
        world.refresh();
        update('updateSkinningMatrix', lists[1]);
        const after = entities.map(({ batch }) => bytesOf(batch.buffer));
        return [...before, ...after, ...skins.map(({ component }) => bytesOf(component.buffer))];
      });
      shown[0].forEach((bytes, i) => {
        assert(bytes.equals(shown[1][i]), `frame ${frame}, part ${i} differs`);
        ++compared;
      });
    }
    const { entities } = worlds[0];
    assert.strictEqual(compared, frames * (2 * entities.length + count));
    assert(entities.length > 3 * count);
  });

  it('write the values computed from the keys, operation by operation', () => {
    const built = build(19, count);
    const { world, entities, animators } = built;
    const byHandle = new Map(entities.map((entity) => [entity.handle, entity]));
    let exact = 0;
    let turned = 0;
    for (let frame = 0; frame < frames; ++frame) {
      pickTimes(built);
      for (const { animator, now, targets } of animators) {
        const expected = new Map();
        const samples = playClips(now, targets);
        const active = now.filter(({ weight }) => weight > 0).length;
        for (const [handle, sample] of samples) {
          const entity = byHandle.get(handle);
          if (entity !== undefined) {
            if (!expected.has(handle)) {
              expected.set(handle, entity.words.slice());
            }
            applySample(sample, expected.get(handle), entity.is3D);
          }
        }
        animator.update();
        for (const [handle, words] of expected) {
          const entity = byHandle.get(handle);
          const length = entity.is3D ? 11 : 5;
          const bytes = over(Uint8Array, words);
          assert.deepStrictEqual(entity.bytes[0], bytes[0]);
          for (let i = 0; i < length; ++i) {
            const message = `frame ${frame}, entity ${handle}, word ${i}: ${entity.words[i]}, not ${words[i]}`;
            // Sines and arc cosines of two libraries differ by a last bit at times.
            const isTurned = active > 1 && (entity.is3D ? i > 0 && i < 5 : i === 0);
            if (isTurned) {
              assert(Math.abs(entity.words[i] - words[i]) <= 1e-6, message);
              ++turned;
            } else {
              assert(Object.is(entity.words[i], words[i]) || entity.words[i] === words[i], message);
              ++exact;
            }
          }
        }
      }
      world.refresh();
    }
    assert(turned > 5 * frames * count && exact > 10 * frames * count, `${turned}, ${exact}`);
  });
});

describe('lifetime', () => {
  /** Makes models while it collects, until one gets this handle; false if none does. */
  function remake(make, handle) {
    let made = 0;
    return collectUntil(() => {
      made = made === handle ? made : make();
      return made === handle;
    });
  }

  it('releases the block of a component with it, and reuses its handle', async () => {
    for (const create of [
      (engine) => engine.createComponent(2, 3, 40),
      (engine) => engine.createComponent(3, 40),
    ]) {
      const engine = nq.getEngine();
      const runtime = addon.runtimeOf(engine);
      const first = create(engine);
      (() => create(engine))();
      const third = create(engine);
      assert.deepStrictEqual([first.id, third.id], [0x1000, 0x3000]);
      assert(await collectUntil(() => !addon.hasBlock(runtime, 3)));
      assert.strictEqual(addon.hasBlock(runtime, 2), true);
      const again = create(engine);
      assert.deepStrictEqual([again.id, again.memoryID], [0x2000, 5]);
      assert(over(Uint8Array, again).every((byte) => byte === 0));
      assert.strictEqual(first.memoryID, 2);
    }
  });

  it('counts references of components and data models on their core', async () => {
    const engine = nq.getEngine();
    assert.strictEqual(addon.coreReferences(engine), 1);
    // One of the wrapper and one of the value, where there is a value.
    (() => {
      const kept = [
        engine.createComponent(2, 1, 1),
        engine.createComponent(3, 1),
        engine.createDataModel(1, new ArrayBuffer(20)),
        engine.createDataModel(2, new ArrayBuffer(64)),
        engine.createComponent(2, 0, 1),
        engine.createDataModel(7, new ArrayBuffer(64)),
      ];
      assert.strictEqual(addon.coreReferences(engine), 1 + 4 * 2 + 2);
      assert.strictEqual(kept.length, 6);
    })();
    assert(await collectUntil(() => addon.coreReferences(engine) === 1));
  });

  it('of an engine lasts as long as its data models and components', async () => {
    const kept = [];
    const runtime = (() => {
      const engine = nq.getEngine();
      kept.push(engine.createDataModel(2, new ArrayBuffer(64)), engine.createComponent(2, 1, 1));
      return addon.runtimeOf(engine);
    })();
    for (let left = 2; left > 0; --left) {
      for (let i = 0; i < 3; ++i) {
        await collect();
      }
      assert.strictEqual(addon.runtimeReferences(runtime), 2, `${left} left`);
      kept.pop();
    }
    assert(await collectUntil(() => addon.runtimeReferences(runtime) === 1));
  });

  it('of a released clip leaves its handle, and its listeners, to another', async () => {
    const world = new AnimationWorld();
    const [entity] = world.roots(1);
    const first = (() =>
      world.engine.createDataModel(1, writeClip(holdClip({ 0: { PositionX: 1 } }))).id)();
    const animator = new Animator(world, 1, 1);
    animator.play(0, { clip: first });
    animator.target([entity.handle]);
    animator.update();
    assert.deepStrictEqual(position(entity), [1, 0, 0]);
    const bytes = writeClip(holdClip({ 0: { PositionY: 2 } }));
    assert(await remake(() => world.clip(bytes), first));
    animator.update();
    assert.deepStrictEqual(position(entity), [1, 2, 0]);
  });

  it('of a released bones model leaves its handle to another', async () => {
    const world = new AnimationWorld();
    const [bone] = world.roots(1);
    const first = (() => world.engine.createDataModel(2, Float32Array.from(identity)).id)();
    const skin = new Skin(world, 1);
    skin.set(first, [[0, bone.handle]]);
    skin.update();
    assert.deepStrictEqual(skin.matrix(0), identity);
    const doubled = identity.map((value) => 2 * value);
    assert(await remake(() => world.bones(doubled), first));
    skin.update();
    assert.deepStrictEqual(skin.matrix(0), doubled);
  });

  it('of a released component does not affect its entities', async () => {
    const world = new AnimationWorld();
    const [entity] = world.roots(1);
    const runtime = addon.runtimeOf(world.engine);
    const clip = world.clip(holdClip({ 0: { PositionX: 3 } }));
    const [id, memoryID] = (() => {
      const component = world.engine.createComponent(2, 1, 1);
      over(Uint32Array, component).set([clip, 0, 0x3f800000, entity.handle]);
      world.engine.updateAnimator(component.id);
      return [component.id, component.memoryID];
    })();
    assert.deepStrictEqual(position(entity), [3, 0, 0]);
    assert(await collectUntil(() => !addon.hasBlock(runtime, memoryID)));
    entity.words[5] = 0;
    assert.strictEqual(world.engine.updateAnimator(id), null);
    assert.deepStrictEqual(position(entity), [0, 0, 0]);
    world.refresh([entity]);
    assert.deepStrictEqual(origin(entity), [0, 0, 0]);
  });

  it('of clips, models, animators and skins keeps memory bounded', async () => {
    const world = new AnimationWorld();
    const { engine } = world;
    const [entity] = world.roots(1);
    const curves = [];
    for (let target = 0; target < 20; ++target) {
      const keys = Array.from({ length: 60 }, (none, frame) => [frame, frame, 1, 1]);
      curves.push({ target, type: types.PositionX, keys });
    }
    const bytes = writeClip({ curves });
    const bones = new ArrayBuffer(64 * 200);
    const rounds = sanitized ? 6 : 30;
    const ids = new Set();
    // Before the next line, since the host keeps the memory of its result.
    let highest = process.memoryUsage().rss;
    await collect();
    const external = addon.externalMemory();
    const references = addon.coreReferences(engine);
    let base = 0;
    const use = (i) => {
      const clip = engine.createDataModel(1, bytes);
      const model = engine.createDataModel(2, bones);
      const animator = engine.createComponent(2, 1, 20);
      const skin = engine.createComponent(3, 200);
      const words = over(Uint32Array, animator);
      words[0] = clip.id;
      over(Float32Array, animator).set([i % 60, 1], 1);
      words.fill(entity.handle, 3);
      engine.updateAnimator(animator.id);
      assert.strictEqual(entity.words[5], i % 60);
      const block = over(Uint32Array, skin);
      block[0] = model.id;
      block.fill(entity.handle, 201, 401);
      engine.updateSkinningMatrix(skin.id);
      ids.add(clip.id).add(model.id).add(animator.id).add(skin.id);
    };
    for (let round = 0; round < rounds; ++round) {
      for (let i = 0; i < 100; ++i) {
        use(i);
      }
      await collect();
      const { rss } = process.memoryUsage();
      if (round === 2) {
        base = rss;
      }
      highest = Math.max(highest, rss);
    }
    // About 5 MB a round: 20 KB of keys twice, 12.8 KB of matrices, 14.4 KB of results.
    assert(ids.size < 300, `${ids.size} handles`);
    const limit = (sanitized ? 300 : 40) * (1 << 20);
    assert(highest - base < limit, `grew by ${highest - base} bytes`);
    assert(await collectUntil(() => addon.coreReferences(engine) === references));
    assert(await collectUntil(() => addon.externalMemory() === external));
  });
});

describe('class records', () => {
  it('of components and data models name only BindingBase', () => {
    const engine = nq.getEngine();
    for (const [object, own] of [
      [engine.createComponent(1), 'BindingEngineComponent'],
      [engine.createComponent(2, 1, 1), 'BindingEngineComponent'],
      [engine.createComponent(3, 1), 'BindingEngineComponent'],
      [engine.createDataModel(1, new ArrayBuffer(0)), 'BindingEngineDataModel'],
      [engine.createDataModel(7, new ArrayBuffer(0)), 'BindingEngineDataModel'],
    ]) {
      for (const name of [
        'BindingBase',
        'BindingEngineBase',
        'BindingEngine',
        'BindingEngineEntity',
        'BindingEngineComponent',
        'BindingEngineDataModel',
        'IEntity',
      ]) {
        const expected = name === own || name === 'BindingBase';
        assert.strictEqual(addon.isKindOf(object, name), expected, `${own}, ${name}`);
      }
      assert.strictEqual(addon.baseCount(object), 1);
    }
  });

  it('are registered once, however often that runs', () => {
    const [first, second] = [addon.registerClasses(), addon.registerClasses()];
    for (const name of ['EngineComponent', 'EngineDataModel']) {
      assert.strictEqual(first[name].name, name);
      assert.strictEqual(second[name], first[name]);
      assert.deepStrictEqual(Object.keys(first[name].prototype), []);
    }
    assert.deepStrictEqual([second.componentBases, second.dataModelBases], [1, 1]);
  });

  for (const name of ['constructComponent', 'constructDataModel']) {
    it(`are of classes that JavaScript can not construct: ${name}`, () => {
      const result = runScript('animation.js', name);
      assertFailedAssertion(result, '0 && "not implement"', 'BindingTemp/BindingEngine');
      assert.strictEqual(result.stdout, 'about to end\n');
    });
  }
});

describe('fatal report', () => {
  const folder = '..\\..\\Engine\\Animation\\';
  const reports = {
    clip: ['AnimationClipModel not found', 'AnimatorComponent', 29],
    type: ['wrong sample type', 'AnimationClipModel', 328],
    header: ['animation clip header data error', 'AnimationClipModel', 364],
    content: ['animation clip content data error', 'AnimationClipModel', 377],
    data: ['bone inverse data error', 'SkeletonBonesInverseModel', 14],
    model: ['bone inverse model not found', 'SkinningMatrixComponent', 22],
    entity: ['entity not found', 'SkinningMatrixComponent', 27],
  };

  /** Runs a case, which must end with exactly this report; returns the output after it. */
  function assertReport(name, [message, source, line]) {
    const result = runScript('animation.js', name);
    assertFailedAssertion(result, '0', folder + source);
    const text = `Assertion failed: 0, file ${folder}${source}, line ${line}\n`;
    assert.strictEqual(result.stderr, text);
    const said = `about to end\n[NQ_FATAL][Engine]: ${message}\n`;
    assert.strictEqual(result.stdout.slice(0, said.length), said);
    return result.stdout.slice(said.length);
  }

  for (const [name, report] of [
    ['missingClip', 'clip'],
    ['freshAnimator', 'clip'],
    ['missingInactiveClip', 'clip'],
    ['missingClipInBatch', 'clip'],
    ['releasedClip', 'clip'],
    ['wrongType', 'type'],
    ['typeZero', 'type'],
    ['wrongTypeInBatch', 'type'],
    ['wrongHeader', 'header'],
    ['tooManyCurves', 'header'],
    ['wrongHeaderOfInactiveClip', 'header'],
    ['shortContent', 'content'],
    ['tooManyKeys', 'content'],
    ['oddBones', 'data'],
    ['oddBonesView', 'data'],
    ['freshSkinning', 'model'],
    ['missingEntityInBatch', 'entity'],
  ]) {
    it(`of a ${report}: ${name}`, () => {
      assert.strictEqual(assertReport(name, reports[report]), '');
    });
  }

  it('is written only when a clip is used', () => {
    const result = runScript('animation.js', 'unusedContent');
    assertCleanExit(result);
    assert.strictEqual(result.stdout, '');
  });

  it('of a missing clip precedes all writes', () => {
    const shown = assertReport('missingSecondClip', reports.clip);
    const written = Float32Array.of(1, 2, 3, 4, 5, 6);
    assert.strictEqual(shown, bytesOf(written.buffer).toString('hex'));
  });

  /** A skinning block of two bones over one model, its results as given. */
  function skinBlock(words, results) {
    return Buffer.concat([
      bytesOf(Uint32Array.from(words).buffer),
      ...results.map((result) =>
        result === null ? Buffer.alloc(64, 0x5a) : bytesOf(Float32Array.from(result).buffer)
      ),
    ]).toString('hex');
  }

  it('of a missing bones model precedes all writes', () => {
    const shown = assertReport('missingBonesModel', reports.model);
    assert.strictEqual(shown, skinBlock([0x7000, 0, 0, 0x1000, 0x1000], [null, null]));
  });

  it('of a missing entity follows the results of the bones before it', () => {
    const shown = assertReport('missingEntity', reports.entity);
    const placed = identity.slice(0, 12).concat(1, 2, 3, 1);
    assert.strictEqual(shown, skinBlock([0x2000, 0, 0, 0x1000, 0x1003], [placed, null]));
  });
});
