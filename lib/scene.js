'use strict';
/**
 * Scenes on top of the records: nodes, characters of models, playback in seconds, and cameras. Reached by
 * `require('nq_logic/scene')`.
 *
 * @module nq_logic/lib/scene
 */
const { performance } = require('perf_hooks');
const { dataModelKinds } = require('./layout');
const { load } = require('./load');
const {
  Batch,
  ComponentPool,
  EntityBlocks,
  ObjectBlocks,
  RecordTemplate,
  Skin,
  withHandle,
} = require('./scene/blocks');
const { Camera, VisibleList } = require('./scene/camera');
const { Changes } = require('./scene/changes');
const { Character } = require('./scene/character');
const { Model } = require('./scene/model');
const { Node, checkTransform } = require('./scene/node');
const { AnimationLayer } = require('./scene/layers');
const { ClipParts, makeClip } = require('./scene/parts');
const { Player, Players } = require('./scene/playback');
const { Recording } = require('./scene/trace');
const { ThreeInstances, ThreeWorld, toThree } = require('./scene/three');
const { isInstance, isObject, show } = require('./value-checks');
const { CullingResultView } = require('./view-culling');

/**
 * @typedef {import('../types/engine').AnyEngine} AnyEngine
 * @typedef {import('./scene/trace').RecordOptions} RecordOptions
 * @typedef {import('./scene/inspect/inspector').Inspector} Inspector
 */

/**
 * How to make a scene.
 * @typedef {Object} SceneOptions
 * @property {AnyEngine} [engine] By default a new one, which stays until the process ends.
 * @property {'all' | 'visible'} [skin] Which characters are skinned: all, the default, or those that a camera of the
 *   scene saw in the same update.
 * @property {boolean} [isTimed] Whether `stats` has milliseconds, by default true. Reading the clock is all that an update
 *   allocates: some 100 bytes.
 */

/**
 * How to make a node.
 * @typedef {Object} NodeOptions
 * @property {string} [name] By default ''.
 * @property {ArrayLike<number>} [position] x, y, z.
 * @property {ArrayLike<number>} [quaternion] x, y, z, w, of length 1.
 * @property {ArrayLike<number> | number} [scale] x, y, z, or one number for all.
 * @property {Node | null} [parent] By default the root of the scene; null for none.
 */

// Stages, in order.
const kAnimate = 0;
const kTransform = 1;
const kCull = 2;
const kSkin = 3;
const kStages = 4;

const kNoRotation = [0, 0, 0, 1];
/** The transform of the character above the nodes of its model. */
const kTop = { translation: [0, 0, 0], rotation: kNoRotation, scale: [1, 1, 1] };

/** What the last update of a scene took and did. */
class SceneStats {
  /** Made by scenes. */
  constructor() {
    this._milliseconds = new Float64Array(kStages);
    /**
     * Calls of `refreshWorldTransform`.
     * @type {number}
     * @readonly
     */
    this.passes = 0;
    /**
     * Characters whose clips were evaluated.
     * @type {number}
     * @readonly
     */
    this.playing = 0;
    /**
     * Skins that were computed.
     * @type {number}
     * @readonly
     */
    this.skinned = 0;
    /**
     * Nodes and characters that the cameras of the scene saw, each as often as cameras did.
     * @type {number}
     * @readonly
     */
    this.visible = 0;
  }

  /**
   * Milliseconds of clips, callbacks included.
   * @type {number}
   */
  get animate() {
    return this._milliseconds[kAnimate];
  }

  /**
   * Milliseconds of changes of the tree, and of world matrices.
   * @type {number}
   */
  get transform() {
    return this._milliseconds[kTransform];
  }

  /**
   * Milliseconds of the cameras of the scene.
   * @type {number}
   */
  get cull() {
    return this._milliseconds[kCull];
  }

  /**
   * Milliseconds of skinning matrices.
   * @type {number}
   */
  get skin() {
    return this._milliseconds[kSkin];
  }

  /**
   * Milliseconds of all.
   * @type {number}
   */
  get total() {
    const [animate, transform, cull, skin] = this._milliseconds;
    return animate + transform + cull + skin;
  }
}

/**
 * A world of nodes and characters. It owns an engine, lists what changes, and runs the frame in its order. It keeps
 * alive what its nodes and characters refer to.
 */
