'use strict';
// Counting of JavaScript objects by class.
const assert = require('assert');
const { modulePath, addonPath } = require('../support/host');
const { collectUntil } = require('../support/collect');

const nq = require(modulePath);
const addon = require(addonPath);

/** The label of entities: the class's name with its quotes. */
const label = '"EngineEntity"';

describe('object tracking', () => {
  it('is off at the start', () => {
    const engine = nq.getEngine();
    engine.createEntity();
    assert.deepStrictEqual(addon.objectCounts(engine), {});
  });

  it('counts batches, not entities, refused ones included', () => {
    const engine = nq.getEngine();
    addon.enableObjectTracking(engine);
    const kept = [
      engine.createEntity(),
      engine.createEntity(true, 4095),
      engine.createEntity(true, 4096),
    ];
    assert.deepStrictEqual(addon.objectCounts(engine), { [label]: 3 });
    assert.strictEqual(kept.length, 3);
  });

  it('counts each engine separately', () => {
    const [first, second] = [nq.getEngine(), nq.getEngine()];
    addon.enableObjectTracking(first);
    const kept = [first.createEntity(), second.createEntity()];
    assert.deepStrictEqual(addon.objectCounts(first), { [label]: 1 });
    assert.deepStrictEqual(addon.objectCounts(second), {});
    assert.strictEqual(kept.length, 2);
  });

  it('subtracts collected batches', async () => {
    const engine = nq.getEngine();
    addon.enableObjectTracking(engine);
    const kept = engine.createEntity();
    (() => {
      for (let i = 0; i < 20; ++i) {
        engine.createEntity(true, 3);
      }
    })();
    assert(addon.objectCounts(engine)[label] > 1);
    assert(await collectUntil(() => addon.objectCounts(engine)[label] === 1));
    assert.notStrictEqual(kept.id, 0);
  });

  it('keeps the counts when it stops, and clears them when it starts', async () => {
    const engine = nq.getEngine();
    addon.enableObjectTracking(engine);
    const kept = [engine.createEntity()];
    addon.disableObjectTracking(engine);
    kept.push(engine.createEntity());
    assert.deepStrictEqual(addon.objectCounts(engine), { [label]: 1 });
    addon.enableObjectTracking(engine);
    assert.deepStrictEqual(addon.objectCounts(engine), {});
  });

  it('never counts below 0, also for batches from before it started', async () => {
    const engine = nq.getEngine();
    const runtime = addon.runtimeOf(engine);
    (() => {
      for (let i = 0; i < 5; ++i) {
        engine.createEntity();
      }
    })();
    addon.enableObjectTracking(engine);
    const kept = engine.createEntity();
    // Blocks 2 to 6 belong to the five that were not counted.
    const gone = () => [2, 3, 4, 5, 6].every((id) => !addon.hasBlock(runtime, id));
    assert(await collectUntil(gone));
    assert.deepStrictEqual(addon.objectCounts(engine), { [label]: 0 });
    assert.notStrictEqual(kept.id, 0);
  });

  // The labels of components and data models carry quotes too.
  for (const [className, create, refused] of [
    ['EngineComponent', (engine) => engine.createComponent(1, 3), [1, 4096]],
    ['EngineComponent', (engine) => engine.createComponent(2, 1, 3), [2, 0, 3]],
    ['EngineComponent', (engine) => engine.createComponent(3, 3), [3, 0]],
    ['EngineDataModel', (engine) => engine.createDataModel(1, new ArrayBuffer(20)), null],
    ['EngineDataModel', (engine) => engine.createDataModel(2, new ArrayBuffer(64)), null],
    ['EngineDataModel', (engine) => engine.createDataModel(7, new ArrayBuffer(64)), null],
  ]) {
    const name = `"${className}"`;

    it(`counts ${create.toString().slice(19)} under ${name}, until it is collected`, async () => {
      const engine = nq.getEngine();
      addon.enableObjectTracking(engine);
      const kept = [create(engine), create(engine)];
      if (refused !== null) {
        kept.push(engine.createComponent(...refused));
        assert.strictEqual(kept[2].id, 0);
      }
      assert.deepStrictEqual(addon.objectCounts(engine), { [name]: kept.length });
      (() => {
        for (let i = 0; i < 20; ++i) {
          create(engine);
        }
      })();
      assert(addon.objectCounts(engine)[name] > kept.length);
      assert(await collectUntil(() => addon.objectCounts(engine)[name] === kept.length));
    });
  }

  it('counts classes separately, and not those refused with null', () => {
    const engine = nq.getEngine();
    addon.enableObjectTracking(engine);
    const kept = [
      engine.createDataModel(2, new ArrayBuffer(0)),
      engine.createComponent(2, 1, 1),
      engine.createEntity(),
      engine.createComponent(3, 1),
    ];
    for (const args of [[], [0], [4, 1], [2, 1], [3]]) {
      assert.strictEqual(engine.createComponent(...args), null);
    }
    assert.strictEqual(engine.createDataModel(1), null);
    assert.deepStrictEqual(addon.objectCounts(engine), {
      [label]: 1,
      '"EngineComponent"': 2,
      '"EngineDataModel"': 1,
    });
    assert.strictEqual(kept.length, 4);
  });

  it('counts bindings as "unknown" at creation, and never subtracts them', async () => {
    const engine = nq.getEngine();
    const references = addon.coreReferences(engine);
    addon.enableObjectTracking(engine);
    const lists = Uint32Array.of(1, 1, 1).buffer;
    (() => {
      for (let i = 0; i < 5; ++i) {
        engine.createAnimationClipBinding(lists, 0, 1, 2, 1);
        assert.strictEqual(engine.createAnimationClipBinding(lists, 0, 0, 2, 1).id, 0);
        // A null result was never created.
        assert.strictEqual(engine.createAnimationClipBinding(lists, 0, 1, 3, 1), null);
      }
    })();
    assert(await collectUntil(() => addon.coreReferences(engine) === references));
    assert.deepStrictEqual(addon.objectCounts(engine), { unknown: 10 });
    const kept = engine.createAnimationClipBinding(lists, 0, 1, 2, 1);
    assert.deepStrictEqual(addon.objectCounts(engine), { unknown: 11 });
    assert.notStrictEqual(kept.id, 0);
  });

  it('does not count controllers and states', async () => {
    const engine = nq.getEngine();
    const references = addon.coreReferences(engine);
    addon.enableObjectTracking(engine);
    (() => {
      for (const count of [1, 3, 0]) {
        engine.createAnimatorControllerModel(count);
        engine.createAnimatorControllerStateModel(count);
      }
    })();
    assert(addon.coreReferences(engine) > references);
    assert.deepStrictEqual(addon.objectCounts(engine), {});
    assert(await collectUntil(() => addon.coreReferences(engine) === references));
    assert.deepStrictEqual(addon.objectCounts(engine), {});
  });
});
