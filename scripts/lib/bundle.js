'use strict';
// The library for browsers, as one file: the engine in WebAssembly, scenes, views, checked mode and the importer.
const childProcess = require('child_process');
const fs = require('fs');
const path = require('path');
const { root } = require('./run');

/** What is in it, by module; a name of several modules is that of the last one. */
const modules = ['lib/index', 'lib/gltf', 'lib/scene', 'lib/wasm'];

/** What only the native module has. */
const nativeNames = ['getEngine', 'loadMatrixFlow', 'moduleAbis'];

/** Name of the global object that a script makes. */
const globalName = 'nqLogic';

/** Packages that it contains: the importer's, and what that one needs. */
const packages = ['@gltf-transform/core', 'gl-matrix', 'property-graph'];

/** The licence of the library or of a package in it: a comment. */
function licenceText(name) {
  const folder = name === 'nq_logic' ? root : path.join(root, 'node_modules', name);
  const file = fs.readdirSync(folder).find((one) => /^LICEN[CS]E(\.\w+)?$/.test(one));
  return `/*! ${name}\n\n${fs.readFileSync(path.join(folder, file), 'utf8').trim()}\n*/`;
}

/** The argument of esbuild that ends a bundle with the licences of the library and of what it contains. */
function licenceFooter() {
  return `--footer:js=${['nq_logic', ...packages].map(licenceText).join('\n')}`;
}

/** The module that exports each name. */
function ownersOfNames() {
  const owners = new Map();
  for (const file of modules) {
    for (const name of Object.keys(require(path.join(root, file)))) {
      owners.set(name, file);
    }
  }
  nativeNames.forEach((name) => owners.delete(name));
  return Array.from(owners);
}

/** A module that exports all names. */
function entryText() {
  return ownersOfNames()
    .map(([name, file]) => `export { ${name} } from './${file}.js';\n`)
    .join('');
}

/**
 * Typings of the ES module.
 * @param {string} types address of their folder from that of the bundle
 */
function typingsText(types) {
  const lines = modules.map((file) => {
    const names = ownersOfNames().filter(([, owner]) => owner === file);
    const list = names.map(([name]) => `  ${name},\n`).join('');
    return `export {\n${list}} from '${types}/${path.basename(file)}.js';\n`;
  });
  return `// The library for browsers. Further types are those of nq_logic, nq_logic/scene and nq_logic/wasm.\n${lines.join(
    ''
  )}`;
}

/** Path of esbuild's program, which is native: it runs whatever Node.js runs this. */
function esbuildProgram() {
  const platform = `${process.platform}-${process.arch}`;
  return require.resolve(`@esbuild/${platform}/bin/esbuild`, { paths: [root] });
}

/**
 * Writes the bundle.
 * @param {string} outfile
 * @param {{format: 'esm' | 'iife'}} options an ES module, or a script that defines `nqLogic`
 * @throws {Error} with what the bundler says
 */
function writeBundle(outfile, { format }) {
  const args = ['--bundle', '--platform=browser', '--target=es2020', `--format=${format}`];
  args.push(
    '--charset=utf8',
    '--legal-comments=eof',
    '--log-level=warning',
    licenceFooter(),
    `--outfile=${outfile}`
  );
  if (format === 'iife') {
    // Names stay: errors contain those of classes.
    args.push(`--global-name=${globalName}`, '--minify-whitespace', '--minify-syntax');
  }
  const { status, error, stderr } = childProcess.spawnSync(esbuildProgram(), args, {
    cwd: root,
    input: entryText(),
    encoding: 'utf8',
  });
  if (status !== 0) {
    throw new Error(`the bundle '${outfile}' failed: ${error ? error.message : stderr}`);
  }
  if (stderr !== '') {
    console.error(stderr);
  }
}

module.exports = { esbuildProgram, globalName, licenceFooter, packages, typingsText, writeBundle };
