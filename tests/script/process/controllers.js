'use strict';
// Bindings, controllers and states that end the process. `controllers.js CASE`.
const fs = require('fs');
const { MessageChannel } = require('worker_threads');
const { modulePath, addonPath } = require('../support/host');

const nq = require(modulePath);
const addon = require(addonPath);
const engine = nq.getEngine();
const emptyEngine = new engine.constructor();
const lists = Uint32Array.of(1, 1, 1).buffer;
const binding = engine.createAnimationClipBinding(lists, 0, 1, 2, 1);
const controller = engine.createAnimatorControllerModel(1);
const state = engine.createAnimatorControllerStateModel(1);
const emptyBinding = new binding.constructor();
const emptyController = new controller.constructor();
const throwing = {
  valueOf() {
    throw new Error('from valueOf');
  },
};
const mask = new ArrayBuffer(8);

function detachedView() {
  const view = Uint32Array.of(1, controller.id);
  new MessageChannel().port1.postMessage(view.buffer, [view.buffer]);
  return view;
}

const cases = {
  bindingOnEmpty: () => engine.createAnimationClipBinding.call(emptyEngine, lists, 0, 1, 2, 1),
  controllerOnBinding: () => engine.createAnimatorControllerModel.call(binding, 1),
  stateOnEmpty: () => engine.createAnimatorControllerStateModel.call(emptyEngine, 1),
  controllersOnController: () =>
    engine.updateAnimatorControllers.call(controller, Uint32Array.of(1, controller.id)),
  controllersOnEmptyByWorkers: () =>
    engine.updateAnimatorControllers.call(emptyEngine, Uint32Array.of(2, 0x1000, 0x2000)),
  updateOnEmpty: () => controller.update.call(emptyController, 0, mask),
  updateOnState: () => controller.update.call(state, 0, mask),
  updateWithoutArguments: () => controller.update.call(binding),
  maskOnEmpty: () => controller.setMaskAtIndex.call(emptyController, 0, mask, 0, 1),
  maskOnEngine: () => controller.setMaskAtIndex.call(engine, 0, mask, 0, 1),
  updateBindingOnEmpty: () => binding.updateBinding.call(emptyBinding, lists, 0, 1, 2, 0, 0, 0),
  updateBindingOnController: () => binding.updateBinding.call(controller, lists, 0, 1, 2, 0, 0, 0),
  defaultsOnEmpty: () => binding.writeDefaultValues.call(emptyBinding),

  bindingOffsetThrows: () => engine.createAnimationClipBinding(lists, throwing, 1, 2, 1),
  bindingModeIsSymbol: () => engine.createAnimationClipBinding(lists, 0, 1, 2, Symbol('1')),
  layerCountIsBigInt: () => engine.createAnimatorControllerModel(BigInt(1)),
  stateClipsThrow: () => engine.createAnimatorControllerStateModel(throwing),
  maskIndexThrows: () => controller.setMaskAtIndex(throwing, mask, 0, 1),
  maskCountIsSymbol: () => controller.setMaskAtIndex(0, mask, 0, Symbol('1')),
  updateBindingModeThrows: () => binding.updateBinding(lists, 0, 1, 2, 0, 0, throwing),

  batchOfNumber: () => engine.updateAnimatorControllers(7),
  batchOfUndefined: () => engine.updateAnimatorControllers(undefined),
  batchOfEmptyBuffer: () => engine.updateAnimatorControllers(new ArrayBuffer(0)),
  batchOfDetachedView: () => engine.updateAnimatorControllers(detached),

  // A state of weight 0 that is its own next state: nothing is collected on the way around.
  statesInALoop() {
    new Uint32Array(state.buffer)[2] = state.id;
    new Uint32Array(controller.buffer).set([binding.id, 0, 0, state.id]);
    engine.updateAnimatorControllers(Uint32Array.of(1, controller.id));
    fs.writeSync(1, 'returned\n');
  },

  constructBinding: () => addon.construct('EngineAnimationClipBinding'),
  constructController: () => addon.construct('EngineAnimatorControllerModel'),
  constructState: () => addon.construct('EngineAnimatorControllerStateModel'),
};

const detached = detachedView();
fs.writeSync(1, 'about to end\n');
cases[process.argv[2]]();
