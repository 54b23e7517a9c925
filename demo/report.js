'use strict';
// What the demo prints: progress while it runs, a table at its end.
const { SingleBar } = require('cli-progress');
const Table = require('cli-table3');
const { median } = require('./bounds');

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

/** A whole number with its thousands set apart. */
function grouped(value) {
  return String(value).replace(/\B(?=(\d{3})+$)/g, ',');
}

/** A hash as script prints it everywhere: eight hexadecimal digits. */
function formatHash(hash) {
  return hash.toString(16).padStart(8, '0');
}

/**
 * The table of a run.
 * @param {import('./engine-scene').Scene} scene
 * @param {import('./engine-scene').EngineScene} engineScene
 * @param {import('./culling').SceneCulling} culling
 * @param {import('./animate').Timings} timings
 * @returns {string}
 */
function formatTable(scene, engineScene, culling, timings) {
  const { perspective, overview } = culling.views;
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
    ['ns per dirty entry', ((refresh * 1e6) / dirty).toFixed(1)],
    ['culling objects', grouped(culling.spheres.length)],
    ['ms per frame, culling by two cameras (median)', median(timings.culling).toFixed(4)],
    ['visible, perspective camera', grouped(perspective.handles.length)],
    ['hash, perspective camera', formatHash(perspective.hash)],
    ['visible, orthographic overview', grouped(overview.handles.length)],
    ['hash, orthographic overview', formatHash(overview.hash)]
  );
  return table.toString();
}

module.exports = { createProgress, formatTable };
