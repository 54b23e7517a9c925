'use strict';
// Scenes for three.js: matrices of nodes and characters in its objects, in place where it can use them so. The library is
// the caller's: nothing here loads it.
const { Camera } = require('./camera');
const { Character } = require('./character');
const { Node } = require('./node');
const { isObject, show } = require('../value-checks');
const { failIndex } = require('../view-base');

/**
 * @typedef {import('../scene').Scene} Scene
 */

/**
 * A matrix of three.js.
 * @typedef {Object} ThreeMatrix
 * @property {ArrayLike<number>} elements 16 numbers, column-major.
 */

/**
 * What this needs of an `Object3D` of three.js.
 * @typedef {Object} ThreeObject
 * @property {ThreeMatrix} matrix Its transform: that of the node.
 * @property {boolean} matrixAutoUpdate Set to false, since the node moves it.
 * @property {boolean} matrixWorldNeedsUpdate Set by each update in which it is visible.
 * @property {boolean} visible Set by updates for a camera.
 * @property {boolean} frustumCulled Set to false for meshes, which the scene culls.
 */

/**
 * What this needs of a `Group` of three.js.
 * @typedef {ThreeObject & ThreeParent} ThreeGroup
 */

/**
 * An object that has others below it.
 * @typedef {Object} ThreeParent
 * @property {(object: ThreeObject) => unknown} add Adds an object.
 * @property {(object: ThreeObject) => unknown} remove Removes one.
 */

/**
 * What this needs of a `Skeleton` of three.js.
 * @typedef {Object} ThreeSkeleton
 * @property {() => void} update Called by the renderer before it draws.
 * @property {() => void} dispose Frees its texture.
 */

/**
 * What this needs of a `SkinnedMesh` of three.js.
 * @typedef {ThreeObject & ThreeBindable} ThreeSkinnedMesh
 */

/**
 * An object that takes a skeleton.
 * @typedef {Object} ThreeBindable
 * @property {ThreeSkeleton} skeleton That of the character.
 * @property {(skeleton: ThreeSkeleton, bindMatrix?: ThreeMatrix) => void} bind Sets it.
 */

/**
 * What this needs of an `InstancedMesh` of three.js.
 * @typedef {ThreeObject & ThreeInstanced} ThreeInstancedMesh
 */

/**
 * An object with a matrix for each instance.
 * @typedef {Object} ThreeInstanced
 * @property {number} count Set to the number of instances that are drawn.
 * @property {{ array: ArrayLike<number>, needsUpdate: boolean }} instanceMatrix 16 floats each.
 */

/**
 * What this needs of three.js: `THREE`, from `require('three')` or `import * as THREE from 'three'`.
 * @template {ThreeGroup} G
 * @typedef {Object} ThreeLibrary
 * @property {new () => G} Group A class.
 * @property {new () => ThreeMatrix} Matrix4 A class.
 * @property {new () => { matrixWorld: ThreeMatrix }} Bone A class.
 * @property {new (bones: never[], boneInverses: never[]) => ThreeSkeleton} Skeleton A class.
 * @property {new (data: Float32Array, width: number, height: number) => { dispose(): void }} DataTexture A class.
 * @property {number} RGBAFormat A constant.
 * @property {number} FloatType A constant.
 */

const kMatrixFloats = 16;

/** Pixels of a matrix in a texture, four floats each: a row of a texture of this width is a matrix. */
const kMatrixPixels = 4;

const kNone = Object.freeze([]);

/** A matrix of three.js whose numbers are those of an array, in place. */
function matrixOver({ Matrix4 }, elements) {
  const matrix = new Matrix4();
  matrix.elements = elements;
  return matrix;
}

/**
 * The class of skeletons whose matrices are those that the engine computes, where it writes them.
 *
 * Renderers read `boneTexture`, or `boneMatrices`. Earlier versions of three.js look matrices up in a square texture, for
 * which they must be copied into a larger array; those skeletons have a `boneTextureSize`. Later ones use any width.
 */
