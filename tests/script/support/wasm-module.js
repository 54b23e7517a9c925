'use strict';
// The WebAssembly engine in the form of the native module: suites that run on both name this file in NQ_MODULE.
const { getVersion, loadSync } = require('../../../lib/wasm');

exports.getVersion = getVersion;
exports.getEngine = () => loadSync();
