// Matrix product and inverse, rotations to quaternions, against plain loops and double precision.
#include "Common/Def/MathKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>

namespace nq::engine {
namespace {

using Matrix = std::array<float, 16>;     // column-major
using Matrix3 = std::array<float, 9>;     // column-major
using Quaternion = std::array<float, 4>;  // in the order that each test states

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNotANumber = std::numeric_limits<float>::quiet_NaN();
constexpr float kPoison = -12345.0f;

constexpr Matrix kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

// The same bits, or both NaN.
bool SameFloat(float a, float b) {
  return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof(a)) == 0;
}

template <size_t N>
void ExpectSame(const std::array<float, N>& actual, const std::array<float, N>& expected) {
  for (size_t i = 0; i < N; ++i) {
    EXPECT_TRUE(SameFloat(actual[i], expected[i]))
        << "element " << i << ": " << actual[i] << " instead of " << expected[i];
  }
}

template <size_t N>
void ExpectNear(const std::array<float, N>& actual, const std::array<double, N>& expected,
                double tolerance) {
  for (size_t i = 0; i < N; ++i) {
    EXPECT_NEAR(actual[i], expected[i], tolerance) << "element " << i;
  }
}

Matrix Multiply(const Matrix& a, const Matrix& b) {
  Matrix out;
  out.fill(kPoison);
  multiplyMatrix4(a.data(), b.data(), out.data());
  return out;
}

Matrix Invert(const Matrix& source, bool* result = nullptr) {
  Matrix out;
  out.fill(kPoison);
  const bool returned = invertMatrix4(source.data(), out.data(), 0);
  EXPECT_TRUE(returned);
  if (result != nullptr) {
    *result = returned;
  }
  return out;
}

bool AnyNonFinite(const Matrix& m) {
  return std::any_of(m.begin(), m.end(), [](float x) { return !std::isfinite(x); });
}

bool AllFinite(const Matrix& m) {
  return !AnyNonFinite(m);
}

// The product by its definition, element by element, from left to right.
Matrix ProductByDefinition(const Matrix& a, const Matrix& b) {
  Matrix out;
  for (size_t c = 0; c < 4; ++c) {
    for (size_t r = 0; r < 4; ++r) {
      float sum = a[r] * b[4 * c];
      for (size_t k = 1; k < 4; ++k) {
        sum = sum + a[4 * k + r] * b[4 * c + k];
      }
      out[4 * c + r] = sum;
    }
  }
  return out;
}

// The inverse in double precision by Gaussian elimination with row exchanges. False if a pivot is
// tiny.
bool InverseInDouble(const Matrix& source, std::array<double, 16>* inverse) {
  double rows[4][8];
  for (size_t r = 0; r < 4; ++r) {
    for (size_t c = 0; c < 4; ++c) {
      rows[r][c] = source[4 * c + r];
      rows[r][4 + c] = r == c ? 1 : 0;
    }
  }
  for (size_t step = 0; step < 4; ++step) {
    size_t best = step;
    for (size_t r = step + 1; r < 4; ++r) {
      if (std::fabs(rows[r][step]) > std::fabs(rows[best][step])) {
        best = r;
      }
    }
    if (std::fabs(rows[best][step]) < 1e-9) {
      return false;
    }
    std::swap(rows[best], rows[step]);
    const double pivot = rows[step][step];
    for (double& x : rows[step]) {
      x /= pivot;
    }
    for (size_t r = 0; r < 4; ++r) {
      if (r != step) {
        const double factor = rows[r][step];
        for (size_t c = 0; c < 8; ++c) {
          rows[r][c] -= factor * rows[step][c];
        }
      }
    }
  }
  for (size_t r = 0; r < 4; ++r) {
    for (size_t c = 0; c < 4; ++c) {
      (*inverse)[4 * c + r] = rows[r][4 + c];
    }
  }
  return true;
}

template <typename Elements>
double LargestMagnitude(const Elements& elements) {
  double largest = 0;
  for (const auto x : elements) {
    largest = std::max(largest, std::fabs(static_cast<double>(x)));
  }
  return largest;
}

// w, x, y, z in double precision.
using QuaternionD = std::array<double, 4>;

QuaternionD Times(const QuaternionD& a, const QuaternionD& b) {
  return {a[0] * b[0] - a[1] * b[1] - a[2] * b[2] - a[3] * b[3],
          a[0] * b[1] + a[1] * b[0] + a[2] * b[3] - a[3] * b[2],
          a[0] * b[2] - a[1] * b[3] + a[2] * b[0] + a[3] * b[1],
          a[0] * b[3] + a[1] * b[2] - a[2] * b[1] + a[3] * b[0]};
}

QuaternionD AboutAxis(size_t axis, double angle) {
  QuaternionD q = {std::cos(angle / 2), 0, 0, 0};
  q[1 + axis] = std::sin(angle / 2);
  return q;
}

// The rotation matrix of w, x, y, z, by rotating the three axes: column c is q e_c q*.
Matrix RotationMatrix(const QuaternionD& q) {
  Matrix m = kIdentity;
  const QuaternionD conjugate = {q[0], -q[1], -q[2], -q[3]};
  for (size_t c = 0; c < 3; ++c) {
    QuaternionD axis = {0, 0, 0, 0};
    axis[1 + c] = 1;
    const QuaternionD turned = Times(Times(q, axis), conjugate);
    for (size_t r = 0; r < 3; ++r) {
      m[4 * c + r] = static_cast<float>(turned[1 + r]);
    }
  }
  return m;
}

Matrix3 UpperLeft(const Matrix& m) {
  return {m[0], m[1], m[2], m[4], m[5], m[6], m[8], m[9], m[10]};
}

Quaternion FromMatrix(const Matrix& m) {
  Quaternion out;
  out.fill(kPoison);
  EXPECT_EQ(matrixToQuaternion(m.data(), out.data()), out.data());
  return out;
}

Quaternion FromMatrix3(const Matrix3& m) {
  Quaternion out;
  out.fill(kPoison);
  EXPECT_EQ(ExtractQuaternion(m.data(), out.data()), out.data());
  return out;
}

class RandomFloats {
 public:
  explicit RandomFloats(uint32_t seed) : random(seed) {}

