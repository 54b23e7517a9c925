'use strict';
// Layers of characters: clips that play over those of the character, on some of its nodes or on all.
const { isObject, show } = require('../value-checks');
const {
  checkOptions,
  crossfadeOn,
  fadeOf,
  numberOf,
  playOn,
  setTimeOn,
  setWeightOn,
  stopOn,
  timeOn,
  weightOn,
} = require('./play');
const { Track, kNoSlots, noteClips, numberAt } = require('./slots');

/**
 * @typedef {import('./character').Character} Character
 * @typedef {import('./model').ModelClip} ModelClip
 * @typedef {import('./play').PlayOptions} PlayOptions
 */

/**
 * Nodes of a model: one by its name or index, one with all below it as a `subtree`, or several of these.
 * @typedef {string | number | { subtree: string | number } | Array<string | number | { subtree: string | number }>} NodeSelection
 */

/**
 * The pose that an additive layer subtracts from its clips.
 * @typedef {Object} ReferencePose
 * @property {string | number | ModelClip} [clip] By default each clip itself.
 * @property {number} [at] Seconds in it, by default 0.
 */

/**
 * How to make a layer.
 * @typedef {Object} LayerOptions
 * @property {NodeSelection} [mask] Nodes that it moves, by default all. Names do not include the nodes below: see `subtree`.
 * @property {NodeSelection} [exclude] Nodes that it does not move, though the mask has them.
 * @property {boolean} [additive] Whether its clips are added to what is below, as their difference from a reference pose.
 *   By default they replace it.
 * @property {ReferencePose | 'rest'} [reference] Reference pose of an additive layer: 'rest' for the pose at rest; by
 *   default the first frame of each clip.
 * @property {number} [weight] From 0 to 1, the default.
 */

/**
 * What is called for a clip of a layer. It may play, stop, dispose, and add layers.
 * @typedef {(layer: AnimationLayer, clip: ModelClip) => void} LayerListener
 */

const kNoOptions = Object.freeze({});
const kWeight = 'give a weight from 0 to 1';

/** Enters the nodes of a selection into `nodes`. */
function select(label, model, selection, value, nodes) {
  const parts = Array.isArray(selection) ? selection : [selection];
  for (const part of parts) {
    const isSubtree = isObject(part);
    const which = isSubtree ? part.subtree : part;
    const index = typeof which === 'string' ? model.nodeIndex(which) : which;
    if (typeof index !== 'number' || index >>> 0 !== index || index >= model.nodes.length) {
      const cure = `give a name, an index below ${model.nodes.length}, or { subtree }, or several`;
      throw new TypeError(`${label} has ${show(which)}: ${cure}.`);
    }
    nodes[index] = value;
    // Parents come first.
    for (let i = index + 1; isSubtree && i < model.nodes.length; ++i) {
      if (isBelow(model.nodes, i, index)) {
        nodes[i] = value;
      }
    }
  }
}

function isBelow(nodes, node, top) {
  let above = node;
  while (above > top) {
    above = nodes[above].parent;
  }
  return above === top;
}

/** By target: 1 for those that a layer moves; null for all. */
function makeMask(model, { mask, exclude }) {
  if (mask === undefined && exclude === undefined) {
    return null;
  }
  const label = 'Character.addLayer';
  const nodes = new Uint8Array(model.nodes.length);
  if (mask === undefined) {
    nodes.fill(1);
  } else {
    select(`${label}: mask`, model, mask, 1, nodes);
  }
  if (exclude !== undefined) {
    select(`${label}: exclude`, model, exclude, 0, nodes);
  }
  const members = Uint8Array.from(model._targets, (node) => nodes[node]);
  if (!members.includes(1)) {
    const cure = 'give nodes that clips move, or a subtree with such nodes';
    throw new RangeError(`${label}: no clip moves a node of the mask: ${cure}.`);
  }
  return members;
}

/**
 * The reference pose of a layer: the index of its clip, -1 for that at rest, seconds in it and its frames per second; or
 * `isOwn` for that of each clip.
 */
