'use strict';
// The live examples of the site: one bundle of their programs with the library, and the engine in WebAssembly.
const childProcess = require('child_process');
const fs = require('fs');
const path = require('path');
const { buildWasm, wasmModulePath } = require('./build');
const { esbuildProgram, licenceFooter } = require('./bundle');
const { root } = require('./run');

/** The program of the pages. */
const entry = path.join('site', 'live', 'shared', 'page.mjs');

/**
 * Writes what pages with live examples load.
 * @param {string} folder
 * @throws {Error} with what the bundler says
 */
function writeLive(folder) {
  buildWasm();
  fs.mkdirSync(folder, { recursive: true });
  fs.copyFileSync(wasmModulePath, path.join(folder, 'nq_logic.wasm'));
  const args = [entry, '--bundle', '--platform=browser', '--target=es2020', '--format=esm'];
  args.push(
    '--charset=utf8',
    '--legal-comments=eof',
    '--log-level=warning',
    // Names stay: errors contain those of classes.
    ...['--minify-whitespace', '--minify-syntax'],
    licenceFooter(),
    `--outfile=${path.join(folder, 'live.js')}`
  );
  const { status, error, stderr } = childProcess.spawnSync(esbuildProgram(), args, {
    cwd: root,
    encoding: 'utf8',
  });
  if (status !== 0) {
    throw new Error(`the bundle of the live examples failed: ${error ? error.message : stderr}`);
  }
  if (stderr !== '') {
    console.error(stderr);
  }
}

module.exports = { writeLive };