class Scene {
  /** @param {SceneOptions} [options] */
  constructor(options = {}) {
    const label = 'Scene';
    if (!isObject(options)) {
      throw new TypeError(`${label}: options is ${show(options)}: leave it out or give an object.`);
    }
    const { engine = load().getEngine(), skin = 'all', isTimed = true } = options;
    if (typeof isTimed !== 'boolean') {
      const cure = 'give true or false';
      throw new TypeError(`${label}: options.isTimed is ${show(isTimed)}: ${cure}.`);
    }
    if (!isObject(engine) || !isObject(engine.dirtyEntities)) {
      const cure = 'leave it out or give what getEngine or checked returned';
      throw new TypeError(`${label}: options.engine is ${show(engine)}: ${cure}.`);
    }
    if (skin !== 'all' && skin !== 'visible') {
      const cure = "give 'all' or 'visible'";
      throw new TypeError(`${label}: options.skin is ${show(skin)}: ${cure}.`);
    }
    /**
     * The engine below, for what the scene does not offer. The scene lists its own changes only: list yours.
     * @type {AnyEngine}
     * @readonly
     */
    this.engine = engine;
    /**
     * What the last update took and did.
     * @type {SceneStats}
     * @readonly
     */
    this.stats = new SceneStats();
    this._blocks = new EntityBlocks(engine);
    this._changes = new Changes(engine, this._blocks);
    this._objects = new ObjectBlocks(engine);
    this._pool = new ComponentPool(engine);
    this._players = new Players(engine, this._pool, this._blocks);
    this._skins = new Batch();
    this._seenSkins = skin === 'visible' ? new Batch() : null;
    this._result = new CullingResultView(engine);
    this._cameras = [];
    /** What the engine has of each model. */
    this._models = new Map();
    this._frame = 0;
    this._isTimed = isTimed;
    this._isDisposed = false;
    this._recording = null;
    /** What `inspect` has made, and the part of it that takes frames, while a page is open. */
    this._inspector = null;
    this._frames = null;
    /** When the last update started: in an array, so that passing it makes no object. */
    this._start = new Float64Array(1);
    /**
     * The root: the parent of nodes that are given no other.
     * @type {Node}
     * @readonly
     */
    this.root = this._makeNode('root');
    this._changes.addRoot(this.root._index);
  }

  /**
   * Number of nodes, those of characters included.
   * @type {number}
   */
  get nodeCount() {
    this._check('Scene.nodeCount');
    return this._blocks.used - 1;
  }

  /**
   * Whether it was disposed of: it can no longer be used.
   * @type {boolean}
   */
  get isDisposed() {
    return this._isDisposed;
  }

  /**
   * Bytes of memory that it shares with its engine, those of its pools included.
   * @type {number}
   */
  get sharedBytes() {
    this._check('Scene.sharedBytes');
    return this._blocks.bytes + this._objects.bytes + this._pool.bytes;
  }

  /**
   * Makes a node.
   * @param {NodeOptions} [options]
   * @returns {Node}
   */
  node(options = {}) {
    const label = 'Scene.node';
    this._check(label);
    if (!isObject(options)) {
      throw new TypeError(`${label}: options is ${show(options)}: leave it out or give an object.`);
    }
    const { name = '', position, quaternion, scale, parent = this.root } = options;
    if (parent !== null && !isInstance(parent, Node)) {
      throw new TypeError(`${label}: parent is ${show(parent)}: give a node, or null for none.`);
    }
    if (parent !== null) {
      parent._check('add');
      if (parent.scene !== this) {
        throw new RangeError(`${label}: parent is in another scene: give a node of this scene.`);
      }
    }
    checkTransform(position, quaternion, scale);
    const node = this._makeNode(name);
    if (position !== undefined) {
      node.position = position;
    }
    if (quaternion !== undefined) {
      node.quaternion = quaternion;
    }
    if (typeof scale === 'number') {
      node.setScale(scale);
    } else if (scale !== undefined) {
      node.scale = scale;
    }
    if (parent !== null) {
      parent._take(node);
    }
    this._note('make nodes', name, 1);
    return node;
  }

  /**
   * Moves a node under another, as `parent.add(child)`.
   * @param {Node} parent
   * @param {Node} child
   * @returns {Node} the child
   */
  add(parent, child) {
    this._check('Scene.add');
    if (!isInstance(parent, Node)) {
      throw new TypeError(`Scene.add: parent is ${show(parent)}: give a node.`);
    }
    return parent.add(child);
  }

