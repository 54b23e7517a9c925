'use strict';
// A crowd with its plan, culling and cameras: runs it frame by frame, and measures each stage.
const { performance } = require('perf_hooks');
const { Scene } = require('../scene');
const { boundsOf } = require('./bounds');
const { createOverviewCamera, createPerspectiveCamera } = require('./cameras');
const { Crowd } = require('./crowd');
const { CrowdCulling } = require('./culling');
const { skinVertices } = require('./mesh');
const { LapPlan, PlacePlan } = require('./plan');
const { dealProps } = require('./props');
const { UserError } = require('./user-error');

/** Seconds of scene time between two frames. */
const kFrameSeconds = 1 / 60;

/** Number of poses per clip, and weights of a wave, for measuring the reach; margin that is added to it. */
const kMeasuredPoses = 12;
const kMeasuredWaves = [0, 0.35, 0.7, 1];
const kReachSlack = 1.08;

/** Extent of a crowd and its cameras, in reaches of a character; its squares must be finite. */
const kRoom = 1e21;

/** The stages of a frame, in order. */
const stages = ['script', 'animate', 'transform', 'skin', 'perspective', 'overview'];

/** Every prop in either hand; a single empty entry if there are none. */
function allParts({ layers }) {
  if (!layers) {
    return [null];
  }
  const parts = [];
  layers.props.forEach((_, prop) => {
    layers.hands.forEach((__, hand) => parts.push({ prop, hand, period: 0, offset: 0 }));
  });
  return parts;
}

/**
 * Bounds of the vertices of a character and its props around its position, over all of its clips.
 * @param {Object} engine
 * @param {import('./kind').Kind} kind
 * @returns {import('./bounds').Bounds}
 * @throws {UserError}
 */
function measureReach(engine, kind) {
  const cast = allParts(kind);
  const scene = new Scene({ engine });
  const crowd = new Crowd(scene, kind, cast.length, cast);
  const lowest = [Infinity, Infinity, Infinity];
  const highest = [-Infinity, -Infinity, -Infinity];
  const include = (mesh, matrices) => {
    const points = new Float32Array(mesh.positions.length);
    skinVertices(mesh, matrices, points);
    points.forEach((value, i) => {
      lowest[i % 3] = Math.min(lowest[i % 3], value);
      highest[i % 3] = Math.max(highest[i % 3], value);
    });
  };
  const measure = () => {
    scene.update();
    cast.forEach((part, i) => {
      include(kind.mesh, crowd.matrices[i]);
      if (part !== null) {
        include(kind.layers.props[part.prop].meshes[part.hand], crowd.props.worldMatrix(i));
      }
    });
  };
  kind.clips.forEach((clip, index) => {
    for (let pose = 0; pose < kMeasuredPoses; ++pose) {
      for (const wave of kind.layers ? kMeasuredWaves : [0]) {
        const moment = pose / kMeasuredPoses;
        cast.forEach((part, i) => {
          kind.clips.forEach((other, k) => crowd.play(i, k, moment, k === index ? 1 : 0));
          if (part !== null) {
            crowd.wave(i, moment, wave);
          }
        });
        measure();
      }
    }
  });
  if (kind.clips.length === 0) {
    measure();
  }
  scene.dispose();
  const reach = boundsOf([...lowest, ...highest]);
  if (!Number.isFinite(Math.fround(kRoom * reach.radius))) {
    const trouble = `model '${kind.name}' reaches further than a float can tell`;
    throw new UserError(`${trouble}: scale it down, and export it again.`);
  }
  return reach;
}

/**
 * @typedef {Object} Timings
 * @property {Object<string, Float64Array>} stages milliseconds of every frame
 * @property {Float64Array} whole their sums
 */

/** Owns a crowd with its plan, culling and cameras. */
class Stage {
  /**
   * @param {Object} engine of the native module
   * @param {import('./kind').Kind} kind
   * @param {number} count
   * @param {number} seed
   */
  constructor(engine, kind, count, seed) {
    this.kind = kind;
    this.count = count;
    this.seed = seed;
    /** Bounds of a character: a sphere, and the ground below it. */
    this.reach = measureReach(engine, kind);
    /** The prop of each character. */
    this.cast = kind.layers ? dealProps(kind.layers.props.length, count, seed) : [];
    this.scene = new Scene({ engine });
    this.crowd = new Crowd(this.scene, kind, count, this.cast);
    this.plan = this.createPlan();
    this.writePlaces();
    this.bounds = this.measureBounds();
    this.culling = new CrowdCulling(
      this.crowd,
      { middle: this.reach.middle, radius: this.reach.radius * kReachSlack },
      createPerspectiveCamera(this.bounds),
      createOverviewCamera(this.bounds)
    );
  }

  /** Creates a plan in its initial state; all are the same. */
  createPlan() {
    const { clips } = this.kind;
    return this.kind.layers
      ? new LapPlan(clips, this.count, this.seed, this.cast)
      : new PlacePlan(clips, this.count, this.reach.radius, this.seed);
  }

  /** Places the characters by the plan. */
  writePlaces() {
    this.plan.writePlaces(this.crowd);
    this.scene.update();
  }

  /** Bounds of the crowd, including the reach of characters at its edges. */
  measureBounds() {
    const points = [];
    const { middle, radius } = this.reach;
    for (let i = 0; i < this.count; ++i) {
      const matrix = this.crowd.characters[i].worldMatrix;
      for (const side of [-1, 1]) {
        points.push(
          matrix[12] + middle[0] + side * radius,
          matrix[13] + middle[1] + (side * radius) / 2,
          matrix[14] + middle[2] + side * radius
        );
      }
    }
    return Object.assign(boundsOf(points), { floor: this.reach.floor });
  }

  /**
   * One frame.
   * @param {Object<string, number>} milliseconds of each stage, written
   * @param {number} [seconds] of scene time since the last one
   */
  frame(milliseconds, seconds = kFrameSeconds) {
    const { scene, crowd, plan, culling } = this;
    const start = performance.now();
    plan.advance(seconds);
    plan.writeClips(crowd);
    plan.writePlaces(crowd);
    const written = performance.now();
    scene.update(seconds);
    const updated = performance.now();
    culling.cullPerspective();
    const culled = performance.now();
    culling.cullOverview();
    const end = performance.now();
    milliseconds.script = written - start;
    milliseconds.animate = scene.stats.animate;
    milliseconds.transform = scene.stats.transform;
    milliseconds.skin = scene.stats.skin;
    milliseconds.perspective = culled - updated;
    milliseconds.overview = end - culled;
  }

  /**
   * Runs frames.
   * @param {number} frames
   * @param {function(number)} onFrame receives the number of completed frames, outside the measured time
   * @returns {Timings}
   */
  run(frames, onFrame) {
    const timings = { stages: {}, whole: new Float64Array(frames) };
    for (const name of stages) {
      timings.stages[name] = new Float64Array(frames);
    }
    const milliseconds = {};
    for (let i = 0; i < frames; ++i) {
      this.frame(milliseconds);
      for (const name of stages) {
        timings.stages[name][i] = milliseconds[name];
        timings.whole[i] += milliseconds[name];
      }
      onFrame(i + 1);
    }
    return timings;
  }
}

module.exports = { Stage, kFrameSeconds, stages };
