'use strict';
// Views of the records of entities, see docs/layouts.md. What script writes counts once the entity stands in
// the dirty list; world matrices are those of the last refresh.
const { entity2D, entity3D, rotationModes } = require('./layout');
const { keepShape } = require('./value-checks');
const { BlockView, copyOut, countElements, hasRoom } = require('./view-base');
const { reportReads } = require('./view-reads');

const xyz = ['x', 'y', 'z'];
const xyzw = ['x', 'y', 'z', 'w'];
const xy = ['x', 'y'];

/** What the two kinds share: elements and their handles. */
class EntityView extends BlockView {
  constructor(label, entity, size, maker) {
    super(label, entity, maker);
    /**
     * Entities of the batch.
     * @type {number}
     * @readonly
     */
    this.count = countElements(label, this, 0, size, maker);
    reportReads(this, entity);
  }

  /**
   * Handle of entity i.
   * @param {number} i
   * @returns {number}
   */
  handle(i) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('handle', 'i', i, this.count);
    }
    return this.id + i;
  }
}

// Words of the records.
const kStride3D = entity3D.size / 4;
const kRotation3D = entity3D.rotation / 4;
const kPosition3D = entity3D.position / 4;
const kScale3D = entity3D.scale / 4;
const kMatrix3D = entity3D.worldMatrix / 4;
const kMatrixFloats3D = 16;
const kTranslation3D = kMatrix3D + 12;

/**
 * A batch of 3D entities: 108 bytes each, see `layout.entity3D`.
 *
 * Getters fill `out` from index `at` on and return it; nothing is allocated.
 */
class Entity3DView extends EntityView {
  /** @param {{id: number, buffer: ArrayBuffer}} entity what `createEntity(true, count)` made */
  constructor(entity) {
    super('Entity3DView', entity, entity3D.size, 'createEntity(true, count)');
    /**
     * The records as bytes; only `rotationMode` is one.
     * @type {Uint8Array}
     * @readonly
     */
    this.u8 = new Uint8Array(this.u32.buffer);
  }

  /**
   * Index in `u8` of the rotation mode of entity i.
   * @param {number} i
   * @returns {number}
   */
  rotationModeAt(i) {
    return i * entity3D.size + entity3D.rotationMode;
  }

  /**
   * Index in `f32` of its rotation: x, y, z, w.
   * @param {number} i
   * @returns {number}
   */
  rotationAt(i) {
    return i * kStride3D + kRotation3D;
  }

  /**
   * Index in `f32` of its position: x, y, z.
   * @param {number} i
   * @returns {number}
   */
  positionAt(i) {
    return i * kStride3D + kPosition3D;
  }

  /**
   * Index in `f32` of its scale: x, y, z.
   * @param {number} i
   * @returns {number}
   */
  scaleAt(i) {
    return i * kStride3D + kScale3D;
  }

  /**
   * Index in `f32` of its world matrix: 16 floats.
   * @param {number} i
   * @returns {number}
   */
  worldMatrixAt(i) {
    return i * kStride3D + kMatrix3D;
  }

