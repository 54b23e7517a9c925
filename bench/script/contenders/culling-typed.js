'use strict';
// Hand-optimised culling in plain JavaScript: spheres and matrices in flat arrays, the planes in local variables with
// an early exit, and a radix sort by the bits of the depths.

/** Below this count, the built-in sort of doubles is faster than a radix sort. */
const minRadixSort = 256;

/** 32-bit keys in three digits. */
const digitBits = 11;
const buckets = 1 << digitBits;
const digitMask = buckets - 1;

/** Doubles represent 53-bit integers: a 32-bit key above a 20-bit index. */
const indexRange = 1 << 20;

/** Six planes of a camera: normal and distance each, pointing inwards. */
function setPlanes(out, { eye, target, up, fov, aspect, near, far }) {
  let fx = eye[0] - target[0];
  let fy = eye[1] - target[1];
  let fz = eye[2] - target[2];
  let length = Math.sqrt(fx * fx + fy * fy + fz * fz);
  fx /= length;
  fy /= length;
  fz /= length;
  let rx = up[1] * fz - up[2] * fy;
  let ry = up[2] * fx - up[0] * fz;
  let rz = up[0] * fy - up[1] * fx;
  length = Math.sqrt(rx * rx + ry * ry + rz * rz);
  rx /= length;
  ry /= length;
  rz /= length;
  const ux = fy * rz - fz * ry;
  const uy = fz * rx - fx * rz;
  const uz = fx * ry - fy * rx;
  const eyeAlong = eye[0] * fx + eye[1] * fy + eye[2] * fz;
  const eyeRight = eye[0] * rx + eye[1] * ry + eye[2] * rz;
  const eyeUp = eye[0] * ux + eye[1] * uy + eye[2] * uz;
  const slope = Math.tan(fov / 2);
  // A side plane is tilted: the cosine of the angle applies to the lateral axis, the sine to the view direction.
  const cosV = 1 / Math.sqrt(1 + slope * slope);
  const sinV = slope * cosV;
  const cosH = 1 / Math.sqrt(1 + slope * slope * aspect * aspect);
  const sinH = slope * aspect * cosH;
  const rows = [
    [-1, 0, 0, -near],
    [1, 0, 0, far],
    [-sinV, -cosV, 0, 0],
    [-sinV, cosV, 0, 0],
    [-sinH, 0, 1, 0],
    [-sinH, 0, -1, 0],
  ];
  for (let plane = 0; plane < 6; ++plane) {
    const [along, above, side, distance] = rows[plane];
    const across = side * cosH;
    out[4 * plane] = along * fx + above * ux + across * rx;
    out[4 * plane + 1] = along * fy + above * uy + across * ry;
    out[4 * plane + 2] = along * fz + above * uz + across * rz;
    out[4 * plane + 3] = distance - along * eyeAlong - above * eyeUp - across * eyeRight;
  }
  // Depth as a separate plane.
  out[24] = -fx;
  out[25] = -fy;
  out[26] = -fz;
  out[27] = eyeAlong;
}

/**
 * The contender.
 * @param {import('../lib/culling-scene').CullingScene} scene
 * @param {Float32Array[]} sets world matrices, 16 numbers per object, for each place
 */
