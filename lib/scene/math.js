'use strict';
// Transforms in double precision, for what a scene computes before the engine does. Matrices are column-major.

/** Writes the matrix of a position, unit quaternion and scale, which are read from `from` at these indices. */
function compose(out, at, from, position, rotation, scale) {
  const x = from[rotation];
  const y = from[rotation + 1];
  const z = from[rotation + 2];
  const w = from[rotation + 3];
  const sx = from[scale];
  const sy = from[scale + 1];
  const sz = from[scale + 2];
  out[at] = (1 - 2 * (y * y + z * z)) * sx;
  out[at + 1] = 2 * (x * y + w * z) * sx;
  out[at + 2] = 2 * (x * z - w * y) * sx;
  out[at + 3] = 0;
  out[at + 4] = 2 * (x * y - w * z) * sy;
  out[at + 5] = (1 - 2 * (x * x + z * z)) * sy;
  out[at + 6] = 2 * (y * z + w * x) * sy;
  out[at + 7] = 0;
  out[at + 8] = 2 * (x * z + w * y) * sz;
  out[at + 9] = 2 * (y * z - w * x) * sz;
  out[at + 10] = (1 - 2 * (x * x + y * y)) * sz;
  out[at + 11] = 0;
  out[at + 12] = from[position];
  out[at + 13] = from[position + 1];
  out[at + 14] = from[position + 2];
  out[at + 15] = 1;
}

/** Writes a · b. The result may be in the array of an operand, but not overlap it. */
function multiply(out, at, a, aAt, b, bAt) {
  for (let column = 0; column < 16; column += 4) {
    for (let row = 0; row < 4; ++row) {
      let sum = 0;
      for (let k = 0; k < 4; ++k) {
        sum += a[aAt + 4 * k + row] * b[bAt + column + k];
      }
      out[at + column + row] = sum;
    }
  }
}

/** Writes the quaternion of a matrix whose columns are the given unit vectors, at right angles to each other. */
function quaternionOfAxes(out, xx, xy, xz, yx, yy, yz, zx, zy, zz) {
  const trace = xx + yy + zz;
  if (trace > 0) {
    const s = 2 * Math.sqrt(trace + 1);
    out[0] = (yz - zy) / s;
    out[1] = (zx - xz) / s;
    out[2] = (xy - yx) / s;
    out[3] = s / 4;
  } else if (xx > yy && xx > zz) {
    const s = 2 * Math.sqrt(1 + xx - yy - zz);
    out[0] = s / 4;
    out[1] = (yx + xy) / s;
    out[2] = (zx + xz) / s;
    out[3] = (yz - zy) / s;
  } else if (yy > zz) {
    const s = 2 * Math.sqrt(1 + yy - xx - zz);
    out[0] = (yx + xy) / s;
    out[1] = s / 4;
    out[2] = (zy + yz) / s;
    out[3] = (zx - xz) / s;
  } else {
    const s = 2 * Math.sqrt(1 + zz - xx - yy);
    out[0] = (zx + xz) / s;
    out[1] = (zy + yz) / s;
    out[2] = s / 4;
    out[3] = (xy - yx) / s;
  }
}

/** Writes the quaternion of the rotation whose z axis has a direction, and whose y axis is nearest to up. */
function quaternionTowards(out, dx, dy, dz, ux, uy, uz) {
  const length = Math.hypot(dx, dy, dz) || 1;
  const zx = dx / length;
  const zy = dy / length;
  const zz = length === 1 && dx === 0 && dy === 0 && dz === 0 ? 1 : dz / length;
  let xx = uy * zz - uz * zy;
  let xy = uz * zx - ux * zz;
  let xz = ux * zy - uy * zx;
  let across = Math.hypot(xx, xy, xz);
  if (across < 1e-12) {
    // Up is along the direction: take any axis that is not.
    const isAlongZ = Math.abs(zz) > 0.9;
    xx = isAlongZ ? zz : -zy;
    xy = isAlongZ ? 0 : zx;
    xz = isAlongZ ? -zx : 0;
    across = Math.hypot(xx, xy, xz);
  }
  xx /= across;
  xy /= across;
  xz /= across;
  const yx = zy * xz - zz * xy;
  const yy = zz * xx - zx * xz;
  const yz = zx * xy - zy * xx;
  quaternionOfAxes(out, xx, xy, xz, yx, yy, yz, zx, zy, zz);
}

/** Determinant of the linear part of a matrix: negative if it mirrors, 0 if it has no inverse. */
function determinant(m) {
  return (
    m[0] * (m[5] * m[10] - m[6] * m[9]) +
    m[4] * (m[9] * m[2] - m[10] * m[1]) +
    m[8] * (m[1] * m[6] - m[2] * m[5])
  );
}

/** Writes the direction in the space of a matrix that mirrors of a direction outside of it; of another length. */
function vectorInside(out, m, x, y, z) {
  out[0] = -(m[5] * m[10] - m[6] * m[9]) * x;
  out[0] -= (m[6] * m[8] - m[4] * m[10]) * y + (m[4] * m[9] - m[5] * m[8]) * z;
  out[1] = -(m[9] * m[2] - m[10] * m[1]) * x;
  out[1] -= (m[10] * m[0] - m[8] * m[2]) * y + (m[8] * m[1] - m[9] * m[0]) * z;
  out[2] = -(m[1] * m[6] - m[2] * m[5]) * x;
  out[2] -= (m[2] * m[4] - m[0] * m[6]) * y + (m[0] * m[5] - m[1] * m[4]) * z;
}

/** Writes the quaternion at an index of an array, times q, into q. */
function turnBy(q, array, at) {
  const ax = array[at];
  const ay = array[at + 1];
  const az = array[at + 2];
  const aw = array[at + 3];
  const [bx, by, bz, bw] = q;
  q[0] = aw * bx + ax * bw + ay * bz - az * by;
  q[1] = aw * by - ax * bz + ay * bw + az * bx;
  q[2] = aw * bz + ax * by - ay * bx + az * bw;
  q[3] = aw * bw - ax * bx - ay * by - az * bz;
}

const turn = new Float64Array(4);

/** Writes conj(of the rotation of a matrix) · q into q. */
function removeRotation(q, m) {
  const lx = Math.hypot(m[0], m[1], m[2]);
  const ly = Math.hypot(m[4], m[5], m[6]);
  const lz = Math.hypot(m[8], m[9], m[10]);
  quaternionOfAxes(
    turn,
    m[0] / lx,
    m[1] / lx,
    m[2] / lx,
    m[4] / ly,
    m[5] / ly,
    m[6] / ly,
    m[8] / lz,
    m[9] / lz,
    m[10] / lz
  );
  removeTurn(q, turn);
}

/** Writes conj(a) · q into q. */
function removeTurn(q, a) {
  const ax = -a[0];
  const ay = -a[1];
  const az = -a[2];
  const aw = a[3];
  const bx = q[0];
  const by = q[1];
  const bz = q[2];
  const bw = q[3];
  q[0] = aw * bx + ax * bw + ay * bz - az * by;
  q[1] = aw * by - ax * bz + ay * bw + az * bx;
  q[2] = aw * bz + ax * by - ay * bx + az * bw;
  q[3] = aw * bw - ax * bx - ay * by - az * bz;
}

module.exports = {
  compose,
  determinant,
  multiply,
  quaternionTowards,
  removeRotation,
  removeTurn,
  turnBy,
  vectorInside,
};