  // Every multiple of 2^-23 in [-magnitude, magnitude) x magnitude.
  float Within(float magnitude) {
    const int32_t mantissa = static_cast<int32_t>(random() >> 8) - (1 << 23);
    return static_cast<float>(mantissa) / static_cast<float>(1 << 23) * magnitude;
  }

  uint32_t Below(uint32_t limit) { return static_cast<uint32_t>(random() % limit); }

  Matrix MatrixWithin(float magnitude) {
    Matrix m;
    for (float& x : m) {
      x = Within(magnitude);
    }
    return m;
  }

  QuaternionD UnitQuaternion() {
    while (true) {
      QuaternionD q;
      double square = 0;
      for (double& x : q) {
        x = Within(1);
        square += x * x;
      }
      if (square > 0.01 && square <= 1) {
        for (double& x : q) {
          x /= std::sqrt(square);
        }
        return q;
      }
    }
  }

 private:
  std::mt19937 random;
};

// multiplyMatrix4

TEST(MultiplyMatrix4Test, TheIdentityOnEitherSideReturnsTheOtherMatrixBitForBit) {
  RandomFloats random(1);
  for (int i = 0; i < 100; ++i) {
    const Matrix m = random.MatrixWithin(1e6f);
    ExpectSame(Multiply(kIdentity, m), m);
    ExpectSame(Multiply(m, kIdentity), m);
  }
}

TEST(MultiplyMatrix4Test, ElementsAreColumnMajor) {
  const Matrix a = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  const Matrix b = {2, 0, 0, 0, 0, 3, 0, 0, 0, 0, 5, 0, 1, 10, 100, 1000};
  // Columns 0 to 2 are a's, scaled; the last is 1, 10, 100 and 1000 times its columns.
  const Matrix expected = {2, 4, 6, 8, 15, 18, 21, 24, 45, 50, 55, 60, 13951, 15062, 16173, 17284};
  ExpectSame(Multiply(a, b), expected);
}

TEST(MultiplyMatrix4Test, TheProductTransformsAPointByBAndThenByA) {
  // a translates by (10, 20, 30); b turns x to y, y to -x and translates by (1, 2, 3).
  const Matrix a = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 10, 20, 30, 1};
  const Matrix b = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1};
  ExpectSame(Multiply(a, b), Matrix{0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 11, 22, 33, 1});
  ExpectSame(Multiply(b, a), Matrix{0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, -19, 12, 33, 1});
}

