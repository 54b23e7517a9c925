'use strict';
// Hints about blending: clips of which only some move a channel of an entity, so that the weights of the others
// are missing from its mean, and times that are NaN.
const { dataViewOf } = require('../block-bytes');
const layout = require('../layout');
const { isDegrees } = require('./hint-records');
const { isNone } = require('./registry');

const { animator, animatorClip, controller, controllerLayer } = layout;
const { controllerState, controllerClip, layerBlendModes, sampleTypes } = layout;

/** Channels of position and scale, by number; the bit of rotation follows them. */
const channelNames = ['x', 'y', 'z'];
const kValueChannels = 6;
const kValueMask = (1 << kValueChannels) - 1;
const kRotationBit = 1 << kValueChannels;

/** Fraction of a channel's largest value below which a rest pose makes no visible difference. */
const kSmallPart = 1e-3;

/** Total weight of a channel that is treated as 1. */
const kFullShare = 0.999;

/** Step of angles in clips that are authored in degrees. */
const kAuthoredStep = 5;

const angleNames = { [sampleTypes.EulerX]: 'EulerX', [sampleTypes.EulerY]: 'EulerY' };
angleNames[sampleTypes.EulerZ] = 'EulerZ';

function channelName(channel) {
  return `${channel < 3 ? 'position' : 'scale'} ${channelNames[channel % 3]}`;
}

/**
 * The facts of a clip that hints use.
 * @param {Object} clip of `readClip`
 * @returns {{channels: number[], peaks: Float64Array[], degrees: ?Object, isEmpty: boolean}} bits of
 *   channels, and their largest absolute values, by target; a curve in degrees
 */
function clipFacts({ curves, frameCount }) {
  const channels = [];
  const peaks = [];
  let degrees = null;
  for (const { target, type, keys } of curves) {
    if (channels[target] === undefined) {
      channels[target] = 0;
      peaks[target] = new Float64Array(kValueChannels);
    }
    if (keys.length === 0) {
      continue;
    }
    const channel = type - sampleTypes.PositionX;
    if (channel >= kValueChannels) {
      channels[target] |= kRotationBit;
      const round = keys.every(({ value }) => value % kAuthoredStep === 0);
      const found = keys.find(({ value }) => isDegrees(value));
      if (degrees === null && type in angleNames && round && found !== undefined) {
        degrees = { target, name: angleNames[type], value: found.value, frame: found.frame };
      }
      continue;
    }
    channels[target] |= 1 << channel;
    for (const { value } of keys) {
      peaks[target][channel] = Math.max(peaks[target][channel], Math.abs(value));
    }
  }
  return { channels, peaks, degrees, isEmpty: frameCount === 0 };
}

/** Hashes a number into the key of a set of clips. */
function mix(key, number) {
  return (Math.imul(key, 31) + number) | 0;
}

/** True if replacing the rest value by `neutral`, the default, is visible. */
function isMissed(rest, neutral, peak) {
  return Math.abs(rest - neutral) > kSmallPart * peak;
}

/**
 * Examines players before an update. Results that depend only on clips and targets are computed once per set of
 * clips that a player blends.
 */
class Blends {
  constructor({ registry }, records, report) {
    this._registry = registry;
    this._records = records;
    this._report = report;
    /** Cached results, by entry of a player and by its set of clips. */
    this._plans = new WeakMap();
  }

  _plan(entry, key, make) {
    let plans = this._plans.get(entry);
    if (plans === undefined) {
      plans = new Map();
      this._plans.set(entry, plans);
    }
    let plan = plans.get(key);
    if (plan === undefined) {
      plan = make();
      plans.set(key, plan);
    }
    return plan;
  }

  _checkTime(call, entry, place, time) {
    if (Number.isNaN(time)) {
      const found = `${place}: its time is NaN`;
      const cure = 'write a number of frames; undefined becomes NaN in a float';
      this._report.add('nan', entry, place, call, null, `${place}, time`, `${found}: ${cure}`);
    }
  }

  /** Rest value of a channel of an entity, NaN if it is unknown. */
  _rest(handle, channel) {
    const track = this._records.find(handle);
    return track === null ? NaN : track.rest(this._records.element, channel);
  }

