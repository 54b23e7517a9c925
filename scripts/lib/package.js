'use strict';
// The npm package: where its binaries are, and which files it holds.
const fs = require('fs');
const path = require('path');
const { abis, platform, platforms } = require('./hosts');
const { output, removeFolder, root } = require('./run');

/**
 * Path of a host's module in the package; lib/load.js looks for it there.
 * @param {string} name of the host
 * @param {string} [on] platform
 */
function prebuildOf(name, on = platform) {
  return `prebuilds/${on}/node.abi${abis[name]}.node`;
}

/** What a module of each platform is: the CPU in the head of its file, and the program that strips it. */
const binaries = {
  'linux-x64': { machine: 62, strip: 'strip', package: 'binutils' },
  'linux-arm64': {
    machine: 183,
    strip: 'aarch64-linux-gnu-strip',
    package: 'binutils-aarch64-linux-gnu',
  },
};

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
  ...[].concat(
    ...Object.keys(platforms).map((on) => platforms[on].map((name) => prebuildOf(name, on)))
  ),
];

/** The CPU that a program or library is for, as its head states it; 0 if the file is none. */
function machineOf(file) {
  const head = Buffer.alloc(20);
  const descriptor = fs.openSync(file, 'r');
  fs.readSync(descriptor, head, 0, head.length, 0);
  fs.closeSync(descriptor);
  return head.toString('latin1', 0, 4) === '\x7fELF' ? head.readUInt16LE(18) : 0;
}

/** Throws unless a file is a module for a host on a platform. */
function checkModule({ file, name, on }) {
  const cure = on === platform ? `by 'npm run build -- --host ${name}'` : "by 'npm pack'";
  if (!fs.existsSync(file)) {
    throw new Error(`there is no module ${file}: build it ${cure}.`);
  }
  const symbols = output('nm', ['-D', '--defined-only', '--format=posix', file]);
  const entry = `node_register_module_v${abis[name]} `;
  if (
    machineOf(file) !== binaries[on].machine ||
    symbols === null ||
    !symbols.split('\n').some((line) => line.startsWith(entry))
  ) {
    throw new Error(`${file} is no module of ABI ${abis[name]} for ${on}: build it anew ${cure}.`);
  }
}

/**
 * A module to be packed.
 * @typedef {Object} PackedModule
 * @property {string} file
 * @property {string} name of the host
 * @property {string} on platform
 */

/**
 * Puts release modules, stripped, where an installed package looks for them, and nothing else beside them.
 * @param {PackedModule[]} modules
 * @param {string} [folder] of the package
 * @returns {string[]} paths from that folder
 * @throws {Error} saying what is missing, and the cure; then nothing was changed
 */
function placePrebuilds(modules, folder = root) {
  modules.forEach(checkModule);
  // Binaries of other names, left by an earlier version, would be packed as well.
  removeFolder(path.join(folder, 'prebuilds'));
  return modules.map(({ file, name, on }) => {
    const target = path.join(folder, prebuildOf(name, on));
    fs.mkdirSync(path.dirname(target), { recursive: true });
    const { strip, package: source } = binaries[on];
    if (output(strip, ['--strip-unneeded', '-o', target, file]) === null) {
      throw new Error(`${strip} failed on ${file}: install ${source}.`);
    }
    return prebuildOf(name, on);
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
