'use strict';
// The npm package: where its binaries are, and which files it holds.
const fs = require('fs');
const path = require('path');
const { abis, names, platform } = require('./hosts');
const { output, removeFolder, root } = require('./run');

/** Path of a host's binary in the package; lib/load.js looks for it there. */
function prebuildOf(name) {
  return `prebuilds/${platform}/node.abi${abis[name]}.node`;
}

// What belongs into the package, in the folders that package.json names: no notes, tests of types or leftovers, and
// not the example that needs the build with command buffers.
const folders = {
  docs: /\.(md|png)$/,
  examples: /^(?!(expected\/)?08-matrixflow\.)(expected\/\d\d-[\w-]+\.txt|[\w-]+\.js)$/,
  lib: /\.js$/,
  types: /\.d\.ts$/,
};

/** Files beside those, whatever else comes and goes. */
const always = [
  'CHANGELOG.md',
  'LICENSE',
  'README.md',
  'lib/index.js',
  'package.json',
  ...names.map(prebuildOf),
];

/** Throws unless a file is a module for a host. */
function checkModule(file, name) {
  if (!fs.existsSync(file)) {
    throw new Error(`there is no module ${file}: build it by 'npm run build -- --host ${name}'.`);
  }
  const symbols = output('nm', ['-D', '--defined-only', '--format=posix', file]);
  const entry = `node_register_module_v${abis[name]} `;
  if (symbols === null || !symbols.split('\n').some((line) => line.startsWith(entry))) {
    const cure = `build it anew by 'npm run build -- --host ${name}'`;
    throw new Error(`${file} is no module of ABI ${abis[name]}: ${cure}.`);
  }
}

/**
 * Puts release modules, stripped, where an installed package looks for them, and nothing else beside them.
 * @param {Object<string, string>} modules files by host
 * @param {string} [folder] of the package
 * @returns {string[]} paths from that folder
 * @throws {Error} saying what is missing, and the cure; then nothing was changed
 */
function placePrebuilds(modules, folder = root) {
  const hosts = Object.keys(modules);
  hosts.forEach((name) => checkModule(modules[name], name));
  // Binaries of other names, left by an earlier version, would be packed as well.
  removeFolder(path.join(folder, 'prebuilds'));
  return hosts.map((name) => {
    const target = path.join(folder, prebuildOf(name));
    fs.mkdirSync(path.dirname(target), { recursive: true });
    if (output('strip', ['--strip-unneeded', '-o', target, modules[name]]) === null) {
      throw new Error(`strip failed on ${modules[name]}: install binutils.`);
    }
    return prebuildOf(name);
  });
}

function filesBelow(folder, prefix = '') {
  if (!fs.existsSync(folder)) {
    return [];
  }
  return [].concat(
    ...fs.readdirSync(folder, { withFileTypes: true }).map((item) => {
      const name = prefix + item.name;
      const isFolder = item.isDirectory();
      return isFolder ? filesBelow(path.join(folder, item.name), `${name}/`) : [name];
    })
  );
}

/** Files of a folder that are under version control; in a tree without, all that are there. */
function ownFiles(folder) {
  const list = output('git', ['ls-files', '-z', '--', folder]);
  return list === null
    ? filesBelow(path.join(root, folder))
    : list.split('\0').map((name) => name.slice(folder.length + 1));
}

/**
 * Files that the package is to hold; leftovers in its folders are none of them.
 * @returns {string[]} paths from its root, in order
 */
function expectedFiles() {
  const files = [...always];
  for (const folder of Object.keys(folders)) {
    const own = ownFiles(folder).filter((file) => folders[folder].test(file));
    files.push(...own.map((file) => `${folder}/${file}`));
  }
  return [...new Set(files)].sort();
}

/**
 * Files that a package holds.
 * @param {string} tarball
 * @returns {?string[]} paths from its root, in order; null if it can't be read
 */
function packedFiles(tarball) {
  const list = output('tar', ['-tzf', tarball]);
  return list === null
    ? null
    : list
        .trim()
        .replace(/^package\//gm, '')
        .split('\n')
        .sort();
}

module.exports = { expectedFiles, packedFiles, placePrebuilds, prebuildOf };
