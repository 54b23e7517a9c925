'use strict';
// Views of lists that JavaScript passes to a call: lists of handles, masks and target lists. Their buffers belong to
// the caller, who may reuse them after the call. See docs/layouts.md for the bytes.
const { wordsOf } = require('./block-bytes');
const {
  addedModes,
  batchList,
  controllerMask,
  handles,
  targetGroup,
  targetLists,
} = require('./layout');
const { failWord, isArray, isArrayBuffer, isObject, keepShape, show } = require('./value-checks');
const { failIndex, failNumbers } = require('./view-base');
const { handleOf, handlesOf, keepFor, referencesOf } = require('./view-references');

/**
 * @typedef {import('../types/engine').AnyEngine} AnyEngine
 * @typedef {import('../types/engine').EngineAnimationClipBinding} EngineAnimationClipBinding
 * @typedef {import('../types/engine').EngineAnimatorControllerModel} EngineAnimatorControllerModel
 * @typedef {import('../types/engine').PlainBuffer} PlainBuffer
 * @typedef {import('../types/handles').ClipHandle} ClipHandle
 * @typedef {import('../types/handles').Entity3DHandle} Entity3DHandle
 * @typedef {import('../types/handles').EntityHandle} EntityHandle
 */

/**
 * @template {number} T
 * @typedef {import('../types/handles').ObjectOrHandleArray<T>} ObjectOrHandleArray
 */

/**
 * @template {number} T
 * @typedef {import('../types/handles').ObjectOrHandle<T>} ObjectOrHandle
 */

const kLargestBlock = 0xffffffff;

const kEngine = 'what getEngine or checked returned';
const kController = 'what createAnimatorControllerModel returned, which a view has as its "object"';
const kBinding = 'what createAnimationClipBinding or createBinding returned';

/** Throws unless an argument is an object of the engine with a method. */
function checkMethod(label, name, value, method, wanted) {
  if (!isObject(value) || typeof value[method] !== 'function') {
    throw new TypeError(`${label}: ${name} is ${show(value)} without ${method}: give ${wanted}.`);
  }
}

/** Throws unless `value` is a whole number from `least`, for which `bytes` returns at most 2^32 - 1. */
function checkCount(label, name, value, least, bytes) {
  if (typeof value !== 'number') {
    throw new TypeError(`${label}: ${name} is ${show(value)}, not a number: give a count.`);
  }
  if (value >>> 0 !== value || value < least || bytes(value) > kLargestBlock) {
    throw new RangeError(`${label}: ${name} is ${value}: give a whole number from ${least} up.`);
  }
}

/** Throws unless a buffer holds `bytes` from `byteOffset`, a multiple of 4. */
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
 * A count and that many handles, the argument of {@link Engine.updateAnimators},
 * {@link Engine.updateAnimatorControllers}, {@link Engine.updateSkinningMatrices} and culling calls: pass
 * `list.buffer`. A culling call refuses an empty list. The buffer belongs to the caller, who may reuse it after the
 * call. It keeps the objects alive that it is given as objects.
 * @template {number} [H=number] handle type, by default any
 */
class HandleList {
  /**
   * @param {number} capacity maximum number of handles
   * @throws TypeError or RangeError for an invalid count
   */
  constructor(capacity) {
    checkCount('HandleList', 'capacity', capacity, 0, batchList.bytes);
    /**
     * The argument of calls.
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
     * Maximum number of handles.
     * @type {number}
     * @readonly
     */
    this.capacity = capacity;
    this._references = referencesOf(this.buffer);
  }

  /**
   * Creates a list of these handles, which is then full.
   * @template {number} [H=number]
   * @param {ObjectOrHandleArray<H>} values
   * @returns {HandleList<H>}
   */
  static from(values) {
    const words = handlesOf('HandleList.from', 'values', values);
    const list = new HandleList(words.length);
    list.u32.set(words, kListHandles);
    list.u32[kListCount] = words.length;
    if (words !== values) {
      list._references.storeAll(kListHandles, values, words);
    }
    return list;
  }

  /**
   * Number of handles in the list.
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
   * Appends a handle. Throws a RangeError if the list is full.
   * @param {ObjectOrHandle<H>} handle
   */
  append(handle) {
    const word =
      typeof handle === 'number' ? handle : handleOf('HandleList.append', 'handle', handle);
    if (word >>> 0 !== word) {
      failWord('HandleList.append', 'handle', word);
    }
    const { u32 } = this;
    const count = u32[kListCount];
    if (count >= this.capacity) {
      const found = `the list is full, with ${count} handles`;
      throw new RangeError(`HandleList.append: ${found}: clear it, or make a larger one.`);
    }
    u32[kListHandles + count] = word;
    u32[kListCount] = count + 1;
    if (word !== handle || this._references.count !== 0) {
      this._references.store(kListHandles + count, handle, word);
    }
  }

  /** Empties the list. */
  clear() {
    this.u32[kListCount] = 0;
    if (this._references.count !== 0) {
      this._references.clear();
    }
  }
}

