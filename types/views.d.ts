// Typed views over all records that script and native code share.
import type {
  CullingAnswer,
  Engine,
  EngineAnimationClipBinding,
  EngineAnimatorControllerModel,
  EngineAnimatorControllerStateModel,
  EngineComponent,
  EngineEntity,
  PlainBuffer,
  SharedBlock,
} from './engine';
import type {
  AnimatorHandle,
  BindingHandle,
  BonesHandle,
  ClipHandle,
  CullingObjectHandle,
  Entity2DHandle,
  Entity3DHandle,
  EntityHandle,
  HandleArray,
  HandleLike,
  SkinningHandle,
  StateHandle,
} from './handles';

/** An array that getters of several numbers fill. */
export type NumberArray = number[] | Float32Array | Float64Array;

/**
 * What views of the block of an object have in common.
 *
 * A view keeps the object, and so the memory behind its buffer and the handles: keep the view as long as you use them. It
 * is made once for an object, and used for its life. Its arrays lie over the whole block and stay the same; methods of a
 * name that ends in `At` give the index of a field in them and check nothing, for loops where that matters.
 *
 * All others throw a TypeError for an argument that is no number, and a RangeError for an index of no element, a handle
 * of more than 32 bits, and an array without room. Nothing is allocated per access.
 *
 * Constructors throw a TypeError for an object without a buffer, such as one whose `id` is 0, and a RangeError for one
 * of another size.
 *
 * @typeParam T what the block came with
 */
export interface BlockView<T extends SharedBlock> {
  /** What the block came with. */
  readonly object: T;
  /** Handle of the object, for batches that of element 0. */
  readonly id: T['id'];
  /** The block as words. */
  readonly u32: Uint32Array;
  /** The block as floats. */
  readonly f32: Float32Array;
}

export interface Entity3DView extends BlockView<EngineEntity<Entity3DHandle>> {}

/**
 * A batch of 3D entities: 108 bytes each, see `layout.entity3D`. What script writes counts once the entity stands in the
 * dirty list (see {@link DirtyListWriter}); world matrices are those of the last refresh.
 *
 * Getters of several numbers fill `out` from index `at` on, and return it.
 */
export declare class Entity3DView {
  /** @param entity what `createEntity(true, count)` made */
  constructor(entity: EngineEntity<Entity3DHandle>);

  /** Entities of the batch. */
  readonly count: number;

  /** The records as bytes; only `rotationMode` is one. */
  readonly u8: Uint8Array;

  /** Handle of entity i. */
  handle(i: number): Entity3DHandle;

  /** Index in `u8` of the rotation mode of entity i. */
  rotationModeAt(i: number): number;

  /** Index in `f32` of its rotation: x, y, z, w. */
  rotationAt(i: number): number;

  /** Index in `f32` of its position: x, y, z. */
  positionAt(i: number): number;

  /** Index in `f32` of its scale: x, y, z. */
  scaleAt(i: number): number;

  /** Index in `f32` of its world matrix: 16 floats. */
  worldMatrixAt(i: number): number;

  /** 0 for Euler angles, anything else for a quaternion; see `layout.rotationModes`. */
  rotationMode(i: number): number;

  /**
   * Euler angles x, y, z in radians and a number without meaning, or quaternion x, y, z, w.
   *
   * @param out 4 numbers
   */
  rotation<Out extends NumberArray>(i: number, out: Out, at?: number): Out;

  /** Turns entity i by Euler angles in radians: Rx · Ry · Rz. Sets its mode. */
  setEuler(i: number, x: number, y: number, z: number): void;

  /** Turns entity i by a quaternion, which is taken as it stands: give one of length 1. Sets its mode. */
  setQuaternion(i: number, x: number, y: number, z: number, w: number): void;

  /**
   * Position in the parent's space.
   *
   * @param out 3 numbers
   */
  position<Out extends NumberArray>(i: number, out: Out, at?: number): Out;

