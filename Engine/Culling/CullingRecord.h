// The shared records of culling: the bytes that script and native code both see.
// Little-endian, no padding.
#ifndef NQ_ENGINE_CULLING_CULLINGRECORD_H_
#define NQ_ENGINE_CULLING_CULLINGRECORD_H_

#include <cstddef>
#include <cstdint>

namespace nq::engine {

// An object to cull: a bounding sphere in the space of the entity that carries it. Object i of a
// batch starts at i * sizeof(record). Script writes it, native code only reads it.
struct CullingRecord {
  uint8_t enabled;    // 0: the object takes no part
  uint8_t unused[3];  // not read
  uint32_t mask;      // layer bits; an object takes part where they meet the call's
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
// nearest first, and right behind them `count` depths. The depths move with the count.
constexpr size_t kCullingResultHashOffset = 0;
constexpr size_t kCullingResultCountOffset = 4;
constexpr size_t kCullingResultObjectsOffset = 8;

// Objects that "cullingResult" has room for at the start, and spare room that growth adds.
constexpr uint32_t kCullingResultCapacity = 1000;
constexpr uint32_t kCullingResultSlack = 480;

// Bytes of "cullingResult" for a number of objects.
constexpr size_t CullingResultBytes(uint32_t capacity) {
  return size_t{8} * capacity + 8;
}
static_assert(CullingResultBytes(kCullingResultCapacity) == 8008, "size at the start");

// The list of objects to test: a count, at least 1, and that many handles. Not larger than the
// buffer.
constexpr size_t kCullingListMinBytes = 5;

}  // namespace nq::engine

#endif  // NQ_ENGINE_CULLING_CULLINGRECORD_H_
