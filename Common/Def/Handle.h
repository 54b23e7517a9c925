// The 32-bit handles by which JavaScript names native values.
#ifndef NQ_COMMON_DEF_HANDLE_H_
#define NQ_COMMON_DEF_HANDLE_H_

#include <cstdint>

namespace nq::engine {

// A handle is a slot of a table (bits 31 to 12) and the index of an element in the batch that the
// slot holds (bits 11 to 0). 0 is the null handle. A handle is meaningful only together with its
// kind, since every table numbers its own slots.
constexpr uint32_t kHandleElementBits = 12;
constexpr uint32_t kHandleElementMask = 0xFFFu;
constexpr uint32_t kHandleKeyMask = 0xFFFFF000u;

// One past the highest slot that a table issues; slot 0 is never issued.
constexpr uint32_t kHandleSlotLimit = 0x100000u;

// The maximum number of elements in a batch.
constexpr int32_t kMaxBatchCount = 4095;

static_assert((kHandleElementMask | kHandleKeyMask) == 0xFFFFFFFFu,
              "key and element fill a handle");
static_assert((kHandleElementMask & kHandleKeyMask) == 0, "key and element do not overlap");
static_assert(((kHandleSlotLimit - 1) << kHandleElementBits) == kHandleKeyMask, "slots fill a key");

// The slot part of a handle, by which tables look values up.
constexpr uint32_t HandleKey(uint32_t handle) {
  return handle & kHandleKeyMask;
}

constexpr uint32_t HandleSlot(uint32_t handle) {
  return handle >> kHandleElementBits;
}

constexpr uint32_t HandleElement(uint32_t handle) {
  return handle & kHandleElementMask;
}

}  // namespace nq::engine

#endif  // NQ_COMMON_DEF_HANDLE_H_
