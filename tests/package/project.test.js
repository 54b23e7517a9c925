'use strict';
// A project set up as in README.md, with current packages from the registry: the host runs its game, compiler,
// formatter and linter run on the newer Node; any version of the importer's peer installs.
const assert = require('assert');
const childProcess = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { builtFile } = require('../../scripts/lib/build');
const { hostBinary, names } = require('../../scripts/lib/hosts');
const { removeFolder, root } = require('../../scripts/lib/run');
const { skeleton, writeGlb } = require('../fixtures/models');
const { newerNode, runAtTerminal, runNpm } = require('./npm');

const kPeer = '@gltf-transform/core';

let folder;
let game;
let host;

function succeed(result) {
  assert.strictEqual(result.status, 0, `${result.stdout}${result.stderr}`);
  return result.stdout;
}

/** Runs a command line in the project. */
const runLine = (line) => runAtTerminal(game, 'sh', ['-ec', line]);

/** The commands of README.md that create a project, and those that install a host in it, a line each. */
function commandsOfReadme() {
  const text = fs.readFileSync(path.join(root, 'README.md'), 'utf8');
  const [, section] = /For your own project([^]*?)\n## /.exec(text);
  return Array.from(section.matchAll(/```\n([^]*?)```/g), ([, block]) => block.trim().split('\n'));
}

before(() => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-project-'));
  const sources = path.join(folder, 'nq_logic');
  game = path.join(folder, 'game');
  fs.mkdirSync(sources);
  const packing = ['pack', `--pack-destination=${sources}`];
  succeed(runNpm(root, path.join(folder, 'cache'), packing, { NQ_PACK_BUILD: '0' }));

  const [[pack, ...setUp], [installHost, startByHost]] = commandsOfReadme();
  assert.strictEqual(pack, 'npm pack');
  assert.strictEqual(setUp.pop(), 'node game.js');
  assert(startByHost.endsWith('/bin/node game.js'), startByHost);
  host = path.join(game, startByHost.split(' ')[0]);
  succeed(runAtTerminal(sources, 'sh', ['-ec', [...setUp, installHost].join('\n')]));
});

after(() => {
  removeFolder(folder);
});

describe('a project set up as in README.md', () => {
  it('runs its game with the Node in PATH, and with the host in its folder', () => {
    fs.copyFileSync(path.join(__dirname, 'smoke.js'), path.join(game, 'game.js'));
    for (const commands of commandsOfReadme()) {
      assert.strictEqual(succeed(runLine(commands[commands.length - 1])), 'all well\n');
    }
  });

  it('runs everything else with the Node in PATH', () => {
    const version = succeed(runLine('npx --no-install node -p process.versions.node')).trim();
    const own = succeed(runAtTerminal(game, newerNode(), ['-p', 'process.versions.node'])).trim();
    assert.strictEqual(version, own);
  });

  it('runs tsc 5, prettier 3 and eslint 9', () => {
    succeed(
      runLine('npm install --no-audit --no-fund --save-dev typescript@5 prettier@3 eslint@9')
    );
    fs.writeFileSync(
      path.join(game, 'tsconfig.json'),
      `${JSON.stringify({
        compilerOptions: { noEmit: true, strict: true, target: 'es2019', module: 'commonjs' },
        files: ['use.ts'],
      })}\n`
    );
    fs.copyFileSync(path.join(__dirname, 'use.ts'), path.join(game, 'use.ts'));
    const config = "module.exports = [{ rules: { 'no-undef': 'error' } }];\n";
    fs.writeFileSync(path.join(game, 'eslint.config.js'), config);
    assert.strictEqual(succeed(runLine('npx tsc')), '');
    // Each also reports errors.
    fs.writeFileSync(path.join(game, 'wrong.js'), 'console .log( nothing )');
    const prettier = runLine('npx prettier --check wrong.js');
    assert.strictEqual(prettier.status, 1, prettier.stderr);
    assert(prettier.stderr.includes('wrong.js'), prettier.stderr);
    const eslint = runLine('npx eslint wrong.js');
    assert.strictEqual(eslint.status, 1, eslint.stderr);
    assert(eslint.stdout.includes("'nothing' is not defined"), eslint.stdout);
    fs.unlinkSync(path.join(game, 'wrong.js'));
    fs.appendFileSync(path.join(game, 'use.ts'), 'entities.setPosition(0, "left", 2, 3);\n');
    const tsc = runLine('npx tsc');
    assert.strictEqual(tsc.status, 2, tsc.stdout);
    assert(tsc.stdout.includes('not assignable'), tsc.stdout);
  });

  describe('with the newest TypeScript, and typings of the newest host', () => {
    const newest = names[names.length - 1];

    before(() => {
      const packages = `typescript@latest @types/node@${newest}`;
      succeed(runLine(`npm install --no-audit --no-fund --save-dev ${packages}`));
      for (const file of ['use.cts', 'use.mts']) {
        fs.copyFileSync(path.join(__dirname, file), path.join(game, file));
      }
    });

    /** Writes a project of both files with a module resolution, and the module kind for it. */
    function configure(moduleResolution, module) {
      const strict = { strict: true, skipLibCheck: false, types: ['node'] };
      const compilerOptions = { outDir: 'out', target: 'es2019', module, moduleResolution };
      Object.assign(compilerOptions, strict);
      const project = { compilerOptions, files: ['use.cts', 'use.mts'] };
      fs.writeFileSync(path.join(game, 'tsconfig.json'), JSON.stringify(project));
    }

    for (const resolution of ['node16', 'nodenext']) {
      it(`compiles strictly with '${resolution}', and runs on the oldest and the newest host`, () => {
        configure(resolution, resolution);
        assert.strictEqual(succeed(runLine('npx tsc')), '');
        for (const file of ['use.cjs', 'use.mjs']) {
          for (const name of [names[0], newest]) {
            const args = [path.join('out', file)];
            const printed = succeed(runAtTerminal(game, hostBinary(name), args));
            assert.strictEqual(printed, 'all well\n', `${file} on Node ${name}`);
          }
        }
        removeFolder(path.join(game, 'out'));
      });
    }

    it("compiles strictly with 'bundler'", () => {
      configure('bundler', 'preserve');
      assert.strictEqual(succeed(runLine('npx tsc --noEmit')), '');
    });
  });
});

