'use strict';
// Hints: code that throws nowhere and is valid for native code, but is nearly always a mistake. They are found
// before or after a verified call, and reported after it has been executed; they change nothing. docs/checked.md
// has the rules, and what they don't detect.
const { blockWords, dataViewOf } = require('../block-bytes');
const layout = require('../layout');
const { Blends } = require('./hint-blends');
const { makePeer } = require('./hint-peers');
const { Records, bits } = require('./hint-records');
const { HintReport } = require('./hint-report');

const { cullingObject, frustumCullingArguments, limits, skinning } = layout;

/** A list this long may be one of several passes: other entities may be listed in the next pass. */
const kLongList = Math.ceil(limits.dirtyEntities / 2);

/** After so many listed changes of an entity under no root, that is treated as a mistake. */
const kMovesWithoutRoot = 60;

/** Largest field of view of a camera, in radians: half a turn, plus rounding. */
const kMostFov = 3.15;

const kSphereFields = ['center x', 'center y', 'center z', 'radius'];

class Hints {
  /** @param {Object} state of the checked engine, without its hints */
  constructor(state) {
    const { engine, registry, tree } = state;
    this._registry = registry;
    this._tree = tree;
    this._dirty = blockWords(engine.dirtyEntities);
    this._commands = blockWords(engine.entityCommands);
    this._report = new HintReport();
    this._peer = makePeer(state);
    this._forgetAll();
  }

  /** Forgets everything that is known of records. */
  _forgetAll() {
    this._records = new Records(this._registry);
    this._blends = new Blends({ registry: this._registry }, this._records, this._report);
    /** Topmost entities of trees under no root whose world matrices a player has computed. */
    this._walked = new Set();
    /** Number of entities of a player when their rest poses were copied, by entry of the player. */
    this._kept = new WeakMap();
  }

  get _isOff() {
    return this._report.onHint === null;
  }

  /** Sets the function that hints are passed to; null switches them off. */
  setOnHint(onHint) {
    if (this._isOff) {
      // Nothing was tracked while hints were off.
      this._forgetAll();
    }
    this._report.onHint = onHint;
  }

  /** Reports what was found. Must be the last step of a call, since onHint may throw. */
  report() {
    this._report.flush();
  }

  // --- Records of entities.

  /** Runs before a refresh, when the model of links already includes its commands. */
  beforeRefresh(call) {
    if (this._isOff) {
      return;
    }
    this._peer.advance();
    const count = this._dirty[0];
    for (let i = 1; i <= count; ++i) {
      const track = this._records.find(this._dirty[i]);
      if (track !== null) {
        this._list(call, track, this._records.element);
      }
    }
    this._findStale(call, count);
    for (let i = 1; i <= count; ++i) {
      const track = this._records.find(this._dirty[i]);
      if (track !== null) {
        track.read(this._records.element);
        track.state[this._records.element] &= ~bits.listed;
      }
    }
    this._peer.settle();
  }

  /** Examines an entry of the dirty list. */
  _list(call, track, element) {
    const state = track.state[element];
    if ((state & bits.listed) !== 0) {
      return;
    }
    track.state[element] |= bits.listed;
    const isKnown = (state & bits.read) !== 0;
    if (!isKnown || track.differs(element)) {
      this._checkValues(call, track, element);
      if (isKnown && track.isBlank(element)) {
        this._checkMoves(call, track, element);
      }
    } else if (this._peer.hasOthers) {
      this._meetIdle(call, track, element);
    }
  }

  /** Finds degrees and NaN in a record. */
  _checkValues(call, track, element) {
    const handle = track.id + element;
    const degrees = track.degreesField(element);
    if (degrees !== null) {
      const { field, value } = degrees;
      const found = `entity ${handle}: ${field} is ${value}, which looks like degrees`;
      const cure = 'write radians, degrees * Math.PI / 180';
      this._addEntity('degrees', track, element, call, field, `${found}: ${cure}`);
    }
    this._checkNaN(call, track, element, 'write numbers; undefined becomes NaN in a float');
  }

  _checkNaN(call, track, element, cure) {
    const handle = track.id + element;
    const field = track.nanField(element);
    // An entity that follows a bone has its NaN from the bone.
    if (field !== null && this._tree.bone(handle) === undefined) {
      const found = `entity ${handle}: ${field} is NaN, and so become the matrices of all below it`;
      this._addEntity('nan', track, element, call, field, `${found}: ${cure}`);
    }
  }

  /** Finds entities that are listed again and again, but whose world matrix is never computed. */
  _checkMoves(call, track, element) {
    const handle = track.id + element;
    if (!this._hasWorld(handle) && track.countMove(element) === kMovesWithoutRoot) {
      const found = `entity ${handle}: it was changed and listed ${kMovesWithoutRoot} times`;
      this._addRootless(call, track, element, 'dirtyEntities', found);
    }
  }

