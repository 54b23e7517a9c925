'use strict';
// The native interface of single entities in world space, for other native libraries.
const assert = require('assert');
const { addonPath } = require('../support/host');
const { World } = require('../support/world');
const { axisAngle, assertClose } = require('../support/reference');

const addon = require(addonPath);
const quarter = Math.PI / 2;

describe('QueryInterface', () => {
  const { object } = new World().add3D();

  it('returns the entity interface for its name', () => {
    assert.strictEqual(addon.queryInterface(object, 'IEntity'), 'sub-object');
  });

  it('returns null for any other name', () => {
    const names = ['BindingBase', 'BindingEngineBase', 'BindingEngine', 'BindingEngineEntity', ''];
    for (const name of names) {
      assert.strictEqual(addon.queryInterface(object, name), 'none', name);
    }
  });
});

describe('IEntity', () => {
  /** root (10, 0, 0) x2, rotated by 90 degrees about z, with child (1, 0, 0) x(1, 3, 1). */
  function scene() {
    const world = new World();
    const batch = world.add3D(2);
    const flat = world.add2D();
    batch.write(0, {
      position: [10, 0, 0],
      scale: [2, 2, 2],
      quaternion: axisAngle([0, 0, 1], quarter),
    });
    batch.write(1, { position: [1, 0, 0], scale: [1, 3, 1] });
    flat.write(0, { position: [5, 6] });
    world.addRoot(batch.handle(0));
    world.addRoot(flat.handle());
    world.addChild(batch.handle(0), batch.handle(1));
    world.list(batch.handle(0), batch.handle(1), flat.handle());
    world.engine.setEntityName(batch.handle(1), 'child');
    world.engine.setEntityName(flat.handle(), 'flat');
    world.refresh();
    const call = (name, ...args) => addon[name](batch.object, ...args);
    return { world, batch, flat, call, root: batch.handle(0), child: batch.handle(1) };
  }

  it('reads position, rotation and scale of the world matrix', () => {
    const { call, root, child } = scene();
    assertClose(call('getWorldPosition', root), [10, 0, 0]);
    assertClose(call('getWorldPosition', child), [10, 2, 0]);
    assertClose(call('getWorldRotation', root), axisAngle([0, 0, 1], quarter));
    assertClose(call('getWorldRotation', child), axisAngle([0, 0, 1], quarter));
  });

  it('reads the diagonal for the scale, not the lengths of columns', () => {
    const { world, batch, call, root, child } = scene();
    assertClose(call('getWorldScale', root), [0, 0, 2]);
    batch.write(0, { scale: [2, 3, 4] });
    batch.write(1, { scale: [5, 6, 7] });
    world.list(root, child);
    world.refresh();
    assertClose(call('getWorldScale', root), [2, 3, 4]);
    assertClose(call('getWorldScale', child), [10, 18, 28]);
  });

  it('divides the rotation by the current scales of the records', () => {
    const { batch, call, root } = scene();
    // The matrix still has scale 2, and is divided by 4 now: half the rotation matrix is left. With
    // its trace at 0.5, s is sqrt(1.5); w = s / 2 and z = (0.5 + 0.5) / (2 s).
    batch.floats.fill(4, 8, 11);
    const s = Math.sqrt(1.5);
    assertClose(call('getWorldRotation', root), [0, 0, 1 / (2 * s), s / 2]);
  });

  it('counts how often an entity or an ancestor was listed', () => {
    const { world, call, root, child } = scene();
    // Once for itself, once with its parent.
    assert.strictEqual(call('getEntityVersion', root), 1);
    assert.strictEqual(call('getEntityVersion', child), 2);
    world.list(child, child);
    world.refresh();
    assert.strictEqual(call('getEntityVersion', root), 1);
    assert.strictEqual(call('getEntityVersion', child), 4);
    world.list(root);
    world.refresh();
    assert.strictEqual(call('getEntityVersion', root), 2);
    assert.strictEqual(call('getEntityVersion', child), 5);
  });

  it('reads names', () => {
    const { call, root, child } = scene();
    assert.strictEqual(call('getEntityName', child), 'child');
    assert.strictEqual(call('getEntityName', root), '');
  });

  it('finds 3D entities only', () => {
    const { call, flat, batch } = scene();
    for (const handle of [flat.handle(), batch.handle(2), 0, 0xfffff000]) {
      assert.strictEqual(call('getEntityVersion', handle), 0);
      assert.strictEqual(call('getEntityName', handle), null);
      assert.deepStrictEqual(call('getWorldPosition', handle), [0, 0, 0]);
      assert.deepStrictEqual(call('getWorldRotation', handle), [0, 0, 0, 1]);
      assert.deepStrictEqual(call('getWorldScale', handle), [0, 0, 0]);
    }
  });

  it('writes nothing to others', () => {
    const { call, flat, batch } = scene();
    const before = Array.from(flat.floats);
    for (const handle of [flat.handle(), batch.handle(2), 0]) {
      call('setWorldPosition', handle, 1, 2, 3, true);
      call('setWorldRotation', handle, 1, 2, 3, 4, true);
    }
    assert.deepStrictEqual(Array.from(flat.floats), before);
  });

  it('works on entities of any batch of the engine', () => {
    const { world, call } = scene();
    const other = world.add3D();
    other.write(0, { position: [7, 8, 9] });
    world.addRoot(other.handle());
    world.list(other.handle());
    world.refresh();
    assert.deepStrictEqual(call('getWorldPosition', other.handle()), [7, 8, 9]);
  });

  it('stores a world position of an entity without a parent unchanged', () => {
    const { world, batch, call, root } = scene();
    call('setWorldPosition', root, 1, 2, 3, false);
    assert.deepStrictEqual(batch.transform(0).position, [1, 2, 3]);
    // Nothing is marked: it takes effect only when JavaScript lists the entity.
    world.refresh();
    assertClose(call('getWorldPosition', root), [10, 0, 0]);
    world.list(root);
    world.refresh();
    assertClose(call('getWorldPosition', root), [1, 2, 3]);
  });

  it("subtracts the parent's world position, and not its rotation or scale", () => {
    const { batch, call, child } = scene();
    call('setWorldPosition', child, 11, 5, 7, false);
    assertClose(batch.transform(1).position, [1, 5, 7]);
  });

  it('marks the entity dirty, and builds its local matrix if requested', () => {
    const { world, call, root, child } = scene();
    call('setWorldPosition', root, 1, 2, 3, true);
    world.refresh();
    assertClose(call('getWorldPosition', root), [1, 2, 3]);
    // The child follows: its own local matrix translates by 1 to the right, below a root rotated by 90 degrees.
    assertClose(call('getWorldPosition', child), [1, 4, 3]);
    assert.strictEqual(call('getEntityVersion', root), 1);
  });

  it('stores a world rotation in quaternion mode', () => {
    const { world, batch, call, root } = scene();
    batch.bytes[0] = 0;
    const half = axisAngle([1, 0, 0], quarter);
    call('setWorldRotation', root, ...half, false);
    assert.strictEqual(batch.transform(0).rotationMode, 1);
    assertClose(batch.transform(0).rotation, half);
    world.list(root);
    world.refresh();
    assertClose(call('getWorldRotation', root), half);
  });

  it("converts a world rotation relative to the parent's", () => {
    const { world, batch, call, root, child } = scene();
    // Without scale, which the parent's matrix would include.
    batch.write(0, { quaternion: axisAngle([0, 0, 1], quarter) });
    batch.write(1, {});
    world.list(root, child);
    world.refresh();
    call('setWorldRotation', child, ...axisAngle([0, 0, 1], Math.PI), true);
    assertClose(batch.transform(1).rotation, axisAngle([0, 0, 1], quarter));
    world.refresh();
    assertClose(call('getWorldRotation', child), axisAngle([0, 0, 1], Math.PI));
  });

  it("uses the parent's matrix without removing its scale", () => {
    const { batch, call, child } = scene();
    // The parent's matrix is twice a quarter turn around z: with its trace at 2, s is sqrt(3), and
    // the quaternion read off it is z = (2 + 2) / (2 s), w = s / 2. Its conjugate times the identity
    // is stored.
    const s = Math.sqrt(3);
    call('setWorldRotation', child, 0, 0, 0, 1, false);
    assertClose(batch.transform(1).rotation, [0, 0, -2 / s, s / 2]);
  });
});

