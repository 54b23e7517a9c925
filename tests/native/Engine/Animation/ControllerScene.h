// An engine for tests of bindings and controllers, and the model of both: each operation is applied
// to the engine and to the model.
#ifndef NQ_TESTS_NATIVE_ENGINE_ANIMATION_CONTROLLERSCENE_H_
#define NQ_TESTS_NATIVE_ENGINE_ANIMATION_CONTROLLERSCENE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/native/Engine/Animation/AnimationScene.h"
#include "tests/native/Engine/Animation/ReferenceController.h"

namespace nq::engine {

constexpr uint32_t kHole = 0xFFFFFFFFu;  // also: no binding, no state

// Target lists as the script passes them.
struct TargetLists {
  typedef std::vector<std::pair<uint32_t, std::vector<uint32_t>>> Groups;

  TargetLists(const Groups& groups);  // NOLINT: lists are written in place

  uint32_t TargetWords() const { return static_cast<uint32_t>(words.size()) - clipCount; }

  std::vector<uint32_t> words;
  uint32_t clipCount;
};

typedef TargetLists::Groups Groups;

class ControllerScene : public AnimationScene {
 public:
  typedef ReferenceStage::Entry Entry;
  typedef ReferenceStage::Layer Layer;
  typedef ReferenceStage::Rest Rest;

  ControllerScene() = default;
  ~ControllerScene();

  uint32_t Add3D(int32_t count = 1);
  uint32_t Add2D(int32_t count = 1);
  void Release(uint32_t key);

  uint32_t AddClip(const std::vector<uint8_t>& bytes);
  uint32_t AddClip(uint32_t frameCount, const std::vector<ReferenceCurve>& curves) {
    return AddClip(ReferenceBytes(30.0f, frameCount, curves));
  }
  void ReleaseClip(uint32_t clip);

  // With `targetWords` instead of the true number of words, to test bounds.
  uint32_t Bind(const TargetLists& lists, uint32_t mode, uint32_t targetWords);
  uint32_t Bind(const TargetLists& lists, uint32_t mode = 1) {
    return Bind(lists, mode, lists.TargetWords());
  }
  bool Rebind(uint32_t binding, const TargetLists& lists, uint32_t removedMode, uint32_t keptMode,
              uint32_t addedMode);
  void ReleaseBinding(uint32_t binding);
  AnimationClipBinding* BindingOf(uint32_t binding);

  uint32_t AddState(float weight, float fill, const std::vector<Entry>& entries,
                    uint32_t next = kHole);
  void SetState(uint32_t state, float weight, float fill, uint32_t next);
  void SetEntry(uint32_t state, uint32_t place, const Entry& entry);
  void ReleaseState(uint32_t state);

  uint32_t AddController(uint32_t binding, const std::vector<Layer>& layers);
  void SetLayer(uint32_t controller, uint32_t index, const Layer& layer);
  void SetBinding(uint32_t controller, uint32_t binding);
  void SetMask(uint32_t controller, uint32_t index,
               const std::vector<std::pair<uint32_t, float>>& records);
  AnimatorControllerModel* ControllerOf(uint32_t controller);

  // One update of the engine and of the model, and a comparison of all state.
  void Update(uint32_t controller);

  // The same with the pass after it, which updates trees without a root.
  void UpdateAtOnce(uint32_t controller);

  // Copies the state of entities from the engine.
  void Capture();

  // True if records, marks, local matrices and bindings equal the model's. World matrices are
  // compared if `worlds`: nothing may have written them.
  ::testing::AssertionResult Same(bool worlds);
  ::testing::AssertionResult SameBinding(uint32_t binding);

  // The model's rest pose; fails the test if there is none.
  const Rest& RestOf(uint32_t binding, uint32_t key);
  std::vector<uint32_t> KeysOf(uint32_t binding);

  // Fields of a record.
  std::vector<float> Position(uint32_t handle);
  std::vector<float> Scale(uint32_t handle);
  std::vector<float> Rotation(uint32_t handle);

  void Turn(uint32_t handle, float x, float y, float z);           // angles
  void Turn(uint32_t handle, float x, float y, float z, float w);  // a quaternion

  ReferenceStage stage;

 private:
  std::map<uint32_t, int32_t> batches;  // counts by key
};

class ControllerSceneTest : public ::testing::Test {
 protected:
  ControllerScene scene;
};

::testing::AssertionResult SameRest(const ReferenceStage::Rest& expected,
                                    const TransformValue& actual);

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_ANIMATION_CONTROLLERSCENE_H_
