'use strict';
// Characters: instances of a model in a scene. A character is a node; the nodes of its model are below it, as a run of
// entities that follows its own.
const { Node } = require('./node');
const { isObject, show } = require('../value-checks');
const { failIndex } = require('../view-base');

/**
 * @typedef {import('../scene').Scene} Scene
 * @typedef {import('./model').Model} Model
 * @typedef {import('./model').ModelClip} ModelClip
 */

/**
 * How to play a clip.
 * @typedef {Object} PlayOptions
 * @property {boolean} [loop] Whether it starts again at its end, the default, or is held there.
 * @property {number} [speed] Factor, by default 1; negative ones play backwards.
 * @property {number} [fade] Seconds until it has its weight, and what played before has none; by default 0.
 * @property {number} [weight] Over 0, up to 1, the default. It counts beside that of another clip: alone, a clip is
 *   played in full.
 * @property {number} [at] Seconds in the clip at which it starts, by default 0; a clip that plays already goes on.
 * @property {boolean} [beside] Whether the other clip plays on, for a blend of two; by default it is faded out.
 */

/**
 * What is called at the end of a clip. It may play, stop and dispose.
 * @typedef {(character: Character, clip: ModelClip) => void} ClipListener
 */

const kNoOptions = Object.freeze({});

/** A checked number of options. */
function numberOf(label, name, value, fallback, least, most, cure) {
  if (value === undefined) {
    return fallback;
  }
  if (typeof value !== 'number') {
    throw new TypeError(`${label}: ${name} is ${show(value)}, not a number: ${cure}.`);
  }
  if (!(value >= least && value <= most)) {
    throw new RangeError(`${label}: ${name} is ${value}: ${cure}.`);
  }
  return value;
}

const kFade = 'give seconds from 0 up';
const kWeight = 'give a weight over 0, up to 1';
const kLeastWeight = Number.MIN_VALUE;

/**
 * An instance of a model, made by `scene.instantiate`. It is a node, which carries all nodes of its model; cameras see it
 * by the bounds of the model.
 */
