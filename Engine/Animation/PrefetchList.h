// The cache lines that an update touched, to be prefetched before the next one.
#ifndef NQ_ENGINE_ANIMATION_PREFETCHLIST_H_
#define NQ_ENGINE_ANIMATION_PREFETCHLIST_H_

#include <cstddef>
#include <cstdint>

#include "Common/Def/Platform.h"

namespace nq::engine {

// What an update reads is spread over many small objects, each found through the one before: with
// cold caches it would wait for one after the other. They are mostly those of the update before,
// whose addresses are noted here, so that all are fetched at once.
//
// Only hints: nothing depends on what is at an address, which may be of memory that is gone. They
// are kept as distances from this object, in cache lines, which takes half the memory.
//
// Thread safety: one thread at a time.
class PrefetchList {
 public:
  PrefetchList() = default;
  PrefetchList(const PrefetchList&) = delete;
  PrefetchList& operator=(const PrefetchList&) = delete;

  // Prefetches what was noted, and starts to note anew.
  void Begin() {
    for (uint32_t i = 0; i < count; ++i) {
      NQ_PREFETCH_OBJECT(reinterpret_cast<const void*>(
          (Line(this) + static_cast<uintptr_t>(intptr_t{distances[i]})) * kLineBytes));
    }
    count = 0;
  }

  // Notes the lines of `bytes` bytes; ignored once the list is full.
  void Note(const void* first, size_t bytes) {
    const uintptr_t begin = reinterpret_cast<uintptr_t>(first);
    const uintptr_t end = (begin + bytes + kLineBytes - 1) / kLineBytes;
    uint32_t at = count;
    for (uintptr_t line = begin / kLineBytes; line < end && at < kCapacity && bytes != 0; ++line) {
      const int32_t distance = static_cast<int32_t>(line - Line(this));
      // Mostly it is the same as before: then the list's own memory is not written.
      if (distances[at] != distance) {
        distances[at] = distance;
      }
      ++at;
    }
    count = at;
  }
  template <typename T>
  void Note(const T* object) {
    Note(object, sizeof(T));
  }

  // Lines noted since Begin.
  uint32_t Count() const { return count; }

  // Enough for a few layers and states.
  static constexpr uint32_t kCapacity = 47;

 private:
  static constexpr uintptr_t kLineBytes = 64;

  static uintptr_t Line(const void* address) {
    return reinterpret_cast<uintptr_t>(address) / kLineBytes;
  }

  int32_t distances[kCapacity] = {};
  uint32_t count = 0;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_PREFETCHLIST_H_
