'use strict';
// Characters of three.js: bones in the scene graph, and clip values for its tracks. Automatic updates are off.
const { Bone, Object3D } = require('three');
const { bones, channelCount, keyCount } = require('./animation-scene');

/** The values of some consecutive channels of a clip, key by key. */
function rowsOf(values, first, width) {
  const out = new Float32Array(keyCount * width);
  for (let key = 0; key < keyCount; ++key) {
    const from = key * channelCount + first;
    out.set(values.subarray(from, from + width), key * width);
  }
  return out;
}

/**
 * A character under the root: its holder at its place, and its bones.
 * @param {Object3D} root
 * @param {import('./animation-scene').AnimationScene} scene
 * @param {number} c number of the character
 * @returns {{holder: Object3D, parts: Bone[]}}
 */
function createCharacter(root, scene, c) {
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
  return { holder, parts };
}

/**
 * Starts that many of each character's actions, before the measurement or once at its start.
 * @param {{mixer: object, actions: object[]}[]} people
 * @returns {(count: number) => void} does nothing if as many are playing
 */
function createPlayer(people) {
  let played = 0;
  return (count) => {
    if (played !== count) {
      for (const { mixer, actions } of people) {
        mixer.stopAllAction();
        actions.slice(0, count).forEach((action) => action.play());
      }
      played = count;
    }
  };
}

/** World matrices of all bones, 16 numbers each. */
function copyWorlds(people, out) {
  people.forEach(({ parts }, c) => {
    parts.forEach((part, bone) => part.matrixWorld.toArray(out, 16 * (bones * c + bone)));
  });
}

module.exports = { copyWorlds, createCharacter, createPlayer, rowsOf };
