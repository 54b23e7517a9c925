'use strict';
// Many characters of one kind in the engine: entities, animators or controllers, skinning, props in hands, and the data
// that JavaScript writes.
const { over } = require('../../../../tests/script/support/blocks');
const { CrowdAnimators } = require('./animators');
const { CrowdControllers } = require('./controllers');
const { CrowdProps } = require('./props');

/** Capacity of a batch of entities or culling objects. */
const kBatchCapacity = 4095;

/** Capacity of the dirty list, in entries after its count. */
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

/** Kinds of components and of data models. */
const kSkinning = 3;
const kClipModel = 1;
const kBonesModel = 2;

/**
 * Owns the engine's objects of a crowd, and keeps them alive: the views use their memory. Node j of character i is
 * entity `i * nodes + j`.
 */
class Crowd {
  /**
   * Creates, places and links all entities, and computes their matrices.
   * @param {Object} engine of the native module
   * @param {import('../../../../demo/kind').Kind} kind
   * @param {number} count
   * @param {Array<?import('../../../../demo/props').Part>} [cast] what each carries, for kinds with layers
   */
  constructor(engine, kind, count, cast = []) {
    this.engine = engine;
    this.kind = kind;
    this.count = count;
    this.cast = cast;
    this.boneCount = count * kind.joints.length;
    this.handles = new Uint32Array(count * kind.nodes.length);
    /** Entity objects, and a view of each one's records. */
    this.batches = [];
    this.records = [];
    this.dirtyList = over(Uint32Array, engine.dirtyEntities);
    this.commands = over(Uint32Array, engine.entityCommands);
    this.createEntities();
    this.link();
    /** Clips of the kind, then those of its layers. */
    this.clipModels = [
      ...kind.clips,
      ...(kind.layers ? [kind.layers.wave, kind.layers.breath] : []),
    ].map(({ bytes }) => engine.createDataModel(kClipModel, bytes));
    this.players = kind.layers ? new CrowdControllers(this) : new CrowdAnimators(this);
    this.createSkins();
    this.refresh(this.handles);
    // Created last: a bound entity needs the world matrix of the hand.
    this.props = new CrowdProps(this);
    this.refresh(Array.from({ length: count }, (none, i) => this.placeHandle(i)));
    this.props.follow();
  }

  /** Creates entities in full batches, and writes their rest transforms. */
  createEntities() {
    const { nodes } = this.kind;
    for (let first = 0; first < this.handles.length; first += kBatchCapacity) {
      const size = Math.min(kBatchCapacity, this.handles.length - first);
      const batch = this.engine.createEntity(true, size);
      const records = over(Float32Array, batch);
      const bytes = over(Uint8Array, batch);
      for (let element = 0; element < size; ++element) {
        const { rotation, position, scale } = nodes[(first + element) % nodes.length];
        const word = element * kRecordWords;
        bytes[4 * word] = 1; // its rotation is a quaternion
        records.set(rotation, word + kRotationWord);
        records.set(position, word + kPositionWord);
        records.set(scale, word + kScaleWord);
        this.handles[first + element] = batch.id + element;
      }
      this.batches.push(batch);
      this.records.push(records);
    }
  }

  /** Writes the links into the command stream, in as many passes as necessary. */
  link() {
    const { nodes } = this.kind;
    let length = 0;
    const run = () => {
      this.commands[0] = length * 4;
      this.engine.refreshWorldTransform();
      length = 0;
    };
    this.handles.forEach((handle, entity) => {
      const node = entity % nodes.length;
      const { parent } = nodes[node];
      const above = this.handles[entity - node + parent];
      const command = parent < 0 ? [kAddRoot, handle] : [kAddChild, above, handle];
      if (1 + length + command.length > this.commands.length) {
        run();
      }
      this.commands.set(command, 1 + length);
      length += command.length;
    });
    run();
  }

