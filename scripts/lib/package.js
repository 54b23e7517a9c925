'use strict';
// The npm package: paths of its binaries, and the list of its files.
const fs = require('fs');
const path = require('path');
const { typingsText, writeBundle } = require('./bundle');
const { abis, platform, platforms } = require('./hosts');
const { output, removeFolder, root } = require('./run');
const { bundlePlatform, noticesFile, sbomFile, wasmPlatform } = require('./sbom');

/** Folder of the files for browsers in the package; lib/wasm/files.js looks for the module there. */
const browserFolder = 'prebuilds/wasm';

/** The module in WebAssembly, the bundles by their format, and the typings of the ES module. */
const wasmName = 'nq_logic.wasm';
const bundles = { 'nq_logic.mjs': 'esm', 'nq_logic.js': 'iife' };
const typingsName = 'nq_logic.d.mts';

/** The first bytes of a module in WebAssembly: its signature, and version 1. */
const wasmHeader = Buffer.from('\0asm\x01\0\0\0', 'latin1');

/**
 * Path of a host's module in the package, where lib/load.js looks for it, or of a file for browsers.
 * @param {string} name of the host, or of the file
 * @param {string} [on] platform
 */
function prebuildOf(name, on = platform) {
  if (on === wasmPlatform || on === bundlePlatform) {
    return `${browserFolder}/${name}`;
  }
  return `prebuilds/${on}/node.abi${abis[name]}.node`;
}

/** Modules of each platform: the machine number in the ELF header, and the strip program. */
const binaries = {
  'linux-x64': { machine: 62, strip: 'strip', package: 'binutils' },
  'linux-arm64': {
    machine: 183,
    strip: 'aarch64-linux-gnu-strip',
    package: 'binutils-aarch64-linux-gnu',
  },
};

// Files of the package in the folders that package.json lists: no notes, type tests or leftovers, and not the example
// that needs the build with command buffers.
const folders = {
  docs: /\.(md|png)$/,
  examples: /^(?!(expected\/)?08-matrixflow\.)(expected\/\d\d-[\w-]+\.txt|[\w-]+\.js)$/,
  lib: /\.(css|html|js)$/,
  types: /\.d\.ts$/,
};

/** Files that must always be in the package. */
const always = [
  'CHANGELOG.md',
  'LICENSE',
  'README.md',
  noticesFile,
  'lib/index.js',
  'package.json',
  sbomFile,
  'scene.js',
  'wasm.js',
  ...[wasmName, ...Object.keys(bundles), typingsName].map((name) => `${browserFolder}/${name}`),
  ...[].concat(
    ...Object.keys(platforms).map((on) => platforms[on].map((name) => prebuildOf(name, on)))
  ),
];

/** The machine number in the header of an ELF file; 0 for any other file. */
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
    throw new Error(`${file} is not a module of ABI ${abis[name]} for ${on}: rebuild it ${cure}.`);
  }
}

/**
 * A module to pack, or another binary or bundle.
 * @typedef {Object} PackedModule
 * @property {string} file
 * @property {string} name of the host, or of the file
 * @property {string} on platform
 */

/**
 * Writes stripped release modules to the paths where an installed package looks for them, and removes any others.
 * @param {PackedModule[]} modules
 * @param {string} [folder] of the package
 * @returns {string[]} paths from that folder
 * @throws {Error} with what is missing, and the cure, before anything is changed
 */
function placePrebuilds(modules, folder = root) {
  modules.forEach(checkModule);
  // Binaries with other names, from an earlier version, would be packed too.
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

/** Throws unless a file is the module in WebAssembly. */
function checkWasmModule(file) {
  const cure = "build it by 'cmake --preset wasm && cmake --build build/Wasm', see docs/wasm.md";
  if (!fs.existsSync(file)) {
    throw new Error(`there is no module ${file}: ${cure}.`);
  }
  // Node 12 knows no vector instructions, so it can't validate the whole.
  if (!fs.readFileSync(file).slice(0, 8).equals(wasmHeader)) {
    throw new Error(`${file} is not a WebAssembly module: ${cure}.`);
  }
}

/**
 * Writes the module in WebAssembly, bundles of the library for browsers, and their typings into the package.
 * @param {string} file the module, as built
 * @param {string} [folder] of the package
 * @returns {PackedModule[]} those that contain parts of others
 * @throws {Error} with what is missing, and the cure
 */
function placeBrowserFiles(file, folder = root) {
  checkWasmModule(file);
  const target = path.join(folder, browserFolder);
  removeFolder(target);
  fs.mkdirSync(target, { recursive: true });
  fs.copyFileSync(file, path.join(target, wasmName));
  fs.chmodSync(path.join(target, wasmName), 0o644);
  for (const name of Object.keys(bundles)) {
    writeBundle(path.join(target, name), { format: bundles[name] });
  }
  fs.writeFileSync(path.join(target, typingsName), typingsText('../../types'));
  return [
    { file, name: wasmName, on: wasmPlatform },
    ...Object.keys(bundles).map((name) => ({
      file: path.join(target, name),
      name,
      on: bundlePlatform,
    })),
  ];
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

/** Files of a folder under version control, or all of them in a tree without it. */
function ownFiles(folder) {
  const list = output('git', ['ls-files', '-z', '--', folder]);
  return list === null
    ? filesBelow(path.join(root, folder))
    : list.split('\0').map((name) => name.slice(folder.length + 1));
}

/**
 * Files that the package should contain, without leftovers in its folders.
 * @returns {string[]} paths from its root, sorted
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
 * Files in a package.
 * @param {string} tarball
 * @returns {?string[]} paths from its root, sorted; null if it can't be read
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

module.exports = {
  browserFolder,
  checkWasmModule,
  expectedFiles,
  packedFiles,
  placeBrowserFiles,
  placePrebuilds,
  prebuildOf,
};
