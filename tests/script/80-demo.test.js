'use strict';
// The demo as it is used: runs, tables, pictures, and what it says about wrong input.
const assert = require('assert');
const childProcess = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { PNG } = require('pngjs');
const { animate, kFrameSeconds } = require('../../demo/animate');
const { boundsOf, median } = require('../../demo/bounds');
const { viewCorners } = require('../../demo/cameras');
const { Canvas } = require('../../demo/canvas');
const { clipSeconds, findKey, sampleTrack } = require('../../demo/clip');
const { SceneCulling } = require('../../demo/culling');
const { EngineScene } = require('../../demo/engine-scene');
const { parseOptions } = require('../../demo/options');
const { drawScene } = require('../../demo/picture');
const { createProgress } = require('../../demo/report');
const { loadGltfScene } = require('../../demo/scene-gltf');
const { createProceduralScene } = require('../../demo/scene-procedural');
const { UserError } = require('../../demo/user-error');
const { realModel, skeleton, writeGlb, writeGltf } = require('../fixtures/models');

const { getEngine } = require(path.resolve(process.env.NQ_MODULE));

const main = path.join(__dirname, '..', '..', 'demo', 'main.js');
let folder;

before(() => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-demo-'));
});

after(() => {
  fs.rmdirSync(folder, { recursive: true });
});

/** Runs the demo in the temporary folder. */
function runDemo(args, environment) {
  return childProcess.spawnSync(process.execPath, [main, ...args], {
    cwd: folder,
    encoding: 'utf8',
    env: Object.assign(
      {},
      process.env,
      { NQ_MODULE: path.resolve(process.env.NQ_MODULE) },
      environment
    ),
  });
}

/** The rows of the table that a run has printed. */
function tableOf(stdout) {
  const rows = {};
  for (const line of stdout.split('\n')) {
    const [, name, value] = /^│ (.*?) +│ +(.*?) +│$/.exec(line) || [];
    if (name !== undefined) {
      rows[name] = value;
    }
  }
  return rows;
}

/** A whole number of a table. */
function countIn(text) {
  assert.ok(/^\d{1,3}(,\d{3})*$/.test(text), text);
  return Number(text.replace(/,/g, ''));
}

/** Asserts a good run and returns its table. */
function assertRun({ status, stdout, stderr }, out) {
  assert.strictEqual(stderr, '');
  assert.strictEqual(status, 0);
  assert.ok(!/[\x1b\r]/.test(stdout), 'no terminal codes where there is no terminal'); // eslint-disable-line no-control-regex
  const file = path.join(out, 'scene.png');
  assert.ok(stdout.endsWith(`picture: ${file}\n`), stdout);
  const rows = tableOf(stdout);
  const refresh = Number(rows['ms per frame, refresh alone (median)']);
  const whole = Number(rows['ms per frame, with posing in script (median)']);
  const dirty = Number(rows['dirty entities per frame'].replace(/,/g, ''));
  assert.ok(whole > 0 && whole >= refresh, `${whole} ms and ${refresh} ms`);
  // The figure a entry is made of the exact time, the one a frame is rounded to 0.1 microseconds.
  const perEntry = Number(rows['ns per dirty entry']);
  assert.ok(Math.abs(perEntry * dirty - refresh * 1e6) <= 0.05 * dirty + 50.001, stdout);
  assert.ok(Number(rows['ms per frame, culling by two cameras (median)']) > 0, stdout);
  const objects = countIn(rows['culling objects']);
  assert.ok(objects > 500, `${objects} culling objects`);
  const hashes = ['perspective camera', 'orthographic overview'].map((camera) => {
    const visible = countIn(rows[`visible, ${camera}`]);
    assert.ok(visible > 0 && visible < objects, `${visible} of ${objects} for the ${camera}`);
    assert.ok(/^[0-9a-f]{8}$/.test(rows[`hash, ${camera}`]), rows[`hash, ${camera}`]);
    return rows[`hash, ${camera}`];
  });
  assert.notStrictEqual(hashes[0], hashes[1]);
  return rows;
}

/** Whether a pixel is of the grey in which the picture draws what the scene's camera doesn't see. */
function isUnseen(r, g, b) {
  return r > 45 && g >= r && b > g && b > 1.2 * r && b < 1.5 * r && b < 160;
}

/**
 * Asserts that a picture is whole and shows something: `coloredPixels` of strong colour at least, and
 * some hundreds of the grey of what is not seen.
 */
