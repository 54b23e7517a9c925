'use strict';
// The objects that a checked engine returns. Each wraps a native one: it has the same class name and properties, and
// checked versions of its methods. JavaScript can't create one with `new`.
const { bytesOfBuffer, checkWhole, show } = require('./arguments');
const { checkController } = require('./players');
const { checkWriteBack, noteUpdate, readTargetLists, restoredEntities } = require('./target-lists');
const { controllerMask } = require('../layout');
const { isNone } = require('./registry');
const { execute } = require('./matrixflow');
const { worldRead } = require('../view-reads');

/** State of the engine, entry in its registry and class name, by object. */
const knownObjects = new WeakMap();

/** Objects with an "id" of 0: there is nothing to dispose of. */
const emptyObjects = new WeakSet();

function refuseNew(name, source) {
  throw new TypeError(`new ${name}: objects of this class come from ${source} only: call that.`);
}

/** What is known of the receiver of a method, which may have been disposed of. */
function knownReceiver(receiver, className, method) {
  const found = knownObjects.get(receiver);
  if (found === undefined || found.className !== className) {
    const trouble = `its receiver is ${show(receiver)}, not an ${className} of a checked engine`;
    throw new TypeError(`${method}: ${trouble}: call it as a method of such an object.`);
  }
  return found;
}

/** State and entry of the receiver of a method. */
function receiverOf(receiver, className, method) {
  const found = knownReceiver(receiver, className, method);
  if (!found.entry.live) {
    throw new TypeError(
      `${method}: its receiver was disposed of: dispose of it when nothing uses it any more.`
    );
  }
  return found;
}

class EngineEntity {
  constructor() {
    refuseNew('EngineEntity', 'createEntity');
  }

  /** Views call it after JavaScript has read a world matrix. */
  [worldRead](method, element) {
    const { state, entry } = knownObjects.get(this);
    state.hints.noteWorldRead(method, entry, element);
  }
}

class EngineComponent {
  constructor() {
    refuseNew('EngineComponent', 'createComponent');
  }
}

class EngineDataModel {
  constructor() {
    refuseNew('EngineDataModel', 'createDataModel');
  }
}

class EngineAnimationClipBinding {
  constructor() {
    refuseNew('EngineAnimationClipBinding', 'createAnimationClipBinding');
  }

  updateBinding(...args) {
    const call = 'updateBinding';
    const { state, entry } = receiverOf(this, 'EngineAnimationClipBinding', call);
    const read = readTargetLists(call, state.registry, 0, args);
    checkWhole(call, 'removedMode', args[4]);
    checkWhole(call, 'keptMode', args[5]);
    checkWhole(call, 'addedMode', args[6]);
    checkWriteBack(call, state, entry, read, args[4], args[5]);
    const accepted = entry.native.updateBinding(...args);
    if (accepted) {
      state.hints.noteRead(restoredEntities(entry, read, args[4], args[5]));
      noteUpdate(state, entry, read, args[4], args[5], args[6]);
    }
    return accepted;
  }

  writeDefaultValues(...args) {
    const { entry } = receiverOf(this, 'EngineAnimationClipBinding', 'writeDefaultValues');
    return entry.native.writeDefaultValues(...args);
  }
}

class EngineAnimatorControllerModel {
  constructor() {
    refuseNew('EngineAnimatorControllerModel', 'createAnimatorControllerModel');
  }

  update(...args) {
    const call = 'update';
    const { state, entry } = receiverOf(this, 'EngineAnimatorControllerModel', call);
    bytesOfBuffer(call, 'the second argument', args[1]);
    const reach = checkController(call, state, entry);
    const played = [{ entry, reach }];
    return state.hints.around(call, played, false, () => entry.native.update(...args));
  }

  setMaskAtIndex(...args) {
    const call = 'setMaskAtIndex';
    const { state, entry } = receiverOf(this, 'EngineAnimatorControllerModel', call);
    checkWhole(call, 'layer', args[0], 0, entry.layerCount - 1);
    const mask = readMask(call, state.registry, args);
    const result = entry.native.setMaskAtIndex(...args);
    entry.masks.set(args[0], mask);
    return result;
  }
}

