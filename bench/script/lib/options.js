'use strict';
// Options of the JavaScript benchmarks.
const { budgets, cacheStates, statistics } = require('./measure');

/** What `--help` prints. */
const usage = `Options of JavaScript benchmarks:
  --budget ${Object.keys(budgets).join(
    '|'
  )}   rounds of a measurement; tiny runs everything once (default short)
  --only NAME                only one workload
  --cases all|largest        all cases, or only the largest of each workload (default all)
  --statistic ${statistics.join('|')}    the reported statistic of the rounds (default median)
  --cores N                  bind the process to N of the cores that it may use (default all of them)
  --caches ${cacheStates.join(
    '|'
  )}         cold: evict the caches before each timed run (default warm)
  --json FILE                write all figures as JSON`;

/**
 * Reads options, each followed by a value.
 * @param {string[]} args
 * @param {string[]} workloads valid values of `--only`
 * @returns {{budget: string, only: ?string, cases: string, json: ?string, statistic: string, cores: ?number,
 *   caches: string}} `cores` is null where nothing is bound
 * @throws {Error} with what is wrong
 */
function parseOptions(args, workloads) {
  const options = {
    budget: 'short',
    only: null,
    cases: 'all',
    statistic: 'median',
    cores: null,
    caches: 'warm',
    json: null,
  };
  for (let i = 0; i < args.length; i += 2) {
    const name = args[i].replace(/^--/, '');
    if (args[i] !== `--${name}` || !(name in options) || i + 1 === args.length) {
      throw new Error(`cannot read "${args.slice(i).join(' ')}"`);
    }
    options[name] = args[i + 1];
  }
  const requireOneOf = (name, allowed) => {
    if (!allowed.includes(options[name])) {
      throw new Error(`--${name} is one of ${allowed.join(', ')}, not "${options[name]}"`);
    }
  };
  requireOneOf('budget', Object.keys(budgets));
  if (options.only !== null) {
    requireOneOf('only', workloads);
  }
  requireOneOf('statistic', statistics);
  requireOneOf('cases', ['all', 'largest']);
  requireOneOf('caches', cacheStates);
  if (options.cores !== null) {
    const cores = Number(options.cores);
    if (!(Number.isInteger(cores) && cores > 0)) {
      throw new Error(`--cores is a whole number from 1 up, not "${options.cores}"`);
    }
    options.cores = cores;
  }
  return options;
}

module.exports = { parseOptions, usage };
