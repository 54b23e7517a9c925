'use strict';
// Serves the page on the loopback address, runs the frame loop while pages are connected, and streams to each page what
// its camera sees.
const http = require('http');
const path = require('path');
const { performance } = require('perf_hooks');
const polka = require('polka');
const sirv = require('sirv');
const WebSocket = require('ws');
const { UserError } = require('../demo/user-error');
const protocol = require('./protocol');

/** Only programs on this machine can connect. */
const kAddress = '127.0.0.1';

/** Path of the WebSocket stream. */
const kStreamPath = '/stream';

/** Milliseconds from one frame to the next. */
const kFrameMilliseconds = 1000 / 60;

/** Frames are dropped for a page while so many frames are in flight, or so many bytes are buffered. */
const kMostUndrawn = 3;
const kMostWaitingBytes = 1 << 20;

/**
 * Rate limit: messages and pings per second and page. A page acknowledges each drawn frame, and sends the value of a
 * slider while it moves: some 300 per second on the fastest screens.
 */
const kMostMessagesASecond = 1000;

/** Milliseconds that pages have to close the connection. */
const kGoodbyeMilliseconds = 300;

/** The same after a policy violation: pages that flood the server are slow to read the reason. */
const kReasonMilliseconds = 3000;

/** Close codes of WebSocket: going away, policy violation. */
const kGoingAway = 1001;
const kPolicyViolation = 1008;

const pageFolder = path.join(__dirname, 'page');
const threeFolder = path.dirname(require.resolve('three'));

// The page may load from and connect to this server only.
const headers = {
  'Content-Security-Policy': "default-src 'self'; img-src 'self' data:; frame-ancestors 'none'",
  'X-Content-Type-Options': 'nosniff',
  'Referrer-Policy': 'no-referrer',
};

/** Files by path: those of the page, the protocol that it shares with the server, and three.js. */
function createFiles() {
  // Files are read at each request, so that changes of the page show after a reload.
  const options = { dev: true, dotfiles: false };
  return polka()
    .use((request, response, next) => {
      Object.keys(headers).forEach((name) => response.setHeader(name, headers[name]));
      next();
    })
    .get('/protocol.js', sirv(__dirname, options))
    .use('three', sirv(threeFolder, options))
    .use(sirv(pageFolder, options));
}

/**
 * Handles requests for files, without letting any end the process: a file may be deleted while it is served, and the
 * library throws for a range that ends before it begins. Ranges are ignored, as HTTP allows.
 */
function createHandler() {
  const files = createFiles();
  return (request, response) => {
    delete request.headers.range;
    response.on('pipe', (file) => file.on('error', () => response.destroy()));
    try {
      files.handler(request, response);
    } catch (error) {
      response.destroy();
    }
  };
}

/** A connected page. */
class Viewer {
  /**
   * @param {WebSocket} socket
   * @param {import('./show').Show} show
   */
  constructor(socket, show) {
    this.socket = socket;
    this.show = show;
    this.camera = protocol.cameras.perspective;
    this.aspect = show.usualAspect;
    this.skipped = 0;
    /** Frames sent, oldest first, that the page has not yet drawn. */
    this.undrawn = [];
    /** Buffers of messages that have left the process. */
    this.free = [];
    this.isEnded = false;
    /** Start of the second in which messages are counted, in milliseconds. */
    this.countedFrom = 0;
    this.messages = 0;
    /** Whether a pong is being sent; the last ping that arrived meanwhile, to be answered next. */
    this.isAnswering = false;
    this.ping = null;
    socket.on('message', (data, isBinary) => this.receive(data, isBinary));
    socket.on('ping', (data) => this.answer(data));
    // A broken connection closes itself.
    socket.on('error', () => {});
    socket.send(show.describe());
  }

  /** Closes the connection, even if the page does not answer. */
  end(code, reason) {
    if (this.isEnded) {
      return;
    }
    this.isEnded = true;
    this.socket.close(code, reason);
    const isViolation = code === kPolicyViolation;
    if (isViolation) {
      // Further messages stay unread, and take no memory here.
      this.socket.pause();
    }
    const patience = isViolation ? kReasonMilliseconds : kGoodbyeMilliseconds;
    setTimeout(() => this.socket.terminate(), patience).unref();
  }

  /**
   * Counts a message or ping, and closes the connection of a page that exceeds the rate limit.
   * @returns {boolean} whether to process it
   */
  admit() {
    const now = performance.now();
    if (now - this.countedFrom >= 1000) {
      this.countedFrom = now;
      this.messages = 0;
    }
    if (++this.messages > kMostMessagesASecond) {
      this.end(kPolicyViolation, `over ${kMostMessagesASecond} messages in a second.`);
    }
    return !this.isEnded;
  }

  /**
   * Answers pings one by one: of those that arrive while a pong is being sent, only the last (RFC 6455, 5.5.3), so that
   * pongs never queue up.
   */
  answer(ping) {
    if (!this.admit()) {
      return;
    }
    this.ping = ping;
    if (!this.isAnswering) {
      this.sendPong();
    }
  }

  sendPong() {
    const { ping } = this;
    this.ping = null;
    this.isAnswering = true;
    this.socket.pong(ping, false, () => {
      this.isAnswering = false;
      if (this.ping !== null && !this.isEnded) {
        this.sendPong();
      }
    });
  }

