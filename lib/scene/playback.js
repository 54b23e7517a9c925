'use strict';
// Playback of clips in seconds: times, speeds and fades of all characters of a scene, which are advanced together. A
// track is the clips of a character, or of one of its layers. A pose of at most two clips is blended by the animator of
// the character; more clips, and layers, by a controller, see rig.js.
const { animatorClip } = require('../layout');
const { show } = require('../value-checks');
const { Batch, grown } = require('./blocks');
const {
  Programs,
  kAdvancedAt,
  kController,
  kEnd,
  kFull,
  kNoProgram,
  kTargets,
} = require('./programs');
const { Rig } = require('./rig');
const { Slot, Track, noteClips, slotNumbers } = require('./slots');

const { kTime, kSpeed, kWeight, kGoal, kRate, kDuration, kFramesPerSecond, kFlags, kSlot } =
  slotNumbers;

const kLoops = 1;
const kEnded = 2;
/** It is faded out, and ends when its weight is 0. */
const kStops = 4;

// Words of an animator's block.
const kRecord = animatorClip.size / 4;
const kHandleWord = animatorClip.clipHandle / 4;
const kTimeWord = animatorClip.time / 4;
const kWeightWord = animatorClip.weight / 4;
/** Clips that an animator blends. */
const kRecords = 2;

const kNoEvent = -1;
const kLoopEvent = 0;
const kEndEvent = 1;

// What evaluates a player. With both, the controller adds to the pose of the animator: a blend that the animator has
// begun is ended by it, since controllers blend rotations in another way, and the pose would jump.
const kByAnimator = 0;
const kByBoth = 1;
const kByController = 2;

/** Instead of where a program begins: the animator blends one or two clips in full. */
const kPlain = -2;

/**
 * Up to so many targets together, players are updated by single calls, on the calling thread: waking the workers costs
 * 10 to 25 microseconds, more than they save. Measured with 1 to 32 players of 20 targets, on one core and on two, the
 * medians of 400 rounds each way: single calls cost less up to 16 animators of two clips, and up to 8 controllers with a
 * mask and an additive layer; on cores that other work keeps busy, up to 32 of either. See docs/scene.md.
 */
const kFewAnimatorTargets = 320;
const kFewControllerTargets = 160;

/** What plays on a character. */
class Player {
  /**
   * @param {AnimatorView} animator
   * @param {Object} known what the engine has of the model
   * @param {Uint32Array} targets entities that its clips move
   * @param {number} entity index of the entity of the character
   */
  constructor(animator, known, targets, entity) {
    // What each update reads of a character is here, next to each other: memory is what it costs.
    /** Whether neither times nor weights change by themselves, since the last update. */
    this.isStill = false;
    this.mode = kByAnimator;
    /**
     * Where the program of its rig begins. Or that the animator blends the same one or two clips as before, and nothing
     * else is; or neither, as clips or layers have come or gone.
     */
    this.program = kNoProgram;
    /** Numbers of the slots of these clips; -1 for no second one. */
    this.firstAt = -1;
    this.secondAt = -1;
    this.f32 = animator.f32;
    this.id = animator.id;
    this.targetCount = targets.length;
    this.base = new Track(this);
    this.slots = this.base.slots;
    /** What is blended in where the clips weigh less than 1: where the last ones were stopped, or the pose at rest. */
    this.held = [];
    this.layers = [];
    this.rig = null;
    /** Place in the list of those that play, from 1, or 0. */
    this.place = 0;
    this.animator = animator;
    this.known = known;
    this.targets = targets;
    this.entity = entity;
  }

  get isIdle() {
    if (this.base.slots.length > 0) {
      return false;
    }
    for (let i = 0; i < this.layers.length; ++i) {
      if (this.layers[i]._track.slots.length > 0) {
        return false;
      }
    }
    return true;
  }
}

function failListener({ constructor }, kind, value) {
  const label = `${constructor.name}.${kind === kLoopEvent ? 'onLoop' : 'onEnd'}`;
  throw new TypeError(`${label}: it is ${show(value)}: give a function, or null for none.`);
}

/** Clips of a track have come or gone. */
function changeClips({ player, owner, slots }) {
  player.program = kNoProgram;
  if (owner !== null) {
    noteClips(owner, slots);
  }
}

