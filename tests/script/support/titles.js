'use strict';
// `titles.js FILE...`: prints the full titles of all tests of suites as JSON, by path from tests/script, without running
// them. In a process of its own: loading a suite may create engines.
const path = require('path');
const Mocha = require('mocha');

const scripts = path.resolve(__dirname, '..');
const mocha = new Mocha();
const titles = {};
const collect = (suite) => {
  for (const test of suite.tests) {
    const name = path.relative(scripts, test.file).replace(/\.test\.js$/, '');
    (titles[name] = titles[name] || []).push(test.fullTitle());
  }
  suite.suites.forEach(collect);
};

process.argv.slice(2).forEach((file) => mocha.addFile(path.resolve(file)));
mocha.loadFiles();
collect(mocha.suite);
process.stdout.write(JSON.stringify(titles));
