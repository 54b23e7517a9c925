'use strict';
// Pools of a scene: entities and culling objects in blocks of equal size, which are kept for as long as the scene, and
// components by their shape. What is given back is reused, so memory follows the largest number that lived at once.
const { blockOf, bytesOf, keyOf, wordsOf } = require('../block-bytes');
const {
  componentKinds,
  controller,
  controllerState,
  entity3D,
  limits,
  skinning,
} = require('../layout');
const {
  AnimatorView,
  ControllerStateView,
  ControllerView,
  SkinningView,
} = require('../view-animation');
const { CullingObjectsView } = require('../view-culling');
const { Entity3DView } = require('../view-entities');

/** Elements of a block: a power of two, so that an index splits into block and element by its bits. */
const kShift = 10;
const kBlock = 1 << kShift;
const kElement = kBlock - 1;

/** Words of a record of an entity. */
const kStride = entity3D.size / 4;
const kWorldMatrix = entity3D.worldMatrix / 4;

/** Free runs are joined when one of this many entities was given back since the last time. */
const kJoinShare = 8;

/** The bits of a handle that are the element of its batch. */
const kHandleElement = 0xfff;

const owner = Symbol('owner');

/** Lets a typed array keep the object alive whose memory it shows: through its buffer, if that has one block only. */
function keepWith(array, object) {
  const block = blockOf(object);
  const holder = keyOf(block, array) === array.buffer ? array.buffer : array;
  holder[owner] = object;
}

/** Bytes of the blocks of views. */
function sizeOf(views) {
  return views.reduce((sum, { u32 }) => sum + u32.byteLength, 0);
}

/**
 * What an engine made, unless it has no handle left for it: then what it returns has none.
 * @template {{ id: number }} T
 * @param {T} object
 * @param {string} what for the message
 * @returns {T}
 */
function withHandle(object, what) {
  if (object.id === 0) {
    const found = `the engine has no handle left for ${what}: it has ${limits.slots} of a kind`;
    const cure =
      "dispose of what is not used, since scenes reuse it, or give a scene 'engine: getEngine()'";
    throw new RangeError(`Scene: ${found}: ${cure}.`);
  }
  return object;
}

/** A larger copy of a typed array. */
function grown(array, length) {
  const larger = new array.constructor(length);
  larger.set(array);
  return larger;
}

/** Records of entities as words, in a block of their own: to be copied into those of a scene. */
class RecordTemplate {
  /** @param {Object[]} transforms translation, rotation, scale of each */
  constructor(transforms) {
    const buffer = new ArrayBuffer(transforms.length * entity3D.size);
    const view = new Entity3DView({ id: 0, buffer });
    transforms.forEach(({ translation, rotation, scale }, i) => {
      view.setQuaternion(i, rotation[0], rotation[1], rotation[2], rotation[3]);
      view.setPosition(i, translation[0], translation[1], translation[2]);
      view.setScale(i, scale[0], scale[1], scale[2]);
    });
    this.count = transforms.length;
    /** All records. World matrices are zero, as in new blocks. */
    this.words = view.u32;
    /** The parts before the world matrices, a record each. */
    this.locals = transforms.map((_, i) => {
      return view.u32.subarray(i * kStride, i * kStride + kWorldMatrix);
    });
  }
}

const kIdentity = { translation: [0, 0, 0], rotation: [0, 0, 0, 1], scale: [1, 1, 1] };
const identity = new RecordTemplate([kIdentity]);

/**
 * 3D entities by index. Runs of consecutive indices are taken and given back; a run may cross from one block into the
 * next. A run is taken from one that was given back if there is one of that length, or else a longer one.
 */
class EntityBlocks {
  constructor(engine) {
    this._engine = engine;
    this.views = [];
    this._ids = [];
    /** Number of entities that there are, used or not. */
    this.capacity = 0;
    /** First indices of free runs, by length. */
    this._free = new Map();
    /** The rest of a longer run, which shorter ones are taken from. */
    this._rest = 0;
    this._restCount = 0;
    /** Number of entities that were given back since free runs were last joined. */
    this._given = 0;
    /** Number of entities in use. */
    this.used = 0;
    /** Index of the parent of each entity, or -1. */
    this.parents = new Int32Array(0);
  }

  /** Bytes that are shared with the engine. */
  get bytes() {
    return sizeOf(this.views);
  }

