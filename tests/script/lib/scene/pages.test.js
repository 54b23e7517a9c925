'use strict';
// What carries pages of inspectors: messages byte by byte, the ring of costs, meshes, and the server's side of WebSockets.
const assert = require('assert');
const WebSocket = require('ws');
const { Costs } = require('../../../../lib/scene/inspect/costs');
const { modelMesh } = require('../../../../lib/scene/inspect/display-mesh');
const protocol = require('../../../../lib/scene/inspect/protocol');
const { PageServer } = require('../../../../lib/scene/inspect/server');
const { closed, connect, toText } = require('../../support/page-client');

const toBytes = (text) => Buffer.from(text, 'utf8');

/** A buffer of just so many bytes, full of poison. */
const takeBuffer = (bytes) => new Uint8Array(bytes).fill(0xab).buffer;

describe('messages of pages', () => {
  const counts = {
    ...{ stages: 2, rows: 2, cameras: 1, sliders: 2, counters: 1 },
    ...{ meshes: 2, instances: 3, matrices: 4, nodes: 1, segments: 1, spheres: 2 },
  };
  const facts = { camera: 1, flags: 5, frame: 7, time: 1.5, total: 9, skipped: 4 };

  /** Sections in their order, with their elements and whether they are whole numbers. */
  const sections = [
    ['history', 4, false],
    ['visible', 1, true],
    ['sliders', 2, false],
    ['counters', 1, true],
    ['instanceCounts', 2, true],
    ['ids', 3, true],
    ['variants', 3, true],
    ['tints', 9, false],
    ['matrices', 64, false],
    ['nodes', 3, false],
    ['segments', 6, false],
    ['spheres', 8, false],
    ['seen', 2, true],
  ];
  const kSections = 108;

  /** A frame with a different number everywhere, but for instances of meshes, which must agree. */
  function smallFrame() {
    const buffer = takeBuffer(protocol.frameBytes(counts));
    const views = protocol.beginFrame(buffer, counts, facts);
    let next = 10;
    for (const name of ['pose', 'bounds', ...sections.map(([section]) => section)]) {
      views[name].forEach((_, i) => {
        views[name][i] = next++;
      });
    }
    views.instanceCounts.set([1, 2]);
    return buffer;
  }

  it('encode a frame as documented', () => {
    const view = new DataView(smallFrame());
    assert.strictEqual(view.byteLength, 152 + 4 * kSections);
    assert.deepStrictEqual(
      [0, 1, 2, 3].map((at) => view.getUint8(at)),
      [2, 2, 1, 5]
    );
    assert.strictEqual(view.getUint32(4, true), 7);
    assert.strictEqual(view.getFloat64(8, true), 1.5);
    assert.deepStrictEqual(
      [16, 20].map((at) => view.getUint32(at, true)),
      [9, 4]
    );
    // Pose and bounds: 16 + 5 floats from 24 to 108.
    for (let i = 0; i < 21; ++i) {
      assert.strictEqual(view.getFloat32(24 + 4 * i, true), 10 + i);
    }
    assert.deepStrictEqual(
      Array.from({ length: 11 }, (_, i) => view.getUint32(108 + 4 * i, true)),
      [2, 2, 1, 2, 1, 2, 3, 4, 1, 1, 2]
    );
    let at = 152;
    let expected = 31;
    for (const [name, elements, isWhole] of sections) {
      for (let i = 0; i < elements; ++i, at += 4, ++expected) {
        const value = isWhole ? view.getUint32(at, true) : view.getFloat32(at, true);
        assert.strictEqual(value, name === 'instanceCounts' ? 1 + i : expected, `${name} ${i}`);
      }
    }
    assert.strictEqual(at, view.byteLength);
  });

  it('read a frame back', () => {
    const read = protocol.decodeFrame(smallFrame());
    for (const name of Object.keys(facts)) {
      assert.strictEqual(read[name], facts[name], name);
    }
    assert.deepStrictEqual(read.counts, counts);
    assert.deepStrictEqual(Array.from(read.history), [31, 32, 33, 34]);
    assert.deepStrictEqual(Array.from(read.milliseconds), [33, 34], 'the last row');
    assert.deepStrictEqual(Array.from(read.ids), [41, 42, 43]);
    assert.deepStrictEqual([read.matrices[0], read.matrices[63]], [56, 119]);
    assert.deepStrictEqual(Array.from(read.seen), [137, 138]);
    const none = Object.assign({}, ...Object.keys(counts).map((name) => ({ [name]: 0 })));
    const buffer = takeBuffer(protocol.frameBytes(none));
    protocol.beginFrame(buffer, none, facts);
    assert.strictEqual(protocol.decodeFrame(buffer).milliseconds.length, 0);
  });

  it('refuse frames that are truncated, or of another kind or version', () => {
    const whole = smallFrame();
    const changed = (at, value) => {
      const bytes = new Uint8Array(whole.slice(0));
      bytes[at] = value;
      return bytes.buffer;
    };
    const longer = new Uint8Array(whole.byteLength + 4);
    longer.set(new Uint8Array(whole));
    const size = 152 + 4 * kSections;
    for (const [buffer, words] of [
      [whole.slice(0, 4), /truncated/],
      [whole.slice(0, 148), /truncated/],
      [whole.slice(0, size - 4), new RegExp(`has ${size - 4} bytes; its counts require ${size}`)],
      [longer.buffer, new RegExp(`has ${size + 4} bytes; its counts require ${size}`)],
      [changed(140, 2), new RegExp(`has ${size} bytes`)],
      [changed(152 + 4 * 8, 3), /has 3 instances; its meshes require 5/],
      [changed(0, 1), /of version 1.*reload the page/],
      [changed(1, 1), /of kind 1: no frame/],
    ]) {
      assert.throws(
        () => protocol.decodeFrame(buffer),
        (error) => error instanceof RangeError && words.test(error.message),
        String(words)
      );
    }
    assert.throws(() => protocol.decodeScene(whole, toText), /of kind 2: no scene/);
  });

  it('carry a scene with its arrays', () => {
    const arrays = {
      a: Float32Array.of(1.5, -2),
      b: Uint8Array.of(1, 2, 3, 4, 5),
      c: Uint16Array.of(65535),
      d: Uint32Array.of(0xffffffff),
    };
    const buffer = protocol.encodeScene({ name: 'Füchse' }, arrays, toBytes);
    const view = new DataView(buffer);
    assert.deepStrictEqual([view.getUint8(0), view.getUint8(1)], [2, 1]);
    const length = view.getUint32(4, true);
    assert.strictEqual(length % 4, 0);
    const text = JSON.parse(toText(new Uint8Array(buffer, 8, length)));
    assert.deepStrictEqual(text.arrays, {
      a: ['f32', 0, 2],
      b: ['u8', 8, 5],
      c: ['u16', 16, 1],
      d: ['u32', 20, 1],
    });
    assert.strictEqual(buffer.byteLength, 8 + length + 24);
    const scene = protocol.decodeScene(buffer, toText);
    assert.strictEqual(scene.name, 'Füchse');
    assert.deepStrictEqual(scene.arrays, arrays);
    assert.throws(() => protocol.encodeScene({}, { a: [1] }, toBytes), /'a' of the scene/);
    assert.throws(() => protocol.decodeScene(buffer.slice(0, 60), toText), /truncated/);
  });

  it('have a kind', () => {
    assert.strictEqual(protocol.kindOf(smallFrame()), protocol.kinds.frame);
    assert.strictEqual(protocol.kindOf(new ArrayBuffer(0)), 0);
    assert.strictEqual(protocol.kindOf(Uint8Array.of(1, 3, 0, 0).buffer), 0);
  });

  it('check the controls of pages', () => {
    const slider = { title: '', min: 0, max: 1, step: 0.01, isSteered: true, blends: null };
    const limits = {
      sliders: [
        Object.assign({}, slider, { name: 'crowd', min: 1, max: 40, step: 1, isSteered: false }),
        Object.assign({}, slider, { name: 'wave' }),
        Object.assign({}, slider, { name: 'breath' }),
      ],
      cameras: 2,
      canPause: true,
    };
    const good = {
      drawn: 0xffffffff,
      crowd: 40,
      wave: null,
      breath: 0.5,
      camera: 1,
      aspect: 5,
      paused: false,
    };
    assert.deepStrictEqual(protocol.decodeControls(JSON.stringify(good), limits), good);
    const bad = {
      drawn: [-1, 1.5, '1', 0x100000000],
      crowd: [0, 41, 1.5, null, '7'],
      wave: [-0.1, 1.1, '0', true, [], {}],
      camera: [2, -1, null, true, 0.5],
      aspect: [0, 0.1, 6, null],
      paused: [1, null, 'yes'],
      toString: [1],
      unknown: [1],
    };
    const assertBad = (name, value, given) =>
      assert.throws(
        () => protocol.decodeControls(JSON.stringify({ [name]: value }), given),
        (error) => error instanceof RangeError && error.message.includes(`'${name}'`),
        `${name} ${value}`
      );
    for (const name of Object.keys(bad)) {
      bad[name].forEach((value) => assertBad(name, value, limits));
    }
    assertBad('paused', true, Object.assign({}, limits, { canPause: false }));
    for (const text of ['', '{', '[]', 'null', '3', '"crowd"', '{"aspect": 1e999}']) {
      assert.throws(() => protocol.decodeControls(text, limits), RangeError, text);
    }
  });
});

