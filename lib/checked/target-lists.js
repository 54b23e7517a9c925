'use strict';
// Target lists of bindings, and the rest poses that a binding has: which entities a controller moves
// depends on both.
const { addedModes } = require('../layout');
const { bytesOfBuffer, checkWhole } = require('./arguments');
const { kNone } = require('./registry');

/** Bit of removedMode and keptMode that writes poses back; the rest of the mode says what to keep. */
const kWriteBack = 2;
const kKeepPose = 0;
const kTakePose = 1;

/**
 * Reads the first four arguments of createAnimationClipBinding and updateBinding, or throws.
 * @param {number} least of the two counts: only an update may have none, and empties the binding
 * @returns {{lists: Map<number, number[]>, entities: Set<number>}} the list of each clip, and all
 *   entities of the lists, those of a clip's second list included
 */
function readTargetLists(call, registry, least, [buffer, byteOffset, clipCount, targetWords]) {
  const bytes = bytesOfBuffer(call, 'buffer', buffer);
  checkWhole(call, 'byteOffset', byteOffset);
  checkWhole(call, 'clipCount', clipCount, least);
  checkWhole(call, 'targetWords', targetWords, least);
  const needed = byteOffset + 4 * (clipCount + targetWords);
  if (bytes.byteLength < needed || bytes.byteLength === 0) {
    const sum = `${clipCount} + ${targetWords} words from byte ${byteOffset} end at ${needed}`;
    const trouble = `${sum}, and buffer has ${bytes.byteLength} bytes`;
    throw new RangeError(
      `${call}: ${trouble}: give a buffer that holds the lists, of at least one byte.`
    );
  }
  const word = (index) => bytes.getUint32(byteOffset + 4 * index, true);
  const lists = new Map();
  const entities = new Set();
  let cursor = 0;
  for (let c = 0; c < clipCount; ++c) {
    const clip = word(c);
    registry.require('clip', `${call}: clip ${c} of the lists,`, clip);
    const n = cursor < targetWords ? word(clipCount + cursor) : 0;
    if (cursor + 1 + n > targetWords) {
      const found = `the list of clip ${c} ends at word ${cursor + 1 + n} of the targets`;
      const cure = 'give the words of all lists, a count ahead of each';
      throw new RangeError(`${call}: ${found}, and targetWords is ${targetWords}: ${cure}.`);
    }
    const list = [];
    for (let k = 0; k < n; ++k) {
      const handle = word(clipCount + cursor + 1 + k);
      if (handle !== kNone) {
        const label = `${call}: target ${k} of clip ${c},`;
        const entry = registry.require('entity', label, handle);
        if (!entry.is3D) {
          const cure = 'give a 3D entity, or 0xFFFFFFFF for nothing';
          throw new RangeError(`${label} ${handle} is a 2D entity: ${cure}.`);
        }
        entities.add(handle);
      }
      list.push(handle);
    }
    if (!lists.has(clip)) {
      lists.set(clip, list);
    }
    cursor += 1 + n;
  }
  return { lists, entities };
}

/** The topmost 3D entity above the first one of the lists, as native code remembers it. */
function findRoot({ registry, tree }, lists) {
  const clips = Array.from(lists.keys()).sort((a, b) => a - b);
  const first = clips.find((clip) => lists.get(clip).length !== 0);
  let handle = first === undefined ? undefined : lists.get(first)[0];
  if (handle === undefined || handle === kNone) {
    return null;
  }
  for (;;) {
    const parent = tree.parent(handle);
    const above = parent === undefined ? undefined : registry.find('entity', parent);
    if (above === undefined || !above.is3D) {
      return { handle, batch: registry.find('entity', handle) };
    }
    handle = parent;
  }
}

/** Notes in the entry of a binding what its new lists are. */
function noteLists(state, entry, { lists }) {
  entry.lists = lists;
  entry.root = findRoot(state, lists);
}

/** After creation: rest poses of all entities, or none. */
function noteCreation(state, entry, read, mode) {
  noteLists(state, entry, read);
  entry.restPoses = new Set(mode === addedModes.take ? read.entities : []);
}

/** True for an entity that native code finds, and takes for one in 3D. */
function isThere3D({ registry }, handle) {
  const batch = registry.findNative('entity', handle);
  return batch !== undefined && batch.is3D;
}

/** After updateBinding has returned true. */
function noteUpdate(state, entry, read, removedMode, keptMode, addedMode) {
  noteLists(state, entry, read);
  const before = entry.restPoses;
  const removedPose = removedMode & ~kWriteBack;
  const keptPose = keptMode & ~kWriteBack;
  const after = new Set();
  before.forEach((handle) => {
    const isLeft = !read.entities.has(handle) && removedPose === kKeepPose;
    // Poses of entities that are gone go with the update.
    if (isLeft && isThere3D(state, handle)) {
      after.add(handle);
    }
  });
  read.entities.forEach((handle) => {
    const stays = before.has(handle)
      ? keptPose === kKeepPose || keptPose === kTakePose
      : addedMode === addedModes.take;
    if (stays) {
      after.add(handle);
    }
  });
  entry.restPoses = after;
}

module.exports = { noteCreation, noteUpdate, readTargetLists };
