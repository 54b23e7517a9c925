'use strict';
// A node of a scene: an entity by its index, with its place in the tree.
const { entity3D } = require('../layout');
const {
  compose,
  determinant,
  multiply,
  quaternionTowards,
  removeRotation,
  removeTurn,
  turnBy,
  vectorInside,
} = require('./math');
const { failWord, isInstance, isObject, show } = require('../value-checks');
const { copyOut, failNumbers, failOut, hasRoom } = require('../view-base');

/**
 * @typedef {import('../../types/handles').Entity3DHandle} Entity3DHandle
 * @typedef {import('../scene').Scene} Scene
 * @typedef {import('../view-base').NumberArray} NumberArray
 */

// Words of a record.
const kRotation = entity3D.rotation / 4;
const kPosition = entity3D.position / 4;
const kScale = entity3D.scale / 4;
const kWorldMatrix = entity3D.worldMatrix / 4;
const kMatrixFloats = 16;

const world = new Float64Array(kMatrixFloats);
const local = new Float64Array(kMatrixFloats);
const product = new Float64Array(kMatrixFloats);
const rotation = [0, 0, 0, 1];
const turn = [0, 0, 0, 1];
const inside = [0, 0, 0];
const insideUp = [0, 0, 0];

/** Computes the world matrix of an entity from the records as they are now. */
function computeWorld(blocks, index) {
  world.fill(0);
  world[0] = world[5] = world[10] = world[15] = 1;
  for (let at = index; at >= 0; at = blocks.parents[at]) {
    const word = blocks.word(at);
    const { f32 } = blocks.view(at);
    compose(local, 0, f32, word + kPosition, word + kRotation, word + kScale);
    multiply(product, 0, local, 0, world, 0);
    world.set(product);
  }
}

/** Computes the rotation of an entity in the world from its quaternion, and from those above. */
function computeTurn(blocks, index) {
  turn.fill(0);
  turn[3] = 1;
  for (let at = index; at >= 0; at = blocks.parents[at]) {
    turnBy(turn, blocks.view(at).f32, blocks.word(at) + kRotation);
  }
}

/** Throws for a number that is not finite. Called where a sum is not, which may be of finite ones. */
function checkFinite(label, names, values) {
  const at = values.findIndex((value) => !Number.isFinite(value));
  if (at >= 0) {
    throw new RangeError(`${label}: ${names[at]} is ${values[at]}: give finite numbers.`);
  }
}

function failSphere(label, center, radius) {
  const axis = center.findIndex((value) => !Number.isFinite(value));
  const found = axis < 0 ? `radius is ${radius}` : `${kAxes[axis]} is ${center[axis]}`;
  throw new RangeError(`${label}: ${found}: give finite numbers, and a radius from 0 up.`);
}

/** Throws unless a value has as many numbers as names. */
function checkNumbers(label, names, values) {
  let isRight = isObject(values) && values.length === names.length;
  for (let i = 0; isRight && i < names.length; ++i) {
    isRight = typeof values[i] === 'number';
  }
  if (!isRight) {
    failValues(label, names, values);
  }
}

/** Throws unless a value has as many finite numbers as names. */
function checkFiniteNumbers(property, setter, names, values) {
  checkNumbers(`Node.${property}`, names, values);
  for (let i = 0; i < names.length; ++i) {
    if (!Number.isFinite(values[i])) {
      checkFinite(`Node.${setter}`, names, Array.from(values));
    }
  }
}

/** Throws for what the properties of a new node can't be set to, before anything is written. */
function checkTransform(position, quaternion, scale) {
  if (position !== undefined) {
    checkFiniteNumbers('position', 'setPosition', kAxes, position);
  }
  if (quaternion !== undefined) {
    checkFiniteNumbers('quaternion', 'setQuaternion', kQuaternion, quaternion);
  }
  if (typeof scale === 'number') {
    checkFinite('Node.setScale', kAxes, [scale]);
  } else if (scale !== undefined) {
    checkFiniteNumbers('scale', 'setScale', kAxes, scale);
  }
}

function failValues(label, names, values) {
  if (!isObject(values) || values.length !== names.length) {
    const cure = `give ${names.length} numbers, ${names.join(', ')}`;
    throw new TypeError(`${label}: it is ${show(values)}: ${cure}.`);
  }
  failNumbers(label, names, Array.from(values));
}