  /** Creates a skinning component per character; all share the inverse bind matrices. */
  createSkins() {
    const { joints, inverseBind, nodes } = this.kind;
    this.bonesModel = this.engine.createDataModel(kBonesModel, inverseBind);
    this.skins = [];
    /** A view of each character's skinning matrices, which native code writes. */
    this.matrices = [];
    this.skinBatch = new Uint32Array(1 + this.count);
    for (let i = 0; i < this.count; ++i) {
      const skin = this.engine.createComponent(kSkinning, joints.length);
      const words = over(Uint32Array, skin);
      words[0] = this.bonesModel.id;
      joints.forEach((node, bone) => {
        words[1 + bone] = bone;
        words[1 + joints.length + bone] = this.handles[i * nodes.length + node];
      });
      const results = 4 * (1 + 2 * joints.length);
      this.skins.push(skin);
      this.matrices.push(
        over(Float32Array, skin).subarray(results / 4, results / 4 + 16 * joints.length)
      );
      this.skinBatch[++this.skinBatch[0]] = skin.id;
    }
  }

  /** Handle of the entity for the position of a character. */
  placeHandle(character) {
    return this.handles[character * this.kind.nodes.length];
  }

  /** Sets position (0 to 1, as a fraction of its length) and weight of a character's clip. */
  play(character, clip, moment, weight) {
    this.players.play(character, clip, moment, weight);
  }

  /** Sets position and weight of the wave of a character with a prop; for kinds with layers. */
  wave(character, moment, weight) {
    this.players.wave(character, moment, weight);
  }

  /** Sets position and weight of a character's breath; for kinds with layers. */
  breathe(character, moment, weight) {
    this.players.breathe(character, moment, weight);
  }

  /** Writes the rotation of an entity without listing it as dirty. */
  writeRotation(entity, rotation) {
    const records = this.records[Math.floor(entity / kBatchCapacity)];
    records.set(rotation, (entity % kBatchCapacity) * kRecordWords + kRotationWord);
  }

  /** Moves a character on the ground and rotates it: at 0 it faces along z, at a quarter turn along x. */
  place(character, x, z, heading) {
    const entity = character * this.kind.nodes.length;
    const records = this.records[Math.floor(entity / kBatchCapacity)];
    const word = (entity % kBatchCapacity) * kRecordWords;
    records[word + kRotationWord + 1] = Math.sin(heading / 2);
    records[word + kRotationWord + 3] = Math.cos(heading / 2);
    records[word + kPositionWord] = x;
    records[word + kPositionWord + 2] = z;
    this.dirtyList[++this.dirtyList[0]] = this.handles[entity];
  }

  /** Restricts `animate` and `skin` to the first characters. */
  enable(count) {
    this.players.batch[0] = count;
    this.skinBatch[0] = count;
  }

  /** Samples and blends the clips of all characters into their entities. */
  animate() {
    this.players.animate();
  }

  /** Computes the skinning matrices of all characters. */
  skin() {
    this.engine.updateSkinningMatrices(this.skinBatch.buffer);
  }

  /** Refreshes world matrices after `handles` were written, a full dirty list at a time. */
  refresh(handles) {
    let next = 0;
    while (next < handles.length) {
      let entries = this.dirtyList[0];
      while (entries < kDirtyListCapacity && next < handles.length) {
        this.dirtyList[++entries] = handles[next++];
      }
      this.dirtyList[0] = entries;
      this.engine.refreshWorldTransform();
    }
  }

  /**
   * A copy of an entity's world matrix from its shared record.
   * @param {number} entity
   * @returns {Float32Array} 16 elements, column-major
   */
  worldMatrix(entity) {
    const records = this.records[Math.floor(entity / kBatchCapacity)];
    const word = (entity % kBatchCapacity) * kRecordWords + kWorldMatrixWord;
    return records.slice(word, word + 16);
  }

  /** Bytes of shared memory of this crowd. */
  sharedBytes() {
    const objects = [
      ...this.batches,
      ...this.players.objects,
      ...this.skins,
      ...this.props.objects,
    ];
    return objects.reduce((sum, object) => sum + over(Uint8Array, object).length, 0);
  }
}

module.exports = { Crowd, kBatchCapacity };
