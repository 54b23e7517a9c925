'use strict';
// Copies of the records from which local matrices were built: native code reads a record when its entity is
// listed, or when a player or a binding writes it. Comparing it with the copy shows what has changed since.
const { blockFloats, blockWords } = require('../block-bytes');
const { entity2D, entity3D, handles } = require('../layout');

const kByteMask = 0xff;

/** A word is a NaN if its bits, without the sign, are above those of infinity. */
const kMagnitudeMask = 0x7fffffff;
const kInfinityBits = 0x7f800000;

/** State bits of an element. */
const bits = Object.freeze({
  /** Native code has read its record. */
  read: 1,
  /** It is in the dirty list of this refresh. */
  listed: 2,
  /** A hint has reported that it is not listed. */
  stale: 4,
  /** `rest` holds its record from before the first player. */
  rest: 8,
});

/** Names of the floats of a record, by word; word 0 of a 3D record is its mode. */
const names3D = ['rotation mode'];
['x', 'y', 'z', 'w'].forEach((axis) => names3D.push(`rotation ${axis}`));
['position', 'scale'].forEach((field) =>
  ['x', 'y', 'z'].forEach((axis) => names3D.push(`${field} ${axis}`))
);
const names2D = ['rotation', 'position x', 'position y', 'scale x', 'scale y'];

const kRotationW = entity3D.rotation / 4 + 3;
const kLastAngle3D = entity3D.rotation / 4 + 2;

/** Words of a record, the words that JavaScript writes, and the last word of the world matrix. */
const shapes = {
  true: {
    stride: entity3D.size / 4,
    words: entity3D.worldMatrix / 4,
    corner: entity3D.worldMatrix / 4 + 15,
    names: names3D,
    position: entity3D.position / 4,
    scale: entity3D.scale / 4,
    axes: 3,
  },
  false: {
    stride: entity2D.size / 4,
    words: entity2D.worldMatrix / 4,
    corner: entity2D.worldMatrix / 4 + 8,
    names: names2D,
    position: entity2D.position / 4,
    scale: entity2D.scale / 4,
    axes: 2,
  },
};

/** Angles that are multiples of 15 from 30 to 720 are treated as degrees: radians are not that round. */
const kDegreeStep = 15;
const kLeastDegrees = 30;
const kMostDegrees = 720;

function isDegrees(value) {
  const size = Math.abs(value);
  return size >= kLeastDegrees && size <= kMostDegrees && size % kDegreeStep === 0;
}

/** The records of a batch of entities. */
class RecordTrack {
  constructor({ id, is3D, count, native }) {
    const { stride, words, corner, names } = shapes[is3D];
    this.id = id;
    this.is3D = is3D;
    this.shape = shapes[is3D];
    this.count = count;
    this.state = new Uint8Array(count);
    /** A refresh has run since the batch was created. */
    this.isRefreshed = false;
    this._stride = stride;
    this._size = words;
    this._corner = corner;
    this._names = names;
    this._words = blockWords(native);
    this._floats = blockFloats(native);
    this._read = new Uint32Array(count * words);
    this._readFloats = new Float32Array(this._read.buffer);
    this._rest = null;
    this._moves = null;
  }

  /** True if any byte that JavaScript writes differs from when native code last read it. */
  differs(i) {
    const { _words: words, _read: read, _size: size } = this;
    const from = i * this._stride;
    const to = i * size;
    for (let k = 0; k < size; ++k) {
      if (words[from + k] !== read[to + k]) {
        return true;
      }
    }
    return false;
  }

  /** Copies what native code has read. Returns true if it contains a NaN. */
  read(i) {
    const { _words: words, _read: read, _size: size } = this;
    const from = i * this._stride;
    const to = i * size;
    let hasNaN = false;
    for (let k = 0; k < size; ++k) {
      const word = words[from + k];
      read[to + k] = word;
      if ((word & kMagnitudeMask) > kInfinityBits) {
        hasNaN = true;
      }
    }
    this.state[i] |= bits.read;
    return hasNaN;
  }

  _isQuaternion(i) {
    return !this.is3D || (this._words[i * this._stride] & kByteMask) !== 0;
  }

  /** True for words that native code reads: not the fourth word of Euler angles. */
  _counts(i, k) {
    return !this.is3D || (k !== 0 && (k !== kRotationW || this._isQuaternion(i)));
  }

