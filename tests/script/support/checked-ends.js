'use strict';
// Calls that end the process natively, and for which a checked engine throws. Each case is set up on
// an engine, checked or not, by `prepare`, which returns the call. `way` is how it ends natively: 'fault',
// 'abort', or 'hang' for a call that never returns. `stage` 'prepare' is for what is refused earlier than
// it ends natively.
const { buildClip, sampleTypes } = require('../../../lib/clip');
const { over } = require('./blocks');

const none = 0xffffffff;

/** Keeps the objects of a case alive. */
const kept = [];
function keep(object) {
  kept.push(object);
  return object;
}

function clip(engine) {
  const keys = [{ frame: 0, value: 1, inTangent: 0, outTangent: 0 }];
  const curves = [{ target: 0, type: sampleTypes.PositionX, keys }];
  return keep(
    engine.createDataModel(1, buildClip({ framesPerSecond: 30, frameCount: 10, curves }))
  );
}

/** A clip with an invalid word `index`, in an animator. */
function brokenClip(index, word, cut = 0) {
  return (engine) => {
    const keys = [{ frame: 0, value: 1, inTangent: 0, outTangent: 0 }];
    const curves = [{ target: 0, type: sampleTypes.PositionX, keys }];
    const bytes = buildClip({ framesPerSecond: 30, frameCount: 10, curves });
    new Uint32Array(bytes)[index] = word;
    const model = keep(engine.createDataModel(1, bytes.slice(0, bytes.byteLength - cut)));
    const animator = keep(engine.createComponent(2, 1, 1));
    const view = over(DataView, animator);
    view.setUint32(0, model.id, true);
    view.setFloat32(8, 1, true);
    return () => engine.updateAnimator(animator.id);
  };
}

function cycle(engine) {
  const { id } = keep(engine.createEntity(true, 3));
  const words = [1, id, 2, id, id + 1, 2, id + 1, id + 2];
  over(Uint32Array, engine.entityCommands).set([4 * words.length, ...words]);
  engine.refreshWorldTransform();
  // Under a root, in three steps: removed, added to its own child, and made a root again.
  const top = keep(engine.createEntity(true)).id;
  const more = [2, id + 2, id + 1, 2, top, id + 2, 1, top, 2, id + 1, top];
  over(Uint32Array, engine.entityCommands).set([4 * more.length, ...more]);
  over(Uint32Array, engine.dirtyEntities).set([1, top]);
  return () => engine.refreshWorldTransform();
}

function skinning(words) {
  return (engine) => {
    const entity = keep(engine.createEntity(true));
    const model = keep(engine.createDataModel(2, new ArrayBuffer(64)));
    const skin = keep(engine.createComponent(3, 1));
    over(Uint32Array, skin).set(words(model.id, entity.id));
    return () => engine.updateSkinningMatrix(skin.id);
  };
}

/** A controller with a cycle of states: the first refers to itself, or to a second that refers to it. */
function loop(count) {
  return (engine) => {
    const entity = keep(engine.createEntity(true));
    const model = clip(engine);
    const lists = Uint32Array.of(model.id, 1, entity.id).buffer;
    const binding = keep(engine.createAnimationClipBinding(lists, 0, 1, 2, 1));
    const states = Array.from({ length: count }, () =>
      keep(engine.createAnimatorControllerStateModel(1))
    );
    states.forEach((state, i) => {
      over(Uint32Array, state)[2] = states[(i + 1) % count].id;
    });
    const controller = keep(engine.createAnimatorControllerModel(1));
    over(Uint32Array, controller).set([binding.id, 0, 0, states[0].id]);
    return () => engine.updateAnimatorControllers(Uint32Array.of(1, controller.id));
  };
}

function commandBuffer(write) {
  return (engine) => {
    const buffer = keep(engine.createMatrixFlowCommandBuffer(64));
    const other = keep(engine.createMatrixFlowCommandBuffer(64));
    write(over(Uint32Array, buffer), over(Uint32Array, other), buffer, other);
    return () => buffer.execute();
  };
}

