'use strict';
// Loading of the module: its entry, its exports, and getVersion.
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { spawnSync } = require('child_process');
const { Worker } = require('worker_threads');
const { differences, modulePath } = require('../support/host');

/** Runs `body` in a Worker and resolves with what it posts. */
function inWorker(body) {
  return new Promise((resolve, reject) => {
    const worker = new Worker(body, { eval: true, workerData: modulePath });
    let message;
    worker.on('message', (value) => {
      message = value;
    });
    worker.on('error', reject);
    worker.on('exit', (code) =>
      code === 0 ? resolve(message) : reject(new Error(`exit ${code}`))
    );
  });
}

describe('module', () => {
  const nq = require(modulePath);

  it('is loaded by a host of an ABI that it is built for', () => {
    assert(['72', '108', '115', '127', '137', '147'].includes(process.versions.modules));
  });

  it('installs getEngine and then getVersion, and nothing else', () => {
    assert.deepStrictEqual(Reflect.ownKeys(nq), ['getEngine', 'getVersion']);
  });

  it('names its functions after their exports', () => {
    assert.strictEqual(typeof nq.getEngine, 'function');
    assert.strictEqual(typeof nq.getVersion, 'function');
    assert.strictEqual(nq.getEngine.name, 'getEngine');
    assert.strictEqual(nq.getVersion.name, 'getVersion');
    assert.strictEqual(nq.getEngine.length, 0);
    assert.strictEqual(nq.getVersion.length, 0);
  });

  it('installs writable, enumerable, configurable exports', () => {
    for (const name of ['getEngine', 'getVersion']) {
      const { writable, enumerable, configurable } = Object.getOwnPropertyDescriptor(nq, name);
      assert.deepStrictEqual([writable, enumerable, configurable], [true, true, true], name);
    }
  });

  it('exports what the host looks for, and nothing else', () => {
    const env = Object.assign({}, process.env);
    // A sanitizer's runtime is preloaded for the host only, not for other programs.
    delete env.LD_PRELOAD;
    const nm = spawnSync('nm', ['-D', '--defined-only', modulePath], { env, encoding: 'utf8' });
    assert.strictEqual(nm.status, 0, nm.stderr);
    const symbols = nm.stdout
      .trim()
      .split('\n')
      .map((line) => line.split(' ').slice(1));
    symbols.sort((a, b) => (a[1] < b[1] ? -1 : 1));
    assert.deepStrictEqual(
      symbols,
      differences.symbols.map((name) => ['T', name])
    );
  });

  it('contains the file name of its module record, if it has one, with one backslash', () => {
    const bytes = fs.readFileSync(modulePath);
    const isThere = bytes.indexOf(Buffer.from('\0..\\nq_logic\0', 'latin1')) !== -1;
    assert.strictEqual(isThere, differences.hasRecord);
    assert.strictEqual(bytes.indexOf(Buffer.from('..\\\\nq_logic', 'latin1')), -1);
  });

  it('returns the same exports while it is in the require cache', () => {
    assert.strictEqual(require(modulePath), nq);
  });

  it('can be loaded again after the require cache is dropped', () => {
    const key = require.resolve(path.resolve(modulePath));
    const cached = require.cache[key];
    delete require.cache[key];
    try {
      const again = require(modulePath);
      assert.notStrictEqual(again, nq);
      assert.deepStrictEqual(Object.keys(again), ['getEngine', 'getVersion']);
      assert.notStrictEqual(again.getVersion, nq.getVersion);
      assert.deepStrictEqual(again.getVersion(), { version: '138' });
      // Classes belong to the thread, not to the exports object that created them.
      assert.strictEqual(again.getEngine().constructor, nq.getEngine().constructor);
    } finally {
      require.cache[key] = cached;
    }
  });

  it('can be loaded by process.dlopen', () => {
    const target = { exports: {} };
    process.dlopen(target, modulePath);
    assert.deepStrictEqual(Object.keys(target.exports), ['getEngine', 'getVersion']);
    assert.strictEqual(target.exports.getEngine().constructor.name, 'Engine');
  });

  it('can be loaded in Workers, one after the other and four at once', async () => {
    const body = `
      const { parentPort, workerData } = require('worker_threads');
      const nq = require(workerData);
      const batch = nq.getEngine().createEntity(true, 3);
      parentPort.postMessage([nq.getVersion(), batch.id, batch.buffer.byteLength]);`;
    const expected = [{ version: '138' }, 0x1000, 324];
    assert.deepStrictEqual(await inWorker(body), expected);
    const four = await Promise.all([1, 2, 3, 4].map(() => inWorker(body)));
    assert.deepStrictEqual(four, [expected, expected, expected, expected]);
  });

  it('is loaded under --force-context-aware where it has no record', () => {
    const source = `console.log(require(${JSON.stringify(modulePath)}).getVersion().version)`;
    const args = ['--force-context-aware', '-e', source];
    const { status, stdout, stderr } = spawnSync(process.execPath, args, { encoding: 'utf8' });
    if (differences.hasRecord) {
      assert.strictEqual(status, 1, stderr);
      assert(/non context-aware native modules has been disabled/.test(stderr), stderr);
    } else {
      assert.strictEqual(stdout, '138\n', stderr);
      assert.strictEqual(status, 0, stderr);
    }
  });
});

describe('getVersion', () => {
  const nq = require(modulePath);

  it('returns a plain object with the one property "version"', () => {
    const version = nq.getVersion();
    assert.deepStrictEqual(Reflect.ownKeys(version), ['version']);
    assert.strictEqual(version.version, '138');
    assert.strictEqual(Object.getPrototypeOf(version), Object.prototype);
    assert.deepStrictEqual(Object.getOwnPropertyDescriptor(version, 'version'), {
      value: '138',
      writable: true,
      enumerable: true,
      configurable: true,
    });
  });

  it('returns a new object each time', () => {
    const first = nq.getVersion();
    first.version = 'changed';
    const second = nq.getVersion();
    assert.notStrictEqual(second, first);
    assert.strictEqual(second.version, '138');
  });

  it('reads neither arguments nor the receiver', () => {
    const throwing = {
      valueOf() {
        throw new Error('read');
      },
    };
    assert.deepStrictEqual(nq.getVersion.call(null, throwing, 'two'), { version: '138' });
    const getVersion = nq.getVersion;
    assert.deepStrictEqual(getVersion(), { version: '138' });
  });
});