/** Players of a scene. */
class Players {
  constructor(engine, pool, blocks) {
    this._engine = engine;
    this._pool = pool;
    this._blocks = blocks;
    this._playing = [];
    /** Those that have ended, and have been evaluated for the last time. */
    this._ended = [];
    this._animators = new Batch();
    this._controllers = new Batch();
    this._single = new Uint32Array([1, 0]);
    // Targets of those listed, and the numbers of them up to which they are updated one by one.
    this._animatorTargets = 0;
    this._controllerTargets = 0;
    this._fewAnimatorTargets = kFewAnimatorTargets;
    this._fewControllerTargets = kFewControllerTargets;
    /** Players whose rest poses follow the animator in this update. */
    this._followers = [];
    this._followerCount = 0;
    /** Players whose binding was made outside of the tree of the scene. */
    this._unrooted = [];
    this._numbers = new Float64Array(64 * kSlot);
    /** All slots by their numbers, used or not, and those that are not used. */
    this._slots = [];
    this._free = [];
    this._programs = new Programs(this._slots);
    /** Events of this update: character or layer, clip, kind. */
    this._events = [];
    this._eventCount = 0;
    /** Whether callbacks run. */
    this.isReporting = false;
    /** Number of players that were evaluated. */
    this.count = 0;
    // The pose that is put together: slots and their weights.
    this._pose = [];
    this._weights = new Float64Array(8);
    this._poseCount = 0;
  }

  takeSlot(clip, handle) {
    let slot;
    if (this._free.length > 0) {
      slot = this._free.pop();
    } else {
      slot = new Slot(this._slots.length * kSlot);
      this._slots.push(slot);
      if (slot.at === this._numbers.length) {
        this._numbers = grown(this._numbers, 2 * slot.at);
      }
    }
    this._numbers.fill(0, slot.at, slot.at + kSlot);
    slot.clip = clip;
    slot.handle = handle;
    if (clip !== null) {
      slot.index = clip.index;
      this._numbers[slot.at + kDuration] = clip.duration;
      this._numbers[slot.at + kFramesPerSecond] = clip.framesPerSecond;
    }
    return slot;
  }

  giveSlot(slot) {
    slot.clip = null;
    slot.track = null;
    slot.index = -1;
    slot.isShown = false;
    slot.isOnAnimator = false;
    this._free.push(slot);
  }

  _giveSlots(slots) {
    while (slots.length > 0) {
      this.giveSlot(slots.pop());
    }
  }

  start(track, clip, handle, { at, speed, weight, fade, loop }) {
    let slot = track.slotOf(clip);
    const isNew = slot === null;
    if (isNew) {
      slot = this.takeSlot(clip, handle);
      slot.track = track;
      track.slots.push(slot);
      changeClips(track);
    }
    const numbers = this._numbers;
    if (isNew || at !== undefined) {
      numbers[slot.at + kTime] = Math.max(0, Math.min(clip.duration, at === undefined ? 0 : at));
    } else if ((numbers[slot.at + kFlags] & kEnded) !== 0) {
      this._startAgain(slot, clip, speed);
    }
    numbers[slot.at + kSpeed] = speed;
    numbers[slot.at + kFlags] = loop ? kLoops : 0;
    this.fade(slot, weight, fade);
    track.player.isStill = false;
    this.wake(track.player);
    return slot;
  }

  /** Moves a clip that is held at its end to its other one, unless it is to be played from there. */
  _startAgain(slot, { duration }, speed) {
    const numbers = this._numbers;
    const isAtStart = numbers[slot.at + kTime] === 0;
    if (speed < 0 ? isAtStart : !isAtStart) {
      numbers[slot.at + kTime] = duration - numbers[slot.at + kTime];
    }
  }

  /** Fades all clips but one out, or ends them at once. */
  stopOthers(track, slot, fade) {
    for (let i = track.slots.length - 1; i >= 0; --i) {
      if (track.slots[i] !== slot) {
        this.stop(track, track.slots[i], fade);
      }
    }
  }

  /** Fades a clip out, or ends it at once. */
  stop(track, slot, fade) {
    if (fade > 0 && this._numbers[slot.at + kWeight] > 0) {
      this.fade(slot, 0, fade);
      track.player.isStill = false;
      this._numbers[slot.at + kFlags] |= kStops;
    } else if (track.slots.length === 1) {
      this.stopAll(track, 0);
    } else {
      this._remove(track, track.slots.indexOf(slot));
    }
  }

