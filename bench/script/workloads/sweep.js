'use strict';
// Dirty lists of increasing length: where posting to the worker threads costs more than it gains.
const { createNative } = require('../contenders/native');
const { measureFrames } = require('../lib/frames');
const { loadContender: load } = require('../lib/load-contender');
const { printTable } = require('../lib/table');
const { buildTree, countAffected, selectCount } = require('../lib/scenes');

/** 31 is the longest list that stays on the calling thread. */
const dirtyCounts = [1, 8, 31, 32, 100, 316, 1000, 3162, 10000];

function run(budget) {
  const rows = [];
  for (const size of budget.sweepSizes) {
    const tree = buildTree('large_tree', size);
    const typed = load('typed').createTyped(tree);
    const native = createNative(tree);
    for (const count of dirtyCounts.filter((one) => one < size)) {
      const dirty = selectCount(tree, count);
      const what = `${tree.name} ${size}, ${count} dirty`;
      const times = measureFrames(what, tree, [typed, native], dirty, 'quaternion', budget, [
        native.write,
      ]);
      const [typedTime, nativeTime, writeTime] = times.map((time) => time / 1000);
      rows.push({
        nodes: size,
        dirty: count,
        affected: countAffected(tree, dirty),
        microseconds: { nq: nativeTime, nqScriptPart: writeTime, typed: typedTime },
      });
    }
  }
  printTable(
    'sweep: large_tree, quaternions, microseconds a frame',
    ['nodes', 'dirty', 'world matrices', 'nq', 'JavaScript part', 'typed', 'typed/nq'],
    rows.map(({ nodes, dirty, affected, microseconds: { nq, nqScriptPart, typed } }) => [
      nodes,
      dirty,
      affected,
      nq,
      nqScriptPart,
      typed,
      typed / nq,
    ])
  );
  return rows;
}

/**
 * The largest cases, for a comparison of hosts.
 * @param {ReturnType<run>} rows
 * @returns {import('../lib/hosts').Case[]}
 */
function largest(rows) {
  const { nodes } = rows[rows.length - 1];
  const ofLargest = rows.filter((row) => row.nodes === nodes);
  // The shortest list too: there the call into the module dominates.
  return [ofLargest[0], ofLargest[ofLargest.length - 1]].map(({ dirty, microseconds }) => ({
    work: `sweep: ${dirty} of ${nodes} nodes change`,
    unit: 'us per frame',
    times: { nq: microseconds.nq, typed: microseconds.typed },
  }));
}

module.exports = { largest, run };
