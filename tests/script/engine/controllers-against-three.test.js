'use strict';
// Layers of an animator controller against mixers of three.js, which work in double precision: where
// both mean the same they must agree within rounding, and where they don't the difference is pinned by
// its formula. A mixer's actions are states here; those of an additive clip are additive layers.
const assert = require('assert');
const three = require('three');
const { createRandom } = require('../../fixtures/world');
const { types } = require('../../fixtures/clips');
const { ControllerWorld } = require('../../fixtures/controllers');

const additive = 1;
const framesPerSecond = 30;
const frameCount = 40;

/** Half the distance of floats next to 1: the relative error of one operation. */
const unit = 2 ** -24;

/**
 * Of sums: a product and an addition a state, then one of each for every layer above the first. Relative
 * to the sum of what is added, without regard to signs. Samples between keys take ten operations more, and a
 * mixer's frames are times in floats: off by a unit of 1, at speeds of up to 30 times the largest value.
 */
const sumRounding = 24 * unit;

/**
 * Of rotations: 2 units in the sum of two, which is not shorter than the root of a half; twice 5 units
 * where that is normalised (products and sums 4, halved by the root; root, reciprocal and product one
 * each); 4 units a product of two; and the floats that both start from are off their length by a unit,
 * which an arc of a fifth of a radian or more between them turns into 10 units. Chords at most.
 */
const rotationRounding = 48 * unit;

const axes = { x: [1, 0, 0], y: [0, 1, 0], z: [0, 0, 1] };

/** The quaternion of a rotation, in floats. */
function turn([x, y, z], angle) {
  const s = Math.sin(angle / 2);
  return new three.Quaternion(...[x * s, y * s, z * s, Math.cos(angle / 2)].map(Math.fround));
}

function randomAxis(random) {
  const axis = [0, 0, 0].map(() => random.real(-1, 1));
  const length = Math.hypot(...axis);
  return axis.map((c) => c / length);
}

/** The distance of two rotations as points on the sphere; opposite points are the same rotation. */
function chord(a, b) {
  const apart = (sign) =>
    Math.hypot(a.x - sign * b.x, a.y - sign * b.y, a.z - sign * b.z, a.w - sign * b.w);
  return Math.min(apart(1), apart(-1));
}

function product(...factors) {
  return factors.reduce((a, b) => a.clone().multiply(b));
}

/** A rotation scaled by t as layers do: by the tangent of half its angle. */
function scaled(q, t) {
  return new three.Quaternion(q.x * t, q.y * t, q.z * t, q.w).normalize();
}

/**
 * A motion: keys at the same frames for all of what moves, straight lines in between.
 * @typedef {{frames: number[], positions: number[][], scales: number[][],
 *   rotations: three.Quaternion[]}} Motion
 */

/** A constant motion. */
function still({ position = [0, 0, 0], scale = [1, 1, 1], rotation = turn(axes.x, 0) } = {}) {
  return { frames: [0], positions: [position], scales: [scale], rotations: [rotation] };
}

function randomMotion(random, axis) {
  const frames = [0, 10, 20, 30];
  const vectors = (low, high) => frames.map(() => [0, 0, 0].map(() => random.real(low, high)));
  const rotations = frames.map(() => turn(axis, random.real(0.5, 1.2)));
  return { frames, positions: vectors(-5, 5), scales: vectors(0.5, 2), rotations };
}

/** The curves of one target; a line's slopes are its own on both ends, so that the cubic is it. */
function curvesOf({ frames, positions, scales, rotations }) {
  const curve = (type, values) => ({
    target: 0,
    type,
    keys: frames.map((frame, i) => {
      const slope = (a, b) =>
        a < 0 || b >= frames.length
          ? 0
          : ((values[b] - values[a]) / (frames[b] - frames[a])) * framesPerSecond;
      return [frame, values[i], slope(i - 1, i), slope(i, i + 1)];
    }),
  });
  const column = (rows, i) => rows.map((row) => Math.fround(row[i]));
  const turns = rotations.map(({ x, y, z, w }) => [x, y, z, w]);
  return [
    ...[0, 1, 2].map((i) => curve(types.PositionX + i, column(positions, i))),
    ...[0, 1, 2].map((i) => curve(types.ScaleX + i, column(scales, i))),
    ...[0, 1, 2].map((i) => curve(types.QuaternionX + i, column(turns, i))),
    curve(types.QuaternionW, column(turns, 3)),
  ];
}

