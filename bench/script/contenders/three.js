'use strict';
// three.js with automatic updates off: sets transforms of changed objects and calls updateMatrix(), then one
// updateMatrixWorld() on the root.
const { Object3D } = require('three');

/**
 * The contender.
 * @param {import('../lib/scenes').Tree} tree
 */
function createThree(tree) {
  const objects = [];
  for (let node = 0; node < tree.count; ++node) {
    const object = new Object3D();
    object.matrixAutoUpdate = false;
    object.scale.fromArray(tree.scales, 3 * node);
    objects.push(object);
    if (node !== 0) {
      objects[tree.parents[node]].add(object);
    }
  }
  const root = objects[0];
  let changed = [];
  let mode = 'quaternion';

  return {
    name: 'three',

    setDirty(nodes, rotationMode) {
      changed = Array.from(nodes, (node) => objects[node]);
      mode = rotationMode;
    },

    frame(values) {
      if (mode === 'quaternion') {
        for (let k = 0, v = 0; k < changed.length; ++k, v += 7) {
          const object = changed[k];
          object.quaternion.set(values[v], values[v + 1], values[v + 2], values[v + 3]);
          object.position.set(values[v + 4], values[v + 5], values[v + 6]);
          object.updateMatrix();
        }
      } else {
        for (let k = 0, v = 0; k < changed.length; ++k, v += 6) {
          const object = changed[k];
          object.rotation.set(values[v], values[v + 1], values[v + 2]);
          object.position.set(values[v + 3], values[v + 4], values[v + 5]);
          object.updateMatrix();
        }
      }
      root.updateMatrixWorld();
    },

    idle() {
      root.updateMatrixWorld();
    },

    world(out) {
      for (let node = 0; node < tree.count; ++node) {
        out.set(objects[node].matrixWorld.elements, 16 * node);
      }
    },
  };
}

module.exports = { createThree };
