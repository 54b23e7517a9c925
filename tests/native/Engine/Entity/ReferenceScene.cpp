// The model's steps, written as plainly as possible.
#include "tests/native/Engine/Entity/ReferenceScene.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace nq::engine {

namespace {

constexpr uint32_t kBytes3D = 108;
constexpr uint32_t kBytes2D = 56;

float FloatAt(const uint8_t* record, uint32_t offset) {
  float value;
  std::memcpy(&value, record + offset, 4);
  return value;
}

void SetFloatAt(uint8_t* record, uint32_t offset, float value) {
  std::memcpy(record + offset, &value, 4);
}

float Sin(float x) {
  return static_cast<float>(std::sin(static_cast<double>(x)));
}

float Cos(float x) {
  return static_cast<float>(std::cos(static_cast<double>(x)));
}

float Root(float x) {
  return static_cast<float>(std::sqrt(static_cast<double>(x)));
}

// Quaternion x, y, z, w of the rotation matrix r(row, column), by its largest component.
void QuaternionOf(const float (&r)[3][3], float* xyzw) {
  const float trace = (r[0][0] + r[1][1]) + r[2][2];
  float x, y, z, w;
  if (trace > 0.0f) {
    const float s = Root(trace + 1.0f);
    const float i = 1.0f / (2.0f * s);
    w = 0.25f * (2.0f * s);
    x = (r[2][1] - r[1][2]) * i;
    y = (r[0][2] - r[2][0]) * i;
    z = (r[1][0] - r[0][1]) * i;
  } else if (r[0][0] > r[1][1] && r[0][0] > r[2][2]) {
    const float s = Root(((r[0][0] - r[1][1]) - r[2][2]) + 1.0f);
    const float i = 1.0f / (2.0f * s);
    w = (r[2][1] - r[1][2]) * i;
    x = 0.25f * (2.0f * s);
    y = (r[0][1] + r[1][0]) * i;
    z = (r[0][2] + r[2][0]) * i;
  } else if (r[1][1] > r[2][2]) {
    const float s = Root(((r[1][1] - r[0][0]) - r[2][2]) + 1.0f);
    const float i = 1.0f / (2.0f * s);
    w = (r[0][2] - r[2][0]) * i;
    x = (r[0][1] + r[1][0]) * i;
    y = 0.25f * (2.0f * s);
    z = (r[2][1] + r[1][2]) * i;
  } else {
    const float s = Root(((r[2][2] - r[0][0]) - r[1][1]) + 1.0f);
    const float i = 1.0f / (2.0f * s);
    w = (r[1][0] - r[0][1]) * i;
    x = (r[0][2] + r[2][0]) * i;
    y = (r[2][1] + r[1][2]) * i;
    z = 0.25f * (2.0f * s);
  }
  xyzw[0] = x;
  xyzw[1] = y;
  xyzw[2] = z;
  xyzw[3] = w;
}

template <typename T>
void RemoveAll(std::vector<T>* list, T value) {
  list->erase(std::remove(list->begin(), list->end(), value), list->end());
}

}  // namespace

