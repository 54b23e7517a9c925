'use strict';
// Scenes in three.js: skinned meshes, objects that follow nodes, and instances, compared with what is computed here from
// the matrices of the scene. The check named package also runs this with the newest three.js.
const assert = require('assert');
const three = require('three');
const nq = require('../../../../lib');
const { Camera, Model, Scene, ThreeInstances, ThreeWorld, toThree } = require('../../../../scene');
const { makeReed } = require('../../../../examples/reed');
const { bytesPerRun } = require('../../support/heap');
const { slow } = require('../../support/host');

const engine = nq.getEngine();

/** Whether this version looks bone matrices up in a square texture. */
const isSquare = 'boneTextureSize' in new three.Skeleton([], []);

/** An affine matrix, column-major, times a point. */
function transform(m, at, [x, y, z]) {
  return [0, 1, 2].map(
    (row) => m[at + row] * x + m[at + 4 + row] * y + m[at + 8 + row] * z + m[at + 12 + row]
  );
}

function assertNear(actual, wanted, label) {
  actual.forEach((value, i) => {
    const bound = 1e-5 * Math.max(1, Math.abs(wanted[i]));
    assert(Math.abs(value - wanted[i]) <= bound, `${label}: ${actual}, not ${wanted}`);
  });
}

/** Geometry of three.js for the vertices of a model. */
function geometryOf({ positions, joints, weights, indices }) {
  const geometry = new three.BufferGeometry();
  geometry.setAttribute('position', new three.BufferAttribute(positions, 3));
  geometry.setAttribute('skinIndex', new three.BufferAttribute(joints, 4));
  geometry.setAttribute('skinWeight', new three.BufferAttribute(weights, 4));
  geometry.setIndex(new three.BufferAttribute(indices, 1));
  return geometry;
}

/** A vertex in the world, skinned here. */
function skinned({ positions, joints, weights }, matrices, vertex) {
  const sum = [0, 0, 0];
  const rest = positions.subarray(3 * vertex, 3 * vertex + 3);
  for (let k = 0; k < 4; ++k) {
    const place = transform(matrices, 16 * joints[4 * vertex + k], rest);
    place.forEach((value, axis) => {
      sum[axis] += weights[4 * vertex + k] * value;
    });
  }
  return sum;
}

/** A vertex in the world, skinned by three.js. */
function skinnedByThree(mesh, vertex) {
  const place = new three.Vector3().fromBufferAttribute(mesh.geometry.attributes.position, vertex);
  // The name in earlier versions is the second.
  const skin = mesh.applyBoneTransform || mesh.boneTransform;
  skin.call(mesh, vertex, place);
  return place.applyMatrix4(mesh.matrixWorld).toArray();
}

/** The matrix of a joint, as the shader of the version reads it from the texture. */
function fetched({ boneTexture, boneTextureSize }, joint) {
  const { data, width, height } = boneTexture.image;
  const size = isSquare ? boneTextureSize : width;
  assert.strictEqual(data.length, 4 * width * height);
  const matrix = [];
  for (let column = 0; column < 4; ++column) {
    let [x, y] = [((4 * joint) % size) + column, Math.floor((4 * joint) / size)];
    if (isSquare) {
      // By fractions of the texture, both of the same size.
      x = Math.floor(((x + 0.5) / size) * width);
      y = Math.floor(((y + 0.5) / size) * height);
    }
    assert(x < width && y < height, `pixel ${x}, ${y} of ${width} x ${height}`);
    matrix.push(...data.subarray(4 * (y * width + x), 4 * (y * width + x) + 4));
  }
  return matrix;
}

const matrixAt = (array, i) => Array.from(array.subarray(16 * i, 16 * i + 16));

/** What a renderer does before it draws: matrices of objects, then skeletons of visible meshes. */
function prepare(scene3) {
  scene3.updateMatrixWorld();
  scene3.traverseVisible(({ isSkinnedMesh, skeleton }) => {
    if (isSkinnedMesh) {
      skeleton.update();
      if (skeleton.boneTexture === null) {
        skeleton.computeBoneTexture();
      }
    }
  });
}

