'use strict';
// Characters of scenes: models from files, playback in seconds, crossfades and skins against three.js, sockets, cameras,
// reuse of memory, and that a frame allocates nothing.
const assert = require('assert');
const three = require('three');
const nq = require('../../../../lib');
const { importGltf } = require('../../../../lib/gltf');
const { Camera, Model, Scene } = require('../../../../scene');
const { ModelBuilder } = require('../../../fixtures/animations');
const { realModel } = require('../../../fixtures/models');
const { bytesPerRun } = require('../../support/heap');
const { slow } = require('../../support/host');
const { assertSkins, load } = require('../../support/three-model');

const engine = nq.getEngine();
const half = Math.SQRT1_2;

/**
 * A body with an arm and a hand, one above the other, and a box of vertices on each. 'walk' turns the arm and moves the
 * hand; 'wave' turns the arm and scales the body; 'point' has one key.
 */
function buildFigure() {
  const builder = new ModelBuilder();
  builder.json.scenes = [{ nodes: [0, 3] }];
  builder.node({ name: 'body', children: [1], translation: [0.5, 0, 0] });
  builder.node({ name: 'arm', children: [2], translation: [0, 1, 0] });
  builder.node({ name: 'hand', translation: [0, 1.02, 0], rotation: [0, half, 0, half] });
  builder.node({ name: 'mesh', mesh: 0, skin: 0 });
  const positions = [];
  const joints = [];
  const weights = [];
  [0, 1, 2].forEach((joint) => {
    for (const x of [-0.25, 0.25]) {
      for (const y of [0, 0.5]) {
        positions.push(0.5 + x, joint + y, x);
        joints.push(joint, Math.min(2, joint + 1), 0, 0);
        weights.push(0.75, 0.25, 0, 0);
      }
    }
  });
  const attributes = {
    POSITION: builder.accessor('VEC3', Float32Array.from(positions), {
      min: [0.25, 0, -0.25],
      max: [0.75, 2.5, 0.25],
    }),
    JOINTS_0: builder.accessor('VEC4', Uint8Array.from(joints), { normalized: false }),
    WEIGHTS_0: builder.accessor('VEC4', Float32Array.from(weights)),
  };
  builder.json.meshes = [{ primitives: [{ attributes }] }];
  const below = (y) => [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -0.5, -y, 0, 1];
  const inverses = Float32Array.from([...below(0), ...below(1), ...below(2)]);
  const inverseBindMatrices = builder.accessor('MAT4', inverses);
  builder.json.skins.push({ joints: [0, 1, 2], inverseBindMatrices });
  builder.animation('walk', [
    {
      node: 1,
      path: 'rotation',
      times: [0, 0.5, 1],
      values: [0, 0, 0, 1, 0, 0, half, half, 0, 0, 0, 1],
    },
    { node: 2, path: 'translation', times: [0, 1], values: [0, 1.02, 0, 0.5, 1.5, 0] },
  ]);
  builder.animation('wave', [
    {
      node: 1,
      path: 'rotation',
      times: [0, 1, 2],
      values: [half, 0, 0, half, 0, 0, 0, 1, 0, half, 0, half],
    },
    { node: 0, path: 'scale', times: [0, 2], values: [1, 1, 1, 1.5, 0.75, 1] },
  ]);
  builder.animation('point', [
    { node: 1, path: 'rotation', times: [0], values: [0, 0, half, half] },
  ]);
  return builder.glb();
}

