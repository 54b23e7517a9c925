'use strict';
// The script classes and what stands on their prototypes, in order of installation. Whoever installs
// a method enters it here.

/** @type {Object<string, string[]>} */
exports.methods = {
  Engine: [
    'createEntity',
    'createComponent',
    'createDataModel',
    'createAnimationClipBinding',
    'createAnimatorControllerModel',
    'createAnimatorControllerStateModel',
    'setEntityName',
    'refreshWorldTransform',
    'cullWithCamera',
    'frustumCulling',
    'frustumCullingV2',
    'orthoCulling',
    'orthoCullingV2',
    'updateAnimator',
    'updateAnimators',
    'updateAnimatorControllers',
    'updateSkinningMatrix',
    'updateSkinningMatrices',
  ],
  EngineEntity: [],
  EngineComponent: [],
  EngineDataModel: [],
  EngineAnimationClipBinding: ['updateBinding', 'writeDefaultValues'],
  EngineAnimatorControllerModel: ['update', 'setMaskAtIndex'],
  EngineAnimatorControllerStateModel: [],
};
