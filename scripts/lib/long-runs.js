'use strict';
// What the commands share that run programs of tests/script/process for minutes.
const path = require('path');
const { build, builtFile, everything, targetOf } = require('./build');
const { chooseHost, takeHostOption, takeOption } = require('./hosts');
const { fail, root, status } = require('./run');

/**
 * Takes `--host NAME` and an option with a whole number.
 * @param {string[]} given arguments of the command
 * @param {string} option such as --seconds
 * @param {number} standard
 * @returns {{named: ?string, value: number}}
 */
function takeOptions(given, option, standard) {
  const { rest: others, named } = takeHostOption(given);
  const { rest, value } = takeOption(others, option);
  if (rest.length > 0) {
    fail(`unknown option ${rest[0]}; known: ${option} N, --host NAME.`, 2);
  }
  if (value !== null && !/^[1-9]\d{0,8}$/.test(value)) {
    fail(`${option} is '${value}': give a whole number from 1.`, 2);
  }
  return { named, value: value === null ? standard : Number(value) };
}

/**
 * Builds both modules for a host.
 * @param {?string} named
 * @returns {(file: string, ...args: string[]) => boolean} runs a program on it, and returns whether it passed
 */
function prepare(named) {
  const { name, program } = chooseHost(named);
  const addons = ['nq_logic', 'nq_logic_matrixflow'];
  const targets = addons.map((addon) => targetOf(addon, name));
  build('release', everything, targets, [name]);
  const environment = {
    NQ_MODULE: builtFile('nq_logic.node', name),
    NQ_MATRIXFLOW_MODULE: builtFile('nq_logic_matrixflow.node', name),
  };
  return (file, ...args) => runProgram(program, environment, file, args);
}

/** Runs a program of tests/script/process, and returns whether it passed. */
function runProgram(program, environment, file, args) {
  console.log(`== ${file} ${args.join(' ')}`);
  const script = path.join(root, 'tests', 'script', 'process', file);
  const flags = ['--expose-gc', '--max-semi-space-size=2'];
  return status(program, [...flags, script, ...args], environment) === 0;
}

module.exports = { prepare, runProgram, takeOptions };