  /** The same for all clips. If the character is then at rest, its pose stays. */
  stopAll(track, fade) {
    const { player } = track;
    if (fade > 0) {
      for (let i = track.slots.length - 1; i >= 0; --i) {
        this.stop(track, track.slots[i], fade);
      }
      return;
    }
    if (track === player.base) {
      this._hold(player);
    }
    this._giveSlots(track.slots);
    changeClips(track);
    // What layers have added to the pose has to be taken away by another evaluation.
    if (player.place !== 0 && player.layers.length === 0) {
      this._sleep(player);
    }
  }

  /** Stops all at once, and forgets where. */
  clear(player) {
    this._giveSlots(player.base.slots);
    this._giveSlots(player.held);
    changeClips(player.base);
    for (let i = 0; i < player.layers.length; ++i) {
      this._giveSlots(player.layers[i]._track.slots);
      changeClips(player.layers[i]._track);
    }
    player.mode = kByAnimator;
    if (player.place !== 0) {
      this._sleep(player);
    }
  }

  /** Takes back all that a player has beyond its animator. */
  release(player) {
    this.clear(player);
    player.base.owner = null;
    this._dropRig(player);
  }

  /** Layers were added or removed. */
  changeLayers(player) {
    player.isStill = false;
    player.program = kNoProgram;
    if (player.rig !== null) {
      player.rig.isCurrent = false;
    }
  }

  /** Takes back the slots of a layer. The next update evaluates the pose without it. */
  removeLayer(player, layer) {
    if (layer._track.slots.length > 0) {
      this._giveSlots(layer._track.slots);
    }
    this.giveSlot(layer._fader);
    player.layers.splice(player.layers.indexOf(layer), 1);
    this.changeLayers(player);
  }

  _dropRig(player) {
    if (player.rig !== null) {
      player.rig.give(this._pool);
      player.program = kNoProgram;
      player.rig = null;
      const at = this._unrooted.indexOf(player);
      if (at >= 0) {
        this._unrooted.splice(at, 1);
      }
    }
  }

  _remove(track, i) {
    const { slots } = track;
    this.giveSlot(slots[i]);
    for (; i + 1 < slots.length; ++i) {
      slots[i] = slots[i + 1];
    }
    slots.pop();
    changeClips(track);
  }

  /** Makes what the clips of a character show now what it holds. */
  _hold(player) {
    const { base, held } = player;
    const numbers = this._numbers;
    let shown = 0;
    for (let i = 0; i < base.slots.length; ++i) {
      shown += base.slots[i].isShown ? numbers[base.slots[i].at + kWeight] : 0;
    }
    if (shown === 0) {
      return;
    }
    if (shown >= kFull) {
      this._giveSlots(held);
    }
    let sum = shown;
    for (let i = 0; i < held.length; ++i) {
      numbers[held[i].at + kWeight] *= 1 - shown;
      sum += numbers[held[i].at + kWeight];
    }
    // What was not shown is left, and ends.
    let left = 0;
    for (let i = 0; i < base.slots.length; ++i) {
      const slot = base.slots[i];
      if (slot.isShown) {
        held.push(slot);
      } else {
        base.slots[left++] = slot;
      }
    }
    base.slots.length = left;
    changeClips(base);
    for (let i = 0; i < held.length; ++i) {
      numbers[held[i].at + kWeight] /= sum;
    }
  }

  fade(slot, weight, seconds) {
    const numbers = this._numbers;
    const { at } = slot;
    numbers[at + kGoal] = weight;
    if (seconds === 0) {
      numbers[at + kWeight] = weight;
      numbers[at + kRate] = 0;
    } else {
      // Finite, since an update of 0 seconds multiplies it by 0.
      const rate = (weight - numbers[at + kWeight]) / seconds;
      numbers[at + kRate] = Math.max(-Number.MAX_VALUE, Math.min(Number.MAX_VALUE, rate));
    }
  }

  /** Sets the weight of a clip at once, and ends its fade. */
  setWeight(at, weight) {
    const numbers = this._numbers;
    numbers[at + kWeight] = weight;
    numbers[at + kGoal] = weight;
    numbers[at + kRate] = 0;
    numbers[at + kFlags] &= ~kStops;
  }

