// A transform as plain values: an entity's rest pose.
#ifndef NQ_ENGINE_ANIMATION_TRANSFORMVALUE_H_
#define NQ_ENGINE_ANIMATION_TRANSFORMVALUE_H_

#include "Common/Def/MathKernels.h"

namespace nq::engine {

class Entity;

// Vectors stand in reverse order of components, the order in which eulerToQuaternion gives its
// results. The default is the identity, with all flags true.
struct TransformValue {
  // What a 3D entity's record says. The form of rotation that the entity does not use is zero.
  static TransformValue FromEntity(const Entity* entity);

  // Writes the record of a 3D entity, in the form of rotation that was stored, builds its local
  // matrix and marks it. Angles leave the record's fourth rotation word alone.
  void WriteTo(Entity* entity) const;

  // The three angles, z, y, x.
  // Kept on purpose: a value that holds a quaternion gives zero angles, not converted ones, and
  // keeps them from then on.
  const float* EulerAngles();

  // w, z, y, x; computed from the angles where that has not been done.
  const float* Quaternion() { return eulerToQuaternion(&rotation); }

  bool quaternionValid() const { return rotation.quaternionValid; }
  const float* euler() const { return rotation.euler; }            // z, y, x
  const float* quaternion() const { return rotation.quaternion; }  // w, z, y, x

  float position[3] = {0, 0, 0};        // z, y, x
  float scale[3] = {1.0f, 1.0f, 1.0f};  // z, y, x
  bool storedAsQuaternion = true;       // which form goes back to an entity
  bool eulerValid = true;
  EulerRotation rotation;
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ANIMATION_TRANSFORMVALUE_H_
