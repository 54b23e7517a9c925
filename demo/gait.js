'use strict';
// Authored walk and run: positions of feet, hips, arms and spine over a cycle, from which the rotations of bones are
// computed as curves.
const { createCycleClip } = require('./cycle-clip');
const { compose, inverse, rotate, turnX, turnY, turnZ } = require('./quaternion');

/**
 * A gait. A cycle is two steps; in it the left foot comes down at 0 and the right one at 0.5. Lengths
 * are in metres, angles in radians, forward is +z, times are fractions of the cycle.
 * @typedef {Object} Gait
 * @property {string} name
 * @property {number} frames of a cycle
 * @property {number} stance fraction of the cycle for which a foot is on the ground
 * @property {number} ahead where the ankle comes down, from the hips
 * @property {number} behind where it is when the foot leaves the ground
 * @property {number} lift of the ankle on its way back to the front
 * @property {number} strike angle by which the toes point up when the heel comes down
 * @property {number} push angle by which the heel is up when the foot leaves the ground
 * @property {number} hipHeight mean height of the hips over the cycle
 * @property {number} bob up and down of the hips, twice a cycle; highest at `top`
 * @property {number} top
 * @property {number} sway of the hips over the standing foot
 * @property {number} twist of the hips with the legs, and of the chest against it
 * @property {number} lean of the trunk
 * @property {number} armSwing to the front and back
 * @property {number} elbow bend, and how it changes with the swing
 * @property {number} elbowSwing
 * @property {number} armSpread from the trunk
 * @property {number} grip of the fingers
 * @property {number} tailLift angle by which the hair is lifted, and its swing
 * @property {number} tailSwing
 */

/** @type {Gait} */
const walk = {
  name: 'walk',
  frames: 32,
  stance: 0.6,
  ahead: 0.27,
  behind: -0.4,
  lift: 0.05,
  strike: 0.32,
  push: 0.95,
  hipHeight: 0.925,
  bob: 0.016,
  top: 0.3,
  sway: 0.022,
  twist: 0.12,
  lean: 0.04,
  armSwing: 0.5,
  elbow: 0.42,
  elbowSwing: 0.2,
  armSpread: 0.16,
  grip: 0.35,
  tailLift: 0.1,
  tailSwing: 0.12,
};

/** @type {Gait} */
const run = {
  name: 'run',
  frames: 21,
  stance: 0.34,
  ahead: 0.26,
  behind: -0.46,
  lift: 0.3,
  strike: 0.08,
  push: 1.1,
  hipHeight: 0.9,
  bob: 0.04,
  top: 0.42,
  sway: 0.012,
  twist: 0.22,
  lean: 0.24,
  armSwing: 0.85,
  elbow: 1.55,
  elbowSwing: 0.3,
  armSpread: 0.2,
  grip: 1.15,
  tailLift: 0.75,
  tailSwing: 0.25,
};

/** A foot: lengths of the leg, and the heel and the ball of the foot from the ankle: up, forward. */
const kThigh = 0.43;
const kShin = 0.41;
const kAnkleHeight = 0.08;
const kHeel = { up: -0.08, forward: -0.06 };
const kBall = { up: -0.05, forward: 0.13 };

/** From 0 to 1 without a jump in speed at either end. */
function smooth(t) {
  const s = Math.min(1, Math.max(0, t));
  return s * s * (3 - 2 * s);
}

/** Smooth interpolation of values at times of the cycle, which ascend from 0 to 1. */
function between(moment, points) {
  const next = points.findIndex(([at], i) => i > 0 && moment <= at);
  const [[from, a], [to, b]] = [points[next - 1], points[next]];
  return a + (b - a) * smooth((moment - from) / (to - from));
}

/** Metres per cycle: a foot on the ground does not slide. */
function strideOf({ ahead, behind, stance }) {
  return (ahead - behind) / stance;
}

