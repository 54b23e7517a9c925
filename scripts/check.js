'use strict';
// npm run check: the slower checks, all or the named ones (`npm run check -- layering`).
const fs = require('fs');
const os = require('os');
const path = require('path');
const { installModules, setup } = require('./setup');
// What follows needs its packages.
installModules();
const { writeApi } = require('./api');
const { checkScripts } = require('./arm64-check');
const { checkDeterminism } = require('./determinism');
const { fuzzAll } = require('./fuzz');
const { checkHosts } = require('./hosts-check');
const { buildSite } = require('./site');
const { checkWasm } = require('./wasm-check');
const {
  build,
  buildPackedModules,
  buildWasm,
  everything,
  folders,
  host,
  matrixFlowModulePath,
  modulePath,
  nodeDir,
  packedModules,
  test,
} = require('./lib/build');
const {
  findBuildDifferences,
  findMissingHardening,
  findWrongVersions,
  neededVersions,
} = require('./lib/binaries');
const { staleLayouts } = require('./layouts');
const { findLayeringViolations } = require('./lib/layers');
const { findPlatformViolations } = require('./lib/platform');
const {
  eachAtOnce,
  fail,
  newerNode,
  output,
  quietStatus,
  removeFolder,
  root,
  status,
} = require('./lib/run');
const { nativeSources, nodeModule, prettierArguments } = require('./lib/sources');

// Native suites that are multithreaded, or check that multithreaded code gives the same bytes.
const threadedSuites =
  'ConditionVariable|WorkerPool|EngineRuntime|MemoryAllocator|WorldTransform|EntitySystem|DirtyEntityList|Animation|Controller|[Bb]atch|transform';

// The same among the script suites.
const threadedScripts =
  'engine[.](module|process-end|frame|animation|controllers|lifetime|stress)|binding[.]batch-update';

// Script suites of the JavaScript library, programs and tools, which run no native code that others don't.
const libraryScripts = '^script[.](lib|programs|tools)[.]';

// Script suites that run on arm64 here.
const arm64Scripts = '[.](engine[.](module|frame|matrixflow)|programs[.]examples)$';

// Undefined symbols that the portable build must not have.
const linuxOnly = /\b(syscall|posix_memalign|sched_(?!yield)\w+|pthread_(set|get)affinity\w*)/g;

const exportedSymbols = ['_register_nq_logic_', 'node_register_module_v72'];

function exportsEntriesOnly(module) {
  const table = output('nm', ['-D', '--defined-only', '--format=posix', module]);
  if (table === null) {
    return false;
  }
  const names = table
    .split('\n')
    .filter((line) => line !== '')
    .map((line) => line.split(' ')[0])
    .sort();
  const good = names.join() === exportedSymbols.join();
  if (!good) {
    console.error(`${module} exports ${names.join(' ')}; expected: ${exportedSymbols.join(' ')}`);
  }
  return good;
}

