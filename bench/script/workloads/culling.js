'use strict';
// Culling of many spheres, nearest first: of a scene at rest, of one in which everything has moved since the last
// call, and of a short list of objects out of many.
const { assertView, cameras, createCullingScene } = require('../lib/culling-scene');
const { figuresOf, namesOf } = require('../lib/figures');
const { loadContender: load } = require('../lib/load-contender');
const { interleave, interleavePrepared } = require('../lib/measure');
const { selectCount } = require('../lib/scenes');
const { lastOfEach, printTable } = require('../lib/table');

/** Objects of a list. */
const listLengths = [100, 1000];

/** A scene, its world matrices at each place, and the contenders; three.js is the last, if wanted. */
function prepare(count, withThree = true) {
  const scene = createCullingScene(count);
  const native = load('culling-native').createCullingNative(scene);
  const sets = scene.roots.map((_, set) => {
    native.move(set);
    return native.matrices();
  });
  const typed = load('culling-typed').createCullingTyped(scene, sets);
  const three = withThree ? [load('culling-three').createCullingThree(scene, sets)] : [];
  const contenders = [native, typed, ...three];
  return { scene, sets, contenders };
}

/**
 * Throws unless all contenders find the visible objects, at each place and with each camera. Leaves them all at the
 * last place.
 * @param {string} what
 * @param {object} prepared
 * @param {Int32Array} tested
 * @param {string} method of the contenders
 * @returns {number} average number of visible objects
 */
function assertAgreement(what, { scene, sets, contenders }, tested, method) {
  let seen = 0;
  sets.forEach((matrices, set) => {
    for (const contender of contenders) {
      contender.move(set);
      contender.cullMoved(cameras[set]);
      contender[method](cameras[set]);
      const said = `${what}, ${contender.name}`;
      seen += assertView(said, scene, matrices, cameras[set], tested, contender.view());
    }
  });
  return Math.round(seen / sets.length / contenders.length);
}

/**
 * One row of the table.
 * @param {string} kind
 * @param {object} prepared
 * @param {Int32Array} tested the tested objects
 * @param {string} method of the contenders
 * @param {boolean} moves whether everything moves before each call
 * @param {import('../lib/measure').Budget} budget
 */
function measureCase(kind, prepared, tested, method, moves, budget) {
  const { scene, sets, contenders } = prepared;
  const what = `${tested.length} of ${scene.count} objects, ${kind}`;
  assertAgreement(`${what}, before`, prepared, tested, method);
  const bodies = contenders.map(
    (contender) => (run) => contender[method](cameras[run % cameras.length])
  );
  const prepareRun = (c) => (run) => contenders[c].move(run % sets.length);
  const times = moves
    ? interleavePrepared(
        bodies.map((run, c) => ({ prepare: prepareRun(c), run })),
        budget
      )
    : interleave(bodies, budget);
  const visible = assertAgreement(`${what}, after`, prepared, tested, method);
  const figures = figuresOf(namesOf(contenders), times, tested.length);
  return {
    kind,
    objects: scene.count,
    tested: tested.length,
    visible,
    nanosecondsPerObject: figures.reported,
    cpuNanosecondsPerObject: figures.cpu,
    statistics: { best: figures.best, median: figures.median },
  };
}

/** All objects of a scene, at rest and moved. */
function measureAll(prepared, budget) {
  const all = Int32Array.from({ length: prepared.scene.count }, (_, i) => i);
  return [
    measureCase('at rest', prepared, all, 'cull', false, budget),
    measureCase('moved', prepared, all, 'cullMoved', true, budget),
  ];
}

function run(budget) {
  const rows = [];
  for (const size of budget.sizes) {
    const prepared = prepare(size);
    rows.push(...measureAll(prepared, budget));
    if (size === Math.max(...budget.sizes)) {
      for (const length of listLengths.filter((one) => one < size)) {
        const list = selectCount(prepared.scene, length);
        prepared.contenders.forEach((contender) => contender.setList(list));
        rows.push(measureCase('list', prepared, list, 'cullList', false, budget));
      }
    }
  }
  printTable(
    'culling: ns per object tested',
    ['scene', 'objects', 'tested', 'visible', 'nq', 'nq, CPU'].concat([
      'typed',
      'three',
      'typed/nq',
      'three/nq',
    ]),
    rows.map((row) => {
      const { nq, typed, three } = row.nanosecondsPerObject;
      const { nq: cpu } = row.cpuNanosecondsPerObject;
      return [row.kind, row.objects, row.tested, row.visible, nq, cpu].concat([
        typed,
        three,
        typed / nq,
        three / nq,
      ]);
    })
  );
  return rows;
}

/**
 * The largest cases, for a comparison of hosts.
 * @param {ReturnType<run>} rows
 * @returns {import('../lib/hosts').Case[]}
 */
function largest(rows) {
  return lastOfEach(rows, ({ kind }) => kind).map(
    ({ kind, objects, tested, nanosecondsPerObject }) => ({
      work: `culling: ${kind}, ${tested} of ${objects} spheres`,
      unit: 'ns per sphere',
      times: nanosecondsPerObject,
    })
  );
}

module.exports = { largest, measureAll, prepare, run };
