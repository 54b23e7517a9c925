'use strict';
// Plans whose crossfade and layer weights a user can override, and release, with smooth transitions.
const { LapPlan, PlacePlan } = require('../demo/plan');

/** Names of the values that a user can set. */
const steered = Object.freeze(['crossfade', 'wave', 'breath']);

/** Rate at which a value moves to the user's value, and back to the plan: fractions of its range per second. */
const kRate = 2.5;

/** A value that is set by the plan, by the user, or in transition between the two. */
class Handle {
  constructor() {
    /** @type {?number} the user's value; null for the plan's */
    this.wanted = null;
    /** Smoothed user value, and its weight in the result. */
    this.given = 0;
    this.hold = 0;
  }

  /** Overrides the value, starting from the current one, or releases it. */
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
  for (const name of steered) {
    handles[name] = new Handle();
  }
  return handles;
}

/** Advances the transitions, also while the plan is paused. */
function steer(handles, seconds) {
  steered.forEach((name) => handles[name].advance(seconds));
}

/**
 * Clip weights for a position between the clips of a character.
 * @param {number} clips
 * @param {number} place 0 for the first clip, 1 for the last, and all others evenly between
 * @returns {number[]} their sum is 1
 */
function weightsAt(clips, place) {
  const at = place * (clips - 1);
  return Array.from({ length: clips }, (none, clip) => Math.max(0, 1 - Math.abs(at - clip)));
}

/** The position between clips of given weights; 0 without clips. */
function placeOf(weights) {
  const sum = weights.reduce((total, weight, clip) => total + weight * clip, 0);
  return weights.length > 1 ? sum / (weights.length - 1) : 0;
}

/**
 * Figures on rings, which walk or run by the crossfade. All move on, including inactive ones, so that a figure that is
 * activated again appears in its own gap.
 */
class DirectedLapPlan extends LapPlan {
  runningAt(angle) {
    const planned = super.runningAt(angle);
    // The base constructor makes the first call.
    return this.handles === undefined ? planned : this.handles.crossfade.mix(planned);
  }

  /** Prepares for user control. */
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

/** Characters in place, blended between two of their clips by the crossfade. */
class DirectedPlacePlan extends PlacePlan {
  /** Prepares for user control. */
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

module.exports = { DirectedLapPlan, DirectedPlacePlan, Handle, placeOf, steered, weightsAt };
