'use strict';
// npm run coverage: the suites on the preset `coverage`, native ones without wide vectors and threads as well, and those of
// the engine in WebAssembly; lines and branches of native code (gcovr) and of lib/ (c8), and whether they reach the bars. Lines that no test reaches must be listed in scripts/lib/coverage-exceptions.js.
// `-- --report` only reports on the last run.
const fs = require('fs');
const path = require('path');
const { setup } = require('./setup');
const { build, everything, folders, host } = require('./lib/build');
const { exceptionOf, staleExceptions } = require('./lib/coverage-exceptions');
const { fail, jobs, output, removeFolder, root, status } = require('./lib/run');
const { nodeModule } = require('./lib/sources');
const { runWasmSuites } = require('./wasm-check');

/** Percent that must be reached. */
const bars = { lines: 95, branches: 90 };

const folder = path.join(root, folders.coverage);
const portableFolder = path.join(root, folders['coverage-portable']);

// Counts of scripts on the native module, and on the engine in WebAssembly: newer hosts, with other branches.
const onModule = {
  counts: path.join(folder, 'v8-coverage'),
  out: path.join(folder, 'lib-coverage'),
};
const onWasm = { counts: path.join(folder, 'v8-wasm'), out: path.join(folder, 'wasm-coverage') };

// Suites that run JavaScript of lib/. Its counts are taken in these only: they slow every process.
const libraryScripts = '^script[.](lib|programs)[.]';

/**
 * Runs suites.
 * @param {string} preset
 * @param {string[]} args of ctest
 * @param {string} stack limit in kilobytes, or 'unchanged'
 * @param {Object<string, string>} [extra] variables of the environment
 */
function runSuites(preset, args, stack, extra) {
  const limit = stack === 'unchanged' ? '' : `ulimit -s ${stack} && `;
  const common = ['--test-dir', folders[preset], '--output-on-failure', '--no-tests=error'];
  common.push('--label-exclude', '^abi', '--timeout', '1800', '--parallel', jobs);
  return status('sh', ['-c', `${limit}exec ctest "$@"`, 'ctest', ...common, ...args], extra) === 0;
}

/** Removes counts of earlier runs. */
function removeCounts(directory) {
  for (const item of fs.readdirSync(directory, { withFileTypes: true })) {
    const file = path.join(directory, item.name);
    if (item.isDirectory()) {
      removeCounts(file);
    } else if (file.endsWith('.gcda')) {
      fs.unlinkSync(file);
    }
  }
}

/**
 * What a report says: covered and all lines and branches, and the lines that no test reaches.
 * @typedef {Object} Coverage
 * @property {{covered: number, total: number}} lines
 * @property {{covered: number, total: number}} branches
 * @property {{file: string, line: number}[]} missing
 */

/**
 * Counts of a build, by file, then by number of the line. One build after the other, and merged here: gcovr 5 never ends
 * if it is given both, and can't merge functions that begin at different lines.
 * @param {string} build its folder
 * @returns {Map<string, Map<number, { count: number, branches: number[] }>>}
 */
function nativeCounts(build) {
  const sources = ['Common/', 'Engine/', 'BindingTemp/', 'js-binding/', 'nq_logic.cpp'];
  const report = path.join(build, 'native-coverage.json');
  const args = ['--root=.', `-j${jobs}`, `--object-directory=${build}`, `--json=${report}`];
  args.push(...sources.map((source) => `--filter=${source}`));
  // Branches that the compiler adds for exceptions, of which the sources have none; CMake's trial of the compiler, whose
  // source is gone.
  args.push('--exclude-throw-branches', '--exclude-unreachable-branches');
  args.push('--exclude-directories=.*CompilerId');
  if (output('gcovr', [...args, build]) === null) {
    fail('gcovr failed: run the coverage build again.');
  }
  const files = new Map();
  for (const { file, lines: all } of JSON.parse(fs.readFileSync(report, 'utf8')).files) {
    const lines = new Map();
    for (const line of all.filter((one) => !one['gcovr/noncode'])) {
      const branches = line.branches.map(({ count }) => count);
      lines.set(line.line_number, { count: line.count, branches });
    }
    files.set(file, lines);
  }
  return files;
}

/** Adds the counts of another build, whose lines may be others. */
function addCounts(files, others) {
  for (const [file, lines] of others) {
    if (!files.has(file)) {
      files.set(file, new Map());
    }
    const known = files.get(file);
    for (const [number, { count, branches }] of lines) {
      if (!known.has(number)) {
        known.set(number, { count: 0, branches: branches.map(() => 0) });
      }
      const line = known.get(number);
      line.count += count;
      line.branches = line.branches.map((one, i) => one + (branches[i] || 0));
    }
  }
}

/** @returns {Coverage} of native sources */
function nativeCoverage() {
  const files = nativeCounts(folder);
  addCounts(files, nativeCounts(portableFolder));
  const lines = { covered: 0, total: 0 };
  const branches = { covered: 0, total: 0 };
  const missing = [];
  for (const file of Array.from(files.keys()).sort()) {
    for (const [line, counts] of files.get(file)) {
      lines.total += 1;
      lines.covered += counts.count > 0 ? 1 : 0;
      if (counts.count === 0) {
        missing.push({ file, line });
      }
      branches.total += counts.branches.length;
      branches.covered += counts.branches.filter((count) => count > 0).length;
    }
  }
  return { lines, branches, missing };
}

