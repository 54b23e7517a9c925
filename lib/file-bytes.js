'use strict';
// Bytes of files, in Node.js and in browsers.
const { isInstance } = require('./value-checks');

/** Of Node.js; undefined in browsers. */
const { Buffer: NodeBuffer } = globalThis;

/** Whether a value is a SharedArrayBuffer, a class that browsers hide from most pages. */
function isSharedBuffer(value) {
  return typeof SharedArrayBuffer === 'function' && isInstance(value, SharedArrayBuffer);
}

/** The bytes of a buffer or a view, in place. */
function bytesOf(source) {
  return ArrayBuffer.isView(source)
    ? new Uint8Array(source.buffer, source.byteOffset, source.byteLength)
    : new Uint8Array(source);
}

/** Four bytes as a number, little-endian; in range. */
function wordAt(bytes, at) {
  return (bytes[at] | (bytes[at + 1] << 8) | (bytes[at + 2] << 16) | (bytes[at + 3] << 24)) >>> 0;
}

/** Text in UTF-8, without a byte order mark. What is no UTF-8 becomes U+FFFD. */
function textOf(bytes) {
  if (NodeBuffer !== undefined) {
    const text = NodeBuffer.from(bytes.buffer, bytes.byteOffset, bytes.byteLength).toString('utf8');
    return text.replace(/^\ufeff/, '');
  }
  // Browsers decode no shared memory.
  return new TextDecoder().decode(isSharedBuffer(bytes.buffer) ? Uint8Array.from(bytes) : bytes);
}

/** The bytes of a text in base64; none of one that is not in base64, in browsers. */
function bytesOfBase64(text) {
  if (NodeBuffer !== undefined) {
    return NodeBuffer.from(text, 'base64');
  }
  try {
    // Node.js takes the alphabet of addresses, too.
    const plain = text.replace(/-/g, '+').replace(/_/g, '/');
    return Uint8Array.from(atob(plain), (character) => character.charCodeAt(0));
  } catch (error) {
    return new Uint8Array(0);
  }
}

module.exports = { bytesOf, bytesOfBase64, isSharedBuffer, textOf, wordAt };
