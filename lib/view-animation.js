'use strict';
// Views of what plays: animators, skinning components, controllers and states. See docs/layouts.md for the bytes
// and docs/animation.md for what they mean. Blocks name clips, entities and all else by handle and keep
// nothing alive: keep the objects.
const {
  animator,
  animatorClip,
  controller,
  controllerClip,
  controllerLayer,
  controllerState,
  skinning,
} = require('./layout');
const { checkHandles, keepShape, show } = require('./value-checks');
const { BlockView, copyOut, countElements, failIndex, hasRoom } = require('./view-base');

// Words of a clip of an animator.
const kPlayStride = animatorClip.size / 4;
const kPlayClip = animatorClip.clipHandle / 4;
const kPlayTime = animatorClip.time / 4;
const kPlayWeight = animatorClip.weight / 4;

/**
 * An animator: what plays of each of its clips, and the entities that they move, see `layout.animator`.
 * Every record must name a living clip ahead of an update, whatever its weight.
 */
class AnimatorView extends BlockView {
  /**
   * @param {{id: number, buffer: ArrayBuffer}} component what `createComponent(2, clipCount, entityCount)`
   *   made
   * @param {number} clipCount the one that it was made with
   */
  constructor(component, clipCount) {
    super('AnimatorView', component, 'createComponent(2, clipCount, entityCount)');
    const bytes = this.u32.buffer.byteLength;
    if (clipCount >>> 0 !== clipCount || clipCount === 0 || animator.bytes(clipCount, 1) > bytes) {
      const found = `clipCount is ${show(clipCount)}, for a buffer of ${bytes} bytes`;
      const Kind = typeof clipCount === 'number' ? RangeError : TypeError;
      throw new Kind(`AnimatorView: ${found}: give the one that createComponent was given.`);
    }
    /**
     * @type {number}
     * @readonly
     */
    this.clipCount = clipCount;
    this._targets = animator.targets(clipCount) / 4;
    /**
     * Entries of the target table.
     * @type {number}
     * @readonly
     */
    this.entityCount = this.u32.length - this._targets;
  }

  /**
   * Index in `u32` of the handle of clip i.
   * @param {number} i
   * @returns {number}
   */
  clipHandleAt(i) {
    return i * kPlayStride + kPlayClip;
  }

  /**
   * Index in `f32` of its time.
   * @param {number} i
   * @returns {number}
   */
  clipTimeAt(i) {
    return i * kPlayStride + kPlayTime;
  }

  /**
   * Index in `f32` of its weight.
   * @param {number} i
   * @returns {number}
   */
  clipWeightAt(i) {
    return i * kPlayStride + kPlayWeight;
  }

  /**
   * Index in `u32` of entry k of the target table.
   * @param {number} k
   * @returns {number}
   */
  targetAt(k) {
    return this._targets + k;
  }

