'use strict';
// gl-matrix: an object per node with its own vectors and matrices, in an array with parents before children, and one
// forward pass.
const { mat4, quat, vec3 } = require('gl-matrix');

/**
 * The contender.
 * @param {import('../lib/scenes').Tree} tree
 */
function createGlMatrix(tree) {
  const nodes = [];
  for (let node = 0; node < tree.count; ++node) {
    nodes.push({
      parent: node === 0 ? null : nodes[tree.parents[node]],
      rotation: quat.create(),
      euler: vec3.create(),
      position: vec3.create(),
      scale: vec3.clone(tree.scales.subarray(3 * node, 3 * node + 3)),
      local: mat4.create(),
      world: mat4.create(),
      changed: false,
    });
  }
  let dirty = [];
  let mode = 'quaternion';

  function update() {
    for (let i = 0; i < nodes.length; ++i) {
      const node = nodes[i];
      const parent = node.parent;
      if (parent === null) {
        if (node.changed) {
          mat4.copy(node.world, node.local);
        }
      } else if (node.changed || parent.changed) {
        mat4.multiply(node.world, parent.world, node.local);
        node.changed = true;
      }
    }
    for (let i = 0; i < nodes.length; ++i) {
      nodes[i].changed = false;
    }
  }

  return {
    name: 'gl-matrix',

    setDirty(indices, rotationMode) {
      dirty = Array.from(indices, (index) => nodes[index]);
      mode = rotationMode;
    },

    frame(values) {
      if (mode === 'quaternion') {
        for (let k = 0, v = 0; k < dirty.length; ++k, v += 7) {
          const node = dirty[k];
          quat.set(node.rotation, values[v], values[v + 1], values[v + 2], values[v + 3]);
          vec3.set(node.position, values[v + 4], values[v + 5], values[v + 6]);
          mat4.fromRotationTranslationScale(node.local, node.rotation, node.position, node.scale);
          node.changed = true;
        }
      } else {
        for (let k = 0, v = 0; k < dirty.length; ++k, v += 6) {
          const node = dirty[k];
          vec3.set(node.euler, values[v], values[v + 1], values[v + 2]);
          vec3.set(node.position, values[v + 3], values[v + 4], values[v + 5]);
          mat4.fromTranslation(node.local, node.position);
          mat4.rotateX(node.local, node.local, node.euler[0]);
          mat4.rotateY(node.local, node.local, node.euler[1]);
          mat4.rotateZ(node.local, node.local, node.euler[2]);
          mat4.scale(node.local, node.local, node.scale);
          node.changed = true;
        }
      }
      update();
    },

    idle() {
      update();
    },

    world(out) {
      for (let i = 0; i < nodes.length; ++i) {
        out.set(nodes[i].world, 16 * i);
      }
    },
  };
}

module.exports = { createGlMatrix };
