'use strict';
// Plans whose crossfade and layer weights a hand can take over, and gives back, without a leap.
const { LapPlan, PlacePlan } = require('../demo/plan');
const { sliders } = require('./protocol');

/** How fast a value goes where the hand wants it, and back to the plan: parts of its range a second. */
const kRate = 2.5;

/** A value that is the plan's, a hand's, or on its way between the two. */
class Handle {
  constructor() {
    /** @type {?number} what the hand wants; null leaves it to the plan */
    this.wanted = null;
    /** What the hand gives, and the part of it in the result. */
    this.given = 0;
    this.hold = 0;
  }

  /** Takes the value over, from what it is now, or gives it back. */
  set(wanted, current) {
    if (wanted !== null && this.hold === 0) {
      this.given = current;
    }
    this.wanted = wanted;
  }

  advance(seconds) {
    const step = kRate * seconds;
    this.hold = Math.min(1, Math.max(0, this.hold + (this.wanted === null ? -step : step)));
    if (this.wanted !== null) {
      this.given += Math.min(step, Math.max(-step, this.wanted - this.given));
    }
  }

  mix(planned) {
    return planned + (this.given - planned) * this.hold;
  }
}

/** A handle for each slider. */
function createHandles() {
  const handles = {};
  for (const name of sliders) {
    handles[name] = new Handle();
  }
  return handles;
}

/** Moves values on, also while the plan stands still. */
function steer(handles, seconds) {
  sliders.forEach((name) => handles[name].advance(seconds));
}

/**
 * Weights that put a character between its clips.
 * @param {number} clips
 * @param {number} place 0 for the first clip, 1 for the last, and all others evenly between
 * @returns {number[]} which sum up to 1
 */
function weightsAt(clips, place) {
  const at = place * (clips - 1);
  return Array.from({ length: clips }, (none, clip) => Math.max(0, 1 - Math.abs(at - clip)));
}

/** Where weights put a character between its clips; 0 where there are none. */
function placeOf(weights) {
  const sum = weights.reduce((total, weight, clip) => total + weight * clip, 0);
  return weights.length > 1 ? sum / (weights.length - 1) : 0;
}

/**
 * Figures on rings, of which all, in parts, walk or run as the crossfade has it. All move on, also those
 * that rest, so that they come back where there is a gap for them.
 */
class DirectedLapPlan extends LapPlan {
  runningAt(angle) {
    const planned = super.runningAt(angle);
    // The first call comes out of the constructor above.
    return this.handles === undefined ? planned : this.handles.crossfade.mix(planned);
  }

  /** Gets ready to be steered. */
  begin() {
    this.handles = createHandles();
    this.total = this.count;
    return this;
  }

  steer(seconds) {
    steer(this.handles, seconds);
  }

  advance(seconds) {
    const active = this.count;
    this.count = this.total;
    super.advance(seconds);
    this.count = active;
  }

  layerWeights(character) {
    const [wave, breath] = super.layerWeights(character);
    const carries = Boolean(this.cast[character]);
    return [carries ? this.handles.wave.mix(wave) : 0, this.handles.breath.mix(breath)];
  }
}

/** Characters in place, between two of their clips as the crossfade has it. */
class DirectedPlacePlan extends PlacePlan {
  /** Gets ready to be steered. */
  begin() {
    this.handles = createHandles();
    return this;
  }

  steer(seconds) {
    steer(this.handles, seconds);
  }

  weights(character) {
    const planned = super.weights(character);
    const { crossfade } = this.handles;
    if (crossfade.hold === 0 || planned.length < 2) {
      return planned;
    }
    const wanted = weightsAt(planned.length, crossfade.given);
    return planned.map((weight, clip) => weight + (wanted[clip] - weight) * crossfade.hold);
  }
}

module.exports = { DirectedLapPlan, DirectedPlacePlan, Handle, placeOf, weightsAt };
