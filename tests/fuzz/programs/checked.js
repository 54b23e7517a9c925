'use strict';
// Random programs over all methods of a checked engine, its objects, and the views and writers on them, mixed with
// garbage. A plain engine executes what the checked one accepts. It fails
// - if the process ends or a call does not return,
// - if the checked engine accepts an argument or a receiver that it promises to refuse,
// - if a refused call has called native code, has changed shared memory, or throws an unreadable error,
// - if an accepted call has another result or writes other bytes than that of the plain engine.
const assert = require('assert');
const nq = require('../../../lib');
const { checked } = require('../../../lib/checked');
const { clipBytes } = require('../../script/support/checked');
const { HostileError, detachedBuffer, lyingBuffer } = require('./garbage');

const kNone = 0xffffffff;
const flowPath = process.env.NQ_MATRIXFLOW_MODULE;
const build = require(flowPath || process.env.NQ_MODULE);

/** Errors of the library: the call, what was found, and the cure. */
const kReadable = /^[^:]+: [^]+: [^]+\.$/;

/**
 * What V8 throws where a check of a view or writer converts its argument: these checks are part of loops that programs
 * run thousands of times a frame, and test for numbers by `>>> 0`. Hostile objects throw their own error there.
 */
const kConversion = /^(Cannot |hostile: )/;

/** All pairs: `instanceof` would run the code of a proxy. */
const pairs = new WeakSet();

/** Two objects made by the same calls, of the checked engine and of the plain one. */
class Pair {
  constructor(ours, theirs) {
    this.ours = ours;
    this.theirs = theirs;
    pairs.add(this);
  }
}

/** Replaces pairs by one of their objects. */
function sideOf(value, side) {
  return pairs.has(value) ? value[side] : value;
}

/** A result in comparable form. */
function plain(result) {
  if (result instanceof ArrayBuffer) {
    return Buffer.from(result.slice(0)).toString('hex');
  }
  if (ArrayBuffer.isView(result)) {
    const { buffer, byteOffset, byteLength } = result;
    return Buffer.from(buffer.slice(byteOffset, byteOffset + byteLength)).toString('hex');
  }
  if (Array.isArray(result)) {
    return result.map(plain);
  }
  if (typeof result !== 'object' || result === null) {
    return result;
  }
  const out = {};
  ['id', 'memoryID', 'buffer', 'hash', 'objects', 'distances'].forEach((name) => {
    if (name in result) {
      out[name] = plain(result[name]);
    }
  });
  return out;
}

const engineBuffers = ['dirtyEntities', 'entityCommands', 'cullingResult'];

/** Kinds of arguments: what may be passed, and what must be refused. */
const kinds = {
  word: { valid: (p) => p.word(), wrong: (p) => p.draw.notAWord() },
  small: { valid: (p) => 1 + p.draw.below(4), wrong: (p) => p.draw.notAWord() },
  // undefined counts as 1.
  count: { valid: (p) => p.draw.below(5), wrong: (p) => p.defined(() => p.draw.notAWord()) },
  entityCount: {
    valid: (p) => p.draw.below(5),
    wrong: (p) => (p.draw.chance(0.3) ? 4096 : p.defined(() => p.draw.notAWord())),
  },
  is3D: {
    valid: (p) => p.draw.pick([true, true, false, undefined, 1, 0]),
    wrong: (p) => p.notBoolean(),
  },
  name: { valid: (p) => p.draw.pick(['a', 'b\u0000', '\ud800']), wrong: (p) => p.notString() },
  number: {
    valid: (p) => p.draw.pick([0, 1, -1, 10, 0.1, 100, NaN, Infinity, -1e30]),
    wrong: (p) => p.notNumber(),
  },
  mask: {
    valid: (p) => p.draw.pick([0, 1, 3, kNone, -1]),
    wrong: (p) => p.draw.pick([-(2 ** 31) - 1, 2 ** 32, 0.5, NaN, null, '1', {}, []]),
  },
  lists: { valid: (p) => p.targetLists()[0], wrong: (p) => p.draw.notABuffer() },
  one: { valid: () => 1, wrong: (p) => p.draw.notAWord() },
  mode: { valid: (p) => p.draw.below(4), wrong: (p) => p.draw.notAWord() },
  records: { valid: (p) => p.maskRecords(), wrong: (p) => p.draw.notABuffer() },
  anyBuffer: { valid: () => new ArrayBuffer(0), wrong: (p) => p.draw.notABuffer() },
  animators: { valid: (p) => p.handles('animator'), wrong: (p) => p.notData() },
  controllers: { valid: (p) => p.handles('controller'), wrong: (p) => p.notData() },
  skins: { valid: (p) => p.handles('skinning'), wrong: (p) => p.notData() },
  animator: { valid: (p) => p.idOf('animator'), wrong: (p) => p.draw.notAWord() },
  skin: { valid: (p) => p.idOf('skinning'), wrong: (p) => p.draw.notAWord() },
  anything: { valid: (p) => p.draw.anything(), wrong: null },
};

