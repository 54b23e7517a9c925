'use strict';
// One character at several times of a run, for the picture.
const { kFrameSeconds } = require('./stage');

/** Moments of a whole run. */
const kMoments = 12;

/** Weight of a wave relative to a complete change between clips. */
const kWaveWorth = 0.45;

/**
 * The character that changes most between its clips over some frames, preferably one that waves; the first of equals.
 * @param {import('./plan').Plan} plan is advanced
 * @param {number} frames
 * @returns {number}
 */
function findStar(plan, frames) {
  const low = new Float64Array(plan.count).fill(Infinity);
  const high = new Float64Array(plan.count).fill(-Infinity);
  const waved = new Float64Array(plan.count);
  for (let frame = 0; frame < frames; ++frame) {
    plan.advance(kFrameSeconds);
    for (let i = 0; i < plan.count; ++i) {
      const [weight = 0] = plan.weights(i);
      low[i] = Math.min(low[i], weight);
      high[i] = Math.max(high[i], weight);
      waved[i] = Math.max(waved[i], plan.layerWeights(i)[0] || 0);
    }
  }
  const score = (i) => high[i] - low[i] + kWaveWorth * waved[i];
  let star = 0;
  for (let i = 1; i < plan.count; ++i) {
    star = score(i) > score(star) + 1e-9 ? i : star;
  }
  return star;
}

/**
 * @typedef {Object} Moment
 * @property {Float32Array} matrices for skinning
 * @property {number[]} position of the character
 * @property {number} heading
 * @property {number[]} weights of its clips
 * @property {number[]} layerWeights of its wave and its breath; none without layers
 * @property {?Float32Array} prop world matrix of what it carries
 */

/** Copies a character's skinning matrices at evenly spaced frames of a run. */
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

  /** Records the stage after a frame. */
  record(done) {
    const wanted = Math.min(kMoments, this.frames);
    if (this.moments.length >= Math.floor((done * wanted) / this.frames)) {
      return;
    }
    const { crowd, plan } = this.stage;
    const world = crowd.characters[this.star].worldMatrix;
    const prop = crowd.props.worldMatrix(this.star);
    this.moments.push({
      matrices: crowd.matrices[this.star].slice(),
      position: Array.from(world.subarray(12, 15)),
      heading: Math.atan2(world[8], world[10]),
      weights: plan.weights(this.star),
      layerWeights: plan.layerWeights(this.star),
      prop: prop && prop.slice(),
    });
  }
}

module.exports = { MomentRecorder, findStar };
