'use strict';
// Controllers for a crowd: three layers per character, each with one state.
//
//   2  breath      additive   on the layers below
//   1  wave        override   one arm, by the mask; from the carrying pose (weight 0) to waving (1)
//   0  locomotion  override   all bones: clips whose weights sum to 1
//
// An override layer blends with the rest pose, not with the layers below. So rest poses are taken with arms in the
// carrying pose: at weight 0 the wave layer still holds its arm, without a jump.
const { over } = require('../../../../tests/script/support/blocks');

/** Words of a controller: its binding, then three per layer. */
const kLayerWords = 3;
const kModeWord = 1;
const kLayerWeightWord = 2;
const kStateWord = 3;

/** Words of a state: three, then five per clip. */
const kStateWords = 3;
const kStateWeightWord = 0;
const kNextStateWord = 2;
const kClipWords = 5;
const kClipWord = 0;
const kTimeWord = 1;
const kWeightWord = 2;
const kReferenceClipWord = 3;
const kReferenceTimeWord = 4;

/** Blend modes of layers, and the handle for no state. */
const kOverride = 0;
const kAdditive = 1;
const kOff = 2;
const kNone = 0xffffffff;

/** Layers in their order. */
const kLocomotion = 0;
const kWave = 1;
const kBreath = 2;
const kLayers = 3;

/** Mode in which a binding takes rest poses. */
const kWithRestPoses = 1;

/** Words of a mask's record: entity, weight. */
const kMaskWords = 2;

/** Views of a shared block as integers and as floats. */
function viewsOf(object) {
  return { words: over(Uint32Array, object), floats: over(Float32Array, object) };
}

/** Owns bindings, states and controllers of a crowd whose kind has layers. */
class CrowdControllers {
  /** @param {import('./crowd').Crowd} crowd with its entities, clips, and who carries what */
  constructor(crowd) {
    const { kind, count, cast } = crowd;
    const { wave, breath } = kind.layers;
    this.crowd = crowd;
    this.clips = [...kind.clips, wave, breath];
    this.bindings = [];
    /** Controllers and states, which have blocks. */
    this.objects = [];
    /** For each character: weights of its layers, and the clips of each layer's state, as floats. */
    this.layers = [];
    this.states = [];
    this.batch = new Uint32Array(1 + count);
    this.writeHold();
    for (let i = 0; i < count; ++i) {
      this.addCharacter(i, cast[i] || null);
    }
  }

  /** Creates the controller of the next character, which may carry something. */
  addCharacter(character, part) {
    const { engine, kind } = this.crowd;
    const controller = engine.createAnimatorControllerModel(kLayers);
    const binding = this.createBinding(character);
    const states = [
      this.createState(kind.clips.map((clip, index) => index)),
      this.createState([kind.clips.length]),
      this.createState([kind.clips.length + 1]),
    ];
    const { words, floats } = viewsOf(controller);
    words[0] = binding.id;
    // Switched off by its mode: at weight 0 an override layer would hold both arms.
    const modes = [kOverride, part === null ? kOff : kOverride, kAdditive];
    states.forEach(({ object }, layer) => {
      words[kLayerWords * layer + kModeWord] = modes[layer];
      words[kLayerWords * layer + kStateWord] = object.id;
    });
    floats[kLayerWords * kLocomotion + kLayerWeightWord] = 1;
    if (part !== null) {
      this.maskArm(controller, character, kind.layers.hands[part.hand]);
    }
    this.bindings.push(binding);
    this.objects.push(controller, ...states.map(({ object }) => object));
    this.layers.push(floats);
    this.states.push(states.map((state) => state.floats));
    this.batch[++this.batch[0]] = controller.id;
  }

  /** Sets all arms to the pose of which rest poses are taken. */
  writeHold() {
    const { crowd } = this;
    for (let i = 0; i < crowd.count; ++i) {
      for (const { node, rotation } of crowd.kind.layers.hold) {
        crowd.writeRotation(i * crowd.kind.nodes.length + node, rotation);
      }
    }
  }

  handleOf(character, node) {
    return this.crowd.handles[character * this.crowd.kind.nodes.length + node];
  }

  /** Binds all clips to the nodes of a character. */
  createBinding(character) {
    const list = this.crowd.clipModels.map(({ id }) => id);
    for (const { targets } of this.clips) {
      list.push(targets.length, ...targets.map((node) => this.handleOf(character, node)));
    }
    const { buffer } = Uint32Array.from(list);
    const targetWords = list.length - this.clips.length;
    const { engine } = this.crowd;
    const sizes = [this.clips.length, targetWords];
    return engine.createAnimationClipBinding(buffer, 0, ...sizes, kWithRestPoses);
  }

  /** Creates the only state of a layer; the reference of each clip is its own first frame. */
  createState(clips) {
    const object = this.crowd.engine.createAnimatorControllerStateModel(clips.length);
    const { words, floats } = viewsOf(object);
    floats[kStateWeightWord] = 1;
    words[kNextStateWord] = kNone;
    clips.forEach((clip, k) => {
      const at = kStateWords + kClipWords * k;
      words[at + kClipWord] = this.crowd.clipModels[clip].id;
      words[at + kReferenceClipWord] = this.crowd.clipModels[clip].id;
      floats[at + kReferenceTimeWord] = 0;
      floats[at + kWeightWord] = k === 0 ? 1 : 0;
    });
    return { object, floats };
  }

  /** Masks the wave layer to the arm of a hand. */
  maskArm(controller, character, { arm }) {
    const { targets } = this.crowd.kind.layers.wave;
    const words = new Uint32Array(kMaskWords * targets.length);
    const floats = over(Float32Array, words);
    targets.forEach((node, k) => {
      words[kMaskWords * k] = this.handleOf(character, node);
      floats[kMaskWords * k + 1] = arm.includes(node) ? 1 : 0;
    });
    controller.setMaskAtIndex(kWave, words.buffer, 0, targets.length);
  }

  /** Sets position (as a fraction of its length) and weight of a clip of a layer's state. */
  write(character, layer, k, clip, moment, weight) {
    const floats = this.states[character][layer];
    const at = kStateWords + kClipWords * k;
    floats[at + kTimeWord] = moment * this.clips[clip].frameCount;
    floats[at + kWeightWord] = weight;
  }

  /** Sets a clip of a character's locomotion; the weights of all of them must sum to 1. */
  play(character, clip, moment, weight) {
    this.write(character, kLocomotion, clip, clip, moment, weight);
  }

  /** Sets position and weight of a character's wave. */
  wave(character, moment, weight) {
    this.write(character, kWave, 0, this.clips.length - 2, moment, 1);
    this.layers[character][kLayerWords * kWave + kLayerWeightWord] = weight;
  }

  /** Sets position and weight of a character's breath. */
  breathe(character, moment, weight) {
    this.write(character, kBreath, 0, this.clips.length - 1, moment, 1);
    this.layers[character][kLayerWords * kBreath + kLayerWeightWord] = weight;
  }

  /** Evaluates the controllers of all characters into their entities. */
  animate() {
    this.crowd.engine.updateAnimatorControllers(this.batch.buffer);
  }
}

module.exports = { CrowdControllers };
