'use strict';
// Object lifetime and garbage collection: engines, batches, handles, memory.
const assert = require('assert');
const { over } = require('../support/blocks');
const { modulePath, addonPath, sanitized } = require('../support/host');
const { collect, collectUntil } = require('../support/collect');

const nq = require(modulePath);
const addon = require(addonPath);

/** Numbers of the blocks of "dirtyEntities" and "entityCommands". */
const listBlocks = [0, 1];

/** Creates an engine and returns what `use(engine)` returns, without a reference to the engine. */
function withEngine(use) {
  return use(nq.getEngine());
}

describe('V8', () => {
  it('counts only wrappers, not the memory behind them', () => {
    const engine = nq.getEngine();
    const before = addon.externalMemory();
    const batches = Array.from({ length: 50 }, () => engine.createEntity(true, 4095));
    const told = addon.externalMemory() - before;
    const bytes = batches.reduce((sum, { buffer }) => sum + buffer.byteLength, 0);
    assert.strictEqual(bytes, 50 * 4095 * 108);
    assert(told > 0 && told < 50 * 1000, `${told} bytes`);
  });
});

describe('engine', () => {
  it('releases its core and systems, but not its runtime', async () => {
    const runtime = withEngine((engine) => addon.runtimeOf(engine));
    assert(await collectUntil(() => addon.runtimeReferences(runtime) === 1));
    for (const id of listBlocks) {
      assert.strictEqual(addon.hasBlock(runtime, id), false);
    }
  });

  it('keeps core and systems while a batch is alive', async () => {
    let batch = null;
    const runtime = withEngine((engine) => {
      batch = engine.createEntity(true, 3);
      return addon.runtimeOf(engine);
    });
    // A second engine shows that a garbage collection has run.
    const other = withEngine((engine) => addon.runtimeOf(engine));
    assert(await collectUntil(() => addon.runtimeReferences(other) === 1));
    await collect();
    assert.strictEqual(addon.runtimeReferences(runtime), 2);
    for (const id of [...listBlocks, batch.memoryID]) {
      assert.strictEqual(addon.hasBlock(runtime, id), true);
    }
    // The batch still works: its memory and its entities exist.
    over(Float32Array, batch).fill(1);
    addon.setWorldPosition(batch, batch.id + 2, 4, 5, 6, true);
    assert.deepStrictEqual(Array.from(new Float32Array(batch.buffer, 2 * 108 + 20, 3)), [4, 5, 6]);
    batch = null;
    assert(await collectUntil(() => addon.runtimeReferences(runtime) === 1));
    for (const id of [...listBlocks, 2]) {
      assert.strictEqual(addon.hasBlock(runtime, id), false);
    }
  });

  it('keeps them until the last of several batches is collected', async () => {
    const [runtime, batches] = withEngine((engine) => [
      addon.runtimeOf(engine),
      [engine.createEntity(), engine.createEntity(true), engine.createEntity(false, 4096)],
    ]);
    for (let left = 3; left > 0; --left) {
      for (let i = 0; i < 3; ++i) {
        await collect();
      }
      assert.strictEqual(addon.runtimeReferences(runtime), 2, `${left} left`);
      assert.strictEqual(addon.hasBlock(runtime, 0), true);
      batches.shift();
    }
    assert(await collectUntil(() => addon.runtimeReferences(runtime) === 1));
    assert.strictEqual(addon.hasBlock(runtime, 0), false);
  });

  it('is not kept alive by its buffers', async () => {
    const [runtime, buffers] = withEngine((engine) => [
      addon.runtimeOf(engine),
      [engine.dirtyEntities, engine.entityCommands],
    ]);
    assert(await collectUntil(() => addon.runtimeReferences(runtime) === 1));
    // They dangle now, and must not be accessed.
    assert.strictEqual(buffers.length, 2);
  });

  it('counts one reference per wrapper and one per batch', () => {
    const engine = nq.getEngine();
    assert.strictEqual(addon.coreReferences(engine), 1);
    const kept = [engine.createEntity(true, 100)];
    assert.strictEqual(addon.coreReferences(engine), 3);
    kept.push(engine.createEntity(true, 4096));
    assert.strictEqual(addon.coreReferences(engine), 4);
    assert.strictEqual(kept.length, 2);
  });
});

