'use strict';
// What the checks of binaries read: the signs of hardening in files.
const assert = require('assert');
const { missingHardening } = require('../../scripts/lib/binaries');

describe('hardening', () => {
  const parts = [
    '  GNU_RELRO      0x05cb70 0x000000000005db70 0x000000000005db70 0x001490 0x001490 R   0x1',
    ' 0x000000000000001e (FLAGS)              BIND_NOW',
    ' 0x000000006ffffffb (FLAGS_1)            Flags: NOW NODELETE',
    '     9: 0000000000000000     0 FUNC    GLOBAL DEFAULT  UND __stack_chk_fail@GLIBC_2.4 (5)',
    '    10: 0000000000000000     0 FUNC    GLOBAL DEFAULT  UND __vfprintf_chk@GLIBC_2.3.4 (6)',
  ];

  it('is seen in the parts of a file, and missed where one is not there', () => {
    assert.deepStrictEqual(missingHardening(parts.join('\n')), []);
    const without = (sign) => missingHardening(parts.filter((line) => !sign.test(line)).join('\n'));
    const names = [/RELRO/, /NOW/, /stack/, /printf/].map(without);
    assert(names.every((missing) => missing.length === 1));
    assert.strictEqual(new Set(names.map(([name]) => name)).size, 4);
    assert.strictEqual(missingHardening('').length, 4);
  });
});
