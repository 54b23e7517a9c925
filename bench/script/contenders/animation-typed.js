'use strict';
// Hand-optimised animation in plain JavaScript: keys in flat arrays, both ends of a segment adjacent, one search and
// one set of weights for all channels of a clip, bones ordered parents first, and products without the constant last
// row. Rotations go from keys to local matrices in local variables, never through memory.
//
// Loops and products are duplicated in all contenders of plain JavaScript on purpose: a shared function would see all
// their arrays, become polymorphic, and be optimised worse.
const animation = require('../lib/animation-scene');
const { createCullingTyped } = require('./culling-typed');

const { bones, channelCount, clipFrames, framesPerSecond, keyCount } = animation;

/** Numbers of a channel's segment: value and tangent at its start, value and tangent at its end. */
const segmentNumbers = 4;
const segmentStride = segmentNumbers * channelCount;

/** Numbers of an affine matrix without its last row, column-major. */
const affine = 12;
const characterStride = affine * bones;

/** Index of the hips' position among the channels. */
const hipsChannel = 4 * bones;

/** Quaternions closer than this, as 1 minus their dot product, are blended linearly. */
const minSlerpDistance = 1e-6;

/** The segments and the rows of a clip's keys. */
function createClip({ values, tangents }) {
  const frames = Float64Array.from({ length: keyCount }, (_, key) => key);
  const segments = new Float32Array((keyCount - 1) * segmentStride);
  for (let key = 0; key + 1 < keyCount; ++key) {
    for (let channel = 0; channel < channelCount; ++channel) {
      const from = key * channelCount + channel;
      const to = from + channelCount;
      segments.set([values[from], tangents[from], values[to], tangents[to]], segmentNumbers * from);
    }
  }
  return { frames, segments, rows: values.slice() };
}

/**
 * The contender.
 * @param {import('../lib/animation-scene').AnimationScene} scene
 */
