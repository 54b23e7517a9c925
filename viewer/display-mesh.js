'use strict';
// Meshes for the page: with normals, and with the colours of triangles as vertex attributes.
const { kInfluences } = require('../demo/mesh');

/**
 * Vertex normals in the bind pose: the area-weighted sum of the normals of their triangles, over all vertices at the
 * same position.
 * @param {import('../demo/mesh').Mesh} mesh
 * @returns {Float32Array} x, y, z of each vertex, normalised; 0 where there is none
 */
function vertexNormals({ positions, triangles }) {
  const count = positions.length / 3;
  const places = new Map();
  const placeOf = Uint32Array.from({ length: count }, (none, vertex) => {
    const key = positions.subarray(3 * vertex, 3 * vertex + 3).join();
    if (!places.has(key)) {
      places.set(key, vertex);
    }
    return places.get(key);
  });
  const sums = new Float64Array(positions.length);
  for (let i = 0; i < triangles.length; i += 3) {
    const [a, b, c] = [triangles[i], triangles[i + 1], triangles[i + 2]];
    const edge = (to, axis) => positions[3 * to + axis] - positions[3 * a + axis];
    const [ux, uy, uz] = [edge(b, 0), edge(b, 1), edge(b, 2)];
    const [vx, vy, vz] = [edge(c, 0), edge(c, 1), edge(c, 2)];
    const normal = [uy * vz - uz * vy, uz * vx - ux * vz, ux * vy - uy * vx];
    for (const vertex of [a, b, c]) {
      for (let axis = 0; axis < 3; ++axis) {
        sums[3 * placeOf[vertex] + axis] += normal[axis];
      }
    }
  }
  const normals = new Float32Array(positions.length);
  for (let vertex = 0; vertex < count; ++vertex) {
    const at = 3 * placeOf[vertex];
    const length = Math.hypot(sums[at], sums[at + 1], sums[at + 2]) || 1;
    for (let axis = 0; axis < 3; ++axis) {
      normals[3 * vertex + axis] = sums[at + axis] / length;
    }
  }
  return normals;
}

/**
 * A mesh whose vertices have one colour each: vertices shared by triangles of several colours are duplicated.
 * @param {import('../demo/mesh').Mesh} mesh
 * @returns {{positions: Float32Array, normals: Float32Array, bones: Uint16Array, weights: Float32Array,
 *     parts: Uint8Array, triangles: Uint32Array}}
 */
function displayMesh(mesh) {
  const copies = new Map();
  const sources = [];
  const parts = [];
  const triangles = Uint32Array.from(mesh.triangles, (vertex, i) => {
    const part = mesh.parts[Math.floor(i / 3)];
    const key = vertex * 256 + part;
    if (!copies.has(key)) {
      copies.set(key, sources.length);
      sources.push(vertex);
      parts.push(part);
    }
    return copies.get(key);
  });
  const normals = vertexNormals(mesh);
  const gather = (type, array, width) => {
    const result = new type(width * sources.length);
    sources.forEach((vertex, i) => {
      result.set(array.subarray(width * vertex, width * (vertex + 1)), width * i);
    });
    return result;
  };
  return {
    positions: gather(Float32Array, mesh.positions, 3),
    normals: gather(Float32Array, normals, 3),
    bones: gather(Uint16Array, mesh.bones, kInfluences),
    weights: gather(Float32Array, mesh.weights, kInfluences),
    parts: Uint8Array.from(parts),
    triangles,
  };
}

module.exports = { displayMesh };
