'use strict';
// Cameras of scenes, and the lists of what they see.
const { grown } = require('./blocks');
const { Character } = require('./character');
const { checkFinite } = require('./node');
const { failWord, isObject, show } = require('../value-checks');
const { failIndex, failNumbers } = require('../view-base');

/**
 * @typedef {import('../scene').Scene} Scene
 * @typedef {import('./node').Node} Node
 */

// Arguments of the culling methods: mask, eye, target, up, then the volume.
const kEye = 1;
const kTarget = 4;
const kUp = 7;
const kVolume = 10;

/** Words of "cullingResult" before its handles. */
const kHead = 2;

const kAxes = ['x', 'y', 'z'];

/**
 * What a camera saw last, nearest first: nodes with spheres, and characters. The camera uses the same list again, so
 * read it before the next culling by this camera. Iterating allocates nothing.
 */
class VisibleList {
  /** Made by cameras. */
  constructor() {
    this._count = 0;
    this._hash = 0;
    this._objects = [];
    this._distances = new Float32Array(64);
    this._iterator = new VisibleIterator(this);
  }

  /**
   * Number of visible objects.
   * @type {number}
   */
  get count() {
    return this._count;
  }

  /**
   * Checksum of the objects in their order: while it is unchanged, so are they.
   * @type {number}
   */
  get hash() {
    return this._hash;
  }

  /**
   * The i-th object, nearest first: a node with a sphere, or a character.
   * @param {number} i
   * @returns {Node}
   */
  at(i) {
    if (typeof i !== 'number' || i >>> 0 !== i || i >= this._count) {
      failIndex('VisibleList.at', 'i', i, this._count);
    }
    return this._objects[i];
  }

  /**
   * Its depth: the distance from the eye along the view.
   * @param {number} i
   * @returns {number}
   */
  distance(i) {
    if (typeof i !== 'number' || i >>> 0 !== i || i >= this._count) {
      failIndex('VisibleList.distance', 'i', i, this._count);
    }
    return this._distances[i];
  }

  /**
   * Goes through the objects, nearest first.
   * @returns {IterableIterator<Node>}
   */
  [Symbol.iterator]() {
    return this._iterate(false);
  }

  /**
   * Goes through the characters, nearest first, and leaves out other nodes.
   * @returns {IterableIterator<Character>}
   */
  characters() {
    return this._iterate(true);
  }

  _iterate(charactersOnly) {
    const iterator = this._iterator._isBusy ? new VisibleIterator(this) : this._iterator;
    iterator._at = 0;
    iterator._isBusy = true;
    iterator._charactersOnly = charactersOnly;
    return iterator;
  }

  /** Takes the result of a culling call. */
  _take(objects, words, floats) {
    const found = words[1];
    this._hash = words[0];
    if (found > this._distances.length) {
      this._distances = grown(this._distances, 2 * found);
    }
    const list = this._objects;
    let count = 0;
    for (let i = 0; i < found; ++i) {
      const object = objects.ownerOf(words[kHead + i]);
      // The program may have culling objects of its own in the engine.
      if (object === undefined) {
        continue;
      }
      if (count < list.length) {
        list[count] = object;
      } else {
        list.push(object);
      }
      this._distances[count++] = floats[kHead + found + i];
    }
    // What is not seen any more is not kept alive.
    for (let i = count; i < this._count; ++i) {
      list[i] = null;
    }
    this._count = count;
  }
}

/** Goes through a list. A list has one that it uses again, and makes others for loops within a loop. */
class VisibleIterator {
  constructor(list) {
    this._list = list;
    this._at = 0;
    this._isBusy = false;
    this._charactersOnly = false;
    this._result = { value: undefined, done: false };
  }

  [Symbol.iterator]() {
    return this;
  }

  next() {
    const result = this._result;
    const { _count: count, _objects: objects } = this._list;
    while (this._at < count) {
      const object = objects[this._at++];
      if (!this._charactersOnly || object instanceof Character) {
        result.value = object;
        result.done = false;
        return result;
      }
    }
    return this.return();
  }

  return() {
    this._isBusy = false;
    this._result.value = undefined;
    this._result.done = true;
    return this._result;
  }
}

/**
 * Matrices of a camera of three.js.
 * @typedef {Object} ThreeCamera
 * @property {{ elements: ArrayLike<number> }} projectionMatrix 16 numbers.
 * @property {{ elements: ArrayLike<number> }} matrixWorld 16 numbers.
 */

/**
 * A view volume. Angles are from bottom to top; give one of both.
 * @typedef {Object} PerspectiveOptions
 * @property {number} [fovDegrees] Vertical angle of view, by default 50.
 * @property {number} [fovRadians] The same in radians.
 * @property {number} [aspect] Width over height, by default 1.
 * @property {number} [near] By default 0.1.
 * @property {number} [far] By default 2000; Infinity for no end.
 */

