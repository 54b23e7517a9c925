'use strict';
// Options of the JavaScript benchmarks.
const { budgets } = require('./measure');

/**
 * Reads options, each followed by a value.
 * @param {string[]} args
 * @param {string[]} workloads valid values of `--only`
 * @returns {{budget: string, only: ?string, cases: string, json: ?string, statistic: string}}
 * @throws {Error} with what is wrong
 */
function parseOptions(args, workloads) {
  const options = { budget: 'short', only: null, cases: 'all', json: null, statistic: 'median' };
  for (let i = 0; i < args.length; i += 2) {
    const name = args[i].replace(/^--/, '');
    if (args[i] !== `--${name}` || !(name in options) || i + 1 === args.length) {
      throw new Error(`cannot read "${args.slice(i).join(' ')}"`);
    }
    options[name] = args[i + 1];
  }
  if (!(options.budget in budgets)) {
    throw new Error(`--budget is one of ${Object.keys(budgets).join(', ')}`);
  }
  if (options.only !== null && !workloads.includes(options.only)) {
    throw new Error(`--only is one of ${workloads.join(', ')}`);
  }
  if (!['median', 'best'].includes(options.statistic)) {
    throw new Error('--statistic is median or best');
  }
  if (!['all', 'largest'].includes(options.cases)) {
    throw new Error('--cases is all or largest');
  }
  return options;
}

module.exports = { parseOptions };
