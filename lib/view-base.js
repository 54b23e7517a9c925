'use strict';
// What typed views over shared records have in common: the arrays over a buffer, and complaints in words.
// Checks are small, so that they are compiled into their callers; texts are made where they fail.
const { bytesOf, floatsOf, wordsOf } = require('./block-bytes');
const { failWord, isObject, show } = require('./value-checks');

/**
 * An array that getters of several numbers fill.
 * @typedef {number[] | Float32Array | Float64Array} NumberArray
 */

/** Throws for what is no index of `count` elements. */
function failIndex(label, name, index, count) {
  if (typeof index !== 'number') {
    throw new TypeError(`${label}: ${name} is ${show(index)}, not a number: give an index.`);
  }
  const cure = count === 0 ? 'there are none' : `give a whole number from 0 to ${count - 1}`;
  throw new RangeError(`${label}: ${name} is ${index}, of ${count}: ${cure}.`);
}

/** Throws for the first of `values` that is no number. */
function failNumbers(label, names, values) {
  const at = values.findIndex((value) => typeof value !== 'number');
  const found = `${names[at]} is ${show(values[at])}`;
  throw new TypeError(`${label}: ${found}, not a number: give ${names.join(', ')} as numbers.`);
}

/** Throws unless `out` has room for `length` numbers from `at`. */
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
 * Copies floats out of a record. The usual target has a loop of its own: one that has met all kinds of arrays
 * would make an object of each number.
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
 * What views of the block of an object have in common.
 *
 * A view keeps the object, and so the memory behind its buffer and the handles: keep the view as long as you use
 * them. It is made once for an object, and used for its life. Its arrays lie over the whole block and stay the same;
 * methods of a name that ends in `At` give the index of a field in them and check nothing, for loops where that
 * matters.
 *
 * All others throw a TypeError for an argument that is no number, and a RangeError for an index of no element, a
 * handle of more than 32 bits, and an array without room. Nothing is allocated per access.
 *
 * Constructors throw a TypeError for an object without a buffer, such as one whose `id` is 0, and a RangeError for one
 * of another size.
 *
 * @template {import('../types/engine').SharedBlock} T what the block came with
 */
class BlockView {
  /**
   * @param {string} label name of the class, for messages
   * @param {T} object its `buffer` is the block: an ArrayBuffer, or bytes of a larger one
   * @param {string} maker what makes such an object, for messages
   */
  constructor(label, object, maker) {
    const block = isObject(object) ? object.buffer : undefined;
    const bytes = bytesOf(label, block);
    if (bytes === null) {
      const found = isObject(object) ? `its buffer is ${show(block)}` : `got ${show(object)}`;
      throw new TypeError(`${label}: ${found}, not an ArrayBuffer: give what ${maker} made.`);
    }
    /**
     * What the block came with.
     * @type {T}
     * @readonly
     */
    this.object = object;
    /**
     * Handle of the object, for batches that of element 0.
     * @type {T['id']}
     * @readonly
     */
    this.id = object.id;
    /**
     * The block as words.
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
  }

  /** The block as bytes. */
  _bytes() {
    const { buffer, byteOffset } = this.u32;
    return new Uint8Array(buffer, byteOffset, this._byteLength);
  }

  /** Throws for an index of no element. */
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

/** Elements in a block of `head` bytes and `size` an element, or a complaint. */
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