/** The same object, with own properties that hide those of its class. */
function claiming(object, properties) {
  Object.keys(properties).forEach((name) => {
    Object.defineProperty(object, name, { value: properties[name] });
  });
  return object;
}

const throwing = {
  valueOf() {
    throw new Error('from valueOf');
  },
};

const batches = ['updateAnimators', 'updateAnimatorControllers', 'updateSkinningMatrices'];

/** @type {Object<string, {way: string, type: Function, words: string[], prepare: Function}>} */
const cases = {
  receiverOfAnotherClass: {
    way: 'fault',
    type: TypeError,
    words: ['createEntity: its receiver is an EngineEntity'],
    prepare: (engine) => {
      const entity = keep(engine.createEntity(true, 2));
      return () => engine.createEntity.call(entity, true, 3);
    },
  },
  receiverByNew: {
    way: 'fault',
    type: TypeError,
    words: ['new Engine', 'getEngine'],
    prepare: (engine) => () => new engine.constructor().refreshWorldTransform(),
  },
  bindingByNew: {
    way: 'fault',
    type: TypeError,
    words: ['new EngineAnimationClipBinding', 'createAnimationClipBinding'],
    prepare: (engine) => {
      const entity = keep(engine.createEntity(true));
      const lists = Uint32Array.of(clip(engine).id, 1, entity.id).buffer;
      const binding = keep(engine.createAnimationClipBinding(lists, 0, 1, 2, 1));
      return () => new binding.constructor().writeDefaultValues();
    },
  },
  countThrows: {
    way: 'abort',
    type: TypeError,
    words: ['createEntity: count is an object'],
    prepare: (engine) => () => engine.createEntity(true, throwing),
  },
  countIsBigInt: {
    way: 'abort',
    type: TypeError,
    words: ['createEntity: count is the BigInt 1'],
    prepare: (engine) => () => engine.createEntity(true, BigInt(1)),
  },
  eyeIsSymbol: {
    way: 'abort',
    type: TypeError,
    words: ['frustumCulling: eye x is Symbol(x)'],
    prepare: (engine) => () =>
      engine.frustumCulling(1, Symbol('x'), 0, 0, 0, 0, 0, 0, 1, 0, 1, 1, 1, 2),
  },
  commandsBeyondBlock: {
    way: 'fault',
    type: RangeError,
    words: ['length word of entityCommands is 2147483640'],
    prepare: (engine) => {
      over(Uint32Array, engine.entityCommands)[0] = 0x7ffffff8;
      return () => engine.refreshWorldTransform();
    },
  },
  dirtyListBeyondBlock: {
    way: 'fault',
    type: RangeError,
    words: ['count of dirtyEntities is 4294967295'],
    prepare: (engine) => {
      over(Uint32Array, engine.dirtyEntities)[0] = none;
      return () => engine.refreshWorldTransform();
    },
  },
  parentCycle: {
    way: 'abort',
    type: RangeError,
    words: ['AddChild', 'closes a cycle'],
    prepare: cycle,
  },
  animatorWithoutClip: {
    way: 'abort',
    type: RangeError,
    words: ['animator 4096, clip 0: 0 names no clip'],
    prepare: (engine) => {
      const animator = keep(engine.createComponent(2, 1, 1));
      return () => engine.updateAnimator(animator.id);
    },
  },
  clipHeader: {
    way: 'abort',
    stage: 'prepare',
    type: RangeError,
    words: ['createDataModel', 'keyDataOffset is 7'],
    prepare: brokenClip(0, 7),
  },
  clipContent: {
    way: 'abort',
    stage: 'prepare',
    type: RangeError,
    words: ['createDataModel', 'keys end at byte'],
    prepare: brokenClip(6, 2),
  },
  clipCut: {
    way: 'abort',
    stage: 'prepare',
    type: RangeError,
    words: ['createDataModel', 'keys end at byte'],
    prepare: brokenClip(6, 1, 4),
  },
  clipSampleType: {
    way: 'abort',
    stage: 'prepare',
    type: RangeError,
    words: ['createDataModel', 'no sample type 99'],
    prepare: brokenClip(5, 99),
  },
  bonesOfOddSize: {
    way: 'abort',
    type: RangeError,
    words: ['createDataModel: data has 60 bytes'],
    prepare: (engine) => () => engine.createDataModel(2, new ArrayBuffer(60)),
  },
  bonesOfAnOwnByteLength: {
    way: 'abort',
    type: RangeError,
    words: ['createDataModel: data has 60 bytes'],
    prepare: (engine) => () =>
      engine.createDataModel(2, claiming(new Uint8Array(64).subarray(0, 60), { byteLength: 64 })),
  },
  handlesOfAnOwnBuffer: {
    way: 'fault',
    type: RangeError,
    words: ['updateAnimators: handles has 0 bytes'],
    prepare: (engine) => () =>
      engine.updateAnimators(
        claiming(new Uint32Array(0), { buffer: new ArrayBuffer(8), byteOffset: 0, byteLength: 8 })
      ),
  },
  skinWithoutModel: {
    way: 'abort',
    type: RangeError,
    words: ['skinning component 4096, model 0 names no model of inverse bind matrices'],
    prepare: skinning((model, entity) => [0, 0, entity]),
  },
  skinWithoutEntity: {
    way: 'abort',
    type: RangeError,
    words: ['entity of bone 0: 4097 names no entity'],
    prepare: skinning((model, entity) => [model, 0, entity + 1]),
  },
  stateOfItself: {
    way: 'hang',
    type: RangeError,
    words: ['layer 0', 'loops back to 4096'],
    prepare: loop(1),
  },
  statesInALoop: {
    way: 'hang',
    type: RangeError,
    words: ['layer 0', 'loops back to 4096'],
    prepare: loop(3),
  },
  bufferOfItself: {
    build: 'flow',
    way: 'fault',
    type: RangeError,
    words: ['in a cycle, 4096 > 4096'],
    prepare: commandBuffer((words, _, { id }) => words.set([8, 1, id])),
  },
  buffersInACircle: {
    build: 'flow',
    way: 'fault',
    type: RangeError,
    words: ['in a cycle, 4096 > 8192 > 4096'],
    prepare: commandBuffer((words, others, one, two) => {
      words.set([8, 1, two.id]);
      others.set([8, 1, one.id]);
    }),
  },
  operandThatWraps: {
    build: 'flow',
    way: 'fault',
    type: RangeError,
    words: ['scalarAdd', 'operand A', 'offset 4294967292'],
    prepare: commandBuffer((words, _, one, { memoryID }) => {
      words.set([28, 1001, memoryID, none - 3, memoryID, 0, memoryID, 0]);
    }),
  },
};

