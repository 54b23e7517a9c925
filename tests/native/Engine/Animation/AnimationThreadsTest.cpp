// Batch updates on the workers give the same bytes as single updates.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <thread>

#include "Common/Def/WorkerPool.h"
#include "Engine/Animation/AnimationClipModel.h"
#include "tests/native/Engine/Animation/AnimationScene.h"
#include "tests/native/Engine/Animation/ParsedTracks.h"

namespace nq::engine {
namespace {

// Enough characters for tasks to overlap.
constexpr uint32_t kCharacters = 24;
constexpr uint32_t kBones = 40;

// A clip of all bones, with different values at whole and fractional times.
std::vector<uint8_t> CharacterClip(AnimationRandom* random, uint32_t frameCount) {
  std::vector<ReferenceCurve> curves;
  for (uint32_t bone = 0; bone < kBones; ++bone) {
    for (uint32_t type = 1; type <= 13; ++type) {
      if (type >= 7 && type <= 9) {
        continue;
      }
      ReferenceCurve curve = {bone, type, {}};
      for (uint32_t frame = 0; frame <= frameCount; frame += bone % 7 == 3 ? 3 : 2) {
        curve.keys.push_back(
            ReferenceKey{frame, random->Real(-1, 1), random->Real(-1, 1), random->Real(-1, 1)});
      }
      curves.push_back(curve);
    }
  }
  return ReferenceBytes(30.0f, frameCount, curves);
}

// Characters that play the same few clips, none of them parsed yet; bones in chains under roots or
// without.
class Crowd {
 public:
  Crowd() {
    AnimationRandom random(31);
    for (const uint32_t frameCount : {20u, 31u, 8u}) {
      clips.push_back(scene.AddClip(CharacterClip(&random, frameCount)));
    }
    std::vector<float> inverse;
    for (uint32_t i = 0; i < 16 * kBones; ++i) {
      inverse.push_back(random.Real(-1, 1));
    }
    const uint32_t bones = scene.AddBones(inverse);
    for (uint32_t c = 0; c < kCharacters; ++c) {
      const uint32_t key = scene.Add3D(kBones);
      keys.push_back(key);
      for (uint32_t i = 1; i < kBones; ++i) {
        scene.Link(key + (i - 1) / 2, key + i);
      }
      if (c % 3 != 0) {
        scene.AddRoot(key);
      }
      scene.RunCommands();
      animators.push_back(scene.AddAnimator(3, 3 * kBones));
      skins.push_back(scene.AddSkinning(kBones));
      scene.SetBones(skins[c], bones);
      for (uint32_t i = 0; i < kBones; ++i) {
        for (uint32_t clip = 0; clip < 3; ++clip) {
          scene.SetTarget(animators[c], clip * kBones + i, key + i);
        }
        // Every other one skins the bones of the first character.
        scene.SetBone(skins[c], i, i, (c % 2 == 0 ? keys[0] : key) + i);
      }
    }
  }

  // Gives every character its own mix: one, two or three clips, at whole or fractional times.
  void SetFrame(uint32_t frame) {
    for (uint32_t c = 0; c < kCharacters; ++c) {
      const float step = (c + frame) % 2 == 0 ? 1.0f : 0.75f;
      for (uint32_t clip = 0; clip < 3; ++clip) {
        const bool takesPart = clip <= (c + frame) % 3;
        const float time = static_cast<float>(frame + c) * step + (step < 1 ? 0.125f : 0.0f);
        scene.SetPlay(
            animators[c], clip,
            {clips[clip], time, takesPart ? 0.25f + 0.25f * static_cast<float>(clip) : 0});
      }
    }
  }

  void UpdateOneByOne() {
    for (const uint32_t animator : animators) {
      scene.Update(animator);
    }
    scene.Refresh();
    for (const uint32_t skin : skins) {
      scene.Skin(skin);
    }
  }

  void UpdateInBatches() {
    EngineCore* core = scene.Core();
    Post(animators, [core](uint32_t handle) { core->UpdateAnimator(handle); });
    scene.Refresh();
    Post(skins, [core](uint32_t handle) { core->UpdateSkinningMatrix(handle); });
  }

