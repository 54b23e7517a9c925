'use strict';
// The module as the host loads it: its entry, what it puts on exports, and getVersion.
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { Worker } = require('worker_threads');

const modulePath = process.env.NQ_MODULE;

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

  it('runs in a host of module ABI 72', () => {
    assert.strictEqual(process.versions.modules, '72');
  });

  it('exports getEngine and getVersion, in this order, and nothing else', () => {
    assert.deepStrictEqual(Reflect.ownKeys(nq), ['getEngine', 'getVersion']);
  });

  for (const name of ['getEngine', 'getVersion']) {
    it(`exports ${name} as an ordinary property, a function of that name`, () => {
      const descriptor = Object.getOwnPropertyDescriptor(nq, name);
      assert.strictEqual(typeof descriptor.value, 'function');
      assert.strictEqual(descriptor.value.name, name);
      assert.strictEqual(descriptor.writable, true);
      assert.strictEqual(descriptor.enumerable, true);
      assert.strictEqual(descriptor.configurable, true);
    });
  }

  it('carries the file name of its record', () => {
    const bytes = fs.readFileSync(modulePath);
    assert.notStrictEqual(bytes.indexOf(Buffer.from('\0..\\nq_logic\0', 'latin1')), -1);
  });

  it('gives the same exports while it stays in the require cache', () => {
    assert.strictEqual(require(modulePath), nq);
  });

  it('can be loaded again after the require cache is dropped', () => {
    const key = require.resolve(path.resolve(modulePath));
    const cached = require.cache[key];
    delete require.cache[key];
    try {
      const again = require(modulePath);
      assert.notStrictEqual(again, nq);
      assert.deepStrictEqual(Object.keys(again), Object.keys(nq));
      assert.notStrictEqual(again.getVersion, nq.getVersion);
      assert.deepStrictEqual(again.getVersion(), { version: '138' });
    } finally {
      require.cache[key] = cached;
    }
  });

  it('can be loaded in Workers, one after the other and two at once', async () => {
    const body = `
      const { parentPort, workerData } = require('worker_threads');
      parentPort.postMessage(require(workerData).getVersion());`;
    assert.deepStrictEqual(await inWorker(body), { version: '138' });
    const both = await Promise.all([inWorker(body), inWorker(body)]);
    assert.deepStrictEqual(both, [{ version: '138' }, { version: '138' }]);
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
    assert.deepStrictEqual(nq.getVersion.call(null, 1, 'two'), { version: '138' });
    const getVersion = nq.getVersion;
    assert.deepStrictEqual(getVersion(), { version: '138' });
  });
});
