'use strict';
// Base class and helpers of the typed views over shared records: the arrays over a buffer, and readable errors.
// Checks are small, so that the compiler inlines them; messages are built only on failure.
const { blockOf, bytesOf, floatsOf, keyOf, wordsOf } = require('./block-bytes');
const { failWord, isObject, show } = require('./value-checks');
const { handleOf, referencesOf } = require('./view-references');

/**
 * An output array of getters of several numbers.
 * @typedef {number[] | Float32Array | Float64Array} NumberArray
 */

/** Throws for a value that is not an index below `count`. */
function failIndex(label, name, index, count) {
  if (typeof index !== 'number') {
    throw new TypeError(`${label}: ${name} is ${show(index)}, not a number: give an index.`);
  }
  const cure = count === 0 ? 'there are none' : `give a whole number from 0 to ${count - 1}`;
  throw new RangeError(`${label}: ${name} is ${index}, of ${count}: ${cure}.`);
}

/** Throws for the first of `values` that is not a number. */
function failNumbers(label, names, values) {
  const at = values.findIndex((value) => typeof value !== 'number');
  const found = `${names[at]} is ${show(values[at])}`;
  throw new TypeError(`${label}: ${found}, not a number: give ${names.join(', ')} as numbers.`);
}

/** Throws for an `out` without room for `length` numbers from `at`. */
function failOut(label, out, at, length) {
  if (!isObject(out) || typeof out.length !== 'number') {
    const cure = `give an array of ${length} numbers, which is filled and returned`;
    throw new TypeError(`${label}: out is ${show(out)}: ${cure}.`);
  }
  if (at >>> 0 !== at) {
    failWord(label, 'at', at);
  }
  const cure = `give one of ${at + length} or more`;
  const found = `${length} numbers from index ${at}`;
  throw new RangeError(
    `${label}: out has a length of ${out.length}, too short for ${found}: ${cure}.`
  );
}

/** True if `out` is an array with room for `length` numbers from `at`. */
function hasRoom(out, at, length) {
  return typeof out === 'object' && out !== null && at >>> 0 === at && out.length >= at + length;
}

/**
 * Copies floats out of a record. `Float32Array`, the usual target, has its own loop: a polymorphic one, which has
 * seen several kinds of arrays, would allocate a heap number per element.
 */
function copyOut(source, from, length, out, at) {
  if (out instanceof Float32Array) {
    for (let k = 0; k < length; ++k) {
      out[at + k] = source[from + k];
    }
    return out;
  }
  for (let k = 0; k < length; ++k) {
    out[at + k] = source[from + k];
  }
  return out;
}

/**
 * Base class of views of an object's block.
 *
 * A view keeps the object alive, and with it the memory of its buffer and the handles: keep the view as long as you
 * use them. Create it once per object and reuse it. Its arrays cover the whole block and never change; methods whose
 * names end in `At` return the index of a field in them and check nothing, for performance-critical loops.
 *
 * All others throw a TypeError for an argument that is not a number, and a RangeError for an index out of range, a
 * handle of more than 32 bits, and an output array that is too short. Nothing is allocated per access.
 *
 * Setters of handles also take the object that has the handle, and keep it alive for as long as the block holds the
 * handle, and lives. What is given by a handle, or written through the arrays, is not kept.
 *
 * Constructors throw a TypeError for an object without a buffer, such as one whose `id` is 0, and a RangeError for a
 * buffer of the wrong size.
 *
 * @template {import('../types/engine').SharedBlock} T type of the object
 */
class BlockView {
  /**
   * @param {string} label name of the class, for messages
   * @param {T} object its `buffer` is the block: an ArrayBuffer, or a range of a larger one
   * @param {string} maker call that creates such an object, for messages
   */
  constructor(label, object, maker) {
    const block = isObject(object) ? blockOf(object) : undefined;
    const bytes = bytesOf(label, block);
    if (bytes === null) {
      const found = isObject(object) ? `its buffer is ${show(block)}` : `got ${show(object)}`;
      throw new TypeError(`${label}: ${found}, not an ArrayBuffer: give what ${maker} made.`);
    }
    /**
     * The object that owns the block.
     * @type {T}
     * @readonly
     */
    this.object = object;
    /**
     * Handle of the object; for batches, of element 0.
     * @type {T['id']}
     * @readonly
     */
    this.id = object.id;
    /**
     * The block as 32-bit words.
     * @type {Uint32Array}
     * @readonly
     */
    this.u32 = wordsOf(bytes);
    /**
     * The block as floats.
     * @type {Float32Array}
     * @readonly
     */
    this.f32 = floatsOf(bytes);
    this._label = label;
    this._byteLength = bytes.byteLength;
    this._key = keyOf(block, bytes);
  }

  /** The block as bytes. */
  _bytes() {
    const { buffer, byteOffset } = this.u32;
    return new Uint8Array(buffer, byteOffset, this._byteLength);
  }

  /** Prepares for setters of handles. */
  _keepReferences() {
    this._references = referencesOf(this._key);
    this._firstWord = this.u32.byteOffset / 4;
  }

  /** The handle of an object. Throws for any other value. */
  _handleOf(method, name, value) {
    return handleOf(`${this._label}.${method}`, name, value);
  }

  /** Keeps what word `at` of the block refers to, if it was given as an object. */
  _refer(at, given, handle) {
    this._references.store(this._firstWord + at, given, handle);
  }

  /** Throws for an index out of range. */
  _failIndex(method, name, index, count) {
    failIndex(`${this._label}.${method}`, name, index, count);
  }

  _failWord(method, name, value) {
    failWord(`${this._label}.${method}`, name, value);
  }

  _failNumbers(method, names, values) {
    failNumbers(`${this._label}.${method}`, names, values);
  }

  _failOut(method, out, at, length) {
    failOut(`${this._label}.${method}`, out, at, length);
  }
}

/** Number of elements in a block of `head` bytes and `size` bytes per element. Throws for a block of another size. */
function countElements(label, view, head, size, maker) {
  const bytes = view._byteLength;
  const count = (bytes - head) / size;
  if (!Number.isInteger(count) || count < 1) {
    const wanted = head === 0 ? `${size} bytes` : `${head} bytes and ${size}`;
    const found = `a buffer of ${bytes} bytes does not hold ${wanted} for each element`;
    throw new RangeError(`${label}: ${found}: give what ${maker} made.`);
  }
  return count;
}

module.exports = { BlockView, copyOut, countElements, failIndex, failNumbers, failOut, hasRoom };
