// A node of the transform tree in space.
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

  // Writes this entity's world transform, taken apart into position, scale and rotation, into the
  // shared records of all active 3D entities that are bound to it, and lists them as dirty. A scale
  // of about 0 on any axis prints "[NQ_WARN][Engine]: " and "Entity3D world transform extract
  // failed. \n", and the bound entities get position 0, scale 1 and no rotation.
  void UpdateBoundEntities() override;

  Entity3DRecord* Record() const { return reinterpret_cast<Entity3DRecord*>(sharedRecord()); }

  // The work of the virtual operations, for passes that know what they hold: `local` from the
  // record, and `world` into it; 16 floats each.
  static void BuildLocalMatrix(const uint8_t* sharedRecord, float* local);

  // The same where no other thread builds this entity's at the same time.
  static void BuildOwnLocalMatrix(const uint8_t* sharedRecord, float* local);
  static void PublishWorldMatrix(const float* world, uint8_t* sharedRecord) {
    std::memcpy(sharedRecord + offsetof(Entity3DRecord, worldMatrix), world,
                sizeof(Entity3DRecord::worldMatrix));
  }
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_ENTITY3D_H_
