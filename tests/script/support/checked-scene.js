'use strict';
// A scene that calls every method of an engine, and returns all effects: results and bytes.
const { DirtyListWriter, EntityCommandWriter, MatrixFlowWriter } = require('../../../lib/commands');
const { over } = require('./blocks');
const { buildClip, sampleTypes } = require('../../../lib/clip');
const { randomNumbers } = require('./reference');
const { frustum, none, ortho, targetLists } = require('./checked');

const rate = 30;
const frameCount = 20;

/** A clip that moves each target along x and rotates it. */
function clipOf(random, targets) {
  const { PositionX, QuaternionX, QuaternionY, QuaternionZ, QuaternionW } = sampleTypes;
  const curves = [];
  for (let target = 0; target < targets; ++target) {
    for (const type of [PositionX, QuaternionX, QuaternionY, QuaternionZ, QuaternionW]) {
      const keys = [0, 7, frameCount].map((frame) => ({
        frame,
        value: type === QuaternionW ? 1 : random() - 0.5,
        inTangent: random(),
        outTangent: random(),
      }));
      curves.push({ target, type, keys });
    }
  }
  return buildClip({ framesPerSecond: rate, frameCount, curves });
}

/** Result of a call in comparable form: buffers as text. */
function plain(result) {
  if (result instanceof ArrayBuffer) {
    return Buffer.from(result.slice(0)).toString('hex');
  }
  if (typeof result !== 'object' || result === null) {
    return result;
  }
  const out = {};
  Object.keys(result).forEach((name) => {
    out[name] = plain(result[name]);
  });
  return out;
}

/**
 * @param {Object} engine checked or not
 * @returns {Array} results and bytes, in order
 */