TEST(MultiplyMatrix4Test, EachElementIsSummedFromLeftToRight) {
  // 1e8 + 1 - 1e8 + 1 is 1 from left to right, since 1e8 + 1 rounds to 1e8; any pairing gives
  // something else.
  Matrix a = {};
  a[0] = 1e8f;
  a[4] = 1;
  a[8] = -1e8f;
  a[12] = 1;
  Matrix b = {};
  b[0] = b[1] = b[2] = b[3] = 1;
  Matrix expected = {};
  expected[0] = 1;
  ExpectSame(Multiply(a, b), expected);
}

TEST(MultiplyMatrix4Test, ProductsAreRoundedBeforeTheyAreAdded) {
  // (1 + 2^-12)^2 = 1 + 2^-11 + 2^-24 rounds to 1 + 2^-11; a fused operation would leave 2^-24.
  const float x = 1.0f + 0x1p-12f;
  Matrix a = {};
  a[0] = -(1.0f + 0x1p-11f);
  a[4] = x;
  Matrix b = {};
  b[0] = 1;
  b[1] = x;
  EXPECT_EQ(Multiply(a, b)[0], 0.0f);
}

TEST(MultiplyMatrix4Test, FiniteMatricesMatchTheDefinitionBitForBit) {
  const uint32_t seed = 12;
  SCOPED_TRACE(seed);
  RandomFloats random(seed);
  for (int i = 0; i < 2000; ++i) {
    const Matrix a = random.MatrixWithin(i % 2 == 0 ? 10.0f : 1e-3f);
    const Matrix b = random.MatrixWithin(i % 3 == 0 ? 1e5f : 1.0f);
    ExpectSame(Multiply(a, b), ProductByDefinition(a, b));
  }
}

TEST(MultiplyMatrix4Test, InfinitiesNaNsZerosAndDenormalsPropagateAsDefined) {
  const uint32_t seed = 13;
  SCOPED_TRACE(seed);
  RandomFloats random(seed);
  const float special[] = {kInfinity, -kInfinity, kNotANumber, 0.0f, -0.0f, 1e-40f, 3e38f, -3e38f};
  int notANumbers = 0;
  int infinities = 0;
  for (int i = 0; i < 3000; ++i) {
    Matrix a = random.MatrixWithin(2);
    Matrix b = random.MatrixWithin(2);
    for (uint32_t n = random.Below(5); n > 0; --n) {
      a[random.Below(16)] = special[random.Below(8)];
      b[random.Below(16)] = special[random.Below(8)];
    }
    const Matrix expected = ProductByDefinition(a, b);
    ExpectSame(Multiply(a, b), expected);
    for (const float x : expected) {
      notANumbers += std::isnan(x) ? 1 : 0;
      infinities += std::isinf(x) ? 1 : 0;
    }
  }
  EXPECT_GT(notANumbers, 100);
  EXPECT_GT(infinities, 100);
}

TEST(MultiplyMatrix4Test, OperandsNeedNoAlignment) {
  const uint32_t seed = 14;
  RandomFloats random(seed);
  const Matrix a = random.MatrixWithin(3);
  const Matrix b = random.MatrixWithin(3);
  alignas(16) float memory[3 * 17 + 1];
  std::memcpy(memory + 1, a.data(), sizeof(a));
  std::memcpy(memory + 18, b.data(), sizeof(b));
  multiplyMatrix4(memory + 1, memory + 18, memory + 35);
  Matrix out;
  std::memcpy(out.data(), memory + 35, sizeof(out));
  ExpectSame(out, ProductByDefinition(a, b));
}

// invertMatrix4

// Finds the row on which a matrix with the given first column pivots. Row `q` of the probe holds
// 2^30 in its other columns and the other rows small numbers. If q is the pivot, these are lost to
// rounding in its multiples, the rest of the matrix becomes singular and the result is not finite;
// otherwise the result is finite.
int PivotRow(const std::array<float, 4>& column) {
  int pivot = -1;
  for (size_t q = 0; q < 4; ++q) {
    Matrix m = {column[0], column[1], column[2], column[3],  //
                3.37f,     1.13f,     -2.71f,    5.51f,      //
                -1.91f,    4.73f,     2.23f,     0.67f,      //
                2.09f,     -3.19f,    6.83f,     -4.57f};
    for (size_t c = 1; c < 4; ++c) {
      m[4 * c + q] = 0x1p30f;
    }
    if (AnyNonFinite(Invert(m))) {
      EXPECT_EQ(pivot, -1) << "two rows look like the pivot";
      pivot = static_cast<int>(q);
    }
  }
  return pivot;
}

