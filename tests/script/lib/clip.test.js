'use strict';
// The clip writer and reader: bytes, order of channels, and error messages.
const assert = require('assert');
const { hostileObjects } = require('../support/hostile');
const fc = require('fast-check');
const { buildClip, readClip, sampleTypes, stepTangent } = require('../../../lib/clip');

const kSeed = 20231;

function key(frame, value = 0, inTangent = 0, outTangent = 0) {
  return { frame, value, inTangent, outTangent };
}

/** A clip of one curve with one key, with `changes` to the clip. */
function clipWith(changes) {
  const curve = { target: 0, type: sampleTypes.PositionX, keys: [key(0)] };
  return Object.assign(
    { name: 'walk', framesPerSecond: 30, frameCount: 10, curves: [curve] },
    changes
  );
}

/** The same with `changes` to its curve. */
function curveWith(changes) {
  return clipWith({ curves: [Object.assign({}, clipWith().curves[0], changes)] });
}

/** The same with `changes` to its key. */
function keyWith(changes) {
  return curveWith({ keys: [Object.assign(key(0), changes)] });
}

function columns(keys) {
  return {
    frames: Uint32Array.from(keys, ({ frame }) => frame),
    values: Float32Array.from(keys, ({ value }) => value),
    inTangents: Float32Array.from(keys, ({ inTangent }) => inTangent),
    outTangents: Float32Array.from(keys, ({ outTangent }) => outTangent),
  };
}

function hex(bytes) {
  return Buffer.from(bytes).toString('hex');
}

/** Bytes from words given as hexadecimal of their value, 'f:' for a float. */
function wordsToHex(...words) {
  const bytes = Buffer.alloc(4 * words.length);
  words.forEach((word, i) => {
    if (typeof word === 'string') {
      bytes.writeFloatLE(Number(word.slice(2)), 4 * i);
    } else {
      bytes.writeUInt32LE(word, 4 * i);
    }
  });
  return bytes.toString('hex');
}

describe('clip writer', () => {
  it('numbers the sample types from 1 to 13 with quaternion w before x', () => {
    assert.deepStrictEqual(Object.assign({}, sampleTypes), {
      PositionX: 1,
      PositionY: 2,
      PositionZ: 3,
      ScaleX: 4,
      ScaleY: 5,
      ScaleZ: 6,
      EulerX: 7,
      EulerY: 8,
      EulerZ: 9,
      QuaternionW: 10,
      QuaternionX: 11,
      QuaternionY: 12,
      QuaternionZ: 13,
    });
    assert.ok(Object.isFrozen(sampleTypes));
    assert.strictEqual(stepTangent, Infinity);
  });

  it('writes header, curve records and keys byte by byte', () => {
    const bytes = buildClip({
      framesPerSecond: 24,
      frameCount: 0x01020304,
      curves: [
        { target: 0, type: sampleTypes.PositionY, keys: [key(0, 1, 2, 0.5), key(7, -1, 0, 0)] },
        { target: 1, type: sampleTypes.ScaleZ, keys: [] },
        { target: 1, type: sampleTypes.EulerZ, keys: [key(0xfffffffe, 1.5, -2, stepTangent)] },
      ],
    });
    assert.ok(bytes instanceof ArrayBuffer);
    const expected = [
      ...['34000000', '0000c041', '04030201', '03000000'],
      ...['00000000', '02000000', '02000000'],
      ...['01000000', '06000000', '00000000'],
      ...['01000000', '09000000', '01000000'],
      ...['00000000', '0000803f', '00000040', '0000003f'],
      ...['07000000', '000080bf', '00000000', '00000000'],
      ...['feffffff', '0000c03f', '000000c0', '0000807f'],
    ];
    assert.strictEqual(hex(bytes), expected.join(''));
  });

  it('writes only a header for a clip without curves', () => {
    const bytes = buildClip({ framesPerSecond: 1, frameCount: 1, curves: [] });
    assert.strictEqual(hex(bytes), '10000000' + '0000803f' + '01000000' + '00000000');
  });

  it('keeps both infinite slopes, and the signs of zeros', () => {
    const keys = [key(0, -0, -0, -Infinity), key(1, 0, 0, Infinity)];
    const bytes = buildClip(curveWith({ keys }));
    assert.deepStrictEqual(readClip(bytes).curves[0].keys, keys);
  });

  it('accepts two keys on a frame, where the value jumps', () => {
    const keys = [key(0), key(5, 1), key(5, 2), key(9)];
    assert.deepStrictEqual(readClip(buildClip(curveWith({ keys }))).curves[0].keys, keys);
  });

  it('accepts a curve without keys for a target that nothing moves', () => {
    const curves = [
      { target: 1, type: sampleTypes.ScaleX, keys: [key(0)] },
      { target: 0, type: sampleTypes.ScaleX, keys: [] },
    ];
    assert.strictEqual(readClip(buildClip(clipWith({ curves }))).curves.length, 2);
  });

  it('accepts a later curve that continues an earlier one of the same channel', () => {
    const curves = [
      { target: 0, type: sampleTypes.ScaleX, keys: [key(0), key(4)] },
      { target: 0, type: sampleTypes.ScaleY, keys: [key(0)] },
      { target: 0, type: sampleTypes.ScaleX, keys: [key(4), key(8)] },
    ];
    assert.strictEqual(readClip(buildClip(clipWith({ curves }))).curves.length, 3);
  });
});

