'use strict';
// Recordings of a scene: what its updates took and did, as a Chrome trace. Numbers of a frame go into a ring of fixed
// size, so a recording allocates when it is made, and when it is written.
const { isObject, show } = require('../value-checks');
const { processId, threadId, writeWhole } = require('./trace-file');

/**
 * @typedef {import('../scene').Scene} Scene
 */

/**
 * How to record.
 * @typedef {Object} RecordOptions
 * @property {number} [frames] How many of the last frames are kept, 1 to 216000, by default 3600: a minute at 60 a second.
 *   A frame takes 80 bytes of memory, and some 500 in a file.
 */

/**
 * An event of a trace, as in the Trace Event Format.
 * @readonly
 * @typedef {Object} TraceEvent
 * @property {string} name What it is, such as 'update' or 'skin'.
 * @property {'M' | 'X' | 'C' | 'i'} ph Metadata, slice, counter, or instant event.
 * @property {number} ts Microseconds since the process started.
 * @property {number} pid Number of the process.
 * @property {number} tid The thread: 1 for the main one, then 1 more than `threadId` of workers.
 * @property {number} [dur] Microseconds of a slice.
 * @property {string} [cat] 'frame' or 'scene'.
 * @property {'t'} [s] Scope of an instant event: its thread.
 * @property {{ [name: string]: string | number }} [args] Values of a counter, and facts.
 */

/**
 * A trace, as in the Trace Event Format: slices in the order of their starts, a slice before those inside it.
 * @readonly
 * @typedef {Object} Trace
 * @property {'ms'} displayTimeUnit Unit in which viewers show times.
 * @property {{ [name: string]: string | number }} otherData Numbers of kept and dropped frames and events.
 * @property {TraceEvent[]} traceEvents All events, after the names of process and thread.
 */

const kUsualFrames = 3600;
const kMostFrames = 216000;

/** Events of nodes and characters that are kept. */
const kMostEvents = 4096;

/** Stages in their order: the names of their slices. */
const stages = ['animate', 'transform', 'cull', 'skin'];
const counters = ['nodes', 'playing', 'skinned', 'visible', 'passes'];

// Numbers of a frame: its start, the milliseconds of its stages, and its counters.
const kStages = 1;
const kCounters = kStages + stages.length;
const kNumbers = kCounters + counters.length;

const kNanoseconds = 1e6;

/** Milliseconds as whole nanoseconds, in which slices nest exactly. */
function nanosecondsOf(milliseconds) {
  return Math.round(milliseconds * kNanoseconds);
}

const microsecondsOf = (nanoseconds) => nanoseconds / 1000;

/**
 * A recording of a scene, made by `scene.record()`: a slice for each update with one for each of its stages, counters,
 * and events where nodes and characters are made and disposed of. It keeps the last frames. Perfetto and
 * chrome://tracing open its file.
 */
class Recording {
  /**
   * Made by scenes.
   * @protected
   * @param {Scene} scene
   * @param {RecordOptions} [options]
   */
  constructor(scene, options = {}) {
    const label = 'Scene.record';
    if (!isObject(options)) {
      throw new TypeError(`${label}: options is ${show(options)}: leave it out or give an object.`);
    }
    const { frames = kUsualFrames } = options;
    if (!Number.isInteger(frames) || frames < 1 || frames > kMostFrames) {
      const Kind = typeof frames === 'number' ? RangeError : TypeError;
      const cure = `give a whole number from 1 to ${kMostFrames}`;
      throw new Kind(`${label}: options.frames is ${show(frames)}: ${cure}.`);
    }
    this._scene = scene;
    this._limit = frames;
    this._numbers = new Float64Array(frames * kNumbers);
    this._recorded = 0;
    /** Events: time in milliseconds, name, what it is about, count. */
    this._events = [];
    this._noted = 0;
    this._isRecording = true;
  }

  /**
   * Whether it still records.
   * @type {boolean}
   */
  get isRecording() {
    return this._isRecording;
  }

  /**
   * Number of frames that it keeps.
   * @type {number}
   */
  get frames() {
    return Math.min(this._recorded, this._limit);
  }

  /**
   * Number of frames that were recorded and not kept, since later ones took their place.
   * @type {number}
   */
  get droppedFrames() {
    return this._recorded - this.frames;
  }

  /** Ends the recording. What it has can still be saved. */
  stop() {
    if (this._isRecording) {
      this._isRecording = false;
      this._scene._recording = null;
      this._scene = null;
    }
  }

