// Inverse bind matrices from bytes.
#include "Engine/Animation/SkeletonBonesInverseModel.h"

#include <gtest/gtest.h>

#include <cstring>

#include "Common/Def/Log.h"
#include "tests/native/Engine/Animation/AnimationScene.h"

namespace nq::engine {
namespace {

std::vector<uint8_t> Numbered(size_t size) {
  std::vector<uint8_t> bytes(size);
  for (size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<uint8_t>(i * 7 + i / 64);
  }
  return bytes;
}

TEST(SkeletonBonesInverseModelTest, SixtyFourBytesAreAMatrix) {
  for (const uint32_t count : {1u, 2u, 300u}) {
    std::vector<uint8_t> bytes = Numbered(64 * count);
    const std::vector<uint8_t> before = bytes;
    const SkeletonBonesInverseModel model(bytes.data(), 64 * count);
    std::fill(bytes.begin(), bytes.end(), static_cast<uint8_t>(0));
    ASSERT_EQ(count, model.matrices.size());
    EXPECT_EQ(0, std::memcmp(before.data(), model.matrices.data(), before.size()))
        << "a copy, in order";
  }
}

TEST(SkeletonBonesInverseModelTest, AnEmptyModelHasNoMatricesAndReportsNothing) {
  OutputRecorder output;
  const SkeletonBonesInverseModel model(nullptr, 0);
  EXPECT_EQ(0u, model.matrices.size());
  const uint8_t byte = 0;
  EXPECT_EQ(0u, SkeletonBonesInverseModel(&byte, 0).matrices.size());
  EXPECT_EQ("", output.Text());
}

TEST(SkeletonBonesInverseModelDeathTest, APartOfAMatrixIsFatalAtOnce) {
  const std::vector<uint8_t> bytes = Numbered(256);
  for (const uint32_t size : {1u, 16u, 63u, 65u, 100u, 127u, 129u}) {
    EXPECT_TRUE(EndsWith("[NQ_FATAL][Engine]: bone inverse data error\n",
                         "..\\..\\Engine\\Animation\\SkeletonBonesInverseModel", 14,
                         [&bytes, size] { SkeletonBonesInverseModel(bytes.data(), size); }))
        << size;
  }
}

}  // namespace
}  // namespace nq::engine
