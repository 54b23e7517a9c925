// Local matrices of runs of entities, four by SSE or eight by AVX.
//
// The formulas are those of QuaternionColumns and LocalColumns. An entity's local matrix is stored
// as two halves of two columns each.
#include "Engine/Animation/BoneRun.h"

#include "Common/Def/Platform.h"
#include "Common/Def/Vectors.h"
#include "Engine/Animation/FourQuaternions.h"
#include "Engine/Entity/LocalMatrix3D.h"
#include "Engine/Entity/LocalMatrixStore.h"

namespace nq::engine {

namespace {

constexpr uint32_t kFour = 4;
constexpr uint32_t kEight = 8;

void WriteOne(Entity3DRecord* record, TransformMatrix* local, __m128 xyzw) {
  record->rotationMode = 1;
  _mm_storeu_ps(record->rotation, xyzw);
  const LocalColumns m(QuaternionColumns(xyzw), PositionScale(*record));
  StoreOwnLocalMatrix(local->m, m.c0, m.c1, m.c2, m.c3);
}

// Four numbers: a[0], a[1], b[0], b[1].
NQ_FORCE_INLINE __m128 TwoPairs(const float* a, const float* b) {
  const __m128 low = _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(a));
  return _mm_loadh_pi(low, reinterpret_cast<const __m64*>(b));
}

// Stores one column of four matrices from its elements, which are scaled. The fourth element is 0.
NQ_FORCE_INLINE void StoreColumns(TransformMatrix* locals, uint32_t column, __m128 scale, __m128 e0,
                                  __m128 e1, __m128 e2) {
  const FourQuaternions columns = TransposeFour(_mm_mul_ps(scale, e0), _mm_mul_ps(scale, e1),
                                                _mm_mul_ps(scale, e2), _mm_setzero_ps());
  _mm_storeu_ps(locals[0].m + 4 * column, columns.x);
  _mm_storeu_ps(locals[1].m + 4 * column, columns.y);
  _mm_storeu_ps(locals[2].m + 4 * column, columns.z);
  _mm_storeu_ps(locals[3].m + 4 * column, columns.w);
}

// Each column is stored as soon as it is known: otherwise the numbers don't fit into 16 registers.
void WriteFour(Entity3DRecord* records, TransformMatrix* locals, const float* xyzw, size_t stride) {
  const auto product = [](__m128 a, __m128 b) { return _mm_mul_ps(a, b); };
  const auto twice = [](__m128 a) { return _mm_mul_ps(_mm_set1_ps(2.0f), a); };
  const auto diagonal = [twice](__m128 a, __m128 b) {
    return _mm_sub_ps(_mm_set1_ps(1.0f), twice(_mm_add_ps(a, b)));
  };
  __m128 rotations[kFour];
  __m128 rows[kFour];
  for (uint32_t i = 0; i < kFour; ++i) {
    rotations[i] = _mm_loadu_ps(xyzw + i * stride);
    records[i].rotationMode = 1;
    _mm_storeu_ps(records[i].rotation, rotations[i]);
    rows[i] = _mm_loadu_ps(PositionScale::First(&records[i]));
    _mm_storeu_ps(locals[i].m + 12, PositionColumn(rows[i]));
  }
  const FourQuaternions q = TransposeFour(rotations[0], rotations[1], rotations[2], rotations[3]);
  const __m128 scaleX = TransposeFour(rows[0], rows[1], rows[2], rows[3]).w;
  const __m128 yy = product(q.y, q.y);
  const __m128 zz = product(q.z, q.z);
  const __m128 xy = product(q.x, q.y);
  const __m128 zx = product(q.z, q.x);
  const __m128 yw = product(q.y, q.w);
  const __m128 zw = product(q.z, q.w);
  StoreColumns(locals, 0, scaleX, diagonal(yy, zz), twice(_mm_add_ps(xy, zw)),
               twice(_mm_sub_ps(zx, yw)));
  const __m128 xx = product(q.x, q.x);
  const __m128 yz = product(q.y, q.z);
  const __m128 xw = product(q.x, q.w);
  const __m128 scales01 = TwoPairs(&records[0].scale[1], &records[1].scale[1]);
  const __m128 scales23 = TwoPairs(&records[2].scale[1], &records[3].scale[1]);
  const __m128 scaleY = _mm_shuffle_ps(scales01, scales23, _MM_SHUFFLE(2, 0, 2, 0));
  const __m128 scaleZ = _mm_shuffle_ps(scales01, scales23, _MM_SHUFFLE(3, 1, 3, 1));
  StoreColumns(locals, 1, scaleY, twice(_mm_sub_ps(xy, zw)), diagonal(xx, zz),
               twice(_mm_add_ps(yz, xw)));
  StoreColumns(locals, 2, scaleZ, twice(_mm_add_ps(zx, yw)), twice(_mm_sub_ps(yz, xw)),
               diagonal(xx, yy));
}

// Rows of two entities in the halves of a vector: `a` in the lower one.
NQ_FORCE_INLINE NQ_TARGET_AVX __m256 TwoRows(const float* a, const float* b) {
  return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(a)), _mm_loadu_ps(b), 1);
}