function createCullingTyped(scene, sets) {
  const { count, spheres } = scene;
  const matrices = new Float32Array(16 * count);
  const worlds = new Float32Array(4 * count); // x, y, z, radius
  const planes = new Float64Array(28);
  let listed = new Int32Array(0);

  // Visible objects, and a second buffer for the sort.
  const depths = new Float32Array(count);
  const bits = new Uint32Array(depths.buffer);
  const indices = new Uint32Array(count);
  const sorted = [0, 1].map(() => ({
    keys: new Uint32Array(count),
    indices: new Uint32Array(count),
  }));
  const packed = new Float64Array(minRadixSort);
  const starts = [0, 1, 2].map(() => new Uint32Array(buckets));
  const resultIndices = new Uint32Array(count);
  const resultDepths = new Float32Array(count);
  const resultBits = new Uint32Array(resultDepths.buffer);
  let visible = 0;

  // The three traversals of the objects differ only in the loop; one function with a branch inside would be slower,
  // and so would a call per object.
  function testAll() {
    const [a0, b0, c0, d0, a1, b1, c1, d1, a2, b2, c2, d2] = planes;
    const [a3, b3, c3, d3, a4, b4, c4, d4, a5, b5, c5, d5] = planes.subarray(12);
    const [fx, fy, fz, fd] = planes.subarray(24);
    let n = 0;
    for (let i = 0, s = 0; i < count; ++i, s += 4) {
      const x = worlds[s];
      const y = worlds[s + 1];
      const z = worlds[s + 2];
      const r = -worlds[s + 3];
      if (
        a0 * x + b0 * y + c0 * z + d0 < r ||
        a1 * x + b1 * y + c1 * z + d1 < r ||
        a2 * x + b2 * y + c2 * z + d2 < r ||
        a3 * x + b3 * y + c3 * z + d3 < r ||
        a4 * x + b4 * y + c4 * z + d4 < r ||
        a5 * x + b5 * y + c5 * z + d5 < r
      ) {
        continue;
      }
      depths[n] = fx * x + fy * y + fz * z + fd;
      indices[n++] = i;
    }
    return n;
  }

  function testMoved() {
    const [a0, b0, c0, d0, a1, b1, c1, d1, a2, b2, c2, d2] = planes;
    const [a3, b3, c3, d3, a4, b4, c4, d4, a5, b5, c5, d5] = planes.subarray(12);
    const [fx, fy, fz, fd] = planes.subarray(24);
    let n = 0;
    for (let i = 0, s = 0, m = 0; i < count; ++i, s += 4, m += 16) {
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
      const r = -spheres[s + 3] * Math.sqrt(longest);
      worlds[s] = x;
      worlds[s + 1] = y;
      worlds[s + 2] = z;
      worlds[s + 3] = -r;
      if (
        a0 * x + b0 * y + c0 * z + d0 < r ||
        a1 * x + b1 * y + c1 * z + d1 < r ||
        a2 * x + b2 * y + c2 * z + d2 < r ||
        a3 * x + b3 * y + c3 * z + d3 < r ||
        a4 * x + b4 * y + c4 * z + d4 < r ||
        a5 * x + b5 * y + c5 * z + d5 < r
      ) {
        continue;
      }
      depths[n] = fx * x + fy * y + fz * z + fd;
      indices[n++] = i;
    }
    return n;
  }

  function testList() {
    const [a0, b0, c0, d0, a1, b1, c1, d1, a2, b2, c2, d2] = planes;
    const [a3, b3, c3, d3, a4, b4, c4, d4, a5, b5, c5, d5] = planes.subarray(12);
    const [fx, fy, fz, fd] = planes.subarray(24);
    let n = 0;
    for (let k = 0; k < listed.length; ++k) {
      const s = 4 * listed[k];
      const x = worlds[s];
      const y = worlds[s + 1];
      const z = worlds[s + 2];
      const r = -worlds[s + 3];
      if (
        a0 * x + b0 * y + c0 * z + d0 < r ||
        a1 * x + b1 * y + c1 * z + d1 < r ||
        a2 * x + b2 * y + c2 * z + d2 < r ||
        a3 * x + b3 * y + c3 * z + d3 < r ||
        a4 * x + b4 * y + c4 * z + d4 < r ||
        a5 * x + b5 * y + c5 * z + d5 < r
      ) {
        continue;
      }
      depths[n] = fx * x + fy * y + fz * z + fd;
      indices[n++] = listed[k];
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
    } else {
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
      setPlanes(planes, camera);
      finish(testAll());
    },

    cullMoved(camera) {
      setPlanes(planes, camera);
      finish(testMoved());
    },

    cullList(camera) {
      setPlanes(planes, camera);
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
