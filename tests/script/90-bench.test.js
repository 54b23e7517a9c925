'use strict';
// Every script benchmark runs once on a tiny budget. Its times mean nothing then; what is checked is
// that contenders agree, that every workload reports, and that a disagreement would be noticed.
const assert = require('assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { spawnSync } = require('child_process');

const folder = path.join(__dirname, '..', '..', 'bench', 'script');
const { assertSameMatrices } = require(path.join(folder, 'lib', 'compare.js'));

/** Runs the benchmarks' entry and returns what the child leaves. */
function runBenchmarks(args) {
  return spawnSync(process.execPath, [path.join(folder, 'run.js'), ...args], { encoding: 'utf8' });
}

/** All numbers in a report, with the path to each. */
function numbersIn(value, at) {
  if (typeof value === 'number' || value === null) {
    return [{ at, value }];
  }
  return typeof value === 'object'
    ? [].concat(...Object.keys(value).map((key) => numbersIn(value[key], `${at}.${key}`)))
    : [];
}

describe('script benchmarks', () => {
  const workloads = fs
    .readdirSync(path.join(folder, 'workloads'))
    .map((file) => path.basename(file, '.js'));

  for (const name of workloads) {
    it(`${name} runs on a tiny budget and reports numbers`, () => {
      const report = path.join(fs.mkdtempSync(path.join(os.tmpdir(), 'nq-bench-')), 'report.json');
      const child = runBenchmarks(['--budget', 'tiny', '--only', name, '--json', report]);
      assert.strictEqual(child.status, 0, child.stderr);
      assert.ok(child.stdout.includes(`### ${name}: `), child.stdout);
      const { results } = JSON.parse(fs.readFileSync(report, 'utf8'));
      fs.unlinkSync(report);
      fs.rmdirSync(path.dirname(report));
      assert.deepStrictEqual(Object.keys(results), [name]);
      const numbers = numbersIn(results, name);
      assert.notStrictEqual(numbers.length, 0);
      for (const { at, value } of numbers) {
        assert.ok(Number.isFinite(value), `${at} is ${value}`);
      }
    });
  }

  it('refuses a workload that is not there', () => {
    const child = runBenchmarks(['--only', 'nothing']);
    assert.strictEqual(child.status, 1);
    assert.ok(child.stderr.includes('--only is one of'), child.stderr);
  });
});

describe('comparison of contenders', () => {
  const matrices = () => Float32Array.from({ length: 32 }, (_, i) => i - 10);

  it('takes what differs by rounding', () => {
    const rounded = matrices().map((value) => value * (1 + 1e-6));
    assert.doesNotThrow(() => assertSameMatrices('m', matrices(), rounded));
  });

  it('names the node and the element that differ', () => {
    const wrong = matrices();
    wrong[16 + 3] += 0.01;
    assert.throws(() => assertSameMatrices('m', matrices(), wrong), /node 1, element 3/);
  });

  it('takes no not-a-number, no missing matrix and no empty set', () => {
    const wrong = matrices();
    wrong[5] = NaN;
    assert.throws(() => assertSameMatrices('m', matrices(), wrong), /node 0, element 5/);
    assert.throws(() => assertSameMatrices('m', wrong, matrices()), /node 0, element 5/);
    assert.throws(() => assertSameMatrices('m', matrices(), matrices().subarray(0, 16)));
    assert.throws(() => assertSameMatrices('m', new Float32Array(0), new Float32Array(0)));
  });
});
