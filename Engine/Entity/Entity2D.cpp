// Local and published matrices of 2D entities.
#include "Engine/Entity/Entity2D.h"

#include "Common/Def/FastTrigonometry.h"
#include "Engine/Entity/LocalMatrixStore.h"

namespace nq::engine {

void Entity2D::UpdateLocalMatrix() {
  BuildLocalMatrix(sharedRecord(), tree->LocalMatrix(handle));
}

void Entity2D::PublishWorldMatrix() {
  PublishWorldMatrix(tree->WorldMatrix(handle), sharedRecord());
}

void Entity2D::BuildLocalMatrix(const uint8_t* sharedRecord, float* local) {
  const Entity2DRecord* record = reinterpret_cast<const Entity2DRecord*>(sharedRecord);
  // Kept on purpose: the angle is negated first, so that a positive rotation turns from y towards
  // x. Scenes are authored with this direction.
  const auto [s, c] = sinCosF(-record->rotation);
  const float sx = record->scale[0];
  const float sy = record->scale[1];
  StoreLocalMatrix(local, _mm_setr_ps(sx * c, sx * s, 0.0f, 0.0f),
                   _mm_setr_ps(-sy * s, sy * c, 0.0f, 0.0f), _mm_setr_ps(0.0f, 0.0f, 1.0f, 0.0f),
                   _mm_setr_ps(record->position[0], record->position[1], 0.0f, 1.0f));
}

void Entity2D::PublishWorldMatrix(const float* world, uint8_t* sharedRecord) {
  static constexpr int kElements[9] = {0, 1, 3, 4, 5, 7, 12, 13, 15};
  Entity2DRecord* record = reinterpret_cast<Entity2DRecord*>(sharedRecord);
  for (int i = 0; i < 9; ++i) {
    record->worldMatrix[i] = world[kElements[i]];
  }
}

}  // namespace nq::engine
