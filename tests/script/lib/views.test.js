'use strict';
// The typed views of lib/: the bytes that they write, the arguments that they refuse, that they allocate nothing,
// what they keep alive, and how the engine processes the records that they write.
const assert = require('assert');
const { over } = require('../support/blocks');
const { addonPath, modulePath, sanitized } = require('../support/host');
const { collect, collectUntil } = require('../support/collect');
const { hostileObjects } = require('../support/hostile');
const { buildClip, sampleTypes } = require('../../../lib/clip');
const { DirtyListWriter, EntityCommandWriter } = require('../../../lib/commands');
const views = require('../../../lib/views');
const {
  addedModes,
  handles,
  keptModes,
  layerBlendModes,
  removedModes,
} = require('../../../lib/layout');

const {
  AnimatorView,
  ControllerStateView,
  ControllerView,
  CullingAnswerView,
  CullingObjectsView,
  CullingResultView,
  Entity2DView,
  Entity3DView,
  HandleList,
  MaskView,
  SkinningView,
  TargetListsView,
} = views;

const nq = require(modulePath);
const addon = require(addonPath);

const last = 0xffffffff;
const half = Math.SQRT1_2;

function assertNear(actual, expected, tolerance = 1e-6) {
  assert.strictEqual(actual.length, expected.length);
  expected.forEach((value, i) => {
    const message = `[${i}]: ${Array.from(actual)} is not ${expected}`;
    assert(Math.abs(actual[i] - value) <= tolerance, message);
  });
}

/** An object like those of the engine, with a poisoned block. */
function poisoned(bytes, id = 4096) {
  return { id, buffer: new Uint8Array(bytes).fill(0xab).buffer };
}

const stores = { u8: 'setUint8', u32: 'setUint32', f32: 'setFloat32' };

/** Bytes of a poisoned block with some values stored: type, offset, value. */
function stored(bytes, values) {
  const { buffer } = poisoned(bytes);
  const data = new DataView(buffer);
  values.forEach(([type, offset, value]) => data[stores[type]](offset, value, true));
  return new Uint8Array(buffer);
}

