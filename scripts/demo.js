'use strict';
// npm run demo: the demo on the release module. Arguments after -- go to the demo.
const path = require('path');
const { setup } = require('./setup');
const { root, status } = require('./lib/run');
const { build, host, modulePath } = require('./lib/build');

setup('build');
build('release', {}, ['nq_logic']);
// The demo says in one line what is wrong; its exit code is the command's.
process.exitCode = status(host, [path.join(root, 'demo', 'main.js'), ...process.argv.slice(2)], {
  NQ_MODULE: modulePath,
});
