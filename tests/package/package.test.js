'use strict';
// The npm package: its files, installation without network and compiler, and that it runs.
const assert = require('assert');
const childProcess = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { packedModules } = require('../../scripts/lib/build');
const { abis, arm64, hostBinary, platform } = require('../../scripts/lib/hosts');
const {
  expectedFiles,
  packedFiles,
  placePrebuilds,
  prebuildOf,
} = require('../../scripts/lib/package');
const { output, removeFolder, root, which } = require('../../scripts/lib/run');
const { runNpm } = require('./npm');

let folder;
let project;
let tarball;

/** Names of the symbols that nm prints. */
function symbolsOf(module, ...options) {
  const table = output('nm', [...options, '--format=posix', module]);
  return table.split('\n').map((line) => line.split(' ')[0]);
}

function succeed(result) {
  assert.strictEqual(result.status, 0, `${result.stdout}${result.stderr}`);
  return result;
}

before(() => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-package-'));
  const cache = path.join(folder, 'cache');
  // The module has been built: see the check named package.
  succeed(runNpm(root, cache, ['pack', `--pack-destination=${folder}`], { NQ_PACK_BUILD: '0' }));
  const [name] = fs.readdirSync(folder).filter((file) => file.endsWith('.tgz'));
  tarball = path.join(folder, name);
  project = path.join(folder, 'project');
  fs.mkdirSync(project);
  fs.writeFileSync(path.join(project, 'package.json'), '{ "private": true }');
  succeed(runNpm(project, cache, ['install', tarball]));
});

after(() => {
  removeFolder(folder);
});

