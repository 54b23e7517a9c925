'use strict';
// Whole models against three.js: their animations, imported, played by animators, refreshed and
// skinned, against an AnimationMixer and Skeletons in double precision.
//
// No tolerance is chosen: every value of the oracle has a bound on the error of the
// engine's value. With u = 2^-24, the rounding error of one operation:
//   - A clip's cubic is a sum of four terms. The weights are off by at most 14u for values and 7u for
//     slopes, products and sums add 4u, the place within the span is off by 2u, which moves the
//     outcome by at most 1.5 times that: 24u of the terms' magnitudes in all, values and slopes rounded
//     to floats included.
//   - Straight lines and splines of positions and scales are cubics, so there is no more to it.
//     Rotations run along arcs. Each of their four channels is a cubic between keys of the clip, with
//     the slopes of the arc: it misses an arc of length a, which is half the angle between the
//     neighbouring keys, by a^4 / 384 at most, the error of cubic Hermite interpolation of a curve
//     whose fourth derivative is a^4.
//   - A matrix of a rotation within e of its quaternion is off by 4e(1 + e) an element.
//   - An element of a local matrix is off by 8u more, times its column's scale and, for a quaternion
//     q, max(1, |q|^2); a sum of four products by 4u / (1 - 4u) of their magnitudes; errors of factors
//     pass through products by the magnitudes.
const assert = require('assert');
const { over } = require('../support/blocks');
const fs = require('fs');
const os = require('os');
const path = require('path');
const three = require('three');
const { Logger, NodeIO } = require('@gltf-transform/core');
const { readClip } = require('../../../lib/clip');
const { importGltf } = require('../../../lib/gltf');
const { ModelBuilder } = require('../../fixtures/animations');
const { realModel, skeleton, writeGlb } = require('../../fixtures/models');
const { TestWorld, createRandom } = require('../../fixtures/world');
const { addMagnitudes, multiplyMagnitudes } = require('../support/reference');
const { removeFolder } = require('../../../scripts/lib/run');

const kUnit = Math.pow(2, -24);
const kSampleError = 24 * kUnit;
const kLocalError = 8 * kUnit;
const kProductError = (4 * kUnit) / (1 - 4 * kUnit);
/** Covers the oracle's own rounding, and what the factors above leave out in second order. */
const kSlack = 1.01;

/** Key times of a file are floats: they name a whole frame if they are this near to one, in frames. */
const kSnapFrames = 1e-3;

const widths = { translation: 3, rotation: 4, scale: 3 };
const properties = { translation: 'position', rotation: 'quaternion', scale: 'scale' };

function normAt(values, at, width) {
  return Math.hypot(...Array.from(values.subarray(at, at + width)));
}

/** Keys of [slope in, value, slope out], joined by cubics; rotations are normalised. */
class SplineInterpolant extends three.Interpolant {
  copySampleValue_(key) {
    const { sampleValues, valueSize: width, resultBuffer } = this;
    for (let i = 0; i < width; ++i) {
      resultBuffer[i] = sampleValues[(3 * key + 1) * width + i];
    }
    return resultBuffer;
  }

  interpolate_(key, from, time, to) {
    const { sampleValues: v, valueSize: width, resultBuffer } = this;
    const s = (time - from) / (to - from);
    const [p, q] = [(3 * key - 2) * width, (3 * key + 1) * width];
    for (let i = 0; i < width; ++i) {
      const out = (to - from) * v[p + width + i];
      const into = (to - from) * v[q - width + i];
      resultBuffer[i] =
        (2 * s ** 3 - 3 * s ** 2 + 1) * v[p + i] +
        (3 * s ** 2 - 2 * s ** 3) * v[q + i] +
        (s ** 3 - 2 * s ** 2 + s) * out +
        (s ** 3 - s ** 2) * into;
    }
    return resultBuffer;
  }
}

