'use strict';
// Hints of a checked engine: each fires once for its mistake, with entity, place and cure, and not for the
// same program without it. Programs that are correct get none.
const assert = require('assert');
const { over } = require('../support/blocks');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { spawnSync } = require('child_process');
const { collectUntil } = require('../support/collect');
const { modulePath } = require('../support/host');
const {
  Lab,
  clipBytes,
  counted,
  frustum,
  none,
  ortho,
  targetLists,
} = require('../support/checked');
const { checked } = require('../../../lib/checked');
const { buildClip, sampleTypes } = require('../../../lib/clip');
const { DirtyListWriter, EntityCommandWriter } = require('../../../lib/commands');
const { Entity2DView, Entity3DView } = require('../../../lib/views');

const nq = require(modulePath);
const { removeFolder } = require('../../../scripts/lib/run');
const flowPath = process.env.NQ_MATRIXFLOW_MODULE;
const flow = flowPath !== undefined && fs.existsSync(flowPath) ? require(flowPath) : null;

const kMostOfACode = 8;
const kLongList = 6144;

/** Entities with views and writers, and the hints that were not taken yet. */
class Scene extends Lab {
  constructor(count = 4, module = nq) {
    super(module);
    this.writer = new EntityCommandWriter(this.engine);
    this.list = new DirtyListWriter(this.engine);
    this.view = this.make(count);
    this.id = this.view.id;
  }

  /** Entities at rest, of scale 1. */
  make(count, is3D = true) {
    const View = is3D ? Entity3DView : Entity2DView;
    const view = new View(this.entities(count, is3D));
    for (let i = 0; i < count; ++i) {
      view.reset(i);
    }
    return view;
  }

  /** Makes all entities of a view roots, lists and refreshes them. */
  root(view = this.view) {
    for (let i = 0; i < view.count; ++i) {
      this.writer.addRoot(view.handle(i));
    }
    this.listAll(view);
    return this;
  }

  listAll(view = this.view) {
    this.list.appendRange(view.id, view.count);
    this.refresh();
    return this;
  }

  refresh() {
    this.engine.refreshWorldTransform();
  }

  /** A culling object around an entity. */
  object(entity) {
    const object = this.keep(this.engine.createComponent(1, 1));
    const view = over(DataView, object);
    view.setUint8(0, 1);
    view.setUint32(4, 1, true);
    view.setFloat32(20, 1, true);
    view.setUint32(24, entity, true);
    return object;
  }

  cull() {
    return this.engine.frustumCulling(...frustum);
  }

  /** A clip of constant curves, [target, type name, value] each. */
  clipOf(...curves) {
    const bytes = buildClip({
      framesPerSecond: 30,
      frameCount: 10,
      curves: curves.map(([target, type, value]) => {
        const keys = [{ frame: 0, value, inTangent: 0, outTangent: 0 }];
        return { target, type: sampleTypes[type], keys };
      }),
    });
    return this.keep(this.engine.createDataModel(1, bytes));
  }

  /** Takes the hints so far. */
  take() {
    return this.hints.splice(0);
  }

  /** Asserts that there is one new hint, of these fields, with all fragments in its message. */
  gives(fields, ...fragments) {
    const hints = this.take();
    assert.strictEqual(hints.length, 1, JSON.stringify(hints, null, 1));
    const [hint] = hints;
    const keys = ['code', 'call', 'entity', 'place', 'message', 'isLast'];
    assert.deepStrictEqual(Object.keys(hint), keys);
    assert.deepStrictEqual(
      Object.assign({}, hint, { message: '' }),
      Object.assign({ message: '', isLast: false }, fields)
    );
    assert(hint.message.startsWith(`${hint.call}: `), hint.message);
    for (const fragment of fragments) {
      assert(hint.message.includes(String(fragment)), `'${fragment}' is not in: ${hint.message}`);
    }
    // What was found, and the cure after a colon.
    assert(/^[^:]+: .+: .+\.$/.test(hint.message), hint.message);
  }

  /** Asserts that there is no new hint. */
  givesNone() {
    assert.deepStrictEqual(this.take(), []);
  }
}

/** Replaces console.warn while `run` runs. Returns the lines. */
function warningsOf(run) {
  const lines = [];
  const { warn } = console;
  console.warn = (line) => lines.push(line);
  try {
    run();
  } finally {
    console.warn = warn;
  }
  return lines;
}

