'use strict';
// Random programs over all public members of scenes, nodes, characters, layers, cameras, models and recordings, mixed with
// garbage. Half of the scenes run on a checked engine. It fails
// - if the process ends or a call does not return,
// - if an argument is accepted that the documents refuse: of another type, of another class, disposed of,
// - if an error does not name the call and the cure, or comes from the engine below,
// - if a refused call has changed shared memory, or the tree,
// - if `update` throws what no callback has thrown,
// - if after an update a world matrix is not the product of the parent's one and the node's transform.
const assert = require('assert');
const { inspect, types } = require('util');
const { checked } = require('../../../lib/checked');
const { Camera, Model, Scene, toThree } = require('../../../scene');
const { makeFigure } = require('../../../bench/script/lib/scene-figure');
const { HostileError } = require('./garbage');

const build = require(process.env.NQ_MODULE);

/** Errors of the layer: the call, what was found, and the cure. */
const kReadable = /^(new )?[A-Za-z]\w+(\.\w+)?: [^]+: [^]+\.$/;

/** Errors of hostile objects, whose properties are read. */
const kHostile = /^(hostile: |Cannot perform '\w+' on a proxy that has been revoked)/;

const kBounds = { center: [0, 0, 0], radius: 2 };

/** Kinds of arguments: what may be passed, and what must be refused. */
const kinds = {
  number: { valid: (p) => p.draw.number(-20, 20), wrong: (p) => p.notFinite() },
  seconds: { valid: (p) => p.draw.pick([0, 0.016, 0.4, 1.7]), wrong: (p) => p.notFinite() },
  positive: { valid: (p) => p.draw.number(0.1, 5), wrong: (p) => p.notFinite() },
  weight: { valid: (p) => p.draw.number(0.01, 1), wrong: (p) => p.notFinite() },
  layers: { valid: (p) => p.draw.pick([0, 1, 3, 2 ** 32 - 1]), wrong: (p) => p.draw.notAWord() },
  count: { valid: (p) => p.draw.below(3), wrong: (p) => p.defined(() => p.draw.notAWord()) },
  node: { valid: (p) => p.any('node'), wrong: (p) => p.draw.notAWord() },
  camera: { valid: (p) => p.any('camera'), wrong: (p) => p.draw.notAWord() },
  model: { valid: (p) => p.any('model'), wrong: (p) => p.draw.notAWord() },
  scene: { valid: (p) => p.scene(), wrong: (p) => p.draw.notAWord() },
  clip: { valid: (p) => p.draw.pick(['walk', 'run', 0, 1]), wrong: (p) => p.notAName() },
  joint: { valid: (p) => p.draw.pick(['joint0', 'joint2', 1]), wrong: (p) => p.notAName() },
  skin: { valid: () => 0, wrong: (p) => p.defined(() => p.draw.notAWord()) },
  name: { valid: (p) => p.draw.pick(['a', 'b', 'c']), wrong: (p) => p.notAString() },
  three: {
    valid: (p) => (p.draw.chance(0.5) ? [1, 2, 3] : Float32Array.of(0, 1, 0)),
    wrong: (p) => p.notATriple(),
  },
  four: { valid: () => [0, 0, 0.6, 0.8], wrong: (p) => p.notATriple() },
  out: {
    valid: () => new Float32Array(16),
    wrong: (p) => p.draw.pick([null, 7, 'a', [], Symbol('out'), new Float32Array(2)]),
  },
  index: { valid: () => 0, wrong: (p) => p.draw.pick([-1, 0.5, '1', null, 2 ** 32]) },
  play: {
    valid: (p) => p.playOptions(),
    wrong: (p) => p.wrongOptions('loop', 'speed', 'fade', 'weight', 'at', 'beside'),
  },
  // Its fade is that of the argument before.
  crossfade: {
    valid: (p) => p.playOptions(),
    wrong: (p) => p.wrongOptions('loop', 'speed', 'at'),
  },
  // Radii, and seconds, which end at the end of the clip.
  unbounded: { valid: (p) => p.draw.pick([0, 1, Infinity]), wrong: (p) => p.notPositive() },
  fade: {
    valid: (p) => p.draw.pick([undefined, {}, { fade: 0.3 }]),
    wrong: (p) => p.wrongOptions('fade'),
  },
  layer: {
    valid: (p) => p.layerOptions(),
    wrong: (p) => p.wrongOptions('mask', 'exclude', 'additive', 'reference', 'weight'),
  },
  nodeOptions: {
    valid: (p) => p.nodeOptions(),
    wrong: (p) => p.wrongOptions('name', 'position', 'quaternion', 'scale', 'parent'),
  },
  lens: {
    valid: (p) =>
      p.draw.pick([undefined, {}, { fovDegrees: 40, far: 100 }, { aspect: 2, near: 0.5 }]),
    wrong: (p) => p.wrongOptions('fovDegrees', 'fovRadians', 'aspect', 'near', 'far'),
  },
  box: {
    valid: () => ({ left: -5, right: 5, bottom: -5, top: 5, far: 50 }),
    wrong: (p) => p.wrongOptions('left', 'right', 'top'),
  },
  cull: {
    valid: (p) => p.draw.pick([undefined, {}, { layers: 1 }]),
    wrong: (p) => p.wrongOptions('layers'),
  },
  frames: { valid: () => ({ frames: 10 }), wrong: (p) => p.wrongOptions('frames') },
  // What is no function is reported when it would be called.
  listener: { valid: (p) => p.listener(), wrong: null },
};

