'use strict';
// Hand-optimised animation in plain JavaScript: a key's values and tangents of all channels form a row of doubles, one
// search and one set of weights serve all channels of a clip, bones are ordered parents first, and products omit the
// constant last row. Rotations go from keys to local matrices in local variables, never through memory. A whole frame
// is done character by character, so that what one step writes is in the caches for the next.
//
// Indices are sums of multiples of loop counters and of a 16-bit row number: the compiler knows their ranges, and
// omits the checks for overflow, and most of those for the length. The clips are one array for the same reason.
// Quaternions are not normalised; the matrix is divided by their squared length instead, which needs no square root.
//
// Loops and products are duplicated in all contenders of plain JavaScript on purpose: a shared function would see all
// their arrays, become polymorphic, and be optimised worse.
const animation = require('../lib/animation-scene');
const { createCullingTyped } = require('./culling-typed');

const { bones, channelCount, clipFrames, framesPerSecond, keyCount } = animation;

/** Numbers of a row of keys: value and tangent of each channel, so that a bone's rotation fills a cache line. */
const rowStride = 2 * channelCount;

/** Numbers of an affine matrix without its last row, column-major. */
const affine = 12;

/** Matrices of a character: the one at its place, then its bones. */
const characterStride = affine * (1 + bones);

/** Index of the hips' position in a row. */
const hipsAt = 2 * 4 * bones;

/** Quaternions closer than this, as 1 minus their dot product, are blended linearly. */
const minSlerpDistance = 1e-6;

/** The rows of all clips, one clip after the other. */
function createRows(clips) {
  const rows = new Float64Array(clips.length * keyCount * rowStride);
  clips.forEach(({ values, tangents }, number) => {
    for (let i = 0, at = number * keyCount * rowStride; i < keyCount * channelCount; ++i) {
      rows[at++] = values[i];
      rows[at++] = tangents[i];
    }
  });
  return rows;
}

/** Their values only, for whole frames. */
function createWholeRows(clips) {
  const rows = new Float64Array(clips.length * keyCount * channelCount);
  clips.forEach(({ values }, number) => rows.set(values, number * values.length));
  return rows;
}

/**
 * The contender.
 * @param {import('../lib/animation-scene').AnimationScene} scene
 */
