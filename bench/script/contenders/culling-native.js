'use strict';
// Culling by the module: an entity and a culling object for each sphere, all entities below one root.
const { batchCapacity, createEntities, getEngine, linkTree } = require('./native');

// In 32-bit words of an entity's record.
const recordWords = 27;
const rotationAt = 1;
const worldAt = 11;
const recordBytes = 4 * recordWords;
const dirtyCapacity = 12287;

/** Bytes and fields of a culling object's record. */
const objectBytes = 28;
const maskAt = 4;
const sphereAt = 8;
const entityAt = 24;

/** Handles: batches count up in steps of this, their elements by one. */
const batchStep = 4096;

/**
 * The contender.
 * @param {import('../lib/culling-scene').CullingScene} scene
 */
function createCullingNative(scene) {
  const engine = getEngine();
  const { count } = scene;
  // Entity 0 is the root, entity i + 1 carries object i.
  const { objects: entities, records, handles } = createEntities(engine, count + 1);
  const parents = new Int32Array(count + 1);
  parents[0] = -1;
  const dirty = new Uint32Array(engine.dirtyEntities);
  const root = records[0];

  function place(entity, transform) {
    const batch = Math.floor(entity / batchCapacity);
    const at = entity % batchCapacity;
    new Uint8Array(entities[batch].buffer)[at * recordBytes] = 1;
    records[batch].set(transform, at * recordWords + rotationAt);
  }

  function refreshAll() {
    for (let first = 0; first < handles.length; first += dirtyCapacity) {
      const part = handles.subarray(first, Math.min(first + dirtyCapacity, handles.length));
      dirty[0] = part.length;
      dirty.set(part, 1);
      engine.refreshWorldTransform();
    }
  }

  place(0, [0, 0, 0, 1, 0, 0, 0, 1, 1, 1]);
  for (let i = 0; i < count; ++i) {
    place(i + 1, scene.transforms.subarray(10 * i, 10 * i + 10));
  }
  linkTree(engine, parents, handles);
  refreshAll();

  const batches = [];
  for (let first = 0; first < count; first += batchCapacity) {
    const size = Math.min(batchCapacity, count - first);
    const batch = engine.createComponent(1, size);
    const view = new DataView(batch.buffer);
    for (let i = 0; i < size; ++i) {
      const at = i * objectBytes;
      view.setUint8(at, 1);
      view.setUint32(at + maskAt, 1, true);
      for (let k = 0; k < 4; ++k) {
        view.setFloat32(at + sphereAt + 4 * k, scene.spheres[4 * (first + i) + k], true);
      }
      view.setUint32(at + entityAt, handles[first + i + 1], true);
    }
    batches.push(batch);
  }
  const handleOf = (index) =>
    batches[Math.floor(index / batchCapacity)].id + (index % batchCapacity);
  const batchOf = new Map(batches.map((batch, i) => [batch.id, i]));
  const indexOf = (handle) =>
    batchOf.get(handle - (handle % batchStep)) * batchCapacity + (handle % batchStep);

  let list = new ArrayBuffer(0);
  let result = engine.cullingResult;

  // Written out: an argument array to spread would be made in each call.
  function cull({ eye, target, up, fov, aspect, near, far }) {
    const grown = engine.frustumCullingV2(
      1,
      eye[0],
      eye[1],
      eye[2],
      target[0],
      target[1],
      target[2],
      up[0],
      up[1],
      up[2],
      fov,
      aspect,
      near,
      far
    );
    if (grown) {
      result = engine.cullingResult;
    }
  }

  function cullList({ eye, target, up, fov, aspect, near, far }) {
    const grown = engine.frustumCullingV2(
      1,
      eye[0],
      eye[1],
      eye[2],
      target[0],
      target[1],
      target[2],
      up[0],
      up[1],
      up[2],
      fov,
      aspect,
      near,
      far,
      list
    );
    if (grown) {
      result = engine.cullingResult;
    }
  }

  return {
    name: 'nq',

    /** Moves all entities, by their root. */
    move(set) {
      root.set(scene.roots[set], rotationAt + 4);
      dirty[0] = 1;
      dirty[1] = handles[0];
      engine.refreshWorldTransform();
    },

    setList(indices) {
      list = new ArrayBuffer(4 + 4 * indices.length);
      new Uint32Array(list).set([indices.length].concat(Array.from(indices, handleOf)));
    },

    cull,
    cullMoved: cull,
    cullList,

    view() {
      const [, visible] = new Uint32Array(result, 0, 2);
      return {
        objects: Array.from(new Uint32Array(result, 8, visible), indexOf),
        depths: new Float32Array(result, 8 + 4 * visible, visible),
      };
    },

    /** World matrices of the objects' entities, 16 numbers each. */
    matrices() {
      const out = new Float32Array(16 * count);
      for (let i = 0; i < count; ++i) {
        const record = records[Math.floor((i + 1) / batchCapacity)];
        const at = ((i + 1) % batchCapacity) * recordWords + worldAt;
        out.set(record.subarray(at, at + 16), 16 * i);
      }
      return out;
    },
  };
}

module.exports = { createCullingNative };
