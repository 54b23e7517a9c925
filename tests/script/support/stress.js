'use strict';
// Runs the program stress.js under conditions in which threads are late: it must neither hang nor compute other bytes.
const { execFileSync, spawn } = require('child_process');
const os = require('os');
const path = require('path');

const program = path.join(__dirname, '..', 'process', 'stress.js');

/** Without a line for so long a process hangs. */
const kHangMs = 100000;

/** Busy processes on all CPUs. */
const kHogs = 2 * os.cpus().length;

/** CPUs that this process may run on. */
function allowedCpus() {
  const [, list] = /:\s*([\d,-]+)\s*$/.exec(
    execFileSync('taskset', ['-cp', String(process.pid)], { encoding: 'utf8' })
  );
  return [].concat(
    ...list.split(',').map((range) => {
      const [first, last = first] = range.split('-').map(Number);
      return Array.from({ length: last - first + 1 }, (_, i) => first + i);
    })
  );
}

function startHogs(count) {
  const source = 'for (;;) {}';
  return Array.from({ length: count }, () => spawn(process.execPath, ['-e', source]));
}

/** Calls `act(pid)` at intervals; an ended process is no error. */
function repeat(pid, milliseconds, act) {
  const timer = setInterval(() => {
    try {
      act(pid);
    } catch (error) {
      // It has just ended.
    }
  }, milliseconds);
  return () => clearInterval(timer);
}

/** Moves each thread of a process to another CPU, or lets it run on all. */
function moveThreads(pid, cpus, turn) {
  const choice = turn % (cpus.length + 1);
  const list = choice === cpus.length ? cpus.join(',') : String(cpus[choice]);
  execFileSync('taskset', ['-acp', list, String(pid)], { stdio: 'ignore' });
}

/**
 * Conditions by name: the command that starts the program, and what is done with its process; that returns what ends it.
 */
const conditions = {
  'on all CPUs': {},
  'on one CPU': { prefix: (cpus) => ['taskset', '-c', String(cpus[0])] },
  'beside busy processes': {
    start() {
      const hogs = startHogs(kHogs);
      return () => hogs.forEach((hog) => hog.kill('SIGKILL'));
    },
  },
  'on one CPU beside a busy process': {
    prefix: (cpus) => ['taskset', '-c', String(cpus[0])],
    start(pid, cpus) {
      const [hog] = startHogs(1);
      execFileSync('taskset', ['-acp', String(cpus[0]), String(hog.pid)], { stdio: 'ignore' });
      return () => hog.kill('SIGKILL');
    },
  },
  'while its threads are moved': {
    start(pid, cpus) {
      let turn = 0;
      return repeat(pid, 20, () => moveThreads(pid, cpus, turn++));
    },
  },
  // A handler that restarts system calls, and stops as of a scheduler with a quota.
  'through signals': {
    start(pid) {
      let turn = 0;
      return repeat(pid, 3, () =>
        process.kill(pid, ['SIGWINCH', 'SIGSTOP', 'SIGCONT'][turn++ % 3])
      );
    },
  },
};

/**
 * Runs the program once.
 * @param {string} name of a condition
 * @param {number} frames
 * @param {number} workers
 * @return {Promise<string[]>} digests of the engines; rejected with what happened if it ends otherwise, or hangs
 */
function runUnder(name, frames, workers) {
  const { prefix = () => [], start = () => () => {} } = conditions[name];
  const cpus = allowedCpus();
  const args = [process.execPath, '--expose-gc', program, String(frames), String(workers)];
  const command = [...prefix(cpus), ...args];
  return new Promise((resolve, reject) => {
    const child = spawn(command[0], command.slice(1));
    const stop = start(child.pid, cpus);
    let output = '';
    let errors = '';
    let isHanging = false;
    const hang = () => {
      isHanging = true;
      child.kill('SIGKILL');
    };
    let timer = setTimeout(hang, kHangMs);
    child.stdout.on('data', (data) => {
      output += data;
      clearTimeout(timer);
      timer = setTimeout(hang, kHangMs);
    });
    child.stderr.on('data', (data) => (errors += data));
    child.on('error', reject);
    child.on('close', (status, signal) => {
      clearTimeout(timer);
      stop();
      if (isHanging) {
        reject(new Error(`${name}: it hangs after: ${output}`));
      } else if (status !== 0) {
        reject(new Error(`${name}: status ${status}, signal ${signal}\n${output}${errors}`));
      } else {
        resolve(JSON.parse(output.trim().split('\n').pop()).digests);
      }
    });
  });
}

module.exports = { conditions: Object.keys(conditions), runUnder };
