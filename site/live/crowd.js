'use strict';
// What it shows: characters that walk, each with its own speed, from one clip.
//
// Move the slider: characters come and go, and the memory of those that went is used again.

/** Metres: how far apart characters walk, and the radius of the circle that each walks. */
const kSpacing = 1.35;
const kCircle = 0.65;

/** Parts of a turn from one character to the next, which fill a disc evenly. */
const kGolden = 0.6180339887;

/** Speed of the slowest, and what the fastest has more. */
const kSlowest = 0.6;
const kRange = 0.9;

const controls = [{ name: 'count', title: 'Characters', min: 1, max: 300, step: 1, value: 40 }];

/** Where a character walks, from where on, and how fast. */
function walkOf(i) {
  const angle = 2 * Math.PI * kGolden * i;
  const away = kSpacing * Math.sqrt(i);
  return {
    x: away * Math.cos(angle),
    z: away * Math.sin(angle),
    from: 2.4 * angle,
    speed: kSlowest + kRange * ((kGolden * i * 7) % 1),
  };
}

function create({ scene, kind, settings }) {
  const characters = [];
  let time = 0;

  /** Makes characters, or disposes of the last ones. */
  function resize() {
    while (characters.length > settings.count) {
      characters.pop().dispose();
    }
    const first = characters.length;
    scene.instantiate(kind.model, settings.count - first).forEach((character, more) => {
      const { speed, from } = walkOf(first + more);
      character.setScale(kind.scale);
      if (kind.hasClips) {
        character.play(0, { speed, at: (from % 1) * kind.model.clip(0).duration });
      }
      characters.push(character);
    });
  }

  return {
    update(seconds) {
      if (settings.count !== characters.length) {
        resize();
      }
      time += seconds;
      characters.forEach((character, i) => {
        const { x, z, from, speed } = walkOf(i);
        // As fast as its feet: metres per second of the clip.
        const angle = from + (time * speed * kind.pace) / kCircle;
        character.setPosition(x + kCircle * Math.cos(angle), 0, z + kCircle * Math.sin(angle));
        character.setEuler(0, -angle, 0);
      });
      scene.update(seconds);
    },
    characters,
    radius: () => 1 + kSpacing * Math.sqrt(settings.count),
    text: () => `${characters.length} characters, ${scene.nodeCount} nodes`,
  };
}

module.exports = { controls, create, takesModels: true };