describe('hint not-under-root', () => {
  const code = 'not-under-root';
  const cure =
    'write AddRoot for it, or for the top of its tree, into entityCommands of its engine.';

  it('reports an entity that is culled, once', () => {
    for (const [call, args] of [
      ['frustumCulling', frustum],
      ['cullWithCamera', frustum],
      ['frustumCullingV2', frustum],
      ['orthoCulling', ortho],
      ['orthoCullingV2', ortho],
    ]) {
      const scene = new Scene().listAll();
      const object = scene.object(scene.id + 2);
      scene.engine[call](...args);
      const place = `culling object ${object.id}`;
      const found = `its entity ${scene.id + 2} is culled`;
      scene.gives({ code, call, entity: scene.id + 2, place }, `${place}: ${found}`, cure);
      scene.engine[call](...args);
      scene.refresh();
      scene.engine[call](...args);
      scene.givesNone();
    }
  });

  it('reports objects of a list, and only those that are tested', () => {
    const scene = new Scene().listAll();
    const objects = [0, 1, 2].map((i) => scene.object(scene.id + i));
    over(Uint8Array, objects[0])[0] = 0;
    over(Uint32Array, objects[1])[1] = 2;
    const mask = 1;
    scene.engine.frustumCulling(mask, ...frustum.slice(1), counted(objects[0].id, objects[1].id));
    scene.givesNone();
    scene.engine.frustumCulling(mask, ...frustum.slice(1), counted(objects[2].id));
    const place = `culling object ${objects[2].id}`;
    scene.gives({ code, call: 'frustumCulling', entity: scene.id + 2, place }, cure);
  });

  it('reports a bone that is skinned', () => {
    const scene = new Scene().listAll();
    const model = scene.keep(scene.engine.createDataModel(2, new Float32Array(16)));
    scene.writer.addRoot(scene.id);
    scene.refresh();
    const bones = [0, 1].map((i) => [0, scene.id + i]);
    const skin = scene.skin(model.id, bones);
    scene.engine.updateSkinningMatrices(counted(skin.id));
    const place = `skinning component ${skin.id}, bone 1`;
    const fields = { code, call: 'updateSkinningMatrices', entity: scene.id + 1, place };
    scene.gives(fields, `its entity ${scene.id + 1} is skinned`, cure);
    scene.writer.addChild(scene.id, scene.id + 1);
    scene.refresh();
    scene.engine.updateSkinningMatrix(skin.id);
    scene.givesNone();
  });

  it('reports an entity that is read through a view, 2D or 3D', () => {
    for (const is3D of [true, false]) {
      const scene = new Scene(1);
      const view = scene.make(3, is3D);
      scene.listAll(view);
      view.worldPosition(1, [0, 0, 0]);
      const fields = { code, call: 'worldPosition', entity: view.id + 1, place: 'view' };
      scene.gives(fields, `entity ${view.id + 1}: it is read`, cure);
      view.worldMatrix(1, new Float32Array(16));
      scene.givesNone();
      view.worldMatrix(2, new Float32Array(16));
      scene.gives({ code, call: 'worldMatrix', entity: view.id + 2, place: 'view' });
      scene.root(view);
      view.worldMatrix(0, new Float32Array(16));
      scene.givesNone();
    }
  });

  it('reports an entity that is changed and listed 60 times', () => {
    const scene = new Scene();
    for (let frame = 0; frame < 61; ++frame) {
      scene.givesNone();
      scene.view.setPosition(1, frame, 1, 0);
      scene.list.append(scene.id + 1);
      scene.refresh();
    }
    const fields = { code, call: 'refreshWorldTransform', entity: scene.id + 1 };
    const found = `entity ${scene.id + 1}: it was changed and listed 60 times`;
    scene.gives(Object.assign(fields, { place: 'dirtyEntities' }), found, cure);
  });

  it('does not report entities that are, will be, or were computed', () => {
    const scene = new Scene(6);
    const objects = [0, 1, 2, 3].map((i) => scene.object(scene.id + i));
    scene.cull(); // before the first refresh
    scene.listAll();
    scene.writer.addRoot(scene.id);
    scene.writer.addChild(scene.id, scene.id + 1);
    scene.writer.addChild(scene.id + 1, scene.id + 2);
    scene.writer.addChild(scene.id + 4, scene.id + 3);
    scene.writer.addRoot(scene.id + 4);
    scene.cull(); // the commands are not yet executed
    scene.refresh();
    scene.cull();
    scene.writer.removeFromParent(scene.id + 1); // stays where it was
    scene.refresh();
    scene.cull();
    const late = scene.make(1);
    objects.push(scene.object(late.id)); // made after the refresh
    scene.cull();
    scene.givesNone();
  });

  it('does not report an inactive tree, or a tree that a player computes', () => {
    const scene = new Scene(6);
    scene.writer.addRoot(scene.id);
    scene.writer.addChild(scene.id, scene.id + 1);
    scene.writer.deactivate(scene.id);
    scene.writer.addChild(scene.id + 2, scene.id + 3);
    scene.listAll();
    const animator = scene.animator([[scene.clip().id]], [scene.id + 3]);
    scene.engine.updateAnimator(animator.id);
    [1, 2, 3].forEach((i) => scene.object(scene.id + i));
    scene.cull();
    [1, 2, 3].forEach((i) => scene.view.worldMatrix(i, new Float32Array(16)));
    scene.givesNone();
  });

  it('reports an unlisted entity, but not the missing root, of a tree that a player computes', () => {
    const scene = new Scene();
    scene.writer.addChild(scene.id, scene.id + 1);
    scene.list.append(scene.id + 1);
    scene.refresh();
    const animator = scene.animator([[scene.clip().id]], [scene.id + 1]);
    scene.engine.updateAnimator(animator.id);
    const object = scene.object(scene.id + 1);
    scene.cull();
    const place = `culling object ${object.id}`;
    const fields = { code: 'not-listed', call: 'frustumCulling', entity: scene.id, place };
    scene.gives(fields, `entity ${scene.id} above it was never in dirtyEntities`);
  });

  it('reports a tree whose controllers are updated by update, which computes no tree', () => {
    const scene = new Scene().listAll();
    const clip = scene.clip();
    const binding = scene.binding([[clip.id, [scene.id]]]);
    const controller = scene.controller(binding.id, [[0, scene.state([[clip.id]]).id]]);
    scene.object(scene.id);
    controller.update(null, new ArrayBuffer(0));
    scene.cull();
    assert.deepStrictEqual(
      scene.take().map(({ entity }) => entity),
      [scene.id]
    );
    const batched = new Scene().listAll();
    const other = batched.binding([[batched.clip().id, [batched.id]]]);
    const player = batched.controller(other.id, [[2, 0]]);
    batched.object(batched.id);
    batched.engine.updateAnimatorControllers(counted(player.id));
    batched.cull();
    batched.givesNone();
  });

  it('does not report spare entities that are read but were never written', () => {
    const scene = new Scene();
    const view = new Entity3DView(scene.entities(2));
    scene.refresh();
    view.worldMatrix(1, new Float32Array(16));
    scene.givesNone();
  });
});

