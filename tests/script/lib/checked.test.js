'use strict';
// The checked engine: single arguments, receivers and creation; otherwise it behaves like an engine.
const assert = require('assert');
const { over } = require('../support/blocks');
const fs = require('fs');
const { MessageChannel, MessagePort } = require('worker_threads');
const { inWasm, modulePath } = require('../support/host');
const { collect, collectUntil } = require('../support/collect');
const { claiming } = require('../support/checked-ends');
const { hostileObjects } = require('../support/hostile');
const {
  Lab,
  assertWords,
  clipBytes,
  counted,
  frustum,
  targetLists,
} = require('../support/checked');
const { checked } = require('../../../lib/checked');
const { onCollected } = require('../../../lib/checked/watch');

const nq = require(modulePath);
const flowPath = process.env.NQ_MATRIXFLOW_MODULE;
const flow = flowPath !== undefined && fs.existsSync(flowPath) ? require(flowPath) : null;

/** Values that are no numbers, with their names in messages. */
const noNumbers = [
  [undefined, 'undefined'],
  [null, 'null'],
  ['7', "'7'"],
  [true, 'true'],
  [{}, 'an object'],
  [[], 'an array'],
  [BigInt(7), 'the BigInt 7'],
  [Symbol('s'), 'Symbol(s)'],
  ...hostileObjects().map((value) => [value, 'an object']),
];

/** Numbers that are no counts. */
const noCounts = [NaN, Infinity, -1, 1.5, 2 ** 32];

/** Detaches a buffer. */
function detach(buffer) {
  const { port1 } = new MessageChannel();
  assert(port1 instanceof MessagePort);
  port1.postMessage(null, [buffer]);
  port1.close();
}

describe('checked', () => {
  it('accepts only engines', () => {
    const engine = nq.getEngine();
    const throwing = () => assert.fail('from the getter');
    for (const [value, found] of [
      [undefined, 'undefined'],
      [7, '7'],
      [{}, 'an object'],
      [nq, 'an object'],
      [new engine.constructor(), 'an Engine'],
      [Object.create(engine), 'an object'],
      [new Proxy(engine, {}), 'an object'],
      [engine.createEntity(), 'an EngineEntity'],
      ...hostileObjects().map((value) => [value, 'an object']),
      [Object.create(Object.create(null, { constructor: { get: throwing } })), 'an object'],
    ]) {
      assertWords(() => checked(value), TypeError, 'checked', `engine is ${found}`, 'getEngine');
    }
  });

  it('refuses objects without the buffers of an engine', () => {
    const tagged = (properties) => Object.assign({ [Symbol.toStringTag]: 'Engine' }, properties);
    const dirtyEntities = { [Symbol.toStringTag]: 'ArrayBuffer' };
    const lookalike = tagged({
      dirtyEntities,
      entityCommands: dirtyEntities,
      cullingResult: dirtyEntities,
    });
    const throwing = tagged({});
    Object.defineProperty(throwing, 'dirtyEntities', {
      get() {
        throw new Error('from the getter');
      },
    });
    for (const value of [lookalike, throwing]) {
      assertWords(() => checked(value), TypeError, 'checked', 'engine is an Engine', 'getEngine');
    }
  });

  it('returns the same checked engine for an engine, and a checked engine itself', () => {
    const engine = nq.getEngine();
    assert.strictEqual(checked(engine), checked(engine));
    assert.strictEqual(checked(checked(engine)), checked(engine));
    assert.notStrictEqual(checked(nq.getEngine()), checked(engine));
  });

  it('has the methods and properties of the native one', () => {
    for (const module of flow === null ? [nq] : [nq, flow]) {
      const native = module.getEngine();
      const engine = checked(native);
      assert.deepStrictEqual(Object.keys(engine), Object.keys(native));
      for (const name of Object.keys(Object.getPrototypeOf(native))) {
        assert.strictEqual(typeof engine[name], 'function', name);
        assert.strictEqual(engine[name].name, name);
        assert.strictEqual(engine[name].length, native[name].length, name);
      }
      assert.strictEqual('createMatrixFlowCommandBuffer' in engine, module === flow);
      assert.strictEqual(engine.dirtyEntities, native.dirtyEntities);
      assert.strictEqual(engine.entityCommands, native.entityCommands);
      assert.strictEqual(engine.cullingResult.byteLength, native.cullingResult.byteLength);
    }
  });

  it('creates objects with the class names and properties of native ones', () => {
    const native = nq.getEngine();
    const engine = checked(nq.getEngine());
    const make = (one) => {
      const entity = one.createEntity(true, 2);
      const clip = one.createDataModel(1, clipBytes());
      return [
        entity,
        clip,
        one.createComponent(1, 3),
        one.createComponent(2, 1, 1),
        one.createComponent(3, 1),
        one.createDataModel(2, new ArrayBuffer(64)),
        one.createAnimationClipBinding(...targetLists([[clip.id, [entity.id]]]), 1),
        one.createAnimatorControllerModel(1),
        one.createAnimatorControllerStateModel(1),
      ];
    };
    const expected = make(native);
    make(engine).forEach((object, i) => {
      assert.deepStrictEqual(Reflect.ownKeys(object), Reflect.ownKeys(expected[i]));
      assert.strictEqual(object.constructor.name, expected[i].constructor.name);
      assert.strictEqual(String(object), `[object ${object.constructor.name}]`);
      const { id, memoryID } = expected[i];
      assert.deepStrictEqual([object.id, object.memoryID], [id, memoryID]);
      if (memoryID !== undefined) {
        assert.deepStrictEqual(over(Uint8Array, object), over(Uint8Array, expected[i]));
      }
      for (const name of Object.keys(Object.getPrototypeOf(expected[i]))) {
        assert.strictEqual(typeof object[name], 'function', name);
        assert.strictEqual(object[name].length, expected[i][name].length, name);
      }
    });
  });
});

