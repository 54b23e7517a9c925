'use strict';
// The frame of the demo's crowd by the records, and by lib/scene on top of them: plan, clips, world matrices, skinning
// matrices, and culling for two cameras. Both give the same numbers, with layers but for rounding.
const { assertSameMatrices } = require('../lib/compare');
const { createCrowdScene } = require('../lib/crowd-scene');
const { loadContender: load } = require('../lib/load-contender');
const { alternate } = require('../lib/measure');
const { printTable } = require('../lib/table');

/** Characters of a crowd. */
const crowds = [10, 100, 500];

/** What poses them. */
const kinds = [
  { kind: 'animators, two clips', isLayered: false },
  { kind: 'controllers, three layers', isLayered: true },
];

/**
 * Frames before the first comparison: of small crowds more, so that the compiler has seen as many characters; the least
 * are for a tiny budget.
 */
const leastFrames = 20;
const characterFrames = 20000;

/**
 * Throws unless two arrays have the same numbers. Bits differ in the sign of zeros only: a scene has one root for all,
 * and a product with its matrix turns -0 into 0.
 */
function assertSameNumbers(what, expected, actual) {
  for (let i = 0; i < Math.max(1, expected.length, actual.length); ++i) {
    // Written so that NaN on either side fails.
    if (!(expected[i] === actual[i]) || expected[i] === undefined) {
      throw new Error(`${what}: element ${i} is ${actual[i]}, expected ${expected[i]}`);
    }
  }
}

/**
 * Throws unless all props are where the others have them, but for rounding: nodes below hands here, entities bound to
 * hands there.
 */
function assertProps(what, cast, contenders) {
  const carriers = cast.map((part, i) => (part === null ? -1 : i)).filter((i) => i >= 0);
  if (carriers.length > 0) {
    const [expected, actual] = contenders.map(({ propMatrix }) =>
      Float32Array.from([].concat(...carriers.map((i) => Array.from(propMatrix(i)))))
    );
    assertSameMatrices(`${what}, props`, expected, actual);
  }
}

/** Throws unless both contenders have the same matrices and the same characters in view, after the same frame. */
function assertAgreement(what, { characters, kind, cast, cameras }, contenders) {
  const [first, second] = contenders;
  for (let character = 0; character < characters; ++character) {
    const who = `${what}, character ${character}`;
    // Layers of a scene add up in another order.
    const assertSame = kind.layers ? assertSameMatrices : assertSameNumbers;
    assertSame(
      `${who}, skinning matrices`,
      first.skinMatrices(character),
      second.skinMatrices(character)
    );
    for (let node = 0; node < kind.nodes.length; ++node) {
      assertSame(
        `${who}, world matrix of node ${node}`,
        first.worldMatrix(character, node),
        second.worldMatrix(character, node)
      );
    }
  }
  assertProps(what, cast, contenders);
  for (const camera of Object.keys(cameras)) {
    const [expected, actual] = [first, second].map((contender) => contender.visible(camera));
    if (expected.length === 0 || expected.join() !== actual.join()) {
      throw new Error(`${what}, in view of ${camera}: ${actual}, expected ${expected}`);
    }
  }
}

/** One crowd. */
function measureCrowd({ kind, isLayered }, characters, budget) {
  const scene = createCrowdScene(isLayered, characters);
  const contenders = [
    load('crowd-records').createCrowdRecords(scene),
    load('crowd-scene').createCrowdScene(scene),
  ];
  const frames = contenders.map(() => 0);
  const run = (c) => {
    contenders[c].frame();
    ++frames[c];
  };
  const runUntil = (frame) => {
    contenders.forEach((_, c) => {
      while (frames[c] < frame) {
        run(c);
      }
    });
  };
  const wanted = budget.milliseconds > 0 ? Math.ceil(characterFrames / characters) : 0;
  runUntil(Math.max(leastFrames, wanted));
  const what = `${kind}, ${characters} characters`;
  assertAgreement(`${what}, before`, scene, contenders);
  const times = alternate(
    contenders.map((_, c) => () => run(c)),
    budget
  );
  runUntil(Math.max(...frames) + 1);
  assertAgreement(`${what}, after`, scene, contenders);
  const [records, layer] = times.map((time) => time / 1000);
  return {
    kind,
    characters,
    nodes: characters * scene.kind.nodes.length,
    microsecondsPerFrame: { records, scene: layer },
    ratio: layer / records,
  };
}

function run(budget) {
  // On a tiny budget one small crowd.
  const limit = Math.floor(Math.max(...budget.sizes) / 50);
  const wanted = budget.largestOnly ? crowds.slice(-1) : crowds;
  const within = Array.from(new Set(wanted.map((count) => Math.min(count, limit))));
  const rows = [].concat(
    ...kinds.map((kind) => within.map((characters) => measureCrowd(kind, characters, budget)))
  );
  printTable(
    'scene: microseconds per frame',
    ['posed by', 'characters', 'nodes', 'records', 'scene', 'scene/records'],
    rows.map(({ kind, characters, nodes, microsecondsPerFrame: { records, scene }, ratio }) => [
      kind,
      characters,
      nodes,
      records,
      scene,
      ratio,
    ])
  );
  return rows;
}

module.exports = { run };
