'use strict';
// Notifies when an object was garbage-collected. Node 12 has no WeakRef, but the destroy hook of an AsyncResource
// runs in a turn of the event loop after the resource was collected. Only the object keeps the resource alive, so
// it is collected with the object, or in the next collection.
const { AsyncResource, createHook } = require('async_hooks');

/** Callbacks by async id of the resource. */
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

/** Resources by the objects that keep them alive. */
const resources = new WeakMap();

/**
 * Calls `callback` in a later turn, after `object` has been collected. At most one callback per object.
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
