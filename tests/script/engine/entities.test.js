'use strict';
// createEntity and setEntityName: arguments, refusals, handles.
const assert = require('assert');
const { over } = require('../support/blocks');
const { differences, modulePath, addonPath } = require('../support/host');

const nq = require(modulePath);
const addon = require(addonPath);

const bytes3D = 108;
const bytes2D = 56;

describe('createEntity', () => {
  const engine = nq.getEngine();

  it('creates one 2D entity without arguments', () => {
    const entity = engine.createEntity();
    assert.strictEqual(entity.buffer.byteLength, bytes2D);
    assert.notStrictEqual(entity.id, 0);
  });

  it('creates one 3D entity for a count of 0', () => {
    assert.strictEqual(engine.createEntity(true, 0).buffer.byteLength, bytes3D);
  });

  it('creates a batch of 3 in a block of 324 bytes', () => {
    assert.strictEqual(engine.createEntity(true, 3).buffer.byteLength, 324);
  });

  it('creates zeroed records', () => {
    const batch = engine.createEntity(true, 4095);
    assert.strictEqual(
      over(Uint8Array, batch).findIndex((byte) => byte !== 0),
      -1
    );
  });

  // [first argument, 3D?]: truthiness in JavaScript.
  const kinds = [
    [undefined, false],
    [null, false],
    [false, false],
    [0, false],
    ['', false],
    [NaN, false],
    [true, true],
    [1, true],
    ['false', true],
    [{}, true],
    [Symbol('true'), true],
  ];
  for (const [value, is3D] of kinds) {
    it(`takes ${String(value) || "''"} of type ${typeof value} for ${is3D ? '3D' : '2D'}`, () => {
      const batch = engine.createEntity(value, 2);
      assert.strictEqual(batch.buffer.byteLength, 2 * (is3D ? bytes3D : bytes2D));
    });
  }

  // [second argument, entities]: JavaScript's conversion to an unsigned 32-bit number.
  const counts = [
    [undefined, 1],
    [null, 1],
    [0, 1],
    [-0, 1],
    [NaN, 1],
    [Infinity, 1],
    ['', 1],
    ['seven', 1],
    [0.99, 1],
    [4294967296, 1],
    [4294967297, 1],
    [1, 1],
    [true, 1],
    ['3', 3],
    ['0x10', 16],
    [2.9, 2],
    [[5], 5],
    [{ valueOf: () => 6 }, 6],
    [-4294967290, 6],
    [4094, 4094],
    [4095, 4095],
    [4096, 0],
    [4097, 0],
    [-1, 0],
    [-0.9, 1],
    [2147483647, 0],
    [2147483648, 0],
    [4294967295, 0],
  ];
  for (const [value, entities] of counts) {
    const label = typeof value === 'object' ? JSON.stringify(value) : String(value);
    it(`makes ${entities} for a count of ${label} of type ${typeof value}`, () => {
      for (const is3D of [false, true]) {
        const batch = engine.createEntity(is3D, value);
        if (entities === 0) {
          assert.deepStrictEqual(Object.assign({}, batch), { id: 0 });
        } else {
          assert.strictEqual(batch.buffer.byteLength, entities * (is3D ? bytes3D : bytes2D));
          assert.strictEqual(batch.id % 4096, 0);
        }
      }
    });
  }

  it('uses no handle for a refused count', () => {
    const fresh = nq.getEngine();
    assert.strictEqual(fresh.createEntity(false, 4096).id, 0);
    assert.strictEqual(fresh.createEntity(true, -1).id, 0);
    assert.strictEqual(fresh.createEntity().id, 0x1000);
  });

  it('numbers batches from 0x1000 and blocks from 2, since two lists come first', () => {
    const fresh = nq.getEngine();
    const kept = [fresh.createEntity(), fresh.createEntity(true, 4095), fresh.createEntity(true)];
    assert.deepStrictEqual(
      kept.map((batch) => batch.id),
      [0x1000, 0x2000, 0x3000]
    );
    assert.deepStrictEqual(
      kept.map((batch) => batch.memoryID),
      [2, 3, 4]
    );
  });

  it('numbers the batches and blocks of each engine independently', () => {
    const [first, second] = [nq.getEngine(), nq.getEngine()];
    const a = first.createEntity(true, 2);
    const b = second.createEntity(true, 2);
    assert.deepStrictEqual([a.id, a.memoryID], [0x1000, 2]);
    assert.deepStrictEqual([b.id, b.memoryID], [0x1000, 2]);
    over(Uint8Array, a).fill(0x5a);
    assert(over(Uint8Array, b).every((byte) => byte === 0));
    first.setEntityName(0x1001, 'of the first');
    assert.strictEqual(addon.entityName(first, 0x1001), 'of the first');
    assert.strictEqual(addon.entityName(second, 0x1001), '');
  });

  it('converts each argument once, from left to right', () => {
    const reads = [];
    const count = {
      valueOf() {
        reads.push('count');
        return 2;
      },
    };
    engine.createEntity(true, count, {
      valueOf() {
        reads.push('third');
      },
    });
    assert.deepStrictEqual(reads, ['count']);
  });

  it('returns buffers whose memory V8 does not free', () => {
    assert.strictEqual(addon.isExternal(engine.createEntity().buffer), differences.marksExternal);
    for (const name of Object.keys(engine)) {
      assert.strictEqual(addon.isExternal(engine[name]), differences.marksExternal, name);
    }
  });
});

