// The accumulated pose of each entity while a controller is evaluated.
#ifndef NQ_ENGINE_ANIMATION_TARGETPOSE_H_
#define NQ_ENGINE_ANIMATION_TARGETPOSE_H_

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "Common/Def/Vectors.h"
#include "Engine/Animation/PoseRows.h"
#include "Engine/Animation/QuaternionMath.h"

namespace nq::engine {

// Sums of weighted values. A NaN weight means that the channel is not animated; the first
// contribution sets it to 0 before it adds. Two lanes of each row are unused.
struct alignas(16) TargetPose {
  float value[8];
  float weight[8];
  float rotation[4];  // x, y, z, w
  float rotationWeight;

  // Nothing animated.
  void Reset() {
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    *this = TargetPose{{}, {kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN, kNaN}, {}, kNaN};
  }

  // The halves of the channels as stored; those of an empty pose if this one is uninitialised.
  PoseRow First() const { return PoseRow{_mm_load_ps(value), _mm_load_ps(weight)}; }
  PoseRow Second() const { return PoseRow{_mm_load_ps(value + 4), _mm_load_ps(weight + 4)}; }
  PoseRow FirstOrEmpty(bool isFresh) const { return isFresh ? PoseRow() : First(); }
  PoseRow SecondOrEmpty(bool isFresh) const { return isFresh ? PoseRow() : Second(); }
  void SetFirst(const PoseRow& row) {
    _mm_store_ps(value, row.value);
    _mm_store_ps(weight, row.weight);
  }
  void SetSecond(const PoseRow& row) {
    _mm_store_ps(value + 4, row.value);
    _mm_store_ps(weight + 4, row.weight);
  }
};

// Adds a rotation with weight `w`, if there is one.
inline void AddRotation(const float* rotation, float w, bool isFresh, TargetPose* sum) {
  if (!isFresh) {
    if (rotation != nullptr) {
      sum->rotationWeight = (std::isnan(sum->rotationWeight) ? 0.0f : sum->rotationWeight) + w;
      AddQuaternion(sum->rotation, rotation, w);
    }
  } else if (rotation != nullptr) {
    const __m128 weighted = _mm_mul_ps(_mm_loadu_ps(rotation), _mm_set1_ps(w));
    sum->rotationWeight = 0.0f + w;
    _mm_store_ps(sum->rotation, _mm_add_ps(_mm_setzero_ps(), weighted));
  } else {
    sum->rotationWeight = std::numeric_limits<float>::quiet_NaN();
    _mm_store_ps(sum->rotation, _mm_setzero_ps());
  }
}

// A map from entity to pose, over the slots of a binding's rest poses: only entities that have one
// are ever posed. Reuses its memory.
class PoseSet {
 public:
  // Empties the set and makes room for `slotCount` slots.
  void Begin(uint32_t slotCount) {
    present.clear();
    if (++round == 0) {
      rounds.assign(rounds.size(), 0);
      round = 1;
    }
    Grow(slotCount);
  }

  // Makes room for slots added since; keeps existing poses.
  void Grow(uint32_t slotCount) {
    if (rounds.size() < slotCount) {
      rounds.resize(slotCount, 0);
      poses.resize(slotCount);
    }
  }

  bool Has(uint32_t slot) const { return rounds[slot] == round; }

  // The pose of a slot, an empty one if there was none.
  TargetPose* Enter(uint32_t slot) {
    if (rounds[slot] != round) {
      rounds[slot] = round;
      present.push_back(slot);
      poses[slot].Reset();
    }
    return &poses[slot];
  }

  // The same, but a new pose is left uninitialised: returns true, and the caller writes all of it.
  // Writing initial values and reading them back costs more than computing from constants.
  bool EnterUnset(uint32_t slot, TargetPose** pose) {
    *pose = &poses[slot];
    if (rounds[slot] == round) {
      return false;
    }
    rounds[slot] = round;
    present.push_back(slot);
    return true;
  }

  // Slots that have a pose, in order of insertion.
  const std::vector<uint32_t>& Slots() const { return present; }
  TargetPose& At(uint32_t slot) { return poses[slot]; }

 private:
  std::vector<TargetPose> poses;
  std::vector<uint32_t> rounds;  // by slot: the round in which it last got a pose
  std::vector<uint32_t> present;
  uint32_t round = 0;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_TARGETPOSE_H_