describe('hint not-listed', () => {
  const code = 'not-listed';
  const call = 'refreshWorldTransform';
  const cure = 'append its handle to the entries there, each time that its record changes.';

  it('reports each changed field, once per entity', () => {
    const fields = [
      ['rotation mode', (view) => view.setEuler(1, 0, 0, 0)],
      ['rotation x', (view) => view.setQuaternion(1, 1, 0, 0, 0)],
      ['rotation w', (view) => view.setQuaternion(1, 0, 0, 0, -1)],
      ['position y', (view) => view.setPosition(1, 0, 2, 0)],
      ['scale z', (view) => view.setScale(1, 1, 1, 2)],
    ];
    for (const [place, write] of fields) {
      const scene = new Scene().root();
      write(scene.view);
      scene.refresh();
      const found = `entity ${scene.id + 1}: its ${place} has changed`;
      scene.gives({ code, call, entity: scene.id + 1, place }, found, cure);
      scene.refresh();
      scene.view.setPosition(1, 7, 7, 7);
      scene.refresh();
      scene.givesNone();
    }
    const scene = new Scene();
    const flat = scene.make(2, false);
    scene.root(flat);
    flat.setRotation(1, 0.5);
    scene.refresh();
    scene.gives({ code, call, entity: flat.id + 1, place: 'rotation' }, cure);
  });

  it('does not report listed entities in any order, or unused bytes', () => {
    const scene = new Scene().root();
    scene.view.setEuler(0, 0, 0, 0);
    scene.listAll();
    scene.view.setPosition(1, 1, 2, 3);
    scene.list.append(scene.id + 1);
    scene.refresh();
    scene.list.append(scene.id + 1); // twice, and before the change
    scene.list.append(scene.id + 1);
    scene.view.setPosition(1, 3, 2, 3);
    scene.refresh();
    scene.view.f32[scene.view.rotationAt(0) + 3] = 5; // w of Euler angles
    scene.view.u8.set([1, 2, 3], scene.view.rotationModeAt(0) + 1);
    scene.view.u8[scene.view.rotationModeAt(1)] = 7; // a quaternion by another number
    scene.view.f32[scene.view.positionAt(2)] = -0;
    scene.refresh();
    scene.givesNone();
  });

  it('does not report entities under no root, inactive ones, or new ones', () => {
    const scene = new Scene(5);
    scene.writer.addRoot(scene.id);
    scene.writer.addChild(scene.id, scene.id + 1);
    scene.listAll();
    scene.writer.deactivate(scene.id);
    scene.view.setPosition(1, 1, 1, 1); // below an inactive entity
    scene.view.setPosition(2, 1, 1, 1); // under no root
    scene.refresh();
    const late = scene.make(2);
    scene.writer.addRoot(late.id); // linked now, listed later
    scene.refresh();
    scene.refresh();
    scene.list.append(late.id);
    scene.refresh();
    scene.givesNone();
    scene.writer.activate(scene.id);
    scene.refresh();
    scene.gives({ code, call, entity: scene.id + 1, place: 'position x' }, cure);
  });

  it('follows ResetSubtree, which activates, and removes a parent', () => {
    const scene = new Scene();
    scene.writer.addRoot(scene.id);
    scene.writer.addChild(scene.id, scene.id + 1);
    scene.listAll();
    scene.writer.deactivate(scene.id);
    scene.refresh();
    scene.view.setPosition(0, 5, 0, 0);
    scene.view.setPosition(1, 5, 0, 0);
    scene.writer.resetSubtree(scene.id);
    scene.refresh();
    scene.gives({ code, call, entity: scene.id, place: 'position x' });
  });

  it('does not report several passes with long lists, or the last one that lists the rest', () => {
    const scene = new Scene(1);
    const views = [scene.make(4095), scene.make(4095)];
    views.forEach((view) => scene.root(view));
    views.forEach((view) => {
      for (let i = 0; i < view.count; ++i) {
        view.setPosition(i, 1, 2, 3);
      }
    });
    const handles = [].concat(
      ...views.map(({ id, count }) => Array.from({ length: count }, (_, i) => id + i))
    );
    scene.list.appendAll(handles.slice(0, kLongList));
    scene.refresh();
    scene.list.appendAll(handles.slice(kLongList));
    scene.refresh();
    scene.givesNone();
    views[0].setPosition(0, 0, 0, 0);
    views[1].setPosition(4, 0, 0, 0);
    scene.list.appendAll(handles.slice(1, kLongList));
    scene.refresh();
    const entity = handles[0];
    scene.gives({ code, call, entity, place: 'position x' });
  });

  it('does not report records that animators and controllers write', () => {
    const scene = new Scene().root();
    const clip = scene.clip();
    const animator = scene.animator([[clip.id]], [scene.id]);
    const binding = scene.binding([[clip.id, [scene.id + 1]]]);
    const state = scene.state([[clip.id]]);
    const controller = scene.controller(binding.id, [[0, state.id]]);
    for (let frame = 0; frame < 4; ++frame) {
      scene.view.setPosition(0, frame, 0, 0);
      scene.view.setPosition(1, frame, 0, 0);
      scene.engine.updateAnimators(counted(animator.id));
      if (frame < 2) {
        scene.engine.updateAnimatorControllers(counted(controller.id));
      } else {
        controller.update(null, new ArrayBuffer(0));
      }
      scene.refresh();
    }
    scene.givesNone();
    // A record written after the player, and not listed, has no effect in this frame.
    scene.view.setPosition(0, 9, 0, 0);
    scene.refresh();
    scene.gives({ code, call, entity: scene.id, place: 'position x' });
  });

  it('does not report rest poses that updateBinding writes back, but others', () => {
    const scene = new Scene().root();
    const clip = scene.clip(2);
    const args = (handles) => [Uint32Array.of(clip.id, 2, ...handles).buffer, 0, 1, 3];
    const binding = scene.binding([[clip.id, [scene.id, scene.id + 1]]]);
    const move = (x) => {
      [0, 1].forEach((i) => scene.view.setPosition(i, x, 0, 0));
      scene.listAll();
    };
    move(4);
    // Entity 0 leaves and is written back, entity 1 stays and is not.
    assert.strictEqual(binding.updateBinding(...args([scene.id + 1, none]), 2, 0, 0), true);
    assert.strictEqual(scene.view.position(0, [0, 0, 0])[0], 0);
    scene.refresh();
    assert.strictEqual(scene.view.worldPosition(0, [0, 0, 0])[0], 0);
    move(5);
    assert.strictEqual(binding.updateBinding(...args([scene.id, none]), 0, 2, 0), true);
    assert.strictEqual(scene.view.position(0, [0, 0, 0])[0], 0);
    scene.refresh();
    scene.givesNone();
    scene.view.setPosition(1, 6, 0, 0);
    assert.strictEqual(binding.updateBinding(...args([scene.id + 1, none]), 0, 0, 0), true);
    scene.refresh();
    scene.gives({ code, call, entity: scene.id + 1, place: 'position x' });
  });

  it('does not report followers of bones, unless JavaScript clears the list', () => {
    const scene = new Scene().root();
    scene.writer.bindToBone(scene.id + 3, scene.id);
    for (let frame = 0; frame < 4; ++frame) {
      scene.view.setPosition(0, frame, 1, 0);
      scene.list.append(scene.id);
      scene.refresh();
    }
    scene.givesNone();
    assert.strictEqual(scene.dirty[0], 1);
    scene.dirty[0] = 0;
    scene.refresh();
    scene.gives({ code, call, entity: scene.id + 3, place: 'position x' }, 'to the entries there');
  });

  (flow === null ? it.skip : it)('tells of records that command buffers write', () => {
    const scene = new Scene(2, flow).root();
    const buffer = scene.keep(scene.engine.createMatrixFlowCommandBuffer(64));
    const { memoryID } = scene.view.object;
    const add = (offset) => [memoryID, offset];
    over(Uint32Array, buffer).set([28, 1001, ...add(32), ...add(32), ...add(20)]);
    scene.list.append(scene.id);
    assert.strictEqual(buffer.execute(), 0);
    scene.refresh();
    scene.givesNone();
    scene.view.setScale(0, 2, 2, 2);
    scene.list.append(scene.id);
    scene.refresh();
    assert.strictEqual(buffer.execute(), 0);
    scene.refresh();
    scene.gives({ code, call, entity: scene.id, place: 'position x' });
  });

  it('reports a new entity that is used but was never listed', () => {
    const scene = new Scene();
    scene.writer.addRoot(scene.id);
    scene.writer.addChild(scene.id, scene.id + 1);
    scene.list.append(scene.id + 1);
    scene.refresh();
    scene.view.worldPosition(0, [0, 0, 0]);
    const found = `entity ${scene.id}: it is read, but it was never in dirtyEntities`;
    const fields = { code, call: 'worldPosition', entity: scene.id, place: 'view' };
    scene.gives(fields, found, 'list each new entity once.');
    // For its descendants, it is the cause.
    const other = new Scene();
    other.writer.addRoot(other.id);
    other.writer.addChild(other.id, other.id + 1);
    other.list.append(other.id + 1);
    other.refresh();
    const object = other.object(other.id + 1);
    other.list.append(other.id); // will be
    other.cull();
    other.givesNone();
    other.dirty[0] = 0;
    other.cull();
    const place = `culling object ${object.id}`;
    const words = [
      `its entity ${other.id + 1} is culled, but entity ${other.id} above it was never`,
    ];
    other.gives({ code, call: 'frustumCulling', entity: other.id, place }, ...words);
    other.listAll();
    other.cull();
    other.givesNone();
  });
});

