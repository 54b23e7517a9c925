// Checked mode.
import type { Engine } from './engine';
import type { EntityHandle } from './handles';

/**
 * What a hint is about: `not-under-root`, an entity whose world matrix is used and never computed; `not-listed`, a record
 * that changed and is not in `dirtyEntities`; `degrees`, an angle that is no number of radians; `nan`, a number that is
 * none; `other-engine`, a handle in the buffers of an engine that it does not come from; `one-sided-channel`, a channel
 * that not all of the blended clips move.
 */
export type HintCode =
  | 'not-under-root'
  | 'not-listed'
  | 'degrees'
  | 'nan'
  | 'other-engine'
  | 'one-sided-channel';

/** What a program does that is no error, but a mistake nearly always. */
export interface Hint {
  /** What it is about. */
  readonly code: HintCode;
  /** Method of the engine, or of a view. */
  readonly call: string;
  /** The entity, or null where there is none. */
  readonly entity: EntityHandle | null;
  /** What in the entity, in an object, or in the arguments; empty for the last hint of a code. */
  readonly place: string;
  /** The call, the place, what was found, and the cure. */
  readonly message: string;
  /** True if there are more of this code, and no more are given. */
  readonly isLast: boolean;
}

/** Options of {@link checked}. */
export interface CheckedOptions {
  /**
   * Where hints go, each once, when the call has been carried out; null for nowhere. Left out, it stays as it is:
   * `console.warn` at first. What it throws, the call throws.
   */
  onHint?: ((hint: Hint) => void) | null;
}

/**
 * An engine with the same methods, properties and results, that throws a `TypeError` or `RangeError` in words for what
 * the native one answers by a fault, by the end of the process or by silence. When it throws, no native code has run and
 * no shared memory has changed. It gives hints of what is no error, but a mistake nearly always. For development: it
 * costs time.
 *
 * Wrap an engine ahead of its first use, and use the wrapped one alone. Its `cullingResult` is a copy, which is detached
 * when it is replaced by a larger one.
 *
 * @typeParam E with or without command buffers
 * @param engine what {@link getEngine} returned
 * @param options may also be given later, for an engine that is checked already
 * @returns the same one for the same engine, and a checked engine as it is
 * @throws TypeError for what is no engine, and for other options
 */
export declare function checked<E extends Engine>(engine: E, options?: CheckedOptions): E;
