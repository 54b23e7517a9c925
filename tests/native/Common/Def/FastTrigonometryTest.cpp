// The faster forms give the floats of the plain ones, to the last bit.
#include "Common/Def/FastTrigonometry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

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

// All not-a-numbers are one.
void ExpectSame(float expected, float got, float operand) {
  if (!std::isnan(expected) || !std::isnan(got)) {
    ASSERT_EQ(Bits(expected), Bits(got)) << "of " << operand;
  }
}

// Steps through all floats of both signs, denormals, infinities and not-a-numbers included. A step
// that shares no factor with powers of two meets all patterns of the low bits.
constexpr uint64_t kStep = 9973;

TEST(FastTrigonometry, SinesOfTwoAreThoseOfTheLibrary) {
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

TEST(FastTrigonometry, SineAtTheEdgeOfTheSeriesIsThatOfTheLibrary) {
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

TEST(FastTrigonometry, ArcCosineIsThatOfTheLibrary) {
  for (uint64_t bits = 0; bits <= 0xFFFFFFFFu; bits += kStep) {
    const float x = FromBits(static_cast<uint32_t>(bits));
    ExpectSame(static_cast<float>(std::acos(static_cast<double>(x))), acosNearF(x), x);
    if (HasFatalFailure()) {
      return;
    }
  }
}

// Where rotations that are blended mostly lie.
TEST(FastTrigonometry, ArcCosineFromAHalfToOneIsThatOfTheLibrary) {
  for (uint32_t bits = Bits(0.49f); bits <= Bits(1.01f); bits += 5) {
    const float x = FromBits(bits);
    ExpectSame(static_cast<float>(std::acos(static_cast<double>(x))), acosNearF(x), x);
    if (HasFatalFailure()) {
      return;
    }
  }
}

}  // namespace
}  // namespace nq::engine
