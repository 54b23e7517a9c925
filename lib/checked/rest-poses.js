'use strict';
// The rest poses of a binding, as native code stores them: a map from numbers, which are not only handles of
// entities. Where an override layer animates a channel by a weight below 1, the pose that completes it is
// looked up by the blended value itself, truncated, and a look-up that misses enters an identity. Such
// a number can be the handle of an entity, and a state with `fillDefaults` then moves that entity as well.
const { sampleTypes } = require('../clip');
const { controllerClip, controllerState } = require('../layout');

const { fround } = Math;
const kPoseChannels = 6;
const kScaleZ = 5;
const kTopBit = 2 ** 31;
const kUnmasked = 1;

/** The smallest handle. */
const kLeastHandle = 4096;

/** Blended values with a bound below this are below kLeastHandle, including all rounding errors. */
const kSafeBound = 4000;

/** Maximum of the two tangent weights (Hermite basis) within a segment. */
const kLargestTangentWeight = 4 / 27;

/** Rest poses by number. Of each pose, only the z scale affects further numbers. */
class RestPoses {
  constructor() {
    this._scaleZ = new Map();
    this._entered = new Set();
  }

  has(number) {
    return this._scaleZ.has(number);
  }

  /** @param {function(number): void} callback */
  forEach(callback) {
    this._scaleZ.forEach((_, number) => callback(number));
  }

  /** z scale of the pose of a number; the identity's if there is none. */
  scaleZ(number) {
    return this.has(number) ? this._scaleZ.get(number) : 1;
  }

  /** Stores the pose of an entity. */
  take(handle, scaleZ) {
    this._scaleZ.set(handle, scaleZ);
  }

  /** Enters an identity, as blending does. */
  enter(number) {
    this._scaleZ.set(number, 1);
    this._entered.add(number);
  }

  /** Copies a pose from another map. */
  copyFrom(other, number) {
    this._scaleZ.set(number, other.scaleZ(number));
    if (other.isEntered(number)) {
      this._entered.add(number);
    }
  }

  /** True for a pose that blending entered, and that no snapshot of an entity has replaced. */
  isEntered(number) {
    return this._entered.has(number);
  }

  /** All numbers that blending entered. */
  entered() {
    return this._entered;
  }
}

/** Truncates towards zero as native code does; values that do not fit 32 bits give 0x80000000. */
function truncateToU32(value) {
  if (value >= kTopBit) {
    return value < 2 * kTopBit ? Math.trunc(value) : kTopBit;
  }
  return value >= -kTopBit ? Math.trunc(value) >>> 0 : kTopBit;
}

/** Channel of a sample that a sample type feeds. */
function channelOf(type) {
  return type > sampleTypes.QuaternionW ? type - 5 : type - 1;
}

/** The tracks of a clip, by target: ten channels of keys each. */
function tracksOf({ curves }) {
  const tracks = [];
  curves.forEach(({ target, type, keys }) => {
    if (tracks[target] === undefined) {
      tracks[target] = { isQuaternion: false, channels: Array.from({ length: 10 }, () => []) };
    }
    const track = tracks[target];
    keys.forEach((key) => track.channels[channelOf(type)].push(key));
    track.isQuaternion =
      track.isQuaternion || (type === sampleTypes.QuaternionW && keys.length !== 0);
  });
  return tracks;
}

/** Upper bound of the absolute value of a channel at any time. */
function boundOfChannel(keys, framesPerSecond) {
  let bound = 0;
  keys.forEach(({ frame, value, inTangent }, i) => {
    bound = Math.max(bound, Math.abs(value));
    const previous = keys[i - 1];
    if (i !== 0 && Number.isFinite(previous.outTangent)) {
      const slopes = Math.abs(previous.outTangent) + Math.abs(inTangent);
      const seconds = (frame - previous.frame) / framesPerSecond;
      const ends = Math.max(Math.abs(previous.value), Math.abs(value));
      bound = Math.max(bound, ends + kLargestTangentWeight * slopes * seconds);
    }
  });
  return bound;
}

