// The kernels that every frame runs once per entity.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "Common/Def/MathKernels.h"
#include "Engine/Entity/Entity2D.h"
#include "Engine/Entity/Entity3D.h"

namespace nq::engine {
namespace {

// Few enough that all fit in the L1 cache: the benchmark measures arithmetic.
constexpr size_t kMatrices = 64;

std::vector<float> RandomNumbers(size_t count) {
  std::mt19937 random(3);
  std::uniform_real_distribution<float> distribution(-1.0f, 1.0f);
  std::vector<float> numbers(count);
  for (float& number : numbers) {
    number = distribution(random);
  }
  return numbers;
}

void BM_MultiplyMatrix4(benchmark::State& state) {
  const std::vector<float> a = RandomNumbers(kMatrices * 16);
  std::vector<float> out(kMatrices * 16);
  for (auto _ : state) {
    for (size_t i = 0; i < kMatrices; ++i) {
      multiplyMatrix4(&a[16 * i], &a[16 * (kMatrices - 1 - i)], &out[16 * i]);
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kMatrices));
}
BENCHMARK(BM_MultiplyMatrix4);

// Each product depends on the previous one, as along a chain of parents.
void BM_MultiplyMatrix4Chain(benchmark::State& state) {
  std::vector<float> a = RandomNumbers(kMatrices * 16);
  std::vector<float> out(kMatrices * 16);
  for (auto _ : state) {
    for (size_t i = 1; i < kMatrices; ++i) {
      multiplyMatrix4(&out[16 * (i - 1)], &a[16 * i], &out[16 * i]);
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * (kMatrices - 1)));
}
BENCHMARK(BM_MultiplyMatrix4Chain);

void BM_InvertMatrix4(benchmark::State& state) {
  const std::vector<float> a = RandomNumbers(kMatrices * 16);
  std::vector<float> out(kMatrices * 16);
  for (auto _ : state) {
    for (size_t i = 0; i < kMatrices; ++i) {
      invertMatrix4(&a[16 * i], &out[16 * i], 0);
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kMatrices));
}
BENCHMARK(BM_InvertMatrix4);

void BM_MatrixToQuaternion(benchmark::State& state) {
  const std::vector<float> a = RandomNumbers(kMatrices * 16);
  std::vector<float> out(kMatrices * 4);
  for (auto _ : state) {
    for (size_t i = 0; i < kMatrices; ++i) {
      matrixToQuaternion(&a[16 * i], &out[4 * i]);
    }
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kMatrices));
}
BENCHMARK(BM_MatrixToQuaternion);

// Builds local matrices from shared records. `Matrix` is 16 floats with the alignment that the
// stores may rely on.
template <typename EntityKind, typename Record>
void BuildLocalMatrices(benchmark::State& state, std::vector<Record>& records) {
  struct alignas(64) Matrix {
    float elements[16];
  };
  std::vector<Matrix> locals(records.size());
  for (auto _ : state) {
    for (size_t i = 0; i < records.size(); ++i) {
      EntityKind::BuildLocalMatrix(reinterpret_cast<const uint8_t*>(&records[i]),
                                   locals[i].elements);
    }
    benchmark::DoNotOptimize(locals.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * records.size()));
}

void BM_BuildLocalMatrix3D(benchmark::State& state) {
  const std::vector<float> numbers = RandomNumbers(kMatrices * 10);
  std::vector<Entity3DRecord> records(kMatrices);
  for (size_t i = 0; i < kMatrices; ++i) {
    const float* n = &numbers[10 * i];
    records[i] = Entity3DRecord{static_cast<uint8_t>(state.range(0)),
                                {0, 0, 0},
                                {n[0], n[1], n[2], n[3]},
                                {n[4], n[5], n[6]},
                                {n[7], n[8], n[9]},
                                {}};
  }
  BuildLocalMatrices<Entity3D>(state, records);
  state.SetLabel(state.range(0) != 0 ? "quaternion" : "Euler");
}
BENCHMARK(BM_BuildLocalMatrix3D)->Arg(1)->Arg(0);

void BM_BuildLocalMatrix2D(benchmark::State& state) {
  const std::vector<float> n = RandomNumbers(kMatrices * 5);
  std::vector<Entity2DRecord> records(kMatrices);
  for (size_t i = 0; i < kMatrices; ++i) {
    const float* r = &n[5 * i];
    records[i] = Entity2DRecord{r[0], {r[1], r[2]}, {r[3], r[4]}, {}};
  }
  BuildLocalMatrices<Entity2D>(state, records);
}
BENCHMARK(BM_BuildLocalMatrix2D);

}  // namespace
}  // namespace nq::engine