describe('receivers of a checked engine', () => {
  const lab = new Lab(flow || nq);
  const { engine } = lab;
  const entity = lab.entities();
  const clip = lab.clip();
  const binding = lab.binding([[clip.id, [entity.id]]]);
  const controller = lab.controller(binding.id, [[2, 0]]);
  const buffer = flow === null ? null : lab.keep(engine.createMatrixFlowCommandBuffer(16));
  const native = (flow || nq).getEngine();

  const receivers = [
    [undefined, 'undefined'],
    [7, '7'],
    [{}, 'an object'],
    [native, 'an Engine'],
    [new native.constructor(), 'an Engine'],
    [entity, 'an EngineEntity'],
    [Object.create(engine), 'an Engine'],
    ...hostileObjects().map((value) => [value, 'an object']),
  ];

  for (const name of Object.keys(Object.getPrototypeOf(native))) {
    it(`of ${name} are refused for another object`, () => {
      for (const [receiver, found] of receivers) {
        const call = () => engine[name].call(receiver, 1, 1, 1, 1, 1);
        lab.refuses(call, TypeError, `${name}: its receiver is ${found}`, 'checked(engine)');
      }
    });
  }

  const methods = [
    [binding, 'updateBinding', 'EngineAnimationClipBinding'],
    [binding, 'writeDefaultValues', 'EngineAnimationClipBinding'],
    [controller, 'update', 'EngineAnimatorControllerModel'],
    [controller, 'setMaskAtIndex', 'EngineAnimatorControllerModel'],
  ];
  if (buffer !== null) {
    methods.push([buffer, 'execute', 'EngineMatrixFlowCommandBuffer']);
  }
  for (const [object, name, className] of methods) {
    it(`of ${name} are refused for another object`, () => {
      const others = [...receivers, [engine, 'an Engine']];
      others.push([Object.create(object), `an ${className}`]);
      const wrong = object === binding ? controller : binding;
      others.push([wrong, `an ${wrong.constructor.name}`]);
      for (const [receiver, found] of others) {
        const call = () =>
          object[name].call(receiver, new ArrayBuffer(8), new ArrayBuffer(8), 0, 0);
        lab.refuses(call, TypeError, `${name}: its receiver is ${found}`, className);
      }
    });
  }

  it('cannot be constructed with new', () => {
    const component = lab.keep(engine.createComponent(1));
    const others = buffer === null ? [component] : [component, buffer];
    for (const object of [engine, entity, clip, binding, controller, lab.state([[0]]), ...others]) {
      const { name } = object.constructor;
      lab.refuses(() => new object.constructor(), TypeError, `new ${name}`, 'only');
    }
  });

  it('may be other checked engines', () => {
    const other = new Lab(flow || nq);
    assert.strictEqual(engine.createEntity.call(other.engine, true, 2).id, 4096);
    assert.strictEqual(engine.setEntityName.call(other.engine, 4097, 'a'), null);
  });
});