describe('clip reader', () => {
  const whole = buildClip({
    framesPerSecond: 60,
    frameCount: 12,
    curves: [{ target: 0, type: sampleTypes.ScaleX, keys: [key(0, 1, 2, 3), key(12, 4, 5, 6)] }],
  });
  const description = {
    framesPerSecond: 60,
    frameCount: 12,
    curves: [{ target: 0, type: 4, keys: [key(0, 1, 2, 3), key(12, 4, 5, 6)] }],
  };

  it('reads array buffers, shared ones, and views at any offset', () => {
    const shared = new SharedArrayBuffer(whole.byteLength);
    new Uint8Array(shared).set(new Uint8Array(whole));
    const shifted = new Uint8Array(whole.byteLength + 9);
    shifted.set(new Uint8Array(whole), 3);
    const view = shifted.subarray(3, 3 + whole.byteLength);
    for (const bytes of [whole, shared, new Uint8Array(whole), new DataView(whole), view]) {
      assert.deepStrictEqual(readClip(bytes), description);
    }
    assert.deepStrictEqual(readClip(whole, 'run'), Object.assign({ name: 'run' }, description));
  });

  it('refuses values without bytes', () => {
    for (const value of [7, {}, ...hostileObjects()]) {
      assert.throws(() => readClip(value), {
        name: 'TypeError',
        message: /^clip: its bytes are (7|an object): give an ArrayBuffer or a view of one\.$/,
      });
    }
  });

  it('refuses a name that is no string', () => {
    assert.throws(() => readClip(whole, 7), {
      name: 'TypeError',
      message: 'clip: name is 7: give a string, or leave it out.',
    });
  });

  it('ignores bytes after the last key', () => {
    const longer = new Uint8Array(whole.byteLength + 5).fill(0xab);
    longer.set(new Uint8Array(whole));
    assert.deepStrictEqual(readClip(longer), description);
  });
});