function makeReference({ model }, { additive, reference }) {
  const label = 'Character.addLayer';
  if (reference === undefined) {
    return { isOwn: true, index: -1, seconds: 0, rate: 0 };
  }
  if (additive !== true) {
    const cure = 'leave it out, or give additive: true';
    throw new RangeError(`${label}: reference is for additive layers: ${cure}.`);
  }
  if (reference === 'rest') {
    return { isOwn: false, index: -1, seconds: 0, rate: 1 };
  }
  if (!isObject(reference)) {
    const cure = "give 'rest', or { clip, at }";
    throw new TypeError(`${label}: reference is ${show(reference)}: ${cure}.`);
  }
  const cure = 'give seconds from 0 up';
  const seconds = numberOf(label, 'reference.at', reference.at, 0, 0, Number.MAX_VALUE, cure);
  if (reference.clip === undefined) {
    return { isOwn: true, index: -1, seconds, rate: 0 };
  }
  const { index, duration, framesPerSecond } = model.clip(reference.clip);
  return { isOwn: false, index, seconds: Math.min(seconds, duration), rate: framesPerSecond };
}

/**
 * A layer of a character, made by `character.addLayer`. It plays clips as the character does, over those of the character
 * and of the layers that were added before; additive layers come after all others. What it does not play on shows what is
 * below. It is disposed of with its character.
 */
class AnimationLayer {
  /**
   * Made by characters.
   * @protected
   * @param {Character} character
   * @param {string} name
   * @param {LayerOptions} options
   */
  constructor(character, name, options) {
    const label = 'Character.addLayer';
    checkOptions(label, options);
    const { additive = false } = options;
    if (typeof additive !== 'boolean') {
      throw new TypeError(`${label}: additive is ${show(additive)}: give true or false.`);
    }
    const weight = numberOf(label, 'weight', options.weight, 1, 0, 1, kWeight);
    // What setters read is next to each other, as in nodes.
    this._players = character.scene._players;
    /** Where its weight is, and the fade of it, among the numbers of slots. */
    this._faderAt = -1;
    noteClips(this, kNoSlots);
    this._slots = kNoSlots;
    /**
     * Its character.
     * @type {Character}
     * @readonly
     */
    this.character = character;
    /**
     * Its name.
     * @type {string}
     * @readonly
     */
    this.name = name;
    /**
     * Whether its clips are added to what is below.
     * @type {boolean}
     * @readonly
     */
    this.isAdditive = additive;
    /**
     * Called when a clip that loops starts again, before the poses of that update are computed.
     * @type {LayerListener | null}
     */
    this.onLoop = null;
    /**
     * Called when a clip that does not loop has reached its end, where it is held.
     * @type {LayerListener | null}
     */
    this.onEnd = null;
    const { player } = character._body;
    this._mask = makeMask(character.model, options);
    this._reference = makeReference(character, options);
    this._track = new Track(player);
    this._track.owner = this;
    this._slots = this._track.slots;
    this._fader = this._players.takeSlot(null, 0);
    this._faderAt = this._fader.at;
    this._players.fade(this._fader, weight, 0);
    player.layers.push(this);
    this._players.changeLayers(player);
  }

  /**
   * Whether it, or its character, was disposed of: it can no longer be used.
   * @type {boolean}
   */
  get isDisposed() {
    return this._track === null;
  }

  /**
   * Its weight, from 0 to 1: the share with which it replaces what is below, or the factor of what it adds. Setting it ends
   * a fade.
   * @type {number}
   */
  get weight() {
    this._check('weight');
    return this._players.weightOf(this._faderAt);
  }

  set weight(weight) {
    const at = this._faderAt;
    if (at >= 0 && typeof weight === 'number' && weight >= 0 && weight <= 1) {
      this._players.setWeight(at, weight);
      return;
    }
    this._check('weight');
    this.fadeTo(weight, 0);
  }