  /** Fades the weight of a clip, which does not end by that. */
  fadeTo(track, slot, weight, seconds) {
    this._numbers[slot.at + kFlags] &= ~kStops;
    this.fade(slot, weight, seconds);
    track.player.isStill = false;
  }

  /** Fades the weight of a layer. */
  fadeLayer(layer, weight, seconds) {
    this.fade(layer._fader, weight, seconds);
    layer._track.player.isStill = false;
  }

  /** Sets the seconds in a clip; one that is held at its end goes on. */
  setTime(at, seconds) {
    const numbers = this._numbers;
    const duration = numbers[at + kDuration];
    numbers[at + kTime] = seconds < duration ? seconds : duration;
    numbers[at + kFlags] &= ~kEnded;
  }

  timeOf(at) {
    return this._numbers[at + kTime];
  }

  weightOf(at) {
    return this._numbers[at + kWeight];
  }

  /** Adds up the weights of a track. */
  _measure(track) {
    const { slots } = track;
    let sum = 0;
    for (let i = 0; i < slots.length; ++i) {
      sum += this._numbers[slots[i].at + kWeight];
    }
    track.sum = sum;
  }

  /** Lists a player as one that plays. */
  wake(player) {
    if (player.place === 0) {
      this._playing.push(player);
      player.place = this._playing.length;
    }
  }

  _sleep(player) {
    const last = this._playing.pop();
    if (last !== player) {
      this._playing[player.place - 1] = last;
      last.place = player.place;
    }
    player.place = 0;
  }

  /** Advances all by seconds, calls back, and evaluates animators and controllers. */
  update(seconds) {
    const playing = this._playing;
    for (let i = 0; i < playing.length; ++i) {
      const player = playing[i];
      if (!player.isStill) {
        player.isStill =
          player.program >= 0
            ? this._advanceProgram(player, seconds)
            : this._advancePlayer(player, seconds);
      }
    }
    if (this._eventCount > 0) {
      this._report();
    }
    this._animators.words[0] = 0;
    this._controllers.words[0] = 0;
    this._animatorTargets = 0;
    this._controllerTargets = 0;
    this._followerCount = 0;
    this.count = playing.length;
    for (let i = 0; i < playing.length; ++i) {
      if (this._composeAgain(playing[i]) || this._composePlain(playing[i])) {
        continue;
      }
      this._compose(playing[i]);
      if (playing[i].isIdle) {
        // Evaluated once more, without what has ended.
        this._ended.push(playing[i]);
      }
    }
    this._evaluate();
    while (this._ended.length > 0) {
      const player = this._ended.pop();
      if (player.place !== 0) {
        this._sleep(player);
      }
    }
  }

  _evaluate() {
    const { _engine: engine, _animators: animators, _controllers: controllers } = this;
    if (this._animatorTargets > this._fewAnimatorTargets) {
      engine.updateAnimators(animators.words.buffer);
    } else {
      for (let i = 1; i <= animators.count; ++i) {
        engine.updateAnimator(animators.words[i]);
      }
    }
    for (let i = 0; i < this._followerCount; ++i) {
      this._followers[i].rig.follow();
    }
    if (this._controllerTargets > this._fewControllerTargets) {
      engine.updateAnimatorControllers(controllers.words.buffer);
    } else {
      const single = this._single;
      for (let i = 1; i <= controllers.count; ++i) {
        single[1] = controllers.words[i];
        engine.updateAnimatorControllers(single.buffer);
      }
    }
  }

  /**
   * To be called when the engine knows the tree of the scene. A binding keeps the top of the tree in which it was made: a
   * tree under no root, which the engine computes at once.
   */
  settleTree(root) {
    const unrooted = this._unrooted;
    for (let i = unrooted.length - 1; i >= 0; --i) {
      const player = unrooted[i];
      if (this._topOf(player) === root) {
        player.rig.bindAgain();
        unrooted[i] = unrooted[unrooted.length - 1];
        unrooted.pop();
      }
    }
  }

  _topOf(player) {
    const { parents } = this._blocks;
    let top = player.entity;
    while (parents[top] >= 0) {
      top = parents[top];
    }
    return top;
  }

