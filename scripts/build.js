'use strict';
// npm run build: the release module in build/Release/nq_logic.node.
const { setup } = require('./setup');
const { build } = require('./lib/build');

setup('build');
build('release', {}, ['nq_logic']);
