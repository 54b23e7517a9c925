'use strict';
/**
 * Importer of glTF 2.0 files: `require('nq_logic/lib/gltf')`. It needs the package
 * `@gltf-transform/core`, and loads it on first use.
 *
 * @module nq_logic/lib/gltf
 */

// How a file maps to the result is described in docs/content.md.
const fs = require('fs');
const path = require('path');
const { bytesOf, bytesOfBase64, isSharedBuffer } = require('./file-bytes');
const {
  GltfError,
  checkAccessor,
  checkIndices,
  checkVersion,
  elementWidths,
  isIndex,
  isObject,
  kExportAgain,
  labelOf,
  listOf,
  oneLine,
  openContainer,
  orderNodes,
  shown,
} = require('./gltf-check');
const { convertAnimation } = require('./gltf-clip');
const { loadLibrary } = require('./gltf-library');
const { isInstance } = require('./value-checks');

const kMatrixFloats = 16;
const kMostFramesPerSecond = 1000;

/** Accessor type of each animated property; others are left out. */
const pathTypes = new Map([
  ['translation', 'VEC3'],
  ['rotation', 'VEC4'],
  ['scale', 'VEC3'],
]);

const interpolations = ['LINEAR', 'STEP', 'CUBICSPLINE'];

/**
 * A node of the file.
 * @typedef {Object} ImportedNode
 * @property {string} name '' if it has none.
 * @property {number} fileIndex Its index in the file, where parents may follow their children.
 * @property {number} parent Index of its parent in the result, which is smaller than its own, or -1.
 * @property {[number, number, number]} translation x, y, z in the parent's space.
 * @property {[number, number, number, number]} rotation Quaternion x, y, z, w.
 * @property {[number, number, number]} scale x, y, z.
 * @property {number} skin Index of its skin in the result, or -1.
 * @property {number} mesh Index of its mesh in the file, or -1.
 */

/**
 * A skin of the file.
 * @typedef {Object} ImportedSkin
 * @property {string} name '' if it has none.
 * @property {number[]} joints Indices of nodes in the result.
 * @property {ArrayBuffer} inverseBindMatrices 64 bytes per joint, for `engine.createDataModel(2, …)`; identities where the
 *   file has none.
 */

/**
 * An animation of the file, as a clip.
 * @typedef {Object} ImportedAnimation
 * @property {string} name '' if it has none.
 * @property {number} framesPerSecond A whole number.
 * @property {number} frameCount Frames after which the clip starts again.
 * @property {number} duration Seconds until its last key.
 * @property {number[]} targets Index of a node of the result for each target of the clip.
 * @property {ArrayBuffer} clip For `engine.createDataModel(1, …)`.
 */

/**
 * A scene of the file.
 * @typedef {Object} ImportedScene
 * @property {string} name '' if it has none.
 * @property {number[]} nodes Indices of its root nodes in the result.
 */

/**
 * Result of {@link importGltf}. Indices refer to the result, except `fileIndex` and `mesh`.
 * @typedef {Object} ImportedModel
 * @property {ImportedNode[]} nodes Parents before their children, depth-first, so that one pass creates the entities.
 * @property {number[]} roots Indices of the nodes without parents.
 * @property {ImportedScene[]} scenes What to show together.
 * @property {number} defaultScene Index of the scene to show, or -1 if the file names none.
 * @property {ImportedSkin[]} skins Joints with their inverse bind matrices.
 * @property {ImportedAnimation[]} animations Animations as clips, each with all channels of its animation.
 * @property {string[]} warnings What was left out or resampled, a line each.
 */

/**
 * How to import.
 * @typedef {Object} ImportOptions
 * @property {string} [name] Of the file in messages; by default its path.
 * @property {number} [framesPerSecond] Rate of all clips, a whole number from 1 to 1000; by default each gets the rate of
 *   its keys.
 * @property {boolean} [holdEnd] Adds a frame to each clip, so that its last key can be reached: for clips that stop at
 *   their ends. Without it, a clip wraps at its last key.
 */

