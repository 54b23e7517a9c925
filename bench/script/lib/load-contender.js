'use strict';
// Loads a separate instance of a contender per scene.

/**
 * Loads a new instance of a contender: the compiler optimises functions better that work on one scene, as in a game,
 * than those that work on several scenes.
 * @param {string} name
 */
function loadContender(name) {
  const file = require.resolve(`../contenders/${name}`);
  delete require.cache[file];
  return require(file);
}

module.exports = { loadContender };
