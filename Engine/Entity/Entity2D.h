// A node of the transform tree in the plane.
#ifndef NQ_ENGINE_ENTITY_ENTITY2D_H_
#define NQ_ENGINE_ENTITY_ENTITY2D_H_

#include "Engine/Entity/Entity.h"
#include "Engine/Entity/EntityRecord.h"

namespace nq::engine {

// An entity whose shared record is an Entity2DRecord. What is bound to it does not follow it.
class Entity2D final : public Entity {
 public:
  Entity2D(EntitySystem* system, TransformNode* node, uint32_t handle, uint8_t* sharedRecord)
      : Entity(system, node, handle, sharedRecord, false) {}

  void UpdateLocalMatrix() override { BuildLocalMatrix(node); }
  void PublishWorldMatrix() override { PublishWorldMatrix(node); }

  Entity2DRecord* Record() const { return reinterpret_cast<Entity2DRecord*>(node->sharedRecord); }

  // The work of the virtual operations, for passes that know what they hold.
  static void BuildLocalMatrix(TransformNode* node);
  static void PublishWorldMatrix(TransformNode* node);
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_ENTITY2D_H_