/**
 * A view volume with parallel edges, as offsets from the camera's axis.
 * @typedef {Object} OrthographicOptions
 * @property {number} left Usually negative.
 * @property {number} right Greater than left.
 * @property {number} bottom Usually negative.
 * @property {number} top Greater than bottom.
 * @property {number} [near] By default 0.1.
 * @property {number} [far] By default 2000.
 */

/** Numbers of options, with defaults; throws for what is no number. */
function numbersOf(label, options, names, defaults) {
  const values = names.map((name, i) =>
    options[name] === undefined ? defaults[i] : options[name]
  );
  if (values.some((value) => typeof value !== 'number')) {
    failNumbers(label, names, values);
  }
  return values;
}

/** Whether both are matrices as those of three.js. */
function hasElements(...matrices) {
  return matrices.every((matrix) => isObject(matrix) && isObject(matrix.elements));
}

/** Throws unless the first of two numbers is below the second. */
function checkOrder(label, least, from, most, to) {
  if (Number.isFinite(from) && Number.isFinite(to) && from < to) {
    return;
  }
  const trouble = [
    [least, from],
    [most, to],
  ].filter(([, value]) => !Number.isFinite(value) || (Number.isFinite(from) && from >= to));
  const found = trouble.map(([name, value]) => `${name} is ${value}`).join(', ');
  throw new RangeError(`${label}: ${found}: give finite numbers, ${least} below ${most}.`);
}

/**
 * A camera: it sees the nodes with spheres, and the characters, of a scene. It starts at the origin, looks along -z, and
 * is perspective.
 */
class Camera {
  /** @param {PerspectiveOptions} [options] as for `setPerspective` */
  constructor(options = {}) {
    /**
     * What it saw last.
     * @type {VisibleList}
     * @readonly
     */
    this.visible = new VisibleList();
    this._isPerspective = true;
    // Arguments as they are passed. Beside null, numbers are kept as objects, so that no call has to make new ones.
    this._perspective = [null, 0, 0, 0, 0, 0, -1, 0, 1, 0, 0, 0, 0, 0];
    this._orthographic = [null, 0, 0, 0, 0, 0, -1, 0, 1, 0, 0, 0, 0, 0, 0, 0];
    this._layers = 0xffffffff;
    this._layersMask = -1;
    /** That of the arguments. */
    this._mask = -1;
    /** The scene that it has culled last. */
    this._scene = null;
    this._write(0, this._layers);
    this.setPerspective(options);
  }

  /**
   * Layers that it sees, a bit each; by default all.
   * @type {number}
   */
  get layers() {
    return this._layers;
  }

  set layers(layers) {
    if (typeof layers !== 'number' || layers >>> 0 !== layers) {
      failWord('Camera.layers', 'it', layers);
    }
    this._layers = layers;
    this._layersMask = layers | 0;
  }

  /**
   * Makes it a perspective camera.
   * @param {PerspectiveOptions} [options]
   */
  setPerspective(options = {}) {
    const label = 'Camera.setPerspective';
    if (!isObject(options)) {
      throw new TypeError(`${label}: options is ${show(options)}: leave it out or give an object.`);
    }
    const { fovDegrees, fovRadians } = options;
    if (fovDegrees !== undefined && fovRadians !== undefined) {
      throw new TypeError(`${label}: fovDegrees and fovRadians are both given: give one of them.`);
    }
    const inRadians = fovRadians !== undefined;
    const names = [inRadians ? 'fovRadians' : 'fovDegrees', 'aspect', 'near', 'far'];
    const values = numbersOf(label, options, names, [50, 1, 0.1, 2000]);
    const fov = inRadians ? values[0] : (values[0] * Math.PI) / 180;
    if (!(fov > 0 && fov < Math.PI)) {
      const cure = inRadians ? 'between 0 and pi' : 'between 0 and 180';
      throw new RangeError(`${label}: ${names[0]} is ${values[0]}: give an angle ${cure}.`);
    }
    const [, aspect, near, far] = values;
    if (!(aspect > 0 && aspect < Infinity)) {
      throw new RangeError(`${label}: aspect is ${aspect}: give a number over 0.`);
    }
    // No far plane is fine.
    checkOrder(label, 'near', near, 'far', far === Infinity ? Number.MAX_VALUE : far);
    this._isPerspective = true;
    [fov, aspect, near, far].forEach((value, i) => {
      this._perspective[kVolume + i] = value;
    });
  }

  /**
   * Makes it an orthographic camera.
   * @param {OrthographicOptions} options
   */
  setOrthographic(options) {
    const label = 'Camera.setOrthographic';
    if (!isObject(options)) {
      const cure = 'give left, right, bottom and top';
      throw new TypeError(`${label}: options is ${show(options)}: ${cure}.`);
    }
    const names = ['left', 'right', 'bottom', 'top', 'near', 'far'];
    const none = undefined;
    const values = numbersOf(label, options, names, [none, none, none, none, 0.1, 2000]);
    const [left, right, bottom, top, near, far] = values;
    checkOrder(label, 'left', left, 'right', right);
    checkOrder(label, 'bottom', bottom, 'top', top);
    checkOrder(label, 'near', near, 'far', far);
    this._isPerspective = false;
    values.forEach((value, i) => {
      this._orthographic[kVolume + i] = value;
    });
  }

