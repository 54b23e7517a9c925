'use strict';
// System requirements of a built module, its hardening, and reproducible builds.
const fs = require('fs');
const os = require('os');
const path = require('path');
const { fail, jobs, output, removeFolder, root, status } = require('./run');

/** Symbol version families; docs/building.md states the newest version of each that a module needs. */
const families = ['GLIBC', 'GLIBCXX', 'CXXABI'];

/** Compares versions such as 2.4 and 2.34: -1, 0 or 1. */
function compareVersions(a, b) {
  const [left, right] = [a, b].map((version) => version.split('.').map(Number));
  for (let i = 0; i < Math.max(left.length, right.length); ++i) {
    const difference = (left[i] || 0) - (right[i] || 0);
    if (difference !== 0) {
      return Math.sign(difference);
    }
  }
  return 0;
}

/**
 * The newest version of each family in a table of symbols.
 * @param {string} table output of `objdump -T`
 * @returns {Object<string, string>} by family, without those that do not occur
 */
function newestVersions(table) {
  const newest = {};
  for (const line of table.split('\n').filter((one) => one.includes('*UND*'))) {
    const [, family, version] = /\b([A-Z]+)_(\d+(?:\.\d+)*)\b/.exec(line) || [];
    if (
      families.includes(family) &&
      (newest[family] === undefined || compareVersions(version, newest[family]) > 0)
    ) {
      newest[family] = version;
    }
  }
  return newest;
}

/**
 * Versions that a document states, as 'glibc 2.34' or 'GLIBCXX_3.4.29'.
 * @param {string} text
 * @returns {Object<string, string[]>} all versions by family
 */
function statedVersions(text) {
  const stated = {};
  for (const [, name, version] of text.matchAll(/\b(glibc |GLIBCXX_|CXXABI_)(\d+(?:\.\d+)+)/g)) {
    const family = name === 'glibc ' ? 'GLIBC' : name.slice(0, -1);
    stated[family] = [...(stated[family] || []), version];
  }
  return stated;
}

/**
 * Wrong or missing statements of documents on the versions that a module needs, a line each.
 * @param {Object<string, string>} needed by family
 * @param {Object<string, string>} documents texts by file name
 * @param {Object<string, string[]>} wanted families that each must state
 * @returns {string[]}
 */
function findWrongVersions(needed, documents, wanted) {
  const wrong = [];
  for (const file of Object.keys(wanted)) {
    const stated = statedVersions(documents[file]);
    for (const family of wanted[file]) {
      const versions = stated[family] || [];
      if (versions.length === 0) {
        wrong.push(`${file} states no ${family}; the module needs ${needed[family]}: add it.`);
      }
      for (const version of versions.filter((one) => one !== needed[family])) {
        wrong.push(
          `${file} states ${family} ${version}; the module needs ${needed[family]}:` +
            ' correct it, and the systems listed with it.'
        );
      }
    }
  }
  return wrong;
}

/**
 * The newest versions that any of these modules needs, or null if one can't be read.
 * @param {string[]} modules files
 * @returns {?Object<string, string>}
 */
function neededVersions(modules) {
  const tables = modules.map((module) => output('objdump', ['-T', module]));
  return tables.includes(null) ? null : newestVersions(tables.join('\n'));
}

const hardeningSigns = {
  'read-only address tables (-z relro)': /^\s*GNU_RELRO\s/m,
  'binding of all symbols on loading (-z now)': /\(BIND_NOW\)|\(FLAGS_1\).*\bNOW\b/,
  'stack protectors (-fstack-protector-strong)': /\s__stack_chk_fail\b/,
  'bounds-checked C library calls (_FORTIFY_SOURCE)': /\s__\w*printf_chk\b/,
};

/**
 * Hardening of release builds that a module lacks.
 * @param {string} parts output of `readelf -W --program-headers --dynamic --dyn-syms`
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

/** Copies the files under version control, with uncommitted changes, into a new folder. */
function copyTree(folder) {
  const list = output('git', ['ls-files', '-z']);
  if (list === null) {
    fail('copying the tree needs git and a clone: run this check in a clone.');
  }
  for (const name of list.split('\0').filter((one) => one !== '')) {
    const from = path.join(root, name);
    // Skip files whose deletion is not yet committed.
    if (fs.existsSync(from)) {
      fs.mkdirSync(path.dirname(path.join(folder, name)), { recursive: true });
      fs.copyFileSync(from, path.join(folder, name));
    }
  }
}

/** The second build must compile everything: a cache would return the output of the first one. */
const noCache = { CCACHE_DISABLE: '1', CMAKE_CXX_COMPILER_LAUNCHER: '' };

/** Bytes of a module, with its symbols and stripped. */
function formsOf(module, folder) {
  const stripped = path.join(folder, 'stripped.node');
  if (output('strip', ['--strip-unneeded', '-o', stripped, module]) === null) {
    throw new Error(`strip failed on ${module}: install binutils.`);
  }
  return { 'nq_logic.node': fs.readFileSync(module), stripped: fs.readFileSync(stripped) };
}

/**
 * Builds the module of this tree in a second folder, whose path has another length, and compares the two, with
 * symbols and stripped.
 * @param {string} module the up-to-date release build of this folder
 * @param {string} nodeDir folder of the host
 * @returns {string[]} differences, a line each
 */
function findBuildDifferences(module, nodeDir) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-reproducible-'));
  try {
    const tree = path.join(folder, 'a-longer', 'path to', 'another');
    copyTree(tree);
    const build = path.join(tree, 'build', 'Release');
    const steps = [
      ['-S', tree, '--preset', 'release', `-DNQ_NODE_DIR=${nodeDir}`],
      ['--build', build, '--target', 'nq_logic', '--parallel', jobs],
    ];
    if (!steps.every((args) => status('cmake', args, noCache) === 0)) {
      throw new Error(`the build in ${tree} failed.`);
    }
    const first = formsOf(module, folder);
    const second = formsOf(path.join(build, 'nq_logic.node'), build);
    return Object.keys(first)
      .filter((name) => !first[name].equals(second[name]))
      .map((name) => {
        const bytes = first[name];
        const at = bytes.findIndex((byte, i) => byte !== second[name][i]);
        const sizes = `${bytes.length} and ${second[name].length} bytes`;
        return `${name} differs between two folders, first at byte ${at}; ${sizes}.`;
      });
  } finally {
    removeFolder(folder);
  }
}

module.exports = {
  compareVersions,
  findBuildDifferences,
  findMissingHardening,
  findWrongVersions,
  missingHardening,
  neededVersions,
  newestVersions,
};
