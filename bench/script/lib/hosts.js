'use strict';
// The largest case of each workload on several hosts, or of several builds on one, side by side.
const childProcess = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { budgets, median } = require('./measure');
const { parseOptions } = require('./options');
const { printTable } = require('./table');

/** Workloads with a contender to the module, in table order. Each exports `largest`. */
const compared = [
  'transform',
  'sweep',
  'idle',
  'linking',
  'culling',
  'animation',
  'controllers',
  'matrixflow',
];

/** Runs of each workload on each host, with the order of hosts reversed each time. */
const turns = 2;

const contenders = ['nq', 'typed', 'three'];

/**
 * The largest case of a workload, as its `largest` returns it.
 * @typedef {{work: string, unit: string, times: {nq: number, typed: (number|undefined),
 *   three: (number|undefined)}}} Case
 */

/**
 * A host, or a build for one: suffix of its column names, the host's binary, and the environment by which it finds its
 * modules.
 * @typedef {{name: string, program: string, environment: Object<string, string>}} Host
 */

/** Runs a workload on a host and returns its report. */
function runOn(host, workload, options, folder) {
  const report = path.join(folder, 'report.json');
  const args = [path.join(__dirname, '..', 'run.js'), '--only', workload, '--json', report];
  args.push('--cases', 'largest', '--budget', options.budget, '--statistic', options.statistic);
  args.push('--caches', options.caches);
  if (options.cores !== null) {
    args.push('--cores', String(options.cores));
  }
  console.error(`== ${workload}, ${host.name}`);
  const { status, error } = childProcess.spawnSync(host.program, args, {
    env: Object.assign({}, process.env, host.environment),
    stdio: ['ignore', 'ignore', 'inherit'],
  });
  if (status !== 0) {
    const reason = error ? `: ${error.message}` : ` (exit code ${status})`;
    throw new Error(`${workload} failed, ${host.name}${reason}.`);
  }
  return JSON.parse(fs.readFileSync(report, 'utf8'));
}

/**
 * Merges the times of the rounds by the same statistic as within a round.
 * @param {Case[][]} runs the same cases, as measured in each round
 * @param {string} statistic
 * @returns {Case[]}
 */
function mergeTurns(runs, statistic) {
  return runs[0].map(({ work, unit, times }, i) => {
    const merged = {};
    for (const name of Object.keys(times)) {
      const all = runs.map((cases) => cases[i].times[name]);
      merged[name] = statistic === 'best' ? Math.min(...all) : median(all);
    }
    return { work, unit, times: merged };
  });
}

/**
 * Measures on all hosts, interleaved: by workload, then by host.
 * @param {Host[]} hosts
 * @param {ReturnType<parseOptions>} options
 * @param {string} folder for reports
 * @returns {Array<{machine: object, cases: Case[]}>} by host
 */
function measureHosts(hosts, options, folder) {
  const count = options.budget === 'tiny' ? 1 : turns;
  const found = hosts.map(() => ({ machine: null, cases: [] }));
  for (const workload of options.only === null ? compared : [options.only]) {
    const runs = hosts.map(() => []);
    for (let turn = 0; turn < count; ++turn) {
      const order = Array.from(hosts.keys());
      for (const h of turn % 2 === 0 ? order : order.reverse()) {
        const { machine, largest } = runOn(hosts[h], workload, options, folder);
        found[h].machine = machine;
        runs[h].push(largest);
      }
    }
    runs.forEach((of, h) => found[h].cases.push(...mergeTurns(of, options.statistic)));
  }
  return found;
}

/**
 * Columns and rows of the table: the times of each contender, then the ratios to the module, by host, then the module's
 * times as multiples of those on the first host.
 * @param {string[]} names of the hosts
 * @param {Case[][]} cases by host
 * @returns {{columns: string[], rows: Array<Array<string|number>>}}
 */
function tableOf(names, cases) {
  const values = [
    ...contenders.map((name) => [name, ({ times }) => times[name]]),
    ...contenders.slice(1).map((name) => [`${name}/nq`, ({ times }) => times[name] / times.nq]),
  ];
  const columns = ['work', 'unit'];
  for (const [title] of values) {
    columns.push(...names.map((name) => `${title} ${name}`));
  }
  columns.push(...names.slice(1).map((name) => `nq ${name}/${names[0]}`));
  const rows = cases[0].map(({ work, unit, times }, i) =>
    [work, unit].concat(
      ...values.map(([, value]) => cases.map((one) => value(one[i]))),
      cases.slice(1).map((one) => one[i].times.nq / times.nq)
    )
  );
  return { columns, rows };
}

/**
 * Measures on several hosts and prints one table.
 * @param {Host[]} hosts
 * @param {string[]} args options of the JavaScript benchmarks; `--json` receives the data of the table
 * @throws {Error} with what is wrong or has failed
 */
function compareHosts(hosts, args) {
  const options = parseOptions(args, compared);
  if (args.includes('--cases')) {
    throw new Error('--hosts compares the largest cases: leave --cases out');
  }
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-hosts-'));
  let found;
  try {
    found = measureHosts(hosts, options, folder);
  } finally {
    fs.readdirSync(folder).forEach((file) => fs.unlinkSync(path.join(folder, file)));
    fs.rmdirSync(folder);
  }
  const [{ machine }] = found;
  const nodes = found.map((one) => one.machine.node).join(', ');
  const rounds = `${options.statistic} of ${budgets[options.budget].rounds} rounds`;
  console.log(`${machine.cpu}, ${machine.cpus} cores, Node ${nodes}; ${rounds}`);
  const names = hosts.map(({ name }) => name);
  const { columns, rows } = tableOf(
    names,
    found.map(({ cases }) => cases)
  );
  printTable('hosts: the largest case of each workload', columns, rows);
  if (options.json !== null) {
    fs.writeFileSync(options.json, `${JSON.stringify({ options, hosts: found }, null, 1)}\n`);
  }
}

module.exports = { compareHosts, compared, mergeTurns, tableOf };
