// The transform pass of a frame, whole and by parts.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <vector>

#include "Engine/Entity/Entity3D.h"
#include "Engine/Entity/EntityRecord.h"
#include "bench/native/BenchScene.h"

namespace nq::bench {
namespace {

using engine::EntitySystem;
using engine::kDirtyListCapacity;

const char* ShapeName(Shape shape) {
  switch (shape) {
    case Shape::kLargeTree:
      return "large_tree";
    case Shape::kHumanoids:
      return "humanoids";
    case Shape::kWideTree:
      return "wide_tree";
    case Shape::kChain:
      return "chain";
  }
  return "";
}

// The nodes that change: all of them, or `count` spread over the tree, without the root.
std::vector<uint32_t> DirtyNodes(uint32_t nodes, uint32_t count) {
  if (count >= nodes) {
    std::vector<uint32_t> all(nodes);
    std::iota(all.begin(), all.end(), 0);
    return all;
  }
  std::vector<uint32_t> picked = Pick(nodes - 1, count);
  for (uint32_t& node : picked) {
    ++node;
  }
  return picked;
}

double Now() {
  const auto time = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(time).count());
}

// Runs `step` for each dirty list of a frame. If the frame needs several, the root is inactive
// until the last. Returns the time of the steps in nanoseconds.
template <typename Step>
double RunFrame(BenchScene* scene, const std::vector<uint32_t>& dirty, Step step) {
  EntitySystem* system = scene->System();
  const bool held = dirty.size() > kDirtyListCapacity;
  double measured = 0;
  for (size_t from = 0; from < dirty.size(); from += kDirtyListCapacity) {
    const size_t to = std::min<size_t>(dirty.size(), from + kDirtyListCapacity);
    scene->List(dirty, from, to);
    const double start = Now();
    if (held && from == 0) {
      system->Deactivate(scene->Handle(0));
    }
    if (held && to == dirty.size()) {
      system->Activate(scene->Handle(0), false);
    }
    step();
    measured += Now() - start;
  }
  return measured;
}

// range: shape, nodes, dirty nodes. The time of writing the changes is not measured. The counter is
// nanoseconds per dirty node.
void BM_RefreshWorldTransform(benchmark::State& state) {
  const Shape shape = static_cast<Shape>(state.range(0));
  const uint32_t nodes = static_cast<uint32_t>(state.range(1));
  BenchScene scene(shape, nodes);
  const std::vector<uint32_t> dirty = DirtyNodes(nodes, static_cast<uint32_t>(state.range(2)));
  double total = 0;
  float position = 0;
  for (auto _ : state) {
    position += 0.125f;
    scene.Move(dirty, position);
    const double measured =
        RunFrame(&scene, dirty, [&scene] { scene.System()->RefreshWorldTransform(); });
    total += measured;
    state.SetIterationTime(measured * 1e-9);
  }
  state.counters["entry"] = total / static_cast<double>(state.iterations() * dirty.size());
  state.SetLabel(ShapeName(shape));
}

// The same frame, timed in two halves. `sync`: local matrices, including posting them, version
// increments and marks. `world`: world matrices.
void BM_FrameByHalves(benchmark::State& state) {
  const Shape shape = static_cast<Shape>(state.range(0));
  const uint32_t nodes = static_cast<uint32_t>(state.range(1));
  BenchScene scene(shape, nodes);
  engine::WorldTransform& passes = scene.System()->Passes();
  const std::vector<uint32_t> dirty = DirtyNodes(nodes, static_cast<uint32_t>(state.range(2)));
  double sync = 0;
  double world = 0;
  float position = 0;
  for (auto _ : state) {
    position += 0.125f;
    scene.Move(dirty, position);
    const double measured = RunFrame(&scene, dirty, [&] {
      const double start = Now();
      passes.SyncAndMark();
      const double synced = Now();
      passes.ComputeMarked();
      sync += synced - start;
      world += Now() - synced;
    });
    state.SetIterationTime(measured * 1e-9);
  }
  const double entries = static_cast<double>(state.iterations() * dirty.size());
  state.counters["sync"] = sync / entries;
  state.counters["world"] = world / entries;
  state.SetLabel(ShapeName(shape));
}

void Trees(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"shape", "nodes", "dirty"});
  for (const Shape shape : {Shape::kLargeTree, Shape::kHumanoids, Shape::kWideTree}) {
    for (const int64_t nodes : {1001, 10001, 100001}) {
      for (const int64_t parts : {1, 10, 100}) {
        benchmark->Args({static_cast<int64_t>(shape), nodes, nodes / parts});
      }
    }
  }
  benchmark->Args({static_cast<int64_t>(Shape::kChain), 1000, 1000});
  benchmark->Args({static_cast<int64_t>(Shape::kChain), 10000, 100});
}
BENCHMARK(BM_RefreshWorldTransform)->Apply(Trees)->UseManualTime();
BENCHMARK(BM_FrameByHalves)->Apply(Trees)->UseManualTime();

