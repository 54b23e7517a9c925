'use strict';
// npm run soak: makes and drops a million objects of each kind, natively and in WebAssembly, starts and ends Workers with
// engines, and lets a million characters come and go. Resident memory, external memory and handles must not grow.
// --objects N instead of a million, --host NAME on which host.
const { setup } = require('./setup');
const { buildWasm } = require('./lib/build');
const { fetchHost, hostBinary } = require('./lib/hosts');
const { fail } = require('./lib/run');
const { prepare, runProgram, takeOptions } = require('./lib/long-runs');
const { wasmEnvironment, wasmHost } = require('./lib/target');

/** Objects for each Worker with an engine, whose threads and memory stay. */
const kObjectsPerEngine = 5000;

const { named, value: objects } = takeOptions(process.argv.slice(2), '--objects', 1000000);
setup('build', 'wasm');
const run = prepare(named);
fetchHost(wasmHost);
buildWasm();

const passed = [
  run('soak-objects.js', String(objects)),
  run('soak-engines.js', String(Math.ceil(objects / kObjectsPerEngine))),
  run('soak-scene.js', String(objects)),
  runProgram(hostBinary(wasmHost), wasmEnvironment(), 'soak-objects.js', [String(objects)]),
];
if (passed.includes(false)) {
  fail('something grows, or ended: see above.');
}
