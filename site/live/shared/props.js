'use strict';
// Things that leave a hand: placed in the world where they were, they fall to the floor.
const { quaternionTowards } = require('../../../lib/scene/math');

/** Metres per second, each second. */
const kGravity = 9.81;

/** Height of things that are on the floor. */
const kOnFloor = 0.03;

/**
 * Places a node below the root where it was.
 * @param {import('../../../lib/scene/node').Node} node
 * @param {Float32Array} world its world matrix before
 */
function place(node, world) {
  const quaternion = [0, 0, 0, 1];
  // Its z axis, and its y axis as what is up.
  quaternionTowards(quaternion, ...world.subarray(8, 11), ...world.subarray(4, 7));
  node.setPosition(world[12], world[13], world[14]);
  node.setQuaternion(...quaternion);
  node.setScale(1);
}

/**
 * Lets something fall for a while.
 * @param {{node: import('../../../lib/scene/node').Node, speed: number}} prop
 * @param {number} seconds
 */
function fall(prop, seconds) {
  const [x, y, z] = prop.node.position;
  prop.speed += kGravity * seconds;
  const height = Math.max(kOnFloor, y - prop.speed * seconds);
  prop.node.setPosition(x, height, z);
}

module.exports = { fall, place };
