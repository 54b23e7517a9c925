'use strict';
// The package needs no other at run time: no dependencies in package.json, and none in its JavaScript.
const assert = require('assert');
const fs = require('fs');
const { builtinModules } = require('module');
const path = require('path');

const root = path.resolve(__dirname, '../../..');
const description = JSON.parse(fs.readFileSync(path.join(root, 'package.json'), 'utf8'));

/** JavaScript files of a folder and all below it. */
function scriptsOf(folder) {
  return [].concat(
    ...fs.readdirSync(folder, { withFileTypes: true }).map((item) => {
      const file = path.join(folder, item.name);
      return item.isDirectory() ? scriptsOf(file) : file.endsWith('.js') ? [file] : [];
    })
  );
}

/** What a source loads by require or import, with strings that are not constant as the text of their expression. */
function loadsOf(text) {
  const code = text.replace(/\/\*[^]*?\*\//g, '').replace(/^\s*\/\/.*$/gm, '');
  const calls = [...code.matchAll(/(?<![.\w])(?:require|import)\(([^)]*)\)(?! \{)/g)].map(
    ([, what]) => what
  );
  const statements = [...code.matchAll(/^\s*(?:import|export)\b[^'"]*?from ('[^']*')/gm)];
  return [...calls, ...statements.map(([, what]) => what)].map((what) => {
    const constant = /^\s*(['"])(.*)\1\s*$/.exec(what);
    return constant === null ? `(${what.trim()})` : constant[2];
  });
}

describe('run-time dependencies', () => {
  it('are none in package.json but the optional peer of the importer', () => {
    const of = (field) => Object.keys(description[field] || {});
    for (const field of ['dependencies', 'optionalDependencies', 'bundledDependencies']) {
      assert.deepStrictEqual(of(field), [], field);
    }
    assert.deepStrictEqual(of('peerDependencies'), ['@gltf-transform/core']);
    assert.strictEqual(description.peerDependenciesMeta['@gltf-transform/core'].optional, true);
  });

  it('are none in the JavaScript of the package but that peer, and the native module', () => {
    const foreign = [];
    const files = [path.join(root, 'scene.js'), ...scriptsOf(path.join(root, 'lib'))];
    assert.ok(files.length > 40);
    for (const file of files) {
      for (const name of loadsOf(fs.readFileSync(file, 'utf8'))) {
        if (!/^\.{1,2}\//.test(name) && !builtinModules.includes(name.replace(/^node:/, ''))) {
          foreign.push(`${path.relative(root, file)}: ${name}`);
        }
      }
    }
    assert.deepStrictEqual(foreign.sort(), [
      'lib/browser/gltf-library.js: @gltf-transform/core',
      'lib/gltf-library.js: (kLibrary)',
      'lib/load.js: (candidate.file)',
    ]);
    const importer = fs.readFileSync(path.join(root, 'lib/gltf-library.js'), 'utf8');
    assert.ok(importer.includes("const kLibrary = '@gltf-transform/core';"));
  });

  it('are found by the test', () => {
    const text =
      "const a = require('a'); // require('b')\n/* require('c') */ import('d'); require(e);";
    assert.deepStrictEqual(loadsOf(text), ['a', 'b', 'd', '(e)']);
    assert.deepStrictEqual(loadsOf("import f from 'f';\nexport { g } from './g.js';"), [
      'f',
      './g.js',
    ]);
  });
});
