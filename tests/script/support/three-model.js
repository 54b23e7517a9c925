'use strict';
// Models of files in three.js, to compare characters of scenes with: their keys are as in the file.
const assert = require('assert');
const three = require('three');
const { NodeIO } = require('@gltf-transform/core');
const { importGltf } = require('../../../lib/gltf');
const { Model } = require('../../../scene');
const { columnLengths, multiplyMagnitudes } = require('./reference');

const properties = { translation: 'position', rotation: 'quaternion', scale: 'scale' };

/** A model in three.js, with its mixer: keys as they are in the file, played by name. */
class Oracle {
  constructor(imported, document) {
    const root = document.getRoot();
    const fileNodes = root.listNodes();
    this.group = new three.Group();
    this.bones = imported.nodes.map(({ fileIndex, parent }, i) => {
      const bone = new three.Bone();
      bone.name = `node${i}`;
      bone.position.fromArray(fileNodes[fileIndex].getTranslation());
      bone.quaternion.fromArray(fileNodes[fileIndex].getRotation());
      bone.scale.fromArray(fileNodes[fileIndex].getScale());
      return bone;
    });
    imported.nodes.forEach(({ parent }, i) => {
      (parent < 0 ? this.group : this.bones[parent]).add(this.bones[i]);
    });
    const indexOf = (node) => {
      return imported.nodes.findIndex(({ fileIndex }) => fileNodes[fileIndex] === node);
    };
    this.skeletons = root.listSkins().map((skin) => {
      const inverses = skin.listJoints().map((_, i) => {
        return new three.Matrix4().fromArray(skin.getInverseBindMatrices().getElement(i, []));
      });
      const bones = skin.listJoints().map((joint) => this.bones[indexOf(joint)]);
      return new three.Skeleton(bones, inverses);
    });
    this.mixer = new three.AnimationMixer(this.group);
    this.actions = new Map();
    for (const animation of root.listAnimations()) {
      const tracks = animation.listChannels().map((channel) => {
        const path = channel.getTargetPath();
        const Track =
          path === 'rotation' ? three.QuaternionKeyframeTrack : three.VectorKeyframeTrack;
        const sampler = channel.getSampler();
        const name = `node${indexOf(channel.getTargetNode())}.${properties[path]}`;
        return new Track(name, sampler.getInput().getArray(), sampler.getOutput().getArray());
      });
      const clip = new three.AnimationClip(animation.getName(), -1, tracks);
      this.actions.set(animation.getName(), this.mixer.clipAction(clip));
    }
  }

  /** Poses it: weights and seconds by name. */
  pose(playing) {
    for (const [name, action] of this.actions) {
      const now = playing[name];
      if (now === undefined) {
        action.stop();
      } else {
        action.play();
        action.time = now.time;
        action.setEffectiveWeight(now.weight);
      }
    }
    this.mixer.update(0);
    this.group.updateMatrixWorld(true);
    this.skeletons.forEach((skeleton) => skeleton.update());
  }

  /** Magnitudes of the factors of a bone's matrix, and their number. */
  magnitudesOf(bone, last) {
    let depth = 1;
    let magnitudes = last;
    for (let above = bone; above !== null; above = above.parent, ++depth) {
      magnitudes = multiplyMagnitudes(columnLengths(above.matrix.elements), magnitudes);
    }
    return { magnitudes, depth };
  }
}

/**
 * Keys of rotations are an eighth of a radian apart, which misses the arc by 6e-7, and floats by 24 roundings of about 3
 * terms (see the comparison of whole models): 5e-6 of a quaternion, four times as much of a matrix.
 */
const kLevelError = 2e-5;

function assertSkins(character, oracle, label) {
  let compared = 0;
  oracle.skeletons.forEach(({ bones, boneInverses, boneMatrices }, skin) => {
    const actual = character.skinMatrices(skin);
    assert.strictEqual(actual.length, boneMatrices.length);
    bones.forEach((bone, joint) => {
      const inverse = boneInverses[joint].elements;
      const { magnitudes, depth } = oracle.magnitudesOf(bone, inverse);
      for (let k = 0; k < 16; ++k) {
        const [is, wanted] = [actual[16 * joint + k], boneMatrices[16 * joint + k]];
        const bound = kLevelError * depth * magnitudes[k] + 1e-12;
        const text = `${label}, joint ${joint}, element ${k}: ${is}, ${wanted}, within ${bound}`;
        assert(Math.abs(is - wanted) <= bound, text);
        ++compared;
      }
    });
  });
  return compared;
}

async function load(source) {
  const io = new NodeIO();
  const document = typeof source === 'string' ? await io.read(source) : await io.readBinary(source);
  const imported = await importGltf(source);
  return { model: await Model.load(source), oracle: new Oracle(imported, document) };
}

module.exports = { Oracle, assertSkins, kLevelError, load };
