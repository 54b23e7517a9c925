// Computation of queued world matrices.
#include "Engine/Entity/WorldMatrixQueue.h"

#include <cstring>

#include "Common/Def/MathKernels.h"
#include "Common/Def/MatrixProduct.h"
#include "Common/Def/Vectors.h"
#include "Engine/Entity/Entity.h"
#include "Engine/Entity/Entity2D.h"
#include "Engine/Entity/Entity3D.h"

namespace nq::engine {

namespace {

const uint8_t* Bytes(const float* matrix) {
  return reinterpret_cast<const uint8_t*>(matrix);
}

}  // namespace

void WorldMatrixQueue::Flush() {
  if (HasWideVectors()) {
    ComputeByTwoColumns();
  } else {
    Compute();
  }
  count = 0;
}

inline void WorldMatrixQueue::Finish(const Entry& entry) {
  const TransformBatch& batch = *entry.batch;
  ++batch.worldVersions[entry.index];
  if (entry.hasBoundEntities) {
    batch.EntityAt(entry.index)->UpdateBoundEntities();
  }
}

void WorldMatrixQueue::Compute() {
  for (uint32_t i = 0; i < count; ++i) {
    const Entry& entry = entries[i];
    const TransformBatch& batch = *entry.batch;
    const float* local = batch.localMatrices[entry.index].m;
    float* world = batch.worldMatrices[entry.index].m;
    uint8_t* record = batch.SharedRecord(entry.index);
    if (entry.parentWorld != nullptr) {
      multiplyMatrix4(entry.parentWorld, local, world);
    } else {
      std::memcpy(world, local, sizeof(TransformMatrix));
    }
    if (batch.isThreeD) {
      Entity3D::PublishWorldMatrix(world, record);
    } else {
      Entity2D::PublishWorldMatrix(world, record);
    }
    Finish(entry);
  }
}

// The product stays in registers between the two places where it is stored.
NQ_TARGET_AVX void WorldMatrixQueue::ComputeByTwoColumns() {
  for (uint32_t i = 0; i < count; ++i) {
    const Entry& entry = entries[i];
    const TransformBatch& batch = *entry.batch;
    const float* local = batch.localMatrices[entry.index].m;
    float* world = batch.worldMatrices[entry.index].m;
    uint8_t* record = batch.SharedRecord(entry.index);
    const TwoByTwoColumns matrix =
        entry.parentWorld != nullptr
            ? ProductByTwoColumns(Bytes(entry.parentWorld), Bytes(local))
            : TwoByTwoColumns{_mm256_load_ps(local), _mm256_load_ps(local + 8)};
    _mm256_store_ps(world, matrix.first);
    _mm256_store_ps(world + 8, matrix.second);
    if (batch.isThreeD) {
      float* published = reinterpret_cast<Entity3DRecord*>(record)->worldMatrix;
      _mm256_storeu_ps(published, matrix.first);
      _mm256_storeu_ps(published + 8, matrix.second);
    } else {
      Entity2D::PublishWorldMatrix(world, record);
    }
    Finish(entry);
  }
}

}  // namespace nq::engine