const kAxes = ['x', 'y', 'z'];
const kQuaternion = ['x', 'y', 'z', 'w'];

/**
 * A node of a scene, with position, rotation and scale in its parent's space; made by `scene.node()`. What is set takes
 * effect in the next `scene.update`. Setters of single numbers allocate nothing; they refuse numbers that are not finite.
 */
class Node {
  /**
   * Made by scenes.
   * @protected
   * @param {Scene} scene
   * @param {number} index
   * @param {string} name
   */
  constructor(scene, index, name) {
    // `index` is that of its entity.
    if (!isObject(scene) || !isObject(scene._blocks)) {
      throw new TypeError('new Node: nodes come from scene.node only: call that.');
    }
    /**
     * Its scene.
     * @type {Scene}
     * @readonly
     */
    this.scene = scene;
    // What setters read is next to each other: of many nodes, memory is what they cost.
    this._changes = scene._changes;
    this._index = index;
    this._f32 = scene._blocks.view(index).f32;
    this._word = scene._blocks.word(index);
    /**
     * '' if it has none.
     * @type {string}
     * @readonly
     */
    this.name = name;
    this._label = 'Node';
    this._parent = null;
    this._children = null;
    this._matrix = null;
    /** Its culling object, or -1. */
    this._object = -1;
    this._layers = 1;
    /** The character that it is part of, or null. */
    this._character = null;
  }

  /**
   * Whether it was disposed of: it can no longer be used.
   * @type {boolean}
   */
  get isDisposed() {
    return this._f32 === null;
  }

  /**
   * Handle of its entity, for the records below.
   * @type {Entity3DHandle}
   */
  get handle() {
    this._check('handle');
    return this.scene._blocks.handle(this._index);
  }

  /**
   * The node that it was added to; null for the root, and if it was removed.
   * @type {Node | null}
   */
  get parent() {
    this._check('parent');
    return this._parent;
  }

  /**
   * Nodes that were added to it: a copy.
   * @type {Node[]}
   */
  get children() {
    this._check('children');
    return this._children === null ? [] : Array.from(this._children);
  }

  /**
   * Sets its position.
   * @param {number} x
   * @param {number} y
   * @param {number} z
   */
  setPosition(x, y, z) {
    const f32 = this._f32;
    if (f32 === null) {
      this._failDisposed('setPosition');
    }
    if (typeof x !== 'number' || typeof y !== 'number' || typeof z !== 'number') {
      failNumbers(`${this._label}.setPosition`, kAxes, [x, y, z]);
    }
    const sum = x + y + z;
    if (sum - sum !== 0) {
      checkFinite(`${this._label}.setPosition`, kAxes, [x, y, z]);
    }
    const at = this._word + kPosition;
    f32[at] = x;
    f32[at + 1] = y;
    f32[at + 2] = z;
    this._changes.mark(this._index);
  }

  /**
   * Sets its rotation to a unit quaternion.
   * @param {number} x
   * @param {number} y
   * @param {number} z
   * @param {number} w
   */
  setQuaternion(x, y, z, w) {
    const f32 = this._f32;
    if (f32 === null) {
      this._failDisposed('setQuaternion');
    }
    if (
      typeof x !== 'number' ||
      typeof y !== 'number' ||
      typeof z !== 'number' ||
      typeof w !== 'number'
    ) {
      failNumbers(`${this._label}.setQuaternion`, kQuaternion, [x, y, z, w]);
    }
    const sum = x + y + z + w;
    if (sum - sum !== 0) {
      checkFinite(`${this._label}.setQuaternion`, kQuaternion, [x, y, z, w]);
    }
    const at = this._word + kRotation;
    f32[at] = x;
    f32[at + 1] = y;
    f32[at + 2] = z;
    f32[at + 3] = w;
    this._changes.mark(this._index);
  }