  /**
   * Handle of clip i.
   * @param {number} i
   * @returns {number}
   */
  clipHandle(i) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('clipHandle', 'i', i, this.clipCount);
    }
    return this.u32[i * kPlayStride + kPlayClip];
  }

  /**
   * Its time in frames.
   * @param {number} i
   * @returns {number}
   */
  clipTime(i) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('clipTime', 'i', i, this.clipCount);
    }
    return this.f32[i * kPlayStride + kPlayTime];
  }

  /**
   * Its weight.
   * @param {number} i
   * @returns {number}
   */
  clipWeight(i) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('clipWeight', 'i', i, this.clipCount);
    }
    return this.f32[i * kPlayStride + kPlayWeight];
  }

  /**
   * @param {number} i
   * @param {number} handle
   */
  setClipHandle(i, handle) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('setClipHandle', 'i', i, this.clipCount);
    }
    if (handle >>> 0 !== handle) {
      this._failWord('setClipHandle', 'handle', handle);
    }
    this.u32[i * kPlayStride + kPlayClip] = handle;
  }

  /**
   * In frames; wraps at the clip's length.
   * @param {number} i
   * @param {number} time
   */
  setClipTime(i, time) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('setClipTime', 'i', i, this.clipCount);
    }
    if (typeof time !== 'number') {
      this._failNumbers('setClipTime', ['time'], [time]);
    }
    this.f32[i * kPlayStride + kPlayTime] = time;
  }

  /**
   * The clip takes part if 0 < weight <= 1.
   * @param {number} i
   * @param {number} weight
   */
  setClipWeight(i, weight) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('setClipWeight', 'i', i, this.clipCount);
    }
    if (typeof weight !== 'number') {
      this._failNumbers('setClipWeight', ['weight'], [weight]);
    }
    this.f32[i * kPlayStride + kPlayWeight] = weight;
  }

  /**
   * Says what plays of clip i.
   * @param {number} i
   * @param {number} handle of the clip
   * @param {number} time frames
   * @param {number} weight
   */
  setClip(i, handle, time, weight) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('setClip', 'i', i, this.clipCount);
    }
    if (handle >>> 0 !== handle) {
      this._failWord('setClip', 'handle', handle);
    }
    if (typeof time !== 'number' || typeof weight !== 'number') {
      this._failNumbers('setClip', ['time', 'weight'], [time, weight]);
    }
    const from = i * kPlayStride;
    this.u32[from + kPlayClip] = handle;
    this.f32[from + kPlayTime] = time;
    this.f32[from + kPlayWeight] = weight;
  }

  /**
   * Handle of the entity in entry k of the target table.
   * @param {number} k
   * @returns {number}
   */
  target(k) {
    if (k >>> 0 !== k || k >= this.entityCount) {
      this._failIndex('target', 'k', k, this.entityCount);
    }
    return this.u32[this._targets + k];
  }

  /**
   * @param {number} k
   * @param {number} handle
   */
  setTarget(k, handle) {
    if (k >>> 0 !== k || k >= this.entityCount) {
      this._failIndex('setTarget', 'k', k, this.entityCount);
    }
    if (handle >>> 0 !== handle) {
      this._failWord('setTarget', 'handle', handle);
    }
    this.u32[this._targets + k] = handle;
  }

  /**
   * Fills the target table from entry `from` on.
   * @param {Uint32Array|number[]} handles of entities
   * @param {number} [from]
   */
  setTargets(handles, from = 0) {
    checkHandles('AnimatorView.setTargets', 'handles', handles);
    if (from >>> 0 !== from || from + handles.length > this.entityCount) {
      this._failTargets(handles, from);
    }
    this.u32.set(handles, this._targets + from);
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

const kBonesModel = skinning.bonesModel / 4;
const kIndices = skinning.indices / 4;

/**
 * A skinning component: a matrix for each bone, see `layout.skinning`. Its bones are all 3D or all 2D. The
 * bones model and the entities must be there ahead of an update.
 */
class SkinningView extends BlockView {
  /**
   * @param {{id: number, buffer: ArrayBuffer}} component what `createComponent(3, count)` made
   * @param {boolean} [is3D] the kind of the bones' entities; 3D if left out
   */
  constructor(component, is3D = true) {
    const maker = 'createComponent(3, count)';
    super('SkinningView', component, maker);
    if (typeof is3D !== 'boolean') {
      throw new TypeError(
        `SkinningView: is3D is ${show(is3D)}: give true or false, or leave it out.`
      );
    }
    const size = skinning.bytes(1) - skinning.bytes(0);
    /**
     * Bones.
     * @type {number}
     * @readonly
     */
    this.count = countElements('SkinningView', this, skinning.bytes(0), size, maker);
    /**
     * @type {boolean}
     * @readonly
     */
    this.is3D = is3D;
    /**
     * Floats of a result: 16 for 3D bones, 9 for 2D ones.
     * @type {number}
     * @readonly
     */
    this.matrixFloats = (is3D ? skinning.stride3D : skinning.stride2D) / 4;
    this._entities = skinning.entities(this.count) / 4;
    this._results = skinning.results(this.count) / 4;
    /**
     * All results, back to back, as native code writes them.
     * @type {Float32Array}
     * @readonly
     */
    this.results = this.f32.subarray(this._results, this._results + this.count * this.matrixFloats);
  }

  /**
   * Handle of the inverse bind matrices.
   * @returns {number}
   */
  bonesModel() {
    return this.u32[kBonesModel];
  }

  /** @param {number} handle what `createDataModel(2, …)` made */
  setBonesModel(handle) {
    if (handle >>> 0 !== handle) {
      this._failWord('setBonesModel', 'handle', handle);
    }
    this.u32[kBonesModel] = handle;
  }

  /**
   * Index in `u32` of the number of the matrix of bone i.
   * @param {number} i
   * @returns {number}
   */
  matrixIndexAt(i) {
    return kIndices + i;
  }

  /**
   * Index in `u32` of the handle of its entity.
   * @param {number} i
   * @returns {number}
   */
  entityAt(i) {
    return this._entities + i;
  }

  /**
   * Index in `f32` of its result.
   * @param {number} i
   * @returns {number}
   */
  resultAt(i) {
    return this._results + i * this.matrixFloats;
  }

  /**
   * Number of the inverse bind matrix of bone i.
   * @param {number} i
   * @returns {number}
   */
  matrixIndex(i) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('matrixIndex', 'i', i, this.count);
    }
    return this.u32[kIndices + i];
  }

  /**
   * A bone whose number lies past the model gets no result.
   * @param {number} i
   * @param {number} index
   */
  setMatrixIndex(i, index) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('setMatrixIndex', 'i', i, this.count);
    }
    if (index >>> 0 !== index) {
      this._failWord('setMatrixIndex', 'index', index);
    }
    this.u32[kIndices + i] = index;
  }

  /**
   * Handle of the entity of bone i.
   * @param {number} i
   * @returns {number}
   */
  entity(i) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('entity', 'i', i, this.count);
    }
    return this.u32[this._entities + i];
  }

  /**
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
    this.u32[this._entities + i] = handle;
  }

  /**
   * @param {number} i
   * @param {number} index number of its inverse bind matrix
   * @param {number} handle of its entity
   */
  setBone(i, index, handle) {
    if (i >>> 0 !== i || i >= this.count) {
      this._failIndex('setBone', 'i', i, this.count);
    }
    if (index >>> 0 !== index) {
      this._failWord('setBone', 'index', index);
    }
    if (handle >>> 0 !== handle) {
      this._failWord('setBone', 'handle', handle);
    }
    this.u32[kIndices + i] = index;
    this.u32[this._entities + i] = handle;
  }

  /**
   * World matrix × inverse bind matrix of bone i, column-major, as of the last update.
   * @template {number[]|Float32Array|Float64Array} Out
   * @param {number} i
   * @param {Out} out 16 numbers, or 9 where bones are 2D
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

// Words of a controller.
const kBinding = controller.bindingHandle / 4;
const kLayers = controller.layers / 4;
const kLayerStride = controllerLayer.size / 4;
const kBlendMode = kLayers + controllerLayer.blendMode / 4;
const kLayerWeight = kLayers + controllerLayer.weight / 4;
const kFirstState = kLayers + controllerLayer.firstState / 4;

/**
 * A controller: its binding and its layers, from the base up, see `layout.controller`.
 */