  /** True if a refresh or a player computes the world matrix of an entity. */
  _hasWorld(handle) {
    const top = this._tree.topOf(handle);
    return this._tree.isRoot(top) || this._walked.has(top);
  }

  _addRootless(call, track, element, place, found) {
    const text = `${found}, but it is under no root, so its world matrix is never computed`;
    const cure =
      'write AddRoot for it, or for the top of its tree, into entityCommands of its engine';
    this._addEntity('not-under-root', track, element, call, place, `${text}: ${cure}`);
  }

  _addEntity(code, track, element, call, place, text) {
    this._report.add(code, track, element, call, track.id + element, place, text);
  }

  /** Finds records that have changed since native code read them, and that are not listed. */
  _findStale(call, count) {
    const isClosed = this._report.isClosed('not-listed') && !this._peer.hasOthers;
    const isSkipped = isClosed || count >= kLongList;
    const wanted = bits.read | bits.listed | bits.stale;
    this._registry.each('entity', (entry) => {
      const track = this._records.of(entry);
      track.isRefreshed = true;
      for (let i = 0; i < track.count && !isSkipped; ++i) {
        if ((track.state[i] & wanted) === bits.read && track.differs(i)) {
          this._meetStale(call, track, i);
        }
      }
    });
  }

  _meetStale(call, track, element) {
    const handle = track.id + element;
    const field = track.changedField(element);
    const isWalked = this._tree.isRoot(this._tree.topOf(handle)) && this._tree.isActive(handle);
    if (field === null || !isWalked) {
      return;
    }
    track.state[element] |= bits.stale;
    this._peer.noteStale(handle);
    if (this._peer.isNotedElsewhere('idle', handle)) {
      const found = `entity ${handle}: its ${field} has changed, and it is not in dirtyEntities`;
      const other = `another engine has listed ${handle}, where nothing has changed`;
      this._addOther(call, track, element, field, `${found}; ${other}`);
      return;
    }
    const found = `entity ${handle}: its ${field} has changed, but it is not in dirtyEntities`;
    const cure = 'append its handle to the entries there, each time that its record changes';
    const text = `${found}, so its matrices stay as they were: ${cure}`;
    this._addEntity('not-listed', track, element, call, field, text);
  }

  _addOther(call, track, element, place, found) {
    const cure = 'write a handle into the buffers of the engine that it came from';
    this._addEntity('other-engine', track, element, call, place, `${found}: ${cure}`);
  }

  /** Examines a listed entity that has not changed. */
  _meetIdle(call, track, element) {
    const handle = track.id + element;
    this._peer.noteIdle(handle);
    if (this._peer.isNotedElsewhere('stale', handle)) {
      const found = `entity ${handle}: it is in dirtyEntities, and has not changed`;
      const other = `entity ${handle} of another engine has, and was not listed there`;
      this._addOther(call, track, element, 'dirtyEntities', `${found}; ${other}`);
    }
  }

  /** Runs after native code other than a refresh has read records of entities. */
  noteRead(handles) {
    if (this._isOff) {
      return;
    }
    handles.forEach((handle) => {
      const track = this._records.find(handle);
      if (track !== null) {
        track.read(this._records.element);
      }
    });
  }

  // --- Entities whose world matrix is used.

  /**
   * Examines an entity whose world matrix is used: it may never have been computed.
   * @param {string} place
   * @param {string} use the beginning of the message
   */
  _use(call, track, element, place, use) {
    // The next refresh will compute entities that were created, linked or listed after the last one.
    if (!track.isRefreshed || !track.isBlank(element) || this._commands[0] !== 0) {
      return;
    }
    const handle = track.id + element;
    if (!this._hasWorld(handle)) {
      this._addRootless(call, track, element, place, use);
      return;
    }
    if (this._tree.isActive(handle)) {
      this._findUnread(call, handle, place, use);
    }
  }

  /** Entities that were never listed have a local matrix of zeros, and so all below them. */
  _findUnread(call, handle, place, use) {
    let unread;
    for (let at = handle; at !== undefined; at = this._tree.parent(at)) {
      const track = this._records.find(at);
      if (track !== null && (track.state[this._records.element] & bits.read) === 0) {
        unread = at;
      }
    }
    if (unread === undefined || this._isListed(unread)) {
      return;
    }
    const track = this._records.find(unread);
    const which = unread === handle ? 'it' : `entity ${unread} above it`;
    const found = `${use}, but ${which} was never in dirtyEntities, so its world matrix is zeros`;
    const cure = 'list each new entity once';
    const { element } = this._records;
    this._addEntity('not-listed', track, element, call, place, `${found}: ${cure}`);
  }

  /** True if an entity is in the dirty list. */
  _isListed(handle) {
    const at = this._dirty.indexOf(handle, 1);
    return at !== -1 && at <= this._dirty[0];
  }

  /** Runs after JavaScript has read a world matrix through a view. */
  noteWorldRead(method, entry, element) {
    if (this._isOff) {
      return;
    }
    const track = this._records.of(entry);
    if (track.isWritten(element)) {
      this._use(method, track, element, 'view', `entity ${track.id + element}: it is read`);
    }
    this.report();
  }

