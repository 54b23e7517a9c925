'use strict';
// An engine for development: the same methods and results, but every argument, and all shared memory that a call
// reads, is verified first. What would cause a segmentation fault, end the process or be ignored silently throws a
// TypeError or RangeError with a readable message; then no native code has run and nothing was written.
// docs/checked.md has what is verified, what is not, and how long objects live.
const { isBlock } = require('./block-bytes');
const { types } = require('util');
const { readClip } = require('./clip');
const layout = require('./layout');
const args = require('./checked/arguments');
const { ResultBuffer, cull } = require('./checked/culling');
const { refresh } = require('./checked/frame');
const { clipFacts } = require('./checked/hint-blends');
const { readOnHint } = require('./checked/hint-report');
const { Hints } = require('./checked/hints');
const { adopt } = require('./checked/objects');
const { checkBatch, players } = require('./checked/players');
const { Registry } = require('./checked/registry');
const { contentOf } = require('./checked/rest-poses');
const { noteCreation, readTargetLists } = require('./checked/target-lists');
const { TreeModel } = require('./checked/tree');

const { bytesOfData, checkBlockBytes, checkWhole, readCounted, show } = args;
const { batch: kBatch } = layout.limits;
const kMatrixBytes = layout.inverseBindMatrices.stride;

/** State of a checked engine, by that engine. */
const states = new WeakMap();

/** Checked engines by the native ones. */
const engines = new WeakMap();

function stateOf(receiver, call) {
  const state = states.get(receiver);
  if (state === undefined) {
    const trouble = `its receiver is ${show(receiver)}, not a checked engine`;
    throw new TypeError(
      `${call}: ${trouble}: call it as a method of what checked(engine) returned.`
    );
  }
  return state;
}

/** A count of a batch; undefined and 0 are treated as 1. */
function batchCount(call, count) {
  if (count === undefined) {
    return 1;
  }
  checkWhole(call, 'count', count, 0, kBatch, ' (0 counts as 1), and create several batches');
  return count === 0 ? 1 : count;
}

function createCulling(state, call, given) {
  const count = batchCount(call, given[1]);
  return adopt(state, 'culling', state.engine.createComponent(...given), { count }).object;
}

function createAnimator(state, call, given) {
  const [, clipCount, entityCount] = given;
  checkWhole(call, 'clipCount', clipCount, 1);
  checkWhole(call, 'entityCount', entityCount, 1);
  checkBlockBytes(call, 'the animator', layout.animator.bytes(clipCount, entityCount));
  const details = { clipCount, entityCount };
  return adopt(state, 'animator', state.engine.createComponent(...given), details).object;
}

function createSkinning(state, call, given) {
  const boneCount = given[1];
  checkWhole(call, 'count', boneCount, 1);
  checkBlockBytes(call, 'the skinning component', layout.skinning.bytes(boneCount));
  const native = state.engine.createComponent(...given);
  return adopt(state, 'skinning', native, { boneCount }).object;
}

const componentMakers = {
  [layout.componentKinds.culling]: createCulling,
  [layout.componentKinds.animator]: createAnimator,
  [layout.componentKinds.skinning]: createSkinning,
};

/** Fields of the entry of a data model. */
function readDataModel(call, kind, bytes) {
  if (kind === layout.dataModelKinds.clip) {
    let clip;
    try {
      clip = readClip(bytes);
    } catch (error) {
      throw new error.constructor(`${call}: data: ${error.message}`);
    }
    return {
      targetCount: new Set(clip.curves.map(({ target }) => target)).size,
      content: contentOf(clip),
      facts: clipFacts(clip),
    };
  }
  const size = bytes.byteLength;
  if (size % kMatrixBytes !== 0) {
    const trouble = `data has ${size} bytes, no multiple of ${kMatrixBytes}`;
    throw new RangeError(`${call}: ${trouble}: give 16 floats per matrix.`);
  }
  return { matrixCount: size / kMatrixBytes };
}

function updateOne(receiver, call, player, given) {
  const state = stateOf(receiver, call);
  checkWhole(call, 'handle', given[0]);
  const entry = state.registry.require(player.kind, `${call}: handle`, given[0]);
  const played = [{ entry, reach: player.check(call, state, entry) }];
  return state.hints.around(call, played, true, () => state.engine[call](...given));
}

function updateMany(receiver, call, player, given) {
  const state = stateOf(receiver, call);
  const handles = readCounted(call, 'handles', bytesOfData(call, 'handles', given[0]), 0);
  const played = checkBatch(call, state, player, handles);
  return state.hints.around(call, played, true, () => state.engine[call](...given));
}

/** The method `dispose` of engines in WebAssembly. */
function disposeEngine() {
  stateOf(this, 'dispose').engine.dispose();
}
Object.defineProperty(disposeEngine, 'name', { value: 'dispose' });

/** The class of checked engines; `checked` creates them. */
class Engine {
  constructor() {
    throw new TypeError('new Engine: engines come from getEngine only: call checked(getEngine()).');
  }