for (const method of batches) {
  cases[`${method}OfNumber`] = {
    way: 'fault',
    type: TypeError,
    words: [`${method}: handles is 7`],
    prepare: (engine) => () => engine[method](7),
  };
  cases[`${method}OfEmptyBuffer`] = {
    way: 'fault',
    type: RangeError,
    words: [`${method}: handles has 0 bytes`],
    prepare: (engine) => () => engine[method](new ArrayBuffer(0)),
  };
}

/** x of a 3D entity's position, written by all clips here as 1. */
function xOf(entity, i = 0) {
  return over(Float32Array, entity)[27 * i + 5];
}

/** An entity that a binding with one clip moves, and a controller that plays it. */
function player(engine, makeBinding) {
  const entity = keep(engine.createEntity(true));
  const model = clip(engine);
  const lists = Uint32Array.of(model.id, 1, entity.id).buffer;
  const make = makeBinding || (() => engine.createAnimationClipBinding(lists, 0, 1, 2, 1));
  const state = keep(engine.createAnimatorControllerStateModel(1));
  over(Float32Array, state)[0] = 1;
  over(Uint32Array, state)[3] = model.id;
  over(Float32Array, state)[5] = 1;
  const controller = keep(engine.createAnimatorControllerModel(1));
  return {
    entity,
    model,
    state,
    controller,
    play(binding = keep(make(entity, model))) {
      over(Uint32Array, controller).set([binding.id, 0, 0, state.id]);
      over(Float32Array, controller)[2] = 1;
      controller.update(0, new ArrayBuffer(0));
      return xOf(entity);
    },
  };
}

