// Writers over the buffers that script fills for native code.
import type { Engine, EngineMatrixFlowCommandBuffer } from './engine';
import type {
  CommandBufferHandle,
  EntityHandle,
  Entity3DHandle,
  HandleArray,
  HandleLike,
  MemoryID,
} from './handles';

export { entityCommands, matrixFlowCommands, matrixFlowResults } from './layout';

/**
 * What writers of streams have in common. All that a writer keeps of its position is the stream's first word: what native
 * code does to it is seen, and several writers over one buffer do no harm. A call writes its whole command or, where that
 * does not fit or an argument is wrong, throws and writes nothing. Nothing is allocated per call.
 *
 * @typeParam Owner what the buffer came with
 */
export interface StreamWriter<Owner> {
  /** What the buffer came with; kept alive by the writer. */
  readonly owner: Owner;
  /** Bytes of commands in the stream. */
  readonly used: number;
  /** Bytes that further commands may take. */
  readonly room: number;
}

export interface EntityCommandWriter extends StreamWriter<Pick<Engine, 'entityCommands'>> {}

/**
 * Writes structural changes into {@link Engine.entityCommands}; the next {@link Engine.refreshWorldTransform} carries
 * them out in their order and empties the stream. 49,152 bytes:
 *
 * | Offset | Type | |
 * |---|---|---|
 * | 0 | u32 | L, bytes of commands; at most 49,148 |
 * | 4 | L bytes | commands: a number and its operands, u32 each |
 *
 * Methods return the offset of their command in the buffer, in bytes. They throw a TypeError for what is no number, and a
 * RangeError for what is no 32-bit handle and where the command does not fit. Whether handles name something is not
 * looked at: native code passes over commands with unknown ones.
 */
export declare class EntityCommandWriter {
  /** @param engine is kept alive by the writer */
  constructor(engine: Pick<Engine, 'entityCommands'>);

  /** 1, handle; 8 bytes. Makes an entity without a parent a root; twice, and it is walked twice. */
  addRoot(handle: HandleLike<EntityHandle>): number;

  /**
   * 2, parent, child; 12 bytes. Attaches behind the parent's children; both of one kind, 2D or 3D, or nothing happens.
   * Never close a cycle: a refresh then ends the process.
   */
  addChild<H extends EntityHandle>(parent: HandleLike<H>, child: HandleLike<H>): number;

  /**
   * 3, parent, child, index; 16 bytes. Attaches at a place among the parent's children, also across kinds.
   *
   * @param index counted without the child
   */
  insertChild(
    parent: HandleLike<EntityHandle>,
    child: HandleLike<EntityHandle>,
    index: number
  ): number;

  /** 4, handle; 8 bytes. Its matrices stay as they are. */
  removeFromParent(handle: HandleLike<EntityHandle>): number;

  /** 5, handle; 8 bytes. The entity and all below it lose links, bindings to bones, names and inactivity. */
  resetSubtree(handle: HandleLike<EntityHandle>): number;

  /**
   * 6, entity, bone; 12 bytes. The entity takes over the bone's world transform, one refresh later.
   *
   * @param bone a 3D entity: 2D ones lead nobody
   */
  bindToBone(entity: HandleLike<EntityHandle>, bone: HandleLike<Entity3DHandle>): number;

  /**
   * 7, n, n entities, n bones; 8 + 8 n bytes. Entity i follows bone i.
   *
   * @param bones as many
   */
  bindToBoneBatch(entities: HandleArray<EntityHandle>, bones: HandleArray<Entity3DHandle>): number;

  /** 8, handle; 8 bytes. */
  unbindFromBone(handle: HandleLike<EntityHandle>): number;

  /** 9, n, n handles; 8 + 4 n bytes. */
  unbindFromBoneBatch(handles: HandleArray<EntityHandle>): number;

  /** 10, handle; 8 bytes. An inactive entity becomes active, and is computed anew with all below it. */
  activate(handle: HandleLike<EntityHandle>): number;

  /** 11, handle; 8 bytes. The entity and all below it keep their matrices until it is activated. */
  deactivate(handle: HandleLike<EntityHandle>): number;