// Dirty lists of 1,000 and 10,000 nodes, spread over a tree of 100,000 or the first ones of it.
void Lists(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"dirty", "scattered"});
  for (const int64_t dirty : {1000, 10000}) {
    benchmark->Args({dirty, 1});
    benchmark->Args({dirty, 0});
  }
}

struct ListedScene {
  explicit ListedScene(const benchmark::State& state) : scene(Shape::kLargeTree, 100000) {
    const uint32_t count = static_cast<uint32_t>(state.range(0));
    nodes = state.range(1) != 0 ? DirtyNodes(100000, count) : DirtyNodes(count, count);
    scene.Move(nodes, 0.25f);
    scene.List(nodes, 0, nodes.size());
  }

  BenchScene scene;
  std::vector<uint32_t> nodes;
};

// The local matrices on one thread.
void BM_SyncDirtyRange(benchmark::State& state) {
  ListedScene listed(state);
  for (auto _ : state) {
    listed.scene.System()->SyncDirtyRange(0, static_cast<uint32_t>(listed.nodes.size()));
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * listed.nodes.size()));
}
BENCHMARK(BM_SyncDirtyRange)->Apply(Lists);

// Counting of version bumps. No version is read meanwhile, as in most games.
void BM_BumpLocalVersions(benchmark::State& state) {
  ListedScene listed(state);
  engine::LocalVersions& versions = listed.scene.System()->Versions();
  for (auto _ : state) {
    for (const uint32_t node : listed.nodes) {
      versions.Bump(listed.scene.Handle(node));
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * listed.nodes.size()));
}
BENCHMARK(BM_BumpLocalVersions)->Apply(Lists);

// Counting and spreading the bumps of a frame: a version is read in each frame.
void BM_SettleLocalVersions(benchmark::State& state) {
  ListedScene listed(state);
  engine::LocalVersions& versions = listed.scene.System()->Versions();
  for (auto _ : state) {
    for (const uint32_t node : listed.nodes) {
      versions.Bump(listed.scene.Handle(node));
    }
    versions.Settle();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * listed.nodes.size()));
}
BENCHMARK(BM_SettleLocalVersions)->Apply(Lists);

// Marks a dirty list in a clean tree by the operation that frames use, without their prefetches.
// The world pass that cleans the tree again is not measured.
void BM_MarkListed(benchmark::State& state) {
  ListedScene listed(state);
  engine::TransformTree& tree = listed.scene.System()->Tree();
  std::vector<uint32_t> path;
  for (auto _ : state) {
    path.clear();
    const double start = Now();
    for (const uint32_t node : listed.nodes) {
      tree.MarkListed(&tree.Links(listed.scene.Handle(node)),
                      [&path](uint32_t ancestor) { path.push_back(ancestor); });
    }
    state.SetIterationTime((Now() - start) * 1e-9);
    listed.scene.Root()->UpdateTree();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * listed.nodes.size()));
}
BENCHMARK(BM_MarkListed)->Apply(Lists)->UseManualTime();

