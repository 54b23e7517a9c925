'use strict';
// npm run demo: runs the demo with the release module, on the Node that runs this if it is a host, else on Node 12.
// `--host NAME` selects another. Other arguments after -- are passed to the demo.
const path = require('path');
const { setup } = require('./setup');
const { buildModule } = require('./lib/build');
const { takeHostOption } = require('./lib/hosts');
const { root, status } = require('./lib/run');

const { rest, named } = takeHostOption(process.argv.slice(2));
setup('build');
const { program, modulePath } = buildModule(named);
// The demo reports errors in one line; its exit code is the exit code of this command.
process.exitCode = status(program, [path.join(root, 'demo', 'main.js'), ...rest], {
  NQ_MODULE: modulePath,
});
