'use strict';
// What it shows: a sword that follows an animated hand by a bone binding, without JavaScript per frame.
//
//   node examples/07-bone-sockets.js
//
//   arm, rotates about z ── hand, at x = 1 in the arm's space
//   sword ── its tip, at y = 1 in the sword's space
//
// The bound entity is a root. The walk over the tree writes the bone's world transform into its record and lists it as
// dirty, so its matrix follows in the next refresh: a frame later, or at once with a second call.
const nq = require('../lib');

// --- Set up: two trees, and an animator that rotates the arm by 90 degrees in 30 frames.
const engine = nq.getEngine();
const commands = new nq.EntityCommandWriter(engine);
const entities = new nq.Entity3DView(engine.createEntity(true, 4));
const [arm, hand, sword, tip] = [0, 1, 2, 3];
const places = [
  [0, 0, 0],
  [1, 0, 0],
  [5, 0, 0], // on the ground
  [0, 1, 0],
];
places.forEach((place, i) => {
  entities.reset(i);
  entities.setPosition(i, ...place);
});
commands.addRoot(entities.handle(arm));
commands.addChild(entities.handle(arm), entities.handle(hand));
commands.addRoot(entities.handle(sword));
commands.addChild(entities.handle(sword), entities.handle(tip));
new nq.DirtyListWriter(engine).appendRange(entities.id, 4);

function curve(type, ...values) {
  const keys = values.map((value, i) => ({ frame: 30 * i, value, inTangent: 0, outTangent: 0 }));
  return { target: 0, type: nq.sampleTypes[type], keys };
}
const halves = [0, 1, 2, 3, 4].map((quarters) => (quarters * Math.PI) / 4);
const turn = engine.createDataModel(
  nq.layout.dataModelKinds.clip,
  nq.buildClip({
    name: 'turn',
    framesPerSecond: 30,
    frameCount: 120,
    curves: [
      curve('QuaternionX', 0),
      curve('QuaternionY', 0),
      curve('QuaternionZ', ...halves.map(Math.sin)),
      curve('QuaternionW', ...halves.map(Math.cos)),
    ],
  })
);
const component = engine.createComponent(nq.layout.componentKinds.animator, 1, 1);
const animator = new nq.AnimatorView(component, 1);
animator.setTarget(0, entities.handle(arm));

// --- Frame: the animator, then one or two refreshes.
function frame(time, refreshes) {
  animator.setClip(0, turn.id, time, 1);
  engine.updateAnimator(animator.id);
  for (let i = 0; i < refreshes; ++i) {
    engine.refreshWorldTransform();
  }
}

// --- Print: world positions.
function placeOf(i) {
  const round = (value) => Number(value.toFixed(3)) || 0;
  return entities.worldPosition(i, [0, 0, 0]).map(round).join(' ');
}
function print(title) {
  const text = `hand at ${placeOf(hand)}, sword at ${placeOf(sword)}, its tip at ${placeOf(tip)}`;
  console.log(`${title}: ${text}`);
}

frame(0, 1);
print('on the ground');
commands.bindToBone(entities.handle(sword), entities.handle(hand));
frame(30, 1);
print('taken, one refresh');
frame(60, 1);
print('one refresh');
frame(90, 2);
print('two refreshes');
frame(120, 2);
print('two refreshes');
commands.unbindFromBone(entities.handle(sword));
frame(30, 2);
print('let go');
