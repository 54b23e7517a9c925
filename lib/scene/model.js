'use strict';
// Models of scenes: nodes, skins, clips and vertices of a file, prepared so that any two clips can be blended.
const { buildClip, readClip, sampleTypes } = require('../clip');
const { importGltf } = require('../gltf');
const { measureBounds } = require('./bounds');
const { readMeshes } = require('./meshes');
const { selectScene } = require('./selection');
const { isObject, show } = require('../value-checks');

/**
 * @typedef {import('../gltf').ImportedModel} ImportedModel
 * @typedef {import('../gltf').ImportedNode} ImportedNode
 * @typedef {import('./meshes').ModelMesh} ModelMesh
 */

/**
 * A bounding sphere.
 * @typedef {Object} Bounds
 * @property {number[]} center x, y, z.
 * @property {number} radius In units of the model.
 */

/**
 * A clip of a model.
 * @readonly
 * @typedef {Object} ModelClip
 * @property {string} name '' if it has none.
 * @property {number} index Its place in `clips` of the model.
 * @property {number} duration Seconds until its last key.
 * @property {number} framesPerSecond Rate of its keys.
 * @property {ArrayBuffer} bytes As given to the engine: it moves all that any clip of the model moves.
 */

/**
 * A skin of a model.
 * @readonly
 * @typedef {Object} ModelSkin
 * @property {string} name '' if it has none.
 * @property {number[]} joints Indices of nodes.
 * @property {ArrayBuffer} inverseBindMatrices 64 bytes a joint.
 */

/**
 * How to load a model.
 * @typedef {Object} ModelOptions
 * @property {string} [name] By default the path.
 * @property {string | number} [scene] Name or index of the scene of the file whose nodes it has; by default that which the
 *   file names, or the first. A file without scenes is taken whole.
 * @property {number} [framesPerSecond] Rate of all clips; by default each gets that of its keys.
 * @property {Bounds} [bounds] By default those of the vertices in all clips.
 * @property {ModelMesh[]} [meshes] By default those of the file; none for imported data.
 */

/** Sample types of positions, scales and quaternions, with the property of a node and the place in it. */
const channels = new Map([
  [sampleTypes.PositionX, ['translation', 0]],
  [sampleTypes.PositionY, ['translation', 1]],
  [sampleTypes.PositionZ, ['translation', 2]],
  [sampleTypes.ScaleX, ['scale', 0]],
  [sampleTypes.ScaleY, ['scale', 1]],
  [sampleTypes.ScaleZ, ['scale', 2]],
  [sampleTypes.QuaternionX, ['rotation', 0]],
  [sampleTypes.QuaternionY, ['rotation', 1]],
  [sampleTypes.QuaternionZ, ['rotation', 2]],
  [sampleTypes.QuaternionW, ['rotation', 3]],
]);

/** Channels that a clip has together, or not at all. */
const groups = [
  [sampleTypes.PositionX, sampleTypes.PositionY, sampleTypes.PositionZ],
  [sampleTypes.ScaleX, sampleTypes.ScaleY, sampleTypes.ScaleZ],
  [
    sampleTypes.QuaternionX,
    sampleTypes.QuaternionY,
    sampleTypes.QuaternionZ,
    sampleTypes.QuaternionW,
  ],
];

/** Curves of an animation by node, then by sample type. */
function curvesByNode(label, { name, clip, targets }) {
  const nodes = new Map();
  for (const { target, type, keys } of readClip(clip, name).curves) {
    if (keys.length === 0 || targets[target] < 0) {
      continue;
    }
    if (!channels.has(type)) {
      const cure = 'give its rotations as quaternions';
      throw new RangeError(`${label}: clip '${name}' has a curve of sample type ${type}: ${cure}.`);
    }
    const node = targets[target];
    if (!nodes.has(node)) {
      nodes.set(node, new Map());
    }
    nodes.get(node).set(type, keys);
  }
  return nodes;
}

/**
 * Clips that all move the same channels of the same nodes: one that lacks a channel gets the value at rest.
 * @returns {{ clips: ModelClip[], targets: number[], curves: Object[][], restClip: ModelClip }} curves by clip, with
 *   nodes as targets; a clip of the pose at rest
 */
