'use strict';
// Views of culling: the records of objects, and the answers of both families of methods. See docs/layouts.md
// for the bytes and docs/culling.md for what they mean.
const { cullingObject, cullingResult } = require('./layout');
const { isArrayBuffer, isObject, keepShape, show } = require('./value-checks');
const { BlockView, copyOut, countElements, failIndex, failOut, hasRoom } = require('./view-base');

// Words of a record.
const kStride = cullingObject.size / 4;
const kMask = cullingObject.mask / 4;
const kCenter = cullingObject.center / 4;
const kRadius = cullingObject.radius / 4;
const kEntity = cullingObject.entity / 4;

/**
 * A batch of culling objects: 28 bytes each, see `layout.cullingObject`. Centre and radius count once the
 * entity's world matrix is computed anew, all else at once.
 */
class CullingObjectsView extends BlockView {
  /** @param {{id: number, buffer: ArrayBuffer}} component what `createComponent(1, count)` made */
  constructor(component) {
    const maker = 'createComponent(1, count)';
    super('CullingObjectsView', component, maker);
    /**
     * Objects of the batch.
     * @type {number}
     * @readonly
     */
    this.count = countElements('CullingObjectsView', this, 0, cullingObject.size, maker);
    /**
     * The records as bytes; only `enabled` is one.
     * @type {Uint8Array}
     * @readonly
     */
    this.u8 = new Uint8Array(this.u32.buffer);
  }

  /**
   * Handle of object i, as culling reports it.
   * @param {number} i
   * @returns {number}
   */
  handle(i) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('handle', 'i', i, this.count);
    }
    return this.id + i;
  }

  /**
   * Index in `u8` of the `enabled` byte of object i.
   * @param {number} i
   * @returns {number}
   */
  enabledAt(i) {
    return i * cullingObject.size + cullingObject.enabled;
  }

  /**
   * Index in `u32` of its mask.
   * @param {number} i
   * @returns {number}
   */
  maskAt(i) {
    return i * kStride + kMask;
  }

  /**
   * Index in `f32` of its centre: x, y, z.
   * @param {number} i
   * @returns {number}
   */
  centerAt(i) {
    return i * kStride + kCenter;
  }

  /**
   * Index in `f32` of its radius.
   * @param {number} i
   * @returns {number}
   */
  radiusAt(i) {
    return i * kStride + kRadius;
  }

  /**
   * Index in `u32` of the handle of its entity.
   * @param {number} i
   * @returns {number}
   */
  entityAt(i) {
    return i * kStride + kEntity;
  }

  /**
   * Whether object i takes part.
   * @param {number} i
   * @returns {boolean}
   */
  enabled(i) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('enabled', 'i', i, this.count);
    }
    return this.u8[i * cullingObject.size + cullingObject.enabled] !== 0;
  }

  /**
   * @param {number} i
   * @param {boolean} enabled
   */
  setEnabled(i, enabled) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('setEnabled', 'i', i, this.count);
    }
    this.u8[i * cullingObject.size + cullingObject.enabled] = enabled ? 1 : 0;
  }

  /**
   * Layer bits of object i.
   * @param {number} i
   * @returns {number}
   */
  mask(i) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('mask', 'i', i, this.count);
    }
    return this.u32[i * kStride + kMask];
  }

  /**
   * @param {number} i
   * @param {number} mask 32 bits, as an unsigned or a signed number: -1 is all layers
   */
  setMask(i, mask) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('setMask', 'i', i, this.count);
    }
    if (mask >>> 0 !== mask && (mask | 0) !== mask) {
      this._failWord('setMask', 'mask', mask);
    }
    this.u32[i * kStride + kMask] = mask;
  }

  /**
   * Centre of its sphere in the entity's space.
   * @template {number[]|Float32Array|Float64Array} Out
   * @param {number} i
   * @param {Out} out 3 numbers
   * @param {number} [at]
   * @returns {Out}
   */
  center(i, out, at = 0) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('center', 'i', i, this.count);
    }
    if (!hasRoom(out, at, 3)) {
      this._failOut('center', out, at, 3);
    }
    return copyOut(this.f32, i * kStride + kCenter, 3, out, at);
  }

  /**
   * Radius of its sphere in the entity's space.
   * @param {number} i
   * @returns {number}
   */
  radius(i) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('radius', 'i', i, this.count);
    }
    return this.f32[i * kStride + kRadius];
  }

  /**
   * Gives object i its sphere, in the entity's space.
   * @param {number} i
   * @param {number} x
   * @param {number} y
   * @param {number} z
   * @param {number} radius
   */
  setSphere(i, x, y, z, radius) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('setSphere', 'i', i, this.count);
    }
    if (
      typeof x !== 'number' ||
      typeof y !== 'number' ||
      typeof z !== 'number' ||
      typeof radius !== 'number'
    ) {
      this._failNumbers('setSphere', ['x', 'y', 'z', 'radius'], [x, y, z, radius]);
    }
    const { f32 } = this;
    const from = i * kStride + kCenter;
    f32[from] = x;
    f32[from + 1] = y;
    f32[from + 2] = z;
    f32[i * kStride + kRadius] = radius;
  }

  /**
   * Handle of the entity that carries object i.
   * @param {number} i
   * @returns {number}
   */
  entity(i) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('entity', 'i', i, this.count);
    }
    return this.u32[i * kStride + kEntity];
  }

  /**
   * Has a 3D entity carry object i.
   * @param {number} i
   * @param {number} handle
   */
  setEntity(i, handle) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('setEntity', 'i', i, this.count);
    }
    if (handle >>> 0 !== handle) {
      this._failWord('setEntity', 'handle', handle);
    }
    this.u32[i * kStride + kEntity] = handle;
  }
}