/** The default transform of a node. */
const kNoTransform = { translation: [0, 0, 0], rotation: [0, 0, 0, 1], scale: [1, 1, 1] };

/** A readable description of a failed file operation. */
function fileTrouble(error) {
  const words = {
    ENOENT: 'there is no such file',
    EACCES: 'permission is denied',
    EISDIR: 'it is a folder',
    ENOTDIR: 'part of its path is a file, not a folder',
  };
  return words[error.code] || oneLine(error.message);
}

/** Checks the options, and adds defaults. */
function checkOptions(options) {
  if (!isObject(options)) {
    throw new TypeError('importGltf: options is not an object: leave it out or give an object.');
  }
  const { name, framesPerSecond, holdEnd = false } = options;
  if (name !== undefined && typeof name !== 'string') {
    throw new TypeError('importGltf: options.name is not a string: leave it out or give a string.');
  }
  if (typeof holdEnd !== 'boolean') {
    throw new TypeError('importGltf: options.holdEnd is neither true nor false: give one of them.');
  }
  if (
    framesPerSecond !== undefined &&
    !(isIndex(framesPerSecond, kMostFramesPerSecond + 1) && framesPerSecond > 0)
  ) {
    const cure = `leave it out or give a whole number from 1 to ${kMostFramesPerSecond}`;
    throw new RangeError(`importGltf: options.framesPerSecond is no frame rate: ${cure}.`);
  }
  return { name, framesPerSecond, holdEnd };
}

/** The bytes to import, their name in messages, and the folder of files that they refer to. */
async function readSource(source, name) {
  if (typeof source === 'string') {
    // Data in an address is no part of its name.
    const shownSource = source.replace(/^(data:[^,]{0,60})[^]*$/, '$1,…');
    const label = `model '${name === undefined ? shownSource : name}'`;
    try {
      return { label, bytes: await fs.promises.readFile(source), folder: path.dirname(source) };
    } catch (error) {
      const cure = 'give the path of a .glb or .gltf file';
      throw new GltfError(`${label}: it can't be read, ${fileTrouble(error)}: ${cure}.`);
    }
  }
  const label = name === undefined ? 'model' : `model '${name}'`;
  if (ArrayBuffer.isView(source)) {
    return { label, bytes: bytesOf(source), folder: null };
  }
  if (isInstance(source, ArrayBuffer) || isSharedBuffer(source)) {
    return { label, bytes: bytesOf(source), folder: null };
  }
  throw new TypeError('importGltf: the source is neither a path nor bytes: give one of them.');
}

/** The bytes of a buffer of the file. */
async function readBuffer(label, buffer, index, { binary, folder }) {
  const { uri } = buffer;
  const bufferLabel = `${label}: ${labelOf('buffer', index, buffer)}`;
  let bytes = binary;
  if (uri === undefined) {
    if (index !== 0 || binary === null) {
      throw new GltfError(`${bufferLabel}: its bytes are not in the file: ${kExportAgain}.`);
    }
  } else if (typeof uri !== 'string') {
    throw new GltfError(`${bufferLabel}: its URI is not a string: ${kExportAgain}.`);
  } else if (/^data:/.test(uri)) {
    const [, encoding, data] = /^data:[^,]*?(;base64)?,(.*)$/.exec(uri) || [];
    if (encoding === undefined) {
      throw new GltfError(`${bufferLabel}: its data URI is not in base64: ${kExportAgain}.`);
    }
    bytes = bytesOfBase64(data);
  } else if (folder === null || /^\w\w+:/.test(uri)) {
    const cure =
      folder === null ? 'import it by its path, or export it as one .glb' : 'export it as one .glb';
    throw new GltfError(`${bufferLabel}: its bytes are elsewhere, in '${oneLine(uri)}': ${cure}.`);
  } else {
    try {
      bytes = await fs.promises.readFile(path.resolve(folder, decodeURIComponent(uri)));
    } catch (error) {
      const cure = 'put that file there, or export the model as one .glb';
      const trouble = `its file '${oneLine(uri)}' can't be read, ${fileTrouble(error)}`;
      throw new GltfError(`${bufferLabel}: ${trouble}: ${cure}.`);
    }
  }
  if (bytes.length < buffer.byteLength) {
    const sizes = `${bytes.length} of ${buffer.byteLength} bytes`;
    throw new GltfError(`${bufferLabel}: it is truncated, ${sizes}: copy or export it again.`);
  }
  return bytes;
}