  /** First index of a run of `count` entities, whose records are as they were left. */
  take(count) {
    const exact = this._free.get(count);
    if (exact !== undefined && exact.length > 0) {
      this.used += count;
      return exact.pop();
    }
    if (this._restCount < count) {
      this._refill(count);
    }
    this.used += count;
    const first = this._rest;
    this._rest += count;
    this._restCount -= count;
    return first;
  }

  /** Finds a rest of at least `count` entities. */
  _refill(count) {
    if (this._findLonger(count)) {
      return;
    }
    // Only where much was given back, so that its cost is spread over that.
    if (this._given >= count && kJoinShare * this._given >= this.capacity) {
      this._join();
      if (this._findLonger(count)) {
        return;
      }
    }
    this._grow(count);
  }

  /** Makes the shortest free run of at least `count` the rest; false if there is none. */
  _findLonger(count) {
    let best = Infinity;
    for (const [length, firsts] of this._free) {
      if (length >= count && length < best && firsts.length > 0) {
        best = length;
      }
    }
    if (best === Infinity) {
      return false;
    }
    this._dropRest();
    this._rest = this._free.get(best).pop();
    this._restCount = best;
    return true;
  }

  _dropRest() {
    if (this._restCount > 0) {
      this._release(this._rest, this._restCount);
      this._restCount = 0;
    }
  }

  /** Joins adjacent free runs. */
  _join() {
    this._dropRest();
    const runs = [];
    for (const [length, firsts] of this._free) {
      firsts.forEach((first) => runs.push({ first, length }));
    }
    this._free.clear();
    runs.sort((a, b) => a.first - b.first);
    for (let i = 0; i < runs.length; ) {
      const { first } = runs[i];
      let end = first;
      for (; i < runs.length && runs[i].first === end; ++i) {
        end += runs[i].length;
      }
      this._release(first, end - first);
    }
    this._given = 0;
  }

  /** Makes blocks for `count` entities, which the rest begins with. */
  _grow(count) {
    if (this._rest + this._restCount !== this.capacity) {
      this._dropRest();
      this._rest = this.capacity;
    }
    while (this._restCount < count) {
      const view = new Entity3DView(
        withHandle(this._engine.createEntity(true, kBlock), 'a block of nodes')
      );
      keepWith(view.f32, view.object);
      this.views.push(view);
      this._ids.push(view.id);
      this.capacity += kBlock;
      this._restCount += kBlock;
      // In step with the blocks: the engine may have no room for the next one.
      if (this.parents.length < this.capacity) {
        this.parents = grown(this.parents, Math.max(this.capacity, 2 * this.parents.length));
      }
    }
  }

  /** Takes back a run, or a part of one. */
  give(first, count) {
    this.used -= count;
    this._given += count;
    this._release(first, count);
  }

  _release(first, count) {
    const firsts = this._free.get(count);
    if (firsts === undefined) {
      this._free.set(count, [first]);
    } else {
      firsts.push(first);
    }
  }

  handle(index) {
    return this._ids[index >>> kShift] + (index & kElement);
  }

  /** Writes the handles of some entities of a run: those at `offsets` from its first. */
  writeHandles(out, at, first, offsets) {
    const ids = this._ids;
    const firstHandle = this.handle(first);
    const count = offsets.length;
    const inBlock = kBlock - (first & kElement);
    for (let i = 0; i < count; ++i) {
      const offset = offsets[i];
      const index = first + offset;
      out[at + i] =
        offset < inBlock ? firstHandle + offset : ids[index >>> kShift] + (index & kElement);
    }
  }

  view(index) {
    return this.views[index >>> kShift];
  }

  /** Index of its record in `f32` of its view. */
  word(index) {
    return (index & kElement) * kStride;
  }

  /** Gives an entity its transform at rest. */
  reset(index) {
    this.view(index).u32.set(identity.locals[0], this.word(index));
  }

  /** Writes the records of a run, world matrices included. */
  fill(first, { words, count }) {
    for (let done = 0; done < count; ) {
      const element = (first + done) & kElement;
      const some = Math.min(count - done, kBlock - element);
      const { u32 } = this.view(first + done);
      const isAll = some === count;
      u32.set(
        isAll ? words : words.subarray(done * kStride, (done + some) * kStride),
        element * kStride
      );
      done += some;
    }
  }

