'use strict';
// What refreshWorldTransform reads: the stream of entity commands and the list of dirty entities.
const { blockWords } = require('../block-bytes');
const { entityCommandTable } = require('../command-tables');
const { limits } = require('../layout');

const kCall = 'refreshWorldTransform';
const kWordBytes = 4;

/**
 * How a command is executed on the model of links, by its method of the writer. Each reads its operands from
 * `words` at `at`, and throws for those with which native code would do nothing.
 */
const runs = {
  addRoot,
  addChild,
  insertChild,
  removeFromParent,
  resetSubtree,
  bindToBone,
  bindToBoneBatch,
  unbindFromBone,
  unbindFromBoneBatch,
  activate,
  deactivate,
};

function needEntity({ registry }, label, words, at) {
  registry.require('entity', `${label}: handle`, words[at]);
}

function addRoot({ registry, tree }, label, words, at) {
  const handle = words[at];
  registry.require('entity', `${label}: handle`, handle);
  const parent = tree.parent(handle);
  if (parent !== undefined) {
    const trouble = `handle ${handle} has the parent ${parent}, and only an entity without one becomes a root`;
    throw new RangeError(`${label}: ${trouble}: remove it from its parent first.`);
  }
  tree.addRoot(handle);
}

/** Links `child` below `parent`, or throws if that closes a cycle. */
function attach({ tree }, label, parent, child) {
  if (tree.isWithin(parent, child)) {
    const trouble =
      parent === child
        ? `parent and child are both ${child}`
        : `parent ${parent} is below child ${child}, which closes a cycle`;
    throw new RangeError(`${label}: ${trouble}: attach an entity to one outside of its subtree.`);
  }
  tree.setParent(child, parent);
}

function kindOf(entry) {
  return entry.is3D ? '3D' : '2D';
}

function addChild(state, label, words, at) {
  const [parent, child] = [words[at], words[at + 1]];
  const above = state.registry.require('entity', `${label}: parent`, parent);
  const below = state.registry.require('entity', `${label}: child`, child);
  if (above.is3D !== below.is3D) {
    const trouble = `parent ${parent} is ${kindOf(above)} and child ${child} ${kindOf(below)}`;
    throw new RangeError(`${label}: ${trouble}: use InsertChild to link across kinds.`);
  }
  attach(state, label, parent, child);
}

function insertChild(state, label, words, at) {
  const [parent, child] = [words[at], words[at + 1]];
  state.registry.require('entity', `${label}: parent`, parent);
  state.registry.require('entity', `${label}: child`, child);
  attach(state, label, parent, child);
}

function removeFromParent(state, label, words, at) {
  needEntity(state, label, words, at);
  state.tree.setParent(words[at], undefined);
}

function resetSubtree(state, label, words, at) {
  needEntity(state, label, words, at);
  state.tree.resetSubtree(words[at]);
}

function bind({ registry, tree }, label, entity, bone) {
  const follower = registry.require('entity', `${label}: entity`, entity);
  const leader = registry.require('entity', `${label}: bone`, bone);
  if (!follower.is3D || !leader.is3D) {
    const found = `entity ${entity} is ${kindOf(follower)} and bone ${bone} ${kindOf(leader)}`;
    throw new RangeError(`${label}: ${found}: only a 3D entity follows a bone, and only a 3D one.`);
  }
  if (tree.bone(entity) === bone) {
    return;
  }
  if (tree.follows(bone, entity)) {
    const trouble = `bone ${bone} ${bone === entity ? 'is' : 'follows'} entity ${entity} itself`;
    throw new RangeError(`${label}: ${trouble}: unbind that first.`);
  }
  tree.setBone(entity, bone);
}

function bindToBone(state, label, words, at) {
  bind(state, label, words[at], words[at + 1]);
}

function bindToBoneBatch(state, label, words, at) {
  const n = words[at];
  for (let i = 0; i < n; ++i) {
    bind(state, `${label}, pair ${i}`, words[at + 1 + i], words[at + 1 + n + i]);
  }
}

function unbindFromBone(state, label, words, at) {
  needEntity(state, label, words, at);
  state.tree.setBone(words[at], undefined);
}

function unbindFromBoneBatch(state, label, words, at) {
  const n = words[at];
  for (let i = 0; i < n; ++i) {
    unbindFromBone(state, `${label}, entry ${i}`, words, at + 1 + i);
  }
}

function activate(state, label, words, at) {
  needEntity(state, label, words, at);
  state.tree.setActive(words[at], true);
}

function deactivate(state, label, words, at) {
  needEntity(state, label, words, at);
  state.tree.setActive(words[at], false);
}

/** Words of a command, including its number; Infinity if the stream ends before its count. */
function lengthOf({ operands, perElement }, words, at, end) {
  if (operands !== undefined) {
    return 1 + operands;
  }
  return at + 1 < end ? 2 + perElement * words[at + 1] : Infinity;
}

/** Executes the stream on the model of links. If it throws, the caller must roll the model back. */
function runCommands(state) {
  const words = blockWords(state.engine.entityCommands);
  const length = words[0];
  if (length > limits.commandBytes || length % kWordBytes !== 0) {
    const trouble =
      length > limits.commandBytes
        ? `is beyond the ${limits.commandBytes} bytes after it`
        : 'is no multiple of 4';
    const found = `the length word of entityCommands is ${length}, which ${trouble}`;
    throw new RangeError(`${kCall}: ${found}: write the stream by an EntityCommandWriter.`);
  }
  const end = 1 + length / kWordBytes;
  for (let at = 1; at < end; ) {
    const place = `${kCall}: entityCommands at byte ${at * kWordBytes}`;
    const command = entityCommandTable.get(words[at]);
    if (command === undefined) {
      const numbers = `the numbers 1 to ${Math.max(...entityCommandTable.keys())}`;
      const cure = `write ${numbers}, each with all of its operands`;
      throw new RangeError(`${place}: there is no command ${words[at]}: ${cure}.`);
    }
    const label = `${place}, ${command.name}`;
    const size = lengthOf(command, words, at, end);
    if (at + size > end) {
      const taken = size === Infinity ? '' : ` of the ${size} that it takes`;
      const trouble = `the stream ends ${end - at} words from its beginning${taken}`;
      throw new RangeError(`${label}: ${trouble}: write all of it before the length word.`);
    }
    runs[command.method](state, label, words, at + 1);
    at += size;
  }
}

/** Throws for unknown handles, except those that native code appended and whose entity was released since. */
function checkDirtyList({ engine, registry, appended }) {
  const words = blockWords(engine.dirtyEntities);
  const count = words[0];
  if (count > limits.dirtyEntities) {
    const trouble = `the count of dirtyEntities is ${count}, and ${limits.dirtyEntities} fit`;
    throw new RangeError(`${kCall}: ${trouble}: call ${kCall} once for each full list.`);
  }
  for (let i = 1; i <= count; ++i) {
    const handle = words[i];
    if (registry.find('entity', handle) === undefined && handle !== appended[i - 1]) {
      registry.require('entity', `${kCall}: dirtyEntities, entry ${i}:`, handle);
    }
  }
}

/** Checks and executes refreshWorldTransform. */
function refresh(state) {
  try {
    runCommands(state);
    checkDirtyList(state);
  } catch (error) {
    state.tree.rollback();
    throw error;
  }
  state.tree.commit();
  state.hints.beforeRefresh(kCall);
  const result = state.engine.refreshWorldTransform();
  const words = blockWords(state.engine.dirtyEntities);
  state.appended = words.slice(1, 1 + words[0]);
  state.hints.report();
  return result;
}

module.exports = { refresh };
