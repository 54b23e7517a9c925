'use strict';
// The checks of binaries: library versions in symbol tables and documents, and hardening flags in files.
const assert = require('assert');
const {
  compareVersions,
  findWrongVersions,
  missingHardening,
  newestVersions,
} = require('../../../scripts/lib/binaries');

const table = `
node.abi72.node:     file format elf64-x86-64
0000000000000000      DF *UND*	0000000000000000 (GLIBC_2.2.5) free
0000000000000000      DF *UND*	0000000000000000 (GLIBC_2.34) pthread_create
0000000000000000      DF *UND*	0000000000000000  GLIBC_2.4   __stack_chk_fail
0000000000000000      DF *UND*	0000000000000000 (GLIBCXX_3.4.9) _ZSt9a
0000000000000000      DF *UND*	0000000000000000 (GLIBCXX_3.4.29) _ZSt9b
0000000000000000      DF *UND*	0000000000000000 (GLIBCXX_3.4) _ZSt9c
0000000000000000      DF *UND*	0000000000000000 (GCC_9.0) _Unwind_Resume
0000000000000000      DO *UND*	0000000000000000 (CXXABI_1.3) _ZTI
0000000000003f10 g    DF .text	0000000000000012 (GLIBC_9.9) own
`;

describe('library versions that a module needs', () => {
  it('are compared numerically, component by component', () => {
    assert.strictEqual(compareVersions('2.4', '2.34'), -1);
    assert.strictEqual(compareVersions('3.4.29', '3.4.9'), 1);
    assert.strictEqual(compareVersions('3.4', '3.4.0'), 0);
    assert.strictEqual(compareVersions('3', '2.99'), 1);
  });

  it('are the newest of its imports', () => {
    const expected = { GLIBC: '2.34', GLIBCXX: '3.4.29', CXXABI: '1.3' };
    assert.deepStrictEqual(newestVersions(table), expected);
  });

  it('are compared with all that documents state', () => {
    const needed = newestVersions(table);
    const wanted = { a: ['GLIBC'], b: ['GLIBC', 'GLIBCXX'] };
    const good = { a: 'glibc 2.34 or later', b: 'glibc 2.34; GLIBCXX_3.4.29 (CXXABI_1.2)' };
    assert.deepStrictEqual(findWrongVersions(needed, good, wanted), []);
    const bad = { a: 'glibc 2.34, and glibc 2.32', b: 'glibc 2.36' };
    assert.deepStrictEqual(findWrongVersions(needed, bad, wanted), [
      'a states GLIBC 2.32; the module needs 2.34: correct it, and the systems listed with it.',
      'b states GLIBC 2.36; the module needs 2.34: correct it, and the systems listed with it.',
      'b states no GLIBCXX; the module needs 3.4.29: add it.',
    ]);
  });
});

describe('hardening', () => {
  const parts = [
    '  GNU_RELRO      0x05cb70 0x000000000005db70 0x000000000005db70 0x001490 0x001490 R   0x1',
    ' 0x000000000000001e (FLAGS)              BIND_NOW',
    ' 0x000000006ffffffb (FLAGS_1)            Flags: NOW NODELETE',
    '     9: 0000000000000000     0 FUNC    GLOBAL DEFAULT  UND __stack_chk_fail@GLIBC_2.4 (5)',
    '    10: 0000000000000000     0 FUNC    GLOBAL DEFAULT  UND __vfprintf_chk@GLIBC_2.3.4 (6)',
  ];

  it('is found in the output of readelf, each missing part by name', () => {
    assert.deepStrictEqual(missingHardening(parts.join('\n')), []);
    const without = (sign) => missingHardening(parts.filter((line) => !sign.test(line)).join('\n'));
    const names = [/RELRO/, /NOW/, /stack/, /printf/].map(without);
    assert(names.every((missing) => missing.length === 1));
    assert.strictEqual(new Set(names.map(([name]) => name)).size, 4);
    assert.strictEqual(missingHardening('').length, 4);
  });
});