// Each returns whether it passed, or a promise of that. `needs` names the groups of scripts/setup.js that it
// requires.
const checks = {
  layering: {
    needs: [],
    run() {
      const violations = [...findLayeringViolations(), ...findPlatformViolations()];
      violations.forEach((violation) => console.error(violation));
      return violations.length === 0;
    },
  },

  // Generated files are up to date.
  layouts: {
    needs: ['build'],
    run() {
      const stale = staleLayouts();
      stale.forEach((file) => console.error(`${file} is stale: run 'node scripts/layouts.js'`));
      return stale.length === 0;
    },
  },

  format: {
    needs: ['build', 'check'],
    run() {
      const native = status('clang-format', ['--dry-run', '-Werror', ...nativeSources()]) === 0;
      const script = status(host, prettierArguments('--check')) === 0;
      return native && script;
    },
  },

  eslint: {
    needs: ['build'],
    run: () =>
      status(host, [
        nodeModule('eslint/bin/eslint.js'),
        '--max-warnings=0',
        '--ext=.js,.mjs',
        '.',
      ]) === 0,
  },

  // Typings compile, accept and reject the right code, and give an API reference without broken links.
  types: {
    needs: ['build'],
    run() {
      const out = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-api-'));
      const sound = status(host, [nodeModule('typescript/bin/tsc'), '--project', 'types']) === 0;
      const tested = status(host, [nodeModule('tsd/dist/cli.js')]) === 0;
      const documented = writeApi(out);
      removeFolder(out);
      return sound && tested && documented;
    },
  },

  // A module exports exactly its two entry points.
  symbols: {
    needs: ['build'],
    run() {
      build('release', everything, ['nq_logic', 'nq_logic_matrixflow']);
      return [modulePath, matrixFlowModulePath].every(exportsEntriesOnly);
    },
  },

  // The module has the hardening of release builds.
  hardening: {
    needs: ['build'],
    run() {
      build('release', {}, ['nq_logic']);
      const missing = findMissingHardening(modulePath);
      if (missing === null) {
        console.error('readelf is missing: install binutils.');
        return false;
      }
      missing.forEach((sign) => console.error(`${modulePath} has no ${sign}.`));
      return missing.length === 0;
    },
  },

  // Documents state the library versions that the module requires.
  versions: {
    needs: ['build', 'cross'],
    run() {
      buildPackedModules();
      const needed = neededVersions(packedModules().map(({ file }) => file));
      if (needed === null) {
        console.error('objdump is missing: install binutils.');
        return false;
      }
      const wanted = {
        'README.md': ['GLIBC'],
        'docs/building.md': ['GLIBC', 'GLIBCXX', 'CXXABI'],
      };
      const texts = {};
      for (const file of Object.keys(wanted)) {
        texts[file] = fs.readFileSync(path.join(root, file), 'utf8');
      }
      const wrong = findWrongVersions(needed, texts, wanted);
      wrong.forEach((line) => console.error(line));
      return wrong.length === 0;
    },
  },

  // The build is reproducible: the module does not depend on the folder that it is built in.
  reproducible: {
    needs: ['build'],
    run() {
      build('release', {}, ['nq_logic']);
      const differences = findBuildDifferences(modulePath, nodeDir);
      differences.forEach((line) => console.error(line));
      return differences.length === 0;
    },
  },

  // A second compiler, its thread safety analysis, and the tests of its code.
  clang: {
    needs: ['build', 'test', 'check'],
    run() {
      build('clang', Object.assign({ NQ_BUILD_TESTS: 'ON' }, everything));
      return test('clang', ['-E', libraryScripts]);
    },
  },

  // The build for systems other than Linux: all native suites, and multithreaded script suites.
  portable: {
    needs: ['build', 'test'],
    run() {
      build('portable', {}, ['nq_logic', 'nq_test_addon', 'nq_tests']);
      const table = output('nm', ['-u', path.join(root, folders.portable, 'nq_logic.node')]);
      const foreign = table === null ? ['a readable module'] : table.match(linuxOnly);
      if (foreign !== null) {
        console.error(`the portable module needs ${foreign.join(', ')}`);
        return false;
      }
      const native = test('portable', ['-E', '^(script|fuzz)\\.']);
      return test('portable', ['-R', `^script[.](${threadedScripts})$`]) && native;
    },
  },

  tidy: {
    needs: ['build', 'test', 'check'],
    async run() {
      build('clang', Object.assign({ NQ_BUILD_TESTS: 'ON' }, everything), ['nq_logic']);
      const files = nativeSources().filter((file) =>
        /^(Common\/|Engine\/|BindingTemp\/|nq_logic).*\.cpp$/.test(file)
      );
      const args = ['--quiet', '-p', folders.clang, '--warnings-as-errors=*'];
      return eachAtOnce(files, (file) => quietStatus('clang-tidy', [...args, file]));
    },
  },

  // The npm package: it has exactly the expected files, and runs after installation, on arm64 in an emulator.
  package: {
    needs: ['build', 'cross', 'emulator', 'wasm'],
    run() {
      buildPackedModules();
      buildWasm();
      const mocha = nodeModule('mocha/bin/mocha');
      return status(host, [mocha, '--timeout=300000', 'tests/package/*.test.js']) === 0;
    },
  },

  // All script suites on a current host, and on the newest.
  hosts: {
    needs: ['build', 'test'],
    run: () => checkHosts(['24', '26']).length === 0,
  },

  // The frame and the examples on arm64, in an emulator; `npm run arm64-check` runs all suites.
  arm64: {
    needs: ['build', 'cross', 'emulator'],
    run: () => checkScripts('24', ['-R', arm64Scripts]),
  },

  // The engine in WebAssembly: native suites, its own, script suites and examples on it, and pages in browsers.
  wasm: {
    needs: ['build', 'test', 'wasm', 'browser', 'firefox'],
    run: () => checkWasm(),
  },

  // The same bytes by single and batch calls, on all hosts, and in the portable build and WebAssembly if they are built.
  determinism: {
    needs: ['build'],
    run() {
      build('release', everything, ['nq_logic', 'nq_logic_matrixflow']);
      const presets = ['release', 'portable', 'wasm'];
      return checkDeterminism({ seed: 1, programs: 4, steps: 30, presets });
    },
  },

  // Random programs and mutated files, the same in each run: `npm run fuzz` runs more of them.
  fuzz: {
    needs: ['build'],
    run: () => fuzzAll(['checked', 'scene', 'glb'], { seconds: 0, seed: 1 }),
  },

  // The viewer in a headless browser, which a newer Node.js controls.
  viewer: {
    needs: ['build', 'browser'],
    run() {
      build('release', {}, ['nq_logic']);
      const mocha = nodeModule('mocha/bin/mocha');
      const args = [mocha, '--timeout=60000', 'tests/browser/viewer.test.js'];
      const node = newerNode();
      if (node === null) {
        console.error(
          'nq_logic: controlling the browser takes a newer Node than 12: put one in PATH.'
        );
        return false;
      }
      return status(node, args, { NQ_HOST: host, NQ_MODULE: modulePath }) === 0;
    },
  },

  // The site of documents builds, and its pages work in a browser.
  site: {
    needs: ['build', 'wasm', 'browser'],
    run() {
      const mocha = nodeModule('mocha/bin/mocha');
      if (!buildSite()) {
        return false;
      }
      build('release', {}, ['nq_logic']);
      const suites = ['site', 'live'].map((name) => `tests/browser/${name}.test.js`);
      const environment = { NQ_HOST: host, NQ_MODULE: modulePath };
      return status(newerNode(), [mocha, '--timeout=300000', ...suites], environment) === 0;
    },
  },

  // Every benchmark once, on a tiny budget, so that none breaks unnoticed.
  bench: {
    needs: ['build', 'bench'],
    run() {
      const peer = 'bench/native/peer/PlainPeer.cpp';
      return status(process.execPath, ['scripts/bench.js', '--smoke', '--peer', peer]) === 0;
    },
  },

  // The multithreaded suites under the thread sanitizer.
  tsan: {
    needs: ['build', 'test'],
    run() {
      build('tsan', { NQ_BUILD_TESTS: 'ON' });
      return test('tsan', ['-R', threadedSuites]);
    },
  },
};

const known = Object.keys(checks);
const wanted = process.argv.length > 2 ? process.argv.slice(2) : known;
for (const name of wanted) {
  if (!known.includes(name)) {
    fail(`there is no check named ${name}; there are: ${known.join(', ')}.`, 2);
  }
}
setup(...new Set([].concat(...wanted.map((name) => checks[name].needs))));

async function main() {
  const failed = [];
  const times = [];
  for (const name of wanted) {
    console.log(`== check ${name}`);
    const start = Date.now();
    if (!(await checks[name].run())) {
      failed.push(name);
    }
    times.push(`${name} ${Math.round((Date.now() - start) / 1000)} s`);
  }
  console.log(`== times: ${times.join(', ')}`);
  if (failed.length > 0) {
    fail(`checks failed: ${failed.join(', ')} (again: npm run check -- ${failed.join(' ')}).`);
  }
  console.log(`== checks passed: ${wanted.join(', ')}`);
}

main().catch((error) => fail(error.stack));
