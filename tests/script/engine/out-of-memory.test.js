'use strict';
// Out of memory for a block, and parent cycles that are or are not detected.
const assert = require('assert');
const { buildKind } = require('../support/host');
const {
  assertCleanExit,
  assertFailedAssertion,
  assertFault,
  runScript,
  runScriptWithLittleMemory,
} = require('../support/child');

describe('a block that exceeds the available memory', () => {
  it('ends the process by a segmentation fault, without a log line', () => {
    assertFault(runScriptWithLittleMemory('exhaustion.js', 'block'));
  });

  // A sanitizer limits single blocks only, so these would continue until the machine is out of memory.
  if (buildKind === 'plain') {
    it('does so, too, when many small blocks have used the memory', () => {
      assertFault(runScriptWithLittleMemory('exhaustion.js', 'batches'));
    });
  }
});

describe('a parent cycle', () => {
  it('is not detected under no root, even if its entities are listed', () => {
    const result = runScript('exhaustion.js', 'circleUnwalked');
    assertCleanExit(result);
    assert.strictEqual(result.stdout, 'about to end\n');
  });

  it('ends the process once it is walked from a root', () => {
    const result = runScript('exhaustion.js', 'circleWalked');
    assertFailedAssertion(result, '0', 'Engine/Entity/WorldTransform');
    const line = /^\[NQ_FATAL\]\[Engine\]: Parent cycle detected, entity: \d+$/m;
    assert(line.test(result.stdout), result.stdout);
  });
});