  /**
   * Takes a node out of the tree, as `node.remove()`.
   * @param {Node} node
   */
  remove(node) {
    this._check('Scene.remove');
    if (!isInstance(node, Node)) {
      throw new TypeError(`Scene.remove: node is ${show(node)}: give a node.`);
    }
    node.remove();
  }

  /**
   * Makes characters of a model, under the root of the scene: all, or none if the engine has no room for them.
   * @param {Model} model
   * @param {number} [count] default 1
   * @returns {Character[]}
   */
  instantiate(model, count = 1) {
    const label = 'Scene.instantiate';
    this._check(label);
    if (!isInstance(model, Model)) {
      const cure = 'give what Model.load resolved to';
      throw new TypeError(`${label}: model is ${show(model)}: ${cure}.`);
    }
    if (model.isDisposed) {
      throw new Error(`${label}: model '${model.name}' is disposed of: load it again.`);
    }
    if (typeof count !== 'number' || count >>> 0 !== count) {
      const Kind = typeof count === 'number' ? RangeError : TypeError;
      throw new Kind(`${label}: count is ${show(count)}: give a whole number.`);
    }
    const known = this._know(model);
    const { _targets: targets, clips, skins } = model;
    const missing = Math.max(0, count - known.free.length);
    const jointCounts = skins.map(({ joints }) => joints.length);
    this._pool.reserve(missing, clips.length > 0 ? Math.max(1, targets.length) : 0, jointCounts);
    const characters = [];
    try {
      for (let i = 0; i < count; ++i) {
        characters.push(this._makeCharacter(model, known));
      }
    } catch (error) {
      // The engine is full: those of the call go, and what they took serves the next ones.
      characters.forEach((character) => character.dispose());
      throw error;
    }
    this._note('make characters', model.name, count);
    return characters;
  }

  /**
   * Adds a camera, which each update then culls for: see its `visible`.
   * @param {Camera} camera
   * @returns {Camera}
   */
  addCamera(camera) {
    this._check('Scene.addCamera');
    if (!isInstance(camera, Camera)) {
      throw new TypeError(`Scene.addCamera: camera is ${show(camera)}: give a Camera.`);
    }
    if (!this._cameras.includes(camera)) {
      this._cameras.push(camera);
    }
    return camera;
  }

  /**
   * Removes a camera.
   * @param {Camera} camera
   */
  removeCamera(camera) {
    this._check('Scene.removeCamera');
    if (!isInstance(camera, Camera)) {
      throw new TypeError(`Scene.removeCamera: camera is ${show(camera)}: give a Camera.`);
    }
    this._cameras = this._cameras.filter((one) => one !== camera);
  }

  /**
   * Runs a frame: clips and their callbacks, world matrices, cameras, skinning matrices. Throws in a callback.
   * @param {number} [seconds] since the last one, default 0
   */
  update(seconds = 0) {
    this._check('Scene.update');
    if (typeof seconds !== 'number' || !(seconds >= 0 && seconds < Infinity)) {
      const Kind = typeof seconds === 'number' ? RangeError : TypeError;
      throw new Kind(`Scene.update: seconds is ${show(seconds)}: give a number from 0 up.`);
    }
    const { engine, stats, _players: players } = this;
    if (players.isReporting) {
      const cure = 'call it after that, not in a callback';
      throw new Error(`Scene.update: an update of the scene runs: ${cure}.`);
    }
    const milliseconds = stats._milliseconds;
    ++this._frame;
    const isTimed = this._isTimed || this._recording !== null || this._frames !== null;
    let start = isTimed ? performance.now() : 0;
    this._start[0] = start;
    players.update(seconds);
    let end = isTimed ? performance.now() : 0;
    milliseconds[kAnimate] = end - start;
    start = end;
    stats.passes = this._changes.flush(this.root._index, players.count === 0);
    players.settleTree(this.root._index);
    end = isTimed ? performance.now() : 0;
    milliseconds[kTransform] = end - start;
    start = end;
    const cameras = this._cameras;
    let visible = 0;
    for (let i = 0; i < cameras.length; ++i) {
      visible += cameras[i].cull(this).count;
    }
    end = isTimed ? performance.now() : 0;
    milliseconds[kCull] = end - start;
    start = end;
    const skins = this._seenSkins === null ? this._skins : this._findSeenSkins();
    if (skins.count > 0) {
      engine.updateSkinningMatrices(skins.words.buffer);
    }
    milliseconds[kSkin] = isTimed ? performance.now() - start : 0;
    stats.playing = players.count;
    stats.skinned = skins.count;
    stats.visible = visible;
    // Not one that a callback started in this update, which has no start of it.
    if (this._recording !== null && isTimed) {
      this._recording._frame(this._start, milliseconds, this);
    }
    if (this._frames !== null && isTimed) {
      this._frames.frame(milliseconds);
    }
  }