describe('hint degrees', () => {
  const code = 'degrees';
  const cure = 'write radians, degrees * Math.PI / 180.';

  it('reports Euler angles', () => {
    const call = 'refreshWorldTransform';
    for (const value of [30, -45, 90, 180, -270, 360, 720]) {
      for (const axis of [0, 1, 2]) {
        const scene = new Scene();
        const angles = [0, 0, 0];
        angles[axis] = value;
        scene.view.setEuler(2, ...angles);
        scene.root();
        const place = `rotation ${'xyz'[axis]}`;
        const found = `entity ${scene.id + 2}: ${place} is ${value}, which looks like degrees`;
        scene.gives({ code, call, entity: scene.id + 2, place }, found, cure);
        scene.view.setEuler(2, 60, 60, 60);
        scene.listAll();
        scene.givesNone();
      }
    }
    const scene = new Scene();
    const flat = scene.make(1, false);
    flat.setRotation(0, 90);
    scene.root(flat);
    scene.gives({ code, call, entity: flat.id, place: 'rotation' }, 'rotation is 90', cure);
  });

  it('does not report radians, also large and growing ones, or quaternions', () => {
    const scene = new Scene(8).root();
    const values = [Math.PI, -2 * Math.PI, 15, 29, 31, 89.5, 10000, 735];
    values.forEach((value, i) => scene.view.setEuler(i, value, 0, -value));
    scene.listAll();
    scene.view.setQuaternion(0, 90, 45, 0, 0);
    scene.listAll();
    scene.view.setEuler(0, 0, 0, 0);
    for (let angle = 0; angle < 100; angle += 0.5) {
      scene.view.setEuler(0, angle, 0, 0);
      scene.list.append(scene.id);
      scene.refresh();
    }
    scene.givesNone();
  });

  it('reports a field of view', () => {
    for (const call of ['frustumCulling', 'cullWithCamera', 'frustumCullingV2']) {
      const scene = new Scene();
      const args = frustum.slice();
      for (const fov of [Math.PI, 0.001, -1, NaN, Infinity]) {
        args[10] = fov;
        scene.engine[call](...args);
      }
      scene.engine.orthoCulling(...ortho.slice(0, 10), 60, 70, 80, 90, 0, 1);
      scene.givesNone();
      args[10] = 60;
      scene.engine[call](...args);
      scene.gives({ code, call, entity: null, place: 'fov' }, 'fov is 60', cure);
      scene.engine[call](...args);
      scene.givesNone();
    }
  });

  it('reports the Euler curves of a clip', () => {
    const scene = new Scene();
    const call = 'createDataModel';
    scene.clipOf([0, 'EulerX', 0], [0, 'EulerY', 1.5], [0, 'PositionX', 90], [1, 'EulerX', 31]);
    scene.givesNone();
    scene.clipOf([0, 'EulerX', 0], [1, 'EulerZ', -90]);
    const fields = { code, call, entity: null, place: 'target 1, EulerZ' };
    scene.gives(fields, 'EulerZ is -90 at frame 0', cure);
  });
});

describe('hint nan', () => {
  const code = 'nan';
  const cure = 'undefined becomes NaN in a float.';

  it('reports a field of a record that is listed', () => {
    const call = 'refreshWorldTransform';
    const scene = new Scene(8).root();
    [
      ['rotation y', scene.view.rotationAt(0) + 1],
      ['rotation w', scene.view.rotationAt(1) + 3],
      ['position z', scene.view.positionAt(2) + 2],
      ['scale x', scene.view.scaleAt(3)],
    ].forEach(([place, index], i) => {
      scene.view.f32[index] = undefined;
      scene.list.append(scene.id + i);
      scene.refresh();
      const found = `entity ${scene.id + i}: ${place} is NaN`;
      scene.gives({ code, call, entity: scene.id + i, place }, found, cure);
    });
    scene.view.setEuler(4, 0, 0, 0);
    scene.view.f32[scene.view.rotationAt(4) + 3] = NaN; // which Euler angles don't have
    scene.view.f32[scene.view.positionAt(5)] = Infinity;
    scene.listAll();
    scene.givesNone();
  });

  it('reports the bone, not its followers', () => {
    const scene = new Scene().root();
    scene.writer.bindToBone(scene.id + 1, scene.id);
    scene.view.f32[scene.view.positionAt(0)] = NaN;
    scene.list.append(scene.id);
    scene.refresh();
    scene.refresh();
    assert(Number.isNaN(scene.view.position(1, [0, 0, 0])[0]));
    scene.gives({ code, call: 'refreshWorldTransform', entity: scene.id, place: 'position x' });
  });

  it('reports the sphere of a culling object that is tested', () => {
    const scene = new Scene().root();
    const call = 'frustumCulling';
    [8, 12, 16, 20].forEach((offset, i) => {
      const object = scene.object(scene.id);
      over(Float32Array, object)[offset / 4] = NaN;
      over(Uint8Array, object)[0] = 0;
      scene.cull();
      scene.givesNone();
      over(Uint8Array, object)[0] = 1;
      scene.cull();
      const field = ['center x', 'center y', 'center z', 'radius'][i];
      const place = `culling object ${object.id}, ${field}`;
      scene.gives({ code, call, entity: scene.id, place }, `${field} is NaN`, cure);
    });
  });

  it('reports the time of a clip that plays', () => {
    const scene = new Scene().root();
    const clip = scene.clip();
    const animator = scene.animator([[clip.id], [clip.id, 0]], [scene.id, scene.id]);
    const view = over(DataView, animator);
    view.setFloat32(12 + 4, NaN, true);
    scene.engine.updateAnimator(animator.id); // of weight 0
    scene.givesNone();
    view.setFloat32(4, NaN, true);
    scene.engine.updateAnimator(animator.id);
    const call = 'updateAnimator';
    const place = `animator ${animator.id}, clip 0, time`;
    scene.gives({ code, call, entity: null, place }, 'its time is NaN', cure);
    const binding = scene.binding([[clip.id, [scene.id]]]);
    const state = scene.state([[clip.id]]);
    const controller = scene.controller(binding.id, [[1, state.id]]);
    over(Float32Array, state)[4] = NaN;
    scene.engine.updateAnimatorControllers(counted(controller.id));
    const where = `controller ${controller.id}, layer 0, state ${state.id}, clip 0, time`;
    scene.gives({ code, call: 'updateAnimatorControllers', entity: null, place: where });
  });

  it('reports records that a player writes', () => {
    const scene = new Scene().root();
    const clip = scene.clip();
    const binding = scene.binding([[clip.id, [scene.id + 1]]]);
    const controller = scene.controller(binding.id, [[0, scene.state([[clip.id]]).id]]);
    over(Float32Array, controller)[2] = NaN; // weight of the layer
    controller.update(null, new ArrayBuffer(0));
    const fields = { code, call: 'update', entity: scene.id + 1, place: 'position x' };
    scene.gives(
      fields,
      `entity ${scene.id + 1}: position x is NaN`,
      `controller ${controller.id}.`
    );
  });
});

