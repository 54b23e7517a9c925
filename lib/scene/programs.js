'use strict';
// What an update reads and writes of controllers. All of it is in one array of words for all characters of a scene: one
// program for each, which is compiled when clips or layers come or go. In a crowd that is walked by the objects of its
// characters, memory is what an update waits for.
//
//   header
//   pose        of each clip of the character: number of its slot, whether it was shown, whether the animator blends it
//   overrides   of each override layer: number of its fader, count of its clips, numbers of their slots
//   additives   the same of each additive layer, and what was written of it
//   areas       of each area: what was written of it, and which override layers move it
//   advanced    numbers of all slots and faders that time moves
//
// Next to it are the views that a program writes: of the controller, of the state of each area, and of the state of each
// clip of additive layers.
const {
  controller,
  controllerClip,
  controllerLayer,
  controllerState,
  layerBlendModes,
} = require('../layout');
const { grown } = require('./blocks');
const { slotNumbers } = require('./slots');

const { kTime, kWeight, kFramesPerSecond } = slotNumbers;

/** Of the fader of an additive layer: the weight that the controller has, or -1. A fader has no time. */
const kWritten = kTime;

// Words of a state, and of its first clip.
const kClip = controllerState.clips / 4;
const kStateWeight = controllerState.weight / 4;
const kClipWords = controllerClip.size / 4;
const kClipTime = kClip + controllerClip.time / 4;
const kClipWeight = kClip + controllerClip.weight / 4;
const stateWords = Object.freeze({
  kStateWeight,
  kNextState: controllerState.nextState / 4,
  kClipWords,
  kClipHandle: kClip + controllerClip.clipHandle / 4,
  kClipTime,
  kClipWeight,
  kReferenceClip: kClip + controllerClip.referenceClip / 4,
  kReferenceTime: kClip + controllerClip.referenceTime / 4,
});

// Words of a controller's block.
const kLayer = controllerLayer.size / 4;
const kLayerWeight = (controller.layers + controllerLayer.weight) / 4;

const { override: kOverride, additive: kAdditive, off: kOff } = layerBlendModes;

/** Weights that add up to this count as full: fades add up with errors of rounding. */
const kFull = 1 - 1e-6;

/** Shares below do not show in a float. */
const kLeastShare = 1e-8;
const kFullShare = 1 - 1e-6;

// Header: counts, and where parts begin. Clips of the pose are those that play, then those that are held.
const kBases = 0;
const kHelds = 1;
const kOverrides = 2;
const kAdditives = 3;
const kAreas = 4;
/** How many clips play, layers included. */
const kPlaying = 5;
const kOverridesAt = 6;
const kAdditivesAt = 7;
const kAreasAt = 8;
const kAdvancedAt = 9;
const kEnd = 10;
const kViews = 11;
/** Handle of the controller, and how many entities it moves. */
const kController = 12;
const kTargets = 13;
const kPose = 14;

// A clip of the pose.
const kAt = 0;
const kIsShown = 1;
const kFollows = 2;
const kPoseWords = 3;

// A layer, and an override layer.
const kFader = 0;
const kClips = 1;
const kFirstClip = 2;

// An additive layer: the mode that its layer of the controller has, whether it is ready, which views are those of its
// states.
const kAddedMode = 2;
const kReadiness = 3;
const kAddedView = 4;
const kFirstAdded = 5;

// Readiness of an additive layer: its states are not written yet; they are; there is nothing that it could move.
const kUnready = 0;
const kReady = 1;
const kEmpty = 2;

// An area: the mode that its layer of the controller has, and whether that has its full weight; clips of its state that
// weigh, and those that fit; which override layers move it: their numbers and where they begin. Last, of each clip of the
// state, the number of the slot whose clip that is.
const kMode = 0;
const kIsFull = 1;
const kUsed = 2;
const kRoom = 3;
const kOrder = 4;
const kNextArea = 5;
const kIncludedCount = 6;
const kIncluded = 7;
const kIncludedWords = 2;

const kUnknown = -1;

/** Instead of where a program begins. */
const kNoProgram = -1;

// The smallest runs of words and of views.
const kLeastWords = 64;
const kLeastViews = 4;

/** The words and views of a program among those of all. */
class ProgramRun {
  constructor() {
    this.at = 0;
    this.room = 0;
    this.views = 0;
    this.viewRoom = 0;
  }
}

