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
