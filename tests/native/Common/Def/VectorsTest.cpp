// Rounding to integers, by all code paths.
#include "Common/Def/Vectors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>

namespace nq::engine {
namespace {

struct Way {
  const char* name;
  __m128i (*compute)(__m128d numbers);
};

void PrintTo(const Way& way, std::ostream* out) {
  *out << way.name;
}

class NearestIntegersTest : public testing::TestWithParam<Way> {
 protected:
  // Compares all four lanes.
  void Expect(int32_t first, int32_t second, double a, double b) {
    alignas(16) int32_t lanes[4] = {7, 7, 7, 7};
    _mm_store_si128(reinterpret_cast<__m128i*>(lanes), GetParam().compute(_mm_setr_pd(a, b)));
    ASSERT_EQ(lanes[0], first) << a;
    ASSERT_EQ(lanes[1], second) << b;
    ASSERT_EQ(lanes[2], 0);
    ASSERT_EQ(lanes[3], 0);
  }
};

TEST_P(NearestIntegersTest, TiesRoundToEven) {
  Expect(0, 2, 0.5, 1.5);
  Expect(2, 4, 2.5, 3.5);
  Expect(0, -2, -0.5, -1.5);
  Expect(-2, -4, -2.5, -3.5);
  Expect(2606, 2608, 2606.5, 2607.5);
  Expect(-2606, -2608, -2606.5, -2607.5);
}

TEST_P(NearestIntegersTest, TheNeighboursOfTiesRoundToTheNearerInteger) {
  Expect(0, 1, 0.49999999999999994, 0.5000000000000001);
  Expect(2, 3, 2.4999999999999996, 2.5000000000000004);
  Expect(0, -1, -0.49999999999999994, -0.5000000000000001);
}

TEST_P(NearestIntegersTest, IntegersAndZerosAreUnchanged) {
  Expect(0, 0, 0.0, -0.0);
  Expect(1, -1, 1.0, -1.0);
  Expect(2147483647, -2147483647, 2147483647.0, -2147483647.0);
}

TEST_P(NearestIntegersTest, DenormalsRoundToZero) {
  Expect(0, 0, 5e-324, -5e-324);
  Expect(0, 0, 1e-45, -1e-45);
}

// By the remainder to the integer below, in 64-bit integers.
int32_t Nearest(double x) {
  const double below = std::floor(x);
  const double rest = x - below;  // exact
  const int64_t integer = static_cast<int64_t>(below);
  const bool up = rest > 0.5 || (rest == 0.5 && integer % 2 != 0);
  return static_cast<int32_t>(integer + (up ? 1 : 0));
}

TEST_P(NearestIntegersTest, NumbersOfAllSizesRoundToTheNearestInteger) {
  const uint32_t seed = 5;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  const auto number = [&random] {
    const double exponent = static_cast<double>(random() % 32);
    const double fraction = static_cast<double>(random()) / 4294967296.0;
    // One in four is a tie, or an integer.
    const double x = std::exp2(exponent - 1.0) * fraction;
    const double chosen = random() % 4 == 0 ? std::floor(2.0 * x) / 2.0 : x;
    return random() % 2 == 0 ? chosen : -chosen;
  };
  for (int i = 0; i < 1000000; ++i) {
    const double a = number();
    const double b = number();
    Expect(Nearest(a), Nearest(b), a, b);
    if (HasFatalFailure()) {
      return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Ways, NearestIntegersTest,
                         testing::Values(Way{"NearestIntegers", NearestIntegers},
                                         Way{"ByAddition", NearestIntegersByAddition}),
                         [](const testing::TestParamInfo<Way>& info) { return info.param.name; });

}  // namespace
}  // namespace nq::engine
