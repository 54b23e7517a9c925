// The shared records of entities: the bytes that script and native code both see.
// Little-endian, no padding; element i of a batch starts at i * sizeof(record).
#ifndef NQ_ENGINE_ENTITY_ENTITYRECORD_H_
#define NQ_ENGINE_ENTITY_ENTITYRECORD_H_

#include <cstddef>
#include <cstdint>

namespace nq::engine {

struct Entity3DRecord {
  uint8_t rotationMode;   // 0: Euler angles in rotation[0..2]; any other value: quaternion
  uint8_t unused[3];      // neither read nor written
  float rotation[4];      // Euler x, y, z in radians, or quaternion x, y, z, w
  float position[3];      // x, y, z, in the parent's space
  float scale[3];         // x, y, z; script writes it, a fresh record reads 0
  float worldMatrix[16];  // column-major; written by native code only
};
static_assert(sizeof(Entity3DRecord) == 108, "3D shared record");
static_assert(offsetof(Entity3DRecord, rotation) == 4, "3D shared record");
static_assert(offsetof(Entity3DRecord, position) == 20, "3D shared record");
static_assert(offsetof(Entity3DRecord, scale) == 32, "3D shared record");
static_assert(offsetof(Entity3DRecord, worldMatrix) == 44, "3D shared record");

struct Entity2DRecord {
  float rotation;        // radians; a positive angle turns from y towards x
  float position[2];     // x, y, in the parent's space
  float scale[2];        // x, y; script writes it, a fresh record reads 0
  float worldMatrix[9];  // column-major 3x3; written by native code only
};
static_assert(sizeof(Entity2DRecord) == 56, "2D shared record");
static_assert(offsetof(Entity2DRecord, position) == 4, "2D shared record");
static_assert(offsetof(Entity2DRecord, scale) == 12, "2D shared record");
static_assert(offsetof(Entity2DRecord, worldMatrix) == 20, "2D shared record");

// The heap or a size class aligns blocks to at least 16 bytes, and both record sizes are multiples
// of 4: a record's floats are aligned.
static_assert(alignof(Entity3DRecord) == 4 && alignof(Entity2DRecord) == 4, "records of words");

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_ENTITYRECORD_H_
