'use strict';
// The rooms of example 15, in a Worker: a scene and an engine each. Engines stay until the process ends, so those of
// closed rooms are used again.
const { threadId } = require('worker_threads');
const { move } = require('piscina');
const { getEngine } = require('../lib');
const { Scene } = require('../scene');

const rooms = new Map();
const engines = [];

/** A table that turns, with players around it at distances of 1, 2, 3 and so on. */
class Room {
  constructor({ players, radiansPerSecond }) {
    this.scene = new Scene({ engine: engines.pop() || getEngine() });
    this.table = this.scene.node();
    this.players = Array.from({ length: players }, (_, i) =>
      this.scene.node({ position: [1 + i, 0, 0], parent: this.table })
    );
    this.radiansPerSecond = radiansPerSecond;
    this.seconds = 0;
  }

  /** Runs a tick, and writes where players are: x, y, z each. */
  tick(seconds, places) {
    this.seconds += seconds;
    this.table.setEuler(0, this.radiansPerSecond * this.seconds, 0);
    this.scene.update(seconds);
    this.players.forEach((player, i) => player.readWorldPosition(places, 3 * i));
  }
}

function roomOf(id) {
  if (!rooms.has(id)) {
    // The pool replaces a Worker that has failed, by one without rooms.
    throw new RangeError(`room ${id} is not in this Worker: open it again from its last snapshot.`);
  }
  return rooms.get(id);
}

module.exports = {
  open({ id, options }) {
    rooms.set(id, new Room(options));
    return threadId;
  },
  tick({ id, seconds, places }) {
    roomOf(id).tick(seconds, places);
    return move(places); // its memory goes to the thread that asked
  },
  close({ id }) {
    const { scene } = roomOf(id);
    rooms.delete(id);
    scene.dispose();
    engines.push(scene.engine);
  },
};
