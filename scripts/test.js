'use strict';
// npm test: runs all native and script suites on the release build, and under the address and undefined-behaviour
// sanitizers all but those of tools, which run little native code. Arguments after -- are passed to ctest instead
// (`npm test -- -R WorkerPool`).
const { setup } = require('./setup');
const { fail } = require('./lib/run');
const { build, everything, test, toolSuites } = require('./lib/build');

/** Arguments of ctest by preset. */
const presets = { release: [], asan: ['-E', toolSuites] };

setup('build', 'test');
const given = process.argv.slice(2);
const failed = [];
// Each build is tested as soon as it is complete: the release suites finish minutes before the build with sanitizers,
// which is built even if they fail. The summary is at the end.
for (const preset of Object.keys(presets)) {
  build(preset, Object.assign({ NQ_BUILD_TESTS: 'ON' }, everything));
  if (!test(preset, given.length > 0 ? given : presets[preset])) {
    failed.push(preset);
  }
}
if (failed.length > 0) {
  fail(`tests failed on: ${failed.join(', ')}.`);
}
console.log(`== tests passed on: ${Object.keys(presets).join(', ')}`);
