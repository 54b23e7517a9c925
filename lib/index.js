'use strict';
// All of the library but the importer of glTF files, which needs a package of its own and is reached by
// `require('nq_logic/lib/gltf')`. The native module is loaded on first use.
const layout = require('./layout');
const { load } = require('./load');

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

// Written out like this, the names can be imported by ES modules, too: the host looks for them in the text.
module.exports = {
  getEngine,
  getVersion,
  layout,
  ...require('./load'),
  ...require('./checked'),
  ...require('./clip'),
  ...require('./commands'),
  ...require('./views'),
};
