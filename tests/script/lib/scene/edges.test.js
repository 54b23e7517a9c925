'use strict';
// Scenes at the edges of what programs do: callbacks that update, clips without length, very long steps, nodes that leave
// the tree, and values that no camera, sphere or model can have.
const assert = require('assert');
const nq = require('../../../../lib');
const { Model, Scene } = require('../../../../scene');
const { ModelBuilder } = require('../../../fixtures/animations');

const engine = nq.getEngine();

let model;
let scene;
before(async () => {
  const builder = new ModelBuilder();
  builder.json.scenes = [{ nodes: [0] }];
  builder.node({ name: 'bone' });
  builder.animation('step', [
    { node: 0, path: 'translation', times: [0, 1], values: [0, 0, 0, 1, 0, 0] },
  ]);
  builder.animation('point', [{ node: 0, path: 'translation', times: [0], values: [0, 1, 0] }]);
  model = await Model.load(builder.glb(), {
    name: 'bone.glb',
    bounds: { center: [0, 0, 0], radius: 1 },
  });
});
beforeEach(() => {
  scene = new Scene({ engine });
});
afterEach(() => scene.dispose());

/** A character of the scene that plays a clip. */
function play(clip, options) {
  const [character] = scene.instantiate(model);
  character.play(clip, options);
  return character;
}

describe('callbacks of scenes', () => {
  it('may be undefined, as null', () => {
    const character = play('step', { loop: false });
    character.onEnd = undefined;
    scene.update(2);
    assert.strictEqual(character.timeOf('step'), 1);
  });

  it('that are no functions fail with a readable error', () => {
    const character = play('step', { loop: false });
    character.onEnd = 'wave';
    assert.throws(() => scene.update(2), {
      name: 'TypeError',
      message: "Character.onEnd: it is 'wave': give a function, or null for none.",
    });
    const layer = character.addLayer('top');
    layer.play('step');
    layer.onLoop = 1;
    assert.throws(() => scene.update(2), {
      name: 'TypeError',
      message: 'AnimationLayer.onLoop: it is 1: give a function, or null for none.',
    });
  });

  it("can't update the scene that calls them", () => {
    const ended = [];
    const characters = [1, 2, 3].map(() => play('step', { loop: false }));
    characters.forEach((one) => (one.onEnd = (character) => ended.push(character)));
    characters[0].onEnd = () => {
      ended.push(characters[0]);
      assert.throws(() => scene.update(1), {
        name: 'Error',
        message:
          'Scene.update: an update of the scene runs: call it after that, not in a callback.',
      });
    };
    scene.update(2);
    assert.deepStrictEqual(ended, characters);
    // Also after one that has failed.
    characters[0].onEnd = () => assert.fail('mine');
    characters[0].play('step', { loop: false, at: 0 });
    assert.throws(() => scene.update(2), /mine/);
    scene.update(2);
  });
});

describe('clips of scenes', () => {
  it('without length end at once, and once', () => {
    const character = play('point', { loop: false });
    let ended = 0;
    character.onEnd = () => ++ended;
    scene.update(0.25);
    assert.strictEqual(ended, 1);
    scene.update(0.25);
    assert.strictEqual(ended, 1);
    assert.deepStrictEqual(character.node('bone').position, [0, 1, 0]);
    // One that loops has no end.
    character.onLoop = () => assert.fail('called');
    character.play('point');
    scene.update(0.25);
    assert.strictEqual(ended, 1);
  });

  it('start again when they are played at their end, and go on before', () => {
    const character = play('step', { loop: false });
    let ended = 0;
    character.onEnd = () => {
      ++ended;
      character.play('step', { loop: false });
    };
    scene.update(0.5);
    character.play('step', { loop: false });
    assert.strictEqual(character.timeOf('step'), 0.5);
    scene.update(1);
    assert.deepStrictEqual([ended, character.timeOf('step')], [1, 0]);
    scene.update(0.75);
    assert.deepStrictEqual([ended, character.timeOf('step')], [1, 0.75]);
    scene.update(0.75);
    assert.deepStrictEqual([ended, character.timeOf('step')], [2, 0]);
    // The other way, it leads back from the end; and then starts at the end again.
    character.onEnd = null;
    scene.update(2);
    assert.strictEqual(character.timeOf('step'), 1);
    character.play('step', { loop: false, speed: -1 });
    scene.update(0.25);
    assert.strictEqual(character.timeOf('step'), 0.75);
    scene.update(2);
    assert.strictEqual(character.timeOf('step'), 0);
    character.play('step', { loop: false, speed: -1 });
    assert.strictEqual(character.timeOf('step'), 1);
  });

  it('have a time and a weight after steps of any length', () => {
    const most = Number.MAX_VALUE;
    const character = play('step', { speed: -most, fade: Number.MIN_VALUE });
    scene.update(0);
    scene.update(most);
    const time = character.timeOf('step');
    assert(time >= 0 && time < 1, `${time}`);
    assert.strictEqual(character.weightOf('step'), 1);
    character.stop('step', { fade: Number.MIN_VALUE });
    scene.update(1);
    assert.strictEqual(character.timeOf('step'), -1);
  });
});

describe('nodes of scenes', () => {
  it('are disposed of with any number of children', () => {
    const top = scene.node();
    for (let i = 0; i < 150000; ++i) {
      scene.node({ parent: top });
    }
    top.dispose();
    assert.strictEqual(scene.nodeCount, 0);
  });
});