class ControllerView extends BlockView {
  /** @param {{id: number, buffer: ArrayBuffer}} model what `createAnimatorControllerModel(layerCount)` made */
  constructor(model) {
    const maker = 'createAnimatorControllerModel(layerCount)';
    super('ControllerView', model, maker);
    /**
     * @type {number}
     * @readonly
     */
    this.layerCount = countElements(
      'ControllerView',
      this,
      controller.layers,
      controllerLayer.size,
      maker
    );
  }

  /**
   * Handle of the binding.
   * @returns {number}
   */
  bindingHandle() {
    return this.u32[kBinding];
  }

  /** @param {number} handle of a binding; with `handles.none` nothing plays */
  setBindingHandle(handle) {
    if (handle >>> 0 !== handle) {
      this._failWord('setBindingHandle', 'handle', handle);
    }
    this.u32[kBinding] = handle;
  }

  /**
   * Index in `u32` of the blend mode of layer i.
   * @param {number} i
   * @returns {number}
   */
  blendModeAt(i) {
    return i * kLayerStride + kBlendMode;
  }

  /**
   * Index in `f32` of its weight.
   * @param {number} i
   * @returns {number}
   */
  layerWeightAt(i) {
    return i * kLayerStride + kLayerWeight;
  }

  /**
   * Index in `u32` of the handle of its first state.
   * @param {number} i
   * @returns {number}
   */
  firstStateAt(i) {
    return i * kLayerStride + kFirstState;
  }

