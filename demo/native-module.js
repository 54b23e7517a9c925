'use strict';
// Finds and loads the native module.
const fs = require('fs');
const path = require('path');
const { UserError, oneLine } = require('./user-error');

const hostAbi = '72';
const builtModule = path.join(__dirname, '..', 'build', 'Release', 'nq_logic.node');

/**
 * Loads the module named by the environment variable NQ_MODULE, else the release build.
 * @returns {{getEngine: function(): Object, getVersion: function(): {version: string}}}
 * @throws {UserError}
 */
function loadNativeModule() {
  const file = path.resolve(process.env.NQ_MODULE || builtModule);
  if (!fs.existsSync(file)) {
    throw new UserError(`there is no module '${file}': build it with 'npm run build'.`);
  }
  if (process.versions.modules !== hostAbi) {
    const host = `Node ${process.versions.node} can't load the module`;
    throw new UserError(`${host}, it needs Node 12: start the demo with 'npm run demo'.`);
  }
  try {
    return require(file);
  } catch (error) {
    const trouble = oneLine(error.message);
    throw new UserError(`module '${file}' can't be loaded (${trouble}): run 'npm run build'.`);
  }
}

module.exports = { loadNativeModule };
