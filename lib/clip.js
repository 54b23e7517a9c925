'use strict';
// Animation clips as bytes: writes and reads the argument of createDataModel(1, bytes). docs/layouts.md describes
// the format.
const { isSharedBuffer } = require('./file-bytes');
const { sampleTypes } = require('./layout');
const { isArray, isInstance, isObject, kLargestU32, show } = require('./value-checks');

const kHeaderBytes = 16;
const kCurveBytes = 12;
const kKeyBytes = 16;
const kNoFrame = -1;

/** Name of each sample type, by number. */
const typeNames = [];
for (const name of Object.keys(sampleTypes)) {
  typeNames[sampleTypes[name]] = name;
}

/**
 * The out-tangent of a key whose value holds until the next key: infinity.
 * @type {number}
 */
const stepTangent = Infinity;

/**
 * What the keys of a curve drive: one of {@link sampleTypes}.
 * @typedef {(typeof sampleTypes)[keyof typeof sampleTypes]} SampleType
 */

/**
 * A key of a curve.
 * @typedef {Object} Key
 * @property {number} frame A whole number, from 0.
 * @property {number} value Units, radians for Euler angles, parts of a quaternion; a finite float.
 * @property {number} inTangent Slope arriving at the key, in value units per second.
 * @property {number} outTangent Slope leaving it, in value units per second, or {@link stepTangent}.
 */

/**
 * Keys as columns of one length, for much data.
 * @readonly
 * @typedef {Object} KeyColumns
 * @property {Uint32Array} frames Whole numbers, rising.
 * @property {Float32Array} values Units, radians for Euler angles, parts of a quaternion.
 * @property {Float32Array} inTangents Slopes arriving at the keys, in value units per second.
 * @property {Float32Array} outTangents Slopes leaving them, in value units per second, or {@link stepTangent}.
 */

/**
 * A curve of a clip.
 * @template [Keys=ReadonlyArray<Readonly<Key>> | KeyColumns] how its keys are given
 * @typedef {Object} Curve
 * @property {number} target Index of what it moves; the targets of a clip run from 0 without gaps.
 * @property {SampleType} type Channel of the target. A target turns either by its Euler angles or by its quaternion, which then
 *   has w.
 * @property {Keys} keys By rising frame; two may share a frame, where the value jumps. May be empty.
 */

/**
 * A clip.
 * @template [Keys=ReadonlyArray<Readonly<Key>> | KeyColumns] how the keys of its curves are given
 * @typedef {Object} Clip
 * @property {string} [name] For messages only; the bytes don't hold it.
 * @property {number} framesPerSecond A whole number, from 1: the engine would drop a fraction.
 * @property {number} frameCount Frame at which sampling wraps to frame 0, from 1; keys may be beyond it.
 * @property {Curve<Keys>[]} curves In any order; several of one target and type are taken as one.
 */

function clipLabel(name) {
  return name === undefined ? 'clip' : `clip '${name}'`;
}

function checkName(name) {
  if (name !== undefined && typeof name !== 'string') {
    throw new TypeError(`clip: name is ${show(name)}: give a string, or leave it out.`);
  }
}

function curveLabel(clip, index, { target, type }) {
  return `${clip}, curve ${index} (target ${show(target)}, ${typeNames[type] || show(type)})`;
}

/** Throws unless a property is a whole number from `least` to the largest of 32 bits. */
function checkWhole(label, property, value, least) {
  const cure = `give a whole number from ${least} to ${kLargestU32}.`;
  if (typeof value !== 'number') {
    throw new TypeError(`${label}: ${property} is ${show(value)}, not a number: ${cure}`);
  }
  if (!Number.isInteger(value) || value < least || value > kLargestU32) {
    throw new RangeError(`${label}: ${property} is ${show(value)}: ${cure}`);
  }
}

