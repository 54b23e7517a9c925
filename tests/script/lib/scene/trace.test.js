'use strict';
// Recordings of scenes: their traces against the rules of the Trace Event Format and against the statistics of the scene,
// their bounds, and that a file is whole or is not touched.
const assert = require('assert');
const childProcess = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { performance } = require('perf_hooks');
const { Worker } = require('worker_threads');
const nq = require('../../../../lib');
const { Camera, Model, Scene } = require('../../../../scene');
const { ModelBuilder } = require('../../../fixtures/animations');
const { removeFolder, root } = require('../../../../scripts/lib/run');
const { modulePath } = require('../../support/host');

const engine = nq.getEngine();
const kStages = ['animate', 'transform', 'cull', 'skin'];
const kCounters = ['nodes', 'playing', 'skinned', 'visible', 'passes'];

/** Nanoseconds: times are rounded to them. */
const kRounding = 2e-6;

let folder;
let model;
before(async () => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-trace-'));
  const builder = new ModelBuilder();
  builder.json.scenes = [{ nodes: [0] }];
  builder.node({ name: 'bone' });
  const inverseBindMatrices = builder.accessor(
    'MAT4',
    Float32Array.of(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1)
  );
  builder.json.skins.push({ joints: [0], inverseBindMatrices });
  builder.animation('step', [
    { node: 0, path: 'translation', times: [0, 1], values: [0, 0, 0, 1, 0, 0] },
  ]);
  model = await Model.load(builder.glb(), {
    name: 'bone.glb',
    bounds: { center: [0, 0, 0], radius: 1 },
  });
});
after(() => removeFolder(folder));

/** A scene with a camera that sees characters along -z. */
function createScene(options = {}) {
  const scene = new Scene(Object.assign({ engine }, options));
  scene.addCamera(new Camera());
  return scene;
}

/** What the statistics say of an update. */
function statsOf(scene) {
  const { animate, transform, cull, skin, total, playing, skinned, visible, passes } = scene.stats;
  return {
    animate,
    transform,
    cull,
    skin,
    total,
    nodes: scene.nodeCount,
    playing,
    skinned,
    visible,
    passes,
  };
}

/** Asserts what the format demands of each event, and returns the events by phase. */
function assertFormat(trace) {
  const phases = { M: [], X: [], C: [], i: [] };
  let last = 0;
  for (const event of trace.traceEvents) {
    assert(event.ph in phases, event.ph);
    phases[event.ph].push(event);
    assert(typeof event.name === 'string' && event.name !== '');
    assert.strictEqual(event.pid, process.pid);
    assert.strictEqual(event.tid, 1);
    assert(Number.isFinite(event.ts) && event.ts >= last, `${event.ts} after ${last}`);
    last = event.ts;
  }
  phases.M.forEach(({ args }) => assert.strictEqual(typeof args.name, 'string'));
  phases.X.forEach(({ dur }) => assert(Number.isFinite(dur) && dur >= 0, String(dur)));
  phases.C.forEach(({ args }) => {
    assert(Object.values(args).length > 0 && Object.values(args).every(Number.isFinite));
  });
  phases.i.forEach(({ s }) => assert(['t', 'p', 'g'].includes(s), s));
  // Slices of a thread nest: each is inside those that are open, or after them.
  const open = [];
  const nanoseconds = (microseconds) => Math.round(1000 * microseconds);
  for (const { ts, dur, name } of phases.X) {
    const [from, to] = [nanoseconds(ts), nanoseconds(ts) + nanoseconds(dur)];
    while (open.length > 0 && open[open.length - 1] <= from) {
      open.pop();
    }
    assert(
      open.every((end) => to <= end),
      `${name} ends within what is around it`
    );
    if (to > from) {
      open.push(to);
    }
  }
  return phases;
}

