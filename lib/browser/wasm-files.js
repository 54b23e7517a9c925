'use strict';
// Where the WebAssembly module comes from in browsers: an address that the program gives.

function standardModule() {
  const cure = "give the address of nq_logic.wasm as the option 'module'";
  throw new TypeError(`load: module is undefined: ${cure}.`);
}

/** A response of an address. */
function readModule(address) {
  return fetch(String(address));
}

module.exports = { readModule, readStandardModule: standardModule, standardModule };
