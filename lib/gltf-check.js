'use strict';
// Validates the parts of a glTF file that the importer reads: container, trees, accessors.

const { textOf, wordAt } = require('./file-bytes');

const kGlbMagic = 0x46546c67; // "glTF"
const kGlbHeaderBytes = 12;
const kChunkHeaderBytes = 8;
const kJsonChunk = 0x4e4f534a; // "JSON"
const kBinaryChunk = 0x004e4942; // "BIN"

const kFloat = 5126;
const kUnsignedInt = 5125;
const componentBytes = new Map([
  [5120, 1],
  [5121, 1],
  [5122, 2],
  [5123, 2],
  [kUnsignedInt, 4],
  [kFloat, 4],
]);
/** Component types that sparse parts may have for their indices. */
const sparseIndexTypes = [5121, 5123, kUnsignedInt];
const elementWidths = { SCALAR: 1, VEC2: 2, VEC3: 3, VEC4: 4, MAT2: 4, MAT3: 9, MAT4: 16 };

/** More keys than any clip has; an accessor without bytes may claim any number. */
const kMostElements = 2 ** 22;

/** Number of components of each property of a node's transform. */
const transformWidths = { translation: 3, rotation: 4, scale: 3, matrix: 16 };

/** Extensions that do not affect nodes, skins and animations. */
const harmlessExtension =
  /^(KHR_(materials|texture)_\w+|EXT_texture_\w+|KHR_(mesh_quantization|draco_mesh_compression|lights_punctual))$/;

const kExportAgain = 'export it again as glTF 2.0';

/** What is wrong with a file, in one line: the file, what in it, and the cure. Its name is 'GltfError'. */
class GltfError extends Error {
  /** @param {string} message */
  constructor(message) {
    super(message);
    this.name = 'GltfError';
  }
}

/** Reduces a text to one line. */
function oneLine(text) {
  return String(text)
    .replace(/[\s\x00-\x1f\x7f]+/g, ' ') // eslint-disable-line no-control-regex
    .trim();
}

/** Label of an element of a file, with its name if it has one. */
function labelOf(kind, index, { name }) {
  return typeof name === 'string' && name !== ''
    ? `${kind} ${index} '${oneLine(name)}'`
    : `${kind} ${index}`;
}

/** Formats a value of the file's JSON for messages, without the content of objects. */
function shown(value) {
  if (typeof value === 'string') {
    return `'${oneLine(value)}'`;
  }
  if (typeof value === 'object' && value !== null) {
    return Array.isArray(value) ? 'a list' : 'an object';
  }
  return value === undefined ? 'missing' : String(value);
}

function isObject(value) {
  return typeof value === 'object' && value !== null && !Array.isArray(value);
}

function isIndex(value, count) {
  return Number.isInteger(value) && value >= 0 && value < count;
}

function isCount(value) {
  return Number.isInteger(value) && value >= 0;
}

/** Lists that were checked to contain only objects: each is checked once, however many refer to it. */
const checkedLists = new WeakSet();

/**
 * A list of the file's JSON, empty if there is none.
 * @throws {GltfError} if it is not a list of objects
 */
function listOf(label, json, property) {
  const list = json[property] === undefined ? [] : json[property];
  if (!checkedLists.has(list)) {
    if (!Array.isArray(list) || !list.every(isObject)) {
      throw new GltfError(`${label}: its list of ${property} is broken: ${kExportAgain}.`);
    }
    checkedLists.add(list);
  }
  return list;
}

function parseJson(label, bytes) {
  let json;
  try {
    json = JSON.parse(textOf(bytes));
  } catch (error) {
    throw new GltfError(
      `${label}: its JSON is broken, ${oneLine(error.message)}: ${kExportAgain}.`
    );
  }
  if (!isObject(json)) {
    throw new GltfError(`${label}: its JSON is not an object: ${kExportAgain}.`);
  }
  return json;
}

/**
 * Opens a binary file, and checks the bounds of its chunks.
 * @param {string} label
 * @param {Uint8Array} bytes
 */