  createEntity(...given) {
    const call = 'createEntity';
    const state = stateOf(this, call);
    const is3D = given[0];
    if (is3D !== undefined && typeof is3D !== 'boolean' && is3D !== 0 && is3D !== 1) {
      const trouble = `is3D is ${show(is3D)}, not a boolean`;
      throw new TypeError(
        `${call}: ${trouble}: give true for 3D, false for 2D; the count is next.`
      );
    }
    const details = { is3D: Boolean(is3D), count: batchCount(call, given[1]) };
    return adopt(state, 'entity', state.engine.createEntity(...given), details).object;
  }

  createComponent(...given) {
    const call = 'createComponent';
    const state = stateOf(this, call);
    const cure = ': 1 culling objects, 2 an animator, 3 a skinning component';
    checkWhole(call, 'kind', given[0], 1, 3, cure);
    return componentMakers[given[0]](state, call, given);
  }

  createDataModel(...given) {
    const call = 'createDataModel';
    const state = stateOf(this, call);
    const [kind, data] = given;
    checkWhole(call, 'kind', kind, 1, 2, ': 1 a clip, 2 inverse bind matrices');
    const details = readDataModel(call, kind, bytesOfData(call, 'data', data));
    const name = kind === layout.dataModelKinds.clip ? 'clip' : 'bones';
    const { object, entry } = adopt(state, name, state.engine.createDataModel(...given), details);
    if (name === 'clip') {
      state.hints.noteClip(call, entry);
    }
    return object;
  }

  createAnimationClipBinding(...given) {
    const call = 'createAnimationClipBinding';
    const state = stateOf(this, call);
    const read = readTargetLists(call, state.registry, 1, given);
    checkWhole(call, 'mode', given[4]);
    const native = state.engine.createAnimationClipBinding(...given);
    const { object, entry } = adopt(state, 'binding', native, {});
    if (entry !== undefined) {
      noteCreation(state, entry, read, given[4]);
    }
    return object;
  }

  createAnimatorControllerModel(...given) {
    const call = 'createAnimatorControllerModel';
    const state = stateOf(this, call);
    const layerCount = given[0];
    checkWhole(call, 'layerCount', layerCount, 1);
    checkBlockBytes(call, 'the controller', layout.controller.bytes(layerCount));
    const native = state.engine.createAnimatorControllerModel(...given);
    return adopt(state, 'controller', native, { layerCount, masks: new Map() }).object;
  }

  createAnimatorControllerStateModel(...given) {
    const call = 'createAnimatorControllerStateModel';
    const state = stateOf(this, call);
    const clipCount = given[0];
    checkWhole(call, 'clipCount', clipCount, 1);
    checkBlockBytes(call, 'the state', layout.controllerState.bytes(clipCount));
    const native = state.engine.createAnimatorControllerStateModel(...given);
    return adopt(state, 'state', native, { clipCount }).object;
  }

  setEntityName(...given) {
    const call = 'setEntityName';
    const state = stateOf(this, call);
    const [handle, name] = given;
    checkWhole(call, 'handle', handle);
    if (typeof name !== 'string') {
      throw new TypeError(`${call}: name is ${show(name)}, not a string: give a string.`);
    }
    if (name === '') {
      const cure = 'give a name of one character or more';
      throw new RangeError(`${call}: name is '', which is ignored: ${cure}.`);
    }
    state.registry.require('entity', `${call}: handle`, handle);
    return state.engine.setEntityName(...given);
  }

  refreshWorldTransform() {
    return refresh(stateOf(this, 'refreshWorldTransform'));
  }

  cullWithCamera(...given) {
    return cull(stateOf(this, 'cullWithCamera'), 'cullWithCamera', 'frustum', given);
  }

  frustumCulling(...given) {
    return cull(stateOf(this, 'frustumCulling'), 'frustumCulling', 'frustum', given);
  }

  frustumCullingV2(...given) {
    return cull(stateOf(this, 'frustumCullingV2'), 'frustumCullingV2', 'frustum', given);
  }

  orthoCulling(...given) {
    return cull(stateOf(this, 'orthoCulling'), 'orthoCulling', 'ortho', given);
  }

  orthoCullingV2(...given) {
    return cull(stateOf(this, 'orthoCullingV2'), 'orthoCullingV2', 'ortho', given);
  }

  updateAnimator(...given) {
    return updateOne(this, 'updateAnimator', players.animator, given);
  }

  updateAnimators(...given) {
    return updateMany(this, 'updateAnimators', players.animator, given);
  }

  updateAnimatorControllers(...given) {
    return updateMany(this, 'updateAnimatorControllers', players.controller, given);
  }

  updateSkinningMatrix(...given) {
    return updateOne(this, 'updateSkinningMatrix', players.skinning, given);
  }

  updateSkinningMatrices(...given) {
    return updateMany(this, 'updateSkinningMatrices', players.skinning, given);
  }
}

