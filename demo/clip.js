'use strict';
// Animation clips: timelines of keys, and their values at a moment.
const { normalize, slerp } = require('./quaternion');

/**
 * One property of one node over time.
 * @typedef {Object} Track
 * @property {number} node index of the node that it drives
 * @property {'translation'|'rotation'|'scale'} property
 * @property {'STEP'|'LINEAR'|'CUBICSPLINE'} interpolation
 * @property {Float32Array} times seconds, rising
 * @property {Float32Array} values of each key; for CUBICSPLINE in-tangent, value, out-tangent
 */

/**
 * Index of the last key at or before a moment; 0 if there is none.
 * @param {Float32Array} times
 * @param {number} seconds
 * @returns {number}
 */
function findKey(times, seconds) {
  let low = 0;
  let high = times.length - 1;
  while (low < high) {
    const middle = (low + high + 1) >> 1;
    if (times[middle] <= seconds) {
      low = middle;
    } else {
      high = middle - 1;
    }
  }
  return low;
}

/** Hermite interpolation; the tangents are per second, `span` is the seconds between the keys. */
function hermite(values, width, key, t, span, out) {
  const t2 = t * t;
  const t3 = t2 * t;
  const from = key * 3 * width;
  const to = from + 3 * width;
  for (let i = 0; i < width; ++i) {
    out[i] =
      (2 * t3 - 3 * t2 + 1) * values[from + width + i] +
      (t3 - 2 * t2 + t) * span * values[from + 2 * width + i] +
      (3 * t2 - 2 * t3) * values[to + width + i] +
      (t3 - t2) * span * values[to + i];
  }
}

/**
 * Writes the value of a track at a moment. Before the first key and after the last one holds.
 * @param {Track} track
 * @param {number} seconds
 * @param {number[]} out 3 numbers, 4 for a rotation
 */
function sampleTrack(track, seconds, out) {
  const { times, values, interpolation } = track;
  const width = track.property === 'rotation' ? 4 : 3;
  const key = findKey(times, seconds);
  const held = interpolation === 'STEP' || key === times.length - 1 || seconds <= times[key];
  const cubic = interpolation === 'CUBICSPLINE';
  if (held) {
    const from = (cubic ? key * 3 + 1 : key) * width;
    for (let i = 0; i < width; ++i) {
      out[i] = values[from + i];
    }
  } else {
    const span = times[key + 1] - times[key];
    const t = (seconds - times[key]) / span;
    const from = key * width;
    if (cubic) {
      hermite(values, width, key, t, span, out);
    } else if (width === 4) {
      slerp(values, from, from + 4, t, out);
    } else {
      for (let i = 0; i < width; ++i) {
        out[i] = values[from + i] + t * (values[from + width + i] - values[from + i]);
      }
    }
  }
  if (width === 4) {
    normalize(out);
  }
}

/**
 * Seconds that a clip lasts: the last key of all its tracks.
 * @param {Track[]} tracks
 * @returns {number}
 */
function clipSeconds(tracks) {
  return tracks.reduce((end, { times }) => Math.max(end, times[times.length - 1]), 0);
}

module.exports = { findKey, sampleTrack, clipSeconds };