describe('setEntityName', () => {
  const engine = nq.getEngine();
  const batch = engine.createEntity(true, 3);
  const flat = engine.createEntity(false, 2);
  const h = batch.id + 1;
  const nameOf = (handle) => addon.entityName(engine, handle);

  beforeEach(() => {
    engine.setEntityName(h, 'before');
    assert.strictEqual(nameOf(h), 'before');
  });

  it('names one entity of a batch and returns null', () => {
    assert.strictEqual(engine.setEntityName(h, 'left arm'), null);
    assert.strictEqual(nameOf(h), 'left arm');
    assert.strictEqual(nameOf(batch.id), '');
    assert.strictEqual(nameOf(batch.id + 2), '');
  });

  it('names 2D entities too', () => {
    assert.strictEqual(engine.setEntityName(flat.id + 1, 'sprite'), null);
    assert.strictEqual(nameOf(flat.id + 1), 'sprite');
  });

  it('stores text beyond ASCII and of any length', () => {
    engine.setEntityName(h, '腕 \u{1f9be} é');
    assert.strictEqual(nameOf(h), '腕 \u{1f9be} é');
    engine.setEntityName(h, 'x'.repeat(100000));
    assert.strictEqual(nameOf(h), 'x'.repeat(100000));
  });

  it('converts handle and name by the rules of JavaScript', () => {
    engine.setEntityName(String(h), 42);
    assert.strictEqual(nameOf(h), '42');
    engine.setEntityName(h + 4294967296, undefined);
    assert.strictEqual(nameOf(h), 'undefined');
    engine.setEntityName(h, { toString: () => 'from toString' });
    assert.strictEqual(nameOf(h), 'from toString');
  });

  it('changes nothing for a handle of 0 or an empty name', () => {
    assert.strictEqual(engine.setEntityName(0, 'x'), null);
    assert.strictEqual(engine.setEntityName(h, ''), null);
    assert.strictEqual(nameOf(h), 'before');
  });

  it('changes nothing without a second argument', () => {
    assert.strictEqual(engine.setEntityName(), null);
    assert.strictEqual(engine.setEntityName(h), null);
    assert.strictEqual(nameOf(h), 'before');
  });

  it('changes nothing for a name without a string form', () => {
    const throwing = {
      toString() {
        throw new Error('no text');
      },
    };
    assert.strictEqual(engine.setEntityName(h, Symbol('name')), null);
    assert.strictEqual(engine.setEntityName(h, throwing), null);
    assert.strictEqual(engine.setEntityName(h, Object.create(null)), null);
    assert.strictEqual(nameOf(h), 'before');
  });

  it('ignores unknown handles', () => {
    for (const handle of [batch.id + 3, batch.id + 4095, 0x7ffff000, 0xffffffff, 1]) {
      assert.strictEqual(engine.setEntityName(handle, 'nobody'), null);
    }
    assert.strictEqual(nameOf(batch.id + 3), null);
    assert.deepStrictEqual(
      [0, 1, 2].map((i) => nameOf(batch.id + i)),
      ['', 'before', '']
    );
  });
});
