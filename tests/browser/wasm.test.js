'use strict';
// The library in pages of browsers: from a script tag, as an ES module, and bundled with a program. Each page computes
// what the native module computes here, to the bit.
const assert = require('assert');
const childProcess = require('child_process');
const fs = require('fs');
const http = require('http');
const os = require('os');
const path = require('path');
const nq = require('../../lib');
const { importGltf } = require('../../lib/gltf');
const { Model, Scene } = require('../../scene');
const { esbuildProgram, writeBundle } = require('../../scripts/lib/bundle');
const { removeFolder, root, which } = require('../../scripts/lib/run');
const { skeleton, writeGlb } = require('../fixtures/models');
const { startBrowser } = require('./viewer-page');

/** Nothing but files of the server, and no evaluation of text. */
const kPolicy = "default-src 'self'; script-src 'self' 'wasm-unsafe-eval'";

const types = {
  '.html': 'text/html',
  '.js': 'text/javascript',
  '.mjs': 'text/javascript',
  '.wasm': 'application/wasm',
};

/**
 * The program of all pages and of this process: it may use only what it is passed.
 * @param {Object} library
 * @param {Object} engine
 * @param {Array} sources a model, as importGltf takes it: the same from several places
 */
async function program({ Entity3DView, Model, Scene, checked, importGltf }, engine, sources) {
  const words = [];
  const scene = new Scene({ engine });
  const top = scene.node({ position: [1, 2, 3] });
  top.setEuler(0.3, -1.2, 2.5);
  for (const source of sources) {
    const characters = scene.instantiate(await Model.load(source), 3);
    characters.forEach((character, i) => {
      character.setPosition(i, 0.1 * i, -i);
      character.play(0, { at: 0.3 * i });
      top.add(character);
    });
    for (let frame = 0; frame < 10; ++frame) {
      scene.update(1 / 64);
    }
    for (const node of [top, ...characters, ...characters.map((one) => one.node('hand'))]) {
      words.push(...new Uint32Array(Float32Array.from(node.worldMatrix).buffer));
    }
  }
  const careful = checked(engine);
  const entities = new Entity3DView(careful.createEntity(true, 2));
  let refused = 'nothing was refused';
  try {
    careful.updateAnimator(entities.id);
  } catch (error) {
    refused = `${error.name}: ${error.message}`;
  }
  const names = (await importGltf(sources[0])).nodes.map(({ name }) => name);
  return { words, refused, names };
}

/** What a page does with a library that it has: the result is self.result. */
const pageText = `
${program}
async function runPage(library) {
  const bytes = await (await fetch('models/model.glb')).arrayBuffer();
  const sources = [bytes, new Uint8Array(bytes), 'models/model.glb', 'models/model.gltf'];
  const module = await WebAssembly.compileStreaming(fetch('nq_logic.wasm'));
  const results = [];
  for (const one of ['nq_logic.wasm', new URL('nq_logic.wasm', location.href), module]) {
    const engine = await library.load({ memory: 32 << 20, module: one });
    results.push(await program(library, engine, sources));
  }
  return results;
}
`;

/** Programs of the pages. */
const programs = {
  script: `${pageText} self.result = runPage(nqLogic);`,
  module: `import * as library from './nq_logic.mjs'; ${pageText} self.result = runPage(library);`,
  bundled: `
    import { Entity3DView, checked } from 'nq_logic';
    import { importGltf } from 'nq_logic/lib/gltf';
    import { Model, Scene } from 'nq_logic/scene';
    import { load } from 'nq_logic/wasm';
    ${pageText}
    self.result = runPage({ Entity3DView, Model, Scene, checked, importGltf, load });`,
};

/** Elements of the pages. */
const elements = {
  script: '<script src="nq_logic.js"></script><script src="script-page.js"></script>',
  module: '<script type="module" src="module-page.js"></script>',
  bundled: '<script src="bundled-page.js"></script>',
};

/**
 * Sends what a page computed to the server, for browsers that nothing controls, and goes to the page that it names, if
 * any.
 */
const reportText = `
(async () => {
  const report = await self.result.catch((error) => ({ error: String(error && error.stack) }));
  const answer = await fetch('report', { method: 'POST', body: JSON.stringify(report) });
  const next = await answer.text();
  if (next !== '') {
    location.href = next;
  }
})();
`;

let browser;
let firefox;
let server;
let address;
let folder;
let expected;

/** Bundles a program with the package, as a project of a user does. */
function bundleProgram(text, outfile) {
  const project = path.join(folder, 'project');
  fs.mkdirSync(path.join(project, 'node_modules'), { recursive: true });
  fs.symlinkSync(root, path.join(project, 'node_modules', 'nq_logic'));
  const entry = path.join(project, 'main.js');
  fs.writeFileSync(entry, text);
  const args = [entry, '--bundle', '--minify', '--platform=browser', `--outfile=${outfile}`];
  const { status, stderr } = childProcess.spawnSync(esbuildProgram(), args, { encoding: 'utf8' });
  assert.strictEqual(status, 0, stderr);
  assert(!/warning/i.test(stderr), stderr);
}

