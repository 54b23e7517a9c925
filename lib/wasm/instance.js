'use strict';
// One instance of the WebAssembly module: its memory, calls into it, what it writes, and its end.
//
// A call that ends the process natively ends the instance: it throws, and so do all later calls.

const { bytesOf } = require('./block');

const kPageBytes = 65536;
const kDone = 0;
const kBadDescriptor = 8;
const kOutput = 1;
const kErrors = 2;
const kCharacterDevice = 2;
const kVectorBytes = 8;

/** Bytes that creating an object leaves free: for chunks of small blocks, and for what frames need. */
const kReserveBytes = 1 << 16;

/** Arguments of at most so many bytes are copied as a whole. */
const kCopiedBytes = 1 << 16;

/** Initial bytes of the memory for arguments. */
const kScratchBytes = 4096;

/** Numbers of a call of culling. */
const kCameraNumbers = 15;

/** Code of errors where the memory is full. */
const kMemoryCode = 'ERR_NQ_MEMORY';

/** Releases what a collected object held, unless its instance was collected with it. */
function releaseCollected({ weak, kind, handle }) {
  const instance = weak.deref();
  if (instance === undefined) {
    return;
  }
  // An error here would be nobody's: the next call reports it.
  try {
    instance.release(kind, handle);
  } catch (error) {
    instance.end = instance.end || error.message;
  }
}

/**
 * One for all instances, which is never collected: V8 stops calling back for all registries of the process when one is
 * collected whose callbacks are due. Null on hosts without registries.
 */
const registry =
  typeof FinalizationRegistry === 'function' ? new FinalizationRegistry(releaseCollected) : null;

/** Decodes text of native code, which is UTF-8. */
const decoder = new TextDecoder();

const megabytes = (bytes) => `${Math.round((bytes / (1 << 20)) * 10) / 10} MiB`;

class Instance {
  /**
   * @param {WebAssembly.Memory} memory
   * @param {(text: string) => void} log takes what the engine logs
   */
  constructor(memory, log) {
    this.memory = memory;
    this.buffer = memory.buffer;
    this.u8 = new Uint8Array(memory.buffer);
    this.u32 = new Uint32Array(memory.buffer);
    /** Why no more calls are possible, or null. */
    this.end = null;
    /** Address and length of the last argument that was passed to `take`. */
    this.address = 0;
    this.length = 0;
    this._log = log;
    this._output = '';
    this._errors = '';
    this._lastLine = '';
    this._scratch = 0;
    this._scratchBytes = 0;
    /** For held values of the registry. */
    this._weak = registry === null ? null : new WeakRef(this);
  }

  /** What the module imports. */
  imports() {
    const write = (file, vectors, count, result) => this._write(file, vectors, count, result);
    return {
      env: { memory: this.memory },
      nq: {
        outOfMemory: (bytes) => {
          throw this._memoryError('', bytes >>> 0);
        },
      },
      wasi_snapshot_preview1: {
        fd_write: write,
        // Files other than the two streams don't exist, and these are not closed.
        fd_close: () => kBadDescriptor,
        fd_seek: () => kBadDescriptor,
        fd_fdstat_get: (file, result) => {
          this.u8.fill(0, result, result + 24);
          this.u8[result] = kCharacterDevice;
          return kDone;
        },
      },
    };
  }

  /** @param {Object} exports of the instance */
  start(exports) {
    this.exports = exports;
    exports._initialize();
    /** Word index of the record of created objects. */
    this.created = exports.nqStart() / 4;
    this.culled = exports.nqCulled() / 4;
    const camera = exports.nqAllocate(4 * kCameraNumbers);
    this.cameraAddress = camera;
    /** Numbers of a camera, for culling. */
    this.camera = new Float32Array(this.buffer, camera, kCameraNumbers);
    this._growScratch(kScratchBytes);
  }

  /** The word at `index` of the record that starts at word `record`. */
  word(record, index) {
    return this.u32[record + index];
  }

  /**
   * Calls a function of the module.
   * @param {string} method for messages
   * @param {Function} run the function
   */
  call(method, run, a, b, c, d, e, f, g, h) {
    if (this.end !== null) {
      this.fail(method);
    }
    try {
      return run(a, b, c, d, e, f, g, h);
    } catch (error) {
      return this._end(method, error);
    } finally {
      if (this._output !== '') {
        this._flush();
      }
    }
  }

  /** Throws the reason why no call is possible. */
  fail(method) {
    throw new Error(`${method}: ${this.end}`);
  }

