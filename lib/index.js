'use strict';
/**
 * All of the library except the glTF importer, which is `nq_logic/lib/gltf`. The native module is loaded on first
 * use; see {@link load}.
 *
 * @module nq_logic
 */

/** @typedef {import('../types/engine').Engine} Engine */

/**
 * Layouts of the memory that JavaScript and native code share: sizes and byte offsets of records, little-endian
 * without padding, and the enumerations used in them.
 */
const layout = require('./layout');
const { load } = require('./load');

/**
 * Creates an engine, with its own memory and four threads, which stay until the process ends: create one per scene,
 * not one per frame. Keep it.
 * @returns {Engine}
 * @throws {@link LoadError} if the native module can't be loaded
 */
function getEngine() {
  return load().getEngine();
}

/**
 * The version of the native module.
 * @returns {{ version: string }}
 * @throws {@link LoadError} if it can't be loaded
 */
function getVersion() {
  return load().getVersion();
}

// Written as literal spreads so that ES modules can import the names: Node.js finds them in the source text.
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
