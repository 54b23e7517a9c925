'use strict';
// Lists of the project's source files, for checks.
const fs = require('fs');
const path = require('path');
const { root } = require('./run');

/** Folders that hold C++, from the lowest layer up. */
const nativeFolders = [
  'Common',
  'Engine',
  'js-binding',
  'BindingTemp',
  'wasm',
  'cmake',
  'tests',
  'bench',
];

/**
 * C++ files below a folder; none if there is no such folder.
 * @param {string} folder path from the root
 * @returns {string[]} paths from the root, in order
 */
function nativeSourcesBelow(folder) {
  if (!fs.existsSync(path.join(root, folder))) {
    return [];
  }
  const files = [];
  for (const entry of fs.readdirSync(path.join(root, folder), { withFileTypes: true })) {
    const name = `${folder}/${entry.name}`;
    if (entry.isDirectory()) {
      files.push(...nativeSourcesBelow(name));
    } else if (/\.(h|cpp)$/.test(entry.name)) {
      files.push(name);
    }
  }
  return files.sort();
}

/**
 * All C++ files.
 * @returns {string[]} paths from the root
 */
function nativeSources() {
  return ['nq_logic.cpp'].concat(...nativeFolders.map(nativeSourcesBelow));
}

/**
 * Path of a file of an npm package.
 * @param {string} name
 * @returns {string}
 */
function nodeModule(name) {
  return path.join(root, 'node_modules', name);
}

/**
 * Arguments for the host to run prettier on all files that it formats.
 * @param {string} mode '--check' or '--write'
 * @returns {string[]}
 */
function prettierArguments(mode) {
  const files = [
    '**/*.js',
    '**/*.mjs',
    '**/*.ts',
    '**/*.json',
    '.eslintrc.json',
    '.prettierrc.json',
  ];
  const script = nodeModule('prettier/bin-prettier.js');
  return [script, mode, '--loglevel=warn', '--no-error-on-unmatched-pattern', ...files];
}

module.exports = { nativeSources, nativeSourcesBelow, nodeModule, prettierArguments };
