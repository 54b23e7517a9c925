'use strict';
// Crowds of characters: poses from one clip and from two, skinning, and whole frames.
const animation = require('../lib/animation-scene');
const { assertView, cameras } = require('../lib/culling-scene');
const { figuresOf, namesOf } = require('../lib/figures');
const { measureFew } = require('../lib/few');
const { loadContender: load } = require('../lib/load-contender');
const { interleave, interleavePrepared } = require('../lib/measure');
const { lastOfEach, printTable } = require('../lib/table');

const { assertMoved, assertSamePose, bones, skinTolerance } = animation;

/** Characters of a crowd for animation, and for whole frames. */
const crowds = [10, 100, 1000];
const frameCrowds = [10, 100, 500];

/** Work per bone before skinning; methods of the contenders. */
const poses = [
  { kind: 'one clip', method: 'clip' },
  { kind: 'one clip, whole frames', method: 'frames' },
  { kind: 'crossfade', method: 'crossfade' },
];

/** Whole frames; methods of the contenders. */
const frames = [
  { kind: 'whole frame, one clip', method: 'clipFrame' },
  { kind: 'whole frame', method: 'frame' },
];

/** Sets of times for the comparison of contenders. */
const comparedSets = [0, 5];

/** A scene, and its contenders with their tolerances to the first; three.js is the last, if wanted. */
function prepare(characters, withThree = true) {
  const scene = animation.createAnimationScene(characters);
  const contenders = [
    load('animation-typed').createAnimationTyped(scene),
    load('animation-native').createAnimationNative(scene),
    ...(withThree ? [load('animation-three').createAnimationThree(scene)] : []),
  ];
  const { rounding, interpolationTolerance } = animation;
  return { scene, contenders, tolerances: [rounding, rounding, interpolationTolerance(scene)] };
}

/**
 * Throws unless all contenders have the world matrices and skinning matrices of the first.
 * @param {string} what
 * @param {object} prepared
 * @returns {Float32Array} the world matrices
 */
function assertSameBones(what, { scene, contenders, tolerances }) {
  const read = (contender, name) => {
    const out = new Float32Array(16 * bones * scene.characters).fill(NaN);
    contender[name](out);
    return out;
  };
  const worlds = read(contenders[0], 'worlds');
  const skins = read(contenders[0], 'skins');
  contenders.slice(1).forEach((contender, i) => {
    const said = `${what}, ${contender.name} against ${contenders[0].name}`;
    const tolerance = tolerances[i + 1];
    assertSamePose(`${said}, world`, worlds, read(contender, 'worlds'), tolerance);
    assertSamePose(`${said}, skin`, skins, read(contender, 'skins'), skinTolerance(tolerance));
  });
  return worlds;
}

/** Compares the results of a kind of pose. */
function assertPose(what, prepared, method) {
  const [first, second] = comparedSets.map((set) => {
    for (const contender of prepared.contenders) {
      contender[method](set);
      contender.refresh();
      contender.skin();
    }
    return assertSameBones(`${what}, set ${set}`, prepared);
  });
  assertMoved(what, first, second);
}

/** Compares bones and visible objects after whole frames. */
function assertFrame(what, prepared, method) {
  const { scene, contenders } = prepared;
  const all = Int32Array.from({ length: scene.characters }, (_, i) => i);
  for (const set of comparedSets) {
    const camera = cameras[set % cameras.length];
    contenders.forEach((contender) => contender[method](set, camera));
    assertSameBones(`${what}, set ${set}`, prepared);
    for (const contender of contenders) {
      const worlds = new Float32Array(16 * bones * scene.characters);
      contender.worlds(worlds);
      const hips = new Float32Array(16 * scene.characters);
      all.forEach((c) => hips.set(worlds.subarray(16 * bones * c, 16 * bones * c + 16), 16 * c));
      assertView(`${what}, ${contender.name}`, scene, hips, camera, all, contender.view());
    }
  }
}

/** A row of the table, from nanoseconds of a run of each contender. */
function rowOf(kind, { contenders, scene: { characters } }, times) {
  const figures = figuresOf(namesOf(contenders), times, characters * bones);
  const { reported, cpu, best, median } = figures;
  return {
    kind,
    characters,
    nanosecondsPerBone: reported,
    cpuNanosecondsPerBone: cpu,
    statistics: { best, median },
  };
}

/** Poses and skinning of one crowd, as rows. */
function measureCrowd(characters, budget, withThree = true) {
  const prepared = prepare(characters, withThree);
  const { contenders, scene } = prepared;
  const setOf = (run) => run % scene.sets.length;
  const rows = poses.map(({ kind, method }) => {
    const what = `${characters} characters, ${kind}`;
    assertPose(`${what}, before`, prepared, method);
    // World matrices are refreshed in between, as in frames.
    const runs = contenders.map((contender) => ({
      prepare: contender.refresh,
      run: (run) => contender[method](setOf(run)),
    }));
    const times = interleavePrepared(runs, budget);
    assertPose(`${what}, after`, prepared, method);
    return rowOf(kind, prepared, times);
  });
  const skins = interleave(
    contenders.map((contender) => contender.skin),
    budget
  );
  assertPose(`${characters} characters, after skinning`, prepared, 'crossfade');
  return rows.concat(rowOf('skinning', prepared, skins));
}

/** Whole frames of one crowd, as rows. */
function measureFrames(characters, budget, withThree = true) {
  const prepared = prepare(characters, withThree);
  const { contenders, scene } = prepared;
  return frames.map(({ kind, method }) => {
    const what = `${characters} characters, ${kind}`;
    assertFrame(`${what}, before`, prepared, method);
    const times = interleave(
      contenders.map(
        (contender) => (run) =>
          contender[method](run % scene.sets.length, cameras[run % cameras.length])
      ),
      budget
    );
    assertFrame(`${what}, after`, prepared, method);
    return rowOf(kind, prepared, times);
  });
}

function run(budget) {
  // On a tiny budget one small crowd.
  const limit = Math.floor(Math.max(...budget.sizes) / bones);
  const within = (counts) => {
    const wanted = budget.largestOnly ? counts.slice(-1) : counts;
    return Array.from(new Set(wanted.map((count) => Math.min(count, limit))));
  };
  const rows = [].concat(
    ...within(crowds).map((characters) => measureCrowd(characters, budget)),
    ...within(frameCrowds).map((characters) => measureFrames(characters, budget))
  );
  printTable(
    'animation: ns per bone',
    ['work', 'characters', 'nq', 'nq, CPU', 'typed', 'three', 'typed/nq', 'three/nq'],
    rows.map(({ kind, characters, nanosecondsPerBone, cpuNanosecondsPerBone: cpu }) => {
      const { nq, typed, three } = nanosecondsPerBone;
      return [kind, characters, nq, cpu.nq, typed, three, typed / nq, three / nq];
    })
  );
  const few = budget.largestOnly ? [] : measureFew('animation', poses, prepare, budget);
  return { crowds: rows, few };
}

/**
 * The largest cases, for a comparison of hosts.
 * @param {ReturnType<run>} results
 * @returns {import('../lib/hosts').Case[]}
 */
function largest({ crowds: rows }) {
  return lastOfEach(rows, ({ kind }) => kind).map(({ kind, characters, nanosecondsPerBone }) => ({
    work: `animation: ${kind}, ${characters} characters`,
    unit: 'ns per bone',
    times: nanosecondsPerBone,
  }));
}

module.exports = { largest, measureCrowd, measureFrames, run };