describe('createEntity of a checked engine', () => {
  const lab = new Lab(nq);
  const { engine } = lab;

  it('refuses counts that are out of range', () => {
    for (const count of [4096, ...noCounts]) {
      const found = `count is ${count}`;
      lab.refuses(() => engine.createEntity(true, count), RangeError, 'createEntity', found, 4095);
    }
    // Natively an object without entities, or one of another count.
    assert.strictEqual(nq.getEngine().createEntity(true, 4096).id, 0);
    assert.strictEqual(over(Uint8Array, nq.getEngine().createEntity(true, 1.5)).byteLength, 108);
  });

  it('refuses arguments that are not numbers or booleans', () => {
    for (const [value, found] of noNumbers.slice(1)) {
      lab.refuses(() => engine.createEntity(true, value), TypeError, 'createEntity', found);
    }
    for (const value of [5, 'true', null, {}, NaN]) {
      lab.refuses(() => engine.createEntity(value), TypeError, 'is3D', 'true for 3D');
    }
  });

  it('accepts all valid arguments', () => {
    for (const args of [[], [undefined, undefined], [false, 0], [0, 1], [true, 4095], [1, 1]]) {
      const made = lab.passes(() => engine.createEntity(...args));
      assert.strictEqual(over(Uint8Array, made).byteLength, (args[0] ? 108 : 56) * (args[1] || 1));
    }
  });
});

describe('createComponent of a checked engine', () => {
  const lab = new Lab(nq);
  const { engine } = lab;
  const create =
    (...args) =>
    () =>
      engine.createComponent(...args);

  it('refuses unknown kinds', () => {
    for (const kind of [0, 4, NaN, 1.5, -1]) {
      lab.refuses(create(kind, 1, 1), RangeError, `kind is ${kind}`, '1 culling', '2 an animator');
    }
    lab.refuses(create(), TypeError, 'kind is undefined');
    assert.strictEqual(nq.getEngine().createComponent(4, 1, 1), null);
  });

  it('refuses counts of 0, and counts beyond the limit of a batch', () => {
    lab.refuses(create(1, 4096), RangeError, 'count is 4096', 4095);
    for (const [kind, name] of [
      [2, 'clipCount'],
      [3, 'count'],
    ]) {
      for (const count of [0, ...noCounts]) {
        lab.refuses(create(kind, count, 1), RangeError, `${name} is ${count}`, 'from 1');
      }
    }
    for (const count of [0, ...noCounts]) {
      lab.refuses(create(2, 1, count), RangeError, `entityCount is ${count}`, 'from 1');
    }
    for (const [value, found] of noNumbers) {
      lab.refuses(create(2, value, 1), TypeError, `clipCount is ${found}`);
      lab.refuses(create(2, 1, value), TypeError, `entityCount is ${found}`);
      lab.refuses(create(3, value), TypeError, `count is ${found}`);
    }
    for (const [value, found] of noNumbers.slice(1)) {
      lab.refuses(create(1, value), TypeError, `count is ${found}`);
    }
  });

  it('refuses blocks whose size overflows 32 bits', () => {
    lab.refuses(create(2, 0x20000000, 1), RangeError, 'animator', 6442450948, 4294967295);
    lab.refuses(create(3, 0x10000000), RangeError, 'skinning', 19327352836);
    for (const method of ['createAnimatorControllerModel', 'createAnimatorControllerStateModel']) {
      lab.refuses(() => engine[method](0x20000000), RangeError, method, 'bytes', 4294967295);
    }
  });

  it('accepts all valid arguments', () => {
    for (const args of [
      [1],
      [1, undefined],
      [1, 0],
      [1, 4095],
      [2, 1, 1],
      [3, 1],
      [3, 2, 'more'],
    ]) {
      assert.notStrictEqual(lab.passes(create(...args)).id, 0);
    }
  });
});

