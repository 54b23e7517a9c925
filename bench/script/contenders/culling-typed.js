'use strict';
// Hand-optimised culling in plain JavaScript: spheres and matrices in flat arrays, three products per sphere, tests
// without a branch, which would be mispredicted for every other sphere, and a sort by intervals of depth, or by the
// bits of the depths where they are too uneven.
const { over } = require('../../../tests/script/support/blocks');

/** Below this count, the built-in sort of doubles is faster than a radix sort. */
const minRadixSort = 256;

/** 32-bit keys in three digits. */
const digitBits = 11;
const buckets = 1 << digitBits;
const digitMask = buckets - 1;

/** Objects for each interval of depth, and at most as many in one if those of an interval are sorted by insertion. */
const perInterval = 4;
const maxOfInterval = 64;

/** Doubles represent 53-bit integers: a 32-bit key above a 20-bit index. */
const indexRange = 1 << 20;

/**
 * Axes and slopes of a camera. A symmetric frustum needs three products per sphere: along the view direction, upwards
 * and to the right; both side planes of an axis differ only in a sign.
 */
function setFrustum(out, { eye, target, up, fov, aspect, near, far }) {
  let fx = target[0] - eye[0];
  let fy = target[1] - eye[1];
  let fz = target[2] - eye[2];
  let length = Math.sqrt(fx * fx + fy * fy + fz * fz);
  fx /= length;
  fy /= length;
  fz /= length;
  let rx = up[2] * fy - up[1] * fz;
  let ry = up[0] * fz - up[2] * fx;
  let rz = up[1] * fx - up[0] * fy;
  length = Math.sqrt(rx * rx + ry * ry + rz * rz);
  rx /= length;
  ry /= length;
  rz /= length;
  const ux = ry * fz - rz * fy;
  const uy = rz * fx - rx * fz;
  const uz = rx * fy - ry * fx;
  const slope = Math.tan(fov / 2);
  const cosV = 1 / Math.sqrt(1 + slope * slope);
  const cosH = 1 / Math.sqrt(1 + slope * slope * aspect * aspect);
  const axes = [fx, fy, fz, ux, uy, uz, rx, ry, rz];
  // A side plane is tilted: the cosine of the angle applies to the lateral axis, the sine to the view direction.
  [1, cosV, cosH].forEach((scale, axis) => {
    const [x, y, z] = axes.slice(3 * axis);
    out[4 * axis] = scale * x;
    out[4 * axis + 1] = scale * y;
    out[4 * axis + 2] = scale * z;
    out[4 * axis + 3] = -scale * (x * eye[0] + y * eye[1] + z * eye[2]);
  });
  out[12] = slope * cosV;
  out[13] = slope * aspect * cosH;
  out[14] = near;
  out[15] = far;
}

/**
 * The contender.
 * @param {import('../lib/culling-scene').CullingScene} scene
 * @param {Float32Array[]} sets world matrices, 16 numbers per object, for each place
 */
