'use strict';
// Slots: clips that play, with times, speeds and weights, and tracks of them. The numbers of all slots of a scene are in
// one array, in double precision.

const slotNumbers = Object.freeze({
  kTime: 0,
  kSpeed: 1,
  kWeight: 2,
  kGoal: 3,
  /** Change of the weight towards its goal, a second. */
  kRate: 4,
  kDuration: 5,
  kFramesPerSecond: 6,
  kFlags: 7,
  /** Numbers of a slot. */
  kSlot: 8,
});

/** A clip that plays. Its numbers are in those of all slots, from `at`. */
class Slot {
  constructor(at) {
    this.at = at;
    /** Of the clip in its model. */
    this.index = -1;
    this.clip = null;
    /** The track in which it plays, or null. */
    this.track = null;
    /** Handle of the clip. */
    this.handle = 0;
    /** Whether it was part of a pose. */
    this.isShown = false;
    /** Whether the animator blends it. */
    this.isOnAnimator = false;
  }
}

/**
 * Where the numbers of a clip begin that an owner of a track plays, by the index of the clip; or -1. Of two clips, the owner
 * has them itself: setters of many characters in each frame read little else.
 */
function numberAt(owner, index) {
  if (index === owner._firstClip) {
    return owner._firstAt;
  }
  if (index === owner._secondClip) {
    return owner._secondAt;
  }
  const slots = owner._slots;
  for (let i = 2; i < slots.length; ++i) {
    if (slots[i].index === index) {
      return slots[i].at;
    }
  }
  return -1;
}

/** Lets the owner of a track have the first two of its clips. */
function noteClips(owner, slots) {
  owner._firstClip = slots.length > 0 ? slots[0].index : -1;
  owner._firstAt = slots.length > 0 ? slots[0].at : -1;
  owner._secondClip = slots.length > 1 ? slots[1].index : -1;
  owner._secondAt = slots.length > 1 ? slots[1].at : -1;
}

/** The slots of what is disposed of, or has no clips. */
const kNoSlots = Object.freeze([]);

/** Clips that play together. */
class Track {
  constructor(player) {
    this.player = player;
    /** The character or layer, for events. */
    this.owner = null;
    /** Always the same array: characters and players refer to it as well. */
    this.slots = [];
    // In the update that runs. They begin as doubles, so that writing them does not allocate.
    /** Sum of the weights of its slots. */
    this.sum = 0.5;
    /** Weight of the layer. */
    this.layerWeight = 0.5;
  }

  /** Whether the layer changes the pose. */
  get isOn() {
    return this.sum > 0 && this.layerWeight > 0;
  }

  /** The slot of a clip, or null. */
  slotOf(clip) {
    const { slots } = this;
    for (let i = 0; i < slots.length; ++i) {
      if (slots[i].clip === clip) {
        return slots[i];
      }
    }
    return null;
  }
}

module.exports = { Slot, Track, kNoSlots, noteClips, numberAt, slotNumbers };
