'use strict';
// Typed arrays over blocks, natively and in WebAssembly, independent of the library.

/**
 * @param {Function} Type a class of typed arrays, or DataView
 * @param {Object} owner an object of an engine, or one of the engine's own buffers
 */
function over(Type, owner) {
  if (owner instanceof ArrayBuffer) {
    return new Type(owner);
  }
  const range = owner.block || (owner.byteLength === undefined ? owner.buffer : owner);
  if (range instanceof ArrayBuffer) {
    return new Type(range);
  }
  const unit = Type.BYTES_PER_ELEMENT || 1;
  return new Type(range.buffer, range.byteOffset, Math.floor(range.byteLength / unit));
}

module.exports = { over };
