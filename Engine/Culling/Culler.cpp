// Sphere against plane tests, and the depth sort of visible objects.
#include "Engine/Culling/Culler.h"

#include <algorithm>
#include <cstring>

#include "Common/Def/Vectors.h"

namespace nq::engine {

namespace {

constexpr uint32_t kSignBit = 0x80000000u;

// Below this many, a comparison sort is faster than the passes of a radix sort.
constexpr size_t kMinRadixSort = 256;

constexpr size_t kMinVisibleCapacity = 1024;

// The 32 bits of the key are sorted in three digits.
constexpr int kDigits = 3;
constexpr int kDigitBits = 11;
constexpr uint32_t kBuckets = 1u << kDigitBits;
constexpr int kKeyShift = 32;  // position of the key within a Visible

float DepthOfKey(uint32_t key) {
  const uint32_t bits = (key & kSignBit) != 0 ? key & ~kSignBit : ~key;
  float depth;
  std::memcpy(&depth, &bits, sizeof(depth));
  return depth;
}

}  // namespace

void Culler::Begin(const ViewVolume& view) {
  for (uint32_t i = 0; i < kViewPlaneCount; ++i) {
    const CullPlane& plane = view.planes[i];
    planes[i] = {Lanes(plane.normal.x), Lanes(plane.normal.y), Lanes(plane.normal.z),
                 Lanes(plane.d)};
  }
  eye = {Lanes(view.eye.x), Lanes(view.eye.y), Lanes(view.eye.z)};
  backward = {Lanes(view.backward.x), Lanes(view.backward.y), Lanes(view.backward.z)};
  used = 0;
}

void Culler::TestGroup(const float* x, const float* y, const float* z, const float* radius,
                       uint32_t candidates, const uint32_t* handles, float* depths) {
  const __m128 cx = _mm_loadu_ps(x);
  const __m128 cy = _mm_loadu_ps(y);
  const __m128 cz = _mm_loadu_ps(z);
  const __m128 minusRadius = _mm_xor_ps(_mm_loadu_ps(radius), _mm_set1_ps(-0.0f));
  uint32_t inside = candidates;
  for (const PlaneLanes& plane : planes) {
    __m128 s = _mm_mul_ps(plane.x.Load(), cx);
    s = _mm_add_ps(s, _mm_mul_ps(plane.y.Load(), cy));
    s = _mm_add_ps(s, _mm_mul_ps(plane.z.Load(), cz));
    s = _mm_add_ps(s, plane.d.Load());
    inside &= ~static_cast<uint32_t>(_mm_movemask_ps(_mm_cmpgt_ps(minusRadius, s)));
    if (inside == 0) {
      return;
    }
  }

  __m128 depth = _mm_mul_ps(_mm_sub_ps(cy, eye.y.Load()), backward.y.Load());
  depth = _mm_xor_ps(depth, _mm_set1_ps(-0.0f));
  depth = _mm_sub_ps(depth, _mm_mul_ps(_mm_sub_ps(cx, eye.x.Load()), backward.x.Load()));
  depth = _mm_sub_ps(depth, _mm_mul_ps(_mm_sub_ps(cz, eye.z.Load()), backward.z.Load()));
  _mm_storeu_ps(depths, depth);
  // Branchless: every lane is stored, and only visible ones advance the count.
  if (visible.size() < used + kGroup) {
    visible.resize(2 * visible.size() + kMinVisibleCapacity);
  }
  // Keys sort as depths do: all bits of negative depths are flipped, of others only the sign bit.
  // NaNs of either sign get all bits set and so come last.
  const __m128i bits = _mm_castps_si128(depth);
  const __m128i flip =
      _mm_or_si128(_mm_srai_epi32(bits, 31), _mm_set1_epi32(static_cast<int>(kSignBit)));
  const __m128i nan = _mm_castps_si128(_mm_cmpunord_ps(depth, depth));
  const __m128i keys = _mm_or_si128(_mm_xor_si128(bits, flip), nan);
  const __m128i ids = _mm_loadu_si128(reinterpret_cast<const __m128i*>(handles));
  Visible group[kGroup];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(group), _mm_unpacklo_epi32(ids, keys));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(group + 2), _mm_unpackhi_epi32(ids, keys));
  Visible* out = visible.data();
  size_t at = used;
  for (uint32_t lane = 0; lane < kGroup; ++lane) {
    out[at] = group[lane];
    at += inside >> lane & 1u;
  }
  used = at;
}

void Culler::Sort() {
  if (visible.size() < kMinRadixSort) {
    std::sort(visible.begin(), visible.end());
  } else {
    RadixSort();
  }
}

// LSD radix sort: counting sort by each digit, least significant first.
void Culler::RadixSort() {
  uint32_t starts[kDigits][kBuckets] = {};
  const auto digit = [](Visible entry, int d) {
    return static_cast<uint32_t>(entry >> (kKeyShift + d * kDigitBits)) & (kBuckets - 1);
  };
  for (const Visible entry : visible) {
    for (int d = 0; d < kDigits; ++d) {
      ++starts[d][digit(entry, d)];
    }
  }
  spare.resize(visible.size());
  for (int d = 0; d < kDigits; ++d) {
    // The pass is a no-op if all keys share the digit, as the top bits of depths often do.
    if (starts[d][digit(visible[0], d)] == visible.size()) {
      continue;
    }
    uint32_t next = 0;
    for (uint32_t& start : starts[d]) {
      const uint32_t count = start;
      start = next;
      next += count;
    }
    for (const Visible entry : visible) {
      spare[starts[d][digit(entry, d)]++] = entry;
    }
    visible.swap(spare);
  }
}

void Culler::Finish(CullResult* result) {
  visible.resize(used);
  Sort();
  const size_t count = visible.size();
  result->objects.resize(count);
  result->distances.resize(count);
  uint32_t hash = 0;
  for (size_t i = 0; i < count; ++i) {
    const uint32_t handle = static_cast<uint32_t>(visible[i]);
    result->objects[i] = handle;
    result->distances[i] = DepthOfKey(static_cast<uint32_t>(visible[i] >> kKeyShift));
    hash = hash * 31 + handle;
  }
  result->hash = hash;
}

}  // namespace nq::engine
