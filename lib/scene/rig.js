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
  controllerLayer,
  handles,
  keptModes,
  removedModes,
} = require('../layout');
const { withHandle } = require('./blocks');
const { stateWords } = require('./programs');

// Words of a controller's block.
const kLayer = controllerLayer.size / 4;
const kBlendMode = (controller.layers + controllerLayer.blendMode) / 4;
const kFirstState = (controller.layers + controllerLayer.firstState) / 4;

const { kClipWords, kClipHandle, kClipWeight, kReferenceClip, kReferenceTime } = stateWords;
const { kStateWeight, kNextState } = stateWords;

/** Clips of the smallest state. */
const kLeastClips = 2;

/** Words of the lists of the smallest binding. */
const kLeastWords = 64;

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
  constructor(engine, pool, programs, player) {
    this._engine = engine;
    this._programs = programs;
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
    /** Its run in the programs. */
    this._run = programs.take();
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
    /** Handle of the controller. */
    this.id = 0;
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
    this.id = this._controller.id;
    this._words = this._controller.u32;
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
    this._programs.give(this._run);
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
      const binding = this._engine.createAnimationClipBinding(
        lists.buffer,
        0,
        bound.length,
        this._room,
        addedModes.take
      );
      this._binding = withHandle(binding, 'a binding');
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

  /** Compiles the program for the clips that play now, and those that are held. */
  compile(numbers) {
    const { _areas: areas, _overrides: overrides, _additives: additives } = this;
    this._programs.compile(numbers, this._player, this._run, areas, overrides, additives);
    this._programs.setController(this._run, this._controller);
    for (let i = 0; i < areas.length; ++i) {
      this.openState(i, 1);
    }
  }

  /** Lets an area have a state of so many clips at least, none of which weighs. */
  openState(area, count) {
    const states = this._states[area];
    let room = states.length > 0 ? states[0].clipCount : kLeastClips;
    while (room < count) {
      room *= 2;
    }
    if (states.length > 0 && states[0].clipCount < room) {
      this._pool.giveState(states.pop());
    }
    if (states.length === 0) {
      states.push(this._pool.takeState(room));
    }
    const [{ f32 }] = states;
    f32[kStateWeight] = 1;
    for (let i = 0; i < room; ++i) {
      f32[i * kClipWords + kClipWeight] = 0;
    }
    this._link(area, 1);
    this._programs.setState(this._run, area, f32, room);
  }

  /** Sets the blend mode of a layer of the controller. */
  setMode(layer, mode) {
    this._words[layer * kLayer + kBlendMode] = mode;
  }

  /** Sets a clip of the state of an area to that of a slot. */
  setClip(area, clip, slot) {
    this._states[area][0].u32[clip * kClipWords + kClipHandle] = this._handleOf(area, slot.index);
  }

  /**
   * Writes what does not change of the states of an additive layer, one for each of its clips. Returns whether it has
   * anything to move.
   */
  openAdditive(i) {
    const layer = this._areas.length + i;
    const { _reference: reference, _track: track } = this._additives[i];
    this._chooseTargets(i, layer);
    if (this._sets[layer].targets.length === 0) {
      return false;
    }
    const states = this._states[layer];
    track.slots.forEach((slot, k) => {
      if (k === states.length) {
        states.push(this._pool.takeState(1));
      }
      const { u32, f32 } = states[k];
      u32[kClipHandle] = this._handleOf(layer, slot.index);
      f32[kClipWeight] = 1;
      f32[kReferenceTime] = reference.seconds * (reference.rate || slot.clip.framesPerSecond);
      u32[kReferenceClip] = this._handleOf(layer, reference.isOwn ? slot.index : reference.index);
      this._programs.setAddedState(this._run, i, k, f32);
    });
    this._link(layer, track.slots.length);
    return true;
  }

  /** Binds what is not bound yet. */
  settle() {
    if (!this._isBound) {
      this._updateBinding();
    }
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
