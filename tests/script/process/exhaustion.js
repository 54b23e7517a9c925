'use strict';
// Blocks that exceed the memory, and parent cycles. `exhaustion.js CASE`.
const fs = require('fs');
const { modulePath } = require('../support/host');
const library = require('../../../lib');

const engine = require(modulePath).getEngine();

/** Three entities in a parent cycle: 0 above 1 above 2 above 0. With a root, entity 0 is made one first. */
function refreshCircle(hasRoot) {
  const view = new library.Entity3DView(engine.createEntity(true, 3));
  const commands = new library.EntityCommandWriter(engine);
  if (hasRoot) {
    commands.addRoot(view.handle(0));
  }
  for (let i = 0; i < 3; ++i) {
    view.reset(i);
    commands.addChild(view.handle(i), view.handle((i + 1) % 3));
  }
  new library.DirtyListWriter(engine).appendRange(view.id, 3);
  engine.refreshWorldTransform();
  engine.refreshWorldTransform();
}

const cases = {
  /** A block of 2 GB, for the targets of an animator. */
  block: () => engine.createComponent(2, 1, 0x20000000),

  /** Batches until there is no memory left. */
  batches() {
    for (const kept = []; ; ) {
      kept.push(engine.createEntity(true, 4095));
    }
  },

  circleUnwalked: () => refreshCircle(false),
  circleWalked: () => refreshCircle(true),
};

fs.writeSync(1, 'about to end\n');
cases[process.argv[2]]();