class Character extends Node {
  /**
   * @param {Scene} scene
   * @param {Model} model
   * @param {Object} body what it takes from the pools of its scene
   */
  constructor(scene, model, body) {
    super(scene, body.first, model.name);
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
    if (index >>> 0 !== index || index >= model.nodes.length) {
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
    if (skin >>> 0 !== skin || skin >= skins.length) {
      failIndex('Character.skinMatrices', 'skin', skin, skins.length);
    }
    return skins[skin].view.results;
  }

  /**
   * Plays a clip, instead of what plays. Two clips play at most: a third replaces the one with the smaller weight.
   * @param {string | number | ModelClip} clip its name, its index in the model, or itself
   * @param {PlayOptions} [options]
   * @returns {ModelClip}
   */
  play(clip, options = kNoOptions) {
    const label = 'Character.play';
    this._check('play');
    const found = this.model.clip(clip);
    if (!isObject(options)) {
      const cure = 'leave it out or give an object';
      throw new TypeError(`${label}: options is ${show(options)}: ${cure}.`);
    }
    const { loop = true, beside = false } = options;
    if (typeof loop !== 'boolean' || typeof beside !== 'boolean') {
      const [name, value] = typeof loop === 'boolean' ? ['beside', beside] : ['loop', loop];
      throw new TypeError(`${label}: ${name} is ${show(value)}: give true or false.`);
    }
    const most = Number.MAX_VALUE;
    const checked = {
      loop,
      speed: numberOf(label, 'speed', options.speed, 1, -most, most, 'give a finite factor'),
      fade: numberOf(label, 'fade', options.fade, 0, 0, most, kFade),
      weight: numberOf(label, 'weight', options.weight, 1, kLeastWeight, 1, kWeight),
      at: numberOf(label, 'at', options.at, undefined, 0, most, 'give seconds from 0 up'),
    };
    const players = this.scene._players;
    const { player, clips } = this._body;
    const place = players.choose(player, found);
    if (player.clips[place] !== found) {
      player.animator.setClipHandle(place, clips[found.index].id);
    }
    players.start(player, place, found, checked);
    if (!beside) {
      players.stop(player, 1 - place, checked.fade);
    }
    return found;
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
    if (seconds === undefined) {
      throw new TypeError(`Character.crossfade: seconds is undefined: ${kFade}.`);
    }
    return this.play(clip, Object.assign({}, options, { fade: seconds }));
  }

  /**
   * Ends a clip, or all. The pose stays as it is when none is left; see `rest`.
   * @param {string | number | ModelClip} [clip] by default all
   * @param {{ fade?: number }} [options] seconds in which another clip takes over, by default 0
   */
  stop(clip, options = kNoOptions) {
    this._check('stop');
    const fade = numberOf('Character.stop', 'fade', options.fade, 0, 0, Number.MAX_VALUE, kFade);
    const { player } = this._body;
    if (player === null) {
      return;
    }
    const only = clip === undefined ? undefined : this.model.clip(clip);
    for (let place = 0; place < 2; ++place) {
      if (only === undefined || player.clips[place] === only) {
        this.scene._players.stop(player, place, fade);
      }
    }
  }

  /**
   * Sets the weight of a clip that plays. At weight 0 it is not seen, and plays on.
   * @param {string | number | ModelClip} clip
   * @param {number} weight from 0 to 1
   * @param {{ fade?: number }} [options] seconds that it takes, by default 0
   */
  setWeight(clip, weight, options = kNoOptions) {
    const label = 'Character.setWeight';
    const place = this._playingPlaceOf('setWeight', clip);
    if (typeof weight !== 'number' || !(weight >= 0 && weight <= 1)) {
      const Kind = typeof weight === 'number' ? RangeError : TypeError;
      throw new Kind(`${label}: weight is ${show(weight)}: give a weight from 0 to 1.`);
    }
    const fade = numberOf(label, 'fade', options.fade, 0, 0, Number.MAX_VALUE, kFade);
    this.scene._players.setWeight(this._body.player, place, weight, fade);
  }

  /**
   * Sets the seconds in a clip that plays: those of its next pose are these and what the update adds, so nothing at
   * speed 0. It allocates nothing.
   * @param {string | number | ModelClip} clip
   * @param {number} seconds from 0 on; the end of the clip at most
   */
  setTime(clip, seconds) {
    const place = this._playingPlaceOf('setTime', clip);
    if (typeof seconds !== 'number' || !(seconds >= 0)) {
      const Kind = typeof seconds === 'number' ? RangeError : TypeError;
      const cure = 'give seconds from 0 up';
      throw new Kind(`Character.setTime: seconds is ${show(seconds)}: ${cure}.`);
    }
    this.scene._players.setTime(this._body.player, place, seconds);
  }

  /**
   * Seconds in a clip that plays, or -1.
   * @param {string | number | ModelClip} clip
   * @returns {number}
   */
  timeOf(clip) {
    const place = this._placeOf('timeOf', clip);
    return place < 0 ? -1 : this.scene._players.timeOf(this._body.player, place);
  }

  /**
   * Weight of a clip; 0 if it does not play.
   * @param {string | number | ModelClip} clip
   * @returns {number}
   */
  weightOf(clip) {
    const place = this._placeOf('weightOf', clip);
    return place < 0 ? 0 : this.scene._players.weightOf(this._body.player, place);
  }

  /** Ends all clips, and gives all nodes of the model their transforms at rest. */
  rest() {
    this._check('rest');
    this.stop();
    this.scene._writeRest(this.model, this._body);
  }

  /** Removes it with all below it, and gives its memory back for the next one. It can't be used any more. */
  dispose() {
    if (this._f32 === null) {
      return;
    }
    this._checkMovable('Character.dispose');
    this.stop();
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
    this._end();
  }

  /** The place where a clip plays; throws if it does not. */
  _playingPlaceOf(method, clip) {
    const place = this._placeOf(method, clip);
    if (place < 0) {
      const { name } = this.model.clip(clip);
      throw new RangeError(`Character.${method}: clip '${name}' does not play: play it first.`);
    }
    return place;
  }

  _placeOf(method, clip) {
    this._check(method);
    const found = this.model.clip(clip);
    return this._body.player === null ? -1 : this._body.player.placeOf(found);
  }
}

module.exports = { Character };
