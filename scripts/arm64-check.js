'use strict';
// npm run arm64-check: cross-compiles for arm64 Linux, and runs the native suites under qemu's user mode, and the
// script suites on each available host, or on the named ones (`npm run arm64-check -- 24`). Other arguments go to
// ctest, which runs the script suites, from the first one that begins with a dash.
const path = require('path');
const { build, everything, folders, targetOf, test, toolSuites } = require('./lib/build');
const { arm64, platforms } = require('./lib/hosts');
const { root, eachAtOnce, fail, jobs, quietStatus } = require('./lib/run');
const { setup } = require('./setup');

/** Native tests that can't run under qemu's user mode, which has no system call filters. */
const notUnderQemu = ['WorkerPoolPinningDeathTest.*'];

/** Script suites that can't run there: they limit memory, and the emulator uses part of it. */
const notEmulated = '[.]out-of-memory$';

/**
 * Runs the native suites, one shard per CPU.
 * @returns {Promise<boolean>} whether all passed
 */
function checkNative() {
  build('arm64', { NQ_BUILD_TESTS: 'ON' }, ['nq_tests']);
  console.log('== test arm64');
  const args = ['--gtest_brief=1', `--gtest_filter=-${notUnderQemu.join(':')}`];
  const parts = Array.from({ length: Number(jobs) }, (_, i) => i);
  return eachAtOnce(parts, (part) =>
    quietStatus('env', [
      `GTEST_TOTAL_SHARDS=${parts.length}`,
      `GTEST_SHARD_INDEX=${part}`,
      path.join(root, folders.arm64, 'nq_tests.sh'),
      ...args,
    ])
  );
}

/**
 * Runs script suites on a host.
 * @param {string} name of the host
 * @param {string[]} [args] further arguments of ctest
 * @returns {boolean} whether all passed
 */
function checkScripts(name, args = []) {
  const options = Object.assign({ NQ_BUILD_TESTS: 'ON' }, everything);
  const addons = ['nq_logic', 'nq_logic_matrixflow', 'nq_test_addon'];
  build(
    'arm64',
    options,
    addons.map((addon) => targetOf(addon, name)),
    [name]
  );
  return test('arm64', ['-E', `${toolSuites}|${notEmulated}`, ...args], name);
}

async function main() {
  const given = process.argv.slice(2);
  const at = given.findIndex((one) => one.startsWith('-'));
  const named = at === -1 ? given : given.slice(0, at);
  const names = platforms[arm64];
  const unknown = named.find((name) => !names.includes(name));
  if (unknown !== undefined) {
    fail(`there is no host '${unknown}' for arm64; there are: ${names.join(', ')}.`, 2);
  }
  setup('build', 'test', 'cross', 'emulator');
  const failed = [];
  if (named.length === 0 && !(await checkNative())) {
    failed.push('native suites (again: build/Arm64/nq_tests.sh --gtest_filter=…)');
  }
  for (const name of named.length > 0 ? named : names) {
    if (!checkScripts(name, at === -1 ? [] : given.slice(at))) {
      failed.push(`script suites on Node ${name}`);
    }
  }
  if (failed.length > 0) {
    fail(`failed on arm64: ${failed.join(', ')}.`);
  }
}

module.exports = { checkScripts };

if (require.main === module) {
  main().catch((error) => fail(error.stack));
}