describe('costs of frames', () => {
  it('are kept for as many frames as a chart shows', () => {
    const costs = new Costs(2);
    assert.deepStrictEqual([costs.countSince(0), costs.frame], [0, 0]);
    for (let i = 1; i <= 300; ++i) {
      costs.push([i, -i]);
    }
    assert.strictEqual(costs.countSince(0), 1, 'a new page gets the last one');
    assert.strictEqual(costs.countSince(300), 0);
    assert.strictEqual(costs.countSince(297), 3);
    assert.strictEqual(costs.countSince(10), 240);
    const out = new Float32Array(6);
    costs.copyLast(out, 3);
    assert.deepStrictEqual(Array.from(out), [298, -298, 299, -299, 300, -300]);
  });
});

describe('meshes of models for pages', () => {
  const triangle = Float32Array.of(0, 0, 0, 1, 0, 0, 0, 1, 0);
  const bare = { mode: 4, normals: null, uvs: null, joints: null, weights: null, indices: null };

  it('have primitives in one, with normals, and one bone without a skin', () => {
    const mesh = modelMesh(
      {
        node: 0,
        skin: -1,
        primitives: [
          Object.assign({}, bare, { positions: triangle }),
          // Lines, which are left out.
          Object.assign({}, bare, { positions: triangle, mode: 1 }),
          Object.assign({}, bare, {
            positions: triangle,
            normals: Float32Array.of(1, 0, 0, 1, 0, 0, 1, 0, 0),
            indices: Uint32Array.of(2, 1, 0),
          }),
        ],
      },
      1
    );
    assert.deepStrictEqual(Array.from(mesh.positions), [...triangle, ...triangle]);
    assert.deepStrictEqual(Array.from(mesh.normals), [
      ...[0, 0, 1, 0, 0, 1, 0, 0, 1],
      ...[1, 0, 0, 1, 0, 0, 1, 0, 0],
    ]);
    assert.deepStrictEqual(Array.from(mesh.triangles), [0, 1, 2, 5, 4, 3]);
    assert.deepStrictEqual(Array.from(mesh.weights.subarray(0, 4)), [1, 0, 0, 0]);
    assert.ok(mesh.bones.every((bone) => bone === 0));
  });

  it('keep joints and weights, but no joint that the skin has not', () => {
    const { bones, weights } = modelMesh(
      {
        node: 0,
        skin: 0,
        primitives: [
          Object.assign({}, bare, {
            positions: triangle,
            joints: Uint16Array.of(0, 1, 2, 0, 1, 1, 1, 1, 9, 0, 0, 0),
            weights: Float32Array.of(0.5, 0.25, 0.25, 0, 1, 0, 0, 0, 1, 0, 0, 0),
          }),
        ],
      },
      3
    );
    assert.deepStrictEqual(Array.from(bones), [0, 1, 2, 0, 1, 1, 1, 1, 0, 0, 0, 0]);
    assert.deepStrictEqual(Array.from(weights.subarray(0, 4)), [0.5, 0.25, 0.25, 0]);
  });
});