/** Appends the numbers of slots. */
function appendNumbers(code, at, slots) {
  for (let i = 0; i < slots.length; ++i) {
    code[at + i] = slots[i].at;
  }
  return at + slots.length;
}

/** Runs of powers of two in a growing range. */
class Runs {
  constructor(least) {
    this._least = least;
    this._free = new Map();
    this.end = 0;
  }

  /** Length of a run for so much. */
  roomOf(count) {
    let room = this._least;
    while (room < count) {
      room *= 2;
    }
    return room;
  }

  take(room) {
    const free = this._free.get(room);
    if (free !== undefined && free.length > 0) {
      return free.pop();
    }
    this.end += room;
    return this.end - room;
  }

  give(first, room) {
    if (!this._free.has(room)) {
      this._free.set(room, []);
    }
    this._free.get(room).push(first);
  }
}

/** The programs of the controllers of a scene. */
class Programs {
  /** @param {Slot[]} slots all of the scene, by their numbers */
  constructor(slots) {
    this._slots = slots;
    this.code = new Int32Array(16 * kLeastWords);
    this._views = [];
    this._codeRuns = new Runs(kLeastWords);
    this._viewRuns = new Runs(kLeastViews);
    // What the last check has found: of override layers, then of additive ones.
    this._isOn = new Uint8Array(8);
    this._sums = new Float64Array(8);
    this._weights = new Float64Array(8);
    /** Of the pose: factors of clips that play, and of those that are held. */
    this._factors = new Float64Array(2);
    // The blend that is put together: slots by their numbers, and their shares.
    this._blend = new Int32Array(16);
    this._shares = new Float64Array(16);
    /** Whether the rig has written what may have to be bound. */
    this._isChanged = false;
  }

  take() {
    return new ProgramRun();
  }

  give(run) {
    const { at, room, views, viewRoom } = run;
    if (room > 0) {
      this._codeRuns.give(at, room);
      this._views.fill(null, views, views + viewRoom);
      this._viewRuns.give(views, viewRoom);
    }
    run.room = 0;
    run.viewRoom = 0;
  }

  /** Gives a run room for so many words and views. */
  _fit(run, words, views) {
    if (words > run.room || views > run.viewRoom) {
      this.give(run);
      run.room = this._codeRuns.roomOf(words);
      run.at = this._codeRuns.take(run.room);
      run.viewRoom = this._viewRuns.roomOf(views);
      run.views = this._viewRuns.take(run.viewRoom);
    }
    if (this._codeRuns.end > this.code.length) {
      this.code = grown(this.code, 2 * this._codeRuns.end);
    }
    while (this._views.length < this._viewRuns.end) {
      this._views.push(null);
    }
  }

  /** Makes room for what is put together of a pose and layers. */
  _reserve(layers, clips) {
    if (layers > this._isOn.length) {
      this._isOn = grown(this._isOn, 2 * layers);
      this._sums = grown(this._sums, 2 * layers);
      this._weights = grown(this._weights, 2 * layers);
    }
    if (clips > this._blend.length) {
      this._blend = grown(this._blend, 2 * clips);
      this._shares = grown(this._shares, 2 * clips);
    }
  }

  /** Compiles a program for the clips that play now, and those that are held. Nothing of it is written yet. */
  compile(numbers, player, run, areas, overrides, additives) {
    const { base, held, layers } = player;
    let clips = base.slots.length + held.length;
    let views = 1 + areas.length;
    for (let l = 0; l < layers.length; ++l) {
      clips += layers[l]._track.slots.length;
    }
    for (let i = 0; i < additives.length; ++i) {
      views += additives[i]._track.slots.length;
    }
    const ofAreas = areas.length * (kIncluded + kIncludedWords * overrides.length + clips);
    const ofLayers = (kFirstAdded + 1) * layers.length;
    this._fit(run, kPose + (kPoseWords + 2) * clips + ofLayers + ofAreas, views);
    this._reserve(layers.length, clips);
    const { code } = this;
    const { at } = run;
    player.program = at;
    code[at + kTargets] = player.targetCount;
    code[at + kBases] = base.slots.length;
    code[at + kHelds] = held.length;
    code[at + kOverrides] = overrides.length;
    code[at + kAdditives] = additives.length;
    code[at + kAreas] = areas.length;
    code[at + kPlaying] = clips - held.length;
    code[at + kViews] = run.views;
    let p = this.writePose(player);
    code[at + kOverridesAt] = p;
    for (let i = 0; i < overrides.length; ++i) {
      p = this._compileLayer(overrides[i], p, kFirstClip);
    }
    code[at + kAdditivesAt] = p;
    let view = run.views + 1 + areas.length;
    for (let i = 0; i < additives.length; ++i) {
      numbers[additives[i]._fader.at + kWritten] = -1;
      code[p + kAddedMode] = kUnknown;
      code[p + kReadiness] = kUnready;
      code[p + kAddedView] = view;
      view += additives[i]._track.slots.length;
      p = this._compileLayer(additives[i], p, kFirstAdded);
    }
    code[at + kAreasAt] = p;
    for (let i = 0; i < areas.length; ++i) {
      p = this._compileArea(areas[i], p, clips, code[at + kOverridesAt]);
    }
    code[at + kAdvancedAt] = p;
    p = appendNumbers(code, p, base.slots);
    for (let l = 0; l < layers.length; ++l) {
      code[p++] = layers[l]._fader.at;
      p = appendNumbers(code, p, layers[l]._track.slots);
    }
    code[at + kEnd] = p;
  }

