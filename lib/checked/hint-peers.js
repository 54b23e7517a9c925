'use strict';
// What checked engines know of each other: which handles one has listed without a change, and which
// entities of another have changed without being listed. A number that is in both was meant for the other.
const { onCollected } = require('./watch');

/** Peers of all engines that have not been collected. */
const peers = new Set();

/** Refreshes of all engines so far. */
let clock = 0;

/** What others may know of an engine; it must not refer to the engine, which it would keep alive. */
class Peer {
  constructor() {
    /** Time of the last refresh. */
    this.refreshed = 0;
    /** When a handle was listed last without a change, and when it was changed and not listed. */
    this.idle = new Map();
    this.stale = new Map();
  }

  /** True if there is another engine. */
  get hasOthers() {
    return peers.size > 1;
  }

  /** Begins a refresh. */
  advance() {
    ++clock;
  }

  /** Ends what `advance` has begun. */
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