/** A scene with its counterpart in three.js. */
function setUp(options) {
  const scene = new Scene(Object.assign({ engine }, options));
  const world = toThree(three, scene);
  const scene3 = new three.Scene();
  scene3.add(world.root);
  return { scene, world, scene3 };
}

const boxMesh = (count) =>
  new three.InstancedMesh(new three.BoxGeometry(1, 1, 1), new three.MeshBasicMaterial(), count);

describe('skinned meshes of three.js', () => {
  let model;
  let part;

  before(async () => {
    model = await Model.load(makeReed(['bend', 'sway']), { name: 'reed' });
    [part] = model.meshes[0].primitives;
  });

  const makeMesh = () => new three.SkinnedMesh(geometryOf(part), new three.MeshBasicMaterial());

  it('have their vertices where the matrices of the character put them', () => {
    const { scene, world, scene3 } = setUp();
    const reeds = scene.instantiate(model, 3);
    const meshes = reeds.map((reed, i) => {
      reed.setPosition(5 * i, i, -i);
      reed.setEuler(0.1 * i, i, 0.3);
      reed.setScale(1 + i);
      reed.play(i % 2 === 0 ? 'bend' : 'sway', { at: 0.3 * i });
      return world.bind(makeMesh(), reed);
    });
    let compared = 0;
    for (let frame = 0; frame < 3; ++frame) {
      scene.update(0.2);
      world.update();
      prepare(scene3);
      reeds.forEach((reed, i) => {
        for (let vertex = 0; vertex < part.positions.length / 3; ++vertex, ++compared) {
          const wanted = skinned(part, reed.skinMatrices(), vertex);
          assertNear(skinnedByThree(meshes[i], vertex), wanted, `reed ${i}, vertex ${vertex}`);
        }
        const { matrixWorld, bindMatrix, bindMatrixInverse, skeleton } = meshes[i];
        assert.deepStrictEqual(Array.from(matrixWorld.elements), Array.from(reed.worldMatrix));
        // The shader multiplies by these, too: nothing but the matrices must remain.
        assert.deepStrictEqual(bindMatrix, new three.Matrix4());
        const product = bindMatrixInverse.clone().premultiply(matrixWorld);
        assertNear(product.elements, new three.Matrix4().elements, 'bind matrices');
        for (let joint = 0; joint < 3; ++joint) {
          assert.deepStrictEqual(fetched(skeleton, joint), matrixAt(reed.skinMatrices(), joint));
          assert.deepStrictEqual(
            matrixAt(skeleton.boneMatrices, joint),
            matrixAt(reed.skinMatrices(), joint)
          );
        }
      });
    }
    assert.strictEqual(compared, 3 * 3 * 8);
    // They differ, so that a mix-up would show.
    assert.notDeepStrictEqual(reeds[0].skinMatrices(), reeds[2].skinMatrices());
    scene.dispose();
  });

  it('use shared memory in place, but for versions with square textures', () => {
    const { scene, world, scene3 } = setUp();
    const [reed] = scene.instantiate(model);
    const { skeleton } = world.bind(makeMesh(), reed);
    scene.update();
    world.update();
    prepare(scene3);
    const { data, width, height } = skeleton.boneTexture.image;
    if (isSquare) {
      assert.deepStrictEqual([width, height], [4, 4]);
    } else {
      assert.strictEqual(data, reed.skinMatrices());
      assert.deepStrictEqual([width, height], [4, 3]);
    }
    const { version } = skeleton.boneTexture;
    skeleton.update();
    assert.strictEqual(skeleton.boneTexture.version, version + 1);
    const [first] = skeleton.bones;
    assert.strictEqual(first.matrixWorld.elements, reed.node(first.name).worldMatrix);
    assert.deepStrictEqual(
      skeleton.bones.map(({ name }) => name),
      model.skins[0].joints.map((joint) => model.nodes[joint].name)
    );
    scene.dispose();
  });

  it('have textures large enough for any number of joints', () => {
    for (const joints of [1, 4, 5, 16, 17, 65, 300]) {
      const { scene, world } = setUp();
      const nodes = [];
      const bytes = new Float32Array(16 * joints);
      for (let i = 0; i < joints; ++i) {
        const transformOf = { translation: [i, 0, 0], rotation: [0, 0, 0, 1], scale: [1, 1, 1] };
        nodes.push(Object.assign({ name: `${i}`, parent: -1 }, transformOf));
        [0, 5, 10, 15].forEach((k) => {
          bytes[16 * i + k] = 1;
        });
      }
      const skin = { name: '', joints: nodes.map((_, i) => i), inverseBindMatrices: bytes.buffer };
      const wide = Model.from({ nodes, skins: [skin], animations: [] });
      const [character] = scene.instantiate(wide);
      const { skeleton } = world.bind(makeMesh(), character);
      scene.update();
      skeleton.computeBoneTexture();
      skeleton.update();
      for (let joint = 0; joint < joints; ++joint) {
        assert.strictEqual(fetched(skeleton, joint)[12], joint);
      }
      scene.dispose();
    }
  });

  it('share a skeleton by character, whose texture is freed with the last of them', () => {
    const { scene, world, scene3 } = setUp();
    const [reed, other] = scene.instantiate(model, 2);
    const [leaf, stem, third] = [reed, reed, other].map((one) => world.bind(makeMesh(), one));
    assert.strictEqual(leaf.skeleton, stem.skeleton);
    assert.notStrictEqual(leaf.skeleton, third.skeleton);
    assert.strictEqual(leaf.skeleton.boneInverses, third.skeleton.boneInverses);
    scene.update();
    world.update();
    prepare(scene3);
    let freed = 0;
    leaf.skeleton.boneTexture.addEventListener('dispose', () => ++freed);
    world.remove(leaf);
    assert.strictEqual(freed, 0);
    world.remove(stem);
    assert.strictEqual(freed, 1);
    assert.deepStrictEqual(world.root.children, [third]);
    // A renderer that frees the texture itself gets a new one.
    third.skeleton.dispose();
    prepare(scene3);
    assert.deepStrictEqual(fetched(third.skeleton, 2), matrixAt(other.skinMatrices(), 2));
    scene.dispose();
  });

  it('are not moved by pose() and calculateInverses() of three.js', () => {
    const { scene, world, scene3 } = setUp();
    const [reed] = scene.instantiate(model);
    reed.setPosition(1, 2, 3);
    const mesh = world.bind(makeMesh(), reed);
    scene.update();
    world.update();
    const before = Array.from(reed.node(2).worldMatrix);
    mesh.pose();
    mesh.skeleton.calculateInverses();
    prepare(scene3);
    assert.deepStrictEqual(Array.from(reed.node(2).worldMatrix), before);
    assertNear(skinnedByThree(mesh, 7), skinned(part, reed.skinMatrices(), 7), 'vertex');
    scene.dispose();
  });
});

