'use strict';
// The loader of lib/load.js: which files it tries, in which order, and its errors.
const assert = require('assert');
const childProcess = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');

const { differences } = require('../support/host');
const { load, loadMatrixFlow, moduleAbis } = require('../../../lib/load');
const { removeFolder } = require('../../../scripts/lib/run');

const root = path.join(__dirname, '..', '..', '..');
const plainModule = path.resolve(process.env.NQ_MODULE);
const flowModule = path.resolve(process.env.NQ_MATRIXFLOW_MODULE);
const { abi } = differences;
/** Folder of a build for this host. */
const buildFolder = path.join('build', 'Release', abi === '72' ? '' : `abi${abi}`);
const platform = `${process.platform}-${process.arch}`;
const prebuilt = path.join('prebuilds', platform, `node.abi${abi}.node`);
const built = path.join(buildFolder, 'nq_logic.node');
/** List of supported hosts in messages. */
const nodesOf = {
  'linux-x64': 'Node 12, 18, 20, 22, 24 or 26',
  'linux-arm64': 'Node 22, 24 or 26',
};
const hosts =
  'Node 12, 18, 20, 22, 24 or 26 on Linux on x86-64, and for Node 22, 24 or 26 on Linux on arm64, with glibc';
/** Build instruction in messages. */
const making =
  platform === 'linux-x64'
    ? "'npm run build' in the sources of nq_logic"
    : "'npm pack' in the sources of nq_logic on Linux on x86-64, and install it from that package";
let folder;

before(() => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-load-'));
});

after(() => {
  removeFolder(folder);
});

let copies = 0;

function copyFolder(from, to) {
  fs.mkdirSync(to, { recursive: true });
  for (const entry of fs.readdirSync(from, { withFileTypes: true })) {
    const copy = entry.isDirectory() ? copyFolder : fs.copyFileSync;
    copy(path.join(from, entry.name), path.join(to, entry.name));
  }
}

/** A folder with only the library, and modules at `files`. */
function copyLibrary(files) {
  const copy = path.join(folder, `copy-${++copies}`);
  copyFolder(path.join(root, 'lib'), path.join(copy, 'lib'));
  for (const name of Object.keys(files)) {
    fs.mkdirSync(path.dirname(path.join(copy, name)), { recursive: true });
    fs.writeFileSync(path.join(copy, name), files[name]);
  }
  return copy;
}

/** Runs a script with a copy of the library, by default without the project's environment variables. */
function runIn(copy, script, { variables = {} } = {}) {
  const env = Object.assign({}, process.env);
  for (const name of ['NQ_MODULE', 'NQ_MATRIXFLOW_MODULE']) {
    delete env[name];
  }
  const run = childProcess.spawnSync(process.execPath, ['-e', script], {
    cwd: copy,
    encoding: 'utf8',
    env: Object.assign(env, variables),
  });
  assert.strictEqual(run.error, undefined);
  assert.strictEqual(run.signal, null, run.stderr);
  return run;
}

/**
 * Message, code and files of the error that loading in a copy throws.
 * @param {string} [disguise] script that makes the process look like another host
 */
