// Local versions of entities: who was touched, or stands below somebody who was.
#ifndef NQ_ENGINE_ENTITY_LOCALVERSIONS_H_
#define NQ_ENGINE_ENTITY_LOCALVERSIONS_H_

#include <cstdint>
#include <vector>

#include "Engine/Entity/TransformTree.h"

namespace nq::engine {

// Each entry of the dirty list raises the local version of its entity and of all below it. A walk
// of the subtree per entry would make a frame quadratic, so a bump is only noted here, on the node
// it was meant for, and spread when somebody asks for a version or the links are about to change.
// One pass then settles any number of bumps, and visits a node once.
//
// Script thread only.
class LocalVersions {
 public:
  explicit LocalVersions(const TransformTree* tree) : tree(tree) {}

  // Raises the version of `handle`'s entity and of all below it by 1.
  void Bump(uint32_t handle) {
    if (tree->Version(handle).pending++ == 0) {
      pending.push_back(handle);
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
    if (!pending.empty()) {
      SpreadAll();
    }
  }

 private:
  void SpreadAll();
  void GatherCycle(uint32_t onCycle);
  uint32_t TopmostPending(uint32_t from);
  void Spread(uint32_t top);

  const TransformTree* const tree;
  std::vector<uint32_t> pending;  // handles of entities with pending bumps, each once
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_LOCALVERSIONS_H_
