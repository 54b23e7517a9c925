'use strict';
// Log lines and assertions of a process whose output goes to pipes.
const assert = require('assert');
const { runScript, assertCleanExit, assertFailedAssertion } = require('./lib/child');

describe('log', () => {
  it('tells of a binding cycle with the handles of entity and bone', () => {
    const result = runScript('log.js', 'bindingCycle');
    assertCleanExit(result);
    assert.strictEqual(
      result.stdout,
      '[NQ_WARN][Engine]: Cycle Binding Detected, bind: 8192 to bone: 4096\n'
    );
  });

  it('tells of each cycle once, however long', () => {
    const result = runScript('log.js', 'longBindingCycle');
    assertCleanExit(result);
    assert.strictEqual(
      result.stdout,
      '[NQ_WARN][Engine]: Cycle Binding Detected, bind: 4098 to bone: 4096\n' +
        '[NQ_WARN][Engine]: Cycle Binding Detected, bind: 4099 to bone: 4099\n'
    );
  });

  it('tells of a bone without extent at each recomputation, and what is bound to it is at rest', () => {
    const result = runScript('log.js', 'flatBone');
    assertCleanExit(result);
    const line = '[NQ_WARN][Engine]: Entity3D world transform extract failed. \n';
    assert.strictEqual(result.stdout, line + line);
  });

  it('tells nothing of such a bone when no active 3D entity follows it', () => {
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

  it('arrives ahead of a failed assertion in a worker thread', () => {
    const result = runScript('log.js', 'failInWorker');
    assertFailedAssertion(result, '1 + 1 == 3', 'tests/addon/BatchOps');
    assert.strictEqual(result.stdout, '[NQ_INFO][Engine]: on a worker: 1\n');
  });

  it('arrives without a line feed of its own', () => {
    const result = runScript('log.js', 'failHere');
    assertFailedAssertion(result, '2 < 1', 'tests/addon/BatchOps');
    assert.strictEqual(result.stdout, '[NQ_WARN][Engine]: no line feed');
  });
});
