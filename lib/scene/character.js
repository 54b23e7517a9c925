'use strict';
// Characters: instances of a model in a scene. A character is a node; the nodes of its model are below it, as a run of
// entities that follows its own.
const { AnimationLayer } = require('./layers');
const { Node } = require('./node');
const { crossfadeOn, playOn, setTimeOn, setWeightOn, stopOn, timeOn, weightOn } = require('./play');
const { kNoSlots, noteClips, numberAt } = require('./slots');
const { isObject, show } = require('../value-checks');
const { failIndex } = require('../view-base');

/**
 * @typedef {import('../scene').Scene} Scene
 * @typedef {import('./layers').LayerOptions} LayerOptions
 * @typedef {import('./model').Model} Model
 * @typedef {import('./model').ModelClip} ModelClip
 * @typedef {import('./play').PlayOptions} PlayOptions
 */

/**
 * What is called for a clip of a character. It may play, stop, dispose, and add layers.
 * @typedef {(character: Character, clip: ModelClip) => void} ClipListener
 */

const kNoOptions = Object.freeze({});

/**
 * An instance of a model, made by `scene.instantiate`. It is a node, which carries all nodes of its model; cameras see it
 * by the bounds of the model.
 */
class Character extends Node {
  /**
   * Made by scenes.
   * @protected
   * @param {Scene} scene
   * @param {Model} model
   * @param {Object} body
   */
  constructor(scene, model, body) {
    // `body` is what it takes from the pools of its scene.
    if (!isObject(scene) || !isObject(model) || !isObject(body)) {
      const cure = 'call that';
      throw new TypeError(`new Character: characters come from scene.instantiate only: ${cure}.`);
    }
    super(scene, body.first, model.name);
    noteClips(this, kNoSlots);
    /** What plays: those of its track. */
    this._slots = body.player === null ? kNoSlots : body.player.slots;
    this._label = 'Character';
    /**
     * Its model.
     * @type {Model}
     * @readonly
     */
    this.model = model;
    /**
     * Called when a clip that loops starts again, before the poses of that update are computed.
     * @type {ClipListener | null}
     */
    this.onLoop = null;
    /**
     * Called when a clip that does not loop has reached its end, where it is held.
     * @type {ClipListener | null}
     */
    this.onEnd = null;
    this._body = body;
    this._parts = null;
    this._layersByName = null;
    /** The frame in which a camera saw it last. */
    this._seen = -1;
  }

  /**
   * A node of its model, by name or index. It can be read, and things can be added to it; clips overwrite its transform
   * if they move it.
   * @param {string | number} which
   * @returns {Node}
   */
  node(which) {
    this._check('node');
    const { model, scene, _body: body } = this;
    const index = typeof which === 'string' ? model.nodeIndex(which) : which;
    if (typeof index !== 'number' || index >>> 0 !== index || index >= model.nodes.length) {
      failIndex('Character.node', 'index', index, model.nodes.length);
    }
    if (this._parts === null) {
      this._parts = new Map();
    }
    let part = this._parts.get(index);
    if (part === undefined) {
      part = new Node(scene, body.first + 1 + index, model.nodes[index].name);
      part._character = this;
      part._parent = this;
      this._parts.set(index, part);
    }
    return part;
  }

  /**
   * Lets a node follow a node of the model: a sword in a hand. Its transform is then in that node's space. To let it go,
   * add it elsewhere, or remove it.
   * @template {Node} T
   * @param {T} node
   * @param {string | number} to name or index of a node of the model
   * @returns {T} the node
   */
  attach(node, to) {
    this._check('attach');
    this.node(to).add(node);
    return node;
  }

  /**
   * Skinning matrices of a skin of the model as of the last update, in place: 16 floats a joint, column-major; always the
   * same array. They transform vertices at rest to the world. Don't write to it, and drop it with the character.
   * @param {number} [skin] index, default 0
   * @returns {Float32Array}
   */
  skinMatrices(skin = 0) {
    this._check('skinMatrices');
    const { skins } = this._body;
    if (typeof skin !== 'number' || skin >>> 0 !== skin || skin >= skins.length) {
      failIndex('Character.skinMatrices', 'skin', skin, skins.length);
    }
    return skins[skin].view.results;
  }

  /**
   * Plays a clip, instead of what plays.
   * @param {string | number | ModelClip} clip its name, its index in the model, or itself
   * @param {PlayOptions} [options]
   * @returns {ModelClip}
   */
  play(clip, options = kNoOptions) {
    this._check('play');
    return playOn('Character.play', this.model, this._trackOf(clip), clip, options);
  }

  /**
   * Plays a clip, and fades from what plays to it.
   * @param {string | number | ModelClip} clip its name, its index in the model, or itself
   * @param {number} seconds that it takes
   * @param {PlayOptions} [options] all but `fade`
   * @returns {ModelClip}
   */
  crossfade(clip, seconds, options = kNoOptions) {
    this._check('crossfade');
    return crossfadeOn(
      'Character.crossfade',
      this.model,
      this._trackOf(clip),
      clip,
      seconds,
      options
    );
  }

