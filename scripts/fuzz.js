'use strict';
// npm run fuzz: random programs over checked engines and scenes, and mutated glTF files, in child processes.
//   -- checked scene glb   which; by default all
//   -- --seconds N         of each, by default 60
//   -- --seed S            of the first program, by default 1; others follow
//   -- --only 3,17         only these steps of the program with that seed, as a failure prints them
//   -- --asan              under the address and undefined behaviour sanitizers
//   -- --tsan              under the thread sanitizer
const path = require('path');
const { setup } = require('./setup');
const { build, builtFile, everything, host, sanitizerEnvironment } = require('./lib/build');
const { fuzz } = require('./lib/fuzz');
const { environment, fail, root } = require('./lib/run');

/** Programs of a process, and steps of each: engines stay until the process ends. And the least number of processes. */
const targets = {
  checked: { programs: 5, steps: 400, processes: 5 },
  scene: { programs: 5, steps: 400, processes: 7 },
  glb: { programs: 4, steps: 250, processes: 2 },
};

const kLargestSeed = 2 ** 31;

/**
 * Runs targets one after the other, and prints what they did.
 * @param {string[]} names
 * @param {Object} options
 * @param {number} options.seconds of each; 0 for the least number of processes
 * @param {number} options.seed
 * @param {number[]} [options.only]
 * @param {string} [options.preset]
 * @returns {Promise<boolean>} whether none failed
 */
async function fuzzAll(names, { seconds, seed, only, preset = 'release' }) {
  build(preset, everything, ['nq_logic', 'nq_logic_matrixflow']);
  const modules = {
    NQ_MODULE: builtFile('nq_logic.node', undefined, preset),
    NQ_MATRIXFLOW_MODULE: builtFile('nq_logic_matrixflow.node', undefined, preset),
  };
  const env = environment(Object.assign(modules, sanitizerEnvironment(preset)));
  let isGood = true;
  for (const name of names) {
    const program = path.join(root, 'tests/fuzz/programs', `${name}.js`);
    const isSingle = only !== undefined;
    const single = isSingle ? { only, programs: 1 } : {};
    const options = Object.assign({ program, host, env, seed }, targets[name], single);
    const result = await fuzz(options, isSingle ? 0 : seconds, isSingle ? 1 : options.processes);
    const { failure } = result;
    const tally = Object.keys(result.tally).map((kind) => `${kind} ${result.tally[kind]}`);
    const did = [`${result.programs} programs`, `${result.steps} steps`, ...tally].join(', ');
    console.log(`== fuzz ${name}, seeds from ${seed}: ${did}`);
    if (failure !== null) {
      isGood = false;
      console.error(failure.text);
      console.error(`fuzz ${name}: ${failure.kind} at seed ${failure.seed}, step ${failure.step}.`);
      const sanitizer = preset === 'release' ? '' : ` --${preset}`;
      const again = `npm run fuzz -- ${name} --seed ${failure.seed} --only ${result.only}`;
      console.error(
        result.isRepeatable
          ? `${result.only.length} steps do it: ${again}${sanitizer}`
          : `It needs the programs before it: npm run fuzz -- ${name} --seed ${result.firstSeed}${sanitizer}`
      );
    }
  }
  return isGood;
}

/** Reads the options of the command line. */
function readOptions(given) {
  const options = { seconds: 60, seed: 1, names: [] };
  const numberOf = (name, text, most) => {
    const value = Number(text);
    if (!/^\d+$/.test(text || '') || value > most) {
      fail(`fuzz: ${name} is ${text}: give a whole number up to ${most}.`, 2);
    }
    return value;
  };
  for (let i = 0; i < given.length; ++i) {
    if (given[i] === '--seconds') {
      options.seconds = numberOf('--seconds', given[++i], 86400);
    } else if (given[i] === '--seed') {
      options.seed = numberOf('--seed', given[++i], kLargestSeed);
    } else if (given[i] === '--only') {
      const list = (given[++i] || '').split(',');
      options.only = list.map((text) => numberOf('a step of --only', text, 1e6));
    } else if (['--asan', '--tsan'].includes(given[i])) {
      options.preset = given[i].slice(2);
    } else if (given[i] in targets) {
      options.names.push(given[i]);
    } else {
      const known = Object.keys(targets).join(', ');
      fail(`fuzz: there is no ${given[i]}: give some of ${known}, or an option.`, 2);
    }
  }
  if (options.names.length === 0) {
    options.names = Object.keys(targets);
  }
  if (options.only !== undefined && options.names.length !== 1) {
    fail('fuzz: --only needs one target: name it.', 2);
  }
  return options;
}

module.exports = { fuzzAll, targets };

if (require.main === module) {
  const { names, ...options } = readOptions(process.argv.slice(2));
  setup('build');
  fuzzAll(names, options).then(
    (isGood) => isGood || fail('fuzz: failures above.'),
    (error) => fail(error.stack)
  );
}