function makeSkeletonClass(three) {
  const { Bone, DataTexture, FloatType, RGBAFormat, Skeleton } = three;
  return class SharedSkeleton extends Skeleton {
    constructor(character, skin, boneInverses) {
      super([], []);
      this._character = character;
      this._skin = skin;
      this._bones = null;
      this._results = character.skinMatrices(skin);
      this._isSquare = 'boneTextureSize' in this;
      this.boneInverses = boneInverses;
      this.boneMatrices = this._results;
    }

    /** Bones by which three.js skins single vertices, for raycasts and boxes; made at first use. */
    get bones() {
      if (this._character === undefined) {
        return kNone; // in the constructor of the base class
      }
      if (this._bones === null) {
        const character = this._character;
        this._bones = character.model.skins[this._skin].joints.map((joint) => {
          const bone = new Bone();
          bone.name = character.model.nodes[joint].name;
          bone.matrixWorld.elements = character.node(joint).worldMatrix;
          return bone;
        });
      }
      return this._bones;
    }

    set bones(bones) {
      // The base class sets its own.
    }

    update() {
      if (this.boneMatrices !== this._results) {
        this.boneMatrices.set(this._results);
      }
      if (this.boneTexture !== null) {
        this.boneTexture.needsUpdate = true;
      }
    }

    computeBoneTexture() {
      let width = kMatrixPixels;
      let height = this._results.length / kMatrixFloats;
      if (this._isSquare) {
        // A power of two, so that a matrix does not go across rows.
        while (width * width < kMatrixPixels * height) {
          width *= 2;
        }
        height = width;
        this.boneMatrices = new Float32Array(4 * width * width);
        this.boneMatrices.set(this._results);
        this.boneTextureSize = width;
      }
      this.boneTexture = new DataTexture(this.boneMatrices, width, height, RGBAFormat, FloatType);
      this.boneTexture.needsUpdate = true;
      return this;
    }

    // These would write world matrices of the scene.
    calculateInverses() {}

    pose() {}
  };
}

/** What follows a node. */
class Anchor {
  constructor(node) {
    this.node = node;
    this.links = 0;
    this.sets = [];
    /** By skin. */
    this.skeletons = [];
    /** The update in which a camera saw it last. */
    this.seen = 0;
  }
}

/** Nodes whose world matrices are those of an `InstancedMesh`; made by `world.instances`. */
class ThreeInstances {
  /**
   * @param {ThreeWorld<ThreeGroup>} world
   * @param {ThreeInstancedMesh} mesh
   */
  constructor(world, mesh) {
    this._world = world;
    this._mesh = mesh;
    this._anchors = [];
    this._places = new Map();
    this._written = 0;
    this._isRemoved = false;
    this._frustumCulled = true;
    this._range = { start: 0, count: 0 };
  }

  /**
   * Number of nodes, visible or not.
   * @type {number}
   */
  get count() {
    return this._anchors.length;
  }

  /**
   * Adds a node. One that is disposed of is removed by the next update.
   * @template {Node} T
   * @param {T} node
   * @returns {T}
   */
  add(node) {
    const label = 'ThreeInstances.add';
    if (this._isRemoved) {
      const cure = 'call instances of the world again';
      throw new Error(`${label}: the mesh was removed from the world: ${cure}.`);
    }
    const anchor = this._world._anchorOf(label, node);
    if (!this._places.has(anchor)) {
      const capacity = this._mesh.instanceMatrix.array.length / kMatrixFloats;
      if (this._anchors.length >= capacity) {
        this._world._release(anchor);
        const cure = 'make an InstancedMesh with a larger count';
        throw new RangeError(`${label}: the mesh has room for ${capacity} instances: ${cure}.`);
      }
      this._places.set(anchor, this._anchors.length);
      this._anchors.push(anchor);
      anchor.sets.push(this);
    }
    return node;
  }

  /**
   * Removes a node.
   * @param {Node} node
   */
  remove(node) {
    const anchor = this._world._anchors.get(node);
    if (anchor !== undefined && this._places.has(anchor)) {
      this._drop(anchor);
      this._world._release(anchor);
    }
  }

  _drop(anchor) {
    const place = this._places.get(anchor);
    const last = this._anchors.pop();
    if (last !== anchor) {
      this._anchors[place] = last;
      this._places.set(last, place);
    }
    this._places.delete(anchor);
    anchor.sets.splice(anchor.sets.indexOf(this), 1);
  }

  _write(node) {
    const at = this._written++ * kMatrixFloats;
    node.readWorldMatrix(this._mesh.instanceMatrix.array, at);
  }

  /** Writes all nodes, or those that no camera can see. */
  _writeRest(isCulled) {
    const anchors = this._anchors;
    for (let i = anchors.length - 1; i >= 0; --i) {
      const { node } = anchors[i];
      if (node.isDisposed) {
        const anchor = anchors[i];
        this._drop(anchor);
        this._world._release(anchor);
      } else if (!isCulled || node._object < 0) {
        this._write(node);
      }
    }
  }

