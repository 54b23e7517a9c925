'use strict';
// npm run bench: native benchmarks, then script benchmarks on the host. Of the arguments after --,
// those that begin with --benchmark_ go to the native ones, the others to bench/script/run.js;
// --smoke runs everything once on a tiny budget.
const fs = require('fs');
const path = require('path');
const { setup } = require('./setup');
const { root, fail, run } = require('./lib/run');
const {
  build,
  everything,
  folders,
  host,
  matrixFlowModulePath,
  modulePath,
} = require('./lib/build');

const given = process.argv.slice(2);
const smoke = given.includes('--smoke');
const isNative = (argument) => argument.startsWith('--benchmark_');
const nativeArguments = smoke ? ['--benchmark_min_time=0.001'] : [];
const scriptArguments = smoke ? ['--budget', 'tiny'] : [];
for (const argument of given.filter((one) => one !== '--smoke')) {
  (isNative(argument) ? nativeArguments : scriptArguments).push(argument);
}

setup('build', 'bench');
build('release', Object.assign({ NQ_BUILD_BENCH: 'ON' }, everything), [
  'nq_bench',
  'nq_logic',
  'nq_logic_matrixflow',
]);

const native = path.join(root, folders.release, 'nq_bench');
const script = path.join(root, 'bench', 'script', 'run.js');
if (!fs.existsSync(native) && !fs.existsSync(script)) {
  fail('there are no benchmarks.');
}
if (fs.existsSync(native)) {
  run('native benchmarks', native, nativeArguments);
}
if (fs.existsSync(script)) {
  run('script benchmarks', host, [script, ...scriptArguments], {
    NQ_MODULE: modulePath,
    NQ_MATRIXFLOW_MODULE: matrixFlowModulePath,
  });
}
