'use strict';
// Base classes of command writers: the stream, its free space, and operands in their two forms.
const { blockOf, bytesOf, wordsOf } = require('./block-bytes');
const { failWord, isObject, show } = require('./value-checks');

/**
 * @typedef {import('../types/engine').EngineMatrixFlowCommandBuffer} EngineMatrixFlowCommandBuffer
 * @typedef {import('../types/handles').MemoryID} MemoryID
 */

/**
 * @template {number} T
 * @typedef {import('../types/handles').HandleLike<T>} HandleLike
 */

const kWordBytes = 4;

/** Names of operands in messages, in stream order. */
const copyNames = ['D', 'S'];
const invertNames = ['S', 'D'];

/** The words of a shared buffer. Throws if there is none. */
function streamWords(label, owner, property, cure) {
  const blockIn = (object) => (property === 'buffer' ? blockOf(object) : object[property]);
  const buffer = isObject(owner) ? blockIn(owner) : undefined;
  const bytes = bytesOf(label, buffer);
  if (bytes === null) {
    const found = isObject(owner) ? `its ${property} is ${show(buffer)}` : `got ${show(owner)}`;
    throw new TypeError(`${label}: ${found}, not an ArrayBuffer: ${cure}.`);
  }
  if (bytes.byteLength < kWordBytes) {
    const room = `${bytes.byteLength} bytes have no room for the first word`;
    throw new RangeError(`${label}: ${room}: ${cure}.`);
  }
  return wordsOf(bytes);
}

/**
 * Base class of stream writers. The stream's first word is a writer's only position: it sees what native code does to
 * it, and one buffer may have several writers. A call writes its whole command or, if it does not fit or an argument
 * is invalid, throws and writes nothing. Nothing is allocated per call.
 *
 * @template Owner type of the object that owns the buffer
 */
class StreamWriter {
  /**
   * @param {string} label name of the class, for messages
   * @param {Owner} owner
   * @param {Uint32Array} words of the buffer
   * @param {string} cure what to do when the stream is full
   */
  constructor(label, owner, words, cure) {
    /**
     * The object that owns the buffer; kept alive by the writer.
     * @type {Owner}
     * @readonly
     */
    this.owner = owner;
    this._label = label;
    this._words = words;
    this._cure = cure;
  }

  /**
   * Bytes of commands in the stream.
   * @type {number}
   */
  get used() {
    return this._words[0];
  }

  /**
   * Free bytes for further commands.
   * @type {number}
   */
  get room() {
    return this._words.length * kWordBytes - kWordBytes - this._words[0];
  }

  /** Word index of the next command, of `bytes`. Throws if it does not fit. */
  _claim(name, bytes) {
    const words = this._words;
    const used = words[0];
    // A length that is no multiple of 4 was not written here.
    if ((used & 3) !== 0 || used + bytes > words.length * kWordBytes - kWordBytes) {
      this._failRoom(name, bytes);
    }
    return used / kWordBytes + 1;
  }

  /** Throws for an operand that is not a 32-bit word. */
  _checkWord(method, name, value) {
    if (value >>> 0 !== value) {
      failWord(`${this._label}.${method}`, name, value);
    }
  }

  /** Writes a command with one operand, a handle. */
  _one(name, number, handle) {
    this._checkWord(name, 'handle', handle);
    const at = this._claim(name, 8);
    const words = this._words;
    words[at] = number;
    words[at + 1] = handle;
    words[0] += 8;
    return at * kWordBytes;
  }

  /** Writes a command with two operand words. */
  _pair(name, number, firstName, first, secondName, second) {
    this._checkWord(name, firstName, first);
    this._checkWord(name, secondName, second);
    const at = this._claim(name, 12);
    const words = this._words;
    words[at] = number;
    words[at + 1] = first;
    words[at + 2] = second;
    words[0] += 12;
    return at * kWordBytes;
  }

  _failRoom(name, bytes) {
    const { _label: label, used } = this;
    const capacity = this._words.length * kWordBytes - kWordBytes;
    if ((used & 3) !== 0 || used > capacity) {
      const trouble = `the first word is ${used}, not a valid length of a stream of ${capacity} bytes`;
      throw new RangeError(`${label}.${name}: ${trouble}: clear it.`);
    }
    const room = `the stream has room for ${capacity - used} of its ${capacity}`;
    throw new RangeError(`${label}.${name}: ${bytes} bytes do not fit, ${room}: ${this._cure}.`);
  }
}

/**
 * Where a value is: a block of shared memory, by the `memoryID` of the object that owns it, and a byte offset in it,
 * of any alignment.
 * @readonly
 * @typedef {Object} Operand
 * @property {HandleLike<MemoryID>} memoryID The block: `memoryID` of the object that owns it.
 * @property {number} offset Byte offset in the block, of any alignment.
 */

/**
 * Overloads: operands as objects, or as pairs of numbers.
 * @private
 * @typedef {{
 *   (d: Operand, s: Operand): number;
 *   (dID: HandleLike<MemoryID>, dOffset: number, sID: HandleLike<MemoryID>, sOffset: number): number;
 * }} CopyOperands
 */

/**
 * The same, the source first.
 * @private
 * @typedef {{
 *   (s: Operand, d: Operand): number;
 *   (sID: HandleLike<MemoryID>, sOffset: number, dID: HandleLike<MemoryID>, dOffset: number): number;
 * }} InvertOperands
 */