function assertPicture(out, coloredPixels) {
  const file = path.join(folder, out, 'scene.png');
  assert.deepStrictEqual(fs.readdirSync(path.dirname(file)), ['scene.png']);
  const { width, height, data } = PNG.sync.read(fs.readFileSync(file));
  assert.strictEqual(width, 1600);
  assert.strictEqual(height, 1000);
  let colored = 0;
  let unseen = 0;
  for (let i = 0; i < data.length; i += 4) {
    const [r, g, b] = data.subarray(i, i + 3);
    unseen += isUnseen(r, g, b) ? 1 : 0;
    colored += Math.max(r, g, b) - Math.min(r, g, b) > 80 ? 1 : 0;
  }
  assert.ok(colored >= coloredPixels, `${colored} strongly coloured pixels`);
  assert.ok(colored < (width * height) / 2, `${colored} strongly coloured pixels`);
  assert.ok(unseen > 500 && unseen < (width * height) / 2, `${unseen} grey pixels`);
}

describe('demo runs', () => {
  it('animates the dance, says at every quarter how far it is, and draws it', () => {
    const run = runDemo(['--figures', '6', '--frames', '10', '--out', 'dance']);
    const rows = assertRun(run, 'dance');
    assert.deepStrictEqual(
      run.stdout.split('\n').filter((line) => line.startsWith('animating')),
      [
        'animating: 3 of 10 frames',
        'animating: 5 of 10 frames',
        'animating: 8 of 10 frames',
        'animating: 10 of 10 frames',
      ]
    );
    const scene = createProceduralScene(6);
    assert.strictEqual(rows.scene, 'dance of 6 figures around a tree');
    assert.strictEqual(rows.entities, scene.nodes.length.toLocaleString('en-US'));
    assert.strictEqual(rows.batches, '1');
    assert.strictEqual(rows.frames, '10');
    assert.strictEqual(
      rows['dirty entities per frame'],
      scene.animated.length.toLocaleString('en-US')
    );
    assert.strictEqual(rows['refreshes per frame'], '1');
    assertPicture('dance', 2000);
  });

  it('draws the same picture each time, and another one after other frames', () => {
    const pictures = ['7', '7', '8'].map((frames, i) => {
      const out = `same${i}`;
      assertRun(runDemo(['--figures', '2', '--frames', frames, '--out', out]), out);
      return fs.readFileSync(path.join(folder, out, 'scene.png'));
    });
    assert.ok(pictures[0].equals(pictures[1]));
    assert.ok(!pictures[0].equals(pictures[2]));
  });

  it('takes batches and dirty lists beyond the capacity of one', () => {
    const rows = assertRun(
      runDemo(['--figures', '300', '--frames', '2', '--out', 'crowd']),
      'crowd'
    );
    assert.strictEqual(rows.batches, '4');
    assert.strictEqual(rows['refreshes per frame'], '2');
    assertPicture('crowd', 10000);
  });

  it('animates a binary glTF file', () => {
    writeGlb(path.join(folder, 'skeleton.glb'), skeleton());
    const args = ['--model', 'skeleton.glb', '--frames', '5', '--out', 'skeleton'];
    const rows = assertRun(runDemo(args), 'skeleton');
    assert.strictEqual(rows.scene, 'skeleton.glb');
    assert.strictEqual(rows.motion, "clip 'everything', 2.00 s");
    assert.strictEqual(rows.entities, '6');
    assert.strictEqual(rows['dirty entities per frame'], '4');
    assertPicture('skeleton', 1000);
  });

  it('turns the roots of a model without a clip', () => {
    const model = skeleton();
    delete model.json.animations;
    writeGltf(path.join(folder, 'still.gltf'), model);
    const args = ['--model=still.gltf', '--frames=3', '--out=deep/er'];
    const rows = assertRun(runDemo(args), 'deep/er');
    assert.strictEqual(rows.motion, 'no clip; its roots turn');
    assert.strictEqual(rows['dirty entities per frame'], '2');
    assertPicture('deep/er', 1000);
  });

  const real = [
    { name: 'Fox.glb', motion: "clip 'Survey', 3.42 s", entities: '26' },
    { name: 'greenman.glb', motion: "clip '0_pose', 0.17 s", entities: '14' },
  ];
  for (const { name, motion, entities } of real) {
    it(`animates ${name}`, function () {
      const file = realModel(this, name);
      const rows = assertRun(runDemo(['--model', file, '--frames', '9', '--out', name]), name);
      assert.strictEqual(rows.scene, name);
      assert.strictEqual(rows.motion, motion);
      assert.strictEqual(rows.entities, entities);
      assertPicture(name, 1000);
    });
  }

  it('shows its options', () => {
    const { status, stdout, stderr } = runDemo(['--help']);
    assert.strictEqual(status, 0);
    assert.strictEqual(stderr, '');
    for (const option of ['--model', '--figures', '--frames', '--out', '--help']) {
      assert.ok(stdout.includes(`  ${option} `), option);
    }
  });
});