const camera = (sides) => ['mask', ...Array.from({ length: 9 + sides }, () => 'number')];
const lists = ['lists', 'zero', 'one', 'small'];
kinds.zero = { valid: () => 0, wrong: (p) => p.draw.notAWord() };

/** Arguments of methods of engines, which do not create objects. */
const engineMethods = {
  setEntityName: ['word', 'name'],
  refreshWorldTransform: [],
  cullWithCamera: camera(4),
  frustumCulling: camera(4),
  frustumCullingV2: camera(4),
  orthoCulling: camera(6),
  orthoCullingV2: camera(6),
  updateAnimator: ['animator'],
  updateAnimators: ['animators'],
  updateAnimatorControllers: ['controllers'],
  updateSkinningMatrix: ['skin'],
  updateSkinningMatrices: ['skins'],
};

/** Arguments of methods of objects, by the kind of object. */
const objectMethods = {
  binding: {
    updateBinding: [...lists, 'mode', 'mode', 'mode'],
    writeDefaultValues: [],
  },
  controller: {
    update: ['anything', 'anyBuffer'],
    setMaskAtIndex: ['count', 'records', 'zero', 'small'],
  },
  commandBuffer: { execute: [] },
};
// Missing, it is no layer.
kinds.count.isOptional = true;

/** Views by kind of object, and how many arguments their methods take at most. */
const views = {
  flat: [(o) => new nq.Entity2DView(o)],
  entity: [(o) => new nq.Entity3DView(o)],
  culling: [(o) => new nq.CullingObjectsView(o)],
  animator: [(o, shape) => new nq.AnimatorView(o, shape)],
  skinning: [(o) => new nq.SkinningView(o)],
  controller: [(o) => new nq.ControllerView(o)],
  state: [(o) => new nq.ControllerStateView(o)],
};

class Program {
  constructor(seed) {
    this.calls = 0;
    this.native = build.getEngine();
    const prototype = Object.getPrototypeOf(this.native);
    Object.keys(prototype).forEach((name) => this._count(this.native, name));
    this.hintsThrow = false;
    this.thrown = null;
    this.engine = checked(this.native, { onHint: (hint) => this._onHint(hint) });
    this.other = build.getEngine();
    this.pools = {};
    this.all = [];
    this.writers = [nq.EntityCommandWriter, nq.DirtyListWriter].map(
      (Writer) => new Pair(new Writer(this.engine), new Writer(this.other))
    );
    this.counts = { accepted: 0, refused: 0, hints: 0, wrong: 0, views: 0 };
    this.makers = this._makers();
    this._makeWorld();
  }

  /** A few objects of each kind, so that steps have something to work on. */
  _makeWorld() {
    const { engine, other } = this;
    const add = (kind, shape, method, ...args) => {
      this.add(kind, { ours: engine[method](...args), theirs: other[method](...args) }, shape);
    };
    add('entity', undefined, 'createEntity', true, 6);
    add('flat', undefined, 'createEntity', false, 3);
    for (let i = 0; i < 2; ++i) {
      add('clip', undefined, 'createDataModel', 1, clipBytes(2 + i));
      add('animator', 2, 'createComponent', 2, 2, 4);
      add('skinning', 2, 'createComponent', 3, 2);
      add('state', 1, 'createAnimatorControllerStateModel', 1);
      add('controller', 2, 'createAnimatorControllerModel', 2);
      const { id } = this.pool('clip')[i].ours;
      const entity = this.pool('entity')[0].ours.id + 3 * i;
      const words = Uint32Array.of(id, 3, entity, entity + 1, entity + 2);
      add('binding', undefined, 'createAnimationClipBinding', words.buffer, 0, 1, 4, 1);
    }
    add('bones', undefined, 'createDataModel', 2, new Float32Array(48));
    add('culling', 4, 'createComponent', 1, 4);
    if (flowPath) {
      add('commandBuffer', undefined, 'createMatrixFlowCommandBuffer', 96);
      add('commandBuffer', undefined, 'createMatrixFlowCommandBuffer', 256);
    }
  }

