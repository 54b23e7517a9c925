// A stream of commands in shared memory.
#ifndef NQ_ENGINE_MATRIXFLOW_MATRIXFLOWCOMMANDBUFFER_H_
#define NQ_ENGINE_MATRIXFLOW_MATRIXFLOWCOMMANDBUFFER_H_

#include <cstdint>
#include <memory>

#include "Common/Def/HandlerValue.h"
#include "Common/Def/StreamReader.h"

namespace nq::engine {

// Its block holds a word with the size of the commands in bytes, then the commands. Script thread
// only.
class MatrixFlowCommandBuffer final : public BlockValue {
 public:
  using BlockValue::BlockValue;

  // Allocates a zeroed block of `size` bytes, an empty stream, and a reader over it.
  void* Allocate(uint32_t size) override;

  // Grows the buffer to `size` bytes. A buffer never shrinks; one that grows moves, with its
  // content, to a new block with a new memoryID.
  void Resize(uint32_t size);

  // Reads the block; replaced with it.
  std::unique_ptr<StreamReader> reader;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_MATRIXFLOW_MATRIXFLOWCOMMANDBUFFER_H_
