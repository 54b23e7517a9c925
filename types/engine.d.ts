// The objects of the native module: an engine, and all that it makes.
import type {
  AnimatorHandle,
  BindingHandle,
  BonesHandle,
  ClipHandle,
  CommandBufferHandle,
  ComponentHandle,
  ControllerHandle,
  CullingObjectHandle,
  DataModelHandle,
  Entity2DHandle,
  Entity3DHandle,
  EntityHandle,
  HandleLike,
  MemoryID,
  SkinningHandle,
  StateHandle,
} from './handles';

/**
 * What all objects have that come with a block of memory which script and native code share.
 *
 * **Keep the object as long as you use its buffer or its handle**: when it is collected, what it stands for is
 * released, its handle is used again, and the buffer's memory is handed out for something else.
 *
 * @typeParam H kind of its handle
 */
export interface SharedBlock<H extends number = number> {
  /** Handle of the object, for a batch that of element 0. 0 if nothing was made; the rest is then missing. */
  readonly id: H;
  /**
   * The block, little-endian and all zero at first; script and native code read and write the same bytes. Missing
   * where `id` is 0. Don't transfer it to another thread.
   */
  readonly buffer?: ArrayBuffer;
  /** Number of the block for MatrixFlow. Missing where `id` is 0. */
  readonly memoryID?: MemoryID;
}

/**
 * What calls take that want an `ArrayBuffer` and no view: of a typed array they would see nothing. For the compiler
 * alone a typed array is an `ArrayBuffer`, too.
 */
export type PlainBuffer = ArrayBuffer & { readonly buffer?: undefined };

/**
 * A batch of entities, made by {@link Engine.createEntity}. Records are 108 bytes each in 3D (`layout.entity3D`) and 56
 * in 2D (`layout.entity2D`), back to back in `buffer`; entity i has the handle `id + i`. A fresh record is all zeros,
 * also its scale.
 *
 * When the object is collected, its entities go: children survive without a parent.
 *
 * @typeParam H kind of its handle: 2D or 3D
 */
export interface EngineEntity<H extends EntityHandle = EntityHandle> extends SharedBlock<H> {}

/**
 * Culling objects, an animator or a skinning component, made by {@link Engine.createComponent}. For the bytes of
 * `buffer` see `layout.cullingObject` (28 an object), `layout.animator` (12 a clip and 4 an entity) and
 * `layout.skinning` (4 and 72 a bone).
 *
 * @typeParam H kind of its handle: which of the three it is
 */
export interface EngineComponent<H extends ComponentHandle = ComponentHandle>
  extends SharedBlock<H> {}

/**
 * A clip or inverse bind matrices, made by {@link Engine.createDataModel}. It has a copy of the bytes, out of
 * script's reach.
 *
 * Components, bindings and states name it by `id` and keep nothing alive: keep it as long as they play. An animator with
 * a clip that is gone, and a skinning component without its matrices, end the process.
 *
 * @typeParam H kind of its handle: which of the two it is
 */
export interface EngineDataModel<H extends DataModelHandle = DataModelHandle> {
  /** Its handle, or 0 if there is no more room for handles. */
  readonly id: H;
}

/**
 * Which entity each target of each clip moves, and rest poses of entities, made by
 * {@link Engine.createAnimationClipBinding}. Controllers name it by `id`.
 */
export interface EngineAnimationClipBinding {
  /** Its handle; 0 if a count was 0. */
  readonly id: BindingHandle;

