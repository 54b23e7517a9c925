'use strict';
// Parts of clips: the curves of some targets alone, for layers that move no others. Controllers sample all targets of a
// clip, whatever their masks, so that it is parts that make a layer cost only as much as what it moves. Parts of a model
// are made at first use, once for all characters in a scene.
const { clip, clipCurve, clipHeader, clipKey, dataModelKinds } = require('../layout');
const { withHandle } = require('./blocks');

/** Sets that are kept for the next character though none uses them. */
const kKeptSets = 16;

/** A clip of an engine. */
function makeClip(engine, bytes) {
  return withHandle(engine.createDataModel(dataModelKinds.clip, bytes), 'a clip');
}

/** Bytes of a clip with the curves of some targets. `places`: by target, its number in the part, or -1. */
function cutClip(bytes, places) {
  const view = new DataView(bytes);
  const curveCount = view.getUint32(clipHeader.curveCount, true);
  const kept = [];
  let keyCount = 0;
  for (let i = 0, key = clip.keys(curveCount); i < curveCount; ++i) {
    const record = clip.curves + i * clipCurve.size;
    const count = view.getUint32(record + clipCurve.keyCount, true);
    const place = places[view.getUint32(record + clipCurve.targetIndex, true)];
    if (place >= 0) {
      kept.push({ record, key, count, place });
      keyCount += count;
    }
    key += count * clipKey.size;
  }
  const part = new Uint8Array(clip.bytes(kept.length, keyCount));
  const partView = new DataView(part.buffer);
  const whole = new Uint8Array(bytes);
  part.set(whole.subarray(0, clip.curves));
  partView.setUint32(clipHeader.keyDataOffset, clip.keys(kept.length), true);
  partView.setUint32(clipHeader.curveCount, kept.length, true);
  let next = clip.keys(kept.length);
  kept.forEach(({ record, key, count, place }, i) => {
    const at = clip.curves + i * clipCurve.size;
    part.set(whole.subarray(record, record + clipCurve.size), at);
    partView.setUint32(at + clipCurve.targetIndex, place, true);
    part.set(whole.subarray(key, key + count * clipKey.size), next);
    next += count * clipKey.size;
  });
  return part.buffer;
}

/** By target: 1 where one of its curves is not the same at all times. */
function findMoved(bytes, targetCount) {
  const view = new DataView(bytes);
  const moved = new Uint8Array(targetCount);
  const curveCount = view.getUint32(clipHeader.curveCount, true);
  for (let i = 0, key = clip.keys(curveCount); i < curveCount; ++i) {
    const record = clip.curves + i * clipCurve.size;
    const end = key + view.getUint32(record + clipCurve.keyCount, true) * clipKey.size;
    const first = view.getFloat32(key + clipKey.value, true);
    for (; key < end; key += clipKey.size) {
      const isSame =
        view.getFloat32(key + clipKey.value, true) === first &&
        view.getFloat32(key + clipKey.inTangent, true) === 0 &&
        view.getFloat32(key + clipKey.outTangent, true) === 0;
      if (!isSame) {
        moved[view.getUint32(record + clipCurve.targetIndex, true)] = 1;
      }
    }
  }
  return moved;
}

/** A part of a clip, or a whole one. */
class ClipPart {
  constructor(set, object) {
    this.set = set;
    this.object = object;
    /** Handle of the clip. */
    this.id = object.id;
  }
}

/** Targets of a model that are moved together. */
class TargetSet {
  constructor(parts, key, members) {
    this._parts = parts;
    this.key = key;
    /** Their numbers among the targets of the model. */
    this.targets = Uint32Array.from(members.keys()).filter((target) => members[target] === 1);
    this._places = new Int32Array(members.length).fill(-1);
    this.targets.forEach((target, place) => {
      this._places[target] = place;
    });
    /** By clip, from the one at rest. */
    this._clips = [];
    /** Rigs that use it. */
    this.users = 0;
  }

  /** The part of a clip by its index, of the clip at rest for -1. */
  part(index) {
    const at = index + 1;
    if (this._clips[at] === undefined) {
      const { engine, wholes, clips } = this._parts;
      const isWhole = this.targets.length === this._places.length;
      const object = isWhole
        ? wholes[at]
        : makeClip(engine, cutClip(clips[at].bytes, this._places));
      this._clips[at] = new ClipPart(this, object);
    }
    return this._clips[at];
  }
}

/** Parts of the clips of a model in a scene. */
class ClipParts {
  /**
   * @param {Engine} engine
   * @param {ModelClip[]} clips from the one at rest
   * @param {Object[]} wholes what the engine has of them
   * @param {number} targetCount
   */
  constructor(engine, clips, wholes, targetCount) {
    this.engine = engine;
    this.clips = clips;
    this.wholes = wholes;
    this.targetCount = targetCount;
    this._sets = new Map();
    this._moved = [];
  }

  /** The set of some targets, for one more user. */
  take(members) {
    const key = members.join('');
    let set = this._sets.get(key);
    if (set === undefined) {
      set = new TargetSet(this, key, members);
      this._sets.set(key, set);
    }
    ++set.users;
    return set;
  }

  give(set) {
    if (--set.users === 0 && this._sets.size > kKeptSets) {
      this._sets.delete(set.key);
    }
  }

  /** By target: 1 where a clip, by its index, is not the same at all times. */
  movedBy(index) {
    if (this._moved[index] === undefined) {
      this._moved[index] = findMoved(this.clips[index + 1].bytes, this.targetCount);
    }
    return this._moved[index];
  }
}

module.exports = { ClipParts, makeClip };
