'use strict';
// The work of a stream, hand-written: a loop per kind of command, typed arrays, offsets in index arrays, unrolled
// products.
//
// Loops and products are duplicated in all contenders of plain JavaScript on purpose: a shared function would see all
// their arrays, become polymorphic, and be optimised worse.
const { bulkWords, translationAt } = require('../lib/matrixflow-scene');

/** r = a b, 4x4, column-major. */
function multiply4(a, i, b, j, r, k) {
  const a0 = a[i];
  const a1 = a[i + 1];
  const a2 = a[i + 2];
  const a3 = a[i + 3];
  const a4 = a[i + 4];
  const a5 = a[i + 5];
  const a6 = a[i + 6];
  const a7 = a[i + 7];
  const a8 = a[i + 8];
  const a9 = a[i + 9];
  const a10 = a[i + 10];
  const a11 = a[i + 11];
  const a12 = a[i + 12];
  const a13 = a[i + 13];
  const a14 = a[i + 14];
  const a15 = a[i + 15];
  let b0 = b[j];
  let b1 = b[j + 1];
  let b2 = b[j + 2];
  let b3 = b[j + 3];
  r[k] = a0 * b0 + a4 * b1 + a8 * b2 + a12 * b3;
  r[k + 1] = a1 * b0 + a5 * b1 + a9 * b2 + a13 * b3;
  r[k + 2] = a2 * b0 + a6 * b1 + a10 * b2 + a14 * b3;
  r[k + 3] = a3 * b0 + a7 * b1 + a11 * b2 + a15 * b3;
  b0 = b[j + 4];
  b1 = b[j + 5];
  b2 = b[j + 6];
  b3 = b[j + 7];
  r[k + 4] = a0 * b0 + a4 * b1 + a8 * b2 + a12 * b3;
  r[k + 5] = a1 * b0 + a5 * b1 + a9 * b2 + a13 * b3;
  r[k + 6] = a2 * b0 + a6 * b1 + a10 * b2 + a14 * b3;
  r[k + 7] = a3 * b0 + a7 * b1 + a11 * b2 + a15 * b3;
  b0 = b[j + 8];
  b1 = b[j + 9];
  b2 = b[j + 10];
  b3 = b[j + 11];
  r[k + 8] = a0 * b0 + a4 * b1 + a8 * b2 + a12 * b3;
  r[k + 9] = a1 * b0 + a5 * b1 + a9 * b2 + a13 * b3;
  r[k + 10] = a2 * b0 + a6 * b1 + a10 * b2 + a14 * b3;
  r[k + 11] = a3 * b0 + a7 * b1 + a11 * b2 + a15 * b3;
  b0 = b[j + 12];
  b1 = b[j + 13];
  b2 = b[j + 14];
  b3 = b[j + 15];
  r[k + 12] = a0 * b0 + a4 * b1 + a8 * b2 + a12 * b3;
  r[k + 13] = a1 * b0 + a5 * b1 + a9 * b2 + a13 * b3;
  r[k + 14] = a2 * b0 + a6 * b1 + a10 * b2 + a14 * b3;
  r[k + 15] = a3 * b0 + a7 * b1 + a11 * b2 + a15 * b3;
}

/** r = a b, 3x3, column-major. */
function multiply3(a, i, b, j, r, k) {
  const a0 = a[i];
  const a1 = a[i + 1];
  const a2 = a[i + 2];
  const a3 = a[i + 3];
  const a4 = a[i + 4];
  const a5 = a[i + 5];
  const a6 = a[i + 6];
  const a7 = a[i + 7];
  const a8 = a[i + 8];
  let b0 = b[j];
  let b1 = b[j + 1];
  let b2 = b[j + 2];
  r[k] = a0 * b0 + a3 * b1 + a6 * b2;
  r[k + 1] = a1 * b0 + a4 * b1 + a7 * b2;
  r[k + 2] = a2 * b0 + a5 * b1 + a8 * b2;
  b0 = b[j + 3];
  b1 = b[j + 4];
  b2 = b[j + 5];
  r[k + 3] = a0 * b0 + a3 * b1 + a6 * b2;
  r[k + 4] = a1 * b0 + a4 * b1 + a7 * b2;
  r[k + 5] = a2 * b0 + a5 * b1 + a8 * b2;
  b0 = b[j + 6];
  b1 = b[j + 7];
  b2 = b[j + 8];
  r[k + 6] = a0 * b0 + a3 * b1 + a6 * b2;
  r[k + 7] = a1 * b0 + a4 * b1 + a7 * b2;
  r[k + 8] = a2 * b0 + a5 * b1 + a8 * b2;
}

