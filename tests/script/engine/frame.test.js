'use strict';
// A frame driven by JavaScript: records, lists, commands, refresh.
const assert = require('assert');
const { World, dirtyListCapacity } = require('../support/world');
const {
  identity,
  multiply,
  axisAngle,
  rotate,
  local3D,
  local2D,
  matrix3,
  assertClose,
  randomNumbers,
} = require('../support/reference');

const quarter = Math.PI / 2;

describe('refreshWorldTransform', () => {
  it('returns null, also without changes', () => {
    const world = new World();
    assert.strictEqual(world.refresh(), null);
    assert.strictEqual(world.engine.refreshWorldTransform(1, 2), null);
  });

  it('computes matrices from position and scale, down the tree', () => {
    //  root (10, 0, 0) x2
    //  +-- arm (1, 2, 3) x1
    //      +-- hand (0.5, 0, 0) x4
    const world = new World();
    const batch = world.add3D(3);
    batch.write(0, { position: [10, 0, 0], scale: [2, 2, 2] });
    batch.write(1, { position: [1, 2, 3] });
    batch.write(2, { position: [0.5, 0, 0], scale: [4, 4, 4] });
    world.addRoot(batch.handle(0));
    world.addChild(batch.handle(0), batch.handle(1));
    world.addChild(batch.handle(1), batch.handle(2));
    world.list(batch.handle(0), batch.handle(1), batch.handle(2));
    world.refresh();
    assert.deepStrictEqual(batch.matrix(0), [2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 10, 0, 0, 1]);
    assert.deepStrictEqual(batch.matrix(1), [2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 12, 4, 6, 1]);
    assert.deepStrictEqual(batch.matrix(2), [8, 0, 0, 0, 0, 8, 0, 0, 0, 0, 8, 0, 13, 4, 6, 1]);
    assert.deepStrictEqual(world.listed(), []);
    assert.strictEqual(world.commands[0], 0);
  });

  it('reads mode 0 as Euler angles and any other as a quaternion, not normalised', () => {
    const world = new World();
    const batch = world.add3D(4);
    const quaternion = [0, 0, Math.SQRT1_2, Math.SQRT1_2];
    for (let i = 0; i < 4; ++i) {
      batch.write(i, { quaternion });
      batch.bytes[i * 108] = [0, 1, 2, 255][i];
      world.addRoot(batch.handle(i));
      world.list(batch.handle(i));
    }
    world.refresh();
    assertClose(batch.matrix(0), local3D({ euler: quaternion.slice(0, 3) }));
    const turned = local3D({ quaternion });
    for (const i of [1, 2, 3]) {
      assertClose(batch.matrix(i), turned);
    }
    // A quarter turn about z maps x to y.
    assertClose(turned.slice(0, 3), [0, 1, 0]);
  });

  it('reads only the first byte of a record as the mode', () => {
    const world = new World();
    const batch = world.add3D();
    batch.write(0, { euler: [0, 0, quarter] });
    batch.bytes.set([0xff, 0xff, 0xff], 1);
    world.addRoot(batch.handle());
    world.list(batch.handle());
    world.refresh();
    assertClose(batch.matrix(), local3D({ euler: [0, 0, quarter] }));
    assert.deepStrictEqual(Array.from(batch.bytes.subarray(0, 4)), [0, 0xff, 0xff, 0xff]);
  });

  it('rotates 2D entities from y towards x', () => {
    const world = new World();
    const batch = world.add2D(2);
    batch.write(0, { angle: quarter, position: [3, 4], scale: [2, 5] });
    batch.write(1, { position: [1, 0] });
    world.addRoot(batch.handle(0));
    world.addChild(batch.handle(0), batch.handle(1));
    world.list(batch.handle(0), batch.handle(1));
    world.refresh();
    assertClose(batch.matrix(0), [0, -2, 0, 5, 0, 0, 3, 4, 1]);
    assertClose(batch.matrix(1), [0, -2, 0, 5, 0, 0, 3, 2, 1]);
  });

  it('computes zero axes for a new record of scale 0', () => {
    const world = new World();
    const batch = world.add3D();
    world.addRoot(batch.handle());
    world.list(batch.handle());
    world.refresh();
    assert.deepStrictEqual(batch.matrix().map(Math.abs), [...new Array(15).fill(0), 1]);
  });

  it('runs commands before the list, and the list before the walk', () => {
    // The child is linked, listed and walked in one call, although its link was written last.
    const world = new World();
    const batch = world.add3D(2);
    batch.write(0, { position: [5, 0, 0] });
    batch.write(1, { position: [0, 7, 0] });
    world.list(batch.handle(1), batch.handle(0));
    world.addRoot(batch.handle(0));
    world.addChild(batch.handle(0), batch.handle(1));
    world.refresh();
    assert.deepStrictEqual(batch.matrix(1).slice(12), [5, 7, 0, 1]);
  });

  it('recomputes only what is dirty', () => {
    const world = new World();
    const batch = world.add3D(3);
    for (let i = 0; i < 3; ++i) {
      batch.write(i, { position: [i, 0, 0] });
      world.addRoot(batch.handle(i));
      world.list(batch.handle(i));
    }
    world.refresh();
    [0, 1, 2].forEach((i) => batch.poisonMatrix(i));
    batch.write(1, { position: [9, 9, 9] });
    world.list(batch.handle(1));
    world.refresh();
    assert.deepStrictEqual(
      [0, 1, 2].map((i) => batch.isPoisoned(i)),
      [true, false, true]
    );
    assert.deepStrictEqual(batch.matrix(1).slice(12), [9, 9, 9, 1]);
  });

  it('recomputes everything below a dirty entity, from unchanged local matrices', () => {
    const world = new World();
    const batch = world.add3D(2);
    batch.write(0, {});
    batch.write(1, { position: [1, 0, 0] });
    world.addRoot(batch.handle(0));
    world.addChild(batch.handle(0), batch.handle(1));
    world.list(batch.handle(0), batch.handle(1));
    world.refresh();
    batch.write(0, { position: [100, 0, 0] });
    batch.write(1, { position: [50, 0, 0] });
    world.list(batch.handle(0));
    world.refresh();
    assert.deepStrictEqual(batch.matrix(1).slice(12), [101, 0, 0, 1]);
    world.list(batch.handle(1));
    world.refresh();
    assert.deepStrictEqual(batch.matrix(1).slice(12), [150, 0, 0, 1]);
  });

  it('does not compute entities under no root', () => {
    const world = new World();
    const batch = world.add3D(2);
    batch.write(0, {});
    batch.write(1, {});
    batch.poisonMatrix(0);
    batch.poisonMatrix(1);
    world.addChild(batch.handle(0), batch.handle(1));
    world.list(batch.handle(0), batch.handle(1));
    world.refresh();
    assert(batch.isPoisoned(0) && batch.isPoisoned(1));
    world.addRoot(batch.handle(0));
    world.refresh();
    assert.deepStrictEqual(batch.matrix(0), identity);
    assert.deepStrictEqual(batch.matrix(1), identity);
  });

  it('skips unknown handles in the list, and accepts duplicates', () => {
    const world = new World();
    const batch = world.add3D(2);
    batch.write(1, { position: [1, 2, 3] });
    world.addRoot(batch.handle(1));
    world.list(0, 77, batch.handle(1), batch.handle(2), 0xffffffff, batch.handle(1), 0x7ffff001);
    world.refresh();
    assert.deepStrictEqual(batch.matrix(1).slice(12), [1, 2, 3, 1]);
    assert.deepStrictEqual(world.listed(), []);
  });

  for (const count of [1, 31, 32, 33, 35, 63, 1000, 4095, dirtyListCapacity]) {
    it(`builds ${count} listed entities`, () => {
      const world = new World();
      const batches = [];
      const at = (i) => [batches[Math.floor(i / 4095)], i % 4095];
      for (let left = count; left > 0; left -= 4095) {
        batches.push(world.add3D(Math.min(left, 4095)));
      }
      for (let done = 0; done < count; done += 5000) {
        for (let i = done; i < Math.min(count, done + 5000); ++i) {
          world.addRoot(at(i)[0].handle(at(i)[1]));
        }
        world.refresh();
      }
      for (let i = 0; i < count; ++i) {
        const [batch, element] = at(i);
        batch.write(element, { position: [i, -i, 0.5], scale: [i + 1, 2, 3] });
        batch.poisonMatrix(element);
        world.dirty[i + 1] = batch.handle(element);
      }
      world.dirty[0] = count;
      world.refresh();
      for (let i = 0; i < count; ++i) {
        const [batch, element] = at(i);
        const expected = [i + 1, 0, 0, 0, 0, 2, 0, 0, 0, 0, 3, 0, i, -i, 0.5, 1];
        const actual = batch.matrix(element);
        for (let k = 0; k < 16; ++k) {
          assert(actual[k] === expected[k], `entity ${i}: ${actual}`);
        }
      }
      assert.deepStrictEqual(world.listed(), []);
    });
  }

  it('agrees with textbook transforms on random trees, over several frames', () => {
    const seed = 20211121;
    const random = randomNumbers(seed);
    const world = new World();
    const count = 300;
    const solid = world.add3D(count);
    const flat = world.add2D(count);
    const parents = [];
    const transforms = { solid: [], flat: [] };
    const number = (scale) => (random() * 2 - 1) * scale;

    function change(i) {
      const axis = [number(1), number(1), number(1)];
      const length = Math.hypot(...axis);
      transforms.solid[i] = {
        position: [number(10), number(10), number(10)],
        scale: [0.5 + random(), 0.5 + random(), 0.5 + random()],
      };
      if (random() < 0.5) {
        transforms.solid[i].quaternion = axisAngle(
          axis.map((value) => value / length),
          number(6)
        );
      } else {
        transforms.solid[i].euler = [number(3), number(3), number(3)];
      }
      transforms.flat[i] = {
        angle: number(3),
        position: [number(10), number(10)],
        scale: [0.5 + random(), 0.5 + random()],
      };
      solid.write(i, transforms.solid[i]);
      flat.write(i, transforms.flat[i]);
      world.list(solid.handle(i), flat.handle(i));
    }

    for (let i = 0; i < count; ++i) {
      // Some twenty trees, shallow enough for small rounding errors.
      parents[i] = i < 20 ? -1 : Math.floor(random() * Math.min(i, 150));
      for (const batch of [solid, flat]) {
        if (parents[i] < 0) {
          world.addRoot(batch.handle(i));
        } else {
          world.addChild(batch.handle(parents[i]), batch.handle(i));
        }
      }
      change(i);
    }
    for (let frame = 0; frame < 5; ++frame) {
      world.refresh();
      const worlds = { solid: [], flat: [] };
      for (let i = 0; i < count; ++i) {
        for (const kind of ['solid', 'flat']) {
          const local = (kind === 'solid' ? local3D : local2D)(transforms[kind][i]);
          worlds[kind][i] = parents[i] < 0 ? local : multiply(worlds[kind][parents[i]], local);
        }
        const message = `seed ${seed}, frame ${frame}, entity ${i}`;
        assertClose(solid.matrix(i), worlds.solid[i], 2e-4, message);
        assertClose(flat.matrix(i), matrix3(worlds.flat[i]), 2e-4, message);
      }
      const changes = [3, 40, 150, 10][frame] || 0;
      for (let k = 0; k < changes; ++k) {
        change(Math.floor(random() * count));
      }
    }
  });
});

