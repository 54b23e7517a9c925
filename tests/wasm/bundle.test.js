'use strict';
// The library for browsers as one file, where nothing of Node.js is.
const assert = require('assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const vm = require('vm');
const { pathToFileURL } = require('url');
const nq = require('../../lib');
const scenes = require('../../lib/scene');
const { makeFigure } = require('../../bench/script/lib/scene-figure');
const { skeleton, writeGlb } = require('../fixtures/models');
const { globalName, writeBundle } = require('../../scripts/lib/bundle');

const file = process.env.NQ_WASM_MODULE || path.join(__dirname, '../../build/Wasm/nq_logic.wasm');

/** What a page has that Node.js has, too. */
const pageNames = ['FinalizationRegistry', 'MessageChannel', 'TextDecoder', 'URL', 'WebAssembly'];
pageNames.push('Response', 'atob', 'fetch', 'performance', 'console');

/** A figure whose bytes are copied by a function, to buffers of another realm. */
function figureBy(copy) {
  const figure = makeFigure(12);
  figure.skins.forEach((skin) => (skin.inverseBindMatrices = copy(skin.inverseBindMatrices)));
  figure.animations.forEach((animation) => (animation.clip = copy(animation.clip)));
  return figure;
}

/** World and skinning matrices of characters of a scene, as words. */
function poseWith({ Model, Scene }, engine, copy = (buffer) => buffer) {
  const scene = new Scene({ engine });
  const characters = scene.instantiate(Model.from(figureBy(copy)), 5);
  characters.forEach((character, i) => {
    character.setPosition(i, 0.1 * i, -i);
    character.play(i % 2, { at: 0.1 * i });
    character.addLayer('more', { additive: true }).play(1 - (i % 2), { weight: 0.5 });
  });
  for (let frame = 0; frame < 10; ++frame) {
    scene.update(1 / 64);
  }
  const words = [];
  for (const character of characters) {
    for (const floats of [character.worldMatrix, character.skinMatrices()]) {
      words.push(...new Uint32Array(Float32Array.from(floats).buffer));
    }
  }
  return words;
}

describe('the library for browsers', () => {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-bundle-'));
  const script = path.join(folder, 'nq_logic.js');
  const module = path.join(folder, 'nq_logic.mjs');
  let page = null;

  before(() => {
    writeBundle(script, { format: 'iife' });
    writeBundle(module, { format: 'esm' });
    const globals = {};
    pageNames.forEach((name) => (globals[name] = globalThis[name]));
    globals.location = { href: 'https://example.org/folder/page.html' };
    page = vm.createContext(globals);
    vm.runInContext(fs.readFileSync(script, 'utf8'), page);
  });

  after(() => {
    [script, module].forEach((one) => fs.unlinkSync(one));
    fs.rmdirSync(folder);
  });

  const library = () => vm.runInContext(globalName, page);

  it('has all of the library but what loads the native module', async () => {
    const all = [nq, scenes, require('../../lib/wasm'), require('../../lib/gltf')];
    const names = new Set([].concat(...all.map((one) => Object.keys(one))));
    ['getEngine', 'loadMatrixFlow', 'moduleAbis'].forEach((name) => names.delete(name));
    const expected = [...names].sort();
    assert.deepStrictEqual(Object.keys(library()).sort(), expected);
    assert.deepStrictEqual(Object.keys(await import(pathToFileURL(module).href)).sort(), expected);
    // That of wasm, not the one that loads the native module.
    assert.match(String(library().load), /^async function load/);
  });

  it('computes what it computes in Node.js, to the bit, without anything of Node.js', async () => {
    const native = require(process.env.NQ_NATIVE_MATRIXFLOW);
    const expected = poseWith(scenes, native.getEngine());
    assert(expected.length > 5 * 12 * 16);
    const engine = await library().load({ module: fs.readFileSync(file) });
    const copy = vm.runInContext(
      '(buffer) => Uint8Array.from(new Uint8Array(buffer)).buffer',
      page
    );
    assert.deepStrictEqual(poseWith(library(), engine, copy), expected);
    const { load, Model, Scene } = await import(pathToFileURL(module).href);
    const other = await load({ module: fs.readFileSync(file) });
    assert.deepStrictEqual(poseWith({ Model, Scene }, other), expected);
  });

  it('has checked mode', async () => {
    const { checked, load, Entity3DView } = library();
    const engine = checked(await load({ module: fs.readFileSync(file) }));
    const view = new Entity3DView(engine.createEntity(true, 2));
    view.reset(0);
    assert.throws(() => engine.updateAnimator(view.id), /updateAnimator/);
  });

  it('imports from addresses that are in no folder, and base64 in either alphabet', async () => {
    const { importGltf } = library();
    const { json, binary } = skeleton();
    const addressOf = (type, text) => `data:${type};base64,${text}`;
    const withBuffer = (uri) => {
      const buffers = [Object.assign({}, json.buffers[0], { uri })];
      return Buffer.from(JSON.stringify(Object.assign({}, json, { buffers })));
    };
    const file = writeGlb(path.join(folder, 'model.glb'), { json, binary });
    const bytes = fs.readFileSync(file);
    fs.unlinkSync(file);
    const plain = binary.toString('base64');
    assert(/[+/]/.test(plain));
    const ofAddresses = plain.replace(/[+]/g, '-').replace(/[/]/g, '_');
    const { nodes, animations } = await importGltf(bytes);
    const sources = [
      addressOf('model/gltf-binary', bytes.toString('base64')),
      withBuffer(addressOf('application/octet-stream', plain)),
      withBuffer(addressOf('application/octet-stream', ofAddresses)),
    ];
    for (const source of sources) {
      const found = await importGltf(source);
      assert.strictEqual(JSON.stringify(found.nodes), JSON.stringify(nodes));
      const clips = [found, { animations }].map((one) => one.animations[0].clip);
      const [ours, theirs] = clips.map((clip) => [...new Uint8Array(clip)]);
      assert(theirs.length > 100);
      assert.deepStrictEqual(ours, theirs);
    }
    const elsewhere = addressOf('model/gltf+json', withBuffer('other.bin').toString('base64'));
    await assert.rejects(
      importGltf(elsewhere),
      /^GltfError: model 'data:model\/gltf\+json;base64,…': buffer 0: its bytes are elsewhere, in 'other.bin'/
    );
  });

  it('says what a browser lacks', async () => {
    const { load, Scene, Model, importGltf } = library();
    const engine = await load({ module: fs.readFileSync(file) });
    const scene = new Scene({ engine });
    await assert.rejects(scene.inspect(), /inspector's page: inspect the scene in Node\.js/);
    const recording = scene.record();
    scene.update(1 / 60);
    await assert.rejects(recording.save('trace.json'), /can't be written in a browser/);
    assert.throws(() => new Scene(), /a browser loads no native module: create an engine by load/);
    await assert.rejects(load(), /give the address of nq_logic\.wasm as the option 'module'/);
    await assert.rejects(importGltf(new Uint8Array(3)), /it is not a glTF file/);
    await assert.rejects(Model.load(new Uint8Array(8)), { name: 'GltfError' });
  });
});