/**
 * The ankle and the foot at a time since the foot came down.
 * @returns {{up: number, forward: number, pitch: number, toes: number}} the ankle's place; how far the
 *     heel is up, in radians; how far the toes bend up
 */
function footAt(gait, moment) {
  const { stance, ahead, behind, strike, push, lift } = gait;
  const swing = Math.max(0, (moment - stance) / (1 - stance));
  const pitch = between(moment, [
    [0, -strike],
    [0.2 * stance, 0],
    [0.45 * stance, 0],
    [stance, push],
    [stance + 0.25 * (1 - stance), 1.05 * push],
    [stance + 0.8 * (1 - stance), -0.7 * strike],
    [1, -strike],
  ]);
  // Backwards with the ground while the foot is on it; then forwards, leaving and reaching the ground at its speed.
  const speed = strideOf(gait) * (1 - stance);
  const [s2, s3] = [swing * swing, swing * swing * swing];
  const flat =
    swing === 0
      ? ahead - strideOf(gait) * moment
      : behind * (2 * s3 - 3 * s2 + 1) -
        speed * (s3 - 2 * s2 + swing) +
        ahead * (3 * s2 - 2 * s3) -
        speed * (s3 - s2);
  // The foot rolls over its heel with the toes up, over its ball with the heel up.
  const pivot = pitch < 0 ? kHeel : kBall;
  const [sin, cos] = [Math.sin(pitch), Math.cos(pitch)];
  return {
    forward: flat + pivot.forward - pivot.forward * cos - pivot.up * sin,
    up:
      kAnkleHeight +
      pivot.up +
      pivot.forward * sin -
      pivot.up * cos +
      lift * Math.sin(Math.PI * swing) ** 2,
    pitch,
    toes: Math.max(0, pitch) * (1 - smooth(2 * swing)),
  };
}

/** Rotations of a leg's bones that place the ankle, with the knee to the front. */
function legPose(pose, gait, moment, side, hips) {
  const suffix = side > 0 ? 'Left' : 'Right';
  const foot = footAt(gait, moment);
  const joint = rotate(hips.rotation, [0.095 * side, -0.04, 0]);
  const down = hips.position[1] + joint[1] - foot.up;
  // Feet are closer together than the hip joints.
  const across = 0.075 * side - (hips.position[0] + joint[0]);
  const forward = foot.forward - (hips.position[2] + joint[2]);
  const reach = Math.min(Math.hypot(down, across, forward), 0.9995 * (kThigh + kShin));
  const lineCosine = (kThigh ** 2 + reach ** 2 - kShin ** 2) / (2 * kThigh * reach);
  const kneeCosine = (kThigh ** 2 + kShin ** 2 - reach ** 2) / (2 * kThigh * kShin);
  const swing = Math.atan2(forward, Math.hypot(down, across)) + Math.acos(lineCosine);
  const knee = Math.PI - Math.acos(Math.max(-1, Math.min(1, kneeCosine)));
  const thigh = compose(turnZ(Math.atan2(across, down)), turnX(-swing));
  pose[`thigh${suffix}`] = compose(inverse(hips.rotation), thigh);
  pose[`shin${suffix}`] = turnX(knee);
  pose[`foot${suffix}`] = compose(turnX(-knee), inverse(thigh), turnX(foot.pitch));
  pose[`toes${suffix}`] = turnX(-foot.toes);
}