/**
 * The contender.
 * @param {import('../lib/matrixflow-scene').Stream|import('../lib/matrixflow-scene').Mix} stream
 */
function createStraight(stream) {
  const blocks = {};
  for (const name of Object.keys(stream.blocks)) {
    blocks[name] = stream.blocks[name].slice();
  }
  const { count } = stream;
  const { a, b, r } = blocks;
  const { a: from, b: second, r: to } = stream;

  const loops = {
    scalarAdd() {
      for (let n = 0; n < count; ++n) {
        r[to[n]] = a[from[n]] + b[second[n]];
      }
    },
    scalarDiv() {
      for (let n = 0; n < count; ++n) {
        r[to[n]] = a[from[n]] / b[second[n]];
      }
    },
    vector2Add() {
      for (let n = 0; n < count; ++n) {
        const i = from[n];
        const j = second[n];
        const k = to[n];
        r[k] = a[i] + b[j];
        r[k + 1] = a[i + 1] + b[j + 1];
      }
    },
    vector3Add() {
      for (let n = 0; n < count; ++n) {
        const i = from[n];
        const j = second[n];
        const k = to[n];
        r[k] = a[i] + b[j];
        r[k + 1] = a[i + 1] + b[j + 1];
        r[k + 2] = a[i + 2] + b[j + 2];
      }
    },
    vector4Add() {
      for (let n = 0; n < count; ++n) {
        const i = from[n];
        const j = second[n];
        const k = to[n];
        r[k] = a[i] + b[j];
        r[k + 1] = a[i + 1] + b[j + 1];
        r[k + 2] = a[i + 2] + b[j + 2];
        r[k + 3] = a[i + 3] + b[j + 3];
      }
    },
    matrix3Add() {
      for (let n = 0; n < count; ++n) {
        const i = from[n];
        const j = second[n];
        const k = to[n];
        for (let e = 0; e < 9; ++e) {
          r[k + e] = a[i + e] + b[j + e];
        }
      }
    },
    matrix3Mul() {
      for (let n = 0; n < count; ++n) {
        multiply3(a, from[n], b, second[n], r, to[n]);
      }
    },
    matrix4Copy() {
      for (let n = 0; n < count; ++n) {
        const i = from[n];
        const k = to[n];
        for (let e = 0; e < 16; ++e) {
          r[k + e] = a[i + e];
        }
      }
    },
    matrix4Add() {
      for (let n = 0; n < count; ++n) {
        const i = from[n];
        const j = second[n];
        const k = to[n];
        for (let e = 0; e < 16; ++e) {
          r[k + e] = a[i + e] + b[j + e];
        }
      }
    },
    matrix4Mul() {
      for (let n = 0; n < count; ++n) {
        multiply4(a, from[n], b, second[n], r, to[n]);
      }
    },
    bulkCopy() {
      for (let n = 0; n < count; ++n) {
        const i = from[n];
        const k = to[n];
        for (let e = 0; e < bulkWords; ++e) {
          r[k + e] = a[i + e];
        }
      }
    },
    mix() {
      const { rest, moves, parents, inverses, local, world, skin } = blocks;
      for (let n = 0; n < stream.objects; ++n) {
        const at = 16 * n;
        const i = stream.rest[n];
        for (let e = 0; e < 16; ++e) {
          local[at + e] = rest[i + e];
        }
        const place = at + translationAt;
        const move = stream.move[n];
        local[place] += moves[move];
        local[place + 1] += moves[move + 1];
        local[place + 2] += moves[move + 2];
        local[place] += moves[move + 3];
        local[place + 1] += moves[move + 4];
        local[place + 2] += moves[move + 5];
        multiply4(parents, stream.parent[n], local, at, world, at);
        multiply4(world, at, inverses, stream.inverse[n], skin, at);
      }
    },
  };

  return { name: 'straight', run: loops[stream.kind], block: (name) => blocks[name] };
}

module.exports = { createStraight, multiply3, multiply4 };