  /**
   * One of `layout.layerBlendModes`; any larger number is off.
   * @param {number} i
   * @returns {number}
   */
  blendMode(i) {
    if (i >>> 0 !== i || i >= this.layerCount) {
      this._failIndex('blendMode', 'i', i, this.layerCount);
    }
    return this.u32[i * kLayerStride + kBlendMode];
  }

  /**
   * @param {number} i
   * @param {number} mode
   */
  setBlendMode(i, mode) {
    if (i >>> 0 !== i || i >= this.layerCount) {
      this._failIndex('setBlendMode', 'i', i, this.layerCount);
    }
    if (mode >>> 0 !== mode) {
      this._failWord('setBlendMode', 'mode', mode);
    }
    this.u32[i * kLayerStride + kBlendMode] = mode;
  }

  /**
   * @param {number} i
   * @returns {number}
   */
  layerWeight(i) {
    if (i >>> 0 !== i || i >= this.layerCount) {
      this._failIndex('layerWeight', 'i', i, this.layerCount);
    }
    return this.f32[i * kLayerStride + kLayerWeight];
  }

  /**
   * @param {number} i
   * @param {number} weight
   */
  setLayerWeight(i, weight) {
    if (i >>> 0 !== i || i >= this.layerCount) {
      this._failIndex('setLayerWeight', 'i', i, this.layerCount);
    }
    if (typeof weight !== 'number') {
      this._failNumbers('setLayerWeight', ['weight'], [weight]);
    }
    this.f32[i * kLayerStride + kLayerWeight] = weight;
  }

  /**
   * Handle of the first state of the chain of layer i.
   * @param {number} i
   * @returns {number}
   */
  firstState(i) {
    if (i >>> 0 !== i || i >= this.layerCount) {
      this._failIndex('firstState', 'i', i, this.layerCount);
    }
    return this.u32[i * kLayerStride + kFirstState];
  }

  /**
   * With `handles.none` the layer is empty.
   * @param {number} i
   * @param {number} handle
   */
  setFirstState(i, handle) {
    if (i >>> 0 !== i || i >= this.layerCount) {
      this._failIndex('setFirstState', 'i', i, this.layerCount);
    }
    if (handle >>> 0 !== handle) {
      this._failWord('setFirstState', 'handle', handle);
    }
    this.u32[i * kLayerStride + kFirstState] = handle;
  }

  /**
   * @param {number} i
   * @param {number} mode one of `layout.layerBlendModes`
   * @param {number} weight
   * @param {number} firstState handle of a state, or `handles.none`
   */
  setLayer(i, mode, weight, firstState) {
    if (i >>> 0 !== i || i >= this.layerCount) {
      this._failIndex('setLayer', 'i', i, this.layerCount);
    }
    if (mode >>> 0 !== mode) {
      this._failWord('setLayer', 'mode', mode);
    }
    if (typeof weight !== 'number') {
      this._failNumbers('setLayer', ['weight'], [weight]);
    }
    if (firstState >>> 0 !== firstState) {
      this._failWord('setLayer', 'firstState', firstState);
    }
    const from = i * kLayerStride;
    this.u32[from + kBlendMode] = mode;
    this.f32[from + kLayerWeight] = weight;
    this.u32[from + kFirstState] = firstState;
  }
}

