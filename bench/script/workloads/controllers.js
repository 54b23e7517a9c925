'use strict';
// Crowds of characters posed in layers: a crossfade from walking to running, alone and with an additive layer above
// it whose mask excludes the legs. Measured is everything from times and weights to local matrices; world matrices
// are refreshed in between, as in frames.
const { assertMoved, assertSamePose, bones, rounding } = require('../lib/animation-scene');
const { createControllerScene, mixerTolerance } = require('../lib/controllers-scene');
const { figuresOf, namesOf } = require('../lib/figures');
const { measureFew } = require('../lib/few');
const { loadContender: load } = require('../lib/load-contender');
const { interleavePrepared } = require('../lib/measure');
const { lastOfEach, printTable } = require('../lib/table');

/** Characters of a crowd. */
const crowds = [10, 100, 1000];

/** Kinds of poses; methods of the contenders. */
const poses = [
  { kind: 'crossfade', method: 'crossfade' },
  { kind: 'crossfade and masked additive layer', method: 'layers' },
];

/** Sets of times for the comparison of contenders. */
const comparedSets = [0, 5];

/** A scene, and its contenders with their tolerances to the first; three.js is the last, if wanted. */
function prepare(characters, withThree = true) {
  const scene = createControllerScene(characters);
  const contenders = [
    load('controllers-typed').createControllersTyped(scene),
    load('controllers-native').createControllersNative(scene),
    ...(withThree ? [load('controllers-three').createControllersThree(scene)] : []),
  ];
  return { scene, contenders, tolerances: [rounding, rounding, mixerTolerance(scene)] };
}

/** World matrices of a contender for a set. */
function worldsOf(contender, method, set, characters) {
  contender[method](set);
  contender.refresh();
  const out = new Float32Array(16 * bones * characters).fill(NaN);
  contender.worlds(out);
  return out;
}

/**
 * Throws unless all contenders give the same result for a kind of pose, and it moves.
 * @returns {Float32Array} the world matrices of the last set
 */
function assertPose(what, { scene, contenders, tolerances }, method) {
  const [first, second] = comparedSets.map((set) => {
    const [expected, ...others] = contenders.map((contender) =>
      worldsOf(contender, method, set, scene.characters)
    );
    others.forEach((worlds, i) => {
      const said = `${what}, set ${set}, ${contenders[i + 1].name} against ${contenders[0].name}`;
      assertSamePose(said, expected, worlds, tolerances[i + 1]);
    });
    return expected;
  });
  assertMoved(what, first, second);
  return second;
}

/** All kinds of poses of one crowd, as rows. */
function measureCrowd(characters, budget, withThree = true) {
  const prepared = prepare(characters, withThree);
  const { contenders, scene } = prepared;
  const shown = [];
  const rows = poses.map(({ kind, method }) => {
    const what = `${characters} characters, ${kind}`;
    shown.push(assertPose(`${what}, before`, prepared, method));
    const runs = contenders.map((contender) => ({
      prepare: contender.refresh,
      run: (number) => contender[method](number % scene.sets.length),
    }));
    const times = interleavePrepared(runs, budget);
    assertPose(`${what}, after`, prepared, method);
    const figures = figuresOf(namesOf(contenders), times, characters * bones);
    return {
      kind,
      characters,
      nanosecondsPerBone: figures.reported,
      cpuNanosecondsPerBone: figures.cpu,
      statistics: { best: figures.best, median: figures.median },
    };
  });
  // The additive layer has an effect.
  const [plain, layered] = shown;
  if (!layered.some((value, i) => Math.abs(value - plain[i]) > 0.01)) {
    throw new Error('the additive layer changes nothing');
  }
  return rows;
}

function run(budget) {
  // On a tiny budget one small crowd.
  const limit = Math.floor(Math.max(...budget.sizes) / bones);
  const wanted = budget.largestOnly ? crowds.slice(-1) : crowds;
  const within = Array.from(new Set(wanted.map((count) => Math.min(count, limit))));
  const rows = [].concat(...within.map((characters) => measureCrowd(characters, budget)));
  printTable(
    'controllers: ns per bone',
    ['work', 'characters', 'nq', 'nq, CPU', 'typed', 'three', 'typed/nq', 'three/nq'],
    rows.map(({ kind, characters, nanosecondsPerBone, cpuNanosecondsPerBone: cpu }) => {
      const { nq, typed, three } = nanosecondsPerBone;
      return [kind, characters, nq, cpu.nq, typed, three, typed / nq, three / nq];
    })
  );
  const few = budget.largestOnly ? [] : measureFew('controllers', poses, prepare, budget);
  return { crowds: rows, few };
}

/**
 * The largest cases, for a comparison of hosts.
 * @param {ReturnType<run>} results
 * @returns {import('../lib/hosts').Case[]}
 */
function largest({ crowds: rows }) {
  return lastOfEach(rows, ({ kind }) => kind).map(({ kind, characters, nanosecondsPerBone }) => ({
    work: `controllers: ${kind}, ${characters} characters`,
    unit: 'ns per bone',
    times: nanosecondsPerBone,
  }));
}

module.exports = { largest, measureCrowd, run };