function playScene(engine) {
  const random = randomNumbers(4711);
  const log = [];
  const kept = [];
  /** Records the result of a call. */
  const note = (result) => {
    log.push(plain(result));
    return result;
  };
  const keep = (object) => {
    kept.push(object);
    return note(object);
  };

  const tree = keep(engine.createEntity(true, 60));
  const loose = keep(engine.createEntity(true, 4));
  const flat = keep(engine.createEntity(false, 5));
  keep(engine.createEntity());
  note(engine.setEntityName(tree.id, 'top'));
  const commands = new EntityCommandWriter(engine);
  const dirty = new DirtyListWriter(engine);

  const write = (entity, is3D, count) => {
    const floats = over(Float32Array, entity);
    for (let i = 0; i < count; ++i) {
      const at = i * (is3D ? 27 : 14);
      const values = is3D
        ? [random(), random(), random(), 1, random() - 0.5, random() - 0.5, 0, 1, 1, 1]
        : [random(), random(), random(), 1, 1];
      floats.set(values, is3D ? at + 1 : at);
      if (is3D) {
        over(Uint8Array, entity)[4 * at] = i % 3;
      }
      dirty.append(entity.id + i);
    }
  };
  write(tree, true, 60);
  write(loose, true, 4);
  write(flat, false, 5);
  dirty.append(tree.id); // twice
  commands.addRoot(tree.id);
  for (let i = 1; i < 60; ++i) {
    commands.addChild(tree.id + ((i - 1) >> 1), tree.id + i);
  }
  commands.addChild(loose.id, loose.id + 1);
  commands.addRoot(flat.id);
  commands.addChild(flat.id, flat.id + 1);
  commands.insertChild(flat.id, flat.id + 2, 0);
  commands.insertChild(tree.id, flat.id + 3, 1);
  note(engine.refreshWorldTransform());

  const clips = [0, 1, 2].map((i) => keep(engine.createDataModel(1, clipOf(random, 3 + i))));
  const bones = keep(engine.createDataModel(2, Float32Array.from({ length: 48 }, random)));
  const hands = [tree.id + 10, tree.id + 11, tree.id + 12];

  const animators = [0, 1].map((i) => {
    const table = [0, 1, 2, 3, 4, 5, 6].map((k) => tree.id + 20 + 8 * i + (k % 4));
    const animator = keep(engine.createComponent(2, 2, table.length));
    const view = over(DataView, animator);
    [0, 1].forEach((c) => {
      view.setUint32(12 * c, clips[c].id, true);
      view.setFloat32(12 * c + 4, 3.25 * c + i, true);
      view.setFloat32(12 * c + 8, i === 0 && c === 1 ? 0 : 0.5, true);
    });
    new Uint32Array(animator.buffer, 24).set(table);
    return animator;
  });
  const single = keep(engine.createComponent(2, 1, 3));
  over(Uint32Array, single).set([clips[0].id, 0, 0, loose.id, none, loose.id + 1]);
  over(Float32Array, single).set([4.5, 1], 1);

  const skin = keep(engine.createComponent(3, 3));
  over(Uint32Array, skin).set([bones.id, 0, 1, 2, ...hands]);
  const flatSkin = keep(engine.createComponent(3, 2));
  over(Uint32Array, flatSkin).set([bones.id, 1, none, flat.id, flat.id + 1]);

  const players = [0, 1].map((i) => {
    const list = [0, 1, 2, 3, 4].map((k) => tree.id + 40 + 8 * i + k);
    // Clips 0 and 1 are blended: each moves the three entities that the other does.
    const groups = clips.map(({ id }, c) => [id, c < 2 ? [...list.slice(0, 3), none] : list]);
    const binding = keep(engine.createAnimationClipBinding(...targetLists(groups), 1));
    const states = clips.map(() => keep(engine.createAnimatorControllerStateModel(1)));
    states.forEach((state, k) => {
      const view = over(DataView, state);
      view.setFloat32(0, k === 2 ? 1 : 0.5, true);
      view.setFloat32(4, k, true);
      view.setUint32(8, k === 0 ? states[1].id : none, true);
      view.setUint32(12, clips[k].id, true);
      view.setFloat32(16, 5.5 * k, true);
      view.setFloat32(20, 1, true);
    });
    const controller = keep(engine.createAnimatorControllerModel(3));
    const view = over(DataView, controller);
    view.setUint32(0, binding.id, true);
    [0, 1, 7].forEach((mode, layer) => {
      view.setUint32(4 + 12 * layer, mode, true);
      view.setFloat32(8 + 12 * layer, 0.75, true);
      view.setUint32(12 + 12 * layer, states[layer === 0 ? 0 : 2].id, true);
    });
    const mask = new DataView(new ArrayBuffer(8));
    mask.setUint32(0, list[1], true);
    note(controller.setMaskAtIndex(1, mask.buffer, 0, 1));
    return { binding, controller, groups };
  });

  const objects = keep(engine.createComponent(1, 1200));
  const records = over(DataView, objects);
  for (let i = 0; i < 1200; ++i) {
    records.setUint8(28 * i, i % 7 === 0 ? 0 : 1);
    records.setUint32(28 * i + 4, 1 << i % 5, true);
    records.setFloat32(28 * i + 8, 4 * random() - 2, true);
    records.setFloat32(28 * i + 20, random(), true);
    records.setUint32(28 * i + 24, tree.id + (i % 60), true);
  }

  const flow = engine.createMatrixFlowCommandBuffer;
  let buffer = null;
  if (flow !== undefined) {
    buffer = keep(engine.createMatrixFlowCommandBuffer(256));
    const writer = new MatrixFlowWriter(buffer);
    const position = { memoryID: tree.memoryID, offset: 20 };
    writer.vector3Add(position, { memoryID: tree.memoryID, offset: 128 }, position);
    writer.matrix4Mul(
      { memoryID: tree.memoryID, offset: 44 },
      { memoryID: tree.memoryID, offset: 152 },
      { memoryID: skin.memoryID, offset: 28 }
    );
  }

  const cameras = [0xffffffff, 6, 0, -1];
  for (let frame = 0; frame < 8; ++frame) {
    note(engine.updateAnimators(Uint32Array.of(2, animators[0].id, animators[1].id).buffer));
    note(engine.updateAnimator(single.id));
    const ids = players.map(({ controller }) => controller.id);
    note(engine.updateAnimatorControllers(Uint32Array.of(2, ...ids)));
    note(players[0].controller.update(null, new ArrayBuffer(0)));
    players.forEach(({ controller }) => {
      const view = over(DataView, controller);
      view.setFloat32(8, frame / 8, true);
    });
    if (frame === 2) {
      commands.bindToBone(loose.id + 2, tree.id + 5);
      commands.bindToBoneBatch([loose.id + 3, loose.id + 2], [tree.id + 6, tree.id + 7]);
      commands.deactivate(tree.id + 1);
    } else if (frame === 4) {
      commands.activate(tree.id + 1);
      commands.unbindFromBone(loose.id + 3);
      commands.unbindFromBoneBatch([loose.id + 3]);
      commands.removeFromParent(tree.id + 59);
    } else if (frame === 5) {
      commands.resetSubtree(tree.id + 2);
      commands.addChild(tree.id, tree.id + 2);
      const { binding, groups } = players[1];
      note(binding.updateBinding(...targetLists(groups.slice(1)), 3, 1, 1));
      note(binding.updateBinding(...targetLists(groups.concat(groups)), 0, 0, 0));
      note(binding.writeDefaultValues());
    }
    if (buffer !== null) {
      note(buffer.execute());
      dirty.append(tree.id); // what it has moved
    }
    dirty.append(tree.id + frame);
    dirty.appendRange(flat.id, 2);
    note(engine.refreshWorldTransform());
    note(engine.updateSkinningMatrix(skin.id));
    note(engine.updateSkinningMatrices(Uint32Array.of(2, flatSkin.id, skin.id)));
    const mask = cameras[frame % cameras.length];
    note(engine.frustumCulling(mask, ...frustum.slice(1)));
    note(engine.cullWithCamera(mask, ...frustum.slice(1)));
    note(engine.orthoCulling(mask, ...ortho.slice(1)));
    const list = Uint32Array.of(3, objects.id + 1, objects.id + 2, objects.id + 1).buffer;
    note(engine.orthoCullingV2(mask, ...ortho.slice(1), list));
    note(engine.cullingResult);
    note(engine.frustumCullingV2(mask, ...frustum.slice(1)));
    note(engine.frustumCullingV2(0, ...frustum.slice(1)));
    note(engine.cullingResult);
    note(engine.dirtyEntities);
    note(engine.entityCommands);
    kept.forEach(({ buffer: bytes }) => bytes !== undefined && note(bytes));
  }
  return log;
}

module.exports = { playScene };
