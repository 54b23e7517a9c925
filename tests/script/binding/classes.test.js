'use strict';
// JavaScript classes and type records of the binding library.
const assert = require('assert');
const { modulePath, addonPath } = require('../support/host');

const nq = require(modulePath);
const addon = require(addonPath);

describe('ClassTemplateBuilder.Inherit', () => {
  it('links the installed class to its installed base', () => {
    const { derived, base, isKindOfBase, isKindOfBindingBase, baseCount } =
      addon.inherit('both installed');
    assert.strictEqual(Object.getPrototypeOf(derived.prototype), base.prototype);
    const object = new derived();
    assert.strictEqual(object.ofDerived(1, 2), 2);
    assert.strictEqual(object.ofBase(), 0);
    assert(object instanceof base);
    assert.deepStrictEqual([isKindOfBase, isKindOfBindingBase, baseCount], [true, true, 2]);
  });

  it('stores an installed base until the class is installed', () => {
    const { derived, base, isKindOfBase, isKindOfBindingBase, baseCount } =
      addon.inherit('base installed');
    assert.strictEqual(Object.getPrototypeOf(derived.prototype), base.prototype);
    assert.strictEqual(new derived().ofBase(1), 1);
    assert.strictEqual(derived.name, 'Derived2');
    assert.strictEqual(base.name, 'Base2');
    assert.deepStrictEqual([isKindOfBase, isKindOfBindingBase, baseCount], [true, true, 2]);
  });

  it('only records a base that is not installed', () => {
    const { derived, base, isKindOfBase, isKindOfBindingBase, baseCount } =
      addon.inherit('none installed');
    assert.strictEqual(base, undefined);
    assert.strictEqual(Object.getPrototypeOf(derived.prototype), Object.prototype);
    assert.strictEqual(new derived().ofDerived(1), 1);
    assert.deepStrictEqual([isKindOfBase, isKindOfBindingBase, baseCount], [true, true, 2]);
  });

  it('only records a base that is not installed for an installed class, too', () => {
    const { derived, base, isKindOfBase, isKindOfBindingBase, baseCount } =
      addon.inherit('derived installed');
    assert.strictEqual(base, undefined);
    assert.strictEqual(Object.getPrototypeOf(derived.prototype), Object.prototype);
    assert.deepStrictEqual([isKindOfBase, isKindOfBindingBase, baseCount], [true, true, 2]);
  });
});

describe('ClassTemplateBuilder.Install', () => {
  it('runs once per thread', () => {
    const [first, second] = addon.installTwice();
    assert.strictEqual(second, first);
    assert.strictEqual(first.name, 'First');
    assert.deepStrictEqual(Object.keys(first.prototype), ['ofFirst']);
  });

  it('sets accessors on instances', () => {
    const object = addon.accessorInstance();
    assert.strictEqual(object.constructor.name, 'WithAccessors');
    assert.deepStrictEqual(Object.keys(object).sort(), ['fixed', 'level']);
    const reads = addon.accessorState().reads;
    object.level = 7.5;
    assert.strictEqual(addon.accessorState().value, 7.5);
    assert.strictEqual(addon.accessorState().reads, reads);
    assert.strictEqual(object.level, 7.5);
    assert.strictEqual(object.fixed, 7.5);
    assert.strictEqual(addon.accessorState().reads, reads + 2);
    const { enumerable, configurable } = Object.getOwnPropertyDescriptor(object, 'level');
    assert.deepStrictEqual([enumerable, configurable], [true, true]);
  });
});

describe('TypeInfo', () => {
  const engine = nq.getEngine();
  const entity = engine.createEntity();

  it('stores ancestors in a flat list, each once', () => {
    assert.deepStrictEqual(addon.flatBases(), {
      baseCount: 2,
      basesOfBases: 0,
      isKindOfGrandparent: true,
      grandparentIsKindOf: false,
    });
  });

  it('adds bases that a known base has gained', () => {
    assert.deepStrictEqual(addon.lateBase(), [1, 2]);
  });

  it('lists every class as a kind of BindingBase and of itself', () => {
    for (const [object, own] of [
      [engine, 'BindingEngine'],
      [entity, 'BindingEngineEntity'],
    ]) {
      assert.strictEqual(addon.isKindOf(object, own), true);
      assert.strictEqual(addon.isKindOf(object, 'BindingBase'), true);
    }
  });

  it('lists no class as a kind of another', () => {
    assert.strictEqual(addon.isKindOf(entity, 'BindingEngine'), false);
    assert.strictEqual(addon.isKindOf(engine, 'BindingEngineEntity'), false);
    assert.strictEqual(addon.isKindOf(engine, 'IEntity'), false);
  });

  it('records the declared bases, which may differ from the C++ bases', () => {
    assert.strictEqual(addon.isKindOf(engine, 'BindingEngineBase'), true);
    assert.strictEqual(addon.isKindOf(entity, 'BindingEngineBase'), false);
    assert.strictEqual(addon.isKindOf(entity, 'IEntity'), false);
    assert.strictEqual(addon.baseCount(engine), 2);
    assert.strictEqual(addon.baseCount(entity), 1);
  });

  it('is unchanged by a second registration', () => {
    const again = nq.getEngine();
    assert.strictEqual(addon.baseCount(again), 2);
    assert.strictEqual(addon.baseCount(engine), 2);
    assert.strictEqual(addon.baseCount(again.createEntity()), 1);
  });
});

describe('RegisterClasses', () => {
  it('keeps one template per class, however often it runs', () => {
    const first = addon.registerClasses();
    const second = addon.registerClasses();
    assert.strictEqual(first.Engine.name, 'Engine');
    assert.strictEqual(first.EngineEntity.name, 'EngineEntity');
    assert.strictEqual(second.Engine, first.Engine);
    assert.strictEqual(second.EngineEntity, first.EngineEntity);
    for (const { engineBases, entityBases } of [first, second]) {
      assert.deepStrictEqual([engineBases, entityBases], [2, 1]);
    }
  });

  it('does not affect classes of another library', () => {
    assert.notStrictEqual(addon.registerClasses().Engine, nq.getEngine().constructor);
  });
});
