'use strict';
// The viewer without a browser: user control of the crowd, what its messages have of it, what the server serves to whom,
// and how it ends. For the messages byte by byte see the tests of the inspector.
const assert = require('assert');
const childProcess = require('child_process');
const fs = require('fs');
const http = require('http');
const net = require('net');
const os = require('os');
const path = require('path');
const { createFigure } = require('../../../demo/figure');
const { loadModel } = require('../../../demo/model');
const { palettes } = require('../../../demo/picture');
const { displayMesh } = require('../../../lib/scene/inspect/display-mesh');
const protocol = require('../../../lib/scene/inspect/protocol');
const { kMostUndrawn } = require('../../../lib/scene/inspect/server');
const { Handle, placeOf, weightsAt } = require('../../../viewer/direction');
const { checkRuntime, parseOptions } = require('../../../viewer/options');
const { ViewerServer } = require('../../../viewer/server');
const { Show, cameras } = require('../../../viewer/show');
const { skeleton, writeGlb } = require('../../fixtures/models');
const { modulePath } = require('../support/host');
const {
  Client,
  closed,
  connect,
  request,
  toText,
  upgradeRequest,
} = require('../support/page-client');

const { getEngine } = require(modulePath);
const { removeFolder } = require('../../../scripts/lib/run');

const main = path.join(__dirname, '..', '..', '..', 'viewer', 'main.js');
const kBones = 50;
const kFrame = 1 / 60;
const { perspective, overview } = cameras;

/** Flags of a frame of figures: of the sliders after that of the crowd. */
const flags = {
  crossfade: protocol.flagOf(1),
  wave: protocol.flagOf(2),
  breath: protocol.flagOf(3),
};

/** A buffer of exactly this many bytes, filled with poison. */
const takeBuffer = (bytes) => new Uint8Array(bytes).fill(0xab).buffer;

let folder;
before(() => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-viewer-'));
});
after(() => {
  removeFolder(folder);
});

/** A small crowd of figures. */
function createShow(characters, seed = 1) {
  return new Show(getEngine(), createFigure(), characters, seed);
}

/** The last frame of a show, read back from its message. */
function frameOf(show, camera = perspective, skipped = 0, aspect = show.usualAspect) {
  const message = show.encode({ camera, aspect, costsAt: 0 }, skipped, takeBuffer);
  assert.strictEqual(message.byteOffset, 0);
  return protocol.decodeFrame(message.buffer.slice(0, message.byteLength));
}

/** Runs frames of a show. */
function run(show, frames) {
  for (let i = 0; i < frames; ++i) {
    show.advance(kFrame);
  }
}