/** Rotations of an arm's bones; `forward` is from -1 to 1. */
function armPose(pose, gait, forward, side) {
  const suffix = side > 0 ? 'Left' : 'Right';
  const { armSwing, armSpread, elbow, elbowSwing, grip } = gait;
  pose[`shoulder${suffix}`] = turnY(-0.12 * forward * side);
  pose[`upperArm${suffix}`] = compose(
    turnX(-armSwing * (forward - 0.15)),
    turnZ((armSpread - Math.PI / 2) * side)
  );
  pose[`upperArmTwist${suffix}`] = turnX(0.1 * forward);
  pose[`foreArm${suffix}`] = turnY(-(elbow + elbowSwing * forward) * side);
  pose[`foreArmTwist${suffix}`] = turnX(-0.3 - 0.1 * forward);
  pose[`hand${suffix}`] = compose(turnX(-0.5), turnZ(-0.15 * side));
  for (const finger of ['index', 'middle', 'ring', 'little']) {
    pose[`${finger}${suffix}`] = turnZ(-grip * side);
    pose[`${finger}Tip${suffix}`] = turnZ(-1.2 * grip * side);
  }
  pose[`thumb${suffix}`] = turnY(-(0.7 - 0.3 * grip) * side);
  pose[`thumbTip${suffix}`] = turnY(0.3 * grip * side);
}

/**
 * The pose of a gait at a time of its cycle.
 * @returns {{position: number[], rotations: Object<string, number[]>}} position of the hips, and the
 *     rotation of each bone in its parent's space
 */
function poseAt(gait, moment) {
  const angle = 2 * Math.PI * moment;
  const legs = Math.cos(angle); // 1 with the left leg in front
  const bounce = Math.cos(2 * (angle - 2 * Math.PI * gait.top));
  const overLeft = Math.cos(angle - Math.PI * gait.stance);
  const hips = {
    position: [gait.sway * overLeft, gait.hipHeight + gait.bob * bounce, -0.1 * gait.lean],
    rotation: compose(
      turnY(-gait.twist * legs),
      turnZ(0.05 * overLeft),
      turnX(0.3 * gait.lean + 0.02 * bounce)
    ),
  };
  const pose = { hips: hips.rotation };
  const turn = 0.6 * gait.twist * legs;
  pose.belly = compose(turnY(turn), turnZ(-0.03 * overLeft), turnX(0.3 * gait.lean));
  pose.spine = compose(turnY(turn), turnX(0.3 * gait.lean - 0.02 * bounce));
  pose.chest = compose(turnY(turn), turnZ(-0.02 * overLeft), turnX(0.2 * gait.lean));
  pose.neck = compose(turnY(-0.4 * gait.twist * legs), turnX(-0.5 * gait.lean));
  pose.head = compose(turnY(-0.4 * gait.twist * legs), turnX(-0.45 * gait.lean + 0.03 * bounce));
  ['tail', 'tail1', 'tail2', 'tail3'].forEach((name, i) => {
    // Each segment lags a little behind the one above it.
    const late = 2 * (angle - 2 * Math.PI * gait.top) - 0.9 * (i + 1);
    const sideways = gait.tailSwing * 0.6 * Math.cos(angle - 0.7 * (i + 1));
    const flying = gait.tailLift * [1, 0.25, 0.1, 0.05][i] + gait.tailSwing * Math.cos(late);
    pose[name] = compose(turnX(flying), turnZ(sideways));
  });
  legPose(pose, gait, moment, 1, hips);
  legPose(pose, gait, (moment + 0.5) % 1, -1, hips);
  armPose(pose, gait, -legs, 1);
  armPose(pose, gait, legs, -1);
  return { position: hips.position, rotations: pose };
}

/**
 * The clip of a gait.
 * @param {Gait} gait
 * @param {Array<{name: string}>} nodes of the figure; all but the first are bones
 * @returns {import('./kind').KindClip}
 */
function createGaitClip(gait, nodes) {
  const { name, frames } = gait;
  const poses = Array.from({ length: frames }, (none, frame) => poseAt(gait, frame / frames));
  const bones = nodes.map((node, index) => index).slice(1);
  return createCycleClip(name, poses, bones, nodes, strideOf(gait));
}

/**
 * Walk and run of a figure.
 * @param {Array<{name: string}>} nodes of the figure
 * @returns {import('./kind').KindClip[]}
 */
function createGaits(nodes) {
  return [walk, run].map((gait) => createGaitClip(gait, nodes));
}

module.exports = { createGaits };
