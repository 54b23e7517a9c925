'use strict';
// Levels of a game: in each, a writer or a view is created, used often, and collected. Prints, as JSON, nanoseconds per
// call in each level, by class. With --expose-gc.
const { DirtyListWriter, EntityCommandWriter, MatrixFlowWriter } = require('../../../lib/commands');
const { Entity3DView } = require('../../../lib/views');
const { entity3D } = require('../../../lib/layout');

const levels = 6;
const rounds = 20;
const perRound = 5000;
const bytes = 4 + 28 * perRound;

/** A level. Creation and use are in one function: otherwise the slowdown does not occur. */
const plays = {
  EntityCommandWriter() {
    const writer = new EntityCommandWriter({ entityCommands: new ArrayBuffer(bytes) });
    for (let round = 0; round < rounds; ++round) {
      writer.clear();
      for (let i = 0; i < perRound; ++i) {
        writer.addChild(i, i + 1);
      }
    }
  },
  DirtyListWriter() {
    const writer = new DirtyListWriter({ dirtyEntities: new ArrayBuffer(bytes) });
    for (let round = 0; round < rounds; ++round) {
      writer.clear();
      for (let i = 0; i < perRound; ++i) {
        writer.append(i);
      }
    }
  },
  MatrixFlowWriter() {
    const writer = new MatrixFlowWriter({ buffer: new ArrayBuffer(bytes) });
    for (let round = 0; round < rounds; ++round) {
      writer.reset();
      for (let i = 0; i < perRound; ++i) {
        writer.scalarAdd(1, 2, 3, 4, 5, 6);
      }
    }
  },
  Entity3DView() {
    const buffer = new ArrayBuffer(perRound * entity3D.size);
    const view = new Entity3DView({ id: 0, buffer });
    for (let round = 0; round < rounds; ++round) {
      for (let i = 0; i < perRound; ++i) {
        view.setPosition(i, 1, 2, 3);
      }
    }
  },
};

const times = {};
for (const name of Object.keys(plays)) {
  times[name] = [];
  for (let level = 0; level < levels; ++level) {
    global.gc();
    const start = process.hrtime.bigint();
    plays[name]();
    times[name].push(Number(process.hrtime.bigint() - start) / (rounds * perRound));
  }
}
process.stdout.write(JSON.stringify(times));
