// The operations of MatrixFlow scenes, and the comparison.
#include "tests/native/Engine/MatrixFlow/MatrixFlowScene.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Common/Def/HandlerAllocator.h"
#include "Engine/MatrixFlow/MatrixFlowSystem.h"

namespace nq::engine {

namespace {

// Access to a system's table, for its readers: an explicit instantiation may name private members.
using BufferTable = HandlerAllocator<MatrixFlowCommandBuffer>;
BufferTable& TableOf(MatrixFlowSystem* system);

template <BufferTable MatrixFlowSystem::*table>
struct TableAccess {
  friend BufferTable& TableOf(MatrixFlowSystem* system) { return system->*table; }
};
template struct TableAccess<&MatrixFlowSystem::commandBuffers>;

// Captures printed text while it exists.
class PrintedText {
 public:
  PrintedText() : before(stdout) {
    std::fflush(stdout);
    stdout = open_memstream(&text, &length);
  }
  ~PrintedText() {
    std::fclose(stdout);
    stdout = before;
    std::free(text);
  }
  PrintedText(const PrintedText&) = delete;
  PrintedText& operator=(const PrintedText&) = delete;

  std::string Text() {
    std::fflush(stdout);
    return std::string(text, length);
  }

 private:
  FILE* const before;
  char* text = nullptr;
  size_t length = 0;
};

}  // namespace

MatrixFlowScene::MatrixFlowScene()
    : runtime(new EngineRuntime(new MemoryAllocator)), core(new EngineCore(runtime)) {}

MatrixFlowScene::~MatrixFlowScene() {
  while (!reference.buffers.empty()) {
    ReleaseBuffer(reference.buffers.begin()->first);
  }
  while (!blocks.empty()) {
    ReleaseBlock(blocks.begin()->first);
  }
  core->DropReference();
  runtime->DropReference();
}

void MatrixFlowScene::Enter(uint32_t memoryID, uint32_t size, void* pointer) {
  if (pointer == nullptr || blocks.count(memoryID) != 0) {
    Complain("block " + std::to_string(memoryID) + " is none, or not new");
    return;
  }
  Block& block = blocks[memoryID];
  block.bytes = static_cast<uint8_t*>(pointer);
  block.block.size = size;
  block.block.memoryID = memoryID;
  block.block.pointer = pointer;
  const uint32_t room = ReferenceRoom(size);
  std::memset(block.bytes + size, kSlack, room - size);
  ReferenceBlock& twin = reference.blocks[memoryID];
  twin.size = size;
  twin.bytes.assign(room, 0);
  twin.marks.assign(room, 0);
  std::memset(twin.bytes.data() + size, kSlack, room - size);
}

uint32_t MatrixFlowScene::AddBlock(uint32_t size) {
  const MemoryBlock block = runtime->Allocate(size);
  Enter(block.memoryID, size, block.pointer);
  CompareBlock(block.memoryID);
  return block.memoryID;
}

uint32_t MatrixFlowScene::AddFloats(const std::vector<float>& values) {
  const uint32_t memoryID = AddBlock(static_cast<uint32_t>(4 * values.size()));
  uint32_t offset = 0;
  for (const float value : values) {
    SetFloat(memoryID, offset, value);
    offset += 4;
  }
  return memoryID;
}

void MatrixFlowScene::ReleaseBlock(uint32_t memoryID) {
  runtime->Release(blocks[memoryID].block);
  blocks.erase(memoryID);
  reference.blocks.erase(memoryID);
}

uint32_t MatrixFlowScene::AddBuffer(uint32_t size) {
  const NativeValueInfo info = core->CreateCommandBuffer(static_cast<int32_t>(size));
  if (info.size != size || reference.buffers.count(info.handle) != 0) {
    Complain("a new buffer has a wrong size or handle");
  }
  Enter(info.memoryID, size, info.pointer);
  reference.buffers[info.handle].memoryID = info.memoryID;
  CompareBlock(info.memoryID);
  return info.handle;
}

void MatrixFlowScene::ReleaseBuffer(uint32_t handle) {
  const uint32_t memoryID = IDOf(handle);
  core->ReleaseCommandBuffer(handle);
  if (runtime->FindBlock(memoryID).pointer != nullptr) {
    Complain("the block of a released buffer is still there");
  }
  reference.buffers.erase(handle);
  reference.blocks.erase(memoryID);
  blocks.erase(memoryID);
}

NativeValueInfo MatrixFlowScene::Resize(uint32_t handle, uint32_t size) {
  const uint32_t oldID = IDOf(handle);
  const ReferenceBlock old = reference.blocks[oldID];
  const NativeValueInfo info = core->ResizeCommandBuffer(handle, size);
  const bool grows = size > old.size;
  if (info.handle != handle || info.size != (grows ? size : old.size) ||
      (info.memoryID != oldID) != grows) {
    Complain("a resized buffer has a wrong handle, size or memoryID");
  }
  if (info.memoryID == oldID) {
    return info;
  }
  if (runtime->FindBlock(oldID).pointer != nullptr) {
    Complain("the old block of a resized buffer is still there");
  }
  blocks.erase(oldID);
  reference.blocks.erase(oldID);
  Enter(info.memoryID, size, info.pointer);
  ReferenceBlock& twin = reference.blocks[info.memoryID];
  std::copy(old.bytes.begin(), old.bytes.begin() + old.size, twin.bytes.begin());
  std::copy(old.marks.begin(), old.marks.begin() + old.size, twin.marks.begin());
  reference.buffers[handle] = ReferenceBuffer();
  reference.buffers[handle].memoryID = info.memoryID;
  CompareBlock(info.memoryID);
  return info;
}

const StreamReader& MatrixFlowScene::Reader(uint32_t handle) {
  return *TableOf(core->MatrixFlow()).Find(handle)->reader;
}

void MatrixFlowScene::Write(uint32_t handle, const std::vector<uint32_t>& words) {
  const uint32_t memoryID = IDOf(handle);
  SetWord(memoryID, 0, static_cast<uint32_t>(4 * words.size()));
  uint32_t offset = 4;
  for (const uint32_t word : words) {
    SetWord(memoryID, offset, word);
    offset += 4;
  }
}

void MatrixFlowScene::SetByte(uint32_t memoryID, uint32_t offset, uint8_t value) {
  ReferenceBlock& twin = reference.blocks[memoryID];
  if (offset >= twin.bytes.size()) {
    Complain("the test writes beyond a block");
    return;
  }
  // If a NaN loses a byte, its other bytes stay uncertain.
  blocks[memoryID].bytes[offset] = value;
  twin.bytes[offset] = value;
  twin.marks[offset] = 0;
}

void MatrixFlowScene::SetWord(uint32_t memoryID, uint32_t offset, uint32_t value) {
  for (uint32_t i = 0; i < 4; ++i) {
    SetByte(memoryID, offset + i, static_cast<uint8_t>(value >> (8 * i)));
  }
}

void MatrixFlowScene::SetFloat(uint32_t memoryID, uint32_t offset, float value) {
  uint32_t word;
  std::memcpy(&word, &value, sizeof(word));
  SetWord(memoryID, offset, word);
}

uint8_t MatrixFlowScene::Byte(uint32_t memoryID, uint32_t offset) {
  return blocks[memoryID].bytes[offset];
}

uint32_t MatrixFlowScene::Word(uint32_t memoryID, uint32_t offset) {
  uint32_t word;
  std::memcpy(&word, blocks[memoryID].bytes + offset, sizeof(word));
  return word;
}

float MatrixFlowScene::Float(uint32_t memoryID, uint32_t offset) {
  float value;
  std::memcpy(&value, blocks[memoryID].bytes + offset, sizeof(value));
  return value;
}

std::vector<float> MatrixFlowScene::Floats(uint32_t memoryID, uint32_t offset, uint32_t count) {
  std::vector<float> values;
  for (uint32_t i = 0; i < count; ++i) {
    values.push_back(Float(memoryID, offset + 4 * i));
  }
  return values;
}

bool MatrixFlowScene::Execute(uint32_t handle, int32_t* code) {
  reference.log.clear();
  int32_t expected;
  if (!reference.Execute(handle, &expected)) {
    return false;
  }
  {
    PrintedText printed;
    *code = core->ExecuteCommandBuffer(handle);
    log = printed.Text();
  }
  Compare(handle, expected, *code);
  return true;
}

void MatrixFlowScene::Complain(const std::string& text) {
  if (problem.empty()) {
    problem = text;
  }
}

void MatrixFlowScene::Compare(uint32_t handle, int32_t expected, int32_t actual) {
  const std::string run = "run of " + std::to_string(handle) + ": ";
  if (actual != expected) {
    Complain(run + "code " + std::to_string(actual) + " for " + std::to_string(expected));
  }
  if (log != reference.log) {
    Complain(run + "printed \"" + log + "\" for \"" + reference.log + "\"");
  }
  for (const auto& entry : reference.blocks) {
    CompareBlock(entry.first);
  }
  for (const auto& entry : reference.buffers) {
    const StreamReader& reader = Reader(entry.first);
    const ReferenceBuffer& buffer = entry.second;
    const std::string which = run + "buffer " + std::to_string(entry.first) + " ";
    if (reader.Position() != buffer.position) {
      Complain(which + "stands at " + std::to_string(reader.Position()) + " for " +
               std::to_string(buffer.position));
    }
    if (reader.LimitCount() != buffer.limits.size()) {
      Complain(which + "has " + std::to_string(reader.LimitCount()) + " limits for " +
               std::to_string(buffer.limits.size()));
    } else if (!buffer.limits.empty() && reader.Limit() != buffer.limits.back()) {
      Complain(which + "has limit " + std::to_string(reader.Limit()) + " for " +
               std::to_string(buffer.limits.back()));
    }
  }
}

void MatrixFlowScene::CompareBlock(uint32_t memoryID) {
  const ReferenceBlock& twin = reference.blocks[memoryID];
  const uint8_t* bytes = blocks[memoryID].bytes;
  for (uint32_t at = 0; at < twin.bytes.size(); ++at) {
    bool isSame = true;
    if (twin.marks[at] == 0) {
      isSame = bytes[at] == twin.bytes[at];
    } else if (twin.marks[at] == 1 && at + 4 <= twin.bytes.size() && twin.marks[at + 1] == 2 &&
               twin.marks[at + 2] == 3 && twin.marks[at + 3] == 4) {
      isSame = std::isnan(Float(memoryID, at));
    }
    if (!isSame) {
      char text[128];
      std::snprintf(text, sizeof(text),
                    "block %u of %u bytes differs at %u: %02X for %02X (mark %d)", memoryID,
                    twin.size, at, bytes[at], twin.bytes[at], twin.marks[at]);
      Complain(text);
      return;
    }
  }
}

}  // namespace nq::engine