describe('models of scenes', () => {
  it('have nodes, clips with seconds, skins and vertices of the file', async () => {
    const model = await Model.load(buildFigure(), { name: 'figure' });
    assert.deepStrictEqual(
      model.clips.map(({ name, index, duration }) => [name, index, duration]),
      [
        ['walk', 0, 1],
        ['wave', 1, 2],
        ['point', 2, 0],
      ]
    );
    assert.deepStrictEqual(
      model.nodes.map(({ name }) => name),
      ['body', 'arm', 'hand', 'mesh']
    );
    assert.strictEqual(model.nodeIndex('hand'), 2);
    assert.strictEqual(model.clip('wave'), model.clips[1]);
    assert.strictEqual(model.clip(0), model.clips[0]);
    assert.strictEqual(model.clip(model.clips[2]), model.clips[2]);
    assert.deepStrictEqual(model.skins[0].joints, [0, 1, 2]);
    const [{ node, skin, primitives }] = model.meshes;
    assert.deepStrictEqual([node, skin, primitives.length], [3, 0, 1]);
    assert.strictEqual(primitives[0].mode, 4);
    assert.strictEqual(primitives[0].positions.length, 36);
    assert.deepStrictEqual(Array.from(primitives[0].joints.slice(0, 4)), [0, 1, 0, 0]);
    assert.strictEqual(primitives[0].indices, null);
    assert.deepStrictEqual(model.warnings, []);
    assert.throws(() => model.clip('run'), {
      name: 'RangeError',
      message: "Model.clip: model 'figure' has no clip 'run': it has 'walk', 'wave', 'point'.",
    });
    assert.throws(() => model.nodeIndex('tail'), /has no node 'tail': it has 'body', 'arm'/);
  });

  it('have clips that all move the same, in their values at rest where the file has none', async () => {
    const model = await Model.load(buildFigure());
    const read = model.clips.map(({ bytes, name }) => nq.readClip(bytes, name));
    const kinds = read.map(({ curves }) => curves.map(({ target, type }) => `${target} ${type}`));
    // Scale of the body, rotation of the arm, translation of the hand.
    assert.strictEqual(kinds[0].length, 3 + 4 + 3);
    assert.deepStrictEqual(kinds[1], kinds[0]);
    assert.deepStrictEqual(kinds[2], kinds[0]);
    const height = read[1].curves.find(({ target, type }) => {
      return target === 2 && type === nq.sampleTypes.PositionY;
    });
    assert.deepStrictEqual(
      height.keys.map(({ value }) => value),
      [Math.fround(1.02)]
    );
  });

  it('are bounded in all of their clips', async () => {
    const { model, oracle } = await load(buildFigure());
    const [{ primitives }] = model.meshes;
    const { positions, joints, weights } = primitives[0];
    const { center, radius } = model.bounds;
    let farthest = 0;
    for (const { name, duration } of model.clips) {
      for (let step = 0; step <= 50; ++step) {
        oracle.pose({ [name]: { time: (duration * step) / 50, weight: 1 } });
        for (let i = 0; i < positions.length / 3; ++i) {
          const place = new three.Vector3();
          for (let k = 0; k < 4; ++k) {
            const matrix = new three.Matrix4().fromArray(
              oracle.skeletons[0].boneMatrices,
              16 * joints[4 * i + k]
            );
            const vertex = new three.Vector3().fromArray(positions, 3 * i).applyMatrix4(matrix);
            place.addScaledVector(vertex, weights[4 * i + k]);
          }
          farthest = Math.max(farthest, place.distanceTo(new three.Vector3(...center)));
        }
      }
    }
    assert(farthest <= radius, `${farthest} of ${radius}`);
    assert(farthest > 0.7 * radius, `${farthest} of ${radius}`);
  });

  it('leave out targets of animations that are -1', async () => {
    const imported = await importGltf(buildFigure());
    imported.animations.forEach((animation) => {
      animation.targets = animation.targets.map((node) => (node === 1 ? -1 : node));
    });
    const model = Model.from(imported);
    const { curves } = nq.readClip(model.clips[0].bytes);
    // Without the rotation of the arm: scale of the body, translation of the hand.
    assert.strictEqual(curves.length, 3 + 3);
    const scene = new Scene({ engine });
    const [character] = scene.instantiate(model);
    character.play('walk', { at: 0.5 });
    scene.update();
    assert.deepStrictEqual(character.node('arm').quaternion, [0, 0, 0, 1]);
    assert.strictEqual(character.node('hand').position[0], 0.25);
    scene.dispose();
  });

  it('take bounds from options, and need no vertices', async () => {
    const imported = await importGltf(buildFigure());
    const bounds = { center: [1, 2, 3], radius: 4 };
    assert.deepStrictEqual(Model.from(imported, { bounds }).bounds, bounds);
    assert(Model.from(imported).bounds.radius > 1);
    assert.throws(
      () => Model.from(imported, { bounds: { center: [1, 2], radius: 4 } }),
      /options\.bounds is an object: give \{ center: \[x, y, z\], radius \}, or leave it out\.$/
    );
    await assert.rejects(Model.load('/not/there.glb'), /there is no such file/);
  });
});

