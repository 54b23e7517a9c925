'use strict';
// What it shows: a tree that moves, changes its links, and rests in part.
//
//   node examples/02-transform-tree.js
//
//   sun ── planet, 10 along x of the sun ── moon, 2 along x of the planet
//
// Sun and planet turn about y by a quarter each step. What is listed as dirty is computed, with all below it.
const nq = require('../lib');

// --- Set up.
const engine = nq.getEngine();
const commands = new nq.EntityCommandWriter(engine);
const dirty = new nq.DirtyListWriter(engine);
const bodies = new nq.Entity3DView(engine.createEntity(true, 3));
const [sun, planet, moon] = [0, 1, 2];

[0, 10, 2].forEach((distance, body) => {
  bodies.setPosition(body, distance, 0, 0);
  bodies.setScale(body, 1, 1, 1);
});
commands.addRoot(bodies.handle(sun));
commands.addChild(bodies.handle(sun), bodies.handle(planet));
commands.addChild(bodies.handle(planet), bodies.handle(moon));
dirty.append(bodies.handle(moon)); // a new entity is listed once; the others are in each step

// --- Frame: angles into the records, and one call, which carries out the commands ahead of all else.
function frame(step) {
  for (const body of [sun, planet]) {
    bodies.setEuler(body, 0, (step * Math.PI) / 2, 0);
    dirty.append(bodies.handle(body));
  }
  engine.refreshWorldTransform();
  print(step);
}

// --- Print.
function print(step) {
  const round = (value) => Number(value.toFixed(3)) || 0;
  const placeOf = (body) => bodies.worldPosition(body, [0, 0, 0]).map(round).join(' ');
  console.log(`step ${step}: planet at ${placeOf(planet)}, moon at ${placeOf(moon)}`);
}

for (let step = 0; step < 4; ++step) {
  frame(step);
}
console.log('the moon becomes a child of the sun');
commands.removeFromParent(bodies.handle(moon));
commands.addChild(bodies.handle(sun), bodies.handle(moon)); // still 2 along x, now of the sun
frame(4);
console.log('the planet is deactivated');
commands.deactivate(bodies.handle(planet)); // keeps its world matrix
frame(5);
console.log('the planet is activated');
commands.activate(bodies.handle(planet));
frame(6);
