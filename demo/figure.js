'use strict';
// The figure of the crowd: a skeleton of 50 bones in a bind pose with the arms held out, and a body.
const { createKind } = require('./kind');
const { MeshBuilder } = require('./mesh');
const { createGaits } = require('./gait');
const { createGestures } = require('./gestures');
const { createProps } = require('./props');

/** Colours of the body's triangles, as indices into a palette. */
const bodyParts = Object.freeze({ shirt: 0, trousers: 1, skin: 2, hair: 3, shoes: 4 });

/** Fingers by name, with the position of their roots across the hand. */
const fingers = [
  ['thumb', 0.04],
  ['index', 0.028],
  ['middle', 0.009],
  ['ring', -0.01],
  ['little', -0.028],
];

/** Bones of an arm, shoulder to finger tips. `side` is 1 for left, which is at +x. */
function armBones(side) {
  const name = (part) => `${part}${side > 0 ? 'Left' : 'Right'}`;
  const bones = [
    [name('shoulder'), 'chest', [0.05 * side, 0.13, 0]],
    [name('upperArm'), name('shoulder'), [0.13 * side, 0, 0]],
    [name('upperArmTwist'), name('upperArm'), [0.14 * side, 0, 0]],
    [name('foreArm'), name('upperArm'), [0.28 * side, 0, 0]],
    [name('foreArmTwist'), name('foreArm'), [0.13 * side, 0, 0]],
    [name('hand'), name('foreArm'), [0.25 * side, 0, 0]],
  ];
  for (const [finger, across] of fingers) {
    const reach = finger === 'thumb' ? 0.03 : 0.085;
    bones.push([name(finger), name('hand'), [reach * side, 0, across]]);
    bones.push([name(`${finger}Tip`), name(finger), [0.04 * side, 0, 0]]);
  }
  return bones;
}

/** Bones of a leg, thigh to toes. */
function legBones(side) {
  const name = (part) => `${part}${side > 0 ? 'Left' : 'Right'}`;
  return [
    [name('thigh'), 'hips', [0.095 * side, -0.04, 0]],
    [name('shin'), name('thigh'), [0, -0.43, 0]],
    [name('foot'), name('shin'), [0, -0.41, 0]],
    [name('toes'), name('foot'), [0, -0.05, 0.13]],
  ];
}

/** Bones, parents first: name, parent, and position in the parent's space in metres. */
const figureBones = [
  ['hips', null, [0, 0.96, 0]],
  ['belly', 'hips', [0, 0.1, 0]],
  ['spine', 'belly', [0, 0.12, 0]],
  ['chest', 'spine', [0, 0.12, 0]],
  ['neck', 'chest', [0, 0.2, 0]],
  ['head', 'neck', [0, 0.09, 0.01]],
  ['tail', 'head', [0, 0.15, -0.1]],
  ['tail1', 'tail', [0, -0.02, -0.07]],
  ['tail2', 'tail1', [0, -0.08, -0.02]],
  ['tail3', 'tail2', [0, -0.08, 0]],
  ...armBones(1),
  ...armBones(-1),
  ...legBones(1),
  ...legBones(-1),
];

/** Bones as nodes below the node of the figure's position, and their rest positions. */
function createSkeleton() {
  const still = { rotation: [0, 0, 0, 1], scale: [1, 1, 1] };
  const nodes = [Object.assign({ name: 'figure', parent: -1, position: [0, 0, 0] }, still)];
  const indices = new Map();
  const places = [];
  figureBones.forEach(([name, parentName, position], bone) => {
    const parent = parentName === null ? 0 : indices.get(parentName);
    const [x, y, z] = parent === 0 ? [0, 0, 0] : places[parent - 1];
    places.push([x + position[0], y + position[1], z + position[2]]);
    indices.set(name, bone + 1);
    nodes.push(Object.assign({ name, parent, position }, still));
  });
  return { nodes, places, boneOf: (name) => indices.get(name) - 1 };
}

/** The body around a skeleton. */
class BodyBuilder {
  constructor({ places, boneOf }) {
    this.mesh = new MeshBuilder();
    this.places = places;
    this.boneOf = boneOf;
  }

  /** The position of a bone plus an offset. */
  at(name, [x, y, z] = [0, 0, 0]) {
    const place = this.places[this.boneOf(name)];
    return [place[0] + x, place[1] + y, place[2] + z];
  }