  /** In the parent's space. */
  setPosition(i: number, x: number, y: number, z: number): void;

  /**
   * Scale along the axes.
   *
   * @param out 3 numbers
   */
  scale<Out extends NumberArray>(i: number, out: Out, at?: number): Out;

  /** The scale of a fresh entity is 0: set it. */
  setScale(i: number, x: number, y: number, z: number): void;

  /** Puts entity i where its parent is: position 0, no rotation (a quaternion), scale 1. */
  reset(i: number): void;

  /**
   * World matrix, column-major, of the last refresh.
   *
   * @param out 16 numbers
   */
  worldMatrix<Out extends NumberArray>(i: number, out: Out, at?: number): Out;

  /**
   * Where entity i stands in the world: the last column of its matrix.
   *
   * @param out 3 numbers
   */
  worldPosition<Out extends NumberArray>(i: number, out: Out, at?: number): Out;
}

export interface Entity2DView extends BlockView<EngineEntity<Entity2DHandle>> {}

/**
 * A batch of 2D entities: 56 bytes each, see `layout.entity2D`. What script writes counts once the entity stands in the
 * dirty list (see {@link DirtyListWriter}); world matrices are those of the last refresh.
 *
 * Getters of more than one number fill `out` from index `at` on, and return it.
 */
export declare class Entity2DView {
  /** @param entity what `createEntity(false, count)` made */
  constructor(entity: EngineEntity<Entity2DHandle>);

  /** Entities of the batch. */
  readonly count: number;

  /** Handle of entity i. */
  handle(i: number): Entity2DHandle;

  /** Index in `f32` of the rotation of entity i. */
  rotationAt(i: number): number;

  /** Index in `f32` of its position: x, y. */
  positionAt(i: number): number;

  /** Index in `f32` of its scale: x, y. */
  scaleAt(i: number): number;

  /** Index in `f32` of its world matrix: 9 floats. */
  worldMatrixAt(i: number): number;

  /** Radians; a positive angle turns from y towards x. */
  rotation(i: number): number;

  /**
   * Turns entity i.
   *
   * @param angle radians; a positive one turns from y towards x
   */
  setRotation(i: number, angle: number): void;

  /**
   * Position in the parent's space.
   *
   * @param out 2 numbers
   */
  position<Out extends NumberArray>(i: number, out: Out, at?: number): Out;

  /** In the parent's space. */
  setPosition(i: number, x: number, y: number): void;

  /**
   * Scale along the axes.
   *
   * @param out 2 numbers
   */
  scale<Out extends NumberArray>(i: number, out: Out, at?: number): Out;

  /** The scale of a fresh entity is 0: set it. */
  setScale(i: number, x: number, y: number): void;

  /** Puts entity i where its parent is: position 0, no rotation, scale 1. */
  reset(i: number): void;

  /**
   * World matrix, column-major 3×3, of the last refresh.
   *
   * @param out 9 numbers
   */
  worldMatrix<Out extends NumberArray>(i: number, out: Out, at?: number): Out;

  /**
   * Where entity i stands in the world: the last column of its matrix.
   *
   * @param out 2 numbers
   */
  worldPosition<Out extends NumberArray>(i: number, out: Out, at?: number): Out;
}

export interface CullingObjectsView extends BlockView<EngineComponent<CullingObjectHandle>> {}

/**
 * A batch of culling objects: 28 bytes each, see `layout.cullingObject`. Centre and radius count once the entity's world
 * matrix is computed anew, all else at once.
 */
export declare class CullingObjectsView {
  /** @param component what `createComponent(1, count)` made */
  constructor(component: EngineComponent<CullingObjectHandle>);

  /** Objects of the batch. */
  readonly count: number;

  /** The records as bytes; only `enabled` is one. */
  readonly u8: Uint8Array;

  /** Handle of object i, as culling reports it. */
  handle(i: number): CullingObjectHandle;

