'use strict';
// Plans: positions of characters and the clips that they play, advanced frame by frame.
const { createRandom } = require('./random');

/** Distance between rings, radius of the first, and seconds between followers on a ring. */
const kRingGap = 1.75;
const kFirstRing = 4;
const kFollowSeconds = 0.92;

/** Largest offset of a character from its ring, and amplitude of its winding path, in metres. */
const kAside = 0.22;
const kWinding = 0.3;

/** Width of the transition between paces, in radians of a lap. */
const kChange = 0.65;

/** Seconds in which an arm is raised, seconds of a whole wave; waves per second. */
const kRaiseSeconds = 0.6;
const kWaveSeconds = 3;
const kWaveRate = 0.85;

/** Breaths per second, and their depth, at a walk and at a run. */
const kBreathRates = [0.3, 0.75];
const kBreathDepths = [0.6, 1];

/** Seconds for which a character in place plays a clip, and of the crossfade to the next. */
const kHoldSeconds = 1.6;
const kFadeSeconds = 0.7;

/** Seconds per revolution of a character without clips. */
const kTurnSeconds = 8;

/** Distance between characters in place, in their radii. */
const kPlaceGap = 2.5;

function smooth(t) {
  const s = Math.min(1, Math.max(0, t));
  return s * s * (3 - 2 * s);
}

/**
 * A plan for a crowd: `advance` by seconds, then `writeClips` and `writePlaces`.
 * @typedef {Object} Plan
 * @property {number} count
 * @property {function(number)} advance
 * @property {function(import('./crowd').Crowd)} writeClips
 * @property {function(import('./crowd').Crowd)} writePlaces
 * @property {function(number): number[]} weights of the clips of a character
 * @property {function(number): number[]} layerWeights of a character: those of its wave and of its
 *     breath, if there are layers; a character without a prop does not wave
 */

/**
 * Figures on rings around the centre, each on its own winding path and at its own phase. They run through one half of a
 * lap and walk through the other. All figures of a ring pass the same positions at the same speed, so that they close up
 * where they walk, without collisions.
 * @implements {Plan}
 */
class LapPlan {
  /**
   * @param {import('./kind').KindClip[]} clips walk and run
   * @param {number} count
   * @param {number} seed
   * @param {Array<?import('./props').Part>} [cast] what each carries
   */
  constructor(clips, count, seed, cast = []) {
    this.count = count;
    this.cast = cast;
    this.seconds = 0;
    this.strides = clips.map(({ stride }) => stride);
    this.speeds = clips.map(
      ({ stride, frameCount, framesPerSecond }) => (stride * framesPerSecond) / frameCount
    );
    const columns = () => new Float64Array(count);
    /** Of the ring: radius, direction, and the angle where running begins. */
    [this.radius, this.direction, this.start] = [columns(), columns(), columns()];
    /** Of the path: offset from the ring, and phase of its winding. */
    [this.aside, this.winding] = [columns(), columns()];
    /** State that advances: position on the lap, phase of the step, weight of running. */
    [this.angle, this.step, this.running] = [columns(), columns(), columns()];
    /** Phase of the breath. */
    this.breath = columns();
    const random = createRandom(seed);
    this.fillRings(random);
    this.breath.forEach((phase, i) => {
      this.breath[i] = random();
    });
  }

  fillRings(random) {
    for (let ring = 0, first = 0; first < this.count; ++ring) {
      const radius = kFirstRing + kRingGap * ring;
      const direction = ring % 2 === 0 ? 1 : -1;
      const start = 2 * Math.PI * random();
      const angles = this.ringAngles(radius);
      const size = Math.min(angles.length, this.count - first);
      for (let i = 0; i < size; ++i, ++first) {
        this.radius[first] = radius;
        this.direction[first] = direction;
        this.start[first] = start;
        this.aside[first] = kAside * (2 * random() - 1);
        this.winding[first] = 2 * Math.PI * random();
        this.angle[first] = angles[i];
        this.step[first] = random();
        this.running[first] = this.runningAt(angles[i]);
      }
    }
  }

  /** Weight of running at a position on a lap: 0 walks, 1 runs. */
  runningAt(angle) {
    const place = angle % (2 * Math.PI);
    return smooth(place / kChange) * smooth((Math.PI + kChange - place) / kChange);
  }

  speedAt(running) {
    return this.speeds[0] + (this.speeds[1] - this.speeds[0]) * running;
  }

  /** Positions of a ring's figures, at equal intervals of time. */
  ringAngles(radius) {
    const kSteps = 2000;
    const times = [0];
    for (let i = 0; i < kSteps; ++i) {
      const speed = this.speedAt(this.runningAt((2 * Math.PI * (i + 0.5)) / kSteps));
      times.push(times[i] + (2 * Math.PI * radius) / kSteps / speed);
    }
    const places = Math.floor(times[kSteps] / kFollowSeconds);
    return Array.from({ length: places }, (none, i) => {
      const time = (times[kSteps] * i) / places;
      return (2 * Math.PI * times.findIndex((value) => value >= time)) / kSteps;
    });
  }