  /** A ring that follows one bone, or several in equal parts. */
  ring(center, wide, deep, ...names) {
    const follows = names.map((name) => [this.boneOf(name), 1 / names.length]);
    return { center, wide, deep, follows };
  }

  addTrunk() {
    const { shirt, trousers, skin, hair } = bodyParts;
    const across = [1, 0, 0];
    const hips = [
      this.ring(this.at('hips', [0, -0.11, 0]), 0.11, 0.09, 'hips'),
      this.ring(this.at('hips', [0, -0.03, -0.01]), 0.165, 0.12, 'hips'),
      this.ring(this.at('hips', [0, 0.07, 0]), 0.14, 0.1, 'hips', 'belly'),
    ];
    this.mesh.tube(hips, across, 8, trousers);
    const trunk = [
      this.ring(this.at('hips', [0, 0.05, 0]), 0.145, 0.105, 'hips', 'belly'),
      this.ring(this.at('spine', [0, -0.05, 0]), 0.135, 0.095, 'belly', 'spine'),
      this.ring(this.at('spine', [0, 0.08, 0]), 0.155, 0.105, 'spine', 'chest'),
      this.ring(this.at('chest', [0, 0.06, 0.005]), 0.185, 0.12, 'chest'),
      this.ring(this.at('chest', [0, 0.14, 0]), 0.18, 0.1, 'chest'),
      this.ring(this.at('neck', [0, -0.01, 0]), 0.07, 0.06, 'chest'),
    ];
    this.mesh.tube(trunk, across, 8, shirt);
    const neck = [
      this.ring(this.at('neck', [0, -0.03, 0]), 0.052, 0.052, 'chest', 'neck'),
      this.ring(this.at('head', [0, 0.02, 0]), 0.05, 0.05, 'head'),
    ];
    this.mesh.tube(neck, across, 6, skin);
    const head = [
      this.ring(this.at('head', [0, -0.01, 0.02]), 0.045, 0.05, 'head'),
      this.ring(this.at('head', [0, 0.04, 0.01]), 0.078, 0.09, 'head'),
      this.ring(this.at('head', [0, 0.12, 0]), 0.09, 0.105, 'head'),
      this.ring(this.at('head', [0, 0.16, 0]), 0.082, 0.098, 'head'),
    ];
    this.mesh.tube(head, across, 8, skin);
    const crown = [
      this.ring(this.at('head', [0, 0.09, -0.025]), 0.095, 0.1, 'head'),
      this.ring(this.at('head', [0, 0.15, -0.012]), 0.097, 0.115, 'head'),
      this.ring(this.at('head', [0, 0.205, -0.01]), 0.06, 0.075, 'head'),
    ];
    this.mesh.tube(crown, across, 8, hair);
    const tail = [
      this.ring(this.at('tail', [0, -0.01, 0.03]), 0.025, 0.025, 'head', 'tail'),
      this.ring(this.at('tail1'), 0.045, 0.04, 'tail', 'tail1'),
      this.ring(this.at('tail2'), 0.042, 0.036, 'tail1', 'tail2'),
      this.ring(this.at('tail3'), 0.034, 0.03, 'tail2', 'tail3'),
      this.ring(this.at('tail3', [0, -0.09, 0]), 0.012, 0.012, 'tail3'),
    ];
    this.mesh.tube(tail, across, 5, hair);
  }