describe('hint other-engine', () => {
  const code = 'other-engine';
  const call = 'refreshWorldTransform';
  const cure = 'write a handle into the buffers of the engine that it came from.';

  /** Two engines whose entities have the same numbers. */
  function pair() {
    const scenes = [new Scene().root(), new Scene().root()];
    assert.strictEqual(scenes[0].id, scenes[1].id);
    return scenes;
  }

  it('reports a handle in the list of the other engine', () => {
    const [mine, other] = pair();
    mine.view.setPosition(2, 1, 0, 0);
    other.list.append(mine.view.handle(2));
    other.refresh();
    other.givesNone();
    mine.refresh();
    const entity = mine.id + 2;
    const words = [`entity ${entity}: its position x has changed`, `has listed ${entity}`];
    mine.gives({ code, call, entity, place: 'position x' }, ...words, cure);
    mine.refresh();
    other.refresh();
    mine.givesNone();
    other.givesNone();
  });

  it('reports it if the other engine is refreshed later', () => {
    const [mine, other] = pair();
    mine.view.setPosition(2, 1, 0, 0);
    other.list.append(mine.view.handle(2));
    mine.refresh();
    mine.gives({ code: 'not-listed', call, entity: mine.id + 2, place: 'position x' });
    other.refresh();
    const words = [`entity ${mine.id + 2}: it is in dirtyEntities, and has not changed`];
    other.gives({ code, call, entity: mine.id + 2, place: 'dirtyEntities' }, ...words, cure);
  });

  it('does not report engines that list their own handles', () => {
    const [mine, other] = pair();
    for (let frame = 0; frame < 3; ++frame) {
      // Both are written before both refreshes, and one lists all of its entities.
      mine.view.setPosition(frame, 1, frame, 0);
      other.view.setPosition(1, frame, 0, 0);
      other.listAll();
      mine.list.append(mine.id + frame);
      mine.refresh();
    }
    other.listAll();
    mine.view.setPosition(0, 5, 5, 5);
    mine.list.append(mine.id);
    mine.refresh();
    mine.givesNone();
    other.givesNone();
  });

  it('does not report handles that the other engine listed before the last refresh', () => {
    const [mine, other] = pair();
    other.listAll();
    mine.refresh();
    mine.view.setPosition(0, 5, 5, 5);
    mine.refresh();
    mine.gives({ code: 'not-listed', call, entity: mine.id, place: 'position x' });
  });
});

