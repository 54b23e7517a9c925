// A node of the transform tree in 3D.
#ifndef NQ_ENGINE_ENTITY_ENTITY3D_H_
#define NQ_ENGINE_ENTITY_ENTITY3D_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Engine/Entity/Entity.h"
#include "Engine/Entity/EntityRecord.h"

namespace nq::engine {

// An entity whose shared record is an Entity3DRecord.
class Entity3D final : public Entity {
 public:
  using Entity::Entity;

  void UpdateLocalMatrix() override;
  void PublishWorldMatrix() override;

  // Decomposes this entity's world transform into position, scale and rotation, writes them to the
  // shared records of all active 3D entities that are bound to it, and appends those to the dirty
  // list. A scale of about 0 on any axis prints "[NQ_WARN][Engine]: " and "Entity3D world transform
  // extract failed. \n", and the bound entities get position 0, scale 1 and no rotation.
  void UpdateBoundEntities() override;

  Entity3DRecord* Record() const { return reinterpret_cast<Entity3DRecord*>(sharedRecord()); }

  // The non-virtual implementations, for passes that know the kind: `local` from the record, and
  // `world` into it; 16 floats each.
  static void BuildLocalMatrix(const uint8_t* sharedRecord, float* local);

  // The same, if no other thread builds this entity's matrix at the same time.
  static void BuildOwnLocalMatrix(const uint8_t* sharedRecord, float* local);
  static void PublishWorldMatrix(const float* world, uint8_t* sharedRecord) {
    std::memcpy(sharedRecord + offsetof(Entity3DRecord, worldMatrix), world,
                sizeof(Entity3DRecord::worldMatrix));
  }
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_ENTITY3D_H_