describe('batch', () => {
  it('releases its block', async () => {
    const engine = nq.getEngine();
    const runtime = addon.runtimeOf(engine);
    (() => engine.createEntity(true, 10))();
    assert.strictEqual(addon.hasBlock(runtime, 2), true);
    assert(await collectUntil(() => !addon.hasBlock(runtime, 2)));
    assert.strictEqual(addon.entityName(engine, 0x1000), null);
    assert.strictEqual(addon.coreReferences(engine), 1);
  });

  it('releases its handle to the next batch', async () => {
    const engine = nq.getEngine();
    const runtime = addon.runtimeOf(engine);
    const first = engine.createEntity();
    (() => engine.createEntity())();
    const third = engine.createEntity();
    assert.deepStrictEqual([first.id, third.id], [0x1000, 0x3000]);
    assert(await collectUntil(() => !addon.hasBlock(runtime, 3)));
    const again = engine.createEntity(true);
    assert.strictEqual(again.id, 0x2000);
    assert.strictEqual(again.memoryID, 5);
    assert.strictEqual(engine.createEntity().id, 0x4000);
  });

  it('removes the parent of children in other batches', async () => {
    const engine = nq.getEngine();
    const runtime = addon.runtimeOf(engine);
    const commands = over(Uint32Array, engine.entityCommands);
    const dirty = over(Uint32Array, engine.dirtyEntities);
    const child = engine.createEntity(true);
    const floats = over(Float32Array, child);
    floats.set([1, 0, 0, 1, 1, 1], 5);
    (() => {
      const parent = engine.createEntity(true);
      over(Float32Array, parent).set([10, 0, 0, 1, 1, 1], 5);
      commands.set([20, 1, parent.id, 2, parent.id, child.id]);
      dirty.set([2, parent.id, child.id]);
      engine.refreshWorldTransform();
    })();
    assert.strictEqual(floats[11 + 12], 11);
    assert(await collectUntil(() => !addon.hasBlock(runtime, 3)));
    // Without a parent, it can be a root.
    commands.set([8, 1, child.id]);
    dirty.set([1, child.id]);
    engine.refreshWorldTransform();
    assert.strictEqual(floats[11 + 12], 1);
  });

  it('keeps at most 4096 handles for reuse', async () => {
    const engine = nq.getEngine();
    const runtime = addon.runtimeOf(engine);
    const count = 5000;
    let batches = [];
    for (let i = 0; i < count; ++i) {
      batches.push(engine.createEntity());
    }
    assert.strictEqual(batches[count - 1].id, count * 4096);
    batches = null;
    assert(
      await collectUntil(() => {
        for (let id = 2; id < count + 2; ++id) {
          if (addon.hasBlock(runtime, id)) {
            return false;
          }
        }
        return true;
      })
    );
    const again = [];
    for (let i = 0; i < count; ++i) {
      again.push(engine.createEntity().id / 4096);
    }
    // 4096 old ones first, in some order, and then new ones in ascending order.
    const old = again.slice(0, 4096);
    assert(old.every((slot) => slot >= 1 && slot <= count));
    assert.strictEqual(new Set(old).size, 4096);
    assert.deepStrictEqual(
      again.slice(4096),
      Array.from({ length: count - 4096 }, (_, i) => count + 1 + i)
    );
  });
});

describe('memory', () => {
  it('stays bounded while batches are created and released, and handles are reused', async () => {
    const engine = nq.getEngine();
    const rounds = sanitized ? 10 : 40;
    const perRound = 200;
    const ids = new Set();
    let base = 0;
    let highest = 0;
    for (let round = 0; round < rounds; ++round) {
      for (let i = 0; i < perRound; ++i) {
        const batch = engine.createEntity(i % 2 === 0, 1 + ((i * 97) % 2000));
        over(Uint8Array, batch).fill(i);
        ids.add(batch.id);
      }
      await collect();
      const { rss } = process.memoryUsage();
      if (round === 2) {
        base = rss;
      }
      highest = Math.max(highest, rss);
    }
    // Over 16 MB of shared blocks per round.
    assert(ids.size < 3 * perRound, `${ids.size} handles`);
    const limit = (sanitized ? 400 : 100) * (1 << 20);
    assert(highest - base < limit, `grew by ${highest - base} bytes`);
  });

  it('of wrappers is released, too', async () => {
    const engine = nq.getEngine();
    const rounds = sanitized ? 4 : 12;
    await collect();
    const external = addon.externalMemory();
    let base = 0;
    let last = 0;
    for (let round = 0; round < rounds; ++round) {
      for (let i = 0; i < 5000; ++i) {
        engine.createEntity();
      }
      await collect();
      last = process.memoryUsage().rss;
      base = base || last;
    }
    assert(await collectUntil(() => addon.externalMemory() === external));
    assert.strictEqual(addon.coreReferences(engine), 1);
    const limit = (sanitized ? 300 : 30) * (1 << 20);
    assert(last - base < limit, `grew by ${last - base} bytes`);
  });
});
