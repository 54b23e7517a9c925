'use strict';
// What a frame changes in the tree: entities whose records were written, each once, and structural commands in their
// order. Both are kept as the words that the engine reads, so that a flush copies them, in as many passes as its list
// and stream need.
const { DirtyListWriter, EntityCommandWriter } = require('../commands');
const { entityCommands } = require('../layout');
const { streamWords } = require('../stream-writer');
const { grown } = require('./blocks');

/** Words of a command of one handle, and of one of two. */
const kOneHandle = 2;
const kTwoHandles = 3;

/** Words that holding back the root takes. */
const kHoldWords = 4;

/**
 * From 32 entities in a list on, the engine wakes its workers, which takes longer than building the local matrices of a
 * few hundred: so many are given in lists of 31. On two cores that other programs used too, 1.2 to 2.9 times as fast
 * (32 to 300 nodes of 10,000 and of 100,000, medians of 400 rounds each way).
 */
const kShortList = 31;
const kMostInShortLists = 300;

// Marks of an entity, on top of twice the number of the flush.
const kMarked = 0;
/** Listed, but released since. */
const kDropped = 1;

/** Flushes until marks are counted from the start again. */
const kFlushes = 0x1fffffff;

/** Changes of a scene that its engine does not know yet. */
class Changes {
  constructor(engine, blocks) {
    this._engine = engine;
    this._blocks = blocks;
    this._commands = new EntityCommandWriter(engine);
    this._dirty = new DirtyListWriter(engine);
    this._stream = streamWords('Scene', engine, 'entityCommands', 'give an engine');
    this._list = streamWords('Scene', engine, 'dirtyEntities', 'give an engine');
    /** By index: a mark of this flush, if the entity is listed. */
    this.marks = new Uint32Array(0);
    this._flush = 1;
    /** Listed entities: their indices, and their handles. */
    this._indices = new Uint32Array(0);
    this._handles = new Uint32Array(0);
    this._count = 0;
    this._dropped = 0;
    this._queue = new Uint32Array(64 * kTwoHandles);
    this._queued = 0;
    /** Changes of the tree so far: while it is the same, so is the tree. */
    this.version = 0;
  }

  /** Makes room for all entities of the blocks. */
  fit() {
    const { capacity } = this._blocks;
    if (this.marks.length < capacity) {
      const room = Math.max(capacity, 2 * this.marks.length);
      this.marks = grown(this.marks, room);
      this._indices = grown(this._indices, room);
      this._handles = grown(this._handles, room);
    }
  }

  /** Lists an entity, once. */
  mark(index) {
    const mark = 2 * this._flush;
    const { marks } = this;
    if (marks[index] < mark) {
      marks[index] = mark;
      this._indices[this._count] = index;
      this._handles[this._count++] = this._blocks.handle(index);
    } else if (marks[index] !== mark) {
      marks[index] = mark;
      --this._dropped;
    }
  }

  /** The same for consecutive entities. */
  markRange(first, count) {
    for (let i = first; i < first + count; ++i) {
      this.mark(i);
    }
  }

  /** Takes entities off the list again. */
  unmarkRange(first, count) {
    const mark = 2 * this._flush + kMarked;
    for (let i = first; i < first + count; ++i) {
      if (this.marks[i] === mark) {
        this.marks[i] = mark - kMarked + kDropped;
        ++this._dropped;
      }
    }
  }

  addRoot(index) {
    this._blocks.parents[index] = -1;
    this._push(entityCommands.addRoot, this._blocks.handle(index));
  }

  addChild(parent, child) {
    this._blocks.parents[child] = parent;
    const at = this._claim(kTwoHandles);
    this._queue[at] = entityCommands.addChild;
    this._queue[at + 1] = this._blocks.handle(parent);
    this._queue[at + 2] = this._blocks.handle(child);
  }

  /** Links all of a run but its first: `parents` are places in the run. */
  addChildren(first, parents) {
    const { _blocks: blocks } = this;
    const count = parents.length;
    let at = this._claim(count * kTwoHandles);
    const { _queue: queue } = this;
    for (let i = 0; i < count; ++i, at += kTwoHandles) {
      const parent = first + parents[i];
      const child = first + 1 + i;
      blocks.parents[child] = parent;
      queue[at] = entityCommands.addChild;
      queue[at + 1] = blocks.handle(parent);
      queue[at + 2] = blocks.handle(child);
    }
  }

