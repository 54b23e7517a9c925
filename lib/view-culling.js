'use strict';
// Views of the results of both families of culling methods. See docs/layouts.md for the bytes and docs/culling.md for
// their meaning.
const { bytesOf, floatsOf, wordsOf } = require('./block-bytes');
const { cullingResult } = require('./layout');
const { isObject, keepShape, show } = require('./value-checks');
const { failIndex, failOut, hasRoom } = require('./view-base');
const { CullingObjectsView } = require('./view-culling-records');

/**
 * @typedef {import('../types/engine').CullingAnswer} CullingAnswer
 * @typedef {import('../types/engine').AnyEngine} AnyEngine
 * @typedef {import('../types/handles').CullingObjectHandle} CullingObjectHandle
 */

// Word offsets in "cullingResult".
const kHash = cullingResult.hash / 4;
const kCount = cullingResult.count / 4;
const kObjects = cullingResult.objects / 4;

/**
 * {@link Engine.cullingResult}: the objects that the last call of `frustumCullingV2` or `orthoCullingV2` found
 * visible. A call that finds nothing leaves the buffer unchanged: `clear` before a call, and the view is then empty.
 *
 * Native code replaces the buffer when a result does not fit, and frees the memory of the old one. Each access checks
 * for that and switches to the new buffer, so keep this view, but none of its arrays across calls.
 */
class CullingResultView {
  /** @param {Pick<AnyEngine, 'cullingResult'>} engine kept alive by the view */
  constructor(engine) {
    const buffer = isObject(engine) ? engine.cullingResult : undefined;
    if (bytesOf('CullingResultView', buffer) === null) {
      const found = isObject(engine)
        ? `its cullingResult is ${show(buffer)}`
        : `got ${show(engine)}`;
      throw new TypeError(`CullingResultView: ${found}, not an ArrayBuffer: give an engine.`);
    }
    /**
     * The engine.
     * @type {Pick<AnyEngine, 'cullingResult'>}
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

  /** The words of the current buffer. */
  _words() {
    const buffer = this.engine.cullingResult;
    if (buffer !== this._buffer) {
      this._take(buffer);
    }
    return this._u32;
  }

  /**
   * The result as words: hash, count, then the handles from index 2. Valid until the next culling call.
   * @type {Uint32Array}
   */
  get u32() {
    return this._words();
  }

  /**
   * The same as floats: depths from index `distancesAt()`. Valid until the next culling call.
   * @type {Float32Array}
   */
  get f32() {
    this._words();
    return this._f32;
  }

  /**
   * Number of visible objects.
   * @type {number}
   */
  get count() {
    return this._words()[kCount];
  }

  /**
   * Checksum of the handles in order: while it is unchanged, so are they.
   * @type {number}
   */
  get hash() {
    return this._words()[kHash];
  }

  /**
   * Number of objects that the buffer has room for.
   * @type {number}
   */
  get capacity() {
    return (this._words().length - kObjects) / 2;
  }

  /**
   * Index in `f32` of the depths, which follow the handles: it depends on the count.
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

  /** Empties the result, so that it stays empty if the next call finds nothing. */
  clear() {
    const words = this._words();
    words[kHash] = 0;
    words[kCount] = 0;
  }
}

/**
 * The result of `frustumCulling`, `cullWithCamera` or `orthoCulling`, which has its own buffers that stay valid. It
 * allocates a view per result; to avoid that, use the V2 methods and a {@link CullingResultView}.
 */
class CullingAnswerView {
  /** @param {CullingAnswer | null} answer null for an empty result */
  constructor(answer) {
    const missing = answer === null;
    const label = 'CullingAnswerView';
    const cure = 'give what frustumCulling or orthoCulling returned';
    if (!missing && !isObject(answer)) {
      throw new TypeError(`${label}: got ${show(answer)}, not an ArrayBuffer: ${cure}.`);
    }
    const blockOf = (name) => {
      const bytes = bytesOf(label, answer[name]);
      if (bytes === null) {
        const found = `its ${name} are ${show(answer[name])}`;
        throw new TypeError(`${label}: ${found}, not an ArrayBuffer: ${cure}.`);
      }
      return bytes;
    };
    /**
     * Handles of the visible objects, nearest first.
     * @type {Uint32Array}
     * @readonly
     */
    this.objects = missing ? new Uint32Array(0) : wordsOf(blockOf('objects'));
    /**
     * Depth of each object.
     * @type {Float32Array}
     * @readonly
     */
    this.distances = missing ? new Float32Array(0) : floatsOf(blockOf('distances'));
    /**
     * Checksum of the handles in order.
     * @type {number}
     * @readonly
     */
    this.hash = missing ? 0 : answer.hash;
    /**
     * Number of visible objects.
     * @type {number}
     * @readonly
     */
    this.count = this.objects.length;
    /**
     * The object that owns the memory.
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
