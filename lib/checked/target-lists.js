'use strict';
// Target lists and rest poses of bindings: both determine which entities a controller moves.
const { dataViewOf } = require('../block-bytes');
const { addedModes, entity3D } = require('../layout');
const { bytesOfBuffer, checkWhole } = require('./arguments');
const { kNone } = require('./registry');
const { RestPoses } = require('./rest-poses');

/** Bit of removedMode and keptMode that writes poses back; the other bits say what to keep. */
const kWriteBack = 2;
const kKeepPose = 0;
const kTakePose = 1;

const kScaleZ = entity3D.scale + 8;

/** z scale in the record of an entity. */
function scaleZOf(batch, handle) {
  const at = entity3D.size * (handle - batch.id) + kScaleZ;
  return dataViewOf(batch.native).getFloat32(at, true);
}

/**
 * Reads the first four arguments of createAnimationClipBinding and updateBinding, or throws.
 * @param {number} least minimum of the two counts: only an update may have 0, which empties the binding
 * @returns {{lists: Map<number, number[]>, entities: Map<number, number>}} the list of each clip, and the
 *   z scale of all entities of the lists, those of a clip's second list included
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
  const entities = new Map();
  let cursor = 0;
  for (let c = 0; c < clipCount; ++c) {
    const clip = word(c);
    registry.require('clip', `${call}: clip ${c} of the lists,`, clip);
    const n = cursor < targetWords ? word(clipCount + cursor) : 0;
    if (cursor + 1 + n > targetWords) {
      const found = `the list of clip ${c} ends at word ${cursor + 1 + n} of the targets`;
      const cure = 'give the words of all lists, a count before each';
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
        entities.set(handle, scaleZOf(entry, handle));
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

/** The topmost 3D entity above the first one of the lists, as native code stores it. */
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

/** Records the new lists of a binding in its entry. */
function noteLists(state, entry, { lists }) {
  entry.lists = lists;
  entry.root = findRoot(state, lists);
}

/** Runs after creation: records the rest poses of all entities, or none. */
function noteCreation(state, entry, read, mode) {
  noteLists(state, entry, read);
  entry.restPoses = new RestPoses();
  if (mode === addedModes.take) {
    read.entities.forEach((scaleZ, handle) => entry.restPoses.take(handle, scaleZ));
  }
}

/** True for an entity that native code finds as a 3D entity. */
function isThere3D({ registry }, handle) {
  const batch = registry.findNative('entity', handle);
  return batch !== undefined && batch.is3D;
}

/**
 * Throws for modes that write rest poses back, if blending entered one of these under a number that is the handle
 * of an entity: it is an identity, and not a pose of this entity.
 */
function checkWriteBack(call, { registry }, entry, read, removedMode, keptMode) {
  entry.restPoses.entered().forEach((number) => {
    const isKept = read.entities.has(number);
    const mode = isKept ? keptMode : removedMode;
    const batch = registry.find('entity', number);
    if ((mode & kWriteBack) !== 0 && batch !== undefined && batch.is3D) {
      const name = isKept ? 'keptMode' : 'removedMode';
      const trouble = `blending has entered an identity under the number ${number}, which is an entity`;
      const found = `${name} is ${mode}, which writes rest poses back, and ${trouble}`;
      throw new RangeError(
        `${call}: ${found}: give a ${name} of 0 or 1, and write the poses yourself.`
      );
    }
  });
}

/** The entities whose rest poses updateBinding has written back. Call it before `noteUpdate`. */
function restoredEntities(entry, { entities }, removedMode, keptMode) {
  const restored = [];
  entry.restPoses.forEach((handle) => {
    if (((entities.has(handle) ? keptMode : removedMode) & kWriteBack) !== 0) {
      restored.push(handle);
    }
  });
  return restored;
}

/** Runs after updateBinding has returned true. */
function noteUpdate(state, entry, read, removedMode, keptMode, addedMode) {
  noteLists(state, entry, read);
  const before = entry.restPoses;
  const removedPose = removedMode & ~kWriteBack;
  const keptPose = keptMode & ~kWriteBack;
  const after = new RestPoses();
  before.forEach((handle) => {
    const isLeft = !read.entities.has(handle) && removedPose === kKeepPose;
    // The update drops poses of released entities.
    if (isLeft && isThere3D(state, handle)) {
      after.copyFrom(before, handle);
    }
  });
  read.entities.forEach((scaleZ, handle) => {
    const isKept = before.has(handle);
    if (isKept ? keptPose === kTakePose : addedMode === addedModes.take) {
      after.take(handle, scaleZ);
    } else if (isKept && keptPose === kKeepPose) {
      after.copyFrom(before, handle);
    }
  });
  entry.restPoses = after;
}

module.exports = {
  checkWriteBack,
  noteCreation,
  noteUpdate,
  readTargetLists,
  restoredEntities,
};
