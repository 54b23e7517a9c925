// The objects of the native module: an engine, and the objects that it creates.
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
 * An object with a block of memory that JavaScript and native code share.
 *
 * **Keep the object as long as you use its buffer or its handle**: when it is garbage-collected, what it represents
 * is released, its handle is reused, and the buffer's memory is allocated for something else.
 *
 * @typeParam H type of its handle
 */
export interface SharedBlock<H extends number = number> {
  /** Handle of the object; for a batch, of element 0. 0 if nothing was created; the other properties are then missing. */
  readonly id: H;
  /**
   * The block, little-endian and initially zero; JavaScript and native code read and write the same bytes. Missing if
   * `id` is 0. Don't transfer it to another thread.
   */
  readonly buffer?: ArrayBuffer;
  /** Number of the block for MatrixFlow. Missing if `id` is 0. */
  readonly memoryID?: MemoryID;
}

/**
 * A block of an engine in WebAssembly: a range of the memory that holds all blocks. Pass it where the native module
 * takes an `ArrayBuffer`. It is no `ArrayBuffer` itself: `new Float32Array(block)` throws.
 *
 * Use the typed arrays as long as the block's object: when that is garbage-collected or disposed of, the memory is
 * used for something else. The block keeps its object alive; the typed arrays do not.
 */
export interface WasmBlock {
  /** The memory of the whole engine. */
  readonly buffer: ArrayBuffer;
  /** Where the block starts in it. */
  readonly byteOffset: number;
  /** Bytes of the block. */
  readonly byteLength: number;
  /** The block as bytes. */
  readonly u8: Uint8Array;
  /** The block as words, without an incomplete last one. */
  readonly u32: Uint32Array;
  /** The same as floats. */
  readonly f32: Float32Array;
}

/** An object of an engine in WebAssembly. */
export type WasmObject<T> = T & {
  /** Its block, instead of `buffer`, which throws. Missing if `id` is 0, and on objects without memory of their own. */
  readonly block?: WasmBlock;
  /**
   * Releases the object at once, instead of when it is garbage-collected. Its handle and its block must not be used
   * any more. A second call does nothing.
   */
  dispose(): void;
};

/**
 * Parameter type of calls that accept an `ArrayBuffer` but no typed array, whose bytes they would not read. Without
 * it the compiler accepts a typed array as an `ArrayBuffer`.
 */
export type PlainBuffer = ArrayBuffer & { readonly buffer?: undefined };

/**
 * A batch of entities, created by {@link Engine.createEntity}. Their records, `layout.entity3D` or `layout.entity2D`,
 * are contiguous in `buffer`; entity i has the handle `id + i`. A new record is all zeros, including its scale.
 *
 * When the object is garbage-collected, its entities are released: their children survive without a parent.
 *
 * @typeParam H type of its handle: 2D or 3D
 */
export interface EngineEntity<H extends EntityHandle = EntityHandle> extends SharedBlock<H> {}

/**
 * Culling objects, an animator or a skinning component, created by {@link Engine.createComponent}. For the bytes of
 * `buffer` see `layout.cullingObject`, `layout.animator` and `layout.skinning`.
 *
 * @typeParam H type of its handle: which of the three it is
 */
export interface EngineComponent<H extends ComponentHandle = ComponentHandle>
  extends SharedBlock<H> {}

/**
 * A clip or inverse bind matrices, created by {@link Engine.createDataModel}. It holds a native copy of the bytes,
 * not accessible from JavaScript.
 *
 * Components, bindings and states refer to it by `id` and don't keep it alive: keep it as long as they use it. An
 * animator whose clip was released, and a skinning component without its matrices, end the process.
 *
 * @typeParam H type of its handle: which of the two it is
 */
export interface EngineDataModel<H extends DataModelHandle = DataModelHandle> {
  /** Its handle, or 0 if no handle is left. */
  readonly id: H;
}

/**
 * Maps each target of each clip to an entity, and holds rest poses of entities. Created by
 * {@link Engine.createAnimationClipBinding}. Controllers refer to it by `id`.
 */
export interface EngineAnimationClipBinding {
  /** Its handle; 0 if a count was 0. */
  readonly id: BindingHandle;