  /** Index in `u8` of the `enabled` byte of object i. */
  enabledAt(i: number): number;

  /** Index in `u32` of its mask. */
  maskAt(i: number): number;

  /** Index in `f32` of its centre: x, y, z. */
  centerAt(i: number): number;

  /** Index in `f32` of its radius. */
  radiusAt(i: number): number;

  /** Index in `u32` of the handle of its entity. */
  entityAt(i: number): number;

  /** Whether object i takes part. A fresh one does not. */
  enabled(i: number): boolean;

  /** Has object i take part, or not. */
  setEnabled(i: number, enabled: boolean): void;

  /** Layer bits of object i, unsigned. */
  mask(i: number): number;

  /**
   * Gives object i its layers.
   *
   * @param mask 32 bits, as an unsigned or a signed number: -1 is all layers
   */
  setMask(i: number, mask: number): void;

  /**
   * Centre of its sphere in the entity's space.
   *
   * @param out 3 numbers
   */
  center<Out extends NumberArray>(i: number, out: Out, at?: number): Out;

  /** Radius of its sphere in the entity's space. */
  radius(i: number): number;

  /** Gives object i its sphere, in the entity's space. */
  setSphere(i: number, x: number, y: number, z: number, radius: number): void;

  /** Handle of the entity that carries object i. */
  entity(i: number): Entity3DHandle;

  /** Has a 3D entity carry object i. */
  setEntity(i: number, handle: HandleLike<Entity3DHandle>): void;
}

/**
 * {@link Engine.cullingResult}: what the last call of `frustumCullingV2` or `orthoCullingV2` saw. A call that sees nothing
 * leaves the buffer as it was: `clear` ahead of a call, and an empty view reads as one.
 *
 * Native code replaces the buffer when a result does not fit, and the memory of the old one is gone. Each access looks
 * whether that has happened and takes the new buffer, so keep this view, and no array of it across calls.
 */
export declare class CullingResultView {
  /** @param engine is kept alive by the view */
  constructor(engine: Pick<Engine, 'cullingResult'>);

  /** Whose result it is. */
  readonly engine: Pick<Engine, 'cullingResult'>;

  /** The result as words: hash, count, then the handles from index 2 on. Valid until the next culling call. */
  readonly u32: Uint32Array;

  /** The same as floats: depths from index `distancesAt()` on. Valid until the next culling call. */
  readonly f32: Float32Array;

  /** Visible objects. */
  readonly count: number;

  /** Checksum of their handles in their order; while it stays the same, so do they. */
  readonly hash: number;

  /** Objects that the buffer has room for. */
  readonly capacity: number;

  /** Index in `f32` of the depths, which lie behind the handles: it moves with the count. */
  distancesAt(): number;

  /** Handle of the i-th visible object, nearest first. Throws a RangeError if there is none. */
  object(i: number): CullingObjectHandle;

  /** Its depth: the distance from the eye along the view. Throws a RangeError if there is none. */
  distance(i: number): number;

  /**
   * Copies the handles of all visible objects.
   *
   * @param out `count` numbers
   */
  objects<Out extends number[] | Uint32Array>(out: Out, at?: number): Out;

  /** Makes the result empty, so that a call that sees nothing reads as such. */
  clear(): void;
}

/**
 * The answer of `frustumCulling`, `cullWithCamera` or `orthoCulling`, whose buffers are its own and stay valid. Made anew
 * for each answer; where that is too much, use the V2 methods and a {@link CullingResultView}.
 */
export declare class CullingAnswerView {
  /** @param answer null is an empty one */
  constructor(answer: CullingAnswer | null);

  /** Handles of the visible objects, nearest first. */
  readonly objects: Uint32Array;

  /** Depth of each. */
  readonly distances: Float32Array;

  /** Checksum of the handles in their order. */
  readonly hash: number;

  /** Visible objects. */
  readonly count: number;

  /** What keeps the memory. */
  readonly answer: CullingAnswer | null;

