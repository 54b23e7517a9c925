'use strict';
// What characters and their layers have in common: playing, fading and stopping clips, with checked arguments.
const { isObject, show } = require('../value-checks');

/**
 * @typedef {import('./model').ModelClip} ModelClip
 */

/**
 * How to play a clip.
 * @typedef {Object} PlayOptions
 * @property {boolean} [loop] Whether it starts again at its end, the default, or is held there.
 * @property {number} [speed] Factor, by default 1; negative ones play backwards.
 * @property {number} [fade] Seconds until it has its weight, and what played before has none; by default 0.
 * @property {number} [weight] Over 0, up to 1, the default. What the weights of all clips lack of 1 is the pose at rest,
 *   or that in which the character was stopped; in a layer, what is below. If they are more than 1, each counts as a share.
 * @property {number} [at] Seconds in the clip at which it starts, by default 0; a clip that plays already goes on. One that is
 *   held at its end starts again, or leads back if it is played the other way.
 * @property {boolean} [beside] Whether other clips play on, for a blend; by default they are faded out.
 */

/** A checked number of options. */
function numberOf(label, name, value, fallback, least, most, cure) {
  if (value === undefined) {
    return fallback;
  }
  if (typeof value !== 'number') {
    throw new TypeError(`${label}: ${name} is ${show(value)}, not a number: ${cure}.`);
  }
  if (!(value >= least && value <= most)) {
    throw new RangeError(`${label}: ${name} is ${value}: ${cure}.`);
  }
  return value;
}

const kFade = 'give seconds from 0 up';
const kWeight = 'give a weight over 0, up to 1';
const kLeastWeight = Number.MIN_VALUE;

/** Checked seconds of a fade. */
function fadeOf(label, seconds) {
  return numberOf(label, 'fade', seconds, 0, 0, Number.MAX_VALUE, kFade);
}

function checkOptions(label, options) {
  if (!isObject(options)) {
    const cure = 'leave it out or give an object';
    throw new TypeError(`${label}: options is ${show(options)}: ${cure}.`);
  }
}

function playersOf(track) {
  return track.player.base.owner.scene._players;
}

function playOn(label, model, track, clip, options) {
  const found = model.clip(clip);
  checkOptions(label, options);
  const { loop = true, beside = false } = options;
  if (typeof loop !== 'boolean' || typeof beside !== 'boolean') {
    const [name, value] = typeof loop === 'boolean' ? ['beside', beside] : ['loop', loop];
    throw new TypeError(`${label}: ${name} is ${show(value)}: give true or false.`);
  }
  const most = Number.MAX_VALUE;
  const checked = {
    loop,
    speed: numberOf(label, 'speed', options.speed, 1, -most, most, 'give a finite factor'),
    fade: fadeOf(label, options.fade),
    weight: numberOf(label, 'weight', options.weight, 1, kLeastWeight, 1, kWeight),
    at: numberOf(label, 'at', options.at, undefined, 0, most, 'give seconds from 0 up'),
  };
  const players = playersOf(track);
  const { id } = track.player.known.clips[found.index];
  const slot = players.start(track, found, id, checked);
  if (!beside) {
    players.stopOthers(track, slot, checked.fade);
  }
  return found;
}

function crossfadeOn(label, model, track, clip, seconds, options) {
  if (seconds === undefined) {
    throw new TypeError(`${label}: seconds is undefined: ${kFade}.`);
  }
  checkOptions(label, options);
  return playOn(label, model, track, clip, Object.assign({}, options, { fade: seconds }));
}

/** @param {?Track} track null where the model has no clips */
function stopOn(label, model, track, clip, options) {
  checkOptions(label, options);
  const fade = fadeOf(label, options.fade);
  const only = clip === undefined ? undefined : model.clip(clip);
  if (track === null) {
    return;
  }
  if (only === undefined) {
    if (track.slots.length > 0) {
      playersOf(track).stopAll(track, fade);
    }
    return;
  }
  const slot = track.slotOf(only);
  if (slot !== null) {
    playersOf(track).stop(track, slot, fade);
  }
}

/** The slot of a clip; throws if it does not play. */
function playingSlot(label, model, track, clip) {
  const found = model.clip(clip);
  const slot = track.slotOf(found);
  if (slot === null) {
    throw new RangeError(`${label}: clip '${found.name}' does not play: play it first.`);
  }
  return slot;
}

function setWeightOn(label, model, track, clip, weight, options) {
  const slot = playingSlot(label, model, track, clip);
  if (typeof weight !== 'number' || !(weight >= 0 && weight <= 1)) {
    const Kind = typeof weight === 'number' ? RangeError : TypeError;
    throw new Kind(`${label}: weight is ${show(weight)}: give a weight from 0 to 1.`);
  }
  checkOptions(label, options);
  playersOf(track).fadeTo(track, slot, weight, fadeOf(label, options.fade));
}

function setTimeOn(label, model, track, clip, seconds) {
  const slot = playingSlot(label, model, track, clip);
  if (typeof seconds !== 'number' || !(seconds >= 0)) {
    const Kind = typeof seconds === 'number' ? RangeError : TypeError;
    throw new Kind(`${label}: seconds is ${show(seconds)}: give seconds from 0 up.`);
  }
  playersOf(track).setTime(slot.at, seconds);
}

function timeOn(model, track, clip) {
  const slot = track.slotOf(model.clip(clip));
  return slot === null ? -1 : playersOf(track).timeOf(slot.at);
}

function weightOn(model, track, clip) {
  const slot = track.slotOf(model.clip(clip));
  return slot === null ? 0 : playersOf(track).weightOf(slot.at);
}

module.exports = {
  checkOptions,
  crossfadeOn,
  fadeOf,
  numberOf,
  playOn,
  setTimeOn,
  setWeightOn,
  stopOn,
  timeOn,
  weightOn,
};
