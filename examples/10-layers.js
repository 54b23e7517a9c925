'use strict';
// What it shows: layers of a character by the scene layer: a clip on some nodes, and one that is added to what is below.
//
//   node examples/10-layers.js
//
// It needs the package @gltf-transform/core, as example 06.
const { Model, Scene } = require('../scene');
const { makeReed } = require('./reed');

async function main() {
  // --- Set up: a reed that bends to the left, and two layers on its upper half.
  const model = await Model.load(makeReed(['bend', 'sway']));
  const scene = new Scene();
  const [reed] = scene.instantiate(model);
  const upper = reed.addLayer('upper', { mask: { subtree: 'joint 2' } });
  const lean = reed.addLayer('lean', { mask: ['joint 2'], additive: true, weight: 0.5 });
  const tip = scene.node({ parent: reed.node('joint 2'), position: [0, 1, 0] });
  const show = (label) => {
    const [x, y, z] = tip.readWorldPosition([0, 0, 0]).map((value) => (value + 0).toFixed(3));
    console.log(`${label.padEnd(22)} tip at ${x} ${y} ${z}`.replace(/-0\.000/g, '0.000'));
  };

  // --- Frame: each step in the middle of the clips, where both joints are turned by 90 degrees.
  const middle = { at: 1, speed: 0 };
  const steps = [
    { label: 'base alone', change: () => reed.play('bend', middle), seconds: 0 },
    { label: 'upper half replaced', change: () => upper.play('sway', middle), seconds: 0 },
    { label: 'half of that', change: () => upper.fadeTo(0.5, 0), seconds: 0 },
    { label: 'upper layer stopped', change: () => upper.stop(), seconds: 0 },
    { label: 'half a bend added', change: () => lean.play('bend', middle), seconds: 0 },
    { label: 'fading it out', change: () => lean.stop('bend', { fade: 1 }), seconds: 0.5 },
    {
      label: 'a clip that ends',
      change: () => upper.play('sway', { loop: false, fade: 0.5 }),
      seconds: 2.5,
    },
  ];
  upper.onEnd = (layer, clip) => console.log(`${clip.name} of layer ${layer.name} has ended`);
  for (const { label, change, seconds } of steps) {
    change();
    scene.update(seconds);

    // --- Print: where the tip of the reed is.
    show(label);
  }
}

main().catch((error) => {
  console.error(error.message);
  process.exitCode = 1;
});