/** An animator of one clip; the entity that it moves. */
function animated(engine, targets = 1) {
  const entity = keep(engine.createEntity(true, 2));
  const animator = keep(engine.createComponent(2, targets, 1));
  const view = over(DataView, animator);
  for (let i = 0; i < targets; ++i) {
    view.setUint32(12 * i, clip(engine).id, true);
    view.setFloat32(12 * i + 8, 0.5, true);
  }
  view.setUint32(12 * targets, entity.id, true);
  return { entity, animator };
}

/** Runs entity commands, with element 0 of a batch at x = 3 and dirty, and returns x of element 1. */
function worldX(engine, batch, commands) {
  const floats = over(Float32Array, batch);
  [0, 1].forEach((i) => floats.set([3 - 3 * i, 0, 0, 1, 1, 1], 27 * i + 5));
  over(Uint32Array, engine.entityCommands).set([4 * commands.length, ...commands]);
  over(Uint32Array, engine.dirtyEntities).set([2, batch.id, batch.id + 1]);
  engine.refreshWorldTransform();
  return floats[27 + 11 + 12];
}

const camera = [1, 0, 0, 10, 0, 0, 0, 0, 1, 0, 1, 1, 0.1, 100];

/** Two objects at the origin. */
function seen(engine, handle) {
  const entity = keep(engine.createEntity(true));
  over(Float32Array, entity).set([1, 1, 1], 8);
  over(Uint32Array, engine.dirtyEntities).set([1, entity.id]);
  over(Uint32Array, engine.entityCommands).set([8, 1, entity.id]);
  engine.refreshWorldTransform();
  const objects = keep(engine.createComponent(1, 2));
  [0, 1].forEach((i) => {
    const words = new Uint32Array(objects.buffer, 28 * i, 7);
    words.set([1, 1, 0, 0, 0, 0, i === 0 ? entity.id : handle || entity.id]);
  });
  return objects;
}

/**
 * Calls that do nothing natively, or not what was intended: `native` is the native result of `run`.
 * @type {Object<string, {run: Function, native: *, type: Function, words: string[]}>}
 */
