// MatrixFlowSystem::ExecuteCommandBuffer: the interpreter loop, operands, and all commands.
#include <algorithm>
#include <cstring>
#include <limits>

#include "Common/Def/EngineRuntime.h"
#include "Common/Def/Log.h"
#include "Common/Def/MathKernels.h"
#include "Common/Def/MatrixProduct.h"
#include "Common/Def/Platform.h"
#include "Common/Def/Unaligned.h"
#include "Common/Def/Vectors.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/MatrixFlow/MatrixFlowCommand.h"
#include "Engine/MatrixFlow/MatrixFlowSystem.h"

namespace nq::engine {

namespace {

// Sizes of values in bytes.
constexpr uint32_t kScalarBytes = 4;
constexpr uint32_t kVector2Bytes = 8;
constexpr uint32_t kVector3Bytes = 12;
constexpr uint32_t kVector4Bytes = 16;
constexpr uint32_t kMatrix3Bytes = 36;
constexpr uint32_t kMatrix4Bytes = 64;

// Sizes of operand lists in bytes.
constexpr int32_t kCallBytes = 4;
constexpr int32_t kTwoOperandsBytes = 16;
constexpr int32_t kBulkBytes = 20;
constexpr int32_t kThreeOperandsBytes = 24;

constexpr uint32_t kMaxOperands = 3;

// Size of a reference in bytes: memoryID and offset.
constexpr uint32_t kReferenceBytes = 8;
constexpr uint32_t kTypeBytes = 4;

// Prefetch distance in products.
constexpr uint32_t kPrefetchProducts = 12;

// The resolved operands of a command, in stream order.
struct Operands {
  uint8_t* bytes[kMaxOperands];
};

// A run over one stream. Caches the reader's position and limit; Leave writes the position back,
// Enter reads both again.
//
// Its functions are force-inlined, so that the position stays in a register: otherwise each command
// would wait for the previous one's store of it.
class Run {
 public:
  Run(const MemoryAllocator& memory, StreamReader* reader)
      : memory(memory), reader(reader), hasWideVectors(HasWideVectors()) {
    reader->begin();
    Enter();
  }

  NQ_FORCE_INLINE void Enter() {
    data = reader->currentPointer() - reader->Position();
    position = reader->Position();
    limit = static_cast<int32_t>(reader->Limit());
    prefetchEnd = std::min<int64_t>(limit, reader->Capacity());
  }
  NQ_FORCE_INLINE void Leave() { reader->SetPosition(position); }

  // True if no byte is left. A single byte is enough to start reading a command.
  NQ_FORCE_INLINE bool AtEnd() const { return EndOf(position, 1) < 1; }

  // Reads a word, at the next multiple of 4.
  NQ_FORCE_INLINE uint32_t ReadWord() {
    position = AlignStreamPosition(position, 4);
    const uint32_t word = ReadUnaligned<uint32_t>(data + position);
    position += sizeof(word);
    return word;
  }

  // Returns false and reports it, if the stream ends before `bytes` more.
  NQ_FORCE_INLINE bool CheckBytes(int32_t bytes) const {
    if (EndOf(AlignStreamPosition(position, 4), bytes) >= 0) {
      return true;
    }
    NQ_LOG("[NQ_WARN][MatrixFlow]: ", "Command buffer overflow\n");
    return false;
  }

  // Resolves operands that must hold `length` bytes each. On failure nothing has been read or
  // written, and the stream's position is after the failed operand.
  template <uint32_t count>
  NQ_FORCE_INLINE int32_t Resolve(uint32_t length, Operands* operands) {
    static_assert(count == 2 || count == 3, "shapes of operands");
    const uint8_t* words = data + position;
    if (!ResolveOne<0>(words, length, operands) || !ResolveOne<1>(words, length, operands) ||
        (count == 3 && !ResolveOne<2>(words, length, operands))) {
      NQ_LOG("[NQ_WARN][MatrixFlow]: ", "Memory Error (id, offset, len) not match");
      return kMatrixFlowOutOfBlock;
    }
    position += count * kReferenceBytes;
    return kMatrixFlowDone;
  }

  // The same, after checking that the words are there.
  template <uint32_t count>
  NQ_FORCE_INLINE int32_t Read(uint32_t length, Operands* operands) {
    constexpr int32_t kBytes = count == 2 ? kTwoOperandsBytes : kThreeOperandsBytes;
    return CheckBytes(kBytes) ? Resolve<count>(length, operands) : kMatrixFlowCutOff;
  }

  // D, S. Copies `bytes`, having checked `length`.
  template <uint32_t bytes>
  NQ_FORCE_INLINE int32_t Copy(uint32_t length) {
    Operands o;
    const int32_t code = Read<2>(length, &o);
    if (code == kMatrixFlowDone) {
      CopyValue<bytes>(o.bytes[1], o.bytes[0]);
    }
    return code;
  }

