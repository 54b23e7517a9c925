'use strict';
// Nodes of scenes: their places in the tree against three.js, more changes than the engine takes at once, reuse of memory,
// and the messages for what is wrong.
const assert = require('assert');
const { over } = require('../../support/blocks');
const three = require('three');
const nq = require('../../../../lib');
const { Camera, Model, Node, Scene } = require('../../../../scene');
const { createRandom } = require('../../../fixtures/world');
const { columnLengths, multiplyMagnitudes } = require('../../support/reference');
const { collect } = require('../../support/collect');

const kUnit = Math.pow(2, -24);

// One engine for all scenes: engines stay until the process ends.
const engine = nq.getEngine();

/** The error of a chain of products of local matrices, by the magnitudes of their factors. */
function errorOf(object) {
  let depth = 1;
  let magnitudes = columnLengths(object.matrix.elements);
  for (let above = object.parent; above !== null; above = above.parent, ++depth) {
    magnitudes = multiplyMagnitudes(columnLengths(above.matrix.elements), magnitudes);
  }
  // 8u for the elements of a local matrix, 4u for each sum of four products.
  return Array.from(magnitudes, (value) => 12 * kUnit * depth * Math.abs(value) + 1e-30);
}

function assertWorld(node, object, label) {
  const bounds = errorOf(object);
  Array.from(node.worldMatrix).forEach((value, i) => {
    const wanted = object.matrixWorld.elements[i];
    assert(Math.abs(value - wanted) <= bounds[i], `${label}, element ${i}: ${value}, ${wanted}`);
  });
}

/** Both sides of a tree. */
class Pair {
  constructor(random) {
    this.random = random;
    this.scene = new Scene({ engine });
    this.root = new three.Group();
    this.nodes = [];
    this.objects = [];
  }

  number(scale) {
    return this.random.real(-scale / 2, scale / 2);
  }

  place(node, object) {
    const position = [this.number(8), this.number(8), this.number(8)];
    const rotation = new three.Quaternion(
      ...[this.number(2), this.number(2), this.number(2), this.number(2)]
    ).normalize();
    const quaternion = rotation.toArray().map(Math.fround);
    const scale = [1, 1, 1].map(() => this.random.real(0.75, 1.25));
    node.setPosition(...position);
    node.quaternion = quaternion;
    node.setScale(...scale);
    object.position.fromArray(position);
    object.quaternion.fromArray(quaternion);
    object.scale.fromArray(scale);
  }

  add(parent) {
    const node = this.scene.node(parent < 0 ? {} : { parent: this.nodes[parent] });
    const object = new three.Object3D();
    (parent < 0 ? this.root : this.objects[parent]).add(object);
    this.place(node, object);
    this.nodes.push(node);
    this.objects.push(object);
  }

  assertEqual(label) {
    this.scene.update();
    this.root.updateMatrixWorld(true);
    this.nodes.forEach((node, i) => assertWorld(node, this.objects[i], `${label}, node ${i}`));
  }
}

