// Aligned heap memory; the offset to the raw address is stored before the result.
#include "Common/Def/AlignedAlloc.h"

#include <cstdlib>

#include "Common/Def/Unaligned.h"

namespace nq::engine {

namespace {

constexpr uint32_t kDistanceBytes = 4;

}  // namespace

void* AlignedAlloc(uint32_t alignment, uint32_t size) {
  const size_t step = alignment > kDistanceBytes ? alignment : kDistanceBytes;
  // Summed in size_t: a size close to 4 GiB must not wrap to a small block.
  char* raw = static_cast<char*>(std::malloc(step + size + kDistanceBytes));
  const uintptr_t start = reinterpret_cast<uintptr_t>(raw);
  const uintptr_t earliest = start + kDistanceBytes;
  const uintptr_t aligned = (earliest + step - 1) / step * step;
  const uint32_t distance = static_cast<uint32_t>(aligned - start);
  char* result = raw + distance;
  WriteUnaligned(result - kDistanceBytes, distance);
  return result;
}

void AlignedFree(void* pointer) {
  char* position = static_cast<char*>(pointer);
  std::free(position - ReadUnaligned<uint32_t>(position - kDistanceBytes));
}

}  // namespace nq::engine
