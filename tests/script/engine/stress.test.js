'use strict';
// Threads of engines that are late, or run one at a time: frames end, with the same bytes.
const assert = require('assert');
const { slow } = require('../support/host');
const { conditions, runUnder } = require('../support/stress');

const kFrames = slow ? 30 : 300;
const kWorkers = 2;

describe('frames of three engines, one in each of three threads', () => {
  let expected = null;

  for (const name of conditions) {
    it(`end with the same bytes ${name}`, async () => {
      const digests = await runUnder(name, kFrames, kWorkers);
      assert.strictEqual(digests.length, kWorkers + 1);
      expected = expected || digests[0];
      assert(/^[0-9a-f]{64}$/.test(expected));
      digests.forEach((digest) => assert.strictEqual(digest, expected));
    });
  }
});
