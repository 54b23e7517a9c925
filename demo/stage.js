'use strict';
// A crowd with its plan, its culling and its cameras: set up, and run frame by frame against the clock.
const { performance } = require('perf_hooks');
const { boundsOf } = require('./bounds');
const { createOverviewCamera, createPerspectiveCamera } = require('./cameras');
const { Crowd } = require('./crowd');
const { CrowdCulling } = require('./culling');
const { skinVertices } = require('./mesh');
const { LapPlan, PlacePlan } = require('./plan');
const { UserError } = require('./user-error');

/** Seconds of scene time between two frames. */
const kFrameSeconds = 1 / 60;

/** Poses of each clip from which the reach of a character is measured, and what is added to it. */
const kMeasuredPoses = 12;
const kReachSlack = 1.08;

/** Room for a crowd and its cameras, in the reach of a character; squares of it must be numbers. */
const kRoom = 1e21;

/** What a frame consists of, in this order. */
const stages = ['script', 'animate', 'transform', 'skin', 'perspective', 'overview'];

/**
 * How far the vertices of a character reach from where it stands, over all of its clips.
 * @param {Object} engine
 * @param {import('./crowd').Kind} kind
 * @returns {import('./bounds').Bounds}
 * @throws {UserError}
 */
function measureReach(engine, kind) {
  const crowd = new Crowd(engine, kind, 1);
  const points = new Float32Array(kind.mesh.positions.length);
  const lowest = [Infinity, Infinity, Infinity];
  const highest = [-Infinity, -Infinity, -Infinity];
  const measure = () => {
    crowd.refresh([crowd.placeHandle(0)]);
    crowd.skin();
    skinVertices(kind.mesh, crowd.matrices[0], points);
    points.forEach((value, i) => {
      lowest[i % 3] = Math.min(lowest[i % 3], value);
      highest[i % 3] = Math.max(highest[i % 3], value);
    });
  };
  kind.clips.forEach((clip, index) => {
    for (let pose = 0; pose < kMeasuredPoses; ++pose) {
      kind.clips.forEach((other, k) => crowd.play(0, k, 0, k === index ? 1 : 0));
      crowd.play(0, index, (clip.frameCount * pose) / kMeasuredPoses, 1);
      crowd.animate();
      measure();
    }
  });
  if (kind.clips.length === 0) {
    measure();
  }
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

/** Owns a crowd and all that goes with it. */
class Stage {
  /**
   * @param {Object} engine of the native module
   * @param {import('./crowd').Kind} kind
   * @param {number} count
   * @param {number} seed
   */
  constructor(engine, kind, count, seed) {
    this.kind = kind;
    this.count = count;
    this.seed = seed;
    /** Around a character: a ball, and the ground below it. */
    this.reach = measureReach(engine, kind);
    this.crowd = new Crowd(engine, kind, count);
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

  /** A plan at its beginning; each is the same. */
  createPlan() {
    const { clips } = this.kind;
    return clips.length === 2 && clips.every(({ stride }) => stride > 0)
      ? new LapPlan(clips, this.count, this.seed)
      : new PlacePlan(clips, this.count, this.reach.radius, this.seed);
  }

  /** Puts the characters where the plan has them. */
  writePlaces() {
    this.plan.writePlaces(this.crowd);
    this.crowd.engine.refreshWorldTransform();
  }

  /** Where the crowd stands, with room for the characters at its edges. */
  measureBounds() {
    const points = [];
    const { middle, radius } = this.reach;
    for (let i = 0; i < this.count; ++i) {
      const matrix = this.crowd.worldMatrix(i * this.kind.nodes.length);
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
   */
  frame(milliseconds) {
    const { crowd, plan, culling } = this;
    const start = performance.now();
    plan.advance(kFrameSeconds);
    plan.writeClips(crowd);
    const written = performance.now();
    crowd.animate();
    const animated = performance.now();
    plan.writePlaces(crowd);
    const placed = performance.now();
    crowd.engine.refreshWorldTransform();
    const transformed = performance.now();
    crowd.skin();
    const skinned = performance.now();
    culling.cullPerspective();
    const culled = performance.now();
    culling.cullOverview();
    const end = performance.now();
    milliseconds.script = written - start + (placed - animated);
    milliseconds.animate = animated - written;
    milliseconds.transform = transformed - placed;
    milliseconds.skin = skinned - transformed;
    milliseconds.perspective = culled - skinned;
    milliseconds.overview = end - culled;
  }

  /**
   * Runs frames.
   * @param {number} frames
   * @param {function(number)} onFrame is told how many frames are done, outside what is timed
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
