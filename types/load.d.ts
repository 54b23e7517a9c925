// Finding and loading the native module.
import type { Engine, EngineWithMatrixFlow } from './engine';

/**
 * Module ABIs that there are binaries for, by platform (`${process.platform}-${process.arch}`): what
 * `process.versions.modules` is in Node 12, 18, 20, 22, 24 and 26.
 */
export declare const moduleAbis: Readonly<Record<string, readonly string[]>>;

/**
 * What a native module exports.
 *
 * @typeParam E its engines
 */
export interface NativeModule<E extends Engine = Engine> {
  /** Makes an engine, with memory and four threads of its own, which stay until the process ends. */
  getEngine(): E;
  /** A new object each time. */
  getVersion(): { version: string };
}

/** Thrown where no file could be loaded. Its message says what was tried, what runs here, and what to do. */
export interface LoadError extends Error {
  /** Tells it from other errors. */
  readonly code: 'ERR_NQ_LOAD';
  /** All files that were tried, in order. */
  readonly files: string[];
  /** What loading the last of the files that are there threw; null if none is there. Not enumerable. */
  readonly original: Error | null;
}

/**
 * Loads the native module: `file` if given, else what the environment variable NQ_MODULE names, else
 * the build for this runtime (build/Release/nq_logic.node for Node 12, build/Release/abiN/nq_logic.node for others),
 * else the prebuilt binary of the package.
 *
 * @param file path of another module
 * @returns the same for the same file
 * @throws {@link LoadError}
 */
export declare function load(file?: string): NativeModule;

/**
 * Loads the build whose engines have `createMatrixFlowCommandBuffer`: `file` if given, else what
 * NQ_MATRIXFLOW_MODULE names, else build/Release/nq_logic_matrixflow.node. The package holds none: build it from source.
 *
 * @param file path of another module
 * @returns the same for the same file
 * @throws {@link LoadError}
 */
export declare function loadMatrixFlow(file?: string): NativeModule<EngineWithMatrixFlow>;
