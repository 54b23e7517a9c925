'use strict';
// The culling calls: their arguments, the records that they read, and the buffer of the V2 methods.
const { blockBytes, dataViewOf } = require('../block-bytes');
const { MessageChannel } = require('worker_threads');
const layout = require('../layout');
const {
  byteLengthOf,
  bytesOfBuffer,
  checkNumber,
  checkWhole,
  copyOfBuffer,
  readCounted,
} = require('./arguments');

const { cullingObject, handles: kHandles } = layout;

const kLeastI32 = -0x80000000;
const kComponents = ['x', 'y', 'z'];

/** Names of the arguments of a call, in order, without the list. */
function argumentNames(positions) {
  const names = [];
  for (const name of Object.keys(positions)) {
    const at = positions[name];
    if (name === 'eye' || name === 'target' || name === 'up') {
      kComponents.forEach((component, i) => {
        names[at + i] = `${name} ${component}`;
      });
    } else if (name !== 'required' && name !== 'list') {
      names[at] = name;
    }
  }
  return names;
}

const cameras = {
  frustum: argumentNames(layout.frustumCullingArguments),
  ortho: argumentNames(layout.orthoCullingArguments),
};

/** Throws for missing or invalid arguments. Returns the handles of the list, or null. */
function checkArguments(call, names, args) {
  if (args.length < names.length) {
    const trouble = `${names[args.length]} is missing, argument ${args.length + 1}`;
    throw new TypeError(`${call}: ${trouble}: give all ${names.length}, and the list after them.`);
  }
  checkWhole(call, names[0], args[0], kLeastI32);
  for (let i = 1; i < names.length; ++i) {
    checkNumber(call, names[i], args[i]);
  }
  const list = args[names.length];
  if (args.length > names.length + 1) {
    const trouble = `there are ${args.length} arguments, and with more than ${names.length + 1}`;
    throw new TypeError(`${call}: ${trouble} the list is ignored: leave the others out.`);
  }
  if (list === undefined || list === null) {
    return null;
  }
  return readCounted(call, 'list', bytesOfBuffer(call, 'list', list), 1);
}

/** Throws for an object that would be tested, but whose entity is missing or 2D. */
function checkObject(call, registry, entry, view, index, mask) {
  const at = cullingObject.size * index;
  const takesPart =
    view.getUint8(at) !== 0 && (view.getUint32(at + cullingObject.mask, true) & mask) !== 0;
  if (!takesPart) {
    return;
  }
  const handle = view.getUint32(at + cullingObject.entity, true);
  const entity = registry.find('entity', handle);
  if (entity !== undefined && entity.is3D) {
    return;
  }
  const label = `${call}: culling object ${entry.id + index}, entity`;
  if (!registry.require('entity', label, handle).is3D) {
    throw new RangeError(
      `${label} ${handle} is 2D, and never visible: give a 3D one, or disable it.`
    );
  }
}

function checkObjects(call, registry, list, mask) {
  if (list === null) {
    for (const entry of registry.live('culling')) {
      const view = dataViewOf(entry.native);
      for (let i = 0; i < entry.count; ++i) {
        checkObject(call, registry, entry, view, i, mask);
      }
    }
    return;
  }
  list.forEach((handle, i) => {
    const entry = registry.require('culling', `${call}: list, entry ${i}:`, handle);
    const view = dataViewOf(entry.native);
    checkObject(call, registry, entry, view, handle & kHandles.elementMask, mask);
  });
}

/** Detaches a buffer, so that its views have length 0. */
function detach(buffer) {
  const { port1 } = new MessageChannel();
  port1.postMessage(null, [buffer]);
  port1.close();
}

/**
 * The "cullingResult" that JavaScript sees. Native code frees its buffer when a larger one replaces it, and an
 * old view would read reused memory. So JavaScript gets a copy, which is detached when it is replaced: old
 * views then have length 0.
 */
class ResultBuffer {
  constructor(engine) {
    this._engine = engine;
    this.buffer = copyOfBuffer(engine.cullingResult);
  }

  /** Runs a V2 method. It sees what JavaScript wrote into the buffer, as without checked mode. */
  run(method, args) {
    const size = byteLengthOf(this.buffer);
    const fits = size === blockBytes(this._engine.cullingResult).length;
    if (fits) {
      blockBytes(this._engine.cullingResult).set(new Uint8Array(this.buffer));
    }
    const replaced = method.apply(this._engine, args);
    const result = this._engine.cullingResult;
    if (!replaced && fits) {
      new Uint8Array(this.buffer).set(blockBytes(result));
      return replaced;
    }
    // JavaScript may have transferred its copy.
    if (size !== 0) {
      detach(this.buffer);
    }
    this.buffer = copyOfBuffer(result);
    return replaced;
  }
}

/**
 * Checks and executes a culling call.
 * @param {string} call name of the method
 * @param {'frustum'|'ortho'} camera
 */
function cull(state, call, camera, args) {
  const names = cameras[camera];
  const list = checkArguments(call, names, args);
  checkObjects(call, state.registry, list, args[0]);
  const { engine } = state;
  const result = call.endsWith('V2')
    ? state.result.run(engine[call], args)
    : engine[call].apply(engine, args);
  state.hints.noteCulled(call, args, list);
  return result;
}

module.exports = { ResultBuffer, cull };
