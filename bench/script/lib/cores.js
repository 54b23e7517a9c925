'use strict';
// Binding of a process to some of the cores that it may use. The host cannot do it, so a process runs itself again
// under `taskset`.
const fs = require('fs');
const { spawnSync } = require('child_process');

/**
 * The CPUs of a list in the form of the kernel, as 0-2,5.
 * @param {string} list
 * @returns {number[]}
 */
function parseCpuList(list) {
  return [].concat(
    ...list.split(',').map((part) => {
      const [first, last = first] = part.split('-').map(Number);
      return Array.from({ length: last - first + 1 }, (_, i) => first + i);
    })
  );
}

/** Numbers of the CPUs that this process may run on. */
function allowedCpus() {
  const status = fs.readFileSync('/proc/self/status', 'utf8');
  return parseCpuList(/^Cpus_allowed_list:\s*(\S+)$/m.exec(status)[1]);
}

/**
 * Runs this process again on the first `cores` of the CPUs that it may run on, with the same arguments and output,
 * unless it already runs on that many.
 * @param {number} cores
 * @returns {?number} exit code of the other process, or null: go on in this one
 * @throws {Error} with what is wrong
 */
function runOnCores(cores) {
  const cpus = allowedCpus();
  if (cores > cpus.length) {
    throw new Error(
      `--cores is ${cores}, but this process may run on ${cpus.length} (CPU ${cpus.join(', ')})`
    );
  }
  if (cores === cpus.length) {
    return null;
  }
  const list = cpus.slice(0, cores).join(',');
  const args = ['-c', list, process.execPath, ...process.execArgv, ...process.argv.slice(1)];
  const { error, status } = spawnSync('taskset', args, { stdio: 'inherit' });
  if (error !== undefined) {
    throw new Error(`--cores needs taskset, of the package util-linux: ${error.message}`);
  }
  return status === null ? 1 : status;
}

module.exports = { allowedCpus, parseCpuList, runOnCores };
