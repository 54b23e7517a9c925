// Runs of entities: rotations and local matrices of any number of them, four and eight side by
// side, against one by one.
#include "Engine/Animation/BoneRun.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <random>
#include <vector>

#include "Common/Def/AlignedArray.h"
#include "Common/Def/Vectors.h"
#include "Engine/Entity/Entity3D.h"

namespace nq::engine {
namespace {

struct Writer {
  const char* name;
  void (*write)(const BoneRun& run, const float* xyzw, size_t stride);
};

void PrintTo(const Writer& writer, std::ostream* out) {
  *out << writer.name;
}

// Those that this CPU has: one without AVX never runs the second.
std::vector<Writer> WritersInUse() {
  std::vector<Writer> writers = {Writer{"ByFour", WriteRotationsByFour},
                                 Writer{"Selected", WriteRotations}};
  if (HasWideVectors()) {
    writers.push_back(Writer{"ByEight", WriteRotationsByEight});
  }
  return writers;
}

class BoneRunTest : public testing::TestWithParam<Writer> {
 protected:
  static constexpr uint32_t kEntities = 24;

  void SetUp() override { locals.Allocate(kEntities); }

  // Fills records with random numbers, in quaternion and Euler mode, and matrices with a pattern.
  void Fill(uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> values(-2.0f, 2.0f);
    records.resize(kEntities);
    std::memset(static_cast<void*>(records.data()), 0xA5, kEntities * sizeof(Entity3DRecord));
    for (Entity3DRecord& record : records) {
      record.rotationMode = static_cast<uint8_t>(random() % 2);
      for (int i = 0; i < 3; ++i) {
        record.position[i] = values(random);
        record.scale[i] = values(random);
      }
    }
    std::memset(static_cast<void*>(locals.Data()), 0x5A, kEntities * sizeof(TransformMatrix));
    rotations.resize(kEntities * kWidestStride);
    for (float& number : rotations) {
      number = values(random);
    }
  }

  // Writes `count` entities from `begin` on, and compares every byte of all with those that the
  // record's own matrix gives.
  void Compare(uint32_t begin, uint32_t count, size_t stride) {
    std::vector<Entity3DRecord> expected = records;
    AlignedArray<TransformMatrix> expectedLocals;
    std::memcpy(static_cast<void*>(expectedLocals.Allocate(kEntities)), locals.Data(),
                kEntities * sizeof(TransformMatrix));
    for (uint32_t i = 0; i < count; ++i) {
      Entity3DRecord& record = expected[begin + i];
      record.rotationMode = 1;
      std::memcpy(record.rotation, &rotations[i * stride], sizeof(record.rotation));
      Entity3D::BuildLocalMatrix(reinterpret_cast<const uint8_t*>(&record),
                                 expectedLocals[begin + i].m);
    }
    GetParam().write(BoneRun{records.data() + begin, locals.Data() + begin, count},
                     rotations.data(), stride);
    EXPECT_EQ(0, std::memcmp(expected.data(), records.data(), kEntities * sizeof(Entity3DRecord)))
        << count << " from " << begin;
    EXPECT_EQ(
        0, std::memcmp(expectedLocals.Data(), locals.Data(), kEntities * sizeof(TransformMatrix)))
        << count << " from " << begin;
  }

  static constexpr size_t kWidestStride = 12;
  std::vector<Entity3DRecord> records;
  AlignedArray<TransformMatrix> locals;
  std::vector<float> rotations;
};

TEST_P(BoneRunTest, WritesTheBitsOfSingleEntitiesAndNoOthers) {
  for (uint32_t count = 0; count <= 20; ++count) {
    for (const uint32_t begin : {0u, 1u, 4u}) {
      for (const size_t stride : {size_t{4}, kWidestStride}) {
        Fill(100 * count + begin);
        Compare(begin, count, stride);
      }
    }
  }
}

// 1 - 2 (yy + zz) overflows, and the scales make zeros and infinities of either sign.
TEST_P(BoneRunTest, KeepsOverflowsAndSignsOfZero) {
  Fill(1);
  for (uint32_t i = 0; i < kEntities; ++i) {
    rotations[4 * i] = i % 3 == 0 ? 3e38f : -0.0f;
    rotations[4 * i + 1] = i % 5 == 0 ? 1e-40f : 0.0f;
    records[i].scale[i % 3] = i % 2 == 0 ? -0.0f : 1e38f;
    records[i].position[i % 3] = -0.0f;
  }
  Compare(2, 19, 4);
}

INSTANTIATE_TEST_SUITE_P(All, BoneRunTest, testing::ValuesIn(WritersInUse()),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace nq::engine
