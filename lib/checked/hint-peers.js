'use strict';
// State that checked engines share to find handles written to the wrong engine: handles that one has listed
// without a change, and entities of another that have changed without being listed. A handle that is in both was
// listed in the wrong engine.
const { onCollected } = require('./watch');

/** Peers of all engines that have not been collected. */
const peers = new Set();

/** Refreshes of all engines so far. */
let clock = 0;

/** State of an engine that others read; it must not refer to the engine, which it would keep alive. */
class Peer {
  constructor() {
    /** Time of the last refresh. */
    this.refreshed = 0;
    /** When a handle was last listed without a change, and when its entity was changed and not listed. */
    this.idle = new Map();
    this.stale = new Map();
  }

  /** True if there is another engine. */
  get hasOthers() {
    return peers.size > 1;
  }

  /** Starts a refresh. */
  advance() {
    ++clock;
  }

  /** Ends the refresh that `advance` started. */
  settle() {
    this.refreshed = clock;
  }

  noteIdle(handle) {
    this.idle.set(handle, clock);
  }

  noteStale(handle) {
    this.stale.set(handle, clock);
  }

  /**
   * True if another engine has noted a handle since the last refresh of this one.
   * @param {'idle'|'stale'} what
   */
  isNotedElsewhere(what, handle) {
    for (const peer of peers) {
      if (peer !== this && peer[what].get(handle) > this.refreshed) {
        return true;
      }
    }
    return false;
  }
}

/**
 * The peer of an engine.
 * @param {Object} state lives as long as the engine or an object of it
 */
function makePeer(state) {
  const peer = new Peer();
  peers.add(peer);
  onCollected(state, () => peers.delete(peer));
  return peer;
}

module.exports = { makePeer };
