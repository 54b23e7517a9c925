'use strict';
// The module against the strongest typed arrays only: the largest case of each workload, best and median side by side.
const { measureCrowd, measureFrames } = require('./animation');
const { measureCrowd: measureLayers } = require('./controllers');
const { measureAll, prepare } = require('./culling');
const { measureNumberings } = require('./transform');
const { bones } = require('../lib/animation-scene');
const { printTable } = require('../lib/table');

/** Characters of a crowd, and of one in whole frames. */
const crowd = 1000;
const frameCrowd = 500;

function run(budget) {
  const nodes = Math.max(...budget.sizes);
  const within = (characters) => Math.min(characters, Math.floor(nodes / bones));
  const rows = [];
  const add = (unit, workOf, measured) => {
    for (const row of measured) {
      const cpu =
        row.cpuNanosecondsPerBone || row.cpuNanosecondsPerDirtyNode || row.cpuNanosecondsPerObject;
      rows.push({ work: workOf(row), unit, cpu, statistics: row.statistics });
    }
  };
  const ofCharacters = ({ kind, characters }) => `${kind}, ${characters} characters`;
  add('bone', (row) => `layers: ${ofCharacters(row)}`, measureLayers(within(crowd), budget, false));
  add('bone', ofCharacters, measureCrowd(within(crowd), budget, false));
  add('bone', ofCharacters, measureFrames(within(frameCrowd), budget, false));
  const ofTree = ({ numbering, nodes: count, percent }) =>
    `world matrices, ${numbering}, ${percent} % of ${count} nodes`;
  add('changed node', ofTree, measureNumberings(nodes, budget));
  const ofSpheres = ({ kind, objects }) => `culling, ${kind}, ${objects} spheres`;
  add('sphere', ofSpheres, measureAll(prepare(nodes, false), budget));
  printTable(
    'typed-arrays: ns per unit of work, best of all runs, then median of the rounds, then CPU time',
    ['work', 'unit', 'nq, best', 'typed, best', 'typed/nq'].concat([
      ...['nq, median', 'typed, median', 'typed/nq'],
      ...['nq, CPU', 'typed, CPU', 'typed/nq'],
    ]),
    rows.map(({ work, unit, cpu, statistics: { best, median } }) => [
      ...[work, unit, best.nq, best.typed, best.typed / best.nq],
      ...[median.nq, median.typed, median.typed / median.nq],
      ...[cpu.nq, cpu.typed, cpu.typed / cpu.nq],
    ])
  );
  return rows;
}

module.exports = { run };