describe('viewer user control', () => {
  it('overrides and releases a value without a jump', () => {
    const handle = new Handle();
    assert.strictEqual(handle.mix(0.3), 0.3);
    handle.set(1, 0.25);
    let last = handle.mix(0.3);
    assert.strictEqual(last, 0.3);
    const step = () => {
      handle.advance(kFrame);
      const value = handle.mix(0.3);
      // 2.5 per second each for the value and for its weight, over a range of 0.7.
      assert.ok(Math.abs(value - last) <= 2 * 2.5 * kFrame, `${last} to ${value}`);
      last = value;
    };
    for (let i = 0; i < 60; ++i) {
      step();
    }
    assert.strictEqual(last, 1);
    handle.set(null, 1);
    for (let i = 0; i < 60; ++i) {
      step();
    }
    assert.strictEqual(last, 0.3);
  });

  it('keeps a value that equals the user value', () => {
    const handle = new Handle();
    handle.set(0.3, 0.3);
    for (let i = 0; i < 60; ++i) {
      handle.advance(kFrame);
      assert.ok(Math.abs(handle.mix(0.3) - 0.3) < 1e-12);
    }
    assert.strictEqual(handle.hold, 1);
  });

  it('computes weights between clips', () => {
    assert.deepStrictEqual(weightsAt(2, 0.25), [0.75, 0.25]);
    assert.deepStrictEqual(weightsAt(3, 0.75), [0, 0.5, 0.5]);
    assert.deepStrictEqual(weightsAt(1, 0.5), [1]);
    assert.deepStrictEqual(weightsAt(0, 0.5), []);
    assert.strictEqual(placeOf([0.75, 0.25]), 0.25);
    assert.strictEqual(placeOf([0, 0.5, 0.5]), 0.75);
    assert.strictEqual(placeOf([1]), 0);
    assert.strictEqual(placeOf([]), 0);
  });

  it('crossfades all figures, and their matrices with them', () => {
    const [steered, free] = [createShow(12), createShow(12)];
    [0, 1].forEach((wanted) => {
      steered.control({ crossfade: wanted });
      run(steered, 60);
      run(free, 60);
      const frame = frameOf(steered, overview);
      assert.ok(frame.instanceCounts[0] > 0);
      // The colour of a clip, if it plays alone.
      const color = Float32Array.from(palettes.clips[wanted], (value) => value / 255);
      for (let i = 0; i < frame.instanceCounts[0]; ++i) {
        assert.deepStrictEqual(steered.stage.plan.weights(frame.ids[i]), [1 - wanted, wanted]);
        assert.deepStrictEqual(frame.tints.slice(3 * i, 3 * i + 3), color);
      }
      assert.strictEqual(frame.sliders[1], wanted);
      assert.strictEqual(frame.flags, flags.crossfade);
    });
    const mean = frameOf(free).sliders[1];
    assert.ok(mean > 0.05 && mean < 0.95, `${mean}: by the plan some walk and some run`);
    assert.notDeepStrictEqual(steered.stage.crowd.matrices[0], free.stage.crowd.matrices[0]);
    steered.control({ crossfade: null });
    run(steered, 60);
    assert.strictEqual(frameOf(steered).flags, 0);
    assert.ok(frameOf(steered).sliders[1] < 0.95);
  });

  it('sets layer weights: the wave of those that carry, the breath of all', () => {
    const show = createShow(20);
    const carriers = show.stage.cast.map((part, i) => (part ? i : -1)).filter((i) => i >= 0);
    assert.ok(carriers.length > 0 && carriers.length < 20);
    for (const [wave, breath] of [
      [1, 0],
      [0, 1],
    ]) {
      show.control({ wave, breath });
      run(show, 60);
      const frame = frameOf(show);
      assert.deepStrictEqual(Array.from(frame.sliders.subarray(2)), [wave, breath]);
      assert.strictEqual(frame.flags, flags.wave | flags.breath);
      const { waves, breaths } = show.stage.crowd;
      waves.forEach((layer, i) => {
        assert.strictEqual(layer !== null, carriers.includes(i), `layer of ${i}`);
        assert.strictEqual(layer === null ? wave : layer.weight, wave, `wave of ${i}`);
        assert.strictEqual(breaths[i].weight, breath, `breath of ${i}`);
      });
    }
  });

  it('raises hands when all wave', () => {
    const show = createShow(20);
    const { crowd, cast } = show.stage;
    const carrier = cast.findIndex((part) => part !== null);
    const height = (wave) => {
      show.control({ wave });
      run(show, 90);
      return crowd.props.worldMatrix(carrier)[13];
    };
    const down = height(0);
    const up = height(1);
    // A carrying hand is at the hips' height, a waving one above the head.
    assert.ok(up > down + 0.4, `${down} m to ${up} m`);
  });

  it('deactivates a part of the crowd, and moves the cameras', () => {
    const show = createShow(120);
    run(show, 2);
    const wide = frameOf(show, overview).bounds[3];
    show.control({ crowd: 10 });
    run(show, 2);
    const active = show.stage.crowd.matrices[5].slice();
    const angle = show.stage.plan.angle[60];
    run(show, 90);
    assert.strictEqual(show.stage.crowd.count, 10);
    assert.strictEqual(show.stage.scene.stats.skinned, 10);
    assert.notStrictEqual(show.stage.plan.angle[60], angle, 'its place on the lap moves on');
    assert.notDeepStrictEqual(show.stage.crowd.matrices[5], active);
    const frame = frameOf(show, overview);
    assert.deepStrictEqual(
      [frame.total, frame.sliders[0], frame.counters[0]],
      [10, 10, 10 * kBones]
    );
    assert.ok(frame.visible[0] + frame.visible[1] > 0);
    assert.ok(Math.max(...frame.ids) < 10, 'those that rest are not seen');
    assert.ok(frame.bounds[3] < 0.7 * wide, `${wide} m to ${frame.bounds[3]} m`);
    show.control({ crowd: 120 });
    run(show, 90);
    const back = frameOf(show, overview);
    assert.strictEqual(back.total, 120);
    assert.ok(Math.max(...back.ids) >= 10);
    assert.strictEqual(show.stage.scene.stats.skinned, 120);
    assert.ok(show.stage.crowd.matrices[60].some((value) => value !== 0));
  });

  it('streams native matrices of the characters that each camera sees', () => {
    const show = createShow(60);
    run(show, 3);
    const { crowd, culling, cast } = show.stage;
    for (const camera of [perspective, overview]) {
      const frame = frameOf(show, camera, 6);
      const { views } = culling.shapes.get(show.usualAspect);
      const view = camera === perspective ? views.perspective : views.overview;
      const marks = culling.visible(view);
      assert.strictEqual(frame.camera, camera);
      assert.strictEqual(frame.skipped, 6);
      assert.strictEqual(frame.frame, 3);
      const bodies = frame.instanceCounts[0];
      const characters = Array.from(frame.ids.subarray(0, bodies));
      assert.strictEqual(bodies, view.handles.length);
      assert.strictEqual(frame.visible[camera], view.handles.length);
      assert.ok(characters.every((character) => marks[character] === 1));
      characters.forEach((character, i) => {
        assert.deepStrictEqual(
          frame.matrices.subarray(16 * kBones * i, 16 * kBones * (i + 1)),
          Float32Array.from(crowd.matrices[character])
        );
      });
      // Then what they carry: the instances of each prop, for the left hand and for the right.
      let at = bodies;
      Array.from(frame.instanceCounts.subarray(1)).forEach((count, mesh) => {
        const carriers = characters.filter((character) => {
          const part = cast[character];
          return part && part.prop === mesh >> 1 && part.hand === (mesh & 1);
        });
        assert.deepStrictEqual(Array.from(frame.ids.subarray(at, at + count)), carriers);
        carriers.forEach((character, i) => {
          const float = 16 * (kBones * bodies + at - bodies + i);
          assert.deepStrictEqual(
            frame.matrices.slice(float, float + 16),
            crowd.props.worldMatrix(character)
          );
        });
        at += count;
      });
      assert.strictEqual(at, frame.counts.instances);
      assert.ok(at > bodies, 'some carry something');
      assert.ok(frame.matrices.every(Number.isFinite));
    }
    const all = [perspective, overview].map((camera) => {
      const { ids, instanceCounts } = frameOf(show, camera);
      return Array.from(ids.subarray(0, instanceCounts[0]));
    });
    assert.notDeepStrictEqual(all[0].sort(), all[1].sort());
  });

  it('gives each character its own palette, and those of its props', () => {
    const show = createShow(60);
    run(show, 1);
    const scene = protocol.decodeScene(show.describe(), toText);
    const frame = frameOf(show, overview);
    const { skins, hairs } = palettes;
    let at = 0;
    frame.instanceCounts.forEach((count, mesh) => {
      const all = scene.meshes[mesh].palettes;
      for (let i = 0; i < count; ++i, ++at) {
        const character = frame.ids[at];
        const palette = all[frame.variants[at]];
        if (mesh === 0) {
          assert.deepStrictEqual(palette[2], [...skins[(character * 7) % skins.length], 0]);
          assert.deepStrictEqual(palette[3], [...hairs[(character * 5) % hairs.length], 0]);
          assert.deepStrictEqual(palette[0], [0, 0, 0, 1], 'clothes have the tint alone');
        } else {
          const { prop } = show.stage.cast[character];
          const colors = show.kind.layers.props[prop].palettes;
          const expected = colors[character % colors.length].map((color) => [...color, 0]);
          assert.deepStrictEqual(palette, expected);
        }
      }
    });
    assert.ok(new Set(frame.variants).size > 3);
  });

  it('stops while paused, and still accepts controls', () => {
    const show = createShow(6);
    run(show, 10);
    show.control({ paused: true });
    run(show, 1);
    const still = show.stage.crowd.matrices.map((matrices) => matrices.slice());
    run(show, 5);
    assert.deepStrictEqual(show.stage.crowd.matrices, still);
    assert.strictEqual(frameOf(show).flags, protocol.kPaused);
    show.control({ breath: 1, crossfade: 1 });
    run(show, 60);
    assert.notDeepStrictEqual(show.stage.crowd.matrices, still);
    assert.strictEqual(frameOf(show).sliders[1], 1);
  });

  it('gives both cameras the aspect ratio of each page', () => {
    const show = createShow(6);
    const aspects = [2, 0.5, 1, 2];
    show.advance(kFrame, aspects);
    for (const aspect of aspects) {
      const look = (camera) => frameOf(show, camera, 0, aspect);
      assert.strictEqual(look(perspective).pose[11], aspect);
      const [left, right, bottom, top] = look(overview).pose.subarray(10, 14);
      assert.ok(Math.abs((right - left) / (top - bottom) - aspect) < 1e-6);
      const least = Math.min(right - left, top - bottom);
      assert.ok(Math.abs(least - 2 * 0.48 * look(overview).bounds[3]) < 1e-3 * least);
    }
  });

  it('culls for each page as if it were alone', () => {
    const aspects = [0.4, 1, 3];
    const [shared, ...alone] = [aspects, ...aspects.map((aspect) => [aspect])].map((shapes) => {
      const show = createShow(80);
      for (let i = 0; i < 3; ++i) {
        show.advance(kFrame, shapes);
      }
      return show;
    });
    const seen = aspects.map((aspect, i) =>
      [perspective, overview].map((camera) => {
        const [among, only] = [shared, alone[i]].map((show) => frameOf(show, camera, 0, aspect));
        for (const part of ['visible', 'pose', 'bounds', 'instanceCounts', 'ids', 'matrices']) {
          assert.deepStrictEqual(among[part], only[part], `${part} at ${aspect}`);
        }
        return among.instanceCounts[0];
      })
    );
    // The wider the page, the more it sees, but for the overview, which grows with either side.
    assert.ok(seen[0][0] < seen[1][0] && seen[1][0] < seen[2][0], JSON.stringify(seen));
    assert.ok(seen[0][1] > seen[1][1] && seen[2][1] > seen[1][1], JSON.stringify(seen));
  });

  it('shows models, crossfades their clips, and has no layers for them', async () => {
    const model = skeleton();
    const second = Object.assign({}, model.json.animations[0], { name: 'again' });
    model.json.animations.push(second);
    const kind = await loadModel(writeGlb(path.join(folder, 'two.glb'), model));
    const show = new Show(getEngine(), kind, 4, 1);
    const scene = protocol.decodeScene(show.describe(), toText);
    assert.deepStrictEqual(
      scene.sliders.map(({ name, blends }) => [name, blends]),
      [
        ['crowd', null],
        ['crossfade', ['everything', 'again']],
      ]
    );
    assert.strictEqual(scene.meshes.length, 1);
    assert.ok(!scene.stages.some(([name]) => name === 'props'));
    show.control({ crossfade: 0.25, wave: 1, crowd: 3 });
    run(show, 60);
    const frame = frameOf(show, overview);
    assert.strictEqual(frame.milliseconds.length, scene.stages.length);
    assert.strictEqual(frame.total, 3);
    assert.deepStrictEqual(Array.from(frame.sliders), [3, 0.25]);
    assert.deepStrictEqual(show.stage.plan.weights(0), [0.75, 0.25]);
    assert.ok(frame.matrices.length > 0 && frame.matrices.every(Number.isFinite));
  });
});

