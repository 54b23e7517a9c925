// A reference implementation of culling, one sphere at a time without data structures, to compare
// the engine with.
#ifndef NQ_TESTS_NATIVE_ENGINE_CULLING_REFERENCECULLING_H_
#define NQ_TESTS_NATIVE_ENGINE_CULLING_REFERENCECULLING_H_

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "Engine/Culling/CullResult.h"
#include "Engine/Culling/ViewVolume.h"

namespace nq::engine {

struct ReferenceSphere {
  float x, y, z, radius;
};

// Both cameras: the lens is one of the two.
struct ReferenceCamera {
  bool perspective;
  CameraPose pose;
  PerspectiveLens frustum;
  OrthographicLens box;
};

ViewVolume ReferenceVolume(const ReferenceCamera& camera);
bool ReferenceIsVisible(const ViewVolume& volume, const ReferenceSphere& sphere);
float ReferenceDepth(const ViewVolume& volume, const ReferenceSphere& sphere);

// A sphere in an entity's space, transformed by the entity's matrix.
ReferenceSphere ReferenceWorldSphere(const float* matrix, const float* center, float radius);

// Modulo 2^32, from 64-bit sums.
uint32_t ReferenceHash(const std::vector<uint32_t>& handles);

// A visible object.
struct ReferenceHit {
  uint32_t handle;
  float depth;
};

// Equal bits, or both NaN: the payloads of NaNs differ by compiler.
bool SameBits(float a, float b);

// True if `result` holds exactly `expected`, in any order that ascends by depth, with NaNs last,
// and the hash of that order.
::testing::AssertionResult HoldsExactly(const CullResult& result,
                                        std::vector<ReferenceHit> expected);

// Random numbers for tests of cameras. The same for the same seed.
class CullingRandom {
 public:
  explicit CullingRandom(uint32_t seed) : generator(seed) {}

  uint32_t Below(uint32_t count) { return static_cast<uint32_t>(generator() % count); }
  float Real(float low, float high) {
    return low + (high - low) * (static_cast<float>(generator() >> 8) / 16777216.0f);
  }
  bool Chance(uint32_t percent) { return Below(100) < percent; }

  // Sometimes NaN, infinite, huge, tiny or zero of either sign.
  float Odd(float low, float high);

  Vector3 Point(float reach) {
    Vector3 point;
    point.x = Real(-reach, reach);
    point.y = Real(-reach, reach);
    point.z = Real(-reach, reach);
    return point;
  }

  // A camera somewhere within `reach` with any direction, `up` being of any length and angle.
  ReferenceCamera Camera(float reach);

 private:
  std::mt19937 generator;
};

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_CULLING_REFERENCECULLING_H_
