// A reference implementation of command buffers by maps, vectors and loops.
#include "tests/native/Engine/MatrixFlow/ReferenceMatrixFlow.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace nq::engine {

namespace {

constexpr size_t kMostCalls = 24;
constexpr uint32_t kMostCommands = 20000;

using Number = ReferenceNumber;

Number Combine(char operation, const Number& a, const Number& b) {
  Number result;
  if (a.kind == Number::kUnknown || b.kind == Number::kUnknown) {
    result.kind = Number::kUnknown;
    return result;
  }
  if (a.kind == Number::kNotANumber || b.kind == Number::kNotANumber) {
    result.kind = Number::kNotANumber;
    return result;
  }
  switch (operation) {
    case '+':
      result.value = a.value + b.value;
      break;
    case '-':
      result.value = a.value - b.value;
      break;
    case '*':
      result.value = a.value * b.value;
      break;
    default:
      result.value = a.value / b.value;
      break;
  }
  if (std::isnan(result.value)) {
    result.kind = Number::kNotANumber;
  }
  return result;
}

}  // namespace

const ReferenceCommand kReferenceCommands[kReferenceCommandCount] = {
    {1, '@', 0, 0},      {1000, 'c', 4, 4},   {1001, '+', 4, 4},   {1002, '-', 4, 4},
    {1003, '*', 4, 4},   {1004, 'd', 4, 4},   {2000, 'c', 4, 8},   {2001, '+', 8, 8},
    {2002, '-', 8, 8},   {2003, '*', 8, 8},   {2004, '/', 8, 8},   {3000, 'c', 4, 12},
    {3001, '+', 12, 12}, {3002, '-', 12, 12}, {3003, '*', 12, 12}, {3004, '/', 12, 12},
    {4000, 'c', 16, 16}, {4001, '+', 16, 16}, {4002, '-', 16, 16}, {4003, '*', 16, 16},
    {4004, '/', 16, 16}, {5000, 'c', 36, 36}, {5001, '+', 36, 36}, {5002, '-', 36, 36},
    {5003, 'm', 36, 36}, {6000, 'c', 64, 64}, {6001, '+', 64, 64}, {6002, '-', 64, 64},
    {6003, 'm', 64, 64}, {6004, 'i', 64, 64}, {9000, 'b', 0, 0},
};

uint32_t ReferenceRoom(uint32_t size) {
  for (const uint32_t room : {16, 32, 64, 96, 128, 160, 192, 224, 256, 320, 384, 448, 512, 640}) {
    if (size <= room) {
      return room;
    }
  }
  return size;
}

bool ReferenceMatrixFlow::Execute(uint32_t handle, int32_t* code) {
  isOutside = false;
  commandCount = 0;
  *code = Run(handle);
  return !isOutside;
}

int32_t ReferenceMatrixFlow::Run(uint32_t handle) {
  const uint32_t key = handle & 0xFFFFF000u;
  if (buffers.count(key) == 0) {
    log += "[NQ_WARN][MatrixFlow]: Command buffer invalid, handler: " +
           std::to_string(static_cast<int32_t>(handle)) + "\n";
    return 1;
  }
  if (running.size() == kMostCalls) {
    isOutside = true;
    return 0;
  }
  for (const uint32_t caller : running) {
    reentries += caller == key ? 1 : 0;
  }
  running.push_back(key);
  ReferenceBuffer* buffer = &buffers[key];
  buffer->position = 4;
  buffer->limits.push_back(Word(buffer->memoryID, 0) + 4);
  int32_t code = 0;
  while (code == 0 && !isOutside && HasBytes(*buffer, 1)) {
    const int32_t type = static_cast<int32_t>(ReadWord(buffer));
    if (++commandCount > kMostCommands) {
      isOutside = true;
    }
    if (isOutside) {
      break;
    }
    const ReferenceCommand* command = nullptr;
    for (const ReferenceCommand& known : kReferenceCommands) {
      if (known.type == type) {
        command = &known;
      }
    }
    if (command == nullptr) {
      log += "[NQ_FATAL][MatrixFlow]: Command type invalid, type: " + std::to_string(type) + "\n";
      code = 3;
    } else {
      code = Perform(*command, buffer);
      performed[type] += code == 0 && !isOutside ? 1 : 0;
    }
  }
  running.pop_back();
  return code;
}