  /** Handle of the i-th visible object, nearest first. Throws a RangeError if there is none. */
  object(i: number): CullingObjectHandle;

  /** Its depth: the distance from the eye along the view. Throws a RangeError if there is none. */
  distance(i: number): number;
}

export interface AnimatorView extends BlockView<EngineComponent<AnimatorHandle>> {}

/**
 * An animator: what plays of each of its clips, and the entities that they move, see `layout.animator`. Every record must
 * name a living clip ahead of an update, whatever its weight, or the process ends.
 *
 * The block names clips and entities by handle and keeps nothing alive: keep the objects.
 */
export declare class AnimatorView {
  /**
   * @param component what `createComponent(2, clipCount, entityCount)` made
   * @param clipCount the one that it was made with
   */
  constructor(component: EngineComponent<AnimatorHandle>, clipCount: number);

  /** Clips that it can play at once. */
  readonly clipCount: number;

  /** Entries of the target table. */
  readonly entityCount: number;

  /** Index in `u32` of the handle of clip i. */
  clipHandleAt(i: number): number;

  /** Index in `f32` of its time. */
  clipTimeAt(i: number): number;

  /** Index in `f32` of its weight. */
  clipWeightAt(i: number): number;

  /** Index in `u32` of entry k of the target table. */
  targetAt(k: number): number;

  /** Handle of clip i. */
  clipHandle(i: number): ClipHandle;

  /** Its time in frames. */
  clipTime(i: number): number;

  /** Its weight. */
  clipWeight(i: number): number;

  /** Has clip i be another one. */
  setClipHandle(i: number, handle: HandleLike<ClipHandle>): void;

  /**
   * Moves clip i to a time.
   *
   * @param time frames; wraps at the clip's length
   */
  setClipTime(i: number, time: number): void;

  /**
   * Gives clip i its share.
   *
   * @param weight the clip takes part if 0 < weight <= 1
   */
  setClipWeight(i: number, weight: number): void;

  /**
   * Says what plays of clip i.
   *
   * @param handle of the clip
   * @param time frames; wraps at the clip's length
   * @param weight the clip takes part if 0 < weight <= 1
   */
  setClip(i: number, handle: HandleLike<ClipHandle>, time: number, weight: number): void;

  /** Handle of the entity in entry k of the target table. */
  target(k: number): EntityHandle;

  /**
   * Has entry k of the target table name an entity.
   *
   * @param k entry of the target table: those of all clips end to end, in their order
   */
  setTarget(k: number, handle: HandleLike<EntityHandle>): void;

  /**
   * Fills the target table from an entry on.
   *
   * @param handles of entities
   * @param from entry, 0 if left out
   */
  setTargets(handles: HandleArray<EntityHandle>, from?: number): void;
}

export interface SkinningView extends BlockView<EngineComponent<SkinningHandle>> {}

/**
 * A skinning component: a matrix for each bone, see `layout.skinning`. Its bones are all 3D or all 2D. The inverse bind
 * matrices and the entities must be there ahead of an update, or the process ends.
 */
export declare class SkinningView {
  /**
   * @param component what `createComponent(3, count)` made
   * @param is3D the kind of the bones' entities; 3D if left out
   */
  constructor(component: EngineComponent<SkinningHandle>, is3D?: boolean);

  /** Bones. */
  readonly count: number;

  /** Whether its bones are 3D. */
  readonly is3D: boolean;

  /** Floats of a result: 16 for 3D bones, 9 for 2D ones. */
  readonly matrixFloats: number;

  /** All results, back to back, as native code writes them. */
  readonly results: Float32Array;

  /** Handle of the inverse bind matrices. */
  bonesModel(): BonesHandle;

  /**
   * Names the inverse bind matrices.
   *
   * @param handle what `createDataModel(2, …)` made
   */
  setBonesModel(handle: HandleLike<BonesHandle>): void;