// For each view: bytes of a block, how to create it, and rows of a setter, its arguments, what it stores, and the
// corresponding getters. A getter is a name, its arguments and its result: a value, or an array that it fills from
// index 1.
const viewCases = [
  {
    name: 'Entity3DView',
    bytes: 3 * 108,
    make: (object) => new Entity3DView(object),
    rows: [
      [
        'setEuler',
        [1, 0.5, -2, 3],
        [
          ['u8', 108, 0],
          ['f32', 112, 0.5],
          ['f32', 116, -2],
          ['f32', 120, 3],
        ],
        [['rotationMode', [1], 0]],
      ],
      [
        'setQuaternion',
        [2, 0.5, -0.5, 0.25, 1],
        [
          ['u8', 216, 1],
          ['f32', 220, 0.5],
          ['f32', 224, -0.5],
          ['f32', 228, 0.25],
          ['f32', 232, 1],
        ],
        [
          ['rotationMode', [2], 1],
          ['rotation', [2], [0.5, -0.5, 0.25, 1]],
        ],
      ],
      [
        'setPosition',
        [0, 1, 2, 3],
        [
          ['f32', 20, 1],
          ['f32', 24, 2],
          ['f32', 28, 3],
        ],
        [['position', [0], [1, 2, 3]]],
      ],
      [
        'setScale',
        [1, 4, 5, 6],
        [
          ['f32', 140, 4],
          ['f32', 144, 5],
          ['f32', 148, 6],
        ],
        [['scale', [1], [4, 5, 6]]],
      ],
      [
        'reset',
        [2],
        [
          ['u8', 216, 1],
          ...[0, 0, 0, 1, 0, 0, 0, 1, 1, 1].map((value, i) => ['f32', 220 + 4 * i, value]),
        ],
        [],
      ],
    ],
    indices: [
      ['rotationModeAt', 1, 'u8', 108],
      ['rotationAt', 1, 'f32', 108 + 4],
      ['positionAt', 2, 'f32', 216 + 20],
      ['scaleAt', 1, 'f32', 108 + 32],
      ['worldMatrixAt', 2, 'f32', 216 + 44],
    ],
    indexed: {
      count: 3,
      methods: {
        handle: [],
        rotationMode: [],
        rotation: [[0, 0, 0, 0]],
        setEuler: [0, 0, 0],
        setQuaternion: [0, 0, 0, 1],
        position: [[0, 0, 0]],
        setPosition: [0, 0, 0],
        scale: [[0, 0, 0]],
        setScale: [1, 1, 1],
        reset: [],
        worldMatrix: [new Float32Array(16)],
        worldPosition: [[0, 0, 0]],
      },
    },
    outs: { rotation: 4, position: 3, scale: 3, worldMatrix: 16, worldPosition: 3 },
  },
  {
    name: 'Entity2DView',
    bytes: 3 * 56,
    make: (object) => new Entity2DView(object),
    rows: [
      ['setRotation', [1, 0.5], [['f32', 56, 0.5]], [['rotation', [1], 0.5]]],
      [
        'setPosition',
        [2, 1, -2],
        [
          ['f32', 116, 1],
          ['f32', 120, -2],
        ],
        [['position', [2], [1, -2]]],
      ],
      [
        'setScale',
        [0, 4, 5],
        [
          ['f32', 12, 4],
          ['f32', 16, 5],
        ],
        [['scale', [0], [4, 5]]],
      ],
      ['reset', [1], [0, 0, 0, 1, 1].map((value, i) => ['f32', 56 + 4 * i, value]), []],
    ],
    indices: [
      ['rotationAt', 1, 'f32', 56],
      ['positionAt', 2, 'f32', 112 + 4],
      ['scaleAt', 1, 'f32', 56 + 12],
      ['worldMatrixAt', 2, 'f32', 112 + 20],
    ],
    indexed: {
      count: 3,
      methods: {
        handle: [],
        rotation: [],
        setRotation: [0],
        position: [[0, 0]],
        setPosition: [0, 0],
        scale: [[0, 0]],
        setScale: [0, 0],
        reset: [],
        worldMatrix: [new Float64Array(9)],
        worldPosition: [[0, 0]],
      },
    },
    outs: { position: 2, scale: 2, worldMatrix: 9, worldPosition: 2 },
  },
  {
    name: 'CullingObjectsView',
    bytes: 3 * 28,
    make: (object) => new CullingObjectsView(object),
    rows: [
      ['setEnabled', [1, true], [['u8', 28, 1]], [['enabled', [1], true]]],
      ['setEnabled', [2, false], [['u8', 56, 0]], [['enabled', [2], false]]],
      ['setMask', [2, 0x80000001], [['u32', 60, 0x80000001]], [['mask', [2], 0x80000001]]],
      ['setMask', [0, -1], [['u32', 4, last]], [['mask', [0], last]]],
      [
        'setSphere',
        [1, 1, 2, 3, 4],
        [1, 2, 3, 4].map((value, i) => ['f32', 36 + 4 * i, value]),
        [
          ['center', [1], [1, 2, 3]],
          ['radius', [1], 4],
        ],
      ],
      ['setEntity', [2, 4097], [['u32', 80, 4097]], [['entity', [2], 4097]]],
    ],
    indices: [
      ['enabledAt', 2, 'u8', 56],
      ['maskAt', 1, 'u32', 28 + 4],
      ['centerAt', 1, 'f32', 28 + 8],
      ['radiusAt', 1, 'f32', 28 + 20],
      ['entityAt', 2, 'u32', 56 + 24],
    ],
    indexed: {
      count: 3,
      methods: {
        handle: [],
        enabled: [],
        setEnabled: [true],
        mask: [],
        setMask: [1],
        center: [[0, 0, 0]],
        radius: [],
        setSphere: [0, 0, 0, 1],
        entity: [],
        setEntity: [4096],
      },
    },
    outs: { center: 3 },
    words: { setMask: [0, 'mask'], setEntity: [0, 'handle'] },
  },
  {
    name: 'AnimatorView',
    bytes: 2 * 12 + 3 * 4,
    make: (object) => new AnimatorView(object, 2),
    rows: [
      [
        'setClip',
        [1, 4098, 7.5, 0.25],
        [
          ['u32', 12, 4098],
          ['f32', 16, 7.5],
          ['f32', 20, 0.25],
        ],
        [
          ['clipHandle', [1], 4098],
          ['clipTime', [1], 7.5],
          ['clipWeight', [1], 0.25],
        ],
      ],
      ['setClipHandle', [0, 5], [['u32', 0, 5]], [['clipHandle', [0], 5]]],
      ['setClipTime', [0, 9], [['f32', 4, 9]], [['clipTime', [0], 9]]],
      ['setClipWeight', [0, 0.5], [['f32', 8, 0.5]], [['clipWeight', [0], 0.5]]],
      ['setTarget', [2, 77], [['u32', 32, 77]], [['target', [2], 77]]],
      [
        'setTargets',
        [[8, 9], 1],
        [
          ['u32', 28, 8],
          ['u32', 32, 9],
        ],
        [['target', [1], 8]],
      ],
      ['setTargets', [Uint32Array.of(6)], [['u32', 24, 6]], [['target', [0], 6]]],
    ],
    indices: [
      ['clipHandleAt', 1, 'u32', 12],
      ['clipTimeAt', 1, 'f32', 16],
      ['clipWeightAt', 1, 'f32', 20],
      ['targetAt', 2, 'u32', 24 + 8],
    ],
    indexed: {
      count: 2,
      methods: {
        clipHandle: [],
        clipTime: [],
        clipWeight: [],
        setClip: [4096, 0, 1],
        setClipHandle: [4096],
        setClipTime: [0],
        setClipWeight: [0],
      },
    },
    words: { setClip: [0, 'handle', 0, 1], setClipHandle: [0, 'handle'], setTarget: [0, 'handle'] },
  },
  {
    name: 'SkinningView',
    bytes: 4 + 72 * 2,
    make: (object) => new SkinningView(object),
    rows: [
      ['setBonesModel', [4099], [['u32', 0, 4099]], [['bonesModel', [], 4099]]],
      [
        'setBone',
        [1, 6, 4097],
        [
          ['u32', 8, 6],
          ['u32', 16, 4097],
        ],
        [
          ['matrixIndex', [1], 6],
          ['entity', [1], 4097],
        ],
      ],
      ['setMatrixIndex', [0, 3], [['u32', 4, 3]], [['matrixIndex', [0], 3]]],
      ['setEntity', [0, 5], [['u32', 12, 5]], [['entity', [0], 5]]],
    ],
    indices: [
      ['matrixIndexAt', 1, 'u32', 4 + 4],
      ['entityAt', 1, 'u32', 12 + 4],
      ['resultAt', 1, 'f32', 20 + 64],
    ],
    indexed: {
      count: 2,
      methods: {
        matrixIndex: [],
        setMatrixIndex: [0],
        entity: [],
        setEntity: [0],
        setBone: [0, 0],
        result: [new Float32Array(16)],
      },
    },
    outs: { result: 16 },
    words: {
      setBonesModel: ['handle'],
      setMatrixIndex: [0, 'index'],
      setEntity: [0, 'handle'],
      setBone: [0, 'index', 1],
    },
  },
  {
    name: 'ControllerView',
    bytes: 4 + 12 * 2,
    make: (object) => new ControllerView(object),
    rows: [
      ['setBindingHandle', [last], [['u32', 0, last]], [['bindingHandle', [], last]]],
      [
        'setLayer',
        [1, 1, 0.5, 4097],
        [
          ['u32', 16, 1],
          ['f32', 20, 0.5],
          ['u32', 24, 4097],
        ],
        [
          ['blendMode', [1], 1],
          ['layerWeight', [1], 0.5],
          ['firstState', [1], 4097],
        ],
      ],
      ['setBlendMode', [0, 2], [['u32', 4, 2]], [['blendMode', [0], 2]]],
      ['setLayerWeight', [0, 0.75], [['f32', 8, 0.75]], [['layerWeight', [0], 0.75]]],
      ['setFirstState', [0, 9], [['u32', 12, 9]], [['firstState', [0], 9]]],
    ],
    indices: [
      ['blendModeAt', 1, 'u32', 16],
      ['layerWeightAt', 1, 'f32', 20],
      ['firstStateAt', 1, 'u32', 24],
    ],
    indexed: {
      count: 2,
      methods: {
        blendMode: [],
        setBlendMode: [0],
        layerWeight: [],
        setLayerWeight: [0],
        firstState: [],
        setFirstState: [0],
        setLayer: [0, 1, 0],
      },
    },
    words: {
      setBindingHandle: ['handle'],
      setBlendMode: [0, 'mode'],
      setFirstState: [0, 'handle'],
      setLayer: [0, 'mode', 1, 0],
    },
  },
  {
    name: 'ControllerStateView',
    bytes: 12 + 20 * 2,
    make: (object) => new ControllerStateView(object),
    rows: [
      ['setWeight', [0.5], [['f32', 0, 0.5]], [['weight', [], 0.5]]],
      ['setFillDefaults', [true], [['f32', 4, 1]], [['fillDefaults', [], true]]],
      ['setFillDefaults', [false], [['f32', 4, 0]], [['fillDefaults', [], false]]],
      ['setNextState', [4100], [['u32', 8, 4100]], [['nextState', [], 4100]]],
      [
        'setClip',
        [1, 4098, 7.5, 0.25],
        [
          ['u32', 32, 4098],
          ['f32', 36, 7.5],
          ['f32', 40, 0.25],
        ],
        [
          ['clipHandle', [1], 4098],
          ['clipTime', [1], 7.5],
          ['clipWeight', [1], 0.25],
        ],
      ],
      ['setClipHandle', [0, 5], [['u32', 12, 5]], [['clipHandle', [0], 5]]],
      ['setClipTime', [0, 9], [['f32', 16, 9]], [['clipTime', [0], 9]]],
      ['setClipWeight', [0, 0.5], [['f32', 20, 0.5]], [['clipWeight', [0], 0.5]]],
      [
        'setReference',
        [1, 4101, 3],
        [
          ['u32', 44, 4101],
          ['f32', 48, 3],
        ],
        [
          ['referenceClip', [1], 4101],
          ['referenceTime', [1], 3],
        ],
      ],
    ],
    indices: [
      ['clipHandleAt', 1, 'u32', 32],
      ['clipTimeAt', 1, 'f32', 36],
      ['clipWeightAt', 1, 'f32', 40],
      ['referenceClipAt', 1, 'u32', 44],
      ['referenceTimeAt', 1, 'f32', 48],
    ],
    indexed: {
      count: 2,
      methods: {
        clipHandle: [],
        setClipHandle: [0],
        clipTime: [],
        setClipTime: [0],
        clipWeight: [],
        setClipWeight: [0],
        setClip: [0, 0, 0],
        referenceClip: [],
        referenceTime: [],
        setReference: [0, 0],
      },
    },
    words: {
      setNextState: ['handle'],
      setClipHandle: [0, 'handle'],
      setClip: [0, 'handle', 0, 0],
      setReference: [0, 'handle', 0],
    },
  },
];

/** Asserts that `call` throws `type` with a matching message. */
function assertRefused(call, type, pattern) {
  assert.throws(call, (error) => {
    assert.strictEqual(error.constructor, type, error.stack);
    assert(pattern.test(error.message), error.message);
    return true;
  });
}