describe('hint one-sided-channel', () => {
  const code = 'one-sided-channel';
  const cure = 'add keys for it to both clips, also where it rests.';

  /** An animator of two clips that move one entity; one is at 1.02 along y. */
  function animated(curves, height = 1.02) {
    const scene = new Scene();
    scene.view.setPosition(0, 0, height, 0);
    scene.root();
    const clips = curves.map((list) => scene.clipOf(...list));
    const animator = scene.animator(
      clips.map(({ id }) => [id, 1]),
      clips.map(() => scene.id)
    );
    const weigh = (...weights) => {
      weights.forEach((weight, i) => {
        over(DataView, animator).setFloat32(12 * i + 8, weight, true);
      });
      scene.engine.updateAnimator(animator.id);
    };
    return { scene, clips, animator, weigh };
  }

  const walk = [
    [0, 'PositionY', 1.02],
    [0, 'ScaleX', 1],
  ];
  const nod = [[0, 'ScaleX', 1]];

  it('reports an animator that pulls a position to 0', () => {
    for (const order of [
      [walk, nod],
      [nod, walk],
    ]) {
      const { scene, clips, animator, weigh } = animated(order);
      const [mover, still] = order[0] === walk ? clips : clips.slice().reverse();
      weigh(1, 0);
      weigh(0, 1);
      scene.givesNone();
      weigh(...(order[0] === walk ? [0.1, 0.9] : [0.9, 0.1]));
      // The visible effect: the body has sunk.
      assert(Math.abs(scene.view.position(0, [0, 0, 0])[1] - 0.102) < 1e-6);
      const place = `animator ${animator.id}, position y`;
      const fields = { code, call: 'updateAnimator', entity: scene.id, place };
      const words = [`${mover.id} and ${still.id} only ${mover.id} moves it`, 'pulls it to 0'];
      scene.gives(fields, ...words, cure);
      weigh(0.5, 0.5);
      scene.givesNone();
    }
  });

  it('reports a scale, and channels of more than two clips', () => {
    const { scene, animator, weigh } = animated([nod, [[0, 'PositionX', 0]], nod], 0);
    weigh(0.2, 0.3, 0.5);
    const place = `animator ${animator.id}, scale x`;
    scene.gives({ code, call: 'updateAnimator', entity: scene.id, place }, cure);
  });

  it('does not report animators whose clips move the same channels, rest at 0, or move other entities', () => {
    const turn = ['X', 'Y', 'Z'].map((axis) => [0, `Quaternion${axis}`, 0]);
    turn.push([0, 'QuaternionW', 1]);
    for (const [curves, height] of [
      [[walk, walk], 1.02],
      [[walk, [...walk, ...turn]], 1.02], // a rotation that only one has is unchanged
      [[walk, nod], 0], // the parent's origin is where it rests
      [[walk, nod], 1e-4],
      [[turn, turn], 1],
    ]) {
      const { scene, weigh } = animated(curves, height);
      weigh(0.1, 0.9);
      scene.givesNone();
    }
    const scene = new Scene();
    scene.view.setPosition(0, 0, 1.02, 0);
    scene.root();
    const records = [walk, nod].map((list) => [scene.clipOf(...list).id, 0.5]);
    const apart = scene.animator(records, [scene.id, scene.id + 1]);
    scene.engine.updateAnimator(apart.id);
    assert.strictEqual(scene.view.position(0, [0, 0, 0])[1], Math.fround(1.02));
    scene.givesNone();
  });

  /** A controller of one layer for each list of states, which are lists of [clip, weight]. */
  function controlled(
    layers,
    { modes = [], lists = () => [0], prepare = () => {}, mode = 1 } = {}
  ) {
    const scene = new Scene();
    scene.view.setPosition(0, 0, 1.02, 0);
    prepare(scene.view);
    scene.root();
    const clips = new Map();
    [].concat(...layers).forEach(([curves]) => {
      if (!clips.has(curves)) {
        clips.set(curves, scene.clipOf(...curves));
      }
    });
    const groups = Array.from(clips, ([curves, { id }]) => {
      return [id, lists(curves).map((i) => scene.id + i)];
    });
    const binding = scene.binding(groups, mode);
    const controller = scene.controller(
      binding.id,
      layers.map((states, i) => {
        let next = none;
        states.forEach(([curves, weight, stateWeight = 1]) => {
          const options = { next, weight: stateWeight };
          next = scene.state([[clips.get(curves).id, weight]], options).id;
        });
        return [modes[i] || 0, next];
      })
    );
    const update = () => scene.engine.updateAnimatorControllers(counted(controller.id));
    return { scene, clips, controller, update };
  }

  it('reports a controller whose states are crossfaded', () => {
    for (const states of [
      [
        [walk, 0.1],
        [nod, 0.9],
      ],
      [
        [nod, 1, 0.9],
        [walk, 1, 0.1],
      ],
    ]) {
      const { scene, clips, controller, update } = controlled([states]);
      update();
      assert(Math.abs(scene.view.position(0, [0, 0, 0])[1] - 0.102) < 1e-6);
      const place = `controller ${controller.id}, layer 0, position y`;
      const fields = { code, call: 'updateAnimatorControllers', entity: scene.id, place };
      const [mover, still] = [clips.get(walk).id, clips.get(nod).id];
      const words = [
        `${mover} and ${still} only ${mover} moves it`,
        'pulls it to 0, not to its rest',
      ];
      scene.gives(fields, ...words, cure);
      update();
      scene.givesNone();
    }
  });

  it('reports a scale whose rest is not 1, a rotation, and an entity in one list only', () => {
    const grow = [[0, 'ScaleX', 3]];
    const turn = [[0, 'QuaternionX', 0.6]];
    turn.push([0, 'QuaternionY', 0], [0, 'QuaternionZ', 0], [0, 'QuaternionW', 0.8]);
    const still = [[0, 'PositionX', 0]];
    const cases = [
      [grow, 'scale x', (view) => view.setScale(0, 2, 1, 1)],
      [turn, 'rotation', (view) => view.setQuaternion(0, 0.6, 0, 0, 0.8)],
    ];
    for (const [curves, name, prepare] of cases) {
      const states = [
        [curves, 0.5],
        [still, 0.5],
      ];
      const { scene, controller, update } = controlled([states], { prepare });
      update();
      const place = `controller ${controller.id}, layer 0, ${name}`;
      scene.gives({ code, call: 'updateAnimatorControllers', entity: scene.id, place }, cure);
      const rested = controlled([states]); // of scale 1, without a rotation
      rested.update();
      rested.scene.givesNone();
    }
    const states = [
      [walk, 0.5],
      [nod, 0.5],
    ];
    const lists = (curves) => [curves === walk ? 0 : 1];
    const { scene, controller, update } = controlled([states], { lists });
    update();
    const place = `controller ${controller.id}, layer 0, position y`;
    scene.gives({ code, call: 'updateAnimatorControllers', entity: scene.id, place });
  });

  it('does not report controllers whose clips complete each other', () => {
    const half = [
      [walk, 0.5],
      [nod, 0.5],
    ];
    for (const [layers, options] of [
      [[[[walk, 0.5]]]], // fades in alone
      [
        [
          [
            [walk, 1],
            [nod, 1],
          ],
        ],
      ], // weights that are whole without the other
      [
        [
          [
            [walk, 0.4],
            [walk, 0.6],
          ],
        ],
      ],
      [[half], { modes: [1] }], // additive: what is not moved is not added to
      [[half], { modes: [2] }],
      [[half], { mode: 0 }], // without rest poses, nothing is moved
      [[half], { prepare: (view) => view.setPosition(0, 0, 0, 0) }],
      [[half, [[walk, 1]]]], // replaced by a later layer
    ]) {
      const { scene, update } = controlled(layers, options);
      update();
      scene.givesNone();
    }
    const { scene, controller, update } = controlled([[[walk, 1]], half]);
    update();
    const place = `controller ${controller.id}, layer 1, position y`;
    scene.gives({ code, call: 'updateAnimatorControllers', entity: scene.id, place });
  });

  it('uses the current masks of layers and lists of the binding', () => {
    const half = [
      [walk, 0.5],
      [nod, 0.5],
    ];
    const { scene, controller, update } = controlled([half]);
    const mask = (weight) => {
      const view = new DataView(new ArrayBuffer(8));
      view.setUint32(0, scene.id, true);
      view.setFloat32(4, weight, true);
      controller.setMaskAtIndex(0, view.buffer, 0, 1);
    };
    for (const weight of [0, 0.5]) {
      mask(weight);
      update();
      scene.givesNone();
    }
    controller.setMaskAtIndex(0, new ArrayBuffer(8), 0, 0);
    update();
    assert.strictEqual(scene.take().length, 1);
  });
});