  /**
   * Replaces all target lists, which are read during the call only. An entity is *removed* if it has a rest pose and
   * is not in the new lists, *kept* if it has one and is, *added* if it has none and is. The modes act independently:
   *
   * | Mode | removed | kept | added |
   * |---|---|---|---|
   * | 0 | keeps its rest pose | keeps its rest pose | gets none |
   * | 1 | forgets it | takes a new one from its record | takes one from its record |
   * | 2 | rest pose written to the record; keeps it | rest pose written to the record; keeps it | gets none |
   * | 3 | written to the record; forgets it | takes a new one, then the old one is written | gets none |
   * | others without bit 1 (value 2) | forgets it | forgets it | gets none |
   * | others with bit 1 | written; forgets it | written; forgets it | gets none |
   *
   * Groups are bounded by the `targetWords` of creation, the buffer by those of the call: make a binding whose lists
   * will grow with room to spare.
   *
   * @param buffer no view: of one, nothing would be read
   * @param byteOffset bytes, where the lists start
   * @param clipCount clips listed
   * @param targetWords 32-bit words of all groups together
   * @param removedMode see `layout.removedModes`
   * @param keptMode see `layout.keptModes`
   * @param addedMode see `layout.addedModes`
   * @returns true if the lists were accepted; false, with nothing changed, if they go on behind the buffer or the bound,
   *   or name a clip that there is not
   */
  updateBinding(
    buffer: PlainBuffer,
    byteOffset: number,
    clipCount: number,
    targetWords: number,
    removedMode: number,
    keptMode: number,
    addedMode: number
  ): boolean;

  /** Does nothing. Put entities back by `updateBinding` with mode 2. */
  writeDefaultValues(): null;
}

/**
 * An animator controller: layers of states, from the base up, made by {@link Engine.createAnimatorControllerModel}.
 * `buffer` holds the handle of its binding and 12 bytes a layer, see `layout.controller`.
 */
export interface EngineAnimatorControllerModel extends SharedBlock<ControllerHandle> {
  /**
   * Evaluates this controller on the script thread. Trees under no root are left alone; otherwise as a batch of one by
   * {@link Engine.updateAnimatorControllers}.
   *
   * @param anything nobody looks at it
   * @param bytes nobody reads it, but without an `ArrayBuffer` here nothing happens
   */
  update(anything: unknown, bytes: PlainBuffer): null;

  /**
   * Sets the mask of a layer: records of 8 bytes, a u32 entity handle and an f32 weight, see `layout.controllerMask`.
   * They are copied. Of several records for an entity the first counts; entities without one keep weight 1.
   *
   * Nothing happens, and nothing is said, for a layer that there is not and for a buffer that is too short.
   *
   * @param layer index, from 0
   * @param buffer no view; of one byte at least, also for a `count` of 0
   * @param byteOffset bytes, where the records start
   * @param count records; 0 unmasks the layer
   */
  setMaskAtIndex(layer: number, buffer: PlainBuffer, byteOffset: number, count: number): null;
}

/**
 * A state of a layer: a weighted set of clips, and the state behind it, made by
 * {@link Engine.createAnimatorControllerStateModel}. `buffer` holds 12 bytes and 20 a clip, see
 * `layout.controllerState`.
 */
export interface EngineAnimatorControllerStateModel extends SharedBlock<StateHandle> {}

/**
 * A stream of arithmetic on shared memory, made by {@link EngineWithMatrixFlow.createMatrixFlowCommandBuffer} and
 * written by a {@link MatrixFlowWriter}. Untrusted streams must not be run.
 */
export interface EngineMatrixFlowCommandBuffer extends SharedBlock<CommandBufferHandle> {
  /**
   * Runs the stream from its start, on the script thread, until its end or the first command that fails. What was done
   * before stays done.
   *
   * @returns one of `matrixFlowResults`: 0 done; 1 no such command buffer; 2 the stream ends inside a command; 3 unknown
   *   command; 4 an operand does not fit its block, or the block is gone; 5 a scalar divisor below the smallest normal
   *   float
   */
  execute(): MatrixFlowResult;
}

/** What {@link EngineMatrixFlowCommandBuffer.execute} returns, by name in `matrixFlowResults`. */
export type MatrixFlowResult = 0 | 1 | 2 | 3 | 4 | 5;

/** What a culling call saw, in memory of its own that stays valid. See {@link CullingAnswerView}. */
export interface CullingAnswer {
  /** Handles of the visible objects, u32 each, nearest first. */
  readonly objects: ArrayBuffer;
  /**
   * Depth of each, f32, in the same order: the distance of the sphere's centre from the eye along the view. Negative for
   * one behind the eye that reaches over the near plane.
   */
  readonly distances: ArrayBuffer;
  /** Checksum of the handles in their order, u32: while it stays the same, so do they. */
  readonly hash: number;
}