void ReferenceLocalMatrix3D(const uint8_t* record, float* out) {
  float column[3][3];
  if (record[0] != 0) {
    const float x = FloatAt(record, 4);
    const float y = FloatAt(record, 8);
    const float z = FloatAt(record, 12);
    const float w = FloatAt(record, 16);
    column[0][0] = 1.0f - 2.0f * (y * y + z * z);
    column[0][1] = 2.0f * (x * y + z * w);
    column[0][2] = 2.0f * (x * z - y * w);
    column[1][0] = 2.0f * (x * y - z * w);
    column[1][1] = 1.0f - 2.0f * (x * x + z * z);
    column[1][2] = 2.0f * (y * z + x * w);
    column[2][0] = 2.0f * (x * z + y * w);
    column[2][1] = 2.0f * (y * z - x * w);
    column[2][2] = 1.0f - 2.0f * (x * x + y * y);
  } else {
    const float sx = Sin(FloatAt(record, 4)), cx = Cos(FloatAt(record, 4));
    const float sy = Sin(FloatAt(record, 8)), cy = Cos(FloatAt(record, 8));
    const float sz = Sin(FloatAt(record, 12)), cz = Cos(FloatAt(record, 12));
    column[0][0] = cy * cz;
    column[0][1] = cx * sz + sx * sy * cz;
    column[0][2] = sx * sz - cx * sy * cz;
    column[1][0] = -cy * sz;
    column[1][1] = cx * cz - sx * sy * sz;
    column[1][2] = sx * cz + cx * sy * sz;
    column[2][0] = sy;
    column[2][1] = -sx * cy;
    column[2][2] = cx * cy;
  }
  for (uint32_t c = 0; c < 3; ++c) {
    const float scale = FloatAt(record, 32 + 4 * c);
    for (uint32_t r = 0; r < 3; ++r) {
      out[4 * c + r] = scale * column[c][r];
    }
    out[4 * c + 3] = 0.0f;
    out[12 + c] = FloatAt(record, 20 + 4 * c);
  }
  out[15] = 1.0f;
}

void ReferenceLocalMatrix2D(const uint8_t* record, float* out) {
  const float angle = FloatAt(record, 0);
  const float c = Cos(-angle);
  const float s = Sin(-angle);
  const float sx = FloatAt(record, 12);
  const float sy = FloatAt(record, 16);
  std::fill(out, out + 16, 0.0f);
  out[0] = sx * c;
  out[1] = sx * s;
  out[4] = -sy * s;
  out[5] = sy * c;
  out[10] = 1.0f;
  out[12] = FloatAt(record, 4);
  out[13] = FloatAt(record, 8);
  out[15] = 1.0f;
}

void ReferenceProduct(const float* a, const float* b, float* out) {
  for (int c = 0; c < 4; ++c) {
    for (int r = 0; r < 4; ++r) {
      float sum = a[r] * b[4 * c];
      sum = sum + a[4 + r] * b[4 * c + 1];
      sum = sum + a[8 + r] * b[4 * c + 2];
      sum = sum + a[12 + r] * b[4 * c + 3];
      out[4 * c + r] = sum;
    }
  }
}

void ReferenceScene::Create(uint32_t key, bool isThreeD, const std::vector<uintptr_t>& addresses) {
  ReferenceBatch& batch = batches[key];
  const uint32_t stride = isThreeD ? kBytes3D : kBytes2D;
  batch.block.resize(addresses.size() * stride);
  for (uint32_t i = 0; i < addresses.size(); ++i) {
    auto entity = std::make_unique<ReferenceEntity>();
    entity->handle = key + i;
    entity->isThreeD = isThreeD;
    entity->address = addresses[i];
    entity->record = batch.block.data() + i * stride;
    batch.entities.push_back(std::move(entity));
  }
}

void ReferenceScene::Release(uint32_t key) {
  for (const std::unique_ptr<ReferenceEntity>& entity : batches[key].entities) {
    Reset(entity.get());
    while (!entity->children.empty()) {
      Detach(entity->children.back());
    }
    RemoveAll(&roots, entity.get());
  }
  batches.erase(key);
}

ReferenceEntity* ReferenceScene::Find(uint32_t handle) {
  const auto batch = batches.find(handle & 0xFFFFF000u);
  const uint32_t element = handle & 0xFFFu;
  if (batch == batches.end() || element >= batch->second.entities.size()) {
    return nullptr;
  }
  return batch->second.entities[element].get();
}

size_t ReferenceScene::EntityCount() const {
  size_t count = 0;
  for (const auto& batch : batches) {
    count += batch.second.entities.size();
  }
  return count;
}

void ReferenceScene::Attach(ReferenceEntity* parent, ReferenceEntity* child) {
  if (child->parent == parent) {
    return;
  }
  Detach(child);
  parent->children.push_back(child);
  child->parent = parent;
  MarkDirty(child, true);
}

