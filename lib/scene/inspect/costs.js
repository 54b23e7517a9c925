'use strict';
// What the stages of the last frames took, for charts: a page that frames are dropped for is sent their costs with the
// next one.

/** Frames that are kept: as many as a chart shows. */
const kFrames = 240;

/** Milliseconds of stages by frame, in a ring. */
class Costs {
  /** @param {number} stages */
  constructor(stages) {
    this.stages = stages;
    this._rows = new Float32Array(kFrames * stages);
    /** Number of the last frame. */
    this.frame = 0;
  }

  /**
   * Adds a frame.
   * @param {ArrayLike<number>} milliseconds of each stage
   */
  push(milliseconds) {
    const at = (this.frame++ % kFrames) * this.stages;
    for (let i = 0; i < this.stages; ++i) {
      this._rows[at + i] = milliseconds[i];
    }
  }

  /**
   * Number of frames after one, as far as they are kept.
   * @param {number} frame 0 for the last one only
   */
  countSince(frame) {
    const last = frame === 0 ? Math.min(1, this.frame) : this.frame - frame;
    return Math.min(kFrames, last);
  }

  /**
   * Copies the last frames, oldest first.
   * @param {Float32Array} out `stages` numbers a frame
   * @param {number} count
   */
  copyLast(out, count) {
    for (let i = 0; i < count; ++i) {
      const at = ((this.frame - count + i) % kFrames) * this.stages;
      for (let stage = 0; stage < this.stages; ++stage) {
        out[i * this.stages + stage] = this._rows[at + stage];
      }
    }
  }
}

module.exports = { Costs };