  animator(call, entry) {
    const view = dataViewOf(entry.native);
    const playing = [];
    let base = 0;
    let key = 0;
    for (let c = 0; c < entry.clipCount; ++c) {
      const at = animatorClip.size * c;
      const clip = this._registry.find('clip', view.getUint32(at, true));
      const weight = view.getFloat32(at + animatorClip.weight, true);
      if (weight > 0 && weight <= 1) {
        const time = view.getFloat32(at + animatorClip.time, true);
        this._checkTime(call, entry, `animator ${entry.id}, clip ${c}`, time);
        if (!clip.facts.isEmpty) {
          playing.push({ clip, base });
          key = mix(mix(key, c), clip.id);
        }
      }
      base += clip.targetCount;
    }
    if (playing.length < 2 || this._report.isClosed('one-sided-channel')) {
      return;
    }
    const table = animator.targets(entry.clipCount);
    const plan = () => this._planAnimator(view, table, playing);
    const found = this._plan(entry, key, plan);
    if (found !== null) {
      this._reportAnimator(call, entry, found);
    }
  }

  /** The first channel that one clip moves and another, that moves the same entity, does not; or null. */
  _planAnimator(view, table, playing) {
    const seen = new Map();
    for (const { clip, base } of playing) {
      for (let k = 0; k < clip.targetCount; ++k) {
        const handle = view.getUint32(table + 4 * (base + k), true);
        const channels = clip.facts.channels[k] & kValueMask;
        const known = seen.get(handle);
        if (known === undefined) {
          seen.set(handle, { clip, k, channels });
        } else if (known.channels !== channels) {
          const sides = [known, { clip, k, channels }];
          const found = this._oneSided(handle, sides) || this._oneSided(handle, sides.reverse());
          if (found !== null) {
            return found;
          }
        }
      }
    }
    return null;
  }

  /** A channel that the first side has and the second lacks, with a visible difference; or null. */
  _oneSided(handle, [one, other]) {
    for (let channel = 0; channel < kValueChannels; ++channel) {
      const bit = 1 << channel;
      if ((one.channels & bit) !== 0 && (other.channels & bit) === 0) {
        const peak = one.clip.facts.peaks[one.k][channel];
        if (isMissed(this._rest(handle, channel), 0, peak)) {
          return { handle, channel, mover: one.clip.id, other: other.clip.id };
        }
      }
    }
    return null;
  }

  _reportAnimator(call, entry, { handle, channel, mover, other }) {
    const place = `animator ${entry.id}, ${channelName(channel)}`;
    const found = `${place} of entity ${handle}: of the blended clips ${mover} and ${other} only ${mover} moves it`;
    this._addOneSided(
      call,
      entry,
      handle,
      place,
      `${found}, and the weight of ${other} pulls it to 0`
    );
  }

  controller(call, entry, { binding }) {
    if (binding === undefined) {
      return;
    }
    const view = dataViewOf(entry.native);
    const layers = [];
    let key = binding.id;
    for (let i = 0; i < entry.layerCount; ++i) {
      const at = controller.layers + controllerLayer.size * i;
      const mode = view.getUint32(at, true);
      if (mode !== layerBlendModes.override && mode !== layerBlendModes.additive) {
        continue;
      }
      const place = `controller ${entry.id}, layer ${i}`;
      const first = view.getUint32(at + controllerLayer.firstState, true);
      const playing = this._readStates(call, entry, place, first, binding);
      if (mode === layerBlendModes.override) {
        layers.push({ i, playing });
        key = mix(key, i);
        for (const { clip } of playing) {
          key = mix(key, clip.id);
        }
      }
    }
    if (
      this._report.isClosed('one-sided-channel') ||
      layers.every(({ playing }) => playing.length < 2)
    ) {
      return;
    }
    const found = this._planOf(entry, key, binding, layers).find(({ layer, clips }) => {
      const { playing } = layers.find(({ i }) => i === layer);
      const weights = playing.map(({ weight }) => weight);
      const sum = clips.reduce((all, index) => all + weights[index], 0);
      return weights.every((weight) => weight > 0) && sum < kFullShare;
    });
    if (found !== undefined) {
      this._reportController(call, entry, found);
    }
  }

  /** The plan of a controller; made anew when its binding or its masks have changed. */
  _planOf(entry, key, binding, layers) {
    const masks = layers.map(({ i }) => entry.masks.get(i));
    const make = () => {
      return { lists: binding.lists, masks, found: this._planController(entry, binding, layers) };
    };
    const plan = this._plan(entry, key, make);
    if (plan.lists !== binding.lists || plan.masks.some((mask, i) => mask !== masks[i])) {
      Object.assign(plan, make());
    }
    return plan.found;
  }