/** Arguments of methods; members that are written begin with '='. */
const players = {
  play: ['clip', 'play'],
  crossfade: ['clip', 'positive', 'crossfade'],
  stop: ['clip', 'fade'],
  setWeight: ['clip', 'weight', 'fade'],
  setTime: ['clip', 'unbounded'],
  timeOf: ['clip'],
  weightOf: ['clip'],
  '=onLoop': ['listener'],
  '=onEnd': ['listener'],
};
const triple = ['number', 'number', 'number'];
const nodeMembers = {
  setPosition: triple,
  setQuaternion: [...triple, 'positive'],
  setEuler: triple,
  setScale: ['positive', 'positive', 'positive'],
  '=position': ['three'],
  '=quaternion': ['four'],
  '=scale': ['three'],
  '=layers': ['layers'],
  lookAt: triple,
  readWorldMatrix: ['out'],
  readWorldPosition: ['out', 'index'],
  add: ['node'],
  remove: [],
  setSphere: [...triple, 'unbounded'],
  dispose: [],
};
const members = {
  scene: {
    node: ['nodeOptions'],
    add: ['node', 'node'],
    remove: ['node'],
    instantiate: ['model', 'count'],
    addCamera: ['camera'],
    removeCamera: ['camera'],
    record: ['frames'],
    update: ['seconds'],
    dispose: [],
  },
  node: nodeMembers,
  character: Object.assign({}, nodeMembers, players, {
    node: ['joint'],
    attach: ['node', 'joint'],
    skinMatrices: ['skin'],
    addLayer: ['name', 'layer'],
    layer: ['name'],
    rest: [],
  }),
  layer: Object.assign({}, players, {
    '=weight': ['weight'],
    fadeTo: ['weight', 'positive'],
    dispose: [],
  }),
  camera: {
    '=layers': ['layers'],
    setPerspective: ['lens'],
    setOrthographic: ['box'],
    setPosition: triple,
    lookAt: triple,
    setUp: triple,
    setFromThree: ['nodeOptions'],
    cull: ['scene', 'cull'],
  },
  model: { clip: ['clip'], nodeIndex: ['name'], dispose: [] },
  recording: { stop: [], toJSON: [] },
};

/** A value for messages; runs no code of it. */
function showSafely(value) {
  try {
    const text = types.isProxy(value) ? 'a proxy' : inspect(value, { depth: 0 });
    return text.replace(/\s+/g, ' ').slice(0, 60);
  } catch (error) {
    return 'a hostile object';
  }
}

/** Members that programs run seldom, since little is left after them. */
const kSeldom = ['dispose', 'record'];

const kMostNodes = 400;
const kMostScenes = 3;

class Program {
  constructor(seed) {
    this.seed = seed;
    this.buffers = [];
    this.callbackError = null;
    this.counts = { accepted: 0, refused: 0, wrong: 0, updates: 0, matrices: 0 };
    this.scenes = [];
    this.pools = { node: [], character: [], layer: [], camera: [], model: [], recording: [] };
    this.isChecked = seed % 2 === 0;
    this.engine = this._makeEngine();
    this.addScene();
    this.addModel(3);
    this.addModel(1);
    this.pools.camera.push(new Camera());
  }

  /** An engine that keeps what it has created, so that changes show. */
  _makeEngine() {
    const native = build.getEngine();
    const engine = this.isChecked ? checked(native, { onHint: null }) : native;
    Object.keys(Object.getPrototypeOf(native))
      .filter((name) => name.startsWith('create'))
      .forEach((name) => {
        const create = native[name];
        const value = (...args) => {
          const made = create.apply(native, args);
          if (made.buffer !== undefined) {
            this.buffers.push({ object: made, bytes: Buffer.from(made.buffer) });
          }
          return made;
        };
        Object.defineProperty(native, name, { value });
      });
    [engine.dirtyEntities, engine.entityCommands].forEach((buffer) =>
      this.buffers.push({ bytes: Buffer.from(buffer) })
    );
    return engine;
  }

