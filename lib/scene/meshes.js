'use strict';
// Vertices of glTF files, for renderers and for the bounds of models.
const { bytesOf, isSharedBuffer, textOf, wordAt } = require('../file-bytes');
const { kGlbMagic } = require('../gltf-check');
const { loadLibrary } = require('../gltf-library');

/**
 * A part of a mesh with one material.
 * @readonly
 * @typedef {Object} MeshPrimitive
 * @property {number} mode As in the file: 4 for triangles.
 * @property {Float32Array} positions 3 a vertex.
 * @property {Float32Array | null} normals 3 a vertex.
 * @property {Float32Array | null} uvs 2 a vertex.
 * @property {Uint16Array | null} joints 4 a vertex: numbers of the skin's joints.
 * @property {Float32Array | null} weights 4 a vertex.
 * @property {Uint32Array | null} indices Of vertices; null where they are used in their order.
 */

/**
 * The mesh of a node.
 * @readonly
 * @typedef {Object} ModelMesh
 * @property {number} node Index of the node of the model.
 * @property {number} skin Index of the skin that moves it, or -1.
 * @property {MeshPrimitive[]} primitives Its parts.
 */

/** Elements of an attribute as numbers; normalised integers become fractions. */
function elementsOf(accessor, Kind) {
  if (accessor === null) {
    return null;
  }
  const width = accessor.getElementSize();
  const count = accessor.getCount();
  const array = new Kind(count * width);
  const element = [];
  for (let i = 0; i < count; ++i) {
    accessor.getElement(i, element);
    for (let k = 0; k < width; ++k) {
      array[i * width + k] = element[k];
    }
  }
  return array;
}

async function readRoot(source) {
  const { Logger, NodeIO } = loadLibrary();
  const io = new NodeIO().setLogger(new Logger(Logger.Verbosity.SILENT));
  if (typeof source === 'string') {
    return (await io.read(source)).getRoot();
  }
  const bytes = bytesOf(source);
  if (wordAt(bytes, 0) === kGlbMagic) {
    const isShared = isSharedBuffer(bytes.buffer);
    return (await io.readBinary(isShared ? Uint8Array.from(bytes) : bytes)).getRoot();
  }
  const json = JSON.parse(textOf(bytes));
  return (await io.readJSON({ json, resources: {} })).getRoot();
}

/**
 * Reads the meshes of nodes.
 * @param {string | ArrayBuffer | SharedArrayBuffer | ArrayBufferView} source
 * @param {import('../gltf').ImportedNode[]} nodes
 * @param {string[]} warnings appended to where the vertices can't be read
 * @returns {Promise<ModelMesh[]>}
 */
async function readMeshes(source, nodes, warnings) {
  if (nodes.every(({ mesh }) => mesh < 0)) {
    return [];
  }
  let fileNodes;
  const known = new Map();
  const meshes = [];
  try {
    fileNodes = (await readRoot(source)).listNodes();
    nodes.forEach(({ fileIndex, mesh, skin }, node) => {
      if (mesh < 0) {
        return;
      }
      if (!known.has(mesh)) {
        const primitives = fileNodes[fileIndex]
          .getMesh()
          .listPrimitives()
          .filter((primitive) => primitive.getAttribute('POSITION') !== null);
        known.set(
          mesh,
          primitives.map((primitive) => {
            const attribute = (name, Kind) => elementsOf(primitive.getAttribute(name), Kind);
            return Object.freeze({
              mode: primitive.getMode(),
              positions: attribute('POSITION', Float32Array),
              normals: attribute('NORMAL', Float32Array),
              uvs: attribute('TEXCOORD_0', Float32Array),
              joints: attribute('JOINTS_0', Uint16Array),
              weights: attribute('WEIGHTS_0', Float32Array),
              indices: elementsOf(primitive.getIndices(), Uint32Array),
            });
          })
        );
      }
      meshes.push(Object.freeze({ node, skin, primitives: known.get(mesh) }));
    });
  } catch (error) {
    const [line] = String(error.message).split('\n');
    warnings.push(`its vertices can't be read (${line}): bounds are those of its nodes.`);
    return [];
  }
  return meshes;
}

module.exports = { readMeshes };
