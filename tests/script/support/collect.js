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
 * Collects until `done()` is true. Whether a thing is still on the stack is the compiler's business,
 * so one collection need not be enough.
 * @param {() => boolean} done
 * @return {Promise<boolean>} what `done` said at last
 */
async function collectUntil(done) {
  for (let i = 0; i < 20 && !done(); ++i) {
    await collect();
  }
  return done();
}

module.exports = { collect, collectUntil };
