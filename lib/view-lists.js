'use strict';
// Views of what script hands over in a call: lists of handles, masks and target lists. Their buffers are
// script's own, and free to be used again when the call is over. See docs/layouts.md for the bytes.
const { batchList, controllerMask, handles, targetGroup, targetLists } = require('./layout');
const {
  checkHandles,
  failWord,
  isArray,
  isArrayBuffer,
  isObject,
  keepShape,
  show,
} = require('./value-checks');
const { failIndex, failNumbers } = require('./view-base');

/**
 * @typedef {import('../types/engine').Engine} Engine
 * @typedef {import('../types/engine').EngineAnimationClipBinding} EngineAnimationClipBinding
 * @typedef {import('../types/engine').EngineAnimatorControllerModel} EngineAnimatorControllerModel
 * @typedef {import('../types/engine').PlainBuffer} PlainBuffer
 * @typedef {import('../types/handles').ClipHandle} ClipHandle
 * @typedef {import('../types/handles').Entity3DHandle} Entity3DHandle
 * @typedef {import('../types/handles').EntityHandle} EntityHandle
 */

/**
 * @template {number} T
 * @typedef {import('../types/handles').HandleArray<T>} HandleArray
 */

/**
 * @template {number} T
 * @typedef {import('../types/handles').HandleLike<T>} HandleLike
 */

const kLargestBlock = 0xffffffff;

/** Throws unless `value` is a whole number from `least`, of what makes `bytes` of at most 2^32 - 1. */
function checkCount(label, name, value, least, bytes) {
  if (typeof value !== 'number') {
    throw new TypeError(`${label}: ${name} is ${show(value)}, not a number: give a count.`);
  }
  if (value >>> 0 !== value || value < least || bytes(value) > kLargestBlock) {
    throw new RangeError(`${label}: ${name} is ${value}: give a whole number from ${least} up.`);
  }
}

/** Throws unless an existing buffer holds `bytes` from `byteOffset`, a multiple of 4. */
function checkBuffer(label, buffer, byteOffset, bytes) {
  if (!isArrayBuffer(buffer)) {
    throw new TypeError(`${label}: buffer is ${show(buffer)}: give an ArrayBuffer.`);
  }
  if (byteOffset >>> 0 !== byteOffset || byteOffset % 4 !== 0) {
    const cure = 'give a multiple of 4';
    throw new RangeError(`${label}: byteOffset is ${show(byteOffset)}: ${cure}.`);
  }
  if (byteOffset + bytes > buffer.byteLength) {
    const found = `${bytes} bytes from ${byteOffset} go past the ${buffer.byteLength} of the buffer`;
    throw new RangeError(`${label}: ${found}: give a larger one.`);
  }
}

const kListCount = batchList.count / 4;
const kListHandles = batchList.handles / 4;

/**
 * A count and that many handles, as {@link Engine.updateAnimators}, {@link Engine.updateAnimatorControllers},
 * {@link Engine.updateSkinningMatrices} and the last argument of culling calls take them: hand over `list.buffer`. A
 * culling call refuses an empty list. The buffer is script's own, and free to be used again when the call is over.
 * @template {number} [H=number] kind of its handles; any if left out
 */
class HandleList {
  /**
   * @param {number} capacity most handles that it will hold
   * @throws TypeError or RangeError for what is no count
   */
  constructor(capacity) {
    checkCount('HandleList', 'capacity', capacity, 0, batchList.bytes);
    /**
     * What calls take.
     * @type {ArrayBuffer}
     * @readonly
     */
    this.buffer = new ArrayBuffer(batchList.bytes(capacity));
    /**
     * The same as words: the count, then the handles.
     * @type {Uint32Array}
     * @readonly
     */
    this.u32 = new Uint32Array(this.buffer);
    /**
     * Most handles that it holds.
     * @type {number}
     * @readonly
     */
    this.capacity = capacity;
  }

  /**
   * A list of as many handles as there are.
   * @template {number} [H=number]
   * @param {HandleArray<H>} values
   * @returns {HandleList<H>}
   */
  static from(values) {
    checkHandles('HandleList.from', 'values', values);
    const list = new HandleList(values.length);
    list.u32.set(values, kListHandles);
    list.u32[kListCount] = values.length;
    return list;
  }

