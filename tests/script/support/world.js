'use strict';
// A scene in one engine, with verbs for what JavaScript does in a frame.
const nq = require(require('./host').modulePath);
const { over } = require('./blocks');

/** Entries that the dirty list has room for. */
const dirtyListCapacity = 12287;

/** A batch of entities and the typed arrays over its shared records. */
class Batch {
  constructor(object, is3D, count) {
    this.object = object;
    this.is3D = is3D;
    this.count = count;
    this.words = is3D ? 27 : 14;
    this.floats = over(Float32Array, object);
    this.bytes = over(Uint8Array, object);
  }

  /** Handle of element `i`. */
  handle(i = 0) {
    return this.object.id + i;
  }

  /** Writes the passed parts of a transform to element `i`; scale defaults to 1. */
  write(i, { quaternion, euler, angle, position, scale }) {
    const at = i * this.words;
    if (this.is3D) {
      this.bytes[at * 4] = quaternion ? 1 : 0;
      this.floats.set(quaternion || euler || [0, 0, 0], at + 1);
      this.floats.set(position || [0, 0, 0], at + 5);
      this.floats.set(scale || [1, 1, 1], at + 8);
    } else {
      this.floats[at] = angle || 0;
      this.floats.set(position || [0, 0], at + 1);
      this.floats.set(scale || [1, 1], at + 3);
    }
  }

  /** The transform in element `i`'s record. 3D only. */
  transform(i) {
    const at = i * this.words;
    return {
      rotationMode: this.bytes[at * 4],
      rotation: Array.from(this.floats.subarray(at + 1, at + 5)),
      position: Array.from(this.floats.subarray(at + 5, at + 8)),
      scale: Array.from(this.floats.subarray(at + 8, at + 11)),
    };
  }

  /** World matrix of element `i`: 16 floats in 3D, 9 in 2D; -0 as 0. */
  matrix(i = 0) {
    const at = i * this.words + (this.is3D ? 11 : 5);
    return Array.from(this.floats.subarray(at, at + (this.is3D ? 16 : 9)), (value) => value + 0);
  }

  /** Poisons element `i`'s world matrix, so that a test sees whether it is written again. */
  poisonMatrix(i = 0) {
    const at = i * this.words + (this.is3D ? 11 : 5);
    this.floats.fill(-777, at, at + (this.is3D ? 16 : 9));
  }

  /** True if element `i`'s world matrix is still poisoned. */
  isPoisoned(i = 0) {
    return this.matrix(i).every((value) => value === -777);
  }
}

class World {
  constructor() {
    this.engine = nq.getEngine();
    this.dirty = over(Uint32Array, this.engine.dirtyEntities);
    this.commands = over(Uint32Array, this.engine.entityCommands);
  }

  add3D(count = 1) {
    return new Batch(this.engine.createEntity(true, count), true, count);
  }

  add2D(count = 1) {
    return new Batch(this.engine.createEntity(false, count), false, count);
  }

  /** Appends a command and its operands, all words. */
  command(...words) {
    const at = this.commands[0] / 4 + 1;
    this.commands.set(words, at);
    this.commands[0] += words.length * 4;
  }

  addRoot(handle) {
    this.command(1, handle);
  }
  addChild(parent, child) {
    this.command(2, parent, child);
  }
  insertChild(parent, child, index) {
    this.command(3, parent, child, index);
  }
  removeFromParent(handle) {
    this.command(4, handle);
  }
  resetSubtree(handle) {
    this.command(5, handle);
  }
  bind(entity, bone) {
    this.command(6, entity, bone);
  }
  bindBatch(entities, bones) {
    this.command(7, entities.length, ...entities, ...bones);
  }
  unbind(handle) {
    this.command(8, handle);
  }
  unbindBatch(handles) {
    this.command(9, handles.length, ...handles);
  }
  activate(handle) {
    this.command(10, handle);
  }
  deactivate(handle) {
    this.command(11, handle);
  }

  /** Appends handles to the dirty list, after entries of native code. */
  list(...handles) {
    for (const handle of handles) {
      this.dirty[0] += 1;
      this.dirty[this.dirty[0]] = handle;
    }
  }

  /** The entries of the dirty list. */
  listed() {
    return Array.from(this.dirty.subarray(1, 1 + this.dirty[0]));
  }

  refresh() {
    return this.engine.refreshWorldTransform();
  }
}

module.exports = { World, Batch, dirtyListCapacity };
