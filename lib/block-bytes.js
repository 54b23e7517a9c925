'use strict';
// Access to the bytes of a block. Views and writers of an engine's objects get blocks through here, so that a block may
// be an ArrayBuffer of its own, as native code creates them, or a range of a larger buffer that holds many. Checked
// mode wraps a native engine, whose blocks are always ArrayBuffers.
const { isArrayBuffer, isObject, show } = require('./value-checks');

const kWordBytes = 4;

/**
 * A range of a buffer. Every typed array is such an object.
 * @typedef {Object} BlockBytes
 * @property {ArrayBuffer} buffer the whole buffer
 * @property {number} byteOffset start of the block in it
 * @property {number} byteLength size of the block
 */

/**
 * The bytes of a block.
 * @param {string} label for messages
 * @param {*} block an ArrayBuffer, or a range of a larger one that starts at a multiple of 4
 * @returns {?BlockBytes} null for any other value
 */
function bytesOf(label, block) {
  if (isArrayBuffer(block)) {
    return { buffer: block, byteOffset: 0, byteLength: block.byteLength };
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

module.exports = { bytesOf, floatsOf, wordsOf };