  /**
   * Writes what was recorded so far into a file. A recording that still runs goes on. The file is whole, or as it was
   * before. Rejects with an error for a file that can't be written.
   * @param {string} file its path, usually with the extension .json
   * @returns {Promise<void>}
   */
  async save(file) {
    if (typeof file !== 'string' || file === '') {
      const cure = "give the path of a file, such as 'trace.json'";
      throw new TypeError(`Recording.save: file is ${show(file)}: ${cure}.`);
    }
    if (this._recorded === 0) {
      const cure = 'call update of the scene before, while it records';
      throw new Error(`Recording.save: there is no frame yet: ${cure}.`);
    }
    // The text is complete before the first wait, so frames meanwhile can't mix with it.
    await writeWhole(file, JSON.stringify(this));
  }

  /**
   * What was recorded so far, as `save` writes it.
   * @returns {Trace}
   */
  toJSON() {
    const metadata = (name, value) => this._event('M', name, 0, { args: { name: value } });
    const notes = this._noteEvents();
    const events = [...this._frameEvents(), ...notes];
    // Stable: a slice stays before those that start with it.
    const order = events.map((_, i) => i);
    order.sort((a, b) => events[a].ts - events[b].ts || a - b);
    const otherData = {
      frames: this.frames,
      droppedFrames: this.droppedFrames,
      droppedEvents: this._noted - notes.length,
    };
    if (otherData.droppedFrames > 0) {
      const cure = `record({ frames: ${Math.min(kMostFrames, this._recorded)} }) keeps more`;
      otherData.note = `the first ${this.droppedFrames} frames were dropped: ${cure}.`;
    }
    return {
      displayTimeUnit: 'ms',
      otherData,
      traceEvents: [
        metadata('process_name', 'nq_logic'),
        metadata('thread_name', 'scene'),
        ...order.map((i) => events[i]),
      ],
    };
  }

  /** Slices and counters. A counter has an event where it changes. */
  _frameEvents() {
    const events = [];
    const last = new Array(counters.length).fill(-1);
    for (let frame = this.droppedFrames; frame < this._recorded; ++frame) {
      const at = (frame % this._limit) * kNumbers;
      const numbers = this._numbers.subarray(at, at + kNumbers);
      const ends = [nanosecondsOf(numbers[0])];
      let end = numbers[0];
      for (let stage = 0; stage < stages.length; ++stage) {
        end += numbers[kStages + stage];
        ends.push(nanosecondsOf(end));
      }
      const add = (name, from, to, more) => {
        const dur = microsecondsOf(to - from);
        events.push(this._event('X', name, from, Object.assign({ cat: 'frame', dur }, more)));
      };
      add('update', ends[0], ends[stages.length], { args: { frame: frame + 1 } });
      stages.forEach((name, stage) => add(name, ends[stage], ends[stage + 1]));
      counters.forEach((name, i) => {
        const value = numbers[kCounters + i];
        if (value !== last[i]) {
          last[i] = value;
          events.push(this._event('C', name, ends[0], { args: { [name]: value } }));
        }
      });
    }
    return events;
  }

  _noteEvents() {
    const first =
      this.frames === 0 ? 0 : this._numbers[(this.droppedFrames % this._limit) * kNumbers];
    return (
      this._events
        .map((_, i) => this._events[(this._noted + i) % this._events.length])
        // Of frames that were dropped, events are, too.
        .filter(({ time }) => this.droppedFrames === 0 || time >= first)
        .map(({ time, name, about, count }) =>
          this._event('i', name, nanosecondsOf(time), {
            cat: 'scene',
            s: 't',
            args: { name: about, count },
          })
        )
    );
  }

  _event(ph, name, nanoseconds, more) {
    const ts = microsecondsOf(nanoseconds);
    return Object.assign({ name, ph, ts, pid: processId, tid: threadId + 1 }, more);
  }

  /** Takes what the update that ends has written into the statistics. */
  _frame(start, milliseconds, scene) {
    const { stats } = scene;
    const numbers = this._numbers;
    const at = (this._recorded++ % this._limit) * kNumbers;
    numbers[at] = start[0];
    for (let stage = 0; stage < stages.length; ++stage) {
      numbers[at + kStages + stage] = milliseconds[stage];
    }
    numbers[at + kCounters] = scene.nodeCount;
    numbers[at + kCounters + 1] = stats.playing;
    numbers[at + kCounters + 2] = stats.skinned;
    numbers[at + kCounters + 3] = stats.visible;
    numbers[at + kCounters + 4] = stats.passes;
  }

  /** Takes an event. Many of a kind between two frames are one. */
  _note(time, name, about, count) {
    const last = this._events[(this._noted - 1) % kMostEvents];
    if (
      last !== undefined &&
      last.name === name &&
      last.about === about &&
      last.frame === this._recorded
    ) {
      last.count += count;
      return;
    }
    this._events[this._noted++ % kMostEvents] = { time, name, about, count, frame: this._recorded };
  }
}

module.exports = { Recording };
