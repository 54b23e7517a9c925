// Culling in the most direct way.
#include "tests/native/Engine/Culling/ReferenceCulling.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace nq::engine {

namespace {

float Root(float x) {
  return static_cast<float>(std::sqrt(static_cast<double>(x)));
}

Vector3 UnitOf(float x, float y, float z) {
  const float length = Root(x * x + y * y + z * z);
  const float reciprocal = 1.0f / length;
  return Vector3{x * reciprocal, y * reciprocal, z * reciprocal};
}

Vector3 CrossOf(const Vector3& a, const Vector3& b) {
  Vector3 out;
  out.x = a.y * b.z - a.z * b.y;
  out.y = a.z * b.x - a.x * b.z;
  out.z = a.x * b.y - a.y * b.x;
  return out;
}

// base + axis * offset.
Vector3 Along(const Vector3& base, const Vector3& axis, float offset) {
  return Vector3{base.x + axis.x * offset, base.y + axis.y * offset, base.z + axis.z * offset};
}

// base - axis * offset.
Vector3 Against(const Vector3& base, const Vector3& axis, float offset) {
  return Vector3{base.x - axis.x * offset, base.y - axis.y * offset, base.z - axis.z * offset};
}

void SetPlane(ViewVolume* volume, int plane, const Vector3& normal, const Vector3& point) {
  CullPlane& out = volume->planes[plane];
  out.normal = normal;
  out.point = point;
  out.d = -(normal.x * point.x + normal.y * point.y + normal.z * point.z);
}

Vector3 Opposite(const Vector3& v) {
  return Vector3{-v.x, -v.y, -v.z};
}

// Key under which results are compared as sets.
std::pair<uint32_t, uint32_t> KeyOf(const ReferenceHit& hit) {
  uint32_t bits = 0x7FC00000u;
  if (!std::isnan(hit.depth)) {
    std::memcpy(&bits, &hit.depth, sizeof(bits));
  }
  return {hit.handle, bits};
}

}  // namespace

ViewVolume ReferenceVolume(const ReferenceCamera& camera) {
  const Vector3& eye = camera.pose.eye;
  const Vector3& target = camera.pose.target;
  const float near = camera.perspective ? camera.frustum.near : camera.box.near;
  const float far = camera.perspective ? camera.frustum.far : camera.box.far;

  const Vector3 f = UnitOf(eye.x - target.x, eye.y - target.y, eye.z - target.z);
  const Vector3 across = CrossOf(camera.pose.up, f);
  const Vector3 r = UnitOf(across.x, across.y, across.z);
  const Vector3 u = CrossOf(f, r);
  const Vector3 nearCentre = Against(eye, f, near);
  const Vector3 farCentre = Against(eye, f, far);

  ViewVolume volume;
  volume.backward = f;
  volume.eye = eye;
  SetPlane(&volume, 0, Opposite(f), nearCentre);
  SetPlane(&volume, 1, f, farCentre);
  if (camera.perspective) {
    const float half = camera.frustum.fov * 0.5f;
    const float h = static_cast<float>(std::tan(static_cast<double>(half))) * near;
    const float w = h * camera.frustum.aspect;
    const Vector3 edges[4] = {Along(nearCentre, u, h), Against(nearCentre, u, h),
                              Against(nearCentre, r, w), Along(nearCentre, r, w)};
    Vector3 v[4];
    for (int i = 0; i < 4; ++i) {
      v[i] = UnitOf(edges[i].x - eye.x, edges[i].y - eye.y, edges[i].z - eye.z);
    }
    SetPlane(&volume, 2, CrossOf(v[0], r), edges[0]);
    SetPlane(&volume, 3, CrossOf(r, v[1]), edges[1]);
    SetPlane(&volume, 4, CrossOf(v[2], u), edges[2]);
    SetPlane(&volume, 5, CrossOf(u, v[3]), edges[3]);
  } else {
    SetPlane(&volume, 2, Opposite(u), Along(nearCentre, u, camera.box.top));
    SetPlane(&volume, 3, u, Along(nearCentre, u, camera.box.bottom));
    SetPlane(&volume, 4, r, Along(nearCentre, r, camera.box.left));
    SetPlane(&volume, 5, Opposite(r), Along(nearCentre, r, camera.box.right));
  }
  return volume;
}

bool ReferenceIsVisible(const ViewVolume& volume, const ReferenceSphere& sphere) {
  for (int i = 0; i < 6; ++i) {
    const CullPlane& plane = volume.planes[i];
    const float s =
        plane.normal.x * sphere.x + plane.normal.y * sphere.y + plane.normal.z * sphere.z + plane.d;
    if (-sphere.radius > s) {
      return false;
    }
  }
  return true;
}