describe('viewer scene', () => {
  it('describes figures, their props and their stages', () => {
    const show = createShow(9);
    const scene = protocol.decodeScene(show.describe(), toText);
    assert.deepStrictEqual(
      [scene.title, scene.name, scene.subject],
      ['viewer', 'figure', '9 × figure, 50 bones each']
    );
    assert.deepStrictEqual(
      scene.sliders.map(({ name, max, isSteered, blends }) => [name, max, isSteered, blends]),
      [
        ['crowd', 9, false, null],
        ['crossfade', 1, true, ['walk', 'run']],
        ['wave', 1, true, null],
        ['breath', 1, true, null],
      ]
    );
    assert.deepStrictEqual(scene.cameras, ['Perspective', 'Overview']);
    assert.deepStrictEqual(
      scene.stages.map(([name]) => name),
      ['script', 'animate', 'transform', 'skin', 'perspective', 'overview', 'stream']
    );
    const { props } = show.kind.layers;
    assert.deepStrictEqual(
      scene.meshes.map(({ name, bones }) => [name, bones]),
      [
        ['body', 50],
        ...[].concat(
          ...props.map(({ name }) => [
            [name, 1],
            [name, 1],
          ])
        ),
      ]
    );
    scene.meshes.forEach(({ bones, palettes: all }, i) => {
      const array = (part) => scene.arrays[`${i}.${part}`];
      const vertices = array('positions').length / 3;
      assert.ok(vertices > 0 && array('normals').length === 3 * vertices);
      assert.ok(array('triangles').every((vertex) => vertex < vertices));
      assert.ok(array('bones').every((bone) => bone < bones));
      assert.ok(array('parts').every((part) => part < all[0].length));
    });
    // A lamp is as far from the middle of the body in either hand.
    const glows = scene.meshes.map(({ glow }) => glow).filter((glow) => glow !== null);
    assert.ok(glows.length >= 2);
    for (let i = 0; i < glows.length; i += 2) {
      assert.strictEqual(glows[i].place[0], -glows[i + 1].place[0]);
      assert.deepStrictEqual(glows[i].place.slice(1), glows[i + 1].place.slice(1));
    }
  });

  it('computes area-weighted normals across vertices at the same position', () => {
    // Two triangles at a right angle, the second twice as large, with a seam of doubled vertices.
    const positions = Float32Array.of(
      ...[0, 0, 0, 1, 0, 0, 0, 1, 0],
      ...[0, 0, 0, 0, 1, 0, 0, 0, 2]
    );
    const shown = displayMesh({
      positions,
      bones: new Uint16Array(24),
      weights: new Float32Array(24).fill(0.25),
      triangles: Uint32Array.of(0, 1, 2, 3, 4, 5),
      parts: Uint8Array.of(0, 0),
    });
    const long = Math.sqrt(5);
    const expected = [
      [2 / long, 0, 1 / long],
      [0, 0, 1],
      [2 / long, 0, 1 / long],
      [2 / long, 0, 1 / long],
      [2 / long, 0, 1 / long],
      [1, 0, 0],
    ];
    expected.forEach((normal, vertex) => {
      normal.forEach((value, axis) => {
        assert.ok(Math.abs(shown.normals[3 * vertex + axis] - value) < 1e-6, `vertex ${vertex}`);
      });
    });
  });

  it('duplicates vertices that two colours share', () => {
    const shown = displayMesh({
      positions: Float32Array.of(0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0),
      bones: Uint16Array.from({ length: 16 }, (_, i) => i),
      weights: new Float32Array(16).fill(0.25),
      triangles: Uint32Array.of(0, 1, 2, 2, 1, 3),
      parts: Uint8Array.of(0, 4),
    });
    assert.deepStrictEqual(Array.from(shown.triangles), [0, 1, 2, 3, 4, 5]);
    assert.deepStrictEqual(Array.from(shown.parts), [0, 0, 0, 4, 4, 4]);
    assert.deepStrictEqual(Array.from(shown.positions.subarray(9)), [0, 1, 0, 1, 0, 0, 1, 1, 0]);
    assert.deepStrictEqual(Array.from(shown.bones.subarray(12, 16)), [8, 9, 10, 11]);
  });
});