void ReferenceScene::InsertAt(ReferenceEntity* parent, ReferenceEntity* child, uint32_t index) {
  Detach(child);
  if (index < parent->children.size()) {
    parent->children.insert(parent->children.begin() + index, child);
  } else {
    parent->children.push_back(child);
  }
  child->parent = parent;
  MarkDirty(child, true);
}

void ReferenceScene::Detach(ReferenceEntity* entity) {
  if (entity->parent != nullptr) {
    RemoveAll(&entity->parent->children, entity);
    entity->parent = nullptr;
  }
}

void ReferenceScene::Bind(ReferenceEntity* entity, ReferenceEntity* bone) {
  if (entity->boundTo == bone) {
    return;
  }
  Unbind(entity);
  for (const ReferenceEntity* link = bone; link != nullptr; link = link->boundTo) {
    if (link == entity) {
      log += "[NQ_WARN][Engine]: Cycle Binding Detected, bind: " + std::to_string(entity->handle) +
             " to bone: " + std::to_string(bone->handle) + "\n";
      return;
    }
  }
  entity->boundTo = bone;
  bone->boundEntities[entity->address] = entity;
}

void ReferenceScene::Unbind(ReferenceEntity* entity) {
  if (entity->boundTo != nullptr) {
    entity->boundTo->boundEntities.erase(entity->address);
    entity->boundTo = nullptr;
  }
}

void ReferenceScene::Reset(ReferenceEntity* entity) {
  Unbind(entity);
  while (!entity->boundEntities.empty()) {
    Unbind(entity->boundEntities.begin()->second);
  }
  Detach(entity);
  entity->worldVersion = 0;
  entity->dirtyState = 2;
  entity->active = true;
  entity->name.clear();
}

void ReferenceScene::ResetSubtree(ReferenceEntity* entity) {
  Reset(entity);
  while (!entity->children.empty()) {
    ResetSubtree(entity->children.back());
  }
}

void ReferenceScene::MarkDirty(ReferenceEntity* entity, bool deep) {
  entity->dirtyState = 2;
  for (ReferenceEntity* link = entity->parent; link != nullptr && link->dirtyState == 0;
       link = link->parent) {
    link->dirtyState = 1;
  }
  if (deep) {
    MarkSubtree(entity);
  }
}

void ReferenceScene::MarkSubtree(ReferenceEntity* entity) {
  for (ReferenceEntity* child : entity->children) {
    if (child->dirtyState != 2) {
      child->dirtyState = 2;
      MarkSubtree(child);
    }
  }
}

