'use strict';
// Runs the demo: output, tables, pictures, and error messages.
const assert = require('assert');
const childProcess = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { PNG } = require('pngjs');
const { boundsOf, median } = require('../../../demo/bounds');
const { viewCorners } = require('../../../demo/cameras');
const { Crowd } = require('../../../demo/crowd');
const { createFigure } = require('../../../demo/figure');
const { createKind } = require('../../../demo/kind');
const { MeshBuilder, skinVertices } = require('../../../demo/mesh');
const { loadModel } = require('../../../demo/model');
const { MomentRecorder, findStar } = require('../../../demo/moments');
const { parseOptions } = require('../../../demo/options');
const { drawPicture, palettes } = require('../../../demo/picture');
const { LapPlan, PlacePlan } = require('../../../demo/plan');
const { dealProps } = require('../../../demo/props');
const { Raster } = require('../../../demo/raster');
const { createProgress, formatLegend } = require('../../../demo/report');
const { Stage, kFrameSeconds, stages } = require('../../../demo/stage');
const { UserError } = require('../../../demo/user-error');
const { Scene } = require('../../../scene');
const { realModel, skeleton, writeGlb, writeGltf } = require('../../fixtures/models');
const { emulated } = require('../support/host');

const { getEngine } = require(path.resolve(process.env.NQ_MODULE));
const { removeFolder } = require('../../../scripts/lib/run');

const main = path.join(__dirname, '..', '..', '..', 'demo', 'main.js');
const kBones = 50;
const kNodes = 51;
let folder;

before(() => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-demo-'));
});

after(() => {
  removeFolder(folder);
});

/** Runs the demo in the temporary folder. */
function runDemo(args, environment) {
  return childProcess.spawnSync(process.execPath, [main, ...args], {
    cwd: folder,
    encoding: 'utf8',
    // An emulator takes as long as the suite may.
    timeout: emulated ? 0 : 120000,
    env: Object.assign(
      {},
      process.env,
      { NQ_MODULE: path.resolve(process.env.NQ_MODULE) },
      environment
    ),
  });
}

/** The rows of the tables that a run has printed: title, and the cells after it. */
function tableOf(stdout) {
  const rows = {};
  for (const line of stdout.split('\n')) {
    const cells = line.split('│').map((cell) => cell.trim());
    if (cells.length === 5) {
      rows[cells[1]] = cells.slice(2, 4);
    }
  }
  return rows;
}

/** A whole number of a table. */
function countIn(text) {
  assert.ok(/^\d{1,3}(,\d{3})*$/.test(text), text);
  return Number(text.replace(/,/g, ''));
}

const stageTitles = [
  'JavaScript writes',
  'animate',
  'transform',
  'skin',
  'cull, perspective camera',
  'cull, orthographic overview',
];

/** Asserts a good run of a number of characters and returns its table. */
function assertRun({ status, stdout, stderr }, out, characters, players = 'controllers') {
  assert.strictEqual(stderr, '');
  assert.strictEqual(status, 0);
  assert.ok(!/[\x1b\r]/.test(stdout), 'no terminal codes where there is no terminal'); // eslint-disable-line no-control-regex
  const file = path.join(out, 'scene.png');
  assert.ok(stdout.endsWith(`picture: ${file}\n`), stdout);
  const rows = tableOf(stdout);
  const bones = countIn(rows.bones[1]);
  assert.strictEqual(bones, characters * countIn(rows.bones[0].replace(' each', '')));
  let largest = 0;
  const isCarrying = players === 'controllers';
  assert.strictEqual('props in hands' in rows, isCarrying);
  const titles = stageTitles.map((title) => (title === 'animate' ? `animate, ${players}` : title));
  for (const title of [...titles, 'whole frame']) {
    const [milliseconds, perBone] = rows[title].map(Number);
    // Without clips there is next to nothing to take the time of.
    const isIdle = title === 'animate, animators' && rows.clips[0] === 'none';
    assert.ok(milliseconds > 0 || isIdle, `${title}: ${milliseconds} ms`);
    largest = Math.max(largest, title === 'whole frame' ? 0 : milliseconds);
    // Made of the exact time; the one that is shown is rounded to 0.1 microseconds.
    assert.ok(Math.abs(perBone * bones - milliseconds * 1e6) <= 0.05 * bones + 50.001, stdout);
  }
  assert.ok(Number(rows['whole frame'][0]) >= 0.99 * largest, stdout);
  assert.strictEqual(countIn(rows.characters[1]), characters);
  for (const camera of ['perspective camera', 'orthographic overview']) {
    const [hash, visible] = rows[`visible, ${camera}`];
    assert.ok(/^hash [0-9a-f]{8}$/.test(hash), hash);
    assert.ok(countIn(visible) <= characters);
  }
  assert.ok(/^\d+\.\d MB$/.test(rows.memory[1]), rows.memory[1]);
  return rows;
}

/** Whether a pixel is of the grey in which the picture draws what the scene's camera doesn't see. */
function isUnseen(r, g, b) {
  return r > 45 && g >= r && b > 1.25 * r && b < 1.5 * r && g < 1.2 * r && b < 200;
}

/** How many pixels of a picture from `top` to `bottom` are of strong colour, and of that grey. */
function countPixels({ width, data }, top, bottom) {
  let colored = 0;
  let unseen = 0;
  for (let i = 4 * width * top; i < 4 * width * bottom; i += 4) {
    const [r, g, b] = data.subarray(i, i + 3);
    unseen += isUnseen(r, g, b) ? 1 : 0;
    colored += Math.max(r, g, b) - Math.min(r, g, b) > 90 ? 1 : 0;
  }
  return { colored, unseen };
}

/** Asserts that a picture is whole and shows enough of strong colour, in both of its parts. */
function assertPicture(out, coloredPixels, coloredMoments = 10000) {
  const file = path.join(folder, out, 'scene.png');
  assert.deepStrictEqual(fs.readdirSync(path.dirname(file)), ['scene.png']);
  const png = PNG.sync.read(fs.readFileSync(file));
  assert.strictEqual(png.width, 1600);
  assert.strictEqual(png.height, 1200);
  const crowd = countPixels(png, 0, 920);
  const moments = countPixels(png, 920, 1200);
  assert.ok(crowd.colored >= coloredPixels, JSON.stringify(crowd));
  assert.ok(crowd.colored < (1600 * 920) / 2, JSON.stringify(crowd));
  assert.ok(moments.colored > coloredMoments, JSON.stringify(moments));
  return png;
}

