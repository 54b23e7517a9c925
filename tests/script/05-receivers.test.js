'use strict';
// Wrong receivers and arguments that can't be converted. No script error ever comes of them.
const assert = require('assert');
const { modulePath, addonPath } = require('./lib/host');
const { runScript, assertFault, assertHostFatal } = require('./lib/child');

const nq = require(modulePath);
const addon = require(addonPath);

describe('receiver', () => {
  const engine = nq.getEngine();
  const entity = engine.createEntity(true, 2);
  const empty = new engine.constructor();

  it('has two internal fields, of which new leaves both empty', () => {
    assert.deepStrictEqual(addon.internalFields(empty), { count: 2, undefinedFields: 2 });
    assert.deepStrictEqual(addon.internalFields(new entity.constructor()), {
      count: 2,
      undefinedFields: 2,
    });
    assert.deepStrictEqual(addon.internalFields(engine), { count: 2, undefinedFields: 0 });
    assert.deepStrictEqual(addon.internalFields(entity), { count: 2, undefinedFields: 0 });
  });

  it('is taken for its own class only', () => {
    assert.deepStrictEqual(addon.unwrap(engine), { engine: true, entity: false });
    assert.deepStrictEqual(addon.unwrap(entity), { engine: false, entity: true });
    assert.deepStrictEqual(addon.unwrap(empty), { engine: false, entity: false });
    assert.deepStrictEqual(addon.unwrap({}), { engine: false, entity: false });
    assert.deepStrictEqual(addon.unwrap(nq), { engine: false, entity: false });
    assert.deepStrictEqual(addon.unwrap(new Uint8Array(4)), { engine: false, entity: false });
    assert.deepStrictEqual(addon.unwrap(Object.create(engine)), { engine: false, entity: false });
  });

  it('is taken as it stands where the check is not made', () => {
    assert.strictEqual(addon.unwrapUnchecked(engine), true);
    assert.strictEqual(addon.unwrapUnchecked(entity), true);
    assert.strictEqual(addon.unwrapUnchecked(empty), false);
  });

  // Guards that return ahead of the wrapper's use don't notice.
  for (const [label, receiver] of [
    ['an empty engine', empty],
    ['an entity', entity],
    ['an empty entity', new entity.constructor()],
    ['a plain object', {}],
    ['undefined', undefined],
    ['a number', 7],
  ]) {
    it(`may be ${label} where nothing uses it`, () => {
      assert.strictEqual(engine.setEntityName.call(receiver), null);
      assert.strictEqual(engine.setEntityName.call(receiver, entity.id), null);
      assert.strictEqual(engine.setEntityName.call(receiver, 0, 'x'), null);
      assert.strictEqual(engine.setEntityName.call(receiver, entity.id, ''), null);
      assert.strictEqual(engine.setEntityName.call(receiver, entity.id, Symbol('x')), null);
      assert.strictEqual(addon.entityName(engine, entity.id), '');
    });
  }

  it('may be any engine for the method of another', () => {
    const other = nq.getEngine();
    assert.strictEqual(other.createEntity.call(engine, true).id, entity.id + 0x1000);
    assert.strictEqual(engine.createEntity.call(other, true).id, 0x1000);
  });

  for (const [name, label] of [
    ['createOnEmpty', 'createEntity on an empty engine'],
    ['createOnEntity', 'createEntity on an entity'],
    ['createOnPlainObject', 'createEntity on a plain object'],
    ['createOnUndefined', 'createEntity without a receiver'],
    ['nameOnEmpty', 'setEntityName on an empty engine'],
    ['nameOnEntity', 'setEntityName on an entity'],
    ['refreshOnEmpty', 'refreshWorldTransform on an empty engine'],
  ]) {
    it(`ends the process by a fault: ${label}`, () => {
      assertFault(runScript('misuse.js', name));
    });
  }

  for (const name of ['refreshOnPlainObject', 'refreshOnNumber']) {
    it(`ends the process in V8's own way: ${name}`, () => {
      assertHostFatal(
        runScript('misuse.js', name),
        'v8::Object::SetAlignedPointerInInternalField() Internal field out of bounds'
      );
    });
  }
});

describe('conversion', () => {
  for (const name of [
    'countThrows',
    'countIsSymbol',
    'countIsBigInt',
    'handleThrows',
    'handleIsBigInt',
    'handleIsSymbol',
  ]) {
    it(`that fails ends the process in V8's own way: ${name}`, () => {
      assertHostFatal(runScript('misuse.js', name), 'v8::FromJust Maybe value is Nothing.');
    });
  }
});