// Words of "cullingResult".
const kHash = cullingResult.hash / 4;
const kCount = cullingResult.count / 4;
const kObjects = cullingResult.objects / 4;

/**
 * `engine.cullingResult`: what the last call of `frustumCullingV2` or `orthoCullingV2` saw. A call that
 * sees nothing leaves the buffer as it was: `clear` ahead of a call, and an empty view reads as one.
 *
 * Native code replaces the buffer when a result does not fit, and the memory of the old one is gone. Each
 * access looks whether that has happened and takes the new buffer, so keep this view, and no array of it
 * across calls.
 */
class CullingResultView {
  /** @param {{cullingResult: ArrayBuffer}} engine is kept alive by the view */
  constructor(engine) {
    const buffer = isObject(engine) ? engine.cullingResult : undefined;
    if (!isArrayBuffer(buffer)) {
      const found = isObject(engine)
        ? `its cullingResult is ${show(buffer)}`
        : `got ${show(engine)}`;
      throw new TypeError(`CullingResultView: ${found}, not an ArrayBuffer: give an engine.`);
    }
    /**
     * @type {Object}
     * @readonly
     */
    this.engine = engine;
    this._take(buffer);
  }

  _take(buffer) {
    this._buffer = buffer;
    this._u32 = new Uint32Array(buffer);
    this._f32 = new Float32Array(buffer);
  }

  /** The words of the buffer that counts now. */
  _words() {
    const buffer = this.engine.cullingResult;
    if (buffer !== this._buffer) {
      this._take(buffer);
    }
    return this._u32;
  }

  /**
   * The result as words: hash, count, then the handles from index 2 on. Valid until the next culling call.
   * @type {Uint32Array}
   * @readonly
   */
  get u32() {
    return this._words();
  }

  /**
   * The same as floats: depths from index `distancesAt()` on. Valid until the next culling call.
   * @type {Float32Array}
   * @readonly
   */
  get f32() {
    this._words();
    return this._f32;
  }

  /**
   * Visible objects.
   * @type {number}
   * @readonly
   */
  get count() {
    return this._words()[kCount];
  }

  /**
   * Checksum of their handles in their order; while it stays the same, so do they.
   * @type {number}
   * @readonly
   */
  get hash() {
    return this._words()[kHash];
  }

  /**
   * Objects that the buffer has room for.
   * @type {number}
   * @readonly
   */
  get capacity() {
    return (this._words().length - kObjects) / 2;
  }

