// Run in a project in which only the package is installed, on Node 18 or later: the engine in WebAssembly by require, by
// import and from the bundle for browsers gives what the native module gives.
import assert from 'assert';
import fs from 'fs';
import { createRequire } from 'module';
import vm from 'vm';
import { getEngine } from 'nq_logic';
import * as bundle from 'nq_logic/browser';
import { Scene } from 'nq_logic/scene';
import { load, loadSync } from 'nq_logic/wasm';

const require = createRequire(import.meta.url);
const own = require('nq_logic/wasm');
const file = require.resolve('nq_logic/nq_logic.wasm');

/** World matrices of a small tree, as words. */
function matricesBy(SceneClass, engine) {
  const scene = new SceneClass({ engine });
  const top = scene.node({ position: [1, 2, 3] });
  top.setEuler(0.3, -1.2, 2.5);
  const child = scene.node({ parent: top, position: [0.1, -0.7, 5], scale: [2, 3, 0.5] });
  scene.update();
  return [top, child].map(({ worldMatrix }) => [
    ...new Uint32Array(Float32Array.from(worldMatrix).buffer),
  ]);
}

async function main() {
  assert.strictEqual(own.load, load);
  const expected = matricesBy(Scene, getEngine());
  assert.notStrictEqual(expected[0][0], expected[1][0]);
  // Without options: the module of the package.
  assert.deepStrictEqual(matricesBy(Scene, await load()), expected);
  assert.deepStrictEqual(matricesBy(Scene, loadSync()), expected);

  const module = fs.readFileSync(file);
  const inBundle = await bundle.load({ module });
  assert.deepStrictEqual(matricesBy(bundle.Scene, inBundle), expected);
  await assert.rejects(bundle.load(), /give the address of nq_logic\.wasm/);

  // The script, on names of a page only.
  const page = { console, performance, MessageChannel, TextDecoder, URL, WebAssembly };
  vm.runInNewContext(fs.readFileSync(file.replace(/wasm$/, 'js'), 'utf8'), page);
  const { load: loadInPage, Scene: SceneInPage } = vm.runInNewContext('nqLogic', page);
  assert.deepStrictEqual(matricesBy(SceneInPage, await loadInPage({ module })), expected);
  console.log('all well');
}

main().catch((error) => {
  console.error(error.stack);
  process.exitCode = 1;
});
