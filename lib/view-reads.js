'use strict';
// Views of entities of a checked engine report which world matrices script reads. Others don't: the methods
// that do are put onto the view itself, so that those of its class cost what they always do.

/** Name of the method by which an entity of a checked engine is told: (method, element). */
const worldRead = Symbol('worldRead');

const kMethods = ['worldMatrix', 'worldPosition'];

/** Makes a view report what it reads, if its entity wants to know. */
function reportReads(view, entity) {
  if (typeof entity[worldRead] !== 'function') {
    return;
  }
  for (const method of kMethods) {
    const read = view[method];
    const value = (i, out, at) => {
      const result = read.call(view, i, out, at);
      entity[worldRead](method, i);
      return result;
    };
    Object.defineProperty(view, method, { value });
  }
}

module.exports = { reportReads, worldRead };
