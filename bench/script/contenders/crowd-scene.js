'use strict';
// The demo's crowd by lib/scene, as the demo has it.
const { Crowd } = require('../../../demo/crowd');
const { CrowdCulling } = require('../../../demo/culling');
const { Scene } = require('../../../scene');
const { frameSeconds } = require('../lib/crowd-scene');
const { getEngine } = require('../lib/native-scene');

/**
 * The contender.
 * @param {ReturnType<import('../lib/crowd-scene').createCrowdScene>} given
 */
function createCrowdScene({ kind, characters, cast, bounds, cameras, createPlan }) {
  const scene = new Scene({ engine: getEngine() });
  const crowd = new Crowd(scene, kind, characters, cast);
  const culling = new CrowdCulling(crowd, bounds, cameras.perspective, cameras.overview);
  const plan = createPlan();
  return {
    name: 'scene',

    frame() {
      plan.advance(frameSeconds);
      plan.writeClips(crowd);
      plan.writePlaces(crowd);
      scene.update(frameSeconds);
      culling.cullPerspective();
      culling.cullOverview();
    },

    /** World matrix of a node of a character. */
    worldMatrix(character, node) {
      const one = crowd.characters[character];
      return node === 0 ? one.worldMatrix : one.node(node - 1).worldMatrix;
    },
    skinMatrices: (character) => crowd.matrices[character],
    propMatrix: (character) => crowd.props.worldMatrix(character),
    /** Characters that a camera sees, nearest first. */
    visible: (camera) =>
      Array.from(culling.views[camera].handles, (handle) => culling.characterOf(handle)),
  };
}

module.exports = { createCrowdScene };
