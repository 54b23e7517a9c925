'use strict';
// What it shows: the skin of a glTF model, animated by its own clip.
//
//   node examples/06-skinning.js [FILE.glb]
//
// Without a file it uses a small model that reed.js generates: a reed of three joints that bends. The engine computes
// a matrix per joint; here JavaScript transforms the vertices by them, in a game the GPU does. Needs the package
// @gltf-transform/core.
const nq = require('../lib');
const { importGltf } = require('../lib/gltf');
const { makeReed } = require('./reed');

const { componentKinds, dataModelKinds } = nq.layout;

/** Vertices of a node's mesh; `source` is a path, or the text of a model. */
async function readVertices(source, node) {
  // Loaded here, after the import, which reports a missing package with the cure.
  const { NodeIO } = require('@gltf-transform/core');
  const io = new NodeIO();
  const isPath = typeof source === 'string';
  const inline = isPath ? null : { json: JSON.parse(source), resources: {} };
  const root = (isPath ? await io.read(source) : await io.readJSON(inline)).getRoot();
  const vertices = [];
  for (const primitive of root.listNodes()[node].getMesh().listPrimitives()) {
    const [positions, joints, weights] = ['POSITION', 'JOINTS_0', 'WEIGHTS_0'].map((name) =>
      primitive.getAttribute(name)
    );
    // Parts without joints are left out.
    const count = joints === null ? 0 : positions.getCount();
    for (let i = 0; i < count; ++i) {
      const vertex = { position: positions.getElement(i, []), joints: joints.getElement(i, []) };
      vertices.push(Object.assign(vertex, { weights: weights.getElement(i, []) }));
    }
  }
  return vertices;
}

async function main(source) {
  // --- Set up: an entity for each node, an animator for the first clip, a skinning component for the skin.
  const { nodes, roots, skins, animations } = await importGltf(source);
  const skinned = nodes.find(({ mesh, skin }) => mesh >= 0 && skin >= 0);
  if (skinned === undefined || animations.length === 0) {
    throw new Error('The model has no skin or no animation: give another file.');
  }
  const skin = skins[skinned.skin];
  const [animation] = animations;
  const vertices = await readVertices(source, skinned.fileIndex);

  const engine = nq.getEngine();
  const commands = new nq.EntityCommandWriter(engine);
  const entities = new nq.Entity3DView(engine.createEntity(true, nodes.length));
  nodes.forEach(({ parent, rotation, translation, scale }, i) => {
    entities.setQuaternion(i, ...rotation);
    entities.setPosition(i, ...translation);
    entities.setScale(i, ...scale);
    if (parent >= 0) {
      commands.addChild(entities.handle(parent), entities.handle(i));
    }
  });
  roots.forEach((root) => commands.addRoot(entities.handle(root)));
  new nq.DirtyListWriter(engine).appendRange(entities.id, nodes.length);

  const targets = animation.targets.map((node) => entities.handle(node));
  const clip = engine.createDataModel(dataModelKinds.clip, animation.clip);
  const player = engine.createComponent(componentKinds.animator, 1, targets.length);
  const animator = new nq.AnimatorView(player, 1);
  animator.setTargets(targets);

  const count = skin.joints.length;
  const bones = engine.createDataModel(dataModelKinds.bones, skin.inverseBindMatrices);
  const skinning = new nq.SkinningView(engine.createComponent(componentKinds.skinning, count));
  skinning.setBonesModel(bones.id);
  skin.joints.forEach((joint, i) => skinning.setBone(i, i, entities.handle(joint)));
  const matrices = skinning.results;

  // --- Frame: the clip, then world matrices, then skinning matrices, which are computed from them.
  function frame(seconds) {
    animator.setClip(0, clip.id, seconds * animation.framesPerSecond, 1);
    engine.updateAnimator(animator.id);
    engine.refreshWorldTransform();
    engine.updateSkinningMatrix(skinning.id);
  }

  // --- Print: bounds of the skinned vertices in world space.
  function transform({ position: [x, y, z], joints, weights }, axis) {
    return joints.reduce((sum, joint, i) => {
      const at = 16 * joint + axis;
      const along = matrices[at] * x + matrices[at + 4] * y + matrices[at + 8] * z;
      return sum + weights[i] * (along + matrices[at + 12]);
    }, 0);
  }
  const round = (value) => Number(value.toFixed(3)) || 0;
  const { name, duration } = animation;
  console.log(`${name}: ${count} joints, ${vertices.length} vertices, ${round(duration)} seconds`);
  for (const part of [0, 0.25, 0.5, 0.75]) {
    frame(part * duration);
    const bounds = ['x', 'y', 'z'].map((letter, axis) => {
      const values = vertices.map((vertex) => transform(vertex, axis));
      const [least, most] = [Math.min, Math.max].map((best) => values.reduce((a, b) => best(a, b)));
      return `${letter} ${round(least)} to ${round(most)}`;
    });
    console.log(`at ${round(part * duration)} s: ${bounds.join(', ')}`);
  }
}

main(process.argv[2] || makeReed()).catch((error) => {
  console.error(error.message);
  process.exitCode = 1;
});
