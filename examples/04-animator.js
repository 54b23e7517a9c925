'use strict';
// What it shows: an animator that plays two clips on one entity, with a crossfade between them.
//
//   node examples/04-animator.js
//
// Clip "low" rises from 0 to 2 units, slowly at both ends, at an angle of 20 degrees; clip "high" stays at 4
// units and 60 degrees. JavaScript sets times and weights: the module has no clock.
const nq = require('../lib');

// --- Set up: clips as bytes, an entity, and an animator of two clips with one target each.
const engine = nq.getEngine();

function key(frame, value) {
  return { frame, value, inTangent: 0, outTangent: 0 };
}

/** A clip of 60 frames that moves its target 0. */
function makeClip(name, heights, degrees) {
  const half = (degrees * Math.PI) / 360;
  const rotation = { QuaternionX: 0, QuaternionY: 0, QuaternionZ: Math.sin(half) };
  rotation.QuaternionW = Math.cos(half);
  const curves = Object.keys(rotation).map((type) => {
    return { target: 0, type: nq.sampleTypes[type], keys: [key(0, rotation[type])] };
  });
  curves.push({ target: 0, type: nq.sampleTypes.PositionY, keys: heights });
  return engine.createDataModel(
    nq.layout.dataModelKinds.clip,
    nq.buildClip({ name, framesPerSecond: 30, frameCount: 60, curves })
  );
}

const low = makeClip('low', [key(0, 0), key(60, 2)], 20);
const high = makeClip('high', [key(0, 4)], 60);

const entities = new nq.Entity3DView(engine.createEntity(true, 1));
entities.setScale(0, 1, 1, 1);
new nq.EntityCommandWriter(engine).addRoot(entities.handle(0));

const component = engine.createComponent(nq.layout.componentKinds.animator, 2, 2);
const animator = new nq.AnimatorView(component, 2);
// The target lists of both clips, concatenated: each moves the entity.
animator.setTargets([entities.handle(0), entities.handle(0)]);

// --- Frame: times and weights, the animator, then the world.
function frame(time, weight) {
  animator.setClip(0, low.id, time, weight);
  animator.setClip(1, high.id, time, 1 - weight);
  engine.updateAnimator(animator.id); // the entities that it writes need not be listed as dirty
  engine.refreshWorldTransform();
}

// --- Print: heights from the world, angles about z from the record's quaternion.
const round = (value) => Number(value.toFixed(2)) || 0;
[1, 1, 0.75, 0.5, 0.25, 0].forEach((weight, step) => {
  const time = 15 * step; // time wraps at frame 60
  frame(time, weight);
  const [, height] = entities.worldPosition(0, [0, 0, 0]);
  const [, , z, w] = entities.rotation(0, [0, 0, 0, 0]);
  const angle = (2 * Math.atan2(z, w) * 180) / Math.PI;
  console.log(
    `step ${step}: low ${weight} at frame ${time}, high ${1 - weight}: ` +
      `height ${round(height)}, angle ${round(angle)}`
  );
});
