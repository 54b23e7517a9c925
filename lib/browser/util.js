'use strict';
// Instead of Node.js's: tests of kinds that no property of a value can deceive.

const byteLengthOf = Object.getOwnPropertyDescriptor(ArrayBuffer.prototype, 'byteLength').get;
const offsetOf = Object.getOwnPropertyDescriptor(DataView.prototype, 'byteOffset').get;
const bufferOf = Object.getOwnPropertyDescriptor(DataView.prototype, 'buffer').get;

/** Whether a getter accepts a value as its receiver. */
function accepts(getter, value) {
  try {
    getter.call(value);
    return true;
  } catch (error) {
    return false;
  }
}

const types = {
  isArrayBuffer: (value) => accepts(byteLengthOf, value),
  /** Of a detached buffer, too. */
  isDataView: (value) => accepts(bufferOf, value) || accepts(offsetOf, value),
  /** Scripts can't know. */
  isProxy: () => false,
};

module.exports = { types };
