// Spreading of pending version bumps down the tree.
#include "Engine/Entity/LocalVersions.h"

namespace nq::engine {

namespace {

// States of TransformLinks::climbed, the visit mark of a climb.
constexpr uint8_t kNotClimbed = 0;
constexpr uint8_t kClimbedBefore = 1;
constexpr uint8_t kClimbing = 2;

}  // namespace

// Moves the recent bumps to the pending ones.
void LocalVersions::Gather() {
  for (const uint32_t handle : bumped) {
    uint8_t& recent = tree->Links(handle).recentBumps;
    tree->Version(handle).pending += recent;
    recent = 0;
  }
}

// Parents may form a cycle, and a bump of an entity on it reaches all descendants of the cycle,
// each entity once. So the cycle's bumps are summed up on one of its entities.
void LocalVersions::GatherCycle(uint32_t onCycle) {
  uint32_t sum = 0;
  uint32_t handle = onCycle;
  do {
    LocalVersion& version = tree->Version(handle);
    sum += version.pending;
    version.pending = 0;
    handle = tree->Links(handle).parent;
  } while (handle != onCycle);
  tree->Version(onCycle).pending = sum;
}

// The highest entity at or above `from` that has bumps, or one on the cycle above `from`. Marks
// what it climbs, so that all climbs of one pass together visit an entity once: if an earlier climb
// has passed and `from` is still unsettled, nothing is pending from there up.
uint32_t LocalVersions::TopmostPending(uint32_t from) {
  uint32_t top = from;
  uint32_t handle = from;
  while (handle != 0 && tree->Links(handle).climbed == kNotClimbed) {
    tree->Links(handle).climbed = kClimbing;
    if (tree->Version(handle).pending != 0) {
      top = handle;
    }
    handle = tree->Links(handle).parent;
  }
  if (handle != 0 && tree->Links(handle).climbed == kClimbing) {
    GatherCycle(handle);
    top = handle;
  }
  for (handle = from; handle != 0 && tree->Links(handle).climbed == kClimbing;
       handle = tree->Links(handle).parent) {
    tree->Links(handle).climbed = kClimbedBefore;
  }
  return top;
}

// Adds to every entity at or below `top` the bumps between it and `top`, and clears them. Walks by
// links, without recursion: trees may be as deep as there are entities. On a parent cycle the walk
// meets its own top again, as a child, and skips it.
void LocalVersions::Spread(uint32_t top) {
  const auto passOverTop = [this, top](uint32_t handle) {
    return handle == top ? tree->Links(handle).nextSibling : handle;
  };
  uint32_t bumps = 0;
  uint32_t handle = top;
  for (;;) {
    LocalVersion& version = tree->Version(handle);
    bumps += version.pending;
    version.settled += bumps;
    uint32_t next = passOverTop(tree->Links(handle).firstChild);
    while (next == 0) {
      LocalVersion& left = tree->Version(handle);
      bumps -= left.pending;
      left.pending = 0;
      if (handle == top) {
        return;
      }
      next = passOverTop(tree->Links(handle).nextSibling);
      if (next == 0) {
        handle = tree->Links(handle).parent;
      }
    }
    handle = next;
  }
}

void LocalVersions::SpreadAll() {
  Gather();
  for (const uint32_t handle : bumped) {
    if (tree->Version(handle).pending != 0) {
      Spread(TopmostPending(handle));
    }
  }
  for (const uint32_t handle : bumped) {
    for (uint32_t climbed = handle; climbed != 0 && tree->Links(climbed).climbed != kNotClimbed;
         climbed = tree->Links(climbed).parent) {
      tree->Links(climbed).climbed = kNotClimbed;
    }
  }
  bumped.clear();
}

}  // namespace nq::engine