  /**
   * 0 for Euler angles, anything else for a quaternion; see `layout.rotationModes`.
   * @param {number} i
   * @returns {number}
   */
  rotationMode(i) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('rotationMode', 'i', i, this.count);
    }
    return this.u8[i * entity3D.size + entity3D.rotationMode];
  }

  /**
   * Euler angles x, y, z and a number without meaning, or quaternion x, y, z, w.
   * @template {number[]|Float32Array|Float64Array} Out
   * @param {number} i
   * @param {Out} out 4 numbers
   * @param {number} [at]
   * @returns {Out}
   */
  rotation(i, out, at = 0) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('rotation', 'i', i, this.count);
    }
    if (!hasRoom(out, at, 4)) {
      this._failOut('rotation', out, at, 4);
    }
    return copyOut(this.f32, i * kStride3D + kRotation3D, 4, out, at);
  }

  /**
   * Turns entity i by Euler angles in radians: Rx · Ry · Rz. Sets its mode.
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
      this._failNumbers('setEuler', xyz, [x, y, z]);
    }
    const { f32 } = this;
    const from = i * kStride3D + kRotation3D;
    this.u8[i * entity3D.size + entity3D.rotationMode] = rotationModes.euler;
    f32[from] = x;
    f32[from + 1] = y;
    f32[from + 2] = z;
  }

  /**
   * Turns entity i by a quaternion, which is taken as it stands: give one of length 1. Sets its mode.
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
      this._failNumbers('setQuaternion', xyzw, [x, y, z, w]);
    }
    const { f32 } = this;
    const from = i * kStride3D + kRotation3D;
    this.u8[i * entity3D.size + entity3D.rotationMode] = rotationModes.quaternion;
    f32[from] = x;
    f32[from + 1] = y;
    f32[from + 2] = z;
    f32[from + 3] = w;
  }

  /**
   * Position in the parent's space.
   * @template {number[]|Float32Array|Float64Array} Out
   * @param {number} i
   * @param {Out} out 3 numbers
   * @param {number} [at]
   * @returns {Out}
   */
  position(i, out, at = 0) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('position', 'i', i, this.count);
    }
    if (!hasRoom(out, at, 3)) {
      this._failOut('position', out, at, 3);
    }
    return copyOut(this.f32, i * kStride3D + kPosition3D, 3, out, at);
  }

  /**
   * @param {number} i
   * @param {number} x
   * @param {number} y
   * @param {number} z
   */
  setPosition(i, x, y, z) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('setPosition', 'i', i, this.count);
    }
    if (typeof x !== 'number' || typeof y !== 'number' || typeof z !== 'number') {
      this._failNumbers('setPosition', xyz, [x, y, z]);
    }
    const { f32 } = this;
    const from = i * kStride3D + kPosition3D;
    f32[from] = x;
    f32[from + 1] = y;
    f32[from + 2] = z;
  }

  /**
   * @template {number[]|Float32Array|Float64Array} Out
   * @param {number} i
   * @param {Out} out 3 numbers
   * @param {number} [at]
   * @returns {Out}
   */
  scale(i, out, at = 0) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('scale', 'i', i, this.count);
    }
    if (!hasRoom(out, at, 3)) {
      this._failOut('scale', out, at, 3);
    }
    return copyOut(this.f32, i * kStride3D + kScale3D, 3, out, at);
  }

  /**
   * The scale of a fresh entity is 0: set it.
   * @param {number} i
   * @param {number} x
   * @param {number} y
   * @param {number} z
   */
  setScale(i, x, y, z) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('setScale', 'i', i, this.count);
    }
    if (typeof x !== 'number' || typeof y !== 'number' || typeof z !== 'number') {
      this._failNumbers('setScale', xyz, [x, y, z]);
    }
    const { f32 } = this;
    const from = i * kStride3D + kScale3D;
    f32[from] = x;
    f32[from + 1] = y;
    f32[from + 2] = z;
  }

  /**
   * Puts entity i where its parent is: position 0, no rotation (a quaternion), scale 1.
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

  /**
   * World matrix, column-major, of the last refresh.
   * @template {number[]|Float32Array|Float64Array} Out
   * @param {number} i
   * @param {Out} out 16 numbers
   * @param {number} [at]
   * @returns {Out}
   */
  worldMatrix(i, out, at = 0) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('worldMatrix', 'i', i, this.count);
    }
    if (!hasRoom(out, at, kMatrixFloats3D)) {
      this._failOut('worldMatrix', out, at, kMatrixFloats3D);
    }
    return copyOut(this.f32, i * kStride3D + kMatrix3D, kMatrixFloats3D, out, at);
  }

  /**
   * Where entity i stands in the world: the last column of its matrix.
   * @template {number[]|Float32Array|Float64Array} Out
   * @param {number} i
   * @param {Out} out 3 numbers
   * @param {number} [at]
   * @returns {Out}
   */
  worldPosition(i, out, at = 0) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('worldPosition', 'i', i, this.count);
    }
    if (!hasRoom(out, at, 3)) {
      this._failOut('worldPosition', out, at, 3);
    }
    return copyOut(this.f32, i * kStride3D + kTranslation3D, 3, out, at);
  }
}

const kStride2D = entity2D.size / 4;
const kRotation2D = entity2D.rotation / 4;
const kPosition2D = entity2D.position / 4;
const kScale2D = entity2D.scale / 4;
const kMatrix2D = entity2D.worldMatrix / 4;
const kMatrixFloats2D = 9;
const kTranslation2D = kMatrix2D + 6;

/**
 * A batch of 2D entities: 56 bytes each, see `layout.entity2D`.
 *
 * Getters of more than one number fill `out` from index `at` on and return it; nothing is allocated.
 */
class Entity2DView extends EntityView {
  /** @param {{id: number, buffer: ArrayBuffer}} entity what `createEntity(false, count)` made */
  constructor(entity) {
    super('Entity2DView', entity, entity2D.size, 'createEntity(false, count)');
  }

  /**
   * Index in `f32` of the rotation of entity i.
   * @param {number} i
   * @returns {number}
   */
  rotationAt(i) {
    return i * kStride2D + kRotation2D;
  }

