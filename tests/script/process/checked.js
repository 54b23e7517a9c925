'use strict';
// Calls that a checked engine refuses, and that end the process with a plain one: `checked.js CASE`.
// The cases are in lib/checked-ends.js.
const fs = require('fs');
const { modulePath } = require('../support/host');
const { cases } = require('../support/checked-ends');

const { build, prepare } = cases[process.argv[2]];
const path = build === 'flow' ? process.env.NQ_MATRIXFLOW_MODULE : modulePath;
const call = prepare(require(path).getEngine());

fs.writeSync(1, 'about to end\n');
call();
fs.writeSync(1, 'went on\n');
