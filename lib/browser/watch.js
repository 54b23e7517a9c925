'use strict';
// Instead of lib/checked/watch.js: notifies when an object was garbage-collected.

const registry = new FinalizationRegistry((callback) => callback());

/**
 * Calls `callback` in a later turn, after `object` has been collected.
 * @param {Object} object is not kept alive
 * @param {function(): void} callback must not refer to `object`
 */
function onCollected(object, callback) {
  registry.register(object, callback);
}

module.exports = { onCollected };
