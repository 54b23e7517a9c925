'use strict';
// The cost of going beyond a limit: frames of several passes, several engines, engines in workers, and entities in
// many batches.
const { over } = require('../../../tests/script/support/blocks');
const { spawnSync } = require('child_process');
const { Worker, isMainThread, parentPort, workerData } = require('worker_threads');
const { entityCommands, rotationModes } = require('../../../lib/layout');
const { createTyped } = require('../contenders/typed');
const { assertSameMatrices } = require('../lib/compare');
const { interleave, now, once } = require('../lib/measure');
const {
  batchCapacity,
  createEntities,
  dirtyCapacity,
  getEngine,
  linkTree,
  recordWords,
  rotationAt,
  scaleAt,
  setRotationModes,
  worldAt,
} = require('../lib/native-scene');
const { buildTree, createValues, selectPercent, valuesPerNode } = require('../lib/scenes');
const { printTable } = require('../lib/table');

/** Number of sets of transforms of consecutive frames. */
const frameSets = 3;

const passCounts = [1, 3, 8];
const splitCounts = [1, 2, 4, 8, 16];
const engineCounts = [1, 2, 4];
const workerCounts = [1, 2, 4];
const batchSizes = [batchCapacity, 500, 50, 1];

const stride = valuesPerNode.quaternion;

/** A tree in its own engine, all or some of whose nodes change in a frame. */
class Scene {
  /**
   * @param {import('../lib/scenes').Tree} tree
   * @param {number} [batchSize] entities of a batch
   */
  constructor(tree, batchSize = batchCapacity) {
    this.tree = tree;
    this.engine = getEngine();
    this.batchSize = batchSize;
    const { objects, records, handles } = createEntities(this.engine, tree.count, batchSize);
    this.objects = objects; // keeps the memory of the records
    this.records = records;
    this.handles = handles;
    this.list = over(Uint32Array, this.engine.dirtyEntities);
    this.commands = over(Uint32Array, this.engine.entityCommands);
    this.values = createValues(selectPercent(tree, 100), 'quaternion', frameSets, 41);
    for (let node = 0; node < tree.count; ++node) {
      const scale = tree.scales.subarray(3 * node, 3 * node + 3);
      this.record(node).set(scale, this.at(node) + scaleAt);
    }
    setRotationModes(objects, rotationModes.quaternion);
    linkTree(this.engine, tree.parents, handles);
  }

  record(node) {
    return this.records[Math.floor(node / this.batchSize)];
  }

  /** Index of a node's record in the array of its batch. */
  at(node) {
    return (node % this.batchSize) * recordWords;
  }

  /** Writes transforms of nodes `from` to `end` and lists them. */
  write(values, from, end) {
    const { batchSize, handles, list, records } = this;
    let listed = 0;
    for (let node = from; node < end; ) {
      const batch = Math.floor(node / batchSize);
      const record = records[batch];
      const last = Math.min(end, (batch + 1) * batchSize);
      for (let at = (node % batchSize) * recordWords; node < last; at += recordWords, ++node) {
        const to = at + rotationAt;
        const v = node * stride;
        record[to] = values[v];
        record[to + 1] = values[v + 1];
        record[to + 2] = values[v + 2];
        record[to + 3] = values[v + 3];
        record[to + 4] = values[v + 4];
        record[to + 5] = values[v + 5];
        record[to + 6] = values[v + 6];
        list[++listed] = handles[node];
      }
    }
    list[0] = listed;
  }

  command(number) {
    this.commands[1] = number;
    this.commands[2] = this.handles[0];
    this.commands[0] = 8;
  }

  /** A frame of one pass, in which nodes `from` to `end` change. */
  frame(run, from = 0, end = this.tree.count) {
    this.write(this.values[run % frameSets], from, end);
    this.engine.refreshWorldTransform();
  }

  /** A frame in which all nodes change, with the root inactive until the last pass. */
  heldFrame(run, perPass) {
    const { count } = this.tree;
    const values = this.values[run % frameSets];
    for (let from = 0; from < count; from += perPass) {
      if (perPass < count && (from === 0 || from + perPass >= count)) {
        this.command(from === 0 ? entityCommands.deactivate : entityCommands.activate);
      }
      this.write(values, from, Math.min(count, from + perPass));
      this.engine.refreshWorldTransform();
    }
  }

  /** The same with an active root: each pass traverses the tree. The deepest nodes are listed first, the root last. */
  plainFrame(run, perPass) {
    const values = this.values[run % frameSets];
    for (let to = this.tree.count; to > 0; to -= perPass) {
      this.write(values, Math.max(0, to - perPass), to);
      this.engine.refreshWorldTransform();
    }
  }

