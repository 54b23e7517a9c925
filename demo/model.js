'use strict';
// Characters from glTF 2.0 files: nodes, skins, clips and meshes.
const path = require('path');
const { GltfError, importGltf } = require('../lib/gltf');
const { readMeshes } = require('../lib/scene/meshes');
const { createKind } = require('./kind');
const { MeshBuilder, kInfluences } = require('./mesh');
const { UserError, oneLine } = require('./user-error');

/** Mode of primitives that are drawn: triangles. */
const kTriangles = 4;

/** Number of bones that fit the vertex attributes. */
const kMostBones = 65536;

const identity = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1];

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

/** The clips that move nodes of a character; the model completes them, so that any two can be blended. */
function kindClips({ animations }, places) {
  const placeOf = (node) => (places.has(node) ? places.get(node) : -1);
  return animations
    .map(({ name, framesPerSecond, frameCount, targets, clip: bytes }) => {
      const shown = targets.map(placeOf);
      return { name, framesPerSecond, frameCount, stride: 0, targets: shown, bytes };
    })
    .filter(({ targets }) => targets.some((node) => node >= 0));
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

/** Elements of an attribute, checked. */
function elementOf(array, index, width) {
  const element = Array.from(array.subarray(width * index, width * (index + 1)));
  if (!element.every(Number.isFinite)) {
    throw new Error('a vertex of its meshes is not of finite numbers');
  }
  return element;
}

/** Adds the vertices of a primitive; returns the index of the first. */
function addVertices(builder, { positions, joints, weights }, firstBone, boneCount, isSkinned) {
  const first = builder.positions.length / 3;
  for (let vertex = 0; vertex < positions.length / 3; ++vertex) {
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

/** Adds the triangles of a node's mesh. */
function addNodeMesh(builder, bones, { skin, primitives }, place) {
  for (const primitive of primitives) {
    const { positions, joints, weights, indices } = primitive;
    if (primitive.mode !== kTriangles) {
      continue;
    }
    const isSkinned = skin >= 0 && joints !== null && weights !== null;
    const count = positions.length / 3;
    if (isSkinned && (joints.length !== 4 * count || weights.length !== 4 * count)) {
      throw new Error('the attributes of its meshes differ in length');
    }
    const firstBone = isSkinned ? bones.ofSkin(skin) : bones.add(place, identity);
    const boneCount = isSkinned ? bones.skins[skin].joints.length : 1;
    const first = addVertices(builder, primitive, firstBone, boneCount, isSkinned);
    const corners = indices === null ? count : indices.length;
    for (let i = 0; i + 2 < corners; i += 3) {
      const triangle = [i, i + 1, i + 2].map((k) => (indices === null ? k : indices[k]));
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

/**
 * Loads a kind of character from a glTF file.
 * @param {string} file
 * @returns {Promise<import('./kind').Kind>}
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
  const notes = model.warnings.slice();
  let builder = new MeshBuilder();
  let bones = new BoneList(model.skins, places);
  try {
    for (const mesh of await readMeshes(file, model.nodes, notes)) {
      if (places.has(mesh.node)) {
        addNodeMesh(builder, bones, mesh, places.get(mesh.node));
      }
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
  return createKind({
    name: path.basename(file),
    nodes,
    joints: bones.joints,
    inverseBind: Float32Array.from(bones.inverseBind),
    mesh: builder.build(),
    clips: kindClips(model, places),
    layers: null,
    notes,
  });
}

module.exports = { loadModel };
