'use strict';
// Buffers that JavaScript transfers to another buffer or thread, each case in a child process.
const { runScript, assertCleanExit } = require('../support/child');

/** Ways to transfer a buffer that this host supports. */
const here = {
  postMessage: true,
  worker: true,
  structuredClone: typeof structuredClone === 'function',
  byteStream: typeof structuredClone === 'function',
  transfer: typeof ArrayBuffer.prototype.transfer === 'function',
};

const kinds = {
  givenAway: 'results of culling keep their content',
  ofEngine: 'memory of entities stays native',
  engineItself: "the engine's own buffers stay what native code reads",
};

describe('buffers transferred', () => {
  for (const way of Object.keys(here).filter((name) => here[name])) {
    describe(`by ${way}`, () => {
      for (const name of Object.keys(kinds)) {
        it(kinds[name], () => {
          assertCleanExit(runScript('moved-buffers.js', name, way));
        });
      }
    });
  }
});

describe('buffers over one block', () => {
  it('all show its bytes, also after some of them were collected', () => {
    assertCleanExit(runScript('moved-buffers.js', 'overOneBlock'));
  });
});