  /** Writes the transforms of a run, but for the first `skipped`, and leaves its world matrices. */
  fillLocals(first, { locals }, skipped) {
    for (let i = skipped; i < locals.length; ++i) {
      this.view(first + i).u32.set(locals[i], this.word(first + i));
    }
  }
}

/** Culling objects by index, each with an owner: what a camera reports. */
class ObjectBlocks {
  constructor(engine) {
    this._engine = engine;
    this._views = [];
    /** First indices of blocks by their handles; and those of the block of which an owner was asked for last. */
    this._blocks = new Map();
    this._lastBlock = -1;
    this._lastFirst = -1;
    this._free = [];
    this._owners = [];
  }

  /** Bytes that are shared with the engine. */
  get bytes() {
    return sizeOf(this._views);
  }

  /** An object around an entity. */
  take(of, entity) {
    if (this._free.length === 0) {
      const view = new CullingObjectsView(
        withHandle(
          this._engine.createComponent(componentKinds.culling, kBlock),
          'a block of spheres'
        )
      );
      this._lastBlock = -1;
      const first = this._views.length * kBlock;
      this._blocks.set(view.id, first);
      this._views.push(view);
      for (let i = kBlock; i > 0; --i) {
        this._free.push(first + i - 1);
        this._owners.push(null);
      }
    }
    const index = this._free.pop();
    const view = this._views[index >>> kShift];
    view.setEntity(index & kElement, entity);
    this._owners[index] = of;
    return index;
  }

  give(index) {
    this._views[index >>> kShift].setEnabled(index & kElement, false);
    this._owners[index] = null;
    this._free.push(index);
  }

  /** Sets center and radius; takes effect when the entity is listed. */
  setSphere(index, x, y, z, radius) {
    this._views[index >>> kShift].setSphere(index & kElement, x, y, z, radius);
  }

  /** Copies center and radius, in the space of the entity. */
  readSphere(index, out) {
    const view = this._views[index >>> kShift];
    const at = view.centerAt(index & kElement);
    for (let i = 0; i < 3; ++i) {
      out[i] = view.f32[at + i];
    }
    out[3] = view.f32[view.radiusAt(index & kElement)];
    return out;
  }

  /** Sets its layers; with none, or out of the tree, it is not tested. */
  setLayers(index, layers, isInTree) {
    const view = this._views[index >>> kShift];
    view.setMask(index & kElement, layers);
    view.setEnabled(index & kElement, layers !== 0 && isInTree);
  }

  ownerOf(handle) {
    const element = handle & kHandleElement;
    const block = handle - element;
    // Most results are of one block after the other.
    if (block !== this._lastBlock) {
      this._lastBlock = block;
      this._lastFirst = this._blocks.has(block) ? this._blocks.get(block) : -1;
    }
    return this._lastFirst < 0 ? undefined : this._owners[this._lastFirst + element];
  }
}

/** A skinning component. A view of it is made when its results are asked for: most are only computed and drawn later. */
class Skin {
  constructor(object, count) {
    this.object = object;
    this.id = object.id;
    this.count = count;
    this._view = null;
  }

  /** Writes what it computes: the start of its block, and the entities at `joints` from the first of a run. */
  write(start, blocks, first, joints) {
    const words = wordsOf(bytesOf('Skin', blockOf(this.object)));
    words.set(start);
    blocks.writeHandles(words, skinning.entities(this.count) / 4, first, joints);
  }

  /** The start of its block: inverse bind matrices, of which joint i has the i-th. */
  static start(bonesModel, count) {
    const words = new Uint32Array(skinning.entities(count) / 4);
    words[skinning.bonesModel / 4] = bonesModel;
    for (let i = 0; i < count; ++i) {
      words[skinning.indices / 4 + i] = i;
    }
    return words;
  }

  /** All results. */
  get results() {
    if (this._view === null) {
      this._view = new SkinningView(this.object);
      keepWith(this._view.results, this.object);
    }
    return this._view.results;
  }
}

/** Components that are not in use, by their shape. */
class ComponentPool {
  constructor(engine) {
    this._engine = engine;
    this._animators = new Map();
    this._skins = new Map();
    /** Bytes that are shared with the engine, used or not. */
    this.bytes = 0;
    this._controllers = new Map();
    this._bindings = new Map();
    this._states = new Map();
  }

