'use strict';
// A live example that runs: its scene, its settings, and its frames for the picture. It needs no page.
const { Scene } = require('../../../scene');

/** The examples, by name. */
const examples = {
  crowd: require('../crowd'),
  layers: require('../layers'),
  culling: require('../culling'),
  sockets: require('../sockets'),
};

const kMatrixFloats = 16;

/** Place of the camera in frames: none, or the first. */
const kNoCamera = 255;

/** Colours of characters, in turn; of nodes that the camera sees, and of others. */
const kTints = [
  [0.36, 0.6, 0.92],
  [0.93, 0.49, 0.42],
  [0.42, 0.78, 0.62],
  [0.9, 0.74, 0.42],
  [0.68, 0.56, 0.9],
];
const kSeen = [0.95, 0.78, 0.3];
const kUnseen = [0.3, 0.36, 0.5];

/**
 * The mesh of nodes as pictures take it: a box around the origin.
 * @param {number} half of its edges
 */
function boxMesh(half) {
  const positions = [];
  const normals = [];
  const triangles = [];
  const corners = [
    [-1, -1],
    [1, -1],
    [1, 1],
    [-1, 1],
  ];
  for (let axis = 0; axis < 3; ++axis) {
    for (const side of [-1, 1]) {
      const first = positions.length / 3;
      for (const [a, b] of corners) {
        const corner = [0, 0, 0];
        corner[axis] = half * side;
        corner[(axis + 1) % 3] = half * a;
        corner[(axis + 2) % 3] = half * b;
        positions.push(...corner);
        normals.push(...[0, 1, 2].map((k) => (k === axis ? side : 0)));
      }
      triangles.push(first, first + 1, first + 2, first, first + 2, first + 3);
    }
  }
  const vertices = positions.length / 3;
  const display = {
    positions: Float32Array.from(positions),
    normals: Float32Array.from(normals),
    bones: new Uint16Array(4 * vertices),
    weights: Float32Array.from({ length: 4 * vertices }, (_, i) => (i % 4 === 0 ? 1 : 0)),
    parts: new Uint8Array(vertices),
    triangles: Uint32Array.from(triangles),
  };
  return { facts: { name: 'node', bones: 1, palettes: [[[0, 0, 0, 1]]], glow: null }, display };
}

/** Owns the scene of an example. */
class Stage {
  /**
   * @param {string} name of the example
   * @param {Object} engine
   * @param {import('./kinds').LiveKind} kind
   * @param {Object<string, number>} [settings] values of its controls, by default their own
   * @throws {Error} if the example can't show characters of that kind
   */
  constructor(name, engine, kind, settings = {}) {
    const { controls, create } = examples[name];
    this.kind = kind;
    this.controls = controls;
    this.settings = {};
    controls.forEach((control) => {
      this.settings[control.name] = control.value;
    });
    Object.assign(this.settings, settings);
    /** Seconds of the scene. */
    this.time = 0;
    this.scene = new Scene({ engine });
    this.example = create({ scene: this.scene, kind, settings: this.settings });
    this.meshes =
      this.example.boxes === undefined ? kind.meshes : [boxMesh(this.example.boxes().half)];
    if (this.example.props !== undefined) {
      this.meshes = [...this.meshes, ...kind.props];
    }
    this.advance(0);
  }

  /** @param {number} seconds since the last frame */
  advance(seconds) {
    this.time += seconds;
    this.example.update(seconds);
  }

  /** The scene, as the picture takes it. */
  describe() {
    const arrays = {};
    this.meshes.forEach(({ display }, i) => {
      Object.keys(display).forEach((part) => {
        arrays[`${i}.${part}`] = display[part];
      });
    });
    return { unit: 1, meshes: this.meshes.map(({ facts }) => facts), arrays };
  }

  /** Instances of each mesh: their matrices and looks. */
  instances() {
    const { example, kind } = this;
    const all = this.meshes.map(() => []);
    example.characters.forEach((character, i) => {
      const tint = kTints[i % kTints.length];
      kind.meshes.forEach(({ matricesOf }, mesh) => {
        all[mesh].push({ matrices: matricesOf(character), tint, variant: i });
      });
    });
    if (example.boxes !== undefined) {
      const { nodes, seen } = example.boxes();
      nodes.forEach((node) => {
        const tint = seen.has(node) ? kSeen : kUnseen;
        all[0].push({ matrices: node.worldMatrix, tint, variant: 0 });
      });
    }
    if (example.props !== undefined) {
      example.props().forEach((node, i) => {
        const mesh = kind.meshes.length + (i % kind.props.length);
        all[mesh].push({ matrices: node.worldMatrix, tint: kUnseen, variant: i });
      });
    }
    return all;
  }

  /** Ends of the bones of characters without meshes. */
  bones() {
    const ends = [];
    if (this.kind.meshes.length === 0) {
      for (const character of this.example.characters) {
        character.model.nodes.forEach(({ parent }, i) => {
          const above = parent < 0 ? character : character.node(parent);
          for (const { worldMatrix } of [character.node(i), above]) {
            ends.push(worldMatrix[12], worldMatrix[13], worldMatrix[14]);
          }
        });
      }
    }
    return Float32Array.from(ends);
  }

  /** The frame, as the picture takes it. */
  frame() {
    const instances = this.instances();
    const count = instances.reduce((sum, some) => sum + some.length, 0);
    const floats = instances.reduce(
      (sum, some, i) => sum + some.length * kMatrixFloats * this.meshes[i].facts.bones,
      0
    );
    const frame = {
      matrices: new Float32Array(floats),
      tints: new Float32Array(3 * count),
      variants: new Uint16Array(count),
      instanceCounts: instances.map(({ length }) => length),
    };
    let [instance, float] = [0, 0];
    instances.forEach((some, mesh) => {
      const { palettes } = this.meshes[mesh].facts;
      for (const { matrices, tint, variant } of some) {
        frame.matrices.set(matrices, float);
        frame.tints.set(tint, 3 * instance);
        frame.variants[instance] = variant % palettes.length;
        ++instance;
        float += matrices.length;
      }
    });
    const { pose } = this.example;
    const segments = this.bones();
    const radius = this.example.radius();
    return Object.assign(frame, {
      camera: pose === undefined ? kNoCamera : 0,
      pose: Float32Array.from(pose === undefined ? [] : poseNumbers(pose)),
      bounds: [0, 0.85, 0, radius, 0],
      segments,
      nodes: segments,
      spheres: new Float32Array(0),
      seen: new Uint8Array(0),
      counts: { segments: segments.length / 6, nodes: segments.length / 3, spheres: 0 },
    });
  }

  /** World matrices of all nodes: characters, nodes of their models, boxes and props. */
  worldMatrices() {
    const { characters, boxes, props } = this.example;
    const nodes = [].concat(
      ...characters.map((one) => [one, ...one.model.nodes.map((_, i) => one.node(i))]),
      boxes === undefined ? [] : boxes().nodes,
      props === undefined ? [] : props()
    );
    const result = new Float32Array(kMatrixFloats * nodes.length);
    nodes.forEach(({ worldMatrix }, i) => result.set(worldMatrix, kMatrixFloats * i));
    return result;
  }

  /** What the last frame has, in a line. */
  text() {
    return this.example.text();
  }

  dispose() {
    this.scene.dispose();
  }
}

/** A camera, as frames have it. */
function poseNumbers({ eye, target, fov, aspect, near, far }) {
  return [0, ...eye, ...target, 0, 1, 0, fov, aspect, near, far, 0, 0];
}

module.exports = { Stage, examples };
