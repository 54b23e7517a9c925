// Two equal worlds: animators run in one, and a plain model writes the expected values to the
// other.
#ifndef NQ_TESTS_NATIVE_ENGINE_ANIMATION_ANIMATORSTAGE_H_
#define NQ_TESTS_NATIVE_ENGINE_ANIMATION_ANIMATORSTAGE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <vector>

#include "tests/native/Engine/Animation/AnimationScene.h"

namespace nq::engine {

class AnimatorStage {
 public:
  // A forest of both kinds, with and without roots, with some inactive entities, refreshed.
  void Populate(AnimationRandom* random, uint32_t batches);

  // Does the same to both worlds.
  uint32_t Add(bool isThreeD, int32_t count);
  void Release(uint32_t key);
  void Command(std::initializer_list<uint32_t> words);
  void RunCommands();
  void Refresh();
  void WriteRecord(uint32_t handle, AnimationRandom* random);

  // A clip for animators, and for the model.
  uint32_t AddClip(const std::vector<uint8_t>& bytes);
  const ReferenceClip& ClipOf(uint32_t handle) const { return clips.at(handle); }

  // An animator of random clips, times, weights and targets, with what it plays.
  struct Animator {
    uint32_t handle;
    std::vector<AnimationScene::Play> plays;
    std::vector<uint32_t> targets;
  };
  Animator AddAnimator(const std::vector<AnimationScene::Play>& plays,
                       const std::vector<uint32_t>& targets);
  void SetPlays(Animator* animator, const std::vector<AnimationScene::Play>& plays);

  // Applies the expected effects of an update to the plain world.
  void Expect(const Animator& animator);

  // Runs the animator in the one world and its model in the other.
  void Update(const Animator& animator) {
    scene.Update(animator.handle);
    Expect(animator);
  }

  // True if both worlds are equal: records, matrices, marks and versions, and the entity that the
  // last update wrote to first.
  ::testing::AssertionResult Agree();
  ::testing::AssertionResult AgreeOnFirst(const Animator& animator);

  // Usually a handle of a living entity, sometimes of none.
  uint32_t AnyTarget(AnimationRandom* random);

  // Handles of all entities, in the order of creation.
  const std::vector<uint32_t>& Entities() const { return handles; }

  AnimationScene scene;
  World plain;

 private:
  std::map<uint32_t, ReferenceClip> clips;
  std::map<uint32_t, int32_t> batches;  // counts by key
  std::vector<uint32_t> handles;
  uint32_t expectedFirst = 0;
};

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_ANIMATION_ANIMATORSTAGE_H_
