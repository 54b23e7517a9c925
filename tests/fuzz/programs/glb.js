'use strict';
// Mutated .glb files through the importer and `Model.load`: bytes of any chunk, and the structure of the JSON: fields,
// indices, bounds of accessors, cycles of nodes. It fails
// - if the process ends, or a file takes too long or too much memory,
// - if the importer rejects with anything but a GltfError,
// - if a model is accepted that a scene on a checked engine can't show and play.
const assert = require('assert');
const fs = require('fs');
const path = require('path');
const { checked } = require('../../../lib/checked');
const { importGltf } = require('../../../lib/gltf');
const { Model, Scene } = require('../../../scene');
const { ModelBuilder, glbOf, openGlb } = require('../../fixtures/animations');
const { skeleton } = require('../../fixtures/models');

const build = require(process.env.NQ_MODULE);
const kReadable = /^[^:]+: [^]+: [^]+\.$/;

/** A file may take this much more resident memory, at its peak. */
const kMostBytes = 500 * 1024 * 1024;

/** A small model with a skin, a mesh and two animations. */
function skinned() {
  const builder = new ModelBuilder();
  builder.node({ name: 'top', children: [1, 3] });
  builder.node({ name: 'bone', children: [2] });
  builder.node({ name: 'tip', translation: [0, 1, 0] });
  builder.node({ name: 'body', mesh: 0, skin: 0 });
  const path = (name, width) => ({
    node: 1,
    path: name,
    times: [0, 0.5, 1],
    values: Array.from({ length: 3 * width }, (_, i) => (i % width === width - 1 ? 1 : 0)),
  });
  builder.animation('move', [path('translation', 3), path('rotation', 4)]);
  builder.animation('grow', [
    { node: 2, path: 'scale', times: [0, 1], values: [1, 1, 1, 2, 2, 2], interpolation: 'STEP' },
  ]);
  const identity = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1];
  const matrices = builder.accessor('MAT4', Float32Array.from([...identity, ...identity]));
  builder.json.skins.push({ joints: [1, 2], inverseBindMatrices: matrices });
  const properties = { normalized: false };
  const attributes = {
    POSITION: builder.accessor('VEC3', Float32Array.of(0, 0, 0, 1, 0, 0, 0, 1, 0), properties),
    JOINTS_0: builder.accessor('VEC4', new Uint8Array(12), properties),
    WEIGHTS_0: builder.accessor(
      'VEC4',
      Float32Array.of(1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0),
      properties
    ),
  };
  const indices = builder.accessor('SCALAR', Uint16Array.of(0, 1, 2), properties);
  builder.json.meshes = [{ primitives: [{ attributes, indices }] }];
  builder.json.scenes = [{ nodes: [0] }];
  builder.json.scene = 0;
  return builder.glb();
}

function bases() {
  const { json, binary } = skeleton();
  const files = [skinned(), glbOf(Buffer.from(JSON.stringify(json)), binary)];
  const folder = process.env.NQ_MODELS;
  if (folder !== undefined && fs.existsSync(folder)) {
    fs.readdirSync(folder)
      .filter((name) => name.endsWith('.glb'))
      .forEach((name) => files.push(fs.readFileSync(path.join(folder, name))));
  }
  return files;
}

const kValues = [
  null,
  true,
  '',
  'x',
  -1,
  0,
  1,
  2,
  3,
  0.5,
  255,
  65535,
  5121,
  5126,
  4194304,
  2 ** 31,
  2 ** 32,
  2 ** 53,
  1e308,
  -1e308,
  1e-40,
  [],
  {},
  [0],
  [-1],
  [[]],
  [null],
  { bufferView: 0 },
  { count: 1, indices: { bufferView: 0, componentType: 5121 }, values: { bufferView: 0 } },
  '__proto__',
  'VEC3',
  'SCALAR',
  'CUBICSPLINE',
  'STEP',
  '../../x.bin',
  'data:application/octet-stream;base64,AAAA',
  'http://127.0.0.1:9/x.bin',
  'file:///dev/zero',
  '/dev/zero',
];
const kKeys = [
  ...['sparse', 'byteStride', 'byteOffset', 'count', 'extensions', 'uri', 'matrix', 'children'],
  ...['skin', 'mesh', 'skeleton', 'min', 'max', 'targets', 'extras', 'normalized', 'buffer'],
  ...['input', 'output', 'interpolation', 'extensionsRequired', 'bufferView', 'material'],
];

