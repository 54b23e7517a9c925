'use strict';
// The animated scene: characters of 50 bones, each at its own place and times, with clips that all share. Clips have
// a key on every frame, as exporters write them.
const { createRandom } = require('./random');
const { buildTree } = require('./scenes');

/** Bones of a character. */
const bones = 50;

/** Clips last 4 seconds. Their last key is on the frame where they wrap. */
const framesPerSecond = 30;
const clipFrames = 120;
const keyCount = clipFrames + 1;
const clipCount = 3;

/** Channels of a clip: x, y, z, w of each bone's rotation in turn, then x, y, z of the hips' position. */
const channelCount = 4 * bones + 3;

/** Half the length of the edges of the cube in which characters are placed. */
const reach = 100;

/** Sets of times and weights of consecutive frames: steps of half a clip frame, so 60 frames per second. */
const setCount = 16;

/**
 * A clip; row by row of its keys, `channelCount` numbers each. Tangents are per second, the same on both
 * sides of a key.
 * @typedef {{values: Float32Array, tangents: Float32Array}} SceneClip
 */

/**
 * Two clips that a character plays: their numbers, and their times in frames. The weight of the second one is
 * 1 minus that of the first.
 * @typedef {{fractional: Float32Array, whole: Float32Array, weights: Float32Array}} PlaySet `fractional`
 * and `whole` hold two times per character, none and all of them on a key
 */

/**
 * @typedef {{characters: number, count: number, parents: Int32Array, offsets: Float32Array,
 *   scales: Float32Array, inverseBinds: Float32Array, places: Float32Array, clips: SceneClip[],
 *   clipsOf: Uint8Array, sets: PlaySet[], spheres: Float32Array}} AnimationScene `parents`, `offsets`,
 *   `scales`, `inverseBinds` are of the bones, the same for all characters; the hips' parent is -1, and
 * they are at the character's place. `clipsOf` holds two clip numbers per character, `spheres` centre
 *   and radius in the space of the hips. `count` is that of spheres
 */

/**
 * A clip in which each bone swings about its own axis.
 * @param {number} number
 * @returns {SceneClip}
 */
function createClip(number) {
  const random = createRandom(31 + number);
  const values = new Float32Array(keyCount * channelCount);
  const tangents = new Float32Array(keyCount * channelCount);
  const perSecond = (2 * Math.PI * framesPerSecond) / clipFrames;
  const put = (channel, motionAt) => {
    for (let key = 0; key < keyCount; ++key) {
      const [value, slope] = motionAt(key / framesPerSecond);
      values[key * channelCount + channel] = value;
      tangents[key * channelCount + channel] = slope;
    }
  };
  for (let bone = 0; bone < bones; ++bone) {
    const axis = [random() - 0.5, random() - 0.5, random() - 0.5];
    const length = Math.hypot(axis[0], axis[1], axis[2]);
    const rate = perSecond * (1 + Math.floor(2 * random()));
    const phase = 7 * random();
    const swing = 0.15 + 0.25 * random(); // of half the angle
    const half = (time) => swing * Math.sin(rate * time + phase);
    const halfSlope = (time) => swing * rate * Math.cos(rate * time + phase);
    for (let i = 0; i < 3; ++i) {
      const along = axis[i] / length;
      put(4 * bone + i, (time) => [
        along * Math.sin(half(time)),
        along * Math.cos(half(time)) * halfSlope(time),
      ]);
    }
    put(4 * bone + 3, (time) => [Math.cos(half(time)), -Math.sin(half(time)) * halfSlope(time)]);
  }
  for (let i = 0; i < 3; ++i) {
    const middle = [0, 1, 0][i];
    const rate = perSecond * (1 + (i % 2));
    put(4 * bones + i, (time) => [
      middle + 0.2 * Math.sin(rate * time + i),
      0.2 * rate * Math.cos(rate * time + i),
    ]);
  }
  return { values, tangents };
}

/**
 * @param {number} characters
 * @returns {AnimationScene}
 */
