'use strict';
// What records refer to by objects. A setter that takes a handle also takes the object that has it, and then keeps the
// object alive for as long as its word holds the handle. References belong to the buffer of the words, so they live as
// long as the memory, and all views of a buffer share them.
const { failWord, isArray, isObject, kLargestU32, show } = require('./value-checks');

/** The word that a checked value is written as. */
function handleOf(label, name, given) {
  if (typeof given === 'object' && given !== null) {
    return handleOfObject(label, name, given);
  }
  if (given >>> 0 !== given) {
    failWord(label, name, given);
  }
  return given;
}

function handleOfObject(label, name, given) {
  let handle;
  try {
    handle = typeof given.id === 'number' ? given.id : given.handle;
  } catch (error) {
    if (!isRevoked(given)) {
      throw error;
    }
  }
  if (typeof handle !== 'number') {
    const cure = `give a handle, from 0 to ${kLargestU32}, or an object with one as its id`;
    throw new TypeError(
      `${label}: ${name} is ${show(given)} without an id, not a number: ${cure}.`
    );
  }
  if (handle >>> 0 !== handle) {
    failWord(label, `id of ${name}`, handle);
  }
  return handle;
}

/** True for a revoked proxy, whose every use throws. */
function isRevoked(value) {
  try {
    Object.getPrototypeOf(value);
    return false;
  } catch (error) {
    return true;
  }
}

/**
 * The words that values are written as: themselves if none is an object, and otherwise a new array.
 * @param {string} label
 * @param {string} name
 * @param {ArrayLike<*>} given
 * @returns {ArrayLike<number>}
 */
function handlesOf(label, name, given) {
  if (ArrayBuffer.isView(given) && given instanceof Uint32Array) {
    return given;
  }
  if (!isArray(given)) {
    const cure = 'give a Uint32Array or an array of handles';
    throw new TypeError(`${label}: ${name} is ${show(given)}: ${cure}.`);
  }
  let found = given;
  for (let i = 0; i < given.length; ++i) {
    const one = given[i];
    if (typeof one !== 'number' || one >>> 0 !== one) {
      if (found === given) {
        found = given.slice();
      }
      found[i] = handleOf(label, `${name}[${i}]`, one);
    }
  }
  return found;
}

/** Objects that the words of a buffer refer to. */
class References {
  constructor() {
    /** Number of words that refer to an object. Setters look at it before they call `store`. */
    this.count = 0;
    this._entries = new Map();
  }

  /**
   * Notes what was written into a word.
   * @param {number} word its index, from the start of the buffer
   * @param {*} given the object, or the handle
   * @param {number} handle what was written
   */
  store(word, given, handle) {
    const entries = this._entries;
    if (isObject(given)) {
      entries.set(word, { handle, object: given });
    } else {
      const entry = entries.get(word);
      // A word that is written again with the handle of its object goes on to refer to it.
      if (entry !== undefined && entry.handle !== handle) {
        entries.delete(word);
      }
    }
    this.count = entries.size;
  }

  /** The same for consecutive words. */
  storeAll(word, given, written) {
    for (let i = 0; i < written.length; ++i) {
      this.store(word + i, given[i], written[i]);
    }
  }

  clear() {
    this._entries.clear();
    this.count = 0;
  }

  /** What is referred to, for who reads the words and then goes on without them. */
  objects() {
    return Array.from(this._entries.values(), ({ object }) => object);
  }
}

/** References of blocks that have views. */
const ofBuffers = new WeakMap();

/**
 * The references of a block.
 * @param {Object} buffer what lives as long as its memory; see `keyOf`
 * @returns {References}
 */
function referencesOf(buffer) {
  let references = ofBuffers.get(buffer);
  if (references === undefined) {
    references = new References();
    ofBuffers.set(buffer, references);
  }
  return references;
}

/** What objects keep that have read lists: by name. */
const ofReaders = new WeakMap();

/**
 * Lets an object keep others for as long as it lives, instead of those that it kept by this name.
 * @param {Object} reader
 * @param {string} name
 * @param {Object[]} objects
 */
function keepFor(reader, name, objects) {
  const kept = ofReaders.get(reader);
  if (kept !== undefined) {
    kept.set(name, objects);
  } else if (objects.length > 0) {
    ofReaders.set(reader, new Map([[name, objects]]));
  }
}

module.exports = { References, handleOf, handlesOf, keepFor, referencesOf };
