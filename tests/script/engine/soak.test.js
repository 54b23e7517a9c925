'use strict';
// Objects of each kind that come and go in large numbers; `npm run soak` makes more of them.
const assert = require('assert');
const { runScript } = require('../support/child');
const { slow } = require('../support/host');

/** Lines that the program prints, one for each kind. */
function soak(...args) {
  const { status, stderr, stdout } = runScript('soak-objects.js', ...args);
  assert.strictEqual(stderr, '');
  const lines = stdout.trim().split('\n');
  return { status, kinds: lines.map((line) => JSON.parse(line)) };
}

describe('objects that are made and dropped', () => {
  before(function () {
    // Sanitizers keep freed memory.
    if (slow) {
      this.skip();
    }
  });

  it('give back handles and memory: every kind', () => {
    const { status, kinds } = soak('20000');
    assert.deepStrictEqual(
      kinds.map(({ problems }) => problems),
      kinds.map(() => [])
    );
    assert.strictEqual(status, 0);
    assert.strictEqual(kinds.length, 12);
    assert(kinds.every(({ made }) => made === 20000));
  });

  it('are noticed where one of 500 is kept', () => {
    const { status, kinds } = soak('20000', 'entity3D', 'clip', '--keep', '500');
    assert.strictEqual(status, 1);
    assert.deepStrictEqual(
      kinds.map(({ kind }) => kind),
      ['entity3D', 'clip']
    );
    for (const { problems } of kinds) {
      assert(/^handles rise from \d+ to \d+$/.test(problems[0]), problems[0]);
    }
  });
});
