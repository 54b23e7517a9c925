'use strict';
// Failing assertions, through the test addon. `assertions.js CASE`.
const fs = require('fs');
const { modulePath, addonPath } = require('../support/host');

const addon = require(addonPath);

/** Collects garbage until the process ends, or for a limited number of rounds. */
function collectForever(rounds = 50) {
  gc();
  if (rounds > 0) {
    setImmediate(collectForever, rounds - 1);
  }
}

/** A probe that nothing keeps alive, whose memory reports do not sum to zero but to `delta`. */
function dropUnbalanced(delta) {
  addon.adjustMemory(addon.newProbe(4096), delta);
}

const cases = {
  wrapWithMemory: () => addon.wrapWithMemory(),
  wrapTwice: () => addon.wrapTwice(),
  wrapWithObject: () => addon.wrapWithObject(),
  wrapPlainObject: () => addon.wrapPlainObject(),
  objectBeforeWrap: () => addon.objectBeforeWrap(),
  objectAtEnd() {
    addon.objectAtEnd(addon.newProbe(16));
    collectForever();
  },
  memoryLeft() {
    dropUnbalanced(8);
    collectForever();
  },
  memoryMissing() {
    dropUnbalanced(-8);
    collectForever();
  },
  memoryBelowZero: () => addon.adjustMemory(addon.newProbe(16), -17),
  builderWithoutIsolate: () => addon.builderWithoutIsolate(),
  constructEngine: () => addon.construct('Engine'),
  constructEntity: () => addon.construct('EngineEntity'),
};

// The module is loaded too, as in the suites.
require(modulePath);
fs.writeSync(1, 'about to end\n');
cases[process.argv[2]]();