  addScene() {
    const { engine } = this;
    this.scenes.push(new Scene({ engine, isTimed: this.scenes.length === 0 }));
  }

  addModel(joints) {
    const options = { name: `figure${joints}`, bounds: kBounds };
    this.pools.model.push(Model.from(makeFigure(joints), options));
  }

  defined(make) {
    const value = make();
    return value === undefined ? null : value;
  }

  /** What is no finite number. */
  notFinite() {
    const { draw } = this;
    const value = draw.chance(0.4) ? draw.pick([NaN, Infinity, -Infinity]) : draw.notANumber();
    // Missing arguments may have a default.
    return value === undefined ? null : value;
  }

  notPositive() {
    const value = this.notFinite();
    return value === Infinity ? -1 : value;
  }

  notAName() {
    const { draw } = this;
    return draw.pick(['none', '', -1, 99, 0.5, NaN, null, {}, [], Symbol('name')]);
  }

  notAString() {
    const value = this.draw.notAWord();
    return typeof value === 'string' || value === undefined ? 7 : value;
  }

  notATriple() {
    return this.draw.pick([null, 7, 'abc', {}, [1, 2], [1, NaN, 3], ['1', 2, 3], undefined]);
  }

  playOptions() {
    const { draw } = this;
    const options = {};
    const maybe = (name, make) => {
      if (draw.chance(0.3)) {
        options[name] = make();
      }
    };
    maybe('loop', () => draw.chance(0.5));
    maybe('speed', () => draw.number(-2, 2));
    maybe('fade', () => draw.number(0, 0.5));
    maybe('weight', () => draw.number(0.1, 1));
    maybe('at', () => draw.number(0, 1));
    maybe('beside', () => draw.chance(0.7));
    return options;
  }

  layerOptions() {
    const { draw } = this;
    return draw.pick([
      undefined,
      {},
      { additive: true },
      { mask: 'joint0' },
      { mask: { subtree: 0 }, weight: 0.5 },
      { additive: true, reference: 'rest' },
      { additive: true, reference: { clip: 'run', at: 0.1 }, exclude: 0 },
    ]);
  }

  nodeOptions() {
    const { draw } = this;
    const parent = draw.chance(0.4) ? { parent: draw.chance(0.5) ? null : this.any('node') } : {};
    return Object.assign({ name: 'n', position: [1, 2, 3], scale: draw.pick([1, 2]) }, parent);
  }

  /** Options that are no object, or one of which is garbage. */
  wrongOptions(...names) {
    const { draw } = this;
    if (draw.chance(0.3)) {
      return draw.pick([7, 'a', null, true, Symbol('options')]);
    }
    const name = draw.pick(names);
    const values = name === 'name' ? [7, {}, null] : [NaN, {}, 'x', () => 1, -Infinity];
    // No node is a valid selection of those to exclude.
    const list = name === 'exclude' ? [] : [[]];
    return { [name]: draw.pick([...values, ...list, Symbol('option')]) };
  }

  listener() {
    const { draw } = this;
    const choice = draw.below(8);
    if (choice > 5) {
      return draw.pick([1, 'a', {}, true]);
    }
    return choice === 0
      ? null
      : (player) => {
          const character = player.character || player;
          if (choice === 1) {
            this.callbackError = new HostileError('callback');
            throw this.callbackError;
          } else if (choice === 2 && !character.isDisposed) {
            character.dispose();
          } else if (choice === 3 && !player.isDisposed) {
            player.play('run', { fade: 0.1 });
          }
        };
  }

  nodeCount() {
    const live = this.scenes.filter(({ isDisposed }) => !isDisposed);
    return live.reduce((sum, { nodeCount }) => sum + nodeCount, 0);
  }

  /** A random object of a kind; nodes may be characters. */
  any(kind) {
    const { draw, pools } = this;
    if (kind === 'scene') {
      return this.scene();
    }
    if (kind === 'node' && draw.chance(0.3) && pools.character.length > 0) {
      return draw.pick(pools.character);
    }
    if (kind === 'node' && (pools.node.length === 0 || draw.chance(0.1))) {
      return this.scenes.find(({ isDisposed }) => !isDisposed).root;
    }
    return pools[kind].length === 0 ? null : draw.pick(pools[kind]);
  }