  /** An animator of two clips on the same entities. Its block is as it was left. */
  takeAnimator(targetCount) {
    const pooled = takeFrom(this._animators, targetCount);
    if (pooled !== null) {
      return pooled;
    }
    const { animator } = componentKinds;
    const component = this._engine.createComponent(animator, 2, 2 * targetCount);
    const view = new AnimatorView(withHandle(component, 'an animator'), 2);
    this.bytes += view.u32.byteLength;
    return view;
  }

  /**
   * Makes the components that `count` characters will take, kind by kind: a call for a kind then goes through memory in
   * order. Mixed with skins, animators took 6 % longer.
   */
  reserve(count, targetCount, jointCounts) {
    if (targetCount > 0) {
      this._fill(count, () => this.takeAnimator(targetCount)).forEach((one) =>
        this.giveAnimator(one)
      );
    }
    const skins = this._fill(count, () => jointCounts.map((joints) => this.takeSkin(joints)));
    skins.forEach((ofOne) => ofOne.reverse().forEach((one) => this.giveSkin(one)));
  }

  /** Takes from the pool; the first one last, so that it is taken first when they are given back. */
  _fill(count, take) {
    return Array.from({ length: count }, take).reverse();
  }

  giveAnimator(view) {
    giveTo(this._animators, view.entityCount / 2, view);
  }

  takeSkin(count) {
    const pooled = takeFrom(this._skins, count);
    if (pooled !== null) {
      return pooled;
    }
    const component = this._engine.createComponent(componentKinds.skinning, count);
    const skin = new Skin(withHandle(component, 'a skin'), count);
    this.bytes += skinning.bytes(count);
    return skin;
  }

  giveSkin(view) {
    giveTo(this._skins, view.count, view);
  }

  /** A controller without masks. Its block is as it was left. */
  takeController(layerCount) {
    const pooled = takeFrom(this._controllers, layerCount);
    if (pooled !== null) {
      return pooled;
    }
    const model = this._engine.createAnimatorControllerModel(layerCount);
    const view = new ControllerView(withHandle(model, 'a controller'));
    this.bytes += controller.bytes(layerCount);
    return view;
  }

  giveController(view) {
    giveTo(this._controllers, view.layerCount, view);
  }

  /** A state of so many clips. Its block is as it was left. */
  takeState(clipCount) {
    const pooled = takeFrom(this._states, clipCount);
    if (pooled !== null) {
      return pooled;
    }
    const model = this._engine.createAnimatorControllerStateModel(clipCount);
    const view = new ControllerStateView(withHandle(model, 'a state of a controller'));
    this.bytes += controllerState.bytes(clipCount);
    return view;
  }

  giveState(view) {
    giveTo(this._states, view.clipCount, view);
  }

  /** A binding that was made for so many words of lists, or null. */
  takeBinding(targetWords) {
    return takeFrom(this._bindings, targetWords);
  }

  giveBinding(targetWords, binding) {
    giveTo(this._bindings, targetWords, binding);
  }
}

function takeFrom(pool, shape) {
  const free = pool.get(shape);
  return free !== undefined && free.length > 0 ? free.pop() : null;
}

function giveTo(pool, shape, item) {
  const free = pool.get(shape);
  if (free === undefined) {
    pool.set(shape, [item]);
  } else {
    free.push(item);
  }
}

/**
 * Handles for a batch call, in no particular order. An entry is an object with the handle, and has its place in a
 * property, by which it is removed.
 */
class Batch {
  constructor() {
    this.words = new Uint32Array(64);
    this.entries = [];
  }

  get count() {
    return this.words[0];
  }

  add(entry, handle) {
    this.append(handle);
    this.entries.push(entry);
    entry.place = this.words[0];
  }

  /** Adds a handle without an entry. */
  append(handle) {
    const at = ++this.words[0];
    if (at === this.words.length) {
      this.words = grown(this.words, 2 * at);
    }
    this.words[at] = handle;
  }

  remove(entry) {
    const { words, entries } = this;
    const last = entries.pop();
    words[entry.place] = words[words[0]];
    if (last !== entry) {
      entries[entry.place - 1] = last;
      last.place = entry.place;
    }
    --words[0];
    entry.place = 0;
  }
}

module.exports = {
  Batch,
  ComponentPool,
  EntityBlocks,
  ObjectBlocks,
  RecordTemplate,
  Skin,
  grown,
  withHandle,
};
