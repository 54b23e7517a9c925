// Tables of animation content and players: handles, creation and release, and forwarding by the
// core.
#include "Engine/Animation/AnimationSystem.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstring>
#include <vector>

#include "Common/Def/HandlerAllocator.h"
#include "Engine/Animation/AnimatorControllerModel.h"
#include "Engine/Animation/AnimatorControllerStateModel.h"
#include "tests/native/Engine/Animation/AnimationScene.h"

#if defined(NQ_TEST_UNDER_ADDRESS_SANITIZER) || defined(NQ_TEST_UNDER_THREAD_SANITIZER)
// From the sanitizer's runtime, whose headers not every compiler has.
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace nq::engine {
namespace {

const std::vector<float> kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

// Bytes allocated from the heap.
size_t HeapBytes() {
#if defined(NQ_TEST_UNDER_ADDRESS_SANITIZER) || defined(NQ_TEST_UNDER_THREAD_SANITIZER)
  return __sanitizer_get_current_allocated_bytes();
#else
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

void ExpectNothing(const NativeValueInfo& info) {
  EXPECT_EQ(0u, info.handle);
  EXPECT_EQ(0u, info.size);
  EXPECT_EQ(0u, info.memoryID);
  EXPECT_EQ(nullptr, info.pointer);
}

class AnimationSystemTest : public AnimationSceneTest {};

TEST_F(AnimationSystemTest, EachTableIssuesItsOwnHandles) {
  const uint32_t clip = scene.AddClip(10, {Constant(0, 1, 5)});
  const uint32_t bones = scene.AddBones(kIdentity);
  const uint32_t animator = scene.AddAnimator(1, 1);
  const uint32_t skin = scene.AddSkinning(1);
  const uint32_t entity = scene.Add3D();
  for (const uint32_t handle : {clip, bones, animator, skin, entity}) {
    EXPECT_EQ(0x1000u, handle);
  }
  EXPECT_EQ(0x2000u, scene.AddClip(10, {}));
  EXPECT_EQ(0x3000u, scene.AddClip(10, {}));
  EXPECT_EQ(0x2000u, scene.AddBones({}));
  // They name different things.
  scene.SetPlay(animator, 0, {clip, 0, 1});
  scene.SetTarget(animator, 0, entity);
  scene.Update(animator);
  EXPECT_EQ(5.0f, scene.Record3D(entity).position[0]);
  scene.ReleaseClip(clip);
  EXPECT_EQ(nullptr, scene.Animation()->FindAnimationClipModel(0x1000));
  EXPECT_NE(nullptr, scene.Animation()->FindSkeletonBonesInverseModel(0x1000));
  EXPECT_NE(nullptr, scene.Animation()->FindAnimatorComponent(0x1000));
  EXPECT_NE(nullptr, scene.Animation()->FindSkinningMatrixComponent(0x1000));
  EXPECT_NE(nullptr, scene.System()->FindEntity(0x1000));
}

TEST_F(AnimationSystemTest, TheElementOfAHandleIsIgnored) {
  const uint32_t clip = scene.AddClip(10, {});
  const uint32_t bones = scene.AddBones({});
  const uint32_t animator = scene.AddAnimator(1, 1);
  const uint32_t skin = scene.AddSkinning(1);
  AnimationSystem* system = scene.Animation();
  for (const uint32_t element : {1u, 0x123u, 0xFFFu}) {
    EXPECT_EQ(system->FindAnimationClipModel(clip), system->FindAnimationClipModel(clip + element));
    EXPECT_EQ(system->FindSkeletonBonesInverseModel(bones),
              system->FindSkeletonBonesInverseModel(bones + element));
    EXPECT_EQ(system->FindAnimatorComponent(animator),
              system->FindAnimatorComponent(animator + element));
    EXPECT_EQ(system->FindSkinningMatrixComponent(skin),
              system->FindSkinningMatrixComponent(skin + element));
  }
  for (const uint32_t handle : {0u, 1u, 0xFFFu, 0x2000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(nullptr, system->FindAnimationClipModel(handle));
    EXPECT_EQ(nullptr, system->FindSkeletonBonesInverseModel(handle));
    EXPECT_EQ(nullptr, system->FindAnimatorComponent(handle));
    EXPECT_EQ(nullptr, system->FindSkinningMatrixComponent(handle));
  }
}

TEST_F(AnimationSystemTest, AReleasedHandleIsReusedAndNamesTheNewContent) {
  const uint32_t clip = scene.AddClip(10, {Constant(0, 1, 5)});
  const uint32_t entity = scene.Add3D();
  const uint32_t animator = scene.AddAnimator({{clip, 0, 1}}, {entity});
  scene.Update(animator);
  scene.ReleaseClip(clip + 7);
  EXPECT_EQ(clip, scene.AddClip(10, {Constant(0, 1, 8)}));
  scene.Update(animator);
  EXPECT_EQ(8.0f, scene.Record3D(entity).position[0]);
}

TEST_F(AnimationSystemTest, AnAnimatorBlockHas12BytesPerClipAnd4PerTarget) {
  struct {
    uint32_t clips;
    uint32_t entities;
    uint32_t bytes;
  } const cases[] = {{1, 1, 16}, {3, 1, 40}, {1, 50, 212}, {4, 200, 848}};
  for (const auto& one : cases) {
    const NativeValueInfo info = scene.Core()->CreateAnimatorComponent(one.clips, one.entities);
    EXPECT_EQ(one.bytes, info.size);
    for (uint32_t i = 0; i < info.size; ++i) {
      ASSERT_EQ(0, static_cast<const uint8_t*>(info.pointer)[i]);
    }
    const AnimatorComponent* component = scene.Animation()->FindAnimatorComponent(info.handle);
    EXPECT_EQ(one.clips, component->clipCount);
    EXPECT_EQ(one.entities, component->entityCount);
    EXPECT_EQ(info.pointer, component->data);
    EXPECT_EQ(scene.Core(), component->core);
    EXPECT_EQ(nullptr, component->firstTarget);
    EXPECT_EQ(info.pointer, scene.Runtime()->FindBlock(info.memoryID).pointer);
    scene.Core()->ReleaseAnimatorComponent(info.handle);
    EXPECT_EQ(nullptr, scene.Runtime()->FindBlock(info.memoryID).pointer);
  }
}

TEST_F(AnimationSystemTest, ACountOf0CreatesNoAnimator) {
  ExpectNothing(scene.Core()->CreateAnimatorComponent(0, 1));
  ExpectNothing(scene.Core()->CreateAnimatorComponent(1, 0));
  ExpectNothing(scene.Core()->CreateAnimatorComponent(0, 0));
  EXPECT_EQ(0x1000u, scene.AddAnimator(1, 1)) << "no handle was used";
}

// Allocates a value's block twice, and releases the value.
template <typename Value>
void AllocateTwice(EngineCore* core, HandlerAllocator<Value>* values) {
  Value* value = values->Allocate();
  value->Allocate(2);
  const MemoryBlock firstBlock = core->Runtime()->FindBlock(value->Info().memoryID);
  const auto* first = value->component;
  EXPECT_EQ(firstBlock.pointer, first->data);
  void* memory = value->Allocate(1);
  EXPECT_NE(first, value->component);
  EXPECT_EQ(memory, value->component->data);
  EXPECT_EQ(firstBlock.pointer, first->data) << "the first one stays as it was";
  core->Runtime()->Release(firstBlock);
  values->Release(value->handle);
}

template <typename Value>
size_t LeakOfSecondAllocation(EngineCore* core) {
  HandlerAllocator<Value> values(core);
  // The first time, tables grow.
  AllocateTwice(core, &values);
  const size_t before = HeapBytes();
  AllocateTwice(core, &values);
  return HeapBytes() - before;
}

TEST_F(AnimationSystemTest, ASecondControllerOrStateOfAValueIsDeletedWithIt) {
  EXPECT_EQ(0u, LeakOfSecondAllocation<AnimatorControllerModelValue>(scene.Core()));
  EXPECT_EQ(0u, LeakOfSecondAllocation<AnimatorControllerStateModelValue>(scene.Core()));
}

TEST_F(AnimationSystemTest, ContentHasNoBlock) {
  const MemoryBlock before = scene.Runtime()->Allocate(16);
  scene.AddClip(10, {Constant(0, 1, 5)});
  scene.AddBones(kIdentity);
  const MemoryBlock after = scene.Runtime()->Allocate(16);
  EXPECT_EQ(before.memoryID + 1, after.memoryID);
  scene.Runtime()->Release(before);
  scene.Runtime()->Release(after);
}

TEST_F(AnimationSystemTest, MalformedContentStillGetsAHandle) {
  OutputRecorder output;
  const std::vector<uint8_t> noise(100, 0xEE);
  EXPECT_EQ(0x1000u, scene.AddClip(noise));
  EXPECT_NE(nullptr, scene.Animation()->FindAnimationClipModel(0x1000));
  EXPECT_EQ(0x2000u, scene.Core()->CreateAnimationClipModel(nullptr, 0));
  EXPECT_EQ(0u, scene.Animation()->FindAnimationClipModel(0x2000)->TrackCount());
  scene.ReleaseClip(0x2000);
  EXPECT_EQ("", output.Text());
}

TEST_F(AnimationSystemTest, UpdatesOfUnknownHandlesDoNothing) {
  for (const uint32_t handle : {0u, 0x1000u, 0xFFFFFFFFu}) {
    scene.Update(handle);
    scene.Skin(handle);
  }
  // A handle of an animator is not one of a skinning component, and vice versa.
  scene.AddSkinning(1);
  scene.Update(0x1000);
  World other;
  const uint32_t animator = other.Core()->CreateAnimatorComponent(1, 1).handle;
  other.Core()->UpdateSkinningMatrix(animator);
  other.Core()->ReleaseAnimatorComponent(animator);
}

TEST_F(AnimationSystemTest, EveryValueHoldsTheCore) {
  EngineCore* core = scene.Core();
  EXPECT_EQ(1u, core->ReferenceCount());
  const uint32_t clip = scene.AddClip(10, {});
  EXPECT_EQ(2u, core->ReferenceCount());
  const uint32_t bones = scene.AddBones({});
  scene.AddAnimator(1, 1);
  scene.AddSkinning(1);
  EXPECT_EQ(5u, core->ReferenceCount());
  scene.ReleaseClip(clip);
  scene.ReleaseBones(bones);
  EXPECT_EQ(3u, core->ReferenceCount());
}

TEST_F(AnimationSystemTest, UnknownReleasesAreIgnored) {
  scene.AddClip(10, {});
  scene.AddBones({});
  scene.AddAnimator(1, 1);
  scene.AddSkinning(1);
  for (const uint32_t handle : {0u, 0x2000u, 0xFFFFFFFFu}) {
    scene.Core()->ReleaseAnimationClipModel(handle);
    scene.Core()->ReleaseSkeletonBonesInverseModel(handle);
    scene.Core()->ReleaseAnimatorComponent(handle);
    scene.Core()->ReleaseSkinningMatrixComponent(handle);
  }
  EXPECT_EQ(5u, scene.Core()->ReferenceCount());
}

TEST_F(AnimationSystemTest, TheLastValueOfAnyTableMayDestroyTheCore) {
  for (int last = 0; last < 4; ++last) {
    EngineRuntime* runtime = new EngineRuntime(new MemoryAllocator);
    EngineCore* core = new EngineCore(runtime);
    const auto release = [core](int table) {
      switch (table) {
        case 0:
          core->ReleaseAnimatorComponent(0x1000);
          break;
        case 1:
          core->ReleaseSkinningMatrixComponent(0x1000);
          break;
        case 2:
          core->ReleaseSkeletonBonesInverseModel(0x1000);
          break;
        default:
          core->ReleaseAnimationClipModel(0x1000);
          break;
      }
    };
    core->CreateAnimatorComponent(2, 2);
    core->CreateSkinningMatrixComponent(2);
    core->CreateSkeletonBonesInverseModel(reinterpret_cast<const uint8_t*>(kIdentity.data()), 64);
    const std::vector<uint8_t> bytes = ReferenceBytes(30.0f, 10, {Constant(0, 1, 5)});
    core->CreateAnimationClipModel(bytes.data(), static_cast<uint32_t>(bytes.size()));
    core->DropReference();
    EXPECT_EQ(4u, core->ReferenceCount());
    for (int table = 0; table < 4; ++table) {
      if (table != last) {
        release(table);
      }
    }
    EXPECT_EQ(1u, core->ReferenceCount());
    EXPECT_EQ(2u, runtime->ReferenceCount());
    release(last);
    EXPECT_EQ(1u, runtime->ReferenceCount()) << "the core is gone";
    runtime->DropReference();
  }
}

// A freed block is the next to be reused: so the order shows which was freed last.
TEST_F(AnimationSystemTest, RemainingValuesAreReleasedByTableFromTheLast) {
  for (const bool skinFirst : {false, true}) {
    EngineRuntime* runtime = new EngineRuntime(new MemoryAllocator);
    EngineCore* core = new EngineCore(runtime);
    AnimationSystem* system = new AnimationSystem(core);
    void* skin = nullptr;
    void* animators[2];
    // 76 bytes each.
    if (skinFirst) {
      skin = system->CreateSkinningMatrixComponent(1).pointer;
    }
    for (void*& animator : animators) {
      animator = system->CreateAnimatorComponent(6, 1).pointer;
    }
    if (!skinFirst) {
      skin = system->CreateSkinningMatrixComponent(1).pointer;
    }
    const uint8_t byte = 0;
    system->CreateAnimationClipModel(&byte, 1);
    system->CreateSkeletonBonesInverseModel(&byte, 0);
    EXPECT_EQ(6u, core->ReferenceCount());
    delete system;
    EXPECT_EQ(1u, core->ReferenceCount());
    // Skinning components are released before animators, the first animator before the second.
    const MemoryBlock blocks[] = {runtime->Allocate(76), runtime->Allocate(76),
                                  runtime->Allocate(76)};
    EXPECT_EQ(animators[1], blocks[0].pointer);
    EXPECT_EQ(animators[0], blocks[1].pointer);
    EXPECT_EQ(skin, blocks[2].pointer);
    for (const MemoryBlock& block : blocks) {
      runtime->Release(block);
    }
    core->DropReference();
    runtime->DropReference();
  }
}

TEST_F(AnimationSystemTest, EveryForwardingCallCreatesOnlyTheSystem) {
  using Forward = void (*)(EngineCore*);
  const Forward forwards[] = {
      [](EngineCore* core) { core->ReleaseAnimationClipModel(0x1000); },
      [](EngineCore* core) { core->ReleaseSkeletonBonesInverseModel(0x1000); },
      [](EngineCore* core) { core->ReleaseAnimatorComponent(0x1000); },
      [](EngineCore* core) { core->ReleaseSkinningMatrixComponent(0x1000); },
      [](EngineCore* core) { core->UpdateAnimator(0x1000); },
      [](EngineCore* core) { core->UpdateSkinningMatrix(0x1000); },
      [](EngineCore* core) { ExpectNothing(core->CreateAnimatorComponent(0, 0)); },
      [](EngineCore* core) { ExpectNothing(core->CreateSkinningMatrixComponent(0)); },
      [](EngineCore* core) { core->Animation(); },
  };
  for (const Forward forward : forwards) {
    World fresh;
    const size_t before = HeapBytes();
    forward(fresh.Core());
    const size_t created = HeapBytes() - before;
    EXPECT_GE(created, sizeof(AnimationSystem));
    EXPECT_LT(created, sizeof(AnimationSystem) * 3 / 2);
    forward(fresh.Core());
    EXPECT_LT(HeapBytes(), before + sizeof(AnimationSystem) * 3 / 2) << "once";
    EXPECT_EQ(1u, fresh.Core()->ReferenceCount());
    const MemoryBlock block = fresh.Runtime()->Allocate(16);
    EXPECT_EQ(0u, block.memoryID) << "no buffers of entities";
    fresh.Runtime()->Release(block);
  }
}

TEST_F(AnimationSystemTest, ReleasingAComponentFreesItsObjectAndItsBlock) {
  scene.Core()->ReleaseAnimatorComponent(scene.Core()->CreateAnimatorComponent(2, 2).handle);
  scene.Core()->ReleaseSkinningMatrixComponent(
      scene.Core()->CreateSkinningMatrixComponent(2).handle);
  const size_t before = HeapBytes();
  for (int i = 0; i < 500; ++i) {
    scene.Core()->ReleaseAnimatorComponent(scene.Core()->CreateAnimatorComponent(2, 2).handle);
    scene.Core()->ReleaseSkinningMatrixComponent(
        scene.Core()->CreateSkinningMatrixComponent(2).handle);
    scene.ReleaseClip(scene.AddClip(std::vector<uint8_t>(300, 0xEE)));
    scene.ReleaseBones(scene.AddBones(kIdentity));
  }
  EXPECT_LT(HeapBytes(), before + 4096);
}

TEST_F(AnimationSystemTest, AnUnmaskedLayerUsesNoMemoryBesideItsRecord) {
  constexpr uint32_t kLayers = 1000000;
  constexpr size_t kBlockBytes = 4 + 12 * size_t{kLayers};
  constexpr size_t kSlack = 16384;  // of the value, its tables, and heap pages
  const std::vector<ControllerMaskRecord> records(1000, ControllerMaskRecord{0x1000, 0.5f});
  const uint8_t* bytes = reinterpret_cast<const uint8_t*>(records.data());
  // The first one creates the animation system and its tables.
  const uint32_t first = scene.Core()->CreateAnimatorControllerModel(1).handle;
  const size_t atFirst = HeapBytes();
  const NativeValueInfo info = scene.Core()->CreateAnimatorControllerModel(kLayers);
  const size_t made = HeapBytes();
  EXPECT_GE(made - atFirst, kBlockBytes);
  EXPECT_LT(made - atFirst, kBlockBytes + kSlack);

  AnimatorControllerModel* controller = scene.Animation()->FindAnimatorControllerModel(info.handle);
  for (const uint32_t layer : {0u, 500000u, kLayers - 1}) {
    EXPECT_TRUE(controller->SetMask(layer, bytes, 0, 1000));
  }
  EXPECT_GE(HeapBytes() - made, 3 * 8000u);
  EXPECT_LT(HeapBytes() - made, 3 * 8000u + 4096);
  EXPECT_FALSE(controller->SetMask(kLayers, bytes, 0, 1000));
  for (uint32_t layer = 0; layer < kLayers; ++layer) {
    EXPECT_TRUE(controller->SetMask(layer, bytes, 0, 0));
  }
  EXPECT_LT(HeapBytes(), made + 4096) << "unmasked";
  scene.Core()->ReleaseAnimatorControllerModel(info.handle);
  EXPECT_LT(HeapBytes(), atFirst + kSlack);
  scene.Core()->ReleaseAnimatorControllerModel(first);
}

}  // namespace
}  // namespace nq::engine