  /** Writes which clips the pose has, and which of them the animator blends. Returns where it ends. */
  writePose({ base, held, program: at }) {
    const { code } = this;
    const bases = base.slots.length;
    let p = at + kPose;
    for (let i = 0; i < bases + held.length; ++i, p += kPoseWords) {
      const slot = i < bases ? base.slots[i] : held[i - bases];
      code[p + kAt] = slot.at;
      code[p + kIsShown] = slot.isShown ? 1 : 0;
      code[p + kFollows] = slot.isOnAnimator ? 1 : 0;
    }
    return p;
  }

  _compileLayer({ _fader: fader, _track: { slots } }, p, first) {
    this.code[p + kFader] = fader.at;
    this.code[p + kClips] = slots.length;
    return appendNumbers(this.code, p + first, slots);
  }

  _compileArea({ includes }, p, room, overridesAt) {
    const { code } = this;
    let q = p + kIncluded;
    let override = overridesAt;
    for (let l = 0; l < includes.length; ++l) {
      if (includes[l]) {
        code[q] = l;
        code[q + 1] = override;
        q += kIncludedWords;
      }
      override += kFirstClip + code[override + kClips];
    }
    code[p + kMode] = kUnknown;
    code[p + kIsFull] = 0;
    code[p + kIncludedCount] = (q - p - kIncluded) / kIncludedWords;
    code[p + kOrder] = q;
    code[p + kNextArea] = q + room;
    return q + room;
  }

  setController({ at, views }, { id, f32 }) {
    this.code[at + kController] = id;
    this._views[views] = f32;
  }

  /** Lets an area have another state, of no clips so far. */
  setState({ at, views }, area, f32, room) {
    const { code } = this;
    let p = code[at + kAreasAt];
    for (let i = 0; i < area; ++i) {
      p = code[p + kNextArea];
    }
    code[p + kRoom] = room;
    code[p + kUsed] = 0;
    code.fill(kUnknown, code[p + kOrder], code[p + kNextArea]);
    this._views[views + 1 + area] = f32;
  }

  /** Lets a clip of an additive layer have a state. */
  setAddedState({ at }, additive, clip, f32) {
    const { code } = this;
    let p = code[at + kAdditivesAt];
    for (let i = 0; i < additive; ++i) {
      p += kFirstAdded + code[p + kClips];
    }
    this._views[code[p + kAddedView] + clip] = f32;
  }

  /**
   * Adds up weights, and finds out which layers are on.
   * @param {Float64Array} numbers of slots
   * @param {Player} player
   * @returns {boolean} whether it is still a controller that blends the pose, with what is held as before
   */
  check(numbers, player) {
    const { program: at } = player;
    const { code, _isOn: isOn, _sums: sums, _weights: weights } = this;
    const bases = code[at + kBases];
    const helds = code[at + kHelds];
    let sum = 0;
    let count = helds;
    for (let i = 0, p = at + kPose; i < bases; ++i, p += kPoseWords) {
      const weight = numbers[code[p + kAt] + kWeight];
      sum += weight;
      if (weight > 0) {
        ++count;
        if (code[p + kIsShown] === 0) {
          code[p + kIsShown] = 1;
          player.base.slots[i].isShown = true;
        }
      }
    }
    const isFull = sum >= kFull;
    this._factors[0] = isFull ? 1 / sum : 1;
    this._factors[1] = 1 - sum;
    const overrides = code[at + kOverrides];
    const layers = overrides + code[at + kAdditives];
    let isAnyOn = false;
    for (let l = 0, p = code[at + kOverridesAt]; l < layers; ++l) {
      const weight = numbers[code[p + kFader] + kWeight];
      const end = p + (l < overrides ? kFirstClip : kFirstAdded) + code[p + kClips];
      let layerSum = 0;
      for (let q = end - code[p + kClips]; q < end; ++q) {
        layerSum += numbers[code[q] + kWeight];
      }
      sums[l] = layerSum;
      weights[l] = weight;
      const isLayerOn = layerSum > 0 && weight > 0;
      isOn[l] = isLayerOn ? 1 : 0;
      isAnyOn = isAnyOn || isLayerOn;
      p = end;
    }
    const isPlaying = code[at + kPlaying] > 0;
    return isFull === (helds === 0) && isPlaying && (isAnyOn || count > 1);
  }

