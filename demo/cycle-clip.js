'use strict';
// Clips that go round: from the poses of a cycle, one a frame, to smooth curves over the bones.
const { buildClip, sampleTypes } = require('../lib/clip');

const kFramesPerSecond = 30;

/**
 * A moment of a cycle.
 * @typedef {Object} CyclePose
 * @property {Object<string, number[]>} rotations of bones by name, in the space of their parents
 * @property {number[]} [position] of the first bone; in all poses of a cycle or in none
 */

/** A curve through values at every frame of a cycle, smooth also from its end to its start. */
function cycleCurve(target, type, values) {
  const frames = values.length;
  const keys = [];
  for (let frame = 0; frame <= frames; ++frame) {
    const [before, after] = [values[(frame + frames - 1) % frames], values[(frame + 1) % frames]];
    const slope = ((after - before) / 2) * kFramesPerSecond;
    keys.push({ frame, value: values[frame % frames], inTangent: slope, outTangent: slope });
  }
  return { target, type, keys };
}

/** Turns quaternions over so that each is near the one ahead of it, and no curve leaps. */
function withoutLeaps(rotations) {
  const result = [rotations[0]];
  for (const rotation of rotations.slice(1)) {
    const previous = result[result.length - 1];
    const cosine = rotation.reduce((sum, value, i) => sum + value * previous[i], 0);
    result.push(cosine < 0 ? rotation.map((value) => -value) : rotation);
  }
  return result;
}

/**
 * The clip of a cycle.
 * @param {string} name
 * @param {CyclePose[]} poses one for each frame
 * @param {number[]} targets indices of the bones that it moves
 * @param {Array<{name: string}>} nodes that these are indices of
 * @param {number} stride metres that a cycle covers
 * @returns {import('./crowd').KindClip}
 */
function createCycleClip(name, poses, targets, nodes, stride) {
  const curves = [];
  if (poses[0].position !== undefined) {
    for (const axis of [0, 1, 2]) {
      const values = poses.map(({ position }) => position[axis]);
      curves.push(cycleCurve(0, sampleTypes.PositionX + axis, values));
    }
  }
  const types = ['QuaternionX', 'QuaternionY', 'QuaternionZ', 'QuaternionW'];
  targets.forEach((node, target) => {
    const rotations = withoutLeaps(poses.map((pose) => pose.rotations[nodes[node].name]));
    types.forEach((type, i) => {
      const values = rotations.map((rotation) => rotation[i]);
      curves.push(cycleCurve(target, sampleTypes[type], values));
    });
  });
  const [framesPerSecond, frameCount] = [kFramesPerSecond, poses.length];
  const bytes = buildClip({ name, framesPerSecond, frameCount, curves });
  return { name, framesPerSecond, frameCount, stride, targets, bytes };
}

module.exports = { createCycleClip };