  _onHint({ code, message }) {
    ++this.counts.hints;
    assert(kReadable.test(message), `hint ${code}: ${message}`);
    if (this.hintsThrow) {
      this.thrown = new HostileError('onHint');
      throw this.thrown;
    }
  }

  /** Counts the calls of a method of a native object, and those of the objects that it makes. */
  _count(object, name) {
    const method = object[name];
    const value = (...args) => {
      ++this.calls;
      const result = method.apply(object, args);
      if (typeof result === 'object' && result !== null && 'id' in result) {
        Object.keys(Object.getPrototypeOf(result)).forEach((own) => this._count(result, own));
      }
      return result;
    };
    Object.defineProperty(object, name, { value });
  }

  pool(kind) {
    this.pools[kind] = this.pools[kind] || [];
    return this.pools[kind];
  }

  /** A value that is not undefined. */
  defined(make) {
    const value = make();
    return value === undefined ? null : value;
  }

  notBoolean() {
    const value = this.draw.notAWord();
    return value === undefined || typeof value === 'boolean' ? 'x' : value;
  }

  notString() {
    const value = this.draw.notAWord();
    return typeof value === 'string' ? '' : value;
  }

  notNumber() {
    const value = this.draw.notANumber();
    return typeof value === 'number' ? null : value;
  }

  /** What has no bytes for native code. */
  notData() {
    const { draw } = this;
    const value = draw.chance(0.3) ? detachedBuffer(8) : draw.notAWord();
    return value;
  }

  /** A word that may be the handle of something. */
  word() {
    const { draw } = this;
    if (this.all.length > 0 && draw.chance(0.75)) {
      const { id } = draw.pick(this.all).ours;
      return id + (draw.chance(0.5) ? draw.below(5) : 0);
    }
    return draw.pick([0, kNone, 1, 2, 7, 4096, 8192, 12288, 4097]);
  }

  idOf(kind) {
    const pool = this.pool(kind);
    return pool.length === 0 || this.draw.chance(0.1) ? this.word() : this.draw.pick(pool).ours.id;
  }

  entityHandle() {
    const pool = this.pool('entity');
    if (pool.length === 0 || this.draw.chance(0.1)) {
      return this.word();
    }
    const { ours } = this.draw.pick(pool);
    return ours.id + this.draw.below(ours.buffer.byteLength / nq.layout.entity3D.size);
  }

  /** Lists of one clip: buffer, offset, clips and words. */
  targetLists() {
    const targets = Array.from({ length: this.draw.below(4) }, () => this.entityHandle());
    const words = [this.idOf('clip'), targets.length, ...targets];
    return [Uint32Array.from(words).buffer, 0, 1, words.length - 1];
  }

  maskRecords() {
    const words = Array.from({ length: 8 }, () => this.entityHandle());
    return Uint32Array.from(words).buffer;
  }

  handles(kind) {
    const { draw } = this;
    const count = draw.below(3);
    const words = [count, this.idOf(kind), this.idOf(kind)];
    const data = Uint32Array.from(draw.chance(0.9) ? words : [kNone, 1]);
    return draw.chance(0.5) ? data : data.buffer;
  }

  /** All shared memory of one side. */
  bytes(side) {
    const engine = side === 'ours' ? this.engine : this.other;
    const buffers = engineBuffers.map((name) => engine[name]);
    this.all.forEach((pair) => {
      const { buffer } = pair[side];
      if (buffer !== undefined) {
        buffers.push(buffer);
      }
    });
    return buffers.map((buffer) => Buffer.from(buffer));
  }

