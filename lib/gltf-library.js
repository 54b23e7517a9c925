'use strict';
// Loads the optional package of the glTF importer. Any version from 2 on works that this runtime can load: under
// Node 12 these are 2 and 3, since version 4 uses newer syntax.
const fs = require('fs');
const path = require('path');
const { GltfError, isObject, oneLine } = require('./gltf-check');

const kLibrary = '@gltf-transform/core';
const kCure = `npm install ${kLibrary}@3`;

/** The installed version, preceded by a space, or '' if it is not found. */
function installedVersion() {
  for (const folder of module.paths) {
    try {
      const text = fs.readFileSync(path.join(folder, kLibrary, 'package.json'), 'utf8');
      return ` ${JSON.parse(text).version}`;
    } catch (error) {
      // Not here.
    }
  }
  return '';
}

/** An error for a package that is installed but can't be used. */
function uselessError(trouble) {
  const node = `Node ${process.versions.node}`;
  const found = `${kLibrary}${installedVersion()}, which ${node} can't use (${trouble})`;
  return new GltfError(`importGltf found ${found}: replace it by '${kCure}'.`);
}

/**
 * The library that decodes accessors and decomposes matrices.
 * @returns {{Logger: Function, NodeIO: Function}}
 * @throws {GltfError} naming the package, what is wrong with it, and the cure
 */
function loadLibrary() {
  let library;
  try {
    library = require(kLibrary);
  } catch (error) {
    if (
      error.code === 'MODULE_NOT_FOUND' &&
      error.message.startsWith(`Cannot find module '${kLibrary}'`)
    ) {
      const trouble = `importGltf needs the package ${kLibrary}, which is not installed`;
      throw new GltfError(`${trouble}: install it by '${kCure}'.`);
    }
    throw uselessError(oneLine(error.message));
  }
  const { Logger, NodeIO } = library;
  const isUsable =
    typeof NodeIO === 'function' &&
    typeof NodeIO.prototype.readJSON === 'function' &&
    typeof NodeIO.prototype.setLogger === 'function' &&
    typeof Logger === 'function' &&
    isObject(Logger.Verbosity);
  if (!isUsable) {
    throw uselessError('it lacks NodeIO or Logger of versions 2 to 4');
  }
  return library;
}

module.exports = { loadLibrary };
