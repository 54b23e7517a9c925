'use strict';
// Contenders must agree on every world matrix, or their times are meaningless.

/** Largest difference, relative to the matrix's largest number (at least 1). */
const tolerance = 1e-4;

/**
 * Throws if two sets of matrices differ by more than rounding.
 * @param {string} what label for the message
 * @param {Float32Array} expected 16 numbers per node
 * @param {Float32Array} actual
 */
function assertSameMatrices(what, expected, actual) {
  if (expected.length !== actual.length || expected.length === 0) {
    throw new Error(`${what}: ${actual.length} numbers, expected ${expected.length}`);
  }
  for (let at = 0; at < expected.length; at += 16) {
    let largest = 1;
    for (let i = at; i < at + 16; ++i) {
      largest = Math.abs(expected[i]) > largest ? Math.abs(expected[i]) : largest;
    }
    for (let i = at; i < at + 16; ++i) {
      // Written so that NaN on either side fails.
      if (!(Math.abs(expected[i] - actual[i]) <= tolerance * largest)) {
        throw new Error(
          `${what}: node ${at / 16}, element ${i - at} is ${actual[i]}, expected ${expected[i]}`
        );
      }
    }
  }
}

module.exports = { assertSameMatrices };
