// Sphere tests eight at a time, the sort by depth, and the hash.
#include "Engine/Culling/Culler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <set>

#include "tests/native/Engine/Culling/ReferenceCulling.h"

namespace nq::engine {
namespace {

const float kNone = std::numeric_limits<float>::quiet_NaN();
const float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kPoison = -777.0f;

// A box of half width 10 around the eye at the origin, which looks down the negative z axis.
ViewVolume Box() {
  const Vector3 normals[kViewPlaneCount] = {{0, 0, -1}, {0, 0, 1}, {0, -1, 0},
                                            {0, 1, 0},  {1, 0, 0}, {-1, 0, 0}};
  ViewVolume volume = {};
  for (int i = 0; i < kViewPlaneCount; ++i) {
    volume.planes[i].normal = normals[i];
    volume.planes[i].d = 10;
    // Never read.
    volume.planes[i].point = Vector3{kNone, kNone, kNone};
  }
  volume.backward = Vector3{0, 0, 1};
  return volume;
}

class CullerTest : public ::testing::Test {
 protected:
  // Tests any number of spheres, a group at a time; the last group is padded with spheres that are
  // visible but no candidates. Handles are 100, 101, ...
  void Test(const std::vector<ReferenceSphere>& spheres) {
    for (size_t start = 0; start < spheres.size(); start += Culler::kGroup) {
      Group group;
      for (uint32_t lane = 0; lane < Culler::kGroup && start + lane < spheres.size(); ++lane) {
        group.Set(lane, spheres[start + lane], 100 + static_cast<uint32_t>(start) + lane);
      }
      group.Run(&culler);
    }
  }

  const CullResult& Finish() {
    result.objects.assign(7, 0xDEADBEEFu);
    result.distances.assign(7, kPoison);
    result.hash = 0xDEADBEEFu;
    culler.Finish(&result);
    return result;
  }

  // The visible ones of `spheres`, the first with handle 100.
  const CullResult& Cull(const ViewVolume& volume, const std::vector<ReferenceSphere>& spheres) {
    culler.Begin(volume);
    Test(spheres);
    return Finish();
  }

  // Sorts entries of the given depths; handles from 100.
  const CullResult& SortDepths(const std::vector<float>& depths) {
    ViewVolume open = {};  // planes of zeros reject nothing
    open.backward = Vector3{0, 0, -1};
    std::vector<ReferenceSphere> spheres;
    for (const float depth : depths) {
      spheres.push_back(ReferenceSphere{0, 0, depth, 0});
    }
    return Cull(open, spheres);
  }

  static std::vector<ReferenceHit> Hits(const std::vector<float>& depths) {
    std::vector<ReferenceHit> hits;
    for (const float depth : depths) {
      hits.push_back(ReferenceHit{100 + static_cast<uint32_t>(hits.size()), depth});
    }
    return hits;
  }

  struct Group {
    Group() {
      std::fill(radius, radius + Culler::kGroup, 1.0f);
      std::fill(depths, depths + Culler::kGroup, kPoison);
      std::iota(handles, handles + Culler::kGroup, 1);
    }

    float x[Culler::kGroup] = {};
    float y[Culler::kGroup] = {};
    float z[Culler::kGroup] = {};
    float radius[Culler::kGroup];
    uint32_t handles[Culler::kGroup];
    float depths[Culler::kGroup];
    uint32_t candidates = 0;

    void Set(uint32_t lane, const ReferenceSphere& sphere, uint32_t handle) {
      x[lane] = sphere.x;
      y[lane] = sphere.y;
      z[lane] = sphere.z;
      radius[lane] = sphere.radius;
      handles[lane] = handle;
      candidates |= 1u << lane;
    }
    void Run(Culler* culler) { culler->TestGroup(x, y, z, radius, candidates, handles, depths); }
  };

