'use strict';
// A scene out of nothing: rings of jointed figures that dance around a tree. Always the same.
const { setAxisAngle, multiply } = require('./quaternion');

const kRingGap = 2.3;
const kFirstRing = 5;
/** Distance between figures of a ring, along it. */
const kFigureGap = 1.75;
const kBeatSeconds = 1.1;

const kBranchLevels = 5;
const kBranchesEach = 3;

const X = [1, 0, 0];
const Y = [0, 1, 0];
const Z = [0, 0, 1];
const none = { axis: X, rest: 0, swing: 0, phase: 0, tempo: 1 };

/**
 * A repeatable source of numbers from 0 to below 1 (a 32-bit linear congruence, upper bits).
 * @param {number} seed
 * @returns {function(): number}
 */
function createRandom(seed) {
  let state = seed >>> 0;
  return () => {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    return (state >>> 8) / 0x1000000;
  };
}

/** One arm: shoulder to hand, and five fingers of two joints. `side` is 1 for left. */
function armJoints(side) {
  const name = (part) => `${part}${side}`;
  const joints = [
    [name('shoulder'), 'chest', [0.07 * side, 0.13, 0], { axis: Z, swing: 0.1 * side }],
    [
      name('upperArm'),
      name('shoulder'),
      [0.13 * side, 0, 0],
      { axis: Z, rest: 0.25 * side, swing: 0.75 * side },
    ],
    [
      name('foreArm'),
      name('upperArm'),
      [0.29 * side, 0, 0],
      { axis: Z, rest: 0.55 * side, swing: 0.5 * side, phase: 0.6 },
    ],
    [
      name('hand'),
      name('foreArm'),
      [0.26 * side, 0, 0],
      { axis: Z, swing: 0.35 * side, phase: 1.2 },
    ],
  ];
  for (let finger = 0; finger < 5; ++finger) {
    const spread = (finger - 2) * 0.022;
    const bend = { axis: Z, rest: -0.2 * side, swing: 0.3 * side, phase: finger * 0.4 };
    joints.push([name(`finger${finger}`), name('hand'), [0.09 * side, 0, spread], bend]);
    joints.push([name(`tip${finger}`), name(`finger${finger}`), [0.05 * side, 0, 0], bend]);
  }
  return joints;
}

/** One leg: thigh to toes. The two sides step in turn. */
function legJoints(side) {
  const name = (part) => `${part}${side}`;
  const phase = side > 0 ? 0 : Math.PI;
  return [
    [name('thigh'), 'hips', [0.1 * side, -0.04, 0], { axis: X, rest: -0.3, swing: 0.4, phase }],
    [
      name('shin'),
      name('thigh'),
      [0, -0.44, 0],
      { axis: X, rest: 0.45, swing: 0.4, phase: phase + 1 },
    ],
    [name('foot'), name('shin'), [0, -0.43, 0], { axis: X, swing: 0.2, phase }],
    [name('toes'), name('foot'), [0, -0.05, 0.14], { axis: X, swing: 0.15, phase }],
    [name('toeTip'), name('toes'), [0, 0, 0.06], none],
  ];
}

/** Name, parent, position in metres, motion: of a figure's joints, parents first. */
const figureJoints = [
  ['hips', null, [0, 0.96, 0], { axis: Y, swing: 0.3 }],
  ['belly', 'hips', [0, 0.12, 0], { axis: Z, swing: 0.12 }],
  ['spine', 'belly', [0, 0.13, 0], { axis: Z, swing: 0.12, phase: 0.3 }],
  ['chest', 'spine', [0, 0.14, 0], { axis: Y, swing: 0.25, phase: Math.PI }],
  ['neck', 'chest', [0, 0.2, 0], { axis: Z, swing: 0.1 }],
  ['head', 'neck', [0, 0.11, 0], { axis: X, swing: 0.2, tempo: 2 }],
  ['crown', 'head', [0, 0.19, 0], none],
  ...armJoints(1),
  ...armJoints(-1),
  ...legJoints(1),
  ...legJoints(-1),
];

/** Collects nodes, and of those that move, how. */
class SceneBuilder {
  constructor() {
    this.nodes = [];
    this.moving = [];
  }