// Words of a state.
const kStateWeight = controllerState.weight / 4;
const kFillDefaults = controllerState.fillDefaults / 4;
const kNextState = controllerState.nextState / 4;
const kClips = controllerState.clips / 4;
const kClipStride = controllerClip.size / 4;
const kClipHandle = kClips + controllerClip.clipHandle / 4;
const kClipTime = kClips + controllerClip.time / 4;
const kClipWeight = kClips + controllerClip.weight / 4;
const kReferenceClip = kClips + controllerClip.referenceClip / 4;
const kReferenceTime = kClips + controllerClip.referenceTime / 4;

/**
 * A state of a layer: its weight, the state behind it, and what plays of its clips, see
 * `layout.controllerState`. A chain of states that loops is followed for ever.
 */
class ControllerStateView extends BlockView {
  /**
   * @param {{id: number, buffer: ArrayBuffer}} model what `createAnimatorControllerStateModel(clipCount)` made
   */
  constructor(model) {
    const maker = 'createAnimatorControllerStateModel(clipCount)';
    super('ControllerStateView', model, maker);
    /**
     * @type {number}
     * @readonly
     */
    this.clipCount = countElements(
      'ControllerStateView',
      this,
      controllerState.clips,
      controllerClip.size,
      maker
    );
  }

  /**
   * Weight of the state in its layer.
   * @returns {number}
   */
  weight() {
    return this.f32[kStateWeight];
  }

  /** @param {number} weight 0 skips the state */
  setWeight(weight) {
    if (typeof weight !== 'number') {
      this._failNumbers('setWeight', ['weight'], [weight]);
    }
    this.f32[kStateWeight] = weight;
  }

  /**
   * Whether rest poses are brought in.
   * @returns {boolean}
   */
  fillDefaults() {
    return this.f32[kFillDefaults] !== 0;
  }

  /** @param {boolean} fill */
  setFillDefaults(fill) {
    this.f32[kFillDefaults] = fill ? 1 : 0;
  }

  /**
   * Handle of the next state of the layer.
   * @returns {number}
   */
  nextState() {
    return this.u32[kNextState];
  }

  /** @param {number} handle of a state; `handles.none` ends the chain */
  setNextState(handle) {
    if (handle >>> 0 !== handle) {
      this._failWord('setNextState', 'handle', handle);
    }
    this.u32[kNextState] = handle;
  }

  /**
   * Index in `u32` of the handle of clip i.
   * @param {number} i
   * @returns {number}
   */
  clipHandleAt(i) {
    return i * kClipStride + kClipHandle;
  }

  /**
   * Index in `f32` of its time.
   * @param {number} i
   * @returns {number}
   */
  clipTimeAt(i) {
    return i * kClipStride + kClipTime;
  }

  /**
   * Index in `f32` of its weight.
   * @param {number} i
   * @returns {number}
   */
  clipWeightAt(i) {
    return i * kClipStride + kClipWeight;
  }

  /**
   * Index in `u32` of the handle of its reference.
   * @param {number} i
   * @returns {number}
   */
  referenceClipAt(i) {
    return i * kClipStride + kReferenceClip;
  }

  /**
   * Index in `f32` of the time of its reference.
   * @param {number} i
   * @returns {number}
   */
  referenceTimeAt(i) {
    return i * kClipStride + kReferenceTime;
  }

