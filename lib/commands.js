'use strict';
// Writers over the buffers that script fills for native code: entity commands, the list of dirty
// entities, and streams of MatrixFlow commands. All words are 32 bits, little-endian. Each buffer
// begins with a word that says how much follows; it is all that a writer keeps of its position, so
// what native code does to it (a refresh empties the entity commands, and leaves entries of its own in
// the list) is seen, and several writers over one buffer do no harm.
//
// A call writes its whole command or, where that does not fit or an argument is wrong, throws and
// writes nothing. Nothing is allocated per call.
const { entityCommands, matrixFlowCommands, matrixFlowResults } = require('./layout');
const {
  checkHandles,
  failWord,
  isArrayBuffer,
  isInstance,
  isObject,
  kLargestU32,
  keepShape,
  show,
} = require('./value-checks');

const kWordBytes = 4;

/** The same, by a name that leaves room. */
const types = matrixFlowCommands;

// Bytes of values.
const kScalarBytes = 4;
const kVector2Bytes = 8;
const kVector3Bytes = 12;
const kVector4Bytes = 16;
const kMatrix3Bytes = 36;
const kMatrix4Bytes = 64;

/** Most words that a bulk copy can move: beyond it, its count of bytes wraps. */
const kLargestBulk = 0x3fffffff;

/** What operands are called in messages, in the order of the stream. */
const copyNames = ['D', 'S'];
const invertNames = ['S', 'D'];

/** The words of a shared buffer, or a complaint. */
function wordsOf(label, owner, property, cure) {
  const buffer = isObject(owner) ? owner[property] : undefined;
  if (!isArrayBuffer(buffer)) {
    const found = isObject(owner) ? `its ${property} is ${show(buffer)}` : `got ${show(owner)}`;
    throw new TypeError(`${label}: ${found}, not an ArrayBuffer: ${cure}.`);
  }
  if (buffer.byteLength < kWordBytes) {
    const room = `${buffer.byteLength} bytes have no room for the first word`;
    throw new RangeError(`${label}: ${room}: ${cure}.`);
  }
  return new Uint32Array(buffer, 0, Math.floor(buffer.byteLength / kWordBytes));
}

/**
 * What streams share: a word that counts the bytes of the commands, then the commands, back to back.
 */
class StreamWriter {
  constructor(label, owner, words, cure) {
    /** Keeps the buffer's memory alive. */
    this.owner = owner;
    this._label = label;
    this._words = words;
    this._cure = cure;
  }

  /** Bytes of commands in the stream. */
  get used() {
    return this._words[0];
  }

  /** Bytes that further commands may take. */
  get room() {
    return this._words.length * kWordBytes - kWordBytes - this._words[0];
  }

  /** Index of the word at which a command of `bytes` goes. Throws if it does not fit. */
  _claim(name, bytes) {
    const words = this._words;
    const used = words[0];
    // A stream that ends inside a word was not written here.
    if ((used & 3) !== 0 || used + bytes > words.length * kWordBytes - kWordBytes) {
      this._failRoom(name, bytes);
    }
    return used / kWordBytes + 1;
  }

  /** Throws for an operand that is no word. */
  _checkWord(method, name, value) {
    if (value >>> 0 !== value) {
      failWord(`${this._label}.${method}`, name, value);
    }
  }

  /** Writes a command of a handle alone. */
  _one(name, number, handle) {
    this._checkWord(name, 'handle', handle);
    const at = this._claim(name, 8);
    const words = this._words;
    words[at] = number;
    words[at + 1] = handle;
    words[0] += 8;
    return at * kWordBytes;
  }

  _failRoom(name, bytes) {
    const { _label: label, used } = this;
    const capacity = this._words.length * kWordBytes - kWordBytes;
    if ((used & 3) !== 0 || used > capacity) {
      const trouble = `the first word is ${used}, no length of a stream in ${capacity} bytes`;
      throw new RangeError(`${label}.${name}: ${trouble}: clear it.`);
    }
    const room = `the stream has room for ${capacity - used} of its ${capacity}`;
    throw new RangeError(`${label}.${name}: ${bytes} bytes do not fit, ${room}: ${this._cure}.`);
  }
}

/**
 * Writes structural changes into `engine.entityCommands`; the next refreshWorldTransform carries them
 * out in their order and empties the stream. 49,152 bytes:
 *
 * | Offset | Type | |
 * |---|---|---|
 * | 0 | u32 | L, bytes of commands; at most 49,148 |
 * | 4 | L bytes | commands: a number and its operands, u32 each |
 *
 * Methods return the offset of their command in the buffer.
 */
