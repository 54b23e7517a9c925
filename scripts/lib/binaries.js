'use strict';
// Inspects built modules: required library versions, hardening, and reproducibility of builds.
const fs = require('fs');
const os = require('os');
const path = require('path');
const { fail, jobs, output, removeFolder, root, status } = require('./run');

/** Families of symbol versions; docs/building.md names the newest one of each that the module needs. */
const families = ['GLIBC', 'GLIBCXX', 'CXXABI'];

/** -1, 0 or 1: the order of two versions, as in 2.4 and 2.34. */
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
 * The versions that a document states: 'glibc 2.34', 'GLIBCXX_3.4.29'.
 * @param {string} text
 * @returns {Object<string, string[]>} all numbers by family
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
 * Wrong or missing statements of documents about the versions that a module needs, one line each.
 * @param {Object<string, string>} needed by family
 * @param {Object<string, string>} documents texts by their names
 * @param {Object<string, string[]>} wanted families that each document must name
 * @returns {string[]}
 */
function findWrongVersions(needed, documents, wanted) {
  const wrong = [];
  for (const file of Object.keys(wanted)) {
    const stated = statedVersions(documents[file]);
    for (const family of wanted[file]) {
      const versions = stated[family] || [];
      if (versions.length === 0) {
        wrong.push(`${file} names no ${family}; the module needs ${needed[family]}: add it.`);
      }
      for (const version of versions.filter((one) => one !== needed[family])) {
        wrong.push(
          `${file} names ${family} ${version}; the module needs ${needed[family]}:` +
            ' correct it, and the systems beside it.'
        );
      }
    }
  }
  return wrong;
}

/**
 * The newest versions that any of the modules needs, or null if one can't be read.
 * @param {string[]} modules files
 * @returns {?Object<string, string>}
 */
function neededVersions(modules) {
  const tables = modules.map((module) => output('objdump', ['-T', module]));
  return tables.includes(null) ? null : newestVersions(tables.join('\n'));
}

const hardeningSigns = {
  'read-only tables of addresses (-z relro)': /^\s*GNU_RELRO\s/m,
  'binding of all symbols at loading (-z now)': /\(BIND_NOW\)|\(FLAGS_1\).*\bNOW\b/,
  'stack protectors (-fstack-protector-strong)': /\s__stack_chk_fail\b/,
  'checked calls of the C library (_FORTIFY_SOURCE)': /\s__\w*printf_chk\b/,
};

/**
 * The hardening features of release builds that a module lacks.
 * @param {string} parts output of `readelf -W --program-headers --dynamic --dyn-syms`
 * @returns {string[]}
 */
function missingHardening(parts) {
  return Object.keys(hardeningSigns).filter((sign) => !hardeningSigns[sign].test(parts));
}

/**
 * The same for a file, or null if it can't be read.
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
    fail('copying the tree requires git and a clone: run this check in one.');
  }
  for (const name of list.split('\0').filter((one) => one !== '')) {
    const from = path.join(root, name);
    // Skips files that are deleted but not yet committed.
    if (fs.existsSync(from)) {
      fs.mkdirSync(path.dirname(path.join(folder, name)), { recursive: true });
      fs.copyFileSync(from, path.join(folder, name));
    }
  }
}

/** The second build compiles without a cache, which would return the objects of the first. */
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
 * Builds the module of this tree in a second folder, with another name and length, and compares the two modules, with
 * symbols and stripped.
 * @param {string} module the release build of this folder, up to date
 * @param {string} nodeDir folder of the host
 * @returns {string[]} the differences, one line each
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
        return `${name} built in two folders differs, first at byte ${at}; ${sizes}.`;
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