/**
 * The data of a clip that blending uses.
 * @param {Object} clip as readClip returns it
 */
function contentOf(clip) {
  const { framesPerSecond, frameCount } = clip;
  const tracks = tracksOf(clip);
  let bound = 0;
  tracks.forEach(({ channels }) => {
    for (let c = 0; c < kPoseChannels; ++c) {
      bound = Math.max(bound, boundOfChannel(channels[c], framesPerSecond));
    }
  });
  return { bound, framesPerSecond, frameCount, tracks };
}

/** The value of a channel, in single precision and the order of operations of native code. */
function sampleChannel(keys, time, framesPerSecond) {
  if (keys.length === 0) {
    return NaN;
  }
  const found = keys.findIndex(({ frame }) => fround(frame) >= time);
  const i = found === -1 ? keys.length - 1 : found;
  const next = keys[i];
  const isOnKey = Math.trunc(time) === time && next.frame === truncateToU32(time);
  if (i === 0 || isOnKey || found === -1) {
    return next.value;
  }
  const previous = keys[i - 1];
  const span = next.frame - previous.frame;
  if (
    span === 0 ||
    Math.abs(previous.outTangent) === Infinity ||
    Math.abs(next.outTangent) === Infinity
  ) {
    return previous.value;
  }
  const s = fround(fround(time - fround(previous.frame)) / fround(span));
  const s2 = fround(s * s);
  const s3 = fround(s2 * s);
  const ofPrevious = fround(fround(fround(2 * s3) - fround(3 * s2)) + 1);
  const ofNext = fround(fround(3 * s2) - fround(2 * s3));
  const ofOut = fround(fround(s3 - fround(2 * s2)) + s);
  const ofIn = fround(s3 - s2);
  const seconds = fround(fround(span) / fround(framesPerSecond));
  const values = fround(fround(previous.value * ofPrevious) + fround(next.value * ofNext));
  const out = fround(fround(previous.outTangent * ofOut) * seconds);
  const into = fround(fround(next.inTangent * ofIn) * seconds);
  return fround(fround(values + out) + into);
}

/** True if a track has a rotation at the sampled time, or a part of one that `fill` completes. */
function hasRotation({ isQuaternion, channels }, sample, fill) {
  const last = isQuaternion ? 9 : 8;
  for (let c = 6; c <= last; ++c) {
    if (Number.isNaN(sample(channels[c]))) {
      return fill && !isQuaternion;
    }
  }
  return true;
}

/** An empty pose: a NaN weight means not animated. */
function emptyPose() {
  return {
    values: new Float32Array(kPoseChannels),
    weights: new Float32Array(kPoseChannels).fill(NaN),
    rotationWeight: NaN,
  };
}

/** A NaN weight becomes 0 as soon as something is added. */
function touched(weight) {
  return Number.isNaN(weight) ? 0 : weight;
}

function poseIn(poses, handle) {
  if (!poses.has(handle)) {
    poses.set(handle, emptyPose());
  }
  return poses.get(handle);
}

/** The clips of a state that play: those of weight not 0 that the binding has a list for. */
function playedClips({ registry, binding }, entry, view) {
  const played = [];
  for (let k = 0; k < entry.clipCount; ++k) {
    const at = controllerState.clips + controllerClip.size * k;
    const weight = view.getFloat32(at + controllerClip.weight, true);
    const handle = view.getUint32(at, true);
    const list = binding.lists.get(handle);
    if (weight !== 0 && list !== undefined) {
      const time = view.getFloat32(at + controllerClip.time, true);
      played.push({ list, time, weight, content: registry.find('clip', handle).content });
    }
  }
  return played;
}