  /** Index in `u32` of the number of the matrix of bone i. */
  matrixIndexAt(i: number): number;

  /** Index in `u32` of the handle of its entity. */
  entityAt(i: number): number;

  /** Index in `f32` of its result. */
  resultAt(i: number): number;

  /** Number of the inverse bind matrix of bone i. */
  matrixIndex(i: number): number;

  /** A bone whose number lies past the model gets no result. */
  setMatrixIndex(i: number, index: number): void;

  /** Handle of the entity of bone i. */
  entity(i: number): EntityHandle;

  /** Has an entity carry bone i. */
  setEntity(i: number, handle: HandleLike<EntityHandle>): void;

  /**
   * Says which matrix and which entity bone i has.
   *
   * @param index number of its inverse bind matrix
   * @param handle of its entity
   */
  setBone(i: number, index: number, handle: HandleLike<EntityHandle>): void;

  /**
   * World matrix × inverse bind matrix of bone i, column-major, as of the last update.
   *
   * @param out 16 numbers, or 9 where bones are 2D
   */
  result<Out extends NumberArray>(i: number, out: Out, at?: number): Out;
}

export interface ControllerView extends BlockView<EngineAnimatorControllerModel> {}

/** A controller: its binding and its layers, from the base up, see `layout.controller`. */
export declare class ControllerView {
  /** @param model what `createAnimatorControllerModel(layerCount)` made */
  constructor(model: EngineAnimatorControllerModel);

  /** Layers, from the base up. */
  readonly layerCount: number;

  /** Handle of the binding. */
  bindingHandle(): BindingHandle;

  /**
   * Names the binding.
   *
   * @param handle of a binding; with `layout.handles.none` nothing plays
   */
  setBindingHandle(handle: HandleLike<BindingHandle>): void;

  /** Index in `u32` of the blend mode of layer i. */
  blendModeAt(i: number): number;

  /** Index in `f32` of its weight. */
  layerWeightAt(i: number): number;

  /** Index in `u32` of the handle of its first state. */
  firstStateAt(i: number): number;

  /** One of `layout.layerBlendModes`; any larger number is off. */
  blendMode(i: number): number;

  /**
   * Has layer i replace what is below, add to it, or be off.
   *
   * @param mode one of `layout.layerBlendModes`
   */
  setBlendMode(i: number, mode: number): void;

  /** Weight of layer i. */
  layerWeight(i: number): number;

  /** Gives layer i its weight. An override layer of weight 0 holds its entities at rest: turn it off by its mode. */
  setLayerWeight(i: number, weight: number): void;

  /** Handle of the first state of the chain of layer i. */
  firstState(i: number): StateHandle;

  /**
   * Has the chain of layer i begin at another state.
   *
   * @param handle of a state; with `layout.handles.none` the layer is empty
   */
  setFirstState(i: number, handle: HandleLike<StateHandle>): void;

  /**
   * Says all of layer i.
   *
   * @param mode one of `layout.layerBlendModes`
   * @param weight of the layer
   * @param firstState handle of a state, or `layout.handles.none`
   */
  setLayer(i: number, mode: number, weight: number, firstState: HandleLike<StateHandle>): void;
}

export interface ControllerStateView extends BlockView<EngineAnimatorControllerStateModel> {}

/**
 * A state of a layer: its weight, the state behind it, and what plays of its clips, see `layout.controllerState`. A chain
 * of states that loops is followed for ever.
 */
export declare class ControllerStateView {
  /** @param model what `createAnimatorControllerStateModel(clipCount)` made */
  constructor(model: EngineAnimatorControllerStateModel);

  /** Clips that it can play at once. */
  readonly clipCount: number;

  /** Weight of the state in its layer. */
  weight(): number;

  /**
   * Gives the state its share of the layer.
   *
   * @param weight 0 skips the state
   */
  setWeight(weight: number): void;

  /** Whether rest poses are brought in. */
  fillDefaults(): boolean;