function completeClips(label, nodes, animations) {
  const read = animations.map((animation) => curvesByNode(label, animation));
  const moved = new Map();
  for (const curves of read) {
    for (const [node, types] of curves) {
      for (const type of types.keys()) {
        if (!moved.has(node)) {
          moved.set(node, new Set());
        }
        groups.find((group) => group.includes(type)).forEach((one) => moved.get(node).add(one));
      }
    }
  }
  const targets = Array.from(moved.keys()).sort((a, b) => a - b);
  const ofNodes = [];
  const clips = animations.map(({ name, framesPerSecond }, index) => {
    const curves = [];
    let last = 0;
    targets.forEach((node, target) => {
      for (const type of Array.from(moved.get(node)).sort((a, b) => a - b)) {
        let keys = read[index].has(node) ? read[index].get(node).get(type) : undefined;
        if (keys === undefined) {
          const [property, place] = channels.get(type);
          keys = [{ frame: 0, value: nodes[node][property][place], inTangent: 0, outTangent: 0 }];
        }
        last = Math.max(last, keys[keys.length - 1].frame);
        curves.push({ target, type, keys });
      }
    });
    ofNodes.push(
      curves.map(({ target, type, keys }) => {
        const [property, place] = channels.get(type);
        return { node: targets[target], property, place, keys };
      })
    );
    // One frame more than the last key, so that the clip can be held there.
    const bytes = buildClip({ name, framesPerSecond, frameCount: last + 1, curves });
    const duration = last / framesPerSecond;
    return Object.freeze({ name, index, duration, framesPerSecond, bytes });
  });
  const rest = [];
  targets.forEach((node, target) => {
    for (const type of Array.from(moved.get(node)).sort((a, b) => a - b)) {
      const [property, place] = channels.get(type);
      const value = nodes[node][property][place];
      rest.push({ target, type, keys: [{ frame: 0, value, inTangent: 0, outTangent: 0 }] });
    }
  });
  return { clips, targets, curves: ofNodes, restClip: makeRestClip(rest) };
}

/** A clip of the pose at rest, which is none of the model's own. */
function makeRestClip(curves) {
  const framesPerSecond = 1;
  const bytes = buildClip({ name: 'rest', framesPerSecond, frameCount: 1, curves });
  return Object.freeze({ name: 'rest', index: -1, duration: 0, framesPerSecond, bytes });
}

function checkBounds(label, bounds) {
  const isSphere =
    isObject(bounds) &&
    isObject(bounds.center) &&
    bounds.center.length === 3 &&
    [...Array.from(bounds.center), bounds.radius].every(Number.isFinite) &&
    bounds.radius >= 0;
  if (!isSphere) {
    const cure = 'give { center: [x, y, z], radius }, or leave it out';
    throw new TypeError(`${label}: options.bounds is ${show(bounds)}: ${cure}.`);
  }
  return { center: Array.from(bounds.center), radius: bounds.radius };
}

/**
 * A model: what characters have in common. `await Model.load('fox.glb')` reads a glTF 2.0 file, for which it needs the
 * package `@gltf-transform/core`. A model belongs to no scene; any number of them may use it.
 */
class Model {
  /**
   * As `Model.from`.
   * @param {ImportedModel} imported
   * @param {ModelOptions} [options]
   */
  constructor(imported, options = {}) {
    const label = 'Model';
    if (!isObject(imported) || !Array.isArray(imported.nodes)) {
      const cure = 'give what importGltf resolved to';
      throw new TypeError(`${label}: imported is ${show(imported)}: ${cure}.`);
    }
    for (const part of ['skins', 'animations']) {
      if (!Array.isArray(imported[part])) {
        const found = `imported.${part} is ${show(imported[part])}`;
        throw new TypeError(`${label}: ${found}: give an array, as importGltf does.`);
      }
    }
    if (!isObject(options)) {
      throw new TypeError(`${label}: options is ${show(options)}: leave it out or give an object.`);
    }
    const { name = '', meshes = [], bounds } = options;
    const { nodes, skins, animations, warnings = [] } = selectScene(label, imported, options.scene);
    /**
     * Its name in messages.
     * @type {string}
     * @readonly
     */
    this.name = name;
    /**
     * Its nodes, parents first.
     * @type {readonly ImportedNode[]}
     * @readonly
     */
    this.nodes = nodes;
    /**
     * Its skins.
     * @type {readonly ModelSkin[]}
     * @readonly
     */
    this.skins = skins.map(({ name: skinName, joints, inverseBindMatrices }) =>
      Object.freeze({ name: skinName, joints, inverseBindMatrices })
    );
    const { clips, targets, curves, restClip } = completeClips(label, nodes, animations);
    /**
     * Its clips, in the order of the file.
     * @type {readonly ModelClip[]}
     * @readonly
     */
    this.clips = clips;
    /**
     * Its vertices, for renderers.
     * @type {readonly ModelMesh[]}
     * @readonly
     */
    this.meshes = meshes;
    /**
     * What was left out or resampled, a line each.
     * @type {readonly string[]}
     * @readonly
     */
    this.warnings = warnings.slice();
    /**
     * A sphere around it in all of its clips. Its radius is Infinity, so that every camera sees it, where it has values that
     * are not finite.
     * @type {Bounds}
     * @readonly
     */
    this.bounds = bounds === undefined ? measureBounds(this, curves) : checkBounds(label, bounds);
    /** Nodes that its clips move. */
    this._targets = targets;
    this._restClip = restClip;
    /** Scenes that have made something for it. */
    this._scenes = new Set();
    this._isDisposed = false;
  }

