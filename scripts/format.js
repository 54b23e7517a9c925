'use strict';
// npm run format: formats all sources, by clang-format and prettier.
const { setup } = require('./setup');
const { host } = require('./lib/build');
const { run } = require('./lib/run');
const { nativeSources, prettierArguments } = require('./lib/sources');

setup('build', 'check');
run('clang-format', 'clang-format', ['-i', ...nativeSources()]);
run('prettier', host, prettierArguments('--write'));
