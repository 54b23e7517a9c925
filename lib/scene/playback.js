'use strict';
// Playback of clips in seconds: times, speeds and fades of all characters of a scene, which are advanced together and
// written into the blocks of their animators. A player has two places for clips, since an animator blends two exactly.
const { animatorClip } = require('../layout');
const { Batch, grown } = require('./blocks');

// Numbers of a place.
const kTime = 0;
const kSpeed = 1;
const kWeight = 2;
const kGoal = 3;
/** Change of the weight towards its goal, a second. */
const kRate = 4;
const kDuration = 5;
const kFramesPerSecond = 6;
const kFlags = 7;
const kPlace = 8;
const kPlaces = 2;

const kLoops = 1;
const kEnded = 2;
/** It is faded out, and ends when its weight is 0. */
const kStops = 4;

// Words of an animator's block.
const kRecord = animatorClip.size / 4;
const kTimeWord = animatorClip.time / 4;
const kWeightWord = animatorClip.weight / 4;

const kLoopEvent = 0;
const kEndEvent = 1;

/** What plays on a character. */
class Player {
  constructor(animator, at) {
    this.animator = animator;
    this.words = animator.f32;
    /** Place in the numbers of all players. */
    this.at = at;
    this.character = null;
    this.clips = [null, null];
    /** Place in the batch, 0 if nothing plays. */
    this.place = 0;
  }

  /** The place where a clip plays, or -1. */
  placeOf(clip) {
    const { clips } = this;
    return clips[0] === clip ? 0 : clips[1] === clip ? 1 : -1;
  }
}

/** Players of a scene. */
class Players {
  constructor(engine) {
    this._engine = engine;
    this._batch = new Batch();
    this._numbers = new Float64Array(64 * kPlaces * kPlace);
    this._end = 0;
    this._free = [];
    /** Events of this update: character, clip, kind. */
    this._events = [];
    this._eventCount = 0;
  }

  /** Number of players that play. */
  get count() {
    return this._batch.count;
  }

  create(animator) {
    if (this._free.length > 0) {
      return new Player(animator, this._free.pop());
    }
    const at = this._end;
    this._end += kPlaces * kPlace;
    if (this._end > this._numbers.length) {
      this._numbers = grown(this._numbers, 2 * this._end);
    }
    return new Player(animator, at);
  }

  /** Takes back the place of a player, which is stopped. */
  release(player) {
    this._free.push(player.at);
  }

  /** The place for a clip: where it plays already, a free one, or that of the smaller weight. */
  choose(player, clip) {
    const { clips, at } = player;
    const own = clips.indexOf(clip);
    if (own >= 0) {
      return own;
    }
    const free = clips.indexOf(null);
    if (free >= 0) {
      return free;
    }
    const numbers = this._numbers;
    return numbers[at + kWeight] <= numbers[at + kPlace + kWeight] ? 0 : 1;
  }

  start(player, place, clip, { at, speed, weight, fade, loop }) {
    const numbers = this._numbers;
    const from = player.at + place * kPlace;
    const isNew = player.clips[place] !== clip;
    if (isNew) {
      numbers[from + kWeight] = 0;
    }
    if (isNew || at !== undefined) {
      numbers[from + kTime] = Math.max(0, Math.min(clip.duration, at === undefined ? 0 : at));
    }
    numbers[from + kSpeed] = speed;
    numbers[from + kDuration] = clip.duration;
    numbers[from + kFramesPerSecond] = clip.framesPerSecond;
    numbers[from + kFlags] = loop ? kLoops : 0;
    player.clips[place] = clip;
    this._fade(player, place, weight, fade);
    if (player.place === 0) {
      this._batch.add(player, player.animator.id);
    }
  }

  /** Fades a clip out, or ends it at once. */
  stop(player, place, fade) {
    if (player.clips[place] !== null) {
      this._numbers[player.at + place * kPlace + kFlags] |= kStops;
      this._fade(player, place, 0, fade);
      if (fade === 0) {
        this._endPlace(player, place);
        this._removeIfIdle(player);
      }
    }
  }

  setWeight(player, place, weight, fade) {
    this._numbers[player.at + place * kPlace + kFlags] &= ~kStops;
    this._fade(player, place, weight, fade);
  }

  /** Sets the seconds in a clip; one that is held at its end goes on. */
  setTime(player, place, seconds) {
    const numbers = this._numbers;
    const from = player.at + place * kPlace;
    numbers[from + kTime] = Math.min(seconds, numbers[from + kDuration]);
    numbers[from + kFlags] &= ~kEnded;
    this._write(player, place);
  }

