'use strict';
// The part of a file that a model shows: the nodes of one of its scenes, with the skins and animations of these.
const { show } = require('../value-checks');

/** The scene of an option, or the default one, or the first; null if there is none. */
function findScene(label, { scenes = [], defaultScene = -1 }, which) {
  if (which === undefined) {
    return scenes.length === 0 ? null : scenes[Math.max(0, defaultScene)];
  }
  const found =
    typeof which === 'string' ? scenes.find(({ name }) => name === which) : scenes[which];
  if (found === undefined) {
    const names = scenes.map(({ name }, i) => (name === '' ? i : `'${name}'`)).join(', ');
    const cure = names === '' ? 'it has no scenes: leave it out' : `it has ${names}`;
    throw new RangeError(`${label}: options.scene is ${show(which)}: ${cure}.`);
  }
  return found;
}

/** By node: whether it is in the scene, or a joint of a skin there, or above one. */
function findShown({ nodes, skins }, scene) {
  const shown = new Array(nodes.length).fill(false);
  scene.nodes.forEach((node) => (shown[node] = true));
  nodes.forEach(({ parent }, i) => (shown[i] = shown[i] || (parent >= 0 && shown[parent])));
  const inScene = nodes.filter(({ skin }, i) => shown[i] && skin >= 0);
  inScene.forEach(({ skin }) => {
    for (const joint of skins[skin].joints) {
      for (let at = joint; at >= 0 && !shown[at]; at = nodes[at].parent) {
        shown[at] = true;
      }
    }
  });
  return shown;
}

/** New indices of what is kept, by old ones; -1 for the rest. */
function renumber(kept) {
  let count = 0;
  return kept.map((isKept) => (isKept ? count++ : -1));
}

/**
 * Imported data without what is only in other scenes.
 * @param {string} label
 * @param {import('../gltf').ImportedModel} imported
 * @param {string | number} [which] name or index of the scene
 * @returns {import('../gltf').ImportedModel}
 */
function selectScene(label, imported, which) {
  const scene = findScene(label, imported, which);
  if (scene === null) {
    return imported;
  }
  const { nodes, skins, animations, warnings = [] } = imported;
  const shown = findShown(imported, scene);
  if (shown.every(Boolean)) {
    return imported;
  }
  const nodeAt = renumber(shown);
  const skinAt = renumber(skins.map(({ joints }) => joints.every((joint) => shown[joint])));
  const numberOf = (places, i) => (i === undefined || i < 0 ? -1 : places[i]);
  const [moving, still] = [[], []];
  for (const animation of animations) {
    const targets = animation.targets.map((node) => nodeAt[node]);
    const isShown = targets.length === 0 || targets.some((node) => node >= 0);
    (isShown ? moving : still).push(Object.assign({}, animation, { targets }));
  }
  return Object.assign({}, imported, {
    nodes: nodes
      .filter((_, i) => shown[i])
      .map((node) => {
        const parent = numberOf(nodeAt, node.parent);
        return Object.assign({}, node, { parent, skin: numberOf(skinAt, node.skin) });
      }),
    skins: skins
      .filter((_, i) => skinAt[i] >= 0)
      .map((skin) =>
        Object.assign({}, skin, { joints: skin.joints.map((joint) => nodeAt[joint]) })
      ),
    animations: moving,
    scenes: [],
    defaultScene: -1,
    warnings: [
      ...warnings,
      ...still.map(({ name }) => `clip '${name}' moves no node of the scene: it was left out.`),
    ],
  });
}

module.exports = { selectScene };
