'use strict';
// Runs ahead of `npm pack` (as its prepack script): builds the release module and puts it, stripped, where an
// installed package looks for it. With --no-build the module of the last build is taken.
const { setup } = require('./setup');
const { build, modulePath } = require('./lib/build');
const { placePrebuild } = require('./lib/package');
const { fail } = require('./lib/run');

const options = process.argv.slice(2);
const unknown = options.find((option) => option !== '--no-build');
if (unknown !== undefined) {
  fail(`unknown option ${unknown}; there is: --no-build.`, 2);
}
if (options.length === 0 && process.env.NQ_PACK_BUILD !== '0') {
  setup('build');
  build('release', {}, ['nq_logic']);
}
try {
  // Standard output belongs to npm: `npm pack --json` is read by programs.
  console.error(`nq_logic: packed module: ${placePrebuild(modulePath)}`);
} catch (error) {
  fail(error.message);
}
