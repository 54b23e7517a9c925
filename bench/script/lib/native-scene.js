'use strict';
// Parts of scenes of the module: its engine, whole batches of entities, trees, characters, clips and culling objects.
// All except the culling call is the cost of loading a level, of which only linking is measured. The frames of the
// contenders write into the records themselves.
const { over } = require('../../../tests/script/support/blocks');
const path = require('path');
const { buildClip, sampleTypes } = require('../../../lib/clip');
const {
  componentKinds,
  cullingObject,
  dataModelKinds,
  entity3D,
  entityCommands,
  limits,
  rotationModes,
} = require('../../../lib/layout');
const { bones, channelCount, clipFrames, framesPerSecond, keyCount } = require('./animation-scene');

const modulePath = path.resolve(
  process.env.NQ_MODULE || path.join(__dirname, '..', '..', '..', 'build/Release/nq_logic.node')
);
const { getEngine } = require(modulePath);

/** Maximum entities of a batch. */
const batchCapacity = limits.batch;

/** Maximum entries of the dirty list. */
const dirtyCapacity = limits.dirtyEntities;

/** In 32-bit words: size of an entity's record, and offsets of its fields. */
const recordWords = entity3D.size / 4;
const rotationAt = entity3D.rotation / 4;
const positionAt = entity3D.position / 4;
const scaleAt = entity3D.scale / 4;
const worldAt = entity3D.worldMatrix / 4;

/** Words of the longest linking command. */
const linkWords = 3;

/** Entities of a character: one at its place, and its bones. */
const entitiesPerCharacter = 1 + bones;

/**
 * Creates `count` 3D entities in batches.
 * @param {object} engine
 * @param {number} count
 * @param {number} [batchSize] entities of a batch
 * @returns {{objects: object[], records: Float32Array[], handles: Uint32Array}} handles by node
 */
function createEntities(engine, count, batchSize = batchCapacity) {
  const objects = [];
  const records = [];
  const handles = new Uint32Array(count);
  for (let first = 0; first < count; first += batchSize) {
    const size = Math.min(batchSize, count - first);
    const object = engine.createEntity(true, size);
    objects.push(object);
    records.push(over(Float32Array, object));
    for (let i = 0; i < size; ++i) {
      handles[first + i] = object.id + i;
    }
  }
  return { objects, records, handles };
}

/**
 * Sets the rotation mode of the records of batches.
 * @param {object[]} objects
 * @param {number} mode one of `rotationModes`
 */
function setRotationModes(objects, mode) {
  for (const object of objects) {
    const bytes = over(Uint8Array, object);
    for (let at = entity3D.rotationMode; at < bytes.length; at += entity3D.size) {
      bytes[at] = mode;
    }
  }
}

/**
 * Links all nodes to their parents by the command stream, and makes node 0 a root at the end, so that passes in
 * between, which empty the stream, traverse nothing. Writes the words directly, without the checks of a writer: this
 * is measured.
 * @param {object} engine
 * @param {Int32Array} parents
 * @param {Uint32Array} handles by node
 */
function linkTree(engine, parents, handles) {
  const words = over(Uint32Array, engine.entityCommands);
  let next = 1;
  const run = () => {
    words[0] = 4 * (next - 1);
    engine.refreshWorldTransform();
    next = 1;
  };
  for (let node = 1; node < parents.length; ++node) {
    if (next + linkWords > words.length) {
      run();
    }
    words[next++] = entityCommands.addChild;
    words[next++] = handles[parents[node]];
    words[next++] = handles[node];
  }
  if (next + linkWords > words.length) {
    run();
  }
  words[next++] = entityCommands.addRoot;
  words[next++] = handles[0];
  run();
}

/**
 * Lists all entities as changed, in as many passes as the list requires.
 * @param {object} engine
 * @param {Uint32Array} handles
 */
function refreshAll(engine, handles) {
  const dirty = over(Uint32Array, engine.dirtyEntities);
  for (let first = 0; first < handles.length; first += dirtyCapacity) {
    const part = handles.subarray(first, Math.min(first + dirtyCapacity, handles.length));
    dirty[0] = part.length;
    dirty.set(part, 1);
    engine.refreshWorldTransform();
  }
}

/**
 * Copies world matrices out of records.
 * @param {Float32Array[]} records by batch, full except the last
 * @param {number} entity
 * @param {Float32Array} out
 * @param {number} at index of the first of 16 numbers
 */
function copyWorld(records, entity, out, at) {
  const from = (entity % batchCapacity) * recordWords + worldAt;
  out.set(records[Math.floor(entity / batchCapacity)].subarray(from, from + 16), at);
}

/**
 * Characters in their rest pose. Entity 0 is the root of all; a character's are the one at its place, then its bones.
 * @param {object} engine
 * @param {import('./animation-scene').AnimationScene} scene
 */
