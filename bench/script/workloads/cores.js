'use strict';
// The strongest typed arrays again, on 1 to 4 cores: how much of the lead is due to the workers, of which there are four.
// Each number of cores is a process of its own, bound to them.
const fs = require('fs');
const os = require('os');
const path = require('path');
const { spawnSync } = require('child_process');
const { allowedCpus } = require('../lib/cores');
const { budgets } = require('../lib/measure');
const { printTable } = require('../lib/table');

/** Workers of an engine: further cores have nothing to do. */
const workers = 4;

/** Results of the workload `typed-arrays` in a process that is bound to some cores. */
function measureOn(cores, budgetName, folder) {
  const file = path.join(folder, `${cores}.json`);
  const script = path.join(__dirname, '..', 'run.js');
  const options = ['--only', 'typed-arrays', '--budget', budgetName, '--json', file];
  const args = [...process.execArgv, script, ...options, '--cores', String(cores)];
  const { error, status, stderr } = spawnSync(process.execPath, args, { encoding: 'utf8' });
  if (error !== undefined || status !== 0) {
    const what = error === undefined ? `exit code ${status}\n${stderr}` : error.message;
    throw new Error(`typed-arrays on ${cores} of the cores: ${what}`);
  }
  const report = fs.readFileSync(file, 'utf8');
  fs.unlinkSync(file);
  return JSON.parse(report).results['typed-arrays'];
}

function run(budget) {
  const [budgetName] = Object.entries(budgets).find(([, { rounds }]) => rounds === budget.rounds);
  const most = Math.min(workers, allowedCpus().length);
  const counts = Array.from({ length: most }, (_, i) => i + 1);
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-bench-'));
  let all;
  try {
    all = counts.map((cores) => measureOn(cores, budgetName, folder));
  } finally {
    fs.rmdirSync(folder);
  }
  const rows = all[0].map(({ work, unit }, at) => ({
    work,
    unit,
    best: all.map((rowsOfCores) => rowsOfCores[at].statistics.best),
  }));
  const titled = (what) => counts.map((cores) => `${what}, ${cores}`);
  printTable(
    'cores: the same on 1 to 4 cores, ns per unit of work and times faster than typed arrays, best of all runs',
    ['work', 'unit', ...titled('nq'), ...titled('typed/nq')],
    rows.map(({ work, unit, best }) => [
      ...[work, unit],
      ...best.map(({ nq }) => nq),
      ...best.map(({ nq, typed }) => typed / nq),
    ])
  );
  return rows;
}

module.exports = { run };
