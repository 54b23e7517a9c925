// The commands of MatrixFlow: arithmetic on numbers in shared memory.
//
// A command is its type and its operand words, 32 bits each. An operand is two words: the memoryID
// of a block and a byte offset into it, which need not be aligned. D is a destination, S a source,
// A and B are inputs, R is the result; each comment lists them in stream order. Vectors are
// consecutive floats, matrices column-major.
#ifndef NQ_ENGINE_MATRIXFLOW_MATRIXFLOWCOMMAND_H_
#define NQ_ENGINE_MATRIXFLOW_MATRIXFLOWCOMMAND_H_

#include <cstdint>

namespace nq::engine {

// Numbers go by thousands: one for each type of value. Any other number is unknown. What is marked
// as kept on purpose is so because streams rely on its bytes.
enum class MatrixFlowCommand : int32_t {
  kCall = 1,  // handle word: runs another command buffer

  kScalarCopy = 1000,  // D, S: D = S
  kScalarAdd = 1001,   // A, B, R: R = A + B
  kScalarSub = 1002,   // A, B, R: R = A - B
  kScalarMul = 1003,   // A, B, R: R = A * B
  kScalarDiv = 1004,   // A, B, R: R = A / B, but code 5 for a B below the smallest normal float

  kVector2Copy = 2000,  // D, S; kept on purpose: each is checked for 4 bytes and 8 are copied
  kVector2Add = 2001,   // A, B, R, here and below by component
  kVector2Sub = 2002,
  kVector2Mul = 2003,
  kVector2Div = 2004,

  kVector3Copy = 3000,  // D, S; kept on purpose: each is checked for 4 bytes and 12 are copied
  kVector3Add = 3001,
  kVector3Sub = 3002,
  kVector3Mul = 3003,
  kVector3Div = 3004,

  kVector4Copy = 4000,
  kVector4Add = 4001,
  kVector4Sub = 4002,
  kVector4Mul = 4003,
  kVector4Div = 4004,

  kMatrix3Copy = 5000,
  kMatrix3Add = 5001,
  kMatrix3Sub = 5002,
  kMatrix3Mul = 5003,  // R = A B, the matrix product

  kMatrix4Copy = 6000,
  kMatrix4Add = 6001,
  kMatrix4Sub = 6002,
  kMatrix4Mul = 6003,     // R = A B, the matrix product
  kMatrix4Invert = 6004,  // S, D; kept on purpose: D = S

  kBulkCopy = 9000,  // word count N, D, S: 4 N bytes
};

// The result codes of running a command buffer.
enum MatrixFlowResult : int32_t {
  kMatrixFlowDone = 0,
  kMatrixFlowNoBuffer = 1,  // there is no such handle
  kMatrixFlowCutOff = 2,    // the stream ends inside a command
  kMatrixFlowUnknownCommand = 3,
  kMatrixFlowOutOfBlock = 4,       // an operand does not fit its block, or there is no such block
  kMatrixFlowDivisorTooSmall = 5,  // of kScalarDiv
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_MATRIXFLOW_MATRIXFLOWCOMMAND_H_