  /**
   * Handles in the list.
   * @type {number}
   */
  get count() {
    return this.u32[kListCount];
  }

  /**
   * The i-th handle. Throws a RangeError if there is none.
   * @param {number} i
   * @returns {H}
   */
  handle(i) {
    if (i >>> 0 !== i || i >= this.count) {
      failIndex('HandleList.handle', 'i', i, this.count);
    }
    return this.u32[kListHandles + i];
  }

  /**
   * Throws a RangeError if the list is full.
   * @param {HandleLike<H>} handle
   */
  append(handle) {
    if (handle >>> 0 !== handle) {
      failWord('HandleList.append', 'handle', handle);
    }
    const { u32 } = this;
    const count = u32[kListCount];
    if (count >= this.capacity) {
      const found = `the list is full, with ${count} handles`;
      throw new RangeError(`HandleList.append: ${found}: clear it, or make a larger one.`);
    }
    u32[kListHandles + count] = handle;
    u32[kListCount] = count + 1;
  }

  /** Empties the list. */
  clear() {
    this.u32[kListCount] = 0;
  }
}

const kMaskStride = controllerMask.size / 4;
const kMaskEntity = controllerMask.entity / 4;
const kMaskWeight = controllerMask.weight / 4;

/**
 * The mask of a controller's layer: a weight for each of some entities; all others keep 1. 8 bytes an entry,
 * see `layout.controllerMask`. `apply` copies it, so one mask does for many layers.
 */
class MaskView {
  /** @param {number} count entries; a fresh one names no entity and has weight 0 */
  constructor(count) {
    checkCount('MaskView', 'count', count, 0, (entries) => entries * controllerMask.size);
    /**
     * Entries.
     * @type {number}
     * @readonly
     */
    this.count = count;
    // A mask of no entries still needs a buffer with a byte, or the call is ignored.
    const bytes = Math.max(count, 1) * controllerMask.size;
    /**
     * The entries, 8 bytes each; of no entries one all the same.
     * @type {ArrayBuffer}
     * @readonly
     */
    this.buffer = new ArrayBuffer(bytes);
    /**
     * The entries as words.
     * @type {Uint32Array}
     * @readonly
     */
    this.u32 = new Uint32Array(this.buffer);
    /**
     * The entries as floats.
     * @type {Float32Array}
     * @readonly
     */
    this.f32 = new Float32Array(this.buffer);
  }

  /**
   * Gives an entity its weight.
   * @param {number} i
   * @param {HandleLike<EntityHandle>} entity handle; of several entries for one the first counts
   * @param {number} weight 0 keeps the layer off the entity
   */
  set(i, entity, weight) {
    if (i >>> 0 !== i || i >= this.count) {
      failIndex('MaskView.set', 'i', i, this.count);
    }
    if (entity >>> 0 !== entity) {
      failWord('MaskView.set', 'entity', entity);
    }
    if (typeof weight !== 'number') {
      failNumbers('MaskView.set', ['weight'], [weight]);
    }
    this.u32[i * kMaskStride + kMaskEntity] = entity;
    this.f32[i * kMaskStride + kMaskWeight] = weight;
  }

  /**
   * Handle of the entity of entry i.
   * @param {number} i
   * @returns {EntityHandle}
   */
  entity(i) {
    if (i >>> 0 !== i || i >= this.count) {
      failIndex('MaskView.entity', 'i', i, this.count);
    }
    return this.u32[i * kMaskStride + kMaskEntity];
  }

  /**
   * Its weight.
   * @param {number} i
   * @returns {number}
   */
  weight(i) {
    if (i >>> 0 !== i || i >= this.count) {
      failIndex('MaskView.weight', 'i', i, this.count);
    }
    return this.f32[i * kMaskStride + kMaskWeight];
  }

  /**
   * Gives a layer this mask, by `setMaskAtIndex`. A mask of no entries unmasks it.
   * @param {Pick<EngineAnimatorControllerModel, 'setMaskAtIndex'>} controller
   * @param {number} layer
   */
  apply(controller, layer) {
    controller.setMaskAtIndex(layer, this.buffer, 0, this.count);
  }
}

const kGroupEntities = targetGroup.entities / 4;

/** Words of the groups of lists of these lengths. */
function wordsOfGroups(counts) {
  return counts.reduce((sum, count) => sum + targetGroup.bytes(count) / 4, 0);
}

