'use strict';
// npm run check: the slower checks, all of them or those that are named (`npm run check -- layering`).
const fs = require('fs');
const os = require('os');
const path = require('path');
const { writeApi } = require('./api');
const { checkScripts } = require('./arm64-check');
const { checkHosts } = require('./hosts-check');
const { setup } = require('./setup');
const { buildSite } = require('./site');
const {
  build,
  buildPackedModules,
  everything,
  folders,
  host,
  matrixFlowModulePath,
  modulePath,
  nodeDir,
  packedModules,
  test,
  toolSuites,
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

// The suites that run code on several threads, or check that it gives the same bytes.
const threadedSuites =
  'ConditionVariable|WorkerPool|EngineRuntime|MemoryAllocator|WorldTransform|EntitySystem|DirtyEntityList|Animation|Controller|[Bb]atch|transform';

// The same among the script suites.
const threadedScripts =
  'engine[.](module|process-end|frame|animation|controllers|lifetime)|binding[.]batch-update';

// Script suites that run on arm64 here.
const arm64Scripts = '[.]engine[.](module|frame|animation|controllers|matrixflow)$';

// What the portable build does without, among undefined symbols.
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

// Each answers whether it found nothing, some later. `needs` names what setup brings for it.
const checks = {
  layering: {
    needs: [],
    run() {
      const violations = [...findLayeringViolations(), ...findPlatformViolations()];
      violations.forEach((violation) => console.error(violation));
      return violations.length === 0;
    },
  },

  // What is generated from the description of layouts is what it gives.
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

  // Typings: that they are sound, that they accept and refuse what they should, and that a reference can be made of
  // them in which no link is broken.
  types: {
    needs: ['build'],
    run() {
      const out = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-api-'));
      const sound = status(host, [nodeModule('typescript/bin/tsc'), '--project', 'types']) === 0;
      const tested = status(host, [nodeModule('tsd/dist/cli.js')]) === 0;
      const told = writeApi(out);
      removeFolder(out);
      return sound && tested && told;
    },
  },

  // Exactly the two entries of a module are visible.
  symbols: {
    needs: ['build'],
    run() {
      build('release', everything, ['nq_logic', 'nq_logic_matrixflow']);
      return [modulePath, matrixFlowModulePath].every(exportsEntriesOnly);
    },
  },

  // What release builds are hardened by is in the module.
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

  // The libraries that the module needs are those that documents name.
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

  // The module is the same byte for byte, whatever the folder that it is built in.
  reproducible: {
    needs: ['build'],
    run() {
      build('release', {}, ['nq_logic']);
      const differences = findBuildDifferences(modulePath, nodeDir);
      differences.forEach((line) => console.error(line));
      return differences.length === 0;
    },
  },

  // A second compiler, its analysis of locks, and the same results from its code. Suites of tools run none of it.
  clang: {
    needs: ['build', 'test', 'check'],
    run() {
      build('clang', Object.assign({ NQ_BUILD_TESTS: 'ON' }, everything));
      return test('clang', ['-E', toolSuites]);
    },
  },

  // What systems other than Linux would run: all native suites, and those of script that use threads.
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

  // What npm packs: exactly the files that belong there, and it runs where it is installed, on arm64 under an emulator.
  package: {
    needs: ['build', 'cross', 'emulator'],
    run() {
      buildPackedModules();
      const mocha = nodeModule('mocha/bin/mocha');
      return status(host, [mocha, '--timeout=300000', 'tests/package/*.test.js']) === 0;
    },
  },

  // All script suites on the reference, on a host of today, and on the newest.
  hosts: {
    needs: ['build', 'test'],
    run: () => checkHosts(['24', '26']).length === 0,
  },

  // The frame and animation on arm64, under an emulator: the whole is `npm run arm64-check`.
  arm64: {
    needs: ['build', 'cross', 'emulator'],
    run: () => checkScripts('24', ['-R', arm64Scripts]),
  },

  // The viewer in a browser without a display, which newer Node steers.
  viewer: {
    needs: ['build', 'browser'],
    run() {
      build('release', {}, ['nq_logic']);
      const mocha = nodeModule('mocha/bin/mocha');
      const args = [mocha, '--timeout=60000', 'tests/browser/viewer.test.js'];
      const node = newerNode();
      if (node === null) {
        console.error('nq_logic: the browser is steered by a newer Node than 12: put one on PATH.');
        return false;
      }
      return status(node, args, { NQ_HOST: host, NQ_MODULE: modulePath }) === 0;
    },
  },

  // The site of documents: that it builds, and how it does in a browser.
  site: {
    needs: ['browser'],
    run() {
      const mocha = nodeModule('mocha/bin/mocha');
      return (
        buildSite() &&
        status(newerNode(), [mocha, '--timeout=300000', 'tests/browser/site.test.js']) === 0
      );
    },
  },

  // Every benchmark once, on a tiny budget, so that none rots.
  bench: {
    needs: ['build', 'bench'],
    run: () => status(process.execPath, ['scripts/bench.js', '--smoke']) === 0,
  },

  // The threaded suites under the thread sanitizer.
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
