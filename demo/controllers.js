'use strict';
// Controllers for a crowd: three layers per character, each with one state. They write the nodes of the characters, and
// are evaluated before the update of the scene.
//
//   2  breath      additive   on the layers below
//   1  wave        override   one arm, by the mask; from the carrying pose (weight 0) to waving (1)
//   0  locomotion  override   all bones: clips whose weights sum to 1
//
// An override layer blends with the rest pose, not with the layers below. So the model has its arms at rest in the
// carrying pose: at weight 0 the wave layer still holds its arm, without a jump.
//
// On the records below the scene: layers of `character.addLayer` give the same poses but for rounding (and hold the arm by
// a clip of their own). The engine evaluates them as fast, but the scene puts them together anew in each frame, and a
// frame of 500 figures takes 1.3 to 1.6 times as long.
const {
  ControllerStateView,
  ControllerView,
  HandleList,
  MaskView,
  TargetListsView,
  layout,
} = require('../lib');
const { inModel } = require('./kind');

/** Layers in their order. */
const kLocomotion = 0;
const kWave = 1;
const kBreath = 2;
const kLayers = 3;

/** Owns bindings, states and controllers of a crowd whose kind has layers. */
class CrowdControllers {
  /** @param {import('./crowd').Crowd} crowd */
  constructor(crowd) {
    const { kind, scene } = crowd;
    const { wave, breath } = kind.layers;
    this.crowd = crowd;
    this.engine = scene.engine;
    this.clips = [...kind.clips, wave, breath];
    this.models = this.clips.map(({ bytes }) =>
      this.engine.createDataModel(layout.dataModelKinds.clip, bytes)
    );
    /** Clips of the state of each layer. */
    this.clipsOf = [kind.clips.map((clip, index) => index)];
    this.clipsOf.push([kind.clips.length], [kind.clips.length + 1]);
    /** By character: its binding, its controller, and the state of each layer. */
    this.bindings = [];
    this.controllers = [];
    this.states = [];
    this.batch = new HandleList(0);
  }

  /** Creates controllers of new characters, and lets go of those of characters that are no more. */
  enable(count) {
    const kept = Math.min(count, this.controllers.length);
    for (const list of [this.bindings, this.controllers, this.states]) {
      list.length = kept;
    }
    for (let i = kept; i < count; ++i) {
      this.add(i);
    }
    this.batch = new HandleList(count);
    this.controllers.forEach(({ id }) => this.batch.append(id));
  }

  /** Creates the controller of a character, which may carry something. */
  add(character) {
    const part = this.crowd.cast[character] || null;
    const model = this.engine.createAnimatorControllerModel(kLayers);
    const controller = new ControllerView(model);
    const binding = this.createBinding(character);
    controller.setBindingHandle(binding.id);
    const states = this.clipsOf.map((clips) => this.createState(clips));
    const { override, additive, off } = layout.layerBlendModes;
    controller.setLayer(kLocomotion, override, 1, states[kLocomotion].id);
    // Switched off by its mode: at weight 0 an override layer would hold both arms.
    controller.setLayer(kWave, part === null ? off : override, 0, states[kWave].id);
    controller.setLayer(kBreath, additive, 0, states[kBreath].id);
    if (part !== null) {
      this.maskArm(model, character, this.crowd.kind.layers.hands[part.hand]);
    }
    this.bindings.push(binding);
    this.controllers.push(controller);
    this.states.push(states);
  }

  handleOf(character, node) {
    return this.crowd.characters[character].node(inModel(node)).handle;
  }

  /** Binds all clips to the nodes of a character, which are in their pose at rest. */
  createBinding(character) {
    const lists = new TargetListsView(this.clips.map(({ targets }) => targets.length));
    this.clips.forEach(({ targets }, clip) => {
      lists.setClip(clip, this.models[clip].id);
      targets.forEach((node, k) => lists.setTarget(clip, k, this.handleOf(character, node)));
    });
    return lists.createBinding(this.engine, layout.addedModes.take);
  }

  /** Creates the only state of a layer; the reference of each clip is its own first frame. */
  createState(clips) {
    const object = this.engine.createAnimatorControllerStateModel(clips.length);
    const state = new ControllerStateView(object);
    state.setWeight(1);
    state.setNextState(layout.handles.none);
    clips.forEach((clip, k) => {
      state.setClip(k, this.models[clip].id, 0, k === 0 ? 1 : 0);
      state.setReference(k, this.models[clip].id, 0);
    });
    return state;
  }

  /** Masks the wave layer to the arm of a hand. */
  maskArm(controller, character, { arm }) {
    const { targets } = this.crowd.kind.layers.wave;
    const mask = new MaskView(targets.length);
    targets.forEach((node, k) => {
      mask.set(k, this.handleOf(character, node), arm.includes(node) ? 1 : 0);
    });
    mask.apply(controller, kWave);
  }

  /** Sets position (as a fraction of its length) and weight of a clip of a layer's state. */
  write(character, layer, k, moment, weight) {
    const state = this.states[character][layer];
    state.setClipTime(k, moment * this.clips[this.clipsOf[layer][k]].frameCount);
    state.setClipWeight(k, weight);
  }

  /** Sets a clip of a character's locomotion; the weights of all of them must sum to 1. */
  play(character, clip, moment, weight) {
    this.write(character, kLocomotion, clip, moment, weight);
  }

  /** Sets position and weight of a character's wave. */
  wave(character, moment, weight) {
    this.write(character, kWave, 0, moment, 1);
    this.controllers[character].setLayerWeight(kWave, weight);
  }

  /** Sets position and weight of a character's breath. */
  breathe(character, moment, weight) {
    this.write(character, kBreath, 0, moment, 1);
    this.controllers[character].setLayerWeight(kBreath, weight);
  }

  /** Evaluates the controllers of all characters into their nodes. */
  animate() {
    this.engine.updateAnimatorControllers(this.batch.buffer);
  }

  /** Bytes of memory that controllers and states share with the engine. */
  sharedBytes() {
    const views = [].concat(this.controllers, ...this.states);
    return views.reduce((sum, { u32 }) => sum + u32.buffer.byteLength, 0);
  }
}

module.exports = { CrowdControllers };
