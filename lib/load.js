'use strict';
// Finds and loads the native module: the file that an environment variable names, else a build beside this folder,
// else the prebuilt binary of the package. There is a binary for each supported platform and module ABI of Node.js.
// If none loads, the error says why and states the one cure that applies.
const fs = require('fs');
const path = require('path');

/** @typedef {import('../types/engine').EngineWithMatrixFlow} EngineWithMatrixFlow */
/** @typedef {import('../types/engine').Engine} Engine */

/**
 * Module ABIs with binaries, by platform (`${process.platform}-${process.arch}`): the values of
 * `process.versions.modules` in Node 12, 18, 20, 22, 24 and 26.
 * @type {Readonly<Record<string, readonly string[]>>}
 */
// All are for glibc.
const moduleAbis = Object.freeze({
  'linux-x64': Object.freeze(['72', '108', '115', '127', '137', '147']),
  'linux-arm64': Object.freeze(['127', '137', '147']),
});

/** Version of Node.js that each ABI belongs to. */
const kNodeOfAbi = { 72: 12, 108: 18, 115: 20, 127: 22, 137: 24, 147: 26 };

/** Readable names of platforms. */
const kPlatformNames = { 'linux-x64': 'Linux on x86-64', 'linux-arm64': 'Linux on arm64' };

const kAbi = process.versions.modules;
const kPlatform = `${process.platform}-${process.arch}`;
const kRoot = path.join(__dirname, '..');
const kPrebuilds = path.join(kRoot, 'prebuilds', kPlatform);

/** Folder of the build for this runtime; builds for hosts other than Node 12 are in a folder named by their ABI. */
const kBuild = path.join(kRoot, 'build', 'Release', kAbi === '72' ? '' : `abi${kAbi}`);

/** Modules for arm64 are built on x86-64, with the package. */
const kIsBuiltElsewhere = process.arch === 'arm64';
const kMaking = kIsBuiltElsewhere
  ? "'npm pack' in the sources of nq_logic on Linux on x86-64, and install it from that package"
  : "'npm run build' in the sources of nq_logic";

/** The two builds: the environment variable that names a file, and default paths. */
const builds = {
  plain: {
    variable: 'NQ_MODULE',
    files: [path.join(kBuild, 'nq_logic.node'), path.join(kPrebuilds, `node.abi${kAbi}.node`)],
    making: kMaking,
  },
  matrixFlow: {
    variable: 'NQ_MATRIXFLOW_MODULE',
    files: [path.join(kBuild, 'nq_logic_matrixflow.node')],
    making:
      "'npm run build' in the sources of nq_logic, then" +
      " 'cmake --preset release -DNQ_SCRIPT_MATRIXFLOW=ON && cmake --build build/Release'",
  },
};

/**
 * The exports of a native module.
 * @template {Engine} [E=Engine] type of its engines
 * @typedef {Object} NativeModule
 * @property {() => E} getEngine Creates an engine, with its own memory and four threads, which stay until the process
 *   ends.
 * @property {() => { version: string }} getVersion A new object each time.
 */

/**
 * Thrown if no file could be loaded. Its message lists the files tried, this runtime, and the cure.
 * @readonly
 * @extends {Error}
 * @typedef {Object} LoadError
 * @property {'ERR_NQ_LOAD'} code Identifies this error.
 * @property {string[]} files All files that were tried, in order.
 * @property {Error | null} original The error of the last existing file; null if no file exists. Not enumerable.
 */

/** Candidate files in order: absolute paths and, for messages, the source of a name. */
function candidates(build, file) {
  if (file !== undefined && file !== '') {
    return [{ file: path.resolve(file), source: '', isNamed: true }];
  }
  const named = file === undefined ? process.env[build.variable] : undefined;
  return named === undefined || named === ''
    ? build.files.map((built) => ({ file: built, source: '', isNamed: false }))
    : [{ file: path.resolve(named), source: ` (named by ${build.variable})`, isNamed: true }];
}

/** True for a Linux whose C library is not glibc. */
function isForeignLibc() {
  const { report } = process;
  return (
    process.platform === 'linux' &&
    report !== undefined &&
    report.getReport().header.glibcVersionRuntime === undefined
  );
}

