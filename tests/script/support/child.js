'use strict';
// Runs code that ends a process in a child process, and checks how it ended.
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { spawn, spawnSync } = require('child_process');
const { buildKind, differences, emulated } = require('./host');

const timeout = emulated ? 1200000 : 120000;

/** Message of an emulator when a signal ends the process. */
const emulatorLines = /^qemu: uncaught target signal .*\n/m;

/**
 * Runs a script of tests/script/process with the host, its output through pipes.
 * @param {string} script file name
 * @param {string[]} args
 * @return {{status: ?number, signal: ?string, stdout: string, stderr: string}}
 */
function runScript(script, ...args) {
  return runScriptWithFlags([], script, ...args);
}

/**
 * Like `runScript`, with options of the host.
 * @param {string[]} flags
 * @param {string} script file name
 * @param {string[]} args
 */
function runScriptWithFlags(flags, script, ...args) {
  const file = path.join(__dirname, '..', 'process', script);
  const result = spawnSync(process.execPath, ['--expose-gc', ...flags, file, ...args], {
    encoding: 'utf8',
    timeout,
    killSignal: 'SIGKILL',
  });
  assert.strictEqual(result.error, undefined, `${script} ${args}: ${result.error}`);
  if (emulated) {
    result.stderr = result.stderr.replace(emulatorLines, '');
  }
  return result;
}

/**
 * Like `runScript`, in a process that can't allocate more than about a gigabyte at once.
 * @param {string} script file name
 * @param {string[]} args
 */
function runScriptWithLittleMemory(script, ...args) {
  const file = path.join(__dirname, '..', 'process', script);
  const options = { encoding: 'utf8', timeout, killSignal: 'SIGKILL' };
  const node = [process.execPath, '--expose-gc', file, ...args];
  if (buildKind === 'plain') {
    // In kilobytes of address space. The shell is replaced by the process.
    return spawnSync('sh', ['-c', 'ulimit -v 1500000 && exec "$@"', 'sh', ...node], options);
  }
  // A sanitizer needs the whole address space, and has its own limit, for a single block.
  const variable = buildKind === 'address' ? 'ASAN_OPTIONS' : 'TSAN_OPTIONS';
  const limits = 'allocator_may_return_null=1:max_allocation_size_mb=1000';
  const given = process.env[variable] || '';
  const env = Object.assign({}, process.env, { [variable]: `${given}:${limits}` });
  return spawnSync(node[0], node.slice(1), Object.assign(options, { env }));
}

/**
 * Runs a script like `runScript`, and ends its process half a second after it has written something.
 * @param {string} script file name
 * @param {string[]} args
 * @return {Promise<{status: ?number, signal: ?string, stdout: string}>} signal SIGKILL if it was still running
 */
function runScriptForAMoment(script, ...args) {
  const file = path.join(__dirname, '..', 'process', script);
  return new Promise((resolve, reject) => {
    const child = spawn(process.execPath, ['--expose-gc', file, ...args]);
    let stdout = '';
    child.stdout.on('data', (data) => {
      if (stdout === '') {
        setTimeout(() => child.kill('SIGKILL'), 500);
      }
      stdout += data;
    });
    child.on('error', reject);
    child.on('close', (status, signal) => resolve({ status, signal, stdout }));
  });
}

function describe(result) {
  return `status ${result.status}, signal ${result.signal}\n${result.stdout}\n${result.stderr}`;
}

/** The process exited normally, without messages. */
function assertCleanExit(result) {
  assert.strictEqual(result.status, 0, describe(result));
  assert.strictEqual(result.signal, null);
  assert.strictEqual(result.stderr, '');
}

/** The process accessed unmapped memory. */
function assertFault(result) {
  if (buildKind === 'address') {
    // The sanitizer reports, and exits with its own status.
    assert.notStrictEqual(result.status, 0, describe(result));
    assert(
      /AddressSanitizer: SEGV|runtime error: .*null pointer/.test(result.stderr),
      describe(result)
    );
  } else {
    assert.strictEqual(result.signal, 'SIGSEGV', describe(result));
    assert.strictEqual(result.stderr, '');
  }
  // Each script prints this before its last step, so that an earlier fault is not mistaken for it.
  assert(result.stdout.endsWith('about to end\n'), describe(result));
}

/** V8 ended the process, with a message. */
function assertHostFatal(result, text) {
  assert.strictEqual(result.signal, 'SIGABRT', describe(result));
  assert(result.stderr.includes(`FATAL ERROR: ${differences.fatalText(text)}`), describe(result));
  assert(result.stdout.endsWith('about to end\n'), describe(result));
}

/** A line of a source, named without its extension, by number; '' if there is none. */
function sourceLine(file, number) {
  const name = path.join(__dirname, '..', '..', '..', file);
  const source = ['.cpp', '.h'].map((end) => name + end).find((one) => fs.existsSync(one));
  assert(source, `there is no ${file}.cpp or .h`);
  return fs.readFileSync(source, 'utf8').split('\n')[number - 1] || '';
}

/**
 * An assertion of the module failed with exactly this text, and stderr has nothing else. Its file and line lead to
 * it, unless the file has backslashes: then both are fixed texts.
 */
function assertFailedAssertion(result, expression, file) {
  assert.strictEqual(result.signal, 'SIGABRT', describe(result));
  const match = /^Assertion failed: (.*), file (.*), line (\d+)\n$/.exec(result.stderr);
  assert(match, describe(result));
  assert.strictEqual(match[1], expression);
  assert.strictEqual(match[2], file);
  assert(Number(match[3]) > 0);
  if (!file.includes('\\')) {
    const line = sourceLine(file, Number(match[3]));
    assert(/\b(FailAssertion|\w+_ASSERT)\(/.test(line), `${match[0]}that line is: ${line}`);
    assert(line.includes(expression), `${match[0]}that line is: ${line}`);
  }
}

module.exports = {
  runScript,
  runScriptWithFlags,
  runScriptWithLittleMemory,
  runScriptForAMoment,
  assertCleanExit,
  assertFault,
  assertHostFatal,
  assertFailedAssertion,
};
