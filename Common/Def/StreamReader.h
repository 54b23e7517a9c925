// A cursor over a shared segment that holds a stream of typed, aligned values.
#ifndef NQ_COMMON_DEF_STREAMREADER_H_
#define NQ_COMMON_DEF_STREAMREADER_H_

#include <cstdint>
#include <vector>

#include "Common/Def/Unaligned.h"

namespace nq::engine {

// Size in bytes of the header word, which counts the payload bytes after it.
constexpr uint32_t kStreamHeaderBytes = 4;

// Rounds `position` up to a multiple of `alignment`, which is not 0.
constexpr uint32_t AlignStreamPosition(uint32_t position, uint32_t alignment) {
  return position % alignment == 0 ? position : (position / alignment + 1) * alignment;
}

// Reads a stream: a little-endian 32-bit count of payload bytes, then the payload, in which each
// value is aligned to its own size, measured from the segment's start.
//
// Value reads check nothing; the caller first checks a range with checkRange. The limits come from
// the stream alone and are not compared with `capacity`: a header word beyond the segment makes
// reads overrun it. Owns nothing but its stack of limits. Script thread only.
class StreamReader {
 public:
  StreamReader(const void* data, uint32_t capacity)
      : data(static_cast<const uint8_t*>(data)), capacity(capacity) {}

  // Moves to the first payload byte and pushes the payload's end onto the limits. Earlier limits
  // are kept.
  void begin() {
    position = kStreamHeaderBytes;
    limits.push_back(ReadUnaligned<uint32_t>(data) + kStreamHeaderBytes);
  }

  // Reads a 32-bit length and pushes the end of the nested block that follows it. Not clipped to
  // the enclosing limit.
  void pushLimit() {
    const uint32_t length = readU32();
    limits.push_back(position + length);
  }

  // Pops the innermost limit. True if the block was consumed exactly.
  bool popLimit() {
    const uint32_t limit = limits.back();
    limits.pop_back();
    return position == limit;
  }

  // Returns the position at which `size` bytes at `at`, after alignment, end, if it is within the
  // innermost limit; otherwise, and for a negative `at`, -1. An `at` of 0 means the current
  // position. `alignment` is not 0. Positions compare as signed numbers. Does not move the
  // position.
  int32_t checkRange(int32_t size, uint32_t alignment, int32_t at) const {
    if (at < 0) {
      return -1;
    }
    uint32_t base = at == 0 ? position : static_cast<uint32_t>(at);
    if (alignment != 1) {
      base = AlignStreamPosition(base, alignment);
    }
    // The sum wraps in 32 bits.
    const int32_t end = static_cast<int32_t>(base + static_cast<uint32_t>(size));
    return end > static_cast<int32_t>(limits.back()) ? -1 : end;
  }

  uint8_t readU8() { return Read<uint8_t>(); }
  int8_t readI8() { return Read<int8_t>(); }
  bool readBool() { return Read<uint8_t>() != 0; }
  uint16_t readU16() { return Read<uint16_t>(); }
  uint32_t readU32() { return Read<uint32_t>(); }
  int32_t readI32() { return Read<int32_t>(); }
  float readF32() { return Read<float>(); }

  // Rounds the position up to a multiple of `n`, which is not 0.
  void alignTo(uint32_t n) { position = AlignStreamPosition(position, n); }

  // The bytes at the position, for arrays that are read in place.
  const uint8_t* currentPointer() const { return data + position; }

  // Advances by `n` bytes, unchecked and unaligned.
  void skip(uint32_t n) { position += n; }

  // Bytes from the segment's start to the next value.
  uint32_t Position() const { return position; }
  void SetPosition(uint32_t value) { position = value; }

  // The end of the innermost block.
  uint32_t Limit() const { return limits.back(); }

  uint32_t Capacity() const { return capacity; }
  size_t LimitCount() const { return limits.size(); }

 private:
  // The aligned position is stored whether or not the value is within a limit.
  template <typename T>
  T Read() {
    constexpr uint32_t kMask = sizeof(T) - 1;
    position = (position + kMask) & ~kMask;
    const T value = ReadUnaligned<T>(data + position);
    position += sizeof(T);
    return value;
  }

  const uint8_t* const data;  // the header word; not owned
  const uint32_t capacity;    // bytes in the segment; not used for checks
  uint32_t position = 0;
  std::vector<uint32_t> limits;  // the last is the innermost block's end
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_STREAMREADER_H_
