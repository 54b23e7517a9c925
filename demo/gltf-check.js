'use strict';
// Looks at the JSON of a glTF file for what would send a reader astray.

/** Numbers that each property of a node's transform has. */
const transformSizes = { translation: 3, rotation: 4, scale: 3, matrix: 16 };

/** Throws unless a list, where there is one, holds indices of nodes. */
function checkIndices(list, count, owner) {
  if (list === undefined) {
    return [];
  }
  if (!Array.isArray(list) || !list.every((i) => Number.isInteger(i) && i >= 0 && i < count)) {
    throw new Error(`${owner} names nodes that are not there`);
  }
  return list;
}

/** Throws unless a node's transform is made of numbers that a float can hold. */
function checkTransform(node, index) {
  for (const name of Object.keys(transformSizes)) {
    const value = node[name];
    const fits = (number) => typeof number === 'number' && Number.isFinite(Math.fround(number));
    if (value === undefined) {
      continue;
    }
    if (!Array.isArray(value) || value.length !== transformSizes[name] || !value.every(fits)) {
      throw new Error(`the ${name} of its node ${index} is not ${transformSizes[name]} numbers`);
    }
  }
}

/**
 * Checks that a file is of glTF 2 and that its nodes form trees.
 * @param {Object} json
 * @throws {Error} saying what is wrong with the file, to follow its name
 */
function checkGltf(json) {
  if (!json || !json.asset || !/^2\./.test(json.asset.version)) {
    throw new Error('it is not of glTF version 2');
  }
  const nodes = json.nodes === undefined ? [] : json.nodes;
  if (!Array.isArray(nodes) || !nodes.every((node) => node !== null && typeof node === 'object')) {
    throw new Error('its list of nodes is broken');
  }
  const parents = new Map();
  nodes.forEach((node, index) => {
    checkTransform(node, index);
    for (const child of checkIndices(node.children, nodes.length, `its node ${index}`)) {
      if (parents.has(child)) {
        throw new Error(`its node ${child} has two parents`);
      }
      parents.set(child, index);
    }
  });
  // With one parent each, what no root leads to goes round in a circle.
  const reached = nodes.map((node, index) => index).filter((index) => !parents.has(index));
  for (let i = 0; i < reached.length; ++i) {
    reached.push(...(nodes[reached[i]].children || []));
  }
  if (reached.length !== nodes.length) {
    throw new Error('its nodes form a circle');
  }
  for (const scene of json.scenes || []) {
    for (const index of checkIndices(scene.nodes, nodes.length, 'a scene of it')) {
      if (parents.has(index)) {
        throw new Error(`its node ${index} is the root of a scene and a child`);
      }
    }
  }
}

module.exports = { checkGltf };
