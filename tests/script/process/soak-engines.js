'use strict';
// Starts and ends Workers, each with an engine that computes frames, one after the other: soak-engines.js COUNT. An engine
// keeps its threads and its memory until the process ends; all else of a Worker must go with it. Prints JSON, with what is
// wrong.
const fs = require('fs');
const path = require('path');
const { Worker } = require('worker_threads');
const { modulePath } = require('../support/host');

const kCount = Number(process.argv[2]);
/** Of an engine: the one that calls its methods waits for these. */
const kThreads = 4;
/** The most that an engine keeps, in bytes: stacks that were used, lists, and pages of heaps of its threads. */
const kEngineBytes = 1 << 20;
/** In groups, so that what the host frees late does not matter. */
const kGroups = 5;

const work = `
  const { modulePath, library } = require('worker_threads').workerData;
  const { Entity3DView, EntityCommandWriter, DirtyListWriter } = require(library);
  const engine = require(modulePath).getEngine();
  const view = new Entity3DView(engine.createEntity(true, 200));
  const commands = new EntityCommandWriter(engine);
  for (let i = 0; i < 200; ++i) {
    view.reset(i);
    commands.addRoot(view.handle(i));
  }
  for (let frame = 0; frame < 20; ++frame) {
    for (let i = 0; i < 200; ++i) {
      view.setPosition(i, frame, i, 0);
    }
    new DirtyListWriter(engine).appendRange(view.id, 200);
    engine.refreshWorldTransform();
  }
`;

function runWorker() {
  return new Promise((resolve, reject) => {
    const library = path.join(__dirname, '..', '..', '..', 'lib');
    const worker = new Worker(work, { eval: true, workerData: { modulePath, library } });
    worker.on('error', reject);
    worker.on('exit', resolve);
  });
}

const threadCount = () => fs.readdirSync('/proc/self/task').length;

(async () => {
  const groups = [];
  const problems = [];
  const start = Date.now();
  for (let group = 0; group < kGroups; ++group) {
    const before = threadCount();
    const { rss } = process.memoryUsage();
    const workers = Math.ceil(kCount / kGroups);
    for (let i = 0; i < workers; ++i) {
      const code = await runWorker();
      if (code !== 0) {
        problems.push(`a Worker ended with ${code}`);
      }
    }
    gc();
    const threads = (threadCount() - before) / workers;
    const bytes = (process.memoryUsage().rss - rss) / workers;
    groups.push({ threads, bytes });
    if (threads !== kThreads) {
      problems.push(`${threads} threads an engine are left`);
    }
    if (group > 0 && bytes > kEngineBytes) {
      problems.push(`${bytes} bytes an engine are left`);
    }
  }
  const seconds = (Date.now() - start) / 1000;
  console.log(JSON.stringify({ kind: 'engines', made: kCount, seconds, groups, problems }));
  process.exit(problems.length === 0 ? 0 : 1);
})();
