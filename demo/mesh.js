'use strict';
// Skinned meshes: vertices in the space of the bind pose, each following up to four bones.

/** Bones that a vertex can follow. */
const kInfluences = 4;

/**
 * @typedef {Object} Mesh
 * @property {Float32Array} positions x, y, z of each vertex, in the bind pose
 * @property {Uint16Array} bones four of each vertex
 * @property {Float32Array} weights of those bones; their sum is 1
 * @property {Uint32Array} triangles three vertices each
 * @property {Uint8Array} parts colour index of each triangle
 */

/**
 * A cross section of a tube.
 * @typedef {Object} Ring
 * @property {number[]} center
 * @property {number} wide half its width, along the tube's side
 * @property {number} deep half its depth, across both the side and the tube
 * @property {Array<number[]>} follows bone and weight, up to four of them
 */

function cross(a, b) {
  return [a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]];
}

function unit(a) {
  const length = Math.hypot(a[0], a[1], a[2]) || 1;
  return a.map((value) => value / length);
}

/** Collects vertices and triangles. */
class MeshBuilder {
  constructor() {
    this.positions = [];
    this.bones = [];
    this.weights = [];
    this.triangles = [];
    this.parts = [];
  }

  /** Adds a vertex and returns its index. */
  vertex(position, follows) {
    this.positions.push(...position);
    for (let i = 0; i < kInfluences; ++i) {
      const [bone, weight] = follows[i] || [0, 0];
      this.bones.push(bone);
      this.weights.push(weight);
    }
    return this.positions.length / 3 - 1;
  }

  triangle(a, b, c, part) {
    this.triangles.push(a, b, c);
    this.parts.push(part);
  }

  /**
   * Adds a tube through rings, closed by blunt ends.
   * @param {Ring[]} rings at least 2
   * @param {number[]} side direction in which the rings are `wide`, not along the tube
   * @param {number} corners of each ring
   * @param {number} part
   */
  tube(rings, side, corners, part) {
    const [first, last] = [rings[0], rings[rings.length - 1]];
    const along = unit(last.center.map((value, axis) => value - first.center[axis]));
    const deepAxis = unit(cross(along, side));
    const wideAxis = cross(deepAxis, along);
    const rows = rings.map(({ center, wide, deep, follows }) =>
      Array.from({ length: corners }, (none, corner) => {
        const angle = (2 * Math.PI * corner) / corners;
        const [u, v] = [wide * Math.cos(angle), deep * Math.sin(angle)];
        const at = center.map((value, k) => value + u * wideAxis[k] + v * deepAxis[k]);
        return this.vertex(at, follows);
      })
    );
    for (let row = 0; row + 1 < rows.length; ++row) {
      for (let i = 0; i < corners; ++i) {
        const next = (i + 1) % corners;
        this.triangle(rows[row][i], rows[row][next], rows[row + 1][next], part);
        this.triangle(rows[row][i], rows[row + 1][next], rows[row + 1][i], part);
      }
    }
    for (const [ring, row, sign] of [
      [first, rows[0], -1],
      [last, rows[rows.length - 1], 1],
    ]) {
      const out = sign * 0.4 * Math.min(ring.wide, ring.deep);
      const tip = this.vertex(
        ring.center.map((value, k) => value + out * along[k]),
        ring.follows
      );
      for (let i = 0; i < corners; ++i) {
        const [a, b] = [row[i], row[(i + 1) % corners]];
        this.triangle(tip, sign > 0 ? a : b, sign > 0 ? b : a, part);
      }
    }
  }

  /**
   * Adds a stick with a point at each end, thickest near its first one.
   * @param {number[]} from
   * @param {number[]} to
   * @param {number} bone that it follows
   * @param {number} part
   */
  spindle(from, to, bone, part) {
    const along = to.map((value, axis) => value - from[axis]);
    const length = Math.hypot(...along);
    const side = unit(cross(along, Math.abs(along[1]) < 0.9 * length ? [0, 1, 0] : [1, 0, 0]));
    const other = unit(cross(along, side));
    const follows = [[bone, 1]];
    const [first, last] = [from, to].map((point) => this.vertex(point, follows));
    const ring = [side, other, side.map((value) => -value), other.map((value) => -value)].map(
      (out) => {
        const at = from.map((value, k) => value + 0.2 * along[k] + 0.14 * length * out[k]);
        return this.vertex(at, follows);
      }
    );
    ring.forEach((corner, i) => {
      const next = ring[(i + 1) % ring.length];
      this.triangle(first, next, corner, part);
      this.triangle(last, corner, next, part);
    });
  }

  /** @returns {Mesh} */
  build() {
    return {
      positions: Float32Array.from(this.positions),
      bones: Uint16Array.from(this.bones),
      weights: Float32Array.from(this.weights),
      triangles: Uint32Array.from(this.triangles),
      parts: Uint8Array.from(this.parts),
    };
  }
}

/**
 * Skins vertices by matrices: each is the weighted mean of its positions by its bones.
 * @param {Mesh} mesh
 * @param {Float32Array} matrices 16 elements per bone, column-major
 * @param {Float32Array} out x, y, z of each vertex, in the world
 */
function skinVertices({ positions, bones, weights }, matrices, out) {
  const count = positions.length / 3;
  for (let vertex = 0; vertex < count; ++vertex) {
    const at = 3 * vertex;
    const [x, y, z] = [positions[at], positions[at + 1], positions[at + 2]];
    let [sumX, sumY, sumZ] = [0, 0, 0];
    for (let i = kInfluences * vertex; i < kInfluences * (vertex + 1); ++i) {
      const weight = weights[i];
      if (weight !== 0) {
        const m = 16 * bones[i];
        sumX +=
          weight * (matrices[m] * x + matrices[m + 4] * y + matrices[m + 8] * z + matrices[m + 12]);
        sumY +=
          weight *
          (matrices[m + 1] * x + matrices[m + 5] * y + matrices[m + 9] * z + matrices[m + 13]);
        sumZ +=
          weight *
          (matrices[m + 2] * x + matrices[m + 6] * y + matrices[m + 10] * z + matrices[m + 14]);
      }
    }
    out[at] = sumX;
    out[at + 1] = sumY;
    out[at + 2] = sumZ;
  }
}

module.exports = { MeshBuilder, kInfluences, skinVertices };