describe('viewer server', () => {
  let server;
  let address;

  beforeEach(async () => {
    server = new ViewerServer(createShow(30));
    address = await server.listen(0);
  });

  afterEach(() => server.close());

  it('listens on the loopback address only', () => {
    assert.ok(/^http:\/\/127\.0\.0\.1:\d+\/$/.test(address), address);
    assert.strictEqual(server.server.address().address, '127.0.0.1');
  });

  it('serves the page with all files that it loads', async () => {
    const wanted = ['/'];
    const seen = {};
    while (wanted.length > 0) {
      const url = wanted.pop();
      if (url in seen) {
        continue;
      }
      const { statusCode, headers, text } = await request(address, url);
      assert.strictEqual(statusCode, 200, url);
      assert.ok(headers['content-security-policy'].startsWith("default-src 'self';"), url);
      seen[url] = headers['content-type'];
      {
        assert.ok(
          !/https?:\/\/(?!www\.w3\.org\/2000\/svg)/.test(text),
          `${url} names no other host`
        );
        const links = text.match(/(?:src|href)="([^"]+)"|from '([^']+)'/g) || [];
        links
          .map((link) => /["']([^"']+)["']/.exec(link)[1])
          .filter((link) => !link.startsWith('data:'))
          .forEach((link) => wanted.push(new URL(link, new URL(url, address)).pathname));
      }
    }
    assert.ok(/^text\/html/.test(seen['/']));
    assert.ok(/^text\/css/.test(seen['/style.css']));
    for (const script of ['/main.js', '/picture.js', '/protocol.js', '/shaders.js']) {
      assert.ok(/javascript/.test(seen[script]), `${script}: ${seen[script]}`);
    }
  });

  it('serves nothing else', async () => {
    for (const url of [
      ...['/server.js', '/main.mjs', '/package.json', '/../package.json', '/..%2fpackage.json'],
      ...['/%2e%2e/server.js', '/three/three.module.js', '/index.html/..', '//', '/?a'],
      ...['/stream', '/protocol.js/../server.js'],
    ]) {
      const { statusCode, text } = await request(address, url);
      assert.strictEqual(statusCode, 404, `${url}: ${text.slice(0, 60)}`);
    }
  });

  it('sends the scene, then frames that change', async () => {
    const client = new Client(address);
    await client.until(() => client.frames.length >= 12, 'frames');
    assert.strictEqual(client.scenes.length, 1);
    assert.strictEqual(client.scenes[0].sliders[0].max, 30);
    const numbers = client.frames.map(({ frame }) => frame);
    assert.ok(
      numbers.every((number, i) => i === 0 || number > numbers[i - 1]),
      numbers.join()
    );
    const [first, later] = [client.frames[0], client.last];
    assert.ok(first.counts.instances > 0);
    assert.notDeepStrictEqual(first.matrices, later.matrices);
    assert.ok(client.frames.every(({ matrices }) => matrices.every(Number.isFinite)));
    assert.strictEqual(first.milliseconds.length, client.scenes[0].stages.length);
    assert.ok(later.milliseconds.every((value) => value >= 0));
    assert.ok(later.milliseconds[1] > 0, 'animation takes time');
    client.socket.close();
  });

  it('applies controls of a page: crowd for all, camera for this one', async () => {
    const [one, other] = [new Client(address), new Client(address)];
    await one.until(() => one.last && other.last, 'frames');
    one.send({ camera: overview, crowd: 8 });
    await one.until(() => one.last.camera === overview && other.last.total === 8, 'the change');
    assert.strictEqual(other.last.camera, perspective);
    assert.strictEqual(one.last.total, 8);
    one.socket.close();
    other.socket.close();
  });

  it('culls for each page by its own aspect ratio', async () => {
    const [wide, tall] = [new Client(address), new Client(address)];
    await wide.until(() => wide.last && tall.last, 'frames');
    wide.send({ aspect: 3 });
    await wide.until(() => wide.last.pose[11] === 3, 'the wide view');
    tall.send({ aspect: 0.25 });
    await tall.until(() => tall.last.pose[11] === 0.25, 'the tall view');
    const { frame } = tall.last;
    await wide.until(() => wide.last.frame > frame, 'a later frame');
    assert.strictEqual(wide.last.pose[11], 3);
    await wide.until(() => tall.frames.some((one) => one.frame === wide.last.frame), 'the same');
    const other = tall.frames.find((one) => one.frame === wide.last.frame);
    assert.ok(wide.last.visible[0] > other.visible[0], 'the wide page sees more');
    wide.socket.close();
    tall.socket.close();
  });

  it('drops frames for a page that does not draw', async () => {
    const client = new Client(address);
    client.isDrawing = false;
    await client.until(() => server.show.frameNumber > kMostUndrawn + 8, 'frames');
    assert.strictEqual(client.frames.length, kMostUndrawn);
    client.isDrawing = true;
    client.send({ drawn: client.last.frame });
    await client.until(() => client.frames.length > kMostUndrawn, 'the next frame');
    assert.ok(client.frames[kMostUndrawn].skipped >= 8, `${client.frames[kMostUndrawn].skipped}`);
    client.socket.close();
  });

  it('drops frames while too many bytes are buffered', async () => {
    const client = new Client(address);
    await client.until(() => client.frames.length > 0, 'a frame');
    const [viewer] = server.pages;
    let waiting = 2 ** 21;
    Object.defineProperty(viewer.socket, 'bufferedAmount', { get: () => waiting });
    const { skipped } = viewer;
    await client.until(() => viewer.skipped > skipped + 3, 'frames left out');
    waiting = 0;
    const had = client.frames.length;
    await client.until(() => client.frames.length > had + 3, 'frames again');
    client.socket.close();
  });

  it('is idle while no page is connected', async () => {
    const client = new Client(address);
    await client.until(() => client.frames.length > 0, 'a frame');
    client.socket.close();
    await client.closed;
    await client.until(() => server.timer === null, 'the end of frames');
    const { frameNumber } = server.show;
    await new Promise((resolve) => setTimeout(resolve, 60));
    assert.strictEqual(server.show.frameNumber, frameNumber);
  });

  it('closes the connection of a page that violates the protocol', async () => {
    for (const [message, words] of [
      ['{"crowd": 31}', /'crowd' is out of its range/],
      ['no', /no JSON/],
      [Buffer.from('{"crowd": 3}'), /not binary/],
    ]) {
      const client = new Client(address);
      await client.until(() => client.scenes.length > 0, 'the scene');
      client.socket.send(message);
      const { code, reason } = await client.closed;
      assert.strictEqual(code, 1008);
      assert.ok(words.test(reason), reason);
    }
    const client = new Client(address);
    await client.until(() => client.scenes.length > 0, 'the scene');
    client.socket.send(`"${'x'.repeat(2000)}"`);
    // Larger than any message of a page.
    assert.strictEqual((await client.closed).code, 1009);
    assert.strictEqual(server.show.crowd, 30);
  });

  it('rejects pages of other sites, and other names of this machine', async () => {
    const { port } = new URL(address);
    for (const options of [
      { origin: 'http://example.com' },
      { origin: `http://127.0.0.1:${Number(port) + 1}` },
      { headers: { host: `example.com:${port}` }, origin: `http://example.com:${port}` },
    ]) {
      const client = new Client(address, options);
      const opened = new Promise((resolve) => client.socket.on('open', () => resolve(null)));
      const error = await Promise.race([client.failed, opened]);
      assert.ok(error !== null && /403/.test(error.message), JSON.stringify(options));
    }
    const ours = new Client(address, { origin: address.replace(/\/$/, '') });
    await ours.until(() => ours.frames.length > 0, 'a frame');
    ours.socket.close();
  });

  it('answers pings, and only the last of many at once', async () => {
    const client = new Client(address);
    await client.until(() => client.scenes.length > 0, 'the scene');
    const pongs = [];
    client.socket.on('pong', (data) => pongs.push(String(data)));
    client.socket.ping('alone');
    await client.until(() => pongs.length > 0, 'a pong');
    for (let i = 0; i < 200; ++i) {
      client.socket.ping(String(i));
    }
    await client.until(() => pongs[pongs.length - 1] === '199', 'the last pong');
    assert.strictEqual(pongs[0], 'alone');
    const numbers = pongs.slice(1).map(Number);
    assert.ok(numbers.length < 200, `${numbers.length} answers`);
    assert.ok(numbers.every((number, i) => i === 0 || number > numbers[i - 1]));
    client.socket.close();
  });

  it('answers a request for a file that is missing', async () => {
    const { readFile } = fs;
    fs.readFile = (file, done) => readFile(`${file}.gone`, done);
    try {
      const { statusCode, text } = await request(address, '/style.css');
      assert.deepStrictEqual(
        [statusCode, text],
        [500, 'this file of the page is missing: install the package again.\n']
      );
    } finally {
      fs.readFile = readFile;
    }
    assert.strictEqual((await request(address, '/style.css')).statusCode, 200);
  });

  it('closes connections when it ends', async () => {
    const client = new Client(address);
    await client.until(() => client.frames.length > 0, 'a frame');
    await server.close();
    assert.deepStrictEqual(await client.closed, { code: 1001, reason: 'the server ends' });
    server = new ViewerServer(server.show);
    await server.listen(0);
  });
});

