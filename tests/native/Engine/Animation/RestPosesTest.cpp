#include "Engine/Animation/RestPoses.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "tests/native/Engine/Animation/ControllerScene.h"

namespace nq::engine {
namespace {

TransformValue At(float x) {
  TransformValue value;
  value.position[2] = x;
  return value;
}

std::vector<uint32_t> NumbersOf(const RestPoses& poses) {
  std::vector<uint32_t> numbers;
  for (const RestPoses::Key& key : poses.Ascending()) {
    numbers.push_back(key.number);
  }
  return numbers;
}

TEST(RestPosesTest, ANewNumberIsInsertedWithTheIdentity) {
  RestPoses poses;
  EXPECT_EQ(RestPoses::kNoSlot, poses.Find(7));
  const uint32_t slot = poses.Ensure(7);
  EXPECT_EQ(slot, poses.Find(7));
  EXPECT_EQ(7u, poses.Number(slot));
  EXPECT_TRUE(SameRest(ReferenceStage::Rest(), poses.Value(slot)));
  EXPECT_TRUE(poses.Value(slot).eulerValid);
  EXPECT_TRUE(poses.Value(slot).quaternionValid());
}

TEST(RestPosesTest, NumbersAscendWhateverTheOrderOfInsertion) {
  RestPoses poses;
  for (const uint32_t number : {0x80000000u, 5u, 0xFFFFFFFFu, 0u, 4096u}) {
    poses.Ensure(number);
  }
  EXPECT_EQ(std::vector<uint32_t>({0u, 5u, 4096u, 0x80000000u, 0xFFFFFFFFu}), NumbersOf(poses));
  EXPECT_EQ(5u, poses.SlotCount());
}

TEST(RestPosesTest, ANumberKeepsItsSlotAndValueWhileOthersAreInserted) {
  RestPoses poses;
  poses.Set(100, At(1));
  const uint32_t slot = poses.Find(100);
  for (uint32_t number = 0; number < 300; ++number) {
    poses.Ensure(number);
  }
  EXPECT_EQ(slot, poses.Ensure(100));
  EXPECT_EQ(1.0f, poses.Value(slot).position[2]);
}

TEST(RestPosesTest, ZeroIsANumberLikeAnyOther) {
  RestPoses poses;
  const uint32_t slot = poses.Ensure(0);
  EXPECT_EQ(0u, poses.Number(slot));
  EXPECT_EQ(slot, poses.Find(0));
  poses.Clear();
  EXPECT_EQ(RestPoses::kNoSlot, poses.Find(0));
  poses.Ensure(0);
  EXPECT_EQ(std::vector<uint32_t>({0u}), NumbersOf(poses));
}

TEST(RestPosesTest, AlternatingLookUpsDoNotMixUpNumbers) {
  RestPoses poses;
  for (int round = 0; round < 3; ++round) {
    for (const uint32_t number : {1u, 65u, 129u, 4097u, 1u, 65u}) {
      EXPECT_EQ(number, poses.Number(poses.Ensure(number))) << number;
    }
  }
  EXPECT_EQ(4u, poses.SlotCount());
}

TEST(RestPosesTest, ClearRemovesAll) {
  RestPoses poses;
  poses.Set(3, At(5));
  poses.Set(67, At(6));
  poses.Clear();
  EXPECT_EQ(0u, poses.SlotCount());
  EXPECT_TRUE(poses.Ascending().empty());
  EXPECT_EQ(RestPoses::kNoSlot, poses.Find(3));
  EXPECT_EQ(0.0f, poses.Value(poses.Ensure(67)).position[2]);
}

TEST(RestPosesTest, ACopyIsIndependent) {
  RestPoses poses;
  poses.Set(3, At(5));
  const RestPoses copy = poses;
  poses.Clear();
  poses.Set(3, At(9));
  EXPECT_EQ(5.0f, copy.Value(copy.Find(3)).position[2]);
  EXPECT_EQ(9.0f, poses.Value(poses.Find(3)).position[2]);
}

TEST(RestPosesTest, EachChangeOfKeysGivesAUniqueVersion) {
  std::set<uint64_t> seen;
  RestPoses a;
  RestPoses b;
  EXPECT_TRUE(seen.insert(a.Version()).second);
  EXPECT_TRUE(seen.insert(b.Version()).second);
  EXPECT_EQ(0u, seen.count(0));
  a.Ensure(4);
  EXPECT_TRUE(seen.insert(a.Version()).second);
  b.Ensure(4);
  EXPECT_TRUE(seen.insert(b.Version()).second);
  const uint64_t version = a.Version();
  a.Ensure(4);
  a.Set(4, At(2));
  EXPECT_EQ(version, a.Version());
  a.Clear();
  EXPECT_TRUE(seen.insert(a.Version()).second);
}

TEST(RestPosesTest, RandomUseMatchesAnOrderedMap) {
  for (uint32_t seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    AnimationRandom random(seed);
    RestPoses poses;
    std::map<uint32_t, float> expected;
    for (int step = 0; step < 400; ++step) {
      const uint32_t number = random.Chance(50) ? random.Below(200) : random.Bits();
      const uint32_t what = random.Below(100);
      if (what < 50) {
        const uint32_t slot = poses.Ensure(number);
        const auto entry = expected.insert({number, 0.0f}).first;
        ASSERT_EQ(entry->second, poses.Value(slot).position[2]);
      } else if (what < 90) {
        const float x = random.Real(-1, 1);
        poses.Set(number, At(x));
        expected[number] = x;
      } else if (what < 99) {
        const uint32_t slot = poses.Find(number);
        ASSERT_EQ(expected.count(number) == 0, slot == RestPoses::kNoSlot);
      } else {
        poses.Clear();
        expected.clear();
      }
    }
    ASSERT_EQ(expected.size(), poses.Ascending().size());
    size_t i = 0;
    for (const auto& [number, x] : expected) {
      const RestPoses::Key& key = poses.Ascending()[i++];
      ASSERT_EQ(number, key.number);
      ASSERT_EQ(number, poses.Number(key.slot));
      ASSERT_EQ(x, poses.Value(key.slot).position[2]);
    }
  }
}

}  // namespace
}  // namespace nq::engine