describe('playback', () => {
  let model;
  let oracle;
  let scene;

  before(async () => {
    ({ model, oracle } = await load(buildFigure()));
  });

  beforeEach(() => {
    scene = new Scene({ engine });
  });

  afterEach(() => {
    scene.dispose();
  });

  it('skins as three.js does: single clips, crossfades, and clips that move other things', () => {
    const [character] = scene.instantiate(model);
    let compared = 0;
    const compare = (playing, label) => {
      oracle.pose(playing);
      compared += assertSkins(character, oracle, label);
    };
    character.play('walk', { at: 0.25 });
    scene.update();
    compare({ walk: { time: 0.25, weight: 1 } }, 'walk');
    character.crossfade('wave', 1);
    for (let step = 1; step <= 8; ++step) {
      scene.update(0.125);
      const t = step / 8;
      const walk = { time: (0.25 + t) % 1, weight: 1 - t };
      compare({ walk: t < 1 ? walk : undefined, wave: { time: t, weight: t } }, `fade ${t}`);
    }
    assert.strictEqual(character.weightOf('walk'), 0);
    assert.strictEqual(character.timeOf('walk'), -1);
    assert.strictEqual(character.weightOf('wave'), 1);
    scene.update(0.5);
    compare({ wave: { time: 1.5, weight: 1 } }, 'wave');
    character.play('point');
    scene.update(3);
    compare({ point: { time: 0, weight: 1 } }, 'point');
    assert(compared >= 11 * 48);
  });

  it('skins a real model as three.js does', async function () {
    const fox = await load(realModel(this, 'Fox.glb'));
    const [character] = scene.instantiate(fox.model);
    character.play('Walk');
    scene.update(0.2);
    character.crossfade('Run', 0.5, { at: 0.3 });
    for (let step = 1; step < 4; ++step) {
      scene.update(0.125);
      const duration = fox.model.clip('Walk').duration;
      const time = 0.2 + step * 0.125;
      fox.oracle.pose({
        Walk: { time: time % duration, weight: 1 - step / 4 },
        Run: { time: 0.3 + step * 0.125, weight: step / 4 },
      });
      assertSkins(character, fox.oracle, `step ${step}`);
    }
  });

  it('keeps a channel of one clip at rest in the other: a socket does not sink', () => {
    const [character] = scene.instantiate(model);
    const hand = character.node('hand');
    character.play('walk', { at: 0, speed: 0 });
    character.play('wave', { at: 0, speed: 0, beside: true, weight: 0.1 });
    scene.update(1);
    assert(Math.abs(hand.position[1] - 1.02) < 1e-6, `${hand.position}`);
  });

  it('counts seconds at any speed, loops, and stops at ends, with events', () => {
    const [character] = scene.instantiate(model);
    const events = [];
    character.onLoop = (who, { name }) => events.push(['loop', who === character, name]);
    character.onEnd = (who, { name }) => events.push(['end', who === character, name]);
    character.play('walk', { speed: 2 });
    scene.update(0.25);
    assert.strictEqual(character.timeOf('walk'), 0.5);
    assert.deepStrictEqual(events, []);
    scene.update(0.375);
    assert.strictEqual(character.timeOf('walk'), 0.25);
    assert.deepStrictEqual(events.splice(0), [['loop', true, 'walk']]);
    character.play('walk', { speed: -1 });
    assert.strictEqual(character.timeOf('walk'), 0.25);
    scene.update(0.5);
    assert.strictEqual(character.timeOf('walk'), 0.75);
    assert.deepStrictEqual(events.splice(0), [['loop', true, 'walk']]);
    character.play('wave', { loop: false, at: 1.5 });
    scene.update(0.25);
    assert.deepStrictEqual(events, []);
    scene.update(0.5);
    scene.update(0.5);
    assert.strictEqual(character.timeOf('wave'), 2);
    assert.deepStrictEqual(events.splice(0), [['end', true, 'wave']]);
    oracle.actions.forEach((action) => (action.setLoop(three.LoopOnce).clampWhenFinished = true));
    oracle.pose({ wave: { time: 2, weight: 1 } });
    assertSkins(character, oracle, 'held at its end');
    oracle.actions.forEach((action) => action.setLoop(three.LoopRepeat));
  });

  it('may be changed by events: play, dispose', () => {
    const [first, second] = scene.instantiate(model, 2);
    first.onEnd = () => first.play('wave');
    second.onEnd = () => second.dispose();
    [first, second].forEach((one) => one.play('walk', { loop: false }));
    scene.update(2);
    assert.strictEqual(first.timeOf('wave'), 0);
    assert.strictEqual(first.weightOf('walk'), 0);
    assert(second.isDisposed);
    assert.strictEqual(scene.stats.playing, 1);
    scene.update(0.5);
    assert.strictEqual(first.timeOf('wave'), 0.5);
  });

  it('goes on after an error in an event', () => {
    const [first, second] = scene.instantiate(model, 2);
    first.onLoop = () => {
      throw new Error('mine');
    };
    [first, second].forEach((one) => one.play('walk'));
    assert.throws(() => scene.update(1.5), /^Error: mine$/);
    first.onLoop = null;
    scene.update(0.25);
    assert.deepStrictEqual([first.timeOf('walk'), second.timeOf('walk')], [0.75, 0.75]);
    assert.strictEqual(scene.stats.playing, 2);
  });

  it('plays any number of clips, by their weights', () => {
    const [character] = scene.instantiate(model);
    character.play('walk', { weight: 0.75 });
    character.play('wave', { weight: 0.5, beside: true });
    character.play('point', { beside: true });
    const weights = () => ['walk', 'wave', 'point'].map((name) => character.weightOf(name));
    assert.deepStrictEqual(weights(), [0.75, 0.5, 1]);
    character.setWeight('walk', 0.25, { fade: 1 });
    scene.update(0.5);
    assert.deepStrictEqual(weights(), [0.5, 0.5, 1]);
    // The hand is moved by the first alone, of weight 0.5 among 2: y from 1.02 to 1.5 within a second.
    const [, y] = character.node('hand').position;
    assert(Math.abs(y - (1.02 + (0.25 * 0.48) / 2)) < 1e-6, `${y}`);
    character.stop('point');
    assert.deepStrictEqual(weights(), [0.5, 0.5, 0]);
    character.stop();
    scene.update();
    assert.strictEqual(scene.stats.playing, 0);
    character.rest();
    scene.update();
    assert.deepStrictEqual(character.node('hand').position, [0, Math.fround(1.02), 0]);
  });

  it('fades a lone clip in from rest, and out to rest, as three.js does', () => {
    const [character] = scene.instantiate(model);
    character.play('wave', { fade: 1, at: 0.5 });
    for (const t of [0.25, 0.5, 0.75, 1]) {
      scene.update(0.25);
      oracle.pose({ wave: { time: 0.5 + t, weight: t } });
      assertSkins(character, oracle, `in, ${t}`);
    }
    character.stop('wave', { fade: 1 });
    for (const t of [0.25, 0.75]) {
      scene.update(t === 0.25 ? 0.25 : 0.5);
      oracle.pose({ wave: { time: (1.5 + t) % 2, weight: 1 - t } });
      assertSkins(character, oracle, `out, ${t}`);
    }
    scene.update(0.5);
    assert.strictEqual(character.timeOf('wave'), -1);
    oracle.pose({});
    assertSkins(character, oracle, 'at rest');
    scene.update(0.5);
    assert.strictEqual(scene.stats.playing, 0);
  });

  it('blends a lone clip of a weight with the pose at rest, as three.js does', () => {
    const [character] = scene.instantiate(model);
    character.play('wave', { weight: 0.25, at: 1.5 });
    scene.update(0.25);
    oracle.pose({ wave: { time: 1.75, weight: 0.25 } });
    assertSkins(character, oracle, 'a quarter');
    character.setWeight('wave', 1);
    scene.update();
    oracle.pose({ wave: { time: 1.75, weight: 1 } });
    assertSkins(character, oracle, 'in full');
  });

  it('fades in from where the last clip was stopped', () => {
    const [character] = scene.instantiate(model);
    character.play('wave', { at: 1 });
    scene.update(0.25);
    character.stop();
    scene.update(5);
    character.play('walk', { fade: 1 });
    for (const t of [0, 0.25, 0.75, 1]) {
      scene.update(t === 0.75 ? 0.5 : Math.min(t, 0.25));
      oracle.pose({ wave: { time: 1.25, weight: 1 - t }, walk: { time: t % 1, weight: t } });
      assertSkins(character, oracle, `${t}`);
    }
    // Once it has played in full, it ends at rest.
    character.stop('walk', { fade: 0.5 });
    scene.update(1);
    oracle.pose({});
    assertSkins(character, oracle, 'at rest');
  });

  it('counts the seconds of a clip that moves nothing', () => {
    const clip = nq.buildClip({ framesPerSecond: 30, frameCount: 1, curves: [] });
    const [translation, rotation, scale] = [
      [1, 2, 3],
      [0, 0, 0, 1],
      [1, 1, 1],
    ];
    const still = Model.from({
      nodes: [{ name: 'still', parent: -1, translation, rotation, scale }],
      skins: [],
      animations: [{ name: 'nothing', framesPerSecond: 30, clip, targets: [] }],
    });
    const [character] = scene.instantiate(still);
    character.play('nothing', { fade: 1 });
    scene.update(0.5);
    assert.strictEqual(character.weightOf('nothing'), 0.5);
    assert.deepStrictEqual(character.node(0).position, translation);
    assert.throws(() => character.addLayer('all', { mask: 'still' }), /no clip moves a node/);
    character.addLayer('all').play('nothing');
    scene.update(0.5);
    assert.deepStrictEqual(character.node(0).position, translation);
    still.dispose();
  });

  it('fades in from a stopped blend, and not from a clip that was never shown', () => {
    const [character] = scene.instantiate(model);
    character.play('wave', { at: 1 });
    character.play('walk', { beside: true, at: 0.5, weight: 0.5 });
    scene.update();
    const hand = character.node('hand');
    const [, before] = hand.position;
    character.stop();
    character.play('point');
    character.stop();
    character.play('wave', { fade: 1 });
    scene.update();
    // The hand is where a third of walk had it at half of its time.
    assert(Math.abs(hand.position[1] - before) < 1e-6, `${hand.position[1]}, ${before}`);
    assert(Math.abs(before - (1.02 + (0.48 * 0.5) / 3)) < 1e-6, `${before}`);
  });

  it('is set to seconds and weights in each frame, also to weight 0', () => {
    const [character] = scene.instantiate(model);
    character.play('walk', { speed: 0 });
    character.play('wave', { speed: 0, beside: true });
    for (const [walk, wave, share] of [
      [0.25, 1.5, 0.25],
      [0.75, 0.5, 0],
      [0.5, 1, 1],
      [0.125, 1.75, 0.5],
    ]) {
      character.setTime('walk', walk);
      character.setTime('wave', wave);
      character.setWeight('walk', 1 - share);
      character.setWeight('wave', share);
      scene.update(0.5);
      assert.deepStrictEqual(
        ['walk', 'wave'].map((name) => [character.timeOf(name), character.weightOf(name)]),
        [
          [walk, 1 - share],
          [wave, share],
        ]
      );
      oracle.pose({
        walk: { time: walk, weight: 1 - share },
        wave: { time: wave, weight: share },
      });
      assertSkins(character, oracle, `weight ${share}`);
    }
    // At speed 0 the end is held, and is no event.
    character.onLoop = character.onEnd = () => assert.fail('called');
    character.setTime('wave', 2);
    scene.update(1);
    assert.strictEqual(character.timeOf('wave'), 2);
    // Faded to weight 0 it plays on; stopped, it ends.
    character.setWeight('wave', 0, { fade: 0.25 });
    scene.update(1);
    assert.strictEqual(character.timeOf('wave'), 2);
    assert.strictEqual(character.weightOf('wave'), 0);
    character.setWeight('wave', 1);
    character.stop('wave', { fade: 0.25 });
    scene.update(1);
    assert.strictEqual(character.timeOf('wave'), -1);
    character.onEnd = null;
    // One that was held at its end goes on from there.
    character.play('walk', { loop: false, at: 1 });
    scene.update(1);
    character.setTime('walk', 0.25);
    scene.update(0.25);
    assert.strictEqual(character.timeOf('walk'), 0.5);
    character.setTime('walk', 9);
    assert.strictEqual(character.timeOf('walk'), 1);
  });

  it('goes on where it stood still: by speeds, fades, stops, layers, and other clips', () => {
    const [character] = scene.instantiate(model);
    const assertOracle = (playing, label) => {
      oracle.pose(playing);
      assertSkins(character, oracle, label);
    };
    const still = () => {
      character.rest();
      character.play(0, { speed: 0, at: 0.25 });
      scene.update(0.5);
      scene.update(0.5);
      assert.strictEqual(character.timeOf(0), 0.25);
    };
    still();
    character.play(0, { speed: 0.5 });
    scene.update(0.25);
    assertOracle({ walk: { time: 0.375, weight: 1 } }, 'speed');
    still();
    character.play('wave', { speed: 0, at: 0.5, fade: 1 });
    scene.update(0.25);
    assertOracle(
      { walk: { time: 0.25, weight: 0.75 }, wave: { time: 0.5, weight: 0.25 } },
      'crossfade'
    );
    scene.update(0.75);
    assert.strictEqual(character.timeOf('walk'), -1);
    assertOracle({ wave: { time: 0.5, weight: 1 } }, 'the second clip of a blend, alone');
    still();
    character.play('wave', { speed: 0, at: 0.5, beside: true, weight: 0.5 });
    character.setWeight('walk', 0.5);
    scene.update(0.5);
    character.setWeight('walk', 1, { fade: 1 });
    character.setWeight('wave', 0, { fade: 1 });
    scene.update(0.5);
    assertOracle({ walk: { time: 0.25, weight: 0.75 }, wave: { time: 0.5, weight: 0.25 } }, 'fade');
    still();
    character.stop(0, { fade: 1 });
    scene.update(0.5);
    assert.strictEqual(character.weightOf(0), 0.5);
    scene.update(0.5);
    assert.strictEqual(character.timeOf(0), -1);
    still();
    const layer = character.addLayer('all', { weight: 0 });
    layer.fadeTo(1, 0.5);
    scene.update(0.125);
    assert.strictEqual(layer.weight, 0.25);
    layer.play('wave', { at: 0.125 });
    scene.update(0.125);
    assert.deepStrictEqual([layer.weight, layer.timeOf('wave')], [0.5, 0.25]);
    scene.update(0.25);
    assertOracle({ wave: { time: 0.5, weight: 1 } }, 'layer');
    layer.dispose();
    still();
    assertOracle({ walk: { time: 0.25, weight: 1 } }, 'after the layer');
    character.play('point');
    scene.update();
    assertOracle({ point: { time: 0, weight: 1 } }, 'another clip');
    character.play(0, { speed: 0, at: 0.5 });
    scene.update();
    assertOracle({ walk: { time: 0.5, weight: 1 } }, 'the clip from before');
  });

  it('blends two of three clips by an arc while the third has weight 0', () => {
    const [character] = scene.instantiate(model);
    const names = ['walk', 'wave', 'point'];
    names.forEach((name) => character.play(name, { speed: 0, beside: true }));
    const pose = (weights) => {
      names.forEach((name, i) => {
        character.setTime(name, 0.25);
        character.setWeight(name, weights[i]);
      });
      scene.update(0.5);
      const playing = {};
      names.forEach((name, i) => {
        playing[name] = { time: name === 'point' ? 0 : 0.25, weight: weights[i] };
      });
      oracle.pose(playing);
    };
    for (const weights of [
      [0.5, 0.5, 0],
      [0, 0.5, 0.5],
      [0.75, 0, 0.25],
      [0, 0, 1],
    ]) {
      pose(weights);
      assertSkins(character, oracle, `weights ${weights}`);
    }
    // All three are another kind of blend; one of them alone is as before.
    pose([0.25, 0.25, 0.5]);
    pose([1, 0, 0]);
    assertSkins(character, oracle, 'one of three');
  });

  it('says what is wrong with arguments', () => {
    const [character, plays] = scene.instantiate(model, 2);
    plays.play('walk');
    const cases = [
      [() => character.play('run'), /has no clip 'run': it has 'walk', 'wave', 'point'\.$/],
      [() => character.play('walk', 1), /^Character\.play: options is 1: leave it out/],
      [() => character.play('walk', { loop: 1 }), /^Character\.play: loop is 1: give true or/],
      [() => character.play('walk', { fade: -1 }), /fade is -1: give seconds from 0 up\.$/],
      [
        () => character.play('walk', { weight: 0 }),
        /weight is 0: give a weight over 0, up to 1\.$/,
      ],
      [() => character.play('walk', { speed: NaN }), /speed is NaN: give a finite factor\.$/],
      [() => character.play('walk', { at: '1' }), /at is '1', not a number/],
      [() => character.crossfade('walk'), /^Character\.crossfade: seconds is undefined/],
      [() => character.setWeight('walk', 1), /clip 'walk' does not play: play it first\.$/],
      [() => character.setTime('walk', 1), /^Character\.setTime: clip 'walk' does not play: play/],
      [() => plays.setTime('walk', -1), /^Character\.setTime: seconds is -1: give seconds from/],
      [
        () => plays.setTime('walk'),
        { name: 'TypeError', message: /seconds is undefined: give sec/ },
      ],
      [() => plays.setTime(0, NaN), /^Character\.setTime: seconds is NaN: give seconds from/],
      [() => plays.setTime(0, '1'), { name: 'TypeError', message: /seconds is '1': give sec/ }],
      [() => plays.setTime(1, 0), /^Character\.setTime: clip 'wave' does not play: play/],
      [() => plays.setTime(-1, 0), /has no clip -1: it has 'walk'/],
      [() => plays.setWeight(0, -1), /weight is -1: give a weight from 0 to 1\.$/],
      [() => plays.setWeight(0, '1'), { name: 'TypeError', message: /weight is '1': give a we/ }],
      [() => plays.setWeight(0, 1, 2), /^Character\.setWeight: options is 2: leave it out/],
      [() => plays.setWeight('walk', 1.5), /weight is 1\.5: give a weight from 0 to 1\.$/],
      [() => character.node('tail'), /has no node 'tail'/],
      [() => character.node(4), /^Character\.node: index is 4, of 4/],
      [() => character.skinMatrices(1), /^Character\.skinMatrices: skin is 1, of 1/],
      [() => character.node('arm').dispose(), /node 'arm' is part of a character: move or/],
      [() => scene.root.add(character.node('arm')), /node 'arm' is part of a character/],
      [() => character.node('arm').add(character), /child is above this node/],
    ];
    for (const [use, error] of cases) {
      assert.throws(use, error instanceof RegExp ? { message: error } : error);
    }
    character.dispose();
    assert.throws(() => character.play('walk'), /^Error: Character\.play: the character is disp/);
    plays.dispose();
    // Those that have its memory now are not changed by it.
    scene.instantiate(model, 2).forEach((next) => next.play(0));
    assert.throws(() => plays.setTime(0, 0), /^Error: Character\.setTime: the character is disp/);
    assert.throws(() => plays.setWeight(0, 1), /^Error: Character\.setWeight: the character is/);
  });
});

