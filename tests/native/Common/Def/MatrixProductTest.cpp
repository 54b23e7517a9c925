// Both products against sums written out, of matrices at any address that may overlap.
#include "Common/Def/MatrixProduct.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <set>
#include <vector>

namespace nq::engine {
namespace {

constexpr size_t kMatrixBytes = 64;

struct Product {
  const char* name;
  void (*multiply)(const uint8_t* left, const uint8_t* right, uint8_t* out);
};

void PrintTo(const Product& product, std::ostream* out) {
  *out << product.name;
}

// The products that the interpreter may choose on this CPU: one without AVX never runs the second.
std::vector<Product> ProductsInUse() {
  std::vector<Product> products = {Product{"ByColumns", MultiplyByColumns}};
  if (HasWideVectors()) {
    products.push_back(Product{"ByTwoColumns", MultiplyByTwoColumns});
  }
  return products;
}

class MatrixProductTest : public testing::TestWithParam<Product> {
 protected:
  static float At(const std::vector<uint8_t>& bytes, size_t at, int index) {
    float value;
    std::memcpy(&value, bytes.data() + at + sizeof(float) * static_cast<size_t>(index),
                sizeof(value));
    return value;
  }

  // Multiplies within one memory of random floats and compares every byte of it.
  static void Compare(size_t left, size_t right, size_t out, uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> values(-3.0f, 3.0f);
    std::vector<uint8_t> bytes(512);
    for (size_t i = 0; i + sizeof(float) <= bytes.size(); i += sizeof(float)) {
      const float value = values(random);
      std::memcpy(&bytes[i], &value, sizeof(value));
    }
    // Shifted to where the matrices begin, so that they hold numbers at odd addresses, too.
    std::vector<uint8_t> shifted(bytes.size() + 8);
    std::memcpy(shifted.data() + left % 4, bytes.data(), bytes.size());
    std::vector<uint8_t> expected = shifted;
    for (int column = 0; column < 4; ++column) {
      for (int row = 0; row < 4; ++row) {
        volatile float sum = At(shifted, left, row) * At(shifted, right, 4 * column);
        for (int k = 1; k < 4; ++k) {
          const volatile float term =
              At(shifted, left, 4 * k + row) * At(shifted, right, 4 * column + k);
          sum = sum + term;
        }
        const float element = sum;
        std::memcpy(&expected[out + 4 * static_cast<size_t>(4 * column + row)], &element,
                    sizeof(element));
      }
    }
    GetParam().multiply(shifted.data() + left, shifted.data() + right, shifted.data() + out);
    EXPECT_EQ(shifted, expected) << "seed " << seed;
  }
};

TEST_P(MatrixProductTest, SumsEachElementFromLeftToRight) {
  for (uint32_t seed = 1; seed <= 500; ++seed) {
    Compare(0, kMatrixBytes, 2 * kMatrixBytes, seed);
  }
}

TEST_P(MatrixProductTest, AcceptsUnalignedMatrices) {
  for (size_t shift = 1; shift < 4; ++shift) {
    Compare(shift, kMatrixBytes + 20 + shift, 256 + shift, static_cast<uint32_t>(shift));
  }
}

TEST_P(MatrixProductTest, LoadsAllBeforeItStores) {
  Compare(128, 256, 128, 1);
  Compare(128, 256, 256, 2);
  Compare(128, 128, 128, 3);
  Compare(128, 256, 144, 4);
  Compare(128, 256, 112, 5);
  Compare(128, 160, 148, 6);
}

TEST_P(MatrixProductTest, PropagatesNaNsAndInfinities) {
  float left[16] = {};
  float right[16] = {};
  left[5] = std::nanf("");
  right[1] = 1.0f;
  right[4] = INFINITY;
  float out[16];
  GetParam().multiply(reinterpret_cast<const uint8_t*>(left),
                      reinterpret_cast<const uint8_t*>(right), reinterpret_cast<uint8_t*>(out));
  // Row 1 includes element (1, 1), and column 1 infinity times 0; no other does.
  for (int i = 0; i < 16; ++i) {
    EXPECT_EQ(std::isnan(out[i]), i % 4 == 1 || i / 4 == 1) << i;
  }
}

// Elements with a single NaN operand keep its payload. If different NaNs meet, the resulting
// payload depends on the instructions, and so on the product.
TEST_P(MatrixProductTest, KeepsThePayloadOfANaNUnlessDifferentOnesMeet) {
  constexpr uint32_t kQuietNaN = 0x7FC00000;
  std::mt19937 random(1);
  int alone = 0;
  int met = 0;
  for (int round = 0; round < 500; ++round) {
    uint32_t operands[2][16];
    for (uint32_t(&matrix)[16] : operands) {
      for (uint32_t& element : matrix) {
        const float number = static_cast<float>(random() % 100);
        std::memcpy(&element, &number, sizeof(element));
        if (random() % 12 == 0) {
          element = kQuietNaN | (random() % 2) << 31 | (1 + random() % 1000);
        }
      }
    }
    uint32_t out[16];
    GetParam().multiply(reinterpret_cast<const uint8_t*>(operands[0]),
                        reinterpret_cast<const uint8_t*>(operands[1]),
                        reinterpret_cast<uint8_t*>(out));
    for (uint32_t i = 0; i < 16; ++i) {
      std::set<uint32_t> nans;
      for (uint32_t k = 0; k < 4; ++k) {
        for (const uint32_t factor : {operands[0][4 * k + i % 4], operands[1][i / 4 * 4 + k]}) {
          if ((factor & kQuietNaN) == kQuietNaN) {
            nans.insert(factor);
          }
        }
      }
      EXPECT_EQ((out[i] & kQuietNaN) == kQuietNaN, !nans.empty()) << round << ' ' << i;
      EXPECT_TRUE(nans.empty() || nans.count(out[i]) == 1) << round << ' ' << i;
      alone += nans.size() == 1 ? 1 : 0;
      met += nans.size() > 1 ? 1 : 0;
    }
  }
  EXPECT_GT(alone, 1000);
  EXPECT_GT(met, 500);
}

INSTANTIATE_TEST_SUITE_P(, MatrixProductTest, testing::ValuesIn(ProductsInUse()),
                         [](const testing::TestParamInfo<Product>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace
}  // namespace nq::engine