/** Frames of a WebSocket, as a browser masks them. */
function frame(opcode, payload, { isFinal = true, isMasked = true, reserved = 0, length } = {}) {
  const bytes = Buffer.from(payload);
  const said = length === undefined ? bytes.length : length;
  const head = [(isFinal ? 0x80 : 0) | reserved | opcode];
  const mask = isMasked ? 0x80 : 0;
  if (said < 126) {
    head.push(mask | said);
  } else if (said <= 0xffff) {
    head.push(mask | 126, said >> 8, said & 0xff);
  } else {
    const field = Buffer.alloc(8);
    field.writeUInt32BE(Math.floor(said / 2 ** 32), 0);
    field.writeUInt32BE(said >>> 0, 4);
    head.push(mask | 127, ...field);
  }
  if (!isMasked) {
    return Buffer.concat([Buffer.from(head), bytes]);
  }
  const key = [0x12, 0x34, 0x56, 0x78];
  const masked = bytes.map((value, i) => value ^ key[i % 4]);
  return Buffer.concat([Buffer.from([...head, ...key]), masked]);
}

describe('the server of WebSockets', () => {
  /** A source that remembers what pages ask for. */
  class Recorder {
    constructor() {
      this.costs = new Costs(0);
      this.version = 1;
      this.frameNumber = 0;
      this.limits = {
        sliders: [
          { name: 'size', title: '', min: 0, max: 9, step: 1, isSteered: false, blends: null },
        ],
        cameras: 1,
        canPause: false,
      };
      this.usualAspect = 1;
      this.asked = [];
      this.bytes = 0;
    }

    describe() {
      return protocol.encodeScene({ padding: 'x'.repeat(this.bytes) }, {}, toBytes);
    }

    control(asked) {
      this.asked.push(asked);
    }
  }

  let source;
  let server;
  let address;
  beforeEach(async () => {
    source = new Recorder();
    server = new PageServer(source);
    address = await server.listen(0);
  });
  afterEach(() => server.close());

  /** A connection that has become a stream, and the frames that it is sent. */
  async function openStream(first = Buffer.alloc(0)) {
    const socket = connect(address);
    const stream = { socket, frames: [], head: '', end: closed(socket), isEnded: false };
    let rest = Buffer.alloc(0);
    socket.on('end', () => {
      stream.isEnded = true;
      socket.end();
    });
    socket.on('data', (data) => {
      rest = Buffer.concat([rest, data]);
      if (stream.head === '') {
        const end = rest.indexOf('\r\n\r\n');
        stream.head = rest.slice(0, end).toString('latin1');
        rest = rest.slice(end + 4);
      }
      while (rest.length >= 2) {
        const [at, length] =
          rest[1] < 126
            ? [2, rest[1]]
            : rest[1] === 126
            ? [4, rest.readUInt16BE(2)]
            : [10, rest.readUInt32BE(6)];
        if (rest.length < at + length) {
          break;
        }
        stream.frames.push({ head: rest[0], payload: rest.slice(at, at + length) });
        rest = rest.slice(at + length);
      }
    });
    const { host } = new URL(address);
    const ask = [
      'GET /stream HTTP/1.1',
      `Host: ${host}`,
      'Connection: Upgrade',
      'Upgrade: websocket',
      'Sec-WebSocket-Version: 13',
      'Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==',
      '\r\n',
    ].join('\r\n');
    socket.write(Buffer.concat([Buffer.from(ask), first]));
    await until(() => stream.frames.length > 0);
    return stream;
  }

  async function until(holds) {
    const end = Date.now() + 10000;
    while (!holds()) {
      assert.ok(Date.now() < end, `in vain: ${holds}`);
      await new Promise((resolve) => setTimeout(resolve, 2));
    }
  }

  const control = (value) => JSON.stringify({ size: value });

  it('answers the key of RFC 6455 as it says', async () => {
    const { head, socket } = await openStream();
    assert.ok(head.startsWith('HTTP/1.1 101 '), head);
    assert.ok(head.includes('Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo='), head);
    socket.destroy();
  });

  it('reads frames in any pieces, and several in one', async () => {
    const { socket } = await openStream(frame(1, control(1)));
    await until(() => source.asked.length === 1);
    const all = Buffer.concat([frame(1, control(2)), frame(10, ''), frame(1, control(3))]);
    for (const byte of all) {
      socket.write(Buffer.of(byte));
      await new Promise((resolve) => setImmediate(resolve));
    }
    socket.write(Buffer.concat([4, 5, 6].map((value) => frame(1, control(value)))));
    await until(() => source.asked.length === 6);
    assert.deepStrictEqual(
      source.asked.map(({ size }) => size),
      [1, 2, 3, 4, 5, 6]
    );
    socket.destroy();
  });

  it('joins fragments, with pings between them', async () => {
    const stream = await openStream();
    stream.socket.write(
      Buffer.concat([
        frame(1, '{"si', { isFinal: false }),
        frame(9, 'are you there'),
        frame(0, 'ze":', { isFinal: false }),
        frame(0, '', { isFinal: false }),
        frame(0, ' 7}'),
      ])
    );
    await until(() => source.asked.length === 1 && stream.frames.length === 2);
    assert.deepStrictEqual(source.asked, [{ size: 7 }]);
    assert.strictEqual(stream.frames[1].head, 0x8a);
    assert.strictEqual(String(stream.frames[1].payload), 'are you there');
    stream.socket.destroy();
  });

  it('sends messages of any length', async () => {
    for (const bytes of [0, 80, 300, 70000]) {
      source.bytes = bytes;
      const { frames, socket } = await openStream();
      assert.strictEqual(frames[0].head, 0x82);
      const expected = Buffer.from(source.describe());
      assert.ok(frames[0].payload.equals(expected), `${expected.length} bytes`);
      socket.destroy();
    }
  });

  it('ends in order when the other side does', async () => {
    const code = (value) => Buffer.of(value >> 8, value & 0xff);
    for (const [payload, answer] of [
      [code(1000), 1000],
      [code(4321), 4321],
      [Buffer.concat([code(1001), Buffer.from('away')]), 1001],
      // A code of one byte, and codes that must not be sent.
      [Buffer.of(3), 1002],
      [code(1005), 1002],
      [code(1006), 1002],
      [code(5000), 1002],
    ]) {
      const stream = await openStream();
      stream.socket.write(frame(8, payload));
      await until(() => stream.isEnded);
      const last = stream.frames[stream.frames.length - 1];
      assert.deepStrictEqual([last.head, last.payload.readUInt16BE(0)], [0x88, answer]);
      await stream.end;
    }
    const stream = await openStream();
    stream.socket.write(frame(8, ''));
    await until(() => stream.isEnded);
    assert.deepStrictEqual(stream.frames[1], { head: 0x88, payload: Buffer.alloc(0) });
    await until(() => server.pages.size === 0);
  });

  it('ends a connection that breaks the rules, and says why', async () => {
    for (const [bytes, code, words] of [
      [frame(1, control(1), { isMasked: false }), 1002, /not masked/],
      [frame(1, control(1), { reserved: 0x40 }), 1002, /reserved bits/],
      [frame(3, ''), 1002, /no opcode 3/],
      [frame(11, ''), 1002, /no opcode 11/],
      [frame(9, 'x'.repeat(126)), 1002, /control frame is too long/],
      [frame(9, '', { isFinal: false }), 1002, /or a fragment/],
      [frame(0, control(1)), 1002, /mixed/],
      [Buffer.concat([frame(1, 'a', { isFinal: false }), frame(1, 'b')]), 1002, /mixed/],
      [frame(2, control(1)), 1008, /not binary/],
      [frame(1, 'x'.repeat(1025)), 1009, /over 1024 bytes/],
      [frame(1, '', { length: 2 ** 40 }), 1009, /over 1024 bytes/],
      [
        Buffer.concat([frame(1, 'x'.repeat(600), { isFinal: false }), frame(0, 'x'.repeat(600))]),
        1009,
        /over 1024 bytes/,
      ],
      [
        Buffer.concat([
          frame(1, '', { isFinal: false }),
          ...new Array(2000).fill(frame(0, '', { isFinal: false })),
        ]),
        1009,
        /over 1024 bytes/,
      ],
    ]) {
      const stream = await openStream();
      // What follows is not read, however much it is.
      stream.socket.write(Buffer.concat([bytes, ...new Array(50).fill(frame(1, control(9)))]));
      await until(() => stream.isEnded);
      const { head, payload } = stream.frames[stream.frames.length - 1];
      assert.deepStrictEqual([head, payload.readUInt16BE(0)], [0x88, code], String(words));
      assert.ok(words.test(String(payload.slice(2))), `${payload.slice(2)}`);
      stream.socket.destroy();
      await stream.end;
    }
    assert.deepStrictEqual(source.asked, []);
    await until(() => server.pages.size === 0);
  });

  it('refuses what is no request for a WebSocket', async () => {
    const { host } = new URL(address);
    const lines = {
      host: `Host: ${host}`,
      connection: 'Connection: Upgrade',
      upgrade: 'Upgrade: websocket',
      version: 'Sec-WebSocket-Version: 13',
      key: 'Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==',
    };
    const answerOf = async (start, changes) => {
      const socket = connect(address);
      let text = '';
      socket.on('data', (data) => {
        text += data;
      });
      const ended = new Promise((resolve) => socket.once('end', resolve));
      const sent = Object.values(Object.assign({}, lines, changes)).filter((line) => line !== '');
      socket.write([start, ...sent, '\r\n'].join('\r\n'));
      await ended;
      socket.destroy();
      return text.split('\r\n')[0];
    };
    for (const changes of [
      { upgrade: 'Upgrade: h2c' },
      { version: 'Sec-WebSocket-Version: 8' },
      { version: '' },
      { key: '' },
      { key: 'Sec-WebSocket-Key: short' },
      { host: 'Host: example.com' },
    ]) {
      const answer = await answerOf('GET /stream HTTP/1.1', changes);
      assert.strictEqual(answer, 'HTTP/1.1 403 Forbidden', JSON.stringify(changes));
    }
    for (const start of ['POST /stream HTTP/1.1', 'GET / HTTP/1.1', 'GET /stream? HTTP/1.1']) {
      assert.strictEqual(await answerOf(start, {}), 'HTTP/1.1 403 Forbidden', start);
    }
  });

  it('survives connections that the system can not accept', async () => {
    server.server.emit('error', Object.assign(new Error('accept EMFILE'), { code: 'EMFILE' }));
    const { socket } = await openStream();
    socket.destroy();
  });

  it('survives random bytes', async () => {
    let seed = 12345;
    const random = () => {
      seed = (Math.imul(seed, 1103515245) + 12345) >>> 0;
      return seed >>> 16;
    };
    for (let round = 0; round < 60; ++round) {
      const stream = await openStream();
      const bytes = Buffer.from(
        Array.from({ length: 1 + (random() % 3000) }, () => random() & 0xff)
      );
      stream.socket.write(bytes);
      // Whatever they mean, a page can be closed.
      stream.socket.end();
      await stream.end;
    }
    await until(() => server.pages.size === 0);
    const client = new WebSocket(`${address.replace('http', 'ws')}stream`);
    await new Promise((resolve, reject) => client.on('open', resolve).on('error', reject));
    client.send(control(5));
    await until(() => source.asked.some(({ size }) => size === 5));
    client.close();
  });
});
