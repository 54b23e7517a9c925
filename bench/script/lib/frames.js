'use strict';
// Frames of a changing tree, the same for all contenders.
const { assertSameMatrices } = require('./compare');
const { interleave } = require('./measure');
const { createValues, selectPercent } = require('./scenes');

/** Number of sets of transforms of consecutive frames. */
const frameSets = 3;

/**
 * Throws unless all contenders have the matrices of the first.
 * @param {string} what
 * @param {object[]} contenders
 * @param {number} count nodes
 */
function assertAgreement(what, contenders, count) {
  const expected = new Float32Array(16 * count);
  const actual = new Float32Array(16 * count);
  contenders[0].world(expected);
  for (const contender of contenders.slice(1)) {
    contender.world(actual.fill(NaN));
    assertSameMatrices(
      `${what}, ${contender.name} against ${contenders[0].name}`,
      expected,
      actual
    );
  }
}

/**
 * Measures one set of changed nodes. All contenders read the same transforms in the same order, and must have the
 * same world matrices before and after.
 * @param {string} what
 * @param {import('./scenes').Tree} tree
 * @param {object[]} contenders
 * @param {Int32Array} dirty
 * @param {string} mode
 * @param {import('./measure').Budget} budget
 * @param {Array<function(Float32Array): void>} [others] to time interleaved with the frames
 * @returns {number[]} nanoseconds per frame of each contender, then of each of the others
 */
function measureFrames(what, tree, contenders, dirty, mode, budget, others = []) {
  const all = selectPercent(tree, 100);
  const initial = createValues(all, mode, 1, 11)[0];
  const values = createValues(dirty, mode, frameSets, 12);
  for (const contender of contenders) {
    contender.setDirty(all, mode);
    contender.frame(initial);
    contender.setDirty(dirty, mode);
    contender.frame(values[0]);
  }
  assertAgreement(`${what}, before`, contenders, tree.count);
  const bodies = contenders.map((contender) => contender.frame).concat(others);
  const times = interleave(
    bodies.map((body) => (run) => body(values[run % frameSets])),
    budget
  );
  for (const contender of contenders) {
    contender.frame(values[1]);
  }
  assertAgreement(`${what}, after`, contenders, tree.count);
  return times;
}

module.exports = { measureFrames };
