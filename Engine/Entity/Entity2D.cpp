// Local and published matrices of 2D entities.
#include "Engine/Entity/Entity2D.h"

#include "Common/Def/Trigonometry.h"
#include "Engine/Entity/LocalMatrixStore.h"

namespace nq::engine {

void Entity2D::BuildLocalMatrix(TransformNode* node) {
  const Entity2DRecord* record = reinterpret_cast<const Entity2DRecord*>(node->sharedRecord);
  // Kept on purpose: the angle is negated first, so that a positive rotation turns from y towards
  // x.
  const float c = cosF(-record->rotation);
  const float s = sinF(-record->rotation);
  const float sx = record->scale[0];
  const float sy = record->scale[1];
  StoreLocalMatrix(node->localMatrix, _mm_setr_ps(sx * c, sx * s, 0.0f, 0.0f),
                   _mm_setr_ps(-sy * s, sy * c, 0.0f, 0.0f), _mm_setr_ps(0.0f, 0.0f, 1.0f, 0.0f),
                   _mm_setr_ps(record->position[0], record->position[1], 0.0f, 1.0f));
}

void Entity2D::PublishWorldMatrix(TransformNode* node) {
  static constexpr int kElements[9] = {0, 1, 3, 4, 5, 7, 12, 13, 15};
  Entity2DRecord* record = reinterpret_cast<Entity2DRecord*>(node->sharedRecord);
  for (int i = 0; i < 9; ++i) {
    record->worldMatrix[i] = node->worldMatrix[kElements[i]];
  }
}

}  // namespace nq::engine