/** A channel of an animation: its keys, on whole frames, in double precision. */
class Channel {
  constructor(channel, node, framesPerSecond) {
    const sampler = channel.getSampler();
    this.node = node;
    this.path = channel.getTargetPath();
    this.width = widths[this.path];
    this.interpolation = sampler.getInterpolation();
    const isSpline = this.interpolation === 'CUBICSPLINE';
    this.elements = isSpline ? 3 : 1;
    assert(!isSpline || this.path !== 'rotation', 'splines of rotations are not compared here');
    this.framesPerSecond = framesPerSecond;
    this.frames = Array.from(sampler.getInput().getArray(), (seconds) => {
      const frame = Math.round(seconds * framesPerSecond);
      assert(Math.abs(seconds * framesPerSecond - frame) <= kSnapFrames, `${seconds} s`);
      return frame;
    });
    const output = sampler.getOutput();
    this.values = new Float64Array(output.getCount() * this.width);
    for (let i = 0; i < output.getCount(); ++i) {
      this.values.set(output.getElement(i, []), i * this.width);
    }
    if (this.path === 'rotation') {
      for (let at = 0; at < this.values.length; at += 4) {
        const length = normAt(this.values, at, 4);
        this.values.subarray(at, at + 4).forEach((value, i) => {
          this.values[at + i] = value / length;
        });
      }
    }
  }

  /** The track of three.js. */
  track(name) {
    const Base =
      this.path === 'rotation' ? three.QuaternionKeyframeTrack : three.VectorKeyframeTrack;
    class Track extends Base {}
    Track.prototype.TimeBufferType = Float64Array;
    Track.prototype.ValueBufferType = Float64Array;
    const mode =
      this.interpolation === 'STEP' ? three.InterpolateDiscrete : three.InterpolateLinear;
    const times = Float64Array.from(this.frames, (frame) => frame / this.framesPerSecond);
    const track = new Track(`${name}.${properties[this.path]}`, times, this.values, mode);
    assert.strictEqual(track.times.constructor, Float64Array);
    if (this.interpolation === 'CUBICSPLINE') {
      track.createInterpolant = (result) =>
        new SplineInterpolant(track.times, track.values, this.width, result);
    }
    return track;
  }

  /** The key that a frame follows, and the next; both the same before the first and after the last. */
  around(frame) {
    const next = this.frames.findIndex((key) => key > frame);
    const last = this.frames.length - 1;
    return next < 0 ? [last, last] : [Math.max(0, next - 1), next];
  }

  /** A bound of the error of any element of a position or scale at a frame. */
  bound(frame) {
    const [a, b] = this.around(frame);
    const { values, width, elements } = this;
    const valueAt = (key) => (key * elements + (elements === 3 ? 1 : 0)) * width;
    const [p, q] = [normAt(values, valueAt(a), width), normAt(values, valueAt(b), width)];
    let slopes = 2 * (p + q);
    if (elements === 3) {
      const seconds = (this.frames[b] - this.frames[a]) / this.framesPerSecond;
      const out = normAt(values, valueAt(a) + width, width);
      slopes = seconds * (out + normAt(values, valueAt(b) - width, width));
    }
    return kSampleError * (p + q + slopes);
  }
}

/** Bounds of the errors of a clip's rotations: by target, from the keys that the clip really has. */
class RotationBounds {
  constructor(clip) {
    this.targets = new Map();
    for (const { target, type, keys } of readClip(clip).curves) {
      // Quaternion x, y, z, w.
      const channel = [11, 12, 13, 10].indexOf(type);
      if (channel >= 0) {
        const curves = this.targets.get(target) || [];
        curves[channel] = keys;
        this.targets.set(target, curves);
      }
    }
  }

  /** Half the angle between the keys around a frame, or 0 where the clip holds a key's value. */
  arc(target, frame) {
    const curves = this.targets.get(target);
    const keyFrames = Array.from(
      new Set([].concat(...curves.map((keys) => keys.map((key) => key.frame))))
    ).sort((a, b) => a - b);
    const next = keyFrames.findIndex((key) => key > frame);
    if (next < 1 || keyFrames[next - 1] === frame) {
      return 0;
    }
    const valueAt = (place) =>
      curves.map((keys) => {
        // Channels of one value have one key; the others share their frames.
        const found = keys.length === 1 ? keys[0] : keys.find((key) => key.frame === place);
        return found.value;
      });
    const [p, q] = [valueAt(keyFrames[next - 1]), valueAt(keyFrames[next])];
    const apart = Math.hypot(...p.map((value, i) => value - q[i]));
    return 2 * Math.asin(Math.min(1, apart / 2));
  }