describe('hints', () => {
  /** Makes a mistake that has a hint. */
  function mistake(scene, i = 0) {
    scene.view.setPosition(i, 1, 2, 3);
    scene.refresh();
  }

  it('go to console.warn by default', () => {
    const engine = checked(nq.getEngine());
    const view = new Entity3DView(engine.createEntity(true, 3));
    const handles = [0, 1, 2].map((i) => view.handle(i));
    const commands = new EntityCommandWriter(engine);
    handles.forEach((handle) => commands.addRoot(handle));
    new DirtyListWriter(engine).appendAll(handles);
    engine.refreshWorldTransform();
    const move = (i) => {
      view.setPosition(i, 1, 1, 1);
      engine.refreshWorldTransform();
    };
    const lines = warningsOf(() => move(0));
    assert.strictEqual(lines.length, 1);
    const start = `[nq_logic hint not-listed] refreshWorldTransform: entity ${view.id}: its position x`;
    assert(lines[0].startsWith(start), lines[0]);
    const hints = [];
    assert.strictEqual(checked(engine, { onHint: (hint) => hints.push(hint) }), engine);
    checked(engine);
    checked(engine, {});
    checked(engine, { onHint: undefined });
    assert.deepStrictEqual(
      warningsOf(() => move(1)),
      []
    );
    assert.strictEqual(hints.length, 1);
    assert.strictEqual(hints[0].entity, view.id + 1);
    checked(engine, { onHint: console.warn });
    assert.strictEqual(hints.length, 1);
  });

  it('are switched off by null, and on again', () => {
    const scene = new Scene().root();
    checked(scene.engine, { onHint: null });
    mistake(scene);
    scene.view.setPosition(1, 5, 5, 5);
    scene.listAll();
    checked(scene.engine, { onHint: (hint) => scene.hints.push(hint) });
    // What happened while hints were off is not reported.
    scene.refresh();
    scene.givesNone();
    scene.listAll();
    mistake(scene, 2);
    assert.strictEqual(scene.take().length, 1);
  });

  it('that are off are not given by any call, nor afterwards for what it did', () => {
    const run = (isOff) => {
      const scene = new Scene().listAll();
      const { engine, view } = scene;
      const onHint = (hint) => scene.hints.push(hint);
      checked(engine, { onHint: isOff ? null : onHint });
      // None of these entities is under a root.
      const clip = scene.clipOf([0, 'EulerX', 90], [0, 'EulerY', 0], [0, 'EulerZ', 0]);
      scene.object(scene.id + 1);
      scene.cull();
      view.worldPosition(2, [0, 0, 0]);
      const inverse = scene.keep(engine.createDataModel(2, new Float32Array(16)));
      const skin = scene.skin(inverse.id, [[0, scene.id + 3]]);
      engine.updateSkinningMatrices(counted(skin.id));
      const animator = scene.animator([[clip.id]], [scene.id]);
      engine.updateAnimators(counted(animator.id));
      const lists = targetLists([[clip.id, [scene.id]]]);
      scene.binding([[clip.id, [scene.id]]]).updateBinding(...lists, 1, 1, 1);
      const hints = scene.take();
      checked(engine, { onHint });
      scene.root();
      scene.givesNone();
      return hints.map(({ call }) => call);
    };
    const calls = ['createDataModel', 'frustumCulling', 'worldPosition', 'updateSkinningMatrices'];
    assert.deepStrictEqual(run(false), calls);
    assert.deepStrictEqual(run(true), []);
  });

  it('refuse other options, without changing the engine', () => {
    const scene = new Scene().root();
    const { engine } = scene;
    for (const options of [null, 7, 'warn', [], () => {}]) {
      assert.throws(() => checked(engine, options), {
        name: 'TypeError',
        message: /^checked: options is .*, not an object: give \{ onHint \}, or leave it out\.$/,
      });
    }
    for (const onHint of [7, 'warn', true, {}]) {
      assert.throws(() => checked(engine, { onHint }), {
        name: 'TypeError',
        message: /^checked: onHint is .*, not a function: give a function, or null for no hints\.$/,
      });
    }
    mistake(scene);
    assert.strictEqual(scene.take().length, 1);
    const native = nq.getEngine();
    assert.throws(() => checked(native, { onHint: 7 }), TypeError);
    assert.throws(() => checked({}, { onHint: () => {} }), /engine is an object/);
  });

  it('of one code end after eight, with a final hint that says so', () => {
    const scene = new Scene(20).root();
    for (let i = 0; i < 12; ++i) {
      scene.view.setPosition(i, 1, 2, 3);
    }
    scene.refresh();
    const hints = scene.take();
    assert.strictEqual(hints.length, kMostOfACode + 1);
    const [last] = hints.slice(-1);
    assert.deepStrictEqual(
      hints.map(({ isLast }) => isLast),
      [...new Array(kMostOfACode).fill(false), true]
    );
    assert.deepStrictEqual(Object.assign({}, last, { message: '' }), {
      code: 'not-listed',
      call: 'refreshWorldTransform',
      entity: null,
      place: '',
      message: '',
      isLast: true,
    });
    assert(/more than 8 hints of the code not-listed.*: fix those/.test(last.message));
    mistake(scene, 15);
    scene.givesNone();
    scene.view.setEuler(16, 90, 0, 0);
    scene.list.append(scene.id + 16);
    scene.refresh();
    assert.strictEqual(scene.take().length, 1); // of another code
  });

  it('are reported after the call was executed, and an onHint that throws makes it throw', () => {
    const scene = new Scene().root();
    const { engine } = scene;
    const seen = [];
    checked(engine, {
      onHint({ entity, message }) {
        seen.push(entity, scene.view.worldPosition(0, [0, 0, 0])[0], scene.dirty[0]);
        throw new Error(message);
      },
    });
    scene.view.setPosition(0, 5, 0, 0);
    scene.view.setPosition(1, 5, 0, 0);
    scene.view.setPosition(2, 5, 0, 0);
    scene.list.append(scene.id);
    assert.throws(() => scene.refresh(), /entity 4097: its position x has changed/);
    assert.deepStrictEqual(seen, [scene.id + 1, 5, 0]);
    // The next hint was kept for the next call, which has none of its own.
    assert.throws(() => scene.refresh(), /entity 4098: its position x has changed/);
    scene.refresh();
    checked(engine, { onHint: () => {} });
  });

  it('may call the engine in onHint', () => {
    const scene = new Scene().root();
    let calls = 0;
    checked(scene.engine, {
      onHint({ entity }) {
        ++calls;
        scene.list.append(entity);
        scene.refresh();
      },
    });
    scene.view.setPosition(0, 7, 0, 0);
    scene.view.setPosition(1, 8, 0, 0);
    scene.refresh();
    assert.strictEqual(calls, 2);
    assert.strictEqual(scene.view.worldPosition(0, [0, 0, 0])[0], 7);
    assert.strictEqual(scene.view.worldPosition(1, [0, 0, 0])[0], 8);
  });

  it('are not reported for a call that is refused', () => {
    const scene = new Scene().root();
    scene.view.setPosition(1, 5, 0, 0);
    scene.view.f32[scene.view.positionAt(2)] = NaN;
    scene.dirty.set([2, scene.id + 2, 0]);
    scene.refuses(() => scene.refresh(), RangeError, 'entry 2: 0 names no entity');
    const args = frustum.slice();
    args[10] = 60;
    const list = counted(99 * 4096);
    scene.refuses(() => scene.engine.frustumCulling(...args, list), RangeError, 'list, entry 0');
    const animator = scene.animator([[scene.clip().id]], [scene.id + 9]);
    over(DataView, animator).setFloat32(4, NaN, true);
    const update = () => scene.engine.updateAnimator(animator.id);
    scene.refuses(update, RangeError, 'entry 0 of the targets');
    scene.givesNone();
    scene.dirty.set([1, scene.id + 2]);
    scene.refresh();
    assert.deepStrictEqual(
      scene.take().map(({ code, entity }) => [code, entity - scene.id]),
      [
        ['nan', 2],
        ['not-listed', 1],
      ]
    );
  });

  it('change no results and no bytes', () => {
    const play = (engine) => {
      const view = new Entity3DView(engine.createEntity(true, 3));
      const clips = [1, 2].map((n) => engine.createDataModel(1, clipBytes(n)));
      const commands = new EntityCommandWriter(engine);
      const dirty = new DirtyListWriter(engine);
      const log = [clips.length];
      for (let i = 0; i < 3; ++i) {
        view.setEuler(i, 90, NaN, i);
        view.setScale(i, 1, 1, 1);
      }
      commands.addRoot(view.handle(0));
      commands.bindToBone(view.handle(1), view.handle(0));
      dirty.appendRange(view.id, 3);
      for (let frame = 0; frame < 3; ++frame) {
        view.setPosition(0, frame, 0, 0);
        log.push(engine.refreshWorldTransform());
        log.push(Buffer.from(over(Uint8Array, view.object)).toString('hex'));
        log.push(Array.from(view.worldMatrix(2, new Float32Array(16))));
        log.push(over(Uint32Array, engine.dirtyEntities).slice(0, 3).join());
      }
      return log;
    };
    const hints = [];
    const guarded = play(checked(nq.getEngine(), { onHint: ({ code }) => hints.push(code) }));
    assert.deepStrictEqual(guarded, play(nq.getEngine()));
    assert(
      ['degrees', 'nan', 'not-listed', 'not-under-root'].every((code) => hints.includes(code))
    );
  });

  it('are reported again for a new entity with the same handle', async () => {
    const scene = new Scene(1).root();
    const place = 'rotation x';
    const err = (object) => {
      new Entity3DView(object).setEuler(0, 90, 0, 0);
      scene.list.append(object.id);
      scene.refresh();
      scene.gives({ code: 'degrees', call: 'refreshWorldTransform', entity: object.id, place });
      return object.id;
    };
    const ids = (() => [1, 2, 3, 4, 5].map(() => err(scene.engine.createEntity(true, 1))))();
    let object;
    const isReused = () => {
      object = scene.engine.createEntity(true, 1);
      return ids.includes(object.id);
    };
    assert(await collectUntil(isReused));
    err(object);
  });
});