function refusal(copy, call, { disguise = '', ...options } = {}) {
  const script = `
    ${disguise}
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

describe('load', () => {
  it('loads the file named by NQ_MODULE', () => {
    const nq = load();
    assert.strictEqual(nq, require(plainModule));
    assert.deepStrictEqual(nq.getVersion(), { version: '138' });
    assert.strictEqual(nq.getEngine().dirtyEntities.byteLength, 49152);
    assert.strictEqual(load(), nq);
  });

  it('prefers the file that is passed', () => {
    assert.strictEqual(load(flowModule), require(flowModule));
    assert.strictEqual(load(path.relative('', plainModule)), require(plainModule));
  });

  it('takes an empty name for none, and not for NQ_MODULE', () => {
    const copy = copyLibrary({ [built]: '', [prebuilt]: '' });
    const { files } = refusal(copy, "load('')");
    assert.deepStrictEqual(files, [path.join(copy, built), path.join(copy, prebuilt)]);
  });

  it('prefers the build to the prebuilt module', () => {
    const copy = copyLibrary({ [built]: '', [prebuilt]: '' });
    const { files, original } = refusal(copy, 'load()');
    assert.deepStrictEqual(files, [path.join(copy, built), path.join(copy, prebuilt)]);
    // The last of the two errors.
    assert(original.includes(path.join(copy, prebuilt)), original);
    fs.copyFileSync(plainModule, path.join(copy, built));
    const run = runIn(copy, `require('./lib/load').load()`);
    assert.strictEqual(run.status, 0, run.stderr);
  });

  it('falls back to the prebuilt module if there is no build, or a broken one', () => {
    const copy = copyLibrary({ [prebuilt]: fs.readFileSync(plainModule) });
    const script = `console.log(require('./lib').getVersion().version)`;
    assert.strictEqual(runIn(copy, script).stdout, '138\n');
    fs.mkdirSync(path.join(copy, buildFolder), { recursive: true });
    fs.writeFileSync(path.join(copy, built), 'not a library');
    assert.strictEqual(runIn(copy, script).stdout, '138\n');
  });

  it('does not fall back if NQ_MODULE is set', () => {
    const copy = copyLibrary({ [prebuilt]: fs.readFileSync(plainModule) });
    const missing = path.join(copy, 'missing.node');
    const variables = { NQ_MODULE: 'missing.node', NQ_MATRIXFLOW_MODULE: 'other.node' };
    const { files, message } = refusal(copy, 'load()', { variables });
    assert.deepStrictEqual(files, [missing]);
    // The message names the variable, in case it was set and forgotten.
    const found = message.split('\n')[1];
    assert.strictEqual(found, `  '${missing}' (named by NQ_MODULE): there is no such file.`);
    const flow = refusal(copy, 'loadMatrixFlow()', { variables });
    assert(flow.message.includes("/other.node' (named by NQ_MATRIXFLOW_MODULE): "), flow.message);
    const given = refusal(copy, "load('missing.node')", { variables });
    assert(given.message.includes(`\n  '${missing}': there is no such file.\n`), given.message);
    // An empty variable counts as not set.
    const run = runIn(copy, `require('./lib').getEngine()`, { variables: { NQ_MODULE: '' } });
    assert.strictEqual(run.status, 0, run.stderr);
  });

  it('reports the files tried, this runtime, the supported hosts and the cure', () => {
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
      `This is Node ${process.versions.node} with ABI ${abi} on ${platform}; there are builds for ${hosts}.`
    );
    assert.strictEqual(lines[4], `Cure: build it by ${making}.`);
    assert.strictEqual(lines.length, 5);
  });

  it('suggests another file name for a named file', () => {
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

  it('reports system libraries that are too old', () => {
    const copy = copyLibrary({ [built]: '' });
    const reason = "/lib/libc.so.6: version `GLIBC_2.34' not found (required by x.node)";
    // The file is a script here, which throws the message of the dynamic linker.
    fs.writeFileSync(path.join(copy, 'old.js'), `throw new Error(${JSON.stringify(reason)});`);
    const { message } = refusal(copy, "load('old.js')");
    const lines = message.split('\n');
    const cure =
      platform === 'linux-x64' ? `build it here by ${making}` : 'run your script on a newer one';
    assert.strictEqual(lines[3], `Cure: this system's libraries are too old for it: ${cure}.`);
    assert.strictEqual(lines[4], `Original error: ${reason}`);
    assert.strictEqual(lines.length, 5);
  });

  it('appends the original error', () => {
    const copy = copyLibrary({ [built]: 'not a library' });
    const { message, original } = refusal(copy, 'load()');
    assert(message.includes(`'${path.join(copy, built)}': is there, but does not load.`), message);
    assert(/file too short|invalid ELF header/.test(original), original);
    assert(
      message.endsWith(
        `\nCure: the file is damaged, or not a build for this Node: rebuild it by ${making}.` +
          `\nOriginal error: ${original}`
      ),
      message
    );
  });

  it('lists supported versions on another Node', () => {
    const copy = copyLibrary({ [built]: fs.readFileSync(plainModule) });
    const versions = '{ ...process.versions, node: "21.7.3", modules: "120" }';
    const disguise = `Object.defineProperty(process, 'versions', { value: ${versions} });`;
    const { message, files } = refusal(copy, 'load()', { disguise });
    const folderOf120 = path.join(copy, 'build', 'Release', 'abi120');
    assert.deepStrictEqual(files, [
      path.join(folderOf120, 'nq_logic.node'),
      path.join(copy, 'prebuilds', platform, 'node.abi120.node'),
    ]);
    const lines = message.split('\n');
    assert.strictEqual(
      lines[3],
      `This is Node 21.7.3 with ABI 120 on ${platform}; there are builds for ${hosts}.`
    );
    assert.strictEqual(lines[4], `Cure: run your script with ${nodesOf[platform]}.`);
    assert.strictEqual(lines.length, 5, message);
  });

  it('lists supported platforms on another platform', () => {
    const disguise = "Object.defineProperty(process, 'platform', { value: 'darwin' });";
    const { message } = refusal(copyLibrary({}), 'load()', { disguise });
    const lines = message.split('\n');
    assert(lines[3].includes(` on darwin-${process.arch}; there are builds for `), message);
    assert.strictEqual(lines[4], 'Cure: run your script on one of these platforms.');
  });

  it('lists supported versions on arm64 with an older Node', () => {
    const versions = '{ ...process.versions, node: "20.20.2", modules: "115" }';
    const disguise =
      `Object.defineProperty(process, 'versions', { value: ${versions} });` +
      "Object.defineProperty(process, 'arch', { value: 'arm64' });";
    const { message, files } = refusal(copyLibrary({}), 'load()', { disguise });
    assert(files[1].endsWith(path.join('prebuilds', 'linux-arm64', 'node.abi115.node')), message);
    const lines = message.split('\n');
    assert(lines[3].startsWith('This is Node 20.20.2 with ABI 115 on linux-arm64; '), message);
    assert.strictEqual(lines[4], 'Cure: run your script with Node 22, 24 or 26.');
  });

  it('has the cures of arm64, where modules come with the package', () => {
    const versions = '{ ...process.versions, node: "24.21.0", modules: "137" }';
    const disguise =
      `Object.defineProperty(process, 'versions', { value: ${versions} });` +
      "Object.defineProperty(process, 'arch', { value: 'arm64' });";
    const copy = copyLibrary({});
    const cureOf = (call) => /\nCure: (.*)/.exec(refusal(copy, call, { disguise }).message)[1];
    assert.strictEqual(
      cureOf('load()'),
      "build it by 'npm pack' in the sources of nq_logic on Linux on x86-64, and install it from that package."
    );
    const reason = "/lib/libc.so.6: version `GLIBC_2.34' not found (required by x.node)";
    fs.writeFileSync(path.join(copy, 'old.js'), `throw new Error(${JSON.stringify(reason)});`);
    assert.strictEqual(
      cureOf("load('old.js')"),
      "this system's libraries are too old for it: run your script on a newer one."
    );
  });

  it('reports a C library other than glibc if a file does not load', () => {
    const copy = copyLibrary({ [prebuilt]: 'not a library' });
    const report = '{ getReport: () => ({ header: {} }) }';
    const disguise = `Object.defineProperty(process, 'report', { value: ${report} });`;
    const { message } = refusal(copy, 'load()', { disguise });
    assert(
      message.includes(
        '\nCure: run your script on a Linux with glibc: the C library of this one is another.\n'
      ),
      message
    );
  });

  it('is not needed by the rest of the library', () => {
    const script = `console.log(require('./lib').layout.entity3D.size)`;
    assert.strictEqual(runIn(copyLibrary({}), script).stdout, '108\n');
  });

  it('lists the ABI of this host as supported', () => {
    assert(moduleAbis[platform].includes(process.versions.modules));
  });
});

