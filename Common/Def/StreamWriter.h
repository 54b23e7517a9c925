// The producer's side of the streams that StreamReader reads.
#ifndef NQ_COMMON_DEF_STREAMWRITER_H_
#define NQ_COMMON_DEF_STREAMWRITER_H_

#include <cstdint>
#include <cstring>

#include "Common/Def/StreamReader.h"
#include "Common/Def/Unaligned.h"

namespace nq::engine {

// Appends values to a stream. The segment's header word is the length counter; a writer has no
// other state, and any number of them may alternate on one segment. The segment's size is not
// checked: the caller guarantees the space. Does not own the segment. Script thread only.
//
// A writer aligns lengths, a reader aligns positions, which are four bytes larger. For alignments
// of 1, 2 and 4 they agree; for others they don't, so streams shared with JavaScript use only
// these.
class StreamWriter {
 public:
  // `header` is the start of the segment.
  explicit StreamWriter(void* header) : header(static_cast<uint8_t*>(header)) {}

  void reset() { SetLength(0); }

  void writeU8(uint8_t value) { Write(value); }
  void writeI8(int8_t value) { Write(value); }
  void writeBool(bool value) { Write(static_cast<uint8_t>(value ? 1 : 0)); }
  void writeU16(uint16_t value) { Write(value); }
  void writeU32(uint32_t value) { Write(value); }
  void writeI32(int32_t value) { Write(value); }
  void writeF32(float value) { Write(value); }

  // Copies `n` bytes, unaligned.
  void writeBytes(const void* source, uint32_t n) {
    if (n != 0) {
      std::memcpy(header + kStreamHeaderBytes + Length(), source, n);
    }
    SetLength(Length() + n);
  }

  // Stores a 0 and returns its address, so that a count or a block's length can be patched in
  // later. The address is 4-byte aligned within the segment.
  uint32_t* reserveU32() {
    writeU32(0);
    return reinterpret_cast<uint32_t*>(header + Length());
  }

  // Adds `n` to the length without storing anything; returns `n`.
  uint32_t advance(uint32_t n) {
    SetLength(Length() + n);
    return n;
  }

  // Rounds the length up to a multiple of `n`, which is not 0.
  void alignTo(uint32_t n) { SetLength(AlignStreamPosition(Length(), n)); }

  // Bytes of the segment in use, header word included.
  uint32_t totalSize() const { return Length() + kStreamHeaderBytes; }

 private:
  uint32_t Length() const { return ReadUnaligned<uint32_t>(header); }
  void SetLength(uint32_t length) { WriteUnaligned(header, length); }

  template <typename T>
  void Write(T value) {
    const uint32_t at = AlignStreamPosition(Length(), sizeof(T));
    WriteUnaligned(header + kStreamHeaderBytes + at, value);
    SetLength(at + static_cast<uint32_t>(sizeof(T)));
  }

  uint8_t* const header;
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_STREAMWRITER_H_
