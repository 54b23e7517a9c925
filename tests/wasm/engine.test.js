'use strict';
// What differs in WebAssembly: blocks, the memory of a fixed size, the end of an engine, release, and loading.
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { spawnSync } = require('child_process');
const { pathToFileURL } = require('url');
const { methods } = require('../script/support/surface');
const nq = require('../../lib');
const { getVersion, load, loadSync } = require('../../lib/wasm');

const kLeast = 4 * 1024 * 1024;
const file = process.env.NQ_WASM_MODULE || path.join(__dirname, '../../build/Wasm/nq_logic.wasm');

/** Collects garbage until `done()` is true. */
async function collectUntil(done) {
  for (let i = 0; i < 30 && !done(); ++i) {
    gc();
    await new Promise((resolve) => setTimeout(resolve, 2));
  }
  return done();
}

/** An engine and the text that it logs. */
function listen(options) {
  const lines = [];
  return { lines, engine: loadSync({ log: (text) => lines.push(text), ...options }) };
}

describe('the engine in WebAssembly', () => {
  it('has the classes and methods of the native module, and command buffers', () => {
    const engine = loadSync();
    const made = {
      Engine: engine,
      EngineEntity: engine.createEntity(true, 1),
      EngineComponent: engine.createComponent(1),
      EngineDataModel: engine.createDataModel(1, new Uint8Array(8)),
      EngineAnimatorControllerModel: engine.createAnimatorControllerModel(1),
      EngineAnimatorControllerStateModel: engine.createAnimatorControllerStateModel(1),
    };
    for (const name of Object.keys(made)) {
      const more = name === 'Engine' ? ['createMatrixFlowCommandBuffer', 'dispose'] : ['dispose'];
      assert.strictEqual(made[name].constructor.name, name);
      assert.deepStrictEqual(Object.keys(Object.getPrototypeOf(made[name])), [
        ...methods[name],
        ...more,
      ]);
    }
    assert.deepStrictEqual(getVersion(), { version: '138' });
    assert.deepStrictEqual(Object.keys(made.EngineEntity), ['id', 'block', 'memoryID']);
    assert.strictEqual(made.EngineEntity.id, 4096);
  });

  it('returns what the native module returns for rejected arguments', () => {
    const engine = loadSync();
    assert.strictEqual(engine.createEntity(true, 4096).id, 0);
    assert.strictEqual(engine.createEntity(true, 4096).block, undefined);
    assert.strictEqual(engine.createComponent(7), null);
    assert.strictEqual(engine.createComponent(2, 1), null);
    assert.strictEqual(engine.createDataModel(1), null);
    assert.strictEqual(engine.createDataModel(3, new Uint8Array(4)).id, 0);
    assert.strictEqual(engine.createAnimationClipBinding(new Uint32Array(9), 0, 1, 2, 1), null);
    assert.strictEqual(engine.createAnimationClipBinding(new ArrayBuffer(11), 0, 1, 2, 1), null);
    assert.strictEqual(engine.createAnimatorControllerModel(), null);
    assert.strictEqual(engine.createAnimatorControllerModel(0).id, 0);
    assert.strictEqual(engine.setEntityName(7, 'a'), null);
    assert.strictEqual(engine.updateAnimators(new Uint32Array([2, 1])), null);
    assert.strictEqual(engine.frustumCullingV2(1, 0, 0, 0), null);
    assert.strictEqual(engine.createMatrixFlowCommandBuffer(8).execute(), 0);
  });

  it('offers blocks as typed arrays over one memory, which code for buffers does not misread', () => {
    const engine = loadSync();
    const entity = engine.createEntity(true, 3);
    const { u8, u32, f32, buffer, byteOffset, byteLength } = entity.block;
    assert.strictEqual(byteLength, 324);
    assert.deepStrictEqual([u8.length, u32.length, f32.length], [324, 81, 81]);
    assert([u8, u32, f32].every((one) => one.buffer === buffer && one.byteOffset === byteOffset));
    assert.strictEqual(buffer === engine.dirtyEntities.buffer, true);
    assert.throws(() => entity.buffer, /^TypeError: EngineEntity\.buffer: .*use block\.f32/);
    assert.strictEqual(Object.getPrototypeOf(entity).buffer, undefined);
    for (const other of [7, null, {}, engine]) {
      assert.throws(
        () => nq.blockFloats(other),
        /^TypeError: blockFloats: got .*, without memory: give an object of an engine with a block/
      );
    }
    assert.throws(
      () => new Float32Array(entity.block),
      /not an ArrayBuffer, .*use its typed arrays/
    );
    assert.throws(() => new Uint32Array(engine.dirtyEntities), /not an ArrayBuffer/);
    assert.throws(() => [...engine.entityCommands], /not an ArrayBuffer/);
    assert.deepStrictEqual(nq.blockFloats(entity), f32);
    assert.deepStrictEqual(nq.blockWords(engine.cullingResult).length, 2002);
  });

  it('takes blocks where the native module takes an ArrayBuffer', () => {
    const engine = loadSync();
    const objects = new nq.CullingObjectsView(engine.createComponent(1, 2));
    const entity = new nq.Entity3DView(engine.createEntity(true, 1));
    entity.reset(0);
    entity.setPosition(0, 0, 0, -5);
    new nq.EntityCommandWriter(engine).addRoot(entity.id);
    new nq.DirtyListWriter(engine).append(entity.id);
    engine.refreshWorldTransform();
    [0, 1].forEach((i) => {
      objects.setEnabled(i, true);
      objects.setMask(i, 1);
      objects.setSphere(i, 0, 0, 0, 1);
      objects.setEntity(i, entity.id);
    });
    const list = engine.createMatrixFlowCommandBuffer(8);
    list.block.u32.set([1, objects.handle(1)]);
    const camera = [1, 0, 0, 0, 0, 0, -1, 0, 1, 0, 1, 1, 0.1, 100];
    const seen = (...more) =>
      Array.from(new Uint32Array(engine.frustumCulling(...camera, ...more).objects));
    assert.deepStrictEqual(seen(list.block), [objects.handle(1)]);
    assert.deepStrictEqual(seen(list.block.u32).length, 2, 'a typed array is ignored, as natively');
    assert.deepStrictEqual(seen(Uint32Array.of(1, objects.handle(0)).buffer), [objects.handle(0)]);
  });

  it('refuses objects that do not fit its memory, goes on, and reuses what is disposed of', () => {
    const engine = loadSync({ memory: kLeast });
    const kept = [];
    const makeMany = () => {
      for (;;) {
        kept.push(engine.createEntity(true, 100));
      }
    };
    assert.throws(makeMany, {
      name: 'RangeError',
      code: 'ERR_NQ_MEMORY',
      message: /^Engine\.createEntity: the memory of 4 MiB is full: .*larger one/,
    });
    assert(kept.length > 10, `${kept.length}`);
    const { length } = engine.dirtyEntities.u32;
    engine.refreshWorldTransform();
    kept.splice(0, 10).forEach((one) => one.dispose());
    kept.push(engine.createEntity(true, 100));
    assert(kept[kept.length - 1].id !== 0);
    assert.strictEqual(engine.dirtyEntities.u32.length, length, 'typed arrays stay attached');
  });

  it('releases what is collected or disposed of', async () => {
    const engine = loadSync({ memory: kLeast });
    const first = engine.createEntity(true, 1);
    assert.strictEqual(first.id, 0x1000);
    first.dispose();
    first.dispose();
    (() => assert.strictEqual(engine.createEntity(true, 1).id, 0x1000))();
    // Until it is collected, its handle is not reused.
    const ids = [];
    const reused = () => {
      const made = engine.createEntity(true, 1);
      ids.push(made.id);
      made.dispose();
      return made.id === 0x1000;
    };
    assert(await collectUntil(reused), `${ids}`);
  });

  it('releases what is collected after another engine was collected with its objects', async () => {
    const engine = loadSync({ memory: kLeast });
    let other = { engine: loadSync({ memory: kLeast }) };
    (() => other.engine.createEntity(true, 1))();
    await new Promise(setImmediate);
    // The object is found first, and the engine before anything can be released.
    gc();
    other = null;
    gc();
    gc();
    await new Promise(setImmediate);
    (() => assert.strictEqual(engine.createEntity(true, 1).id, 0x1000))();
    const reused = () => {
      const made = engine.createEntity(true, 1);
      made.dispose();
      return made.id === 0x1000;
    };
    assert(await collectUntil(reused));
  });

  it('creates and drops a million objects in fixed memory', async function () {
    this.timeout(240000);
    const engine = loadSync({ memory: kLeast });
    for (let i = 0; i < 1000000; ++i) {
      const object =
        i % 3 === 0 ? engine.createComponent(1, 2) : engine.createEntity(true, 1 + (i % 5));
      object.block.u8[0] = 1;
      object.dispose();
    }
    assert.strictEqual(engine.createEntity(true, 1).id, 0x1000);
  });

  it('ends where the process would end, with the text of the assertion, and others go on', () => {
    const { engine, lines } = listen();
    const other = loadSync();
    const skin = engine.createComponent(3, 1);
    const assertion =
      /: the engine has ended: bone inverse model not found: Assertion failed: 0, file \.\.\\\.\.\\Engine\\Animation\\SkinningMatrixComponent, line 22\. Create another one\.$/;
    assert.throws(() => engine.updateSkinningMatrix(skin.id), assertion);
    assert.deepStrictEqual(lines, ['[NQ_FATAL][Engine]: bone inverse model not found\n']);
    assert.throws(() => engine.refreshWorldTransform(), assertion);
    assert.throws(() => engine.createEntity(true, 1), assertion);
    skin.dispose();
    assert.strictEqual(other.refreshWorldTransform(), null);
  });

  it('ends at arguments that natively fault or cannot be converted', () => {
    for (const end of [
      (engine) => engine.updateAnimators(null),
      (engine) => engine.updateAnimator(Symbol('no number')),
      (engine) => engine.frustumCulling(1, 0, 0, 0, 0, 0, -1, 0, 1, 0, 1, 1, 0.5, Symbol('far')),
    ]) {
      const engine = loadSync();
      assert.throws(() => end(engine), /the engine has ended: /);
      assert.throws(() => engine.refreshWorldTransform(), /the engine has ended: /);
    }
  });

  it('ends in calls whose arguments end it', () => {
    for (const call of [
      (engine, end) => engine.createEntity(true, end),
      (engine, end) => engine.updateAnimator(end),
      (engine, end) => engine.createDataModel(end, new Uint8Array(8)),
    ]) {
      const engine = loadSync({ memory: kLeast });
      const end = {
        valueOf() {
          assert.throws(() => engine.updateAnimators(null), /the engine has ended: /);
          return 1;
        },
      };
      assert.throws(
        () => call(engine, end),
        /^Error: Engine\.\w+: the engine has ended: a fault: /
      );
    }
  });

  it('ends where a frame needs more than is left', () => {
    const frames = 3000;
    const curves = [];
    for (let target = 0; target < 10; ++target) {
      const keys = Array.from({ length: frames }, (_, frame) => {
        return { frame, value: target, inTangent: 0, outTangent: 0 };
      });
      curves.push({ target, type: nq.sampleTypes.PositionX, keys });
    }
    const bytes = nq.buildClip({ framesPerSecond: 30, frameCount: frames, curves });
    const engine = loadSync({ memory: kLeast });
    const clip = engine.createDataModel(1, bytes);
    const entities = engine.createEntity(true, 10);
    const animator = new nq.AnimatorView(engine.createComponent(2, 1, 10), 1);
    animator.setClip(0, clip.id, 0, 1);
    for (let i = 0; i < 10; ++i) {
      animator.setTarget(i, entities.id + i);
    }
    const kept = [];
    assert.throws(
      () => {
        for (;;) {
          kept.push(engine.createEntity(true, 10));
        }
      },
      { code: 'ERR_NQ_MEMORY' }
    );
    // The curves are read when they are first sampled.
    const ended =
      /^Error: Engine\.\w+: the engine has ended: the memory of 4 MiB is full: \d+ bytes do not fit\. .*Create another one\.$/;
    assert.throws(() => engine.updateAnimator(animator.id), ended);
    assert.throws(() => engine.refreshWorldTransform(), ended);
    kept.forEach((one) => one.dispose());
  });

  it('takes objects of its own class only: no copies, proxies, and other classes', () => {
    const engine = loadSync();
    const entity = engine.createEntity(true, 1);
    const { createEntity } = engine;
    for (const wrong of [{}, null, entity, Object.create(engine), new Proxy(engine, {})]) {
      const call = () => createEntity.call(wrong, true, 1);
      assert.throws(call, /^TypeError: Engine.createEntity: .*, not an Engine that nq_logic\/wasm/);
    }
    assert.notStrictEqual(engine.createEntity(true, 1).id, 0);
  });

  it('knows objects by themselves, whatever their property id', () => {
    const engine = loadSync();
    const [first, second] = [engine.createEntity(true, 1), engine.createEntity(true, 1)];
    const handle = first.id;
    first.id = second.id;
    first.dispose();
    assert.strictEqual(engine.createEntity(true, 1).id & 0xfffff000, handle & 0xfffff000);
    const buffer = engine.createMatrixFlowCommandBuffer(64);
    buffer.id = 0;
    assert.strictEqual(buffer.execute(), 0);
  });

  it('takes bytes that are detached, of no length, or of hostile objects, as natively', () => {
    const { proxy, revoke } = Proxy.revocable({}, {});
    revoke();
    const detached = (Type) => {
      const view = new Type(new ArrayBuffer(8));
      structuredClone(view.buffer, { transfer: [view.buffer] });
      return view;
    };
    const named = new ArrayBuffer(64);
    named.buffer = 1;
    const engine = loadSync();
    for (const bytes of [
      detached(DataView),
      detached(Uint8Array),
      proxy,
      named,
      new Proxy([], {}),
    ]) {
      assert.notStrictEqual(engine.createDataModel(2, bytes).id, 0);
    }
    assert.strictEqual(engine.createAnimationClipBinding(proxy, 0, 1, 1, 0), null);
    const camera = [1, 0, 0, 5, 0, 0, 0, 0, 1, 0, 1, 1, 1, 100];
    assert.strictEqual(engine.frustumCulling(...camera, proxy), null);
    const empty = new Uint32Array(new ArrayBuffer(8), 4, 0);
    assert.strictEqual(engine.updateAnimators(empty), null);
    assert.strictEqual(engine.updateSkinningMatrices(empty), null);
    for (const nothing of [detached(DataView), new ArrayBuffer(0), new Uint32Array(0)]) {
      assert.throws(() => loadSync().updateAnimators(nothing), /the engine has ended: a fault/);
    }
  });

  it('refuses what is refused natively, however full its memory is', () => {
    const engine = loadSync({ memory: kLeast });
    for (const args of [
      [2, 0, 0x20000000],
      [2, 0x20000000, 0],
      [1, 4096],
      [1, -1],
    ]) {
      assert.strictEqual(engine.createComponent(...args).id, 0, `${args}`);
    }
    const kept = [];
    assert.throws(() => {
      for (;;) {
        kept.push(engine.createEntity(true, 200));
      }
    }, RangeError);
    assert.strictEqual(engine.createEntity(true, 4096).id, 0);
    assert.strictEqual(engine.createEntity(true, -1).id, 0);
    assert.throws(() => engine.createMatrixFlowCommandBuffer(-1), RangeError);
    // Names take memory, too: too many are refused, and the engine goes on.
    const name = (i) => engine.setEntityName(kept[i % 3].id + (i % 200), 'x'.repeat(9000));
    assert.throws(() => {
      for (let i = 0; i < 600; ++i) {
        name(i);
      }
    }, RangeError);
    assert.strictEqual(engine.refreshWorldTransform(), null);
  });

  it('copies arguments above 2 GiB of its memory', () => {
    const engine = loadSync({ memory: 2 ** 31 + 2 ** 26 });
    const kept = [2 ** 30 - 2 ** 20, 2 ** 30 - 2 ** 20, 2 ** 22].map((size) =>
      engine.createMatrixFlowCommandBuffer(size)
    );
    assert(kept.every(({ id }) => id !== 0));
    const more = engine.createMatrixFlowCommandBuffer(2 ** 22);
    assert(more.block.byteOffset > 2 ** 31, `${more.block.byteOffset}`);
    const list = new Uint32Array(3000);
    list[0] = 2999;
    assert.strictEqual(engine.updateAnimators(list), null);
    engine.dispose();
  });

  it('logs the lines of the native module', () => {
    const { engine, lines } = listen();
    const buffer = engine.createMatrixFlowCommandBuffer(64);
    buffer.block.u32.set([4, 4321]);
    assert.strictEqual(buffer.execute(), 3);
    assert.deepStrictEqual(lines, ['[NQ_FATAL][MatrixFlow]: Command type invalid, type: 4321\n']);
    // A text without a line feed does not wait for the next one.
    buffer.block.u32.set([28, 2001, 9999, 0, 9999, 0, 9999, 0]);
    assert.strictEqual(buffer.execute(), 4);
    assert.strictEqual(lines.length, 2);
    assert(lines[1].endsWith('Memory Error (id, offset, len) not match'), lines[1]);
  });

  it('throws after it was disposed of', () => {
    const engine = loadSync();
    const entity = engine.createEntity(true, 1);
    engine.dispose();
    assert.throws(
      () => engine.refreshWorldTransform(),
      /the engine was disposed of\. Create another one/
    );
    entity.dispose();
  });

  it('loads from a path, bytes, a compiled module, or a response', async () => {
    const bytes = fs.readFileSync(file);
    const sources = [undefined, file, bytes, new WebAssembly.Module(bytes), Promise.resolve(bytes)];
    if (typeof Response === 'function') {
      sources.push(new Response(bytes));
      await assert.rejects(load({ module: new Response('', { status: 404 }) }), /status 404/);
    }
    if (typeof fetch === 'function') {
      sources.push(`data:application/wasm;base64,${bytes.toString('base64')}`);
    }
    sources.push(pathToFileURL(file));
    for (const module of sources) {
      const engine = await load({ module, memory: kLeast });
      assert.strictEqual(engine.createEntity(true, 1).id, 0x1000);
      assert.strictEqual(engine.dirtyEntities.buffer.byteLength, kLeast);
    }
  });

  it('says that there is no module, and loads it once there is one', () => {
    const program = `
      const fs = require('fs');
      const { load, loadSync } = require('./wasm');
      const say = (error) => console.log([error.code, error.message].join(' '));
      (async () => {
        const there = process.env.NQ_WASM_MODULE;
        process.env.NQ_WASM_MODULE = 'no/such.wasm';
        await load().catch(say);
        try { loadSync(); } catch (error) { say(error); }
        delete process.env.NQ_WASM_MODULE;
        const { existsSync } = fs;
        fs.existsSync = () => false;
        await load().catch(say);
        fs.existsSync = existsSync;
        process.env.NQ_WASM_MODULE = there;
        console.log((await load()).createEntity(true, 1).id, loadSync().createEntity(true, 1).id);
      })();`;
    const env = Object.assign({}, process.env, { NQ_WASM_MODULE: file });
    const cwd = path.join(__dirname, '../..');
    const { stdout, stderr } = spawnSync(process.execPath, ['-e', program], {
      cwd,
      env,
      encoding: 'utf8',
    });
    const lines = stdout.trim().split('\n');
    assert.strictEqual(lines.length, 4, `${stdout}${stderr}`);
    const absent =
      /^ERR_NQ_LOAD nq_logic\/wasm: there is no '.*such\.wasm', named by NQ_WASM_MODULE: correct or unset/;
    assert(absent.test(lines[0]) && absent.test(lines[1]), stdout);
    const neither =
      /^ERR_NQ_LOAD nq_logic\/wasm: there is no '.*' or '.*prebuilds.*': build it in the sources/;
    assert(neither.test(lines[2]), stdout);
    assert.strictEqual(lines[3], '4096 4096');
  });

  it('says that the system lacks memory', async () => {
    const { Memory } = WebAssembly;
    WebAssembly.Memory = function () {
      throw new RangeError('could not allocate memory');
    };
    try {
      await assert.rejects(load({ memory: kLeast }), {
        name: 'RangeError',
        message:
          "load: this system has no 4194304 bytes of memory (could not allocate memory): give a smaller 'memory'.",
      });
    } finally {
      WebAssembly.Memory = Memory;
    }
  });

  it('refuses options that are no options', async () => {
    await assert.rejects(load(null), /^TypeError: load: options is null: give an object\.$/);
    assert.throws(() => loadSync(7), /^TypeError: load: options is 7: give an object\.$/);
    await assert.rejects(
      load({ memory: 100 }),
      /^RangeError: load: memory is 100: give a number of bytes/
    );
    await assert.rejects(load({ log: 7 }), /^TypeError: load: log is 7/);
    await assert.rejects(load({ module: 7 }), /^TypeError: load: module is 7/);
    assert.throws(() => loadSync({ module: 'x' }), /^TypeError: loadSync: module is 'x'/);
  });

  it('works in checked mode', () => {
    const engine = nq.checked(loadSync());
    const entities = new nq.Entity3DView(engine.createEntity(true, 2));
    [0, 1].forEach((i) => entities.reset(i));
    const commands = new nq.EntityCommandWriter(engine);
    commands.addRoot(entities.handle(0));
    commands.addChild(entities.handle(0), entities.handle(1));
    new nq.DirtyListWriter(engine).appendRange(entities.id, 2);
    engine.refreshWorldTransform();
    assert.strictEqual(entities.worldMatrix(1, new Float32Array(16))[0], 1);
    commands.addChild(entities.handle(0), 77);
    assert.throws(() => engine.refreshWorldTransform(), /77/);
  });

  it('takes blocks as lists in checked mode', () => {
    const engine = nq.checked(loadSync());
    const keys = [{ frame: 0, value: 5, inTangent: 0, outTangent: 0 }];
    const curves = [{ target: 0, type: nq.sampleTypes.PositionX, keys }];
    const bytes = nq.buildClip({ framesPerSecond: 30, frameCount: 1, curves });
    const clip = engine.createDataModel(1, bytes);
    const entity = engine.createEntity(true, 1);
    const memory = engine.createMatrixFlowCommandBuffer(64);
    memory.block.u32.set([clip.id, 1, entity.id]);
    const binding = engine.createAnimationClipBinding(memory.block, 0, 1, 3, 1);
    assert.strictEqual(binding.updateBinding(memory.block, 0, 1, 3, 0, 0, 1), true);
    memory.block.u32[2] = 77;
    assert.throws(() => binding.updateBinding(memory.block, 0, 1, 3, 0, 0, 1), /77/);
    const controller = engine.createAnimatorControllerModel(1);
    memory.block.u32.set([entity.id, 0]);
    assert.strictEqual(controller.setMaskAtIndex(0, memory.block, 0, 1), null);
    memory.block.u32[0] = 78;
    assert.throws(() => controller.setMaskAtIndex(0, memory.block, 0, 1), /78/);
  });

  it('disposes of objects in checked mode, and names those that are used afterwards', () => {
    const engine = nq.checked(loadSync({ memory: kLeast }));
    const roots = new nq.Entity3DView(engine.createEntity(true, 1));
    const child = engine.createEntity(true, 2);
    const commands = new nq.EntityCommandWriter(engine);
    commands.addRoot(roots.id);
    commands.addChild(roots.id, child.id);
    engine.refreshWorldTransform();
    const { id } = child;
    child.dispose();
    child.dispose();
    const words = `${id} names no entity: the object that it came with was disposed of: dispose of it when`;
    assert.throws(() => engine.setEntityName(id + 1, 'child'), {
      name: 'RangeError',
      message: new RegExp(words.replace(id, id + 1)),
    });
    commands.addChild(roots.id, id);
    assert.throws(() => engine.refreshWorldTransform(), new RegExp(words));
    engine.entityCommands.u32[0] = 0; // none
    engine.refreshWorldTransform();
    // Its handle is that of the next object, which has nothing to do with it.
    const next = engine.createEntity(true, 2);
    assert.strictEqual(next.id, id);
    child.dispose();
    engine.setEntityName(id, 'next');

    const controller = engine.createAnimatorControllerModel(1);
    controller.dispose();
    const update = () => controller.update(0.1, new ArrayBuffer(4));
    assert.throws(update, /^TypeError: update: its receiver was disposed of: dispose of it when/);
    engine.dispose();
    assert.throws(() => engine.createEntity(true, 1), /the engine was disposed of/);
  });

  it('disposes of a million entities in checked mode in fixed memory', function () {
    this.timeout(240000);
    const engine = nq.checked(loadSync({ memory: kLeast }));
    for (let i = 0; i < 20000; ++i) {
      engine.createEntity(true, 50).dispose();
    }
    assert.strictEqual(engine.createEntity(true, 1).id, 0x1000);
  });

  it('says in checked mode, too, what to use instead of the property buffer', () => {
    const entity = nq.checked(loadSync()).createEntity(true, 1);
    assert.throws(() => entity.buffer, /^TypeError: EngineEntity.buffer: .*: use block.f32/);
    assert.deepStrictEqual(Object.keys(entity), ['id', 'block', 'memoryID']);
  });
});