  bound(target, frame) {
    const arc = this.arc(target, frame);
    // Both keys are of length 1, both slopes of that of the arc.
    return Math.pow(arc, 4) / 384 + kSampleError * (2 + 2 * arc);
  }
}

/** Bounds of a product of a within da and b within db. */
function productBounds(a, da, b, db) {
  const exact = multiplyMagnitudes(a, b);
  return multiplyMagnitudes(addMagnitudes(a, da), addMagnitudes(b, db)).map(
    (value, i) => value - exact[i] + kProductError * value
  );
}

/** A model on both sides. */
class Play {
  constructor(imported, document) {
    this.imported = imported;
    this.root = document.getRoot();
    this.fileNodes = this.root.listNodes();
    this.compared = { sampled: 0, world: 0, skinned: 0 };
    /** Largest error found; largest bounds of world matrices, of single animations and of blends. */
    this.worst = 0;
    this.largestBounds = [0, 0];
    this.makeEngineSide();
    this.makeOracle();
  }

  makeEngineSide() {
    const { nodes, skins } = this.imported;
    this.world = new TestWorld();
    this.entities = this.world.add3D(nodes.length);
    nodes.forEach(({ parent, translation, rotation, scale }, i) => {
      this.entities[i].setTransform(rotation, translation, scale);
      if (parent < 0) {
        this.world.command('addRoot', this.entities[i]);
      } else {
        this.world.command('addChild', this.entities[parent], this.entities[i]);
      }
    });
    this.world.refresh(this.entities);
    const { engine } = this.world;
    this.models = skins.map((skin) => engine.createDataModel(2, skin.inverseBindMatrices));
    this.skins = skins.map(({ joints }, s) => {
      const component = engine.createComponent(3, joints.length);
      const words = over(Uint32Array, component);
      words[0] = this.models[s].id;
      joints.forEach((joint, i) => {
        words[1 + i] = i;
        words[1 + joints.length + i] = this.entities[joint].handle;
      });
      const results = over(Float32Array, component).subarray(1 + 2 * joints.length);
      return { component, joints, results };
    });
    this.clips = this.imported.animations.map(({ clip }) => engine.createDataModel(1, clip));
  }

  makeOracle() {
    const place = new Map(this.imported.nodes.map(({ fileIndex }, i) => [fileIndex, i]));
    this.objects = [];
    this.fileNodes.forEach((node, fileIndex) => {
      const object = new three.Bone();
      object.name = `node${place.get(fileIndex)}`;
      object.position.fromArray(node.getTranslation().map(Math.fround));
      object.quaternion.fromArray(node.getRotation().map(Math.fround));
      object.scale.fromArray(node.getScale().map(Math.fround));
      this.objects[place.get(fileIndex)] = object;
    });
    this.scene = new three.Group();
    this.fileNodes.forEach((node, fileIndex) => {
      for (const child of node.listChildren()) {
        const index = place.get(this.fileNodes.indexOf(child));
        this.objects[place.get(fileIndex)].add(this.objects[index]);
      }
    });
    this.objects
      .filter(({ parent }) => parent === null)
      .forEach((object) => this.scene.add(object));
    this.skeletons = this.root.listSkins().map((skin) => {
      const bones = skin.listJoints().map((joint) => {
        return this.objects[place.get(this.fileNodes.indexOf(joint))];
      });
      const matrices = skin.getInverseBindMatrices();
      const inverses = bones.map((bone, i) => {
        const matrix = new three.Matrix4();
        return matrices === null ? matrix : matrix.fromArray(matrices.getElement(i, []));
      });
      return new three.Skeleton(bones, inverses);
    });
    this.animations = this.imported.animations.map((animation) => {
      const found = this.root
        .listAnimations()
        .filter((other) => other.getName() === animation.name);
      assert.strictEqual(found.length, 1, animation.name);
      const { framesPerSecond, frameCount, targets } = animation;
      const channels = found[0].listChannels().map((channel) => {
        const node = place.get(this.fileNodes.indexOf(channel.getTargetNode()));
        return new Channel(channel, node, framesPerSecond);
      });
      const tracks = channels.map((channel) => channel.track(`node${channel.node}`));
      // Longer than it is played: only the engine wraps, with a period in frames.
      const clip = new three.AnimationClip(
        animation.name,
        frameCount / framesPerSecond + 1,
        tracks
      );
      const rotations = new RotationBounds(animation.clip);
      return { clip, channels, rotations, targets, framesPerSecond, frameCount };
    });
    this.mixer = new three.AnimationMixer(this.scene);
  }