describe('loadMatrixFlow', () => {
  it('loads the file named by NQ_MATRIXFLOW_MODULE', () => {
    const nq = loadMatrixFlow();
    assert.strictEqual(nq, require(flowModule));
    const engine = nq.getEngine();
    assert.strictEqual(engine.createMatrixFlowCommandBuffer(64).buffer.byteLength, 64);
    assert.strictEqual(load().getEngine().createMatrixFlowCommandBuffer, undefined);
  });

  it('finds the build with command buffers, or says how to build it', () => {
    const name = path.join(buildFolder, 'nq_logic_matrixflow.node');
    const copy = copyLibrary({ [prebuilt]: fs.readFileSync(plainModule) });
    const { message, files } = refusal(copy, 'loadMatrixFlow()');
    assert.deepStrictEqual(files, [path.join(copy, name)]);
    assert(/-DNQ_SCRIPT_MATRIXFLOW=ON/.test(message), message);
    fs.mkdirSync(path.join(copy, buildFolder), { recursive: true });
    fs.copyFileSync(flowModule, path.join(copy, name));
    const script = `
      const engine = require('./lib').loadMatrixFlow().getEngine();
      console.log(engine.createMatrixFlowCommandBuffer(32).execute());`;
    assert.strictEqual(runIn(copy, script).stdout, '0\n');
  });
});

describe('lib/index.js', () => {
  it('has what the parts export, but for the importer of glTF', () => {
    const index = require('../../../lib');
    const parts = ['load', 'checked', 'clip', 'commands', 'views'].map((name) =>
      require(`../../../lib/${name}`)
    );
    const expected = Object.assign({ layout: require('../../../lib/layout') }, ...parts);
    for (const name of Object.keys(expected)) {
      assert.strictEqual(index[name], expected[name], name);
    }
    const own = ['getEngine', 'getVersion'];
    assert.deepStrictEqual(Object.keys(index).sort(), [...Object.keys(expected), ...own].sort());
  });

  it('has all named exports for ES modules', () => {
    const names = ['index', 'load', 'checked', 'clip', 'commands', 'layout', 'views', 'gltf'];
    const script = `
      Promise.all(${JSON.stringify(names)}.map((name) => import('./lib/' + name + '.js')))
        .then((modules) => console.log(JSON.stringify(modules.map(Object.keys))));`;
    const run = runIn(copyLibrary({}), script);
    assert.strictEqual(run.status, 0, run.stderr);
    JSON.parse(run.stdout).forEach((found, i) => {
      const expected = [...Object.keys(require(`../../../lib/${names[i]}`)), 'default'];
      // Newer hosts add the whole of it under a name of their own.
      const own = found.filter((name) => name !== 'module.exports');
      assert.deepStrictEqual(own.sort(), expected.sort(), names[i]);
    });
  });

  it('loads the module and the glTF importer lazily', () => {
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