  /**
   * Starts a recording of what updates take and do, which Perfetto and chrome://tracing open:
   * `recording.stop(); await recording.save('trace.json')`. It costs a few microseconds a frame; a scene records once at
   * a time. Updates are timed while it records, also where `isTimed` is false.
   * @param {RecordOptions} [options]
   * @returns {Recording}
   */
  record(options = {}) {
    const label = 'Scene.record';
    this._check(label);
    if (this._recording !== null) {
      throw new Error(`${label}: a recording of the scene runs already: stop that first.`);
    }
    this._recording = new Recording(this, options);
    return this._recording;
  }

  /**
   * Shows the scene in a browser on this machine: nodes, spheres, skeletons, meshes, and a chart of what each stage takes.
   * Resolves to the address of the page. It costs nothing while no page is open, and does not keep the process running.
   * Pages are served between updates, so leave time for that: run frames by a timer, not in a loop.
   * @param {number} [port] of 127.0.0.1, by default 8072; 0 for any that is free
   * @returns {Promise<Inspector>} rejects if the port can't be opened
   */
  async inspect(port = 8072) {
    const label = 'Scene.inspect';
    this._check(label);
    if (!Number.isInteger(port) || port < 0 || port > 65535) {
      const Kind = typeof port === 'number' ? RangeError : TypeError;
      throw new Kind(`${label}: port is ${show(port)}: give a whole number from 0 to 65535.`);
    }
    if (this._inspector !== null) {
      throw new Error(`${label}: the scene is inspected already: close that inspector first.`);
    }
    // Loaded here: most programs need no server.
    const { openInspector } = require('./scene/inspect/inspector');
    return openInspector(this, port);
  }

  /** Disposes of all nodes and characters. It can't be used any more; its engine can. */
  dispose() {
    if (this._isDisposed) {
      return;
    }
    this.root._disposeChildren();
    for (const model of Array.from(this._models.keys())) {
      this._forget(model);
    }
    this._changes.flush(this.root._index, false);
    this._cameras = [];
    if (this._recording !== null) {
      this._recording.stop();
    }
    if (this._inspector !== null) {
      this._inspector.close();
    }
    this.root._end();
    this._isDisposed = true;
  }

  _check(label) {
    if (this._isDisposed) {
      throw new Error(`${label}: the scene is disposed of: make a new one.`);
    }
  }

  /** Notes an event for a recording. */
  _note(name, about, count) {
    if (this._recording !== null) {
      this._recording._note(performance.now(), name, about, count);
    }
  }

  _makeNode(name) {
    if (typeof name !== 'string') {
      throw new TypeError(`Scene.node: name is ${show(name)}: give a string.`);
    }
    const index = this._blocks.take(1);
    this._changes.fit();
    this._blocks.reset(index);
    this._blocks.parents[index] = -1;
    this._changes.mark(index);
    return new Node(this, index, name);
  }

  /** What the engine has of a model, which is made at first use. */
  _know(model) {
    let known = this._models.get(model);
    if (known === undefined) {
      const { engine } = this;
      const bones = model.skins.map(({ inverseBindMatrices }) =>
        withHandle(engine.createDataModel(dataModelKinds.bones, inverseBindMatrices), 'a skin')
      );
      known = {
        clips: model.clips.map(({ bytes }) => makeClip(engine, bytes)),
        bones,
        skins: model.skins.map(({ joints }, s) => Skin.start(bones[s].id, joints.length)),
        records: new RecordTemplate([kTop, ...model.nodes]),
        // Those of the nodes by their place in the run of a character, which begins with itself.
        parents: Int32Array.from(model.nodes, ({ parent }) => 1 + parent),
        targets: Uint32Array.from(model._targets, (node) => 1 + node),
        joints: model.skins.map(({ joints }) => Uint32Array.from(joints, (node) => 1 + node)),
        // What players need, see playback.js.
        restClip: model._restClip,
        rest: null,
        parts: null,
        characters: new Set(),
        free: [],
      };
      if (model.clips.length > 0) {
        known.rest = makeClip(engine, model._restClip.bytes);
        known.parts = new ClipParts(
          engine,
          [model._restClip, ...model.clips],
          [known.rest, ...known.clips],
          model._targets.length
        );
      }
      this._models.set(model, known);
      model._scenes.add(this);
    }
    return known;
  }