describe('nodes of a scene', () => {
  it('have the world matrices of three.js, also after changes and moves in the tree', () => {
    const random = createRandom(7);
    const pair = new Pair(random);
    for (let i = 0; i < 300; ++i) {
      pair.add(random.below(i + 1) - 1);
    }
    pair.assertEqual('new');
    for (let round = 0; round < 5; ++round) {
      for (let i = 0; i < 40; ++i) {
        const which = random.below(300);
        pair.place(pair.nodes[which], pair.objects[which]);
      }
      for (let i = 0; i < 10; ++i) {
        // Later ones under earlier ones make no cycles.
        const child = 1 + random.below(299);
        const parent = random.below(child);
        let above = pair.objects[parent];
        while (above !== null && above !== pair.objects[child]) {
          above = above.parent;
        }
        if (above === null) {
          pair.scene.add(pair.nodes[parent], pair.nodes[child]);
          pair.objects[parent].add(pair.objects[child]);
        }
      }
      pair.assertEqual(`round ${round}`);
    }
    pair.scene.dispose();
  });

  it('are read and written as arrays, too', () => {
    const scene = new Scene({ engine });
    const node = scene.node({ name: 'a', position: [1, 2, 3], quaternion: [0, 0, 1, 0], scale: 2 });
    assert.strictEqual(node.name, 'a');
    assert.strictEqual(node.parent, scene.root);
    assert.deepStrictEqual(node.position, [1, 2, 3]);
    assert.deepStrictEqual(node.quaternion, [0, 0, 1, 0]);
    assert.deepStrictEqual(node.scale, [2, 2, 2]);
    node.scale = [1, 2, 3];
    node.position = Float32Array.of(4, 5, 6);
    assert.deepStrictEqual(node.scale, [1, 2, 3]);
    scene.update();
    assert.deepStrictEqual(node.readWorldPosition([0, 0, 0]), [4, 5, 6]);
    // A half turn about z, then the scale.
    const wanted = [-1, 0, 0, 0, 0, -2, 0, 0, 0, 0, 3, 0, 4, 5, 6, 1];
    assert.deepStrictEqual(
      Array.from(node.worldMatrix, (value) => value || 0),
      wanted
    );
    assert.deepStrictEqual(node.readWorldMatrix(new Float32Array(16)), node.worldMatrix);
    assert.strictEqual(node.worldMatrix, node.worldMatrix);
    const record = new nq.Entity3DView(scene._blocks.views[0].object);
    assert.strictEqual(record.handle(node.handle & 0xfff), node.handle);
    scene.dispose();
  });

  it('take Euler angles as three.js does', () => {
    const scene = new Scene({ engine });
    const node = scene.node();
    node.setEuler(0.3, -1.1, 2.5);
    const wanted = new three.Quaternion().setFromEuler(new three.Euler(0.3, -1.1, 2.5, 'XYZ'));
    node.quaternion.forEach((value, i) => {
      assert(Math.abs(value - wanted.toArray()[i]) <= 2 * kUnit);
    });
    scene.dispose();
  });

  it('look at places as three.js does, before any update', () => {
    const pair = new Pair(createRandom(3));
    for (let i = 0; i < 4; ++i) {
      pair.add(i - 1);
    }
    // Without scales: three.js ignores the shear of rotated ones.
    pair.nodes.forEach((node) => node.setScale(1));
    pair.objects.forEach((object) => object.scale.set(1, 1, 1));
    pair.root.updateMatrixWorld(true);
    for (const [i, place] of [
      [0, [1, 2, 3]],
      [3, [-5, 0.5, 9]],
      [2, [0, -7, 0]],
    ]) {
      pair.nodes[i].lookAt(...place);
      pair.root.updateMatrixWorld(true);
      pair.objects[i].lookAt(...place);
      const wanted = pair.objects[i].quaternion.toArray();
      const actual = pair.nodes[i].quaternion;
      const dot = Math.abs(wanted.reduce((sum, value, k) => sum + value * actual[k], 0));
      assert(dot > 1 - 1e-6, `${actual} instead of ${wanted}`);
      pair.objects[i].quaternion.fromArray(actual);
    }
    pair.scene.dispose();
  });

  it('keep their matrices while they are out of the tree, and go on when they are back', () => {
    const scene = new Scene({ engine });
    const [parent, child] = [scene.node(), scene.node({ position: [1, 0, 0] })];
    parent.add(child);
    assert.deepStrictEqual(parent.children, [child]);
    scene.update();
    child.remove();
    assert.strictEqual(child.parent, null);
    assert.deepStrictEqual(parent.children, []);
    parent.setPosition(0, 5, 0);
    scene.update();
    assert.deepStrictEqual(child.readWorldPosition([0, 0, 0]), [1, 0, 0]);
    parent.add(child);
    scene.update();
    assert.deepStrictEqual(child.readWorldPosition([0, 0, 0]), [1, 5, 0]);
    scene.remove(child);
    scene.remove(child);
    scene.dispose();
  });
});