describe('demo errors', () => {
  /** Asserts that a run ends with one line that names the input and the cure, and leaves nothing. */
  function assertRefused(args, input, cure, environment) {
    const out = fs.mkdtempSync(path.join(folder, 'refused-'));
    const fullArgs = args.includes('--out') ? args : [...args, '--out', path.join(out, 'sub')];
    const { status, stdout, stderr } = runDemo(fullArgs, environment);
    assert.ok(/^demo: [^\n]+\n$/.test(stderr), stderr);
    assert.ok(stderr.includes(input), `${stderr} names ${input}`);
    assert.ok(stderr.includes(cure), `${stderr} says ${cure}`);
    assert.strictEqual(status, 2);
    assert.strictEqual(stdout, '');
    assert.deepStrictEqual(fs.readdirSync(out), []);
  }

  /** Asserts that something fails with a message for the user: one line, input and cure. */
  async function assertFails(action, input, cure) {
    await assert.rejects(action, (error) => {
      assert.ok(error instanceof UserError, error.stack);
      assert.ok(error.message.includes(input), `${error.message} names ${input}`);
      assert.ok(error.message.includes(cure), `${error.message} says ${cure}`);
      assert.ok(!error.message.includes('\n'), error.message);
      return true;
    });
  }

  const assertOptionsFail = (args, input, cure) =>
    assertFails(async () => parseOptions(args), input, cure);
  const assertModelFails = (name, input, cure) =>
    assertFails(() => loadGltfScene(path.join(folder, name)), input, cure);

  /** Writes a file and gives its name. */
  function write(name, content) {
    fs.writeFileSync(path.join(folder, name), content);
    return name;
  }

  /** Writes the skeleton after a change to its JSON. */
  function changed(name, change) {
    const model = skeleton();
    change(model.json);
    writeGlb(path.join(folder, name), model);
    return name;
  }

  it('refuses unknown arguments', async () => {
    assertRefused(['--frame', '3'], "'--frame'", '--help');
    await assertOptionsFail(['Fox.glb'], "'Fox.glb'", '--help');
    await assertOptionsFail(['-f'], "'-f'", '--help');
  });

  it('refuses bad numbers', async () => {
    assertRefused(['--frames=0'], "'0'", 'a whole number from 1 to 100000');
    for (const text of ['-1', '1.5', '1e3', 'many', '100001', '99999999999999999999']) {
      await assertOptionsFail([`--frames=${text}`], `'${text}'`, 'number from 1 to 100000');
    }
    await assertOptionsFail(['--figures', '2001'], "'2001'", 'a whole number from 1 to 2000');
  });

  it('refuses options without a value, and two that exclude each other', async () => {
    assertRefused(['--frames', '--out', 'x'], '--frames', '--frames VALUE');
    await assertOptionsFail(['--out'], '--out', '--out VALUE');
    await assertOptionsFail(['--model='], '--model', '--model VALUE');
    await assertOptionsFail(['--model=a', '--figures=3'], '--figures', 'leave one of them out');
  });

  it('refuses what is not a readable file', () => {
    assertRefused(['--model', 'absent.glb'], "'absent.glb'", 'give a .glb or .gltf file');
    assertRefused(['--model', folder], `'${folder}'`, 'give a .glb or .gltf file');
    assertRefused(['--model', 'two\nlines'], "'two lines'", 'give a .glb or .gltf file');
  });

  it('refuses what is not a glTF file', async () => {
    assertRefused(['--model', write('text.txt', 'text')], "'text.txt'", 'give a .glb or .gltf');
    await assertModelFails(write('text.glb', 'text'), "text.glb'", 'give a .glb or .gltf');
    await assertModelFails(write('none.glb', ''), "none.glb'", 'give a .glb or .gltf');
    await assertModelFails(write('text.gltf', '{"a'), "text.gltf'", 'export it again');
    await assertModelFails(write('empty.gltf', '{}'), "empty.gltf'", 'export it again');
  });

  it('refuses files cut short anywhere', async () => {
    const whole = fs.readFileSync(writeGlb(path.join(folder, 'whole.glb'), skeleton()));
    assertRefused(['--model', write('cut.glb', whole.slice(0, 700))], "'cut.glb'", 'export it');
    for (let length = 4; length < whole.length; length += length < 24 ? 1 : 61) {
      write('cut.glb', whole.slice(0, length));
      const sizes = length < 12 ? `${length} of 12` : `${length} of ${whole.length}`;
      await assertModelFails('cut.glb', `cut.glb' is cut short, ${sizes} bytes`, 'export it again');
    }
    // A header that goes along with the cut does not help.
    for (let length = 12; length < whole.length; length += 61) {
      const lying = Buffer.from(whole.slice(0, length));
      lying.writeUInt32LE(lying.length, 8);
      await assertModelFails(write('lying.glb', lying), "lying.glb'", 'export it again');
    }
  });

  it('refuses a real model cut short', async function () {
    const whole = fs.readFileSync(realModel(this, 'Fox.glb'));
    write('fox.glb', whole.slice(0, 100000));
    await assertModelFails('fox.glb', "fox.glb' is cut short", 'export it again');
  });

  it('refuses broken trees', async () => {
    const cases = {
      'its nodes form a circle': (json) => {
        json.nodes[3].children = [1];
        json.nodes[0].children = [];
      },
      'has two parents': (json) => (json.nodes[5].children = [2]),
      'names nodes that are not there': (json) => (json.nodes[5].children = [6]),
      'is the root of a scene and a child': (json) => json.scenes[0].nodes.push(1),
      'the scale of its node 3 is not 3 numbers': (json) => (json.nodes[3].scale = [1, null, 1]),
      'the rotation of its node 3 is not 4': (json) => (json.nodes[3].rotation = [0, 0, 1]),
      'the translation of its node 3': (json) => (json.nodes[3].translation = [0, 1e39, 1]),
      'it has no scene with nodes': (json) => (json.scenes[0].nodes = []),
      'it is not of glTF version 2': (json) => (json.asset.version = '1.0'),
    };
    for (const trouble of Object.keys(cases)) {
      await assertModelFails(changed('broken.glb', cases[trouble]), trouble, 'export it again');
    }
    assertRefused(['--model', 'broken.glb'], "'broken.glb'", 'export it again');
  });

  it('refuses broken clips', async () => {
    const disagree = 'times and values of its clip disagree';
    await assertModelFails(
      changed(
        'clip.glb',
        ({ animations: [{ samplers }] }) => (samplers[1].input = samplers[3].input)
      ),
      disagree,
      'export it again'
    );
    const shuffled = skeleton();
    new Float32Array(shuffled.binary.buffer, shuffled.binary.byteOffset, 3).set([0, 2, 1]);
    writeGlb(path.join(folder, 'clip.glb'), shuffled);
    await assertModelFails('clip.glb', 'key times of its clip do not rise', 'export it again');
    const unreal = skeleton();
    new Float32Array(unreal.binary.buffer, unreal.binary.byteOffset + 12, 9).fill(NaN);
    writeGlb(path.join(folder, 'clip.glb'), unreal);
    await assertModelFails('clip.glb', 'a value of its clip is not a number', 'export it again');
  });

  it('names a part that is not there', () => {
    writeGltf(path.join(folder, 'parted.gltf'), skeleton());
    fs.unlinkSync(path.join(folder, 'parted.bin'));
    assertRefused(['--model', 'parted.gltf'], 'parted.bin', 'put that file there');
  });

  it('refuses folders that can not be', () => {
    write('file', '');
    const args = ['--figures', '1', '--frames', '1', '--out'];
    assertRefused([...args, 'file'], "'file'", 'choose another --out');
    assertRefused([...args, 'file/sub'], "'file/sub'", 'choose another --out');
  });

  it('keeps what was there when a picture can not be put in place', () => {
    fs.mkdirSync(path.join(folder, 'taken', 'scene.png'), { recursive: true });
    const { status, stderr } = runDemo(['--figures', '1', '--frames', '1', '--out', 'taken']);
    assert.ok(/^demo: picture 'taken\/scene.png' can't be written, [^\n]+\n$/.test(stderr), stderr);
    assert.strictEqual(status, 2);
    assert.deepStrictEqual(fs.readdirSync(path.join(folder, 'taken')), ['scene.png']);
  });

  it('says how to get the module', () => {
    assertRefused([], "'/no/module.node'", 'npm run build', { NQ_MODULE: '/no/module.node' });
    const broken = path.join(folder, write('broken.node', 'not a library'));
    assertRefused([], `'${broken}'`, 'npm run build', { NQ_MODULE: broken });
  });
});

/** Column-major world matrices of nodes, in doubles. */
function worldMatrices(nodes) {
  const worlds = [];
  for (const { parent, position, rotation, scale } of nodes) {
    const [x, y, z, w] = rotation;
    const rows = [
      [1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y), position[0]],
      [2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x), position[1]],
      [2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y), position[2]],
      [0, 0, 0, 1],
    ].map((row) => row.map((value, column) => (column < 3 ? value * scale[column] : value)));
    const above = parent < 0 ? null : worlds[parent];
    worlds.push(
      rows.map((row, i) =>
        above === null
          ? row
          : row.map((_, j) => above[i].reduce((sum, value, k) => sum + value * rows[k][j], 0))
      )
    );
  }
  return worlds;
}

