// Compiled to an ES module in a project that has the package and the typings of Node, then run.
import assert from 'assert';
import * as nq from 'nq_logic';
import { checked, type Engine } from 'nq_logic';
import { sampleTypes } from 'nq_logic/lib/clip';
import { importGltf } from 'nq_logic/lib/gltf.js';
import { Scene } from 'nq_logic/scene';
import { Scene as Same } from 'nq_logic/scene.js';

const engine: Engine = checked(nq.getEngine());
const entities = new nq.Entity3DView(engine.createEntity(true, 2));
entities.setPosition(0, 1, 2, 3);
const positionX: 1 = sampleTypes.PositionX;
const scene: Same = new Scene();
importGltf(Buffer.from('{}')).catch((error: Error) => {
  assert.strictEqual(error.name, 'GltfError');
  assert.deepStrictEqual([entities.count, positionX, scene.nodeCount], [2, 1, 0]);
  console.log('all well');
});
// @ts-expect-error: a path or bytes, no number
export const wrongFile = () => importGltf(4);
// @ts-expect-error: a name is no number
export const wrongPosition = () => entities.setPosition(0, 'left', 2, 3);
