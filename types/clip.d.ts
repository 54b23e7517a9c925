// Animation clips as bytes: what `createDataModel(1, bytes)` takes.
import type { sampleTypes } from './layout';

export { sampleTypes } from './layout';

/** What the keys of a curve drive: one of {@link sampleTypes}. */
export type SampleType = (typeof sampleTypes)[keyof typeof sampleTypes];

/** The out-tangent of a key whose value holds until the next key: infinity. */
export declare const stepTangent: number;

/** A key of a curve. */
export interface Key {
  /** A whole number, from 0. */
  frame: number;
  /** Units, radians for Euler angles, parts of a quaternion; a finite float. */
  value: number;
  /** Slope arriving at the key, in value units a second. */
  inTangent: number;
  /** Slope leaving it, in value units a second, or {@link stepTangent}. */
  outTangent: number;
}

/** Keys as columns of one length, for much data. */
export interface KeyColumns {
  /** Whole numbers, rising. */
  readonly frames: Uint32Array;
  /** Units, radians for Euler angles, parts of a quaternion. */
  readonly values: Float32Array;
  /** Slopes arriving at the keys, in value units a second. */
  readonly inTangents: Float32Array;
  /** Slopes leaving them, in value units a second, or {@link stepTangent}. */
  readonly outTangents: Float32Array;
}

/**
 * A curve of a clip.
 *
 * @typeParam Keys how its keys are given
 */
export interface Curve<Keys = ReadonlyArray<Readonly<Key>> | KeyColumns> {
  /** Index of what it moves; the targets of a clip run from 0 without gaps. */
  target: number;
  /** What of it. A target turns either by its Euler angles or by its quaternion, which then has w. */
  type: SampleType;
  /** By rising frame; two may share a frame, where the value jumps. May be empty. */
  keys: Keys;
}

/**
 * A clip.
 *
 * @typeParam Keys how the keys of its curves are given
 */
export interface Clip<Keys = ReadonlyArray<Readonly<Key>> | KeyColumns> {
  /** For messages only; the bytes don't hold it. */
  name?: string;
  /** A whole number, from 1: the engine would drop a fraction. */
  framesPerSecond: number;
  /** Where sampling starts again from frame 0, from 1; keys may lie beyond. */
  frameCount: number;
  /** In any order; several of one target and type are taken as one. */
  curves: Curve<Keys>[];
}

/**
 * Writes a clip as the bytes that {@link Engine.createDataModel} takes, with kind 1. See `layout.clip` for them.
 *
 * @throws TypeError or RangeError naming the clip, the curve and the key, and what to give instead
 */
export declare function buildClip(clip: Readonly<Clip>): ArrayBuffer;

/**
 * Reads a clip and checks it as {@link buildClip} does. Bytes after the last key are ignored, as the engine ignores
 * them.
 *
 * @param bytes all of a buffer, or those that a view shows
 * @param name for messages, and of the result
 * @returns with its keys as objects
 * @throws TypeError or RangeError naming what is wrong
 */
export declare function readClip(
  bytes: ArrayBuffer | SharedArrayBuffer | ArrayBufferView,
  name?: string
): Clip<Key[]>;