describe('limits of the engine', () => {
  const kMany = 30000;

  it('do not show: 30,000 nodes are linked, and all change in a frame', () => {
    const scene = new Scene({ engine });
    const nodes = Array.from({ length: kMany }, (_, i) => scene.node({ position: [i, 0, 0] }));
    const assertPlaces = (dy) => {
      nodes.forEach((node, i) => {
        const matrix = node.worldMatrix;
        assert.strictEqual(matrix[12], i);
        assert.strictEqual(matrix[13], dy);
      });
    };
    scene.update();
    assertPlaces(0);
    assert.strictEqual(scene.nodeCount, kMany);
    // 4095 commands of 12 bytes fit into a stream; links of all nodes take eight of them.
    assert.strictEqual(scene.stats.passes, 8);
    nodes.forEach((node, i) => node.setPosition(i, 1, 0));
    scene.update();
    assertPlaces(1);
    assert.strictEqual(scene.stats.passes, Math.ceil(kMany / 12287));
    // Less than half of them: without holding back the root.
    for (let i = 0; i < 13000; ++i) {
      nodes[i].setPosition(i, 2, 0);
    }
    scene.update();
    assert.strictEqual(scene.stats.passes, 2);
    nodes.forEach((node, i) => assert.strictEqual(node.worldMatrix[13], i < 13000 ? 2 : 1));
    scene.update();
    assert.strictEqual(scene.stats.passes, 1);
    scene.dispose();
    assert.strictEqual(over(Uint32Array, engine.dirtyEntities)[0], 0);
  });

  it('are not used up by one node that is set often', () => {
    const scene = new Scene({ engine });
    const node = scene.node();
    for (let i = 0; i <= 20000; ++i) {
      node.setPosition(i, 0, 0);
    }
    scene.update();
    assert.strictEqual(scene.stats.passes, 1);
    assert.strictEqual(node.worldMatrix[12], 20000);
    scene.dispose();
  });

  it('leave room for entries and commands of the program', () => {
    const scene = new Scene({ engine });
    const own = new nq.Entity3DView(engine.createEntity(true, 2));
    const [parent] = [scene.node({ position: [1, 0, 0] })];
    const nodes = Array.from({ length: 12286 }, () => scene.node());
    own.reset(0);
    new nq.EntityCommandWriter(engine).addChild(parent.handle, own.handle(0));
    new nq.DirtyListWriter(engine).append(own.handle(0));
    scene.update();
    assert.deepStrictEqual(own.worldPosition(0, [0, 0, 0]), [1, 0, 0]);
    assert.strictEqual(nodes[12285].worldMatrix[15], 1);
    scene.dispose();
  });
});