/**
 * An engine: entities, culling and animation with memory, handles and four worker threads of its own. Made by
 * {@link getEngine}.
 *
 * All methods are called on the thread that made it, and are over when they return. None checks its arguments: what a
 * wrong one does, from nothing to the end of the process, {@link checked} tells in words.
 *
 * Keep it as long as `cullingResult` is in use; entities and all else that it made outlive it.
 */
export interface Engine {
  /**
   * The list of entities whose records script wrote, 49,152 bytes: a u32 count N, at most 12,287, and N handles. See
   * {@link DirtyListWriter}. Append behind what stands there: native code lists entities, too.
   */
  readonly dirtyEntities: ArrayBuffer;

  /**
   * The stream of structural changes, 49,152 bytes: a u32 length of at most 49,148 bytes, and the commands. See
   * {@link EntityCommandWriter}.
   */
  readonly entityCommands: ArrayBuffer;

  /**
   * The last result of the V2 culling methods, 8008 bytes at first. **Replaced by a larger one when a result does not
   * fit**; the memory of the old one is then gone. See {@link CullingResultView}, which fetches it anew.
   */
  readonly cullingResult: ArrayBuffer;

  /**
   * Makes a batch of 3D entities under one handle.
   *
   * @param is3D true
   * @param count 1 to 4095; 0 counts as 1
   * @returns with `id` 0 and no buffer for any other count, and where no handle is left
   */
  createEntity(is3D: true, count?: number): EngineEntity<Entity3DHandle>;
  /**
   * Makes a batch of 2D entities under one handle.
   *
   * @param is3D false, also if left out
   * @param count 1 to 4095; 0 counts as 1
   * @returns with `id` 0 and no buffer for any other count, and where no handle is left
   */
  createEntity(is3D?: false, count?: number): EngineEntity<Entity2DHandle>;
  /**
   * Makes a batch of entities under one handle.
   *
   * @param is3D true for 3D, false for 2D
   * @param count 1 to 4095; 0 counts as 1
   * @returns with `id` 0 and no buffer for any other count, and where no handle is left
   */
  createEntity(is3D: boolean, count?: number): EngineEntity;

  /**
   * Makes a batch of culling objects under one handle.
   *
   * @param kind 1: `layout.componentKinds.culling`
   * @param count culling objects, 1 to 4095; 0 counts as 1
   * @returns with `id` 0 and no buffer for any other count, and where no handle is left
   */
  createComponent(kind: 1, count?: number): EngineComponent<CullingObjectHandle>;
  /**
   * Makes an animator.
   *
   * @param kind 2: `layout.componentKinds.animator`
   * @param clipCount clips that it can play at once, from 1
   * @param entityCount entries of its target table, from 1: the targets of all those clips together
   * @returns with `id` 0 and no buffer where a count is 0
   */
  createComponent(kind: 2, clipCount: number, entityCount: number): EngineComponent<AnimatorHandle>;
  /**
   * Makes a skinning component.
   *
   * @param kind 3: `layout.componentKinds.skinning`
   * @param count bones, from 1
   * @returns with `id` 0 and no buffer where the count is 0
   */
  createComponent(kind: 3, count: number): EngineComponent<SkinningHandle>;

  /**
   * Makes a clip over a copy of bytes.
   *
   * @param kind 1: `layout.dataModelKinds.clip`
   * @param data a clip, as {@link buildClip} writes it. It is trusted, and looked at when it is first used: some that
   *   are wrong end the process then
   */
  createDataModel(kind: 1, data: ArrayBuffer | ArrayBufferView): EngineDataModel<ClipHandle>;
  /**
   * Makes the inverse bind matrices of a skeleton over a copy of bytes.
   *
   * @param kind 2: `layout.dataModelKinds.bones`
   * @param data inverse bind matrices: 64 bytes a bone, 16 floats column by column
   */
  createDataModel(kind: 2, data: ArrayBuffer | ArrayBufferView): EngineDataModel<BonesHandle>;