function createCullingTyped(scene, sets) {
  const { count } = scene;
  const spheres = Float64Array.from(scene.spheres);
  const matrices = new Float32Array(16 * count);
  const worlds = new Float64Array(4 * count); // x, y, z, radius
  const frustum = new Float64Array(16);
  let listed = new Int32Array(0);

  // Visible objects, and a second buffer for the sort.
  const depths = new Float32Array(count);
  const bits = over(Uint32Array, depths);
  const indices = new Uint32Array(count);
  const sorted = [0, 1].map(() => ({
    keys: new Uint32Array(count),
    indices: new Uint32Array(count),
  }));
  const intervals = 1 << Math.ceil(Math.log2(count / perInterval + 1));
  const intervalMask = intervals - 1;
  const counts = new Uint32Array(intervals);
  const packed = new Float64Array(minRadixSort);
  const starts = [0, 1, 2].map(() => new Uint32Array(buckets));
  const resultIndices = new Uint32Array(count);
  const resultDepths = new Float32Array(count);
  const resultBits = over(Uint32Array, resultDepths);
  let visible = 0;

  // The three traversals of the objects differ only in the loop; one function with a branch inside would be slower,
  // and so would a call per object.
  function testAll() {
    const [fx, fy, fz, fd, ux, uy, uz, ud, rx, ry, rz, rd] = frustum;
    const [sinV, sinH, near, far] = frustum.subarray(12);
    let n = 0;
    for (let i = 0; i < count; ++i) {
      const s = 4 * i;
      const x = worlds[s];
      const y = worlds[s + 1];
      const z = worlds[s + 2];
      const r = worlds[s + 3];
      const depth = fx * x + fy * y + fz * z + fd;
      depths[n] = depth;
      indices[n] = i;
      n +=
        (depth + r >= near) &
        (depth - r <= far) &
        (Math.abs(ux * x + uy * y + uz * z + ud) - sinV * depth <= r) &
        (Math.abs(rx * x + ry * y + rz * z + rd) - sinH * depth <= r);
    }
    return n;
  }

  function testMoved() {
    const [fx, fy, fz, fd, ux, uy, uz, ud, rx, ry, rz, rd] = frustum;
    const [sinV, sinH, near, far] = frustum.subarray(12);
    let n = 0;
    for (let i = 0; i < count; ++i) {
      const s = 4 * i;
      const m = 16 * i;
      const sx = spheres[s];
      const sy = spheres[s + 1];
      const sz = spheres[s + 2];
      const m0 = matrices[m];
      const m1 = matrices[m + 1];
      const m2 = matrices[m + 2];
      const m4 = matrices[m + 4];
      const m5 = matrices[m + 5];
      const m6 = matrices[m + 6];
      const m8 = matrices[m + 8];
      const m9 = matrices[m + 9];
      const m10 = matrices[m + 10];
      const x = m0 * sx + m4 * sy + m8 * sz + matrices[m + 12];
      const y = m1 * sx + m5 * sy + m9 * sz + matrices[m + 13];
      const z = m2 * sx + m6 * sy + m10 * sz + matrices[m + 14];
      let longest = m0 * m0 + m1 * m1 + m2 * m2;
      const second = m4 * m4 + m5 * m5 + m6 * m6;
      const third = m8 * m8 + m9 * m9 + m10 * m10;
      longest = second > longest ? second : longest;
      longest = third > longest ? third : longest;
      const r = spheres[s + 3] * Math.sqrt(longest);
      worlds[s] = x;
      worlds[s + 1] = y;
      worlds[s + 2] = z;
      worlds[s + 3] = r;
      const depth = fx * x + fy * y + fz * z + fd;
      depths[n] = depth;
      indices[n] = i;
      n +=
        (depth + r >= near) &
        (depth - r <= far) &
        (Math.abs(ux * x + uy * y + uz * z + ud) - sinV * depth <= r) &
        (Math.abs(rx * x + ry * y + rz * z + rd) - sinH * depth <= r);
    }
    return n;
  }

  function testList() {
    const [fx, fy, fz, fd, ux, uy, uz, ud, rx, ry, rz, rd] = frustum;
    const [sinV, sinH, near, far] = frustum.subarray(12);
    let n = 0;
    for (let k = 0; k < listed.length; ++k) {
      const s = 4 * listed[k];
      const x = worlds[s];
      const y = worlds[s + 1];
      const z = worlds[s + 2];
      const r = worlds[s + 3];
      const depth = fx * x + fy * y + fz * z + fd;
      depths[n] = depth;
      indices[n] = listed[k];
      n +=
        (depth + r >= near) &
        (depth - r <= far) &
        (Math.abs(ux * x + uy * y + uz * z + ud) - sinV * depth <= r) &
        (Math.abs(rx * x + ry * y + rz * z + rd) - sinH * depth <= r);
    }
    return n;
  }

  // The bits of a float as an integer in the same order.
  function keyOf(word) {
    return (word ^ ((word >> 31) | 0x80000000)) >>> 0;
  }

  function bitsOf(key) {
    return (key & 0x80000000) !== 0 ? key ^ 0x80000000 : ~key;
  }

  function sortFew() {
    for (let i = 0; i < visible; ++i) {
      packed[i] = keyOf(bits[i]) * indexRange + indices[i];
    }
    packed.subarray(0, visible).sort();
    for (let i = 0; i < visible; ++i) {
      const key = Math.floor(packed[i] / indexRange);
      resultIndices[i] = packed[i] - key * indexRange;
      resultBits[i] = bitsOf(key);
    }
  }

  /**
   * Sorts into intervals of depth, then within them by insertion.
   * @returns {boolean} false, and nothing is done, if too many objects share an interval
   */
  function sortByIntervals() {
    let least = depths[0];
    let most = least;
    for (let i = 1; i < visible; ++i) {
      const depth = depths[i];
      least = depth < least ? depth : least;
      most = depth > most ? depth : most;
    }
    const scale = (intervals - 1) / (most - least || 1);
    counts.fill(0);
    for (let i = 0; i < visible; ++i) {
      ++counts[((depths[i] - least) * scale) & intervalMask];
    }
    let next = 0;
    for (let i = 0; i < intervals; ++i) {
      const size = counts[i];
      if (size > maxOfInterval) {
        return false;
      }
      counts[i] = next;
      next += size;
    }
    for (let i = 0; i < visible; ++i) {
      const depth = depths[i];
      const at = counts[((depth - least) * scale) & intervalMask]++;
      resultDepths[at] = depth;
      resultIndices[at] = indices[i];
    }
    for (let i = 1; i < visible; ++i) {
      const depth = resultDepths[i];
      let at = i - 1;
      if (resultDepths[at] > depth) {
        const index = resultIndices[i];
        do {
          resultDepths[at + 1] = resultDepths[at];
          resultIndices[at + 1] = resultIndices[at];
          --at;
        } while (at >= 0 && resultDepths[at] > depth);
        resultDepths[at + 1] = depth;
        resultIndices[at + 1] = index;
      }
    }
    return true;
  }

  function scatter(fromKeys, fromIndices, to, digit) {
    const next = starts[digit];
    const shift = digit * digitBits;
    const { keys, indices: places } = to;
    for (let i = 0; i < visible; ++i) {
      const key = fromKeys[i];
      const at = next[(key >>> shift) & digitMask]++;
      keys[at] = key;
      places[at] = fromIndices[i];
    }
  }

  function sortMany() {
    const [low, middle, high] = starts;
    low.fill(0);
    middle.fill(0);
    high.fill(0);
    for (let i = 0; i < visible; ++i) {
      const key = keyOf(bits[i]);
      bits[i] = key;
      ++low[key & digitMask];
      ++middle[(key >>> digitBits) & digitMask];
      ++high[key >>> (2 * digitBits)];
    }
    let keys = bits;
    let places = indices;
    let spare = 0;
    for (let digit = 0; digit < 3; ++digit) {
      const counts = starts[digit];
      if (counts[(keys[0] >>> (digit * digitBits)) & digitMask] === visible) {
        continue; // all share this digit
      }
      let next = 0;
      for (let i = 0; i < buckets; ++i) {
        const size = counts[i];
        counts[i] = next;
        next += size;
      }
      scatter(keys, places, sorted[spare], digit);
      keys = sorted[spare].keys;
      places = sorted[spare].indices;
      spare ^= 1;
    }
    for (let i = 0; i < visible; ++i) {
      resultBits[i] = bitsOf(keys[i]);
      resultIndices[i] = places[i];
    }
  }

  function finish(n) {
    visible = n;
    if (n < minRadixSort) {
      sortFew();
    } else if (!sortByIntervals()) {
      sortMany();
    }
  }

  return {
    name: 'typed',

    move(set) {
      matrices.set(sets[set]);
    },

    setList(list) {
      listed = Int32Array.from(list);
    },

    /** Nothing moved: the last world spheres are still valid. */
    cull(camera) {
      setFrustum(frustum, camera);
      finish(testAll());
    },

    cullMoved(camera) {
      setFrustum(frustum, camera);
      finish(testMoved());
    },

    cullList(camera) {
      setFrustum(frustum, camera);
      finish(testList());
    },

    view() {
      return {
        objects: resultIndices.slice(0, visible),
        depths: resultDepths.slice(0, visible),
      };
    },
  };
}

module.exports = { createCullingTyped };