describe('controllers and states of a checked engine', () => {
  const lab = new Lab(nq);
  for (const [method, name] of [
    ['createAnimatorControllerModel', 'layerCount'],
    ['createAnimatorControllerStateModel', 'clipCount'],
  ]) {
    it(`are not created by ${method} with an invalid count`, () => {
      for (const count of [0, ...noCounts]) {
        lab.refuses(() => lab.engine[method](count), RangeError, method, `${name} is ${count}`);
      }
      for (const [value, found] of noNumbers) {
        lab.refuses(() => lab.engine[method](value), TypeError, method, `${name} is ${found}`);
      }
      assert.strictEqual(nq.getEngine()[method](0).id, 0);
    });
  }
});

describe('createDataModel of a checked engine', () => {
  const lab = new Lab(nq);
  const { engine } = lab;
  const create =
    (...args) =>
    () =>
      engine.createDataModel(...args);

  it('refuses unknown kinds', () => {
    for (const kind of [0, 3, NaN, 1.5]) {
      lab.refuses(create(kind, clipBytes()), RangeError, `kind is ${kind}`, '1 a clip');
    }
    assert.strictEqual(nq.getEngine().createDataModel(3, clipBytes()).id, 0);
  });

  it('refuses values that are not buffers', () => {
    const shared = new SharedArrayBuffer(64);
    for (const value of [undefined, null, 7, 'bytes', [1, 2], shared, ...hostileObjects()]) {
      lab.refuses(create(1, value), TypeError, 'createDataModel', 'data is', 'ArrayBuffer');
      lab.refuses(create(2, value), TypeError, 'createDataModel', 'data is', 'ArrayBuffer');
    }
    lab.refuses(create(1), TypeError, 'data is undefined');
    // Native code creates an empty clip.
    assert.strictEqual(nq.getEngine().createDataModel(1, [1, 2]).id, 4096);
  });

  it('refuses detached ArrayBuffers, and their views', () => {
    const view = new Uint8Array(64);
    const { buffer } = view;
    detach(buffer);
    lab.refuses(create(2, buffer), RangeError, 'data', 'transferred');
    lab.refuses(create(2, view), RangeError, 'data', 'transferred');
  });

  it('refuses invalid clips with the message of readClip', () => {
    const cut = clipBytes().slice(0, -4);
    lab.refuses(create(1, cut), RangeError, 'createDataModel: data: clip, curve 0', 'keys end');
    lab.refuses(create(1, new ArrayBuffer(0)), RangeError, 'header of 16');
    const header = clipBytes();
    new Uint32Array(header)[0] = 32;
    lab.refuses(create(1, header), RangeError, 'keyDataOffset is 32', 'buildClip');
    const type = clipBytes();
    new Uint32Array(type)[5] = 14;
    lab.refuses(create(1, type), RangeError, 'no sample type 14');
  });

  it('refuses inverse bind matrices whose size is not a multiple of 64', () => {
    for (const size of [1, 63, 65]) {
      lab.refuses(create(2, new ArrayBuffer(size)), RangeError, `${size} bytes`, '16 floats');
    }
  });

  it('accepts buffers and all kinds of views', () => {
    const bytes = new Uint8Array(clipBytes());
    const shifted = new Uint8Array(bytes.length + 9);
    shifted.set(bytes, 5);
    const views = [bytes.buffer, bytes, Buffer.from(bytes), shifted.subarray(5, -4)];
    for (const data of [...views, over(DataView, bytes)]) {
      assert.notStrictEqual(lab.passes(create(1, data)).id, 0);
    }
    for (const data of [new ArrayBuffer(0), new Float32Array(16), new ArrayBuffer(640)]) {
      assert.notStrictEqual(lab.passes(create(2, data)).id, 0);
    }
  });
});

