'use strict';
// The blocks of animators, controllers, states and skinning components, as an update reads them, and
// which entities an update writes.
const { dataViewOf } = require('../block-bytes');
const layout = require('../layout');
const { isNone, keyOf } = require('./registry');
const { findNumbers } = require('./rest-poses');

const { animator, animatorClip, controller, controllerLayer } = layout;
const { controllerState, controllerClip, skinning, layerBlendModes } = layout;

/**
 * The data that an update writes.
 * @typedef {Object} Reach
 * @property {Set<number>} entities whose records and local matrices it writes, where they exist
 * @property {number} [tree] topmost entity of the tree under no root whose world matrices it computes
 * @property {Object} [binding] entry of the binding of a controller
 * @property {Set<number>} [entered] numbers that it adds to the rest poses of the binding
 */

/** Weights of a layer without a mask. */
const kUnmasked = new Map();

function viewOf(entry) {
  return dataViewOf(entry.native);
}

/** The tree that an animator computes: that of its first target, unless it is under a root. */
function treeOfFirst(state, targets, isBlend) {
  if (targets.length === 0) {
    return undefined;
  }
  const first = isBlend ? targets.reduce((a, b) => Math.min(a, b)) : targets[0];
  const top = state.tree.topOf(first);
  return state.tree.isRoot(top) ? undefined : top;
}

/**
 * Throws for an animator that would end the process, or skip a target.
 * @returns {Reach}
 */
function checkAnimator(call, state, entry) {
  const { registry } = state;
  const { id, clipCount, entityCount } = entry;
  const view = viewOf(entry);
  const table = animator.targets(clipCount);
  const targets = [];
  let base = 0;
  let active = 0;
  for (let c = 0; c < clipCount; ++c) {
    const at = animatorClip.size * c;
    const label = `${call}: animator ${id}, clip ${c}:`;
    const clip = registry.require('clip', label, view.getUint32(at, true));
    const weight = view.getFloat32(at + animatorClip.weight, true);
    const end = base + clip.targetCount;
    if (weight > 0 && weight <= 1) {
      ++active;
      if (end > entityCount) {
        const found = `its ${clip.targetCount} targets end at entry ${end} of the target table`;
        const cure = 'create the animator with an entityCount of the sum over its clips';
        throw new RangeError(`${label} ${found}, which has ${entityCount}: ${cure}.`);
      }
      for (let k = base; k < end; ++k) {
        const handle = view.getUint32(table + 4 * k, true);
        if (isNone(handle)) {
          continue;
        }
        if (registry.find('entity', handle) === undefined) {
          registry.require('entity', `${call}: animator ${id}, entry ${k} of the targets:`, handle);
        }
        targets.push(handle);
      }
    }
    base = end;
  }
  return { entities: new Set(targets), tree: treeOfFirst(state, targets, active > 1) };
}

/** Throws unless each bone of a skinning component gets its own result. */
function checkSkinning(call, { registry }, entry) {
  const { id, boneCount } = entry;
  const view = viewOf(entry);
  const label = `${call}: skinning component ${id}`;
  const model = registry.require('bones', `${label}, model`, view.getUint32(0, true));
  let first;
  for (let i = 0; i < boneCount; ++i) {
    const index = view.getUint32(skinning.indices + 4 * i, true);
    if (index >= model.matrixCount && index !== layout.handles.none) {
      const found = `bone ${i} has matrix ${index} of a model of ${model.matrixCount}`;
      throw new RangeError(
        `${label}: ${found}: it gets no result; write 0xFFFFFFFF if that is intended.`
      );
    }
    const handle = view.getUint32(skinning.entities(boneCount) + 4 * i, true);
    const bone =
      registry.find('entity', handle) ||
      registry.require('entity', `${label}, entity of bone ${i}:`, handle);
    if (first === undefined) {
      first = bone.is3D;
    }
    if (bone.is3D !== first) {
      const trouble = `bones 0 and ${i} are of both kinds, whose results overwrite each other`;
      throw new RangeError(`${label}: ${trouble}: put 2D and 3D bones into different components.`);
    }
  }
  return { entities: new Set() };
}

/** Adds the entities that one clip of a state moves. */
function reachOfClip(layer, handle, clip, entities) {
  const { binding, mask, isKnown } = layer;
  const list = binding.lists.get(handle);
  for (let k = 0; k < list.length && k < clip.targetCount; ++k) {
    if (isKnown(list[k]) && mask.get(list[k]) !== 0) {
      entities.add(list[k]);
    }
  }
}

