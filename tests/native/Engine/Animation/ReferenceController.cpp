// The model's steps, written as plainly as possible.
#include "tests/native/Engine/Animation/ReferenceController.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "tests/native/Engine/Entity/ReferenceScene.h"

namespace nq::engine {

namespace {

constexpr uint32_t kNobody = 0xFFFFFFFFu;

float Rounded(double value) {
  return static_cast<float>(value);
}

float FloatAt(const std::vector<uint8_t>& record, size_t offset) {
  float value;
  std::memcpy(&value, &record[offset], 4);
  return value;
}

void StoreFloat(std::vector<uint8_t>* record, size_t offset, float value) {
  std::memcpy(&(*record)[offset], &value, 4);
}

float Dot(const float* a, const float* b) {
  float sum = a[0] * b[0];
  for (int i = 1; i < 4; ++i) {
    const float term = a[i] * b[i];
    sum = sum + term;
  }
  return sum;
}

void Normalise(float* q) {
  const float length = Rounded(std::sqrt(static_cast<double>(Dot(q, q))));
  const float reciprocal = 1.0f / length;
  for (int i = 0; i < 4; ++i) {
    q[i] = q[i] * reciprocal;
  }
}

// sum += q * w, with q in the hemisphere of the sum.
void AddRotation(float* sum, const float* q, float w) {
  const float signedWeight = Dot(sum, q) < 0.0f ? -w : w;
  for (int i = 0; i < 4; ++i) {
    const float part = q[i] * signedWeight;
    sum[i] = sum[i] + part;
  }
}

std::vector<float> OfAngles(const float* angles) {
  float s[3];
  float c[3];
  for (int i = 0; i < 3; ++i) {
    const float half = angles[i] * 0.5f;
    s[i] = Rounded(std::sin(static_cast<double>(half)));
    c[i] = Rounded(std::cos(static_cast<double>(half)));
  }
  const float w = (c[0] * c[1]) * c[2] + (s[0] * s[1]) * s[2];
  const float x = (s[0] * c[1]) * c[2] + (c[0] * s[1]) * s[2];
  const float y = (c[0] * s[1]) * c[2] - (s[0] * c[1]) * s[2];
  const float z = (c[0] * c[1]) * s[2] - (s[0] * s[1]) * c[2];
  return {x, y, z, w};
}

void Touch(float* weight) {
  if (std::isnan(*weight)) {
    *weight = 0.0f;
  }
}

ReferenceStage::Pose Fresh() {
  ReferenceStage::Pose pose;
  const float none = std::numeric_limits<float>::quiet_NaN();
  std::fill(pose.value, pose.value + 6, 0.0f);
  std::fill(pose.weight, pose.weight + 6, none);
  std::fill(pose.rotation, pose.rotation + 4, 0.0f);
  pose.rotationWeight = none;
  return pose;
}

ReferenceStage::Pose* EntryOf(ReferenceStage::Poses* poses, uint32_t handle) {
  return &poses->emplace(handle, Fresh()).first->second;
}

}  // namespace

std::vector<float> ReferenceStage::Rest::Rotation() const {
  return isQuaternion ? std::vector<float>(quaternion, quaternion + 4) : OfAngles(angles);
}

const ReferenceClip* ReferenceStage::Clip(uint32_t handle) const {
  const auto found = clips.find(handle & 0xFFFFF000u);
  return found == clips.end() ? nullptr : &found->second;
}

const ReferenceStage::State* ReferenceStage::FindState(uint32_t handle) const {
  const auto found = states.find(handle & 0xFFFFF000u);
  return found == states.end() ? nullptr : &found->second;
}

bool ReferenceStage::Is3D(uint32_t handle) const {
  const auto found = entities.find(handle);
  return found != entities.end() && found->second.isThreeD;
}

ReferenceStage::Rest ReferenceStage::Snapshot(const Entity& entity) {
  Rest rest;
  for (size_t i = 0; i < 3; ++i) {
    rest.position[i] = FloatAt(entity.record, 20 + 4 * i);
    rest.scale[i] = FloatAt(entity.record, 32 + 4 * i);
  }
  rest.isQuaternion = entity.record[0] != 0;
  for (size_t i = 0; i < 4; ++i) {
    rest.quaternion[i] = rest.isQuaternion ? FloatAt(entity.record, 4 + 4 * i) : 0.0f;
  }
  for (size_t i = 0; i < 3; ++i) {
    rest.angles[i] = rest.isQuaternion ? 0.0f : FloatAt(entity.record, 4 + 4 * i);
  }
  return rest;
}

bool ReferenceStage::Parse(Binding* binding, const std::vector<uint32_t>& words, uint32_t clipCount,
                           std::set<uint32_t>* resolved) {
  std::map<uint32_t, std::vector<uint32_t>> lists;
  size_t cursor = 0;
  for (uint32_t i = 0; i < clipCount; ++i) {
    if (Clip(words.at(i)) == nullptr || cursor + 1 > binding->targetWords) {
      return false;
    }
    const uint32_t n = words.at(clipCount + cursor);
    cursor = cursor + 1;
    std::vector<uint32_t> list;
    for (uint32_t k = 1; k <= n; ++k) {
      const uint32_t word = words.at(clipCount + cursor);
      if (word != kNobody && Is3D(word)) {
        list.push_back(word);
        resolved->insert(word);
      } else {
        list.push_back(kNobody);
      }
      cursor = cursor + 1;
      if (k != n && cursor > binding->targetWords) {
        return false;
      }
    }
    lists.insert({words.at(i), list});
  }
  binding->lists = lists;
  binding->root = Top(*binding);
  return true;
}

uint32_t ReferenceStage::Top(const Binding& binding) const {
  for (const auto& [clip, list] : binding.lists) {
    if (!list.empty()) {
      if (entities.count(list[0]) == 0) {
        return 0;
      }
      uint32_t top = list[0];
      while (entities.at(top).parent != 0 && Is3D(entities.at(top).parent)) {
        top = entities.at(top).parent;
      }
      return top;
    }
  }
  return 0;
}

uint32_t ReferenceStage::Bind(uint32_t handle, const std::vector<uint32_t>& words,
                              uint32_t clipCount, uint32_t targetWords, uint32_t mode) {
  Binding* binding = &bindings[handle];
  binding->targetWords = targetWords;
  std::set<uint32_t> resolved;
  if (Parse(binding, words, clipCount, &resolved) && mode == 1) {
    for (const uint32_t entity : resolved) {
      binding->defaults[entity] = Snapshot(entities.at(entity));
    }
  }
  return handle;
}

bool ReferenceStage::Rebind(uint32_t handle, const std::vector<uint32_t>& words, uint32_t clipCount,
                            uint32_t removedMode, uint32_t keptMode, uint32_t addedMode) {
  Binding* binding = &bindings.at(handle);
  std::set<uint32_t> resolved;
  if (!Parse(binding, words, clipCount, &resolved)) {
    return false;
  }
  const Rests old = binding->defaults;
  Rests* defaults = &binding->defaults;
  defaults->clear();
  std::vector<uint32_t> kept;
  std::vector<uint32_t> added;
  std::vector<uint32_t> removed;
  for (const uint32_t entity : resolved) {
    (old.count(entity) != 0 ? kept : added).push_back(entity);
  }
  for (const auto& [entity, rest] : old) {
    if (resolved.count(entity) == 0 && Is3D(entity)) {
      removed.push_back(entity);
    }
  }
  const bool removedBack = (removedMode / 2) % 2 == 1;
  const bool keptBack = (keptMode / 2) % 2 == 1;
  const uint32_t removedRest = removedBack ? removedMode - 2 : removedMode;
  const uint32_t keptRest = keptBack ? keptMode - 2 : keptMode;
  if (removedBack) {
    for (const uint32_t entity : removed) {
      Write(old.at(entity), entity);
    }
  }
  if (removedRest == 0) {
    for (const uint32_t entity : removed) {
      (*defaults)[entity] = old.at(entity);
    }
  }
  if (keptRest == 1) {
    for (const uint32_t entity : kept) {
      (*defaults)[entity] = Snapshot(entities.at(entity));
    }
  }
  if (keptBack) {
    for (const uint32_t entity : kept) {
      Write(old.at(entity), entity);
    }
  }
  if (keptRest == 0) {
    for (const uint32_t entity : kept) {
      (*defaults)[entity] = old.at(entity);
    }
  }
  if (addedMode == 1) {
    for (const uint32_t entity : added) {
      (*defaults)[entity] = Snapshot(entities.at(entity));
    }
  }
  return true;
}

void ReferenceStage::WriteDefaults(uint32_t handle) {
  for (const auto& [entity, rest] : bindings.at(handle).defaults) {
    if (Is3D(entity)) {
      Write(rest, entity);
    }
  }
}

uint32_t ReferenceStage::FindTarget(const Binding& binding, uint32_t clip, uint32_t index) const {
  const auto found = binding.lists.find(clip);
  if (Clip(clip) == nullptr || found == binding.lists.end() || index >= found->second.size() ||
      !Is3D(found->second[index])) {
    return 0;
  }
  return found->second[index];
}

void ReferenceStage::Released(uint32_t key) {
  for (auto entity = entities.begin(); entity != entities.end();) {
    entity = (entity->first & 0xFFFFF000u) == key ? entities.erase(entity) : std::next(entity);
  }
  for (auto& [handle, binding] : bindings) {
    if ((binding.root & 0xFFFFF000u) == key) {
      binding.root = 0;
    }
  }
}

std::vector<float> ReferenceStage::RotationOf(const ReferenceSample& sample, bool fill,
                                              const Rest& rest) {
  const float* c = sample.channel;
  if (sample.isQuaternion) {
    for (int i = 6; i < 10; ++i) {
      if (std::isnan(c[i])) {
        return {};
      }
    }
    return {c[6], c[7], c[8], c[9]};
  }
  const bool missing[3] = {std::isnan(c[6]), std::isnan(c[7]), std::isnan(c[8])};
  if (!missing[0] && !missing[1] && !missing[2]) {
    return OfAngles(c + 6);
  }
  if (!fill) {
    return {};
  }
  if (missing[0] && missing[1] && missing[2]) {
    return rest.Rotation();
  }
  float angles[3];
  for (int i = 0; i < 3; ++i) {
    const float resting = rest.isQuaternion ? 0.0f : rest.angles[i];
    angles[i] = missing[i] ? resting : c[6 + i];
  }
  return OfAngles(angles);
}

std::vector<float> ReferenceStage::Product(const std::vector<float>& a,
                                           const std::vector<float>& b) {
  const float ax = a[0], ay = a[1], az = a[2], aw = a[3];
  const float bx = b[0], by = b[1], bz = b[2], bw = b[3];
  return {((aw * bx + ax * bw) + ay * bz) - az * by, ((aw * by + ay * bw) + az * bx) - ax * bz,
          ((aw * bz + az * bw) + ax * by) - ay * bx, ((aw * bw - ax * bx) - ay * by) - az * bz};
}

ReferenceStage::Poses ReferenceStage::EvaluateState(const Binding& binding, const State& state,
                                                    bool additive, const Mask& mask) const {
  Poses result;
  const bool fill = !(state.fill == 0.0f);
  for (const Entry& entry : state.entries) {
    if (entry.weight == 0.0f || binding.lists.count(entry.clip) == 0 ||
        Clip(entry.clip) == nullptr) {
      continue;
    }
    const ReferenceSamples samples = Clip(entry.clip)->SampleAtTime(entry.time);
    std::map<uint32_t, ReferenceSample> references;
    if (additive) {
      uint32_t clip = entry.clip;
      float time = 0.0f;
      if (binding.lists.count(entry.referenceClip) != 0) {
        clip = entry.referenceClip;
        time = entry.referenceTime;
      }
      if (Clip(clip) != nullptr) {
        const std::vector<uint32_t>& list = binding.lists.at(clip);
        for (const auto& [index, sample] : Clip(clip)->SampleAtTime(time)) {
          if (index < list.size() && Is3D(list[index])) {
            references.insert({list[index], sample});
          }
        }
      }
    }
    for (const auto& [index, original] : samples) {
      ReferenceSample sample = original;
      const uint32_t h = FindTarget(binding, entry.clip, index);
      if (h == 0) {
        continue;
      }
      float m = 1.0f;
      const auto masked = mask.find(h);
      if (masked != mask.end()) {
        m = masked->second;
      }
      const auto rest = binding.defaults.find(h);
      if (m == 0.0f || rest == binding.defaults.end()) {
        continue;
      }
      std::vector<float> q = RotationOf(sample, fill, rest->second);
      if (additive) {
        const auto reference = references.find(h);
        if (reference == references.end()) {
          continue;
        }
        const std::vector<float> r = RotationOf(reference->second, fill, rest->second);
        for (int c = 0; c < 6; ++c) {
          if (!std::isnan(sample.channel[c]) && !std::isnan(reference->second.channel[c])) {
            sample.channel[c] = sample.channel[c] - reference->second.channel[c];
          }
        }
        if (!q.empty() && !r.empty()) {
          q = Product(q, {-r[0], -r[1], -r[2], r[3]});
        }
      }
      Pose* sum = EntryOf(&result, h);
      const float w = m * entry.weight;
      for (int c = 0; c < 6; ++c) {
        if (!std::isnan(sample.channel[c])) {
          Touch(&sum->weight[c]);
          const float part = sample.channel[c] * w;
          sum->value[c] = sum->value[c] + part;
          sum->weight[c] = sum->weight[c] + w;
        }
      }
      if (!q.empty()) {
        Touch(&sum->rotationWeight);
        sum->rotationWeight = sum->rotationWeight + w;
        AddRotation(sum->rotation, q.data(), w);
      }
    }
  }
  if (fill && !additive) {
    for (const auto& [h, rest] : binding.defaults) {
      const auto masked = mask.find(h);
      if (result.count(h) == 0 && !(masked != mask.end() && masked->second == 0.0f)) {
        Pose nothing;
        std::memset(&nothing, 0, sizeof(nothing));
        result.insert({h, nothing});
      }
    }
  }
  return result;
}

ReferenceStage::Poses ReferenceStage::EvaluateLayer(const Layer& layer, const Mask& mask,
                                                    Binding* binding) const {
  Poses result;
  if (layer.blendMode >= 2 || layer.firstState == kNobody) {
    return result;
  }
  const bool additive = layer.blendMode == 1;
  std::vector<const State*> listed;
  for (const State* state = FindState(layer.firstState); state != nullptr;
       state = FindState(state->next)) {
    if (state->weight != 0.0f) {
      listed.push_back(state);
    }
  }
  for (const State* state : listed) {
    const float s = state->weight;
    for (const auto& [h, pose] : EvaluateState(*binding, *state, additive, mask)) {
      Pose* sum = EntryOf(&result, h);
      for (int c = 0; c < 6; ++c) {
        if (!std::isnan(pose.weight[c]) && pose.weight[c] != 0.0f) {
          Touch(&sum->weight[c]);
          const float value = pose.value[c] * s;
          const float weight = pose.weight[c] * s;
          sum->value[c] = sum->value[c] + value;
          sum->weight[c] = sum->weight[c] + weight;
        }
      }
      if (!std::isnan(pose.rotationWeight) && pose.rotationWeight != 0.0f) {
        Touch(&sum->rotationWeight);
        const float c = pose.rotationWeight * s;
        AddRotation(sum->rotation, pose.rotation, c);
        sum->rotationWeight = sum->rotationWeight + c;
      }
    }
  }
  for (auto& [h, pose] : result) {
    const bool hasRotation = !std::isnan(pose.rotationWeight);
    if (additive) {
      if (hasRotation) {
        for (int i = 0; i < 3; ++i) {
          pose.rotation[i] = pose.rotation[i] * pose.rotationWeight;
        }
        Normalise(pose.rotation);
      }
      continue;
    }
    for (int c = 0; c < 6; ++c) {
      if (1.0f > pose.weight[c]) {
        const Rest& rest = binding->defaults[ReferenceTruncate(pose.value[c])];
        const float share = 1.0f - pose.weight[c];
        const float part = share * rest.Channel(c);
        pose.value[c] = pose.value[c] + part;
      }
    }
    if (hasRotation) {
      if (1.0f > pose.rotationWeight) {
        const std::vector<float> qd =
            binding->defaults[ReferenceTruncate(pose.value[5])].Rotation();
        AddRotation(pose.rotation, qd.data(), 1.0f - pose.rotationWeight);
      }
      Normalise(pose.rotation);
    }
  }
  return result;
}

void ReferenceStage::Merge(size_t index, const Layer& layer, const Poses& poses, Rests* defaults,
                           Poses* merged) {
  const float W = layer.weight;
  const bool additive = layer.blendMode == 1;
  const bool isPart = !additive && W < 1.0f;
  for (const auto& [h, pose] : poses) {
    Pose* sum = EntryOf(merged, h);
    const Rest& rest = (*defaults)[h];
    const std::vector<float> qd = rest.Rotation();
    for (int c = 0; c < 6; ++c) {
      if (std::isnan(pose.weight[c])) {
        continue;
      }
      Touch(&sum->weight[c]);
      const float own = pose.value[c] * W;
      const float left = rest.Channel(c) * (1.0f - W);
      if (isPart) {
        sum->value[c] = own + left;
      } else if (!additive) {
        sum->value[c] = own;
      } else if (index == 0) {
        sum->value[c] = own + (c < 3 ? rest.Channel(c) : left);
      } else {
        sum->value[c] = sum->value[c] + own;
      }
    }
    if (std::isnan(pose.rotationWeight)) {
      continue;
    }
    const bool wasSet = !std::isnan(sum->rotationWeight);
    Touch(&sum->rotationWeight);
    std::vector<float> delta = {pose.rotation[0] * W, pose.rotation[1] * W, pose.rotation[2] * W,
                                pose.rotation[3]};
    Normalise(delta.data());
    std::vector<float> rotation = delta;
    if (isPart) {
      const float side = Dot(pose.rotation, qd.data()) >= 0.0f ? 1.0f : -1.0f;
      for (size_t i = 0; i < 4; ++i) {
        const float way = side * pose.rotation[i] - qd[i];
        const float part = way * W;
        rotation[i] = qd[i] + part;
      }
      Normalise(rotation.data());
    } else if (additive) {
      const bool fromRest = index == 0 || !wasSet;
      rotation =
          Product(delta, fromRest ? qd : std::vector<float>(sum->rotation, sum->rotation + 4));
    }
    std::copy(rotation.begin(), rotation.end(), sum->rotation);
  }
}

void ReferenceStage::Update(uint32_t handle) {
  const Controller& controller = controllers.at(handle);
  const auto found = bindings.find(controller.binding & 0xFFFFF000u);
  if (controller.binding == kNobody || found == bindings.end()) {
    return;
  }
  Binding* binding = &found->second;
  std::vector<Poses> layerPoses;
  for (size_t i = 0; i < controller.layers.size(); ++i) {
    layerPoses.push_back(EvaluateLayer(controller.layers[i], controller.masks[i], binding));
  }
  Poses merged;
  for (size_t i = 0; i < controller.layers.size(); ++i) {
    Merge(i, controller.layers[i], layerPoses[i], &binding->defaults, &merged);
  }
  for (const auto& [h, pose] : merged) {
    if (!Is3D(h)) {
      continue;
    }
    std::vector<uint8_t>* record = &entities.at(h).record;
    for (size_t c = 0; c < 6; ++c) {
      if (!std::isnan(pose.weight[c])) {
        StoreFloat(record, 20 + 4 * c, pose.value[c]);
      }
    }
    if (!std::isnan(pose.rotationWeight)) {
      for (size_t i = 0; i < 4; ++i) {
        StoreFloat(record, 4 + 4 * i, pose.rotation[i]);
      }
      (*record)[0] = 1;
    }
    Rebuild(h);
  }
}

void ReferenceStage::UpdateAtOnce(uint32_t handle) {
  Update(handle);
  const auto found = bindings.find(controllers.at(handle).binding & 0xFFFFF000u);
  if (found != bindings.end() && found->second.root != 0 &&
      !entities.at(found->second.root).isRoot) {
    ClearMarks(found->second.root, false);
  }
}

void ReferenceStage::Write(const Rest& rest, uint32_t handle) {
  std::vector<uint8_t>* record = &entities.at(handle).record;
  for (size_t i = 0; i < 3; ++i) {
    StoreFloat(record, 20 + 4 * i, rest.position[i]);
    StoreFloat(record, 32 + 4 * i, rest.scale[i]);
  }
  (*record)[0] = rest.isQuaternion ? 1 : 0;
  const size_t count = rest.isQuaternion ? 4 : 3;
  for (size_t i = 0; i < count; ++i) {
    StoreFloat(record, 4 + 4 * i, rest.isQuaternion ? rest.quaternion[i] : rest.angles[i]);
  }
  Rebuild(handle);
}

// Builds the local matrix, and marks the entity and its ancestors.
void ReferenceStage::Rebuild(uint32_t handle) {
  Entity* entity = &entities.at(handle);
  rebuilt.insert(handle);
  ReferenceLocalMatrix3D(entity->record.data(), entity->local);
  entity->mark = 2;
  for (uint32_t above = entity->parent; above != 0; above = entities.at(above).parent) {
    if (entities.at(above).mark != 0) {
      return;
    }
    entities.at(above).mark = 1;
  }
}

// Clears marks like a walk; of all descendants, if `all`.
void ReferenceStage::ClearMarks(uint32_t handle, bool all) {
  Entity* entity = &entities.at(handle);
  if (!all && entity->mark == 0) {
    return;
  }
  const bool below = all || entity->mark == 2;
  entity->mark = 0;
  for (const auto& [child, other] : entities) {
    if (other.parent == handle) {
      ClearMarks(child, below);
    }
  }
}

}  // namespace nq::engine