  advance(seconds) {
    this.seconds += seconds;
    for (let i = 0; i < this.count; ++i) {
      const speed = this.speedAt(this.running[i]);
      const radius = this.radius[i];
      this.angle[i] = (this.angle[i] + (speed / radius) * seconds) % (2 * Math.PI);
      const running = this.runningAt(this.angle[i]);
      this.running[i] = running;
      // A step covers the distance that the figure moves on its own path.
      const stride = this.strides[0] + (this.strides[1] - this.strides[0]) * running;
      const own = (speed * (radius + this.aside[i])) / radius;
      this.step[i] = (this.step[i] + (own / stride) * seconds) % 1;
      const breaths = kBreathRates[0] + (kBreathRates[1] - kBreathRates[0]) * running;
      this.breath[i] = (this.breath[i] + breaths * seconds) % 1;
    }
  }

  writeClips(crowd) {
    for (let i = 0; i < this.count; ++i) {
      // Both clips at the same phase, so that their steps stay in sync.
      crowd.play(i, 0, this.step[i], 1 - this.running[i]);
      crowd.play(i, 1, this.step[i], this.running[i]);
      const [wave, depth] = this.layerWeights(i);
      crowd.breathe(i, this.breath[i], depth);
      if (this.cast[i]) {
        crowd.wave(i, ((this.seconds + this.cast[i].offset) * kWaveRate) % 1, wave);
      }
    }
  }

  writePlaces(crowd) {
    for (let i = 0; i < this.count; ++i) {
      const direction = this.direction[i];
      const angle = this.start[i] + direction * this.angle[i];
      const windings = 4 * angle + this.winding[i];
      const radius = this.radius[i] + this.aside[i] + kWinding * Math.sin(windings);
      const [sin, cos] = [Math.sin(angle), Math.cos(angle)];
      const outwards = 4 * kWinding * Math.cos(windings);
      const heading = Math.atan2(
        direction * (outwards * sin + radius * cos),
        direction * (outwards * cos - radius * sin)
      );
      crowd.place(i, radius * sin, radius * cos, heading);
    }
  }

  weights(character) {
    return [1 - this.running[character], this.running[character]];
  }

  layerWeights(character) {
    const part = this.cast[character];
    const depth =
      kBreathDepths[0] + (kBreathDepths[1] - kBreathDepths[0]) * this.running[character];
    if (!part || part.period === 0) {
      return [0, depth];
    }
    const moment = (this.seconds + part.offset) % part.period;
    const rise = smooth(moment / kRaiseSeconds);
    return [rise * smooth((kWaveSeconds - moment) / kRaiseSeconds), depth];
  }
}

/**
 * Characters in place in rows, each with its own offset in time: they play their clips one after the other with
 * crossfades, or rotate if there are none.
 * @implements {Plan}
 */
class PlacePlan {
  /**
   * @param {import('./kind').KindClip[]} clips
   * @param {number} count
   * @param {number} radius of a character
   * @param {number} seed
   */
  constructor(clips, count, radius, seed) {
    const random = createRandom(seed);
    this.clips = clips;
    this.count = count;
    this.gap = kPlaceGap * radius;
    this.columns = Math.ceil(Math.sqrt(count));
    this.round = clips.length * (kHoldSeconds + kFadeSeconds);
    this.seconds = 0;
    this.offsets = Float64Array.from({ length: count }, () => random() * (this.round || 1));
    this.phases = Float64Array.from({ length: count }, () => random());
    this.headings = Float64Array.from({ length: count }, () => 0.9 * (random() - 0.5) + 0.6);
  }

  advance(seconds) {
    this.seconds += seconds;
    for (let i = 0; i < this.count && this.clips.length > 0; ++i) {
      const weights = this.weights(i);
      const length = this.clips.reduce(
        (sum, { frameCount, framesPerSecond }, k) =>
          sum + (weights[k] * frameCount) / framesPerSecond,
        0
      );
      this.phases[i] = (this.phases[i] + seconds / length) % 1;
    }
  }

  weights(character) {
    const result = this.clips.map(() => 0);
    if (result.length === 1) {
      result[0] = 1;
    } else if (result.length > 1) {
      const stage = kHoldSeconds + kFadeSeconds;
      const moment = (this.seconds + this.offsets[character]) % this.round;
      const clip = Math.min(result.length - 1, Math.floor(moment / stage));
      const share = smooth((moment - clip * stage - kHoldSeconds) / kFadeSeconds);
      result[clip] = 1 - share;
      result[(clip + 1) % result.length] = share;
    }
    return result;
  }

  layerWeights() {
    return [];
  }

  writeClips(crowd) {
    for (let i = 0; i < this.count && this.clips.length > 0; ++i) {
      this.weights(i).forEach((weight, clip) => {
        crowd.play(i, clip, this.phases[i], weight);
      });
    }
  }

  writePlaces(crowd) {
    const rows = Math.ceil(this.count / this.columns);
    const turned = this.clips.length > 0 ? 0 : (2 * Math.PI * this.seconds) / kTurnSeconds;
    for (let i = 0; i < this.count; ++i) {
      const [column, row] = [i % this.columns, Math.floor(i / this.columns)];
      const x = (column - (this.columns - 1) / 2) * this.gap;
      const z = (row - (rows - 1) / 2) * this.gap;
      crowd.place(i, x, z, this.headings[i] + turned);
    }
  }
}

module.exports = { LapPlan, PlacePlan };