const silences = {
  batchTooLarge: {
    run: (engine) => engine.createEntity(true, 4096).id,
    native: 0,
    type: RangeError,
    words: ['count is 4096'],
  },
  countOfNoNumber: {
    run: (engine) => engine.createEntity(true, NaN).buffer.byteLength,
    native: 108,
    type: RangeError,
    words: ['count is NaN'],
  },
  componentOfNoKind: {
    run: (engine) => engine.createComponent(4, 1, 1),
    native: null,
    type: RangeError,
    words: ['kind is 4'],
  },
  animatorWithoutTargets: {
    run: (engine) => engine.createComponent(2, 1, 0).id,
    native: 0,
    type: RangeError,
    words: ['entityCount is 0'],
  },
  animatorWithoutCount: {
    run: (engine) => engine.createComponent(2, 1),
    native: null,
    type: TypeError,
    words: ['entityCount is undefined'],
  },
  modelOfAnArray: {
    run: (engine) => engine.createDataModel(2, [1, 2, 3]).id,
    native: 4096,
    type: TypeError,
    words: ['data is an array'],
  },
  nameOfNothing: {
    run: (engine) => engine.setEntityName(4096, 'a'),
    native: null,
    type: RangeError,
    words: ['4096 names no entity'],
  },
  animatorsBeyondTheBuffer: {
    run: (engine) => {
      const { entity, animator } = animated(engine);
      engine.updateAnimators(Uint32Array.of(2, animator.id));
      return xOf(entity);
    },
    native: 0,
    type: RangeError,
    words: ['count of handles is 2', '8 bytes hold 1'],
  },
  targetTableTooShort: {
    run: (engine) => {
      // The first clip is off, and the second one's entry is beyond the table.
      const { entity, animator } = animated(engine, 2);
      over(Float32Array, animator)[2] = 0;
      engine.updateAnimator(animator.id);
      return xOf(entity);
    },
    native: 0,
    type: RangeError,
    words: ['clip 1', 'end at entry 2', 'which has 1'],
  },
  bindingOfAView: {
    run: (engine) =>
      player(
        engine,
        (entity, model) =>
          engine.createAnimationClipBinding(Uint32Array.of(model.id, 1, entity.id), 0, 1, 2, 1) || {
            id: 0,
          }
      ).play(),
    native: 0,
    type: TypeError,
    words: ['buffer is a Uint32Array'],
  },
  bindingOfNoClip: {
    run: (engine) =>
      player(engine, (entity, { id }) => {
        const words = Uint32Array.of(id, id + 4096, 1, entity.id, 0);
        return engine.createAnimationClipBinding(words.buffer, 0, 2, 3, 1);
      }).play(),
    native: 0,
    type: RangeError,
    words: ['clip 1 of the lists', 'names no clip'],
  },
  maskOfAView: {
    run: (engine) => {
      const one = player(engine);
      one.controller.setMaskAtIndex(0, Uint32Array.of(one.entity.id, 0), 0, 1);
      return one.play();
    },
    native: 1, // as without a mask
    type: TypeError,
    words: ['buffer is a Uint32Array'],
  },
  maskOfNoLayer: {
    run: (engine) => {
      const one = player(engine);
      one.controller.setMaskAtIndex(1, Uint32Array.of(one.entity.id, 0).buffer, 0, 1);
      return one.play();
    },
    native: 1,
    type: RangeError,
    words: ['layer is 1'],
  },
  updateWithoutABuffer: {
    run: (engine) => {
      const { controller, play, entity } = player(engine);
      play();
      over(Float32Array, entity)[5] = 9;
      controller.update(0);
      return xOf(entity);
    },
    native: 9,
    type: TypeError,
    words: ['update: the second argument is undefined'],
  },
  childOfAnotherKind: {
    run: (engine) => {
      const batch = keep(engine.createEntity(true, 2));
      const flat = keep(engine.createEntity(false));
      return worldX(engine, batch, [1, flat.id, 2, flat.id, batch.id + 1]);
    },
    native: 0, // under no root
    type: RangeError,
    words: ['AddChild', '2D'],
  },
  rootWithAParent: {
    run: (engine) => {
      const batch = keep(engine.createEntity(true, 2));
      return worldX(engine, batch, [2, batch.id, batch.id + 1, 1, batch.id + 1]);
    },
    native: 0,
    type: RangeError,
    words: ['AddRoot', 'has the parent 4096'],
  },
  commandOfNoNumber: {
    run: (engine) => {
      const batch = keep(engine.createEntity(true, 2));
      // 12 is skipped, and its operand read as a command: the 2 of AddChild.
      return worldX(engine, batch, [1, batch.id, 12, 2, batch.id, batch.id + 1]);
    },
    native: 3,
    type: RangeError,
    words: ['no command 12'],
  },
  listOfAView: {
    run: (engine) => {
      const { id } = seen(engine);
      return engine.frustumCulling(...camera, Uint32Array.of(1, id)).objects.byteLength;
    },
    native: 8, // both, though one is listed
    type: TypeError,
    words: ['list is a Uint32Array'],
  },
  listAheadOfMore: {
    run: (engine) => {
      const { id } = seen(engine);
      const list = Uint32Array.of(1, id).buffer;
      return engine.frustumCulling(...camera, list, true).objects.byteLength;
    },
    native: 8,
    type: TypeError,
    words: ['16 arguments'],
  },
  objectWithoutEntity: {
    run: (engine) => {
      seen(engine, 8 * 4096);
      return engine.frustumCulling(...camera).objects.byteLength;
    },
    native: 4,
    type: RangeError,
    words: ['culling object 4097', 'names no entity'],
  },
};

module.exports = { cases, claiming, silences };
