// Run in a project in which the package is installed: all paths of its modules lead to the same objects, by require and by
// import, with and without '.js'.
import assert from 'assert';
import fs from 'fs';
import { createRequire } from 'module';
import path from 'path';

const require = createRequire(import.meta.url);
const folder = path.join('node_modules', 'nq_logic');

/** Paths below a folder of the package. */
function filesIn(below) {
  const entries = fs.readdirSync(path.join(folder, below), { withFileTypes: true });
  return [].concat(
    ...entries.map((entry) => {
      const name = path.posix.join(below, entry.name);
      return entry.isDirectory() ? filesIn(name) : [name];
    })
  );
}

const files = filesIn('');
const lib = files.filter((file) => /^lib\/.*\.js$/.test(file));
// Others are parts of these.
const modules = lib.filter((file) => /^lib\/[a-z]+\.js$/.test(file));
const paths = new Map([
  ['nq_logic', 'lib/index.js'],
  ['nq_logic/lib', 'lib/index.js'],
  ['nq_logic/scene', 'scene.js'],
  ['nq_logic/scene.js', 'scene.js'],
  ['nq_logic/wasm', 'wasm.js'],
  ['nq_logic/wasm.js', 'wasm.js'],
]);
for (const file of modules) {
  paths.set(`nq_logic/${file}`, file);
  paths.set(`nq_logic/${file.slice(0, -'.js'.length)}`, file);
}

async function main() {
  assert(modules.length >= 9 && lib.length > 30 && files.length > 90);
  for (const [id, file] of paths) {
    assert.strictEqual(require.resolve(id), path.resolve(folder, file), id);
    const exported = require(id);
    const imported = await import(id);
    assert.strictEqual(imported.default, exported, id);
    const names = Object.keys(exported);
    assert(names.length > 0, id);
    // The main module has getters, and re-exports others.
    if (id !== 'nq_logic' && !file.endsWith('index.js')) {
      const missing = names.filter((name) => imported[name] !== exported[name]);
      assert.deepStrictEqual(missing, [], id);
    }
  }
  // Parts by the names that the package itself uses, and everything else by the names of files.
  for (const file of lib) {
    const id = `nq_logic/${file.slice(0, -'.js'.length)}`;
    assert.strictEqual(require.resolve(id), path.resolve(folder, file), id);
  }
  for (const file of files.filter((one) => !one.startsWith('lib/'))) {
    assert.strictEqual(require.resolve(`nq_logic/${file}`), path.resolve(folder, file), file);
  }
  const module = path.resolve(folder, 'prebuilds/wasm/nq_logic.wasm');
  assert.strictEqual(require.resolve('nq_logic/nq_logic.wasm'), module);
  console.log('all well');
}

main().catch((error) => {
  console.error(error.stack);
  process.exitCode = 1;
});
