'use strict';
// The objects that a checked engine has created: a table for each kind of handle. Handles of different kinds have
// the same numbers, so a handle has a meaning only together with its kind.
//
// The table holds the native object, not its JavaScript wrapper. When the wrapper is collected, the entry is
// released: its handle is invalid from then on, and the native object is dropped, to be collected next. So the
// native object of a live entry exists, and its memory can be read.
const { handles } = require('../layout');
const { onCollected } = require('./watch');

const { elementMask, none: kNone } = handles;

/** Name of each kind in messages, and the method that creates its handles. */
const kinds = Object.freeze({
  entity: { name: 'entity', source: 'createEntity' },
  culling: { name: 'culling object', source: 'createComponent(1, …)' },
  animator: { name: 'animator', source: 'createComponent(2, …)' },
  skinning: { name: 'skinning component', source: 'createComponent(3, …)' },
  clip: { name: 'clip', source: 'createDataModel(1, …)' },
  bones: { name: 'model of inverse bind matrices', source: 'createDataModel(2, …)' },
  binding: { name: 'binding', source: 'createAnimationClipBinding' },
  controller: { name: 'controller', source: 'createAnimatorControllerModel' },
  state: { name: 'state', source: 'createAnimatorControllerStateModel' },
  commandBuffer: { name: 'command buffer', source: 'createMatrixFlowCommandBuffer' },
});

function an(name) {
  return `${/^[aeiou]/.test(name) ? 'an' : 'a'} ${name}`;
}

/** The handle of element 0 of a batch. */
function keyOf(handle) {
  return (handle & ~elementMask) >>> 0;
}

/** Why a handle names no object any more, and what to do. */
const kCollected = (source) => [
  'the object that it came with was collected',
  `keep what ${source} returned`,
];
const kDisposed = () => [
  'the object that it came with was disposed of',
  'dispose of it when nothing uses its handle any more',
];

function isNone(handle) {
  return handle === 0 || handle === kNone;
}

/**
 * @typedef {Object} Entry
 * @property {string} kind
 * @property {number} id
 * @property {number} count elements under the handle; 1 for all but entities and culling objects
 * @property {boolean} live the wrapper has not been collected, as far as is known, nor disposed of
 * @property {?Object} native null once the entry was released
 */

class Registry {
  /** @param {function(Entry): void} onForgotten called when an entry's native object was collected */
  constructor(onForgotten) {
    this._onForgotten = onForgotten;
    this._tables = {};
    this._gone = {};
    for (const kind of Object.keys(kinds)) {
      this._tables[kind] = new Map();
      this._gone[kind] = new Map();
    }
    /** Entries by memoryID. */
    this._blocks = new Map();
  }

  /**
   * Adds a new native object and its wrapper.
   * @param {string} kind
   * @param {Object} native
   * @param {Object} object
   * @param {Object} details further fields of the entry
   * @returns {Entry}
   */
  add(kind, native, object, details) {
    const { id, memoryID } = native;
    const entry = Object.assign({ kind, id, memoryID, count: 1, live: true, native }, details);
    const table = this._tables[kind];
    const before = table.get(id);
    if (before !== undefined) {
      // Its native object was collected, or the slot would not have been reused.
      this._forget(before);
    }
    table.set(id, entry);
    this._gone[kind].delete(id);
    if (memoryID !== undefined) {
      this._blocks.set(memoryID, entry);
    }
    onCollected(object, () => {
      entry.live = false;
      entry.native = null;
    });
    onCollected(native, () => this._forget(entry));
    return entry;
  }

  /** Releases the native object of a live entry at once, on engines that can. */
  dispose(entry) {
    const { native } = entry;
    this._forget(entry, kDisposed);
    native.dispose();
  }

  /** @param {function(string): string[]} why `kCollected` or `kDisposed` */
  _forget(entry, why = kCollected) {
    const table = this._tables[entry.kind];
    entry.live = false;
    entry.native = null;
    if (table.get(entry.id) !== entry) {
      return;
    }
    table.delete(entry.id);
    this._gone[entry.kind].set(entry.id, why);
    if (entry.memoryID !== undefined) {
      this._blocks.delete(entry.memoryID);
    }
    this._onForgotten(entry);
  }

  /** The live entry of a handle, or undefined. */
  find(kind, handle) {
    const entry = this._tables[kind].get(keyOf(handle));
    if (entry === undefined || !entry.live) {
      return undefined;
    }
    if (kind === 'entity' || kind === 'culling') {
      return (handle & elementMask) < entry.count ? entry : undefined;
    }
    return entry;
  }

  /** The entry of a handle that native code still has, as far as is known: live, or released and not collected. */
  findNative(kind, handle) {
    const entry = this._tables[kind].get(keyOf(handle));
    return entry !== undefined && (handle & elementMask) < entry.count ? entry : undefined;
  }

  /**
   * Returns the live entry of a handle, or throws.
   * @param {string} label call and place of the handle
   */
  require(kind, label, handle) {
    const entry = this.find(kind, handle);
    if (entry === undefined) {
      const [why, cure] = this._explain(kind, handle);
      const { name } = kinds[kind];
      throw new RangeError(`${label} ${handle} names no ${name}: ${why}: ${cure}.`);
    }
    return entry;
  }

  /** Why a handle names no object of a kind, and what to do. */
  _explain(kind, handle) {
    const { source } = kinds[kind];
    const give = `give the "id" of what ${source} returned`;
    if (isNone(handle)) {
      return ['it means none', give];
    }
    const key = keyOf(handle);
    const entry = this._tables[kind].get(key);
    if (entry !== undefined && !entry.live) {
      return kCollected(source);
    }
    if (this._gone[kind].has(key)) {
      return this._gone[kind].get(key)(source);
    }
    if (entry !== undefined) {
      const last = key + entry.count - 1;
      return [`the batch ${key} ends at ${last}`, `give a handle from ${key} to ${last}`];
    }
    const others = Object.keys(kinds).filter((other) => this.find(other, handle) !== undefined);
    if (others.length !== 0) {
      return [
        `it is the handle of ${others.map((other) => an(kinds[other].name)).join(' or ')}`,
        give,
      ];
    }
    return ['this checked engine has created no object with that handle', give];
  }

  /** The entry that owns a block, also one that was released; undefined if there is none. */
  ownerOf(memoryID) {
    return this._blocks.get(memoryID);
  }

  /** Calls `visit` for all live entries of a kind, in no particular order. */
  each(kind, visit) {
    this._tables[kind].forEach((entry) => {
      if (entry.live) {
        visit(entry);
      }
    });
  }

  /** All live entries of a kind, by ascending handle. */
  live(kind) {
    return Array.from(this._tables[kind].values())
      .filter((entry) => entry.live)
      .sort((a, b) => a.id - b.id);
  }
}

module.exports = { Registry, isNone, keyOf, kNone };
