'use strict';
// Finds and loads the native module.
const { load } = require('../lib/load');
const { UserError, oneLine } = require('./user-error');

/**
 * Loads the module that the environment variable NQ_MODULE names, else the release build.
 * @returns {{getEngine: function(): Object, getVersion: function(): {version: string}}}
 * @throws {UserError}
 */
function loadNativeModule() {
  try {
    return load();
  } catch (error) {
    const trouble = oneLine(error.message.split('Original error:')[0]);
    throw new UserError(`${trouble} Or start the demo with 'npm run demo'.`);
  }
}

module.exports = { loadNativeModule };
