'use strict';
// What all characters of a crowd share: a model of scenes, a mesh to draw, and what the picture and its legend say.
const { Model } = require('../scene');

/**
 * @typedef {Object} KindNode
 * @property {string} name
 * @property {number} parent index of the parent, which comes earlier; -1 for the first node only
 * @property {number[]} position x, y, z, in the parent's space
 * @property {number[]} rotation quaternion x, y, z, w
 * @property {number[]} scale x, y, z
 */

/**
 * @typedef {Object} KindClip
 * @property {string} name
 * @property {number} framesPerSecond
 * @property {number} frameCount
 * @property {number} stride metres per cycle, 0 for one that stays in place
 * @property {number[]} targets index of the node for each target of the clip, -1 for one that is not shown
 * @property {ArrayBuffer} bytes
 */

/**
 * @typedef {Object} Hand
 * @property {number} node index of the carrying node
 * @property {number[]} arm indices of the arm's nodes, from the shoulder on
 */

/**
 * Layers of a kind on top of its clips.
 * @typedef {Object} Layers
 * @property {KindClip} wave for the arm that carries something
 * @property {KindClip} breath additive; lungs empty at its first frame
 * @property {KindClip} carry of one pose, for the arm that carries something
 * @property {Array<{node: number, rotation: number[]}>} hold the same pose of both arms, node by node
 * @property {Hand[]} hands left, right
 * @property {import('./props').Prop[]} props
 */

/**
 * Data shared by all characters of a crowd.
 * @typedef {Object} Kind
 * @property {string} name
 * @property {KindNode[]} nodes parents before children; the first one is the character itself, which no clip moves
 * @property {number[]} joints index of the node of each bone
 * @property {Float32Array} inverseBind 16 elements per bone
 * @property {KindClip[]} clips
 * @property {?Layers} layers null where plain clips are blended
 * @property {import('./mesh').Mesh} mesh
 * @property {string[]} notes parts that are not shown, one line each
 * @property {Model} model of the nodes below the first
 */

/** The bounds of characters are measured with what they carry, see the stage. */
const bounds = { center: [0, 0, 0], radius: 0 };

/** Index of a node of a kind in its model. */
function inModel(node) {
  return node - 1;
}

/** All clips of the model of a kind: those of its layers are last. */
function allClips({ clips, layers }) {
  return layers ? [...clips, layers.wave, layers.breath, layers.carry] : clips;
}

/**
 * Adds the model to the data of a kind.
 * @param {Object} data all of a kind but its model
 * @returns {Kind}
 */
function createKind(data) {
  const { name, nodes, joints, inverseBind } = data;
  const imported = {
    nodes: nodes.slice(1).map((node) => ({
      name: node.name,
      parent: inModel(node.parent),
      translation: node.position,
      rotation: node.rotation,
      scale: node.scale,
    })),
    skins: [{ name, joints: joints.map(inModel), inverseBindMatrices: inverseBind.buffer }],
    animations: allClips(data).map((clip) => {
      const { framesPerSecond, targets, bytes } = clip;
      const moved = targets.map((node) => Math.max(-1, inModel(node)));
      return { name: clip.name, framesPerSecond, targets: moved, clip: bytes };
    }),
  };
  return Object.assign({}, data, { model: Model.from(imported, { name, bounds }) });
}

module.exports = { createKind, inModel };
