'use strict';
// Views of the records of entities, see docs/layouts.md. Writes take effect once the entity is in the dirty list;
// world matrices are those of the last refresh.
const { entity2D, entity3D, rotationModes } = require('./layout');
const { keepShape } = require('./value-checks');
const { Entity2DViewBase, Entity3DViewBase } = require('./view-entity-records');
const { reportReads } = require('./view-reads');

/**
 * @typedef {import('../types/handles').Entity2DHandle} Entity2DHandle
 * @typedef {import('../types/handles').Entity3DHandle} Entity3DHandle
 */

/**
 * @template {import('../types/handles').EntityHandle} T
 * @typedef {import('../types/engine').EngineEntity<T>} EngineEntity
 */

/**
 * An element of a batch, as setters of views take it: its handle, with the batch that they keep alive.
 * @template {import('../types/handles').EntityHandle} T
 * @readonly
 * @typedef {Object} BatchElement
 * @property {T} id Handle of the element.
 * @property {EngineEntity<T>} object The batch.
 */

/** An element of the batch of a view. */
function elementOf(view, i) {
  return Object.freeze({ id: view.handle(i), object: view.object });
}

// Words of a record.
const kStride = entity3D.size / 4;
const kRotation = entity3D.rotation / 4;

/**
 * A batch of 3D entities, see `layout.entity3D`. Writes take effect at the next refresh, if the
 * entity is in the dirty list (see {@link DirtyListWriter}); world matrices are those of the last refresh.
 *
 * Getters of several numbers fill `out` from index `at`, and return it.
 */
class Entity3DView extends Entity3DViewBase {
  /** @param {EngineEntity<Entity3DHandle>} entity returned by `createEntity(true, count)` */
  constructor(entity) {
    super(entity);
    reportReads(this, entity);
  }

  /**
   * Entity i with its batch: a setter that takes it, such as `SkinningView.setBone`, keeps the batch alive, which it can't
   * by the handle alone. An object of its own each time.
   * @param {number} i
   * @returns {BatchElement<Entity3DHandle>}
   */
  element(i) {
    return elementOf(this, i);
  }

  /**
   * Sets the rotation of entity i to Euler angles in radians, Rx · Ry · Rz, and its rotation mode.
   * @param {number} i
   * @param {number} x
   * @param {number} y
   * @param {number} z
   */
  setEuler(i, x, y, z) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('setEuler', 'i', i, this.count);
    }
    if (typeof x !== 'number' || typeof y !== 'number' || typeof z !== 'number') {
      this._failNumbers('setEuler', ['x', 'y', 'z'], [x, y, z]);
    }
    const { f32 } = this;
    const from = i * kStride + kRotation;
    this.u8[i * entity3D.size + entity3D.rotationMode] = rotationModes.euler;
    f32[from] = x;
    f32[from + 1] = y;
    f32[from + 2] = z;
  }

  /**
   * Sets the rotation of entity i to a quaternion, and its rotation mode. The quaternion is not normalised: pass a
   * unit one.
   * @param {number} i
   * @param {number} x
   * @param {number} y
   * @param {number} z
   * @param {number} w
   */
  setQuaternion(i, x, y, z, w) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('setQuaternion', 'i', i, this.count);
    }
    if (
      typeof x !== 'number' ||
      typeof y !== 'number' ||
      typeof z !== 'number' ||
      typeof w !== 'number'
    ) {
      this._failNumbers('setQuaternion', ['x', 'y', 'z', 'w'], [x, y, z, w]);
    }
    const { f32 } = this;
    const from = i * kStride + kRotation;
    this.u8[i * entity3D.size + entity3D.rotationMode] = rotationModes.quaternion;
    f32[from] = x;
    f32[from + 1] = y;
    f32[from + 2] = z;
    f32[from + 3] = w;
  }

  /**
   * Sets the local transform of entity i to identity: position 0, no rotation (a quaternion), scale 1.
   * @param {number} i
   */
  reset(i) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('reset', 'i', i, this.count);
    }
    this.setQuaternion(i, 0, 0, 0, 1);
    this.setPosition(i, 0, 0, 0);
    this.setScale(i, 1, 1, 1);
  }
}

/**
 * A batch of 2D entities, see `layout.entity2D`. Writes take effect at the next refresh, if the entity
 * is in the dirty list (see {@link DirtyListWriter}); world matrices are those of the last refresh.
 *
 * Getters of several numbers fill `out` from index `at`, and return it.
 */
class Entity2DView extends Entity2DViewBase {
  /** @param {EngineEntity<Entity2DHandle>} entity returned by `createEntity(false, count)` */
  constructor(entity) {
    super(entity);
    reportReads(this, entity);
  }

  /**
   * Entity i with its batch: a setter that takes it, such as `SkinningView.setBone`, keeps the batch alive, which it can't
   * by the handle alone. An object of its own each time.
   * @param {number} i
   * @returns {BatchElement<Entity2DHandle>}
   */
  element(i) {
    return elementOf(this, i);
  }

  /**
   * Sets the local transform of entity i to identity: position 0, no rotation, scale 1.
   * @param {number} i
   */
  reset(i) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('reset', 'i', i, this.count);
    }
    this.setRotation(i, 0);
    this.setPosition(i, 0, 0);
    this.setScale(i, 1, 1);
  }
}

keepShape(new Entity3DView({ id: 0, buffer: new ArrayBuffer(entity3D.size) }));
keepShape(new Entity2DView({ id: 0, buffer: new ArrayBuffer(entity2D.size) }));

module.exports = { Entity2DView, Entity3DView };