describe('demo runs', () => {
  it('runs the crowd, prints progress at every quarter, and draws it', () => {
    const run = runDemo(['--characters', '60', '--frames', '10', '--out', 'crowd']);
    const rows = assertRun(run, 'crowd', 60);
    assert.deepStrictEqual(
      run.stdout.split('\n').filter((line) => line.startsWith('animating')),
      [
        'animating: 3 of 10 frames',
        'animating: 5 of 10 frames',
        'animating: 8 of 10 frames',
        'animating: 10 of 10 frames',
      ]
    );
    assert.deepStrictEqual(rows.characters, ['figure', '60']);
    assert.deepStrictEqual(rows.clips, ['walk, run, wave, breath', '4']);
    const carried = rows['props in hands'];
    assert.strictEqual(carried[0], 'torch, lantern, flag');
    const expected = dealProps(3, 60, 1).filter((part) => part !== null).length;
    assert.strictEqual(countIn(carried[1]), expected);
    assert.deepStrictEqual(rows.bones, ['50 each', '3,000']);
    assert.deepStrictEqual(rows.entities, ['51 each', '3,060']);
    assert.deepStrictEqual(rows.frames, ['seed 1', '10']);
    const visible = countIn(rows['visible, perspective camera'][1]);
    assert.ok(visible > 0 && visible < 60, `${visible} visible`);
    const { unseen } = countPixels(assertPicture('crowd', 5000), 0, 920);
    assert.ok(unseen > 1000, `${unseen} grey pixels`);
    assert.ok(run.stdout.includes(formatLegend(createFigure())), run.stdout);
  });

  it('prints and draws the same for the same seed, and differs for another one', () => {
    const [first, again, other] = [1, 1, 2].map((seed, i) => {
      const out = `same${i}`;
      const args = ['--characters', '40', '--frames', '7', '--seed', String(seed), '--out', out];
      const rows = assertRun(runDemo(args), out, 40);
      const cameras = ['visible, perspective camera', 'visible, orthographic overview'];
      return {
        seen: JSON.stringify(cameras.map((camera) => rows[camera])),
        picture: fs.readFileSync(path.join(folder, out, 'scene.png')),
      };
    });
    assert.strictEqual(first.seen, again.seen);
    assert.ok(first.picture.equals(again.picture));
    assert.notStrictEqual(first.seen, other.seen);
    assert.ok(!first.picture.equals(other.picture));
  });

  it('supports more entities than a batch and a dirty list hold', () => {
    const args = ['--characters', '250', '--frames', '2', '--out', 'many'];
    const rows = assertRun(runDemo(args), 'many', 250);
    assert.ok(countIn(rows.entities[1]) > 12287);
  });

  it('rotates a model without a clip, and draws sticks if there is no mesh', () => {
    const model = skeleton();
    delete model.json.animations;
    writeGltf(path.join(folder, 'still.gltf'), model);
    const args = ['--model=still.gltf', '--frames=3', '--characters=5', '--out=deep/er'];
    const rows = assertRun(runDemo(args), 'deep/er', 5, 'animators');
    assert.deepStrictEqual(rows.characters, ['still.gltf', '5']);
    assert.deepStrictEqual(rows.clips, ['none', '0']);
    assert.deepStrictEqual(rows.entities, ['7 each', '35']);
    assertPicture('deep/er', 1000, 500);
  });

  const real = [
    { name: 'Fox.glb', clips: ['Survey, Walk, Run', '3'], bones: '24 each', entities: '27 each' },
    {
      name: 'greenman.glb',
      clips: ['0_pose, 1_idle, 2_move, 3_attack', '4'],
      bones: '12 each',
      entities: '15 each',
    },
  ];
  for (const { name, clips, bones, entities } of real) {
    it(`animates ${name}`, function () {
      const file = realModel(this, name);
      const run = runDemo(['--model', file, '--frames', '9', '--out', name]);
      const rows = assertRun(run, name, 24, 'animators');
      assert.deepStrictEqual(rows.characters, [name, '24']);
      assert.deepStrictEqual(rows.clips, clips);
      assert.strictEqual(rows.bones[0], bones);
      assert.strictEqual(rows.entities[0], entities);
      const { unseen } = countPixels(assertPicture(name, 5000), 0, 920);
      assert.ok(unseen > 1000, `${unseen} grey pixels`);
    });
  }

  it('fits its tables into 100 columns, for any number and names of clips', () => {
    const model = skeleton();
    const [clip] = model.json.animations;
    const names = ['Idle', '走路', 'two\nlines', 'x'.repeat(200)];
    for (let i = 0; i < 14; ++i) {
      names.push(`Attack with both hands ${i}`);
    }
    model.json.animations = names.map((name) => Object.assign({}, clip, { name }));
    const file = `${'long name of a model '.repeat(6)}.glb`;
    writeGlb(path.join(folder, file), model);
    const args = ['--model', file, '--frames', '2', '--characters', '3', '--out', 'clips'];
    const run = runDemo(args);
    const rows = assertRun(run, 'clips', 3, 'animators');
    assert.strictEqual(rows.characters[0], `${'long name of a model '.repeat(2)}long na…`);
    assert.deepStrictEqual(rows.clips, ['Idle, 走路, two lines, … 15 more', '18']);
    const tables = run.stdout.split('\n').filter((line) => /^[┌│├└]/.test(line));
    assert.ok(tables.length > 15, run.stdout);
    // The two letters take two columns each.
    const columns = tables.map((line) => Array.from(line).length + (/走/.test(line) ? 2 : 0));
    assert.ok(Math.max(...columns) <= 100, `${Math.max(...columns)} columns\n${run.stdout}`);
  });

  it('shows its options', () => {
    const { status, stdout, stderr } = runDemo(['--help']);
    assert.strictEqual(status, 0);
    assert.strictEqual(stderr, '');
    for (const option of ['--characters', '--model', '--frames', '--seed', '--out', '--help']) {
      assert.ok(stdout.includes(`  ${option} `), option);
    }
  });
});

/**
 * A model of one triangle that follows two joints, the second one a metre above the first: the vertices
 * follow the first, the second, and half of each.
 * @returns {{json: Object, binary: Buffer}}
 */
