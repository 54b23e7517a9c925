'use strict';
// Objects that records refer to: setters of views take them as well as their handles, and keep them alive for as long as
// the record has the handle.
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { collect, collectUntil } = require('../support/collect');
const { assertCleanExit, runScript } = require('../support/child');
const { hostileObjects } = require('../support/hostile');
const nq = require('../../../lib');
const { onCollected } = require('../../../lib/checked/watch');

const engine = nq.getEngine();
const clipBytes = nq.buildClip({ name: 'still', framesPerSecond: 30, frameCount: 1, curves: [] });

const makers = {
  entity: () => engine.createEntity(true, 2),
  clip: () => engine.createDataModel(1, clipBytes),
  bones: () => engine.createDataModel(2, new Float32Array(16)),
  state: () => engine.createAnimatorControllerStateModel(1),
  binding: () => {
    const { buffer, byteOffset, clipCount, targetWords } = new nq.TargetListsView([0]);
    return engine.createAnimationClipBinding(buffer, byteOffset, clipCount, targetWords, 1);
  },
  animator: () => engine.createComponent(2, 1, 1),
};

const animator = () => new nq.AnimatorView(engine.createComponent(2, 2, 3), 2);
const skin = () => new nq.SkinningView(engine.createComponent(3, 2));
const controller = () => new nq.ControllerView(engine.createAnimatorControllerModel(2));
const state = () => new nq.ControllerStateView(engine.createAnimatorControllerStateModel(2));
const culling = () => new nq.CullingObjectsView(engine.createComponent(1, 2));

// Setter, maker of its receiver, kind of object, call of the setter, what it wrote.
const setters = [
  [
    'AnimatorView.setClip',
    animator,
    'clip',
    (view, x) => view.setClip(1, x, 0, 1),
    (view) => view.clipHandle(1),
  ],
  [
    'AnimatorView.setClipHandle',
    animator,
    'clip',
    (view, x) => view.setClipHandle(1, x),
    (view) => view.clipHandle(1),
  ],
  [
    'AnimatorView.setTarget',
    animator,
    'entity',
    (view, x) => view.setTarget(2, x),
    (view) => view.target(2),
  ],
  [
    'AnimatorView.setTargets',
    animator,
    'entity',
    (view, x) => view.setTargets([9, x], 1),
    (view) => view.target(2),
  ],
  [
    'SkinningView.setBonesModel',
    skin,
    'bones',
    (view, x) => view.setBonesModel(x),
    (view) => view.bonesModel(),
  ],
  [
    'SkinningView.setBone',
    skin,
    'entity',
    (view, x) => view.setBone(1, 0, x),
    (view) => view.entity(1),
  ],
  [
    'SkinningView.setEntity',
    skin,
    'entity',
    (view, x) => view.setEntity(1, x),
    (view) => view.entity(1),
  ],
  [
    'ControllerView.setBindingHandle',
    controller,
    'binding',
    (view, x) => view.setBindingHandle(x),
    (view) => view.bindingHandle(),
  ],
  [
    'ControllerView.setLayer',
    controller,
    'state',
    (view, x) => view.setLayer(1, 0, 1, x),
    (view) => view.firstState(1),
  ],
  [
    'ControllerView.setFirstState',
    controller,
    'state',
    (view, x) => view.setFirstState(1, x),
    (view) => view.firstState(1),
  ],
  [
    'ControllerStateView.setNextState',
    state,
    'state',
    (view, x) => view.setNextState(x),
    (view) => view.nextState(),
  ],
  [
    'ControllerStateView.setClip',
    state,
    'clip',
    (view, x) => view.setClip(1, x, 0, 1),
    (view) => view.clipHandle(1),
  ],
  [
    'ControllerStateView.setClipHandle',
    state,
    'clip',
    (view, x) => view.setClipHandle(1, x),
    (view) => view.clipHandle(1),
  ],
  [
    'ControllerStateView.setReference',
    state,
    'clip',
    (view, x) => view.setReference(1, x, 0),
    (view) => view.referenceClip(1),
  ],
  [
    'CullingObjectsView.setEntity',
    culling,
    'entity',
    (view, x) => view.setEntity(1, x),
    (view) => view.entity(1),
  ],
  [
    'MaskView.set',
    () => new nq.MaskView(2),
    'entity',
    (view, x) => view.set(1, x, 0),
    (view) => view.entity(1),
  ],
  [
    'HandleList.append',
    () => new nq.HandleList(1),
    'animator',
    (list, x) => {
      list.clear();
      list.append(x);
    },
    (list) => list.handle(0),
  ],
  [
    'TargetListsView.setClip',
    () => new nq.TargetListsView([1, 1]),
    'clip',
    (view, x) => view.setClip(1, x),
    (view) => view.clip(1),
  ],
  [
    'TargetListsView.setTarget',
    () => new nq.TargetListsView([1, 1]),
    'entity',
    (view, x) => view.setTarget(1, 0, x),
    (view) => view.target(1, 0),
  ],
];