/**
 * Throws for a state that names a clip whose object was collected after the binding read its list: native code
 * plays nothing, until another clip gets the handle and plays on those targets. Clips without a list in the
 * binding are skipped, whatever they name.
 */
function checkState(call, { registry }, entry, layer, { entities, entered }) {
  const { additive, binding, mask } = layer;
  const view = viewOf(entry);
  for (let k = 0; k < entry.clipCount; ++k) {
    const at = controllerState.clips + controllerClip.size * k;
    if (view.getFloat32(at + controllerClip.weight, true) === 0) {
      continue;
    }
    const label = `${call}: state ${entry.id}, clip ${k}`;
    const handle = view.getUint32(at, true);
    if (binding.lists.has(handle)) {
      const clip = registry.require('clip', `${label}:`, handle);
      reachOfClip(layer, handle, clip, entities);
    }
    const reference = view.getUint32(at + controllerClip.referenceClip, true);
    if (additive && binding.lists.has(reference)) {
      registry.require('clip', `${label}, reference:`, reference);
    }
  }
  if (!additive && view.getFloat32(controllerState.fillDefaults, true) !== 0) {
    const add = (handle) => {
      if (mask.get(handle) !== 0) {
        entities.add(handle);
      }
    };
    binding.restPoses.forEach(add);
    entered.forEach(add);
  }
}

/** Follows the chain of states of a layer. */
function checkLayer(call, state, entry, index, reach) {
  const { binding, entered } = reach;
  const view = viewOf(entry);
  const at = controller.layers + controllerLayer.size * index;
  const mode = view.getUint32(at, true);
  if (mode !== layerBlendModes.override && mode !== layerBlendModes.additive) {
    return;
  }
  const layer = {
    registry: state.registry,
    binding,
    additive: mode === layerBlendModes.additive,
    mask: entry.masks.get(index) || kUnmasked,
    isKnown: (number) => binding.restPoses.has(number) || entered.has(number),
  };
  const playing = [];
  const label = `${call}: controller ${entry.id}, layer ${index}`;
  const seen = new Set();
  let place = `${label}, first state`;
  let handle = view.getUint32(at + controllerLayer.firstState, true);
  while (!isNone(handle)) {
    const current = state.registry.require('state', place, handle);
    if (seen.has(current)) {
      const trouble = `its chain of states loops back to ${current.id}, and would never end`;
      throw new RangeError(`${label}: ${trouble}: write 0xFFFFFFFF as the last state's next.`);
    }
    seen.add(current);
    const block = viewOf(current);
    const weight = block.getFloat32(controllerState.weight, true);
    if (weight !== 0) {
      checkState(call, state, current, layer, reach);
      playing.push({ entry: current, view: block, weight });
    }
    place = `${label}, next state of ${current.id}:`;
    handle = block.getUint32(controllerState.nextState, true);
  }
  if (!layer.additive) {
    findNumbers(layer, playing, (number) => entered.add(number));
  }
}

/**
 * Throws for a controller whose states loop, or name objects that don't exist.
 * @returns {Reach}
 */
function reachOfController(call, state, entry) {
  const handle = viewOf(entry).getUint32(controller.bindingHandle, true);
  if (isNone(handle)) {
    return { entities: new Set() };
  }
  const label = `${call}: controller ${entry.id}, binding`;
  const binding = state.registry.require('binding', label, handle);
  const tree = treeOfBinding(state, binding);
  const reach = { entities: new Set(), tree, binding, entered: new Set() };
  for (let i = 0; i < entry.layerCount; ++i) {
    checkLayer(call, state, entry, i, reach);
  }
  return reach;
}

/** Records what an update adds to the rest poses of its binding. Call it only after all checks have passed. */
function noteEntered({ binding, entered }) {
  if (binding !== undefined) {
    entered.forEach((number) => binding.restPoses.enter(number));
  }
}

/**
 * Throws for a controller whose states loop, or name objects that don't exist.
 * @returns {Reach}
 */
function checkController(call, state, entry) {
  const reach = reachOfController(call, state, entry);
  noteEntered(reach);
  return reach;
}

/** The tree that an update of a batch computes for a binding. */
function treeOfBinding({ registry, tree }, { root }) {
  const isThere = root !== null && registry.find('entity', root.handle) === root.batch;
  return isThere && !tree.isRoot(root.handle) ? root.handle : undefined;
}