/** Checks the skins, and adds the accessors of their matrices to `used`. */
function checkSkins(label, json, used) {
  const nodeCount = listOf(label, json, 'nodes').length;
  listOf(label, json, 'skins').forEach((skin, index) => {
    const skinLabel = `${label}: ${labelOf('skin', index, skin)}`;
    const joints = checkIndices(skinLabel, 'joints', skin.joints, nodeCount);
    if (joints.length === 0) {
      throw new GltfError(`${skinLabel}: it has no joints: ${kExportAgain}.`);
    }
    if (skin.inverseBindMatrices !== undefined) {
      const form = { what: 'inverse bind matrices', type: 'MAT4', onlyFloats: true };
      const { count } = checkAccessor(skinLabel, json, skin.inverseBindMatrices, form);
      if (count < joints.length) {
        const trouble = `it has ${joints.length} joints, but ${count} inverse bind matrices`;
        throw new GltfError(`${skinLabel}: ${trouble}: ${kExportAgain}.`);
      }
      used.add(skin.inverseBindMatrices);
    }
  });
}

/** Describes what an unsupported channel moves. */
function movedThing(property) {
  return typeof property === 'string' ? shown(property) : 'no named property of a node';
}

/**
 * Checks a channel, and adds its accessors to `used`.
 * @returns {?Object} null if what it moves is not supported
 */
function checkChannel(animationLabel, json, animation, index, used, warnings) {
  const nodes = listOf('', json, 'nodes');
  const samplers = listOf(animationLabel, animation, 'samplers');
  const { sampler, target } = animation.channels[index];
  const property = isObject(target) ? target.path : undefined;
  if (!pathTypes.has(property)) {
    const what = property === 'weights' ? 'morph weights' : movedThing(property);
    warnings.push(
      `${animationLabel}, channel ${index}: it moves ${what}, which no clip can: left out.`
    );
    return null;
  }
  if (!isIndex(target.node, nodes.length)) {
    const trouble = 'it has no node';
    throw new GltfError(
      `${animationLabel}, channel ${index} (${property}): ${trouble}: ${kExportAgain}.`
    );
  }
  const label = `${animationLabel}, ${labelOf(
    'node',
    target.node,
    nodes[target.node]
  )} (${property})`;
  if (!isIndex(sampler, samplers.length)) {
    throw new GltfError(`${label}: its sampler does not exist: ${kExportAgain}.`);
  }
  const { input, output, interpolation = 'LINEAR' } = samplers[sampler];
  if (!interpolations.includes(interpolation)) {
    const trouble = `its interpolation ${shown(interpolation)} is not one of glTF`;
    throw new GltfError(`${label}: ${trouble}: ${kExportAgain}.`);
  }
  const timeForm = { what: 'key times', type: 'SCALAR', onlyFloats: true };
  const { count: times } = checkAccessor(label, json, input, timeForm);
  const valueForm = { what: 'key values', type: pathTypes.get(property), onlyFloats: false };
  const { count: values } = checkAccessor(label, json, output, valueForm);
  const wanted = interpolation === 'CUBICSPLINE' ? 3 * times : times;
  if (values !== wanted) {
    const trouble = `its ${times} keys need ${wanted} values, but have ${values}`;
    throw new GltfError(`${label}: ${trouble}: ${kExportAgain}.`);
  }
  used.add(input);
  used.add(output);
  return { label, node: target.node, path: property, interpolation, input, output };
}