  // A, B, R. Loads all of the inputs before storing any of the result.
  template <uint32_t bytes, typename Operation>
  NQ_FORCE_INLINE int32_t ByComponent(Operation operation) {
    Operands o;
    const int32_t code = Read<3>(bytes, &o);
    if (code != kMatrixFlowDone) {
      return code;
    }
    constexpr uint32_t kFours = bytes / 16;
    constexpr uint32_t kRest = bytes % 16;
    __m128 fours[kFours + 1];  // the last one holds the rest
    for (uint32_t i = 0; i < kFours; ++i) {
      fours[i] = operation(Load<16>(o.bytes[0] + 16 * i), Load<16>(o.bytes[1] + 16 * i));
    }
    if constexpr (kRest != 0) {
      fours[kFours] =
          operation(Load<kRest>(o.bytes[0] + 16 * kFours), Load<kRest>(o.bytes[1] + 16 * kFours));
    }
    for (uint32_t i = 0; i < kFours; ++i) {
      Store<16>(fours[i], o.bytes[2] + 16 * i);
    }
    if constexpr (kRest != 0) {
      Store<kRest>(fours[kFours], o.bytes[2] + 16 * kFours);
    }
    return kMatrixFlowDone;
  }

  // Kept on purpose: all negative divisors are rejected, not only those near 0, but NaN is not.
  // Streams rely on the result codes.
  NQ_FORCE_INLINE int32_t DivideScalars() {
    Operands o;
    const int32_t code = Read<3>(kScalarBytes, &o);
    if (code != kMatrixFlowDone) {
      return code;
    }
    const float a = ReadUnaligned<float>(o.bytes[0]);
    const float b = ReadUnaligned<float>(o.bytes[1]);
    if (std::numeric_limits<float>::min() > b) {
      return kMatrixFlowDivisorTooSmall;
    }
    WriteUnaligned(o.bytes[2], a / b);
    return kMatrixFlowDone;
  }

  NQ_FORCE_INLINE int32_t MultiplyMatrices3() {
    Operands o;
    const int32_t code = Read<3>(kMatrix3Bytes, &o);
    if (code != kMatrixFlowDone) {
      return code;
    }
    __m128 a[3];
    __m128 product[3];
    for (int c = 0; c < 3; ++c) {
      a[c] = Load<12>(o.bytes[0] + 12 * c);
    }
    for (int c = 0; c < 3; ++c) {
      const __m128 b = Load<12>(o.bytes[1] + 12 * c);
      __m128 sum = _mm_mul_ps(a[0], _mm_shuffle_ps(b, b, _MM_SHUFFLE(0, 0, 0, 0)));
      sum = _mm_add_ps(sum, _mm_mul_ps(a[1], _mm_shuffle_ps(b, b, _MM_SHUFFLE(1, 1, 1, 1))));
      product[c] = _mm_add_ps(sum, _mm_mul_ps(a[2], _mm_shuffle_ps(b, b, _MM_SHUFFLE(2, 2, 2, 2))));
    }
    for (int c = 0; c < 3; ++c) {
      Store<12>(product[c], o.bytes[2] + 12 * c);
    }
    return kMatrixFlowDone;
  }

  NQ_FORCE_INLINE int32_t MultiplyMatrices4() {
    Operands o;
    const int32_t code = Read<3>(kMatrix4Bytes, &o);
    if (code != kMatrixFlowDone) {
      return code;
    }
    PrefetchLater();
    if (hasWideVectors) {
      MultiplyByTwoColumns(o.bytes[0], o.bytes[1], o.bytes[2]);
    } else {
      MultiplyByColumns(o.bytes[0], o.bytes[1], o.bytes[2]);
    }
    return kMatrixFlowDone;
  }

  // S, D.
  //
  // Kept on purpose: D gets a copy of S; the inverse, being discarded, is not computed. Streams
  // rely on the bytes.
  NQ_FORCE_INLINE int32_t InvertMatrix4() {
    Operands o;
    const int32_t code = Read<2>(kMatrix4Bytes, &o);
    if (code == kMatrixFlowDone) {
      CopyValue<kMatrix4Bytes>(o.bytes[0], o.bytes[1]);
    }
    return code;
  }

  NQ_FORCE_INLINE int32_t CopyBulk() {
    if (!CheckBytes(kBulkBytes)) {
      return kMatrixFlowCutOff;
    }
    // Kept on purpose: the product wraps in 32 bits; streams rely on the result codes.
    const uint32_t bytes = ReadWord() * 4;
    Operands o;
    const int32_t code = Resolve<2>(bytes, &o);
    if (code == kMatrixFlowDone) {
      std::memmove(o.bytes[0], o.bytes[1], bytes);
    }
    return code;
  }

 private:
  // A cached result of the allocator's index. Its ID is wider than those of references, so that the
  // initial one equals none of them.
  struct FoundBlock {
    uint64_t memoryID = uint64_t{1} << 32;
    uint32_t size = 0;
    uint8_t* pointer = nullptr;
  };

