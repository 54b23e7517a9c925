'use strict';
// Bounding spheres of points, and the median of numbers.

/**
 * A bounding sphere, around the centre of the bounding box.
 * @typedef {Object} Bounds
 * @property {number[]} middle x, y, z
 * @property {number} radius 1 if all points are equal
 * @property {number} floor lowest y
 */

/**
 * @param {ArrayLike<number>} points x, y, z of each, finite; at least one
 * @returns {Bounds}
 */
function boundsOf(points) {
  const low = [Infinity, Infinity, Infinity];
  const high = [-Infinity, -Infinity, -Infinity];
  for (let i = 0; i < points.length; ++i) {
    low[i % 3] = Math.min(low[i % 3], points[i]);
    high[i % 3] = Math.max(high[i % 3], points[i]);
  }
  const middle = low.map((value, axis) => (value + high[axis]) / 2);
  let radius = 0;
  for (let i = 0; i < points.length; i += 3) {
    const offset = middle.map((value, axis) => points[i + axis] - value);
    radius = Math.max(radius, Math.hypot(...offset));
  }
  return { middle, radius: radius > 0 ? radius : 1, floor: low[1] };
}

/**
 * The median of numbers; for an even count the mean of the middle two, for none 0.
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
