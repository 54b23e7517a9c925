'use strict';
// Rotations as quaternions x, y, z, w, in plain arrays.

/**
 * Writes the rotation by `angle` about a unit axis.
 * @param {number[]} axis x, y, z
 * @param {number} angle radians
 * @param {number[]} out
 * @returns {number[]} out
 */
function setAxisAngle(axis, angle, out) {
  const s = Math.sin(angle / 2);
  out[0] = axis[0] * s;
  out[1] = axis[1] * s;
  out[2] = axis[2] * s;
  out[3] = Math.cos(angle / 2);
  return out;
}

/**
 * out = a b: the rotation b, followed by a. `out` may be one of them.
 * @param {number[]} a
 * @param {number[]} b
 * @param {number[]} out
 * @returns {number[]} out
 */
function multiply(a, b, out) {
  const [ax, ay, az, aw] = a;
  const [bx, by, bz, bw] = b;
  out[0] = aw * bx + ax * bw + ay * bz - az * by;
  out[1] = aw * by - ax * bz + ay * bw + az * bx;
  out[2] = aw * bz + ax * by - ay * bx + az * bw;
  out[3] = aw * bw - ax * bx - ay * by - az * bz;
  return out;
}

/**
 * Scales a quaternion in place to length 1; a zero quaternion becomes the identity.
 * @param {ArrayLike<number>} out
 */
function normalize(out) {
  const length = Math.sqrt(out[0] * out[0] + out[1] * out[1] + out[2] * out[2] + out[3] * out[3]);
  for (let i = 0; i < 4; ++i) {
    out[i] = length > 0 ? out[i] / length : i === 3 ? 1 : 0;
  }
}

/**
 * Spherical interpolation along the shorter arc between two quaternions in one array.
 * @param {ArrayLike<number>} values
 * @param {number} a where the first starts
 * @param {number} b where the second starts
 * @param {number} t 0 to 1
 * @param {number[]} out
 */
function slerp(values, a, b, t, out) {
  let cosine = 0;
  for (let i = 0; i < 4; ++i) {
    cosine += values[a + i] * values[b + i];
  }
  const sign = cosine < 0 ? -1 : 1;
  const angle = Math.acos(Math.min(1, Math.abs(cosine)));
  const sine = Math.sin(angle);
  // Close together the arc is a line, and the sines tend to 0 / 0.
  const near = sine < 1e-6;
  const wa = near ? 1 - t : Math.sin((1 - t) * angle) / sine;
  const wb = sign * (near ? t : Math.sin(t * angle) / sine);
  for (let i = 0; i < 4; ++i) {
    out[i] = wa * values[a + i] + wb * values[b + i];
  }
}

module.exports = { setAxisAngle, multiply, normalize, slerp };
