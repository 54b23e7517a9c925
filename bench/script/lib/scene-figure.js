'use strict';
// A figure for scenes, as importGltf resolves to it: a binary tree of joints, each of which swings in two clips.
const { buildClip, sampleTypes } = require('../../../lib/clip');

const kFrames = 30;
const kQuaternion = [
  sampleTypes.QuaternionX,
  sampleTypes.QuaternionY,
  sampleTypes.QuaternionZ,
  sampleTypes.QuaternionW,
];

/** A clip of a second, in which joints turn about the x axis by up to `reach` radians. */
function makeClip(name, joints, reach) {
  const curves = [];
  for (let target = 0; target < joints; ++target) {
    kQuaternion.forEach((type, i) => {
      const keys = [0, 10, 20, kFrames].map((frame) => {
        const half = (reach / 2) * Math.sin((2 * Math.PI * frame) / kFrames);
        const value = [Math.sin(half), 0, 0, Math.cos(half)][i];
        return { frame, value, inTangent: 0, outTangent: 0 };
      });
      curves.push({ target, type, keys });
    });
  }
  const clip = buildClip({ name, framesPerSecond: kFrames, frameCount: kFrames + 1, curves });
  const targets = Array.from({ length: joints }, (_, i) => i);
  return { name, framesPerSecond: kFrames, targets, clip };
}

/**
 * @param {number} joints
 * @returns {object} of the form of an imported model; joint i is below joint (i - 1) / 2, rounded down
 */
function makeFigure(joints) {
  const nodes = Array.from({ length: joints }, (_, i) => ({
    name: `joint${i}`,
    parent: i === 0 ? -1 : (i - 1) >> 1,
    fileIndex: i,
    translation: [i % 2 === 0 ? 0.1 : -0.1, i === 0 ? 0 : 0.25, 0],
    rotation: [0, 0, 0, 1],
    scale: [1, 1, 1],
  }));
  const inverses = new Float32Array(16 * joints);
  for (let i = 0; i < joints; ++i) {
    for (const k of [0, 5, 10, 15]) {
      inverses[16 * i + k] = 1;
    }
  }
  const skin = {
    name: 'skin',
    joints: nodes.map((_, i) => i),
    inverseBindMatrices: inverses.buffer,
  };
  const animations = [makeClip('walk', joints, 1), makeClip('run', joints, 2)];
  return { nodes, skins: [skin], animations, warnings: [] };
}

module.exports = { makeFigure };
