'use strict';
// The culled scene: spheres scattered in a cube, on entities of random rotation and scale, and cameras that see about
// half of them. Contenders must agree on visible objects and their depths.
const { createRandom } = require('./random');

/** Half the length of the cube's edges. */
const reach = 100;

/** Places of the root that scenes move between, and cameras that look at them in turn. */
const placeCount = 3;

/** Tolerance of distances: single against double precision, for coordinates up to some hundreds. */
const tolerance = 2e-3;

/**
 * @typedef {{count: number, transforms: Float32Array, spheres: Float32Array,
 *   roots: Array<number[]>}} CullingScene `transforms` holds quaternion, position, scale of each
 *   object's entity, `spheres` centre and radius in its space, `roots` positions of the parent of all
 */

/**
 * @typedef {{eye: number[], target: number[], up: number[], fov: number, aspect: number,
 *   near: number, far: number}} Camera
 */

/**
 * @param {number} count of objects
 * @returns {CullingScene}
 */
function createCullingScene(count) {
  const random = createRandom(count);
  const transforms = new Float32Array(10 * count);
  const spheres = new Float32Array(4 * count);
  const between = (low, high) => low + (high - low) * random();
  for (let i = 0; i < count; ++i) {
    const q = [between(-1, 1), between(-1, 1), between(-1, 1), between(-1, 1)];
    const length = Math.hypot(q[0], q[1], q[2], q[3]);
    const position = [0, 1, 2].map(() => between(-reach, reach));
    const scale = [0, 1, 2].map(() => between(0.5, 2));
    transforms.set(q.map((c) => c / length).concat(position, scale), 10 * i);
    spheres.set([between(-1, 1), between(-1, 1), between(-1, 1), between(0.2, 1)], 4 * i);
  }
  const roots = Array.from({ length: placeCount }, (_, k) => [k, -k, 0.5 * k]);
  return { count, transforms, spheres, roots };
}

/** @type {Camera[]} */
const cameras = Array.from({ length: placeCount }, (_, k) => ({
  eye: [2 * k, 3 * k, 140],
  target: [0, 0, 0],
  up: [0, 1, 0],
  fov: 0.9,
  aspect: 1,
  near: 1,
  far: 300,
}));

/** Difference, product, length and so on of vectors, in doubles. */
const subtract = (a, b) => a.map((value, i) => value - b[i]);
const dot = (a, b) => a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
const normalize = (a) => a.map((value) => value / Math.hypot(a[0], a[1], a[2]));
const cross = (a, b) => [
  a[1] * b[2] - a[2] * b[1],
  a[2] * b[0] - a[0] * b[2],
  a[0] * b[1] - a[1] * b[0],
];

/**
 * Distance of a sphere inside a camera's frustum, in doubles: below 0 it is outside.
 * @param {Camera} camera
 * @param {number[]} center in world space
 * @param {number} radius in world space
 * @returns {{margin: number, depth: number}}
 */
function measureSphere(camera, center, radius) {
  const { eye, target, up, fov, aspect, near, far } = camera;
  const forward = normalize(subtract(target, eye));
  const right = normalize(cross(forward, up));
  const offset = subtract(center, eye);
  const depth = dot(offset, forward);
  const across = Math.abs(dot(offset, right));
  const above = Math.abs(dot(offset, cross(right, forward)));
  // Side planes go through the eye; their distance is that of a line in the plane of the two axes.
  const slope = Math.tan(fov / 2);
  const vertical = (depth * slope - above) / Math.hypot(1, slope);
  const horizontal = (depth * slope * aspect - across) / Math.hypot(1, slope * aspect);
  const inside = Math.min(depth - near, far - depth, vertical, horizontal);
  return { margin: inside + radius, depth };
}

/**
 * World sphere of an object under a world matrix, in doubles.
 * @param {CullingScene} scene
 * @param {Float32Array} matrices 16 numbers per object, column-major
 * @param {number} index
 * @returns {{center: number[], radius: number}}
 */
function worldSphere(scene, matrices, index) {
  const m = matrices.subarray(16 * index, 16 * index + 16);
  const [x, y, z, radius] = scene.spheres.subarray(4 * index, 4 * index + 4);
  const center = [0, 1, 2].map((row) => m[row] * x + m[4 + row] * y + m[8 + row] * z + m[12 + row]);
  const scales = [0, 4, 8].map((at) => Math.hypot(m[at], m[at + 1], m[at + 2]));
  return { center, radius: radius * Math.max(...scales) };
}

/**
 * Throws unless a contender's result is correct: every object whose sphere is inside and none that is outside, each
 * once, by ascending depth. Spheres that touch the border within rounding may go either way.
 * @param {string} what label for the message
 * @param {CullingScene} scene
 * @param {Float32Array} matrices
 * @param {Camera} camera
 * @param {Int32Array} tested indices of the tested objects
 * @param {{objects: ArrayLike<number>, depths: ArrayLike<number>}} view
 * @returns {number} number of visible objects
 */
function assertView(what, scene, matrices, camera, tested, view) {
  const { objects, depths } = view;
  const depthOf = new Map();
  for (let i = 0; i < objects.length; ++i) {
    if (depthOf.has(objects[i])) {
      throw new Error(`${what}: object ${objects[i]} is in the result twice`);
    }
    if (i > 0 && !(depths[i] >= depths[i - 1])) {
      throw new Error(`${what}: depth ${depths[i]} follows ${depths[i - 1]}`);
    }
    depthOf.set(objects[i], depths[i]);
  }
  for (const index of tested) {
    const { center, radius } = worldSphere(scene, matrices, index);
    const { margin, depth } = measureSphere(camera, center, radius);
    const seen = depthOf.get(index);
    if (seen === undefined ? margin > tolerance : margin < -tolerance) {
      const state = seen === undefined ? 'is not seen' : 'is seen';
      throw new Error(`${what}: object ${index} ${state}, and is ${margin} inside`);
    }
    // Written so that NaN fails.
    if (seen !== undefined && !(Math.abs(seen - depth) <= tolerance)) {
      throw new Error(`${what}: object ${index} has a depth of ${seen}, expected ${depth}`);
    }
    depthOf.delete(index);
  }
  if (depthOf.size !== 0) {
    throw new Error(`${what}: object ${Array.from(depthOf.keys())[0]} is not tested`);
  }
  return objects.length;
}

module.exports = { assertView, cameras, createCullingScene, measureSphere, worldSphere };