describe('sockets', () => {
  it('carry nodes along in the same update, until these are let go', async () => {
    const { model, oracle } = await load(buildFigure());
    const scene = new Scene({ engine });
    const [character] = scene.instantiate(model);
    character.setPosition(10, 0, 0);
    const sword = character.attach(scene.node({ position: [0, 0, 2] }), 'hand');
    const tip = scene.node({ parent: sword, position: [0, 0, 1] });
    character.play('walk');
    scene.update(0.25);
    oracle.pose({ walk: { time: 0.25, weight: 1 } });
    const wanted = oracle.bones[2].localToWorld(new three.Vector3(0, 0, 3)).toArray();
    wanted[0] += 10;
    tip.readWorldPosition([0, 0, 0]).forEach((value, i) => {
      assert(Math.abs(value - wanted[i]) < 1e-4, `${value}, ${wanted[i]}`);
    });
    scene.root.add(sword);
    scene.update(0.25);
    assert.deepStrictEqual(tip.readWorldPosition([0, 0, 0]), [0, 0, 3]);
    character.attach(sword, 'hand');
    character.dispose();
    assert(sword.isDisposed && tip.isDisposed);
    scene.dispose();
  });
});

describe('cameras', () => {
  it('see what a frustum of three.js sees, nearest first', async () => {
    const model = await Model.load(buildFigure());
    const scene = new Scene({ engine });
    const characters = scene.instantiate(model, 400);
    characters.forEach((character, i) => {
      character.setPosition(((i * 37) % 100) - 50, ((i * 11) % 20) - 10, -((i * 53) % 97));
      character.layers = i % 4 === 0 ? 2 : 1;
    });
    const perspective = new three.PerspectiveCamera(50, 1.5, 1, 60);
    perspective.position.set(3, 4, 5);
    perspective.lookAt(1, 2, -20);
    const orthographic = new three.OrthographicCamera(-20, 10, 8, -6, 2, 50);
    orthographic.position.set(0, 3, 4);
    orthographic.lookAt(0, 0, -9);
    scene.update();
    for (const [other, layers] of [
      [perspective, 0xffffffff],
      [perspective, 2],
      [orthographic, 1],
    ]) {
      other.updateMatrixWorld();
      const camera = new Camera();
      camera.setFromThree(other);
      const product = new three.Matrix4().multiplyMatrices(
        other.projectionMatrix,
        other.matrixWorldInverse
      );
      const frustum = new three.Frustum().setFromProjectionMatrix(product);
      const wanted = characters.filter((character) => {
        const sphere = new three.Sphere(
          new three.Vector3(...model.bounds.center),
          model.bounds.radius
        );
        sphere.applyMatrix4(new three.Matrix4().fromArray(character.worldMatrix));
        // None is as near to a plane as floats could tell.
        frustum.planes.forEach((plane) => {
          assert(Math.abs(plane.distanceToPoint(sphere.center) + sphere.radius) > 1e-4);
        });
        return (character.layers & layers) !== 0 && frustum.intersectsSphere(sphere);
      });
      const visible = camera.cull(scene, { layers });
      assert.strictEqual(visible.count, wanted.length);
      assert(wanted.length > 3 && wanted.length < 300);
      const seen = Array.from(visible);
      assert.deepStrictEqual(new Set(seen), new Set(wanted));
      for (let i = 1; i < seen.length; ++i) {
        assert(visible.distance(i) >= visible.distance(i - 1));
        assert.strictEqual(visible.at(i), seen[i]);
      }
      // A loop within a loop.
      let pairs = 0;
      for (const a of visible) {
        for (const b of visible) {
          pairs += a === b ? 1 : 0;
        }
      }
      assert.strictEqual(pairs, wanted.length);
    }
    scene.dispose();
  });

  it('are culled for by updates, which may skin what they see alone', async () => {
    const model = await Model.load(buildFigure());
    const scene = new Scene({ engine, skin: 'visible' });
    const camera = scene.addCamera(new Camera({ fovRadians: 1, aspect: 1, near: 0.1, far: 100 }));
    const [seen, hidden] = scene.instantiate(model, 2);
    seen.setPosition(0, 0, -10);
    hidden.setPosition(0, 0, 50);
    scene.update();
    assert.deepStrictEqual(Array.from(camera.visible), [seen]);
    assert.strictEqual(scene.stats.skinned, 1);
    assert.strictEqual(seen.skinMatrices()[14], -10);
    assert.strictEqual(hidden.skinMatrices()[15], 0);
    camera.setPosition(0, 0, 60);
    camera.lookAt(0, 0, 0);
    scene.update();
    assert.deepStrictEqual(Array.from(camera.visible), [hidden, seen]);
    scene.removeCamera(camera);
    scene.update();
    assert.strictEqual(scene.stats.skinned, 0);
    scene.dispose();
  });
});

