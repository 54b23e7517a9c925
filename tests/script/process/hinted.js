'use strict';
// Preloaded ahead of a program (`node -r`): puts each engine that it gets into checked mode, with hints to
// console.warn, and tells on its way out, as the last line, how many engines there were.
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