  /**
   * Sets its rotation to angles in radians: about z first, then y, then x.
   * @param {number} x
   * @param {number} y
   * @param {number} z
   */
  setEuler(x, y, z) {
    this._check('setEuler');
    if (typeof x !== 'number' || typeof y !== 'number' || typeof z !== 'number') {
      failNumbers(`${this._label}.setEuler`, kAxes, [x, y, z]);
    }
    checkFinite(`${this._label}.setEuler`, kAxes, [x, y, z]);
    const [cx, cy, cz] = [Math.cos(x / 2), Math.cos(y / 2), Math.cos(z / 2)];
    const [sx, sy, sz] = [Math.sin(x / 2), Math.sin(y / 2), Math.sin(z / 2)];
    this.setQuaternion(
      sx * cy * cz + cx * sy * sz,
      cx * sy * cz - sx * cy * sz,
      cx * cy * sz + sx * sy * cz,
      cx * cy * cz - sx * sy * sz
    );
  }

  /**
   * Sets its scale.
   * @param {number} x
   * @param {number} [y] by default x
   * @param {number} [z] by default x
   */
  setScale(x, y = x, z = x) {
    const f32 = this._f32;
    if (f32 === null) {
      this._failDisposed('setScale');
    }
    if (typeof x !== 'number' || typeof y !== 'number' || typeof z !== 'number') {
      failNumbers(`${this._label}.setScale`, kAxes, [x, y, z]);
    }
    const sum = x + y + z;
    if (sum - sum !== 0) {
      checkFinite(`${this._label}.setScale`, kAxes, [x, y, z]);
    }
    const at = this._word + kScale;
    f32[at] = x;
    f32[at + 1] = y;
    f32[at + 2] = z;
    this._changes.mark(this._index);
  }

  /**
   * Position: reading gives a copy; see `setPosition` for writing without one.
   * @type {ArrayLike<number>}
   */
  get position() {
    return this._copy('position', kPosition, 3);
  }

  set position(values) {
    this._check('position');
    checkNumbers(`${this._label}.position`, kAxes, values);
    this.setPosition(values[0], values[1], values[2]);
  }

  /**
   * Rotation as a unit quaternion x, y, z, w: reading gives a copy.
   * @type {ArrayLike<number>}
   */
  get quaternion() {
    return this._copy('quaternion', kRotation, 4);
  }

  set quaternion(values) {
    this._check('quaternion');
    checkNumbers(`${this._label}.quaternion`, kQuaternion, values);
    this.setQuaternion(values[0], values[1], values[2], values[3]);
  }

  /**
   * Scale: reading gives a copy.
   * @type {ArrayLike<number>}
   */
  get scale() {
    return this._copy('scale', kScale, 3);
  }

  set scale(values) {
    this._check('scale');
    checkNumbers(`${this._label}.scale`, kAxes, values);
    this.setScale(values[0], values[1], values[2]);
  }

  /**
   * Rotates it so that its z axis points at a place in the world, and its y axis as far up as possible. It takes into
   * account what was set since the last update.
   * @param {number} x
   * @param {number} y
   * @param {number} z
   * @param {number} [upX] default 0
   * @param {number} [upY] default 1
   * @param {number} [upZ] default 0
   */
  lookAt(x, y, z, upX = 0, upY = 1, upZ = 0) {
    this._check('lookAt');
    if (typeof x !== 'number' || typeof y !== 'number' || typeof z !== 'number') {
      failNumbers(`${this._label}.lookAt`, kAxes, [x, y, z]);
    }
    if (typeof upX !== 'number' || typeof upY !== 'number' || typeof upZ !== 'number') {
      failNumbers(`${this._label}.lookAt`, ['upX', 'upY', 'upZ'], [upX, upY, upZ]);
    }
    checkFinite(`${this._label}.lookAt`, kAxes, [x, y, z]);
    checkFinite(`${this._label}.lookAt`, ['upX', 'upY', 'upZ'], [upX, upY, upZ]);
    const blocks = this.scene._blocks;
    computeWorld(blocks, this._index);
    const [dx, dy, dz] = [x - world[12], y - world[13], z - world[14]];
    const parent = blocks.parents[this._index];
    computeWorld(blocks, parent);
    const volume = determinant(world);
    if (volume < 0) {
      // A mirrored space has no rotation to be removed: look from within it.
      vectorInside(inside, world, dx, dy, dz);
      vectorInside(insideUp, world, upX, upY, upZ);
      quaternionTowards(rotation, ...inside, ...insideUp);
    } else {
      quaternionTowards(rotation, dx, dy, dz, upX, upY, upZ);
      if (volume > 0) {
        removeRotation(rotation, world);
      } else {
        // A scale of 0 leaves no axes.
        computeTurn(blocks, parent);
        removeTurn(rotation, turn);
      }
    }
    this.setQuaternion(rotation[0], rotation[1], rotation[2], rotation[3]);
  }