  /** The dirty list, sorted. */
  dirtyHandles(side) {
    const { dirtyEntities } = side === 'ours' ? this.engine : this.other;
    const words = new Uint32Array(dirtyEntities);
    return [words[0], ...Array.from(words.slice(1, 1 + words[0])).sort((a, b) => a - b)];
  }

  assertSameBytes(label) {
    const [ours, theirs] = [this.bytes('ours'), this.bytes('theirs')];
    const lists = [this.dirtyHandles('ours'), this.dirtyHandles('theirs')];
    assert.deepStrictEqual(lists[0], lists[1], `${label}: dirty lists`);
    // Followers of one bone are listed in an order of their own in each engine.
    [ours, theirs].forEach((blocks) => blocks.shift());
    ours.forEach((bytes, i) => {
      if (!bytes.equals(theirs[i])) {
        const at = bytes.findIndex((byte, k) => byte !== theirs[i][k]);
        assert.fail(`${label}: block ${i + 1} differs from that of the plain engine at byte ${at}`);
      }
    });
  }

  /**
   * Calls ours, and theirs if ours was accepted.
   * @param {string} label
   * @param {function(): *} ours
   * @param {function(): *} theirs
   * @param {boolean} [mustThrow]
   * @param {boolean} [converts] whether errors of conversions may pass
   * @returns {?{ours: *, theirs: *}} null if it was refused
   */
  call(label, ours, theirs, mustThrow = false, converts = false) {
    const before = this.bytes('ours').map((bytes) => Buffer.from(bytes));
    const calls = this.calls;
    this.thrown = null;
    let result;
    try {
      result = ours();
    } catch (error) {
      if (error === this.thrown && error !== null) {
        // Of the hint callback: the call was executed.
        theirs();
        this.assertSameBytes(label);
        return null;
      }
      const isKind = error instanceof TypeError || error instanceof RangeError;
      const isReadable = isKind && kReadable.test(error.message);
      const isConversion = converts && kConversion.test(error.message);
      assert(isReadable || isConversion, `${label}: unreadable ${error.stack}`);
      assert.strictEqual(this.calls, calls, `${label}: native code ran: ${error.message}`);
      this.bytes('ours').forEach((bytes, i) => {
        assert(bytes.equals(before[i]), `${label}: block ${i} has changed: ${error.message}`);
      });
      ++this.counts.refused;
      return null;
    }
    assert(!mustThrow, `${label} was accepted`);
    ++this.counts.accepted;
    const expected = theirs();
    assert.deepStrictEqual(plain(result), plain(expected), `${label}: result`);
    return { ours: result, theirs: expected };
  }

  /** Arguments of a method; some of them wrong. */
  arguments(names) {
    const { draw } = this;
    const args = names.map((name) => kinds[name].valid(this));
    if (names[0] === 'lists') {
      this.targetLists().forEach((value, i) => {
        args[i] = value;
      });
    }
    const wrong = names.map((name, i) => i).filter((i) => kinds[names[i]].wrong !== null);
    if (wrong.length > 0 && draw.chance(0.25)) {
      const at = draw.pick(wrong);
      args[at] = kinds[names[at]].wrong(this);
      ++this.counts.wrong;
      return { args, mustThrow: true };
    }
    return { args, mustThrow: false };
  }

  add(kind, made, shape) {
    if (made === null || made.ours.id === 0) {
      return;
    }
    const pair = new Pair(made.ours, made.theirs);
    pair.kind = kind;
    pair.shape = shape;
    this.pool(kind).push(pair);
    this.all.push(pair);
  }

  create(kind, method, names, fixed = [], shape) {
    const { args, mustThrow } = this.arguments(names);
    const all = [...fixed, ...args];
    const made = this.call(
      method,
      () => this.engine[method](...all),
      () => this.other[method](...all),
      mustThrow
    );
    this.add(kind, made, shape === undefined ? args[0] : shape(all));
  }

