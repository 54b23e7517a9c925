// Floats to the unsigned integers they represent.
#include "Common/Def/Truncate.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>

namespace nq::engine {
namespace {

const float kInfinity = std::numeric_limits<float>::infinity();
const float kNone = std::numeric_limits<float>::quiet_NaN();

TEST(TruncateTest, DropsTheFraction) {
  EXPECT_EQ(0u, TruncateToU32(0.0f));
  EXPECT_EQ(0u, TruncateToU32(-0.0f));
  EXPECT_EQ(0u, TruncateToU32(0.999f));
  EXPECT_EQ(0u, TruncateToU32(1e-45f));
  EXPECT_EQ(1u, TruncateToU32(1.0f));
  EXPECT_EQ(29u, TruncateToU32(29.97f));
  EXPECT_EQ(16777215u, TruncateToU32(16777215.0f));
  EXPECT_EQ(2147483520u, TruncateToU32(2147483520.0f)) << "the last below the top bit";
}

TEST(TruncateTest, TheUpperHalfIsExact) {
  EXPECT_EQ(0x80000000u, TruncateToU32(2147483648.0f));
  EXPECT_EQ(0x80000100u, TruncateToU32(2147483904.0f));
  EXPECT_EQ(3000000000u, TruncateToU32(3.0e9f));
  EXPECT_EQ(0xFFFFFF00u, TruncateToU32(4294967040.0f)) << "the last of 32 bits";
}

TEST(TruncateTest, NegativeNumbersWrap) {
  EXPECT_EQ(0u, TruncateToU32(-0.5f));
  EXPECT_EQ(0xFFFFFFFFu, TruncateToU32(-1.0f));
  EXPECT_EQ(0xFFFFFFFFu, TruncateToU32(-1.75f));
  EXPECT_EQ(0xFFFFFFE2u, TruncateToU32(-30.5f));
  EXPECT_EQ(0x80000080u, TruncateToU32(-2147483520.0f));
  EXPECT_EQ(0x80000000u, TruncateToU32(-2147483648.0f));
}

TEST(TruncateTest, NumbersThatDoNotFitAndNaNGive0x80000000) {
  for (const float value : {4294967296.0f, 4294967808.0f, 5.0e9f, 1.0e20f, 3.4e38f, kInfinity,
                            -2147483904.0f, -3.0e9f, -3.4e38f, -kInfinity, kNone, -kNone}) {
    EXPECT_EQ(0x80000000u, TruncateToU32(value)) << value;
  }
}

// By sign, exponent and mantissa, without any conversion of a float.
uint32_t ReferenceTruncation(uint32_t bits) {
  const bool isNegative = bits >> 31 != 0;
  const int exponent = static_cast<int>(bits >> 23 & 0xFF) - 127;
  const uint64_t mantissa = (bits & 0x7FFFFF) | 0x800000;
  if (exponent < 0) {
    return 0;
  }
  if (exponent > 31 || (isNegative && exponent > 30)) {
    return 0x80000000u;
  }
  const uint32_t magnitude = static_cast<uint32_t>(exponent >= 23 ? mantissa << (exponent - 23)
                                                                  : mantissa >> (23 - exponent));
  return isNegative ? 0u - magnitude : magnitude;
}

bool ReferenceWholeness(uint32_t bits) {
  const uint32_t exponent = bits >> 23 & 0xFF;
  const uint32_t mantissa = bits & 0x7FFFFF;
  if (exponent == 0xFF) {
    return mantissa == 0;
  }
  if (exponent < 127) {
    return exponent == 0 && mantissa == 0;
  }
  return exponent >= 150 || (mantissa & ((1u << (150 - exponent)) - 1) & 0x7FFFFF) == 0;
}

TEST(TruncateTest, ArbitraryBitsMatchAnIntegerReference) {
  std::mt19937 generator(4);
  for (int i = 0; i < 200000; ++i) {
    uint32_t bits = static_cast<uint32_t>(generator());
    if (i % 2 == 0) {
      // Exponents from just below 1 to just above 2^32, sometimes with few mantissa bits.
      bits = (bits & 0x807FFFFF) | (120 + static_cast<uint32_t>(generator()) % 42) << 23;
      bits &= i % 4 == 0 ? 0xFFFC0000u : 0xFFFFFFFFu;
    }
    float value;
    std::memcpy(&value, &bits, 4);
    ASSERT_EQ(ReferenceTruncation(bits), TruncateToU32(value)) << std::hex << bits;
    ASSERT_EQ(ReferenceWholeness(bits), IsWhole(value)) << std::hex << bits;
  }
}

TEST(TruncateTest, WholeNumbers) {
  for (const float value : {0.0f, -0.0f, 1.0f, -1.0f, 60.0f, 8388608.0f, 16777216.0f, 5.0e9f,
                            -3.0e38f, kInfinity, -kInfinity}) {
    EXPECT_TRUE(IsWhole(value)) << value;
  }
  for (const float value : {0.5f, -0.5f, 1e-45f, 59.999996f, 8388607.5f, -1.0000001f, kNone}) {
    EXPECT_FALSE(IsWhole(value)) << value;
  }
}

}  // namespace
}  // namespace nq::engine