/** Returns the weights by entity, the first where there are several, or throws. */
function readMask(call, registry, [, buffer, byteOffset, count]) {
  const bytes = bytesOfBuffer(call, 'buffer', buffer);
  checkWhole(call, 'byteOffset', byteOffset);
  checkWhole(call, 'count', count);
  const end = byteOffset + controllerMask.size * count;
  if (bytes.byteLength < end || bytes.byteLength === 0) {
    const trouble = `${count} records from byte ${byteOffset} end at ${end}, and buffer has`;
    const cure = 'give a buffer that holds them, of at least one byte';
    throw new RangeError(`${call}: ${trouble} ${bytes.byteLength} bytes: ${cure}.`);
  }
  const mask = new Map();
  for (let i = 0; i < count; ++i) {
    const at = byteOffset + controllerMask.size * i;
    const handle = bytes.getUint32(at, true);
    if (!isNone(handle)) {
      const label = `${call}: entity of record ${i}:`;
      if (!registry.require('entity', label, handle).is3D) {
        const trouble = `${handle} is 2D, and controllers do not move 2D entities`;
        throw new RangeError(`${label} ${trouble}: give a 3D entity.`);
      }
    }
    if (!mask.has(handle)) {
      mask.set(handle, bytes.getFloat32(at + controllerMask.weight, true));
    }
  }
  return mask;
}

class EngineAnimatorControllerStateModel {
  constructor() {
    refuseNew('EngineAnimatorControllerStateModel', 'createAnimatorControllerStateModel');
  }
}

class EngineMatrixFlowCommandBuffer {
  constructor() {
    refuseNew('EngineMatrixFlowCommandBuffer', 'createMatrixFlowCommandBuffer');
  }

  execute() {
    const { state, entry } = receiverOf(this, 'EngineMatrixFlowCommandBuffer', 'execute');
    return execute(state, entry);
  }
}

const classes = {
  EngineEntity,
  EngineComponent,
  EngineDataModel,
  EngineAnimationClipBinding,
  EngineAnimatorControllerModel,
  EngineAnimatorControllerStateModel,
  EngineMatrixFlowCommandBuffer,
};

for (const name of Object.keys(classes)) {
  Object.defineProperty(classes[name].prototype, Symbol.toStringTag, { value: name });
}

/** Prototypes of objects of engines in WebAssembly, by class. */
const disposables = new Map();

/** The prototype of a checked object: one of an engine in WebAssembly can be disposed of, and has no ArrayBuffer. */
function prototypeOf(native) {
  const { name } = native.constructor;
  const { prototype } = classes[name];
  if (typeof native.dispose !== 'function') {
    return prototype;
  }
  if (!disposables.has(name)) {
    const nativePrototype = Object.getPrototypeOf(native);
    const own = Object.create(prototype);
    Object.defineProperty(own, 'buffer', {
      get() {
        return Reflect.get(nativePrototype, 'buffer', this);
      },
    });
    Object.defineProperty(own, 'dispose', {
      value: function dispose() {
        if (!emptyObjects.has(this)) {
          const { state, entry } = knownReceiver(this, name, 'dispose');
          if (entry.live) {
            state.registry.dispose(entry);
          }
        }
      },
    });
    disposables.set(name, own);
  }
  return disposables.get(name);
}

/**
 * Wraps a native object for JavaScript, and enters it into the registry.
 * @param {Object} state of the checked engine
 * @param {string} kind
 * @param {Object} native
 * @param {Object} details fields of the entry
 * @returns {{object: Object, entry: Object}} entry is undefined for an "id" of 0
 */
function adopt(state, kind, native, details) {
  const object = Object.assign(Object.create(prototypeOf(native)), native);
  if (native.id === 0) {
    emptyObjects.add(object);
    return { object };
  }
  const entry = state.registry.add(kind, native, object, details);
  knownObjects.set(object, { state, entry, className: native.constructor.name });
  return { object, entry };
}

module.exports = { adopt };
