// MatrixFlowSystem::ExecuteCommandBuffer: the loop over a stream, operands, and all commands.
#include <emmintrin.h>

#include <cstring>
#include <limits>

#include "Common/Def/EngineRuntime.h"
#include "Common/Def/Log.h"
#include "Common/Def/MathKernels.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/MatrixFlow/MatrixFlowCommand.h"
#include "Engine/MatrixFlow/MatrixFlowSystem.h"

namespace nq::engine {

namespace {

// Bytes of values.
constexpr uint32_t kScalarBytes = 4;
constexpr uint32_t kVector2Bytes = 8;
constexpr uint32_t kVector3Bytes = 12;
constexpr uint32_t kVector4Bytes = 16;
constexpr uint32_t kMatrix3Bytes = 36;
constexpr uint32_t kMatrix4Bytes = 64;

// Bytes of operand words, by shape.
constexpr int32_t kCallBytes = 4;
constexpr int32_t kTwoOperandsBytes = 16;
constexpr int32_t kBulkBytes = 20;
constexpr int32_t kThreeOperandsBytes = 24;

constexpr uint32_t kMaxOperands = 3;

int32_t ReportCutOff() {
  NQ_LOG("[NQ_WARN][MatrixFlow]: ", "Command buffer overflow\n");
  return kMatrixFlowCutOff;
}

// What stands behind a command's type: operands, resolved in the order in which they stand.
struct Operands {
  uint8_t* bytes[kMaxOperands];
};

// A run over one stream.
class Run {
 public:
  Run(const MemoryAllocator& memory, StreamReader* reader) : memory(memory), reader(reader) {}

  // Resolves operands that must hold `length` bytes each. Nothing has been read or written when
  // this fails.
  template <uint32_t count>
  int32_t Resolve(uint32_t length, Operands* operands) {
    for (uint32_t i = 0; i < count; ++i) {
      const uint32_t memoryID = reader->readU32();
      const MemoryBlock block = memory.Find(memoryID);
      const uint32_t offset = reader->readU32();
      // Kept on purpose: the sum wraps as a 32-bit number does.
      if (block.pointer == nullptr || block.size < offset + length) {
        NQ_LOG("[NQ_WARN][MatrixFlow]: ", "Memory Error (id, offset, len) not match");
        return kMatrixFlowOutOfBlock;
      }
      operands->bytes[i] = static_cast<uint8_t*>(block.pointer) + offset;
    }
    return kMatrixFlowDone;
  }

  // The same, with the proof ahead of it that the words are there.
  template <uint32_t count>
  int32_t Read(uint32_t length, Operands* operands) {
    constexpr int32_t kBytes = count == 2 ? kTwoOperandsBytes : kThreeOperandsBytes;
    return reader->checkRange(kBytes, 4, 0) < 0 ? ReportCutOff() : Resolve<count>(length, operands);
  }

  // D, S. Moves `bytes`, having proven `length`.
  template <uint32_t bytes>
  int32_t Copy(uint32_t length) {
    Operands o;
    const int32_t code = Read<2>(length, &o);
    if (code == kMatrixFlowDone) {
      CopyValue<bytes>(o.bytes[1], o.bytes[0]);
    }
    return code;
  }

  // A, B, R. All of the inputs is loaded before any of the result is stored.
  template <uint32_t bytes, typename Operation>
  int32_t ByComponent(Operation operation) {
    Operands o;
    const int32_t code = Read<3>(bytes, &o);
    if (code != kMatrixFlowDone) {
      return code;
    }
    constexpr uint32_t kFours = bytes / 16;
    constexpr uint32_t kRest = bytes % 16;
    __m128 fours[kFours + 1];
    for (uint32_t i = 0; i < kFours; ++i) {
      fours[i] = operation(Load<16>(o.bytes[0] + 16 * i), Load<16>(o.bytes[1] + 16 * i));
    }
    if (kRest != 0) {
      fours[kFours] =
          operation(Load<kRest>(o.bytes[0] + 16 * kFours), Load<kRest>(o.bytes[1] + 16 * kFours));
    }
    for (uint32_t i = 0; i < kFours; ++i) {
      std::memcpy(o.bytes[2] + 16 * i, &fours[i], 16);
    }
    std::memcpy(o.bytes[2] + 16 * kFours, &fours[kFours], kRest);
    return kMatrixFlowDone;
  }