function createAnimationTyped(scene) {
  const { characters, clipsOf, sets } = scene;
  const clips = scene.clips.map(createClip);
  const parents = Int32Array.from(scene.parents, (parent) => affine * parent);
  const scales = scene.scales.slice();
  const holders = new Float32Array(affine * characters);
  const inverses = new Float32Array(affine * bones);
  const locals = new Float32Array(characterStride * characters);
  const worlds = new Float32Array(characterStride * characters);
  const skins = new Float32Array(16 * bones * characters);
  for (let bone = 0; bone < bones; ++bone) {
    for (let i = 0; i < affine; ++i) {
      const column = Math.floor(i / 3);
      inverses[affine * bone + i] = scene.inverseBinds[16 * bone + i + column];
    }
  }
  for (let c = 0; c < characters; ++c) {
    holders.set([1, 0, 0, 0, 1, 0, 0, 0, 1], affine * c);
    holders.set(scene.places.subarray(3 * c, 3 * c + 3), affine * c + 9);
    for (let bone = 0; bone < bones; ++bone) {
      const position = scene.offsets.subarray(3 * bone, 3 * bone + 3);
      locals.set(position, characterStride * c + affine * bone + 9);
    }
  }
  for (let at = 15; at < skins.length; at += 16) {
    skins[at] = 1;
  }
  const hips = new Float32Array(16 * characters);
  const culling = createCullingTyped(scene, [hips]);

  // Results of the search: weights of a segment's four numbers at a time, and its start.
  const found = new Float64Array(5);

  function findSegment({ frames }, moment) {
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
    found[4] = (key - 1) * segmentStride;
  }

  // `m` is the index of the matrix in `locals`, `t` of the bone in `scales`.
  function buildLocal(m, t, x, y, z, w) {
    const x2 = x + x;
    const y2 = y + y;
    const z2 = z + z;
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

  function clip(set) {
    const times = sets[set].fractional;
    for (let c = 0; c < characters; ++c) {
      const played = clips[clipsOf[2 * c]];
      findSegment(played, times[2 * c]);
      const w0 = found[0];
      const w1 = found[1];
      const w2 = found[2];
      const w3 = found[3];
      const { segments } = played;
      let p = found[4];
      let m = c * characterStride;
      const h = p + segmentNumbers * hipsChannel;
      for (let i = 0; i < 3; ++i) {
        const k = h + segmentNumbers * i;
        locals[m + 9 + i] =
          segments[k] * w0 + segments[k + 1] * w1 + segments[k + 2] * w2 + segments[k + 3] * w3;
      }
      for (let t = 0; t < 3 * bones; t += 3, p += 4 * segmentNumbers, m += affine) {
        buildLocal(
          m,
          t,
          segments[p] * w0 + segments[p + 1] * w1 + segments[p + 2] * w2 + segments[p + 3] * w3,
          segments[p + 4] * w0 + segments[p + 5] * w1 + segments[p + 6] * w2 + segments[p + 7] * w3,
          segments[p + 8] * w0 +
            segments[p + 9] * w1 +
            segments[p + 10] * w2 +
            segments[p + 11] * w3,
          segments[p + 12] * w0 +
            segments[p + 13] * w1 +
            segments[p + 14] * w2 +
            segments[p + 15] * w3
        );
      }
    }
  }

  function frames(set) {
    const times = sets[set].whole;
    for (let c = 0; c < characters; ++c) {
      const { rows } = clips[clipsOf[2 * c]];
      let p = (times[2 * c] % clipFrames) * channelCount;
      let m = c * characterStride;
      locals[m + 9] = rows[p + hipsChannel];
      locals[m + 10] = rows[p + hipsChannel + 1];
      locals[m + 11] = rows[p + hipsChannel + 2];
      for (let t = 0; t < 3 * bones; t += 3, p += 4, m += affine) {
        buildLocal(m, t, rows[p], rows[p + 1], rows[p + 2], rows[p + 3]);
      }
    }
  }

  function crossfade(set) {
    const { fractional, weights } = sets[set];
    for (let c = 0; c < characters; ++c) {
      const first = clips[clipsOf[2 * c]];
      findSegment(first, fractional[2 * c]);
      const v0 = found[0];
      const v1 = found[1];
      const v2 = found[2];
      const v3 = found[3];
      let p = found[4];
      const second = clips[clipsOf[2 * c + 1]];
      findSegment(second, fractional[2 * c + 1]);
      const w0 = found[0];
      const w1 = found[1];
      const w2 = found[2];
      const w3 = found[3];
      let q = found[4];
      const a = first.segments;
      const b = second.segments;
      const weight = weights[c];
      const share = (1 - weight) / (weight + (1 - weight));
      const rest = 1 - share;
      let m = c * characterStride;
      for (let i = 0; i < 3; ++i) {
        const k = p + segmentNumbers * (hipsChannel + i);
        const l = q + segmentNumbers * (hipsChannel + i);
        locals[m + 9 + i] =
          rest * (a[k] * v0 + a[k + 1] * v1 + a[k + 2] * v2 + a[k + 3] * v3) +
          share * (b[l] * w0 + b[l + 1] * w1 + b[l + 2] * w2 + b[l + 3] * w3);
      }
      for (let t = 0; t < 3 * bones; t += 3, p += 16, q += 16, m += affine) {
        let x = a[p] * v0 + a[p + 1] * v1 + a[p + 2] * v2 + a[p + 3] * v3;
        let y = a[p + 4] * v0 + a[p + 5] * v1 + a[p + 6] * v2 + a[p + 7] * v3;
        let z = a[p + 8] * v0 + a[p + 9] * v1 + a[p + 10] * v2 + a[p + 11] * v3;
        let w = a[p + 12] * v0 + a[p + 13] * v1 + a[p + 14] * v2 + a[p + 15] * v3;
        const bx = b[q] * w0 + b[q + 1] * w1 + b[q + 2] * w2 + b[q + 3] * w3;
        const by = b[q + 4] * w0 + b[q + 5] * w1 + b[q + 6] * w2 + b[q + 7] * w3;
        const bz = b[q + 8] * w0 + b[q + 9] * w1 + b[q + 10] * w2 + b[q + 11] * w3;
        const bw = b[q + 12] * w0 + b[q + 13] * w1 + b[q + 14] * w2 + b[q + 15] * w3;
        let d = x * bx + y * by + z * bz + w * bw;
        let shareB = share;
        let shareA = rest;
        if (d < 0) {
          d = -d;
          shareB = -share;
        }
        if (1 - d > minSlerpDistance) {
          const sine = Math.sqrt(1 - d * d);
          const part = Math.sin(share * Math.acos(d));
          const ofB = part / sine;
          shareA = Math.sqrt(1 - part * part) - d * ofB;
          shareB = shareB < 0 ? -ofB : ofB;
        }
        x = x * shareA + bx * shareB;
        y = y * shareA + by * shareB;
        z = z * shareA + bz * shareB;
        w = w * shareA + bw * shareB;
        const r = 1 / Math.sqrt(x * x + y * y + z * z + w * w);
        buildLocal(m, t, x * r, y * r, z * r, w * r);
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

  /** World matrices only; not used by what is measured. */
  function refresh() {
    for (let c = 0; c < characters; ++c) {
      const first = c * characterStride;
      updateWorld(first, holders, c * affine);
      for (let bone = 1; bone < bones; ++bone) {
        updateWorld(first + bone * affine, worlds, first + parents[bone]);
      }
    }
  }

  // The products are inlined by hand: a function for them is too long for the compiler to inline, and calls take as
  // long as the products.
  function skin() {
    for (let c = 0, m = 0, o = 0; c < characters; ++c) {
      for (let k = 0; k < characterStride; k += affine, m += affine, o += 16) {
        const w0 = worlds[m];
        const w1 = worlds[m + 1];
        const w2 = worlds[m + 2];
        const w3 = worlds[m + 3];
        const w4 = worlds[m + 4];
        const w5 = worlds[m + 5];
        const w6 = worlds[m + 6];
        const w7 = worlds[m + 7];
        const w8 = worlds[m + 8];
        let x = inverses[k];
        let y = inverses[k + 1];
        let z = inverses[k + 2];
        skins[o] = w0 * x + w3 * y + w6 * z;
        skins[o + 1] = w1 * x + w4 * y + w7 * z;
        skins[o + 2] = w2 * x + w5 * y + w8 * z;
        x = inverses[k + 3];
        y = inverses[k + 4];
        z = inverses[k + 5];
        skins[o + 4] = w0 * x + w3 * y + w6 * z;
        skins[o + 5] = w1 * x + w4 * y + w7 * z;
        skins[o + 6] = w2 * x + w5 * y + w8 * z;
        x = inverses[k + 6];
        y = inverses[k + 7];
        z = inverses[k + 8];
        skins[o + 8] = w0 * x + w3 * y + w6 * z;
        skins[o + 9] = w1 * x + w4 * y + w7 * z;
        skins[o + 10] = w2 * x + w5 * y + w8 * z;
        x = inverses[k + 9];
        y = inverses[k + 10];
        z = inverses[k + 11];
        skins[o + 12] = w0 * x + w3 * y + w6 * z + worlds[m + 9];
        skins[o + 13] = w1 * x + w4 * y + w7 * z + worlds[m + 10];
        skins[o + 14] = w2 * x + w5 * y + w8 * z + worlds[m + 11];
      }
    }
  }

  // In one pass, so that world matrices are not read again.
  function refreshAndSkin() {
    for (let c = 0, o = 0; c < characters; ++c) {
      const first = c * characterStride;
      for (let bone = 0, k = 0; bone < bones; ++bone, k += affine, o += 16) {
        const m = first + k;
        const a = bone === 0 ? holders : worlds;
        const i = bone === 0 ? c * affine : first + parents[bone];
        const a0 = a[i];
        const a1 = a[i + 1];
        const a2 = a[i + 2];
        const a3 = a[i + 3];
        const a4 = a[i + 4];
        const a5 = a[i + 5];
        const a6 = a[i + 6];
        const a7 = a[i + 7];
        const a8 = a[i + 8];
        let x = locals[m];
        let y = locals[m + 1];
        let z = locals[m + 2];
        const w0 = a0 * x + a3 * y + a6 * z;
        const w1 = a1 * x + a4 * y + a7 * z;
        const w2 = a2 * x + a5 * y + a8 * z;
        worlds[m] = w0;
        worlds[m + 1] = w1;
        worlds[m + 2] = w2;
        x = locals[m + 3];
        y = locals[m + 4];
        z = locals[m + 5];
        const w3 = a0 * x + a3 * y + a6 * z;
        const w4 = a1 * x + a4 * y + a7 * z;
        const w5 = a2 * x + a5 * y + a8 * z;
        worlds[m + 3] = w3;
        worlds[m + 4] = w4;
        worlds[m + 5] = w5;
        x = locals[m + 6];
        y = locals[m + 7];
        z = locals[m + 8];
        const w6 = a0 * x + a3 * y + a6 * z;
        const w7 = a1 * x + a4 * y + a7 * z;
        const w8 = a2 * x + a5 * y + a8 * z;
        worlds[m + 6] = w6;
        worlds[m + 7] = w7;
        worlds[m + 8] = w8;
        x = locals[m + 9];
        y = locals[m + 10];
        z = locals[m + 11];
        const w9 = a0 * x + a3 * y + a6 * z + a[i + 9];
        const w10 = a1 * x + a4 * y + a7 * z + a[i + 10];
        const w11 = a2 * x + a5 * y + a8 * z + a[i + 11];
        worlds[m + 9] = w9;
        worlds[m + 10] = w10;
        worlds[m + 11] = w11;
        x = inverses[k];
        y = inverses[k + 1];
        z = inverses[k + 2];
        skins[o] = w0 * x + w3 * y + w6 * z;
        skins[o + 1] = w1 * x + w4 * y + w7 * z;
        skins[o + 2] = w2 * x + w5 * y + w8 * z;
        x = inverses[k + 3];
        y = inverses[k + 4];
        z = inverses[k + 5];
        skins[o + 4] = w0 * x + w3 * y + w6 * z;
        skins[o + 5] = w1 * x + w4 * y + w7 * z;
        skins[o + 6] = w2 * x + w5 * y + w8 * z;
        x = inverses[k + 6];
        y = inverses[k + 7];
        z = inverses[k + 8];
        skins[o + 8] = w0 * x + w3 * y + w6 * z;
        skins[o + 9] = w1 * x + w4 * y + w7 * z;
        skins[o + 10] = w2 * x + w5 * y + w8 * z;
        x = inverses[k + 9];
        y = inverses[k + 10];
        z = inverses[k + 11];
        skins[o + 12] = w0 * x + w3 * y + w6 * z + w9;
        skins[o + 13] = w1 * x + w4 * y + w7 * z + w10;
        skins[o + 14] = w2 * x + w5 * y + w8 * z + w11;
      }
    }
  }

  function copyAffine(out, o, m) {
    for (let column = 0; column < 4; ++column, o += 4, m += 3) {
      out[o] = worlds[m];
      out[o + 1] = worlds[m + 1];
      out[o + 2] = worlds[m + 2];
      out[o + 3] = column === 3 ? 1 : 0;
    }
  }

  function cull(camera) {
    for (let c = 0; c < characters; ++c) {
      copyAffine(hips, 16 * c, c * characterStride);
    }
    culling.move(0);
    culling.cullMoved(camera);
  }

  return {
    name: 'typed',
    clip,
    frames,
    crossfade,
    refresh,
    skin,

    frame(set, camera) {
      crossfade(set);
      refreshAndSkin();
      cull(camera);
    },

    worlds(out) {
      for (let bone = 0; bone < bones * characters; ++bone) {
        copyAffine(out, 16 * bone, affine * bone);
      }
    },

    skins(out) {
      out.set(skins);
    },

    view: culling.view,
  };
}

module.exports = { createAnimationTyped };
