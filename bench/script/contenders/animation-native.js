'use strict';
// Animation by the module: an animator and a skinning component per character. Times and weights are written into the
// animators' buffers; then one batch call per kind, with a buffer of handles.
const { over } = require('../../../tests/script/support/blocks');
const { animatorClip, componentKinds, dataModelKinds } = require('../../../lib/layout');
const { bones } = require('../lib/animation-scene');
const {
  createCharacters,
  createClips,
  createCullingObjects,
  cullAll,
  getEngine,
  handleList,
  readView,
} = require('../lib/native-scene');

// Word offsets in an animator's buffer: a clip's record, and its fields.
const clipRecordWords = animatorClip.size / 4;
const timeAt = animatorClip.time / 4;
const weightAt = animatorClip.weight / 4;

/**
 * The contender.
 * @param {import('../lib/animation-scene').AnimationScene} scene
 */
function createAnimationNative(scene) {
  const engine = getEngine();
  const { characters, sets } = scene;

  const crowd = createCharacters(engine, scene);
  const clips = createClips(engine, scene);
  const inverseBinds = engine.createDataModel(dataModelKinds.bones, scene.inverseBinds.buffer);

  /** An animator for the first `played` clips of each character, and views of their buffers. */
  function createAnimators(played) {
    const objects = [];
    const views = [];
    for (let c = 0; c < characters; ++c) {
      const object = engine.createComponent(componentKinds.animator, played, played * bones);
      const words = over(Uint32Array, object);
      for (let k = 0; k < played; ++k) {
        words[clipRecordWords * k] = clips[scene.clipsOf[2 * c + k]].id;
        words.set(crowd.handlesOf(c), clipRecordWords * played + bones * k);
      }
      objects.push(object);
      views.push(over(Float32Array, object).subarray(0, clipRecordWords * played));
    }
    return { objects, views, list: handleList(objects) };
  }

  const single = createAnimators(1);
  const pair = createAnimators(2);

  const skins = Array.from({ length: characters }, (_, c) => {
    const object = engine.createComponent(componentKinds.skinning, bones);
    const words = over(Uint32Array, object);
    words[0] = inverseBinds.id;
    for (let bone = 0; bone < bones; ++bone) {
      words[1 + bone] = bone;
      words[1 + bones + bone] = crowd.handleOf(c, bone);
    }
    return object;
  });
  const skinList = handleList(skins);

  const { batches, indexOf } = createCullingObjects(engine, scene.spheres, (object) =>
    crowd.handleOf(object, 0)
  );
  let result = engine.cullingResult;

  function writeOne(times) {
    const { views } = single;
    for (let c = 0; c < characters; ++c) {
      const view = views[c];
      view[timeAt] = times[2 * c];
      view[weightAt] = 1;
    }
  }

  function animateOne(times) {
    writeOne(times);
    engine.updateAnimators(single.list);
  }

  function writeTwo({ fractional, weights }) {
    const { views } = pair;
    for (let c = 0; c < characters; ++c) {
      const view = views[c];
      const weight = weights[c];
      view[timeAt] = fractional[2 * c];
      view[weightAt] = weight;
      view[clipRecordWords + timeAt] = fractional[2 * c + 1];
      view[clipRecordWords + weightAt] = 1 - weight;
    }
  }

  function animateTwo(times) {
    writeTwo(times);
    engine.updateAnimators(pair.list);
  }

  function updateSingly(objects) {
    for (let c = 0; c < characters; ++c) {
      engine.updateAnimator(objects[c].id);
    }
  }

  const refresh = () => engine.refreshWorldTransform();
  const skin = () => engine.updateSkinningMatrices(skinList);

  function cull(camera) {
    if (cullAll(engine, camera)) {
      result = engine.cullingResult;
    }
  }

  return {
    name: 'nq',

    /** Local matrices from one clip, and from two, of each character. */
    clip: (set) => animateOne(sets[set].fractional),
    frames: (set) => animateOne(sets[set].whole),
    crossfade: (set) => animateTwo(sets[set]),

    /** The same by a call for each character, on the calling thread. */
    singly: {
      clip(set) {
        writeOne(sets[set].fractional);
        updateSingly(single.objects);
      },
      frames(set) {
        writeOne(sets[set].whole);
        updateSingly(single.objects);
      },
      crossfade(set) {
        writeTwo(sets[set]);
        updateSingly(pair.objects);
      },
    },

    /** World matrices of all bones, and their products with the inverse bind matrices. */
    refresh,
    skin,

    /** A whole frame, of one clip and of two. */
    clipFrame(set, camera) {
      animateOne(sets[set].fractional);
      refresh();
      skin();
      cull(camera);
    },
    frame(set, camera) {
      animateTwo(sets[set]);
      refresh();
      skin();
      cull(camera);
    },

    /** The same on the calling thread only. */
    frameAlone(set, camera) {
      writeTwo(sets[set]);
      updateSingly(pair.objects);
      refresh();
      for (const { id } of skins) {
        engine.updateSkinningMatrix(id);
      }
      cull(camera);
    },

    worlds: crowd.copyWorlds,

    skins(out) {
      skins.forEach((skin, c) => {
        out.set(
          over(Float32Array, skin).subarray((4 + 8 * bones) / 4, (4 + 8 * bones) / 4 + 16 * bones),
          16 * bones * c
        );
      });
    },

    view: () => readView(result, indexOf),

    /** Kept alive, since a collected wrapper releases its native object. */
    owned: [crowd, clips, inverseBinds, single.objects, pair.objects, skins, batches],
  };
}

module.exports = { createAnimationNative };