/** The poses of a state of an override layer, by entity. */
function posesOfState(layer, entry, view) {
  const { registry, mask, isKnown } = layer;
  const poses = new Map();
  const fill = view.getFloat32(controllerState.fillDefaults, true) !== 0;
  playedClips(layer, entry, view).forEach(({ list, time, weight, content }) => {
    const wrapped = fround(time % fround(content.frameCount));
    const sample = (keys) => sampleChannel(keys, wrapped, content.framesPerSecond);
    content.tracks.forEach((track, index) => {
      const handle = list[index];
      const batch = handle === undefined ? undefined : registry.findNative('entity', handle);
      const m = mask.has(handle) ? mask.get(handle) : kUnmasked;
      if (batch === undefined || !batch.is3D || m === 0 || !isKnown(handle)) {
        return;
      }
      const pose = poseIn(poses, handle);
      const w = fround(m * weight);
      for (let c = 0; c < kPoseChannels; ++c) {
        const value = sample(track.channels[c]);
        if (!Number.isNaN(value)) {
          pose.values[c] += fround(value * w);
          pose.weights[c] = touched(pose.weights[c]) + w;
        }
      }
      if (hasRotation(track, sample, fill)) {
        pose.rotationWeight = fround(touched(pose.rotationWeight) + w);
      }
    });
  });
  return poses;
}

function addToLayer(pose, share, sum) {
  for (let c = 0; c < kPoseChannels; ++c) {
    const weight = pose.weights[c];
    if (!Number.isNaN(weight) && weight !== 0) {
      sum.values[c] += fround(pose.values[c] * share);
      sum.weights[c] = touched(sum.weights[c]) + fround(weight * share);
    }
  }
  const { rotationWeight } = pose;
  if (!Number.isNaN(rotationWeight) && rotationWeight !== 0) {
    sum.rotationWeight = fround(touched(sum.rotationWeight) + fround(rotationWeight * share));
  }
}

/** Looks up the rest poses that complete a pose of a layer, by its blended values. */
function completePose({ values, weights, rotationWeight }, restPoses, enter) {
  for (let c = 0; c < kPoseChannels; ++c) {
    if (1 > weights[c]) {
      const number = truncateToU32(values[c]);
      enter(number);
      if (c === kScaleZ) {
        values[c] += fround(fround(1 - weights[c]) * restPoses.scaleZ(number));
      }
    }
  }
  if (1 > rotationWeight) {
    enter(truncateToU32(values[kScaleZ]));
  }
}

/** Upper bound of the absolute values that a layer blends. */
function boundOfLayer(layer, states) {
  let largestMask = kUnmasked;
  layer.mask.forEach((weight) => {
    largestMask = Math.max(largestMask, Math.abs(weight));
  });
  let bound = 1;
  states.forEach(({ entry, view, weight }) => {
    playedClips(layer, entry, view).forEach((clip) => {
      const share = Math.abs(weight * clip.weight) * largestMask;
      bound += share * (clip.content.bound + 1);
    });
  });
  return bound;
}

/**
 * Finds the numbers that an override layer enters into the rest poses, and that may be handles.
 * @param {{registry: Object, binding: Object, mask: Map<number, number>, isKnown: function(number): boolean}}
 *   layer `isKnown` says which numbers have a rest pose before the layer
 * @param {Array<{entry: Object, view: DataView, weight: number}>} states that play, in order
 * @param {function(number): void} onNumber
 */
function findNumbers(layer, states, onNumber) {
  if (boundOfLayer(layer, states) < kSafeBound) {
    return;
  }
  const sums = new Map();
  states.forEach(({ entry, view, weight }) => {
    posesOfState(layer, entry, view).forEach((pose, handle) => {
      addToLayer(pose, weight, poseIn(sums, handle));
    });
  });
  const enter = (number) => {
    if (number >= kLeastHandle && !layer.isKnown(number)) {
      onNumber(number);
    }
  };
  sums.forEach((pose) => completePose(pose, layer.binding.restPoses, enter));
}

module.exports = { RestPoses, contentOf, findNumbers };