  /**
   * Binds clips to 3D entities, for controllers. The lists are read during the call only: `clipCount` handles of clips,
   * then for each of them a group: a u32 count n and n entity handles, of which entry k is what target k moves, or
   * `layout.handles.none`. See `layout.targetLists` and {@link TargetListsView}, which makes them.
   *
   * A clip that there is not, or a group that runs past `targetWords`, makes a binding that binds nothing.
   *
   * @param buffer no view
   * @param byteOffset bytes, where the lists start
   * @param clipCount clips listed
   * @param targetWords 32-bit words of all groups together; later lists are held against it as well
   * @param mode 1 takes rest poses from the records as they stand, any other number takes none: controllers then animate
   *   nothing. See `layout.addedModes`
   * @returns with `id` 0 where a count is 0; null for a buffer that ends ahead of the lists
   */
  createAnimationClipBinding(
    buffer: PlainBuffer,
    byteOffset: number,
    clipCount: number,
    targetWords: number,
    mode: number
  ): EngineAnimationClipBinding | null;

  /**
   * Makes a controller. Its fresh layers are in override mode, of weight 0, and have no states.
   *
   * @param layerCount from 1; with 0, the result has `id` 0 and no buffer
   */
  createAnimatorControllerModel(layerCount: number): EngineAnimatorControllerModel;

  /**
   * Makes a state for layers of controllers, of weight 0.
   *
   * @param clipCount from 1; with 0, the result has `id` 0 and no buffer
   */
  createAnimatorControllerStateModel(clipCount: number): EngineAnimatorControllerStateModel;

  /**
   * Names one entity. Nothing happens for a handle that names none, and for an empty name.
   *
   * @param handle the element's own: `id + i`
   * @param name not empty
   */
  setEntityName(handle: HandleLike<EntityHandle>, name: string): null;

  /**
   * Runs and empties `entityCommands`, rebuilds the local matrices of what `dirtyEntities` lists and empties that, too,
   * then brings the world matrices of all trees under roots up to date. Long lists are worked on by the worker threads,
   * while script waits.
   *
   * Call it after players ({@link Engine.updateAnimators}) and ahead of skinning and culling. Entities that follow a
   * bone are listed in `dirtyEntities` for the next call.
   */
  refreshWorldTransform(): null;

  /** The same as {@link Engine.frustumCulling}. */
  cullWithCamera(
    mask: number,
    eyeX: number,
    eyeY: number,
    eyeZ: number,
    targetX: number,
    targetY: number,
    targetZ: number,
    upX: number,
    upY: number,
    upZ: number,
    fov: number,
    aspect: number,
    near: number,
    far: number,
    list?: PlainBuffer
  ): CullingAnswer | null;

  /**
   * Which culling objects a perspective camera sees. An object takes part if it is enabled, its mask meets the call's,
   * and its entity is a 3D one that is there. A sphere that touches the view is in it.
   *
   * @param mask layers, 32 bits
   * @param eyeX eye, in the world
   * @param eyeY
   * @param eyeZ
   * @param targetX a point that the camera looks at
   * @param targetY
   * @param targetZ
   * @param upX up, of any length, not along the view
   * @param upY
   * @param upZ
   * @param fov vertical angle from bottom to top, radians
   * @param aspect width over height
   * @param near distance along the view
   * @param far distance along the view
   * @param list a u32 count, at least 1, and that many handles of culling objects, to test no others. No view: that is
   *   ignored, and all objects are tested. See {@link HandleList}
   * @returns null if nothing is visible, or the list is refused: it has no handles, or less than its count
   */
  frustumCulling(
    mask: number,
    eyeX: number,
    eyeY: number,
    eyeZ: number,
    targetX: number,
    targetY: number,
    targetZ: number,
    upX: number,
    upY: number,
    upZ: number,
    fov: number,
    aspect: number,
    near: number,
    far: number,
    list?: PlainBuffer
  ): CullingAnswer | null;

  /**
   * The same as {@link Engine.frustumCulling}, into `cullingResult`, with nothing made anew. If nothing is visible,
   * `cullingResult` stays as it was: set its count (word 1) to 0 ahead of the call, or `clear` a
   * {@link CullingResultView}.
   *
   * @returns true if `cullingResult` was replaced by a larger one, whose predecessor must not be touched any more; false
   *   if not; null if the list is refused
   */
  frustumCullingV2(
    mask: number,
    eyeX: number,
    eyeY: number,
    eyeZ: number,
    targetX: number,
    targetY: number,
    targetZ: number,
    upX: number,
    upY: number,
    upZ: number,
    fov: number,
    aspect: number,
    near: number,
    far: number,
    list?: PlainBuffer
  ): boolean | null;

