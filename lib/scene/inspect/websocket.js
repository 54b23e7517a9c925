'use strict';
// The server's side of a WebSocket (RFC 6455), as far as pages need it: binary messages to the page, short messages from
// it, pings, and an orderly end. Nothing that the other side sends makes it keep more than one message.
const crypto = require('crypto');

/** What a key is hashed with for the answer to it (RFC 6455, 1.3). */
const kKeySuffix = '258EAFA5-E914-47DA-95CA-C5AB0DC85B11';
const kKey = /^[+/0-9A-Za-z]{22}==$/;

const opcodes = Object.freeze({
  continuation: 0,
  text: 1,
  binary: 2,
  close: 8,
  ping: 9,
  pong: 10,
});

/** Codes of an end. */
const closeCodes = Object.freeze({
  goingAway: 1001,
  protocolError: 1002,
  none: 1005,
  policyViolation: 1008,
  tooBig: 1009,
});

// Bits of the first two bytes of a frame.
const kFinal = 0x80;
const kReserved = 0x70;
const kOpcode = 0x0f;
const kMasked = 0x80;
const kLength = 0x7f;

/** Lengths that stand for a longer field, and the largest payload of a control frame. */
const kLength16 = 126;
const kLength64 = 127;
const kMostControlPayload = 125;

const kMaskBytes = 4;
const kNothing = Buffer.alloc(0);

/** Milliseconds that the other side has to end the connection after the server has. */
const kEndMilliseconds = 3000;

/** Header of a frame of the server's: final, not masked. */
function headOf(opcode, length) {
  if (length < kLength16) {
    return Buffer.of(kFinal | opcode, length);
  }
  if (length <= 0xffff) {
    const head = Buffer.of(kFinal | opcode, kLength16, 0, 0);
    head.writeUInt16BE(length, 2);
    return head;
  }
  const head = Buffer.alloc(10);
  head[0] = kFinal | opcode;
  head[1] = kLength64;
  head.writeUInt32BE(Math.floor(length / 2 ** 32), 2);
  head.writeUInt32BE(length >>> 0, 6);
  return head;
}

/** Whether a close frame of the other side may have a code. */
function isCloseCode(code) {
  return (
    (code >= 1000 && code <= 1014 && ![1004, 1005, 1006].includes(code)) ||
    (code >= 3000 && code <= 4999)
  );
}

/**
 * Whether a request asks for a WebSocket.
 * @param {import('http').IncomingMessage} request
 */
function isWebSocketRequest({ method, headers }) {
  return (
    method === 'GET' &&
    String(headers.upgrade).toLowerCase() === 'websocket' &&
    headers['sec-websocket-version'] === '13' &&
    kKey.test(headers['sec-websocket-key'])
  );
}

/** Owns the socket of a connection. */
class WebSocketConnection {
  /**
   * Accepts a request, which `isWebSocketRequest`.
   * @param {import('http').IncomingMessage} request
   * @param {import('net').Socket} socket
   * @param {Buffer} start what has arrived after the request
   * @param {{mostBytes: number, message: function(Buffer, boolean), ping: function(Buffer),
   *     close: function()}} listeners the largest message, and what is called: with messages and whether they are binary
   */
  constructor(request, socket, start, listeners) {
    this._socket = socket;
    this._listeners = listeners;
    /** What has arrived of a frame that is not complete. */
    this._rest = kNothing;
    /** Fragments of a message, with their opcode. */
    this._fragments = [];
    this._fragmentBytes = 0;
    this._opcode = opcodes.continuation;
    this._isClosing = false;
    const hash = crypto.createHash('sha1');
    const answer = hash.update(request.headers['sec-websocket-key'] + kKeySuffix).digest('base64');
    socket.setTimeout(0);
    socket.setNoDelay(true);
    // Read with what follows: listeners expect nothing before the connection is made.
    socket.unshift(start);
    // A broken connection closes itself.
    socket.on('error', () => {});
    socket.on('data', (data) => this._receive(data));
    socket.on('end', () => socket.end());
    socket.on('close', () => {
      this._isClosing = true;
      listeners.close();
    });
    socket.write(
      [
        'HTTP/1.1 101 Switching Protocols',
        'Upgrade: websocket',
        'Connection: Upgrade',
        `Sec-WebSocket-Accept: ${answer}`,
        '\r\n',
      ].join('\r\n')
    );
  }

  /** Whether messages can be sent. */
  get isOpen() {
    return !this._isClosing && !this._socket.destroyed;
  }

  /** Bytes that wait for the other side. */
  get bufferedAmount() {
    return this._socket.writableLength;
  }

  /**
   * Sends a binary message.
   * @param {Uint8Array} bytes not to be changed until `sent` is called
   * @param {function()} [sent]
   */
  send(bytes, sent) {
    this._send(opcodes.binary, Buffer.from(bytes.buffer, bytes.byteOffset, bytes.length), sent);
  }

  /** Answers a ping. */
  pong(bytes, sent) {
    this._send(opcodes.pong, bytes, sent);
  }

