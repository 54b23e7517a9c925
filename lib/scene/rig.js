'use strict';
// What blends the pose of a character beyond two clips: a controller with its binding and states, taken from the pools
// of the scene.
//
// An override layer of a controller blends with the rest pose, and replaces what the layers below have: so each group of
// nodes that the same layers of the character move (an area) has an override layer of its own, with a state of the clips
// of all of these layers, by their shares. Their weights add up to 1. Additive layers follow. Instead of masks, layers
// have the parts of clips that move their nodes alone, see parts.js.
const {
  addedModes,
  controller,
  controllerClip,
  controllerLayer,
  controllerState,
  handles,
  keptModes,
  layerBlendModes,
  removedModes,
} = require('../layout');
const { grown } = require('./blocks');
const { slotNumbers } = require('./slots');

const { kTime, kWeight, kFramesPerSecond } = slotNumbers;

// Words of a controller's block.
const kLayer = controllerLayer.size / 4;
const kBlendMode = (controller.layers + controllerLayer.blendMode) / 4;
const kLayerWeight = (controller.layers + controllerLayer.weight) / 4;
const kFirstState = (controller.layers + controllerLayer.firstState) / 4;

// Words of a state, and of its first clip.
const kClipWords = controllerClip.size / 4;
const kClip = controllerState.clips / 4;
const kStateWeight = controllerState.weight / 4;
const kNextState = controllerState.nextState / 4;
const kClipHandle = kClip + controllerClip.clipHandle / 4;
const kClipTime = kClip + controllerClip.time / 4;
const kClipWeight = kClip + controllerClip.weight / 4;
const kReferenceClip = kClip + controllerClip.referenceClip / 4;
const kReferenceTime = kClip + controllerClip.referenceTime / 4;

/** Clips of the smallest state. */
const kLeastClips = 2;

/** Words of the lists of the smallest binding. */
const kLeastWords = 64;

/** Shares below do not show in a float. */
const kLeastShare = 1e-8;
const kFullShare = 1 - 1e-6;
const kOff = layerBlendModes.off;

// The blend that is put together: slots and their shares.
const blend = [];
let shares = new Float64Array(16);
let blended = 0;

/** Returns the place of the share, for the caller to write: numbers as arguments could allocate. */
function append(slot) {
  if (blended === blend.length) {
    blend.push(slot);
  } else {
    blend[blended] = slot;
  }
  if (blended === shares.length) {
    shares = grown(shares, 2 * blended);
  }
  return blended++;
}

/** Nodes that the same override layers move. */
class Area {
  constructor(includes, members) {
    /** By override layer: whether it moves them. */
    this.includes = includes;
    /** By target: whether it is one of them. */
    this.members = members;
  }
}

/** Areas of the targets: those that at least one target is in. */
function findAreas(overrides, targetCount) {
  const areas = new Map();
  for (let target = 0; target < targetCount; ++target) {
    const includes = overrides.map(({ _mask }) => _mask === null || _mask[target] === 1);
    const key = includes.join();
    if (!areas.has(key)) {
      areas.set(key, new Area(includes, new Uint8Array(targetCount)));
    }
    areas.get(key).members[target] = 1;
  }
  return Array.from(areas.values());
}

/** A controller for the layers of a player. */
class Rig {
  constructor(engine, pool, player) {
    this._engine = engine;
    this._player = player;
    this._pool = pool;
    this._parts = player.known.parts;
    this._binding = null;
    /** Words of lists that the binding was made for. */
    this._room = 0;
    /** Lists of the binding. */
    this._lists = null;
    /** Parts of clips that are bound, or will be. */
    this._bound = [];
    this._isBound = false;
    this._controller = null;
    this._words = null;
    this._floats = null;
    /** By layer of the controller. */
    this._states = [];
    this._sets = [];
    /** By layer, then by clip, from the one at rest: handles of parts that are bound, or 0. */
    this._handles = [];
    this._taken = new Set();
    /** By additive layer: index of the clip whose nodes alone it moves, or -1 for its mask. */
    this._lone = [];
    this._overrides = [];
    this._additives = [];
    this._areas = [];
    /**
     * Whether several clips were blended with the pose of the animator. Their sum is normalised before that, so that it
     * is not the same as a sum of all.
     */
    this.isMixed = false;
    /** Whether it has been built for the layers that the player has. */
    this.isCurrent = false;
  }

