// An engine for tests of animation: the world of entities, with clips, skeletons and their players.
#ifndef NQ_TESTS_NATIVE_ENGINE_ANIMATION_ANIMATIONSCENE_H_
#define NQ_TESTS_NATIVE_ENGINE_ANIMATION_ANIMATIONSCENE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "Engine/Animation/AnimationSystem.h"
#include "tests/native/Engine/Animation/ReferenceAnimation.h"
#include "tests/native/Engine/Entity/World.h"

namespace nq::engine {

const float kNone = std::numeric_limits<float>::quiet_NaN();
const float kInfinity = std::numeric_limits<float>::infinity();

// Channels of a sample.
enum Channel : uint32_t { kX, kY, kZ, kSizeX, kSizeY, kSizeZ, kTurnX, kTurnY, kTurnZ, kTurnW };

// One engine. Everything created with it is released at the end.
class AnimationScene : public World {
 public:
  AnimationScene() = default;
  ~AnimationScene();

  AnimationSystem* Animation() { return Core()->Animation(); }

  uint32_t AddClip(const std::vector<uint8_t>& bytes);
  uint32_t AddClip(uint32_t frameCount, const std::vector<ReferenceCurve>& curves) {
    return AddClip(ReferenceBytes(30.0f, frameCount, curves));
  }

  // Of 16 floats each.
  uint32_t AddBones(const std::vector<float>& matrices);
  void ReleaseClip(uint32_t clip);
  void ReleaseBones(uint32_t bones);

  // Components; their blocks start as zeros.
  uint32_t AddAnimator(uint32_t clipCount, uint32_t entityCount);
  uint32_t AddSkinning(uint32_t count);

  // What an animator plays of one clip.
  struct Play {
    uint32_t clip;
    float time;
    float weight;
  };
  uint32_t AddAnimator(const std::vector<Play>& plays, const std::vector<uint32_t>& targets);

  // The block of a component, as the script sees it.
  uint8_t* BlockOf(uint32_t animator) { return animators.at(animator).block; }
  uint8_t* SkinningBlockOf(uint32_t skinning) { return skinnings.at(skinning).block; }
  void SetPlay(uint32_t animator, uint32_t place, const Play& play);
  void SetTarget(uint32_t animator, uint32_t place, uint32_t handle);
  void SetBone(uint32_t skinning, uint32_t place, uint32_t index, uint32_t entity);
  void SetBones(uint32_t skinning, uint32_t bones);

  void Update(uint32_t animator) { Core()->UpdateAnimator(animator); }
  void Skin(uint32_t skinning) { Core()->UpdateSkinningMatrix(skinning); }

  // The results of a skinning component, from their first byte on.
  const float* ResultsOf(uint32_t skinning);

  // The entity that the last update wrote to first; 0 for none.
  uint32_t FirstTargetOf(uint32_t animator);

 private:
  struct Component {
    uint8_t* block;
    uint32_t count;  // clips or bones
  };
  std::map<uint32_t, Component> animators;
  std::map<uint32_t, Component> skinnings;
  std::map<uint32_t, bool> clips;
  std::map<uint32_t, bool> bonesModels;
};

class AnimationSceneTest : public ::testing::Test {
 protected:
  AnimationScene scene;
};

// A key with flat tangents.
inline ReferenceKey Flat(uint32_t frame, float value) {
  return ReferenceKey{frame, value, 0, 0};
}

// A curve of one value.
inline ReferenceCurve Constant(uint32_t target, uint32_t type, float value) {
  return ReferenceCurve{target, type, {Flat(0, value)}};
}

// Curves of constant values for types 1 and up; none where a value is NaN.
std::vector<ReferenceCurve> Constants(uint32_t target, uint32_t firstType,
                                      const std::vector<float>& values);

std::vector<ReferenceCurve> operator+(std::vector<ReferenceCurve> a,
                                      const std::vector<ReferenceCurve>& b);

// All bits equal, except for the payload of NaNs.
::testing::AssertionResult SameSample(const ReferenceSample& expected, const ClipSample& actual);
::testing::AssertionResult SameSamples(const ReferenceSamples& expected, const SampleMap& actual);

// The expected output of a piece of code, `body`, that ends a child process fatally: `out` on
// standard output and one failed assertion of "0" at this place on standard error. No other thread
// may be alive.
::testing::AssertionResult EndsWith(const std::string& out, const std::string& source, int line,
                                    const std::function<void()>& body);

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_ANIMATION_ANIMATIONSCENE_H_
