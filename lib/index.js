'use strict';
// All of the library but the importer of glTF files, which needs a package of its own and is reached by
// `require('nq_logic/lib/gltf')`. The native module is loaded on first use.
const { checked } = require('./checked');
const clip = require('./clip');
const commands = require('./commands');
const layout = require('./layout');
const { load, loadMatrixFlow, moduleAbi } = require('./load');
const views = require('./views');

/**
 * Makes an engine. Keep it: its buffers live as long as it does.
 * @returns {Object}
 * @throws {Error} if the native module can't be loaded, see `load`
 */
function getEngine() {
  return load().getEngine();
}

/**
 * @returns {{version: string}} of the native module
 * @throws {Error} if it can't be loaded, see `load`
 */
function getVersion() {
  return load().getVersion();
}

module.exports = Object.assign(
  { getEngine, getVersion, load, loadMatrixFlow, moduleAbi, layout, checked },
  clip,
  commands,
  views
);