/** Kind of handle and check of each update. */
const players = {
  animator: { kind: 'animator', check: checkAnimator },
  controller: { kind: 'controller', check: reachOfController },
  skinning: { kind: 'skinning', check: checkSkinning },
};

/** Text of a message if a player moves an entity only because its handle is the number of a rest pose. */
function explainNumber(id, { binding, entered }, handle) {
  const isNumber =
    binding !== undefined && (binding.restPoses.isEntered(handle) || entered.has(handle));
  return isNumber ? `, ${id} by a rest pose that blending enters under that number` : '';
}

/** Throws if two players of a batch write the same data: they run in parallel. */
function checkSharing(call, { registry, tree }, ids, reaches) {
  const cure = 'update them in different batches';
  const bindings = new Map();
  const owners = new Map();
  const trees = new Map();
  // Looked up only where two players meet. Controllers skip released and 2D entities.
  const isMoved = (handle, binding) => {
    const batch = registry.find('entity', handle);
    return batch !== undefined && (batch.is3D || binding === undefined);
  };
  reaches.forEach(({ entities, binding, tree: top }, i) => {
    if (binding !== undefined) {
      if (bindings.has(binding)) {
        const trouble = `${bindings.get(binding)} and ${ids[i]} share the binding ${binding.id}`;
        throw new RangeError(`${call}: ${trouble}: ${cure}.`);
      }
      bindings.set(binding, ids[i]);
    }
    entities.forEach((handle) => {
      if (owners.has(handle) && isMoved(handle, binding)) {
        const first = owners.get(handle);
        const trouble = `${ids[first]} and ${ids[i]} both move entity ${handle}`;
        const why = [first, i].map((k) => explainNumber(ids[k], reaches[k], handle)).join('');
        throw new RangeError(`${call}: ${trouble}${why}: ${cure}.`);
      }
      owners.set(handle, i);
    });
    if (top !== undefined && !trees.has(top)) {
      trees.set(top, ids[i]);
    }
  });
  if (trees.size === 0) {
    return;
  }
  const meet = (id, handle, binding) => {
    for (let at = handle; at !== undefined; at = tree.parent(at)) {
      const other = trees.get(at);
      if (other !== undefined && other !== id && isMoved(handle, binding)) {
        const trouble = `${id} and ${other} both work on the tree of ${at}, which has no root`;
        throw new RangeError(`${call}: ${trouble}: add it as a root, or ${cure}.`);
      }
    }
  };
  reaches.forEach(({ entities, binding, tree: top }, i) => {
    if (top !== undefined) {
      meet(ids[i], top, binding);
    }
    entities.forEach((handle) => meet(ids[i], handle, binding));
  });
  trees.forEach((id, top) => {
    tree.forEachFollower(top, (follower, bone) => {
      const mover = owners.get(follower);
      const isOwned = mover !== undefined && isMoved(follower, reaches[mover].binding);
      const moving = isOwned ? ids[mover] : undefined;
      const computing = trees.get(tree.topOf(follower));
      const other = [moving, computing].find((one) => one !== undefined && one !== id);
      if (other !== undefined) {
        const why = `which follows bone ${bone} of the tree of ${top}, which has no root`;
        const trouble = `${id} and ${other} both write entity ${follower}, ${why}`;
        throw new RangeError(`${call}: ${trouble}: add ${top} as a root, or ${cure}.`);
      }
    });
  });
}

/**
 * Throws unless the players of a batch can be updated in parallel.
 * @returns {Array<{entry: Object, reach: Reach}>}
 */
function checkBatch(call, state, { kind, check }, handles) {
  const seen = new Set();
  const ids = [];
  const entries = [];
  const reaches = handles.map((handle, i) => {
    const entry = state.registry.require(kind, `${call}: handles, entry ${i}:`, handle);
    if (seen.has(entry)) {
      const trouble = `handles, entry ${i}: ${keyOf(handle)} is in the batch twice`;
      throw new RangeError(`${call}: ${trouble}: name each object once.`);
    }
    seen.add(entry);
    ids.push(entry.id);
    entries.push(entry);
    return check(call, state, entry);
  });
  if (handles.length > 1) {
    checkSharing(call, state, ids, reaches);
  }
  reaches.forEach(noteEntered);
  return reaches.map((reach, i) => ({ entry: entries[i], reach }));
}

module.exports = { checkBatch, checkController, players };