TEST(InvertMatrix4Test, TheLargestElementOfTheFirstColumnIsThePivot) {
  EXPECT_EQ(PivotRow({4, 1, 2, 1}), 0);
  EXPECT_EQ(PivotRow({1, 4, 2, 1}), 1);
  EXPECT_EQ(PivotRow({1, 2, 4, 1}), 2);
  EXPECT_EQ(PivotRow({1, 2, 1, 4}), 3);
  EXPECT_EQ(PivotRow({-4, 1, 2, 1}), 0);
  EXPECT_EQ(PivotRow({1, -4, 2, 3}), 1);
}

TEST(InvertMatrix4Test, ATieGoesToTheLaterRow) {
  EXPECT_EQ(PivotRow({1, 1, 1, 1}), 3);
  EXPECT_EQ(PivotRow({-1, 1, -1, 1}), 3);
  EXPECT_EQ(PivotRow({1, 1, 1, -1}), 3);
  EXPECT_EQ(PivotRow({2, 2, 1, 1}), 1);
  EXPECT_EQ(PivotRow({2, 1, -2, 1}), 2);
  EXPECT_EQ(PivotRow({-2, 2, 2, 1}), 2);
  EXPECT_EQ(PivotRow({2, 1, 1, 2}), 3);
}

TEST(InvertMatrix4Test, EveryPatternOfMagnitudesPivotsOnTheLastOfTheLargest) {
  for (int pattern = 0; pattern < 81 * 16; ++pattern) {
    std::array<float, 4> column;
    int magnitudes = pattern / 16;
    size_t expected = 0;
    for (size_t row = 0; row < 4; ++row) {
      column[row] = static_cast<float>(1 << (magnitudes % 3));
      magnitudes /= 3;
      if (column[row] >= std::fabs(column[expected])) {
        expected = row;
      }
      if ((pattern >> row & 1) != 0) {
        column[row] = -column[row];
      }
    }
    ASSERT_EQ(PivotRow(column), static_cast<int>(expected))
        << column[0] << ", " << column[1] << ", " << column[2] << ", " << column[3];
  }
}

TEST(InvertMatrix4Test, PivotsWhenTheFirstElementIsZero) {
  // Rows 0 and 1 exchanged, then a translation: the inverse exchanges them back.
  const Matrix m = {0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 5, 6, 7, 1};
  const Matrix inverse = Invert(m);
  const Matrix expected = {0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, -6, -5, -7, 1};
  for (size_t i = 0; i < 16; ++i) {
    EXPECT_EQ(inverse[i], expected[i]) << i;
  }
}

TEST(InvertMatrix4Test, ThePivotsReciprocalIsATrueDivision) {
  for (const float pivot : {3.0f, -7.0f, 0.1f, 1e-20f, 12345.678f}) {
    Matrix m = kIdentity;
    m[0] = pivot;
    EXPECT_EQ(Invert(m)[0], 1.0f / pivot) << pivot;
  }
}

// Small integers around a pivot and a remaining determinant that are powers of two: no step rounds,
// so the result is the exact inverse however the cofactors are ordered.
TEST(InvertMatrix4Test, TheResultIsExactIfNoStepRounds) {
  const uint32_t seed = 21;
  SCOPED_TRACE(seed);
  RandomFloats random(seed);
  int tried[4] = {0, 0, 0, 0};
  for (int i = 0; i < 200000; ++i) {
    Matrix m;
    for (float& x : m) {
      x = static_cast<float>(static_cast<int>(random.Below(7)) - 3);
    }
    size_t pivot = 0;
    for (size_t row = 1; row < 4; ++row) {
      if (std::fabs(m[row]) >= std::fabs(m[pivot])) {
        pivot = row;
      }
    }
    if (m[pivot] == 0 || std::fabs(m[pivot]) == 3) {
      continue;
    }
    std::array<double, 16> inverse;
    if (!InverseInDouble(m, &inverse)) {
      continue;
    }
    // Elimination in double may round; scaled by 4096 the exact inverse is an integer here, or the
    // matrix is not one of those wanted.
    bool wanted = true;
    for (double& x : inverse) {
      const double whole = std::round(x * 4096);
      wanted = wanted && std::fabs(x * 4096 - whole) < 1e-6;
      x = whole / 4096;
    }
    if (!wanted) {
      continue;
    }
    ++tried[pivot];
    const Matrix actual = Invert(m);
    for (size_t e = 0; e < 16; ++e) {
      ASSERT_EQ(actual[e], inverse[e]) << "element " << e << ", pivot row " << pivot;
    }
  }
  for (const int count : tried) {
    EXPECT_GT(count, 200);
  }
}

