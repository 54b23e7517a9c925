// Branded handle types: numbers at run time, distinct types for the compiler. Every handle type is assignable to
// number, but not to another handle type.

/** Brand of a handle type; there is no such property at run time. */
declare const kind: unique symbol;

/**
 * A number that identifies an object of the engine. Only the compiler knows its kind: all handles are 32-bit numbers,
 * numbered per kind, so that the first entity and the first clip are both 4096. A handle of another kind identifies
 * another object, or none, and native code can't detect that.
 *
 * Handles have no generation counter: after an object is released, its handle may be reused for a new object.
 *
 * @typeParam Kind what it identifies
 */
export type Handle<Kind extends string> = number & { readonly [kind]: Kind };

/** A number without a handle brand. */
export type PlainNumber = number & { readonly [kind]?: undefined };

/**
 * Parameter type for a handle: a handle of the right kind, or a plain number, such as an element's `id + i`, a word
 * read from a buffer, or `layout.handles.none`. The compiler rejects a handle of another kind.
 *
 * @typeParam H the kind of handle
 */
export type HandleLike<H extends number> = H | PlainNumber;

/**
 * Parameter type for several handles: a `Uint32Array`, whose words have no handle type, or an array of handles.
 *
 * @typeParam H the kind of handle
 */
export type HandleArray<H extends number> = Uint32Array | ReadonlyArray<HandleLike<H>>;

/**
 * An object that has a handle: one of the engine, a view of one, an element of a batch (`entities.element(i)`), or a
 * node of a scene.
 *
 * @typeParam H the kind of handle
 */
export type HandleOwner<H extends number> = { readonly id: H } | { readonly handle: H };

/**
 * Parameter type of setters that refer to an object: the object, which is then kept alive, or its handle.
 *
 * @typeParam H the kind of handle
 */
export type ObjectOrHandle<H extends number> = HandleLike<H> | HandleOwner<H>;

/**
 * The same for several: a `Uint32Array`, whose words have no handle type, or an array of objects and handles.
 *
 * @typeParam H the kind of handle
 */
export type ObjectOrHandleArray<H extends number> = Uint32Array | ReadonlyArray<ObjectOrHandle<H>>;

/** A 2D entity. Element i of a batch has the `id` of the batch + i. */
export type Entity2DHandle = Handle<'2D entity'>;

/** A 3D entity. Element i of a batch has the `id` of the batch + i. */
export type Entity3DHandle = Handle<'3D entity'>;

/** An entity. Both kinds share one numbering. */
export type EntityHandle = Entity2DHandle | Entity3DHandle;

/** A culling object. Object i of a batch has the `id` of the batch + i. */
export type CullingObjectHandle = Handle<'culling object'>;

/** An animator. */
export type AnimatorHandle = Handle<'animator'>;

/** A skinning component. */
export type SkinningHandle = Handle<'skinning component'>;

/** Any component. */
export type ComponentHandle = CullingObjectHandle | AnimatorHandle | SkinningHandle;

/** An animation clip. */
export type ClipHandle = Handle<'clip'>;

/** The inverse bind matrices of a skeleton. */
export type BonesHandle = Handle<'inverse bind matrices'>;

/** Any data model. */
export type DataModelHandle = ClipHandle | BonesHandle;

/** A binding of clips to entities. */
export type BindingHandle = Handle<'binding'>;

/** An animator controller. */
export type ControllerHandle = Handle<'controller'>;

/** A state of a controller's layer. */
export type StateHandle = Handle<'state'>;

/** A command buffer of MatrixFlow. */
export type CommandBufferHandle = Handle<'command buffer'>;

/** The number of a block of shared memory for MatrixFlow. An engine never reuses one. */
export type MemoryID = Handle<'memory block'>;

export {};
