'use strict';
// Converts a glTF animation into a clip: chooses a frame rate, and keys that approximate the motion.
const { buildClip, sampleTypes, stepTangent } = require('./clip');
const { GltfError } = require('./gltf-check');

/** Range of the search for a rate at which all keys are on whole frames. */
const kLeastFramesPerSecond = 24;
const kMostFramesPerSecond = 240;

/** The rate of a clip if there is no such rate. */
const kFallbackFramesPerSecond = 60;

/** Tolerance for a key on a whole frame, in frames: below 0.05 milliseconds. */
const kSnapFrames = 1e-3;

/** Key times are floats: relative error of two units in the last place, and its bound in frames. */
const kTimePrecision = 2 ** -22;
const kMostSnapFrames = 0.1;

/** Longest clip in frames: resampling a broken file must not exhaust memory. */
const kMostFrames = 2 ** 20;

/**
 * Longest arc between two keys of a rotation, in radians on the sphere of quaternions (half the
 * rotation angle). The error of a cubic with exact ends and slopes on an arc of length a is at most a^4 / 384: here
 * 6.4e-7, about the rounding error of floats.
 */
const kMostArc = 0.125;

const types = sampleTypes;
const channelTypes = {
  translation: [types.PositionX, types.PositionY, types.PositionZ],
  rotation: [types.QuaternionX, types.QuaternionY, types.QuaternionZ, types.QuaternionW],
  scale: [types.ScaleX, types.ScaleY, types.ScaleZ],
};

/** Order of the curves of a target. */
const paths = ['translation', 'rotation', 'scale'];

/**
 * One animated property of one node.
 * @typedef {Object} Track
 * @property {string} label location in the file, for messages
 * @property {number} node
 * @property {'translation'|'rotation'|'scale'} path
 * @property {'STEP'|'LINEAR'|'CUBICSPLINE'} interpolation
 * @property {Float64Array} times seconds, ascending; shared by tracks with the same times
 * @property {Float64Array} values of each key; for CUBICSPLINE in-tangent, value, out-tangent
 */

/**
 * Whole frames of key times, if every key is on a whole frame, and no two on the same.
 * @param {Float64Array} times seconds
 * @param {number} rate frames per second
 * @returns {?Float64Array} null if a key is between frames, or two keys are on one frame
 */
function wholeFrames(times, rate) {
  const frames = new Float64Array(times.length);
  for (let i = 0; i < times.length; ++i) {
    const position = times[i] * rate;
    const frame = Math.round(position);
    const snap = Math.min(kMostSnapFrames, Math.max(kSnapFrames, position * kTimePrecision));
    if (Math.abs(position - frame) > snap || (i > 0 && frame <= frames[i - 1])) {
      return null;
    }
    frames[i] = frame;
  }
  return frames;
}

/**
 * The lowest rate at which all keys of all tracks are on whole frames.
 * @param {Track[]} tracks
 * @returns {number} 0 if there is none
 */
function findRate(tracks) {
  const timelines = Array.from(new Set(tracks.map(({ times }) => times)));
  for (let rate = kLeastFramesPerSecond; rate <= kMostFramesPerSecond; ++rate) {
    if (timelines.every((times) => wholeFrames(times, rate) !== null)) {
      return rate;
    }
  }
  return 0;
}

function dot(a, b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3];
}

/**
 * Normalises the rotations of a track and, for linear interpolation, chooses the sign of each quaternion for the
 * shorter arc. Splines are unchanged: they are defined by their raw numbers.
 */
function prepareRotations({ label, interpolation, values }) {
  if (interpolation === 'CUBICSPLINE') {
    return values;
  }
  const result = Float64Array.from(values);
  for (let i = 0; i < result.length; i += 4) {
    const rotation = result.subarray(i, i + 4);
    const length = Math.sqrt(dot(rotation, rotation));
    if (!(length > 0)) {
      const cure = 'give it a rotation there, and export it again';
      throw new GltfError(`${label}: the quaternion of its key ${i / 4} has no length: ${cure}.`);
    }
    const turned =
      i > 0 && interpolation === 'LINEAR' && dot(result.subarray(i - 4, i), rotation) < 0;
    for (let j = 0; j < 4; ++j) {
      rotation[j] /= turned ? -length : length;
    }
  }
  return result;
}

