'use strict';
// The checked engine on what JavaScript writes into shared memory for a frame: commands, the dirty list, culling
// records and results, and streams of command buffers.
const assert = require('assert');
const { over } = require('../support/blocks');
const fs = require('fs');
const { modulePath, inWasm, sanitized } = require('../support/host');
const { collectUntil } = require('../support/collect');
const { Lab, assertWords, counted, frustum, none, ortho } = require('../support/checked');
const { checked } = require('../../../lib/checked');
const { entity3D } = require('../../../lib/layout');
const { MatrixFlowWriter, matrixFlowResults } = require('../../../lib/commands');

const nq = require(modulePath);
const flowPath = process.env.NQ_MATRIXFLOW_MODULE;
const flow = flowPath !== undefined && fs.existsSync(flowPath) ? require(flowPath) : null;
const suite = flow === null ? describe.skip : describe;

const commandBytes = 49148;

describe('commands of a checked engine', () => {
  it('are refused if the length word is invalid', () => {
    const lab = new Lab(nq);
    const refresh = () => lab.engine.refreshWorldTransform();
    for (const length of [commandBytes + 4, 49152, none, 0x80000000]) {
      lab.commands[0] = length;
      const words = ['length word', 'entityCommands', length, `${commandBytes} bytes`];
      lab.refuses(refresh, RangeError, ...words);
    }
    for (const length of [1, 5, 10, 15]) {
      lab.commands[0] = length;
      lab.refuses(
        refresh,
        RangeError,
        `length word of entityCommands is ${length}`,
        'multiple of 4'
      );
    }
  });

  it('are refused for unknown command numbers', () => {
    const lab = new Lab(nq);
    const { id } = lab.entities();
    for (const number of [0, 12, 999, none]) {
      const words = ['entityCommands at byte 12', `no command ${number}`, '1 to 11'];
      lab.refusesCommands([[1, id], [number]], RangeError, ...words);
    }
    // Commands before it, which were verified, have not been executed.
    assert.strictEqual(lab.run([1, id]), null);
  });

  it('are refused if the stream truncates one', () => {
    const lab = new Lab(nq);
    const { id } = lab.entities(4);
    for (const [command, name, taken] of [
      [[1], 'AddRoot', 2],
      [[2, id], 'AddChild', 3],
      [[3, id, id + 1], 'InsertChild', 4],
      [[4], 'RemoveFromParent', 2],
      [[5], 'ResetSubtree', 2],
      [[6, id], 'BindToBone', 3],
      [[7, 2, id, id + 1, id + 2], 'BindToBoneBatch', 6],
      [[8], 'UnbindFromBone', 2],
      [[9, 3, id, id + 1], 'UnbindFromBoneBatch', 5],
      [[9, none, id], 'UnbindFromBoneBatch', none + 2],
      [[10], 'Activate', 2],
      [[11], 'Deactivate', 2],
    ]) {
      const words = [`byte 4, ${name}`, `ends ${command.length} words`, `${taken} that it takes`];
      lab.refusesCommands([command], RangeError, ...words);
    }
    lab.refusesCommands([[7]], RangeError, 'BindToBoneBatch', 'ends 1 words');
    lab.refusesCommands([[9]], RangeError, 'UnbindFromBoneBatch', 'ends 1 words');
  });

  it('are refused for unknown handles', () => {
    const lab = new Lab(nq);
    const { id } = lab.entities(2);
    const clip = lab.clip();
    lab.entities();
    const gone = id + 2;
    for (const [command, name, operand] of [
      [[1, gone], 'AddRoot', 'handle'],
      [[2, gone, id], 'AddChild', 'parent'],
      [[2, id, gone], 'AddChild', 'child'],
      [[3, gone, id, 0], 'InsertChild', 'parent'],
      [[3, id, gone, 0], 'InsertChild', 'child'],
      [[4, gone], 'RemoveFromParent', 'handle'],
      [[5, gone], 'ResetSubtree', 'handle'],
      [[6, gone, id], 'BindToBone', 'entity'],
      [[6, id, gone], 'BindToBone', 'bone'],
      [[7, 1, gone, id], 'BindToBoneBatch, pair 0:', 'entity'],
      [[7, 2, id, id, id + 1, gone], 'BindToBoneBatch, pair 1:', 'bone'],
      [[8, gone], 'UnbindFromBone', 'handle'],
      [[9, 2, id, gone], 'UnbindFromBoneBatch, entry 1:', 'handle'],
      [[10, gone], 'Activate', 'handle'],
      [[11, gone], 'Deactivate', 'handle'],
    ]) {
      const found = `${operand} ${gone} names no entity: the batch ${id} ends at ${id + 1}`;
      lab.refusesCommands([command], RangeError, name, found, `from ${id} to ${id + 1}`);
    }
    lab.refusesCommands([[1, 0]], RangeError, 'handle 0 names no entity');
    lab.refusesCommands([[1, none]], RangeError, `handle ${none} names no entity`);
    assert.strictEqual(clip.id, id);
  });

  it('are refused if they have no effect', () => {
    const lab = new Lab(nq);
    const { id } = lab.entities(3);
    const flat = lab.entities(1, false);
    lab.run([2, id, id + 1]);
    lab.refusesCommands([[1, id + 1]], RangeError, `${id + 1} has the parent ${id}`, 'remove it');
    lab.refusesCommands([[2, id, id]], RangeError, `parent and child are both ${id}`);
    lab.refusesCommands([[3, id, id, 0]], RangeError, `parent and child are both ${id}`);
    lab.refusesCommands([[2, id, flat.id]], RangeError, `parent ${id} is 3D`, '2D', 'InsertChild');
    lab.refusesCommands([[6, id, flat.id]], RangeError, `bone ${flat.id} 2D`, 'only a 3D');
    lab.refusesCommands([[6, flat.id, id]], RangeError, `entity ${flat.id} is 2D`, 'only a 3D');
  });

  it('may reset a subtree of any width, as in a plain engine', () => {
    const [batches, size] = [33, 4000];
    const results = [nq.getEngine(), checked(nq.getEngine())].map((engine) => {
      const commands = over(Uint32Array, engine.entityCommands);
      const run = (...words) => {
        commands.set([4 * words.length, ...words]);
        engine.refreshWorldTransform();
      };
      const top = engine.createEntity(true);
      run(1, top.id);
      const children = [];
      for (let i = 0; i < batches; ++i) {
        const batch = engine.createEntity(true, size);
        children.push(batch);
        run(...[].concat(...Array.from({ length: size }, (_, k) => [2, top.id, batch.id + k])));
      }
      run(5, top.id);
      // The top entity moves, and none of its former children does.
      const last = children[batches - 1];
      over(Float32Array, top).set([9, 0, 0, 1, 1, 1], 5);
      over(Uint32Array, engine.dirtyEntities).set([3, top.id, children[0].id, last.id + size - 1]);
      run(1, children[0].id, 1, last.id + size - 1);
      return [top, children[0], last].map((batch) => Buffer.from(over(Uint8Array, batch)));
    });
    const [plain, guarded] = results;
    assert.strictEqual(plain[0].readFloatLE(entity3D.worldMatrix + 4 * 12), 9);
    assert.strictEqual(plain[1].readFloatLE(entity3D.worldMatrix + 4 * 12), 0);
    plain.forEach((bytes, i) => assert(bytes.equals(guarded[i]), `block ${i}`));
  });

  it('are refused if they close a cycle of parents', () => {
    const lab = new Lab(nq);
    const { id } = lab.entities(5);
    const cycle = (parent, child) => `parent ${parent} is below child ${child}`;
    lab.refusesCommands(
      [
        [2, id, id + 1],
        [2, id + 1, id],
      ],
      RangeError,
      cycle(id + 1, id)
    );
    // Neither link of that stream was made.
    lab.run([2, id + 1, id]);
    lab.run([2, id + 2, id + 1], [3, id + 3, id + 2, 0]);
    lab.refusesCommands([[2, id, id + 3]], RangeError, 'byte 4, AddChild', cycle(id, id + 3));
    lab.refusesCommands([[3, id, id + 3, 0]], RangeError, 'InsertChild', cycle(id, id + 3));
    lab.refusesCommands(
      [
        [4, id],
        [2, id, id + 3],
        [2, id + 1, id],
      ],
      RangeError,
      'byte 24'
    );
    // Links that are removed first may be made in the opposite direction.
    lab.run([4, id], [2, id, id + 3]);
    lab.run([5, id], [2, id + 1, id + 2], [2, id + 2, id + 3], [2, id + 3, id]);
    lab.refusesCommands([[2, id, id + 1]], RangeError, cycle(id, id + 1));
  });

  it('are refused if they close a cycle of bone bindings', () => {
    const lab = new Lab(nq);
    const { id } = lab.entities(4);
    lab.refusesCommands([[6, id, id]], RangeError, `bone ${id} is entity ${id} itself`);
    lab.run([6, id, id + 1], [7, 1, id + 1, id + 2]);
    lab.refusesCommands([[6, id + 2, id]], RangeError, `bone ${id} follows entity ${id + 2}`);
    lab.run([8, id + 1], [6, id + 2, id]);
    lab.refusesCommands([[6, id + 1, id + 2]], RangeError, `bone ${id + 2} follows`);
    // A reset removes the bindings of both sides.
    lab.run([5, id], [6, id + 1, id + 2]);
  });

  it('are accepted if they are valid', () => {
    const lab = new Lab(nq);
    const { id } = lab.entities(6);
    const flat = lab.entities(2, false);
    for (const stream of [
      [],
      [
        [1, id],
        [1, id],
      ], // walked twice
      [
        [2, id, id + 1],
        [2, id, id + 1],
      ],
      [[3, id, flat.id, 99]], // across kinds, past the last child
      [[3, id, id + 1, none]],
      [
        [4, id],
        [4, id],
      ],
      [
        [10, id],
        [11, id],
        [11, id],
        [10, id],
      ],
      [[8, id]],
      [
        [7, 0],
        [9, 0],
      ],
      [
        [6, id + 4, id + 5],
        [6, id + 4, id + 5],
        [6, id + 4, id + 3],
      ],
      [[2, id + 1, id + 4]], // bound to a bone and below another entity
      [[2, id + 2, id]], // a root, below another entity
      [
        [5, id + 2],
        [5, id + 2],
      ],
    ]) {
      assert.strictEqual(
        lab.passes(() => lab.run(...stream)),
        null
      );
      assert.strictEqual(lab.commands[0], 0);
    }
    const full = [];
    while (full.length + 2 <= commandBytes / 4) {
      full.push(10, id);
    }
    // 12287 words: the last command takes three.
    full.splice(-2, 2, 2, id + 1, id + 4);
    assert.strictEqual(4 * full.length, commandBytes);
    lab.commands.set([commandBytes, ...full]);
    lab.passes(() => lab.engine.refreshWorldTransform());
  });

  it('are verified on a deep chain built in one stream', () => {
    const lab = new Lab(nq);
    const { id } = lab.entities(4000);
    const commands = [[1, id]];
    for (let i = 1; i < 4000; ++i) {
      commands.push([2, id + i - 1, id + i]);
    }
    lab.run(...commands);
    lab.refusesCommands([[2, id + 3999, id]], RangeError, 'closes a cycle');
  });
});

