'use strict';
// What writers, views and clips ask of a value, and how they complain of one in words. Checks are small, so
// that they are compiled into their callers; texts are made where they fail.

const kLargestU32 = 0xffffffff;

const byteLengthOf = Object.getOwnPropertyDescriptor(ArrayBuffer.prototype, 'byteLength').get;

/** `Array.isArray`, and false for a revoked proxy, about which that throws. */
function isArray(value) {
  try {
    return Array.isArray(value);
  } catch (error) {
    return false;
  }
}

/** `instanceof`, and false for a revoked proxy, about which that throws. */
function isInstance(value, type) {
  try {
    return value instanceof type;
  } catch (error) {
    return false;
  }
}

/** A value in a message. Runs no code of the value. */
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

/** True for array buffers of any realm, whatever properties they have. */
function isArrayBuffer(value) {
  try {
    byteLengthOf.call(value);
    return true;
  } catch (error) {
    return false;
  }
}

/** Throws for what is no 32-bit word. */
function failWord(label, name, value) {
  const cure = `give a whole number from 0 to ${kLargestU32}`;
  if (typeof value !== 'number') {
    throw new TypeError(`${label}: ${name} is ${show(value)}, not a number: ${cure}.`);
  }
  throw new RangeError(`${label}: ${name} is ${value}: ${cure}.`);
}

/** Throws unless there are handles: a Uint32Array, or an array of words. */
function checkHandles(label, name, handles) {
  if (ArrayBuffer.isView(handles) && handles instanceof Uint32Array) {
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

/** Objects that are kept for the shapes that they have. */
const kept = [];

/**
 * Keeps an object, never used, of a class whose methods run often. With the last object of a shape the host
 * throws away the code that it has compiled for it, and makes no good code for the next one: a program
 * that drops its writers and views between levels would find those of the second level many times slower.
 */
function keepShape(object) {
  kept.push(object);
}

module.exports = {
  checkHandles,
  failWord,
  isArray,
  isArrayBuffer,
  isInstance,
  isObject,
  kLargestU32,
  keepShape,
  show,
};
