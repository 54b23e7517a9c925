'use strict';
// Runs before `npm pack` (as its prepack script): downloads the hosts, builds the release module for each, on x86-64 and
// on arm64, places it, stripped, where an installed package looks for it, places the module in WebAssembly and the bundles
// for browsers, and writes the bill of materials. With --no-build it uses the modules of the last build.
const { setup } = require('./setup');
const { buildPackedModules, buildWasm, packedModules, wasmModulePath } = require('./lib/build');
const { checkWasmModule, placeBrowserFiles, placePrebuilds, prebuildOf } = require('./lib/package');
const { fail } = require('./lib/run');
const { writeSbom } = require('./lib/sbom');

const options = process.argv.slice(2);
const unknown = options.find((option) => option !== '--no-build');
if (unknown !== undefined) {
  fail(`unknown option ${unknown}; known: --no-build.`, 2);
}
if (options.length === 0 && process.env.NQ_PACK_BUILD !== '0') {
  setup('build', 'cross', 'wasm');
  buildPackedModules();
  buildWasm();
}
try {
  // Standard output is npm's: programs parse `npm pack --json`.
  const modules = packedModules();
  checkWasmModule(wasmModulePath);
  console.error(`nq_logic: packed modules: ${placePrebuilds(modules).join(' ')}`);
  const forBrowsers = placeBrowserFiles(wasmModulePath);
  const names = forBrowsers.map(({ name, on }) => prebuildOf(name, on));
  console.error(`nq_logic: packed for browsers: ${names.join(' ')}`);
  console.error(
    `nq_logic: bill of materials: ${writeSbom([...modules, ...forBrowsers], prebuildOf)}`
  );
} catch (error) {
  fail(error.message);
}