/** World centre and radius of a sphere in the space of a matrix of rows. */
function worldSphere(matrix, { center, radius }) {
  const scales = [0, 1, 2].map((j) => Math.hypot(matrix[0][j], matrix[1][j], matrix[2][j]));
  return {
    center: [0, 1, 2].map((i) => [...center, 1].reduce((sum, c, j) => sum + c * matrix[i][j], 0)),
    radius: radius * Math.max(...scales),
  };
}

/**
 * Coordinates of a point in a camera: to its right, above its axis, and along its view.
 */
function inCamera({ eye, target, up }, point) {
  const minus = (a, b) => a.map((value, i) => value - b[i]);
  const dot = (a, b) => a.reduce((sum, value, i) => sum + value * b[i], 0);
  const unit = (a) => a.map((value) => value / Math.sqrt(dot(a, a)));
  const cross = (a, b) =>
    [0, 1, 2].map((i) => a[(i + 1) % 3] * b[(i + 2) % 3] - a[(i + 2) % 3] * b[(i + 1) % 3]);
  const along = unit(minus(target, eye));
  const right = unit(cross(along, up));
  const offset = minus(point, eye);
  return [dot(offset, right), dot(offset, cross(right, along)), dot(offset, along)];
}

/** How far a sphere reaches into a perspective view; negative outside. */
function reachIntoFrustum(camera, { center, radius }) {
  const [x, y, z] = inCamera(camera, center);
  const half = camera.fov / 2;
  const halfWide = Math.atan(Math.tan(half) * camera.aspect);
  const inside = [
    z - camera.near,
    camera.far - z,
    z * Math.sin(half) - Math.abs(y) * Math.cos(half),
    z * Math.sin(halfWide) - Math.abs(x) * Math.cos(halfWide),
  ];
  return Math.min(...inside) + radius;
}

