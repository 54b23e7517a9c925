'use strict';
// Animation content, animators and skinning components that end the process. `animation.js CASE`.
const fs = require('fs');
const { MessageChannel } = require('worker_threads');
const { modulePath, addonPath } = require('../support/host');
const { collectUntil } = require('../support/collect');
const { types, writeClip } = require('../../fixtures/clips');

const nq = require(modulePath);
const addon = require(addonPath);
const engine = nq.getEngine();
const empty = new engine.constructor();
const entity = engine.createEntity(true, 3);
const component = engine.createComponent(3, 2);
const dataModel = engine.createDataModel(2, new ArrayBuffer(64));
const throwing = {
  valueOf() {
    throw new Error('from valueOf');
  },
};

/** Objects that are kept alive. */
const kept = [entity, component, dataModel];

function about() {
  fs.writeSync(1, 'about to end\n');
}

/** A clip that moves its only target to x = 7. */
const sound = { curves: [{ target: 0, type: types.PositionX, keys: [[0, 7]] }] };

/**
 * An animator of the given clips on the first entity: handles, or what writeClip takes.
 * @return {Object} the component
 */
function animator(clips, weights = clips.map(() => 1)) {
  const made = engine.createComponent(2, clips.length, clips.length);
  const words = new Uint32Array(made.buffer);
  const floats = new Float32Array(made.buffer);
  clips.forEach((clip, i) => {
    if (typeof clip === 'number') {
      words[3 * i] = clip;
    } else {
      const model = engine.createDataModel(1, writeClip(clip));
      kept.push(model);
      words[3 * i] = model.id;
    }
    floats[3 * i + 1] = 0.5;
    floats[3 * i + 2] = weights[i];
    words[3 * clips.length + i] = entity.id;
  });
  kept.push(made);
  return made;
}

function update(made) {
  about();
  engine.updateAnimator(made.id);
}

/** Two bones over the first two matrices of a model. */
function skin(model, first, second) {
  new Uint32Array(component.buffer, 0, 5).set([model, 0, 0, first, second]);
  new Uint8Array(component.buffer, 20).fill(0x5a);
  about();
  engine.updateSkinningMatrix(component.id);
}

/** The first two entities as roots at (1, 2, 3) and (4, 5, 6). */
function placeEntities() {
  new Float32Array(entity.buffer).set([1, 2, 3, 1, 1, 1], 5);
  new Float32Array(entity.buffer).set([4, 5, 6, 1, 1, 1], 27 + 5);
  new Uint32Array(engine.entityCommands).set([16, 1, entity.id, 1, entity.id + 1]);
  new Uint32Array(engine.dirtyEntities).set([2, entity.id, entity.id + 1]);
  engine.refreshWorldTransform();
}

const identity = Float32Array.of(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1);