  /** Adds a node and returns its index. */
  add(parent, position, hue, motion = none, scale = 1) {
    const move = Object.assign({}, none, motion);
    const rotation = setAxisAngle(move.axis, move.rest, [0, 0, 0, 1]);
    const scales = [scale, scale, scale];
    const index = this.nodes.push({ parent, position, rotation, scale: scales, hue }) - 1;
    if (move.swing !== 0) {
      this.moving.push(Object.assign({ index, rotation }, move));
    }
    return index;
  }

  /** Adds a node that keeps turning about the vertical. */
  addTurning(parent, position, hue, secondsPerTurn) {
    const index = this.add(parent, position, hue);
    this.moving.push(
      Object.assign({ index, rotation: [0, 0, 0, 1] }, none, { axis: Y, turn: secondsPerTurn })
    );
    return index;
  }
}

/** A figure, turned to face the middle. */
function addFigure(builder, ring, angle, radius, hue, random) {
  const at = [radius * Math.sin(angle), 0, radius * Math.cos(angle)];
  const facing = { axis: Y, rest: angle + Math.PI };
  const phase = random() * 0.9;
  const figure = builder.add(ring, at, hue, facing, 0.85 + 0.3 * random());
  const indices = new Map();
  for (const [name, parent, position, motion] of figureJoints) {
    const shifted = Object.assign({}, motion, { phase: (motion.phase || 0) + phase });
    const above = parent === null ? figure : indices.get(parent);
    indices.set(name, builder.add(above, position, hue, shifted));
  }
}

/** Rings of figures, alternately turning one way and the other. */
function addDance(builder, stage, figures, random) {
  let left = figures;
  for (let ring = 0; left > 0; ++ring) {
    const radius = kFirstRing + kRingGap * ring;
    const places = Math.min(left, Math.floor((2 * Math.PI * radius) / kFigureGap));
    const hue = (20 + 292 * ring) % 360;
    const turning = builder.addTurning(
      stage,
      [0, 0, 0],
      hue,
      (ring % 2 ? -1 : 1) * (24 + 6 * ring)
    );
    for (let i = 0; i < places; ++i) {
      addFigure(builder, turning, (2 * Math.PI * i) / places, radius, hue, random);
    }
    left -= places;
  }
}

/** A branch, in two pieces, and the branches that grow from its end. */
function addBranch(builder, parent, position, level, random) {
  const length = 1.75 * Math.pow(0.75, level);
  const sway = { swing: 0.03 + 0.015 * level, phase: random() * 6, tempo: 0.5 };
  const hue = 62 + 13 * level;
  const lean = level === 0 ? 0 : 0.38 + 0.3 * random();
  const base = builder.add(parent, position, hue, Object.assign({ axis: Z, rest: lean }, sway));
  const bend = Object.assign({ axis: X, rest: 0.2 * (random() - 0.5) }, sway);
  const middle = builder.add(base, [0, length / 2, 0], hue, bend);
  const end = builder.add(middle, [0, length / 2, 0], hue);
  if (level < kBranchLevels) {
    for (let i = 0; i < kBranchesEach; ++i) {
      const around = (2 * Math.PI * (i + 0.5 * random())) / kBranchesEach + level;
      const fork = builder.add(end, [0, 0, 0], hue, { axis: Y, rest: around });
      addBranch(builder, fork, [0, 0, 0], level + 1, random);
    }
  }
}

/**
 * The dance.
 * @param {number} figures how many take part
 * @returns {import('./engine-scene').Scene}
 */
function createProceduralScene(figures) {
  const random = createRandom(20201);
  const builder = new SceneBuilder();
  const stage = builder.add(-1, [0, 0, 0], 62);
  addBranch(builder, stage, [0, 0, 0], 0, random);
  addDance(builder, stage, figures, random);

  const { nodes, moving } = builder;
  const turn = [0, 0, 0, 1];
  return {
    name: `dance of ${figures} figures around a tree`,
    motion: 'procedural',
    nodes,
    animated: moving.map(({ index }) => index),
    pose(seconds, target) {
      const beat = (2 * Math.PI * seconds) / kBeatSeconds;
      for (const { index, rotation, axis, swing, phase, tempo, turn: turnSeconds } of moving) {
        const angle = turnSeconds
          ? (2 * Math.PI * seconds) / turnSeconds
          : swing * Math.sin(beat * tempo + phase);
        target.setRotation(index, multiply(rotation, setAxisAngle(axis, angle, turn), turn));
      }
    },
  };
}

module.exports = { createProceduralScene };
