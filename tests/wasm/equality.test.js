'use strict';
// Random scenes on the native module and in WebAssembly side by side: results of calls and the bytes of all blocks are
// equal after each frame. NaNs compare as a class.
const assert = require('assert');
const nq = require('../../lib');
const { loadSync } = require('../../lib/wasm');

const kScenes = 24;
const kFrames = 12;
const kNodes = 60;
const kTargets = 8;
const kCommandBytes = 4096;

/** A generator of 32-bit numbers (mulberry32), so that both sides draw the same. */
class Random {
  constructor(seed) {
    this._state = seed;
  }

  word() {
    this._state = (this._state + 0x6d2b79f5) >>> 0;
    let t = this._state;
    t = Math.imul(t ^ (t >>> 15), t | 1);
    t ^= t + Math.imul(t ^ (t >>> 7), t | 61);
    return (t ^ (t >>> 14)) >>> 0;
  }

  below(count) {
    return this.word() % count;
  }

  number(least, most) {
    return least + (this.word() / 4294967296) * (most - least);
  }

  numbers(count, least, most) {
    return Array.from({ length: count }, () => this.number(least, most));
  }
}

function makeClip(random) {
  const { sampleTypes } = nq;
  const types = Object.keys(sampleTypes).filter((type) => /Position|Scale|Quaternion/.test(type));
  const curves = [];
  for (let target = 0; target < kTargets; ++target) {
    types.forEach((type) => {
      // A rotation has all four.
      if (/Quaternion/.test(type) || random.below(4) !== 0) {
        const keys = [0, 7, 20].map((frame) => {
          const [value, inTangent, outTangent] = random.numbers(3, -1, 1);
          return { frame, value, inTangent, outTangent };
        });
        curves.push({ target, type: sampleTypes[type], keys });
      }
    });
  }
  curves.push({
    target: 0,
    type: sampleTypes.PositionX,
    keys: [{ frame: 0, value: 1, inTangent: 0, outTangent: 0 }],
  });
  const seen = new Set();
  const unique = curves.filter(({ target, type }) => {
    const name = `${target} ${type}`;
    return !seen.has(name) && seen.add(name);
  });
  return nq.buildClip({ name: 'random', framesPerSecond: 30, frameCount: 20, curves: unique });
}

/** A scene that draws all its decisions from one generator. */
class Side {
  constructor(engine, seed) {
    const { componentKinds, dataModelKinds } = nq.layout;
    this.engine = engine;
    this.random = new Random(seed);
    const { random } = this;
    this.nodes = new nq.Entity3DView(engine.createEntity(true, kNodes));
    this.flat = new nq.Entity2DView(engine.createEntity(false, 6));
    this.commands = new nq.EntityCommandWriter(engine);
    this.dirty = new nq.DirtyListWriter(engine);
    for (let i = 0; i < kNodes; ++i) {
      this.place(i);
      if (i < 4) {
        this.commands.addRoot(this.nodes.handle(i));
      } else {
        this.commands.addChild(this.nodes.handle(random.below(i)), this.nodes.handle(i));
      }
    }
    this.clips = [0, 1, 2].map(() => engine.createDataModel(dataModelKinds.clip, makeClip(random)));
    const targets = Array.from({ length: kTargets }, (_, k) => this.nodes.handle(20 + k));
    this.animator = new nq.AnimatorView(
      engine.createComponent(componentKinds.animator, 2, 2 * kTargets),
      2
    );
    this.animator.setTargets([...targets, ...targets]);
    const moved = Array.from({ length: kTargets }, (_, k) => this.nodes.handle(40 + k));
    this.binding = nq.TargetListsView.from(
      this.clips.map((clip) => ({ clip, entities: moved }))
    ).createBinding(engine);
    this.controller = new nq.ControllerView(engine.createAnimatorControllerModel(2));
    this.controller.setBindingHandle(this.binding.id);
    this.states = [0, 1].map(
      () => new nq.ControllerStateView(engine.createAnimatorControllerStateModel(2))
    );
    const bones = new Float32Array(random.numbers(16 * 10, -1, 1));
    this.bones = engine.createDataModel(dataModelKinds.bones, bones);
    this.skin = new nq.SkinningView(engine.createComponent(componentKinds.skinning, 10));
    this.skin.setBonesModel(this.bones.id);
    this.objects = new nq.CullingObjectsView(
      engine.createComponent(componentKinds.culling, kNodes)
    );
    for (let i = 0; i < kNodes; ++i) {
      this.objects.setEnabled(i, true);
      this.objects.setMask(i, 1 + random.below(3));
      this.objects.setSphere(i, ...random.numbers(3, -1, 1), random.number(0, 2));
      this.objects.setEntity(i, this.nodes.handle(i));
    }
    for (let i = 0; i < 10; ++i) {
      this.skin.setBone(i, random.below(10), this.nodes.handle(random.below(kNodes)));
    }
    this.memory = engine.createMatrixFlowCommandBuffer(512);
    this.flow = engine.createMatrixFlowCommandBuffer(kCommandBytes);
    nq.blockFloats(this.memory).set(random.numbers(128, -4, 4));
  }

