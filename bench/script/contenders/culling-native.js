'use strict';
// Culling by the module: an entity and a culling object per sphere, all entities under one root.
const { over } = require('../../../tests/script/support/blocks');
const { rotationModes } = require('../../../lib/layout');
const {
  batchCapacity,
  copyWorld,
  createCullingObjects,
  createEntities,
  cullAll,
  getEngine,
  linkTree,
  positionAt,
  readView,
  recordWords,
  refreshAll,
  rotationAt,
  setRotationModes,
} = require('../lib/native-scene');

/**
 * The contender.
 * @param {import('../lib/culling-scene').CullingScene} scene
 */
function createCullingNative(scene) {
  const engine = getEngine();
  const { count } = scene;
  // Entity 0 is the root, object i is attached to entity i + 1.
  const { objects: entities, records, handles } = createEntities(engine, count + 1);
  const parents = new Int32Array(count + 1);
  parents[0] = -1;
  const dirty = over(Uint32Array, engine.dirtyEntities);
  const root = records[0];

  function place(entity, transform) {
    const at = (entity % batchCapacity) * recordWords + rotationAt;
    records[Math.floor(entity / batchCapacity)].set(transform, at);
  }

  setRotationModes(entities, rotationModes.quaternion);
  place(0, [0, 0, 0, 1, 0, 0, 0, 1, 1, 1]);
  for (let i = 0; i < count; ++i) {
    place(i + 1, scene.transforms.subarray(10 * i, 10 * i + 10));
  }
  linkTree(engine, parents, handles);
  refreshAll(engine, handles);
  const { batches, handleOf, indexOf } = createCullingObjects(
    engine,
    scene.spheres,
    (object) => handles[object + 1]
  );

  let list = new ArrayBuffer(0);
  let result = engine.cullingResult;

  function cull(camera) {
    if (cullAll(engine, camera)) {
      result = engine.cullingResult;
    }
  }

  // Explicit arguments, as in `cullAll`, followed by the list.
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

    /** Moves all entities by their root. */
    move(set) {
      root.set(scene.roots[set], positionAt);
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

    view: () => readView(result, indexOf),

    /** World matrices of the objects' entities, 16 numbers each. */
    matrices() {
      const out = new Float32Array(16 * count);
      for (let i = 0; i < count; ++i) {
        copyWorld(records, i + 1, out, 16 * i);
      }
      return out;
    },

    /** Kept alive, since a collected wrapper releases its native object. */
    owned: [entities, batches],
  };
}

module.exports = { createCullingNative };
