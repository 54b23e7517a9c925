'use strict';
// The classes of the native module, over an instance of the WebAssembly module: the same methods, results and checks
// of arguments. Objects have `block` instead of `buffer`, and can be disposed of.
const { isArrayBuffer, isObject, show } = require('../value-checks');
const { bytesOf, isBlock, Block } = require('./block');

/**
 * What objects are, by object: those that `new` created, copies and proxies are nothing.
 * @type {WeakMap<Object, {instance: Instance, type: Function, kind: (number | undefined), handle: number}>}
 */
const states = new WeakMap();

/** Index of the record of the last created object, in words. */
const recordWords = { handle: 0, size: 1, memoryID: 2, pointer: 3 };
const culledWords = { count: 0, hash: 1, objects: 2, distances: 3 };

const kinds = {
  entities: 0,
  culling: 1,
  animator: 2,
  skinning: 3,
  clip: 4,
  bones: 5,
  binding: 6,
  controller: 7,
  state: 8,
  commandBuffer: 9,
};

/** Kinds of components and data models, as arguments. */
const kCulling = 1;
const kAnimator = 2;
const kSkinning = 3;
const kClip = 1;
const kBones = 2;

/** Arguments of the two cameras: a mask and nine numbers of its pose, and those of the lens. */
const kFrustumArguments = 14;
const kOrthoArguments = 16;

/** Bytes that a culling list has at least. */
const kCullingListMinBytes = 5;

/** Bytes of a record of a mask, and of a word. */
const kMaskRecordBytes = 8;
const kWordBytes = 4;

/** Elements of a batch of entities or culling objects, at most: of more, none are created. */
const kMostElements = 4095;

/** Estimates of what an object takes besides its block, in bytes. */
const kEntityBytes = 330;
const kCullingBytes = 100;
const kClipBytes = 200;
const kBoneBytes = 400;

/** The state of an object of a class, whose instance has not ended. */
function stateOf(object, method, type) {
  const state = isObject(object) ? states.get(object) : undefined;
  if (state === undefined || state.type !== type) {
    const found = `this is ${show(object)}, not an ${type.name} that nq_logic/wasm made`;
    throw new TypeError(`${method}: ${found}: call it as a method of one.`);
  }
  if (state.instance.end !== null) {
    state.instance.fail(method);
  }
  return state;
}

function engineState(object, method) {
  return stateOf(object, method, Engine).instance;
}

/** Where a conversion of an argument throws, natively the process ends. */
function failConversion(instance, method, error) {
  const text = 'FATAL ERROR: v8::FromJust Maybe value is Nothing.';
  return instance.die(method, `${text} (${error.message})`);
}

/** As an unsigned 32-bit number, by JavaScript's own rules. */
function toU32(instance, method, value) {
  if (typeof value === 'number') {
    return value >>> 0;
  }
  try {
    return +value >>> 0;
  } catch (error) {
    return failConversion(instance, method, error);
  }
}

function toNumber(instance, method, value) {
  if (typeof value === 'number') {
    return value;
  }
  try {
    return +value;
  } catch (error) {
    return failConversion(instance, method, error);
  }
}

/** True where the native module sees an ArrayBuffer: a block takes its place. */
function isBuffer(value) {
  return isObject(value) && (isBlock(value) || isArrayBuffer(value));
}

const kNoBytes = new Uint8Array(0);

function isBytes(value) {
  return ArrayBuffer.isView(value) || isBuffer(value);
}

/** Base of the classes of created objects. */
function defineBlock(type) {
  // Enumerable on no object: programs that copy or print properties don't stumble over it.
  Object.defineProperty(type.prototype, 'buffer', {
    configurable: true,
    get() {
      if (!isObject(this) || this.block === undefined) {
        return undefined;
      }
      const found =
        'the blocks of an engine in WebAssembly lie in one memory, and none is an ArrayBuffer';
      const cure = 'use block.f32, block.u32 and block.u8, or the views of nq_logic';
      throw new TypeError(`${type.name}.buffer: ${found}: ${cure}.`);
    },
  });
}

/**
 * Releases the object at once, instead of when it is garbage-collected. Its handle and its block must not be used any
 * more. A second call does nothing.
 */
