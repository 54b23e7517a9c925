'use strict';
// Arguments of the scene layer that are of the wrong kind, with the messages that name them; and rotations whose largest
// component is each of the four.
const assert = require('assert');
const three = require('three');
const nq = require('../../../../lib');
const { displayMesh } = require('../../../../lib/scene/inspect/display-mesh');
const { Camera, Model, Scene } = require('../../../../scene');
const { ModelBuilder } = require('../../../fixtures/animations');

const engine = nq.getEngine();
const bounds = { center: [0, 0, 0], radius: 1 };

let model;
let still;
let scene;
before(async () => {
  const builder = new ModelBuilder();
  builder.node({ name: 'bone' });
  builder.animation('step', [
    { node: 0, path: 'translation', times: [0, 1], values: [0, 0, 0, 1, 0, 0] },
  ]);
  model = await Model.load(builder.glb(), { name: 'bone.glb', bounds });
  const other = new ModelBuilder();
  other.node({ name: 'stone' });
  still = await Model.load(other.glb(), { name: 'stone.glb', bounds });
});
beforeEach(() => {
  scene = new Scene({ engine });
});
afterEach(() => scene.dispose());

const refuses = (call, name, message) => assert.throws(call, { name, message });

describe('arguments of a scene', () => {
  it('are refused where an object is wanted', () => {
    const cure = 'leave it out or give an object';
    refuses(() => scene.node(5), 'TypeError', `Scene.node: options is 5: ${cure}.`);
    refuses(() => scene.node(null), 'TypeError', `Scene.node: options is null: ${cure}.`);
    const camera = new Camera();
    const perspective = 'Camera.setPerspective: options is';
    refuses(() => camera.setPerspective(1), 'TypeError', `${perspective} 1: ${cure}.`);
    refuses(
      () => camera.setOrthographic(() => {}),
      'TypeError',
      'Camera.setOrthographic: options is a function: give left, right, bottom and top.'
    );
    refuses(() => camera.cull(scene, 7), 'TypeError', `Camera.cull: options is 7: ${cure}.`);
  });

  it('are refused by a promise where a file is loaded', async () => {
    await assert.rejects(Model.load('none.glb', 3), {
      name: 'TypeError',
      message: 'Model.load: options is 3: leave it out or give an object.',
    });
  });

  it('are refused where a node is wanted', () => {
    refuses(
      () => scene.add({}, scene.root),
      'TypeError',
      'Scene.add: parent is an object: give a node.'
    );
    refuses(() => scene.remove('a'), 'TypeError', "Scene.remove: node is 'a': give a node.");
  });

  it('are refused where a count is wanted, by its kind', () => {
    const label = 'Scene.instantiate: count is';
    refuses(() => scene.instantiate(model, -1), 'RangeError', `${label} -1: give a whole number.`);
    refuses(() => scene.instantiate(model, '2'), 'TypeError', `${label} '2': give a whole number.`);
    assert.deepStrictEqual(scene.instantiate(model, 0), []);
  });

  it('are refused where layers are wanted, and kept where they are valid', () => {
    const camera = new Camera();
    camera.layers = 5;
    assert.throws(() => (camera.layers = -1), {
      name: 'RangeError',
      message: /^Camera\.layers: it is -1/,
    });
    assert.strictEqual(camera.layers, 5);
    assert.throws(() => camera.cull(scene, { layers: 0.5 }), {
      message: /^Camera\.cull: layers is 0\.5/,
    });
  });

  it('are refused where numbers are wanted', () => {
    const node = scene.node();
    const message = (method, name) => new RegExp(`${method}: ${name} is '1', not a number`);
    const fails = (call, method, name) =>
      assert.throws(call, { name: 'TypeError', message: message(method, name) });
    fails(() => node.setEuler(0, '1', 0), 'setEuler', 'y');
    fails(() => node.setScale(1, 1, '1'), 'setScale', 'z');
    fails(() => node.lookAt('1', 0, 0), 'lookAt', 'x');
    fails(() => node.lookAt(1, 0, 0, 0, '1', 0), 'lookAt', 'upY');
    fails(() => new Camera().setPosition(0, 0, '1'), 'Camera.setPosition', 'z');
  });

  it('are refused beyond a list of visible objects', () => {
    const camera = new Camera();
    camera.setPosition(0, 0, 5);
    camera.lookAt(0, 0, 0);
    scene.instantiate(model);
    scene.update();
    const visible = camera.cull(scene);
    assert.strictEqual(visible.count, 1);
    assert.ok(Math.abs(visible.distance(0) - 5) < 1e-6);
    assert.throws(() => visible.distance(1), /^RangeError: VisibleList\.distance: i is 1, of 1/);
  });

  it('are refused of cameras of three.js whose view is not symmetric', () => {
    const camera = new three.PerspectiveCamera(50, 1, 0.1, 100);
    camera.setViewOffset(100, 100, 50, 0, 50, 100);
    camera.updateMatrixWorld();
    refuses(
      () => new Camera().setFromThree(camera),
      'RangeError',
      'Camera.setFromThree: its view is not symmetric: give one without view offset and film offset.'
    );
  });

  it('are refused where a clip is of another model', () => {
    assert.strictEqual(model.clip(model.clips[0]), model.clips[0]);
    assert.throws(() => model.clip({ index: 0 }), /^RangeError: .*it has 'step'\.$/);
    assert.throws(() => model.clip('walk'), /^RangeError: .*'walk'.*it has 'step'\.$/);
  });

  it('are refused where a model has no clips', () => {
    const [stone] = scene.instantiate(still);
    refuses(
      () => stone.addLayer('wave'),
      'RangeError',
      /addLayer: model 'stone\.glb' has no clips: give a model with clips\.$/
    );
  });
});