  /**
   * Replaces all target lists, which are only read during the call. An entity is *removed* if it has a rest pose and
   * is not in the new lists, *kept* if it has one and is in them, *added* if it has none and is in them. The modes
   * are independent:
   *
   * | Mode | removed | kept | added |
   * |---|---|---|---|
   * | 0 | keeps its rest pose | keeps its rest pose | no rest pose |
   * | 1 | rest pose dropped | rest pose read again from its record | rest pose read from its record |
   * | 2 | rest pose written to the record, and kept | rest pose written to the record, and kept | no rest pose |
   * | 3 | written to the record, and dropped | read again, then the old one is written | no rest pose |
   * | others without bit 1 (value 2) | dropped | dropped | no rest pose |
   * | others with bit 1 | written, and dropped | written, and dropped | no rest pose |
   *
   * Groups must fit the `targetWords` of creation, the buffer those of the call: create a binding whose lists will
   * grow with spare words.
   *
   * @param buffer not a typed array, which would not be read
   * @param byteOffset byte offset of the lists
   * @param clipCount number of clips
   * @param targetWords 32-bit words of all groups
   * @param removedMode see `layout.removedModes`
   * @param keptMode see `layout.keptModes`
   * @param addedMode see `layout.addedModes`
   * @returns true if the lists were accepted; false, with nothing changed, if they extend beyond the buffer or the
   *   bound, or contain an unknown clip
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

  /** Does nothing. To restore rest poses, call `updateBinding` with mode 2. */
  writeDefaultValues(): null;
}

/**
 * An animator controller: layers of states, base layer first, created by
 * {@link Engine.createAnimatorControllerModel}. `buffer` holds the handle of its binding and 12 bytes per layer, see
 * `layout.controller`.
 */
export interface EngineAnimatorControllerModel extends SharedBlock<ControllerHandle> {
  /**
   * Evaluates this controller on the calling thread. It skips trees under no root; otherwise it is the same as a
   * batch of one in {@link Engine.updateAnimatorControllers}.
   *
   * @param anything ignored
   * @param bytes not read, but the call is ignored without an `ArrayBuffer` here
   */
  update(anything: unknown, bytes: PlainBuffer): null;

  /**
   * Sets the mask of a layer: records of 8 bytes, a u32 entity handle and an f32 weight, see `layout.controllerMask`.
   * They are copied. The first of several records for an entity applies; entities without one keep weight 1.
   *
   * Ignored, without a message, for an unknown layer and for a buffer that is too short.
   *
   * @param layer index, from 0
   * @param buffer not a typed array; at least one byte, also for a `count` of 0
   * @param byteOffset byte offset of the records
   * @param count number of records; 0 removes the mask
   */
  setMaskAtIndex(layer: number, buffer: PlainBuffer, byteOffset: number, count: number): null;
}

/**
 * A state of a layer: a weighted set of clips, and the next state of the chain. Created by
 * {@link Engine.createAnimatorControllerStateModel}. `buffer` holds 12 bytes, and 20 per clip, see
 * `layout.controllerState`.
 */
export interface EngineAnimatorControllerStateModel extends SharedBlock<StateHandle> {}

/**
 * A stream of arithmetic commands on shared memory, created by
 * {@link EngineWithMatrixFlow.createMatrixFlowCommandBuffer} and written by a {@link MatrixFlowWriter}. Never execute
 * untrusted streams.
 */
export interface EngineMatrixFlowCommandBuffer extends SharedBlock<CommandBufferHandle> {
  /**
   * Executes the stream from its start, on the calling thread, until its end or the first command that fails. Results
   * of earlier commands remain.
   *
   * @returns one of `matrixFlowResults`: 0 done; 1 no such command buffer; 2 the stream ends inside a command; 3
   *   unknown command; 4 an operand is out of bounds of its block, or there is no such block; 5 a scalar divisor
   *   below the smallest normal float
   */
  execute(): MatrixFlowResult;
}

/** Results of {@link EngineMatrixFlowCommandBuffer.execute}, named in `matrixFlowResults`. */
export type MatrixFlowResult = 0 | 1 | 2 | 3 | 4 | 5;

/** The result of a culling call, in its own memory that stays valid. See {@link CullingAnswerView}. */
export interface CullingAnswer {
  /** Handles of the visible objects, u32 each, nearest first. */
  readonly objects: ArrayBuffer;
  /**
   * Depth of each, f32, in the same order: the distance of the sphere's centre from the eye along the view direction.
   * Negative for a centre behind the eye whose sphere intersects the near plane.
   */
  readonly distances: ArrayBuffer;
  /** Checksum of the handles in order, u32: while it is unchanged, so are they. */
  readonly hash: number;
}

/**
 * An engine: entities, culling and animation, with its own memory, handles and four worker threads. Created by
 * {@link getEngine}.
 *
 * Call all methods on the thread that created it. They are synchronous. None checks its arguments: an invalid one may
 * be ignored or end the process. {@link checked} throws readable errors instead.
 *
 * Keep it as long as `cullingResult` is in use; entities and other objects that it created outlive it.
 */
