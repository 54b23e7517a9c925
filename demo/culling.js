'use strict';
// What the demo's cameras see: culling objects along all links of a scene, and two calls a frame.
const { performance } = require('perf_hooks');
const { boundsOf, median } = require('./bounds');
const { createOverviewCamera, createPerspectiveCamera } = require('./cameras');

/** Objects that one batch can hold. */
const kBatchCapacity = 4095;

/** Bytes of an object's record, and where its fields start. */
const kRecordBytes = 28;
const kMaskOffset = 4;
const kCenterOffset = 8;
const kRadiusOffset = 20;
const kEntityOffset = 24;

/** Words of "cullingResult": hash, count, then the handles, nearest first. */
const kHashWord = 0;
const kCountWord = 1;
const kObjectsWord = 2;

/** Small scenes get several objects a link, up to about this many in all. */
const kManyObjects = 4096;
const kMaxPieces = 128;

/** Layer bits: all objects are in this layer, and both cameras see it. */
const kLayer = 1;

/**
 * A sphere around a piece of a link, in the space of the entity that carries it.
 * @typedef {Object} Sphere
 * @property {number} node index of the node at the link's lower end
 * @property {number} piece counted from there towards the parent; piece 0 surrounds the node itself
 * @property {number} carrier index of the node whose entity carries it
 * @property {number[]} center x, y, z
 * @property {number} radius
 */

/** Largest scale of a matrix along its axes; 1 where there is none. */
function largestScale(matrix) {
  const lengths = [0, 4, 8].map((at) => Math.hypot(matrix[at], matrix[at + 1], matrix[at + 2]));
  const scale = Math.max(...lengths);
  return scale > 0 && Number.isFinite(scale) ? scale : 1;
}

/** World lengths of the links to the parents, 0 for roots. */
function linkLengths(nodes, positions) {
  return nodes.map(({ parent }, index) => {
    const [a, b] = [positions[index], positions[parent < 0 ? index : parent]];
    const length = Math.hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
    return Number.isFinite(length) ? length : 0;
  });
}

/**
 * Cuts the links of a scene, as it stands, into pieces of equal number and surrounds each by a sphere
 * that reaches to the next. Spheres between two nodes are carried by the parent. Links far longer than
 * most, which hold groups together, get no bigger spheres than the others and so have gaps.
 * @param {import('./engine-scene').SceneNode[]} nodes parents before children
 * @param {import('./engine-scene').EngineScene} engineScene
 * @returns {{spheres: Sphere[], pieces: number}}
 */
function surround(nodes, engineScene) {
  const pieces = Math.max(1, Math.min(kMaxPieces, Math.floor(kManyObjects / nodes.length)));
  const lengths = linkLengths(
    nodes,
    nodes.map((node, index) => Array.from(engineScene.worldMatrix(index).subarray(12, 15)))
  );
  const typical = median(lengths.filter((length) => length > 0)) || 1;
  const scales = nodes.map((node, index) => largestScale(engineScene.worldMatrix(index)));
  const spheres = [];
  nodes.forEach(({ parent, position }, node) => {
    const length = lengths[node] > 0 ? Math.min(lengths[node], 2 * typical) : typical;
    const radius = length / pieces / 2;
    spheres.push({
      node,
      piece: 0,
      carrier: node,
      center: [0, 0, 0],
      radius: radius / scales[node],
    });
    for (let piece = 1; parent >= 0 && piece < pieces; ++piece) {
      const center = position.map((value) => value * (1 - piece / pieces));
      spheres.push({ node, piece, carrier: parent, center, radius: radius / scales[parent] });
    }
  });
  return { spheres, pieces };
}

/** Bits of a handle that tell the object within its batch. */
const kElementMask = 0xfff;

/**
 * What a camera saw last.
 * @typedef {Object} View
 * @property {Uint32Array} handles of the visible objects, nearest first
 * @property {number} hash of the handles in their order
 */