/** Reports of c8 on lib/, by file. */
function reportOfScripts({ counts, out }) {
  const args = [nodeModule('c8/bin/c8.js'), 'report', `--temp-directory=${counts}`];
  // What runs in a browser is not counted: the checks viewer, site and wasm open pages with it.
  args.push(
    '--all',
    '--include=lib/**/*.js',
    '--include=scene.js',
    '--exclude=lib/scene/inspect/page/**',
    '--exclude=lib/browser/**'
  );
  args.push('--reporter=json', `--reports-dir=${out}`);
  if (status(host, args) !== 0) {
    fail('c8 failed: run the suites again, without --report.');
  }
  return JSON.parse(fs.readFileSync(path.join(out, 'coverage-final.json'), 'utf8'));
}

/** @returns {Coverage} of lib/ */
function libraryCoverage() {
  const lines = { covered: 0, total: 0 };
  const branches = { covered: 0, total: 0 };
  const missing = [];
  const files = reportOfScripts(onModule);
  const filesOfWasm = reportOfScripts(onWasm);
  for (const name of Object.keys(files).sort()) {
    const { statementMap, s: countsOfModule } = files[name];
    const { s: countsOfWasm, b: branchesOfWasm } = filesOfWasm[name];
    const isRunByModule = Object.values(countsOfModule).some((count) => count > 0);
    const branchCounts = isRunByModule ? files[name].b : branchesOfWasm;
    const file = path.relative(root, name);
    const source = fs.readFileSync(name, 'utf8').split('\n');
    let inComment = false;
    // A statement of c8 is a line.
    for (const key of Object.keys(statementMap)) {
      const line = statementMap[key].start.line;
      const text = source[line - 1].trim();
      inComment = inComment || text.startsWith('/*');
      const isCode = !inComment && text !== '' && !text.startsWith('//');
      inComment = inComment && !text.endsWith('*/');
      if (isCode) {
        lines.total += 1;
        const isCovered = countsOfModule[key] > 0 || countsOfWasm[key] > 0;
        lines.covered += isCovered ? 1 : 0;
        if (!isCovered) {
          missing.push({ file, line });
        }
      }
    }
    for (const [count] of Object.values(branchCounts)) {
      branches.total += 1;
      branches.covered += count > 0 ? 1 : 0;
    }
  }
  return { lines, branches, missing };
}

/** Prints a coverage, and returns what is wrong with it, a line each. */
function judge(name, coverage) {
  const wrong = [];
  for (const what of Object.keys(bars)) {
    const { covered, total } = coverage[what];
    const percent = (100 * covered) / total;
    console.log(`${name}: ${what} ${percent.toFixed(1)} % (${covered} of ${total})`);
    if (!(percent >= bars[what])) {
      wrong.push(`${name}: ${what} are below ${bars[what]} %.`);
    }
  }
  const reasons = new Map();
  for (const { file, line } of coverage.missing) {
    const text = fs.readFileSync(path.join(root, file), 'utf8').split('\n')[line - 1].trim();
    const reason = exceptionOf(file, text);
    if (/^[)}\];,]*$/.test(text)) {
      // The end of a block: its lines are listed.
      continue;
    }
    if (reason === null) {
      wrong.push(`${file}:${line}: no test reaches '${text}': write one, or list its reason.`);
    } else {
      reasons.set(reason, (reasons.get(reason) || 0) + 1);
    }
  }
  for (const [reason, count] of reasons) {
    console.log(`${name}: ${count} lines without a test: ${reason}`);
  }
  return wrong;
}

const options = process.argv.slice(2);
const unknown = options.find((option) => option !== '--report');
if (unknown !== undefined) {
  fail(`unknown option ${unknown}; known: --report.`, 2);
}
setup('build', 'test', 'coverage', 'wasm');

/** Runs all suites that count. */
async function runAll() {
  const withTests = Object.assign({ NQ_BUILD_TESTS: 'ON' }, everything);
  build('coverage', withTests);
  build('coverage-portable', withTests, ['nq_tests']);
  [folder, portableFolder].forEach(removeCounts);
  [onModule, onWasm].forEach(({ counts }) => removeFolder(counts));
  if (!runSuites('coverage', ['-E', `${libraryScripts}|[.]tools[.]`], 'unchanged')) {
    failed.push('suites failed.');
  }
  if (!runSuites('coverage-portable', ['-E', '^(script|fuzz)[.]'], 'unchanged')) {
    failed.push('suites of the portable build failed.');
  }
  // Command buffers call each other in chains of 10,000: frames of code that is not optimised are larger.
  const counts = { NODE_V8_COVERAGE: onModule.counts };
  if (!runSuites('coverage', ['-R', libraryScripts], '1000000', counts)) {
    failed.push('suites of lib/ failed.');
  }
  if (!(await runWasmSuites({ NODE_V8_COVERAGE: onWasm.counts }))) {
    failed.push('suites of the engine in WebAssembly failed.');
  }
}

const failed = [];

async function main() {
  if (options.length === 0) {
    await runAll();
  }
  failed.push(...judge('native', nativeCoverage()), ...judge('lib', libraryCoverage()));
  failed.push(...staleExceptions(root));
  if (failed.length > 0) {
    failed.forEach((line) => console.error(line));
    fail('coverage failed.');
  }
  console.log('== coverage passed');
}

main().catch((error) => fail(error.stack));
