'use strict';
// Characters from glTF 2.0 files: nodes, skins, clips and meshes.
const path = require('path');
const { Logger, NodeIO } = require('@gltf-transform/core');
const { buildClip, readClip, sampleTypes } = require('../lib/clip');
const { GltfError, importGltf } = require('../lib/gltf');
const { MeshBuilder, kInfluences } = require('./mesh');
const { UserError, oneLine } = require('./user-error');

/** Mode of primitives that are drawn: triangles. */
const kTriangles = 4;

/** Number of bones that fit the vertex attributes. */
const kMostBones = 65536;

const identity = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1];

/** Properties of a node that clips move: their names, and the sample types of their curves in order. */
const properties = [
  ['position', ['PositionX', 'PositionY', 'PositionZ']],
  ['scale', ['ScaleX', 'ScaleY', 'ScaleZ']],
  ['rotation', ['QuaternionX', 'QuaternionY', 'QuaternionZ', 'QuaternionW']],
].map(([name, types]) => ({ name, types: types.map((type) => sampleTypes[type]) }));

/**
 * The nodes to show: the trees of the scene, and those that its skins need.
 * @param {import('../lib/gltf').ImportedModel} model
 * @returns {number[]} indices, parents before children
 */
function shownNodes({ nodes, roots, scenes, defaultScene, skins }) {
  const rootOf = [];
  nodes.forEach(({ parent }, index) => {
    rootOf.push(parent < 0 ? index : rootOf[parent]);
  });
  const scene = scenes[Math.max(0, defaultScene)];
  const shownRoots = new Set(scene === undefined ? roots : scene.nodes);
  nodes.forEach(({ skin, mesh }, index) => {
    if (shownRoots.has(rootOf[index]) && skin >= 0 && mesh >= 0) {
      skins[skin].joints.forEach((joint) => shownRoots.add(rootOf[joint]));
    }
  });
  return nodes.map((node, index) => index).filter((index) => shownRoots.has(rootOf[index]));
}

/** The nodes of a character: one for its position, and the file's nodes below it. */
function kindNodes({ nodes }, places) {
  const still = { position: [0, 0, 0], rotation: [0, 0, 0, 1], scale: [1, 1, 1] };
  const result = [Object.assign({ name: 'place', parent: -1 }, still)];
  for (const index of places.keys()) {
    const { name, parent, translation: position, rotation, scale } = nodes[index];
    const above = parent < 0 ? 0 : places.get(parent);
    result.push({ name, parent: above, position, rotation, scale });
  }
  return result;
}

/**
 * The clips of a character. A channel that only some clips move gets curves of its rest value in the others: blending
 * would otherwise treat it as zero there.
 * @param {import('../lib/gltf').ImportedModel} model
 * @param {Map<number, number>} places of the file's nodes among the character's
 * @param {import('./crowd').KindNode[]} nodes
 * @returns {import('./crowd').KindClip[]}
 */
function kindClips({ animations }, places, nodes) {
  const clips = animations
    .map((animation) => {
      const { curves } = readClip(animation.clip);
      const shown = curves
        .map((curve) => ({ node: places.get(animation.targets[curve.target]), curve }))
        .filter(({ node }) => node !== undefined);
      return { animation, curves: shown };
    })
    .filter(({ curves }) => curves.length > 0);
  const moved = new Map();
  for (const { curves } of clips) {
    for (const { node, curve } of curves) {
      const property = properties.find(({ types }) => types.includes(curve.type));
      moved.set(node, (moved.get(node) || new Set()).add(property));
    }
  }
  const targets = Array.from(moved.keys()).sort((a, b) => a - b);
  return clips.map(({ animation, curves }) => {
    const { name, framesPerSecond, frameCount } = animation;
    const all = curves.map(({ node, curve }) =>
      Object.assign({}, curve, { target: targets.indexOf(node) })
    );
    const present = new Set(all.map(({ target, type }) => `${target} ${type}`));
    targets.forEach((node, target) => {
      for (const property of moved.get(node)) {
        property.types.forEach((type, i) => {
          if (!present.has(`${target} ${type}`)) {
            const value = nodes[node][property.name][i];
            all.push({ target, type, keys: [{ frame: 0, value, inTangent: 0, outTangent: 0 }] });
          }
        });
      }
    });
    const bytes = buildClip({ name, framesPerSecond, frameCount, curves: all });
    return { name, framesPerSecond, frameCount, stride: 0, targets, bytes };
  });
}

/** Collects bones: the joints of skins, and nodes with a mesh without a skin. */
class BoneList {
  constructor(skins, places) {
    this.skins = skins;
    this.places = places;
    this.joints = [];
    this.inverseBind = [];
    this.firsts = new Map();
  }

  add(joint, matrix) {
    this.joints.push(joint);
    this.inverseBind.push(...matrix);
    return this.joints.length - 1;
  }

  /** Index of the first bone of a skin. */
  ofSkin(index) {
    if (!this.firsts.has(index)) {
      this.firsts.set(index, this.joints.length);
      const { joints, inverseBindMatrices } = this.skins[index];
      const matrices = new Float32Array(inverseBindMatrices);
      joints.forEach((joint, i) => {
        this.add(this.places.get(joint), matrices.subarray(16 * i, 16 * (i + 1)));
      });
    }
    return this.firsts.get(index);
  }
}

/** Reads and checks an element of a mesh attribute. */
function elementOf(accessor, index, width) {
  const element = accessor.getElement(index, []).slice(0, width);
  if (element.length !== width || !element.every(Number.isFinite)) {
    throw new Error('a vertex of its meshes is not of finite numbers');
  }
  return element;
}