  /**
   * Writes layers and states for the pose, and for the layers of the player on top of it, as the last check found them.
   * @param {Float64Array} numbers of slots
   * @param {Player} player
   * @returns {boolean} whether several clips were blended with the pose of the animator: their sum is normalised before
   *   that, so that it is not the same as a sum of all
   */
  write(numbers, player) {
    const { program: at } = player;
    const { code, _isOn: isOn } = this;
    const areas = code[at + kAreas];
    const overrides = code[at + kOverrides];
    let isOverridden = false;
    for (let l = 0; l < overrides; ++l) {
      isOverridden = isOverridden || isOn[l] === 1;
    }
    let isMixed = false;
    for (let i = 0, p = code[at + kAreasAt]; i < areas; ++i, p = code[p + kNextArea]) {
      if (areas === 1 || (i === 0) !== isOverridden) {
        if (code[p + kMode] !== kOverride) {
          code[p + kMode] = kOverride;
          player.rig.setMode(i, kOverride);
        }
        isMixed = this._writeArea(numbers, player, at, p, i) || isMixed;
      } else if (code[p + kMode] !== kOff) {
        code[p + kMode] = kOff;
        player.rig.setMode(i, kOff);
      }
    }
    this._writeAdditives(numbers, player, at);
    if (this._isChanged) {
      this._isChanged = false;
      player.rig.settle();
    }
    return isMixed;
  }

  /**
   * Puts together the clips of an area, from the base up. Returns how many; those that the animator blends have the
   * complements of their numbers.
   */
  _blendArea(numbers, at, p) {
    const { code, _blend: blend, _shares: shares, _factors: factors } = this;
    const bases = code[at + kBases];
    const pastPose = at + kPose + kPoseWords * (bases + code[at + kHelds]);
    const pastBases = at + kPose + kPoseWords * bases;
    let blended = 0;
    let factor = factors[0];
    let isFollowed = false;
    for (let q = at + kPose; q < pastPose; q += kPoseWords) {
      const slot = code[q];
      const weight = numbers[slot + kWeight];
      if (q >= pastBases) {
        factor = factors[1];
      } else if (weight === 0) {
        continue;
      }
      const follows = code[q + kFollows] === 1;
      isFollowed = isFollowed || follows;
      blend[blended] = follows ? ~slot : slot;
      shares[blended++] = factor * weight;
    }
    const { _isOn: isOn, _sums: sums, _weights: weights } = this;
    const end = p + kIncluded + kIncludedWords * code[p + kIncludedCount];
    for (let q = p + kIncluded; q < end; q += kIncludedWords) {
      const l = code[q];
      if (isOn[l] === 1) {
        const sum = sums[l];
        const below = sum < 1 ? 1 - weights[l] * sum : 1 - weights[l];
        if (below === 0 && !isFollowed) {
          blended = 0;
        }
        for (let i = 0; i < blended; ++i) {
          shares[i] *= below;
        }
        const over = sum > 1 ? weights[l] / sum : weights[l];
        const first = code[q + 1] + kFirstClip;
        const past = first + code[code[q + 1] + kClips];
        for (let r = first; r < past; ++r) {
          blend[blended] = code[r];
          shares[blended++] = over * numbers[code[r] + kWeight];
        }
      }
    }
    return blended;
  }