function skinnedTriangle({ positions = [0, 0, 0], triangles = [0, 1, 2], bone = 1 } = {}) {
  const parts = [
    [Float32Array.of(...positions, 0, 1, 0, 1, 1, 0), 'VEC3', 5126],
    [Uint16Array.of(0, 0, 0, 0, bone, 0, 0, 0, 0, bone, 0, 0), 'VEC4', 5123],
    [Float32Array.of(1, 0, 0, 0, 1, 0, 0, 0, 0.5, 0.5, 0, 0), 'VEC4', 5126],
    [Uint16Array.of(...triangles, 0), 'SCALAR', 5123],
    // Back from the joints' places at rest: columns of matrices.
    [
      Float32Array.of(
        ...[1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1],
        ...[1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, -1, 0, 1]
      ),
      'MAT4',
      5126,
    ],
  ];
  const counts = [3, 3, 3, 3, 2];
  let byteOffset = 0;
  const bufferViews = parts.map(([{ byteLength }]) => {
    byteOffset += byteLength;
    return { buffer: 0, byteOffset: byteOffset - byteLength, byteLength };
  });
  const binary = Buffer.concat(parts.map(([{ buffer }]) => Buffer.from(buffer)));
  const json = {
    asset: { version: '2.0' },
    scenes: [{ nodes: [0, 1] }],
    nodes: [
      { mesh: 0, skin: 0 },
      { name: 'low', children: [2] },
      { name: 'high', translation: [0, 1, 0] },
    ],
    meshes: [
      { primitives: [{ attributes: { POSITION: 0, JOINTS_0: 1, WEIGHTS_0: 2 }, indices: 3 }] },
    ],
    skins: [{ joints: [1, 2], inverseBindMatrices: 4 }],
    buffers: [{ byteLength: binary.length }],
    bufferViews,
    accessors: parts.map(([, type, componentType], i) => {
      return { bufferView: i, componentType, count: counts[i], type };
    }),
  };
  return { json, binary };
}

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
    assertFails(() => loadModel(path.join(folder, name)), input, cure);

  /** Writes a file and gives its name. */
  function write(name, content) {
    fs.writeFileSync(path.join(folder, name), content);
    return name;
  }

  it('refuses unknown arguments', async () => {
    assertRefused(['--frame', '3'], "'--frame'", '--help');
    await assertOptionsFail(['Fox.glb'], "'Fox.glb'", '--help');
    await assertOptionsFail(['-f'], "'-f'", '--help');
    await assertOptionsFail(['--figures=3'], "'--figures=3'", '--help');
  });

  it('refuses bad numbers', async () => {
    assertRefused(['--frames=0'], "'0'", 'a whole number from 1 to 100000');
    for (const text of ['-1', '1.5', '1e3', 'many', '100001', '99999999999999999999']) {
      await assertOptionsFail([`--frames=${text}`], `'${text}'`, 'number from 1 to 100000');
    }
    await assertOptionsFail(['--characters', '2001'], "'2001'", 'a whole number from 1 to 2000');
    await assertOptionsFail(['--seed', '4294967296'], "'4294967296'", 'from 0 to 4294967295');
  });

  it('refuses options without a value', async () => {
    assertRefused(['--frames', '--out', 'x'], '--frames', '--frames VALUE');
    await assertOptionsFail(['--out'], '--out', '--out VALUE');
    await assertOptionsFail(['--model='], '--model', '--model VALUE');
  });

  it('refuses folders that are not writable, before the run', () => {
    const file = path.join(folder, write('file', 'kept'));
    const cases = {
      [file]: 'it is a file, not a folder',
      [path.join(file, 'below')]: 'part of its path is a file, not a folder',
      '/dev/full': 'it is a file, not a folder',
      '/proc': 'nothing can be created there',
      '/proc/none/below': 'nothing can be created there',
      [`/proc/${process.pid}/fd`]: 'nothing can be created there',
    };
    for (const out of Object.keys(cases)) {
      assertRefused(['--frames', '1', '--out', out], `'${out}' can't be used`, cases[out]);
    }
    assert.strictEqual(fs.readFileSync(file, 'utf8'), 'kept');
  });

  it('refuses what is not a readable file', () => {
    assertRefused(['--model', 'absent.glb'], "'absent.glb'", 'give the path of a .glb or .gltf');
    assertRefused(['--model', folder], `'${folder}'`, 'give the path of a .glb or .gltf');
    assertRefused(['--model', 'two\nlines'], "'two lines'", 'give the path of a .glb or .gltf');
  });

  it('refuses what is not a glTF file', async () => {
    assertRefused(['--model', write('text.txt', 'text')], "'text.txt'", 'give a .glb or .gltf');
    await assertModelFails(write('none.glb', ''), "none.glb'", 'give a .glb or .gltf');
    await assertModelFails(write('text.gltf', '{"a'), "text.gltf'", 'export it again');
    await assertModelFails(write('empty.gltf', '{}'), "empty.gltf'", 'export it again');
  });

  it('refuses a truncated file', () => {
    const whole = fs.readFileSync(writeGlb(path.join(folder, 'whole.glb'), skeleton()));
    const sizes = `700 of ${whole.length} bytes`;
    assertRefused(['--model', write('cut.glb', whole.slice(0, 700))], sizes, 'export it again');
  });

  it('refuses a file without nodes', async () => {
    const model = skeleton();
    Object.assign(model.json, { scenes: [{ nodes: [] }], animations: [] });
    writeGlb(path.join(folder, 'bare.glb'), model);
    await assertModelFails('bare.glb', "bare.glb': it has no nodes to show", 'export it again');
  });

  it('refuses broken meshes', async () => {
    const cases = {
      'a triangle of its meshes has a vertex that does not exist': { triangles: [0, 1, 3] },
      'a vertex of its meshes follows a joint that does not exist': { bone: 2 },
      'a vertex of its meshes is not of finite numbers': { positions: [0, 0, NaN] },
    };
    for (const trouble of Object.keys(cases)) {
      writeGlb(path.join(folder, 'mesh.glb'), skinnedTriangle(cases[trouble]));
      await assertModelFails(
        'mesh.glb',
        `mesh.glb': its meshes can't be read, ${trouble}`,
        'again'
      );
    }
    assertRefused(['--model', 'mesh.glb'], "'mesh.glb'", 'export it again');
  });

  it('refuses a model that is too large for floats', () => {
    const model = skeleton();
    delete model.json.animations;
    model.json.nodes[0].translation = [1e30, 0, 0];
    writeGlb(path.join(folder, 'far.glb'), model);
    assertRefused(['--model', 'far.glb'], "'far.glb'", 'scale it down');
  });

  it('refuses crowds that exceed the memory', () => {
    const model = skeleton();
    delete model.json.animations;
    model.json.nodes[5].children = Array.from({ length: 300 }, (none, i) => 6 + i);
    model.json.nodes.push(...Array.from({ length: 300 }, () => ({ translation: [0, 1, 0] })));
    writeGlb(path.join(folder, 'huge.glb'), model);
    // 500,000 entities by 307 nodes: 1628 of them.
    const args = ['--model', 'huge.glb', '--characters', '1629'];
    assertRefused(args, "1629 of 'huge.glb'", 'give --characters up to 1628');
  });

  it('names a missing file', () => {
    writeGltf(path.join(folder, 'parted.gltf'), skeleton());
    fs.unlinkSync(path.join(folder, 'parted.bin'));
    assertRefused(['--model', 'parted.gltf'], 'parted.bin', 'put that file there');
  });

  it('refuses folders that can not be created', () => {
    write('file', '');
    const args = ['--characters', '1', '--frames', '1', '--out'];
    assertRefused([...args, 'file'], "'file'", 'choose another --out');
    assertRefused([...args, 'file/sub'], "'file/sub'", 'choose another --out');
  });

  it('keeps the old picture if the new one can not be renamed', () => {
    fs.mkdirSync(path.join(folder, 'taken', 'scene.png'), { recursive: true });
    const { status, stderr } = runDemo(['--characters', '1', '--frames', '1', '--out', 'taken']);
    assert.ok(/^demo: picture 'taken\/scene.png' can't be written, [^\n]+\n$/.test(stderr), stderr);
    assert.strictEqual(status, 2);
    assert.deepStrictEqual(fs.readdirSync(path.join(folder, 'taken')), ['scene.png']);
  });

  it('says how to build the module', () => {
    assertRefused([], "'/no/module.node'", 'npm run demo', { NQ_MODULE: '/no/module.node' });
    const broken = path.join(folder, write('broken.node', 'not a library'));
    // Modules for arm64 come with the package.
    const cure = process.arch === 'arm64' ? 'npm pack' : 'npm run build';
    assertRefused([], `'${broken}'`, cure, { NQ_MODULE: broken });
  });
});

/** World matrices of nodes as rows, in doubles. */
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

/** A node of a kind in the scene: the first one is the character. */
function nodeOf({ characters }, character, index) {
  return index === 0 ? characters[character] : characters[character].node(index - 1);
}

/** The nodes of a character as its shared records have them. */
function nodesOf(crowd, character) {
  return crowd.kind.nodes.map(({ parent }, index) => {
    const { quaternion, position, scale } = nodeOf(crowd, character, index);
    return { parent, rotation: quaternion, position, scale };
  });
}