  /** Throws unless world matrices are those of plain JavaScript. */
  verify(what, frame) {
    const { count } = this.tree;
    const typed = createTyped(this.tree);
    typed.setDirty(selectPercent(this.tree, 100), 'quaternion');
    typed.frame(this.values[1]);
    const expected = new Float32Array(16 * count);
    typed.world(expected);
    frame(1);
    const actual = new Float32Array(16 * count);
    for (let node = 0; node < count; ++node) {
      const at = this.at(node) + worldAt;
      actual.set(this.record(node).subarray(at, at + 16), 16 * node);
    }
    assertSameMatrices(what, expected, actual);
  }
}

/** Entries per pass: a full list, or a few on a tiny budget. */
function passCapacity(budget) {
  return Math.min(dirtyCapacity, Math.floor(budget.entities / 8));
}

/** Frames that fill the list once and several times. */
function measurePasses(budget) {
  const capacity = passCapacity(budget);
  return passCounts.map((passes) => {
    const scene = new Scene(buildTree('large_tree', passes * capacity));
    const held = (run) => scene.heldFrame(run, capacity);
    const plain = (run) => scene.plainFrame(run, capacity);
    const entries = scene.tree.count;
    const times = interleave([held, plain], budget).map((time) => time / entries);
    scene.verify(`${passes} passes, held`, held);
    scene.verify(`${passes} passes, plain`, plain);
    return { passes, entries, held: times[0], plain: times[1] };
  });
}

/** The same entries in more passes than they need: the cost of a pass itself. */
function measureSplits(budget) {
  const entries = passCapacity(budget);
  const scene = new Scene(buildTree('large_tree', entries));
  const frames = splitCounts.map((passes) => {
    const perPass = Math.ceil(entries / passes);
    return (run) => scene.heldFrame(run, perPass);
  });
  const times = interleave(frames, budget);
  frames.forEach((frame, i) => scene.verify(`split ${splitCounts[i]}`, frame));
  return splitCounts.map((passes, i) => ({
    passes,
    entries,
    microseconds: times[i] / 1000,
    furtherPass: passes === 1 ? 0 : (times[i] - times[0]) / (passes - 1) / 1000,
  }));
}

/** The same characters in one engine, and spread over several that run one after the other. */
function measureEngines(budget) {
  const sizes = budget.sizes.filter((size) => size < dirtyCapacity);
  return sizes.map((size) => {
    const groups = engineCounts.map((engines) =>
      Array.from({ length: engines }, () => new Scene(buildTree('humanoids', size / engines)))
    );
    const times = interleave(
      groups.map((scenes) => (run) => scenes.forEach((scene) => scene.frame(run))),
      budget
    );
    groups.forEach((scenes) =>
      scenes.forEach((scene) => scene.verify('engines', (run) => scene.frame(run)))
    );
    return { entries: size, microseconds: times.map((time) => time / 1000) };
  });
}

/** Entities in large and in small batches: their creation, and frames in which all change. */
function measureBatches(budget) {
  const engine = getEngine();
  const count = budget.singles;
  const tree = buildTree('wide_tree', count);
  const scenes = batchSizes.map((size) => new Scene(tree, size));
  const frames = interleave(
    scenes.map((scene) => (run) => scene.frame(run)),
    budget
  );
  return batchSizes.map((size, i) => {
    scenes[i].verify(`batches of ${size}`, (run) => scenes[i].frame(run));
    const time = once(
      budget,
      () => null,
      () => createEntities(engine, count, size)
    );
    const batches = Math.ceil(count / size);
    return {
      size,
      batches,
      microsecondsPerBatch: time / batches / 1000,
      createPerEntity: time / count,
      framePerEntity: frames[i] / count,
    };
  });
}

// --- Workers. Only a process with its own event loop can communicate with them.

/** Changed nodes in the frames of workers. Node 0 is the root. */
const loads = [
  { load: 'all change', nodes: (count) => [0, count] },
  { load: '31 change, on the calling thread alone', nodes: (count) => [1, Math.min(32, count)] },
];

/** In a worker: counts frames in a number of milliseconds, for each request. */
function work() {
  const { count, gate } = workerData;
  const arrived = new Int32Array(gate);
  const scene = new Scene(buildTree('humanoids', count));
  scene.verify('worker', (run) => scene.frame(run));
  parentPort.on('message', ({ load, team, round, milliseconds, warmUps }) => {
    const [from, end] = loads[load].nodes(scene.tree.count);
    for (let run = 0; run < warmUps; ++run) {
      scene.frame(run, from, end);
    }
    // All workers of the team run before any time counts.
    Atomics.add(arrived, round, 1);
    Atomics.notify(arrived, round);
    for (let there = 0; there < team; there = Atomics.load(arrived, round)) {
      Atomics.wait(arrived, round, there);
    }
    const start = now();
    let frames = 0;
    let elapsed = 0;
    do {
      scene.frame(frames++, from, end);
      elapsed = now() - start;
    } while (elapsed < milliseconds * 1e6);
    parentPort.postMessage((frames * (end - from)) / (elapsed / 1000));
  });
  parentPort.postMessage(scene.tree.count);
}

