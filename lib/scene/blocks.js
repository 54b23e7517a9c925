'use strict';
// Pools of a scene: entities and culling objects in blocks of equal size, which are kept for as long as the scene, and
// components by their shape. What is given back is reused, so memory follows the largest number that lived at once.
const { componentKinds, entity3D } = require('../layout');
const { AnimatorView, SkinningView } = require('../view-animation');
const { CullingObjectsView } = require('../view-culling');
const { Entity3DView } = require('../view-entities');

/** Elements of a block: a power of two, so that an index splits into block and element by its bits. */
const kShift = 10;
const kBlock = 1 << kShift;
const kElement = kBlock - 1;

/** Words of a record of an entity. */
const kStride = entity3D.size / 4;

const owner = Symbol('owner');

/** Lets a typed array keep the object alive whose memory it shows: through its buffer. */
function keepWith(array, object) {
  array.buffer[owner] = object;
}

/** A larger copy of a typed array. */
function grown(array, length) {
  const larger = new array.constructor(length);
  larger.set(array);
  return larger;
}

/**
 * 3D entities by index. Runs of consecutive indices are taken and given back; a run may cross from one block into the
 * next.
 */
class EntityBlocks {
  constructor(engine) {
    this._engine = engine;
    this.views = [];
    this._ids = [];
    this._end = 0;
    /** First indices of free runs, by length. */
    this._free = new Map();
    /** Number of entities in use. */
    this.used = 0;
    /** Index of the parent of each entity, or -1. */
    this.parents = new Int32Array(0);
  }

  /** Number of entities that there are, used or not. */
  get capacity() {
    return this.views.length * kBlock;
  }

  /** First index of a run of `count` entities, whose records are as they were left. */
  take(count) {
    this.used += count;
    const exact = this._free.get(count);
    if (exact !== undefined && exact.length > 0) {
      return exact.pop();
    }
    let best = Infinity;
    for (const [length, firsts] of this._free) {
      if (length > count && length < best && firsts.length > 0) {
        best = length;
      }
    }
    if (best < Infinity) {
      const first = this._free.get(best).pop();
      this._release(first + count, best - count);
      return first;
    }
    const first = this._end;
    this._end += count;
    while (this._end > this.capacity) {
      const view = new Entity3DView(this._engine.createEntity(true, kBlock));
      keepWith(view.f32, view.object);
      this.views.push(view);
      this._ids.push(view.id);
    }
    if (this.parents.length < this.capacity) {
      this.parents = grown(this.parents, this.capacity);
    }
    return first;
  }

  /** Takes back a run, or a part of one. */
  give(first, count) {
    this.used -= count;
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

  view(index) {
    return this.views[index >>> kShift];
  }

  /** Index of its record in `f32` of its view. */
  word(index) {
    return (index & kElement) * kStride;
  }

  /** Writes position, rotation and scale. */
  write(index, position, rotation, scale) {
    const view = this.view(index);
    const element = index & kElement;
    view.setQuaternion(element, rotation[0], rotation[1], rotation[2], rotation[3]);
    view.setPosition(element, position[0], position[1], position[2]);
    view.setScale(element, scale[0], scale[1], scale[2]);
  }
}

/** Culling objects by index, each with an owner: what a camera reports. */
class ObjectBlocks {
  constructor(engine) {
    this._engine = engine;
    this._views = [];
    this._blocks = new Map();
    this._free = [];
    this._owners = [];
  }

  /** An object around an entity. */
  take(of, entity) {
    if (this._free.length === 0) {
      const view = new CullingObjectsView(
        this._engine.createComponent(componentKinds.culling, kBlock)
      );
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

  /** Sets its layers; with none it is not tested. */
  setLayers(index, layers) {
    const view = this._views[index >>> kShift];
    view.setMask(index & kElement, layers);
    view.setEnabled(index & kElement, layers !== 0);
  }

  setOwner(index, of) {
    this._owners[index] = of;
  }

  ownerOf(handle) {
    const element = handle & 0xfff;
    return this._owners[this._blocks.get(handle - element) + element];
  }
}

/** Components that are not in use, by their shape. */
class ComponentPool {
  constructor(engine) {
    this._engine = engine;
    this._animators = new Map();
    this._skins = new Map();
  }

  /** An animator of two clips on the same entities. Its block is as it was left. */
  takeAnimator(targetCount) {
    return (
      takeFrom(this._animators, targetCount) ||
      new AnimatorView(this._engine.createComponent(componentKinds.animator, 2, 2 * targetCount), 2)
    );
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
    const view = new SkinningView(this._engine.createComponent(componentKinds.skinning, count));
    keepWith(view.results, view.object);
    return view;
  }

  giveSkin(view) {
    giveTo(this._skins, view.count, view);
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

module.exports = { Batch, ComponentPool, EntityBlocks, ObjectBlocks, grown };
