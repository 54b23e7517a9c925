'use strict';
// Runs the examples: their output equals examples/expected, and the numbers there equal formulas that are computed here,
// without the module.
const assert = require('assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { spawnSync } = require('child_process');
const three = require('three');
const { importGltf } = require('../../../lib/gltf');
const { Model } = require('../../../lib/scene');
const { makeReed } = require('../../../examples/reed');
const { realModel } = require('../../fixtures/models');
const { assertCleanExit } = require('../support/child');
const { removeFolder } = require('../../../scripts/lib/run');

const folder = path.join(__dirname, '..', '..', '..', 'examples');
const kMostLines = 150;
const kSections = ['// What it shows: ', '// --- Set up', '// --- Frame', '// --- Print'];

const names = fs
  .readdirSync(folder)
  .filter((name) => /^\d\d-.*\.js$/.test(name))
  .map((name) => path.basename(name, '.js'));

const matrixFlow = process.env.NQ_MATRIXFLOW_MODULE;
const hasMatrixFlow = matrixFlow !== undefined && fs.existsSync(matrixFlow);

/** Runs an example, from a folder that is not its own. */
function run(name, args = [], extra = {}) {
  return spawnSync(process.execPath, [path.join(folder, `${name}.js`), ...args], {
    cwd: os.tmpdir(),
    encoding: 'utf8',
    env: Object.assign(
      {},
      process.env,
      absolute('NQ_MODULE'),
      absolute('NQ_MATRIXFLOW_MODULE'),
      extra
    ),
  });
}

/** A path of the environment, which may be given from the folder where the tests are run. */
function absolute(variable) {
  const value = process.env[variable];
  return value === undefined ? {} : { [variable]: path.resolve(value) };
}

function expectedLines(name) {
  const text = fs.readFileSync(path.join(folder, 'expected', `${name}.txt`), 'utf8');
  assert(text.endsWith('\n'));
  return text.slice(0, -1).split('\n');
}

/** All numbers of a line, names of things left out. */
function numbersIn(line) {
  return line.match(/-?\d+(\.\d+)?/g).map(Number);
}

/** Rounded as the examples do. */
function rounded(value, digits = 3) {
  return Number(value.toFixed(digits)) || 0;
}

describe('examples', () => {
  it('are numbered from 1 on, and each has its expected output', () => {
    assert.deepStrictEqual(
      names.map((name) => Number(name.slice(0, 2))),
      names.map((name, i) => i + 1)
    );
    assert.strictEqual(names.length, 15);
    const files = fs.readdirSync(path.join(folder, 'expected'));
    assert.deepStrictEqual(
      files.sort(),
      names.map((name) => `${name}.txt`)
    );
  });

  for (const name of names) {
    it(`${name} prints the expected output`, function () {
      if (name === '08-matrixflow' && !hasMatrixFlow) {
        this.skip();
      }
      const result = run(name);
      assertCleanExit(result);
      assert.deepStrictEqual(result.stdout.split('\n'), [...expectedLines(name), '']);
    });

    it(`${name} is short, with sections in the common order`, () => {
      const lines = fs.readFileSync(path.join(folder, `${name}.js`), 'utf8').split('\n');
      assert(lines.length < kMostLines, `${lines.length} lines`);
      const places = kSections.map((section) =>
        lines.findIndex((line) => line.trim().startsWith(section))
      );
      assert.strictEqual(places[0], 1);
      const sorted = places.slice().sort((a, b) => a - b);
      assert.deepStrictEqual(places, sorted);
      const command = `//   node examples/${name}.js`;
      assert(lines.some((line) => line.startsWith(command)));
    });
  }

  it('are all in the list of docs/examples.md, with their commands', () => {
    const text = fs.readFileSync(path.join(folder, '..', 'docs', 'examples.md'), 'utf8');
    const { files } = require('../../../package.json');
    for (const name of names) {
      // The package has the documents, and a link in them leads nowhere if it lacks the example.
      const isPacked = !files.includes(`!examples/${name}.js`);
      assert.strictEqual(isPacked, name !== '08-matrixflow');
      const shown = isPacked ? `[${name}](../examples/${name}.js)` : `\`examples/${name}.js\``;
      assert(text.includes(`| ${shown}`), name);
    }
  });

  it('name the missing module', () => {
    const missing = { NQ_MODULE: '/not/there.node', NQ_MATRIXFLOW_MODULE: '/not/there.node' };
    for (const name of names) {
      const result = run(name, [], missing);
      assert.strictEqual(result.status, 1, name);
      assert.strictEqual(result.stdout, '');
      const variable = name === '08-matrixflow' ? 'NQ_MATRIXFLOW_MODULE' : 'NQ_MODULE';
      const line = `'/not/there.node' (named by ${variable}): there is no such file.`;
      assert(result.stderr.includes(line), result.stderr);
    }
  });
});

// The expected numbers, without the module: plane geometry, and the formulas of docs/animation-reference.md.
const quarter = Math.PI / 2;

describe('expected numbers', () => {
  /** A vector rotated about z, then translated. */
  function turned([x, y], angle, [dx, dy] = [0, 0]) {
    const [sine, cosine] = [Math.sin(angle), Math.cos(angle)];
    return [cosine * x - sine * y + dx, sine * x + cosine * y + dy];
  }

  it('01: a child at x = 5 of a parent rotated by a quarter turn', () => {
    const lines = expectedLines('01-hello');
    const [x, y] = turned([5, 0], quarter, [1, 2]);
    assert.deepStrictEqual(
      numbersIn(lines[1]),
      [x, y, 3].map((value) => rounded(value))
    );
    assert.deepStrictEqual(
      lines.slice(2).map(numbersIn),
      [
        [1, 0],
        [0, 1],
      ].map((axis) => [...turned(axis, quarter), 0].map((value) => rounded(value)))
    );
  });

  it('02: circles about y', () => {
    const lines = expectedLines('02-transform-tree').filter((line) => line.startsWith('step'));
    // A rotation about y by a maps x to x cos a, -x sin a; angles of child and parent add up.
    const around = (radius, angle) => [radius * Math.cos(angle), 0, -radius * Math.sin(angle)];
    assert.strictEqual(lines.length, 7);
    lines.forEach((line, step) => {
      const sun = step * quarter;
      // In step 5 the planet rests where it was in step 4.
      const planet = around(10, step === 5 ? 4 * quarter : sun);
      const own = around(2, step < 4 ? 2 * sun : sun);
      const moon = step < 4 ? own.map((value, i) => value + planet[i]) : own;
      const places = [step, ...planet, ...moon].map((value) => rounded(value));
      assert.deepStrictEqual(numbersIn(line), places);
    });
  });

  it('03: spheres whose edge reaches into the view volume', () => {
    const lines = expectedLines('03-culling');
    const half = (40 * Math.PI) / 180;
    const balls = [0, 1, 2, 3, 4, 5, 6, 7];
    function view(direction, mask) {
      const seen = [];
      for (const ball of balls.filter((number) => mask === 3 || number % 2 === 0)) {
        const off = Math.abs((((ball - direction + 12) % 8) - 4) * (Math.PI / 4));
        const distance = 10 + ball;
        // How far the centre is outside of the plane on its side.
        if (distance * Math.sin(off - half) <= 1) {
          seen.push([ball, rounded(distance * Math.cos(off))]);
        }
      }
      return seen.sort((a, b) => a[1] - b[1]);
    }
    const views = [0, 1, 2, 3, 3].map((ball) => [ball, view(ball, 3)]).concat([[0, view(0, 2)]]);
    views.forEach(([ball, seen], i) => {
      assert.deepStrictEqual(numbersIn(lines[i]), [ball, ...[].concat(...seen)], lines[i]);
    });
    assert.deepStrictEqual(
      lines.map((line) => line.endsWith('the same list as before')),
      [false, false, false, false, true, false, false]
    );
    assert(lines[6].endsWith(': nothing'));
  });

  it('04: a cubic with flat ends, a weighted mean, and a slerp', () => {
    const lines = expectedLines('04-animator');
    [1, 1, 0.75, 0.5, 0.25, 0].forEach((weight, step) => {
      const t = (step % 4) / 4; // of the 60 frames after which the clip starts again
      const low = 2 * (3 * t * t - 2 * t * t * t);
      const height = weight * low + (1 - weight) * 4;
      const angle = weight * 20 + (1 - weight) * 60;
      assert.deepStrictEqual(
        numbersIn(lines[step]),
        [step, weight, 15 * step, 1 - weight, height, angle].map((value) => rounded(value, 2))
      );
    });
  });

  it('05: the last override layer wins where its mask allows it, breath is added', () => {
    const walk = [10, -30, 30, 1];
    const waved = [10, -30, 140, 1];
    const breath = 1.2 - 1; // what differs from its first frame
    const rest = 0;
    const wanted = [
      walk,
      [40, 50, 140, 1],
      waved,
      [10, -30, (rest + 140) / 2, 1], // halfway between two quaternions is half of the angle
      [...waved.slice(0, 3), 1 + breath],
      [...waved.slice(0, 3), 1 + breath / 2],
    ];
    assert.deepStrictEqual(
      expectedLines('05-controller-layers').map(numbersIn),
      wanted.map((values) => values.map((value) => rounded(value)))
    );
  });

  it('06: a reed that bends in two joints by the same angle', () => {
    const lines = expectedLines('06-skinning');
    assert.deepStrictEqual(numbersIn(lines[0]), [3, 8, 2]);
    [0, 0.5, 1, 0.5].forEach((bend, i) => {
      const angle = bend * quarter;
      // A vertex in the space of each joint, in the world: joint k is at the end of k - 1.
      const second = turned([0, 1], angle, [0, 1]);
      const joints = [
        (x, y) => [x, y],
        (x, y) => turned([x, y - 1], angle, [0, 1]),
        (x, y) => turned([x, y - 2], 2 * angle, second),
      ];
      const places = [];
      for (const y of [0, 1, 2, 3]) {
        for (const x of [-0.25, 0.25]) {
          const [a, b] = [Math.max(0, y - 1), Math.min(y, 2)].map((joint) => joints[joint](x, y));
          places.push([(a[0] + b[0]) / 2, (a[1] + b[1]) / 2]);
        }
      }
      const bounds = [0, 1].map((axis) => places.map((place) => place[axis]));
      const [x, y] = bounds.map((values) => [Math.min(...values), Math.max(...values)]);
      const wanted = [i / 2, ...x, ...y, 0, 0].map((value) => rounded(value));
      assert.deepStrictEqual(numbersIn(lines[i + 1]), wanted);
    });
  });

  it('07: a hand on a circle, a sword with and without a frame of lag', () => {
    const lines = expectedLines('07-bone-sockets');
    const hand = (quarters) => turned([1, 0], quarters * quarter);
    // Position and rotation of the sword, as the quarter turn of the hand that it shows; or on the ground.
    const ground = { place: [5, 0], angle: 0 };
    const follow = (quarters) => ({ place: hand(quarters), angle: quarters * quarter });
    const steps = [
      [0, ground],
      [1, ground],
      [2, follow(1)],
      [3, follow(3)],
      [4, follow(4)],
      [1, follow(4)],
    ];
    steps.forEach(([quarters, { place, angle }], i) => {
      const tip = turned([0, 1], angle, place);
      const wanted = [...hand(quarters), 0, ...place, 0, ...tip, 0].map((value) => rounded(value));
      assert.deepStrictEqual(numbersIn(lines[i]), wanted, lines[i]);
    });
    assert.strictEqual(lines.length, steps.length);
  });

  it('09: spheres of characters that a frustum of three.js meets, in the middle of a crossfade', async () => {
    const lines = expectedLines('09-scene');
    assert.strictEqual(lines[0], 'bend 0.50, sway 0.50; skins of 3 joints');
    const { bounds } = await Model.load(makeReed(['bend', 'sway']));
    const size = 2 * bounds.radius;
    const camera = new three.PerspectiveCamera(45, 16 / 9, 0.1, 100 * size);
    camera.position.set(4.5 * size, 2 * size, 3 * size);
    camera.lookAt(4.5 * size, 0, -2 * size);
    camera.updateMatrixWorld();
    const product = new three.Matrix4().multiplyMatrices(
      camera.projectionMatrix,
      camera.matrixWorldInverse
    );
    const frustum = new three.Frustum().setFromProjectionMatrix(product);
    const rows = [0, 1, 2, 3, 4].map((row) => {
      const columns = [0, 1, 2, 3, 4, 5, 6, 7, 8, 9].filter((column) => {
        const place = new three.Vector3(size * column, 0, -size * row);
        const center = new three.Vector3(...bounds.center).add(place);
        return frustum.intersectsSphere(new three.Sphere(center, bounds.radius));
      });
      return [row, ...columns];
    });
    assert.deepStrictEqual(lines.slice(2).map(numbersIn), rows);
    const count = rows.reduce((sum, row) => sum + row.length - 1, 0);
    assert.deepStrictEqual(numbersIn(lines[1]), [count, 50]);
  });

  it('10: the tip of a reed, by rotations of three.js: shares of a mask, and of what is added', () => {
    const lines = expectedLines('10-layers');
    const about = (axis, angle) => {
      return new three.Quaternion().setFromAxisAngle(new three.Vector3(...axis), angle);
    };
    const bend = about([0, 0, 1], quarter);
    const sway = about([1, 0, 0], quarter);
    // Half of each, as a sum: what is half of the way on the arc, too.
    const half = bend.clone().slerp(sway, 0.5);
    // x, y and z of what is added count by the weight, w in full.
    const added = (weight) => about([0, 0, 1], 2 * Math.atan(weight * Math.tan(quarter / 2)));
    const ended = about([0, 0, 1], quarter / 2);
    const turns = [bend, sway, half, bend, added(0.5).multiply(bend), added(0.25).multiply(bend)];
    // The joint that bends is one unit above the ground, the next one unit above it, and so is the tip.
    const up = new three.Vector3(0, 1, 0);
    const wanted = [...turns, ended].map((turn) => {
      const tip = up.clone().applyQuaternion(turn).add(up).applyQuaternion(bend).add(up);
      return tip.toArray().map((value) => rounded(value));
    });
    const shown = lines.filter((line) => line.includes('tip at'));
    assert.deepStrictEqual(
      shown.map((line) => numbersIn(line.slice(line.indexOf('tip at')))),
      wanted
    );
    assert.strictEqual(lines.length, 8);
    assert.strictEqual(lines[6], 'sway of layer upper has ended');
  });

  it('11: places of a lantern in a bending hand, and of its flame', () => {
    const lines = expectedLines('11-sockets');
    // Both joints are turned by the same angle, up to 90 degrees in a second and back: each turns what is above it.
    const up = (angle, length) => [-length * Math.sin(angle), length * Math.cos(angle)];
    const inHand = (seconds, x, length) => {
      const angle = (Math.PI / 2) * (1 - Math.abs(1 - seconds));
      const [hand, held] = [up(angle, 1), up(2 * angle, length)];
      return [x + hand[0] + held[0], 1 + hand[1] + held[1], 0];
    };
    // Seconds in the clip, and the place of the reed.
    const steps = [
      [0.5, 0],
      [0.75, 0],
      [0.25, 4],
      [0.75, 4],
    ];
    steps.forEach(([seconds, x], i) => {
      const wanted = [...inHand(seconds, x, 0.5), ...inHand(seconds, x, 0.75)];
      const numbers = numbersIn(lines[i]);
      assert.strictEqual(numbers[0], seconds);
      assert.deepStrictEqual(
        numbers.slice(1),
        wanted.map((value) => rounded(value))
      );
    });
    const [x] = inHand(0.75, 4, 0.5);
    const dropped = [x, 0, 0, x, 0.25, 0].map((value) => rounded(value));
    assert.deepStrictEqual(lines.slice(4).map(numbersIn), [dropped, dropped]);
  });

  /** The frustum of a camera of three.js. */
  function frustumOf(camera) {
    camera.updateMatrixWorld();
    const { projectionMatrix, matrixWorldInverse } = camera;
    return new three.Frustum().setFromProjectionMatrix(
      projectionMatrix.clone().multiply(matrixWorldInverse)
    );
  }

  const meets = (frustum, [x, y, z], radius) =>
    frustum.intersectsSphere(new three.Sphere(new three.Vector3(x, y, z), radius));

  it('12: spheres that frustums of three.js meet', () => {
    const lines = expectedLines('12-culling');
    const frustums = [5, 75].map((x) => {
      const camera = new three.PerspectiveCamera(60, 8 / 9, 0.1, 50);
      camera.position.set(x, 3, 90);
      camera.lookAt(40, 3, 40);
      return frustumOf(camera);
    });
    const grid = Array.from({ length: 81 }, (_, i) => [10 * (i % 9), 2, 10 * Math.floor(i / 9)]);
    let last = null;
    const wanted = [0, 1, 2, 3, 4, 5].map((step) => {
      const animals = [5, 25, 45].map((z) => [15 + 13 * step, 1, z]);
      const count = (frustum, places, radius) =>
        places.filter((place) => meets(frustum, place, radius)).length;
      const trees = frustums.map((frustum) => count(frustum, grid, 2.5));
      const seen = frustums.map((frustum, i) => trees[i] + count(frustum, animals, 1));
      // The map shows x and z from 18 to 62.
      const names = ['fox', 'owl', 'boar'].filter((_, i) => {
        const [x, , z] = animals[i];
        return [x, z].every((value) => Math.abs(value - 40) < 22 + 1);
      });
      const list = names.sort().join(' ') || 'nobody';
      const change = list === last ? 'as before' : list;
      last = list;
      const counts = `${seen.join(' and ')} seen, ${trees.join(' and ')} of them trees`;
      return `step ${step}: ${counts}; map: ${change}`;
    });
    assert.deepStrictEqual(lines, wanted);
    const maps = lines.map((line) => line.split('map: ')[1]);
    assert.deepStrictEqual(maps, [
      'nobody',
      'boar owl',
      ...Array(2).fill('as before'),
      'nobody',
      'as before',
    ]);
  });

  it('13: counts of nodes, passes and ends, and reeds that a frustum of three.js meets', async () => {
    const lines = expectedLines('13-crowd');
    const { bounds } = await Model.load(makeReed(['bend', 'sway']));
    const camera = new three.PerspectiveCamera(40, 16 / 9, 0.1, 80);
    camera.position.set(58, 5, 10);
    camera.lookAt(58, 1, -50);
    const frustum = frustumOf(camera);
    /** Reeds in view, of 900 from a number on. */
    const inView = (first) => {
      return Array.from({ length: 900 }, (_, i) => first + i).filter((i) => {
        const [x, y, z] = bounds.center;
        const place = [x + 4 * (i % 30), y, z - 4 * Math.floor(i / 30)];
        return meets(frustum, place, bounds.radius);
      }).length;
    };
    // A reed has four nodes and itself. It takes a command of 12 bytes to link each, and there is room for 49,148.
    const passes = Math.ceil((12 * 5 * 900) / 49148);
    const rows = [
      [0, passes, 0, 0],
      [11, 1, 0, 450], // those that do not loop began in the middle of two seconds
      [12, 1, 100, 450],
      [13, 1, 200, 450],
      [14, 1, 300, 450],
    ];
    assert.deepStrictEqual(
      lines.slice(0, -1).map(numbersIn),
      rows.map(([frame, count, first, ended]) => [
        ...[frame, 5 * 900, count, 900],
        ...[inView(first), ended],
      ])
    );
    assert.deepStrictEqual(numbersIn(lines[5]), [1200, 900, inView(300)]);
    assert.strictEqual(new Set(rows.map(([, , first]) => inView(first))).size, 4);
  });

  it('15: circles about y, and rooms that stay in their Worker', () => {
    const lines = expectedLines('15-rooms');
    assert.strictEqual(lines[0], 'rooms by Worker: 0 2 4, 1 3 5');
    assert.deepStrictEqual(numbersIn(lines[1]), [0]); // what is transferred leaves nothing behind
    assert.strictEqual(lines.length, 8);
    lines.slice(2).forEach((line, id) => {
      // 90 ticks of 1/60 second; the last player is as far away as there are players.
      const [angle, players] = [0.25 * (1 + id) * 1.5, 2 + id];
      const place = [players * Math.cos(angle), -players * Math.sin(angle)];
      const wanted = [id, players, ...place.map((value) => rounded(value, 2))];
      assert.deepStrictEqual(numbersIn(line), wanted);
    });
  });

  it('14: a reed that bends by 45 degrees, and the stones that a frustum of three.js meets', () => {
    const lines = expectedLines('14-interop');
    const angle = quarter / 2;
    const second = turned([0, 1], angle, [2, 1]);
    // A vertex or a lamp above the second joint, by both angles.
    const above = (x, y) => [...turned([x, y], 2 * angle, second), 0];
    assert.deepStrictEqual(
      numbersIn(lines[0]),
      [...above(0.25, 1), ...above(0, 1)].map((value) => rounded(value))
    );
    const camera = new three.PerspectiveCamera(60, 16 / 9, 0.1, 100);
    camera.position.set(12, 1, 5);
    const frustum = frustumOf(camera);
    const seen = Array.from({ length: 20 }, (_, i) => new three.Vector3(3 * i, 0, -i))
      .filter((place) => meets(frustum, place.toArray(), 0.9))
      .map(({ x }) => x);
    assert(seen.length > 5 && seen.length < 15);
    assert.deepStrictEqual(numbersIn(lines[1]), seen);
  });

  it('08: throws of known speeds', () => {
    // Speed falls by 1/8 per frame, before the move: after n frames of 1/64 s, a speed of s at first has
    // led to (s n - n (n + 1) / 16) / 64. All of it is exact in floats.
    const height = (s, n) => (s * n - (n * (n + 1)) / 16) / 64;
    const all = Array.from({ length: 64 }, (_, i) => height(4, i + 1));
    assert.deepStrictEqual(expectedLines('08-matrixflow'), [
      '4 particles, 64 frames, 14 commands a frame',
      ...[0, 1, 2, 3].map(
        (i) => `particle ${i}: x 1, height ${height(4 + i, 64)}, speed ${4 + i - 8}`
      ),
      `highest point of particle 0: ${Math.max(...all)}`,
      `last height kept: ${all[63]}`,
    ]);
  });
});

describe('15-rooms', () => {
  it('gives the engine of a closed room to the next one', () => {
    const { open, tick, close } = require('../../../examples/rooms-worker');
    const places = new Float32Array(6);
    const threads = [];
    [1, 2, 3].forEach((id) => {
      open({ id, options: { players: 2, radiansPerSecond: id * quarter } });
      threads.push(fs.readdirSync('/proc/self/task').length);
      tick({ id, seconds: 1, places });
      const around = (radius) => {
        return [radius * Math.cos(id * quarter), 0, -radius * Math.sin(id * quarter)];
      };
      const wanted = [...around(1), ...around(2)].map((value) => rounded(value));
      assert.deepStrictEqual(
        Array.from(places, (value) => rounded(value)),
        wanted
      );
      close({ id });
    });
    // An engine has threads of its own.
    assert(threads[0] > 4 && threads[2] === threads[0], threads.join());
  });

  it('refuses rooms that are not in the Worker', () => {
    const { tick, close } = require('../../../examples/rooms-worker');
    const message = 'room 7 is not in this Worker: open it again from its last snapshot.';
    for (const call of [tick, close]) {
      assert.throws(() => call({ id: 7 }), { name: 'RangeError', message });
    }
  });
});

describe('06-skinning', () => {
  let temporary;

  before(() => {
    temporary = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-examples-'));
  });

  after(() => {
    removeFolder(temporary);
  });

  it('loads a file, here its own generated model', async () => {
    const file = path.join(temporary, 'reed.gltf');
    const script = path.join(folder, 'reed.js');
    assertCleanExit(spawnSync(process.execPath, [script, file], { encoding: 'utf8' }));
    assert(fs.readFileSync(file).equals(makeReed()));
    assert.deepStrictEqual((await importGltf(file)).warnings, []);
    const result = run('06-skinning', [file]);
    assertCleanExit(result);
    assert.deepStrictEqual(result.stdout.split('\n'), [...expectedLines('06-skinning'), '']);
  });

  it('loads a real model', function () {
    const result = run('06-skinning', [realModel(this, 'Fox.glb')]);
    assertCleanExit(result);
    const lines = result.stdout.trim().split('\n');
    assert.strictEqual(lines[0], 'Survey: 24 joints, 1728 vertices, 3.417 seconds');
    for (const line of lines.slice(1)) {
      // As tall, wide and long as a fox in its file's units, whatever it does.
      const [x, y, z] = line.match(/-?[\d.]+ to -?[\d.]+/g).map((part) => {
        const [least, most] = part.split(' to ').map(Number);
        return most - least;
      });
      assert(x > 10 && x < 60 && y > 60 && y < 100 && z > 100 && z < 180, line);
    }
    assert.strictEqual(lines.length, 5);
  });

  it('says what is wrong with a file', () => {
    const bare = path.join(temporary, 'bare.gltf');
    fs.writeFileSync(bare, '{ "asset": { "version": "2.0" }, "nodes": [{}] }');
    const cases = [
      ['/not/there.glb', /it can't be read, there is no such file/],
      [bare, /^The model has no skin or no animation: give another file\.\n$/],
    ];
    for (const [file, words] of cases) {
      const result = run('06-skinning', [file]);
      assert.strictEqual(result.status, 1);
      assert.strictEqual(result.stdout, '');
      assert(words.test(result.stderr), result.stderr);
    }
  });
});
