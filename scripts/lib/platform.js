'use strict';
// Rules for platform dependencies: compiler, operating system, CPU. Platform.h detects features; a few headers wrap them,
// one per feature; all other native code below the binding uses standard C++ and those headers.
const fs = require('fs');
const path = require('path');
const { root } = require('./run');
const { nativeSourcesBelow } = require('./sources');

const decisions = 'Common/Def/Platform.h';

/** Headers that wrap platform-specific features, by the decisions in Platform.h. */
const homes = {
  'Common/Def/AlignedAlloc.h': 'aligned memory',
  'Common/Def/CpuAffinity.h': 'affinity',
  'Common/Def/Mutex.h': 'futex, kinds of mutexes',
  'Common/Def/Thread.h': 'threads',
  'Common/Def/Vectors.h': 'vector instructions',
};

// Reserved names of the compiler begin with two underscores, or one and a capital. Vector types and standard macros are
// allowed.
const reserved = /(?<!\w)(?!__m\d|_MM_|_CMP_)(?!__(VA_ARGS|FILE|LINE)__)(__\w+|_[A-Z]\w+)/;

const systemCall =
  /(?<!\w)(posix_\w+|pthread_\w+|PTHREAD_\w+|sched_\w+|syscall|SYS_\w+|FUTEX_\w+|CPU_[A-Z]+|mmap|madvise)(?!\w)/;

/** The text without comments and the contents of literals, with the same line numbers. */
function codeOnly(text) {
  return text.replace(
    /\/\*[^]*?\*\/|\/\/[^\n]*|"(?:[^"\\\n]|\\.)*"|(?<!\w)'(?:[^'\\\n]|\\.)+'/g,
    (match) => (match.startsWith('/') ? match.replace(/[^\n]+/g, '') : '""')
  );
}

/**
 * Violations in one file.
 * @param {string} file path from the root
 * @param {string} text its content
 * @returns {string[]} one line each
 */
function platformViolationsIn(file, text) {
  if (file === decisions) {
    return [];
  }
  const isHome = file in homes;
  const others = `only ${Object.keys(homes).join(', ')} may`;
  const guard = `NQ_${file.replace(/[/.]/g, '_').toUpperCase()}_`;
  const violations = [];
  codeOnly(text)
    .split('\n')
    .forEach((line, index) => {
      const report = (what) => violations.push(`${file}:${index + 1}: ${what}`);
      const conditional = /^\s*#\s*(if|ifdef|ifndef|elif|pragma|error)\b/.exec(line);
      const name = reserved.exec(line);
      const call = systemCall.exec(line);
      const include = /^\s*#\s*include\s*<([^>]*[./][^>]*)>/.exec(line);
      if (name) {
        report(`${name[0]} is the compiler's: name what it stands for in ${decisions}`);
      }
      if (conditional && !isHome && !(conditional[1] === 'ifndef' && line.endsWith(` ${guard}`))) {
        report(`#${conditional[1]} by the platform: ${others}, by what ${decisions} says`);
      }
      if (include && !isHome) {
        report(`<${include[1]}> is no header of standard C++: ${others} include such`);
      }
      if (call && !isHome) {
        report(`${call[0]} is the operating system's: ${others} call it`);
      }
    });
  return violations;
}

/**
 * Violations in the core, which must build on any platform.
 * @returns {string[]} one line each
 */
function findPlatformViolations() {
  const files = [...nativeSourcesBelow('Common'), ...nativeSourcesBelow('Engine')];
  return [].concat(
    ...files.map((file) =>
      platformViolationsIn(file, fs.readFileSync(path.join(root, file), 'utf8'))
    )
  );
}

module.exports = { findPlatformViolations, platformViolationsIn };
