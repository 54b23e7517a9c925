'use strict';
// npm test: all native and script suites, on the release build and under the address and
// undefined-behaviour sanitizers. Arguments after -- go to ctest (`npm test -- -R WorkerPool`).
const { setup } = require('./setup');
const { fail } = require('./lib/run');
const { build, everything, test } = require('./lib/build');

const presets = ['release', 'asan'];

setup('build', 'test');
for (const preset of presets) {
  build(preset, Object.assign({ NQ_BUILD_TESTS: 'ON' }, everything));
}
const failed = presets.filter((preset) => !test(preset, process.argv.slice(2)));
if (failed.length > 0) {
  fail(`tests failed on: ${failed.join(', ')}.`);
}
