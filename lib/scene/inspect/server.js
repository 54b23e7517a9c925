'use strict';
// Serves the page on the loopback address, and streams to each page that is open what its camera sees of a source: of a
// scene, or of another program's crowd. Uses Node.js alone, so that it runs from the installed package.
const fs = require('fs');
const http = require('http');
const path = require('path');
const { performance } = require('perf_hooks');
const protocol = require('./protocol');
const { WebSocketConnection, closeCodes, isWebSocketRequest } = require('./websocket');

/** Only programs on this machine can connect. */
const kAddress = '127.0.0.1';

/** Path of the WebSocket stream. */
const kStreamPath = '/stream';

/** Frames are dropped for a page while so many frames are in flight, or so many bytes are buffered. */
const kMostUndrawn = 3;
const kMostWaitingBytes = 1 << 20;

/**
 * Rate limit: messages and pings per second and page. A page acknowledges each drawn frame, and sends the value of a
 * slider while it moves: some 300 per second on the fastest screens.
 */
const kMostMessagesASecond = 1000;

/** Pages at once. */
const kMostPages = 32;

/** Milliseconds that pages have to close the connection. */
const kGoodbyeMilliseconds = 300;

/** The same after a policy violation: pages that flood the server are slow to read the reason. */
const kReasonMilliseconds = 3000;

const html = 'text/html; charset=utf-8';
const script = 'text/javascript; charset=utf-8';
const pageFolder = path.join(__dirname, 'page');

/** All that is served: files and their types by path. */
const files = new Map([
  ['/', [path.join(pageFolder, 'index.html'), html]],
  ['/protocol.js', [path.join(__dirname, 'protocol.js'), script]],
  ['/style.css', [path.join(pageFolder, 'style.css'), 'text/css; charset=utf-8']],
  ...['chart', 'main', 'matrices', 'picture', 'shaders', 'stream', 'turns'].map((name) => [
    `/${name}.js`,
    [path.join(pageFolder, `${name}.js`), script],
  ]),
]);

// The page may load from and connect to this server only.
const headers = {
  'Content-Security-Policy': "default-src 'self'; img-src 'self' data:; frame-ancestors 'none'",
  'X-Content-Type-Options': 'nosniff',
  'Referrer-Policy': 'no-referrer',
  'Cache-Control': 'no-cache',
};

/** Answers with a line of text. */
function answer(response, status, text) {
  response.writeHead(status, Object.assign({ 'Content-Type': 'text/plain' }, headers));
  response.end(`${text}\n`);
}

/** Sends a file, which is read at each request, so that changes of the page show after a reload. */
function sendFile([file, type], isHead, response) {
  fs.readFile(file, (error, bytes) => {
    if (error !== null) {
      answer(response, 500, 'this file of the page is missing: install the package again.');
      return;
    }
    const own = { 'Content-Type': type, 'Content-Length': bytes.length };
    response.writeHead(200, Object.assign(own, headers));
    response.end(isHead ? undefined : bytes);
  });
}

/** Rounds bytes up to whole words. */
function padded(bytes) {
  return 4 * Math.ceil(bytes / 4);
}

/**
 * What pages are shown.
 * @typedef {Object} Source
 * @property {import('./costs').Costs} costs of its frames
 * @property {number} frameNumber of the last frame for pages, from 1
 * @property {number} version changes whenever pages need a new scene message
 * @property {{sliders: import('./protocol').Slider[], cameras: number, canPause: boolean}} limits of controls
 * @property {number} usualAspect width over height of a page that has not yet sent its own
 * @property {function(): ArrayBuffer} describe the scene message
 * @property {function(Page, number, function(number): ArrayBuffer): Uint8Array} encode the last frame for a page, with the
 *   number of frames that were dropped, into a buffer of at least so many bytes
 * @property {function(Object)} control applies sliders, and `paused`
 */

/** An open page. */
class Page {
  /**
   * @param {import('http').IncomingMessage} request
   * @param {import('net').Socket} socket
   * @param {Buffer} start
   * @param {Source} source
   * @param {function(Page)} closed
   */
  constructor(request, socket, start, source, closed) {
    this.source = source;
    this.camera = 0;
    this.aspect = source.usualAspect;
    /** Number of frames whose costs it was sent, or that were before it. */
    this.costsAt = 0;
    this.skipped = 0;
    /** Version of the scene message that it was sent. */
    this.version = -1;
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
    this.socket = new WebSocketConnection(request, socket, start, {
      mostBytes: protocol.kMostControlBytes,
      message: (data, isBinary) => this.receive(data, isBinary),
      ping: (data) => this.answer(data),
      close: () => closed(this),
    });
    this.describe();
  }

  /** Sends the scene, if the page has not the current one. */
  describe() {
    if (this.version !== this.source.version) {
      const message = new Uint8Array(this.source.describe());
      this.version = this.source.version;
      this.socket.send(message);
    }
  }

