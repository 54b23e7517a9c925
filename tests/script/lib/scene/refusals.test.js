'use strict';
// Arguments that scenes refuse before anything has changed: found by random programs.
const assert = require('assert');
const nq = require('../../../../lib');
const scenes = require('../../../../scene');
const { makeFigure } = require('../../../../bench/script/lib/scene-figure');

const { Camera, Model, Scene } = scenes;
const engine = nq.getEngine();
const bounds = { center: [0, 0, 0], radius: 1 };

let scene;
beforeEach(() => {
  scene = new Scene({ engine });
});
afterEach(() => scene.dispose());

const refuses = (call, name, message) => assert.throws(call, { name, message });

function revoked() {
  const { proxy, revoke } = Proxy.revocable({}, {});
  revoke();
  return proxy;
}

describe('options of a node that are refused', () => {
  it('leave no node, and change no shared memory', () => {
    const other = new Scene({ engine });
    const gone = scene.node({ name: 'gone' });
    gone.dispose();
    scene.update();
    const cases = [
      [
        { position: {} },
        'TypeError',
        /^Node\.position: it is an object: give 3 numbers, x, y, z\.$/,
      ],
      [{ position: [0, NaN, 0] }, 'RangeError', /^Node\.setPosition: y is NaN: give finite/],
      [{ quaternion: [0, 0, 0, '1'] }, 'TypeError', /^Node\.quaternion: w is '1', not a number/],
      [{ quaternion: [Infinity, 0, 0, 1] }, 'RangeError', /^Node\.setQuaternion: x is Infinity/],
      [{ scale: -Infinity }, 'RangeError', /^Node\.setScale: x is -Infinity: give finite/],
      [{ scale: [1, 1] }, 'TypeError', /^Node\.scale: it is an array: give 3 numbers/],
      [{ position: [1, 2, 3], scale: 'a' }, 'TypeError', /^Node\.scale: it is 'a'/],
      [{ parent: gone }, 'Error', /^Node\.add: node 'gone' is disposed of/],
      [
        { parent: other.root },
        'RangeError',
        /^Scene\.node: parent is in another scene: give a node of this scene\.$/,
      ],
      [{ parent: revoked() }, 'TypeError', /^Scene\.node: parent is an object: give a node/],
    ];
    const buffers = [engine.dirtyEntities, engine.entityCommands, scene.root.worldMatrix.buffer];
    const before = buffers.map((buffer) => Buffer.from(buffer.slice(0)));
    for (const [options, name, message] of cases) {
      refuses(() => scene.node(options), name, message);
    }
    buffers.forEach((buffer, i) => assert(before[i].equals(Buffer.from(buffer)), `buffer ${i}`));
    assert.strictEqual(scene.nodeCount, 0);
    other.dispose();
  });
});

describe('classes of a scene', () => {
  it('are not made by new', () => {
    const { Character, Node } = scenes;
    for (const args of [[], [7], [{}], [{}, 0, 'a'], [null, null, null]]) {
      refuses(
        () => new Node(...args),
        'TypeError',
        'new Node: nodes come from scene.node only: call that.'
      );
      refuses(
        () => new Character(...args),
        'TypeError',
        /^new (Character: characters come from scene\.instantiate|Node: nodes come from scene\.node) only: call that\.$/
      );
    }
  });
});

describe('values that are no numbers', () => {
  it('are refused without a conversion', () => {
    const [character] = scene.instantiate(Model.from(makeFigure(3), { bounds }));
    const camera = new Camera();
    const layers = Symbol('layers');
    const hostile = {
      valueOf() {
        throw new Error('was converted');
      },
    };
    for (const value of [layers, hostile, BigInt(1)]) {
      const message = (label) => new RegExp(`^${label}`);
      refuses(() => (character.layers = value), 'TypeError', message('Character\\.layers: it is'));
      refuses(() => (camera.layers = value), 'TypeError', message('Camera\\.layers: it is'));
      const options = { layers: value };
      refuses(() => camera.cull(scene, options), 'TypeError', message('Camera\\.cull: layers is'));
      refuses(() => character.node(value), 'TypeError', message('Character\\.node: index is'));
      refuses(
        () => character.skinMatrices(value),
        'TypeError',
        message('Character\\.skinMatrices')
      );
      refuses(() => camera.visible.at(value), 'TypeError', message('VisibleList\\.at: i is'));
      refuses(() => camera.visible.distance(value), 'TypeError', message('VisibleList\\.distance'));
      const instantiate = () => scene.instantiate(character.model, value);
      refuses(instantiate, 'TypeError', message('Scene\\.instantiate: count is'));
      const addLayer = () => character.addLayer('a', { mask: [value] });
      refuses(addLayer, 'TypeError', message('Character\\.addLayer: mask has'));
    }
    assert.deepStrictEqual([character.layers, camera.layers], [1, 0xffffffff]);
  });
});