  template <uint32_t place>
  NQ_FORCE_INLINE bool ResolveOne(const uint8_t* words, uint32_t length, Operands* operands) {
    uint32_t reference[2];  // memoryID, offset
    std::memcpy(reference, words + place * kReferenceBytes, kReferenceBytes);
    FoundBlock& block = found[place];
    if (block.memoryID != reference[0]) {
      const MemoryBlock other = memory.Find(reference[0]);
      if (other.pointer == nullptr) {
        position += (place + 1) * kReferenceBytes;
        return false;
      }
      block = {reference[0], other.size, static_cast<uint8_t*>(other.pointer)};
    }
    // Kept on purpose: the sum wraps in 32 bits; streams rely on the result codes.
    if (block.size < reference[1] + length) {
      position += (place + 1) * kReferenceBytes;
      return false;
    }
    operands->bytes[place] = block.pointer + reference[1];
    return true;
  }

  // Prefetches the operands of a later command, assuming that it has the same shape and blocks.
  // Only a hint: the words need not be valid yet, and are decoded when the command runs.
  NQ_FORCE_INLINE void PrefetchLater() const {
    constexpr uint32_t kCommandBytes = kTypeBytes + kThreeOperandsBytes;
    constexpr uint32_t kOffsetAt = kTypeBytes + sizeof(uint32_t);
    const int64_t at = int64_t{position} + kPrefetchProducts * kCommandBytes;
    if (at + kCommandBytes > prefetchEnd) {
      return;
    }
    for (uint32_t place = 0; place < kMaxOperands; ++place) {
      const uint32_t offset =
          ReadUnaligned<uint32_t>(data + at + kOffsetAt + place * kReferenceBytes);
      const uintptr_t block = reinterpret_cast<uintptr_t>(found[place].pointer);
      NQ_PREFETCH(reinterpret_cast<const void*>(block + offset));
    }
  }

  // Loads the first `bytes` of a vector; the rest is zero. Words are combined in registers: through
  // memory, the wide load would stall on store forwarding of its parts.
  template <uint32_t bytes>
  static __m128 Load(const uint8_t* from) {
    if constexpr (bytes == 16) {
      return _mm_loadu_ps(reinterpret_cast<const float*>(from));
    } else if constexpr (bytes == 12) {
      return _mm_movelh_ps(Load<8>(from), Load<4>(from + 8));
    } else if constexpr (bytes == 8) {
      return _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)));
    } else {
      return _mm_castsi128_ps(_mm_cvtsi32_si128(ReadUnaligned<int32_t>(from)));
    }
  }

  template <uint32_t bytes>
  static void Store(__m128 value, uint8_t* to) {
    if constexpr (bytes == 16) {
      _mm_storeu_ps(reinterpret_cast<float*>(to), value);
    } else if constexpr (bytes == 12) {
      Store<8>(value, to);
      Store<4>(_mm_movehl_ps(value, value), to + 8);
    } else if constexpr (bytes == 8) {
      _mm_storel_epi64(reinterpret_cast<__m128i*>(to), _mm_castps_si128(value));
    } else {
      WriteUnaligned(to, _mm_cvtsi128_si32(_mm_castps_si128(value)));
    }
  }

  template <uint32_t bytes>
  static void CopyValue(const uint8_t* from, uint8_t* to) {
    uint8_t value[bytes];
    std::memcpy(value, from, bytes);
    std::memcpy(to, value, bytes);
  }

  // The end of `bytes` at `start`, or -1 if it is beyond the limit. Like StreamReader::checkRange:
  // positions compare as signed numbers, and the sum wraps.
  NQ_FORCE_INLINE int32_t EndOf(uint32_t start, int32_t bytes) const {
    const int32_t end = static_cast<int32_t>(start + static_cast<uint32_t>(bytes));
    return end > limit ? -1 : end;
  }

  const MemoryAllocator& memory;
  StreamReader* const reader;
  const bool hasWideVectors;

  // The block found last, for each operand position: consecutive commands mostly use the same. No
  // block is allocated or released during a run. All start empty, even for the stream's own block:
  // its ID may have left the index, and is then as unknown as any other.
  FoundBlock found[kMaxOperands];

  const uint8_t* data;  // the segment
  uint32_t position;
  int32_t limit;
  int64_t prefetchEnd;  // end of the bytes that prefetching may read
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
  Run run(core->Runtime()->Memory(), buffer->reader.get());
  int32_t code = kMatrixFlowDone;
  while (code == kMatrixFlowDone && !run.AtEnd()) {
    const int32_t type = static_cast<int32_t>(run.ReadWord());
    switch (static_cast<MatrixFlowCommand>(type)) {
      case MatrixFlowCommand::kCall:
        code = kMatrixFlowCutOff;
        if (run.CheckBytes(kCallBytes)) {
          const uint32_t callee = run.ReadWord();
          // A buffer that calls itself shares its reader with the nested run.
          run.Leave();
          code = ExecuteCommandBuffer(callee);
          run.Enter();
        }
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
        code = kMatrixFlowUnknownCommand;
        break;
    }
  }
  run.Leave();
  return code;
}

}  // namespace nq::engine
