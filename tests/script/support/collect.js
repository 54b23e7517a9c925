'use strict';
// Garbage collection on demand. The host must run with --expose-gc.

function turn() {
  return new Promise((resolve) => setImmediate(resolve));
}

/** Collects, and lets weak callbacks run. */
async function collect() {
  for (let i = 0; i < 3; ++i) {
    gc();
    await turn();
  }
}

/**
 * Collects until `done()` is true. The compiler decides whether an object is still on the stack, so one collection
 * may not be enough.
 * @param {() => boolean} done
 * @return {Promise<boolean>} the last result of `done`
 */
async function collectUntil(done) {
  for (let i = 0; i < 20 && !done(); ++i) {
    await collect();
  }
  return done();
}

module.exports = { collect, collectUntil };