/**
 * The same for inputs A and B and a result.
 * @private
 * @typedef {{
 *   (a: Operand, b: Operand, r: Operand): number;
 *   (
 *     aID: HandleLike<MemoryID>,
 *     aOffset: number,
 *     bID: HandleLike<MemoryID>,
 *     bOffset: number,
 *     rID: HandleLike<MemoryID>,
 *     rOffset: number
 *   ): number;
 * }} ThreeOperands
 */

function failOperands(label, names, operands) {
  names.forEach((name, i) => {
    if (!isObject(operands[i])) {
      const cure = 'give { memoryID, offset }, or all operands as pairs of numbers';
      throw new TypeError(`${label}: operand ${name} is ${show(operands[i])}: ${cure}.`);
    }
  });
}

/** Throws for an operand whose memoryID or offset is not a 32-bit word. */
function failReference(label, name, memoryID, offset) {
  if (memoryID >>> 0 !== memoryID) {
    failWord(label, `memoryID of operand ${name}`, memoryID);
  }
  failWord(label, `offset of operand ${name}`, offset);
}

/**
 * Writer of commands whose operands refer to values. A method takes each as an object, or all as pairs of numbers.
 * @private
 * @extends {StreamWriter<Pick<EngineMatrixFlowCommandBuffer, 'buffer'>>}
 */
class OperandWriter extends StreamWriter {
  constructor(label, commandBuffer, words, cure) {
    super(label, commandBuffer, words, cure);
    /** Bytes by memoryID, for bounds checks of operands, or null. */
    this._blockSizes = null;
  }

  _checkBlock(name, operand, memoryID, offset, bytes) {
    const size = this._blockSizes.get(memoryID);
    if (size !== undefined && offset + bytes > size) {
      const value = `operand ${operand}: ${bytes} bytes at offset ${offset}`;
      const cure = bytes > size ? 'use a larger block' : `give an offset from 0 to ${size - bytes}`;
      throw new RangeError(
        `${this._label}.${name}: ${value} do not fit block ${memoryID} of ${size}: ${cure}.`
      );
    }
  }

  _two(name, type, bytes, names, first, second, third, fourth) {
    if (typeof first !== 'number') {
      if (!isObject(first) || !isObject(second)) {
        failOperands(`${this._label}.${name}`, names, [first, second]);
      }
      third = second.memoryID;
      fourth = second.offset;
      second = first.offset;
      first = first.memoryID;
    }
    this._checkTwo(name, bytes, names, first, second, third, fourth);
    const at = this._claim(name, 20);
    const words = this._words;
    words[at] = type;
    words[at + 1] = first;
    words[at + 2] = second;
    words[at + 3] = third;
    words[at + 4] = fourth;
    words[0] += 20;
    return at * kWordBytes;
  }

  _checkTwo(name, bytes, names, firstID, firstAt, secondID, secondAt) {
    if (firstID >>> 0 !== firstID || firstAt >>> 0 !== firstAt) {
      failReference(`${this._label}.${name}`, names[0], firstID, firstAt);
    }
    if (secondID >>> 0 !== secondID || secondAt >>> 0 !== secondAt) {
      failReference(`${this._label}.${name}`, names[1], secondID, secondAt);
    }
    if (this._blockSizes !== null) {
      this._checkBlock(name, names[0], firstID, firstAt, bytes);
      this._checkBlock(name, names[1], secondID, secondAt, bytes);
    }
  }

  // Small, so that the compiler inlines it.
  _three(name, type, bytes, a, b, r, bAt, rID, rAt) {
    return typeof a === 'number'
      ? this._put(name, type, bytes, a, b, r, bAt, rID, rAt)
      : this._putObjects(name, type, bytes, a, b, r);
  }

  _putObjects(name, type, bytes, a, b, r) {
    if (!isObject(a) || !isObject(b) || !isObject(r)) {
      failOperands(`${this._label}.${name}`, ['A', 'B', 'R'], [a, b, r]);
    }
    const { memoryID: aID, offset: aAt } = a;
    const { memoryID: bID, offset: bAt } = b;
    return this._put(name, type, bytes, aID, aAt, bID, bAt, r.memoryID, r.offset);
  }

  _put(name, type, bytes, aID, aAt, bID, bAt, rID, rAt) {
    if (aID >>> 0 !== aID || aAt >>> 0 !== aAt) {
      failReference(`${this._label}.${name}`, 'A', aID, aAt);
    }
    if (bID >>> 0 !== bID || bAt >>> 0 !== bAt) {
      failReference(`${this._label}.${name}`, 'B', bID, bAt);
    }
    if (rID >>> 0 !== rID || rAt >>> 0 !== rAt) {
      failReference(`${this._label}.${name}`, 'R', rID, rAt);
    }
    if (this._blockSizes !== null) {
      this._checkBlock(name, 'A', aID, aAt, bytes);
      this._checkBlock(name, 'B', bID, bAt, bytes);
      this._checkBlock(name, 'R', rID, rAt, bytes);
    }
    const at = this._claim(name, 28);
    const words = this._words;
    words[at] = type;
    words[at + 1] = aID;
    words[at + 2] = aAt;
    words[at + 3] = bID;
    words[at + 4] = bAt;
    words[at + 5] = rID;
    words[at + 6] = rAt;
    words[0] += 28;
    return at * kWordBytes;
  }
}

module.exports = {
  OperandWriter,
  StreamWriter,
  copyNames,
  failOperands,
  invertNames,
  streamWords,
};