  /** Returns whether there is nothing to advance. */
  _advancePlayer({ base, layers }, seconds) {
    let isStill = this._advanceTrack(base, seconds);
    for (let l = 0; l < layers.length; ++l) {
      const { at } = layers[l]._fader;
      isStill = isStill && this._numbers[at + kRate] === 0;
      this._advanceWeight(at, seconds);
      isStill = this._advanceTrack(layers[l]._track, seconds) && isStill;
    }
    return isStill;
  }

  _advanceTrack(track, seconds) {
    const { slots } = track;
    const numbers = this._numbers;
    let isStill = true;
    for (let i = 0; i < slots.length; ++i) {
      const { at, clip } = slots[i];
      isStill = isStill && numbers[at + kSpeed] === 0 && numbers[at + kRate] === 0;
      const event = numbers[at + kSpeed] === 0 ? kNoEvent : this._advanceTime(at, seconds);
      if (event !== kNoEvent) {
        this._note(track.owner, clip, event);
      }
      if (this._advanceWeight(at, seconds) && (numbers[at + kFlags] & kStops) !== 0) {
        this._remove(track, i--);
      }
    }
    return isStill;
  }

  /** The same by the program of its rig, which has the numbers of its slots and faders in the same order. */
  _advanceProgram(player, seconds) {
    const { code } = this._programs;
    const numbers = this._numbers;
    const first = player.program;
    const end = code[first + kEnd];
    let isStill = true;
    let isEnding = false;
    for (let p = code[first + kAdvancedAt]; p < end; ++p) {
      const at = code[p];
      if (numbers[at + kSpeed] !== 0) {
        isStill = false;
        const event = this._advanceTime(at, seconds);
        if (event !== kNoEvent) {
          const { track, clip } = this._slots[at / kSlot];
          this._note(track.owner, clip, event);
        }
      }
      if (numbers[at + kRate] !== 0) {
        isStill = false;
        const isDone = this._advanceWeight(at, seconds);
        isEnding = isEnding || (isDone && (numbers[at + kFlags] & kStops) !== 0);
      }
    }
    if (isEnding) {
      this._removeEnded(player);
    }
    return isStill;
  }

  /** Removes clips that were faded out. */
  _removeEnded({ base, layers }) {
    const numbers = this._numbers;
    for (let l = -1; l < layers.length; ++l) {
      const track = l < 0 ? base : layers[l]._track;
      for (let i = track.slots.length - 1; i >= 0; --i) {
        const { at } = track.slots[i];
        const isStopped = (numbers[at + kFlags] & kStops) !== 0;
        if (isStopped && numbers[at + kRate] === 0 && numbers[at + kWeight] === 0) {
          this._remove(track, i);
        }
      }
    }
  }

  /** Returns an event of the clip. */
  _advanceTime(at, seconds) {
    const numbers = this._numbers;
    const flags = numbers[at + kFlags];
    const duration = numbers[at + kDuration];
    const isLooping = (flags & kLoops) !== 0;
    // One without length has no loops, but an end.
    if ((flags & kEnded) !== 0 || (duration === 0 && isLooping)) {
      return kNoEvent;
    }
    const speed = numbers[at + kSpeed];
    let time = numbers[at + kTime] + seconds * speed;
    let event = kNoEvent;
    if (isLooping) {
      if (time >= duration || time < 0) {
        // What is beyond all numbers has no remainder.
        time = Number.isFinite(time) ? time % duration : 0;
        if (time < 0) {
          time += duration;
        }
        event = kLoopEvent;
      }
    } else if (speed < 0 ? time <= 0 : time >= duration) {
      time = speed < 0 ? 0 : duration;
      numbers[at + kFlags] = flags | kEnded;
      event = kEndEvent;
    }
    numbers[at + kTime] = time;
    return event;
  }

  /** Returns whether a fade has ended. */
  _advanceWeight(at, seconds) {
    const numbers = this._numbers;
    const rate = numbers[at + kRate];
    if (rate === 0) {
      return false;
    }
    const goal = numbers[at + kGoal];
    const weight = numbers[at + kWeight] + rate * seconds;
    const isDone = rate > 0 ? weight >= goal : weight <= goal;
    numbers[at + kWeight] = isDone ? goal : weight;
    if (isDone) {
      numbers[at + kRate] = 0;
    }
    return isDone;
  }

