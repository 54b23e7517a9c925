'use strict';
// npm run stress: frames of several engines on threads that are late, for some minutes. --seconds N says for how long,
// --host NAME on which host.
const { setup } = require('./setup');
const { fail } = require('./lib/run');
const { prepare, takeOptions } = require('./lib/long-runs');

const { named, value: seconds } = takeOptions(process.argv.slice(2), '--seconds', 300);
setup('build');
const run = prepare(named);
if (!run('stress-all.js', String(seconds))) {
  fail('a thread hung, or computed other bytes: see above.');
}
