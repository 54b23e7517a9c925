'use strict';
// Every JavaScript benchmark runs once on a tiny budget. Its times are then meaningless; the tests check that
// contenders agree, that every workload reports, and that a disagreement is detected.
const assert = require('assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { spawnSync } = require('child_process');

const folder = path.join(__dirname, '..', '..', '..', 'bench', 'script');
const { assertSameMatrices } = require(path.join(folder, 'lib', 'compare.js'));
const animation = require(path.join(folder, 'lib', 'animation-scene.js'));
const matrixFlow = require(path.join(folder, 'lib', 'matrixflow-scene.js'));
const { isBuilt } = require(path.join(folder, 'contenders', 'matrixflow-native.js'));
const controllers = require(path.join(folder, 'lib', 'controllers-scene.js'));
const cores = require(path.join(folder, 'lib', 'cores.js'));
const hosts = require(path.join(folder, 'lib', 'hosts.js'));
const measure = require(path.join(folder, 'lib', 'measure.js'));
const scenes = require(path.join(folder, 'lib', 'scenes.js'));
const { parseOptions } = require(path.join(folder, 'lib', 'options.js'));

/** Runs the benchmarks' entry in a child process and returns its result. */
function runBenchmarks(args) {
  return spawnSync(process.execPath, [path.join(folder, 'run.js'), ...args], { encoding: 'utf8' });
}

/** All numbers in a report, with the path to each. */
function numbersIn(value, at) {
  if (typeof value === 'number' || value === null) {
    return [{ at, value }];
  }
  return typeof value === 'object'
    ? [].concat(...Object.keys(value).map((key) => numbersIn(value[key], `${at}.${key}`)))
    : [];
}

describe('JavaScript benchmarks', () => {
  const workloads = fs
    .readdirSync(path.join(folder, 'workloads'))
    .map((file) => path.basename(file, '.js'));

  it('compare builds of the module, and describe their options', () => {
    const place = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-builds-'));
    const copy = path.join(place, 'copy.node');
    fs.copyFileSync(process.env.NQ_MODULE, copy);
    const compare = (...args) =>
      spawnSync(process.execPath, [path.join(folder, 'builds.js'), ...args], { encoding: 'utf8' });
    const child = compare(process.env.NQ_MODULE, copy, '--rounds', '3', '--characters', '2');
    const absent = compare(process.env.NQ_MODULE, path.join(place, 'absent.node'));
    fs.unlinkSync(copy);
    fs.rmdirSync(place);
    assert.strictEqual(child.stderr, '');
    assert.strictEqual(child.status, 0);
    const [head, first, second, end] = child.stdout.split('\n');
    assert.strictEqual(head, 'frames of 2 characters, 3 of each build; microseconds');
    assert.ok(first.startsWith(`${process.env.NQ_MODULE}: best `), first);
    assert.ok(first.endsWith('pairs 0.00 %') && !second.includes('NaN'), child.stdout);
    assert.ok(second.startsWith(`${copy}: best `) && end === '', second);
    assert.strictEqual(absent.status, 1);
    assert.ok(absent.stderr.includes('absent.node'), absent.stderr);
    for (const args of [
      ['a.node'],
      ['a.node', 'b.node', '--round', '3'],
      ['a', 'b', '--rounds=3'],
    ]) {
      const { status, stderr } = compare(...args);
      assert.strictEqual(status, 1);
      assert.ok(/^builds: [^\n]+: builds\.js FILE\.node /.test(stderr), stderr);
    }
  });

  for (const name of workloads) {
    // Command buffers are only available to JavaScript in a separate build.
    (name === 'matrixflow' && !isBuilt ? it.skip : it)(
      `${name} runs on a tiny budget and reports numbers`,
      () => {
        const report = path.join(
          fs.mkdtempSync(path.join(os.tmpdir(), 'nq-bench-')),
          'report.json'
        );
        const child = runBenchmarks(['--budget', 'tiny', '--only', name, '--json', report]);
        assert.strictEqual(child.status, 0, child.stderr);
        assert.ok(child.stdout.includes(`### ${name}: `), child.stdout);
        const { results, largest } = JSON.parse(fs.readFileSync(report, 'utf8'));
        fs.unlinkSync(report);
        fs.rmdirSync(path.dirname(report));
        assert.deepStrictEqual(Object.keys(results), [name]);
        const numbers = numbersIn(results, name);
        assert.notStrictEqual(numbers.length, 0);
        for (const { at, value } of numbers) {
          assert.ok(Number.isFinite(value), `${at} is ${value}`);
        }
        assert.strictEqual(largest.length > 0, hosts.compared.includes(name), largest.length);
        for (const { work, unit, times } of largest) {
          assert.ok(work.startsWith(`${name}: `) && /^(ns|us) per /.test(unit), `${work}, ${unit}`);
          assert.ok(times.nq > 0 && (times.typed > 0 || times.three > 0), JSON.stringify(times));
        }
      }
    );
  }

  it('refuse an unknown workload', () => {
    const child = runBenchmarks(['--only', 'nothing']);
    assert.strictEqual(child.status, 1);
    assert.ok(child.stderr.includes('--only is one of'), child.stderr);
  });

  it('state the version of Node, the CPU and the cores that they may use', () => {
    const { stdout } = runBenchmarks(['--budget', 'tiny', '--only', 'idle']);
    const count = cores.allowedCpus().length;
    const used = `${count} ${count === 1 ? 'core' : 'cores'}`;
    const machine = `${os.cpus()[0].model}, ${used}, Node ${process.version}; `;
    assert.strictEqual(stdout.split('\n')[0], `${machine}median of 1 rounds`);
  });

  it('run on one core and with cold caches, and report the CPU time of all threads', () => {
    const report = path.join(fs.mkdtempSync(path.join(os.tmpdir(), 'nq-bench-')), 'report.json');
    const args = ['--budget', 'tiny', '--only', 'controllers', '--cores', '1', '--caches', 'cold'];
    const { status, stdout, stderr } = runBenchmarks([...args, '--json', report]);
    assert.strictEqual(status, 0, stderr);
    const [machine] = stdout.split('\n');
    assert.ok(machine.includes(`, 1 core, Node ${process.version}; `), machine);
    assert.ok(machine.endsWith(', caches cold'), machine);
    const { machine: used, results } = JSON.parse(fs.readFileSync(report, 'utf8'));
    fs.unlinkSync(report);
    fs.rmdirSync(path.dirname(report));
    assert.strictEqual(used.cpus, 1);
    // On one core it is below the wall time. In all together: the system charges a thread at its next tick, so that a
    // short run may pay for what ran before it.
    const { crowds } = results.controllers;
    const sumOf = (name) => crowds.reduce((sum, row) => sum + row[name].three, 0);
    const [wall, cpu] = [sumOf('nanosecondsPerBone'), sumOf('cpuNanosecondsPerBone')];
    assert.ok(crowds.length > 1 && cpu > 0 && cpu < 1.25 * wall, `${cpu} of ${wall}`);
  });

  it('refuse values that an option does not have, and list the options', () => {
    const given = [
      [['--caches', 'tepid'], 'Error: --caches is one of warm, cold, not "tepid"'],
      [['--statistic', 'mean'], 'Error: --statistic is one of median, best, not "mean"'],
      [['--cores', '0'], 'Error: --cores is a whole number from 1 up, not "0"'],
      [['--cores', '4096'], 'Error: --cores is 4096, but this process may run on '],
    ];
    for (const [args, message] of given) {
      const { status, stderr } = runBenchmarks(args);
      assert.strictEqual(status, 1);
      assert.ok(stderr.startsWith(message), stderr);
    }
    const { status, stdout } = runBenchmarks(['--help']);
    assert.strictEqual(status, 0);
    const listed = stdout.match(/^ {2}--\w+/gm).map((name) => name.slice(4));
    assert.deepStrictEqual(listed, Object.keys(parseOptions([], [])));
  });

  it('read lists of CPUs in the form of the kernel', () => {
    assert.deepStrictEqual(cores.parseCpuList('3'), [3]);
    assert.deepStrictEqual(cores.parseCpuList('0-2,5,8-9'), [0, 1, 2, 5, 8, 9]);
  });

  it('measure only the largest cases', () => {
    const report = path.join(fs.mkdtempSync(path.join(os.tmpdir(), 'nq-bench-')), 'report.json');
    const largestOf = (cases) => {
      const args = ['--budget', 'tiny', '--only', 'transform', '--cases', cases, '--json', report];
      assert.strictEqual(runBenchmarks(args).status, 0);
      const { results, largest } = JSON.parse(fs.readFileSync(report, 'utf8'));
      fs.unlinkSync(report);
      return { measured: results.transform.frames.length, works: largest.map(({ work }) => work) };
    };
    const all = largestOf('all');
    const few = largestOf('largest');
    fs.rmdirSync(path.dirname(report));
    assert.strictEqual(few.works.length, 6);
    assert.deepStrictEqual(few.works, all.works);
    assert.strictEqual(few.measured, 6);
    assert.strictEqual(all.measured, 24);
  });
});

describe('measurement', () => {
  const budget = { rounds: 3, milliseconds: 0, warmUps: 1 };
  after(() => measure.evictCaches(false));

  it('reports the shortest run and the median of the rounds, whichever is chosen', () => {
    let sum = 0;
    const work = (count) => () => {
      for (let i = 0; i < count; ++i) {
        sum += Math.sqrt(i);
      }
    };
    for (const prepared of [false, true]) {
      const runs = [work(2e3), work(2e5)];
      const times = prepared
        ? measure.interleavePrepared(
            runs.map((run) => ({ prepare() {}, run })),
            budget
          )
        : measure.interleave(runs, budget);
      assert.deepStrictEqual(Array.from(times), times.median);
      times.best.forEach((best, c) => {
        assert.ok(best > 0 && best <= times.median[c], `${best}, ${times.median[c]}`);
      });
      // A hundred times the work, and the CPU time to show for it.
      assert.ok(times.best[1] > 5 * times.best[0], times.best.join());
      assert.ok(times.cpu[1] > 1e5 && times.cpu[1] > 5 * times.cpu[0], times.cpu.join());
    }
    assert.ok(sum > 0);
  });

  it('times one run after each eviction of the caches, and few of them', () => {
    measure.evictCaches(true);
    const numbers = [];
    measure.interleave([(run) => numbers.push(run)], {
      rounds: 1,
      milliseconds: 1000,
      warmUps: 1,
    });
    measure.evictCaches(false);
    // A round for the compiler and a timed one, of a warm-up and eight runs each.
    assert.deepStrictEqual(
      numbers,
      Array.from({ length: 18 }, (_, i) => i)
    );
  });
});

describe('comparison of hosts', () => {
  const cases = (...times) => [{ work: 'w', unit: 'ns', times: { nq: times[0], typed: times[1] } }];

  it('reports the median of the rounds, or the shortest time', () => {
    const turns = [cases(4, 10), cases(2, 40)];
    assert.deepStrictEqual(hosts.mergeTurns(turns, 'median'), cases(3, 25));
    assert.deepStrictEqual(hosts.mergeTurns(turns, 'best'), cases(2, 10));
  });

  it('prints times of hosts side by side, and ratios to the module', () => {
    const { columns, rows } = hosts.tableOf(['12', '24'], [cases(4, 10), cases(2, 8)]);
    assert.deepStrictEqual(columns, [
      'work',
      'unit',
      ...['nq 12', 'nq 24', 'typed 12', 'typed 24', 'three 12', 'three 24'],
      ...['typed/nq 12', 'typed/nq 24', 'three/nq 12', 'three/nq 24'],
      'nq 24/12',
    ]);
    assert.strictEqual(rows.length, 1);
    assert.deepStrictEqual(rows[0].slice(0, 6), ['w', 'ns', 4, 2, 10, 8]);
    assert.deepStrictEqual(rows[0].slice(8, 10), [2.5, 4]);
    assert.strictEqual(rows[0][12], 0.5);
    const none = rows[0].filter((value) => value === undefined || Number.isNaN(value));
    assert.strictEqual(none.length, 4);
  });

  /** Compares two mock hosts, in a child process since it prints. */
  function compareTwo(args, program = process.execPath) {
    const file = JSON.stringify(path.join(folder, 'lib', 'hosts.js'));
    const both = JSON.stringify([
      { name: 'a', program: process.execPath, environment: {} },
      { name: 'b', program, environment: { NQ_MODULE: process.env.NQ_MODULE } },
    ]);
    const script = `require(${file}).compareHosts(${both}, ${JSON.stringify(args)});`;
    return spawnSync(process.execPath, ['-e', script], { encoding: 'utf8' });
  }

  it('prints one table of the largest case of each workload on each host', () => {
    const { status, stdout, stderr } = compareTwo(['--budget', 'tiny', '--only', 'sweep']);
    assert.strictEqual(stderr, '== sweep, a\n== sweep, b\n');
    assert.strictEqual(status, 0);
    const [machine, , title, , head, , ...rows] = stdout.trim().split('\n');
    assert.ok(machine.includes(`cores, Node ${process.version}, ${process.version}; `), machine);
    assert.strictEqual(title, '### hosts: the largest case of each workload');
    assert.ok(/^\| work +\| unit +\| nq a \| nq b \| typed a /.test(head), head);
    const works = rows.map((row) => row.split('|')[1].trim());
    assert.deepStrictEqual(works, [
      'sweep: 1 of 400 nodes change',
      'sweep: 316 of 400 nodes change',
    ]);
  });

  it('reports what failed on which host, and what can be compared', () => {
    const { status, stderr } = compareTwo(['--budget', 'tiny', '--only', 'idle'], '/bin/false');
    assert.strictEqual(status, 1);
    assert.ok(stderr.includes('Error: idle failed, b (exit code 1).'), stderr);
    assert.ok(
      compareTwo(['--only', 'memory']).stderr.includes('--only is one of transform, sweep')
    );
    assert.ok(compareTwo(['--cases', 'all']).stderr.includes('leave --cases out'));
  });
});

describe('comparison of contenders', () => {
  const matrices = () => Float32Array.from({ length: 32 }, (_, i) => i - 10);

  it('accepts rounding differences', () => {
    const rounded = matrices().map((value) => value * (1 + 1e-6));
    assert.doesNotThrow(() => assertSameMatrices('m', matrices(), rounded));
  });

  it('names the node and the element that differ', () => {
    const wrong = matrices();
    wrong[16 + 3] += 0.01;
    assert.throws(() => assertSameMatrices('m', matrices(), wrong), /node 1, element 3/);
  });

  it('refuses NaN, a missing matrix and an empty set', () => {
    const wrong = matrices();
    wrong[5] = NaN;
    assert.throws(() => assertSameMatrices('m', matrices(), wrong), /node 0, element 5/);
    assert.throws(() => assertSameMatrices('m', wrong, matrices()), /node 0, element 5/);
    assert.throws(() => assertSameMatrices('m', matrices(), matrices().subarray(0, 16)));
    assert.throws(() => assertSameMatrices('m', new Float32Array(0), new Float32Array(0)));
  });
});

describe('comparison of animated bones', () => {
  const { assertMoved, assertSamePose, bones, channelCount, interpolationTolerance } = animation;
  const tolerance = { linear: 0.01, translation: 0.1 };
  const pose = () => Float32Array.from({ length: 16 * (bones + 2) }, (_, i) => (i % 32) - 10);
  const compare = (change) => {
    const changed = pose();
    change(changed);
    return () => assertSamePose('m', pose(), changed, tolerance);
  };

  it('accepts differences within the tolerance of each column', () => {
    const within = compare((m) => {
      m[16] += 0.009;
      m[16 + 13] -= 0.09;
    });
    assert.doesNotThrow(within);
  });

  it('names the bone, the character and the element that differ', () => {
    const linear = compare((m) => {
      m[16 * (bones + 1) + 11] += 0.011;
    });
    assert.throws(linear, /bone 1 of character 1, element 11/);
    const translation = compare((m) => {
      m[16 + 12] -= 0.11;
    });
    assert.throws(translation, /bone 1 of character 0, element 12/);
  });

  it('refuses NaN, a missing matrix and an empty set', () => {
    const wrong = pose();
    wrong[5] = NaN;
    assert.throws(() => assertSamePose('m', pose(), wrong, tolerance), /element 5/);
    assert.throws(() => assertSamePose('m', wrong, pose(), tolerance), /element 5/);
    assert.throws(() => assertSamePose('m', pose(), pose().subarray(16), tolerance));
    assert.throws(() => assertSamePose('m', new Float32Array(0), new Float32Array(0), tolerance));
  });

  it('detects a bone that does not move', () => {
    const after = pose().map((value) => value + 0.5);
    assert.doesNotThrow(() => assertMoved('m', pose(), after));
    after.set(pose().subarray(32, 48), 32);
    assert.throws(() => assertMoved('m', pose(), after), /bone 2 does not move/);
  });

  it('derives the tolerance of linear interpolation from curvature and depth', () => {
    // One number goes 0, 1, 0: a second difference of 2, an eighth of which is 0.25. Its matrix differs
    // by 2 x 2 x 0.25 at most, and one bone below another by twice that.
    const values = new Float32Array(3 * channelCount);
    values[channelCount + 8] = 1;
    const ofDepth = (parents) => interpolationTolerance({ clips: [{ values }], parents }).linear;
    assert.ok(Math.abs(ofDepth([-1]) - 1) < 1e-4);
    assert.ok(Math.abs(ofDepth([-1, 0, 0]) - 2) < 1e-4);
  });
});

describe('numberings of trees', () => {
  const { buildTree, numberingNames, renumber } = scenes;

  it('keep nodes in their batch, each at a place of its own', () => {
    const tree = buildTree('humanoids', 300);
    for (const numbering of numberingNames) {
      const { places, parents } = renumber(tree, numbering, 100);
      assert.strictEqual(parents, tree.parents);
      assert.deepStrictEqual(
        Array.from(places).sort((a, b) => a - b),
        Array.from(places.keys())
      );
      places.forEach((place, node) => {
        assert.strictEqual(Math.floor(place / 100), Math.floor(node / 100), `${numbering} ${node}`);
      });
    }
  });

  it('are depth first, limb by limb, and random', () => {
    const tree = buildTree('humanoids', 100);
    const [plain, limbs, random] = numberingNames.map((name) => renumber(tree, name, 200).places);
    assert.deepStrictEqual(Array.from(plain), Array.from(plain.keys()));
    // The root, then the trunks and heads of both characters, 10 bones each, then the first arms, 16 each.
    assert.deepStrictEqual(
      [0, 1, 10, 51, 60, 11, 26, 61].map((node) => limbs[node]),
      [0, 1, 10, 11, 20, 21, 36, 37]
    );
    const kept = random.filter((place, node) => place === node);
    assert.ok(kept.length < 20, `${kept.length} nodes are where they were`);
  });
});

describe('scene of controllers', () => {
  const { bones, channelCount, keyCount } = animation;
  const { createControllerScene, isMasked, mixerTolerance } = controllers;

  it('rotates each bone about the same axis in all clips', () => {
    const { clips } = createControllerScene(1);
    const axisOf = ({ values }, bone) => {
      for (let key = 0; key < keyCount; ++key) {
        const axis = values.subarray(
          key * channelCount + 4 * bone,
          key * channelCount + 4 * bone + 3
        );
        const length = Math.hypot(...axis);
        if (length > 0.05) {
          return Array.from(axis, (value) => value / length);
        }
      }
      throw new Error(`bone ${bone} hardly turns`);
    };
    for (let bone = 0; bone < bones; ++bone) {
      const [first, ...others] = clips.map((clip) => axisOf(clip, bone));
      for (const other of others) {
        const along = first.reduce((sum, value, i) => sum + value * other[i], 0);
        assert.ok(Math.abs(Math.abs(along) - 1) < 1e-6, `bone ${bone}: ${along}`);
      }
    }
  });

  it('masks some bones, but not most', () => {
    const masked = Array.from({ length: bones }, (_, bone) => isMasked(bone)).filter(Boolean);
    assert.strictEqual(masked.length, 9);
  });

  it('derives the tolerance of a mixer from arcs, chords and tangents, per bone', () => {
    // Largest for a fraction t = 0.577 of 0.4 radians: atan(0.577 tan 0.4) is 0.0085 more than that fraction, and the
    // chord 0.0004 away from the arc. A matrix differs by twice the sum.
    const clips = [{ values: new Float32Array(3 * channelCount) }];
    const ofDepth = (parents) => mixerTolerance({ clips, parents }).linear;
    assert.ok(Math.abs(ofDepth([-1]) - 0.0178) < 2e-4);
    assert.ok(Math.abs(ofDepth([-1, 0, 1, 1]) - 3 * 0.0178) < 6e-4);
  });
});

describe('comparison of streams', () => {
  const { assertSameOutput, createMix, createStream, kinds } = matrixFlow;
  const output = () => Float32Array.of(1, 2, -3);

  it('accepts rounding differences, and names a number that differs by more', () => {
    const rounded = output().map((value) => value * (1 + 5e-6));
    assert.doesNotThrow(() => assertSameOutput('m', output(), rounded));
    assert.throws(
      () => assertSameOutput('m', output(), Float32Array.of(1, 2, -3.1)),
      /number 2 is/
    );
  });

  it('refuses NaN, a number that was not written, and an empty set', () => {
    assert.throws(() => assertSameOutput('m', output(), Float32Array.of(NaN, 2, -3)), /number 0/);
    assert.throws(() => assertSameOutput('m', Float32Array.of(NaN, 2, -3), output()), /number 0/);
    assert.throws(
      () => assertSameOutput('m', new Float32Array(3), new Float32Array(3)),
      /number 0/
    );
    assert.throws(() => assertSameOutput('m', output(), output().subarray(1)));
    assert.throws(() => assertSameOutput('m', new Float32Array(0), new Float32Array(0)));
  });

  it('generates offsets within blocks', () => {
    for (const kind of Object.keys(kinds)) {
      const { blocks, count, floats, a, b, r } = createStream(kind, 100);
      assert.strictEqual(count, 100);
      for (const [places, block] of [
        [a, blocks.a],
        [b, blocks.b],
        [r, blocks.r],
      ]) {
        assert.strictEqual(places.length, count);
        assert(places.every((at) => at % floats === 0 && at + floats <= block.length));
        // Not always the same value.
        assert(new Set(places).size > count / 2);
      }
    }
    const { blocks, objects, rest, move, parent, inverse, count } = createMix(100);
    assert.deepStrictEqual([objects, count], [20, 100]);
    assert(rest.every((at) => at + 16 <= blocks.rest.length));
    assert(move.every((at) => at + 6 <= blocks.moves.length));
    assert(parent.every((at) => at + 16 <= blocks.parents.length));
    assert(inverse.every((at) => at + 16 <= blocks.inverses.length));
  });
});