describe('setEntityName of a checked engine', () => {
  const lab = new Lab(nq);
  const { engine } = lab;
  const { id } = lab.entities(2);
  const name =
    (...args) =>
    () =>
      engine.setEntityName(...args);

  it('refuses names and handles that the native engine ignores', () => {
    lab.refuses(name(id, ''), RangeError, "name is ''");
    lab.refuses(name(id), TypeError, 'name is undefined');
    for (const value of [7, null, {}, Symbol('s')]) {
      lab.refuses(name(id, value), TypeError, 'name is', 'give a string');
    }
    lab.refuses(name(0, 'a'), RangeError, '0 names no entity', 'means none');
    lab.refuses(name(id + 2, 'a'), RangeError, `${id + 2} names no entity`, `ends at ${id + 1}`);
    lab.refuses(name(999424, 'a'), RangeError, '999424 names no entity', 'created no object');
    for (const [value, found] of noNumbers) {
      lab.refuses(name(value, 'a'), TypeError, `handle is ${found}`);
    }
  });

  it('accepts names of entities', () => {
    for (const value of ['a', 'ä\u{1f600}', '\ud800', ' ']) {
      assert.strictEqual(lab.passes(name(id + 1, value)), null);
    }
  });
});

describe('update methods of a checked engine', () => {
  const lab = new Lab(nq);
  const { engine } = lab;
  const one = ['updateAnimator', 'updateSkinningMatrix'];
  const many = ['updateAnimators', 'updateAnimatorControllers', 'updateSkinningMatrices'];
  const names = {
    updateAnimator: 'animator',
    updateSkinningMatrix: 'skinning component',
    updateAnimators: 'animator',
    updateAnimatorControllers: 'controller',
    updateSkinningMatrices: 'skinning component',
  };
  // Slot 1 of all three kinds is taken by another kind alone.
  const { id } = lab.entities();

  for (const method of one) {
    it(`refuses an unknown handle in ${method}`, () => {
      for (const [value, found] of noNumbers) {
        lab.refuses(() => engine[method](value), TypeError, method, `handle is ${found}`);
      }
      const words = [`${id} names no ${names[method]}`, 'it is the handle of an entity'];
      lab.refuses(() => engine[method](id), RangeError, method, ...words);
      lab.refuses(() => engine[method](0), RangeError, method, '0 names no');
      assert.strictEqual(nq.getEngine()[method](id), null);
    });
  }

  for (const method of many) {
    it(`refuses values that are not a batch in ${method}`, () => {
      const call =
        (...args) =>
        () =>
          engine[method](...args);
      const shared = new SharedArrayBuffer(8);
      for (const value of [undefined, null, 7, 'a', [1, id], shared, ...hostileObjects()]) {
        lab.refuses(call(value), TypeError, method, 'handles is', 'ArrayBuffer');
      }
      for (const size of [0, 1, 3]) {
        lab.refuses(call(new ArrayBuffer(size)), RangeError, method, `handles has ${size} bytes`);
      }
      const short = Uint32Array.of(2, id);
      lab.refuses(call(short), RangeError, method, 'count of handles is 2', '8 bytes hold 1');
      lab.refuses(call(Uint32Array.of(0x3fffffff)), RangeError, 'count of handles is 1073741823');
      lab.refuses(call(counted(id)), RangeError, 'entry 0', `${id} names no ${names[method]}`);
      const view = new Uint32Array(2);
      detach(view.buffer);
      lab.refuses(call(view), RangeError, method, 'transferred');
    });

    it(`accepts an empty batch in ${method}`, () => {
      for (const data of [new ArrayBuffer(4), new Uint32Array(3), new Uint8Array(7)]) {
        assert.strictEqual(
          lab.passes(() => engine[method](data)),
          null
        );
      }
    });
  }
});

