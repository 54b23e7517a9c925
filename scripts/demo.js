'use strict';
// npm run demo: the demo on the release module. Arguments after -- go to the demo.
const fs = require('fs');
const path = require('path');
const { setup } = require('./setup');
const { root, fail, status } = require('./lib/run');
const { build, host, modulePath } = require('./lib/build');

const main = path.join(root, 'demo', 'main.js');
if (!fs.existsSync(main)) {
  fail('there is no demo/main.js.');
}
setup('build');
build('release', {}, ['nq_logic']);
const code = status(host, [main, ...process.argv.slice(2)], { NQ_MODULE: modulePath });
if (code !== 0) {
  fail(`the demo failed (exit code ${code}).`);
}