/** The motion of a track over its keys, which are at `positions`, in frames. */
class Motion {
  constructor(track, positions, rate) {
    this.label = track.label;
    this.interpolation = track.interpolation;
    this.isRotation = track.path === 'rotation';
    this.width = this.isRotation ? 4 : 3;
    this.positions = positions;
    this.rate = rate;
    this.values = this.isRotation ? prepareRotations(track) : track.values;
    this.key = 0;
  }

  get first() {
    return this.positions[0];
  }

  get last() {
    return this.positions[this.positions.length - 1];
  }

  /** Index of the first component of a key's value. */
  valueOffset(key) {
    return this.interpolation === 'CUBICSPLINE' ? (3 * key + 1) * this.width : key * this.width;
  }

  /** The length of the arc between a key and the next, in radians on the sphere of quaternions. */
  arcAfter(key) {
    const a = this.valueOffset(key);
    const b = this.valueOffset(key + 1);
    let apart = 0;
    let together = 0;
    for (let i = 0; i < 4; ++i) {
      apart += (this.values[b + i] - this.values[a + i]) ** 2;
      together += (this.values[b + i] + this.values[a + i]) ** 2;
    }
    return 2 * Math.atan2(Math.sqrt(apart), Math.sqrt(together));
  }

  /** The segment that contains a position; a key belongs to the segment that it starts. Only seeks forward. */
  seek(position) {
    while (this.key + 2 < this.positions.length && this.positions[this.key + 1] <= position) {
      ++this.key;
    }
    return this.key;
  }

  /**
   * Value and slope, in units per second, within the segment from a key to the next.
   * @param {number} key
   * @param {number} position
   * @param {number[]} value out
   * @param {number[]} slope out
   */
  evaluate(key, position, value, slope) {
    const span = this.positions[key + 1] - this.positions[key];
    const t = (position - this.positions[key]) / span;
    const seconds = span / this.rate;
    if (this.interpolation === 'CUBICSPLINE') {
      this.evaluateSpline(key, t, seconds, value, slope);
    } else if (this.isRotation) {
      this.evaluateArc(key, t, seconds, value, slope);
    } else {
      const a = this.valueOffset(key);
      for (let i = 0; i < this.width; ++i) {
        const difference = this.values[a + this.width + i] - this.values[a + i];
        value[i] = this.values[a + i] + t * difference;
        slope[i] = difference / seconds;
      }
    }
  }

  /** Spherical linear interpolation (slerp), and its derivative. */
  evaluateArc(key, t, seconds, value, slope) {
    const a = this.valueOffset(key);
    const arc = this.arcAfter(key);
    const sine = Math.sin(arc);
    // For small arcs, slerp tends to linear interpolation.
    const isLine = sine < 1e-9;
    const from = isLine ? 1 - t : Math.sin((1 - t) * arc) / sine;
    const to = isLine ? t : Math.sin(t * arc) / sine;
    const fromSlope = isLine ? -1 : (-arc * Math.cos((1 - t) * arc)) / sine;
    const toSlope = isLine ? 1 : (arc * Math.cos(t * arc)) / sine;
    for (let i = 0; i < 4; ++i) {
      const p = this.values[a + i];
      const q = this.values[a + 4 + i];
      value[i] = from * p + to * q;
      slope[i] = (fromSlope * p + toSlope * q) / seconds;
    }
  }

  /** The cubic Hermite spline, normalised for rotations, and its derivative. */
  evaluateSpline(key, t, seconds, value, slope) {
    const { values, width } = this;
    const p = this.valueOffset(key);
    const q = this.valueOffset(key + 1);
    const t2 = t * t;
    const t3 = t2 * t;
    for (let i = 0; i < width; ++i) {
      const out = seconds * values[p + width + i];
      const into = seconds * values[q - width + i];
      value[i] =
        (2 * t3 - 3 * t2 + 1) * values[p + i] +
        (3 * t2 - 2 * t3) * values[q + i] +
        (t3 - 2 * t2 + t) * out +
        (t3 - t2) * into;
      slope[i] =
        ((6 * t2 - 6 * t) * (values[p + i] - values[q + i]) +
          (3 * t2 - 4 * t + 1) * out +
          (3 * t2 - 2 * t) * into) /
        seconds;
    }
    if (this.isRotation) {
      this.normalize(value, slope);
    }
  }

