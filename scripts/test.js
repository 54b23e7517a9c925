'use strict';
// npm test: all native and script suites, on the release build and under the address and
// undefined-behaviour sanitizers. Arguments after -- go to ctest (`npm test -- -R WorkerPool`).
const { setup } = require('./setup');
const { fail } = require('./lib/run');
const { build, everything, test } = require('./lib/build');

const presets = ['release', 'asan'];

setup('build', 'test');
const failed = [];
// Each is tested as soon as it is built: the release suites have run minutes before the sanitizers' build is
// there. That one is built whether or not they passed, and the summary is at the end.
for (const preset of presets) {
  build(preset, Object.assign({ NQ_BUILD_TESTS: 'ON' }, everything));
  if (!test(preset, process.argv.slice(2))) {
    failed.push(preset);
  }
}
if (failed.length > 0) {
  fail(`tests failed on: ${failed.join(', ')}.`);
}
console.log(`== tests passed on: ${presets.join(', ')}`);
