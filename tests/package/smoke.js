'use strict';
// Run in a project in which only the package is installed: a first scene.
const assert = require('assert');
const http = require('http');
const nq = require('nq_logic');
const { buildClip, sampleTypes } = require('nq_logic/lib/clip');
const { importGltf } = require('nq_logic/lib/gltf');
const { Scene } = require('nq_logic/scene');

assert.strictEqual(nq.getVersion().version, '138');
const engine = nq.getEngine();
// The package does not contain the build with command buffers.
assert.strictEqual(engine.createMatrixFlowCommandBuffer, undefined);
assert.throws(() => nq.loadMatrixFlow(), { code: 'ERR_NQ_LOAD' });

// A child at x = 5 of a parent at 1, 2, 3 that a clip rotates by half a turn about z in 60 frames.
const entities = new nq.Entity3DView(engine.createEntity(true, 2));
entities.setPosition(0, 1, 2, 3);
entities.setScale(0, 1, 1, 1);
entities.setPosition(1, 5, 0, 0);
entities.setScale(1, 1, 1, 1);
const commands = new nq.EntityCommandWriter(engine);
commands.addRoot(entities.handle(0));
commands.addChild(entities.handle(0), entities.handle(1));
new nq.DirtyListWriter(engine).appendRange(entities.id, 2);

const key = (frame, value) => ({ frame, value, inTangent: 0, outTangent: 0 });
const curves = [
  { target: 0, type: sampleTypes.EulerZ, keys: [key(0, 0), key(60, Math.PI)] },
  { target: 0, type: sampleTypes.PositionZ, keys: [key(0, 7)] },
];
const clip = engine.createDataModel(
  nq.layout.dataModelKinds.clip,
  buildClip({ framesPerSecond: 30, frameCount: 61, curves })
);
const component = engine.createComponent(nq.layout.componentKinds.animator, 1, 1);
const animator = new nq.AnimatorView(component, 1);
animator.setClip(0, clip.id, 30, 1); // half of the way at half of the time
animator.setTarget(0, entities.handle(0));
engine.updateAnimator(animator.id);
engine.refreshWorldTransform();

// After a quarter turn x is y.
const matrix = entities.worldMatrix(1, new Float32Array(16));
const wanted = [0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 1, 7, 7, 1];
wanted.forEach((value, i) => {
  assert(Math.abs(matrix[i] - value) < 1e-6, `element ${i} is ${matrix[i]}, not ${value}`);
});

// The checked engine does the same, and throws readable errors.
const careful = nq.checked(nq.getEngine());
assert.strictEqual(new nq.Entity3DView(careful.createEntity(true, 2)).count, 2);
assert.throws(() => careful.createEntity(true, 4096), RangeError);

// The scene layer.
const scene = new Scene();
const node = scene.node({ position: [1, 2, 3] });
scene.update();
assert.deepStrictEqual(node.readWorldPosition([0, 0, 0]), [1, 2, 3]);

/** Whether the page of an inspector is complete: the status of each of its files. */
async function inspectScene() {
  const { url, close } = await scene.inspect(0);
  for (const file of ['', 'main.js', 'picture.js', 'protocol.js', 'style.css']) {
    const response = await new Promise((resolve, reject) =>
      http.get(`${url}${file}`, { agent: false }, resolve).on('error', reject)
    );
    response.resume();
    assert.strictEqual(response.statusCode, 200, file);
  }
  await close();
}

// The importer names the missing package.
const model = Buffer.from('{ "asset": { "version": "2.0" } }');
inspectScene()
  .then(() => importGltf(model))
  .then(
    () => assert.fail('imported without the package for it'),
    (error) => {
      assert(/npm install @gltf-transform\/core@3/.test(error.message), error.message);
      console.log('all well');
    }
  );