export interface Engine {
  /**
   * The list of entities whose records JavaScript wrote: a count, and that many handles. See
   * `layout.dirtyEntityList` and {@link DirtyListWriter}. Append to the existing entries: native code lists entities,
   * too.
   */
  readonly dirtyEntities: ArrayBuffer;

  /**
   * The stream of structural changes: the length of all commands in bytes, and the commands. See
   * `layout.entityCommandStream` and {@link EntityCommandWriter}.
   */
  readonly entityCommands: ArrayBuffer;

  /**
   * The last result of the V2 culling methods, initially 8008 bytes. **Replaced by a larger one when a result does
   * not fit**; the memory of the old one is then freed. {@link CullingResultView} switches to the new one.
   */
  readonly cullingResult: ArrayBuffer;

  /**
   * Creates a batch of 3D entities.
   *
   * @param is3D true
   * @param count 1 to 4095; 0 means 1
   * @returns an object with `id` 0 and no buffer for any other count, or if no handle is left
   */
  createEntity(is3D: true, count?: number): EngineEntity<Entity3DHandle>;
  /**
   * Creates a batch of 2D entities.
   *
   * @param is3D false, the default
   * @param count 1 to 4095; 0 means 1
   * @returns an object with `id` 0 and no buffer for any other count, or if no handle is left
   */
  createEntity(is3D?: false, count?: number): EngineEntity<Entity2DHandle>;
  /**
   * Creates a batch of entities.
   *
   * @param is3D true for 3D, false for 2D
   * @param count 1 to 4095; 0 means 1
   * @returns an object with `id` 0 and no buffer for any other count, or if no handle is left
   */
  createEntity(is3D: boolean, count?: number): EngineEntity;

  /**
   * Creates a batch of culling objects.
   *
   * @param kind 1: `layout.componentKinds.culling`
   * @param count number of culling objects, 1 to 4095; 0 means 1
   * @returns an object with `id` 0 and no buffer for any other count, or if no handle is left
   */
  createComponent(kind: 1, count?: number): EngineComponent<CullingObjectHandle>;
  /**
   * Creates an animator.
   *
   * @param kind 2: `layout.componentKinds.animator`
   * @param clipCount number of clips that can play at once, from 1
   * @param entityCount number of entries in its target table, from 1: the targets of all those clips
   * @returns an object with `id` 0 and no buffer if a count is 0
   */
  createComponent(kind: 2, clipCount: number, entityCount: number): EngineComponent<AnimatorHandle>;
  /**
   * Creates a skinning component.
   *
   * @param kind 3: `layout.componentKinds.skinning`
   * @param count number of bones, from 1
   * @returns an object with `id` 0 and no buffer if the count is 0
   */
  createComponent(kind: 3, count: number): EngineComponent<SkinningHandle>;

  /**
   * Creates a clip from a copy of bytes.
   *
   * @param kind 1: `layout.dataModelKinds.clip`
   * @param data a clip, as {@link buildClip} writes it. It is trusted, and parsed on first use: some invalid ones end
   *   the process then
   */
  createDataModel(kind: 1, data: ArrayBuffer | ArrayBufferView): EngineDataModel<ClipHandle>;
  /**
   * Creates the inverse bind matrices of a skeleton from a copy of bytes.
   *
   * @param kind 2: `layout.dataModelKinds.bones`
   * @param data inverse bind matrices: 64 bytes per bone, 16 floats, column-major
   */
  createDataModel(kind: 2, data: ArrayBuffer | ArrayBufferView): EngineDataModel<BonesHandle>;

  /**
   * Binds clips to 3D entities, for controllers. The lists are only read during the call: `clipCount` handles of
   * clips, then a group per clip: a u32 count n and n entity handles, of which entry k is the entity that target k
   * moves, or `layout.handles.none`. See `layout.targetLists` and {@link TargetListsView}, which builds them.
   *
   * With an unknown clip, or a group that extends beyond `targetWords`, the binding is empty.
   *
   * @param buffer not a typed array
   * @param byteOffset byte offset of the lists
   * @param clipCount number of clips
   * @param targetWords 32-bit words of all groups, also the limit of later lists
   * @param mode 1 reads rest poses from the current records, any other number reads none: controllers then animate
   *   nothing. See `layout.addedModes`
   * @returns an object with `id` 0 if a count is 0; null for a buffer that is too short
   */
  createAnimationClipBinding(
    buffer: PlainBuffer,
    byteOffset: number,
    clipCount: number,
    targetWords: number,
    mode: number
  ): EngineAnimationClipBinding | null;