describe('objects of three.js that follow nodes', () => {
  it('have the world matrix of the node, and their children follow', () => {
    const { scene, world, scene3 } = setUp();
    const arm = scene.node({ position: [1, 2, 3], scale: 2 });
    const hand = scene.node({ position: [0, 1, 0], parent: arm });
    const sword = new three.Mesh(new three.BoxGeometry(), new three.MeshBasicMaterial());
    const tip = new three.Object3D();
    tip.position.set(0, 0.5, 0);
    sword.add(tip);
    assert.strictEqual(world.follow(sword, hand), sword);
    for (let frame = 0; frame < 3; ++frame) {
      arm.setPosition(frame, 2, 3);
      scene.update();
      world.update();
      scene3.updateMatrixWorld();
      assert.strictEqual(sword.matrix.elements, hand.worldMatrix);
      const wanted = [2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, frame, 4, 3, 1];
      assert.deepStrictEqual(Array.from(sword.matrixWorld.elements), wanted);
      assert.deepStrictEqual(tip.getWorldPosition(new three.Vector3()).toArray(), [frame, 5, 3]);
    }
    scene.dispose();
  });

  it('move where three.js updates nothing by itself', () => {
    const { scene, world, scene3 } = setUp();
    scene3.matrixAutoUpdate = false;
    const node = scene.node();
    const object = world.follow(new three.Group(), node);
    for (const x of [1, 2]) {
      node.setPosition(x, 0, 0);
      scene.update();
      world.update();
      scene3.updateMatrixWorld();
      assert.strictEqual(object.matrixWorld.elements[12], x);
    }
    scene.dispose();
  });

  it('may be cameras', () => {
    const { scene, world, scene3 } = setUp();
    const eye = world.follow(new three.PerspectiveCamera(), scene.node({ position: [0, 0, 7] }));
    scene.update();
    world.update();
    scene3.updateMatrixWorld();
    assert.deepStrictEqual(Array.from(eye.matrixWorldInverse.elements).slice(12), [0, 0, -7, 1]);
    scene.dispose();
  });

  it('are visible where the camera of the scene sees their node, or it has no sphere', () => {
    const { scene, world } = setUp();
    const camera = scene.addCamera(new Camera());
    const [near, behind, bare] = [-5, 5, 5].map((z) => scene.node({ position: [0, 0, z] }));
    near.setSphere(0, 0, 0, 1);
    behind.setSphere(0, 0, 0, 1);
    const objects = [near, behind, bare].map((node) => world.follow(new three.Group(), node));
    const visible = () => objects.map((object) => object.visible);
    scene.update();
    world.update(camera);
    assert.deepStrictEqual(visible(), [true, false, true]);
    behind.setPosition(0, 0, -9);
    scene.update();
    world.update(camera);
    assert.deepStrictEqual(visible(), [true, true, true]);
    near.layers = 0;
    scene.update();
    world.update(camera);
    assert.deepStrictEqual(visible(), [false, true, true]);
    world.update();
    assert.deepStrictEqual(visible(), [true, true, true]);
    scene.dispose();
  });

  it('are visible and culled as before when they are removed', () => {
    const { scene, world } = setUp();
    const camera = scene.addCamera(new Camera());
    const node = scene.node({ position: [0, 0, 5] });
    node.setSphere(0, 0, 0, 1);
    const shown = world.follow(new three.Group(), node);
    const hidden = Object.assign(new three.Group(), { visible: false, frustumCulled: false });
    world.follow(hidden, node);
    scene.update();
    world.update(camera);
    assert.deepStrictEqual([shown.visible, shown.frustumCulled], [false, false]);
    world.update();
    assert.strictEqual(hidden.visible, true);
    world.update(camera);
    [shown, hidden].forEach((object) => world.remove(object));
    assert.deepStrictEqual([shown.visible, shown.frustumCulled], [true, true]);
    assert.deepStrictEqual([hidden.visible, hidden.frustumCulled], [false, false]);
    scene.dispose();
  });

  it('go on to follow their node if another can not be followed', () => {
    const { scene, world } = setUp();
    const node = scene.node({ position: [2, 0, 0] });
    const object = world.follow(new three.Group(), node);
    assert.throws(() => world.follow(object, {}), /give a node of the scene/);
    scene.update();
    world.update();
    assert.deepStrictEqual(world.root.children, [object]);
    assert.strictEqual(object.matrix.elements[12], 2);
    scene.dispose();
  });

  it('leave when their node is disposed of, and have their own matrix again', () => {
    const { scene, world, scene3 } = setUp();
    const [node, other] = [1, 2].map((x) => scene.node({ position: [x, 0, 0] }));
    const [object, kept, removed] = [node, other, other].map((one) =>
      world.follow(new three.Group(), one)
    );
    scene.update();
    world.update();
    scene3.updateMatrixWorld();
    node.dispose();
    world.remove(removed);
    const reused = scene.node({ position: [9, 9, 9] });
    scene.update();
    world.update();
    scene3.updateMatrixWorld();
    assert.deepStrictEqual(world.root.children, [kept]);
    assert(reused.worldMatrix[12] === 9 && kept.matrixWorld.elements[12] === 2);
    assert.notStrictEqual(object.matrix.elements, reused.worldMatrix);
    assert.strictEqual(removed.matrix.elements[12], 2);
    assert.strictEqual(object.matrixAutoUpdate, true);
    // It can follow another node.
    world.follow(object, reused);
    world.follow(kept, reused);
    assert.deepStrictEqual(world.root.children, [object, kept]);
    world.dispose();
    assert.deepStrictEqual(world.root.children, []);
    const message = 'ThreeWorld.update: the world is disposed of: make another by toThree.';
    assert.throws(() => world.update(), { name: 'Error', message });
    scene.dispose();
  });
});

