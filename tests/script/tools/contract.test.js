'use strict';
// docs/contract.md: each line of its tables has an outcome of the list at its top, and names tests that exist.
const assert = require('assert');
const childProcess = require('child_process');
const fs = require('fs');
const path = require('path');

const root = path.resolve(__dirname, '../../..');
const scripts = path.join(root, 'tests/script');

/** Files below a folder whose names match a pattern. */
function filesBelow(folder, pattern) {
  return [].concat(
    ...fs.readdirSync(folder, { withFileTypes: true }).map((item) => {
      const file = path.join(folder, item.name);
      if (item.isDirectory()) {
        return filesBelow(file, pattern);
      }
      return pattern.test(item.name) ? [file] : [];
    })
  );
}

/** Names of native tests: SUITE.CASE. */
function nativeTests() {
  const names = new Set();
  for (const file of filesBelow(path.join(root, 'tests/native'), /\.cpp$/)) {
    const text = fs.readFileSync(file, 'utf8');
    for (const [, suite, name] of matches(text, /^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)/gm)) {
      names.add(`${suite}.${name}`);
    }
  }
  return names;
}

function matches(text, pattern) {
  const found = [];
  for (let match = pattern.exec(text); match !== null; match = pattern.exec(text)) {
    found.push(match);
  }
  return found;
}

/** Full titles of the tests of script suites, by path from tests/script. */
function scriptTests(names) {
  const files = names.map((name) => path.join(scripts, `${name}.test.js`));
  const result = childProcess.spawnSync(
    process.execPath,
    ['--expose-gc', path.join(scripts, 'support/titles.js'), ...files.filter(fs.existsSync)],
    { encoding: 'utf8', maxBuffer: 1 << 26 }
  );
  assert.strictEqual(result.status, 0, result.stderr);
  return JSON.parse(result.stdout);
}

/**
 * Lines of the tables under a heading of their own.
 * @returns {{input: string, outcome: string, tests: string[]}[]}
 */
function linesOf(text) {
  const lines = [];
  for (const section of text.split('\n## ').slice(1)) {
    const rows = section.split('\n').filter((line) => line.startsWith('|'));
    const cells = (row) =>
      row
        .split('|')
        .slice(1, -1)
        .map((cell) => cell.trim());
    assert.deepStrictEqual(cells(rows[0]), ['Input or state', 'Outcome', 'Test'], section);
    for (const row of rows.slice(2)) {
      const [input, outcome, tests, ...rest] = cells(row);
      assert.deepStrictEqual(rest, [], row);
      lines.push({ input, outcome, tests: matches(tests, /`([^`]+)`/g).map(([, name]) => name) });
    }
  }
  return lines;
}

/** Outcomes of the table before the first heading. */
function outcomesOf(text) {
  const rows = text.split('\n## ')[0].split('\n').slice(1);
  return rows.filter((row) => /^\| [a-z]+ \|/.test(row)).map((row) => row.split('|')[1].trim());
}

/** What is wrong with the lines of a contract. */
function mistakesOf(text, native, titlesOf) {
  const outcomes = outcomesOf(text);
  const lines = linesOf(text);
  const split = (name) => /^([\w/-]+): (.*)$/.exec(name);
  const suites = new Set();
  for (const { tests } of lines) {
    tests.map(split).forEach((parts) => parts && suites.add(parts[1]));
  }
  const titles = titlesOf([...suites]);
  const exists = (name) => {
    const parts = split(name);
    if (parts === null) {
      return native.has(name);
    }
    const known = titles[parts[1]] || [];
    return parts[2].endsWith('…')
      ? known.some((title) => title.startsWith(parts[2].slice(0, -1)))
      : known.includes(parts[2]);
  };
  const mistakes = [];
  for (const { input, outcome, tests } of lines) {
    if (!outcomes.includes(outcome.split(/[^a-z]/)[0])) {
      mistakes.push(`${input}: the outcome is none of ${outcomes.join(', ')}: ${outcome}`);
    }
    if (tests.length === 0) {
      mistakes.push(`${input}: names no test`);
    }
    tests
      .filter((name) => !exists(name))
      .forEach((name) => mistakes.push(`${input}: there is no test ${name}`));
  }
  return mistakes;
}

describe('docs/contract.md', () => {
  const text = fs.readFileSync(path.join(root, 'docs/contract.md'), 'utf8');

  it('has an outcome and existing tests in each line', () => {
    assert.ok(linesOf(text).length > 100);
    assert.deepStrictEqual(mistakesOf(text, nativeTests(), scriptTests), []);
  });

  it('has all outcomes', () => {
    const used = new Set(linesOf(text).map(({ outcome }) => outcome.split(/[^a-z]/)[0]));
    assert.deepStrictEqual([...used].sort(), outcomesOf(text).sort());
  });

  it('is checked by a test that finds missing tests and outcomes', () => {
    const head = '\n| Outcome | Meaning |\n|---|---|\n| promised | holds |\n\n## A\n\n';
    const table = `${head}| Input or state | Outcome | Test |\n|---|---|---|\n`;
    const find = (row) =>
      mistakesOf(`${table}${row}\n`, new Set(['ATest.Is']), (names) =>
        names.includes('lib/a') ? { 'lib/a': ['a is', 'b is 1', 'b is 2'] } : {}
      ).length;
    assert.strictEqual(find('| a | promised | `ATest.Is`, `lib/a: a is`, `lib/a: b is …` |'), 0);
    assert.strictEqual(find('| a | promised | `ATest.IsNot` |'), 1);
    assert.strictEqual(find('| a | promised | `lib/a: b is` |'), 1);
    assert.strictEqual(find('| a | promised | `lib/a: c is …` |'), 1);
    assert.strictEqual(find('| a | promised | `lib/b: a is` |'), 1);
    assert.strictEqual(find('| a | sometimes | `ATest.Is` |'), 1);
    assert.strictEqual(find('| a | promised: yes | |'), 1);
  });
});
