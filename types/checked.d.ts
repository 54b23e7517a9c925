// Checked mode.
import type { Engine } from './engine';

/**
 * An engine with the same methods, properties and results, that throws a `TypeError` or `RangeError` in words for what
 * the native one answers by a fault, by the end of the process or by silence. When it throws, no native code has run and
 * no shared memory has changed. For development: it costs time.
 *
 * Wrap an engine ahead of its first use, and use the wrapped one alone. Its `cullingResult` is a copy, which is detached
 * when it is replaced by a larger one.
 *
 * @typeParam E with or without command buffers
 * @param engine what {@link getEngine} returned
 * @returns the same one for the same engine, and a checked engine as it is
 * @throws TypeError for what is no engine
 */
export declare function checked<E extends Engine>(engine: E): E;