  _finish() {
    const mesh = this._mesh;
    const { instanceMatrix } = mesh;
    mesh.count = this._written;
    const range = this._range;
    range.count = this._written * kMatrixFloats;
    // Only what was written goes to the GPU: later versions of three.js have a list of ranges, earlier ones one range.
    const { updateRanges } = instanceMatrix;
    if (updateRanges !== undefined) {
      // The renderer empties the list; to do so here each time would allocate another.
      if (updateRanges.length !== 1 || updateRanges[0] !== range) {
        updateRanges.length = 0;
        updateRanges.push(range);
      }
    } else {
      instanceMatrix.updateRange.count = range.count;
    }
    if (this._written > 0) {
      instanceMatrix.needsUpdate = true;
    }
    forgetBounds(mesh);
    this._written = 0;
  }

  /** Leaves the mesh to three.js: it is culled as before, and uploaded whole. */
  _restore() {
    const mesh = this._mesh;
    const { updateRange, updateRanges } = mesh.instanceMatrix;
    mesh.frustumCulled = this._frustumCulled;
    if (updateRanges === undefined) {
      updateRange.count = -1;
    } else if (updateRanges[0] === this._range) {
      updateRanges.shift();
    }
  }
}

/** Lets three.js measure a mesh again, for raycasts, where it keeps what it measured. */
function forgetBounds(mesh) {
  if (mesh.boundingSphere) {
    mesh.boundingSphere = null;
  }
  if (mesh.boundingBox) {
    mesh.boundingBox = null;
  }
}

/**
 * A scene for three.js, made by `toThree`. After `scene.update(seconds)`, `update` brings its objects up to date: those
 * that follow nodes, skinned meshes of characters, and instances. In steady state it allocates nothing.
 *
 * @template {ThreeGroup} G
 */
class ThreeWorld {
  /**
   * @param {ThreeLibrary<G>} three
   * @param {Scene} scene
   */
  constructor(three, scene) {
    const label = 'toThree';
    for (const name of ['Group', 'Matrix4', 'Bone', 'Skeleton', 'DataTexture']) {
      if (!isObject(three) || typeof three[name] !== 'function') {
        const found = isObject(three) ? `three has no ${name}` : `three is ${show(three)}`;
        throw new TypeError(`${label}: ${found}: give three.js, as in toThree(THREE, scene).`);
      }
    }
    if (!isObject(scene) || !isObject(scene._objects)) {
      throw new TypeError(`${label}: scene is ${show(scene)}: give a scene.`);
    }
    scene._check(label);
    /**
     * Its scene.
     * @type {Scene}
     * @readonly
     */
    this.scene = scene;
    /**
     * The group of all objects, to be added to a scene of three.js. Don't move it: matrices are those of the world.
     * @type {G}
     * @readonly
     */
    this.root = new three.Group();
    this.root.matrixAutoUpdate = false;
    this._three = three;
    this._Skeleton = makeSkeletonClass(three);
    this._identity = new three.Matrix4();
    /** Inverse bind matrices of skins. */
    this._inverses = new WeakMap();
    this._anchors = new Map();
    this._links = [];
    this._places = new Map();
    this._sets = [];
    this._frame = 0;
    this._isDisposed = false;
  }

  /**
   * Lets an object of three.js follow a node: a mesh, a light, a camera, a group. It becomes a child of `root`, and its
   * `matrix` is the node's world matrix, in place. A mesh is not culled by three.js any more.
   * @template {ThreeObject} T
   * @param {T} object
   * @param {Node} node in a socket, too
   * @returns {T} the object
   */
  follow(object, node) {
    return this._link('ThreeWorld.follow', object, node);
  }

