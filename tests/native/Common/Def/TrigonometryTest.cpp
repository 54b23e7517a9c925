// Square root and trigonometry in double precision, rounded to float.
#include "Common/Def/Trigonometry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

namespace nq::engine {
namespace {

// Compares with the CPU's extended precision: a result computed in single precision would sometimes
// be off by the last bit.
template <typename Function, typename Extended>
void ExpectRounded(Function function, Extended extended, float lowest, float highest) {
  const uint32_t seed = 51;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> within(lowest, highest);
  int different = 0;
  for (int i = 0; i < 200000; ++i) {
    const float x = within(random);
    if (function(x) != static_cast<float>(extended(static_cast<long double>(x)))) {
      ++different;
      EXPECT_LT(different, 5) << x;
    }
  }
  EXPECT_EQ(different, 0);
}

TEST(TrigonometryTest, TheSineIsRoundedOnceToFloat) {
  ExpectRounded(sinF, sinl, -4.0f, 4.0f);
  ExpectRounded(sinF, sinl, -1000.0f, 1000.0f);
}

TEST(TrigonometryTest, TheCosineIsRoundedOnceToFloat) {
  ExpectRounded(cosF, cosl, -4.0f, 4.0f);
  ExpectRounded(cosF, cosl, -1000.0f, 1000.0f);
}

TEST(TrigonometryTest, TheSquareRootIsRoundedOnceToFloat) {
  ExpectRounded(sqrtF, sqrtl, 0.0f, 10.0f);
  EXPECT_EQ(sqrtF(16.0f), 4.0f);
}

TEST(TrigonometryTest, ArgumentsOutsideTheDomainGiveNaN) {
  EXPECT_TRUE(std::isnan(sqrtF(-1.0f)));
  EXPECT_TRUE(std::isnan(sinF(std::numeric_limits<float>::infinity())));
  EXPECT_TRUE(std::isnan(cosF(std::numeric_limits<float>::quiet_NaN())));
}

}  // namespace
}  // namespace nq::engine
