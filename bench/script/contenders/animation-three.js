'use strict';
// Animation by three.js: a mixer per character with tracks of the same keys, bones in the scene graph, a Skeleton per
// character. Rotations use slerp between keys, the only interpolation of its quaternion tracks, positions are linear.
// Automatic updates are off: only what was animated gets an updateMatrix().
const {
  AnimationClip,
  AnimationMixer,
  Matrix4,
  Object3D,
  QuaternionKeyframeTrack,
  Skeleton,
  VectorKeyframeTrack,
} = require('three');
const animation = require('../lib/animation-scene');
const { copyWorlds, createCharacter, createPlayer, rowsOf } = require('../lib/three-scene');
const { createCullingThree } = require('./culling-three');

const { bones, clipFrames, framesPerSecond, keyCount } = animation;

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
    const { holder, parts } = createCharacter(root, scene, c);
    const mixer = new AnimationMixer(holder);
    const actions = [0, 1].map((k) => mixer.clipAction(clips[scene.clipsOf[2 * c + k]]));
    return { parts, mixer, actions, skeleton: new Skeleton(parts, inverses) };
  });
  const hips = new Float32Array(16 * scene.characters);
  const culling = createCullingThree(scene, [hips]);
  const play = createPlayer(people);

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

    clipFrame(set, camera) {
      animateOne(scene.sets[set].fractional);
      refresh();
      skin();
      cull(camera);
    },

    frame(set, camera) {
      animateTwo(scene.sets[set]);
      refresh();
      skin();
      cull(camera);
    },

    worlds: (out) => copyWorlds(people, out),

    skins(out) {
      people.forEach(({ skeleton }, c) => {
        // The skeleton allocates whole rows of a texture.
        out.set(skeleton.boneMatrices.subarray(0, 16 * bones), 16 * bones * c);
      });
    },

    view: culling.view,
  };
}

module.exports = { createAnimationThree };
