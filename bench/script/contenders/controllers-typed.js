'use strict';
// Hand-optimised layers in plain JavaScript, fused: one loop goes from the keys of all layers to local matrices, in
// local variables. A key's values and tangents of all channels form a row of doubles, one search and one set of weights
// serve all channels of a clip, the reference pose is subtracted from the additive clip's keys beforehand, and bones
// are ordered parents first.
//
// Indices are sums of multiples of loop counters and of a 16-bit row number: the compiler knows their ranges, and
// omits the checks for overflow, and most of those for the length. Nothing is looked up in the loops over bones.
// Quaternions are not normalised; the matrix is divided by their squared length instead, which needs no square root.
//
// Loops and products are duplicated in all contenders of plain JavaScript on purpose: a shared function would see all
// their arrays, become polymorphic, and be optimised worse.
const {
  bones,
  channelCount,
  clipFrames,
  framesPerSecond,
  keyCount,
} = require('../lib/animation-scene');
const { aim, isMasked, run, walk } = require('../lib/controllers-scene');

/** Numbers of a row of keys: value and tangent of each channel, so that a bone's rotation fills a cache line. */
const rowStride = 2 * channelCount;

/** Numbers of an affine matrix without its last row, column-major. */
const affine = 12;
const characterStride = affine * bones;

/** Index of the hips' position in a row. */
const hipsAt = 2 * 4 * bones;

/** The rows of a clip's keys. */
function createRows({ values, tangents }) {
  const rows = new Float64Array(keyCount * rowStride);
  for (let i = 0; i < keyCount * channelCount; ++i) {
    rows[2 * i] = values[i];
    rows[2 * i + 1] = tangents[i];
  }
  return rows;
}

/** Rotations relative to those at the start, q conj(r): the product is linear in keys and tangents. */
function relativeClip({ values, tangents }) {
  const relative = (rows) => {
    const out = rows.slice();
    for (let at = 0; at < rows.length; at += channelCount) {
      for (let k = 0; k < 4 * bones; k += 4) {
        const [x, y, z, w] = rows.subarray(at + k, at + k + 4);
        const [rx, ry, rz, rw] = values.subarray(k, k + 4);
        out[at + k] = -w * rx + x * rw - y * rz + z * ry;
        out[at + k + 1] = -w * ry + y * rw - z * rx + x * rz;
        out[at + k + 2] = -w * rz + z * rw - x * ry + y * rx;
        out[at + k + 3] = w * rw + x * rx + y * ry + z * rz;
      }
    }
    return out;
  };
  return { values: relative(values), tangents: relative(tangents) };
}

/**
 * The contender.
 * @param {import('../lib/controllers-scene').ControllerScene} scene
 */