int32_t ReferenceMatrixFlow::Perform(const ReferenceCommand& command, ReferenceBuffer* buffer) {
  if (command.operation == '@') {
    return Call(buffer);
  }
  if (command.operation == 'b') {
    return BulkCopy(buffer);
  }
  const bool isCopy = command.operation == 'c' || command.operation == 'i';
  const int count = isCopy ? 2 : 3;
  if (!HasBytes(*buffer, isCopy ? 16 : 24)) {
    return CutOff();
  }
  Place places[3];
  const int32_t code = Resolve(buffer, count, command.proves, places);
  if (code != 0 || isOutside) {
    return code;
  }
  if (command.operation == 'c') {
    Copy(places[1], places[0], command.bytes);
    return 0;
  }
  if (command.operation == 'i') {
    CopyWhole(places[0], places[1], command.bytes);
    return 0;
  }
  if (command.operation == 'm') {
    return MultiplyMatrices(command, places);
  }
  const std::vector<Number> a = Load(places[0], command.bytes);
  const std::vector<Number> b = Load(places[1], command.bytes);
  if (isOutside) {
    return 0;
  }
  if (command.operation == 'd') {
    if (b[0].kind == Number::kUnknown) {
      isOutside = true;
      return 0;
    }
    if (b[0].kind == Number::kExact && 0x1p-126f > b[0].value) {
      return 5;
    }
  }
  std::vector<Number> result;
  for (size_t i = 0; i < a.size(); ++i) {
    result.push_back(Combine(command.operation == 'd' ? '/' : command.operation, a[i], b[i]));
  }
  Store(result, places[2]);
  return 0;
}

int32_t ReferenceMatrixFlow::MultiplyMatrices(const ReferenceCommand& command,
                                              const Place* places) {
  const std::vector<Number> a = Load(places[0], command.bytes);
  const std::vector<Number> b = Load(places[1], command.bytes);
  if (isOutside) {
    return 0;
  }
  const size_t n = command.bytes == 36 ? 3 : 4;
  std::vector<Number> result(n * n);
  for (size_t column = 0; column < n; ++column) {
    for (size_t row = 0; row < n; ++row) {
      Number sum = Combine('*', a[row], b[n * column]);
      for (size_t k = 1; k < n; ++k) {
        sum = Combine('+', sum, Combine('*', a[n * k + row], b[n * column + k]));
      }
      result[n * column + row] = sum;
    }
  }
  Store(result, places[2]);
  return 0;
}

int32_t ReferenceMatrixFlow::Call(ReferenceBuffer* buffer) {
  if (!HasBytes(*buffer, 4)) {
    return CutOff();
  }
  const uint32_t callee = ReadWord(buffer);
  return isOutside ? 0 : Run(callee);
}

int32_t ReferenceMatrixFlow::BulkCopy(ReferenceBuffer* buffer) {
  if (!HasBytes(*buffer, 20)) {
    return CutOff();
  }
  const uint32_t bytes = ReadWord(buffer) * 4;
  Place places[2];
  const int32_t code = Resolve(buffer, 2, bytes, places);
  if (code == 0 && !isOutside && bytes != 0) {
    Copy(places[1], places[0], bytes);
  }
  return code;
}

int32_t ReferenceMatrixFlow::CutOff() {
  log += "[NQ_WARN][MatrixFlow]: Command buffer overflow\n";
  return 2;
}

// A word of a stream.
uint32_t ReferenceMatrixFlow::Word(uint32_t memoryID, uint32_t offset) {
  if (!HasRoom(Place{memoryID, offset}, 4)) {
    return 0;
  }
  const ReferenceBlock& block = blocks[memoryID];
  uint32_t word = 0;
  for (uint32_t i = 0; i < 4; ++i) {
    word |= static_cast<uint32_t>(block.bytes[offset + i]) << (8 * i);
    isOutside = isOutside || block.marks[offset + i] != 0;
  }
  return word;
}

// Positions are multiples of 4 from the start.
uint32_t ReferenceMatrixFlow::ReadWord(ReferenceBuffer* buffer) {
  const uint32_t word = Word(buffer->memoryID, buffer->position);
  buffer->position += 4;
  return word;
}