/** Versions of Node.js with binaries for a platform, as "Node 22, 24 or 26". */
function nodesOf(platform) {
  const nodes = moduleAbis[platform].map((abi) => kNodeOfAbi[abi]);
  return `Node ${nodes.slice(0, -1).join(', ')} or ${nodes[nodes.length - 1]}`;
}

/** Describes all hosts with binaries. */
function allHosts() {
  const hosts = Object.keys(moduleAbis).map(
    (platform) => `${nodesOf(platform)} on ${kPlatformNames[platform]}`
  );
  return `${hosts.join(', and for ')}, with glibc`;
}

/** True if there is a binary for this platform and ABI. */
function isHost() {
  return moduleAbis[kPlatform] !== undefined && moduleAbis[kPlatform].includes(kAbi);
}

/** The cure for this runtime and these attempts. */
function cureFor(build, attempts, original) {
  if (!isHost()) {
    return moduleAbis[kPlatform] === undefined
      ? 'run your script on one of these platforms.'
      : `run your script with ${nodesOf(kPlatform)}.`;
  }
  if (original !== null && isForeignLibc()) {
    return 'run your script on a Linux with glibc: the C library of this one is another.';
  }
  const [{ isNamed, source }] = attempts;
  if (original === null) {
    const other =
      source === '' ? 'name a file that is there' : `correct or unset ${build.variable}`;
    return isNamed ? `${other}.` : `build it by ${build.making}.`;
  }
  // The dynamic linker reports the missing library version.
  if (/version [`'](GLIBC|CXXABI)/.test(original.message)) {
    const cure = kIsBuiltElsewhere
      ? 'run your script on a newer one'
      : `build it here by ${build.making}`;
    return `this system's libraries are too old for it: ${cure}.`;
  }
  return `the file is damaged, or not a build for this Node: rebuild it by ${build.making}.`;
}

/** An error that lists the attempts, this runtime and the supported ones, and the cure. */
function loadError(build, attempts) {
  const { node } = process.versions;
  const thrown = attempts.map(({ error }) => error).filter((error) => error !== null);
  const original = thrown.length > 0 ? thrown[thrown.length - 1] : null;
  const lines = [
    "nq_logic: the native module can't be loaded:",
    ...attempts.map(({ file, source, error }) => {
      const trouble = error === null ? 'there is no such file' : 'is there, but does not load';
      return `  '${file}'${source}: ${trouble}.`;
    }),
    `This is Node ${node} with ABI ${kAbi} on ${kPlatform}; there are builds for ${allHosts()}.`,
    `Cure: ${cureFor(build, attempts, original)}`,
  ];
  // For another ABI, the message of Node.js advises recompiling, which does not help here.
  if (original !== null && isHost()) {
    lines.push(`Original error: ${original.message}`);
  }
  const error = new Error(lines.join('\n'));
  error.code = 'ERR_NQ_LOAD';
  error.files = attempts.map(({ file }) => file);
  // Not enumerable: its message is already part of this one.
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
 * Loads the native module: `file` if passed, else the file that the environment variable NQ_MODULE names, else the
 * build for this runtime (build/Release/nq_logic.node for Node 12, build/Release/abiN/nq_logic.node for others),
 * else the prebuilt binary of the package.
 * @param {string} [file] path of another module
 * @returns {NativeModule<Engine>} the same object for the same file
 * @throws {@link LoadError}
 */
function load(file) {
  return loadBuild(builds.plain, file);
}

/**
 * Loads the build whose engines have `createMatrixFlowCommandBuffer`: `file` if passed, else the file that
 * NQ_MATRIXFLOW_MODULE names, else nq_logic_matrixflow.node of the build for this runtime. The package contains none:
 * build it from source.
 * @param {string} [file] path of another module
 * @returns {NativeModule<EngineWithMatrixFlow>} the same object for the same file
 * @throws {@link LoadError}
 */
function loadMatrixFlow(file) {
  return loadBuild(builds.matrixFlow, file);
}

module.exports = { load, loadMatrixFlow, moduleAbis };
