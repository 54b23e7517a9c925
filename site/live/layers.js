'use strict';
// What it shows: layers of a character. One replaces the clip below on some nodes, one adds to it on all.
//
// The sliders are the weights: of a second clip beside the first, of a layer with a mask, and of an additive layer.

const controls = [
  { name: 'second', title: 'Second clip', min: 0, max: 1, step: 0.01, value: 0 },
  { name: 'masked', title: 'Masked layer', min: 0, max: 1, step: 0.01, value: 1 },
  { name: 'added', title: 'Additive layer', min: 0, max: 1, step: 0.01, value: 0.5 },
];

/** Names of nodes that carry the upper part of a body. */
const kUpper = /spine|chest|torso|upper/i;

/** The clips of the layers: of the model's own ones, the last two. */
function clipsOf({ clips }) {
  if (clips.length < 2) {
    const trouble = `it has ${clips.length === 1 ? 'one clip' : 'no clips'}`;
    throw new RangeError(`${trouble}, and layers need two: choose a file with more clips`);
  }
  const last = clips.length - 1;
  return { first: 0, second: 1, masked: Math.min(2, last), added: Math.min(3, last) };
}

/** Adds a layer on the upper part of the body, or on all if no clip moves it. */
function addMasked(character) {
  const { model } = character;
  const upper = model.nodes.findIndex(({ name }) => kUpper.test(name));
  try {
    return character.addLayer('masked', { mask: { subtree: upper < 0 ? 0 : upper } });
  } catch (error) {
    return character.addLayer('masked');
  }
}

function create({ scene, kind, settings }) {
  const clips = clipsOf(kind.model);
  const [character] = scene.instantiate(kind.model);
  character.setScale(kind.scale);
  character.play(clips.first);
  character.play(clips.second, { beside: true, weight: 0.5 });
  const masked = addMasked(character);
  masked.play(clips.masked);
  const added = character.addLayer('added', { additive: true });
  added.play(clips.added, { speed: 2 });

  return {
    update(seconds) {
      character.setWeight(clips.first, 1 - settings.second);
      character.setWeight(clips.second, settings.second);
      masked.weight = settings.masked;
      added.weight = settings.added;
      scene.update(seconds);
    },
    characters: [character],
    radius: () => 1.6,
    text() {
      const nameOf = (clip) => kind.model.clips[clip].name || `clip ${clip}`;
      const { first, second, masked: over, added: more } = clips;
      return `${nameOf(first)} → ${nameOf(second)}; masked: ${nameOf(over)}; additive: ${nameOf(
        more
      )}`;
    },
  };
}

module.exports = { controls, create, takesModels: true };
