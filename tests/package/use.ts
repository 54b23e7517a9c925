// Compiled in a project in which the package is installed, and nothing else.
import nq = require('nq_logic');
import { sampleTypes } from 'nq_logic/lib/clip';
import { importGltf } from 'nq_logic/lib/gltf';
import { Camera, Character, Model, Scene } from 'nq_logic/scene';
import { load } from 'nq_logic/wasm';

const engine = nq.getEngine();
const entities = new nq.Entity3DView(engine.createEntity(true, 2));
entities.setPosition(0, 1, 2, 3);
const matrix: Float32Array = entities.worldMatrix(0, new Float32Array(16));
const replaced: boolean | null = engine.frustumCullingV2(
  1,
  ...([0, 0, 10, 0, 0, 0, 0, 1, 0] as const),
  ...([1, 1, 0.1, 100] as const)
);
const positionX: 1 = sampleTypes.PositionX;
const bytes: Promise<ArrayBuffer> = importGltf('fox.glb').then(({ skins }) => {
  return skins[0].inverseBindMatrices;
});
// @ts-expect-error: a path or bytes, no number
importGltf(4);
// @ts-expect-error: a name is no number
entities.setPosition(0, 'left', 2, 3);
// @ts-expect-error: the package's module has no command buffers
engine.createMatrixFlowCommandBuffer(64);

export { bytes, matrix, positionX, replaced };

export async function crowdInWasm(): Promise<Float32Array> {
  const engine = await load({ memory: 1 << 26 });
  new Scene({ engine }).update();
  // @ts-expect-error: objects have blocks there
  engine.createEntity(true).buffer.byteLength.toFixed();
  const { block } = engine.createEntity(true);
  return block === undefined ? new Float32Array(0) : block.f32;
}

export async function crowd(): Promise<number> {
  const scene = new Scene({ engine });
  const characters: Character[] = scene.instantiate(await Model.load('fox.glb'), 50);
  characters.forEach((character) => character.play('Walk', { fade: 0.5 }));
  characters[0].position = [1, 2, 3];
  characters[0].onEnd = (who, clip) => who.crossfade(clip, 1);
  const camera = scene.addCamera(new Camera({ fovDegrees: 60 }));
  scene.update(1 / 60);
  // @ts-expect-error: seconds are a number
  scene.update('1');
  // @ts-expect-error: measured, not set
  scene.stats.animate = 1;
  return camera.visible.count;
}
