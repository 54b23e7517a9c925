'use strict';
// What a frame changes in the tree: entities whose records were written, each once, and structural commands in their
// order. A flush gives them to the engine, in as many passes as its list and stream need.
const { DirtyListWriter, EntityCommandWriter } = require('../commands');
const { grown } = require('./blocks');

const kAddRoot = 0;
const kAddChild = 1;
const kRemove = 2;

/** Words of a queued command: kind and operands. */
const kWords = 3;

/** Bytes that the longest queued command takes in the stream, and those that holding back the root takes. */
const kCommandBytes = 12;
const kHoldBytes = 16;

const kUnmarked = 0;
const kMarked = 1;
/** Listed, but released since. */
const kDropped = 2;

/** Changes of a scene that its engine does not know yet. */
class Changes {
  constructor(engine, blocks) {
    this._engine = engine;
    this._blocks = blocks;
    this._commands = new EntityCommandWriter(engine);
    this._dirty = new DirtyListWriter(engine);
    /** By index: whether the entity is in `_indices`. */
    this.marks = new Uint8Array(0);
    this._indices = new Uint32Array(0);
    this._count = 0;
    this._queue = new Uint32Array(64 * kWords);
    this._queued = 0;
  }

  /** Makes room for all entities of the blocks. */
  fit() {
    const { capacity } = this._blocks;
    if (this.marks.length < capacity) {
      this.marks = grown(this.marks, capacity);
      this._indices = grown(this._indices, capacity);
    }
  }

  /** Lists an entity, once. */
  mark(index) {
    if (this.marks[index] === kUnmarked) {
      this._indices[this._count++] = index;
    }
    this.marks[index] = kMarked;
  }

  /** The same for consecutive entities. */
  markRange(first, count) {
    for (let i = first; i < first + count; ++i) {
      this.mark(i);
    }
  }

  /** Takes entities off the list again. */
  unmarkRange(first, count) {
    for (let i = first; i < first + count; ++i) {
      if (this.marks[i] === kMarked) {
        this.marks[i] = kDropped;
      }
    }
  }

  addRoot(index) {
    this._blocks.parents[index] = -1;
    this._push(kAddRoot, index, 0);
  }

  addChild(parent, child) {
    this._blocks.parents[child] = parent;
    this._push(kAddChild, parent, child);
  }

  remove(index) {
    this._blocks.parents[index] = -1;
    this._push(kRemove, index, 0);
  }

  _push(kind, a, b) {
    const at = this._queued * kWords;
    if (at === this._queue.length) {
      this._queue = grown(this._queue, 2 * at);
    }
    this._queue[at] = kind;
    this._queue[at + 1] = a;
    this._queue[at + 2] = b;
    ++this._queued;
  }

  /**
   * Gives all changes to the engine, and refreshes.
   * @returns {number} passes that were necessary
   */
  flush(root) {
    const rootHandle = this._blocks.handle(root);
    const { _commands: commands, _dirty: dirty } = this;
    const isMany =
      this._count > dirty.room || this._queued * kCommandBytes + kHoldBytes > commands.room;
    // Activating the root computes all below it, so hold it back only where most of that changes anyway.
    const isHeld = isMany && 2 * this._count > this._blocks.used;
    if (isHeld) {
      commands.deactivate(rootHandle);
    }
    let command = 0;
    let entity = 0;
    let passes = 0;
    let isLeft = true;
    while (isLeft) {
      while (command < this._queued && commands.room >= kCommandBytes + kHoldBytes) {
        this._write(command++);
      }
      for (let room = dirty.room; room > 0 && entity < this._count; ++entity) {
        const index = this._indices[entity];
        if (this.marks[index] === kMarked) {
          dirty.append(this._blocks.handle(index));
          --room;
        }
        this.marks[index] = kUnmarked;
      }
      isLeft = command < this._queued || entity < this._count;
      if (isHeld && !isLeft) {
        commands.activate(rootHandle);
      }
      this._engine.refreshWorldTransform();
      ++passes;
    }
    this._count = 0;
    this._queued = 0;
    return passes;
  }

  _write(i) {
    const at = i * kWords;
    const kind = this._queue[at];
    const first = this._blocks.handle(this._queue[at + 1]);
    if (kind === kAddChild) {
      this._commands.addChild(first, this._blocks.handle(this._queue[at + 2]));
    } else if (kind === kRemove) {
      this._commands.removeFromParent(first);
    } else {
      this._commands.addRoot(first);
    }
  }
}

module.exports = { Changes };
