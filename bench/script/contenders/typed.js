'use strict';
// Hand-optimised plain JavaScript: flat arrays in depth-first order, so that a node is followed by its descendants,
// and one forward pass. The bar for the module.
//
// A node has a local and a world matrix of 12 numbers each, without the constant last row, and nothing else: a new
// rotation and position become the local matrix at once. Where all nodes change, one loop goes from the new transforms
// to world matrices. Changed nodes are listed in depth-first order, and marked in a bit each. The order is fixed:
// unlike the other contenders, this one could not move a node to another parent without rebuilding it.
//
// Code is duplicated between the ways to write transforms, and the product between contenders of plain JavaScript, on
// purpose: a function with a branch inside, or a shared one, would be optimised worse. Slots are masked on reading, so
// that the compiler knows the ranges of indices and omits the checks for overflow.

const { preorder, valuesPerNode } = require('../lib/scenes');

/** Slots and indices of values are below. */
const slotMask = 0xfffff;
const valueMask = 0xffffff;
const valueRange = 1 + valueMask;

/** Numbers of an affine matrix without its last row, column-major. */
const affine = 12;

/**
 * The contender.
 * @param {import('../lib/scenes').Tree} tree
 */
function createTyped(tree) {
  const { count } = tree;
  const slots = preorder(tree); // by node
  const parents = new Int32Array(count);
  const scales = new Float64Array(3 * count);
  const locals = new Float32Array(affine * count);
  const worlds = new Float32Array(affine * count);
  const marks = new Uint32Array((count + 31) >> 5); // a bit per slot, 1: the world matrix must be computed
  const ends = new Int32Array(count); // one past the last slot below
  for (let node = 0; node < count; ++node) {
    const slot = slots[node];
    parents[slot] = node === 0 ? 0 : slots[tree.parents[node]];
    scales.set(tree.scales.subarray(3 * node, 3 * node + 3), 3 * slot);
  }
  for (let slot = count - 1; slot >= 0; --slot) {
    ends[slot] = Math.max(ends[slot], slot + 1);
    if (slot > 0) {
      ends[parents[slot]] = Math.max(ends[parents[slot]], ends[slot]);
    }
  }
  // Slots of changed nodes, ascending, and the indices of their values.
  const dirty = new Int32Array(count);
  const valueAt = new Int32Array(count);
  let dirtyCount = 0;
  let mode = 'quaternion';

  function writeQuaternions(values) {
    for (let k = 0; k < dirtyCount; ++k) {
      const slot = dirty[k] & slotMask;
      const v = valueAt[k] & valueMask;
      const m = affine * slot;
      const t = 3 * slot;
      const x = values[v];
      const y = values[v + 1];
      const z = values[v + 2];
      const w = values[v + 3];
      const sx = scales[t];
      const sy = scales[t + 1];
      const sz = scales[t + 2];
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
      locals[m] = sx * (1 - (yy + zz));
      locals[m + 1] = sx * (xy + wz);
      locals[m + 2] = sx * (xz - wy);
      locals[m + 3] = sy * (xy - wz);
      locals[m + 4] = sy * (1 - (xx + zz));
      locals[m + 5] = sy * (yz + wx);
      locals[m + 6] = sz * (xz + wy);
      locals[m + 7] = sz * (yz - wx);
      locals[m + 8] = sz * (1 - (xx + yy));
      locals[m + 9] = values[v + 4];
      locals[m + 10] = values[v + 5];
      locals[m + 11] = values[v + 6];
      marks[slot >> 5] |= 1 << (slot & 31);
    }
  }

  function writeEuler(values) {
    for (let k = 0; k < dirtyCount; ++k) {
      const slot = dirty[k] & slotMask;
      const v = valueAt[k] & valueMask;
      const m = affine * slot;
      const t = 3 * slot;
      const x = values[v];
      const y = values[v + 1];
      const z = values[v + 2];
      const cx = Math.cos(x);
      const sinX = Math.sin(x);
      const cy = Math.cos(y);
      const sinY = Math.sin(y);
      const cz = Math.cos(z);
      const sinZ = Math.sin(z);
      const sx = scales[t];
      const sy = scales[t + 1];
      const sz = scales[t + 2];
      locals[m] = sx * (cy * cz);
      locals[m + 1] = sx * (cx * sinZ + sinX * sinY * cz);
      locals[m + 2] = sx * (sinX * sinZ - cx * sinY * cz);
      locals[m + 3] = sy * (-cy * sinZ);
      locals[m + 4] = sy * (cx * cz - sinX * sinY * sinZ);
      locals[m + 5] = sy * (sinX * cz + cx * sinY * sinZ);
      locals[m + 6] = sz * sinY;
      locals[m + 7] = sz * (-sinX * cy);
      locals[m + 8] = sz * (cx * cy);
      locals[m + 9] = values[v + 3];
      locals[m + 10] = values[v + 4];
      locals[m + 11] = values[v + 5];
      marks[slot >> 5] |= 1 << (slot & 31);
    }
  }

  /** New transforms of all nodes to local and world matrices. */
  function updateAll(values) {
    writeRoot(values);
    for (let slot = 1; slot < count; ++slot) {
      const v = valueAt[slot] & valueMask;
      const a = affine * (parents[slot] & slotMask);
      const o = affine * slot;
      const t = 3 * slot;
      const x = values[v];
      const y = values[v + 1];
      const z = values[v + 2];
      const w = values[v + 3];
      const sx = scales[t];
      const sy = scales[t + 1];
      const sz = scales[t + 2];
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
      const l0 = sx * (1 - (yy + zz));
      const l1 = sx * (xy + wz);
      const l2 = sx * (xz - wy);
      const l3 = sy * (xy - wz);
      const l4 = sy * (1 - (xx + zz));
      const l5 = sy * (yz + wx);
      const l6 = sz * (xz + wy);
      const l7 = sz * (yz - wx);
      const l8 = sz * (1 - (xx + yy));
      const l9 = values[v + 4];
      const l10 = values[v + 5];
      const l11 = values[v + 6];
      locals[o] = l0;
      locals[o + 1] = l1;
      locals[o + 2] = l2;
      locals[o + 3] = l3;
      locals[o + 4] = l4;
      locals[o + 5] = l5;
      locals[o + 6] = l6;
      locals[o + 7] = l7;
      locals[o + 8] = l8;
      locals[o + 9] = l9;
      locals[o + 10] = l10;
      locals[o + 11] = l11;
      const a0 = worlds[a];
      const a1 = worlds[a + 1];
      const a2 = worlds[a + 2];
      const a3 = worlds[a + 3];
      const a4 = worlds[a + 4];
      const a5 = worlds[a + 5];
      const a6 = worlds[a + 6];
      const a7 = worlds[a + 7];
      const a8 = worlds[a + 8];
      worlds[o] = a0 * l0 + a3 * l1 + a6 * l2;
      worlds[o + 1] = a1 * l0 + a4 * l1 + a7 * l2;
      worlds[o + 2] = a2 * l0 + a5 * l1 + a8 * l2;
      worlds[o + 3] = a0 * l3 + a3 * l4 + a6 * l5;
      worlds[o + 4] = a1 * l3 + a4 * l4 + a7 * l5;
      worlds[o + 5] = a2 * l3 + a5 * l4 + a8 * l5;
      worlds[o + 6] = a0 * l6 + a3 * l7 + a6 * l8;
      worlds[o + 7] = a1 * l6 + a4 * l7 + a7 * l8;
      worlds[o + 8] = a2 * l6 + a5 * l7 + a8 * l8;
      worlds[o + 9] = a0 * l9 + a3 * l10 + a6 * l11 + worlds[a + 9];
      worlds[o + 10] = a1 * l9 + a4 * l10 + a7 * l11 + worlds[a + 10];
      worlds[o + 11] = a2 * l9 + a5 * l10 + a8 * l11 + worlds[a + 11];
    }
  }

  function writeRoot(values) {
    dirtyCount = 1;
    writeQuaternions(values);
    dirtyCount = count;
    marks[0] = 0;
    copyRoot();
  }

  function copyRoot() {
    for (let i = 0; i < affine; ++i) {
      worlds[i] = locals[i];
    }
  }

  function updateRange(from, to) {
    for (let i = from; i < to; ++i) {
      const slot = i & slotMask;
      const a = affine * (parents[slot] & slotMask);
      const o = affine * slot;
      const a0 = worlds[a];
      const a1 = worlds[a + 1];
      const a2 = worlds[a + 2];
      const a3 = worlds[a + 3];
      const a4 = worlds[a + 4];
      const a5 = worlds[a + 5];
      const a6 = worlds[a + 6];
      const a7 = worlds[a + 7];
      const a8 = worlds[a + 8];
      let x = locals[o];
      let y = locals[o + 1];
      let z = locals[o + 2];
      worlds[o] = a0 * x + a3 * y + a6 * z;
      worlds[o + 1] = a1 * x + a4 * y + a7 * z;
      worlds[o + 2] = a2 * x + a5 * y + a8 * z;
      x = locals[o + 3];
      y = locals[o + 4];
      z = locals[o + 5];
      worlds[o + 3] = a0 * x + a3 * y + a6 * z;
      worlds[o + 4] = a1 * x + a4 * y + a7 * z;
      worlds[o + 5] = a2 * x + a5 * y + a8 * z;
      x = locals[o + 6];
      y = locals[o + 7];
      z = locals[o + 8];
      worlds[o + 6] = a0 * x + a3 * y + a6 * z;
      worlds[o + 7] = a1 * x + a4 * y + a7 * z;
      worlds[o + 8] = a2 * x + a5 * y + a8 * z;
      x = locals[o + 9];
      y = locals[o + 10];
      z = locals[o + 11];
      worlds[o + 9] = a0 * x + a3 * y + a6 * z + worlds[a + 9];
      worlds[o + 10] = a1 * x + a4 * y + a7 * z + worlds[a + 10];
      worlds[o + 11] = a2 * x + a5 * y + a8 * z + worlds[a + 11];
    }
  }

  // A changed node changes all its descendants: the range of slots up to its end.
  function updateWorlds() {
    if ((marks[0] & 1) !== 0) {
      copyRoot();
      updateRange(1, count);
      marks.fill(0);
      return;
    }
    let end = 0;
    for (let word = 0; word < marks.length; ++word) {
      let bits = marks[word];
      if (bits !== 0) {
        marks[word] = 0;
        while (bits !== 0) {
          const slot = 32 * word + 31 - Math.clz32(bits & -bits);
          bits &= bits - 1;
          if (slot >= end) {
            end = ends[slot];
            updateRange(slot, end);
          }
        }
      }
    }
  }

  return {
    name: 'typed',

    setDirty(nodes, rotationMode) {
      mode = rotationMode;
      // Slots, and positions in the list below them.
      const order = Float64Array.from(nodes, (node, k) => slots[node] * valueRange + k).sort();
      order.forEach((entry, i) => {
        const slot = Math.floor(entry / valueRange);
        dirty[i] = slot;
        valueAt[i] = valuesPerNode[mode] * (entry - slot * valueRange);
      });
      dirtyCount = order.length;
    },

    frame(values) {
      if (mode === 'quaternion' && dirtyCount === count) {
        updateAll(values);
        return;
      }
      if (mode === 'quaternion') {
        writeQuaternions(values);
      } else {
        writeEuler(values);
      }
      updateWorlds();
    },

    idle() {
      // Nothing listed, nothing to do.
    },

    world(out) {
      for (let node = 0; node < count; ++node) {
        const m = affine * slots[node];
        for (let column = 0; column < 4; ++column) {
          const at = 16 * node + 4 * column;
          out.set(worlds.subarray(m + 3 * column, m + 3 * column + 3), at);
          out[at + 3] = column === 3 ? 1 : 0;
        }
      }
    },
  };
}

module.exports = { createTyped };
