'use strict';
// Runs before `npm pack` (as its prepack script): downloads the hosts, builds the release module for each, on x86-64 and
// on arm64, and places it, stripped, where an installed package looks for it. With --no-build it uses the modules of the
// last build.
const { setup } = require('./setup');
const { buildPackedModules, packedModules } = require('./lib/build');
const { placePrebuilds } = require('./lib/package');
const { fail } = require('./lib/run');

const options = process.argv.slice(2);
const unknown = options.find((option) => option !== '--no-build');
if (unknown !== undefined) {
  fail(`unknown option ${unknown}; known: --no-build.`, 2);
}
if (options.length === 0 && process.env.NQ_PACK_BUILD !== '0') {
  setup('build', 'cross');
  buildPackedModules();
}
try {
  // Standard output is npm's: programs parse `npm pack --json`.
  console.error(`nq_logic: packed modules: ${placePrebuilds(packedModules()).join(' ')}`);
} catch (error) {
  fail(error.message);
}