  /**
   * Lets a `SkinnedMesh` of three.js follow a character, with a skeleton whose matrices are the character's. Meshes that
   * have the same character and skin share one.
   * @template {ThreeSkinnedMesh} T
   * @param {T} mesh its geometry has skinIndex and skinWeight
   * @param {Character} character
   * @param {number} [skin] index, default 0
   * @returns {T} the mesh
   */
  bind(mesh, character, skin = 0) {
    const label = 'ThreeWorld.bind';
    if (!isObject(mesh) || typeof mesh.bind !== 'function') {
      throw new TypeError(`${label}: mesh is ${show(mesh)}: give a SkinnedMesh of three.js.`);
    }
    if (!(character instanceof Character)) {
      throw new TypeError(`${label}: character is ${show(character)}: give a character.`);
    }
    const { skins } = character.model;
    if (typeof skin !== 'number' || skin >>> 0 !== skin || skin >= skins.length) {
      failIndex(label, 'skin', skin, skins.length);
    }
    this._link(label, mesh, character);
    const { skeletons } = this._anchors.get(character);
    if (skeletons[skin] === undefined) {
      skeletons[skin] = new this._Skeleton(character, skin, this._inversesOf(skins[skin]));
    }
    // The matrices lead from vertices at rest to the world, so nothing is left to the bind matrix.
    mesh.bind(skeletons[skin], this._identity);
    return mesh;
  }

  /**
   * Draws nodes by an `InstancedMesh` of three.js, which becomes a child of `root`.
   * @param {ThreeInstancedMesh} mesh made with the number of nodes that it has room for
   * @param {Iterable<Node>} [nodes]
   * @returns {ThreeInstances} to add and remove nodes
   */
  instances(mesh, nodes = kNone) {
    const label = 'ThreeWorld.instances';
    this._checkObject(label, mesh);
    if (!isObject(mesh.instanceMatrix)) {
      throw new TypeError(`${label}: mesh is ${show(mesh)}: give an InstancedMesh of three.js.`);
    }
    const set = new ThreeInstances(this, mesh);
    try {
      for (const node of nodes) {
        set.add(node);
      }
    } catch (error) {
      this._clearSet(set);
      throw error;
    }
    this.remove(mesh);
    set._frustumCulled = mesh.frustumCulled;
    mesh.frustumCulled = false;
    this._sets.push(set);
    this.root.add(mesh);
    return set;
  }

  /**
   * Removes an object that follows a node, or an `InstancedMesh`. It stays where it was, with the visibility that it had
   * before, and can be used again.
   * @param {ThreeObject} object
   */
  remove(object) {
    const place = this._places.get(object);
    if (place !== undefined) {
      this._unlink(place);
      return;
    }
    const at = this._sets.findIndex(({ _mesh: mesh }) => mesh === object);
    if (at >= 0) {
      this._removeSet(at);
    }
  }

  /**
   * Brings all objects up to date, as of the last update of the scene; what follows disposed nodes is removed.
   * @param {Camera} [camera] of the scene: only what it saw is drawn, and instances nearest first. What has no sphere is
   *   always drawn; without a camera, all is.
   */
  update(camera) {
    const label = 'ThreeWorld.update';
    this._check(label);
    if (camera !== undefined && !(camera instanceof Camera)) {
      const cure = 'leave it out or give a camera of the scene';
      throw new TypeError(`${label}: camera is ${show(camera)}: ${cure}.`);
    }
    if (camera !== undefined && camera._scene !== null && camera._scene !== this.scene) {
      const cure = 'give a camera of the scene, or cull it for that before';
      throw new RangeError(`${label}: camera has culled another scene: ${cure}.`);
    }
    const isCulled = camera !== undefined;
    const frame = ++this._frame;
    if (isCulled) {
      this._see(camera.visible);
    }
    const links = this._links;
    for (let i = links.length - 1; i >= 0; --i) {
      const { object, anchor } = links[i];
      if (anchor.node.isDisposed) {
        this._unlink(i);
      } else {
        const isSeen = !isCulled || anchor.seen === frame || anchor.node._object < 0;
        object.visible = isSeen;
        if (isSeen) {
          object.matrixWorldNeedsUpdate = true;
          forgetBounds(object);
        }
      }
    }
    for (let s = 0; s < this._sets.length; ++s) {
      this._sets[s]._writeRest(isCulled);
      this._sets[s]._finish();
    }
  }

  /** Removes all objects, and frees the textures of skeletons. The scene stays as it is. */
  dispose() {
    for (let i = this._links.length - 1; i >= 0; --i) {
      this._unlink(i);
    }
    for (let s = this._sets.length - 1; s >= 0; --s) {
      this._removeSet(s);
    }
    this._isDisposed = true;
  }

  _check(label) {
    if (this._isDisposed) {
      throw new Error(`${label}: the world is disposed of: make another by toThree.`);
    }
  }