TEST(InvertMatrix4Test, WellConditionedMatricesAgreeWithDoublePrecision) {
  const uint32_t seed = 22;
  SCOPED_TRACE(seed);
  RandomFloats random(seed);
  int tried = 0;
  for (int i = 0; i < 20000; ++i) {
    const Matrix m = random.MatrixWithin(i % 2 == 0 ? 1.0f : 50.0f);
    std::array<double, 16> expected;
    if (!InverseInDouble(m, &expected)) {
      continue;
    }
    const double condition = LargestMagnitude(m) * LargestMagnitude(expected);
    if (condition > 20) {
      continue;
    }
    ++tried;
    // There is one pivot only, so the remaining 3x3 may be worse conditioned than the whole: hence
    // the slack over the rounding unit of 6e-8.
    const Matrix actual = Invert(m);
    ExpectNear(actual, expected, 3e-5 * condition * LargestMagnitude(expected));
  }
  EXPECT_GT(tried, 5000);
}

// The inverse by the steps of the kernel in loops: pivot, Schur complement, cofactors, sums from
// left to right, all in single precision.
Matrix InverseByLoops(const Matrix& m) {
  int p = 0;
  for (int row = 1; row < 4; ++row) {
    p = std::fabs(m[p]) > std::fabs(m[row]) ? p : row;
  }
  const float d = -1.0f / m[p];
  float s[3][3];
  float a[3];
  float e[3];
  const auto rowOf = [p](int i) { return i < p ? i : i + 1; };
  for (int i = 0; i < 3; ++i) {
    e[i] = m[rowOf(i)] * d;
    for (int j = 0; j < 3; ++j) {
      a[j] = m[4 * (j + 1) + p] * d;
      s[i][j] = m[4 * (j + 1) + rowOf(i)] + m[rowOf(i)] * a[j];
    }
  }
  const auto cofactor = [&s](int i, int j) {
    const int i1 = (i + 1) % 3;
    const int i2 = (i + 2) % 3;
    const int j1 = (j + 1) % 3;
    const int j2 = (j + 2) % 3;
    return s[i1][j1] * s[i2][j2] - s[i1][j2] * s[i2][j1];
  };
  const float determinant =
      (s[0][0] * cofactor(0, 0) + s[0][1] * cofactor(0, 1)) + s[0][2] * cofactor(0, 2);
  const float r = 1.0f / determinant;
  Matrix out;
  float corner = 0.0f;
  for (int i = 0; i < 3; ++i) {
    float row = 0.0f;
    float column = 0.0f;
    for (int k = 0; k < 3; ++k) {
      const float byRow = a[k] * (cofactor(i, k) * r);
      const float byColumn = cofactor(k, i) * r * e[k];
      row = k == 0 ? byRow : row + byRow;
      column = k == 0 ? byColumn : column + byColumn;
      out[4 * rowOf(i) + k + 1] = cofactor(i, k) * r;
    }
    out[4 * rowOf(i)] = row;
    out[4 * p + i + 1] = column;
    corner = i == 0 ? row * e[i] : corner + row * e[i];
  }
  out[4 * p] = corner - d;
  return out;
}

TEST(InvertMatrix4Test, EveryStepRoundsInTheOrderOfTheFormulas) {
  const uint32_t seed = 24;
  SCOPED_TRACE(seed);
  RandomFloats random(seed);
  for (int i = 0; i < 20000; ++i) {
    const Matrix m = random.MatrixWithin(i % 2 == 0 ? 1.0f : 50.0f);
    const Matrix expected = InverseByLoops(m);
    const Matrix actual = Invert(m);
    ASSERT_EQ(0, std::memcmp(expected.data(), actual.data(), sizeof(Matrix))) << i;
  }
}

TEST(InvertMatrix4Test, TransformsOfPositionRotationAndScaleInvert) {
  const uint32_t seed = 23;
  SCOPED_TRACE(seed);
  RandomFloats random(seed);
  for (int i = 0; i < 2000; ++i) {
    Matrix m = RotationMatrix(random.UnitQuaternion());
    for (size_t c = 0; c < 3; ++c) {
      const float scale = 0.5f + std::fabs(random.Within(2));
      for (size_t r = 0; r < 3; ++r) {
        m[4 * c + r] *= scale;
      }
      m[12 + c] = random.Within(100);
    }
    std::array<double, 16> expected;
    ASSERT_TRUE(InverseInDouble(m, &expected));
    ExpectNear(Invert(m), expected, 1e-6 * LargestMagnitude(expected) * 100);
  }
}