function createControllersTyped(scene) {
  const { characters, sets } = scene;
  const a = createRows(scene.clips[walk]);
  const b = createRows(scene.clips[run]);
  const d = createRows(relativeClip(scene.clips[aim]));
  const frames = Float64Array.from({ length: keyCount }, (_, key) => key);
  const reached = Uint8Array.from({ length: bones }, (_, bone) => (isMasked(bone) ? 0 : 1));
  const parents = Int32Array.from(scene.parents, (parent) => affine * parent);
  const scales = Float64Array.from(scene.scales);
  const holders = new Float32Array(affine * characters);
  const locals = new Float32Array(characterStride * characters);
  const worlds = new Float32Array(characterStride * characters);
  for (let c = 0; c < characters; ++c) {
    holders.set([1, 0, 0, 0, 1, 0, 0, 0, 1], affine * c);
    holders.set(scene.places.subarray(3 * c, 3 * c + 3), affine * c + 9);
    for (let bone = 0; bone < bones; ++bone) {
      const position = scene.offsets.subarray(3 * bone, 3 * bone + 3);
      locals.set(position, characterStride * c + affine * bone + 9);
    }
  }

  // Results of the search: weights of the values and tangents of two rows, and the number of the first.
  const found = new Float64Array(4);
  const foundRow = new Uint16Array(1);

  function findRows(moment) {
    const time = moment < clipFrames ? moment : moment % clipFrames;
    // Keys are mostly evenly spaced.
    let key = Math.ceil(time);
    if (!(key > 0 && key < keyCount && frames[key - 1] < time && frames[key] >= time)) {
      for (key = 1; key < keyCount - 1 && frames[key] < time; ++key);
    }
    const start = frames[key - 1];
    const span = frames[key] - start;
    const s = (time - start) / span;
    const seconds = span / framesPerSecond;
    const s2 = s * s;
    const s3 = s2 * s;
    found[0] = 2 * s3 - 3 * s2 + 1;
    found[1] = (s3 - 2 * s2 + s) * seconds;
    found[2] = 3 * s2 - 2 * s3;
    found[3] = (s3 - s2) * seconds;
    foundRow[0] = key - 1;
  }

  // `m` is the index of the matrix in `locals`, `t` of the bone in `scales`, and `f` 2 / the quaternion's length squared.
  function buildLocal(m, t, x, y, z, w, f) {
    const x2 = x * f;
    const y2 = y * f;
    const z2 = z * f;
    const xx = x * x2;
    const xy = x * y2;
    const xz = x * z2;
    const yy = y * y2;
    const yz = y * z2;
    const zz = z * z2;
    const wx = w * x2;
    const wy = w * y2;
    const wz = w * z2;
    const sx = scales[t];
    const sy = scales[t + 1];
    const sz = scales[t + 2];
    locals[m] = sx * (1 - (yy + zz));
    locals[m + 1] = sx * (xy + wz);
    locals[m + 2] = sx * (xz - wy);
    locals[m + 3] = sy * (xy - wz);
    locals[m + 4] = sy * (1 - (xx + zz));
    locals[m + 5] = sy * (yz + wx);
    locals[m + 6] = sz * (xz + wy);
    locals[m + 7] = sz * (yz - wx);
    locals[m + 8] = sz * (1 - (xx + yy));
  }

  // Weights of states are multiplied into those of keys.
  function crossfade(set) {
    const { times, running } = sets[set];
    for (let c = 0; c < characters; ++c) {
      const share = running[c];
      const rest = 1 - share;
      findRows(times[3 * c]);
      const v0 = rest * found[0];
      const v1 = rest * found[1];
      const v2 = rest * found[2];
      const v3 = rest * found[3];
      const first = foundRow[0] * rowStride;
      findRows(times[3 * c + 1]);
      const w0 = share * found[0];
      const w1 = share * found[1];
      const w2 = share * found[2];
      const w3 = share * found[3];
      const second = foundRow[0] * rowStride;
      const own = c * characterStride;
      for (let i = 0; i < 3; ++i) {
        const k = first + hipsAt + 2 * i;
        const l = second + hipsAt + 2 * i;
        locals[own + 9 + i] =
          a[k] * v0 +
          a[k + 1] * v1 +
          a[k + rowStride] * v2 +
          a[k + rowStride + 1] * v3 +
          (b[l] * w0 + b[l + 1] * w1 + b[l + rowStride] * w2 + b[l + rowStride + 1] * w3);
      }
      for (let bone = 0; bone < bones; ++bone) {
        const p = first + 8 * bone;
        const q = second + 8 * bone;
        const p1 = p + rowStride;
        const q1 = q + rowStride;
        let x = a[p] * v0 + a[p + 1] * v1 + a[p1] * v2 + a[p1 + 1] * v3;
        let y = a[p + 2] * v0 + a[p + 3] * v1 + a[p1 + 2] * v2 + a[p1 + 3] * v3;
        let z = a[p + 4] * v0 + a[p + 5] * v1 + a[p1 + 4] * v2 + a[p1 + 5] * v3;
        let w = a[p + 6] * v0 + a[p + 7] * v1 + a[p1 + 6] * v2 + a[p1 + 7] * v3;
        const bx = b[q] * w0 + b[q + 1] * w1 + b[q1] * w2 + b[q1 + 1] * w3;
        const by = b[q + 2] * w0 + b[q + 3] * w1 + b[q1 + 2] * w2 + b[q1 + 3] * w3;
        const bz = b[q + 4] * w0 + b[q + 5] * w1 + b[q1 + 4] * w2 + b[q1 + 5] * w3;
        const bw = b[q + 6] * w0 + b[q + 7] * w1 + b[q1 + 6] * w2 + b[q1 + 7] * w3;
        if (x * bx + y * by + z * bz + w * bw < 0) {
          x -= bx;
          y -= by;
          z -= bz;
          w -= bw;
        } else {
          x += bx;
          y += by;
          z += bz;
          w += bw;
        }
        buildLocal(own + affine * bone, 3 * bone, x, y, z, w, 2 / (x * x + y * y + z * z + w * w));
      }
    }
  }

  function layers(set) {
    const { times, running, aiming } = sets[set];
    for (let c = 0; c < characters; ++c) {
      const share = running[c];
      const rest = 1 - share;
      const added = aiming[c];
      findRows(times[3 * c]);
      const v0 = rest * found[0];
      const v1 = rest * found[1];
      const v2 = rest * found[2];
      const v3 = rest * found[3];
      const first = foundRow[0] * rowStride;
      findRows(times[3 * c + 1]);
      const w0 = share * found[0];
      const w1 = share * found[1];
      const w2 = share * found[2];
      const w3 = share * found[3];
      const second = foundRow[0] * rowStride;
      findRows(times[3 * c + 2]);
      const u0 = found[0];
      const u1 = found[1];
      const u2 = found[2];
      const u3 = found[3];
      const third = foundRow[0] * rowStride;
      const own = c * characterStride;
      for (let i = 0; i < 3; ++i) {
        const k = first + hipsAt + 2 * i;
        const l = second + hipsAt + 2 * i;
        locals[own + 9 + i] =
          a[k] * v0 +
          a[k + 1] * v1 +
          a[k + rowStride] * v2 +
          a[k + rowStride + 1] * v3 +
          (b[l] * w0 + b[l + 1] * w1 + b[l + rowStride] * w2 + b[l + rowStride + 1] * w3);
      }
      for (let bone = 0; bone < bones; ++bone) {
        const p = first + 8 * bone;
        const q = second + 8 * bone;
        const p1 = p + rowStride;
        const q1 = q + rowStride;
        let x = a[p] * v0 + a[p + 1] * v1 + a[p1] * v2 + a[p1 + 1] * v3;
        let y = a[p + 2] * v0 + a[p + 3] * v1 + a[p1 + 2] * v2 + a[p1 + 3] * v3;
        let z = a[p + 4] * v0 + a[p + 5] * v1 + a[p1 + 4] * v2 + a[p1 + 5] * v3;
        let w = a[p + 6] * v0 + a[p + 7] * v1 + a[p1 + 6] * v2 + a[p1 + 7] * v3;
        const bx = b[q] * w0 + b[q + 1] * w1 + b[q1] * w2 + b[q1 + 1] * w3;
        const by = b[q + 2] * w0 + b[q + 3] * w1 + b[q1 + 2] * w2 + b[q1 + 3] * w3;
        const bz = b[q + 4] * w0 + b[q + 5] * w1 + b[q1 + 4] * w2 + b[q1 + 5] * w3;
        const bw = b[q + 6] * w0 + b[q + 7] * w1 + b[q1 + 6] * w2 + b[q1 + 7] * w3;
        if (x * bx + y * by + z * bz + w * bw < 0) {
          x -= bx;
          y -= by;
          z -= bz;
          w -= bw;
        } else {
          x += bx;
          y += by;
          z += bz;
          w += bw;
        }
        if (reached[bone] !== 0) {
          const o = third + 8 * bone;
          const o1 = o + rowStride;
          const dx = added * (d[o] * u0 + d[o + 1] * u1 + d[o1] * u2 + d[o1 + 1] * u3);
          const dy = added * (d[o + 2] * u0 + d[o + 3] * u1 + d[o1 + 2] * u2 + d[o1 + 3] * u3);
          const dz = added * (d[o + 4] * u0 + d[o + 5] * u1 + d[o1 + 4] * u2 + d[o1 + 5] * u3);
          const dw = d[o + 6] * u0 + d[o + 7] * u1 + d[o1 + 6] * u2 + d[o1 + 7] * u3;
          const bxw = x;
          const byw = y;
          const bzw = z;
          x = dw * bxw + dx * w + dy * bzw - dz * byw;
          y = dw * byw + dy * w + dz * bxw - dx * bzw;
          z = dw * bzw + dz * w + dx * byw - dy * bxw;
          w = dw * w - dx * bxw - dy * byw - dz * bzw;
        }
        buildLocal(own + affine * bone, 3 * bone, x, y, z, w, 2 / (x * x + y * y + z * z + w * w));
      }
    }
  }

  // worlds[m] = a[i] x locals[m]
  function updateWorld(m, a, i) {
    for (let k = m; k < m + affine; k += 3) {
      const x = locals[k];
      const y = locals[k + 1];
      const z = locals[k + 2];
      worlds[k] = a[i] * x + a[i + 3] * y + a[i + 6] * z;
      worlds[k + 1] = a[i + 1] * x + a[i + 4] * y + a[i + 7] * z;
      worlds[k + 2] = a[i + 2] * x + a[i + 5] * y + a[i + 8] * z;
    }
    worlds[m + 9] += a[i + 9];
    worlds[m + 10] += a[i + 10];
    worlds[m + 11] += a[i + 11];
  }

  function refresh() {
    for (let c = 0; c < characters; ++c) {
      const first = c * characterStride;
      updateWorld(first, holders, c * affine);
      for (let bone = 1; bone < bones; ++bone) {
        updateWorld(first + bone * affine, worlds, first + parents[bone]);
      }
    }
  }

  return {
    name: 'typed',
    crossfade,
    layers,
    refresh,

    worlds(out) {
      for (let at = 0, m = 0; m < worlds.length; m += affine) {
        for (let column = 0; column < 4; ++column, at += 4) {
          out.set(worlds.subarray(m + 3 * column, m + 3 * column + 3), at);
          out[at + 3] = column === 3 ? 1 : 0;
        }
      }
    },
  };
}

module.exports = { createControllersTyped };
