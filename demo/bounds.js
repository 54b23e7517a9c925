'use strict';
// How far points reach, and what is typical of numbers.

/**
 * @typedef {Object} Bounds
 * @property {number[]} middle x, y, z
 * @property {number} radius of a ball around the middle that holds all points; 1 if they are one point
 * @property {number} floor lowest y
 */

/**
 * @param {Array<number[]>} points finite ones, at least one
 * @returns {Bounds}
 */
function boundsOf(points) {
  const low = [0, 1, 2].map((axis) => points.reduce((a, p) => Math.min(a, p[axis]), Infinity));
  const high = [0, 1, 2].map((axis) => points.reduce((a, p) => Math.max(a, p[axis]), -Infinity));
  const middle = low.map((value, axis) => (value + high[axis]) / 2);
  const radius = points.reduce((far, p) => {
    return Math.max(far, Math.hypot(p[0] - middle[0], p[1] - middle[1], p[2] - middle[2]));
  }, 0);
  return { middle, radius: radius > 0 ? radius : 1, floor: low[1] };
}

/**
 * The middle of numbers; of an even count the mean of the two, of none 0.
 * @param {ArrayLike<number>} values
 * @returns {number}
 */
function median(values) {
  const sorted = Float64Array.from(values).sort();
  const half = sorted.length >> 1;
  if (sorted.length === 0) {
    return 0;
  }
  return sorted.length % 2 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
}

module.exports = { boundsOf, median };
