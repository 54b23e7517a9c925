// Spreading of noted version bumps down the tree.
#include "Engine/Entity/LocalVersions.h"

namespace nq::engine {

namespace {

// Marks of a climb, in `visiting`.
constexpr uint8_t kNotClimbed = 0;
constexpr uint8_t kClimbedBefore = 1;
constexpr uint8_t kClimbing = 2;

// Parents may form a cycle, and a bump of a node on it reaches all that hangs on the cycle, each
// node once. So the cycle's bumps are gathered on one node of it.
void GatherCycle(TransformNode* onCycle) {
  uint32_t sum = 0;
  TransformNode* node = onCycle;
  do {
    sum += node->pendingBumps;
    node->pendingBumps = 0;
    node = node->parent;
  } while (node != onCycle);
  onCycle->pendingBumps = sum;
}

// The highest node at or above `from` that has bumps, or a node of the cycle that `from` hangs on.
// Marks the nodes it climbs, so that all climbs of one pass together visit a node once: where an
// earlier climb has passed and `from` is still unsettled, nothing is pending from there up.
TransformNode* TopmostPending(TransformNode* from) {
  TransformNode* top = from;
  TransformNode* node = from;
  while (node != nullptr && node->visiting == kNotClimbed) {
    node->visiting = kClimbing;
    if (node->pendingBumps != 0) {
      top = node;
    }
    node = node->parent;
  }
  if (node != nullptr && node->visiting == kClimbing) {
    GatherCycle(node);
    top = node;
  }
  for (node = from; node != nullptr && node->visiting == kClimbing; node = node->parent) {
    node->visiting = kClimbedBefore;
  }
  return top;
}

// On a parent cycle the walk meets its own top again, as a child; the bumps end there.
TransformNode* PassOver(TransformNode* node, const TransformNode* top) {
  return node == top ? node->nextSibling : node;
}

// Adds to every node at or below `top` the bumps between it and `top`, and clears them. Walks by
// the links alone: trees may be as deep as there are entities.
void Spread(TransformNode* top) {
  uint32_t bumps = 0;
  TransformNode* node = top;
  for (;;) {
    bumps += node->pendingBumps;
    node->localVersion += bumps;
    TransformNode* next = PassOver(node->firstChild, top);
    while (next == nullptr) {
      bumps -= node->pendingBumps;
      node->pendingBumps = 0;
      if (node == top) {
        return;
      }
      next = PassOver(node->nextSibling, top);
      if (next == nullptr) {
        node = node->parent;
      }
    }
    node = next;
  }
}

}  // namespace

void LocalVersions::SpreadAll() {
  for (TransformNode* node : pending) {
    if (node->pendingBumps != 0) {
      Spread(TopmostPending(node));
    }
  }
  for (TransformNode* node : pending) {
    for (TransformNode* climbed = node; climbed != nullptr && climbed->visiting != kNotClimbed;
         climbed = climbed->parent) {
      climbed->visiting = kNotClimbed;
    }
  }
  pending.clear();
}

}  // namespace nq::engine
