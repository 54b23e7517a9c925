'use strict';
// Shared by all scripts: paths, the environment of child processes, running programs, failing.
const childProcess = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');

/** Folder of the checkout. */
const root = path.resolve(__dirname, '..', '..');

/** Number of parallel jobs of a build. */
const jobs = String(Math.max(1, os.cpus().length));

// npm passes its settings to scripts. Those for reaching the registry are kept; the others (a `nodedir` of a newer Node,
// `omit`, `production`...) would affect the tools that are run from here.
const keptSettings =
  /^npm_config_(registry|cafile|ca|proxy|https_proxy|noproxy|cache|userconfig|globalconfig)$/i;

/**
 * The environment for a child.
 * @param {Object<string, string>} [extra] variables to add
 * @returns {Object<string, string>}
 */
function environment(extra) {
  const result = {};
  for (const name of Object.keys(process.env)) {
    if (!/^npm_config_/i.test(name) || keptSettings.test(name)) {
      result[name] = process.env[name];
    }
  }
  return Object.assign(result, extra);
}

/**
 * Prints one line and ends the script.
 * @param {string} message
 * @param {number} [code] exit code
 */
function fail(message, code = 1) {
  console.error(`nq_logic: ${message}`);
  process.exit(code);
}

/**
 * Runs a program in the checkout with inherited output, and returns its exit code; 127 if it is not found.
 * @param {string} program
 * @param {string[]} args
 * @param {Object<string, string>} [extra] variables to add to its environment
 * @returns {number}
 */
function status(program, args, extra) {
  const result = childProcess.spawnSync(program, args, {
    cwd: root,
    env: environment(extra),
    stdio: 'inherit',
  });
  if (result.error) {
    console.error(`nq_logic: ${program}: ${result.error.message}`);
    return 127;
  }
  if (result.signal) {
    console.error(`nq_logic: ${program} ended by ${result.signal}`);
    return 128;
  }
  return result.status;
}

/**
 * Runs a program as `status` does; ends the script if it fails.
 * @param {string} step what is done, for the message
 * @param {string} program
 * @param {string[]} args
 * @param {Object<string, string>} [extra]
 */
function run(step, program, args, extra) {
  console.log(`== ${step}`);
  const code = status(program, args, extra);
  if (code !== 0) {
    fail(`${step} failed (exit code ${code}).`);
  }
}

/**
 * Runs a program silently and returns its standard output, or null if it is not found or fails.
 * @param {string} program
 * @param {string[]} args
 * @returns {?string}
 */
function output(program, args, extra) {
  const result = childProcess.spawnSync(program, args, {
    cwd: root,
    env: environment(extra),
    encoding: 'utf8',
    maxBuffer: 1 << 28,
  });
  return result.status === 0 ? result.stdout : null;
}

/** Characters of a failed program's output that are printed: the end, where the failures are. */
const kMostPrinted = 60000;

/**
 * Runs a program asynchronously, and prints its output after it has ended if it failed.
 * @param {string} program
 * @param {string[]} args
 * @param {Object<string, string>} [extra]
 * @returns {Promise<boolean>} whether it succeeded
 */
function quietStatus(program, args, extra) {
  return new Promise((resolve) => {
    const options = { cwd: root, env: environment(extra), maxBuffer: 1 << 28 };
    childProcess.execFile(program, args, options, (error, stdout, stderr) => {
      if (error) {
        const text = `${stderr}${stdout}`.slice(-kMostPrinted);
        console.error(`${text}nq_logic: ${program} failed on ${args[args.length - 1]}`);
      }
      resolve(!error);
    });
  });
}

/**
 * Runs an action for each item, in parallel on all CPU cores.
 * @template T
 * @param {T[]} items
 * @param {function(T): Promise<boolean>} action
 * @returns {Promise<boolean>} whether all succeeded
 */
async function eachAtOnce(items, action) {
  const waiting = items.slice();
  let good = true;
  const work = async () => {
    while (waiting.length > 0) {
      good = (await action(waiting.shift())) && good;
    }
  };
  await Promise.all(Array.from({ length: Number(jobs) }, work));
  return good;
}

/**
 * Path of a program on PATH, or null.
 * @param {string} name
 * @returns {?string}
 */
function which(name) {
  for (const folder of (process.env.PATH || '').split(path.delimiter)) {
    const file = path.join(folder, name);
    try {
      fs.accessSync(file, fs.constants.X_OK);
      return file;
    } catch (error) {
      // Not here.
    }
  }
  return null;
}

/**
 * A Node newer than 12: the one that runs npm, or on PATH; null if there is none. In scripts that npm runs, Node 12 is
 * first on PATH, since its package has a program called node.
 * @returns {?string} path
 */
function newerNode() {
  const own = path.join(root, 'node_modules', '.bin');
  const folders = (process.env.PATH || '').split(path.delimiter);
  const onPath = folders
    .filter((folder) => path.resolve(folder) !== own)
    .map((folder) => path.join(folder, 'node'));
  const candidates = [process.env.npm_node_execpath, process.execPath, ...onPath];
  const isNewer = (file) => {
    const version =
      file && fs.existsSync(file) ? output(file, ['-p', 'process.versions.node']) : null;
    return version !== null && parseInt(version, 10) > 12;
  };
  return candidates.find(isNewer) || null;
}

/** Removes a folder with its content, if it exists, on old and new hosts. */
function removeFolder(folder) {
  if (fs.existsSync(folder)) {
    (fs.rmSync || fs.rmdirSync)(folder, { recursive: true });
  }
}

/**
 * The command for npm: the npm that runs this script, with a Node that it supports, else the one on PATH.
 * @returns {string[]} program and first arguments
 */
function npmCommand() {
  const npm = process.env.npm_execpath;
  return npm && /\.c?js$/.test(npm) ? [newerNode() || process.execPath, npm] : ['npm'];
}

module.exports = {
  root,
  jobs,
  environment,
  fail,
  status,
  quietStatus,
  eachAtOnce,
  run,
  output,
  which,
  newerNode,
  npmCommand,
  removeFolder,
};