  /** Normalises a rotation, and makes its slope that of the normalised rotation. */
  normalize(value, slope) {
    const length = Math.sqrt(dot(value, value));
    if (!(length > 1e-6)) {
      const cure = 'set more keys on the way, and export it again';
      throw new GltfError(
        `${this.label}: its spline passes through a rotation of no length: ${cure}.`
      );
    }
    for (let i = 0; i < 4; ++i) {
      value[i] /= length;
      slope[i] /= length;
    }
    const along = dot(value, slope);
    for (let i = 0; i < 4; ++i) {
      slope[i] -= along * value[i];
    }
  }

  /** The value of a key. */
  valueOfKey(key, value) {
    const from = this.valueOffset(key);
    for (let i = 0; i < this.width; ++i) {
      value[i] = this.values[from + i];
    }
    if (this.isRotation && this.interpolation === 'CUBICSPLINE') {
      this.normalize(value, [0, 0, 0, 0]);
    }
  }

  /** The value at a position; constant before the first key and after the last one. */
  valueAt(position, value) {
    if (position <= this.first || this.positions.length === 1) {
      this.valueOfKey(0, value);
    } else if (position >= this.last) {
      this.valueOfKey(this.positions.length - 1, value);
    } else {
      this.evaluate(this.seek(position), position, value, [0, 0, 0, 0]);
    }
  }
}

/** All frames of a range, both ends included. */
function everyFrame(from, to) {
  return Float64Array.from({ length: to - from + 1 }, (_, i) => from + i);
}

/** Frames of the keys of rotations along arcs: those of the file, and as many between as kMostArc requires. */
function framesOfArcs(motion) {
  const frames = [motion.first];
  for (let key = 0; key + 1 < motion.positions.length; ++key) {
    const from = motion.positions[key];
    const span = motion.positions[key + 1] - from;
    const longest = Math.max(1, Math.floor((kMostArc * span) / motion.arcAfter(key)));
    const parts = Math.max(1, Math.ceil(span / longest));
    for (let i = 1; i <= parts; ++i) {
      frames.push(from + Math.round((i * span) / parts));
    }
  }
  return Float64Array.from(frames);
}

/** Frames of the keys for a motion. */
function framesOf(motion, isWhole) {
  if (!isWhole || (motion.isRotation && motion.interpolation === 'CUBICSPLINE')) {
    return everyFrame(Math.floor(motion.first), Math.ceil(motion.last));
  }
  return motion.isRotation ? framesOfArcs(motion) : motion.positions;
}

/** Columns of keys, one per channel. */
function makeColumns(frames, width) {
  const keyFrames = Uint32Array.from(frames);
  return Array.from({ length: width }, () => ({
    frames: keyFrames,
    values: new Float32Array(frames.length),
    inTangents: new Float32Array(frames.length),
    outTangents: new Float32Array(frames.length),
  }));
}

/**
 * Keys of a stepped motion. A key between whole frames moves to the nearest one; of several on one frame, the last is
 * used.
 */
function stepColumns(motion) {
  const keyOfFrame = new Map();
  motion.positions.forEach((position, key) => keyOfFrame.set(Math.round(position), key));
  const frames = Array.from(keyOfFrame.keys());
  const columns = makeColumns(frames, motion.width);
  const value = [0, 0, 0, 0];
  frames.forEach((frame, i) => {
    motion.valueOfKey(keyOfFrame.get(frame), value);
    columns.forEach((column, channel) => {
      column.values[i] = value[channel];
      column.outTangents[i] = stepTangent;
    });
  });
  return columns;
}

/**
 * Keys of a smooth motion. Between two keys of the clip the slopes are those of the motion at both ends, so that the
 * cubic equals the motion, or approximates it for rotations. If a key of the file is between them, the segment is
 * linear.
 */
function smoothColumns(motion, isWhole) {
  const frames = framesOf(motion, isWhole);
  const columns = makeColumns(frames, motion.width);
  const value = [0, 0, 0, 0];
  frames.forEach((frame, i) => {
    motion.valueAt(frame, value);
    columns.forEach((column, channel) => {
      column.values[i] = value[channel];
    });
  });
  motion.key = 0;
  const from = [0, 0, 0, 0];
  const to = [0, 0, 0, 0];
  for (let i = 0; i + 1 < frames.length; ++i) {
    const key = motion.seek(frames[i]);
    const inside = frames[i] >= motion.positions[key] && frames[i + 1] <= motion.positions[key + 1];
    if (inside) {
      motion.evaluate(key, frames[i], value, from);
      motion.evaluate(key, frames[i + 1], value, to);
    }
    columns.forEach(({ values, inTangents, outTangents }, channel) => {
      const line = ((values[i + 1] - values[i]) * motion.rate) / (frames[i + 1] - frames[i]);
      outTangents[i] = inside ? from[channel] : line;
      inTangents[i + 1] = inside ? to[channel] : line;
    });
  }
  return columns;
}

