// Sphere against plane tests, and the depth sort of visible objects.
#include "Engine/Culling/Culler.h"

#include <algorithm>
#include <cstring>

#include "Common/Def/Platform.h"
#include "Common/Def/Vectors.h"

namespace nq::engine {

namespace {

constexpr uint32_t kSignBit = 0x80000000u;

// Below this many, a comparison sort is faster than the passes of a radix sort.
constexpr size_t kMinRadixSort = 256;

constexpr size_t kMinVisibleCapacity = 1024;

// A radix sort takes the upper bits of the keys, above the lowest key, in two digits; mostly few
// keys that differ share all of these.
constexpr int kDigits = 2;
constexpr int kDigitBits = 11;
constexpr uint32_t kBuckets = 1u << kDigitBits;
constexpr int kKeyShift = 32;  // position of the key within a Visible

// The moves for each key by which SortNeighbours may finish the sort.
constexpr size_t kMovesPerKey = 8;

uint32_t KeyOf(uint64_t visible) {
  return static_cast<uint32_t>(visible >> kKeyShift);
}

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
  // Here, where nothing has been loaded: what a call may change is stored around it.
  if (visible.size() < used + kGroup) {
    visible.resize(2 * visible.size() + kMinVisibleCapacity);
  }
  if (HasWideIntegers()) {
    TestWhole(x, y, z, radius, candidates, handles, depths);
    return;
  }
  const uint32_t outside = TestHalves(x, y, z, radius);
  constexpr uint32_t kHalfMask = (1u << kHalf) - 1;
  const uint32_t inside = candidates & ~outside;
  CollectHalf(x, y, z, inside & kHalfMask, handles, depths);
  CollectHalf(x + kHalf, y + kHalf, z + kHalf, inside >> kHalf, handles + kHalf, depths + kHalf);
}

uint32_t Culler::TestHalves(const float* x, const float* y, const float* z,
                            const float* radius) const {
  const auto load = [](const Lanes& lanes) { return _mm_load_ps(lanes.lane); };
  const __m128 minusZero = _mm_set1_ps(-0.0f);
  const __m128 x0 = _mm_loadu_ps(x);
  const __m128 x1 = _mm_loadu_ps(x + kHalf);
  const __m128 y0 = _mm_loadu_ps(y);
  const __m128 y1 = _mm_loadu_ps(y + kHalf);
  const __m128 z0 = _mm_loadu_ps(z);
  const __m128 z1 = _mm_loadu_ps(z + kHalf);
  const __m128 minusRadius0 = _mm_xor_ps(_mm_loadu_ps(radius), minusZero);
  const __m128 minusRadius1 = _mm_xor_ps(_mm_loadu_ps(radius + kHalf), minusZero);
  __m128 outside0 = _mm_setzero_ps();
  __m128 outside1 = _mm_setzero_ps();
  // Compilers for WebAssembly would load all planes first, which takes more registers than there
  // are.
  NQ_NO_UNROLL
  for (const PlaneLanes& plane : planes) {
    const __m128 normalX = load(plane.x);
    const __m128 normalY = load(plane.y);
    const __m128 normalZ = load(plane.z);
    const __m128 d = load(plane.d);
    __m128 s0 = _mm_mul_ps(normalX, x0);
    s0 = _mm_add_ps(s0, _mm_mul_ps(normalY, y0));
    s0 = _mm_add_ps(s0, _mm_mul_ps(normalZ, z0));
    s0 = _mm_add_ps(s0, d);
    outside0 = _mm_or_ps(outside0, _mm_cmpgt_ps(minusRadius0, s0));
    __m128 s1 = _mm_mul_ps(normalX, x1);
    s1 = _mm_add_ps(s1, _mm_mul_ps(normalY, y1));
    s1 = _mm_add_ps(s1, _mm_mul_ps(normalZ, z1));
    s1 = _mm_add_ps(s1, d);
    outside1 = _mm_or_ps(outside1, _mm_cmpgt_ps(minusRadius1, s1));
  }
  return static_cast<uint32_t>(SignBits(outside0) | SignBits(outside1) << kHalf);
}

void Culler::CollectHalf(const float* x, const float* y, const float* z, uint32_t inside,
                         const uint32_t* handles, float* depths) {
  const auto load = [](const Lanes& lanes) { return _mm_load_ps(lanes.lane); };
  __m128 depth = _mm_mul_ps(_mm_sub_ps(_mm_loadu_ps(y), load(eye.y)), load(backward.y));
  depth = _mm_xor_ps(depth, _mm_set1_ps(-0.0f));
  depth = _mm_sub_ps(depth, _mm_mul_ps(_mm_sub_ps(_mm_loadu_ps(x), load(eye.x)), load(backward.x)));
  depth = _mm_sub_ps(depth, _mm_mul_ps(_mm_sub_ps(_mm_loadu_ps(z), load(eye.z)), load(backward.z)));
  _mm_storeu_ps(depths, depth);
  // Keys sort as depths do: all bits of negative depths are flipped, of others only the sign bit.
  // NaNs of either sign get all bits set and so come last.
  const __m128i bits = _mm_castps_si128(depth);
  const __m128i flip =
      _mm_or_si128(_mm_srai_epi32(bits, 31), _mm_set1_epi32(static_cast<int>(kSignBit)));
  const __m128i nan = _mm_castps_si128(_mm_cmpunord_ps(depth, depth));
  const __m128i keys = _mm_or_si128(_mm_xor_si128(bits, flip), nan);
  const __m128i ids = _mm_loadu_si128(reinterpret_cast<const __m128i*>(handles));
  Visible group[kHalf];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(group), _mm_unpacklo_epi32(ids, keys));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(group + 2), _mm_unpackhi_epi32(ids, keys));
  Append(group, kHalf, inside);
}

