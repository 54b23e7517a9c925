'use strict';
// What it shows: rooms of a game server, a scene each, in Workers that keep them; ticks, and snapshots without copies.
//
//   node examples/15-rooms.js
//
// It needs the package piscina. What Workers do is in rooms-worker.js.
const path = require('path');
const Piscina = require('piscina');

const kWorkers = 2; // a server has one for each core: os.cpus().length
const kRooms = 6;
const kTicks = 90;

// --- Set up: a pool of one Worker each, since a scene can't leave its Worker: a room stays where it was opened.
const filename = path.join(__dirname, 'rooms-worker.js');
const alone = { filename, minThreads: 1, maxThreads: 1, concurrentTasksPerWorker: 2 * kRooms };
const pools = Array.from({ length: kWorkers }, () => new Piscina(alone));
const ask = (id, name, task, transferList) =>
  pools[id % kWorkers].run(Object.assign({ id }, task), { name, transferList });

async function main() {
  const rooms = Array.from({ length: kRooms }, (_, id) => {
    return { players: 2 + id, radiansPerSecond: 0.25 * (1 + id) };
  });
  const threads = await Promise.all(rooms.map((options, id) => ask(id, 'open', { options })));

  // --- Frame: each tick is asked for before the answers to the last one are read, so no Worker waits for this thread.
  const makePlaces = () => rooms.map(({ players }) => new Float32Array(3 * players));
  const first = makePlaces();
  let free = first;
  let asked = makePlaces().map((places) => Promise.resolve(places));
  for (let tick = 0; tick < kTicks; ++tick) {
    const next = free.map((places, id) =>
      ask(id, 'tick', { seconds: 1 / 60, places }, [places.buffer])
    );
    free = await Promise.all(asked); // snapshots of the tick before: send them to players, then use them again
    asked = next;
  }
  const snapshots = await Promise.all(asked);
  await Promise.all(rooms.map((_, id) => ask(id, 'close')));

  // --- Print: who was where, and the last player of each room.
  const groups = Array.from(new Set(threads), (thread) => {
    return rooms.map((_, id) => id).filter((id) => threads[id] === thread);
  });
  console.log(`rooms by Worker: ${groups.map((ids) => ids.join(' ')).join(', ')}`);
  console.log(`bytes of the first arrays that are left here: ${first[0].byteLength}`);
  snapshots.forEach((places, id) => {
    const [x, , z] = Array.from(places.subarray(-3), (value) => value.toFixed(2));
    console.log(`room ${id}: player ${rooms[id].players} at ${x}, ${z}`);
  });
}

main()
  .catch((error) => {
    console.error(error.message);
    process.exitCode = 1;
  })
  .then(() => pools.forEach((pool) => pool.destroy()));