/** The same keys, or only the first if the curve is constant. */
function withoutRepetition({ frames, values, inTangents, outTangents }) {
  const isFlat = (slope) => slope === 0 || slope === stepTangent;
  const isConstant =
    values.every((value) => value === values[0]) &&
    inTangents.every(isFlat) &&
    outTangents.every(isFlat);
  const end = isConstant ? 1 : frames.length;
  return {
    frames: frames.subarray(0, end),
    values: values.subarray(0, end),
    inTangents: inTangents.subarray(0, end),
    outTangents: outTangents.subarray(0, end),
  };
}

/** The curves of a track. */
function curvesOf(motion, target, path, isWhole) {
  const isStep = motion.interpolation === 'STEP';
  const columns = isStep ? stepColumns(motion) : smoothColumns(motion, isWhole);
  return columns.map((column, channel) => {
    const finite = [column.inTangents, isStep ? [] : column.outTangents];
    if (!finite.every((slopes) => slopes.every(Number.isFinite))) {
      const cure = 'set its keys further apart, and export it again';
      throw new GltfError(`${motion.label}: it moves too fast for a float: ${cure}.`);
    }
    return { target, type: channelTypes[path][channel], keys: withoutRepetition(column) };
  });
}

/**
 * Converts an animation into a clip.
 * @param {string} label location in the file, for messages
 * @param {string} name
 * @param {Track[]} tracks at least one
 * @param {{framesPerSecond: ?number, holdEnd: boolean}} options
 * @param {string[]} warnings receives what was left out or resampled
 * @returns {Object} as in the result of importGltf
 */
function convertAnimation(label, name, tracks, options, warnings) {
  const found = options.framesPerSecond || findRate(tracks);
  const framesPerSecond = found || kFallbackFramesPerSecond;
  const targets = Array.from(new Set(tracks.map(({ node }) => node))).sort((a, b) => a - b);
  const targetOf = new Map(targets.map((node, target) => [node, target]));
  const motions = new Map();
  let resampled = 0;
  let end = 0;
  for (const track of tracks) {
    const frames = wholeFrames(track.times, framesPerSecond);
    const positions = frames || track.times.map((time) => time * framesPerSecond);
    resampled += frames ? 0 : 1;
    end = Math.max(end, positions[positions.length - 1]);
    if (end > kMostFrames) {
      const trouble = `${label}: its last key is at frame ${Math.ceil(
        end
      )}, the last possible one is`;
      throw new GltfError(`${trouble} ${kMostFrames}: cut it into shorter animations.`);
    }
    motions.set(track, {
      motion: new Motion(track, positions, framesPerSecond),
      isWhole: !!frames,
    });
  }
  if (resampled > 0) {
    const tried = `${kLeastFramesPerSecond} to ${kMostFramesPerSecond}`;
    const reason = found
      ? `keys are between frames at ${found} frames per second`
      : `no rate from ${tried} frames per second puts all keys on whole frames`;
    const result = `${resampled} of its ${tracks.length} tracks are resampled at ${framesPerSecond}`;
    warnings.push(`${label}: ${reason}: ${result}.`);
  }
  const curves = [];
  for (const track of tracks
    .slice()
    .sort((a, b) => a.node - b.node || paths.indexOf(a.path) - paths.indexOf(b.path))) {
    const { motion, isWhole } = motions.get(track);
    curves.push(...curvesOf(motion, targetOf.get(track.node), track.path, isWhole));
  }
  const lastFrame = Math.ceil(end);
  const frameCount = Math.max(1, options.holdEnd ? lastFrame + 1 : lastFrame);
  return {
    name,
    framesPerSecond,
    frameCount,
    duration: end / framesPerSecond,
    targets,
    clip: buildClip({ name, framesPerSecond, frameCount, curves }),
  };
}

module.exports = { convertAnimation };
