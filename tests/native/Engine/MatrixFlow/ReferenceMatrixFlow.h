// A reference implementation of command buffers, one byte and one number at a time, to compare the
// engine with.
#ifndef NQ_TESTS_NATIVE_ENGINE_MATRIXFLOW_REFERENCEMATRIXFLOW_H_
#define NQ_TESTS_NATIVE_ENGINE_MATRIXFLOW_REFERENCEMATRIXFLOW_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace nq::engine {

// Bytes that the allocator reserves for a block of `size` bytes.
uint32_t ReferenceRoom(uint32_t size);

// Payloads of NaNs differ by compiler, so each byte has a mark for whether it is certain: 0 if so,
// 1 to 4 for the bytes of one NaN, 5 if nothing is known.
struct ReferenceBlock {
  uint32_t size = 0;
  std::vector<uint8_t> bytes;  // including the slack
  std::vector<uint8_t> marks;
};

struct ReferenceBuffer {
  uint32_t memoryID = 0;
  uint32_t position = 0;
  std::vector<uint32_t> limits;
};

// A number read from a block.
struct ReferenceNumber {
  enum Kind { kExact, kNotANumber, kUnknown };
  Kind kind = kExact;
  float value = 0;
};

// One command: its operation, the bytes that each reference checks, the bytes of its values.
struct ReferenceCommand {
  int32_t type;
  char operation;  // c copy, i inversion, + - * /, d checked division, m matrix, b bulk, @ call
  uint32_t proves;
  uint32_t bytes;
};

constexpr int kReferenceCommandCount = 31;
extern const ReferenceCommand kReferenceCommands[kReferenceCommandCount];

class ReferenceMatrixFlow {
 public:
  // Runs a buffer. False if the result is undefined: an access beyond a block's reserved bytes, a
  // copy to an overlapping range, too many nested calls, or a step that depends on the payload of a
  // NaN. Memory is meaningless then.
  bool Execute(uint32_t handle, int32_t* code);

  std::map<uint32_t, ReferenceBlock> blocks;    // by memoryID
  std::map<uint32_t, ReferenceBuffer> buffers;  // by key
  std::string log;                              // what was printed since it was last cleared

  // Statistics, for tests that check their coverage.
  std::map<int32_t, uint32_t> performed;  // commands by type
  uint32_t selfWrites = 0;                // commands that wrote to their own stream
  uint32_t slackWrites = 0;               // commands that wrote after their block's size
  uint32_t reentries = 0;                 // calls of a buffer that was already running
  uint32_t wraps = 0;                     // references whose offset and length wrapped and passed

 private:
  struct Place {
    uint32_t memoryID;
    uint32_t offset;
  };

  int32_t Run(uint32_t handle);
  int32_t Perform(const ReferenceCommand& command, ReferenceBuffer* buffer);
  int32_t Call(ReferenceBuffer* buffer);
  int32_t BulkCopy(ReferenceBuffer* buffer);
  int32_t MultiplyMatrices(const ReferenceCommand& command, const Place* places);

  uint32_t Word(uint32_t memoryID, uint32_t offset);
  uint32_t ReadWord(ReferenceBuffer* buffer);
  bool HasBytes(const ReferenceBuffer& buffer, uint32_t bytes) const;
  int32_t Resolve(ReferenceBuffer* buffer, int count, uint32_t length, Place* places);
  bool HasRoom(const Place& place, uint32_t bytes);
  void CopyWhole(const Place& from, const Place& to, uint32_t bytes);
  void Copy(const Place& from, const Place& to, uint32_t bytes);
  std::vector<ReferenceNumber> Load(const Place& place, uint32_t bytes);
  void Store(const std::vector<ReferenceNumber>& numbers, const Place& place);
  int32_t CutOff();

  std::vector<uint32_t> running;  // keys of the buffers that are running, the innermost last
  uint32_t commandCount = 0;
  bool isOutside = false;
};

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_MATRIXFLOW_REFERENCEMATRIXFLOW_H_
