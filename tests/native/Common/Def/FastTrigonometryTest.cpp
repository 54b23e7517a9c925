// The fast functions are bit-identical to the plain ones.
#include "Common/Def/FastTrigonometry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "Common/Def/Platform.h"
#include "Common/Def/Vectors.h"

namespace nq::engine {
namespace {

float FromBits(uint32_t bits) {
  float value;
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

uint32_t Bits(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

// All NaNs are equal.
void ExpectSame(float expected, float got, float operand) {
  if (!std::isnan(expected) || !std::isnan(got)) {
    ASSERT_EQ(Bits(expected), Bits(got)) << "of " << operand;
  }
}

// Steps through all floats of both signs, including denormals, infinities and NaNs. A step that is
// coprime to powers of two covers all patterns of the low bits.
constexpr uint64_t kStep = 9973;

TEST(FastTrigonometry, SinesOfTwoMatchTheLibrary) {
  for (uint64_t bits = 0; bits <= 0xFFFFFFFFu; bits += kStep) {
    const float a = FromBits(static_cast<uint32_t>(bits));
    const float b = FromBits(0x3F800000u + static_cast<uint32_t>(bits % 0x00500000u));  // 1 to 1.6
    float sineOfA;
    float sineOfB;
    sinTwoF(a, b, &sineOfA, &sineOfB);
    ExpectSame(static_cast<float>(std::sin(static_cast<double>(a))), sineOfA, a);
    ExpectSame(static_cast<float>(std::sin(static_cast<double>(b))), sineOfB, b);
    if (HasFatalFailure()) {
      return;
    }
  }
}

TEST(FastTrigonometry, SineAtTheLimitOfTheSeriesMatchesTheLibrary) {
  for (uint32_t bits = Bits(1.5f); bits <= Bits(1.7f); bits += 7) {
    const float a = FromBits(bits);
    float sine;
    float sineOfNegative;
    sinTwoF(a, -a, &sine, &sineOfNegative);
    ExpectSame(static_cast<float>(std::sin(static_cast<double>(a))), sine, a);
    ExpectSame(-sine, sineOfNegative, -a);
    if (HasFatalFailure()) {
      return;
    }
  }
}

void ExpectSameSineAndCosine(float angle) {
  const SineCosine of = sinCosF(angle);
  ExpectSame(static_cast<float>(std::sin(static_cast<double>(angle))), of.sine, angle);
  ExpectSame(static_cast<float>(std::cos(static_cast<double>(angle))), of.cosine, angle);
}

TEST(FastTrigonometry, SinesAndCosinesMatchTheLibrary) {
  for (uint64_t bits = 0; bits <= 0xFFFFFFFFu; bits += kStep) {
    ExpectSameSineAndCosine(FromBits(static_cast<uint32_t>(bits)));
    if (HasFatalFailure()) {
      return;
    }
  }
}

// If the reduced angle is close to 0, the sine or cosine is near 0.
TEST(FastTrigonometry, SinesAndCosinesAroundQuarterTurnsMatchTheLibrary) {
  constexpr double kHalfPi = 1.5707963267948966;
  for (int turns = 1; turns <= 2700; ++turns) {
    const uint32_t middle = Bits(static_cast<float>(turns * kHalfPi));
    for (uint32_t bits = middle - 40; bits <= middle + 40; ++bits) {
      ExpectSameSineAndCosine(FromBits(bits));
      ExpectSameSineAndCosine(-FromBits(bits));
    }
    if (HasFatalFailure()) {
      return;
    }
  }
}

// Sines (in the first row) or cosines so near a rounding tie of two floats that the series alone
// would round to the wrong one.
constexpr uint32_t kNextToTies[] = {0x423FA699u, 0x4315FB43u, 0x448CB16Cu, 0x452D3C38u, 0x4561DB8Eu,
                                    0x3F47C904u, 0x3F45DFCBu, 0x3F2E6EA3u, 0x40186F52u, 0x424C1BA5u,
                                    0x42C13DF9u, 0x43F56ABDu, 0x43FBB5D4u};

TEST(FastTrigonometry, SinesAndCosinesNextToRoundingTiesMatchTheLibrary) {
  for (const uint32_t bits : kNextToTies) {
    ExpectSameSineAndCosine(FromBits(bits));
    ExpectSameSineAndCosine(-FromBits(bits));
  }
}

TEST(FastTrigonometry, SinesAndCosinesOfSpecialAnglesMatchTheLibrary) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  for (const float angle : {0.0f, 1e-45f, kInfinity, NAN, 4096.0f, 4096.001f, 0.5f, 1e30f, 0.78539f,
                            0.785399f, 3.141592f, 3.141593f, 6.283185f, 6.283186f}) {
    ExpectSameSineAndCosine(angle);
    ExpectSameSineAndCosine(-angle);
  }
}

// Four angles at once, in pairs as without AVX2, or one by one by the library.
struct Four {
  Four(bool isSure, __m128 sinesOfFour, __m128 cosinesOfFour) : sure(isSure) {
    _mm_storeu_ps(sines, sinesOfFour);
    _mm_storeu_ps(cosines, cosinesOfFour);
  }

  bool sure;
  float sines[4];
  float cosines[4];
};

Four OneByOne(const float* angles) {
  __m128 sines;
  __m128 cosines;
  sinCosEachF(_mm_loadu_ps(angles), &sines, &cosines);
  return Four(true, sines, cosines);
}

Four ByPairs(const float* angles) {
  __m128 sines;
  __m128 cosines;
  const bool isSure = sinCosPairsF(_mm_loadu_ps(angles), &sines, &cosines);
  return Four(isSure, sines, cosines);
}

NQ_TARGET_AVX2 Four AtOnce(const float* angles) {
  __m128 sines;
  __m128 cosines;
  const bool isSure = sinCosFourF(_mm_loadu_ps(angles), &sines, &cosines);
  return Four(isSure, sines, cosines);
}

struct Way {
  const char* name;
  Four (*compute)(const float* angles);
};

void PrintTo(const Way& way, std::ostream* out) {
  *out << way.name;
}

// The code paths that this CPU supports.
std::vector<Way> WaysInUse() {
  std::vector<Way> ways = {Way{"OneByOne", OneByOne}, Way{"ByPairs", ByPairs}};
  if (HasWideIntegers()) {
    ways.push_back(Way{"AtOnce", AtOnce});
  }
  return ways;
}

class FourAnglesTest : public testing::TestWithParam<Way> {
 protected:
  // Compares the results that are certain, and counts all.
  void Compare(const float (&angles)[4]) {
    const Four got = GetParam().compute(angles);
    ++computed;
    if (!got.sure) {
      ++unsure;
      return;
    }
    for (int i = 0; i < 4; ++i) {
      ExpectSame(static_cast<float>(std::sin(static_cast<double>(angles[i]))), got.sines[i],
                 angles[i]);
      ExpectSame(static_cast<float>(std::cos(static_cast<double>(angles[i]))), got.cosines[i],
                 angles[i]);
    }
  }

  // `angle` in each lane, among different ones.
  void CompareEverywhere(float angle) {
    for (int place = 0; place < 4; ++place) {
      float angles[4] = {0.75f, -2.5f, 4.0f, 5.5f};
      angles[place] = angle;
      Compare(angles);
    }
  }

  int computed = 0;
  int unsure = 0;
};

TEST_P(FourAnglesTest, SinesAndCosinesInEachLaneMatchTheLibrary) {
  for (uint64_t bits = 0; bits <= Bits(4096.0f); bits += 4 * kStep) {
    CompareEverywhere(FromBits(static_cast<uint32_t>(bits)));
    CompareEverywhere(-FromBits(static_cast<uint32_t>(bits)));
    if (HasFatalFailure()) {
      return;
    }
  }
  EXPECT_LT(unsure, computed / 1000) << "all of these angles are in range";
}

TEST_P(FourAnglesTest, FourRandomAnglesMatchTheLibrary) {
  const uint32_t seed = 20240611;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> near(-7.0f, 7.0f);
  std::uniform_real_distribution<float> far(-4096.0f, 4096.0f);
  for (int round = 0; round < 200000; ++round) {
    Compare({near(random), far(random), near(random), near(random)});
    if (HasFatalFailure()) {
      return;
    }
  }
  EXPECT_LT(unsure, computed / 500);
}

TEST_P(FourAnglesTest, AnglesAroundQuarterTurnsMatchTheLibrary) {
  constexpr double kHalfPi = 1.5707963267948966;
  for (int turns = 1; turns <= 2607; ++turns) {
    const uint32_t middle = Bits(static_cast<float>(turns * kHalfPi));
    for (uint32_t bits = middle - 8; bits <= middle + 8; ++bits) {
      Compare({FromBits(bits), -FromBits(bits), FromBits(bits + 1), 0.0f});
    }
    // Eighth turns: where the nearest quarter turn changes from one float to the next.
    const uint32_t between = Bits(static_cast<float>((turns - 0.5) * kHalfPi));
    for (uint32_t bits = between - 8; bits <= between + 8; ++bits) {
      Compare({1.0f, FromBits(bits), -FromBits(bits), FromBits(bits + 1)});
    }
    if (HasFatalFailure()) {
      return;
    }
  }
  EXPECT_LT(unsure, computed / 500);
}

TEST_P(FourAnglesTest, ResultsNextToRoundingTiesMatchTheLibrary) {
  for (const uint32_t bits : kNextToTies) {
    CompareEverywhere(FromBits(bits));
    CompareEverywhere(-FromBits(bits));
  }
}

TEST_P(FourAnglesTest, ZerosAndDenormalsKeepTheirSignAndTheLargestAngleIsComputed) {
  for (const float angle : {0.0f, 1e-45f, 1e-40f, 1.1754944e-38f, 1e-30f, 1e-10f, 2.4e-4f, 0.5f,
                            0.78539f, 0.785399f, 3.141592f, 3.141593f, 6.283185f, 4096.0f}) {
    CompareEverywhere(angle);
    CompareEverywhere(-angle);
  }
  EXPECT_EQ(0, unsure);
}

TEST_P(FourAnglesTest, OutOfRangeAnglesAndNaNsInAnyLaneAreNeverWrong) {
  const float first = FromBits(Bits(4096.0f) + 1);
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  for (const float angle : {first, 4097.0f, 1e6f, 3e9f, 1e30f, 3.4e38f, kInfinity, NAN}) {
    CompareEverywhere(angle);
    CompareEverywhere(-angle);
  }
  // One by one, the library has been called already.
  EXPECT_EQ(GetParam().compute == OneByOne ? 0 : computed, unsure);
}

INSTANTIATE_TEST_SUITE_P(Ways, FourAnglesTest, testing::ValuesIn(WaysInUse()),
                         [](const testing::TestParamInfo<Way>& way) { return way.param.name; });

TEST(FastTrigonometry, ArcCosineMatchesTheLibrary) {
  for (uint64_t bits = 0; bits <= 0xFFFFFFFFu; bits += kStep) {
    const float x = FromBits(static_cast<uint32_t>(bits));
    ExpectSame(static_cast<float>(std::acos(static_cast<double>(x))), acosNearF(x), x);
    if (HasFatalFailure()) {
      return;
    }
  }
}

// The usual range for rotations that are blended.
TEST(FastTrigonometry, ArcCosineFromAHalfToOneMatchesTheLibrary) {
  for (uint32_t bits = Bits(0.49f); bits <= Bits(1.01f); bits += 5) {
    const float x = FromBits(bits);
    ExpectSame(static_cast<float>(std::acos(static_cast<double>(x))), acosNearF(x), x);
    if (HasFatalFailure()) {
      return;
    }
  }
}

// The sines of four slerps, by rows: of (1 - t) times the angle, of t times it, of the angle. False
// if they are not certain.
using SlerpSinesFunction = bool (*)(const float* cosines, float t, float (*sines)[4]);

bool SlerpOneByOne(const float* cosines, float t, float (*sines)[4]) {
  for (int i = 0; i < 4; ++i) {
    const float angle = acosNearF(cosines[i]);
    sinTwoF((1.0f - t) * angle, t * angle, &sines[0][i], &sines[1][i]);
    sinTwoF(angle, angle, &sines[2][i], &sines[2][i]);
  }
  return true;
}

NQ_TARGET_AVX2 bool SlerpFourAtOnce(const float* cosines, float t, float (*sines)[4]) {
  SlerpSines four;
  const bool sure = slerpSinesFourF(_mm_loadu_ps(cosines), t, &four);
  _mm_storeu_ps(sines[0], four.from);
  _mm_storeu_ps(sines[1], four.to);
  _mm_storeu_ps(sines[2], four.whole);
  return sure;
}

bool SlerpByPairs(const float* cosines, float t, float (*sines)[4]) {
  SlerpSines four;
  const bool sure = slerpSinesPairsF(_mm_loadu_ps(cosines), t, &four);
  _mm_storeu_ps(sines[0], four.from);
  _mm_storeu_ps(sines[1], four.to);
  _mm_storeu_ps(sines[2], four.whole);
  return sure;
}

struct SlerpWay {
  const char* name;
  SlerpSinesFunction compute;
};

void PrintTo(const SlerpWay& way, std::ostream* out) {
  *out << way.name;
}

// The code paths that this CPU supports.
std::vector<SlerpWay> SlerpWaysInUse() {
  std::vector<SlerpWay> ways = {SlerpWay{"OneByOne", SlerpOneByOne},
                                SlerpWay{"ByPairs", SlerpByPairs}};
  if (HasWideIntegers()) {
    ways.push_back(SlerpWay{"AtOnce", SlerpFourAtOnce});
  }
  return ways;
}

class SlerpSinesTest : public testing::TestWithParam<SlerpWay> {
 protected:
  // Compares the results that are certain, and counts all.
  void Compare(const float (&cosines)[4], float t) {
    float sines[3][4];
    ++computed;
    if (!GetParam().compute(cosines, t, sines)) {
      ++unsure;
      return;
    }
    for (int i = 0; i < 4; ++i) {
      const float angle = acosF(cosines[i]);
      ExpectSame(sinF((1.0f - t) * angle), sines[0][i], cosines[i]);
      ExpectSame(sinF(t * angle), sines[1][i], cosines[i]);
      ExpectSame(sinF(angle), sines[2][i], cosines[i]);
    }
  }

  // Every `step`-th float between two cosines.
  void CompareAll(float from, float to, uint32_t step) {
    std::mt19937 random(20261122);
    std::uniform_real_distribution<float> shares(0.0f, 1.0f);
    for (uint32_t bits = Bits(from); bits + 3 * step < Bits(to) && !HasFatalFailure();
         bits += 4 * step) {
      Compare({FromBits(bits), FromBits(bits + step), FromBits(bits + 2 * step),
               FromBits(bits + 3 * step)},
              shares(random));
    }
    EXPECT_LT(unsure, computed / 500);
  }

  int computed = 0;
  int unsure = 0;
};

TEST_P(SlerpSinesTest, CosinesFromAHalfToOneMatchTheLibrary) {
  CompareAll(0.5f, 1.0f, 3);
}

TEST_P(SlerpSinesTest, CosinesFromZeroToAHalfMatchTheLibrary) {
  CompareAll(0.0f, 0.5f, 997);
}

// The two formulas of the arc cosine are used in different lanes.
TEST_P(SlerpSinesTest, RandomCosinesInAnyLaneMatchTheLibrary) {
  std::mt19937 random(20261123);
  std::uniform_real_distribution<float> numbers(0.0f, 0.999999f);
  for (int round = 0; round < 300000 && !HasFatalFailure(); ++round) {
    Compare({numbers(random), numbers(random), numbers(random), numbers(random)}, numbers(random));
  }
  EXPECT_LT(unsure, computed / 500);
  // Some of so many numbers are next to rounding ties. One by one, the library has been called for
  // them already.
  EXPECT_EQ(GetParam().compute != SlerpOneByOne, unsure > 0);
}

TEST_P(SlerpSinesTest, TheEndsOfSharesAndCosinesAreComputed) {
  const float largest = FromBits(Bits(1.0f) - 1);
  for (const float t : {0.0f, 1e-45f, 1e-38f, 1e-20f, 0.5f, FromBits(Bits(1.0f) - 1), 1.0f}) {
    Compare({0.0f, largest, 1e-45f, 0.5f}, t);
    Compare({-0.0f, FromBits(Bits(0.5f) + 1), FromBits(Bits(0.5f) - 1), 0.75f}, t);
  }
  EXPECT_EQ(0, unsure);
}

INSTANTIATE_TEST_SUITE_P(Ways, SlerpSinesTest, testing::ValuesIn(SlerpWaysInUse()),
                         [](const testing::TestParamInfo<SlerpWay>& way) {
                           return way.param.name;
                         });

}  // namespace
}  // namespace nq::engine
