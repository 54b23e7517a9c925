'use strict';
// The glTF importer: clips against glTF's own interpolation, trees, skins, and error messages.
const assert = require('assert');
const fc = require('fast-check');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { hostileObjects } = require('../support/hostile');
const { readClip } = require('../../../lib/clip');
const { GltfError, importGltf } = require('../../../lib/gltf');
const {
  ModelBuilder,
  channelsOf,
  clipValue,
  curvesOf,
  distance,
  gltfValue,
  glbOf,
  openGlb,
} = require('../../fixtures/animations');
const { realModel, skeleton, writeGlb, writeGltf } = require('../../fixtures/models');
const { removeFolder } = require('../../../scripts/lib/run');

const kSeed = 4117;

/** Rounding of values and slopes to floats, for values up to 1. */
const kFloatError = 3e-7;

/** Error of a cubic with exact ends and slopes on an arc of at most 0.125: 0.125^4 / 384. */
const kArcError = 6.4e-7;

let folder;

before(() => {
  folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-gltf-'));
});

after(() => {
  removeFolder(folder);
});

/** Imports an animation of channels for one node (or those they name) and opens its clip. */
async function importChannels(channels, options) {
  const model = new ModelBuilder();
  const nodes = 1 + Math.max(...channels.map(({ node = 0 }) => node));
  for (let i = 0; i < nodes; ++i) {
    model.node();
  }
  model.animation(
    'motion',
    channels.map((channel) => Object.assign({ node: 0 }, channel))
  );
  const result = await importGltf(model.glb(), options);
  assert.strictEqual(result.animations.length, 1);
  const [animation] = result.animations;
  const clip = readClip(animation.clip);
  assert.strictEqual(clip.frameCount, animation.frameCount);
  assert.strictEqual(clip.framesPerSecond, animation.framesPerSecond);
  return { animation, clip, warnings: result.warnings };
}

/** A quaternion about an axis by an angle in degrees. */
function turn(axis, degrees) {
  const half = (degrees * Math.PI) / 360;
  const length = Math.sqrt(axis.reduce((sum, x) => sum + x * x, 0));
  return [...axis.map((x) => (x / length) * Math.sin(half)), Math.cos(half)];
}

/** Largest distance between clip and glTF at `steps` times up to just before the clip's end. */
function worstDistance({ clip, animation }, channel, steps = 400) {
  const { path: property, node = 0 } = channel;
  const rounded = Object.assign({}, channel, { times: Float32Array.from(channel.times) });
  const target = animation.targets.indexOf(node);
  let worst = 0;
  for (let i = 0; i < steps; ++i) {
    const time = (i / steps) * clip.frameCount;
    const expected = gltfValue(rounded, time / clip.framesPerSecond);
    worst = Math.max(worst, distance(property, clipValue(clip, target, property, time), expected));
  }
  return worst;
}

/**
 * The longest arc between two keys of a rotation, in radians on the sphere of quaternions. Longer than
 * 0.125 only from one frame to the next.
 */
function longestArc(clip, target) {
  const keyFrames = frames(clip, target, 'rotation');
  let longest = 0;
  for (let i = 0; i + 1 < keyFrames.length; ++i) {
    const [a, b] = [keyFrames[i], keyFrames[i + 1]].map((frame) =>
      curvesOf(clip, target, 'rotation').map(
        ({ keys }) => (keys.find((key) => key.frame === frame) || keys[0]).value
      )
    );
    const arc = 2 * Math.asin(Math.min(1, distance('rotation', a, b) / 2));
    assert.ok(arc < 0.1251 || keyFrames[i + 1] - keyFrames[i] === 1, `${arc} from ${keyFrames[i]}`);
    longest = Math.max(longest, arc);
  }
  return longest;
}

/** Frames of the keys of a property of a target, of all its channels together. */
function frames(clip, target, property) {
  const all = curvesOf(clip, target, property).map(({ keys }) => keys.map(({ frame }) => frame));
  return Array.from(new Set([].concat(...all))).sort((a, b) => a - b);
}

describe('glTF keys as clips', () => {
  it('converts linear keys to linear segments', async () => {
    const channel = {
      path: 'translation',
      interpolation: 'LINEAR',
      times: [0, 0.5, 1, 2],
      values: [0, 0, 0, 1, -2, 0.5, 1, 1, 1, -3, 0, 0],
    };
    const result = await importChannels([channel]);
    assert.deepStrictEqual(frames(result.clip, 0, 'translation'), [0, 12, 24, 48]);
    // From -2 to 1 within half a second: 6 per second on both sides.
    const [, b, c] = curvesOf(result.clip, 0, 'translation')[1].keys;
    assert.deepStrictEqual([b.outTangent, c.inTangent], [6, 6]);
    assert.ok(worstDistance(result, channel) < 4 * kFloatError);
  });

  it('uses linear interpolation by default', async () => {
    const channel = { path: 'scale', times: [0, 1], values: [1, 1, 1, 2, 3, 4] };
    const { clip } = await importChannels([channel]);
    assert.deepStrictEqual(clipValue(clip, 0, 'scale', 6), [1.25, 1.5, 1.75]);
  });

  it('holds the values of steps, including the last one', async () => {
    const channel = {
      path: 'translation',
      interpolation: 'STEP',
      times: [0, 1, 2],
      values: [1, 0, 0, 2, 5, 0, 3, 5, 0],
    };
    const { clip } = await importChannels([channel], { holdEnd: true });
    for (const { keys } of curvesOf(clip, 0, 'translation')) {
      assert.ok(keys.every(({ outTangent }) => outTangent === Infinity));
    }
    const xs = [0, 12, 23.999, 24, 24.001, 47.999, 48, 48.5].map(
      (time) => clipValue(clip, 0, 'translation', time)[0]
    );
    assert.deepStrictEqual(xs, [1, 1, 1, 2, 2, 2, 3, 3]);
  });

  it('holds rotations in steps', async () => {
    const values = [...turn([1, 0, 0], 90), ...turn([0, 1, 0], 180), ...turn([0, 0, 1], 45)];
    const channel = { path: 'rotation', interpolation: 'STEP', times: [0, 0.25, 0.5], values };
    const result = await importChannels([channel], { holdEnd: true });
    assert.deepStrictEqual(frames(result.clip, 0, 'rotation'), [0, 6, 12]);
    assert.ok(worstDistance(result, channel) < kFloatError);
  });

  it('keeps splines unchanged', async () => {
    const channel = {
      path: 'scale',
      interpolation: 'CUBICSPLINE',
      times: [0, 0.25, 1.5],
      // In-tangent, value, out-tangent of each key.
      values: [
        ...[9, 9, 9, 1, 1, 1, 2, -3, 0.5],
        ...[-1, 4, 0, 0.5, 2, 1, 7, -2, 0],
        ...[1, 0, -6, 3, 0.25, 1, 9, 9, 9],
      ],
    };
    const result = await importChannels([channel]);
    assert.deepStrictEqual(frames(result.clip, 0, 'scale'), [0, 6, 36]);
    assert.ok(worstDistance(result, channel) < 8 * kFloatError);
  });

  it('follows linear rotations along the arc, with additional keys for long arcs', async () => {
    const channel = {
      path: 'rotation',
      times: [0, 1, 2, 3, 4],
      values: [
        ...turn([0, 1, 0], 0),
        ...turn([0, 1, 0], 120),
        ...turn([1, 2, 3], 200),
        ...turn([1, 2, 3], 200),
        ...turn([1, 2, 3], 201),
      ],
    };
    const result = await importChannels([channel]);
    const keyFrames = frames(result.clip, 0, 'rotation');
    for (const frame of [0, 24, 48, 72, 96]) {
      assert.ok(keyFrames.includes(frame), `${frame} of ${keyFrames}`);
    }
    // 120 degrees are an arc of 1.047 on the sphere, so 0.125 last 2.9 frames: a key each 2 frames.
    // Rotations by 0 and 1 degree need no keys between.
    assert.strictEqual(keyFrames.filter((frame) => frame > 0 && frame < 24).length, 11);
    assert.strictEqual(keyFrames.filter((frame) => frame > 48).length, 2);
    assert.ok(worstDistance(result, channel) < kArcError + kFloatError);
  });

  it('approximates a quarter turn within one frame better than linear interpolation', async () => {
    const channel = {
      path: 'rotation',
      times: [0, 1 / 24],
      values: [...turn([0, 0, 1], 0), ...turn([0, 0, 1], 90)],
    };
    const result = await importChannels([channel]);
    assert.strictEqual(result.clip.frameCount, 1);
    const arc = Math.PI / 4;
    const worst = worstDistance(result, channel);
    assert.ok(worst < arc ** 4 / 384 + kFloatError, String(worst));
    // A straight line between the ends misses the middle of the arc by this.
    const sagitta = 1 - Math.cos(arc / 2);
    assert.ok(worst < sagitta / 70);
  });

  it('rotates along the shorter arc, without sign changes', async () => {
    const degrees = [0, 40, 80, 120, 160, 200, 240, 280, 320, 360, 400];
    const values = [].concat(
      ...degrees.map((angle, i) => turn([0, 1, 1], angle).map((x) => (i % 2 === 0 ? x : -x)))
    );
    const channel = { path: 'rotation', times: degrees.map((_, i) => i / 4), values };
    const result = await importChannels([channel]);
    assert.ok(worstDistance(result, channel) < kArcError + kFloatError);
    let previous = clipValue(result.clip, 0, 'rotation', 0);
    for (let time = 0; time < result.clip.frameCount; time += 0.25) {
      const value = clipValue(result.clip, 0, 'rotation', time);
      const step = Math.sqrt(value.reduce((sum, x, i) => sum + (x - previous[i]) ** 2, 0));
      assert.ok(step < 0.03, `${step} at ${time}`);
      previous = value;
    }
  });

  it('normalises keys of rotations', async () => {
    const values = [0, 0, 0, 4, 0, 0.5, 0, 0.5];
    const { clip } = await importChannels([{ path: 'rotation', times: [0, 1], values }], {
      holdEnd: true,
    });
    assert.deepStrictEqual(clipValue(clip, 0, 'rotation', 0), [0, 0, 0, 1]);
    const half = Math.fround(Math.SQRT1_2);
    assert.deepStrictEqual(clipValue(clip, 0, 'rotation', 24), [0, half, 0, half]);
  });

  it('follows normalised splines of rotations with a key per frame', async () => {
    const channel = {
      path: 'rotation',
      interpolation: 'CUBICSPLINE',
      times: [0.5, 1, 2],
      values: [
        ...[0, 0, 0, 0, ...turn([1, 0, 0], 10), 0.5, 0.2, 0, 0],
        ...[0.4, 0, -0.3, 0.1, ...turn([0, 1, 0], 60), 0.4, 0, -0.3, 0.1],
        ...[0, 0.2, 0, 0, ...turn([0, 0, 1], 90), 0, 0, 0, 0],
      ],
    };
    const result = await importChannels([channel]);
    assert.strictEqual(frames(result.clip, 0, 'rotation').length, 37);
    // h^4 / 384 of the largest fourth derivative, which is taken from differences of the exact motion.
    const h = 1 / 24;
    const at = (seconds) => gltfValue(channel, seconds);
    let fourth = 0;
    const e = 5e-3;
    for (let seconds = 0.5 + 2 * e; seconds < 2 - 2 * e; seconds += e) {
      if (Math.abs(seconds - 1) > 2 * e) {
        const near = [-2, -1, 0, 1, 2].map((i) => at(seconds + i * e));
        const change = near[0].map(
          (_, i) => near[0][i] - 4 * near[1][i] + 6 * near[2][i] - 4 * near[3][i] + near[4][i]
        );
        fourth = Math.max(fourth, Math.sqrt(change.reduce((sum, x) => sum + x * x, 0)) / e ** 4);
      }
    }
    assert.ok(worstDistance(result, channel) < (1.1 * fourth * h ** 4) / 384 + kFloatError);
  });

  it('holds the first value before the first key', async () => {
    const channel = { path: 'translation', times: [1, 2], values: [5, 6, 7, 0, 0, 0] };
    const { clip, animation } = await importChannels([channel]);
    assert.strictEqual(animation.frameCount, 48);
    assert.deepStrictEqual(clipValue(clip, 0, 'translation', 0), [5, 6, 7]);
    assert.deepStrictEqual(clipValue(clip, 0, 'translation', 23.5), [5, 6, 7]);
    assert.deepStrictEqual(clipValue(clip, 0, 'translation', 36), [2.5, 3, 3.5]);
  });

  it('keeps one key of a constant channel', async () => {
    const values = [1, 2, 3, 1, 2.5, 3, 1, 2, 3];
    const { clip } = await importChannels([{ path: 'scale', times: [0, 1, 2], values }]);
    const counts = curvesOf(clip, 0, 'scale').map(({ keys }) => keys.length);
    assert.deepStrictEqual(counts, [1, 3, 1]);
  });

  it('numbers targets by node, whatever the order of channels', async () => {
    const values = [0, 0, 0, 1, 1, 1];
    const { animation, clip } = await importChannels([
      { node: 3, path: 'scale', times: [0, 1], values },
      { node: 1, path: 'scale', times: [0, 1], values },
      { node: 3, path: 'translation', times: [0, 1], values: [1, 2, 3, 4, 5, 6] },
    ]);
    assert.deepStrictEqual(animation.targets, [1, 3]);
    assert.deepStrictEqual(
      clip.curves.map(({ target, type }) => `${target}:${type}`),
      ['0:4', '0:5', '0:6', '1:1', '1:2', '1:3', '1:4', '1:5', '1:6']
    );
    assert.deepStrictEqual(clipValue(clip, 1, 'translation', 0), [1, 2, 3]);
  });
});