  /** Closes the connection, even if the page does not answer. */
  end(code, reason) {
    if (this.isEnded) {
      return;
    }
    this.isEnded = true;
    this.socket.close(code, reason);
    const isViolation = code === closeCodes.policyViolation;
    if (isViolation) {
      // Further messages stay unread, and take no memory here.
      this.socket.finish();
    }
    const patience = isViolation ? kReasonMilliseconds : kGoodbyeMilliseconds;
    setTimeout(() => this.socket.destroy(), patience).unref();
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
      this.end(closeCodes.policyViolation, `over ${kMostMessagesASecond} messages in a second.`);
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
    this.socket.pong(ping, () => {
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
      const { limits } = this.source;
      const { drawn, camera, aspect, ...asked } = protocol.decodeControls(String(data), limits);
      if (drawn !== undefined) {
        this.undrawn = this.undrawn.filter((frame) => frame > drawn);
      }
      if (camera !== undefined) {
        this.camera = camera;
      }
      if (aspect !== undefined) {
        this.aspect = aspect;
      }
      this.source.control(asked);
    } catch (error) {
      if (!(error instanceof RangeError)) {
        throw error;
      }
      this.end(closeCodes.policyViolation, error.message);
    }
  }

  /** Whether the page has not yet drawn what it was sent. */
  get isBehind() {
    return this.undrawn.length >= kMostUndrawn || this.socket.bufferedAmount > kMostWaitingBytes;
  }

  /** Sends the last frame of the source, or drops it for this page. */
  stream() {
    if (!this.socket.isOpen) {
      return;
    }
    if (this.isBehind) {
      ++this.skipped;
      return;
    }
    this.describe();
    const message = this.source.encode(this, this.skipped, (bytes) => this.takeBuffer(bytes));
    this.costsAt = this.source.costs.frame;
    this.undrawn.push(this.source.frameNumber);
    this.socket.send(message, () => this.free.push(message.buffer));
  }

  /** A buffer that is no longer in use. */
  takeBuffer(bytes) {
    const buffer = this.free.pop();
    // With 50 % slack, so that a growing view does not need a new buffer each time.
    return buffer && buffer.byteLength >= bytes ? buffer : new ArrayBuffer(padded(bytes * 1.5));
  }
}

/** Rejects a request for the stream, and closes its socket. */
function refuse(socket, status) {
  // A broken connection closes itself.
  socket.on('error', () => {});
  socket.end(`HTTP/1.1 ${status}\r\nConnection: close\r\nContent-Length: 0\r\n\r\n`);
  setTimeout(() => socket.destroy(), kGoodbyeMilliseconds).unref();
}

/** Owns the server, and the pages that are open. */
class PageServer {
  /**
   * @param {Source} source
   * @param {{isHolding?: boolean, changed?: function(number)}} [options] whether the server keeps the process running, by
   *   default true; and what is called with the number of pages when it changes
   */
  constructor(source, { isHolding = true, changed = () => {} } = {}) {
    this.source = source;
    this.isHolding = isHolding;
    this.changed = changed;
    /** @type {Set<Page>} */
    this.pages = new Set();
    /** Open connections of any kind. */
    this.connections = new Set();
    this.isClosing = false;
    this.port = 0;
    this.server = http.createServer((request, response) => this.serve(request, response));
    this.server.on('connection', (socket) => {
      if (!isHolding) {
        socket.unref();
      }
      this.connections.add(socket);
      socket.on('close', () => this.connections.delete(socket));
    });
    this.server.on('upgrade', (request, socket, start) => this.upgrade(request, socket, start));
  }

  /**
   * Starts listening.
   * @param {number} port 0 for any
   * @returns {Promise<string>} the page's address; rejects with the error of the system
   */
  listen(port) {
    return new Promise((resolve, reject) => {
      this.server.once('error', reject);
      this.server.once('close', () => reject(new Error('the server was closed')));
      this.server.listen(port, kAddress, () => {
        if (this.isClosing) {
          // It was closed while the address was looked up, when there was nothing to close yet.
          this.server.close();
          return;
        }
        this.server.removeListener('error', reject);
        // A connection that can't be accepted, as when the process has too many open files, ends nothing else.
        this.server.on('error', () => {});
        if (!this.isHolding) {
          this.server.unref();
        }
        this.port = this.server.address().port;
        resolve(`http://${kAddress}:${this.port}/`);
      });
    });
  }

  /**
   * Whether a request comes from our page. Scripts of other sites could request the stream, too; and the name of another
   * site may lead to this machine.
   */
  isOurs({ headers: { host, origin } }) {
    const hosts = [kAddress, 'localhost'].map((name) => `${name}:${this.port}`);
    return hosts.includes(host) && (origin === undefined || origin === `http://${host}`);
  }

  serve(request, response) {
    // A broken connection closes itself.
    response.on('error', () => {});
    const { method, url } = request;
    const isHead = method === 'HEAD';
    if (!this.isOurs(request)) {
      answer(response, 403, `open http://${kAddress}:${this.port}/ on this machine.`);
    } else if (method !== 'GET' && !isHead) {
      answer(response, 405, 'this server is read with GET.');
    } else if (files.has(url)) {
      sendFile(files.get(url), isHead, response);
    } else {
      answer(response, 404, 'there is no such file.');
    }
  }

  upgrade(request, socket, start) {
    const isStream = request.url === kStreamPath && isWebSocketRequest(request);
    if (this.isClosing || !isStream || !this.isOurs(request)) {
      refuse(socket, '403 Forbidden');
      return;
    }
    if (this.pages.size >= kMostPages) {
      refuse(socket, '503 Service Unavailable');
      return;
    }
    const closed = (page) => {
      if (this.pages.delete(page)) {
        this.changed(this.pages.size);
      }
    };
    this.pages.add(new Page(request, socket, start, this.source, closed));
    this.changed(this.pages.size);
  }

  /** Sends the last frame to all pages. */
  stream() {
    this.pages.forEach((page) => page.stream());
  }

  /**
   * Disconnects all pages and stops listening.
   * @returns {Promise<void>}
   */
  close() {
    this.isClosing = true;
    this.pages.forEach((page) => page.end(closeCodes.goingAway, 'the server ends'));
    return new Promise((resolve) => {
      // Keep-alive and idle connections would keep the server open.
      const timer = setTimeout(
        () => this.connections.forEach((socket) => socket.destroy()),
        kGoodbyeMilliseconds
      );
      this.server.close(() => {
        clearTimeout(timer);
        resolve();
      });
    });
  }
}

module.exports = { PageServer, kAddress, kMostPages, kMostUndrawn };
