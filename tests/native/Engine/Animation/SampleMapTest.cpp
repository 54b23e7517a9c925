// Samples by target index.
#include "Engine/Animation/SampleMap.h"

#include <gtest/gtest.h>

namespace nq::engine {
namespace {

TEST(SampleMapTest, IsEmptyAtFirst) {
  const SampleMap map;
  EXPECT_EQ(0u, map.Size());
  EXPECT_EQ(nullptr, map.Find(0));
}

TEST(SampleMapTest, FindsEachSampleByItsTarget) {
  const uint32_t targets[] = {0, 3, 4, 0xFFFFFFFFu};
  SampleMap map;
  ClipSample* samples = map.Reset(targets, 4, 1);
  for (int i = 0; i < 4; ++i) {
    samples[i].channel[0] = static_cast<float>(i);
  }
  ASSERT_EQ(4u, map.Size());
  for (uint32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(targets[i], map.Target(i));
    EXPECT_EQ(&map.Sample(i), map.Find(targets[i]));
    EXPECT_EQ(static_cast<float>(i), map.Sample(i).channel[0]);
  }
  for (const uint32_t absent : {1u, 2u, 5u, 0xFFFFFFFEu}) {
    EXPECT_EQ(nullptr, map.Find(absent)) << absent;
  }
}

TEST(SampleMapTest, ResetReusesMemoryAndDropsFurtherSamples) {
  const uint32_t many[] = {0, 1, 2};
  const uint32_t one[] = {2};
  SampleMap map;
  ClipSample* room = map.Reset(many, 3, 1);
  EXPECT_EQ(room, map.Reset(one, 1, 2));
  EXPECT_EQ(1u, map.Size());
  EXPECT_EQ(2u, map.Target(0));
  EXPECT_EQ(nullptr, map.Find(0));
  EXPECT_EQ(room, map.Find(2));
  EXPECT_EQ(room, map.Reset(many, 3, 1));
  EXPECT_EQ(3u, map.Size());
}

}  // namespace
}  // namespace nq::engine