describe('frame rate and length of clips', () => {
  const everyNth = (count, rate) => Array.from({ length: count }, (_, i) => i / rate);

  // Key times, and the lowest rate from 24 up at which all of them are on frames.
  const rates = [
    ['at 24 a second', everyNth(90, 24), 24],
    ['at 25', everyNth(90, 25), 25],
    ['at 30', everyNth(90, 30), 30],
    ['at 60', everyNth(200, 60), 60],
    ['at 120', everyNth(200, 120), 120],
    ['at 240', everyNth(200, 240), 240],
    ['at 15, so each second frame', everyNth(90, 15), 30],
    ['at 12', everyNth(90, 12), 24],
    ['at 50', everyNth(90, 50), 50],
    ['each second', everyNth(5, 1), 24],
    ['at 24, but for half a frame at the end', [...everyNth(5, 24), 4.5 / 24], 48],
    ['for an hour', [0, 1 / 30, 1799.5, 3600 - 1 / 30, 3600], 30],
    ['once', [0], 24],
  ];
  for (const [what, times, rate] of rates) {
    it(`finds the rate of keys ${what}`, async () => {
      const values = [].concat(...times.map((_, i) => [i % 3, i % 5, i % 7]));
      const { animation, clip, warnings } = await importChannels([
        { path: 'translation', times, values },
      ]);
      assert.strictEqual(animation.framesPerSecond, rate);
      assert.deepStrictEqual(warnings, []);
      assert.strictEqual(
        animation.frameCount,
        Math.max(1, Math.round(times[times.length - 1] * rate))
      );
      if (times.length > 1) {
        assert.deepStrictEqual(
          curvesOf(clip, 0, 'translation')[2].keys.map(({ frame, value }) => [frame, value]),
          times.map((time, i) => [Math.round(time * rate), i % 7])
        );
      }
    });
  }

  it('finds one rate for all channels', async () => {
    const values = [0, 0, 0, 1, 1, 1, 0, 0, 0];
    const { animation } = await importChannels([
      { path: 'translation', times: [0, 1 / 30, 2 / 30], values },
      { path: 'scale', times: [0, 1 / 25, 2 / 25], values },
    ]);
    assert.strictEqual(animation.framesPerSecond, 150);
  });

  it('uses the requested rate', async () => {
    const channel = { path: 'translation', times: [0, 1, 2], values: [0, 0, 0, 1, 2, 3, 0, 0, 0] };
    const { animation, clip, warnings } = await importChannels([channel], { framesPerSecond: 10 });
    assert.strictEqual(animation.frameCount, 20);
    assert.deepStrictEqual(frames(clip, 0, 'translation'), [0, 10, 20]);
    assert.deepStrictEqual(warnings, []);
  });

  it('wraps at the frame of the last key', async () => {
    const channel = { path: 'translation', times: [0, 1], values: [0, 0, 0, 24, 0, 0] };
    const { animation, clip } = await importChannels([channel]);
    assert.strictEqual(animation.frameCount, 24);
    assert.strictEqual(animation.duration, 1);
    assert.ok(Math.abs(clipValue(clip, 0, 'translation', 23.5)[0] - 23.5) < 1e-12);
    assert.strictEqual(clipValue(clip, 0, 'translation', 24)[0], 0);
  });

  it('has one more frame with holdEnd', async () => {
    const channel = { path: 'translation', times: [0, 1], values: [0, 0, 0, 24, 0, 0] };
    const { animation, clip } = await importChannels([channel], { holdEnd: true });
    assert.strictEqual(animation.frameCount, 25);
    assert.strictEqual(animation.duration, 1);
    assert.strictEqual(clipValue(clip, 0, 'translation', 24)[0], 24);
    assert.strictEqual(clipValue(clip, 0, 'translation', 24.9)[0], 24);
  });

  it('gives a pose of one key one frame', async () => {
    const channel = { path: 'translation', times: [0], values: [1, 2, 3] };
    for (const holdEnd of [false, true]) {
      const { animation, clip } = await importChannels([channel], { holdEnd });
      assert.strictEqual(animation.frameCount, 1);
      assert.strictEqual(animation.duration, 0);
      assert.deepStrictEqual(clipValue(clip, 0, 'translation', 0), [1, 2, 3]);
    }
  });
});

