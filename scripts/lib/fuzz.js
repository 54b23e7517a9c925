'use strict';
// Runs random programs in child processes, attributes crashes, hangs and failures to a seed and a step, and shrinks them
// to few steps.
const fs = require('fs');
const os = require('os');
const path = require('path');
const { spawn } = require('child_process');
const { removeFolder, root } = require('./run');

const runner = path.join(root, 'tests/fuzz/programs/run.js');
const kEntryBytes = 32;
const kFailed = 3;

/**
 * A step that takes longer hangs, and so does a host that has not begun by then. Time is counted in looks at the journal:
 * a machine that was suspended has passed none.
 */
const kHangSeconds = 20;
const kStartSeconds = 60;
const kLookMilliseconds = 250;

/** Limits of shrinking. */
const kMostAttempts = 150;
const kShrinkSeconds = 60;

/**
 * Where and how a program failed.
 * @typedef {Object} Failure
 * @property {number} seed of the program
 * @property {number} step number of the step, -1 at the start
 * @property {string} kind 'failure', 'hang', or how the process ended
 * @property {string} text what was reported
 */

/** The journal of a child: whether it has begun, seed and step, and what follows them. */
function readJournal(file, firstSeed) {
  const text = fs.readFileSync(file, 'utf8');
  const hasBegun = text.length >= kEntryBytes;
  const numbers = text.slice(0, kEntryBytes).trim().split(' ').map(Number);
  const [seed, step] = hasBegun ? numbers : [firstSeed, -1];
  return { hasBegun, seed, step, rest: text.slice(kEntryBytes) };
}

/**
 * Runs programs in one child process.
 * @param {Object} options
 * @param {string} options.program file
 * @param {string} options.host
 * @param {Object} options.env
 * @param {number} options.seed of the first program
 * @param {number} options.programs
 * @param {number} options.steps of each
 * @param {number[]} [options.only] steps that run
 * @param {string} options.folder for the journal
 * @param {number} [options.hangSeconds]
 * @param {number} [options.startSeconds]
 * @returns {Promise<{failure: ?Failure, tally: Object}>}
 */
function runPrograms(options) {
  const { program, host, env, seed, programs, steps, only, folder } = options;
  const journal = path.join(folder, 'journal');
  fs.writeFileSync(journal, '');
  const args = ['--expose-gc', runner, program, seed, programs, steps, journal];
  if (only !== undefined) {
    args.push(only.join());
  }
  const child = spawn(host, args.map(String), { env, stdio: ['ignore', 'ignore', 'pipe'] });
  let stderr = '';
  child.stderr.on('data', (data) => {
    stderr = (stderr + data).slice(-20000);
  });
  let isHanging = false;
  let last = '';
  let looks = 0;
  const watch = setInterval(() => {
    const { hasBegun, seed: at, step } = readJournal(journal, seed);
    const { hangSeconds = kHangSeconds, startSeconds = kStartSeconds } = options;
    const limit = hasBegun ? hangSeconds : startSeconds;
    ++looks;
    if (`${at} ${step}` !== last) {
      last = `${at} ${step}`;
      looks = 0;
    } else if (looks * kLookMilliseconds > 1000 * limit) {
      isHanging = true;
      child.kill('SIGKILL');
    }
  }, kLookMilliseconds);
  return new Promise((resolve, reject) => {
    child.on('error', reject);
    child.on('close', (status, signal) => {
      clearInterval(watch);
      const { seed: at, step, rest } = readJournal(journal, seed);
      if (status === 0) {
        resolve({ failure: null, tally: JSON.parse(rest) });
        return;
      }
      const isFailure = status === kFailed;
      const ended = signal === null ? `status ${status}` : signal;
      const kind = isFailure ? 'failure' : isHanging ? 'hang' : `ended by ${ended}`;
      resolve({ failure: { seed: at, step, kind, text: isFailure ? rest : stderr }, tally: {} });
    });
  });
}

/** What makes two failures the same one: the kind and the first line, without its numbers. */
function signatureOf({ kind, text }) {
  const line = kind === 'failure' ? text.split('\n')[0] : '';
  return `${kind} ${line.replace(/-?\d+(\.\d+)?(e[+-]?\d+)?/g, '#')}`;
}

/**
 * A short list of steps that still fails: removes ever smaller parts of the list as long as it fails.
 * @param {number[]} steps
 * @param {function(number[]): Promise<boolean>} fails
 * @param {function(): boolean} isLate whether to stop
 * @returns {Promise<number[]>}
 */
async function shrink(steps, fails, isLate) {
  let best = steps;
  for (let size = Math.ceil(best.length / 2); size >= 1 && !isLate(); ) {
    let hasShrunk = false;
    for (let at = 0; at < best.length && best.length > 1 && !isLate(); ) {
      const rest = [...best.slice(0, at), ...best.slice(at + size)];
      if (rest.length > 0 && (await fails(rest))) {
        best = rest;
        hasShrunk = true;
      } else {
        at += size;
      }
    }
    if (size === 1 && !hasShrunk) {
      break;
    }
    size = size === 1 ? 1 : Math.ceil(size / 2);
  }
  return best;
}

/**
 * Shrinks a failure.
 * @param {Object} options of runPrograms
 * @param {Failure} failure
 * @returns {Promise<{only: number[], failure: Failure, isRepeatable: boolean}>} not repeatable if the programs before it
 *   in the same process matter
 */
async function shrinkFailure(options, failure) {
  const wanted = signatureOf(failure);
  const until = Date.now() + 1000 * kShrinkSeconds;
  let attempts = 0;
  let found = failure;
  const last = Math.min(failure.step, options.steps - 1);
  const all = options.only || Array.from({ length: last + 1 }, (_, i) => i);
  const fails = async (only) => {
    ++attempts;
    const one = Object.assign({}, options, { seed: failure.seed, programs: 1, only });
    const result = await runPrograms(one);
    if (result.failure !== null && signatureOf(result.failure) === wanted) {
      found = result.failure;
      return true;
    }
    return false;
  };
  // Programs before this one may matter: then nothing can be left out.
  if (all.length === 0 || !(await fails(all))) {
    return { only: all, failure, isRepeatable: false };
  }
  const isLate = () => attempts >= kMostAttempts || Date.now() > until;
  return { only: await shrink(all, fails, isLate), failure: found, isRepeatable: true };
}

/**
 * Runs programs until the time is over and there were enough, or one fails.
 * @param {Object} options of runPrograms, without `folder`
 * @param {number} seconds
 * @param {number} [rounds] processes at least
 * @returns {Promise<Object>} programs, steps and tally of those that passed; failure, or null, only, isRepeatable, and
 *   firstSeed of the process
 */
async function fuzz(options, seconds, rounds = 1) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-fuzz-'));
  const until = Date.now() + 1000 * seconds;
  const result = { programs: 0, steps: 0, tally: {}, failure: null, only: null };
  try {
    let { seed } = options;
    for (let round = 0; round < rounds || Date.now() < until; ++round) {
      const programs = Object.assign({}, options, { seed, folder });
      const { failure, tally } = await runPrograms(programs);
      if (failure !== null) {
        const shrunk = await shrinkFailure(programs, failure);
        return Object.assign(result, { firstSeed: seed }, shrunk);
      }
      Object.keys(tally).forEach((name) => {
        result.tally[name] = (result.tally[name] || 0) + tally[name];
      });
      result.programs += options.programs;
      result.steps += options.programs * options.steps;
      seed += options.programs;
    }
    return result;
  } finally {
    removeFolder(folder);
  }
}

module.exports = { fuzz, runPrograms, shrink, signatureOf };