describe('programs without a mistake', () => {
  const root = path.join(__dirname, '..', '..', '..');
  const preload = path.join(__dirname, '..', 'process', 'hinted.js');
  const environment = Object.assign({}, process.env);
  for (const name of ['NQ_MODULE', 'NQ_MATRIXFLOW_MODULE']) {
    if (environment[name] !== undefined) {
      environment[name] = path.resolve(environment[name]);
    }
  }

  /** Engines of programs that have several. */
  const engineCounts = { '15-rooms.js': 6 };

  /** Runs a program in checked mode. Returns the lines that it prints; there must be no hint. */
  function run(...args) {
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-hints-'));
    const engines = path.join(folder, 'engines');
    const env = Object.assign({}, environment, { NQ_ENGINES: engines });
    const options = { cwd: root, encoding: 'utf8', env };
    const { status, stdout, stderr } = spawnSync(
      process.execPath,
      ['-r', preload, ...args],
      options
    );
    const count = fs.existsSync(engines) ? fs.statSync(engines).size : 0;
    removeFolder(folder);
    assert.strictEqual(stderr, '');
    assert.strictEqual(status, 0);
    assert.strictEqual(count, engineCounts[path.basename(args[0])] || 1, 'checked engines');
    return stdout.trimRight().split('\n');
  }

  const examples = fs.readdirSync(path.join(root, 'examples')).filter((n) => /^\d\d-/.test(n));

  for (const name of examples) {
    const test = name === '08-matrixflow.js' && flow === null ? it.skip : it;
    test(`get no hint: examples/${name}`, () => {
      const expected = path.join(root, 'examples', 'expected', name.replace(/js$/, 'txt'));
      const lines = fs.readFileSync(expected, 'utf8').trimRight().split('\n');
      assert.deepStrictEqual(run(path.join('examples', name)), lines);
    });
  }

  for (const name of ['first-scene', 'limits']) {
    it(`get no hint: docs/${name}.md`, () => {
      const text = fs.readFileSync(path.join(root, 'docs', `${name}.md`), 'utf8');
      const [, program] = /```js\n([^]*?)```/.exec(text);
      run('-e', program);
    });
  }

  it('get no hint: the demo, of figures and of a model', () => {
    const out = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-hints-'));
    const demo = path.join('demo', 'main.js');
    run(demo, '--characters', '300', '--frames', '20', '--out', out);
    const reed = path.join(out, 'reed.gltf');
    spawnSync(process.execPath, [path.join(root, 'examples', 'reed.js'), reed]);
    run(demo, '--model', reed, '--characters', '5', '--frames', '10', '--out', out);
    removeFolder(out);
  });

  it('fail the test with a mistake', () => {
    const program = `
      const nq = require('./lib');
      const engine = nq.getEngine();
      engine.frustumCulling(1, 0, 0, 1, 0, 0, 0, 0, 1, 0, 60, 1, 1, 9);
    `;
    assert.throws(() => run('-e', program), /hint degrees.*fov is 60/);
  });
});