for (const { name, bytes, make, rows, indices, indexed, outs = {}, words = {} } of viewCases) {
  describe(name, () => {
    for (const [method, args, values, getters] of rows) {
      it(`${method}(${args.join(', ')}) stores its values and nothing else`, () => {
        const object = poisoned(bytes);
        const view = make(object);
        assert.strictEqual(view[method](...args), undefined);
        assert.deepStrictEqual(over(Uint8Array, object), stored(bytes, values));
        for (const [getter, given, expected] of getters) {
          if (Array.isArray(expected)) {
            const out = new Array(expected.length + 2).fill('untouched');
            assert.strictEqual(view[getter](...given, out, 1), out);
            assert.deepStrictEqual(out, ['untouched', ...expected, 'untouched'], getter);
          } else {
            assert.strictEqual(view[getter](...given), expected, getter);
          }
        }
        assert.deepStrictEqual(over(Uint8Array, object), stored(bytes, values));
      });
    }

    it('accesses a block within a larger buffer like a separate one', () => {
      const before = 20;
      for (const [method, args, values, getters] of rows) {
        const memory = new Uint8Array(before + bytes + 12).fill(0xab);
        const view = make({ id: 4096, buffer: new Uint8Array(memory.buffer, before, bytes) });
        view[method](...args);
        assert.deepStrictEqual(memory.slice(before, before + bytes), stored(bytes, values), method);
        assert(memory.slice(0, before).every((byte) => byte === 0xab));
        assert(memory.slice(before + bytes).every((byte) => byte === 0xab));
        for (const [getter, given, expected] of getters) {
          const isMany = Array.isArray(expected);
          const out = isMany ? [new Array(expected.length)] : [];
          assert.deepStrictEqual(view[getter](...given, ...out), expected, getter);
        }
        for (const [at, i, array, offset] of indices) {
          assert.strictEqual(view[array].byteOffset, before);
          assert.strictEqual(view[at](i) * view[array].BYTES_PER_ELEMENT, offset, at);
        }
        for (const index of [indexed.count, -1]) {
          const [indexMethod] = Object.keys(indexed.methods);
          const given = indexed.methods[indexMethod];
          assertRefused(() => view[indexMethod](index, ...given), RangeError, /: i is /);
        }
      }
    });

    it('refuses a byte range outside its buffer, or unaligned', () => {
      const memory = new ArrayBuffer(bytes + 4);
      const inMemory = (byteOffset, byteLength) => () =>
        make({ id: 4096, buffer: { buffer: memory, byteOffset, byteLength } });
      inMemory(4, bytes)();
      for (const [byteOffset, byteLength, message] of [
        [
          2,
          bytes,
          /: its block starts at byte 2 of a buffer: give one that starts at a multiple of 4/,
        ],
        ['4', bytes, /starts at byte '4' of/],
        [8, bytes, /: its block of \d+ bytes starts at byte 8 of a buffer of \d+: give one within/],
        [4, -1, /: its block of -1 bytes starts/],
        [4, undefined, /: its block of undefined bytes starts/],
      ]) {
        assertRefused(inMemory(byteOffset, byteLength), RangeError, message);
      }
      if (name !== 'AnimatorView') {
        const wrong = new RegExp(`^${name}: a buffer of ${bytes - 4} bytes does not hold`);
        assertRefused(inMemory(4, bytes - 4), RangeError, wrong);
      }
    });

    it('returns indices of fields in its raw arrays', () => {
      const view = make(poisoned(bytes));
      for (const [method, i, array, offset] of indices) {
        const width = view[array].BYTES_PER_ELEMENT;
        assert.strictEqual(view[method](i) * width, offset, method);
        assert.strictEqual(view[array].buffer, view.object.buffer);
        assert.strictEqual(view[array].byteOffset, 0);
      }
    });

    it('refuses indices out of range, and leaves the block unchanged', () => {
      const object = poisoned(bytes);
      const view = make(object);
      const { count, methods } = indexed;
      for (const method of Object.keys(methods)) {
        const args = methods[method];
        view[method](count - 1, ...args);
        over(Uint8Array, object).fill(0xab);
        const where = `${name}\\.${method}: i is `;
        for (const index of [count, -1, 0.5, NaN, last, 2 ** 32]) {
          const message = new RegExp(
            `^${where}${index}, of ${count}: .*from 0 to ${count - 1}\\.$`
          );
          assertRefused(() => view[method](index, ...args), RangeError, message);
        }
        for (const index of ['0', undefined, null, [0]]) {
          assertRefused(() => view[method](index, ...args), TypeError, new RegExp(`^${where}`));
        }
        assert.deepStrictEqual(over(Uint8Array, object), stored(bytes, []), method);
      }
    });

    it('refuses output arrays that are too short', () => {
      const view = make(poisoned(bytes));
      for (const method of Object.keys(outs)) {
        const length = outs[method];
        const where = `^${name}\\.${method}: `;
        view[method](0, new Float32Array(length));
        view[method](0, new Array(length + 3), 3);
        for (const [out, at] of [
          [new Float32Array(length - 1)],
          [new Array(length), 1],
          [new Array(length), last],
        ]) {
          const message = new RegExp(`${where}out has a length of ${out.length}, too short`);
          assertRefused(() => view[method](0, out, at), RangeError, message);
        }
        for (const out of [undefined, null, 5, {}]) {
          assertRefused(() => view[method](0, out), TypeError, new RegExp(`${where}out is `));
        }
        const out = new Array(length + 9);
        assertRefused(() => view[method](0, out, 1.5), RangeError, new RegExp(`${where}at is 1.5`));
      }
    });

    it('refuses invalid handles and words', () => {
      const object = poisoned(bytes);
      const view = make(object);
      for (const method of Object.keys(words)) {
        const args = words[method];
        const argument = args.find((value) => typeof value === 'string');
        const call = (value) => () =>
          view[method](...args.map((one) => (one === argument ? value : one)));
        const where = `^${name}\\.${method}: ${argument} is `;
        for (const value of [-2.5, 0.5, NaN, 2 ** 32]) {
          assertRefused(call(value), RangeError, new RegExp(`${where}${value}: give`));
        }
        for (const value of ['1', undefined, null, {}]) {
          assertRefused(call(value), TypeError, new RegExp(`${where}.*not a number: give`));
        }
        assert.deepStrictEqual(over(Uint8Array, object), stored(bytes, []), method);
      }
    });

    it('refuses values that are not numbers', () => {
      const object = poisoned(bytes);
      const view = make(object);
      for (const [method, args] of rows) {
        const numbers = args.filter((value) => typeof value === 'number').length;
        if (!method.startsWith('set') || numbers !== args.length) {
          continue;
        }
        for (let i = 0; i < args.length; ++i) {
          for (const wrong of [undefined, '1', null, [1, 2, 3], true]) {
            const given = args.slice();
            given[i] = wrong;
            const message = new RegExp(`^${name}\\.${method}: \\w+ is .*not a number: give`);
            assertRefused(() => view[method](...given), TypeError, message);
          }
        }
      }
      assert.deepStrictEqual(over(Uint8Array, object), stored(bytes, []));
    });

    it('refuses objects without a block of the right size', () => {
      const Class = views[name];
      for (const wrong of [
        undefined,
        null,
        5,
        {},
        { id: 0 },
        { id: 4096, buffer: Array.from(new Uint8Array(bytes)) },
        { id: 4096, buffer: { buffer: {}, byteOffset: 0, byteLength: bytes } },
        { id: 4096, buffer: { [Symbol.toStringTag]: 'ArrayBuffer' } },
        ...hostileObjects().map((buffer) => ({ id: 4096, buffer })),
      ]) {
        const message = new RegExp(`^${name}: .*not an ArrayBuffer: give what create`);
        assertRefused(() => new Class(wrong, 1), TypeError, message);
      }
      if (name !== 'AnimatorView') {
        for (const length of [0, bytes - 4, bytes + 1]) {
          const message = new RegExp(`^${name}: a buffer of ${length} bytes does not hold`);
          assertRefused(() => new Class(poisoned(length)), RangeError, message);
        }
      }
    });
  });
}

describe('ControllerStateView', () => {
  it('reads any number except 0 and -0 as fillDefaults', () => {
    const view = new ControllerStateView(poisoned(32));
    for (const [value, expected] of [
      [0, false],
      [-0, false],
      [1e-30, true],
      [NaN, true],
    ]) {
      view.f32[1] = value;
      assert.strictEqual(view.fillDefaults(), expected, String(value));
    }
  });
});

describe('AnimatorView', () => {
  it('requires the clipCount of its component', () => {
    const component = poisoned(28);
    assert.strictEqual(new AnimatorView(component, 1).entityCount, 4);
    assert.strictEqual(new AnimatorView(component, 2).entityCount, 1);
    for (const count of [0, 3, -1, 1.5]) {
      const message = new RegExp(`^AnimatorView: clipCount is ${count}, for a buffer of 28 bytes`);
      assertRefused(() => new AnimatorView(component, count), RangeError, message);
    }
    assertRefused(() => new AnimatorView(component), TypeError, /clipCount is undefined/);
  });

  it('refuses targets beyond the table', () => {
    const view = new AnimatorView(poisoned(36), 2);
    const past = /^AnimatorView\.setTargets: 2 handles from entry 2 go past the 3 entries/;
    assertRefused(() => view.setTargets([1, 2], 2), RangeError, past);
    assertRefused(() => view.setTargets([1], -1), RangeError, /setTargets: from is -1/);
    assertRefused(() => view.setTargets('12'), TypeError, /setTargets: handles is '12'/);
    assertRefused(() => view.setTargets([1, 0.5]), RangeError, /handles\[1\] is 0\.5/);
    assertRefused(() => view.setTarget(3, 1), RangeError, /setTarget: k is 3, of 3/);
    assertRefused(() => view.target(3), RangeError, /target: k is 3, of 3/);
    assert.deepStrictEqual(over(Uint8Array, view.u32), stored(36, []));
  });
});