TEST(InvertMatrix4Test, TheZeroMatrixFillsTheResultWithNonFiniteValues) {
  bool returned = false;
  const Matrix inverse = Invert(Matrix{}, &returned);
  EXPECT_TRUE(returned);
  for (size_t i = 0; i < 16; ++i) {
    EXPECT_FALSE(std::isfinite(inverse[i])) << i;
  }
}

TEST(InvertMatrix4Test, ASingularMatrixIsNotDetected) {
  // Two equal columns after the first.
  const Matrix m = {1, 0, 0, 0, 0, 1, 2, 3, 0, 1, 2, 3, 0, 0, 0, 1};
  EXPECT_TRUE(AnyNonFinite(Invert(m)));
  EXPECT_TRUE(AllFinite(Invert(kIdentity)));
}

TEST(InvertMatrix4Test, TheThirdArgumentIsIgnored) {
  RandomFloats random(24);
  const Matrix m = random.MatrixWithin(3);
  Matrix out;
  out.fill(kPoison);
  EXPECT_TRUE(invertMatrix4(m.data(), out.data(), 0xFFFFFFFFu));
  ExpectSame(out, Invert(m));
}

// matrixToQuaternion, ExtractQuaternion

// The rows of the table that the kernels follow, for a 4x4 matrix: w, x, y, z and the branch.
Quaternion QuaternionByTable(const Matrix& m, int* branch) {
  const auto root = [](float x) { return static_cast<float>(std::sqrt(static_cast<double>(x))); };
  const float t = m[0] + m[5] + m[10];
  if (t > 0) {
    *branch = 1;
    const float s = root(t + 1);
    const float i = 1 / (2 * s);
    return {0.25f * (2 * s), (m[6] - m[9]) * i, (m[8] - m[2]) * i, (m[1] - m[4]) * i};
  }
  if (m[0] > m[5] && m[0] > m[10]) {
    *branch = 2;
    const float s = root(m[0] - m[5] - m[10] + 1);
    const float i = 1 / (2 * s);
    return {(m[6] - m[9]) * i, 0.25f * (2 * s), (m[4] + m[1]) * i, (m[8] + m[2]) * i};
  }
  if (m[5] > m[10]) {
    *branch = 3;
    const float s = root(m[5] - m[0] - m[10] + 1);
    const float i = 1 / (2 * s);
    return {(m[8] - m[2]) * i, (m[4] + m[1]) * i, 0.25f * (2 * s), (m[6] + m[9]) * i};
  }
  *branch = 4;
  const float s = root(m[10] - m[0] - m[5] + 1);
  const float i = 1 / (2 * s);
  return {(m[1] - m[4]) * i, (m[8] + m[2]) * i, (m[6] + m[9]) * i, 0.25f * (2 * s)};
}

TEST(MatrixToQuaternionTest, TheIdentityMatrixGivesTheIdentityQuaternion) {
  ExpectSame(FromMatrix(kIdentity), Quaternion{1, 0, 0, 0});
  ExpectSame(FromMatrix3(UpperLeft(kIdentity)), Quaternion{1, 0, 0, 0});
}

TEST(MatrixToQuaternionTest, HalfTurnsAboutTheAxesTakeTheLastThreeBranches) {
  Matrix m = {};
  m[15] = 1;
  m[0] = 1;
  m[5] = m[10] = -1;
  ExpectSame(FromMatrix(m), Quaternion{0, 1, 0, 0});
  m[5] = 1;
  m[0] = m[10] = -1;
  ExpectSame(FromMatrix(m), Quaternion{0, 0, 1, 0});
  m[10] = 1;
  m[0] = m[5] = -1;
  ExpectSame(FromMatrix(m), Quaternion{0, 0, 0, 1});
}

TEST(MatrixToQuaternionTest, QuarterTurnsAboutTheAxesFollowTheRightHandRule) {
  // About x: y to z, z to -y. About y: z to x, x to -z. About z: x to y, y to -x.
  const double h = std::sqrt(0.5);
  ExpectNear(FromMatrix({1, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1}), {h, h, 0, 0}, 1e-7);
  ExpectNear(FromMatrix({0, 0, -1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 1}), {h, 0, h, 0}, 1e-7);
  ExpectNear(FromMatrix({0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}), {h, 0, 0, h}, 1e-7);
}

