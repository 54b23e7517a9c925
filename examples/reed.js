'use strict';
// A small glTF 2.0 model for the skinning example, generated here so that it needs no file: a reed of three joints,
// one unit above each other, that bends to the left and back within two seconds.
//
//   3  o--o   rows of two vertices; a row between two joints follows both with weight 0.5
//   2  o--o   joint 2, rotates by 90 degrees in the middle of the clip
//   1  o--o   joint 1, the same
//   0  o--o   joint 0, does not move
//
// With a path, it writes a file: node examples/reed.js reed.gltf
const fs = require('fs');

const kFloat = 5126;
const kUnsignedShort = 5123;
const kUnsignedByte = 5121;

/** Collects accessors, each over its own buffer view. */
class Accessors {
  constructor() {
    this.parts = [];
    this.views = [];
    this.accessors = [];
    this.bytes = 0;
  }

  /** Adds elements and returns the index of their accessor. */
  add(type, componentType, array, extra) {
    const width = { SCALAR: 1, VEC3: 3, VEC4: 4, MAT4: 16 }[type];
    const part = Buffer.alloc(Math.ceil(array.byteLength / 4) * 4);
    part.set(new Uint8Array(array.buffer, array.byteOffset, array.byteLength));
    this.views.push({ buffer: 0, byteOffset: this.bytes, byteLength: array.byteLength });
    this.parts.push(part);
    this.bytes += part.length;
    const bufferView = this.views.length - 1;
    const accessor = { bufferView, componentType, type, count: array.length / width };
    return this.accessors.push(Object.assign(accessor, extra)) - 1;
  }
}

/**
 * Generates the model.
 * @param {string[]} [clips] names: of the clip that bends to the left, and of one that bends to the front
 * @returns {Buffer} a .gltf file with embedded bytes
 */
function makeReed(clips = ['bend']) {
  const data = new Accessors();
  const positions = [];
  const joints = [];
  const weights = [];
  for (let y = 0; y < 4; ++y) {
    const [lower, upper] = [Math.max(0, y - 1), Math.min(y, 2)];
    for (const x of [-0.25, 0.25]) {
      positions.push(x, y, 0);
      joints.push(lower, upper, 0, 0);
      weights.push(0.5, 0.5, 0, 0);
    }
  }
  const triangles = [0, 2, 4].map((i) => [i, i + 1, i + 2, i + 1, i + 3, i + 2]);
  const box = { min: [-0.25, 0, 0], max: [0.25, 3, 0] };
  const attributes = {
    POSITION: data.add('VEC3', kFloat, Float32Array.from(positions), box),
    JOINTS_0: data.add('VEC4', kUnsignedByte, Uint8Array.from(joints)),
    WEIGHTS_0: data.add('VEC4', kFloat, Float32Array.from(weights)),
  };
  const indices = data.add('SCALAR', kUnsignedShort, Uint16Array.from([].concat(...triangles)));
  // Inverse bind matrices transform a vertex of the reed at rest into the space of a joint: lower by y.
  const below = (y) => [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, -y, 0, 1];
  const inverse = Float32Array.from([].concat(...[0, 1, 2].map(below)));
  const half = Math.SQRT1_2;
  const input = data.add('SCALAR', kFloat, Float32Array.of(0, 1, 2), { min: [0], max: [2] });
  const turns = [
    Float32Array.of(0, 0, 0, 1, 0, 0, half, half, 0, 0, 0, 1), // about z
    Float32Array.of(0, 0, 0, 1, half, 0, 0, half, 0, 0, 0, 1), // about x
  ];
  const outputs = clips.map((_, i) => data.add('VEC4', kFloat, turns[i]));
  const inverseBindMatrices = data.add('MAT4', kFloat, inverse);
  const bytes = Buffer.concat(data.parts);
  const uri = `data:application/octet-stream;base64,${bytes.toString('base64')}`;
  const model = {
    asset: { version: '2.0' },
    scene: 0,
    scenes: [{ nodes: [0, 1] }],
    nodes: [
      { name: 'reed', mesh: 0, skin: 0 },
      { name: 'joint 0', children: [2] },
      { name: 'joint 1', translation: [0, 1, 0], children: [3] },
      { name: 'joint 2', translation: [0, 1, 0] },
    ],
    meshes: [{ primitives: [{ attributes, indices }] }],
    skins: [{ joints: [1, 2, 3], inverseBindMatrices }],
    animations: clips.map((name, i) => ({
      name,
      samplers: [{ input, output: outputs[i] }],
      channels: [2, 3].map((node) => ({ sampler: 0, target: { node, path: 'rotation' } })),
    })),
    accessors: data.accessors,
    bufferViews: data.views,
    buffers: [{ byteLength: bytes.length, uri }],
  };
  return Buffer.from(JSON.stringify(model, null, 2));
}

module.exports = { makeReed };

if (require.main === module) {
  fs.writeFileSync(process.argv[2] || 'reed.gltf', makeReed());
}
