'use strict';
// Garbage of a frame.

const kWarmUp = 3000;
const kRounds = 21;
const kRuns = 500;
const kAttempts = 5;

/** Bytes a call that are none: the least object takes 16. */
const kNoBytes = 8;

/** Median of rounds, since some have garbage of the compiler, and some a collection. */
function medianPerRun(run) {
  const grown = [];
  let calls = 0;
  for (let round = 0; round < kRounds; ++round) {
    const before = process.memoryUsage().heapUsed;
    for (let i = 0; i < kRuns; ++i) {
      run(calls++);
    }
    grown.push(process.memoryUsage().heapUsed - before);
  }
  return grown.sort((a, b) => a - b)[(kRounds - 1) / 2] / kRuns;
}

/**
 * Bytes that a call of `run(i)` allocates on the heap in the long run. Unoptimised code allocates numbers, and on a busy
 * machine the compiler's threads are late: what seems to allocate is measured again.
 * @param {(i: number) => void} run
 * @returns {number} 0 where nothing is allocated
 */
function bytesPerRun(run) {
  for (let i = 0; i < kWarmUp; ++i) {
    run(i);
  }
  let bytes = medianPerRun(run);
  for (let i = 1; i < kAttempts && !(bytes < kNoBytes); ++i) {
    bytes = medianPerRun(run);
  }
  return bytes < 0 || bytes >= kNoBytes ? bytes : 0;
}

module.exports = { bytesPerRun };