  addArm(side) {
    const { shirt, skin } = bodyParts;
    const name = (part) => `${part}${side > 0 ? 'Left' : 'Right'}`;
    const [upper, twist, fore] = ['upperArm', 'upperArmTwist', 'foreArm'].map(name);
    const up = [0, 1, 0];
    const sleeve = [
      this.ring(this.at(upper, [-0.07 * side, 0, 0]), 0.06, 0.06, 'chest', name('shoulder')),
      this.ring(this.at(upper, [0.01 * side, 0.005, 0]), 0.062, 0.062, name('shoulder'), upper),
      this.ring(this.at(twist), 0.05, 0.05, upper, twist),
      this.ring(this.at(twist, [0.05 * side, 0, 0]), 0.049, 0.049, twist),
    ];
    this.mesh.tube(sleeve, up, 6, shirt);
    const arm = [
      this.ring(this.at(twist, [0.03 * side, 0, 0]), 0.041, 0.041, twist),
      this.ring(this.at(fore), 0.037, 0.037, upper, fore),
      this.ring(this.at(fore, [0.07 * side, 0, 0]), 0.038, 0.038, fore),
      this.ring(this.at(name('foreArmTwist'), [0.06 * side, 0, 0]), 0.03, 0.03, fore),
      this.ring(this.at(name('hand')), 0.024, 0.027, name('foreArmTwist'), name('hand')),
    ];
    this.mesh.tube(arm, up, 6, skin);
    const hand = [
      this.ring(this.at(name('hand'), [-0.005 * side, 0, 0]), 0.02, 0.028, name('hand')),
      this.ring(this.at(name('hand'), [0.045 * side, 0, 0]), 0.019, 0.042, name('hand')),
      this.ring(this.at(name('hand'), [0.09 * side, 0, 0]), 0.015, 0.04, name('hand')),
    ];
    this.mesh.tube(hand, up, 6, skin);
    for (const [finger] of fingers) {
      const [root, tip] = [name(finger), name(`${finger}Tip`)];
      const bones = [
        this.ring(this.at(root, [-0.01 * side, 0, 0]), 0.011, 0.01, root),
        this.ring(this.at(tip), 0.01, 0.009, root, tip),
        this.ring(this.at(tip, [0.03 * side, 0, 0]), 0.007, 0.007, tip),
      ];
      this.mesh.tube(bones, up, 3, skin);
    }
  }

  addLeg(side) {
    const { trousers, shoes } = bodyParts;
    const name = (part) => `${part}${side > 0 ? 'Left' : 'Right'}`;
    const [thigh, shin, foot, toes] = ['thigh', 'shin', 'foot', 'toes'].map(name);
    const across = [1, 0, 0];
    const leg = [
      this.ring(this.at(thigh, [0, 0.04, -0.01]), 0.07, 0.09, 'hips'),
      this.ring(this.at(thigh, [0, -0.07, 0]), 0.083, 0.092, thigh),
      this.ring(this.at(thigh, [0, -0.24, 0]), 0.07, 0.076, thigh),
      this.ring(this.at(shin, [0, 0.02, 0.004]), 0.056, 0.06, thigh, shin),
      this.ring(this.at(shin, [0, -0.1, -0.012]), 0.054, 0.06, shin),
      this.ring(this.at(shin, [0, -0.26, -0.004]), 0.044, 0.046, shin),
      this.ring(this.at(foot, [0, 0.03, 0]), 0.046, 0.046, shin),
    ];
    this.mesh.tube(leg, across, 7, trousers);
    const shoe = [
      this.ring(this.at(foot, [0, -0.025, -0.06]), 0.032, 0.04, foot),
      this.ring(this.at(foot, [0, -0.018, 0]), 0.042, 0.055, foot),
      this.ring(this.at(foot, [0, -0.035, 0.07]), 0.046, 0.038, foot),
      this.ring(this.at(toes, [0, 0.0, 0]), 0.05, 0.026, foot, toes),
      this.ring(this.at(toes, [0, -0.008, 0.07]), 0.034, 0.015, toes),
    ];
    this.mesh.tube(shoe, across, 6, shoes);
  }
}

/**
 * The built-in kind of character.
 * @returns {import('./kind').Kind}
 */
function createFigure() {
  const skeleton = createSkeleton();
  const { nodes, places } = skeleton;
  const body = new BodyBuilder(skeleton);
  body.addTrunk();
  for (const side of [1, -1]) {
    body.addArm(side);
    body.addLeg(side);
  }
  // Bones have no rotation in the bind pose: the inverse bind matrix is a translation.
  const inverseBind = new Float32Array(16 * places.length);
  places.forEach(([x, y, z], bone) => {
    inverseBind.set([1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -x, -y, -z, 1], 16 * bone);
  });
  return createKind({
    name: 'figure',
    nodes,
    joints: places.map((place, bone) => bone + 1),
    inverseBind,
    mesh: body.mesh.build(),
    clips: createGaits(nodes),
    layers: Object.assign(createGestures(nodes), { props: createProps() }),
    notes: [],
  });
}

module.exports = { bodyParts, createFigure };