  /** Writes the pose of a player into its animator, its controller, or both, and lists them. */
  _compose(player) {
    this._collect(player);
    const pose = this._pose;
    const count = this._poseCount;
    let onAnimator = 0;
    for (let i = 0; i < count; ++i) {
      pose[i].isShown = true;
      onAnimator += pose[i].isOnAnimator ? 1 : 0;
    }
    const isLayered = this._measureLayers(player);
    const isBeyond = isLayered || count > kRecords;
    if (player.mode === kByAnimator && isBeyond) {
      player.mode = onAnimator > 1 ? kByBoth : kByController;
    } else if (player.mode === kByBoth && isBeyond) {
      const isSame = onAnimator === 0 || (onAnimator === 1 && !player.rig.isMixed);
      player.mode = isSame ? kByController : kByBoth;
    } else if (player.mode === kByBoth && !isBeyond) {
      player.mode = onAnimator === count ? kByAnimator : kByController;
    }
    if (player.mode === kByController && !isBeyond && count === 1) {
      player.mode = kByAnimator;
    }
    if (player.mode !== kByController) {
      this._writeAnimator(player, player.mode === kByAnimator);
    } else {
      for (let i = 0; i < count; ++i) {
        pose[i].isOnAnimator = false;
      }
    }
    if (player.mode !== kByAnimator) {
      this._writeRig(player);
    }
  }

  /**
   * The same in the most frequent case: one or two clips in full, without layers.
   * @returns {boolean} whether it was that
   */
  _composePlain(player) {
    if (player.mode !== kByAnimator || player.layers.length > 0 || player.held.length > 0) {
      return false;
    }
    const { slots, animator } = player;
    const count = slots.length;
    if (count === 0 || count > kRecords) {
      return false;
    }
    player.firstAt = slots[0].at;
    player.secondAt = count > 1 ? slots[1].at : -1;
    if (!this._writePlain(player)) {
      return false;
    }
    for (let i = 0; i < count; ++i) {
      slots[i].isShown = true;
      slots[i].isOnAnimator = true;
      animator.u32[i * kRecord + kHandleWord] = slots[i].handle;
    }
    player.program = kPlain;
    return true;
  }

  /** Writes and lists a player whose animator has the handles of its clips. Returns whether these weigh enough for that. */
  _writePlain(player) {
    const { firstAt, secondAt, f32 } = player;
    const numbers = this._numbers;
    const weight = numbers[firstAt + kWeight];
    const secondWeight = secondAt < 0 ? 0 : numbers[secondAt + kWeight];
    if (weight + secondWeight < kFull) {
      return false;
    }
    f32[kTimeWord] = numbers[firstAt + kTime] * numbers[firstAt + kFramesPerSecond];
    f32[kWeightWord] = weight;
    f32[kRecord + kWeightWord] = secondWeight;
    if (secondAt >= 0) {
      f32[kRecord + kTimeWord] = numbers[secondAt + kTime] * numbers[secondAt + kFramesPerSecond];
    }
    this._animators.append(player.id);
    this._animatorTargets += player.targetCount;
    return true;
  }

  /** Collects the slots of the base and their weights, which then add up to 1. */
  _collect(player) {
    const { base, held } = player;
    this._measure(base);
    const { sum } = base;
    if (sum >= kFull) {
      if (held.length > 0) {
        player.program = kNoProgram;
        this._giveSlots(held);
      }
    } else if (held.length === 0) {
      player.program = kNoProgram;
      const rest = this.takeSlot(player.known.restClip, player.known.rest.id);
      this._numbers[rest.at + kWeight] = 1;
      held.push(rest);
    }
    const numbers = this._numbers;
    const factor = sum >= kFull ? 1 / sum : 1;
    this._poseCount = 0;
    for (let i = 0; i < base.slots.length; ++i) {
      const slot = base.slots[i];
      const weight = numbers[slot.at + kWeight];
      if (weight > 0) {
        const place = this._append(slot);
        this._weights[place] = factor * weight;
      } else {
        // It plays on, but is not part of the pose: two others are still blended by the animator.
        slot.isOnAnimator = false;
      }
    }
    for (let i = 0; i < held.length; ++i) {
      const place = this._append(held[i]);
      this._weights[place] = (1 - sum) * numbers[held[i].at + kWeight];
    }
  }