function dispose() {
  const state = isObject(this) ? states.get(this) : undefined;
  if (state === undefined || state.kind === undefined) {
    return;
  }
  const { instance, kind, handle } = state;
  state.kind = undefined;
  instance.untrack(this);
  instance.release(kind, handle);
}

class Engine {}
class EngineEntity {}
class EngineComponent {}
class EngineDataModel {}
class EngineAnimationClipBinding {}
class EngineAnimatorControllerModel {}
class EngineAnimatorControllerStateModel {}
class EngineMatrixFlowCommandBuffer {}

const classes = {
  Engine,
  EngineEntity,
  EngineComponent,
  EngineDataModel,
  EngineAnimationClipBinding,
  EngineAnimatorControllerModel,
  EngineAnimatorControllerStateModel,
  EngineMatrixFlowCommandBuffer,
};

// Checked mode knows objects by the names of their classes, which minifiers change.
for (const name of Object.keys(classes)) {
  Object.defineProperty(classes[name], 'name', { value: name });
}

/** Installs methods as native ones are: in order, enumerable, not deletable, named. */
function install(type, methods) {
  for (const name of Object.keys(methods)) {
    const value = methods[name];
    Object.defineProperty(value, 'name', { value: name });
    Object.defineProperty(value, 'length', { value: 0 }); // as natively
    Object.defineProperty(type.prototype, name, {
      value,
      writable: true,
      enumerable: true,
      configurable: false,
    });
  }
}

/** The object of what was just created. */
function publish(instance, type, kind) {
  const at = instance.created;
  const handle = instance.word(at, recordWords.handle);
  const size = instance.word(at, recordWords.size);
  const object = own(instance, type, kind, handle);
  if (handle !== 0 && size !== 0) {
    const pointer = instance.word(at, recordWords.pointer);
    object.block = new Block(instance.buffer, pointer, size, object);
    object.memoryID = instance.word(at, recordWords.memoryID);
  }
  return object;
}

/** The object of a handle without a block. */
function own(instance, type, kind, handle) {
  const object = new type();
  states.set(object, { instance, type, kind: handle === 0 ? undefined : kind, handle });
  object.id = handle;
  if (handle !== 0) {
    instance.track(object, kind, handle);
  }
  return object;
}

/** Creates an object of estimated size; nothing is reserved for 0 bytes, of what is refused. */
function create(instance, method, type, kind, bytes, run, first, second) {
  if (bytes > 0) {
    instance.reserve(method, bytes);
  }
  instance.call(method, run, first, second);
  return publish(instance, type, kind);
}

/** Estimated bytes of a batch, 0 if it is refused. */
function batchBytes(count, each) {
  return count <= kMostElements ? count * each : 0;
}

/** The shared buffer that `run` reports. */
function sharedBlock(instance, owner, run) {
  instance.call('Engine', run);
  const pointer = instance.word(instance.created, recordWords.pointer);
  const size = instance.word(instance.created, recordWords.size);
  return new Block(instance.buffer, pointer, size, owner);
}

/** A range of target lists, by arguments 1 to 3; its address in `instance`, or false if the buffer is too short. */
function takeTargetLists(instance, method, buffer, byteOffset, clipCount, targetWords) {
  const end = byteOffset + kWordBytes * (targetWords + clipCount);
  const { byteLength } = bytesOf(buffer);
  if (byteLength === 0 || byteLength < end) {
    return false;
  }
  instance.take(method, buffer, end);
  return true;
}

// Calls of a frame allocate nothing, hence no arguments objects.
function updateOne(object, method, name, count, handle) {
  const instance = engineState(object, method);
  if (count >= 1) {
    instance.call(method, instance.exports[name], toU32(instance, method, handle));
  }
  return null;
}

/** Whether it is a view of no bytes within its buffer: natively it has an address, which is not read. */
function isEmptyRange(value) {
  try {
    return ArrayBuffer.isView(value) && value.byteOffset < value.buffer.byteLength;
  } catch (error) {
    // Of a detached buffer.
    return false;
  }
}

