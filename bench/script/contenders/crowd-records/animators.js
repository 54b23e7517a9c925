'use strict';
// Animators for a crowd: they blend each character's clips by weight and write its nodes.
const { over } = require('../../../../tests/script/support/blocks');

/** Kind of component. */
const kAnimator = 2;

/** Words of an animator's record of a clip: handle, time in frames, weight. */
const kClipWords = 3;
const kTimeWord = 1;
const kWeightWord = 2;

/** Owns an animator for each character of a crowd, with all clips of its kind. */
class CrowdAnimators {
  /** @param {import('./crowd').Crowd} crowd with its entities and clips */
  constructor({ engine, kind, count, handles, clipModels }) {
    const { clips, nodes } = kind;
    this.engine = engine;
    this.frameCounts = clips.map(({ frameCount }) => frameCount);
    this.objects = [];
    /** A view of each animator's block. */
    this.blocks = [];
    this.batch = new Uint32Array(1 + count);
    const targets = [].concat(...clips.map((clip) => clip.targets));
    for (let i = 0; i < count && targets.length > 0; ++i) {
      const animator = engine.createComponent(kAnimator, clips.length, targets.length);
      const words = over(Uint32Array, animator);
      clipModels.forEach(({ id }, clip) => {
        words[kClipWords * clip] = id;
      });
      targets.forEach((node, entry) => {
        words[kClipWords * clips.length + entry] = handles[i * nodes.length + node];
      });
      this.objects.push(animator);
      this.blocks.push(over(Float32Array, animator));
      this.batch[++this.batch[0]] = animator.id;
    }
  }

  /** Sets position (as a fraction of its length) and weight of a character's clip. */
  play(character, clip, moment, weight) {
    const block = this.blocks[character];
    block[kClipWords * clip + kTimeWord] = moment * this.frameCounts[clip];
    block[kClipWords * clip + kWeightWord] = weight;
  }

  /** Samples and blends the clips of all characters into their entities. */
  animate() {
    if (this.objects.length > 0) {
      this.engine.updateAnimators(this.batch.buffer);
    }
  }
}

module.exports = { CrowdAnimators };