describe('setters of several fields', () => {
  it('refuse handles that are no words, and write nothing', () => {
    const skinning = new SkinningView(poisoned(76));
    assertRefused(() => skinning.setBone(0, 0, -1), RangeError, /setBone: handle is -1/);
    assert.deepStrictEqual(new Uint8Array(skinning.u32.buffer), stored(76, []));
    const controller = new ControllerView(poisoned(16));
    assertRefused(
      () => controller.setLayer(0, 0, 1, 0.5),
      RangeError,
      /setLayer: firstState is 0\.5/
    );
    assert.deepStrictEqual(new Uint8Array(controller.u32.buffer), stored(16, []));
  });
});

/** An engine with writers, as a test fixture. */
class Scene {
  constructor(engine = nq.getEngine()) {
    this.engine = engine;
    this.commands = new EntityCommandWriter(engine);
    this.dirty = new DirtyListWriter(engine);
  }

  /** Entities of one batch, each a root with identity transform. */
  add(is3D, count) {
    const entity = this.engine.createEntity(is3D, count);
    const view = is3D ? new Entity3DView(entity) : new Entity2DView(entity);
    for (let i = 0; i < count; ++i) {
      view.reset(i);
      this.commands.addRoot(view.handle(i));
    }
    return view;
  }

  refresh(...entities) {
    entities.forEach(({ id, count }) => this.dirty.appendRange(id, count));
    this.engine.refreshWorldTransform();
  }

  /** A clip of constant curves: target, type, value. */
  clip(...curves) {
    const bytes = buildClip({
      framesPerSecond: 30,
      frameCount: 60,
      curves: curves.map(([target, type, value]) => ({
        target,
        type,
        keys: [{ frame: 0, value, inTangent: 0, outTangent: 0 }],
      })),
    });
    return this.engine.createDataModel(1, bytes);
  }
}

describe('views of entities, with the engine', () => {
  it('write transforms of 3D entities, and read their world matrices', () => {
    const scene = new Scene();
    const view = new Entity3DView(scene.engine.createEntity(true, 2));
    assert.strictEqual(view.count, 2);
    assert.strictEqual(view.handle(1), view.id + 1);
    scene.commands.addRoot(view.handle(0));
    scene.commands.addChild(view.handle(0), view.handle(1));
    view.setEuler(0, 0, 0, Math.PI / 2);
    view.setPosition(0, 1, 2, 3);
    view.setScale(0, 2, 2, 2);
    view.reset(1);
    view.setPosition(1, 1, 0, 0);
    view.setQuaternion(1, half, 0, 0, half);
    scene.refresh(view);

    // The parent rotates x to y and y to -x, and scales by 2; the child rotates y to z and z to -y.
    assertNear(view.worldMatrix(0, new Float32Array(16)), [
      ...[0, 2, 0, 0],
      ...[-2, 0, 0, 0],
      ...[0, 0, 2, 0],
      ...[1, 2, 3, 1],
    ]);
    const matrices = new Array(20).fill(-1);
    assert.strictEqual(view.worldMatrix(1, matrices, 2), matrices);
    assertNear(matrices, [
      ...[-1, -1],
      ...[0, 2, 0, 0],
      ...[0, 0, 2, 0],
      ...[2, 0, 0, 0],
      ...[1, 4, 3, 1],
      ...[-1, -1],
    ]);
    assertNear(view.worldPosition(1, [0, 0, 0]), [1, 4, 3]);
    assert.strictEqual(view.f32[view.worldMatrixAt(1) + 14], 3);
  });

  it('write transforms of 2D entities, and read their world matrices', () => {
    const scene = new Scene();
    const view = new Entity2DView(scene.engine.createEntity(false, 2));
    scene.commands.addRoot(view.handle(0));
    scene.commands.addChild(view.handle(0), view.handle(1));
    view.setRotation(0, Math.PI / 2); // from y towards x: x goes to -y, y to x
    view.setPosition(0, 5, 6);
    view.setScale(0, 2, 3);
    view.reset(1);
    view.setPosition(1, 1, 10);
    scene.refresh(view);
    const parent = [0, -2, 0, 3, 0, 0, 5, 6, 1];
    assertNear(view.worldMatrix(0, new Float64Array(9)), parent);
    assertNear(
      view.worldMatrix(1, [].concat(new Array(9).fill(0))),
      [0, -2, 0, 3, 0, 0, 35, 4, 1],
      1e-5
    );
    assertNear(view.worldPosition(1, [0, 0]), [35, 4], 1e-5);
  });

  it('refuse objects whose id is 0', () => {
    const { engine } = new Scene();
    const none =
      /its buffer is undefined, not an ArrayBuffer: give what createEntity\(true, count\)/;
    assertRefused(() => new Entity3DView(engine.createEntity(true, 4096)), TypeError, none);
    assertRefused(() => new Entity3DView(engine.createEntity(false, 5)), RangeError, /280 bytes/);
    assertRefused(() => new Entity2DView(engine.createEntity(true, 5)), RangeError, /540 bytes/);
  });
});

