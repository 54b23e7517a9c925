'use strict';
// End of a process with engines and their waiting threads.
const { runScript, assertCleanExit } = require('../support/child');

describe('process', () => {
  const cases = {
    natural: 'ends by itself while the workers of an engine wait',
    exit: 'ends by process.exit while they wait',
    exitCode: 'ends with an exit code while they wait',
    unused: 'ends after loading alone',
    collected: 'ends after engines were collected',
    manyEngines: 'ends with ten engines and forty threads',
    workerAlone: 'outlives Workers that alone loaded the module, one after the other',
    workerUnused: 'keeps the module in memory after a Worker that alone loaded it',
    workerExits: 'outlives Workers that end by process.exit',
    workerTerminated: 'outlives a Worker that is terminated',
    twoWorkers: 'runs engines in two Workers at once',
    mainAndWorkers: 'runs engines in the main thread and two Workers at once',
    workerThenMain: 'loads the module in the main thread after a Worker with it has ended',
  };
  for (const name of Object.keys(cases)) {
    it(cases[name], () => {
      assertCleanExit(runScript('lifecycle.js', name));
    });
  }
});
