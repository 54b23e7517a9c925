'use strict';
// npm run mutants: applies each fault of tests/mutants.js to a copy of the tree, builds it, and runs the tests named for
// the file, of which some must fail. Results are kept in build/Mutants/results.json: a run that was interrupted resumes.
//   -- --only TEXT   faults whose file or kind contains TEXT
//   -- --again       runs them though there are results
//   -- --report      only reports on the results
const childProcess = require('child_process');
const crypto = require('crypto');
const fs = require('fs');
const path = require('path');
const { setup } = require('./setup');
const { host, nodeDir } = require('./lib/build');
const { environment, fail, jobs, root, run } = require('./lib/run');
const faults = require('../tests/mutants');

const folder = path.join(root, 'build', 'Mutants');
const tree = path.join(folder, 'tree');
const binaries = path.join(tree, 'build', 'Release');
const resultsFile = path.join(folder, 'results.json');

/** Limits of a build and of a run of tests, in milliseconds: a fault may be an endless loop. */
const timeouts = { build: 900000, test: 120000 };

/** All faults, with an identifier that changes with the fault and with the file. */
const mutants = [].concat(
  ...faults.map(({ file, tests, mutants: list }) => {
    const source = fs.readFileSync(path.join(root, file), 'utf8');
    return list.map(([kind, before, after, reason]) => {
      const text = JSON.stringify([file, source, before, after, tests]);
      const id = crypto.createHash('sha256').update(text).digest('hex').slice(0, 12);
      return { id, file, tests, kind, before, after, reason };
    });
  })
);

/** Runs a program in the copy, silently, for a time at most. */
function runQuietly(timeout, program, args, extra) {
  const result = childProcess.spawnSync(program, args, {
    cwd: tree,
    env: environment(extra),
    encoding: 'utf8',
    timeout,
    killSignal: 'SIGKILL',
    maxBuffer: 1 << 28,
  });
  return { ok: result.status === 0, output: `${result.stdout}${result.stderr}` };
}

/** Removes files of the copy that are not in `kept`, except for what its build made. */
function removeOthers(kept, folderOfCopy = '') {
  for (const entry of fs.readdirSync(path.join(tree, folderOfCopy), { withFileTypes: true })) {
    const file = path.join(folderOfCopy, entry.name);
    if (entry.isDirectory() && file !== 'build') {
      removeOthers(kept, file);
    } else if (entry.isFile() && !kept.has(file)) {
      fs.unlinkSync(path.join(tree, file));
    }
  }
}

/** Makes the copy the same as the files under version control, and configures it. */
function prepare() {
  const list = childProcess.execFileSync('git', ['ls-files', '-z'], {
    cwd: root,
    encoding: 'utf8',
  });
  const files = list.split('\0').filter((name) => name !== '');
  fs.mkdirSync(tree, { recursive: true });
  removeOthers(new Set(files));
  for (const file of files) {
    const [from, to] = [path.join(root, file), path.join(tree, file)];
    const bytes = fs.readFileSync(from);
    if (!fs.existsSync(to) || !fs.readFileSync(to).equals(bytes)) {
      fs.mkdirSync(path.dirname(to), { recursive: true });
      fs.writeFileSync(to, bytes);
    }
  }
  if (!fs.existsSync(path.join(tree, 'node_modules'))) {
    fs.symlinkSync(path.join(root, 'node_modules'), path.join(tree, 'node_modules'));
  }
  const definitions = [
    '-DNQ_BUILD_TESTS=ON',
    '-DNQ_SCRIPT_MATRIXFLOW=ON',
    `-DNQ_NODE_DIR=${nodeDir}`,
  ];
  run('configure the copy', 'cmake', [
    '-S',
    tree,
    '-B',
    binaries,
    '--preset',
    'release',
    ...definitions,
  ]);
  run('build the copy', 'cmake', ['--build', binaries, '--parallel', jobs]);
}

/** Builds what tests run: faults of other files, which are undone, remain in objects until then. */
function build(tests) {
  const targets = tests.native
    ? ['nq_tests']
    : ['nq_logic', 'nq_logic_matrixflow', 'nq_test_addon'];
  return runQuietly(timeouts.build, 'cmake', [
    '--build',
    binaries,
    '--parallel',
    jobs,
    '--target',
    ...targets,
  ]);
}