describe('views of culling, with the engine', () => {
  const looking = [...[0, 0, 10], ...[0, 0, 0], ...[0, 1, 0], ...[Math.PI / 2, 1, 1, 100]];

  /** Spheres of radius 1 on a line along z, from 0 backwards, one unit apart. */
  function makeRow(count) {
    const scene = new Scene();
    const entities = scene.add(true, count);
    for (let i = 0; i < count; ++i) {
      entities.setPosition(i, 0, 0, -i * 0.0625);
    }
    scene.refresh(entities);
    const objects = new CullingObjectsView(scene.engine.createComponent(1, count));
    for (let i = 0; i < count; ++i) {
      objects.setEnabled(i, true);
      objects.setMask(i, 1 << i % 32);
      objects.setSphere(i, 0, 0, 0, 1);
      objects.setEntity(i, entities.handle(i));
    }
    return { engine: scene.engine, scene, entities, objects };
  }

  it('read visible objects, nearest first', () => {
    const { engine, objects } = makeRow(3);
    const result = new CullingResultView(engine);
    objects.setEnabled(1, false);
    assert.strictEqual(engine.frustumCullingV2(-1 >>> 0, ...looking), false);
    assert.strictEqual(result.count, 2);
    assert.deepStrictEqual(
      [result.object(0), result.object(1)],
      [objects.handle(0), objects.handle(2)]
    );
    assert.deepStrictEqual([result.distance(0), result.distance(1)], [10, 10.125]);
    const hash = (Math.imul(objects.handle(0), 31) + objects.handle(2)) >>> 0;
    assert.strictEqual(result.hash, hash);
    assert.strictEqual(result.capacity, 1000);
    assert.deepStrictEqual(result.objects([0, 0, 0], 1), [0, objects.handle(0), objects.handle(2)]);
    assert.strictEqual(result.u32[2], objects.handle(0));
    assert.strictEqual(result.f32[result.distancesAt() + 1], 10.125);

    const answer = new CullingAnswerView(engine.frustumCulling(-1 >>> 0, ...looking));
    assert.strictEqual(answer.count, 2);
    assert.strictEqual(answer.object(1), objects.handle(2));
    assert.strictEqual(answer.distance(1), 10.125);
    assert.strictEqual(answer.hash, hash);

    assertRefused(() => answer.object(2), RangeError, /CullingAnswerView\.object: i is 2, of 2/);
    assertRefused(
      () => answer.distance(2),
      RangeError,
      /CullingAnswerView\.distance: i is 2, of 2/
    );

    const list = HandleList.from([objects.handle(2)]);
    const listed = new CullingAnswerView(engine.frustumCulling(last, ...looking, list.buffer));
    assert.deepStrictEqual(Array.from(listed.objects), [objects.handle(2)]);
    objects.setMask(2, 1 << 31);
    assert.strictEqual(new CullingAnswerView(engine.frustumCulling(4, ...looking)).count, 0);
    const top = new CullingAnswerView(engine.frustumCulling(0x80000000, ...looking));
    assert.deepStrictEqual(Array.from(top.objects), [objects.handle(2)]);
  });

  it('read results within a larger buffer', () => {
    const memory = new ArrayBuffer(64);
    const part = (byteOffset, byteLength) => new Uint8Array(memory, byteOffset, byteLength);
    new Uint32Array(memory, 8, 4).set([77, 1, 4096]);
    new Float32Array(memory, 20, 1)[0] = 2.5;
    const result = new CullingResultView({ cullingResult: part(8, 24) });
    assert.deepStrictEqual([result.hash, result.count, result.capacity], [77, 1, 2]);
    assert.deepStrictEqual([result.object(0), result.distance(0)], [4096, 2.5]);
    const answer = { objects: part(16, 4), distances: part(20, 4), hash: 77 };
    const view = new CullingAnswerView(answer);
    assert.deepStrictEqual([view.count, view.object(0), view.distance(0)], [1, 4096, 2.5]);
  });

  it('refuse an answer without objects or without distances', () => {
    const buffer = new ArrayBuffer(4);
    const cure = 'not an ArrayBuffer: give what frustumCulling or orthoCulling returned';
    assertRefused(
      () => new CullingAnswerView({ objects: buffer, distances: undefined, hash: 0 }),
      TypeError,
      new RegExp(`^CullingAnswerView: its distances are undefined, ${cure}`)
    );
    assertRefused(
      () => new CullingAnswerView({ objects: null, distances: buffer, hash: 0 }),
      TypeError,
      new RegExp(`^CullingAnswerView: its objects are null, ${cure}`)
    );
  });

  it('switch to the larger buffer of a grown result', () => {
    const { engine, entities, objects, scene } = makeRow(1001);
    const result = new CullingResultView(engine);
    const old = engine.cullingResult;
    objects.setEnabled(1000, false);
    assert.strictEqual(engine.frustumCullingV2(last, ...looking), false);
    assert.strictEqual(engine.cullingResult, old);
    assert.strictEqual(result.count, 1000);
    assert.strictEqual(result.distance(999), 10 + 999 * 0.0625);
    objects.setEnabled(1000, true);
    assert.strictEqual(engine.frustumCullingV2(last, ...looking), true);
    assert.notStrictEqual(engine.cullingResult, old);
    assert.strictEqual(result.count, 1001);
    assert.strictEqual(result.capacity, 1481);
    assert.strictEqual(result.object(1000), objects.handle(1000));
    assert.strictEqual(result.distance(1000), 10 + 1000 * 0.0625);
    assert.strictEqual(result.u32.buffer, engine.cullingResult);
    assert.strictEqual(result.f32.buffer, engine.cullingResult);
    // Each getter in turn is the first access after a replacement.
    for (const read of ['count', 'hash', 'u32', 'f32', 'capacity']) {
      const fresh = makeRow(1001);
      const view = new CullingResultView(fresh.engine);
      assert.strictEqual(fresh.engine.frustumCullingV2(last, ...looking), true);
      assert(view[read], read);
      assert.strictEqual(view.u32.buffer, fresh.engine.cullingResult, read);
    }
    assert(entities.count === 1001 && scene.engine === engine);
  });

  it('distinguish an empty result from the previous one', () => {
    const { engine, objects } = makeRow(2);
    const result = new CullingResultView(engine);
    engine.frustumCullingV2(last, ...looking);
    objects.setEnabled(0, false);
    objects.setEnabled(1, false);
    engine.frustumCullingV2(last, ...looking);
    assert.strictEqual(result.count, 2);
    result.clear();
    engine.frustumCullingV2(last, ...looking);
    assert.strictEqual(result.count, 0);
    assert.strictEqual(result.hash, 0);
    assertRefused(() => result.object(0), RangeError, /object: i is 0, of 0: there are none/);
    assertRefused(() => result.distance(0), RangeError, /distance: i is 0, of 0: there are none/);
    const answer = new CullingAnswerView(engine.frustumCulling(last, ...looking));
    assert.deepStrictEqual([answer.count, answer.hash, answer.answer], [0, 0, null]);
    assertRefused(() => answer.object(0), RangeError, /CullingAnswerView\.object: i is 0, of 0/);
    assertRefused(() => answer.distance('0'), TypeError, /CullingAnswerView\.distance: i is '0'/);
  });

  it('refuse values that are not an engine or a culling result', () => {
    assertRefused(() => new CullingResultView(null), TypeError, /CullingResultView: got null/);
    assertRefused(() => new CullingResultView({}), TypeError, /its cullingResult is undefined/);
    assertRefused(() => new CullingAnswerView(false), TypeError, /CullingAnswerView: got false/);
    assertRefused(() => new CullingAnswerView({}), TypeError, /its objects are undefined/);
    const { engine } = makeRow(3);
    engine.frustumCullingV2(last, ...looking);
    const result = new CullingResultView(engine);
    assertRefused(
      () => result.objects(new Uint32Array(2)),
      RangeError,
      /objects: out has a length of 2/
    );
    assertRefused(() => result.object(3), RangeError, /object: i is 3, of 3/);
    assertRefused(() => result.distance(3), RangeError, /distance: i is 3, of 3/);
  });
});

describe('views of animators and skinning, with the engine', () => {
  const { PositionX, PositionY, ScaleX } = sampleTypes;

  it('set the clips and targets of an animator', () => {
    const scene = new Scene();
    const [near, far] = [
      scene.clip([0, PositionX, 8], [1, PositionX, 1]),
      scene.clip([0, PositionX, 4]),
    ];
    const entities = scene.add(true, 2);
    const animator = new AnimatorView(scene.engine.createComponent(2, 2, 3), 2);
    assert.strictEqual(animator.entityCount, 3);
    // Two targets of the first clip, one of the second.
    animator.setTargets([entities.handle(0), entities.handle(1), entities.handle(0)]);
    animator.setClip(0, near.id, 0, 0.25);
    animator.setClip(1, far.id, 0, 0.75);
    const batch = HandleList.from([animator.id]);
    scene.engine.updateAnimators(batch.buffer);
    assert.strictEqual(entities.position(0, [0, 0, 0])[0], 5); // 8 / 4 + 4 * 3 / 4
    animator.setClipWeight(1, 0);
    animator.setTarget(1, handles.none);
    entities.setPosition(1, 7, 7, 7);
    scene.engine.updateAnimators(batch.u32);
    assert.deepStrictEqual(entities.position(0, [0, 0, 0]), [8, 0, 0]);
    assert.deepStrictEqual(entities.position(1, [0, 0, 0]), [7, 7, 7]);
  });

  it('set the time of a clip', () => {
    const scene = new Scene();
    const rise = [
      { frame: 0, value: 0 },
      { frame: 30, value: 3 },
    ].map((key) => Object.assign({ inTangent: 3, outTangent: 3 }, key));
    const curves = [{ target: 0, type: PositionY, keys: rise }];
    const bytes = buildClip({ framesPerSecond: 30, frameCount: 60, curves });
    const clip = scene.engine.createDataModel(1, bytes);
    const entities = scene.add(false, 1);
    const animator = new AnimatorView(scene.engine.createComponent(2, 1, 1), 1);
    animator.setClip(0, clip.id, 0, 1);
    animator.setTarget(0, entities.handle(0));
    animator.setClipTime(0, 10);
    scene.engine.updateAnimator(animator.id);
    assertNear(entities.position(0, [0, 0]), [0, 1]); // 3 a second, after a third of one
  });

  it('set bones and their matrices, and read the results', () => {
    const scene = new Scene();
    const bones = scene.add(true, 2);
    bones.setPosition(1, 1, 2, 3);
    bones.setScale(1, 2, 2, 2);
    scene.refresh(bones);
    const shift = (x, y, z) => [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1];
    const model = scene.engine.createDataModel(
      2,
      Float32Array.from([...shift(-1, -2, -3), ...shift(10, 20, 30)])
    );
    const skin = new SkinningView(scene.engine.createComponent(3, 2));
    assert.deepStrictEqual([skin.count, skin.is3D, skin.matrixFloats], [2, true, 16]);
    skin.setBonesModel(model.id);
    skin.setBone(0, 1, bones.handle(1));
    skin.setMatrixIndex(1, 0);
    skin.setEntity(1, bones.handle(0));
    scene.engine.updateSkinningMatrices(HandleList.from([skin.id]).u32);
    const scaled = [2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 21, 42, 63, 1]; // 1 + 2 * 10, ...
    assertNear(skin.result(0, new Float32Array(16)), scaled);
    assertNear(skin.result(1, new Array(16)), shift(-1, -2, -3));
    assertNear(skin.results, [...scaled, ...shift(-1, -2, -3)]);
    assert.strictEqual(skin.f32[skin.resultAt(1) + 13], -2);
  });

  it('read the smaller results of 2D bones', () => {
    const scene = new Scene();
    const bones = scene.add(false, 2);
    bones.setPosition(0, 5, 6);
    bones.setScale(0, 2, 3);
    scene.refresh(bones);
    const model = scene.engine.createDataModel(
      2,
      Float32Array.of(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 1, 0, 1)
    );
    const skin = new SkinningView(scene.engine.createComponent(3, 2), false);
    assert.strictEqual(skin.matrixFloats, 9);
    skin.setBonesModel(model.id);
    skin.setBone(0, 0, bones.handle(1));
    skin.setBone(1, 0, bones.handle(0));
    scene.engine.updateSkinningMatrix(skin.id);
    assertNear(skin.result(0, new Array(9)), [1, 0, 0, 0, 1, 0, 1, 1, 1]);
    assertNear(skin.result(1, new Array(9)), [2, 0, 0, 0, 3, 0, 7, 9, 1]);
    assert.strictEqual(skin.results.length, 18);
    assertRefused(() => new SkinningView(skin.object, 'no'), TypeError, /is3D is 'no'/);
  });

  it('leave channels without keys unchanged', () => {
    const scene = new Scene();
    const entities = scene.add(true, 1);
    entities.setPosition(0, 1, 2, 3);
    const clip = scene.clip([0, ScaleX, 5]);
    const animator = new AnimatorView(scene.engine.createComponent(2, 1, 1), 1);
    animator.setTarget(0, entities.handle(0));
    animator.setClip(0, clip.id, 0, 1);
    scene.engine.updateAnimator(animator.id);
    assert.deepStrictEqual(entities.position(0, [0, 0, 0]), [1, 2, 3]);
    assert.deepStrictEqual(entities.scale(0, [0, 0, 0]), [5, 1, 1]);
  });
});

