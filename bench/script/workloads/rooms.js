'use strict';
// Rooms of a game server, a scene each, in one Worker and in several: ticks of all rooms, with a snapshot of each that is
// transferred. Each case is a process of its own, since engines stay until a process ends.
const { spawnSync } = require('child_process');
const { move } = require('piscina');
const { isMainThread } = require('worker_threads');
const { Camera, Model, Scene } = require('../../../lib/scene');
const { getEngine } = require('../lib/native-scene');
const { interleave, median, now } = require('../lib/measure');
const { printTable } = require('../lib/table');

const kRooms = 16;

/** Nodes of a character. */
const kJoints = 24;

/** Spheres of a room with a camera. */
const kSpheres = 200;

const workerCounts = [1, 2];

/** Cases: whether rooms share the engine of their Worker, and whether worker threads are pinned. */
const cases = [
  { engines: 'one a Worker', pinning: true },
  { engines: 'one a Worker', pinning: false },
  { engines: 'one a room', pinning: true },
  { engines: 'one a room', pinning: false },
];

// --- In a Worker.

let model = null;
let shared = null;
const rooms = new Map();

/** A chain of joints, all of which a clip turns. */
function makeModel() {
  const { buildClip, sampleTypes } = require('../../../lib/clip');
  const nodes = Array.from({ length: kJoints }, (_, i) => ({
    name: `joint ${i}`,
    parent: i - 1,
    translation: [0, 0.1, 0],
    rotation: [0, 0, 0, 1],
    scale: [1, 1, 1],
  }));
  const curves = [];
  nodes.forEach((_, target) => {
    ['X', 'Y', 'Z', 'W'].forEach((axis, k) => {
      const keys = [0, 30, 60].map((frame, i) => {
        const angle = 0.1 * (i % 2);
        const value = [0, 0, Math.sin(angle), Math.cos(angle)][k];
        return { frame, value, inTangent: 0, outTangent: 0 };
      });
      curves.push({ target, type: sampleTypes[`Quaternion${axis}`], keys });
    });
  });
  const clip = buildClip({ name: 'sway', framesPerSecond: 30, frameCount: 61, curves });
  const targets = nodes.map((_, i) => i);
  const animations = [{ name: 'sway', framesPerSecond: 30, clip, targets }];
  return Model.from({ nodes, skins: [], animations });
}

function open({ room, characters, isShared }) {
  model = model || makeModel();
  shared = shared || getEngine();
  const scene = new Scene({ engine: isShared ? shared : getEngine(), isTimed: false });
  const all = scene.instantiate(model, characters);
  all.forEach((character, i) => character.play('sway', { at: i / characters }));
  rooms.set(room, { scene, all, heads: all.map((one) => one.node(kJoints - 1)), ticks: 0 });
}

function tick({ room, places }) {
  const { scene, all, heads } = rooms.get(room);
  const x = ++rooms.get(room).ticks / 64;
  for (let i = 0; i < all.length; ++i) {
    all[i].setPosition(x, 0, i);
  }
  scene.update(1 / 64);
  for (let i = 0; i < heads.length; ++i) {
    heads[i].readWorldMatrix(places, 16 * i);
  }
  return move(places);
}

// --- In the process of a case.

/** Prints ticks of rooms a second, in each round. */
async function measureInChild({ workers, characters, isShared, rounds, milliseconds, warmUps }) {
  const { Piscina } = require('piscina');
  const alone = { filename: __filename, minThreads: 1, maxThreads: 1 };
  const options = Object.assign({ concurrentTasksPerWorker: 2 * kRooms }, alone);
  const pools = Array.from({ length: workers }, () => new Piscina(options));
  const ask = (room, name, task, list) =>
    pools[room % workers].run(Object.assign({ room }, task), { name, transferList: list });
  const all = Array.from({ length: kRooms }, (_, room) => room);
  await Promise.all(all.map((room) => ask(room, 'open', { characters, isShared })));
  const makePlaces = () => all.map(() => new Float32Array(16 * characters));
  let free = makePlaces();
  let asked = makePlaces();
  const tickAll = async () => {
    const next = free.map((places, room) => ask(room, 'tick', { places }, [places.buffer]));
    free = await Promise.all(asked);
    asked = next;
  };
  const samples = [];
  for (let round = 0; round < rounds; ++round) {
    for (let i = 0; i < warmUps; ++i) {
      await tickAll();
    }
    const start = now();
    const used = process.cpuUsage();
    let ticks = 0;
    let elapsed = 0;
    do {
      await tickAll();
      ticks += kRooms;
      elapsed = now() - start;
    } while (elapsed < milliseconds * 1e6);
    const { user, system } = process.cpuUsage(used);
    samples.push({ rate: ticks / (elapsed / 1e9), cpu: (user + system) / ticks });
  }
  const last = await Promise.all(asked);
  // All rooms ran the same number of ticks, with the same characters.
  const isSame = last.every((places) => places.every((value, i) => value === last[0][i]));
  const megabytes = process.memoryUsage().rss / 2 ** 20;
  await Promise.all(pools.map((pool) => pool.destroy()));
  process.stdout.write(JSON.stringify({ samples, isSame, x: last[0][12], megabytes }));
}

