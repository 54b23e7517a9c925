// The handle table.
#ifndef NQ_COMMON_DEF_HANDLERALLOCATOR_H_
#define NQ_COMMON_DEF_HANDLERALLOCATOR_H_

#include <cstdint>
#include <vector>

#include "Common/Def/Handle.h"
#include "Common/Def/HandlerValue.h"
#include "Common/Def/Log.h"

namespace nq::engine {

// Free slots that a table keeps for reuse; slots released beyond that are never reused.
constexpr uint32_t kFreeStackCapacity = 4096;

// Issues handles and owns the values behind them. `Value` derives from HandlerValue and is
// constructed from the table's owner and its key. Handles issued here have an element part of 0.
//
// A handle has no generation count: once a slot is reused, an old handle names the new value.
//
// Thread safety: Allocate and Release run on the script thread only. Find may run on worker threads
// while the script thread waits for them, since nothing changes the table meanwhile.
//
// Slots are issued in ascending order, so the table is an array over slots: a look-up is one bounds
// check and one load.
template <typename Value>
class HandlerAllocator {
 public:
  explicit HandlerAllocator(HandlerOwner* owner) : owner(owner) {}
  ~HandlerAllocator() { ReleaseAll(); }
  HandlerAllocator(const HandlerAllocator&) = delete;
  HandlerAllocator& operator=(const HandlerAllocator&) = delete;

  // Inserts a new value under a new key: the key released last, if one is kept for reuse. When the
  // slot numbers are used up, prints "[NQ_WARN][HandlerAllocator]: " and "Handler overflow"
  // (without a line feed) and returns null.
  Value* Allocate() {
    uint32_t key;
    if (freeCount != 0) {
      key = freeStack[--freeCount];
    } else if (nextIndex == kHandleSlotLimit) {
      NQ_LOG("[NQ_WARN][HandlerAllocator]: ", "Handler overflow");
      return nullptr;
    } else {
      key = nextIndex << kHandleElementBits;
      ++nextIndex;
      values.resize(nextIndex, nullptr);
    }
    Value* value = new Value(owner, key);
    values[HandleSlot(key)] = value;
    ++valueCount;
    return value;
  }

  // Removes and deletes the value of `handle`, any handle of its batch; 0 and unknown handles are
  // ignored. Deleting the value drops a reference on the table's owner, which may delete this
  // table: do not use it afterwards.
  void Release(uint32_t handle) {
    Value* value = Find(handle);
    if (value == nullptr) {
      return;
    }
    const uint32_t key = HandleKey(handle);
    values[HandleSlot(key)] = nullptr;
    --valueCount;
    if (freeCount < kFreeStackCapacity) {
      freeStack[freeCount++] = key;
    }
    delete value;
  }

  // The value of the handle's key, or null. Not owned.
  Value* Find(uint32_t handle) const {
    const uint32_t slot = HandleSlot(handle);
    return slot < values.size() ? values[slot] : nullptr;
  }

  // Releases every value, in ascending order of keys. Only at the destruction of the table's owner.
  void ReleaseAll() {
    for (uint32_t slot = 1; valueCount != 0; ++slot) {
      Release(slot << kHandleElementBits);
    }
  }

  // Calls `visit(Value*)` for every value, in ascending order of keys.
  template <typename Visit>
  void ForEach(Visit visit) const {
    for (Value* value : values) {
      if (value != nullptr) {
        visit(value);
      }
    }
  }

  uint32_t Count() const { return valueCount; }

 private:
  HandlerOwner* const owner;
  uint32_t freeStack[kFreeStackCapacity];
  uint32_t freeCount = 0;
  uint32_t nextIndex = 1;
  std::vector<Value*> values = {nullptr};  // by slot; slot 0 is never issued
  uint32_t valueCount = 0;
};

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_HANDLERALLOCATOR_H_