  Culler culler;
  CullResult result;
};

TEST_F(CullerTest, NothingTestedGivesAnEmptyResultOfHash0) {
  EXPECT_TRUE(HoldsExactly(Cull(Box(), {}), {}));
  EXPECT_EQ(0u, result.hash);
}

TEST_F(CullerTest, ASphereThatTouchesAPlaneFromOutsideStaysIn) {
  const float outside[kViewPlaneCount][3] = {{0, 0, 12},  {0, 0, -12}, {0, 12, 0},
                                             {0, -12, 0}, {-12, 0, 0}, {12, 0, 0}};
  for (int plane = 0; plane < kViewPlaneCount; ++plane) {
    const float* c = outside[plane];
    const ReferenceSphere touching = {c[0], c[1], c[2], 2.0f};
    EXPECT_EQ(1u, Cull(Box(), {touching}).objects.size()) << "plane " << plane;
    const ReferenceSphere beyond = {c[0], c[1], c[2], std::nextafter(2.0f, 0.0f)};
    EXPECT_EQ(0u, Cull(Box(), {beyond}).objects.size()) << "plane " << plane;
    const ReferenceSphere away = {c[0] * 1.001f, c[1] * 1.001f, c[2] * 1.001f, 2.0f};
    EXPECT_EQ(0u, Cull(Box(), {away}).objects.size()) << "plane " << plane;
  }
}

TEST_F(CullerTest, EachPlaneAloneRejects) {
  for (int plane = 0; plane < kViewPlaneCount; ++plane) {
    ViewVolume volume = {};
    volume.planes[plane] = Box().planes[plane];
    const Vector3& normal = volume.planes[plane].normal;
    const ReferenceSphere out = {-20 * normal.x, -20 * normal.y, -20 * normal.z, 1};
    const ReferenceSphere in = {20 * normal.x, 20 * normal.y, 20 * normal.z, 1};
    EXPECT_EQ(std::vector<uint32_t>{101}, Cull(volume, {out, in}).objects) << "plane " << plane;
  }
}

TEST_F(CullerTest, APointIsInOnAPlaneAndOutBeyondIt) {
  EXPECT_EQ((std::vector<uint32_t>{100}),
            Cull(Box(), {{10, 0, 0, 0}, {std::nextafter(10.0f, 11.0f), 0, 0, 0}}).objects);
}

TEST_F(CullerTest, ANegativeRadiusShrinksTheVolume) {
  EXPECT_EQ((std::vector<uint32_t>{100}),
            Cull(Box(), {{7, 0, 0, -3}, {std::nextafter(7.0f, 8.0f), 0, 0, -3}}).objects);
}

TEST_F(CullerTest, NaNsAreNeverRejected) {
  EXPECT_TRUE(HoldsExactly(Cull(Box(), {{0, 0, 999, kNone}}), {{100, -999}}));
  EXPECT_TRUE(HoldsExactly(Cull(Box(), {{kNone, kNone, kNone, 1}}), {{100, kNone}}));
  ViewVolume volume = Box();
  volume.planes[0].normal.x = kNone;
  volume.planes[1].d = kNone;
  EXPECT_TRUE(HoldsExactly(Cull(volume, {{0, 0, 999, 1}, {0, 0, -999, 1}, {0, 999, 0, 1}}),
                           {{100, -999}, {101, 999}}));
}

TEST_F(CullerTest, AnInfiniteRadiusIsNeverRejected) {
  EXPECT_TRUE(HoldsExactly(Cull(Box(), {{0, 999, -1, kInfinity}}), {{100, 1.0f}}));
}

TEST_F(CullerTest, LanesThatAreNoCandidatesAreSkipped) {
  for (uint32_t candidates = 0; candidates < 1u << Culler::kGroup; ++candidates) {
    culler.Begin(Box());
    Group group;
    for (uint32_t lane = 0; lane < Culler::kGroup; ++lane) {
      group.Set(lane, ReferenceSphere{0, 0, -1.0f - static_cast<float>(lane), 1}, 50 + lane);
    }
    group.candidates = candidates;
    group.Run(&culler);
    std::vector<uint32_t> expected;
    for (uint32_t lane = 0; lane < Culler::kGroup; ++lane) {
      if ((candidates >> lane & 1u) != 0) {
        expected.push_back(50 + lane);
      }
    }
    EXPECT_EQ(expected, Finish().objects) << "candidates " << candidates;
  }
}

TEST_F(CullerTest, LanesAreRejectedIndependently) {
  for (uint32_t out = 0; out < 1u << Culler::kGroup; ++out) {
    culler.Begin(Box());
    Group group;
    std::vector<uint32_t> expected;
    for (uint32_t lane = 0; lane < Culler::kGroup; ++lane) {
      const bool isOut = (out >> lane & 1u) != 0;
      group.Set(lane, ReferenceSphere{isOut ? 50.0f : 0.0f, 0, -1.0f - static_cast<float>(lane), 1},
                50 + lane);
      if (!isOut) {
        expected.push_back(50 + lane);
      }
    }
    group.Run(&culler);
    EXPECT_EQ(expected, Finish().objects) << "out " << out;
  }
}

// The eye at (1, 2, 3), looking along (2, -1, 2) / 3.
TEST_F(CullerTest, DepthIsTheDistanceAlongTheView) {
  ViewVolume volume = {};
  volume.eye = Vector3{1, 2, 3};
  volume.backward = Vector3{-2.0f / 3, 1.0f / 3, -2.0f / 3};
  const CullResult& seen = Cull(volume, {{7, -1, 9, 1}, {1, 2, 3, 1}, {0, 4, 3, 1}});
  // 2/3 . 6 + 1/3 . 3 + 2/3 . 6 = 9; 0; -2/3 - 2/3.
  ASSERT_EQ((std::vector<uint32_t>{102, 101, 100}), seen.objects);
  EXPECT_NEAR(-4.0f / 3, seen.distances[0], 1e-6f);
  EXPECT_EQ(0.0f, seen.distances[1]);
  EXPECT_NEAR(9.0f, seen.distances[2], 1e-5f);
}

// 1 apart, yet the distances from the eye have the opposite order.
TEST_F(CullerTest, DepthIsNotTheDistanceFromTheEye) {
  EXPECT_TRUE(HoldsExactly(Cull(Box(), {{0, 0, -5, 1}, {9, 9, -4, 1}}), {{101, 4}, {100, 5}}));
}

TEST_F(CullerTest, NegativeDepthsComeFirst) {
  EXPECT_EQ((std::vector<uint32_t>{102, 100, 103, 101}),
            SortDepths({-1.5f, 2.0f, -3.0f, 0.0f}).objects);
}

TEST_F(CullerTest, TheHashDependsOnTheOrder) {
  const auto hash = [this](uint32_t nearHandle, uint32_t farHandle) {
    culler.Begin(Box());
    Group group;
    group.Set(0, ReferenceSphere{0, 0, -6, 1}, farHandle);
    group.Set(1, ReferenceSphere{0, 0, -5, 1}, nearHandle);
    group.Run(&culler);
    return Finish().hash;
  };
  EXPECT_EQ(162u, hash(5, 7));
  EXPECT_EQ(222u, hash(7, 5));
  // 0xFFFFF000 . 31 + 0xFFFFFFFF = 0x1FFFFE0FFF, of which the lower 32 bits stay.
  EXPECT_EQ(0xFFFE0FFFu, hash(0xFFFFF000u, 0xFFFFFFFFu));
}

TEST_F(CullerTest, TheHashIgnoresDepths) {
  const uint32_t hash = Cull(Box(), {{0, 0, -5, 1}, {0, 0, -6, 1}}).hash;
  EXPECT_EQ(hash, Cull(Box(), {{0, 0, -1, 1}, {0, 0, -9, 1}}).hash);
  EXPECT_EQ(100u * 31 + 101, hash);
}

TEST_F(CullerTest, BeginClearsTheLastResult) {
  Cull(Box(), std::vector<ReferenceSphere>(900, ReferenceSphere{0, 0, -1, 1}));
  EXPECT_TRUE(HoldsExactly(Cull(Box(), {{0, 0, -2, 1}}), {{100, 2}}));
  EXPECT_TRUE(HoldsExactly(Cull(Box(), {}), {}));
}

// Short and long lists use different sorting algorithms.
TEST_F(CullerTest, DepthsAscendAndNaNsComeLast) {
  const std::vector<float> ladder = {
      -kInfinity, -3.4e38f, -2.0f, -1.0000001f, -1.0f, -1e-38f, -1e-45f,   0.0f,
      1e-45f,     1e-38f,   1.0f,  1.0000001f,  2.0f,  3.4e38f, kInfinity, kNone};
  for (const uint32_t copies : {1u, 100u}) {
    std::vector<float> depths;
    for (uint32_t copy = 0; copy < copies; ++copy) {
      // From both ends alternately.
      for (size_t i = 0; i < ladder.size(); ++i) {
        depths.push_back(i % 2 == 0 ? ladder[i / 2] : ladder[ladder.size() - 1 - i / 2]);
      }
    }
    const CullResult& sorted = SortDepths(depths);
    EXPECT_TRUE(HoldsExactly(sorted, Hits(depths)));
    for (size_t i = 0; i < depths.size(); ++i) {
      EXPECT_TRUE(SameBits(ladder[i / copies], sorted.distances[i])) << i;
    }
  }
}

TEST_F(CullerTest, NaNsComeLastWhateverTheirSign) {
  for (const size_t count : {6u, 600u}) {
    std::vector<float> depths(count, 1.0f);
    depths[0] = kNone;
    depths[3] = std::copysign(kNone, -1.0f);
    const CullResult& sorted = SortDepths(depths);
    EXPECT_TRUE(HoldsExactly(sorted, Hits(depths)));
    EXPECT_EQ(1.0f, sorted.distances[count - 3]);
    EXPECT_EQ((std::set<uint32_t>{100, 103}),
              (std::set<uint32_t>{sorted.objects[count - 2], sorted.objects[count - 1]}));
  }
}

TEST_F(CullerTest, DepthsThatAreAllNaNAreAllKept) {
  for (const size_t count : {5u, 2000u}) {
    const std::vector<float> depths(count, kNone);
    EXPECT_TRUE(HoldsExactly(SortDepths(depths), Hits(depths)));
  }
}

TEST_F(CullerTest, NegativeAndPositiveZerosAreSortedBetweenTheSigns) {
  ViewVolume open = {};
  open.backward = Vector3{0, 0, -1};
  for (const uint32_t zeros : {4u, 400u}) {
    std::vector<ReferenceSphere> spheres;
    std::vector<ReferenceHit> hits;
    for (uint32_t i = 0; i < zeros; ++i) {
      spheres.push_back(ReferenceSphere{0, 0, i % 2 == 0 ? 0.0f : -0.0f, 0});
    }
    spheres.push_back(ReferenceSphere{0, 0, 1, 0});
    spheres.push_back(ReferenceSphere{0, 0, -1, 0});
    uint32_t negative = 0;
    for (const ReferenceSphere& sphere : spheres) {
      const float depth = ReferenceDepth(open, sphere);
      negative += depth == 0.0f && std::signbit(depth) ? 1 : 0;
      hits.push_back(ReferenceHit{100 + static_cast<uint32_t>(hits.size()), depth});
    }
    EXPECT_EQ(zeros / 2, negative);
    const CullResult& seen = Cull(open, spheres);
    EXPECT_TRUE(HoldsExactly(seen, hits));
    EXPECT_EQ(-1.0f, seen.distances.front());
    EXPECT_EQ(1.0f, seen.distances.back());
  }
}

TEST_F(CullerTest, ListsOfEveryLengthAreSorted) {
  constexpr uint32_t kSeed = 5;
  CullingRandom random(kSeed);
  std::vector<size_t> counts;
  for (size_t count = 0; count < 40; ++count) {
    counts.push_back(count);
  }
  for (size_t count : {254u, 255u, 256u, 257u, 258u, 511u, 1000u, 1999u, 2000u, 70000u}) {
    counts.push_back(count);
  }
  for (const size_t count : counts) {
    // Wide, narrow, many ties, widely different exponents.
    for (int kind = 0; kind < 4; ++kind) {
      std::vector<float> depths;
      for (size_t i = 0; i < count; ++i) {
        const float near = random.Real(-1.0f, 1.0f);
        depths.push_back(kind == 0   ? near * 1000.0f
                         : kind == 1 ? 5.0f + near * 1e-5f
                         : kind == 2 ? static_cast<float>(random.Below(3))
                                     : near * std::exp(random.Real(-80.0f, 80.0f)));
      }
      ASSERT_TRUE(HoldsExactly(SortDepths(depths), Hits(depths)))
          << "seed " << kSeed << ", count " << count << ", kind " << kind;
    }
  }
}

// With and without one that is far beyond the others: two ways to sort.
TEST_F(CullerTest, ManyEqualDepthsKeepTheirOrder) {
  constexpr uint32_t kCount = 3000;
  for (const float last : {1.0f, 1e30f}) {
    ViewVolume open = {};  // planes of zeros reject nothing
    open.backward = Vector3{0, 0, -1};
    culler.Begin(open);
    for (uint32_t start = 0; start < kCount; start += Culler::kGroup) {
      Group group;
      for (uint32_t lane = 0; lane < Culler::kGroup; ++lane) {
        const uint32_t i = start + lane;
        // Three depths that differ in their lowest bits, the greatest first; handles descend.
        const float depth = 1.0f + static_cast<float>(2 - i % 3) * 1.1920929e-7f;
        group.Set(lane, ReferenceSphere{0, 0, i + 1 < kCount ? depth : last, 0}, kCount - i);
      }
      group.Run(&culler);
    }
    const CullResult& sorted = Finish();
    for (uint32_t i = 1; i < kCount; ++i) {
      if (sorted.distances[i - 1] == sorted.distances[i]) {
        ASSERT_GT(sorted.objects[i - 1], sorted.objects[i]) << "last " << last << ", place " << i;
      }
    }
  }
}

// One depth far beyond the others, which differ in their lowest bits only and come in reverse.
TEST_F(CullerTest, ManyCloseDepthsAndAFarOneAreSorted) {
  constexpr uint32_t kCount = 3000;
  std::vector<float> depths = {1e30f};
  float depth = 1.0f;
  for (uint32_t i = 0; i < kCount; ++i) {
    depth = std::nextafter(depth, 0.0f);
    depths.push_back(depth);
  }
  const CullResult& sorted = SortDepths(depths);
  ASSERT_TRUE(HoldsExactly(sorted, Hits(depths)));
  for (uint32_t i = 0; i <= kCount; ++i) {
    EXPECT_EQ(100 + kCount - i, sorted.objects[i]) << i;
  }
}

TEST_F(CullerTest, RandomSpheresMatchTestsOneByOne) {
  constexpr uint32_t kSeed = 99;
  CullingRandom random(kSeed);
  uint32_t seenCount = 0;
  uint32_t testedCount = 0;
  for (int round = 0; round < 600; ++round) {
    const ReferenceCamera camera = random.Camera(20.0f);
    const ViewVolume volume = ReferenceVolume(camera);
    const bool odd = round % 4 == 0;
    std::vector<ReferenceSphere> spheres(random.Below(120));
    std::vector<ReferenceHit> expected;
    for (size_t i = 0; i < spheres.size(); ++i) {
      ReferenceSphere& s = spheres[i];
      s.x = odd ? random.Odd(-30, 30) : random.Real(-30, 30);
      s.y = odd ? random.Odd(-30, 30) : random.Real(-30, 30);
      s.z = odd ? random.Odd(-30, 30) : random.Real(-30, 30);
      s.radius = odd ? random.Odd(-1, 5) : random.Real(0, 5);
      if (ReferenceIsVisible(volume, s)) {
        expected.push_back(ReferenceHit{100 + static_cast<uint32_t>(i), ReferenceDepth(volume, s)});
      }
    }
    testedCount += static_cast<uint32_t>(spheres.size());
    seenCount += static_cast<uint32_t>(expected.size());
    ASSERT_TRUE(HoldsExactly(Cull(volume, spheres), expected))
        << "seed " << kSeed << ", round " << round;
  }
  // Guards the test: both results occur often.
  EXPECT_GT(seenCount, testedCount / 10);
  EXPECT_LT(seenCount, testedCount * 9 / 10);
}

}  // namespace
}  // namespace nq::engine
