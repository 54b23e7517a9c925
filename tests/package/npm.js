'use strict';
// Runs npm, which needs a newer Node than the host, without a network.
const childProcess = require('child_process');
const path = require('path');
const { environment, newerNode, root } = require('../../scripts/lib/run');

// In scripts that npm runs, the host comes first on PATH: its package has a program called node.
const binFolder = path.join(root, 'node_modules', '.bin');

function pathWithoutHost() {
  const folders = (process.env.PATH || '').split(path.delimiter);
  return folders.filter((folder) => path.resolve(folder) !== binFolder).join(path.delimiter);
}

/**
 * Runs npm in a folder: the one that runs this, else the one on PATH.
 * @param {string} folder
 * @param {string} cache folder of its own, so that nothing that was fetched earlier helps
 * @param {string[]} args
 * @param {Object<string, string>} [extra] variables to add to its environment
 * @returns {{status: ?number, stdout: string, stderr: string}}
 */
function runNpm(folder, cache, args, extra = {}) {
  const { npm_execpath: script, npm_node_execpath: node } = process.env;
  const [program, first] = script && node ? [node, [script]] : ['npm', []];
  const settings = ['--offline', `--cache=${cache}`, '--no-audit', '--no-fund'];
  return childProcess.spawnSync(program, [...first, ...args, ...settings], {
    cwd: folder,
    encoding: 'utf8',
    env: environment(Object.assign({ PATH: pathWithoutHost() }, extra)),
  });
}

module.exports = { newerNode, runNpm };