function updateMany(object, method, name, given, handles) {
  const instance = engineState(object, method);
  if (given < 1) {
    return null;
  }
  const { byteLength } = isBytes(handles) ? bytesOf(handles) : kNoBytes;
  if (byteLength === 0 && !isEmptyRange(handles)) {
    return instance.die(method, `a fault: handles is ${show(handles)}, without bytes to read`);
  }
  const count = instance.firstWord(handles);
  if (count === 0 || count * kWordBytes + kWordBytes > byteLength) {
    return null;
  }
  const bytes = count * kWordBytes + kWordBytes;
  instance.take(method, handles, bytes);
  instance.call(method, instance.exports[name], instance.address, bytes);
  return null;
}

/** Apart, since a function with a closure allocates its context in each call. */
function convertCamera(instance, method, values) {
  const numbers = values.map((value) => toNumber(instance, method, value));
  instance.camera.set(numbers);
}

/**
 * Stores the numbers of a camera. Other values are converted first, in order: a conversion may run a cull itself.
 * Numbers are passed as they came, which allocates nothing.
 */
function placeCamera(
  instance,
  method,
  v1,
  v2,
  v3,
  v4,
  v5,
  v6,
  v7,
  v8,
  v9,
  v10,
  v11,
  v12,
  v13,
  v14,
  v15
) {
  if (
    typeof v1 !== 'number' ||
    typeof v2 !== 'number' ||
    typeof v3 !== 'number' ||
    typeof v4 !== 'number' ||
    typeof v5 !== 'number' ||
    typeof v6 !== 'number' ||
    typeof v7 !== 'number' ||
    typeof v8 !== 'number' ||
    typeof v9 !== 'number' ||
    typeof v10 !== 'number' ||
    typeof v11 !== 'number' ||
    typeof v12 !== 'number' ||
    typeof v13 !== 'number' ||
    typeof v14 !== 'number' ||
    typeof v15 !== 'number'
  ) {
    convertCamera(instance, method, [
      v1,
      v2,
      v3,
      v4,
      v5,
      v6,
      v7,
      v8,
      v9,
      v10,
      v11,
      v12,
      v13,
      v14,
      v15,
    ]);
    return;
  }
  const { camera } = instance;
  camera[0] = v1;
  camera[1] = v2;
  camera[2] = v3;
  camera[3] = v4;
  camera[4] = v5;
  camera[5] = v6;
  camera[6] = v7;
  camera[7] = v8;
  camera[8] = v9;
  camera[9] = v10;
  camera[10] = v11;
  camera[11] = v12;
  camera[12] = v13;
  camera[13] = v14;
  camera[14] = v15;
}

/**
 * Runs a camera that is placed; true unless the list is rejected. The result is in the record of culling results.
 * @param {Object} instance
 * @param {string} method
 * @param {Function} run
 * @param {number} mask
 * @param {*} list used if it is a buffer
 */
function cull(instance, method, run, mask, list) {
  let address = 0;
  let count = 0;
  if (isBuffer(list)) {
    const { byteLength } = bytesOf(list);
    if (byteLength < kCullingListMinBytes) {
      return false;
    }
    count = instance.firstWord(list);
    if (count === 0 || count > Math.floor(byteLength / kWordBytes) - 1) {
      return false;
    }
    instance.take(method, list, count * kWordBytes + kWordBytes);
    address = instance.address + kWordBytes;
  }
  instance.call(method, run, mask, instance.cameraAddress, address, count);
  return true;
}

/**
 * A method that culls by a frustum: `answer` makes its result of what is in the record of culling results.
 * @param {string} name
 * @param {function(Instance, string, Object): *} answer
 */
function frustumMethod(name, answer) {
  const method = `Engine.${name}`;
  return function (m, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, list) {
    const instance = engineState(this, method);
    const given = arguments.length;
    if (given < kFrustumArguments) {
      return null;
    }
    const mask = typeof m === 'number' ? m | 0 : toU32(instance, method, m) | 0;
    placeCamera(instance, method, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, 0, 0);
    const used = given === kFrustumArguments + 1 ? list : undefined;
    return cull(instance, method, instance.exports.nqCullFrustum, mask, used)
      ? answer(instance, method, this)
      : null;
  };
}

