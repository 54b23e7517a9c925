'use strict';
// Few characters: a batch, which wakes the workers, against a call for each on the calling thread.
const { assertSamePose, bones, rounding } = require('./animation-scene');
const { interleavePrepared } = require('./measure');
const { printTable } = require('./table');

/** Characters, as measured for the batch's break-even. */
const few = [1, 3, 10, 30];

/** Throws unless a pose by single calls is that of the other contenders. */
function assertSinglyTheSame(what, typed, nq, method, characters) {
  const [expected, batch, singly] = [
    [typed, typed],
    [nq, nq],
    [nq, nq.singly],
  ].map(([contender, methods]) => {
    methods[method](3);
    contender.refresh();
    const out = new Float32Array(16 * bones * characters).fill(NaN);
    contender.worlds(out);
    // Another pose in between, so that one that is not computed differs.
    methods[method](9);
    return out;
  });
  assertSamePose(`${what}, batch`, expected, batch, rounding);
  assertSamePose(`${what}, single calls`, expected, singly, rounding);
}

/**
 * Measures poses of few characters in both ways, and prints a table.
 * @param {string} name of the workload
 * @param {Array<{kind: string, method: string}>} poses methods of the contenders
 * @param {function(number): object} prepare scene and contenders of that many characters: typed, nq
 * @param {import('./measure').Budget} budget
 * @returns {object[]} rows
 */
function measureFew(name, poses, prepare, budget) {
  const rows = [];
  for (const characters of budget.milliseconds === 0 ? few.slice(0, 1) : few) {
    const { scene, contenders } = prepare(characters);
    const [typed, nq] = contenders;
    for (const { kind, method } of poses) {
      assertSinglyTheSame(`${kind}, ${characters} characters`, typed, nq, method, characters);
      const runs = [nq, nq.singly, typed].map((methods, i) => ({
        prepare: i < 2 ? nq.refresh : typed.refresh,
        run: (run) => methods[method](run % scene.sets.length),
      }));
      const [batch, singly, own] = interleavePrepared(runs, budget).map(
        (time) => time / characters / bones
      );
      rows.push({ kind, characters, nanosecondsPerBone: { batch, singly, typed: own } });
    }
  }
  printTable(
    `${name}: few characters, by a batch and by a call each, ns per bone`,
    ['work', 'characters', 'nq, batch', 'nq, a call each', 'typed', 'typed/batch', 'typed/calls'],
    rows.map(({ kind, characters, nanosecondsPerBone: { batch, singly, typed } }) => [
      kind,
      characters,
      batch,
      singly,
      typed,
      typed / batch,
      typed / singly,
    ])
  );
  return rows;
}

module.exports = { measureFew };