const kMaskStride = controllerMask.size / 4;
const kMaskEntity = controllerMask.entity / 4;
const kMaskWeight = controllerMask.weight / 4;

/**
 * The mask of a controller's layer: weights of some entities; all others keep weight 1. See `layout.controllerMask`.
 * `apply` copies it, so one mask can serve many layers. The mask keeps entities alive that it is given as objects, and
 * `apply` lets the controller keep them.
 */
class MaskView {
  /** @param {number} count number of entries; a new entry has no entity and weight 0 */
  constructor(count) {
    checkCount('MaskView', 'count', count, 0, (entries) => entries * controllerMask.size);
    /**
     * Number of entries.
     * @type {number}
     * @readonly
     */
    this.count = count;
    // An empty mask still needs a buffer of at least one byte, or the call is ignored.
    const bytes = Math.max(count, 1) * controllerMask.size;
    /**
     * The entries; for an empty mask, one that is not used.
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
    this._references = referencesOf(this.buffer);
  }

  /**
   * Sets the entity and the weight of entry i.
   * @param {number} i
   * @param {ObjectOrHandle<EntityHandle>} entity or its handle; the first of several entries for an entity applies
   * @param {number} weight 0: the layer does not affect the entity
   */
  set(i, entity, weight) {
    if (i >>> 0 !== i || i >= this.count) {
      failIndex('MaskView.set', 'i', i, this.count);
    }
    const word = typeof entity === 'number' ? entity : handleOf('MaskView.set', 'entity', entity);
    if (word >>> 0 !== word) {
      failWord('MaskView.set', 'entity', word);
    }
    if (typeof weight !== 'number') {
      failNumbers('MaskView.set', ['weight'], [weight]);
    }
    this.u32[i * kMaskStride + kMaskEntity] = word;
    this.f32[i * kMaskStride + kMaskWeight] = weight;
    if (word !== entity || this._references.count !== 0) {
      this._references.store(i * kMaskStride + kMaskEntity, entity, word);
    }
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
   * Weight of entry i.
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
   * Sets this mask on a layer, by `setMaskAtIndex`. An empty mask removes the layer's mask.
   * @param {Pick<EngineAnimatorControllerModel, 'setMaskAtIndex'>} controller
   * @param {number} layer
   */
  apply(controller, layer) {
    checkMethod('MaskView.apply', 'controller', controller, 'setMaskAtIndex', kController);
    controller.setMaskAtIndex(layer, this.buffer, 0, this.count);
    keepFor(controller, `mask ${layer}`, this._references.objects());
  }
}

const kGroupEntities = targetGroup.entities / 4;

/** Total words of groups of these lengths. */
function wordsOfGroups(counts) {
  return counts.reduce((sum, count) => sum + targetGroup.bytes(count) / 4, 0);
}

/** Word at which the group of each clip starts. Throws for lists that extend beyond their words. */
function findGroups(words, clipCount, targetWords) {
  const groups = new Uint32Array(clipCount);
  let at = targetLists.groups(clipCount) / 4;
  for (let i = 0; i < clipCount; ++i) {
    groups[i] = at;
    at = at < words.length ? at + kGroupEntities + words[at] : Infinity;
    if (at > words.length) {
      const found = `the list of clip ${i} extends beyond the ${targetWords} words of targetWords`;
      throw new RangeError(`TargetListsView: ${found}: give a number that covers all lists.`);
    }
  }
  return groups;
}

/**
 * The targets of a clip: target k moves the entity of entry k.
 * @readonly
 * @typedef {Object} TargetGroup
 * @property {ObjectOrHandle<ClipHandle>} clip Handle of a clip.
 * @property {ObjectOrHandleArray<Entity3DHandle>} entities Handles of 3D entities; `layout.handles.none` for a target that moves
 *   nothing.
 */

/**
 * Target lists of a binding: per clip its handle, and the entity that each of its targets moves. See
 * `layout.targetLists`. New targets refer to no entity.
 *
 * A binding keeps the `targetWords` of its creation: `updateBinding` refuses longer lists. For lists that will grow,
 * pass `spareWords`, and as many in later calls.
 *
 * The lists keep clips and entities alive that they are given as objects, and let their bindings keep them.
 */
class TargetListsView {
  /**
   * @param {readonly number[]} counts number of targets of each clip
   * @param {number} [spareWords] spare words for lists to grow into, default 0
   * @throws TypeError or RangeError for invalid counts
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
     * The buffer that holds the lists.
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
     * Number of clips.
     * @type {number}
     * @readonly
     */
    this.clipCount = clipCount;
    /**
     * Words of all groups, including spare ones.
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
    this._references = referencesOf(buffer);
    this._firstWord = 0;
  }

  /**
   * Creates a view of existing lists in a buffer.
   * @param {PlainBuffer} buffer
   * @param {number} byteOffset a multiple of 4
   * @param {number} clipCount
   * @param {number} targetWords
   * @returns {TargetListsView}
   * @throws RangeError for lists that extend beyond the buffer or `targetWords`
   */
  static over(buffer, byteOffset, clipCount, targetWords) {
    const label = 'TargetListsView.over';
    checkCount(label, 'clipCount', clipCount, 1, (count) => targetLists.bytes(count, 0));
    checkCount(label, 'targetWords', targetWords, 1, (count) => targetLists.bytes(0, count));
    const byteLength = targetLists.bytes(clipCount, targetWords);
    checkBuffer(label, buffer, byteOffset, byteLength);
    const u32 = wordsOf({ buffer, byteOffset, byteLength });
    const _groups = findGroups(u32, clipCount, targetWords);
    const lists = { buffer, byteOffset, clipCount, targetWords, u32, _groups };
    const _references = referencesOf(buffer);
    const own = Object.assign(lists, { _references, _firstWord: byteOffset / 4 });
    return Object.assign(Object.create(TargetListsView.prototype), own);
  }

  /**
   * Creates lists of these clips and entities.
   * @param {readonly TargetGroup[]} groups
   * @param {number} [spareWords] spare words for lists to grow into, default 0
   * @returns {TargetListsView}
   */
  static from(groups, spareWords = 0) {
    const label = 'TargetListsView.from';
    if (!isArray(groups) || !groups.every(isObject)) {
      const cure = 'give an array of { clip, entities }';
      throw new TypeError(`${label}: groups is ${show(groups)}: ${cure}.`);
    }
    const words = groups.map(({ entities }, i) => {
      return handlesOf(label, `groups[${i}].entities`, entities);
    });
    const lists = new TargetListsView(
      words.map(({ length }) => length),
      spareWords
    );
    groups.forEach(({ clip, entities }, i) => {
      lists.setClip(i, clip);
      const at = lists._groups[i] + kGroupEntities;
      lists.u32.set(words[i], at);
      lists._references.storeAll(at, entities, words[i]);
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
   * Sets the handle of clip i.
   * @param {number} i
   * @param {ObjectOrHandle<ClipHandle>} handle of an existing clip; if a clip is listed twice, the first list applies
   */
  setClip(i, handle) {
    if (i >>> 0 !== i || i >= this.clipCount) {
      failIndex('TargetListsView.setClip', 'i', i, this.clipCount);
    }
    this._write('TargetListsView.setClip', i, handle);
  }

  /**
   * Number of targets of clip i.
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
   * Sets the entity that target k of clip i moves.
   * @param {number} i
   * @param {number} k
   * @param {ObjectOrHandle<Entity3DHandle>} handle of a 3D entity, or `layout.handles.none`
   */
  setTarget(i, k, handle) {
    const at = this._targetAt('setTarget', i, k);
    this._write('TargetListsView.setTarget', at, handle);
  }

  _write(label, at, handle) {
    const word = typeof handle === 'number' ? handle : handleOf(label, 'handle', handle);
    if (word >>> 0 !== word) {
      failWord(label, 'handle', word);
    }
    this.u32[at] = word;
    if (word !== handle || this._references.count !== 0) {
      this._references.store(this._firstWord + at, handle, word);
    }
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
   * Creates a binding of these lists, by {@link Engine.createAnimationClipBinding}.
   * @param {Pick<AnyEngine, 'createAnimationClipBinding'>} engine
   * @param {number} [mode] one of `layout.addedModes`, by default `take`
   * @returns {EngineAnimationClipBinding}
   */
  createBinding(engine, mode = addedModes.take) {
    const label = 'TargetListsView.createBinding';
    checkMethod(label, 'engine', engine, 'createAnimationClipBinding', kEngine);
    const { buffer, byteOffset, clipCount, targetWords } = this;
    const binding = engine.createAnimationClipBinding(
      ...[buffer, byteOffset, clipCount, targetWords, mode]
    );
    keepFor(binding, 'lists', this._references.objects());
    return binding;
  }

  /**
   * Replaces the lists of a binding by these, by {@link EngineAnimationClipBinding.updateBinding}.
   * @param {Pick<EngineAnimationClipBinding, 'updateBinding'>} binding
   * @param {number} removedMode one of `layout.removedModes`
   * @param {number} keptMode one of `layout.keptModes`
   * @param {number} addedMode one of `layout.addedModes`
   * @returns {boolean} whether they were accepted
   */
  updateBinding(binding, removedMode, keptMode, addedMode) {
    checkMethod('TargetListsView.updateBinding', 'binding', binding, 'updateBinding', kBinding);
    const { buffer, byteOffset, clipCount, targetWords } = this;
    const isAccepted = binding.updateBinding(
      ...[buffer, byteOffset, clipCount, targetWords],
      ...[removedMode, keptMode, addedMode]
    );
    if (isAccepted) {
      keepFor(binding, 'lists', this._references.objects());
    }
    return isAccepted;
  }
}

keepShape(new HandleList(0));
keepShape(new MaskView(0));
keepShape(new TargetListsView([0]));

module.exports = { HandleList, MaskView, TargetListsView };
