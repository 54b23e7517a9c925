'use strict';
// What it shows: several cameras of a scene: two views with perspective, and a map from above that sees one layer.
//
//   node examples/12-culling.js
const { Camera, Scene } = require('../scene');

// Layers, a bit each.
const kTrees = 1;
const kAnimals = 2;

// --- Set up: a wood of 81 trees, 10 units apart, three animals in it, and the cameras.
const scene = new Scene();
for (let i = 0; i < 81; ++i) {
  const tree = scene.node({ position: [10 * (i % 9), 0, 10 * Math.floor(i / 9)] });
  tree.setSphere(0, 2, 0, 2.5); // around its crown
  tree.layers = kTrees;
}
const animals = ['fox', 'owl', 'boar'].map((name, i) => {
  const animal = scene.node({ name, position: [15, 1, 5 + 20 * i] });
  animal.setSphere(0, 0, 0, 1);
  animal.layers = kAnimals;
  return animal;
});

const views = [5, 75].map((x) => {
  const camera = new Camera({ fovDegrees: 60, aspect: 8 / 9, near: 0.1, far: 50 });
  camera.setPosition(x, 3, 90);
  camera.lookAt(40, 3, 40);
  return scene.addCamera(camera); // each update culls for it
});
const map = scene.addCamera(new Camera());
map.setOrthographic({ left: -22, right: 22, bottom: -22, top: 22, near: 1, far: 100 });
map.setPosition(40, 50, 40);
map.lookAt(40, 0, 40);
map.setUp(0, 0, -1); // north is at its top
map.layers = kAnimals;

// --- Frame: the animals go east, 13 units in each step.
const lines = [];
let hash = null;
for (let step = 0; step < 6; ++step) {
  animals.forEach((animal) => animal.setPosition(15 + 13 * step, 1, animal.position[2]));
  scene.update();
  const seen = views.map((camera) => camera.visible.count);
  // Of the same update, with other layers than its own.
  const trees = views.map((camera) => camera.cull(scene, { layers: kTrees }).count);
  const names = Array.from(map.visible, ({ name }) => name).sort();
  const change = map.visible.hash === hash ? 'as before' : names.join(' ') || 'nobody';
  ({ hash } = map.visible);
  lines.push(
    `step ${step}: ${seen.join(' and ')} seen, ${trees.join(' and ')} of them trees; map: ${change}`
  );
}

// --- Print.
console.log(lines.join('\n'));
