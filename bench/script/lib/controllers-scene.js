'use strict';
// The scene of controllers: the characters of the animation scene, with clips in which each bone rotates about its
// own hinge, the same one in all clips. Rotations about one axis commute, so that contenders which combine them in
// different orders agree.
const animation = require('./animation-scene');
const { createRandom } = require('./random');

const { bones, channelCount, clipFrames, createAnimationScene, framesPerSecond, keyCount } =
  animation;

/** Numbers of the clips. */
const walk = 0;
const run = 1;
const aim = 2;
const clipCount = 3;

/** Bones of the hips and the legs, which are masked in the additive layer. */
const legBones = 8;
const isMasked = (bone) => bone === 0 || bone >= bones - legBones;

/** Half of the largest angle of a bone from its middle. */
const largestSwing = 0.2;

/** Sets of times and weights of consecutive frames: steps of half a clip frame, so 60 frames per second. */
const setCount = 16;

/**
 * Playback of a character: a time in frames per clip; the weight of running, while that of walking is 1 minus it; and
 * the weight of aiming, which is added on top.
 * @typedef {{times: Float32Array, running: Float32Array, aiming: Float32Array}} ControllerSet `times`
 * holds three per character
 */

/** @typedef {import('./animation-scene').AnimationScene & {sets: ControllerSet[]}} ControllerScene */

/**
 * A clip in the layout of the animation scene: rows of keys, rotations and then the hips' position.
 * @param {number} number
 * @returns {import('./animation-scene').SceneClip}
 */
function createClip(number) {
  const hinges = createRandom(41);
  const random = createRandom(43 + number);
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
    const axis = [hinges() - 0.5, hinges() - 0.5, hinges() - 0.5];
    const length = Math.hypot(axis[0], axis[1], axis[2]);
    const rate = perSecond * (1 + Math.floor(2 * random()));
    const phase = 7 * random();
    const swing = largestSwing * (0.5 + 0.5 * random());
    const half = (time) => swing * Math.sin(rate * time + phase);
    const slope = (time) => swing * rate * Math.cos(rate * time + phase);
    for (let i = 0; i < 3; ++i) {
      const along = axis[i] / length;
      put(4 * bone + i, (time) => [
        along * Math.sin(half(time)),
        along * Math.cos(half(time)) * slope(time),
      ]);
    }
    put(4 * bone + 3, (time) => [Math.cos(half(time)), -Math.sin(half(time)) * slope(time)]);
  }
  for (let i = 0; i < 3; ++i) {
    const middle = [0, 1, 0][i];
    const rate = perSecond * (1 + (i % 2));
    const reach = 0.1 * (1 + number);
    put(4 * bones + i, (time) => [
      middle + reach * Math.sin(rate * time + i),
      reach * rate * Math.cos(rate * time + i),
    ]);
  }
  return { values, tangents };
}

/**
 * @param {number} characters
 * @returns {ControllerScene}
 */
function createControllerScene(characters) {
  const random = createRandom(characters + 1);
  const fill = (length, next) => Float32Array.from({ length }, next);
  const starts = fill(clipCount * characters, () => Math.floor(clipFrames * random()) + 0.2);
  // Multiples of 1/64: two weights sum up to 1 without rounding.
  const share = () => (1 + Math.floor(63 * random())) / 64;
  const sets = Array.from({ length: setCount }, (_, set) => ({
    times: starts.map((start) => (start + 0.5 * set) % clipFrames),
    running: fill(characters, share),
    aiming: fill(characters, share),
  }));
  const clips = Array.from({ length: clipCount }, (_, number) => createClip(number));
  return Object.assign(createAnimationScene(characters), { clips, sets });
}

/**
 * For a contender that uses slerp where the others blend linearly and normalise, and that interpolates linearly from
 * key to key. Two clips of a bone differ by at most twice its largest swing; a scaled rotation follows the tangent. A
 * rotation matrix differs by at most twice as much as its quaternion, and a bone by the sum over its ancestors.
 * @param {ControllerScene} scene
 * @returns {import('./animation-scene').Tolerance}
 */
function mixerTolerance(scene) {
  let ofBone = 0;
  const apart = 2 * largestSwing;
  for (let t = 0; t <= 1; t += 1 / 64) {
    const chord = Math.atan2(t * Math.sin(apart), 1 - t + t * Math.cos(apart)) - t * apart;
    const tangent = Math.atan(t * Math.tan(apart)) - t * apart;
    ofBone = Math.max(ofBone, Math.abs(chord) + Math.abs(tangent));
  }
  const depths = [];
  scene.parents.forEach((parent, bone) => {
    depths[bone] = parent < 0 ? 1 : depths[parent] + 1;
  });
  const depth = Math.max(...depths);
  const ofKeys = animation.interpolationTolerance(scene);
  const linear = 2 * ofBone * depth;
  return {
    linear: linear + ofKeys.linear,
    translation: linear * Math.hypot(0.15, 0.15, 0.15) * depth + ofKeys.translation,
  };
}

module.exports = { aim, clipCount, createControllerScene, isMasked, mixerTolerance, run, walk };
