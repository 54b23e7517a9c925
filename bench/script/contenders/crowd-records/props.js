'use strict';
// Props of a crowd: entities that follow the hands.
const { over } = require('../../../../tests/script/support/blocks');

/** Words of a 3D record, and offsets of its fields. */
const kRecordWords = 27;
const kRotationWWord = 4;
const kScaleWord = 8;
const kWorldMatrixWord = 11;

/** Commands of the stream. */
const kAddRoot = 1;
const kBindToBoneBatch = 7;

/**
 * Owns the entities of props. Each is a root and bound to a hand: the world pass writes the hand's transform into its
 * record and lists it as dirty, and the next refresh computes its matrix.
 */
class CrowdProps {
  /** @param {import('./crowd').Crowd} crowd with at most as many characters as a batch holds */
  constructor({ engine, kind, cast, handles }) {
    this.engine = engine;
    this.carriers = cast.map((part, i) => (part ? i : -1)).filter((i) => i >= 0);
    /** Objects with blocks: one batch, or none. */
    this.objects = [];
    this.elementOf = new Map(this.carriers.map((character, element) => [character, element]));
    if (this.carriers.length === 0) {
      return;
    }
    const batch = engine.createEntity(true, this.carriers.length);
    this.objects.push(batch);
    this.records = over(Float32Array, batch);
    const ids = this.carriers.map((character, element) => batch.id + element);
    ids.forEach((id, element) => {
      const word = kRecordWords * element;
      this.records[word + kRotationWWord] = 1;
      this.records.fill(1, word + kScaleWord, word + kWorldMatrixWord);
    });
    const hands = this.carriers.map((character) => {
      const { node } = kind.layers.hands[cast[character].hand];
      return handles[character * kind.nodes.length + node];
    });
    const commands = [kBindToBoneBatch, ids.length, ...ids, ...hands];
    ids.forEach((id) => commands.push(kAddRoot, id));
    over(Uint32Array, engine.entityCommands).set([4 * commands.length, ...commands]);
  }

  /** Computes the world matrices of the props that the last refresh has moved with the hands. */
  follow() {
    if (this.carriers.length > 0) {
      this.engine.refreshWorldTransform();
    }
  }

  /**
   * A copy of the world matrix of a character's prop from its shared record.
   * @param {number} character
   * @returns {?Float32Array} 16 elements, column-major; null for empty hands
   */
  worldMatrix(character) {
    if (!this.elementOf.has(character)) {
      return null;
    }
    const word = kRecordWords * this.elementOf.get(character) + kWorldMatrixWord;
    return this.records.slice(word, word + 16);
  }
}

module.exports = { CrowdProps };
