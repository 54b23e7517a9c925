'use strict';
// Linking a tree, by the command stream and by calls: the cost of loading a level.
const { createEntities, getEngine, linkTree } = require('../lib/native-scene');
const { once } = require('../lib/measure');
const { printTable } = require('../lib/table');
const { buildTree, treeNames } = require('../lib/scenes');
const { Object3D } = require('three');

function run(budget) {
  const rows = [];
  for (const name of treeNames) {
    const tree = buildTree(name, budget.entities);
    const nq = once(
      budget,
      () => {
        const engine = getEngine();
        return { engine, created: createEntities(engine, tree.count) };
      },
      ({ engine, created }) => linkTree(engine, tree.parents, created.handles)
    );
    const three = once(
      budget,
      () => Array.from(tree.parents, () => new Object3D()),
      (objects) => {
        for (let node = 1; node < tree.count; ++node) {
          objects[tree.parents[node]].add(objects[node]);
        }
      }
    );
    rows.push({ tree: name, nodes: tree.count, nq: nq / tree.count, three: three / tree.count });
  }
  printTable(
    'linking: ns per link, world pass over the new tree included for nq',
    ['tree', 'links', 'nq', 'three', 'three/nq'],
    rows.map((row) => [row.tree, row.nodes, row.nq, row.three, row.three / row.nq])
  );
  return rows;
}

/**
 * The largest cases, for a comparison of hosts.
 * @param {ReturnType<run>} rows
 * @returns {import('../lib/hosts').Case[]}
 */
function largest(rows) {
  const [{ tree, nodes, nq, three }] = rows;
  return [{ work: `linking: ${tree}, ${nodes} nodes`, unit: 'ns per link', times: { nq, three } }];
}

module.exports = { largest, run };