describe('entityCommands', () => {
  it('run in order, and the count is 0 afterwards', () => {
    const world = new World();
    const batch = world.add3D(3);
    [0, 1, 2].forEach((i) => batch.write(i, { position: [1, 0, 0] }));
    world.list(batch.handle(0), batch.handle(1), batch.handle(2));
    world.addRoot(batch.handle(0));
    world.addChild(batch.handle(0), batch.handle(1));
    world.addChild(batch.handle(1), batch.handle(2));
    world.removeFromParent(batch.handle(2));
    world.addChild(batch.handle(0), batch.handle(2));
    const words = Array.from(world.commands.subarray(1, 20));
    world.refresh();
    assert.deepStrictEqual(batch.matrix(2).slice(12), [2, 0, 0, 1]);
    assert.strictEqual(world.commands[0], 0);
    assert.deepStrictEqual(Array.from(world.commands.subarray(1, 20)), words);
  });

  it('with a count of 0 are not read', () => {
    const world = new World();
    const batch = world.add3D();
    batch.write(0, {});
    batch.poisonMatrix();
    world.addRoot(batch.handle());
    world.commands[0] = 0;
    world.list(batch.handle());
    world.refresh();
    assert(batch.isPoisoned());
  });

  it('of a thousand unknown numbers do nothing', () => {
    const world = new World();
    world.commands[0] = 4000;
    world.commands.fill(0, 1, 1001);
    world.refresh();
    assert.strictEqual(world.commands[0], 0);
  });

  it('after an unknown number are read word by word', () => {
    const world = new World();
    const batch = world.add3D(2);
    batch.write(0, {});
    batch.write(1, {});
    // 12 has no operands: the next word is a command.
    world.command(12, 1, batch.handle(0));
    // 13's "operand" 1 is AddRoot, with the next word as its handle.
    world.command(13, 1, batch.handle(1));
    world.list(batch.handle(0), batch.handle(1));
    world.refresh();
    assert.deepStrictEqual(batch.matrix(0), identity);
    assert.deepStrictEqual(batch.matrix(1), identity);
  });

  it('link across kinds by InsertChild but not by AddChild', () => {
    const world = new World();
    const solid = world.add3D(2);
    const flat = world.add2D();
    solid.write(0, { position: [10, 20, 30] });
    solid.write(1, {});
    flat.write(0, { position: [1, 2] });
    world.addRoot(solid.handle(0));
    world.addRoot(flat.handle(0));
    world.addChild(solid.handle(0), flat.handle(0));
    world.list(solid.handle(0), solid.handle(1), flat.handle(0));
    world.refresh();
    assert.deepStrictEqual(flat.matrix(), [1, 0, 0, 0, 1, 0, 1, 2, 1]);
    world.insertChild(solid.handle(0), flat.handle(0), 0);
    world.refresh();
    assert.deepStrictEqual(flat.matrix(), [1, 0, 0, 0, 1, 0, 11, 22, 1]);
    // And a 3D entity below the 2D one.
    world.insertChild(flat.handle(0), solid.handle(1), 9);
    world.refresh();
    assert.deepStrictEqual(solid.matrix(1).slice(12), [11, 22, 30, 1]);
  });

  it('do nothing if an entity is added to itself', () => {
    const world = new World();
    const batch = world.add3D();
    batch.write(0, { position: [1, 0, 0] });
    world.addRoot(batch.handle());
    world.addChild(batch.handle(), batch.handle());
    world.insertChild(batch.handle(), batch.handle(), 0);
    world.list(batch.handle());
    world.refresh();
    assert.deepStrictEqual(batch.matrix().slice(12), [1, 0, 0, 1]);
  });

  it('do not make an entity with a parent a root', () => {
    const world = new World();
    const batch = world.add3D(2);
    batch.write(0, {});
    batch.write(1, {});
    batch.poisonMatrix(1);
    world.addChild(batch.handle(0), batch.handle(1));
    world.addRoot(batch.handle(1));
    world.list(batch.handle(1));
    world.refresh();
    assert(batch.isPoisoned(1));
  });

  it('detach a child, which keeps its matrix', () => {
    const world = new World();
    const batch = world.add3D(2);
    batch.write(0, { position: [5, 0, 0] });
    batch.write(1, { position: [1, 0, 0] });
    world.addRoot(batch.handle(0));
    world.addChild(batch.handle(0), batch.handle(1));
    world.list(batch.handle(0), batch.handle(1));
    world.refresh();
    world.removeFromParent(batch.handle(1));
    world.addRoot(batch.handle(1));
    world.refresh();
    assert.deepStrictEqual(batch.matrix(1).slice(12), [6, 0, 0, 1]);
    world.list(batch.handle(1));
    world.refresh();
    assert.deepStrictEqual(batch.matrix(1).slice(12), [1, 0, 0, 1]);
  });

  it('reset the links of a subtree, but not records or children of others', () => {
    //  root -- a -- b        other -- c
    const world = new World();
    const batch = world.add3D(5);
    for (let i = 0; i < 5; ++i) {
      batch.write(i, { position: [i + 1, 0, 0] });
      world.list(batch.handle(i));
    }
    world.addRoot(batch.handle(0));
    world.addRoot(batch.handle(3));
    world.addChild(batch.handle(0), batch.handle(1));
    world.addChild(batch.handle(1), batch.handle(2));
    world.addChild(batch.handle(3), batch.handle(4));
    world.refresh();
    assert.deepStrictEqual(batch.matrix(2).slice(12), [6, 0, 0, 1]);
    const before = batch.transform(2);
    world.resetSubtree(batch.handle(1));
    for (let i = 0; i < 5; ++i) {
      batch.poisonMatrix(i);
      world.list(batch.handle(i));
    }
    world.refresh();
    assert.deepStrictEqual(
      [0, 1, 2, 3, 4].map((i) => batch.isPoisoned(i)),
      [false, true, true, false, false]
    );
    assert.deepStrictEqual(batch.transform(2), before);
    // The former children have no parent, so they can be roots.
    world.addRoot(batch.handle(2));
    world.refresh();
    assert.deepStrictEqual(batch.matrix(2).slice(12), [3, 0, 0, 1]);
  });

  it('stop and resume computation below an inactive entity', () => {
    //  root -- arm -- hand
    const world = new World();
    const batch = world.add3D(3);
    for (let i = 0; i < 3; ++i) {
      batch.write(i, { position: [1, 0, 0] });
      world.list(batch.handle(i));
    }
    world.addRoot(batch.handle(0));
    world.addChild(batch.handle(0), batch.handle(1));
    world.addChild(batch.handle(1), batch.handle(2));
    world.refresh();
    world.deactivate(batch.handle(1));
    batch.write(0, { position: [10, 0, 0] });
    batch.write(2, { position: [7, 0, 0] });
    batch.poisonMatrix(1);
    batch.poisonMatrix(2);
    world.list(batch.handle(0), batch.handle(2));
    world.refresh();
    assert.deepStrictEqual(batch.matrix(0).slice(12), [10, 0, 0, 1]);
    assert(batch.isPoisoned(1) && batch.isPoisoned(2));
    world.refresh();
    assert(batch.isPoisoned(1) && batch.isPoisoned(2));
    world.activate(batch.handle(1));
    world.refresh();
    assert.deepStrictEqual(batch.matrix(1).slice(12), [11, 0, 0, 1]);
    assert.deepStrictEqual(batch.matrix(2).slice(12), [18, 0, 0, 1]);
  });

  it('mark nothing when an active entity is activated', () => {
    const world = new World();
    const batch = world.add3D();
    batch.write(0, {});
    world.addRoot(batch.handle());
    world.list(batch.handle());
    world.refresh();
    batch.poisonMatrix();
    world.activate(batch.handle());
    world.refresh();
    assert(batch.isPoisoned());
  });

  it('ignore unknown handles', () => {
    const world = new World();
    const batch = world.add3D();
    batch.write(0, {});
    const nobody = batch.handle() + 1;
    world.addRoot(nobody);
    world.addChild(batch.handle(), nobody);
    world.addChild(nobody, batch.handle());
    world.insertChild(nobody, batch.handle(), 0);
    world.insertChild(batch.handle(), 0x99000, 0);
    world.removeFromParent(0);
    world.resetSubtree(nobody);
    world.bind(nobody, batch.handle());
    world.bind(batch.handle(), nobody);
    world.bindBatch([nobody, batch.handle()], [batch.handle(), nobody]);
    world.unbind(nobody);
    world.unbindBatch([nobody, 0]);
    world.bindBatch([], []);
    world.unbindBatch([]);
    world.activate(nobody);
    world.deactivate(0xffffffff);
    world.addRoot(batch.handle());
    world.list(batch.handle());
    world.refresh();
    assert.deepStrictEqual(batch.matrix(), identity);
    assert.deepStrictEqual(world.listed(), []);
  });

  it('may fill the whole buffer', () => {
    // 49148 bytes after the count: 6143 roots and a single word at the end.
    const world = new World();
    const first = world.add3D(4095);
    const second = world.add3D(2048);
    const handles = [];
    for (let i = 0; i < 6143; ++i) {
      const [batch, element] = i < 4095 ? [first, i] : [second, i - 4095];
      batch.write(element, { position: [i, 0, 0] });
      handles.push(batch.handle(element));
      world.addRoot(batch.handle(element));
    }
    world.command(0);
    assert.strictEqual(world.commands[0], 49148);
    world.list(...handles);
    world.refresh();
    assert.deepStrictEqual(first.matrix(0).slice(12), [0, 0, 0, 1]);
    assert.deepStrictEqual(first.matrix(4094).slice(12), [4094, 0, 0, 1]);
    assert.deepStrictEqual(second.matrix(2047).slice(12), [6142, 0, 0, 1]);
  });
});

