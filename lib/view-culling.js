'use strict';
// Views of the answers of both families of culling methods. See docs/layouts.md for the bytes and docs/culling.md
// for what they mean.
const { bytesOf, floatsOf, wordsOf } = require('./block-bytes');
const { cullingResult } = require('./layout');
const { isObject, keepShape, show } = require('./value-checks');
const { failIndex, failOut, hasRoom } = require('./view-base');
const { CullingObjectsView } = require('./view-culling-records');

/**
 * @typedef {import('../types/engine').CullingAnswer} CullingAnswer
 * @typedef {import('../types/engine').Engine} Engine
 * @typedef {import('../types/handles').CullingObjectHandle} CullingObjectHandle
 */

// Words of "cullingResult".
const kHash = cullingResult.hash / 4;
const kCount = cullingResult.count / 4;
const kObjects = cullingResult.objects / 4;

/**
 * {@link Engine.cullingResult}: what the last call of `frustumCullingV2` or `orthoCullingV2` saw. A call that
 * sees nothing leaves the buffer as it was: `clear` ahead of a call, and an empty view reads as one.
 *
 * Native code replaces the buffer when a result does not fit, and the memory of the old one is gone. Each
 * access looks whether that has happened and takes the new buffer, so keep this view, and no array of it
 * across calls.
 */
class CullingResultView {
  /** @param {Pick<Engine, 'cullingResult'>} engine is kept alive by the view */
  constructor(engine) {
    const buffer = isObject(engine) ? engine.cullingResult : undefined;
    if (bytesOf('CullingResultView', buffer) === null) {
      const found = isObject(engine)
        ? `its cullingResult is ${show(buffer)}`
        : `got ${show(engine)}`;
      throw new TypeError(`CullingResultView: ${found}, not an ArrayBuffer: give an engine.`);
    }
    /**
     * Whose result it is.
     * @type {Pick<Engine, 'cullingResult'>}
     * @readonly
     */
    this.engine = engine;
    this._take(buffer);
  }

  _take(buffer) {
    this._buffer = buffer;
    const bytes = bytesOf('CullingResultView', buffer);
    this._u32 = wordsOf(bytes);
    this._f32 = floatsOf(bytes);
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
   */
  get u32() {
    return this._words();
  }

  /**
   * The same as floats: depths from index `distancesAt()` on. Valid until the next culling call.
   * @type {Float32Array}
   */
  get f32() {
    this._words();
    return this._f32;
  }

  /**
   * Visible objects.
   * @type {number}
   */
  get count() {
    return this._words()[kCount];
  }

  /**
   * Checksum of their handles in their order; while it stays the same, so do they.
   * @type {number}
   */
  get hash() {
    return this._words()[kHash];
  }

  /**
   * Objects that the buffer has room for.
   * @type {number}
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
   * Handle of the i-th visible object, nearest first. Throws a RangeError if there is none.
   * @param {number} i
   * @returns {CullingObjectHandle}
   */
  object(i) {
    const words = this._words();
    if (i >>> 0 !== i || i >= words[kCount]) {
      failIndex('CullingResultView.object', 'i', i, words[kCount]);
    }
    return words[kObjects + i];
  }

  /**
   * Its depth: the distance from the eye along the view. Throws a RangeError if there is none.
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
   * @template {number[] | Uint32Array} Out
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
 * valid. Made anew for each answer; where that is too much, use the V2 methods and a {@link CullingResultView}.
 */
class CullingAnswerView {
  /** @param {CullingAnswer | null} answer null is an empty one */
  constructor(answer) {
    const missing = answer === null;
    const label = 'CullingAnswerView';
    const objects = !missing && isObject(answer) ? bytesOf(label, answer.objects) : null;
    if (!missing && objects === null) {
      const found = isObject(answer)
        ? `its objects are ${show(answer.objects)}`
        : `got ${show(answer)}`;
      const cure = 'give what frustumCulling or orthoCulling returned';
      throw new TypeError(`${label}: ${found}, not an ArrayBuffer: ${cure}.`);
    }
    /**
     * Handles of the visible objects, nearest first.
     * @type {Uint32Array}
     * @readonly
     */
    this.objects = missing ? new Uint32Array(0) : wordsOf(objects);
    /**
     * Depth of each.
     * @type {Float32Array}
     * @readonly
     */
    this.distances = missing ? new Float32Array(0) : floatsOf(bytesOf(label, answer.distances));
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
     * @type {CullingAnswer | null}
     * @readonly
     */
    this.answer = answer;
  }

  /**
   * Handle of the i-th visible object, nearest first. Throws a RangeError if there is none.
   * @param {number} i
   * @returns {CullingObjectHandle}
   */
  object(i) {
    if (i >>> 0 !== i || i >= this.count) {
      failIndex('CullingAnswerView.object', 'i', i, this.count);
    }
    return this.objects[i];
  }

  /**
   * Its depth: the distance from the eye along the view. Throws a RangeError if there is none.
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

keepShape(new CullingResultView({ cullingResult: new ArrayBuffer(cullingResult.objects) }));

module.exports = { CullingAnswerView, CullingObjectsView, CullingResultView };
