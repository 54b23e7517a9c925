'use strict';
// The frame loop: pose the scene in script, refresh the world, take the time of both.
const { performance } = require('perf_hooks');

/** Seconds of scene time between two frames. */
const kFrameSeconds = 1 / 60;

/**
 * Milliseconds of every frame, and native calls of the last.
 * @typedef {Object} Timings
 * @property {Float64Array} frame posing and refreshing
 * @property {Float64Array} refresh the native calls alone
 * @property {number} passes
 */

/**
 * Runs a scene.
 * @param {import('./engine-scene').Scene} scene
 * @param {import('./engine-scene').EngineScene} engineScene
 * @param {number} frames
 * @param {function(number)} onFrame is told how many frames are done, outside what is timed
 * @returns {Timings}
 */
function animate(scene, engineScene, frames, onFrame) {
  const timings = { frame: new Float64Array(frames), refresh: new Float64Array(frames), passes: 0 };
  for (let i = 0; i < frames; ++i) {
    const start = performance.now();
    scene.pose(i * kFrameSeconds, engineScene);
    const { passes, milliseconds } = engineScene.refresh(scene.animated);
    timings.frame[i] = performance.now() - start;
    timings.refresh[i] = milliseconds;
    timings.passes = passes;
    onFrame(i + 1);
  }
  return timings;
}

module.exports = { animate, kFrameSeconds };
