'use strict';
// Meshes for the page: of the demo and of models, with normals, and with the colours of triangles as vertex attributes.

/** Mode of primitives in files; lines, points and strips are not drawn. */
const kTriangles = 4;

/** Bones that a vertex can follow. */
const kInfluences = 4;

/**
 * A mesh as pages are sent it.
 * @typedef {Object} DisplayMesh
 * @property {Float32Array} positions x, y, z of each vertex
 * @property {Float32Array} normals
 * @property {Uint16Array} bones four of each vertex
 * @property {Float32Array} weights of those bones; their sum is 1
 * @property {Uint8Array} parts place in the palette of each vertex
 * @property {Uint32Array} triangles three vertices each
 */

/**
 * Vertex normals in the bind pose: the area-weighted sum of the normals of their triangles, over all vertices at the
 * same position.
 * @param {{positions: Float32Array, triangles: Uint32Array}} mesh
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
 * @param {{positions: Float32Array, bones: Uint16Array, weights: Float32Array, triangles: Uint32Array,
 *     parts: Uint8Array}} mesh with the part of each triangle
 * @returns {DisplayMesh}
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

/**
 * The mesh of a model, its primitives in one. Without a skin, all vertices follow one bone: their node.
 * @param {import('../meshes').ModelMesh} mesh
 * @param {number} bones of its skin; joints past them are taken for the first
 * @returns {DisplayMesh}
 */
function modelMesh({ skin, primitives: all }, bones) {
  const primitives = all.filter(({ mode }) => mode === kTriangles);
  const count = primitives.reduce((sum, { positions }) => sum + positions.length / 3, 0);
  const result = {
    positions: new Float32Array(3 * count),
    normals: new Float32Array(3 * count),
    bones: new Uint16Array(kInfluences * count),
    weights: new Float32Array(kInfluences * count),
    parts: new Uint8Array(count),
    triangles: new Uint32Array(0),
  };
  const triangles = [];
  let first = 0;
  for (const { positions, normals, joints, weights, indices } of primitives) {
    const vertices = positions.length / 3;
    const own = indices || Uint32Array.from({ length: vertices - (vertices % 3) }, (_, i) => i);
    result.positions.set(positions, 3 * first);
    result.normals.set(normals || vertexNormals({ positions, triangles: own }), 3 * first);
    const isSkinned = skin >= 0 && joints !== null && weights !== null;
    for (let i = 0; i < vertices; ++i) {
      const at = kInfluences * (first + i);
      result.weights[at] = 1;
      for (let k = 0; k < kInfluences && isSkinned; ++k) {
        const joint = joints[kInfluences * i + k];
        result.bones[at + k] = joint < bones ? joint : 0;
        result.weights[at + k] = weights[kInfluences * i + k];
      }
    }
    triangles.push(Uint32Array.from(own, (vertex) => first + Math.min(vertex, vertices - 1)));
    first += vertices;
  }
  result.triangles = new Uint32Array(triangles.reduce((sum, { length }) => sum + length, 0));
  let at = 0;
  for (const some of triangles) {
    result.triangles.set(some, at);
    at += some.length;
  }
  return result;
}

module.exports = { displayMesh, modelMesh };