  /** Has rest poses brought in, or not. */
  setFillDefaults(fill: boolean): void;

  /** Handle of the next state of the layer. */
  nextState(): StateHandle;

  /**
   * Has another state follow in the layer.
   *
   * @param handle of a state; `layout.handles.none` ends the chain
   */
  setNextState(handle: HandleLike<StateHandle>): void;

  /** Index in `u32` of the handle of clip i. */
  clipHandleAt(i: number): number;

  /** Index in `f32` of its time. */
  clipTimeAt(i: number): number;

  /** Index in `f32` of its weight. */
  clipWeightAt(i: number): number;

  /** Index in `u32` of the handle of its reference. */
  referenceClipAt(i: number): number;

  /** Index in `f32` of the time of its reference. */
  referenceTimeAt(i: number): number;

  /** Handle of clip i. */
  clipHandle(i: number): ClipHandle;

  /** Has clip i be another one. */
  setClipHandle(i: number, handle: HandleLike<ClipHandle>): void;

  /** Its time in frames. */
  clipTime(i: number): number;

  /**
   * Moves clip i to a time.
   *
   * @param time frames; wraps at the clip's length
   */
  setClipTime(i: number, time: number): void;

  /** Its weight. */
  clipWeight(i: number): number;

  /**
   * Gives clip i its share of the state.
   *
   * @param weight 0 skips the clip; it is not clamped
   */
  setClipWeight(i: number, weight: number): void;

  /**
   * Says what plays of clip i.
   *
   * @param handle of the clip
   * @param time frames; wraps at the clip's length
   * @param weight 0 skips the clip; it is not clamped
   */
  setClip(i: number, handle: HandleLike<ClipHandle>, time: number, weight: number): void;

  /** Additive layers: handle of the clip whose pose is taken away. */
  referenceClip(i: number): ClipHandle;

  /** Additive layers: frame of that clip. */
  referenceTime(i: number): number;

  /**
   * Additive layers: says which pose is taken away.
   *
   * @param handle of the clip
   * @param time frames
   */
  setReference(i: number, handle: HandleLike<ClipHandle>, time: number): void;
}

/**
 * A count and that many handles, as {@link Engine.updateAnimators}, {@link Engine.updateAnimatorControllers},
 * {@link Engine.updateSkinningMatrices} and the last argument of culling calls take them: hand over `list.buffer`. A
 * culling call refuses an empty list. The buffer is script's own, and free to be used again when the call is over.
 *
 * @typeParam H kind of its handles; any if left out
 */
export declare class HandleList<H extends number = number> {
  /**
   * @param capacity most handles that it will hold
   * @throws TypeError or RangeError for what is no count
   */
  constructor(capacity: number);

  /** A list of as many handles as there are. */
  static from<H extends number = number>(values: HandleArray<H>): HandleList<H>;

  /** What calls take. */
  readonly buffer: ArrayBuffer;

  /** The same as words: the count, then the handles. */
  readonly u32: Uint32Array;

  /** Most handles that it holds. */
  readonly capacity: number;

  /** Handles in the list. */
  readonly count: number;

  /** The i-th handle. Throws a RangeError if there is none. */
  handle(i: number): H;

  /** Throws a RangeError if the list is full. */
  append(handle: HandleLike<H>): void;

  /** Empties the list. */
  clear(): void;
}

/**
 * The mask of a controller's layer: a weight for each of some entities; all others keep 1. 8 bytes an entry, see
 * `layout.controllerMask`. `apply` copies it, so one mask does for many layers.
 */
export declare class MaskView {
  /** @param count entries; a fresh one names no entity and has weight 0 */
  constructor(count: number);

  /** Entries. */
  readonly count: number;

  /** The entries, 8 bytes each; of no entries one all the same. */
  readonly buffer: ArrayBuffer;

  /** The entries as words. */
  readonly u32: Uint32Array;

  /** The entries as floats. */
  readonly f32: Float32Array;