class EntityCommandWriter extends StreamWriter {
  /** @param {{entityCommands: ArrayBuffer}} engine is kept alive by the writer */
  constructor(engine) {
    const label = 'EntityCommandWriter';
    const words = wordsOf(label, engine, 'entityCommands', 'give an engine');
    super(label, engine, words, 'call refreshWorldTransform, which empties it, and go on');
  }

  _two(name, number, firstName, first, secondName, second) {
    this._checkWord(name, firstName, first);
    this._checkWord(name, secondName, second);
    const at = this._claim(name, 12);
    const words = this._words;
    words[at] = number;
    words[at + 1] = first;
    words[at + 2] = second;
    words[0] += 12;
    return at * kWordBytes;
  }

  /**
   * 1, handle; 8 bytes. Makes an entity without a parent a root.
   * @param {number} handle
   * @returns {number}
   */
  addRoot(handle) {
    return this._one('addRoot', entityCommands.addRoot, handle);
  }

  /**
   * 2, parent, child; 12 bytes. Attaches behind the parent's children; both of one kind, 2D or 3D.
   * @param {number} parent
   * @param {number} child
   * @returns {number}
   */
  addChild(parent, child) {
    return this._two('addChild', entityCommands.addChild, 'parent', parent, 'child', child);
  }

  /**
   * 3, parent, child, index; 16 bytes. Attaches at a place among the parent's children.
   * @param {number} parent
   * @param {number} child
   * @param {number} index
   * @returns {number}
   */
  insertChild(parent, child, index) {
    this._checkWord('insertChild', 'parent', parent);
    this._checkWord('insertChild', 'child', child);
    this._checkWord('insertChild', 'index', index);
    const at = this._claim('insertChild', 16);
    const words = this._words;
    words[at] = entityCommands.insertChild;
    words[at + 1] = parent;
    words[at + 2] = child;
    words[at + 3] = index;
    words[0] += 16;
    return at * kWordBytes;
  }

  /**
   * 4, handle; 8 bytes.
   * @param {number} handle
   * @returns {number}
   */
  removeFromParent(handle) {
    return this._one('removeFromParent', entityCommands.removeFromParent, handle);
  }

  /**
   * 5, handle; 8 bytes. The entity and all below it.
   * @param {number} handle
   * @returns {number}
   */
  resetSubtree(handle) {
    return this._one('resetSubtree', entityCommands.resetSubtree, handle);
  }

  /**
   * 6, entity, bone; 12 bytes. The entity follows the bone.
   * @param {number} entity
   * @param {number} bone
   * @returns {number}
   */
  bindToBone(entity, bone) {
    return this._two('bindToBone', entityCommands.bindToBone, 'entity', entity, 'bone', bone);
  }

  /**
   * 7, n, n entities, n bones; 8 + 8 n bytes. Entity i follows bone i.
   * @param {Uint32Array|number[]} entities
   * @param {Uint32Array|number[]} bones as many
   * @returns {number}
   */
  bindToBoneBatch(entities, bones) {
    const label = `${this._label}.bindToBoneBatch`;
    checkHandles(label, 'entities', entities);
    checkHandles(label, 'bones', bones);
    const n = entities.length;
    if (bones.length !== n) {
      const cure = 'give one bone for each entity';
      throw new RangeError(`${label}: ${n} entities and ${bones.length} bones: ${cure}.`);
    }
    const bytes = 8 + 8 * n;
    const at = this._claim('bindToBoneBatch', bytes);
    const words = this._words;
    words[at] = entityCommands.bindToBoneBatch;
    words[at + 1] = n;
    words.set(entities, at + 2);
    words.set(bones, at + 2 + n);
    words[0] += bytes;
    return at * kWordBytes;
  }

  /**
   * 8, handle; 8 bytes.
   * @param {number} handle
   * @returns {number}
   */
  unbindFromBone(handle) {
    return this._one('unbindFromBone', entityCommands.unbindFromBone, handle);
  }

  /**
   * 9, n, n handles; 8 + 4 n bytes.
   * @param {Uint32Array|number[]} handles
   * @returns {number}
   */
  unbindFromBoneBatch(handles) {
    checkHandles(`${this._label}.unbindFromBoneBatch`, 'handles', handles);
    const bytes = 8 + 4 * handles.length;
    const at = this._claim('unbindFromBoneBatch', bytes);
    const words = this._words;
    words[at] = entityCommands.unbindFromBoneBatch;
    words[at + 1] = handles.length;
    words.set(handles, at + 2);
    words[0] += bytes;
    return at * kWordBytes;
  }