describe('the latest three.js', () => {
  // Suites that use it as an oracle load it instead of the version that package.json pins: as an ES module, which
  // Node 22 and later can require.
  const hook = `
    const Module = require('module');
    const { _resolveFilename } = Module;
    const path = require('path');
    const folder = path.join(__dirname, 'node_modules', 'three');
    const today = path.join(folder, require(path.join(folder, 'package.json')).module);
    Module._resolveFilename = function (request, ...rest) {
      return request === 'three' ? today : _resolveFilename.call(this, request, ...rest);
    };
    process.on('exit', () => console.log('three.js ' + require('three').REVISION));`;

  it('agrees with the module on Node 24', () => {
    succeed(runLine('npm install --no-audit --no-fund three@latest'));
    fs.writeFileSync(path.join(game, 'three-of-today.js'), hook);
    const suites = path.join(root, 'tests', 'script');
    const folder = path.join(suites, 'engine');
    const files = fs
      .readdirSync(folder)
      .filter((file) => file.endsWith('-against-three.test.js'))
      .map((file) => path.join(folder, file));
    assert.strictEqual(files.length, 4, files.join());
    files.push(path.join(suites, 'lib', 'scene', 'three.test.js'));
    const args = ['--expose-gc', '-r', path.join(game, 'three-of-today.js')];
    args.push(path.join(root, 'tests', 'run-suites.js'), ...files);
    const env = Object.assign({}, process.env, { NQ_MODULE: builtFile('nq_logic.node', '24') });
    const result = childProcess.spawnSync(hostBinary('24'), args, { encoding: 'utf8', env });
    const [, revision] = /^three\.js (\d+)$/m.exec(succeed(result));
    assert(Number(revision) > 147, revision);
  });

  it('has typings that toThree takes', () => {
    const packages = 'three@latest @types/three@latest typescript@5';
    succeed(runLine(`npm install --no-audit --no-fund ${packages}`));
    fs.copyFileSync(path.join(__dirname, 'use-three.ts'), path.join(game, 'use-three.ts'));
    const options = '--noEmit --strict --skipLibCheck --target es2020';
    for (const resolution of [
      'commonjs --moduleResolution node',
      'esnext --moduleResolution bundler',
    ]) {
      assert.strictEqual(
        succeed(runLine(`npx tsc ${options} --module ${resolution} use-three.ts`)),
        ''
      );
    }
  });
});

describe("the importer's peer", () => {
  // The import of a model: with the version under test, and with the one of the sources.
  const script = `
    const bytes = (key, value) => value instanceof ArrayBuffer ? Buffer.from(value).toString('hex') : value;
    require('nq_logic/lib/gltf').importGltf('model.glb').then(
      (model) => console.log(JSON.stringify(model, bytes)),
      ({ name, message }) => console.log(name + ': ' + message)
    );`;
  let expected;

  before(async () => {
    writeGlb(path.join(game, 'model.glb'), skeleton());
    fs.writeFileSync(path.join(game, 'import.js'), script);
    const { importGltf } = require('../../lib/gltf');
    const bytes = (key, value) =>
      value instanceof ArrayBuffer ? Buffer.from(value).toString('hex') : value;
    expected = JSON.stringify(await importGltf(path.join(game, 'model.glb')), bytes);
    assert(expected.length > 1000);
  });

  /** Installs a version, without --force, so that npm refuses conflicts. */
  function install(wanted) {
    succeed(runLine(`npm install --no-audit --no-fund ${kPeer}@${wanted}`));
    const file = path.join(game, 'node_modules', kPeer, 'package.json');
    return JSON.parse(fs.readFileSync(file, 'utf8')).version;
  }

  it('installs in its newest version, with which the importer runs or names the cure', () => {
    const version = install('latest');
    assert(Number.parseInt(version, 10) >= 4, version);
    const printed = succeed(runAtTerminal(game, host, ['import.js'])).trim();
    if (printed !== expected) {
      const start = `GltfError: importGltf found ${kPeer} ${version}, which Node 12`;
      assert(printed.startsWith(start), printed);
      assert(printed.endsWith(`by 'npm install ${kPeer}@3'.`), printed);
    }
    // On a Node that the version supports.
    assert.strictEqual(succeed(runAtTerminal(game, newerNode(), ['import.js'])).trim(), expected);
  });

  // The versions named by the cure and by the range of package.json.
  const { peerDependencies } = require('../../package.json');
  for (const wanted of [peerDependencies[kPeer].replace('>=', ''), '2', '3']) {
    it(`gives the same import with version ${wanted}, also on the host`, () => {
      install(wanted);
      for (const node of [host, newerNode()]) {
        assert.strictEqual(succeed(runAtTerminal(game, node, ['import.js'])).trim(), expected);
      }
    });
  }

  it('is all that the skinning example needs', () => {
    const example = path.join('node_modules', 'nq_logic', 'examples', '06-skinning.js');
    const file = path.join(root, 'examples', 'expected', '06-skinning.txt');
    const printed = succeed(runAtTerminal(game, host, [example]));
    assert.strictEqual(printed, fs.readFileSync(file, 'utf8'));
  });
});
