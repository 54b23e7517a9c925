'use strict';
// Assertions of the binding library and the wrappers: exact texts, each in a child process.
const assert = require('assert');
const { runScript, assertFailedAssertion } = require('../support/child');

const library = 'js-binding/include/jsbinding/v8/class';

describe('assertion', () => {
  const cases = [
    ['wrapWithMemory', 'a wrapper is bound once more', 'v8MemoryAdjustSize_ == 0', library],
    ['wrapTwice', 'a wrapper of no size is bound once more', '!isolate_', library],
    ['wrapWithObject', 'a wrapper has an object already', 'thisObject_.IsEmpty()', library],
    ['wrapPlainObject', 'the object has no fields', 'obj->InternalFieldCount() > 0', library],
    ['objectBeforeWrap', 'an unbound wrapper is asked for its object', 'isolate_', library],
    ['objectAtEnd', 'a collected one is', '!thisObject_.IsEmpty()', library],
    [
      'memoryLeft',
      'a wrapper goes with memory reported',
      'v8MemoryAdjustSize_ == init_memory_adjust_size_',
      library,
    ],
    [
      'memoryMissing',
      'a wrapper goes with too much taken back',
      'v8MemoryAdjustSize_ == init_memory_adjust_size_',
      library,
    ],
    ['memoryBelowZero', 'reported memory falls below 0', 'v8MemoryAdjustSize_ >= 0', library],
    ['builderWithoutIsolate', 'a class is built outside of V8', 'isolate_ != nullptr', library],
    [
      'constructEngine',
      'script constructs an engine',
      '0 && "not implement"',
      'BindingTemp/BindingEngine',
    ],
    [
      'constructEntity',
      'script constructs a batch',
      '0 && "not implement"',
      'BindingTemp/BindingEngine',
    ],
  ];
  for (const [name, label, expression, file] of cases) {
    it(`${expression} fails when ${label}`, () => {
      const result = runScript('assertions.js', name);
      assertFailedAssertion(result, expression, file);
      assert.strictEqual(result.stdout, 'about to end\n');
    });
  }
});
