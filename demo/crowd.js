'use strict';
// Many characters of one kind in a scene, with props in their hands.
const { inModel } = require('./kind');
const { CrowdProps } = require('./props');

/** Options of a clip whose time and weight the plan sets in each frame. */
const kDriven = { speed: 0, beside: true };

/** Owns the characters of a crowd. */
class Crowd {
  /**
   * Creates the characters, and computes their matrices.
   * @param {import('../scene').Scene} scene
   * @param {import('./kind').Kind} kind
   * @param {number} count
   * @param {Array<?import('./props').Part>} [cast] what each carries, for kinds with layers
   */
  constructor(scene, kind, count, cast = []) {
    this.scene = scene;
    this.kind = kind;
    this.cast = cast;
    /** @type {import('../scene').Character[]} */
    this.characters = [];
    /** The skinning matrices of each character, which native code writes. */
    this.matrices = [];
    this.props = new CrowdProps(this);
    /** Seconds of each clip of the model: those of the kind, then those of its layers. */
    this.durations = kind.model.clips.map(({ duration }) => duration);
    /** By character: layers of its wave and its breath; null for none. */
    this.waves = [];
    this.breaths = [];
    this.enable(count);
  }

  get count() {
    return this.characters.length;
  }

  get boneCount() {
    return this.count * this.kind.joints.length;
  }

  /** Disposes of the last characters, or adds new ones. */
  enable(count) {
    const { scene, kind, characters, matrices } = this;
    while (characters.length > count) {
      characters.pop().dispose();
      [matrices, this.waves, this.breaths].forEach((list) => list.pop());
    }
    const first = characters.length;
    characters.push(...scene.instantiate(kind.model, count - first));
    for (let i = first; i < count; ++i) {
      matrices.push(characters[i].skinMatrices());
      kind.clips.forEach((_, k) => {
        characters[i].play(k, kDriven);
        characters[i].setWeight(k, k === 0 ? 1 : 0);
      });
      this.waves.push(this.addWave(i));
      this.breaths.push(kind.layers ? this.addBreath(i) : null);
      this.props.give(i);
    }
    scene.update();
  }

  /** Lets the arm of what a character carries hold it, whatever the others do, with a layer above that waves. */
  addWave(character) {
    const { cast, kind, characters } = this;
    const part = cast[character] || null;
    if (part === null) {
      return null;
    }
    const mask = kind.layers.hands[part.hand].arm.map(inModel);
    characters[character].addLayer('carry', { mask }).play('carry', kDriven);
    const wave = characters[character].addLayer('wave', { mask, weight: 0 });
    wave.play('wave', kDriven);
    return wave;
  }

  addBreath(character) {
    const breath = this.characters[character].addLayer('breath', { additive: true, weight: 0 });
    breath.play('breath', kDriven);
    return breath;
  }

  /**
   * Sets position (0 to 1, as a fraction of its length) and weight of a character's clip; the weights of all must sum
   * to 1.
   */
  play(character, clip, moment, weight) {
    const one = this.characters[character];
    one.setTime(clip, moment * this.durations[clip]);
    one.setWeight(clip, weight);
  }

  /** Sets position and weight of the wave of a character with a prop; for kinds with layers. */
  wave(character, moment, weight) {
    const { clips } = this.kind;
    this.setLayer(this.waves[character], clips.length, moment, weight);
  }

  /** Sets position and weight of a character's breath; for kinds with layers. */
  breathe(character, moment, weight) {
    const { clips } = this.kind;
    this.setLayer(this.breaths[character], clips.length + 1, moment, weight);
  }

  setLayer(layer, clip, moment, weight) {
    layer.setTime(clip, moment * this.durations[clip]);
    layer.weight = weight;
  }

  /** Moves a character on the ground and rotates it: at 0 it faces along z, at a quarter turn along x. */
  place(character, x, z, heading) {
    const one = this.characters[character];
    one.setPosition(x, 0, z);
    one.setQuaternion(0, Math.sin(heading / 2), 0, Math.cos(heading / 2));
  }

  /** Bytes of memory that this crowd shares with the engine. */
  sharedBytes() {
    return this.scene.sharedBytes;
  }
}

module.exports = { Crowd };