  // Kept on purpose: not only numbers near 0 are refused, but all negative ones. One that is no
  // number is not.
  int32_t DivideScalars() {
    Operands o;
    const int32_t code = Read<3>(kScalarBytes, &o);
    if (code != kMatrixFlowDone) {
      return code;
    }
    float a;
    float b;
    std::memcpy(&a, o.bytes[0], sizeof(a));
    std::memcpy(&b, o.bytes[1], sizeof(b));
    if (std::numeric_limits<float>::min() > b) {
      return kMatrixFlowDivisorTooSmall;
    }
    const float result = a / b;
    std::memcpy(o.bytes[2], &result, sizeof(result));
    return kMatrixFlowDone;
  }

  int32_t MultiplyMatrices3() {
    Operands o;
    const int32_t code = Read<3>(kMatrix3Bytes, &o);
    if (code != kMatrixFlowDone) {
      return code;
    }
    float a[9];
    float b[9];
    float product[9];
    std::memcpy(a, o.bytes[0], kMatrix3Bytes);
    std::memcpy(b, o.bytes[1], kMatrix3Bytes);
    for (int c = 0; c < 3; ++c) {
      for (int r = 0; r < 3; ++r) {
        product[3 * c + r] = a[r] * b[3 * c] + a[3 + r] * b[3 * c + 1] + a[6 + r] * b[3 * c + 2];
      }
    }
    std::memcpy(o.bytes[2], product, kMatrix3Bytes);
    return kMatrixFlowDone;
  }

  int32_t MultiplyMatrices4() {
    Operands o;
    const int32_t code = Read<3>(kMatrix4Bytes, &o);
    if (code != kMatrixFlowDone) {
      return code;
    }
    float a[16];
    float b[16];
    float product[16];
    std::memcpy(a, o.bytes[0], kMatrix4Bytes);
    std::memcpy(b, o.bytes[1], kMatrix4Bytes);
    multiplyMatrix4(a, b, product);
    std::memcpy(o.bytes[2], product, kMatrix4Bytes);
    return kMatrixFlowDone;
  }

  // S, D.
  // Kept on purpose: the inverse is thrown away, and D gets S; so it is not computed.
  int32_t InvertMatrix4() {
    Operands o;
    const int32_t code = Read<2>(kMatrix4Bytes, &o);
    if (code == kMatrixFlowDone) {
      CopyValue<kMatrix4Bytes>(o.bytes[0], o.bytes[1]);
    }
    return code;
  }

  int32_t CopyBulk() {
    if (reader->checkRange(kBulkBytes, 4, 0) < 0) {
      return ReportCutOff();
    }
    // Kept on purpose: the product wraps as a 32-bit number does.
    const uint32_t bytes = reader->readU32() * 4;
    Operands o;
    const int32_t code = Resolve<2>(bytes, &o);
    if (code == kMatrixFlowDone) {
      std::memmove(o.bytes[0], o.bytes[1], bytes);
    }
    return code;
  }

 private:
  // The first `bytes` of a vector; the rest is zero.
  template <uint32_t bytes>
  static __m128 Load(const uint8_t* from) {
    __m128 value = _mm_setzero_ps();
    std::memcpy(&value, from, bytes);
    return value;
  }

  template <uint32_t bytes>
  static void CopyValue(const uint8_t* from, uint8_t* to) {
    uint8_t value[bytes];
    std::memcpy(value, from, bytes);
    std::memcpy(to, value, bytes);
  }