/** Runs the viewer as a program. */
function start(args, environment) {
  const child = childProcess.spawn(process.execPath, [main, ...args], {
    env: Object.assign({}, process.env, { NQ_MODULE: path.resolve(modulePath) }, environment),
  });
  const output = { stdout: '', stderr: '' };
  ['stdout', 'stderr'].forEach((name) => {
    child[name].setEncoding('utf8');
    child[name].on('data', (text) => {
      output[name] += text;
    });
  });
  const ended = new Promise((resolve) => {
    child.on('close', (code, signal) => resolve(Object.assign({ code, signal }, output)));
  });
  const address = new Promise((resolve, reject) => {
    ended.then(({ code, stderr }) => reject(new Error(`it ended with ${code}: ${stderr}`)));
    child.stdout.on('data', () => {
      const found = /at (http:\S+) /.exec(output.stdout);
      if (found) {
        resolve(found[1]);
      }
    });
  });
  // Not every test waits for it.
  address.catch(() => {});
  return { child, ended, address };
}

/** A number of pings of 125 bytes each, in one buffer. A mask of zeros does not change them. */
function manyPings(count) {
  const ping = Buffer.alloc(2 + 4 + 125, 'p');
  ping.set([0x89, 0x80 | 125, 0, 0, 0, 0]);
  return Buffer.concat(new Array(count).fill(ping));
}