// More memory than the caches hold. Reading it between two iterations evicts the scene, as the rest
// of a game does between two frames.
class OtherMemory {
 public:
  explicit OtherMemory(bool evicts) : words(evicts ? kWords : 0, 1) {}

  // Not measured; does nothing with warm caches.
  void EvictCaches(benchmark::State* state) const {
    if (!words.empty()) {
      state->PauseTiming();
      benchmark::DoNotOptimize(std::accumulate(words.begin(), words.end(), uint64_t{0}));
      state->ResumeTiming();
    }
  }

 private:
  static constexpr size_t kWords = size_t{64} * 1024 * 1024 / sizeof(uint64_t);

  const std::vector<uint64_t> words;
};

// A hundredth and a tenth of the nodes and all of them with warm caches, and all with cold ones.
template <uint32_t kNodes>
void TrafficCases(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"nodes", "cold"});
  for (const uint32_t nodes : {kNodes / 100 + 1, kNodes / 10 + 1, kNodes}) {
    bench->Args({nodes, 0});
  }
  bench->Args({kNodes, 1});
}

// The memory that a world pass over all nodes moves, without its arithmetic and in the order of the
// arrays: no arrangement of the pass can take less, as long as links, local matrices, world
// matrices, their versions and the published copies are where they are.
void BM_WorldPassTraffic(benchmark::State& state) {
  const uint32_t nodes = static_cast<uint32_t>(state.range(0));
  BenchScene scene(Shape::kHumanoids, nodes);
  const engine::TransformTree& tree = scene.System()->Tree();
  OtherMemory other(state.range(1) != 0);
  for (auto _ : state) {
    other.EvictCaches(&state);
    for (uint32_t node = 0; node < nodes; ++node) {
      const uint32_t handle = scene.Handle(node);
      const engine::TransformBatch& batch = tree.Batch(handle);
      const uint32_t index = engine::HandleElement(handle);
      if (batch.links[index].IsActive()) {
        const engine::TransformMatrix matrix = batch.localMatrices[index];
        batch.worldMatrices[index] = matrix;
        ++batch.worldVersions[index];
        engine::Entity3D::PublishWorldMatrix(matrix.m, batch.SharedRecord(index));
      }
    }
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * nodes));
}
BENCHMARK(BM_WorldPassTraffic)->Apply(TrafficCases<100001>);

// The memory that posing all nodes moves, without its arithmetic and in the order of the arrays:
// rotation, position and scale of the records, local matrices, and reading marks. No way of
// sampling or blending can take less, as long as these are where they are.
void BM_PoseTraffic(benchmark::State& state) {
  const uint32_t nodes = static_cast<uint32_t>(state.range(0));
  BenchScene scene(Shape::kHumanoids, nodes);
  const engine::TransformTree& tree = scene.System()->Tree();
  const engine::TransformMatrix matrix = {{1.0f}};
  OtherMemory other(state.range(1) != 0);
  for (auto _ : state) {
    other.EvictCaches(&state);
    for (uint32_t node = 0; node < nodes; ++node) {
      const uint32_t handle = scene.Handle(node);
      const engine::TransformBatch& batch = tree.Batch(handle);
      const uint32_t index = engine::HandleElement(handle);
      if (batch.links[index].DirtyState() != engine::kDirtyBelow) {
        std::memcpy(batch.SharedRecord(index) + offsetof(engine::Entity3DRecord, rotation),
                    matrix.m, sizeof(float) * (4 + 3 + 3));
        batch.localMatrices[index] = matrix;
      }
    }
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * nodes));
}
BENCHMARK(BM_PoseTraffic)->Apply(TrafficCases<50001>);

// A frame in which nothing changed.
void BM_IdleFrame(benchmark::State& state) {
  BenchScene scene(Shape::kLargeTree, 100000);
  for (auto _ : state) {
    scene.System()->RefreshWorldTransform();
  }
}
BENCHMARK(BM_IdleFrame);

}  // namespace
}  // namespace nq::bench
