'use strict';
// Models of scenes, of files with several scenes: which nodes they have, and that clips and skins follow.
const assert = require('assert');
const nq = require('../../../../lib');
const { importGltf } = require('../../../../lib/gltf');
const { Model, Scene } = require('../../../../scene');
const { ModelBuilder } = require('../../../fixtures/animations');

const engine = nq.getEngine();

/**
 * Two scenes that share nothing, and a node of none:
 *
 *   0 lamp (scene 'props') ── 1 bulb        5 forgotten
 *   2 figure (scene 'stage') ── 3 arm       4 mesh (scene 'stage'), with a skin of 2 and 3
 *
 * 'swing' moves the arm, 'flicker' the bulb, 'both' the arm and the lamp.
 */
function build(defaultScene) {
  const builder = new ModelBuilder();
  builder.node({ name: 'lamp', children: [1], translation: [100, 0, 0] });
  builder.node({ name: 'bulb', translation: [0, 2, 0] });
  builder.node({ name: 'figure', children: [3] });
  builder.node({ name: 'arm', translation: [0, 1, 0] });
  builder.node({ name: 'mesh', mesh: 0, skin: 1 });
  builder.node({ name: 'forgotten', translation: [0, 500, 0] });
  builder.json.scenes = [
    { name: 'props', nodes: [0] },
    { name: 'stage', nodes: [2, 4] },
  ];
  if (defaultScene === undefined) {
    delete builder.json.scene;
  } else {
    builder.json.scene = defaultScene;
  }
  const attributes = {
    POSITION: builder.accessor('VEC3', Float32Array.of(0, 0, 0, 0, 2, 0, 1, 0, 0), {
      min: [0, 0, 0],
      max: [1, 2, 0],
    }),
    JOINTS_0: builder.accessor('VEC4', Uint8Array.of(0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0), {
      normalized: false,
    }),
    WEIGHTS_0: builder.accessor('VEC4', Float32Array.of(1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0)),
  };
  builder.json.meshes = [{ primitives: [{ attributes }] }];
  builder.json.skins.push({ joints: [0, 1] }, { joints: [3, 2] });
  const slide = (node, x) => ({
    node,
    path: 'translation',
    times: [0, 1],
    values: [0, 1, 0, x, 1, 0],
  });
  builder.animation('swing', [slide(3, 4)]);
  builder.animation('flicker', [slide(1, 1)]);
  builder.animation('both', [slide(0, 50), slide(3, 2)]);
  return builder.glb();
}

const names = (list) => list.map(({ name }) => name);

describe('a model of a file with several scenes', () => {
  it('has the nodes of the scene that the file names, and their skins and clips', async () => {
    const model = await Model.load(build(1));
    assert.deepStrictEqual(names(model.nodes), ['figure', 'arm', 'mesh']);
    assert.deepStrictEqual(
      model.nodes.map(({ parent, skin }) => [parent, skin]),
      [
        [-1, -1],
        [0, -1],
        [-1, 0],
      ]
    );
    assert.deepStrictEqual(
      model.skins.map(({ joints }) => joints),
      [[1, 0]]
    );
    assert.deepStrictEqual(names(model.clips), ['swing', 'both']);
    assert.deepStrictEqual(model.warnings, [
      "clip 'flicker' moves no node of the scene: it was left out.",
    ]);
    assert.deepStrictEqual(
      model.meshes.map(({ node, skin }) => [node, skin]),
      [[2, 0]]
    );
    // The vertices reach x = 4 and y = 3 with 'swing'; nothing is near the lamp or the forgotten node.
    const { center, radius } = model.bounds;
    assert(Math.hypot(...center) + radius < 10, `${center}, ${radius}`);
    assert(radius > 2, `${radius}`);

    const scene = new Scene({ engine });
    const [character] = scene.instantiate(model);
    assert.strictEqual(scene.nodeCount, 4);
    character.play('both', { at: 0.5 });
    scene.update();
    const place = Array.from(character.node('arm').readWorldPosition([0, 0, 0]));
    place.forEach((value, i) => assert(Math.abs(value - [1, 1, 0][i]) < 1e-6, `${place}`));
    // Joint 0 of the skin is the arm; without inverse bind matrices, its matrix is that of the arm.
    assert.deepStrictEqual(
      Array.from(character.skinMatrices().subarray(0, 16)),
      Array.from(character.node('arm').worldMatrix)
    );
    scene.dispose();
  });

  it('has those of the first scene if the file names none', async () => {
    const model = await Model.load(build());
    assert.deepStrictEqual(names(model.nodes), ['lamp', 'bulb']);
    assert.deepStrictEqual(names(model.clips), ['flicker', 'both']);
    assert.deepStrictEqual(model.meshes, []);
  });

  it('has those of the scene of an option, by name or index', async () => {
    for (const scene of ['stage', 1]) {
      const model = await Model.load(build(0), { scene });
      assert.deepStrictEqual(names(model.nodes), ['figure', 'arm', 'mesh']);
    }
    const imported = await importGltf(build(0));
    assert.deepStrictEqual(names(Model.from(imported, { scene: 'stage' }).skins).length, 1);
    for (const scene of ['sky', 2, -1, true]) {
      await assert.rejects(Model.load(build(0), { scene }), {
        name: 'RangeError',
        message: /^Model\.load: options\.scene is .*: it has 'props', 'stage'\.$/,
      });
    }
    const bare = Object.assign({}, imported, { scenes: [] });
    assert.throws(() => Model.from(bare, { scene: 0 }), /options\.scene is 0: it has no scenes/);
  });

  it('has all nodes of imported data without scenes', async () => {
    const imported = await importGltf(build(0));
    const model = Model.from(Object.assign({}, imported, { scenes: [], defaultScene: -1 }));
    assert.strictEqual(model.nodes.length, 6);
    assert.deepStrictEqual(names(model.clips), ['swing', 'flicker', 'both']);
  });

  it('has joints outside of its scene if a mesh there follows them', async () => {
    const imported = await importGltf(build(1));
    const nodes = imported.nodes.map((node) => {
      return node.name === 'mesh' ? Object.assign({}, node, { skin: 0 }) : node;
    });
    const model = Model.from(Object.assign({}, imported, { nodes }));
    assert.deepStrictEqual(names(model.nodes), ['lamp', 'bulb', 'figure', 'arm', 'mesh']);
    assert.strictEqual(model.nodes[4].skin, 0);
  });
});