  /** Name of the first changed field that native code reads, or null. */
  changedField(i) {
    const from = i * this._stride;
    const to = i * this._size;
    if (this.is3D) {
      const before = (this._read[to] & kByteMask) !== 0;
      if (before !== this._isQuaternion(i)) {
        return this._names[0];
      }
    }
    for (let k = 0; k < this._size; ++k) {
      const [now, before] = [this._floats[from + k], this._readFloats[to + k]];
      const isSame = now === before || (Number.isNaN(now) && Number.isNaN(before));
      if (!isSame && this._counts(i, k)) {
        return this._names[k];
      }
    }
    return null;
  }

  /** Name of the first field that is NaN and is read, or null. */
  nanField(i) {
    const from = i * this._stride;
    for (let k = 0; k < this._size; ++k) {
      if (Number.isNaN(this._floats[from + k]) && this._counts(i, k)) {
        return this._names[k];
      }
    }
    return null;
  }

  /** Name and value of the first angle that changed to a value in degrees by a large step, or null. */
  degreesField(i) {
    const [first, last] = this.is3D ? [entity3D.rotation / 4, kLastAngle3D] : [0, 0];
    if (this.is3D && this._isQuaternion(i)) {
      return null;
    }
    for (let k = first; k <= last; ++k) {
      const value = this._floats[i * this._stride + k];
      const before = this._readFloats[i * this._size + k];
      // An angle that grows by small steps passes round numbers in radians, too.
      if (isDegrees(value) && Math.abs(value - before) >= kDegreeStep) {
        return { field: this._names[k], value };
      }
    }
    return null;
  }

  /** True if the world matrix is all zeros: never written, or computed from a parent without one. */
  isBlank(i) {
    const { _words: words, _corner: corner } = this;
    const at = i * this._stride;
    if (words[at + corner] !== 0) {
      return false;
    }
    for (let k = this._size; k < corner; ++k) {
      if (words[at + k] !== 0) {
        return false;
      }
    }
    return true;
  }

  /** True if JavaScript has written anything. */
  isWritten(i) {
    const at = i * this._stride;
    for (let k = 0; k < this._size; ++k) {
      if (this._words[at + k] !== 0) {
        return true;
      }
    }
    return false;
  }

  /** Counts changes of an element. */
  countMove(i) {
    if (this._moves === null) {
      this._moves = new Uint8Array(this.count);
    }
    this._moves[i] = Math.min(this._moves[i] + 1, kByteMask);
    return this._moves[i];
  }

  /** Copies the record before the first player writes it. */
  keepRest(i) {
    if ((this.state[i] & bits.rest) !== 0) {
      return;
    }
    if (this._rest === null) {
      this._rest = new Float32Array(this.count * this._size);
    }
    this.state[i] |= bits.rest;
    const from = i * this._stride;
    const to = i * this._size;
    for (let k = 0; k < this._size; ++k) {
      this._rest[to + k] = this._floats[from + k];
    }
    if (this.is3D) {
      this._rest[to] = this._isQuaternion(i) ? 1 : 0;
    }
  }

  /** Position (channels 0 to 2) or scale (3 to 5) of `keepRest`; NaN where there is none. */
  rest(i, channel) {
    const { axes, position, scale } = this.shape;
    if ((this.state[i] & bits.rest) === 0 || channel % 3 >= axes) {
      return NaN;
    }
    return this._rest[i * this._size + (channel < 3 ? position : scale) + (channel % 3)];
  }

  /** True if the rotation of `keepRest` is not the identity. */
  isTurnedAtRest(i) {
    if (!this.is3D || (this.state[i] & bits.rest) === 0) {
      return false;
    }
    const at = i * this._size;
    const [mode, x, y, z] = this._rest.subarray(at, at + 4);
    const length = Math.hypot(x, y, z);
    const w = mode === 0 ? 1 : this._rest[at + kRotationW];
    return length > 1e-3 * Math.abs(w);
  }
}

/** Tracks of all batches, found by handle. */
class Records {
  constructor(registry) {
    this._registry = registry;
    this._tracks = new WeakMap();
    this._entry = undefined;
    this._track = null;
    /** Element of the handle that was last passed to `find`. */
    this.element = 0;
  }

  of(entry) {
    let track = this._tracks.get(entry);
    if (track === undefined) {
      track = new RecordTrack(entry);
      this._tracks.set(entry, track);
    }
    return track;
  }

  /** Track of the batch of a handle, or null for an unknown handle. */
  find(handle) {
    const element = handle & handles.elementMask;
    const entry = this._entry;
    if (entry === undefined || !entry.live || (handle ^ entry.id) >>> handles.elementBits !== 0) {
      const found = this._registry.find('entity', handle);
      if (found === undefined) {
        return null;
      }
      this._entry = found;
      this._track = this.of(found);
    } else if (element >= entry.count) {
      return null;
    }
    this.element = element;
    return this._track;
  }
}

module.exports = { Records, bits, isDegrees };