describe('dirty list of a checked engine', () => {
  const entries = 12287;

  it('is refused beyond its capacity', () => {
    const lab = new Lab(nq);
    const refresh = () => lab.engine.refreshWorldTransform();
    for (const count of [entries + 1, none]) {
      lab.dirty[0] = count;
      lab.refuses(refresh, RangeError, `count of dirtyEntities is ${count}`, entries, 'full list');
    }
  });

  it('is refused for unknown handles', () => {
    const lab = new Lab(nq);
    const { id } = lab.entities(2);
    const refresh = () => lab.engine.refreshWorldTransform();
    for (const handle of [0, none, id + 2, 8192]) {
      lab.dirty.set([2, id, handle]);
      lab.refuses(refresh, RangeError, `dirtyEntities, entry 2: ${handle} names no entity`);
    }
  });

  it('is verified with the commands, of which none then runs', () => {
    const lab = new Lab(nq);
    const { id } = lab.entities(2);
    lab.dirty.set([1, 0]);
    lab.refusesCommands([[2, id, id + 1]], RangeError, 'dirtyEntities, entry 1');
    lab.dirty[0] = 0;
    lab.run([2, id + 1, id]);
  });

  it('accepts duplicates, entities under no root, and any transform values', () => {
    const lab = new Lab(nq);
    const entities = lab.entities(2);
    const { id } = entities;
    over(Float32Array, entities).fill(NaN);
    over(Float32Array, entities)[30] = Infinity;
    lab.dirty.set([4, id, id, id + 1, id]);
    assert.strictEqual(
      lab.passes(() => lab.run([1, id])),
      null
    );
    lab.dirty.fill(id + 1).set([entries]);
    lab.passes(() => lab.engine.refreshWorldTransform());
  });

  it('accepts entries that native code appended, even of collected entities', async () => {
    const lab = new Lab(nq);
    const { engine } = lab;
    const bone = lab.entities();
    over(Float32Array, bone).set([1, 1, 1], 8);
    const id = (() => {
      const follower = engine.createEntity(true);
      lab.dirty.set([1, bone.id]);
      lab.run([1, bone.id], [6, follower.id, bone.id]);
      return follower.id;
    })();
    assert.deepStrictEqual(Array.from(lab.dirty.subarray(0, 2)), [1, id]);
    const isGone = () => {
      try {
        engine.setEntityName(id, 'there');
        return false;
      } catch (error) {
        return true;
      }
    };
    assert(await collectUntil(isGone));
    const list = lab.dirty.slice(0, 2);
    // Appended again from JavaScript, it is refused.
    lab.dirty.set([2, id, id]);
    lab.refuses(() => engine.refreshWorldTransform(), RangeError, `entry 2: ${id} names no entity`);
    lab.dirty.set(list);
    assert.strictEqual(
      lab.passes(() => engine.refreshWorldTransform()),
      null
    );
  });
});

