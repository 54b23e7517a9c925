'use strict';
// What the module and the addon print. Standard output is a pipe here, so text arrives late or never
// unless it is flushed. `log.js CASE`.
const assert = require('assert');
const { World } = require('../support/world');
const { addonPath } = require('../support/host');

const cases = {
  /** Binds a to b and then b to a; a is 4096, b is 8192. */
  bindingCycle() {
    const world = new World();
    const [a, b] = [world.add3D(), world.add3D()];
    world.bind(a.handle(), b.handle());
    world.bind(b.handle(), a.handle());
    world.refresh();
  },
  /** A cycle of three entities, and an entity bound to itself. */
  longBindingCycle() {
    const world = new World();
    const batch = world.add3D(4);
    const h = batch.handle();
    world.bind(h, h + 1);
    world.bind(h + 1, h + 2);
    world.bind(h + 2, h);
    world.bind(h + 3, h + 3);
    world.refresh();
  },
  /** A bone of scale 0, recomputed twice; one of its two bound entities is an active 3D one. */
  flatBone() {
    const world = new World();
    const bone = world.add3D();
    const bound = world.add3D(2);
    const flat = world.add2D();
    bone.write(0, { position: [5, 6, 7], scale: [1, 0, 1] });
    world.addRoot(bone.handle());
    world.bindBatch([bound.handle(0), flat.handle()], [bone.handle(), bone.handle()]);
    world.list(bone.handle());
    world.refresh();
    world.list(bone.handle());
    world.refresh();
    assert.deepStrictEqual(bound.transform(0), {
      rotationMode: 1,
      rotation: [0, 0, 0, 1],
      position: [0, 0, 0],
      scale: [1, 1, 1],
    });
  },
  /** The same with bound entities that are inactive or 2D: no warning. */
  flatBoneOfNobody() {
    const world = new World();
    const bone = world.add3D();
    const bound = world.add3D();
    const flat = world.add2D();
    bone.write(0, { scale: [0, 0, 0] });
    world.addRoot(bone.handle());
    world.deactivate(bound.handle());
    world.bindBatch([bound.handle(0), flat.handle()], [bone.handle(), bone.handle()]);
    world.list(bone.handle());
    world.refresh();
  },
  /** A root that is its own grandchild. */
  parentCycle() {
    require(addonPath).bufferOutput();
    const world = new World();
    const [a, b] = [world.add3D(), world.add3D()];
    a.write(0, {});
    b.write(0, {});
    world.addRoot(a.handle());
    world.addChild(a.handle(), b.handle());
    world.addChild(b.handle(), a.handle());
    world.refresh();
  },
  failInWorker() {
    require(addonPath).bufferOutput();
    require(addonPath).failInWorker(new World().engine);
  },
  failHere() {
    require(addonPath).bufferOutput();
    require(addonPath).failHere();
  },
};

cases[process.argv[2]]();
