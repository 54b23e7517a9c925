'use strict';
// Layers by three.js: a mixer per character, an action per clip; the additive one's tracks are relative to their
// start, without those of masked bones. Automatic updates are off: only what was animated gets an updateMatrix().
const {
  AnimationClip,
  AnimationMixer,
  AnimationUtils,
  Object3D,
  QuaternionKeyframeTrack,
  VectorKeyframeTrack,
} = require('three');
const { bones, clipFrames, framesPerSecond, keyCount } = require('../lib/animation-scene');
const { aim, isMasked } = require('../lib/controllers-scene');
const { copyWorlds, createCharacter, createPlayer, rowsOf } = require('../lib/three-scene');

function createClip({ values }, number) {
  const times = Float32Array.from({ length: keyCount }, (_, key) => key / framesPerSecond);
  const tracks = [];
  if (number !== aim) {
    tracks.push(new VectorKeyframeTrack('bone0.position', times, rowsOf(values, 4 * bones, 3)));
  }
  for (let bone = 0; bone < bones; ++bone) {
    if (number !== aim || !isMasked(bone)) {
      const rotations = rowsOf(values, 4 * bone, 4);
      tracks.push(new QuaternionKeyframeTrack(`bone${bone}.quaternion`, times, rotations));
    }
  }
  const clip = new AnimationClip(`clip${number}`, clipFrames / framesPerSecond, tracks);
  return number === aim ? AnimationUtils.makeClipAdditive(clip) : clip;
}

/**
 * The contender.
 * @param {import('../lib/controllers-scene').ControllerScene} scene
 */
function createControllersThree(scene) {
  const clips = scene.clips.map(createClip);
  const root = new Object3D();
  root.matrixAutoUpdate = false;
  const people = Array.from({ length: scene.characters }, (_, c) => {
    const { holder, parts } = createCharacter(root, scene, c);
    const mixer = new AnimationMixer(holder);
    return { parts, mixer, actions: clips.map((clip) => mixer.clipAction(clip)) };
  });
  const play = createPlayer(people);

  function animate({ times, running, aiming }, count) {
    play(count);
    for (let c = 0; c < people.length; ++c) {
      const { parts, mixer, actions } = people[c];
      actions[0].time = times[3 * c] / framesPerSecond;
      actions[0].setEffectiveWeight(1 - running[c]);
      actions[1].time = times[3 * c + 1] / framesPerSecond;
      actions[1].setEffectiveWeight(running[c]);
      if (count === 3) {
        actions[2].time = times[3 * c + 2] / framesPerSecond;
        actions[2].setEffectiveWeight(aiming[c]);
      }
      mixer.update(0);
      for (let bone = 0; bone < bones; ++bone) {
        parts[bone].updateMatrix();
      }
    }
  }

  return {
    name: 'three',
    crossfade: (set) => animate(scene.sets[set], 2),
    layers: (set) => animate(scene.sets[set], 3),
    refresh: () => root.updateMatrixWorld(),

    worlds: (out) => copyWorlds(people, out),
  };
}

module.exports = { createControllersThree };