float ReferenceDepth(const ViewVolume& volume, const ReferenceSphere& sphere) {
  const Vector3& f = volume.backward;
  const Vector3& eye = volume.eye;
  return -((sphere.y - eye.y) * f.y) - (sphere.x - eye.x) * f.x - (sphere.z - eye.z) * f.z;
}

ReferenceSphere ReferenceWorldSphere(const float* m, const float* center, float radius) {
  const float x = center[0];
  const float y = center[1];
  const float z = center[2];
  float longest = 0.0f;
  for (int column = 0; column < 3; ++column) {
    const float* c = m + 4 * column;
    const float length = Root(c[0] * c[0] + c[1] * c[1] + c[2] * c[2] + c[3] * c[3]);
    longest = length > longest ? length : longest;
  }
  ReferenceSphere sphere;
  sphere.x = m[0] * x + m[4] * y + m[8] * z + m[12];
  sphere.y = m[1] * x + m[5] * y + m[9] * z + m[13];
  sphere.z = m[2] * x + m[6] * y + m[10] * z + m[14];
  sphere.radius = radius * longest;
  return sphere;
}

uint32_t ReferenceHash(const std::vector<uint32_t>& handles) {
  uint64_t hash = 0;
  for (const uint32_t handle : handles) {
    hash = (hash * 31 + handle) % 0x100000000ull;
  }
  return static_cast<uint32_t>(hash);
}

bool SameBits(float a, float b) {
  return std::memcmp(&a, &b, sizeof(float)) == 0 || (std::isnan(a) && std::isnan(b));
}

::testing::AssertionResult HoldsExactly(const CullResult& result,
                                        std::vector<ReferenceHit> expected) {
  const size_t count = expected.size();
  if (result.objects.size() != count || result.distances.size() != count) {
    return ::testing::AssertionFailure()
           << result.objects.size() << " objects and " << result.distances.size()
           << " distances, expected " << count;
  }
  std::vector<ReferenceHit> actual(count);
  for (size_t i = 0; i < count; ++i) {
    actual[i] = ReferenceHit{result.objects[i], result.distances[i]};
    if (i != 0 && !(result.distances[i - 1] <= result.distances[i]) &&
        !std::isnan(result.distances[i])) {
      return ::testing::AssertionFailure() << "depth " << result.distances[i] << " at " << i
                                           << " stands behind " << result.distances[i - 1];
    }
  }
  const auto before = [](const ReferenceHit& a, const ReferenceHit& b) {
    return KeyOf(a) < KeyOf(b);
  };
  std::sort(actual.begin(), actual.end(), before);
  std::sort(expected.begin(), expected.end(), before);
  for (size_t i = 0; i < count; ++i) {
    if (KeyOf(actual[i]) != KeyOf(expected[i])) {
      return ::testing::AssertionFailure() << "by handle, entry " << i << " is " << actual[i].handle
                                           << " at depth " << actual[i].depth << ", expected "
                                           << expected[i].handle << " at " << expected[i].depth;
    }
  }
  if (result.hash != ReferenceHash(result.objects)) {
    return ::testing::AssertionFailure() << "hash is " << result.hash;
  }
  return ::testing::AssertionSuccess();
}

float CullingRandom::Odd(float low, float high) {
  const float odd[] = {0.0f,
                       -0.0f,
                       1e-42f,
                       3e38f,
                       -3e38f,
                       std::numeric_limits<float>::infinity(),
                       -std::numeric_limits<float>::infinity(),
                       std::numeric_limits<float>::quiet_NaN()};
  return Chance(4) ? odd[Below(sizeof(odd) / sizeof(odd[0]))] : Real(low, high);
}

ReferenceCamera CullingRandom::Camera(float reach) {
  ReferenceCamera camera;
  camera.perspective = Chance(50);
  camera.pose.eye = Point(reach);
  camera.pose.target = Point(reach);
  camera.pose.up = Point(3.0f);
  camera.frustum.fov = Real(0.2f, 2.6f);
  camera.frustum.aspect = Real(0.3f, 3.0f);
  camera.frustum.near = Real(0.01f, 2.0f);
  camera.frustum.far = camera.frustum.near + Real(1.0f, 3.0f * reach);
  camera.box.left = Real(-reach, 0.0f);
  camera.box.right = Real(0.0f, reach);
  camera.box.bottom = Real(-reach, 0.0f);
  camera.box.top = Real(0.0f, reach);
  camera.box.near = Real(-reach, 2.0f);
  camera.box.far = camera.box.near + Real(1.0f, 3.0f * reach);
  return camera;
}

}  // namespace nq::engine