describe('buffers with overridden properties, in a checked engine', () => {
  const lab = new Lab(flow || nq);
  const { engine } = lab;
  const { id } = lab.entities(3);
  const clip = lab.clip();
  const binding = lab.binding([[clip.id, [id, id + 1]]]);
  const controller = lab.controller(binding.id, [[2, 0]]);
  const animators = [0, 1].map((i) => lab.animator([[clip.id]], [id + i]));
  const batch = animators.map((animator) => animator.id);

  /** Properties that hide the real range of a view: another buffer, longer and valid. */
  const elsewhere = (...words) => ({
    buffer: Uint32Array.from(words).buffer,
    byteOffset: 0,
    byteLength: 4 * words.length,
    length: words.length,
  });

  it('are measured by the bytes that native code reads', () => {
    const short = () => Uint32Array.of(2, batch[0]);
    class Longer extends Uint32Array {
      get byteLength() {
        return 12;
      }
      get buffer() {
        return elsewhere(2, ...batch).buffer;
      }
    }
    for (const handles of [
      claiming(short(), elsewhere(2, ...batch)),
      claiming(new DataView(short().buffer), elsewhere(2, ...batch)),
      claiming(short().buffer, { byteLength: 12 }),
      Longer.from(short()),
    ]) {
      const call = () => engine.updateAnimators(handles);
      lab.refuses(call, RangeError, 'count of handles is 2, and its 8 bytes hold 1');
    }
    const sound = clipBytes();
    const broken = new Uint8Array(sound.slice(0, -4));
    claiming(broken, { buffer: sound, byteOffset: 0, byteLength: sound.byteLength });
    lab.refuses(() => engine.createDataModel(1, broken), RangeError, 'keys end at byte');
    const [buffer, ...rest] = targetLists([[clip.id, [id, id + 1]]]);
    const cut = () => claiming(buffer.slice(0, -4), { byteLength: buffer.byteLength });
    const create = () => engine.createAnimationClipBinding(cut(), ...rest, 1);
    lab.refuses(create, RangeError, 'buffer has 12 bytes');
    const update = () => binding.updateBinding(cut(), ...rest, 0, 0, 0);
    lab.refuses(update, RangeError, 'buffer has 12 bytes');
    const mask = claiming(new ArrayBuffer(4), { byteLength: 8 });
    lab.refuses(() => controller.setMaskAtIndex(0, mask, 0, 1), RangeError, 'has 4 bytes');
    const list = claiming(Uint32Array.of(2, id).buffer, { byteLength: 12 });
    const cull = () => engine.frustumCulling(...frustum, list);
    lab.refuses(cull, RangeError, 'count of list is 2, and its 8 bytes');
  });

  it('are accepted if only the overridden properties are wrong', () => {
    const nothing = { buffer: null, byteOffset: -1, byteLength: 0, length: 0 };
    const handles = Uint32Array.of(2, ...batch);
    lab.passes(() => engine.updateAnimators(claiming(handles, nothing)));
    lab.passes(() => engine.updateAnimators(claiming(counted(...batch), { byteLength: 0 })));
    lab.passes(() => engine.createDataModel(1, claiming(new Uint8Array(clipBytes()), nothing)));
    const [buffer, ...rest] = targetLists([[clip.id, [id, id + 1]]]);
    claiming(buffer, { byteLength: 0 });
    lab.passes(() => engine.createAnimationClipBinding(buffer, ...rest, 1));
  });

  it('are refused when they are detached', () => {
    const view = new DataView(new ArrayBuffer(64));
    detach(view.buffer);
    lab.refuses(() => engine.createDataModel(2, view), RangeError, 'data', 'transferred');
  });

  it('may be buffers of the engine', () => {
    const own = checked((flow || nq).getEngine());
    const result = claiming(own.cullingResult, { byteLength: 7, slice: null });
    assert.strictEqual(own.frustumCullingV2(...frustum), false);
    assert.strictEqual(own.cullingResult, result);
    detach(result);
    assert.strictEqual(own.frustumCullingV2(...frustum), false);
    assert.strictEqual(own.cullingResult.byteLength, 8008);
    if (flow !== null) {
      const buffer = own.createMatrixFlowCommandBuffer(64);
      if (!inWasm) {
        claiming(buffer.buffer, { byteLength: 7, slice: null, constructor: null });
      }
      const words = over(Uint32Array, buffer);
      words.set([20, 1000, buffer.memoryID, 40, buffer.memoryID, 0]);
      assert.strictEqual(buffer.execute(), 0);
      assert.strictEqual(words[10], 20);
    }
  });
});