/** Objects of which each is seen. */
function visible(lab, count) {
  const entity = lab.entities();
  const floats = over(Float32Array, entity);
  floats.set([1, 1, 1], 8);
  lab.dirty.set([1, entity.id]);
  lab.run([1, entity.id]);
  const objects = lab.keep(lab.engine.createComponent(1, count));
  const view = over(DataView, objects);
  for (let i = 0; i < count; ++i) {
    view.setUint8(28 * i, 1);
    view.setUint32(28 * i + 4, 1, true);
    view.setFloat32(28 * i + 20, 1, true);
    view.setUint32(28 * i + 24, entity.id, true);
  }
  return { entity, objects, view };
}

for (const [method, args, names] of [
  ['cullWithCamera', frustum, ['fov', 'aspect', 'near', 'far']],
  ['frustumCulling', frustum, ['fov', 'aspect', 'near', 'far']],
  ['frustumCullingV2', frustum, ['fov', 'aspect', 'near', 'far']],
  ['orthoCulling', ortho, ['left', 'right', 'bottom', 'top', 'near', 'far']],
  ['orthoCullingV2', ortho, ['left', 'right', 'bottom', 'top', 'near', 'far']],
]) {
  describe(`${method} of a checked engine`, () => {
    const lab = new Lab(nq);
    const { engine } = lab;
    const { entity, objects, view } = visible(lab, 3);
    const call =
      (...given) =>
      () =>
        engine[method](...given);
    const all = ['mask'];
    for (const vector of ['eye', 'target', 'up']) {
      all.push(`${vector} x`, `${vector} y`, `${vector} z`);
    }
    all.push(...names);

    it('refuses missing and wrong arguments by name', () => {
      all.forEach((name, i) => {
        const found = `${name} is missing, argument ${i + 1}`;
        lab.refuses(call(...args.slice(0, i)), TypeError, method, found, `all ${all.length}`);
        for (const value of [undefined, null, '1', BigInt(1), {}]) {
          const given = args.slice();
          given[i] = value;
          lab.refuses(call(...given), TypeError, `${method}: ${name} is`, 'give a');
        }
      });
      for (const mask of [NaN, 0.5, 2 ** 32, -(2 ** 31) - 1]) {
        lab.refuses(call(mask, ...args.slice(1)), RangeError, `mask is ${mask}`);
      }
    });

    it('refuses lists that native code would ignore', () => {
      const handles = Uint32Array.of(1, objects.id);
      for (const list of [handles, [1, objects.id], 7, {}, new SharedArrayBuffer(8)]) {
        lab.refuses(call(...args, list), TypeError, `${method}: list is`, 'only an ArrayBuffer');
      }
      const more = call(...args, handles.buffer, 1);
      lab.refuses(more, TypeError, `${args.length + 2} arguments`, 'list is ignored');
    });

    it('refuses lists that are too short, or name unknown objects', () => {
      for (const size of [0, 3]) {
        lab.refuses(call(...args, new ArrayBuffer(size)), RangeError, `list has ${size} bytes`);
      }
      const list = (...words) => Uint32Array.from(words).buffer;
      lab.refuses(call(...args, list(0)), RangeError, 'count of list is 0', 'at least one');
      lab.refuses(call(...args, list(0, 1)), RangeError, 'count of list is 0', 'from 1 to 1');
      lab.refuses(call(...args, list(2, 1)), RangeError, 'count of list is 2', 'hold 1 handles');
      lab.refuses(call(...args, list(none, 1)), RangeError, `count of list is ${none}`);
      for (const handle of [0, 8192, objects.id + 3]) {
        const words = [`list, entry 1: ${handle} names no culling object`];
        lab.refuses(call(...args, counted(objects.id, handle)), RangeError, ...words);
      }
    });

    it('refuses an object without an entity, if it would be tested', () => {
      const at = 28 + 24;
      const flat = lab.entities(1, false);
      view.setUint32(at, flat.id, true);
      const label = `${method}: culling object ${objects.id + 1}, entity ${flat.id}`;
      lab.refuses(call(...args), RangeError, label, 'is 2D', 'disable it');
      for (const handle of [0, none, entity.id + 1]) {
        view.setUint32(at, handle, true);
        const words = [`object ${objects.id + 1}, entity ${handle} names no entity`];
        lab.refuses(call(...args), RangeError, ...words);
        lab.refuses(call(...args, counted(objects.id + 1)), RangeError, ...words);
        // Not in the list, of another layer, or disabled.
        lab.passes(call(...args, counted(objects.id, objects.id + 2)));
        lab.passes(call(2, ...args.slice(1)));
        view.setUint8(28, 0);
        lab.passes(call(...args));
        view.setUint8(28, 1);
      }
      view.setUint32(at, entity.id, true);
    });

    it('accepts any camera numbers, and lists with duplicates', () => {
      for (const mask of [0, -1, -(2 ** 31), 0xffffffff]) {
        lab.passes(call(mask, ...args.slice(1)));
      }
      for (let i = 1; i < args.length; ++i) {
        for (const value of [NaN, Infinity, -0]) {
          const given = args.slice();
          given[i] = value;
          lab.passes(call(...given));
        }
      }
      lab.passes(call(...args, undefined));
      lab.passes(call(...args, null));
      const long = Uint32Array.of(2, objects.id, objects.id, 0, 0);
      const result = lab.passes(call(...args, long.buffer));
      const shown = typeof result === 'object' ? result.objects : engine.cullingResult.slice(8, 16);
      assert.deepStrictEqual(new Uint32Array(shown), Uint32Array.of(objects.id, objects.id));
    });
  });
}

