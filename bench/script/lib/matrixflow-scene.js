'use strict';
// Streams of commands as index arrays: the values that each one reads and writes. Contenders convert them to their
// own form.
const { createRandom } = require('./random');

/** Words that one bulk copy moves. */
const bulkWords = 16;

/** Streams that repeat one command: floats of a value, and inputs. */
const kinds = {
  scalarAdd: { floats: 1, inputs: 2 },
  scalarDiv: { floats: 1, inputs: 2 },
  vector2Add: { floats: 2, inputs: 2 },
  vector3Add: { floats: 3, inputs: 2 },
  vector4Add: { floats: 4, inputs: 2 },
  matrix3Add: { floats: 9, inputs: 2 },
  matrix3Mul: { floats: 9, inputs: 2 },
  matrix4Copy: { floats: 16, inputs: 1 },
  matrix4Add: { floats: 16, inputs: 2 },
  matrix4Mul: { floats: 16, inputs: 2 },
  bulkCopy: { floats: bulkWords, inputs: 1 },
};

/** Commands of one object of the mix. */
const commandsPerObject = 5;

/**
 * Places are indices of floats in a block of the input or the output.
 * @typedef {{kind: string, count: number, floats: number, blocks: {a: Float32Array, b: Float32Array,
 *   r: Float32Array}, a: Uint32Array, b: Uint32Array, r: Uint32Array}} Stream
 */

function randomBlock(random, floats) {
  // Near 1, so that nothing overflows and no divisor is small.
  return Float32Array.from({ length: floats }, () => 0.5 + random());
}

/**
 * A stream of one command. Inputs are random, results contiguous.
 * @param {string} kind
 * @param {number} count
 * @returns {Stream}
 */
function createStream(kind, count) {
  const { floats } = kinds[kind];
  const random = createRandom(0x3a7f + count);
  const places = () =>
    Uint32Array.from({ length: count }, () => Math.floor(random() * count) * floats);
  return {
    kind,
    count,
    floats,
    blocks: {
      a: randomBlock(random, count * floats),
      b: randomBlock(random, count * floats),
      r: new Float32Array(count * floats),
    },
    a: places(),
    b: places(),
    r: Uint32Array.from({ length: count }, (_, i) => i * floats),
  };
}

/**
 * A mix of commands as in a frame of an engine. Per object, the rest matrix is copied into place, moved by two
 * vectors, multiplied by its parent's, and by an inverse to a skinning matrix: 1 bulk copy, 2 additions, 2 products.
 * `rest` and `inverse` are shared by several objects.
 * @typedef {{kind: string, count: number, objects: number, blocks: {rest: Float32Array,
 *   moves: Float32Array, parents: Float32Array, inverses: Float32Array, local: Float32Array,
 *   world: Float32Array, skin: Float32Array}, rest: Uint32Array, move: Uint32Array, parent: Uint32Array,
 *   inverse: Uint32Array}} Mix
 */

/**
 * @param {number} count of commands
 * @returns {Mix}
 */
function createMix(count) {
  const objects = Math.max(1, Math.floor(count / commandsPerObject));
  const shared = Math.max(1, Math.floor(objects / 8));
  const random = createRandom(0x311 + count);
  const places = (among, floats) =>
    Uint32Array.from({ length: objects }, () => Math.floor(random() * among) * floats);
  return {
    kind: 'mix',
    count: objects * commandsPerObject,
    objects,
    blocks: {
      rest: randomBlock(random, 16 * shared),
      moves: randomBlock(random, 6 * objects),
      parents: randomBlock(random, 16 * shared),
      inverses: randomBlock(random, 16 * shared),
      local: new Float32Array(16 * objects),
      world: new Float32Array(16 * objects),
      skin: new Float32Array(16 * objects),
    },
    rest: places(shared, 16),
    move: places(objects, 6),
    parent: places(shared, 16),
    inverse: places(shared, 16),
  };
}

/** Index of the translation of a matrix. */
const translationAt = 12;

/**
 * Throws if outputs differ by more than rounding: plain JavaScript sums in double precision.
 * @param {string} what
 * @param {Float32Array} expected
 * @param {Float32Array} actual
 */
function assertSameOutput(what, expected, actual) {
  if (expected.length !== actual.length || expected.length === 0) {
    throw new Error(`${what}: ${actual.length} numbers, expected ${expected.length}`);
  }
  for (let i = 0; i < expected.length; ++i) {
    // Written so that NaN on either side fails. A 0 means that nothing was written.
    if (!(Math.abs(expected[i] - actual[i]) <= 1e-5 * Math.abs(expected[i])) || expected[i] === 0) {
      throw new Error(`${what}: number ${i} is ${actual[i]}, expected ${expected[i]}`);
    }
  }
}

module.exports = {
  assertSameOutput,
  bulkWords,
  commandsPerObject,
  createMix,
  createStream,
  kinds,
  translationAt,
};
