'use strict';
// A page without a browser, by a WebSocket library that has nothing in common with the server.
const assert = require('assert');
const http = require('http');
const net = require('net');
const WebSocket = require('ws');
const protocol = require('../../../lib/scene/inspect/protocol');

const toText = (bytes) => Buffer.from(bytes).toString('utf8');

/** A page that is connected to a server. */
class Client {
  constructor(address, options) {
    this.scenes = [];
    this.frames = [];
    /** Whether drawn frames are acknowledged. */
    this.isDrawing = true;
    this.socket = new WebSocket(`${address.replace('http', 'ws')}stream`, options);
    this.socket.binaryType = 'arraybuffer';
    this.closed = new Promise((resolve) => {
      this.socket.on('close', (code, reason) => resolve({ code, reason: String(reason) }));
    });
    this.failed = new Promise((resolve) => this.socket.on('error', resolve));
    this.socket.on('message', (data) => {
      if (protocol.kindOf(data) === protocol.kinds.scene) {
        this.scenes.push(protocol.decodeScene(data, toText));
        return;
      }
      const frame = protocol.decodeFrame(data);
      this.frames.push(frame);
      if (this.isDrawing) {
        this.send({ drawn: frame.frame });
      }
    });
  }

  get last() {
    return this.frames[this.frames.length - 1];
  }

  send(controls) {
    this.socket.send(JSON.stringify(controls));
  }

  /** Waits until something holds. */
  async until(holds, what) {
    const end = Date.now() + 15000;
    while (!holds()) {
      assert.ok(Date.now() < end, `in vain: ${what}`);
      await new Promise((resolve) => setTimeout(resolve, 5));
    }
  }
}

/** A request as it is written, whatever its path. */
function request(address, url, options = {}) {
  const { hostname, port } = new URL(address);
  return new Promise((resolve, reject) => {
    const given = Object.assign({ hostname, port, path: url, agent: false }, options);
    http
      .request(given, (response) => {
        const parts = [];
        response.on('data', (part) => parts.push(part));
        response.on('end', () => {
          const { statusCode, headers } = response;
          resolve({ statusCode, headers, text: Buffer.concat(parts).toString('utf8') });
        });
        response.on('aborted', () => reject(new Error('aborted')));
      })
      .on('error', reject)
      .end();
  });
}

/** The request that upgrades a connection to a stream. */
function upgradeRequest(address, origin = address.replace(/\/$/, '')) {
  return [
    'GET /stream HTTP/1.1',
    `Host: ${new URL(address).host}`,
    `Origin: ${origin}`,
    'Connection: Upgrade',
    'Upgrade: websocket',
    'Sec-WebSocket-Version: 13',
    'Sec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==',
    '',
    '',
  ].join('\r\n');
}

/** A raw connection; its errors are ignored. */
function connect(address) {
  const { hostname, port } = new URL(address);
  const socket = net.connect({ host: hostname, port: Number(port), allowHalfOpen: true });
  socket.on('error', () => {});
  return socket;
}

const closed = (socket) => new Promise((resolve) => socket.once('close', resolve));

module.exports = { Client, closed, connect, request, toText, upgradeRequest };