  /**
   * Index in `f32` of the depths, which lie behind the handles: it moves with the count.
   * @returns {number}
   */
  distancesAt() {
    return kObjects + this._words()[kCount];
  }

  /**
   * Handle of the i-th visible object, nearest first.
   * @param {number} i
   * @returns {number}
   */
  object(i) {
    const words = this._words();
    if (i >>> 0 !== i || i >= words[kCount]) {
      failIndex('CullingResultView.object', 'i', i, words[kCount]);
    }
    return words[kObjects + i];
  }

  /**
   * Its depth: the distance from the eye along the view.
   * @param {number} i
   * @returns {number}
   */
  distance(i) {
    const words = this._words();
    const count = words[kCount];
    if (i >>> 0 !== i || i >= count) {
      failIndex('CullingResultView.distance', 'i', i, count);
    }
    return this._f32[kObjects + count + i];
  }

  /**
   * Copies the handles of all visible objects.
   * @template {number[]|Uint32Array} Out
   * @param {Out} out `count` numbers
   * @param {number} [at]
   * @returns {Out}
   */
  objects(out, at = 0) {
    const words = this._words();
    const count = words[kCount];
    if (!hasRoom(out, at, count)) {
      failOut('CullingResultView.objects', out, at, count);
    }
    for (let i = 0; i < count; ++i) {
      out[at + i] = words[kObjects + i];
    }
    return out;
  }

  /** Makes the result empty, so that a call that sees nothing reads as such. */
  clear() {
    const words = this._words();
    words[kHash] = 0;
    words[kCount] = 0;
  }
}

/**
 * The answer of `frustumCulling`, `cullWithCamera` or `orthoCulling`, whose buffers are its own and stay
 * valid. Made anew for each answer; where that is too much, use the V2 methods and a `CullingResultView`.
 */
class CullingAnswerView {
  /**
   * @param {?{objects: ArrayBuffer, distances: ArrayBuffer, hash: number}} answer null is an empty one
   */
  constructor(answer) {
    const missing = answer === null;
    if (!missing && !(isObject(answer) && isArrayBuffer(answer.objects))) {
      const found = isObject(answer)
        ? `its objects are ${show(answer.objects)}`
        : `got ${show(answer)}`;
      const cure = 'give what frustumCulling or orthoCulling returned';
      throw new TypeError(`CullingAnswerView: ${found}, not an ArrayBuffer: ${cure}.`);
    }
    /**
     * Handles of the visible objects, nearest first.
     * @type {Uint32Array}
     * @readonly
     */
    this.objects = new Uint32Array(missing ? 0 : answer.objects);
    /**
     * Depth of each.
     * @type {Float32Array}
     * @readonly
     */
    this.distances = new Float32Array(missing ? 0 : answer.distances);
    /**
     * Checksum of the handles in their order.
     * @type {number}
     * @readonly
     */
    this.hash = missing ? 0 : answer.hash;
    /**
     * Visible objects.
     * @type {number}
     * @readonly
     */
    this.count = this.objects.length;
    /**
     * What keeps the memory.
     * @type {?Object}
     * @readonly
     */
    this.answer = answer;
  }

  /**
   * Handle of the i-th visible object, nearest first.
   * @param {number} i
   * @returns {number}
   */
  object(i) {
    if (i >>> 0 !== i || i >= this.count) {
      failIndex('CullingAnswerView.object', 'i', i, this.count);
    }
    return this.objects[i];
  }

  /**
   * Its depth: the distance from the eye along the view.
   * @param {number} i
   * @returns {number}
   */
  distance(i) {
    if (i >>> 0 !== i || i >= this.count) {
      failIndex('CullingAnswerView.distance', 'i', i, this.count);
    }
    return this.distances[i];
  }
}

keepShape(new CullingObjectsView({ id: 0, buffer: new ArrayBuffer(cullingObject.size) }));
keepShape(new CullingResultView({ cullingResult: new ArrayBuffer(cullingResult.objects) }));

module.exports = { CullingAnswerView, CullingObjectsView, CullingResultView };
