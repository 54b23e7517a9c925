'use strict';
// The demo's crowd by the records: entities, animators, skins and culling objects in tables of their own.
const { Crowd } = require('../../../demo/crowd');
const { CrowdCulling } = require('../../../demo/culling');
const { frameSeconds } = require('../lib/crowd-scene');
const { getEngine } = require('../lib/native-scene');

/**
 * The contender.
 * @param {ReturnType<import('../lib/crowd-scene').createCrowdScene>} scene
 */
function createCrowdRecords({ kind, characters, bounds, cameras, createPlan }) {
  const engine = getEngine();
  const crowd = new Crowd(engine, kind, characters);
  const { perspective, overview } = cameras;
  const culling = new CrowdCulling(crowd, bounds, perspective, overview);
  const plan = createPlan();
  const target = {
    play: (character, clip, moment, weight) => crowd.play(character, clip, moment, weight),
    breathe() {},
    place: (character, x, z, heading) => crowd.place(character, x, z, heading),
  };
  return {
    name: 'records',

    frame() {
      plan.advance(frameSeconds);
      plan.writeClips(target);
      crowd.animate();
      plan.writePlaces(target);
      engine.refreshWorldTransform();
      crowd.skin();
      culling.cullPerspective();
      culling.cullOverview();
    },

    /** World matrix of a node of a character. */
    worldMatrix: (character, node) => crowd.worldMatrix(character * kind.nodes.length + node),
    skinMatrices: (character) => crowd.matrices[character],
    /** Characters that a camera sees, nearest first. */
    visible: (camera) =>
      Array.from(culling.views[camera].handles, (handle) => culling.characterOf(handle)),
  };
}

module.exports = { createCrowdRecords };
