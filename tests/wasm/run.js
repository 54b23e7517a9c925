'use strict';
// Runs the native suites as WebAssembly: node run.js nq_tests.wasm [GoogleTest options]. Tests of left-out.txt are not
// run, unless a filter is given.
const fs = require('fs');
const path = require('path');
const { WASI } = require('wasi');

const words = process.argv.slice(2);
const isOption = (word) => word.startsWith('--');
const file = words.find((word) => !isOption(word));
const options = words.filter(isOption);
const leftOut = fs
  .readFileSync(path.join(__dirname, 'left-out.txt'), 'utf8')
  .split('\n')
  .filter((line) => line !== '' && !line.startsWith('#'));
if (!options.some((option) => option.startsWith('--gtest_filter'))) {
  options.unshift(`--gtest_filter=-${leftOut.join(':')}`);
}
const wasi = new WASI({
  version: 'preview1',
  args: [file, ...options],
  env: {},
  returnOnExit: true,
});
const compiled = new WebAssembly.Module(fs.readFileSync(file));
const instance = new WebAssembly.Instance(compiled, wasi.getImportObject());
process.exitCode = wasi.start(instance);