  /**
   * Moves it in the world; it keeps looking at the same place.
   * @param {number} x
   * @param {number} y
   * @param {number} z
   */
  setPosition(x, y, z) {
    this._writeVector('setPosition', kEye, x, y, z);
  }

  /**
   * Lets it look at a place in the world, which is not its own position.
   * @param {number} x
   * @param {number} y
   * @param {number} z
   */
  lookAt(x, y, z) {
    this._writeVector('lookAt', kTarget, x, y, z);
  }

  /**
   * Sets what is up, by default y; of any length, and not along the view.
   * @param {number} x
   * @param {number} y
   * @param {number} z
   */
  setUp(x, y, z) {
    this._writeVector('setUp', kUp, x, y, z);
  }

  /**
   * Takes position, direction and view volume of a camera of three.js, whose matrices are up to date
   * (`camera.updateMatrixWorld()`).
   * @param {ThreeCamera} camera
   */
  setFromThree(camera) {
    const label = 'Camera.setFromThree';
    if (!isObject(camera) || !hasElements(camera.projectionMatrix, camera.matrixWorld)) {
      throw new TypeError(`${label}: camera is ${show(camera)}: give a camera of three.js.`);
    }
    const { elements: p } = camera.projectionMatrix;
    const { elements: m } = camera.matrixWorld;
    const numbers = Array.from({ length: 16 }, (_, i) => m[i]);
    if (!numbers.every(Number.isFinite)) {
      const cure = 'give a camera of three.js, up to date';
      throw new RangeError(`${label}: its matrixWorld is not 16 finite numbers: ${cure}.`);
    }
    if (p[11] !== 0) {
      if (p[8] !== 0 || p[9] !== 0) {
        const cure = 'give one without view offset and film offset';
        throw new RangeError(`${label}: its view is not symmetric: ${cure}.`);
      }
      this.setPerspective({
        fovRadians: 2 * Math.atan(1 / p[5]),
        aspect: p[5] / p[0],
        near: p[14] / (p[10] - 1),
        far: Math.abs(p[14] / (p[10] + 1)),
      });
    } else {
      // Cameras whose y axis points down have their top below: they see the same volume.
      const [x, y] = [0, 5].map((i) => [-1, 1].map((side) => (side - p[12 + i / 5]) / p[i]));
      this.setOrthographic({
        left: Math.min(...x),
        right: Math.max(...x),
        bottom: Math.min(...y),
        top: Math.max(...y),
        near: (p[14] + 1) / p[10],
        far: (p[14] - 1) / p[10],
      });
    }
    this.setPosition(m[12], m[13], m[14]);
    this.lookAt(m[12] - m[8], m[13] - m[9], m[14] - m[10]);
    this.setUp(m[4], m[5], m[6]);
  }

  /**
   * Finds what it sees, as of the last update of the scene.
   * @param {Scene} scene
   * @param {{ layers?: number }} [options] layers instead of the camera's own
   * @returns {VisibleList} `visible` of the camera, nearest first
   */
  cull(scene, options) {
    const label = 'Camera.cull';
    if (!isObject(scene) || !isObject(scene._objects)) {
      throw new TypeError(`${label}: scene is ${show(scene)}: give a scene.`);
    }
    scene._check(label);
    // Compared as a signed word: a larger number would be made into an object.
    let mask = this._layersMask;
    if (options !== undefined && !isObject(options)) {
      const cure = 'leave it out or give an object';
      throw new TypeError(`${label}: options is ${show(options)}: ${cure}.`);
    }
    if (options !== undefined && options.layers !== undefined) {
      if (typeof options.layers !== 'number' || options.layers >>> 0 !== options.layers) {
        failWord(label, 'layers', options.layers);
      }
      mask = options.layers | 0;
    }
    if (mask !== this._mask) {
      this._mask = mask;
      this._write(0, mask >>> 0);
    }
    this._scene = scene;
    const { engine, _result: result } = scene;
    result.clear();
    if (this._isPerspective) {
      engine.frustumCullingV2.apply(engine, this._perspective);
    } else {
      engine.orthoCullingV2.apply(engine, this._orthographic);
    }
    this.visible._take(scene._objects, result.u32, result.f32);
    return this.visible;
  }

  _write(at, value) {
    this._perspective[at] = value;
    this._orthographic[at] = value;
  }

  _writeVector(method, at, x, y, z) {
    if (typeof x !== 'number' || typeof y !== 'number' || typeof z !== 'number') {
      failNumbers(`Camera.${method}`, kAxes, [x, y, z]);
    }
    const sum = x + y + z;
    if (sum - sum !== 0) {
      checkFinite(`Camera.${method}`, kAxes, [x, y, z]);
    }
    this._write(at, x);
    this._write(at + 1, y);
    this._write(at + 2, z);
  }
}

module.exports = { Camera, VisibleList };