  _makers() {
    const data = (value) => {
      this.data = value;
      return value;
    };
    const model = (kind, number, make) => {
      const value = this.draw.chance(0.15) ? this.notData() : data(make());
      const call = (engine) => () => engine.createDataModel(number, value);
      const label = `createDataModel ${number}`;
      this.add(kind, this.call(label, call(this.engine), call(this.other)));
    };
    const makers = [
      () => {
        const { args, mustThrow } = this.arguments(['is3D', 'entityCount']);
        const call = (engine) => () => engine.createEntity(...args);
        const made = this.call('createEntity', call(this.engine), call(this.other), mustThrow);
        this.add(args[0] ? 'entity' : 'flat', made);
      },
      () => this.create('culling', 'createComponent', ['count'], [1]),
      () => this.create('animator', 'createComponent', ['small', 'small'], [2]),
      () => this.create('skinning', 'createComponent', ['small'], [3]),
      () => model('clip', 1, () => clipBytes(1 + this.draw.below(3))),
      () => model('clip', 1, () => this.draw.mutate(clipBytes(1 + this.draw.below(2)))),
      () => model('bones', 2, () => new Float32Array(16 * this.draw.below(4))),
      () => this.create('binding', 'createAnimationClipBinding', [...lists, 'mode']),
      () => this.create('controller', 'createAnimatorControllerModel', ['small']),
      () => this.create('state', 'createAnimatorControllerStateModel', ['small']),
    ];
    if (flowPath) {
      makers.push(() => {
        const size = this.draw.pick([1, 4, 64, 96, 256]);
        const wrong = this.draw.chance(0.2) ? this.draw.notAWord() : size;
        const call = (engine) => () => engine.createMatrixFlowCommandBuffer(wrong);
        const made = this.call(
          'createMatrixFlowCommandBuffer',
          call(this.engine),
          call(this.other),
          wrong !== size
        );
        this.add('commandBuffer', made);
      });
    }
    return makers;
  }

  /** Writes words into a block of both sides. */
  write(ours, theirs, at, words) {
    [ours, theirs].forEach((buffer) => {
      const room = Math.floor(buffer.byteLength / 4);
      words.slice(0, Math.max(0, room - at)).forEach((word, i) => {
        new Uint32Array(buffer)[at + i] = word;
      });
    });
  }

  scribble() {
    const { draw } = this;
    const withBlocks = this.all.filter(({ ours }) => ours.buffer !== undefined);
    if (withBlocks.length === 0) {
      return;
    }
    const { ours, theirs } = draw.pick(withBlocks);
    const words = Math.floor(ours.buffer.byteLength / 4);
    this.write(ours.buffer, theirs.buffer, draw.below(words), [this.anyWord()]);
  }

  floatWord() {
    const value = this.draw.pick([0, 0.5, 1, 1, 2, NaN, -1, 1e30, 8193.5, Infinity]);
    return new Uint32Array(Float32Array.of(value).buffer)[0];
  }

  anyWord() {
    return this.draw.chance(0.5) ? this.word() : this.floatWord();
  }

  /** Records that make sense, so that many calls are accepted. */
  setUp() {
    const { draw } = this;
    const kind = draw.pick(['animator', 'controller', 'state', 'skinning', 'culling', 'entity']);
    if (this.pool(kind).length === 0) {
      return;
    }
    const { ours, theirs, shape } = draw.pick(this.pool(kind));
    const one = new Uint32Array(Float32Array.of(1).buffer)[0];
    const weight = () => (draw.chance(0.7) ? one : this.floatWord());
    const words = [];
    const size = Math.floor(ours.buffer.byteLength / 4);
    if (kind === 'animator') {
      for (let i = 0; i < shape; ++i) {
        words.push(this.idOf('clip'), this.floatWord(), weight());
      }
      while (words.length < size) {
        words.push(draw.chance(0.8) ? this.entityHandle() : kNone);
      }
    } else if (kind === 'controller') {
      words.push(this.idOf('binding'));
      for (let i = 0; i < shape; ++i) {
        words.push(draw.below(3), weight(), this.idOf('state'));
      }
    } else if (kind === 'state') {
      words.push(weight(), draw.pick([0, one]), draw.chance(0.7) ? kNone : this.idOf('state'));
      for (let i = 0; i < shape; ++i) {
        words.push(this.idOf('clip'), this.floatWord(), weight(), draw.below(2), 0);
      }
    } else if (kind === 'skinning') {
      words.push(this.idOf('bones'));
      for (let i = 0; i < 2 * shape; ++i) {
        words.push(i < shape ? draw.below(3) : this.entityHandle());
      }
    } else if (kind === 'culling') {
      const sphere = Array.from({ length: 4 }, () => this.floatWord());
      words.push(draw.below(2), draw.below(4), ...sphere, this.entityHandle());
    } else {
      const floats = Array.from({ length: 10 }, () => this.floatWord());
      words.push(draw.below(3), ...floats);
    }
    this.write(ours.buffer, theirs.buffer, 0, words);
  }

