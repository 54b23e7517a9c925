'use strict';
// Times by the names of their contenders.

/**
 * Times of each contender, by its name.
 * @typedef {Object<string, number>} ByName
 */

/**
 * Times of contenders for one unit of their work.
 * @param {string[]} names of the contenders, in order
 * @param {import('./measure').Times} times
 * @param {number} units
 * @returns {{reported: ByName, cpu: ByName, best: ByName, median: ByName}}
 */
function figuresOf(names, times, units) {
  const byName = (values) => {
    const figures = {};
    names.forEach((name, i) => {
      figures[name] = values[i] / units;
    });
    return figures;
  };
  return {
    reported: byName(times),
    cpu: byName(times.cpu),
    best: byName(times.best),
    median: byName(times.median),
  };
}

/** Names of contenders. */
const namesOf = (contenders) => contenders.map(({ name }) => name);

module.exports = { figuresOf, namesOf };