/** How far a sphere reaches into an orthographic view. */
function reachIntoBox({ left, right, bottom, top, near, far, ...pose }, { center, radius }) {
  const [x, y, z] = inCamera(pose, center);
  return Math.min(x - left, right - x, y - bottom, top - y, z - near, far - z) + radius;
}

describe('demo culling', () => {
  const frames = 5;
  let nodes;
  let culling;
  let rows;

  // The demo's own frames, in this process, and the nodes as its last frame leaves them.
  before(async () => {
    const file = writeGlb(path.join(folder, 'culled.glb'), skeleton());
    const scene = await loadGltfScene(file);
    const engineScene = new EngineScene(getEngine(), scene.nodes);
    culling = new SceneCulling(engineScene, scene.nodes);
    animate(scene, engineScene, culling, frames, () => {});
    nodes = scene.nodes.map((node) => Object.assign({}, node));
    const keep = (name, size) => (index, value) => {
      nodes[index][name] = Array.from(value).slice(0, size);
    };
    scene.pose((frames - 1) * kFrameSeconds, {
      setPosition: keep('position', 3),
      setRotation: keep('rotation', 4),
      setScale: keep('scale', 3),
    });
    rows = assertRun(
      runDemo(['--model', 'culled.glb', '--frames', String(frames), '--out', 'culled']),
      'culled'
    );
  });

  for (const [name, title, reach] of [
    ['perspective', 'perspective camera', reachIntoFrustum],
    ['overview', 'orthographic overview', reachIntoBox],
  ]) {
    it(`shows the ${title} what doubles say is in its view, nearest first`, () => {
      const worlds = worldMatrices(nodes);
      const spheres = culling.spheres.map((sphere) => worldSphere(worlds[sphere.carrier], sphere));
      const reaches = spheres.map((sphere) => reach(culling[name], sphere));
      // No sphere of this scene touches a border so closely that rounding decides.
      assert.ok(reaches.every((value) => Math.abs(value) > 1e-5));
      const expected = reaches.map((value, i) => (value > 0 ? i : -1)).filter((i) => i >= 0);
      assert.ok(expected.length > 50 && expected.length < spheres.length - 50);

      const { handles, hash } = culling.views[name];
      const [{ id }] = culling.batches;
      const seen = Array.from(handles, (handle) => handle - id);
      assert.deepStrictEqual(
        seen.slice().sort((a, b) => a - b),
        expected
      );
      const depths = seen.map((i) => inCamera(culling[name], spheres[i].center)[2]);
      depths.forEach((depth, i) => assert.ok(i === 0 || depth > depths[i - 1] - 1e-5));
      const fold = (sum, handle) => (Math.imul(sum, 31) + handle) >>> 0;
      assert.strictEqual(hash, handles.reduce(fold, 0));

      assert.strictEqual(countIn(rows[`visible, ${title}`]), expected.length);
      assert.strictEqual(rows[`hash, ${title}`], hash.toString(16).padStart(8, '0'));
    });
  }

  it('marks for the picture just what the perspective camera sees', () => {
    const { camera, pieces, marks } = culling.seen();
    assert.strictEqual(camera, culling.perspective);
    assert.strictEqual(pieces, 128);
    assert.strictEqual(marks.length, nodes.length * pieces);
    const [{ id }] = culling.batches;
    const seen = new Set(culling.views.perspective.handles);
    culling.spheres.forEach(({ node, piece }, i) => {
      assert.strictEqual(marks[node * pieces + piece], seen.has(id + i) ? 1 : 0, `${i}`);
    });
    assert.strictEqual(
      marks.reduce((sum, mark) => sum + mark, 0),
      seen.size
    );
  });

  it('empties what it has seen when nothing is in view any more', () => {
    const there = culling.perspective;
    const eye = there.eye.map((value) => value + 1e4);
    const target = there.target.map((value) => value + 1e4);
    culling.perspective = Object.assign({}, there, { eye, target });
    culling.cull();
    assert.deepStrictEqual(Array.from(culling.views.perspective.handles), []);
    assert.strictEqual(culling.views.perspective.hash, 0);
    assert.ok(culling.views.overview.handles.length > 0);
    culling.perspective = there;
    culling.cull();
    const visible = countIn(rows['visible, perspective camera']);
    assert.strictEqual(culling.views.perspective.handles.length, visible);
  });

  it('follows the result buffer as it grows, over several batches', () => {
    const scene = createProceduralScene(96);
    const engineScene = new EngineScene(getEngine(), scene.nodes);
    const dance = new SceneCulling(engineScene, scene.nodes);
    assert.strictEqual(dance.spheres.length, scene.nodes.length);
    assert.strictEqual(dance.batches.length, 2);
    const reach = 1e3;
    Object.assign(dance.overview, { left: -reach, right: reach, bottom: -reach, top: reach });
    dance.cull();
    assert.strictEqual(dance.views.overview.handles.length, scene.nodes.length);
    assert.ok(dance.visibleSpheres(dance.views.overview).every((mark) => mark === 1));
    assert.ok(dance.views.perspective.handles.length < scene.nodes.length / 2);
  });
});

