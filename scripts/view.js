'use strict';
// npm run view: the viewer on the release module. Arguments after -- go to the viewer.
const childProcess = require('child_process');
const path = require('path');
const { setup } = require('./setup');
const { environment, fail, root } = require('./lib/run');
const { build, host, modulePath } = require('./lib/build');

setup('build');
build('release', {}, ['nq_logic']);

const child = childProcess.spawn(
  host,
  [path.join(root, 'viewer', 'main.js'), ...process.argv.slice(2)],
  { cwd: root, env: environment({ NQ_MODULE: modulePath }), stdio: 'inherit' }
);
child.on('error', (error) => fail(`the host can't be started: ${error.message}`));
// A terminal interrupts the viewer as well: wait for its goodbye. A signal to this process alone is
// handed on.
process.on('SIGINT', () => {});
process.on('SIGTERM', () => child.kill('SIGTERM'));
// The viewer says in one line what is wrong; its exit code is the command's.
child.on('exit', (code, signal) => {
  process.exitCode = signal ? 128 : code;
});