/** The same by an orthographic volume. */
function orthoMethod(name, answer) {
  const method = `Engine.${name}`;
  return function (m, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, a15, list) {
    const instance = engineState(this, method);
    const given = arguments.length;
    if (given < kOrthoArguments) {
      return null;
    }
    const mask = typeof m === 'number' ? m | 0 : toU32(instance, method, m) | 0;
    placeCamera(instance, method, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, a15);
    const used = given === kOrthoArguments + 1 ? list : undefined;
    return cull(instance, method, instance.exports.nqCullOrtho, mask, used)
      ? answer(instance, method, this)
      : null;
  };
}

/** The result as an object with copies, or null for an empty one. */
function culledObject(instance) {
  const { buffer, culled } = instance;
  const count = instance.word(culled, culledWords.count);
  if (count === 0) {
    return null;
  }
  const copyAt = (address) => buffer.slice(address, address + count * kWordBytes);
  return {
    objects: copyAt(instance.word(culled, culledWords.objects)),
    distances: copyAt(instance.word(culled, culledWords.distances)),
    hash: instance.word(culled, culledWords.hash),
  };
}

/** Stores the result in "cullingResult"; true if that was replaced. */
function storeCulled(instance, method, engine) {
  const grows = instance.call(method, instance.exports.nqStoreCulled) !== 0;
  if (grows) {
    engine.cullingResult = sharedBlock(instance, engine, instance.exports.nqCullingResult);
  }
  return grows;
}

function createFromCount(object, method, type, kind, each, name, args) {
  const instance = engineState(object, method);
  if (args.length < 1) {
    return null;
  }
  const count = toU32(instance, method, args[0]);
  return create(instance, method, type, kind, count * each, instance.exports[name], count);
}

