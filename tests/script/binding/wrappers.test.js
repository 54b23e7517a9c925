'use strict';
// Binding of wrappers: objects, memory reports, collection.
const assert = require('assert');
const { modulePath, addonPath } = require('../support/host');
const { collect, collectUntil } = require('../support/collect');

const nq = require(modulePath);
const addon = require(addonPath);

describe('BindingBase', () => {
  it('calls OnWrapped once, when the object is bound', () => {
    const probe = addon.newProbe(64);
    assert.deepStrictEqual(addon.probeState(probe), { wrappedCalls: 1, objectSeen: true });
  });

  it('knows its object', () => {
    const probe = addon.newProbe(64);
    assert.strictEqual(addon.objectOf(probe), probe);
  });

  it('implements no interface by itself', () => {
    const probe = addon.newProbe(64);
    for (const name of ['IEntity', 'BindingBase', 'BindingEngine']) {
      assert.strictEqual(addon.interfaceOf(probe, name), false, name);
    }
  });

  it('reports its size and changes to V8, and subtracts it at the end', async () => {
    await collect();
    const before = addon.externalMemory();
    const destroyed = addon.destroyedProbes();
    (() => {
      const probe = addon.newProbe(1000003);
      assert.strictEqual(addon.externalMemory() - before, 1000003);
      addon.adjustMemory(probe, 500);
      assert.strictEqual(addon.externalMemory() - before, 1000503);
      addon.adjustMemory(probe, -1000503);
      assert.strictEqual(addon.externalMemory(), before);
      addon.adjustMemory(probe, 1000003);
    })();
    assert(await collectUntil(() => addon.destroyedProbes() === destroyed + 1));
    assert.strictEqual(addon.externalMemory(), before);
  });

  it('is destroyed only after its object was collected', async () => {
    await collect();
    const destroyed = addon.destroyedProbes();
    const kept = addon.newProbe(64);
    (() => {
      for (let i = 0; i < 10; ++i) {
        addon.newProbe(64);
      }
    })();
    assert(await collectUntil(() => addon.destroyedProbes() === destroyed + 10));
    await collect();
    assert.strictEqual(addon.destroyedProbes(), destroyed + 10);
    assert.strictEqual(addon.objectOf(kept), kept);
  });

  it('is kept if its thread keeps collected wrappers', async () => {
    await collect();
    const destroyed = addon.destroyedProbes();
    const before = addon.externalMemory();
    addon.keepCollectedWrappers(true);
    try {
      const made = new (class {
        constructor() {
          addon.newProbe(1000);
        }
      })();
      assert(made);
      for (let i = 0; i < 5; ++i) {
        await collect();
      }
      assert.strictEqual(addon.destroyedProbes(), destroyed);
      assert.strictEqual(addon.externalMemory() - before, 1000);
    } finally {
      addon.keepCollectedWrappers(false);
    }
  });

  it('reports the size of wrappers, not of their blocks', async () => {
    const sizes = addon.wrapperSizes();
    await collect();
    const before = addon.externalMemory();
    const engine = nq.getEngine();
    const afterEngine = addon.externalMemory();
    assert.strictEqual(afterEngine - before, sizes.engine);
    const kept = [engine.createEntity(true, 4095), engine.createEntity(false, 4096)];
    assert.strictEqual(addon.externalMemory() - afterEngine, 2 * sizes.entity);
    const afterEntities = addon.externalMemory();
    kept.push(
      engine.createComponent(1, 4095),
      engine.createComponent(2, 100, 1000),
      engine.createComponent(2, 0, 5),
      engine.createComponent(3, 200)
    );
    assert.strictEqual(addon.externalMemory() - afterEntities, 4 * sizes.component);
    const afterComponents = addon.externalMemory();
    // The bytes are V8's own, allocated before.
    const bytes = new ArrayBuffer(6400);
    const withBytes = addon.externalMemory() - afterComponents;
    for (const kind of [1, 2, 7]) {
      kept.push(engine.createDataModel(kind, bytes));
    }
    assert.strictEqual(addon.externalMemory() - afterComponents - withBytes, 3 * sizes.dataModel);
    const afterModels = addon.externalMemory();
    const lists = Uint32Array.of(1, 1, 1).buffer;
    const withLists = addon.externalMemory() - afterModels;
    kept.push(
      engine.createAnimationClipBinding(lists, 0, 1, 2, 1),
      engine.createAnimationClipBinding(lists, 0, 0, 2, 1),
      engine.createAnimatorControllerModel(1000),
      engine.createAnimatorControllerModel(0),
      engine.createAnimatorControllerStateModel(1000)
    );
    assert.strictEqual(
      addon.externalMemory() - afterModels - withLists,
      2 * sizes.binding + 2 * sizes.controller + sizes.state
    );
    assert.strictEqual(kept.length, 14);
    for (const name of ['component', 'dataModel', 'binding', 'controller', 'state']) {
      assert(sizes[name] > 0, name);
    }
  });
});