describe('demo parts', () => {
  it('reads options in both forms, the last one winning', () => {
    assert.deepStrictEqual(parseOptions([]), {
      model: null,
      figures: 96,
      frames: 300,
      out: 'out',
      help: false,
    });
    const options = parseOptions(['--frames=2', '--out', 'a=b', '--frames', '100000']);
    assert.strictEqual(options.frames, 100000);
    assert.strictEqual(options.out, 'a=b');
  });

  it('reads the nodes of a model in tree order', async () => {
    const file = writeGlb(path.join(folder, 'order.glb'), skeleton());
    const { nodes, animated } = await loadGltfScene(file);
    assert.deepStrictEqual(
      nodes.map(({ parent }) => parent),
      [-1, 0, 1, 2, 1, -1]
    );
    assert.deepStrictEqual(nodes[3].scale, [0.5, 2, 1.25]);
    assert.deepStrictEqual(nodes[4].position, [0, -1, 0.25]);
    assert.deepStrictEqual(animated, [0, 1, 3, 4]);
    // The matrix turns x to -z and z to x, a quarter about y, and doubles.
    const close = (a, b) => a.every((value, i) => Math.abs(value - b[i]) < 1e-12);
    assert.deepStrictEqual(nodes[5].position, [-3, 4, 5]);
    assert.ok(close(nodes[5].scale, [2, 2, 2]), nodes[5].scale);
    assert.ok(close(nodes[5].rotation, [0, Math.SQRT1_2, 0, Math.SQRT1_2]), nodes[5].rotation);
  });

  it('poses a model by its clip, over and over', async () => {
    const file = writeGlb(path.join(folder, 'poses.glb'), skeleton());
    const scene = await loadGltfScene(file);
    const written = {};
    const keep = (name) => (index, value) => {
      written[`${name} ${index}`] = Array.from(value);
    };
    const target = {
      setPosition: (index, value) => keep('position')(index, value.slice(0, 3)),
      setRotation: keep('rotation'),
      setScale: (index, value) => keep('scale')(index, value.slice(0, 3)),
    };
    const assertClose = (name, expected) => {
      written[name].forEach((value, i) => assert.ok(Math.abs(value - expected[i]) < 1e-6, name));
    };
    for (const seconds of [0.5, 2.5, 20.5]) {
      scene.pose(seconds, target);
      assertClose('position 0', [0, 0, 0]);
      assertClose('rotation 1', [0, 0, Math.sin(Math.PI / 8), Math.cos(Math.PI / 8)]);
      assertClose('rotation 3', [Math.SQRT1_2, 0, 0, Math.SQRT1_2]);
      // 1 + t + a t^2 + b t^3 with value 2 and slope 0 after 2 seconds: a = -1/4, b = 0.
      assertClose('scale 4', [1.4375, 1.4375, 1.4375]);
    }
    scene.pose(1.5, target);
    assertClose('position 0', [3, 0, 0]);
    assertClose('rotation 1', [0, 0, Math.sin((3 * Math.PI) / 8), Math.cos((3 * Math.PI) / 8)]);
    assertClose('scale 4', [1.9375, 1.9375, 1.9375]);
  });

  it('finds keys, and holds before the first and after the last', () => {
    const times = Float32Array.of(1, 2, 4);
    const found = [0, 1, 1.5, 2, 3.99, 4, 9].map((seconds) => findKey(times, seconds));
    assert.deepStrictEqual(found, [0, 0, 0, 1, 1, 2, 2]);
    for (const interpolation of ['STEP', 'LINEAR', 'CUBICSPLINE']) {
      const keys = [10, 20, 30].map((v) => [v, v, v]);
      const values = Float32Array.from(
        [].concat(
          ...keys.map((key) => (interpolation === 'CUBICSPLINE' ? [7, 7, 7, ...key, 7, 7, 7] : key))
        )
      );
      const track = { property: 'scale', interpolation, times, values };
      const out = [];
      for (const [seconds, value] of [
        [0, 10],
        [1, 10],
        [2, 20],
        [4, 30],
        [5, 30],
      ]) {
        sampleTrack(track, seconds, out);
        assert.deepStrictEqual(out, [value, value, value], `${interpolation} at ${seconds}`);
      }
      assert.strictEqual(clipSeconds([track]), 4);
    }
  });

  it('turns the short way round', () => {
    const values = Float32Array.of(0, 0, 0, 1, 0, 0, -Math.SQRT1_2, -Math.SQRT1_2);
    const times = Float32Array.of(0, 1);
    const out = [];
    sampleTrack({ property: 'rotation', interpolation: 'LINEAR', times, values }, 0.5, out);
    const expected = [0, 0, Math.sin(Math.PI / 8), Math.cos(Math.PI / 8)];
    expected.forEach((value, i) => assert.ok(Math.abs(out[i] - value) < 1e-7, String(out)));
  });

  it('covers pixels by area', () => {
    const canvas = new Canvas(64, 64);
    canvas.disc({ x: 30.3, y: 31.9, radius: 12.5 }, [1, 0, 0], 1);
    const area = canvas.pixels.reduce((sum, value) => sum + value, 0);
    assert.ok(Math.abs(area - Math.PI * 12.5 * 12.5) < 2, `${area} pixels`);
    const stroke = new Canvas(64, 64);
    stroke.stroke({ x: 10, y: 10, radius: 2 }, { x: 40, y: 50, radius: 2 }, [0, 1, 0], 0.5);
    const covered = 2 * stroke.pixels.reduce((sum, value) => sum + value, 0);
    assert.ok(Math.abs(covered - (50 * 4 + Math.PI * 4)) < 4, `${covered} pixels`);
  });

  it('cuts off what lies outside the canvas', () => {
    const canvas = new Canvas(4, 4);
    canvas.stroke({ x: -100, y: 2, radius: 50 }, { x: 100, y: 2, radius: 50 }, [1, 1, 1], 1);
    assert.ok(canvas.pixels.every((value) => value === 1));
    canvas.disc({ x: 50, y: 50, radius: 3 }, [0, 0, 0], 1);
    assert.ok(canvas.pixels.every((value) => value === 1));
  });

  it('shows every node inside the picture, and leaves out what has no place', () => {
    const nodes = [-1, 0, 1, 1].map((parent) => ({ parent, hue: 120 }));
    const nowhere = [NaN, 0, Infinity];
    for (const positions of [
      [[0, 0, 0], [0, 1, 0], [5, 1, 0], nowhere],
      [[1e6, 0, 0], [1e6, 1e-3, 0], [1e6, 0, 1e-3], nowhere],
      [[7, 7, 7], [7, 7, 7], [7, 7, 7], nowhere],
    ]) {
      const { pixels, width } = drawScene(nodes, positions);
      const green = [];
      for (let i = 0; i < pixels.length; i += 3) {
        if (pixels[i + 1] - Math.max(pixels[i], pixels[i + 2]) > 0.3) {
          green.push(i / 3);
        }
      }
      assert.ok(green.length > 20, `${green.length} green pixels`);
      const columns = green.map((i) => i % width);
      assert.ok(Math.min(...columns) > 40 && Math.max(...columns) < width - 40);
    }
    const blank = drawScene(nodes, [nowhere, nowhere, nowhere, nowhere]).pixels;
    assert.ok(blank.every((value, i) => value === blank[i % 3]));
  });

  it('draws in colour what is seen, in grey the rest, between yellow edges', () => {
    const nodes = [-1, 0, 1].map((parent) => ({ parent, hue: 120 }));
    const positions = [
      [0, 0, 0],
      [2, 0, 0],
      [4, 0, 0],
    ];
    const camera = {
      eye: [-1, 1, 4],
      target: [-1, 1, 0],
      up: [0, 1, 0],
      fov: 0.6,
      aspect: 1,
      near: 1,
      far: 6,
    };
    const count = (seen) => {
      const { pixels } = drawScene(nodes, positions, seen);
      const found = { green: 0, grey: 0, yellow: 0 };
      for (let i = 0; i < pixels.length; i += 3) {
        const [r, g, b] = pixels.subarray(i, i + 3);
        found.green += g - Math.max(r, b) > 0.3 ? 1 : 0;
        found.grey += isUnseen(255 * r, 255 * g, 255 * b) ? 1 : 0;
        found.yellow += r > 0.5 && r > g && g - b > 0.2 ? 1 : 0;
      }
      return found;
    };
    const plain = count(null);
    const [all, half, none] = [
      [1, 1, 1, 1, 1, 1],
      [1, 1, 1, 0, 0, 0],
      [0, 0, 0, 0, 0, 0],
    ].map((marks) => count({ camera, pieces: 2, marks: Uint8Array.from(marks) }));
    assert.ok(plain.green > 1000 && plain.yellow === 0, JSON.stringify(plain));
    for (const { yellow } of [all, half, none]) {
      assert.ok(yellow > 1000, `${yellow} yellow pixels`);
    }
    assert.ok(all.green > 1000 && none.grey > 1000, JSON.stringify([all, none]));
    assert.ok(none.green < 20 && all.grey < none.grey / 10, JSON.stringify([all, none]));
    // Around the first two nodes; the middle of their link and nearly all of the other are grey.
    const share = half.green / all.green;
    assert.ok(share > 0.3 && share < 0.7, `${share} of the colour`);
  });

  it('knows the corners of a view', () => {
    const camera = { eye: [1, 2, 3], target: [1, 2, -7], up: [0, 5, 0], fov: Math.PI / 2 };
    const corners = viewCorners(Object.assign(camera, { aspect: 2, near: 1, far: 10 }));
    const expected = [
      [-1, 1, 2],
      [3, 1, 2],
      [3, 3, 2],
      [-1, 3, 2],
      [-19, -8, -7],
      [21, -8, -7],
      [21, 12, -7],
      [-19, 12, -7],
    ];
    corners.forEach((corner, i) =>
      corner.forEach((value, k) => assert.ok(Math.abs(value - expected[i][k]) < 1e-12, `${i}`))
    );
    assert.strictEqual(corners.length, 8);
  });

  it('fills convex polygons by area, in both directions', () => {
    const corners = [
      { x: 10, y: 5 },
      { x: 50, y: 12 },
      { x: 44, y: 50 },
      { x: 12, y: 40 },
    ];
    // Shoelace: half of 10*12-50*5 + 50*50-44*12 + 44*40-12*50 + 12*5-10*40.
    const expected = (-130 + 1972 + 1160 - 340) / 2;
    for (const around of [corners, corners.slice().reverse()]) {
      const canvas = new Canvas(64, 64);
      canvas.polygon(around, [1, 0, 0], 1);
      const area = canvas.pixels.reduce((sum, value) => sum + value, 0);
      assert.ok(Math.abs(area - expected) < 5, `${area} pixels`);
    }
  });

  it('takes the bounds of points', () => {
    assert.deepStrictEqual(boundsOf([[1, 2, 3]]), { middle: [1, 2, 3], radius: 1, floor: 2 });
    const corners = [
      [0, -1, 0],
      [4, 3, 2],
    ];
    assert.deepStrictEqual(boundsOf(corners), { middle: [2, 1, 1], radius: 3, floor: -1 });
  });

  it('draws a bar on a terminal', () => {
    let text = '';
    const stream = {
      isTTY: true,
      columns: 80,
      write(part) {
        text += part;
      },
    };
    const progress = createProgress(4, stream);
    progress.update(4);
    progress.stop();
    assert.ok(/\[=+\] 4\/4 frames/.test(text), JSON.stringify(text));
  });

  it('takes the middle of times', () => {
    assert.strictEqual(median(Float64Array.of(9, 1, 5)), 5);
    assert.strictEqual(median(Float64Array.of(10, 1, 2, 4)), 3);
    assert.strictEqual(median([]), 0);
  });
});
