// A scene for benchmarks: an engine core without JavaScript, and trees in it.
#ifndef NQ_BENCH_NATIVE_BENCHSCENE_H_
#define NQ_BENCH_NATIVE_BENCHSCENE_H_

#include <cstdint>
#include <vector>

#include "Engine/Entity/EngineCore.h"
#include "Engine/Entity/EntityRecord.h"
#include "Engine/Entity/EntitySystem.h"

namespace nq::bench {

// The shape of a tree.
enum class Shape : int64_t {
  kLargeTree,  // 4 to 8 children a node, created breadth first
  kHumanoids,  // characters of 50 bones under one root
  kWideTree,   // all are children of the root
  kChain,      // one child a node
};

// Parent of each node, by number; the root is node 0. Parents precede their children.
std::vector<uint32_t> TreeParents(Shape shape, uint32_t count);

// `count` distinct numbers below `limit`, ascending; the same in every run.
std::vector<uint32_t> Pick(uint32_t limit, uint32_t count);

// One engine with one tree of 3D entities, linked and refreshed, all quaternions, scale 1.
class BenchScene {
 public:
  BenchScene(Shape shape, uint32_t count);
  ~BenchScene();
  BenchScene(const BenchScene&) = delete;
  BenchScene& operator=(const BenchScene&) = delete;

  engine::EntitySystem* System() { return core->Entities(); }
  engine::Entity* Root() { return System()->rootEntities().front(); }
  uint32_t Handle(uint32_t node) const { return handles[node]; }
  engine::Entity3DRecord* Record(uint32_t node) const { return records[node]; }

  // Sets the dirty list to nodes[from] to nodes[to - 1].
  void List(const std::vector<uint32_t>& nodes, size_t from, size_t to);

  // Moves the listed nodes, as the script would between two frames.
  void Move(const std::vector<uint32_t>& nodes, float by);

 private:
  engine::EngineRuntime* const runtime;  // one reference
  engine::EngineCore* const core;        // one reference
  std::vector<uint32_t> handles;
  std::vector<engine::Entity3DRecord*> records;
};

}  // namespace nq::bench

#endif  // NQ_BENCH_NATIVE_BENCHSCENE_H_
