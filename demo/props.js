'use strict';
// Props: which figure carries what in which hand, their meshes, and nodes that follow the hands.
const { inModel } = require('./kind');
const { MeshBuilder } = require('./mesh');
const { createRandom } = require('./random');

/** Fraction of the characters that carry something, and fraction of those that wave it at times. */
const kCarrying = 0.7;
const kWaving = 0.6;

/** Minimum of seconds between the starts of two waves, and its random range. */
const kWavePeriod = 5;
const kWavePeriodRange = 3;

/** Grip of a stick in the space of the left hand, and direction of the stick, past the thumb. */
const kGrip = [0.065, -0.03, 0];
const kStick = [0.5, 0, Math.sqrt(0.75)];

/**
 * The prop of one character.
 * @typedef {Object} Part
 * @property {number} prop index in the props of the kind
 * @property {number} hand 0 for left, 1 for right
 * @property {number} period seconds from one wave to the next; 0 for no waves
 * @property {number} offset seconds by which its waves are early
 */

/**
 * @typedef {Object} Prop
 * @property {string} name
 * @property {import('./mesh').Mesh[]} meshes for the left and the right hand, in the space of the hand
 * @property {Array<Array<number[]>>} palettes colours of its parts; characters differ
 * @property {?{distance: number, color: number[]}} glow along the stick
 */

/** Builds the mesh of a prop around the stick of a hand. */
class PropBuilder {
  /** @param {number} side 1 for left, -1 for right */
  constructor(side) {
    this.side = side;
    this.mesh = new MeshBuilder();
  }

  /** A point `along` the stick, offset to the `back` of the upright stick, and across. */
  at(along, back = 0, across = 0) {
    return [
      (kGrip[0] + along * kStick[0] - back * kStick[2]) * this.side,
      kGrip[1] + across,
      kGrip[2] + along * kStick[2] + back * kStick[0],
    ];
  }

  /** A solid of revolution around the stick: its radius at distances along it. */
  turned(corners, part, distances, radii) {
    const tube = distances.map((along, i) => {
      return { center: this.at(along), wide: radii[i], deep: radii[i], follows: [[0, 1]] };
    });
    this.mesh.tube(tube, [0, 1, 0], corners, part);
    return this;
  }

  /** A folded cloth behind the stick, pointed at its end. */
  cloth(part, from, to, length) {
    const columns = 6;
    const rows = [];
    for (let column = 0; column <= columns; ++column) {
      const t = column / columns;
      const fold = 0.045 * t * Math.sin(7 * t);
      const ends = [from + 0.45 * t * (to - from), to - 0.45 * t * (to - from)];
      rows.push(ends.map((along) => this.mesh.vertex(this.at(along, t * length, fold), [[0, 1]])));
    }
    for (let column = 0; column < columns; ++column) {
      const [[a, b], [c, d]] = [rows[column], rows[column + 1]];
      this.mesh.triangle(a, b, d, part);
      this.mesh.triangle(a, d, c, part);
    }
    return this;
  }

  build() {
    return this.mesh.build();
  }
}

const wood = [170, 124, 84];
const iron = [64, 66, 78];

const makers = {
  torch: (builder) =>
    builder
      .turned(5, 0, [-0.16, 0.26], [0.016, 0.024])
      .turned(6, 1, [0.22, 0.3], [0.03, 0.05])
      .turned(6, 2, [0.28, 0.36, 0.46, 0.6], [0.04, 0.078, 0.055, 0.008]),
  lantern: (builder) =>
    builder
      .turned(5, 0, [-0.16, 0.2], [0.014, 0.016])
      .turned(6, 1, [0.2, 0.225], [0.085, 0.085])
      .turned(6, 2, [0.225, 0.31, 0.4], [0.06, 0.085, 0.06])
      .turned(6, 1, [0.4, 0.46], [0.09, 0.02]),
  flag: (builder) => builder.turned(5, 0, [-0.3, 0.82], [0.016, 0.014]).cloth(1, 0.46, 0.81, 0.6),
};

/**
 * All props.
 * @returns {Prop[]}
 */
function createProps() {
  const meshes = (name) => [1, -1].map((side) => makers[name](new PropBuilder(side)).build());
  return [
    {
      name: 'torch',
      meshes: meshes('torch'),
      palettes: [[wood, iron, [370, 220, 84]]],
      glow: { distance: 0.4, color: [255, 150, 50] },
    },
    {
      name: 'lantern',
      meshes: meshes('lantern'),
      palettes: [[wood, iron, [190, 330, 300]]],
      glow: { distance: 0.31, color: [90, 240, 210] },
    },
    {
      name: 'flag',
      meshes: meshes('flag'),
      palettes: [
        [290, 235, 70],
        [270, 270, 280],
        [125, 250, 135],
        [275, 130, 235],
      ].map((cloth) => [wood, cloth]),
      glow: null,
    },
  ];
}

/**
 * Assigns props to characters.
 * @param {number} props number of props
 * @param {number} count of characters
 * @param {number} seed
 * @returns {Array<?Part>} null for those with empty hands
 */
function dealProps(props, count, seed) {
  const random = createRandom(seed ^ 0x5bd1e995);
  return Array.from({ length: count }, () => {
    const [carries, prop, hand, waves, period, offset] = Array.from({ length: 6 }, random);
    if (carries >= kCarrying || props === 0) {
      return null;
    }
    const seconds = kWavePeriod + kWavePeriodRange * period;
    return {
      prop: Math.floor(prop * props),
      hand: hand < 0.3 ? 0 : 1,
      period: waves < kWaving ? seconds : 0,
      offset: offset * seconds,
    };
  });
}

/** Owns the nodes of props, which follow the hands. */
class CrowdProps {
  /** @param {import('./crowd').Crowd} crowd */
  constructor(crowd) {
    this.crowd = crowd;
    /** By character; null for empty hands. */
    this.nodes = [];
  }

  /** Characters that carry something. */
  get carriers() {
    return this.crowd.characters.map((_, i) => i).filter((i) => this.nodes[i] !== null);
  }

  /** Puts into a character's hand what it carries. */
  give(character) {
    const { cast, characters, kind, scene } = this.crowd;
    const part = cast[character] || null;
    this.nodes[character] =
      part === null
        ? null
        : characters[character].attach(scene.node(), inModel(kind.layers.hands[part.hand].node));
  }

  /**
   * The world matrix of a character's prop, in place.
   * @param {number} character
   * @returns {?Float32Array} 16 elements, column-major; null for empty hands
   */
  worldMatrix(character) {
    const node = this.nodes[character];
    return node === null ? null : node.worldMatrix;
  }
}

module.exports = { CrowdProps, createProps, dealProps, kGrip, kStick };
