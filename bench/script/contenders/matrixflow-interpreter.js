'use strict';
// The same streams, decoded and executed in JavaScript: an interpreter of their commands, with the checks of the
// module, on typed arrays. Offsets are multiples of 4 here.
const { multiply3, multiply4 } = require('./matrixflow-straight');
const { matrixFlowCommands: types } = require('../../../lib/commands');

/**
 * The contender.
 * @param {import('../lib/matrixflow-scene').Stream|import('../lib/matrixflow-scene').Mix} stream
 * @param {Uint32Array} words the stream of the module
 * @param {Object<string, number>} ids memoryID of each block
 */
function createInterpreter(stream, words, ids) {
  const blocks = {};
  const blockOf = [];
  for (const name of Object.keys(stream.blocks)) {
    blocks[name] = stream.blocks[name].slice();
    blockOf[ids[name]] = blocks[name];
  }

  /** Whether a value of `floats` is within its block. */
  function fits(block, at, floats) {
    return block !== undefined && at + floats <= block.length;
  }

  function execute() {
    const end = 1 + (words[0] >>> 2);
    let w = 1;
    while (w < end) {
      const type = words[w];
      if (type === types.bulkCopy || type === types.matrix4Copy) {
        const isBulk = type === types.bulkCopy;
        const floats = isBulk ? words[++w] : 16;
        if (w + 5 > end) {
          return 2;
        }
        const d = blockOf[words[w + 1]];
        const k = words[w + 2] >>> 2;
        const s = blockOf[words[w + 3]];
        const i = words[w + 4] >>> 2;
        if (!fits(d, k, floats) || !fits(s, i, floats)) {
          return 4;
        }
        for (let e = 0; e < floats; ++e) {
          d[k + e] = s[i + e];
        }
        w += 5;
        continue;
      }
      if (w + 7 > end) {
        return 2;
      }
      const a = blockOf[words[w + 1]];
      const i = words[w + 2] >>> 2;
      const b = blockOf[words[w + 3]];
      const j = words[w + 4] >>> 2;
      const r = blockOf[words[w + 5]];
      const k = words[w + 6] >>> 2;
      w += 7;
      switch (type) {
        case types.scalarAdd:
          if (!fits(a, i, 1) || !fits(b, j, 1) || !fits(r, k, 1)) {
            return 4;
          }
          r[k] = a[i] + b[j];
          break;
        case types.scalarDiv:
          if (!fits(a, i, 1) || !fits(b, j, 1) || !fits(r, k, 1)) {
            return 4;
          }
          if (b[j] < 2 ** -126) {
            return 5;
          }
          r[k] = a[i] / b[j];
          break;
        case types.vector2Add:
          if (!fits(a, i, 2) || !fits(b, j, 2) || !fits(r, k, 2)) {
            return 4;
          }
          r[k] = a[i] + b[j];
          r[k + 1] = a[i + 1] + b[j + 1];
          break;
        case types.vector3Add:
          if (!fits(a, i, 3) || !fits(b, j, 3) || !fits(r, k, 3)) {
            return 4;
          }
          r[k] = a[i] + b[j];
          r[k + 1] = a[i + 1] + b[j + 1];
          r[k + 2] = a[i + 2] + b[j + 2];
          break;
        case types.vector4Add:
          if (!fits(a, i, 4) || !fits(b, j, 4) || !fits(r, k, 4)) {
            return 4;
          }
          r[k] = a[i] + b[j];
          r[k + 1] = a[i + 1] + b[j + 1];
          r[k + 2] = a[i + 2] + b[j + 2];
          r[k + 3] = a[i + 3] + b[j + 3];
          break;
        case types.matrix3Add:
          if (!fits(a, i, 9) || !fits(b, j, 9) || !fits(r, k, 9)) {
            return 4;
          }
          for (let e = 0; e < 9; ++e) {
            r[k + e] = a[i + e] + b[j + e];
          }
          break;
        case types.matrix3Mul:
          if (!fits(a, i, 9) || !fits(b, j, 9) || !fits(r, k, 9)) {
            return 4;
          }
          multiply3(a, i, b, j, r, k);
          break;
        case types.matrix4Add:
          if (!fits(a, i, 16) || !fits(b, j, 16) || !fits(r, k, 16)) {
            return 4;
          }
          for (let e = 0; e < 16; ++e) {
            r[k + e] = a[i + e] + b[j + e];
          }
          break;
        case types.matrix4Mul:
          if (!fits(a, i, 16) || !fits(b, j, 16) || !fits(r, k, 16)) {
            return 4;
          }
          multiply4(a, i, b, j, r, k);
          break;
        default:
          return 3;
      }
    }
    return 0;
  }

  return {
    name: 'interpreted',
    run() {
      if (execute() !== 0) {
        throw new Error(`${stream.kind}: the stream fails in script`);
      }
    },
    block: (name) => blocks[name],
  };
}

module.exports = { createInterpreter };
