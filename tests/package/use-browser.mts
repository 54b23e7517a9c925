// Compiled as an ES module in a project in which the package is installed, and nothing else.
import { Entity3DView, Scene, checked, importGltf, load } from 'nq_logic/browser';
import type { WasmEngine } from 'nq_logic';

export async function run(): Promise<number> {
  const engine: WasmEngine = await load({ memory: 1 << 25, module: 'nq_logic.wasm' });
  const scene = new Scene({ engine });
  const entities = new Entity3DView(checked(engine).createEntity(true, 2));
  // @ts-expect-error: bytes are a number
  await load({ memory: 'much' });
  const { nodes } = await importGltf(new ArrayBuffer(8));
  return scene.nodeCount + entities.count + nodes.length;
}

// @ts-expect-error: no native module in browsers
import { getEngine } from 'nq_logic/browser';
export { getEngine };
