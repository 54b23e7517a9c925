// Local versions of entities: who was touched, or stands below somebody who was.
#ifndef NQ_ENGINE_ENTITY_LOCALVERSIONS_H_
#define NQ_ENGINE_ENTITY_LOCALVERSIONS_H_

#include <cstdint>
#include <vector>

#include "Engine/Entity/TransformTree.h"

namespace nq::engine {

// Each entry of the dirty list raises the local version of its entity and of all below it. A walk
// of the subtree per entry would make a frame quadratic, so a bump is only counted here, and spread
// when somebody asks for a version or the links are about to change. One pass then settles any
// number of bumps, and visits an entity once.
//
// Bumps are counted in a byte beside the links, which who bumps mostly marks too, so that they
// touch no memory of their own; what does not fit goes to LocalVersion::pending.
//
// Script thread only.
class LocalVersions {
 public:
  explicit LocalVersions(const TransformTree* tree) : tree(tree) {}

  // Raises the version of `handle`'s entity and of all below it by 1.
  void Bump(uint32_t handle) {
    uint8_t& recent = tree->Links(handle).recentBumps;
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

  // Spreads all bumps. Must be called before a link changes or an entity goes, since a bump is
  // meant for the tree as it was.
  void Settle() {
    if (!bumped.empty()) {
      SpreadAll();
    }
  }

 private:
  // Where a count of recent bumps is back at 0.
  static constexpr uint32_t kRecentLimit = 256;

  void Gather();
  void SpreadAll();
  void GatherCycle(uint32_t onCycle);
  uint32_t TopmostPending(uint32_t from);
  void Spread(uint32_t top);

  const TransformTree* const tree;
  std::vector<uint32_t> bumped;  // handles of entities with bumps to spread, each once
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_LOCALVERSIONS_H_
