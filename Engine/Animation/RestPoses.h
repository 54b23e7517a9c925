// The rest poses of a binding, in an order that numbers can be found in.
#ifndef NQ_ENGINE_ANIMATION_RESTPOSES_H_
#define NQ_ENGINE_ANIMATION_RESTPOSES_H_

#include <cstdint>
#include <vector>

#include "Engine/Animation/TransformValue.h"

namespace nq::engine {

// An ordered map from number to TransformValue. Mostly the numbers are entity handles; blending
// enters others. Each number has a slot that stays its own until the map is cleared, so that
// evaluation works on flat arrays by slot and looks nothing up while the keys stay the same.
class RestPoses {
 public:
  static constexpr uint32_t kNoSlot = 0xFFFFFFFFu;

  struct Key {
    uint32_t number;
    uint32_t slot;
  };

  RestPoses();

  uint32_t SlotCount() const { return static_cast<uint32_t>(values.size()); }

  // All keys, by ascending number.
  const std::vector<Key>& Ascending() const { return keys; }

  // The slot of a number, or kNoSlot.
  uint32_t Find(uint32_t number) const;

  // The slot of a number, entered with the identity if it is new. Values may move.
  uint32_t Ensure(uint32_t number) {
    const Key& recent = recentKeys[number % kRecentKeys];
    return recent.number == number && recent.slot != kNoSlot ? recent.slot : EnsureSlow(number);
  }

  TransformValue& Value(uint32_t slot) { return values[slot]; }
  const TransformValue& Value(uint32_t slot) const { return values[slot]; }
  uint32_t Number(uint32_t slot) const { return numbers[slot]; }

  void Set(uint32_t number, const TransformValue& value) { values[Ensure(number)] = value; }
  void Clear();

  // Another number whenever a key came or went, in this map or in any other.
  uint64_t Version() const { return version; }

 private:
  // Blending asks for the same few small numbers over and over.
  static constexpr uint32_t kRecentKeys = 64;

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
