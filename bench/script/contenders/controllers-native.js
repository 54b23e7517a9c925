'use strict';
// Controllers of the module: per character a binding, one controller with only an override layer and one with an
// additive layer above it. Times and weights are written into the shared blocks; then one batch call for all
// characters, with a buffer of handles.
const { over } = require('../../../tests/script/support/blocks');
const { bones } = require('../lib/animation-scene');
const { aim, clipCount, isMasked, run, walk } = require('../lib/controllers-scene');
const { createCharacters, createClips, getEngine, handleList } = require('../lib/native-scene');
const { addedModes, handles, layerBlendModes } = require('../../../lib/layout');

// Word offsets in a state's block of one clip, and in a controller's.
const state = { weight: 0, next: 2, clip: 3, time: 4, clipWeight: 5, reference: 6 };
const layerAt = (layer) => 1 + 3 * layer;

/**
 * The contender.
 * @param {import('../lib/controllers-scene').ControllerScene} scene
 */
function createControllersNative(scene) {
  const engine = getEngine();
  const { characters, sets } = scene;

  const crowd = createCharacters(engine, scene);
  const clips = createClips(engine, scene);
  const lists = new Uint32Array(clipCount * (2 + bones));
  clips.forEach(({ id }, k) => {
    lists[k] = id;
    lists[clipCount + k * (1 + bones)] = bones;
  });
  const mask = new DataView(new ArrayBuffer(8 * bones));

  /** A state of one clip for a character: its object, and its floats. */
  function createState(number) {
    const object = engine.createAnimatorControllerStateModel(1);
    const words = over(Uint32Array, object);
    const floats = over(Float32Array, object);
    floats[state.weight] = 1;
    words[state.next] = handles.none;
    words[state.clip] = clips[number].id;
    floats[state.clipWeight] = 1;
    words[state.reference] = clips[number].id;
    return { object, words, floats };
  }

  function createController(binding, layers) {
    const object = engine.createAnimatorControllerModel(layers.length);
    const words = over(Uint32Array, object);
    const floats = over(Float32Array, object);
    words[0] = binding.id;
    layers.forEach(({ blendMode, first }, i) => {
      words[layerAt(i)] = blendMode;
      floats[layerAt(i) + 1] = 1;
      words[layerAt(i) + 2] = first.object.id;
    });
    return { object, floats };
  }

  const people = Array.from({ length: characters }, (_, c) => {
    const own = crowd.handlesOf(c);
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
      addedModes.take
    );
    const states = [walk, run, aim].map(createState);
    states[walk].words[state.next] = states[run].object.id;
    const below = { blendMode: layerBlendModes.override, first: states[walk] };
    const above = { blendMode: layerBlendModes.additive, first: states[aim] };
    const single = createController(binding, [below]);
    const layered = createController(binding, [below, above]);
    layered.object.setMaskAtIndex(1, mask.buffer, 0, masked);
    return { binding, states, floats: states.map(({ floats }) => floats), single, layered };
  });
  const singles = handleList(people.map(({ single }) => single.object));
  const layereds = handleList(people.map(({ layered }) => layered.object));

  function writeCrossfade(set) {
    const { times, running } = sets[set];
    for (let c = 0; c < characters; ++c) {
      const { floats } = people[c];
      floats[walk][state.time] = times[3 * c];
      floats[walk][state.weight] = 1 - running[c];
      floats[run][state.time] = times[3 * c + 1];
      floats[run][state.weight] = running[c];
    }
  }

  function writeLayers(set) {
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
  }

  // The argument is not read, but must be there.
  const argument = new ArrayBuffer(0);

  return {
    name: 'nq',

    /** Local matrices from two states, and with an additive layer above. */
    crossfade(set) {
      writeCrossfade(set);
      engine.updateAnimatorControllers(singles);
    },
    layers(set) {
      writeLayers(set);
      engine.updateAnimatorControllers(layereds);
    },

    /** The same by a call for each character, on the calling thread. */
    singly: {
      crossfade(set) {
        writeCrossfade(set);
        for (let c = 0; c < characters; ++c) {
          people[c].single.object.update(null, argument);
        }
      },
      layers(set) {
        writeLayers(set);
        for (let c = 0; c < characters; ++c) {
          people[c].layered.object.update(null, argument);
        }
      },
    },

    /** Only the batch call of `layers`, without the writes. */
    call: () => engine.updateAnimatorControllers(layereds),

    /** World matrices of all bones. */
    refresh: () => engine.refreshWorldTransform(),

    worlds: crowd.copyWorlds,

    /** Kept alive, since a collected wrapper releases its native object. */
    owned: [crowd, clips, people],
  };
}

module.exports = { createControllersNative };
