'use strict';
// npm run determinism: the same random programs by single and batch calls, with short and long lists of changed nodes, in
// all builds that exist, on all hosts that they are built for, on arm64 in an emulator, and in WebAssembly: all must have
// the same bytes.
//   -- --build release,portable   builds these presets first: release, debug, asan, tsan, clang, portable, arm64, wasm
//   -- --programs N               default 20
//   -- --steps N                  of each, default 40
//   -- --seed S                   of the first program, default 1; others follow
const { setup } = require('./setup');
const { build, buildWasm, everything, folders, targetOf } = require('./lib/build');
const { compare, findVariants, play } = require('./lib/determinism');
const { platforms, arm64 } = require('./lib/hosts');
const { fail } = require('./lib/run');

const kMost = 2 ** 31;
/** Groups of scripts/setup.js that presets need. */
const needs = { clang: ['check'], arm64: ['cross', 'emulator'], wasm: ['wasm'] };

/**
 * Runs programs as all variants, and prints how each compares.
 * @param {{seed: number, programs: number, steps: number, presets: (string[] | undefined)}} options
 * @returns {Promise<boolean>} whether all are the same
 */
async function checkDeterminism(options) {
  const [base, ...others] = findVariants(options.presets);
  const { seed, programs, steps } = options;
  const expected = play(base, options);
  console.log(`== seeds ${seed} to ${seed + programs - 1}, ${steps} steps each: ${base.name}`);
  let isSame = true;
  for (const variant of others) {
    const difference = await compare(base, expected, variant, options);
    console.log(`${difference === null ? 'same' : 'DIFFERENT'}: ${variant.name}`);
    if (difference !== null) {
      isSame = false;
      const { only } = difference;
      console.error(
        `${variant.name}: seed ${difference.seed}, first at step ${difference.step}; ` +
          `${only.length} steps do it: ${only.join()}.`
      );
    }
  }
  return isSame;
}

function readOptions(given) {
  const options = { seed: 1, programs: 20, steps: 40, presets: [] };
  for (let i = 0; i < given.length; i += 2) {
    const [name, value = ''] = [given[i].replace(/^--/, ''), given[i + 1]];
    if (name === 'build') {
      options.presets = value.split(',');
      const wrong = options.presets.find((preset) => !(preset in folders));
      if (wrong !== undefined) {
        fail(`determinism: there is no build ${wrong}: give some of ${Object.keys(folders)}.`, 2);
      }
    } else if (['seed', 'programs', 'steps'].includes(name) && given[i].startsWith('--')) {
      options[name] = Number(value);
      if (!/^\d+$/.test(value) || options[name] > kMost || options[name] < 1) {
        fail(`determinism: ${given[i]} is ${value}: give a whole number from 1 to ${kMost}.`, 2);
      }
    } else {
      fail(`determinism: there is no option ${given[i]}: give --build, --seed, --programs.`, 2);
    }
  }
  return options;
}

module.exports = { checkDeterminism };

if (require.main === module) {
  const { presets, ...options } = readOptions(process.argv.slice(2));
  setup('build', ...new Set([].concat(...presets.map((preset) => needs[preset] || []))));
  for (const preset of new Set(['release', ...presets])) {
    const hosts = preset === 'arm64' ? platforms[arm64] : [];
    const modules = ['nq_logic', 'nq_logic_matrixflow'];
    const targets = modules.map((module) => hosts.map((name) => targetOf(module, name)));
    if (preset === 'wasm') {
      buildWasm();
    } else {
      build(preset, everything, hosts.length > 0 ? [].concat(...targets) : modules, hosts);
    }
  }
  checkDeterminism(options).then(
    (isSame) => isSame || fail('determinism: differences above.'),
    (error) => fail(error.message)
  );
}