  /**
   * World matrix as of the last update, column-major, in place: 16 floats of shared memory, always the same array. Don't
   * write to it, and drop it with the node.
   * @type {Float32Array}
   */
  get worldMatrix() {
    if (this._matrix === null) {
      this._check('worldMatrix');
      const at = this._word + kWorldMatrix;
      this._matrix = this._f32.subarray(at, at + kMatrixFloats);
    }
    return this._matrix;
  }

  /**
   * Copies the world matrix as of the last update.
   * @template {NumberArray} Out
   * @param {Out} out 16 numbers from `at`, which are written
   * @param {number} [at] default 0
   * @returns {Out}
   */
  readWorldMatrix(out, at = 0) {
    return this._read('readWorldMatrix', kWorldMatrix, kMatrixFloats, out, at);
  }

  /**
   * Copies the position in the world as of the last update.
   * @template {NumberArray} Out
   * @param {Out} out 3 numbers from `at`, which are written
   * @param {number} [at] default 0
   * @returns {Out}
   */
  readWorldPosition(out, at = 0) {
    return this._read('readWorldPosition', kWorldMatrix + 12, 3, out, at);
  }

  /**
   * Moves a node, with all below it, under this one. Its transform is then in this node's space.
   * @param {Node} child
   * @returns {Node} the child
   */
  add(child) {
    this._check('add');
    const label = `${this._label}.add`;
    if (!isInstance(child, Node)) {
      throw new TypeError(`${label}: child is ${show(child)}: give a node of the scene.`);
    }
    child._checkMovable(label);
    if (child.scene !== this.scene) {
      throw new RangeError(`${label}: child is in another scene: make one by this scene.`);
    }
    for (let above = this; above !== null; above = above._above()) {
      if (above === child) {
        throw new RangeError(`${label}: child is above this node: remove this node first.`);
      }
    }
    if (child._parent !== this) {
      const wasInTree = child._isInTree();
      child._leave();
      this._take(child);
      if (this._isInTree() !== wasInTree) {
        child._showSpheres(!wasInTree);
      }
    }
    return child;
  }

  /**
   * Takes it, with all below it, out of the tree: no camera sees them, and its world matrix stays as it is, until it is
   * added again.
   */
  remove() {
    this._check('remove');
    this._checkMovable(`${this._label}.remove`);
    if (this._parent !== null) {
      const wasInTree = this._isInTree();
      this._leave();
      this._changes.remove(this._index);
      if (wasInTree) {
        this._showSpheres(false);
      }
    }
  }

  /**
   * Gives it a bounding sphere, in its own space, by which cameras see it.
   * @param {number} x center
   * @param {number} y
   * @param {number} z
   * @param {number} radius from 0 up; Infinity lets it be seen from everywhere
   */
  setSphere(x, y, z, radius) {
    this._check('setSphere');
    if (
      typeof x !== 'number' ||
      typeof y !== 'number' ||
      typeof z !== 'number' ||
      typeof radius !== 'number'
    ) {
      failNumbers(`${this._label}.setSphere`, ['x', 'y', 'z', 'radius'], [x, y, z, radius]);
    }
    if (!(Number.isFinite(x) && Number.isFinite(y) && Number.isFinite(z) && radius >= 0)) {
      failSphere(`${this._label}.setSphere`, [x, y, z], radius);
    }
    const objects = this.scene._objects;
    if (this._object < 0) {
      this._object = objects.take(this, this.scene._blocks.handle(this._index));
      objects.setLayers(this._object, this._layers, this._isInTree());
    }
    objects.setSphere(this._object, x, y, z, radius);
    this._changes.mark(this._index);
  }