describe('keys between frames', () => {
  // 29.97 per second, as in video: none of the rates fits.
  const times = [0, 1, 2, 3, 4, 5, 6].map((i) => (i * 1001) / 30000);
  const lastFrame = Math.ceil(times[6] * 60);

  it('are resampled at 60 frames per second, with a warning', async () => {
    const values = [].concat(...times.map((_, i) => [i * i, -i, i % 2]));
    const channel = { path: 'translation', times, values };
    const result = await importChannels([channel], { name: 'video.glb' });
    assert.strictEqual(result.animation.framesPerSecond, 60);
    assert.strictEqual(result.animation.frameCount, lastFrame);
    assert.ok(Math.abs(result.animation.duration - times[6]) < 1e-7);
    assert.deepStrictEqual(result.warnings, [
      "model 'video.glb': animation 0 'motion': no rate from 24 to 240 frames per second puts all keys " +
        'on whole frames: 1 of its 1 tracks are resampled at 60.',
    ]);
    assert.deepStrictEqual(
      frames(result.clip, 0, 'translation'),
      Array.from({ length: lastFrame + 1 }, (_, i) => i)
    );
    for (let frame = 0; frame < lastFrame; ++frame) {
      const expected = gltfValue(channel, frame / 60);
      const value = clipValue(result.clip, 0, 'translation', frame);
      assert.ok(distance('translation', value, expected) < 1e-4, `frame ${frame}`);
    }
    // Within a frame, a corner is cut: by the change of slope times a quarter of the frame at most.
    const change = Math.sqrt(2 ** 2 + 0 + 2 ** 2) / (times[1] - times[0]);
    assert.ok(worstDistance(result, channel) < change / 60 / 4 + 1e-4);
  });

  it('do not affect tracks whose keys are on frames', async () => {
    const { clip, warnings } = await importChannels([
      { path: 'translation', times, values: times.concat(times, times) },
      { path: 'scale', times: [0, 0.05, 0.1], values: [1, 1, 1, 2, 2, 2, 1, 1, 1] },
    ]);
    assert.ok(warnings[0].endsWith(': 1 of its 2 tracks are resampled at 60.'), warnings[0]);
    assert.deepStrictEqual(frames(clip, 0, 'scale'), [0, 3, 6]);
  });

  it('of steps move to the nearest frame, and the last of several is kept', async () => {
    const channel = {
      path: 'translation',
      interpolation: 'STEP',
      times: [0, 0.26, 0.31, 0.51, 0.76],
      values: [0, 0, 0, 1, 0, 0, 2, 0, 0, 3, 0, 0, 4, 0, 0],
    };
    const { clip, warnings } = await importChannels([channel], {
      framesPerSecond: 10,
      holdEnd: true,
    });
    assert.deepStrictEqual(
      curvesOf(clip, 0, 'translation')[0].keys.map(({ frame, value }) => [frame, value]),
      [
        [0, 0],
        [3, 2],
        [5, 3],
        [8, 4],
      ]
    );
    assert.deepStrictEqual(warnings, [
      "model: animation 0 'motion': keys are between frames at 10 frames per second: " +
        '1 of its 1 tracks are resampled at 10.',
    ]);
  });

  it('of splines are resampled with their slopes', async () => {
    const channel = {
      path: 'translation',
      interpolation: 'CUBICSPLINE',
      times: [0.011, 0.517, 0.983],
      values: [
        ...[0, 0, 0, 0, 1, 2, 1, -1, 0],
        ...[0.5, 0, 0, 1, 0, 2, 0.5, 0, 0],
        ...[0, 1, 0, 0, 0, 3, 0, 0, 0],
      ],
    };
    const result = await importChannels([channel], { framesPerSecond: 60 });
    for (let frame = 0; frame < 59; ++frame) {
      const value = clipValue(result.clip, 0, 'translation', frame);
      const expected = gltfValue(channel, frame / 60);
      assert.ok(distance('translation', value, expected) < 1e-6, `frame ${frame}`);
      // Away from the frames with keys in them the cubic is the spline itself.
      if (frame !== 0 && frame !== 31 && frame !== 58) {
        const middle = clipValue(result.clip, 0, 'translation', frame + 0.5);
        const exact = gltfValue(channel, (frame + 0.5) / 60);
        assert.ok(distance('translation', middle, exact) < 1e-6, `frame ${frame} and a half`);
      }
    }
  });

  it('of rotations are resampled along the arc', async () => {
    const channel = {
      path: 'rotation',
      times,
      values: [].concat(...times.map((_, i) => turn([1, i % 2, 0.5], 12 * i))),
    };
    const result = await importChannels([channel]);
    for (let frame = 0; frame < lastFrame; ++frame) {
      const expected = gltfValue(channel, frame / 60);
      const value = clipValue(result.clip, 0, 'rotation', frame);
      assert.ok(distance('rotation', value, expected) < 1e-5, `frame ${frame}`);
    }
  });
});

describe('any animation', () => {
  const component = fc.float({ min: -10, max: 10, next: true, noNaN: true });
  const rotation = fc
    .tuple(component, component, component, component)
    .filter((q) => Math.sqrt(q.reduce((sum, x) => sum + x * x, 0)) > 0.1)
    .map((q) => {
      const length = Math.sqrt(q.reduce((sum, x) => sum + x * x, 0));
      return q.map((x) => x / length);
    });
  const vector = fc.tuple(component, component, component);
  const gaps = fc.array(fc.integer({ min: 1, max: 40 }), { minLength: 1, maxLength: 8 });

  /** A channel whose keys are on frames at `rate`. */
  const channels = fc
    .record({
      path: fc.constantFrom('translation', 'rotation', 'scale'),
      interpolation: fc.constantFrom('LINEAR', 'STEP', 'CUBICSPLINE'),
      rate: fc.constantFrom(24, 25, 30, 48, 60, 120),
      start: fc.integer({ min: 0, max: 50 }),
      gaps,
    })
    .filter((c) => c.path !== 'rotation' || c.interpolation !== 'CUBICSPLINE')
    .chain((c) => {
      const steps = [c.start];
      c.gaps.forEach((gap) => steps.push(steps[steps.length - 1] + gap));
      const count = steps.length * (c.interpolation === 'CUBICSPLINE' ? 3 : 1);
      return fc
        .array(c.path === 'rotation' ? rotation : vector, { minLength: count, maxLength: count })
        .map((values) => ({
          path: c.path,
          interpolation: c.interpolation,
          rate: c.rate,
          times: Array.from(Float32Array.from(steps, (step) => step / c.rate)),
          values: [].concat(...values).map(Math.fround),
        }));
    });

  it('is approximated between its keys', async () => {
    await fc.assert(
      fc.asyncProperty(channels, async (channel) => {
        const result = await importChannels([channel]);
        const { animation, clip } = result;
        assert.deepStrictEqual(result.warnings, []);
        assert.strictEqual(animation.framesPerSecond % 1, 0);
        assert.ok(animation.framesPerSecond <= Math.max(channel.rate, 24));
        const isStep = channel.interpolation === 'STEP';
        // Key times are floats: rounding moves a key by half a unit in its last place.
        const late = channel.times[channel.times.length - 1] * 2 ** -23;
        let speed = 0;
        for (const { keys } of curvesOf(clip, 0, channel.path)) {
          for (const { inTangent, outTangent } of isStep ? [] : keys) {
            speed = Math.max(speed, Math.abs(inTangent), Math.abs(outTangent));
          }
        }
        // A cubic may deviate between its keys, by its slopes over the longest gap.
        const size = 20 + speed * 40 * 0.042 * 0.3;
        const bound =
          size * kFloatError +
          4 * speed * late +
          (channel.path === 'rotation' && !isStep ? longestArc(clip, 0) ** 4 / 384 : 0);
        for (let i = 0; i < 60; ++i) {
          const time = ((i + 0.37) / 60) * clip.frameCount;
          const seconds = time / clip.framesPerSecond;
          const nearKey = channel.times.some((key) => Math.abs(key - seconds) < 1e-5);
          if (!isStep || !nearKey) {
            const value = clipValue(clip, 0, channel.path, time);
            const apart = distance(channel.path, value, gltfValue(channel, seconds));
            assert.ok(apart <= bound, `${apart} > ${bound} at ${time}`);
          }
        }
      }),
      { seed: kSeed, numRuns: 150 }
    );
  });

  it('has sorted keys, at most one per frame, for any times', async () => {
    const times = fc
      .array(fc.float({ min: Math.fround(1e-4), max: Math.fround(0.2), next: true, noNaN: true }), {
        minLength: 1,
        maxLength: 12,
      })
      .map((steps) => {
        const list = [];
        steps.forEach((step, i) => list.push(Math.fround(step + (i > 0 ? list[i - 1] : 0))));
        return list;
      });
    const kinds = fc.constantFrom('LINEAR', 'STEP', 'CUBICSPLINE');
    const rates = fc.constantFrom(undefined, 1, 24, 30, 60);
    await fc.assert(
      fc.asyncProperty(times, kinds, rates, async (list, interpolation, framesPerSecond) => {
        const count = 3 * list.length * (interpolation === 'CUBICSPLINE' ? 3 : 1);
        const values = Array.from({ length: count }, (_, i) => (i * 7) % 5);
        const channel = { path: 'translation', interpolation, times: list, values };
        const result = await importChannels([channel], { framesPerSecond });
        const { animation, clip, warnings } = result;
        for (const { keys } of curvesOf(clip, 0, 'translation')) {
          keys.slice(1).forEach(({ frame }, i) => assert.ok(frame > keys[i].frame));
          assert.ok(keys[keys.length - 1].frame <= Math.max(1, animation.frameCount));
        }
        const { framesPerSecond: rate } = animation;
        assert.ok(animation.frameCount >= list[list.length - 1] * rate - 0.1);
        if (interpolation !== 'STEP') {
          for (let frame = 0; frame < animation.frameCount; ++frame) {
            const value = clipValue(clip, 0, 'translation', frame);
            // Resampled, frames are exact. Otherwise a key may be off its frame by a thousandth of
            // one, and the values change by 7 per frame at most.
            const bound = warnings.length > 0 ? 1e-5 : 0.02;
            const apart = distance('translation', value, gltfValue(channel, frame / rate));
            assert.ok(apart <= bound, `${apart} at ${frame}`);
          }
        }
      }),
      { seed: kSeed, numRuns: 100 }
    );
  });
});

