'use strict';
// What it shows: a tree that moves, changes its links, and is deactivated in part.
//
//   node examples/02-transform-tree.js
//
//   sun ── planet, 10 along x of the sun ── moon, 2 along x of the planet
//
// Sun and planet rotate about y by a quarter turn per step. Entities listed as dirty are computed, with all below.
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
dirty.append(bodies.handle(moon)); // a new entity must be listed once; the others are listed in each step

// --- Frame: write angles into the records, then one call, which first executes the commands.
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
commands.addChild(bodies.handle(sun), bodies.handle(moon)); // still at x = 2, now in the sun's space
frame(4);
console.log('the planet is deactivated');
commands.deactivate(bodies.handle(planet)); // keeps its world matrix
frame(5);
console.log('the planet is activated');
commands.activate(bodies.handle(planet));
frame(6);
