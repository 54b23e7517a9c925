'use strict';
// What the commands of package.json do in which order, with stand-ins for what takes minutes.
const assert = require('assert');
const { spawnSync } = require('child_process');
const path = require('path');

const scripts = path.join(__dirname, '..', '..', 'scripts');

/** Runs scripts/test.js, where the suites of some presets fail. */
function runTestScript(failing) {
  const standIns = `
    const put = (file, exports) => {
      const id = require.resolve(${JSON.stringify(`${scripts}/`)} + file);
      require.cache[id] = { id, filename: id, loaded: true, exports };
    };
    put('setup.js', { setup: (...kinds) => console.log('setup ' + kinds.join(' ')) });
    put('lib/build.js', {
      everything: {},
      build: (preset) => console.log('build ' + preset),
      test(preset) {
        console.log('test ' + preset);
        return !${JSON.stringify(failing)}.includes(preset);
      },
    });
    require(${JSON.stringify(path.join(scripts, 'test.js'))});`;
  const args = ['-e', standIns, 'test.js'];
  const { status, stdout, stderr } = spawnSync(process.execPath, args, { encoding: 'utf8' });
  return { status, steps: stdout.trim().split('\n'), stderr };
}

describe('npm test', () => {
  const steps = ['setup build test', 'build release', 'test release', 'build asan', 'test asan'];

  it('has run the release suites before it builds the sanitizers', () => {
    const { status, steps: made, stderr } = runTestScript([]);
    assert.deepStrictEqual(made, [...steps, '== tests passed on: release, asan']);
    assert.strictEqual(stderr, '');
    assert.strictEqual(status, 0);
  });

  it('goes on after failed release suites, and names all that failed at its end', () => {
    for (const failing of [['release'], ['asan'], ['release', 'asan']]) {
      const { status, steps: made, stderr } = runTestScript(failing);
      assert.deepStrictEqual(made, steps);
      assert.strictEqual(stderr, `nq_logic: tests failed on: ${failing.join(', ')}.\n`);
      assert.strictEqual(status, 1);
    }
  });
});
