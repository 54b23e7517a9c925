'use strict';
// Loads, exits and Workers: start and end of a process with engines. `lifecycle.js CASE`.
const fs = require('fs');
const path = require('path');
const { Worker } = require('worker_threads');
const { modulePath } = require('../support/host');

/** Runs `body` in a Worker with `nq` loaded; resolves with its exit code. */
function worker(body) {
  return new Promise((resolve, reject) => {
    const source = `const nq = require(require('worker_threads').workerData); ${body}`;
    const created = new Worker(source, { eval: true, workerData: modulePath });
    created.on('error', reject);
    created.on('exit', resolve);
  });
}

function useEngine(nq) {
  const engine = nq.getEngine();
  const batch = engine.createEntity(true, 100);
  const dirty = new Uint32Array(engine.dirtyEntities);
  dirty[0] = 100;
  for (let i = 0; i < 100; ++i) {
    dirty[i + 1] = batch.id + i;
  }
  // 100 entries are posted to the workers, so that all of them have run, and now wait.
  engine.refreshWorldTransform();
  return [engine, batch];
}

const work = `(${useEngine})(nq);`;

/** Threads of an engine wait in the module's code, which must not be unmapped when a Worker ends. */
function assertMapped() {
  if (!fs.readFileSync('/proc/self/maps', 'utf8').includes(path.basename(modulePath))) {
    throw new Error('the module is gone');
  }
}

const cases = {
  /** Ends when nothing is left to do. */
  natural() {
    useEngine(require(modulePath));
  },
  exit() {
    useEngine(require(modulePath));
    process.exit(0);
  },
  exitCode() {
    useEngine(require(modulePath));
    process.exitCode = 0;
  },
  /** The module is loaded and never used. */
  unused() {
    require(modulePath);
  },
  /** Objects whose weak callbacks have run, and others whose callbacks never will. */
  collected() {
    const nq = require(modulePath);
    for (let i = 0; i < 5; ++i) {
      useEngine(nq);
      gc();
    }
  },
  manyEngines() {
    const nq = require(modulePath);
    const kept = [];
    for (let i = 0; i < 10; ++i) {
      kept.push(useEngine(nq));
    }
  },
  /** The host unloads the module with each Worker, but the engine's threads continue. */
  async workerAlone() {
    for (let i = 0; i < 6; ++i) {
      const code = await worker(work);
      if (code !== 0) {
        throw new Error(`Worker ended with ${code}`);
      }
      assertMapped();
    }
  },
  /** The same without an engine: only the module itself can prevent its unmapping. */
  async workerUnused() {
    await worker('');
    assertMapped();
    await worker(work);
    useEngine(require(modulePath));
  },
  async workerExits() {
    for (let i = 0; i < 3; ++i) {
      await worker(`${work} process.exit(0);`);
    }
  },
  async workerTerminated() {
    const source = `const nq = require(require('worker_threads').workerData); ${work}
      require('worker_threads').parentPort.postMessage('ready'); setInterval(() => {}, 1000);`;
    const created = new Worker(source, { eval: true, workerData: modulePath });
    await new Promise((resolve) => created.once('message', resolve));
    await created.terminate();
  },
  async twoWorkers() {
    await Promise.all([worker(work), worker(work)]);
  },
  async mainAndWorkers() {
    const nq = require(modulePath);
    const workers = [worker(work.repeat(5)), worker(work.repeat(5))];
    for (let i = 0; i < 20; ++i) {
      useEngine(nq);
    }
    await Promise.all(workers);
    useEngine(nq);
  },
  /** The main thread loads the module after a Worker that loaded it has ended. */
  async workerThenMain() {
    await worker(work);
    useEngine(require(modulePath));
  },
};

const result = cases[process.argv[2]]();
if (result) {
  result.catch((error) => {
    console.error(error);
    process.exitCode = 1;
  });
}
