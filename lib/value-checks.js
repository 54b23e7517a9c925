'use strict';
// Checks of values for writers, views and clips, with readable errors. Checks are small, so that the compiler inlines
// them; messages are built only on failure.

const kLargestU32 = 0xffffffff;

const byteLengthOf = Object.getOwnPropertyDescriptor(ArrayBuffer.prototype, 'byteLength').get;
const bufferOf = Object.getOwnPropertyDescriptor(
  Object.getPrototypeOf(Uint8Array.prototype),
  'buffer'
).get;

/** `Array.isArray`, but false for a revoked proxy, for which that throws. */
function isArray(value) {
  try {
    return Array.isArray(value);
  } catch (error) {
    return false;
  }
}

/** `instanceof`, but false for a revoked proxy, for which that throws. */
function isInstance(value, type) {
  try {
    return value instanceof type;
  } catch (error) {
    return false;
  }
}

/** Formats a value for a message. Runs no code of the value. */
function show(value) {
  if (typeof value === 'string') {
    return `'${value}'`;
  }
  if (isArray(value)) {
    return 'an array';
  }
  if (typeof value === 'function') {
    return 'a function';
  }
  if (typeof value === 'object' && value !== null) {
    return 'an object';
  }
  return Object.is(value, -0) ? '-0' : String(value);
}

function isObject(value) {
  return typeof value === 'object' && value !== null;
}

/** True for array buffers of any realm, whatever their own properties. */
function isArrayBuffer(value) {
  try {
    byteLengthOf.call(value);
    return true;
  } catch (error) {
    return false;
  }
}

/** Throws for a value that is not a 32-bit word. */
function failWord(label, name, value) {
  const cure = `give a whole number from 0 to ${kLargestU32}`;
  if (typeof value !== 'number') {
    throw new TypeError(`${label}: ${name} is ${show(value)}, not a number: ${cure}.`);
  }
  throw new RangeError(`${label}: ${name} is ${value}: ${cure}.`);
}

/** True for a typed array whose buffer was transferred. */
function isDetached(array) {
  try {
    new Uint8Array(bufferOf.call(array));
    return false;
  } catch (error) {
    return true;
  }
}

/** Throws unless `handles` is a Uint32Array or an array of words. */
function checkHandles(label, name, handles) {
  if (ArrayBuffer.isView(handles) && handles instanceof Uint32Array) {
    if (handles.length === 0 && isDetached(handles)) {
      const trouble = 'is a view of a detached ArrayBuffer';
      throw new RangeError(`${label}: ${name} ${trouble}: give one that was not transferred.`);
    }
    return;
  }
  if (!isArray(handles)) {
    const cure = 'give a Uint32Array or an array of handles';
    throw new TypeError(`${label}: ${name} is ${show(handles)}: ${cure}.`);
  }
  for (let i = 0; i < handles.length; ++i) {
    if (handles[i] >>> 0 !== handles[i]) {
      failWord(label, `${name}[${i}]`, handles[i]);
    }
  }
}

/** Objects that are kept alive for their shapes (hidden classes). */
const kept = [];

/**
 * Keeps an unused object of a class with hot methods alive. When the last object of a shape is collected, V8 discards
 * the optimised code for it, and does not optimise as well for the next one: in a program that drops its writers and
 * views between levels, those of the second level would be many times slower.
 */
function keepShape(object) {
  kept.push(object);
}

/** Bytes of an ArrayBuffer, whatever its own properties. */
function lengthOfBuffer(buffer) {
  return byteLengthOf.call(buffer);
}

module.exports = {
  checkHandles,
  failWord,
  isArray,
  isArrayBuffer,
  isInstance,
  lengthOfBuffer,
  isObject,
  kLargestU32,
  keepShape,
  show,
};