describe('demo stage', () => {
  const frames = 40;
  const characters = 120;
  let stage;
  let timings;

  before(() => {
    stage = new Stage(getEngine(), createFigure(), characters, 3);
    timings = stage.run(frames, () => {});
  });

  it('measures each stage of each frame', () => {
    assert.deepStrictEqual(Object.keys(timings.stages), stages);
    for (let frame = 0; frame < frames; ++frame) {
      const sum = stages.reduce((all, name) => all + timings.stages[name][frame], 0);
      assert.ok(stages.every((name) => timings.stages[name][frame] >= 0));
      assert.ok(sum > 0 && Math.abs(timings.whole[frame] - sum) < 1e-9);
    }
  });

  it('has the skinning matrices that doubles compute from the records', () => {
    const { crowd, kind } = stage;
    for (const character of [0, 57, characters - 1]) {
      const worlds = worldMatrices(nodesOf(crowd, character));
      kind.joints.forEach((node, bone) => {
        const inverse = kind.inverseBind.subarray(16 * bone, 16 * (bone + 1));
        for (let column = 0; column < 4; ++column) {
          for (let row = 0; row < 4; ++row) {
            const expected = [0, 1, 2, 3].reduce(
              (sum, k) => sum + worlds[node][row][k] * inverse[4 * column + k],
              0
            );
            const actual = crowd.matrices[character][16 * bone + 4 * column + row];
            assert.ok(Math.abs(actual - expected) < 3e-5, `${character} ${bone}: ${actual}`);
          }
        }
      });
    }
  });

  it('has every vertex within the culling sphere', () => {
    const { crowd, kind, reach } = stage;
    const points = new Float32Array(kind.mesh.positions.length);
    for (let character = 0; character < characters; ++character) {
      skinVertices(kind.mesh, crowd.matrices[character], points);
      const part = crowd.cast[character];
      const carried = part ? kind.layers.props[part.prop].meshes[part.hand] : { positions: [] };
      const propPoints = new Float32Array(carried.positions.length);
      if (part) {
        skinVertices(carried, crowd.props.worldMatrix(character), propPoints);
      }
      const place = nodesOf(crowd, character).slice(0, 1);
      const { center } = worldSphere(worldMatrices(place)[0], { center: reach.middle, radius: 1 });
      const all = [...points, ...propPoints];
      for (let at = 0; at < all.length; at += 3) {
        const offset = center.map((value, axis) => all[at + axis] - value);
        assert.ok(Math.hypot(...offset) < 1.08 * reach.radius, `character ${character}`);
      }
    }
  });

  for (const [name, reach] of [
    ['perspective', reachIntoFrustum],
    ['overview', reachIntoBox],
  ]) {
    it(`shows the ${name} camera the characters that doubles find in its view, nearest first`, () => {
      const { crowd, culling } = stage;
      const ball = { center: stage.reach.middle, radius: 1.08 * stage.reach.radius };
      const spheres = Array.from({ length: characters }, (none, i) =>
        worldSphere(worldMatrices(nodesOf(crowd, i).slice(0, 1))[0], ball)
      );
      const reaches = spheres.map((sphere) => reach(culling[name], sphere));
      // No sphere of this crowd touches a border so closely that rounding decides.
      assert.ok(reaches.every((value) => Math.abs(value) > 1e-4));
      const expected = reaches.map((value) => (value > 0 ? 1 : 0));
      const count = expected.reduce((sum, mark) => sum + mark, 0);
      assert.ok(count > 20 && count < characters - 20, `${count} in view`);
      assert.deepStrictEqual(Array.from(culling.visible(culling.views[name])), expected);

      const { handles, hash } = culling.views[name];
      const depths = Array.from(handles, (handle) => {
        return inCamera(culling[name], spheres[culling.characterOf(handle)].center)[2];
      });
      depths.forEach((depth, i) => assert.ok(i === 0 || depth > depths[i - 1] - 1e-4));
      // Of the handles of culling objects, which are consecutive here.
      const fold = (sum, handle) => (Math.imul(sum, 31) + handle) >>> 0;
      const objects = Array.from(handles, (handle) => culling.characterOf(handle));
      // The last call was that of the overview.
      const [, , last] = new Uint32Array(stage.scene.engine.cullingResult);
      const first = last - culling.characterOf(culling.views.overview.handles[0]);
      assert.strictEqual(hash, objects.map((object) => first + object).reduce(fold, 0));
    });
  }

  it('clears the result when nothing is in view any more', () => {
    const { culling } = stage;
    const there = culling.perspective;
    const before = culling.views.perspective.handles.length;
    const eye = there.eye.map((value) => value + 1e4);
    const target = there.target.map((value) => value + 1e4);
    culling.perspective = Object.assign({}, there, { eye, target });
    culling.cullPerspective();
    assert.deepStrictEqual(Array.from(culling.views.perspective.handles), []);
    assert.strictEqual(culling.views.perspective.hash, 0);
    culling.perspective = there;
    culling.cullPerspective();
    assert.strictEqual(culling.views.perspective.handles.length, before);
  });

  it('records moments of the character that changes most between its clips', () => {
    const recorded = new Stage(getEngine(), createFigure(), 40, 5);
    const star = findStar(recorded.createPlan(), 90);
    const recorder = new MomentRecorder(recorded, 90);
    assert.strictEqual(recorder.star, star);
    recorded.run(90, (done) => recorder.record(done));
    assert.strictEqual(recorder.moments.length, 12);
    const running = recorder.moments.map(({ weights }) => weights[1]);
    assert.ok(Math.max(...running) - Math.min(...running) > 0.5, String(running));
    const last = recorder.moments[11];
    assert.deepStrictEqual(Array.from(last.matrices), Array.from(recorded.crowd.matrices[star]));
    assert.deepStrictEqual(last.layerWeights, recorded.plan.layerWeights(star));
    assert.deepStrictEqual(
      Array.from(last.prop),
      Array.from(recorded.crowd.props.worldMatrix(star))
    );
    recorder.moments.slice(1).forEach(({ matrices }, i) => {
      assert.notDeepStrictEqual(matrices, recorder.moments[i].matrices);
    });
  });

  it('draws by the matrices: limbs that move, nothing for zero matrices', () => {
    const small = new Stage(getEngine(), createFigure(), 12, 5);
    const recorder = new MomentRecorder(small, 2);
    small.run(2, (done) => recorder.record(done));
    const draw = () => {
      const { width, pixelHeight, colors } = drawPicture(small, recorder);
      return colors.subarray(0, 3 * width * 2 * (pixelHeight - 280));
    };
    const count = (colors) => {
      let strong = 0;
      for (let i = 0; i < colors.length; i += 3) {
        const [r, g, b] = [colors[i], colors[i + 1], colors[i + 2]];
        strong += Math.max(r, g, b) - Math.min(r, g, b) > 125 ? 1 : 0;
      }
      return strong;
    };
    const drawn = draw();
    small.run(10, () => {});
    const later = draw();
    const changed = drawn.filter((value, i) => Math.abs(value - later[i]) > 40).length;
    assert.ok(changed > 20000, `${changed} channels of samples differ`);
    small.crowd.matrices.forEach((matrices) => matrices.fill(0));
    const [before, props] = [count(later), count(draw())];
    assert.ok(props > 1000 && props < before / 2, `${props} of ${before} samples are props`);
    small.crowd.props.carriers.forEach((i) => small.crowd.props.worldMatrix(i).fill(0));
    const gone = count(draw());
    assert.ok(before > 5000 && gone < before / 20, `${before} and ${gone} samples`);
  });

  it('draws the weights of layers as bars', () => {
    const small = new Stage(getEngine(), createFigure(), 4, 5);
    const recorder = new MomentRecorder(small, 4);
    small.run(4, (done) => recorder.record(done));
    recorder.moments.forEach(({ layerWeights }) => layerWeights.fill(0));
    recorder.moments[1].layerWeights = [0.25, 0.75];
    const { width, height, colors } = drawPicture(small, recorder);
    // Bars have the last 35 rows of pixels above a margin of 24.
    const count = (color) => {
      let samples = 0;
      for (let i = 3 * width * (height - 2 * (24 + 35)); i < colors.length; i += 3) {
        samples += color.every((value, k) => colors[i + k] === value) ? 1 : 0;
      }
      return samples;
    };
    // A bar is 0.8 of the place that each of 4 moments has, and 9 pixels high; a pixel has 4 samples.
    const whole = ((1600 - 48) / 4) * 0.8 * 9 * 4;
    const [wave, breath] = [count([250, 190, 70]), count([70, 215, 190])];
    assert.ok(Math.abs(wave / whole - 0.25) < 0.01, `${wave} of ${whole}`);
    assert.ok(Math.abs(breath / whole - 0.75) < 0.01, `${breath} of ${whole}`);
  });
});

/** The name of a colour by its hue alone. */
function hueName([r, g, b]) {
  const [low, high] = [Math.min(r, g, b), Math.max(r, g, b)];
  const turned = { [r]: (g - b) / (high - low), [g]: 2 + (b - r) / (high - low) };
  const degrees = (60 * (high === b ? 4 + (r - g) / (high - low) : turned[high]) + 360) % 360;
  const ends = [20, 65, 150, 190, 255, 340, 360];
  const names = ['red', 'yellow', 'green', 'turquoise', 'blue', 'purple', 'red'];
  return names[ends.findIndex((end) => degrees < end)];
}

/** The rows of a legend: what is seen, and what it stands for. */
function legendRows(kind) {
  return formatLegend(kind)
    .split('\n')
    .map((line) => line.split('│').map((cell) => cell.trim()))
    .filter((cells) => cells.length === 4)
    .map((cells) => cells.slice(1, 3))
    .slice(1);
}

describe('demo legend', () => {
  it('names the colours that the picture has', () => {
    const kind = createFigure();
    const rows = legendRows(kind);
    const small = new Stage(getEngine(), kind, 4, 5);
    const recorder = new MomentRecorder(small, 4);
    small.run(4, (done) => recorder.record(done));
    // Three rows of bars, 9 pixels high and 4 apart, above a margin of 24; a pixel has 2 × 2 samples.
    const barColor = (row) => {
      const { width, height, colors } = drawPicture(small, recorder);
      const y = height - 2 * (24 + 35 - 13 * row - 4);
      const x = 2 * (24 + (1600 - 48) / 8);
      return Array.from(colors.subarray(3 * (y * width + x)).slice(0, 3));
    };
    kind.clips.forEach(({ name }, clip) => {
      recorder.moments.forEach(({ weights }) => weights.fill(0).fill(1, clip, clip + 1));
      const entry = rows.find(([, meaning]) => meaning === name);
      assert.strictEqual(entry[0], `${hueName(barColor(0))} body or bar`);
    });
    recorder.moments.forEach(({ layerWeights }) => layerWeights.fill(1));
    ['wave', 'breath'].forEach((name, layer) => {
      const entry = rows.find(([, meaning]) => meaning === `weight of layer ${name}`);
      assert.strictEqual(entry[0], `${hueName(barColor(layer + 1))} bars, row ${layer + 2}`);
    });
  });

  it('lists the clips that share a colour, and says what a body without clips has', () => {
    const clips = ['a', 'b', 'c', 'd', 'e'].map((name) => ({ name }));
    assert.deepStrictEqual(legendRows({ clips, layers: null }).slice(0, 5), [
      ['blue body or bar', 'a, e'],
      ['red body or bar', 'b'],
      ['green body or bar', 'c'],
      ['yellow body or bar', 'd'],
      ['grey characters', 'not visible to the perspective camera'],
    ]);
    const [still] = legendRows({ clips: [], layers: null });
    assert.deepStrictEqual(still, ['turquoise body', 'no clip']);
    assert.strictEqual(hueName(palettes.plain), 'turquoise');
    assert.deepStrictEqual(palettes.clips.map(hueName), ['blue', 'red', 'green', 'yellow']);
  });
});