describe('"cullingResult" of a checked engine', () => {
  it('keeps what JavaScript writes until a call finds visible objects', () => {
    const lab = new Lab(nq);
    const { engine } = lab;
    visible(lab, 2);
    const words = over(Uint32Array, engine.cullingResult);
    assert.strictEqual(engine.frustumCullingV2(...frustum), false);
    assert.strictEqual(words[1], 2);
    words[1] = 0;
    words[500] = 77;
    assert.strictEqual(engine.frustumCullingV2(0, ...frustum.slice(1)), false);
    assert.deepStrictEqual([words[1], words[500]], [0, 77]);
    assert.strictEqual(engine.orthoCullingV2(...ortho), false);
    assert.deepStrictEqual([words[1], words[500]], [2, 77]);
  });

  it('loses its bytes when a larger one replaces it', () => {
    const lab = new Lab(nq);
    const { engine } = lab;
    visible(lab, 1001);
    const old = engine.cullingResult;
    const words = new Uint32Array(old);
    assert.strictEqual(engine.cullingResult, old);
    assert.strictEqual(engine.frustumCullingV2(...frustum), true);
    assert.notStrictEqual(engine.cullingResult, old);
    assert.strictEqual(engine.cullingResult.byteLength, 8 + 8 * (1001 + 480));
    assert.strictEqual(over(Uint32Array, engine.cullingResult)[1], 1001);
    assert.deepStrictEqual([old.byteLength, words.length, words[1]], [0, 0, undefined]);
    assert.throws(() => new Uint32Array(old), TypeError);
    assert.strictEqual(engine.frustumCullingV2(...frustum), false);
  });
});

