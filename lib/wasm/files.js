'use strict';
// Where the WebAssembly module comes from in Node.js: the file that an environment variable names, else a build beside
// this folder, else the file of the package. Bundlers for browsers take lib/browser/wasm-files.js instead.
const fs = require('fs');
const path = require('path');

const kVariable = 'NQ_WASM_MODULE';
const kRoot = path.join(__dirname, '..', '..');
const kFiles = [
  path.join(kRoot, 'build', 'Wasm', 'nq_logic.wasm'),
  path.join(kRoot, 'prebuilds', 'wasm', 'nq_logic.wasm'),
];

/** The path of the module. Throws if there is none. */
function standardModule() {
  const named = process.env[kVariable];
  const candidates = named ? [path.resolve(named)] : kFiles;
  const found = candidates.find((file) => fs.existsSync(file));
  if (found === undefined) {
    const source = named ? `, named by ${kVariable}` : '';
    const cure = named
      ? `correct or unset ${kVariable}`
      : 'build it in the sources of nq_logic, see docs/wasm.md';
    const error = new Error(
      `nq_logic/wasm: there is no '${candidates.join("' or '")}'${source}: ${cure}.`
    );
    error.code = 'ERR_NQ_LOAD';
    throw error;
  }
  return found;
}

/** The compiled module of this process. */
let compiled = null;

function readStandardModule() {
  if (compiled === null) {
    compiled = new WebAssembly.Module(fs.readFileSync(standardModule()));
  }
  return compiled;
}

/** Bytes of a path, or a response of an address. */
function readModule(address) {
  const text = String(address);
  if (/^[a-z][a-z+.-]+:/i.test(text) && !text.startsWith('file:')) {
    return fetch(text);
  }
  return fs.promises.readFile(text.startsWith('file:') ? new URL(text) : text);
}

/** As the native module logs. */
function writeLog(text) {
  process.stdout.write(text);
}

module.exports = { readModule, readStandardModule, standardModule, writeLog };
