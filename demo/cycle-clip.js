'use strict';
// Cyclic clips: converts the poses of a cycle, one per frame, to smooth curves of bones.
const { buildClip, sampleTypes } = require('../lib/clip');

const kFramesPerSecond = 30;

/**
 * A pose within a cycle.
 * @typedef {Object} CyclePose
 * @property {Object<string, number[]>} rotations of bones by name, in the space of their parents
 * @property {number[]} [position] of the first bone; in all poses of a cycle or in none
 */

/** A curve through values at every frame of a cycle, smooth also where it wraps. */
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

/** Negates quaternions where necessary, so that each is near the previous one, and no curve jumps. */
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
 * @param {number[]} targets indices in `nodes` of the bones that it moves
 * @param {Array<{name: string}>} nodes
 * @param {number} stride metres per cycle
 * @returns {import('./kind').KindClip}
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
