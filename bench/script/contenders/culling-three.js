'use strict';
// Culling as in the renderer of three.js: each object's bounding sphere is transformed by its world matrix and tested
// against the frustum; then a list of reused items is sorted with a depth comparator. The objects hold no other data.
const { Frustum, Matrix4, PerspectiveCamera, Sphere, Vector3 } = require('three');

const byDepth = (a, b) => (a.z !== b.z ? a.z - b.z : a.id - b.id);

/**
 * The contender.
 * @param {import('../lib/culling-scene').CullingScene} scene
 * @param {Float32Array[]} sets world matrices, 16 numbers per object, for each place
 */
function createCullingThree(scene, sets) {
  const objects = [];
  for (let id = 0; id < scene.count; ++id) {
    const [x, y, z, radius] = scene.spheres.subarray(4 * id, 4 * id + 4);
    const boundingSphere = new Sphere(new Vector3(x, y, z), radius);
    objects.push({ id, geometry: { boundingSphere }, matrixWorld: new Matrix4() });
  }
  const camera = new PerspectiveCamera();
  const projScreenMatrix = new Matrix4();
  const frustum = new Frustum();
  const sphere = new Sphere();
  const offset = new Vector3();
  const direction = new Vector3();
  const pool = [];
  const renderList = [];
  let listed = objects;

  function setCamera({ eye, target, up, fov, aspect, near, far }) {
    camera.fov = (fov * 180) / Math.PI;
    camera.aspect = aspect;
    camera.near = near;
    camera.far = far;
    camera.updateProjectionMatrix();
    camera.position.fromArray(eye);
    camera.up.fromArray(up);
    camera.lookAt(target[0], target[1], target[2]);
    camera.updateMatrixWorld();
    camera.getWorldDirection(direction);
    projScreenMatrix.multiplyMatrices(camera.projectionMatrix, camera.matrixWorldInverse);
    frustum.setFromProjectionMatrix(projScreenMatrix);
  }

  function cullAll(tested, description) {
    setCamera(description);
    let used = 0;
    for (let i = 0; i < tested.length; ++i) {
      const object = tested[i];
      sphere.copy(object.geometry.boundingSphere).applyMatrix4(object.matrixWorld);
      if (frustum.intersectsSphere(sphere)) {
        let item = pool[used];
        if (item === undefined) {
          item = { id: 0, object: null, z: 0 };
          pool.push(item);
        }
        item.id = object.id;
        item.object = object;
        item.z = offset.subVectors(sphere.center, camera.position).dot(direction);
        renderList[used++] = item;
      }
    }
    renderList.length = used;
    renderList.sort(byDepth);
  }

  const cull = (description) => cullAll(objects, description);

  return {
    name: 'three',

    move(set) {
      const matrices = sets[set];
      for (let i = 0; i < objects.length; ++i) {
        objects[i].matrixWorld.fromArray(matrices, 16 * i);
      }
    },

    setList(indices) {
      listed = Array.from(indices, (index) => objects[index]);
    },

    cull,
    cullMoved: cull,
    cullList: (description) => cullAll(listed, description),

    view() {
      return {
        objects: renderList.map(({ id }) => id),
        depths: renderList.map(({ z }) => z),
      };
    },
  };
}

module.exports = { createCullingThree };
