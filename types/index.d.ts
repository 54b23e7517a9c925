/**
 * All of the library but the importer of glTF files, which is `nq_logic/lib/gltf`. The native module is loaded on first
 * use; see {@link load}.
 *
 * @module nq_logic
 */
import type { Engine } from './engine';

/**
 * Makes an engine, with memory and four threads of its own, which stay until the process ends: make one for a scene, not
 * one a frame. Keep it.
 *
 * @throws {@link LoadError} if the native module can't be loaded
 */
export declare function getEngine(): Engine;

/**
 * The version of the native module.
 *
 * @throws {@link LoadError} if it can't be loaded
 */
export declare function getVersion(): { version: string };

/**
 * Layouts of all bytes that script and native code share: sizes and byte offsets of records, little-endian without padding,
 * and the numbers that stand in them.
 */
export * as layout from './layout';

export * from './load';
export * from './checked';
export * from './clip';
export * from './commands';
export * from './views';
export * from './engine';
export * from './handles';