  /**
   * Ends a clip, or all: those of layers play on. Without a fade the pose stays as it is when none is left; the next clip
   * is faded in from there. With a fade it becomes the one at rest.
   * @param {string | number | ModelClip} [clip] by default all
   * @param {{ fade?: number }} [options] seconds in which its weight becomes 0, by default 0
   */
  stop(clip, options = kNoOptions) {
    this._check('stop');
    const track = this._body.player === null ? null : this._body.player.base;
    stopOn('Character.stop', this.model, track, clip, options);
  }

  /**
   * Sets the weight of a clip that plays. At weight 0 it is not seen, and plays on.
   * @param {string | number | ModelClip} clip
   * @param {number} weight from 0 to 1
   * @param {{ fade?: number }} [options] seconds that it takes, by default 0
   */
  setWeight(clip, weight, options = kNoOptions) {
    // A clip by its index, at once, in each frame of many characters: with as little memory to read as possible.
    const at = numberAt(this, clip);
    if (
      at >= 0 &&
      options === kNoOptions &&
      typeof weight === 'number' &&
      weight >= 0 &&
      weight <= 1
    ) {
      this.scene._players.setWeight(at, weight);
      return;
    }
    this._check('setWeight');
    setWeightOn('Character.setWeight', this.model, this._trackOf(clip), clip, weight, options);
  }

  /**
   * Sets the seconds in a clip that plays: those of its next pose are these and what the update adds, so nothing at
   * speed 0. It allocates nothing.
   * @param {string | number | ModelClip} clip
   * @param {number} seconds from 0 on; the end of the clip at most
   */
  setTime(clip, seconds) {
    const at = numberAt(this, clip);
    if (at >= 0 && typeof seconds === 'number' && seconds >= 0) {
      this.scene._players.setTime(at, seconds);
      return;
    }
    this._check('setTime');
    setTimeOn('Character.setTime', this.model, this._trackOf(clip), clip, seconds);
  }

  /**
   * Seconds in a clip that plays, or -1.
   * @param {string | number | ModelClip} clip
   * @returns {number}
   */
  timeOf(clip) {
    this._check('timeOf');
    return timeOn(this.model, this._trackOf(clip), clip);
  }

  /**
   * Weight of a clip; 0 if it does not play.
   * @param {string | number | ModelClip} clip
   * @returns {number}
   */
  weightOf(clip) {
    this._check('weightOf');
    return weightOn(this.model, this._trackOf(clip), clip);
  }

  /**
   * Adds a layer: clips that play over those of the character, on all nodes or on those of a mask.
   * @param {string} name by which `layer` finds it
   * @param {LayerOptions} [options]
   * @returns {AnimationLayer}
   */
  addLayer(name, options = kNoOptions) {
    const label = 'Character.addLayer';
    this._check('addLayer');
    if (typeof name !== 'string' || name === '') {
      throw new TypeError(`${label}: name is ${show(name)}: give a string.`);
    }
    if (this._layersByName !== null && this._layersByName.has(name)) {
      const cure = `dispose of it first, or use layer('${name}')`;
      throw new RangeError(`${label}: there is a layer '${name}': ${cure}.`);
    }
    if (this._body.player === null) {
      const trouble = `model '${this.model.name}' has no clips`;
      throw new RangeError(`${label}: ${trouble}: give a model with clips.`);
    }
    const layer = new AnimationLayer(this, name, options);
    if (this._layersByName === null) {
      this._layersByName = new Map();
    }
    this._layersByName.set(name, layer);
    return layer;
  }

  /**
   * A layer that was added.
   * @param {string} name
   * @returns {AnimationLayer}
   */
  layer(name) {
    this._check('layer');
    const found = this._layersByName === null ? undefined : this._layersByName.get(name);
    if (found === undefined) {
      const names = Array.from(this._layersByName === null ? [] : this._layersByName.keys());
      const list = names.map((one) => `'${one}'`).join(', ');
      const cure = list === '' ? 'add it by addLayer' : `it has ${list}`;
      throw new RangeError(`Character.layer: there is no layer ${show(name)}: ${cure}.`);
    }
    return found;
  }

  /** Ends all clips, those of layers as well, and gives all nodes of the model their transforms at rest. */
  rest() {
    this._check('rest');
    if (this._body.player !== null) {
      this.scene._players.clear(this._body.player);
    }
    this.scene._writeRest(this.model, this._body);
  }

  /** Removes it with all below it, and gives its memory back for the next one. It can't be used any more. */
  dispose() {
    if (this._f32 === null) {
      return;
    }
    this._checkMovable('Character.dispose');
    if (this._layersByName !== null) {
      this._layersByName.forEach((layer) => layer.dispose());
      this._layersByName = null;
    }
    this._disposeChildren();
    if (this._parts !== null) {
      for (const part of this._parts.values()) {
        part._disposeChildren();
        if (part._object >= 0) {
          this.scene._objects.give(part._object);
          part._object = -1;
        }
        part._end();
      }
    }
    if (this._parent !== null) {
      this._leave();
      this._changes.remove(this._index);
    }
    this.scene._takeBack(this);
    this._object = -1;
    this._body = null;
    this._slots = kNoSlots;
    noteClips(this, kNoSlots);
    this._end();
  }

  /** The track of its own clips. Throws if the model has no such clip. */
  _trackOf(clip) {
    this.model.clip(clip);
    return this._body.player.base;
  }
}

module.exports = { Character };