install(Engine, {
  createEntity(...args) {
    const method = 'Engine.createEntity';
    const instance = engineState(this, method);
    const isThreeD = Boolean(args[0]);
    const count = toU32(instance, method, args[1]) || 1;
    const { nqCreateEntities } = instance.exports;
    const bytes = batchBytes(count, kEntityBytes);
    return create(
      instance,
      method,
      EngineEntity,
      kinds.entities,
      bytes,
      nqCreateEntities,
      isThreeD,
      count
    );
  },

  createComponent(...args) {
    const method = 'Engine.createComponent';
    const instance = engineState(this, method);
    if (args.length < 1) {
      return null;
    }
    const kind = toU32(instance, method, args[0]);
    const { nqCreateCulling, nqCreateAnimator, nqCreateSkinning } = instance.exports;
    if (kind === kCulling) {
      const count = toU32(instance, method, args[1]) || 1;
      const bytes = batchBytes(count, kCullingBytes);
      return create(
        instance,
        method,
        EngineComponent,
        kinds.culling,
        bytes,
        nqCreateCulling,
        count
      );
    }
    if (kind === kAnimator && args.length >= 3) {
      const clips = toU32(instance, method, args[1]);
      const entities = toU32(instance, method, args[2]);
      const isAny = clips > 0 && entities > 0;
      const bytes = isAny ? clips * kClipBytes + entities * kWordBytes : 0;
      return create(
        instance,
        method,
        EngineComponent,
        kinds.animator,
        bytes,
        nqCreateAnimator,
        clips,
        entities
      );
    }
    if (kind === kSkinning && args.length >= 2) {
      const count = toU32(instance, method, args[1]);
      const bytes = count * kBoneBytes;
      return create(
        instance,
        method,
        EngineComponent,
        kinds.skinning,
        bytes,
        nqCreateSkinning,
        count
      );
    }
    return null;
  },

  createDataModel(...args) {
    const method = 'Engine.createDataModel';
    const instance = engineState(this, method);
    if (args.length < 2) {
      return null;
    }
    const kind = toU32(instance, method, args[0]);
    if (kind !== kClip && kind !== kBones) {
      return own(instance, EngineDataModel, undefined, 0);
    }
    const data = isBytes(args[1]) ? args[1] : kNoBytes;
    instance.reserve(method, bytesOf(data).byteLength);
    instance.take(method, data);
    const { nqCreateClip, nqCreateBones } = instance.exports;
    const run = kind === kClip ? nqCreateClip : nqCreateBones;
    const handle = instance.call(method, run, instance.address, instance.length) >>> 0;
    return own(instance, EngineDataModel, kind === kClip ? kinds.clip : kinds.bones, handle);
  },

  createAnimationClipBinding(...args) {
    const method = 'Engine.createAnimationClipBinding';
    const instance = engineState(this, method);
    const buffer = args[0];
    if (args.length < 5 || !isBuffer(buffer)) {
      return null;
    }
    const byteOffset = toU32(instance, method, args[1]);
    const clipCount = toU32(instance, method, args[2]);
    const targetWords = toU32(instance, method, args[3]);
    const mode = toU32(instance, method, args[4]);
    instance.reserve(method, 0);
    if (!takeTargetLists(instance, method, buffer, byteOffset, clipCount, targetWords)) {
      return null;
    }
    const { nqCreateBinding } = instance.exports;
    const { address } = instance;
    const handle = instance.call(
      method,
      nqCreateBinding,
      address,
      byteOffset,
      clipCount,
      targetWords,
      mode
    );
    return own(instance, EngineAnimationClipBinding, kinds.binding, handle >>> 0);
  },

  createAnimatorControllerModel(...args) {
    const method = 'Engine.createAnimatorControllerModel';
    const type = EngineAnimatorControllerModel;
    return createFromCount(
      this,
      method,
      type,
      kinds.controller,
      kClipBytes,
      'nqCreateController',
      args
    );
  },

  createAnimatorControllerStateModel(...args) {
    const method = 'Engine.createAnimatorControllerStateModel';
    const type = EngineAnimatorControllerStateModel;
    return createFromCount(this, method, type, kinds.state, kClipBytes, 'nqCreateState', args);
  },

  setEntityName(...args) {
    const method = 'Engine.setEntityName';
    const instance = engineState(this, method);
    if (args.length < 2) {
      return null;
    }
    const handle = toU32(instance, method, args[0]);
    let name = '';
    try {
      name = `${args[1]}`;
    } catch (error) {
      // Without a string form it is ignored.
    }
    if (handle === 0 || name === '') {
      return null;
    }
    const bytes = new TextEncoder().encode(name);
    instance.reserve(method, bytes.length);
    instance.take(method, bytes);
    const { nqSetEntityName } = instance.exports;
    instance.call(method, nqSetEntityName, handle, instance.address, bytes.length);
    return null;
  },

  refreshWorldTransform() {
    const instance = engineState(this, 'Engine.refreshWorldTransform');
    instance.call('Engine.refreshWorldTransform', instance.exports.nqRefreshWorldTransform);
    return null;
  },

  cullWithCamera: frustumMethod('cullWithCamera', culledObject),
  frustumCulling: frustumMethod('frustumCulling', culledObject),
  frustumCullingV2: frustumMethod('frustumCullingV2', storeCulled),
  orthoCulling: orthoMethod('orthoCulling', culledObject),
  orthoCullingV2: orthoMethod('orthoCullingV2', storeCulled),

  updateAnimator(handle) {
    return updateOne(this, 'Engine.updateAnimator', 'nqUpdateAnimator', arguments.length, handle);
  },

  updateAnimators(handles) {
    return updateMany(
      this,
      'Engine.updateAnimators',
      'nqUpdateAnimators',
      arguments.length,
      handles
    );
  },

  updateAnimatorControllers(handles) {
    const method = 'Engine.updateAnimatorControllers';
    return updateMany(this, method, 'nqUpdateAnimatorControllers', arguments.length, handles);
  },

  updateSkinningMatrix(handle) {
    return updateOne(
      this,
      'Engine.updateSkinningMatrix',
      'nqUpdateSkinningMatrix',
      arguments.length,
      handle
    );
  },

  updateSkinningMatrices(handles) {
    const method = 'Engine.updateSkinningMatrices';
    return updateMany(this, method, 'nqUpdateSkinningMatrices', arguments.length, handles);
  },

  createMatrixFlowCommandBuffer(...args) {
    const method = 'Engine.createMatrixFlowCommandBuffer';
    const type = EngineMatrixFlowCommandBuffer;
    return createFromCount(
      this,
      method,
      type,
      kinds.commandBuffer,
      1,
      'nqCreateCommandBuffer',
      args
    );
  },

  /** Drops the engine with all its objects and its memory. Later calls throw. */
  dispose() {
    const state = isObject(this) ? states.get(this) : undefined;
    if (state !== undefined) {
      state.instance.dispose();
    }
  },
});