class Program {
  constructor() {
    this.files = bases();
    this.counts = { models: 0, refused: 0 };
    this.engine = checked(build.getEngine(), { onHint: null });
  }

  /** Places in JSON: objects or lists, and a key of them. */
  places(json) {
    const found = [];
    const visit = (value) => {
      if (typeof value === 'object' && value !== null) {
        Object.keys(value).forEach((key) => {
          found.push([value, key]);
          visit(value[key]);
        });
      }
    };
    visit(json);
    return found;
  }

  mutateJson(json) {
    const { draw } = this;
    const places = this.places(json);
    const [owner, key] = draw.pick(places);
    const clone = (value) => (value === undefined ? null : JSON.parse(JSON.stringify(value)));
    draw.pick([
      () => {
        owner[key] = clone(draw.pick(kValues));
      },
      () => {
        owner[key] = clone(draw.pick(kValues));
      },
      () => {
        if (Array.isArray(owner)) {
          owner.splice(Number(key), 1);
        } else {
          delete owner[key];
        }
      },
      () => {
        const [other, name] = draw.pick(places);
        owner[key] = clone(other[name]);
      },
      () => {
        if (typeof owner[key] === 'number') {
          owner[key] += draw.pick([-1, 1, 4, -4, 100, 0.5]);
        } else if (Array.isArray(owner[key]) && owner[key].length > 0) {
          owner[key].push(clone(draw.pick(owner[key])));
        }
      },
      () => {
        if (!Array.isArray(owner)) {
          owner[draw.pick(kKeys)] = clone(draw.pick(kValues));
        }
      },
      () => {
        const nodes = Array.isArray(json.nodes) ? json.nodes : [];
        const node = nodes.length > 0 ? draw.pick(nodes) : null;
        if (typeof node === 'object' && node !== null) {
          node.children = [draw.below(nodes.length), draw.below(nodes.length)];
        }
      },
    ])();
  }

  /** Plays a model on a checked engine. */
  show(model) {
    const scene = new Scene({ engine: this.engine });
    try {
      const [character] = scene.instantiate(model);
      for (const clip of model.clips.slice(0, 3)) {
        character.play(clip, { beside: true });
        scene.update(0.1);
        character.setTime(clip, clip.duration);
        scene.update(0.1);
      }
      scene.update(1);
    } finally {
      scene.dispose();
      model.dispose();
    }
  }

  async step(draw) {
    this.draw = draw;
    // Real models are large, and take longer.
    const base = this.files[draw.below(draw.chance(0.9) ? 2 : this.files.length)];
    let bytes;
    if (draw.chance(0.2)) {
      bytes = Buffer.from(draw.mutate(base, 8));
    } else {
      const { json, binary } = openGlb(base);
      for (let count = 1 + draw.below(3); count > 0; --count) {
        this.mutateJson(json);
      }
      const content = draw.chance(0.3) ? Buffer.from(draw.mutate(binary, 8)) : binary;
      bytes = glbOf(Buffer.from(JSON.stringify(json)), content);
    }
    const before = process.resourceUsage().maxRSS;
    const isModel = draw.chance(0.7);
    try {
      if (isModel) {
        const model = await Model.load(bytes, { name: 'it' });
        this.show(model);
      } else {
        await importGltf(bytes, { name: 'it', holdEnd: draw.chance(0.5) });
      }
      ++this.counts.models;
    } catch (error) {
      assert(error.name === 'GltfError' && kReadable.test(error.message), error.stack);
      ++this.counts.refused;
    }
    const grown = 1024 * (process.resourceUsage().maxRSS - before);
    assert(grown < kMostBytes, `a file of ${bytes.length} bytes took ${grown} bytes of memory`);
  }

  end() {
    return this.counts;
  }
}

module.exports = { start: () => new Program() };
