'use strict';
// Random programs that print digests of all shared memory after each step: play.js SEED PROGRAMS STEPS CALLS LISTS [ONLY].
// CALLS is `single` or `batch`: how players are updated. LISTS is `short` or `long`: whether lists of changed nodes are
// filled up by duplicates, so that long lists are processed in parallel. Neither may change a byte. Each step draws from a
// generator of its own: ONLY lists the numbers of those that run.
//
// A line a step: seed, step, digest, and digest of the memory of command buffers, or - where the module has none. NaNs are
// digested as a class. The dirty list is left out: followers of one bone are listed in an order of their own.
const crypto = require('crypto');
const fs = require('fs');
const nq = require('../../lib');
const { createRandom } = require('../../bench/script/lib/random');

const kNodes = 60;
const kTargets = 4;
const kPlayers = 3;
/** Entries from which a list of changed nodes is long. */
const kLongList = 40;
const kNaN = 0x7fc00000;

const build = require(process.env.NQ_MATRIXFLOW_MODULE || process.env.NQ_MODULE);

function stepSeed(seed, step) {
  return (Math.imul(seed, 0x9e3779b1) ^ Math.imul(step + 1, 0x85ebca6b)) >>> 0;
}

class Draw {
  constructor(seed) {
    this.random = createRandom(seed);
  }

  below(count) {
    return Math.floor(this.random() * count);
  }

  number(least, most) {
    return least + this.random() * (most - least);
  }

  numbers(count, least, most) {
    return Array.from({ length: count }, () => this.number(least, most));
  }
}

/** A clip of rotations by quaternions, and of most channels of position and scale. */
function makeClip(draw, rest) {
  const { sampleTypes } = nq;
  const curves = [];
  for (let target = 0; target < kTargets; ++target) {
    Object.keys(sampleTypes)
      .filter((type) => /Quaternion/.test(type) || (/Position|Scale/.test(type) && draw.below(4)))
      .forEach((type) => {
        const keys = [0, 7, 20].map((frame) => {
          const [value, inTangent] = draw.numbers(2, -rest, rest);
          const outTangent = draw.below(9) === 0 ? Infinity : draw.number(-1, 1);
          return { frame, value, inTangent, outTangent };
        });
        curves.push({ target, type: sampleTypes[type], keys });
      });
  }
  return nq.buildClip({ name: 'random', framesPerSecond: 30, frameCount: 20, curves });
}