  get id() {
    return this._controller.id;
  }

  /** Finds the areas, and takes a controller with a layer for each, and for each additive layer. */
  build() {
    const { layers, targets } = this._player;
    const before = this._taken;
    this._taken = new Set();
    this._giveController();
    this._overrides = layers.filter(({ isAdditive }) => !isAdditive);
    this._additives = layers.filter(({ isAdditive }) => isAdditive);
    const areas = findAreas(this._overrides, targets.length);
    if (areas.length !== 1) {
      // All targets together, for as long as no override layer is on.
      areas.unshift(
        new Area(
          this._overrides.map(() => false),
          new Uint8Array(targets.length).fill(1)
        )
      );
    }
    this._areas = areas;
    const count = areas.length + this._additives.length;
    this._controller = this._pool.takeController(count);
    this._words = this._controller.u32;
    this._floats = this._controller.f32;
    this._states = Array.from({ length: count }, () => []);
    this._bound = [];
    this._isBound = false;
    const { length } = this._parts.clips;
    this._handles = Array.from({ length: count }, () => new Uint32Array(length));
    this._sets = new Array(count).fill(null);
    areas.forEach(({ members }, i) => this._setTargets(i, members));
    this._lone = this._additives.map(() => -2);
    if (this._binding !== null) {
      this._controller.setBindingHandle(this._binding.id);
    }
    before.forEach((set) => this._parts.give(set));
    this.isCurrent = true;
  }

  /** Lets a layer move some targets alone. */
  _setTargets(layer, members) {
    const set = this._parts.take(members);
    if (this._taken.has(set)) {
      this._parts.give(set);
    }
    this._taken.add(set);
    this._sets[layer] = set;
    this._handles[layer].fill(0);
  }

  _giveController() {
    if (this._controller === null) {
      return;
    }
    this._states.forEach((states) => states.forEach((state) => this._pool.giveState(state)));
    this._states = [];
    this._pool.giveController(this._controller);
    this._controller = null;
  }

  /** Gives all back. */
  give(pool) {
    this._giveController();
    this._taken.forEach((set) => this._parts.give(set));
    this._taken.clear();
    if (this._binding !== null) {
      pool.giveBinding(this._room, this._binding);
      this._binding = null;
    }
  }

  /** Handle of the part of a clip that a layer moves; the clip by its index, or -1 for that at rest. */
  _handleOf(layer, index) {
    const handle = this._handles[layer][index + 1];
    return handle !== 0 ? handle : this._bind(layer, index);
  }

  _bind(layer, index) {
    const part = this._sets[layer].part(index);
    if (!this._bound.includes(part)) {
      this._bound.push(part);
      this._isBound = false;
    }
    this._handles[layer][index + 1] = part.id;
    return part.id;
  }

  /** Binds the parts of clips that the states have. */
  _updateBinding() {
    const { _bound: bound, _player: player } = this;
    const words = bound.reduce((sum, { set }) => sum + 1 + set.targets.length, 0);
    let isPooled = false;
    if (this._binding === null || words > this._room) {
      if (this._binding !== null) {
        this._pool.giveBinding(this._room, this._binding);
      }
      for (this._room = kLeastWords; this._room < words; ) {
        this._room *= 2;
      }
      // A list has two words at least, so that there are at most half as many clips.
      this._lists = new Uint32Array(1.5 * this._room);
      this._binding = this._pool.takeBinding(this._room);
      isPooled = this._binding !== null;
    }
    const { _lists: lists } = this;
    let at = bound.length;
    bound.forEach(({ id, set }, i) => {
      lists[i] = id;
      lists[at++] = set.targets.length;
      for (let k = 0; k < set.targets.length; ++k) {
        lists[at++] = player.targets[set.targets[k]];
      }
    });
    if (this._binding === null) {
      this._binding = this._engine.createAnimationClipBinding(
        lists.buffer,
        0,
        bound.length,
        this._room,
        addedModes.take
      );
    } else {
      this._readLists(isPooled ? keptModes.retake : keptModes.keep);
    }
    this._controller.setBindingHandle(this._binding.id);
    this._isBound = true;
  }