function createAnimationTyped(scene) {
  const { characters, clipsOf, sets } = scene;
  const rows = createRows(scene.clips);
  const wholeRows = createWholeRows(scene.clips);
  const frames = Float64Array.from({ length: keyCount }, (_, key) => key);
  // Of the bones; the hips' parent is matrix 0.
  const parents = Uint8Array.from(scene.parents, (parent) => 1 + parent);
  const scales = Float64Array.from(scene.scales);
  const inverses = new Float64Array(affine * bones);
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
    worlds.set([1, 0, 0, 0, 1, 0, 0, 0, 1], characterStride * c);
    worlds.set(scene.places.subarray(3 * c, 3 * c + 3), characterStride * c + 9);
    for (let bone = 0; bone < bones; ++bone) {
      const position = scene.offsets.subarray(3 * bone, 3 * bone + 3);
      locals.set(position, characterStride * c + affine * (1 + bone) + 9);
    }
  }
  for (let at = 15; at < skins.length; at += 16) {
    skins[at] = 1;
  }
  const hips = new Float32Array(16 * characters);
  const culling = createCullingTyped(scene, [hips]);

  // Results of the search: weights of the values and tangents of two rows, and the number of the first.
  const found = new Float64Array(4);
  const foundRow = new Uint16Array(1);

  function findRows(clip, moment) {
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
    foundRow[0] = clip * keyCount + key - 1;
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

  function clipOne(c, times) {
    findRows(clipsOf[2 * c], times[2 * c]);
    const w0 = found[0];
    const w1 = found[1];
    const w2 = found[2];
    const w3 = found[3];
    const first = foundRow[0] * rowStride;
    const own = c * characterStride + affine;
    for (let i = 0; i < 3; ++i) {
      const p = first + hipsAt + 2 * i;
      const q = p + rowStride;
      locals[own + 9 + i] = rows[p] * w0 + rows[p + 1] * w1 + rows[q] * w2 + rows[q + 1] * w3;
    }
    for (let bone = 0; bone < bones; ++bone) {
      const p = first + 8 * bone;
      const q = p + rowStride;
      buildLocal(
        own + affine * bone,
        3 * bone,
        rows[p] * w0 + rows[p + 1] * w1 + rows[q] * w2 + rows[q + 1] * w3,
        rows[p + 2] * w0 + rows[p + 3] * w1 + rows[q + 2] * w2 + rows[q + 3] * w3,
        rows[p + 4] * w0 + rows[p + 5] * w1 + rows[q + 4] * w2 + rows[q + 5] * w3,
        rows[p + 6] * w0 + rows[p + 7] * w1 + rows[q + 6] * w2 + rows[q + 7] * w3,
        2
      );
    }
  }

  function clip(set) {
    const { fractional } = sets[set];
    for (let c = 0; c < characters; ++c) {
      clipOne(c, fractional);
    }
  }

  function wholeFrames(set) {
    const times = sets[set].whole;
    for (let c = 0; c < characters; ++c) {
      foundRow[0] = clipsOf[2 * c] * keyCount + (times[2 * c] % clipFrames);
      const first = foundRow[0] * channelCount;
      const own = c * characterStride + affine;
      locals[own + 9] = wholeRows[first + 4 * bones];
      locals[own + 10] = wholeRows[first + 4 * bones + 1];
      locals[own + 11] = wholeRows[first + 4 * bones + 2];
      for (let bone = 0; bone < bones; ++bone) {
        const p = first + 4 * bone;
        buildLocal(
          own + affine * bone,
          3 * bone,
          wholeRows[p],
          wholeRows[p + 1],
          wholeRows[p + 2],
          wholeRows[p + 3],
          2
        );
      }
    }
  }

  function crossfadeOne(c, times, weight) {
    findRows(clipsOf[2 * c], times[2 * c]);
    const v0 = found[0];
    const v1 = found[1];
    const v2 = found[2];
    const v3 = found[3];
    const first = foundRow[0] * rowStride;
    findRows(clipsOf[2 * c + 1], times[2 * c + 1]);
    const w0 = found[0];
    const w1 = found[1];
    const w2 = found[2];
    const w3 = found[3];
    const second = foundRow[0] * rowStride;
    const share = (1 - weight) / (weight + (1 - weight));
    const rest = 1 - share;
    const own = c * characterStride + affine;
    for (let i = 0; i < 3; ++i) {
      const a = first + hipsAt + 2 * i;
      const b = a + rowStride;
      const d = second + hipsAt + 2 * i;
      const e = d + rowStride;
      locals[own + 9 + i] =
        rest * (rows[a] * v0 + rows[a + 1] * v1 + rows[b] * v2 + rows[b + 1] * v3) +
        share * (rows[d] * w0 + rows[d + 1] * w1 + rows[e] * w2 + rows[e + 1] * w3);
    }
    for (let bone = 0; bone < bones; ++bone) {
      const a = first + 8 * bone;
      const b = a + rowStride;
      const d = second + 8 * bone;
      const e = d + rowStride;
      let x = rows[a] * v0 + rows[a + 1] * v1 + rows[b] * v2 + rows[b + 1] * v3;
      let y = rows[a + 2] * v0 + rows[a + 3] * v1 + rows[b + 2] * v2 + rows[b + 3] * v3;
      let z = rows[a + 4] * v0 + rows[a + 5] * v1 + rows[b + 4] * v2 + rows[b + 5] * v3;
      let w = rows[a + 6] * v0 + rows[a + 7] * v1 + rows[b + 6] * v2 + rows[b + 7] * v3;
      const bx = rows[d] * w0 + rows[d + 1] * w1 + rows[e] * w2 + rows[e + 1] * w3;
      const by = rows[d + 2] * w0 + rows[d + 3] * w1 + rows[e + 2] * w2 + rows[e + 3] * w3;
      const bz = rows[d + 4] * w0 + rows[d + 5] * w1 + rows[e + 4] * w2 + rows[e + 5] * w3;
      const bw = rows[d + 6] * w0 + rows[d + 7] * w1 + rows[e + 6] * w2 + rows[e + 7] * w3;
      let cosine = x * bx + y * by + z * bz + w * bw;
      let shareB = share;
      let shareA = rest;
      if (cosine < 0) {
        cosine = -cosine;
        shareB = -share;
      }
      if (1 - cosine > minSlerpDistance) {
        // The arc cosine and the sine, both to 4e-9, by polynomials that add up in halves: calls of the mathematical
        // functions take longer, and so does Horner's scheme, where each product waits for the one before.
        const h = 0.5 - 0.5 * cosine;
        const h2 = h * h;
        const h4 = h2 * h2;
        const angle =
          share *
          Math.sqrt(h) *
          (2.00000000324524 +
            0.333332284756306 * h +
            h2 * (0.150055146336748 + 0.0881832332897198 * h) +
            h4 *
              (0.0716284801243698 -
                0.0140411655843814 * h +
                h2 * (0.214800061211766 - 0.271832566967028 * h) +
                h4 * 0.24782700277865));
        const g = angle * angle;
        const g2 = g * g;
        const part =
          angle *
          (0.999999999982919 -
            0.166666666168163 * g +
            g2 *
              (0.00833333097422869 -
                0.000198408611816316 * g +
                g2 * (0.00000275252699187596 - 2.38892195182059e-8 * g)));
        const ofB = (part * 0.5) / Math.sqrt(h * (1 - h));
        shareA = Math.sqrt(1 - part * part) - cosine * ofB;
        shareB = shareB < 0 ? -ofB : ofB;
      }
      x = x * shareA + bx * shareB;
      y = y * shareA + by * shareB;
      z = z * shareA + bz * shareB;
      w = w * shareA + bw * shareB;
      const f = 2 / (x * x + y * y + z * z + w * w);
      buildLocal(own + affine * bone, 3 * bone, x, y, z, w, f);
    }
  }

  function crossfade(set) {
    const { fractional, weights } = sets[set];
    for (let c = 0; c < characters; ++c) {
      crossfadeOne(c, fractional, weights[c]);
    }
  }

  // World matrices of a character; those of parents are complete before.
  function refreshOne(c) {
    const first = c * characterStride;
    for (let bone = 0; bone < bones; ++bone) {
      const i = first + affine * parents[bone];
      const m = first + affine + affine * bone;
      const a0 = worlds[i];
      const a1 = worlds[i + 1];
      const a2 = worlds[i + 2];
      const a3 = worlds[i + 3];
      const a4 = worlds[i + 4];
      const a5 = worlds[i + 5];
      const a6 = worlds[i + 6];
      const a7 = worlds[i + 7];
      const a8 = worlds[i + 8];
      let x = locals[m];
      let y = locals[m + 1];
      let z = locals[m + 2];
      const w0 = a0 * x + a3 * y + a6 * z;
      const w1 = a1 * x + a4 * y + a7 * z;
      const w2 = a2 * x + a5 * y + a8 * z;
      x = locals[m + 3];
      y = locals[m + 4];
      z = locals[m + 5];
      const w3 = a0 * x + a3 * y + a6 * z;
      const w4 = a1 * x + a4 * y + a7 * z;
      const w5 = a2 * x + a5 * y + a8 * z;
      x = locals[m + 6];
      y = locals[m + 7];
      z = locals[m + 8];
      const w6 = a0 * x + a3 * y + a6 * z;
      const w7 = a1 * x + a4 * y + a7 * z;
      const w8 = a2 * x + a5 * y + a8 * z;
      x = locals[m + 9];
      y = locals[m + 10];
      z = locals[m + 11];
      const w9 = a0 * x + a3 * y + a6 * z + worlds[i + 9];
      const w10 = a1 * x + a4 * y + a7 * z + worlds[i + 10];
      const w11 = a2 * x + a5 * y + a8 * z + worlds[i + 11];
      worlds[m] = w0;
      worlds[m + 1] = w1;
      worlds[m + 2] = w2;
      worlds[m + 3] = w3;
      worlds[m + 4] = w4;
      worlds[m + 5] = w5;
      worlds[m + 6] = w6;
      worlds[m + 7] = w7;
      worlds[m + 8] = w8;
      worlds[m + 9] = w9;
      worlds[m + 10] = w10;
      worlds[m + 11] = w11;
    }
  }

  function refresh() {
    for (let c = 0; c < characters; ++c) {
      refreshOne(c);
    }
  }

  // The products are inlined by hand: a function for them is too long for the compiler to inline, and calls take as
  // long as the products.
  function skinOne(c) {
    for (let bone = 0; bone < bones; ++bone) {
      const m = c * characterStride + affine + affine * bone;
      const k = affine * bone;
      const o = 16 * (c * bones + bone);
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

  // Both in one pass, so that world matrices are not read again.
  function refreshAndSkinOne(c) {
    const first = c * characterStride;
    for (let bone = 0; bone < bones; ++bone) {
      const i = first + affine * parents[bone];
      const m = first + affine + affine * bone;
      const a0 = worlds[i];
      const a1 = worlds[i + 1];
      const a2 = worlds[i + 2];
      const a3 = worlds[i + 3];
      const a4 = worlds[i + 4];
      const a5 = worlds[i + 5];
      const a6 = worlds[i + 6];
      const a7 = worlds[i + 7];
      const a8 = worlds[i + 8];
      let x = locals[m];
      let y = locals[m + 1];
      let z = locals[m + 2];
      const w0 = a0 * x + a3 * y + a6 * z;
      const w1 = a1 * x + a4 * y + a7 * z;
      const w2 = a2 * x + a5 * y + a8 * z;
      x = locals[m + 3];
      y = locals[m + 4];
      z = locals[m + 5];
      const w3 = a0 * x + a3 * y + a6 * z;
      const w4 = a1 * x + a4 * y + a7 * z;
      const w5 = a2 * x + a5 * y + a8 * z;
      x = locals[m + 6];
      y = locals[m + 7];
      z = locals[m + 8];
      const w6 = a0 * x + a3 * y + a6 * z;
      const w7 = a1 * x + a4 * y + a7 * z;
      const w8 = a2 * x + a5 * y + a8 * z;
      x = locals[m + 9];
      y = locals[m + 10];
      z = locals[m + 11];
      const w9 = a0 * x + a3 * y + a6 * z + worlds[i + 9];
      const w10 = a1 * x + a4 * y + a7 * z + worlds[i + 10];
      const w11 = a2 * x + a5 * y + a8 * z + worlds[i + 11];
      worlds[m] = w0;
      worlds[m + 1] = w1;
      worlds[m + 2] = w2;
      worlds[m + 3] = w3;
      worlds[m + 4] = w4;
      worlds[m + 5] = w5;
      worlds[m + 6] = w6;
      worlds[m + 7] = w7;
      worlds[m + 8] = w8;
      worlds[m + 9] = w9;
      worlds[m + 10] = w10;
      worlds[m + 11] = w11;
      const k = affine * bone;
      const o = 16 * (c * bones + bone);
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

  function skin() {
    for (let c = 0; c < characters; ++c) {
      skinOne(c);
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
      copyAffine(hips, 16 * c, c * characterStride + affine);
    }
    culling.move(0);
    culling.cullMoved(camera);
  }

  return {
    name: 'typed',
    clip,
    frames: wholeFrames,
    crossfade,
    refresh,
    skin,

    clipFrame(set, camera) {
      const { fractional } = sets[set];
      for (let c = 0; c < characters; ++c) {
        clipOne(c, fractional);
        refreshAndSkinOne(c);
      }
      cull(camera);
    },

    frame(set, camera) {
      const { fractional, weights } = sets[set];
      for (let c = 0; c < characters; ++c) {
        crossfadeOne(c, fractional, weights[c]);
        refreshAndSkinOne(c);
      }
      cull(camera);
    },

    worlds(out) {
      for (let c = 0, o = 0; c < characters; ++c) {
        for (let bone = 0; bone < bones; ++bone, o += 16) {
          copyAffine(out, o, c * characterStride + affine * (1 + bone));
        }
      }
    },

    skins(out) {
      out.set(skins);
    },

    view: culling.view,
  };
}

module.exports = { createAnimationTyped };
