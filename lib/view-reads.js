'use strict';
// Views of entities of a checked engine report which world matrices JavaScript reads. Other views don't: the
// reporting methods are set on the view itself, so that the class's own methods cost nothing extra.

/** Name of the method that notifies an entity of a checked engine: (method, element). */
const worldRead = Symbol('worldRead');

const kMethods = ['worldMatrix', 'worldPosition'];

/** Makes a view report reads, if its entity has the method. */
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