// The same operations as without AVX2, in the same order.
NQ_TARGET_AVX2 void Culler::TestWhole(const float* x, const float* y, const float* z,
                                      const float* radius, uint32_t candidates,
                                      const uint32_t* handles, float* depths) {
  const __m256 minusZero = _mm256_set1_ps(-0.0f);
  const __m256 cx = _mm256_loadu_ps(x);
  const __m256 cy = _mm256_loadu_ps(y);
  const __m256 cz = _mm256_loadu_ps(z);
  const __m256 minusRadius = _mm256_xor_ps(_mm256_loadu_ps(radius), minusZero);
  __m256 outside = _mm256_setzero_ps();
  for (const PlaneLanes& plane : planes) {
    __m256 s = _mm256_mul_ps(_mm256_load_ps(plane.x.lane), cx);
    s = _mm256_add_ps(s, _mm256_mul_ps(_mm256_load_ps(plane.y.lane), cy));
    s = _mm256_add_ps(s, _mm256_mul_ps(_mm256_load_ps(plane.z.lane), cz));
    s = _mm256_add_ps(s, _mm256_load_ps(plane.d.lane));
    outside = _mm256_or_ps(outside, _mm256_cmp_ps(minusRadius, s, _CMP_GT_OQ));
  }

  __m256 depth =
      _mm256_mul_ps(_mm256_sub_ps(cy, _mm256_load_ps(eye.y.lane)), _mm256_load_ps(backward.y.lane));
  depth = _mm256_xor_ps(depth, minusZero);
  depth = _mm256_sub_ps(depth, _mm256_mul_ps(_mm256_sub_ps(cx, _mm256_load_ps(eye.x.lane)),
                                             _mm256_load_ps(backward.x.lane)));
  depth = _mm256_sub_ps(depth, _mm256_mul_ps(_mm256_sub_ps(cz, _mm256_load_ps(eye.z.lane)),
                                             _mm256_load_ps(backward.z.lane)));
  _mm256_storeu_ps(depths, depth);
  const __m256i bits = _mm256_castps_si256(depth);
  const __m256i flip =
      _mm256_or_si256(_mm256_srai_epi32(bits, 31), _mm256_set1_epi32(static_cast<int>(kSignBit)));
  const __m256i nan = _mm256_castps_si256(_mm256_cmp_ps(depth, depth, _CMP_UNORD_Q));
  const __m256i keys = _mm256_or_si256(_mm256_xor_si256(bits, flip), nan);
  const __m256i ids = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(handles));
  const __m256i evenPairs = _mm256_unpacklo_epi32(ids, keys);  // 0 1, 4 5
  const __m256i oddPairs = _mm256_unpackhi_epi32(ids, keys);   // 2 3, 6 7
  Visible group[kGroup];
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(group),
                      _mm256_permute2x128_si256(evenPairs, oddPairs, 0x20));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(group + kHalf),
                      _mm256_permute2x128_si256(evenPairs, oddPairs, 0x31));
  Append(group, kGroup, candidates & ~static_cast<uint32_t>(_mm256_movemask_ps(outside)));
}

// Branchless: every lane is stored, and only visible ones advance the count.
inline void Culler::Append(const Visible* group, uint32_t size, uint32_t inside) {
  Visible* const out = visible.data();
  size_t at = used;
  for (uint32_t lane = 0; lane < size; ++lane) {
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

// LSD radix sort: counting sort by each digit, least significant first. Then only neighbours with
// equal digits are out of order.
void Culler::RadixSort() {
  uint32_t least = KeyOf(visible[0]);
  uint32_t most = least;
  for (const Visible entry : visible) {
    const uint32_t key = KeyOf(entry);
    least = key < least ? key : least;
    most = key > most ? key : most;
  }
  int ignoredBits = 0;
  while ((most - least) >> ignoredBits >> (kDigits * kDigitBits) != 0) {
    ++ignoredBits;
  }
  const auto digit = [least, ignoredBits](Visible entry, int d) {
    return (KeyOf(entry) - least) >> ignoredBits >> (d * kDigitBits) & (kBuckets - 1);
  };

  uint32_t starts[kDigits][kBuckets] = {};
  for (const Visible entry : visible) {
    for (int d = 0; d < kDigits; ++d) {
      ++starts[d][digit(entry, d)];
    }
  }
  spare.resize(visible.size());
  for (int d = 0; d < kDigits; ++d) {
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
  if (ignoredBits != 0 && !SortNeighbours()) {
    // Stable as well, so that the order of equal depths does not depend on the others.
    std::stable_sort(visible.begin(), visible.end(),
                     [](Visible a, Visible b) { return KeyOf(a) < KeyOf(b); });
  }
}

// Insertion sort of what is nearly sorted. False, with entries out of order, if it takes too many
// moves, as where all depths but one are close to each other.
bool Culler::SortNeighbours() {
  size_t movesLeft = kMovesPerKey * visible.size();
  for (size_t i = 1; i < visible.size(); ++i) {
    const Visible entry = visible[i];
    size_t at = i;
    for (; at != 0 && KeyOf(visible[at - 1]) > KeyOf(entry); --at) {
      visible[at] = visible[at - 1];
    }
    visible[at] = entry;
    if (i - at > movesLeft) {
      return false;
    }
    movesLeft -= i - at;
  }
  return true;
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
    result->distances[i] = DepthOfKey(KeyOf(visible[i]));
    hash = hash * 31 + handle;
  }
  result->hash = hash;
}

}  // namespace nq::engine