describe('instances of three.js', () => {
  const placesOf = (mesh) =>
    Array.from({ length: mesh.count }, (_, i) => mesh.instanceMatrix.array[16 * i + 12]);

  it('have the world matrices of their nodes', () => {
    const { scene, world } = setUp();
    const nodes = [0, 1, 2, 3].map((i) => scene.node({ position: [i, 2 * i, 3], scale: 1 + i }));
    const mesh = boxMesh(10);
    const set = world.instances(mesh, nodes);
    assert(set instanceof ThreeInstances && world instanceof ThreeWorld);
    assert(mesh.parent === world.root && set.count === 4);
    nodes.forEach((node) => node.setEuler(0.5, 0.25, 1));
    scene.update();
    const { version } = mesh.instanceMatrix;
    world.update();
    assert.strictEqual(mesh.count, 4);
    assert.strictEqual(mesh.instanceMatrix.version, version + 1);
    const found = [0, 1, 2, 3].map((i) => {
      const matrix = new three.Matrix4();
      mesh.getMatrixAt(i, matrix);
      return Array.from(matrix.elements);
    });
    const byPlace = (a, b) => a[12] - b[12];
    assert.deepStrictEqual(
      found.sort(byPlace),
      nodes.map((node) => Array.from(node.worldMatrix))
    );
    // Only these are uploaded.
    const { updateRange, updateRanges } = mesh.instanceMatrix;
    const { start = 0, count } = updateRanges === undefined ? updateRange : updateRanges[0];
    assert.deepStrictEqual([start, count], [0, 64]);
    scene.dispose();
  });

  it('are those that a camera sees, nearest first, and nodes without spheres', () => {
    const { scene, world } = setUp();
    const camera = scene.addCamera(new Camera({ fovDegrees: 90, far: 100 }));
    camera.lookAt(1, 0, 0);
    const nodes = [30, 10, -5, 20, 200].map((x) => scene.node({ position: [x, 0, 0] }));
    nodes.forEach((node) => node.setSphere(0, 0, 0, 1));
    const [wood, leaves] = [boxMesh(6), boxMesh(6)];
    const trees = world.instances(wood, nodes);
    world.instances(leaves, nodes);
    scene.update();
    world.update(camera);
    for (const mesh of [wood, leaves]) {
      assert.deepStrictEqual(placesOf(mesh), [10, 20, 30]);
    }
    const bare = trees.add(scene.node({ position: [-7, 0, 0] }));
    nodes[1].setPosition(25, 0, 0);
    scene.update();
    world.update(camera);
    assert.deepStrictEqual(placesOf(wood), [20, 25, 30, -7]);
    assert.deepStrictEqual(placesOf(leaves), [20, 25, 30]);
    trees.remove(bare);
    trees.remove(bare);
    world.update();
    assert.deepStrictEqual(
      placesOf(wood).sort((a, b) => a - b),
      [-5, 20, 25, 30, 200]
    );
    camera.lookAt(0, 1, 0);
    camera.setUp(0, 0, 1);
    scene.update();
    const { version } = wood.instanceMatrix;
    world.update(camera);
    assert(wood.count === 0 && wood.instanceMatrix.version === version);
    scene.dispose();
  });

  it('come and go with their nodes', () => {
    const { scene, world } = setUp();
    const camera = scene.addCamera(new Camera());
    camera.lookAt(0, 0, -1);
    const mesh = boxMesh(8);
    const set = world.instances(mesh);
    const at = (x) => {
      const node = scene.node({ position: [x, 0, -50] });
      node.setSphere(0, 0, 0, 1);
      return set.add(node);
    };
    const nodes = [0, 1, 2, 3].map(at);
    scene.update();
    // After the culling, but before the update of the world.
    nodes[0].dispose();
    nodes[2].dispose();
    world.update(camera);
    assert.deepStrictEqual(placesOf(mesh).sort(), [1, 3]);
    assert.strictEqual(set.count, 2);
    at(4);
    at(5);
    scene.update();
    world.update(camera);
    assert.deepStrictEqual(placesOf(mesh).sort(), [1, 3, 4, 5]);
    set.add(nodes[1]);
    assert.strictEqual(set.count, 4);
    world.remove(mesh);
    assert.deepStrictEqual(world.root.children, []);
    scene.update();
    world.update(camera);
    scene.dispose();
  });

  it('stay as they are if others can not take their place', () => {
    const { scene, world } = setUp();
    const [node, other] = [1, 2].map((x) => scene.node({ position: [x, 0, 0] }));
    const mesh = boxMesh(4);
    const set = world.instances(mesh, [node]);
    assert.throws(() => world.instances(mesh, [other, 4]), /give a node of the scene/);
    set.add(other);
    scene.update();
    world.update();
    assert.deepStrictEqual(placesOf(mesh).sort(), [1, 2]);
    world.instances(mesh, [other]);
    world.update();
    assert.deepStrictEqual(placesOf(mesh), [2]);
    assert.deepStrictEqual(world.root.children, [mesh]);
    scene.dispose();
  });

  it('end where their mesh follows a node, and leave it to three.js', () => {
    const { scene, world } = setUp();
    const node = scene.node();
    const mesh = Object.assign(boxMesh(4), { frustumCulled: true });
    const set = world.instances(mesh, [node]);
    scene.update();
    world.update();
    world.follow(mesh, node);
    assert.strictEqual(set.count, 0);
    assert.throws(() => set.add(node), /the mesh was removed from the world/);
    world.remove(mesh);
    assert.deepStrictEqual(world.root.children, []);
    assert.strictEqual(mesh.frustumCulled, true);
    // All matrices are uploaded again, not only those that were written here.
    const { updateRange, updateRanges } = mesh.instanceMatrix;
    assert.deepStrictEqual(updateRanges || updateRange.count, updateRanges ? [] : -1);
    scene.dispose();
  });

  it('are hit by rays where they are now', () => {
    const { scene, world, scene3 } = setUp();
    const node = scene.node({ position: [0, 0, 0] });
    const mesh = boxMesh(4);
    world.instances(mesh, [node]);
    const ray = new three.Raycaster(new three.Vector3(20, 0, 9), new three.Vector3(0, 0, -1));
    const hits = [0, 20].map((x) => {
      node.setPosition(x, 0, 0);
      scene.update();
      world.update();
      scene3.updateMatrixWorld();
      return ray.intersectObject(mesh).length > 0;
    });
    assert.deepStrictEqual(hits, [false, true]);
    scene.dispose();
  });
});

