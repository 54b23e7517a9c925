'use strict';
// Configures, builds and tests a preset, for hosts and the modules that they load.
const fs = require('fs');
const path = require('path');
const {
  abis,
  arm64,
  chooseHost,
  fetchHost,
  hostBinary,
  hostFolder,
  platform,
  platforms,
  reference,
} = require('./hosts');
const { root, jobs, fail, output, run, status } = require('./run');

/** Build folder of each preset of CMakePresets.json. */
const folders = {
  release: 'build/Release',
  debug: 'build/Debug',
  asan: 'build/Asan',
  tsan: 'build/Tsan',
  coverage: 'build/Coverage',
  'coverage-portable': 'build/CoveragePortable',
  clang: 'build/Clang',
  portable: 'build/Portable',
  arm64: 'build/Arm64',
  wasm: 'build/Wasm',
};

/** Platform that a preset builds for. */
const platformOf = (preset) => (preset === 'arm64' ? arm64 : platform);

/** Folder of the reference host, Node 12. */
const nodeDir = hostFolder(reference);

/** Its binary. */
const host = hostBinary(reference);

/** Output folder of a build for a host, and suffix of its target names. */
const outputOf = (name) => (name === reference ? '' : `abi${abis[name]}`);
const suffixOf = (name) => (name === reference ? '' : `_abi${abis[name]}`);

/**
 * Path of an output file of a preset for a host.
 * @param {string} file such as nq_logic.node
 * @param {string} [name] of the host
 * @param {string} [preset]
 */
function builtFile(file, name = reference, preset = 'release') {
  return path.join(root, folders[preset], outputOf(name), file);
}

/** Sanitizer runtimes by preset. */
const sanitizers = { asan: 'libasan.so', tsan: 'libtsan.so' };

/**
 * Environment of a host that loads a preset's modules: the host is built without sanitizers, so that their runtime has
 * to be loaded first. Empty for presets without.
 * @param {string} preset
 * @returns {Object<string, string>}
 */
function sanitizerEnvironment(preset) {
  if (!(preset in sanitizers)) {
    return {};
  }
  return {
    LD_PRELOAD: output('g++', [`-print-file-name=${sanitizers[preset]}`]).trim(),
    ASAN_OPTIONS: 'detect_leaks=0:allocator_may_return_null=1',
    UBSAN_OPTIONS: 'print_stacktrace=1:halt_on_error=1',
    TSAN_OPTIONS:
      'ignore_noninstrumented_modules=1:detect_deadlocks=0:atexit_sleep_ms=0:halt_on_error=1',
  };
}

/** Name of a target for a host. */
function targetOf(target, name) {
  return `${target}${suffixOf(name)}`;
}

/** The module of the release build for the reference host. */
const modulePath = builtFile('nq_logic.node');

/** The module in WebAssembly. */
const wasmModulePath = path.join(root, folders.wasm, 'nq_logic.wasm');

/** The module with command buffers for JavaScript, of the release build. */
const matrixFlowModulePath = builtFile('nq_logic_matrixflow.node');

/** Cache variables of builds for tests and benchmarks, which also cover options that are off by default. */
const everything = { NQ_SCRIPT_MATRIXFLOW: 'ON' };

/** Hosts other than the reference that a build folder is configured for and that still exist. */
function configuredHosts(preset) {
  const cache = path.join(root, folders[preset], 'CMakeCache.txt');
  const text = fs.existsSync(cache) ? fs.readFileSync(cache, 'utf8') : '';
  const [, value = ''] = /^NQ_HOST_DIRS:STRING=(.*)$/m.exec(text) || [];
  const dirs = value.split(';');
  return Object.keys(abis).filter(
    (name) =>
      dirs.includes(hostFolder(name, platformOf(preset))) &&
      fs.existsSync(hostFolder(name, platformOf(preset)))
  );
}

/**
 * Configures a preset and builds it, for the reference host if the platform has it, for the hosts passed, and for
 * those that the build folder was configured for before, so that no file of an earlier build becomes stale.
 * @param {string} preset
 * @param {Object<string, string>} [options] cache variables
 * @param {string[]} [targets] default: all
 * @param {string[]} [hosts]
 */
function build(preset, options = {}, targets = [], hosts = []) {
  const on = platformOf(preset);
  try {
    hosts.forEach((name) => fetchHost(name, on));
  } catch (error) {
    fail(error.message);
  }
  const wanted = new Set([...configuredHosts(preset), ...hosts]);
  wanted.delete(reference);
  const dirs = Array.from(wanted, (name) => hostFolder(name, on)).sort();
  const definitions = [`-DNQ_HOST_DIRS=${dirs.join(';')}`];
  if (on === platform) {
    definitions.push(`-DNQ_NODE_DIR=${nodeDir}`);
  }
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

/** Presets of the modules in the package, by platform. */
const packedPresets = { [platform]: 'release', [arm64]: 'arm64' };

/**
 * Modules for the package, as built.
 * @returns {import('./package').PackedModule[]}
 */
function packedModules() {
  return [].concat(
    ...Object.keys(platforms).map((on) =>
      platforms[on].map((name) => ({
        file: builtFile('nq_logic.node', name, packedPresets[on]),
        name,
        on,
      }))
    )
  );
}

/** Builds the modules for the package. */
function buildPackedModules() {
  for (const on of Object.keys(platforms)) {
    const targets = platforms[on].map((name) => targetOf('nq_logic', name));
    build(packedPresets[on], {}, targets, platforms[on]);
  }
}

/**
 * Builds the module in WebAssembly.
 * @param {string[]} [options] further arguments of the configuration
 * @param {string[]} [targets] default: the module
 */
function buildWasm(options = [], targets = ['nq_logic_wasm']) {
  run('configure wasm', 'cmake', ['--preset', 'wasm', ...options]);
  const args = ['--build', folders.wasm, '--parallel', jobs, '--target', ...targets];
  run('build wasm', 'cmake', args);
}

/**
 * Builds the release module for the named host, or for the default one.
 * @param {?string} named
 * @returns {{program: string, modulePath: string}} the host's binary, and the module that it loads
 */
function buildModule(named) {
  const { name, program } = chooseHost(named);
  build('release', {}, [targetOf('nq_logic', name)], [name]);
  return { program, modulePath: builtFile('nq_logic.node', name) };
}

/** Script suites that run tools or read sources: their results don't depend on the build, so they run on x86-64 only. */
const toolSuites = '[.]tools[.]';

/**
 * Runs the suites of a built preset: native ones and those on the reference host, or those on another host.
 * @param {string} preset
 * @param {string[]} [args] further arguments of ctest
 * @param {string} [name] of the host
 * @returns {boolean} whether there were tests and all passed
 */
function test(preset, args = [], name = reference) {
  const isReference = name === reference;
  console.log(`== test ${preset}${isReference ? '' : ` on Node ${name}`}`);
  const common = ['--test-dir', folders[preset], '--output-on-failure', '--no-tests=error'];
  common.push(
    ...(isReference ? ['--label-exclude', '^abi'] : ['--label-regex', `^${outputOf(name)}$`])
  );
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
  buildModule,
  buildPackedModules,
  buildWasm,
  builtFile,
  packedModules,
  sanitizerEnvironment,
  targetOf,
  test,
  toolSuites,
  wasmModulePath,
};
