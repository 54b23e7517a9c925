// Local matrices from Euler angles: both code paths for their columns, and whole matrices, against
// the plain formulas.
#include "Engine/Entity/LocalMatrix3D.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "Common/Def/Platform.h"
#include "Common/Def/Vectors.h"
#include "Engine/Entity/Entity3D.h"
#include "tests/native/Engine/Entity/ReferenceScene.h"

namespace nq::engine {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNotANumber = std::numeric_limits<float>::quiet_NaN();
constexpr float kScale[3] = {2.0f, -0.5f, 3.0f};
constexpr float kPosition[3] = {5.0f, -0.0f, 1e30f};

Entity3DRecord RecordOf(const float (&rotation)[4]) {
  Entity3DRecord record = {};
  std::memcpy(record.rotation, rotation, sizeof(record.rotation));
  std::memcpy(record.scale, kScale, sizeof(record.scale));
  std::memcpy(record.position, kPosition, sizeof(record.position));
  return record;
}

const uint8_t* BytesOf(const Entity3DRecord& record) {
  return reinterpret_cast<const uint8_t*>(&record);
}

struct Matrix {
  alignas(16) float m[16];
};

NQ_FORCE_INLINE void Finish(const RotationColumns& rotation, const Entity3DRecord& record,
                            float* out) {
  const LocalColumns columns(rotation, PositionScale(record));
  _mm_storeu_ps(out, columns.c0);
  _mm_storeu_ps(out + 4, columns.c1);
  _mm_storeu_ps(out + 8, columns.c2);
  _mm_storeu_ps(out + 12, columns.c3);
}

// Each fills `out`; false if it leaves that to the other.
bool Plain(const Entity3DRecord& record, float* out) {
  Finish(EulerColumns(record.rotation), record, out);
  return true;
}

NQ_TARGET_AVX2 bool ByFour(const Entity3DRecord& record, float* out) {
  RotationColumns rotation;
  if (!EulerColumnsByFour(record.rotation, &rotation)) {
    return false;
  }
  Finish(rotation, record, out);
  return true;
}

bool OfEntity(const Entity3DRecord& record, float* out) {
  Entity3D::BuildLocalMatrix(BytesOf(record), out);
  return true;
}

bool OfEntityOnOneThread(const Entity3DRecord& record, float* out) {
  Entity3D::BuildOwnLocalMatrix(BytesOf(record), out);
  return true;
}

struct Way {
  const char* name;
  bool (*build)(const Entity3DRecord& record, float* out);
};

void PrintTo(const Way& way, std::ostream* out) {
  *out << way.name;
}

// The code paths that this CPU supports.
std::vector<Way> WaysInUse() {
  std::vector<Way> ways = {Way{"Plain", Plain}, Way{"OfEntity", OfEntity},
                           Way{"OfEntityOnOneThread", OfEntityOnOneThread}};
  if (HasWideIntegers()) {
    ways.push_back(Way{"ByFour", ByFour});
  }
  return ways;
}

class EulerMatrixTest : public testing::TestWithParam<Way> {
 protected:
  void Compare(const Entity3DRecord& record) {
    Matrix expected;
    ReferenceLocalMatrix3D(BytesOf(record), expected.m);
    Matrix got;
    std::memset(&got, 0x5A, sizeof(got));
    ++built;
    if (!GetParam().build(record, got.m)) {
      ++leftOver;
      return;
    }
    for (int i = 0; i < 16; ++i) {
      if (!std::isnan(expected.m[i]) || !std::isnan(got.m[i])) {
        ASSERT_EQ(0, std::memcmp(&expected.m[i], &got.m[i], sizeof(float)))
            << "element " << i << " of " << record.rotation[0] << ", " << record.rotation[1] << ", "
            << record.rotation[2] << ": " << expected.m[i] << " and " << got.m[i];
      }
    }
  }

  int built = 0;
  int leftOver = 0;
};

// Values that the fourth number of a rotation may hold.
constexpr float kGarbage[] = {0.0f, kNotANumber, kInfinity, 1e30f, -1e-45f, -0.0f};
constexpr size_t kGarbageCount = sizeof(kGarbage) / sizeof(float);

TEST_P(EulerMatrixTest, RandomAnglesGiveTheBitsOfThePlainFormulas) {
  const uint32_t seed = 20240612;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (const float most : {1.0f, 7.0f, 100.0f, 4096.0f}) {
    std::uniform_real_distribution<float> angles(-most, most);
    for (size_t round = 0; round < 20000; ++round) {
      Compare(RecordOf(
          {angles(random), angles(random), angles(random), kGarbage[round % kGarbageCount]}));
      if (HasFatalFailure()) {
        return;
      }
    }
  }
  EXPECT_LT(leftOver, built / 500) << "whatever the fourth number is";
}

// Zeros of both signs among the results, and all quarter turns.
TEST_P(EulerMatrixTest, SpecialAnglesGiveTheBitsOfThePlainFormulas) {
  constexpr float kQuarter = 1.57079637f;
  std::vector<float> angles;
  for (const float angle : {0.0f, 1e-45f, 1e-38f, 1e-20f, 0.5f, kQuarter / 2, kQuarter,
                            2 * kQuarter, 3 * kQuarter, 4 * kQuarter, 5.0f, 4096.0f}) {
    angles.push_back(angle);
    angles.push_back(-angle);
  }
  for (const float x : angles) {
    for (const float y : angles) {
      for (const float z : angles) {
        for (const float garbage : kGarbage) {
          Compare(RecordOf({x, y, z, garbage}));
          if (HasFatalFailure()) {
            return;
          }
        }
      }
    }
  }
  EXPECT_EQ(0, leftOver);
}

// The fast path must leave these to the library.
TEST_P(EulerMatrixTest, AnglesOutOfRangeGiveTheBitsOfThePlainFormulas) {
  for (const float bad : {4096.001f, 1e6f, -1e10f, 3e38f, kInfinity, -kInfinity, kNotANumber}) {
    for (int place = 0; place < 3; ++place) {
      float rotation[4] = {0.5f, -1.25f, 2.0f, 0.0f};
      rotation[place] = bad;
      Compare(RecordOf(rotation));
    }
  }
  EXPECT_EQ(GetParam().build == ByFour ? built : 0, leftOver);
}

// The fourth row stays 0, 0, 0, 1.
TEST_P(EulerMatrixTest, AnyScaleGivesTheBitsOfThePlainFormulas) {
  for (const float scale : {0.0f, -0.0f, -1.0f, 1e-40f, 3e38f, kInfinity, kNotANumber}) {
    for (int axis = 0; axis < 3; ++axis) {
      Entity3DRecord record = RecordOf({0.5f, -1.25f, 2.0f, kNotANumber});
      record.scale[axis] = scale;
      Compare(record);
    }
  }
  EXPECT_EQ(0, leftOver);
}

INSTANTIATE_TEST_SUITE_P(Ways, EulerMatrixTest, testing::ValuesIn(WaysInUse()),
                         [](const testing::TestParamInfo<Way>& way) { return way.param.name; });

}  // namespace
}  // namespace nq::engine
