'use strict';
// What runs random programs: it finds planted faults, names their seed and step, and shrinks them.
const assert = require('assert');
const path = require('path');
const { fuzz, shrink, signatureOf } = require('../../../scripts/lib/fuzz');
const { Camera, Model, Scene } = require('../../../scene');
const { AnimationLayer, Character, Node } = require('../../../scene');
const { members } = require('../../fuzz/programs/scene');

const program = path.join(__dirname, '../support/faulty-program.js');

function run(fault, seed = 10) {
  const env = Object.assign({}, process.env, { NQ_FAULT: fault });
  const options = { program, host: process.execPath, env, seed, programs: 5, steps: 200 };
  return fuzz(Object.assign(options, { hangSeconds: 1, startSeconds: 2 }), 0);
}

describe('random programs', () => {
  it('are counted if none fails', async () => {
    const result = await run('none');
    assert.strictEqual(result.failure, null);
    assert.deepStrictEqual(
      [result.programs, result.steps, result.tally],
      [5, 1000, { steps: 1000 }]
    );
  });

  const kinds = { throw: 'failure', crash: 'ended by SIGSEGV', hang: 'hang' };
  for (const fault of Object.keys(kinds)) {
    it(`are found, attributed and shrunk to two steps: ${fault}`, async function () {
      this.timeout(120000);
      const { failure, only, isRepeatable } = await run(fault);
      assert.strictEqual(failure.kind, kinds[fault]);
      assert.strictEqual(failure.seed, 12);
      assert.strictEqual(only.length, 2, `${only}`);
      assert.strictEqual(failure.step, only[1]);
      assert.strictEqual(isRepeatable, true);
      if (fault === 'throw') {
        assert(failure.text.startsWith('Error: planted: after 2 steps'), failure.text);
      }
    });
  }

  it('are found where a process does not begin', async () => {
    const { failure, isRepeatable, firstSeed } = await run('start');
    assert.deepStrictEqual(failure, { seed: 10, step: -1, kind: 'hang', text: '' });
    assert.deepStrictEqual([isRepeatable, firstSeed], [false, 10]);
  });

  it('differ by their seed only', async () => {
    const results = [await run('throw', 11), await run('throw', 12)];
    assert.deepStrictEqual(results[0].only, results[1].only);
    assert.strictEqual((await run('throw', 13)).failure, null);
  });
});

describe('shrinking', () => {
  it('keeps the steps that are needed', async () => {
    const needed = [3, 50, 97];
    const fails = async (list) => needed.every((step) => list.includes(step));
    const all = Array.from({ length: 100 }, (_, i) => i);
    assert.deepStrictEqual(await shrink(all, fails, () => false), needed);
  });

  it('ends when it is late, with a list that fails', async () => {
    let calls = 0;
    const fails = async (list) => ++calls > 0 && list.includes(9);
    const list = await shrink([1, 2, 3, 9], fails, () => calls >= 1);
    assert.strictEqual(calls, 1);
    assert(list.includes(9));
  });

  it('compares failures by kind and message, without their numbers', () => {
    const of = (kind, text) => signatureOf({ kind, text });
    assert.strictEqual(of('failure', 'Error: 12 at 3.5\nx'), of('failure', 'Error: 7 at -1e9\ny'));
    assert.notStrictEqual(of('failure', 'Error: a'), of('failure', 'Error: b'));
    assert.notStrictEqual(of('hang', ''), of('ended by SIGSEGV', ''));
  });
});

describe('random programs of scenes', () => {
  it('call every public method', () => {
    const classes = {
      scene: [Scene, ['inspect']],
      node: [Node, []],
      character: [Character, []],
      layer: [AnimationLayer, []],
      camera: [Camera, []],
      model: [Model, []],
    };
    for (const kind of Object.keys(classes)) {
      const [{ prototype }, leftOut] = classes[kind];
      const missing = Object.getOwnPropertyNames(prototype).filter((name) => {
        const { value, set } = Object.getOwnPropertyDescriptor(prototype, name);
        const isPublic = !name.startsWith('_') && name !== 'constructor';
        const key = set === undefined ? name : `=${name}`;
        const isWritten = typeof value === 'function' || set !== undefined;
        return isPublic && isWritten && !(key in members[kind]) && !leftOut.includes(name);
      });
      assert.deepStrictEqual(missing, [], kind);
    }
  });
});
