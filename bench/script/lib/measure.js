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

/** What is reported of the rounds. */
const statistics = ['median', 'best'];

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

/** States of the caches before a run. */
const cacheStates = ['warm', 'cold'];

/** Bytes that are read to evict the caches: twice the largest third-level cache of a core complex. */
const evictedBytes = 64 * 1024 * 1024;
const cacheLine = 64;

/** Timed runs of a turn with cold caches at most, since walking takes much longer than most runs. */
const maxColdRuns = 8;

/** The walked memory, or null if caches stay warm. */
let walked = null;

/** The sum of a walk, kept so that the compiler cannot omit it. */
let walkedSum = 0;

/**
 * Sets whether memory larger than the caches is walked before each run, outside the measured time: the same for all
 * contenders.
 * @param {boolean} cold
 */
function evictCaches(cold) {
  walked = cold ? new Uint32Array(evictedBytes / 4).fill(1) : null;
}

function walk() {
  let sum = 0;
  for (let at = 0; at < walked.length; at += cacheLine / 4) {
    sum += walked[at];
  }
  walkedSum = sum;
  return walkedSum;
}

/**
 * Times of a run of each contender in nanoseconds, in order, by the reported statistic; `best` and `median` by each; and
 * `cpu`, the CPU time of all threads of the process for it, also in nanoseconds: the least average of a round, since
 * other programs can only lengthen it.
 * @typedef {number[] & {best: number[], median: number[], cpu: number[]}} Times
 */

/** CPU time of all threads of the process so far, in nanoseconds; it is counted in microseconds. */
function cpuNow() {
  const { user, system } = process.cpuUsage();
  return 1e3 * (user + system);
}

/**
 * The reported statistic of each contender.
 * @param {number[][]} samples of each contender
 * @param {number[]} shortest run of each
 * @param {number[][]} cpu samples of each
 * @returns {Times}
 */
function timesOf(samples, shortest, cpu) {
  const medians = samples.map(median);
  return Object.assign(reportsBest ? shortest.slice() : medians.slice(), {
    best: shortest,
    median: medians,
    cpu: cpu.map((times) => Math.min(...times)),
  });
}

/** Approximate nanoseconds of the runs of one sample. */
const batchNanoseconds = 1e5;

/**
 * Runs contenders interleaved, A B C A B C..., and returns the nanoseconds of one run of each, in order, by the
 * reported statistic. Before each turn garbage is collected and some warm-up runs are untimed: the other contenders
 * have evicted the caches, and threads of the collector may still run. A first round is for the compiler.
 * With cold caches a sample is one run.
 * @param {Array<function(number): void>} contenders each receives the number of the run
 * @param {Budget} budget
 * @returns {Times}
 */
function interleave(contenders, budget) {
  if (walked !== null) {
    const prepare = () => {};
    return interleavePrepared(
      contenders.map((run) => ({ prepare, run })),
      budget
    );
  }
  const samples = contenders.map(() => []);
  const cpu = contenders.map(() => []);
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
      const cpuStart = cpuNow();
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
        cpu[c].push((cpuNow() - cpuStart) / count);
      }
      batches[c] = Math.max(1, Math.floor((batchNanoseconds * count) / elapsed));
    }
  }
  return timesOf(samples, shortest, cpu);
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
        if (walked !== null) {
          walk();
        }
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
 * @returns {Times}
 */
function interleavePrepared(contenders, budget) {
  const samples = contenders.map(() => []);
  const cpu = contenders.map(() => []);
  const shortest = contenders.map(() => Infinity);
  const runs = contenders.map(() => 0);
  for (let round = -1; round < budget.rounds; ++round) {
    for (let c = 0; c < contenders.length; ++c) {
      const { prepare, run } = contenders[c];
      let used = 0;
      const timed = () => {
        const number = runs[c]++;
        prepare(number);
        if (walked !== null) {
          walk();
        }
        const cpuStart = cpuNow();
        const start = now();
        run(number);
        const time = now() - start;
        used += cpuNow() - cpuStart;
        return time;
      };
      collectGarbage();
      for (let i = 0; i < budget.warmUps; ++i) {
        timed();
      }
      let count = 0;
      let elapsed = 0;
      used = 0;
      do {
        const time = timed();
        shortest[c] = Math.min(shortest[c], time);
        elapsed += time;
        ++count;
      } while (elapsed < budget.milliseconds * 1e6 && !(walked !== null && count >= maxColdRuns));
      if (round >= 0) {
        samples[c].push(elapsed / count);
        cpu[c].push(used / count);
      }
    }
  }
  return timesOf(samples, shortest, cpu);
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
  cacheStates,
  collectGarbage,
  evictCaches,
  interleave,
  interleavePrepared,
  largestOnly,
  median,
  now,
  once,
  reported,
  reportStatistic,
  statistics,
};