  AnimationScene scene;
  std::vector<uint32_t> clips;
  std::vector<uint32_t> keys;
  std::vector<uint32_t> animators;
  std::vector<uint32_t> skins;

 private:
  template <typename Operation>
  void Post(const std::vector<uint32_t>& handles, Operation operation) {
    std::vector<Task> tasks;
    for (const uint32_t handle : handles) {
      tasks.emplace_back([operation, handle] { operation(handle); });
    }
    WorkerPool* pool = scene.Runtime()->FirstPool();
    pool->PostAll(tasks.data(), tasks.size());
    pool->WaitIdle();
  }
};

void ExpectSameCrowds(Crowd* expected, Crowd* actual) {
  for (uint32_t c = 0; c < kCharacters; ++c) {
    const uint32_t key = expected->keys[c];
    ASSERT_EQ(key, actual->keys[c]);
    for (uint32_t i = 0; i < kBones; ++i) {
      const Entity& one = expected->scene.At(key + i);
      const Entity& other = actual->scene.At(key + i);
      ASSERT_EQ(0, std::memcmp(one.sharedRecord(), other.sharedRecord(), sizeof(Entity3DRecord)))
          << "character " << c << ", bone " << i;
      ASSERT_EQ(0, std::memcmp(one.worldMatrix(), other.worldMatrix(), 64));
      ASSERT_EQ(0, std::memcmp(one.localMatrix(), other.localMatrix(), 64));
      ASSERT_EQ(one.dirtyState(), other.dirtyState());
      ASSERT_EQ(one.worldVersion(), other.worldVersion());
    }
    ASSERT_EQ(0, std::memcmp(expected->scene.ResultsOf(expected->skins[c]),
                             actual->scene.ResultsOf(actual->skins[c]), 64 * kBones));
    ASSERT_EQ(expected->scene.FirstTargetOf(expected->animators[c]),
              actual->scene.FirstTargetOf(actual->animators[c]));
  }
}

TEST(AnimationThreadsTest, BatchesAreEqualToSingleUpdatesByteForByte) {
  for (int round = 0; round < Rounds(6); ++round) {
    Crowd single;
    Crowd batched;
    for (uint32_t frame = 0; frame < 12; ++frame) {
      single.SetFrame(frame);
      batched.SetFrame(frame);
      single.UpdateOneByOne();
      batched.UpdateInBatches();
      ASSERT_NO_FATAL_FAILURE(ExpectSameCrowds(&single, &batched)) << "frame " << frame;
    }
    // Guards the test: the crowd does move.
    EXPECT_NE(0.0f, single.scene.ResultsOf(single.skins[5])[12]);
    for (const uint32_t clip : batched.clips) {
      EXPECT_EQ(single.scene.Animation()->FindAnimationClipModel(clip)->CachedFrames(),
                batched.scene.Animation()->FindAnimationClipModel(clip)->CachedFrames());
    }
  }
}

// Runs `body(thread)` on several threads that start together.
template <typename Body>
void RunTogether(uint32_t count, Body body) {
  std::atomic<uint32_t> waiting{count};
  std::vector<std::thread> threads;
  for (uint32_t t = 0; t < count; ++t) {
    threads.emplace_back([&waiting, &body, t] {
      --waiting;
      while (waiting != 0) {
      }
      body(t);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(AnimationThreadsTest, SeveralThreadsMayParseAClipFirst) {
  AnimationRandom random(32);
  const std::vector<uint8_t> bytes = CharacterClip(&random, 20);
  const ReferenceClip clip(bytes);
  const ReferenceSamples frame = clip.SampleAtFrame(3);
  const ReferenceSamples moment = clip.SampleAtTime(4.25f);
  for (int round = 0; round < Rounds(100); ++round) {
    AnimationClipModel model(bytes.data(), static_cast<uint32_t>(bytes.size()));
    RunTogether(4, [&](uint32_t thread) {
      switch ((thread + static_cast<uint32_t>(round)) % 4) {
        case 0:
          EXPECT_EQ(kBones, model.TrackCount());
          break;
        case 1:
          EXPECT_TRUE(SameSamples(frame, model.SampleAtFrame(3)));
          break;
        case 2:
          EXPECT_TRUE(SameSamples(moment, model.SampleAtTime(4.25f)));
          break;
        default:
          model.EnsureParsed();
          EXPECT_EQ(20u, model.frameCount());
          break;
      }
    });
    ASSERT_EQ(kBones, ParsedTracks::Of(model).size());
  }
}

// Threads fill the cache, each starting elsewhere, and read without a lock what others have filled.
TEST(AnimationThreadsTest, SeveralThreadsMayFillTheFrameCache) {
  constexpr uint32_t kFrames = 97;
  AnimationRandom random(33);
  const std::vector<uint8_t> bytes = CharacterClip(&random, kFrames);
  const ReferenceClip clip(bytes);
  std::vector<ReferenceSamples> expected;
  for (uint32_t frame = 0; frame < kFrames; ++frame) {
    expected.push_back(clip.SampleAtFrame(frame));
  }
  for (int round = 0; round < Rounds(20); ++round) {
    AnimationClipModel model(bytes.data(), static_cast<uint32_t>(bytes.size()));
    std::vector<std::vector<const SampleMap*>> maps(
        4, std::vector<const SampleMap*>(kFrames, nullptr));
    RunTogether(4, [&](uint32_t thread) {
      SampleMap own;
      for (uint32_t i = 0; i < kFrames; ++i) {
        const uint32_t frame = (i * (5 + 2 * thread) + 11 * thread) % kFrames;
        maps[thread][frame] = &model.SampleAtFrame(frame + kFrames * thread);
        EXPECT_TRUE(SameSamples(expected[frame], *maps[thread][frame]));
        const float time = static_cast<float>(frame) + 0.5f;
        if (i % 16 == thread) {
          model.SampleAtTime(time, &own);
          EXPECT_TRUE(SameSamples(clip.SampleAtTime(time), own));
        }
      }
    });
    for (uint32_t frame = 0; frame < kFrames; ++frame) {
      for (uint32_t thread = 1; thread < 4; ++thread) {
        ASSERT_EQ(maps[0][frame], maps[thread][frame]);
      }
      ASSERT_TRUE(SameSamples(expected[frame], *maps[0][frame])) << "unchanged";
    }
    ASSERT_EQ(kFrames, model.CachedFrames());
  }
}

// Tasks mark ancestors that they share: each ancestor ends as marked, no kDirtySelf is lost.
TEST(AnimationThreadsTest, SeveralThreadsMarkSharedAncestors) {
  AnimationScene scene;
  constexpr uint32_t kTwigs = 64;
  const uint32_t root = scene.Add3D(2 + kTwigs);
  scene.AddRoot(root);
  scene.Link(root, root + 1);
  for (uint32_t i = 0; i < kTwigs; ++i) {
    scene.Link(root + 1, root + 2 + i);
  }
  scene.Refresh();
  const uint32_t clip = scene.AddClip(10, {Constant(0, 1, 5)});
  std::vector<uint32_t> animators;
  for (uint32_t i = 0; i <= kTwigs; ++i) {
    animators.push_back(scene.AddAnimator({{clip, 0, 1}}, {root + 1 + i}));
  }
  EngineCore* core = scene.Core();
  for (int round = 0; round < Rounds(200); ++round) {
    std::vector<Task> tasks;
    for (const uint32_t animator : animators) {
      tasks.emplace_back([core, animator] { core->UpdateAnimator(animator); });
    }
    WorkerPool* pool = scene.Runtime()->FirstPool();
    pool->PostAll(tasks.data(), tasks.size());
    pool->WaitIdle();
    ASSERT_EQ(1u, scene.At(root).dirtyState());
    for (uint32_t i = 1; i < 2 + kTwigs; ++i) {
      ASSERT_EQ(2u, scene.At(root + i).dirtyState()) << "written itself";
    }
    scene.Refresh();
    ASSERT_EQ(0u, scene.At(root).dirtyState());
  }
}

}  // namespace
}  // namespace nq::engine