class Program {
  constructor(seed, isBatch, isLong) {
    const { componentKinds, dataModelKinds } = nq.layout;
    const engine = build.getEngine();
    const draw = new Draw(seed);
    Object.assign(this, { engine, draw, isBatch, isLong });
    this.nodes = new nq.Entity3DView(engine.createEntity(true, kNodes));
    this.flat = new nq.Entity2DView(engine.createEntity(false, 6));
    this.commands = new nq.EntityCommandWriter(engine);
    this.changed = [];
    for (let i = 0; i < kNodes; ++i) {
      this.place(i);
      if (i < 4) {
        this.commands.addRoot(this.nodes.handle(i));
      } else {
        this.commands.addChild(this.nodes.handle(draw.below(i)), this.nodes.handle(i));
      }
    }
    for (let i = 0; i < 6; ++i) {
      this.flat.setScale(i, ...draw.numbers(2, -2, 2));
      this.changed.push(this.flat.handle(i));
    }
    this.commands.addRoot(this.flat.handle(0));
    this.commands.addChild(this.flat.handle(0), this.flat.handle(1));
    // A binding keeps the top of its tree: one that is made before the links are would be under no root, and in a batch
    // its controller would compute nodes that other players write.
    engine.refreshWorldTransform();
    this.clips = [1, 2, 1].map((rest) =>
      engine.createDataModel(dataModelKinds.clip, makeClip(draw, rest))
    );
    // Players of nodes of their own, so that they may be updated at once.
    const range = (from) => Array.from({ length: kTargets }, (_, k) => this.nodes.handle(from + k));
    this.animators = [];
    this.controllers = [];
    this.states = [];
    this.skins = [];
    this.bindings = [];
    this.bones = engine.createDataModel(
      dataModelKinds.bones,
      new Float32Array(draw.numbers(16 * 10, -1, 1))
    );
    for (let p = 0; p < kPlayers; ++p) {
      const animator = engine.createComponent(componentKinds.animator, 2, 2 * kTargets);
      const view = new nq.AnimatorView(animator, 2);
      view.setTargets([...range(20 + kTargets * p), ...range(20 + kTargets * p)]);
      this.animators.push(view);
      const entities = range(40 + kTargets * p);
      const binding = nq.TargetListsView.from(
        this.clips.map((clip) => ({ clip, entities }))
      ).createBinding(engine);
      this.bindings.push(binding);
      const controller = new nq.ControllerView(engine.createAnimatorControllerModel(2));
      controller.setBindingHandle(binding.id);
      this.controllers.push(controller);
      this.states.push(
        [0, 1].map(() => new nq.ControllerStateView(engine.createAnimatorControllerStateModel(2)))
      );
      const skin = new nq.SkinningView(engine.createComponent(componentKinds.skinning, 10));
      skin.setBonesModel(this.bones.id);
      for (let i = 0; i < 10; ++i) {
        skin.setBone(i, draw.below(10), this.nodes.handle(draw.below(kNodes)));
      }
      this.skins.push(skin);
    }
    this.setPlayers();
    this.objects = new nq.CullingObjectsView(
      engine.createComponent(componentKinds.culling, kNodes)
    );
    for (let i = 0; i < kNodes; ++i) {
      this.objects.setEnabled(i, true);
      this.objects.setMask(i, 1 + draw.below(3));
      this.objects.setSphere(i, ...draw.numbers(3, -1, 1), draw.number(0, 2));
      this.objects.setEntity(i, this.nodes.handle(i));
    }
    this.memory = null;
    if (engine.createMatrixFlowCommandBuffer !== undefined) {
      this.memory = engine.createMatrixFlowCommandBuffer(512);
      this.flow = engine.createMatrixFlowCommandBuffer(4096);
      nq.blockFloats(this.memory).set(draw.numbers(128, -4, 4));
    }
  }

  place(i) {
    const { draw, nodes } = this;
    nodes.setPosition(i, ...draw.numbers(3, -20, 20));
    nodes.setScale(i, ...draw.numbers(3, -2, 2));
    if (draw.below(2) === 0) {
      nodes.setEuler(i, ...draw.numbers(3, -400, 400));
    } else {
      nodes.setQuaternion(i, ...draw.numbers(4, -1, 1));
    }
    this.changed.push(nodes.handle(i));
  }

  clip() {
    return this.clips[this.draw.below(this.clips.length)].id;
  }

  setPlayers() {
    const { draw } = this;
    this.animators.forEach((animator) => {
      const weight = draw.number(-0.2, 1.2);
      animator.setClip(0, this.clip(), draw.number(-5, 50), weight);
      animator.setClip(1, this.clip(), draw.below(30), 1 - weight);
    });
    this.controllers.forEach((controller, p) => {
      this.states[p].forEach((state, i) => {
        state.setWeight(draw.number(0, 1));
        const hasNext = i === 0 && draw.below(2) === 0;
        state.setNextState(hasNext ? this.states[p][1].id : nq.layout.handles.none);
        [0, 1].forEach((clip) => {
          state.setClip(clip, this.clip(), draw.number(0, 30), draw.number(0, 1));
        });
        controller.setLayer(i, draw.below(3), draw.number(0, 1), this.states[p][i].id);
      });
    });
  }

  /** Updates players of a kind by one call, or by one each. */
  update(method, views) {
    const lists = this.isBatch ? [views] : views.map((view) => [view]);
    lists.forEach((list) => {
      this.engine[method](nq.HandleList.from(list.map(({ id }) => id)).buffer);
    });
  }

  link() {
    const { draw, nodes, commands } = this;
    const child = 4 + draw.below(kNodes - 4);
    const any = () => nodes.handle(draw.below(kNodes));
    [
      // Parents come first, so there are no cycles.
      () => commands.addChild(nodes.handle(draw.below(child)), nodes.handle(child)),
      () => commands.insertChild(nodes.handle(draw.below(child)), nodes.handle(child), 0),
      () => commands.activate(any()),
      () => commands.deactivate(any()),
      // Not above the nodes of players, of which only one may write into a tree under no root.
      () => commands.removeFromParent(nodes.handle(52 + draw.below(8))),
      // Followers of bones are those that no player moves.
      () => commands.bindToBone(nodes.handle(56 + draw.below(4)), nodes.handle(draw.below(52))),
      () => commands.unbindFromBone(nodes.handle(56 + draw.below(4))),
    ][draw.below(7)]();
  }

