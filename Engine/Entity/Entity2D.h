// A node of the transform tree in 2D.
#ifndef NQ_ENGINE_ENTITY_ENTITY2D_H_
#define NQ_ENGINE_ENTITY_ENTITY2D_H_

#include "Engine/Entity/Entity.h"
#include "Engine/Entity/EntityRecord.h"

namespace nq::engine {

// An entity whose shared record is an Entity2DRecord. Entities bound to it do not follow it.
class Entity2D final : public Entity {
 public:
  using Entity::Entity;

  void UpdateLocalMatrix() override;
  void PublishWorldMatrix() override;

  Entity2DRecord* Record() const { return reinterpret_cast<Entity2DRecord*>(sharedRecord()); }

  // The non-virtual implementations, for passes that know the kind: `local` from the record, and
  // `world` into it; 16 floats each.
  static void BuildLocalMatrix(const uint8_t* sharedRecord, float* local);
  static void PublishWorldMatrix(const float* world, uint8_t* sharedRecord);
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_ENTITY2D_H_