describe('RefreshEntity', () => {
  it('updates only one entity and its dirty ancestors', () => {
    //  root -- arm -- hand      other
    const world = new World();
    const batch = world.add3D(4);
    for (let i = 0; i < 4; ++i) {
      batch.write(i, { position: [1, 0, 0] });
      batch.poisonMatrix(i);
    }
    world.addChild(batch.handle(0), batch.handle(1));
    world.addChild(batch.handle(1), batch.handle(2));
    world.list(...[0, 1, 2, 3].map((i) => batch.handle(i)));
    addon.refreshEntity(world.engine, batch.handle(1));
    assert.deepStrictEqual(batch.matrix(0).slice(12), [1, 0, 0, 1]);
    assert.deepStrictEqual(batch.matrix(1).slice(12), [2, 0, 0, 1]);
    assert(batch.isPoisoned(2) && batch.isPoisoned(3));
    assert.deepStrictEqual(world.listed(), []);
    assert.strictEqual(world.commands[0], 0);
    // Entities below it are still dirty, and the next walk that reaches them computes them.
    world.addRoot(batch.handle(0));
    world.refresh();
    assert.deepStrictEqual(batch.matrix(2).slice(12), [3, 0, 0, 1]);
  });

  it('runs nothing for an entity that does not exist', () => {
    const world = new World();
    const batch = world.add3D();
    world.addRoot(batch.handle());
    world.list(batch.handle());
    addon.refreshEntity(world.engine, batch.handle() + 1);
    assert.strictEqual(world.commands[0], 8);
    assert.deepStrictEqual(world.listed(), [batch.handle()]);
  });

  it('does nothing at or below an inactive entity, but runs pending commands and the list', () => {
    const world = new World();
    const batch = world.add3D(2);
    batch.write(0, {});
    batch.write(1, {});
    batch.poisonMatrix(0);
    batch.poisonMatrix(1);
    world.addChild(batch.handle(0), batch.handle(1));
    world.deactivate(batch.handle(0));
    world.list(batch.handle(0), batch.handle(1));
    addon.refreshEntity(world.engine, batch.handle(0));
    addon.refreshEntity(world.engine, batch.handle(1));
    assert(batch.isPoisoned(0) && batch.isPoisoned(1));
    assert.strictEqual(world.commands[0], 0);
    assert.deepStrictEqual(world.listed(), []);
  });
});
