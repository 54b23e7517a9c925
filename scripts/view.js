'use strict';
// npm run view: runs the viewer with the release module, on the Node that runs this if it is a host, else on Node 12.
// `--host NAME` selects another. Other arguments after -- are passed to the viewer.
const childProcess = require('child_process');
const path = require('path');
const { setup } = require('./setup');
const { buildModule } = require('./lib/build');
const { takeHostOption } = require('./lib/hosts');
const { environment, fail, root } = require('./lib/run');

const { rest, named } = takeHostOption(process.argv.slice(2));
setup('build');
const { program, modulePath } = buildModule(named);

const child = childProcess.spawn(program, [path.join(root, 'viewer', 'main.js'), ...rest], {
  cwd: root,
  env: environment({ NQ_MODULE: modulePath }),
  stdio: 'inherit',
});
child.on('error', (error) => fail(`the host can't be started: ${error.message}`));
// A terminal interrupts the viewer as well: wait until it has ended. A signal to this process only is forwarded.
process.on('SIGINT', () => {});
process.on('SIGTERM', () => child.kill('SIGTERM'));
// The viewer reports errors in one line; its exit code is the exit code of this command.
child.on('exit', (code, signal) => {
  process.exitCode = signal ? 128 : code;
});
