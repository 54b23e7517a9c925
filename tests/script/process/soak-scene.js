'use strict';
// Makes and removes characters and nodes of a scene, and tests that neither what the engine has nor memory grows:
// soak-scene.js CHARACTERS. Levels of models of changing sizes come and go in between. Runs without collections on demand.
// Prints JSON, with what is wrong.
const { Model, Scene } = require('../../../lib/scene');
const { makeFigure } = require('../../../bench/script/lib/scene-figure');

const characters = Number(process.argv[2]);

const kCharacters = 40;
const kLevelSizes = [5, 9, 14];
const scene = new Scene();
const model = Model.from(makeFigure(24));
const living = [];
let made = 0;
let turns = 0;

/** Replaces a quarter of the crowd. */
function turn() {
  for (let i = 0; i < kCharacters / 4; ++i) {
    if (living.length >= kCharacters) {
      const [character] = living.splice((7 * turns + i) % living.length, 1);
      if (i % 5 === 0) {
        scene.remove(character);
      }
      character.dispose();
    }
    const [character] = scene.instantiate(model);
    character.setPosition(made % 100, 0, 0);
    character.play(made % 2);
    character.crossfade((made + 1) % 2, 0.05);
    const sword = scene.node({ position: [0, 1, 0] });
    sword.setSphere(0, 0, 0, 0.5);
    character.attach(sword, 'joint3');
    living.push(character);
    ++made;
  }
  ++turns;
  scene.update(1 / 60);
}

/** A level of a model of its own, which is disposed of. */
function level() {
  const own = Model.from(makeFigure(kLevelSizes[turns % kLevelSizes.length]));
  scene.instantiate(own, 10).forEach((character) => character.play('run'));
  const nodes = Array.from({ length: 100 }, () => scene.node({ scale: 2 }));
  scene.update(1 / 60);
  nodes.forEach((node) => node.dispose());
  own.dispose();
  scene.update(1 / 60);
}

const { createComponent, createEntity, createDataModel } = scene.engine;
const calls = { createComponent: 0, createEntity: 0, createDataModel: 0 };
Object.entries({ createComponent, createEntity, createDataModel }).forEach(([name, call]) => {
  scene.engine[name] = (...args) => {
    ++calls[name];
    return call.apply(scene.engine, args);
  };
});

const samples = [];
const start = Date.now();
let next = 0;

/** What may grow, in bytes: the compiler, and the old generation between collections. */
const kMostGrowth = { rss: 24 << 20, external: 4 << 20 };
/** What must not. */
const kConstant = ['createEntity', 'createComponent', 'handles', 'nodes'];

function report() {
  const warm = samples[Math.floor(samples.length * 0.4)];
  const later = samples.filter((sample) => sample.made > warm.made);
  const problems = [];
  for (const name of kConstant) {
    const most = Math.max(...later.map((sample) => sample[name]));
    if (most !== warm[name]) {
      problems.push(`${name} rises from ${warm[name]} to ${most}`);
    }
  }
  const growth = {};
  for (const name of Object.keys(kMostGrowth)) {
    growth[name] = Math.max(...later.map((sample) => sample[name])) - warm[name];
    if (growth[name] > kMostGrowth[name]) {
      problems.push(`${name} grows by ${growth[name]} bytes`);
    }
  }
  const levels = calls.createDataModel - warm.createDataModel;
  const seconds = (Date.now() - start) / 1000;
  const result = { kind: 'characters', made, seconds, afterWarmUp: made - warm.made, levels };
  console.log(JSON.stringify(Object.assign(result, { growth, problems })));
  process.exitCode = problems.length === 0 ? 0 : 1;
}

/** Timers of turns let V8 collect in between, as in a program. */
function run() {
  for (let i = 0; i < 20; ++i) {
    turn();
  }
  if (turns % 100 === 0) {
    level();
  }
  if (made >= next) {
    const { rss, external } = process.memoryUsage();
    const handles = living.reduce((most, { handle }) => Math.max(most, handle), 0);
    samples.push(Object.assign({ made, rss, external, handles, nodes: scene.nodeCount }, calls));
    next += characters / 20;
  }
  if (made < characters) {
    setImmediate(run);
  } else {
    report();
  }
}

run();
