'use strict';
// What blends the pose of a character beyond two clips: a controller with its binding and states, taken from the pools
// of the scene.
//
// An override layer of a controller blends with the rest pose, and replaces what the layers below have: so each group of
// nodes that the same layers of the character move (an area) has an override layer of its own, whose states are the
// clips of all of these layers, by their shares. Their weights add up to 1. Additive layers follow.
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
const { MaskView } = require('../view-lists');
const { grown } = require('./blocks');
const { slotNumbers } = require('./slots');

const { kTime, kWeight, kFramesPerSecond, kSum, kLayerWeight: kTrackWeight } = slotNumbers;

// Words of a controller's block.
const kLayer = controllerLayer.size / 4;
const kBlendMode = (controller.layers + controllerLayer.blendMode) / 4;
const kLayerWeight = (controller.layers + controllerLayer.weight) / 4;
const kFirstState = (controller.layers + controllerLayer.firstState) / 4;

// Words of a state with one clip.
const kClip = controllerState.clips / 4;
const kStateWeight = controllerState.weight / 4;
const kNextState = controllerState.nextState / 4;
const kClipHandle = kClip + controllerClip.clipHandle / 4;
const kClipTime = kClip + controllerClip.time / 4;
const kClipWeight = kClip + controllerClip.weight / 4;
const kReferenceClip = kClip + controllerClip.referenceClip / 4;
const kReferenceTime = kClip + controllerClip.referenceTime / 4;

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
    this._player = player;
    this._pool = pool;
    const { lists } = player.known;
    this._fillLists();
    const pooled = pool.takeBinding(lists.targetWords);
    if (pooled === null) {
      this._binding = lists.createBinding(engine);
    } else {
      this._binding = pooled;
      lists.updateBinding(pooled, removedModes.forget, keptModes.retake, addedModes.take);
    }
    this._controller = null;
    this._words = null;
    this._floats = null;
    /** By layer of the controller. */
    this._states = [];
    this._masked = [];
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

  /** Names the entities of the player in the lists that all characters of the model share. */
  _fillLists() {
    const { lists } = this._player.known;
    const { targets } = this._player;
    for (let i = 0; i < lists.clipCount; ++i) {
      lists.u32.set(targets, lists.clipCount + i * (1 + targets.length) + 1);
    }
  }

  /** Finds the areas, and takes a controller with a layer for each, and for each additive layer. */
  build() {
    const { layers, targets } = this._player;
    this._giveController();
    this._overrides = layers.filter(({ isAdditive }) => !isAdditive);
    this._additives = layers.filter(({ isAdditive }) => isAdditive);
    const areas = findAreas(this._overrides, targets.length);
    if (areas.length !== 1) {
      // All targets together, for as long as no override layer is on.
      areas.unshift(
        new Area(
          this._overrides.map(() => false),
          null
        )
      );
    }
    this._areas = areas;
    const count = areas.length + this._additives.length;
    this._controller = this._pool.takeController(count);
    this._controller.setBindingHandle(this._binding.id);
    this._words = this._controller.u32;
    this._floats = this._controller.f32;
    this._states = Array.from({ length: count }, () => []);
    for (let i = 1; i < areas.length; ++i) {
      this._setMask(i, areas[i].members);
    }
    this._additives.forEach(({ _mask }, i) => {
      if (_mask !== null) {
        this._setMask(areas.length + i, _mask);
      }
    });
    this.isCurrent = true;
  }

  _setMask(layer, members) {
    const { targets } = this._player;
    const mask = new MaskView(targets.length);
    targets.forEach((handle, i) => mask.set(i, handle, members[i]));
    mask.apply(this._controller.object, layer);
    this._masked.push(layer);
  }

  _giveController() {
    if (this._controller === null) {
      return;
    }
    const none = new MaskView(0);
    this._masked.forEach((layer) => none.apply(this._controller.object, layer));
    this._masked = [];
    this._states.forEach((states) => states.forEach((state) => this._pool.giveState(state)));
    this._states = [];
    this._pool.giveController(this._controller);
    this._controller = null;
  }

  /** Gives all back. */
  give(pool) {
    this._giveController();
    pool.giveBinding(this._player.known.lists.targetWords, this._binding);
  }

  /** Lets the binding find the top of the tree. */
  bindAgain() {
    this._fillLists();
    const { lists } = this._player.known;
    lists.updateBinding(this._binding, removedModes.forget, keptModes.keep, addedModes.take);
  }

  /** Makes the pose that the entities have now the one with which override layers blend. */
  follow() {
    this._fillLists();
    const { buffer, byteOffset, clipCount, targetWords } = this._player.known.lists;
    this._binding.updateBinding(
      buffer,
      byteOffset,
      clipCount,
      targetWords,
      removedModes.forget,
      keptModes.retake,
      addedModes.take
    );
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
      this._writeAdditive(numbers, additives[i], areas.length + i);
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
        const { slots, now } = overrides[l]._track;
        const below = 1 - now[kTrackWeight] * Math.min(1, now[kSum]);
        for (let i = 0; i < blended; ++i) {
          shares[i] *= below;
        }
        const factor = now[kTrackWeight] / Math.max(1, now[kSum]);
        for (let i = 0; i < slots.length; ++i) {
          const at = append(slots[i]);
          shares[at] = factor * numbers[slots[i].at + kWeight];
        }
      }
    }
  }

  /**
   * Writes the states of an area. What the animator blends is the rest pose, with which the layer blends by its weight;
   * all else are states.
   */
  _writeArea(numbers, layer) {
    let total = 0;
    let last = -1;
    let isFollower = false;
    for (let i = 0; i < blended; ++i) {
      if (blend[i].isOnAnimator) {
        isFollower = true;
      } else if (shares[i] > kLeastShare) {
        total += shares[i];
        last = last < 0 || shares[i] > shares[last] ? i : last;
      }
    }
    this._words[layer * kLayer + kBlendMode] = layerBlendModes.override;
    this._floats[layer * kLayer + kLayerWeight] = isFollower ? Math.min(1, total) : 1;
    if (last < 0) {
      // Nothing but the rest pose, by any clip: an additive layer needs something to add to.
      this._writeState(numbers, layer, 0, blend[0])[kStateWeight] = 1;
      this._link(layer, 1);
      return;
    }
    // The largest is the last one: it makes the sum 1 exactly, as it is added in single precision. Less would be
    // completed with an identity.
    let states = 0;
    let sum = 0;
    for (let i = 0; i < blended; ++i) {
      if (i !== last && !blend[i].isOnAnimator && shares[i] > kLeastShare) {
        const floats = this._writeState(numbers, layer, states++, blend[i]);
        floats[kStateWeight] = shares[i] / total;
        sum = Math.fround(sum + floats[kStateWeight]);
      }
    }
    this._writeState(numbers, layer, states++, blend[last])[kStateWeight] = 1 - sum;
    this.isMixed = this.isMixed || (states > 1 && isFollower && total < kFullShare);
    this._link(layer, states);
  }

  _writeAdditive(numbers, additive, layer) {
    if (!additive._track.isOn) {
      this._words[layer * kLayer + kBlendMode] = kOff;
      return;
    }
    const { _reference: reference } = additive;
    const { slots, now } = additive._track;
    for (let i = 0; i < slots.length; ++i) {
      const { at, clip, handle } = slots[i];
      const floats = this._writeState(numbers, layer, i, slots[i]);
      floats[kStateWeight] = numbers[at + kWeight];
      floats[kReferenceTime] = reference.seconds * (reference.rate || clip.framesPerSecond);
      this._states[layer][i].u32[kReferenceClip] = reference.handle || handle;
    }
    this._words[layer * kLayer + kBlendMode] = layerBlendModes.additive;
    this._floats[layer * kLayer + kLayerWeight] = now[kTrackWeight];
    this._link(layer, slots.length);
  }

  /** Writes clip and time of a state, and returns its block. */
  _writeState(numbers, layer, i, { at, handle }) {
    const states = this._states[layer];
    if (i === states.length) {
      states.push(this._pool.takeState());
    }
    const { u32, f32 } = states[i];
    u32[kClipHandle] = handle;
    f32[kClipTime] = numbers[at + kTime] * numbers[at + kFramesPerSecond];
    f32[kClipWeight] = 1;
    return f32;
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
