// The sphere tests of one call, the sort by depth and the hash.
#ifndef NQ_ENGINE_CULLING_CULLER_H_
#define NQ_ENGINE_CULLING_CULLER_H_

#include <cstdint>
#include <vector>

#include "Common/Def/Vectors.h"
#include "Engine/Culling/CullResult.h"
#include "Engine/Culling/ViewVolume.h"

namespace nq::engine {

// Takes spheres eight at a time and collects the visible ones; Finish sorts them. Reuses its
// working memory between calls. Script thread only.
class Culler {
 public:
  static constexpr uint32_t kGroup = 8;

  void Begin(const ViewVolume& view);

  // Tests eight spheres, those whose bit is set in `candidates`, against the planes: a sphere is
  // outside if -radius is greater than normal . centre + d. A sphere that touches a plane from
  // outside is inside, and a plane of NaNs rejects nothing. `handles` and `depths` are of the same
  // eight; the depths are written for all of them. Branchless: where half of the spheres are
  // visible, leaving at the first plane that rejects all would be mispredicted too often.
  void TestGroup(const float* x, const float* y, const float* z, const float* radius,
                 uint32_t candidates, const uint32_t* handles, float* depths);

  // Stores the visible objects in `result`, by ascending depth, with their hash. NaN depths come
  // last.
  void Finish(CullResult* result);

 private:
  // Upper half: the depth as an integer that sorts like the float; lower half: the handle.
  typedef uint64_t Visible;

  static constexpr uint32_t kHalf = kGroup / 2;

  // TestGroup by AVX2, only if HasWideIntegers.
  void TestWhole(const float* x, const float* y, const float* z, const float* radius,
                 uint32_t candidates, const uint32_t* handles, float* depths);

  // The two steps of TestGroup by SSE: the bits of the spheres of a group that are outside, then
  // depths and keys of half a group.
  uint32_t TestHalves(const float* x, const float* y, const float* z, const float* radius) const;
  void CollectHalf(const float* x, const float* y, const float* z, uint32_t inside,
                   const uint32_t* handles, float* depths);

  // Appends those of `group` whose bit is set in `inside`. `visible` has room for the whole group.
  void Append(const Visible* group, uint32_t size, uint32_t inside);

  void Sort();
  void RadixSort();
  bool SortNeighbours();

  // A number of the view volume broadcast to all lanes: broadcasting it again for each group would
  // take longer than the test.
  struct alignas(32) Lanes {
    Lanes() = default;
    explicit Lanes(float value) {
      for (float& one : lane) {
        one = value;
      }
    }

    float lane[kGroup];
  };
  struct PlaneLanes {
    Lanes x, y, z, d;
  };
  struct VectorLanes {
    Lanes x, y, z;
  };

  PlaneLanes planes[kViewPlaneCount];
  VectorLanes eye;
  VectorLanes backward;
  size_t used = 0;  // valid entries of `visible`, until Finish
  std::vector<Visible> visible;
  std::vector<Visible> spare;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_CULLING_CULLER_H_
