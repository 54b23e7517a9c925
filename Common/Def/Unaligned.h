// Unaligned loads and stores: words of shared memory, fields of binary formats.
#ifndef NQ_COMMON_DEF_UNALIGNED_H_
#define NQ_COMMON_DEF_UNALIGNED_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Common/Def/Platform.h"

namespace nq::engine {

// Size of a 32-bit word, the unit of streams, lists and handle arrays.
constexpr uint32_t kWordBytes = 4;

// Reads a `T` at `address`, whatever its alignment.
template <typename T>
NQ_FORCE_INLINE T ReadUnaligned(const void* address) {
  T value;
  std::memcpy(&value, address, sizeof(value));
  return value;
}

template <typename T>
NQ_FORCE_INLINE void WriteUnaligned(void* address, const T& value) {
  std::memcpy(address, &value, sizeof(value));
}

// Word `index` of an array at any address.
NQ_FORCE_INLINE uint32_t ReadWord(const uint8_t* words, size_t index) {
  return ReadUnaligned<uint32_t>(words + index * kWordBytes);
}

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_UNALIGNED_H_