describe('angles of view of a scene', () => {
  it('are in degrees or in radians, from the lower to the upper edge', () => {
    const camera = new Camera();
    const node = scene.node();
    node.setSphere(0, 0, 0, 0.001);
    const isSeen = (degrees) => {
      node.setPosition(
        0,
        Math.sin((degrees * Math.PI) / 180),
        -Math.cos((degrees * Math.PI) / 180)
      );
      scene.update();
      return camera.cull(scene).count === 1;
    };
    for (const options of [{ fovDegrees: 90 }, { fovRadians: Math.PI / 2 }]) {
      camera.setPerspective(options);
      assert.ok(isSeen(44.5) && isSeen(-44.5));
      assert.ok(!isSeen(45.5) && !isSeen(-45.5));
    }
  });
});

describe('nodes of a scene that look', () => {
  // The rotation of three.js, whose cameras aside looks along +z.
  const expectLook = (target, up) => {
    const node = scene.node();
    node.lookAt(...target, ...up);
    const object = new three.Object3D();
    object.up.set(...up);
    object.lookAt(...target);
    const found = new three.Quaternion(...node.quaternion);
    assert.ok(Math.abs(found.dot(object.quaternion)) > 1 - 1e-6, `${target} by ${up}`);
  };

  it('are turned as by three.js, whichever component of the rotation is the largest', () => {
    expectLook([0, 0, 1], [0, 1, 0]); // none
    expectLook([0, 0, -1], [0, -1, 0]); // about x
    expectLook([0, 0, -1], [0, 1, 0]); // about y
    expectLook([0, 0, 1], [0, -1, 0]); // about z
    expectLook([0.1, -0.2, -1], [0.1, -1, 0.2]);
  });

  it('look along their up vector by any rotation that does', () => {
    for (const axis of [
      [1, 0, 0],
      [0, 1, 0],
      [0, 0, 1],
      [0, 0, -2],
    ]) {
      const node = scene.node();
      node.lookAt(...axis, ...axis);
      const forward = new three.Vector3(0, 0, 1).applyQuaternion(
        new three.Quaternion(...node.quaternion)
      );
      assert.ok(forward.dot(new three.Vector3(...axis).normalize()) > 1 - 1e-6, `${axis}`);
    }
  });
});

describe('meshes whose triangles have colours', () => {
  it('have a vertex for each colour that it has', () => {
    // Two triangles of one square, of different colours: the shared edge is doubled.
    const found = displayMesh({
      positions: Float32Array.of(0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0),
      bones: Uint16Array.from({ length: 16 }, (_, i) => i),
      weights: Float32Array.from({ length: 16 }, (_, i) => i / 16),
      triangles: Uint32Array.of(0, 1, 2, 0, 2, 3),
      parts: Uint8Array.of(4, 9),
    });
    assert.deepStrictEqual(Array.from(found.triangles), [0, 1, 2, 3, 4, 5]);
    assert.deepStrictEqual(Array.from(found.parts), [4, 4, 4, 9, 9, 9]);
    const corners = [0, 1, 2, 0, 2, 3];
    const square = [
      [0, 0, 0],
      [1, 0, 0],
      [1, 1, 0],
      [0, 1, 0],
    ];
    assert.deepStrictEqual(
      Array.from(found.positions),
      [].concat(...corners.map((i) => square[i]))
    );
    assert.deepStrictEqual(Array.from(found.normals), [].concat(...corners.map(() => [0, 0, 1])));
    corners.forEach((i, at) => {
      assert.deepStrictEqual(Array.from(found.bones.subarray(4 * at, 4 * at + 4)), [
        4 * i,
        4 * i + 1,
        4 * i + 2,
        4 * i + 3,
      ]);
      assert.strictEqual(found.weights[4 * at + 1], (4 * i + 1) / 16);
    });
  });
});
