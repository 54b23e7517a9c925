// Planes of both cameras.
#include "Engine/Culling/ViewVolume.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/native/Engine/Culling/ReferenceCulling.h"

namespace nq::engine {
namespace {

const CameraPose kDownNegativeZ = {{0, 0, 0}, {0, 0, -1}, {0, 1, 0}};
const float kNone = std::numeric_limits<float>::quiet_NaN();
const float kInfinity = std::numeric_limits<float>::infinity();

void ExpectVector(const Vector3& actual, float x, float y, float z, float tolerance = 0.0f) {
  EXPECT_NEAR(actual.x, x, tolerance);
  EXPECT_NEAR(actual.y, y, tolerance);
  EXPECT_NEAR(actual.z, z, tolerance);
}

bool IsNone(const Vector3& v) {
  return std::isnan(v.x) && std::isnan(v.y) && std::isnan(v.z);
}

bool SameVector(const Vector3& a, const Vector3& b) {
  return SameBits(a.x, b.x) && SameBits(a.y, b.y) && SameBits(a.z, b.z);
}

::testing::AssertionResult SameVolume(const ViewVolume& actual, const ViewVolume& expected) {
  for (int i = 0; i < kViewPlaneCount; ++i) {
    const CullPlane& a = actual.planes[i];
    const CullPlane& e = expected.planes[i];
    if (!SameVector(a.normal, e.normal) || !SameVector(a.point, e.point) || !SameBits(a.d, e.d)) {
      return ::testing::AssertionFailure()
             << "plane " << i << " is (" << a.normal.x << ", " << a.normal.y << ", " << a.normal.z
             << "), " << a.d << ", expected (" << e.normal.x << ", " << e.normal.y << ", "
             << e.normal.z << "), " << e.d;
    }
  }
  if (!SameVector(actual.backward, expected.backward) || !SameVector(actual.eye, expected.eye)) {
    return ::testing::AssertionFailure() << "axis or eye differ";
  }
  return ::testing::AssertionSuccess();
}

ViewVolume VolumeOf(const ReferenceCamera& camera) {
  return camera.perspective ? PerspectiveVolume(camera.pose, camera.frustum)
                            : OrthographicVolume(camera.pose, camera.box);
}

TEST(ViewVolumeTest, APlaneIsSevenFloatsInOrder) {
  EXPECT_EQ(28u, sizeof(CullPlane));
  EXPECT_EQ(0u, offsetof(CullPlane, normal));
  EXPECT_EQ(12u, offsetof(CullPlane, point));
  EXPECT_EQ(24u, offsetof(CullPlane, d));
}

// A right angle from top to bottom, twice as wide as high:
//
//        \  h = 2  |
//   eye   >--------+ near = 2       w = 4
//        /         |
TEST(ViewVolumeTest, APerspectiveCameraLooksOutThroughItsNearRectangle) {
  const float rightAngle = std::acos(0.0f);
  const ViewVolume volume = PerspectiveVolume(kDownNegativeZ, {rightAngle, 2.0f, 2.0f, 50.0f});

  ExpectVector(volume.planes[0].normal, 0, 0, -1);
  ExpectVector(volume.planes[0].point, 0, 0, -2);
  EXPECT_EQ(-2.0f, volume.planes[0].d);
  ExpectVector(volume.planes[1].normal, 0, 0, 1);
  ExpectVector(volume.planes[1].point, 0, 0, -50);
  EXPECT_EQ(50.0f, volume.planes[1].d);

  const float half = std::sqrt(0.5f);
  ExpectVector(volume.planes[2].normal, 0, -half, -half, 1e-6f);
  ExpectVector(volume.planes[2].point, 0, 2, -2, 1e-6f);
  ExpectVector(volume.planes[3].normal, 0, half, -half, 1e-6f);
  ExpectVector(volume.planes[3].point, 0, -2, -2, 1e-6f);
  // Towards (4, 0, -2): the normal is (1, 0, 2) or (-1, 0, -2) over the square root of 5.
  const float fifth = std::sqrt(0.2f);
  ExpectVector(volume.planes[4].normal, fifth, 0, -2 * fifth, 1e-6f);
  ExpectVector(volume.planes[4].point, -4, 0, -2, 1e-6f);
  ExpectVector(volume.planes[5].normal, -fifth, 0, -2 * fifth, 1e-6f);
  ExpectVector(volume.planes[5].point, 4, 0, -2, 1e-6f);
  for (int i = 2; i < kViewPlaneCount; ++i) {
    EXPECT_NEAR(0.0f, volume.planes[i].d, 1e-6f) << "side planes go through the eye";
  }
  ExpectVector(volume.backward, 0, 0, 1);
  ExpectVector(volume.eye, 0, 0, 0);
}

TEST(ViewVolumeTest, AnOrthographicCameraIsABoxAroundItsAxis) {
  const CameraPose pose = {{10, 20, 30}, {10, 20, -7}, {0, 5, 0}};
  const ViewVolume volume = OrthographicVolume(pose, {-2, 3, -4, 5, 1, 100});

  ExpectVector(volume.planes[0].normal, 0, 0, -1);
  ExpectVector(volume.planes[0].point, 10, 20, 29);
  EXPECT_EQ(29.0f, volume.planes[0].d);
  ExpectVector(volume.planes[1].normal, 0, 0, 1);
  ExpectVector(volume.planes[1].point, 10, 20, -70);
  EXPECT_EQ(70.0f, volume.planes[1].d);
  ExpectVector(volume.planes[2].normal, 0, -1, 0);
  ExpectVector(volume.planes[2].point, 10, 25, 29);
  EXPECT_EQ(25.0f, volume.planes[2].d);
  ExpectVector(volume.planes[3].normal, 0, 1, 0);
  ExpectVector(volume.planes[3].point, 10, 16, 29);
  EXPECT_EQ(-16.0f, volume.planes[3].d);
  ExpectVector(volume.planes[4].normal, 1, 0, 0);
  ExpectVector(volume.planes[4].point, 8, 20, 29);
  EXPECT_EQ(-8.0f, volume.planes[4].d);
  ExpectVector(volume.planes[5].normal, -1, 0, 0);
  ExpectVector(volume.planes[5].point, 13, 20, 29);
  EXPECT_EQ(13.0f, volume.planes[5].d);
  ExpectVector(volume.backward, 0, 0, 1);
  ExpectVector(volume.eye, 10, 20, 30);
}

// For some lengths the product with the reciprocal and the quotient differ in a bit.
TEST(ViewVolumeTest, AxesAreMultipliedByTheReciprocalOfTheirLength) {
  bool anyDiffers = false;
  for (int i = 1; i < 50; ++i) {
    const float a = static_cast<float>(i);
    const CameraPose pose = {{a, a, a}, {0, 0, 0}, {0, 1, 0}};
    const float length = static_cast<float>(std::sqrt(static_cast<double>(a * a + a * a + a * a)));
    const float expected = a * (1.0f / length);
    anyDiffers = anyDiffers || !SameBits(expected, a / length);
    EXPECT_TRUE(SameBits(expected, OrthographicVolume(pose, {}).backward.x)) << i;
  }
  EXPECT_TRUE(anyDiffers);
}

// Both cross products of the frame are of orthogonal unit vectors, whatever `up` is.
TEST(ViewVolumeTest, PlanesAreNormalisedWhateverUpIs) {
  CullingRandom random(41);
  int judged = 0;
  for (int i = 0; i < 3000; ++i) {
    ReferenceCamera camera = random.Camera(50.0f);
    camera.pose.up.x *= random.Real(0.01f, 100.0f);
    const ViewVolume volume = VolumeOf(camera);
    const Vector3 direction = Subtract(camera.pose.eye, camera.pose.target);
    const Vector3 across = Cross(camera.pose.up, direction);
    const float sine =
        std::sqrt(Dot(across, across) / Dot(direction, direction) /
                  Dot(camera.pose.up, camera.pose.up));  // of the angle between up and view
    if (sine < 0.05f || std::sqrt(Dot(direction, direction)) < 1.0f) {
      continue;
    }
    ++judged;
    for (const CullPlane& plane : volume.planes) {
      // Side planes of a perspective camera are computed from points `near` away from the eye, so
      // the rounding of the eye's position weighs more the nearer they are.
      const float tolerance = camera.perspective ? 1e-4f / camera.frustum.near + 1e-5f : 1e-5f;
      EXPECT_NEAR(1.0f, std::sqrt(Dot(plane.normal, plane.normal)), tolerance) << "case " << i;
    }
  }
  EXPECT_GT(judged, 2000);
}

TEST(ViewVolumeTest, AnEyeAtItsTargetGivesPlanesOfNaN) {
  const CameraPose pose = {{1, 2, 3}, {1, 2, 3}, {0, 1, 0}};
  for (const ViewVolume& volume : {PerspectiveVolume(pose, {1.0f, 1.0f, 1.0f, 10.0f}),
                                   OrthographicVolume(pose, {-1, 1, -1, 1, 1, 10})}) {
    for (const CullPlane& plane : volume.planes) {
      EXPECT_TRUE(IsNone(plane.normal));
      EXPECT_TRUE(std::isnan(plane.d));
    }
    EXPECT_TRUE(IsNone(volume.backward));
    ExpectVector(volume.eye, 1, 2, 3);
  }
}

TEST(ViewVolumeTest, AnUpAlongTheViewLeavesOnlyNearAndFarValid) {
  const CameraPose pose = {{0, 0, 0}, {0, -1, 0}, {0, 2, 0}};
  const ViewVolume volume = OrthographicVolume(pose, {-1, 1, -1, 1, 1, 10});
  ExpectVector(volume.planes[0].normal, 0, -1, 0);
  EXPECT_EQ(-1.0f, volume.planes[0].d);
  ExpectVector(volume.planes[1].normal, 0, 1, 0);
  EXPECT_EQ(10.0f, volume.planes[1].d);
  for (int i = 2; i < kViewPlaneCount; ++i) {
    EXPECT_TRUE(IsNone(volume.planes[i].normal)) << i;
    EXPECT_TRUE(std::isnan(volume.planes[i].d)) << i;
  }
}

// The near rectangle is then a point, the eye itself.
TEST(ViewVolumeTest, ANearOfZeroLeavesOnlyNearAndFarOfAPerspectiveCameraValid) {
  const ViewVolume volume = PerspectiveVolume(kDownNegativeZ, {1.0f, 1.0f, 0.0f, 10.0f});
  ExpectVector(volume.planes[0].normal, 0, 0, -1);
  EXPECT_EQ(0.0f, volume.planes[0].d);
  ExpectVector(volume.planes[1].normal, 0, 0, 1);
  EXPECT_EQ(10.0f, volume.planes[1].d);
  for (int i = 2; i < kViewPlaneCount; ++i) {
    EXPECT_TRUE(IsNone(volume.planes[i].normal)) << i;
  }
}

TEST(ViewVolumeTest, ANaNLensParameterAffectsOnlyItsPlanes) {
  const ViewVolume far = OrthographicVolume(kDownNegativeZ, {-1, 1, -1, 1, 1, kNone});
  EXPECT_TRUE(std::isnan(far.planes[1].d));
  for (int i : {0, 2, 3, 4, 5}) {
    EXPECT_FALSE(std::isnan(far.planes[i].d)) << i;
  }
  const ViewVolume left = OrthographicVolume(kDownNegativeZ, {kNone, 1, -1, 1, 1, 9});
  EXPECT_TRUE(std::isnan(left.planes[4].d));
  for (int i : {0, 1, 2, 3, 5}) {
    EXPECT_FALSE(std::isnan(left.planes[i].d)) << i;
  }
  // An infinite far plane: 0 x infinity is NaN, so its point is NaN.
  const ViewVolume endless = PerspectiveVolume(kDownNegativeZ, {1.0f, 1.0f, 1.0f, kInfinity});
  EXPECT_TRUE(std::isnan(endless.planes[1].d));
  EXPECT_EQ(-1.0f, endless.planes[0].d);
}

TEST(ViewVolumeTest, RandomCamerasGiveTheBitsOfThePlainFormulas) {
  constexpr uint32_t kSeed = 20240601;
  CullingRandom random(kSeed);
  for (int i = 0; i < 20000; ++i) {
    const ReferenceCamera camera = random.Camera(i % 2 == 0 ? 10.0f : 10000.0f);
    ASSERT_TRUE(SameVolume(VolumeOf(camera), ReferenceVolume(camera)))
        << "seed " << kSeed << ", camera " << i;
  }
}

TEST(ViewVolumeTest, SpecialNumbersGiveTheBitsOfThePlainFormulas) {
  constexpr uint32_t kSeed = 77;
  CullingRandom random(kSeed);
  for (int i = 0; i < 10000; ++i) {
    ReferenceCamera camera = random.Camera(10.0f);
    for (float* number :
         {&camera.pose.eye.x, &camera.pose.eye.y, &camera.pose.target.y, &camera.pose.target.z,
          &camera.pose.up.x, &camera.pose.up.z, &camera.frustum.fov, &camera.frustum.aspect,
          &camera.frustum.near, &camera.frustum.far, &camera.box.left, &camera.box.top,
          &camera.box.near}) {
      *number = random.Odd(-10.0f, 10.0f);
    }
    ASSERT_TRUE(SameVolume(VolumeOf(camera), ReferenceVolume(camera)))
        << "seed " << kSeed << ", camera " << i;
  }
}

}  // namespace
}  // namespace nq::engine
