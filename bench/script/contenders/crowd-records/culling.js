'use strict';
// Culling for the demo's cameras: a culling object around each character, and two calls per frame.
const { over } = require('../../../../tests/script/support/blocks');
const { kBatchCapacity } = require('./crowd');

/** Kind of component; its argument is the number of objects. */
const kCulling = 1;

/** Bytes of an object's record, and offsets of its fields. */
const kRecordBytes = 28;
const kMaskOffset = 4;
const kCenterOffset = 8;
const kRadiusOffset = 20;
const kEntityOffset = 24;

/** Words of "cullingResult": hash, count, then the handles, nearest first. */
const kHashWord = 0;
const kCountWord = 1;
const kObjectsWord = 2;

/** Bits of a handle for the object within its batch. */
const kElementMask = 0xfff;

/** Layer bits: all objects are in this layer, and both cameras see it. */
const kLayer = 1;

/**
 * The last culling result of a camera.
 * @typedef {Object} View
 * @property {Uint32Array} handles of the visible objects, nearest first
 * @property {number} hash of the handles in their order
 */

/** Owns the culling objects of a crowd: object i is around character i. */
class CrowdCulling {
  /**
   * @param {import('./crowd').Crowd} crowd
   * @param {{middle: number[], radius: number}} sphere around a character, relative to its position
   * @param {import('../../../../demo/cameras').PerspectiveCamera} perspective
   * @param {import('../../../../demo/cameras').OrthographicCamera} overview
   */
  constructor(crowd, sphere, perspective, overview) {
    this.engine = crowd.engine;
    this.count = crowd.count;
    this.perspective = perspective;
    this.overview = overview;
    /** Component objects; object i is element i % 4095 of batch i / 4095. */
    this.batches = [];
    this.firstOf = new Map();
    for (let first = 0; first < crowd.count; first += kBatchCapacity) {
      const size = Math.min(kBatchCapacity, crowd.count - first);
      const batch = this.engine.createComponent(kCulling, size);
      const records = over(DataView, batch);
      for (let element = 0; element < size; ++element) {
        const at = element * kRecordBytes;
        records.setUint8(at, 1);
        records.setUint32(at + kMaskOffset, kLayer, true);
        sphere.middle.forEach((value, axis) => {
          records.setFloat32(at + kCenterOffset + 4 * axis, value, true);
        });
        records.setFloat32(at + kRadiusOffset, sphere.radius, true);
        records.setUint32(at + kEntityOffset, crowd.placeHandle(first + element), true);
      }
      this.batches.push(batch);
      this.firstOf.set(batch.id, first);
    }
    this.result = over(Uint32Array, this.engine.cullingResult);
    /** @type {{perspective: ?View, overview: ?View}} */
    this.views = { perspective: null, overview: null };
  }

  /** Culls by the perspective camera. */
  cullPerspective() {
    const { eye, target, up, fov, aspect, near, far } = this.perspective;
    this.begin();
    const replaced = this.engine.frustumCullingV2(
      ...[kLayer, ...eye, ...target, ...up],
      ...[fov, aspect, near, far]
    );
    this.views.perspective = this.end(replaced);
  }

  /** Culls by the orthographic camera. */
  cullOverview() {
    const { eye, target, up, left, right, bottom, top, near, far } = this.overview;
    this.begin();
    const replaced = this.engine.orthoCullingV2(
      ...[kLayer, ...eye, ...target, ...up],
      ...[left, right, bottom, top, near, far]
    );
    this.views.overview = this.end(replaced);
  }

  /** Clears the result: a call that finds nothing leaves it unchanged. */
  begin() {
    this.result[kHashWord] = 0;
    this.result[kCountWord] = 0;
  }

  /** Copies the result of a call from "cullingResult". */
  end(replaced) {
    if (replaced) {
      this.result = over(Uint32Array, this.engine.cullingResult);
    }
    const end = kObjectsWord + this.result[kCountWord];
    return { handles: this.result.slice(kObjectsWord, end), hash: this.result[kHashWord] };
  }

  /** The character of an object. */
  characterOf(handle) {
    const element = handle & kElementMask;
    return this.firstOf.get(handle - element) + element;
  }

  /**
   * Enables the first characters, and disables the others.
   * @param {number} count
   */
  enable(count) {
    this.batches.forEach((batch, index) => {
      const bytes = over(Uint8Array, batch);
      for (let at = 0, i = index * kBatchCapacity; at < bytes.length; at += kRecordBytes, ++i) {
        bytes[at] = i < count ? 1 : 0;
      }
    });
  }

  /**
   * Flags of the characters that a camera saw.
   * @param {View} view
   * @returns {Uint8Array} 1 where visible
   */
  visible(view) {
    const marks = new Uint8Array(this.count);
    for (const handle of view.handles) {
      marks[this.characterOf(handle)] = 1;
    }
    return marks;
  }
}

module.exports = { CrowdCulling };