/** The same as a clip of three.js, with a unique name. */
function clipOf({ frames, positions, scales, rotations }) {
  const times = frames.map((frame) => frame / framesPerSecond);
  return new three.AnimationClip('', frameCount / framesPerSecond, [
    new three.VectorKeyframeTrack('.position', times, [].concat(...positions)),
    new three.VectorKeyframeTrack('.scale', times, [].concat(...scales)),
    new three.QuaternionKeyframeTrack(
      '.quaternion',
      times,
      [].concat(...rotations.map(({ x, y, z, w }) => [x, y, z, w]))
    ),
  ]);
}

/**
 * One entity and one object, posed by the same layers.
 * @param {{position: number[], scale: number[], rotation: three.Quaternion}} rest
 * @param {{blendMode: ?number, weight: ?number, states: {motion: Motion, frame: number, weight: number,
 *   reference: ?Motion, referenceFrame: ?number}[]}[]} layers
 * @return {{engine: Object, oracle: Object}} position, scale and rotation that each makes of it
 */
function pose(rest, layers) {
  const world = new ControllerWorld();
  const [entity] = world.entities(1);
  const { x, y, z, w } = rest.rotation;
  entity.setTransform([x, y, z, w], rest.position, rest.scale);
  const clips = new Map();
  const clip = (motion) => {
    if (!clips.has(motion)) {
      const id = world.clip({ framesPerSecond, frameCount, curves: curvesOf(motion) });
      clips.set(motion, id);
    }
    return clips.get(motion);
  };
  const records = layers.map(({ blendMode = 0, weight = 1, states }) => ({
    blendMode,
    weight,
    states: states.map(({ motion, frame = 0, weight: share = 1, reference, referenceFrame = 0 }) =>
      world.state(
        [
          {
            clip: clip(motion),
            time: frame,
            referenceClip: reference === undefined ? 0xffffffff : clip(reference),
            referenceTime: referenceFrame,
          },
        ],
        { weight: share }
      )
    ),
  }));
  const binding = world.binding(Array.from(clips.values(), (id) => [id, [entity.handle]]));
  world.controller(binding, records).update();

  const object = new three.Object3D();
  object.position.fromArray(rest.position);
  object.scale.fromArray(rest.scale);
  object.quaternion.copy(rest.rotation);
  const mixer = new three.AnimationMixer(object);
  for (const { blendMode, weight = 1, states } of layers) {
    for (const { motion, frame = 0, weight: share = 1, reference, referenceFrame = 0 } of states) {
      const played = clipOf(motion);
      if (blendMode === additive) {
        const from = reference === undefined ? clipOf(motion) : clipOf(reference);
        three.AnimationUtils.makeClipAdditive(played, referenceFrame, from, framesPerSecond);
      }
      const action = mixer.clipAction(played);
      action.play();
      action.time = frame / framesPerSecond;
      action.setEffectiveWeight(weight * share);
    }
  }
  mixer.update(0);

  const words = Array.from(entity.words);
  assert.strictEqual(entity.bytes[0], 1);
  return {
    engine: {
      position: words.slice(5, 8),
      scale: words.slice(8, 11),
      rotation: new three.Quaternion(...words.slice(1, 5)),
    },
    oracle: {
      position: object.position.toArray(),
      scale: object.scale.toArray(),
      rotation: object.quaternion.clone(),
    },
  };
}

/** Asserts that numbers agree as sums of terms that are not larger than `largest`. */
function assertSums(actual, expected, largest) {
  actual.forEach((value, i) => {
    const message = `[${i}]: ${actual} is not ${expected}`;
    assert(Math.abs(value - expected[i]) <= sumRounding * largest, message);
  });
}

function assertRotation(actual, expected, distance = 0) {
  const away = chord(actual, expected);
  const message = `${actual.toArray()} is ${away} off ${expected.toArray()}, not ${distance}`;
  assert(Math.abs(away - distance) <= rotationRounding, message);
}

/** Points on a circle that are two angles away from each other. */
function arcChord(first, second) {
  return 2 * Math.sin(Math.abs(first - second) / 2);
}

const plain = { position: [0, 0, 0], scale: [1, 1, 1], rotation: turn(axes.x, 0) };
const rounds = 200;

