// The shared blocks of animators and skinning components: the bytes that script and native code
// both see. Little-endian, no padding.
#ifndef NQ_ENGINE_ANIMATION_ANIMATIONRECORD_H_
#define NQ_ENGINE_ANIMATION_ANIMATIONRECORD_H_

#include <cstddef>
#include <cstdint>

namespace nq::engine {

// What an animator plays of one clip; script writes it ahead of each update.
struct AnimatorClipRecord {
  uint32_t clipHandle;
  float time;    // frames; wraps at the clip's length
  float weight;  // the clip takes part if 0 < weight <= 1
};
static_assert(sizeof(AnimatorClipRecord) == 12, "animator clip record");

// An animator's block: the clip records, then the target table, a handle for each entity. The table
// is that of all clips end to end, in the order of the records, each as long as its clip has
// tracks.
constexpr size_t AnimatorTargetsOffset(uint32_t clipCount) {
  return sizeof(AnimatorClipRecord) * clipCount;
}
constexpr uint32_t AnimatorBlockBytes(uint32_t clipCount, uint32_t entityCount) {
  return clipCount * static_cast<uint32_t>(sizeof(AnimatorClipRecord)) + entityCount * 4;
}

// A skinning block for a number of bones: the handle of the bones model, an index into its matrices
// for each bone, an entity handle for each bone, and the results, which native code writes.
constexpr size_t kSkinningIndicesOffset = 4;
constexpr size_t SkinningEntitiesOffset(uint32_t count) {
  return 4 + size_t{4} * count;
}
constexpr size_t SkinningResultsOffset(uint32_t count) {
  return 4 + size_t{8} * count;
}
constexpr uint32_t SkinningBlockBytes(uint32_t count) {
  return count * 72 + 4;
}

// Bytes from one result to the next: a 4x4 matrix for a 3D bone, a 3x3 one for a 2D bone. The bones
// of a component are all of one kind.
constexpr size_t kSkinningStride3D = 64;
constexpr size_t kSkinningStride2D = 36;

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_ANIMATIONRECORD_H_