/** Throws unless a property of a key is a number that is finite as a float. */
function checkFloat(label, property, value) {
  if (typeof value !== 'number') {
    throw new TypeError(`${label}: ${property} is ${show(value)}: give a number.`);
  }
  if (Number.isFinite(Math.fround(value))) {
    return;
  }
  if (property !== 'outTangent') {
    const trouble = Number.isFinite(value) ? 'too large for a float' : 'not finite';
    throw new RangeError(`${label}: ${property} is ${value}, ${trouble}: give a finite number.`);
  }
  if (Number.isNaN(value) || Number.isFinite(value)) {
    const trouble = Number.isNaN(value) ? 'not a number' : 'too large for a float';
    const cure = 'give a finite slope, or stepTangent for a step';
    throw new RangeError(`${label}: outTangent is ${value}, ${trouble}: ${cure}.`);
  }
}

function isColumns(keys) {
  return !isArray(keys);
}

/** Throws unless the keys of a curve are an array, or columns of one length; returns their number. */
function checkKeyContainer(label, keys) {
  if (isArray(keys)) {
    return keys.length;
  }
  if (!isObject(keys)) {
    const cure = 'give an array of keys, or { frames, values, inTangents, outTangents }';
    throw new TypeError(`${label}: keys is ${show(keys)}: ${cure}.`);
  }
  if (!isInstance(keys.frames, Uint32Array)) {
    throw new TypeError(`${label}: keys.frames is ${show(keys.frames)}: give a Uint32Array.`);
  }
  for (const property of ['values', 'inTangents', 'outTangents']) {
    const column = keys[property];
    if (!isInstance(column, Float32Array)) {
      throw new TypeError(`${label}: keys.${property} is ${show(column)}: give a Float32Array.`);
    }
    if (column.length !== keys.frames.length) {
      const lengths = `${column.length} elements and keys.frames ${keys.frames.length}`;
      throw new RangeError(`${label}: keys.${property} has ${lengths}: give one of each per key.`);
    }
  }
  return keys.frames.length;
}

/**
 * Throws unless the keys are sorted and valid.
 * @param {string} label
 * @param {Key[]|KeyColumns} keys
 * @param {number} count
 * @param {number} previousFrame last frame of the same channel in earlier curves, or kNoFrame
 * @returns {number} the last frame of the channel
 */
function checkKeys(label, keys, count, previousFrame) {
  const columns = isColumns(keys);
  let previous = previousFrame;
  for (let i = 0; i < count; ++i) {
    const key = `${label}, key ${i}`;
    if (!columns && !isObject(keys[i])) {
      const cure = 'give { frame, value, inTangent, outTangent }';
      throw new TypeError(`${key}: it is ${show(keys[i])}: ${cure}.`);
    }
    const frame = columns ? keys.frames[i] : keys[i].frame;
    checkWhole(key, 'frame', frame, 0);
    checkFloat(key, 'value', columns ? keys.values[i] : keys[i].value);
    checkFloat(key, 'inTangent', columns ? keys.inTangents[i] : keys[i].inTangent);
    checkFloat(key, 'outTangent', columns ? keys.outTangents[i] : keys[i].outTangent);
    if (frame < previous) {
      const place = i === 0 ? 'in an earlier curve of this channel' : 'of the key before';
      const cure = 'sort the keys by frame';
      throw new RangeError(`${key}: its frame ${frame} follows ${previous} ${place}: ${cure}.`);
    }
    previous = frame;
  }
  return previous;
}

/** Channel of a sample type; Euler x, y, z share theirs with quaternion x, y, z. */
function channelOf(type) {
  if (type === sampleTypes.QuaternionW) {
    return 9;
  }
  return type > sampleTypes.QuaternionW ? type - 5 : type - 1;
}

function isEuler(type) {
  return type >= sampleTypes.EulerX && type <= sampleTypes.EulerZ;
}

