'use strict';
// Authored gestures of a figure: carrying, waving, and breathing.
const { createCycleClip } = require('./cycle-clip');
const { compose, turnX, turnY, turnZ } = require('./quaternion');

/** Frames of a wave to both sides, and of a breath. */
const kWaveFrames = 36;
const kBreathFrames = 90;

/** How an arm is held: radians of the upper arm to the front and from the trunk, elbow, and wrist. */
const carried = { lift: 0.3, spread: 0.2, elbow: 1.75, wrist: 0 };
const raised = { lift: 2.2, spread: 0.35, elbow: 0.6, wrist: 0.7 };

/** How far a raised arm waves to both sides. */
const kWaveSwing = 0.42;

const curled = ['index', 'middle', 'ring', 'little'];

/** Rotations of an arm's bones with a closed hand; `swing` rotates the arm about the forward axis. */
function armRotations({ lift, spread, elbow, wrist }, swing, side) {
  const pose = {};
  const set = (part, rotation) => {
    pose[`${part}${side > 0 ? 'Left' : 'Right'}`] = rotation;
  };
  set('shoulder', turnZ(0.08 * lift * side));
  set('upperArm', compose(turnZ(swing), turnX(-lift), turnZ((spread - Math.PI / 2) * side)));
  set('upperArmTwist', turnX(-0.1));
  set('foreArm', turnY(-elbow * side));
  set('foreArmTwist', turnX(0));
  set('hand', compose(turnZ(0.3 * swing), turnY(wrist * side)));
  for (const finger of curled) {
    set(finger, turnZ(-1.25 * side));
    set(`${finger}Tip`, turnZ(-1.4 * side));
  }
  set('thumb', turnY(-0.35 * side));
  set('thumbTip', turnY(0.5 * side));
  return pose;
}

/** Rotations of both arms, the trunk and the head while waving. */
function wavePose(moment) {
  const swing = kWaveSwing * Math.sin(2 * Math.PI * moment);
  const trunk = {
    spine: compose(turnZ(0.12 * swing), turnX(-0.06)),
    chest: compose(turnZ(0.2 * swing), turnX(-0.08)),
    neck: turnX(-0.1),
    head: compose(turnZ(-0.25 * swing), turnX(-0.12)),
  };
  const arms = [1, -1].map((side) => armRotations(raised, swing, side));
  return { rotations: Object.assign(trunk, ...arms) };
}

/** A breath, which starts with empty lungs. */
function breathPose(moment) {
  const air = 0.5 - 0.5 * Math.cos(2 * Math.PI * moment);
  return {
    rotations: {
      spine: turnX(-0.035 * air),
      chest: turnX(-0.075 * air),
      neck: turnX(0.08 * air),
      shoulderLeft: turnZ(0.11 * air),
      shoulderRight: turnZ(-0.11 * air),
    },
  };
}

/**
 * Gestures of a figure.
 * @param {import('./kind').KindNode[]} nodes of the figure
 * @returns {{wave: import('./kind').KindClip, breath: import('./kind').KindClip, carry: import('./kind').KindClip,
 *     hold: Array<{node: number, rotation: number[]}>, hands: import('./kind').Hand[]}}
 */
function createGestures(nodes) {
  const nodeOf = (name) => nodes.findIndex((node) => node.name === name);
  const cycle = (name, frames, poseAt) => {
    const poses = Array.from({ length: frames }, (none, frame) => poseAt(frame / frames));
    const targets = Object.keys(poses[0].rotations).map(nodeOf);
    return createCycleClip(name, poses, targets, nodes, 0);
  };
  const arms = [1, -1].map((side) => armRotations(carried, 0, side));
  return {
    wave: cycle('wave', kWaveFrames, wavePose),
    breath: cycle('breath', kBreathFrames, breathPose),
    carry: cycle('carry', 1, () => ({ rotations: Object.assign({}, ...arms) })),
    hold: [].concat(
      ...arms.map((arm) =>
        Object.keys(arm).map((name) => ({ node: nodeOf(name), rotation: arm[name] }))
      )
    ),
    hands: ['Left', 'Right'].map((suffix, i) => ({
      node: nodeOf(`hand${suffix}`),
      arm: Object.keys(arms[i]).map(nodeOf),
    })),
  };
}

module.exports = { createGestures };