describe('views of controllers, with the engine', () => {
  const { PositionX } = sampleTypes;

  /** Two entities with x 10 at rest, a binding of two clips that move them to 4 and to 8, one controller. */
  function makeStage() {
    const scene = new Scene();
    const { engine } = scene;
    const entities = scene.add(true, 2);
    entities.setPosition(0, 10, 0, 0);
    entities.setPosition(1, 10, 0, 0);
    scene.refresh(entities);
    const four = scene.clip([0, PositionX, 4], [1, PositionX, 4]);
    const eight = scene.clip([0, PositionX, 8], [1, PositionX, 8]);
    const both = [entities.handle(0), entities.handle(1)];
    const lists = TargetListsView.from([
      { clip: four.id, entities: both },
      { clip: eight.id, entities: Uint32Array.from(both) },
    ]);
    const binding = lists.createBinding(engine);
    const controller = new ControllerView(engine.createAnimatorControllerModel(2));
    assert.strictEqual(controller.layerCount, 2);
    controller.setBindingHandle(binding.id);
    const stage = { scene, engine, entities, four, eight, lists, binding, controller };
    stage.state = (clip, weight = 1) => {
      const view = new ControllerStateView(engine.createAnimatorControllerStateModel(1));
      view.setWeight(weight);
      view.setNextState(handles.none);
      view.setClip(0, clip.id, 0, 1);
      return view;
    };
    stage.play = () => {
      engine.updateAnimatorControllers(HandleList.from([controller.id]).buffer);
      return [0, 1].map((i) => entities.position(i, [0, 0, 0])[0]);
    };
    return stage;
  }

  it('set weight and blend mode of a layer', () => {
    const stage = makeStage();
    const { controller } = stage;
    const state = stage.state(stage.four);
    controller.setLayer(0, layerBlendModes.override, 0.5, state.id);
    controller.setLayer(1, layerBlendModes.off, 1, state.id);
    assert.deepStrictEqual(stage.play(), [7, 7]); // half of 4, half of 10
    controller.setLayerWeight(0, 1);
    assert.deepStrictEqual(stage.play(), [4, 4]);
    stage.entities.setPosition(0, 1, 0, 0);
    controller.setBlendMode(0, layerBlendModes.off);
    assert.deepStrictEqual(stage.play(), [1, 4]);
    controller.setBlendMode(0, layerBlendModes.override);
    controller.setFirstState(0, handles.none);
    assert.deepStrictEqual(stage.play(), [1, 4]);
    controller.setFirstState(0, state.id);
    controller.setBindingHandle(handles.none);
    assert.deepStrictEqual(stage.play(), [1, 4]);
  });

  it('chain states with weights', () => {
    const stage = makeStage();
    const next = stage.state(stage.four, 0.25);
    const first = stage.state(stage.eight, 0.75);
    first.setNextState(next.id);
    stage.controller.setLayer(0, layerBlendModes.override, 1, first.id);
    assert.deepStrictEqual(stage.play(), [7, 7]); // 8 * 3 / 4 + 4 / 4
    first.setWeight(1);
    first.setNextState(handles.none);
    assert.deepStrictEqual(stage.play(), [8, 8]);
    first.setClipHandle(0, stage.four.id);
    assert.deepStrictEqual(stage.play(), [4, 4]);
  });

  it('set the reference pose of an additive layer', () => {
    const stage = makeStage();
    const state = stage.state(stage.eight);
    state.setReference(0, stage.four.id, 0);
    stage.controller.setLayer(0, layerBlendModes.additive, 0.5, state.id);
    assert.deepStrictEqual(stage.play(), [12, 12]); // (8 - 4) / 2 + 10
  });

  it('mask entities of a layer', () => {
    const stage = makeStage();
    const state = stage.state(stage.four);
    stage.controller.setLayer(0, layerBlendModes.override, 1, state.id);
    const mask = new MaskView(1);
    mask.set(0, stage.entities.handle(1), 0);
    assert.deepStrictEqual([mask.entity(0), mask.weight(0)], [stage.entities.handle(1), 0]);
    mask.apply(stage.controller.object, 0);
    assert.deepStrictEqual(stage.play(), [4, 10]);
    new MaskView(0).apply(stage.controller.object, 0);
    assert.deepStrictEqual(stage.play(), [4, 4]);
  });

  it('blend in rest poses by fillDefaults', () => {
    const stage = makeStage();
    const { engine, entities, lists, binding } = stage;
    entities.setQuaternion(0, 0, 0, half, half);
    assert.strictEqual(
      lists.updateBinding(binding, removedModes.keep, keptModes.retake, addedModes.take),
      true
    );
    entities.setQuaternion(0, 0, 0, 0, 1);
    const state = stage.state(stage.four);
    stage.controller.setLayer(0, layerBlendModes.override, 1, state.id);
    stage.play();
    assert.deepStrictEqual(entities.rotation(0, [0, 0, 0, 0]), [0, 0, 0, 1]);
    state.setFillDefaults(true);
    stage.play();
    assertNear(entities.rotation(0, [0, 0, 0, 0]), [0, 0, half, half]);
    assert(engine === stage.scene.engine);
  });

  // Rest poses of bound entities, one of which is removed, one kept, one added.
  it('pass the modes of updateBinding', () => {
    const outcome = (removedMode, keptMode) => {
      const stage = makeStage();
      const { engine, entities, four } = stage;
      const lists = (bound) => TargetListsView.from([{ clip: four.id, entities: bound }], 2);
      const [leaves, stays] = [entities.handle(0), entities.handle(1)];
      const binding = lists([leaves, stays]).createBinding(engine, addedModes.take);
      entities.setPosition(0, 20, 0, 0);
      entities.setPosition(1, 20, 0, 0);
      const removed = lists([stays, handles.none]);
      assert.strictEqual(
        removed.updateBinding(binding, removedMode, keptMode, addedModes.none),
        true
      );
      const now = [0, 1].map((i) => entities.position(i, [0, 0, 0])[0]);
      // A layer of weight 0 holds its entities in their rest poses, which makes these visible.
      const back = lists([leaves, stays]);
      back.updateBinding(binding, removedModes.keep, keptModes.keep, addedModes.none);
      const controller = new ControllerView(engine.createAnimatorControllerModel(1));
      const state = stage.state(four);
      controller.setBindingHandle(binding.id);
      controller.setLayer(0, layerBlendModes.override, 0, state.id);
      entities.setPosition(0, -1, 0, 0);
      entities.setPosition(1, -1, 0, 0);
      engine.updateAnimatorControllers(HandleList.from([controller.id]).u32);
      const rests = [0, 1].map((i) => entities.position(i, [0, 0, 0])[0]);
      return { now, rests };
    };
    const { keep, forget, restoreAndKeep, restoreAndForget } = removedModes;
    assert.deepStrictEqual(outcome(keep, keptModes.keep), { now: [20, 20], rests: [10, 10] });
    assert.deepStrictEqual(outcome(forget, keptModes.retake), { now: [20, 20], rests: [-1, 20] });
    assert.deepStrictEqual(outcome(restoreAndKeep, keptModes.restoreAndKeep), {
      now: [10, 10],
      rests: [10, 10],
    });
    assert.deepStrictEqual(outcome(restoreAndForget, keptModes.restoreAndRetake), {
      now: [10, 10],
      rests: [-1, 20],
    });
  });

  it('bind without rest poses by mode 0', () => {
    const stage = makeStage();
    const binding = stage.lists.createBinding(stage.engine, addedModes.none);
    stage.controller.setBindingHandle(binding.id);
    stage.controller.setLayer(0, layerBlendModes.override, 1, stage.state(stage.four).id);
    assert.deepStrictEqual(stage.play(), [10, 10]);
  });
});