describe('package', () => {
  it('contains exactly the expected files', () => {
    assert.deepStrictEqual(packedFiles(tarball), expectedFiles());
  });

  it('contains no development files', () => {
    const workshop = /^(\.|build|bench|tests|scripts|cmake|node_modules|out|Common|Engine)|test/;
    assert.deepStrictEqual(
      packedFiles(tarball).filter((file) => workshop.test(file)),
      []
    );
  });

  it('refers only to files that it contains, and has no dependencies', () => {
    const files = packedFiles(tarball);
    const installed = path.join(project, 'node_modules', 'nq_logic', 'package.json');
    const description = JSON.parse(fs.readFileSync(installed, 'utf8'));
    assert(files.includes(description.main), description.main);
    assert(files.includes(description.types), description.types);
    assert.strictEqual(description.dependencies, undefined);
    const scripts = Object.keys(description.scripts);
    const onInstall = /^(pre|post)?(install|prepare)$/;
    assert.deepStrictEqual(
      scripts.filter((name) => onInstall.test(name)),
      []
    );
    const peers = Object.keys(description.peerDependencies);
    assert.deepStrictEqual(
      peers.filter((name) => !description.peerDependenciesMeta[name].optional),
      []
    );
  });

  it('states licence, author, keywords, repository and issue tracker', () => {
    const description = require(path.join(project, 'node_modules', 'nq_logic', 'package.json'));
    const { author, bugs, homepage, keywords, license, repository } = description;
    assert.strictEqual(license, 'MIT');
    const [, holder] = /^Copyright \(c\) \d+ (.*)$/m.exec(
      fs.readFileSync(path.join(root, 'LICENSE'), 'utf8')
    );
    assert.strictEqual(author, holder);
    assert(keywords.length >= 5 && new Set(keywords).size === keywords.length, keywords.join());
    const at = /^git\+(https:\/\/\S+)\.git$/.exec(repository.url)[1];
    assert.strictEqual(bugs, `${at}/issues`);
    assert.strictEqual(homepage, `${at}#readme`);
  });

  it('installs no other package', () => {
    const names = fs.readdirSync(path.join(project, 'node_modules'));
    assert.deepStrictEqual(
      names.filter((name) => !name.startsWith('.')),
      ['nq_logic']
    );
  });

  for (const { file: built, name, on } of packedModules()) {
    it(`has the release module for Node ${name} on ${on}, without debug symbols`, () => {
      const file = path.join(project, 'node_modules', 'nq_logic', prebuildOf(name, on));
      assert(file.endsWith(path.join('prebuilds', on, `node.abi${abis[name]}.node`)));
      assert(symbolsOf(file, '-D').includes(`node_register_module_v${abis[name]}`));
      assert.deepStrictEqual(symbolsOf(file), ['']);
      assert(symbolsOf(built).length > 100);
    });
  }

  it('links only to documents and examples that it contains', () => {
    const files = packedFiles(tarball);
    const documents = files.filter((file) => file.endsWith('.md'));
    assert(documents.length > 10);
    const missing = [];
    for (const file of documents) {
      const code = /```[^]*?```/g;
      const text = fs.readFileSync(path.join(root, file), 'utf8').replace(code, '');
      for (const [, link] of text.matchAll(/\]\(([^)#\s]+)[^)]*\)/g)) {
        const target = path.posix.join(path.posix.dirname(file), link);
        if (!/^\w+:/.test(link) && !files.includes(target)) {
          missing.push(`${file}: ${link}`);
        }
      }
    }
    assert.deepStrictEqual(missing, []);
  });
});

describe('an installed package', () => {
  /** Runs a script in the project, with an empty PATH. */
  function runInProject(program, ...args) {
    const options = { cwd: project, encoding: 'utf8', env: { PATH: '' } };
    return childProcess.spawnSync(program, args, options);
  }

  for (const { name, on } of packedModules()) {
    it(`runs on Node ${name} on ${on} without a compiler`, () => {
      fs.copyFileSync(path.join(__dirname, 'smoke.js'), path.join(project, 'smoke.js'));
      const host = hostBinary(name, on);
      const command =
        on === arm64 ? [which('qemu-aarch64'), '-L', '/usr/aarch64-linux-gnu', host] : [host];
      const { stdout } = succeed(runInProject(...command, 'smoke.js'));
      assert.strictEqual(stdout, 'all well\n');
    });
  }

  for (const { name } of packedModules().filter(({ on }) => on === platform)) {
    it(`has the same modules by require and import, with and without .js, on Node ${name}`, () => {
      fs.copyFileSync(path.join(__dirname, 'paths.mjs'), path.join(project, 'paths.mjs'));
      const { stdout } = succeed(runInProject(hostBinary(name), 'paths.mjs'));
      assert.strictEqual(stdout, 'all well\n');
    });
  }

  it('runs all its examples', () => {
    const examples = path.join('node_modules', 'nq_logic', 'examples');
    const names = fs.readdirSync(path.join(project, examples)).filter((name) => /^\d/.test(name));
    assert(names.length > 6);
    const importer = "'npm install @gltf-transform/core@3'";
    const peers = new Map([
      ['06-skinning', importer],
      ['09-scene', importer],
      ['10-layers', importer],
      ['11-sockets', importer],
      ['13-crowd', importer],
      ['14-interop', "Cannot find module 'three'"],
      ['15-rooms', "Cannot find module 'piscina'"],
    ]);
    for (const name of names.map((file) => path.basename(file, '.js'))) {
      const result = runInProject(hostBinary('12'), path.join(examples, `${name}.js`));
      if (peers.has(name)) {
        // It needs another package: see project.test.js.
        assert(result.stderr.includes(peers.get(name)), result.stderr);
        continue;
      }
      const expected = path.join(project, examples, 'expected', `${name}.txt`);
      assert.strictEqual(succeed(result).stdout, fs.readFileSync(expected, 'utf8'), name);
    }
  });

  it('has typings without dependencies', () => {
    fs.copyFileSync(path.join(__dirname, 'use.ts'), path.join(project, 'use.ts'));
    const compiler = path.join(root, 'node_modules', 'typescript', 'bin', 'tsc');
    const options = ['--noEmit', '--strict', '--target', 'es2019', '--module', 'commonjs'];
    const { stdout } = succeed(runInProject(hostBinary('12'), compiler, ...options, 'use.ts'));
    assert.strictEqual(stdout, '');
  });
});

describe('scripts/pack.js', () => {
  it('refuses unknown options', () => {
    const script = path.join(root, 'scripts', 'pack.js');
    const result = childProcess.spawnSync(process.execPath, [script, '--fast'], {
      encoding: 'utf8',
    });
    assert.strictEqual(result.status, 2);
    assert.strictEqual(result.stderr, 'nq_logic: unknown option --fast; known: --no-build.\n');
  });
});

describe('placePrebuilds', () => {
  const [reference] = packedModules();

  it('reports a missing build', () => {
    const file = path.join(folder, 'none.node');
    const refuse = (on, cure) =>
      assert.throws(() => placePrebuilds([reference, { file, name: '24', on }], folder), {
        message: `there is no module ${file}: build it by ${cure}.`,
      });
    refuse('linux-x64', "'npm run build -- --host 24'");
    refuse('linux-arm64', "'npm pack'");
  });

  it('refuses a file that is no module of the ABI, and changes nothing', () => {
    const target = path.join(folder, 'kept');
    fs.mkdirSync(path.join(target, 'prebuilds'), { recursive: true });
    const refuse = (file, { name, on }) =>
      assert.throws(() => placePrebuilds([{ file, name, on }], target), {
        message: new RegExp(`is not a module of ABI ${abis[name]} for ${on}: rebuild it by 'npm `),
      });
    const of24 = packedModules().filter(({ name }) => name === '24');
    for (const file of [process.execPath, __filename, of24[0].file]) {
      refuse(file, reference);
    }
    // The entry point of Node 24, but for the other platform.
    assert.strictEqual(of24.length, 2);
    refuse(of24[0].file, of24[1]);
    refuse(of24[1].file, of24[0]);
    assert(fs.existsSync(path.join(target, 'prebuilds')));
  });

  it('removes earlier binaries', () => {
    const target = path.join(folder, 'anew');
    const old = path.join(target, 'prebuilds', 'linux-x64', 'node.abi64.node');
    fs.mkdirSync(path.dirname(old), { recursive: true });
    fs.writeFileSync(old, 'old');
    assert.deepStrictEqual(placePrebuilds([reference], target), [prebuildOf('12')]);
    assert.deepStrictEqual(fs.readdirSync(path.dirname(old)), [path.basename(prebuildOf('12'))]);
  });
});
