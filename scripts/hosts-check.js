'use strict';
// npm run hosts-check: all script suites on all hosts, and on Node 24 also under the address and undefined behaviour
// sanitizers. With names (`npm run hosts-check -- 24 26`) only on these hosts, without sanitizers; with --asan only
// under sanitizers. Other arguments go to ctest, from the first one that begins with a dash.
const { setup } = require('./setup');
const { build, everything, targetOf, test } = require('./lib/build');
const { names, requireHosts } = require('./lib/hosts');
const { fail } = require('./lib/run');

/** Hosts on which suites run under sanitizers, besides the reference, which `npm test` covers. */
const sanitized = ['24'];

/**
 * Builds for hosts and runs the suites on each.
 * @param {string[]} hosts
 * @param {string[]} [args] further arguments of ctest
 * @param {string} [preset]
 * @returns {string[]} the hosts on which a suite failed
 */
function checkHosts(hosts, args = [], preset = 'release') {
  const options = Object.assign({ NQ_BUILD_TESTS: 'ON' }, everything);
  const addons = ['nq_logic', 'nq_logic_matrixflow', 'nq_test_addon'];
  const targets = [].concat(...hosts.map((name) => addons.map((addon) => targetOf(addon, name))));
  build(preset, options, targets, hosts);
  return hosts.filter((name) => !test(preset, ['-R', '^(script|abi[0-9]+)[.]', ...args], name));
}

module.exports = { checkHosts };

if (require.main === module) {
  const given = process.argv.slice(2).filter((one) => one !== '--asan');
  const isAsan = process.argv.includes('--asan');
  const at = given.findIndex((one) => one.startsWith('-'));
  const named = at === -1 ? given : given.slice(0, at);
  requireHosts(named);
  setup('build', 'test');
  const args = at === -1 ? [] : given.slice(at);
  const all = isAsan ? sanitized : names;
  const failed = checkHosts(named.length > 0 ? named : all, args, isAsan ? 'asan' : 'release');
  if (named.length === 0 && !isAsan) {
    failed.push(...checkHosts(sanitized, args, 'asan').map((name) => `${name} under sanitizers`));
  }
  if (failed.length > 0) {
    fail(`suites failed on Node ${failed.join(', ')}.`);
  }
}
