'use strict';
// npm run demo: runs the demo with the release module, on the Node that runs this if it is a host, else on Node 12.
// `--host NAME` selects another, and `--target wasm` the engine in WebAssembly. Other arguments after -- are passed to the demo.
const path = require('path');
const { setup } = require('./setup');
const { buildModule, buildWasm } = require('./lib/build');
const { fetchHost, hostBinary, takeHostOption } = require('./lib/hosts');
const { root, status } = require('./lib/run');
const { takeTargetOption, wasmEnvironment, wasmHost } = require('./lib/target');

const { rest: given, isWasm } = takeTargetOption(process.argv.slice(2));
const { rest, named } = takeHostOption(given);

/** Builds for the target: the host's binary, and the environment by which the demo finds the engine. */
function prepare() {
  setup('build', ...(isWasm ? ['wasm'] : []));
  if (!isWasm) {
    const { program, modulePath } = buildModule(named);
    return { program, environment: { NQ_MODULE: modulePath } };
  }
  const name = named === null ? wasmHost : named;
  fetchHost(name);
  buildWasm();
  return { program: hostBinary(name), environment: wasmEnvironment() };
}

const { program, environment } = prepare();
// The demo reports errors in one line; its exit code is the exit code of this command.
process.exitCode = status(program, [path.join(root, 'demo', 'main.js'), ...rest], environment);
