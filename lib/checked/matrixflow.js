'use strict';
// A dry run of a command buffer. Commands may overwrite later ones, so inspecting the stream is not enough: the
// dry run executes all of them on copies of the blocks that they write, and throws for those that native code
// would let access memory past a block. Where native code stops with a result code, it stops, too, and leaves
// the report to that code.
const { blockBytes, dataViewOf } = require('../block-bytes');
const { matrixFlowTable } = require('../command-tables');
const { matrixFlowCommands: types } = require('../layout');
const { copyOfBytes } = require('./arguments');

const kCall = 'execute';
const kWordBytes = 4;
const kLargestLength = 0x7ffffffb;
const kLargestBulk = 0x3fffffff;
const kLeastDivisor = 2 ** -126;

/** Largest number of nested runs. Each takes some 300 bytes of the stack, which has 4 MB in a worker. */
const kLargestDepth = 10000;

const { fround } = Math;

/** The product of two matrices of n rows. */
function multiply(a, b, n) {
  const out = new Array(n * n);
  for (let column = 0; column < n; ++column) {
    for (let row = 0; row < n; ++row) {
      let sum = fround(a[row] * b[n * column]);
      for (let k = 1; k < n; ++k) {
        sum = fround(sum + fround(a[n * k + row] * b[n * column + k]));
      }
      out[n * column + row] = sum;
    }
  }
  return out;
}

/** Ends a dry run where native code ends with a result code. */
const kStopped = Symbol('stopped');

/** Handles on the cycle from a buffer to itself; of many, the first and the last. */
function showCycle(ids) {
  const shown = ids.length > 9 ? [...ids.slice(0, 4), '…', ...ids.slice(-4)] : ids;
  return shown.join(' > ');
}

class DryRun {
  constructor({ registry, engine }) {
    this._registry = registry;
    this._shared = [engine.dirtyEntities, engine.entityCommands];
    /** Copies of blocks that were written, by memoryID. */
    this._copies = new Map();
    /** Entries whose runs have not ended, each called by the previous one. */
    this._running = new Set();
  }

  /** The block of a memoryID, or undefined. */
  _block(label, memoryID) {
    const copy = this._copies.get(memoryID);
    if (copy !== undefined) {
      return copy;
    }
    if (memoryID < this._shared.length) {
      const { buffer, byteOffset, byteLength } = blockBytes(this._shared[memoryID]);
      return new DataView(buffer, byteOffset, byteLength);
    }
    const owner = this._registry.ownerOf(memoryID);
    if (owner === undefined) {
      return undefined;
    }
    if (!owner.live) {
      const trouble = `the object of block ${memoryID} was collected`;
      throw new RangeError(`${label}: ${trouble}: keep it as long as commands name its memoryID.`);
    }
    return dataViewOf(owner.native);
  }

  /** The copy of a block to write into. */
  _copyOf(label, memoryID) {
    if (!this._copies.has(memoryID)) {
      const { buffer, byteOffset, byteLength } = this._block(label, memoryID);
      const bytes = new Uint8Array(buffer, byteOffset, byteLength);
      this._copies.set(memoryID, new DataView(copyOfBytes(bytes)));
    }
    return this._copies.get(memoryID);
  }

  /** Executes the buffer of an entry and all that it calls, up to where native code ends. */
  run(entry) {
    const runs = [this._begin(kCall, entry)];
    while (runs.length !== 0) {
      const run = runs[runs.length - 1];
      if (run.at >= run.end) {
        this._running.delete(run.entry);
        runs.pop();
        continue;
      }
      const callee = this._command(run);
      if (callee === kStopped) {
        return;
      }
      if (callee !== undefined) {
        runs.push(callee);
      }
    }
  }

  /** A run at its first command: where the next one is, and where the stream ends. */
  _begin(label, entry) {
    if (this._running.has(entry)) {
      const chain = [...this._running, entry].map(({ id }) => id);
      const from = chain.indexOf(entry.id);
      const cycle = showCycle(chain.slice(from));
      const trouble = `command buffers call each other in a cycle, ${cycle}`;
      throw new RangeError(`${label}: ${trouble}: don't call a buffer from its own run.`);
    }
    if (this._running.size === kLargestDepth) {
      const trouble = `${kLargestDepth} command buffers call each other in a chain`;
      throw new RangeError(`${label}: ${trouble}: execute parts of it separately.`);
    }
    const end = kWordBytes + this._length(label, entry);
    this._running.add(entry);
    return { entry, at: kWordBytes, end };
  }

  _length(label, entry) {
    const view = this._block(label, entry.memoryID);
    const size = view.byteLength;
    const name = `command buffer ${entry.id} of ${size} bytes`;
    if (size < kWordBytes) {
      const trouble = `${name} has no room for the length word`;
      throw new RangeError(
        `${label}: ${trouble}: create it with 4 bytes plus those of the commands.`
      );
    }
    const length = view.getUint32(0, true);
    const room = Math.min(size - kWordBytes, kLargestLength);
    if (length > room || length % kWordBytes !== 0) {
      const trouble = length > room ? `beyond the ${room} bytes after it` : 'no multiple of 4';
      const found = `the length word of ${name} is ${length}, ${trouble}`;
      throw new RangeError(`${label}: ${found}: write the stream by a MatrixFlowWriter.`);
    }
    return length;
  }