describe('clips of any content', () => {
  const u32 = fc.integer({ min: 0, max: 0xffffffff });
  const float = fc.float({ noNaN: true, noDefaultInfinity: true });
  const slope = fc.oneof(float, fc.constantFrom(Infinity, -Infinity));
  const keys = fc
    .array(fc.record({ frame: u32, value: float, inTangent: float, outTangent: slope }), {
      maxLength: 8,
    })
    .map((list) => list.sort((a, b) => a.frame - b.frame));
  const types = [1, 2, 3, 4, 5, 6];
  // Each target has some of the positions and scales, and all or none of one kind of rotation.
  const target = fc.record({
    types: fc.subarray(types),
    rotation: fc.constantFrom([4], [4, 7, 8, 9], [5, 9], [5, 10, 11, 12, 13], [6, 13, 10]),
  });
  const clips = fc
    .tuple(
      fc.integer({ min: 1, max: 2 ** 24 }),
      fc.integer({ min: 1, max: 0xffffffff }),
      fc.array(target, { maxLength: 4 }),
      fc.array(keys, { minLength: 44, maxLength: 44 }),
      fc.integer()
    )
    .map(([framesPerSecond, frameCount, targets, allKeys, order]) => {
      const curves = [];
      targets.forEach(({ types: some, rotation }, index) => {
        for (const type of new Set([...some, ...rotation])) {
          curves.push({ target: index, type, keys: allKeys[curves.length] });
        }
      });
      for (const curve of curves.filter(({ type }) => type === 10)) {
        curve.keys = [key(3, 1, 0, 0), ...curve.keys.filter(({ frame }) => frame > 3)];
      }
      // Curves may be in any order: here, rotated.
      const turn = curves.length === 0 ? 0 : Math.abs(order) % curves.length;
      return {
        framesPerSecond,
        frameCount,
        curves: [...curves.slice(turn), ...curves.slice(0, turn)],
      };
    });

  it('are unchanged by a round trip through bytes', () => {
    fc.assert(
      fc.property(clips, (clip) => {
        const bytes = buildClip(clip);
        const keyCount = clip.curves.reduce((sum, curve) => sum + curve.keys.length, 0);
        assert.strictEqual(bytes.byteLength, 16 + 12 * clip.curves.length + 16 * keyCount);
        assert.deepStrictEqual(readClip(bytes), clip);
      }),
      { seed: kSeed, numRuns: 300 }
    );
  });

  it('give the same bytes from columns as from keys', () => {
    fc.assert(
      fc.property(clips, (clip) => {
        const curves = clip.curves.map((curve) =>
          Object.assign({}, curve, { keys: columns(curve.keys) })
        );
        assert.strictEqual(
          hex(buildClip(Object.assign({}, clip, { curves }))),
          hex(buildClip(clip))
        );
      }),
      { seed: kSeed, numRuns: 300 }
    );
  });

  it('are refused with a readable message or read, after any damage', () => {
    let refused = 0;
    let read = 0;
    fc.assert(
      fc.property(clips, fc.nat(), u32, (clip, position, word) => {
        const bytes = buildClip(clip);
        const view = new DataView(bytes);
        view.setUint32(4 * (position % (bytes.byteLength / 4)), word, true);
        let again;
        try {
          again = readClip(bytes);
        } catch (error) {
          assert.ok(
            /^clip(, curve \d+ \(target \d+, .*\))?(, key \d+)?: .*\.$/.test(error.message)
          );
          assert.ok(error instanceof RangeError);
          ++refused;
          return;
        }
        const rebuilt = new Uint8Array(buildClip(again));
        assert.deepStrictEqual(new Uint8Array(bytes, 0, rebuilt.length), rebuilt);
        ++read;
      }),
      { seed: kSeed, numRuns: 500 }
    );
    assert.ok(refused > 50 && read > 50, `${refused} refused, ${read} read`);
  });

  it('are refused when truncated', () => {
    fc.assert(
      fc.property(clips, fc.nat(), (clip, at) => {
        const bytes = buildClip(clip);
        assert.throws(() => readClip(bytes.slice(0, at % bytes.byteLength)), RangeError);
      }),
      { seed: kSeed, numRuns: 200 }
    );
  });
});

describe('a clip without the last bytes of its last key', () => {
  it('is refused with the bytes that it should have, for any number of them', () => {
    const bytes = buildClip(clipWith({ curves: [{ target: 0, type: 1, keys: [key(0), key(1)] }] }));
    assert.strictEqual(bytes.byteLength, 60);
    for (let missing = 1; missing <= 16; ++missing) {
      assert.throws(() => readClip(bytes.slice(0, 60 - missing)), {
        name: 'RangeError',
        message: new RegExp(
          `: its keys end at byte 60 of ${60 - missing}: give the whole clip\\.$`
        ),
      });
    }
  });
});

