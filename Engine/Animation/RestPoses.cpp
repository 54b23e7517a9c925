// The sorted keys of rest poses.
#include "Engine/Animation/RestPoses.h"

#include <algorithm>
#include <atomic>

namespace nq::engine {

namespace {

// The insertion position of a number among ascending keys.
template <typename Keys>
auto PlaceOf(Keys& keys, uint32_t number) {
  return std::lower_bound(
      keys.begin(), keys.end(), number,
      [](const RestPoses::Key& key, uint32_t wanted) { return key.number < wanted; });
}

}  // namespace

RestPoses::RestPoses() {
  Clear();
}

uint32_t RestPoses::Find(uint32_t number) const {
  const auto place = PlaceOf(keys, number);
  return place != keys.end() && place->number == number ? place->slot : kNoSlot;
}

uint32_t RestPoses::EnsureSlow(uint32_t number) {
  auto place = PlaceOf(keys, number);
  if (place == keys.end() || place->number != number) {
    place = keys.insert(place, Key{number, SlotCount()});
    numbers.push_back(number);
    values.emplace_back();
    KeysChanged();
  }
  recentKeys[number % kRecentKeys] = *place;
  return place->slot;
}

void RestPoses::Clear() {
  keys.clear();
  numbers.clear();
  values.clear();
  std::fill(recentKeys, recentKeys + kRecentKeys, Key{0, kNoSlot});
  KeysChanged();
}

void RestPoses::Reserve(size_t count) {
  constexpr size_t kSpareKeys = 4;
  keys.reserve(count + kSpareKeys);
  numbers.reserve(count + kSpareKeys);
  values.reserve(count + kSpareKeys);
}

void RestPoses::KeysChanged() {
  // Worker tasks insert keys into other maps at the same time.
  static std::atomic<uint64_t> lastVersion{0};
  version = ++lastVersion;
}

}  // namespace nq::engine