// TransposeFour in each half.
struct EightRows {
  __m256 x, y, z, w;
};
NQ_FORCE_INLINE NQ_TARGET_AVX EightRows TransposeHalves(__m256 a, __m256 b, __m256 c, __m256 d) {
  const __m256 xyOfAB = _mm256_unpacklo_ps(a, b);
  const __m256 xyOfCD = _mm256_unpacklo_ps(c, d);
  const __m256 zwOfAB = _mm256_unpackhi_ps(a, b);
  const __m256 zwOfCD = _mm256_unpackhi_ps(c, d);
  return EightRows{_mm256_shuffle_ps(xyOfAB, xyOfCD, _MM_SHUFFLE(1, 0, 1, 0)),
                   _mm256_shuffle_ps(xyOfAB, xyOfCD, _MM_SHUFFLE(3, 2, 3, 2)),
                   _mm256_shuffle_ps(zwOfAB, zwOfCD, _MM_SHUFFLE(1, 0, 1, 0)),
                   _mm256_shuffle_ps(zwOfAB, zwOfCD, _MM_SHUFFLE(3, 2, 3, 2))};
}

// Stores two columns of four matrices. Each vector holds one element of both columns, the first
// column's in the lower half.
NQ_FORCE_INLINE NQ_TARGET_AVX void StoreTwoColumns(__m256 e0, __m256 e1, __m256 e2, __m256 e3,
                                                   uint32_t column, TransformMatrix* locals) {
  const EightRows columns = TransposeHalves(e0, e1, e2, e3);
  _mm256_store_ps(locals[0].m + 4 * column, columns.x);
  _mm256_store_ps(locals[1].m + 4 * column, columns.y);
  _mm256_store_ps(locals[2].m + 4 * column, columns.z);
  _mm256_store_ps(locals[3].m + 4 * column, columns.w);
}

// The lower and the upper halves of two vectors.
NQ_FORCE_INLINE NQ_TARGET_AVX __m256 Lower(__m256 a, __m256 b) {
  return _mm256_insertf128_ps(a, _mm256_castps256_ps128(b), 1);
}
NQ_FORCE_INLINE NQ_TARGET_AVX __m256 Upper(__m256 a, __m256 b) {
  return _mm256_permute2f128_ps(a, b, 0x31);
}

// Stores two columns of eight matrices, with the elements `a` and `b`; `fourth` is of both.
NQ_FORCE_INLINE NQ_TARGET_AVX void StoreEight(const __m256* a, const __m256* b, __m256 fourth,
                                              uint32_t column, TransformMatrix* locals) {
  StoreTwoColumns(Lower(a[0], b[0]), Lower(a[1], b[1]), Lower(a[2], b[2]), fourth, column, locals);
  StoreTwoColumns(Upper(a[0], b[0]), Upper(a[1], b[1]), Upper(a[2], b[2]), fourth, column,
                  locals + kFour);
}

// Sets the rotations of the entities 0 and 4, and returns them in the halves of a vector.
NQ_FORCE_INLINE NQ_TARGET_AVX __m256 SetRotations(const float* xyzw, size_t stride,
                                                  Entity3DRecord* records) {
  const __m128 low = _mm_loadu_ps(xyzw);
  const __m128 high = _mm_loadu_ps(xyzw + kFour * stride);
  records[0].rotationMode = 1;
  records[kFour].rotationMode = 1;
  _mm_storeu_ps(records[0].rotation, low);
  _mm_storeu_ps(records[kFour].rotation, high);
  return _mm256_insertf128_ps(_mm256_castps128_ps256(low), high, 1);
}

// Positions and scales x of the entities 0 and 4.
NQ_FORCE_INLINE NQ_TARGET_AVX __m256 FirstRows(Entity3DRecord* records) {
  return TwoRows(PositionScale::First(&records[0]), PositionScale::First(&records[kFour]));
}

// Scales y and z of the entities 0 and 1, and in the upper half of 4 and 5.
NQ_FORCE_INLINE NQ_TARGET_AVX __m256 ScalesYZ(const Entity3DRecord* records) {
  const __m128 low = TwoPairs(&records[0].scale[1], &records[1].scale[1]);
  const __m128 high = TwoPairs(&records[kFour].scale[1], &records[kFour + 1].scale[1]);
  return _mm256_insertf128_ps(_mm256_castps128_ps256(low), high, 1);
}

// 2 (a + b) and so on. Doubling is exact, by addition too.
NQ_FORCE_INLINE NQ_TARGET_AVX __m256 TwiceSum(__m256 a, __m256 b) {
  const __m256 once = _mm256_add_ps(a, b);
  return _mm256_add_ps(once, once);
}
NQ_FORCE_INLINE NQ_TARGET_AVX __m256 TwiceDifference(__m256 a, __m256 b) {
  const __m256 once = _mm256_sub_ps(a, b);
  return _mm256_add_ps(once, once);
}
NQ_FORCE_INLINE NQ_TARGET_AVX __m256 Diagonal(__m256 a, __m256 b) {
  return _mm256_sub_ps(_mm256_set1_ps(1.0f), TwiceSum(a, b));
}