  /**
   * Handle of clip i.
   * @param {number} i
   * @returns {number}
   */
  clipHandle(i) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('clipHandle', 'i', i, this.clipCount);
    }
    return this.u32[i * kClipStride + kClipHandle];
  }

  /**
   * @param {number} i
   * @param {number} handle
   */
  setClipHandle(i, handle) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('setClipHandle', 'i', i, this.clipCount);
    }
    if (handle >>> 0 !== handle) {
      this._failWord('setClipHandle', 'handle', handle);
    }
    this.u32[i * kClipStride + kClipHandle] = handle;
  }

  /**
   * Its time in frames.
   * @param {number} i
   * @returns {number}
   */
  clipTime(i) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('clipTime', 'i', i, this.clipCount);
    }
    return this.f32[i * kClipStride + kClipTime];
  }

  /**
   * In frames; wraps at the clip's length.
   * @param {number} i
   * @param {number} time
   */
  setClipTime(i, time) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('setClipTime', 'i', i, this.clipCount);
    }
    if (typeof time !== 'number') {
      this._failNumbers('setClipTime', ['time'], [time]);
    }
    this.f32[i * kClipStride + kClipTime] = time;
  }

  /**
   * @param {number} i
   * @returns {number}
   */
  clipWeight(i) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('clipWeight', 'i', i, this.clipCount);
    }
    return this.f32[i * kClipStride + kClipWeight];
  }

  /**
   * 0 skips the clip; it is not clamped.
   * @param {number} i
   * @param {number} weight
   */
  setClipWeight(i, weight) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('setClipWeight', 'i', i, this.clipCount);
    }
    if (typeof weight !== 'number') {
      this._failNumbers('setClipWeight', ['weight'], [weight]);
    }
    this.f32[i * kClipStride + kClipWeight] = weight;
  }

  /**
   * Says what plays of clip i.
   * @param {number} i
   * @param {number} handle of the clip
   * @param {number} time frames
   * @param {number} weight
   */
  setClip(i, handle, time, weight) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('setClip', 'i', i, this.clipCount);
    }
    if (handle >>> 0 !== handle) {
      this._failWord('setClip', 'handle', handle);
    }
    if (typeof time !== 'number' || typeof weight !== 'number') {
      this._failNumbers('setClip', ['time', 'weight'], [time, weight]);
    }
    const from = i * kClipStride;
    this.u32[from + kClipHandle] = handle;
    this.f32[from + kClipTime] = time;
    this.f32[from + kClipWeight] = weight;
  }

  /**
   * Additive layers: handle of the clip whose pose is taken away.
   * @param {number} i
   * @returns {number}
   */
  referenceClip(i) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('referenceClip', 'i', i, this.clipCount);
    }
    return this.u32[i * kClipStride + kReferenceClip];
  }

  /**
   * Additive layers: frame of that clip.
   * @param {number} i
   * @returns {number}
   */
  referenceTime(i) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('referenceTime', 'i', i, this.clipCount);
    }
    return this.f32[i * kClipStride + kReferenceTime];
  }

  /**
   * Additive layers: says which pose is taken away.
   * @param {number} i
   * @param {number} handle of the clip
   * @param {number} time frames
   */
  setReference(i, handle, time) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      this._failIndex('setReference', 'i', i, this.clipCount);
    }
    if (handle >>> 0 !== handle) {
      this._failWord('setReference', 'handle', handle);
    }
    if (typeof time !== 'number') {
      this._failNumbers('setReference', ['time'], [time]);
    }
    const from = i * kClipStride;
    this.u32[from + kReferenceClip] = handle;
    this.f32[from + kReferenceTime] = time;
  }
}

keepShape(new AnimatorView({ id: 0, buffer: new ArrayBuffer(animator.bytes(1, 1)) }, 1));
keepShape(new SkinningView({ id: 0, buffer: new ArrayBuffer(skinning.bytes(1)) }));
keepShape(new ControllerView({ id: 0, buffer: new ArrayBuffer(controller.bytes(1)) }));
keepShape(new ControllerStateView({ id: 0, buffer: new ArrayBuffer(controllerState.bytes(1)) }));

module.exports = { AnimatorView, ControllerStateView, ControllerView, SkinningView };
