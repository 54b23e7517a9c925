'use strict';
// nq_logic/wasm: the engine in WebAssembly.
module.exports = require('./lib/wasm');
