'use strict';
// A scene as entities: batches of shared records, linked into a tree by the command stream.
const { performance } = require('perf_hooks');

/** Entities that one batch can hold. */
const kBatchCapacity = 4095;

/** Entries that the dirty list holds behind its count. */
const kDirtyListCapacity = 12287;

/** Words of a 3D record: mode, rotation x y z w, position, scale, world matrix. */
const kRecordWords = 27;
const kRotationWord = 1;
const kPositionWord = 5;
const kScaleWord = 8;
const kWorldMatrixWord = 11;

/** Commands of the stream that builds a tree. */
const kAddRoot = 1;
const kAddChild = 2;

/**
 * What a scene is made of.
 * @typedef {Object} SceneNode
 * @property {number} parent index of the parent, which comes earlier; -1 for a root
 * @property {number[]} position x, y, z, in the parent's space
 * @property {number[]} rotation quaternion x, y, z, w
 * @property {number[]} scale x, y, z
 * @property {number} hue degrees, for the picture
 */

/**
 * @typedef {Object} Scene
 * @property {string} name
 * @property {string} motion what moves it, for the report
 * @property {SceneNode[]} nodes parents before children
 * @property {number[]} animated indices of the nodes that `pose` writes
 * @property {function(number, EngineScene)} pose writes the transforms at a moment, in seconds
 */

/**
 * Owns the entities of a scene. Batches and engine stay referenced here: the records that the views
 * show belong to them.
 */
class EngineScene {
  /**
   * Creates, places and links the entities, and brings all matrices up to date.
   * @param {Object} engine of the native module
   * @param {SceneNode[]} nodes parents before children
   */
  constructor(engine, nodes) {
    this.engine = engine;
    this.count = nodes.length;
    this.handles = new Uint32Array(nodes.length);
    /** Entity objects, and a view of each one's records. */
    this.batches = [];
    this.records = [];
    this.dirtyList = new Uint32Array(engine.dirtyEntities);
    this.commands = new Uint32Array(engine.entityCommands);
    this.createBatches();
    nodes.forEach((node, index) => this.place(index, node));
    this.link(nodes);
    this.refresh(nodes.map((node, index) => index));
  }

  /** Takes entities in full batches; node i is element i % 4095 of batch i / 4095. */
  createBatches() {
    for (let first = 0; first < this.count; first += kBatchCapacity) {
      const size = Math.min(kBatchCapacity, this.count - first);
      const batch = this.engine.createEntity(true, size);
      this.batches.push(batch);
      this.records.push(new Float32Array(batch.buffer));
      for (let element = 0; element < size; ++element) {
        this.handles[first + element] = batch.id + element;
      }
    }
  }

  /** Writes a whole transform, and the mode that makes its rotation a quaternion. */
  place(index, node) {
    const batch = Math.floor(index / kBatchCapacity);
    const element = index % kBatchCapacity;
    new Uint8Array(this.batches[batch].buffer)[element * kRecordWords * 4] = 1;
    this.setRotation(index, node.rotation);
    this.setPosition(index, node.position);
    this.setScale(index, node.scale);
  }

  /** Streams the links, in as many passes as the buffer asks for. */
  link(nodes) {
    let length = 0;
    const run = () => {
      this.commands[0] = length * 4;
      this.engine.refreshWorldTransform();
      length = 0;
    };
    nodes.forEach(({ parent }, index) => {
      const handle = this.handles[index];
      const command = parent < 0 ? [kAddRoot, handle] : [kAddChild, this.handles[parent], handle];
      if (1 + length + command.length > this.commands.length) {
        run();
      }
      this.commands.set(command, 1 + length);
      length += command.length;
    });
    run();
  }

  /** @param {number} index @param {ArrayLike<number>} value x, y, z, w */
  setRotation(index, value) {
    const records = this.records[Math.floor(index / kBatchCapacity)];
    const word = (index % kBatchCapacity) * kRecordWords + kRotationWord;
    records[word] = value[0];
    records[word + 1] = value[1];
    records[word + 2] = value[2];
    records[word + 3] = value[3];
  }

  /** @param {number} index @param {ArrayLike<number>} value x, y, z */
  setPosition(index, value) {
    this.setVector(index, kPositionWord, value);
  }

  /** @param {number} index @param {ArrayLike<number>} value x, y, z */
  setScale(index, value) {
    this.setVector(index, kScaleWord, value);
  }

  setVector(index, offset, value) {
    const records = this.records[Math.floor(index / kBatchCapacity)];
    const word = (index % kBatchCapacity) * kRecordWords + offset;
    records[word] = value[0];
    records[word + 1] = value[1];
    records[word + 2] = value[2];
  }

  /**
   * Brings the world up to date after the transforms of `indices` were written, in one pass for
   * every 12,287 of them. Appends behind what the native side may have left in the list.
   * @param {number[]} indices
   * @returns {{passes: number, milliseconds: number}} the time is that of the native calls alone
   */
  refresh(indices) {
    let passes = 0;
    let milliseconds = 0;
    let next = 0;
    do {
      let entries = this.dirtyList[0];
      while (entries < kDirtyListCapacity && next < indices.length) {
        this.dirtyList[++entries] = this.handles[indices[next++]];
      }
      this.dirtyList[0] = entries;
      const start = performance.now();
      this.engine.refreshWorldTransform();
      milliseconds += performance.now() - start;
      ++passes;
    } while (next < indices.length);
    return { passes, milliseconds };
  }

  /**
   * A copy of an entity's world matrix, as its shared record shows it.
   * @param {number} index
   * @returns {Float32Array} 16 elements, column-major
   */
  worldMatrix(index) {
    const records = this.records[Math.floor(index / kBatchCapacity)];
    const word = (index % kBatchCapacity) * kRecordWords + kWorldMatrixWord;
    return records.slice(word, word + 16);
  }

  /**
   * World positions of all entities.
   * @returns {Array<number[]>} x, y, z each
   */
  worldPositions() {
    return Array.from(this.handles, (handle, index) =>
      Array.from(this.worldMatrix(index).subarray(12, 15))
    );
  }
}

module.exports = { EngineScene, kBatchCapacity, kDirtyListCapacity };
