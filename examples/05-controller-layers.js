'use strict';
// What it shows: a controller that plays clips in layers, one on top of another, on parts of a body.
//
//   node examples/05-controller-layers.js
//
//   layer 0, override: walk       all bones
//   layer 1, override: wave       replaces layer 0 where its mask allows it
//   layer 2, additive: breath     lifts the spine by the difference from its own first frame
//
// All rotations are about z, so that angles are easy to read. Clips hold one pose, except breath.
const nq = require('../lib');

const { override, additive, off } = nq.layout.layerBlendModes;

// --- Set up: a spine with two arms, three clips, and a controller.
const engine = nq.getEngine();
const body = new nq.Entity3DView(engine.createEntity(true, 3));
const bones = [0, 1, 2].map((i) => body.handle(i));
const [spine, leftArm] = bones;
bones.forEach((bone, i) => {
  body.reset(i); // a quaternion, scale 1
  body.setPosition(i, 0, i === 0 ? 1 : 0.5, 0);
});
const commands = new nq.EntityCommandWriter(engine);
commands.addRoot(spine);
bones.slice(1).forEach((arm) => commands.addChild(spine, arm));
new nq.DirtyListWriter(engine).appendAll(bones);
engine.refreshWorldTransform();

function curve(target, type, ...values) {
  const keys = values.map((value, i) => ({ frame: 30 * i, value, inTangent: 0, outTangent: 0 }));
  return { target, type: nq.sampleTypes[type], keys };
}
function turn(target, degrees) {
  const half = (degrees * Math.PI) / 360;
  return [
    ...['QuaternionX', 'QuaternionY'].map((type) => curve(target, type, 0)),
    curve(target, 'QuaternionZ', Math.sin(half)),
    curve(target, 'QuaternionW', Math.cos(half)),
  ];
}
function makeClip(name, ...curves) {
  return engine.createDataModel(
    nq.layout.dataModelKinds.clip,
    nq.buildClip({ name, framesPerSecond: 30, frameCount: 60, curves })
  );
}
const pose = (...angles) => [].concat(...angles.map((angle, target) => turn(target, angle)));
const walk = makeClip('walk', ...pose(10, -30, 30), curve(0, 'PositionY', 1));
const wave = makeClip('wave', ...pose(40, 50, 140));
const breath = makeClip('breath', curve(0, 'PositionY', 1, 1.2, 1));

// The bones that the targets of each clip move. The binding takes rest poses now.
const binding = nq.TargetListsView.from([
  { clip: walk.id, entities: bones },
  { clip: wave.id, entities: bones },
  { clip: breath.id, entities: [spine] },
]).createBinding(engine);

const controller = new nq.ControllerView(engine.createAnimatorControllerModel(3));
controller.setBindingHandle(binding.id);
const batch = nq.HandleList.from([controller.id]);
const states = [walk, wave, breath].map((clip) => {
  const state = new nq.ControllerStateView(engine.createAnimatorControllerStateModel(1));
  state.setWeight(1);
  state.setNextState(nq.layout.handles.none);
  state.setClip(0, clip.id, 0, 1);
  return state;
});

/** Sets mode and weight of a layer, and plays its only state. */
function setLayer(i, mode, weight) {
  controller.setLayer(i, mode, weight, states[i].id);
}

// --- Frame: evaluates the controller, and prints. Angles come from quaternions about z.
function frame(title) {
  states.forEach((state) => state.setClipTime(0, 30));
  engine.updateAnimatorControllers(batch.buffer);
  engine.refreshWorldTransform();
  const round = (value) => Number(value.toFixed(3)) || 0;
  const [back, left, right] = bones.map((bone, i) => {
    const [, , z, w] = body.rotation(i, [0, 0, 0, 0]);
    return round((2 * Math.atan2(z, w) * 180) / Math.PI);
  });
  const height = round(body.position(0, [0, 0, 0])[1]);
  console.log(`${title}: spine ${back}, left arm ${left}, right arm ${right}, height ${height}`);
}

// --- Print.
setLayer(0, override, 1);
setLayer(1, off, 1);
setLayer(2, off, 1);
frame('walk');
setLayer(1, override, 1);
frame('walk, wave on all bones');
// A mask sets weights of bones, here 0 to exclude them; others keep 1.
const mask = new nq.MaskView(2);
mask.set(0, spine, 0);
mask.set(1, leftArm, 0);
mask.apply(controller.object, 1);
frame('walk, wave on the right arm');
setLayer(1, override, 0.5); // halfway from the rest pose, which is 0, not from walk
frame('walk, half of a wave on the right arm');
setLayer(1, override, 1);
setLayer(2, additive, 1);
frame('walk, wave, breath');
setLayer(2, additive, 0.5);
frame('walk, wave, half of a breath');
