// Compiled in a project that has the package, three.js and its typings.
import * as THREE from 'three';
import { Camera, Character, Scene, ThreeInstances, ThreeWorld, toThree } from 'nq_logic/scene';

export function show(scene: Scene, hero: Character): ThreeWorld<THREE.Group> {
  const world = toThree(THREE, scene);
  new THREE.Scene().add(world.root);
  const root: THREE.Group = world.root;
  const mesh: THREE.SkinnedMesh = world.bind(new THREE.SkinnedMesh(), hero);
  const light: THREE.PointLight = world.follow(new THREE.PointLight(), scene.node());
  const boxes = new THREE.InstancedMesh(undefined, undefined, 8);
  const trees: ThreeInstances = world.instances(boxes, [scene.node()]);
  world.update(scene.addCamera(new Camera()));
  [mesh, light, boxes].forEach((object) => world.remove(object));
  // @ts-expect-error: a mesh without a skeleton
  world.bind(new THREE.Mesh(), hero);
  // @ts-expect-error: no object of three.js
  world.follow(hero, hero);
  // @ts-expect-error: a scene is no library
  toThree(new THREE.Scene(), scene);
  // @ts-expect-error: its place is that of the world
  world.root = root;
  trees.remove(hero);
  return world;
}
