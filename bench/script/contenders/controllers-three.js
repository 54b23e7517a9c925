'use strict';
// Layers by three.js: a mixer for each character, an action a clip; the additive one's tracks are
// relative to their start, and those of masked bones are left out. Automatic updates are off: what was
// animated, and nothing else, gets its updateMatrix().
const {
  AnimationClip,
  AnimationMixer,
  AnimationUtils,
  Bone,
  Object3D,
  QuaternionKeyframeTrack,
  VectorKeyframeTrack,
} = require('three');
const {
  bones,
  channelCount,
  clipFrames,
  framesPerSecond,
  keyCount,
} = require('../lib/animation-scene');
const { aim, isMasked } = require('../lib/controllers-scene');

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
    return { parts, mixer, actions: clips.map((clip) => mixer.clipAction(clip)) };
  });
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

    worlds(out) {
      people.forEach(({ parts }, c) => {
        parts.forEach((part, bone) => part.matrixWorld.toArray(out, 16 * (bones * c + bone)));
      });
    },
  };
}

module.exports = { createControllersThree };
