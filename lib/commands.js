'use strict';
// Writers over the buffers that JavaScript fills for native code: entity commands, the list of dirty entities, and
// streams of MatrixFlow commands. All words are 32 bits, little-endian. Each buffer begins with a word that holds the
// count or length. It is a writer's only position, so writers see what native code does to it (a refresh empties the
// entity commands, and leaves its own entries in the list), and one buffer may have several writers.
//
// A call writes its whole command or, if it does not fit or an argument is invalid, throws and writes nothing.
// Nothing is allocated per call. Methods of single commands are in command-methods.js.
const { EntityCommandWriterBase, MatrixFlowWriterBase } = require('./command-methods');
const { entityCommands, matrixFlowCommands, matrixFlowResults } = require('./layout');
const { copyNames, failOperands, streamWords } = require('./stream-writer');
const {
  checkHandles,
  failWord,
  isInstance,
  isObject,
  kLargestU32,
  keepShape,
  show,
} = require('./value-checks');

/**
 * @typedef {import('../types/engine').AnyEngine} AnyEngine
 * @typedef {import('../types/engine').EngineMatrixFlowCommandBuffer} EngineMatrixFlowCommandBuffer
 * @typedef {import('../types/handles').EntityHandle} EntityHandle
 * @typedef {import('../types/handles').MemoryID} MemoryID
 * @typedef {import('./stream-writer').Operand} Operand
 */

/**
 * @template {number} T
 * @typedef {import('../types/handles').HandleArray<T>} HandleArray
 */

/**
 * @template {number} T
 * @typedef {import('../types/handles').HandleLike<T>} HandleLike
 */

const kWordBytes = 4;

/** Most words that a bulk copy can move: for more, the byte count overflows. */
const kLargestBulk = 0x3fffffff;

/**
 * Writes structural changes into {@link Engine.entityCommands}; the next {@link Engine.refreshWorldTransform}
 * executes them in order and empties the stream. A command is its number and its operands, one word each; see
 * `layout.entityCommandStream`.
 *
 * Methods return the byte offset of their command in the buffer. They throw a TypeError for an argument that is not a
 * number, and a RangeError for an invalid 32-bit handle or a command that does not fit. They don't check that handles
 * exist: native code skips commands with unknown ones.
 */
class EntityCommandWriter extends EntityCommandWriterBase {
  /** @param {Pick<AnyEngine, 'entityCommands'>} engine kept alive by the writer */
  constructor(engine) {
    const label = 'EntityCommandWriter';
    const words = streamWords(label, engine, 'entityCommands', 'give an engine');
    super(label, engine, words, 'call refreshWorldTransform, which empties it, and continue');
  }

  /** Drops all pending commands. */
  clear() {
    this._words[0] = 0;
  }
}

/**
 * Writes {@link Engine.dirtyEntities}, the handles of entities whose records JavaScript has changed. Duplicates are
 * allowed. See `layout.dirtyEntityList`.
 *
 * Entries of native code stay in the list for the next refresh: append, and clear only to discard the list. Methods
 * throw a TypeError for an argument that is not a number, and a RangeError for an invalid 32-bit handle or entries
 * that do not fit.
 */
class DirtyListWriter {
  /** @param {Pick<AnyEngine, 'dirtyEntities'>} engine kept alive by the writer */
  constructor(engine) {
    /**
     * The object that owns the buffer; kept alive by the writer.
     * @type {Pick<AnyEngine, 'dirtyEntities'>}
     * @readonly
     */
    this.owner = engine;
    this._words = streamWords('DirtyListWriter', engine, 'dirtyEntities', 'give an engine');
  }

  /**
   * Number of entries in the list.
   * @type {number}
   */
  get count() {
    return this._words[0];
  }

  /**
   * Number of entries that still fit.
   * @type {number}
   */
  get room() {
    return this._words.length - 1 - this._words[0];
  }

  /**
   * Appends one entity.
   * @param {HandleLike<EntityHandle>} handle
   */
  append(handle) {
    const words = this._words;
    const count = words[0];
    if (handle >>> 0 !== handle) {
      failWord('DirtyListWriter.append', 'handle', handle);
    }
    if (count + 1 >= words.length) {
      this._failRoom('append', 1);
    }
    words[count + 1] = handle;
    words[0] = count + 1;
  }

  /**
   * Appends entities: all, or none if they do not fit.
   * @param {HandleArray<EntityHandle>} handles
   */
  appendAll(handles) {
    checkHandles('DirtyListWriter.appendAll', 'handles', handles);
    const words = this._words;
    const count = words[0];
    const added = handles.length;
    if (count + added >= words.length) {
      this._failRoom('appendAll', added);
    }
    words.set(handles, count + 1);
    words[0] = count + added;
  }

  /**
   * Appends consecutive handles: the entities of a batch, or a range of it.
   * @param {HandleLike<EntityHandle>} first first handle
   * @param {number} added number of handles
   */
  appendRange(first, added) {
    const label = 'DirtyListWriter.appendRange';
    if (first >>> 0 !== first) {
      failWord(label, 'first', first);
    }
    if (added >>> 0 !== added) {
      failWord(label, 'count', added);
    }
    const words = this._words;
    const count = words[0];
    if (count + added >= words.length) {
      this._failRoom('appendRange', added);
    }
    if (first + added > kLargestU32 + 1) {
      const trouble = `${added} handles from ${first} go beyond the largest one, ${kLargestU32}`;
      throw new RangeError(`${label}: ${trouble}: give the first handle of a batch and its count.`);
    }
    for (let i = 0; i < added; ++i) {
      words[count + 1 + i] = first + i;
    }
    words[0] = count + added;
  }

