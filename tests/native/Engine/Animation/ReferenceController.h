// A slow model of bindings and layered controllers, to compare the engine with: ordered maps at
// every level, one operation at a time. Shares no code with the engine.
#ifndef NQ_TESTS_NATIVE_ENGINE_ANIMATION_REFERENCECONTROLLER_H_
#define NQ_TESTS_NATIVE_ENGINE_ANIMATION_REFERENCECONTROLLER_H_

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "tests/native/Engine/Animation/ReferenceAnimation.h"

namespace nq::engine {

// All state that controllers use. Tables are keyed by handle key, entities by handle.
class ReferenceStage {
 public:
  static constexpr uint32_t kRecordBytes = 108;

  struct Entity {
    bool isThreeD;
    uint32_t parent;  // 0 for none
    uint32_t mark;    // 0 clean, 1 dirty below, 2 dirty self
    bool isRoot;
    std::vector<uint8_t> record;
    float local[16];
  };

  // A rest pose. Vectors are x, y, z, quaternions x, y, z, w.
  struct Rest {
    float position[3] = {0, 0, 0};
    float scale[3] = {1, 1, 1};
    bool isQuaternion = true;
    float angles[3] = {0, 0, 0};
    float quaternion[4] = {0, 0, 0, 1};

    float Channel(int channel) const {
      return channel < 3 ? position[channel] : scale[channel - 3];
    }
    std::vector<float> Rotation() const;  // the quaternion, converted if angles are stored
  };
  typedef std::map<uint32_t, Rest> Rests;

  struct Binding {
    uint32_t targetWords = 0;
    std::map<uint32_t, std::vector<uint32_t>> lists;  // by clip handle
    Rests defaults;
    uint32_t root = 0;  // 0 for none
  };

  struct Entry {
    uint32_t clip;
    float time;
    float weight;
    uint32_t referenceClip;
    float referenceTime;
  };
  struct State {
    float weight;
    float fill;
    uint32_t next;
    std::vector<Entry> entries;
  };
  struct Layer {
    uint32_t blendMode;
    float weight;
    uint32_t firstState;
  };
  typedef std::map<uint32_t, float> Mask;
  struct Controller {
    uint32_t binding;
    std::vector<Layer> layers;
    std::vector<Mask> masks;
  };

  struct Pose {
    float value[6];
    float weight[6];
    float rotation[4];
    float rotationWeight;
  };
  typedef std::map<uint32_t, Pose> Poses;

  // `words` are the clip handles and the groups after them.
  uint32_t Bind(uint32_t handle, const std::vector<uint32_t>& words, uint32_t clipCount,
                uint32_t targetWords, uint32_t mode);
  bool Rebind(uint32_t handle, const std::vector<uint32_t>& words, uint32_t clipCount,
              uint32_t removedMode, uint32_t keptMode, uint32_t addedMode);
  void WriteDefaults(uint32_t handle);
  uint32_t FindTarget(const Binding& binding, uint32_t clip, uint32_t index) const;

  // A batch of entities has been released.
  void Released(uint32_t key);

  Poses EvaluateState(const Binding& binding, const State& state, bool additive,
                      const Mask& mask) const;
  void Update(uint32_t controller);

  // Update, and an immediate refresh of a tree that refreshes do not reach.
  void UpdateAtOnce(uint32_t controller);

  // A rotation as x, y, z, w; empty for none.
  static std::vector<float> RotationOf(const ReferenceSample& sample, bool fill, const Rest& rest);
  static std::vector<float> Product(const std::vector<float>& a, const std::vector<float>& b);
  static Rest Snapshot(const Entity& entity);

  std::map<uint32_t, Entity> entities;
  std::map<uint32_t, ReferenceClip> clips;
  std::map<uint32_t, State> states;
  std::map<uint32_t, Binding> bindings;
  std::map<uint32_t, Controller> controllers;

  // Entities that the last operations wrote or rebuilt.
  std::set<uint32_t> rebuilt;

 private:
  const ReferenceClip* Clip(uint32_t handle) const;
  const State* FindState(uint32_t handle) const;
  bool Is3D(uint32_t handle) const;
  bool Parse(Binding* binding, const std::vector<uint32_t>& words, uint32_t clipCount,
             std::set<uint32_t>* resolved);
  uint32_t Top(const Binding& binding) const;
  Poses EvaluateLayer(const Layer& layer, const Mask& mask, Binding* binding) const;
  static void Merge(size_t index, const Layer& layer, const Poses& poses, Rests* defaults,
                    Poses* merged);
  void Write(const Rest& rest, uint32_t handle);
  void Rebuild(uint32_t handle);
  void ClearMarks(uint32_t handle, bool all);
};

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_ANIMATION_REFERENCECONTROLLER_H_
