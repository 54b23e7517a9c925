'use strict';
// The npm package: its files, installation without network and compiler, and that it runs.
const assert = require('assert');
const childProcess = require('child_process');
const crypto = require('crypto');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { folders, packedModules } = require('../../scripts/lib/build');
const { abis, arm64, hostBinary, platform } = require('../../scripts/lib/hosts');
const {
  browserFolder,
  expectedFiles,
  packedFiles,
  placeBrowserFiles,
  placePrebuilds,
  prebuildOf,
} = require('../../scripts/lib/package');
const { output, removeFolder, root, which } = require('../../scripts/lib/run');
const { noticesFile, parts, sbomFile } = require('../../scripts/lib/sbom');
const { packages: bundledPackages } = require('../../scripts/lib/bundle');
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

describe('the bill of materials of a package', () => {
  const inPackage = (file) => path.join(project, 'node_modules', 'nq_logic', file);
  const readBill = () => JSON.parse(fs.readFileSync(inPackage(sbomFile), 'utf8'));

  it('has the fields that CycloneDX requires, and references that exist', () => {
    const bill = readBill();
    assert.strictEqual(bill.bomFormat, 'CycloneDX');
    assert.strictEqual(bill.specVersion, '1.5');
    assert.strictEqual(bill.version, 1);
    assert(/^urn:uuid:[\da-f]{8}(-[\da-f]{4}){3}-[\da-f]{12}$/.test(bill.serialNumber));
    const described = [bill.metadata.component, ...bill.components];
    for (const { type, name, version, licenses } of described) {
      assert(/^(file|library)$/.test(type) && name !== '' && /^\d/.test(version), name);
      const [{ license, expression }] = licenses;
      assert(
        license === undefined ? / (WITH|AND) /.test(expression) : /^[\w.-]+$/.test(license.id)
      );
    }
    const references = described.map((component) => component['bom-ref']);
    assert.strictEqual(new Set(references).size, references.length);
    assert.deepStrictEqual(bill.dependencies.map(({ ref }) => ref).sort(), references.sort());
    for (const { dependsOn } of bill.dependencies) {
      assert.deepStrictEqual(
        dependsOn.filter((reference) => !references.includes(reference)),
        []
      );
    }
  });

  it('lists binaries and bundles by checksum, and no npm package but this one and those in bundles', () => {
    const bill = readBill();
    const files = bill.components.filter(({ type }) => type === 'file');
    const binaries = packedFiles(tarball).filter(
      (file) => file.startsWith('prebuilds/') && !file.endsWith('.d.mts')
    );
    assert.deepStrictEqual(files.map(({ name }) => name).sort(), binaries);
    for (const { name, hashes } of files) {
      const bytes = fs.readFileSync(inPackage(name));
      const content = crypto.createHash('sha256').update(bytes).digest('hex');
      assert.deepStrictEqual(hashes, [{ alg: 'SHA-256', content }], name);
    }
    const { version } = JSON.parse(fs.readFileSync(path.join(root, 'package.json'), 'utf8'));
    const named = bill.components.filter(({ purl }) => /^pkg:npm\//.test(purl));
    const names = named.map(({ name }) => name);
    assert.deepStrictEqual(names.sort(), [...bundledPackages].sort());
    for (const { name, purl, version: found } of named) {
      assert.notStrictEqual(found, version);
      assert.strictEqual(purl, `pkg:npm/${name.replace('@', '%40')}@${found}`);
    }
  });

  it('lists what the module in WebAssembly and the bundles contain', () => {
    const { dependencies } = readBill();
    const namesIn = (name) => {
      const { dependsOn } = dependencies.find(({ ref }) => ref === `${browserFolder}/${name}`);
      return dependsOn.map((reference) => /^pkg:(\w+\/[\w%/-]+)@\d/.exec(reference)[1]);
    };
    assert.deepStrictEqual(namesIn('nq_logic.wasm'), [
      'generic/simde',
      'generic/wasi-libc',
      'generic/libcxx',
    ]);
    for (const name of ['nq_logic.js', 'nq_logic.mjs']) {
      // What the bundler took, by its comments.
      const text = fs.readFileSync(inPackage(`${browserFolder}/nq_logic.mjs`), 'utf8');
      const taken = [...text.matchAll(/^\/\/ node_modules\/((?:@[\w-]+\/)?[\w-]+)\//gm)];
      const packages = [...new Set(taken.map(([, one]) => one))].sort();
      assert.deepStrictEqual(packages, [...bundledPackages].sort());
      assert.deepStrictEqual(
        namesIn(name),
        bundledPackages.map((one) => `npm/${one.replace('@', '%40')}`)
      );
      const bundle = fs.readFileSync(inPackage(`${browserFolder}/${name}`), 'utf8');
      for (const one of ['nq_logic', ...bundledPackages]) {
        const notice = bundle.split(`/*! ${one}\n`)[1] || '';
        assert(/Copyright \(c\) \d[^]*THE SOFTWARE IS PROVIDED/.test(notice), `${name}: ${one}`);
      }
    }
  });

  it('is complete: WebAssembly is linked with what it lists only', () => {
    const ninja = fs.readFileSync(path.join(root, folders.wasm, 'build.ninja'), 'utf8');
    const [, link] = /\nbuild nq_logic\.wasm: ([^]*?)\n\n/.exec(ninja);
    const [, libraries] = /\n {2}LINK_LIBRARIES = (.*)\n/.exec(link);
    const names = libraries.trim().split(/\s+/);
    assert.deepStrictEqual(names, ['libnq_core.a', '-lc-printscan-no-floating-point']);
  });

  it('lists what each binary contains, with the version of its host', () => {
    const { dependencies } = readBill();
    for (const { name, on } of packedModules()) {
      const { dependsOn } = dependencies.find(({ ref }) => ref === prebuildOf(name, on));
      const names = dependsOn.map((reference) => /^pkg:generic\/(\w+)@\d/.exec(reference)[1]);
      const expected = ['node', 'v8', 'gcc', 'glibc', ...(on === arm64 ? ['simde'] : [])];
      assert.deepStrictEqual(names, expected);
      assert(dependsOn[0].startsWith(`pkg:generic/node@${name}.`), dependsOn[0]);
    }
  });

  it('has a notice for each part, with its licence', () => {
    const notices = fs.readFileSync(inPackage(noticesFile), 'utf8');
    const rows = notices.split('\n').filter((line) => /^\| [a-z0-9@/-]+ \|/.test(line));
    assert.strictEqual(rows.length, parts.length);
    for (const { name, license } of parts) {
      const row = rows.find((line) => line.startsWith(`| ${name} |`));
      assert(row !== undefined && row.split('|')[3].trim().startsWith(license), name);
      if (row.includes(`[below](#${name.replace(/[@/]/g, '')})`)) {
        const section = notices.split(`\n## ${name}\n`)[1].split('\n## ')[0];
        assert(/Copyright [^]*(THE SOFTWARE IS PROVIDED|THIS SOFTWARE IS PROVIDED)/.test(section));
      }
    }
  });

  it('is complete: no library is linked statically besides our own', () => {
    for (const folder of new Set(packedModules().map(({ on }) => on))) {
      const ninja = path.join(root, folders[folder === arm64 ? 'arm64' : 'release'], 'build.ninja');
      const edges = fs.readFileSync(ninja, 'utf8').split('\nbuild ');
      const links = edges.filter((edge) =>
        /^[^\n]*\bnq_logic\.node: CXX_MODULE_LIBRARY_LINKER/.test(edge)
      );
      assert(links.length >= 3, ninja);
      for (const edge of links) {
        assert.strictEqual(/\n {2}LINK_LIBRARIES = (.*)\n/.exec(edge)[1].trim(), 'libnq_core.a');
      }
      const [core] = edges.filter((edge) => edge.startsWith('libnq_core.a: '));
      const objects = core.split('\n')[0].split(' | ')[0].split(' ').slice(2);
      assert(objects.length > 20);
      assert.deepStrictEqual(
        objects.filter((file) => !/^CMakeFiles\/nq_core\.dir\/(Common|Engine)\//.test(file)),
        []
      );
    }
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

  for (const { name } of packedModules().filter(({ name, on }) => name > 12 && on === platform)) {
    it(`runs in WebAssembly by require and import, and as one file, on Node ${name}`, () => {
      fs.copyFileSync(path.join(__dirname, 'wasm.mjs'), path.join(project, 'wasm.mjs'));
      const { stdout } = succeed(runInProject(hostBinary(name), 'wasm.mjs'));
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
    const compiler = path.join(root, 'node_modules', 'typescript', 'bin', 'tsc');
    const options = ['--noEmit', '--strict', '--target', 'es2019', '--module'];
    for (const [file, kind] of [
      ['use.ts', 'commonjs'],
      ['use-browser.mts', 'node16'],
    ]) {
      fs.copyFileSync(path.join(__dirname, file), path.join(project, file));
      const args = [compiler, ...options, kind, file];
      assert.strictEqual(succeed(runInProject(hostBinary('12'), ...args)).stdout, '');
    }
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

describe('placeBrowserFiles', () => {
  it('reports a missing module, and a file that is none', () => {
    const cure = "build it by 'cmake --preset wasm && cmake --build build/Wasm', see docs/wasm.md.";
    const file = path.join(folder, 'none.wasm');
    assert.throws(() => placeBrowserFiles(file, folder), {
      message: `there is no module ${file}: ${cure}`,
    });
    fs.writeFileSync(file, 'Hello world');
    assert.throws(() => placeBrowserFiles(file, folder), {
      message: `${file} is not a WebAssembly module: ${cure}`,
    });
    assert(!fs.existsSync(path.join(folder, 'prebuilds', 'wasm')));
  });
});
