'use strict';
// What characters of an example are: the figure, or a model of the user, with meshes to draw.
const { createFigure } = require('../../../demo/figure');
const { displayMesh, modelMesh } = require('../../../lib/scene/inspect/display-mesh');
const { Model } = require('../../../scene');

/** Metres: height of a model of the user as shown. */
const kShownHeight = 1.7;

/** Red, green, blue from 0 to 255, and fraction of the tint. */
const kSkins = [
  [236, 188, 152, 0],
  [150, 100, 70, 0],
  [205, 150, 112, 0],
];
const kHair = [60, 42, 32, 0];
const kShoes = [224, 224, 232, 0];
const kTrousers = [26, 27, 42, 0.225];
const kTint = [0, 0, 0, 1];

/**
 * @typedef {Object} KindMesh
 * @property {{name: string, bones: number, palettes: number[][][], glow: null}} facts as the picture takes them
 * @property {import('../../../lib/scene/inspect/display-mesh').DisplayMesh} display
 * @property {function(Object): Float32Array} matricesOf a character: a matrix for each bone
 */

/**
 * @typedef {Object} LiveKind
 * @property {string} name
 * @property {Model} model
 * @property {boolean} hasClips
 * @property {number} scale factor of characters
 * @property {number} pace metres per second of the first clip
 * @property {KindMesh[]} meshes of characters
 * @property {KindMesh[]} props what they can hold
 */

/** The mesh of something that hands hold. */
function propMesh({ name, meshes, palettes }) {
  // Made for both hands; the last one is for the right.
  const mesh = meshes[meshes.length - 1];
  return {
    facts: {
      name,
      bones: 1,
      palettes: palettes.map((colors) => colors.map((color) => [...color, 0])),
      glow: null,
    },
    display: displayMesh(mesh),
  };
}

/** @returns {LiveKind} the built-in one */
function figureKind() {
  const { name, model, joints, mesh, clips, layers } = createFigure();
  const [{ stride, frameCount, framesPerSecond }] = clips;
  const palettes = kSkins.map((skin) => [kTint, kTrousers, skin, kHair, kShoes]);
  return {
    name,
    model,
    hasClips: true,
    scale: 1,
    pace: (stride * framesPerSecond) / frameCount,
    meshes: [
      {
        facts: { name, bones: joints.length, palettes, glow: null },
        display: displayMesh(mesh),
        matricesOf: (character) => character.skinMatrices(0),
      },
    ],
    props: layers.props.map(propMesh),
  };
}

/**
 * A model of the user.
 * @param {ArrayBuffer} bytes of a .glb
 * @param {string} name
 * @returns {Promise<LiveKind>}
 * @throws {Error} that says what is wrong
 */
async function modelKind(bytes, name) {
  const model = await Model.load(bytes, { name });
  if (model.nodes.length === 0) {
    throw new RangeError('it has no nodes: export it again as glTF 2.0');
  }
  const meshes = model.meshes.map((mesh) => {
    const { node, skin } = mesh;
    const bones = skin < 0 ? 1 : model.skins[skin].joints.length;
    return {
      facts: { name, bones, palettes: [[kTint]], glow: null },
      display: modelMesh(mesh, bones),
      matricesOf: (character) =>
        skin < 0 ? character.node(node).worldMatrix : character.skinMatrices(skin),
    };
  });
  const { radius } = model.bounds;
  return {
    name,
    model,
    hasClips: model.clips.length > 0,
    scale: radius > 0 && Number.isFinite(radius) ? kShownHeight / (2 * radius) : 1,
    pace: 0,
    meshes: meshes.filter(({ display }) => display.triangles.length > 0),
    props: figureKind().props,
  };
}

module.exports = { figureKind, modelKind };