  /**
   * Fades its weight, while its character or one of its layers plays.
   * @param {number} weight from 0 to 1
   * @param {number} seconds that it takes
   */
  fadeTo(weight, seconds) {
    const label = 'AnimationLayer.fadeTo';
    this._check('fadeTo');
    if (weight === undefined) {
      throw new TypeError(`${label}: weight is undefined, not a number: ${kWeight}.`);
    }
    numberOf(label, 'weight', weight, 1, 0, 1, kWeight);
    this._players.fadeLayer(this, weight, fadeOf(label, seconds));
  }

  /**
   * Plays a clip, instead of what the layer plays.
   * @param {string | number | ModelClip} clip its name, its index in the model, or itself
   * @param {PlayOptions} [options]
   * @returns {ModelClip}
   */
  play(clip, options = kNoOptions) {
    this._check('play');
    return playOn('AnimationLayer.play', this.character.model, this._track, clip, options);
  }

  /**
   * Plays a clip, and fades from what the layer plays to it, or from what is below if it plays nothing.
   * @param {string | number | ModelClip} clip its name, its index in the model, or itself
   * @param {number} seconds that it takes
   * @param {PlayOptions} [options] all but `fade`
   * @returns {ModelClip}
   */
  crossfade(clip, seconds, options = kNoOptions) {
    const label = 'AnimationLayer.crossfade';
    this._check('crossfade');
    return crossfadeOn(label, this.character.model, this._track, clip, seconds, options);
  }

  /**
   * Ends a clip, or all: what is below shows again.
   * @param {string | number | ModelClip} [clip] by default all
   * @param {{ fade?: number }} [options] seconds in which its weight becomes 0, by default 0
   */
  stop(clip, options = kNoOptions) {
    this._check('stop');
    stopOn('AnimationLayer.stop', this.character.model, this._track, clip, options);
  }

  /**
   * Sets the weight of a clip that the layer plays. At weight 0 it is not seen, and plays on.
   * @param {string | number | ModelClip} clip
   * @param {number} weight from 0 to 1
   * @param {{ fade?: number }} [options] seconds that it takes, by default 0
   */
  setWeight(clip, weight, options = kNoOptions) {
    const label = 'AnimationLayer.setWeight';
    this._check('setWeight');
    setWeightOn(label, this.character.model, this._track, clip, weight, options);
  }

  /**
   * Sets the seconds in a clip that the layer plays: those of its next pose are these and what the update adds, so nothing at
   * speed 0. It allocates nothing.
   * @param {string | number | ModelClip} clip
   * @param {number} seconds from 0 on; the end of the clip at most
   */
  setTime(clip, seconds) {
    const at = numberAt(this, clip);
    if (at >= 0 && typeof seconds === 'number' && seconds >= 0) {
      this._players.setTime(at, seconds);
      return;
    }
    this._check('setTime');
    setTimeOn('AnimationLayer.setTime', this.character.model, this._track, clip, seconds);
  }

  /**
   * Seconds in a clip that the layer plays, or -1.
   * @param {string | number | ModelClip} clip
   * @returns {number}
   */
  timeOf(clip) {
    this._check('timeOf');
    return timeOn(this.character.model, this._track, clip);
  }

  /**
   * Weight of a clip; 0 if the layer does not play it.
   * @param {string | number | ModelClip} clip
   * @returns {number}
   */
  weightOf(clip) {
    this._check('weightOf');
    return weightOn(this.character.model, this._track, clip);
  }

  /** Ends all of its clips, and removes it from its character. */
  dispose() {
    if (this._track === null) {
      return;
    }
    const { player } = this._track;
    this._players.removeLayer(player, this);
    this.character._layersByName.delete(this.name);
    this._track = null;
    this._slots = kNoSlots;
    noteClips(this, kNoSlots);
    this._fader = null;
    this._faderAt = -1;
  }

  _check(method) {
    if (this._track === null) {
      const cure = 'add a new one';
      throw new Error(`AnimationLayer.${method}: layer '${this.name}' is disposed of: ${cure}.`);
    }
  }
}

module.exports = { AnimationLayer };
