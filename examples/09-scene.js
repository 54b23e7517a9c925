'use strict';
// What it shows: a crowd from a model file by the scene layer: clips, a crossfade, skins, and what a camera sees.
//
//   node examples/09-scene.js [model.glb first-clip second-clip]
//
// It needs the package @gltf-transform/core, as example 06.
const { Camera, Model, Scene } = require('../scene');
const { makeReed } = require('./reed');

async function main(file, first = 'bend', second = 'sway') {
  // --- Set up: a model, fifty characters in a square, a camera.
  const model = await Model.load(file === undefined ? makeReed(['bend', 'sway']) : file);
  const scene = new Scene();
  const size = 2 * model.bounds.radius;
  const characters = scene.instantiate(model, 50);
  characters.forEach((character, i) => {
    character.setPosition(size * (i % 10), 0, -size * Math.floor(i / 10));
    character.play(first, { at: (i / 50) * model.clip(first).duration });
  });
  const camera = new Camera({ fovDegrees: 45, aspect: 16 / 9, near: 0.1, far: 100 * size });
  camera.setPosition(4.5 * size, 2 * size, 3 * size);
  camera.lookAt(4.5 * size, 0, -2 * size);
  scene.addCamera(camera);

  // --- Frame: half a second, the first half of a crossfade of one second.
  characters.forEach((character) => character.crossfade(second, 1));
  for (let frame = 0; frame < 30; ++frame) {
    scene.update(1 / 60);
  }

  // --- Print: weights, and who is in view, nearest first.
  const [nearest] = camera.visible.characters();
  const weights = [first, second].map((clip) => `${clip} ${nearest.weightOf(clip).toFixed(2)}`);
  const numbers = Array.from(camera.visible.characters(), (character) =>
    characters.indexOf(character)
  );
  console.log(`${weights.join(', ')}; skins of ${nearest.skinMatrices().length / 16} joints`);
  console.log(`${numbers.length} of ${characters.length} in view, in rows of ten:`);
  for (let row = 0; row < 5; ++row) {
    const seen = numbers.filter((i) => Math.floor(i / 10) === row).map((i) => i % 10);
    console.log(`row ${row}: ${seen.sort((a, b) => a - b).join(' ')}`);
  }
}

main(...process.argv.slice(2)).catch((error) => {
  console.error(error.message);
  process.exitCode = 1;
});