  place(i) {
    const { random, nodes } = this;
    nodes.setPosition(i, ...random.numbers(3, -20, 20));
    nodes.setScale(i, ...random.numbers(3, -2, 2));
    if (random.below(2) === 0) {
      nodes.setEuler(i, ...random.numbers(3, -400, 400));
    } else {
      nodes.setQuaternion(i, ...random.numbers(4, -1, 1));
    }
    this.dirty.append(nodes.handle(i));
  }

  /** A frame; the results of its calls. */
  frame() {
    const { engine, random, nodes } = this;
    const results = [];
    for (let k = 0; k < 20; ++k) {
      this.place(random.below(kNodes));
    }
    this.flat.setPosition(random.below(6), ...random.numbers(2, -5, 5));
    for (let k = 0; k < 2; ++k) {
      const child = 4 + random.below(kNodes - 4);
      this.commands.addChild(nodes.handle(random.below(child)), nodes.handle(child));
      this.commands[random.below(4) === 0 ? 'deactivate' : 'activate'](
        nodes.handle(random.below(kNodes))
      );
    }
    const weight = random.number(-0.2, 1.2);
    this.animator.setClip(0, this.clips[random.below(3)].id, random.number(-5, 50), weight);
    this.animator.setClip(1, this.clips[random.below(3)].id, random.number(-5, 50), 1 - weight);
    this.states.forEach((state, i) => {
      state.setWeight(random.number(0, 1));
      state.setNextState(
        i === 0 && random.below(2) === 0 ? this.states[1].id : nq.layout.handles.none
      );
      [0, 1].forEach((clip) => {
        state.setClip(
          clip,
          this.clips[random.below(3)].id,
          random.number(0, 30),
          random.number(0, 1)
        );
      });
      this.controller.setLayer(i, random.below(3), random.number(0, 1), this.states[i].id);
    });
    engine.updateAnimators(nq.HandleList.from([this.animator.id]).buffer);
    engine.updateAnimatorControllers(nq.HandleList.from([this.controller.id]).buffer);
    engine.refreshWorldTransform();
    engine.updateSkinningMatrix(this.skin.id);
    const eye = random.numbers(3, -30, 30);
    results.push(engine.frustumCullingV2(3, ...eye, 0, 0, 0, 0, 1, 0, 1, 1.5, 0.1, 60));
    const found = engine.orthoCulling(1, ...eye, 0, 0, 0, 0, 1, 0, -20, 20, -20, 20, 0.1, 60);
    results.push(
      found === null
        ? null
        : [found.hash, ...new Uint32Array(found.objects), ...new Uint32Array(found.distances)]
    );
    results.push(this.runFlow());
    return results;
  }

  /** Random commands of three operands in one block, which overlap. */
  runFlow() {
    const { random } = this;
    const types = [1001, 1002, 1003, 2001, 3003, 4002, 5001, 5003, 6001, 6003];
    const words = [];
    for (let k = 0; k < 30; ++k) {
      const at = () => 4 * random.below(100);
      const id = this.memory.memoryID;
      words.push(types[random.below(types.length)], id, at(), id, at(), id, at());
    }
    const stream = nq.blockWords(this.flow);
    stream[0] = 4 * words.length;
    stream.set(words, 1);
    return this.flow.execute();
  }

  /** All shared memory, by name. */
  blocks() {
    const { engine } = this;
    const views = {
      nodes: this.nodes,
      flat: this.flat,
      animator: this.animator,
      controller: this.controller,
    };
    Object.assign(views, { state: this.states[0], skin: this.skin, objects: this.objects });
    const found = Object.keys(views).map((name) => [name, nq.blockWords(views[name].object)]);
    ['dirtyEntities', 'entityCommands', 'cullingResult'].forEach((name) => {
      found.push([name, nq.blockWords(engine[name])]);
    });
    return [...found, ['memory', nq.blockWords(this.memory)]];
  }
}

const isNaNWord = (word) => (word & 0x7fffffff) > 0x7f800000;

function assertSame(ours, theirs, label) {
  assert.strictEqual(ours.length, theirs.length, label);
  for (let i = 0; i < ours.length; ++i) {
    if (ours[i] !== theirs[i] && !(isNaNWord(ours[i]) && isNaNWord(theirs[i]))) {
      assert.fail(
        `${label}, word ${i}: ${ours[i].toString(16)} natively, ${theirs[i].toString(16)}`
      );
    }
  }
}