  /** Drops all commands that have not been carried out. */
  clear(): void;
}

/**
 * Writes {@link Engine.dirtyEntities}, the handles of entities whose records script has changed. 49,152 bytes:
 *
 * | Offset | Type | |
 * |---|---|---|
 * | 0 | u32 | N, number of entries; at most 12,287 |
 * | 4 i, i from 1 to N | u32 | a handle; duplicates are allowed |
 *
 * What native code has left in the list stays there for the next refresh: append, and clear only to take back what was
 * listed. Methods throw a TypeError for what is no number, and a RangeError for what is no 32-bit handle and where entries
 * do not fit.
 */
export declare class DirtyListWriter {
  /** @param engine is kept alive by the writer */
  constructor(engine: Pick<Engine, 'dirtyEntities'>);

  /** What the buffer came with; kept alive by the writer. */
  readonly owner: Pick<Engine, 'dirtyEntities'>;

  /** Entries in the list. */
  readonly count: number;

  /** Entries that still fit. */
  readonly room: number;

  /** Lists one entity. */
  append(handle: HandleLike<EntityHandle>): void;

  /** Lists entities, all or, where they do not fit, none. */
  appendAll(handles: HandleArray<EntityHandle>): void;

  /**
   * Lists the entities of a batch, or a part of it: handles that count up by one.
   *
   * @param first handle of the first of them
   * @param added how many
   */
  appendRange(first: HandleLike<EntityHandle>, added: number): void;

  /** Empties the list. */
  clear(): void;
}

/**
 * Where a value stands: a block that script shares with native code, by the `memoryID` of the object that it came with,
 * and an offset into it in bytes, of any alignment.
 */
export interface Operand {
  /** The block: `memoryID` of what it came with. */
  readonly memoryID: HandleLike<MemoryID>;
  /** Bytes into the block, of any alignment. */
  readonly offset: number;
}

/** How a {@link MatrixFlowWriter} checks. */
export interface MatrixFlowWriterOptions {
  /**
   * Bytes by `memoryID`. Operands in those blocks are held against them, operands in others are not. Looked into at each
   * call, so blocks may come and go.
   */
  readonly blockSizes?: Map<number, number> | null;
}

export interface MatrixFlowWriter
  extends StreamWriter<Pick<EngineMatrixFlowCommandBuffer, 'buffer'>> {}

/**
 * Writes the stream of a command buffer. Its `execute` reads it from the start, as often as it is called; nothing but
 * `reset` empties it.
 *
 * | Offset | Type | |
 * |---|---|---|
 * | 0 | u32 | bytes of commands |
 * | 4 | | commands: a type (i32) and its operand words, back to back |
 *
 * An operand is two words, `memoryID` and offset. Methods take their operands in the order of the stream, each as one
 * object, `scalarAdd(a, b, r)`, or all as pairs of numbers, `scalarAdd(aID, aOffset, bID, bOffset, rID, rOffset)`. Neither
 * form is kept. Each returns the offset of its command in the buffer, in bytes, from which an operand can be found again
 * and written over.
 *
 * D is a destination, S a source, A and B are inputs, R is a result, which may be A or B. Values are floats; vectors are
 * consecutive, matrices column-major. Commands of two operands take 20 bytes, those of three take 28.
 *
 * Methods throw a TypeError for what is no operand, and a RangeError for what is no 32-bit word, for an operand that does
 * not fit its block (see {@link MatrixFlowWriterOptions.blockSizes}) and where the command does not fit.
 */
export declare class MatrixFlowWriter {
  /** @param commandBuffer is kept alive by the writer */
  constructor(
    commandBuffer: Pick<EngineMatrixFlowCommandBuffer, 'buffer'>,
    options?: MatrixFlowWriterOptions
  );

  /** Empties the stream. */
  reset(): void;

  /**
   * 1, handle; 8 bytes. Runs another command buffer and, unless its result is 0, ends with that result. Nothing stops
   * buffers that call each other in a circle but the end of the stack, and the process.
   *
   * @param handle `id` of a command buffer
   */
  call(handle: HandleLike<CommandBufferHandle>): number;