/** Engines of the module that has command buffers. */
class EngineWithMatrixFlow extends Engine {
  createMatrixFlowCommandBuffer(...given) {
    const call = 'createMatrixFlowCommandBuffer';
    const state = stateOf(this, call);
    checkWhole(call, 'size', given[0], 1);
    const native = state.engine.createMatrixFlowCommandBuffer(...given);
    return adopt(state, 'commandBuffer', native, {}).object;
  }
}

for (const type of [Engine, EngineWithMatrixFlow]) {
  Object.defineProperty(type, 'name', { value: 'Engine' });
  Object.defineProperty(type.prototype, Symbol.toStringTag, { value: 'Engine' });
}

/**
 * True for what getEngine returned: an object of the native class with its three buffers, which an object of
 * `new engine.constructor()` lacks. String tags don't help: only the oldest hosts set one on native objects.
 */
function isEngine(value) {
  try {
    return (
      typeof value === 'object' &&
      value !== null &&
      !types.isProxy(value) &&
      Object.getPrototypeOf(value).constructor.name === 'Engine' &&
      ['dirtyEntities', 'entityCommands', 'cullingResult'].every(
        (name) => Object.prototype.hasOwnProperty.call(value, name) && isBlock(value[name])
      )
    );
  } catch (error) {
    // A property of the value threw.
    return false;
  }
}

function makeChecked(engine) {
  const hasMatrixFlow = typeof engine.createMatrixFlowCommandBuffer === 'function';
  const object = Object.create((hasMatrixFlow ? EngineWithMatrixFlow : Engine).prototype);
  const tree = new TreeModel();
  const state = {
    engine,
    tree,
    registry: new Registry(({ kind, id, count }) => {
      if (kind === 'entity') {
        tree.removeBatch(id, count);
      }
    }),
    result: new ResultBuffer(engine),
    // Entries that the last refresh left in the dirty list.
    appended: new Uint32Array(0),
  };
  state.hints = new Hints(state);
  const { dirtyEntities, entityCommands } = engine;
  Object.assign(object, { dirtyEntities, entityCommands });
  Object.defineProperty(object, 'cullingResult', {
    configurable: true,
    enumerable: true,
    get: () => state.result.buffer,
  });
  if (typeof engine.dispose === 'function') {
    Object.defineProperty(object, 'dispose', { value: disposeEngine });
  }
  states.set(object, state);
  return object;
}

/** @typedef {import('../types/handles').EntityHandle} EntityHandle */

/**
 * The mistake that a hint reports: `not-under-root`, an entity whose world matrix is used but never computed;
 * `not-listed`, a record that changed but is not in `dirtyEntities`; `degrees`, an angle that looks like degrees instead
 * of radians; `nan`, a NaN; `other-engine`, a handle of another engine in the buffers of this one; `one-sided-channel`,
 * a channel that only some of the blended clips animate.
 * @typedef {'not-under-root' | 'not-listed' | 'degrees' | 'nan' | 'other-engine' | 'one-sided-channel'} HintCode
 */

/**
 * A report of valid input that is nearly always a mistake.
 * @readonly
 * @typedef {Object} Hint
 * @property {HintCode} code Kind of mistake.
 * @property {string} call Method of the engine, or of a view.
 * @property {EntityHandle | null} entity The entity, or null where there is none.
 * @property {string} place Field of the entity or object, or the argument; empty for the last hint of a code.
 * @property {string} message The call, the place, what was found, and the cure.
 * @property {boolean} isLast True if there are more of this code, and no more are reported.
 */

/**
 * Options of {@link checked}.
 * @typedef {Object} CheckedOptions
 * @property {((hint: Hint) => void) | null} [onHint] Receives each hint once, after the call was executed; null switches
 *   hints off. If omitted, it is unchanged: `console.warn` at first. The call rethrows its exceptions.
 */

/**
 * Wraps an engine in one with the same methods, properties and results. It throws a readable `TypeError` or `RangeError`
 * for input that would make the native engine crash, end the process or silently do nothing. When it throws, no native
 * code has run and no shared memory has changed. It reports hints of valid input that is nearly always a mistake. For
 * development: it costs time.
 *
 * Wrap an engine before its first use, and use only the wrapped one. Its `cullingResult` is a copy, which is detached
 * when a larger one replaces it.
 * @template {import('../types/engine').AnyEngine} E with or without command buffers
 * @param {E} engine what {@link getEngine} returned
 * @param {CheckedOptions} [options] may also be passed later, for an engine that is already checked
 * @returns {E} the same one for the same engine, and a checked engine itself
 * @throws TypeError for anything but an engine, and for unknown options
 */
function checked(engine, options) {
  const onHint = readOnHint(options);
  let object = engine;
  if (!states.has(engine)) {
    if (!isEngine(engine)) {
      const trouble = `engine is ${show(engine)}, not an engine with its three buffers`;
      throw new TypeError(`checked: ${trouble}: give what getEngine returned.`);
    }
    if (!engines.has(engine)) {
      engines.set(engine, makeChecked(engine));
    }
    object = engines.get(engine);
  }
  if (onHint !== undefined) {
    states.get(object).hints.setOnHint(onHint);
  }
  return object;
}

module.exports = { checked };