describe('random scenes', () => {
  it('have the same bytes natively and in WebAssembly', () => {
    const native = nq.loadMatrixFlow(process.env.NQ_NATIVE_MATRIXFLOW);
    let moving = 0;
    for (let seed = 1; seed <= kScenes; ++seed) {
      const ours = new Side(native.getEngine(), seed);
      const theirs = new Side(loadSync({ memory: 8 * 1024 * 1024 }), seed);
      for (let frame = 0; frame < kFrames; ++frame) {
        const before = Array.from(nq.blockWords(ours.nodes.object));
        assert.deepStrictEqual(theirs.frame(), ours.frame(), `seed ${seed}, frame ${frame}`);
        const [mine, other] = [ours.blocks(), theirs.blocks()];
        mine.forEach(([name, words], i) => {
          assertSame(words, other[i][1], `seed ${seed}, frame ${frame}, ${name}`);
        });
        moving += nq.blockWords(ours.nodes.object).some((word, i) => word !== before[i]) ? 1 : 0;
      }
    }
    assert.strictEqual(moving, kScenes * kFrames);
  });

  it('returns the same for too few and for other arguments', () => {
    const native = nq.loadMatrixFlow(process.env.NQ_NATIVE_MATRIXFLOW);
    const results = [native.getEngine(), loadSync()].map((engine) => {
      const entity = new nq.Entity3DView(engine.createEntity(true, 2));
      const bytes = nq.buildClip({ framesPerSecond: 30, frameCount: 1, curves: [] });
      const clip = engine.createDataModel(1, bytes);
      const list = Uint32Array.of(clip.id, 1, entity.id).buffer;
      const binding = engine.createAnimationClipBinding(list, 0, 1, 2, 1);
      const controller = engine.createAnimatorControllerModel(1);
      [0, 1].forEach((i) => entity.reset(i));
      entity.setPosition(0, 0, 0, -3);
      new nq.EntityCommandWriter(engine).addRoot(entity.id);
      new nq.DirtyListWriter(engine).append(entity.id);
      engine.refreshWorldTransform();
      const objects = new nq.CullingObjectsView(engine.createComponent(1, 1));
      objects.setEnabled(0, true);
      objects.setMask(0, 1);
      objects.setSphere(0, 0, 0, 0, 1);
      objects.setEntity(0, entity.id);
      const three = { valueOf: () => 3 };
      const camera = [0, 0, 0, 0, 0, -1, 0, 1, 0];
      const perspective = [...camera, 1, 1, 0.5, 100];
      const ortho = [...camera, -2, 2, -2, 2, 0.5, 100];
      const texts = (numbers) => numbers.map((number) => `${number}`);
      const large = (...words) => {
        const all = new Uint32Array(50000);
        all.set(words);
        return all.buffer;
      };
      const seen = (found) =>
        found && [
          found.hash,
          ...new Uint32Array(found.objects),
          ...new Float32Array(found.distances),
        ];
      const word = (value) => Uint32Array.of(value).buffer;
      return [
        engine.createComponent(),
        engine.createComponent('9'),
        engine.setEntityName(),
        engine.setEntityName(entity.id),
        engine.setEntityName(entity.id, ''),
        engine.setEntityName(0, 'none'),
        engine.setEntityName(entity.id, { toString: () => 'name' }),
        engine.updateAnimators(),
        engine.updateAnimators(word(0)),
        engine.updateAnimators(large(1, 77)),
        engine.frustumCulling(),
        engine.orthoCulling(),
        engine.orthoCullingV2(1, ...ortho.slice(1)),
        seen(engine.frustumCulling(1, ...perspective)),
        seen(engine.frustumCulling('1', ...texts(perspective))),
        seen(
          engine.frustumCulling(three, ...perspective.map((number) => ({ valueOf: () => number })))
        ),
        seen(engine.frustumCulling(1, ...perspective.slice(0, 9), undefined, null, true, '')),
        seen(engine.orthoCulling(1, ...ortho)),
        seen(engine.orthoCulling(true, ...texts(ortho))),
        seen(engine.frustumCulling(1, ...perspective, word(objects.id))),
        seen(engine.frustumCulling(1, ...perspective, Uint32Array.of(0, objects.id).buffer)),
        seen(engine.frustumCulling(1, ...perspective, Uint32Array.of(2, objects.id).buffer)),
        seen(engine.frustumCulling(1, ...perspective, Uint32Array.of(1, objects.id).buffer)),
        seen(engine.frustumCulling(1, ...perspective, large(1, objects.id))),
        binding.writeDefaultValues(),
        binding.updateBinding(),
        binding.updateBinding(list, 0, 1, 2, 0, 0),
        binding.updateBinding(7, 0, 1, 2, 0, 0, 1),
        binding.updateBinding(list, 0, 1, 3, 0, 0, 1),
        binding.updateBinding(list, '0', '1', '2', 0, 0, 1),
        controller.update(),
        controller.update(0.1, 7),
        controller.update(0.1, word(0)),
        controller.setMaskAtIndex(),
        controller.setMaskAtIndex(0, 7, 0, 1),
        controller.setMaskAtIndex(0, word(0), 0, 1),
        controller.setMaskAtIndex('0', Uint32Array.of(entity.id, 0).buffer, '0', '1'),
      ];
    });
    assert.deepStrictEqual(results[1], results[0]);
    // Not only nothing.
    assert(results[0].filter(Array.isArray).some((found) => found.length === 3));
    assert(results[0].includes(true) && results[0].includes(false));
  });

  it('would show a difference of one bit', () => {
    assert.throws(() => assertSame([1, 2], [1, 3], 'words'), /words, word 1/);
    assertSame([0x7fc00000], [0xffc00001], 'NaNs');
    assert.throws(() => assertSame([0x7f800000], [0x7fc00000], 'infinity'), /infinity/);
  });
});
