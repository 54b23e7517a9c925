// Handles as kinds: numbers at run time, types of their own for the compiler. One kind is no other, and every
// kind is a number.

/** Marks a number as one of a kind; there is no such property at run time. */
declare const kind: unique symbol;

/**
 * A number that names something of the engine. Its kind is known to the compiler only: all handles are 32-bit
 * numbers, counted by kind, so that the first entity and the first clip are both 4096. A handle of another kind
 * names something else, or nothing, and native code can't tell.
 *
 * Handles carry no generation: once what they name was released, they may name what is made next.
 *
 * @typeParam Kind what it names
 */
export type Handle<Kind extends string> = number & { readonly [kind]: Kind };

/** A number that is no handle of a kind. */
export type PlainNumber = number & { readonly [kind]?: undefined };

/**
 * What a parameter for handles takes: a handle of the right kind, or a plain number, such as an element's `id + i`,
 * a word that was read from a buffer, or `layout.handles.none`. A handle of another kind is refused by the compiler.
 *
 * @typeParam H the kind of handle
 */
export type HandleLike<H extends number> = H | PlainNumber;

/**
 * What a parameter for several handles takes: a `Uint32Array`, whose words the compiler knows nothing of, or an array
 * of handles.
 *
 * @typeParam H the kind of handle
 */
export type HandleArray<H extends number> = Uint32Array | ReadonlyArray<HandleLike<H>>;

/** A 2D entity. Element i of a batch has the `id` of the batch + i. */
export type Entity2DHandle = Handle<'2D entity'>;

/** A 3D entity. Element i of a batch has the `id` of the batch + i. */
export type Entity3DHandle = Handle<'3D entity'>;

/** An entity. Both kinds are counted together. */
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

/** The number of a block of shared memory, by which MatrixFlow finds it. Never used twice by an engine. */
export type MemoryID = Handle<'memory block'>;

export {};
