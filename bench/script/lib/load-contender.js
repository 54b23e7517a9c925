'use strict';
// Contenders of a scene of their own.

/**
 * Loads a contender anew: the compiler makes better code of functions that exist once, as they would in
 * a game, than of those that work on several scenes.
 * @param {string} name
 */
function loadContender(name) {
  const file = require.resolve(`../contenders/${name}`);
  delete require.cache[file];
  return require(file);
}

module.exports = { loadContender };