// The entities i and i + 4 are in the halves of a vector.
NQ_TARGET_AVX void WriteEight(Entity3DRecord* records, TransformMatrix* locals, const float* xyzw,
                              size_t stride) {
  const __m256 q0 = SetRotations(xyzw, stride, records);
  const __m256 q1 = SetRotations(xyzw + stride, stride, records + 1);
  const __m256 q2 = SetRotations(xyzw + 2 * stride, stride, records + 2);
  const __m256 q3 = SetRotations(xyzw + 3 * stride, stride, records + 3);
  const EightRows q = TransposeHalves(q0, q1, q2, q3);
  const EightRows v = TransposeHalves(FirstRows(records), FirstRows(records + 1),
                                      FirstRows(records + 2), FirstRows(records + 3));
  const __m256 scales01 = ScalesYZ(records);
  const __m256 scales23 = ScalesYZ(records + 2);
  const __m256 scaleY = _mm256_shuffle_ps(scales01, scales23, _MM_SHUFFLE(2, 0, 2, 0));
  const __m256 scaleZ = _mm256_shuffle_ps(scales01, scales23, _MM_SHUFFLE(3, 1, 3, 1));
  const __m256 xx = _mm256_mul_ps(q.x, q.x);
  const __m256 yy = _mm256_mul_ps(q.y, q.y);
  const __m256 zz = _mm256_mul_ps(q.z, q.z);
  const __m256 xy = _mm256_mul_ps(q.x, q.y);
  const __m256 yz = _mm256_mul_ps(q.y, q.z);
  const __m256 zx = _mm256_mul_ps(q.z, q.x);
  const __m256 xw = _mm256_mul_ps(q.x, q.w);
  const __m256 yw = _mm256_mul_ps(q.y, q.w);
  const __m256 zw = _mm256_mul_ps(q.z, q.w);
  const __m256 c0[3] = {_mm256_mul_ps(v.w, Diagonal(yy, zz)), _mm256_mul_ps(v.w, TwiceSum(xy, zw)),
                        _mm256_mul_ps(v.w, TwiceDifference(zx, yw))};
  const __m256 c1[3] = {_mm256_mul_ps(scaleY, TwiceDifference(xy, zw)),
                        _mm256_mul_ps(scaleY, Diagonal(xx, zz)),
                        _mm256_mul_ps(scaleY, TwiceSum(yz, xw))};
  StoreEight(c0, c1, _mm256_setzero_ps(), 0, locals);
  const __m256 c2[3] = {_mm256_mul_ps(scaleZ, TwiceSum(zx, yw)),
                        _mm256_mul_ps(scaleZ, TwiceDifference(yz, xw)),
                        _mm256_mul_ps(scaleZ, Diagonal(xx, yy))};
  const __m256 c3[3] = {v.x, v.y, v.z};
  const __m256 fourth = _mm256_setr_ps(0.0f, 0.0f, 0.0f, 0.0f, 1.0f, 1.0f, 1.0f, 1.0f);
  StoreEight(c2, c3, fourth, 2, locals);
}

// Writes groups of `kLanes`. The last one overlaps those before: what is written twice is the same.
template <uint32_t kLanes, typename Write>
NQ_FORCE_INLINE void WriteGroups(uint32_t count, Write write) {
  for (uint32_t i = 0; i + kLanes <= count; i += kLanes) {
    write(i);
  }
  if (count % kLanes != 0) {
    write(count - kLanes);
  }
}

}  // namespace

void WriteRotationsByFour(const BoneRun& run, const float* xyzw, size_t stride) {
  if (run.count < kFour) {
    for (uint32_t i = 0; i < run.count; ++i) {
      WriteOne(&run.records[i], &run.locals[i], _mm_loadu_ps(xyzw + i * stride));
    }
    return;
  }
  WriteGroups<kFour>(run.count, [&run, xyzw, stride](uint32_t i) {
    WriteFour(run.records + i, run.locals + i, xyzw + i * stride, stride);
  });
}

void WriteRotationsByEight(const BoneRun& run, const float* xyzw, size_t stride) {
  if (run.count < kEight) {
    WriteRotationsByFour(run, xyzw, stride);
    return;
  }
  WriteGroups<kEight>(run.count, [&run, xyzw, stride](uint32_t i) {
    WriteEight(run.records + i, run.locals + i, xyzw + i * stride, stride);
  });
}

void WriteRotations(const BoneRun& run, const float* xyzw, size_t stride) {
  const auto write = HasWideVectors() ? WriteRotationsByEight : WriteRotationsByFour;
  write(run, xyzw, stride);
}

}  // namespace nq::engine
