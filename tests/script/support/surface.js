'use strict';
// The JavaScript classes and the properties of their prototypes, in order of installation. Add new methods here.

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
