'use strict';
// The option --target of commands that run programs: native, the default, or wasm.
const path = require('path');
const { wasmModulePath } = require('./build');
const { fail, root } = require('./run');

const targets = ['native', 'wasm'];

/**
 * Takes --target from arguments.
 * @param {string[]} args
 * @returns {{rest: string[], isWasm: boolean}}
 */
function takeTargetOption(args) {
  const at = args.indexOf('--target');
  if (at < 0) {
    return { rest: args, isWasm: false };
  }
  const target = args[at + 1];
  if (!targets.includes(target)) {
    fail(`--target is '${target}'; known: ${targets.join(', ')}.`, 2);
  }
  const rest = args.filter((_, i) => i !== at && i !== at + 1);
  return { rest, isWasm: target === 'wasm' };
}

/** The host for WebAssembly unless another is named: Node 12 lacks its vector instructions. */
const wasmHost = '24';

/**
 * Environment by which programs of the native module run on the engine in WebAssembly.
 * @returns {Object<string, string>}
 */
function wasmEnvironment() {
  const asModule = path.join(root, 'tests/script/support/wasm-module.js');
  return {
    NQ_WASM_MODULE: wasmModulePath,
    NQ_MODULE: asModule,
    NQ_MATRIXFLOW_MODULE: asModule,
  };
}

module.exports = { takeTargetOption, wasmEnvironment, wasmHost };