  /**
   * Plays animations on both sides.
   * @param {{index: number, frame: number, weight: number}[]} plays the weights add up to 1
   */
  play(plays) {
    const { engine } = this.world;
    const entityCount = plays.reduce(
      (sum, { index }) => sum + this.animations[index].targets.length,
      0
    );
    const component = engine.createComponent(2, plays.length, entityCount);
    const words = over(Uint32Array, component);
    let at = 3 * plays.length;
    this.mixer.stopAllAction();
    plays.forEach(({ index, frame, weight }, i) => {
      const { clip, targets, framesPerSecond, frameCount } = this.animations[index];
      words[3 * i] = this.clips[index].id;
      over(Float32Array, component).set([frame, weight], 3 * i + 1);
      for (const target of targets) {
        words[at++] = this.entities[target].handle;
      }
      const action = this.mixer.clipAction(clip);
      action.reset();
      action.setEffectiveWeight(weight).play();
      action.time = (Math.fround(frame) % frameCount) / framesPerSecond;
    });
    this.mixer.update(0);
    this.scene.updateMatrixWorld(true);
    engine.updateAnimator(component.id);
    this.world.refresh();
    if (this.skins.length === 1) {
      engine.updateSkinningMatrix(this.skins[0].component.id);
    } else {
      const ids = this.skins.map((skin) => skin.component.id);
      engine.updateSkinningMatrices(Uint32Array.of(ids.length, ...ids));
    }
    return component;
  }

  /** Bounds of position, scale and rotation of every node under what is played. */
  bounds(plays) {
    const bounds = this.objects.map(() => ({ translation: 0, scale: 0, rotation: 0, moved: {} }));
    for (const { index, frame } of plays) {
      const { channels, rotations, targets, frameCount } = this.animations[index];
      const wrapped = Math.fround(frame) % frameCount;
      for (const channel of channels) {
        const own = bounds[channel.node];
        own.moved[channel.path] = true;
        if (channel.path === 'rotation') {
          own.rotation += rotations.bound(targets.indexOf(channel.node), wrapped);
        } else {
          own[channel.path] += channel.bound(wrapped);
        }
      }
    }
    if (plays.length > 1) {
      for (const own of bounds) {
        // Weights of at most 1 and a few operations for positions; for rotations up to a right angle
        // apart the weights add up to 1.5 at most and change by what their product does, at most.
        own.translation *= 1.1;
        own.scale *= 1.1;
        own.rotation = 4 * own.rotation + (own.moved.rotation ? 64 * kUnit : 0);
      }
    }
    return bounds;
  }

  close(actual, expected, bound, what) {
    assert.strictEqual(actual.length, expected.length);
    for (let i = 0; i < expected.length; ++i) {
      const limit = kSlack * (Array.isArray(bound) ? bound[i] : bound);
      const error = Math.abs(actual[i] - expected[i]);
      if (!(error <= limit)) {
        return `${what}, element ${i}: ${actual[i]}, not ${expected[i]} within ${limit}`;
      }
      this.worst = Math.max(this.worst, error);
    }
    return null;
  }