describe('disposed nodes', () => {
  it('give their entities to new ones: twenty generations take the room of one', () => {
    const scene = new Scene({ engine });
    const handles = new Set();
    for (let round = 0; round < 20; ++round) {
      const nodes = Array.from({ length: 3000 }, (_, i) => {
        const node = scene.node({ position: [round, i, 0] });
        node.setSphere(0, 0, 0, 1);
        return node;
      });
      if (round % 2 === 0) {
        scene.update();
        assert.strictEqual(nodes[2999].worldMatrix[13], 2999);
        assert.strictEqual(nodes[0].worldMatrix[12], round);
      }
      nodes.forEach((node) => handles.add(node.handle));
      nodes.forEach((node) => node.dispose());
    }
    assert.strictEqual(handles.size, 3000);
    assert.strictEqual(scene.nodeCount, 0);
    scene.update();
    scene.dispose();
  });

  it('take what is below them along', () => {
    const scene = new Scene({ engine });
    const parent = scene.node();
    const child = scene.node({ parent });
    const grandchild = scene.node({ parent: child });
    const kept = scene.node({ parent });
    scene.root.add(kept);
    parent.dispose();
    parent.dispose();
    assert.deepStrictEqual(
      [parent, child, grandchild, kept].map((node) => node.isDisposed),
      [true, true, true, false]
    );
    assert.strictEqual(scene.nodeCount, 1);
    scene.dispose();
    assert(kept.isDisposed);
  });

  it('start anew at rest: nothing of the last one is left', () => {
    const scene = new Scene({ engine });
    const camera = new Camera();
    const first = scene.node({ position: [0, 0, -5], scale: 3 });
    first.setSphere(0, 0, 0, 1);
    scene.update();
    assert.strictEqual(camera.cull(scene).count, 1);
    first.dispose();
    assert.strictEqual(camera.cull(scene).count, 0);
    const second = scene.node();
    scene.update();
    assert.deepStrictEqual(second.scale, [1, 1, 1]);
    assert.deepStrictEqual(Array.from(second.worldMatrix.slice(12)), [0, 0, 0, 1]);
    assert.strictEqual(camera.cull(scene).count, 0);
    scene.dispose();
  });

  it('are named in the error of their use', () => {
    const scene = new Scene({ engine });
    const node = scene.node({ name: 'gone' });
    const other = scene.node();
    node.dispose();
    const uses = {
      setPosition: () => node.setPosition(0, 0, 0),
      setQuaternion: () => node.setQuaternion(0, 0, 0, 1),
      setScale: () => node.setScale(1),
      position: () => node.position,
      worldMatrix: () => node.worldMatrix,
      readWorldMatrix: () => node.readWorldMatrix([]),
      lookAt: () => node.lookAt(0, 0, 0),
      add: () => node.add(other),
      remove: () => node.remove(),
      parent: () => node.parent,
      children: () => node.children,
      layers: () => node.layers,
      setSphere: () => node.setSphere(0, 0, 0, 1),
      handle: () => node.handle,
    };
    for (const method of Object.keys(uses)) {
      const message = `Node.${method}: node 'gone' is disposed of: make a new one.`;
      assert.throws(uses[method], { name: 'Error', message });
    }
    assert.throws(() => other.add(node), /Node\.add: the node is disposed of/);
    scene.dispose();
    for (const use of [
      () => scene.node(),
      () => scene.update(),
      () => scene.addCamera(new Camera()),
      () => new Camera().cull(scene),
    ]) {
      assert.throws(use, /the scene is disposed of: make a new one\.$/);
    }
    scene.dispose();
  });
});

