'use strict';
// Animation by three.js: a mixer for each character over tracks of the same keys, bones in the scene
// graph, a Skeleton for each character. Rotations go on arcs from key to key, which is the only way of
// its quaternion tracks, positions straight. Automatic updates are off: what was animated, and nothing
// else, gets its updateMatrix().
const {
  AnimationClip,
  AnimationMixer,
  Bone,
  Matrix4,
  Object3D,
  QuaternionKeyframeTrack,
  Skeleton,
  VectorKeyframeTrack,
} = require('three');
const animation = require('../lib/animation-scene');
const { createCullingThree } = require('./culling-three');

const { bones, channelCount, clipFrames, framesPerSecond, keyCount } = animation;

/** The clip's numbers of some channels in a row, key by key. */
function rowsOf(values, first, width) {
  const out = new Float32Array(keyCount * width);
  for (let key = 0; key < keyCount; ++key) {
    const from = key * channelCount + first;
    out.set(values.subarray(from, from + width), key * width);
  }
  return out;
}

function createClip({ values }, number) {
  const times = Float32Array.from({ length: keyCount }, (_, key) => key / framesPerSecond);
  const tracks = [new VectorKeyframeTrack('bone0.position', times, rowsOf(values, 4 * bones, 3))];
  for (let bone = 0; bone < bones; ++bone) {
    const rotations = rowsOf(values, 4 * bone, 4);
    tracks.push(new QuaternionKeyframeTrack(`bone${bone}.quaternion`, times, rotations));
  }
  return new AnimationClip(`clip${number}`, clipFrames / framesPerSecond, tracks);
}

/**
 * The contender.
 * @param {import('../lib/animation-scene').AnimationScene} scene
 */
function createAnimationThree(scene) {
  const clips = scene.clips.map(createClip);
  const inverses = Array.from({ length: bones }, (_, bone) =>
    new Matrix4().fromArray(scene.inverseBinds, 16 * bone)
  );
  const root = new Object3D();
  root.matrixAutoUpdate = false;
  const people = Array.from({ length: scene.characters }, (_, c) => {
    const holder = new Object3D();
    holder.matrixAutoUpdate = false;
    holder.position.fromArray(scene.places, 3 * c);
    holder.updateMatrix();
    root.add(holder);
    const parts = [];
    for (let bone = 0; bone < bones; ++bone) {
      const part = new Bone();
      part.name = `bone${bone}`;
      part.matrixAutoUpdate = false;
      part.position.fromArray(scene.offsets, 3 * bone);
      part.scale.fromArray(scene.scales, 3 * bone);
      (bone === 0 ? holder : parts[scene.parents[bone]]).add(part);
      parts.push(part);
    }
    const mixer = new AnimationMixer(holder);
    const actions = [0, 1].map((k) => mixer.clipAction(clips[scene.clipsOf[2 * c + k]]));
    return { parts, mixer, actions, skeleton: new Skeleton(parts, inverses) };
  });
  const hips = new Float32Array(16 * scene.characters);
  const culling = createCullingThree(scene, [hips]);
  let played = 0;

  /** Starts as many of each character's actions, ahead of what is measured or once at its start. */
  function play(count) {
    if (played !== count) {
      for (const { mixer, actions } of people) {
        mixer.stopAllAction();
        actions.slice(0, count).forEach((action) => action.play());
      }
      played = count;
    }
  }

  function updateParts(parts) {
    for (let bone = 0; bone < bones; ++bone) {
      parts[bone].updateMatrix();
    }
  }

  function animateOne(times) {
    play(1);
    for (let c = 0; c < people.length; ++c) {
      const { parts, mixer, actions } = people[c];
      actions[0].time = times[2 * c] / framesPerSecond;
      actions[0].setEffectiveWeight(1);
      mixer.update(0);
      updateParts(parts);
    }
  }

  function animateTwo({ fractional, weights }) {
    play(2);
    for (let c = 0; c < people.length; ++c) {
      const { parts, mixer, actions } = people[c];
      const weight = weights[c];
      actions[0].time = fractional[2 * c] / framesPerSecond;
      actions[0].setEffectiveWeight(weight);
      actions[1].time = fractional[2 * c + 1] / framesPerSecond;
      actions[1].setEffectiveWeight(1 - weight);
      mixer.update(0);
      updateParts(parts);
    }
  }

  const refresh = () => root.updateMatrixWorld();

  function skin() {
    for (let c = 0; c < people.length; ++c) {
      people[c].skeleton.update();
    }
  }

  function cull(camera) {
    for (let c = 0; c < people.length; ++c) {
      people[c].parts[0].matrixWorld.toArray(hips, 16 * c);
    }
    culling.move(0);
    culling.cullMoved(camera);
  }

  return {
    name: 'three',
    clip: (set) => animateOne(scene.sets[set].fractional),
    frames: (set) => animateOne(scene.sets[set].whole),
    crossfade: (set) => animateTwo(scene.sets[set]),
    refresh,
    skin,

    frame(set, camera) {
      animateTwo(scene.sets[set]);
      refresh();
      skin();
      cull(camera);
    },

    worlds(out) {
      people.forEach(({ parts }, c) => {
        parts.forEach((part, bone) => part.matrixWorld.toArray(out, 16 * (bones * c + bone)));
      });
    },

    skins(out) {
      people.forEach(({ skeleton }, c) => {
        // The skeleton makes room for whole rows of a texture.
        out.set(skeleton.boneMatrices.subarray(0, 16 * bones), 16 * bones * c);
      });
    },

    view: culling.view,
  };
}

module.exports = { createAnimationThree };