describe('recordings of scenes', () => {
  it('follow the format, and agree with the statistics', async () => {
    const scene = createScene();
    const started = performance.now();
    const recording = scene.record();
    const all = [];
    const run = (frames) => {
      for (let i = 0; i < frames; ++i) {
        scene.update(1 / 60);
        all.push(statsOf(scene));
      }
    };
    run(2);
    const characters = scene.instantiate(model, 7);
    characters.forEach((character, i) => {
      character.setPosition(0, 0, i < 4 ? -10 - i : 10 + i);
      if (i % 2 === 0) {
        character.play('step');
      }
    });
    run(3);
    characters.slice(5).forEach((character) => character.dispose());
    scene.node({ name: 'here' }).dispose();
    run(2);
    recording.stop();
    const ended = performance.now();
    run(1);
    all.pop();
    const file = path.join(folder, 'trace.json');
    await recording.save(file);
    const trace = JSON.parse(fs.readFileSync(file, 'utf8'));
    assert.deepStrictEqual(trace, JSON.parse(JSON.stringify(recording)));
    assert.strictEqual(trace.displayTimeUnit, 'ms');
    const { M, X, C, i } = assertFormat(trace);

    assert.deepStrictEqual(
      M.map(({ name, args }) => [name, args.name]),
      [
        ['process_name', 'nq_logic'],
        ['thread_name', 'scene'],
      ]
    );
    assert.strictEqual(X.length, all.length * (1 + kStages.length));
    all.forEach((stats, frame) => {
      const [whole, ...parts] = X.slice(5 * frame, 5 * frame + 5);
      assert.deepStrictEqual([whole.name, whole.args], ['update', { frame: frame + 1 }]);
      assert(Math.abs(whole.dur / 1000 - stats.total) < kRounding, `${whole.dur}, ${stats.total}`);
      assert(whole.ts / 1000 >= started - kRounding);
      assert((whole.ts + whole.dur) / 1000 <= ended + kRounding);
      let at = whole.ts;
      parts.forEach(({ name, ts, dur }, k) => {
        assert.strictEqual(name, kStages[k]);
        assert(Math.abs(dur / 1000 - stats[name]) < kRounding, `${name}: ${dur}, ${stats[name]}`);
        assert(Math.abs(ts - at) < 1e-3, 'stages follow one another');
        at = ts + dur;
      });
      // A counter holds until its next event.
      for (const name of kCounters) {
        const events = C.filter((event) => event.name === name && event.ts <= whole.ts);
        assert.deepStrictEqual(events.pop().args, { [name]: stats[name] }, `frame ${frame}`);
      }
    });
    // By hand: 4 of 7 characters are in front; every second one plays; a character has two entities.
    assert.deepStrictEqual(
      all.map(({ nodes, playing, skinned, visible }) => [nodes, playing, skinned, visible]),
      [
        ...new Array(2).fill([0, 0, 0, 0]),
        ...new Array(3).fill([14, 4, 7, 4]),
        // Entities of those that were disposed of wait for the next ones.
        ...new Array(2).fill([14, 3, 5, 4]),
      ]
    );
    assert(C.length < all.length * kCounters.length, 'unchanged counters have no events');

    const frames = X.filter(({ name }) => name === 'update');
    assert.deepStrictEqual(
      i.map(({ name, args, ts }) => [name, args, frames.filter((one) => one.ts < ts).length]),
      [
        ['make characters', { name: 'bone.glb', count: 7 }, 2],
        ['dispose of characters', { name: 'bone.glb', count: 2 }, 5],
        ['make nodes', { name: 'here', count: 1 }, 5],
        ['dispose of nodes', { name: 'here', count: 1 }, 5],
      ]
    );
    assert.deepStrictEqual(trace.otherData, { frames: 7, droppedFrames: 0, droppedEvents: 0 });
    scene.dispose();
  });

  it('keep the last frames, and say how many they dropped', () => {
    const scene = createScene();
    const recording = scene.record({ frames: 4 });
    for (let i = 0; i < 11; ++i) {
      scene.node({ name: `node ${i}` });
      scene.update();
    }
    assert.deepStrictEqual([recording.frames, recording.droppedFrames], [4, 7]);
    const trace = JSON.parse(JSON.stringify(recording));
    const { X, C, i } = assertFormat(trace);
    assert.deepStrictEqual(
      X.filter(({ name }) => name === 'update').map(({ args }) => args.frame),
      [8, 9, 10, 11]
    );
    assert.deepStrictEqual(
      C.filter(({ name }) => name === 'nodes').map(({ args }) => args.nodes),
      [8, 9, 10, 11]
    );
    // What was before the first frame that is kept is dropped with its frame.
    assert.deepStrictEqual(
      i.map(({ args }) => args.name),
      ['node 8', 'node 9', 'node 10']
    );
    assert.strictEqual(trace.otherData.droppedFrames, 7);
    assert.strictEqual(
      trace.otherData.note,
      'the first 7 frames were dropped: record({ frames: 11 }) keeps more.'
    );
    scene.dispose();
  });

  it('count events that were dropped with their frames', () => {
    const scene = createScene();
    const recording = scene.record({ frames: 2 });
    for (let frame = 0; frame < 5; ++frame) {
      scene.update();
      scene.node();
    }
    const trace = recording.toJSON();
    // Nodes were made after each of five frames; the last two frames are kept.
    assert.strictEqual(assertFormat(trace).i.length, 2);
    assert.strictEqual(trace.otherData.droppedFrames, 3);
    assert.strictEqual(trace.otherData.droppedEvents, 3);
  });

  it('bound the number of events, and count those of a kind together', () => {
    const scene = createScene();
    const recording = scene.record();
    for (let i = 0; i < 5000; ++i) {
      scene.node();
    }
    scene.update();
    for (let i = 0; i < 5000; ++i) {
      scene.node({ name: String(i) });
    }
    scene.update();
    const trace = recording.toJSON();
    const { i } = assertFormat(trace);
    assert.strictEqual(i.length, 4096);
    assert.strictEqual(trace.otherData.droppedEvents, 5001 - 4096);
    assert.deepStrictEqual(
      [i[0].args.name, i[4095].args.name],
      [String(5000 - 4096), '4999'],
      'the last ones, in their order'
    );
    recording.stop();
    const again = scene.record();
    for (let n = 0; n < 5000; ++n) {
      scene.node();
    }
    scene.update();
    const only = again.toJSON().traceEvents.filter(({ ph }) => ph === 'i');
    assert.deepStrictEqual(
      only.map(({ args }) => args),
      [{ name: '', count: 5000 }]
    );
    scene.dispose();
  });

  it('time updates of scenes that do not, as long as they run', () => {
    const scene = createScene({ isTimed: false });
    scene.update();
    assert.strictEqual(scene.stats.total, 0);
    const recording = scene.record();
    scene.update();
    assert(scene.stats.total > 0);
    recording.stop();
    scene.update();
    assert.strictEqual(scene.stats.total, 0);
    assert.strictEqual(recording.frames, 1);
    const [whole] = recording.toJSON().traceEvents.filter(({ name }) => name === 'update');
    assert(whole.dur > 0);
    scene.dispose();
  });

  it('have no frame for an update that an error ended', () => {
    const scene = createScene();
    const recording = scene.record();
    const [character] = scene.instantiate(model);
    character.play('step');
    character.onLoop = () => {
      throw new Error('of the program');
    };
    assert.throws(() => scene.update(1.5), /of the program/);
    character.onLoop = null;
    scene.update(0.5);
    assert.strictEqual(recording.frames, 1);
    assertFormat(recording.toJSON());
    scene.dispose();
  });

  it('can be saved while they run, and after their scene', async () => {
    const scene = createScene();
    const recording = scene.record();
    scene.update();
    const saved = recording.save(path.join(folder, 'running.json'));
    scene.update();
    await saved;
    const framesIn = (name) => {
      const trace = JSON.parse(fs.readFileSync(path.join(folder, name), 'utf8'));
      return trace.traceEvents.filter((event) => event.name === 'update').length;
    };
    assert.strictEqual(framesIn('running.json'), 1);
    assert(recording.isRecording);
    assert.throws(
      () => scene.record(),
      /^Error: Scene\.record: a recording of the scene runs already: stop that first\.$/
    );
    scene.dispose();
    assert(!recording.isRecording);
    recording.stop();
    await recording.save(path.join(folder, 'running.json'));
    assert.strictEqual(framesIn('running.json'), 2);
    assert.throws(() => scene.record(), /the scene is disposed of/);
  });

  it('name what is wrong, and the cure', async () => {
    const scene = createScene();
    for (const [options, Kind, words] of [
      [null, TypeError, /options is null: leave it out or give an object/],
      [{ frames: 0 }, RangeError, /options\.frames is 0: give a whole number from 1 to 216000/],
      [{ frames: 1.5 }, RangeError, /options\.frames is 1\.5/],
      [{ frames: 216001 }, RangeError, /options\.frames is 216001/],
      [{ frames: '9' }, TypeError, /options\.frames is '9'/],
    ]) {
      assert.throws(
        () => scene.record(options),
        (error) => error instanceof Kind && words.test(error.message)
      );
    }
    const recording = scene.record();
    await assert.rejects(recording.save(path.join(folder, 'empty.json')), {
      name: 'Error',
      message:
        'Recording.save: there is no frame yet: call update of the scene before, while it records.',
    });
    scene.update();
    for (const file of [undefined, '', 7]) {
      await assert.rejects(recording.save(file), /Recording\.save: file is .*: give the path of a/);
    }
    scene.dispose();
  });

  it('leave a file as it was, and no other, where it can not be written', async () => {
    const scene = createScene();
    const recording = scene.record();
    scene.update();
    const inside = path.join(folder, 'inside');
    fs.mkdirSync(path.join(inside, 'taken'), { recursive: true });
    fs.writeFileSync(path.join(inside, 'text'), 'before');
    for (const [name, code, words] of [
      ['absent/trace.json', 'ENOENT', "can't be written, there is no such folder: make the folder"],
      ['text/trace.json', 'ENOTDIR', 'a part of its path is no folder: give another path'],
      ['taken', 'EISDIR', 'it is a folder: give the path of a file'],
    ]) {
      const file = path.join(inside, name);
      await assert.rejects(recording.save(file), (error) => {
        assert(error.message.startsWith(`Recording.save: '${file}'`), error.message);
        assert(error.message.includes(words), error.message);
        assert.strictEqual(error.code, code);
        return true;
      });
    }
    // The disk is full in the middle of the file.
    const file = path.join(inside, 'text');
    const { open } = fs.promises;
    fs.promises.open = async (...given) => {
      const handle = await open(...given);
      const writeFile = handle.writeFile.bind(handle);
      handle.writeFile = async (text) => {
        await writeFile(text.slice(0, 100));
        throw Object.assign(new Error('no space'), { code: 'ENOSPC' });
      };
      return handle;
    };
    try {
      await assert.rejects(recording.save(file), /the disk is full: make room, or record fewer/);
    } finally {
      fs.promises.open = open;
    }
    assert.strictEqual(fs.readFileSync(file, 'utf8'), 'before');
    assert.deepStrictEqual(fs.readdirSync(inside).sort(), ['taken', 'text']);
    await recording.save(file);
    JSON.parse(fs.readFileSync(file, 'utf8'));
    assert.deepStrictEqual(fs.readdirSync(inside).sort(), ['taken', 'text']);
    scene.dispose();
  });

  it('allocate nothing a frame beyond the clock', () => {
    // In a process of its own: what other tests do to compiled code would be measured here.
    const program = `
      const { Scene } = require('./scene');
      const engine = require('./lib').getEngine();
      const scene = new Scene({ engine });
      scene.node().setSphere(0, 0, 0, 1);
      const run = (frames) => {
        for (let i = 0; i < frames; ++i) {
          scene.update(1 / 64);
        }
      };
      const measure = () => {
        const before = process.memoryUsage().heapUsed;
        run(500);
        return (process.memoryUsage().heapUsed - before) / 500;
      };
      // In turns: as the compiler optimises an update, it allocates less for the clock.
      const bytes = { off: [], on: [] };
      for (let round = 0; round < 60; ++round) {
        const off = measure();
        const recording = scene.record({ frames: 100 });
        const on = measure();
        recording.stop();
        if (round >= 20) {
          bytes.off.push(off);
          bytes.on.push(on);
        }
      }
      const median = (numbers) => numbers.sort((a, b) => a - b)[20];
      console.log(JSON.stringify([median(bytes.off), median(bytes.on)]));`;
    const { stdout, stderr } = childProcess.spawnSync(
      process.execPath,
      ['--expose-gc', '-e', program],
      { cwd: root, encoding: 'utf8' }
    );
    assert.strictEqual(stderr, '');
    const [off, on] = JSON.parse(stdout);
    // The least object takes 16 bytes.
    assert(on - off < 12, `${off} and ${on} bytes a frame`);
  });

  it('have the thread of a worker', async () => {
    const worker = new Worker(
      `const { parentPort } = require('worker_threads');
      const { load } = require(${JSON.stringify(path.resolve(__dirname, '../../../../lib'))});
      const { Scene } = require(${JSON.stringify(path.resolve(__dirname, '../../../../scene'))});
      const scene = new Scene({ engine: load(${JSON.stringify(
        path.resolve(modulePath)
      )}).getEngine() });
      const recording = scene.record();
      scene.update();
      parentPort.postMessage(JSON.stringify(recording));`,
      { eval: true }
    );
    const { threadId } = worker;
    const text = await new Promise((resolve, reject) => {
      worker.on('message', resolve);
      worker.on('error', reject);
    });
    await worker.terminate();
    const { traceEvents } = JSON.parse(text);
    traceEvents.forEach(({ tid }) => assert.strictEqual(tid, threadId + 1));
  });
});
