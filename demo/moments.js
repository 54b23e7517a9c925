'use strict';
// One character at several moments of a run, for the picture.
const { kFrameSeconds } = require('./stage');

/** Moments of a whole run. */
const kMoments = 12;

/**
 * The character that changes most between its clips over some frames, the first one of equals.
 * @param {import('./plan').Plan} plan which is used up
 * @param {number} frames
 * @returns {number}
 */
function findStar(plan, frames) {
  const low = new Float64Array(plan.count).fill(Infinity);
  const high = new Float64Array(plan.count).fill(-Infinity);
  for (let frame = 0; frame < frames; ++frame) {
    plan.advance(kFrameSeconds);
    for (let i = 0; i < plan.count; ++i) {
      const [weight = 0] = plan.weights(i);
      low[i] = Math.min(low[i], weight);
      high[i] = Math.max(high[i], weight);
    }
  }
  let star = 0;
  high.forEach((value, i) => {
    star = value - low[i] > high[star] - low[star] + 1e-9 ? i : star;
  });
  return star;
}

/**
 * @typedef {Object} Moment
 * @property {Float32Array} matrices for skinning
 * @property {number[]} position where the character stands
 * @property {number} heading
 * @property {number[]} weights of its clips
 */

/** Keeps copies of a character's skinning matrices, evenly over the frames of a run. */
class MomentRecorder {
  /**
   * @param {import('./stage').Stage} stage
   * @param {number} frames of the whole run
   */
  constructor(stage, frames) {
    this.stage = stage;
    this.frames = frames;
    this.star = findStar(stage.createPlan(), frames);
    /** @type {Moment[]} */
    this.moments = [];
  }

  /** Looks at the stage after a frame. */
  record(done) {
    const wanted = Math.min(kMoments, this.frames);
    if (this.moments.length >= Math.floor((done * wanted) / this.frames)) {
      return;
    }
    const { crowd, kind, plan } = this.stage;
    const world = crowd.worldMatrix(this.star * kind.nodes.length);
    this.moments.push({
      matrices: crowd.matrices[this.star].slice(),
      position: Array.from(world.subarray(12, 15)),
      heading: Math.atan2(world[8], world[10]),
      weights: plan.weights(this.star),
    });
  }
}

module.exports = { MomentRecorder, findStar };