  /**
   * Writes the state of an area. What the animator blends is the rest pose, with which the layer blends by its weight;
   * all else are clips of the state.
   */
  _writeArea(numbers, player, at, p, area) {
    const blended = this._blendArea(numbers, at, p);
    const { code, _blend: blend, _shares: shares } = this;
    const views = code[at + kViews];
    let total = 0;
    let count = 0;
    let last = -1;
    let largest = 0;
    let isFollower = false;
    for (let i = 0; i < blended; ++i) {
      const share = shares[i];
      if (blend[i] < 0) {
        isFollower = true;
      } else if (share > kLeastShare) {
        total += share;
        ++count;
        if (share > largest) {
          largest = share;
          last = i;
        }
      }
    }
    if (isFollower || code[p + kIsFull] === 0) {
      code[p + kIsFull] = isFollower ? 0 : 1;
      const weight = isFollower ? Math.min(1, total) : 1;
      this._views[views][area * kLayer + kLayerWeight] = weight;
    }
    if (count > code[p + kRoom]) {
      player.rig.openState(area, count);
    }
    const f32 = this._views[views + 1 + area];
    const order = code[p + kOrder];
    // The largest is the last one: it makes the sum 1 exactly, as it is added in single precision. Less would be
    // completed with an identity.
    let clips = 0;
    let record = 0;
    let sum = 0;
    for (let i = 0; i < blended; ++i) {
      const slot = blend[i];
      if (i !== last && slot >= 0 && shares[i] > kLeastShare) {
        if (code[order + clips] !== slot) {
          this._setClip(player, order, area, clips, slot);
        }
        const weight = Math.fround(shares[i] / total);
        f32[record + kClipTime] = numbers[slot + kTime] * numbers[slot + kFramesPerSecond];
        f32[record + kClipWeight] = weight;
        sum = Math.fround(sum + weight);
        record += kClipWords;
        ++clips;
      }
    }
    // Nothing but the rest pose, by any clip, where there is no last one: an additive layer needs something to add to.
    const any = last < 0 ? blend[0] : blend[last];
    const slot = any < 0 ? ~any : any;
    if (code[order + clips] !== slot) {
      this._setClip(player, order, area, clips, slot);
    }
    f32[record + kClipTime] = numbers[slot + kTime] * numbers[slot + kFramesPerSecond];
    f32[record + kClipWeight] = 1 - sum;
    ++clips;
    const used = code[p + kUsed];
    if (used !== clips) {
      for (let i = clips; i < used; ++i) {
        f32[i * kClipWords + kClipWeight] = 0;
      }
      code[p + kUsed] = clips;
    }
    return clips > 1 && isFollower && total < kFullShare;
  }

  _setClip(player, order, area, clip, slot) {
    this.code[order + clip] = slot;
    this._isChanged = true;
    player.rig.setClip(area, clip, this._slots[slot / slotNumbers.kSlot]);
  }

  _writeAdditives(numbers, player, at) {
    const { code, _isOn: isOn, _weights: weights } = this;
    const overrides = code[at + kOverrides];
    const layers = overrides + code[at + kAdditives];
    for (let l = overrides, p = code[at + kAdditivesAt]; l < layers; ++l) {
      const additive = l - overrides;
      if (isOn[l] === 1 && code[p + kReadiness] === kUnready) {
        code[p + kReadiness] = player.rig.openAdditive(additive) ? kReady : kEmpty;
        this._isChanged = true;
      }
      const isAdded = isOn[l] === 1 && code[p + kReadiness] === kReady;
      const mode = isAdded ? kAdditive : kOff;
      const layer = code[at + kAreas] + additive;
      if (code[p + kAddedMode] !== mode) {
        code[p + kAddedMode] = mode;
        player.rig.setMode(layer, mode);
      }
      const end = p + kFirstAdded + code[p + kClips];
      if (isAdded) {
        const fader = code[p + kFader];
        if (numbers[fader + kWritten] !== weights[l]) {
          numbers[fader + kWritten] = weights[l];
          this._views[code[at + kViews]][layer * kLayer + kLayerWeight] = weights[l];
        }
        for (let q = p + kFirstAdded, view = code[p + kAddedView]; q < end; ++q, ++view) {
          const slot = code[q];
          const f32 = this._views[view];
          f32[kClipTime] = numbers[slot + kTime] * numbers[slot + kFramesPerSecond];
          f32[kStateWeight] = numbers[slot + kWeight];
        }
      }
      p = end;
    }
  }
}

module.exports = {
  Programs,
  kAdvancedAt,
  kController,
  kEnd,
  kFull,
  kNoProgram,
  kTargets,
  stateWords,
};
