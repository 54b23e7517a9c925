'use strict';
// Spawns and removes nodes and characters in a process of its own, where nothing is compiled yet, and prints the
// milliseconds as JSON: spawn-process.js NODES CHARACTERS JOINTS.
const { performance } = require('perf_hooks');
const { Model, Scene } = require('../../../lib/scene');
const { makeFigure } = require('./scene-figure');

const [nodes, characters, joints] = process.argv.slice(2).map(Number);

function milliseconds(run) {
  const start = performance.now();
  run();
  return performance.now() - start;
}

const model = Model.from(makeFigure(joints));
const scene = new Scene();
const rounds = [];
for (let round = 0; round < 2; ++round) {
  let made = [];
  const spawn = milliseconds(() => {
    for (let i = 0; i < nodes; ++i) {
      made.push(scene.node({ position: [i, 0, 0] }));
    }
    if (characters > 0) {
      made = made.concat(scene.instantiate(model, characters));
    }
  });
  const link = milliseconds(() => scene.update());
  const count = nodes + characters * (1 + joints);
  if (scene.nodeCount !== count || made[made.length - 1].worldMatrix[15] !== 1) {
    throw new Error(`${scene.nodeCount} nodes instead of ${count}`);
  }
  const remove = milliseconds(() => made.forEach((one) => one.dispose()));
  const unlink = milliseconds(() => scene.update());
  rounds.push({ spawn, link, remove, unlink });
}
console.log(JSON.stringify(rounds));