defineBlock(EngineEntity);
install(EngineEntity, { dispose });

defineBlock(EngineComponent);
install(EngineComponent, { dispose });

install(EngineDataModel, { dispose });

install(EngineAnimationClipBinding, {
  updateBinding(buffer, offset, clips, words, removed, kept, added) {
    const method = 'EngineAnimationClipBinding.updateBinding';
    const { instance, handle } = stateOf(this, method, EngineAnimationClipBinding);
    const { nqHasBinding, nqUpdateBinding } = instance.exports;
    if (arguments.length < 7 || !isBuffer(buffer) || !instance.call(method, nqHasBinding, handle)) {
      return false;
    }
    const byteOffset = toU32(instance, method, offset);
    const clipCount = toU32(instance, method, clips);
    const targetWords = toU32(instance, method, words);
    const removedMode = toU32(instance, method, removed);
    const keptMode = toU32(instance, method, kept);
    const addedMode = toU32(instance, method, added);
    if (!takeTargetLists(instance, method, buffer, byteOffset, clipCount, targetWords)) {
      return false;
    }
    const accepted = instance.call(
      method,
      nqUpdateBinding,
      handle,
      instance.address,
      byteOffset,
      clipCount,
      targetWords,
      removedMode,
      keptMode,
      addedMode
    );
    return accepted !== 0;
  },

  writeDefaultValues() {
    stateOf(this, 'EngineAnimationClipBinding.writeDefaultValues', EngineAnimationClipBinding);
    return null;
  },

  dispose,
});

defineBlock(EngineAnimatorControllerModel);
install(EngineAnimatorControllerModel, {
  update(...args) {
    const method = 'EngineAnimatorControllerModel.update';
    const { instance, handle } = stateOf(this, method, EngineAnimatorControllerModel);
    if (args.length >= 2 && isBuffer(args[1])) {
      instance.call(method, instance.exports.nqUpdateController, handle);
    }
    return null;
  },

  setMaskAtIndex(layer, buffer, offset, records) {
    const method = 'EngineAnimatorControllerModel.setMaskAtIndex';
    const { instance, handle } = stateOf(this, method, EngineAnimatorControllerModel);
    const { nqHasController, nqSetMask } = instance.exports;
    const isTaken = arguments.length >= 4 && isBuffer(buffer);
    if (!isTaken || !instance.call(method, nqHasController, handle)) {
      return null;
    }
    const index = toU32(instance, method, layer);
    const byteOffset = toU32(instance, method, offset);
    const count = toU32(instance, method, records);
    const end = byteOffset + kMaskRecordBytes * count;
    const { byteLength } = bytesOf(buffer);
    if (byteLength === 0 || byteLength < end) {
      return null;
    }
    instance.take(method, buffer, end);
    instance.call(method, nqSetMask, handle, index, instance.address, byteOffset, count);
    return null;
  },

  dispose,
});

defineBlock(EngineAnimatorControllerStateModel);
install(EngineAnimatorControllerStateModel, { dispose });

defineBlock(EngineMatrixFlowCommandBuffer);
install(EngineMatrixFlowCommandBuffer, {
  execute() {
    const method = 'EngineMatrixFlowCommandBuffer.execute';
    const { instance, handle } = stateOf(this, method, EngineMatrixFlowCommandBuffer);
    return instance.call(method, instance.exports.nqExecute, handle);
  },

  dispose,
});

/** The engine of an instance that was started. */
function engineOf(instance) {
  const engine = new Engine();
  states.set(engine, { instance, type: Engine, kind: undefined, handle: 0 });
  const { nqDirtyEntities, nqEntityCommands, nqCullingResult } = instance.exports;
  engine.dirtyEntities = sharedBlock(instance, engine, nqDirtyEntities);
  engine.entityCommands = sharedBlock(instance, engine, nqEntityCommands);
  engine.cullingResult = sharedBlock(instance, engine, nqCullingResult);
  return engine;
}

module.exports = { Engine, engineOf };
