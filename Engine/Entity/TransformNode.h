// The part of an entity that the per-frame passes touch, kept compact and apart from the rest.
#ifndef NQ_ENGINE_ENTITY_TRANSFORMNODE_H_
#define NQ_ENGINE_ENTITY_TRANSFORMNODE_H_

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace nq::engine {

class Entity;

// What a frame's passes know of an entity's world matrix.
enum DirtyState : uint32_t {
  kDirtyClean = 0,  // this entity and all below are up to date
  kDirtyBelow = 1,  // this entity is up to date, something below is not
  kDirtySelf = 2,   // this entity's world matrix and all below must be computed anew
};

// One node of the transform tree: a cache line of links and state and two of matrices. The nodes of
// a batch lie one behind the other, so a tree whose batches were created in tree order is walked
// through memory from front to back. Children form a list in the order that script set.
//
// Thread safety: links, versions and flags change on the script thread only. `dirtyState` is marked
// by worker tasks too, on ancestors that several tasks share, hence atomic; no other data is
// published by it, so relaxed order is enough. Matrices are written by one task at a time.
struct alignas(64) TransformNode {
  Entity* entity;
  TransformNode* parent;
  TransformNode* firstChild;
  TransformNode* nextSibling;
  uint8_t* sharedRecord;  // this entity's record in the batch's shared block
  uint32_t worldVersion;  // rises by 1 on every computation of worldMatrix
  uint32_t localVersion;  // without the bumps that LocalVersions has not spread yet
  uint32_t pendingBumps;  // bumps of this node and all below it that are not spread yet
  std::atomic<uint32_t> dirtyState;
  uint8_t isThreeD;
  uint8_t active;
  uint8_t hasBoundEntities;
  uint8_t visiting;  // mark of the climb that spreads versions
  uint8_t isRoot;    // stands in the root list at least once
  uint8_t unused[3];
  float localMatrix[16];  // column-major; zeros until first built
  float worldMatrix[16];  // column-major; zeros until first computed

  uint32_t DirtyState() const { return dirtyState.load(std::memory_order_relaxed); }
  void SetDirtyState(uint32_t state) { dirtyState.store(state, std::memory_order_relaxed); }

  // Marks a clean node as having work below. False if it was marked already, as 1 or as 2.
  bool MarkBelow() {
    uint32_t expected = kDirtyClean;
    return DirtyState() == kDirtyClean &&
           dirtyState.compare_exchange_strong(expected, kDirtyBelow, std::memory_order_relaxed);
  }
};
static_assert(sizeof(TransformNode) == 192, "three cache lines");
static_assert(offsetof(TransformNode, localMatrix) == 64, "links and state fill one cache line");

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_TRANSFORMNODE_H_
