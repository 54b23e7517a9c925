'use strict';
// Pseudo-random numbers from a seed.

/**
 * A repeatable source of numbers from 0 to below 1 (a 32-bit linear congruence, upper bits).
 * @param {number} seed
 * @returns {function(): number}
 */
function createRandom(seed) {
  let state = seed >>> 0;
  return () => {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    return (state >>> 8) / 0x1000000;
  };
}

module.exports = { createRandom };