  _readLists(keptMode) {
    this._binding.updateBinding(
      this._lists.buffer,
      0,
      this._bound.length,
      this._room,
      removedModes.forget,
      keptMode,
      addedModes.take
    );
  }

  /** Lets the binding find the top of the tree. */
  bindAgain() {
    this._readLists(keptModes.keep);
  }

  /** Makes the pose that the entities have now the one with which override layers blend. */
  follow() {
    this._readLists(keptModes.retake);
  }

  /**
   * Writes layers and states for a pose, and for the layers of the player on top of it.
   * @param {Float64Array} numbers of slots
   * @param {Slot[]} pose
   * @param {Float64Array} weights of the pose, which add up to 1
   * @param {number} count
   */
  write(numbers, pose, weights, count) {
    const { _areas: areas, _overrides: overrides, _additives: additives } = this;
    this.isMixed = false;
    let isOverridden = false;
    for (let i = 0; i < overrides.length; ++i) {
      isOverridden = isOverridden || overrides[i]._track.isOn;
    }
    for (let i = 0; i < areas.length; ++i) {
      if (areas.length === 1 || (i === 0) !== isOverridden) {
        this._blendArea(numbers, areas[i], pose, weights, count);
        this._writeArea(numbers, i);
      } else {
        this._words[i * kLayer + kBlendMode] = kOff;
      }
    }
    for (let i = 0; i < additives.length; ++i) {
      this._writeAdditive(numbers, i, areas.length + i);
    }
    if (!this._isBound) {
      this._updateBinding();
    }
  }

  /** Puts together the clips of an area, from the base up. */
  _blendArea(numbers, { includes }, pose, weights, count) {
    blended = 0;
    for (let i = 0; i < count; ++i) {
      const at = append(pose[i]);
      shares[at] = weights[i];
    }
    const { _overrides: overrides } = this;
    for (let l = 0; l < overrides.length; ++l) {
      if (includes[l] && overrides[l]._track.isOn) {
        const { slots, sum, layerWeight } = overrides[l]._track;
        const below = 1 - layerWeight * Math.min(1, sum);
        for (let i = 0; i < blended; ++i) {
          shares[i] *= below;
        }
        const factor = layerWeight / Math.max(1, sum);
        for (let i = 0; i < slots.length; ++i) {
          const at = append(slots[i]);
          shares[at] = factor * numbers[slots[i].at + kWeight];
        }
      }
    }
  }

  /**
   * Writes the state of an area. What the animator blends is the rest pose, with which the layer blends by its weight;
   * all else are clips of the state.
   */
  _writeArea(numbers, layer) {
    let total = 0;
    let count = 0;
    let last = -1;
    let isFollower = false;
    for (let i = 0; i < blended; ++i) {
      if (blend[i].isOnAnimator) {
        isFollower = true;
      } else if (shares[i] > kLeastShare) {
        total += shares[i];
        ++count;
        last = last < 0 || shares[i] > shares[last] ? i : last;
      }
    }
    this._words[layer * kLayer + kBlendMode] = layerBlendModes.override;
    this._floats[layer * kLayer + kLayerWeight] = isFollower ? Math.min(1, total) : 1;
    const state = this._stateOf(layer, Math.max(1, count));
    const { f32, clipCount } = state;
    f32[kStateWeight] = 1;
    // The largest is the last one: it makes the sum 1 exactly, as it is added in single precision. Less would be
    // completed with an identity.
    let clips = 0;
    let sum = 0;
    for (let i = 0; i < blended; ++i) {
      if (i !== last && !blend[i].isOnAnimator && shares[i] > kLeastShare) {
        const at = clips++ * kClipWords;
        this._writeClip(numbers, layer, state, at, blend[i]);
        f32[at + kClipWeight] = shares[i] / total;
        sum = Math.fround(sum + f32[at + kClipWeight]);
      }
    }
    // Nothing but the rest pose, by any clip, where there is no last one: an additive layer needs something to add to.
    const at = clips++ * kClipWords;
    this._writeClip(numbers, layer, state, at, blend[Math.max(0, last)]);
    f32[at + kClipWeight] = 1 - sum;
    this.isMixed = this.isMixed || (clips > 1 && isFollower && total < kFullShare);
    for (let i = clips; i < clipCount; ++i) {
      f32[i * kClipWords + kClipWeight] = 0;
    }
    this._link(layer, 1);
  }

