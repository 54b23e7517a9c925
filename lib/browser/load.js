'use strict';
// Instead of lib/load.js: browsers load no native modules.

function fail() {
  const cure = "create an engine by load of 'nq_logic/wasm', and pass it on";
  const error = new Error(`nq_logic: a browser loads no native module: ${cure}.`);
  throw Object.assign(error, { code: 'ERR_NQ_LOAD' });
}

module.exports = { load: fail, loadMatrixFlow: fail, moduleAbis: {} };
