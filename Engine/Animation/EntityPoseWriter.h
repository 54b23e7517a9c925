// Writes animated transforms into entities, one after the other.
#ifndef NQ_ENGINE_ANIMATION_ENTITYPOSEWRITER_H_
#define NQ_ENGINE_ANIMATION_ENTITYPOSEWRITER_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "Common/Def/Platform.h"
#include "Common/Def/Vectors.h"
#include "Engine/Animation/BoneRun.h"
#include "Engine/Entity/Entity3D.h"
#include "Engine/Entity/EntityRecord.h"
#include "Engine/Entity/LocalMatrix3D.h"
#include "Engine/Entity/LocalMatrixStore.h"
#include "Engine/Entity/TransformTree.h"

namespace nq::engine {

// Position and scale in a 3D entity's record, after the lanes in `mask` are replaced. Only two
// lanes of the second row are used.
inline PositionScale ReplaceLanes(Entity3DRecord* record, __m128 positionScaleX, __m128 mask,
                                  __m128 scaleYZ, __m128 maskYZ) {
  PositionScale values(*record);
  if (SignBits(mask) != 0) {
    values.positionScaleX = Select(mask, positionScaleX, values.positionScaleX);
    _mm_storeu_ps(PositionScale::First(record), values.positionScaleX);
  }
  if ((SignBits(maskYZ) & 3) != 0) {
    values.scaleYZ = Select(maskYZ, scaleYZ, values.scaleYZ);
    _mm_storel_pi(reinterpret_cast<__m64*>(&record->scale[1]), values.scaleYZ);
  }
  return values;
}

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

  // ReplaceLanes for the selected entity.
  PositionScale Replace(__m128 positionScaleX, __m128 mask, __m128 scaleYZ, __m128 maskYZ) const {
    return ReplaceLanes(Record3D(), positionScaleX, mask, scaleYZ, maskYZ);
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

  // Selects the first of some 3D entities. Returns how many of the `count` handles, from the first
  // on, ascend one by one and name 3D entities of one batch; 0 if the first doesn't, and then
  // nothing else may be called before another Seek.
  uint32_t SeekRun3D(const uint32_t* handles, uint32_t count) {
    if (count == 0 || !Seek(handles[0]) || !batch.isThreeD) {
      return 0;
    }
    return ConsecutiveCount(handles, std::min(count, batch.count - index));
  }

  // The selected 3D entity and those after it, `count` in all, as SeekRun3D found.
  BoneRun Run(uint32_t count) const {
    return BoneRun{Record3D(), batch.localMatrices + index, count};
  }

  // Marks the same.
  void MarkRun(uint32_t count) const { marker.MarkRun(batch, slot, index, count); }

  // Marks the entity as dirty, as TransformTree does.
  void Mark() const { marker.Mark(batch, slot, index); }

 private:
  // How many of `count` numbers, at least 1, each follow the one before.
  static uint32_t ConsecutiveCount(const uint32_t* numbers, uint32_t count) {
    const __m128i first = _mm_set1_epi32(static_cast<int32_t>(numbers[0]));
    __m128i expected = _mm_add_epi32(first, _mm_setr_epi32(0, 1, 2, 3));
    uint32_t i = 0;
    for (; i + 4 <= count; i += 4) {
      const __m128i four = _mm_loadu_si128(reinterpret_cast<const __m128i*>(numbers + i));
      if (SignBits(_mm_castsi128_ps(_mm_cmpeq_epi32(four, expected))) != 0xF) {
        break;
      }
      expected = _mm_add_epi32(expected, _mm_set1_epi32(4));
    }
    while (i < count && numbers[i] == numbers[0] + i) {
      ++i;
    }
    return i;
  }

  const TransformTree& tree;
  const TransformTree::Marker marker;
  TransformBatch batch;
  uint32_t slot = ~0u;  // of `batch`; no handle has the initial one
  uint32_t index = 0;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_ENTITYPOSEWRITER_H_