/** Owns the culling objects of a scene and its two cameras. */
class SceneCulling {
  /**
   * Creates the objects around a scene that has its world matrices.
   * @param {import('./engine-scene').EngineScene} engineScene
   * @param {import('./engine-scene').SceneNode[]} nodes
   */
  constructor(engineScene, nodes) {
    this.engine = engineScene.engine;
    const { spheres, pieces } = surround(nodes, engineScene);
    this.spheres = spheres;
    /** Pieces that a link is cut into. */
    this.pieces = pieces;
    /** Component objects, and the index of each one's first sphere by its handle. */
    this.batches = [];
    this.firstOf = new Map();
    this.createBatches(engineScene);
    this.result = new Uint32Array(this.engine.cullingResult);

    const positions = engineScene.worldPositions().filter((at) => at.every(Number.isFinite));
    const bounds = boundsOf(positions.length > 0 ? positions : [[0, 0, 0]]);
    this.perspective = createPerspectiveCamera(bounds);
    this.overview = createOverviewCamera(bounds);
    /** @type {?{perspective: View, overview: View}} */
    this.views = null;
  }

  /** Takes objects in full batches; sphere i is element i % 4095 of batch i / 4095. */
  createBatches(engineScene) {
    for (let first = 0; first < this.spheres.length; first += kBatchCapacity) {
      const part = this.spheres.slice(first, first + kBatchCapacity);
      const batch = this.engine.createComponent(1, part.length);
      const records = new DataView(batch.buffer);
      part.forEach(({ carrier, center, radius }, element) => {
        const at = element * kRecordBytes;
        records.setUint8(at, 1);
        records.setUint32(at + kMaskOffset, kLayer, true);
        center.forEach((value, k) => records.setFloat32(at + kCenterOffset + 4 * k, value, true));
        records.setFloat32(at + kRadiusOffset, radius, true);
        records.setUint32(at + kEntityOffset, engineScene.handles[carrier], true);
      });
      this.batches.push(batch);
      this.firstOf.set(batch.id, first);
    }
  }

  /**
   * Culls by both cameras and keeps what they see.
   * @returns {number} milliseconds of the two calls
   */
  cull() {
    const { eye, target, up, fov, aspect, near, far } = this.perspective;
    const { eye: high, target: low, up: north, left, right, bottom, top } = this.overview;
    const { near: nearest, far: farthest } = this.overview;
    const [perspective, first] = this.call(() =>
      this.engine.frustumCullingV2(kLayer, ...eye, ...target, ...up, fov, aspect, near, far)
    );
    const [overview, second] = this.call(() =>
      this.engine.orthoCullingV2(
        ...[kLayer, ...high, ...low, ...north],
        ...[left, right, bottom, top, nearest, farthest]
      )
    );
    this.views = { perspective, overview };
    return first + second;
  }

  /**
   * Which spheres a camera saw, by their index.
   * @param {View} view
   * @returns {Uint8Array} 1 where visible
   */
  visibleSpheres(view) {
    const visible = new Uint8Array(this.spheres.length);
    for (const handle of view.handles) {
      const element = handle & kElementMask;
      visible[this.firstOf.get(handle - element) + element] = 1;
    }
    return visible;
  }

  /**
   * What the picture shows of the perspective camera.
   * @returns {import('./picture').Seen}
   */
  seen() {
    const visible = this.visibleSpheres(this.views.perspective);
    const [{ node: lastNode }] = this.spheres.slice(-1);
    const marks = new Uint8Array((lastNode + 1) * this.pieces);
    this.spheres.forEach(({ node, piece }, index) => {
      marks[node * this.pieces + piece] = visible[index];
    });
    return { camera: this.perspective, pieces: this.pieces, marks };
  }

  /** One call, what it left in "cullingResult", and its milliseconds. */
  call(cull) {
    // A call that finds nothing leaves the last result as it is.
    this.result[kHashWord] = 0;
    this.result[kCountWord] = 0;
    const start = performance.now();
    const replaced = cull();
    const milliseconds = performance.now() - start;
    if (replaced) {
      this.result = new Uint32Array(this.engine.cullingResult);
    }
    const end = kObjectsWord + this.result[kCountWord];
    const handles = this.result.slice(kObjectsWord, end);
    return [{ handles, hash: this.result[kHashWord] }, milliseconds];
  }
}

module.exports = { SceneCulling };
