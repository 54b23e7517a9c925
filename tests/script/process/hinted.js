'use strict';
// Preloaded before a program (`node -r`), and by its Workers: wraps each engine in checked mode, with hints to
// console.warn, and appends a byte for each to the file that NQ_ENGINES names.
const fs = require('fs');
const load = require('../../../lib/load');
const { checked } = require('../../../lib/checked');

for (const name of ['load', 'loadMatrixFlow']) {
  const original = load[name];
  load[name] = (...args) => {
    const module = original(...args);
    const getEngine = () => {
      fs.appendFileSync(process.env.NQ_ENGINES, '.');
      return checked(module.getEngine());
    };
    return Object.assign({}, module, { getEngine });
  };
}
