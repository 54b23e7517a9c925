'use strict';
// What it shows: things in the hands of characters by the scene layer: attached, passed on, and dropped.
//
//   node examples/11-sockets.js
//
// It needs the package @gltf-transform/core, as example 06.
//
//   reed: joint 1, bends about z ── joint 2, bends as far ── lantern, 0.5 above it ── flame, 0.25 above that
const { Model, Scene } = require('../scene');
const { makeReed } = require('./reed');

async function main() {
  // --- Set up: two reeds that bend by 90 degrees in a second, and back; the second one is half a second later.
  const model = await Model.load(makeReed());
  const scene = new Scene();
  const [first, second] = scene.instantiate(model, 2);
  second.setPosition(4, 0, 0);
  first.play('bend', { at: 0.5 });
  second.play('bend');

  const lantern = scene.node({ name: 'lantern', position: [0, 0.5, 0] });
  const flame = scene.node({ parent: lantern, position: [0, 0.25, 0] });
  first.attach(lantern, 'joint 2');

  // --- Frame: the lantern and all below it follow in the same update.
  const place = [0, 0, 0];
  const where = (node) => {
    const numbers = Array.from(node.readWorldPosition(place), (value) => value.toFixed(3));
    return numbers.map((text) => (Number(text) === 0 ? '0.000' : text)).join(' ');
  };
  const frame = (what, seconds) => {
    scene.update(seconds);
    console.log(`${what}: lantern ${where(lantern)}, flame ${where(flame)}`);
  };

  // --- Print: where it is in the first one's hand, in the second one's, and on the ground.
  frame('first, 0.5 s', 0);
  frame('first, 0.75 s', 0.25);
  second.attach(lantern, 'joint 2');
  frame('second, 0.25 s', 0);
  frame('second, 0.75 s', 0.5);
  // Dropped: its transform is in the space of its new parent, so put it where it was, down on the ground.
  lantern.readWorldPosition(place);
  scene.add(scene.root, lantern);
  lantern.setPosition(place[0], 0, place[2]);
  frame('dropped', 0.25);
  second.dispose();
  frame('alone', 0.25);
}

main().catch((error) => {
  console.error(error.message);
  process.exitCode = 1;
});
