// The operations of controller scenes.
#include "tests/native/Engine/Animation/ControllerScene.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace nq::engine {

namespace {

constexpr size_t kOwnBytes = 44;  // of a record; the world matrix follows

std::vector<float> FloatsAt(const std::vector<uint8_t>& record, size_t from, size_t to) {
  std::vector<float> floats((to - from) / 4);
  std::memcpy(floats.data(), &record[from], to - from);
  return floats;
}

void StoreWords(uint8_t* block, const std::vector<uint32_t>& words) {
  if (!words.empty()) {
    std::memcpy(block, words.data(), words.size() * 4);
  }
}

uint32_t Word(float number) {
  uint32_t word;
  std::memcpy(&word, &number, 4);
  return word;
}

std::vector<float> Reversed(const float* numbers, size_t count) {
  std::vector<float> result(numbers, numbers + count);
  std::reverse(result.begin(), result.end());
  return result;
}

}  // namespace

TargetLists::TargetLists(const Groups& groups) : clipCount(static_cast<uint32_t>(groups.size())) {
  for (const auto& [clip, handles] : groups) {
    words.push_back(clip);
  }
  for (const auto& [clip, handles] : groups) {
    words.push_back(static_cast<uint32_t>(handles.size()));
    words.insert(words.end(), handles.begin(), handles.end());
  }
}

ControllerScene::~ControllerScene() {
  for (const auto& controller : stage.controllers) {
    Core()->ReleaseAnimatorControllerModel(controller.first);
  }
  for (const auto& state : stage.states) {
    Core()->ReleaseAnimatorControllerStateModel(state.first);
  }
  for (const auto& binding : stage.bindings) {
    Core()->ReleaseAnimationClipBinding(binding.first);
  }
}

uint32_t ControllerScene::Add3D(int32_t count) {
  const uint32_t key = World::Add3D(count);
  batches[key] = count;
  return key;
}

uint32_t ControllerScene::Add2D(int32_t count) {
  const uint32_t key = World::Add2D(count);
  batches[key] = count;
  return key;
}

void ControllerScene::Release(uint32_t key) {
  batches.erase(key);
  World::Release(key);
  stage.Released(key);
}

uint32_t ControllerScene::AddClip(const std::vector<uint8_t>& bytes) {
  const uint32_t clip = AnimationScene::AddClip(bytes);
  stage.clips.insert({clip, ReferenceClip(bytes)});
  return clip;
}

void ControllerScene::ReleaseClip(uint32_t clip) {
  AnimationScene::ReleaseClip(clip);
  stage.clips.erase(clip);
}

uint32_t ControllerScene::Bind(const TargetLists& lists, uint32_t mode, uint32_t targetWords) {
  Capture();
  // Unaligned, after other bytes.
  std::vector<uint8_t> bytes(3 + lists.words.size() * 4, 0xEE);
  StoreWords(bytes.data() + 3, lists.words);
  const uint32_t binding =
      Core()->CreateAnimationClipBinding(bytes.data(), 3, lists.clipCount, targetWords, mode);
  if (binding == 0) {
    return 0;
  }
  stage.Bind(binding, lists.words, lists.clipCount, targetWords, mode);
  EXPECT_TRUE(Same(true));
  return binding;
}

bool ControllerScene::Rebind(uint32_t binding, const TargetLists& lists, uint32_t removedMode,
                             uint32_t keptMode, uint32_t addedMode) {
  Capture();
  std::vector<uint8_t> bytes(5 + lists.words.size() * 4, 0xEE);
  StoreWords(bytes.data() + 5, lists.words);
  const bool accepted = BindingOf(binding)->Update(
      bytes.data(), 5, lists.clipCount, lists.TargetWords(), removedMode, keptMode, addedMode);
  EXPECT_EQ(stage.Rebind(binding, lists.words, lists.clipCount, removedMode, keptMode, addedMode),
            accepted);
  EXPECT_TRUE(Same(true)) << "modes " << removedMode << ", " << keptMode << ", " << addedMode;
  return accepted;
}

