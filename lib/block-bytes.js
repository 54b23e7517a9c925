'use strict';
// Access to the bytes of a block. All of the library gets blocks through here, so that a block may be an ArrayBuffer of
// its own, as native code creates them, or a range of a larger buffer that holds many, as in WebAssembly.
const { isArrayBuffer, isInstance, isObject, lengthOfBuffer, show } = require('./value-checks');
const { Block } = require('./wasm/block');

const kWordBytes = 4;

/**
 * A range of a buffer. Every typed array is such an object.
 * @typedef {Object} BlockBytes
 * @property {ArrayBuffer} buffer the whole buffer
 * @property {number} byteOffset start of the block in it
 * @property {number} byteLength size of the block
 */

/**
 * The block of an object of an engine.
 * @param {Object} object
 * @returns {*} an ArrayBuffer, or a {@link Block} where the engine runs in WebAssembly; undefined if it has none
 */
function blockOf(object) {
  const { block } = object;
  return isInstance(block, Block) ? block : object.buffer;
}

/**
 * What lives as long as the memory of a block: its buffer, or the block itself where the buffer holds many.
 * @param {*} block
 * @param {BlockBytes} bytes of it
 * @returns {Object}
 */
function keyOf(block, bytes) {
  return isInstance(block, Block) ? block : bytes.buffer;
}

/**
 * The bytes of a block.
 * @param {string} label for messages
 * @param {*} block an ArrayBuffer, or a range of a larger one that starts at a multiple of 4
 * @returns {?BlockBytes} null for any other value
 */
function bytesOf(label, block) {
  if (isArrayBuffer(block)) {
    return { buffer: block, byteOffset: 0, byteLength: lengthOfBuffer(block) };
  }
  if (isInstance(block, Block)) {
    return block;
  }
  let bytes = null;
  try {
    const { buffer, byteOffset, byteLength } = isObject(block) ? block : {};
    bytes = { buffer, byteOffset, byteLength };
  } catch (error) {
    return null; // a revoked proxy
  }
  const { buffer, byteOffset, byteLength } = bytes;
  if (!isArrayBuffer(buffer)) {
    return null;
  }
  if (byteOffset >>> 0 !== byteOffset || byteOffset % kWordBytes !== 0) {
    const found = `its block starts at byte ${show(byteOffset)} of a buffer`;
    throw new RangeError(`${label}: ${found}: give one that starts at a multiple of 4.`);
  }
  if (byteLength >>> 0 !== byteLength || byteOffset + byteLength > buffer.byteLength) {
    const found = `its block of ${show(byteLength)} bytes starts at byte ${byteOffset} of a buffer`;
    throw new RangeError(`${label}: ${found} of ${buffer.byteLength}: give one within it.`);
  }
  return bytes;
}

/**
 * A block as words, without an incomplete last one.
 * @param {BlockBytes} bytes
 * @returns {Uint32Array}
 */
function wordsOf({ buffer, byteOffset, byteLength }) {
  return new Uint32Array(buffer, byteOffset, Math.floor(byteLength / kWordBytes));
}

/**
 * The same as floats.
 * @param {BlockBytes} bytes
 * @returns {Float32Array}
 */
function floatsOf({ buffer, byteOffset, byteLength }) {
  return new Float32Array(buffer, byteOffset, Math.floor(byteLength / kWordBytes));
}

/** The bytes of what a program passes: a block, or the object that has one. */
function givenBytes(label, given) {
  const isRange = isObject(given) && typeof given.byteLength === 'number';
  const found = isObject(given) ? bytesOf(label, isRange ? given : blockOf(given)) : null;
  if (found === null) {
    const cure = "give an object of an engine with a block, or one of the engine's buffers";
    throw new TypeError(`${label}: got ${show(given)}, without memory: ${cure}.`);
  }
  return found;
}

/**
 * What has a block: an object of an engine, or one of the engine's own buffers, such as `engine.dirtyEntities`.
 * @typedef {import('../types/engine').SharedBlock | ArrayBuffer | BlockBytes} BlockOwner
 */

/**
 * A new typed array over a block, for programs that work on bytes of their own. It works on the native module, where
 * a block is an ArrayBuffer, and in WebAssembly, where it is a range of the engine's memory. It does not keep the
 * object alive.
 * @param {BlockOwner} owner
 * @returns {Uint8Array}
 */
function blockBytes(owner) {
  const { buffer, byteOffset, byteLength } = givenBytes('blockBytes', owner);
  return new Uint8Array(buffer, byteOffset, byteLength);
}

/**
 * The same as 32-bit words, without an incomplete last one.
 * @param {BlockOwner} owner
 * @returns {Uint32Array}
 */
function blockWords(owner) {
  return wordsOf(givenBytes('blockWords', owner));
}

/**
 * The same as floats.
 * @param {BlockOwner} owner
 * @returns {Float32Array}
 */
function blockFloats(owner) {
  return floatsOf(givenBytes('blockFloats', owner));
}

/**
 * All bytes of an object's block, for reading fields of any size.
 * @param {Object} object
 * @returns {DataView}
 */
function dataViewOf(object) {
  const { buffer, byteOffset, byteLength } = bytesOf('dataViewOf', blockOf(object));
  return new DataView(buffer, byteOffset, byteLength);
}

/** True for what native code takes as an ArrayBuffer: one, or a block of an engine in WebAssembly. */
function isBlock(value) {
  return isInstance(value, Block) || isArrayBuffer(value);
}

module.exports = {
  blockBytes,
  blockFloats,
  blockOf,
  blockWords,
  bytesOf,
  dataViewOf,
  floatsOf,
  isBlock,
  keyOf,
  wordsOf,
};
