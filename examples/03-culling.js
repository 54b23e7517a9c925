'use strict';
// What it shows: which spheres a camera sees, nearest first.
//
//   node examples/03-culling.js
//
// Eight balls of radius 1 are around the camera, 45 degrees apart, at distances of 10, 11, … 17. It sees 40 degrees
// to each side, so the next ball is visible only if it is so close that its edge reaches into the view.
const nq = require('../lib');

const kBalls = 8;
const kOdd = 1;
const kEven = 2;
const kAll = kOdd | kEven;

// --- Set up: an entity for each ball, and a culling object on each.
const engine = nq.getEngine();
const commands = new nq.EntityCommandWriter(engine);
const dirty = new nq.DirtyListWriter(engine);
const entities = new nq.Entity3DView(engine.createEntity(true, kBalls));
const culling = engine.createComponent(nq.layout.componentKinds.culling, kBalls);
const objects = new nq.CullingObjectsView(culling);

function placeOf(ball) {
  const angle = (ball * Math.PI) / 4;
  return [(10 + ball) * Math.cos(angle), 0, (10 + ball) * Math.sin(angle)];
}

for (let ball = 0; ball < kBalls; ++ball) {
  entities.setPosition(ball, ...placeOf(ball));
  entities.setScale(ball, 1, 1, 1);
  commands.addRoot(entities.handle(ball));
  objects.setEnabled(ball, true);
  objects.setMask(ball, ball % 2 === 0 ? kEven : kOdd);
  objects.setSphere(ball, 0, 0, 0, 1); // around the entity's origin
  objects.setEntity(ball, entities.handle(ball));
}
dirty.appendRange(entities.id, kBalls);
engine.refreshWorldTransform(); // spheres follow world matrices

// --- Frame: one call, whose result is in `engine.cullingResult`, which may be replaced by a larger buffer.
const result = new nq.CullingResultView(engine);

/** Looks from the origin. Returns true if it sees the same objects as the last call. */
function look(mask, target, up) {
  const { hash } = result;
  result.clear(); // a call that finds nothing leaves the last result unchanged
  engine.frustumCullingV2(mask, 0, 0, 0, ...target, ...up, (80 * Math.PI) / 180, 1, 0.1, 100);
  return result.count > 0 && result.hash === hash;
}

// --- Print.
function print(title, isSame) {
  const seen = Array.from({ length: result.count }, (_, i) => {
    const ball = result.object(i) - objects.id;
    return `ball ${ball} at ${Number(result.distance(i).toFixed(3))}`;
  });
  const note = isSame ? ', the same list as before' : '';
  console.log(`${title}: ${seen.join(', ') || 'nothing'}${note}`);
}

for (const ball of [0, 1, 2, 3, 3]) {
  print(`towards ball ${ball}`, look(kAll, placeOf(ball), [0, 1, 0]));
}
print('towards ball 0, layer of even ones', look(kEven, placeOf(0), [0, 1, 0]));
print('away from all, upwards', look(kAll, [0, 1, 0], [0, 0, 1]));
