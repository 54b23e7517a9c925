// A transform as plain values: an entity's rest pose.
#ifndef NQ_ENGINE_ANIMATION_TRANSFORMVALUE_H_
#define NQ_ENGINE_ANIMATION_TRANSFORMVALUE_H_

#include "Common/Def/MathKernels.h"

namespace nq::engine {

class Entity;

// Vectors are in reverse order of components, the order of eulerToQuaternion's results. The default
// is the identity, with all flags true.
struct TransformValue {
  // A copy of a 3D entity's record. The rotation form that the entity does not use is zero.
  static TransformValue FromEntity(const Entity* entity);

  // Writes the record of a 3D entity, in the rotation form that was stored, builds its local matrix
  // and marks it. Euler angles leave the record's fourth rotation word unchanged.
  void WriteTo(Entity* entity) const;

  // The three angles, z, y, x. Kept on purpose: a value that holds a quaternion returns zero
  // angles, not converted ones, and keeps them from then on. Blended poses rely on these results.
  const float* EulerAngles();

  // w, z, y, x; computed from the angles if not yet done.
  const float* Quaternion() { return eulerToQuaternion(&rotation); }

  bool quaternionValid() const { return rotation.quaternionValid; }
  const float* euler() const { return rotation.euler; }            // z, y, x
  const float* quaternion() const { return rotation.quaternion; }  // w, z, y, x

  float position[3] = {0, 0, 0};        // z, y, x
  float scale[3] = {1.0f, 1.0f, 1.0f};  // z, y, x
  bool storedAsQuaternion = true;       // which form is written back to an entity
  bool eulerValid = true;
  EulerRotation rotation;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_TRANSFORMVALUE_H_