  /**
   * Creates a controller. Its layers are initially in override mode, of weight 0, and have no states.
   *
   * @param layerCount from 1; for 0, the result has `id` 0 and no buffer
   */
  createAnimatorControllerModel(layerCount: number): EngineAnimatorControllerModel;

  /**
   * Creates a state for layers of controllers, of weight 0.
   *
   * @param clipCount from 1; for 0, the result has `id` 0 and no buffer
   */
  createAnimatorControllerStateModel(clipCount: number): EngineAnimatorControllerStateModel;

  /**
   * Sets the name of one entity. Ignored for an unknown handle and for an empty name.
   *
   * @param handle handle of the element: `id + i`
   * @param name not empty
   */
  setEntityName(handle: HandleLike<EntityHandle>, name: string): null;

  /**
   * Executes and empties `entityCommands`, rebuilds the local matrices of the entities in `dirtyEntities` and empties
   * it, then updates the world matrices of all trees under roots. The worker threads process long lists, while the
   * call waits.
   *
   * Call it after animation ({@link Engine.updateAnimators}) and before skinning and culling. Entities that follow a
   * bone are appended to `dirtyEntities` for the next call.
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
   * Finds the culling objects that a perspective camera sees. An object is tested if it is enabled, its mask shares a
   * bit with the call's, and its entity is an existing 3D one. A sphere that touches the frustum is visible.
   *
   * @param mask layer mask, 32 bits
   * @param eyeX eye, in world space
   * @param eyeY
   * @param eyeZ
   * @param targetX a point that the camera looks at
   * @param targetY
   * @param targetZ
   * @param upX up vector, of any length, not parallel to the view direction
   * @param upY
   * @param upZ
   * @param fov full vertical angle, radians
   * @param aspect width / height
   * @param near distance along the view direction
   * @param far distance along the view direction
   * @param list a u32 count, at least 1, and that many handles of culling objects, to test only these. A typed array
   *   is ignored: all objects are tested. See {@link HandleList}
   * @returns null if nothing is visible, or the list is refused: it has no handles, or fewer than its count
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
   * The same as {@link Engine.frustumCulling}, into `cullingResult`, without allocating an object. If nothing is
   * visible, `cullingResult` is unchanged: set its count (word 1) to 0 before the call, or `clear` a
   * {@link CullingResultView}.
   *
   * @returns true if `cullingResult` was replaced by a larger one; the old one must no longer be accessed; false if
   *   not; null if the list is refused
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
   * Finds the culling objects that an orthographic camera sees; otherwise the same as {@link Engine.frustumCulling}.
   *
   * @param mask layer mask, 32 bits
   * @param eyeX eye, in world space
   * @param eyeY
   * @param eyeZ
   * @param targetX a point that the camera looks at
   * @param targetY
   * @param targetZ
   * @param upX up vector, of any length, not parallel to the view direction
   * @param upY
   * @param upZ
   * @param left from the camera's axis, usually negative
   * @param right from the camera's axis
   * @param bottom from the camera's axis, usually negative
   * @param top from the camera's axis
   * @param near distance along the view direction
   * @param far distance along the view direction
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
   * Samples and blends the clips of one animator into the records of its entities, on the calling thread. They need
   * not be listed as dirty. Ignored for an unknown handle; a record without an existing clip ends the process.
   */
  updateAnimator(handle: HandleLike<AnimatorHandle>): null;

  /**
   * The same as {@link Engine.updateAnimator} for many, on the worker threads, while the call waits. No two animators
   * may move the same entity, or entities of the same tree under no root: that is a data race, which is not checked.
   *
   * @param handles a u32 count and that many handles, see {@link HandleList}. The call is ignored if the count
   *   exceeds the buffer; any other type of argument ends the process
   */
  updateAnimators(handles: ArrayBuffer | ArrayBufferView): null;

  /**
   * Evaluates controllers into the records of the entities of their bindings, on the worker threads, while the call
   * waits; a single one on the calling thread. No two may share a binding, an entity or a tree under no root.
   *
   * @param handles a u32 count and that many handles, see {@link HandleList}. The call is ignored if the count
   *   exceeds the buffer; any other type of argument ends the process
   */
  updateAnimatorControllers(handles: ArrayBuffer | ArrayBufferView): null;