describe('objects of a checked engine', () => {
  it('are released when JavaScript drops them, and their handles are then refused', async () => {
    const engine = checked(nq.getEngine());
    const dirty = over(Uint32Array, engine.dirtyEntities);
    const kept = engine.createEntity(true, 2);
    const id = (() => engine.createEntity(true, 3).id)();
    dirty.set([2, kept.id, id]);
    const isMissed = () => {
      try {
        dirty[0] = 2;
        engine.refreshWorldTransform();
        return false;
      } catch (error) {
        assert(error instanceof RangeError);
        assert(error.message.includes(`entry 2: ${id} names no entity`), error.message);
        assert(error.message.includes('collected: keep what createEntity returned'), error.message);
        return true;
      }
    };
    assert(await collectUntil(isMissed));
    dirty[0] = 1;
    assert.strictEqual(engine.refreshWorldTransform(), null);
  });

  it('release their handles and memory', async () => {
    const engine = checked(nq.getEngine());
    const seen = new Set();
    const first = (() => engine.createComponent(1, 10).id)();
    const isReused = () => {
      const { id } = engine.createComponent(1, 20);
      const again = seen.has(id) || id === first;
      seen.add(id);
      return again;
    };
    assert(await collectUntil(isReused));
  });

  it('keep their memory while an update reads it', async () => {
    const lab = new Lab(nq);
    const entity = lab.entities();
    const clip = lab.clip();
    const animator = lab.animator([[clip.id]], [entity.id]);
    await collect();
    lab.passes(() => lab.engine.updateAnimator(animator.id));
    assert.strictEqual(over(Float32Array, entity)[5], 1);
  });

  it('unlink their children in the model of links', async () => {
    const lab = new Lab(nq);
    const { engine } = lab;
    const child = lab.entities();
    const parent = (() => {
      const { id } = engine.createEntity(true);
      lab.run([2, id, child.id]);
      return id;
    })();
    lab.refusesCommands([[1, child.id]], RangeError, `${child.id} has the parent ${parent}`);
    const isFree = () => {
      try {
        lab.run([1, child.id]);
        return true;
      } catch (error) {
        assert(error.message.includes('has the parent'), error.message);
        return false;
      }
    };
    assert(await collectUntil(isFree));
  });

  it('and their engines are collected', async () => {
    const count = 20;
    let gone = 0;
    for (let i = 0; i < count; ++i) {
      const engine = checked(nq.getEngine());
      engine.createEntity(true, 100);
      onCollected(engine, () => ++gone);
    }
    assert(await collectUntil(() => gone >= count - 1));
  });
});

describe('arguments of a culling call', () => {
  it('are named in error messages', () => {
    const lab = new Lab(nq);
    const args = frustum.slice(0, 6);
    const call = () => lab.engine.frustumCulling(...args);
    lab.refuses(call, TypeError, 'frustumCulling', 'target z is missing, argument 7', 'all 14');
  });
});