/** Checks the animations, and lists the channels of each that can be imported. */
function checkAnimations(label, json, used, warnings) {
  return listOf(label, json, 'animations').map((animation, index) => {
    const animationLabel = `${label}: ${labelOf('animation', index, animation)}`;
    const channels = listOf(animationLabel, animation, 'channels')
      .map((_, i) => checkChannel(animationLabel, json, animation, i, used, warnings))
      .filter((channel) => channel !== null);
    const seen = new Set();
    for (const channel of channels) {
      const key = `${channel.node} ${channel.path}`;
      if (seen.has(key)) {
        throw new GltfError(`${channel.label}: two channels move it: ${kExportAgain}.`);
      }
      seen.add(key);
    }
    return { label: animationLabel, name: nameOf(animation), channels };
  });
}

function nameOf({ name }) {
  return typeof name === 'string' ? name : '';
}

/** Maps selected indices to new ones, in order of addition. */
class Selection {
  constructor(list) {
    this.list = list;
    this.indices = new Map();
  }

  add(index) {
    if (!this.indices.has(index)) {
      this.indices.set(index, this.indices.size);
    }
    return this.indices.get(index);
  }

  items(change) {
    return Array.from(this.indices.keys(), (index) => change(this.list[index]));
  }
}

/**
 * Reduces a file to the imported part, so that meshes are not decoded, and missing images or mesh formats that the
 * library doesn't support do no harm.
 */
function reduce(json, used) {
  const views = new Selection(json.bufferViews || []);
  const buffers = new Selection(json.buffers || []);
  const accessors = new Selection(json.accessors || []);
  const nodes = new Selection(json.nodes || []);
  used.forEach((index) => accessors.add(index));
  // Only nodes with a matrix, which the library decomposes. Others are read from the file's JSON.
  nodes.list.forEach(({ matrix }, index) => {
    if (matrix !== undefined) {
      nodes.add(index);
    }
  });
  const place = (part) =>
    part.bufferView === undefined
      ? part
      : // Without their own offset, the library would read sparse parts at that of the accessor.
        Object.assign({ byteOffset: 0 }, part, { bufferView: views.add(part.bufferView) });
  const reduced = {
    asset: { version: '2.0' },
    accessors: accessors.items(
      ({ bufferView, byteOffset, componentType, normalized, count, type, sparse }) => {
        const accessor = place({
          bufferView,
          byteOffset: byteOffset || 0,
          componentType,
          normalized: !!normalized,
          count,
          type,
        });
        if (sparse !== undefined) {
          const { count: sparseCount, indices, values } = sparse;
          accessor.sparse = { count: sparseCount, indices: place(indices), values: place(values) };
        }
        return accessor;
      }
    ),
    bufferViews: views.items(({ buffer, byteOffset, byteLength, byteStride }) => ({
      buffer: buffers.add(buffer),
      byteOffset,
      byteLength,
      byteStride,
    })),
    buffers: buffers.items(({ byteLength }) => ({ byteLength })),
    nodes: nodes.items(({ matrix }) => ({ matrix })),
  };
  return { reduced, accessors, buffers, nodes };
}

