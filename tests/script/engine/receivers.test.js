'use strict';
// Wrong receivers and arguments that can't be converted. They never throw a JavaScript exception.
const assert = require('assert');
const { modulePath, addonPath } = require('../support/host');
const { runScript, assertFault, assertHostFatal } = require('../support/child');

const nq = require(modulePath);
const addon = require(addonPath);

describe('receiver', () => {
  const engine = nq.getEngine();
  const entity = engine.createEntity(true, 2);
  const component = engine.createComponent(2, 1, 1);
  const dataModel = engine.createDataModel(2, new ArrayBuffer(64));
  const lists = Uint32Array.of(1, 1, entity.id).buffer;
  const binding = engine.createAnimationClipBinding(lists, 0, 1, 2, 1);
  const controller = engine.createAnimatorControllerModel(1);
  const state = engine.createAnimatorControllerStateModel(1);
  const empty = new engine.constructor();

  it('has two internal fields, which new leaves empty', () => {
    for (const object of [engine, entity, component, dataModel, binding, controller, state]) {
      assert.deepStrictEqual(addon.internalFields(object), { count: 2, undefinedFields: 0 });
      const unbound = new object.constructor();
      assert.deepStrictEqual(addon.internalFields(unbound), { count: 2, undefinedFields: 2 });
    }
  });

  it('is accepted by methods of its own class only', () => {
    const nothing = {
      engine: false,
      entity: false,
      component: false,
      dataModel: false,
      binding: false,
      controller: false,
      state: false,
    };
    for (const [object, expected] of [
      [engine, { engine: true }],
      [entity, { entity: true }],
      [engine.createComponent(1), { component: true }],
      [engine.createComponent(2, 1, 1), { component: true }],
      [engine.createComponent(3, 0), { component: true }],
      [engine.createDataModel(1, new ArrayBuffer(16)), { dataModel: true }],
      [engine.createDataModel(7, new ArrayBuffer(16)), { dataModel: true }],
      [binding, { binding: true }],
      [engine.createAnimationClipBinding(lists, 0, 0, 1, 0), { binding: true }],
      [controller, { controller: true }],
      [engine.createAnimatorControllerModel(0), { controller: true }],
      [state, { state: true }],
      [engine.createAnimatorControllerStateModel(0), { state: true }],
      [empty, {}],
      [new binding.constructor(), {}],
      [new controller.constructor(), {}],
      [{}, {}],
      [nq, {}],
      [new Uint8Array(4), {}],
      [Object.create(engine), {}],
    ]) {
      assert.deepStrictEqual(addon.unwrap(object), Object.assign({}, nothing, expected));
    }
  });

  it('is not accepted with another number of internal fields, whatever they hold', () => {
    for (const object of [engine, entity, component, dataModel, binding, controller, state]) {
      const other = addon.withThirdField(object);
      assert.deepStrictEqual(addon.internalFields(other), { count: 3, undefinedFields: 1 });
      const accepted = Object.values(addon.unwrap(other));
      assert(!accepted.includes(true), `${object}`);
    }
  });

  it('is used without a check by methods that do not check it', () => {
    assert.strictEqual(addon.unwrapUnchecked(engine), true);
    assert.strictEqual(addon.unwrapUnchecked(entity), true);
    assert.strictEqual(addon.unwrapUnchecked(empty), false);
  });

  // Checks that return before the wrapper is used are not affected.
  for (const [label, receiver] of [
    ['an empty engine', empty],
    ['an entity', entity],
    ['an empty entity', new entity.constructor()],
    ['a component', component],
    ['a data model', dataModel],
    ['a binding', binding],
    ['a controller', controller],
    ['a state', state],
    ['a plain object', {}],
    ['undefined', undefined],
    ['a number', 7],
  ]) {
    it(`may be ${label} if it is not used`, () => {
      assert.strictEqual(engine.setEntityName.call(receiver), null);
      assert.strictEqual(engine.setEntityName.call(receiver, entity.id), null);
      assert.strictEqual(engine.setEntityName.call(receiver, 0, 'x'), null);
      assert.strictEqual(engine.setEntityName.call(receiver, entity.id, ''), null);
      assert.strictEqual(engine.setEntityName.call(receiver, entity.id, Symbol('x')), null);
      assert.strictEqual(addon.entityName(engine, entity.id), '');
      for (const name of [
        'updateAnimator',
        'updateAnimators',
        'updateSkinningMatrix',
        'updateSkinningMatrices',
        'createDataModel',
        'createComponent',
        'createAnimationClipBinding',
        'createAnimatorControllerModel',
        'createAnimatorControllerStateModel',
        'updateAnimatorControllers',
      ]) {
        assert.strictEqual(engine[name].call(receiver), null, name);
      }
      // A refused list is not passed on.
      for (const name of [
        'updateAnimators',
        'updateAnimatorControllers',
        'updateSkinningMatrices',
      ]) {
        for (const words of [[0], [0, 1, 2], [1], [3, 1, 2], [0xffffffff, 1]]) {
          const list = Uint32Array.from(words);
          assert.strictEqual(engine[name].call(receiver, list), null, `${name} ${words}`);
          assert.strictEqual(engine[name].call(receiver, list.buffer), null, `${name} ${words}`);
        }
      }
      assert.strictEqual(engine.createDataModel.call(receiver, 1), null);
      assert.strictEqual(engine.createComponent.call(receiver, 2, 1), null);
      assert.strictEqual(engine.createComponent.call(receiver, 3), null);
      const { createAnimationClipBinding } = engine;
      assert.strictEqual(createAnimationClipBinding.call(receiver, lists, 0, 1, 2), null);
      assert.strictEqual(createAnimationClipBinding.call(receiver, 'x', 0, 1, 2, 1), null);
      assert.strictEqual(createAnimationClipBinding.call(receiver, lists, 4, 1, 2, 1), null);
      assert.strictEqual(controller.setMaskAtIndex.call(receiver, 0, lists, 0), null);
      assert.strictEqual(binding.updateBinding.call(receiver, lists, 0, 1, 2, 0, 0), false);
    });
  }

  it('may be another engine than the one of the method', () => {
    const other = nq.getEngine();
    assert.strictEqual(other.createEntity.call(engine, true).id, entity.id + 0x1000);
    assert.strictEqual(engine.createEntity.call(other, true).id, 0x1000);
  });

  for (const [name, label] of [
    ['createOnEmpty', 'createEntity on an empty engine'],
    ['createOnEntity', 'createEntity on an entity'],
    ['createOnPlainObject', 'createEntity on a plain object'],
    ['createOnUndefined', 'createEntity without a receiver'],
    ['nameOnEmpty', 'setEntityName on an empty engine'],
    ['nameOnEntity', 'setEntityName on an entity'],
    ['refreshOnEmpty', 'refreshWorldTransform on an empty engine'],
  ]) {
    it(`ends the process by a segmentation fault: ${label}`, () => {
      assertFault(runScript('misuse.js', name));
    });
  }

  for (const [name, label] of [
    ['animatorOnEmpty', 'updateAnimator on an empty engine'],
    ['animatorOnComponent', 'updateAnimator on a component'],
    ['animatorsOnEntity', 'updateAnimators on an entity'],
    ['skinningOnEmpty', 'updateSkinningMatrix on an empty engine'],
    ['skinningsOnDataModel', 'updateSkinningMatrices on a data model'],
    ['dataModelOnEmpty', 'createDataModel on an empty engine'],
    ['componentOnDataModel', 'createComponent on a data model'],
    ['animatorOnEmptyConverts', 'updateAnimator, behind the conversion of its handle'],
    ['skinningOnEntityConverts', 'updateSkinningMatrix, behind the conversion of its handle'],
    ['skinningsOnEmptyByWorkers', 'updateSkinningMatrices of two on an empty engine'],
  ]) {
    it(`ends the process by a segmentation fault: ${label}`, () => {
      assertFault(runScript('animation.js', name));
    });
  }

  for (const [name, label] of [
    ['bindingOnEmpty', 'createAnimationClipBinding on an empty engine'],
    ['controllerOnBinding', 'createAnimatorControllerModel on a binding'],
    ['stateOnEmpty', 'createAnimatorControllerStateModel on an empty engine'],
    ['controllersOnController', 'updateAnimatorControllers on a controller'],
    ['controllersOnEmptyByWorkers', 'updateAnimatorControllers of two on an empty engine'],
    ['updateOnEmpty', 'update on an empty controller'],
    ['updateOnState', 'update on a state'],
    ['updateWithoutArguments', 'update without arguments on a binding'],
    ['maskOnEmpty', 'setMaskAtIndex on an empty controller'],
    ['maskOnEngine', 'setMaskAtIndex on an engine'],
    ['updateBindingOnEmpty', 'updateBinding on an empty binding'],
    ['updateBindingOnController', 'updateBinding on a controller'],
    ['defaultsOnEmpty', 'writeDefaultValues on an empty binding'],
  ]) {
    it(`ends the process by a segmentation fault: ${label}`, () => {
      assertFault(runScript('controllers.js', name));
    });
  }

  for (const name of ['refreshOnPlainObject', 'refreshOnNumber']) {
    it(`ends the process by a fatal error of V8: ${name}`, () => {
      assertHostFatal(
        runScript('misuse.js', name),
        'v8::Object::SetAlignedPointerInInternalField() Internal field out of bounds'
      );
    });
  }
});

