'use strict';
// Rotations as quaternions x, y, z, w, in plain arrays.

/** The rotation by `angle` radians about the x axis. */
function turnX(angle) {
  return [Math.sin(angle / 2), 0, 0, Math.cos(angle / 2)];
}

/** The rotation by `angle` radians about the y axis. */
function turnY(angle) {
  return [0, Math.sin(angle / 2), 0, Math.cos(angle / 2)];
}

/** The rotation by `angle` radians about the z axis. */
function turnZ(angle) {
  return [0, 0, Math.sin(angle / 2), Math.cos(angle / 2)];
}

/** The product a b: rotates by b, then by a. */
function product(a, b) {
  const [ax, ay, az, aw] = a;
  const [bx, by, bz, bw] = b;
  return [
    aw * bx + ax * bw + ay * bz - az * by,
    aw * by - ax * bz + ay * bw + az * bx,
    aw * bz + ax * by - ay * bx + az * bw,
    aw * bw - ax * bx - ay * by - az * bz,
  ];
}

/** The product of several rotations; the last is applied first. */
function compose(...turns) {
  return turns.reduce(product);
}

/** The inverse of a unit quaternion. */
function inverse([x, y, z, w]) {
  return [-x, -y, -z, w];
}

/** A vector x, y, z, rotated. */
function rotate(rotation, [x, y, z]) {
  const [a, b, c] = product(product(rotation, [x, y, z, 0]), inverse(rotation));
  return [a, b, c];
}

module.exports = { compose, inverse, rotate, turnX, turnY, turnZ };
