'use strict';
// What it shows: things in the hands of characters, which follow a bone in the same update.
//
// A button drops them, and gives them back.
const { fall, place } = require('./shared/props');

/** Metres from one character to the next. */
const kApart = 1.5;

const controls = [{ name: 'count', title: 'Characters', min: 1, max: 12, step: 1, value: 5 }];

/** Names of nodes that can hold something, best first. */
const kHands = [/^handRight$/, /hand.*r(ight)?$|r(ight)?.*hand/i, /hand|wrist|palm/i, /head/i];

/** The node of a model that holds things: a hand, or the last one. */
function handOf({ nodes }) {
  for (const pattern of kHands) {
    const index = nodes.findIndex(({ name }) => pattern.test(name));
    if (index >= 0) {
      return index;
    }
  }
  return nodes.length - 1;
}

function create({ scene, kind, settings }) {
  const hand = handOf(kind.model);
  const characters = [];
  /** What each character has, or had: a node, and how fast it falls. */
  const props = [];
  let isHeld = true;

  function take(i) {
    // In the space of the hand, whose scale it undoes.
    props[i].node.setPosition(0, 0, 0);
    props[i].node.setQuaternion(0, 0, 0, 1);
    props[i].node.setScale(1 / kind.scale);
    characters[i].attach(props[i].node, hand);
  }

  function drop(i) {
    const { node } = props[i];
    const world = Float32Array.from(node.worldMatrix);
    scene.add(scene.root, node);
    place(node, world);
    props[i].speed = 0;
  }

  function resize() {
    while (characters.length > settings.count) {
      props.pop().node.dispose();
      characters.pop().dispose();
    }
    const first = characters.length;
    scene.instantiate(kind.model, settings.count - first).forEach((character, more) => {
      const i = first + more;
      character.setScale(kind.scale);
      if (kind.hasClips) {
        character.play(0, { speed: 0.8 + 0.1 * (i % 4), at: 0.13 * i });
      }
      characters.push(character);
      props.push({ node: scene.node({ name: 'prop' }), speed: 0 });
      take(i);
    });
    characters.forEach((character, i) => {
      character.setPosition(kApart * (i - (characters.length - 1) / 2), 0, 0);
    });
    if (!isHeld) {
      scene.update(0); // hands are where they are from now on
      props.forEach((_, i) => i >= first && drop(i));
    }
  }

  return {
    update(seconds) {
      if (settings.count !== characters.length) {
        resize();
      }
      if (!isHeld) {
        props.forEach((prop) => fall(prop, seconds));
      }
      scene.update(seconds);
    },
    actions: {
      drop: {
        title: () => (isHeld ? 'Drop' : 'Take'),
        run() {
          isHeld = !isHeld;
          props.forEach((_, i) => (isHeld ? take(i) : drop(i)));
        },
      },
    },
    characters,
    props: () => props.map(({ node }) => node),
    radius: () => 1 + (kApart * (characters.length - 1)) / 2,
    text: () => `${props.length} props ${isHeld ? 'held' : 'dropped'}`,
  };
}

module.exports = { controls, create, takesModels: true };
