'use strict';
// npm run bench: native benchmarks, then JavaScript benchmarks on Node 12, or on another host by `--host NAME`. Other
// arguments that begin with --benchmark_ go to the native ones, the rest to bench/script/run.js; --smoke runs
// everything once on a tiny budget. `--hosts NAME,NAME...` instead runs JavaScript benchmarks interleaved on several
// hosts, and prints one table. --help lists all options.
const fs = require('fs');
const path = require('path');
const { setup } = require('./setup');
const { compareHosts } = require('../bench/script/lib/hosts');
const { usage: scriptUsage } = require('../bench/script/lib/options');
const { root, fail, run } = require('./lib/run');
const { build, buildWasm, builtFile, everything, folders, targetOf } = require('./lib/build');
const {
  hostBinary,
  reference,
  takeHostOption,
  takeHostsOption,
  takeOption,
} = require('./lib/hosts');
const { takeTargetOption, wasmEnvironment, wasmHost } = require('./lib/target');

/** What `--help` prints. */
const usage = `npm run bench -- [OPTION]...
  --host NAME                on another host
  --hosts NAME,NAME...       the largest cases of JavaScript benchmarks on several hosts, in one table
  --target wasm              the same for the native module and the engine in WebAssembly, on one core of Node 24 or
                             --host NAME
  --smoke                    runs everything once on a tiny budget
  --peer FILE[,FILE...]      native benchmarks of another animation runtime: the sources of an adapter for
                             bench/native/AnimationPeer.h, libraries, and folders of headers
  --benchmark_...            options of the native benchmarks
${scriptUsage}`;

/** The addons that JavaScript benchmarks load. */
const addons = ['nq_logic', 'nq_logic_matrixflow'];

/** The files that `--peer` names, as CMake takes them. */
function readPeer(value) {
  const files = value === null ? [] : value.split(',').map((file) => path.resolve(file));
  const missing = files.find((file) => !fs.existsSync(file));
  if (missing !== undefined) {
    const cure = 'give the files of an adapter, see --help';
    fail(`--peer names ${path.relative('', missing)}, which does not exist: ${cure}.`, 2);
  }
  return files.join(';');
}

/** Builds the targets for benchmarks on hosts. */
function buildFor(hosts, targets) {
  const ofHosts = hosts.map((name) => addons.map((addon) => targetOf(addon, name)));
  const options = Object.assign({ NQ_BUILD_BENCH: 'ON', NQ_BENCH_PEER: peer }, everything);
  build('release', options, targets.concat(...ofHosts), hosts);
}

/** Environment by which benchmarks on a host find its modules. */
function environmentOf(name) {
  return {
    NQ_MODULE: builtFile('nq_logic.node', name),
    NQ_MATRIXFLOW_MODULE: builtFile('nq_logic_matrixflow.node', name),
  };
}

function benchOne(name, nativeArguments, scriptArguments) {
  buildFor([name], ['nq_bench']);
  run('native benchmarks', path.join(root, folders.release, 'nq_bench'), nativeArguments);
  const script = path.join(root, 'bench', 'script', 'run.js');
  const step = `JavaScript benchmarks on Node ${name}`;
  run(step, hostBinary(name), [script, ...scriptArguments], environmentOf(name));
}

/** Both targets side by side on one host and, since the engine in WebAssembly has no threads, on one core. */
function benchTargets(name, scriptArguments) {
  buildFor([name], []);
  buildWasm();
  const program = hostBinary(name);
  const native = { name: 'native', program, environment: environmentOf(name) };
  const wasm = { name: 'wasm', program, environment: wasmEnvironment() };
  const cores = scriptArguments.includes('--cores') ? [] : ['--cores', '1'];
  compare([native, wasm], [...cores, ...scriptArguments]);
}

function benchSeveral(names, scriptArguments) {
  buildFor(names, []);
  const hosts = names.map((name) => ({
    name,
    program: hostBinary(name),
    environment: environmentOf(name),
  }));
  compare(hosts, scriptArguments);
}

function compare(hosts, scriptArguments) {
  try {
    compareHosts(hosts, scriptArguments);
  } catch (error) {
    fail(error.message);
  }
}

if (process.argv.includes('--help')) {
  console.log(usage);
  process.exit(0);
}
const { rest: withPeer, isWasm } = takeTargetOption(process.argv.slice(2));
const { rest: withHosts, value: peerFiles } = takeOption(withPeer, '--peer');
const peer = readPeer(peerFiles);
const { rest: given, named: several } = takeHostsOption(withHosts);
const { rest, named } = takeHostOption(given);
const smoke = rest.includes('--smoke');
const isNative = (argument) => argument.startsWith('--benchmark_');
const nativeArguments = smoke ? ['--benchmark_min_time=0.001'] : [];
const scriptArguments = smoke ? ['--budget', 'tiny'] : [];
for (const argument of rest.filter((one) => one !== '--smoke')) {
  (isNative(argument) ? nativeArguments : scriptArguments).push(argument);
}
if (several !== null && (named !== null || peer !== '' || rest.some(isNative))) {
  const other = named !== null ? '--host' : peer !== '' ? '--peer' : rest.find(isNative);
  fail(`--hosts and ${other} don't go together: leave one of them out.`, 2);
}

if (several !== null && isWasm) {
  fail("--hosts and --target don't go together: leave one of them out.", 2);
}
setup('build', 'bench', ...(isWasm ? ['wasm'] : []));
if (isWasm) {
  benchTargets(named === null ? wasmHost : named, scriptArguments);
} else if (several === null) {
  benchOne(named === null ? reference : named, nativeArguments, scriptArguments);
} else {
  benchSeveral(several, scriptArguments);
}
