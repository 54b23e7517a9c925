'use strict';
// Runs before `npm pack` (as its prepack script): fetches the hosts, builds the release module for each, on x86-64 and
// on arm64, and puts it, stripped, where an installed package looks for it. With --no-build the modules of the last
// build are taken.
const { setup } = require('./setup');
const { buildPackedModules, packedModules } = require('./lib/build');
const { placePrebuilds } = require('./lib/package');
const { fail } = require('./lib/run');

const options = process.argv.slice(2);
const unknown = options.find((option) => option !== '--no-build');
if (unknown !== undefined) {
  fail(`unknown option ${unknown}; there is: --no-build.`, 2);
}
if (options.length === 0 && process.env.NQ_PACK_BUILD !== '0') {
  setup('build', 'cross');
  buildPackedModules();
}
try {
  // Standard output belongs to npm: `npm pack --json` is read by programs.
  console.error(`nq_logic: packed modules: ${placePrebuilds(packedModules()).join(' ')}`);
} catch (error) {
  fail(error.message);
}