  /** The first value that is further off than its bound, or null. */
  findDifference(plays) {
    const bounds = this.bounds(plays);
    const worldBounds = [];
    let largest = 0;
    for (let i = 0; i < this.objects.length; ++i) {
      const object = this.objects[i];
      const own = bounds[i];
      const { words, matrix, bytes } = this.entities[i];
      const { moved } = own;
      const expected = object.quaternion.toArray();
      let rotation = Array.from(words.subarray(1, 5));
      if (rotation.reduce((sum, value, k) => sum + value * expected[k], 0) < 0) {
        rotation = rotation.map((value) => -value);
      }
      const difference =
        this.close(
          words.subarray(5, 8),
          object.position.toArray(),
          own.translation,
          `position ${i}`
        ) ||
        this.close(rotation, expected, own.rotation, `rotation ${i}`) ||
        this.close(words.subarray(8, 11), object.scale.toArray(), own.scale, `scale ${i}`);
      if (difference !== null) {
        return difference;
      }
      assert.strictEqual(bytes[0], 1);
      this.compared.sampled += Object.keys(moved).reduce((sum, name) => sum + widths[name], 0);

      const squared = Math.max(1, object.quaternion.lengthSq());
      const spread = 4 * own.rotation * (1 + own.rotation);
      const local = Array.from({ length: 16 }, (none, k) => {
        if (k % 4 === 3) {
          return 0;
        }
        if (k >= 12) {
          return own.translation;
        }
        const column = Math.abs(object.scale.getComponent(k >> 2)) + own.scale;
        return column * (spread + kLocalError * squared) + own.scale * (1 + spread);
      });
      const parent = this.imported.nodes[i].parent;
      worldBounds[i] =
        parent < 0
          ? local
          : productBounds(
              this.objects[parent].matrixWorld.elements,
              worldBounds[parent],
              object.matrix.elements,
              local
            );
      const wrong = this.close(matrix, object.matrixWorld.elements, worldBounds[i], `world ${i}`);
      if (wrong !== null) {
        return wrong;
      }
      this.compared.world += 16;
      largest = Math.max(largest, ...worldBounds[i]);
    }
    for (let s = 0; s < this.skins.length; ++s) {
      const { joints, results } = this.skins[s];
      const skeleton = this.skeletons[s];
      skeleton.update();
      for (let b = 0; b < joints.length; ++b) {
        const world = this.objects[joints[b]].matrixWorld.elements;
        const inverse = skeleton.boneInverses[b].elements;
        const expected = skeleton.boneMatrices.subarray(16 * b, 16 * b + 16);
        // The skeleton keeps floats.
        const bound = productBounds(
          world,
          worldBounds[joints[b]],
          inverse,
          new Array(16).fill(0)
        ).map((value, i) => value + kUnit * Math.abs(expected[i]));
        const wrong = this.close(
          results.subarray(16 * b, 16 * b + 16),
          expected,
          bound,
          `bone ${b}`
        );
        if (wrong !== null) {
          return wrong;
        }
        this.compared.skinned += 16;
      }
    }
    this.largestBounds[plays.length - 1] = Math.max(this.largestBounds[plays.length - 1], largest);
    return null;
  }

  assertAgrees(plays) {
    // No result of an earlier play can be mistaken for a new one: all that moves, and its descendants, is new.
    const moves = new Set();
    plays.forEach(({ index }) => this.animations[index].targets.forEach((i) => moves.add(i)));
    this.imported.nodes.forEach(({ parent }, i) => {
      if (moves.has(parent)) {
        moves.add(i);
      }
    });
    moves.forEach((i) => this.entities[i].matrix.fill(NaN));
    this.skins.forEach(({ results }) => results.fill(NaN));
    this.play(plays);
    const text = plays.map(({ index, frame, weight }) => `${index} at ${frame} by ${weight}`);
    const difference = this.findDifference(plays);
    assert.strictEqual(difference, null, `${text.join(', ')}: ${difference}`);
  }

  /** Frames at which an animation is compared: all whole ones, some between, and some beyond its end. */
  times(index, random) {
    const { frameCount } = this.animations[index];
    const whole = Array.from({ length: frameCount }, (none, frame) => frame);
    const between = Array.from({ length: 60 }, () => random.real(0, frameCount));
    const beyond = [
      frameCount,
      3 * frameCount + 1,
      Math.fround(frameCount + 0.375),
      Math.fround(5 * frameCount + 1.625),
    ];
    return [...whole, ...between, ...beyond];
  }

