/**
 * Importer of glTF 2.0 files, reached by `require('nq_logic/lib/gltf')` alone. It needs the package
 * `@gltf-transform/core`, and looks for it on first use.
 *
 * @module nq_logic/lib/gltf
 */

/** A node of the file. */
export interface ImportedNode {
  /** '' if it has none. */
  name: string;
  /** Its index in the file, where parents may follow their children. */
  fileIndex: number;
  /** Index of its parent in the result, which is smaller than its own, or -1. */
  parent: number;
  /** x, y, z in the parent's space. */
  translation: [number, number, number];
  /** Quaternion x, y, z, w. */
  rotation: [number, number, number, number];
  /** x, y, z. */
  scale: [number, number, number];
  /** Index of its skin in the result, or -1. */
  skin: number;
  /** Index of its mesh in the file, or -1. */
  mesh: number;
}

/** A skin of the file. */
export interface ImportedSkin {
  /** '' if it has none. */
  name: string;
  /** Indices of nodes in the result. */
  joints: number[];
  /** 64 bytes a joint, for `engine.createDataModel(2, …)`; identities where the file has none. */
  inverseBindMatrices: ArrayBuffer;
}

/** An animation of the file, as a clip. */
export interface ImportedAnimation {
  /** '' if it has none. */
  name: string;
  /** A whole number. */
  framesPerSecond: number;
  /** Frames after which the clip starts again. */
  frameCount: number;
  /** Seconds until its last key. */
  duration: number;
  /** Index of a node of the result for each target of the clip. */
  targets: number[];
  /** For `engine.createDataModel(1, …)`. */
  clip: ArrayBuffer;
}

/** A scene of the file. */
export interface ImportedScene {
  /** '' if it has none. */
  name: string;
  /** Indices of its root nodes in the result. */
  nodes: number[];
}

/** What {@link importGltf} gives. Indices are those of the result, but for `fileIndex` and `mesh`. */
export interface ImportedModel {
  /** Parents ahead of their children, depth first, so that one pass creates the entities. */
  nodes: ImportedNode[];
  /** Indices of the nodes without parents. */
  roots: number[];
  /** What to show together. */
  scenes: ImportedScene[];
  /** Index of the scene to show, or -1 if the file names none. */
  defaultScene: number;
  /** Joints with their inverse bind matrices. */
  skins: ImportedSkin[];
  /** Clips, each of all that its animation moves. */
  animations: ImportedAnimation[];
  /** What was left out or resampled, a line each. */
  warnings: string[];
}

/** How to import. */
export interface ImportOptions {
  /** Of the file in messages; by default its path. */
  name?: string;
  /** Rate of all clips, a whole number from 1 to 1000; by default each gets the rate of its keys. */
  framesPerSecond?: number;
  /**
   * Adds a frame to each clip, so that its last key can be reached: for clips that stop at their ends. Without, a clip
   * starts again where its last key stands.
   */
  holdEnd?: boolean;
}

/** What is wrong with a file, in one line: the file, what in it, and the cure. Its name is 'GltfError'. */
export declare class GltfError extends Error {
  constructor(message: string);
}

/**
 * Imports the nodes, skins and animations of a glTF 2.0 file.
 *
 * @param source path of a .glb or .gltf file, or the bytes of one that refers to no other file
 * @param options
 * @returns rejects with a {@link GltfError} for what is wrong with the file, with a TypeError or RangeError for
 *   arguments
 */
export declare function importGltf(
  source: string | ArrayBuffer | SharedArrayBuffer | ArrayBufferView,
  options?: ImportOptions
): Promise<ImportedModel>;
