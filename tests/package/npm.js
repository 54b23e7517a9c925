'use strict';
// Runs npm, which needs a newer Node than the host, online and offline.
const childProcess = require('child_process');
const path = require('path');
const { environment, newerNode, root } = require('../../scripts/lib/run');

// In npm scripts, the host comes first in PATH: its package has a program called node.
const binFolder = path.join(root, 'node_modules', '.bin');

function pathWithoutHost() {
  const folders = (process.env.PATH || '').split(path.delimiter);
  return folders.filter((folder) => path.resolve(folder) !== binFolder).join(path.delimiter);
}

/** The npm that runs this, else the one in PATH: a program, and its first arguments. */
function npmCommand() {
  const { npm_execpath: script, npm_node_execpath: node } = process.env;
  return script && node ? [node, script] : ['npm'];
}

/**
 * Runs npm in a folder, offline.
 * @param {string} folder
 * @param {string} cache a separate folder, without earlier downloads
 * @param {string[]} args
 * @param {Object<string, string>} [extra] additional environment variables
 * @returns {{status: ?number, stdout: string, stderr: string}}
 */
function runNpm(folder, cache, args, extra = {}) {
  const [program, ...first] = npmCommand();
  const settings = ['--offline', `--cache=${cache}`, '--no-audit', '--no-fund'];
  return childProcess.spawnSync(program, [...first, ...args, ...settings], {
    cwd: folder,
    encoding: 'utf8',
    env: environment(Object.assign({ PATH: pathWithoutHost() }, extra)),
  });
}

/**
 * Runs a program in a folder like a user in a terminal: with the user's npm, Node and registry.
 * @param {string} folder
 * @param {string} program
 * @param {string[]} args
 * @returns {{status: ?number, stdout: string, stderr: string}}
 */
function runAtTerminal(folder, program, args) {
  const env = environment({ PATH: pathWithoutHost() });
  // Modules of a build would be loaded instead of the package's.
  delete env.NQ_MODULE;
  delete env.NQ_MATRIXFLOW_MODULE;
  return childProcess.spawnSync(program, args, { cwd: folder, encoding: 'utf8', env });
}

module.exports = { newerNode, runAtTerminal, runNpm };
