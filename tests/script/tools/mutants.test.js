'use strict';
// Faults of `npm run mutants`, and exceptions of `npm run coverage`, fit the sources: `npm run mutants` itself takes long.
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const faults = require('../../mutants');
const { exceptionOf, staleExceptions } = require('../../../scripts/lib/coverage-exceptions');

const root = path.resolve(__dirname, '../../..');

describe('tests/mutants.js', () => {
  it('has faults of all native subsystems and of the library', () => {
    const count = (prefix) =>
      faults
        .filter(({ file }) => file.startsWith(prefix))
        .reduce((sum, { mutants }) => sum + mutants.length, 0);
    assert.ok(count('') >= 150, `${count('')}`);
    for (const [prefix, least] of [
      ['Common/Def/', 40],
      ['Engine/Entity/', 30],
      ['Engine/Culling/', 15],
      ['Engine/Animation/', 40],
      ['Engine/MatrixFlow/', 15],
      ['BindingTemp/', 15],
      ['js-binding/', 5],
      ['nq_logic.cpp', 2],
      ['lib/', 40],
      ['lib/checked/', 5],
      ['lib/scene/', 10],
    ]) {
      assert.ok(count(prefix) >= least, `${prefix}: ${count(prefix)}`);
    }
  });

  it('changes texts that occur once in their file', () => {
    const stale = [];
    for (const { file, mutants } of faults) {
      const text = fs.readFileSync(path.join(root, file), 'utf8');
      for (const [, before, after] of mutants) {
        assert.notStrictEqual(before, after);
        if (text.split(before).length !== 2) {
          stale.push(`${file}: ${before}`);
        }
      }
    }
    assert.deepStrictEqual(stale, [], 'change these faults in tests/mutants.js with their files');
  });

  it('lists each file once, with tests that exist', () => {
    const files = faults.map(({ file }) => file);
    assert.strictEqual(new Set(files).size, files.length);
    for (const { file, tests } of faults) {
      assert.deepStrictEqual(Object.keys(tests).length, 1, file);
      for (const name of tests.script || []) {
        assert.ok(fs.existsSync(path.join(root, 'tests/script', `${name}.test.js`)), name);
      }
    }
  });
});

describe('scripts/lib/coverage-exceptions.js', () => {
  it('has no exception for a line that is not there', () => {
    assert.deepStrictEqual(staleExceptions(root), []);
  });

  it('has reasons for its lines, and for no others', () => {
    const reason = exceptionOf('Common/Def/Assert.cpp', 'std::abort();');
    assert.strictEqual(
      reason,
      'ends the process, which then writes no counts: tested in child processes'
    );
    assert.strictEqual(exceptionOf('Common/Def/MemoryAllocator.cpp', 'return block;'), null);
    assert.strictEqual(exceptionOf('lib/scene/node.js', 'return;'), null);
  });
});