  stream() {
    const { draw } = this;
    const words = [];
    for (let count = draw.below(4); count > 0; --count) {
      const number = 1 + draw.below(draw.chance(0.95) ? 11 : 14);
      const operands = number === 3 ? 3 : [2, 6].includes(number) ? 2 : 1;
      words.push(number);
      if (number === 7 || number === 9) {
        const entries = draw.below(3);
        const width = number === 7 ? 2 : 1;
        words.push(entries);
        for (let i = 0; i < width * entries; ++i) {
          words.push(this.entityHandle());
        }
      } else {
        for (let i = 0; i < operands; ++i) {
          words.push(number === 3 && i === 2 ? draw.below(3) : this.entityHandle());
        }
      }
    }
    const length = draw.chance(0.95) ? 4 * words.length : draw.pick([1, kNone, 49152, 49148]);
    const { engine, other } = this;
    this.write(engine.entityCommands, other.entityCommands, 0, [length, ...words]);
  }

  dirty() {
    const { draw, engine, other } = this;
    const count = draw.below(6);
    const words = Array.from({ length: count }, () => this.entityHandle());
    const head = draw.chance(0.95) ? count : draw.pick([12288, kNone]);
    this.write(engine.dirtyEntities, other.dirtyEntities, 0, [head, ...words]);
  }

  flow() {
    const { draw } = this;
    const pool = this.pool('commandBuffer');
    if (pool.length === 0) {
      return;
    }
    const { ours, theirs } = draw.pick(pool);
    const types = Object.values(nq.matrixFlowCommands);
    const words = [];
    for (let count = 1 + draw.below(3); count > 0; --count) {
      const type = draw.pick(types);
      words.push(type);
      if (type === 1) {
        words.push(this.idOf('commandBuffer'));
        continue;
      }
      for (let i = 0; i < 3; ++i) {
        const { ours: object } = draw.pick(this.all);
        words.push(object.memoryID || 0, draw.chance(0.8) ? 4 * draw.below(20) : this.anyWord());
      }
    }
    const bytes = draw.chance(0.9) ? 4 * words.length : this.anyWord();
    this.write(ours.buffer, theirs.buffer, 0, [bytes, ...words]);
  }

  /** Empties streams that were refused. */
  clear() {
    const { engine, other } = this;
    this.write(engine.entityCommands, other.entityCommands, 0, [0]);
    this.write(engine.dirtyEntities, other.dirtyEntities, 0, [0]);
  }

  method() {
    const { draw } = this;
    const name = draw.pick(Object.keys(engineMethods));
    const { args, mustThrow } = this.arguments(engineMethods[name]);
    if (args.length > 9 && draw.chance(0.3)) {
      const list = [1 + draw.below(3), ...Array.from({ length: 3 }, () => this.idOf('culling'))];
      args.push(draw.chance(0.9) ? Uint32Array.from(list).buffer : this.notData());
    }
    const call = (engine) => () => engine[name](...args);
    this.call(name, call(this.engine), call(this.other), mustThrow);
  }

  objectMethod() {
    const { draw } = this;
    const kind = draw.pick(Object.keys(objectMethods));
    if (this.pool(kind).length === 0) {
      return;
    }
    const pair = draw.pick(this.pool(kind));
    const name = draw.pick(Object.keys(objectMethods[kind]));
    const { args, mustThrow } = this.arguments(objectMethods[kind][name]);
    this.call(
      name,
      () => pair.ours[name](...args),
      () => pair.theirs[name](...args),
      mustThrow
    );
  }