/** Names of declared setters that take an object or its handle. */
function declaredSetters() {
  const file = path.join(__dirname, '..', '..', '..', 'types', 'views.d.ts');
  const names = [];
  let className = '';
  for (const line of fs.readFileSync(file, 'utf8').split('\n')) {
    const opened = /^export declare class (\w+)/.exec(line);
    className = opened === null ? className : opened[1];
    const method = /^ {2}(\w+)\(.*ObjectOrHandle/.exec(line);
    if (method !== null) {
      names.push(`${className}.${method[1]}`);
    }
  }
  return names;
}

/** What happens to an object: `use` is passed a new one, and may keep it alive. */
function watched(kind, use) {
  const fate = { isCollected: false };
  const object = makers[kind]();
  onCollected(object, () => (fate.isCollected = true));
  use(object);
  return fate;
}

async function collectOften() {
  for (let i = 0; i < 3; ++i) {
    await collect();
  }
}

describe('setters of views that take a handle', () => {
  it('are all tested', () => {
    assert.deepStrictEqual(setters.map(([name]) => name).sort(), declaredSetters().sort());
  });

  it('write the handle of an object, and nothing else', () => {
    for (const [name, make, kind, set, get] of setters) {
      const [one, other] = [make(), make()];
      const object = makers[kind]();
      set(one, object.id);
      set(other, object);
      assert.strictEqual(get(other), object.id, name);
      assert.deepStrictEqual(Array.from(other.u32), Array.from(one.u32), name);
    }
  });

  it('keep the object alive until another handle is written', async () => {
    const used = setters.map(([name, make, kind, set, get]) => {
      const view = make();
      const kept = watched(kind, (object) => set(view, object));
      return { name, view, kept, set, get };
    });
    const checkKept = async () => {
      const dropped = watched('clip', () => {});
      assert(await collectUntil(() => dropped.isCollected));
      await collectOften();
      used.forEach(({ name, kept }) => assert.strictEqual(kept.isCollected, false, name));
    };
    await checkKept();
    // Its own handle again. A list is emptied by that.
    used
      .filter(({ name }) => name !== 'HandleList.append')
      .forEach(({ view, set, get }) => set(view, get(view)));
    await checkKept();
    for (const { view, set, get } of used) {
      set(view, 5);
      assert.strictEqual(get(view), 5);
    }
    assert(await collectUntil(() => used.every(({ kept }) => kept.isCollected)));
  });

  it('drop the object for another one, or with the view', async () => {
    const views = [];
    const [replaced, last] = [[], []];
    for (const [, make, kind, set] of setters) {
      const view = make();
      views.push(view);
      replaced.push(watched(kind, (object) => set(view, object)));
      last.push(watched(kind, (object) => set(view, object)));
    }
    assert(await collectUntil(() => replaced.every(({ isCollected }) => isCollected)));
    assert(last.every(({ isCollected }) => !isCollected));
    views.length = 0;
    assert(await collectUntil(() => last.every(({ isCollected }) => isCollected)));
  });

  it('refuse objects without a handle, and keep what they have', async () => {
    const used = setters.map(([name, make, kind, set]) => {
      const view = make();
      const kept = watched(kind, (object) => set(view, object));
      const before = Array.from(view.u32);
      const label = name.replace('.', '\\.');
      for (const wrong of [{}, [1, 2], { id: '1' }, ...hostileObjects()]) {
        const what = 'is an? (object|array) without an id, not a number: ';
        const message = new RegExp(`^${label}: [\\w[\\]]+ ${what}`);
        assert.throws(() => set(view, wrong), { name: 'TypeError', message });
      }
      for (const id of [0.5, -1, 2 ** 32, NaN]) {
        const message = new RegExp(`^${label}: id of [\\w[\\]]+ is ${id}: give a whole number`);
        assert.throws(() => set(view, { id }), { name: 'RangeError', message });
      }
      return { name, view, kept, before };
    });
    await collectOften();
    // A list was emptied before each.
    for (const { name, view, kept, before } of used.filter(
      ({ name: one }) => one !== 'HandleList.append'
    )) {
      assert.strictEqual(kept.isCollected, false, name);
      assert.deepStrictEqual(Array.from(view.u32), before);
    }
  });
});

describe('references of a record', () => {
  it('are those of all of its views, and outlive each of them', async () => {
    const component = engine.createComponent(3, 2);
    const kept = watched('entity', (entity) => {
      new nq.SkinningView(component).setBone(1, 0, entity);
    });
    await collectOften();
    assert.strictEqual(kept.isCollected, false);
    new nq.SkinningView(component).setBone(1, 0, 7);
    assert(await collectUntil(() => kept.isCollected));
  });

  it('stay if a setter refuses another argument', async () => {
    const view = animator();
    const kept = watched('clip', (clip) => view.setClip(0, clip, 0, 1));
    assert.throws(() => view.setClip(0, makers.clip(), '0', 1), /time is '0'/);
    assert.throws(
      () => view.setTargets([makers.entity(), {}]),
      /handles\[1\] is an object without/
    );
    assert.throws(() => view.setTargets([makers.entity()], 3), /go past the 3 entries/);
    await collectOften();
    assert.strictEqual(kept.isCollected, false);
    assert(view.clipHandle(0) > 0);
  });

  it('of blocks within one buffer are separate', async () => {
    const memory = new ArrayBuffer(2 * 28);
    const [first, second] = [0, 28].map((byteOffset) => {
      const buffer = { buffer: memory, byteOffset, byteLength: 28 };
      return new nq.CullingObjectsView({ id: 4096, buffer });
    });
    const kept = watched('entity', (entity) => second.setEntity(0, entity));
    first.setEntity(0, 5);
    await collectOften();
    assert.strictEqual(kept.isCollected, false);
    second.setEntity(0, 5);
    assert(await collectUntil(() => kept.isCollected));
  });

  it('are to batches by their elements, and to what views and nodes show', async () => {
    const view = skin();
    const fates = [];
    fates.push(
      watched('entity', (entity) => {
        const element = new nq.Entity3DView(entity).element(1);
        assert.deepStrictEqual(element, { id: entity.id + 1, object: entity });
        view.setBone(0, 0, element);
        assert.strictEqual(view.entity(0), entity.id + 1);
      })
    );
    fates.push(watched('entity', (entity) => view.setBone(1, 0, new nq.Entity3DView(entity))));
    await collectOften();
    assert(fates.every(({ isCollected }) => !isCollected));
    assert.throws(
      () => new nq.Entity2DView(engine.createEntity(false, 2)).element(2),
      /i is 2, of 2/
    );
  });

  it('are passed on to bindings and controllers, which read lists', async () => {
    const [targets, model] = [{}, engine.createAnimatorControllerModel(1)];
    const fates = [];
    fates.push(
      watched('clip', (clip) => {
        const entity = watched('entity', (one) => {
          const lists = nq.TargetListsView.from([{ clip, entities: [one] }], 4);
          targets.binding = lists.createBinding(engine);
        });
        fates.push(entity);
      }),
      watched('entity', (entity) => {
        const mask = new nq.MaskView(1);
        mask.set(0, entity, 0.5);
        mask.apply(model, 0);
      })
    );
    await collectOften();
    assert.strictEqual(fates.length, 3);
    assert(fates.every(({ isCollected }) => !isCollected));
    (() => {
      const lists = nq.TargetListsView.from([{ clip: makers.clip(), entities: [] }], 5);
      assert.strictEqual(lists.updateBinding(targets.binding, 0, 0, 0), true);
      new nq.MaskView(0).apply(model, 0);
    })();
    assert(await collectUntil(() => fates.every(({ isCollected }) => isCollected)));
  });

  it('do not keep the engine from checking: checked mode takes its own objects', () => {
    const checked = nq.checked(nq.getEngine());
    const view = new nq.AnimatorView(checked.createComponent(2, 1, 1), 1);
    const entities = new nq.Entity3DView(checked.createEntity(true, 1));
    view.setClip(0, checked.createDataModel(1, clipBytes), 0, 1);
    view.setTargets([entities]);
    entities.reset(0);
    checked.updateAnimators(nq.HandleList.from([view]).buffer);
  });
});

describe('a collection of what a record refers to', () => {
  const lines = {
    clip: 'AnimationClipModel not found',
    bonesModel: 'bone inverse model not found',
    bones: 'entity not found',
    secondView: 'bone inverse model not found',
  };
  for (const name of Object.keys(lines)) {
    it(`does not end the process if setters were passed the object: ${name}`, () => {
      assertCleanExit(runScript('references.js', name, 'object'));
    });

    it(`ends it if they were passed its handle: ${name}`, () => {
      const result = runScript('references.js', name, 'handle');
      assert.strictEqual(result.signal, 'SIGABRT');
      assert(result.stdout.startsWith('about to end\n'), result.stdout);
      assert(result.stdout.includes(lines[name]), result.stdout);
    });
  }
});