/** Largest size of a process in memory so far, in megabytes. */
function peakMegabytes(pid) {
  const status = fs.readFileSync(`/proc/${pid}/status`, 'latin1');
  return Number(/^VmHWM:\s+(\d+) kB$/m.exec(status)[1]) / 1024;
}

describe('viewer program against broken clients', () => {
  let program;
  let address;

  beforeEach(async () => {
    program = start(['--port', '0', '--characters', '3']);
    address = await program.address;
  });

  /** Asserts that the program still serves pages and streams, and ends in order. */
  async function assertSound() {
    assert.strictEqual((await request(address, '/')).statusCode, 200);
    const client = new Client(address);
    await client.until(() => client.frames.length > 2, 'frames');
    program.child.kill('SIGINT');
    const { code, signal, stderr } = await program.ended;
    assert.deepStrictEqual([code, signal, stderr], [0, null, '']);
  }

  afterEach(() => program.child.kill('SIGKILL'));

  it('survives refused streams whose connections break', async () => {
    for (let i = 0; i < 5; ++i) {
      const socket = connect(address);
      const end = closed(socket);
      // An answer that was not read when its socket is closed resets the connection.
      socket.pause();
      socket.write(upgradeRequest(address, 'http://example.com'));
      await new Promise((resolve) => setTimeout(resolve, 50));
      socket.destroy();
      await end;
    }
    await assertSound();
  });

  it('closes refused streams, also if the client keeps its end open', async () => {
    const socket = connect(address);
    let answer = '';
    socket.on('data', (data) => {
      answer += data;
    });
    const ended = new Promise((resolve) => socket.once('end', resolve));
    socket.write(upgradeRequest(address, 'http://example.com'));
    await ended;
    assert.ok(answer.startsWith('HTTP/1.1 403 Forbidden\r\n'), answer);
    // The connection is lost: eventually, writing fails.
    const end = closed(socket);
    const timer = setInterval(() => socket.write('more'), 50);
    await end;
    clearInterval(timer);
    await assertSound();
  });

  it('serves whole files for any requested range', async () => {
    const { hostname, port } = new URL(address);
    const { text } = await request(address, '/style.css');
    for (const range of [
      ...['bytes=5-2', 'bytes=0-99999999999999999999', 'bytes=99999999-', 'bytes=-5', 'bytes=-'],
      ...['bytes=3-7', 'bytes=1-2,5-6', 'lines=1', ''],
    ]) {
      const options = { hostname, port, path: '/style.css', agent: false };
      const response = await new Promise((resolve, reject) => {
        http.get(Object.assign(options, { headers: { range } }), resolve).on('error', reject);
      });
      const parts = [];
      response.on('data', (part) => parts.push(part));
      await new Promise((resolve) => response.on('end', resolve));
      assert.strictEqual(response.statusCode, 200, range);
      assert.strictEqual(Buffer.concat(parts).toString('utf8'), text, range);
    }
    await assertSound();
  });

  it('queues no pongs for a flood of pings, and closes the connection', async () => {
    await new Promise((resolve) => setTimeout(resolve, 100));
    const start = peakMegabytes(program.child.pid);
    const socket = connect(address);
    const end = closed(socket);
    // Nothing is read here, so replies would be queued on the other side.
    socket.pause();
    socket.write(upgradeRequest(address));
    const pings = manyPings(1000);
    const deadline = Date.now() + 8000;
    for (let sent = 0; !socket.destroyed && sent < 2000 && Date.now() < deadline; ++sent) {
      const written = new Promise((resolve) => socket.write(pings, resolve));
      await Promise.race([written, end, new Promise((resolve) => setTimeout(resolve, 500))]);
    }
    const growth = peakMegabytes(program.child.pid) - start;
    assert.ok(growth < 100, `${growth.toFixed(0)} MB more`);
    await end;
    await assertSound();
  });

  it('closes the connections of other floods, too', async () => {
    const client = new Client(address);
    await client.until(() => client.scenes.length > 0, 'the scene');
    for (let i = 0; i < 3000; ++i) {
      client.send({ paused: false });
    }
    assert.deepStrictEqual(await client.closed, {
      code: 1008,
      reason: 'over 1000 messages in a second.',
    });
    await assertSound();
  });

  it('ends cleanly while connections are kept open', async () => {
    const silent = connect(address);
    const half = connect(address);
    const refused = connect(address);
    half.write('GET / HTTP/1.1\r\nHost:');
    refused.write(upgradeRequest(address, 'http://example.com'));
    await new Promise((resolve) => refused.once('data', resolve));
    await assertSound();
    [silent, half, refused].forEach((socket) => socket.destroy());
  });
});

