'use strict';
// Timing: monotonic clock, medians, and interleaved contenders in one process.
const v8 = require('v8');
const vm = require('vm');

v8.setFlagsFromString('--expose-gc');
const collectGarbage = vm.runInNewContext('gc');

/**
 * The budget of a measurement: rounds of each contender, the minimum time of one, and the untimed warm-up runs before
 * it, whose number is also the minimum number of timed runs.
 * @typedef {{rounds: number, milliseconds: number, warmUps: number, sizes: number[], passSizes: number[],
 *   sweepSizes: number[], entities: number, singles: number, largestOnly: (boolean|undefined)}} Budget
 */

/** @type {Object<string, Budget>} */
const budgets = {
  tiny: {
    rounds: 1,
    milliseconds: 0,
    warmUps: 1,
    sizes: [200],
    passSizes: [13000],
    sweepSizes: [400],
    entities: 500,
    singles: 50,
  },
  short: {
    rounds: 9,
    milliseconds: 6,
    warmUps: 5,
    sizes: [1000, 10000, 100000],
    passSizes: [100000],
    sweepSizes: [10000, 100000],
    entities: 100000,
    singles: 10000,
  },
  full: {
    rounds: 25,
    milliseconds: 20,
    warmUps: 5,
    sizes: [1000, 10000, 100000],
    passSizes: [100000],
    sweepSizes: [10000, 100000],
    entities: 100000,
    singles: 10000,
  },
};

/**
 * A budget for only the largest case of each workload.
 * @param {Budget} budget
 * @returns {Budget}
 */
function largestOnly(budget) {
  const { sizes, sweepSizes } = budget;
  return Object.assign({}, budget, {
    sizes: sizes.slice(-1),
    sweepSizes: sweepSizes.slice(-1),
    largestOnly: true,
  });
}

/** Nanoseconds of a monotonic clock, as a double. */
function now() {
  const time = process.hrtime();
  return time[0] * 1e9 + time[1];
}

/**
 * The median.
 * @param {number[]} values at least one
 * @returns {number}
 */
function median(values) {
  const sorted = values.slice().sort((a, b) => a - b);
  const middle = sorted.length >> 1;
  return sorted.length % 2 === 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

/** Whether the shortest sample is reported, not the median of the rounds. */
let reportsBest = false;

/**
 * Sets the reported statistic: the median of the rounds, or the shortest sample, which is more meaningful on a busy
 * machine.
 * @param {string} name 'median' or 'best'
 */
function reportStatistic(name) {
  reportsBest = name === 'best';
}

/** Approximate nanoseconds of the runs of one sample. */
const batchNanoseconds = 1e5;

/**
 * Runs contenders interleaved, A B C A B C..., and returns the nanoseconds of one run of each, in order, by the
 * reported statistic. Before each turn garbage is collected and some warm-up runs are untimed: the other contenders
 * have evicted the caches, and threads of the collector may still run. A first round is for the compiler.
 * @param {Array<function(number): void>} contenders each receives the number of the run
 * @param {Budget} budget
 * @returns {number[]}
 */
function interleave(contenders, budget) {
  const samples = contenders.map(() => []);
  const shortest = contenders.map(() => Infinity);
  const runs = contenders.map(() => 0);
  const batches = contenders.map(() => 1);
  for (let round = -1; round < budget.rounds; ++round) {
    for (let c = 0; c < contenders.length; ++c) {
      const run = contenders[c];
      collectGarbage();
      for (let i = 0; i < budget.warmUps; ++i) {
        run(runs[c]++);
      }
      const limit = budget.milliseconds * 1e6;
      const start = now();
      let count = 0;
      let elapsed = 0;
      do {
        for (let i = 0; i < batches[c]; ++i) {
          run(runs[c]++);
        }
        count += batches[c];
        const end = now() - start;
        shortest[c] = Math.min(shortest[c], (end - elapsed) / batches[c]);
        elapsed = end;
      } while (elapsed < limit || count < budget.warmUps);
      if (round >= 0) {
        samples[c].push(elapsed / count);
      }
      batches[c] = Math.max(1, Math.floor((batchNanoseconds * count) / elapsed));
    }
  }
  return reportsBest ? shortest : samples.map(median);
}

/** Runs of each contender in a round of `alternate`. */
const runsOfRound = 60;

/**
 * Nanoseconds per run of each contender, for runs that are long against reading the clock: single runs in turns, each
 * timed, so that all of them see the same machine. A first round is for the compiler.
 * @param {Array<function(): void>} contenders
 * @param {Budget} budget
 * @returns {number[]}
 */
function alternate(contenders, budget) {
  const samples = contenders.map(() => []);
  for (let round = -1; round < budget.rounds; ++round) {
    collectGarbage();
    for (let i = 0; i < runsOfRound; ++i) {
      for (let k = 0; k < contenders.length; ++k) {
        // Each is as often the first of a turn.
        const c = i % 2 === 0 ? k : contenders.length - 1 - k;
        const start = now();
        contenders[c]();
        const elapsed = now() - start;
        if (round >= 0) {
          samples[c].push(elapsed);
        }
      }
    }
  }
  return samples.map((times) => (reportsBest ? Math.min(...times) : median(times)));
}

/**
 * As `interleave`, for runs that each need an untimed preparation, which receives the same number. A sample is then
 * one run; a turn ends when its runs have taken the budget's time.
 * @param {Array<{prepare: function(number): void, run: function(number): void}>} contenders
 * @param {Budget} budget
 * @returns {number[]}
 */
function interleavePrepared(contenders, budget) {
  const samples = contenders.map(() => []);
  const shortest = contenders.map(() => Infinity);
  const runs = contenders.map(() => 0);
  for (let round = -1; round < budget.rounds; ++round) {
    for (let c = 0; c < contenders.length; ++c) {
      const { prepare, run } = contenders[c];
      const timed = () => {
        const number = runs[c]++;
        prepare(number);
        const start = now();
        run(number);
        return now() - start;
      };
      collectGarbage();
      for (let i = 0; i < budget.warmUps; ++i) {
        timed();
      }
      let count = 0;
      let elapsed = 0;
      do {
        const time = timed();
        shortest[c] = Math.min(shortest[c], time);
        elapsed += time;
        ++count;
      } while (elapsed < budget.milliseconds * 1e6);
      if (round >= 0) {
        samples[c].push(elapsed / count);
      }
    }
  }
  return reportsBest ? shortest : samples.map(median);
}

/**
 * Nanoseconds of `body` over the rounds of a budget, each with an untimed preparation.
 * @param {Budget} budget
 * @param {function(): *} prepare its result is passed to `body`
 * @param {function(*): void} body
 * @returns {number}
 */
function once(budget, prepare, body) {
  const samples = [];
  for (let round = 0; round < budget.rounds; ++round) {
    const input = prepare();
    collectGarbage();
    const start = now();
    body(input);
    samples.push(now() - start);
  }
  return reported(samples);
}

/** The reported statistic of samples. */
function reported(samples) {
  return reportsBest ? Math.min(...samples) : median(samples);
}

module.exports = {
  alternate,
  budgets,
  collectGarbage,
  interleave,
  interleavePrepared,
  largestOnly,
  median,
  now,
  once,
  reported,
  reportStatistic,
};
