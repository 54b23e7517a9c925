'use strict';
// Transforms by textbook definitions, in double precision. Matrices are column-major arrays of 16.
const assert = require('assert');

const identity = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1];

/** a x b. */
function multiply(a, b) {
  const out = new Array(16).fill(0);
  for (let column = 0; column < 4; ++column) {
    for (let row = 0; row < 4; ++row) {
      for (let k = 0; k < 4; ++k) {
        out[4 * column + row] += a[4 * k + row] * b[4 * column + k];
      }
    }
  }
  return out;
}

/** |a| |b|, by magnitudes: for error bounds of a product. */
function multiplyMagnitudes(a, b) {
  return multiply(a.map(Math.abs), b.map(Math.abs));
}

/** An upper bound of the elements of a transform for any rotation: each of an axis is as long as the axis. */
function columnLengths(matrix) {
  const out = Array.from(matrix, Math.abs);
  for (let column = 0; column < 12; column += 4) {
    out.fill(Math.hypot(...out.slice(column, column + 3)), column, column + 3);
  }
  return out;
}

/** |a| + |b|, by magnitudes. */
function addMagnitudes(a, b) {
  return a.map((value, i) => Math.abs(value) + Math.abs(b[i]));
}

function cross(a, b) {
  return [a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]];
}

/** `v` rotated by the unit quaternion `q` (x, y, z, w). */
function rotate(q, v) {
  const first = cross(q, v);
  const second = cross(q, first);
  return v.map((value, i) => value + 2 * (q[3] * first[i] + second[i]));
}

/** The unit quaternion of a rotation by `angle` around a unit axis. */
function axisAngle(axis, angle) {
  return [...axis.map((value) => value * Math.sin(angle / 2)), Math.cos(angle / 2)];
}

/** Right-handed rotation around axis 0, 1 or 2. */
function axisRotation(axis, angle) {
  const out = identity.slice();
  const [i, j] = [(axis + 1) % 3, (axis + 2) % 3];
  out[4 * i + i] = out[4 * j + j] = Math.cos(angle);
  out[4 * i + j] = Math.sin(angle);
  out[4 * j + i] = -Math.sin(angle);
  return out;
}

function translation([x, y, z = 0]) {
  return [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1];
}

function scaling([x, y, z = 1]) {
  return [x, 0, 0, 0, 0, y, 0, 0, 0, 0, z, 0, 0, 0, 0, 1];
}

function quaternionRotation(q) {
  const out = identity.slice();
  for (let axis = 0; axis < 3; ++axis) {
    const unit = [0, 0, 0];
    unit[axis] = 1;
    rotate(q, unit).forEach((value, row) => {
      out[4 * axis + row] = value;
    });
  }
  return out;
}

/** Local matrix of a 3D entity. Euler angles rotate around z first, then y, then x. */
function local3D({ quaternion, euler = [0, 0, 0], position = [0, 0, 0], scale = [1, 1, 1] }) {
  const rotation = quaternion
    ? quaternionRotation(quaternion)
    : multiply(
        multiply(axisRotation(0, euler[0]), axisRotation(1, euler[1])),
        axisRotation(2, euler[2])
      );
  return multiply(multiply(translation(position), rotation), scaling(scale));
}

/** Local matrix of a 2D entity. A positive angle rotates from y towards x. */
function local2D({ angle = 0, position = [0, 0], scale = [1, 1] }) {
  return multiply(multiply(translation(position), axisRotation(2, -angle)), scaling(scale));
}

/** The nine elements in a 2D record. */
function matrix3(m) {
  return [0, 1, 3, 4, 5, 7, 12, 13, 15].map((i) => m[i]);
}

/** Each number within `tolerance` of the expected one, relative above 1. */
function assertClose(actual, expected, tolerance = 1e-5, message = '') {
  assert.strictEqual(actual.length, expected.length);
  actual.forEach((value, i) => {
    const limit = tolerance * Math.max(1, Math.abs(expected[i]));
    assert(
      Math.abs(value - expected[i]) <= limit,
      `${message}[${i}]: ${value} is not ${expected[i]}\n  ${actual}\n  ${expected}`
    );
  });
}

/** Numbers from 0 to 1, the same ones for the same seed (xorshift32). */
function randomNumbers(seed) {
  let state = seed;
  return () => {
    state ^= state << 13;
    state ^= state >>> 17;
    state ^= state << 5;
    return (state >>> 0) / 4294967296;
  };
}

module.exports = {
  columnLengths,
  addMagnitudes,
  identity,
  multiply,
  multiplyMagnitudes,
  rotate,
  axisAngle,
  local3D,
  local2D,
  matrix3,
  assertClose,
  randomNumbers,
};