/** One figure in the engine, and what its clips make of it. */
class Puppet {
  constructor(kind = createFigure(), part = null) {
    this.kind = kind;
    this.crowd = new Crowd(new Scene({ engine: getEngine() }), kind, 1, [part]);
  }

  /** Plays at a part of the cycle, with weights; returns places in the world and rotations by name. */
  pose(moment, weights) {
    weights.forEach((weight, clip) => {
      this.crowd.play(0, clip, moment, weight);
    });
    this.crowd.scene.update();
    const result = {};
    nodesOf(this.crowd, 0).forEach(({ position, rotation }, node) => {
      const place = nodeOf(this.crowd, 0, node).readWorldPosition([0, 0, 0]);
      result[this.kind.nodes[node].name] = { place, position, rotation };
    });
    return result;
  }
}

/** Angle between two rotations, in radians. */
function angleBetween(a, b) {
  const cosine = Math.abs(a.reduce((sum, value, i) => sum + value * b[i], 0));
  return 2 * Math.acos(Math.min(1, cosine / (Math.hypot(...a) * Math.hypot(...b))));
}

describe('demo figure', () => {
  it('has 50 bones, and a body whose vertex weights sum to 1', () => {
    const { nodes, joints, mesh, clips } = createFigure();
    assert.strictEqual(nodes.length, kNodes);
    assert.deepStrictEqual(
      joints,
      Array.from({ length: kBones }, (none, i) => i + 1)
    );
    assert.strictEqual(new Set(nodes.map(({ name }) => name)).size, kNodes);
    nodes.forEach(({ parent }, index) => assert.ok(parent < index && (parent >= 0 || index === 0)));
    const vertices = mesh.positions.length / 3;
    assert.ok(mesh.triangles.every((vertex) => vertex < vertices));
    assert.strictEqual(mesh.parts.length, mesh.triangles.length / 3);
    for (let i = 0; i < mesh.weights.length; i += 4) {
      const sum = mesh.weights.subarray(i, i + 4).reduce((a, b) => a + b, 0);
      assert.ok(Math.abs(sum - 1) < 1e-6);
    }
    assert.ok(mesh.bones.every((bone) => bone < kBones));
    const followed = new Set(mesh.bones.filter((bone, i) => mesh.weights[i] > 0));
    assert.ok(followed.size > 45, `${followed.size} bones carry vertices`);
    assert.deepStrictEqual(
      clips.map(({ name, framesPerSecond, targets }) => [name, framesPerSecond, targets.length]),
      [
        ['walk', 30, kBones],
        ['run', 30, kBones],
      ]
    );
  });

  it('equals its mesh without a clip', () => {
    const kind = createKind(Object.assign(createFigure(), { clips: [], layers: null }));
    const crowd = new Crowd(new Scene({ engine: getEngine() }), kind, 1);
    const points = new Float32Array(kind.mesh.positions.length);
    skinVertices(kind.mesh, crowd.matrices[0], points);
    points.forEach((value, i) => {
      assert.ok(Math.abs(value - kind.mesh.positions[i]) < 1e-6, `coordinate ${i}`);
    });
  });

  it('keeps the ball of a standing foot in place', () => {
    const puppet = new Puppet();
    puppet.kind.clips.forEach(({ name, stride }, clip) => {
      const weights = [0, 1].map((other) => (other === clip ? 1 : 0));
      const stance = name === 'walk' ? 0.6 : 0.34;
      for (const [foot, shift] of [
        ['toesLeft', 0],
        ['toesRight', 0.5],
      ]) {
        const places = [];
        for (let part = 0.25; part <= 1; part += 0.05) {
          const moment = part * stance;
          const { place } = puppet.pose((moment + shift) % 1, weights)[foot];
          places.push([place[1], place[2] + stride * moment]);
        }
        for (const [up, forward] of places) {
          // The ball is 3 cm above the sole.
          assert.ok(Math.abs(up - 0.03) < 0.012, `${name}, ${foot}: ${up} m up`);
          assert.ok(Math.abs(forward - places[0][1]) < 0.02, `${name}, ${foot}: slides ${forward}`);
        }
      }
    });
  });

  it('moves hips twice a cycle, and arms against the legs', () => {
    const puppet = new Puppet();
    for (const weights of [
      [1, 0],
      [0, 1],
    ]) {
      const cycle = Array.from({ length: 16 }, (none, i) => puppet.pose(i / 16, weights));
      const hips = cycle.map((pose) => pose.hips.place[1]);
      hips.forEach((value, i) => assert.ok(Math.abs(value - hips[(i + 8) % 16]) < 1e-3));
      const bob = Math.max(...hips) - Math.min(...hips);
      assert.ok(bob > 0.025 && bob < 0.1, `${bob} m`);
      const along = (left, right) =>
        cycle.reduce((sum, pose) => sum + pose[left].place[2] * pose[right].place[2], 0);
      assert.ok(along('footLeft', 'handLeft') < along('footLeft', 'handRight'));
      assert.ok(along('footRight', 'handRight') < along('footRight', 'handLeft'));
    }
  });

  it('blends between its clips on a crossfade', () => {
    const puppet = new Puppet();
    for (const moment of [0, 0.21, 0.52, 0.83]) {
      const [walk, middle, run] = [
        [1, 0],
        [0.5, 0.5],
        [0, 1],
      ].map((weights) => puppet.pose(moment, weights));
      const mean = walk.hips.position.map((value, i) => (value + run.hips.position[i]) / 2);
      middle.hips.position.forEach((value, i) => assert.ok(Math.abs(value - mean[i]) < 1e-6));
      const quarter = puppet.pose(moment, [0.25, 0.75]);
      const nearer = walk.hips.position.map((value, i) => value / 4 + 0.75 * run.hips.position[i]);
      quarter.hips.position.forEach((value, i) => assert.ok(Math.abs(value - nearer[i]) < 1e-6));
      const sum = walk.thighLeft.rotation.map(
        (value, i) => value / 4 + 0.75 * run.thighLeft.rotation[i]
      );
      assert.ok(angleBetween(quarter.thighLeft.rotation, sum) < 2e-3);
      const whole = angleBetween(walk.foreArmLeft.rotation, run.foreArmLeft.rotation);
      assert.ok(whole > 0.5, `${whole} radians between walk and run`);
      for (const bone of ['foreArmLeft', 'thighRight', 'spine', 'tail1']) {
        const half = angleBetween(walk[bone].rotation, run[bone].rotation) / 2;
        const toWalk = angleBetween(walk[bone].rotation, middle[bone].rotation);
        assert.ok(Math.abs(toWalk - half) < 2e-3, `${bone}: ${toWalk}, not ${half}`);
      }
    }
  });
});

/** World matrix, in columns, of the hand in which a character carries something, by doubles. */
function handMatrix(crowd, character) {
  const { node } = crowd.kind.layers.hands[crowd.cast[character].hand];
  const rows = worldMatrices(nodesOf(crowd, character))[node];
  return [0, 1, 2, 3].reduce((all, column) => all.concat(rows.map((row) => row[column])), []);
}

/** The largest difference between two lists of numbers. */
function largestDifference(a, b) {
  return Math.max(...Array.from(a, (value, i) => Math.abs(value - b[i])));
}

/** Bones of a figure by the side they are on: arms, and what is neither arm nor trunk. */
const armParts = ['shoulder', 'upperArm', 'foreArm', 'hand', 'index', 'littleTip', 'thumb'];
const legParts = ['hips', 'belly', 'thighLeft', 'shinRight', 'footLeft', 'toesRight', 'tail2'];

