'use strict';
// Animation by the module: an animator and a skinning component for each character. Times and weights
// are written into the animators' buffers; then one call for all of one kind, by a buffer of handles.
const { buildClip, sampleTypes } = require('../../../lib/clip');
const animation = require('../lib/animation-scene');
const { batchCapacity, createEntities, getEngine, linkTree } = require('./native');

const { bones, channelCount, clipFrames, framesPerSecond, keyCount } = animation;

// In 32-bit words of an entity's record.
const recordWords = 27;
const rotationAt = 1;
const worldAt = 11;
const dirtyCapacity = 12287;

const dataModelKinds = { clip: 1, inverseBinds: 2 };
const componentKinds = { culling: 1, animator: 2, skinning: 3 };

// In words of an animator's buffer: a clip's record, and its fields.
const clipRecordWords = 3;
const timeAt = 1;
const weightAt = 2;

/** Bytes and fields of a culling object's record. */
const objectBytes = 28;
const maskAt = 4;
const sphereAt = 8;
const entityAt = 24;

/** Entities of a character: one at its place, and its bones. */
const entitiesPerCharacter = 1 + bones;

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
    frames.reduce((out, _, key) => {
      out[key] = rows[key * channelCount + channel];
      return out;
    }, new Float32Array(keyCount));
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

/** A count and that many handles, as the batch calls take them. */
function handleList(objects) {
  return Uint32Array.from([objects.length].concat(objects.map(({ id }) => id))).buffer;
}

/**
 * The contender.
 * @param {import('../lib/animation-scene').AnimationScene} scene
 */