TEST(MatrixToQuaternionTest, TheComparisonsOfTheBranchesAreStrict) {
  int branch = 0;
  // A trace of exactly zero is not above it; equal diagonal elements select the next branch.
  Matrix m = {0.0f, 0.7f, 0.3f, 0, 0.2f, 0.0f, 0.9f, 0, 0.4f, 0.1f, 0.0f, 0, 0, 0, 0, 1};
  ExpectSame(FromMatrix(m), QuaternionByTable(m, &branch));
  EXPECT_EQ(branch, 4);
  m[0] = m[5] = 0.25f;
  m[10] = -0.5f;
  ExpectSame(FromMatrix(m), QuaternionByTable(m, &branch));
  EXPECT_EQ(branch, 3);
  m[0] = m[10] = 0.25f;
  m[5] = -0.5f;
  ExpectSame(FromMatrix(m), QuaternionByTable(m, &branch));
  EXPECT_EQ(branch, 4);
}

TEST(MatrixToQuaternionTest, AllBranchesGiveTheBitsOfTheTable) {
  const uint32_t seed = 31;
  SCOPED_TRACE(seed);
  RandomFloats random(seed);
  int taken[5] = {0, 0, 0, 0, 0};
  for (int i = 0; i < 20000; ++i) {
    // Rotations, and sometimes arbitrary matrices: the kernel does not check.
    const Matrix m = i % 4 == 0 ? random.MatrixWithin(1) : RotationMatrix(random.UnitQuaternion());
    int branch = 0;
    const Quaternion expected = QuaternionByTable(m, &branch);
    ++taken[branch];
    ExpectSame(FromMatrix(m), expected);
    ExpectSame(FromMatrix3(UpperLeft(m)), expected);
  }
  for (int branch = 1; branch <= 4; ++branch) {
    EXPECT_GT(taken[branch], 500) << branch;
  }
}

TEST(MatrixToQuaternionTest, TheRotationThatMadeTheMatrixComesBackUpToSign) {
  const uint32_t seed = 32;
  SCOPED_TRACE(seed);
  RandomFloats random(seed);
  for (int i = 0; i < 5000; ++i) {
    QuaternionD q = random.UnitQuaternion();
    const Quaternion actual = FromMatrix(RotationMatrix(q));
    const double dot = q[0] * actual[0] + q[1] * actual[1] + q[2] * actual[2] + q[3] * actual[3];
    for (double& x : q) {
      x = dot < 0 ? -x : x;
    }
    ExpectNear(actual, q, 1e-6);
  }
}

TEST(MatrixToQuaternionTest, OnlyTheRotationPartIsRead) {
  RandomFloats random(33);
  Matrix m = RotationMatrix(random.UnitQuaternion());
  const Quaternion expected = FromMatrix(m);
  m[3] = m[7] = m[11] = m[12] = m[13] = m[14] = m[15] = kNotANumber;
  ExpectSame(FromMatrix(m), expected);
}

TEST(MatrixToQuaternionTest, ScaleIsNotRemoved) {
  Matrix m = kIdentity;
  m[0] = m[5] = m[10] = 5;
  ExpectSame(FromMatrix(m), Quaternion{2, 0, 0, 0});  // the square root of 16, halved
}

// eulerToQuaternion

Quaternion FromEuler(float x, float y, float z) {
  Quaternion out;
  out.fill(kPoison);
  EXPECT_EQ(eulerToQuaternion(x, y, z, out.data()), out.data());
  return out;
}

TEST(EulerToQuaternionTest, ZeroAnglesGiveTheIdentity) {
  ExpectSame(FromEuler(0, 0, 0), Quaternion{1, 0, 0, 0});
}

TEST(EulerToQuaternionTest, TheResultIsInTheOrderWZYX) {
  const float angle = 1.0f;
  const double s = std::sin(0.5);
  const double c = std::cos(0.5);
  ExpectNear(FromEuler(angle, 0, 0), {c, 0, 0, s}, 1e-7);
  ExpectNear(FromEuler(0, angle, 0), {c, 0, s, 0}, 1e-7);
  ExpectNear(FromEuler(0, 0, angle), {c, s, 0, 0}, 1e-7);
}

