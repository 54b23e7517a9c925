// Entities and world spheres of culling objects.
#include "Engine/Culling/CullingComponentValue.h"

#include "Common/Def/Platform.h"
#include "Common/Def/Vectors.h"
#include "Engine/Culling/Culler.h"

namespace nq::engine {

namespace {

// Prefetch distance in objects: in a scene that moves, every sphere needs its entity's matrix.
constexpr uint32_t kPrefetchObjects = 8;

// The array size that lets whole groups be read at the end.
uint32_t PaddedToGroups(uint32_t count) {
  return (count + Culler::kGroup - 1) / Culler::kGroup * Culler::kGroup;
}

// The length of the longest of the first three columns of a matrix, over all four of their
// elements. The square root is taken last: it is correctly rounded and monotonic, so the result is
// the same.
float LongestColumn(const float* m) {
  const __m128 c0 = _mm_loadu_ps(m);
  const __m128 c1 = _mm_loadu_ps(m + 4);
  const __m128 c2 = _mm_loadu_ps(m + 8);
  __m128 row0 = _mm_mul_ps(c0, c0);
  __m128 row1 = _mm_mul_ps(c1, c1);
  __m128 row2 = _mm_mul_ps(c2, c2);
  __m128 row3 = _mm_setzero_ps();
  _MM_TRANSPOSE4_PS(row0, row1, row2, row3);
  // Without branches, which would wait for the matrix, and be mispredicted for many.
  const __m128 squares = _mm_add_ps(_mm_add_ps(_mm_add_ps(row0, row1), row2), row3);
  const __m128 second = _mm_shuffle_ps(squares, squares, _MM_SHUFFLE(1, 1, 1, 1));
  const __m128 third = _mm_shuffle_ps(squares, squares, _MM_SHUFFLE(2, 2, 2, 2));
  const float longest = _mm_cvtss_f32(_mm_max_ps(third, _mm_max_ps(second, squares)));
  return sqrtF(longest);
}

}  // namespace

void* CullingComponentValue::Allocate(uint32_t objectCount) {
  count = objectCount;
  const uint32_t padded = PaddedToGroups(count);
  caches.Allocate(padded);
  spheres.x.Allocate(padded);
  spheres.y.Allocate(padded);
  spheres.z.Allocate(padded);
  spheres.radius.Allocate(padded);
  depths.Allocate(padded);
  generations.Allocate(padded);
  return BlockValue::Allocate(count * static_cast<uint32_t>(sizeof(CullingRecord)));
}

bool CullingComponentValue::ResolveEntity(uint32_t index, const TransformTree& tree) {
  const uint32_t handle = Record(index).entity;
  CullingEntityCache& cache = caches[index];
  if (handle == cache.seenEntityHandle && generations[index] != kReleasedEntity) {
    return cache.worldVersion != nullptr;
  }
  cache.seenEntityHandle = handle;
  cache.seenWorldVersion = 0;
  cache.worldVersion = nullptr;
  generations[index] = kNoEntity;
  if (tree.Contains(handle)) {
    generations[index] = tree.Generation(handle);
    const TransformBatch& batch = tree.Batch(handle);
    const uint32_t element = HandleElement(handle);
    if (batch.isThreeD) {
      cache.worldVersion = batch.worldVersions + element;
    }
  }
  return cache.worldVersion != nullptr;
}

void CullingComponentValue::ComputeWorldSphere(uint32_t index, const TransformTree& tree) {
  CullingEntityCache& cache = caches[index];
  cache.seenWorldVersion = *cache.worldVersion;
  const uint32_t ahead = index + kPrefetchObjects;
  if (ahead < count && caches[ahead].worldVersion != nullptr) {
    NQ_PREFETCH(tree.WorldMatrix(caches[ahead].seenEntityHandle));
  }

  const CullingRecord& record = Record(index);
  const float* m = tree.WorldMatrix(cache.seenEntityHandle);
  __m128 centre = _mm_mul_ps(_mm_loadu_ps(m), _mm_set1_ps(record.center[0]));
  centre = _mm_add_ps(centre, _mm_mul_ps(_mm_loadu_ps(m + 4), _mm_set1_ps(record.center[1])));
  centre = _mm_add_ps(centre, _mm_mul_ps(_mm_loadu_ps(m + 8), _mm_set1_ps(record.center[2])));
  centre = _mm_add_ps(centre, _mm_loadu_ps(m + 12));
  float world[4];
  _mm_storeu_ps(world, centre);
  spheres.x[index] = world[0];
  spheres.y[index] = world[1];
  spheres.z[index] = world[2];
  spheres.radius[index] = record.radius * LongestColumn(m);
}

void CullingComponentValue::DropReleasedEntities(const TransformTree& tree) {
  for (uint32_t index = 0; index < count; ++index) {
    const uint32_t generation = generations[index];
    if (generation != kNoEntity && generation != kReleasedEntity &&
        generation != tree.Generation(caches[index].seenEntityHandle)) {
      generations[index] = kReleasedEntity;
      caches[index].worldVersion = nullptr;
    }
  }
}

}  // namespace nq::engine