/** Sends all workers a message and waits for all replies. */
function ask(workers, message) {
  return Promise.all(
    workers.map(
      (worker) =>
        new Promise((resolve, reject) => {
          worker.once('message', resolve);
          worker.once('error', reject);
          if (message !== null) {
            worker.postMessage(message);
          }
        })
    )
  );
}

/** In the child: prints entries per microsecond, by load, team and round. */
async function measureInChild({ count, rounds, milliseconds, warmUps }) {
  const teams = loads.length * workerCounts.length * (rounds + 1);
  const gate = new SharedArrayBuffer(4 * teams);
  const workers = workerCounts[workerCounts.length - 1];
  const all = Array.from(
    { length: workers },
    () => new Worker(__filename, { workerData: { count, gate } })
  );
  const [entities] = await ask(all, null);
  const samples = loads.map(() => workerCounts.map(() => []));
  let round = 0;
  for (let turn = -1; turn < rounds; ++turn) {
    for (let load = 0; load < loads.length; ++load) {
      for (let i = 0; i < workerCounts.length; ++i) {
        const team = workerCounts[i];
        const message = { load, team, round, milliseconds, warmUps };
        const rates = await ask(all.slice(0, team), message);
        ++round;
        if (turn >= 0) {
          samples[load][i].push(rates.reduce((sum, rate) => sum + rate, 0));
        }
      }
    }
  }
  await Promise.all(all.map((worker) => worker.terminate()));
  process.stdout.write(JSON.stringify({ entities, samples }));
}

function median(values) {
  const sorted = values.slice().sort((a, b) => a - b);
  return (sorted[(sorted.length - 1) >> 1] + sorted[sorted.length >> 1]) / 2;
}

/** Workers with an engine each: entries per microsecond, all together. */
function measureWorkers(budget) {
  const task = {
    count: Math.floor(budget.entities / 20),
    rounds: budget.rounds,
    milliseconds: 30 * budget.milliseconds,
    warmUps: budget.warmUps,
  };
  const child = spawnSync(process.execPath, [__filename, JSON.stringify(task)], {
    encoding: 'utf8',
  });
  if (child.status !== 0) {
    throw new Error(`workers: ${child.stderr}`);
  }
  const { entities, samples } = JSON.parse(child.stdout);
  return loads.map(({ load }, i) => ({
    load,
    entities,
    entriesPerMicrosecond: samples[i].map(median),
  }));
}

function run(budget) {
  const passes = measurePasses(budget);
  printTable(
    'limits: frames of several passes, large_tree, all change; ns per entry',
    ['passes', 'entries', 'root held inactive', 'plain, deepest first', 'plain/held'],
    passes.map((row) => [row.passes, row.entries, row.held, row.plain, row.plain / row.held])
  );
  const splits = measureSplits(budget);
  printTable(
    'limits: the same entries in more passes, root held inactive; microseconds',
    ['entries', 'passes', 'frame', 'for each further pass'],
    splits.map((row) => [row.entries, row.passes, row.microseconds, row.furtherPass])
  );
  const engines = measureEngines(budget);
  const engine = once(budget, () => null, getEngine) / 1000;
  printTable(
    'limits: characters in several engines that take turns, all change; microseconds a frame',
    ['entries', ...engineCounts.map((count) => `engines: ${count}`), '4/1'],
    engines.map(({ entries, microseconds }) => {
      const [one, , four] = microseconds;
      return [entries, ...microseconds, four / one];
    })
  );
  console.log(`\nCreating an engine takes ${Math.round(engine)} microseconds.`);
  const workers = measureWorkers(budget);
  printTable(
    'limits: an engine in each worker; entries a microsecond, all together, median',
    ['load', 'entities', ...workerCounts.map((count) => `workers: ${count}`), '2/1', '4/1'],
    workers.map(({ load, entities, entriesPerMicrosecond }) => {
      const [one, two, four] = entriesPerMicrosecond;
      return [load, entities, one, two, four, two / one, four / one];
    })
  );
  const batches = measureBatches(budget);
  printTable(
    'limits: the same entities in smaller batches, wide_tree',
    ['entities a batch', 'batches', 'us to create one', 'ns an entity', 'frame, ns an entity'],
    batches.map((row) => [
      row.size,
      row.batches,
      row.microsecondsPerBatch,
      row.createPerEntity,
      row.framePerEntity,
    ])
  );
  return { passes, splits, engines, engine, workers, batches };
}

if (!isMainThread) {
  work();
} else if (require.main === module) {
  measureInChild(JSON.parse(process.argv[2])).catch((error) => {
    console.error(error.stack);
    process.exitCode = 1;
  });
}

module.exports = { run };