  /** The largest coordinate of the model. */
  reach() {
    return Math.max(
      ...this.objects.map(({ matrixWorld }) => Math.hypot(...matrixWorld.elements.slice(12, 15)))
    );
  }
}

/** Opens a model, of a path or its bytes, on both sides. */
async function openPlay(source) {
  const bytes = typeof source === 'string' ? fs.readFileSync(source) : source;
  const io = new NodeIO().setLogger(new Logger(Logger.Verbosity.SILENT));
  const document = await io.readBinary(Uint8Array.from(bytes));
  return new Play(await importGltf(bytes), document);
}

/** Plays each animation of a model, and pairs of those that move the same nodes. */
function assertAllAgree(play, seed) {
  const random = createRandom(seed);
  const expected = { sampled: 0, world: 0, skinned: 0 };
  const bones = play.skins.reduce((sum, { joints }) => sum + joints.length, 0);
  const count = (index, times) => {
    const { channels } = play.animations[index];
    expected.sampled += times * channels.reduce((sum, { path: name }) => sum + widths[name], 0);
    expected.world += times * 16 * play.objects.length;
    expected.skinned += times * 16 * bones;
  };
  play.animations.forEach((animation, index) => {
    const times = play.times(index, random);
    times.forEach((frame) => play.assertAgrees([{ index, frame, weight: 1 }]));
    count(index, times.length);
  });
  const movedBy = ({ channels }) =>
    channels.map(({ node, path: name }) => `${node} ${name}`).sort();
  play.animations.forEach((first, i) => {
    play.animations.forEach((second, k) => {
      if (i >= k || movedBy(first).join() !== movedBy(second).join()) {
        return;
      }
      for (let n = 0; n < 40; ++n) {
        const weight = random.pick([0.125, 0.25, 0.5, 0.625, 0.875]);
        const frames = [first, second].map(({ frameCount }) =>
          random.below(3) === 0 ? random.below(frameCount) : random.real(0, frameCount)
        );
        play.assertAgrees([
          { index: i, frame: frames[0], weight },
          { index: k, frame: frames[1], weight: 1 - weight },
        ]);
      }
      count(i, 40);
    });
  });
  assert.deepStrictEqual(play.compared, expected);
  return expected;
}

/** A chain of `count` nodes with two skins and two animations that move all of them in all ways. */
function generatedModel(seed, count) {
  const random = createRandom(seed);
  const model = new ModelBuilder();
  const turn = (axis, angle) => {
    const length = Math.hypot(...axis);
    return [...axis.map((x) => (x / length) * Math.sin(angle / 2)), Math.cos(angle / 2)];
  };
  const someTurn = () =>
    turn(
      [0, 0, 0].map(() => random.real(-1, 1)),
      random.real(-3, 3)
    );
  for (let i = 0; i < count; ++i) {
    model.node({
      name: `n${i}`,
      translation: [random.real(-1, 1), random.real(-1, 1), 0.5],
      rotation: someTurn().map(Math.fround),
      children: [2 * i + 1, 2 * i + 2].filter((child) => child < count),
    });
  }
  const skin = (joints) => {
    const matrices = [].concat(
      ...joints.map(() => {
        const matrix = new three.Matrix4().compose(
          new three.Vector3(random.real(-1, 1), random.real(-1, 1), random.real(-1, 1)),
          new three.Quaternion(...someTurn()),
          new three.Vector3(random.real(0.5, 2), random.real(0.5, 2), random.real(0.5, 2))
        );
        return matrix.elements;
      })
    );
    const inverseBindMatrices = model.accessor('MAT4', Float32Array.from(matrices));
    model.json.skins.push({ joints, inverseBindMatrices });
  };
  const all = Array.from({ length: count }, (none, i) => i);
  skin(all.filter((i) => i % 3 !== 0).reverse());
  skin(all.filter((i) => i % 2 === 0));
  const rates = [24, 30];
  ['first', 'second'].forEach((name, n) => {
    const rate = rates[n];
    const times = () => {
      const frames = [random.below(3)];
      while (frames.length < 6) {
        frames.push(frames[frames.length - 1] + 1 + random.below(7));
      }
      return Float32Array.from(frames, (frame) => frame / rate);
    };
    const vectors = (length, low, high) =>
      Float32Array.from({ length: 3 * length }, () => random.real(low, high));
    const channels = [];
    for (const node of all) {
      const kind = ['LINEAR', 'STEP', 'CUBICSPLINE'][node % 3];
      const keys = kind === 'CUBICSPLINE' ? 18 : 6;
      channels.push(
        {
          node,
          path: 'translation',
          times: times(),
          values: vectors(keys, -2, 2),
          interpolation: kind,
        },
        {
          node,
          path: 'scale',
          times: times(),
          values: vectors(keys, 0.4, 1.5),
          interpolation: kind,
        }
      );
      // Turns by up to 2 radians from key to key, now and then by the other of the two quaternions.
      let at = someTurn();
      const turns = [];
      for (let key = 0; key < 6; ++key) {
        const next = new three.Quaternion(...at).multiply(
          new three.Quaternion(
            ...turn([1, random.real(-1, 1), random.real(-1, 1)], random.real(-2, 2))
          )
        );
        at = next.normalize().toArray();
        const sign = random.below(4) === 0 ? -1 : 1;
        turns.push(...at.map((value) => sign * value));
      }
      const interpolation = node % 4 === 3 ? 'STEP' : 'LINEAR';
      const values = Float32Array.from(turns);
      channels.push({ node, path: 'rotation', times: times(), values, interpolation });
    }
    model.animation(name, channels);
  });
  return model.glb();
}