/** Throws unless a curve is valid, and compatible with the earlier ones of its target. */
function checkCurve(clip, index, curve, targets) {
  if (!isObject(curve)) {
    const cure = 'give { target, type, keys }';
    throw new TypeError(`${clip}, curve ${index}: it is ${show(curve)}: ${cure}.`);
  }
  const label = curveLabel(clip, index, curve);
  const { target, type, keys } = curve;
  checkWhole(label, 'target', target, 0);
  if (typeof type !== 'number') {
    throw new TypeError(`${label}: type is ${show(type)}: give one of sampleTypes.`);
  }
  if (typeNames[type] === undefined) {
    throw new RangeError(`${label}: there is no sample type ${type}: give one of sampleTypes.`);
  }
  const count = checkKeyContainer(label, keys);
  if (!targets.has(target)) {
    targets.set(target, { lastFrames: new Array(10).fill(kNoFrame), euler: '', quaternion: '' });
  }
  if (count === 0) {
    return;
  }
  const state = targets.get(target);
  const channel = channelOf(type);
  if (channel >= 6) {
    state[isEuler(type) ? 'euler' : 'quaternion'] = label;
    if (state.euler !== '' && state.quaternion !== '') {
      const other = isEuler(type) ? 'a quaternion' : 'Euler angles';
      throw new RangeError(`${label}: its target has ${other} as well: keep one of the two.`);
    }
  }
  state.lastFrames[channel] = checkKeys(label, keys, count, state.lastFrames[channel]);
}

/** Throws unless a clip is valid. */
function checkClip(clip) {
  if (!isObject(clip)) {
    const cure = 'give { framesPerSecond, frameCount, curves }';
    throw new TypeError(`clip: the description is ${show(clip)}: ${cure}.`);
  }
  checkName(clip.name);
  const label = clipLabel(clip.name);
  const { framesPerSecond, frameCount, curves } = clip;
  checkWhole(label, 'framesPerSecond', framesPerSecond, 1);
  if (Math.fround(framesPerSecond) !== framesPerSecond) {
    const trouble = `framesPerSecond is ${framesPerSecond}, which a float can't hold`;
    throw new RangeError(`${label}: ${trouble}: give a rate up to ${2 ** 24}.`);
  }
  checkWhole(label, 'frameCount', frameCount, 1);
  if (!isArray(curves)) {
    throw new TypeError(`${label}: curves is ${show(curves)}: give an array of curves.`);
  }
  const targets = new Map();
  for (let i = 0; i < curves.length; ++i) {
    checkCurve(label, i, curves[i], targets);
  }
  // Players index their tables by the number of targets, so a gap shifts all targets after it.
  for (let target = 0; target < targets.size; ++target) {
    if (!targets.has(target)) {
      const trouble = `it has ${targets.size} targets, but none of them is ${target}`;
      throw new RangeError(`${label}: ${trouble}: number the targets from 0 without gaps.`);
    }
    const { quaternion, lastFrames } = targets.get(target);
    if (quaternion !== '' && lastFrames[channelOf(sampleTypes.QuaternionW)] === kNoFrame) {
      const trouble = 'without keys of QuaternionW the engine reads its target as Euler angles';
      throw new RangeError(`${quaternion}: ${trouble}: add a QuaternionW curve.`);
    }
  }
}

/**
 * Writes a clip as the bytes that {@link Engine.createDataModel} takes, with kind 1. See `layout.clip` for them.
 * @param {Readonly<Clip<ReadonlyArray<Readonly<Key>> | KeyColumns>>} clip
 * @returns {ArrayBuffer}
 * @throws TypeError or RangeError naming the clip, the curve and the key, and what to give instead
 */