  /** Runs after a culling call. `list` has the handles of its objects; null for all. */
  noteCulled(call, given, list) {
    if (this._isOff) {
      return;
    }
    if (call !== 'orthoCulling' && call !== 'orthoCullingV2') {
      this._checkFov(call, given[frustumCullingArguments.fov]);
    }
    const [mask] = given;
    if (list !== null) {
      for (const handle of list) {
        const entry = this._registry.find('culling', handle);
        const view = dataViewOf(entry.native);
        this._cull(call, entry, view, handle & layout.handles.elementMask, mask);
      }
    } else {
      this._registry.each('culling', (entry) => {
        const view = dataViewOf(entry.native);
        for (let i = 0; i < entry.count; ++i) {
          this._cull(call, entry, view, i, mask);
        }
      });
    }
    this.report();
  }

  _checkFov(call, fov) {
    if (fov > kMostFov && fov !== Infinity) {
      const found = `fov is ${fov}, more than half a turn in radians`;
      const text = `${found}: write radians, degrees * Math.PI / 180`;
      this._report.add('degrees', this, call, call, null, 'fov', text);
    }
  }

  _cull(call, entry, view, index, mask) {
    const at = cullingObject.size * index;
    if (view.getUint8(at) === 0 || (view.getUint32(at + cullingObject.mask, true) & mask) === 0) {
      return;
    }
    const handle = view.getUint32(at + cullingObject.entity, true);
    const place = `culling object ${entry.id + index}`;
    const track = this._records.find(handle);
    this._use(
      call,
      track,
      this._records.element,
      place,
      `${place}: its entity ${handle} is culled`
    );
    for (let k = 0; k < kSphereFields.length; ++k) {
      if (Number.isNaN(view.getFloat32(at + cullingObject.center + 4 * k, true))) {
        const name = `${place}, ${kSphereFields[k]}`;
        const found = `${place}: ${kSphereFields[k]} is NaN, so every camera sees the object`;
        const text = `${found}: write numbers; undefined becomes NaN in a float`;
        this._report.add('nan', entry, name, call, handle, name, text);
        return;
      }
    }
  }

  // --- Players and clips.

  /** Runs after a clip was created. */
  noteClip(call, entry) {
    if (this._isOff || entry === undefined || entry.facts.degrees === null) {
      return;
    }
    const { target, name, value, frame } = entry.facts.degrees;
    const place = `target ${target}, ${name}`;
    const found = `${place} is ${value} at frame ${frame}, which looks like degrees`;
    const cure = 'write radians, degrees * Math.PI / 180';
    this._report.add('degrees', entry, '', call, null, place, `${found}: ${cure}`);
    this.report();
  }

  /**
   * Executes an update, and examines what it reads and writes.
   * @param {string} call
   * @param {Array<{entry: Object, reach: Object}>} played players of one kind, with what they write
   * @param {boolean} walks true if the update computes trees under no root
   * @param {function(): *} run
   */
  around(call, played, walks, run) {
    if (this._isOff) {
      return run();
    }
    played.forEach(({ entry, reach }) => {
      this._keepRests(entry, reach);
      if (entry.kind !== 'skinning') {
        this._blends[entry.kind](call, entry, reach);
      }
    });
    const result = run();
    played.forEach(({ entry, reach }) => {
      if (walks && reach.tree !== undefined) {
        this._walked.add(reach.tree);
      }
      if (entry.kind === 'skinning') {
        this._noteBones(call, entry);
      } else {
        this._noteWritten(call, entry, reach);
      }
    });
    this.report();
    return result;
  }

  /** Copies the records of entities before their first player writes them. */
  _keepRests(entry, { entities }) {
    if (this._kept.get(entry) === entities.size) {
      return;
    }
    this._kept.set(entry, entities.size);
    entities.forEach((handle) => {
      const track = this._records.find(handle);
      if (track !== null) {
        track.keepRest(this._records.element);
      }
    });
  }

  _noteWritten(call, entry, { entities }) {
    entities.forEach((handle) => {
      const track = this._records.find(handle);
      const { element } = this._records;
      if (track !== null && track.read(element)) {
        const cure = `look at the times, weights and keys of ${entry.kind} ${entry.id}`;
        this._checkNaN(call, track, element, cure);
      }
    });
  }

  _noteBones(call, { id, boneCount, native }) {
    const words = blockWords(native);
    const first = skinning.entities(boneCount) / 4;
    for (let i = 0; i < boneCount; ++i) {
      const track = this._records.find(words[first + i]);
      const { element } = this._records;
      if (track.isBlank(element)) {
        const place = `skinning component ${id}, bone ${i}`;
        const use = `${place}: its entity ${words[first + i]} is skinned`;
        this._use(call, track, element, place, use);
      }
    }
  }
}

module.exports = { Hints };