  /**
   * 10, handle; 8 bytes. An inactive entity becomes active, and is computed anew with all below it.
   * @param {number} handle
   * @returns {number}
   */
  activate(handle) {
    return this._one('activate', entityCommands.activate, handle);
  }

  /**
   * 11, handle; 8 bytes. The entity and all below it keep their matrices until it is activated.
   * @param {number} handle
   * @returns {number}
   */
  deactivate(handle) {
    return this._one('deactivate', entityCommands.deactivate, handle);
  }

  /** Drops all commands that have not been carried out. */
  clear() {
    this._words[0] = 0;
  }
}

/**
 * Writes `engine.dirtyEntities`, the handles of entities whose records script has changed. 49,152 bytes:
 *
 * | Offset | Type | |
 * |---|---|---|
 * | 0 | u32 | N, number of entries; at most 12,287 |
 * | 4 i, i from 1 to N | u32 | a handle; duplicates are allowed |
 *
 * What native code has left in the list stays there for the next refresh: append, and clear only to
 * take back what was listed.
 */
class DirtyListWriter {
  /** @param {{dirtyEntities: ArrayBuffer}} engine is kept alive by the writer */
  constructor(engine) {
    this.owner = engine;
    this._words = wordsOf('DirtyListWriter', engine, 'dirtyEntities', 'give an engine');
  }

  /** Entries in the list. */
  get count() {
    return this._words[0];
  }

  /** Entries that still fit. */
  get room() {
    return this._words.length - 1 - this._words[0];
  }

