'use strict';
// Where hints go: each subject once, a few of each code, and only after the call has been carried out.
const { show } = require('./arguments');

/** Hints of one code that an engine gives, ahead of the line that says there are more. */
const kMostOfACode = 8;

/** What `checked` uses unless it is given a function. */
function warn({ code, message }) {
  console.warn(`[nq_logic hint ${code}] ${message}`);
}

/**
 * The function that hints go to, by the options of `checked`; undefined if they don't say.
 * @throws {TypeError}
 */
function readOnHint(options) {
  if (options === undefined) {
    return undefined;
  }
  if (typeof options !== 'object' || options === null || Array.isArray(options)) {
    const trouble = `options is ${show(options)}, not an object`;
    throw new TypeError(`checked: ${trouble}: give { onHint }, or leave it out.`);
  }
  const { onHint } = options;
  if (onHint !== undefined && onHint !== null && typeof onHint !== 'function') {
    const trouble = `onHint is ${show(onHint)}, not a function`;
    throw new TypeError(`checked: ${trouble}: give a function, or null for no hints.`);
  }
  return onHint;
}

class HintReport {
  constructor() {
    /** Null where there are to be no hints. */
    this.onHint = warn;
    this._waiting = [];
    this._isFlushing = false;
    /** Subjects that had a hint, by code; those of objects go with the objects. */
    this._seen = new WeakMap();
    this._counts = new Map();
  }

  /** True if nothing of a code will be given any more. */
  isClosed(code) {
    return this._counts.get(code) > kMostOfACode;
  }

  /** True the first time that a code meets a subject: an object, and what of it. */
  _isFirst(code, object, part) {
    if (!this._seen.has(object)) {
      this._seen.set(object, new Set());
    }
    const parts = this._seen.get(object);
    const key = `${code} ${part}`;
    if (parts.has(key)) {
      return false;
    }
    parts.add(key);
    return true;
  }

  /**
   * Keeps a hint for `flush`, unless its subject has had one of this code.
   * @param {string} code
   * @param {Object} object that the hint is about, with `part`
   * @param {string|number} part
   * @param {string} call
   * @param {?number} entity
   * @param {string} place
   * @param {string} text what was found, and the cure behind a colon
   */
  add(code, object, part, call, entity, place, text) {
    if (this.isClosed(code) || !this._isFirst(code, object, part)) {
      return;
    }
    const count = (this._counts.get(code) || 0) + 1;
    this._counts.set(code, count);
    if (count <= kMostOfACode) {
      const message = `${call}: ${text}.`;
      this._waiting.push({ code, call, entity, place, message, isLast: false });
      return;
    }
    const found = `there are more than ${kMostOfACode} hints of the code ${code}`;
    const message = `${call}: ${found}, and no more are given: mend those that were.`;
    this._waiting.push({ code, call, entity: null, place: '', message, isLast: true });
  }

  /**
   * Gives the hints that wait. What onHint throws goes to the caller, and the others wait for the next call.
   * Calls that onHint makes leave theirs to the one that it came from.
   */
  flush() {
    if (this._isFlushing) {
      return;
    }
    this._isFlushing = true;
    try {
      while (this._waiting.length !== 0 && this.onHint !== null) {
        const { onHint } = this;
        onHint(this._waiting.shift());
      }
    } finally {
      this._isFlushing = false;
    }
  }
}

module.exports = { HintReport, readOnHint };
