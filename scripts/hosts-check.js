'use strict';
// npm run hosts-check: all script suites on all hosts, or on those that are named (`npm run hosts-check -- 24 26`).
// Arguments that begin with a dash, and what follows the first of them, go to ctest.
const { setup } = require('./setup');
const { build, everything, targetOf, test } = require('./lib/build');
const { names, requireHosts } = require('./lib/hosts');
const { fail } = require('./lib/run');

/**
 * Builds for hosts and runs the suites on each.
 * @param {string[]} hosts
 * @param {string[]} [args] further arguments of ctest
 * @returns {string[]} the hosts on which a suite failed
 */
function checkHosts(hosts, args = []) {
  const options = Object.assign({ NQ_BUILD_TESTS: 'ON' }, everything);
  const addons = ['nq_logic', 'nq_logic_matrixflow', 'nq_test_addon'];
  const targets = [].concat(...hosts.map((name) => addons.map((addon) => targetOf(addon, name))));
  build('release', options, targets, hosts);
  return hosts.filter((name) => !test('release', ['-R', '^(script|abi[0-9]+)[.]', ...args], name));
}

module.exports = { checkHosts };

if (require.main === module) {
  const given = process.argv.slice(2);
  const at = given.findIndex((one) => one.startsWith('-'));
  const named = at === -1 ? given : given.slice(0, at);
  requireHosts(named);
  setup('build', 'test');
  const failed = checkHosts(named.length > 0 ? named : names, at === -1 ? [] : given.slice(at));
  if (failed.length > 0) {
    fail(`suites failed on Node ${failed.join(', ')}.`);
  }
}
