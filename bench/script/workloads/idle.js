'use strict';
// A frame in which nothing changed.
const { createGlMatrix } = require('../contenders/glmatrix');
const { createNative } = require('../contenders/native');
const { createThree } = require('../contenders/three');
const { interleave } = require('../lib/measure');
const { printTable } = require('../lib/table');
const { buildTree, createValues, selectPercent } = require('../lib/scenes');

function run(budget) {
  const tree = buildTree('large_tree', budget.entities);
  const all = selectPercent(tree, 100);
  const values = createValues(all, 'quaternion', 1, 21)[0];
  const contenders = [createNative, createThree, createGlMatrix].map((create) => create(tree));
  for (const contender of contenders) {
    contender.setDirty(all, 'quaternion');
    contender.frame(values);
  }
  const times = interleave(
    contenders.map((contender) => () => contender.idle()),
    budget
  );
  const rows = contenders.map((contender, i) => ({
    contender: contender.name,
    nodes: tree.count,
    microseconds: times[i] / 1000,
  }));
  printTable(
    'idle: a frame without changes, large_tree',
    ['contender', 'nodes', 'microseconds'],
    rows.map((row) => [row.contender, row.nodes, row.microseconds])
  );
  return rows;
}

/**
 * The largest cases, for a comparison of hosts.
 * @param {ReturnType<run>} rows
 * @returns {import('../lib/hosts').Case[]}
 */
function largest(rows) {
  const times = {};
  for (const { contender, microseconds } of rows) {
    times[contender] = 1000 * microseconds;
  }
  return [
    {
      work: `idle: nothing changed, ${rows[0].nodes} nodes`,
      unit: 'ns per frame',
      times: { nq: times.nq, three: times.three },
    },
  ];
}

module.exports = { largest, run };