  /** Returns its place in the pose, where its weight is to be written: as an argument the number could be allocated. */
  _append(slot) {
    const at = this._poseCount++;
    if (at === this._weights.length) {
      this._weights = grown(this._weights, 2 * at);
    }
    if (at === this._pose.length) {
      this._pose.push(slot);
    } else {
      this._pose[at] = slot;
    }
    return at;
  }

  /** Measures the layers of a player. Returns whether any changes the pose. */
  _measureLayers({ layers }) {
    let isAnyOn = false;
    for (let i = 0; i < layers.length; ++i) {
      const { _fader: fader, _track: track } = layers[i];
      this._measure(track);
      track.layerWeight = this._numbers[fader.at + kWeight];
      isAnyOn = isAnyOn || track.isOn;
    }
    return isAnyOn;
  }

  /** Writes the slots of the pose: all, or those that it blends already. */
  _writeAnimator(player, isAll) {
    const { u32, f32 } = player.animator;
    const numbers = this._numbers;
    let record = 0;
    for (let i = 0; i < this._poseCount; ++i) {
      const slot = this._pose[i];
      if (isAll || slot.isOnAnimator) {
        slot.isOnAnimator = true;
        u32[record + kHandleWord] = slot.handle;
        f32[record + kTimeWord] = numbers[slot.at + kTime] * numbers[slot.at + kFramesPerSecond];
        f32[record + kWeightWord] = this._weights[i];
        record += kRecord;
      }
    }
    if (record < kRecords * kRecord) {
      f32[record + kWeightWord] = 0;
    }
    this._animators.append(player.id);
    this._animatorTargets += player.targetCount;
  }

  /** Writes and lists a player of which the same clips are blended as in the last update. Returns whether they are. */
  _composeAgain(player) {
    const { program } = player;
    if (program === kPlain) {
      if (!this._writePlain(player)) {
        player.program = kNoProgram;
        return false;
      }
      return true;
    }
    if (player.mode !== kByController || program === kNoProgram) {
      return false;
    }
    if (!this._programs.check(this._numbers, player)) {
      return false;
    }
    this._programs.write(this._numbers, player);
    this._controllers.append(this._programs.code[program + kController]);
    this._controllerTargets += this._programs.code[program + kTargets];
    return true;
  }

  _writeRig(player) {
    if (player.rig === null) {
      player.rig = new Rig(this._engine, this._pool, this._programs, player);
      this._unrooted.push(player);
    }
    const { rig } = player;
    if (!rig.isCurrent) {
      rig.build();
    }
    if (player.program === kNoProgram) {
      rig.compile(this._numbers);
    } else {
      this._programs.writePose(player);
    }
    this._programs.check(this._numbers, player);
    rig.isMixed = this._programs.write(this._numbers, player);
    this._controllers.append(rig.id);
    this._controllerTargets += player.targetCount;
    if (player.mode === kByBoth) {
      const at = this._followerCount++;
      if (at === this._followers.length) {
        this._followers.push(player);
      } else {
        this._followers[at] = player;
      }
    }
  }

  _note(owner, clip, kind) {
    // An owner that nobody listens to has no events.
    const call = kind === kLoopEvent ? owner.onLoop : owner.onEnd;
    if (call === null || call === undefined) {
      return;
    }
    const at = 3 * this._eventCount++;
    if (at === this._events.length) {
      this._events.push(owner, clip, kind);
    } else {
      this._events[at] = owner;
      this._events[at + 1] = clip;
      this._events[at + 2] = kind;
    }
  }

  _report() {
    this.isReporting = true;
    try {
      this._callListeners();
    } finally {
      this.isReporting = false;
    }
  }

  _callListeners() {
    const count = this._eventCount;
    this._eventCount = 0;
    const events = this._events;
    for (let i = 0; i < 3 * count; i += 3) {
      const owner = events[i];
      const clip = events[i + 1];
      const call = events[i + 2] === kLoopEvent ? owner.onLoop : owner.onEnd;
      events[i] = null;
      events[i + 1] = null;
      if (call !== null && call !== undefined && !owner.isDisposed) {
        if (typeof call !== 'function') {
          failListener(owner, events[i + 2], call);
        }
        call(owner, clip);
      }
    }
  }
}

module.exports = { Player, Players };
