// Snapshots of entities, and writing them back.
#include "Engine/Animation/TransformValue.h"

#include <algorithm>

#include "Engine/Entity/Entity.h"
#include "Engine/Entity/EntityRecord.h"

namespace nq::engine {

TransformValue TransformValue::FromEntity(const Entity* entity) {
  const Entity3DRecord& record = *reinterpret_cast<const Entity3DRecord*>(entity->sharedRecord());
  TransformValue value;
  std::reverse_copy(record.position, record.position + 3, value.position);
  std::reverse_copy(record.scale, record.scale + 3, value.scale);
  const bool isQuaternion = record.rotationMode != 0;
  value.storedAsQuaternion = isQuaternion;
  value.eulerValid = !isQuaternion;
  value.rotation = EulerRotation{isQuaternion, {0, 0, 0}, {0, 0, 0, 0}};
  if (isQuaternion) {
    std::reverse_copy(record.rotation, record.rotation + 4, value.rotation.quaternion);
  } else {
    std::reverse_copy(record.rotation, record.rotation + 3, value.rotation.euler);
  }
  return value;
}

void TransformValue::WriteTo(Entity* entity) const {
  Entity3DRecord* record = reinterpret_cast<Entity3DRecord*>(entity->sharedRecord());
  std::reverse_copy(position, position + 3, record->position);
  std::reverse_copy(scale, scale + 3, record->scale);
  record->rotationMode = storedAsQuaternion ? 1 : 0;
  if (storedAsQuaternion) {
    std::reverse_copy(rotation.quaternion, rotation.quaternion + 4, record->rotation);
  } else {
    std::reverse_copy(rotation.euler, rotation.euler + 3, record->rotation);
  }
  entity->UpdateLocalMatrix();
  entity->PropagateMarkDirty(false);
}

const float* TransformValue::EulerAngles() {
  if (!eulerValid) {
    eulerValid = true;
    std::fill(rotation.euler, rotation.euler + 3, 0.0f);
  }
  return rotation.euler;
}

}  // namespace nq::engine