describe('bound entities', () => {
  /** root -- bone, with two 3D entities and a 2D one bound to the bone. */
  function skeleton() {
    const world = new World();
    const bones = world.add3D(2);
    const bound = world.add3D(2);
    const flat = world.add2D();
    bones.write(0, { position: [10, 0, 0], scale: [2, 2, 2] });
    bones.write(1, { position: [1, 2, 3], quaternion: axisAngle([0, 0, 1], quarter) });
    bound.write(0, { position: [99, 99, 99] });
    bound.write(1, { position: [98, 98, 98] });
    flat.write(0, { position: [5, 5] });
    world.addRoot(bones.handle(0));
    world.addChild(bones.handle(0), bones.handle(1));
    world.addRoot(bound.handle(0));
    world.addRoot(bound.handle(1));
    world.bindBatch(
      [bound.handle(0), bound.handle(1), flat.handle()],
      [bones.handle(1), bones.handle(1), bones.handle(1)]
    );
    world.list(bones.handle(0), bones.handle(1));
    return { world, bones, bound, flat };
  }

  it("receive the bone's transform and stay listed for the next frame", () => {
    const { world, bones, bound, flat } = skeleton();
    world.refresh();
    assert.deepStrictEqual(world.listed(), [bound.handle(0), bound.handle(1)]);
    for (const i of [0, 1]) {
      const { rotationMode, rotation, position, scale } = bound.transform(i);
      assert.strictEqual(rotationMode, 1);
      assert.deepStrictEqual(position, [12, 4, 6]);
      assertClose(scale, [2, 2, 2]);
      assertClose(rotation, axisAngle([0, 0, 1], quarter));
    }
    assert.deepStrictEqual(Array.from(flat.floats.subarray(1, 3)), [5, 5]);
    // JavaScript appends after them, and keeps them.
    world.list(flat.handle());
    world.addRoot(flat.handle());
    bound.poisonMatrix(0);
    world.refresh();
    assertClose(bound.matrix(0), bones.matrix(1));
    assertClose(bound.matrix(1), bones.matrix(1));
    assert.deepStrictEqual(flat.matrix().slice(6), [5, 5, 1]);
    assert.deepStrictEqual(world.listed(), []);
  });

  it('follow only the bone, regardless of their own parent', () => {
    const { world, bound } = skeleton();
    const parent = world.add3D();
    parent.write(0, { position: [1000, 0, 0] });
    world.addRoot(parent.handle());
    world.insertChild(parent.handle(), bound.handle(0), 0);
    world.list(parent.handle());
    world.refresh();
    assert.deepStrictEqual(bound.transform(0).position, [12, 4, 6]);
    world.refresh();
    assertClose(bound.matrix(0).slice(12), [1012, 4, 6, 1]);
  });

  it('are not updated while inactive, or after they are unbound', () => {
    const { world, bones, bound } = skeleton();
    world.deactivate(bound.handle(0));
    world.unbind(bound.handle(1));
    world.refresh();
    assert.deepStrictEqual(world.listed(), []);
    assert.deepStrictEqual(bound.transform(0).position, [99, 99, 99]);
    assert.deepStrictEqual(bound.transform(1).position, [98, 98, 98]);
    world.activate(bound.handle(0));
    world.list(bones.handle(1));
    world.refresh();
    assert.deepStrictEqual(world.listed(), [bound.handle(0)]);
    world.unbindBatch([bound.handle(0), bound.handle(1)]);
    world.list(bones.handle(1));
    world.refresh();
    assert.deepStrictEqual(world.listed(), []);
  });

  it('do not follow a 2D bone', () => {
    const world = new World();
    const bone = world.add2D();
    const bound = world.add3D();
    bone.write(0, { position: [3, 4] });
    bound.write(0, { position: [9, 9, 9] });
    world.addRoot(bone.handle());
    world.bind(bound.handle(), bone.handle());
    world.list(bone.handle());
    world.refresh();
    assert.deepStrictEqual(world.listed(), []);
    assert.deepStrictEqual(bound.transform(0).position, [9, 9, 9]);
  });

  it('follow the bone that they were bound to last', () => {
    const { world, bones, bound } = skeleton();
    world.bind(bound.handle(0), bones.handle(0));
    world.refresh();
    assert.deepStrictEqual(bound.transform(0).position, [10, 0, 0]);
    assert.deepStrictEqual(bound.transform(1).position, [12, 4, 6]);
    assert.deepStrictEqual(world.listed(), [bound.handle(0), bound.handle(1)]);
  });

  it('are dropped from a full list without a log line', () => {
    const world = new World();
    const bone = world.add3D();
    bone.write(0, { position: [1, 2, 3] });
    world.addRoot(bone.handle());
    world.list(bone.handle());
    world.refresh();
    const batches = [world.add3D(4095), world.add3D(4095), world.add3D(4095), world.add3D(3)];
    for (const batch of batches) {
      const handles = [];
      for (let i = 0; i < batch.count; ++i) {
        handles.push(batch.handle(i));
      }
      world.bindBatch(handles, new Array(batch.count).fill(bone.handle()));
      world.refresh();
    }
    assert.deepStrictEqual(world.listed(), []);
    world.list(bone.handle());
    world.refresh();
    // 12288 entities are bound; the last one finds the list full.
    assert.strictEqual(world.dirty[0], dirtyListCapacity);
    assert.strictEqual(new Set(world.listed()).size, dirtyListCapacity);
    let written = 0;
    for (const batch of batches) {
      for (let i = 0; i < batch.count; ++i) {
        written += batch.transform(i).position[2] === 3 ? 1 : 0;
      }
    }
    assert.strictEqual(written, dirtyListCapacity + 1);
  });
});

