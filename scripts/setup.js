'use strict';
// Installs the requirements of a script: missing Debian packages, and the npm packages of the lock file.
const fs = require('fs');
const path = require('path');
const { root, fail, npmCommand, output, run, which } = require('./lib/run');

const program = (name) => () => which(name) !== null;
const header = (name) => () =>
  ['/usr/include', '/usr/local/include'].some((folder) => fs.existsSync(path.join(folder, name)));

const file = (name) => () => fs.existsSync(name);

/** Whether clang's fuzzer library is installed. */
function hasFuzzer() {
  const folder = output('clang++', ['-print-resource-dir']);
  const file = 'lib/linux/libclang_rt.fuzzer-x86_64.a';
  return folder !== null && fs.existsSync(path.join(folder.trim(), file));
}

// Debian packages, each with a test whether its content is installed, from any source.
const packages = {
  build: [
    ['g++', program('g++')],
    ['cmake', program('cmake')],
    ['ninja-build', program('ninja')],
  ],
  test: [
    ['libgtest-dev', header('gtest/gtest.h')],
    ['libgmock-dev', header('gmock/gmock.h')],
  ],
  coverage: [['gcovr', program('gcovr')]],
  bench: [['libbenchmark-dev', header('benchmark/benchmark.h')]],
  check: [
    ['clang', program('clang++')],
    ['clang-tidy', program('clang-tidy')],
    ['clang-format', program('clang-format')],
    ['libclang-rt-dev', hasFuzzer],
  ],
  // Cross-compiling for arm64, and running what it gives.
  cross: [
    ['g++-aarch64-linux-gnu', program('aarch64-linux-gnu-g++')],
    ['libsimde-dev', header('simde/x86/avx2.h')],
  ],
  emulator: [
    ['qemu-user', program('qemu-aarch64')],
    ['googletest', () => fs.existsSync('/usr/src/googletest/CMakeLists.txt')],
  ],
  browser: [['chromium', program('chromium')]],
  firefox: [['firefox-esr', program('firefox-esr')]],
  // Compiling to WebAssembly; the suites are compiled, too.
  wasm: [
    ['clang-19', program('clang++-19')],
    ['lld-19', program('wasm-ld-19')],
    ['libc++-19-dev-wasm32', file('/usr/lib/llvm-19/lib/wasm32-wasi/libc++.a')],
    ['libc++abi-19-dev-wasm32', file('/usr/lib/llvm-19/lib/wasm32-wasi/libc++abi.a')],
    [
      'libclang-rt-19-dev-wasm32',
      file('/usr/lib/llvm-19/lib/clang/19/lib/wasi/libclang_rt.builtins-wasm32.a'),
    ],
    ['wasi-libc', file('/usr/include/wasm32-wasi/stdlib.h')],
    ['libsimde-dev', header('simde/x86/avx2.h')],
    ['googletest', file('/usr/src/googletest/CMakeLists.txt')],
  ],
};

function installPackages(kinds) {
  const entries = kinds.reduce((all, kind) => all.concat(packages[kind]), []);
  const missing = () => entries.filter(([, isThere]) => !isThere()).map(([name]) => name);
  const names = missing();
  if (names.length === 0) {
    return;
  }
  const install = ['install', '-y', '--no-install-recommends', ...names];
  const isRoot = process.getuid() === 0;
  const canInstall =
    which('apt-get') !== null &&
    (isRoot || (which('sudo') && output('sudo', ['-n', 'true']) !== null));
  if (!canInstall) {
    const sudo = isRoot ? '' : 'sudo ';
    fail(`missing packages. Run: ${sudo}apt-get update && ${sudo}apt-get ${install.join(' ')}`, 2);
  }
  const environment = { DEBIAN_FRONTEND: 'noninteractive' };
  const apt = (step, args) =>
    isRoot
      ? run(step, 'apt-get', args, environment)
      : run(step, 'sudo', ['-n', 'DEBIAN_FRONTEND=noninteractive', 'apt-get', ...args]);
  apt('update the package list', ['update', '-q']);
  apt(`install ${names.join(' ')}`, install);
  if (missing().length > 0) {
    fail(`still missing after the installation: ${missing().join(' ')}.`, 2);
  }
}

/**
 * Installs the npm packages of a lock file, unless they are there.
 * @param {string} [folder] of the lock file, path from the root
 */
function installModules(folder = '.') {
  const time = (file) => {
    try {
      return fs.statSync(path.join(root, folder, file)).mtimeMs;
    } catch (error) {
      return -1;
    }
  };
  const installed = time('node_modules/.package-lock.json');
  if (installed >= 0 && installed >= time('package-lock.json')) {
    return;
  }
  const [command, ...first] = npmCommand();
  run(folder === '.' ? 'npm ci' : `npm ci of ${folder}`, command, [
    ...first,
    'ci',
    ...(folder === '.' ? [] : [`--prefix=${folder}`]),
    '--include=dev',
    '--ignore-scripts',
    '--no-audit',
    '--no-fund',
    '--engine-strict=false',
    '--loglevel=error',
  ]);
}

/**
 * Installs the requirements of the given kinds of work.
 * @param {...string} kinds any of build, test, coverage, bench, check, cross, emulator, browser, firefox, wasm
 */
function setup(...kinds) {
  if (process.platform !== 'linux' || process.arch !== 'x64') {
    fail(`only Linux on x86-64 is supported, not ${process.platform} on ${process.arch}.`, 2);
  }
  installPackages(kinds);
  installModules();
}

module.exports = { installModules, setup };

if (require.main === module) {
  const kinds = process.argv.slice(2);
  const unknown = kinds.filter((kind) => !(kind in packages));
  if (unknown.length > 0) {
    fail(`unknown kind ${unknown[0]}; known: ${Object.keys(packages).join(', ')}.`, 2);
  }
  setup(...(kinds.length > 0 ? kinds : Object.keys(packages)));
}