  wrongReceiver() {
    const { draw } = this;
    const owners = [this.engine, ...this.all.map(({ ours }) => ours)];
    const owner = draw.pick(owners);
    const prototype = Object.getPrototypeOf(owner);
    const names = Object.getOwnPropertyNames(prototype).filter((name) => name !== 'constructor');
    const receivers = [
      ...owners.filter((one) => Object.getPrototypeOf(one) !== prototype),
      Object.create(prototype),
      Object.assign(Object.create(prototype), owner),
      new Proxy(owner, {}),
      draw.notAWord(),
      this.other,
    ];
    const receiver = draw.pick(receivers);
    const name = draw.chance(0.1) || names.length === 0 ? 'constructor' : draw.pick(names);
    const args = Array.from({ length: draw.below(15) }, () => draw.anything());
    const call =
      name === 'constructor'
        ? () => new owner.constructor(...args)
        : () => owner[name].apply(receiver, args);
    this.call(`${name} of a wrong receiver`, call, () => null, true);
  }

  wrap() {
    const { draw, engine } = this;
    const first = draw.pick([engine, this.native, draw.anything(), Object.create(engine)]);
    const options = draw.pick([
      undefined,
      { onHint: null },
      {},
      { onHint: (hint) => this._onHint(hint) },
      { onHint: draw.pick([7, 'a', [], Symbol('hint')]) },
      { on: 1 },
      draw.pick([7, 'a', null, Symbol('options'), () => 1]),
    ]);
    const isEngine = first === engine || first === this.native;
    const call = () => {
      const result = checked(first, options);
      assert.strictEqual(result, engine);
    };
    this.call('checked', call, () => undefined, !isEngine);
    if (options !== undefined && options !== null && options.onHint !== null) {
      checked(engine, { onHint: (hint) => this._onHint(hint) });
    }
  }

  /** An argument of a view or a writer. */
  viewArgument() {
    const { draw } = this;
    return draw.pick([
      () => draw.below(3),
      () => draw.below(3),
      () => this.word(),
      () => draw.number(-2, 2),
      () => (this.all.length > 0 ? draw.pick(this.all) : 0),
      () => draw.chance(0.5),
      () => [this.entityHandle(), this.entityHandle()],
      () => Uint32Array.of(this.entityHandle(), this.entityHandle()),
      () => draw.anything(),
      lyingBuffer,
    ])();
  }

  view() {
    const { draw } = this;
    let target = draw.pick(this.writers);
    const kind = draw.pick(Object.keys(views));
    if (draw.chance(0.8)) {
      if (this.pool(kind).length === 0) {
        return;
      }
      const pair = draw.pick(this.pool(kind));
      pair.view =
        pair.view ||
        new Pair(views[kind][0](pair.ours, pair.shape), views[kind][0](pair.theirs, pair.shape));
      target = pair.view;
    }
    const members = [];
    let at = Object.getPrototypeOf(target.ours);
    for (; at !== Object.prototype; at = Object.getPrototypeOf(at)) {
      members.push(...Object.getOwnPropertyNames(at));
    }
    const isMethod = (name) => {
      const isOwn = !name.startsWith('_') && name !== 'constructor';
      return isOwn && typeof target.ours[name] === 'function';
    };
    const name = draw.pick(members.filter(isMethod));
    const args = Array.from({ length: draw.below(6) }, () => this.viewArgument());
    const call = (side) => () => {
      const given = args.map((arg) => sideOf(arg, side));
      const result = target[side][name](...given);
      return typeof result === 'object' && !Array.isArray(result) ? undefined : result;
    };
    ++this.counts.views;
    const label = `${target.ours.constructor.name}.${name}`;
    this.call(label, call('ours'), call('theirs'), false, true);
  }

  step(draw) {
    this.draw = draw;
    this.hintsThrow = draw.chance(0.05);
    const actions = [
      [20, () => draw.pick(this.makers)()],
      [10, () => this.scribble()],
      [25, () => this.setUp()],
      [12, () => this.stream()],
      [8, () => this.dirty()],
      [6, () => this.flow()],
      [4, () => this.clear()],
      [30, () => this.method()],
      [8, () => this.objectMethod()],
      [6, () => this.wrongReceiver()],
      [2, () => this.wrap()],
      [15, () => this.view()],
    ];
    let at = draw.below(actions.reduce((sum, [weight]) => sum + weight, 0));
    const [, run] = actions.find(([weight]) => (at -= weight) < 0);
    run();
    this.assertSameBytes('after the step');
  }

  end() {
    return this.counts;
  }
}

module.exports = { start: (seed) => new Program(seed) };