describe('crossfades against three.js', () => {
  it('agree in position and scale, for any number of states whose weights sum to 1', () => {
    const random = createRandom(3);
    for (let round = 0; round < rounds; ++round) {
      // Fractions of 64 are added without rounding.
      const parts = [0, 64, ...[1, 2].map(() => 1 + random.below(63))].sort((a, b) => a - b);
      const states = parts.slice(1).map((part, i) => ({
        motion: randomMotion(random, randomAxis(random)),
        frame: random.real(0, 30),
        weight: (part - parts[i]) / 64,
      }));
      const { engine, oracle } = pose(plain, [{ states }]);
      assertSums(engine.position, oracle.position, 5);
      assertSums(engine.scale, oracle.scale, 2);
    }
  });

  it('differ in rotation as linear interpolation differs from slerp', () => {
    const random = createRandom(5);
    let largest = 0;
    for (let round = 0; round < rounds; ++round) {
      const share = (1 + random.below(63)) / 64;
      const [first, second] = [0, 1].map(() => turn(randomAxis(random), random.real(0.3, 3)));
      const cosine = Math.abs(first.dot(second));
      const angle = Math.acos(cosine);
      if (angle < 0.2) {
        continue;
      }
      const { engine, oracle } = pose(plain, [
        {
          states: [
            { motion: still({ rotation: first }), weight: 1 - share },
            { motion: still({ rotation: second }), weight: share },
          ],
        },
      ]);
      const walked = Math.atan2(share * Math.sin(angle), 1 - share + share * cosine);
      assertRotation(engine.rotation, oracle.rotation, arcChord(walked, share * angle));
      largest = Math.max(largest, arcChord(walked, share * angle));
    }
    assert(largest > 0.04, `${largest}`);
  });

  it('agree in rotation half-way', () => {
    const random = createRandom(7);
    for (let round = 0; round < rounds; ++round) {
      const [first, second] = [0, 1].map(() => turn(randomAxis(random), random.real(0.5, 3)));
      if (Math.abs(first.dot(second)) > Math.cos(0.2)) {
        continue;
      }
      const states = [first, second].map((rotation) => ({
        motion: still({ rotation }),
        weight: 0.5,
      }));
      const { engine, oracle } = pose(plain, [{ states }]);
      assertRotation(engine.rotation, oracle.rotation);
    }
  });

  it('agree with a layer of weight below 1 over the rest pose', () => {
    const random = createRandom(11);
    for (let round = 0; round < rounds; ++round) {
      const axis = randomAxis(random);
      const rest = {
        position: [0, 0, 0].map(() => random.real(-5, 5)),
        scale: [0, 0, 0].map(() => random.real(0.5, 2)),
        rotation: turn(axis, random.real(-1, 0)),
      };
      const motion = randomMotion(random, axis);
      const frame = 10 * random.below(4);
      const weight = random.real(0.05, 0.95);
      const { engine, oracle } = pose(rest, [{ weight, states: [{ motion, frame }] }]);
      assertSums(engine.position, oracle.position, 10);
      assertSums(engine.scale, oracle.scale, 4);
      const rotation = motion.rotations[frame / 10];
      const angle = Math.acos(Math.abs(rotation.dot(rest.rotation)));
      const walked = Math.atan2(weight * Math.sin(angle), 1 - weight + weight * Math.cos(angle));
      assertRotation(engine.rotation, oracle.rotation, arcChord(walked, weight * angle));
    }
  });
});

