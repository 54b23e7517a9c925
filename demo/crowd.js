'use strict';
// Many characters of one kind in a scene, with props in their hands.
const { CrowdControllers } = require('./controllers');
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
    this.controllers = kind.layers ? new CrowdControllers(this) : null;
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
      matrices.pop();
    }
    const first = characters.length;
    characters.push(...scene.instantiate(kind.model, count - first));
    for (let i = first; i < count; ++i) {
      matrices.push(characters[i].skinMatrices());
      kind.model.clips.forEach((clip, k) => {
        characters[i].play(clip, kDriven);
        characters[i].setWeight(clip, k === 0 ? 1 : 0);
      });
      this.props.give(i);
    }
    // Controllers need linked nodes.
    scene.update();
    if (this.controllers !== null) {
      this.controllers.enable(count);
    }
  }

  /**
   * Sets position (0 to 1, as a fraction of its length) and weight of a character's clip; the weights of all must sum
   * to 1.
   */
  play(character, clip, moment, weight) {
    if (this.controllers !== null) {
      this.controllers.play(character, clip, moment, weight);
      return;
    }
    const one = this.characters[character];
    one.setTime(clip, moment * this.kind.model.clips[clip].duration);
    one.setWeight(clip, weight);
  }

  /** Sets position and weight of the wave of a character with a prop; for kinds with layers. */
  wave(character, moment, weight) {
    this.controllers.wave(character, moment, weight);
  }

  /** Sets position and weight of a character's breath; for kinds with layers. */
  breathe(character, moment, weight) {
    this.controllers.breathe(character, moment, weight);
  }

  /** Moves a character on the ground and rotates it: at 0 it faces along z, at a quarter turn along x. */
  place(character, x, z, heading) {
    const one = this.characters[character];
    one.setPosition(x, 0, z);
    one.setQuaternion(0, Math.sin(heading / 2), 0, Math.cos(heading / 2));
  }

  /** Evaluates controllers; clips without layers are evaluated by the update of the scene. */
  animate() {
    if (this.controllers !== null) {
      this.controllers.animate();
    }
  }

  /** Bytes of memory that this crowd shares with the engine. */
  sharedBytes() {
    const controllers = this.controllers === null ? 0 : this.controllers.sharedBytes();
    return this.scene.sharedBytes + controllers;
  }
}

module.exports = { Crowd };