  step(draw) {
    this.draw = draw;
    const { engine } = this;
    const results = [];
    for (let count = draw.below(8); count > 0; --count) {
      this.place(draw.below(kNodes));
    }
    if (draw.below(3) === 0) {
      this.link();
    }
    if (draw.below(2) === 0) {
      this.flat.setPosition(draw.below(6), ...draw.numbers(2, -5, 5));
      this.changed.push(this.flat.handle(0));
    }
    if (draw.below(2) === 0) {
      this.setPlayers();
    }
    if (draw.below(2) === 0) {
      this.update('updateAnimators', this.animators);
      this.update('updateAnimatorControllers', this.controllers);
    }
    const dirty = new nq.DirtyListWriter(engine);
    this.changed.forEach((handle) => dirty.append(handle));
    for (let i = 0; this.isLong && this.changed.length > 0 && i < kLongList; ++i) {
      dirty.append(this.changed[i % this.changed.length]);
    }
    this.changed = [];
    engine.refreshWorldTransform();
    this.update('updateSkinningMatrices', this.skins);
    const eye = draw.numbers(3, -30, 30);
    results.push(engine.frustumCullingV2(3, ...eye, 0, 0, 0, 0, 1, 0, 1, 1.5, 0.1, 60));
    const found = engine.orthoCulling(1, ...eye, 0, 0, 0, 0, 1, 0, -20, 20, -20, 20, 0.1, 60);
    if (found !== null) {
      results.push(
        found.hash,
        ...new Uint32Array(found.objects),
        ...new Uint32Array(found.distances)
      );
    }
    return results;
  }

  /** Random commands of three operands in one block, which overlap. */
  runFlow() {
    const { draw } = this;
    const types = [1001, 1002, 1003, 2001, 3003, 4002, 5001, 5003, 6001, 6003];
    const words = [];
    const id = this.memory.memoryID;
    for (let k = 0; k < 20; ++k) {
      const at = () => 4 * draw.below(100);
      words.push(types[draw.below(types.length)], id, at(), id, at(), id, at());
    }
    const stream = nq.blockWords(this.flow);
    stream[0] = 4 * words.length;
    stream.set(words, 1);
    return this.flow.execute();
  }

  /** All shared memory but the dirty list and the memory of command buffers. */
  blocks() {
    const views = [this.nodes, this.flat, this.objects, ...this.animators, ...this.controllers];
    views.push(...this.skins, ...[].concat(...this.states));
    const owners = [...views.map(({ object }) => object), this.engine.entityCommands];
    return [...owners, this.engine.cullingResult].map((owner) => nq.blockWords(owner));
  }
}

const isNaNWord = (word) => (word & 0x7fffffff) > 0x7f800000;

function digest(results, blocks) {
  const hash = crypto.createHash('sha1').update(JSON.stringify(results));
  blocks.forEach((words) => {
    hash.update(Uint32Array.from(words, (word) => (isNaNWord(word) ? kNaN : word)));
  });
  return hash.digest('hex').slice(0, 16);
}

function main([seedText, programs, steps, calls, lists, only]) {
  const first = Number(seedText);
  const all = Array.from({ length: Number(steps) }, (_, i) => i);
  const numbers = only === undefined ? all : only.split(',').map(Number);
  const lines = [];
  for (let seed = first; seed < first + Number(programs); ++seed) {
    const program = new Program(seed, calls === 'batch', lists === 'long');
    numbers.forEach((step) => {
      const results = program.step(new Draw(stepSeed(seed, step)));
      const main = digest(results, program.blocks());
      const flow =
        program.memory === null
          ? '-'
          : digest([program.runFlow()], [nq.blockWords(program.memory)]);
      lines.push(`${seed} ${step} ${main} ${flow}`);
    });
  }
  // On stderr: the module logs to stdout.
  fs.writeSync(2, `${lines.join('\n')}\n`);
}

main(process.argv.slice(2));
process.exit(0);
