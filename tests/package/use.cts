// Compiled to CommonJS in a project that has the package and the typings of Node, then run.
import assert = require('assert');
import nq = require('nq_logic');
import { sampleTypes } from 'nq_logic/lib/clip';
import { importGltf, type ImportedModel } from 'nq_logic/lib/gltf';
import { checked } from 'nq_logic/lib/checked.js';
import { Scene } from 'nq_logic/scene';

const engine = checked(nq.getEngine());
const entities = new nq.Entity3DView(engine.createEntity(true, 2));
entities.setPosition(0, 1, 2, 3);
const positionX: 1 = sampleTypes.PositionX;
const model: Promise<ImportedModel> = importGltf(Buffer.from('{}'));
model.catch((error: Error) => {
  assert.strictEqual(error.name, 'GltfError');
  assert.deepStrictEqual([entities.count, positionX, new Scene({ engine }).nodeCount], [2, 1, 0]);
  console.log('all well');
});
// @ts-expect-error: a path or bytes, no number
const wrongFile = () => importGltf(4);
// @ts-expect-error: a name is no number
const wrongPosition = () => entities.setPosition(0, 'left', 2, 3);

export { wrongFile, wrongPosition };