  /**
   * Index in `f32` of its position: x, y.
   * @param {number} i
   * @returns {number}
   */
  positionAt(i) {
    return i * kStride2D + kPosition2D;
  }

  /**
   * Index in `f32` of its scale: x, y.
   * @param {number} i
   * @returns {number}
   */
  scaleAt(i) {
    return i * kStride2D + kScale2D;
  }

  /**
   * Index in `f32` of its world matrix: 9 floats.
   * @param {number} i
   * @returns {number}
   */
  worldMatrixAt(i) {
    return i * kStride2D + kMatrix2D;
  }

  /**
   * Radians; a positive angle turns from y towards x.
   * @param {number} i
   * @returns {number}
   */
  rotation(i) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('rotation', 'i', i, this.count);
    }
    return this.f32[i * kStride2D + kRotation2D];
  }

  /**
   * @param {number} i
   * @param {number} angle radians
   */
  setRotation(i, angle) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('setRotation', 'i', i, this.count);
    }
    if (typeof angle !== 'number') {
      this._failNumbers('setRotation', ['angle'], [angle]);
    }
    this.f32[i * kStride2D + kRotation2D] = angle;
  }

  /**
   * Position in the parent's space.
   * @template {number[]|Float32Array|Float64Array} Out
   * @param {number} i
   * @param {Out} out 2 numbers
   * @param {number} [at]
   * @returns {Out}
   */
  position(i, out, at = 0) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('position', 'i', i, this.count);
    }
    if (!hasRoom(out, at, 2)) {
      this._failOut('position', out, at, 2);
    }
    return copyOut(this.f32, i * kStride2D + kPosition2D, 2, out, at);
  }

  /**
   * @param {number} i
   * @param {number} x
   * @param {number} y
   */
  setPosition(i, x, y) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('setPosition', 'i', i, this.count);
    }
    if (typeof x !== 'number' || typeof y !== 'number') {
      this._failNumbers('setPosition', xy, [x, y]);
    }
    const from = i * kStride2D + kPosition2D;
    this.f32[from] = x;
    this.f32[from + 1] = y;
  }

  /**
   * @template {number[]|Float32Array|Float64Array} Out
   * @param {number} i
   * @param {Out} out 2 numbers
   * @param {number} [at]
   * @returns {Out}
   */
  scale(i, out, at = 0) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('scale', 'i', i, this.count);
    }
    if (!hasRoom(out, at, 2)) {
      this._failOut('scale', out, at, 2);
    }
    return copyOut(this.f32, i * kStride2D + kScale2D, 2, out, at);
  }

  /**
   * The scale of a fresh entity is 0: set it.
   * @param {number} i
   * @param {number} x
   * @param {number} y
   */
  setScale(i, x, y) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('setScale', 'i', i, this.count);
    }
    if (typeof x !== 'number' || typeof y !== 'number') {
      this._failNumbers('setScale', xy, [x, y]);
    }
    const from = i * kStride2D + kScale2D;
    this.f32[from] = x;
    this.f32[from + 1] = y;
  }

  /**
   * Puts entity i where its parent is: position 0, no rotation, scale 1.
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

  /**
   * World matrix, column-major 3×3, of the last refresh.
   * @template {number[]|Float32Array|Float64Array} Out
   * @param {number} i
   * @param {Out} out 9 numbers
   * @param {number} [at]
   * @returns {Out}
   */
  worldMatrix(i, out, at = 0) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('worldMatrix', 'i', i, this.count);
    }
    if (!hasRoom(out, at, kMatrixFloats2D)) {
      this._failOut('worldMatrix', out, at, kMatrixFloats2D);
    }
    return copyOut(this.f32, i * kStride2D + kMatrix2D, kMatrixFloats2D, out, at);
  }

  /**
   * Where entity i stands in the world: the last column of its matrix.
   * @template {number[]|Float32Array|Float64Array} Out
   * @param {number} i
   * @param {Out} out 2 numbers
   * @param {number} [at]
   * @returns {Out}
   */
  worldPosition(i, out, at = 0) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('worldPosition', 'i', i, this.count);
    }
    if (!hasRoom(out, at, 2)) {
      this._failOut('worldPosition', out, at, 2);
    }
    return copyOut(this.f32, i * kStride2D + kTranslation2D, 2, out, at);
  }
}

keepShape(new Entity3DView({ id: 0, buffer: new ArrayBuffer(entity3D.size) }));
keepShape(new Entity2DView({ id: 0, buffer: new ArrayBuffer(entity2D.size) }));

module.exports = { Entity2DView, Entity3DView };
