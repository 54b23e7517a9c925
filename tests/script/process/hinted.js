'use strict';
// Preloaded before a program (`node -r`): wraps each engine in checked mode, with hints to console.warn, and prints the
// number of engines as the last line at exit.
const fs = require('fs');
const load = require('../../../lib/load');
const { checked } = require('../../../lib/checked');

let engines = 0;

for (const name of ['load', 'loadMatrixFlow']) {
  const original = load[name];
  load[name] = (...args) => {
    const module = original(...args);
    const getEngine = () => {
      ++engines;
      return checked(module.getEngine());
    };
    return Object.assign({}, module, { getEngine });
  };
}

process.on('exit', () => fs.writeSync(1, `checked engines: ${engines}\n`));