void ControllerScene::ReleaseBinding(uint32_t binding) {
  Core()->ReleaseAnimationClipBinding(binding);
  stage.bindings.erase(binding);
}

AnimationClipBinding* ControllerScene::BindingOf(uint32_t binding) {
  return Animation()->FindAnimationClipBinding(binding);
}

uint32_t ControllerScene::AddState(float weight, float fill, const std::vector<Entry>& entries,
                                   uint32_t next) {
  const uint32_t state = Core()
                             ->CreateAnimatorControllerStateModel(
                                 static_cast<uint32_t>(std::max<size_t>(1, entries.size())))
                             .handle;
  // There are no states without clips; a clip of weight 0 has no effect.
  stage.states[state].entries.resize(std::max<size_t>(1, entries.size()));
  SetState(state, weight, fill, next);
  SetEntry(state, 0, Entry{0, 0, 0, 0, 0});
  for (uint32_t i = 0; i < entries.size(); ++i) {
    SetEntry(state, i, entries[i]);
  }
  return state;
}

void ControllerScene::SetState(uint32_t state, float weight, float fill, uint32_t next) {
  StoreWords(Animation()->FindAnimatorControllerStateModel(state)->data,
             {Word(weight), Word(fill), next});
  ReferenceStage::State& model = stage.states.at(state);
  model.weight = weight;
  model.fill = fill;
  model.next = next;
}

void ControllerScene::SetEntry(uint32_t state, uint32_t place, const Entry& entry) {
  StoreWords(Animation()->FindAnimatorControllerStateModel(state)->data + 12 + size_t{20} * place,
             {entry.clip, Word(entry.time), Word(entry.weight), entry.referenceClip,
              Word(entry.referenceTime)});
  stage.states.at(state).entries.at(place) = entry;
}

void ControllerScene::ReleaseState(uint32_t state) {
  Core()->ReleaseAnimatorControllerStateModel(state);
  stage.states.erase(state);
}

uint32_t ControllerScene::AddController(uint32_t binding, const std::vector<Layer>& layers) {
  const uint32_t controller =
      Core()->CreateAnimatorControllerModel(static_cast<uint32_t>(layers.size())).handle;
  ReferenceStage::Controller& model = stage.controllers[controller];
  model.layers.resize(layers.size());
  model.masks.resize(layers.size());
  SetBinding(controller, binding);
  for (uint32_t i = 0; i < layers.size(); ++i) {
    SetLayer(controller, i, layers[i]);
  }
  return controller;
}

void ControllerScene::SetLayer(uint32_t controller, uint32_t index, const Layer& layer) {
  StoreWords(ControllerOf(controller)->data + 4 + size_t{12} * index,
             {layer.blendMode, Word(layer.weight), layer.firstState});
  stage.controllers.at(controller).layers.at(index) = layer;
}

void ControllerScene::SetBinding(uint32_t controller, uint32_t binding) {
  StoreWords(ControllerOf(controller)->data, {binding});
  stage.controllers.at(controller).binding = binding;
}

void ControllerScene::SetMask(uint32_t controller, uint32_t index,
                              const std::vector<std::pair<uint32_t, float>>& records) {
  std::vector<uint32_t> words = {0xEEEEEEEEu};
  ReferenceStage::Mask mask;
  for (const auto& [entity, weight] : records) {
    words.push_back(entity);
    words.push_back(Word(weight));
    mask.insert({entity, weight});  // the first for an entity is kept
  }
  EXPECT_TRUE(ControllerOf(controller)
                  ->SetMask(index, reinterpret_cast<const uint8_t*>(words.data()), 4,
                            static_cast<uint32_t>(records.size())));
  stage.controllers.at(controller).masks.at(index) = mask;
}

