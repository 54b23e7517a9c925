'use strict';
// What it shows: hundreds of characters that come and go: memory is reused, only those in view are skinned, and what
// updates did is counted.
//
//   node examples/13-crowd.js
//
// It needs the package @gltf-transform/core, as example 06.
const { Camera, Model, Scene } = require('../scene');
const { makeReed } = require('./reed');

async function main() {
  // --- Set up: a square of 30 x 30 reeds, 4 units apart, and a camera at one of its edges.
  const model = await Model.load(makeReed(['bend', 'sway']));
  const scene = new Scene({ skin: 'visible' });
  const camera = scene.addCamera(
    new Camera({ fovDegrees: 40, aspect: 16 / 9, near: 0.1, far: 80 })
  );
  camera.setPosition(58, 5, 10);
  camera.lookAt(58, 1, -50);
  let planted = 0;
  let withered = 0;
  function plant(count) {
    return scene.instantiate(model, count).map((reed) => {
      const place = planted++;
      reed.setPosition(4 * (place % 30), 0, -4 * Math.floor(place / 30));
      reed.play('bend', { at: (planted % 16) / 8 });
      reed.play('sway', { loop: planted % 2 === 0, at: 1, weight: 0.5, beside: true });
      reed.onEnd = () => ++withered; // after a second, for those that do not loop
      return reed;
    });
  }
  let reeds = plant(900);

  // --- Frame: a second and a half; in each of the last frames the 100 oldest reeds make room for others, behind the rest.
  const lines = [];
  for (let frame = 0; frame < 15; ++frame) {
    if (frame > 11) {
      reeds.splice(0, 100).forEach((reed) => reed.dispose());
      reeds = reeds.concat(plant(100));
    }
    scene.update(0.1);
    const { passes, playing, skinned } = scene.stats; // and milliseconds: animate, transform, cull, skin, total
    const line = `${scene.nodeCount} nodes, ${passes} passes, ${playing} playing, ${skinned} skinned`;
    if (frame === 0 || frame > 10) {
      lines.push(`frame ${frame}: ${line}, ${withered} ended`);
    }
  }

  // --- Print.
  console.log(lines.join('\n'));
  console.log(`${planted} reeds planted, ${reeds.length} left, ${camera.visible.count} in view`);
}

main().catch((error) => {
  console.error(error.message);
  process.exitCode = 1;
});
