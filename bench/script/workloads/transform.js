'use strict';
// A frame of a changing tree: new transforms in, world matrices out.
const { createGlMatrix } = require('../contenders/glmatrix');
const { createNative } = require('../contenders/native');
const { createThree } = require('../contenders/three');
const { measureFrames } = require('../lib/frames');
const { figuresOf, namesOf } = require('../lib/figures');
const { loadContender: load } = require('../lib/load-contender');
const { lastOfEach, printTable } = require('../lib/table');
const { batchCapacity } = require('../lib/native-scene');
const {
  buildTree,
  countAffected,
  numberingNames,
  renumber,
  selectCount,
  selectPercent,
  treeNames,
} = require('../lib/scenes');

/** Nodes of a chain: three.js traverses it recursively. */
const chainLimit = 1000;

/** The contenders for a tree. */
function createContenders(tree) {
  const others = [createNative, createThree, createGlMatrix].map((create) => create(tree));
  return [load('typed').createTyped(tree), ...others];
}

/**
 * One row of the table.
 * @returns {object}
 */
function measureCase(tree, contenders, percent, mode, budget) {
  const dirty = selectPercent(tree, percent);
  const what = `${tree.name} ${tree.count} ${percent} % ${mode}`;
  const times = measureFrames(what, tree, contenders, dirty, mode, budget);
  const perNode = ([typed, nq, three, glMatrix]) => ({
    nq: nq / dirty.length,
    typed: typed / dirty.length,
    three: three / dirty.length,
    glMatrix: glMatrix / dirty.length,
  });
  return {
    tree: tree.name,
    nodes: tree.count,
    percent,
    mode,
    dirty: dirty.length,
    affected: countAffected(tree, dirty),
    nanosecondsPerDirtyNode: perNode(times),
    cpuNanosecondsPerDirtyNode: perNode(times.cpu),
  };
}

/**
 * Frames of humanoids whose nodes are numbered in several ways; single nodes from all over the tree change.
 * @returns {object[]} rows
 */
function measureNumberings(count, budget) {
  const rows = [];
  const plain = buildTree('humanoids', count);
  for (const numbering of numberingNames) {
    const tree = renumber(plain, numbering, batchCapacity);
    const contenders = [load('typed').createTyped(tree), createNative(tree)];
    for (const percent of [100, 10, 1]) {
      const dirty =
        percent === 100
          ? selectPercent(tree, 100)
          : selectCount(tree, Math.max(1, Math.round((tree.count * percent) / 100)));
      const what = `${numbering}, ${tree.count} nodes, ${percent} %`;
      const times = measureFrames(what, tree, contenders, dirty, 'quaternion', budget);
      const figures = figuresOf(namesOf(contenders), times, dirty.length);
      rows.push({
        numbering,
        nodes: tree.count,
        percent,
        dirty: dirty.length,
        affected: countAffected(tree, dirty),
        nanosecondsPerDirtyNode: figures.reported,
        cpuNanosecondsPerDirtyNode: figures.cpu,
        statistics: { best: figures.best, median: figures.median },
      });
    }
  }
  return rows;
}

function printNumberings(rows) {
  printTable(
    'transform: humanoids by numbering within batches, scattered nodes, ns per changed node',
    ['numbering', 'nodes', '% dirty', 'dirty', 'world matrices', 'nq', 'nq, CPU'].concat([
      'typed',
      'typed/nq',
    ]),
    rows.map((row) => {
      const { nq, typed } = row.nanosecondsPerDirtyNode;
      const { nq: cpu } = row.cpuNanosecondsPerDirtyNode;
      const numbers = [row.nodes, row.percent, row.dirty, row.affected];
      return [row.numbering, ...numbers, nq, cpu, typed, typed / nq];
    })
  );
}

/**
 * Frames of more entries than the list holds, in the two ways that give the same result.
 * @returns {object}
 */
function measurePasses(tree, budget) {
  const pair = [true, false].map((heldRoot) => createNative(tree, { heldRoot }));
  const dirty = selectPercent(tree, 100);
  const what = `${tree.name} ${tree.count} passes`;
  const times = measureFrames(what, tree, pair, dirty, 'quaternion', budget);
  const [held, plain] = times.map((time) => time / dirty.length);
  return { tree: tree.name, nodes: tree.count, held, plain };
}

function printFrames(name, frames) {
  printTable(
    `transform: ${name}, ns per changed node and frame`,
    ['nodes', '% dirty', 'mode', 'dirty', 'world matrices', 'nq', 'nq, CPU'].concat([
      'typed',
      'three',
      'gl-matrix',
      'typed/nq',
      'three/nq',
    ]),
    frames.map((row) => {
      const { nq, typed, three, glMatrix } = row.nanosecondsPerDirtyNode;
      const { nq: cpu } = row.cpuNanosecondsPerDirtyNode;
      return [row.nodes, row.percent, row.mode, row.dirty, row.affected, nq, cpu].concat([
        typed,
        three,
        glMatrix,
        typed / nq,
        three / nq,
      ]);
    })
  );
}

function measureTree(name, budget) {
  const modes = budget.largestOnly ? ['quaternion'] : ['quaternion', 'euler'];
  const percents = budget.largestOnly ? [100, 1] : [100, 10, 1];
  const frames = [];
  for (const size of budget.sizes.filter((one) => name !== 'chain' || one <= chainLimit)) {
    const tree = buildTree(name, size);
    const contenders = createContenders(tree);
    for (const mode of modes) {
      for (const percent of percents) {
        frames.push(measureCase(tree, contenders, percent, mode, budget));
      }
    }
  }
  printFrames(name, frames);
  return frames;
}

function run(budget) {
  // A chain stays short.
  const measured = treeNames.filter((name) => !budget.largestOnly || name !== 'chain');
  const frames = [].concat(...measured.map((name) => measureTree(name, budget)));
  if (budget.largestOnly) {
    return { frames, numbered: [], passes: [] };
  }
  const numbered = measureNumberings(Math.max(...budget.sizes), budget);
  printNumberings(numbered);
  const passes = [];
  for (const name of treeNames.filter((one) => one !== 'chain')) {
    for (const size of budget.passSizes) {
      passes.push(measurePasses(buildTree(name, size), budget));
    }
  }
  printTable(
    'transform: frames of several passes, 100 % dirty, ns per node',
    ['tree', 'nodes', 'root held inactive', 'plain, deepest first', 'plain/held'],
    passes.map((row) => [row.tree, row.nodes, row.held, row.plain, row.plain / row.held])
  );
  return { frames, numbered, passes };
}

/**
 * The largest cases, for a comparison of hosts.
 * @param {ReturnType<run>} results
 * @returns {import('../lib/hosts').Case[]}
 */
function largest({ frames }) {
  const kept = frames.filter(({ tree, mode, percent }) => {
    return tree !== 'chain' && mode === 'quaternion' && percent !== 10;
  });
  return lastOfEach(kept, ({ tree, percent }) => `${tree} ${percent}`).map(
    ({ tree, nodes, percent, nanosecondsPerDirtyNode: { nq, typed, three } }) => ({
      work: `transform: ${tree}, ${percent} % of ${nodes} nodes`,
      unit: 'ns per changed node',
      times: { nq, typed, three },
    })
  );
}

module.exports = { largest, measureNumberings, run };