  /**
   * Ends the instance where the process would end.
   * @param {string} method
   * @param {string} reason
   */
  die(method, reason) {
    if (this.end === null) {
      this.end = `the engine has ended: ${reason}. Create another one.`;
    }
    this.fail(method);
  }

  /** Throws if so many bytes can't be allocated, before anything is changed. */
  reserve(method, bytes) {
    if (this.end !== null) {
      this.fail(method);
    }
    const isPossible = bytes < this.buffer.byteLength;
    if (!isPossible || !this.exports.nqHasRoom(kReserveBytes, bytes)) {
      throw this._memoryError(`${method}: `, bytes);
    }
  }

  /**
   * Places the bytes of an argument in the memory, unless they are there: sets `address` and `length`.
   * @param {string} method
   * @param {ArrayBuffer | ArrayBufferView | Block} value
   * @param {number} [most] bytes that are read
   */
  take(method, value, most = Infinity) {
    const bytes = bytesOf(value);
    const { byteLength } = bytes;
    this.length = byteLength;
    if (bytes.buffer === this.buffer) {
      this.address = bytes.byteOffset;
      return;
    }
    // Copying all of a small one allocates nothing, unlike a subarray.
    const count = byteLength <= kCopiedBytes ? byteLength : Math.min(byteLength, most);
    if (count > this._scratchBytes) {
      this.reserve(method, count);
      this._growScratch(count);
    }
    this.address = this._scratch;
    if (count === byteLength) {
      this.u8.set(bytes, this._scratch);
    } else {
      this.u8.set(bytes.subarray(0, count), this._scratch);
    }
  }

  /** The first word of an argument, or 0. */
  firstWord(value) {
    const bytes = bytesOf(value);
    return bytes.length < 4
      ? 0
      : (bytes[0] | (bytes[1] << 8) | (bytes[2] << 16) | (bytes[3] << 24)) >>> 0;
  }

  /** Lets `object` release `handle` when it is garbage-collected. */
  track(object, kind, handle) {
    if (registry !== null) {
      registry.register(object, { weak: this._weak, kind, handle }, object);
    }
  }

  untrack(object) {
    if (registry !== null) {
      registry.unregister(object);
    }
  }

  release(kind, handle) {
    if (this.end === null) {
      this.call('release', this.exports.nqRelease, kind, handle);
    }
  }

  /** Drops the memory. */
  dispose() {
    this.end = 'the engine was disposed of. Create another one.';
    this.exports = null;
    this.memory = null;
  }

  _growScratch(bytes) {
    const { exports } = this;
    if (this._scratch !== 0) {
      exports.nqFree(this._scratch);
    }
    this._scratchBytes = 0;
    this._scratch = exports.nqAllocate(bytes) >>> 0;
    this._scratchBytes = bytes;
  }

  _write(file, vectors, count, result) {
    if (file !== kOutput && file !== kErrors) {
      return kBadDescriptor;
    }
    let written = 0;
    for (let i = 0; i < count; ++i) {
      const at = (vectors + i * kVectorBytes) / 4;
      const address = this.u32[at];
      const length = this.u32[at + 1];
      const text = decoder.decode(this.u8.slice(address, address + length));
      if (file === kOutput) {
        this._output += text;
      } else {
        this._errors += text;
      }
      written += length;
    }
    this.u32[result / 4] = written;
    return kDone;
  }

  _flush() {
    const text = this._output;
    this._output = '';
    this._lastLine = text;
    this._log(text);
  }

  _memoryError(start, bytes) {
    const size = megabytes(this.buffer.byteLength);
    const cure = "create the engine with a larger one, by the option 'memory' in bytes";
    const found = `the memory of ${size} is full: ${bytes} bytes do not fit`;
    const error = new RangeError(`${start}${found}. Drop objects, or ${cure}.`);
    return Object.assign(error, { code: kMemoryCode });
  }

  _end(method, error) {
    const report = this._errors.trim();
    // The text of a fatal message precedes its assertion, which may be only "0".
    const line = /\[NQ_FATAL\]\[\w+\]: (.*)\n$/m.exec(this._output);
    const reason = [
      ...(line === null ? [] : [line[1]]),
      report !== ''
        ? report
        : error.code === kMemoryCode
        ? error.message
        : `a fault: ${error.message}`,
    ].join(': ');
    return this.die(method, reason.replace(/[.]$/, ''));
  }
}

/** Rounds a size of memory up to whole pages. */
function pagesOf(bytes) {
  return Math.ceil(bytes / kPageBytes);
}

module.exports = { Instance, pagesOf };