  /** Empties the list. */
  clear() {
    this._words[0] = 0;
  }

  _failRoom(name, added) {
    const capacity = this._words.length - 1;
    const label = `DirtyListWriter.${name}`;
    if (this.count > capacity) {
      const trouble = `the first word is ${this.count}, not a count of at most ${capacity} entries`;
      throw new RangeError(`${label}: ${trouble}: clear it.`);
    }
    const room = `the list has room for ${this.room} of its ${capacity}`;
    const cure = 'call refreshWorldTransform, which empties it, and continue';
    throw new RangeError(`${label}: ${added} entries do not fit, ${room}: ${cure}.`);
  }
}

/**
 * Checks of a {@link MatrixFlowWriter}.
 * @readonly
 * @typedef {Object} MatrixFlowWriterOptions
 * @property {Map<number, number> | null} [blockSizes] Bytes by `memoryID`. Operands in those blocks are
 *   bounds-checked, operands in others are not. Read at each call, so entries may be added and removed.
 */

/**
 * Operands of a bulk copy.
 * @private
 * @typedef {{
 *   (count: number, d: Operand, s: Operand): number;
 *   (
 *     count: number,
 *     dID: HandleLike<MemoryID>,
 *     dOffset: number,
 *     sID: HandleLike<MemoryID>,
 *     sOffset: number
 *   ): number;
 * }} BulkOperands
 */

/**
 * Writes the stream of a command buffer, see `layout.matrixFlowStream`. Each `execute` reads it from the start; only
 * `reset` empties it.
 *
 * An operand is two words, `memoryID` and offset. Methods take their operands in the order of the stream, each as one
 * object, `scalarAdd(a, b, r)`, or all as pairs of numbers, `scalarAdd(aID, aOffset, bID, bOffset, rID, rOffset)`.
 * Neither form is retained. Each returns the byte offset of its command in the buffer, so that an operand can be
 * found and overwritten later.
 *
 * D is a destination, S a source, A and B are inputs, R is a result, which may alias A or B. Values are floats;
 * vectors are contiguous, matrices column-major. Commands of two operands take 20 bytes, those of three take 28.
 *
 * Methods throw a TypeError for an invalid operand, and a RangeError for an invalid 32-bit word, for an operand that
 * does not fit its block (see {@link MatrixFlowWriterOptions.blockSizes}) or a command that does not fit.
 */
class MatrixFlowWriter extends MatrixFlowWriterBase {
  /**
   * @param {Pick<EngineMatrixFlowCommandBuffer, 'buffer'>} commandBuffer kept alive by the writer
   * @param {MatrixFlowWriterOptions} [options]
   */
  constructor(commandBuffer, options = {}) {
    const label = 'MatrixFlowWriter';
    const cure = 'give what createMatrixFlowCommandBuffer made with a size that is not 0';
    const words = streamWords(label, commandBuffer, 'buffer', cure);
    super(label, commandBuffer, words, 'execute and reset it, or make a larger command buffer');
    const { blockSizes = null } = options;
    if (blockSizes !== null && !isInstance(blockSizes, Map)) {
      const found = `blockSizes is ${show(blockSizes)}`;
      throw new TypeError(`${label}: ${found}: give a Map of bytes by memoryID.`);
    }
    this._blockSizes = blockSizes;
  }

  /** Empties the stream. */
  reset() {
    this._words[0] = 0;
  }

  /**
   * 9000, N, D, S; 24 bytes. Moves 4 N bytes from S to D.
   * @type {BulkOperands}
   * @param count N, words
   */
  bulkCopy(count, d, s, sID, sAt) {
    if (count >>> 0 !== count || count > kLargestBulk) {
      const label = `${this._label}.bulkCopy`;
      if (typeof count !== 'number') {
        failWord(label, 'count of words', count);
      }
      const cure = `give a whole number from 0 to ${kLargestBulk}`;
      throw new RangeError(`${label}: count of words is ${count}: ${cure}.`);
    }
    let dID = d;
    let dAt = s;
    if (typeof d !== 'number') {
      if (!isObject(d) || !isObject(s)) {
        failOperands(`${this._label}.bulkCopy`, copyNames, [d, s]);
      }
      dID = d.memoryID;
      dAt = d.offset;
      sID = s.memoryID;
      sAt = s.offset;
    }
    this._checkTwo('bulkCopy', count * kWordBytes, copyNames, dID, dAt, sID, sAt);
    const at = this._claim('bulkCopy', 24);
    const words = this._words;
    words[at] = matrixFlowCommands.bulkCopy;
    words[at + 1] = count;
    words[at + 2] = dID;
    words[at + 3] = dAt;
    words[at + 4] = sID;
    words[at + 5] = sAt;
    words[0] += 24;
    return at * kWordBytes;
  }
}

keepShape(new EntityCommandWriter({ entityCommands: new ArrayBuffer(kWordBytes) }));
keepShape(new DirtyListWriter({ dirtyEntities: new ArrayBuffer(kWordBytes) }));
keepShape(new MatrixFlowWriter({ buffer: new ArrayBuffer(kWordBytes) }));

module.exports = {
  DirtyListWriter,
  EntityCommandWriter,
  MatrixFlowWriter,
  entityCommands,
  matrixFlowCommands,
  matrixFlowResults,
};
