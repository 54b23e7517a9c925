'use strict';
// Runs mocha suites by mocha's own interface, on every host: its command line does not start on the newest.
//   node --expose-gc tests/run-suites.js FILE...
const path = require('path');
const Mocha = require('mocha');

const mocha = new Mocha({ timeout: 120000 });
process.argv.slice(2).forEach((file) => mocha.addFile(path.resolve(file)));
const runner = mocha.run((failures) => {
  if (runner.total === 0) {
    console.error('nq_logic: no test was found: name files of tests.');
  }
  process.exitCode = failures > 0 || runner.total === 0 ? 1 : 0;
});
