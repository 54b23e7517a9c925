'use strict';
// Streams of arithmetic: 10,000 commands of one kind, and a mix as in a frame. The module executes a stream that is
// written once, or rewritten each time; JavaScript does the same work in hand-written loops, or interprets the same
// stream.
const { assertSameOutput, createMix, createStream, kinds } = require('../lib/matrixflow-scene');
const { interleave } = require('../lib/measure');
const { printTable } = require('../lib/table');
const { isBuilt, modulePath } = require('../contenders/matrixflow-native');

const commandCount = 10000;

/** Loads a new instance of a contender, so that the compiler sees only one stream. */
function load(name) {
  for (const file of Object.keys(require.cache)) {
    if (/[\\/](contenders[\\/]matrixflow-[a-z]+|lib[\\/]commands)\.js$/.test(file)) {
      delete require.cache[file];
    }
  }
  return require(`../contenders/matrixflow-${name}`);
}

function measureStream(stream, budget) {
  const native = load('native').createNative(stream);
  const straight = load('straight').createStraight(stream);
  const { words, ids } = native;
  const interpreted = load('interpreter').createInterpreter(stream, words.slice(), ids);
  const outputs = stream.kind === 'mix' ? ['local', 'world', 'skin'] : ['r'];
  const assertAgreement = () => {
    for (const contender of [native, interpreted]) {
      for (const name of outputs) {
        const what = `${stream.kind}, ${contender.name}, block ${name}`;
        assertSameOutput(what, straight.block(name), contender.block(name));
        // Results of a run must not be mistaken for those of the next.
        contender.block(name).fill(0);
      }
    }
    outputs.forEach((name) => straight.block(name).fill(0));
  };
  [native, straight, interpreted].forEach((contender) => contender.run());
  assertAgreement();
  const times = interleave(
    [() => native.run(), () => native.writeAndRun(), () => straight.run(), () => interpreted.run()],
    budget
  ).map((time) => time / stream.count);
  assertAgreement();
  return {
    stream: stream.kind,
    commands: stream.count,
    nanosecondsPerCommand: {
      nq: times[0],
      nqWritten: times[1],
      straight: times[2],
      interpreted: times[3],
    },
  };
}

function run(budget) {
  if (!isBuilt) {
    console.log(`\n### matrixflow: left out, there is no ${modulePath}`);
    return null;
  }
  const count = Math.min(commandCount, Math.max(...budget.sizes));
  const streams = Object.keys(kinds).map((kind) => createStream(kind, count));
  streams.push(createMix(count));
  const rows = streams.map((stream) => measureStream(stream, budget));
  printTable(
    'matrixflow: ns per command',
    [
      'stream',
      'commands',
      'nq',
      'nq, written anew',
      'straight',
      'interpreted',
      'straight/nq',
      'interpreted/nq',
    ],
    rows.map(
      ({ stream, commands, nanosecondsPerCommand: { nq, nqWritten, straight, interpreted } }) => [
        stream,
        commands,
        nq,
        nqWritten,
        straight,
        interpreted,
        straight / nq,
        interpreted / nq,
      ]
    )
  );
  return rows;
}

/**
 * The largest cases, for a comparison of hosts.
 * @param {ReturnType<run>} rows null where there is no build to measure
 * @returns {import('../lib/hosts').Case[]}
 */
function largest(rows) {
  if (rows === null) {
    return [];
  }
  // The last is the mix; the competitor is hand-written loops over typed arrays.
  const { stream, commands, nanosecondsPerCommand } = rows[rows.length - 1];
  return [
    {
      work: `matrixflow: ${stream}, ${commands} commands`,
      unit: 'ns per command',
      times: { nq: nanosecondsPerCommand.nq, typed: nanosecondsPerCommand.straight },
    },
  ];
}

module.exports = { largest, run };