  _writeAdditive(numbers, i, layer) {
    const additive = this._additives[i];
    const { _reference: reference } = additive;
    const { slots } = additive._track;
    const isOn = additive._track.isOn;
    if (isOn) {
      this._chooseTargets(i, layer);
    }
    if (!isOn || this._sets[layer].targets.length === 0) {
      this._words[layer * kLayer + kBlendMode] = kOff;
      return;
    }
    for (let k = 0; k < slots.length; ++k) {
      const slot = slots[k];
      const state = this._addedState(layer, k);
      this._writeClip(numbers, layer, state, 0, slot);
      const { u32, f32 } = state;
      f32[kStateWeight] = numbers[slot.at + kWeight];
      f32[kClipWeight] = 1;
      f32[kReferenceTime] = reference.seconds * (reference.rate || slot.clip.framesPerSecond);
      u32[kReferenceClip] = this._handleOf(layer, reference.isOwn ? slot.index : reference.index);
    }
    this._words[layer * kLayer + kBlendMode] = layerBlendModes.additive;
    this._floats[layer * kLayer + kLayerWeight] = additive._track.layerWeight;
    this._link(layer, slots.length);
  }

  /**
   * A clip that is its own reference adds nothing to nodes that it does not move. With several clips all have to have
   * the same nodes, since what one lacks would count as less than no difference.
   */
  _chooseTargets(i, layer) {
    const { _mask: mask, _reference: reference, _track: track } = this._additives[i];
    const lone = reference.isOwn && track.slots.length === 1 ? track.slots[0].index : -1;
    if (this._lone[i] === lone) {
      return;
    }
    this._lone[i] = lone;
    const moved = lone < 0 ? null : this._parts.movedBy(lone);
    const members = new Uint8Array(this._parts.targetCount);
    for (let target = 0; target < members.length; ++target) {
      const isMasked = mask === null || mask[target] === 1;
      members[target] = isMasked && (moved === null || moved[target] === 1) ? 1 : 0;
    }
    this._setTargets(layer, members);
  }

  /** Writes clip and time into a state. */
  _writeClip(numbers, layer, { u32, f32 }, at, slot) {
    u32[at + kClipHandle] = this._handleOf(layer, slot.index);
    f32[at + kClipTime] = numbers[slot.at + kTime] * numbers[slot.at + kFramesPerSecond];
  }

  /** The only state of a layer, for so many clips. */
  _stateOf(layer, count) {
    const states = this._states[layer];
    if (states.length > 0 && states[0].clipCount >= count) {
      return states[0];
    }
    if (states.length > 0) {
      this._pool.giveState(states.pop());
    }
    let room = kLeastClips;
    while (room < count) {
      room *= 2;
    }
    states.push(this._pool.takeState(room));
    return states[0];
  }

  /** State k of an additive layer, of one clip. */
  _addedState(layer, k) {
    const states = this._states[layer];
    if (k === states.length) {
      states.push(this._pool.takeState(1));
    }
    return states[k];
  }

  /** Links the first states of a layer. */
  _link(layer, count) {
    const states = this._states[layer];
    for (let i = 0; i < count; ++i) {
      states[i].u32[kNextState] = i + 1 < count ? states[i + 1].id : handles.none;
    }
    this._words[layer * kLayer + kFirstState] = states[0].id;
  }
}

module.exports = { Rig };
