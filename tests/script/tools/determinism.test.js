'use strict';
// What compares builds: it finds a planted difference of one bit, names its seed and step, and shrinks it.
const assert = require('assert');
const path = require('path');
const {
  compare,
  findVariants,
  firstDifference,
  play,
} = require('../../../scripts/lib/determinism');
const { modulePath } = require('../support/host');

const faulty = path.join(__dirname, '../support/faulty-module.js');
const options = { seed: 2, programs: 3, steps: 30 };
const variant = (name, file, calls, lists) => ({
  name,
  command: [process.execPath],
  env: { NQ_MODULE: file, NQ_MATRIXFLOW_MODULE: '', NQ_FAULTY: modulePath },
  calls,
  lists,
});

describe('random programs of all builds', function () {
  this.timeout(120000);
  const base = variant('base', modulePath, 'batch', 'short');

  it('print a digest for each step, which changes', () => {
    const lines = play(base, options);
    assert.strictEqual(lines.length, 90);
    assert.strictEqual(new Set(lines.map((line) => line.split(' ')[2])).size, 90);
    const only = play(base, Object.assign({}, options, { programs: 1 }), [0, 2]);
    assert.strictEqual(only[0], lines[0]);
    assert.strictEqual(only.length, 2);
  });

  it('are the same by single calls and with long lists', async () => {
    const expected = play(base, options);
    for (const [calls, lists] of [
      ['single', 'short'],
      ['batch', 'long'],
      ['single', 'long'],
    ]) {
      const other = variant(`${calls} ${lists}`, modulePath, calls, lists);
      assert.strictEqual(await compare(base, expected, other, options), null);
    }
  });

  it('show a difference of one bit, and are shrunk to the steps that it needs', async () => {
    const expected = play(base, options);
    const found = await compare(base, expected, variant('faulty', faulty), options);
    assert.notStrictEqual(found, null);
    assert(found.only.length <= 2, `${found.only}`);
    assert(found.step >= found.only[found.only.length - 1]);
  });

  it('report a build that does not run', () => {
    const broken = variant('broken', path.join(__dirname, 'none.node'));
    assert.throws(() => play(broken, options), /^Error: broken, seed 2: ended by status 1/);
  });
});

describe('digests of steps', () => {
  const line = (step, main, flow) => `7 ${step} ${main} ${flow}`;

  it('differ by memory, and by that of command buffers where both have them', () => {
    const ours = [line(0, 'aa', 'bb'), line(1, 'cc', 'dd')];
    assert.strictEqual(firstDifference(ours, ours.slice()), null);
    assert.strictEqual(firstDifference(ours, [line(0, 'aa', '-'), line(1, 'cc', '-')]), null);
    const other = [line(0, 'aa', 'bb'), line(1, 'cc', 'de')];
    assert.deepStrictEqual(firstDifference(ours, other), { seed: 7, step: 1 });
    const changed = [line(0, 'ab', 'bb'), line(1, 'cc', 'dd')];
    assert.deepStrictEqual(firstDifference(ours, changed), { seed: 7, step: 0 });
  });

  it('differ where one is missing', () => {
    assert.deepStrictEqual(firstDifference([line(0, 'aa', '-')], []), { seed: 7, step: 0 });
    assert.deepStrictEqual(firstDifference([], [line(0, 'aa', '-')]), { seed: 7, step: 0 });
  });
});

describe('variants of builds', () => {
  it('begin with the release build, by single and batch calls, with short and long lists', () => {
    const found = findVariants(['release']).map(({ calls, lists }) => `${calls} ${lists}`);
    assert.deepStrictEqual(found.slice(0, 4), [
      'batch short',
      'single short',
      'batch long',
      'single long',
    ]);
  });
});
