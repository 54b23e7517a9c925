// An engine and the reference, for tests of command buffers.
#ifndef NQ_TESTS_NATIVE_ENGINE_MATRIXFLOW_MATRIXFLOWSCENE_H_
#define NQ_TESTS_NATIVE_ENGINE_MATRIXFLOW_MATRIXFLOWSCENE_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Common/Def/EngineRuntime.h"
#include "Common/Def/StreamReader.h"
#include "Engine/Entity/EngineCore.h"
#include "tests/native/Engine/MatrixFlow/ReferenceMatrixFlow.h"

namespace nq::engine {

// One engine and one reference, which receive the same blocks and streams and are compared after
// every run: result, printed text, all memory, positions and limits of all readers. Blocks are
// named by memoryID, buffers by handle. Everything is released at the end. Does not depend on a
// test framework.
class MatrixFlowScene {
 public:
  MatrixFlowScene();
  ~MatrixFlowScene();
  MatrixFlowScene(const MatrixFlowScene&) = delete;
  MatrixFlowScene& operator=(const MatrixFlowScene&) = delete;

  EngineRuntime* Runtime() { return runtime; }
  EngineCore* Core() { return core; }
  ReferenceMatrixFlow& Reference() { return reference; }

  // A zeroed block. The allocator's slack after its size is filled with kSlack.
  static constexpr uint8_t kSlack = 0x5C;
  uint32_t AddBlock(uint32_t size);
  uint32_t AddFloats(const std::vector<float>& values);
  void ReleaseBlock(uint32_t memoryID);

  uint32_t AddBuffer(uint32_t size);
  void ReleaseBuffer(uint32_t handle);
  NativeValueInfo Resize(uint32_t handle, uint32_t size);

  // The memoryID of a buffer's block.
  uint32_t IDOf(uint32_t handle) { return reference.buffers[handle].memoryID; }
  const StreamReader& Reader(uint32_t handle);

  // Replaces a buffer's stream: the header word, and the words after it.
  void Write(uint32_t handle, const std::vector<uint32_t>& words);

  // Reads and writes of both sides' memory; reads are of the engine's.
  void SetByte(uint32_t memoryID, uint32_t offset, uint8_t value);
  void SetWord(uint32_t memoryID, uint32_t offset, uint32_t value);
  void SetFloat(uint32_t memoryID, uint32_t offset, float value);
  uint8_t Byte(uint32_t memoryID, uint32_t offset);
  uint32_t Word(uint32_t memoryID, uint32_t offset);
  float Float(uint32_t memoryID, uint32_t offset);
  std::vector<float> Floats(uint32_t memoryID, uint32_t offset, uint32_t count);

  // Runs a buffer on both sides. False, with the engine unchanged, if the reference finds that the
  // run has no defined result; the scene is unusable then.
  bool Execute(uint32_t handle, int32_t* code);

  // What the engine printed in the last run.
  const std::string& Log() const { return log; }

  // A description of the first difference between the two sides; empty if there was none.
  const std::string& Problem() const { return problem; }

 private:
  struct Block {
    uint8_t* bytes;
    MemoryBlock block;
  };

  void Enter(uint32_t memoryID, uint32_t size, void* pointer);
  void Complain(const std::string& text);
  void Compare(uint32_t handle, int32_t expected, int32_t actual);
  void CompareBlock(uint32_t memoryID);

  EngineRuntime* runtime;
  EngineCore* core;
  ReferenceMatrixFlow reference;
  std::map<uint32_t, Block> blocks;  // by memoryID, the buffers' own included
  std::string log;
  std::string problem;
};

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_MATRIXFLOW_MATRIXFLOWSCENE_H_