function createAnimationNative(scene) {
  const engine = getEngine();
  const { characters, sets } = scene;

  // Entity 0 is the root of all; a character's are the one at its place, then its bones.
  const entityCount = 1 + characters * entitiesPerCharacter;
  const { objects: entities, records, handles } = createEntities(engine, entityCount);
  const parents = new Int32Array(entityCount);
  parents[0] = -1;
  const entityOf = (character, bone) => 2 + character * entitiesPerCharacter + bone;
  const recordOf = (entity) => records[Math.floor(entity / batchCapacity)];
  const wordOf = (entity) => (entity % batchCapacity) * recordWords;

  function place(entity, position, scale) {
    const batch = entities[Math.floor(entity / batchCapacity)];
    new Uint8Array(batch.buffer)[4 * wordOf(entity)] = 1;
    recordOf(entity).set([0, 0, 0, 1, ...position, ...scale], wordOf(entity) + rotationAt);
  }

  place(0, [0, 0, 0], [1, 1, 1]);
  for (let c = 0; c < characters; ++c) {
    const holder = entityOf(c, -1);
    place(holder, scene.places.subarray(3 * c, 3 * c + 3), [1, 1, 1]);
    for (let bone = 0; bone < bones; ++bone) {
      const entity = entityOf(c, bone);
      parents[entity] = entityOf(c, scene.parents[bone]);
      place(
        entity,
        scene.offsets.subarray(3 * bone, 3 * bone + 3),
        scene.scales.subarray(3 * bone, 3 * bone + 3)
      );
    }
  }
  linkTree(engine, parents, handles);
  const dirty = new Uint32Array(engine.dirtyEntities);
  for (let first = 0; first < entityCount; first += dirtyCapacity) {
    const part = handles.subarray(first, Math.min(first + dirtyCapacity, entityCount));
    dirty[0] = part.length;
    dirty.set(part, 1);
    engine.refreshWorldTransform();
  }

  const clips = scene.clips.map((clip) =>
    engine.createDataModel(dataModelKinds.clip, clipBytes(clip))
  );
  const inverseBinds = engine.createDataModel(
    dataModelKinds.inverseBinds,
    scene.inverseBinds.buffer
  );

  /** An animator of the first `played` clips of each character, and views of their buffers. */
  function createAnimators(played) {
    const objects = [];
    const views = [];
    for (let c = 0; c < characters; ++c) {
      const object = engine.createComponent(componentKinds.animator, played, played * bones);
      const words = new Uint32Array(object.buffer);
      for (let k = 0; k < played; ++k) {
        words[clipRecordWords * k] = clips[scene.clipsOf[2 * c + k]].id;
        const first = entityOf(c, 0);
        words.set(handles.subarray(first, first + bones), clipRecordWords * played + bones * k);
      }
      objects.push(object);
      views.push(new Float32Array(object.buffer, 0, clipRecordWords * played));
    }
    return { objects, views, list: handleList(objects) };
  }

  const single = createAnimators(1);
  const pair = createAnimators(2);

  const skins = Array.from({ length: characters }, (_, c) => {
    const object = engine.createComponent(componentKinds.skinning, bones);
    const words = new Uint32Array(object.buffer);
    words[0] = inverseBinds.id;
    for (let bone = 0; bone < bones; ++bone) {
      words[1 + bone] = bone;
      words[1 + bones + bone] = handles[entityOf(c, bone)];
    }
    return object;
  });
  const skinList = handleList(skins);

  const cullingBatches = [];
  for (let first = 0; first < characters; first += batchCapacity) {
    const batch = engine.createComponent(
      componentKinds.culling,
      Math.min(batchCapacity, characters - first)
    );
    const view = new DataView(batch.buffer);
    for (let at = 0, c = first; at < view.byteLength; at += objectBytes, ++c) {
      view.setUint8(at, 1);
      view.setUint32(at + maskAt, 1, true);
      for (let k = 0; k < 4; ++k) {
        view.setFloat32(at + sphereAt + 4 * k, scene.spheres[4 * c + k], true);
      }
      view.setUint32(at + entityAt, handles[entityOf(c, 0)], true);
    }
    cullingBatches.push(batch);
  }
  const characterOf = new Map();
  cullingBatches.forEach(({ id }, i) => {
    for (let element = 0; element < batchCapacity; ++element) {
      characterOf.set(id + element, i * batchCapacity + element);
    }
  });
  let result = engine.cullingResult;

  function animateOne(times) {
    const { views, list } = single;
    for (let c = 0; c < characters; ++c) {
      const view = views[c];
      view[timeAt] = times[2 * c];
      view[weightAt] = 1;
    }
    engine.updateAnimators(list);
  }

  function animateTwo({ fractional, weights }) {
    const { views, list } = pair;
    for (let c = 0; c < characters; ++c) {
      const view = views[c];
      const weight = weights[c];
      view[timeAt] = fractional[2 * c];
      view[weightAt] = weight;
      view[clipRecordWords + timeAt] = fractional[2 * c + 1];
      view[clipRecordWords + weightAt] = 1 - weight;
    }
    engine.updateAnimators(list);
  }

  const refresh = () => engine.refreshWorldTransform();
  const skin = () => engine.updateSkinningMatrices(skinList);

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

  return {
    name: 'nq',

    /** What the one clip, and the two, of each character give: local matrices. */
    clip: (set) => animateOne(sets[set].fractional),
    frames: (set) => animateOne(sets[set].whole),
    crossfade: (set) => animateTwo(sets[set]),

    /** World matrices of all bones, and their products with the inverse bind matrices. */
    refresh,
    skin,

    /** A whole frame. */
    frame(set, camera) {
      animateTwo(sets[set]);
      refresh();
      skin();
      cull(camera);
    },

    worlds(out) {
      for (let c = 0, at = 0; c < characters; ++c) {
        for (let bone = 0; bone < bones; ++bone, at += 16) {
          const entity = entityOf(c, bone);
          const word = wordOf(entity) + worldAt;
          out.set(recordOf(entity).subarray(word, word + 16), at);
        }
      }
    },

    skins(out) {
      skins.forEach(({ buffer }, c) => {
        out.set(new Float32Array(buffer, 4 + 8 * bones, 16 * bones), 16 * bones * c);
      });
    },

    view() {
      const [, visible] = new Uint32Array(result, 0, 2);
      return {
        objects: Array.from(new Uint32Array(result, 8, visible), (id) => characterOf.get(id)),
        depths: new Float32Array(result, 8 + 4 * visible, visible),
      };
    },

    /** Kept, since a wrapper's end releases what it stands for. */
    owned: [entities, clips, inverseBinds, single.objects, pair.objects, skins, cullingBatches],
  };
}

module.exports = { createAnimationNative };
