'use strict';
// The npm package: where its binary lies, and which files it holds.
const fs = require('fs');
const path = require('path');
const { output, root } = require('./run');

/** Version of the interface between host and module, as in the name of the binary. */
const abi = '72';

/** Path of the binary in the package; lib/load.js looks for it there. */
const prebuild = `prebuilds/linux-x64/node.abi${abi}.node`;

// What belongs into the package, in the folders that package.json names: no notes, tests of types or leftovers, and
// not the example that needs the build with command buffers.
const folders = {
  docs: /\.(md|png)$/,
  examples: /^(?!(expected\/)?08-matrixflow\.)(expected\/\d\d-[\w-]+\.txt|[\w-]+\.js)$/,
  lib: /\.js$/,
  types: /\.d\.ts$/,
};

/** Files beside those, whatever else comes and goes. */
const always = ['CHANGELOG.md', 'LICENSE', 'README.md', 'lib/index.js', 'package.json', prebuild];

/**
 * Puts the release module, stripped, where an installed package looks for it, and nothing else beside it.
 * @param {string} module file
 * @param {string} [folder] of the package
 * @returns {string} path from that folder
 * @throws {Error} saying what is missing, and the cure
 */
function placePrebuild(module, folder = root) {
  if (!fs.existsSync(module)) {
    throw new Error(`there is no module ${module}: build it by 'npm run build'.`);
  }
  const symbols = output('nm', ['-D', '--defined-only', '--format=posix', module]);
  if (symbols === null || !symbols.split('\n').some((line) => line.startsWith(entry()))) {
    throw new Error(`${module} is no module of ABI ${abi}: build it anew by 'npm run build'.`);
  }
  const target = path.join(folder, prebuild);
  // A binary of another name, left by an earlier version, would be packed as well.
  removeFolder(path.join(folder, 'prebuilds'));
  fs.mkdirSync(path.dirname(target), { recursive: true });
  if (output('strip', ['--strip-unneeded', '-o', target, module]) === null) {
    throw new Error(`strip failed on ${module}: install binutils.`);
  }
  return prebuild;
}

/** Removes a folder with all in it, if it is there, on old and new hosts. */
function removeFolder(folder) {
  if (fs.existsSync(folder)) {
    (fs.rmSync || fs.rmdirSync)(folder, { recursive: true });
  }
}

/** Symbol by which the host finds the module. */
function entry() {
  return `node_register_module_v${abi} `;
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
    const names = ownFiles(folder).filter((name) => folders[folder].test(name));
    files.push(...names.map((name) => `${folder}/${name}`));
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

module.exports = { abi, prebuild, expectedFiles, packedFiles, placePrebuild, removeFolder };
