'use strict';
/**
 * All of the library but the importer of glTF files, which is `nq_logic/lib/gltf`. The native module is loaded on first
 * use; see {@link load}.
 *
 * @module nq_logic
 */

/** @typedef {import('../types/engine').Engine} Engine */

/**
 * Layouts of all bytes that script and native code share: sizes and byte offsets of records, little-endian without padding,
 * and the numbers that stand in them.
 */
const layout = require('./layout');
const { load } = require('./load');

/**
 * Makes an engine, with memory and four threads of its own, which stay until the process ends: make one for a scene, not
 * one a frame. Keep it.
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
