// The rest poses of a binding: a sorted map with stable slots.
#ifndef NQ_ENGINE_ANIMATION_RESTPOSES_H_
#define NQ_ENGINE_ANIMATION_RESTPOSES_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Engine/Animation/PrefetchList.h"
#include "Engine/Animation/TransformValue.h"

namespace nq::engine {

// An ordered map from number to TransformValue. Most numbers are entity handles; blending inserts
// others. Each number has a slot that does not change until the map is cleared, so evaluation works
// on flat arrays by slot and looks nothing up while the keys stay the same.
class RestPoses {
 public:
  static constexpr uint32_t kNoSlot = 0xFFFFFFFFu;

  struct Key {
    uint32_t number;
    uint32_t slot;
  };

  RestPoses();

  uint32_t SlotCount() const { return static_cast<uint32_t>(values.size()); }

  // All keys, in ascending order of numbers.
  const std::vector<Key>& Ascending() const { return keys; }

  // The slot of a number, or kNoSlot.
  uint32_t Find(uint32_t number) const;

  // The slot of a number, inserted with the identity if it is new. Values may move.
  uint32_t Ensure(uint32_t number) {
    const Key& recent = recentKeys[number % kRecentKeys];
    return recent.number == number && recent.slot != kNoSlot ? recent.slot : EnsureSlow(number);
  }

  // The same as Find, faster for recent numbers.
  uint32_t FindRecent(uint32_t number) const {
    const Key& recent = recentKeys[number % kRecentKeys];
    return recent.number == number && recent.slot != kNoSlot ? recent.slot : Find(number);
  }

  TransformValue& Value(uint32_t slot) { return values[slot]; }
  const TransformValue& Value(uint32_t slot) const { return values[slot]; }
  uint32_t Number(uint32_t slot) const { return numbers[slot]; }

  // The numbers of all slots.
  const uint32_t* Numbers() const { return numbers.data(); }

  // Notes what evaluations mostly read.
  void NoteTouched(PrefetchList* touched) const {
    if (!values.empty()) {
      touched->Note(numbers.data(), numbers.size() * sizeof(numbers[0]));
      touched->Note(values.data());
    }
  }

  void Set(uint32_t number, const TransformValue& value) { values[Ensure(number)] = value; }
  void Clear();

  // Reserves memory for `count` keys and the few that blending mostly inserts.
  void Reserve(size_t count);

  // A new number, unique across all maps, whenever a key is added or removed.
  uint64_t Version() const { return version; }

 private:
  // A cache: blending looks up the same few small numbers again and again.
  static constexpr uint32_t kRecentKeys = 16;

  uint32_t EnsureSlow(uint32_t number);
  void KeysChanged();

  std::vector<Key> keys;
  std::vector<uint32_t> numbers;       // by slot
  std::vector<TransformValue> values;  // by slot
  Key recentKeys[kRecentKeys];
  uint64_t version = 0;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_RESTPOSES_H_
