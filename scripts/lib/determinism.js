'use strict';
// Runs the same random programs as variants: by single and batch calls, with short and long lists, in builds, on hosts and
// CPUs. All must print the same digests; programs that do not are shrunk to the fewest steps.
const fs = require('fs');
const path = require('path');
const { spawnSync } = require('child_process');
const { shrink } = require('./fuzz');
const { builtFile, folders, host, sanitizerEnvironment } = require('./build');
const { abis, arm64, hostBinary, reference } = require('./hosts');
const { environment, root, which } = require('./run');
const { wasmEnvironment, wasmHost } = require('./target');

const player = path.join(root, 'tests/determinism/play.js');

/** Shrinking ends after this time. */
const kShrinkSeconds = 60;

/**
 * A way to run programs.
 * @typedef {Object} Variant
 * @property {string} name
 * @property {string[]} command program and its first arguments
 * @property {Object} env variables that name the modules
 * @property {string} [calls] 'single' or 'batch'
 * @property {string} [lists] 'short' or 'long'
 */

/** Modules of a preset for a host, as variables; null if it is not built. */
function modulesOf(preset, name) {
  const [plain, withFlow] = ['nq_logic.node', 'nq_logic_matrixflow.node'].map((file) =>
    builtFile(file, name, preset)
  );
  if (fs.existsSync(withFlow)) {
    return { NQ_MODULE: withFlow, NQ_MATRIXFLOW_MODULE: withFlow };
  }
  return fs.existsSync(plain) ? { NQ_MODULE: plain, NQ_MATRIXFLOW_MODULE: '' } : null;
}

/** Variants of a preset on all hosts that it is built for and that are there. */
function variantsOfPreset(preset) {
  const isArm64 = preset === 'arm64';
  const emulator = isArm64 ? ['qemu-aarch64', '-L', '/usr/aarch64-linux-gnu'] : [];
  if (isArm64 && which('qemu-aarch64') === null) {
    return [];
  }
  const found = [];
  for (const name of Object.keys(abis)) {
    const env = modulesOf(preset, name);
    const binary = hostBinary(name, isArm64 ? arm64 : undefined);
    if (env !== null && fs.existsSync(binary)) {
      found.push({
        name: `${preset}, Node ${name}`,
        command: [...emulator, binary],
        env: Object.assign(env, sanitizerEnvironment(preset)),
      });
    }
  }
  return found;
}

/** WebAssembly, if it is built. */
function wasmVariants() {
  const env = wasmEnvironment();
  const binary = hostBinary(wasmHost);
  const isThere = fs.existsSync(env.NQ_WASM_MODULE) && fs.existsSync(binary);
  return isThere ? [{ name: `WebAssembly, Node ${wasmHost}`, command: [binary], env }] : [];
}

/**
 * Variants of what is built, the reference first.
 * @param {string[]} [presets] default: all
 * @returns {Variant[]}
 */
function findVariants(presets = Object.keys(folders)) {
  const env = modulesOf('release', reference);
  const own = [
    ['batch', 'short'],
    ['single', 'short'],
    ['batch', 'long'],
    ['single', 'long'],
  ].map(([calls, lists]) => ({
    name: `release, Node ${reference}, ${calls} calls, ${lists} lists`,
    command: [host],
    env,
    calls,
    lists,
  }));
  const native = presets.filter((preset) => preset !== 'wasm').map(variantsOfPreset);
  const others = [].concat(...native, presets.includes('wasm') ? wasmVariants() : []);
  return [...own, ...others.filter(({ name }) => name !== `release, Node ${reference}`)];
}

/**
 * Runs programs as a variant.
 * @param {Variant} variant
 * @param {{seed: number, programs: number, steps: number}} options
 * @param {number[]} [only]
 * @returns {string[]} a line a step
 */
function play(variant, { seed, programs, steps }, only) {
  const { command, env, calls = 'batch', lists = 'long' } = variant;
  const args = [player, seed, programs, steps, calls, lists, ...(only ? [only.join()] : [])];
  const result = spawnSync(command[0], [...command.slice(1), ...args.map(String)], {
    cwd: root,
    env: environment(env),
    encoding: 'utf8',
    maxBuffer: 1 << 28,
  });
  if (result.status !== 0) {
    const ended = result.error || result.signal || `status ${result.status}`;
    throw new Error(`${variant.name}, seed ${seed}: ended by ${ended}.\n${result.stderr}`);
  }
  return result.stderr.split('\n').filter((line) => /^\d+ \d+ [0-9a-f]+ [-0-9a-f]+$/.test(line));
}

/** The first line that differs, or null; the memory of command buffers counts where both variants have them. */
function firstDifference(expected, found) {
  for (let i = 0; i < Math.max(expected.length, found.length); ++i) {
    const [ours, theirs] = [expected[i], found[i]].map((line) => (line || '').split(' '));
    const isSame = [0, 1, 2].every((k) => ours[k] === theirs[k] && ours[k] !== undefined);
    const hasFlow = ours[3] !== '-' && theirs[3] !== '-';
    if (!isSame || (hasFlow && ours[3] !== theirs[3])) {
      return { seed: Number(ours[0] || theirs[0]), step: Number(ours[1] || theirs[1]) };
    }
  }
  return null;
}

/**
 * Compares a variant with the digests of another.
 * @param {Variant} base
 * @param {string[]} expected its digests
 * @param {Variant} variant
 * @param {{seed: number, programs: number, steps: number}} options
 * @returns {Promise<?{seed: number, step: number, only: number[]}>} null if it is the same
 */
async function compare(base, expected, variant, options) {
  const found = firstDifference(expected, play(variant, options));
  if (found === null) {
    return null;
  }
  const { seed, step } = found;
  const one = { seed, programs: 1, steps: options.steps };
  const differs = async (only) =>
    firstDifference(play(base, one, only), play(variant, one, only)) !== null;
  const until = Date.now() + 1000 * kShrinkSeconds;
  const all = Array.from({ length: step + 1 }, (_, i) => i);
  return { seed, step, only: await shrink(all, differs, () => Date.now() > until) };
}

module.exports = { compare, findVariants, firstDifference, play };