describe('mistakes in a clip', () => {
  const one = "clip 'walk', curve 0 (target 0, PositionX)";
  const whole = 'give a whole number from';
  const columnsOfTwo = columns([key(0), key(1)]);

  const twoCurves = (first, second) =>
    clipWith({
      curves: [
        { target: 0, type: first, keys: [key(5)] },
        { target: 0, type: second, keys: [key(3)] },
      ],
    });

  const cases = [
    [
      'no description',
      undefined,
      TypeError,
      'clip: the description is undefined: give { framesPerSecond, frameCount, curves }.',
    ],
    [
      'a name that is no string',
      clipWith({ name: 7 }),
      TypeError,
      'clip: name is 7: give a string, or leave it out.',
    ],
    [
      'no name',
      clipWith({ name: undefined, frameCount: 0 }),
      RangeError,
      `clip: frameCount is 0: ${whole} 1 to 4294967295.`,
    ],
    [
      'a rate in a string',
      clipWith({ framesPerSecond: '30' }),
      TypeError,
      `clip 'walk': framesPerSecond is '30', not a number: ${whole} 1 to 4294967295.`,
    ],
    ...hostileObjects().map((hostile, i) => [
      `curves that throw when they are looked at, ${i}`,
      clipWith({ curves: hostile }),
      TypeError,
      "clip 'walk': curves is an object: give an array of curves.",
    ]),
    ...hostileObjects().map((frames, i) => [
      `frames that throw when they are looked at, ${i}`,
      clipWith({ curves: [{ target: 0, type: 1, keys: { frames } }] }),
      TypeError,
      `${one}: keys.frames is an object: give a Uint32Array.`,
    ]),
    ...[0, 0.5, -30, 29.97, NaN, Infinity].map((rate) => [
      `a rate of ${rate}`,
      clipWith({ framesPerSecond: rate }),
      RangeError,
      `clip 'walk': framesPerSecond is ${rate}: ${whole} 1 to 4294967295.`,
    ]),
    [
      'a rate that a float rounds',
      clipWith({ framesPerSecond: 16777217 }),
      RangeError,
      "clip 'walk': framesPerSecond is 16777217, which a float can't hold: give a rate up to 16777216.",
    ],
    [
      'a length of 1.5 frames',
      clipWith({ frameCount: 1.5 }),
      RangeError,
      `clip 'walk': frameCount is 1.5: ${whole} 1 to 4294967295.`,
    ],
    [
      'a length that does not fit',
      clipWith({ frameCount: 2 ** 32 }),
      RangeError,
      `clip 'walk': frameCount is 4294967296: ${whole} 1 to 4294967295.`,
    ],
    [
      'no curves',
      clipWith({ curves: undefined }),
      TypeError,
      "clip 'walk': curves is undefined: give an array of curves.",
    ],
    [
      'a curve that is none',
      clipWith({ curves: [null] }),
      TypeError,
      "clip 'walk', curve 0: it is null: give { target, type, keys }.",
    ],
    [
      'a negative target',
      curveWith({ target: -1 }),
      RangeError,
      `clip 'walk', curve 0 (target -1, PositionX): target is -1: ${whole} 0 to 4294967295.`,
    ],
    [
      'a target that is an object',
      curveWith({ target: {} }),
      TypeError,
      "clip 'walk', curve 0 (target an object, PositionX): target is an object, not a number: " +
        `${whole} 0 to 4294967295.`,
    ],
    [
      'a type by name',
      curveWith({ type: 'ScaleX' }),
      TypeError,
      "clip 'walk', curve 0 (target 0, 'ScaleX'): type is 'ScaleX': give one of sampleTypes.",
    ],
    ...[0, 14, 1.5, -1].map((type) => [
      `a type of ${type}`,
      curveWith({ type }),
      RangeError,
      `clip 'walk', curve 0 (target 0, ${type}): there is no sample type ${type}: ` +
        'give one of sampleTypes.',
    ]),
    [
      'keys in a string',
      curveWith({ keys: 'none' }),
      TypeError,
      `${one}: keys is 'none': give an array of keys, or { frames, values, inTangents, outTangents }.`,
    ],
    [
      'frames in a plain array',
      curveWith({ keys: Object.assign({}, columnsOfTwo, { frames: [0, 1] }) }),
      TypeError,
      `${one}: keys.frames is an array: give a Uint32Array.`,
    ],
    [
      'slopes of double precision',
      curveWith({ keys: Object.assign({}, columnsOfTwo, { inTangents: new Float64Array(2) }) }),
      TypeError,
      `${one}: keys.inTangents is an object: give a Float32Array.`,
    ],
    [
      'a column that is too short',
      curveWith({ keys: Object.assign({}, columnsOfTwo, { outTangents: new Float32Array(1) }) }),
      RangeError,
      `${one}: keys.outTangents has 1 elements and keys.frames 2: give one of each per key.`,
    ],
    [
      'a value in columns that is not finite',
      curveWith({ keys: Object.assign({}, columnsOfTwo, { values: Float32Array.of(0, NaN) }) }),
      RangeError,
      `${one}, key 1: value is NaN, not finite: give a finite number.`,
    ],
    [
      'columns out of order',
      curveWith({ keys: columns([key(2), key(1)]) }),
      RangeError,
      `${one}, key 1: its frame 1 follows 2 of the key before: sort the keys by frame.`,
    ],
    [
      'a key that is a number',
      curveWith({ keys: [key(0), 3] }),
      TypeError,
      `${one}, key 1: it is 3: give { frame, value, inTangent, outTangent }.`,
    ],
    [
      'a frame in a string',
      keyWith({ frame: '1' }),
      TypeError,
      `${one}, key 0: frame is '1', not a number: ${whole} 0 to 4294967295.`,
    ],
    ...[-1, 0.5, NaN, 2 ** 32].map((frame) => [
      `a frame of ${frame}`,
      keyWith({ frame }),
      RangeError,
      `${one}, key 0: frame is ${frame}: ${whole} 0 to 4294967295.`,
    ]),
    [
      'keys out of order',
      curveWith({ keys: [key(0), key(5), key(4)] }),
      RangeError,
      `${one}, key 2: its frame 4 follows 5 of the key before: sort the keys by frame.`,
    ],
    [
      'curves of one channel out of order',
      twoCurves(1, 1),
      RangeError,
      "clip 'walk', curve 1 (target 0, PositionX), key 0: its frame 3 follows 5 in an earlier curve " +
        'of this channel: sort the keys by frame.',
    ],
    [
      'a value left out',
      keyWith({ value: undefined }),
      TypeError,
      `${one}, key 0: value is undefined: give a number.`,
    ],
    [
      'an endless value',
      keyWith({ value: -Infinity }),
      RangeError,
      `${one}, key 0: value is -Infinity, not finite: give a finite number.`,
    ],
    [
      'a value that no float holds',
      keyWith({ value: 1e39 }),
      RangeError,
      `${one}, key 0: value is 1e+39, too large for a float: give a finite number.`,
    ],
    [
      'an endless slope in',
      keyWith({ inTangent: Infinity }),
      RangeError,
      `${one}, key 0: inTangent is Infinity, not finite: give a finite number.`,
    ],
    [
      'a slope out that is not a number',
      keyWith({ outTangent: NaN }),
      RangeError,
      `${one}, key 0: outTangent is NaN, not a number: give a finite slope, or stepTangent for a step.`,
    ],
    [
      'a slope out that would turn into a step',
      keyWith({ outTangent: 1e39 }),
      RangeError,
      `${one}, key 0: outTangent is 1e+39, too large for a float: ` +
        'give a finite slope, or stepTangent for a step.',
    ],
    [
      'a slope out in a string',
      keyWith({ outTangent: 'step' }),
      TypeError,
      `${one}, key 0: outTangent is 'step': give a number.`,
    ],
    [
      'a gap in the targets',
      clipWith({
        curves: [0, 1, 3].map((target) => ({ target, type: 1, keys: [key(0)] })),
      }),
      RangeError,
      "clip 'walk': it has 3 targets, but none of them is 2: number the targets from 0 without gaps.",
    ],
    [
      'targets from 1',
      curveWith({ target: 1 }),
      RangeError,
      "clip 'walk': it has 1 targets, but none of them is 0: number the targets from 0 without gaps.",
    ],
    [
      'Euler angles after a quaternion',
      twoCurves(sampleTypes.QuaternionW, sampleTypes.EulerX),
      RangeError,
      "clip 'walk', curve 1 (target 0, EulerX): its target has a quaternion as well: " +
        'keep one of the two.',
    ],
    [
      'a quaternion after Euler angles',
      twoCurves(sampleTypes.EulerX, sampleTypes.QuaternionX),
      RangeError,
      "clip 'walk', curve 1 (target 0, QuaternionX): its target has Euler angles as well: " +
        'keep one of the two.',
    ],
    [
      'a quaternion without w',
      curveWith({ type: sampleTypes.QuaternionY }),
      RangeError,
      "clip 'walk', curve 0 (target 0, QuaternionY): without keys of QuaternionW the engine reads " +
        'its target as Euler angles: add a QuaternionW curve.',
    ],
  ];

  for (const [what, clip, ErrorType, message] of cases) {
    it(`throws: ${what}`, () => {
      assert.throws(
        () => buildClip(clip),
        (error) => {
          assert.strictEqual(error.message, message);
          assert.strictEqual(error.constructor, ErrorType);
          return true;
        }
      );
    });
  }

  const header = (keyDataOffset, rate, count, curves) => [keyDataOffset, rate, count, curves];
  const byteCases = [
    [
      'bytes that are no bytes',
      'clip',
      TypeError,
      "clip 'walk': its bytes are 'clip': give an ArrayBuffer or a view of one.",
    ],
    [
      'less than a header',
      new ArrayBuffer(15),
      RangeError,
      "clip 'walk': 15 bytes are less than its header of 16: " +
        'give the whole clip, as buildClip returns it.',
    ],
    [
      'keys at the wrong place',
      header(16, 'f:30', 1, 1),
      RangeError,
      "clip 'walk': keyDataOffset is 16, but 1 curves end at 28: write the bytes with buildClip.",
    ],
    [
      'curve records that are cut off',
      header(28, 'f:30', 1, 1),
      RangeError,
      "clip 'walk': its 1 curves end at byte 28 of 16: give the whole clip.",
    ],
    [
      'keys that are cut off',
      [...header(28, 'f:30', 1, 1), 0, 5, 2, 0, 0, 0, 0],
      RangeError,
      "clip 'walk', curve 0 (target 0, ScaleY): its keys end at byte 60 of 44: give the whole clip.",
    ],
    [
      'an unknown type',
      [...header(28, 'f:30', 1, 1), 0, 14, 0],
      RangeError,
      "clip 'walk', curve 0 (target 0, 14): there is no sample type 14: give one of sampleTypes.",
    ],
    [
      'a rate with a fraction',
      header(16, 'f:12.5', 1, 0),
      RangeError,
      `clip 'walk': framesPerSecond is 12.5: ${whole} 1 to 4294967295.`,
    ],
    [
      'a value that is not finite',
      [...header(28, 'f:30', 1, 1), 0, 1, 1, 0, 'f:Infinity', 0, 0],
      RangeError,
      `${one}, key 0: value is Infinity, not finite: give a finite number.`,
    ],
  ];

  for (const [what, content, ErrorType, message] of byteCases) {
    it(`throws: ${what}`, () => {
      const bytes = Array.isArray(content) ? Buffer.from(wordsToHex(...content), 'hex') : content;
      assert.throws(
        () => readClip(bytes, 'walk'),
        (error) => {
          assert.strictEqual(error.message, message);
          assert.strictEqual(error.constructor, ErrorType);
          return true;
        }
      );
    });
  }
});
