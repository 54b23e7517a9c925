// The list of entities whose transforms changed, shared with script.
#ifndef NQ_ENGINE_ENTITY_DIRTYENTITYLIST_H_
#define NQ_ENGINE_ENTITY_DIRTYENTITYLIST_H_

#include <cstddef>
#include <cstdint>

#include "Common/Def/Mutex.h"
#include "Common/Def/Unaligned.h"

namespace nq::engine {

// Size in bytes of each of the two buffers that the script fills every frame.
constexpr uint32_t kSharedListBytes = 49152;

// Number of entries after the count word.
constexpr uint32_t kDirtyListCapacity = 12287;
static_assert((kDirtyListCapacity + 1) * kWordBytes == kSharedListBytes, "count word and entries");

// Word 0 is the count N, words 1 to N are handles, in order of appending. Duplicates are allowed.
// The script appends entities whose records it wrote, native code those that it wrote itself. The
// script must never store a count above the capacity, which is tested for equality only.
//
// Thread safety: Append may run on several threads at once, under `dirtyLock`. Everything else runs
// on the script thread while no workers are active, and takes no lock.
class DirtyEntityList {
 public:
  // `words` is the start of the shared block. Not owned.
  void Attach(void* words) { this->words = static_cast<uint8_t*>(words); }

  // Appends a handle; if the list is full, drops it silently.
  void Append(uint32_t handle) NQ_EXCLUDES(dirtyLock) {
    MutexLock lock(dirtyLock);
    const uint32_t count = Count();
    if (count != kDirtyListCapacity) {
      StoreWord(count + 1, handle);
      StoreWord(0, count + 1);
    }
  }

  void Clear() { StoreWord(0, 0); }
  bool NotEmpty() const { return Count() != 0; }
  uint32_t Count() const { return Entry(0); }

  // The handle at `index`, counted from 1.
  uint32_t Entry(uint32_t index) const { return ReadWord(words, index); }

 private:
  void StoreWord(uint32_t index, uint32_t value) {
    WriteUnaligned(words + size_t{kWordBytes} * index, value);
  }

  uint8_t* words = nullptr;
  Mutex dirtyLock;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_DIRTYENTITYLIST_H_
