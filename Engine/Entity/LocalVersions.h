// Local versions of entities: counters of changes to an entity or one of its ancestors.
#ifndef NQ_ENGINE_ENTITY_LOCALVERSIONS_H_
#define NQ_ENGINE_ENTITY_LOCALVERSIONS_H_

#include <cstdint>
#include <vector>

#include "Engine/Entity/TransformTree.h"

namespace nq::engine {

// Each entry of the dirty list raises the local version of its entity and of all its descendants.
// Walking the subtree for each entry would make a frame quadratic. So a bump is only counted here,
// and spread lazily: when a version is read or links are about to change. One pass then spreads any
// number of bumps, and visits each entity once.
//
// Bumps are counted in a byte beside the links, which the caller mostly marks too, so that they
// touch no cache line of their own; a count that overflows moves to LocalVersion::pending.
//
// Script thread only.
class LocalVersions {
 public:
  explicit LocalVersions(const TransformTree* tree) : tree(tree) {}

  // Raises the version of `handle`'s entity and of all its descendants by 1.
  void Bump(uint32_t handle) { Bump(handle, &tree->Links(handle)); }

  // The same for a caller that has the entity's links.
  void Bump(uint32_t handle, TransformLinks* links) {
    uint8_t& recent = links->recentBumps;
    if (recent == 0 && tree->Version(handle).pending == 0) {
      bumped.push_back(handle);
    }
    ++recent;
    if (recent == 0) {
      tree->Version(handle).pending += kRecentLimit;
    }
  }

  // The version of `handle`'s entity.
  uint32_t Version(uint32_t handle) {
    Settle();
    return tree->Version(handle).settled;
  }

  // Spreads all bumps. Must be called before a link changes or an entity is released, since a bump
  // refers to the tree as it was.
  void Settle() {
    if (!bumped.empty()) {
      SpreadAll();
    }
  }

 private:
  // Where the byte of recent bumps wraps to 0.
  static constexpr uint32_t kRecentLimit = 256;

  void Gather();
  void SpreadAll();
  void GatherCycle(uint32_t onCycle);
  uint32_t TopmostPending(uint32_t from);
  void Spread(uint32_t top);

  const TransformTree* const tree;
  std::vector<uint32_t> bumped;  // handles of entities with pending bumps, unique
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_LOCALVERSIONS_H_
