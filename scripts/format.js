'use strict';
// npm run format: brings all sources into the house's form.
const { setup } = require('./setup');
const { host } = require('./lib/build');
const { run } = require('./lib/run');
const { nativeSources, prettierArguments } = require('./lib/sources');

setup('build', 'check');
run('clang-format', 'clang-format', ['-i', ...nativeSources()]);
run('prettier', host, prettierArguments('--write'));