describe('lists for calls of objects', () => {
  it('name what is not such an object, and the cure', () => {
    const controller = new ControllerView(nq.getEngine().createAnimatorControllerModel(1));
    const lists = new TargetListsView([0]);
    const of =
      'give what createAnimatorControllerModel returned, which a view has as its "object".';
    const bound = 'give what createAnimationClipBinding or createBinding returned.';
    const cases = [
      [
        () => new MaskView(1).apply(controller, 0),
        `MaskView.apply: controller is an object without setMaskAtIndex: ${of}`,
      ],
      [
        () => new MaskView(1).apply(undefined, 0),
        `MaskView.apply: controller is undefined without setMaskAtIndex: ${of}`,
      ],
      [
        () => lists.createBinding(controller),
        'TargetListsView.createBinding: engine is an object without createAnimationClipBinding: give what ' +
          'getEngine or checked returned.',
      ],
      [
        () => lists.updateBinding(controller, 0, 0, 0),
        `TargetListsView.updateBinding: binding is an object without updateBinding: ${bound}`,
      ],
      [
        () => lists.updateBinding(4, 0, 0, 0),
        `TargetListsView.updateBinding: binding is 4 without updateBinding: ${bound}`,
      ],
    ];
    for (const [call, message] of cases) {
      assert.throws(call, { name: 'TypeError', message });
    }
  });
});

describe('TargetListsView', () => {
  it('writes handles, counts and targets', () => {
    const lists = new TargetListsView([2, 0, 1], 3);
    lists.setClip(0, 4096);
    lists.setClip(1, 4097);
    lists.setClip(2, 4098);
    lists.setTarget(0, 1, 8192);
    lists.setTarget(2, 0, 8193);
    const words = [4096, 4097, 4098, 2, last, 8192, 0, 1, 8193, 0, 0, 0];
    assert.deepStrictEqual(Array.from(over(Uint32Array, lists)), words);
    assert.deepStrictEqual([lists.clipCount, lists.targetWords, lists.byteOffset], [3, 9, 0]);
    assert.deepStrictEqual(
      [0, 1, 2].map((i) => lists.targetCount(i)),
      [2, 0, 1]
    );
    assert.deepStrictEqual(
      [0, 1, 2].map((i) => lists.clip(i)),
      [4096, 4097, 4098]
    );
    assert.deepStrictEqual([lists.target(0, 0), lists.target(2, 0)], [last, 8193]);
    const same = TargetListsView.from(
      [
        { clip: 4096, entities: [last, 8192] },
        { clip: 4097, entities: [] },
        { clip: 4098, entities: Uint32Array.of(8193) },
      ],
      3
    );
    assert.deepStrictEqual(same.u32, lists.u32);
  });

  it('reads existing lists in a buffer', () => {
    const words = Uint32Array.of(0xabababab, 4096, 4097, 1, 8192, 2, 8193, 8194, 0xabababab);
    const lists = TargetListsView.over(words.buffer, 4, 2, 5);
    assert.deepStrictEqual([lists.target(0, 0), lists.target(1, 1)], [8192, 8194]);
    lists.setTarget(1, 0, 5);
    assert.strictEqual(words[6], 5);
    const over =
      (...args) =>
      () =>
        TargetListsView.over(...args);
    assertRefused(
      over(words.buffer, 4, 2, 4),
      RangeError,
      /list of clip 1 extends beyond the 4 words/
    );
    assertRefused(
      over(words.buffer, 4, 2, 2),
      RangeError,
      /list of clip 1 extends beyond the 2 words/
    );
    assertRefused(over(words.buffer, 4, 2, 7), RangeError, /36 bytes from 4 go past the 36/);
    assertRefused(over(words.buffer, 2, 2, 5), RangeError, /byteOffset is 2: give a multiple of 4/);
    assertRefused(over(words, 4, 2, 5), TypeError, /buffer is an object: give an ArrayBuffer/);
    assertRefused(over(words.buffer, 4, 0, 5), RangeError, /clipCount is 0/);
    assertRefused(over(words.buffer, 4, 2), TypeError, /targetWords is undefined/);
  });

  it('refuses invalid lists', () => {
    const make =
      (...args) =>
      () =>
        new TargetListsView(...args);
    assertRefused(make(), TypeError, /counts is undefined/);
    for (const hostile of hostileObjects()) {
      assertRefused(make(hostile), TypeError, /counts is an object/);
    }
    assertRefused(make([]), TypeError, /counts is empty/);
    assertRefused(make([1, -1]), RangeError, /counts\[1\] is -1/);
    assertRefused(make([1], 0.5), RangeError, /spareWords is 0\.5/);
    const from = (groups) => () => TargetListsView.from(groups);
    assertRefused(
      from([5]),
      TypeError,
      /groups is an array: give an array of \{ clip, entities \}/
    );
    assertRefused(
      from([{ clip: 1, entities: [0.5] }]),
      RangeError,
      /groups\[0\]\.entities\[0\] is 0\.5/
    );
    assertRefused(from([{ clip: -1, entities: [] }]), RangeError, /setClip: handle is -1/);
    const lists = new TargetListsView([2, 0]);
    assertRefused(() => lists.target(0, 2), RangeError, /target: k is 2, of 2/);
    assertRefused(
      () => lists.setTarget(1, 0, 5),
      RangeError,
      /setTarget: k is 0, of 0: there are none/
    );
    assertRefused(() => lists.setTarget(2, 0, 5), RangeError, /setTarget: i is 2, of 2/);
    assertRefused(() => lists.setTarget(0, 0, -1), RangeError, /setTarget: handle is -1/);
    for (const method of ['clip', 'targetCount', 'setClip']) {
      assertRefused(() => lists[method](2, 1), RangeError, new RegExp(`${method}: i is 2, of 2`));
    }
  });
});

describe('MaskView', () => {
  it('stores entities and weights', () => {
    const mask = new MaskView(3);
    mask.set(1, 4097, 0.5);
    const expected = new DataView(new ArrayBuffer(24));
    expected.setUint32(8, 4097, true);
    expected.setFloat32(12, 0.5, true);
    assert.deepStrictEqual(over(Uint8Array, mask), over(Uint8Array, expected));
    assert.deepStrictEqual([mask.count, mask.entity(1), mask.weight(1)], [3, 4097, 0.5]);
  });

  it('refuses entries out of range', () => {
    const mask = new MaskView(1);
    assertRefused(() => mask.set(1, 1, 1), RangeError, /MaskView\.set: i is 1, of 1/);
    assertRefused(() => mask.set(0, -1, 1), RangeError, /MaskView\.set: entity is -1/);
    assertRefused(() => mask.set(0, 1), TypeError, /MaskView\.set: weight is undefined/);
    assertRefused(() => mask.entity(1), RangeError, /MaskView\.entity: i is 1/);
    assertRefused(() => mask.weight(1), RangeError, /MaskView\.weight: i is 1/);
    assertRefused(() => new MaskView(-1), RangeError, /MaskView: count is -1/);
    assertRefused(() => new MaskView('1'), TypeError, /MaskView: count is '1'/);
  });
});

