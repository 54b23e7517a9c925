// World-space access to single entities, for peers of the binding layer.
#ifndef NQ_ENGINE_ENTITY_IENTITY_H_
#define NQ_ENGINE_ENTITY_IENTITY_H_

#include <cstdint>

#include "Common/Def/Vector3.h"

namespace nq::engine {

struct Quaternion {
  float x, y, z, w;
};

// All operations take handles and work on 3D entities only. For others, and for unknown handles,
// reads return the stated default and writes do nothing. Script thread only.
class IEntity {
 public:
  virtual ~IEntity() = default;

  // Rises whenever the entity or one of its ancestors was in the dirty list; 0 if there is none.
  virtual uint32_t getEntityVersion(uint32_t handle) = 0;

  // The name's characters, owned by the entity, valid until it is renamed or released; null if
  // there is none.
  virtual const char* getEntityName(uint32_t handle) = 0;

  // Translation of the world matrix as last computed; 0, 0, 0 if there is none.
  virtual Vector3 getWorldPosition(uint32_t handle) = 0;

  // Rotation of the world matrix as last computed, with the product of the scales that the shared
  // records of the entity and its ancestors hold now divided out; the identity if there is none.
  virtual Quaternion getWorldRotation(uint32_t handle) = 0;

  // Writes the position to the shared record: unchanged without a parent, otherwise minus the
  // parent's world position. If `immediately`, marks the entity dirty and rebuilds its local
  // matrix; otherwise the script must append it to the dirty list.
  virtual void setWorldPosition(float x, float y, float z, uint32_t handle, bool immediately) = 0;

  // Writes the rotation to the shared record, in quaternion mode: unchanged without a parent,
  // otherwise multiplied from the left by the conjugate of the rotation of the parent's world
  // matrix. `immediately` as above.
  virtual void setWorldRotation(float x, float y, float z, float w, uint32_t handle,
                                bool immediately) = 0;

  // The diagonal of the world matrix, not the lengths of its columns; 0, 0, 0 if there is none.
  virtual Vector3 getWorldScale(uint32_t handle) = 0;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_IENTITY_H_
