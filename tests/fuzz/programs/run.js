'use strict';
// Runs random programs in one process: run.js FILE SEED PROGRAMS STEPS JOURNAL [ONLY]. FILE exports `start(seed)`, which
// resolves to a program with `step(draw)` and `end()`. Each step draws from a generator of its own, made of the seed and
// its number, so that a program also runs without some of its steps: ONLY lists the numbers of those that run.
//
// The journal always has the seed and the number of the step that runs, so that the parent knows where the process ended. A
// step that throws is a failure: the journal then has its message, too.
const fs = require('fs');
const path = require('path');
const { createRandom } = require('../../../bench/script/lib/random');
const { Draw } = require('./garbage');

const kEntryBytes = 32;

function stepSeed(seed, step) {
  return (Math.imul(seed, 0x9e3779b1) ^ Math.imul(step + 1, 0x85ebca6b)) >>> 0;
}

async function main([file, seedText, programs, steps, journal, only]) {
  const { start } = require(path.resolve(file));
  const fd = fs.openSync(journal, 'w');
  const entry = Buffer.alloc(kEntryBytes);
  const note = (seed, step) => {
    entry.fill(' ');
    entry.write(`${seed} ${step}`);
    entry[kEntryBytes - 1] = 10;
    fs.writeSync(fd, entry, 0, kEntryBytes, 0);
  };
  const fail = (error) => {
    const text = error instanceof Error ? error.stack : String(error);
    fs.writeSync(fd, text, kEntryBytes);
    process.exit(3);
  };
  process.on('unhandledRejection', fail);
  process.on('uncaughtException', fail);
  await runPrograms().catch(fail);

  async function runPrograms() {
    const numbers = only === undefined ? null : only.split(',').map(Number);
    const first = Number(seedText);
    const tally = {};
    for (let seed = first; seed < first + Number(programs); ++seed) {
      note(seed, -1);
      const program = await start(seed);
      const list = numbers || Array.from({ length: Number(steps) }, (_, i) => i);
      for (const step of list) {
        note(seed, step);
        await program.step(new Draw(createRandom(stepSeed(seed, step))));
      }
      note(seed, Number(steps));
      const counts = await program.end();
      Object.keys(counts).forEach((name) => {
        tally[name] = (tally[name] || 0) + counts[name];
      });
    }
    fs.writeSync(fd, JSON.stringify(tally), kEntryBytes);
    process.exit(0);
  }
}

main(process.argv.slice(2)).catch((error) => {
  console.error(error.stack);
  process.exit(4);
});
