'use strict';
// Log lines and assertions of a process whose output goes to pipes.
const assert = require('assert');
const { runScript, assertCleanExit, assertFailedAssertion } = require('../support/child');

describe('log', () => {
  it('reports a binding cycle with the handles of entity and bone', () => {
    const result = runScript('log.js', 'bindingCycle');
    assertCleanExit(result);
    assert.strictEqual(
      result.stdout,
      '[NQ_WARN][Engine]: Cycle Binding Detected, bind: 8192 to bone: 4096\n'
    );
  });

  it('reports each cycle once, whatever its length', () => {
    const result = runScript('log.js', 'longBindingCycle');
    assertCleanExit(result);
    assert.strictEqual(
      result.stdout,
      '[NQ_WARN][Engine]: Cycle Binding Detected, bind: 4098 to bone: 4096\n' +
        '[NQ_WARN][Engine]: Cycle Binding Detected, bind: 4099 to bone: 4099\n'
    );
  });

  it('reports a bone of scale 0 at each recomputation, and resets its followers to the identity', () => {
    const result = runScript('log.js', 'flatBone');
    assertCleanExit(result);
    const line = '[NQ_WARN][Engine]: Entity3D world transform extract failed. \n';
    assert.strictEqual(result.stdout, line + line);
  });

  it('does not report a bone of scale 0 that no active 3D entity follows', () => {
    const result = runScript('log.js', 'flatBoneOfNobody');
    assertCleanExit(result);
    assert.strictEqual(result.stdout, '');
  });

  it('names the entity of a parent cycle and ends the process', () => {
    const result = runScript('log.js', 'parentCycle');
    assertFailedAssertion(result, '0', 'Engine/Entity/WorldTransform');
    assert(
      /^\[NQ_FATAL\]\[Engine\]: Parent cycle detected, entity: (4096|8192)\n$/.test(result.stdout)
    );
  });

  it('is written before a failed assertion in a worker thread', () => {
    const result = runScript('log.js', 'failInWorker');
    assertFailedAssertion(result, '1 + 1 == 3', 'tests/addon/BatchOps');
    assert.strictEqual(result.stdout, '[NQ_INFO][Engine]: on a worker: 1\n');
  });

  it('adds no line feed', () => {
    const result = runScript('log.js', 'failHere');
    assertFailedAssertion(result, '2 < 1', 'tests/addon/BatchOps');
    assert.strictEqual(result.stdout, '[NQ_WARN][Engine]: no line feed');
  });
});
