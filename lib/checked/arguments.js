'use strict';
// Checks of single arguments. Error messages name the call, the argument, its value, and what to pass instead.
const { blockBytes, dataViewOf, isBlock } = require('../block-bytes');
const { types } = require('util');

const kLargestU32 = 0xffffffff;

/**
 * Reads an internal property of a built-in class, as native code sees it. JavaScript can define properties of the
 * same name on an object, or on a derived class.
 */
function getterOf(type, name) {
  const { get } = Object.getOwnPropertyDescriptor(type.prototype, name);
  return (object) => get.call(object);
}

function rangeGetters(type) {
  return ['buffer', 'byteOffset', 'byteLength'].map((name) => getterOf(type, name));
}

/** Bytes of an ArrayBuffer; 0 for a detached one. */
const byteLengthOf = getterOf(ArrayBuffer, 'byteLength');
const typedArrayGetters = rangeGetters(Object.getPrototypeOf(Uint8Array));
const dataViewGetters = rangeGetters(DataView);

/** Name of the class of an object's prototype: on newer hosts the only way to identify native objects. */
function constructorNameOf(value) {
  const prototype = types.isProxy(value) ? null : Object.getPrototypeOf(value);
  const own = prototype && Object.getOwnPropertyDescriptor(prototype, 'constructor');
  const name = own && typeof own.value === 'function' ? own.value.name : '';
  return typeof name === 'string' && name !== '' ? name : 'Object';
}

/** Name of the class that an object claims to be of; getters of some objects throw. */
function classOf(value) {
  try {
    if (Array.isArray(value)) {
      return 'Array';
    }
    const tag = Object.prototype.toString.call(value).slice(8, -1);
    return tag === 'Object' ? constructorNameOf(value) : tag;
  } catch (error) {
    return 'Object';
  }
}

/** Formats a value for a message. */
function show(value) {
  if (typeof value === 'string') {
    return `'${value}'`;
  }
  if (typeof value === 'bigint') {
    return `the BigInt ${value}`;
  }
  if (typeof value === 'function') {
    return 'a function';
  }
  if (typeof value !== 'object' || value === null) {
    return Object.is(value, -0) ? '-0' : String(value);
  }
  const name = classOf(value);
  if (name === 'Array' || name === 'Object') {
    return `an ${name.toLowerCase()}`;
  }
  return `${/^[AEIOU]/.test(name) && !/^Uint/.test(name) ? 'an' : 'a'} ${name}`;
}

/** Throws unless `value` is a number. */
function checkNumber(call, name, value) {
  if (typeof value !== 'number') {
    throw new TypeError(`${call}: ${name} is ${show(value)}: give a number.`);
  }
}

/**
 * Throws unless `value` is a whole number within bounds.
 * @param {string} [note] follows the bounds in the message
 */
function checkWhole(call, name, value, least = 0, most = kLargestU32, note = '') {
  const cure = `give a whole number from ${least} to ${most}${note}`;
  if (typeof value !== 'number') {
    throw new TypeError(`${call}: ${name} is ${show(value)}, not a number: ${cure}.`);
  }
  if (!Number.isInteger(value) || value < least || value > most) {
    throw new RangeError(`${call}: ${name} is ${show(value)}: ${cure}.`);
  }
}

/** Throws for a block of more bytes than 32 bits can count: sizes wrap there. */
function checkBlockBytes(call, what, bytes) {
  if (bytes > kLargestU32) {
    const found = `${what} would take ${bytes} bytes, and a block has at most ${kLargestU32}`;
    throw new RangeError(`${call}: ${found}: split it into several.`);
  }
}

/** Returns a DataView, or throws if its buffer is detached. */
function viewOf(call, name, getRange) {
  try {
    // A DataView of a detached buffer would not throw.
    const { buffer, byteOffset, byteLength } = new Uint8Array(...getRange());
    return new DataView(buffer, byteOffset, byteLength);
  } catch (error) {
    const trouble = 'is a detached ArrayBuffer, or a view of one';
    throw new RangeError(`${call}: ${name} ${trouble}: give one that was not transferred.`);
  }
}

/**
 * The bytes of an ArrayBuffer, where native code accepts nothing else.
 * @returns {DataView}
 */
function bytesOfBuffer(call, name, value) {
  if (!isBlock(value)) {
    const cure = ArrayBuffer.isView(value)
      ? 'give an ArrayBuffer: the "buffer" of the view, if the view covers all of it'
      : 'give an ArrayBuffer';
    const trouble = `${name} is ${show(value)}, and only an ArrayBuffer is accepted`;
    throw new TypeError(`${call}: ${trouble}: ${cure}.`);
  }
  if (!types.isArrayBuffer(value)) {
    return dataViewOf({ block: value });
  }
  return viewOf(call, name, () => [value]);
}

/**
 * The bytes of an ArrayBuffer or of a view.
 * @returns {DataView}
 */
function bytesOfData(call, name, value) {
  if (!ArrayBuffer.isView(value)) {
    if (!isBlock(value)) {
      const trouble = `${name} is ${show(value)}, which holds no bytes for native code`;
      throw new TypeError(`${call}: ${trouble}: give an ArrayBuffer or a view of one.`);
    }
    return bytesOfBuffer(call, name, value);
  }
  const getters = types.isDataView(value) ? dataViewGetters : typedArrayGetters;
  return viewOf(call, name, () => getters.map((get) => get(value)));
}

/** Copies bytes. `slice` would read the array's constructor, which JavaScript can replace. */
function copyOfBytes(bytes) {
  const copy = new Uint8Array(bytes.length);
  copy.set(bytes);
  return copy.buffer;
}

/** Copies a block. */
function copyOfBuffer(buffer) {
  return copyOfBytes(blockBytes(buffer));
}

/**
 * Reads a count and that many words after it.
 * @param {DataView} bytes
 * @returns {number[]} the words
 */
function readCounted(call, name, bytes, least) {
  const size = bytes.byteLength;
  if (size < 4) {
    const trouble = `${name} has ${size} bytes, and the count alone takes 4`;
    throw new RangeError(`${call}: ${trouble}: give a count and that many handles.`);
  }
  const count = bytes.getUint32(0, true);
  const room = Math.floor(size / 4) - 1;
  if (count < least || count > room) {
    const trouble = `the count of ${name} is ${count}, and its ${size} bytes hold ${room} handles`;
    const cure =
      room < least
        ? 'give at least one handle'
        : `give a count from ${least} to ${room}, or more handles`;
    throw new RangeError(`${call}: ${trouble}: ${cure}.`);
  }
  const words = [];
  for (let i = 1; i <= count; ++i) {
    words.push(bytes.getUint32(4 * i, true));
  }
  return words;
}

module.exports = {
  byteLengthOf,
  bytesOfBuffer,
  bytesOfData,
  checkBlockBytes,
  checkNumber,
  checkWhole,
  copyOfBuffer,
  copyOfBytes,
  readCounted,
  show,
};