describe('oracle: animation by three.js', () => {
  for (const [name, animations, joints] of [
    ['Fox.glb', 3, 24],
    ['greenman.glb', 4, 12],
  ]) {
    it(`agrees on all animations of ${name}, and their blends`, async function () {
      const play = await openPlay(realModel(this, name));
      assert.strictEqual(play.animations.length, animations);
      assert.strictEqual(play.skins[0].joints.length, joints);
      const { sampled, world, skinned } = assertAllAgree(play, 3);
      assert(sampled > 10000 && world > 50000 && skinned > 50000);
      // The bounds are strict: far below visible differences. Those of blends are wider.
      const [single, blended] = play.largestBounds.map((bound) => bound / play.reach());
      assert(single < 5e-4 && blended < 2e-3, `${single}, ${blended}`);
      assert(play.worst > 0);
    });
  }

  it('agrees on a small model with every kind of track', async () => {
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'nq-animation-'));
    try {
      const play = await openPlay(writeGlb(path.join(folder, 'skeleton.glb'), skeleton()));
      const { sampled, world } = assertAllAgree(play, 4);
      assert(sampled > 1000 && world > 6 * 16 * 60);
    } finally {
      removeFolder(folder);
    }
  });

  for (const { seed, count } of [
    { seed: 11, count: 7 },
    { seed: 12, count: 40 },
  ]) {
    it(`agrees on a generated model of ${count} nodes (seed ${seed})`, async () => {
      const play = await openPlay(generatedModel(seed, count));
      assert.strictEqual(play.animations.length, 2);
      const { sampled, skinned } = assertAllAgree(play, seed);
      assert(sampled > 100 * count * 10 && skinned > 100 * count * 16);
    });
  }

  it('detects a time that is off by a hundredth of a frame, and a wrong bone', async () => {
    const play = await openPlay(generatedModel(13, 7));
    const plays = [{ index: 0, frame: 6.5, weight: 1 }];
    play.assertAgrees(plays);
    play.play([{ index: 0, frame: 6.51, weight: 1 }]);
    play.mixer.stopAllAction();
    const { clip, framesPerSecond } = play.animations[0];
    const action = play.mixer.clipAction(clip).reset().play();
    action.time = 6.5 / framesPerSecond;
    play.mixer.update(0);
    play.scene.updateMatrixWorld(true);
    assert.notStrictEqual(play.findDifference(plays), null);

    play.assertAgrees(plays);
    const { results } = play.skins[0];
    const first = Array.from(results.subarray(0, 16));
    results.copyWithin(0, 16, 32);
    assert.notStrictEqual(play.findDifference(plays), null);
    results.set(first);
    assert.strictEqual(play.findDifference(plays), null);
  });
});
