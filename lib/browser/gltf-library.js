'use strict';
// Instead of lib/gltf-library.js: bundlers resolve the optional package of the importer.
const { GltfError } = require('../gltf-check');

let library = null;
try {
  library = require('@gltf-transform/core');
} catch (error) {
  // It is not installed: an error where it is needed.
}

/**
 * The library that decodes accessors and decomposes matrices. In browsers its files are addresses.
 * @returns {{Logger: Function, NodeIO: Function}}
 * @throws {GltfError} if it is not part of the bundle
 */
function loadLibrary() {
  if (library === null) {
    const trouble =
      'importGltf needs the package @gltf-transform/core, which is not in this bundle';
    throw new GltfError(
      `${trouble}: install it by 'npm install @gltf-transform/core@3', and bundle again.`
    );
  }
  return { Logger: library.Logger, NodeIO: library.WebIO };
}

module.exports = { loadLibrary };