  /**
   * Loads a glTF 2.0 file.
   * @param {string | ArrayBuffer | SharedArrayBuffer | ArrayBufferView} source path of a .glb or .gltf file, or the bytes
   *   of one that refers to no other file
   * @param {ModelOptions} [options]
   * @returns {Promise<Model>} rejects with a GltfError for what is wrong with the file
   */
  static async load(source, options = {}) {
    if (!isObject(options)) {
      const cure = 'leave it out or give an object';
      throw new TypeError(`Model.load: options is ${show(options)}: ${cure}.`);
    }
    const { name, framesPerSecond } = options;
    const whole = await importGltf(source, { name, framesPerSecond, holdEnd: true });
    const imported = selectScene('Model.load', whole, options.scene);
    const own = { name: name === undefined && typeof source === 'string' ? source : name };
    const warnings = imported.warnings.slice();
    if (options.meshes === undefined) {
      own.meshes = await readMeshes(source, imported.nodes, warnings);
    }
    // What is left has no other scene.
    own.scene = undefined;
    return new Model(Object.assign({}, imported, { warnings }), Object.assign({}, options, own));
  }

  /**
   * Makes a model of imported data, or of data of the same form. Targets of an animation may be -1, for what is left
   * out.
   * @param {ImportedModel} imported what `importGltf` resolved to
   * @param {ModelOptions} [options]
   * @returns {Model}
   */
  static from(imported, options = {}) {
    return new Model(imported, options);
  }

  /**
   * Whether it was disposed of.
   * @type {boolean}
   */
  get isDisposed() {
    return this._isDisposed;
  }

  /**
   * A clip.
   * @param {string | number | ModelClip} clip its name, its index, or itself
   * @returns {ModelClip}
   */
  clip(clip) {
    this._check('clip');
    let found;
    if (typeof clip === 'number' && clip < this.clips.length && clip >>> 0 === clip) {
      return this.clips[clip];
    }
    if (typeof clip === 'string') {
      for (let i = 0; i < this.clips.length && found === undefined; ++i) {
        if (this.clips[i].name === clip) {
          found = this.clips[i];
        }
      }
    } else {
      const index = isObject(clip) ? clip.index : clip;
      found = this.clips[index];
      if (isObject(clip) && found !== clip) {
        found = undefined;
      }
    }
    if (found === undefined) {
      const names = this.clips.map(({ name }) => `'${name}'`).join(', ');
      const cure = names === '' ? 'it has no clips' : `it has ${names}`;
      throw new RangeError(`Model.clip: model '${this.name}' has no clip ${show(clip)}: ${cure}.`);
    }
    return found;
  }

  /**
   * Index of the first node of a name.
   * @param {string} name
   * @returns {number}
   */
  nodeIndex(name) {
    this._check('nodeIndex');
    const index = this.nodes.findIndex((node) => node.name === name);
    if (index < 0) {
      const names = this.nodes.map((node) => `'${node.name}'`).join(', ');
      const trouble = `model '${this.name}' has no node ${show(name)}`;
      throw new RangeError(`Model.nodeIndex: ${trouble}: it has ${names}.`);
    }
    return index;
  }

  /** Disposes of it and of all of its characters, in all scenes. */
  dispose() {
    this._isDisposed = true;
    for (const scene of Array.from(this._scenes)) {
      scene._forget(this);
    }
  }

  _check(method) {
    if (this._isDisposed) {
      throw new Error(`Model.${method}: model '${this.name}' is disposed of: load it again.`);
    }
  }
}

module.exports = { Model };