function writePages() {
  const to = (name) => path.join(folder, name);
  const wasm = process.env.NQ_WASM_MODULE || path.join(root, 'build/Wasm/nq_logic.wasm');
  fs.copyFileSync(wasm, to('nq_logic.wasm'));
  writeBundle(to('nq_logic.js'), { format: 'iife' });
  writeBundle(to('nq_logic.mjs'), { format: 'esm' });
  fs.mkdirSync(to('models'));
  const { json, binary } = skeleton();
  writeGlb(to('models/model.glb'), { json, binary });
  const buffers = [Object.assign({}, json.buffers[0], { uri: 'model%20%23%3F%25.bin' })];
  fs.writeFileSync(to('models/model.gltf'), JSON.stringify(Object.assign({}, json, { buffers })));
  fs.writeFileSync(to('models/model #?%.bin'), binary);
  for (const name of Object.keys(programs)) {
    const page = `<!doctype html><meta charset="utf-8"><title>${name}</title>${elements[name]}`;
    fs.writeFileSync(to(`${name}.html`), page);
    fs.writeFileSync(to(`${name}-page.js`), programs[name]);
    const reporting = `${page}<script type="module" src="report.js"></script>`;
    fs.writeFileSync(to(`${name}-reporting.html`), reporting);
  }
  fs.writeFileSync(to('report.js'), reportText);
  bundleProgram(programs.bundled, to('bundled-page.js'));
}

/** Takes reports of pages; gives the next page, or ''. */
let takeReport = null;

function answer(request, response) {
  if (request.method === 'POST') {
    let text = '';
    request.setEncoding('utf8');
    request.on('data', (more) => (text += more));
    request.on('end', () => response.end(takeReport(JSON.parse(text))));
    return;
  }
  const name = decodeURIComponent(new URL(request.url, address).pathname);
  const file = path.join(folder, name);
  if (!fs.existsSync(file)) {
    response.writeHead(404).end('absent');
    return;
  }
  const type = types[path.extname(file)] || 'application/octet-stream';
  const headers = { 'Content-Type': type, 'Content-Security-Policy': kPolicy };
  response.writeHead(200, headers).end(fs.readFileSync(file));
}

before(async () => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-pages-'));
  writePages();
  const glb = path.join(folder, 'models', 'model.glb');
  const sources = [glb, glb, glb, glb];
  const library = { Entity3DView: nq.Entity3DView, Model, Scene, checked: nq.checked, importGltf };
  const native = require(process.env.NQ_NATIVE_MATRIXFLOW);
  expected = await program(library, native.getEngine(), sources);

  browser = await startBrowser();
  server = http.createServer(answer);
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  address = `http://127.0.0.1:${server.address().port}/`;
});

after(async () => {
  if (firefox !== undefined) {
    firefox.kill('SIGKILL');
  }
  if (browser !== undefined) {
    await browser.close();
    server.close();
  }
  removeFolder(folder);
});

/** Opens a page, and what it computed; fails if anything goes wrong in it. */
async function resultsOf(name) {
  const page = await browser.newPage();
  const troubles = [];
  page.on('pageerror', (error) => troubles.push(error.stack));
  page.on('console', (message) => {
    // The browser's own request of an icon.
    if (message.type() === 'error' && !message.location().url.endsWith('/favicon.ico')) {
      troubles.push(message.text());
    }
  });
  await page.goto(`${address}${name}.html`);
  const results = await page.evaluate(() => self.result);
  assert.deepStrictEqual(troubles, []);
  await page.close();
  return results;
}

/** What all pages compute in Firefox, by name. */
function resultsInFirefox() {
  const program = which('firefox-esr');
  if (program === null) {
    throw new Error("there is no firefox-esr on PATH: run 'node scripts/setup.js firefox'.");
  }
  const profile = path.join(folder, 'profile');
  fs.mkdirSync(profile);
  const names = Object.keys(programs);
  const pages = names.map((name) => `${address}${name}-reporting.html`);
  const args = ['--headless', '--no-remote', '--profile', profile, pages.shift()];
  const env = Object.assign({}, process.env, { HOME: profile });
  const child = childProcess.spawn(program, args, { env, stdio: 'ignore' });
  firefox = child;
  return new Promise((resolve, reject) => {
    const reports = [];
    child.on('error', reject);
    child.on('exit', (code) => reject(new Error(`Firefox ended with ${code}.`)));
    takeReport = (report) => {
      reports.push(report);
      if (reports.length === names.length) {
        child.removeAllListeners('exit');
        child.on('exit', () => resolve(names.map((name, i) => [name, reports[i]])));
        child.kill();
      }
      return pages.shift() || '';
    };
  });
}

describe('the library in a page', () => {
  it('is compared with results that differ between places and are refused by name', () => {
    assert.strictEqual(expected.words.length, 4 * 7 * 16);
    assert(new Set(expected.words).size > 40);
    assert(/^\w+: updateAnimator: .*:/.test(expected.refused), expected.refused);
    assert(expected.names.includes('hand'));
  });

  for (const name of Object.keys(programs)) {
    it(`computes what the native module does, to the bit: ${name}`, async () => {
      const results = await resultsOf(name);
      assert.strictEqual(results.length, 3);
      results.forEach((result) => assert.deepStrictEqual(result, expected));
    });
  }

  it('computes the same in Firefox', async () => {
    for (const [name, results] of await resultsInFirefox()) {
      assert.deepStrictEqual(results, [expected, expected, expected], name);
    }
  });
});