function createCharacters(engine, scene) {
  const { characters } = scene;
  const count = 1 + characters * entitiesPerCharacter;
  const { objects, records, handles } = createEntities(engine, count);
  const parents = new Int32Array(count);
  parents[0] = -1;
  const entityOf = (character, bone) => 2 + character * entitiesPerCharacter + bone;

  function place(entity, position, scale) {
    const at = (entity % batchCapacity) * recordWords + rotationAt;
    records[Math.floor(entity / batchCapacity)].set([0, 0, 0, 1, ...position, ...scale], at);
  }

  setRotationModes(objects, rotationModes.quaternion);
  place(0, [0, 0, 0], [1, 1, 1]);
  for (let c = 0; c < characters; ++c) {
    place(entityOf(c, -1), scene.places.subarray(3 * c, 3 * c + 3), [1, 1, 1]);
    for (let bone = 0; bone < bones; ++bone) {
      const entity = entityOf(c, bone);
      const at = 3 * bone;
      parents[entity] = entityOf(c, scene.parents[bone]);
      place(entity, scene.offsets.subarray(at, at + 3), scene.scales.subarray(at, at + 3));
    }
  }
  linkTree(engine, parents, handles);
  refreshAll(engine, handles);

  return {
    /** Kept alive, since a collected wrapper releases its native object. */
    objects,

    /** Handle of a bone's entity. */
    handleOf: (character, bone) => handles[entityOf(character, bone)],

    /** Handles of all bones of a character. */
    handlesOf: (character) => handles.subarray(entityOf(character, 0), entityOf(character, bones)),

    /** World matrices of all bones, 16 numbers each. */
    copyWorlds(out) {
      for (let c = 0, at = 0; c < characters; ++c) {
        for (let bone = 0; bone < bones; ++bone, at += 16) {
          copyWorld(records, entityOf(c, bone), out, at);
        }
      }
    },
  };
}

const rotationTypes = [
  sampleTypes.QuaternionX,
  sampleTypes.QuaternionY,
  sampleTypes.QuaternionZ,
  sampleTypes.QuaternionW,
];
const positionTypes = [sampleTypes.PositionX, sampleTypes.PositionY, sampleTypes.PositionZ];

/** The bytes of a clip. */
function clipBytes({ values, tangents }) {
  const frames = Uint32Array.from({ length: keyCount }, (_, key) => key);
  const column = (rows, channel) =>
    Float32Array.from({ length: keyCount }, (_, key) => rows[key * channelCount + channel]);
  const curves = Array.from({ length: channelCount }, (_, channel) => ({
    target: channel < 4 * bones ? channel >> 2 : 0,
    type: channel < 4 * bones ? rotationTypes[channel & 3] : positionTypes[channel - 4 * bones],
    keys: {
      frames,
      values: column(values, channel),
      inTangents: column(tangents, channel),
      outTangents: column(tangents, channel),
    },
  }));
  return buildClip({ framesPerSecond, frameCount: clipFrames, curves });
}

/**
 * The clips of a scene.
 * @param {object} engine
 * @param {import('./animation-scene').AnimationScene} scene
 */
function createClips(engine, scene) {
  return scene.clips.map((clip) => engine.createDataModel(dataModelKinds.clip, clipBytes(clip)));
}

/**
 * Culling objects in batches.
 * @param {object} engine
 * @param {Float32Array} spheres centre and radius of each, in the space of its entity
 * @param {(object: number) => number} entityOf handle of the entity that carries it
 * @returns {{batches: object[], handleOf: (object: number) => number, indexOf: (handle: number) =>
 *   number}} an object's handle by its number, and the other way around
 */
function createCullingObjects(engine, spheres, entityOf) {
  const count = spheres.length / 4;
  const batches = [];
  const numbers = new Map();
  for (let first = 0; first < count; first += batchCapacity) {
    const size = Math.min(batchCapacity, count - first);
    const batch = engine.createComponent(componentKinds.culling, size);
    const view = over(DataView, batch);
    for (let i = 0; i < size; ++i) {
      const at = i * cullingObject.size;
      view.setUint8(at + cullingObject.enabled, 1);
      view.setUint32(at + cullingObject.mask, 1, true);
      for (let k = 0; k < 4; ++k) {
        view.setFloat32(at + cullingObject.center + 4 * k, spheres[4 * (first + i) + k], true);
      }
      view.setUint32(at + cullingObject.entity, entityOf(first + i), true);
      numbers.set(batch.id + i, first + i);
    }
    batches.push(batch);
  }
  return {
    batches,
    handleOf: (object) => batches[Math.floor(object / batchCapacity)].id + (object % batchCapacity),
    indexOf: (handle) => numbers.get(handle),
  };
}

/**
 * Culls all objects of layer mask 1. The arguments are explicit: an array to spread would be allocated in each call.
 * @param {object} engine
 * @param {import('./culling-scene').Camera} camera
 * @returns {boolean} whether there is a new result buffer
 */
function cullAll(engine, { eye, target, up, fov, aspect, near, far }) {
  return engine.frustumCullingV2(
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
}

/**
 * Objects and depths of a culling result.
 * @param {ArrayBuffer} result
 * @param {(handle: number) => number} indexOf
 * @returns {{objects: number[], depths: Float32Array}}
 */
function readView(result, indexOf) {
  const words = over(Uint32Array, result);
  const visible = words[1];
  return {
    objects: Array.from(words.subarray(2, 2 + visible), indexOf),
    depths: over(Float32Array, result).subarray(2 + visible, 2 + 2 * visible),
  };
}

/** A count and that many handles, the argument of batch calls. */
function handleList(objects) {
  return Uint32Array.from([objects.length].concat(objects.map(({ id }) => id))).buffer;
}

module.exports = {
  batchCapacity,
  copyWorld,
  createCharacters,
  createClips,
  createCullingObjects,
  createEntities,
  cullAll,
  dirtyCapacity,
  getEngine,
  handleList,
  linkTree,
  positionAt,
  readView,
  recordWords,
  refreshAll,
  rotationAt,
  scaleAt,
  setRotationModes,
  worldAt,
};
