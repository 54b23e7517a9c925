'use strict';
// npm run demo: the demo on the release module, on the Node that runs this where it is a host, else on Node 12.
// `--host NAME` picks another. Other arguments after -- go to the demo.
const path = require('path');
const { setup } = require('./setup');
const { buildModule } = require('./lib/build');
const { takeHostOption } = require('./lib/hosts');
const { root, status } = require('./lib/run');

const { rest, named } = takeHostOption(process.argv.slice(2));
setup('build');
const { program, modulePath } = buildModule(named);
// The demo says in one line what is wrong; its exit code is the command's.
process.exitCode = status(program, [path.join(root, 'demo', 'main.js'), ...rest], {
  NQ_MODULE: modulePath,
});
