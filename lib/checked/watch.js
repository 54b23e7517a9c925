'use strict';
// Tells when an object was collected. The host has no WeakRef; what it has is the destroy hook of an
// AsyncResource, which runs a turn of the event loop after the resource was collected. The resource
// hangs on the object alone, so it goes with the object, or a collection later.
const { AsyncResource, createHook } = require('async_hooks');

/** What to call, by the number of the resource that is gone. */
const callbacks = new Map();

const hook = createHook({
  destroy(asyncId) {
    const callback = callbacks.get(asyncId);
    if (callback !== undefined) {
      callbacks.delete(asyncId);
      callback();
    }
  },
});

/** Resources by the objects that they hang on. */
const resources = new WeakMap();

/**
 * Calls `callback` in a later turn, once `object` has been collected. Once an object.
 * @param {Object} object is not kept alive
 * @param {function(): void} callback must not refer to `object`
 */
function onCollected(object, callback) {
  hook.enable();
  const resource = new AsyncResource('NqLogicChecked');
  callbacks.set(resource.asyncId(), callback);
  resources.set(object, resource);
}

module.exports = { onCollected };