describe('forms of accessors', () => {
  const times = [0, 1];

  it('reads normalised integers', async () => {
    const model = new ModelBuilder();
    const node = model.node();
    const input = model.accessor('SCALAR', Float32Array.of(0, 1, 2, 3));
    const shorts = Int16Array.of(0, 0, 0, 32767, 0, 0, 32767, 0, 0, -32768, 0, 0, 0, 0, 0, 32767);
    const bytes = Int8Array.of(0, 0, 0, 127, 0, 0, 127, 0, 0, -128, 0, 0, 0, 0, 0, 127);
    const unsigned = Uint16Array.of(0, 65535, 13107, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    const tiny = Uint8Array.of(255, 51, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    const other = model.node();
    model.animation('integers', [
      { node, path: 'rotation', times: input, values: shorts },
      { node, path: 'translation', times: input, values: unsigned },
      { node: other, path: 'rotation', times: input, values: bytes },
      { node: other, path: 'scale', times: input, values: tiny },
    ]);
    const { animations } = await importGltf(model.glb());
    const clip = readClip(animations[0].clip);
    for (const target of [0, 1]) {
      const at = (frame) => clipValue(clip, target, 'rotation', frame).map((x) => x + 0);
      assert.deepStrictEqual(at(0), [0, 0, 0, 1]);
      assert.ok(distance('rotation', at(24), [0, 0, 1, 0]) < kFloatError);
      assert.ok(distance('rotation', at(48), [0, 1, 0, 0]) < kFloatError);
    }
    assert.ok(distance('translation', clipValue(clip, 0, 'translation', 0), [0, 1, 0.2]) < 1e-7);
    assert.ok(distance('scale', clipValue(clip, 1, 'scale', 0), [1, 0.2, 0]) < 1e-7);
  });

  it('reads sparse accessors, also over a part of a view', async () => {
    const model = new ModelBuilder();
    const node = model.node();
    const base = Float32Array.of(9, 9, 9, 9, 1, 2, 3, 4, 5, 6);
    const sparseValues = Float32Array.of(7, 8, 9);
    const indices = model.view(Uint8Array.of(1));
    const values = model.view(Buffer.from(sparseValues.buffer));
    const output = model.accessor('VEC3', base, { byteOffset: 16, count: 2 });
    model.json.accessors[output].sparse = {
      count: 1,
      indices: { bufferView: indices, componentType: 5121 },
      values: { bufferView: values },
    };
    const zeros = model.json.accessors.push({
      componentType: 5126,
      count: 2,
      type: 'VEC3',
      sparse: model.json.accessors[output].sparse,
    });
    model.animation('sparse', [
      { node, path: 'translation', times, values: output },
      { node, path: 'scale', times, values: zeros - 1 },
    ]);
    const { animations } = await importGltf(model.glb(), { holdEnd: true });
    const clip = readClip(animations[0].clip);
    assert.deepStrictEqual(clipValue(clip, 0, 'translation', 0), [1, 2, 3]);
    assert.deepStrictEqual(clipValue(clip, 0, 'translation', 24), [7, 8, 9]);
    assert.deepStrictEqual(clipValue(clip, 0, 'scale', 0), [0, 0, 0]);
    assert.deepStrictEqual(clipValue(clip, 0, 'scale', 24), [7, 8, 9]);
  });

  it('reads accessors with gaps between their elements', async () => {
    const model = new ModelBuilder();
    const node = model.node();
    const mixed = Float32Array.of(0, 1, 2, 3, 1, 4, 5, 6);
    const view = model.view(Buffer.from(mixed.buffer), { byteStride: 16 });
    const part = (byteOffset, type) =>
      model.json.accessors.push({
        bufferView: view,
        byteOffset,
        componentType: 5126,
        count: 2,
        type,
      }) - 1;
    model.animation('mixed', [
      { node, path: 'translation', times: part(0, 'SCALAR'), values: part(4, 'VEC3') },
    ]);
    const { animations } = await importGltf(model.glb(), { holdEnd: true });
    const clip = readClip(animations[0].clip);
    assert.deepStrictEqual(clipValue(clip, 0, 'translation', 0), [1, 2, 3]);
    assert.deepStrictEqual(clipValue(clip, 0, 'translation', 24), [4, 5, 6]);
  });

  it('reads an accessor without bytes as zeros', async () => {
    const model = new ModelBuilder();
    const node = model.node();
    const values = model.json.accessors.push({ componentType: 5126, count: 2, type: 'VEC3' }) - 1;
    model.animation('zeros', [{ node, path: 'translation', times, values }]);
    const { animations } = await importGltf(model.glb());
    assert.deepStrictEqual(clipValue(readClip(animations[0].clip), 0, 'translation', 3), [0, 0, 0]);
  });
});

describe('nodes and skins', () => {
  it('sorts parents before children, and refers to nodes by their new indices', async () => {
    //  file:  2 root ─┬─ 0 hand ── 1 finger        4 lamp
    //                 └─ 3 foot
    const model = new ModelBuilder();
    model.node({ name: 'hand', children: [1], translation: [1, 2, 3] });
    model.node({ name: 'finger', rotation: [0, 1, 0, 0], mesh: 0 });
    model.node({ children: [0, 3], scale: [2, 3, 4] });
    model.node({ name: 'foot', skin: 0, mesh: 1 });
    model.node({ name: 'lamp', matrix: [0, 0, -2, 0, 0, 2, 0, 0, 2, 0, 0, 0, -3, 4, 5, 1] });
    model.json.meshes = [{ primitives: [] }, { primitives: [] }];
    model.json.scenes = [{ nodes: [4] }, { name: 'all', nodes: [4, 2] }];
    model.json.scene = 1;
    model.json.skins.push({ name: 'body', joints: [1, 3, 0] });
    model.animation('wave', [
      { node: 0, path: 'translation', times: [0, 1], values: [0, 0, 0, 1, 1, 1] },
    ]);
    const result = await importGltf(model.glb());
    const column = (property) => result.nodes.map((node) => node[property]);
    assert.deepStrictEqual(column('name'), ['', 'hand', 'finger', 'foot', 'lamp']);
    assert.deepStrictEqual(column('fileIndex'), [2, 0, 1, 3, 4]);
    assert.deepStrictEqual(column('parent'), [-1, 0, 1, 0, -1]);
    assert.deepStrictEqual(column('mesh'), [-1, -1, 0, 1, -1]);
    assert.deepStrictEqual(column('skin'), [-1, -1, -1, 0, -1]);
    assert.deepStrictEqual(result.nodes[0].scale, [2, 3, 4]);
    assert.deepStrictEqual(result.nodes[0].rotation, [0, 0, 0, 1]);
    assert.deepStrictEqual(result.nodes[1].translation, [1, 2, 3]);
    assert.deepStrictEqual(result.nodes[2].rotation, [0, 1, 0, 0]);
    // A quarter turn about y and the double size.
    const lamp = result.nodes[4];
    assert.deepStrictEqual(lamp.translation, [-3, 4, 5]);
    assert.ok(distance('rotation', lamp.rotation, turn([0, 1, 0], 90)) < 1e-6);
    assert.ok(distance('scale', lamp.scale, [2, 2, 2]) < 1e-6);
    assert.deepStrictEqual(result.roots, [0, 4]);
    assert.deepStrictEqual(result.scenes, [
      { name: '', nodes: [4] },
      { name: 'all', nodes: [4, 0] },
    ]);
    assert.strictEqual(result.defaultScene, 1);
    assert.strictEqual(result.skins[0].name, 'body');
    assert.deepStrictEqual(result.skins[0].joints, [2, 3, 1]);
    const identity = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1];
    assert.deepStrictEqual(Array.from(new Float32Array(result.skins[0].inverseBindMatrices)), [
      ...identity,
      ...identity,
      ...identity,
    ]);
    assert.deepStrictEqual(result.animations[0].targets, [1]);
    assert.deepStrictEqual(result.warnings, []);
  });

  it('returns unchanged inverse bind matrices, one per joint', async () => {
    const model = new ModelBuilder();
    model.node({ children: [1] });
    model.node();
    const numbers = Float32Array.from({ length: 48 }, (_, i) => i / 8);
    const inverseBindMatrices = model.accessor('MAT4', numbers);
    model.json.skins.push({ joints: [1, 0], inverseBindMatrices });
    const { skins } = await importGltf(model.glb());
    assert.strictEqual(skins[0].inverseBindMatrices.byteLength, 128);
    assert.deepStrictEqual(new Float32Array(skins[0].inverseBindMatrices), numbers.subarray(0, 32));
  });

  it('imports an empty file', async () => {
    const { nodes, roots, scenes, defaultScene, skins, animations, warnings } = await importGltf(
      Buffer.from('{"asset":{"version":"2.0"}}')
    );
    assert.deepStrictEqual(
      { nodes, roots, scenes, defaultScene, skins, animations, warnings },
      {
        nodes: [],
        roots: [],
        scenes: [],
        defaultScene: -1,
        skins: [],
        animations: [],
        warnings: [],
      }
    );
  });

  it('walks a chain of 20,000 nodes', async () => {
    const json = { asset: { version: '2.0' }, nodes: [] };
    for (let i = 0; i < 20000; ++i) {
      json.nodes.push(i === 0 ? {} : { children: [i - 1] });
    }
    const { nodes } = await importGltf(Buffer.from(JSON.stringify(json)));
    assert.ok(
      nodes.every(({ parent, fileIndex }, i) => parent === i - 1 && fileIndex === 19999 - i)
    );
  });

  it('walks 130,000 children of a node in their order', async () => {
    const count = 130000;
    const children = Array.from({ length: count }, (_, i) => count - i);
    const nodes = [{ children }, ...children.map(() => ({}))];
    const json = { asset: { version: '2.0' }, nodes };
    const model = await importGltf(Buffer.from(JSON.stringify(json)));
    assert.strictEqual(model.nodes.length, count + 1);
    model.nodes.forEach(({ parent, fileIndex }, i) => {
      assert.strictEqual(parent, i === 0 ? -1 : 0);
      assert.strictEqual(fileIndex, i === 0 ? 0 : count + 1 - i);
    });
  });
});

describe('large files', () => {
  /**
   * A file with so many nodes of which each has a channel, all with the same keys, and with twice as
   * many accessors and views that nothing refers to, as files with meshes have them.
   */
  function manyChannels(count) {
    const model = new ModelBuilder();
    const times = model.accessor('SCALAR', Float32Array.of(0, 1));
    const values = model.accessor('VEC3', Float32Array.of(1, 1, 1, 2, 3, 4));
    const channels = [];
    for (let i = 0; i < count; ++i) {
      channels.push({ node: model.node(), path: 'scale', times, values });
      for (const bufferView of [times, values]) {
        model.json.accessors.push(Object.assign({}, model.json.accessors[bufferView]));
        model.json.bufferViews.push(Object.assign({}, model.json.bufferViews[bufferView]));
      }
    }
    model.animation('all', channels);
    return model.glb();
  }

  /** CPU seconds of an import, the lower of two. */
  async function cost(bytes) {
    let least = Infinity;
    for (let i = 0; i < 2; ++i) {
      const before = process.cpuUsage();
      await importGltf(bytes);
      const { user, system } = process.cpuUsage(before);
      least = Math.min(least, (user + system) / 1e6);
    }
    return least;
  }

  it('take time in proportion to their channels', async function test() {
    this.timeout(180000);
    const [few, many] = [2000, 16000].map(manyChannels);
    await importGltf(few);
    const ratio = (await cost(many)) / (await cost(few));
    // In proportion it is 8, with the square of the channels 64.
    assert.ok(ratio < 24, `8 times the channels took ${ratio.toFixed(1)} times the time`);
  });

  it('may animate each of 8,000 nodes', async function test() {
    this.timeout(60000);
    const { animations } = await importGltf(manyChannels(8000));
    assert.deepStrictEqual(
      animations[0].targets,
      Array.from({ length: 8000 }, (_, i) => i)
    );
    const { curves } = readClip(animations[0].clip);
    assert.strictEqual(curves.length, 3 * 8000);
    assert.ok(curves.every(({ target }, i) => target === Math.floor(i / 3)));
    assert.ok(curves.every(({ keys }, i) => keys[1].value === 2 + (i % 3)));
  });

  it('may have 130,000 children of one node, as many roots and as many joints', async function test() {
    this.timeout(60000);
    const count = 130001;
    const all = Array.from({ length: count }, (_, i) => i);
    const json = {
      asset: { version: '2.0' },
      nodes: all.map(() => ({})),
      skins: [{ joints: all }],
    };
    json.nodes[0].children = all.slice(1);
    const wide = await importGltf(Buffer.from(JSON.stringify(json)));
    assert.ok(
      wide.nodes.every(({ parent, fileIndex }, i) => parent === (i > 0 ? 0 : -1) && fileIndex === i)
    );
    assert.deepStrictEqual(wide.roots, [0]);
    assert.strictEqual(wide.skins[0].inverseBindMatrices.byteLength, 64 * count);
    delete json.nodes[0].children;
    json.scenes = [{ nodes: all }];
    const flat = await importGltf(Buffer.from(JSON.stringify(json)));
    assert.deepStrictEqual(flat.roots, all);
    assert.deepStrictEqual(flat.scenes, [{ name: '', nodes: all }]);
  });
});

describe('unsupported content', () => {
  it('is reported in warnings: morph weights, and animations of nothing else', async () => {
    const model = new ModelBuilder();
    model.node();
    model.animation('smile', [
      { node: 0, path: 'weights', times: [0, 1], values: [0, 1] },
      { node: 0, path: 'scale', times: [0, 1], values: [1, 1, 1, 2, 2, 2] },
    ]);
    model.animation('blink', [{ node: 0, path: 'weights', times: [0, 1], values: [0, 1] }]);
    model.animation('glow', [{ node: undefined, path: 'scale', times: [0, 1], values: [1, 2] }]);
    model.json.animations[2].channels[0].target = { path: 'pointer' };
    // Not a path of glTF either, though each is a property of any object, or turns into one of them.
    [undefined, ['scale'], {}, 'constructor'].forEach((property) => {
      model.json.animations[2].channels.push({ sampler: 0, target: { path: property } });
    });
    const { animations, warnings } = await importGltf(model.glb(), { name: 'face' });
    assert.deepStrictEqual(
      animations.map(({ name }) => name),
      ['smile']
    );
    assert.deepStrictEqual(
      readClip(animations[0].clip).curves.map(({ type }) => type),
      [4, 5, 6]
    );
    assert.deepStrictEqual(warnings, [
      "model 'face': animation 0 'smile', channel 0: it moves morph weights, which no clip can: left out.",
      "model 'face': animation 1 'blink', channel 0: it moves morph weights, which no clip can: left out.",
      "model 'face': animation 2 'glow', channel 0: it moves 'pointer', which no clip can: left out.",
      ...[1, 2, 3].map(
        (channel) =>
          `model 'face': animation 2 'glow', channel ${channel}: it moves no named property of a ` +
          'node, which no clip can: left out.'
      ),
      "model 'face': animation 2 'glow', channel 4: it moves 'constructor', which no clip can: left out.",
      "model 'face': animation 1 'blink': it moves nothing that a clip can move: left out.",
      "model 'face': animation 2 'glow': it moves nothing that a clip can move: left out.",
    ]);
  });

  it('is ignored: images, meshes, and their extensions', async () => {
    const model = new ModelBuilder();
    model.node({ mesh: 0 });
    model.json.meshes = [{ primitives: [{ attributes: { POSITION: 0 } }] }];
    model.json.accessors.push({ bufferView: 0, componentType: 5126, count: 99, type: 'VEC3' });
    model.json.images = [{ uri: 'missing.png' }];
    model.json.buffers.push({ uri: 'missing.bin', byteLength: 1188 });
    model.json.bufferViews.push({ buffer: 1, byteLength: 1188 });
    model.json.extensionsRequired = ['KHR_draco_mesh_compression', 'KHR_texture_transform'];
    const file = path.join(folder, 'partly.gltf');
    fs.writeFileSync(file, JSON.stringify(model.json));
    const { nodes } = await importGltf(file);
    assert.strictEqual(nodes.length, 1);
  });
});

describe('containers', () => {
  const check = ({ nodes, animations, warnings }) => {
    assert.deepStrictEqual(
      nodes.map(({ name }) => name),
      ['base', 'spine', 'arm', 'hand', 'leg', 'lamp']
    );
    assert.deepStrictEqual(animations[0].targets, [0, 1, 3, 4]);
    const clip = readClip(animations[0].clip);
    assert.deepStrictEqual(clipValue(clip, 0, 'translation', 30), [3, 0, 0]);
    const half = Math.SQRT1_2;
    assert.ok(distance('rotation', clipValue(clip, 1, 'rotation', 24), [0, 0, half, half]) < 1e-6);
    assert.ok(distance('rotation', clipValue(clip, 2, 'rotation', 24), [1, 0, 0, 0]) < 1e-6);
    // 1 with a slope of 1 per second to 2 with slope 0, in two seconds: 1.75 half way.
    assert.deepStrictEqual(clipValue(clip, 3, 'scale', 24), [1.75, 1.75, 1.75]);
    assert.deepStrictEqual(warnings, []);
  };

  it('may be one binary file', async () => {
    check(await importGltf(writeGlb(path.join(folder, 'one.glb'), skeleton())));
  });

  it('may be a JSON file with its bytes beside it', async () => {
    check(await importGltf(writeGltf(path.join(folder, 'two.gltf'), skeleton())));
  });

  it('may name the file of bytes by an escaped URI', async () => {
    const { json, binary } = skeleton();
    fs.writeFileSync(path.join(folder, 'some bytes.bin'), binary);
    json.buffers[0].uri = 'some%20bytes.bin';
    const file = path.join(folder, 'escaped.gltf');
    fs.writeFileSync(file, `\ufeff${JSON.stringify(json)}`);
    check(await importGltf(file));
  });

  it('may hold their bytes as a data URI', async () => {
    const { json, binary } = skeleton();
    json.buffers[0].uri = `data:application/octet-stream;base64,${binary.toString('base64')}`;
    check(await importGltf(Buffer.from(JSON.stringify(json))));
  });

  it('may be bytes of any kind', async () => {
    const { json, binary } = skeleton();
    const glb = glbOf(Buffer.from(JSON.stringify(json)), binary);
    const copy = new ArrayBuffer(glb.length);
    new Uint8Array(copy).set(glb);
    const shared = new SharedArrayBuffer(glb.length);
    new Uint8Array(shared).set(glb);
    const shifted = Buffer.concat([Buffer.alloc(3), glb, Buffer.alloc(5)]);
    for (const bytes of [glb, copy, shared, new DataView(copy), shifted.subarray(3)]) {
      check(await importGltf(bytes));
    }
  });
});

describe('messages about bad files', () => {
  const again = 'export it again as glTF 2.0.';

  /** A model with a skin and one animation, of which `change` breaks something. */
  function broken(change) {
    const model = new ModelBuilder();
    model.node({ name: 'hip', children: [1] });
    model.node({ name: 'knee' });
    const inverseBindMatrices = model.accessor('MAT4', new Float32Array(32));
    model.json.skins.push({ name: 'leg', joints: [0, 1], inverseBindMatrices });
    model.animation('kick', [
      { node: 1, path: 'rotation', times: [0, 1], values: [0, 0, 0, 1, 1, 0, 0, 0] },
      { node: 0, path: 'translation', times: [0, 1, 2], values: [0, 0, 0, 1, 1, 1, 2, 2, 2] },
    ]);
    change(model.json, model);
    return model.glb();
  }

  async function assertTrouble(promise, message) {
    await assert.rejects(promise, (error) => {
      assert.strictEqual(error.message, message);
      assert.ok(error instanceof GltfError);
      return true;
    });
  }

  it('are absent for a valid file', async () => {
    const { animations } = await importGltf(broken(() => {}));
    assert.strictEqual(animations.length, 1);
  });

  const kick = "animation 0 'kick'";
  const knee = `${kick}, node 1 'knee' (rotation)`;
  const hip = `${kick}, node 0 'hip' (translation)`;
  const leg = "skin 0 'leg'";
  const samplers = (json) => json.animations[0].samplers;
  const channels = (json) => json.animations[0].channels;

  // What is broken in the JSON, and what is said after the name of the file.
  const cases = [
    ['no asset', (json) => delete json.asset, `it is not of glTF version 2.0: ${again}`],
    [
      'version 1',
      (json) => (json.asset.version = '1.0'),
      `it is not of glTF version 2.0: ${again}`,
    ],
    [
      'a newer version that it needs',
      (json) => Object.assign(json.asset, { version: '2.1', minVersion: '2.1' }),
      `it is not of glTF version 2.0: ${again}`,
    ],
    [
      'an extension that it needs',
      (json) => (json.extensionsRequired = ['EXT_meshopt_compression']),
      "it needs the extension 'EXT_meshopt_compression', which is not supported: export the file without it.",
    ],
    ['nodes in an object', (json) => (json.nodes = {}), `its list of nodes is broken: ${again}`],
    [
      'children that do not exist',
      (json) => (json.nodes[0].children = [2]),
      `node 0 'hip': its children name nodes that do not exist: ${again}`,
    ],
    [
      'two parents',
      (json) => json.nodes.push({ children: [1] }),
      `node 1 'knee' has two parents: ${again}`,
    ],
    [
      'a circle',
      (json) => (json.nodes[1].children = [0]),
      `node 0 'hip' is its own ancestor: ${again}`,
    ],
    [
      'a short translation',
      (json) => (json.nodes[1].translation = [1, 2]),
      `node 1 'knee': its translation is not 3 numbers: ${again}`,
    ],
    [
      'a translation that no float holds',
      (json) => (json.nodes[1].translation = [1, 2, 1e39]),
      `node 1 'knee': its translation is not 3 numbers: ${again}`,
    ],
    [
      'a flat matrix',
      (json) => (json.nodes[1].matrix = new Array(16).fill(0)),
      "node 1 'knee': its matrix has no rotation: give it translation, rotation and scale instead.",
    ],
    [
      'a mesh that does not exist',
      (json) => (json.nodes[1].mesh = 0),
      `node 1 'knee': its mesh does not exist: ${again}`,
    ],
    [
      'a skin that does not exist',
      (json) => (json.nodes[1].skin = 1),
      `node 1 'knee': its skin does not exist: ${again}`,
    ],
    [
      'a scene of a child',
      (json) => (json.scenes = [{ nodes: [1] }]),
      `scene 0: its node 1 'knee' has a parent: ${again}`,
    ],
    [
      'a default scene that does not exist',
      (json) => (json.scene = 0),
      `its default scene does not exist: ${again}`,
    ],
    ['no joints', (json) => (json.skins[0].joints = []), `${leg}: it has no joints: ${again}`],
    [
      'joints that do not exist',
      (json) => (json.skins[0].joints = [5]),
      `${leg}: its joints name nodes that do not exist: ${again}`,
    ],
    [
      'too few matrices',
      (json) => (json.skins[0].joints = [0, 1, 0]),
      `${leg}: it has 3 joints, but 2 inverse bind matrices: ${again}`,
    ],
    [
      'matrices of another type',
      (json) => (json.accessors[0].type = 'MAT3'),
      `${leg}: its inverse bind matrices are of type MAT3, not MAT4: ${again}`,
    ],
    [
      'matrices of integers',
      (json) => (json.accessors[0].componentType = 5125),
      `${leg}: its inverse bind matrices are not floats: ${again}`,
    ],
    [
      'a matrix that is not of numbers',
      (json, model) => model.parts[0].writeFloatLE(NaN, 64),
      `${leg}: the inverse bind matrix of its joint 1 is not of finite numbers: ${again}`,
    ],
    [
      'a channel without node',
      (json) => delete channels(json)[0].target.node,
      `${kick}, channel 0 (rotation): it has no node: ${again}`,
    ],
    [
      'a channel of a node that does not exist',
      (json) => (channels(json)[0].target.node = 7),
      `${kick}, channel 0 (rotation): it has no node: ${again}`,
    ],
    [
      'a channel without sampler',
      (json) => delete channels(json)[0].sampler,
      `${knee}: its sampler does not exist: ${again}`,
    ],
    [
      'channels without any samplers',
      (json) => delete json.animations[0].samplers,
      `${knee}: its sampler does not exist: ${again}`,
    ],
    [
      'samplers that are no list',
      (json) => (json.animations[0].samplers = {}),
      `${kick}: its list of samplers is broken: ${again}`,
    ],
    [
      'two channels for one motion',
      (json) => channels(json).push({ sampler: 1, target: { node: 0, path: 'translation' } }),
      `${hip}: two channels move it: ${again}`,
    ],
    [
      'an interpolation of its own',
      (json) => (samplers(json)[0].interpolation = 'BOUNCE'),
      `${knee}: its interpolation 'BOUNCE' is not one of glTF: ${again}`,
    ],
    [
      'an interpolation that is no text',
      (json) => (samplers(json)[0].interpolation = {}),
      `${knee}: its interpolation an object is not one of glTF: ${again}`,
    ],
    [
      'times that do not exist',
      (json) => (samplers(json)[0].input = 99),
      `${knee}: the accessor of its key times does not exist: ${again}`,
    ],
    [
      'values of another type',
      (json) => (samplers(json)[0].output = samplers(json)[1].output),
      `${knee}: its key values are of type VEC3, not VEC4: ${again}`,
    ],
    [
      'values without type',
      (json) => delete json.accessors[2].type,
      `${knee}: the type of its key values is missing, not VEC4: ${again}`,
    ],
    [
      'values whose type is an object',
      (json) => (json.accessors[2].type = {}),
      `${knee}: the type of its key values is an object, not VEC4: ${again}`,
    ],
    [
      'times whose type is a list',
      (json) => (json.accessors[1].type = ['SCALAR']),
      `${knee}: the type of its key times is a list, not SCALAR: ${again}`,
    ],
    [
      'matrices whose type is null',
      (json) => (json.accessors[0].type = null),
      `${leg}: the type of its inverse bind matrices is null, not MAT4: ${again}`,
    ],
    [
      'values without component type',
      (json) => delete json.accessors[2].componentType,
      `${knee}: its key values are not floats or normalized integers of 8 or 16 bits: ${again}`,
    ],
    ...['5123', 'constructor', {}, [5123]].map((componentType) => [
      `values of the component type ${JSON.stringify(componentType)}`,
      (json) => Object.assign(json.accessors[2], { componentType, normalized: true }),
      `${knee}: its key values are not floats or normalized integers of 8 or 16 bits: ${again}`,
    ]),
    [
      'values of integers that are not normalised',
      (json) => Object.assign(json.accessors[2], { componentType: 5122, normalized: false }),
      `${knee}: its key values are not floats or normalized integers of 8 or 16 bits: ${again}`,
    ],
    [
      'more times than values',
      (json) => (samplers(json)[0].input = samplers(json)[1].input),
      `${knee}: its 3 keys need 3 values, but have 2: ${again}`,
    ],
    [
      'a spline without tangents',
      (json) => (samplers(json)[1].interpolation = 'CUBICSPLINE'),
      `${hip}: its 3 keys need 9 values, but have 3: ${again}`,
    ],
    ['no keys', (json) => (json.accessors[1].count = 0), `${knee}: it has no key times: ${again}`],
    [
      'more keys than any clip has, without bytes',
      (json) => (json.accessors[1] = { componentType: 5126, count: 1e9, type: 'SCALAR' }),
      `${knee}: its key times are 1000000000, over 4194304: ${again}`,
    ],
    [
      'a buffer view that does not exist',
      (json) => (json.accessors[1].bufferView = 99),
      `${knee}, key times: its buffer view or buffer does not exist: ${again}`,
    ],
    [
      'more elements than bytes',
      (json) => (json.bufferViews[2].byteLength = 31),
      `${knee}, key values: its elements do not fit into its buffer view: ${again}`,
    ],
    [
      'a view beyond its buffer',
      (json) => (json.bufferViews[2].byteOffset = 1000),
      `${knee}, key values: its buffer view does not fit into its buffer: ${again}`,
    ],
    [
      'a sparse part without values',
      (json) => (json.accessors[2].sparse = { count: 1 }),
      `${knee}: the sparse part of its key values is broken: ${again}`,
    ],
    [
      'a sparse part whose indices are floats',
      (json) =>
        (json.accessors[2].sparse = {
          count: 1,
          indices: { bufferView: 0, componentType: 5126 },
          values: { bufferView: 0 },
        }),
      `${knee}: the sparse part of its key values is broken: ${again}`,
    ],
    [
      'times out of order',
      (json, model) => model.parts[3].writeFloatLE(0.5, 8),
      `${hip}: its key 2 is at 0.5 seconds, the one before at 1: sort its keys, and export it again.`,
    ],
    [
      'two keys at one time',
      (json, model) => model.parts[3].writeFloatLE(1, 8),
      `${hip}: its key 2 is at 1 seconds, the one before at 1: sort its keys, and export it again.`,
    ],
    [
      'a negative time',
      (json, model) => model.parts[3].writeFloatLE(-1, 0),
      `${hip}: the time of its key 0 is -1: ${again}`,
    ],
    [
      'a time that is not a number',
      (json, model) => model.parts[3].writeFloatLE(NaN, 4),
      `${hip}: the time of its key 1 is NaN: ${again}`,
    ],
    [
      'a time in far future',
      (json, model) => model.parts[3].writeFloatLE(1e6, 8),
      `${kick}: its last key is at frame 24000000, the last possible one is 1048576: ` +
        'cut it into shorter animations.',
    ],
    [
      'an endless value',
      (json, model) => model.parts[4].writeFloatLE(Infinity, 16),
      `${hip}: a value of its key 1 is Infinity: ${again}`,
    ],
    [
      'a value that jumps further than a slope can tell',
      (json, model) =>
        model.parts[4].writeFloatLE(3e38, 12) + model.parts[4].writeFloatLE(-3e38, 0),
      `${hip}: it moves too fast for a float: set its keys further apart, and export it again.`,
    ],
    [
      'a rotation of no length',
      (json, model) => model.parts[2].fill(0, 16, 32),
      `${knee}: the quaternion of its key 1 has no length: ` +
        'give it a rotation there, and export it again.',
    ],
    [
      'a buffer elsewhere',
      (json) => (json.buffers[0].uri = 'leg.bin'),
      "buffer 0: its bytes are elsewhere, in 'leg.bin': " +
        'import it by its path, or export it as one .glb.',
    ],
    [
      'a data URI of plain text',
      (json) => (json.buffers[0].uri = 'data:text/plain,abc'),
      `buffer 0: its data URI is not in base64: ${again}`,
    ],
    [
      'a URI that is a number',
      (json) => (json.buffers[0].uri = 7),
      `buffer 0: its URI is not a string: ${again}`,
    ],
    [
      'less bytes than it says',
      (json) => (json.buffers[0].byteLength = 1000),
      'buffer 0: it is truncated, 216 of 1000 bytes: copy or export it again.',
    ],
  ];

  for (const [what, change, message] of cases) {
    it(`report ${what}`, async () => {
      await assertTrouble(importGltf(broken(change), { name: 'leg' }), `model 'leg': ${message}`);
    });
  }

  it('report any damage to the JSON', async () => {
    const whole = openGlb(broken(() => {}));
    whole.json.scenes = [{ nodes: [0] }];
    whole.json.accessors[4].sparse = {
      count: 1,
      indices: { bufferView: 0, componentType: 5121 },
      values: { bufferView: 1 },
    };
    const places = [];
    const visit = (value, where) => {
      places.push(where);
      if (typeof value === 'object' && value !== null) {
        Object.keys(value).forEach((property) => visit(value[property], [...where, property]));
      }
    };
    visit(whole.json, []);
    // What is undefined is not in the file.
    const junk = [
      ...[undefined, null, true, '', 'x', 'constructor', '5123', -1, 0, 1, 3, 0.5, 1e9, 1e300],
      ...[[], {}, [null], [[]], [1, 1], ['scale'], ['SCALAR']],
    ];
    let refused = 0;
    for (const where of places.filter(({ length }) => length > 0)) {
      for (const value of junk) {
        const json = JSON.parse(JSON.stringify(whole.json));
        const owner = where.slice(0, -1).reduce((object, property) => object[property], json);
        owner[where[where.length - 1]] = value;
        try {
          await importGltf(glbOf(Buffer.from(JSON.stringify(json)), whole.binary));
        } catch (error) {
          const what = `${where.join('.')} = ${JSON.stringify(value)}`;
          assert.ok(error instanceof GltfError, `${what}: ${error.stack}`);
          assert.ok(/^model: .*: [a-z].*\.$/.test(error.message), `${what}: ${error.message}`);
          assert.ok(!/undefined|\[object|NaN/.test(error.message), `${what}: ${error.message}`);
          ++refused;
        }
      }
    }
    assert.ok(refused > 1000, `${refused} refused`);
  });

  it('report a spline of rotations through zero', async () => {
    const model = new ModelBuilder();
    model.node();
    model.animation('flip', [
      {
        node: 0,
        path: 'rotation',
        interpolation: 'CUBICSPLINE',
        times: [0, 1],
        values: [0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, -1, 0, 0, 0, 0],
      },
    ]);
    await assertTrouble(
      importGltf(model.glb()),
      "model: animation 0 'flip', node 0 (rotation): its spline passes through a rotation of no " +
        'length: set more keys on the way, and export it again.'
    );
  });

  it('report files that are truncated anywhere', async () => {
    const whole = broken(() => {});
    const file = path.join(folder, 'short.glb');
    for (let size = 4; size < whole.length; size += 13) {
      fs.writeFileSync(file, whole.slice(0, size));
      const of = size < 12 ? 12 : whole.length;
      await assertTrouble(
        importGltf(file),
        `model '${file}': it is truncated, ${size} of ${of} bytes: copy or export it again.`
      );
    }
  });

  it('report broken containers', async () => {
    const notGltf = 'model: it is not a glTF file: give a .glb or .gltf file.';
    await assertTrouble(importGltf(Buffer.alloc(0)), notGltf);
    await assertTrouble(importGltf(Buffer.from('\x89PNG')), notGltf);
    await assertTrouble(importGltf(Buffer.from('[]')), notGltf);
    const whole = broken(() => {});
    const damaged = (offset, value) => {
      const copy = Buffer.from(whole);
      copy.writeUInt32LE(value, offset);
      return importGltf(copy);
    };
    await assertTrouble(damaged(4, 1), `model: it is a binary glTF of version 1: ${again}`);
    await assertTrouble(
      damaged(12, whole.length),
      `model: a chunk of it ends at byte ${whole.length + 20} of ${whole.length}: ` +
        'copy or export it again.'
    );
    await assertTrouble(
      damaged(16, 0x004e4942),
      `model: it does not begin with a JSON chunk: ${again}`
    );
    const list = Buffer.alloc(24);
    [0x46546c67, 2, 24, 4, 0x4e4f534a].forEach((word, i) => list.writeUInt32LE(word, 4 * i));
    list.write('[]  ', 20);
    await assertTrouble(importGltf(list), `model: its JSON is not an object: ${again}`);
    await assert.rejects(
      importGltf(Buffer.from('{"asset":')),
      /^GltfError: model: its JSON is broken, Unexpected end of JSON input: export it again as glTF 2\.0\.$/
    );
  });

  it('report a binary file without its bytes', async () => {
    const { json } = openGlb(broken(() => {}));
    await assertTrouble(
      importGltf(Buffer.from(JSON.stringify(json))),
      `model: buffer 0: its bytes are not in the file: ${again}`
    );
  });

  it('report missing files', async () => {
    const missing = path.join(folder, 'missing.glb');
    const cure = 'give the path of a .glb or .gltf file.';
    await assertTrouble(
      importGltf(missing),
      `model '${missing}': it can't be read, there is no such file: ${cure}`
    );
    await assertTrouble(
      importGltf(folder, { name: 'folder' }),
      `model 'folder': it can't be read, it is a folder: ${cure}`
    );
    const file = path.join(folder, 'alone.gltf');
    const { json } = skeleton();
    json.buffers[0].uri = 'gone.bin';
    fs.writeFileSync(file, JSON.stringify(json));
    await assertTrouble(
      importGltf(file),
      `model '${file}': buffer 0: its file 'gone.bin' can't be read, there is no such file: ` +
        'put that file there, or export the model as one .glb.'
    );
    json.buffers[0].uri = 'https://example.com/model.bin';
    fs.writeFileSync(file, JSON.stringify(json));
    await assertTrouble(
      importGltf(file),
      `model '${file}': buffer 0: its bytes are elsewhere, in 'https://example.com/model.bin': ` +
        'export it as one .glb.'
    );
  });

  const misuses = [
    [[7], TypeError, 'importGltf: the source is neither a path nor bytes: give one of them.'],
    [
      ['a.glb', null],
      TypeError,
      'importGltf: options is not an object: leave it out or give an object.',
    ],
    [
      ['a.glb', { name: 1 }],
      TypeError,
      'importGltf: options.name is not a string: leave it out or give a string.',
    ],
    [
      ['a.glb', { holdEnd: 'yes' }],
      TypeError,
      'importGltf: options.holdEnd is neither true nor false: give one of them.',
    ],
    ...[0, 1.5, '30', 1001].map((framesPerSecond) => [
      ['a.glb', { framesPerSecond }],
      RangeError,
      'importGltf: options.framesPerSecond is no frame rate: ' +
        'leave it out or give a whole number from 1 to 1000.',
    ]),
  ];
  for (const [args, ErrorType, message] of misuses) {
    it(`report wrong arguments: ${JSON.stringify(args)}`, async () => {
      await assert.rejects(importGltf(...args), (error) => {
        assert.strictEqual(error.constructor, ErrorType);
        assert.strictEqual(error.message, message);
        return true;
      });
    });
  }

  it('report a source whose getters throw', async () => {
    for (const source of hostileObjects()) {
      await assert.rejects(importGltf(source), {
        name: 'TypeError',
        message: 'importGltf: the source is neither a path nor bytes: give one of them.',
      });
    }
  });

  /** The importer in a new folder, with a fake of the package that it needs. */
  function importerBeside(name, packageFiles) {
    const place = path.join(folder, name);
    const lib = path.join(place, 'lib');
    fs.mkdirSync(lib, { recursive: true });
    const source = path.join(__dirname, '..', '..', '..', 'lib');
    for (const file of fs.readdirSync(source).filter((one) => one.endsWith('.js'))) {
      fs.copyFileSync(path.join(source, file), path.join(lib, file));
    }
    const library = path.join(place, 'node_modules', '@gltf-transform', 'core');
    for (const file of Object.keys(packageFiles)) {
      fs.mkdirSync(library, { recursive: true });
      fs.writeFileSync(path.join(library, file), packageFiles[file]);
    }
    return require(path.join(lib, 'gltf.js'));
  }

  const useless = [
    ['is written for newer runtimes', 'let a; a ||| {};', "Unexpected token '|'"],
    ['has a part missing', "require('property-graph');", "Cannot find module 'property-graph'"],
    [
      'has another shape',
      'module.exports = { NodeIO: class {} };',
      'it lacks NodeIO or Logger of versions 2 to 4',
    ],
  ];
  useless.forEach(([what, script, trouble], i) => {
    it(`report a library that ${what}`, async () => {
      const alone = importerBeside(`useless-${i}`, {
        'package.json': '{ "version": "9.8.7" }',
        'index.js': script,
      });
      await assert.rejects(alone.importGltf(broken(() => {})), (error) => {
        assert.ok(error instanceof alone.GltfError, error.stack);
        const { message } = error;
        const start =
          `importGltf found @gltf-transform/core 9.8.7, which Node ${process.versions.node}` +
          ` can't use (${trouble}`;
        assert.ok(message.startsWith(start), message);
        const end = "): replace it by 'npm install @gltf-transform/core@3'.";
        assert.ok(message.endsWith(end) && !message.includes('\n'), message);
        return true;
      });
    });
  });

  it('report a missing library, and only on use', async () => {
    const alone = importerBeside('alone', {});
    await assert.rejects(alone.importGltf(broken(() => {})), (error) => {
      assert.ok(error instanceof alone.GltfError);
      assert.strictEqual(
        error.message,
        'importGltf needs the package @gltf-transform/core, which is not installed: ' +
          "install it by 'npm install @gltf-transform/core@3'."
      );
      return true;
    });
  });
});

describe('real models', () => {
  // Rates found from the key times: those of Run are at thirds and halves of frames at 24 per second.
  const expected = {
    'Fox.glb': [
      ['Survey', 24, 82],
      ['Walk', 24, 17],
      ['Run', 120, 139],
    ],
    'greenman.glb': [
      ['0_pose', 24, 4],
      ['1_idle', 24, 60],
      ['2_move', 24, 30],
      ['3_attack', 24, 20],
    ],
  };
  for (const name of Object.keys(expected)) {
    it(`${name} moves as glTF defines`, async function () {
      const file = realModel(this, name);
      const source = openGlb(fs.readFileSync(file));
      const { nodes, roots, skins, animations, warnings } = await importGltf(file);
      assert.deepStrictEqual(warnings, []);
      assert.deepStrictEqual(
        animations.map((a) => [a.name, a.framesPerSecond, a.frameCount]),
        expected[name]
      );
      assert.strictEqual(nodes.length, source.json.nodes.length);
      nodes.forEach(({ parent, fileIndex }, index) => {
        assert.ok(parent < index);
        const { children = [] } = parent < 0 ? {} : source.json.nodes[nodes[parent].fileIndex];
        assert.strictEqual(children.includes(fileIndex), parent >= 0);
      });
      assert.deepStrictEqual(
        roots,
        nodes.map((_, i) => i).filter((i) => nodes[i].parent < 0)
      );
      source.json.skins.forEach(({ joints }, index) => {
        assert.deepStrictEqual(
          skins[index].joints.map((joint) => nodes[joint].fileIndex),
          joints
        );
        assert.strictEqual(skins[index].inverseBindMatrices.byteLength, 64 * joints.length);
      });
      animations.forEach(({ clip: bytes, targets, framesPerSecond, frameCount }, index) => {
        const clip = readClip(bytes);
        const channels = channelsOf(source, index);
        assert.strictEqual(
          clip.curves.length,
          channels.reduce((n, c) => n + (c.path === 'rotation' ? 4 : 3), 0)
        );
        for (const channel of channels) {
          const target = targets.findIndex((node) => nodes[node].fileIndex === channel.node);
          // Fox moves by hundreds of units per second, and its key times are floats.
          const size = Math.max(...channel.values.map(Math.abs));
          const bound =
            channel.path === 'rotation'
              ? longestArc(clip, target) ** 4 / 384 + 2e-6
              : kFloatError * size + size * 3e-6;
          for (let i = 0; i < 50; ++i) {
            const time = ((i + 0.3) / 50) * frameCount;
            const value = clipValue(clip, target, channel.path, time);
            const apart = distance(channel.path, value, gltfValue(channel, time / framesPerSecond));
            assert.ok(apart <= bound, `${apart} > ${bound} at ${time} of node ${channel.node}`);
          }
        }
      });
    });
  }
});