describe('toThree', () => {
  it('names wrong arguments, and the cure', () => {
    const { scene, world } = setUp();
    const elsewhere = new Scene({ engine });
    const gone = scene.node({ name: 'gone' });
    gone.dispose();
    const group = new three.Group();
    const mesh = new three.SkinnedMesh(new three.BufferGeometry(), new three.MeshBasicMaterial());
    const [bare] = scene.instantiate(Model.from({ nodes: [], skins: [], animations: [] }));
    const full = world.instances(boxMesh(1), [scene.node()]);
    const cases = [
      [() => toThree(undefined, scene), 'TypeError', 'three is undefined: give three.js, as in'],
      [() => toThree({}, scene), 'TypeError', 'three has no Group: give three.js, as in toThree('],
      [() => toThree(three, {}), 'TypeError', 'scene is an object: give a scene.'],
      [() => world.follow(4, scene.root), 'TypeError', 'object is 4: give an object of three.js.'],
      [() => world.follow(group, 4), 'TypeError', 'node is 4: give a node of the scene.'],
      [() => world.follow(group, gone), 'Error', "node 'gone' is disposed of: give another."],
      [() => world.follow(group, elsewhere.root), 'RangeError', "node 'root' is in another scene:"],
      [() => world.bind(group, bare), 'TypeError', 'mesh is an object: give a SkinnedMesh of'],
      [() => world.bind(mesh, scene.root), 'TypeError', 'character is an object: give a character'],
      [() => world.bind(mesh, bare), 'RangeError', 'skin is 0, of 0: there are none.'],
      [() => world.instances(group), 'TypeError', 'mesh is an object: give an InstancedMesh of'],
      [() => full.add(scene.root), 'RangeError', 'the mesh has room for 1 instances: make an'],
      [
        () => world.update({}),
        'TypeError',
        'camera is an object: leave it out or give a camera of',
      ],
      [
        () => {
          const camera = new Camera();
          camera.cull(elsewhere);
          world.update(camera);
        },
        'RangeError',
        'camera has culled another scene: give a camera of the scene, or cull it for that before.',
      ],
    ];
    for (const [call, name, part] of cases) {
      assert.throws(call, (error) => {
        assert.strictEqual(error.name, name, error.message);
        assert(/^(toThree|ThreeWorld\.\w+|ThreeInstances\.add): /.test(error.message));
        assert(error.message.includes(`: ${part}`), error.message);
        return true;
      });
    }
    assert.strictEqual(full.count, 1);
    scene.dispose();
    elsewhere.dispose();
  });

  it('allocates nothing per frame', async function () {
    if (slow) {
      this.skip();
    }
    const { scene, world } = setUp({ isTimed: false });
    const model = await Model.load(makeReed(['bend', 'sway']));
    const [part] = model.meshes[0].primitives;
    const geometry = geometryOf(part);
    const meshes = scene.instantiate(model, 20).map((reed, i) => {
      reed.setPosition(i - 10, 0, -20);
      reed.play('bend', { at: i / 20 });
      return world.bind(new three.SkinnedMesh(geometry, new three.MeshBasicMaterial()), reed);
    });
    const nodes = Array.from({ length: 50 }, (_, i) => scene.node({ position: [i - 25, 0, -9] }));
    nodes.forEach((node) => node.setSphere(0, 0, 0, 1));
    const mesh = boxMesh(50);
    world.instances(mesh, nodes);
    world.follow(new three.Group(), nodes[0]);
    const camera = scene.addCamera(new Camera({ fovDegrees: 60 }));
    meshes.forEach(({ skeleton }) => skeleton.computeBoneTexture());
    let drawn = 0;
    const frame = (i) => {
      camera.lookAt((i % 7) - 3, 0, -20);
      scene.update(1 / 64);
      world.update(camera);
      for (let k = 0; k < meshes.length; ++k) {
        meshes[k].skeleton.update();
      }
      drawn += mesh.count;
    };
    assert.strictEqual(bytesPerRun(frame), 0);
    assert(drawn > 10000 && mesh.count < 50, `${drawn}`);
    scene.dispose();
  });
});