describe('demo layers', () => {
  const rotationsOf = (pose, names) => names.map((name) => pose[name].rotation);
  const aboutY = (angle) => [0, Math.sin(angle / 2), 0, Math.cos(angle / 2)];

  it('moves props with the hands in the same frame', () => {
    const stage = new Stage(getEngine(), createFigure(), 30, 2);
    const { crowd } = stage;
    const { carriers } = crowd.props;
    assert.ok(carriers.length > 10 && carriers.length < 30, `${carriers.length} carry`);
    for (const frames of [0, 1, 25]) {
      stage.run(frames, () => {});
      for (const character of carriers) {
        const actual = crowd.props.worldMatrix(character);
        const difference = largestDifference(actual, handMatrix(crowd, character));
        assert.ok(difference < 1e-4, `${character} after ${frames}: ${difference}`);
      }
    }
    crowd.place(carriers[0], 100, 0, 0);
    const behind = () => {
      const actual = crowd.props.worldMatrix(carriers[0]);
      return largestDifference(actual, handMatrix(crowd, carriers[0]));
    };
    assert.ok(behind() > 50, 'what is set takes effect in the next update');
    stage.scene.update();
    assert.ok(behind() < 1e-4);
  });

  it('masks the wave to one arm, and leaves the rest to walk and run', () => {
    for (const [hand, own, other, side] of [
      [0, 'Left', 'Right', 1],
      [1, 'Right', 'Left', -1],
    ]) {
      const puppet = new Puppet(createFigure(), { prop: 0, hand, period: 0, offset: 0 });
      const plain = new Puppet();
      // An empty breath adds nothing, and lets controllers blend both: animators blend along arcs.
      [puppet, plain].forEach(({ crowd }) => crowd.breathe(0, 0, 1));
      for (const [moment, weights] of [
        [0.1, [1, 0]],
        [0.6, [0.3, 0.7]],
      ]) {
        const free = plain.pose(moment, weights);
        for (const [weight, elbow] of [
          [0, 1.75],
          [0.5, 1.175],
          [1, 0.6],
        ]) {
          puppet.crowd.wave(0, 0.25, weight);
          const pose = puppet.pose(moment, weights);
          const kept = [...legParts, 'chest', 'head', ...armParts.map((part) => part + other)];
          assert.deepStrictEqual(rotationsOf(pose, kept), rotationsOf(free, kept));
          assert.deepStrictEqual(pose.hips.position, free.hips.position);
          // From the carrying pose, half the way at half the weight; both rotations are about one axis.
          const fore = pose[`foreArm${own}`].rotation;
          assert.ok(angleBetween(fore, aboutY(-elbow * side)) < 1e-3, `${own} ${weight}`);
          const tip = pose[`hand${own}`].place[1] - pose.head.place[1];
          assert.ok(weight < 1 ? tip < 0.15 : tip > 0.05, `hand ${tip} m above the head`);
        }
      }
      const [first, second] = [0.25, 0.75].map((moment) => {
        puppet.crowd.wave(0, moment, 1);
        return puppet.pose(0.1, [1, 0])[`hand${own}`].place[0];
      });
      assert.ok(Math.abs(first - second) > 0.25, `waves ${Math.abs(first - second)} m aside`);
    }
  });

  it('swings empty arms, and holds carrying ones', () => {
    const part = { prop: 2, hand: 1, period: 0, offset: 0 };
    const [empty, carrying] = [null, part].map((own) => {
      const puppet = new Puppet(createFigure(), own);
      return [0, 0.5].map((moment) => puppet.pose(moment, [1, 0]).upperArmRight.rotation);
    });
    assert.ok(angleBetween(...empty) > 0.8);
    assert.deepStrictEqual(carrying[0], carrying[1]);
  });

  it('adds a small breath on top of walk and run', () => {
    const puppet = new Puppet();
    for (const weights of [
      [1, 0],
      [0.5, 0.5],
    ]) {
      const still = puppet.pose(0.3, weights);
      const breathing = (moment, depth) => {
        puppet.crowd.breathe(0, moment, depth);
        const pose = puppet.pose(0.3, weights);
        puppet.crowd.breathe(0, 0, 0);
        return pose;
      };
      const [empty, half, full] = [breathing(0, 1), breathing(0.5, 0.5), breathing(0.5, 1)];
      const turned = (pose, bone) => angleBetween(still[bone].rotation, pose[bone].rotation);
      assert.ok(turned(empty, 'chest') < 1e-3);
      assert.ok(Math.abs(turned(full, 'chest') - 0.075) < 1e-3, `${turned(full, 'chest')}`);
      // By halves of x, y and z with w as it is: the tangent of half the angle, halved.
      const expected = 2 * Math.atan(Math.tan(0.0375) / 2);
      assert.ok(Math.abs(turned(half, 'chest') - expected) < 1e-3, `${turned(half, 'chest')}`);
      assert.ok(Math.abs(turned(full, 'shoulderLeft') - 0.11) < 1e-3);
      const moved = Math.hypot(...full.neck.place.map((value, i) => value - still.neck.place[i]));
      assert.ok(moved > 0.005 && moved < 0.04, `the neck moves ${moved} m`);
      // Both by controllers: the one that is still is blended by an animator, along an arc.
      const kept = [...legParts, 'head', 'foreArmLeft', 'handRight'];
      assert.deepStrictEqual(rotationsOf(full, kept), rotationsOf(empty, kept));
    }
  });

  it('assigns props to most, in both hands, the same for the same seed', () => {
    const cast = dealProps(3, 1000, 9);
    assert.deepStrictEqual(dealProps(3, 1000, 9), cast);
    assert.notDeepStrictEqual(dealProps(3, 1000, 10), cast);
    const parts = cast.filter((part) => part !== null);
    const share = (test) => parts.filter(test).length / parts.length;
    assert.ok(Math.abs(parts.length - 700) < 60, `${parts.length} carry`);
    for (const prop of [0, 1, 2]) {
      assert.ok(Math.abs(share((part) => part.prop === prop) - 1 / 3) < 0.07);
    }
    assert.ok(Math.abs(share(({ hand }) => hand === 0) - 0.3) < 0.07);
    assert.ok(Math.abs(share(({ period }) => period > 0) - 0.6) < 0.07);
    assert.ok(parts.every(({ period, offset }) => period === 0 || (period >= 5 && offset < 8)));
    assert.deepStrictEqual(dealProps(0, 3, 9), [null, null, null]);
  });

  it('raises and lowers props smoothly, and makes runners breathe faster', () => {
    const { clips } = createFigure();
    const part = (period, offset) => ({ prop: 0, hand: 1, period, offset });
    const cast = [null, part(0, 1), part(5, 0), part(6, 2.4)];
    const plan = new LapPlan(clips, 4, 1, cast);
    const highest = [0, 0];
    let previous = written(plan, 2);
    for (let frame = 0; frame < 6 * 60; ++frame) {
      plan.advance(kFrameSeconds);
      const now = written(plan, 2);
      assert.strictEqual(now.waves[0], undefined);
      assert.strictEqual(now.waves[1][1], 0);
      [2, 3].forEach((character, i) => {
        const weight = now.waves[character][1];
        assert.ok(Math.abs(weight - previous.waves[character][1]) < 0.05);
        highest[i] = Math.max(highest[i], weight);
      });
      for (let i = 0; i < 4; ++i) {
        const running = now.weights[2 * i + 1];
        const [moment, depth] = now.breaths[i];
        assert.ok(Math.abs(depth - (0.6 + 0.4 * running)) < 1e-12);
        const step = (moment - previous.breaths[i][0] + 1) % 1;
        assert.ok(Math.abs(step * 60 - (0.3 + 0.45 * running)) < 1e-9);
      }
      previous = now;
    }
    assert.deepStrictEqual(highest, [1, 1]);
    // A second into a wave of three it is up; a second before the next one it is down.
    const at = (seconds) => {
      const fresh = new LapPlan(clips, 4, 1, cast);
      fresh.advance(seconds);
      return fresh.layerWeights(2)[0];
    };
    assert.deepStrictEqual(
      [at(0), at(0.3), at(1), at(2.7), at(4), at(6)].map((w) => w.toFixed(6)),
      ['0.000000', '0.500000', '1.000000', '0.500000', '0.000000', '1.000000']
    );
  });
});

/** Takes what a plan writes. */
function written(plan, clips) {
  const result = { moments: [], weights: [], places: [], waves: [], breaths: [] };
  const sink = {
    play(character, clip, moment, weight) {
      result.moments[character * clips + clip] = moment;
      result.weights[character * clips + clip] = weight;
    },
    wave(character, moment, weight) {
      result.waves[character] = [moment, weight];
    },
    breathe(character, moment, weight) {
      result.breaths[character] = [moment, weight];
    },
    place(character, x, z, heading) {
      result.places[character] = [x, z, heading];
    },
  };
  plan.writeClips(sink);
  plan.writePlaces(sink);
  return result;
}

