'use strict';
// Loads the optional package of the glTF importer. Any version from 2 on will do that this runtime can load:
// under Node 12 those are 2 and 3, for version 4 is written in the language of newer ones.
const fs = require('fs');
const path = require('path');
const { GltfError, isObject, oneLine } = require('./gltf-check');

const kLibrary = '@gltf-transform/core';
const kCure = `npm install ${kLibrary}@3`;

/** The installed version, with a blank ahead, or '' if it is not to be found. */
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

/** An error for a package that is there and can't be used. */
function uselessError(trouble) {
  const node = `Node ${process.versions.node}`;
  const found = `${kLibrary}${installedVersion()}, which ${node} can't use (${trouble})`;
  return new GltfError(`importGltf found ${found}: put another in its place by '${kCure}'.`);
}

/**
 * The library that takes accessors and matrices apart.
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
      const trouble = `importGltf needs the package ${kLibrary}, which is not there`;
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
    throw uselessError('it lacks NodeIO or Logger as they are in versions 2 to 4');
  }
  return library;
}

module.exports = { loadLibrary };
