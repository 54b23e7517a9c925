'use strict';
// What it shows: a scene in three.js: a skinned mesh, a lamp on a joint, and the instances that a camera sees.
//
//   node examples/14-interop.js
//
// It needs the packages three and @gltf-transform/core. It draws nothing, so it runs without WebGL.
const THREE = require('three');
const { Camera, Model, Scene, toThree } = require('../scene');
const { makeReed } = require('./reed');

async function main() {
  // --- Set up: a reed with a lamp, a row of stones, and a camera of three.js.
  const model = await Model.load(makeReed());
  const scene = new Scene();
  const world = toThree(THREE, scene);
  const drawn = new THREE.Scene().add(world.root);
  const [reed] = scene.instantiate(model);
  reed.setPosition(2, 0, 0);
  reed.play('bend');
  const [{ positions, joints, weights }] = model.meshes[0].primitives;
  const geometry = new THREE.BufferGeometry()
    .setAttribute('position', new THREE.BufferAttribute(positions, 3))
    .setAttribute('skinIndex', new THREE.BufferAttribute(joints, 4))
    .setAttribute('skinWeight', new THREE.BufferAttribute(weights, 4));
  const mesh = world.bind(new THREE.SkinnedMesh(geometry), reed);
  const socket = reed.attach(scene.node({ position: [0, 1, 0] }), 'joint 2');
  const lamp = world.follow(new THREE.PointLight(), socket);
  const stones = new THREE.InstancedMesh(new THREE.BoxGeometry(), undefined, 20);
  const nodes = Array.from({ length: 20 }, (_, i) => scene.node({ position: [3 * i, 0, -i] }));
  nodes.forEach((node) => node.setSphere(0, 0, 0, 0.9));
  world.instances(stones, nodes);
  const camera = scene.addCamera(new Camera());
  const eye = new THREE.PerspectiveCamera(60, 16 / 9, 0.1, 100);
  eye.position.set(12, 1, 5);
  eye.updateMatrixWorld();
  camera.setFromThree(eye);

  // --- Frame: half a second. A renderer would draw after each update.
  for (let frame = 0; frame < 30; ++frame) {
    scene.update(1 / 60);
    world.update(camera);
  }
  drawn.updateMatrixWorld(); // as renderers do

  // --- Print: places as three.js has them.
  const show = (place) => place.toArray().map((value) => Number(value.toFixed(3)) || 0);
  const top = new THREE.Vector3().fromBufferAttribute(geometry.attributes.position, 7);
  (mesh.applyBoneTransform || mesh.boneTransform).call(mesh, 7, top);
  const light = lamp.getWorldPosition(new THREE.Vector3());
  console.log(`top: ${show(top.applyMatrix4(mesh.matrixWorld))}; lamp: ${show(light)}`);
  const { array } = stones.instanceMatrix;
  const places = nodes.slice(0, stones.count).map((_, i) => array[16 * i + 12]);
  console.log(`stones, nearest first: ${places.join(' ')}`);
}

main().catch((error) => {
  console.error(error.message);
  process.exitCode = 1;
});