// --- In the process of the benchmarks.

function measure(task, pinning) {
  const env = Object.assign({}, process.env, pinning ? {} : { NQ_WORKER_PINNING: '0' });
  const args = [__filename, JSON.stringify(task)];
  const child = spawnSync(process.execPath, args, { encoding: 'utf8', env });
  if (child.status !== 0) {
    throw new Error(`rooms: ${child.stderr}`);
  }
  const result = JSON.parse(child.stdout);
  if (!result.isSame || result.x === 0) {
    throw new Error('rooms: snapshots differ between rooms');
  }
  return result;
}

/** Rooms with a camera and spheres, in engines of their own and in one; microseconds for an update of a room. */
function measureCulling(budget) {
  const counts = budget.milliseconds === 0 ? [2] : [1, 8, 32];
  return counts.map((count) => {
    const groups = [false, true].map((isShared) => {
      const one = getEngine();
      return Array.from({ length: count }, () => {
        const scene = new Scene({ engine: isShared ? one : getEngine(), isTimed: false });
        for (let i = 0; i < kSpheres; ++i) {
          scene.node({ position: [0, 0, -5 - i] }).setSphere(0, 0, 0, 1);
        }
        return { scene, camera: scene.addCamera(new Camera()) };
      });
    });
    const [own, shared] = interleave(
      groups.map((all) => () => all.forEach(({ scene }) => scene.update())),
      budget
    ).map((time) => time / count / 1000);
    for (const { camera } of [].concat(...groups)) {
      if (camera.visible.count !== kSpheres) {
        throw new Error(`rooms: a camera saw ${camera.visible.count} spheres, not ${kSpheres}`);
      }
    }
    return { count, own, shared };
  });
}

function run(budget) {
  const characters = budget.milliseconds === 0 ? 2 : 50;
  const rounds = Math.max(1, Math.floor(budget.rounds / 3));
  const milliseconds = 10 * budget.milliseconds;
  const samples = cases.map(() => workerCounts.map(() => []));
  const megabytes = cases.map(() => workerCounts.map(() => 0));
  for (let round = 0; round < rounds; ++round) {
    cases.forEach(({ engines, pinning }, c) => {
      workerCounts.forEach((workers, i) => {
        const isShared = engines === 'one a Worker';
        const task = {
          workers,
          characters,
          isShared,
          rounds: budget.milliseconds === 0 ? 1 : 15,
          milliseconds,
        };
        const result = measure(Object.assign(task, { warmUps: budget.warmUps }), pinning);
        samples[c][i].push(...result.samples);
        megabytes[c][i] = Math.max(megabytes[c][i], result.megabytes);
      });
    });
  }
  const rows = cases.map(({ engines, pinning }, c) => ({
    engines,
    pinning,
    ticks: samples[c].map((all) => median(all.map(({ rate }) => rate))),
    best: samples[c].map((all) => Math.max(...all.map(({ rate }) => rate))),
    cpu: samples[c].map((all) => Math.min(...all.map(({ cpu }) => cpu))),
    megabytes: megabytes[c],
  }));
  const title = `rooms: ${kRooms} rooms of ${characters} characters of ${kJoints} joints`;
  const head = ['engines', 'pinning', 'Workers: 1', '2', '2/1'];
  printTable(
    `${title}; ticks of a room a second, medians, then the best`,
    [...head, 'best: 1', '2', '2/1', 'MB'],
    rows.map(({ engines, pinning, ticks, best, megabytes: [, most] }) => [
      ...[engines, pinning ? 'yes' : 'no'],
      ...[ticks, best].map(([one, two]) => [one, two, two / one]).flat(),
      most,
    ])
  );
  printTable(
    `${title}; microseconds of CPU time for a tick, all threads, the least`,
    head,
    rows.map(({ engines, pinning, cpu: [one, two] }) => [
      ...[engines, pinning ? 'yes' : 'no', one, two, two / one],
    ])
  );
  const culling = measureCulling(budget);
  printTable(
    `rooms: a camera and ${kSpheres} spheres each; microseconds for an update of a room`,
    ['rooms', 'an engine each', 'one engine', 'one/each'],
    culling.map(({ count, own, shared }) => [count, own, shared, shared / own])
  );
  return { rows, culling };
}

if (isMainThread && require.main === module) {
  measureInChild(JSON.parse(process.argv[2])).catch((error) => {
    console.error(error.stack);
    process.exitCode = 1;
  });
}

module.exports = { open, run, tick };
