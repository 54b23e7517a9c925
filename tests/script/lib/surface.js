'use strict';
// The script classes and what stands on their prototypes, in order of installation. Whoever installs
// a method enters it here.

/** @type {Object<string, string[]>} */
exports.methods = {
  Engine: [
    'createEntity',
    'createComponent',
    'createDataModel',
    'setEntityName',
    'refreshWorldTransform',
    'cullWithCamera',
    'frustumCulling',
    'frustumCullingV2',
    'orthoCulling',
    'orthoCullingV2',
    'updateAnimator',
    'updateAnimators',
    'updateSkinningMatrix',
    'updateSkinningMatrices',
  ],
  EngineEntity: [],
  EngineComponent: [],
  EngineDataModel: [],
};
