'use strict';
// Memory of a linked tree of 3D entities, each contender in its own process.
const { spawnSync } = require('child_process');
const { collectGarbage } = require('../lib/measure');
const { printTable } = require('../lib/table');
const { buildTree, createValues, selectPercent } = require('../lib/scenes');

const contenders = {
  nq: () => require('../contenders/native').createNative,
  typed: () => require('../contenders/typed').createTyped,
  three: () => require('../contenders/three').createThree,
  'gl-matrix': () => require('../contenders/glmatrix').createGlMatrix,
};

/** In the child: prints the bytes that the tree adds to the process. */
function measure(name, count) {
  const create = contenders[name]();
  const tree = buildTree('large_tree', count);
  const all = selectPercent(tree, 100);
  const values = createValues(all, 'quaternion', 1, 31)[0];
  // A small tree first, so that code and scratch memory don't count.
  const warm = create(buildTree('large_tree', 10));
  warm.setDirty(selectPercent(buildTree('large_tree', 10), 100), 'quaternion');
  warm.frame(values);
  collectGarbage();
  const before = process.memoryUsage().rss;
  const contender = create(tree);
  contender.setDirty(all, 'quaternion');
  contender.frame(values);
  contender.setDirty(all.subarray(0, 1), 'quaternion');
  collectGarbage();
  const bytes = process.memoryUsage().rss - before;
  contender.frame(values);
  process.stdout.write(JSON.stringify(bytes));
}

function run(budget) {
  const rows = Object.keys(contenders).map((name) => {
    const child = spawnSync(process.execPath, [__filename, name, String(budget.entities)], {
      encoding: 'utf8',
    });
    if (child.status !== 0) {
      throw new Error(`memory of ${name}: ${child.stderr}`);
    }
    return {
      contender: name,
      entities: budget.entities,
      bytesPerEntity: JSON.parse(child.stdout) / budget.entities,
    };
  });
  printTable(
    'memory: growth of the process by a linked, refreshed tree',
    ['contender', 'entities', 'bytes per entity'],
    rows.map((row) => [row.contender, row.entities, row.bytesPerEntity])
  );
  return rows;
}

if (require.main === module) {
  measure(process.argv[2], Number(process.argv[3]));
}

module.exports = { run };
