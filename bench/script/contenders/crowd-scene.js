'use strict';
// The demo's crowd by lib/scene: characters of a model, and one update per frame.
const { Camera, Model, Scene } = require('../../../scene');
const { frameSeconds } = require('../lib/crowd-scene');
const { getEngine } = require('../lib/native-scene');

/** The figure as a model; its first node is the character itself. */
function createModel({ nodes, joints, inverseBind, clips }, { middle, radius }) {
  const imported = {
    nodes: nodes.slice(1).map(({ name, parent, position, rotation, scale }) => {
      return { name, parent: parent - 1, translation: position, rotation, scale };
    }),
    skins: [
      {
        name: '',
        joints: joints.map((node) => node - 1),
        inverseBindMatrices: inverseBind.buffer,
      },
    ],
    animations: clips.map(({ name, framesPerSecond, targets, bytes }) => {
      return { name, framesPerSecond, targets: targets.map((node) => node - 1), clip: bytes };
    }),
  };
  return Model.from(imported, { name: 'figure', bounds: { center: middle, radius } });
}

function createCamera({ eye, target, up, fov, ...volume }) {
  const camera = new Camera();
  if (fov === undefined) {
    camera.setOrthographic(volume);
  } else {
    camera.setPerspective(Object.assign({ fovRadians: fov }, volume));
  }
  camera.setPosition(...eye);
  camera.lookAt(...target);
  camera.setUp(...up);
  return camera;
}

/**
 * The contender.
 * @param {ReturnType<import('../lib/crowd-scene').createCrowdScene>} given
 */
function createCrowdScene({ kind, characters, bounds, cameras, createPlan }) {
  const scene = new Scene({ engine: getEngine() });
  const model = createModel(kind, bounds);
  const seconds = model.clips.map(({ duration }) => duration);
  const crowd = scene.instantiate(model, characters);
  const indices = new Map(crowd.map((character, i) => [character, i]));
  // Times and weights come from the plan, which follows the ground.
  crowd.forEach((character) =>
    seconds.forEach((_, clip) => character.play(clip, { speed: 0, beside: true }))
  );
  const views = {};
  for (const name of Object.keys(cameras)) {
    views[name] = scene.addCamera(createCamera(cameras[name]));
  }
  const plan = createPlan();
  const target = {
    play(character, clip, moment, weight) {
      crowd[character].setTime(clip, moment * seconds[clip]);
      crowd[character].setWeight(clip, weight);
    },
    breathe() {},
    place(character, x, z, heading) {
      crowd[character].setPosition(x, 0, z);
      crowd[character].setQuaternion(0, Math.sin(heading / 2), 0, Math.cos(heading / 2));
    },
  };
  return {
    name: 'scene',

    frame() {
      plan.advance(frameSeconds);
      plan.writeClips(target);
      plan.writePlaces(target);
      scene.update(frameSeconds);
    },

    worldMatrix: (character, node) =>
      node === 0 ? crowd[character].worldMatrix : crowd[character].node(node - 1).worldMatrix,
    skinMatrices: (character) => crowd[character].skinMatrices(),
    visible: (camera) => Array.from(views[camera].visible, (one) => indices.get(one)),
  };
}

module.exports = { createCrowdScene };
