'use strict';
// The demo's crowd by the records: entities, animators or controllers, skins and culling objects in tables of its own.
const { Crowd } = require('./crowd');
const { CrowdCulling } = require('./culling');
const { frameSeconds } = require('../../lib/crowd-scene');
const { getEngine } = require('../../lib/native-scene');

/**
 * The contender.
 * @param {ReturnType<import('../../lib/crowd-scene').createCrowdScene>} scene
 */
function createCrowdRecords({ kind, characters, cast, bounds, cameras, createPlan }) {
  const engine = getEngine();
  const crowd = new Crowd(engine, kind, characters, cast);
  const { perspective, overview } = cameras;
  const culling = new CrowdCulling(crowd, bounds, perspective, overview);
  const plan = createPlan();
  return {
    name: 'records',

    frame() {
      plan.advance(frameSeconds);
      plan.writeClips(crowd);
      crowd.animate();
      plan.writePlaces(crowd);
      engine.refreshWorldTransform();
      // A second refresh computes the matrices of props in the same frame as those of the hands.
      crowd.props.follow();
      crowd.skin();
      culling.cullPerspective();
      culling.cullOverview();
    },

    /** World matrix of a node of a character. */
    worldMatrix: (character, node) => crowd.worldMatrix(character * kind.nodes.length + node),
    skinMatrices: (character) => crowd.matrices[character],
    propMatrix: (character) => crowd.props.worldMatrix(character),
    /** Characters that a camera sees, nearest first. */
    visible: (camera) =>
      Array.from(culling.views[camera].handles, (handle) => culling.characterOf(handle)),
  };
}

module.exports = { createCrowdRecords };