describe('demo plans', () => {
  it('moves 500 figures at the speed of their steps, without collisions', () => {
    const { clips } = createFigure();
    const plan = new LapPlan(clips, 500, 1);
    const kinds = { walking: 0, running: 0, between: 0 };
    let [previous, nearest] = [null, Infinity];
    for (let frame = 0; frame < 60; ++frame) {
      plan.advance(kFrameSeconds);
      const now = written(plan, 2);
      for (let i = 0; i < 500; ++i) {
        const [walk, run] = [now.weights[2 * i], now.weights[2 * i + 1]];
        assert.ok(walk >= 0 && run >= 0 && Math.abs(walk + run - 1) < 1e-12);
        kinds[run === 0 ? 'walking' : run === 1 ? 'running' : 'between'] += frame === 0 ? 1 : 0;
        assert.strictEqual(now.moments[2 * i], now.moments[2 * i + 1]);
        if (previous !== null) {
          assert.ok(Math.abs(run - previous.weights[2 * i + 1]) < 0.05);
          const [x, z, heading] = now.places[i];
          const [dx, dz] = [x - previous.places[i][0], z - previous.places[i][1]];
          const step = (now.moments[2 * i] - previous.moments[2 * i] + 1) % 1;
          const stride = walk * clips[0].stride + run * clips[1].stride;
          const ground = step * stride;
          assert.ok(Math.abs(Math.hypot(dx, dz) / ground - 1) < 0.15, `character ${i}`);
          // It looks where it goes.
          assert.ok(dx * Math.sin(heading) + dz * Math.cos(heading) > 0.99 * Math.hypot(dx, dz));
        }
      }
      for (let i = 0; frame % 20 === 0 && i < 500; ++i) {
        for (let k = 0; k < i; ++k) {
          const [a, b] = [now.places[i], now.places[k]];
          nearest = Math.min(nearest, Math.hypot(a[0] - b[0], a[1] - b[1]));
        }
      }
      previous = now;
    }
    assert.ok(nearest > 0.4, `${nearest} m apart`);
    for (const kind of Object.keys(kinds)) {
      assert.ok(kinds[kind] > 50, JSON.stringify(kinds));
    }
  });

  it('crossfades characters in place through all of their clips', () => {
    const clips = [30, 60, 15].map((frameCount) => ({ frameCount, framesPerSecond: 30 }));
    const plan = new PlacePlan(clips, 9, 2, 1);
    const [first] = written(plan, 3).places;
    const played = new Set();
    let previous = plan.weights(0);
    for (let frame = 0; frame < 7 * 60; ++frame) {
      plan.advance(kFrameSeconds);
      const { places, weights, moments } = written(plan, 3);
      assert.deepStrictEqual(places[0], first);
      const own = weights.slice(0, 3);
      assert.ok(Math.abs(own.reduce((a, b) => a + b) - 1) < 1e-12);
      assert.ok(own.filter((weight) => weight > 0).length <= 2);
      own.forEach((weight, i) => assert.ok(Math.abs(weight - previous[i]) < 0.06));
      moments.forEach((moment) => assert.ok(moment >= 0 && moment < 1));
      played.add(own.indexOf(1));
      previous = own;
    }
    assert.deepStrictEqual(Array.from(played).sort(), [-1, 0, 1, 2]);
  });

  it('rotates characters without clips once in 8 seconds', () => {
    const plan = new PlacePlan([], 4, 1, 1);
    const before = written(plan, 0).places;
    plan.advance(2);
    const after = written(plan, 0).places;
    after.forEach(([x, z, heading], i) => {
      assert.deepStrictEqual([x, z], before[i].slice(0, 2));
      assert.ok(Math.abs(heading - before[i][2] - Math.PI / 2) < 1e-12);
    });
    assert.strictEqual(new Set(after.map(([x, z]) => `${x} ${z}`)).size, 4);
  });
});

describe('demo models', () => {
  it('reads nodes in tree order, below the node of the position', async () => {
    const file = writeGlb(path.join(folder, 'order.glb'), skeleton());
    const { nodes, clips, joints, mesh } = await loadModel(file);
    assert.deepStrictEqual(
      nodes.map(({ parent }) => parent),
      [-1, 0, 1, 2, 3, 2, 0]
    );
    assert.deepStrictEqual(nodes[4].scale, [0.5, 2, 1.25]);
    assert.deepStrictEqual(nodes[5].position, [0, -1, 0.25]);
    assert.deepStrictEqual(clips[0].targets, [1, 2, 4, 5]);
    // No mesh: a stick for each of four links, and for each of three ends.
    assert.deepStrictEqual(joints, [1, 2, 3, 4, 5, 6]);
    assert.strictEqual(mesh.triangles.length / 3, 7 * 8);
  });

  it('shows the default scene, and nodes of others that its skins need', async () => {
    const model = skinnedTriangle();
    model.json.nodes.push({ name: 'elsewhere' });
    model.json.scenes = [{ nodes: [3] }, { nodes: [0] }];
    model.json.scene = 1;
    const kind = await loadModel(writeGlb(path.join(folder, 'scenes.glb'), model));
    assert.deepStrictEqual(
      kind.nodes.map(({ name }) => name),
      ['place', '', 'low', 'high']
    );
  });

  it('reports the parts of a file that it leaves out', () => {
    const model = skeleton();
    const [{ channels }] = model.json.animations;
    channels.push({ sampler: 0, target: { node: 0, path: 'weights' } });
    writeGlb(path.join(folder, 'morph.glb'), model);
    const args = ['--model', 'morph.glb', '--frames', '2', '--characters', '2', '--out', 'morph'];
    const run = runDemo(args);
    assertRun(run, 'morph', 2, 'animators');
    assert.ok(/^note: [^\n]*channel 4[^\n]*left out\.\n/.test(run.stdout), run.stdout);
  });

  it('shows sticks where a mesh has no triangles', async () => {
    const model = skinnedTriangle();
    model.json.meshes[0].primitives[0].mode = 1;
    const lines = await loadModel(writeGlb(path.join(folder, 'lines.glb'), model));
    model.json.meshes[0].primitives[0].mode = 4;
    model.json.accessors[3].count = 2;
    const none = await loadModel(writeGlb(path.join(folder, 'none.glb'), model));
    for (const { joints, mesh } of [lines, none]) {
      assert.deepStrictEqual(joints, [1, 2, 3]);
      assert.strictEqual(mesh.triangles.length / 3, 3 * 8);
      assert.ok(mesh.bones.every((bone) => bone < 3));
    }
  });

  it('places skinned vertices by joints and inverse bind matrices', async () => {
    const kind = await loadModel(writeGlb(path.join(folder, 'skin.glb'), skinnedTriangle()));
    assert.deepStrictEqual(kind.joints, [2, 3]);
    const crowd = new Crowd(new Scene({ engine: getEngine() }), kind, 2);
    crowd.place(1, 10, 0, 0);
    // The upper joint moves from 1 to 3 on the y axis: the third vertex goes half as far.
    crowd.characters[0].node('high').setPosition(0, 3, 0);
    crowd.scene.update();
    const points = new Float32Array(9);
    skinVertices(kind.mesh, crowd.matrices[0], points);
    assert.deepStrictEqual(Array.from(points), [0, 0, 0, 0, 3, 0, 1, 2, 0]);
    skinVertices(kind.mesh, crowd.matrices[1], points);
    assert.deepStrictEqual(Array.from(points), [10, 0, 0, 10, 1, 0, 11, 1, 0]);
  });

  it('places vertices without a skin by their node', async () => {
    const model = skinnedTriangle();
    Object.assign(model.json.nodes[0], { translation: [0, 5, 0], scale: [2, 2, 2] });
    delete model.json.nodes[0].skin;
    const kind = await loadModel(writeGlb(path.join(folder, 'rigid.glb'), model));
    assert.deepStrictEqual(kind.joints, [1]);
    const crowd = new Crowd(new Scene({ engine: getEngine() }), kind, 1);
    const points = new Float32Array(9);
    skinVertices(kind.mesh, crowd.matrices[0], points);
    assert.deepStrictEqual(Array.from(points), [0, 5, 0, 0, 7, 0, 2, 7, 0]);
  });

  it('blends clips that move different nodes with rest values', async () => {
    const model = skeleton();
    const [{ samplers, channels }] = model.json.animations;
    model.json.animations = [
      { name: 'moving', samplers: [samplers[0]], channels: [channels[0]] },
      {
        name: 'growing',
        samplers: [samplers[3]],
        channels: [{ sampler: 0, target: { node: 4, path: 'scale' } }],
      },
    ];
    const kind = await loadModel(writeGlb(path.join(folder, 'two.glb'), model));
    assert.deepStrictEqual(
      kind.clips.map(({ targets }) => targets),
      [[1], [5]]
    );
    const puppet = new Puppet(kind);
    const scaleOf = () => nodesOf(puppet.crowd, 0)[5].scale;
    // At half of the cycle, a second in: the base is at 3 in x; the leg has grown from 1 towards 2
    // with a slope of 1 per second at the start and 0 at the end, to 1.75, and mirrors x at rest.
    assert.deepStrictEqual(puppet.pose(0.5, [1, 0]).base.position, [3, 0, 0]);
    assert.deepStrictEqual(scaleOf(), [-1, 1, 1]);
    assert.deepStrictEqual(puppet.pose(0.5, [0, 1]).base.position, [0, 0, 0]);
    scaleOf().forEach((value) => assert.ok(Math.abs(value - 1.75) < 1e-6));
    assert.deepStrictEqual(puppet.pose(0.5, [0.25, 0.75]).base.position, [0.75, 0, 0]);
    const expected = [0.25 * -1 + 0.75 * 1.75, 0.25 + 0.75 * 1.75, 0.25 + 0.75 * 1.75];
    scaleOf().forEach((value, i) => assert.ok(Math.abs(value - expected[i]) < 1e-6));
  });
});

