'use strict';
// Run in a project in which the package is installed, and nothing else: what a first own scene takes.
const assert = require('assert');
const nq = require('nq_logic');
const { buildClip, sampleTypes } = require('nq_logic/lib/clip');
const { importGltf } = require('nq_logic/lib/gltf');

const { entity3D } = nq.layout;

assert.strictEqual(nq.getVersion().version, '138');
const engine = nq.getEngine();
// The build with command buffers is not what is packed.
assert.strictEqual(engine.createMatrixFlowCommandBuffer, undefined);
assert.throws(() => nq.loadMatrixFlow(), { code: 'ERR_NQ_LOAD' });

// A child 5 along x of a parent at 1, 2, 3 that a clip turns by a half about z in 60 frames.
const batch = engine.createEntity(true, 2);
const floats = new Float32Array(batch.buffer);
floats.set([1, 2, 3, 1, 1, 1], entity3D.position / 4);
floats.set([5, 0, 0, 1, 1, 1], (entity3D.size + entity3D.position) / 4);
const commands = new nq.EntityCommandWriter(engine);
commands.addRoot(batch.id);
commands.addChild(batch.id, batch.id + 1);
new nq.DirtyListWriter(engine).appendRange(batch.id, 2);

const key = (frame, value) => ({ frame, value, inTangent: 0, outTangent: 0 });
const curves = [
  { target: 0, type: sampleTypes.EulerZ, keys: [key(0, 0), key(60, Math.PI)] },
  { target: 0, type: sampleTypes.PositionZ, keys: [key(0, 7)] },
];
const clip = engine.createDataModel(
  nq.layout.dataModelKinds.clip,
  buildClip({ framesPerSecond: 30, frameCount: 61, curves })
);
const animator = engine.createComponent(nq.layout.componentKinds.animator, 1, 1);
new Uint32Array(animator.buffer).set([clip.id, 0, 0, batch.id]);
new Float32Array(animator.buffer).set([30, 1], 1); // half of the way at half of the time
engine.updateAnimator(animator.id);
engine.refreshWorldTransform();

// Turned by a quarter: x goes to y.
const matrix = floats.subarray((entity3D.size + entity3D.worldMatrix) / 4);
const wanted = [0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 1, 7, 7, 1];
wanted.forEach((value, i) => {
  assert(Math.abs(matrix[i] - value) < 1e-6, `element ${i} is ${matrix[i]}, not ${value}`);
});

// The importer says which package it lacks.
const model = Buffer.from('{ "asset": { "version": "2.0" } }');
importGltf(model).then(
  () => assert.fail('imported without the package for it'),
  (error) => {
    assert(/npm install @gltf-transform\/core@2\.5\.1/.test(error.message), error.message);
    console.log('all well');
  }
);
