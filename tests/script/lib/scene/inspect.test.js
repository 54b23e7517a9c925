'use strict';
// Inspectors of scenes: what pages are sent of nodes, spheres, skeletons and meshes, that they hold no frame back, and how
// they end.
const assert = require('assert');
const childProcess = require('child_process');
const nq = require('../../../../lib');
const protocol = require('../../../../lib/scene/inspect/protocol');
const { kMostPages, kMostUndrawn } = require('../../../../lib/scene/inspect/server');
const { Camera, Model, Scene } = require('../../../../scene');
const { ModelBuilder } = require('../../../fixtures/animations');
const { root } = require('../../../../scripts/lib/run');
const { Client, request } = require('../../support/page-client');

const engine = nq.getEngine();

/** A skinned bar of two joints, one above the other, and a box of a node that no joint is. */
function buildModel() {
  const builder = new ModelBuilder();
  builder.json.scenes = [{ nodes: [0, 2, 3] }];
  builder.node({ name: 'hip', children: [1], translation: [0, 1, 0] });
  builder.node({ name: 'head', translation: [0, 2, 0] });
  builder.node({ name: 'bar', mesh: 0, skin: 0 });
  builder.node({ name: 'hat', mesh: 1, translation: [0, 0, 5] });
  const positions = Float32Array.of(0, 0, 0, 1, 0, 0, 0, 1, 0);
  const position = () => builder.accessor('VEC3', positions, { min: [0, 0, 0], max: [1, 1, 0] });
  const joints = builder.accessor('VEC4', Uint8Array.of(0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0), {
    normalized: false,
  });
  const weights = builder.accessor('VEC4', Float32Array.of(1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0));
  builder.json.meshes = [
    {
      primitives: [{ attributes: { POSITION: position(), JOINTS_0: joints, WEIGHTS_0: weights } }],
    },
    { primitives: [{ attributes: { POSITION: position() } }] },
  ];
  const below = (y) => [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, -y, 0, 1];
  const inverseBindMatrices = builder.accessor(
    'MAT4',
    Float32Array.from([...below(1), ...below(3)])
  );
  builder.json.skins.push({ joints: [0, 1], inverseBindMatrices });
  builder.animation('nod', [
    { node: 1, path: 'translation', times: [0, 1], values: [0, 2, 0, 0, 3, 0] },
  ]);
  builder.animation('bow', [
    { node: 1, path: 'translation', times: [0, 1], values: [0, 2, 0, 0, 1, 0] },
  ]);
  return builder.glb();
}