describe('HandleList', () => {
  it('counts its handles', () => {
    const list = new HandleList(2);
    assert.deepStrictEqual(Array.from(list.u32), [0, 0, 0]);
    list.append(4096);
    list.append(last);
    assert.deepStrictEqual(Array.from(over(Uint32Array, list)), [2, 4096, last]);
    assert.deepStrictEqual([list.count, list.capacity, list.handle(1)], [2, 2, last]);
    const full = /HandleList\.append: the list is full, with 2 handles: clear it/;
    assertRefused(() => list.append(1), RangeError, full);
    assertRefused(() => list.handle(2), RangeError, /HandleList\.handle: i is 2, of 2/);
    list.clear();
    assert.strictEqual(list.count, 0);
    assertRefused(() => list.append(0.5), RangeError, /append: handle is 0\.5/);
    assertRefused(() => new HandleList(), TypeError, /capacity is undefined/);
    assertRefused(() => HandleList.from('1'), TypeError, /values is '1'/);
    assert.deepStrictEqual(Array.from(HandleList.from([7, 8]).u32), [2, 7, 8]);
  });
});

describe('memory of views', () => {
  const rounds = 50;
  const perRound = 20000;
  const kBytesAccess = 4; // the least object takes three times as much

  /** Bytes that calls of `access(i)` allocate on the heap, without those of the measurement. */
  function bytesPerAccess(access) {
    const run = new Function('access', 'n', 'for (let i = 0; i < n; ++i) access(i);');
    // Long enough to be optimised.
    run(access, 10 * perRound);
    let bytes = 0;
    for (let i = 0; i < rounds; ++i) {
      const before = process.memoryUsage().heapUsed;
      run(access, perRound);
      // A garbage collection in the round would hide allocations: discard the round.
      bytes += Math.max(0, process.memoryUsage().heapUsed - before);
    }
    return bytes / (rounds * perRound);
  }

  it('is measured correctly: allocations are detected', () => {
    let kept = null;
    const bytes = bytesPerAccess((i) => {
      kept = { i };
    });
    assert(bytes > 2 * kBytesAccess, `${bytes} bytes for an object each, ${kept.i}`);
  });

  it('is not allocated by accesses', () => {
    const scene = new Scene();
    const entities = new Entity3DView(scene.engine.createEntity(true, 64));
    const flat = new Entity2DView(scene.engine.createEntity(false, 64));
    const objects = new CullingObjectsView(scene.engine.createComponent(1, 64));
    const animator = new AnimatorView(scene.engine.createComponent(2, 64, 64), 64);
    const skin = new SkinningView(scene.engine.createComponent(3, 64));
    const controller = new ControllerView(scene.engine.createAnimatorControllerModel(64));
    const state = new ControllerStateView(scene.engine.createAnimatorControllerStateModel(64));
    const result = new CullingResultView(scene.engine);
    result.u32[1] = 64;
    const mask = new MaskView(64);
    const lists = new TargetListsView([64]);
    const list = new HandleList(64);
    const out = new Float32Array(16);
    const sums = new Float64Array(1);
    const accesses = {
      'writing 3D entities': (i) => {
        entities.setPosition(i & 63, i, 2.5, i);
        entities.setQuaternion(i & 63, 0, 0, 0.5, 1);
        entities.setScale(i & 63, 1, 1.5, 1);
      },
      'reading 3D entities': (i) => {
        entities.position(i & 63, out);
        entities.rotation(i & 63, out);
        entities.worldMatrix(i & 63, out);
        entities.worldPosition(i & 63, out, 3);
      },
      '2D entities': (i) => {
        flat.setPosition(i & 63, i, 0.5);
        flat.setRotation(i & 63, 0.5);
        flat.worldMatrix(i & 63, out);
        sums[0] += flat.rotation(i & 63);
      },
      'raw arrays': (i) => {
        const { f32 } = entities;
        sums[0] += f32[entities.worldMatrixAt(i & 63) + 12];
      },
      'culling objects': (i) => {
        objects.setSphere(i & 63, 0, i, 0.5, 1);
        objects.setMask(i & 63, i);
        objects.setEntity(i & 63, i);
        objects.center(i & 63, out);
        sums[0] += objects.radius(i & 63) + objects.mask(i & 63);
      },
      'culling results': (i) => {
        sums[0] += result.object(i & 63) + result.distance(i & 63) + result.count;
      },
      animators: (i) => {
        animator.setClip(i & 63, i, 0.5, 1);
        animator.setClipTime(i & 63, i);
        animator.setTarget(i & 63, i);
        sums[0] += animator.clipTime(i & 63);
      },
      skins: (i) => {
        skin.setBone(i & 63, i, i);
        skin.result(i & 63, out);
      },
      'controllers and states': (i) => {
        controller.setLayer(i & 63, 0, 0.5, i);
        controller.setLayerWeight(i & 63, 1.5);
        state.setClip(i & 63, i, 0.5, 1);
        state.setReference(i & 63, i, 0.5);
        state.setWeight(0.5);
        sums[0] += state.clipTime(i & 63) + controller.layerWeight(i & 63);
      },
      lists: (i) => {
        mask.set(i & 63, i, 0.5);
        lists.setTarget(0, i & 63, i);
        if ((i & 63) === 0) {
          list.clear();
        }
        list.append(i);
        sums[0] += list.handle(0) + lists.target(0, i & 63) + mask.weight(i & 63);
      },
    };
    for (const name of Object.keys(accesses)) {
      const bytes = bytesPerAccess(accesses[name]);
      assert(bytes < kBytesAccess, `${name}: ${bytes} bytes a time`);
    }
    assert(!Number.isNaN(sums[0]));
  });

  it('is kept alive by the view', async () => {
    const runtimeOf = (make) => {
      const engine = nq.getEngine();
      const runtime = addon.runtimeOf(engine);
      const view = make(engine);
      return { runtime, view, memoryID: view.object.memoryID };
    };
    const makers = {
      entities3D: (engine) => new Entity3DView(engine.createEntity(true, 3)),
      entities2D: (engine) => new Entity2DView(engine.createEntity(false, 3)),
      culling: (engine) => new CullingObjectsView(engine.createComponent(1, 3)),
      animator: (engine) => new AnimatorView(engine.createComponent(2, 1, 1), 1),
      skinning: (engine) => new SkinningView(engine.createComponent(3, 2)),
      controller: (engine) => new ControllerView(engine.createAnimatorControllerModel(2)),
      state: (engine) => new ControllerStateView(engine.createAnimatorControllerStateModel(2)),
    };
    const kept = Object.keys(makers).map((name) => runtimeOf(makers[name]));
    await collect();
    kept.forEach(({ runtime, memoryID }) => {
      assert.strictEqual(addon.hasBlock(runtime, memoryID), true);
    });
    // And released with it.
    const blocks = kept.map(({ runtime, memoryID }) => ({ runtime, memoryID }));
    kept.length = 0;
    assert(
      await collectUntil(() =>
        blocks.every(({ runtime, memoryID }) => !addon.hasBlock(runtime, memoryID))
      ),
      'blocks outlive their views'
    );
  });

  it('is kept alive by a view of a culling result', async () => {
    const makeView = () => {
      const engine = nq.getEngine();
      return { runtime: addon.runtimeOf(engine), view: new CullingResultView(engine) };
    };
    const kept = [makeView()];
    const { runtime } = kept[0];
    await collect();
    assert(addon.runtimeReferences(runtime) > 1);
    assert.strictEqual(kept[0].view.count, 0);
    kept.length = 0;
    assert(await collectUntil(() => addon.runtimeReferences(runtime) === 1));
  });

  it('is fast to access', function () {
    // Counting coverage slows accesses too.
    if (sanitized || process.env.NODE_V8_COVERAGE !== undefined) {
      this.skip();
    }
    const entity = new Scene().engine.createEntity(true, 64);
    const view = new Entity3DView(entity);
    const { buffer } = entity;
    const kCount = 20000;
    const ways = [
      () => {
        for (let i = 0; i < kCount; ++i) {
          view.setPosition(i & 63, i, 0, 0);
        }
      },
      () => {
        for (let i = 0; i < kCount; ++i) {
          const position = new Float32Array(buffer, (i & 63) * 64, 3);
          position[0] = i;
          position[1] = 0;
          position[2] = 0;
        }
      },
    ];
    const best = [Infinity, Infinity];
    for (let round = 0; round < 30; ++round) {
      ways.forEach((way, i) => {
        const start = process.hrtime.bigint();
        way();
        best[i] = Math.min(best[i], Number(process.hrtime.bigint() - start));
      });
    }
    const ratio = best[1] / best[0];
    assert(ratio > 2, `${ratio} times as fast as a new array for each access`);
  });
});
