'use strict';
// The batch update methods, with an operation that records its calls.
const assert = require('assert');
const { modulePath, addonPath } = require('../support/host');
const { runScript, assertFault } = require('../support/child');

const nq = require(modulePath);
const addon = require(addonPath);

const nothing = { handles: [], onScriptThread: [], threads: 0 };

describe('BatchUpdate', () => {
  const engine = nq.getEngine();
  const batch = (words, pause = 0) => addon.batch(engine, Uint32Array.from(words), pause);

  it('calls nothing for a count of 0', () => {
    assert.deepStrictEqual(batch([0]), nothing);
    assert.deepStrictEqual(batch([0, 1, 2, 3]), nothing);
  });

  it('runs a single handle on the calling thread', () => {
    assert.deepStrictEqual(batch([1, 0x5003]), {
      handles: [0x5003],
      onScriptThread: [true],
      threads: 1,
    });
  });

  it('runs two on the workers, and returns only when both are done', () => {
    const result = batch([2, 0x1000, 0x2000], 50);
    assert.deepStrictEqual(result.handles.sort(), [0x1000, 0x2000]);
    assert.deepStrictEqual(result.onScriptThread, [false, false]);
    assert.strictEqual(result.threads, 2);
  });

  it('runs each of 4095 handles once, on up to four workers', () => {
    const words = Array.from({ length: 4096 }, (_, i) => (i === 0 ? 4095 : i * 7));
    const result = batch(words);
    assert.deepStrictEqual(
      result.handles.sort((a, b) => a - b),
      words.slice(1)
    );
    assert(result.onScriptThread.every((value) => value === false));
    assert(result.threads >= 1 && result.threads <= 4, `${result.threads} threads`);
  });

  it('runs each handle once, for any number of handles', () => {
    for (let count = 2; count <= 64; ++count) {
      const handles = Array.from({ length: count }, (_, i) => 1000 + i);
      const result = batch([count, ...handles]);
      assert.deepStrictEqual(
        result.handles.sort((a, b) => a - b),
        handles
      );
      assert(result.onScriptThread.every((value) => value === false));
    }
  });

  it('keeps four workers busy at once', () => {
    assert.strictEqual(batch([4, 1, 2, 3, 4], 100).threads, 4);
  });

  it('runs duplicates as often as they are listed, including 0', () => {
    assert.deepStrictEqual(batch([3, 9, 0, 9]).handles.sort(), [0, 9, 9]);
  });

  it('reads no words beyond the count', () => {
    assert.deepStrictEqual(batch([2, 5, 6, 7, 8]).handles.sort(), [5, 6]);
    assert.deepStrictEqual(batch([1, 5, 6]).handles, [5]);
  });

  it('accepts buffers, and views by their range', () => {
    const words = Uint32Array.from([99, 2, 11, 12, 13]);
    assert.deepStrictEqual(addon.batch(engine, words.subarray(1), 0).handles.sort(), [11, 12]);
    assert.deepStrictEqual(
      addon.batch(engine, new DataView(words.buffer, 4, 12), 0).handles.sort(),
      [11, 12]
    );
    assert.deepStrictEqual(addon.batch(engine, Uint32Array.from([1, 21]).buffer, 0).handles, [21]);
  });

  it('accepts a view at an odd offset', () => {
    const bytes = new Uint8Array(13);
    bytes.set([2, 0, 0, 0, 3, 1, 0, 0, 4, 1, 0, 0], 1);
    assert.deepStrictEqual(
      addon.batch(engine, bytes.subarray(1), 0).handles.sort(),
      [0x103, 0x104]
    );
  });

  it('calls nothing when the count exceeds the buffer', () => {
    assert.deepStrictEqual(batch([1]), nothing);
    assert.deepStrictEqual(batch([2, 1]), nothing);
    assert.deepStrictEqual(batch([4, 1, 2, 3]), nothing);
    const view = new Uint32Array(8).fill(3);
    assert.deepStrictEqual(addon.batch(engine, view.subarray(0, 3), 0), nothing);
    // A byte short of the last word.
    assert.deepStrictEqual(addon.batch(engine, new Uint8Array([1, 0, 0, 0, 1, 0, 0]), 0), nothing);
  });

  it('does not wrap a count whose bytes exceed 32 bits', () => {
    for (const count of [0x3fffffff, 0x40000000, 0x7fffffff, 0xffffffff]) {
      assert.deepStrictEqual(batch([count, 1]), nothing);
      assert.deepStrictEqual(batch([count, 1, 2, 3]), nothing);
    }
  });

  it('can be run again and again', () => {
    for (let i = 0; i < 500; ++i) {
      assert.strictEqual(batch([3, i, i + 1, i + 2]).handles.length, 3);
    }
  });

  for (const [name, label] of [
    ['batchOfNumber', 'a number'],
    ['batchOfNothing', 'undefined'],
    ['batchOfEmptyBuffer', 'a buffer of no bytes'],
    ['batchOfDetachedView', 'a view of a detached buffer'],
  ]) {
    it(`ends the process by a segmentation fault on the first word of ${label}`, () => {
      assertFault(runScript('misuse.js', name));
    });
  }
});