  /**
   * Lists one entity.
   * @param {number} handle
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
   * Lists entities, all or, where they do not fit, none.
   * @param {Uint32Array|number[]} handles
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
   * Lists the entities of a batch, or a part of it: handles that count up by one.
   * @param {number} first
   * @param {number} added how many
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
      const trouble = `${added} handles from ${first} go on behind the last one, ${kLargestU32}`;
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
      const trouble = `the first word is ${this.count}, no count of at most ${capacity} entries`;
      throw new RangeError(`${label}: ${trouble}: clear it.`);
    }
    const room = `the list has room for ${this.room} of its ${capacity}`;
    const cure = 'call refreshWorldTransform, which empties it, and go on';
    throw new RangeError(`${label}: ${added} entries do not fit, ${room}: ${cure}.`);
  }
}

/**
 * Where a value stands: a block that script shares with native code, by the memoryID of the object that
 * it came with, and an offset into it in bytes, of any alignment.
 * @typedef {{memoryID: number, offset: number}} Operand
 */

function failOperands(label, names, operands) {
  names.forEach((name, i) => {
    if (!isObject(operands[i])) {
      const cure = 'give { memoryID, offset }, or all operands as pairs of numbers';
      throw new TypeError(`${label}: operand ${name} is ${show(operands[i])}: ${cure}.`);
    }
  });
}

/** Throws for an operand with a part that is no word. */
function failReference(label, name, memoryID, offset) {
  if (memoryID >>> 0 !== memoryID) {
    failWord(label, `memoryID of operand ${name}`, memoryID);
  }
  failWord(label, `offset of operand ${name}`, offset);
}

/**
 * Writes the stream of a command buffer. Its `execute` reads it from the start, as often as it is
 * called; nothing but `reset` empties it.
 *
 * | Offset | Type | |
 * |---|---|---|
 * | 0 | u32 | bytes of commands |
 * | 4 | | commands: a type (i32) and its operand words, back to back |
 *
 * An operand is two words, memoryID and offset. Methods take their operands in the order of the stream,
 * each as one object, `scalarAdd(a, b, r)`, or all as pairs of numbers, `scalarAdd(aID, aOffset, bID,
 * bOffset, rID, rOffset)`. Neither form is kept. Each returns the offset of its command in the buffer, from
 * which an operand can be found again and written over.
 *
 * D is a destination, S a source, A and B are inputs, R is a result, which may be A or B.
 * Commands of two operands take 20 bytes, those of three take 28.
 */
class MatrixFlowWriter extends StreamWriter {
  /**
   * @param {{buffer: ArrayBuffer}} commandBuffer is kept alive by the writer
   * @param {{blockSizes: Map<number, number>}} [options] `blockSizes` gives bytes by memoryID; operands
   *   in those blocks are held against them, operands in others are not. It is looked into at each call,
   *   so blocks may come and go
   */
  constructor(commandBuffer, options = {}) {
    const label = 'MatrixFlowWriter';
    const cure = 'give what createMatrixFlowCommandBuffer made of a size that is not 0';
    const words = wordsOf(label, commandBuffer, 'buffer', cure);
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

  _checkBlock(name, operand, memoryID, offset, bytes) {
    const size = this._blockSizes.get(memoryID);
    if (size !== undefined && offset + bytes > size) {
      const value = `operand ${operand}: ${bytes} bytes at offset ${offset}`;
      const cure = bytes > size ? 'use a larger block' : `give an offset from 0 to ${size - bytes}`;
      throw new RangeError(
        `${this._label}.${name}: ${value} do not fit block ${memoryID} of ${size}: ${cure}.`
      );
    }
  }

  _two(name, type, bytes, names, first, second, third, fourth) {
    if (typeof first !== 'number') {
      if (!isObject(first) || !isObject(second)) {
        failOperands(`${this._label}.${name}`, names, [first, second]);
      }
      third = second.memoryID;
      fourth = second.offset;
      second = first.offset;
      first = first.memoryID;
    }
    this._checkTwo(name, bytes, names, first, second, third, fourth);
    const at = this._claim(name, 20);
    const words = this._words;
    words[at] = type;
    words[at + 1] = first;
    words[at + 2] = second;
    words[at + 3] = third;
    words[at + 4] = fourth;
    words[0] += 20;
    return at * kWordBytes;
  }

  _checkTwo(name, bytes, names, firstID, firstAt, secondID, secondAt) {
    if (firstID >>> 0 !== firstID || firstAt >>> 0 !== firstAt) {
      failReference(`${this._label}.${name}`, names[0], firstID, firstAt);
    }
    if (secondID >>> 0 !== secondID || secondAt >>> 0 !== secondAt) {
      failReference(`${this._label}.${name}`, names[1], secondID, secondAt);
    }
    if (this._blockSizes !== null) {
      this._checkBlock(name, names[0], firstID, firstAt, bytes);
      this._checkBlock(name, names[1], secondID, secondAt, bytes);
    }
  }

  // Small, so that it is compiled into its callers.
  _three(name, type, bytes, a, b, r, bAt, rID, rAt) {
    return typeof a === 'number'
      ? this._put(name, type, bytes, a, b, r, bAt, rID, rAt)
      : this._putObjects(name, type, bytes, a, b, r);
  }

  _putObjects(name, type, bytes, a, b, r) {
    if (!isObject(a) || !isObject(b) || !isObject(r)) {
      failOperands(`${this._label}.${name}`, ['A', 'B', 'R'], [a, b, r]);
    }
    const { memoryID: aID, offset: aAt } = a;
    const { memoryID: bID, offset: bAt } = b;
    return this._put(name, type, bytes, aID, aAt, bID, bAt, r.memoryID, r.offset);
  }

  _put(name, type, bytes, aID, aAt, bID, bAt, rID, rAt) {
    if (aID >>> 0 !== aID || aAt >>> 0 !== aAt) {
      failReference(`${this._label}.${name}`, 'A', aID, aAt);
    }
    if (bID >>> 0 !== bID || bAt >>> 0 !== bAt) {
      failReference(`${this._label}.${name}`, 'B', bID, bAt);
    }
    if (rID >>> 0 !== rID || rAt >>> 0 !== rAt) {
      failReference(`${this._label}.${name}`, 'R', rID, rAt);
    }
    if (this._blockSizes !== null) {
      this._checkBlock(name, 'A', aID, aAt, bytes);
      this._checkBlock(name, 'B', bID, bAt, bytes);
      this._checkBlock(name, 'R', rID, rAt, bytes);
    }
    const at = this._claim(name, 28);
    const words = this._words;
    words[at] = type;
    words[at + 1] = aID;
    words[at + 2] = aAt;
    words[at + 3] = bID;
    words[at + 4] = bAt;
    words[at + 5] = rID;
    words[at + 6] = rAt;
    words[0] += 28;
    return at * kWordBytes;
  }

  /**
   * 1, handle; 8 bytes. Runs another command buffer and, unless its result is 0, ends with that result.
   * Nothing stops buffers that call each other in a circle but the end of the stack, and the process.
   * @param {number} handle "id" of a command buffer
   * @returns {number}
   */
  call(handle) {
    return this._one('call', types.call, handle);
  }

  /**
   * 9000, N, D, S; 24 bytes. Moves 4 N bytes from S to D: `bulkCopy(n, d, s)`, or `bulkCopy(n, dID,
   * dOffset, sID, sOffset)`.
   * @param {number} count N, words
   * @param {Operand|number} d
   * @param {Operand|number} s
   * @param {number} [sID]
   * @param {number} [sAt]
   * @returns {number}
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
    words[at] = types.bulkCopy;
    words[at + 1] = count;
    words[at + 2] = dID;
    words[at + 3] = dAt;
    words[at + 4] = sID;
    words[at + 5] = sAt;
    words[0] += 24;
    return at * kWordBytes;
  }

  // Families of values. Two operands: Operand, Operand or four numbers; three: three or six.

  // Scalars: one float.

  /** 1000, D, S. D = S, 4 bytes. */
  scalarCopy(d, s, sID, sAt) {
    return this._two('scalarCopy', types.scalarCopy, kScalarBytes, copyNames, d, s, sID, sAt);
  }

  /** 1001, A, B, R. R = A + B. */
  scalarAdd(a, b, r, bAt, rID, rAt) {
    return this._three('scalarAdd', types.scalarAdd, kScalarBytes, a, b, r, bAt, rID, rAt);
  }

  /** 1002, A, B, R. R = A - B. */
  scalarSub(a, b, r, bAt, rID, rAt) {
    return this._three('scalarSub', types.scalarSub, kScalarBytes, a, b, r, bAt, rID, rAt);
  }

  /** 1003, A, B, R. R = A * B. */
  scalarMul(a, b, r, bAt, rID, rAt) {
    return this._three('scalarMul', types.scalarMul, kScalarBytes, a, b, r, bAt, rID, rAt);
  }

  /**
   * 1004, A, B, R. R = A / B. A divisor below the smallest normal float, any negative one
   * included, ends the run with result 5.
   */
  scalarDiv(a, b, r, bAt, rID, rAt) {
    return this._three('scalarDiv', types.scalarDiv, kScalarBytes, a, b, r, bAt, rID, rAt);
  }

  // Vectors of two floats.

  /**
   * 2000, D, S. D = S, 8 bytes. The engine proves 4 of them: blockSizes holds all 8 against the
   * block.
   */
  vector2Copy(d, s, sID, sAt) {
    return this._two('vector2Copy', types.vector2Copy, kVector2Bytes, copyNames, d, s, sID, sAt);
  }

  /** 2001, A, B, R. R = A + B by component. */
  vector2Add(a, b, r, bAt, rID, rAt) {
    return this._three('vector2Add', types.vector2Add, kVector2Bytes, a, b, r, bAt, rID, rAt);
  }

  /** 2002, A, B, R. R = A - B by component. */
  vector2Sub(a, b, r, bAt, rID, rAt) {
    return this._three('vector2Sub', types.vector2Sub, kVector2Bytes, a, b, r, bAt, rID, rAt);
  }

  /** 2003, A, B, R. R = A * B by component. */
  vector2Mul(a, b, r, bAt, rID, rAt) {
    return this._three('vector2Mul', types.vector2Mul, kVector2Bytes, a, b, r, bAt, rID, rAt);
  }

  /** 2004, A, B, R. R = A / B by component. Tests no divisor. */
  vector2Div(a, b, r, bAt, rID, rAt) {
    return this._three('vector2Div', types.vector2Div, kVector2Bytes, a, b, r, bAt, rID, rAt);
  }

  // Vectors of three floats.

  /**
   * 3000, D, S. D = S, 12 bytes. The engine proves 4 of them: blockSizes holds all 12 against the
   * block.
   */
  vector3Copy(d, s, sID, sAt) {
    return this._two('vector3Copy', types.vector3Copy, kVector3Bytes, copyNames, d, s, sID, sAt);
  }

  /** 3001, A, B, R. R = A + B by component. */
  vector3Add(a, b, r, bAt, rID, rAt) {
    return this._three('vector3Add', types.vector3Add, kVector3Bytes, a, b, r, bAt, rID, rAt);
  }

  /** 3002, A, B, R. R = A - B by component. */
  vector3Sub(a, b, r, bAt, rID, rAt) {
    return this._three('vector3Sub', types.vector3Sub, kVector3Bytes, a, b, r, bAt, rID, rAt);
  }

  /** 3003, A, B, R. R = A * B by component. */
  vector3Mul(a, b, r, bAt, rID, rAt) {
    return this._three('vector3Mul', types.vector3Mul, kVector3Bytes, a, b, r, bAt, rID, rAt);
  }

  /** 3004, A, B, R. R = A / B by component. Tests no divisor. */
  vector3Div(a, b, r, bAt, rID, rAt) {
    return this._three('vector3Div', types.vector3Div, kVector3Bytes, a, b, r, bAt, rID, rAt);
  }

  // Vectors of four floats.

  /** 4000, D, S. D = S, 16 bytes. */
  vector4Copy(d, s, sID, sAt) {
    return this._two('vector4Copy', types.vector4Copy, kVector4Bytes, copyNames, d, s, sID, sAt);
  }

  /** 4001, A, B, R. R = A + B by component. */
  vector4Add(a, b, r, bAt, rID, rAt) {
    return this._three('vector4Add', types.vector4Add, kVector4Bytes, a, b, r, bAt, rID, rAt);
  }

  /** 4002, A, B, R. R = A - B by component. */
  vector4Sub(a, b, r, bAt, rID, rAt) {
    return this._three('vector4Sub', types.vector4Sub, kVector4Bytes, a, b, r, bAt, rID, rAt);
  }

  /** 4003, A, B, R. R = A * B by component. */
  vector4Mul(a, b, r, bAt, rID, rAt) {
    return this._three('vector4Mul', types.vector4Mul, kVector4Bytes, a, b, r, bAt, rID, rAt);
  }

  /** 4004, A, B, R. R = A / B by component. Tests no divisor. */
  vector4Div(a, b, r, bAt, rID, rAt) {
    return this._three('vector4Div', types.vector4Div, kVector4Bytes, a, b, r, bAt, rID, rAt);
  }

  // 3x3 matrices: nine floats, column-major.

  /** 5000, D, S. D = S, 36 bytes. */
  matrix3Copy(d, s, sID, sAt) {
    return this._two('matrix3Copy', types.matrix3Copy, kMatrix3Bytes, copyNames, d, s, sID, sAt);
  }

  /** 5001, A, B, R. R = A + B by element. */
  matrix3Add(a, b, r, bAt, rID, rAt) {
    return this._three('matrix3Add', types.matrix3Add, kMatrix3Bytes, a, b, r, bAt, rID, rAt);
  }

  /** 5002, A, B, R. R = A - B by element. */
  matrix3Sub(a, b, r, bAt, rID, rAt) {
    return this._three('matrix3Sub', types.matrix3Sub, kMatrix3Bytes, a, b, r, bAt, rID, rAt);
  }

  /** 5003, A, B, R. R = A * B, the matrix product. */
  matrix3Mul(a, b, r, bAt, rID, rAt) {
    return this._three('matrix3Mul', types.matrix3Mul, kMatrix3Bytes, a, b, r, bAt, rID, rAt);
  }

  // 4x4 matrices: sixteen floats, column-major.

  /** 6000, D, S. D = S, 64 bytes. */
  matrix4Copy(d, s, sID, sAt) {
    return this._two('matrix4Copy', types.matrix4Copy, kMatrix4Bytes, copyNames, d, s, sID, sAt);
  }

  /** 6001, A, B, R. R = A + B by element. */
  matrix4Add(a, b, r, bAt, rID, rAt) {
    return this._three('matrix4Add', types.matrix4Add, kMatrix4Bytes, a, b, r, bAt, rID, rAt);
  }

  /** 6002, A, B, R. R = A - B by element. */
  matrix4Sub(a, b, r, bAt, rID, rAt) {
    return this._three('matrix4Sub', types.matrix4Sub, kMatrix4Bytes, a, b, r, bAt, rID, rAt);
  }

  /** 6003, A, B, R. R = A * B, the matrix product. */
  matrix4Mul(a, b, r, bAt, rID, rAt) {
    return this._three('matrix4Mul', types.matrix4Mul, kMatrix4Bytes, a, b, r, bAt, rID, rAt);
  }

  /** 6004, S, D: the source first. Kept on purpose: D = S, no inverse. */
  matrix4Invert(s, d, dID, dAt) {
    return this._two(
      'matrix4Invert',
      types.matrix4Invert,
      kMatrix4Bytes,
      invertNames,
      s,
      d,
      dID,
      dAt
    );
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