  /**
   * Layers in which cameras see it, a bit each; by default 1, and 0 hides it from all. It needs a sphere to be seen.
   * @type {number}
   */
  get layers() {
    this._check('layers');
    return this._layers;
  }

  set layers(layers) {
    this._check('layers');
    if (typeof layers !== 'number' || layers >>> 0 !== layers) {
      failWord(`${this._label}.layers`, 'it', layers);
    }
    this._layers = layers;
    if (this._object >= 0) {
      this.scene._objects.setLayers(this._object, layers, this._isInTree());
    }
  }

  /** Removes it with all below it, and gives their memory back for reuse. They can't be used any more. */
  dispose() {
    if (this._f32 === null) {
      return;
    }
    this._checkMovable(`${this._label}.dispose`);
    this._disposeChildren();
    if (this._parent !== null) {
      this._leave();
      this._changes.remove(this._index);
    }
    if (this._object >= 0) {
      this.scene._objects.give(this._object);
      this._object = -1;
    }
    this._changes.unmarkRange(this._index, 1);
    this.scene._blocks.give(this._index, 1);
    this.scene._note('dispose of nodes', this.name, 1);
    this._end();
  }

  /** Disposes of the nodes below; those nearest to the leaves first, without recursion. */
  _disposeChildren() {
    const all = [];
    const push = (node) => all.push(node);
    const collect = (node) => node._children !== null && node._children.forEach(push);
    collect(this);
    for (let i = 0; i < all.length; ++i) {
      // A character disposes of what is below it.
      if (all[i]._label === 'Node') {
        collect(all[i]);
      }
    }
    for (let i = all.length - 1; i >= 0; --i) {
      all[i].dispose();
    }
  }

  /** Whether the root is above it. */
  _isInTree() {
    const { root } = this.scene;
    let node = this;
    while (node !== root && node !== null) {
      node = node._above();
    }
    return node !== null;
  }

  /** Lets cameras see the spheres of it and of all below it, or hides them. */
  _showSpheres(isInTree) {
    const objects = this.scene._objects;
    const left = [this];
    const push = (node) => left.push(node);
    while (left.length > 0) {
      const node = left.pop();
      if (node._object >= 0) {
        objects.setLayers(node._object, node._layers, isInTree);
      }
      if (node._children !== null) {
        node._children.forEach(push);
      }
      if (node._label === 'Character' && node._parts !== null) {
        node._parts.forEach(push);
      }
    }
  }

  /** The next node above: that of a part of a character is the character. */
  _above() {
    return this._parent;
  }

  /** Adds a node that has no parent. */
  _take(child) {
    if (this._children === null) {
      this._children = new Set();
    }
    this._children.add(child);
    child._parent = this;
    this._changes.addChild(this._index, child._index);
  }

  _leave() {
    if (this._parent !== null) {
      this._parent._children.delete(this);
      this._parent = null;
    }
  }

  /** Makes it unusable. */
  _end() {
    this._f32 = null;
    this._matrix = null;
    this._children = null;
  }

  _copy(name, offset, length) {
    this._check(name);
    const at = this._word + offset;
    return Array.from(this._f32.subarray(at, at + length));
  }

  _read(method, offset, length, out, at) {
    this._check(method);
    if (!hasRoom(out, at, length)) {
      failOut(`${this._label}.${method}`, out, at, length);
    }
    return copyOut(this._f32, this._word + offset, length, out, at);
  }

  _check(method) {
    if (this._f32 === null) {
      this._failDisposed(method);
    }
  }

  _checkMovable(label) {
    if (this._f32 === null) {
      throw new Error(`${label}: the node is disposed of: make a new one.`);
    }
    if (this._character !== null) {
      const trouble = `node '${this.name}' is part of a character`;
      throw new RangeError(`${label}: ${trouble}: move or dispose of the character.`);
    }
    if (this === this.scene.root) {
      throw new RangeError(`${label}: the node is the root of its scene: give another node.`);
    }
  }

  _failDisposed(method) {
    const what = this._label === 'Node' ? 'node' : 'character';
    const named = this.name === '' ? `the ${what}` : `${what} '${this.name}'`;
    throw new Error(`${this._label}.${method}: ${named} is disposed of: make a new one.`);
  }
}

module.exports = { Node, checkFinite, checkTransform };
