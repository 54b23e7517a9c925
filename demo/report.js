'use strict';
// What the demo prints: progress while it runs, a table at its end.
const { SingleBar } = require('cli-progress');
const Table = require('cli-table3');

/**
 * Shows how far a run is: a bar on a terminal, else a line at every quarter.
 * @param {number} frames of the whole run
 * @param {NodeJS.WriteStream} [stream]
 * @returns {{update: function(number), stop: function()}}
 */
function createProgress(frames, stream = process.stdout) {
  if (stream.isTTY) {
    const format = 'animating [{bar}] {value}/{total} frames';
    const bar = new SingleBar({ format, stream, barCompleteChar: '=', barIncompleteChar: ' ' });
    bar.start(frames, 0);
    return { update: (done) => bar.update(done), stop: () => bar.stop() };
  }
  let quarters = 0;
  return {
    update(done) {
      const reached = Math.floor((4 * done) / frames);
      if (reached > quarters) {
        quarters = reached;
        stream.write(`animating: ${done} of ${frames} frames\n`);
      }
    },
    stop() {},
  };
}

/** The middle of numbers; of an even count the mean of the two. */
function median(values) {
  const sorted = Float64Array.from(values).sort();
  const half = sorted.length >> 1;
  return sorted.length % 2 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
}

/** A whole number with its thousands set apart. */
function grouped(value) {
  return String(value).replace(/\B(?=(\d{3})+$)/g, ',');
}

/**
 * The table of a run.
 * @param {import('./engine-scene').Scene} scene
 * @param {import('./engine-scene').EngineScene} engineScene
 * @param {import('./animate').Timings} timings
 * @returns {string}
 */
function formatTable(scene, engineScene, timings) {
  const refresh = median(timings.refresh);
  const dirty = scene.animated.length;
  const table = new Table({
    style: { head: [], border: [] },
    chars: { mid: '', 'left-mid': '', 'mid-mid': '', 'right-mid': '' },
    colAligns: ['left', 'right'],
  });
  table.push(
    ['scene', scene.name],
    ['motion', scene.motion],
    ['entities', grouped(engineScene.count)],
    ['batches', grouped(engineScene.batches.length)],
    ['frames', grouped(timings.frame.length)],
    ['dirty entities per frame', grouped(dirty)],
    ['refreshes per frame', grouped(timings.passes)],
    ['ms per frame, refresh alone (median)', refresh.toFixed(4)],
    ['ms per frame, with posing in script (median)', median(timings.frame).toFixed(4)],
    ['ns per dirty entry', ((refresh * 1e6) / dirty).toFixed(1)]
  );
  return table.toString();
}

module.exports = { createProgress, formatTable, median };