/** Word at which the group of each clip starts. Throws for lists that go past their words. */
function findGroups(words, clipCount, targetWords) {
  const groups = new Uint32Array(clipCount);
  let at = targetLists.groups(clipCount) / 4;
  for (let i = 0; i < clipCount; ++i) {
    groups[i] = at;
    at = at < words.length ? at + kGroupEntities + words[at] : Infinity;
    if (at > words.length) {
      const found = `the list of clip ${i} goes on behind the ${targetWords} words of targetWords`;
      throw new RangeError(`TargetListsView: ${found}: give a number that covers all lists.`);
    }
  }
  return groups;
}

/**
 * The targets of a clip: what its target k moves is entry k.
 * @readonly
 * @typedef {Object} TargetGroup
 * @property {HandleLike<ClipHandle>} clip Handle of a clip.
 * @property {HandleArray<Entity3DHandle>} entities Handles of 3D entities; `layout.handles.none` for a target that moves
 *   nothing.
 */

/**
 * Target lists of a binding: for each clip its handle, and the entity that each of its targets moves. See
 * `layout.targetLists`. Fresh targets name nothing.
 *
 * A binding keeps to the `targetWords` of its creation: longer lists are refused later on. For lists that will
 * grow, give `spareWords`, and as many in later calls.
 */
class TargetListsView {
  /**
   * @param {readonly number[]} counts targets of each clip
   * @param {number} [spareWords] further words that lists may grow by; 0 if left out
   * @throws TypeError or RangeError for what are no counts
   */
  constructor(counts, spareWords = 0) {
    const label = 'TargetListsView';
    if (!isArray(counts) || counts.length === 0) {
      const cure = 'give an array with the number of targets of each clip';
      throw new TypeError(
        `${label}: counts is ${isArray(counts) ? 'empty' : show(counts)}: ${cure}.`
      );
    }
    counts.forEach((count, i) => {
      checkCount(label, `counts[${i}]`, count, 0, targetGroup.bytes);
    });
    checkCount(label, 'spareWords', spareWords, 0, (words) => words * 4);
    const clipCount = counts.length;
    const targetWords = wordsOfGroups(counts) + spareWords;
    const buffer = new ArrayBuffer(targetLists.bytes(clipCount, targetWords));
    const words = new Uint32Array(buffer);
    let at = targetLists.groups(clipCount) / 4;
    for (const count of counts) {
      words[at] = count;
      words.fill(handles.none, at + kGroupEntities, at + kGroupEntities + count);
      at += kGroupEntities + count;
    }
    /**
     * What the lists stand in.
     * @type {ArrayBuffer}
     * @readonly
     */
    this.buffer = buffer;
    /**
     * Where the lists start in the buffer.
     * @type {number}
     * @readonly
     */
    this.byteOffset = 0;
    /**
     * Clips listed.
     * @type {number}
     * @readonly
     */
    this.clipCount = clipCount;
    /**
     * Words of all groups, spare ones included.
     * @type {number}
     * @readonly
     */
    this.targetWords = targetWords;
    /**
     * The lists as words.
     * @type {Uint32Array}
     * @readonly
     */
    this.u32 = words;
    this._groups = findGroups(words, clipCount, targetWords);
  }

  /**
   * A view of lists that stand in a buffer.
   * @param {PlainBuffer} buffer
   * @param {number} byteOffset a multiple of 4
   * @param {number} clipCount
   * @param {number} targetWords
   * @returns {TargetListsView}
   * @throws RangeError for lists that go on behind the buffer or `targetWords`
   */
  static over(buffer, byteOffset, clipCount, targetWords) {
    const label = 'TargetListsView.over';
    checkCount(label, 'clipCount', clipCount, 1, (count) => targetLists.bytes(count, 0));
    checkCount(label, 'targetWords', targetWords, 1, (count) => targetLists.bytes(0, count));
    checkBuffer(label, buffer, byteOffset, targetLists.bytes(clipCount, targetWords));
    const u32 = new Uint32Array(buffer, byteOffset, clipCount + targetWords);
    const _groups = findGroups(u32, clipCount, targetWords);
    const lists = { buffer, byteOffset, clipCount, targetWords, u32, _groups };
    return Object.assign(Object.create(TargetListsView.prototype), lists);
  }

