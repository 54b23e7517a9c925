// Construction of bones models.
#include "Engine/Animation/SkeletonBonesInverseModel.h"

#include <cstring>

#include "Common/Def/Assert.h"
#include "Common/Def/Log.h"

namespace nq::engine {

SkeletonBonesInverseModel::SkeletonBonesInverseModel(const uint8_t* data, uint32_t size) {
  if (size % sizeof(Matrix) != 0) {
    NQ_LOG("[NQ_FATAL][Engine]: ", "bone inverse data error\n");
    FailAssertion("0", "..\\..\\Engine\\Animation\\SkeletonBonesInverseModel", 14);
  }
  if (size != 0) {
    matrices.resize(size / sizeof(Matrix));
    std::memcpy(matrices.data(), data, size);
  }
}

}  // namespace nq::engine
