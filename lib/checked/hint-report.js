'use strict';
// Reports hints: each subject once, a few of each code, and only after the call has been executed.
const { show } = require('./arguments');

/** Number of hints of one code that an engine reports before the one that says that there are more. */
const kMostOfACode = 8;

/** The default of `onHint`. */
function warn({ code, message }) {
  console.warn(`[nq_logic hint ${code}] ${message}`);
}

/**
 * Reads `onHint` from the options of `checked`; undefined if it is left out.
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
    /** Null switches hints off. */
    this.onHint = warn;
    this._waiting = [];
    this._isFlushing = false;
    /** Subjects that had a hint, by code; released with their objects. */
    this._seen = new WeakMap();
    this._counts = new Map();
  }

  /** True if no more hints of a code will be reported. */
  isClosed(code) {
    return this._counts.get(code) > kMostOfACode;
  }

  /** True for the first hint of a code about a subject: an object and a part of it. */
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
   * Queues a hint for `flush`, unless its subject has had one of this code.
   * @param {string} code
   * @param {Object} object that the hint is about, with `part`
   * @param {string|number} part
   * @param {string} call
   * @param {?number} entity
   * @param {string} place
   * @param {string} text what was found, and the cure after a colon
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
    const message = `${call}: ${found}, and no more are reported: fix those first.`;
    this._waiting.push({ code, call, entity: null, place: '', message, isLast: true });
  }

  /**
   * Reports the queued hints. If onHint throws, the caller receives the exception, and the other hints stay queued
   * for the next call. Nested calls made by onHint leave their hints to the outer call.
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