function createAnimationScene(characters) {
  const random = createRandom(characters);
  const between = (low, high) => low + (high - low) * random();
  const fill = (length, next) => Float32Array.from({ length }, next);
  const tree = buildTree('humanoids', bones);
  const inverseBinds = fill(16 * bones, () => between(-1, 1));
  for (let at = 0; at < inverseBinds.length; at += 16) {
    inverseBinds.set([0], at + 3);
    inverseBinds.set([0], at + 7);
    inverseBinds.set([0], at + 11);
    inverseBinds.set([1], at + 15);
  }
  const clipsOf = new Uint8Array(2 * characters);
  for (let c = 0; c < characters; ++c) {
    clipsOf[2 * c] = c % clipCount;
    clipsOf[2 * c + 1] = (c + 1 + (c % 2)) % clipCount;
  }
  const starts = fill(
    2 * characters,
    () => Math.floor(between(0, clipFrames)) + between(0.05, 0.45)
  );
  const sets = Array.from({ length: setCount }, (_, set) => ({
    fractional: starts.map((start) => (start + 0.5 * set) % clipFrames),
    whole: starts.map((start) => Math.floor(start + set) % clipFrames),
    // Multiples of 1/64: two weights sum up to 1 without rounding.
    weights: fill(characters, () => (1 + Math.floor(between(0, 63))) / 64),
  }));
  return {
    characters,
    count: characters,
    parents: tree.parents.slice(1).map((parent) => parent - 1),
    offsets: fill(3 * bones, () => between(-0.15, 0.15)),
    scales: tree.scales.slice(3),
    inverseBinds,
    places: fill(3 * characters, () => between(-reach, reach)),
    clips: Array.from({ length: clipCount }, (_, number) => createClip(number)),
    clipsOf,
    sets,
    spheres: fill(4 * characters, (_, i) => [0, 0.2, 0, 1.2][i % 4]),
  };
}

/** Bones from the hips to the deepest one. */
function depthOf({ parents }) {
  const depths = [];
  parents.forEach((parent, bone) => {
    depths[bone] = parent < 0 ? 1 : depths[parent] + 1;
  });
  return Math.max(...depths);
}

/**
 * Tolerance between contenders: in the first three columns of a matrix, and in the fourth.
 * @typedef {{linear: number, translation: number}} Tolerance
 */

/**
 * For contenders with the same arithmetic that round differently. Places of characters are within a few hundred
 * units.
 * @type {Tolerance}
 */
const rounding = { linear: 5e-6, translation: 5e-5 };

/**
 * For a contender that interpolates linearly or by slerp where the others use a cubic. A chord deviates from a curve
 * by an eighth of its second difference; for an arc and for the length that a quaternion between keys lacks, twice as
 * much is allowed. A rotation matrix differs by at most twice as much as its quaternion, and a bone by the sum over
 * its ancestors.
 * @param {AnimationScene} scene
 * @returns {Tolerance}
 */
function interpolationTolerance(scene) {
  let largest = 0;
  for (const { values } of scene.clips) {
    for (let at = channelCount; at < values.length - channelCount; at += channelCount) {
      for (let first = 0; first < channelCount; first += 4) {
        let squares = 0;
        for (let i = first; i < Math.min(first + 4, channelCount); ++i) {
          const difference =
            values[at - channelCount + i] - 2 * values[at + i] + values[at + channelCount + i];
          squares += difference * difference;
        }
        largest = Math.max(largest, Math.sqrt(squares));
      }
    }
  }
  const ofMatrix = 2 * 2 * (largest / 8);
  const linear = ofMatrix * depthOf(scene);
  const length = Math.hypot(0.15, 0.15, 0.15) * depthOf(scene);
  return { linear: linear + rounding.linear, translation: linear * length + rounding.translation };
}

/**
 * The resulting tolerance of products with the scene's inverse bind matrices, whose numbers are below 1.
 * @param {Tolerance} tolerance
 * @returns {Tolerance}
 */
function skinTolerance({ linear, translation }) {
  return { linear: 3 * linear, translation: translation + 3 * linear };
}

/**
 * Throws if two sets of affine matrices differ by more than is allowed.
 * @param {string} what label for the message
 * @param {Float32Array} expected 16 numbers per bone, column-major
 * @param {Float32Array} actual
 * @param {Tolerance} tolerance
 */
function assertSamePose(what, expected, actual, { linear, translation }) {
  if (expected.length !== actual.length || expected.length === 0) {
    throw new Error(`${what}: ${actual.length} numbers, expected ${expected.length}`);
  }
  for (let i = 0; i < expected.length; ++i) {
    // Written so that NaN on either side fails.
    if (!(Math.abs(expected[i] - actual[i]) <= (i % 16 < 12 ? linear : translation))) {
      const place = `bone ${Math.floor(i / 16) % bones} of character ${Math.floor(i / 16 / bones)}`;
      throw new Error(
        `${what}: ${place}, element ${i % 16} is ${actual[i]}, expected ${expected[i]}`
      );
    }
  }
}

/**
 * Throws unless every bone's matrix differs between the sets: constant matrices would agree whatever was computed.
 * @param {string} what label for the message
 * @param {Float32Array} before
 * @param {Float32Array} after
 */
function assertMoved(what, before, after) {
  for (let at = 0; at < before.length; at += 16) {
    if (!before.subarray(at, at + 16).some((value, i) => Math.abs(value - after[at + i]) > 1e-4)) {
      throw new Error(`${what}: bone ${at / 16} does not move`);
    }
  }
}

module.exports = {
  assertMoved,
  assertSamePose,
  bones,
  channelCount,
  clipFrames,
  createAnimationScene,
  framesPerSecond,
  interpolationTolerance,
  keyCount,
  rounding,
  skinTolerance,
};