describe('viewer program', () => {
  it('serves until it is interrupted, and ends cleanly', async () => {
    for (const signal of ['SIGINT', 'SIGTERM']) {
      const { child, ended, address } = start(['--port', '0', '--characters', '3']);
      const client = new Client(await address);
      await client.until(() => client.frames.length > 2, 'frames');
      child.kill(signal);
      assert.strictEqual((await client.closed).code, 1001);
      const { code, signal: by, stdout, stderr } = await ended;
      assert.deepStrictEqual([code, by, stderr], [0, null, '']);
      assert.ok(/^viewer: 3 of 'figure' at http:[^\n]+\nviewer: ended\n$/.test(stdout), stdout);
    }
  });

  it('shows a model', async () => {
    const file = writeGlb(path.join(folder, 'model.glb'), skeleton());
    const { child, ended, address } = start(['--port=0', '--model', file]);
    const client = new Client(await address);
    await client.until(() => client.last, 'a frame');
    assert.strictEqual(client.scenes[0].name, 'model.glb');
    assert.strictEqual(client.scenes[0].sliders[0].max, 24);
    child.kill('SIGINT');
    assert.strictEqual((await ended).code, 0);
  });

  it('prints its usage', async () => {
    const { code, stdout, stderr } = await start(['--help']).ended;
    assert.deepStrictEqual([code, stderr], [0, '']);
    for (const option of ['--characters', '--model', '--port', '--seed']) {
      assert.ok(stdout.includes(`  ${option} `), option);
    }
  });

  /** Asserts that it fails in one line that names the input and the cure. */
  async function assertRefused(args, input, cure, environment) {
    const { code, stdout, stderr } = await start(args, environment).ended;
    assert.ok(/^viewer: [^\n]+\n$/.test(stderr), stderr);
    assert.ok(stderr.includes(input), `${stderr} names ${input}`);
    assert.ok(stderr.includes(cure), `${stderr} says ${cure}`);
    assert.deepStrictEqual([code, stdout], [2, '']);
  }

  it('refuses a port that is in use', async () => {
    const taken = net.createServer();
    await new Promise((resolve) => taken.listen(0, '127.0.0.1', resolve));
    const { port } = taken.address();
    const args = ['--characters', '1', '--port', String(port)];
    await assertRefused(args, `port ${port} of 127.0.0.1 can't be opened, it is in use`, '--port');
    await new Promise((resolve) => taken.close(resolve));
  });

  it('refuses models that are missing or can not be read', async () => {
    await assertRefused(['--model', 'absent.glb'], "'absent.glb'", 'give the path of a .glb');
    const file = path.join(folder, 'text.glb');
    fs.writeFileSync(file, 'text');
    await assertRefused(['--model', file], "text.glb'", 'give a .glb or .gltf');
  });

  it('says how to build the module', async () => {
    const environment = { NQ_MODULE: '/no/module.node' };
    await assertRefused([], "'/no/module.node'", 'npm run demo', environment);
  });

  it('refuses other runtimes', () => {
    checkRuntime(process.versions);
    assert.throws(
      () => checkRuntime({ node: '21.1.0', modules: '120' }),
      /^Error: Node 21\.1\.0 \(ABI 120\) can't load .*: start the viewer with 'npm run view'/
    );
  });

  it('reads options', () => {
    assert.deepStrictEqual(parseOptions([]), {
      model: null,
      characters: 500,
      port: 8072,
      seed: 1,
      help: false,
    });
    assert.strictEqual(parseOptions(['--model', 'a.glb']).characters, 24);
    assert.strictEqual(parseOptions(['--port=0', '--characters=7']).characters, 7);
    for (const [args, words] of [
      [['--port', '65536'], /--port is '65536': give a whole number from 0 to 65535/],
      [['--characters', '0'], /'0': give a whole number from 1 to 2000/],
      [['--frames', '3'], /unknown argument '--frames'/],
      [['--port'], /--port has no value/],
    ]) {
      assert.throws(() => parseOptions(args), words);
    }
  });
});
