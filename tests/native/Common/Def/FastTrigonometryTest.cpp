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

// Both lanes, with the sign of zeros.
void ExpectSameSineAndCosine(float a, float b) {
  SineCosine ofA;
  SineCosine ofB;
  sinCosTwoF(a, b, &ofA, &ofB);
  ExpectSame(static_cast<float>(std::sin(static_cast<double>(a))), ofA.sine, a);
  ExpectSame(static_cast<float>(std::cos(static_cast<double>(a))), ofA.cosine, a);
  ExpectSame(static_cast<float>(std::sin(static_cast<double>(b))), ofB.sine, b);
  ExpectSame(static_cast<float>(std::cos(static_cast<double>(b))), ofB.cosine, b);
}

TEST(FastTrigonometry, SinesAndCosinesAreThoseOfTheLibrary) {
  for (uint64_t bits = 0; bits <= 0xFFFFFFFFu; bits += kStep) {
    // Angles that are reduced in the other lane: 1 to 4096.
    const uint32_t turned = 0x3F800000u + static_cast<uint32_t>(bits % 0x06000000u);
    ExpectSameSineAndCosine(FromBits(static_cast<uint32_t>(bits)), FromBits(turned));
    if (HasFatalFailure()) {
      return;
    }
  }
}

// Where next to nothing is left of an angle, its sine or cosine is near 0.
TEST(FastTrigonometry, SinesAndCosinesAroundQuarterTurnsAreThoseOfTheLibrary) {
  constexpr double kHalfPi = 1.5707963267948966;
  for (int turns = 1; turns <= 2700; ++turns) {
    const uint32_t middle = Bits(static_cast<float>(turns * kHalfPi));
    for (uint32_t bits = middle - 40; bits <= middle + 40; ++bits) {
      ExpectSameSineAndCosine(FromBits(bits), -FromBits(bits));
    }
    if (HasFatalFailure()) {
      return;
    }
  }
}

// Sines (in the first row) or cosines so near the middle of two floats that the series alone would
// round to the wrong one.
TEST(FastTrigonometry, SinesAndCosinesNextToTheMiddleOfTwoFloatsAreThoseOfTheLibrary) {
  const uint32_t angles[] = {0x423FA699u, 0x4315FB43u, 0x448CB16Cu, 0x452D3C38u, 0x4561DB8Eu,
                             0x3F47C904u, 0x3F45DFCBu, 0x3F2E6EA3u, 0x40186F52u, 0x424C1BA5u,
                             0x42C13DF9u, 0x43F56ABDu, 0x43FBB5D4u};
  for (const uint32_t bits : angles) {
    ExpectSameSineAndCosine(FromBits(bits), 1.0f);
    ExpectSameSineAndCosine(1.0f, -FromBits(bits));
  }
}

TEST(FastTrigonometry, SinesAndCosinesOfSpecialAnglesAreThoseOfTheLibrary) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  const float angles[] = {0.0f,     -0.0f,     1e-45f,    -1e-45f,   kInfinity, -kInfinity, NAN,
                          4096.0f,  -4096.0f,  4096.001f, 0.5f,      -0.5f,     1e30f,      -1e30f,
                          0.78539f, 0.785399f, 3.141592f, 3.141593f, 6.283185f, 6.283186f};
  for (const float a : angles) {
    for (const float b : angles) {
      ExpectSameSineAndCosine(a, b);
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
