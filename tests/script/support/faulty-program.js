'use strict';
// A random program with planted faults, for tests of what runs random programs: NQ_FAULT names the fault of seed 12, or
// 'start' for one that never begins.
class Program {
  constructor(seed) {
    this.seed = seed;
    this.seen = [];
  }

  step(draw) {
    const number = draw.below(50);
    this.seen.push(number);
    // Needs two steps, in this order, with any others between.
    const isReached = this.seed === 12 && number === 7 && this.seen.includes(3);
    if (!isReached) {
      return;
    }
    if (process.env.NQ_FAULT === 'throw') {
      throw new Error(`planted: after ${this.seen.length} steps`);
    } else if (process.env.NQ_FAULT === 'crash') {
      process.kill(process.pid, 'SIGSEGV');
      for (;;);
    } else if (process.env.NQ_FAULT === 'hang') {
      for (;;);
    }
  }

  end() {
    return { steps: this.seen.length };
  }
}

if (process.env.NQ_FAULT === 'start') {
  for (;;);
}

module.exports = { start: (seed) => new Program(seed) };
