// Finding and loading the native module.
import type { Engine, EngineWithMatrixFlow } from './engine';

/** `process.versions.modules` of the hosts that can load the module: Node 12. */
export declare const moduleAbi: '72';

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
 * build/Release/nq_logic.node, else the prebuilt binary of the package.
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