  _send(opcode, bytes, sent) {
    if (!this.isOpen) {
      return;
    }
    const socket = this._socket;
    socket.cork();
    socket.write(headOf(opcode, bytes.length));
    socket.write(bytes, sent);
    socket.uncork();
  }

  /**
   * Tells the other side that the connection ends, and why; it then ends.
   * @param {number} code
   * @param {string} [reason] at most 120 bytes
   */
  close(code, reason = '') {
    if (!this.isOpen) {
      return;
    }
    const payload = Buffer.alloc(2 + Buffer.byteLength(reason));
    payload.writeUInt16BE(code, 0);
    payload.write(reason, 2);
    this._send(opcodes.close, code === closeCodes.none ? kNothing : payload);
    this._isClosing = true;
    setTimeout(() => this.destroy(), kEndMilliseconds).unref();
  }

  /** Leaves unread what arrives, and sends nothing more than what waits. */
  finish() {
    this._socket.pause();
    this._socket.end();
  }

  /** Ends the connection at once. */
  destroy() {
    this._socket.destroy();
  }

  /** Takes what has arrived, frame by frame. */
  _receive(data) {
    let rest = this._rest.length === 0 ? data : Buffer.concat([this._rest, data]);
    let taken = 0;
    do {
      rest = rest.slice(taken);
      taken = this._takeFrame(rest);
    } while (taken > 0);
    // A copy: the rest of a large piece would keep all of it.
    this._rest = Buffer.from(rest);
  }

  /** @returns {number} bytes of a frame at the start of `data`; 0 if it is not complete or the connection ends */
  _takeFrame(data) {
    if (data.length < 2 || this._socket.destroyed) {
      return 0;
    }
    const opcode = data[0] & kOpcode;
    const isFinal = (data[0] & kFinal) !== 0;
    const isControl = opcode >= opcodes.close;
    let length = data[1] & kLength;
    let at = 2;
    if ((data[0] & kReserved) !== 0 || (data[1] & kMasked) === 0) {
      return this._fail(closeCodes.protocolError, 'a frame is not masked, or has reserved bits.');
    }
    if (isControl && (!isFinal || length > kMostControlPayload)) {
      return this._fail(closeCodes.protocolError, 'a control frame is too long, or a fragment.');
    }
    if (length >= kLength16) {
      const bytes = length === kLength16 ? 2 : 8;
      if (data.length < at + bytes) {
        return 0;
      }
      length =
        bytes === 2
          ? data.readUInt16BE(at)
          : data.readUInt32BE(at) * 2 ** 32 + data.readUInt32BE(at + 4);
      at += bytes;
    }
    if (!isControl && this._fragmentBytes + length > this._listeners.mostBytes) {
      const most = this._listeners.mostBytes;
      return this._fail(closeCodes.tooBig, `a message has over ${most} bytes.`);
    }
    const end = at + kMaskBytes + length;
    if (data.length < end) {
      return 0;
    }
    const payload = Buffer.from(data.slice(at + kMaskBytes, end));
    for (let i = 0; i < length; ++i) {
      payload[i] ^= data[at + (i % kMaskBytes)];
    }
    this._takePayload(opcode, isFinal, payload);
    return end;
  }

  _takePayload(opcode, isFinal, payload) {
    if (opcode === opcodes.close) {
      this._end(payload);
    } else if (this._isClosing) {
      // Only its end matters now.
    } else if (opcode === opcodes.ping) {
      this._listeners.ping(payload);
    } else if (opcode === opcodes.pong) {
      // Nobody pinged.
    } else if (opcode > opcodes.binary) {
      this._fail(closeCodes.protocolError, `there is no opcode ${opcode}.`);
    } else if ((opcode === opcodes.continuation) !== this._fragments.length > 0) {
      this._fail(closeCodes.protocolError, 'fragments of messages are mixed.');
    } else {
      this._opcode = opcode || this._opcode;
      this._fragments.push(payload);
      // An empty fragment counts, too: any number of them would be kept.
      this._fragmentBytes += payload.length + 1;
      if (isFinal) {
        const message = Buffer.concat(this._fragments);
        this._fragments = [];
        this._fragmentBytes = 0;
        this._listeners.message(message, this._opcode === opcodes.binary);
      }
    }
  }

  /** The other side ends the connection, or has read that this one does. */
  _end(payload) {
    if (!this._isClosing) {
      const code = payload.length >= 2 ? payload.readUInt16BE(0) : closeCodes.none;
      const isRight = payload.length === 0 || (payload.length >= 2 && isCloseCode(code));
      this.close(isRight ? code : closeCodes.protocolError);
    }
    this._socket.end();
  }

  _fail(code, reason) {
    this.close(code, reason);
    // What follows is thrown away: where its frames start is not known. Unread, it would reset the connection, and the
    // reason with it.
    this._socket.removeAllListeners('data');
    this._socket.resume();
    this._socket.end();
    return 0;
  }
}

module.exports = { WebSocketConnection, closeCodes, isWebSocketRequest };
