'use strict';
// Model of the links of entities: parents, bone bindings, roots. Native links can't be read, so the model executes
// each command. A change can be rolled back until it is committed.

/** A map with its inverse: each key has one value, each value any number of keys. */
class Links {
  constructor(journal) {
    this._journal = journal;
    this._values = new Map();
    this._keys = new Map();
  }

  get(key) {
    return this._values.get(key);
  }

  /** The keys of a value, as a new array. */
  keysOf(value) {
    const keys = this._keys.get(value);
    return keys === undefined ? [] : Array.from(keys);
  }

  has(value) {
    return this._keys.has(value);
  }

  /** `value` undefined removes the link. */
  set(key, value) {
    const before = this._values.get(key);
    if (before !== value) {
      this._journal.push(() => this._put(key, before));
      this._put(key, value);
    }
  }

  _put(key, value) {
    const before = this._values.get(key);
    if (before !== undefined) {
      const keys = this._keys.get(before);
      keys.delete(key);
      if (keys.size === 0) {
        this._keys.delete(before);
      }
    }
    if (value === undefined) {
      this._values.delete(key);
      return;
    }
    this._values.set(key, value);
    if (!this._keys.has(value)) {
      this._keys.set(value, new Set());
    }
    this._keys.get(value).add(key);
  }
}

class TreeModel {
  constructor() {
    this._journal = [];
    this._parents = new Links(this._journal);
    this._bones = new Links(this._journal);
    this._roots = new Set();
    this._inactive = new Set();
  }

  /** Makes all changes since the last commit permanent. */
  commit() {
    this._journal.length = 0;
  }

  /** Undoes all changes since the last commit. */
  rollback() {
    while (this._journal.length !== 0) {
      this._journal.pop()();
    }
  }

  /** Handle of the parent, or undefined. */
  parent(handle) {
    return this._parents.get(handle);
  }

  setParent(child, parent) {
    this._parents.set(child, parent);
  }

  /** True if `handle` is `ancestor` or below it. */
  isWithin(handle, ancestor) {
    if (handle !== ancestor && !this._parents.has(ancestor)) {
      return false;
    }
    for (let at = handle; at !== undefined; at = this._parents.get(at)) {
      if (at === ancestor) {
        return true;
      }
    }
    return false;
  }

  topOf(handle) {
    let top = handle;
    for (let at = handle; at !== undefined; at = this._parents.get(at)) {
      top = at;
    }
    return top;
  }

  isRoot(handle) {
    return this._roots.has(handle);
  }

  addRoot(handle) {
    if (!this._roots.has(handle)) {
      this._journal.push(() => this._roots.delete(handle));
      this._roots.add(handle);
    }
  }

  /** Handle of the bone that an entity is bound to, or undefined. */
  bone(handle) {
    return this._bones.get(handle);
  }

  setBone(entity, bone) {
    this._bones.set(entity, bone);
  }

  /** True if `bone` is `entity` or follows it, directly or indirectly. */
  follows(bone, entity) {
    for (let at = bone; at !== undefined; at = this._bones.get(at)) {
      if (at === entity) {
        return true;
      }
    }
    return false;
  }

  setActive(handle, isActive) {
    if (this._inactive.has(handle) === isActive) {
      this._journal.push(() => this._putActive(handle, !isActive));
      this._putActive(handle, isActive);
    }
  }

  _putActive(handle, isActive) {
    if (isActive) {
      this._inactive.delete(handle);
    } else {
      this._inactive.add(handle);
    }
  }

  /** True unless `handle` or an entity above it is inactive. */
  isActive(handle) {
    if (this._inactive.size === 0) {
      return true;
    }
    for (let at = handle; at !== undefined; at = this._parents.get(at)) {
      if (this._inactive.has(at)) {
        return false;
      }
    }
    return true;
  }

  /**
   * Goes through the entities that follow bones of a tree: those that computing its world matrices writes.
   * @param {number} top
   * @param {function(number, number)} visit gets a follower and its bone
   */
  forEachFollower(top, visit) {
    const pending = [top];
    while (pending.length !== 0) {
      const at = pending.pop();
      if (!this._inactive.has(at)) {
        this._bones.keysOf(at).forEach((follower) => visit(follower, at));
        this._parents.keysOf(at).forEach((child) => pending.push(child));
      }
    }
  }

  _reset(handle) {
    this.setActive(handle, true);
    this._bones.set(handle, undefined);
    this._bones.keysOf(handle).forEach((follower) => this._bones.set(follower, undefined));
    this._parents.set(handle, undefined);
  }

  /** Removes the links of an entity and of all below it. Roots stay roots. */
  resetSubtree(handle) {
    const pending = [handle];
    while (pending.length !== 0) {
      const at = pending.pop();
      this._parents.keysOf(at).forEach((child) => pending.push(child));
      this._reset(at);
    }
  }

  /** Removes a released batch: its children lose their parent. */
  removeBatch(id, count) {
    for (let handle = id; handle < id + count; ++handle) {
      this._parents.keysOf(handle).forEach((child) => this._parents.set(child, undefined));
      this._reset(handle);
      this._roots.delete(handle);
    }
    this.commit();
  }
}

module.exports = { TreeModel };
