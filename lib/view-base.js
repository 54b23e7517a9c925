'use strict';
// What typed views over shared records have in common: the arrays over a buffer, and complaints in words.
// Checks are small, so that they are compiled into their callers; texts are made where they fail.
const { failWord, isArrayBuffer, isObject, show } = require('./value-checks');

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
 * A view of the block that an object of the engine came with.
 *
 * It keeps the object, and so the memory behind its buffer and the handles: keep the view as long as you
 * use them. Its arrays lie over the whole block and stay the same for its life; methods of a name that ends
 * in `At` give the index of a field in them and check nothing, for loops where that matters.
 */
class BlockView {
  /**
   * @param {string} label name of the class, for messages
   * @param {{id: number, buffer: ArrayBuffer}} object
   * @param {string} maker what makes such an object, for messages
   */
  constructor(label, object, maker) {
    const buffer = isObject(object) ? object.buffer : undefined;
    if (!isArrayBuffer(buffer)) {
      const found = isObject(object) ? `its buffer is ${show(buffer)}` : `got ${show(object)}`;
      throw new TypeError(`${label}: ${found}, not an ArrayBuffer: give what ${maker} made.`);
    }
    /**
     * What the block came with.
     * @type {Object}
     * @readonly
     */
    this.object = object;
    /**
     * Handle of the object, for batches that of element 0.
     * @type {number}
     * @readonly
     */
    this.id = object.id;
    /**
     * The block as words.
     * @type {Uint32Array}
     * @readonly
     */
    this.u32 = new Uint32Array(buffer, 0, Math.floor(buffer.byteLength / 4));
    /**
     * The block as floats.
     * @type {Float32Array}
     * @readonly
     */
    this.f32 = new Float32Array(buffer, 0, Math.floor(buffer.byteLength / 4));
    this._label = label;
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
  const bytes = view.u32.buffer.byteLength;
  const count = (bytes - head) / size;
  if (!Number.isInteger(count) || count < 1) {
    const wanted = head === 0 ? `${size} bytes` : `${head} bytes and ${size}`;
    const found = `a buffer of ${bytes} bytes does not hold ${wanted} for each element`;
    throw new RangeError(`${label}: ${found}: give what ${maker} made.`);
  }
  return count;
}

module.exports = { BlockView, copyOut, countElements, failIndex, failNumbers, failOut, hasRoom };
