// Writes animated transforms into entities, one after the other.
#ifndef NQ_ENGINE_ANIMATION_ENTITYPOSEWRITER_H_
#define NQ_ENGINE_ANIMATION_ENTITYPOSEWRITER_H_

#include <cstddef>
#include <cstdint>

#include "Common/Def/Platform.h"
#include "Common/Def/Vectors.h"
#include "Engine/Entity/Entity3D.h"
#include "Engine/Entity/EntityRecord.h"
#include "Engine/Entity/LocalMatrix3D.h"
#include "Engine/Entity/LocalMatrixStore.h"
#include "Engine/Entity/TransformTree.h"

namespace nq::engine {

// Writes to the entities of a character. Consecutive entities are mostly of one batch, so the batch
// is looked up only when it changes. What is written to a record goes into the local matrix
// straight from registers, without a round trip through memory.
//
// Thread safety: one writer per task, as long as the tasks' entities are different.
class EntityPoseWriter {
 public:
  explicit EntityPoseWriter(TransformTree* tree) : tree(*tree), marker(tree) {}

  // Selects the entity. False if `handle` names none; then nothing else may be called.
  bool Seek(uint32_t handle) {
    if (HandleSlot(handle) != slot) {
      slot = HandleSlot(handle);
      batch = tree.BatchOrEmpty(handle);
    }
    index = HandleElement(handle);
    return index < batch.count;
  }

  // Prefetches a 3D entity that is written later, if it is of the same batch. Only a hint: the
  // handle may be past the batch's end, so addresses are computed as integers, not as pointers.
  void Prefetch(uint32_t handle) const {
    if (HandleSlot(handle) == slot) {
      const uintptr_t ahead = HandleElement(handle);
      const uintptr_t record =
          reinterpret_cast<uintptr_t>(batch.sharedRecords) + ahead * sizeof(Entity3DRecord);
      const uintptr_t matrix =
          reinterpret_cast<uintptr_t>(batch.localMatrices) + ahead * sizeof(TransformMatrix);
      NQ_PREFETCH_FOR_WRITE(reinterpret_cast<const void*>(record));
      NQ_PREFETCH_FOR_WRITE(
          reinterpret_cast<const void*>(record + offsetof(Entity3DRecord, worldMatrix) - 1));
      NQ_PREFETCH_FOR_WRITE(reinterpret_cast<const void*>(matrix));
    }
  }

  bool isThreeD() const { return batch.isThreeD; }
  uint8_t* Record() const { return batch.SharedRecord(index); }
  float* LocalMatrix() const { return batch.localMatrices[index].m; }
  Entity* Target() const { return batch.EntityAt(index); }

  // The record of a 3D entity.
  Entity3DRecord* Record3D() const {
    return reinterpret_cast<Entity3DRecord*>(batch.sharedRecords +
                                             size_t{index} * sizeof(Entity3DRecord));
  }

  // Position and scale of a 3D entity, after the lanes in `mask` are replaced. Only two lanes of
  // the second row are used.
  PositionScale Replace(__m128 positionScaleX, __m128 mask, __m128 scaleYZ, __m128 maskYZ) const {
    Entity3DRecord* record = Record3D();
    PositionScale values(*record);
    if (_mm_movemask_ps(mask) != 0) {
      values.positionScaleX = Select(mask, positionScaleX, values.positionScaleX);
      _mm_storeu_ps(PositionScale::First(record), values.positionScaleX);
    }
    if ((_mm_movemask_ps(maskYZ) & 3) != 0) {
      values.scaleYZ = Select(maskYZ, scaleYZ, values.scaleYZ);
      _mm_storel_pi(reinterpret_cast<__m64*>(&record->scale[1]), values.scaleYZ);
    }
    return values;
  }

  // Sets the rotation of a 3D entity to `xyzw`, and builds the local matrix. `values` are in the
  // record already.
  void WriteQuaternion(__m128 xyzw, const PositionScale& values) const {
    Entity3DRecord* record = Record3D();
    record->rotationMode = 1;
    _mm_storeu_ps(record->rotation, xyzw);
    const LocalColumns m(QuaternionColumns(xyzw), values);
    StoreOwnLocalMatrix(LocalMatrix(), m.c0, m.c1, m.c2, m.c3);
  }

  // Selects the first of `count` entities with consecutive handles, from `handle` up. False unless
  // all of them are 3D entities of one batch; then nothing else may be called before another Seek.
  bool SeekRun3D(uint32_t handle, uint32_t count) {
    return Seek(handle) && batch.isThreeD && batch.count - index >= count;
  }

  // Selects the next entity of a run.
  void Next() { ++index; }

  // Marks the entity as dirty, as TransformTree does.
  void Mark() const { marker.Mark(batch, slot, index); }

 private:
  const TransformTree& tree;
  const TransformTree::Marker marker;
  TransformBatch batch;
  uint32_t slot = ~0u;  // of `batch`; no handle has the initial one
  uint32_t index = 0;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_ENTITYPOSEWRITER_H_