  const MemoryAllocator& memory;
  StreamReader* const reader;
};

const auto kAdd = [](__m128 a, __m128 b) { return _mm_add_ps(a, b); };
const auto kSub = [](__m128 a, __m128 b) { return _mm_sub_ps(a, b); };
const auto kMul = [](__m128 a, __m128 b) { return _mm_mul_ps(a, b); };
const auto kDiv = [](__m128 a, __m128 b) { return _mm_div_ps(a, b); };

}  // namespace

int32_t MatrixFlowSystem::ExecuteCommandBuffer(uint32_t handle) {
  MatrixFlowCommandBuffer* buffer = commandBuffers.Find(handle);
  if (buffer == nullptr) {
    NQ_LOG("[NQ_WARN][MatrixFlow]: ", "Command buffer invalid, handler: %d\n",
           static_cast<int>(handle));
    return kMatrixFlowNoBuffer;
  }
  // A buffer that calls itself shares its reader with the run inside.
  StreamReader* reader = buffer->reader.get();
  Run run(core->Runtime()->Memory(), reader);
  reader->begin();
  int32_t code = kMatrixFlowDone;
  while (code == kMatrixFlowDone && reader->checkRange(1, 1, 0) >= 1) {
    const int32_t type = reader->readI32();
    switch (static_cast<MatrixFlowCommand>(type)) {
      case MatrixFlowCommand::kCall:
        code = reader->checkRange(kCallBytes, 4, 0) < 0 ? ReportCutOff()
                                                        : ExecuteCommandBuffer(reader->readU32());
        break;
      case MatrixFlowCommand::kScalarCopy:
        code = run.Copy<kScalarBytes>(kScalarBytes);
        break;
      case MatrixFlowCommand::kScalarAdd:
        code = run.ByComponent<kScalarBytes>(kAdd);
        break;
      case MatrixFlowCommand::kScalarSub:
        code = run.ByComponent<kScalarBytes>(kSub);
        break;
      case MatrixFlowCommand::kScalarMul:
        code = run.ByComponent<kScalarBytes>(kMul);
        break;
      case MatrixFlowCommand::kScalarDiv:
        code = run.DivideScalars();
        break;
      case MatrixFlowCommand::kVector2Copy:
        code = run.Copy<kVector2Bytes>(kScalarBytes);
        break;
      case MatrixFlowCommand::kVector2Add:
        code = run.ByComponent<kVector2Bytes>(kAdd);
        break;
      case MatrixFlowCommand::kVector2Sub:
        code = run.ByComponent<kVector2Bytes>(kSub);
        break;
      case MatrixFlowCommand::kVector2Mul:
        code = run.ByComponent<kVector2Bytes>(kMul);
        break;
      case MatrixFlowCommand::kVector2Div:
        code = run.ByComponent<kVector2Bytes>(kDiv);
        break;
      case MatrixFlowCommand::kVector3Copy:
        code = run.Copy<kVector3Bytes>(kScalarBytes);
        break;
      case MatrixFlowCommand::kVector3Add:
        code = run.ByComponent<kVector3Bytes>(kAdd);
        break;
      case MatrixFlowCommand::kVector3Sub:
        code = run.ByComponent<kVector3Bytes>(kSub);
        break;
      case MatrixFlowCommand::kVector3Mul:
        code = run.ByComponent<kVector3Bytes>(kMul);
        break;
      case MatrixFlowCommand::kVector3Div:
        code = run.ByComponent<kVector3Bytes>(kDiv);
        break;
      case MatrixFlowCommand::kVector4Copy:
        code = run.Copy<kVector4Bytes>(kVector4Bytes);
        break;
      case MatrixFlowCommand::kVector4Add:
        code = run.ByComponent<kVector4Bytes>(kAdd);
        break;
      case MatrixFlowCommand::kVector4Sub:
        code = run.ByComponent<kVector4Bytes>(kSub);
        break;
      case MatrixFlowCommand::kVector4Mul:
        code = run.ByComponent<kVector4Bytes>(kMul);
        break;
      case MatrixFlowCommand::kVector4Div:
        code = run.ByComponent<kVector4Bytes>(kDiv);
        break;
      case MatrixFlowCommand::kMatrix3Copy:
        code = run.Copy<kMatrix3Bytes>(kMatrix3Bytes);
        break;
      case MatrixFlowCommand::kMatrix3Add:
        code = run.ByComponent<kMatrix3Bytes>(kAdd);
        break;
      case MatrixFlowCommand::kMatrix3Sub:
        code = run.ByComponent<kMatrix3Bytes>(kSub);
        break;
      case MatrixFlowCommand::kMatrix3Mul:
        code = run.MultiplyMatrices3();
        break;
      case MatrixFlowCommand::kMatrix4Copy:
        code = run.Copy<kMatrix4Bytes>(kMatrix4Bytes);
        break;
      case MatrixFlowCommand::kMatrix4Add:
        code = run.ByComponent<kMatrix4Bytes>(kAdd);
        break;
      case MatrixFlowCommand::kMatrix4Sub:
        code = run.ByComponent<kMatrix4Bytes>(kSub);
        break;
      case MatrixFlowCommand::kMatrix4Mul:
        code = run.MultiplyMatrices4();
        break;
      case MatrixFlowCommand::kMatrix4Invert:
        code = run.InvertMatrix4();
        break;
      case MatrixFlowCommand::kBulkCopy:
        code = run.CopyBulk();
        break;
      default:
        NQ_LOG("[NQ_FATAL][MatrixFlow]: ", "Command type invalid, type: %d\n", type);
        return kMatrixFlowUnknownCommand;
    }
  }
  return code;
}

}  // namespace nq::engine
