// Local versions of entities: who was touched, or stands below somebody who was.
#ifndef NQ_ENGINE_ENTITY_LOCALVERSIONS_H_
#define NQ_ENGINE_ENTITY_LOCALVERSIONS_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Engine/Entity/TransformTree.h"

namespace nq::engine {

// Each entry of the dirty list raises the local version of its entity and of all below it. A walk
// of the subtree per entry would make a frame quadratic, so a bump is only noted here, and spread
// when somebody asks for a version or the links are about to change. One pass then settles any
// number of bumps, and visits an entity once.
//
// Script thread only.
class LocalVersions {
 public:
  explicit LocalVersions(const TransformTree* tree) : tree(tree) {}

  // Raises the version of `handle`'s entity and of all below it by 1.
  void Bump(uint32_t handle) {
    // Touches nothing of the entity: a frame's entries are spread over memory that no cache holds.
    noted.push_back(handle);
    if (noted.size() == kMaxNoted) {
      Gather();
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
    if (!noted.empty() || !pending.empty()) {
      SpreadAll();
    }
  }

 private:
  // Bumps that are noted before they are gathered: as many as two full dirty lists and some.
  static constexpr size_t kMaxNoted = 32768;

  void Gather();
  void SpreadAll();
  void GatherCycle(uint32_t onCycle);
  uint32_t TopmostPending(uint32_t from);
  void Spread(uint32_t top);

  const TransformTree* const tree;
  std::vector<uint32_t> noted;    // a handle for each bump that is not yet in LocalVersion::pending
  std::vector<uint32_t> pending;  // handles of entities with pending bumps, each once
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_LOCALVERSIONS_H_