  /**
   * Gives an entity its weight.
   *
   * @param entity handle; of several entries for one the first counts
   * @param weight 0 keeps the layer off the entity
   */
  set(i: number, entity: HandleLike<EntityHandle>, weight: number): void;

  /** Handle of the entity of entry i. */
  entity(i: number): EntityHandle;

  /** Its weight. */
  weight(i: number): number;

  /** Gives a layer this mask, by `setMaskAtIndex`. A mask of no entries unmasks it. */
  apply(controller: Pick<EngineAnimatorControllerModel, 'setMaskAtIndex'>, layer: number): void;
}

/** The targets of a clip: what its target k moves is entry k. */
export interface TargetGroup {
  /** Handle of a clip. */
  readonly clip: HandleLike<ClipHandle>;
  /** Handles of 3D entities; `layout.handles.none` for a target that moves nothing. */
  readonly entities: HandleArray<Entity3DHandle>;
}

/**
 * Target lists of a binding: for each clip its handle, and the entity that each of its targets moves. See
 * `layout.targetLists`. Fresh targets name nothing.
 *
 * A binding keeps to the `targetWords` of its creation: longer lists are refused later on. For lists that will grow, give
 * `spareWords`, and as many in later calls.
 */
export declare class TargetListsView {
  /**
   * @param counts targets of each clip
   * @param spareWords further words that lists may grow by; 0 if left out
   * @throws TypeError or RangeError for what are no counts
   */
  constructor(counts: readonly number[], spareWords?: number);

  /**
   * A view of lists that stand in a buffer.
   *
   * @param byteOffset a multiple of 4
   * @throws RangeError for lists that go on behind the buffer or `targetWords`
   */
  static over(
    buffer: PlainBuffer,
    byteOffset: number,
    clipCount: number,
    targetWords: number
  ): TargetListsView;

  /**
   * Lists of these clips and entities.
   *
   * @param spareWords further words that lists may grow by; 0 if left out
   */
  static from(groups: readonly TargetGroup[], spareWords?: number): TargetListsView;

  /** What the lists stand in. */
  readonly buffer: ArrayBuffer;

  /** Where the lists start in the buffer. */
  readonly byteOffset: number;

  /** Clips listed. */
  readonly clipCount: number;

  /** Words of all groups, spare ones included. */
  readonly targetWords: number;

  /** The lists as words. */
  readonly u32: Uint32Array;

  /** Handle of clip i. */
  clip(i: number): ClipHandle;

  /**
   * Names clip i.
   *
   * @param handle of a living clip; of one that is listed twice the first list counts
   */
  setClip(i: number, handle: HandleLike<ClipHandle>): void;

  /** Targets of clip i. */
  targetCount(i: number): number;

  /** Handle of the entity that target k of clip i moves, or `layout.handles.none`. */
  target(i: number, k: number): Entity3DHandle;

  /**
   * Has target k of clip i move another entity.
   *
   * @param handle of a 3D entity, or `layout.handles.none`
   */
  setTarget(i: number, k: number, handle: HandleLike<Entity3DHandle>): void;

  /**
   * Makes a binding of these lists, by {@link Engine.createAnimationClipBinding}.
   *
   * @param mode one of `layout.addedModes`; rest poses are taken if left out
   */
  createBinding(
    engine: Pick<Engine, 'createAnimationClipBinding'>,
    mode?: number
  ): EngineAnimationClipBinding;

  /**
   * Gives a binding these lists for its old ones, by {@link EngineAnimationClipBinding.updateBinding}.
   *
   * @param removedMode one of `layout.removedModes`
   * @param keptMode one of `layout.keptModes`
   * @param addedMode one of `layout.addedModes`
   * @returns whether they were accepted
   */
  updateBinding(
    binding: Pick<EngineAnimationClipBinding, 'updateBinding'>,
    removedMode: number,
    keptMode: number,
    addedMode: number
  ): boolean;
}
