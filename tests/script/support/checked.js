'use strict';
// A checked engine whose refusals are verified: each must name what is wrong, before any native call, and leave all
// shared memory unchanged.
const assert = require('assert');
const { over } = require('./blocks');
const { checked } = require('../../../lib/checked');
const { buildClip, sampleTypes } = require('../../../lib/clip');

const none = 0xffffffff;

/** Bytes of a clip that moves `targets` targets along x. */
function clipBytes(targets = 1, frameCount = 10) {
  const keys = [0, frameCount].map((frame) => ({ frame, value: 1, inTangent: 0, outTangent: 0 }));
  const curves = [];
  for (let target = 0; target < targets; ++target) {
    curves.push({ target, type: sampleTypes.PositionX, keys });
  }
  return buildClip({ framesPerSecond: 30, frameCount, curves });
}

/** Arguments of a binding: pairs of a clip's handle and the handles that its targets move. */
function targetLists(groups) {
  const words = groups.map(([clip]) => clip);
  groups.forEach(([, handles]) => words.push(handles.length, ...handles));
  return [Uint32Array.from(words).buffer, 0, groups.length, words.length - groups.length];
}

/** A count and that many handles. */
function counted(...handles) {
  return Uint32Array.of(handles.length, ...handles).buffer;
}

/** Arguments of a camera that looks at the origin. */
const frustum = [0xffffffff, 0, 0, 10, 0, 0, 0, 0, 1, 0, 1, 1, 0.1, 100];
const ortho = [0xffffffff, 0, 0, 10, 0, 0, 0, 0, 1, 0, -5, 5, -5, 5, 0.1, 100];

class Lab {
  /**
   * @param {Object} module whose native engine is spied on
   * @param {boolean} [isPlain] use the native engine, for comparison
   */
  constructor(module, isPlain = false) {
    this.nativeCalls = 0;
    this.native = module.getEngine();
    const prototype = Object.getPrototypeOf(this.native);
    for (const name of Object.keys(prototype)) {
      this._watch(this.native, name, (made) => this._watchMethods(made));
    }
    /** Hints of the engine. */
    this.hints = [];
    const onHint = (hint) => this.hints.push(hint);
    this.engine = isPlain ? this.native : checked(this.native, { onHint });
    this.commands = over(Uint32Array, this.engine.entityCommands);
    this.dirty = over(Uint32Array, this.engine.dirtyEntities);
    /** Keeps the objects of a test alive. */
    this.made = [];
  }

  /** Counts the calls of a method of a native object. */
  _watch(object, name, onResult) {
    const method = object[name];
    const value = (...args) => {
      ++this.nativeCalls;
      const result = method.apply(object, args);
      onResult(result);
      return result;
    };
    Object.defineProperty(object, name, { value });
  }

  _watchMethods(made) {
    if (typeof made === 'object' && made !== null && 'id' in made) {
      for (const name of Object.keys(Object.getPrototypeOf(made))) {
        this._watch(made, name, () => {});
      }
    }
  }

  keep(object) {
    this.made.push(object);
    return object;
  }

  entities(count = 1, is3D = true) {
    return this.keep(this.engine.createEntity(is3D, count));
  }

  clip(targets) {
    return this.keep(this.engine.createDataModel(1, clipBytes(targets)));
  }

  /** An animator, its records as [clip, weight], and its target table. */
  animator(records, table) {
    const object = this.keep(this.engine.createComponent(2, records.length, table.length));
    const view = over(DataView, object);
    records.forEach(([clip, weight = 1], i) => {
      view.setUint32(12 * i, clip, true);
      view.setFloat32(12 * i + 8, weight, true);
    });
    over(Uint32Array, object).set(table, 3 * records.length);
    return object;
  }

  binding(groups, mode = 1) {
    return this.keep(this.engine.createAnimationClipBinding(...targetLists(groups), mode));
  }

  /** A state, its entries as [clip, weight, reference]. */
  state(entries, { next = none, weight = 1, fillDefaults = 0 } = {}) {
    const object = this.keep(this.engine.createAnimatorControllerStateModel(entries.length));
    const view = over(DataView, object);
    view.setFloat32(0, weight, true);
    view.setFloat32(4, fillDefaults, true);
    view.setUint32(8, next, true);
    entries.forEach(([clip, clipWeight = 1, reference = 0], k) => {
      view.setUint32(12 + 20 * k, clip, true);
      view.setFloat32(20 + 20 * k, clipWeight, true);
      view.setUint32(24 + 20 * k, reference, true);
    });
    return object;
  }

  /** A controller, its layers as [mode, first state]. */
  controller(binding, layers) {
    const object = this.keep(this.engine.createAnimatorControllerModel(layers.length));
    const view = over(DataView, object);
    view.setUint32(0, binding, true);
    layers.forEach(([mode, first], i) => {
      view.setUint32(4 + 12 * i, mode, true);
      view.setFloat32(8 + 12 * i, 1, true);
      view.setUint32(12 + 12 * i, first, true);
    });
    return object;
  }

  skin(model, bones) {
    const object = this.keep(this.engine.createComponent(3, bones.length));
    const words = over(Uint32Array, object);
    words[0] = model;
    bones.forEach(([index, entity], i) => {
      words[1 + i] = index;
      words[1 + bones.length + i] = entity;
    });
    return object;
  }

  /** Runs commands, each an array of words. */
  run(...commands) {
    const words = [].concat(...commands);
    this.commands.set([4 * words.length, ...words]);
    return this.engine.refreshWorldTransform();
  }

  _snapshot() {
    const { dirtyEntities, entityCommands, cullingResult } = this.engine;
    const hasBlock = (object) => 'block' in object || object.buffer !== undefined;
    const owners = [dirtyEntities, entityCommands, cullingResult, ...this.made.filter(hasBlock)];
    return owners.map((owner) => Buffer.from(over(Uint8Array, owner)));
  }

  /**
   * Asserts that a call throws an error of `type` whose message has all fragments, that ends in a cure, and that
   * nothing has changed.
   */
  refuses(call, type, ...fragments) {
    const before = this._snapshot();
    const calls = this.nativeCalls;
    assertWords(call, type, ...fragments);
    assert.strictEqual(this.nativeCalls, calls, 'native code was called');
    this._snapshot().forEach((bytes, i) => assert(bytes.equals(before[i]), `buffer ${i} changed`));
  }

  /** Asserts that a call reaches native code. */
  passes(call) {
    const calls = this.nativeCalls;
    const result = call();
    assert(this.nativeCalls > calls, 'native code was not called');
    return result;
  }

  /** Runs commands that are refused, and empties the stream. */
  refusesCommands(commands, type, ...fragments) {
    const words = [].concat(...commands);
    this.commands.set([4 * words.length, ...words]);
    this.refuses(() => this.engine.refreshWorldTransform(), type, ...fragments);
    this.commands[0] = 0;
  }
}

/** Asserts that a call throws an error of `type` with all fragments in its message. */
function assertWords(call, type, ...fragments) {
  assert.throws(call, (error) => {
    assert.strictEqual(error.constructor, type, error.stack);
    for (const fragment of fragments) {
      assert(error.message.includes(String(fragment)), `'${fragment}' is not in: ${error.message}`);
    }
    // What was found, and the cure after a colon.
    assert(/^[^:]+: .+: .+\.$/.test(error.message), error.message);
    return true;
  });
}

module.exports = { Lab, assertWords, clipBytes, counted, frustum, none, ortho, targetLists };