  /**
   * 9000, N, D, S; 24 bytes. Moves 4 N bytes from S to D.
   *
   * @param count N, words
   */
  bulkCopy(count: number, d: Operand, s: Operand): number;

  /**
   * 9000, N, D, S; 24 bytes. Moves 4 N bytes from S to D.
   *
   * @param count N, words
   */
  bulkCopy(
    count: number,
    dID: HandleLike<MemoryID>,
    dOffset: number,
    sID: HandleLike<MemoryID>,
    sOffset: number
  ): number;

  /** 1000, D, S. D = S, 4 bytes. */
  scalarCopy(d: Operand, s: Operand): number;

  /** 1000, D, S. D = S, 4 bytes. */
  scalarCopy(
    dID: HandleLike<MemoryID>,
    dOffset: number,
    sID: HandleLike<MemoryID>,
    sOffset: number
  ): number;

  /** 1001, A, B, R. R = A + B. */
  scalarAdd(a: Operand, b: Operand, r: Operand): number;

  /** 1001, A, B, R. R = A + B. */
  scalarAdd(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 1002, A, B, R. R = A - B. */
  scalarSub(a: Operand, b: Operand, r: Operand): number;

  /** 1002, A, B, R. R = A - B. */
  scalarSub(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 1003, A, B, R. R = A * B. */
  scalarMul(a: Operand, b: Operand, r: Operand): number;

  /** 1003, A, B, R. R = A * B. */
  scalarMul(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /**
   * 1004, A, B, R. R = A / B. A divisor below the smallest normal float, any negative one included, ends the run with
   * result 5.
   */
  scalarDiv(a: Operand, b: Operand, r: Operand): number;

  /**
   * 1004, A, B, R. R = A / B. A divisor below the smallest normal float, any negative one included, ends the run with
   * result 5.
   */
  scalarDiv(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 2000, D, S. D = S, 8 bytes. The engine proves 4 of them: `blockSizes` holds all 8 against the block. */
  vector2Copy(d: Operand, s: Operand): number;

  /** 2000, D, S. D = S, 8 bytes. The engine proves 4 of them: `blockSizes` holds all 8 against the block. */
  vector2Copy(
    dID: HandleLike<MemoryID>,
    dOffset: number,
    sID: HandleLike<MemoryID>,
    sOffset: number
  ): number;

  /** 2001, A, B, R. R = A + B by component. */
  vector2Add(a: Operand, b: Operand, r: Operand): number;

  /** 2001, A, B, R. R = A + B by component. */
  vector2Add(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 2002, A, B, R. R = A - B by component. */
  vector2Sub(a: Operand, b: Operand, r: Operand): number;

  /** 2002, A, B, R. R = A - B by component. */
  vector2Sub(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 2003, A, B, R. R = A * B by component. */
  vector2Mul(a: Operand, b: Operand, r: Operand): number;

  /** 2003, A, B, R. R = A * B by component. */
  vector2Mul(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 2004, A, B, R. R = A / B by component. Tests no divisor. */
  vector2Div(a: Operand, b: Operand, r: Operand): number;

  /** 2004, A, B, R. R = A / B by component. Tests no divisor. */
  vector2Div(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 3000, D, S. D = S, 12 bytes. The engine proves 4 of them: `blockSizes` holds all 12 against the block. */
  vector3Copy(d: Operand, s: Operand): number;

  /** 3000, D, S. D = S, 12 bytes. The engine proves 4 of them: `blockSizes` holds all 12 against the block. */
  vector3Copy(
    dID: HandleLike<MemoryID>,
    dOffset: number,
    sID: HandleLike<MemoryID>,
    sOffset: number
  ): number;

  /** 3001, A, B, R. R = A + B by component. */
  vector3Add(a: Operand, b: Operand, r: Operand): number;

  /** 3001, A, B, R. R = A + B by component. */
  vector3Add(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 3002, A, B, R. R = A - B by component. */
  vector3Sub(a: Operand, b: Operand, r: Operand): number;

  /** 3002, A, B, R. R = A - B by component. */
  vector3Sub(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 3003, A, B, R. R = A * B by component. */
  vector3Mul(a: Operand, b: Operand, r: Operand): number;

  /** 3003, A, B, R. R = A * B by component. */
  vector3Mul(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 3004, A, B, R. R = A / B by component. Tests no divisor. */
  vector3Div(a: Operand, b: Operand, r: Operand): number;

  /** 3004, A, B, R. R = A / B by component. Tests no divisor. */
  vector3Div(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 4000, D, S. D = S, 16 bytes. */
  vector4Copy(d: Operand, s: Operand): number;

  /** 4000, D, S. D = S, 16 bytes. */
  vector4Copy(
    dID: HandleLike<MemoryID>,
    dOffset: number,
    sID: HandleLike<MemoryID>,
    sOffset: number
  ): number;

  /** 4001, A, B, R. R = A + B by component. */
  vector4Add(a: Operand, b: Operand, r: Operand): number;

  /** 4001, A, B, R. R = A + B by component. */
  vector4Add(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 4002, A, B, R. R = A - B by component. */
  vector4Sub(a: Operand, b: Operand, r: Operand): number;

  /** 4002, A, B, R. R = A - B by component. */
  vector4Sub(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 4003, A, B, R. R = A * B by component. */
  vector4Mul(a: Operand, b: Operand, r: Operand): number;

  /** 4003, A, B, R. R = A * B by component. */
  vector4Mul(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 4004, A, B, R. R = A / B by component. Tests no divisor. */
  vector4Div(a: Operand, b: Operand, r: Operand): number;

  /** 4004, A, B, R. R = A / B by component. Tests no divisor. */
  vector4Div(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 5000, D, S. D = S, 36 bytes. */
  matrix3Copy(d: Operand, s: Operand): number;

  /** 5000, D, S. D = S, 36 bytes. */
  matrix3Copy(
    dID: HandleLike<MemoryID>,
    dOffset: number,
    sID: HandleLike<MemoryID>,
    sOffset: number
  ): number;

  /** 5001, A, B, R. R = A + B by element. */
  matrix3Add(a: Operand, b: Operand, r: Operand): number;

  /** 5001, A, B, R. R = A + B by element. */
  matrix3Add(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 5002, A, B, R. R = A - B by element. */
  matrix3Sub(a: Operand, b: Operand, r: Operand): number;

  /** 5002, A, B, R. R = A - B by element. */
  matrix3Sub(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 5003, A, B, R. R = A * B, the matrix product. */
  matrix3Mul(a: Operand, b: Operand, r: Operand): number;

  /** 5003, A, B, R. R = A * B, the matrix product. */
  matrix3Mul(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 6000, D, S. D = S, 64 bytes. */
  matrix4Copy(d: Operand, s: Operand): number;

  /** 6000, D, S. D = S, 64 bytes. */
  matrix4Copy(
    dID: HandleLike<MemoryID>,
    dOffset: number,
    sID: HandleLike<MemoryID>,
    sOffset: number
  ): number;

  /** 6001, A, B, R. R = A + B by element. */
  matrix4Add(a: Operand, b: Operand, r: Operand): number;

  /** 6001, A, B, R. R = A + B by element. */
  matrix4Add(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 6002, A, B, R. R = A - B by element. */
  matrix4Sub(a: Operand, b: Operand, r: Operand): number;

  /** 6002, A, B, R. R = A - B by element. */
  matrix4Sub(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 6003, A, B, R. R = A * B, the matrix product. */
  matrix4Mul(a: Operand, b: Operand, r: Operand): number;

  /** 6003, A, B, R. R = A * B, the matrix product. */
  matrix4Mul(
    aID: HandleLike<MemoryID>,
    aOffset: number,
    bID: HandleLike<MemoryID>,
    bOffset: number,
    rID: HandleLike<MemoryID>,
    rOffset: number
  ): number;

  /** 6004, S, D: the source first. D = S: no inverse. */
  matrix4Invert(s: Operand, d: Operand): number;

  /** 6004, S, D: the source first. D = S: no inverse. */
  matrix4Invert(
    sID: HandleLike<MemoryID>,
    sOffset: number,
    dID: HandleLike<MemoryID>,
    dOffset: number
  ): number;
}
