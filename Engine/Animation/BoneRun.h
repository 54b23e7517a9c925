// Rotations and local matrices of consecutive 3D entities, several side by side (SIMD).
#ifndef NQ_ENGINE_ANIMATION_BONERUN_H_
#define NQ_ENGINE_ANIMATION_BONERUN_H_

#include <cstddef>
#include <cstdint>

#include "Engine/Entity/EntityRecord.h"
#include "Engine/Entity/TransformTree.h"

namespace nq::engine {

// 3D entities of one batch with consecutive handles: mostly all bones of a character.
struct BoneRun {
  Entity3DRecord* records;
  TransformMatrix* locals;
  uint32_t count;
};

// Sets the rotations of a run to quaternions x, y, z, w, of which the first is at `xyzw` and each
// next one `stride` floats further, and builds the local matrices, with the bits that
// EntityPoseWriter::WriteQuaternion gives one by one. Positions and scales are in the records
// already. No other thread may build these matrices at the same time. Marks nothing.
void WriteRotations(const BoneRun& run, const float* xyzw, size_t stride);

// The same by SSE, four entities at a time, and by AVX, eight at a time, only if HasWideVectors.
// For tests; WriteRotations selects one.
void WriteRotationsByFour(const BoneRun& run, const float* xyzw, size_t stride);
void WriteRotationsByEight(const BoneRun& run, const float* xyzw, size_t stride);

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_BONERUN_H_