TEST(EulerToQuaternionTest, TheRotationIsYTimesXTimesZ) {
  const uint32_t seed = 41;
  SCOPED_TRACE(seed);
  RandomFloats random(seed);
  for (int i = 0; i < 5000; ++i) {
    const float x = random.Within(10);
    const float y = random.Within(10);
    const float z = random.Within(10);
    const QuaternionD q = Times(Times(AboutAxis(1, y), AboutAxis(0, x)), AboutAxis(2, z));
    ExpectNear(FromEuler(x, y, z), {q[0], q[3], q[2], q[1]}, 3e-7);
  }
}

TEST(EulerToQuaternionTest, EveryStepRoundsInTheOrderOfTheFormulas) {
  const uint32_t seed = 42;
  SCOPED_TRACE(seed);
  RandomFloats random(seed);
  const float quarters[] = {0.0f, -0.0f, 1.57079637f, -3.14159274f};
  for (int i = 0; i < 10000; ++i) {
    // Angles of any size: sines of large ones take another path. Zeros and quarter turns, too.
    const float most = i % 2 == 0 ? 7.0f : 1e5f;
    const float x = i % 11 == 0 ? quarters[i % 4] : random.Within(most);
    const float y = i % 13 == 0 ? quarters[i % 3] : random.Within(most);
    const float z = i % 17 == 0 ? quarters[i % 4] : random.Within(most);
    const float sx = static_cast<float>(std::sin(static_cast<double>(x / 2)));
    const float cx = static_cast<float>(std::cos(static_cast<double>(x / 2)));
    const float sy = static_cast<float>(std::sin(static_cast<double>(y / 2)));
    const float cy = static_cast<float>(std::cos(static_cast<double>(y / 2)));
    const float sz = static_cast<float>(std::sin(static_cast<double>(z / 2)));
    const float cz = static_cast<float>(std::cos(static_cast<double>(z / 2)));
    ExpectSame(FromEuler(x, y, z),
               Quaternion{cx * cy * cz + sx * sy * sz, cx * cy * sz - sx * sy * cz,
                          cx * sy * cz - sx * cy * sz, sx * cy * cz + cx * sy * sz});
  }
}

TEST(EulerToQuaternionTest, NaNsPropagate) {
  for (const float bad : {kNotANumber, kInfinity, -kInfinity}) {
    for (const float x : FromEuler(0.5f, bad, 0.25f)) {
      EXPECT_TRUE(std::isnan(x));
    }
  }
}

TEST(EulerToQuaternionTest, ARecordIsComputedOnceFromItsReversedAngles) {
  EulerRotation rotation;
  rotation.quaternionValid = false;
  rotation.euler[0] = 0.75f;   // z
  rotation.euler[1] = -1.25f;  // y
  rotation.euler[2] = 2.5f;    // x
  for (float& x : rotation.quaternion) {
    x = kPoison;
  }

  const float* result = eulerToQuaternion(&rotation);
  EXPECT_EQ(result, rotation.quaternion);
  EXPECT_TRUE(rotation.quaternionValid);
  Quaternion first;
  std::copy_n(result, 4, first.begin());
  ExpectSame(first, FromEuler(2.5f, -1.25f, 0.75f));

  // From now on the stored quaternion is returned, whatever the angles are.
  rotation.euler[1] = 0;
  rotation.quaternion[3] = 77;
  EXPECT_EQ(eulerToQuaternion(&rotation), rotation.quaternion);
  EXPECT_EQ(rotation.quaternion[3], 77.0f);
  EXPECT_EQ(rotation.quaternion[0], first[0]);

  rotation.quaternionValid = false;
  eulerToQuaternion(&rotation);
  Quaternion second;
  std::copy_n(rotation.quaternion, 4, second.begin());
  ExpectSame(second, FromEuler(2.5f, 0, 0.75f));
}

TEST(EulerToQuaternionTest, AValidRecordKeepsItsQuaternionAndItsAngles) {
  EulerRotation rotation;
  rotation.quaternionValid = true;
  const float stored[] = {0.1f, 0.2f, 0.3f, 0.4f};
  std::copy_n(stored, 4, rotation.quaternion);
  rotation.euler[0] = 1;
  EXPECT_EQ(eulerToQuaternion(&rotation), rotation.quaternion);
  EXPECT_EQ(std::memcmp(rotation.quaternion, stored, sizeof(stored)), 0);
  EXPECT_EQ(rotation.euler[0], 1.0f);
}

}  // namespace
}  // namespace nq::engine