bool ReferenceMatrixFlow::HasBytes(const ReferenceBuffer& buffer, uint32_t bytes) const {
  return static_cast<int32_t>(buffer.position + bytes) <=
         static_cast<int32_t>(buffer.limits.back());
}

int32_t ReferenceMatrixFlow::Resolve(ReferenceBuffer* buffer, int count, uint32_t length,
                                     Place* places) {
  for (int i = 0; i < count; ++i) {
    places[i].memoryID = ReadWord(buffer);
    places[i].offset = ReadWord(buffer);
    if (isOutside) {
      return 0;
    }
    const auto found = blocks.find(places[i].memoryID);
    const uint32_t end = places[i].offset + length;
    if (found == blocks.end() || found->second.size < end) {
      log += "[NQ_WARN][MatrixFlow]: Memory Error (id, offset, len) not match";
      return 4;
    }
    wraps += end < length ? 1 : 0;
  }
  return 0;
}

bool ReferenceMatrixFlow::HasRoom(const Place& place, uint32_t bytes) {
  const uint64_t end = static_cast<uint64_t>(place.offset) + bytes;
  if (end > blocks[place.memoryID].bytes.size()) {
    isOutside = true;
    return false;
  }
  return true;
}

// Through a copy, so that the two ranges may overlap.
void ReferenceMatrixFlow::CopyWhole(const Place& from, const Place& to, uint32_t bytes) {
  if (!HasRoom(from, bytes) || !HasRoom(to, bytes)) {
    return;
  }
  const ReferenceBlock before = blocks[from.memoryID];
  ReferenceBlock* target = &blocks[to.memoryID];
  for (uint32_t i = 0; i < bytes; ++i) {
    target->bytes[to.offset + i] = before.bytes[from.offset + i];
    target->marks[to.offset + i] = before.marks[from.offset + i];
  }
  slackWrites += to.offset + bytes > target->size ? 1 : 0;
  selfWrites += to.memoryID == buffers[running.back()].memoryID ? 1 : 0;
}

// Has no defined result if the ranges overlap.
void ReferenceMatrixFlow::Copy(const Place& from, const Place& to, uint32_t bytes) {
  const uint32_t distance =
      from.offset < to.offset ? to.offset - from.offset : from.offset - to.offset;
  if (from.memoryID == to.memoryID && distance < bytes) {
    isOutside = true;
    return;
  }
  CopyWhole(from, to, bytes);
}

std::vector<ReferenceNumber> ReferenceMatrixFlow::Load(const Place& place, uint32_t bytes) {
  std::vector<Number> numbers;
  if (!HasRoom(place, bytes)) {
    return numbers;
  }
  const ReferenceBlock& block = blocks[place.memoryID];
  for (uint32_t at = place.offset; at < place.offset + bytes; at += 4) {
    Number number;
    bool isCertain = true;
    bool isNotANumber = true;
    for (uint8_t i = 0; i < 4; ++i) {
      isCertain = isCertain && block.marks[at + i] == 0;
      isNotANumber = isNotANumber && block.marks[at + i] == i + 1;
    }
    std::memcpy(&number.value, &block.bytes[at], 4);
    if (!isCertain) {
      number.kind = isNotANumber ? Number::kNotANumber : Number::kUnknown;
    }
    numbers.push_back(number);
  }
  return numbers;
}

void ReferenceMatrixFlow::Store(const std::vector<ReferenceNumber>& numbers, const Place& place) {
  if (!HasRoom(place, static_cast<uint32_t>(4 * numbers.size()))) {
    return;
  }
  ReferenceBlock* block = &blocks[place.memoryID];
  uint32_t at = place.offset;
  for (const Number& number : numbers) {
    const float value =
        number.kind == Number::kExact ? number.value : std::numeric_limits<float>::quiet_NaN();
    std::memcpy(&block->bytes[at], &value, 4);
    for (uint8_t i = 0; i < 4; ++i) {
      block->marks[at + i] = number.kind == Number::kExact     ? 0
                             : number.kind == Number::kUnknown ? 5
                                                               : static_cast<uint8_t>(i + 1);
    }
    at += 4;
  }
  selfWrites += place.memoryID == buffers[running.back()].memoryID ? 1 : 0;
}

}  // namespace nq::engine
