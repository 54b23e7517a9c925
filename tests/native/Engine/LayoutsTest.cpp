// The layout description that generates lib/layout.js, against the native structs and constants.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <type_traits>

#include "Common/Def/EngineRuntime.h"
#include "Common/Def/Handle.h"
#include "Common/Def/HandlerAllocator.h"
#include "Common/Def/StreamReader.h"
#include "Engine/Animation/AnimationRecord.h"
#include "Engine/Animation/ClipFormat.h"
#include "Engine/Culling/CullingRecord.h"
#include "Engine/Entity/DirtyEntityList.h"
#include "Engine/Entity/EntityCommands.h"
#include "Engine/Entity/EntityRecord.h"
#include "Engine/MatrixFlow/MatrixFlowCommand.h"

namespace nq::engine {
namespace {

struct LayoutFact {
  const char* what;
  uint64_t native;
  uint64_t described;
};

const LayoutFact kFacts[] = {
#include "tests/native/Engine/LayoutFacts.inc"
};

TEST(LayoutsTest, TheDescriptionMatchesTheNativeLayouts) {
  for (const LayoutFact& fact : kFacts) {
    EXPECT_EQ(fact.native, fact.described) << fact.what;
  }
}

// The description checks that fields fill their records. Here: it contains every struct.
TEST(LayoutsTest, EveryStructIsDescribed) {
  std::set<std::string> sizes;
  for (const LayoutFact& fact : kFacts) {
    sizes.insert(fact.what);
  }
  for (const char* what :
       {"entity3D.size", "entity2D.size", "cullingObject.size", "animatorClip.size",
        "controllerLayer.size", "controllerState.clips", "controllerClip.size",
        "controllerMask.size", "clipHeader.size", "clipCurve.size", "clipKey.size"}) {
    EXPECT_EQ(1u, sizes.count(what)) << what;
  }
}

}  // namespace
}  // namespace nq::engine