describe('conversion', () => {
  for (const name of [
    'countThrows',
    'countIsSymbol',
    'countIsBigInt',
    'handleThrows',
    'handleIsBigInt',
    'handleIsSymbol',
  ]) {
    it(`that fails ends the process by a fatal error of V8: ${name}`, () => {
      assertHostFatal(runScript('misuse.js', name), 'v8::FromJust Maybe value is Nothing.');
    });
  }

  for (const name of [
    'bindingOffsetThrows',
    'bindingModeIsSymbol',
    'layerCountIsBigInt',
    'stateClipsThrow',
    'maskIndexThrows',
    'maskCountIsSymbol',
    'updateBindingModeThrows',
  ]) {
    it(`that fails ends the process by a fatal error of V8: ${name}`, () => {
      assertHostFatal(runScript('controllers.js', name), 'v8::FromJust Maybe value is Nothing.');
    });
  }

  for (const name of [
    'animatorHandleThrows',
    'skinningHandleIsSymbol',
    'dataModelKindIsBigInt',
    'clipCountThrows',
    'boneCountIsSymbol',
  ]) {
    it(`that fails ends the process by a fatal error of V8: ${name}`, () => {
      assertHostFatal(runScript('animation.js', name), 'v8::FromJust Maybe value is Nothing.');
    });
  }
});