AnimatorControllerModel* ControllerScene::ControllerOf(uint32_t controller) {
  return Animation()->FindAnimatorControllerModel(controller);
}

void ControllerScene::Update(uint32_t controller) {
  Capture();
  ControllerOf(controller)->Update();
  stage.Update(controller);
  EXPECT_TRUE(Same(true));
}

void ControllerScene::UpdateAtOnce(uint32_t controller) {
  Capture();
  Core()->UpdateAnimatorController(controller);
  stage.UpdateAtOnce(controller);
  EXPECT_TRUE(Same(false));
}

void ControllerScene::Capture() {
  stage.entities.clear();
  stage.rebuilt.clear();
  for (const auto& [key, count] : batches) {
    for (int32_t i = 0; i < count; ++i) {
      const uint32_t handle = key + static_cast<uint32_t>(i);
      const Entity& entity = At(handle);
      ReferenceStage::Entity& model = stage.entities[handle];
      model.isThreeD = entity.isThreeD();
      model.parent = ParentOf(handle);
      model.mark = entity.dirtyState();
      model.isRoot = System()->IsRoot(&entity);
      const size_t bytes = model.isThreeD ? ReferenceStage::kRecordBytes : sizeof(Entity2DRecord);
      model.record.assign(entity.sharedRecord(), entity.sharedRecord() + bytes);
      std::copy(entity.localMatrix(), entity.localMatrix() + 16, model.local);
    }
  }
}

