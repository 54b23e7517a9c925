'use strict';
// The frame loop of the viewer, which runs while pages are connected to its server.
const { performance } = require('perf_hooks');
const { UserError } = require('../demo/user-error');
const { PageServer, kAddress } = require('../lib/scene/inspect/server');

/** Milliseconds from one frame to the next. */
const kFrameMilliseconds = 1000 / 60;

/** A readable error for a failed `listen`. */
function listenTrouble(error, port) {
  const words = {
    EADDRINUSE: 'it is in use',
    EACCES: 'permission is denied',
  };
  const trouble = words[error.code] || error.message;
  const cure = 'choose another one with --port, or 0 for any free port';
  return new UserError(`port ${port} of ${kAddress} can't be opened, ${trouble}: ${cure}.`);
}

/** Owns the server and the frame loop. */
class ViewerServer extends PageServer {
  /** @param {import('./show').Show} show */
  constructor(show) {
    super(show, { changed: () => this.run() });
    this.show = show;
    this.timer = null;
  }

  /**
   * Starts listening.
   * @param {number} port 0 for any
   * @returns {Promise<string>} the page's address
   * @throws {UserError}
   */
  async listen(port) {
    try {
      return await super.listen(port);
    } catch (error) {
      throw listenTrouble(error, port);
    }
  }

  /** Runs frames at a fixed rate while pages are connected. */
  run() {
    if (this.timer !== null || this.isClosing) {
      return;
    }
    let last = performance.now();
    let next = last;
    const tick = () => {
      if (this.pages.size === 0) {
        this.timer = null;
        return;
      }
      const now = performance.now();
      this.show.advance(
        (now - last) / 1000,
        Array.from(this.pages, ({ aspect }) => aspect)
      );
      last = now;
      this.stream();
      // Late frames are not caught up.
      next = Math.max(next + kFrameMilliseconds, performance.now());
      this.timer = setTimeout(tick, Math.max(0, next - performance.now()));
    };
    this.timer = setTimeout(tick, 0);
  }

  /** Sends a frame to all pages, and measures the time, which they are sent with the next one. */
  stream() {
    const start = performance.now();
    super.stream();
    this.show.times.stream = performance.now() - start;
  }

  close() {
    clearTimeout(this.timer);
    this.timer = null;
    return super.close();
  }
}

module.exports = { ViewerServer };