  timeOf(player, place) {
    return this._numbers[player.at + place * kPlace + kTime];
  }

  weightOf(player, place) {
    return this._numbers[player.at + place * kPlace + kWeight];
  }

  _fade(player, place, weight, fade) {
    const numbers = this._numbers;
    const from = player.at + place * kPlace;
    numbers[from + kGoal] = weight;
    if (fade === 0) {
      numbers[from + kWeight] = weight;
      numbers[from + kRate] = 0;
    } else {
      numbers[from + kRate] = (weight - numbers[from + kWeight]) / fade;
    }
    this._write(player, place);
  }

  /** Advances all by seconds, calls back, and evaluates the animators. */
  update(seconds) {
    const { entries } = this._batch;
    // Backwards: one that ends is replaced by the last.
    for (let i = entries.length - 1; i >= 0; --i) {
      const player = entries[i];
      this._advance(player, 0, seconds);
      this._advance(player, 1, seconds);
      this._removeIfIdle(player);
    }
    if (this._eventCount > 0) {
      this._report();
    }
    if (this._batch.count > 0) {
      this._engine.updateAnimators(this._batch.words.buffer);
    }
  }

  _advance(player, place, seconds) {
    const clip = player.clips[place];
    if (clip === null) {
      return;
    }
    const numbers = this._numbers;
    const from = player.at + place * kPlace;
    const speed = numbers[from + kSpeed];
    const rate = numbers[from + kRate];
    if (speed === 0 && rate === 0) {
      // It is as it was written last: programs that set times and weights themselves pay nothing here.
      return;
    }
    const flags = numbers[from + kFlags];
    const duration = numbers[from + kDuration];
    if ((flags & kEnded) === 0 && duration > 0 && speed !== 0) {
      let time = numbers[from + kTime] + seconds * speed;
      if ((flags & kLoops) !== 0) {
        if (time >= duration || time < 0) {
          time %= duration;
          if (time < 0) {
            time += duration;
          }
          this._note(player.character, clip, kLoopEvent);
        }
      } else if (speed < 0 ? time <= 0 : time >= duration) {
        time = speed < 0 ? 0 : duration;
        numbers[from + kFlags] = flags | kEnded;
        this._note(player.character, clip, kEndEvent);
      }
      numbers[from + kTime] = time;
    }
    if (rate !== 0) {
      const goal = numbers[from + kGoal];
      let weight = numbers[from + kWeight] + rate * seconds;
      if (rate > 0 ? weight >= goal : weight <= goal) {
        weight = goal;
        numbers[from + kRate] = 0;
      }
      numbers[from + kWeight] = weight;
      if (weight === goal && (flags & kStops) !== 0) {
        this._endPlace(player, place);
        return;
      }
    }
    this._write(player, place);
  }

  /** Writes a place into the block of the animator. */
  _write(player, place) {
    const numbers = this._numbers;
    const from = player.at + place * kPlace;
    const { words } = player;
    const record = place * kRecord;
    words[record + kTimeWord] = numbers[from + kTime] * numbers[from + kFramesPerSecond];
    words[record + kWeightWord] = numbers[from + kWeight];
  }

  _endPlace(player, place) {
    player.clips[place] = null;
    player.words[place * kRecord + kWeightWord] = 0;
  }

  _removeIfIdle(player) {
    if (player.place !== 0 && player.clips[0] === null && player.clips[1] === null) {
      this._batch.remove(player);
    }
  }

  _note(character, clip, kind) {
    // A character that nobody listens to has no events.
    if ((kind === kLoopEvent ? character.onLoop : character.onEnd) === null) {
      return;
    }
    const at = 3 * this._eventCount++;
    if (at === this._events.length) {
      this._events.push(character, clip, kind);
    } else {
      this._events[at] = character;
      this._events[at + 1] = clip;
      this._events[at + 2] = kind;
    }
  }

  _report() {
    const count = this._eventCount;
    this._eventCount = 0;
    const events = this._events;
    for (let i = 0; i < 3 * count; i += 3) {
      const character = events[i];
      const clip = events[i + 1];
      const call = events[i + 2] === kLoopEvent ? character.onLoop : character.onEnd;
      events[i] = null;
      events[i + 1] = null;
      if (call !== null && !character.isDisposed) {
        call(character, clip);
      }
    }
  }
}

module.exports = { Player, Players };
