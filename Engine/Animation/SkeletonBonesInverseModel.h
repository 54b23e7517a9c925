// The inverse bind matrices of a skeleton.
#ifndef NQ_ENGINE_ANIMATION_SKELETONBONESINVERSEMODEL_H_
#define NQ_ENGINE_ANIMATION_SKELETONBONESINVERSEMODEL_H_

#include <cstdint>
#include <vector>

namespace nq::engine {

// Immutable; any number of skinning components may share one.
class SkeletonBonesInverseModel {
 public:
  struct Matrix {
    float m[16];  // column-major
  };
  static_assert(sizeof(Matrix) == 64, "a matrix of the data");

  // Copies `size` bytes of matrices. A size that is not a multiple of 64 prints
  // "[NQ_FATAL][Engine]: " and "bone inverse data error\n" and ends the process; a size of 0 means
  // no matrices.
  SkeletonBonesInverseModel(const uint8_t* data, uint32_t size);

  std::vector<Matrix> matrices;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_SKELETONBONESINVERSEMODEL_H_