const cases = {
  missingClip: () => update(animator([0x5000])),
  freshAnimator() {
    kept.push(engine.createComponent(2, 1, 1));
    update(kept[kept.length - 1]);
  },
  /** A valid clip plays before the missing one. */
  missingSecondClip() {
    addon.writeOnAbort(new Uint8Array(entity.buffer, 20, 24));
    new Float32Array(entity.buffer).set([1, 2, 3, 4, 5, 6], 5);
    update(animator([sound, 0x5000]));
  },
  missingInactiveClip: () => update(animator([sound, 0x5000], [1, 0])),
  missingClipInBatch() {
    const handles = [animator([sound]), animator([0x5000])].map(({ id }) => id);
    about();
    engine.updateAnimators(Uint32Array.of(2, ...handles));
  },
  async releasedClip() {
    addon.enableObjectTracking(engine);
    const made = animator([(() => engine.createDataModel(1, writeClip(sound)).id)()]);
    engine.updateAnimator(made.id);
    await collectUntil(() => addon.objectCounts(engine)['"EngineDataModel"'] === 0);
    update(made);
  },

  wrongType: () => update(animator([{ curves: [{ target: 0, type: 14, keys: [[0, 1]] }] }])),
  typeZero: () => update(animator([{ curves: [{ target: 0, type: 0, keys: [[0, 1]] }] }])),
  wrongHeader: () => update(animator([Object.assign({ keyDataOffset: 29 }, sound)])),
  tooManyCurves: () => update(animator([Object.assign({ curveCount: 2 }, sound)])),
  wrongHeaderOfInactiveClip: () =>
    update(animator([sound, Object.assign({ keyDataOffset: 0 }, sound)], [1, 0])),
  shortContent() {
    const bytes = writeClip(sound);
    kept.push(engine.createDataModel(1, new Uint8Array(bytes, 0, bytes.byteLength - 1)));
    update(animator([kept[kept.length - 1].id]));
  },
  tooManyKeys: () =>
    update(animator([{ curves: [{ target: 0, type: 1, keys: [[0, 1]], keyCount: 0xffffffff }] }])),
  wrongTypeInBatch() {
    const wrong = { curves: [{ target: 0, type: 99, keys: [[0, 1]] }] };
    const handles = [animator([sound]), animator([wrong])].map(({ id }) => id);
    about();
    engine.updateAnimators(Uint32Array.of(2, ...handles));
  },
  /** The defects are found at first use only. */
  unusedContent() {
    kept.push(engine.createDataModel(1, writeClip(Object.assign({ keyDataOffset: 1 }, sound))));
    kept.push(
      engine.createDataModel(1, writeClip({ curves: [{ target: 0, type: 77, keys: [] }] }))
    );
    engine.updateAnimator(animator([sound]).id);
  },

  oddBones() {
    about();
    engine.createDataModel(2, new ArrayBuffer(100));
  },
  oddBonesView() {
    about();
    engine.createDataModel(2, new Uint8Array(new ArrayBuffer(256), 64, 127));
  },
  missingBonesModel() {
    placeEntities();
    addon.writeOnAbort(component.buffer);
    skin(0x7000, entity.id, entity.id);
  },
  freshSkinning() {
    about();
    engine.updateSkinningMatrix(component.id);
  },
  /** The first bone's result is written, the second's is unchanged. */
  missingEntity() {
    placeEntities();
    kept.push(engine.createDataModel(2, identity));
    addon.writeOnAbort(component.buffer);
    skin(kept[kept.length - 1].id, entity.id, entity.id + 3);
  },
  missingEntityInBatch() {
    kept.push(engine.createDataModel(2, identity), engine.createComponent(3, 1));
    const model = kept[kept.length - 2].id;
    new Uint32Array(component.buffer).set([model, 0, 0, entity.id, entity.id]);
    new Uint32Array(kept[kept.length - 1].buffer).set([model, 0, 0x9000]);
    about();
    engine.updateSkinningMatrices(Uint32Array.of(2, component.id, kept[kept.length - 1].id));
  },

  animatorOnEmpty: () => (about(), engine.updateAnimator.call(empty, 1)),
  animatorOnComponent: () => (about(), engine.updateAnimator.call(component, 1)),
  animatorsOnEntity: () => (
    about(), engine.updateAnimators.call(entity, Uint32Array.of(2, 0x1000, 0x2000))
  ),
  skinningOnEmpty: () => (about(), engine.updateSkinningMatrix.call(empty, 1)),
  skinningsOnDataModel: () => (
    about(), engine.updateSkinningMatrices.call(dataModel, Uint32Array.of(1, 0x1000))
  ),
  skinningsOnEmptyByWorkers: () => (
    about(), engine.updateSkinningMatrices.call(empty, Uint32Array.of(2, 0x1000, 0x2000))
  ),
  // Printed by the conversion of the argument, the last step before the end.
  animatorOnEmptyConverts: () => engine.updateAnimator.call(empty, { valueOf: about }),
  skinningOnEntityConverts: () => engine.updateSkinningMatrix.call(entity, { valueOf: about }),
  dataModelOnEmpty: () => (about(), engine.createDataModel.call(empty, 1, new ArrayBuffer(4))),
  componentOnDataModel: () => (about(), engine.createComponent.call(dataModel, 2, 1, 1)),

  animatorHandleThrows: () => (about(), engine.updateAnimator(throwing)),
  skinningHandleIsSymbol: () => (about(), engine.updateSkinningMatrix(Symbol('1'))),
  dataModelKindIsBigInt: () => (about(), engine.createDataModel(BigInt(1), new ArrayBuffer(4))),
  clipCountThrows: () => (about(), engine.createComponent(2, throwing, 1)),
  boneCountIsSymbol: () => (about(), engine.createComponent(3, Symbol('1'))),

  animatorsOfNumber: () => (about(), engine.updateAnimators(7)),
  animatorsOfUndefined: () => (about(), engine.updateAnimators(undefined)),
  skinningsOfEmptyBuffer: () => (about(), engine.updateSkinningMatrices(new ArrayBuffer(0))),
  skinningsOfDetachedView() {
    const view = Uint32Array.of(1, component.id);
    const { port1 } = new MessageChannel();
    port1.postMessage(view.buffer, [view.buffer]);
    about();
    engine.updateSkinningMatrices(view);
  },

  constructComponent: () => (about(), addon.construct('EngineComponent')),
  constructDataModel: () => (about(), addon.construct('EngineDataModel')),
};

cases[process.argv[2]]();
