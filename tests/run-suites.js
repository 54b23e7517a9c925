'use strict';
// Runs mocha suites by mocha's own interface, on every host: its command line does not start on the newest.
//   node --expose-gc tests/run-suites.js FILE...
// Under an emulator, the environment variable NQ_HOST names the command that starts the host: suites start further
// processes by it.
const path = require('path');
const Mocha = require('mocha');

if (process.env.NQ_HOST) {
  process.execPath = process.env.NQ_HOST;
}
const mocha = new Mocha({ timeout: process.env.NQ_BUILD_KIND === 'emulated' ? 0 : 120000 });
process.argv.slice(2).forEach((file) => mocha.addFile(path.resolve(file)));
const runner = mocha.run((failures) => {
  if (runner.total === 0) {
    console.error('nq_logic: no test was found: name files of tests.');
  }
  process.exitCode = failures > 0 || runner.total === 0 ? 1 : 0;
});