describe('a frame', () => {
  it('of commands, 3D and 2D trees and bound entities gives all expected matrices', () => {
    //  ship (3D root)                      sign (2D root)
    //  +-- turret        <- flare (bound)  +-- letter
    //      +-- barrel
    const world = new World();
    const ship = world.add3D(3);
    const flare = world.add3D();
    const sign = world.add2D(2);
    const pose = (heading) => [
      { position: [heading, 0, -4], quaternion: axisAngle([0, 1, 0], heading), scale: [2, 2, 2] },
      { position: [0, 1, 0], euler: [0, heading / 2, 0] },
      { position: [0, 0, 3], euler: [0.25, 0, 0] },
    ];
    world.addRoot(ship.handle(0));
    world.addChild(ship.handle(0), ship.handle(1));
    world.addChild(ship.handle(1), ship.handle(2));
    world.addRoot(flare.handle());
    world.bind(flare.handle(), ship.handle(1));
    world.addRoot(sign.handle(0));
    world.insertChild(sign.handle(0), sign.handle(1), 0);
    flare.write(0, { position: [-1, -1, -1] });
    let turretBefore = null;
    for (let frame = 0; frame < 4; ++frame) {
      const heading = 0.3 * frame;
      const locals = pose(heading);
      const flat = [{ angle: heading, position: [1, 2], scale: [2, 1] }, { position: [frame, 0] }];
      locals.forEach((transform, i) => ship.write(i, transform));
      flat.forEach((transform, i) => sign.write(i, transform));
      const left = world.listed();
      assert.deepStrictEqual(left, frame === 0 ? [] : [flare.handle()]);
      world.list(ship.handle(0), ship.handle(1), ship.handle(2), sign.handle(0), sign.handle(1));
      assert.strictEqual(world.dirty[0], left.length + 5);
      assert.strictEqual(world.refresh(), null);
      const hull = local3D(locals[0]);
      const turret = multiply(hull, local3D(locals[1]));
      assertClose(ship.matrix(0), hull, 1e-5, `frame ${frame}`);
      assertClose(ship.matrix(1), turret, 1e-5, `frame ${frame}`);
      assertClose(ship.matrix(2), multiply(turret, local3D(locals[2])), 1e-5, `frame ${frame}`);
      const board = local2D(flat[0]);
      assertClose(sign.matrix(0), matrix3(board), 1e-5, `frame ${frame}`);
      assertClose(sign.matrix(1), matrix3(multiply(board, local2D(flat[1]))), 1e-5);
      // The flare's record shows this frame's turret, its matrix that of the frame before.
      const record = flare.transform(0);
      assert.strictEqual(record.rotationMode, 1);
      assertClose(record.position, turret.slice(12, 15));
      assertClose(record.scale, [2, 2, 2]);
      assertClose(
        rotate(record.rotation, [0, 0, 1]),
        turret.slice(8, 11).map((value) => value / 2)
      );
      if (turretBefore !== null) {
        assertClose(flare.matrix(), turretBefore, 1e-5, `frame ${frame}`);
      }
      turretBefore = turret;
      assert.deepStrictEqual(world.listed(), [flare.handle()]);
      assert.strictEqual(world.commands[0], 0);
    }
  });
});
