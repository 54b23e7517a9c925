'use strict';
// Spawning and removing nodes and characters of scenes, the first time and again, each in processes of their own.
const path = require('path');
const { execFileSync } = require('child_process');
const { reported } = require('../lib/measure');
const { printTable } = require('../lib/table');

const program = path.join(__dirname, '..', 'lib', 'spawn-process.js');
const kTimes = ['spawn', 'link', 'remove', 'unlink'];

/** Nodes, characters, and joints of one. */
const cases = [
  { nodes: 10000, characters: 0, joints: 1 },
  { nodes: 0, characters: 1000, joints: 24 },
  { nodes: 0, characters: 1000, joints: 50 },
  { nodes: 10000, characters: 1000, joints: 24 },
];

/** Times of both rounds of processes. */
function measure({ nodes, characters, joints }, budget) {
  const runs = [];
  for (let i = 0; i < budget.rounds; ++i) {
    const args = [program, nodes, characters, joints].map(String);
    runs.push(JSON.parse(execFileSync(process.execPath, args, { encoding: 'utf8' })));
  }
  return [0, 1].map((round) => {
    const times = {};
    for (const name of kTimes) {
      times[name] = reported(runs.map((run) => run[round][name]));
    }
    return times;
  });
}

function run(budget) {
  const part = Math.min(1, budget.entities / 100000);
  const rows = [].concat(
    ...cases.map((full) => {
      const nodes = Math.ceil(full.nodes * part);
      const characters = Math.ceil(full.characters * part);
      const own = { nodes, characters, joints: full.joints };
      return measure(own, budget).map((times, round) => Object.assign({ round }, own, times));
    })
  );
  printTable(
    'spawn: milliseconds; spawn and remove are calls of the scene, updates come after each',
    ['nodes', 'characters', 'joints', 'time', 'spawn', 'update', 'remove', 'update'],
    rows.map((row) => [
      ...[row.nodes, row.characters, row.joints, row.round === 0 ? 'first' : 'again'],
      ...kTimes.map((name) => row[name]),
    ])
  );
  return rows;
}

module.exports = { run };