void ReferenceScene::RunCommands(bool deep) {
  if (commandWords[0] == 0) {
    return;
  }
  const uint32_t end = 4 + commandWords[0];
  uint32_t position = 4;
  const auto next = [this, &position] {
    const uint32_t word = commandWords[position / 4];
    position += 4;
    return word;
  };
  while (position + 1 <= end) {
    const uint32_t command = next();
    if (command == 1) {
      ReferenceEntity* entity = Find(next());
      if (entity != nullptr && entity->parent == nullptr) {
        roots.push_back(entity);
      }
    } else if (command == 2) {
      ReferenceEntity* parent = Find(next());
      ReferenceEntity* child = Find(next());
      if (parent != nullptr && child != nullptr && parent != child &&
          parent->isThreeD == child->isThreeD) {
        Attach(parent, child);
      }
    } else if (command == 3) {
      ReferenceEntity* parent = Find(next());
      ReferenceEntity* child = Find(next());
      const uint32_t index = next();
      if (parent != nullptr && child != nullptr && parent != child) {
        InsertAt(parent, child, index);
      }
    } else if (command == 4) {
      ReferenceEntity* entity = Find(next());
      if (entity != nullptr) {
        Detach(entity);
      }
    } else if (command == 5) {
      ReferenceEntity* entity = Find(next());
      if (entity != nullptr) {
        ResetSubtree(entity);
      }
    } else if (command == 6) {
      ReferenceEntity* entity = Find(next());
      ReferenceEntity* bone = Find(next());
      if (entity != nullptr && bone != nullptr) {
        Bind(entity, bone);
      }
    } else if (command == 7) {
      const uint32_t n = next();
      for (uint32_t i = 0; i < n; ++i) {
        ReferenceEntity* entity = Find(commandWords[position / 4 + i]);
        ReferenceEntity* bone = Find(commandWords[position / 4 + n + i]);
        if (entity != nullptr && bone != nullptr) {
          Bind(entity, bone);
        }
      }
      position += n * 8;
    } else if (command == 8) {
      ReferenceEntity* entity = Find(next());
      if (entity != nullptr) {
        Unbind(entity);
      }
    } else if (command == 9) {
      const uint32_t n = next();
      for (uint32_t i = 0; i < n; ++i) {
        ReferenceEntity* entity = Find(commandWords[position / 4 + i]);
        if (entity != nullptr) {
          Unbind(entity);
        }
      }
      position += n * 4;
    } else if (command == 10) {
      ReferenceEntity* entity = Find(next());
      if (entity != nullptr && !entity->active) {
        entity->active = true;
        MarkDirty(entity, deep);
      }
    } else if (command == 11) {
      ReferenceEntity* entity = Find(next());
      if (entity != nullptr) {
        entity->active = false;
      }
    }
  }
  commandWords[0] = 0;
}

void ReferenceScene::Refresh() {
  RunCommands(false);
  Sync();
  MarkListed(false);
  dirtyWords[0] = 0;
  for (ReferenceEntity* root : roots) {
    UpdateTree(root, 0);
  }
}

void ReferenceScene::RefreshEntity(uint32_t handle) {
  ReferenceEntity* entity = Find(handle);
  if (entity == nullptr) {
    return;
  }
  RunCommands(true);
  Sync();
  MarkListed(true);
  dirtyWords[0] = 0;
  RefreshChain(entity);
}

void ReferenceScene::Sync() {
  for (uint32_t i = 1; i <= dirtyWords[0]; ++i) {
    ReferenceEntity* entity = Find(dirtyWords[i]);
    if (entity != nullptr) {
      UpdateLocal(entity);
    }
  }
  for (uint32_t i = 1; i <= dirtyWords[0]; ++i) {
    ReferenceEntity* entity = Find(dirtyWords[i]);
    if (entity != nullptr) {
      Bump(entity);
    }
  }
}

void ReferenceScene::Bump(ReferenceEntity* entity) {
  if (entity->visiting) {
    return;
  }
  ++entity->localVersion;
  entity->visiting = true;
  for (ReferenceEntity* child : entity->children) {
    Bump(child);
  }
  entity->visiting = false;
}

void ReferenceScene::MarkListed(bool deep) {
  for (uint32_t i = 1; i <= dirtyWords[0]; ++i) {
    ReferenceEntity* entity = Find(dirtyWords[i]);
    if (entity != nullptr) {
      MarkDirty(entity, deep);
    }
  }
}

void ReferenceScene::UpdateTree(ReferenceEntity* entity, size_t depth) {
  if (entity->dirtyState == 0 || !entity->active) {
    return;
  }
  if (entity->dirtyState == 2) {
    UpdateWorldSubtree(entity, depth);
    return;
  }
  entity->dirtyState = 0;
  for (ReferenceEntity* child : entity->children) {
    UpdateTree(child, depth + 1);
  }
}

void ReferenceScene::UpdateWorldSubtree(ReferenceEntity* entity, size_t depth) {
  if (!entity->active || wentRoundCycle) {
    return;
  }
  if (depth > EntityCount()) {
    wentRoundCycle = true;
    return;
  }
  entity->dirtyState = 0;
  ComputeWorld(entity);
  for (ReferenceEntity* child : entity->children) {
    UpdateWorldSubtree(child, depth + 1);
  }
}