  _makeCharacter(model, known) {
    const body = known.free.length > 0 ? known.free.pop() : this._makeBody(known);
    this._blocks.fill(body.first, known.records);
    this._changes.markRange(body.first, known.records.count);
    const character = new Character(this, model, body);
    if (body.player !== null) {
      body.player.base.owner = character;
    }
    for (const skin of body.skins) {
      skin.character = character;
      this._skins.add(skin, skin.view.id);
    }
    known.characters.add(character);
    this.root._take(character);
    const { center, radius } = model.bounds;
    try {
      character.setSphere(center[0], center[1], center[2], radius);
    } catch (error) {
      character.dispose();
      throw error;
    }
    return character;
  }

  /** Entities, animator and skins for a character, linked with each other. */
  _makeBody(known) {
    const { clips, skins: starts, parents, targets, joints } = known;
    const first = this._blocks.take(1 + parents.length);
    this._changes.fit();
    this._blocks.parents[first] = -1;
    this._changes.addChildren(first, parents);
    let player = null;
    if (clips.length > 0) {
      const animator = this._pool.takeAnimator(Math.max(1, targets.length));
      const at = animator.targetAt(0);
      this._blocks.writeHandles(animator.u32, at, first, targets);
      this._blocks.writeHandles(animator.u32, at + targets.length, first, targets);
      // An animator's clips have to exist even if they have no weight.
      animator.setClip(0, clips[0].id, 0, 0);
      animator.setClip(1, clips[0].id, 0, 0);
      player = new Player(animator, known, animator.u32.subarray(at, at + targets.length), first);
    }
    const skins = joints.map((own, s) => {
      const view = this._pool.takeSkin(own.length);
      view.write(starts[s], this._blocks, first, own);
      return { view, character: null, place: 0 };
    });
    return { first, player, clips, skins };
  }

  /** Writes the transforms of a model at rest below a character. */
  _writeRest(model, { first }) {
    const { records } = this._models.get(model);
    this._blocks.fillLocals(first, records, 1);
    this._changes.markRange(first + 1, records.count - 1);
  }

  /** Takes back what a character has. */
  _takeBack(character) {
    const { model, _body: body, _object: object } = character;
    if (object >= 0) {
      this._objects.give(object);
    }
    for (const skin of body.skins) {
      this._skins.remove(skin);
      skin.character = null;
    }
    if (body.player !== null) {
      this._players.release(body.player);
    }
    this._changes.unmarkRange(body.first, 1 + model.nodes.length);
    const known = this._models.get(model);
    known.characters.delete(character);
    known.free.push(body);
    this._note('dispose of characters', model.name, 1);
  }

  /** Disposes of all characters of a model, and takes apart what it has made for them. */
  _forget(model) {
    const known = this._models.get(model);
    for (const character of Array.from(known.characters)) {
      character.dispose();
    }
    for (const { first, player, skins } of known.free) {
      model.nodes.forEach((_, i) => this._changes.remove(first + 1 + i));
      this._blocks.give(first, 1 + model.nodes.length);
      if (player !== null) {
        this._pool.giveAnimator(player.animator);
      }
      skins.forEach(({ view }) => this._pool.giveSkin(view));
    }
    this._models.delete(model);
    model._scenes.delete(this);
  }

  /** The skins of the characters that a camera saw in this update. */
  _findSeenSkins() {
    const batch = this._seenSkins;
    batch.words[0] = 0;
    for (let c = 0; c < this._cameras.length; ++c) {
      const { visible } = this._cameras[c];
      for (let i = 0; i < visible.count; ++i) {
        const object = visible.at(i);
        if (object instanceof Character && object._seen !== this._frame) {
          object._seen = this._frame;
          const { skins } = object._body;
          for (let s = 0; s < skins.length; ++s) {
            batch.append(skins[s].view.id);
          }
        }
      }
    }
    return batch;
  }
}

module.exports = {
  AnimationLayer,
  Camera,
  Character,
  Model,
  Node,
  Recording,
  Scene,
  SceneStats,
  ThreeInstances,
  ThreeWorld,
  VisibleList,
  toThree,
};