  /**
   * Which culling objects an orthographic camera sees; see {@link Engine.frustumCulling} for what is not told here.
   *
   * @param mask layers, 32 bits
   * @param eyeX eye, in the world
   * @param eyeY
   * @param eyeZ
   * @param targetX a point that the camera looks at
   * @param targetY
   * @param targetZ
   * @param upX up, of any length, not along the view
   * @param upY
   * @param upZ
   * @param left from the camera's axis, usually negative
   * @param right from the camera's axis
   * @param bottom from the camera's axis, usually negative
   * @param top from the camera's axis
   * @param near distance along the view
   * @param far distance along the view
   * @param list culling objects to test, as an `ArrayBuffer`
   * @returns null if nothing is visible, or the list is refused
   */
  orthoCulling(
    mask: number,
    eyeX: number,
    eyeY: number,
    eyeZ: number,
    targetX: number,
    targetY: number,
    targetZ: number,
    upX: number,
    upY: number,
    upZ: number,
    left: number,
    right: number,
    bottom: number,
    top: number,
    near: number,
    far: number,
    list?: PlainBuffer
  ): CullingAnswer | null;

  /**
   * The same as {@link Engine.orthoCulling}, into `cullingResult`, as {@link Engine.frustumCullingV2} does.
   *
   * @returns true if `cullingResult` was replaced by a larger one; false if not; null if the list is refused
   */
  orthoCullingV2(
    mask: number,
    eyeX: number,
    eyeY: number,
    eyeZ: number,
    targetX: number,
    targetY: number,
    targetZ: number,
    upX: number,
    upY: number,
    upZ: number,
    left: number,
    right: number,
    bottom: number,
    top: number,
    near: number,
    far: number,
    list?: PlainBuffer
  ): boolean | null;

  /**
   * Samples and blends the clips of one animator into the records of its entities, on the script thread. They need not
   * be listed as dirty. Nothing happens for a handle that names none; a record without a living clip ends the process.
   */
  updateAnimator(handle: HandleLike<AnimatorHandle>): null;

  /**
   * Does as {@link Engine.updateAnimator} for many, on the worker threads, while script waits. No entity may be moved by
   * two of them, nor a tree under no root by two: nothing guards against that.
   *
   * @param handles a u32 count and that many handles, see {@link HandleList}. A count beyond the buffer does nothing at
   *   all; what is no buffer ends the process
   */
  updateAnimators(handles: ArrayBuffer | ArrayBufferView): null;

  /**
   * Evaluates controllers into the records of the entities of their bindings, on the worker threads, while script waits;
   * a single one on the script thread. No two may share a binding, an entity or a tree under no root.
   *
   * @param handles a u32 count and that many handles, see {@link HandleList}. A count beyond the buffer does nothing at
   *   all; what is no buffer ends the process
   */
  updateAnimatorControllers(handles: ArrayBuffer | ArrayBufferView): null;

  /**
   * Computes world matrix × inverse bind matrix for each bone of one skinning component, on the script thread. Nothing
   * happens for a handle that names none; without its matrices, or an entity, the process ends.
   */
  updateSkinningMatrix(handle: HandleLike<SkinningHandle>): null;

  /**
   * Does as {@link Engine.updateSkinningMatrix} for many, on the worker threads, while script waits.
   *
   * @param handles a u32 count and that many handles, see {@link HandleList}. A count beyond the buffer does nothing at
   *   all; what is no buffer ends the process
   */
  updateSkinningMatrices(handles: ArrayBuffer | ArrayBufferView): null;
}

/** An engine of the build with command buffers, see {@link loadMatrixFlow}. */
export interface EngineWithMatrixFlow extends Engine {
  /**
   * Makes a command buffer.
   *
   * @param size bytes: 4 and those of its commands, for good
   * @returns with `id` 0 and no buffer for a size of 0, and where no handle is left
   */
  createMatrixFlowCommandBuffer(size: number): EngineMatrixFlowCommandBuffer;
}
