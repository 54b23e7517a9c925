// The shared blocks of animators, controllers and skinning components: the bytes that script and
// native code both see. Little-endian, no padding.
#ifndef NQ_ENGINE_ANIMATION_ANIMATIONRECORD_H_
#define NQ_ENGINE_ANIMATION_ANIMATIONRECORD_H_

#include <cstddef>
#include <cstdint>

namespace nq::engine {

// What an animator plays of one clip; the script writes it before each update.
struct AnimatorClipRecord {
  uint32_t clipHandle;
  float time;    // frames; wraps at the clip's length
  float weight;  // the clip takes part if 0 < weight <= 1
};
static_assert(sizeof(AnimatorClipRecord) == 12, "animator clip record");

// An animator's block: the clip records, then the target table, one handle per entity. The table
// concatenates the tables of all clips, in the order of the records; each has as many entries as
// its clip has tracks.
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

// The stride of the results in bytes: a 4x4 matrix for a 3D bone, a 3x3 one for a 2D bone. The
// bones of a component are all of one kind.
constexpr size_t kSkinningStride3D = 64;
constexpr size_t kSkinningStride2D = 36;

// The null handle: no binding, a layer that is off, a clip's index without a target.
constexpr uint32_t kNoHandle = 0xFFFFFFFFu;

// How a layer is blended into the final pose. Any larger number turns the layer off.
enum LayerBlendMode : uint32_t {
  kOverrideLayer = 0,
  kAdditiveLayer = 1,
};

// A layer of a controller's block, which starts with its binding's handle.
struct ControllerLayerRecord {
  uint32_t blendMode;  // LayerBlendMode
  float weight;
  uint32_t firstState;  // handle of a state, or kNoHandle: off
};
static_assert(sizeof(ControllerLayerRecord) == 12, "controller layer record");

constexpr size_t kControllerLayersOffset = 4;
constexpr uint32_t ControllerBlockBytes(uint32_t layerCount) {
  return layerCount * static_cast<uint32_t>(sizeof(ControllerLayerRecord)) + 4;
}

// The header of a state's block.
struct ControllerStateRecord {
  float weight;        // in its layer; 0 skips the state, NaN does not
  float fillDefaults;  // nonzero blends in the rest pose
  uint32_t nextState;  // handle of the layer's next state; an invalid handle ends the list
};
static_assert(sizeof(ControllerStateRecord) == 12, "controller state record");

// A clip of a state, after the header.
struct ControllerClipRecord {
  uint32_t clipHandle;
  float time;              // frames
  float weight;            // 0 skips the clip
  uint32_t referenceClip;  // additive layers: the clip whose pose is subtracted...
  float referenceTime;     // ...and the frame at which it is sampled
};
static_assert(sizeof(ControllerClipRecord) == 20, "controller clip record");

constexpr uint32_t ControllerStateBlockBytes(uint32_t clipCount) {
  return clipCount * static_cast<uint32_t>(sizeof(ControllerClipRecord)) +
         static_cast<uint32_t>(sizeof(ControllerStateRecord));
}

// An entry of a mask, as the script passes it.
struct ControllerMaskRecord {
  uint32_t entity;
  float weight;
};
static_assert(sizeof(ControllerMaskRecord) == 8, "controller mask record");

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_ANIMATIONRECORD_H_