  scene() {
    return this.draw.pick(this.scenes);
  }

  /** Copies of all shared memory. */
  snapshot() {
    return this.buffers.map(({ bytes }) => Buffer.from(bytes));
  }

  /** The tree of all scenes. */
  shape() {
    const lines = [];
    const visit = (node, depth) => {
      lines.push(`${depth} ${node.handle}`);
      node.children.forEach((child) => visit(child, depth + 1));
    };
    this.scenes.forEach((scene) => {
      if (!scene.isDisposed) {
        lines.push(scene.nodeCount);
        visit(scene.root, 0);
      }
    });
    return lines.join();
  }

  /** Runs a call that may throw; returns its result, or null if it was refused. */
  call(label, run, mustThrow, mayChange = false) {
    const before = this.snapshot();
    const shape = this.shape();
    this.callbackError = null;
    let result;
    try {
      result = run();
    } catch (error) {
      if (this.isOfCallback(error) || kHostile.test(error.message)) {
        return null;
      }
      const isKind = error instanceof TypeError || error instanceof RangeError;
      const isReadable =
        kReadable.test(error.message) ||
        (error instanceof Error && / is disposed of: /.test(error.message));
      assert(
        isReadable && (isKind || error.constructor === Error),
        `${label}: unreadable ${error.stack}`
      );
      if (!mayChange) {
        before.forEach((bytes, i) => {
          const now = this.buffers[i].bytes;
          assert(bytes.equals(now), `${label}: shared memory has changed: ${error.message}`);
        });
      }
      assert.strictEqual(this.shape(), shape, `${label}: the tree has changed: ${error.message}`);
      ++this.counts.refused;
      return null;
    }
    assert(!mustThrow, `${label} was accepted`);
    ++this.counts.accepted;
    return result;
  }

  /** Whether an update may throw this: what a callback threw, or that it is no function. */
  isOfCallback(error) {
    const isThrown = error === this.callbackError && error !== null;
    return isThrown || /^\w+\.on(Loop|End): it is /.test(error.message);
  }

  keep(label, result) {
    const { pools } = this;
    if (label === 'scene.node') {
      pools.node.push(result);
    } else if (label === 'scene.instantiate') {
      pools.character.push(...result);
    } else if (label === 'character.addLayer') {
      pools.layer.push(result);
    } else if (label === 'scene.record') {
      pools.recording.push(result);
    }
  }

  member() {
    const { draw } = this;
    const kind = draw.pick([
      'scene',
      'scene',
      'node',
      'node',
      'character',
      'character',
      'character',
      'layer',
      'layer',
      'camera',
      'model',
      'recording',
    ]);
    const target = kind === 'scene' ? this.scene() : this.any(kind);
    if (target === null || target === undefined) {
      return;
    }
    const table = members[target instanceof Scene ? 'scene' : kind];
    const name = draw.pick(Object.keys(table));
    if (kSeldom.includes(name) && draw.chance(0.8)) {
      return;
    }
    if (name === 'instantiate' && this.nodeCount() > kMostNodes) {
      return;
    }
    const names = table[name];
    const args = names.map((one) => kinds[one].valid(this));
    let mustThrow = false;
    const wrong = names.map((one, i) => i).filter((i) => kinds[names[i]].wrong !== null);
    if (wrong.length > 0 && draw.chance(0.25)) {
      const at = draw.pick(wrong);
      args[at] = kinds[names[at]].wrong(this);
      // `stop()` and missing options are valid.
      mustThrow = args[at] !== undefined;
      ++this.counts.wrong;
    }
    const label = `${kind}.${name}`;
    const shown = `${label}(${args.map(showSafely).join(', ')})`;
    if (name === 'setFromThree') {
      mustThrow = true;
    }
    const run = name.startsWith('=')
      ? () => {
          target[name.slice(1)] = args[0];
        }
      : () => target[name](...args);
    // A frame that an error in a callback has ended is half done.
    const result = this.call(shown, run, mustThrow, name === 'update');
    if (result !== null && result !== undefined) {
      this.keep(label, result);
    }
  }

  getters() {
    const { draw } = this;
    const kind = draw.pick(['node', 'character', 'layer', 'camera', 'model', 'recording', 'scene']);
    const target = this.any(kind);
    if (target === null || target === undefined) {
      return;
    }
    const names = [];
    for (
      let at = Object.getPrototypeOf(target);
      at !== Object.prototype;
      at = Object.getPrototypeOf(at)
    ) {
      names.push(
        ...Object.getOwnPropertyNames(at).filter(
          (name) => !name.startsWith('_') && Object.getOwnPropertyDescriptor(at, name).get
        )
      );
    }
    if (names.length > 0) {
      const name = draw.pick(names);
      this.call(`${kind}.${name} read`, () => target[name], false);
    }
  }