/** Decodes the imported part of a file with the library. */
async function decode(label, json, used, container) {
  const { Logger, NodeIO } = loadLibrary();
  const { reduced, accessors, buffers, nodes } = reduce(json, used);
  const resources = {};
  for (const [fileIndex, index] of buffers.indices) {
    const uri = `buffer${index}`;
    reduced.buffers[index].uri = uri;
    resources[uri] = await readBuffer(label, json.buffers[fileIndex], fileIndex, container);
  }
  const io = new NodeIO().setLogger(new Logger(Logger.Verbosity.SILENT));
  const root = (await io.readJSON({ json: reduced, resources })).getRoot();
  const decoded = root.listAccessors();
  const decodedNodes = root.listNodes();
  const elements = new Map();
  return {
    /** Translation, rotation and scale of a node of the file. */
    transformOf(fileIndex) {
      if (!nodes.indices.has(fileIndex)) {
        return Object.assign({}, kNoTransform, json.nodes[fileIndex]);
      }
      const node = decodedNodes[nodes.indices.get(fileIndex)];
      return {
        translation: node.getTranslation(),
        rotation: node.getRotation(),
        scale: node.getScale(),
      };
    },
    /** All elements of an accessor of the file; normalised integers become fractions. */
    elementsOf(fileIndex) {
      if (!elements.has(fileIndex)) {
        elements.set(
          fileIndex,
          readElements(decoded[accessors.indices.get(fileIndex)], json.accessors[fileIndex])
        );
      }
      return elements.get(fileIndex);
    },
  };
}

function readElements(accessor, { count, type }) {
  const width = elementWidths[type];
  const elements = new Float64Array(count * width);
  // An accessor without bytes is all zeros.
  if (accessor.getArray() !== null) {
    const element = [];
    for (let i = 0; i < count; ++i) {
      elements.set(accessor.getElement(i, element), i * width);
    }
  }
  return elements;
}

/** A channel with its keys, after checks. */
function trackOf(channel, decoded, places) {
  const { label, input, output, interpolation } = channel;
  const times = decoded.elementsOf(input);
  const values = decoded.elementsOf(output);
  for (let i = 0; i < times.length; ++i) {
    if (!(times[i] >= 0 && times[i] < Infinity)) {
      throw new GltfError(`${label}: the time of its key ${i} is ${times[i]}: ${kExportAgain}.`);
    }
    if (i > 0 && !(times[i] > times[i - 1])) {
      const trouble = `its key ${i} is at ${times[i]} seconds, the one before at ${times[i - 1]}`;
      throw new GltfError(`${label}: ${trouble}: sort its keys, and export it again.`);
    }
  }
  const wrong = values.findIndex((value) => !Number.isFinite(value));
  if (wrong >= 0) {
    const key = Math.floor((wrong * times.length) / values.length);
    throw new GltfError(
      `${label}: a value of its key ${key} is ${values[wrong]}: ${kExportAgain}.`
    );
  }
  return {
    label,
    node: places.get(channel.node),
    path: channel.path,
    interpolation,
    times,
    values,
  };
}

/** The matrices of a skin as bytes. */
function inverseBindMatrices(label, { joints, inverseBindMatrices: accessor }, decoded) {
  const matrices = new Float32Array(kMatrixFloats * joints.length);
  if (accessor !== undefined) {
    matrices.set(decoded.elementsOf(accessor).subarray(0, matrices.length));
  } else {
    matrices.forEach((_, i) => {
      matrices[i] = (i % kMatrixFloats) % 5 === 0 ? 1 : 0;
    });
  }
  const wrong = matrices.findIndex((value) => !Number.isFinite(value));
  if (wrong >= 0) {
    const joint = Math.floor(wrong / kMatrixFloats);
    const trouble = `the inverse bind matrix of its joint ${joint} is not of finite numbers`;
    throw new GltfError(`${label}: ${trouble}: ${kExportAgain}.`);
  }
  return matrices.buffer;
}

/** Index of another element of the file, or -1 if undefined; throws if there is no such element. */
function reference(label, what, index, count) {
  if (index !== undefined && !isIndex(index, count)) {
    throw new GltfError(`${label}: its ${what} does not exist: ${kExportAgain}.`);
  }
  return index === undefined ? -1 : index;
}

