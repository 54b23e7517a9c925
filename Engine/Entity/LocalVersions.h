// Local versions of entities: who was touched, or stands below somebody who was.
#ifndef NQ_ENGINE_ENTITY_LOCALVERSIONS_H_
#define NQ_ENGINE_ENTITY_LOCALVERSIONS_H_

#include <cstdint>
#include <vector>

#include "Engine/Entity/TransformNode.h"

namespace nq::engine {

// Each entry of the dirty list raises the local version of its entity and of all below it. A walk
// of the subtree per entry would make a frame quadratic, so a bump is only noted here, on the node
// it was meant for, and spread when somebody asks for a version or the links are about to change.
// One pass then settles any number of bumps, and visits a node once.
//
// Script thread only.
class LocalVersions {
 public:
  // Raises the version of `node` and of all below it by 1.
  void Bump(TransformNode* node) {
    if (node->pendingBumps++ == 0) {
      pending.push_back(node);
    }
  }

  // The version of `node`.
  uint32_t Version(const TransformNode* node) {
    Settle();
    return node->localVersion;
  }

  // Spreads all bumps. Must be called before a link changes or a node goes, since a bump is meant
  // for the tree as it was.
  void Settle() {
    if (!pending.empty()) {
      SpreadAll();
    }
  }

 private:
  void SpreadAll();

  std::vector<TransformNode*> pending;  // nodes with pendingBumps, each once
};

}  // namespace nq::engine

#endif  // NQ_ENGINE_ENTITY_LOCALVERSIONS_H_
