'use strict';
// Values that no method of the library is documented to take, for random programs.
const vm = require('vm');
const { MessageChannel } = require('worker_threads');

/** What hostile objects throw. Code of the library that runs their code lets this error pass at most. */
class HostileError extends Error {
  constructor(what) {
    super(`hostile: ${what}`);
    this.name = 'HostileError';
  }
}

function throws(what) {
  return () => {
    throw new HostileError(what);
  };
}

/** A proxy whose every operation throws. */
function throwingProxy(target) {
  const traps = {};
  Object.getOwnPropertyNames(Reflect).forEach((name) => {
    traps[name] = throws(name);
  });
  return new Proxy(target, traps);
}

function revokedProxy(target) {
  const { proxy, revoke } = Proxy.revocable(target, {});
  revoke();
  return proxy;
}

/** An object that throws as soon as it is converted or its properties are read. */
function withThrowingGetters() {
  const object = { valueOf: throws('valueOf'), toString: throws('toString') };
  const names = ['id', 'buffer', 'block', 'length', 'byteLength', 'memoryID', 'name', 'index', '0'];
  names.forEach((name) => Object.defineProperty(object, name, { get: throws(name) }));
  Object.defineProperty(object, Symbol.toStringTag, { get: throws('tag') });
  Object.defineProperty(object, Symbol.toPrimitive, { value: throws('toPrimitive') });
  Object.defineProperty(object, Symbol.iterator, { get: throws('iterator') });
  return object;
}

/** A buffer that was transferred to another thread. */
function detachedBuffer(bytes) {
  const buffer = new ArrayBuffer(bytes);
  const { port1, port2 } = new MessageChannel();
  port1.postMessage(buffer, [buffer]);
  port1.close();
  port2.close();
  return buffer;
}

function detachedView() {
  const view = new Uint32Array(4);
  const { port1, port2 } = new MessageChannel();
  port1.postMessage(view, [view.buffer]);
  port1.close();
  port2.close();
  return view;
}

/** An array buffer that claims another length. */
function lyingBuffer() {
  const buffer = new ArrayBuffer(8);
  Object.defineProperty(buffer, 'byteLength', { get: throws('byteLength') });
  Object.defineProperty(buffer, 'constructor', { get: throws('constructor') });
  return buffer;
}

const objects = [
  () => ({}),
  () => [],
  () => [NaN],
  () => Object.create(null),
  () => new Date(NaN),
  () => /./,
  () => new Map(),
  () => Promise.resolve(1),
  () => new Error('none'),
  () => () => 1,
  () => class {},
  () => Object(7),
  () => Object('7'),
  () => throwingProxy({}),
  () => throwingProxy([]),
  () => throwingProxy(() => 1),
  () => revokedProxy({}),
  () => revokedProxy([]),
  () => revokedProxy(() => 1),
  () => new Proxy(new ArrayBuffer(8), {}),
  withThrowingGetters,
  () => ({ id: 4096 }),
  () => ({ length: 4294967295 }),
  () => ({ buffer: new ArrayBuffer(4), byteOffset: 8, byteLength: -4 }),
  () => new SharedArrayBuffer(16),
  () => detachedBuffer(16),
  detachedView,
  () => vm.runInNewContext('({ a: 1 })'),
  () => global,
];

const primitives = [
  undefined,
  null,
  true,
  false,
  '',
  '7',
  'a',
  '\u0000\ud800',
  Symbol('garbage'),
  BigInt(7),
];

const badNumbers = [-1, -0.5, 0.5, NaN, Infinity, -Infinity, 2 ** 32, 2 ** 53, -(2 ** 31), 1e308];

/** Random draws for a step. */
class Draw {
  /** @param {function(): number} random uniform in [0, 1) */
  constructor(random) {
    this.random = random;
  }

  below(count) {
    return Math.floor(this.random() * count);
  }

  pick(list) {
    return list[this.below(list.length)];
  }

  chance(probability) {
    return this.random() < probability;
  }

  /** A number between two others. */
  number(least, most) {
    return least + this.random() * (most - least);
  }

  /** What is neither a number nor a boolean. */
  notANumber() {
    return this.chance(0.6)
      ? this.pick(objects)()
      : this.pick(primitives.filter((value) => typeof value !== 'boolean'));
  }

  /** A value that is no whole number of 32 bits. */
  notAWord() {
    return this.chance(0.4) ? this.pick(badNumbers) : this.notANumber();
  }

  /** Anything that is not an ArrayBuffer with its memory. */
  notABuffer() {
    return this.chance(0.2)
      ? this.pick([new Uint8Array(8), new DataView(new ArrayBuffer(8))])
      : this.notAWord();
  }

  /** Anything. */
  anything() {
    return this.pick([
      () => this.notAWord(),
      () => this.pick(primitives),
      () => this.below(5),
      () => 4096 + this.below(4),
      () => this.number(-2, 2),
      () => new ArrayBuffer(4 * this.below(5)),
      () => Uint32Array.from({ length: this.below(5) }, () => this.below(9)),
      () => new Float32Array(this.below(40)),
      lyingBuffer,
    ])();
  }

  /** Changes random bytes; may also cut them. */
  mutate(bytes, most = 4) {
    const copy = Buffer.from(bytes);
    for (let count = 1 + this.below(most); count > 0 && copy.length > 0; --count) {
      const at = this.below(copy.length);
      if (this.chance(0.3) && at + 4 <= copy.length) {
        copy.writeUInt32LE(this.pick([0, 1, 0xffffffff, 0x7f800000, 0x7fc00000, 0x80000000]), at);
      } else {
        copy[at] = this.chance(0.5) ? this.below(256) : copy[at] ^ (1 << this.below(8));
      }
    }
    const size = this.chance(0.15) ? this.below(copy.length + 1) : copy.length;
    return new Uint8Array(copy.slice(0, size)).buffer;
  }
}

module.exports = { Draw, HostileError, detachedBuffer, lyingBuffer };
