'use strict';
// Buffers whose ownership native code passes to JavaScript.
const assert = require('assert');
const { addonPath, buildKind, differences } = require('../support/host');
const { collect, collectUntil } = require('../support/collect');

const addon = require(addonPath);

describe('NewGivenAwayBuffer', () => {
  it('shows the block, which V8 does not free', () => {
    const buffer = addon.givenAway(1000);
    assert.strictEqual(buffer.byteLength, 1000);
    assert(new Uint8Array(buffer).every((byte) => byte === 0xa5));
    assert.strictEqual(addon.isExternal(buffer), differences.marksExternal);
  });

  it('keeps the block while only a view holds the buffer', async () => {
    const view = new Uint8Array(addon.givenAway(100000));
    await collect();
    (() => {
      for (let i = 0; i < 100; ++i) {
        addon.givenAway(100000);
      }
    })();
    await collect();
    assert(view.every((byte) => byte === 0xa5));
  });

  it('frees blocks as their buffers are collected', async () => {
    // 2 GiB in total, of which a few dozen MiB are alive at a time; writing is slow under the thread sanitizer, which
    // uses half a GiB.
    const blockBytes = 1 << 20;
    const blocks = buildKind === 'thread' ? 512 : 2048;
    await collect();
    const before = process.memoryUsage().rss;
    let highest = 0;
    for (let i = 0; i < blocks; ++i) {
      addon.givenAway(blockBytes);
      if (i % 32 === 31) {
        await collect();
        highest = Math.max(highest, process.memoryUsage().rss);
      }
    }
    // The address sanitizer quarantines 256 MiB of freed memory.
    const limit = { plain: 200, address: 600, thread: 400 }[buildKind] * (1 << 20);
    assert(highest - before < limit, `grew by ${highest - before} bytes`);
  });
});

describe('WeakBufferHolder', () => {
  it('runs its finaliser once, with the block and 0', async () => {
    const before = addon.freedBlocks();
    const kept = addon.countedBuffer(64, true);
    (() => {
      for (let i = 0; i < 100; ++i) {
        addon.countedBuffer(64, true);
      }
    })();
    assert(await collectUntil(() => addon.freedBlocks().count === before.count + 100));
    await collect();
    assert.strictEqual(addon.freedBlocks().count, before.count + 100);
    assert.strictEqual(addon.freedBlocks().oddArguments, 0);
    assert.strictEqual(kept.byteLength, 64);
  });

  it('may have no finaliser', async () => {
    // Memory of the test above is released first.
    await collect();
    await collect();
    const before = addon.freedBlocks().count;
    (() => {
      addon.countedBuffer(64, false);
      addon.countedBuffer(64, true);
    })();
    assert(await collectUntil(() => addon.freedBlocks().count === before + 1));
  });
});