describe('additive layers against three.js', () => {
  /** Motions around one axis, an override layer under an additive one of the given weight. */
  function stacked(random, weight) {
    const axis = randomAxis(random);
    const [low, high, reference] = [0, 1, 2].map(() => randomMotion(random, axis));
    const frame = 10 * random.below(4);
    const referenceFrame = 10 * random.below(4);
    return pose(plain, [
      { states: [{ motion: low, frame: random.real(0, 30) }] },
      { blendMode: additive, weight, states: [{ motion: high, frame, reference, referenceFrame }] },
    ]);
  }

  it('agree in position and scale over an override layer, for any weight', () => {
    const random = createRandom(13);
    for (let round = 0; round < rounds; ++round) {
      const { engine, oracle } = stacked(random, random.real(0, 1.5));
      assertSums(engine.position, oracle.position, 5 + 1.5 * 10);
      assertSums(engine.scale, oracle.scale, 2 + 1.5 * 4);
    }
  });

  it('agree in rotation for a weight of 1, if all rotations share an axis', () => {
    const random = createRandom(17);
    let moved = 0;
    for (let round = 0; round < rounds; ++round) {
      const axis = randomAxis(random);
      const [low, high, reference] = [0, 1, 2].map(() => randomMotion(random, axis));
      const [i, j, k] = [0, 1, 2].map(() => random.below(4));
      const { engine, oracle } = pose(plain, [
        { states: [{ motion: low, frame: 10 * i }] },
        {
          blendMode: additive,
          states: [{ motion: high, frame: 10 * j, reference, referenceFrame: 10 * k }],
        },
      ]);
      assertRotation(engine.rotation, oracle.rotation);
      moved += chord(engine.rotation, low.rotations[i]) > 0.05 ? 1 : 0;
    }
    assert(moved > rounds / 2, `${moved}`);
  });

  it('agree over the rest pose in position for any weight, and in rotation if it is the reference', () => {
    const random = createRandom(19);
    for (let round = 0; round < rounds; ++round) {
      const motion = randomMotion(random, randomAxis(random));
      const reference = randomMotion(random, randomAxis(random));
      const position = [0, 0, 0].map(() => random.real(-5, 5));
      const rest = Object.assign({}, plain, { position, rotation: reference.rotations[1] });
      const weight = random.pick([1, random.real(0, 1)]);
      const frame = 10 * random.below(4);
      const states = [{ motion, frame, reference, referenceFrame: 10 }];
      const { engine, oracle } = pose(rest, [{ blendMode: additive, weight, states }]);
      assertSums(engine.position, oracle.position, 5 + 10);
      if (weight === 1) {
        assertRotation(engine.rotation, oracle.rotation);
        // That is the clip itself.
        assertRotation(engine.rotation, motion.rotations[frame / 10]);
      }
    }
  });

  it('use the first frame of a clip as the default reference', () => {
    const random = createRandom(23);
    for (let round = 0; round < 20; ++round) {
      const motion = randomMotion(random, randomAxis(random));
      const states = [{ motion, frame: 20 }];
      const { engine, oracle } = pose(plain, [{ blendMode: additive, states }]);
      assertSums(engine.position, oracle.position, 10);
      assertRotation(engine.rotation, oracle.rotation);
    }
  });

  it('differ in rotation for weights below 1 as a tangent differs from its angle', () => {
    const random = createRandom(29);
    let largest = 0;
    for (let round = 0; round < rounds; ++round) {
      const axis = randomAxis(random);
      const angle = random.real(0.4, 2.5);
      const [weight, share] = [random.real(0.1, 0.9), random.pick([1, 0.5, 0.75])];
      const states = [
        { motion: still({ rotation: turn(axis, angle) }), reference: still(), weight: share },
      ];
      const low = still({ rotation: turn(axis, 0.3) });
      const { engine, oracle } = pose(plain, [
        { states: [{ motion: low }] },
        { blendMode: additive, weight, states },
      ]);
      const half = Math.atan(weight * share * Math.tan(angle / 2));
      const distance = arcChord(half, (weight * share * angle) / 2);
      assertRotation(engine.rotation, oracle.rotation, distance);
      assertRotation(engine.rotation, product(turn(axis, 2 * half), turn(axis, 0.3)));
      largest = Math.max(largest, distance);
    }
    assert(largest > 0.05, `${largest}`);
  });

  it('rotate in the space of the parent; a mixer rotates in the space of the bone', () => {
    const random = createRandom(31);
    let apart = 0;
    for (let round = 0; round < rounds; ++round) {
      const [base, rotation, start] = [0, 1, 2].map(() =>
        turn(randomAxis(random), random.real(0.5, 2.5))
      );
      const back = start.clone().conjugate();
      const states = [{ motion: still({ rotation }), reference: still({ rotation: start }) }];
      const layer = { blendMode: additive, states };
      const low = { states: [{ motion: still({ rotation: base }) }] };
      for (const { engine, oracle } of [
        pose(plain, [low, layer]),
        pose(Object.assign({}, plain, { rotation: base }), [layer]),
      ]) {
        assertRotation(engine.rotation, product(rotation, back, base));
        assertRotation(oracle.rotation, product(base, back, rotation));
        apart += chord(engine.rotation, oracle.rotation) > 0.1 ? 1 : 0;
      }
    }
    assert(apart > rounds, `${apart}`);
  });

  it('multiply in the order of layers, the last one outermost; a mixer has it innermost', () => {
    const base = turn(axes.x, 0.8);
    const [first, second] = [turn(axes.y, 1), turn(axes.z, 1.5)];
    const layers = [first, second].map((rotation) => ({
      blendMode: additive,
      states: [{ motion: still({ rotation }), reference: still() }],
    }));
    const low = { states: [{ motion: still({ rotation: base }) }] };
    const { engine, oracle } = pose(plain, [low, ...layers]);
    assertRotation(engine.rotation, product(second, first, base));
    assertRotation(oracle.rotation, product(base, first, second));
    assert(chord(engine.rotation, oracle.rotation) > 0.5);
    // Rotations about one axis commute.
    const even = pose(plain, [
      { states: [{ motion: still({ rotation: turn(axes.z, 0.2) }) }] },
      ...[0.5, 0.7].map((angle) => ({
        blendMode: additive,
        states: [{ motion: still({ rotation: turn(axes.z, angle) }), reference: still() }],
      })),
    ]);
    assertRotation(even.engine.rotation, even.oracle.rotation);
    assertRotation(even.engine.rotation, turn(axes.z, 1.4));
  });

  it('add rotations of states in one layer as vectors; a mixer multiplies', () => {
    for (const [a, b] of [
      [0.4, 0.8],
      [1, 0.1],
    ]) {
      const states = [a, b].map((angle) => ({
        motion: still({ rotation: turn(axes.z, angle) }),
        reference: still(),
      }));
      const { engine, oracle } = pose(plain, [{ blendMode: additive, states }]);
      assertRotation(oracle.rotation, turn(axes.z, a + b));
      // The sum points half-way, and is scaled by its weight of 2.
      assertRotation(engine.rotation, scaled(turn(axes.z, (a + b) / 2), 2));
    }
  });

  it('in layer 0 reduce the rest scale by their weight; a mixer keeps it', () => {
    const random = createRandom(41);
    for (let round = 0; round < rounds; ++round) {
      const rest = Object.assign({}, plain, { scale: [0, 0, 0].map(() => random.real(1, 2)) });
      const motion = randomMotion(random, axes.x);
      const weight = random.real(0.1, 1);
      const states = [{ motion, frame: 20 }];
      const { engine, oracle } = pose(rest, [{ blendMode: additive, weight, states }]);
      const difference = oracle.scale.map((value, i) => value - weight * rest.scale[i]);
      assertSums(engine.scale, difference, 4);
    }
  });

  it('in higher layers add to position 0 if no lower layer animates it; a mixer adds to the rest pose', () => {
    const rest = Object.assign({}, plain, { position: [10, 20, 30] });
    const motion = still({ position: [5, 6, 7] });
    const reference = still({ position: [1, 1, 1] });
    const states = [{ motion, reference }];
    const { engine, oracle } = pose(rest, [
      { blendMode: 2, states: [] },
      { blendMode: additive, states },
    ]);
    assert.deepStrictEqual(engine.position, [4, 5, 6]);
    assert.deepStrictEqual(oracle.position, [14, 25, 36]);
  });
});

describe('override layers against three.js', () => {
  it('replace lower layers, and blend with the rest pose; a mixer blends all its actions', () => {
    const rest = Object.assign({}, plain, { position: [8, 0, 0] });
    const layers = [
      [16, 0, 0],
      [32, 0, 0],
    ].map((position, i) => ({
      weight: [1, 0.5][i],
      states: [{ motion: still({ position }) }],
    }));
    const { engine, oracle } = pose(rest, layers);
    assert.strictEqual(engine.position[0], 20);
    assert(Math.abs(oracle.position[0] - (16 + (0.5 / 1.5) * 16)) < 1e-12);
  });

  it('complete weights below 1 by an identity; a mixer by the rest pose', () => {
    const rest = Object.assign({}, plain, { position: [8, 0, 0], scale: [4, 1, 1] });
    const motion = still({ position: [16, 0, 0], scale: [2, 1, 1] });
    const { engine, oracle } = pose(rest, [{ states: [{ motion, weight: 0.5 }] }]);
    assert.deepStrictEqual([engine.position[0], engine.scale[0]], [8, 1.5]);
    assert.deepStrictEqual([oracle.position[0], oracle.scale[0]], [12, 3]);
  });
});
