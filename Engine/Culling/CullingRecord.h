// The shared records of culling: the bytes that the script and native code both see. Little-endian,
// no padding.
#ifndef NQ_ENGINE_CULLING_CULLINGRECORD_H_
#define NQ_ENGINE_CULLING_CULLINGRECORD_H_

#include <cstddef>
#include <cstdint>

namespace nq::engine {

// An object to cull: a bounding sphere in its entity's space. Object i of a batch starts at i *
// sizeof(record). The script writes it, native code only reads it.
struct CullingRecord {
  uint8_t enabled;    // 0: the object is disabled
  uint8_t unused[3];  // not read
  uint32_t mask;      // layer bits; the object takes part if they overlap the call's mask
  float center[3];    // x, y, z, in the entity's space
  float radius;       // in the entity's space
  uint32_t entity;    // handle of the entity
};
static_assert(sizeof(CullingRecord) == 28, "culling record");
static_assert(offsetof(CullingRecord, mask) == 4, "culling record");
static_assert(offsetof(CullingRecord, center) == 8, "culling record");
static_assert(offsetof(CullingRecord, radius) == 20, "culling record");
static_assert(offsetof(CullingRecord, entity) == 24, "culling record");

// "cullingResult": hash and count of the last result that was not empty, then `count` handles,
// nearest first, and immediately after them `count` depths. So the offset of the depths depends on
// the count.
constexpr size_t kCullingResultHashOffset = 0;
constexpr size_t kCullingResultCountOffset = 4;
constexpr size_t kCullingResultObjectsOffset = 8;

// Initial capacity of "cullingResult" in objects, and the slack that growth adds.
constexpr uint32_t kCullingResultCapacity = 1000;
constexpr uint32_t kCullingResultSlack = 480;

// Size of "cullingResult" in bytes for a number of objects.
constexpr size_t CullingResultBytes(uint32_t capacity) {
  return size_t{8} * capacity + 8;
}
static_assert(CullingResultBytes(kCullingResultCapacity) == 8008, "size at the start");

// The list of objects to test: a count, at least 1, and that many handles. It must fit in the
// buffer.
constexpr size_t kCullingListMinBytes = 5;

}  // namespace nq::engine

#endif  // NQ_ENGINE_CULLING_CULLINGRECORD_H_
