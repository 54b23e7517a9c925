'use strict';
// Conversion of arguments by native methods.
const assert = require('assert');
const { MessageChannel } = require('worker_threads');
const { addonPath } = require('../support/host');

const addon = require(addonPath);

const nothing = { isNull: true, length: 0, bytes: [] };

/** Detaches `buffer` as a transfer to another thread does. */
function detach(buffer) {
  const { port1, port2 } = new MessageChannel();
  port1.postMessage(buffer, [buffer]);
  port1.close();
  port2.close();
}

/** A buffer that holds 0, 1, 2, ... */
function counting(length) {
  return Uint8Array.from({ length }, (_, i) => i).buffer;
}

describe('ReadBytes', () => {
  it('reads all bytes of an ArrayBuffer', () => {
    assert.deepStrictEqual(addon.readBytes(counting(5)), {
      isNull: false,
      length: 5,
      bytes: [0, 1, 2, 3, 4],
    });
  });

  it('reads the range of a view, of any kind', () => {
    const buffer = counting(24);
    const eight = { isNull: false, length: 8, bytes: [8, 9, 10, 11, 12, 13, 14, 15] };
    for (const view of [
      new Uint8Array(buffer, 8, 8),
      new Int8Array(buffer, 8, 8),
      new Uint8ClampedArray(buffer, 8, 8),
      new Uint16Array(buffer, 8, 4),
      new Int32Array(buffer, 8, 2),
      new Float32Array(buffer, 8, 2),
      new Float64Array(buffer, 8, 1),
      new global.BigUint64Array(buffer, 8, 1),
      new DataView(buffer, 8, 8),
      Buffer.from(buffer, 8, 8),
    ]) {
      assert.deepStrictEqual(addon.readBytes(view), eight, view.constructor.name);
    }
  });

  it('reads small views that V8 stores on its own heap', () => {
    const view = new Uint8Array(3);
    view.set([7, 8, 9]);
    assert.deepStrictEqual(addon.readBytes(view).bytes, [7, 8, 9]);
    addon.writeByte(view, 1, 200);
    assert.deepStrictEqual(Array.from(view), [7, 200, 9]);
  });

  it('returns the memory itself, not a copy', () => {
    const buffer = counting(8);
    addon.writeByte(new Uint8Array(buffer, 4, 2), 1, 99);
    assert.deepStrictEqual(Array.from(new Uint8Array(buffer)), [0, 1, 2, 3, 4, 99, 6, 7]);
  });

  it('reads a view of a SharedArrayBuffer, but not the SharedArrayBuffer itself', () => {
    const shared = new SharedArrayBuffer(4);
    new Uint8Array(shared).set([1, 2, 3, 4]);
    assert.deepStrictEqual(addon.readBytes(new Uint8Array(shared, 1, 2)).bytes, [2, 3]);
    assert.deepStrictEqual(addon.readBytes(shared), nothing);
  });

  it('reads no bytes from an empty view at the end', () => {
    assert.deepStrictEqual(addon.readBytes(new Uint8Array(counting(4), 4)), nothing);
    assert.strictEqual(addon.readBytes(new Uint8Array(counting(4), 2, 0)).length, 0);
    assert.strictEqual(addon.readBytes(new Uint8Array(counting(4), 2, 0)).isNull, false);
  });

  it('reads no bytes from a detached buffer', () => {
    const buffer = counting(16);
    const views = [new Uint8Array(buffer), new Uint8Array(buffer, 4, 4), new DataView(buffer, 8)];
    detach(buffer);
    assert.strictEqual(buffer.byteLength, 0);
    assert.strictEqual(addon.readBytes(buffer).length, 0);
    for (const view of views) {
      assert.deepStrictEqual(addon.readBytes(view), nothing);
    }
  });

  it('truncates a range to the rest of its block', () => {
    assert.deepStrictEqual(addon.clip(8, 2, 3), [2, 3]);
    assert.deepStrictEqual(addon.clip(8, 2, 6), [2, 6]);
    assert.deepStrictEqual(addon.clip(8, 6, 100), [6, 2]);
    assert.deepStrictEqual(addon.clip(8, 0, 9), [0, 8]);
    assert.deepStrictEqual(addon.clip(8, 7, 0xffffffff), [7, 1]);
    assert.deepStrictEqual(addon.clip(8, 7, 0), [7, 0]);
  });

  it('reads no bytes from a range that starts at or past the end', () => {
    assert.strictEqual(addon.clip(8, 8, 0), null);
    assert.strictEqual(addon.clip(8, 8, 4), null);
    assert.strictEqual(addon.clip(8, 9, 4), null);
    assert.strictEqual(addon.clip(8, 0xffffffff, 1), null);
    assert.strictEqual(addon.clip(0, 0, 0), null);
  });

  it('reads no bytes from other values', () => {
    for (const value of [
      undefined,
      null,
      7,
      'bytes',
      true,
      Symbol('bytes'),
      {},
      [1, 2, 3],
      { buffer: counting(4), byteOffset: 0, byteLength: 4 },
      () => 0,
    ]) {
      assert.deepStrictEqual(addon.readBytes(value), nothing);
    }
    assert.deepStrictEqual(addon.readBytes(), nothing);
  });
});

describe('ReadUint32 and ReadBool', () => {
  it('convert by the rules of JavaScript', () => {
    const cases = [
      [0, 0, false],
      [-0, 0, false],
      [1.9, 1, true],
      [-1, 4294967295, true],
      [4294967295, 4294967295, true],
      [4294967296, 0, true],
      [4294967297, 1, true],
      [1e300, 0, true],
      [NaN, 0, false],
      [Infinity, 0, true],
      ['', 0, false],
      ['12', 12, true],
      ['0x1F', 31, true],
      ['x', 0, true],
      [true, 1, true],
      [null, 0, false],
      [undefined, 0, false],
      [[], 0, true],
      [[9], 9, true],
      [{}, 0, true],
      [new Date(5), 5, true],
    ];
    const results = addon.convert(...cases.map(([value]) => value));
    cases.forEach(([value, uint32, bool], i) => {
      assert.deepStrictEqual(results[i], { uint32, bool }, `case ${i}: ${String(value)}`);
    });
  });

  it('treat an argument past the end as undefined', () => {
    assert.deepStrictEqual(addon.convert(), [{ uint32: 0, bool: false }]);
  });
});
