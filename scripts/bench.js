'use strict';
// npm run bench: native benchmarks, then script benchmarks on the host. Arguments after -- go to the
// native ones (`npm run bench -- --benchmark_filter=World`).
const fs = require('fs');
const path = require('path');
const { setup } = require('./setup');
const { root, fail, run } = require('./lib/run');
const { build, folders, host, modulePath } = require('./lib/build');

setup('build', 'bench');
build('release', { NQ_BUILD_BENCH: 'ON' });

const native = path.join(root, folders.release, 'nq_bench');
const script = path.join(root, 'bench', 'script', 'run.js');
if (!fs.existsSync(native) && !fs.existsSync(script)) {
  fail('there are no benchmarks.');
}
if (fs.existsSync(native)) {
  run('native benchmarks', native, process.argv.slice(2));
}
if (fs.existsSync(script)) {
  run('script benchmarks', host, [script], { NQ_MODULE: modulePath });
}
