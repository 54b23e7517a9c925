'use strict';
// World matrices against three.js, which works in double precision, and 2D against complex numbers.
//
// The tolerance is derived, not chosen: every matrix of the oracle has a bound on the rounding errors of
// single precision. With u = 2^-24, the rounding error of one operation:
//   - an element of a local matrix is off by at most 8u, times its column's scale and, for a
//     quaternion q, max(1, |q|^2): the sums of products, the sine and cosine, the scale;
//   - a sum of four products is off by at most 4u / (1 - 4u), times the sum of their magnitudes;
//   - errors of the factors pass through a product by its magnitudes.
const assert = require('assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const three = require('three');
const { realModel, skeleton, writeGlb } = require('../../fixtures/models');
const { EngineScene, createFigureScene, loadGltfScene } = require('../../fixtures/scenes');
const { TestWorld, createRandom, nativeModule } = require('../../fixtures/world');
const { addMagnitudes, multiplyMagnitudes } = require('../support/reference');
const { removeFolder } = require('../../../scripts/lib/run');

const kUnit = Math.pow(2, -24);
const kLocalError = 8 * kUnit;
const kProductError = (4 * kUnit) / (1 - 4 * kUnit);
/** Covers the oracle's own rounding, and what the factors above leave out in second order. */
const kSlack = 1.01;

/** Bounds of the errors of a local matrix's elements. */
function localBounds({ quaternion, scale }, isEuler) {
  const squared = quaternion.lengthSq();
  const rotation = kLocalError * (isEuler ? 1 : Math.max(1, squared));
  return Array.from({ length: 16 }, (none, i) =>
    i < 12 && i % 4 < 3 ? rotation * Math.abs(scale.getComponent(i >> 2)) : 0
  );
}

/** A mirror of entities in three.js: objects, and the error bounds of their world matrices. */
class Mirror {
  constructor(count) {
    this.objects = Array.from({ length: count }, () => new three.Object3D());
    this.isEuler = new Array(count).fill(false);
  }

  setPosition(index, value) {
    this.objects[index].position.fromArray(Array.from(value).map(Math.fround));
  }

  setScale(index, value) {
    this.objects[index].scale.fromArray(Array.from(value).map(Math.fround));
  }

  setRotation(index, value) {
    this.objects[index].quaternion.fromArray(Array.from(value).map(Math.fround));
    this.isEuler[index] = false;
  }

  setEuler(index, [x, y, z]) {
    this.objects[index].rotation.set(x, y, z, 'XYZ');
    this.isEuler[index] = true;
  }

  /** Updates all matrices, and bounds per object. */
  update() {
    const bounds = new Map();
    const indices = new Map(this.objects.map((object, index) => [object, index]));
    for (const root of this.objects.filter(({ parent }) => parent === null)) {
      root.updateMatrixWorld(true);
      root.traverse((object) => {
        const local = localBounds(object, this.isEuler[indices.get(object)]);
        if (object.parent === null) {
          bounds.set(object, local);
          return;
        }
        const world = object.parent.matrixWorld.elements;
        const computed = multiplyMagnitudes(
          addMagnitudes(world, bounds.get(object.parent)),
          addMagnitudes(object.matrix.elements, local)
        );
        const exact = multiplyMagnitudes(world, object.matrix.elements);
        bounds.set(
          object,
          computed.map((value, i) => value - exact[i] + kProductError * value)
        );
      });
    }
    this.bounds = this.objects.map((object) => bounds.get(object));
  }

  /**
   * The first element that is further off than its bound, or null.
   * @param {function(number): ArrayLike<number>} matrixOf world matrix of an entity
   */
  findDifference(matrixOf) {
    for (let index = 0; index < this.objects.length; ++index) {
      const expected = this.objects[index].matrixWorld.elements;
      const actual = matrixOf(index);
      assert.strictEqual(actual.length, 16);
      for (let i = 0; i < 16; ++i) {
        const bound = kSlack * this.bounds[index][i];
        if (!(Math.abs(actual[i] - expected[i]) <= bound)) {
          return `entity ${index}, element ${i}: ${actual[i]}, not ${expected[i]} within ${bound}`;
        }
      }
    }
    return null;
  }
}

/** A mirror of a tree. */
function mirrorOf(nodes) {
  const mirror = new Mirror(nodes.length);
  nodes.forEach(({ parent, position, rotation, scale }, index) => {
    mirror.setPosition(index, position);
    mirror.setRotation(index, rotation);
    mirror.setScale(index, scale);
    if (parent >= 0) {
      mirror.objects[parent].add(mirror.objects[index]);
    }
  });
  return mirror;
}

/** Runs a scene on both sides and compares after linking and after each frame. */
function assertSceneAgrees(scene, frames) {
  const engineScene = new EngineScene(nativeModule().getEngine(), scene.nodes);
  const mirror = mirrorOf(scene.nodes);
  const compare = (when) => {
    mirror.update();
    const difference = mirror.findDifference((index) => engineScene.worldMatrix(index));
    assert.strictEqual(difference, null, when);
  };
  compare('at rest');
  for (const seconds of frames) {
    scene.pose(seconds, engineScene);
    scene.pose(seconds, mirror);
    engineScene.refresh(scene.animated);
    compare(`after ${seconds} s`);
  }
  return { engineScene, mirror };
}

describe('oracle: three.js', () => {
  const clipTimes = [0, 0.04, 0.1, 0.55, 1.31, 2.9, 3.4, 17.7];

  it('agrees on the order of Euler angles', () => {
    const random = createRandom(11);
    for (let i = 0; i < 100; ++i) {
      const [x, y, z] = [random.real(-7, 7), random.real(-7, 7), random.real(-7, 7)];
      const product = new three.Matrix4()
        .makeRotationX(x)
        .multiply(new three.Matrix4().makeRotationY(y))
        .multiply(new three.Matrix4().makeRotationZ(z));
      const ordered = new three.Matrix4().makeRotationFromEuler(new three.Euler(x, y, z, 'XYZ'));
      product.elements.forEach((value, k) => {
        assert.ok(Math.abs(value - ordered.elements[k]) < 1e-14);
      });
    }
  });

  it('agrees on a small model, linked and animated', async () => {
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-three-'));
    try {
      const file = writeGlb(path.join(folder, 'skeleton.glb'), skeleton());
      assertSceneAgrees(await loadGltfScene(file), clipTimes);
    } finally {
      removeFolder(folder);
    }
  });

  for (const name of ['Fox.glb', 'greenman.glb']) {
    it(`agrees on ${name}, linked and animated`, async function () {
      assertSceneAgrees(await loadGltfScene(realModel(this, name)), clipTimes);
    });
  }

  it('agrees on a scene of several batches, passes of commands and of dirty entries', () => {
    const scene = createFigureScene(300);
    assert.ok(scene.nodes.length > 3 * 4095 && scene.animated.length > 12287);
    assertSceneAgrees(scene, [0.3, 1.9]);
  });

  it('detects a rotation by a thousandth of a degree, and swapped factors', () => {
    const { engineScene, mirror } = assertSceneAgrees(createFigureScene(1), [0.7]);
    const matrixOf = (index) => engineScene.worldMatrix(index);
    const arm = mirror.objects[mirror.objects.length - 2];
    const before = arm.quaternion.clone();
    arm.rotateX(0.001 * (Math.PI / 180));
    mirror.update();
    assert.notStrictEqual(mirror.findDifference(matrixOf), null);
    arm.quaternion.copy(before);
    mirror.update();
    assert.strictEqual(mirror.findDifference(matrixOf), null);
    arm.matrixWorld.copy(arm.matrix).multiply(arm.parent.matrixWorld);
    assert.notStrictEqual(mirror.findDifference(matrixOf), null);
  });

  /** Random transforms on both sides; some are mirrored, no scale is 0, few rotations are not of length 1. */
  function transform(random, entity, mirror, index) {
    const rotation = Array.from({ length: random.pick([3, 4]) }, () => random.real(-1, 1));
    if (rotation.length === 3) {
      rotation.forEach((value, i) => (rotation[i] = Math.fround(4 * value)));
      mirror.setEuler(index, rotation);
    } else {
      // Unit length up to rounding most of the time: others are taken as they are, but grow fast.
      const length = random.below(8) === 0 ? 1 : Math.hypot(...rotation);
      rotation.forEach((value, i) => (rotation[i] = Math.fround(value / length)));
      mirror.setRotation(index, rotation);
    }
    const position = [random.real(-5, 5), random.real(-5, 5), random.real(-5, 5)];
    const scale = [0, 0, 0].map(() => random.pick([-1, 1, 1]) * random.real(0.5, 1.6));
    mirror.setPosition(index, position);
    mirror.setScale(index, scale.map(Math.fround));
    entity.setTransform(rotation, position, scale);
  }

  /** Whether `object` is `other` or an ancestor of it. */
  function isAbove(object, other) {
    for (let at = other; at !== null; at = at.parent) {
      if (at === object) {
        return true;
      }
    }
    return false;
  }

  for (const { seed, count, spread } of [
    { seed: 1, count: 40, spread: 1 },
    { seed: 2, count: 300, spread: 3 },
    { seed: 3, count: 900, spread: 40 },
    { seed: 4, count: 900, spread: 900 },
  ]) {
    it(`agrees on a random tree (seed ${seed}) while it is re-linked and moved`, () => {
      const random = createRandom(seed);
      const world = new TestWorld();
      const split = Math.ceil(count / 3);
      const entities = [...world.add3D(split), ...world.add3D(count - split)];
      const mirror = new Mirror(count);
      entities.forEach((entity, index) => transform(random, entity, mirror, index));
      // The parent of each is one of the `spread` before it: the fewer, the deeper the tree.
      entities.forEach((entity, index) => {
        if (index === 0) {
          world.command('addRoot', entity);
        } else {
          const parent = index - 1 - random.below(Math.min(index, spread));
          world.command('addChild', entities[parent], entity);
          mirror.objects[parent].add(mirror.objects[index]);
        }
      });
      world.refresh(entities);

      for (let frame = 0; frame < 6; ++frame) {
        mirror.update();
        const difference = mirror.findDifference((index) => entities[index].matrix);
        assert.strictEqual(difference, null, `seed ${seed}, frame ${frame}`);

        const moved = [];
        for (let i = 0; i < count / 10; ++i) {
          const index = random.below(count);
          transform(random, entities[index], mirror, index);
          moved.push(entities[index]);
        }
        for (let i = 0; i < 12; ++i) {
          const [child, parent] = [random.below(count), random.below(count)];
          const [childObject, parentObject] = [mirror.objects[child], mirror.objects[parent]];
          if (random.below(4) === 0) {
            world.command('removeFromParent', entities[child]);
            world.command('addRoot', entities[child]);
            moved.push(entities[child]);
            childObject.removeFromParent();
          } else if (!isAbove(childObject, parentObject)) {
            if (random.below(2) === 0) {
              world.command('addChild', entities[parent], entities[child]);
            } else {
              world.command('insertChild', entities[parent], entities[child], random.below(3));
            }
            parentObject.add(childObject);
          }
        }
        world.refresh(moved);
      }
    });
  }
});

describe('oracle: complex numbers', () => {
  const add = (a, b) => [a[0] + b[0], a[1] + b[1]];
  const multiply = (a, b) => [a[0] * b[0] - a[1] * b[1], a[0] * b[1] + a[1] * b[0]];

  /** World position of the point x + iy of a 2D node: scaled, rotated backwards, translated, up the tree. */
  function worldPoint(nodes, index, point) {
    let z = point;
    for (let at = index; at >= 0; at = nodes[at].parent) {
      const { angle, position, scale } = nodes[at];
      const turn = [Math.cos(angle), -Math.sin(angle)];
      z = add(position, multiply(turn, [scale[0] * z[0], scale[1] * z[1]]));
    }
    return z;
  }

  /** Product of the scales' and sum of the offsets' magnitudes down to a node. */
  function reachOf(nodes, index) {
    let reach = 1;
    for (let at = index; at >= 0; at = nodes[at].parent) {
      const { position, scale } = nodes[at];
      reach = reach * Math.max(Math.abs(scale[0]), Math.abs(scale[1])) + Math.hypot(...position);
    }
    return reach;
  }

  it('agrees on 2D trees', () => {
    const random = createRandom(5);
    const world = new TestWorld();
    const count = 200;
    const entities = world.add2D(count);
    const nodes = entities.map((entity, index) => ({
      parent: index === 0 ? -1 : index - 1 - random.below(Math.min(index, 8)),
      angle: random.real(-7, 7),
      position: [random.real(-5, 5), random.real(-5, 5)],
      scale: [random.real(0.5, 1.4), random.pick([-1, 1]) * random.real(0.5, 1.4)],
    }));
    nodes.forEach(({ parent, angle, position, scale }, index) => {
      entities[index].setTransform2D(angle, position, scale);
      if (parent < 0) {
        world.command('addRoot', entities[index]);
      } else {
        world.command('addChild', entities[parent], entities[index]);
      }
    });
    for (let frame = 0; frame < 3; ++frame) {
      if (frame > 0) {
        const node = nodes[frame * 7];
        node.angle = random.real(-7, 7);
        node.position = [random.real(-5, 5), random.real(-5, 5)];
        entities[frame * 7].setTransform2D(node.angle, node.position, node.scale);
      }
      world.refresh(frame === 0 ? entities : [entities[frame * 7]]);
      nodes.forEach((node, index) => {
        let depth = 0;
        for (let at = index; at >= 0; at = nodes[at].parent) {
          ++depth;
        }
        // A level loses at most 8 u of a local matrix and 4 u of a product, in each of two terms.
        const tolerance = 24 * kUnit * depth * reachOf(nodes, index);
        const origin = worldPoint(nodes, index, [0, 0]);
        const columnX = add(worldPoint(nodes, index, [1, 0]), [-origin[0], -origin[1]]);
        const columnY = add(worldPoint(nodes, index, [0, 1]), [-origin[0], -origin[1]]);
        const expected = [...columnX, 0, ...columnY, 0, ...origin, 1];
        expected.forEach((value, i) => {
          const actual = entities[index].matrix[i];
          const message = `frame ${frame}, entity ${index}, element ${i}: ${actual}, not ${value}`;
          assert.ok(Math.abs(actual - value) <= tolerance, message);
        });
      });
    }
  });
});