function buildClip(clip) {
  checkClip(clip);
  const { curves } = clip;
  const counts = curves.map(({ keys }) => (isColumns(keys) ? keys.frames : keys).length);
  const keyDataOffset = kHeaderBytes + kCurveBytes * curves.length;
  const keyCount = counts.reduce((sum, count) => sum + count, 0);
  const bytes = new ArrayBuffer(keyDataOffset + kKeyBytes * keyCount);
  const view = new DataView(bytes);
  view.setUint32(0, keyDataOffset, true);
  view.setFloat32(4, clip.framesPerSecond, true);
  view.setUint32(8, clip.frameCount, true);
  view.setUint32(12, curves.length, true);
  let offset = keyDataOffset;
  curves.forEach(({ target, type, keys }, index) => {
    const record = kHeaderBytes + kCurveBytes * index;
    view.setUint32(record, target, true);
    view.setUint32(record + 4, type, true);
    view.setUint32(record + 8, counts[index], true);
    const columns = isColumns(keys);
    for (let i = 0; i < counts[index]; ++i, offset += kKeyBytes) {
      view.setUint32(offset, columns ? keys.frames[i] : keys[i].frame, true);
      view.setFloat32(offset + 4, columns ? keys.values[i] : keys[i].value, true);
      view.setFloat32(offset + 8, columns ? keys.inTangents[i] : keys[i].inTangent, true);
      view.setFloat32(offset + 12, columns ? keys.outTangents[i] : keys[i].outTangent, true);
    }
  });
  return bytes;
}

/** A DataView of all bytes of a buffer, or of those of a view. */
function viewOf(label, bytes) {
  if (ArrayBuffer.isView(bytes)) {
    return new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  }
  if (isInstance(bytes, ArrayBuffer) || isSharedBuffer(bytes)) {
    return new DataView(bytes);
  }
  const cure = 'give an ArrayBuffer or a view of one';
  throw new TypeError(`${label}: its bytes are ${show(bytes)}: ${cure}.`);
}

/**
 * Reads a clip and checks it as {@link buildClip} does. Bytes after the last key are ignored, as the engine ignores
 * them.
 * @param {ArrayBuffer | SharedArrayBuffer | ArrayBufferView} bytes all of a buffer, or those that a view shows
 * @param {string} [name] for messages, and of the result
 * @returns {Clip<Key[]>} with its keys as objects
 * @throws TypeError or RangeError naming what is wrong
 */
function readClip(bytes, name) {
  checkName(name);
  const label = clipLabel(name);
  const view = viewOf(label, bytes);
  const size = view.byteLength;
  if (size < kHeaderBytes) {
    const cure = 'give the whole clip, as buildClip returns it';
    throw new RangeError(`${label}: ${size} bytes are less than its header of 16: ${cure}.`);
  }
  const keyDataOffset = view.getUint32(0, true);
  const curveCount = view.getUint32(12, true);
  const expected = kHeaderBytes + kCurveBytes * curveCount;
  if (keyDataOffset !== expected) {
    const trouble = `keyDataOffset is ${keyDataOffset}, but ${curveCount} curves end at ${expected}`;
    throw new RangeError(`${label}: ${trouble}: write the bytes with buildClip.`);
  }
  if (expected > size) {
    const trouble = `its ${curveCount} curves end at byte ${expected} of ${size}`;
    throw new RangeError(`${label}: ${trouble}: give the whole clip.`);
  }
  const curves = [];
  let offset = keyDataOffset;
  for (let i = 0; i < curveCount; ++i) {
    const record = kHeaderBytes + kCurveBytes * i;
    const curve = {
      target: view.getUint32(record, true),
      type: view.getUint32(record + 4, true),
      keys: [],
    };
    const end = offset + kKeyBytes * view.getUint32(record + 8, true);
    if (end > size) {
      const trouble = `its keys end at byte ${end} of ${size}`;
      throw new RangeError(`${curveLabel(label, i, curve)}: ${trouble}: give the whole clip.`);
    }
    for (; offset < end; offset += kKeyBytes) {
      curve.keys.push({
        frame: view.getUint32(offset, true),
        value: view.getFloat32(offset + 4, true),
        inTangent: view.getFloat32(offset + 8, true),
        outTangent: view.getFloat32(offset + 12, true),
      });
    }
    curves.push(curve);
  }
  const clip = {
    framesPerSecond: view.getFloat32(4, true),
    frameCount: view.getUint32(8, true),
    curves,
  };
  if (name !== undefined) {
    clip.name = name;
  }
  checkClip(clip);
  return clip;
}

module.exports = { buildClip, readClip, sampleTypes, stepTangent };