describe('inspectors of scenes', () => {
  let model;
  let scene;
  let inspector;
  let clients;

  before(async () => {
    model = await Model.load(buildModel(), {
      name: 'some/where/figure.glb',
      bounds: { center: [0, 1, 0], radius: 2 },
    });
  });

  beforeEach(async () => {
    scene = new Scene({ engine });
    inspector = await scene.inspect(0);
    clients = [];
  });

  afterEach(async () => {
    clients.forEach(({ socket }) => socket.terminate());
    await inspector.close();
    scene.dispose();
  });

  /** An open page, which has the scene. */
  async function open(isDrawing = true) {
    const client = new Client(inspector.url);
    client.isDrawing = isDrawing;
    clients.push(client);
    await client.until(() => client.scenes.length > 0, 'the scene');
    return client;
  }

  /** Updates until a page is sent a frame that something holds of. */
  async function frameOf(client, holds = () => true) {
    const had = client.frames.length;
    const end = Date.now() + 15000;
    for (;;) {
      assert.ok(Date.now() < end, `in vain: ${holds}`);
      scene.update(1 / 64);
      await new Promise((resolve) => setTimeout(resolve, 16));
      if (client.frames.length > had && holds(client.last)) {
        return client.last;
      }
    }
  }

  const triples = (floats) =>
    Array.from({ length: floats.length / 3 }, (_, i) =>
      Array.from(floats.subarray(3 * i, 3 * i + 3))
    );

  it('send the nodes of the tree, at their places in the world', async () => {
    const above = scene.node({ position: [1, 2, 3] });
    const below = scene.node({ parent: above, position: [0, 0, 4] });
    scene.node({ parent: null, position: [7, 7, 7] });
    const client = await open();
    const frame = await frameOf(client);
    assert.deepStrictEqual(triples(frame.nodes), [
      [1, 2, 3],
      [1, 2, 7],
    ]);
    assert.deepStrictEqual(triples(frame.segments), [
      [1, 2, 7],
      [1, 2, 3],
    ]);
    assert.deepStrictEqual(Array.from(frame.counters), [3, 0, 0, 0, 1]);
    below.setPosition(0, 0, 5);
    const moved = await frameOf(client);
    assert.deepStrictEqual(triples(moved.nodes)[1], [1, 2, 8]);
    above.add(scene.node({ position: [1, 1, 1] }));
    below.remove();
    assert.deepStrictEqual(triples((await frameOf(client)).nodes), [
      [1, 2, 3],
      [2, 3, 4],
    ]);
    above.dispose();
    const gone = await frameOf(client);
    assert.deepStrictEqual([gone.counts.nodes, gone.counts.segments], [0, 0]);
  });

  it('leave out nodes in no layer, with their spheres', async () => {
    const node = scene.node({ position: [1, 2, 3] });
    node.setSphere(1, 0, 0, 0.5);
    const client = await open();
    const counts = ({ counts: { nodes, spheres }, total }) => [nodes, spheres, total];
    assert.deepStrictEqual(counts(await frameOf(client)), [1, 1, 1]);
    node.layers = 0;
    assert.deepStrictEqual(counts(await frameOf(client)), [0, 0, 0]);
    node.layers = 2;
    assert.deepStrictEqual(counts(await frameOf(client)), [1, 1, 1]);
  });

  it('send spheres in the world, and which of them a camera sees', async () => {
    const camera = scene.addCamera(new Camera({ fovDegrees: 60, aspect: 2, near: 0.5, far: 100 }));
    const behind = new Camera();
    behind.lookAt(0, 0, 1);
    behind.setOrthographic({ left: -3, right: 2, bottom: -1, top: 4, near: 0.25, far: 50 });
    scene.addCamera(behind);
    const node = scene.node({ position: [0, 0, -10], scale: [1, 3, 2] });
    node.setSphere(1, 1, 0, 0.5);
    scene.node({ position: [0, 0, 20] }).setSphere(0, 0, 0, 1);
    const client = await open();
    const [scene0] = client.scenes;
    assert.deepStrictEqual(scene0.cameras, ['Camera 1', 'Camera 2']);
    const frame = await frameOf(client);
    // The radius grows with the longest axis.
    assert.deepStrictEqual(Array.from(frame.spheres), [1, 3, -10, 1.5, 0, 0, 20, 1]);
    assert.deepStrictEqual(Array.from(frame.seen), [1, 0]);
    assert.deepStrictEqual([frame.camera, frame.total], [0, 2]);
    assert.deepStrictEqual(Array.from(frame.visible), [1, 1]);
    const float = Math.fround;
    assert.deepStrictEqual(Array.from(frame.pose), [
      0,
      0,
      0,
      0,
      0,
      0,
      -1,
      0,
      1,
      0,
      float(Math.PI / 3),
      2,
      0.5,
      100,
      0,
      0,
    ]);
    client.send({ camera: 1 });
    const other = await frameOf(client, ({ camera: chosen }) => chosen === 1);
    assert.deepStrictEqual(Array.from(other.seen), [0, 1]);
    assert.deepStrictEqual(
      Array.from(other.pose),
      [1, 0, 0, 0, 0, 0, 1, 0, 1, 0, -3, 2, -1, 4, 0.25, 50]
    );
    // Without one of them, and without any.
    scene.removeCamera(behind);
    assert.strictEqual((await frameOf(client)).camera, 0);
    scene.removeCamera(camera);
    const none = await frameOf(client);
    assert.strictEqual(none.camera, protocol.kNoCamera);
    assert.deepStrictEqual(Array.from(none.seen), [0, 0]);
    assert.deepStrictEqual(
      client.scenes.map(({ cameras }) => cameras.length),
      [2, 1, 0]
    );
  });

  it('send all of some hundred nodes', async () => {
    const places = Array.from({ length: 300 }, (_, i) => [i, 2 * i, 5 - i]);
    places.forEach((position) => scene.node({ position }).setSphere(0, 0, 0, 1));
    const client = await open();
    const frame = await frameOf(client, ({ counts }) => counts.nodes === places.length);
    assert.deepStrictEqual(triples(frame.nodes), places);
    const spheres = [].concat(...places.map((place) => [...place, 1]));
    assert.deepStrictEqual(Array.from(frame.spheres), spheres);
  });

  it('send skeletons and meshes of characters, by native matrices', async () => {
    const client = await open();
    assert.deepStrictEqual(client.scenes[0].meshes, []);
    const [first, second] = scene.instantiate(model, 2);
    first.setPosition(10, 0, 0);
    second.setPosition(0, 0, 20);
    const frame = await frameOf(client, ({ counts }) => counts.meshes === 2);
    const described = client.scenes[client.scenes.length - 1];
    assert.deepStrictEqual(
      described.meshes.map(({ name, bones }) => [name, bones]),
      [
        ['some/where/figure.glb', 2],
        ['some/where/figure.glb', 1],
      ]
    );
    assert.deepStrictEqual([described.name, described.title], ['figure.glb', 'inspector']);
    assert.strictEqual(described.arrays['0.positions'].length, 9);
    assert.deepStrictEqual(Array.from(described.arrays['0.bones'].subarray(8)), [1, 0, 0, 0]);
    // A joint, and the joint above it; the places of characters; the model's own spheres.
    assert.deepStrictEqual(triples(frame.segments), [
      [10, 3, 0],
      [10, 1, 0],
      [0, 3, 20],
      [0, 1, 20],
    ]);
    assert.deepStrictEqual(triples(frame.nodes), [
      [10, 0, 0],
      [0, 0, 20],
    ]);
    assert.deepStrictEqual(Array.from(frame.spheres), [10, 1, 0, 2, 0, 1, 20, 2]);
    assert.deepStrictEqual(Array.from(frame.instanceCounts), [2, 2]);
    assert.deepStrictEqual(
      frame.matrices.slice(0, 64),
      Float32Array.of(...first.skinMatrices(), ...second.skinMatrices())
    );
    // The hat follows its node.
    assert.deepStrictEqual(
      frame.matrices.slice(64, 80),
      Float32Array.from(first.node('hat').worldMatrix)
    );
    assert.deepStrictEqual(Array.from(frame.matrices.subarray(76, 79)), [10, 0, 5]);
    assert.deepStrictEqual(Array.from(frame.counters), [10, 2, 0, 2, 1]);

    const sword = scene.node({ position: [0.5, 0, 0] });
    first.attach(sword, 'head');
    const armed = await frameOf(client, ({ counts }) => counts.nodes === 3);
    assert.deepStrictEqual(triples(armed.nodes)[2], [10.5, 3, 0]);
    assert.deepStrictEqual(triples(armed.segments).slice(0, 2), [
      [10.5, 3, 0],
      [10, 3, 0],
    ]);
    first.layers = 0;
    const hidden = await frameOf(client);
    assert.deepStrictEqual(Array.from(hidden.instanceCounts), [1, 1]);
    assert.deepStrictEqual(hidden.matrices.slice(0, 32), Float32Array.from(second.skinMatrices()));
    second.dispose();
    first.dispose();
    assert.strictEqual((await frameOf(client)).counts.instances, 0);
    scene._forget(model);
    const without = await frameOf(client, ({ counts }) => counts.meshes === 0);
    assert.strictEqual(without.counts.segments, 0);
    assert.deepStrictEqual(client.scenes[client.scenes.length - 1].meshes, []);
  });

  it('tint characters by the clips that they play', async () => {
    const [plain, nodding, both] = scene.instantiate(model, 3);
    nodding.play('nod');
    both.play('nod', { weight: 0.5 });
    both.play('bow', { weight: 0.5, beside: true });
    const client = await open();
    const { tints } = await frameOf(client);
    const [none, nod, mix] = triples(tints);
    assert.ok(!plain.isDisposed && new Set([none, nod, mix].map(String)).size === 3);
    nodding.play('bow');
    const bow = triples((await frameOf(client)).tints)[1];
    mix.forEach((value, k) => assert.ok(Math.abs(value - (nod[k] + bow[k]) / 2) < 1e-6));
  });

  it('send no matrices that are not of this frame', async () => {
    const own = new Scene({ engine, skin: 'visible' });
    const pages = await own.inspect(0);
    try {
      own.addCamera(new Camera());
      own.instantiate(model, 3).forEach((character, i) => character.setPosition(0, 0, 10 * i - 15));
      const client = new Client(pages.url);
      clients.push(client);
      const timer = setInterval(() => own.update(1 / 64), 16);
      await client.until(() => client.last && client.last.instanceCounts.length > 0, 'meshes');
      await client.until(() => client.last.visible[0] > 0, 'a culled frame');
      clearInterval(timer);
      // Those at -15 and -5 are in front.
      assert.deepStrictEqual(Array.from(client.last.instanceCounts), [2, 2]);
      assert.strictEqual(client.last.counts.spheres, 3);
    } finally {
      await pages.close();
      own.dispose();
    }
  });

  it('send what each stage of every frame took, also of those that were not sent', async () => {
    const client = await open();
    assert.deepStrictEqual(
      client.scenes[0].stages.map(([name]) => name),
      ['animate', 'transform', 'cull', 'skin', 'inspect']
    );
    await frameOf(client);
    const had = client.frames.length;
    await client.until(() => client.frames.length === had, 'a pause');
    const taken = [];
    // Faster than pages are sent frames.
    for (let i = 0; i < 30; ++i) {
      scene.update();
      taken.push(
        ['animate', 'transform', 'cull', 'skin'].map((name) => Math.fround(scene.stats[name]))
      );
    }
    const sent = () =>
      [].concat(
        ...client.frames
          .slice(had)
          .map(({ history, counts }) =>
            Array.from({ length: counts.rows }, (_, row) =>
              Array.from(history.subarray(5 * row, 5 * row + 5))
            )
          )
      );
    await frameOf(client, () => sent().length > 30);
    const rows = sent().slice(0, 30);
    assert.deepStrictEqual(
      rows.map((row) => row.slice(0, 4)),
      taken
    );
    assert.ok(client.frames.length - had < 30, `${client.frames.length - had} frames`);
    assert.ok(
      sent().some((row) => row[4] > 0),
      'what inspecting took'
    );
  });

  it('time frames of scenes that do not, while a page is open', async () => {
    const own = new Scene({ engine, isTimed: false });
    const pages = await own.inspect(0);
    try {
      own.update();
      assert.strictEqual(own.stats.total, 0);
      const client = new Client(pages.url);
      clients.push(client);
      await client.until(() => client.frames.length > 0, 'the scene as it is');
      own.update();
      assert.ok(own.stats.total > 0);
      client.socket.terminate();
      await client.until(() => own._frames === null, 'the page is gone');
      own.update();
      assert.strictEqual(own.stats.total, 0);
    } finally {
      await pages.close();
      own.dispose();
    }
  });

  it('do nothing while no page is open', async () => {
    assert.strictEqual(scene._frames, null);
    const client = await open();
    assert.notStrictEqual(scene._frames, null);
    client.socket.close();
    await client.closed;
    await client.until(() => scene._frames === null, 'the end of the page');
    scene.update();
    assert.strictEqual(scene._frames, null);
  });

  it('show a page that opens between two updates the scene as it is', async () => {
    scene.node({ position: [1, 2, 3] });
    scene.update();
    const client = await open();
    await client.until(() => client.frames.length > 0, 'a frame');
    assert.deepStrictEqual(triples(client.last.nodes), [[1, 2, 3]]);
  });

  it('serve several pages, and drop frames for one that does not draw', async () => {
    const [slow, fast] = [await open(false), await open()];
    await frameOf(fast, () => fast.frames.length > kMostUndrawn + 8);
    assert.strictEqual(slow.frames.length, kMostUndrawn);
    slow.isDrawing = true;
    slow.send({ drawn: slow.last.frame });
    await frameOf(slow, () => slow.frames.length > kMostUndrawn);
    const next = slow.frames[kMostUndrawn];
    assert.ok(next.skipped >= 8, `${next.skipped}`);
    assert.ok(next.counts.rows > 8, `${next.counts.rows} rows`);
  });

  it('keep bounds that all fits into, steady while it does', async () => {
    const nodes = [-1, 1].map((x) => scene.node({ position: [x, 0, 0] }));
    const client = await open();
    const { bounds } = await frameOf(client);
    const holds = ([x, y, z, radius], place) =>
      Math.hypot(place[0] - x, place[1] - y, place[2] - z) <= radius * 1.02;
    assert.ok(holds(bounds, [-1, 0, 0]) && holds(bounds, [1, 0, 0]) && bounds[3] < 1.3);
    assert.strictEqual(bounds[4], 0, 'the floor is below all');
    nodes[1].setPosition(0.9, 0, 0);
    assert.deepStrictEqual((await frameOf(client)).bounds, bounds);
    nodes[1].setPosition(50, -3, 0);
    const wide = (await frameOf(client, ({ bounds: [, , , radius] }) => radius > 10)).bounds;
    assert.ok(holds(wide, [-1, 0, 0]) && holds(wide, [50, -3, 0]));
    assert.strictEqual(wide[4], -3);
    // More than a float holds.
    nodes[1].setPosition(Number.MAX_VALUE, 0, 0);
    // One that may have been on its way, then one of this.
    await frameOf(client);
    const { bounds: finite } = await frameOf(client);
    assert.ok(finite.every(Number.isFinite), `${finite}`);
  });

  it('listen on the loopback address only, to their own page', async () => {
    assert.ok(/^http:\/\/127\.0\.0\.1:\d+\/$/.test(inspector.url), inspector.url);
    const { port } = new URL(inspector.url);
    const { statusCode, headers, text } = await request(inspector.url, '/');
    assert.deepStrictEqual(
      [statusCode, headers['content-type']],
      [200, 'text/html; charset=utf-8']
    );
    assert.ok(text.includes('nq_logic'));
    const statusOf = async (options, url = '/') =>
      (await request(inspector.url, url, options)).statusCode;
    assert.strictEqual(await statusOf({ headers: { host: `localhost:${port}` } }), 200);
    for (const wrong of [
      { host: `example.com:${port}` },
      { host: '127.0.0.1' },
      { host: `127.0.0.1:${Number(port) + 1}` },
      { origin: 'http://example.com' },
      { origin: 'null' },
    ]) {
      assert.strictEqual(await statusOf({ headers: wrong }), 403, JSON.stringify(wrong));
      const client = new Client(inspector.url, { headers: wrong });
      const opened = new Promise((resolve) => client.socket.on('open', () => resolve(null)));
      const error = await Promise.race([client.failed, opened]);
      assert.ok(error !== null && /403/.test(error.message), JSON.stringify(wrong));
    }
    assert.strictEqual(await statusOf({ method: 'POST' }), 405);
    assert.strictEqual(await statusOf({ method: 'HEAD' }), 200);
    assert.strictEqual(await statusOf({}, '/../server.js'), 404);
  });

  it('accept a limited number of pages', async () => {
    for (let i = 0; i < kMostPages; ++i) {
      await open();
    }
    const client = new Client(inspector.url);
    const error = await client.failed;
    assert.ok(/503/.test(error.message), error.message);
    clients[0].socket.close();
    await clients[0].closed;
    const again = await open();
    assert.strictEqual(again.scenes.length, 1);
  });

  it('end with their scene, and can be opened again', async () => {
    const client = await open();
    await assert.rejects(scene.inspect(0), {
      name: 'Error',
      message: 'Scene.inspect: the scene is inspected already: close that inspector first.',
    });
    const { port } = new URL(inspector.url);
    assert.strictEqual(inspector.close(), inspector.close());
    assert.deepStrictEqual(await client.closed, { code: 1001, reason: 'the server ends' });
    await inspector.close();
    inspector = await scene.inspect(Number(port));
    assert.strictEqual(new URL(inspector.url).port, port);
    const next = await open();
    scene.dispose();
    assert.strictEqual((await next.closed).code, 1001);
    await assert.rejects(scene.inspect(0), /the scene is disposed of/);
  });

  it('can be opened again while pages of the last one have not yet left', async () => {
    const late = await open();
    late.socket._socket.pause();
    const closing = inspector.close();
    inspector = await scene.inspect(0);
    const page = await open();
    late.socket._socket.resume();
    await Promise.all([closing, late.closed]);
    await new Promise((resolve) => setTimeout(resolve, 20));
    scene.node({ position: [3, 0, 0] });
    const frame = await frameOf(page, ({ counts }) => counts.nodes > 0);
    assert.deepStrictEqual(triples(frame.nodes), [[3, 0, 0]]);
  });

  it('free the port if their scene is disposed of while it is opened', async () => {
    const { port } = new URL(inspector.url);
    await inspector.close();
    const other = new Scene({ engine });
    const opening = other.inspect(Number(port));
    other.dispose();
    await assert.rejects(opening, /the scene is disposed of: make a new one/);
    // The address is looked up in the background, and the port may be opened only then.
    await new Promise((resolve) => setTimeout(resolve, 100));
    inspector = await scene.inspect(Number(port));
    assert.strictEqual(new URL(inspector.url).port, port);
  });

  it('name what is wrong, and the cure', async () => {
    const other = new Scene({ engine });
    for (const [port, Kind] of [
      ['80', TypeError],
      [-1, RangeError],
      [65536, RangeError],
      [1.5, RangeError],
      [null, TypeError],
    ]) {
      await assert.rejects(
        other.inspect(port),
        (error) =>
          error instanceof Kind &&
          /^Scene\.inspect: port is .*: give a whole number from 0 to 65535\.$/.test(error.message)
      );
    }
    const { port } = new URL(inspector.url);
    await assert.rejects(other.inspect(Number(port)), {
      code: 'EADDRINUSE',
      message:
        `Scene.inspect: port ${port} of 127.0.0.1 can't be opened, it is in use: ` +
        'give another one, or 0 for any that is free.',
    });
    // A failed attempt leaves the way free.
    const own = await other.inspect(0);
    await own.close();
    const opening = other.inspect(0);
    other.dispose();
    await assert.rejects(
      opening,
      /^Error: Scene\.inspect: the scene is disposed of: make a new one\.$/
    );
  });

  it('do not keep the process running, also with a page open', async () => {
    const program = `
      const { Scene } = require('./scene');
      const scene = new Scene();
      scene.inspect(0).then(({ url }) => {
        console.log(url);
        const timer = setInterval(() => scene.update(), 10);
        process.stdin.once('data', () => {
          clearInterval(timer);
          process.stdin.unref();
        });
      });`;
    const child = childProcess.spawn(process.execPath, ['-e', program], { cwd: root });
    const ended = new Promise((resolve) => child.on('close', (...how) => resolve(how)));
    let errors = '';
    child.stderr.on('data', (text) => {
      errors += text;
    });
    const url = await new Promise((resolve) =>
      child.stdout.once('data', (text) => resolve(String(text).trim()))
    );
    const client = new Client(url);
    await client.until(() => client.frames.length > 2, 'frames');
    child.stdin.write('end\n');
    assert.deepStrictEqual(await ended, [0, null], errors);
    assert.strictEqual(errors, '');
    await client.closed;
  });
});