  /**
   * Lists of these clips and entities.
   * @param {readonly TargetGroup[]} groups
   * @param {number} [spareWords] further words that lists may grow by; 0 if left out
   * @returns {TargetListsView}
   */
  static from(groups, spareWords = 0) {
    const label = 'TargetListsView.from';
    if (!isArray(groups) || !groups.every(isObject)) {
      const cure = 'give an array of { clip, entities }';
      throw new TypeError(`${label}: groups is ${show(groups)}: ${cure}.`);
    }
    groups.forEach(({ entities }, i) => checkHandles(label, `groups[${i}].entities`, entities));
    const lists = new TargetListsView(
      groups.map(({ entities }) => entities.length),
      spareWords
    );
    groups.forEach(({ clip, entities }, i) => {
      lists.setClip(i, clip);
      lists.u32.set(entities, lists._groups[i] + kGroupEntities);
    });
    return lists;
  }

  /**
   * Handle of clip i.
   * @param {number} i
   * @returns {ClipHandle}
   */
  clip(i) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      failIndex('TargetListsView.clip', 'i', i, this.clipCount);
    }
    return this.u32[i];
  }

  /**
   * Names clip i.
   * @param {number} i
   * @param {HandleLike<ClipHandle>} handle of a living clip; of one that is listed twice the first list counts
   */
  setClip(i, handle) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      failIndex('TargetListsView.setClip', 'i', i, this.clipCount);
    }
    if (handle >>> 0 !== handle) {
      failWord('TargetListsView.setClip', 'handle', handle);
    }
    this.u32[i] = handle;
  }

  /**
   * Targets of clip i.
   * @param {number} i
   * @returns {number}
   */
  targetCount(i) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      failIndex('TargetListsView.targetCount', 'i', i, this.clipCount);
    }
    return this.u32[this._groups[i]];
  }

  /**
   * Handle of the entity that target k of clip i moves, or `layout.handles.none`.
   * @param {number} i
   * @param {number} k
   * @returns {Entity3DHandle}
   */
  target(i, k) {
    return this.u32[this._targetAt('target', i, k)];
  }

  /**
   * Has target k of clip i move another entity.
   * @param {number} i
   * @param {number} k
   * @param {HandleLike<Entity3DHandle>} handle of a 3D entity, or `layout.handles.none`
   */
  setTarget(i, k, handle) {
    const at = this._targetAt('setTarget', i, k);
    if (handle >>> 0 !== handle) {
      failWord('TargetListsView.setTarget', 'handle', handle);
    }
    this.u32[at] = handle;
  }

  _targetAt(method, i, k) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      failIndex(`TargetListsView.${method}`, 'i', i, this.clipCount);
    }
    const at = this._groups[i];
    if (k >>> 0 !== k || k >= this.u32[at]) {
      failIndex(`TargetListsView.${method}`, 'k', k, this.u32[at]);
    }
    return at + kGroupEntities + k;
  }

  /**
   * Makes a binding of these lists, by {@link Engine.createAnimationClipBinding}.
   * @param {Pick<Engine, 'createAnimationClipBinding'>} engine
   * @param {number} [mode] one of `layout.addedModes`; rest poses are taken if left out
   * @returns {EngineAnimationClipBinding}
   */
  createBinding(engine, mode = 1) {
    const { buffer, byteOffset, clipCount, targetWords } = this;
    return engine.createAnimationClipBinding(buffer, byteOffset, clipCount, targetWords, mode);
  }

  /**
   * Gives a binding these lists for its old ones, by {@link EngineAnimationClipBinding.updateBinding}.
   * @param {Pick<EngineAnimationClipBinding, 'updateBinding'>} binding
   * @param {number} removedMode one of `layout.removedModes`
   * @param {number} keptMode one of `layout.keptModes`
   * @param {number} addedMode one of `layout.addedModes`
   * @returns {boolean} whether they were accepted
   */
  updateBinding(binding, removedMode, keptMode, addedMode) {
    const { buffer, byteOffset, clipCount, targetWords } = this;
    return binding.updateBinding(
      ...[buffer, byteOffset, clipCount, targetWords],
      ...[removedMode, keptMode, addedMode]
    );
  }
}

keepShape(new HandleList(0));
keepShape(new MaskView(0));
keepShape(new TargetListsView([0]));

module.exports = { HandleList, MaskView, TargetListsView };
