'use strict';
// The cameras of the demo: a perspective one at a side of the scene, which sees a part of it, and an orthographic
// overview from above.

/** Direction from which the picture is taken, in radians about the vertical axis; the perspective view crosses it. */
const kPictureYaw = 0.62;

/** Parameters of the perspective camera: vertical angle in radians, width over height, and distances in radii. */
const kFov = 0.36;
const kAspect = 2.2;
const kNear = 0.14;
const kFar = 1.6;

/** Half the width of the overview, and its height above the centre, in radii. */
const kOverviewReach = 0.48;
const kOverviewHeight = 1.5;

/**
 * @typedef {Object} PerspectiveCamera
 * @property {number[]} eye x, y, z
 * @property {number[]} target
 * @property {number[]} up
 * @property {number} fov radians from top to bottom
 * @property {number} aspect width over height
 * @property {number} near
 * @property {number} far
 */

/**
 * @typedef {Object} OrthographicCamera
 * @property {number[]} eye x, y, z
 * @property {number[]} target
 * @property {number[]} up
 * @property {number} left offsets from the axis
 * @property {number} right
 * @property {number} bottom
 * @property {number} top
 * @property {number} near
 * @property {number} far
 */

/** A point relative to the centre of bounds: radii to the right of the picture, up, and towards the viewer. */
function placeIn({ middle, radius }, right, up, towards) {
  const [sin, cos] = [Math.sin(kPictureYaw), Math.cos(kPictureYaw)];
  return [
    middle[0] + radius * (cos * right + sin * towards),
    middle[1] + radius * up,
    middle[2] + radius * (cos * towards - sin * right),
  ];
}

/**
 * A camera at the left of the picture, a little above the centre, that looks down to the right.
 * @param {import('./bounds').Bounds} bounds of the scene
 * @returns {PerspectiveCamera}
 */
function createPerspectiveCamera(bounds) {
  return {
    eye: placeIn(bounds, -0.96, 0.2, 0.3),
    target: placeIn(bounds, 0.4, -0.06, 0.06),
    up: [0, 1, 0],
    fov: kFov,
    aspect: kAspect,
    near: kNear * bounds.radius,
    far: kFar * bounds.radius,
  };
}

/**
 * A camera that looks straight down at the centre of the scene.
 * @param {import('./bounds').Bounds} bounds of the scene
 * @returns {OrthographicCamera}
 */
function createOverviewCamera(bounds) {
  const reach = kOverviewReach * bounds.radius;
  return {
    eye: placeIn(bounds, 0, kOverviewHeight, 0),
    target: bounds.middle,
    up: [0, 0, -1],
    left: -reach,
    right: reach,
    bottom: -reach,
    top: reach,
    near: 0,
    far: 2 * kOverviewHeight * bounds.radius,
  };
}

/**
 * Lets a camera of a scene see what a camera of the demo sees.
 * @param {import('../scene').Camera} camera
 * @param {PerspectiveCamera | OrthographicCamera} pose
 * @returns {import('../scene').Camera}
 */
function aim(camera, pose) {
  const { eye, target, up, fov, ...volume } = pose;
  if (fov === undefined) {
    camera.setOrthographic(volume);
  } else {
    camera.setPerspective(Object.assign(volume, { fovRadians: fov }));
  }
  camera.setPosition(eye[0], eye[1], eye[2]);
  camera.lookAt(target[0], target[1], target[2]);
  camera.setUp(up[0], up[1], up[2]);
  return camera;
}

function subtract(a, b) {
  return a.map((value, axis) => value - b[axis]);
}

function cross(a, b) {
  return [a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]];
}

function normalize(a) {
  const length = Math.hypot(a[0], a[1], a[2]);
  return a.map((value) => value / length);
}

/**
 * Corners of a perspective camera's view volume: four of the near rectangle, then four of the far one, each in order
 * from the bottom left.
 * @param {PerspectiveCamera} camera
 * @returns {Array<number[]>}
 */
function viewCorners({ eye, target, up, fov, aspect, near, far }) {
  const forward = normalize(subtract(target, eye));
  const right = normalize(cross(forward, up));
  const above = cross(right, forward);
  const slope = Math.tan(fov / 2);
  const corners = [];
  for (const distance of [near, far]) {
    for (const [x, y] of [
      [-1, -1],
      [1, -1],
      [1, 1],
      [-1, 1],
    ]) {
      const [across, upwards] = [x * distance * slope * aspect, y * distance * slope];
      corners.push(
        eye.map((e, k) => e + forward[k] * distance + right[k] * across + above[k] * upwards)
      );
    }
  }
  return corners;
}

module.exports = { aim, createOverviewCamera, createPerspectiveCamera, kPictureYaw, viewCorners };