  /** The clips that the states of a layer play, with their weights. */
  _readStates(call, entry, place, first, binding) {
    const playing = [];
    for (let handle = first; !isNone(handle); ) {
      const state = this._registry.find('state', handle);
      const view = dataViewOf(state.native);
      const share = view.getFloat32(controllerState.weight, true);
      for (let k = 0; k < state.clipCount && share !== 0; ++k) {
        const at = controllerState.clips + controllerClip.size * k;
        const weight = view.getFloat32(at + controllerClip.weight, true);
        const clipHandle = view.getUint32(at, true);
        const clip = this._registry.find('clip', clipHandle);
        if (weight !== 0 && clip !== undefined && binding.lists.has(clipHandle)) {
          const time = view.getFloat32(at + controllerClip.time, true);
          this._checkTime(call, entry, `${place}, state ${state.id}, clip ${k}`, time);
          if (!clip.facts.isEmpty) {
            playing.push({ clip, list: binding.lists.get(clipHandle), weight: share * weight });
          }
        }
      }
      handle = view.getUint32(controllerState.nextState, true);
    }
    return playing;
  }

  /**
   * Channels of entities that some clips of a layer move and others don't, with a visible difference, and which
   * no later layer replaces. Only the first of each layer's entities.
   */
  _planController(entry, binding, layers) {
    const plan = [];
    /** Channels that later layers replace, by entity. */
    const covered = new Map();
    for (const { i, playing } of layers.slice().reverse()) {
      const mask = entry.masks.get(i);
      /** For each entity, by channel, the clips that move it. */
      const movers = new Map();
      playing.forEach(({ clip, list }, index) => {
        for (let k = 0; k < list.length && k < clip.targetCount; ++k) {
          const weight = mask === undefined ? undefined : mask.get(list[k]);
          if (binding.restPoses.has(list[k]) && weight !== 0) {
            this._noteMovers(movers, list[k], clip.facts, k, index, weight === undefined);
          }
        }
      });
      movers.forEach((channels, handle) => {
        const done = covered.get(handle) || 0;
        channels.forEach((found, channel) => {
          const isOneSided = found.clips.length < playing.length && found.isWhole;
          if (
            isOneSided &&
            (done & (1 << channel)) === 0 &&
            this._isRestMissed(handle, channel, found)
          ) {
            const others = playing.findIndex((_, index) => !found.clips.includes(index));
            const [mover, other] = [playing[found.clips[0]].clip.id, playing[others].clip.id];
            plan.push({ layer: i, handle, channel, clips: found.clips, mover, other });
          }
          covered.set(handle, (covered.get(handle) || 0) | (1 << channel));
        });
      });
    }
    return plan;
  }

  _noteMovers(movers, handle, { channels, peaks }, k, index, isWhole) {
    if (!movers.has(handle)) {
      movers.set(handle, []);
    }
    const found = movers.get(handle);
    for (let channel = 0; channel <= kValueChannels; ++channel) {
      if ((channels[k] & (1 << channel)) !== 0) {
        found[channel] = found[channel] || { clips: [], peak: 0, isWhole };
        if (!found[channel].clips.includes(index)) {
          found[channel].clips.push(index);
        }
        found[channel].peak = Math.max(found[channel].peak, peaks[k][channel] || 0);
      }
    }
  }

  /** A layer is completed with position 0, scale 1 and no rotation, whatever the rest pose. */
  _isRestMissed(handle, channel, { peak }) {
    const track = this._records.find(handle);
    if (track === null) {
      return false;
    }
    const { element } = this._records;
    return channel === kValueChannels
      ? track.isTurnedAtRest(element)
      : isMissed(track.rest(element, channel), channel < 3 ? 0 : 1, peak);
  }

  _reportController(call, entry, { layer, handle, channel, mover, other }) {
    const name = channel === kValueChannels ? 'rotation' : channelName(channel);
    const neutral = channel === kValueChannels ? 'no rotation' : channel < 3 ? '0' : '1';
    const place = `controller ${entry.id}, layer ${layer}, ${name}`;
    const found = `${place} of entity ${handle}: of the blended clips ${mover} and ${other} only ${mover} moves it`;
    const effect = `the weight of ${other} pulls it to ${neutral}, not to its rest pose`;
    this._addOneSided(call, entry, handle, place, `${found}, and ${effect}`);
  }

  _addOneSided(call, entry, handle, place, found) {
    const cure = 'add keys for it to both clips, also where it rests';
    this._report.add('one-sided-channel', entry, '', call, handle, place, `${found}: ${cure}`);
  }
}

module.exports = { Blends, clipFacts };
