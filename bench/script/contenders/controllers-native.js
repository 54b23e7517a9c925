'use strict';
// Controllers of the module: for each character a binding, one controller of an override layer alone and
// one with an additive layer above it. Times and weights are written into the shared blocks; then one
// call for all characters, by a buffer of handles.
const { buildClip, sampleTypes } = require('../../../lib/clip');
const {
  bones,
  channelCount,
  clipFrames,
  framesPerSecond,
  keyCount,
} = require('../lib/animation-scene');
const { aim, clipCount, isMasked, run, walk } = require('../lib/controllers-scene');
const { batchCapacity, createEntities, getEngine, linkTree } = require('./native');

// In 32-bit words of an entity's record.
const recordWords = 27;
const rotationAt = 1;
const worldAt = 11;
const dirtyCapacity = 12287;

const clipKind = 1;
const snapshotMode = 1;
const blendModes = { override: 0, additive: 1 };
const none = 0xffffffff;

// In words of a state's block of one clip, and of a controller's.
const state = { weight: 0, next: 2, clip: 3, time: 4, clipWeight: 5, reference: 6 };
const layerAt = (layer) => 1 + 3 * layer;

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

/** A count and that many handles, as the batch call takes them. */
function handleList(objects) {
  return Uint32Array.from([objects.length].concat(objects.map(({ id }) => id))).buffer;
}

/**
 * The contender.
 * @param {import('../lib/controllers-scene').ControllerScene} scene
 */
function createControllersNative(scene) {
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
    place(entityOf(c, -1), scene.places.subarray(3 * c, 3 * c + 3), [1, 1, 1]);
    for (let bone = 0; bone < bones; ++bone) {
      const entity = entityOf(c, bone);
      const at = 3 * bone;
      parents[entity] = entityOf(c, scene.parents[bone]);
      place(entity, scene.offsets.subarray(at, at + 3), scene.scales.subarray(at, at + 3));
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

  const clips = scene.clips.map((clip) => engine.createDataModel(clipKind, clipBytes(clip)));
  const lists = new Uint32Array(clipCount * (2 + bones));
  clips.forEach(({ id }, k) => {
    lists[k] = id;
    lists[clipCount + k * (1 + bones)] = bones;
  });
  const mask = new DataView(new ArrayBuffer(8 * bones));

  /** A state of one clip for a character: its object, and its floats. */
  function createState(number) {
    const object = engine.createAnimatorControllerStateModel(1);
    const words = new Uint32Array(object.buffer);
    const floats = new Float32Array(object.buffer);
    floats[state.weight] = 1;
    words[state.next] = none;
    words[state.clip] = clips[number].id;
    floats[state.clipWeight] = 1;
    words[state.reference] = clips[number].id;
    return { object, words, floats };
  }

  function createController(binding, layers) {
    const object = engine.createAnimatorControllerModel(layers.length);
    const words = new Uint32Array(object.buffer);
    const floats = new Float32Array(object.buffer);
    words[0] = binding.id;
    layers.forEach(({ blendMode, first }, i) => {
      words[layerAt(i)] = blendMode;
      floats[layerAt(i) + 1] = 1;
      words[layerAt(i) + 2] = first.object.id;
    });
    return { object, floats };
  }

  const people = Array.from({ length: characters }, (_, c) => {
    const own = handles.subarray(entityOf(c, 0), entityOf(c, bones));
    let masked = 0;
    for (let bone = 0; bone < bones; ++bone) {
      for (let k = 0; k < clipCount; ++k) {
        lists[clipCount + k * (1 + bones) + 1 + bone] = own[bone];
      }
      if (isMasked(bone)) {
        mask.setUint32(8 * masked, own[bone], true);
        mask.setFloat32(8 * masked + 4, 0, true);
        ++masked;
      }
    }
    const words = lists.length - clipCount;
    const binding = engine.createAnimationClipBinding(
      lists.buffer,
      0,
      clipCount,
      words,
      snapshotMode
    );
    const states = [walk, run, aim].map(createState);
    states[walk].words[state.next] = states[run].object.id;
    const below = { blendMode: blendModes.override, first: states[walk] };
    const above = { blendMode: blendModes.additive, first: states[aim] };
    const single = createController(binding, [below]);
    const layered = createController(binding, [below, above]);
    layered.object.setMaskAtIndex(1, mask.buffer, 0, masked);
    return { binding, states, floats: states.map(({ floats }) => floats), single, layered };
  });
  const singles = handleList(people.map(({ single }) => single.object));
  const layereds = handleList(people.map(({ layered }) => layered.object));

  function crossfade(set) {
    const { times, running } = sets[set];
    for (let c = 0; c < characters; ++c) {
      const { floats } = people[c];
      floats[walk][state.time] = times[3 * c];
      floats[walk][state.weight] = 1 - running[c];
      floats[run][state.time] = times[3 * c + 1];
      floats[run][state.weight] = running[c];
    }
    engine.updateAnimatorControllers(singles);
  }

  function layers(set) {
    const { times, running, aiming } = sets[set];
    for (let c = 0; c < characters; ++c) {
      const { floats, layered } = people[c];
      floats[walk][state.time] = times[3 * c];
      floats[walk][state.weight] = 1 - running[c];
      floats[run][state.time] = times[3 * c + 1];
      floats[run][state.weight] = running[c];
      floats[aim][state.time] = times[3 * c + 2];
      layered.floats[layerAt(1) + 1] = aiming[c];
    }
    engine.updateAnimatorControllers(layereds);
  }

  return {
    name: 'nq',

    /** Local matrices out of two states, and with an additive layer above. */
    crossfade,
    layers,

    /** The batch call of `layers` alone, without the writes. */
    call: () => engine.updateAnimatorControllers(layereds),

    /** World matrices of all bones. */
    refresh: () => engine.refreshWorldTransform(),

    worlds(out) {
      for (let c = 0, at = 0; c < characters; ++c) {
        for (let bone = 0; bone < bones; ++bone, at += 16) {
          const entity = entityOf(c, bone);
          const word = wordOf(entity) + worldAt;
          out.set(recordOf(entity).subarray(word, word + 16), at);
        }
      }
    },
  };
}

module.exports = { createControllersNative };