/** The nodes in order; `places` maps indices of the file to indices of the result. */
function importNodes(label, json, { order, parents }, decoded, places) {
  const skinCount = listOf(label, json, 'skins').length;
  const meshCount = listOf(label, json, 'meshes').length;
  return order.map((fileIndex) => {
    const source = json.nodes[fileIndex];
    const nodeLabel = `${label}: ${labelOf('node', fileIndex, source)}`;
    const { translation, rotation, scale } = decoded.transformOf(fileIndex);
    const result = {
      name: nameOf(source),
      fileIndex,
      parent: parents.has(fileIndex) ? places.get(parents.get(fileIndex)) : -1,
      translation: Array.from(translation),
      rotation: Array.from(rotation),
      scale: Array.from(scale),
      skin: reference(nodeLabel, 'skin', source.skin, skinCount),
      mesh: reference(nodeLabel, 'mesh', source.mesh, meshCount),
    };
    if (!result.rotation.every(Number.isFinite)) {
      const cure = 'give it translation, rotation and scale instead';
      throw new GltfError(`${nodeLabel}: its matrix has no rotation: ${cure}.`);
    }
    return result;
  });
}

function importScenes(label, json, parents, places) {
  return listOf(label, json, 'scenes').map((scene, index) => {
    const sceneLabel = `${label}: ${labelOf('scene', index, scene)}`;
    const nodes = checkIndices(sceneLabel, 'nodes', scene.nodes, places.size);
    const child = nodes.find((node) => parents.has(node));
    if (child !== undefined) {
      const nodeLabel = labelOf('node', child, json.nodes[child]);
      throw new GltfError(`${sceneLabel}: its ${nodeLabel} has a parent: ${kExportAgain}.`);
    }
    return { name: nameOf(scene), nodes: nodes.map((node) => places.get(node)) };
  });
}

/**
 * Imports the nodes, skins and animations of a glTF 2.0 file.
 * @param {string | ArrayBuffer | SharedArrayBuffer | ArrayBufferView} source path of a .glb or .gltf file, or the bytes of
 *   one that refers to no other file
 * @param {ImportOptions} [options]
 * @returns {Promise<ImportedModel>} rejects with a {@link GltfError} for what is wrong with the file, with a TypeError or
 *   RangeError for arguments
 */
async function importGltf(source, options = {}) {
  const checked = checkOptions(options);
  const { label, bytes, folder } = await readSource(source, checked.name);
  const { json, binary } = openContainer(label, bytes);
  checkVersion(label, json);
  const tree = orderNodes(label, json);
  const places = new Map(tree.order.map((fileIndex, index) => [fileIndex, index]));
  const used = new Set();
  const warnings = [];
  checkSkins(label, json, used);
  const animations = checkAnimations(label, json, used, warnings);
  const decoded = await decode(label, json, used, { binary, folder });
  const nodes = importNodes(label, json, tree, decoded, places);
  const scenes = importScenes(label, json, tree.parents, places);
  const clips = [];
  for (const animation of animations) {
    const tracks = animation.channels.map((channel) => trackOf(channel, decoded, places));
    if (tracks.length > 0) {
      clips.push(convertAnimation(animation.label, animation.name, tracks, checked, warnings));
    } else {
      warnings.push(`${animation.label}: it moves nothing that a clip can move: left out.`);
    }
  }
  return {
    nodes,
    roots: nodes.map((_, index) => index).filter((index) => nodes[index].parent < 0),
    scenes,
    defaultScene: reference(label, 'default scene', json.scene, scenes.length),
    skins: listOf(label, json, 'skins').map((skin, index) => ({
      name: nameOf(skin),
      joints: skin.joints.map((joint) => places.get(joint)),
      inverseBindMatrices: inverseBindMatrices(
        `${label}: ${labelOf('skin', index, skin)}`,
        skin,
        decoded
      ),
    })),
    animations: clips,
    warnings,
  };
}

module.exports = { importGltf, GltfError };