describe('a scene', () => {
  it('says what is wrong with arguments', () => {
    const scene = new Scene({ engine });
    const other = new Scene({ engine });
    const node = scene.node();
    const child = scene.node({ parent: node });
    const cases = [
      [() => new Scene(1), /^Scene: options is 1: leave it out or give an object\.$/],
      [() => new Scene({ engine: {} }), /^Scene: options\.engine is an object: leave it out/],
      [() => new Scene({ engine, skin: 'some' }), /options\.skin is 'some': give 'all' or/],
      [() => new Scene({ engine, isTimed: 1 }), /options\.isTimed is 1: give true or false/],
      [() => scene.node({ name: 1 }), /^Scene\.node: name is 1: give a string\.$/],
      [() => scene.node({ position: [1, 2] }), /^Node\.position: it is an array: give 3 numbers/],
      [() => scene.node({ position: [1, 2, '3'] }), /^Node\.position: z is '3', not a number/],
      [() => scene.node({ scale: 'big' }), /^Node\.scale: it is 'big'/],
      [() => scene.node({ parent: 1 }), /^Scene\.node: parent is 1: give a node, or null/],
      [() => node.setPosition(1, 2), /^Node\.setPosition: z is undefined, not a number/],
      [() => node.setQuaternion(0, 0, 0), /^Node\.setQuaternion: w is undefined/],
      [() => node.setSphere(0, 0, 0), /^Node\.setSphere: radius is undefined/],
      [() => node.readWorldMatrix([]), /^Node\.readWorldMatrix: out has a length of 0/],
      [() => node.add(1), /^Node\.add: child is 1: give a node of the scene\.$/],
      [() => node.add(other.node()), /^Node\.add: child is in another scene/],
      [() => child.add(node), /^Node\.add: child is above this node/],
      [() => node.add(node), /^Node\.add: child is above this node/],
      [() => node.add(scene.root), /^Node\.add: the node is the root of its scene/],
      [() => scene.root.dispose(), /^Node\.dispose: the node is the root of its scene/],
      [() => scene.update(-1), /^Scene\.update: seconds is -1: give a number from 0 up\.$/],
      [() => scene.update(NaN), /^Scene\.update: seconds is NaN/],
      [() => scene.update('1'), /^Scene\.update: seconds is '1'/],
      [() => scene.instantiate({}), /^Scene\.instantiate: model is an object: give what Model/],
      [() => scene.addCamera({}), /^Scene\.addCamera: camera is an object: give a Camera\.$/],
      [() => (node.layers = -1), /^Node\.layers: it is -1/],
      [() => new Camera({ fovDegrees: 180 }), /fovDegrees is 180: give an angle between 0 and 180/],
      [() => new Camera({ fovDegrees: 1, fovRadians: 1 }), /are both given: give one of them\.$/],
      [() => new Camera({ aspect: '1' }), /^Camera\.setPerspective: aspect is '1', not a number/],
      [() => new Camera().setOrthographic({}), /^Camera\.setOrthographic: left is undefined/],
      [() => new Camera().cull(1), /^Camera\.cull: scene is 1: give a scene\.$/],
      [() => new Camera().setFromThree({}), /^Camera\.setFromThree: camera is an object/],
      [() => new Camera().visible.at(0), /^VisibleList\.at: i is 0, of 0/],
      [() => Model.from(1), /^Model: imported is 1: give what importGltf resolved to\.$/],
    ];
    const count = scene.nodeCount;
    for (const [use, message] of cases) {
      assert.throws(use, { message });
    }
    assert.strictEqual(scene.nodeCount, count);
    assert(node instanceof Node);
    scene.dispose();
    other.dispose();
  });

  it('is kept alive by the arrays that it has given out', async () => {
    let matrices = (() => {
      const scene = new Scene({ engine });
      const nodes = Array.from({ length: 2000 }, (_, i) => scene.node({ position: [i, 0, 0] }));
      scene.update();
      return nodes.map((node) => node.worldMatrix);
    })();
    await collect();
    // Would take the memory of collected entities.
    const others = Array.from({ length: 4 }, () => engine.createEntity(true, 1024));
    others.forEach((other) => over(Uint8Array, other).fill(0xff));
    matrices.forEach((matrix, i) => assert.strictEqual(matrix[12], i));
    matrices = null;
  });

  it('gives neither errors nor hints in checked mode', () => {
    const hints = [];
    const checked = nq.checked(nq.getEngine(), { onHint: (hint) => hints.push(hint) });
    const scene = new Scene({ engine: checked });
    const camera = scene.addCamera(new Camera({ fovDegrees: 60 }));
    let nodes = [];
    for (let frame = 0; frame < 6; ++frame) {
      nodes.forEach((node, i) => (i % 2 === 0 ? node.dispose() : node.setPosition(i, 0, -9)));
      nodes = nodes.filter((node) => !node.isDisposed);
      for (let i = 0; i < 100; ++i) {
        const parent = i % 3 === 0 ? scene.root : nodes[i - 1];
        const node = scene.node({ parent, position: [0, 0, -5] });
        node.setSphere(0, 0, 0, 1);
        nodes.unshift(node);
      }
      scene.update(1 / 60);
      nodes = nodes.filter((node) => !node.isDisposed);
      assert(camera.visible.count > 0);
    }
    scene.dispose();
    assert.deepStrictEqual(hints, []);
  });
});