describe('memory of characters', () => {
  it('is counted: blocks of entities and culling objects, animators and skins', async () => {
    const model = await Model.load(buildFigure());
    const scene = new Scene({ engine });
    const { layout } = nq;
    const blocks = 1024 * layout.entity3D.size;
    assert.strictEqual(scene.sharedBytes, blocks);
    // An animator of two clips, which move three nodes; a skin of three joints.
    const own = 2 * 12 + 2 * 3 * 4 + 4 + 3 * 72;
    const characters = scene.instantiate(model, 5);
    const bytes = blocks + 1024 * layout.cullingObject.size + 5 * own;
    assert.strictEqual(scene.sharedBytes, bytes);
    characters[0].dispose();
    scene.instantiate(model, 1);
    assert.strictEqual(scene.sharedBytes, bytes, 'of pools');
    scene.dispose();
  });

  it('is reused: generations of them take the room of one', async () => {
    const model = await Model.load(buildFigure());
    const scene = new Scene({ engine });
    const handles = new Set();
    const matrices = new Set();
    for (let round = 0; round < 20; ++round) {
      const characters = scene.instantiate(model, 300);
      characters.forEach((character, i) => {
        character.setPosition(i, round, 0);
        character.play('walk');
        handles.add(character.node('hand').handle);
        matrices.add(character.skinMatrices());
      });
      scene.update(0.1);
      characters.forEach((character, i) => {
        // The root joint is at x = 0.5, and its inverse bind matrix takes that back.
        assert.strictEqual(character.skinMatrices()[12], i);
        assert.strictEqual(character.skinMatrices()[13], round);
        character.dispose();
      });
      assert.strictEqual(scene.nodeCount, 1500);
    }
    assert.strictEqual(handles.size, 300);
    assert.strictEqual(matrices.size, 300);
    model.dispose();
    assert.strictEqual(scene.nodeCount, 0);
    assert.throws(() => scene.instantiate(model), /is disposed of: load it again\.$/);
    const again = scene.instantiate(await Model.load(buildFigure()), 300);
    again.forEach(
      (one) => handles.add(one.node('hand').handle) && matrices.add(one.skinMatrices())
    );
    scene.update();
    assert.strictEqual(handles.size, 300);
    assert.strictEqual(matrices.size, 300);
    scene.dispose();
  });

  it('are listed without other nodes where only characters are asked for', async () => {
    const model = await Model.load(buildFigure());
    const scene = new Scene({ engine });
    const camera = scene.addCamera(new Camera({ far: 100 }));
    const [far, near] = scene.instantiate(model, 2);
    far.setPosition(0, 0, -30);
    near.setPosition(0, 0, -10);
    const box = scene.node({ position: [0, 0, -20] });
    box.setSphere(0, 0, 0, 1);
    scene.update();
    assert.deepStrictEqual(Array.from(camera.visible), [near, box, far]);
    assert.deepStrictEqual(Array.from(camera.visible.characters()), [near, far]);
    // The iterator is used again, for all.
    assert.deepStrictEqual(Array.from(camera.visible), [near, box, far]);
    scene.dispose();
  });

  it('goes with the model: its characters are disposed of in all scenes', async () => {
    const model = await Model.load(buildFigure());
    const scenes = [new Scene({ engine }), new Scene({ engine })];
    const characters = scenes.map((scene) => scene.instantiate(model)[0]);
    characters.forEach((character) => character.play('walk'));
    scenes.forEach((scene) => scene.update(0.1));
    model.dispose();
    assert(characters.every(({ isDisposed }) => isDisposed));
    scenes.forEach((scene) => scene.update(0.1));
    assert.deepStrictEqual(
      scenes.map(({ stats }) => stats.playing + stats.skinned),
      [0, 0]
    );
    scenes.forEach((scene) => scene.dispose());
  });

  it('is not allocated by frames', async function () {
    if (slow) {
      this.skip();
    }
    const model = await Model.load(buildFigure());
    const scene = new Scene({ engine, isTimed: false });
    const characters = scene.instantiate(model, 40);
    let loops = 0;
    characters.forEach((character, i) => {
      character.play('walk', { at: i / 40 });
      character.play('wave', { beside: true, weight: 0.5 });
      character.onLoop = () => ++loops;
    });
    const camera = scene.addCamera(new Camera({ far: 500 }));
    camera.setPosition(20, 0, 50);
    camera.lookAt(20, 0, 0);
    let seen = 0;
    const frame = (at) => {
      for (let i = 0; i < characters.length; ++i) {
        // Whole numbers, since a call that the compiler does not inline allocates others for its arguments.
        characters[i].setPosition(i, 1, at);
      }
      scene.update(1 / 64);
      for (const character of camera.visible) {
        seen += character.layers;
      }
    };
    assert.strictEqual(
      bytesPerRun((i) => frame(i % 7)),
      0
    );
    // The measurement detects an object a frame.
    let kept = null;
    assert(bytesPerRun((i) => (kept = { i })) >= 16, `${kept.i}`);
    assert(loops > 1000 && seen > 100000, `${loops} loops, ${seen} seen`);
    scene.dispose();
  });

  it('is right in checked mode: neither errors nor hints', async () => {
    const hints = [];
    const checked = nq.checked(nq.getEngine(), { onHint: (hint) => hints.push(hint) });
    const model = await Model.load(buildFigure());
    const scene = new Scene({ engine: checked });
    scene.addCamera(new Camera());
    let characters = [];
    for (let frame = 0; frame < 12; ++frame) {
      characters.filter((_, i) => i % 2 === 0).forEach((character) => character.dispose());
      characters = characters.filter(({ isDisposed }) => !isDisposed);
      characters.forEach((character) => character.crossfade(frame % 3, 0.1));
      const added = scene.instantiate(model, 5);
      added.forEach((character, i) => {
        character.setPosition(i, 0, -5);
        character.attach(scene.node(), 'hand');
        character.play('walk');
      });
      characters.push(...added);
      scene.update(0.05);
    }
    model.dispose();
    scene.update(0.05);
    scene.dispose();
    assert.deepStrictEqual(hints, []);
  });
});
