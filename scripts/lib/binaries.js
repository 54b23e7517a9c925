'use strict';
// What a built module has of the hardening of release builds.
const { output } = require('./run');

const hardeningSigns = {
  'read-only tables of addresses (-z relro)': /^\s*GNU_RELRO\s/m,
  'binding of all symbols at loading (-z now)': /\(BIND_NOW\)|\(FLAGS_1\).*\bNOW\b/,
  'stack protectors (-fstack-protector-strong)': /\s__stack_chk_fail\b/,
  'checked calls of the C library (_FORTIFY_SOURCE)': /\s__\w*printf_chk\b/,
};

/**
 * What a module lacks of the hardening of release builds.
 * @param {string} parts as `readelf -W --program-headers --dynamic --dyn-syms` prints them
 * @returns {string[]}
 */
function missingHardening(parts) {
  return Object.keys(hardeningSigns).filter((sign) => !hardeningSigns[sign].test(parts));
}

/**
 * The same of a file, or null if it can't be read.
 * @param {string} module file
 * @returns {?string[]}
 */
function findMissingHardening(module) {
  const parts = output('readelf', ['-W', '--program-headers', '--dynamic', '--dyn-syms', module]);
  return parts === null ? null : missingHardening(parts);
}

module.exports = { findMissingHardening, missingHardening };