/** Adds the vertices of a primitive; returns the index of the first. */
function addVertices(builder, primitive, firstBone, boneCount, isSkinned) {
  const [positions, joints, weights] = ['POSITION', 'JOINTS_0', 'WEIGHTS_0'].map((semantic) =>
    primitive.getAttribute(semantic)
  );
  const first = builder.positions.length / 3;
  for (let vertex = 0; vertex < positions.getCount(); ++vertex) {
    let follows = [[firstBone, 1]];
    if (isSkinned) {
      const bones = elementOf(joints, vertex, kInfluences);
      const shares = elementOf(weights, vertex, kInfluences);
      const sum = shares.reduce((a, b) => a + b, 0);
      if (!bones.every((bone) => bone < boneCount) || !(sum > 0)) {
        throw new Error('a vertex of its meshes follows a joint that does not exist');
      }
      follows = bones.map((bone, i) => [firstBone + bone, shares[i] / sum]);
    }
    builder.vertex(elementOf(positions, vertex, 3), follows);
  }
  return first;
}

/** Adds the mesh of a node. */
function addNodeMesh(builder, bones, { mesh, skin }, place, meshes) {
  for (const primitive of meshes[mesh].listPrimitives()) {
    const [positions, joints, weights] = ['POSITION', 'JOINTS_0', 'WEIGHTS_0'].map((semantic) =>
      primitive.getAttribute(semantic)
    );
    if (primitive.getMode() !== kTriangles || positions === null) {
      continue;
    }
    const isSkinned = skin >= 0 && joints !== null && weights !== null;
    const count = positions.getCount();
    if (isSkinned && !(joints.getCount() === count && weights.getCount() === count)) {
      throw new Error('the attributes of its meshes differ in length');
    }
    const firstBone = isSkinned ? bones.ofSkin(skin) : bones.add(place, identity);
    const boneCount = isSkinned ? bones.skins[skin].joints.length : 1;
    const first = addVertices(builder, primitive, firstBone, boneCount, isSkinned);
    const indices = primitive.getIndices();
    const corners = indices === null ? count : indices.getCount();
    const cornerAt = (i) => (indices === null ? i : indices.getScalar(i));
    for (let i = 0; i + 2 < corners; i += 3) {
      const triangle = [cornerAt(i), cornerAt(i + 1), cornerAt(i + 2)];
      if (!triangle.every((corner) => corner < count)) {
        throw new Error('a triangle of its meshes has a vertex that does not exist');
      }
      builder.triangle(...triangle.map((corner) => first + corner), 0);
    }
  }
}

/** Draws a stick for each parent-child link, for files without meshes. */
function addSticks(builder, bones, nodes) {
  const parents = new Set(nodes.map(({ parent }) => parent));
  const lengths = nodes.map(({ position }) => Math.hypot(...position)).filter((value) => value > 0);
  const typical = lengths.length > 0 ? lengths.sort((a, b) => a - b)[lengths.length >> 1] : 1;
  nodes.forEach(({ position, parent }, node) => {
    const bone = node === 0 ? -1 : bones.add(node, identity);
    if (parent > 0) {
      builder.spindle([0, 0, 0], position, parent - 1, 0);
    }
    if (node > 0 && !parents.has(node)) {
      builder.spindle([0, 0, 0], [0, typical / 3, 0], bone, 0);
    }
  });
}

/** The meshes of a file, in its order. */
async function readMeshes(file) {
  const io = new NodeIO().setLogger(new Logger(Logger.Verbosity.SILENT));
  const document = await io.readJSON(await io.readAsJSON(path.resolve(file)));
  return document.getRoot().listMeshes();
}

/**
 * Loads a kind of character from a glTF file.
 * @param {string} file
 * @returns {Promise<import('./crowd').Kind>}
 * @throws {UserError}
 */
async function loadModel(file) {
  let model;
  try {
    model = await importGltf(file);
  } catch (error) {
    if (error instanceof GltfError) {
      throw new UserError(error.message);
    }
    throw error;
  }
  const shown = shownNodes(model);
  if (shown.length === 0) {
    throw new UserError(`model '${file}': it has no nodes to show: export it again as glTF 2.0.`);
  }
  const places = new Map(shown.map((index, i) => [index, i + 1]));
  const nodes = kindNodes(model, places);
  let builder = new MeshBuilder();
  let bones = new BoneList(model.skins, places);
  try {
    const withMesh = shown.filter((index) => model.nodes[index].mesh >= 0);
    const meshes = withMesh.length > 0 ? await readMeshes(file) : [];
    for (const index of withMesh) {
      addNodeMesh(builder, bones, model.nodes[index], places.get(index), meshes);
    }
  } catch (error) {
    const trouble = oneLine(error.message).replace(/\.$/, '');
    throw new UserError(
      `model '${file}': its meshes can't be read, ${trouble}: export it again as one .glb.`
    );
  }
  if (builder.triangles.length === 0) {
    builder = new MeshBuilder();
    bones = new BoneList(model.skins, places);
    addSticks(builder, bones, nodes);
  }
  if (bones.joints.length > kMostBones) {
    const trouble = `${bones.joints.length} bones are more than ${kMostBones}`;
    throw new UserError(`model '${file}': its ${trouble}: choose a smaller model.`);
  }
  return {
    name: path.basename(file),
    nodes,
    joints: bones.joints,
    inverseBind: Float32Array.from(bones.inverseBind),
    mesh: builder.build(),
    clips: kindClips(model, places, nodes),
    layers: null,
    notes: model.warnings,
  };
}

module.exports = { loadModel };
