'use strict';
// Views of animators, skinning components, controllers and states. See docs/layouts.md for the bytes and
// docs/animation.md for their meaning. Blocks refer to clips, entities and other objects by handle; setters that get the
// objects keep them alive.
const { animator, skinning } = require('./layout');
const { keepShape, show } = require('./value-checks');
const {
  AnimatorViewBase,
  ControllerStateView,
  ControllerView,
  SkinningViewBase,
} = require('./view-animation-records');
const { copyOut, countElements, failIndex, hasRoom } = require('./view-base');
const { handlesOf } = require('./view-references');

/**
 * @typedef {import('../types/handles').AnimatorHandle} AnimatorHandle
 * @typedef {import('../types/handles').EntityHandle} EntityHandle
 * @typedef {import('../types/handles').SkinningHandle} SkinningHandle
 * @typedef {import('./view-base').NumberArray} NumberArray
 */

/**
 * @template {number} T
 * @typedef {import('../types/handles').ObjectOrHandleArray<T>} ObjectOrHandleArray
 */

/**
 * @template {import('../types/handles').ComponentHandle} T
 * @typedef {import('../types/engine').EngineComponent<T>} EngineComponent
 */

/**
 * An animator: its clips with times and weights, and the entities that they move, see `layout.animator`. Before an
 * update every record must name an existing clip, whatever its weight, or the process ends.
 *
 * The block refers to clips and entities by handle. Give the setters the objects, which are then kept alive, or keep
 * them yourself.
 */
class AnimatorView extends AnimatorViewBase {
  /**
   * @param {EngineComponent<AnimatorHandle>} component returned by `createComponent(2, clipCount, entityCount)`
   * @param {number} clipCount the same as in `createComponent`
   */
  constructor(component, clipCount) {
    super(component);
    const bytes = this._byteLength;
    if (clipCount >>> 0 !== clipCount || clipCount === 0 || animator.bytes(clipCount, 1) > bytes) {
      const found = `clipCount is ${show(clipCount)}, for a buffer of ${bytes} bytes`;
      const Kind = typeof clipCount === 'number' ? RangeError : TypeError;
      throw new Kind(`AnimatorView: ${found}: give the clipCount of createComponent.`);
    }
    /**
     * Number of clips that can play at once.
     * @type {number}
     * @readonly
     */
    this.clipCount = clipCount;
    this._targets = animator.targets(clipCount) / 4;
    /**
     * Number of entries in the target table.
     * @type {number}
     * @readonly
     */
    this.entityCount = this.u32.length - this._targets;
  }

  /**
   * Writes entries of the target table, from entry `from`.
   * @param {ObjectOrHandleArray<EntityHandle>} handles of entities, or entities
   * @param {number} [from] entry, default 0
   */
  setTargets(handles, from = 0) {
    const words = handlesOf('AnimatorView.setTargets', 'handles', handles);
    if (from >>> 0 !== from || from + words.length > this.entityCount) {
      this._failTargets(words, from);
    }
    this.u32.set(words, this._targets + from);
    if (words !== handles || this._references.count !== 0) {
      this._references.storeAll(this._firstWord + this._targets + from, handles, words);
    }
  }

  _failTargets(handles, from) {
    const label = 'AnimatorView.setTargets';
    if (from >>> 0 !== from) {
      failIndex(label, 'from', from, this.entityCount);
    }
    const found = `${handles.length} handles from entry ${from} go past the ${this.entityCount} entries`;
    throw new RangeError(`${label}: ${found}: make the animator with a larger entityCount.`);
  }
}

/**
 * A skinning component: a matrix per bone, see `layout.skinning`. Its bones are all 3D or all 2D. Before an update
 * the inverse bind matrices and the entities must exist, or the process ends.
 */
class SkinningView extends SkinningViewBase {
  /**
   * @param {EngineComponent<SkinningHandle>} component returned by `createComponent(3, count)`
   * @param {boolean} [is3D] whether the bones' entities are 3D, the default
   */
  constructor(component, is3D = true) {
    super(component);
    if (typeof is3D !== 'boolean') {
      throw new TypeError(
        `SkinningView: is3D is ${show(is3D)}: give true or false, or leave it out.`
      );
    }
    const size = skinning.bytes(1) - skinning.bytes(0);
    const maker = 'createComponent(3, count)';
    /**
     * Number of bones.
     * @type {number}
     * @readonly
     */
    this.count = countElements('SkinningView', this, skinning.bytes(0), size, maker);
    /**
     * Whether its bones are 3D.
     * @type {boolean}
     * @readonly
     */
    this.is3D = is3D;
    /**
     * Floats per result: 16 for 3D bones, 9 for 2D ones.
     * @type {number}
     * @readonly
     */
    this.matrixFloats = (is3D ? skinning.stride3D : skinning.stride2D) / 4;
    this._entities = skinning.entities(this.count) / 4;
    this._results = skinning.results(this.count) / 4;
    /**
     * All results, contiguous, as native code writes them.
     * @type {Float32Array}
     * @readonly
     */
    this.results = this.f32.subarray(this._results, this._results + this.count * this.matrixFloats);
  }

  /**
   * Index in `f32` of the result of bone i.
   * @param {number} i
   * @returns {number}
   */
  resultAt(i) {
    return this._results + i * this.matrixFloats;
  }

  /**
   * World matrix × inverse bind matrix of bone i, column-major, as of the last update.
   * @template {NumberArray} Out
   * @param {number} i
   * @param {Out} out 16 numbers, or 9 with 2D bones
   * @param {number} [at]
   * @returns {Out}
   */
  result(i, out, at = 0) {
    const length = this.matrixFloats;
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('result', 'i', i, this.count);
    }
    if (!hasRoom(out, at, length)) {
      this._failOut('result', out, at, length);
    }
    return copyOut(this.f32, this._results + i * length, length, out, at);
  }
}

keepShape(new AnimatorView({ id: 0, buffer: new ArrayBuffer(animator.bytes(1, 1)) }, 1));
keepShape(new SkinningView({ id: 0, buffer: new ArrayBuffer(skinning.bytes(1)) }));

module.exports = { AnimatorView, ControllerStateView, ControllerView, SkinningView };