::testing::AssertionResult ControllerScene::Same(bool worlds) {
  for (const auto& [handle, model] : stage.entities) {
    const Entity& entity = At(handle);
    const uint8_t* bytes = entity.sharedRecord();
    const std::vector<uint8_t> record(bytes, bytes + model.record.size());
    ::testing::AssertionResult same = ::testing::AssertionSuccess();
    if (!model.isThreeD) {
      const size_t end = worlds ? record.size() : offsetof(Entity2DRecord, worldMatrix);
      if (!std::equal(record.begin(), record.begin() + static_cast<ptrdiff_t>(end),
                      model.record.begin())) {
        same = ::testing::AssertionFailure() << "a 2D record was written";
      }
    } else if (!std::equal(record.begin(), record.begin() + 4, model.record.begin())) {
      same = ::testing::AssertionFailure() << "rotation mode is " << static_cast<int>(record[0]);
    } else {
      const size_t end = worlds ? model.record.size() : kOwnBytes;
      same = SameFloats(FloatsAt(model.record, 4, end), FloatsAt(record, 4, end).data());
    }
    if (same) {
      same = SameFloats(model.local, entity.localMatrix(), 16);
      if (!same) {
        same = ::testing::AssertionFailure() << "local matrix: " << same.message();
      }
    }
    if (same && entity.dirtyState() != model.mark) {
      same = ::testing::AssertionFailure()
             << "mark is " << entity.dirtyState() << ", expected " << model.mark;
    }
    if (!same) {
      return ::testing::AssertionFailure()
             << "entity " << std::hex << handle << std::dec << ": " << same.message();
    }
  }
  for (const auto& binding : stage.bindings) {
    const ::testing::AssertionResult same = SameBinding(binding.first);
    if (!same) {
      return same;
    }
  }
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult ControllerScene::SameBinding(uint32_t handle) {
  const ReferenceStage::Binding& model = stage.bindings.at(handle);
  const AnimationClipBinding* binding = BindingOf(handle);
  const std::vector<RestPoses::Key>& keys = binding->defaults.Ascending();
  if (keys.size() != model.defaults.size()) {
    return ::testing::AssertionFailure()
           << keys.size() << " rest poses, expected " << model.defaults.size();
  }
  size_t i = 0;
  for (const auto& [number, rest] : model.defaults) {
    if (keys[i].number != number) {
      return ::testing::AssertionFailure()
             << "key " << i << " is " << keys[i].number << ", expected " << number;
    }
    const ::testing::AssertionResult same = SameRest(rest, binding->defaults.Value(keys[i].slot));
    if (!same) {
      return ::testing::AssertionFailure() << "rest pose " << number << ": " << same.message();
    }
    ++i;
  }
  const Entity* root = binding->rootEntity();
  if ((root == nullptr ? 0 : root->handle) != model.root) {
    return ::testing::AssertionFailure() << "root is not " << model.root;
  }
  for (const auto& [clip, list] : model.lists) {
    if (!binding->HasList(clip)) {
      return ::testing::AssertionFailure() << "no list for clip " << clip;
    }
    for (uint32_t k = 0; k <= list.size(); ++k) {
      const Entity* target = binding->FindTarget(clip, k);
      if ((target == nullptr ? 0 : target->handle) != stage.FindTarget(model, clip, k)) {
        return ::testing::AssertionFailure() << "clip " << clip << ", target " << k << " differs";
      }
    }
  }
  for (const auto& clip : stage.clips) {
    if (binding->HasList(clip.first) != (model.lists.count(clip.first) != 0)) {
      return ::testing::AssertionFailure() << "a list for clip " << clip.first;
    }
  }
  return ::testing::AssertionSuccess();
}

const ControllerScene::Rest& ControllerScene::RestOf(uint32_t binding, uint32_t key) {
  static const Rest none;
  EXPECT_TRUE(SameBinding(binding));
  const auto found = stage.bindings.at(binding).defaults.find(key);
  EXPECT_NE(stage.bindings.at(binding).defaults.end(), found) << "no rest pose of " << key;
  return found == stage.bindings.at(binding).defaults.end() ? none : found->second;
}

std::vector<uint32_t> ControllerScene::KeysOf(uint32_t binding) {
  std::vector<uint32_t> numbers;
  for (const RestPoses::Key& key : BindingOf(binding)->defaults.Ascending()) {
    numbers.push_back(key.number);
  }
  return numbers;
}

std::vector<float> ControllerScene::Position(uint32_t handle) {
  const float* numbers = Record3D(handle).position;
  return std::vector<float>(numbers, numbers + 3);
}

std::vector<float> ControllerScene::Scale(uint32_t handle) {
  const float* numbers = Record3D(handle).scale;
  return std::vector<float>(numbers, numbers + 3);
}

std::vector<float> ControllerScene::Rotation(uint32_t handle) {
  const float* numbers = Record3D(handle).rotation;
  return std::vector<float>(numbers, numbers + 4);
}

void ControllerScene::Turn(uint32_t handle, float x, float y, float z) {
  Turn(handle, x, y, z, Record3D(handle).rotation[3]);
  Record3D(handle).rotationMode = 0;
}

void ControllerScene::Turn(uint32_t handle, float x, float y, float z, float w) {
  Entity3DRecord& record = Record3D(handle);
  record.rotationMode = 1;
  const float numbers[4] = {x, y, z, w};
  std::copy(numbers, numbers + 4, record.rotation);
}

::testing::AssertionResult SameRest(const ReferenceStage::Rest& expected,
                                    const TransformValue& actual) {
  TransformValue copy = actual;
  if (expected.isQuaternion != copy.storedAsQuaternion) {
    return ::testing::AssertionFailure() << "stored as quaternion: " << copy.storedAsQuaternion;
  }
  ::testing::AssertionResult same =
      SameFloats(std::vector<float>(expected.position, expected.position + 3),
                 Reversed(copy.position, 3).data());
  if (same) {
    same = SameFloats(std::vector<float>(expected.scale, expected.scale + 3),
                      Reversed(copy.scale, 3).data());
  }
  if (same) {
    same = SameFloats(std::vector<float>(expected.angles, expected.angles + 3),
                      Reversed(copy.EulerAngles(), 3).data());
  }
  if (same) {
    same = SameFloats(expected.Rotation(), Reversed(copy.Quaternion(), 4).data());
  }
  return same;
}

}  // namespace nq::engine