describe('objects whose proxy was revoked', () => {
  it('are refused as any other object', () => {
    const proxy = revoked();
    const node = scene.node();
    refuses(
      () => scene.add(proxy, node),
      'TypeError',
      'Scene.add: parent is an object: give a node.'
    );
    refuses(
      () => scene.remove(proxy),
      'TypeError',
      'Scene.remove: node is an object: give a node.'
    );
    refuses(
      () => node.add(proxy),
      'TypeError',
      'Node.add: child is an object: give a node of the scene.'
    );
    refuses(() => scene.addCamera(proxy), 'TypeError', /^Scene\.addCamera: camera is an object/);
    refuses(() => scene.instantiate(proxy), 'TypeError', /^Scene\.instantiate: model is an object/);
  });
});

describe('cameras of a scene', () => {
  it('are refused for removal if they are none', () => {
    for (const value of [undefined, null, 7, {}, scene]) {
      refuses(
        () => scene.removeCamera(value),
        'TypeError',
        /^Scene\.removeCamera: camera is .*: give a Camera\.$/
      );
    }
    scene.removeCamera(new Camera()); // not one of the scene: nothing to do
  });

  it('refuse places that are not finite, and stay as they were', () => {
    scene.node().setSphere(0, 0, -5, 1);
    scene.update();
    const camera = new Camera();
    for (const method of ['setPosition', 'lookAt', 'setUp']) {
      for (const [i, axis] of ['x', 'y', 'z'].entries()) {
        for (const value of [NaN, Infinity, -Infinity]) {
          const args = [1, 2, 3];
          args[i] = value;
          const message = `Camera.${method}: ${axis} is ${value}: give finite numbers.`;
          refuses(() => camera[method](...args), 'RangeError', message);
        }
      }
    }
    // A sum beyond the largest number, of numbers that are not.
    camera.setPosition(1e308, 1e308, 0);
    camera.setPosition(0, 0, 0);
    assert.strictEqual(camera.cull(scene).count, 1);
    const identity = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1];
    const projection = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1, -1, 0, 0, -0.2, 0];
    for (const elements of [identity.map((value, i) => (i === 13 ? NaN : value)), [1, 2]]) {
      refuses(
        () =>
          camera.setFromThree({
            projectionMatrix: { elements: projection },
            matrixWorld: { elements },
          }),
        'RangeError',
        /^Camera\.setFromThree: its matrixWorld is not 16 finite numbers: give a camera of three\.js/
      );
    }
    assert.strictEqual(camera.cull(scene).count, 1);
  });
});

describe('options of a crossfade', () => {
  it('are refused unless they are an object', () => {
    const [character] = scene.instantiate(Model.from(makeFigure(3), { bounds }));
    for (const options of [7, 'a', null, true]) {
      refuses(
        () => character.crossfade('run', 1, options),
        'TypeError',
        /^Character\.crossfade: options is .*: leave it out or give an object\.$/
      );
    }
    assert.strictEqual(character.weightOf('run'), 0);
  });
});

describe('a model whose clips leave the range of floats', () => {
  it('has bounds that every camera sees, and can be shown and disposed of', () => {
    const figure = makeFigure(3);
    const keys = [0, 30].map((frame) => ({ frame, value: 1, inTangent: 0, outTangent: 3e38 }));
    const curves = ['PositionX', 'PositionY'].map((name) => ({
      target: 0,
      type: nq.sampleTypes[name],
      keys: keys.map((key, i) => Object.assign({}, key, { inTangent: i === 0 ? 0 : -3e38 })),
    }));
    const clip = nq.buildClip({ name: 'far', framesPerSecond: 1, frameCount: 31, curves });
    figure.animations = [{ name: 'far', framesPerSecond: 1, targets: [0], clip }];
    const model = Model.from(figure);
    assert.deepStrictEqual(model.bounds, { center: [0, 0, 0], radius: Infinity });
    const [character] = scene.instantiate(model);
    character.play('far');
    scene.update(0.5);
    assert.strictEqual(new Camera().cull(scene).count, 1);
    character.dispose();
    assert.strictEqual(character.isDisposed, true);
  });
});
