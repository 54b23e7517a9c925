'use strict';
// The frame loop: pose the scene in script, refresh the world, cull; take the time of each.
const { performance } = require('perf_hooks');

/** Seconds of scene time between two frames. */
const kFrameSeconds = 1 / 60;

/**
 * Milliseconds of every frame, and native calls of the last.
 * @typedef {Object} Timings
 * @property {Float64Array} frame posing and refreshing
 * @property {Float64Array} refresh the native calls alone
 * @property {Float64Array} culling the calls of both cameras
 * @property {number} passes
 */

/**
 * Runs a scene.
 * @param {import('./engine-scene').Scene} scene
 * @param {import('./engine-scene').EngineScene} engineScene
 * @param {import('./culling').SceneCulling} culling
 * @param {number} frames
 * @param {function(number)} onFrame is told how many frames are done, outside what is timed
 * @returns {Timings}
 */
function animate(scene, engineScene, culling, frames, onFrame) {
  const [frame, refresh, cull] = [0, 1, 2].map(() => new Float64Array(frames));
  const timings = { frame, refresh, culling: cull, passes: 0 };
  for (let i = 0; i < frames; ++i) {
    const start = performance.now();
    scene.pose(i * kFrameSeconds, engineScene);
    const { passes, milliseconds } = engineScene.refresh(scene.animated);
    frame[i] = performance.now() - start;
    refresh[i] = milliseconds;
    cull[i] = culling.cull();
    timings.passes = passes;
    onFrame(i + 1);
  }
  return timings;
}

module.exports = { animate, kFrameSeconds };