  wrongReceiver() {
    const { draw } = this;
    const kind = draw.pick(['scene', 'node', 'character', 'layer', 'camera', 'model']);
    const target = this.any(kind);
    if (target === null || target === undefined) {
      return;
    }
    const constructors = [Scene, Camera, Model, target.constructor, Model.from, toThree];
    const Class = draw.pick(constructors);
    const args = [draw.anything(), draw.anything()];
    const mayPass = Class === Camera || Class === Scene;
    const first = args[0];
    const isDefault = first === undefined || (typeof first === 'object' && first !== null);
    if (mayPass && isDefault) {
      // Valid options, or a scene with an engine of its own.
      return;
    }
    const isFunction = Class === Model.from || Class === toThree;
    const call = isFunction ? () => Class(...args) : () => new Class(...args);
    this.call(`${Class.name} of garbage`, call, true);
  }

  update() {
    const scene = this.scene();
    if (scene.isDisposed) {
      return;
    }
    this.callbackError = null;
    ++this.counts.updates;
    try {
      scene.update(this.draw.pick([0, 0.016, 0.3, 1, 2.5]));
    } catch (error) {
      assert(this.isOfCallback(error), `update: ${error.stack}`);
      return;
    }
    const visit = (node) => {
      node.children.forEach((child) => {
        this.checkMatrix(node, child);
        visit(child);
      });
    };
    visit(scene.root);
  }

  /** The world matrix of a child is that of its parent times its transform. */
  checkMatrix(parent, child) {
    const [x, y, z, w] = child.quaternion;
    const [sx, sy, sz] = child.scale;
    const local = [
      ...[sx * (1 - 2 * (y * y + z * z)), sx * 2 * (x * y + z * w), sx * 2 * (x * z - y * w), 0],
      ...[sy * 2 * (x * y - z * w), sy * (1 - 2 * (x * x + z * z)), sy * 2 * (y * z + x * w), 0],
      ...[sz * 2 * (x * z + y * w), sz * 2 * (y * z - x * w), sz * (1 - 2 * (x * x + y * y)), 0],
      ...child.position,
      1,
    ];
    // Terms of a rotation may cancel each other.
    const most = 1 + 2 * (x * x + y * y + z * z + w * w);
    const sizes = [sx, sy, sz].map((scale) => Math.abs(scale) * most);
    const a = parent.worldMatrix;
    const found = child.worldMatrix;
    ++this.counts.matrices;
    for (let column = 0; column < 4; ++column) {
      for (let row = 0; row < 4; ++row) {
        let sum = 0;
        let size = 0;
        for (let k = 0; k < 4; ++k) {
          const term = a[4 * k + row] * local[4 * column + k];
          sum += term;
          size += Math.abs(a[4 * k + row]) * (k < 3 && column < 3 ? sizes[column] : 0);
          size += Math.abs(term);
        }
        const value = found[4 * column + row];
        const difference = Math.abs(value - sum);
        assert(
          difference <= 1e-4 * size + 1e-6,
          `world matrix of '${child.name}': ${value} instead of ${sum} at row ${row}, column ${column}`
        );
      }
    }
  }

  step(draw) {
    this.draw = draw;
    Object.keys(this.pools).forEach((kind) => {
      const pool = this.pools[kind];
      // Some stay, so that calls on disposed objects are refused.
      if (pool.length > 60) {
        this.pools[kind] = pool.filter(({ isDisposed }) => isDisposed !== true).slice(-60);
      }
    });
    const live = this.scenes.filter(({ isDisposed }) => !isDisposed);
    if (live.length === 0 || (this.scenes.length < kMostScenes && draw.chance(0.01))) {
      this.scenes = live;
      this.addScene();
    }
    if (draw.chance(0.02) || this.pools.model.every(({ isDisposed }) => isDisposed)) {
      this.addModel(1 + draw.below(4));
    }
    const actions = [
      [30, () => this.member()],
      [5, () => this.getters()],
      [3, () => this.wrongReceiver()],
      [8, () => this.update()],
    ];
    let at = draw.below(actions.reduce((sum, [weight]) => sum + weight, 0));
    const [, run] = actions.find(([weight]) => (at -= weight) < 0);
    run();
  }

  end() {
    this.scenes.forEach((scene) => scene.dispose());
    return this.counts;
  }
}

module.exports = { start: (seed) => new Program(seed), members };