  _checkObject(label, object) {
    this._check(label);
    if (!isObject(object) || !isObject(object.matrix) || !isObject(object.matrix.elements)) {
      throw new TypeError(`${label}: object is ${show(object)}: give an object of three.js.`);
    }
  }

  /** Notes what a camera saw, and writes its instances. */
  _see(visible) {
    for (let i = 0; i < visible.count; ++i) {
      const node = visible.at(i);
      const anchor = this._anchors.get(node);
      if (anchor !== undefined && !node.isDisposed) {
        anchor.seen = this._frame;
        for (let s = 0; s < anchor.sets.length; ++s) {
          anchor.sets[s]._write(node);
        }
      }
    }
  }

  _checkNode(label, node) {
    this._check(label);
    if (!(node instanceof Node)) {
      throw new TypeError(`${label}: node is ${show(node)}: give a node of the scene.`);
    }
    if (node.isDisposed) {
      throw new Error(`${label}: node '${node.name}' is disposed of: give another.`);
    }
    if (node.scene !== this.scene) {
      throw new RangeError(`${label}: node '${node.name}' is in another scene: give one of this.`);
    }
  }

  _anchorOf(label, node) {
    this._checkNode(label, node);
    let anchor = this._anchors.get(node);
    if (anchor === undefined) {
      anchor = new Anchor(node);
      this._anchors.set(node, anchor);
    }
    return anchor;
  }

  /** Forgets a node that nothing follows any more. */
  _release(anchor) {
    if (anchor.links === 0) {
      anchor.skeletons.forEach((skeleton) => skeleton.dispose());
      anchor.skeletons = [];
      if (anchor.sets.length === 0) {
        this._anchors.delete(anchor.node);
      }
    }
  }

  _link(label, object, node) {
    this._checkObject(label, object);
    this._checkNode(label, node);
    this.remove(object);
    const anchor = this._anchorOf(label, node);
    const { matrix, matrixAutoUpdate, frustumCulled, visible } = object;
    const own = { elements: matrix.elements, matrixAutoUpdate, frustumCulled, visible };
    const link = { object, anchor, own };
    matrix.elements = node.worldMatrix;
    object.matrixAutoUpdate = false;
    object.frustumCulled = false;
    ++anchor.links;
    this._places.set(object, this._links.length);
    this._links.push(link);
    this.root.add(object);
    return object;
  }

  _unlink(place) {
    const links = this._links;
    const { object, anchor, own } = links[place];
    const { elements } = own;
    const last = links.pop();
    if (place < links.length) {
      links[place] = last;
      this._places.set(last.object, place);
    }
    this._places.delete(object);
    // Its own numbers again: those of the node may become another's.
    for (let i = 0; i < kMatrixFloats; ++i) {
      elements[i] = object.matrix.elements[i];
    }
    object.matrix.elements = elements;
    object.matrixAutoUpdate = own.matrixAutoUpdate;
    object.frustumCulled = own.frustumCulled;
    object.visible = own.visible;
    this.root.remove(object);
    --anchor.links;
    this._release(anchor);
  }

  _removeSet(at) {
    const [set] = this._sets.splice(at, 1);
    this._clearSet(set);
    set._restore();
    this.root.remove(set._mesh);
  }

  _clearSet(set) {
    for (const anchor of set._anchors.slice()) {
      set._drop(anchor);
      this._release(anchor);
    }
    set._isRemoved = true;
  }

  /** Inverse bind matrices of a skin of a model, in place. */
  _inversesOf(skin) {
    let inverses = this._inverses.get(skin);
    if (inverses === undefined) {
      const floats = new Float32Array(skin.inverseBindMatrices);
      inverses = skin.joints.map((_, i) => {
        const at = kMatrixFloats * i;
        return matrixOver(this._three, floats.subarray(at, at + kMatrixFloats));
      });
      this._inverses.set(skin, inverses);
    }
    return inverses;
  }
}

/**
 * Makes objects of three.js show a scene: `toThree(THREE, scene)`. Matrices are those of shared memory, without copies;
 * instances, and skeletons of early versions, need one copy. Tested with three.js 0.147 and the newest.
 * @template {ThreeGroup} G
 * @param {ThreeLibrary<G>} three `require('three')`, or `import * as THREE from 'three'`
 * @param {Scene} scene
 * @returns {ThreeWorld<G>}
 */
function toThree(three, scene) {
  return new ThreeWorld(three, scene);
}

module.exports = { ThreeInstances, ThreeWorld, toThree };
