'use strict';
// Scenes at the edges of what programs do: callbacks that update, clips without length, very long steps, nodes that leave
// the tree, and values that no camera, sphere or model can have.
const assert = require('assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const three = require('three');
const nq = require('../../../../lib');
const { importGltf } = require('../../../../lib/gltf');
const { readMeshes } = require('../../../../lib/scene/meshes');
const { Camera, Model, Scene, toThree } = require('../../../../scene');
const { ModelBuilder } = require('../../../fixtures/animations');
const { over } = require('../../support/blocks');
const { collect } = require('../../support/collect');
const { removeFolder } = require('../../../../scripts/lib/run');

const engine = nq.getEngine();

let model;
let scene;
before(async () => {
  const builder = new ModelBuilder();
  builder.json.scenes = [{ nodes: [0] }];
  builder.node({ name: 'bone' });
  builder.animation('step', [
    { node: 0, path: 'translation', times: [0, 1], values: [0, 0, 0, 1, 0, 0] },
  ]);
  builder.animation('point', [{ node: 0, path: 'translation', times: [0], values: [0, 1, 0] }]);
  model = await Model.load(builder.glb(), {
    name: 'bone.glb',
    bounds: { center: [0, 0, 0], radius: 1 },
  });
});
beforeEach(() => {
  scene = new Scene({ engine });
});
afterEach(() => scene.dispose());

/** A character of the scene that plays a clip. */
function play(clip, options) {
  const [character] = scene.instantiate(model);
  character.play(clip, options);
  return character;
}

/** The engine with one method replaced: `around` gets the call that it would be. */
function engineWith(method, around) {
  return new Proxy(engine, {
    get(target, name) {
      const value = target[name];
      if (typeof value !== 'function') {
        return value;
      }
      return (...args) => {
        const run = () => value.apply(target, args);
        return name === method ? around(run) : run();
      };
    },
  });
}

describe('callbacks of scenes', () => {
  it('may be undefined, as null', () => {
    const character = play('step', { loop: false });
    character.onEnd = undefined;
    scene.update(2);
    assert.strictEqual(character.timeOf('step'), 1);
  });

  it('that are no functions fail with a readable error', () => {
    const character = play('step', { loop: false });
    character.onEnd = 'wave';
    assert.throws(() => scene.update(2), {
      name: 'TypeError',
      message: "Character.onEnd: it is 'wave': give a function, or null for none.",
    });
    const layer = character.addLayer('top');
    layer.play('step');
    layer.onLoop = 1;
    assert.throws(() => scene.update(2), {
      name: 'TypeError',
      message: 'AnimationLayer.onLoop: it is 1: give a function, or null for none.',
    });
  });

  it("can't update the scene that calls them", () => {
    const ended = [];
    const characters = [1, 2, 3].map(() => play('step', { loop: false }));
    characters.forEach((one) => (one.onEnd = (character) => ended.push(character)));
    characters[0].onEnd = () => {
      ended.push(characters[0]);
      assert.throws(() => scene.update(1), {
        name: 'Error',
        message:
          'Scene.update: an update of the scene runs: call it after that, not in a callback.',
      });
    };
    scene.update(2);
    assert.deepStrictEqual(ended, characters);
    // Also after one that has failed.
    characters[0].onEnd = () => assert.fail('mine');
    characters[0].play('step', { loop: false, at: 0 });
    assert.throws(() => scene.update(2), /mine/);
    scene.update(2);
  });
});

describe('clips of scenes', () => {
  it('without length end at once, and once', () => {
    const character = play('point', { loop: false });
    let ended = 0;
    character.onEnd = () => ++ended;
    scene.update(0.25);
    assert.strictEqual(ended, 1);
    scene.update(0.25);
    assert.strictEqual(ended, 1);
    assert.deepStrictEqual(character.node('bone').position, [0, 1, 0]);
    // One that loops has no end.
    character.onLoop = () => assert.fail('called');
    character.play('point');
    scene.update(0.25);
    assert.strictEqual(ended, 1);
  });

  it('start again when they are played at their end, and go on before', () => {
    const character = play('step', { loop: false });
    let ended = 0;
    character.onEnd = () => {
      ++ended;
      character.play('step', { loop: false });
    };
    scene.update(0.5);
    character.play('step', { loop: false });
    assert.strictEqual(character.timeOf('step'), 0.5);
    scene.update(1);
    assert.deepStrictEqual([ended, character.timeOf('step')], [1, 0]);
    scene.update(0.75);
    assert.deepStrictEqual([ended, character.timeOf('step')], [1, 0.75]);
    scene.update(0.75);
    assert.deepStrictEqual([ended, character.timeOf('step')], [2, 0]);
    // The other way, it leads back from the end; and then starts at the end again.
    character.onEnd = null;
    scene.update(2);
    assert.strictEqual(character.timeOf('step'), 1);
    character.play('step', { loop: false, speed: -1 });
    scene.update(0.25);
    assert.strictEqual(character.timeOf('step'), 0.75);
    scene.update(2);
    assert.strictEqual(character.timeOf('step'), 0);
    character.play('step', { loop: false, speed: -1 });
    assert.strictEqual(character.timeOf('step'), 1);
  });

  it('have a time and a weight after steps of any length', () => {
    const most = Number.MAX_VALUE;
    const character = play('step', { speed: -most, fade: Number.MIN_VALUE });
    scene.update(0);
    scene.update(most);
    const time = character.timeOf('step');
    assert(time >= 0 && time < 1, `${time}`);
    assert.strictEqual(character.weightOf('step'), 1);
    character.stop('step', { fade: Number.MIN_VALUE });
    scene.update(1);
    assert.strictEqual(character.timeOf('step'), -1);
  });
});

describe('nodes of scenes', () => {
  it('are disposed of with any number of children', () => {
    const top = scene.node();
    for (let i = 0; i < 150000; ++i) {
      scene.node({ parent: top });
    }
    top.dispose();
    assert.strictEqual(scene.nodeCount, 0);
  });

  it('are not seen while they are out of the tree, nor is what is below them', () => {
    const camera = new Camera();
    const seen = () => Array.from(camera.cull(scene), ({ name }) => name).sort();
    const holder = scene.node({ position: [0, 0, -5] });
    const ball = scene.node({ name: 'ball', parent: holder });
    ball.setSphere(0, 0, 0, 1);
    const [character] = scene.instantiate(model);
    holder.add(character);
    const tool = character.attach(scene.node({ name: 'tool', position: [0, 0, -1] }), 'bone');
    tool.setSphere(0, 0, 0, 1);
    scene.update();
    assert.deepStrictEqual(seen(), ['ball', 'bone.glb', 'tool']);
    holder.remove();
    assert.deepStrictEqual(seen(), []);
    scene.update();
    assert.deepStrictEqual(seen(), []);
    // Neither layers nor spheres show them, nor a parent that is not in the tree either.
    ball.layers = 2;
    tool.setSphere(0, 0, 0, 2);
    const late = scene.node({ name: 'late', parent: holder });
    late.setSphere(0, 0, 0, 1);
    scene.node({ parent: null }).add(holder);
    scene.update();
    assert.deepStrictEqual(seen(), []);
    // What is moved into the tree is seen, and what is moved out of it is not.
    scene.root.add(character);
    character.setPosition(0, 0, -5);
    scene.update();
    assert.deepStrictEqual(seen(), ['bone.glb', 'tool']);
    holder.add(character);
    character.setPosition(0, 0, 0);
    scene.update();
    assert.deepStrictEqual(seen(), []);
    // With the layers that were set meanwhile.
    tool.layers = 0;
    scene.root.add(holder);
    scene.update();
    assert.deepStrictEqual(seen(), ['ball', 'bone.glb', 'late']);
    assert.strictEqual(camera.cull(scene, { layers: 2 }).count, 1);
    tool.layers = 1;
    assert.deepStrictEqual(seen(), ['ball', 'bone.glb', 'late', 'tool']);
  });

  it('look at places also below nodes of scale 0 and mirrored ones', () => {
    const turned = [0, Math.SQRT1_2, 0, Math.SQRT1_2];
    const hidden = scene.node({ scale: 0, quaternion: turned });
    const below = scene.node({ parent: hidden });
    below.lookAt(0, 0, 5);
    hidden.setScale(1);
    const mirrored = scene.node({ scale: [-2, 2, 2], quaternion: turned });
    const other = scene.node({ parent: mirrored });
    other.lookAt(5, 2, 3);
    scene.update();
    const axis = ({ worldMatrix: m }) => {
      const length = Math.hypot(m[8], m[9], m[10]);
      return [m[8] / length, m[9] / length, m[10] / length];
    };
    const isNear = (actual, expected) =>
      actual.forEach((value, i) => {
        assert(Math.abs(value - expected[i]) < 1e-6, `${actual}, not ${expected}`);
      });
    isNear(axis(below), [0, 0, 1]);
    const length = Math.sqrt(38);
    isNear(axis(other), [5 / length, 2 / length, 3 / length]);
    assert(Math.abs(Math.hypot(...other.quaternion) - 1) < 1e-6);
  });

  it('have spheres with a center and a radius', () => {
    const node = scene.node();
    assert.throws(() => node.setSphere(0, NaN, 0, 1), {
      name: 'RangeError',
      message: 'Node.setSphere: y is NaN: give finite numbers, and a radius from 0 up.',
    });
    assert.throws(() => node.setSphere(0, 0, 0, -1), {
      name: 'RangeError',
      message: 'Node.setSphere: radius is -1: give finite numbers, and a radius from 0 up.',
    });
    assert.throws(() => node.setSphere(0, 0, 0, NaN), /radius is NaN: give/);
    node.setSphere(0, 0, 0, Infinity);
    scene.update();
    assert.strictEqual(new Camera().cull(scene).count, 1);
  });

  it("can't be used after their scene, nor can its root", () => {
    const other = new Scene({ engine });
    const { root } = other;
    other.dispose();
    assert(root.isDisposed);
    assert.throws(() => root.setPosition(1, 2, 3), {
      name: 'Error',
      message: "Node.setPosition: node 'root' is disposed of: make a new one.",
    });
  });
});

describe('setters of scenes', () => {
  it('refuse numbers that are not finite, and take all that are', () => {
    const node = scene.node({ position: [1, 2, 3], scale: 2 });
    const largest = 3e38;
    for (const bad of [NaN, Infinity, -Infinity]) {
      const error = (label) => ({
        name: 'RangeError',
        message: `Node.${label} is ${bad}: give finite numbers.`,
      });
      assert.throws(() => node.setPosition(bad, 0, 0), error('setPosition: x'));
      assert.throws(() => node.setPosition(0, 0, bad), error('setPosition: z'));
      assert.throws(() => node.setQuaternion(0, bad, 0, 1), error('setQuaternion: y'));
      assert.throws(() => node.setQuaternion(0, 0, 0, bad), error('setQuaternion: w'));
      assert.throws(() => node.setScale(bad), error('setScale: x'));
      assert.throws(() => node.setScale(1, 1, bad), error('setScale: z'));
      assert.throws(() => node.setEuler(0, bad, 0), error('setEuler: y'));
      assert.throws(() => node.lookAt(0, 0, bad), error('lookAt: z'));
      assert.throws(() => node.lookAt(0, 0, 1, 0, bad, 0), error('lookAt: upY'));
      assert.throws(() => (node.position = [0, bad, 0]), error('setPosition: y'));
    }
    assert.deepStrictEqual(Array.from(node.position), [1, 2, 3]);
    assert.deepStrictEqual(Array.from(node.scale), [2, 2, 2]);
    assert.deepStrictEqual(Array.from(node.quaternion), [0, 0, 0, 1]);
    // Their sum is not finite.
    node.setPosition(Number.MAX_VALUE, Number.MAX_VALUE, 0);
    node.setScale(largest, largest, largest);
    assert.deepStrictEqual(Array.from(node.scale), new Array(3).fill(Math.fround(largest)));
  });
});

describe('characters for which the engine has no room', () => {
  // In WebAssembly the memory is of a fixed size, and dropped objects have to be collected.
  before(collect);
  afterEach(collect);

  /** A scene on an engine that makes `most` blocks of a kind, and throws or gives no handle instead of another. */
  function sceneOf(call, most, isThrowing) {
    let left = most;
    const limited = engineWith(call, (run) => {
      if (left-- <= 0) {
        assert(!isThrowing, 'no room');
        return { id: 0 };
      }
      return run();
    });
    const own = new Scene({ engine: limited });
    return { own, allow: (more) => (left = more) };
  }

  /** Their differences can't be printed: scenes are large. */
  function assertSame(objects, expected) {
    assert.strictEqual(objects.length, expected.length);
    assert(objects.every((object, i) => object === expected[i]));
  }

  // Blocks are of 1,024 nodes, or as many spheres; a character has two nodes, a sphere, and an animator of its own.
  const limits = [
    ['nodes', 'createEntity', 2],
    ['animators', 'createComponent', 1 + 700],
    ['spheres', 'createComponent', 1 + 10 + 1100],
  ];
  for (const isThrowing of [true, false]) {
    for (const [what, call, most] of limits) {
      const how = isThrowing ? 'throws' : 'has no handle left';
      it(`are all left out if it ${how} for ${what}`, () => {
        const { own, allow } = sceneOf(call, most, isThrowing);
        const camera = own.addCamera(new Camera({ far: 1000 }));
        const visibleOf = (characters) => {
          characters.forEach((one, i) => one.setPosition(0, 0, -2 - i / 10));
          characters.forEach((one) => one.play('step', { at: 0.5, speed: 0 }));
          own.update();
          return Array.from(camera.visible);
        };
        const first = own.instantiate(model, 10);
        assertSame(visibleOf(first), first);
        assert.throws(() => own.instantiate(model, 1100), /no room|no handle left/);
        assertSame(visibleOf(first), first);
        allow(Infinity);
        const all = [...first, ...own.instantiate(model, 1100)];
        assertSame(visibleOf(all), all);
        all.forEach((one) => assert.strictEqual(one.node('bone').worldMatrix[12], 0.5));
        own.dispose();
      });
    }
  }

  it('leave nodes that can be used, if they are larger than a block', async () => {
    const builder = new ModelBuilder();
    const count = 3000;
    for (let i = 0; i < count; ++i) {
      builder.node({ name: `${i}`, children: i + 1 < count ? [i + 1] : [] });
    }
    builder.json.scenes = [{ nodes: [0] }];
    const chain = await Model.load(builder.glb());
    const { own, allow } = sceneOf('createEntity', 2, true);
    assert.throws(() => own.instantiate(chain), /no room/);
    assert.strictEqual(own.nodeCount, 0);
    allow(Infinity);
    const nodes = [];
    for (let i = 0; i < count; ++i) {
      nodes.push(own.node({ parent: i % 3 > 0 ? nodes[i - 1] : undefined, position: [1, 0, 0] }));
    }
    own.update();
    nodes.forEach((node, i) => assert.strictEqual(node.worldMatrix[12], 1 + (i % 3)));
    nodes[count - 1].remove();
    nodes[count - 3].dispose();
    own.update();
    assert.strictEqual(nodes[count - 1].isDisposed, false);
    assert.strictEqual(nodes[count - 2].isDisposed, true);
    own.dispose();
  });
});

describe('engines without handles', () => {
  it('are reported with their limit', () => {
    const calls = [
      ['createEntity', 'a block of nodes'],
      ['createComponent', 'a block of spheres'],
      ['createComponent', 'an animator'],
      ['createComponent', 'a skin'],
      ['createDataModel', 'a clip'],
      ['createAnimatorControllerModel', 'a controller'],
      ['createAnimatorControllerStateModel', 'a state of a controller'],
      ['createAnimationClipBinding', 'a binding'],
    ];
    for (const [call, what] of calls) {
      let isFull = false;
      const full = engineWith(call, (run) => {
        const made = run();
        if (isFull) {
          Object.defineProperty(made, 'id', { value: 0 });
        }
        return made;
      });
      const own = new Scene({ engine: full });
      const kinds = {
        'a block of nodes': () => own.instantiate(model, 600),
        'a block of spheres': () => own.node().setSphere(0, 0, 0, 1),
        'a clip': () => own.instantiate(model),
        'an animator': () => own._pool.takeAnimator(1),
        'a skin': () => own._pool.takeSkin(1),
      };
      const layered = () => {
        const [one] = own.instantiate(model);
        one.play(0);
        one.addLayer('more', { additive: true }).play(0);
        isFull = true;
        own.update();
      };
      isFull = what in kinds;
      assert.throws(kinds[what] || layered, {
        name: 'RangeError',
        message:
          `Scene: the engine has no handle left for ${what}: it has 1048575 of a kind: dispose of what is not used, ` +
          "since scenes reuse it, or give a scene 'engine: getEngine()'.",
      });
    }
  });
});

describe('characters at the edges of a tree', () => {
  it('are stopped if they have no clips', async () => {
    const builder = new ModelBuilder();
    builder.node({ name: 'stone' });
    const [stone] = scene.instantiate(await Model.load(builder.glb()));
    stone.stop();
    stone.setPosition(1, 2, 3);
    scene.update(1);
    assert.deepStrictEqual(Array.from(stone.node('stone').worldMatrix).slice(12), [1, 2, 3, 1]);
  });

  it('are disposed of while they play a layer out of the tree', () => {
    const character = play('step', { at: 0.5, speed: 0 });
    character.remove();
    character.addLayer('more', { additive: true }).play('step', { at: 0.25, speed: 0 });
    scene.update();
    assert.deepStrictEqual(character.node('bone').position, [0.75, 0, 0]);
    character.dispose();
    // The next one gets the same entities.
    const next = play('step', { at: 0.5, speed: 0 });
    scene.update();
    assert.deepStrictEqual(next.node('bone').position, [0.5, 0, 0]);
  });

  it('give back the spheres of their nodes', () => {
    const camera = scene.addCamera(new Camera());
    const visible = () => {
      scene.update();
      return Array.from(camera.visible);
    };
    const [character] = scene.instantiate(model);
    character.setPosition(0, 0, -5);
    const bone = character.node('bone');
    bone.setSphere(0, 0, 0, 1);
    assert.deepStrictEqual(new Set(visible()), new Set([character, bone]));
    character.dispose();
    assert.deepStrictEqual(visible(), []);
    const stones = [1, 2].map(() => scene.node({ position: [0, 0, -5] }));
    stones.forEach((stone) => stone.setSphere(0, 0, 0, 1));
    assert.deepStrictEqual(new Set(visible()), new Set(stones));
  });

  it('add nothing by layers whose clip moves no node of their mask', async () => {
    const builder = new ModelBuilder();
    builder.json.scenes = [{ nodes: [0, 1] }];
    builder.node({ name: 'left' });
    builder.node({ name: 'right' });
    const step = (node) => ({
      node,
      path: 'translation',
      times: [0, 1],
      values: [0, 0, 0, 1, 0, 0],
    });
    builder.animation('both', [step(0), step(1)]);
    builder.animation('right', [step(1)]);
    const [character] = scene.instantiate(await Model.load(builder.glb()));
    character.play('both', { at: 0.5, speed: 0 });
    const layer = character.addLayer('left', { additive: true, mask: 'left' });
    layer.play('right', { at: 0.5, speed: 0 });
    const positions = () => {
      scene.update();
      return ['left', 'right'].map((name) => character.node(name).position[0]);
    };
    assert.deepStrictEqual(positions(), [0.5, 0.5]);
    layer.play('both', { at: 0.25, speed: 0 });
    assert.deepStrictEqual(positions(), [0.75, 0.5]);
  });
});

describe('characters with many clips', () => {
  const kMany = 32;
  let figure;
  let character;
  before(async () => {
    const builder = new ModelBuilder();
    builder.json.scenes = [{ nodes: [0] }];
    builder.node({ name: 'bone' });
    for (let i = 0; i < kMany; ++i) {
      const values = [i, 0, 0, i, 2, 0];
      builder.animation(`at ${i}`, [{ node: 0, path: 'translation', times: [0, 1], values }]);
    }
    figure = await Model.load(builder.glb(), { name: 'many.glb' });
  });
  beforeEach(() => {
    [character] = scene.instantiate(figure);
  });

  const position = () => Array.from(character.node('bone').position);

  it('blend all that play', () => {
    for (let i = 0; i < kMany; ++i) {
      character.play(i, { beside: true, speed: 0, at: 0.5, weight: 1 / kMany });
    }
    scene.update();
    assert.deepStrictEqual(position(), [(kMany - 1) / 2, 1, 0]);
    character.setWeight(0, 0);
    character.setWeight(kMany - 1, 2 / kMany);
    scene.update();
    assert.deepStrictEqual(position(), [(kMany - 1) / 2 + (kMany - 1) / kMany, 1, 0]);
  });

  it('blend all layers, each over those before', () => {
    character.play(0, { speed: 0 });
    let wanted = 0;
    for (let i = 1; i < kMany; ++i) {
      const layer = character.addLayer(`over ${i}`, { weight: 0.5 });
      layer.play(i, { speed: 0 });
      wanted = Math.fround((wanted + i) / 2);
      scene.update();
      assert.deepStrictEqual(position(), [wanted, 0, 0], `${i} layers`);
    }
  });

  it('add all additive layers', () => {
    character.play(3, { speed: 0 });
    for (let i = 0; i < kMany; ++i) {
      character.addLayer(`more ${i}`, { additive: true }).play(i, { at: 0.5, speed: 0 });
    }
    scene.update();
    assert.deepStrictEqual(position(), [3, kMany, 0]);
  });
});

describe('cameras of scenes', () => {
  it('have view volumes with an inside', () => {
    const camera = new Camera();
    const box = { left: -1, right: 1, bottom: -1, top: 1, near: 1, far: 10 };
    for (const [options, message] of [
      [{ aspect: NaN }, 'aspect is NaN: give a number over 0'],
      [{ aspect: 0 }, 'aspect is 0: give a number over 0'],
      [{ near: NaN }, 'near is NaN: give finite numbers, near below far'],
      [{ near: 10, far: 1 }, 'near is 10, far is 1: give finite numbers, near below far'],
    ]) {
      assert.throws(() => camera.setPerspective(options), {
        name: 'RangeError',
        message: `Camera.setPerspective: ${message}.`,
      });
    }
    for (const [options, message] of [
      [{ left: 1, right: -1 }, 'left is 1, right is -1: give finite numbers, left below right'],
      [{ top: NaN }, 'top is NaN: give finite numbers, bottom below top'],
      [{ near: 10, far: 1 }, 'near is 10, far is 1: give finite numbers, near below far'],
    ]) {
      assert.throws(() => camera.setOrthographic(Object.assign({}, box, options)), {
        name: 'RangeError',
        message: `Camera.setOrthographic: ${message}.`,
      });
    }
    // It is as it was before.
    const node = scene.node({ position: [0, 0, -5] });
    node.setSphere(0, 0, 0, 1);
    scene.update();
    assert.strictEqual(camera.cull(scene).count, 1);
    camera.setOrthographic(box);
    assert.strictEqual(camera.cull(scene).count, 1);
  });

  it('may see without an end, and with an axis that points down', () => {
    const far = scene.node({ name: 'far', position: [0, 0, -1e6] });
    far.setSphere(0, 0, 0, 1);
    const behind = scene.node({ position: [0, 0, 5] });
    behind.setSphere(0, 0, 0, 1);
    scene.update();
    const camera = new Camera({ far: Infinity });
    assert.deepStrictEqual(
      Array.from(camera.cull(scene), ({ name }) => name),
      ['far']
    );
    // That of new THREE.OrthographicCamera(0, 8, 0, 6, 1, 11): its top is 0, its bottom 6.
    const elements = [1 / 4, 0, 0, 0, 0, -1 / 3, 0, 0, 0, 0, -1 / 5, 0, -1, 1, -6 / 5, 1];
    const matrixWorld = { elements: [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1] };
    camera.setFromThree({ projectionMatrix: { elements }, matrixWorld });
    far.setPosition(7, 5, -10);
    behind.setPosition(7, -2, -10);
    scene.update();
    assert.deepStrictEqual(
      Array.from(camera.cull(scene), ({ name }) => name),
      ['far']
    );
  });

  it('do not list culling objects that a program makes beside them', () => {
    const camera = scene.addCamera(new Camera());
    const node = scene.node({ position: [0, 0, -5] });
    node.setSphere(0, 0, 0, 1);
    const own = engine.createComponent(1, 1);
    const view = new nq.CullingObjectsView(own);
    view.setMask(0, 1);
    view.setSphere(0, 0, 0, 0, 1);
    view.setEntity(0, node.handle);
    scene.update();
    const count = over(Uint32Array, engine.cullingResult)[1];
    view.setEnabled(0, true);
    scene.update();
    assert.strictEqual(over(Uint32Array, engine.cullingResult)[1], count + 1);
    assert.deepStrictEqual(Array.from(camera.visible), [node]);
    assert.strictEqual(camera.visible.distance(0), 5);
    view.setEnabled(0, false);
  });

  it('refuse options and matrices of other kinds', () => {
    const camera = new Camera();
    assert.throws(() => camera.cull(scene, null), {
      name: 'TypeError',
      message: 'Camera.cull: options is null: leave it out or give an object.',
    });
    assert.throws(() => camera.setFromThree({ projectionMatrix: {}, matrixWorld: {} }), {
      name: 'TypeError',
      message: 'Camera.setFromThree: camera is an object: give a camera of three.js.',
    });
  });
});

describe('models of data', () => {
  it('have nodes, skins and animations', () => {
    const nodes = [];
    assert.throws(() => Model.from({ nodes, animations: [] }), {
      name: 'TypeError',
      message: 'Model: imported.skins is undefined: give an array, as importGltf does.',
    });
    assert.throws(() => Model.from({ nodes, skins: [] }), {
      name: 'TypeError',
      message: 'Model: imported.animations is undefined: give an array, as importGltf does.',
    });
    assert.throws(() => Model.from({ nodes, skins: [], animations: [] }, null), {
      name: 'TypeError',
      message: 'Model: options is null: leave it out or give an object.',
    });
  });

  it('have bounds that hold both sides of a jump', async () => {
    const builder = new ModelBuilder();
    builder.json.scenes = [{ nodes: [0] }];
    builder.node({ name: 'bone' });
    const [times, values] = [
      [0, 0.5, 1],
      [0, 0, 0, 100, 0, 0, 0, 0, 0],
    ];
    const jump = { node: 0, path: 'translation', times, values, interpolation: 'STEP' };
    builder.animation('jump', [jump]);
    const { center, radius } = (await Model.load(builder.glb())).bounds;
    assert.deepStrictEqual(center, [50, 0, 0]);
    assert(radius >= 50 && radius < 75, `${radius}`);
  });

  it('have nodes and bounds also where the vertices have become unreadable', async () => {
    const builder = new ModelBuilder();
    builder.node({ name: 'stone' });
    const warnings = [];
    // The file is read again for its vertices, and has no mesh any more.
    const nodes = [{ fileIndex: 0, mesh: 0, skin: -1 }];
    assert.deepStrictEqual(await readMeshes(builder.glb(), nodes, warnings), []);
    assert.strictEqual(warnings.length, 1);
    assert(
      /^its vertices can't be read \(.+\): bounds are those of its nodes\.$/.test(warnings[0])
    );
  });

  it('turn nodes by quaternions, not by Euler angles', async () => {
    const builder = new ModelBuilder();
    builder.json.scenes = [{ nodes: [0] }];
    builder.node({ name: 'bone' });
    const values = [0, 0, 0, 1, 0, 0];
    builder.animation('turn', [{ node: 0, path: 'translation', times: [0, 1], values }]);
    const imported = await importGltf(builder.glb());
    const keys = [{ frame: 0, value: 1, inTangent: 0, outTangent: 0 }];
    const type = nq.sampleTypes.EulerX;
    const curves = [{ target: 0, type, keys }];
    imported.animations[0].clip = nq.buildClip({ framesPerSecond: 30, frameCount: 1, curves });
    assert.throws(() => Model.from(imported), {
      name: 'RangeError',
      message:
        `Model: clip 'turn' has a curve of sample type ${type}: ` +
        'give its rotations as quaternions.',
    });
    // What it would turn is left out of the model.
    imported.animations[0].targets[0] = -1;
    assert.strictEqual(Model.from(imported).clips.length, 1);
  });
});

describe('instances without a place', () => {
  it('leave a world as it was', () => {
    const camera = scene.addCamera(new Camera());
    const nodes = [-5, -6].map((z) => scene.node({ position: [0, 0, z] }));
    nodes.forEach((node) => node.setSphere(0, 0, 0, 1));
    const world = toThree(three, scene);
    const meshes = [1, 1].map(
      (count) =>
        new three.InstancedMesh(new three.BoxGeometry(), new three.MeshBasicMaterial(), count)
    );
    assert.throws(() => world.instances(meshes[0], nodes), /room for 1 instances/);
    const set = world.instances(meshes[1], [nodes[0]]);
    world.remove(meshes[1]);
    assert.throws(() => set.add(nodes[1]), {
      name: 'Error',
      message:
        'ThreeInstances.add: the mesh was removed from the world: call instances of the world again.',
    });
    for (let i = 0; i < 3; ++i) {
      scene.update();
      world.update(camera);
    }
    world.instances(meshes[0], [nodes[1]]);
    world.update(camera);
    assert.deepStrictEqual([meshes[0].count, meshes[0].instanceMatrix.array[14]], [1, -6]);
  });
});

describe('worlds of three.js', () => {
  it('give back instanced meshes when they are disposed of', () => {
    const node = scene.node({ position: [1, 2, 3] });
    const world = toThree(three, scene);
    const geometry = new three.BoxGeometry();
    const meshes = [1, 2].map(() => new three.InstancedMesh(geometry, new three.Material(), 1));
    meshes.forEach((mesh) => (mesh.frustumCulled = true));
    const sets = meshes.map((mesh) => world.instances(mesh, [node]));
    scene.update();
    world.update();
    assert.deepStrictEqual(
      meshes.map(({ parent, frustumCulled }) => [parent, frustumCulled]),
      meshes.map(() => [world.root, false])
    );
    world.dispose();
    assert.deepStrictEqual(
      meshes.map(({ parent, frustumCulled }) => [parent, frustumCulled]),
      meshes.map(() => [null, true])
    );
    assert.throws(() => sets[0].add(node), /the mesh was removed/);
  });
});

describe('files of recordings', () => {
  let folder;
  before(() => {
    folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-edges-'));
  });
  after(() => removeFolder(folder));

  it('may be links, devices, and have long names', async function () {
    const recording = scene.record();
    scene.update();
    const events = (file) => JSON.parse(fs.readFileSync(file, 'utf8')).traceEvents.length;
    const long = path.join(folder, `${'a'.repeat(250)}.json`);
    await recording.save(long);
    assert(events(long) > 5);
    const link = path.join(folder, 'link.json');
    const real = path.join(folder, 'real.json');
    fs.writeFileSync(real, 'old');
    try {
      fs.symlinkSync(real, link);
    } catch (error) {
      this.skip(); // not for users of Windows
    }
    await recording.save(link);
    assert(fs.lstatSync(link).isSymbolicLink());
    assert(events(real) > 5);
    // To be replaced, a device would be removed.
    const device = path.join(folder, 'device');
    fs.symlinkSync(os.devNull || '/dev/null', device);
    await recording.save(device);
    assert(fs.lstatSync(device).isSymbolicLink());
    assert(fs.statSync(device).isCharacterDevice());
    assert.strictEqual(fs.readdirSync(folder).length, 4);
  });

  it('on devices that are full are reported', async function () {
    if (!fs.existsSync('/dev/full')) {
      this.skip(); // a device of Linux
    }
    const recording = scene.record();
    scene.update();
    await assert.rejects(recording.save('/dev/full'), {
      code: 'ENOSPC',
      message:
        "Recording.save: '/dev/full' can't be written, the disk is full: make room, or record fewer frames.",
    });
  });
});