suite('command buffers of a checked engine', () => {
  /** A buffer with its writer, beside a block of data. */
  function fixture(bytes = 256, dataBytes = 64) {
    const lab = new Lab(flow);
    const buffer = lab.keep(lab.engine.createMatrixFlowCommandBuffer(bytes));
    const data = lab.keep(lab.engine.createMatrixFlowCommandBuffer(dataBytes));
    const at = (offset) => ({ memoryID: data.memoryID, offset });
    return { lab, buffer, data, at, writer: new MatrixFlowWriter(buffer) };
  }

  it('are not created with a size of 0', () => {
    const { lab } = fixture();
    for (const size of [0, NaN, -1, 1.5, 2 ** 32]) {
      const call = () => lab.engine.createMatrixFlowCommandBuffer(size);
      lab.refuses(call, RangeError, 'createMatrixFlowCommandBuffer', `size is ${size}`, 'from 1');
    }
    for (const size of [undefined, '20', null]) {
      lab.refuses(() => lab.engine.createMatrixFlowCommandBuffer(size), TypeError, 'size is');
    }
    assert.notStrictEqual(lab.engine.createMatrixFlowCommandBuffer(1).id, 0);
  });

  it('are refused if the length word is invalid', () => {
    const { lab, buffer } = fixture();
    const words = over(Uint32Array, buffer);
    const run = () => buffer.execute();
    for (const length of [253, 256, 0x7ffffffc, none]) {
      words[0] = length;
      lab.refuses(
        run,
        RangeError,
        'execute',
        `length word`,
        `is ${length}`,
        'the 252 bytes after it'
      );
    }
    words[0] = 6;
    lab.refuses(run, RangeError, 'is 6, no multiple of 4');
    const tiny = lab.keep(lab.engine.createMatrixFlowCommandBuffer(3));
    lab.refuses(
      () => tiny.execute(),
      RangeError,
      `command buffer ${tiny.id} of 3 bytes`,
      'no room'
    );
  });

  it('are refused if they call themselves', () => {
    const { lab, buffer, data, writer } = fixture();
    writer.call(buffer.id);
    const cycle = (...ids) => `in a cycle, ${ids.join(' > ')}`;
    lab.refuses(() => buffer.execute(), RangeError, 'call', cycle(buffer.id, buffer.id));
    writer.reset();
    writer.call(data.id);
    const other = new MatrixFlowWriter(data);
    other.call(buffer.id + 5);
    const words = [`command buffer ${data.id} at byte 4`, cycle(buffer.id, data.id, buffer.id)];
    lab.refuses(() => buffer.execute(), RangeError, ...words);
    other.reset();
    writer.call(data.id);
    assert.strictEqual(
      lab.passes(() => buffer.execute()),
      0
    );
  });

  /** Buffers of which each calls the one created before it; the first writes a word into itself. */
  function chain(engine, length) {
    const buffers = [];
    for (let i = 0; i < length; ++i) {
      const buffer = engine.createMatrixFlowCommandBuffer(i === 0 ? 28 : 12);
      const { memoryID } = buffer;
      const first = [20, 1000, memoryID, 24, memoryID, 0];
      over(Uint32Array, buffer).set(i === 0 ? first : [8, 1, buffers[i - 1].id]);
      buffers.push(buffer);
    }
    return buffers;
  }

  it('may call each other in a long chain, as in a plain one', () => {
    // Frames of a sanitizer are many times as large, and WebAssembly has a smaller stack.
    for (const length of sanitized || inWasm ? [500] : [3000, 10000]) {
      for (const engine of [flow.getEngine(), checked(flow.getEngine())]) {
        const buffers = chain(engine, length);
        assert.strictEqual(buffers[length - 1].execute(), matrixFlowResults.done);
        assert.strictEqual(over(Uint32Array, buffers[0])[6], 20);
      }
    }
  });

  it('are refused if their chain is too long for the stack', () => {
    const buffers = chain(checked(flow.getEngine()), 10001);
    const call = () => buffers[10000].execute();
    assertWords(call, RangeError, 'execute: command buffer 8192 at byte 4, call', '10000');
    assert.strictEqual(over(Uint32Array, buffers[0])[6], 0);
  });

  it('are refused if a chain leads into a long cycle of calls', () => {
    const { lab, buffer } = fixture();
    const buffers = chain(lab.engine, 200);
    const [{ id: first }, { id: second }] = buffers;
    const { id: last } = buffers[99];
    over(Uint32Array, buffers[0]).set([8, 1, last]);
    new MatrixFlowWriter(buffer).call(buffers[199].id);
    const cycle = [0, 1, 2, 3].map((i) => first - 4096 * i + 99 * 4096).join(' > ');
    const words = [`${cycle} > … > `, ` > ${second} > ${first} > ${last}`];
    lab.refuses(() => buffer.execute(), RangeError, 'in a cycle', ...words);
  });

  it('are refused if a short vector extends past its block', () => {
    for (const [method, bytes] of [
      ['vector2Copy', 8],
      ['vector3Copy', 12],
    ]) {
      for (const operand of ['D', 'S']) {
        const { lab, buffer, at, writer } = fixture();
        const operands = operand === 'D' ? [at(56), at(0)] : [at(0), at(56)];
        writer[method](...operands.map((o) => (o.offset === 56 ? at(64 - bytes + 1) : o)));
        const words = [method, `operand ${operand}`, `${bytes} bytes at offset ${64 - bytes + 1}`];
        lab.refuses(() => buffer.execute(), RangeError, ...words, `up to ${64 - bytes}`);
        writer.reset();
        writer[method](at(64 - bytes), at(0));
        assert.strictEqual(
          lab.passes(() => buffer.execute()),
          0
        );
      }
    }
  });

  it('are refused if an offset overflows 32 bits', () => {
    const { lab, buffer, at, writer } = fixture();
    writer.scalarAdd(at(0), at(none - 3), at(0));
    lab.refuses(
      () => buffer.execute(),
      RangeError,
      `operand B, 4 bytes at offset ${none - 3}`,
      'scalarAdd'
    );
    writer.reset();
    const words = over(Uint32Array, buffer);
    words.set([24, 9000, 0x40000001, at(0).memoryID, 0, at(0).memoryID, 0]);
    lab.refuses(() => buffer.execute(), RangeError, 'bulkCopy', 'N is 1073741825', 'wraps');
  });

  it('are refused if a buffer that they call is invalid', () => {
    const { lab, buffer, data, writer } = fixture();
    writer.call(data.id);
    over(Uint32Array, data)[0] = 64;
    const words = [`command buffer ${buffer.id} at byte 4, call`, `${data.id} of 64`, 'is 64'];
    lab.refuses(() => buffer.execute(), RangeError, ...words);
  });

  it('are refused for invalid commands that other commands wrote', () => {
    const { lab, buffer, data, at, writer } = fixture();
    // Command 0 overwrites command 1 with a call of the buffer itself.
    over(Uint32Array, data).set([0, 1, buffer.id]);
    const place = writer.bulkCopy(2, { memoryID: buffer.memoryID, offset: 28 }, at(4)) + 24;
    assert.strictEqual(place, 28);
    writer.scalarAdd(at(0), at(0), at(0));
    lab.refuses(() => buffer.execute(), RangeError, 'byte 28, call', 'in a cycle');
    assert.strictEqual(over(Uint32Array, buffer)[7], 1001);
  });

  it('are refused for blocks whose object was collected', async () => {
    const { lab, buffer, at, writer } = fixture();
    const memoryID = (() => lab.engine.createEntity(true).memoryID)();
    writer.scalarAdd(at(0), { memoryID, offset: 0 }, at(0));
    const isGone = () => {
      try {
        return buffer.execute() === matrixFlowResults.outOfBlock;
      } catch (error) {
        assert(error.message.includes(`object of block ${memoryID} was collected`), error.message);
        return true;
      }
    };
    assert(await collectUntil(isGone));
  });

  it('return the result codes of native code for errors that it reports', () => {
    const results = (module) => {
      const engine = module === flow ? flow.getEngine() : new Lab(flow).engine;
      const make = (bytes) => engine.createMatrixFlowCommandBuffer(bytes);
      const kept = [make(256), make(64), make(64)];
      const [buffer, data, callee] = kept;
      const writer = new MatrixFlowWriter(buffer);
      const at = (offset) => ({ memoryID: data.memoryID, offset });
      const words = over(Uint32Array, buffer);
      const floats = over(Float32Array, data);
      const log = [];
      const note = () => {
        log.push(buffer.execute(), Array.from(floats));
        writer.reset();
      };
      floats.set([1, 2, 3, -4]);
      writer.call(99 * 4096);
      note();
      words.set([8, 1001, 0]);
      note();
      words.set([4, 31337]);
      note();
      writer.scalarAdd(at(0), at(4), at(8));
      writer.matrix4Add(at(0), at(4), at(0));
      writer.scalarAdd(at(0), at(0), at(0));
      note();
      writer.scalarAdd({ memoryID: 77, offset: 0 }, at(4), at(8));
      note();
      writer.scalarDiv(at(0), at(12), at(0));
      note();
      new MatrixFlowWriter(callee).scalarDiv(at(0), at(12), at(0));
      writer.call(callee.id);
      writer.scalarAdd(at(0), at(0), at(0));
      note();
      return log;
    };
    const native = results(flow);
    assert.deepStrictEqual(
      native.filter((_, i) => i % 2 === 0),
      [1, 2, 3, 4, 4, 5, 5]
    );
    assert.deepStrictEqual(results(null), native);
  });

  it('compute the same as the native engine, also after modifying themselves', () => {
    const scene = (engine) => {
      const kept = [0, 1, 2].map((i) => engine.createMatrixFlowCommandBuffer(i === 0 ? 4096 : 320));
      const [buffer, data, callee] = kept;
      const writer = new MatrixFlowWriter(buffer);
      const floats = over(Float32Array, data);
      for (let i = 0; i < floats.length; ++i) {
        floats[i] = Math.fround(((i * 37) % 23) / 3 + 0.1);
      }
      const at = (offset) => ({ memoryID: data.memoryID, offset });
      const own = (offset) => ({ memoryID: buffer.memoryID, offset });
      for (const family of ['scalar', 'vector2', 'vector3', 'vector4', 'matrix3', 'matrix4']) {
        for (const operation of ['Add', 'Sub', 'Mul', 'Div']) {
          if (writer[family + operation] !== undefined) {
            writer[family + operation](at(0), at(68), at(132));
            writer[family + operation](at(128), at(8), at(12));
          }
        }
        writer[`${family}Copy`](at(200), at(132));
      }
      writer.matrix4Invert(at(0), at(64));
      writer.bulkCopy(20, at(4), at(0));
      writer.bulkCopy(0, at(320), at(320));
      new MatrixFlowWriter(callee).vector4Add(at(0), at(16), at(32));
      writer.call(callee.id);
      // The next command becomes another addition: of the two words from byte 300 of the data.
      over(Uint32Array, data).set([at(0).memoryID, 4], 75);
      const place = writer.bulkCopy(2, own(0), at(300));
      writer.scalarAdd(at(0), at(0), at(8));
      over(Uint32Array, buffer)[place / 4 + 3] = place + 24 + 4;
      const results = [buffer.execute(), buffer.execute()];
      return {
        results,
        bytes: kept.map((one) => Buffer.from(over(Uint8Array, one)).toString('hex')),
      };
    };
    const native = scene(flow.getEngine());
    assert.deepStrictEqual(native.results, [0, 0]);
    assert.deepStrictEqual(scene(new Lab(flow).engine), native);
  });
});