void ReferenceScene::ComputeWorld(ReferenceEntity* entity) {
  if (entity->parent != nullptr) {
    ReferenceProduct(entity->parent->world, entity->local, entity->world);
  } else {
    std::memcpy(entity->world, entity->local, sizeof(entity->world));
  }
  ++entity->worldVersion;
  Publish(entity);
  if (!entity->boundEntities.empty() && entity->isThreeD) {
    UpdateBound(entity);
  }
}

void ReferenceScene::Publish(ReferenceEntity* entity) {
  const float* m = entity->world;
  if (entity->isThreeD) {
    std::memcpy(entity->record + 44, m, 64);
  } else {
    const float published[9] = {m[0], m[1], m[3], m[4], m[5], m[7], m[12], m[13], m[15]};
    std::memcpy(entity->record + 20, published, sizeof(published));
  }
}

void ReferenceScene::UpdateLocal(ReferenceEntity* entity) {
  if (entity->isThreeD) {
    ReferenceLocalMatrix3D(entity->record, entity->local);
  } else {
    ReferenceLocalMatrix2D(entity->record, entity->local);
  }
}

void ReferenceScene::UpdateBound(ReferenceEntity* bone) {
  std::vector<ReferenceEntity*> followers;
  for (const auto& bound : bone->boundEntities) {
    if (bound.second->isThreeD && bound.second->active) {
      followers.push_back(bound.second);
    }
  }
  if (followers.empty()) {
    return;
  }
  const float* m = bone->world;
  float position[3] = {m[12], m[13], m[14]};
  float scale[3];
  bool tooSmall = false;
  for (int c = 0; c < 3; ++c) {
    const float x = m[4 * c], y = m[4 * c + 1], z = m[4 * c + 2];
    scale[c] = Root((x * x + y * y) + z * z);
    tooSmall = tooSmall || std::fabs(scale[c]) <= 1e-7f;
  }
  float rotation[4] = {0, 0, 0, 1};
  if (tooSmall) {
    log += "[NQ_WARN][Engine]: Entity3D world transform extract failed. \n";
    std::fill(position, position + 3, 0.0f);
    std::fill(scale, scale + 3, 1.0f);
  } else {
    float r[3][3];
    for (int c = 0; c < 3; ++c) {
      for (int row = 0; row < 3; ++row) {
        r[row][c] = m[4 * c + row] / scale[c];
      }
    }
    QuaternionOf(r, rotation);
  }
  for (ReferenceEntity* follower : followers) {
    follower->record[0] = 1;
    for (uint32_t i = 0; i < 4; ++i) {
      SetFloatAt(follower->record, 4 + 4 * i, rotation[i]);
    }
    for (uint32_t i = 0; i < 3; ++i) {
      SetFloatAt(follower->record, 20 + 4 * i, position[i]);
      SetFloatAt(follower->record, 32 + 4 * i, scale[i]);
    }
    if (dirtyWords[0] != 12287) {
      dirtyWords[++dirtyWords[0]] = follower->handle;
    }
  }
}

void ReferenceScene::RefreshChain(ReferenceEntity* entity) {
  if (!entity->active || entity->dirtyState != 2) {
    return;
  }
  std::vector<ReferenceEntity*> chain = {entity};
  for (ReferenceEntity* link = entity->parent; link != nullptr; link = link->parent) {
    if (!link->active) {
      return;
    }
    if (link->dirtyState != 2) {
      break;
    }
    if (std::find(chain.begin(), chain.end(), link) != chain.end()) {
      wentRoundCycle = true;
      return;
    }
    chain.push_back(link);
  }
  for (auto link = chain.rbegin(); link != chain.rend(); ++link) {
    if ((*link)->dirtyState == 2) {
      UpdateLocal(*link);
    }
    (*link)->dirtyState = 1;
    ComputeWorld(*link);
  }
}

}  // namespace nq::engine
