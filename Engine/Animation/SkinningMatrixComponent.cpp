// Products of bone world matrices and inverse bind matrices.
#include "Engine/Animation/SkinningMatrixComponent.h"

#include <cstring>

#include "Common/Def/Assert.h"
#include "Common/Def/Log.h"
#include "Common/Def/MathKernels.h"
#include "Engine/Animation/AnimationRecord.h"
#include "Engine/Animation/AnimationSystem.h"
#include "Engine/Animation/SkeletonBonesInverseModel.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

namespace {

constexpr char kSource[] = "..\\..\\Engine\\Animation\\SkinningMatrixComponent";
constexpr int kModelLine = 22;
constexpr int kEntityLine = 27;

// The 2D matrix: z row and z column are left out.
void StoreMatrix3(const float* m, float* out) {
  const float kept[9] = {m[0], m[1], m[3], m[4], m[5], m[7], m[12], m[13], m[15]};
  std::memcpy(out, kept, sizeof(kept));
}

}  // namespace

void SkinningMatrixComponent::Update() {
  const uint32_t* words = reinterpret_cast<const uint32_t*>(data);
  const SkeletonBonesInverseModel* model =
      core->Animation()->FindSkeletonBonesInverseModel(words[0]);
  if (model == nullptr) {
    NQ_LOG("[NQ_FATAL][Engine]: ", "bone inverse model not found\n");
    FailAssertion("0", kSource, kModelLine);
  }
  const uint32_t* indices = words + kSkinningIndicesOffset / 4;
  const uint32_t* entities = words + SkinningEntitiesOffset(count) / 4;
  uint8_t* results = data + SkinningResultsOffset(count);
  const size_t matrixCount = model->matrices.size();
  const TransformTree& tree = core->Entities()->Tree();
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t entity = entities[i];
    if (!tree.Contains(entity)) {
      NQ_LOG("[NQ_FATAL][Engine]: ", "entity not found\n");
      FailAssertion("0", kSource, kEntityLine);
    }
    const uint32_t index = indices[i];
    if (index >= matrixCount) {
      continue;
    }
    const TransformBatch& batch = tree.Batch(entity);
    const float* world = batch.worldMatrices[HandleElement(entity)].m;
    const float* inverseBind = model->matrices[index].m;
    if (batch.isThreeD) {
      multiplyMatrix4(world, inverseBind,
                      reinterpret_cast<float*>(results + kSkinningStride3D * i));
    } else {
      float product[16];
      multiplyMatrix4(world, inverseBind, product);
      StoreMatrix3(product, reinterpret_cast<float*>(results + kSkinningStride2D * i));
    }
  }
}

void* SkinningMatrixComponentValue::Allocate(uint32_t count) {
  void* memory = BlockValue::Allocate(SkinningBlockBytes(count));
  component = new SkinningMatrixComponent(static_cast<EngineCore*>(owner),
                                          static_cast<uint8_t*>(memory), count);
  return memory;
}

}  // namespace nq::engine
