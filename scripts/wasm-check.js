'use strict';
// The check wasm: builds the engine in WebAssembly, and runs on it, on Node 24, the native suites, its own suites, script
// suites and the examples, and pages in a headless browser. A program of the native module runs on it by NQ_MODULE.
const fs = require('fs');
const path = require('path');
const zlib = require('zlib');
const {
  build,
  buildWasm,
  builtFile,
  everything,
  folders,
  targetOf,
  wasmModulePath: moduleFile,
} = require('./lib/build');
const { fetchHost, hostBinary } = require('./lib/hosts');
const { eachAtOnce, fail, output, quietStatus, root } = require('./lib/run');
const { wasmEnvironment, wasmHost } = require('./lib/target');

/** Bytes of the module that pages download, compressed. */
const kMostBytes = 80 * 1000;

/** Script suites that reach engines through the library, and run on both targets. */
const suites = [
  'engine/animation-against-three',
  'engine/controllers-against-three',
  'engine/culling-against-three',
  'engine/frame',
  'engine/local-matrices-against-gl-matrix',
  'engine/world-matrices-against-three',
  'lib/checked',
  'lib/checked-frame',
  'lib/checked-hints',
  'lib/clip',
  'lib/commands',
  'lib/scene/arguments',
  'lib/scene/characters',
  'lib/scene/edges',
  'lib/scene/large',
  'lib/scene/layers',
  'lib/scene/models',
  'lib/scene/program',
  'lib/scene/scene',
  'lib/scene/soak',
  'lib/scene/three',
  'lib/scene/trace',
];

/** Settings of programs that run on the engine in WebAssembly, and of suites that compare it with the native one. */
function environment() {
  const native = { NQ_NATIVE_MATRIXFLOW: builtFile('nq_logic_matrixflow.node', wasmHost) };
  return Object.assign(wasmEnvironment(), native);
}

/** Whether the compressed module is small enough. */
function isSmall() {
  const bytes = zlib.gzipSync(fs.readFileSync(moduleFile), { level: 9 }).length;
  console.log(`== ${moduleFile}: ${bytes} bytes compressed`);
  if (bytes > kMostBytes) {
    console.error(`nq_logic: the module takes ${bytes} bytes compressed, more than ${kMostBytes}.`);
  }
  return bytes <= kMostBytes;
}

/** Whether all examples print on this target what they print natively. */
function checkExamples(host) {
  const folder = path.join(root, 'examples');
  const names = fs.readdirSync(folder).filter((name) => /^\d\d-.*\.js$/.test(name));
  const wrong = names.filter((name) => {
    const expected = path.join(folder, 'expected', name.replace(/\.js$/, '.txt'));
    const printed = output(host, [path.join(folder, name)], environment());
    return printed !== fs.readFileSync(expected, 'utf8');
  });
  wrong.forEach((name) => console.error(`examples/${name} prints something else in WebAssembly.`));
  return names.length > 0 && wrong.length === 0;
}

/** Arguments of Node for a suite of tests/. */
function suiteOf(name) {
  const file = (relative) => path.join(root, relative);
  return ['--expose-gc', file('tests/run-suites.js'), file(`tests/${name}.test.js`)];
}

/** All suites of scripts but those of pages, which need a browser. */
const allSuites = [
  'wasm/bundle',
  'wasm/engine',
  'wasm/equality',
  ...suites.map((name) => `script/${name}`),
];

/** Builds the engine, and the native module for the same host. */
function buildBoth(options, targets) {
  buildWasm(options, targets);
  try {
    fetchHost(wasmHost);
  } catch (error) {
    fail(error.message);
  }
  const native = Object.assign({ NQ_BUILD_TESTS: 'ON' }, everything);
  build('release', native, [targetOf('nq_logic_matrixflow', wasmHost)], [wasmHost]);
}

/** Runs Node with each of some arguments, on all CPU cores. */
function runEach(list, extra) {
  const env = Object.assign(environment(), extra);
  return eachAtOnce(list, (args) => quietStatus(hostBinary(wasmHost), args, env));
}

/**
 * Builds, and runs all suites of scripts.
 * @param {Object<string, string>} extra variables of the environment
 * @returns {Promise<boolean>} whether all passed
 */
async function runWasmSuites(extra) {
  buildBoth();
  return runEach(allSuites.map(suiteOf), extra);
}

/**
 * Builds, and runs everything.
 * @returns {Promise<boolean>} whether all passed
 */
async function checkWasm() {
  buildBoth(['-DNQ_BUILD_TESTS=ON'], ['all']);
  const file = (name) => path.join(root, name);
  const ran = await runEach([
    [file('tests/wasm/run.js'), '--gtest_brief=1', file(`${folders.wasm}/nq_tests.wasm`)],
    ...[...allSuites, 'browser/wasm'].map(suiteOf),
  ]);
  return [ran, isSmall(), checkExamples(hostBinary(wasmHost))].every((passed) => passed);
}

module.exports = { checkWasm, runWasmSuites };
