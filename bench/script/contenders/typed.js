'use strict';
// Hand-optimised plain JavaScript: flat arrays in depth-first order, so that a node is followed by its descendants,
// and one forward pass. The bar for the module.
//
// Local matrices keep 12 numbers and products omit the constant last row, which is less work than a general product
// and gives the same numbers. The order is fixed: unlike the other contenders, this one could not move a node to
// another parent without rebuilding it.
//
// Code is duplicated between the ways to write transforms, and the product between contenders of plain JavaScript, on
// purpose: a function with a branch inside, or a shared one, would be optimised worse.

const { preorder } = require('../lib/scenes');

/**
 * The contender.
 * @param {import('../lib/scenes').Tree} tree
 */
function createTyped(tree) {
  const count = tree.count;
  const slots = preorder(tree); // by node
  const parents = new Int32Array(count);
  const rotations = new Float32Array(4 * count);
  const positions = new Float32Array(3 * count);
  const scales = new Float32Array(3 * count);
  const locals = new Float32Array(12 * count);
  const worlds = new Float32Array(16 * count);
  const markWords = new Uint32Array((count + 3) >> 2);
  const marks = new Uint8Array(markWords.buffer); // 1: the world matrix must be computed
  const ends = new Int32Array(count); // one past the last slot below
  for (let node = 0; node < count; ++node) {
    const slot = slots[node];
    worlds[16 * slot + 15] = 1;
    parents[slot] = node === 0 ? -1 : slots[tree.parents[node]];
    scales.set(tree.scales.subarray(3 * node, 3 * node + 3), 3 * slot);
  }
  for (let slot = count - 1; slot >= 0; --slot) {
    ends[slot] = Math.max(ends[slot], slot + 1);
    if (slot > 0) {
      ends[parents[slot]] = Math.max(ends[parents[slot]], ends[slot]);
    }
  }
  let dirty = new Int32Array(0);
  let mode = 'quaternion';

  function writeQuaternions(values) {
    for (let k = 0, v = 0; k < dirty.length; ++k, v += 7) {
      const slot = dirty[k];
      const r = 4 * slot;
      const p = 3 * slot;
      rotations[r] = values[v];
      rotations[r + 1] = values[v + 1];
      rotations[r + 2] = values[v + 2];
      rotations[r + 3] = values[v + 3];
      positions[p] = values[v + 4];
      positions[p + 1] = values[v + 5];
      positions[p + 2] = values[v + 6];
      marks[slot] = 1;
    }
  }

  function writeEuler(values) {
    for (let k = 0, v = 0; k < dirty.length; ++k, v += 6) {
      const slot = dirty[k];
      const r = 4 * slot;
      const p = 3 * slot;
      rotations[r] = values[v];
      rotations[r + 1] = values[v + 1];
      rotations[r + 2] = values[v + 2];
      positions[p] = values[v + 3];
      positions[p + 1] = values[v + 4];
      positions[p + 2] = values[v + 5];
      marks[slot] = 1;
    }
  }

  function buildFromQuaternion(slot) {
    const r = 4 * slot;
    const t = 3 * slot;
    const m = 12 * slot;
    const x = rotations[r];
    const y = rotations[r + 1];
    const z = rotations[r + 2];
    const w = rotations[r + 3];
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
    locals[m + 9] = positions[t];
    locals[m + 10] = positions[t + 1];
    locals[m + 11] = positions[t + 2];
  }

  function buildFromEuler(slot) {
    const r = 4 * slot;
    const t = 3 * slot;
    const m = 12 * slot;
    const x = rotations[r];
    const y = rotations[r + 1];
    const z = rotations[r + 2];
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
    locals[m + 9] = positions[t];
    locals[m + 10] = positions[t + 1];
    locals[m + 11] = positions[t + 2];
  }

  function multiply(parent, slot) {
    const a = 16 * parent;
    const b = 12 * slot;
    const o = 16 * slot;
    const a0 = worlds[a];
    const a1 = worlds[a + 1];
    const a2 = worlds[a + 2];
    const a4 = worlds[a + 4];
    const a5 = worlds[a + 5];
    const a6 = worlds[a + 6];
    const a8 = worlds[a + 8];
    const a9 = worlds[a + 9];
    const a10 = worlds[a + 10];
    let x = locals[b];
    let y = locals[b + 1];
    let z = locals[b + 2];
    worlds[o] = a0 * x + a4 * y + a8 * z;
    worlds[o + 1] = a1 * x + a5 * y + a9 * z;
    worlds[o + 2] = a2 * x + a6 * y + a10 * z;
    x = locals[b + 3];
    y = locals[b + 4];
    z = locals[b + 5];
    worlds[o + 4] = a0 * x + a4 * y + a8 * z;
    worlds[o + 5] = a1 * x + a5 * y + a9 * z;
    worlds[o + 6] = a2 * x + a6 * y + a10 * z;
    x = locals[b + 6];
    y = locals[b + 7];
    z = locals[b + 8];
    worlds[o + 8] = a0 * x + a4 * y + a8 * z;
    worlds[o + 9] = a1 * x + a5 * y + a9 * z;
    worlds[o + 10] = a2 * x + a6 * y + a10 * z;
    x = locals[b + 9];
    y = locals[b + 10];
    z = locals[b + 11];
    worlds[o + 12] = a0 * x + a4 * y + a8 * z + worlds[a + 12];
    worlds[o + 13] = a1 * x + a5 * y + a9 * z + worlds[a + 13];
    worlds[o + 14] = a2 * x + a6 * y + a10 * z + worlds[a + 14];
  }

  function copyRoot() {
    for (let column = 0; column < 4; ++column) {
      for (let row = 0; row < 3; ++row) {
        worlds[4 * column + row] = locals[3 * column + row];
      }
    }
  }

  function buildChanged() {
    if (mode === 'quaternion') {
      for (let k = 0; k < dirty.length; ++k) {
        buildFromQuaternion(dirty[k]);
      }
    } else {
      for (let k = 0; k < dirty.length; ++k) {
        buildFromEuler(dirty[k]);
      }
    }
  }

  // A changed node changes all its descendants: the range of slots up to its end. Where nothing changed the pass
  // tests four marks at once.
  function updateWorlds() {
    let slot = 0;
    if (marks[0] !== 0) {
      copyRoot();
      updateRange(1, count);
      slot = count;
    }
    while (slot < count) {
      let word = slot >> 2;
      if (slot === 4 * word) {
        while (word < markWords.length && markWords[word] === 0) {
          ++word;
        }
        slot = 4 * word;
      }
      if (slot < count && marks[slot] !== 0) {
        updateRange(slot, ends[slot]);
        slot = ends[slot];
      } else {
        ++slot;
      }
    }
    marks.fill(0);
  }

  function updateRange(from, to) {
    for (let slot = from; slot < to; ++slot) {
      multiply(parents[slot], slot);
    }
  }

  function update() {
    if (dirty.length !== 0) {
      buildChanged();
      updateWorlds();
    }
  }

  return {
    name: 'typed',

    setDirty(nodes, rotationMode) {
      dirty = Int32Array.from(nodes, (node) => slots[node]);
      mode = rotationMode;
    },

    frame(values) {
      if (mode === 'quaternion') {
        writeQuaternions(values);
      } else {
        writeEuler(values);
      }
      update();
    },

    idle() {
      // Nothing listed, nothing to do.
    },

    world(out) {
      for (let node = 0; node < count; ++node) {
        out.set(worlds.subarray(16 * slots[node], 16 * slots[node] + 16), 16 * node);
      }
    },
  };
}

module.exports = { createTyped };
