'use strict';
// A block of an engine in WebAssembly: a range of the one memory that holds everything. And the bytes of arguments, which
// may be blocks, buffers and views.

function failAsArray() {
  const found = 'a block of nq_logic/wasm is not an ArrayBuffer, and has no elements';
  throw new TypeError(
    `${found}: use its typed arrays f32, u32 and u8, or new DataView(block.buffer, block.byteOffset, block.byteLength).`
  );
}

/**
 * A block of memory that JavaScript and native code share, where the engine runs in WebAssembly: a range of the
 * memory that holds all blocks. Pass it where the native module takes an `ArrayBuffer`.
 *
 * It is no `ArrayBuffer` itself, and code that takes it for one fails: `new Float32Array(block)` throws.
 *
 * **Use the typed arrays as long as the block's object**: when that is garbage-collected or disposed of, the memory is
 * used for something else. The block keeps its object alive; the typed arrays do not.
 */
/** All blocks: proxies of them are none. */
const blocks = new WeakSet();

class Block {
  /**
   * @param {ArrayBuffer} buffer the whole memory
   * @param {number} byteOffset
   * @param {number} byteLength
   * @param {?Object} owner what the block keeps alive
   * @hidden
   */
  constructor(buffer, byteOffset, byteLength, owner) {
    /**
     * The memory of the whole engine.
     * @type {ArrayBuffer}
     * @readonly
     */
    this.buffer = buffer;
    /**
     * Where the block starts in it.
     * @type {number}
     * @readonly
     */
    this.byteOffset = byteOffset;
    /**
     * Bytes of the block.
     * @type {number}
     * @readonly
     */
    this.byteLength = byteLength;
    this._owner = owner;
    this._u8 = null;
    this._u32 = null;
    this._f32 = null;
    blocks.add(this);
  }

  /**
   * The block as bytes.
   * @type {Uint8Array}
   */
  get u8() {
    if (this._u8 === null) {
      this._u8 = new Uint8Array(this.buffer, this.byteOffset, this.byteLength);
    }
    return this._u8;
  }

  /**
   * The block as words, without an incomplete last one.
   * @type {Uint32Array}
   */
  get u32() {
    if (this._u32 === null) {
      this._u32 = new Uint32Array(this.buffer, this.byteOffset, Math.floor(this.byteLength / 4));
    }
    return this._u32;
  }

  /**
   * The same as floats.
   * @type {Float32Array}
   */
  get f32() {
    if (this._f32 === null) {
      this._f32 = new Float32Array(this.buffer, this.byteOffset, Math.floor(this.byteLength / 4));
    }
    return this._f32;
  }
}

// What constructors of typed arrays, spreads and loops over elements read first.
Object.defineProperty(Block.prototype, Symbol.iterator, { get: failAsArray });
Object.defineProperty(Block.prototype, 'length', { get: failAsArray });

function isBlock(value) {
  return blocks.has(value);
}

const kNoBytes = new Uint8Array(0);

/** Arrays over arguments. Calls of a frame allocate nothing. */
const arrays = new WeakMap();

const getterOf = (type, name) => Object.getOwnPropertyDescriptor(type, name).get;
const gettersOf = (type) => ({
  buffer: getterOf(type, 'buffer'),
  byteOffset: getterOf(type, 'byteOffset'),
  byteLength: getterOf(type, 'byteLength'),
});
const ofArrays = gettersOf(Object.getPrototypeOf(Uint8Array.prototype));
const ofViews = gettersOf(DataView.prototype);
const byteLengthOf = getterOf(ArrayBuffer.prototype, 'byteLength');

/** Bytes of a buffer or a view, none if it is detached. Own properties of the value are not read. */
function lengthOf(value, isView) {
  if (!isView) {
    return byteLengthOf.call(value);
  }
  try {
    const getters = value instanceof DataView ? ofViews : ofArrays;
    return getters.byteLength.call(value);
  } catch (error) {
    // A DataView of a detached buffer.
    return 0;
  }
}

/**
 * The bytes of an argument, without copying.
 * @param {ArrayBuffer | ArrayBufferView | Block} value
 * @returns {Uint8Array} the same one while the value stays as it is
 */
function bytesOf(value) {
  if (isBlock(value)) {
    return value.u8;
  }
  const isView = ArrayBuffer.isView(value);
  const length = lengthOf(value, isView);
  if (length === 0) {
    return kNoBytes;
  }
  let bytes = arrays.get(value);
  if (bytes === undefined || bytes.byteLength !== length) {
    if (isView) {
      const { buffer, byteOffset } = value instanceof DataView ? ofViews : ofArrays;
      bytes = new Uint8Array(buffer.call(value), byteOffset.call(value), length);
    } else {
      bytes = new Uint8Array(value);
    }
    arrays.set(value, bytes);
  }
  return bytes;
}

module.exports = { Block, bytesOf, isBlock };
