'use strict';
// Runs stress.js under all conditions, again and again: stress-all.js SECONDS. A hang, an end, and other bytes are errors.
const { conditions, runUnder } = require('../support/stress');

const kFrames = 2000;
const kWorkers = 2;

async function main() {
  const end = Date.now() + 1000 * Number(process.argv[2]);
  let expected = null;
  for (let round = 1; round === 1 || Date.now() < end; ++round) {
    for (const name of conditions) {
      const digests = await runUnder(name, kFrames, kWorkers);
      expected = expected || digests[0];
      if (digests.some((digest) => digest !== expected)) {
        throw new Error(`${name}: other bytes: ${digests.join(' ')} instead of ${expected}`);
      }
      console.log(`round ${round}: ${digests.length * kFrames} frames ${name}`);
    }
  }
}

main().catch((error) => {
  console.error(error.message);
  process.exitCode = 1;
});
