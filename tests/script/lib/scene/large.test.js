'use strict';
// Large changes of scenes: trees of many nodes whose world matrices are those of three.js, however many passes of the
// engine a frame takes.
const assert = require('assert');
const { over } = require('../../support/blocks');
const three = require('three');
const nq = require('../../../../lib');
const { Model, Scene } = require('../../../../scene');
const { ModelBuilder } = require('../../../fixtures/animations');
const { createRandom } = require('../../../fixtures/world');

const engine = nq.getEngine();

/** A tree in a scene, and the same one in three.js. */
class Trees {
  constructor(seed) {
    this.random = createRandom(seed);
    this.scene = new Scene({ engine });
    this.group = new three.Group();
    this.pairs = [];
  }

  /** Adds a node under a random one that is less than ten levels deep, or under the root. */
  add() {
    const { pairs } = this;
    let above = null;
    if (pairs.length > 0 && this.random.below(10) > 0) {
      const chosen = pairs[this.random.below(pairs.length)];
      above = chosen.depth < 10 ? chosen : null;
    }
    const node = this.scene.node({ parent: above === null ? this.scene.root : above.node });
    const object = new three.Object3D();
    (above === null ? this.group : above.object).add(object);
    const pair = { node, object, depth: above === null ? 1 : above.depth + 1 };
    pairs.push(pair);
    this.move(pair);
  }

  /** Gives a node a transform. Numbers are floats, so that both have the same. */
  move({ node, object }) {
    const float = (low, high) => Math.fround(this.random.real(low, high));
    object.position.set(float(-1, 1), float(-1, 1), float(-1, 1));
    const rotation = [float(-1, 1), float(-1, 1), float(-1, 1), float(0.1, 1)];
    const length = Math.hypot(...rotation);
    object.quaternion.set(...rotation.map((value) => Math.fround(value / length)));
    object.scale.setScalar(float(0.9, 1.1));
    const { x, y, z, w } = object.quaternion;
    node.setPosition(object.position.x, object.position.y, object.position.z);
    node.setQuaternion(x, y, z, w);
    node.setScale(object.scale.x);
  }

  /** Compares all world matrices. */
  assertEqual() {
    this.scene.update();
    this.group.updateMatrixWorld(true);
    for (const { node, object, depth } of this.pairs) {
      // A level multiplies by a matrix whose elements are sums of few terms, each rounded to 6e-8, and scales by up to
      // 1.1; places are up to a level's length of sqrt(3) apart.
      const bound = 1e-6 * depth * (1 + Math.sqrt(3) * depth) * 1.1 ** depth;
      const { elements } = object.matrixWorld;
      const matrix = node.worldMatrix;
      for (let k = 0; k < 16; ++k) {
        const error = Math.abs(matrix[k] - elements[k]);
        assert(error <= bound, `${matrix[k]}, ${elements[k]}: ${error} of ${bound}`);
      }
    }
  }
}