  receive(data, isBinary) {
    if (!this.admit()) {
      return;
    }
    try {
      if (isBinary) {
        throw new RangeError('a control is not binary.');
      }
      const { drawn, camera, aspect, ...asked } = protocol.decodeControls(String(data), this.show);
      if (drawn !== undefined) {
        this.undrawn = this.undrawn.filter((frame) => frame > drawn);
      }
      if (camera !== undefined) {
        this.camera = camera;
      }
      if (aspect !== undefined) {
        this.aspect = aspect;
      }
      this.show.control(asked);
    } catch (error) {
      if (!(error instanceof RangeError)) {
        throw error;
      }
      this.end(kPolicyViolation, error.message);
    }
  }

  /** Whether the page or the connection is too slow. */
  get isBehind() {
    return this.undrawn.length >= kMostUndrawn || this.socket.bufferedAmount > kMostWaitingBytes;
  }

  /** Sends the last frame, or drops it if the page is behind. */
  stream() {
    if (this.socket.readyState !== WebSocket.OPEN) {
      return;
    }
    if (this.isBehind) {
      ++this.skipped;
      return;
    }
    const message = this.show.encode(this, this.skipped, (bytes) => this.takeBuffer(bytes));
    this.undrawn.push(this.show.frame);
    this.socket.send(message, () => this.free.push(message.buffer));
  }

  /** A buffer that is no longer in use. */
  takeBuffer(bytes) {
    const buffer = this.free.pop();
    // With 50 % slack, so that a growing view does not need a new buffer each time.
    return buffer && buffer.byteLength >= bytes ? buffer : new ArrayBuffer(padded(bytes * 1.5));
  }
}

/** Rounds bytes up to whole words. */
function padded(bytes) {
  return 4 * Math.ceil(bytes / 4);
}

/** Rejects a request for the stream, and closes its socket. */
function refuse(socket) {
  // A broken connection closes itself.
  socket.on('error', () => {});
  socket.end('HTTP/1.1 403 Forbidden\r\nConnection: close\r\nContent-Length: 0\r\n\r\n');
  setTimeout(() => socket.destroy(), kGoodbyeMilliseconds).unref();
}

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

/** Owns the server and the frame loop, which runs while pages are connected. */
class ViewerServer {
  /** @param {import('./show').Show} show */
  constructor(show) {
    this.show = show;
    /** @type {Set<Viewer>} */
    this.viewers = new Set();
    /** Open connections of any kind. */
    this.connections = new Set();
    this.isClosing = false;
    this.timer = null;
    this.server = http.createServer(createHandler());
    this.sockets = new WebSocket.Server({
      noServer: true,
      perMessageDeflate: false,
      maxPayload: protocol.kMostControlBytes,
      // Automatic pongs would queue up for a page that pings and does not read.
      autoPong: false,
    });
    this.server.on('connection', (socket) => {
      this.connections.add(socket);
      socket.on('close', () => this.connections.delete(socket));
    });
    this.server.on('upgrade', (request, socket, start) => this.upgrade(request, socket, start));
  }

  /**
   * Starts listening.
   * @param {number} port 0 for any
   * @returns {Promise<string>} the page's address
   * @throws {UserError}
   */
  listen(port) {
    return new Promise((resolve, reject) => {
      this.server.once('error', (error) => reject(listenTrouble(error, port)));
      this.server.listen(port, kAddress, () => {
        this.port = this.server.address().port;
        resolve(`http://${kAddress}:${this.port}/`);
      });
    });
  }

  /** Whether a request comes from our page: scripts of other sites could request the stream, too. */
  isOurs({ headers: { host, origin }, url }) {
    const hosts = [kAddress, 'localhost'].map((name) => `${name}:${this.port}`);
    const isFromPage = origin === undefined || origin === `http://${host}`;
    return url === kStreamPath && hosts.includes(host) && isFromPage;
  }

  upgrade(request, socket, start) {
    if (this.isClosing || !this.isOurs(request)) {
      refuse(socket);
      return;
    }
    this.sockets.handleUpgrade(request, socket, start, (webSocket) => {
      const viewer = new Viewer(webSocket, this.show);
      this.viewers.add(viewer);
      webSocket.on('close', () => this.viewers.delete(viewer));
      this.run();
    });
  }

  /** Runs frames at a fixed rate while pages are connected. */
  run() {
    if (this.timer !== null) {
      return;
    }
    let last = performance.now();
    let next = last;
    const tick = () => {
      if (this.viewers.size === 0) {
        this.timer = null;
        return;
      }
      const now = performance.now();
      this.show.advance(
        (now - last) / 1000,
        Array.from(this.viewers, ({ aspect }) => aspect)
      );
      last = now;
      this.stream();
      // Late frames are not caught up.
      next = Math.max(next + kFrameMilliseconds, performance.now());
      this.timer = setTimeout(tick, Math.max(0, next - performance.now()));
    };
    this.timer = setTimeout(tick, 0);
  }

  /** Sends a frame to all pages, and measures the time. */
  stream() {
    const start = performance.now();
    this.viewers.forEach((viewer) => viewer.stream());
    this.show.times.stream = performance.now() - start;
  }

  /**
   * Disconnects all pages and stops listening.
   * @returns {Promise<void>}
   */
  close() {
    this.isClosing = true;
    clearTimeout(this.timer);
    this.timer = null;
    this.viewers.forEach((viewer) => viewer.end(kGoingAway, 'the server ends'));
    // Keep-alive and idle connections would keep the server open.
    const timer = setTimeout(
      () => this.connections.forEach((socket) => socket.destroy()),
      kGoodbyeMilliseconds
    );
    return new Promise((resolve) => {
      this.server.close(() => {
        clearTimeout(timer);
        resolve();
      });
    });
  }
}

module.exports = { ViewerServer, kMostUndrawn };
