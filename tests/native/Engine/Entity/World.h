// An engine for tests of entities, with operations for what the script does to it.
#ifndef NQ_TESTS_NATIVE_ENGINE_ENTITY_WORLD_H_
#define NQ_TESTS_NATIVE_ENGINE_ENTITY_WORLD_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <set>
#include <string>
#include <vector>

#include "Common/Def/EngineRuntime.h"
#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/Entity.h"
#include "Engine/Entity/EntityCommands.h"
#include "Engine/Entity/EntityRecord.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::engine {

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define NQ_TEST_UNDER_THREAD_SANITIZER 1
#elif __has_feature(address_sanitizer)
#define NQ_TEST_UNDER_ADDRESS_SANITIZER 1
#endif
#elif defined(__SANITIZE_THREAD__)
#define NQ_TEST_UNDER_THREAD_SANITIZER 1
#elif defined(__SANITIZE_ADDRESS__)
#define NQ_TEST_UNDER_ADDRESS_SANITIZER 1
#endif

// The number of repetitions of a random or repeated test: `plain`, fewer under a sanitizer.
constexpr int Rounds(int plain) {
#if defined(NQ_TEST_UNDER_THREAD_SANITIZER)
  constexpr int kSlowness = 10;
#elif defined(NQ_TEST_UNDER_ADDRESS_SANITIZER)
  constexpr int kSlowness = 3;
#else
  constexpr int kSlowness = 1;
#endif
  return plain >= kSlowness ? plain / kSlowness : 1;
}

// Sets an entity's mark to any state, as no operation does: ancestors keep theirs, and the tree
// records nothing. A walk from the roots finds such a mark only if something else makes it visit
// the entity.
struct MarksForTests {
  static void Set(Entity* entity, uint8_t state) { entity->links().SetDirtyState(state); }
};

// One engine. Commands and dirty entries are written to the shared buffers as the script does, and
// take effect with Refresh or RunCommands. Remaining batches are released at the end.
class World {
 public:
  World();
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  EngineRuntime* Runtime() { return runtime; }
  EngineCore* Core() { return core; }
  EntitySystem* System() { return core->Entities(); }

  // A batch of entities of scale 1. Returns its key, which is the handle of element 0.
  uint32_t Add3D(int32_t count = 1);
  uint32_t Add2D(int32_t count = 1);

  // The same, with the records unchanged after creation.
  NativeValueInfo AddRaw(bool isThreeD, int32_t count);

  void Release(uint32_t handle);

  // Appends words to the command stream.
  void Command(std::initializer_list<uint32_t> words);
  void AddRoot(uint32_t handle) { Command({1, handle}); }
  void Link(uint32_t parent, uint32_t child) { Command({2, parent, child}); }
  void Insert(uint32_t parent, uint32_t child, uint32_t index) {
    Command({3, parent, child, index});
  }
  void Unlink(uint32_t handle) { Command({4, handle}); }
  void ResetSubtree(uint32_t handle) { Command({5, handle}); }
  void Bind(uint32_t entity, uint32_t bone) { Command({6, entity, bone}); }
  void Unbind(uint32_t handle) { Command({8, handle}); }
  void Activate(uint32_t handle) { Command({10, handle}); }
  void Deactivate(uint32_t handle) { Command({11, handle}); }
  void RunCommands(bool deep = false) { System()->RunEntityCommands(deep); }

  // The command stream as words; word 0 is its length in bytes.
  uint32_t* CommandWords() { return static_cast<uint32_t*>(core->EntityCommandsBlock().pointer); }

  // Appends to the dirty list.
  void Dirty(uint32_t handle);
  void DirtyAll(std::initializer_list<uint32_t> handles);

  // The dirty list as words; word 0 is its count.
  uint32_t* DirtyWords() { return static_cast<uint32_t*>(core->DirtyEntitiesBlock().pointer); }
  std::vector<uint32_t> DirtyList();

  void Refresh() { core->RefreshWorldTransform(); }

  // Refreshes with all changes, so that tests start from a clean tree.
  void Settle(std::initializer_list<uint32_t> handles);

  // The entity of `handle`, which must exist.
  Entity& At(uint32_t handle);
  Entity3DRecord& Record3D(uint32_t handle);
  Entity2DRecord& Record2D(uint32_t handle);

  // Sets the position in the record.
  void MoveTo(uint32_t handle, float x, float y, float z);
  void ScaleTo(uint32_t handle, float x, float y, float z);

  std::vector<uint32_t> ChildrenOf(uint32_t handle);
  std::vector<uint32_t> BoundTo(uint32_t bone);
  std::vector<uint32_t> Roots();
  void SetMark(uint32_t handle, uint8_t state) { MarksForTests::Set(&At(handle), state); }
  uint32_t ParentOf(uint32_t handle);  // 0 for none
  uint32_t BoneOf(uint32_t handle);    // 0 for none

  // Translation of the published world matrix of a 3D entity.
  std::vector<float> WorldPosition(uint32_t handle);

 private:
  EngineRuntime* runtime;
  EngineCore* core;
  std::set<uint32_t> keys;  // batches that are still to be released
};

// A fixture with its own world.
class WorldTest : public ::testing::Test {
 protected:
  World world;
};

// Equal bits, or both NaN: the payloads of NaNs differ by compiler.
bool SameFloat(float expected, float actual);
::testing::AssertionResult SameFloats(const float* expected, const float* actual, size_t count);
::testing::AssertionResult SameFloats(const std::vector<float>& expected, const float* actual);

// Runs `body` on a thread whose stack is large enough for a few thousand calls, and far less than
// 100000.
void RunOnSmallStack(const std::function<void()>& body);

// For death tests, which see standard error only: from here on the log goes there, too.
void SendLogToStandardError();

// Captures standard output while it exists, one entry for each write.
class OutputRecorder {
 public:
  OutputRecorder();
  ~OutputRecorder();
  OutputRecorder(const OutputRecorder&) = delete;
  OutputRecorder& operator=(const OutputRecorder&) = delete;

  const std::vector<std::string>& Writes() const { return writes; }
  std::string Text() const;

 private:
  std::vector<std::string> writes;
  FILE* stream;
  FILE* before;
};

}  // namespace nq::engine

#endif  // NQ_TESTS_NATIVE_ENGINE_ENTITY_WORLD_H_