describe('demo parts', () => {
  it('reads options in both forms, the last one winning', () => {
    assert.deepStrictEqual(parseOptions([]), {
      model: null,
      characters: 500,
      frames: 300,
      seed: 1,
      out: 'out',
      help: false,
    });
    assert.strictEqual(parseOptions(['--model=a.glb']).characters, 24);
    assert.strictEqual(parseOptions(['--characters=3', '--model', 'a.glb']).characters, 3);
    const options = parseOptions(['--frames=2', '--out', 'a=b', '--frames', '100000']);
    assert.strictEqual(options.frames, 100000);
    assert.strictEqual(options.out, 'a=b');
  });

  it('builds closed tubes and sticks', () => {
    for (const build of [
      (builder) => {
        const ring = (y) => ({ center: [0, y, 0], wide: 1, deep: 2, follows: [[0, 1]] });
        builder.tube([ring(0), ring(1), ring(5)], [1, 0, 0], 6, 0);
      },
      (builder) => builder.spindle([1, 2, 3], [4, 4, 4], 0, 0),
      (builder) => builder.spindle([0, 0, 0], [0, 2, 0], 0, 0),
    ]) {
      const builder = new MeshBuilder();
      build(builder);
      const { triangles, positions } = builder.build();
      assert.ok(positions.every(Number.isFinite));
      // Each edge is passed once in either direction.
      const edges = new Set();
      for (let i = 0; i < triangles.length; i += 3) {
        for (let k = 0; k < 3; ++k) {
          const edge = `${triangles[i + k]} ${triangles[i + ((k + 1) % 3)]}`;
          assert.ok(!edges.has(edge), edge);
          edges.add(edge);
        }
      }
      edges.forEach((edge) => assert.ok(edges.has(edge.split(' ').reverse().join(' ')), edge));
    }
  });

  /** How many samples are red. */
  const redSamples = ({ colors }) => colors.filter((value, i) => i % 3 === 0 && value > 127).length;

  it('fills triangles and polygons of both windings', () => {
    // Shoelace: half of 10*12-50*5 + 50*50-44*12 + 44*40-12*50 + 12*5-10*40.
    const expected = (-130 + 1972 + 1160 - 340) / 2;
    const corners = [
      [10, 5],
      [50, 12],
      [44, 50],
      [12, 40],
    ];
    for (const around of [corners, corners.slice().reverse()]) {
      const filled = new Raster(32, 32);
      filled.polygon(around, [255, 0, 0], 1);
      assert.ok(Math.abs(redSamples(filled) - expected) < 10, `${redSamples(filled)} samples`);
      const drawn = new Raster(32, 32);
      const points = Float32Array.from([].concat(...around.map(([x, y]) => [x, y, 0])));
      const shades = new Float32Array(4).fill(1);
      drawn.triangle(points, shades, 0, 1, 2, [255, 0, 0]);
      drawn.triangle(points, shades, 0, 2, 3, [255, 0, 0]);
      assert.ok(Math.abs(redSamples(drawn) - expected) < 10, `${redSamples(drawn)} samples`);
      drawn.mark(points, 0, 1, 2, 1);
      drawn.mark(points, 0, 2, 3, 1);
      drawn.blendMarked(1, [0, 0, 0], 1);
      assert.strictEqual(redSamples(drawn), 0);
    }
  });

  it('shows the nearer triangle, in any drawing order', () => {
    const points = Float32Array.of(0, 0, 1, 64, 0, 1, 0, 64, 1, 0, 0, 0, 64, 0, 2, 0, 64, 0);
    const shades = new Float32Array(6).fill(1);
    const shots = [true, false].map((nearFirst) => {
      const raster = new Raster(32, 32);
      const draws = [
        () => raster.triangle(points, shades, 0, 1, 2, [0, 255, 0]),
        () => raster.triangle(points, shades, 3, 4, 5, [255, 0, 0]),
      ];
      (nearFirst ? draws : draws.reverse()).forEach((draw) => draw());
      return raster;
    });
    assert.deepStrictEqual(shots[0].colors, shots[1].colors);
    // The second one comes nearer to the right, from the middle on: a quarter of both.
    const red = redSamples(shots[0]);
    assert.ok(Math.abs(red - (64 * 64) / 8) < 64, `${red} samples`);
    const [line] = shots;
    line.line([0, 10, 0.5], [63, 10, 0.5], 1, [0, 0, 255], 1);
    assert.strictEqual(line.colors[3 * (10 * 64 + 20) + 2], 0);
    line.line([0, 10, 3], [63, 10, 3], 1, [0, 0, 255], 1);
    assert.strictEqual(line.colors[3 * (10 * 64 + 20) + 2], 255);
  });

  it('draws lines with their width, clipped to the window', () => {
    const raster = new Raster(32, 32);
    raster.line([10, 10, 0], [40, 50, 0], 2, [255, 0, 0], 1);
    const covered = redSamples(raster);
    assert.ok(Math.abs(covered - (50 * 4 + Math.PI * 4)) < 15, `${covered} samples`);
    const cut = new Raster(32, 32);
    cut.setWindow(8, 16, 24, 40);
    cut.line([-100, 20, 0], [100, 20, 0], 60, [255, 0, 0], 1);
    cut.polygon(
      [
        [-100, -100],
        [100, -100],
        [100, 100],
      ],
      [255, 0, 0],
      1
    );
    const huge = Float32Array.of(-500, -500, 1, 500, -500, 1, 0, 500, 1);
    cut.triangle(huge, Float32Array.of(1, 1, 1), 0, 1, 2, [255, 0, 0]);
    assert.strictEqual(redSamples(cut), 16 * 24);
  });

  it('averages four samples per pixel', () => {
    const raster = new Raster(2, 1);
    raster.colors.set([200, 0, 0, 100, 0, 0], 0); // two samples of the first pixel
    const { width, height, data } = PNG.sync.read(raster.toPng());
    assert.deepStrictEqual([width, height], [2, 1]);
    assert.deepStrictEqual(Array.from(data), [75, 0, 0, 255, 0, 0, 0, 255]);
  });

  it('computes the corners of a view volume', () => {
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

  it('computes bounds of points', () => {
    assert.deepStrictEqual(boundsOf([1, 2, 3]), { middle: [1, 2, 3], radius: 1, floor: 2 });
    assert.deepStrictEqual(boundsOf([0, -1, 0, 4, 3, 2]), {
      middle: [2, 1, 1],
      radius: 3,
      floor: -1,
    });
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

  it('computes the median of times', () => {
    assert.strictEqual(median(Float64Array.of(9, 1, 5)), 5);
    assert.strictEqual(median(Float64Array.of(10, 1, 2, 4)), 3);
    assert.strictEqual(median([]), 0);
  });
});
