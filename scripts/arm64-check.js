'use strict';
// npm run arm64-check: builds the core for arm64 Linux, and runs the native suites under qemu's user mode.
const fs = require('fs');
const path = require('path');
const { build, folders } = require('./lib/build');
const { root, eachAtOnce, fail, jobs, quietStatus } = require('./lib/run');
const { setup } = require('./setup');

/** Native tests that can't run under qemu's user mode: it has no system call filters. */
const notUnderQemu = ['WorkerPoolPinningDeathTest.*'];

/**
 * Writes a script that runs the native suites under qemu. Death tests that start the program anew do so by the name
 * that it was called by, which is that of the script.
 * @returns {string} its path
 */
function writeRunner() {
  const program = path.join(root, folders.arm64, 'nq_tests');
  const runner = `${program}.sh`;
  const command = `exec qemu-aarch64 -L /usr/aarch64-linux-gnu -0 "$0" '${program}' "$@"`;
  fs.writeFileSync(runner, `#!/bin/sh\n${command}\n`, { mode: 0o755 });
  return runner;
}

/**
 * Runs the native suites, a part of them on each CPU.
 * @returns {Promise<boolean>} whether all passed
 */
function runNativeSuites() {
  const runner = writeRunner();
  const args = ['--gtest_brief=1', `--gtest_filter=-${notUnderQemu.join(':')}`];
  const parts = Array.from({ length: Number(jobs) }, (_, i) => i);
  return eachAtOnce(parts, (part) =>
    quietStatus('env', [
      `GTEST_TOTAL_SHARDS=${parts.length}`,
      `GTEST_SHARD_INDEX=${part}`,
      runner,
      ...args,
    ])
  );
}

async function main() {
  setup('build', 'arm64');
  build('arm64', {}, ['nq_tests']);
  console.log('== test arm64');
  const start = Date.now();
  if (!(await runNativeSuites())) {
    fail('native suites failed on arm64 (again, alone: build/Arm64/nq_tests.sh --gtest_filter=…).');
  }
  console.log(`== arm64: native suites passed in ${Math.round((Date.now() - start) / 1000)} s`);
}

main().catch((error) => fail(error.stack));