function openBinary(label, bytes) {
  const truncated = (size) =>
    new GltfError(
      `${label}: it is truncated, ${bytes.length} of ${size} bytes: copy or export it again.`
    );
  if (bytes.length < kGlbHeaderBytes) {
    throw truncated(kGlbHeaderBytes);
  }
  const version = wordAt(bytes, 4);
  if (version !== 2) {
    throw new GltfError(`${label}: it is a binary glTF of version ${version}: ${kExportAgain}.`);
  }
  const size = wordAt(bytes, 8);
  if (bytes.length < size) {
    throw truncated(size);
  }
  const chunks = [];
  for (let at = kGlbHeaderBytes; at < size; ) {
    const start = at + kChunkHeaderBytes;
    const end = start + (start <= size ? wordAt(bytes, at) : 0);
    if (end > size) {
      const trouble = `a chunk of it ends at byte ${end} of ${size}`;
      throw new GltfError(`${label}: ${trouble}: copy or export it again.`);
    }
    chunks.push({ type: wordAt(bytes, at + 4), content: bytes.subarray(start, end) });
    at = end;
  }
  if (chunks.length === 0 || chunks[0].type !== kJsonChunk) {
    throw new GltfError(`${label}: it does not begin with a JSON chunk: ${kExportAgain}.`);
  }
  const hasBinary = chunks.length > 1 && chunks[1].type === kBinaryChunk;
  return {
    json: parseJson(label, chunks[0].content),
    binary: hasBinary ? chunks[1].content : null,
  };
}

/**
 * Opens a file of either form.
 * @param {string} label
 * @param {Uint8Array} bytes
 * @returns {{json: Object, binary: ?Uint8Array}}
 * @throws {GltfError}
 */