  remove(index) {
    this._blocks.parents[index] = -1;
    this._push(entityCommands.removeFromParent, this._blocks.handle(index));
  }

  _push(number, handle) {
    const at = this._claim(kOneHandle);
    this._queue[at] = number;
    this._queue[at + 1] = handle;
  }

  /** Index in the queue of further words. */
  _claim(words) {
    const at = this._queued;
    this._queued += words;
    if (this._queued > this._queue.length) {
      this._queue = grown(this._queue, 2 * this._queued);
    }
    ++this.version;
    return at;
  }

  /**
   * Gives all changes to the engine, and refreshes.
   * @param {number} root its index
   * @param {boolean} isAlone whether nothing else was marked since the last flush, as players mark what they pose
   * @returns {number} passes that were made
   */
  flush(root, isAlone) {
    const rootHandle = this._blocks.handle(root);
    const { _commands: commands, _dirty: dirty } = this;
    const most = isAlone && this._isForShortLists() ? kShortList : this._list.length;
    const isMany = this._count > dirty.room || 4 * (this._queued + kHoldWords) > commands.room;
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
      command = this._writeCommands(command);
      entity = this._writeEntities(entity, most);
      isLeft = command < this._queued || entity < this._count;
      if (isHeld && !isLeft) {
        commands.activate(rootHandle);
      }
      this._engine.refreshWorldTransform();
      ++passes;
    }
    this._count = 0;
    this._dropped = 0;
    this._queued = 0;
    if (++this._flush === kFlushes) {
      this.marks.fill(0);
      this._flush = 1;
    }
    return passes;
  }

  /** Whether short lists are faster: no world matrix would be computed twice. */
  _isForShortLists() {
    const { _count: count, _indices: indices, marks, _list: list } = this;
    if (count <= kShortList || count > kMostInShortLists || this._queued > 0 || list[0] > 0) {
      return false;
    }
    const mark = 2 * this._flush;
    const { parents } = this._blocks;
    for (let i = 0; i < count; ++i) {
      for (let above = parents[indices[i]]; above >= 0; above = parents[above]) {
        if (marks[above] >= mark) {
          return false;
        }
      }
    }
    return true;
  }

  /** Copies commands from word `from` into the stream, as many as fit. Returns the first word of the others. */
  _writeCommands(from) {
    const { _queue: queue, _queued: queued, _stream: stream } = this;
    const room = this._commands.room / 4 - kHoldWords;
    let end = queued;
    if (queued - from > room) {
      end = from;
      for (let next = end; next - from <= room; next += wordsOf(queue[next])) {
        end = next;
      }
    }
    copy(stream, stream[0] / 4 + 1, queue, from, end);
    stream[0] += 4 * (end - from);
    return end;
  }

  /** The same for listed entities, `most` at a time. */
  _writeEntities(from, most) {
    const { _list: list, _count: count } = this;
    const room = Math.min(most, Math.max(0, list.length - 1 - list[0]));
    if (this._dropped === 0) {
      const end = Math.min(count, from + room);
      copy(list, list[0] + 1, this._handles, from, end);
      list[0] += end - from;
      return end;
    }
    const { _indices: indices, _handles: handles, marks } = this;
    const mark = 2 * this._flush + kMarked;
    let at = list[0] + 1;
    const past = at + room;
    let i = from;
    for (; i < count && at < past; ++i) {
      if (marks[indices[i]] === mark) {
        list[at++] = handles[i];
      }
    }
    list[0] = at - 1;
    return i;
  }
}

function wordsOf(number) {
  return number === entityCommands.addChild ? kTwoHandles : kOneHandle;
}

/** Copies words from `from` until `end`. By a loop, since `set` needs a view of the range, which is garbage. */
function copy(out, at, words, from, end) {
  const shift = at - from;
  for (let i = from; i < end; ++i) {
    out[i + shift] = words[i];
  }
}

module.exports = { Changes };