  /**
   * Executes the next command of a run.
   * @returns {?Object|symbol} the run that it calls, undefined if it calls none, or kStopped
   */
  _command(run) {
    const { entry, at, end } = run;
    const view = this._block(kCall, entry.memoryID);
    const type = view.getInt32(at, true);
    const shape = matrixFlowTable.get(type);
    const first = at + kWordBytes;
    const label = (name) => `${kCall}: command buffer ${entry.id} at byte ${at}, ${name}`;
    const word = (i) => view.getUint32(first + kWordBytes * i, true);
    if (shape === undefined) {
      return kStopped;
    }
    const next = first + kWordBytes * shape.words;
    if (next > end) {
      return kStopped;
    }
    run.at = next;
    if (type === types.call) {
      const callee = this._registry.find('commandBuffer', word(0));
      return callee === undefined ? kStopped : this._begin(label('call'), callee);
    }
    let done;
    if (type === types.bulkCopy) {
      done = this._bulkCopy(label('bulkCopy'), word);
    } else if (shape.operands.length === 2) {
      done = this._copy(label(shape.name), shape, word);
    } else {
      done = this._compute(label(shape.name), shape, word);
    }
    return done ? undefined : kStopped;
  }

  /**
   * An operand, or null where native code ends with a result.
   * @param {string} name as in the table of commands
   */
  _operand(label, name, memoryID, offset, bytes, checkedBytes) {
    const view = this._block(label, memoryID);
    if (view === undefined) {
      return null;
    }
    const size = view.byteLength;
    // The sum wraps at 32 bits, as it does natively.
    if ((offset + checkedBytes) >>> 0 > size) {
      return null;
    }
    if (offset + bytes > size) {
      const trouble = `operand ${name}, ${bytes} bytes at offset ${offset}, ends beyond block`;
      const found = `${trouble} ${memoryID} of ${size}, and native code does not check that`;
      const cure = bytes > size ? 'use a larger block' : `give an offset up to ${size - bytes}`;
      throw new RangeError(`${label}: ${found}: ${cure}.`);
    }
    return { memoryID, offset, view };
  }

  /** All operands of a command, or null. */
  _operands(label, names, word, bytes, checkedBytes) {
    const operands = [];
    for (let i = 0; i < names.length; ++i) {
      const [memoryID, offset] = [word(2 * i), word(2 * i + 1)];
      const operand = this._operand(label, names[i], memoryID, offset, bytes, checkedBytes);
      if (operand === null) {
        return null;
      }
      operands.push(operand);
    }
    return operands;
  }

  _move(label, from, to, bytes) {
    const { buffer, byteOffset } = from.view;
    const source = new Uint8Array(buffer, byteOffset + from.offset, bytes).slice();
    const target = this._copyOf(label, to.memoryID);
    new Uint8Array(target.buffer, to.offset, bytes).set(source);
    return true;
  }

  _bulkCopy(label, word) {
    const count = word(0);
    if (count > kLargestBulk) {
      const trouble = `N is ${count}, and the count of bytes wraps`;
      throw new RangeError(`${label}: ${trouble}: give at most ${kLargestBulk} words.`);
    }
    const bytes = kWordBytes * count;
    const operands = this._operands(label, ['D', 'S'], (i) => word(i + 1), bytes, bytes);
    return operands !== null && this._move(label, operands[1], operands[0], bytes);
  }

  _copy(label, { operands: names, bytes, checkedBytes }, word) {
    const operands = this._operands(label, names, word, bytes, checkedBytes);
    if (operands === null) {
      return false;
    }
    const [to, from] = names[0] === 'D' ? operands : [operands[1], operands[0]];
    return this._move(label, from, to, bytes);
  }

  _compute(label, { name, operands: names, bytes, compute, rows }, word) {
    const operands = this._operands(label, names, word, bytes, bytes);
    if (operands === null) {
      return false;
    }
    const [a, b] = operands.map(({ view, offset }) => {
      const values = [];
      for (let i = 0; i < bytes; i += kWordBytes) {
        values.push(view.getFloat32(offset + i, true));
      }
      return values;
    });
    if (name === 'scalarDiv' && b[0] < kLeastDivisor) {
      return false;
    }
    const result =
      rows === undefined ? a.map((value, i) => compute(value, b[i])) : multiply(a, b, rows);
    const target = this._copyOf(label, operands[2].memoryID);
    result.forEach((value, i) => {
      target.setFloat32(operands[2].offset + kWordBytes * i, value, true);
    });
    return true;
  }
}

/** Checks and executes `execute`. */
function execute(state, entry) {
  new DryRun(state).run(entry);
  return entry.native.execute();
}

module.exports = { execute };