function openContainer(label, bytes) {
  if (bytes.length >= 4 && wordAt(bytes, 0) === kGlbMagic) {
    return openBinary(label, bytes);
  }
  if (!/^(\xef\xbb\xbf)?\s*\{/.test(String.fromCharCode(...bytes.subarray(0, 64)))) {
    throw new GltfError(`${label}: it is not a glTF file: give a .glb or .gltf file.`);
  }
  return { json: parseJson(label, bytes), binary: null };
}

/** Throws for a version or a required extension that this reader doesn't support. */
function checkVersion(label, json) {
  const { version, minVersion } = isObject(json.asset) ? json.asset : {};
  if (!/^2\.\d+$/.test(version) || (minVersion !== undefined && minVersion !== '2.0')) {
    throw new GltfError(`${label}: it is not of glTF version 2.0: ${kExportAgain}.`);
  }
  for (const name of Array.isArray(json.extensionsRequired) ? json.extensionsRequired : []) {
    if (!harmlessExtension.test(name)) {
      const trouble = `it needs the extension ${shown(name)}, which is not supported`;
      throw new GltfError(`${label}: ${trouble}: export the file without it.`);
    }
  }
}

/** Throws unless a node's transform consists of numbers that are finite as floats. */
function checkTransform(label, node) {
  const fits = (number) => typeof number === 'number' && Number.isFinite(Math.fround(number));
  for (const name of Object.keys(transformWidths)) {
    const value = node[name];
    const width = transformWidths[name];
    if (
      value !== undefined &&
      !(Array.isArray(value) && value.length === width && value.every(fits))
    ) {
      throw new GltfError(`${label}: its ${name} is not ${width} numbers: ${kExportAgain}.`);
    }
  }
}

/** Throws unless an optional list holds valid indices; returns it. */
function checkIndices(label, property, list, count) {
  if (list === undefined) {
    return [];
  }
  if (!Array.isArray(list) || !list.every((index) => isIndex(index, count))) {
    throw new GltfError(`${label}: its ${property} name nodes that do not exist: ${kExportAgain}.`);
  }
  return list;
}

/**
 * Checks the nodes and sorts them.
 * @param {string} label
 * @param {Object} json
 * @returns {{order: number[], parents: Map<number, number>}} depth first, parents before children
 * @throws {GltfError} unless the nodes form trees
 */
function orderNodes(label, json) {
  const nodes = listOf(label, json, 'nodes');
  const parents = new Map();
  nodes.forEach((node, index) => {
    const nodeLabel = `${label}: ${labelOf('node', index, node)}`;
    checkTransform(nodeLabel, node);
    for (const child of checkIndices(nodeLabel, 'children', node.children, nodes.length)) {
      if (parents.has(child)) {
        const childLabel = labelOf('node', child, nodes[child]);
        throw new GltfError(`${label}: ${childLabel} has two parents: ${kExportAgain}.`);
      }
      parents.set(child, index);
    }
  });
  const order = [];
  const stack = nodes.map((node, index) => index).filter((index) => !parents.has(index));
  stack.reverse();
  while (stack.length > 0) {
    const index = stack.pop();
    order.push(index);
    const { children = [] } = nodes[index];
    for (let i = children.length - 1; i >= 0; --i) {
      stack.push(children[i]);
    }
  }
  // Every node has at most one parent, so nodes that no root reaches form a cycle.
  if (order.length !== nodes.length) {
    const reached = new Set(order);
    const lost = nodes.findIndex((node, index) => !reached.has(index));
    const lostLabel = labelOf('node', lost, nodes[lost]);
    throw new GltfError(`${label}: ${lostLabel} is its own ancestor: ${kExportAgain}.`);
  }
  return { order, parents };
}

/** Throws unless elements are within their buffer view, and the view within its buffer. */
function checkPlace(label, json, place, count, elementBytes) {
  const views = listOf(label, json, 'bufferViews');
  const buffers = listOf(label, json, 'buffers');
  const view = isIndex(place.bufferView, views.length) ? views[place.bufferView] : null;
  if (view === null || !isIndex(view.buffer, buffers.length)) {
    throw new GltfError(`${label}: its buffer view or buffer does not exist: ${kExportAgain}.`);
  }
  const offset = place.byteOffset === undefined ? 0 : place.byteOffset;
  const viewOffset = view.byteOffset === undefined ? 0 : view.byteOffset;
  const stride = view.byteStride === undefined ? elementBytes : view.byteStride;
  const end = offset + (count - 1) * stride + elementBytes;
  const sound = [offset, viewOffset, view.byteLength, buffers[view.buffer].byteLength].every(
    isCount
  );
  if (!sound || !isCount(stride) || stride < elementBytes || end > view.byteLength) {
    throw new GltfError(`${label}: its elements do not fit into its buffer view: ${kExportAgain}.`);
  }
  if (viewOffset + view.byteLength > buffers[view.buffer].byteLength) {
    throw new GltfError(`${label}: its buffer view does not fit into its buffer: ${kExportAgain}.`);
  }
}

/**
 * Checks that an accessor exists, has the required form, and is within its bytes.
 * @param {string} label of its user
 * @param {Object} json
 * @param {*} index
 * @param {{what: string, type: string, onlyFloats: boolean}} form
 * @returns {Object} the accessor's JSON
 * @throws {GltfError}
 */
function checkAccessor(label, json, index, { what, type, onlyFloats }) {
  const accessors = listOf(label, json, 'accessors');
  if (!isIndex(index, accessors.length)) {
    throw new GltfError(`${label}: the accessor of its ${what} does not exist: ${kExportAgain}.`);
  }
  const accessor = accessors[index];
  const { componentType, count, normalized, sparse } = accessor;
  if (accessor.type !== type) {
    const trouble =
      typeof accessor.type === 'string'
        ? `its ${what} are of type ${oneLine(accessor.type)}, not ${type}`
        : `the type of its ${what} is ${shown(accessor.type)}, not ${type}`;
    throw new GltfError(`${label}: ${trouble}: ${kExportAgain}.`);
  }
  const bytes = componentBytes.get(componentType);
  const fits = onlyFloats ? componentType === kFloat : bytes && componentType !== kUnsignedInt;
  if (!fits || (!onlyFloats && componentType !== kFloat && normalized !== true)) {
    const wanted = onlyFloats ? 'floats' : 'floats or normalized integers of 8 or 16 bits';
    throw new GltfError(`${label}: its ${what} are not ${wanted}: ${kExportAgain}.`);
  }
  if (!isCount(count) || count === 0) {
    throw new GltfError(`${label}: it has no ${what}: ${kExportAgain}.`);
  }
  if (count > kMostElements) {
    throw new GltfError(
      `${label}: its ${what} are ${count}, over ${kMostElements}: ${kExportAgain}.`
    );
  }
  const elementBytes = bytes * elementWidths[type];
  if (accessor.bufferView !== undefined) {
    checkPlace(`${label}, ${what}`, json, accessor, count, elementBytes);
  }
  if (sparse !== undefined) {
    const { indices, values } = isObject(sparse) ? sparse : {};
    const isSound = isObject(indices) && sparseIndexTypes.includes(indices.componentType);
    if (!isSound || !isObject(values) || !isCount(sparse.count) || !(sparse.count <= count)) {
      throw new GltfError(`${label}: the sparse part of its ${what} is broken: ${kExportAgain}.`);
    }
    const indexBytes = componentBytes.get(indices.componentType);
    checkPlace(`${label}, ${what}`, json, indices, sparse.count, indexBytes);
    checkPlace(`${label}, ${what}`, json, values, sparse.count, elementBytes);
  }
  return accessor;
}

module.exports = {
  GltfError,
  checkAccessor,
  checkIndices,
  checkVersion,
  elementWidths,
  isIndex,
  isObject,
  kExportAgain,
  kGlbMagic,
  labelOf,
  listOf,
  oneLine,
  openContainer,
  orderNodes,
  shown,
};
