'use strict';
// What it shows: what a camera sees of many nodes, nearest first. Those in its view are yellow.
//
// The camera turns. Look through it, or at it from outside, where lines are the edges of its view.
const { Camera } = require('../../scene');

/** Metres: radius of the field of nodes, and their heights. */
const kField = 18;
const kHeight = 3;

/** Half of the width of a node, and the radius of the sphere around it. */
const kHalf = 0.16;
const kSphere = 0.28;

/** Radians per second of the camera. */
const kTurn = 0.35;

const controls = [
  { name: 'count', title: 'Nodes', min: 10, max: 5000, step: 10, value: 1500 },
  { name: 'angle', title: 'View angle', min: 15, max: 110, step: 1, value: 50, unit: '°' },
];

/** A fraction from 0 to 1 for each whole number, as if by chance. */
function chance(i) {
  return (i * 0.7548776662 + 0.31) % 1;
}

function create({ scene, settings }) {
  const aspect = 1.6;
  const [near, far] = [0.5, 14];
  const camera = scene.addCamera(new Camera({ fovDegrees: settings.angle, aspect, near, far }));
  const nodes = [];
  let turned = 0;
  const pose = { eye: [0, 1.5, 0], target: [0, 1.5, 1], fov: 0, aspect, near, far };

  function resize() {
    while (nodes.length > settings.count) {
      nodes.pop().dispose();
    }
    while (nodes.length < settings.count) {
      const i = nodes.length;
      // Evenly over the disc.
      const angle = 2 * Math.PI * ((i * 0.6180339887) % 1);
      const away = 1 + (kField - 1) * Math.sqrt(chance(i));
      const height = kHalf + kHeight * chance(7 * i);
      const position = [away * Math.cos(angle), height, away * Math.sin(angle)];
      const node = scene.node({ position });
      node.setEuler(3 * chance(i), 5 * chance(3 * i), 0);
      node.setSphere(0, 0, 0, kSphere);
      nodes.push(node);
    }
  }

  return {
    update(seconds) {
      if (settings.count !== nodes.length) {
        resize();
      }
      turned += kTurn * seconds;
      pose.target = [Math.sin(turned), 1.5, Math.cos(turned)];
      pose.fov = (settings.angle * Math.PI) / 180;
      camera.setPerspective({ fovDegrees: settings.angle, aspect, near, far });
      camera.setPosition(...pose.eye);
      camera.lookAt(...pose.target);
      scene.update(seconds);
    },
    characters: [],
    /** Nodes that are drawn as boxes, and those of them that the camera sees. */
    boxes: () => ({ half: kHalf, nodes, seen: new Set(camera.visible) }),
    pose,
    radius: () => kField * 0.8,
    text: () => `${camera.visible.count} of ${nodes.length} nodes seen`,
  };
}

module.exports = { controls, create, takesModels: false };