/** Runs tests until one fails. */
function test(tests) {
  if (tests.native) {
    const args = [`--gtest_filter=${tests.native}`, '--gtest_fail_fast', '--gtest_brief=1'];
    return runQuietly(timeouts.test, path.join(binaries, 'nq_tests'), args);
  }
  const files = tests.script.map((name) => path.join('tests', 'script', `${name}.test.js`));
  const mocha = path.join('node_modules', 'mocha', 'bin', 'mocha');
  return runQuietly(
    timeouts.test,
    host,
    ['--expose-gc', mocha, '--bail', '--timeout', '120000', ...files],
    {
      NQ_MODULE: path.join(binaries, 'nq_logic.node'),
      NQ_TEST_ADDON: path.join(binaries, 'nq_test_addon.node'),
      NQ_MATRIXFLOW_MODULE: path.join(binaries, 'nq_logic_matrixflow.node'),
    }
  );
}

/** Applies a fault, and says what became of it: killed, survived, or invalid, if it does not compile. */
function examine({ file, before, after, tests }) {
  const target = path.join(tree, file);
  const source = fs.readFileSync(target, 'utf8');
  const parts = source.split(before);
  if (parts.length !== 2) {
    return 'invalid';
  }
  fs.writeFileSync(target, parts.join(after));
  try {
    if (!build(tests).ok) {
      return 'invalid';
    }
    return test(tests).ok ? 'survived' : 'killed';
  } finally {
    fs.writeFileSync(target, source);
  }
}

function readResults() {
  return fs.existsSync(resultsFile) ? JSON.parse(fs.readFileSync(resultsFile, 'utf8')) : {};
}

function describe({ file, kind, before, after }) {
  return `${file}: ${kind}: '${before}' to '${after}'`.replace(/\n\s*/g, ' ');
}

/** Prints the results, and returns whether each fault that ran was killed or is equivalent. */
function report(wanted, results) {
  const of = (outcome) => wanted.filter(({ id }) => results[id] === outcome);
  const survived = of('survived');
  const equivalent = survived.filter(({ reason }) => reason !== undefined);
  const open = survived.filter(({ reason }) => reason === undefined);
  const known = of('killed').filter(({ reason }) => reason !== undefined);
  equivalent.forEach((mutant) => console.log(`equivalent: ${describe(mutant)}: ${mutant.reason}`));
  open.forEach((mutant) => console.log(`SURVIVED: ${describe(mutant)}`));
  of('invalid').forEach((mutant) => console.log(`INVALID: ${describe(mutant)}`));
  known.forEach((mutant) =>
    console.log(`KILLED, though listed as equivalent: ${describe(mutant)}`)
  );
  const ran = wanted.filter(({ id }) => results[id] !== undefined).length;
  const parts = [
    `${of('killed').length} killed`,
    `${equivalent.length} equivalent`,
    `${open.length} survived`,
    `${of('invalid').length} invalid`,
  ];
  console.log(`== mutants: ${ran} of ${wanted.length} ran: ${parts.join(', ')}`);
  return open.length === 0 && of('invalid').length === 0 && known.length === 0;
}

const options = process.argv.slice(2);
const isReport = options.includes('--report');
const again = options.includes('--again');
const at = options.indexOf('--only');
const only = at < 0 ? '' : options[at + 1];
const unknown = options.filter((option, i) => i !== at + 1 || at < 0);
const bad = unknown.find((option) => !['--report', '--again', '--only'].includes(option));
if (bad !== undefined || only === undefined) {
  fail(
    `unknown option ${bad || '--only without a text'}; known: --only TEXT, --again, --report.`,
    2
  );
}
const wanted = mutants.filter(({ file, kind }) => file.includes(only) || kind.includes(only));
if (wanted.length === 0) {
  fail(`no fault's file or kind contains '${only}'.`, 2);
}
const results = readResults();
if (!isReport) {
  setup('build', 'test');
  prepare();
  const sound = new Set();
  for (const mutant of wanted.filter(({ id }) => again || results[id] === undefined)) {
    const selection = JSON.stringify(mutant.tests);
    if (!sound.has(selection)) {
      const { ok, output } = build(mutant.tests);
      if (!ok || !test(mutant.tests).ok) {
        fail(
          `the tests ${selection} fail without a fault: mend them first.\n${output.slice(-2000)}`
        );
      }
      sound.add(selection);
    }
    const start = Date.now();
    results[mutant.id] = examine(mutant);
    fs.writeFileSync(resultsFile, JSON.stringify(results, null, 2));
    const seconds = Math.round((Date.now() - start) / 1000);
    console.log(`${results[mutant.id]}, ${seconds} s: ${describe(mutant)}`);
  }
}
if (!report(wanted, results)) {
  fail('some faults survived or are invalid: write tests, or give reasons in tests/mutants.js.');
}