  /**
   * Computes world matrix × inverse bind matrix for each bone of one skinning component, on the calling thread.
   * Ignored for an unknown handle; a missing data model or entity ends the process.
   */
  updateSkinningMatrix(handle: HandleLike<SkinningHandle>): null;

  /**
   * The same as {@link Engine.updateSkinningMatrix} for many, on the worker threads, while the call waits.
   *
   * @param handles a u32 count and that many handles, see {@link HandleList}. The call is ignored if the count
   *   exceeds the buffer; any other type of argument ends the process
   */
  updateSkinningMatrices(handles: ArrayBuffer | ArrayBufferView): null;
}

/** An engine of the build with command buffers, see {@link loadMatrixFlow}. */
export interface EngineWithMatrixFlow extends Engine {
  /**
   * Creates a command buffer.
   *
   * @param size bytes, fixed: 4, and those of its commands
   * @returns an object with `id` 0 and no buffer for a size of 0, or if no handle is left
   */
  createMatrixFlowCommandBuffer(size: number): EngineMatrixFlowCommandBuffer;
}

/**
 * An engine in WebAssembly, created by `load` of `nq_logic/wasm`: the same methods and results as natively, on the
 * calling thread. Its objects have `block` instead of `buffer`.
 *
 * Where a call ends the process natively, it throws here, and so does every later call of the engine. Calls that
 * create objects throw a `RangeError` with code `ERR_NQ_MEMORY` when the memory is full.
 */
export interface WasmEngine
  extends Omit<
    EngineWithMatrixFlow,
    | 'dirtyEntities'
    | 'entityCommands'
    | 'cullingResult'
    | 'createEntity'
    | 'createComponent'
    | 'createDataModel'
    | 'createAnimationClipBinding'
    | 'createAnimatorControllerModel'
    | 'createAnimatorControllerStateModel'
    | 'createMatrixFlowCommandBuffer'
  > {
  /** See {@link Engine.dirtyEntities}. */
  readonly dirtyEntities: WasmBlock;
  /** See {@link Engine.entityCommands}. */
  readonly entityCommands: WasmBlock;
  /** See {@link Engine.cullingResult}. */
  readonly cullingResult: WasmBlock;
  /** See {@link Engine.createEntity}. */
  createEntity(is3D: true, count?: number): WasmObject<EngineEntity<Entity3DHandle>>;
  /** See {@link Engine.createEntity}. */
  createEntity(is3D?: false, count?: number): WasmObject<EngineEntity<Entity2DHandle>>;
  /** See {@link Engine.createEntity}. */
  createEntity(is3D: boolean, count?: number): WasmObject<EngineEntity>;
  /** See {@link Engine.createComponent}. */
  createComponent(kind: 1, count?: number): WasmObject<EngineComponent<CullingObjectHandle>>;
  /** See {@link Engine.createComponent}. */
  createComponent(
    kind: 2,
    clipCount: number,
    entityCount: number
  ): WasmObject<EngineComponent<AnimatorHandle>>;
  /** See {@link Engine.createComponent}. */
  createComponent(kind: 3, count: number): WasmObject<EngineComponent<SkinningHandle>>;
  /** See {@link Engine.createDataModel}. */
  createDataModel(
    kind: 1,
    data: ArrayBuffer | ArrayBufferView
  ): WasmObject<EngineDataModel<ClipHandle>>;
  /** See {@link Engine.createDataModel}. */
  createDataModel(
    kind: 2,
    data: ArrayBuffer | ArrayBufferView
  ): WasmObject<EngineDataModel<BonesHandle>>;
  /** See {@link Engine.createAnimationClipBinding}. */
  createAnimationClipBinding(
    buffer: PlainBuffer,
    byteOffset: number,
    clipCount: number,
    targetWords: number,
    mode: number
  ): WasmObject<EngineAnimationClipBinding> | null;
  /** See {@link Engine.createAnimatorControllerModel}. */
  createAnimatorControllerModel(layerCount: number): WasmObject<EngineAnimatorControllerModel>;
  /** See {@link Engine.createAnimatorControllerStateModel}. */
  createAnimatorControllerStateModel(
    clipCount: number
  ): WasmObject<EngineAnimatorControllerStateModel>;
  /** See {@link EngineWithMatrixFlow.createMatrixFlowCommandBuffer}. */
  createMatrixFlowCommandBuffer(size: number): WasmObject<EngineMatrixFlowCommandBuffer>;
  /** Drops the engine with all its objects and its memory. Later calls throw. */
  dispose(): void;
}

/** An engine of the native module, or in WebAssembly. */
export type AnyEngine = Engine | WasmEngine;