describe('a scene with a tree of many nodes', () => {
  it('has the world matrices of three.js after 20,000 nodes were made, and moved, in a frame', () => {
    const trees = new Trees(1);
    for (let i = 0; i < 20000; ++i) {
      trees.add();
    }
    trees.assertEqual();
    trees.pairs.forEach((pair) => trees.move(pair));
    trees.assertEqual();
    assert.strictEqual(trees.scene.stats.passes, 2);
    trees.scene.dispose();
  });

  it('has them after 5,000 were added to 20,000 in a frame, others moved and some removed', () => {
    const trees = new Trees(2);
    for (let i = 0; i < 20000; ++i) {
      trees.add();
    }
    trees.assertEqual();
    for (let i = 0; i < 5000; ++i) {
      trees.add();
    }
    for (let i = 0; i < 1000; ++i) {
      trees.move(trees.pairs[7 * i]);
    }
    trees.assertEqual();
    // Links of 5,000 fill the stream once; they are less than half, so the root is not held back.
    assert.strictEqual(trees.scene.stats.passes, 2);
    const leaves = trees.pairs.filter(({ object }) => object.children.length === 0).slice(0, 5000);
    leaves.forEach(({ node, object }) => {
      node.dispose();
      object.parent.remove(object);
    });
    trees.pairs = trees.pairs.filter(({ node }) => !node.isDisposed);
    for (let i = 0; i < 6000; ++i) {
      trees.add();
    }
    trees.assertEqual();
    trees.scene.dispose();
  });

  it('has them when subtrees move under others in the frame in which they change', () => {
    const trees = new Trees(3);
    for (let i = 0; i < 3000; ++i) {
      trees.add();
    }
    trees.assertEqual();
    const tops = trees.pairs.filter(({ depth }) => depth === 1);
    tops.slice(1).forEach((pair, i) => {
      const below = trees.pairs.filter(({ object }) => object.parent === pair.object);
      below.slice(0, 2).forEach(({ node, object }) => {
        tops[i].node.add(node);
        tops[i].object.add(object);
      });
      trees.move(pair);
    });
    trees.assertEqual();
    trees.scene.dispose();
  });

  it('give up to 300 changed nodes to the engine in lists of 31, which it computes at once', () => {
    const scene = new Scene({ engine });
    const parents = Array.from({ length: 301 }, (_, i) => scene.node({ position: [i, 0, 0] }));
    const children = parents.map((parent) => scene.node({ parent, position: [0, 1, 0] }));
    scene.update();
    const passesOf = (nodes, y) => {
      nodes.forEach((node) => node.setPosition(node.position[0], y, 0));
      scene.update();
      parents.forEach((parent, i) => {
        assert.strictEqual(parent.worldMatrix[13], parent.position[1]);
        const { position } = children[i];
        assert.deepStrictEqual(Array.from(children[i].worldMatrix.slice(12, 14)), [
          i,
          parent.position[1] + position[1],
        ]);
      });
      return scene.stats.passes;
    };
    assert.strictEqual(passesOf(parents.slice(0, 31), 2), 1);
    assert.strictEqual(passesOf(parents.slice(0, 32), 3), 2);
    assert.strictEqual(passesOf(parents.slice(0, 300), 4), 10);
    assert.strictEqual(passesOf(parents, 5), 1);
    assert.strictEqual(passesOf(children.slice(100, 200), 6), 4);
    // Below a node that changes as well, matrices would be computed twice.
    assert.strictEqual(passesOf(parents.slice(0, 40).concat(children[39]), 7), 1);
    // Nodes that were disposed of do not count as changes.
    parents.slice(0, 40).forEach((node) => node.setPosition(1, 2, 3));
    parents[20].dispose();
    scene.update();
    assert.deepStrictEqual(Array.from(parents[39].worldMatrix.slice(12, 15)), [1, 2, 3]);
    scene.dispose();
  });

  it('are computed together with the poses of characters that play', async () => {
    const builder = new ModelBuilder();
    builder.json.scenes = [{ nodes: [0] }];
    builder.node({ name: 'bone' });
    const [times, values] = [
      [0, 1],
      [0, 0, 0, 0, 2, 0],
    ];
    builder.animation('rise', [{ node: 0, path: 'translation', times, values }]);
    const scene = new Scene({ engine });
    const [character] = scene.instantiate(await Model.load(builder.glb()));
    character.play('rise');
    const nodes = Array.from({ length: 100 }, () => scene.node());
    scene.update();
    nodes.forEach((node) => node.setPosition(1, 2, 3));
    scene.update(0.5);
    assert.deepStrictEqual([scene.stats.playing, scene.stats.passes], [1, 1]);
    assert.strictEqual(character.node('bone').worldMatrix[13], 1);
    character.stop();
    scene.update();
    nodes.forEach((node) => node.setPosition(4, 5, 6));
    scene.update();
    assert.deepStrictEqual([scene.stats.playing, scene.stats.passes], [0, 4]);
    scene.dispose();
  });

  it('gives neither errors nor hints in checked mode, in however many passes', () => {
    const hints = [];
    const checked = nq.checked(nq.getEngine(), { onHint: (hint) => hints.push(hint.message) });
    const scene = new Scene({ engine: checked });
    const nodes = Array.from({ length: 16000 }, (_, i) => scene.node({ position: [i, 0, 0] }));
    scene.update();
    assert(scene.stats.passes > 2, `${scene.stats.passes} passes`);
    for (const count of [16000, 12500, 6000]) {
      nodes.slice(0, count).forEach((node) => node.setPosition(count, 1, 2));
      nodes.slice(count - 50, count).forEach((node) => nodes[0].add(node));
      scene.update();
      assert.strictEqual(scene.stats.passes, count > 12287 ? 2 : 1);
    }
    assert.deepStrictEqual(hints, []);
    scene.dispose();
  });

  it('is grouped into full batches: consecutive nodes share one until it is full', () => {
    let made = 0;
    const counted = nq.getEngine();
    const create = counted.createEntity;
    counted.createEntity = (...args) => {
      ++made;
      return create.apply(counted, args);
    };
    const scene = new Scene({ engine: counted });
    const nodes = Array.from({ length: 1023 }, () => scene.node());
    assert.strictEqual(made, 1);
    const handles = [scene.root, ...nodes].map(({ handle }) => handle);
    handles.forEach((handle, i) => assert.strictEqual(handle, handles[0] + i));
    scene.node();
    assert.strictEqual(made, 2);
    scene.dispose();
  });

  it('changes little of a large tree by little work: the root is not held back', () => {
    // Commands of the scene are in the stream until its refresh.
    const wrapped = nq.getEngine();
    const refresh = wrapped.refreshWorldTransform;
    const numbers = [];
    wrapped.refreshWorldTransform = () => {
      const words = over(Uint32Array, wrapped.entityCommands);
      for (let at = 1; at <= words[0] / 4; at += words[at] === addChild ? 3 : 2) {
        numbers.push(words[at]);
      }
      refresh.call(wrapped);
    };
    const { addRoot, addChild, deactivate, activate } = nq.layout.entityCommands;
    const scene = new Scene({ engine: wrapped });
    const nodes = Array.from({ length: 20000 }, () => scene.node());
    scene.update();
    const kinds = (number) => numbers.filter((one) => one === number).length;
    assert.deepStrictEqual([addRoot, addChild, deactivate, activate].map(kinds), [1, 20000, 1, 1]);
    // First and last: what is between is not computed twice.
    assert.strictEqual(numbers[0], deactivate);
    assert.strictEqual(numbers[numbers.length - 1], activate);
    numbers.length = 0;
    for (let i = 0; i < 5000; ++i) {
      nodes[i].setPosition(i, 0, 0);
      scene.node();
    }
    scene.update();
    assert.deepStrictEqual([addRoot, addChild, deactivate, activate].map(kinds), [0, 5000, 0, 0]);
    assert.strictEqual(scene.stats.passes, 2);
    numbers.length = 0;
    nodes.slice(0, 12000).forEach((node) => node.setPosition(0, 0, 0));
    scene.update();
    assert.deepStrictEqual([numbers.length, scene.stats.passes], [0, 1]);
    scene.dispose();
  });
});

describe('a character of more nodes than a batch of the scene has', () => {
  it('has all of them at their places', async () => {
    const kNodes = 2500;
    const builder = new ModelBuilder();
    const children = Array.from({ length: kNodes }, (_, i) =>
      builder.node({ name: `n${i}`, translation: [i, 2, 3] })
    );
    builder.json.scenes = [{ nodes: [builder.node({ name: 'top', children })] }];
    const bounds = { center: [0, 0, 0], radius: 1 };
    const model = await Model.load(builder.glb(), { name: 'many.glb', bounds });
    const scene = new Scene({ engine });
    const [character] = scene.instantiate(model);
    scene.update();
    for (const i of [0, 1000, 1022, 1023, 1024, 2047, 2048, kNodes - 1]) {
      const matrix = Array.from(character.node(`n${i}`).worldMatrix);
      assert.deepStrictEqual(matrix, [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, i, 2, 3, 1], `${i}`);
    }
    scene.dispose();
  });
});
